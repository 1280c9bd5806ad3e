// A stream's short history of the capture sources (CSIs) it carried, and the list last told to the
// application.
//
// Threads: SetCSI runs on the writer's thread (the line's network thread, or an engine thread for
// active speakers); GetCSI and CheckCSIChanged on the main thread. There is one writer and one
// reader: the writer fills the slot after the published head and publishes the head last, so the
// reader always sees a finished list, the newest or the one before it. `current` belongs to the
// reader alone.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "common/ZynIdentity.h"

namespace zyn {

class CMediaCSI : public ZYNIdentityT<CMediaCSI> {
public:
    static constexpr uint32_t kMaxCSIs = 15;
    static constexpr uint32_t kSlots = 16;

    explicit CMediaCSI(uint32_t callId = 0);
    virtual ~CMediaCSI() = default;

    // Keeps at most 15; a null list with a count stores an empty one.
    void SetCSI(const uint32_t* csis, uint32_t count);
    // fromHistory: the newest list the writer published; otherwise the one last told. count in:
    // room in `out`; out: CSIs copied, never more than stored.
    void GetCSI(bool fromHistory, uint32_t* out, uint32_t& count) const;
    // The newest list against the one last told: 0 when equal; otherwise both lists come out, the
    // newest becomes the one told, and the result is 1. Each out list needs room for 15.
    int CheckCSIChanged(uint32_t* oldList, uint32_t& oldCount, uint32_t* newList, uint32_t& newCount);
    // Milliseconds of the monotonic clock at the last SetCSI (0 before any).
    uint64_t GetLastUpdate() const { return m_lastUpdate.load(std::memory_order_acquire); }

private:
    struct List {
        std::array<uint32_t, kMaxCSIs> csis{};
        uint32_t count = 0;
    };
    // Relaxed atomics only so that a writer lapping a slow reader is no data race; the order comes
    // from the head's release and acquire.
    struct Slot {
        std::array<std::atomic<uint32_t>, kMaxCSIs> csis{};
        std::atomic<uint32_t> count{0};
    };
    void Read(const Slot& slot, List& out) const;

    List m_current;                       // reader's
    std::array<Slot, kSlots> m_history;   // slot `m_head` is published
    std::atomic<uint32_t> m_head{0};
    std::atomic<uint64_t> m_lastUpdate{0};
    const uint64_t m_created;
};

// "1,2," for {1, 2}; nothing for an empty or null list.
std::string formatCSI(const uint32_t* csis, uint32_t count);

}  // namespace zyn
