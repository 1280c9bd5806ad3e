// The track's core: life, start and stop, mute, volume, polls and status.
#include "track/MediaTrack.h"

#include <cstring>
#include <strings.h>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "track/AvatarInputter.h"
#include "track/TrackDelete.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

constexpr int kBlockPollMs = 300;
constexpr int kStatusPollMs = 1000;
// An unblock reported at once would often be followed by a block again within a frame or two; the
// sink hears it once the render has kept going for a short while.
constexpr int kMediaUnblockDelayMs = 50;
// Session statuses a track reports: the end of a file, sending on and off.
constexpr int kStatusEndOfStream = 7;
constexpr int kStatusSendingOn = 14;
constexpr int kStatusSendingOff = 15;
// Session option 24: the line's local media is muted.
constexpr int32_t kSessionOptionMuted = 24;
// Track option 175: the identity, so that the engine's traces carry the call id.
constexpr int32_t kTrackOptionIdentity = 175;

}  // namespace

// What CTimerDelete holds for a track whose count reached zero: its release is the destruction.
class CMediaTrackDeleter {
public:
    explicit CMediaTrackDeleter(CMediaTrack* track) : m_track(track) {}
    void Release()
    {
        delete m_track;
        delete this;
    }

private:
    CMediaTrack* const m_track;
};

ZynRawFormat GetFileCaptureFormat(const char* path)
{
    if (!path) return ZynRawFormat_Unknown;
    const char* slash = std::strrchr(path, '/');
    const char* name = slash ? slash + 1 : path;
    const char* dot = std::strrchr(name, '.');
    if (!dot || !dot[1]) return ZynRawFormat_Unknown;
    static const struct {
        const char* token;
        ZynRawFormat format;
    } kFormats[] = {{"wav", ZynRawFormat_Wav},     {"i420", ZynRawFormat_I420},  {"yv12", ZynRawFormat_YV12},
                    {"nv12", ZynRawFormat_NV12},   {"nv21", ZynRawFormat_NV21},  {"yuy2", ZynRawFormat_YUY2},
                    {"rgb24", ZynRawFormat_RGB24}, {"bgr24", ZynRawFormat_BGR24}};
    for (const auto& f : kFormats)
        if (strcasecmp(dot + 1, f.token) == 0) return f.format;
    return ZynRawFormat_Unknown;
}

CMediaTrack::CMediaTrack(CMediaConnectionInfo* line, uint32_t callId)
    : ZYNIdentityT<CMediaTrack>(callId), m_pConnectionInfo(line)
{
}

CMediaTrack::~CMediaTrack()
{
    UnInit();
    m_avatar.reset();
    ACmThread* thread = ACmThread::GetCurrentThread();
    MS_INFO_TRACE("CMediaTrack::~CMediaTrack, thread=" << (thread ? thread->GetThreadType() : -1) << TRACK_TAIL);
}

void CMediaTrack::OnReferenceDestory()
{
    // Nothing may take a reference again while the track waits to die: the engine stops telling
    // it of its capture now, not when the destructor runs. A callback that took one just before
    // gives it back later, and that second zero changes nothing.
    if (m_bDying.exchange(true)) return;
    ObserveEngineTrack(m_pTrack, false);
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    if (m_callbacks.load() == 0 && main && main->IsCurrentThread()) {
        delete this;
        return;
    }
    // Whoever dropped the last reference may still be inside one of the track's calls, or on a
    // thread the track's timers do not belong to.
    CTimerDelete<CMediaTrackDeleter>::Schedule(new CMediaTrackDeleter(this), true);
}

ZynResult CMediaTrack::QueryInterface(const _tagUUID& iid, void** out)
{
    if (!out) return ZYN_E_POINTER;
    *out = nullptr;
    if (!(iid == ZYNIID_IZynMediaTrackBase)) return ZYN_E_NOINTERFACE;
    AddRef();
    *out = static_cast<IZynMediaTrackBase*>(this);
    return ZYN_S_OK;
}

