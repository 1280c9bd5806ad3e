// A timer handle. Schedule() binds it to the calling loop thread's timer queue; the sink's OnTimer
// runs there. The destructor cancels, so a handle that is a member of its sink is always safe.
#pragma once

#include <atomic>
#include <cstdint>

#include "tp/CmDefines.h"
#include "tp/CmTimeValue.h"

class CCmTimerWrapperID;
class CCmTimerQueue;

class CCmTimerWrapperIDSink {
public:
    virtual ~CCmTimerWrapperIDSink() = default;
    virtual void OnTimer(CCmTimerWrapperID* id) = 0;
};

class CCmTimerWrapperID {
public:
    CCmTimerWrapperID() = default;
    ~CCmTimerWrapperID();
    CCmTimerWrapperID(const CCmTimerWrapperID&) = delete;
    CCmTimerWrapperID& operator=(const CCmTimerWrapperID&) = delete;

    // count 0 repeats until cancelled. Fails with CM_ERROR_FAILURE off a loop thread.
    CmResult Schedule(CCmTimerWrapperIDSink* sink, const CCmTimeValue& interval, uint32_t count = 0);
    CmResult Cancel();
    bool IsScheduled() const { return m_queue.load() != nullptr; }

private:
    friend class CCmTimerQueue;
    void OnQueueCleared() { m_queue.store(nullptr); }

    std::atomic<CCmTimerQueue*> m_queue{nullptr};
};
