// Events and event queues. A queue belongs to one thread; any thread may post to it.
#pragma once

#include <cstddef>
#include <functional>

#include "tp/CmDefines.h"

class ICmEvent {
public:
    virtual ~ICmEvent() = default;
    // Runs on the queue's thread.
    virtual CmResult OnEventFire() = 0;
    // Called exactly once, after the event fired or when it is dropped unfired (queue closed).
    virtual void OnDestorySelf() { delete this; }
};

class ICmEventQueue {
public:
    virtual ~ICmEventQueue() = default;
    // Takes ownership of the event in every case: on failure it is destroyed unfired.
    virtual CmResult PostEvent(ICmEvent* event, int priority = CM_EVENT_PRIORITY_NORMAL) = 0;
    // Runs the event on the queue's thread and waits for it; inline when called on that thread.
    // Returns the event's own result, or CM_ERROR_NOT_INITIALIZED when the queue closed first.
    virtual CmResult SendEvent(ICmEvent* event) = 0;
    virtual size_t GetPendingEventsCount() = 0;
};

// An event around a callable; what the callable captures lives until the event is destroyed,
// so a captured reference-holder keeps its object alive across the thread hop.
class CCmInvokeEvent final : public ICmEvent {
public:
    explicit CCmInvokeEvent(std::function<CmResult()> call) : m_call(std::move(call)) {}
    CmResult OnEventFire() override { return m_call ? m_call() : CM_OK; }

private:
    std::function<CmResult()> m_call;
};