IZynMediaEngineInternal* CMediaTrack::GetEngine() const
{
    if (m_pEngine) return m_pEngine;
    CMediaConnection* connection = GetConnection();
    return connection ? connection->GetEngine() : nullptr;
}

CMediaConnection* CMediaTrack::GetConnection() const
{
    return m_pConnectionInfo ? m_pConnectionInfo->GetMediaConnection() : nullptr;
}

ZynResult CMediaTrack::WriteMetricsError(const char* tag, ZynResult result)
{
    MS_ERROR_TRACE("CMediaTrack::WriteMetricsError, tag=" << tag << ", result=" << result << TRACK_TAIL);
    if (CMediaConnection* connection = GetConnection()) connection->GetSessionMetrics().KickZynError(tag, result);
    return result;
}

void CMediaTrack::ReportStatus(int status)
{
    if (CMediaConnection* connection = GetConnection())
        connection->callBackOnSessionStatus(m_pConnectionInfo->GetMid(), m_eZynSessionType, status);
}

uint32_t CMediaTrack::GetTrackLabel() const
{
    uint32_t label = 0;
    if (m_pTrack) m_pTrack->GetLabel(label);
    return label;
}

ZynResult CMediaTrack::CreateEngineTrack(IZynMediaEngineInternal* engine, bool external, IZynMediaTrack** out)
{
    const bool send = m_eDirection == ZynDirection_Send;
    ZynTrackKind kind;
    switch (m_eZynSessionType) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide:
        kind = !send ? ZynTrack_RemoteAudio
                     : external ? ZynTrack_ExternalAudioLocal
                                : m_eZynSessionType == ZynSessionType_AudioSlide ? ZynTrack_AudioSlideLocal
                                                                                 : ZynTrack_AudioLocal;
        break;
    case ZynSessionType_Video:
        kind = !send ? ZynTrack_RemoteVideo : external ? ZynTrack_ExternalVideoLocal : ZynTrack_VideoLocal;
        break;
    case ZynSessionType_ScreenShare: kind = send ? ZynTrack_ScreenShareLocal : ZynTrack_RemoteScreenShare; break;
    default: return ZYN_E_INVALIDARG;
    }
    return engine->CreateTrack(kind, out);
}

ZynResult CMediaTrack::Init(IZynMediaEngineInternal* engine, ZynSessionType type, ZynDirection direction,
                            bool external, ZynSourceType source, int32_t policy)
{
    SetSessionTypeIdentity(type);
    m_eZynSessionType = type;
    m_eDirection = direction;
    m_bExternal = external;
    m_ePolicy = policy;
    if (!engine) {
        CM_ASSERT_REPORT("pEngine != __null");
        return ZYN_E_INVALIDARG;
    }
    if (m_pTrack) return ZYN_E_FAIL;
    if (direction != ZynDirection_Send && direction != ZynDirection_Recv) return ZYN_E_INVALIDARG;
    if (IsAudio() && direction == ZynDirection_Send && !external) engine->GetVolumeControl(0, &m_pPlayMix);
    if (IsAudio() && direction == ZynDirection_Recv) engine->GetVolumeControl(1, &m_pPlayMix);
    const ZynResult r = CreateEngineTrack(engine, external, &m_pTrack);
    if (!ZYN_SUCCEEDED(r)) return r;
    engine->AddRef();
    m_pEngine = engine;
    ObserveEngineTrack(m_pTrack, true);
    UpdateIdentityToInstances(m_pTrack);
    MS_INFO_TRACE("CMediaTrack::Init, direction=" << direction << ", source=" << source << ", external=" << external
                  << TRACK_TAIL);
    return r;
}

void CMediaTrack::UpdateIdentityToInstances(IZynMediaTrack* track)
{
    const uint64_t identity = GetIdentity();
    track->SetOption(kTrackOptionIdentity, &identity, sizeof identity);
}

