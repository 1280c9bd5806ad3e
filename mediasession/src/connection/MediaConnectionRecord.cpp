// Not yet built: each operation answers that it is not implemented.
#include "connection/MediaConnection.h"

namespace zyn {

IZynRecorder* CMediaConnection::GetRecordService()
{
    return nullptr;
}

ZynResult CMediaConnection::StartOnpremSharing(const char*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopOnpremSharing()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StartPlayRingTone(_tagAudioRawFormat*, const unsigned char*, unsigned int, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopPlayRingTone()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StartRecord(const char*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopRecord()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::PauseRecord()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ResumeRecord()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::RecordVideo(bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::PutRawVideoSample(unsigned int, _tagVideoRawFormat*, unsigned char*, unsigned int, ZynVideoSampleType)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StartRecord4T(IZynMediaRecord*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopRecord4T()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StartRecordVideo4T(IZynMediaRecord*, unsigned char, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopRecordVideo4T(unsigned char, bool)
{
    return ZYN_E_NOTIMPL;
}

}  // namespace zyn
