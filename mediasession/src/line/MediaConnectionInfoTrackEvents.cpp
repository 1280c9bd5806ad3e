// Engine events of a line that act on its tracks or the engine before, or instead of, reaching the
// application: bandwidth, picture loss, active speakers, announces of the far end's sources.
//
// Threads: engine threads (OnAnnounce on the subscription thread). Tracks are taken with a
// reference and touched outside the managers' locks.
#include "connection/MediaConnection.h"
#include "line/LineSink.h"
#include "line/MediaConnectionInfo.h"
#include "perf/DynPerformanceControl.h"
#include "track/MediaCSI.h"
#include "util/CmTrace.h"

namespace zyn {

void CMediaConnectionInfo::OnStreamBandwidthUpdate(const ZynStreamBandwidth* record)
{
    LINE_SINK_OR_RETURN(sink);
    if (!record || !m_pZynSession) return;
    m_pZynSession->SetOption(ZynSessionOption_StreamBandwidth, record, sizeof *record);
    CDynPerformanceControl::Instance().UpdateCurrentEncodeMaxMBPS(record->uMaxMBPS);
    MS_INFO_TRACE("CMediaConnectionInfo::OnStreamBandwidthUpdate. uMaxMBPS = " << record->uMaxMBPS << LINE_TAIL);
}

void CMediaConnectionInfo::OnSelfviewSizeUpdate(_tagVideoSizeInfo* size)
{
    LINE_SINK_OR_RETURN(sink);
    CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
    const uint32_t label = track ? track->GetTrackLabel() : 0;
    sink->OnRenderSizeChanged(m_mid, label, ZynDirection_Send, size);
}

void CMediaConnectionInfo::OnPictureLossIndication(void*, uint32_t, uint32_t, const ZynKeyFrameRequest* request, void*)
{
    LINE_SINK_OR_RETURN(sink);
    if (request && m_pLocalTrack) {
        for (int vid : m_pLocalTrack->GetVids()) {
            CMediaTrack* track = nullptr;
            if (!ZYN_SUCCEEDED(m_pLocalTrack->QueryTrack(vid, &track)) || !track) continue;
            CZynAutoPtr<CMediaTrack> held(track, false);
            IZynMediaTrack* engineTrack = track->GetTrack();
            if (track->isStarted() && engineTrack)
                engineTrack->SendCommand(ZynTrackCommand_KeyFrameRequest, request, sizeof *request);
        }
    }
    sink->OnPictureLossIndication();
}

void CMediaConnectionInfo::OnActiveSpeakerIndication(const uint32_t* csis, uint32_t count)
{
    LINE_SINK_OR_RETURN(sink);
    if (!csis && count != 0) {
        MS_ERROR_TRACE("CMultistreamAudioTrack::SetCSI params invalid" << LINE_TAIL);
        return;
    }
    CZynAutoPtr<CMediaTrack> track = GetAudioRemoteTrack();
    if (!track) return;
    // The remote audio stream's poll tells the application once the list differs.
    track->getMediaCSI().SetCSI(csis, count);
}

void CMediaConnectionInfo::OnAnnounce(const ZynSimulcastAnnounce* announce)
{
    LINE_SINK_OR_RETURN(sink);
    if (!announce) return;
    m_liveSourceCount.store(announce->uLiveSourceCount);
    const uint32_t entries = std::min<uint32_t>(announce->uEntryCount, kZynMaxAnnounceEntries);
    for (uint32_t i = 0; i < entries && m_pRemoteTrack; ++i) {
        const ZynAnnounceEntry& entry = announce->entries[i];
        if (!entry.bValidRequest && entry.uCSI != 0)
            MS_WARNING_TRACE("CMediaConnectionInfo::OnAnnounce -- invalid req has csi, csi=" << entry.uCSI << LINE_TAIL);
        CMediaTrack* track = nullptr;
        if (!ZYN_SUCCEEDED(m_pRemoteTrack->QueryTrack(entry.vid, &track)) || !track) continue;
        CZynAutoPtr<CMediaTrack> held(track, false);
        ZynMediaStatus before = ZynMediaStatus_Available;
        track->GetMediaStatus(before);
        const auto status = static_cast<ZynMediaStatus>(entry.eStatus);
        track->SetMediaStatus(status, 0, entry.uCSI);
        // A stream coming back: the next rendered frame tells the application it shows again.
        if (before != ZynMediaStatus_Available && status == ZynMediaStatus_Available)
            MS_INFO_TRACE("CMediaConnectionInfo::OnAnnounce -- RenderIndicationRequest(true)" << ", vid="
                          << static_cast<int>(entry.vid) << LINE_TAIL);
    }
    sink->OnLiveSourcesAvailableMediaChanged(m_mid, static_cast<int>(announce->uLiveSourceCount));
}

void CMediaConnectionInfo::OnCaptureStatusChanged(void*, ZynScreenCaptureStatus status)
{
    LINE_SINK_OR_RETURN(sink);
    MS_INFO_TRACE("CMediaConnectionInfo::OnCaptureStatusChanged, status=" << status << LINE_TAIL);
    const unsigned long mid = m_mid;
    m_shareObservers.ForEach([mid, status](IZynScreenShareObserver& o) { o.OnCaptureStatusChanged(mid, status); });
}

void CMediaConnectionInfo::OnCaptureEvent(void*, int32_t event, int32_t value)
{
    LINE_SINK_OR_RETURN(sink);
    const unsigned long mid = m_mid;
    m_shareObservers.ForEach([mid, event, value](IZynScreenShareObserver& o) { o.OnCaptureEvent(mid, event, value); });
}

void CMediaConnectionInfo::OnCapturePositionChanged(void*, int32_t left, int32_t top, int32_t right, int32_t bottom)
{
    LINE_SINK_OR_RETURN(sink);
    const unsigned long mid = m_mid;
    m_shareObservers.ForEach([=](IZynScreenShareObserver& o) { o.OnCapturePositionChanged(mid, left, top, right, bottom); });
}

}  // namespace zyn
