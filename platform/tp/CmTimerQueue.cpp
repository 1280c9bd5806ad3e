#include "tp/CmTimerQueue.h"

#include "tp/CmTimerWrapperID.h"

void CCmTimerQueue::Insert(CCmTimerWrapperID* id, Entry entry)
{
    m_byDeadline.emplace(entry.deadlineUs, id);
    m_entries[id] = entry;
}

CmResult CCmTimerQueue::Schedule(CCmTimerWrapperID* id, CCmTimerWrapperIDSink* sink,
                                 const CCmTimeValue& interval, uint32_t count)
{
    if (!id || !sink) return CM_ERROR_NULL_POINTER;
    int64_t intervalUs = interval.GetTotalInUsec();
    if (intervalUs < 0) return CM_ERROR_INVALID_ARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto old = m_entries.find(id);
    if (old != m_entries.end()) {
        for (auto it = m_byDeadline.lower_bound(old->second.deadlineUs); it != m_byDeadline.end(); ++it) {
            if (it->second == id) {
                m_byDeadline.erase(it);
                break;
            }
        }
        m_entries.erase(old);
    }
    int64_t now = CCmTimeValue::GetMonotonic().GetTotalInUsec();
    Insert(id, Entry{sink, intervalUs, count, now + intervalUs, ++m_generation});
    return CM_OK;
}

CmResult CCmTimerQueue::Cancel(CCmTimerWrapperID* id)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    auto found = m_entries.find(id);
    CmResult result = CM_ERROR_NOT_FOUND;
    if (found != m_entries.end()) {
        for (auto it = m_byDeadline.lower_bound(found->second.deadlineUs); it != m_byDeadline.end(); ++it) {
            if (it->second == id) {
                m_byDeadline.erase(it);
                break;
            }
        }
        m_entries.erase(found);
        result = CM_OK;
    }
    // From inside its own callback the cancel simply takes effect; from elsewhere, wait it out.
    if (m_firing == id && m_firingThread != std::this_thread::get_id())
        m_firingDone.wait(lock, [&] { return m_firing != id; });
    return result;
}

int CCmTimerQueue::CheckExpire()
{
    for (;;) {
        CCmTimerWrapperID* id = nullptr;
        CCmTimerWrapperIDSink* sink = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_byDeadline.empty()) return -1;
            int64_t now = CCmTimeValue::GetMonotonic().GetTotalInUsec();
            auto first = m_byDeadline.begin();
            if (first->first > now) {
                int64_t waitUs = first->first - now;
                return static_cast<int>((waitUs + 999) / 1000);
            }
            id = first->second;
            m_byDeadline.erase(first);
            Entry entry = m_entries[id];
            m_entries.erase(id);
            sink = entry.sink;
            bool again = entry.remaining != 1;
            if (again) {
                if (entry.remaining) --entry.remaining;
                // Keep the period steady; after a stall, restart from now instead of bursting.
                entry.deadlineUs += entry.intervalUs;
                if (entry.deadlineUs <= now) entry.deadlineUs = now + entry.intervalUs;
                Insert(id, entry);
            } else {
                id->OnQueueCleared();
            }
            m_firing = id;
            m_firingThread = std::this_thread::get_id();
        }
        sink->OnTimer(id);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_firing = nullptr;
        }
        m_firingDone.notify_all();
    }
}

CCmTimerQueue::~CCmTimerQueue() { Clear(); }

size_t CCmTimerQueue::Size()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size();
}

void CCmTimerQueue::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& [id, entry] : m_entries) id->OnQueueCleared();
    m_entries.clear();
    m_byDeadline.clear();
}
