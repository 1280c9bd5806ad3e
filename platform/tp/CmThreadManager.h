// The registry of threads by type, and the owner of the main thread (type 0).
//
// By default the library runs its own main thread, started on first use of Instance(). An
// application that wants connection logic on a thread of its own calls RegisterMainThread() on that
// thread before anything else and then pumps it with PumpMainThread().
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "tp/CmThread.h"

class CCmThreadManager {
public:
    static CCmThreadManager* Instance();

    // First registered thread of the type, or null.
    ACmThread* GetThread(int type);
    // Starts a loop thread of the type with the name, registers it and returns it.
    CmResult SpawnNetworkThread_i(int type, const char* name, ACmThread*& out);
    // A loop thread of its own for one user (not registered by type); Stop+delete it with
    // DestroyUserThread.
    CmResult CreateUserTaskThread(const char* name, ACmThread*& out);
    void DestroyUserThread(ACmThread* thread);

    static void EnableHeartbeat(bool enable);
    static bool IsHeartbeatEnabled();

    // Binds the main thread to the calling thread; the caller then pumps it.
    static CmResult RegisterMainThread();
    // Runs one round of the registered main thread: events, timers. Returns false once it ended.
    static bool PumpMainThread(int timeoutMs);

    // On the main thread, at engine uninit: stops and joins every spawned thread and ends the
    // main loop after the current event.
    static void CleanupOnlyOne();
    // Forgets the records of the threads stopped by CleanupOnlyOne.
    static void TPCleanThreadList();
    // Blocks until the main thread has left its loop; the next Instance() starts a new one.
    static void EnsureThreadManagerExited();

private:
    CCmThreadManager() = default;
    static CCmThreadManager* Raw();
    void StartOwnMainLocked();

    std::recursive_mutex m_mutex;
    std::condition_variable_any m_mainExited;
    std::unique_ptr<CCmLoopThread> m_main;          // guarded by m_mutex
    bool m_mainIsApplications = false;               // guarded by m_mutex
    std::multimap<int, std::unique_ptr<CCmLoopThread>> m_spawned;  // guarded by m_mutex
    std::vector<std::unique_ptr<CCmLoopThread>> m_retired;         // stopped, awaiting deletion
    std::vector<std::unique_ptr<CCmLoopThread>> m_userThreads;     // guarded by m_mutex
};

// Runs call on thread: async posts it at priority, otherwise sends it and waits for its result.
// A missing thread or queue is reported as an assertion and yields 30000008.
CmResult CmInvokeInThread(ACmThread* thread, bool async, std::function<CmResult()> call,
                          int priority = CM_EVENT_PRIORITY_NORMAL);