ZynResult CMediaTrack::Start(bool muted)
{
    if (!m_pTrack) return WriteMetricsError("MedTrck_Start", ZYN_E_POINTER);
    if (m_bStarted.load()) return ZYN_S_OK;
    // Remote audio polls too: its CSI list is the line's active speakers.
    if (m_eDirection == ZynDirection_Recv &&
        (m_eZynSessionType == ZynSessionType_Video || m_eZynSessionType == ZynSessionType_ScreenShare ||
         m_eZynSessionType == ZynSessionType_Audio))
        m_blockTimer.Schedule(this, CCmTimeValue::FromMilliseconds(kBlockPollMs));
    if (m_eZynSessionType == ZynSessionType_Audio) m_statusTimer.Schedule(this, CCmTimeValue::FromMilliseconds(kStatusPollMs));
    if (muted && !m_bMuted.load()) Mute();
    if (!muted && m_bMuted.load()) Unmute();
    // A local track sends nothing until its line is connected.
    if (m_eDirection == ZynDirection_Send && m_pConnectionInfo && !m_pConnectionInfo->IsConnected()) StartSending(false);
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStarting) {
            MS_INFO_TRACE("CMediaTrack::Start, it is in starting so return ok" << TRACK_TAIL);
            return ZYN_S_OK;
        }
        m_bStarting = true;
    }
    RestoreOptions();
    ZynResult r;
    if (m_eZynSessionType == ZynSessionType_Video) {
        if (!m_mutexVideoCap.try_lock()) {
            CM_ASSERT_REPORT("ZYN_SUCCEEDED(m_mutexVideoCap.TryLock())");
            std::lock_guard<std::recursive_mutex> lock(m_startLock);
            m_bStarting = false;
            return WriteMetricsError("MedTrck_Start", ZYN_E_FAIL);
        }
        r = _start();
        m_mutexVideoCap.unlock();
    } else {
        r = _start();
    }
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        // An asynchronous start stays in starting until the engine tells its end.
        if (!m_bAsyncStart || !ZYN_SUCCEEDED(r)) {
            m_bStarting = false;
            m_bStarted.store(ZYN_SUCCEEDED(r));
        }
    }
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_Start", r);
    if (m_avatarMuted && m_avatar) m_avatar->Start();
    return r;
}

ZynResult CMediaTrack::_start()
{
    const ZynResult r = m_pTrack->Start();
    if (m_pFileCapturer) m_pFileCapturer->Start();
    MS_INFO_TRACE("CMediaTrack::_start, result=" << r << TRACK_TAIL);
    return r;
}

ZynResult CMediaTrack::Stop()
{
    ZynResult r = ZYN_S_OK;
    bool stopping = false;
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStarting) {
            m_bStarting = false;
            stopping = true;
        } else if (!m_bStarted.load()) {
            r = ZYN_S_FALSE;
            if (m_bPreviewing) {
                _stop();
                r = ZYN_S_OK;
            }
            m_bPreviewing = false;
        } else {
            stopping = true;
        }
        if (stopping && m_bStopping) {
            MS_INFO_TRACE("CMediaTrack::Stop, m_bStarted=" << m_bStarted.load() << TRACK_TAIL);
            return ZYN_S_OK;
        }
        if (stopping) m_bStopping = true;
    }
    if (stopping) {
        const bool locked = m_mutexVideoCap.try_lock();
        _stop();
        if (locked) m_mutexVideoCap.unlock();
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        m_bStarted.store(false);
        m_bStopping = false;
        m_bPreviewing = false;
    }
    if (m_avatar) m_avatar->Stop();
    if (!ZYN_SUCCEEDED(r)) WriteMetricsError("MedTrck_Stop", r);
    return r;
}

void CMediaTrack::_stop()
{
    m_blockTimer.Cancel();
    m_mediaBlockTimer.Cancel();
    m_statusTimer.Cancel();
    if (m_pTrack) m_pTrack->Stop();
    if (m_pFileCapturer) m_pFileCapturer->Stop();
    if (m_eZynSessionType == ZynSessionType_ScreenShare && !m_screenSharingId.empty()) SetScreenSharingID("");
}

