#include "tp/CmThreadManager.h"

#include <atomic>

#include "util/CmTrace.h"

namespace {
std::atomic<bool> g_heartbeat{false};
}

CCmThreadManager* CCmThreadManager::Raw()
{
    // Never destroyed: threads may still reach the manager while the process exits.
    static CCmThreadManager* manager = new CCmThreadManager();
    return manager;
}

CCmThreadManager* CCmThreadManager::Instance()
{
    CCmThreadManager* manager = Raw();
    std::lock_guard<std::recursive_mutex> lock(manager->m_mutex);
    // A main thread that ended (or is ending) with the last engine life is replaced by a fresh one,
    // after the old loop has returned.
    if (!manager->m_main || (manager->m_main->GetStopFlag() && !manager->m_main->IsCurrentThread()))
        manager->StartOwnMainLocked();
    return manager;
}

void CCmThreadManager::StartOwnMainLocked()
{
    if (m_main) {
        if (!m_mainIsApplications) m_main->Join();
        m_retired.push_back(std::move(m_main));
    }
    // Threads of an earlier engine life, all joined already, except a main thread that is
    // the caller itself.
    std::erase_if(m_retired, [](const std::unique_ptr<CCmLoopThread>& t) { return !t->IsCurrentThread(); });
    m_main = std::make_unique<CCmLoopThread>();
    m_mainIsApplications = false;
    m_main->Create("main", TT_MAIN);
}

ACmThread* CCmThreadManager::GetThread(int type)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (type == TT_MAIN) return m_main.get();
    auto it = m_spawned.find(type);
    return it == m_spawned.end() ? nullptr : it->second.get();
}

CmResult CCmThreadManager::SpawnNetworkThread_i(int type, const char* name, ACmThread*& out)
{
    auto thread = std::make_unique<CCmLoopThread>();
    if (!thread->GetReactor()->IsValid()) return CM_ERROR_FAILURE;
    CmResult r = thread->Create(name, type);
    if (r != CM_OK) return r;
    out = thread.get();
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_spawned.emplace(type, std::move(thread));
    return CM_OK;
}

CmResult CCmThreadManager::CreateUserTaskThread(const char* name, ACmThread*& out)
{
    auto thread = std::make_unique<CCmLoopThread>();
    CmResult r = thread->Create(name, TT_USER_DEFINE_BASE);
    if (r != CM_OK) return r;
    out = thread.get();
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_userThreads.push_back(std::move(thread));
    return CM_OK;
}

void CCmThreadManager::DestroyUserThread(ACmThread* thread)
{
    std::unique_ptr<CCmLoopThread> victim;
    {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        for (auto it = m_userThreads.begin(); it != m_userThreads.end(); ++it) {
            if (it->get() == thread) {
                victim = std::move(*it);
                m_userThreads.erase(it);
                break;
            }
        }
    }
    if (victim) victim->Stop();
}

void CCmThreadManager::EnableHeartbeat(bool enable) { g_heartbeat.store(enable); }
bool CCmThreadManager::IsHeartbeatEnabled() { return g_heartbeat.load(); }

CmResult CCmThreadManager::RegisterMainThread()
{
    CCmThreadManager* self = Raw();
    std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
    if (self->m_mainIsApplications && self->m_main && self->m_main->IsCurrentThread()) return CM_OK;
    // Registration comes before any other use of the library, so a main thread of the library's
    // own, if one was started, has nothing queued and is simply ended.
    if (self->m_main) self->m_main->Stop();
    self->m_main = std::make_unique<CCmLoopThread>();
    self->m_main->Attach("main", TT_MAIN);
    self->m_mainIsApplications = true;
    return CM_OK;
}

bool CCmThreadManager::PumpMainThread(int timeoutMs)
{
    CCmLoopThread* main = nullptr;
    CCmThreadManager* self = Raw();
    {
        std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
        if (!self->m_mainIsApplications || !self->m_main || !self->m_main->IsCurrentThread()) return false;
        main = self->m_main.get();
    }
    bool more = main->RunOnce(timeoutMs);
    if (!more) {
        // Notify under the lock so a waiter between its check and its wait cannot miss it.
        std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
        self->m_mainExited.notify_all();
    }
    return more;
}

void CCmThreadManager::CleanupOnlyOne()
{
    CCmThreadManager* self = Raw();
    std::multimap<int, std::unique_ptr<CCmLoopThread>> spawned;
    {
        std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
        spawned.swap(self->m_spawned);
    }
    // Stop all first so that they wind down in parallel, then join each.
    for (auto& [type, thread] : spawned) thread->SetStop();
    for (auto& [type, thread] : spawned) thread->Join();
    std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
    for (auto& [type, thread] : spawned) self->m_retired.push_back(std::move(thread));
    if (self->m_main) self->m_main->SetStop();
}

void CCmThreadManager::TPCleanThreadList()
{
    CCmThreadManager* self = Raw();
    std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
    // The stopped threads are joined; their objects go when the next engine life starts or at exit,
    // never here: a caller may still hold a pointer it read before the clean-up.
    for (auto& thread : self->m_retired) thread->Finish();
}

void CCmThreadManager::EnsureThreadManagerExited()
{
    CCmThreadManager* self = Raw();
    CCmLoopThread* main = nullptr;
    {
        std::unique_lock<std::recursive_mutex> lock(self->m_mutex);
        if (!self->m_main) return;
        if (self->m_main->IsCurrentThread()) return;  // uninit ran inline on the main thread
        if (self->m_mainIsApplications) {
            self->m_mainExited.wait(lock, [&] { return !self->m_main || self->m_main->IsFinished(); });
            return;
        }
        main = self->m_main.get();
    }
    // The main thread still needs the manager (CleanupOnlyOne) while it winds down: wait without
    // the lock, and leave the record in place until it has gone.
    main->Join();
    std::lock_guard<std::recursive_mutex> lock(self->m_mutex);
    // Retire rather than delete: a racing GetThread(0) caller might still hold the pointer.
    if (self->m_main.get() == main) self->m_retired.push_back(std::move(self->m_main));
}

CmResult CmInvokeInThread(ACmThread* thread, bool async, std::function<CmResult()> call, int priority)
{
    if (!thread) {
        CM_ASSERT_REPORT("pThread != NULL");
        return CM_ERROR_NULL_POINTER;
    }
    ICmEventQueue* queue = thread->GetEventQueue();
    if (!queue) {
        CM_ASSERT_REPORT("pEventQueue != NULL");
        return CM_ERROR_NULL_POINTER;
    }
    auto* event = new CCmInvokeEvent(std::move(call));
    return async ? queue->PostEvent(event, priority) : queue->SendEvent(event);
}
