// Remote tracks of a line: made once, when the first negotiation agreed the line, and kept across
// renegotiations so that the application's renderers stay attached.
#include <algorithm>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// Audio mixes up to six active speakers on the client; audio slides carry one mix.
constexpr int kAudioRemoteTracks = 6;
constexpr int kAudioSlideRemoteTracks = 1;

}  // namespace

ZynResult CMediaConnectionInfo::CreateRemoteZynSession(IZynMediaEngineInternal* engine, bool failover)
{
    if (!engine) {
        CM_ASSERT_REPORT("pEngine");
        return ZYN_E_INVALIDARG;
    }
    if (m_pRemoteTrack && m_pRemoteTrack->GetCount() > 0) {
        if (failover && m_pZynSession) {
            m_pZynSession->Failover();
            MS_INFO_TRACE("CMediaConnectionInfo::CreateRemoteZynSession, renegotiation." << LINE_TAIL);
        }
        return ZYN_S_OK;
    }
    // Without multistream the remote end sends one stream; with it, as many as both allow.
    int sources = 1;
    if (m_bMultistream && m_remoteMultiCaps.is_set())
        sources = static_cast<int>(m_remoteMultiCaps.get_data().sources.size());
    const int subscribeCount = std::min(m_maxSources, sources);
    MS_INFO_TRACE("CMediaConnectionInfo::CreateRemoteZynSession, subscribeCount=" << subscribeCount << LINE_TAIL);
    switch (m_type) {
    case ZynSessionType_Audio: return CreateRemoteTracks(engine, kAudioRemoteTracks);
    case ZynSessionType_AudioSlide: return CreateRemoteTracks(engine, kAudioSlideRemoteTracks);
    case ZynSessionType_Video:
    case ZynSessionType_ScreenShare: return CreateRemoteTracks(engine, subscribeCount);
    default: return ZYN_S_OK;
    }
}

ZynResult CMediaConnectionInfo::CreateRemoteTracks(IZynMediaEngineInternal* engine, int count)
{
    if (!m_pZynSession) return ZYN_E_FAIL;
    if (!m_pRemoteTrack) m_pRemoteTrack = std::make_unique<CMediaTrackMgr>(TT_MAIN);
    const CBaseConfig::CFileRender& file = GetConfig().GetFileRender();
    const bool toFile = file.enabled && !file.path.empty();
    const bool audio = m_type == ZynSessionType_Audio || m_type == ZynSessionType_AudioSlide;
    // The active-speaker policy of the subscriptions.
    constexpr int32_t kActiveSpeakerPolicy = 2;
    for (int vid = 0; vid < count; ++vid) {
        CZynAutoPtr<CMediaTrack> track(new CMediaTrack(this, GetIdentityCallId()));
        ZynResult r = track->Init(engine, m_type, ZynDirection_Recv, false, ZynSourceType_Remote, kActiveSpeakerPolicy);
        if (!ZYN_SUCCEEDED(r) || !track->GetTrack()) {
            CM_ASSERT_REPORT("pRemote");
            track->UnInit();
            return ZYN_E_POINTER;
        }
        track->GetTrack()->SetLabel(static_cast<uint32_t>(vid));
        r = m_pZynSession->AddTrack(track->GetTrack());
        if (!ZYN_SUCCEEDED(r)) {
            CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
            track->UnInit();
            return r;
        }
        m_pRemoteTrack->Push(vid, track.get());
        m_vidHasTrack[vid].store(true, std::memory_order_release);
        // Audio renders the mix of its first track; video every stream.
        if (toFile && (!audio || vid == 0)) {
            r = track->createFileRenderer(file.path.c_str());
            if (!ZYN_SUCCEEDED(r))
                MS_ERROR_TRACE("CMediaConnectionInfo::CreateRemoteTracks, file render failed, path=" << file.path
                               << ", result=" << r << LINE_TAIL);
        }
        // Audio announces its one mixing track once; video each of its streams.
        if (!audio) PostMediaReady(ZynDirection_Recv, track.get());
    }
    if (audio && count > 0) {
        CZynAutoPtr<CMediaTrack> first = GetAudioRemoteTrack();
        PostMediaReady(ZynDirection_Recv, first.get());
    }
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::OnFileConfigChanged(EMediaConfigItem item)
{
    if (item == EMediaConfigItem::FileCapture && m_pLocalTrack) {
        const CBaseConfig::CFileCapture& file = GetConfig().GetFileCapture();
        CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
        if (!track) return ZYN_S_OK;
        if (!file.enabled) {
            track->releaseFileCapturer();
            return ZYN_S_OK;
        }
        return track->createFileCapturer(file.path.c_str(), file.loop);
    }
    if (item == EMediaConfigItem::FileRender && m_pRemoteTrack) {
        const CBaseConfig::CFileRender& file = GetConfig().GetFileRender();
        const bool audio = m_type == ZynSessionType_Audio || m_type == ZynSessionType_AudioSlide;
        for (int vid : m_pRemoteTrack->GetVids()) {
            if (audio && vid != 0) continue;
            CZynAutoPtr<CMediaTrack> track = GetVideoRemoteTrack(vid);
            if (!track) continue;
            if (!file.enabled) {
                track->releaseFileRenderer();
                continue;
            }
            const ZynResult r = track->createFileRenderer(file.path.c_str());
            if (!ZYN_SUCCEEDED(r)) return r;
        }
    }
    return ZYN_S_OK;
}

}  // namespace zyn
