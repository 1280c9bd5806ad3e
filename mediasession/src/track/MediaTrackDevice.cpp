// Device and source switching of a local track: another capture device, or a swap of the engine
// track between a device track and an external one (file, external inputter). Main thread.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"
#include "track/TrackDelete.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {
// Track options a replaced engine track hands to its successor: sending data, external mute, the
// encode capability, the subscription record, the frame-rate limit.
constexpr int32_t kTransferredOptions[] = {ZynTrackOption_SendingData, ZynTrackOption_ExternalAudioMute, 18, 19, 20};
}  // namespace

void CMediaTrack::TransferOptions(IZynMediaTrack* from, IZynMediaTrack* to)
{
    uint8_t buffer[512];
    for (int32_t id : kTransferredOptions) {
        uint32_t size = sizeof buffer;
        if (ZYN_SUCCEEDED(from->GetOption(id, buffer, size))) to->SetOption(id, buffer, size);
    }
}

ZynResult CMediaTrack::SwapEngineTrack(bool external, const char* name)
{
    if (m_eDirection != ZynDirection_Send) {
        CM_ASSERT_REPORT("m_eDirection == ZynDirection_Send");
        return ZYN_E_FAIL;
    }
    IZynMediaEngineInternal* engine = GetEngine();
    if (!engine || !m_pTrack) {
        CM_ASSERT_REPORT("pEngine != NULL");
        return ZYN_E_POINTER;
    }
    IZynMediaTrack* next = nullptr;
    ZynResult r = CreateEngineTrack(engine, external, &next);
    if (!ZYN_SUCCEEDED(r) || !next) {
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret) && p != NULL");
        return ZYN_SUCCEEDED(r) ? ZYN_E_POINTER : r;
    }
    UpdateIdentityToInstances(next);
    next->SetLabel(GetTrackLabel());
    if (m_pConnectionInfo && m_pConnectionInfo->GetEncodeCodecs().empty())
        MS_INFO_TRACE("CMediaTrack::" << name << ", codec is not negotiated." << TRACK_TAIL);
    TransferOptions(m_pTrack, next);
    IZynMediaSession* session = m_pConnectionInfo ? m_pConnectionInfo->GetZynSession() : nullptr;
    if (session) {
        r = session->AddTrack(next);
        if (!ZYN_SUCCEEDED(r)) {
            next->Release();
            return r;
        }
    }
    if (m_pFileCapturer) {
        next->SetFileCapturer(m_pFileCapturer);
        m_pTrack->SetFileCapturer(nullptr);
    }
    if (m_bStarted.load()) next->Start();
    IZynMediaTrack* old = m_pTrack;
    ObserveEngineTrack(old, false);
    m_pTrack = next;
    m_bExternal = external;
    ObserveEngineTrack(next, true);
    old->Stop();
    if (session) session->RemoveTrack(old);
    if (m_pConnectionInfo) m_pConnectionInfo->SetMutedStatus(m_bMuted.load());
    // The old track may be inside one of its own callbacks: it goes a second later.
    CTimerDelete<IZynMediaTrack>::Schedule(old);
    return ZYN_S_OK;
}

ZynResult CMediaTrack::ChangeToDeviceTrack()
{
    if (!m_bExternal) {
        MS_INFO_TRACE("CMediaTrack::ChangeToDeviceTrack, it is already device track." << TRACK_TAIL);
        return ZYN_S_OK;
    }
    return SwapEngineTrack(false, "ChangeToDeviceTrack");
}

ZynResult CMediaTrack::ChangeToExternalTrack(ZynSourceType, bool)
{
    if (m_bExternal) {
        MS_INFO_TRACE("CMediaTrack::ChangeToExternalTrack, it is already external." << TRACK_TAIL);
        return ZYN_S_OK;
    }
    return SwapEngineTrack(true, "ChangeToExternalTrack");
}

ZynResult CMediaTrack::SetCaptureDevice(IZynMediaDevice* device)
{
    if (!device) return WriteMetricsError("MedTrck_SetCapDev", ZYN_E_POINTER);
    MS_INFO_TRACE("CMediaTrack::SetCaptureDevice, pDevice:" << static_cast<const void*>(device)
                  << ", friendName:" << device->GetFriendlyName() << TRACK_TAIL);
    if (m_eDirection != ZynDirection_Send || !m_pConnectionInfo)
        return WriteMetricsError("MedTrck_SetCapDev", ZYN_E_FAIL);
    if (!m_pTrack) {
        const ZynResult r = m_pConnectionInfo->InitLocalTrack(this);
        if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_SetCapDev", r);
    }
    if (m_eZynSessionType == ZynSessionType_Video && m_bExternal) {
        MS_INFO_TRACE("CMediaTrack::SetCaptureDevice, change back to camera video from SVS." << TRACK_TAIL);
        const ZynResult r = ChangeToDeviceTrack();
        if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_SetCapDev", r);
    }
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStopping) {
            MS_INFO_TRACE("CMediaTrack::SetCaptureDevice, it is in stopping so return ok" << TRACK_TAIL);
            return ZYN_S_OK;
        }
    }
    if (!m_mutexVideoCap.try_lock()) {
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(m_mutexVideoCap.TryLock())");
        return WriteMetricsError("MedTrck_SetCapDev", ZYN_E_FAIL);
    }
    ZynResult r = ZYN_S_OK;
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStarting) {
            MS_INFO_TRACE("CMediaTrack::SetCaptureDevice, it is in starting so return ok" << TRACK_TAIL);
            m_mutexVideoCap.unlock();
            return ZYN_S_OK;
        }
    }
    // A camera switch reopens the capture on a fresh engine track, the old one closing a second
    // later; a microphone switch only moves the capture.
    if (m_eZynSessionType == ZynSessionType_Video) {
        IZynMediaDevice* current = m_pTrack->GetDevice();
        const bool other = current && current != device;
        if (current) current->Release();
        if (other) r = SwapEngineTrack(false, "SetCaptureDevice");
    }
    if (ZYN_SUCCEEDED(r)) r = m_pTrack->SetDevice(device);
    m_mutexVideoCap.unlock();
    if (!ZYN_SUCCEEDED(r)) return WriteMetricsError("MedTrck_SetCapDev", r);
    m_deviceName = device->GetDeviceName();
    if (IsAudio() && !m_bExternal && !m_pPlayMix) {
        if (IZynMediaEngineInternal* engine = GetEngine()) engine->GetVolumeControl(0, &m_pPlayMix);
    }
    return ZYN_S_OK;
}

}  // namespace zyn
