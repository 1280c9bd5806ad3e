// A local camera's side: preview, photos, effects, the external input pin, the avatar that stands
// in for a muted camera, and what the engine tells of the capture. The asynchronous end of a
// camera start crosses to the main thread here.
//
// Threads: the application's calls on the main thread. The capture observer is called on engine
// threads; the engine track holds its observer lock meanwhile, and UnInit detaches the observer
// before the track forgets its line, so a callback never sees the line go under it.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "track/AvatarInputter.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// Session statuses of an asynchronous start: the camera runs, or it failed to.
constexpr int kStatusCaptureStarted = 9;
constexpr int kStatusCaptureFailed = 10;
// Device errors of a camera, as the application hears them through OnError.
constexpr int kErrorCameraNoAuth = 0x46024102;
constexpr int kErrorCameraEvicted = 0x46024104;
constexpr int kErrorCameraDied = 0x46024105;

// The end of a start, on its way to the main thread with a reference on the track and one on the
// engine track that reported it; dropped unfired, it releases both.
class CStartedCaptureEvent final : public ICmEvent {
public:
    CStartedCaptureEvent(CMediaTrack* track, IZynMediaTrack* notifier, ZynResult result)
        : m_track(track), m_notifier(notifier), m_result(result)
    {
        m_track->AddRef();
        if (m_notifier) m_notifier->AddRef();
    }
    ~CStartedCaptureEvent() override
    {
        if (m_notifier) m_notifier->Release();
        if (m_track) m_track->Release();
    }
    CmResult OnEventFire() override
    {
        // The track takes the reference over: its last release may happen inside.
        m_track->StartedCaptureOnMain(m_notifier, m_result);
        m_track = nullptr;
        return CM_OK;
    }

private:
    CMediaTrack* m_track;
    IZynMediaTrack* const m_notifier;
    const ZynResult m_result;
};

}  // namespace

void CMediaTrack::ObserveEngineTrack(IZynMediaTrack* track, bool on)
{
    if (!track) return;
    if (m_eZynSessionType == ZynSessionType_Video && m_eDirection == ZynDirection_Send)
        track->SetCaptureObserver(on ? this : nullptr);
    if (IsAudio() && m_eDirection == ZynDirection_Recv) track->SetRemoteAudioObserver(on ? this : nullptr);
}

void CMediaTrack::CallBackError(int code)
{
    CTrackCallback callback(this);
    if (CMediaConnection* connection = GetConnection()) connection->callBackOnError(code, nullptr);
}

bool CMediaTrack::isStarting()
{
    std::lock_guard<std::recursive_mutex> lock(m_startLock);
    return m_bStarting;
}

void CMediaTrack::OnStartedCapture(IZynMediaTrack* notifier, ZynResult result)
{
    if (m_bDying.load()) return;
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr;
    if (!queue) return;
    queue->PostEvent(new CStartedCaptureEvent(this, notifier, result), CM_EVENT_PRIORITY_NORMAL);
}

void CMediaTrack::StartedCaptureOnMain(IZynMediaTrack* notifier, ZynResult result)
{
    CCallbackScope scope(m_callbacks);
    CZynAutoPtr<CMediaTrack> self(this, false);
    MS_INFO_TRACE("CMediaTrack::OnStartedCapture, eStartedResult=" << result << TRACK_TAIL);
    const bool ok = ZYN_SUCCEEDED(result);
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        // A start that Stop ended, or an engine track swapped out since, has nothing left to end.
        if (!m_bStarting || !notifier || notifier != m_pTrack) return;
        m_bStarting = false;
        m_bStarted.store(ok);
    }
    ReportStatus(ok ? kStatusCaptureStarted : kStatusCaptureFailed);
    if (ok) return;
    CallBackError(result);
    const bool locked = m_mutexVideoCap.try_lock();
    _stop();
    if (locked) m_mutexVideoCap.unlock();
}

