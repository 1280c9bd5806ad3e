#include "tp/CmThread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace {
thread_local ACmThread* t_current = nullptr;

int64_t KernelThreadId() { return static_cast<int64_t>(syscall(SYS_gettid)); }
}  // namespace

ACmThread::ACmThread() = default;

ACmThread::~ACmThread()
{
    // A thread object must outlive its OS thread; a forgotten join would terminate the process.
    if (m_thread.joinable()) {
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }
}

ACmThread* ACmThread::GetCurrentThread() { return t_current; }

bool ACmThread::IsCurrentThread() const { return m_stdId.load() == std::this_thread::get_id(); }

CmResult ACmThread::Create(const char* name, int type, TFlag, bool detached)
{
    if (m_running.load()) return CM_ERROR_ALREADY_INITIALIZED;
    if (m_thread.joinable()) {
        if (m_thread.get_id() == std::this_thread::get_id()) return CM_ERROR_ALREADY_INITIALIZED;
        m_thread.join();
    }
    m_name = name ? name : "";
    m_type = type;
    m_detached = detached;
    m_running.store(true);
    m_thread = std::thread([this] { ThreadMain(); });
    return CM_OK;
}

void ACmThread::ThreadMain()
{
    t_current = this;
    m_stdId.store(std::this_thread::get_id());
    m_threadId.store(KernelThreadId());
    // Linux limits thread names to 15 characters.
    std::string shortName = m_name.substr(0, 15);
    if (!shortName.empty()) pthread_setname_np(pthread_self(), shortName.c_str());
    OnThreadInit();
    OnThreadRun();
    t_current = nullptr;
    m_running.store(false);
}

void ACmThread::AttachToCallingThread(const char* name, int type)
{
    m_name = name ? name : "";
    m_type = type;
    t_current = this;
    m_stdId.store(std::this_thread::get_id());
    m_threadId.store(KernelThreadId());
}

CmResult ACmThread::Stop(CCmTimeValue*)
{
    SetStop();
    return Join();
}

CmResult ACmThread::Join()
{
    if (!m_thread.joinable()) return CM_OK;
    if (m_thread.get_id() == std::this_thread::get_id()) return CM_ERROR_FAILURE;
    m_thread.join();
    return CM_OK;
}

CCmLoopThread::CCmLoopThread() : m_queue([this] { m_reactor.Notify(); }) {}

CCmLoopThread::~CCmLoopThread()
{
    SetStop();
    Join();
    Finish();
}

void CCmLoopThread::OnThreadInit() { m_queue.SetOwner(std::this_thread::get_id()); }

void CCmLoopThread::SetStop()
{
    ACmThread::SetStop();
    m_reactor.Notify();
}

void CCmLoopThread::OnThreadRun()
{
    while (RunOnce(-1)) {
    }
}

void CCmLoopThread::Attach(const char* name, int type)
{
    AttachToCallingThread(name, type);
    m_queue.SetOwner(std::this_thread::get_id());
}

bool CCmLoopThread::RunOnce(int timeoutMs)
{
    if (m_finished.load()) return false;
    if (GetStopFlag()) {
        Finish();
        return false;
    }
    Beat();
    int untilTimer = m_timers.CheckExpire();
    int wait = timeoutMs;
    if (m_queue.GetPendingEventsCount() > 0) wait = 0;
    else if (untilTimer >= 0 && (wait < 0 || untilTimer < wait)) wait = untilTimer;
    m_reactor.RunOnce(wait);
    // Bounded per round so that timers and sockets are not starved by a flood of events; a stop
    // request takes effect between two events, and what is left is dropped unfired.
    for (int i = 0; i < 256 && !GetStopFlag(); ++i)
        if (m_queue.ProcessEvents(1) == 0) break;
    m_timers.CheckExpire();
    if (GetStopFlag()) {
        Finish();
        return false;
    }
    return true;
}

void CCmLoopThread::Finish()
{
    if (m_finished.exchange(true)) return;
    m_queue.Close();
    m_timers.Clear();
}
