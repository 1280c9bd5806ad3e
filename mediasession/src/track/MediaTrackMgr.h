// The tracks of one line and direction, by vid (0 to 255). Each slot owns one reference.
//
// Threads: any; the recursive lock guards the table only. No track or engine call is made under
// it: tracks are taken out with a reference first.
#pragma once

#include <array>
#include <mutex>
#include <vector>

#include "track/MediaTrack.h"

namespace zyn {

class CMediaTrackMgr {
public:
    static constexpr int kSlots = 256;

    // threadType: the thread on which removed tracks get their last release.
    explicit CMediaTrackMgr(int threadType);
    virtual ~CMediaTrackMgr();
    CMediaTrackMgr(const CMediaTrackMgr&) = delete;
    CMediaTrackMgr& operator=(const CMediaTrackMgr&) = delete;

    // Takes a reference. 30000007 when every slot is taken, 30000008 for null.
    ZynResult Push(CMediaTrack* track, int* vid = nullptr);
    // Overwrites the slot without releasing what was there: callers never do that.
    ZynResult Push(int vid, CMediaTrack* track);
    // A referenced track or null (a success either way); 0x46004003 for a null out or a bad vid.
    ZynResult QueryTrack(int vid, CMediaTrack** out);
    // The first track; 0x46004103 when empty.
    ZynResult QueryTrack(CMediaTrack** out);
    ZynResult QueryTrackByPolicy(CMediaTrack** out, int32_t policy);
    std::vector<int> GetVids();
    size_t GetCount();
    // Clears the slot and deletes the track (below).
    ZynResult RemoveRemoteTrack(int vid, IZynMediaSession* session);
    // Vids 1 to 255 only: vid 0 is the main stream and never goes by CSI.
    ZynResult RemoveTrackByCSI(uint32_t csi, IZynMediaSession* session);
    // Takes over the caller's reference: stops the track, detaches it from the session, UnInit,
    // and leaves the last release to an event on the manager's thread.
    void DeleteTrack(CMediaTrack* track, IZynMediaSession* session);
    // (So spelled.) The request of every track that has one to send now, in vid order.
    void GetRequsts(std::vector<ZynSimulcastRequest>& out);
    // The first track that shows exactly this CSI, with a reference; 0x46004103 when none.
    ZynResult FindSyncTrack(uint32_t csi, CMediaTrack** out);
    // all: Stop every track; otherwise Stop only previewing ones and _stop the others.
    virtual void StopTracks(bool all);
    // Empties the table; each track gets UnInit and loses the table's reference.
    void Clear();

private:
    std::vector<CMediaTrack*> TakeAll(bool clear);

    std::recursive_mutex m_lock;
    std::array<CMediaTrack*, kSlots> m_tracks{};  // guarded by m_lock
    uint32_t m_count = 0;                         // guarded by m_lock
    const int m_threadType;
};

}  // namespace zyn