void CMediaTrack::OnPlaybackTimestampUpdated(uint32_t rtpTimestamp, uint32_t playoutMs)
{
    CTrackCallback callback(this);
    CMediaConnection* connection = GetConnection();
    if (IZynMediaConnectionSink* sink = connection ? connection->GetSink() : nullptr)
        sink->OnAudioTimeStampChanged(rtpTimestamp, playoutMs);
}

void CMediaTrack::OnUpdateCaptureResolution(uint32_t width, uint32_t height)
{
    CTrackCallback callback(this);
    CMediaConnection* connection = GetConnection();
    if (IZynMediaConnectionSink* sink = connection ? connection->GetSink() : nullptr)
        sink->OnUpdateCaptureResolution(width, height);
}

void CMediaTrack::OnUpdateCaptureFPS(uint32_t fps)
{
    MS_DETAIL_TRACE("CMediaTrack::OnUpdateCaptureFPS, fps=" << fps << TRACK_TAIL);
}

void CMediaTrack::OnUpdateCapturedVideoType(int32_t type)
{
    MS_DETAIL_TRACE("CMediaTrack::OnUpdateCapturedVideoType, type=" << type << TRACK_TAIL);
}

void CMediaTrack::OnUpdateCaptureStartTime(uint64_t ms)
{
    MS_DETAIL_TRACE("CMediaTrack::OnUpdateCaptureStartTime, ms=" << ms << TRACK_TAIL);
}

void CMediaTrack::OnCameraRuntimeDie() { CallBackError(kErrorCameraDied); }
void CMediaTrack::OnCameraErrorEvicted() { CallBackError(kErrorCameraEvicted); }
void CMediaTrack::OnCameraNoAuth() { CallBackError(kErrorCameraNoAuth); }

void CMediaTrack::OnCameraProperty(tagCameraProperty* property)
{
    CTrackCallback callback(this);
    CMediaConnection* connection = GetConnection();
    if (IZynMediaConnectionSink* sink = connection ? connection->GetSink() : nullptr) sink->OnCameraProperty(property);
}

void CMediaTrack::OnCapturePhotoOutput(IZynMediaPackage* photo)
{
    CTrackCallback callback(this);
    CMediaConnection* connection = GetConnection();
    if (IZynMediaConnectionSink* sink = connection ? connection->GetSink() : nullptr) sink->OnCapturePhotoOutput(photo);
}

ZynResult CMediaTrack::StartPreview()
{
    const char* tag = "MedTrck_StartPrev";
    if (m_eZynSessionType != ZynSessionType_Video || m_eDirection != ZynDirection_Send)
        return WriteMetricsError(tag, ZYN_E_FAIL);
    if (!m_pTrack) return WriteMetricsError(tag, ZYN_E_NOTRACK);
    if (m_bStarted.load() || m_bPreviewing) return ZYN_S_OK;
    if (!m_mutexVideoCap.try_lock()) {
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(m_mutexVideoCap.TryLock())");
        return WriteMetricsError(tag, ZYN_E_FAIL);
    }
    const ZynResult r = m_pTrack->Start();
    m_mutexVideoCap.unlock();
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError(tag, r);
    m_bPreviewing = true;
    return r;
}

ZynResult CMediaTrack::TakePhoto()
{
    if (m_eZynSessionType != ZynSessionType_Video || m_eDirection != ZynDirection_Send) return ZYN_E_FAIL;
    return TrackCall("MedTrck_TakePhoto", [](IZynMediaTrack* t) { return t->TakePhoto(); });
}

ZynResult CMediaTrack::AddVideoEffect(IZynVideoEffect* effect)
{
    if (!IsLocalVideo()) return ZYN_E_FAIL;
    if (!effect) return WriteMetricsError("MedTrck_AddVidEffect", ZYN_E_INVALIDARG);
    return TrackCall("MedTrck_AddVidEffect", [&](IZynMediaTrack* t) { return t->Attach(ZynTrackAttach_Effect, effect); });
}

