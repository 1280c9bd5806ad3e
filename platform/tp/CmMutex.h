// Mutexes with the lock interface the session layer expects, and a scoped guard.
#pragma once

#include <mutex>

#include "tp/CmDefines.h"

class CCmMutexThreadBase {
public:
    virtual ~CCmMutexThreadBase() = default;
    virtual CmResult Lock() = 0;
    virtual CmResult UnLock() = 0;
    virtual bool TryLock() = 0;
};

// The lock interface over a standard mutex; also BasicLockable, so std::lock_guard and
// std::condition_variable_any work with it.
template <class StdMutex>
class CCmMutexThreadT final : public CCmMutexThreadBase {
public:
    CmResult Lock() override { m_mutex.lock(); return CM_OK; }
    CmResult UnLock() override { m_mutex.unlock(); return CM_OK; }
    bool TryLock() override { return m_mutex.try_lock(); }
    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    StdMutex m_mutex;
};

using CCmMutexThread = CCmMutexThreadT<std::mutex>;
using CCmMutexThreadRecursive = CCmMutexThreadT<std::recursive_mutex>;

template <class MutexType>
class CCmMutexGuardT {
public:
    explicit CCmMutexGuardT(MutexType& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~CCmMutexGuardT() { m_mutex.UnLock(); }
    CCmMutexGuardT(const CCmMutexGuardT&) = delete;
    CCmMutexGuardT& operator=(const CCmMutexGuardT&) = delete;

private:
    MutexType& m_mutex;
};