ZynResult CMediaTrack::Mute()
{
    if (m_bUninited.load()) return WriteMetricsError("MedTrck_Mute", ZYN_E_POINTER);
    if (m_bMuted.load()) return WriteMetricsError("MedTrck_Mute", ZYN_E_FAIL);
    ZynResult r = ZYN_S_OK;
    if (IsAudio()) {
        if (!m_bExternal) {
            // No level control (a remote track of an ended engine): nothing to mute.
            if (m_pPlayMix) r = m_pPlayMix->Mute(2);
        } else {
            const uint8_t on = 1;
            r = m_pTrack ? m_pTrack->SetOption(ZynTrackOption_ExternalAudioMute, &on, 1) : ZYN_E_FAIL;
        }
        if (ZYN_SUCCEEDED(r) && m_pConnectionInfo && m_pConnectionInfo->GetZynSession()) {
            const uint8_t muted = 1;
            m_pConnectionInfo->GetZynSession()->SetOption(kSessionOptionMuted, &muted, 1);
        }
    } else {
        r = _mute();
    }
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_Mute", r);
    m_bMuted.store(true);
    if (m_bMuteNotifyEnabled) m_bMuteNotify.store(false);
    return r;
}

ZynResult CMediaTrack::Unmute()
{
    if (m_bUninited.load()) return WriteMetricsError("MedTrck_Unmute", ZYN_E_POINTER);
    if (!m_bMuted.load()) return WriteMetricsError("MedTrck_Unmute", ZYN_E_FAIL);
    ZynResult r = ZYN_S_OK;
    if (IsAudio()) {
        if (!m_bExternal) {
            if (m_pPlayMix) r = m_pPlayMix->Unmute(2);
        } else {
            const uint8_t off = 0;
            r = m_pTrack ? m_pTrack->SetOption(ZynTrackOption_ExternalAudioMute, &off, 1) : ZYN_E_FAIL;
        }
        if (ZYN_SUCCEEDED(r) && m_pConnectionInfo && m_pConnectionInfo->GetZynSession()) {
            const uint8_t muted = 0;
            m_pConnectionInfo->GetZynSession()->SetOption(kSessionOptionMuted, &muted, 1);
        }
    } else {
        r = _unmute();
    }
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_Unmute", r);
    m_bMuted.store(false);
    if (m_bMuteNotifyEnabled && m_bMuteNotify.exchange(false)) {
        if (CMediaConnection* connection = GetConnection())
            if (IZynMediaConnectionSink* sink = connection->GetSink()) sink->OnMuteNotified(false);
    }
    return r;
}

ZynResult CMediaTrack::_mute()
{
    if (m_eDirection != ZynDirection_Send) return ZYN_S_OK;
    return _SetSendingDataOption(false);
}

ZynResult CMediaTrack::_unmute()
{
    if (m_eDirection != ZynDirection_Send) return ZYN_S_OK;
    return _SetSendingDataOption(true);
}

ZynResult CMediaTrack::_SetSendingDataOption(bool on)
{
    if (!m_pTrack) return ZYN_E_NOTRACK;
    uint8_t current = 1;
    uint32_t size = sizeof current;
    if (!ZYN_SUCCEEDED(m_pTrack->GetOption(ZynTrackOption_SendingData, &current, size))) current = 1;
    if ((current != 0) != on) ReportStatus(on ? kStatusSendingOn : kStatusSendingOff);
    const uint8_t value = on ? 1 : 0;
    return m_pTrack->SetOption(ZynTrackOption_SendingData, &value, 1);
}

