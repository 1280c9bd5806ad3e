// Deferred release: the last reference of a track, or of an engine track that was just replaced,
// goes on a thread where nothing of it is on the stack. CDelayDeleteTrack is an event that only
// releases; CTimerDelete holds its object for one second on a timer thread, then releases it.
//
// Threads: made on any thread; CTimerDelete's timer runs on the thread that scheduled it (the
// main thread when the current one has no timer queue). The pending list is guarded by its mutex.
#pragma once

#include <functional>
#include <mutex>
#include <set>

#include "tp/CmEvent.h"
#include "tp/CmThreadManager.h"
#include "tp/CmTimerWrapperID.h"
#include "util/CmTrace.h"

namespace zyn {

template <class T>
class CDelayDeleteTrackT final : public ICmEvent {
public:
    explicit CDelayDeleteTrackT(T* track) : m_track(track) { m_track->AddRef(); }
    ~CDelayDeleteTrackT() override { m_track->Release(); }
    CmResult OnEventFire() override { return CM_OK; }

private:
    T* const m_track;
};

class CTimerDeleteBase : public CCmTimerWrapperIDSink {
public:
    // Releases the object and deletes the holder.
    virtual void Fire() = 0;
};

// One-shot holders that have not fired yet: the engine's end releases them (its timer queues go
// with it).
class CTimerDeleteRegistry {
public:
    static CTimerDeleteRegistry& Instance();
    void Add(CTimerDeleteBase* holder);
    // False when the holder was already taken by Flush.
    bool Remove(CTimerDeleteBase* holder);
    // Runs schedule for a holder still pending, under the lock, so that a Flush waits for it; a
    // holder that Flush already took counts as armed.
    bool Arm(CTimerDeleteBase* holder, const std::function<bool()>& schedule);
    // Runs every pending holder's release now, on the caller's thread.
    void Flush();
    size_t PendingCount();

private:
    std::mutex m_mutex;
    std::set<CTimerDeleteBase*> m_pending;  // guarded by m_mutex
};

// Holds one reference on an object with AddRef/Release and drops it one second later.
template <class T>
class CTimerDelete final : public CTimerDeleteBase {
public:
    // Takes over one reference of object (null does nothing). The timer runs on the current
    // thread, or with mainOnly (or where the current thread has no timer queue) on the main thread.
    static void Schedule(T* object, bool mainOnly = false)
    {
        if (!object) return;
        auto* holder = new CTimerDelete(object);
        CTimerDeleteRegistry& registry = CTimerDeleteRegistry::Instance();
        registry.Add(holder);
        auto arm = [holder] {
            return CTimerDeleteRegistry::Instance().Arm(holder, [holder] {
                return holder->m_timer.Schedule(holder, CCmTimeValue::FromMilliseconds(kDelayMs), 1) == CM_OK;
            });
        };
        ACmThread* current = ACmThread::GetCurrentThread();
        ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
        if ((mainOnly ? current && current == main : current && current->GetTimerQueue()) && arm()) return;
        if (!mainOnly)
            MS_INFO_TRACE("CTimerDelete, target thread doesn't have timer queue, schedule in main, this="
                          << static_cast<const void*>(holder));
        // Async: the main thread may be the one waiting for this caller.
        if (main && main->GetEventQueue() &&
            CmInvokeInThread(main, true, [holder, arm] {
                if (!arm() && CTimerDeleteRegistry::Instance().Remove(holder)) holder->Fire();
                return CM_OK;
            }) == CM_OK)
            return;
        // No thread left to wait on: the engine is ending.
        if (registry.Remove(holder)) holder->Fire();
    }
    void OnTimer(CCmTimerWrapperID*) override
    {
        if (CTimerDeleteRegistry::Instance().Remove(this)) Fire();
    }
    void Fire() override
    {
        m_timer.Cancel();
        T* object = m_object;
        delete this;
        object->Release();
    }

private:
    static constexpr int kDelayMs = 1000;
    explicit CTimerDelete(T* object) : m_object(object) {}
    ~CTimerDelete() override = default;

    T* const m_object;
    CCmTimerWrapperID m_timer;
};

}  // namespace zyn