ZynResult CMediaTrack::RemoveVideoEffect(IZynVideoEffect* effect)
{
    if (!IsLocalVideo()) return ZYN_E_FAIL;
    return TrackCall("MedTrck_RmvVidEffect", [&](IZynMediaTrack* t) { return t->Detach(ZynTrackAttach_Effect, effect); });
}

ZynResult CMediaTrack::GetExternalInputPin(IZynExternalInputter** pin)
{
    if (!pin) return ZYN_E_POINTER;
    *pin = nullptr;
    if (m_eZynSessionType != ZynSessionType_Video || m_eDirection != ZynDirection_Send || !m_bExternal)
        return ZYN_E_FAIL;
    return TrackCall("MedTrck_GetExtInPin", [&](IZynMediaTrack* t) { return t->GetExternalInputter(pin); });
}

ZynResult CMediaTrack::GetExternalInputPin(IZynExternalInputter** pin, const _tagVideoSourceInfo* info)
{
    if (info) {
        const ZynResult r = SetSourceInfo(info);
        if (!ZYN_SUCCEEDED(r)) {
            if (pin) *pin = nullptr;
            return r;
        }
    }
    return GetExternalInputPin(pin);
}

ZynResult CMediaTrack::SetSourceInfo(const _tagVideoSourceInfo* info)
{
    const char* tag = "MedTrck_SetSrcInfo";
    // The source of a share or of an external video: a camera describes itself.
    if (!IsLocalShare() && !(m_eZynSessionType == ZynSessionType_Video && m_eDirection == ZynDirection_Send && m_bExternal))
        return ZYN_E_FAIL;
    if (!info || info->width == 0 || info->height == 0) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    constexpr int32_t kOptionSourceInfo = 141;
    return TrackCall(tag, [&](IZynMediaTrack* t) { return t->SetOption(kOptionSourceInfo, info, sizeof *info); });
}

ZynResult CMediaTrack::MuteWithAvatar(bool mute, const _tagVideoSourceInfo* info, const unsigned char* picture,
                                      unsigned int length)
{
    if (m_eZynSessionType != ZynSessionType_Video || m_eDirection != ZynDirection_Send) return m_info = ZYN_E_FAIL;
    if (!m_pTrack) return m_info = ZYN_E_NOTRACK;
    if (!mute) {
        if (!m_avatarMuted) return m_info = ZYN_S_FALSE;
        if (m_avatar) m_avatar->Uninit();
        m_avatarMuted = false;
        // Back to the camera, where there was one before the avatar.
        const ZynResult r = ChangeToDeviceTrack();
        if (ZYN_SUCCEEDED(r)) RestoreOptions();
        return m_info = r;
    }
    if (!info || !picture || length == 0 || info->width == 0 || info->height == 0) return m_info = ZYN_E_INVALIDARG;
    // The picture goes in where an external source would: the engine sends it as any other frame.
    ZynResult r = ChangeToExternalTrack(ZynSourceType_File, true);
    if (!ZYN_SUCCEEDED(r)) return m_info = r;
    IZynExternalInputter* pin = nullptr;
    r = GetExternalInputPin(&pin, info);
    if (!ZYN_SUCCEEDED(r)) return m_info = r;
    if (!m_avatar) m_avatar = std::make_unique<CAvatarInputter>();
    r = m_avatar->Init(info, pin, picture, length);
    pin->Release();
    if (!ZYN_SUCCEEDED(r)) return m_info = r;
    m_avatarMuted = true;
    if (m_bStarted.load()) {
        m_avatar->Feed();
        m_avatar->Start();
    }
    MS_INFO_TRACE("CMediaTrack::MuteWithAvatar, " << info->width << "x" << info->height << ", every "
                  << m_avatar->PeriodMs() << " ms" << TRACK_TAIL);
    return m_info = ZYN_S_OK;
}

CAvatarInputter* CMediaTrack::GetAvatar() { return m_avatar.get(); }

}  // namespace zyn
