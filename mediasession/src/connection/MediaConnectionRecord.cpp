// The connection as a recorder (IZynRecorder), its ring tone and on-prem sharing.
// Thread: the application's (its main thread as a rule); the line list only changes there. The
// recorder guards itself: its taps run on the engine's receive thread.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

#define CONN_TAIL MS_TAIL("", m_callId)

namespace zyn {

namespace {

IZynMediaTrack* Referenced(const CZynAutoPtr<CMediaTrack>& track)
{
    IZynMediaTrack* engine = track ? track->GetTrack() : nullptr;
    if (engine) engine->AddRef();
    return engine;
}

}  // namespace

void CMediaConnection::GatherRecordSources(CRecordSources& sources)
{
    for (CMediaConnectionInfo* line : m_connections) {
        const ZynSessionType type = line->GetSessionType();
        if (type == ZynSessionType_Audio || type == ZynSessionType_AudioSlide) {
            if (IZynMediaTrack* t = Referenced(line->GetAudioRemoteTrack())) sources.audio.push_back(t);
        } else if (type == ZynSessionType_Video && !sources.video) {
            sources.video = Referenced(line->GetMainVideoRemoteTrack());
        }
    }
}

IZynRecorder* CMediaConnection::GetRecordService() { return this; }

ZynResult CMediaConnection::StartRecord(const char* path)
{
    CRecordSources sources;
    GatherRecordSources(sources);
    const ZynResult r = m_recorder.StartFile(m_pZynEngine, path, sources);
    MS_INFO_TRACE("CMediaConnection::StartRecord, result=" << r << CONN_TAIL);
    return r;
}

ZynResult CMediaConnection::StopRecord() { return m_recorder.StopFile(); }

ZynResult CMediaConnection::PauseRecord() { return m_recorder.PauseFile(true); }

ZynResult CMediaConnection::ResumeRecord() { return m_recorder.PauseFile(false); }

ZynResult CMediaConnection::RecordVideo(bool enable)
{
    CRecordSources sources;
    if (enable) GatherRecordSources(sources);
    return m_recorder.RecordVideo(m_pZynEngine, enable, sources);
}

ZynResult CMediaConnection::PutRawVideoSample(unsigned int, _tagVideoRawFormat* format, unsigned char* data,
                                              unsigned int length, ZynVideoSampleType)
{
    if (!format) return ZYN_E_INVALIDARG;
    return m_recorder.PutVideoSample(data, length);
}

ZynResult CMediaConnection::StartRecord4T(IZynMediaRecord* record)
{
    CRecordSources sources;
    GatherRecordSources(sources);
    return m_recorder.StartRecord(record, sources);
}

ZynResult CMediaConnection::StopRecord4T() { return m_recorder.StopRecord(); }

ZynResult CMediaConnection::StartRecordVideo4T(IZynMediaRecord* record, unsigned char vid, bool mixed)
{
    IZynMediaTrack* track = nullptr;
    for (CMediaConnectionInfo* line : m_connections) {
        if (line->GetSessionType() != ZynSessionType_Video) continue;
        track = Referenced(mixed ? line->GetMainVideoRemoteTrack() : line->GetVideoRemoteTrack(vid));
        break;
    }
    const ZynResult r = m_recorder.StartVideoRecord(record, mixed ? -1 : vid, track);
    if (track) track->Release();
    return r;
}

ZynResult CMediaConnection::StopRecordVideo4T(unsigned char vid, bool mixed)
{
    return m_recorder.StopVideoRecord(mixed ? -1 : vid);
}

ZynResult CMediaConnection::StartPlayRingTone(_tagAudioRawFormat* format, const unsigned char* data,
                                              unsigned int length, unsigned int)
{
    if (!format || !data || !length) return ZYN_E_INVALIDARG;
    if (format->sampleRate == 0 || format->channels == 0 || format->bitsPerSample != 16 ||
        length % (2u * format->channels) != 0)
        return ZYN_E_INVALIDARG;
    MS_WARNING_TRACE("CMediaConnection::StartPlayRingTone, the engine has no ring tone player" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

ZynResult CMediaConnection::StopPlayRingTone() { return ZYN_S_FALSE; }

ZynResult CMediaConnection::StartOnpremSharing(const char* info)
{
    if (!info || !*info) return ZYN_E_INVALIDARG;
    if (!FindConnection(ZynSessionType_ScreenShare)) return ZYN_E_NOTFOUND;
    MS_WARNING_TRACE("CMediaConnection::StartOnpremSharing, no on-prem sharing service" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

ZynResult CMediaConnection::StopOnpremSharing() { return ZYN_S_FALSE; }

}  // namespace zyn
