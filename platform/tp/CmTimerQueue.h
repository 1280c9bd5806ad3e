// Timers of one loop thread. Scheduled and fired on the owner thread; Cancel may come from any
// thread and, when the timer is firing right then, waits until its callback has returned, so a
// sink may be destroyed as soon as Cancel returns.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "tp/CmDefines.h"
#include "tp/CmTimeValue.h"

class CCmTimerWrapperID;
class CCmTimerWrapperIDSink;

class CCmTimerQueue {
public:
    CCmTimerQueue() = default;
    ~CCmTimerQueue();
    CCmTimerQueue(const CCmTimerQueue&) = delete;
    CCmTimerQueue& operator=(const CCmTimerQueue&) = delete;

    // count 0: until cancelled; otherwise the number of firings.
    CmResult Schedule(CCmTimerWrapperID* id, CCmTimerWrapperIDSink* sink, const CCmTimeValue& interval,
                      uint32_t count);
    CmResult Cancel(CCmTimerWrapperID* id);

    // Owner thread: fires every due timer. Returns milliseconds until the next one, -1 for none.
    int CheckExpire();
    size_t Size();
    // Drops every timer without firing (loop is ending).
    void Clear();

private:
    struct Entry {
        CCmTimerWrapperIDSink* sink;
        int64_t intervalUs;
        uint32_t remaining;  // 0: unlimited
        int64_t deadlineUs;
        uint64_t generation;
    };

    void Insert(CCmTimerWrapperID* id, Entry entry);

    std::mutex m_mutex;
    std::condition_variable m_firingDone;
    std::multimap<int64_t, CCmTimerWrapperID*> m_byDeadline;  // guarded by m_mutex
    std::unordered_map<CCmTimerWrapperID*, Entry> m_entries;  // guarded by m_mutex
    CCmTimerWrapperID* m_firing = nullptr;                    // guarded by m_mutex
    std::thread::id m_firingThread;                           // guarded by m_mutex
    uint64_t m_generation = 0;
};
