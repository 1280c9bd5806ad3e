// Threads. ACmThread is the base of every thread the thread manager knows; CCmLoopThread is the
// usual kind: one loop that waits on its reactor, fires queued events, then due timers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "tp/CmDefines.h"
#include "tp/CmEventQueue.h"
#include "tp/CmMutex.h"
#include "tp/CmReactor.h"
#include "tp/CmTimeValue.h"
#include "tp/CmTimerQueue.h"

enum TFlag : int { TF_NONE = 0, TF_JOINABLE = 1, TF_DETACHED = 2 };

class ACmThread {
public:
    ACmThread();
    virtual ~ACmThread();
    ACmThread(const ACmThread&) = delete;
    ACmThread& operator=(const ACmThread&) = delete;

    // Starts the OS thread, which runs OnThreadInit() then OnThreadRun(). Fails with
    // CM_ERROR_ALREADY_INITIALIZED while a previous run has not ended.
    virtual CmResult Create(const char* name, int type, TFlag flag = TF_JOINABLE, bool detached = false);
    // Asks the thread to end and waits for it (unless called on the thread itself).
    virtual CmResult Stop(CCmTimeValue* timeout = nullptr);
    virtual void OnThreadInit() {}
    virtual void OnThreadRun() = 0;
    virtual CCmReactor* GetReactor() { return nullptr; }
    virtual ICmEventQueue* GetEventQueue() { return nullptr; }
    virtual CCmTimerQueue* GetTimerQueue() { return nullptr; }
    virtual void SetStop() { m_stopFlag.store(true); }
    virtual bool GetStopFlag() { return m_stopFlag.load(); }
    virtual bool IsDetached() { return m_detached; }
    virtual void SetPriority(const int& priority) { m_priority = priority; }
    virtual void GetPriority(int& priority) { priority = m_priority; }

    // Waits for the OS thread to end; a no-op on the thread itself or when none was started.
    CmResult Join();
    // Kernel thread id; -1 before the thread started.
    int64_t GetThreadId() const { return m_threadId.load(); }
    void SetThreadId(int64_t id) { m_threadId.store(id); }
    int GetThreadType() const { return m_type; }
    const std::string& GetThreadName() const { return m_name; }
    bool IsCurrentThread() const;
    // Loop iterations so far: the heartbeat that a watchdog reads.
    uint64_t GetHeartbeat() const { return m_heartbeat.load(); }

    // The ACmThread running the calling code, or null on a thread we do not know.
    static ACmThread* GetCurrentThread();

protected:
    // Binds this object to the calling OS thread instead of starting one (an application's main
    // thread that it pumps itself).
    void AttachToCallingThread(const char* name, int type);
    void Beat() { m_heartbeat.fetch_add(1, std::memory_order_relaxed); }
    void ClearStopFlag() { m_stopFlag.store(false); }

private:
    void ThreadMain();

    std::string m_name;
    int m_type = -1;
    int m_priority = 0;
    bool m_detached = false;
    std::thread m_thread;
    std::atomic<std::thread::id> m_stdId{};
    std::atomic<int64_t> m_threadId{-1};
    std::atomic<bool> m_stopFlag{false};
    std::atomic<bool> m_running{false};
    std::atomic<uint64_t> m_heartbeat{0};
};

class CCmLoopThread : public ACmThread {
public:
    CCmLoopThread();
    ~CCmLoopThread() override;

    void OnThreadInit() override;
    void OnThreadRun() override;
    CCmReactor* GetReactor() override { return &m_reactor; }
    ICmEventQueue* GetEventQueue() override { return m_queue.IsClosed() ? nullptr : &m_queue; }
    CCmTimerQueue* GetTimerQueue() override { return &m_timers; }
    void SetStop() override;

    // For a thread an application pumps itself: bind to the calling thread, then call RunOnce
    // repeatedly. RunOnce waits up to timeoutMs for work and returns false once the loop ended.
    void Attach(const char* name, int type);
    bool RunOnce(int timeoutMs);
    // Closes the queue (queued events are destroyed unfired) and drops the timers.
    void Finish();
    bool IsFinished() const { return m_finished.load(); }

private:
    CCmReactor m_reactor;
    CCmEventQueue m_queue;
    CCmTimerQueue m_timers;
    std::atomic<bool> m_finished{false};
};
