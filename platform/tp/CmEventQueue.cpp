#include "tp/CmEventQueue.h"

#include <condition_variable>

struct CCmEventQueue::SyncSlot {
    std::mutex mutex;
    std::condition_variable done_cv;
    bool done = false;
    CmResult result = CM_ERROR_NOT_INITIALIZED;

    void Finish(CmResult r)
    {
        std::lock_guard<std::mutex> lock(mutex);
        result = r;
        done = true;
        done_cv.notify_all();
    }
};

CCmEventQueue::CCmEventQueue(std::function<void()> wakeup) : m_wakeup(std::move(wakeup)) {}

CCmEventQueue::~CCmEventQueue() { Close(); }

void CCmEventQueue::Drop(const Item& item)
{
    if (item.sync) item.sync->Finish(CM_ERROR_NOT_INITIALIZED);
    item.event->OnDestorySelf();
}

CmResult CCmEventQueue::Enqueue(ICmEvent* event, int priority, SyncSlot* sync)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_closed.load()) {
            m_items.emplace(Key{-priority, m_sequence++}, Item{event, sync});
            event = nullptr;
        }
    }
    if (event) {
        Drop(Item{event, sync});
        return CM_ERROR_NOT_INITIALIZED;
    }
    if (m_wakeup) m_wakeup();
    return CM_OK;
}

CmResult CCmEventQueue::PostEvent(ICmEvent* event, int priority)
{
    if (!event) return CM_ERROR_NULL_POINTER;
    return Enqueue(event, priority, nullptr);
}

CmResult CCmEventQueue::SendEvent(ICmEvent* event)
{
    if (!event) return CM_ERROR_NULL_POINTER;
    if (IsOwnerThread()) {
        // Waiting for ourselves would never end: run it here and now.
        CmResult r = event->OnEventFire();
        event->OnDestorySelf();
        return r;
    }
    SyncSlot sync;
    CmResult r = Enqueue(event, CM_EVENT_PRIORITY_NORMAL, &sync);
    if (r != CM_OK) return r;
    std::unique_lock<std::mutex> lock(sync.mutex);
    sync.done_cv.wait(lock, [&] { return sync.done; });
    return sync.result;
}

size_t CCmEventQueue::GetPendingEventsCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_items.size();
}

size_t CCmEventQueue::ProcessEvents(size_t maxEvents)
{
    size_t fired = 0;
    while (fired < maxEvents) {
        Item item{};
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_items.empty()) break;
            auto first = m_items.begin();
            item = first->second;
            m_items.erase(first);
        }
        CmResult r = item.event->OnEventFire();
        item.event->OnDestorySelf();
        if (item.sync) item.sync->Finish(r);
        ++fired;
    }
    return fired;
}

void CCmEventQueue::Close()
{
    std::map<Key, Item> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed.store(true);
        dropped.swap(m_items);
    }
    for (auto& [key, item] : dropped) Drop(item);
}
