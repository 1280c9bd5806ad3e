// Not yet built: each operation answers that it is not implemented.
#include "connection/MediaConnection.h"

namespace zyn {

ZynResult CMediaConnection::Subscribe(unsigned long, ZynSubscribePolicy, ZynVideoQualityType, int&, unsigned char, unsigned char, bool, unsigned int, bool, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::Subscribe(unsigned long, ZynSubscribePolicy, unsigned short, unsigned short, unsigned int, unsigned int, unsigned int, int&, unsigned char, unsigned char, bool, unsigned int, bool, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::Unsubscribe(unsigned long, unsigned char)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::PauseQoS(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ResumeQoS(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::AddObservedCSI(unsigned int, const char*, unsigned long, ZynSessionType)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SendTelephoneEvent(unsigned long, unsigned char, unsigned short, unsigned char, int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::UpdateEpochKey(unsigned long, unsigned long, unsigned char*, unsigned int, bool, unsigned int, unsigned short)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetUseEpoch(unsigned long, unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::InitSframe(unsigned long, unsigned short, unsigned short)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::PurgeKeyBefore(unsigned long, unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SubscribeAudioSI(unsigned long, unsigned int, ZynSubscribePolicy)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::UnsubscribeAudioSI(unsigned long, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetNegotiatedRemoteDirection(unsigned long, ZynDirection)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetMediaContentCipher(unsigned long, IZynMediaTrackBase*, IZynMediaContentCipher*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::TurnOnRTPHeaderExtensions(unsigned long, ZynRTPHeaderExtType*, unsigned char)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::QueryRTPExtensionID(unsigned long, const char*, eStreamDirection, unsigned char&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::CreateAdhocAudioTrack(unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ReceiveAdhocRTP(unsigned int, unsigned char*, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::IndicatePictureLoss(unsigned long, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::AddLocalTrack(unsigned long, unsigned int, unsigned char&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::RemoveLocalTrack(unsigned long, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetActiveLocalTrack(unsigned long, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetActiveRemoteTrack(unsigned long, unsigned char)
{
    return ZYN_E_NOTIMPL;
}

}  // namespace zyn
