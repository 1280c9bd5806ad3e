// A track's side of subscriptions: the request it stands for, the far end's layers handed to the
// encoder, and the sources (CSIs) a remote stream carries, told to the application by the poll.
//
// Threads: main thread (requests, the poll); the CSI ring is written on the line's network thread
// and SetMediaStatus there too (atomics, see MediaCSI.h).
#include <algorithm>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// The size an older screen-share receiver can show for a frame size in macroblocks. It cannot
// scale what it is sent, so the encoder must not exceed it.
struct MaxFsSize {
    uint32_t minFs, maxFs, width, height;
};
constexpr MaxFsSize kSizeByMaxFS[] = {
    {9000, 9000, 1920, 1200},
    {8160, 8999, 1920, 1080},
    {3600, 8159, 1280, 720},
    {0, 3599, 640, 480},
};

}  // namespace

const ZynSimulcastRequest* CMediaTrack::GetRequest(bool force) const
{
    if (!force && (!m_bStarted.load() || m_bMuted.load() || m_bNoRequest)) return nullptr;
    return &m_request;
}

void CMediaTrack::SetRequest(const ZynSimulcastRequest& request)
{
    m_request = request;
    m_bNoRequest = false;
}

void CMediaTrack::ClearRequest()
{
    m_request = ZynSimulcastRequest{};
    m_bNoRequest = true;
}

void CMediaTrack::_UpdateHardcodeMaxSizeByMaxFS(_tagVideoSubscribeMultiStream& record)
{
    if (record.uNumStreams == 0) return;
    _tagVideoEncodeCapability& first = record.stStreams[0];
    for (const MaxFsSize& row : kSizeByMaxFS) {
        if (first.uMaxFS < row.minFs || first.uMaxFS > row.maxFs) continue;
        first.uWidth = row.width;
        first.uHeight = row.height;
        return;
    }
    // Above 9000 the receiver takes any size: left as asked.
}

ZynResult CMediaTrack::SubscribeMutlistream(const _tagVideoSubscribeMultiStream& in)
{
    if (!m_pTrack || !m_pConnectionInfo) return ZYN_E_FAIL;
    if (m_eZynSessionType != ZynSessionType_Video && m_eZynSessionType != ZynSessionType_ScreenShare) return ZYN_E_FAIL;
    _tagVideoSubscribeMultiStream record = in;
    record.uNumStreams = std::min<uint32_t>(record.uNumStreams, kZynMaxSubscribeStreams);
    // Only screen share: a video receiver of any version scales what it gets.
    if (m_eZynSessionType == ZynSessionType_ScreenShare && m_pConnectionInfo->GetScrVersion() < 3 &&
        !m_pConnectionInfo->SharingOverVideoPipeline())
        _UpdateHardcodeMaxSizeByMaxFS(record);
    const uint32_t bound = m_pConnectionInfo->GetMaxFrameRateBound();
    if (m_pConnectionInfo->GetMaxFrameLimitMode() == 1 && bound != 0) {
        for (_tagVideoEncodeCapability& stream : record.stStreams)
            stream.uMaxFPS = stream.uMaxFPS == 0 ? bound : std::min(stream.uMaxFPS, bound);
    }
    return m_pTrack->SetOption(ZynTrackOption_SubscribeMultiStream, &record, sizeof record);
}

bool CMediaTrack::findSyncTrack(uint32_t csi) const
{
    if (m_eDirection != ZynDirection_Recv) return false;
    if (m_eZynSessionType != ZynSessionType_Video && m_eZynSessionType != ZynSessionType_ScreenShare) return false;
    uint32_t csis[CMediaCSI::kMaxCSIs];
    uint32_t count = CMediaCSI::kMaxCSIs;
    m_mediaCSI.GetCSI(false, csis, count);
    return count == 1 && csis[0] == csi;
}

void CMediaTrack::PollSources(IZynMediaConnectionSink* sink, unsigned long mid, unsigned vid)
{
    uint32_t oldCsis[CMediaCSI::kMaxCSIs], newCsis[CMediaCSI::kMaxCSIs];
    uint32_t oldCount = 0, newCount = 0;
    const bool changed = m_mediaCSI.CheckCSIChanged(oldCsis, oldCount, newCsis, newCount) != 0;
    if (changed) {
        if (m_pConnectionInfo) {
            // Lip sync follows a single speaker: the stream's audio pairs with its new source.
            if (oldCount == 1) m_pConnectionInfo->removeSyncBoxTrack(oldCsis[0], this);
            if (newCount == 1) m_pConnectionInfo->checkSyncBox(this, newCsis[0]);
        }
        MS_INFO_TRACE("CMediaTrack::OnTimer, CSIs are changed, oldCSI=" << formatCSI(oldCsis, oldCount)
                      << ", newCSI=" << formatCSI(newCsis, newCount) << ", vid=" << vid << TRACK_TAIL);
        sink->OnCSIsChanged(mid, vid, oldCsis, oldCount, newCsis, newCount);
    }
    if (m_bStatusNotify.exchange(false))
        sink->OnMediaStatus(mid, vid, m_status.load(), m_mediaStatusAux.load(), static_cast<int>(m_csiFromSCA.load()));
    if (!m_bStatusChanged.exchange(false)) return;
    // A stream that comes back with the same speaker is announced again: the application dropped
    // the source when the stream went away.
    const bool video = m_eZynSessionType == ZynSessionType_Video || m_eZynSessionType == ZynSessionType_ScreenShare;
    if (m_status.load() != ZynMediaStatus_Available || changed || !video) return;
    uint32_t count = CMediaCSI::kMaxCSIs;
    m_mediaCSI.GetCSI(false, newCsis, count);
    MS_INFO_TRACE("CMediaTrack::OnTimer, resend CSIs, newCSI=" << formatCSI(newCsis, count) << ", vid=" << vid
                  << TRACK_TAIL);
    sink->OnCSIsChanged(mid, vid, newCsis, count, newCsis, count);
}

}  // namespace zyn
