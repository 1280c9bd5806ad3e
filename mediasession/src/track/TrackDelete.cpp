#include "track/TrackDelete.h"

#include <vector>

namespace zyn {

CTimerDeleteRegistry& CTimerDeleteRegistry::Instance()
{
    static CTimerDeleteRegistry registry;
    return registry;
}

void CTimerDeleteRegistry::Add(CTimerDeleteBase* holder)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pending.insert(holder);
}

bool CTimerDeleteRegistry::Remove(CTimerDeleteBase* holder)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending.erase(holder) != 0;
}

bool CTimerDeleteRegistry::Arm(CTimerDeleteBase* holder, const std::function<bool()>& schedule)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pending.count(holder) == 0) return true;
    return schedule();
}

void CTimerDeleteRegistry::Flush()
{
    std::set<CTimerDeleteBase*> pending;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        pending.swap(m_pending);
    }
    // By hand: each holder cancels its own timer.
    for (CTimerDeleteBase* holder : pending) holder->Fire();
}

size_t CTimerDeleteRegistry::PendingCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending.size();
}

}  // namespace zyn