ZynResult CMediaTrack::StartSending(bool on)
{
    if (m_eDirection != ZynDirection_Send) return ZYN_E_FAIL;
    if (!IsAudio() && m_bMuted.load()) return ZYN_E_FAIL;
    if (on && !m_startSending) {
        m_startSending = ZYN_SUCCEEDED(_unmute());
        return m_startSending ? ZYN_S_OK : ZYN_E_FAIL;
    }
    if (!on && m_startSending) {
        // A recorder still takes the data: only the flag goes.
        if (m_bRecording) {
            m_startSending = false;
            return ZYN_S_OK;
        }
        const ZynResult r = _mute();
        m_startSending = !ZYN_SUCCEEDED(r);
        return r;
    }
    return ZYN_E_FAIL;
}

void CMediaTrack::SessionConnected()
{
    StartSending(true);
    if (m_pFileCapturer) {
        const uint8_t loop = m_bFileLoop ? 1 : 0;
        m_pFileCapturer->SetOption(ZynCapturerOption_Loop, &loop, 1);
    }
}

ZynResult CMediaTrack::SetVolume(unsigned int volume)
{
    if (!m_pPlayMix) return WriteMetricsError("MedTrck_SetVol", ZYN_E_NOTIMPL);
    const ZynResult r = m_pPlayMix->SetVolume(volume, 2);
    return ZYN_SUCCEEDED(r) ? r : WriteMetricsError("MedTrck_SetVol", r);
}

ZynResult CMediaTrack::GetVolume(unsigned int& volume)
{
    if (!m_pPlayMix) return WriteMetricsError("MedTrck_GetVol", ZYN_E_NOTIMPL);
    uint32_t value = 0;
    const ZynResult r = m_pPlayMix->GetVolume(value, 2);
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_GetVol", r);
    volume = value;
    return r;
}

ZynResult CMediaTrack::GetVoiceLevel(unsigned int& level)
{
    if (!IsAudio() || !m_pTrack) return WriteMetricsError("MedTrck_GetVoicLev", ZYN_E_NOTIMPL);
    // A muted or stopped track has nothing to measure.
    level = m_bStarted.load() && !m_bMuted.load() ? 1 : 0;
    return ZYN_S_OK;
}

ZynResult CMediaTrack::SetPlayoutDevice(IZynMediaDevice* device)
{
    if (!device) return ZYN_E_POINTER;
    if (m_eDirection != ZynDirection_Recv || !IsAudio()) return ZYN_E_FAIL;
    if (device->GetDeviceKind() != ZynDevice_Speaker) return ZYN_E_INVALIDARG;
    return m_pTrack ? m_pTrack->SetDevice(device) : ZYN_E_POINTER;
}

ZynResult CMediaTrack::GetCSI(unsigned int* csis, unsigned int& count)
{
    if (!m_pTrack || !m_pConnectionInfo) return WriteMetricsError("MedTrck_GetCSI", ZYN_E_POINTER);
    if (!csis || count == 0) {
        count = 1;
        return ZYN_E_INVALIDARG;
    }
    const uint32_t label = GetTrackLabel();
    if (m_eDirection == ZynDirection_Send) {
        uint32_t csi = label;
        IZynMediaSession* session = m_pConnectionInfo->GetZynSession();
        if (!session || !ZYN_SUCCEEDED(session->GetCSI(label, csi))) {
            csis[0] = label;
            count = 1;
            return ZYN_E_WRONGSTATE;
        }
        csis[0] = csi;
        count = 1;
        return ZYN_S_OK;
    }
    // The sources last told to the application; before any, the one the far end's answer named.
    const uint32_t room = count;
    m_mediaCSI.GetCSI(false, csis, count);
    const uint32_t csi = m_csiFromSCA.load();
    if (count == 0 && csi && room) {
        csis[0] = csi;
        count = 1;
    }
    return ZYN_S_OK;
}

ZynResult CMediaTrack::GetVid(int& vid)
{
    if (!m_pTrack) return ZYN_E_POINTER;
    vid = m_eDirection == ZynDirection_Recv ? static_cast<int>(GetTrackLabel()) : 0;
    return ZYN_S_OK;
}

