#include "track/MediaAdhocAudio.h"

#include "util/CmTrace.h"

namespace zyn {

#define ADHOC_TAIL MS_TAIL("[Audio]", GetIdentityCallId())

namespace {

constexpr unsigned int kMaxVid = 255;
// The two modes the session takes once its track is in: prepare, then play.
constexpr uint32_t kAdhocPrepare = 1, kAdhocPlay = 2;

}  // namespace

ZynResult CMediaAdhocAudio::CreateAdhocAudioTrack(unsigned int vid, IZynMediaEngineInternal* engine)
{
    if (!engine) {
        CM_ASSERT_REPORT("m_pZynEngine");
        return ZYN_E_FAIL;
    }
    if (vid > kMaxVid) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bStopped) return ZYN_E_FAIL;
    if (m_tracks.count(vid)) return ZYN_E_DUPLICATE;
    ZynResult r = ZYN_S_OK;
    if (!m_pSession) {
        r = engine->CreateMediaSession(ZynSessionType_Audio, &m_pSession);
        if (!ZYN_SUCCEEDED(r)) {
            MS_ERROR_TRACE("CMediaAdhocAudio::CreateAdhocAudioTrack, no session, result=" << r << ADHOC_TAIL);
            return r;
        }
    }
    IZynMediaTrack* track = nullptr;
    r = engine->CreateTrack(ZynTrack_RemoteAudio, &track);
    if (!ZYN_SUCCEEDED(r)) return r;
    track->SetLabel(vid);
    r = m_pSession->AddTrack(track);
    if (ZYN_SUCCEEDED(r)) r = track->Start();
    if (!ZYN_SUCCEEDED(r)) {
        m_pSession->RemoveTrack(track);
        track->Release();
        return r;
    }
    m_tracks[vid] = track;
    for (uint32_t mode : {kAdhocPrepare, kAdhocPlay}) {
        const ZynAdhocModeRecord record{mode, {}};
        r = m_pSession->SetOption(ZynSessionOption_AdhocMode, &record, sizeof record);
        if (!ZYN_SUCCEEDED(r)) CM_ASSERT_REPORT("ZYN_SUCCEEDED(ret)");
    }
    MS_INFO_TRACE("CMediaAdhocAudio::CreateAdhocAudioTrack, vid=" << vid << ", result=" << r << ADHOC_TAIL);
    return r;
}

ZynResult CMediaAdhocAudio::ReceiveAdhocRTP(unsigned int vid, const unsigned char* data, unsigned int length)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_pSession) return ZYN_E_POINTER;
    if (!data || length == 0 || !m_tracks.count(vid)) return ZYN_E_INVALIDARG;
    return m_pSession->ReceiveRTPPacket(data, length);
}

void CMediaAdhocAudio::Stop()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStopped = true;
    for (auto& [vid, track] : m_tracks) {
        track->Stop();
        if (m_pSession) m_pSession->RemoveTrack(track);
        track->Release();
    }
    m_tracks.clear();
    if (!m_pSession) return;
    m_pSession->StopSession(nullptr);
    m_pSession->Release();
    m_pSession = nullptr;
}

IZynMediaSession* CMediaAdhocAudio::GetSession()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pSession;
}

}  // namespace zyn
