// A line's side of subscriptions that its tracks read (the far end's SCR version, the frame-rate
// bound) and the lip-sync table of its remote video streams.
//
// Threads: the sync table is written by the tracks' poll on the main thread and by UnInit on
// whichever thread ends a track; m_syncMutex guards it. The rest are atomics.
#include "line/MediaConnectionInfo.h"

#include "util/CmTrace.h"

namespace zyn {

uint32_t CMediaConnectionInfo::GetScrVersion() const
{
    if (!m_remoteMultiCaps.is_set()) return 0;
    // Version 4 changed how sizes are asked for; below it only the first version counts.
    const unsigned caps = m_remoteMultiCaps.get_data().scr_versions;
    return (caps & sdp::cmulti_scr_v4) ? 4 : (caps & sdp::cmulti_scr_v1);
}

void CMediaConnectionInfo::SetMaxFrameLimit(int32_t mode, uint32_t fps)
{
    m_nMaxFrameLimitMode.store(mode);
    m_uMaxFrameRateBound.store(fps);
}

void CMediaConnectionInfo::checkSyncBox(CMediaTrack* track, uint32_t csi)
{
    if (!track || csi == 0) return;
    std::lock_guard<std::mutex> lock(m_syncMutex);
    m_syncTable[csi] = track;
}

void CMediaConnectionInfo::removeSyncBoxTrack(uint32_t csi, CMediaTrack* track)
{
    std::lock_guard<std::mutex> lock(m_syncMutex);
    auto it = m_syncTable.find(csi);
    // Another stream may have taken the CSI over since: only this track's entry goes.
    if (it != m_syncTable.end() && it->second == track) m_syncTable.erase(it);
}

void CMediaConnectionInfo::removeSyncBoxTrack(CMediaTrack* track)
{
    std::lock_guard<std::mutex> lock(m_syncMutex);
    for (auto it = m_syncTable.begin(); it != m_syncTable.end();)
        it = it->second == track ? m_syncTable.erase(it) : std::next(it);
}

int CMediaConnectionInfo::GetSyncVid(uint32_t csi)
{
    std::lock_guard<std::mutex> lock(m_syncMutex);
    auto it = m_syncTable.find(csi);
    if (it == m_syncTable.end()) return -1;
    int vid = -1;
    it->second->GetVid(vid);
    return vid;
}

}  // namespace zyn