ZynResult CMediaTrack::GetMediaStatus(ZynMediaStatus& status)
{
    if (m_eDirection == ZynDirection_Send) return ZYN_E_FAIL;
    status = static_cast<ZynMediaStatus>(m_status.load());
    return ZYN_S_OK;
}

void CMediaTrack::SetMediaStatus(ZynMediaStatus status, int flag, uint32_t csi)
{
    if (m_status.exchange(status) != status) m_bStatusChanged.store(true);
    m_mediaStatusAux.store(flag);
    m_csiFromSCA.store(csi);
    m_bStatusNotify.store(true);
}

bool CMediaTrack::DelayMediaUnblocked()
{
    if (m_eDirection != ZynDirection_Recv) return false;
    m_mediaBlockTimer.Cancel();
    return m_mediaBlockTimer.Schedule(this, CCmTimeValue::FromMilliseconds(kMediaUnblockDelayMs), 1) == CM_OK;
}

void CMediaTrack::OnTimer(CCmTimerWrapperID* id)
{
    // The sink may drop the application's last reference from inside its callback: the scope
    // outlives the reference held here, so that release finds the callback still running.
    CCallbackScope scope(m_callbacks);
    AddRef();
    CZynAutoPtr<CMediaTrack> self(this, false);
    CMediaConnection* connection = GetConnection();
    IZynMediaConnectionSink* sink = connection ? connection->GetSink() : nullptr;
    if (!sink) return;
    const unsigned long mid = m_pConnectionInfo->GetMid();
    int vid = 0;
    GetVid(vid);
    if (id == &m_blockTimer) {
        PollSources(sink, mid, static_cast<unsigned>(vid));
    } else if (id == &m_mediaBlockTimer) {
        MS_INFO_TRACE("CMediaTrack::OnTimer, pending OnMediaBlocked is sending" << TRACK_TAIL);
        sink->OnMediaBlocked(mid, static_cast<unsigned>(vid), false, 0);
    } else if (id == &m_statusTimer) {
        // Speaking while muted: the microphone still hears someone (the engine's detector).
        if (!m_bMuteNotifyEnabled || !m_bMuted.load() || !m_pTrack) return;
        uint8_t speaking = 0;
        uint32_t size = sizeof speaking;
        if (!ZYN_SUCCEEDED(m_pTrack->GetOption(10, &speaking, size))) return;
        const bool now = speaking != 0;
        if (m_bMuteNotify.exchange(now) != now) sink->OnMuteNotified(now);
    }
}

void CMediaTrack::OnEndOfStream(IZynMediaFileCapturer*)
{
    CCallbackScope scope(m_callbacks);
    AddRef();
    CZynAutoPtr<CMediaTrack> self(this, false);
    MS_INFO_TRACE("CMediaConnectionInfo::OnEndOfStream, pCapturer=" << static_cast<const void*>(m_pFileCapturer)
                  << TRACK_TAIL);
    ReportStatus(kStatusEndOfStream);
}

ZynResult CMediaTrack::createFileCapturer(const char* path, bool loop)
{
    IZynMediaEngineInternal* engine = GetEngine();
    if (!engine || !m_pTrack) return ZYN_E_POINTER;
    if (m_eDirection != ZynDirection_Send) return ZYN_E_FAIL;
    const ZynRawFormat format = GetFileCaptureFormat(path);
    if (format == ZynRawFormat_Unknown) return ZYN_E_INVALIDARG;
    // WAV feeds audio, the picture formats video and sharing.
    if (IsAudio() != (format == ZynRawFormat_Wav)) return ZYN_E_INVALIDARG;
    IZynMediaFileCapturer* capturer = nullptr;
    ZynResult r = engine->CreateFileCapturer(path, format, &capturer);
    if (!ZYN_SUCCEEDED(r)) return r;
    capturer->SetObserver(this);
    r = m_pTrack->SetFileCapturer(capturer);
    if (!ZYN_SUCCEEDED(r)) {
        capturer->SetObserver(nullptr);
        capturer->Release();
        return r;
    }
    if (m_pFileCapturer) {
        m_pFileCapturer->SetObserver(nullptr);
        m_pFileCapturer->Release();
    }
    m_pFileCapturer = capturer;
    m_bFileLoop = loop;
    const uint8_t loopValue = loop ? 1 : 0;
    m_pFileCapturer->SetOption(ZynCapturerOption_Loop, &loopValue, 1);
    // A camera that is still opening has already passed the start of its capturer: this one
    // starts now, or it would never be read.
    bool running = false;
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        running = m_bStarted.load() || m_bStarting;
    }
    if (running) m_pFileCapturer->Start();
    return ZYN_S_OK;
}

