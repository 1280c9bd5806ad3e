// Engine events of a line: most only add the mid and reach the application's sink. They arrive
// on engine threads; the few that touch a track's timers or switch a device cross to the main
// thread first, holding a reference on the track.
#include "connection/MediaConnection.h"
#include "line/LineSink.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {
// Errors the line reports for its tracks.
constexpr int kLocalVideoTrackError = 0x46024106;
constexpr int kGLRenderError = 0x46024108;
}  // namespace

void CMediaConnectionInfo::OnKeyFrameLost(uint32_t label, uint32_t a, uint32_t b, bool, void*)
{
    LINE_SINK_OR_RETURN(sink);
    sink->OnKeyFrameLost(m_mid, label, a, b);
}

void CMediaConnectionInfo::OnRenderBlocked(uint32_t vid, bool blocked, int32_t frameId)
{
    LINE_SINK_OR_RETURN(sink);
    CZynAutoPtr<CMediaTrack> track = GetVideoRemoteTrack(static_cast<int>(vid));
    if (!blocked && track) {
        // The unblock waits 50 ms on the main thread, where the track's timers live.
        ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
        CMediaConnectionPtr connection(m_sink);
        const unsigned long mid = m_mid;
        CmInvokeInThread(main, true, [connection, track, mid, vid, frameId] {
            if (track->DelayMediaUnblocked()) return CM_OK;
            if (IZynMediaConnectionSink* s = connection->GetSink()) s->OnMediaBlocked(mid, vid, false, frameId);
            return CM_OK;
        });
        return;
    }
    sink->OnMediaBlocked(m_mid, vid, blocked, frameId);
}

void CMediaConnectionInfo::OnRenderIndication(uint32_t vid)
{
    MS_INFO_TRACE("CMediaConnectionInfo::OnRenderIndication -- RenderIndicationRequest(false)" << LINE_TAIL);
    OnRenderBlocked(vid, false, 0);
}

void CMediaConnectionInfo::OnDecodeSizeChanged(uint32_t vid, uint32_t width, uint32_t height)
{
    std::lock_guard<std::mutex> lock(m_decodeSizeMutex);
    m_decodeSizes[vid] = {width, height};
}

void CMediaConnectionInfo::GetDecodeSize(uint32_t vid, uint32_t& width, uint32_t& height)
{
    std::lock_guard<std::mutex> lock(m_decodeSizeMutex);
    auto it = m_decodeSizes.find(vid);
    width = it == m_decodeSizes.end() ? 0 : it->second.first;
    height = it == m_decodeSizes.end() ? 0 : it->second.second;
}

void CMediaConnectionInfo::OnRemoteVideoTrackError(uint32_t label, int32_t code)
{
    LINE_SINK_OR_RETURN(sink);
    sink->OnMediaError(m_mid, label, code);
}

void CMediaConnectionInfo::OnEncodedResolutionUpdate(uint32_t width, uint32_t height)
{
    LINE_SINK_OR_RETURN(sink);
    sink->OnEncodeSizeChanged(m_mid, width, height);
}

void CMediaConnectionInfo::OnLocalVideoTrackError(int32_t code)
{
    LINE_SINK_OR_RETURN(sink);
    CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
    const uint32_t label = track ? track->GetTrackLabel() : 0;
    // Once as the connection's error, once as the track's.
    m_sink->callBackOnError(code, nullptr);
    sink->OnMediaError(m_mid, label, kLocalVideoTrackError);
}

void CMediaConnectionInfo::OnGestureDetectionResult(int32_t type)
{
    LINE_SINK_OR_RETURN(sink);
    if (!GetLocalTrack()) return;
    sink->OnGestureDetectionResult(m_mid, static_cast<ZynGestureType>(type));
}

void CMediaConnectionInfo::OnAudioEngineError(int32_t status, void* data)
{
    if (!m_sink || !m_sink->GetSink()) return;
    m_sink->callBackOnError(status, data);
}

void CMediaConnectionInfo::OnNotifyGLRenderError(void*)
{
    if (!m_sink || !m_sink->GetSink()) return;
    m_sink->callBackOnError(kGLRenderError, nullptr);
}

void CMediaConnectionInfo::OnReceiverBandwidthUpdate(uint32_t value)
{
    LINE_SINK_OR_RETURN(sink);
    sink->OnReceiverBandwidthUpdate(m_mid, value);
}

void CMediaConnectionInfo::OnIndicationResult(const struct _tagIndicationResult* result)
{
    MS_INFO_TRACE("CMediaConnectionInfo::OnIndicationResult, m_direction=" << m_nDirection << LINE_TAIL);
    LINE_SINK_OR_RETURN(sink);
    sink->OnIndicationResult(m_mid, result);
}

void CMediaConnectionInfo::OnDeviceChanged(IZynMediaDevice* device, int32_t kind)
{
    // Only a change of the device list (kind 2) moves anything, and only on the audio line.
    if (kind != 2 || !device || !m_sink || m_type != ZynSessionType_Audio) return;
    const ZynDeviceKind deviceKind = device->GetDeviceKind();
    const bool global = m_bDefaultDeviceSwitch.load();
    const bool mic = deviceKind == ZynDevice_Microphone && (global || m_bMicrophoneSwitch.load());
    const bool speaker = deviceKind == ZynDevice_Speaker && (global || m_bSpeakerSwitch.load());
    if (!mic && !speaker) return;
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    CZynAutoPtr<CMediaTrack> track = mic ? GetLocalTrack() : GetAudioRemoteTrack();
    if (!main || !track) return;
    // The event carries the name: the device may be gone by the time it runs.
    const std::string name = device->GetDeviceName();
    CMediaConnectionPtr connection(m_sink);
    CmInvokeInThread(main, true, [connection, track, name, deviceKind] {
        if (deviceKind == ZynDevice_Microphone)
            MS_INFO_TRACE("CMediaConnectionInfo::OnDeviceChanged, set mic device:" << name);
        else
            MS_INFO_TRACE("CMediaConnectionInfo::OnDeviceChanged, set speaker device:" << name);
        IZynMediaEngineInternal* engine = connection->GetEngine();
        IZynMediaDevice* found = nullptr;
        if (!engine || !ZYN_SUCCEEDED(engine->FindDevice(deviceKind, name.c_str(), &found))) return CM_OK;
        if (deviceKind == ZynDevice_Microphone)
            track->SetCaptureDevice(found);
        else
            track->SetPlayoutDevice(found);
        found->Release();
        return CM_OK;
    });
}

}  // namespace zyn
