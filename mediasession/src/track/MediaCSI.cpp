#include "track/MediaCSI.h"

#include <algorithm>

#include "util/CmTick.h"

namespace zyn {

CMediaCSI::CMediaCSI(uint32_t callId) : ZYNIdentityT<CMediaCSI>(callId), m_created(get_tick_count()) {}

void CMediaCSI::SetCSI(const uint32_t* csis, uint32_t count)
{
    if (!csis) count = 0;
    count = std::min(count, kMaxCSIs);
    // The slot after the published head: the reader is never on it unless it lags 15 lists behind.
    const uint32_t next = (m_head.load(std::memory_order_relaxed) + 1) % kSlots;
    Slot& slot = m_history[next];
    for (uint32_t i = 0; i < count; ++i) slot.csis[i].store(csis[i], std::memory_order_relaxed);
    slot.count.store(count, std::memory_order_relaxed);
    m_head.store(next, std::memory_order_release);
    m_lastUpdate.store(std::max<uint64_t>(get_tick_count(), m_created), std::memory_order_release);
}

void CMediaCSI::Read(const Slot& slot, List& out) const
{
    out.count = std::min(slot.count.load(std::memory_order_relaxed), kMaxCSIs);
    for (uint32_t i = 0; i < out.count; ++i) out.csis[i] = slot.csis[i].load(std::memory_order_relaxed);
}

void CMediaCSI::GetCSI(bool fromHistory, uint32_t* out, uint32_t& count) const
{
    List list;
    if (fromHistory)
        Read(m_history[m_head.load(std::memory_order_acquire)], list);
    else
        list = m_current;
    if (!out) count = 0;
    count = std::min(count, list.count);
    std::copy_n(list.csis.begin(), count, out);
}

int CMediaCSI::CheckCSIChanged(uint32_t* oldList, uint32_t& oldCount, uint32_t* newList, uint32_t& newCount)
{
    List newest;
    Read(m_history[m_head.load(std::memory_order_acquire)], newest);
    if (newest.count == m_current.count &&
        std::equal(newest.csis.begin(), newest.csis.begin() + newest.count, m_current.csis.begin()))
        return 0;
    oldCount = m_current.count;
    newCount = newest.count;
    if (oldList) std::copy_n(m_current.csis.begin(), oldCount, oldList);
    if (newList) std::copy_n(newest.csis.begin(), newCount, newList);
    m_current = newest;
    return 1;
}

std::string formatCSI(const uint32_t* csis, uint32_t count)
{
    std::string out;
    if (!csis) return out;
    for (uint32_t i = 0; i < count; ++i) out += std::to_string(csis[i]) + ",";
    return out;
}

}  // namespace zyn