ZynResult CMediaTrack::createFileRenderer(const char* path)
{
    IZynMediaEngineInternal* engine = GetEngine();
    if (!engine || !m_pTrack) return ZYN_E_POINTER;
    if (m_eDirection != ZynDirection_Recv) return ZYN_E_FAIL;
    const ZynRawFormat format = GetFileCaptureFormat(path);
    if (format == ZynRawFormat_Unknown) return ZYN_E_INVALIDARG;
    if (IsAudio() != (format == ZynRawFormat_Wav)) return ZYN_E_INVALIDARG;
    IZynMediaFileRenderer* renderer = nullptr;
    ZynResult r = engine->CreateFileRenderer(path, format, &renderer);
    if (!ZYN_SUCCEEDED(r)) return r;
    r = m_pTrack->AddExternalRenderer(renderer);
    if (!ZYN_SUCCEEDED(r)) {
        renderer->Release();
        return r;
    }
    if (m_pFileRenderer) {
        m_pTrack->RemoveExternalRenderer(m_pFileRenderer);
        m_pFileRenderer->Release();
    }
    m_pFileRenderer = renderer;
    return ZYN_S_OK;
}

void CMediaTrack::releaseFileCapturer()
{
    if (!m_pFileCapturer) return;
    m_pFileCapturer->SetObserver(nullptr);
    m_pFileCapturer->Stop();
    if (m_pTrack) m_pTrack->SetFileCapturer(nullptr);
    m_pFileCapturer->Release();
    m_pFileCapturer = nullptr;
}

void CMediaTrack::releaseFileRenderer()
{
    if (!m_pFileRenderer) return;
    if (m_pTrack) m_pTrack->RemoveExternalRenderer(m_pFileRenderer);
    m_pFileRenderer->Release();
    m_pFileRenderer = nullptr;
}

void CMediaTrack::UnInit()
{
    if (m_bUninited.exchange(true)) return;
    m_blockTimer.Cancel();
    m_mediaBlockTimer.Cancel();
    m_statusTimer.Cancel();
    m_screenSharingId.clear();
    if (m_pConnectionInfo && m_eDirection == ZynDirection_Recv) m_pConnectionInfo->removeSyncBoxTrack(this);
    releaseFileCapturer();
    releaseFileRenderer();
    ReleaseRenderers();
    if (m_avatar) m_avatar->Uninit();
    m_avatarMuted = false;
    if (m_pPlayMix) {
        // A mute left behind must not outlive the call.
        m_pPlayMix->Unmute(2);
        m_pPlayMix->SetVolume(65535, 2);
        m_pPlayMix->Release();
        m_pPlayMix = nullptr;
    }
    if (m_pTrack) {
        // An engine track told Uninit calls back no more: nothing needs it after this, and the
        // engine's objects go with the call even while the application keeps its handle. The
        // observers go first: a callback in flight ends before the line is forgotten.
        ObserveEngineTrack(m_pTrack, false);
        m_pTrack->Uninit();
        m_pTrack->Release();
        m_pTrack = nullptr;
    }
    if (m_pEngine) {
        m_pEngine->Release();
        m_pEngine = nullptr;
    }
    m_bStarted.store(false);
    m_pConnectionInfo = nullptr;
}

}  // namespace zyn
