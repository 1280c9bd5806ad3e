#include "track/MediaTrackMgr.h"

#include "tp/CmThreadManager.h"
#include "track/TrackDelete.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {
// Codes of the transport library that the table passes on.
constexpr ZynResult kTableFull = 30000007;
constexpr ZynResult kNullTrack = 30000008;
}  // namespace

CMediaTrackMgr::CMediaTrackMgr(int threadType) : m_threadType(threadType) {}

CMediaTrackMgr::~CMediaTrackMgr() { Clear(); }

ZynResult CMediaTrackMgr::Push(CMediaTrack* track, int* vid)
{
    if (!track) return kNullTrack;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (int i = 0; i < kSlots; ++i) {
        if (m_tracks[i]) continue;
        track->AddRef();
        m_tracks[i] = track;
        ++m_count;
        if (vid) *vid = i;
        return ZYN_S_OK;
    }
    return kTableFull;
}

ZynResult CMediaTrackMgr::Push(int vid, CMediaTrack* track)
{
    if (!track) return kNullTrack;
    if (vid < 0 || vid >= kSlots) return ZYN_E_INVALIDARG;
    track->AddRef();
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (!m_tracks[vid]) ++m_count;
    m_tracks[vid] = track;
    return ZYN_S_OK;
}

ZynResult CMediaTrackMgr::QueryTrack(int vid, CMediaTrack** out)
{
    if (!out || vid < 0 || vid >= kSlots) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    *out = m_tracks[vid];
    if (*out) (*out)->AddRef();
    return ZYN_S_OK;
}

ZynResult CMediaTrackMgr::QueryTrack(CMediaTrack** out)
{
    if (!out) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (CMediaTrack* t : m_tracks) {
        if (!t) continue;
        t->AddRef();
        *out = t;
        return ZYN_S_OK;
    }
    *out = nullptr;
    return ZYN_E_NOTFOUND;
}

ZynResult CMediaTrackMgr::QueryTrackByPolicy(CMediaTrack** out, int32_t policy)
{
    if (!out) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (CMediaTrack* t : m_tracks) {
        if (!t || t->GetPolicy() != policy) continue;
        t->AddRef();
        *out = t;
        return ZYN_S_OK;
    }
    *out = nullptr;
    return ZYN_E_NOTFOUND;
}

std::vector<int> CMediaTrackMgr::GetVids()
{
    std::vector<int> vids;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (int i = 0; i < kSlots; ++i)
        if (m_tracks[i]) vids.push_back(i);
    return vids;
}

size_t CMediaTrackMgr::GetCount()
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    return m_count;
}

ZynResult CMediaTrackMgr::RemoveRemoteTrack(int vid, IZynMediaSession* session)
{
    if (vid < 0 || vid >= kSlots) return ZYN_E_INVALIDARG;
    CMediaTrack* track = nullptr;
    {
        std::lock_guard<std::recursive_mutex> lock(m_lock);
        track = std::exchange(m_tracks[vid], nullptr);
        if (track) --m_count;
    }
    if (!track) return ZYN_E_NOTFOUND;
    DeleteTrack(track, session);
    return ZYN_S_OK;
}

ZynResult CMediaTrackMgr::RemoveTrackByCSI(uint32_t csi, IZynMediaSession* session)
{
    CMediaTrack* track = nullptr;
    {
        std::lock_guard<std::recursive_mutex> lock(m_lock);
        for (int vid = 1; vid < kSlots && !track; ++vid) {
            if (m_tracks[vid] && m_tracks[vid]->GetTrackLabel() == csi) {
                track = std::exchange(m_tracks[vid], nullptr);
                --m_count;
            }
        }
    }
    if (!track) return ZYN_E_NOTFOUND;
    DeleteTrack(track, session);
    return ZYN_S_OK;
}

void CMediaTrackMgr::GetRequsts(std::vector<ZynSimulcastRequest>& out)
{
    out.clear();
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (CMediaTrack* t : m_tracks)
        if (const ZynSimulcastRequest* request = t ? t->GetRequest(false) : nullptr) out.push_back(*request);
}

ZynResult CMediaTrackMgr::FindSyncTrack(uint32_t csi, CMediaTrack** out)
{
    if (!out) return ZYN_E_INVALIDARG;
    *out = nullptr;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (CMediaTrack* t : m_tracks) {
        if (!t || !t->findSyncTrack(csi)) continue;
        t->AddRef();
        *out = t;
        return ZYN_S_OK;
    }
    return ZYN_E_NOTFOUND;
}

void CMediaTrackMgr::DeleteTrack(CMediaTrack* track, IZynMediaSession* session)
{
    if (!track) return;
    // The last release happens on the manager's thread, after the event that runs now.
    ACmThread* thread = CCmThreadManager::Instance()->GetThread(m_threadType);
    ICmEventQueue* queue = thread ? thread->GetEventQueue() : nullptr;
    if (queue) queue->PostEvent(new CDelayDeleteTrackT<CMediaTrack>(track), CM_EVENT_PRIORITY_NORMAL);
    track->Stop();
    if (session && track->GetTrack()) session->RemoveTrack(track->GetTrack());
    track->UnInit();
    track->Release();
}

std::vector<CMediaTrack*> CMediaTrackMgr::TakeAll(bool clear)
{
    std::vector<CMediaTrack*> tracks;
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (CMediaTrack*& t : m_tracks) {
        if (!t) continue;
        if (!clear) t->AddRef();
        tracks.push_back(t);
        if (clear) t = nullptr;
    }
    if (clear) m_count = 0;
    return tracks;
}

void CMediaTrackMgr::StopTracks(bool all)
{
    for (CMediaTrack* t : TakeAll(false)) {
        if (all)
            t->Stop();
        else
            t->_stop();
        t->Release();
    }
}

void CMediaTrackMgr::Clear()
{
    for (CMediaTrack* t : TakeAll(true)) {
        t->UnInit();
        t->Release();
    }
}

}  // namespace zyn
