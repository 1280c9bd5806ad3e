// Priority event queue of one loop thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>

#include "tp/CmEvent.h"

class CCmEventQueue final : public ICmEventQueue {
public:
    // wakeup is called (from any thread) after an event was queued, to rouse the owner loop.
    explicit CCmEventQueue(std::function<void()> wakeup);
    ~CCmEventQueue() override;

    CmResult PostEvent(ICmEvent* event, int priority = CM_EVENT_PRIORITY_NORMAL) override;
    CmResult SendEvent(ICmEvent* event) override;
    size_t GetPendingEventsCount() override;

    // Owner thread only.
    void SetOwner(std::thread::id owner) { m_owner.store(owner); }
    bool IsOwnerThread() const { return m_owner.load() == std::this_thread::get_id(); }
    // Fires up to maxEvents queued events, highest priority first. Returns how many fired.
    size_t ProcessEvents(size_t maxEvents);
    // Refuses new events and destroys the queued ones unfired; waiting senders are released.
    void Close();
    bool IsClosed() const { return m_closed.load(); }

private:
    struct SyncSlot;
    struct Item {
        ICmEvent* event;
        SyncSlot* sync;  // non-null for SendEvent: the waiter owns it
    };
    // Key: (-priority, sequence) so that iteration order is highest priority, then FIFO.
    using Key = std::tuple<int, uint64_t>;

    CmResult Enqueue(ICmEvent* event, int priority, SyncSlot* sync);
    static void Drop(const Item& item);

    std::function<void()> m_wakeup;
    std::mutex m_mutex;
    std::map<Key, Item> m_items;  // guarded by m_mutex
    uint64_t m_sequence = 0;      // guarded by m_mutex
    std::atomic<bool> m_closed{false};
    std::atomic<std::thread::id> m_owner{};
};
