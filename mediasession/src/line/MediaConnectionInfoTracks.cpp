// Remote tracks of a line: made once, when the first negotiation agreed the line, and kept across
// renegotiations so that the application's renderers stay attached.
#include <algorithm>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

#define LINE_TAIL MS_TAIL(ZynSessionTypeTraceTag(m_type), GetIdentityCallId())

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
    if (!m_remoteTracks.empty()) {
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
    case ZynSessionType_Audio: return CreateRemoteTracks(engine, ZynTrack_RemoteAudio, kAudioRemoteTracks);
    case ZynSessionType_AudioSlide: return CreateRemoteTracks(engine, ZynTrack_RemoteAudio, kAudioSlideRemoteTracks);
    case ZynSessionType_Video: return CreateRemoteTracks(engine, ZynTrack_RemoteVideo, subscribeCount);
    case ZynSessionType_ScreenShare: return CreateRemoteTracks(engine, ZynTrack_RemoteScreenShare, subscribeCount);
    default: return ZYN_S_OK;
    }
}

ZynResult CMediaConnectionInfo::CreateRemoteTracks(IZynMediaEngineInternal* engine, ZynTrackKind kind, int count)
{
    if (!m_pZynSession) return ZYN_E_FAIL;
    for (int vid = 0; vid < count; ++vid) {
        IZynMediaTrack* track = nullptr;
        ZynResult r = engine->CreateTrack(kind, &track);
        if (!ZYN_SUCCEEDED(r) || !track) {
            CM_ASSERT_REPORT("pRemote");
            return ZYN_E_POINTER;
        }
        track->SetLabel(static_cast<uint32_t>(vid));
        r = m_pZynSession->AddTrack(track);
        if (!ZYN_SUCCEEDED(r)) {
            track->Release();
            CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
            return r;
        }
        m_remoteTracks.push_back(track);
        // Audio announces its one mixing track once; video each of its streams.
        if (kind != ZynTrack_RemoteAudio) PostMediaReady(ZynDirection_Recv);
    }
    if (kind == ZynTrack_RemoteAudio && count > 0) PostMediaReady(ZynDirection_Recv);
    return ZYN_S_OK;
}

void CMediaConnectionInfo::ReleaseRemoteTracks()
{
    for (IZynMediaTrack* track : m_remoteTracks) {
        if (m_pZynSession) m_pZynSession->RemoveTrack(track);
        track->Uninit();
        track->Release();
    }
    m_remoteTracks.clear();
}

}  // namespace zyn
