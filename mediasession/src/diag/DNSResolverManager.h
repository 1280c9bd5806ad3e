// Asynchronous host name resolution for connectors that live on different threads.
//
// Threads: resolve() and cancelResolve() may be called from any thread. Each lookup starts on the
// manager's network thread (the DNS thread for Instance()); the callback runs on the thread the
// caller named. m_mutex guards the key map and the pending set, which the caller's threads and the
// DNS manager's notices both reach.
//
// Sharing: the DNS managers below run one query for all who ask for the same name in the same
// family at the same time, and keep answers for their TTL, so a hundred connectors resolving one
// TURN server cost one query.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include "tp/CmDns.h"
#include "tp/CmEvent.h"
#include "tp/CmInetAddr.h"
#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"

class CDNSResolverManager;

// One caller's lookup of one name. Shared ownership: the manager holds it while the DNS manager
// works, the event that carries the answer to the caller's thread holds it across the hop.
class CDNSResolver final : public std::enable_shared_from_this<CDNSResolver>, public ICmObserver {
public:
    // The resolved address (port kept), or, when the lookup failed, the unresolved address as it was
    // asked (IsResolved() false).
    using Callback = std::function<void(const CCmInetAddr&)>;
    struct Owner;

    CDNSResolver(const CCmInetAddr& addr, int family, Callback callback, ACmThread* thread, ICmDnsManager* dns,
                 std::shared_ptr<Owner> owner);

    // Network thread: asks the DNS manager.
    void resolve();
    // The DNS manager's notice (on its thread).
    void OnObserve(const char* topic, void* data) override;
    void OnResolveComplete(CCmDnsRecord* record);
    void _ResolveCallback(const CCmInetAddr& addr);
    // Any thread: no callback after this (on the caller's thread; see cancelResolve).
    void Cancel();
    bool IsCancelled() const { return m_cancelled.load(); }

private:
    CCmInetAddr m_addrUnResolved;
    const int m_family;
    Callback m_callback;
    ACmThread* const m_thread;
    ICmDnsManager* const m_dns;
    std::shared_ptr<Owner> m_owner;
    std::atomic<bool> m_cancelled{false};
};

class CDNSResolverManager final : public CCmTimerWrapperIDSink {
public:
    // Over CCmDnsManager::Instance(), CCmDns6Manager::Instance() and the DNS thread.
    static CDNSResolverManager* Instance();
    // The form that takes its collaborators; queue is the network thread's (a loop thread's).
    CDNSResolverManager(ICmDnsManager* dns4, ICmDns6Manager* dns6, ICmEventQueue* queue);
    ~CDNSResolverManager() override;
    CDNSResolverManager(const CDNSResolverManager&) = delete;
    CDNSResolverManager& operator=(const CDNSResolverManager&) = delete;

    // Resolves addr (a name set with CCmInetAddr::SetUnresolved; an address already resolved is
    // handed back as it is) in family (AF_INET: A, AF_INET6: AAAA) and calls callback once on
    // thread. A null thread means the calling thread when it is one of ours, else the DNS thread.
    // key groups lookups for cancelResolve (a connector passes itself). CM_OK when the lookup was
    // queued; CM_ERROR_INVALID_ARG for another family or a null callback; the queue's error.
    CmResult resolve(const CCmInetAddr& addr, void* key, CDNSResolver::Callback callback, ACmThread* thread,
                     int family);
    // Drops every lookup of key: no callback fires afterwards when called on the callbacks' thread.
    void cancelResolve(void* key);

    // Forgets finished and cancelled lookups; runs every kSweepPeriodMs on the network thread.
    void OnTimer(CCmTimerWrapperID* id) override;
    static constexpr int64_t kSweepPeriodMs = 30000;

    // Tests: keys with lookups not yet forgotten, and lookups waiting on the DNS managers.
    size_t GetKeyCount() const;
    size_t GetPendingCount() const;

private:
    friend class CDNSResolver;
    void OnResolverDone(const std::shared_ptr<CDNSResolver>& resolver);
    void Start(const std::shared_ptr<CDNSResolver>& resolver);

    ICmDnsManager* const m_dns4;
    ICmDns6Manager* const m_dns6;
    ICmEventQueue* const m_queue;
    std::shared_ptr<CDNSResolver::Owner> m_owner;
    mutable std::mutex m_mutex;
    std::map<void*, std::shared_ptr<std::list<std::weak_ptr<CDNSResolver>>>> m_resolvers;  // guarded by m_mutex
    // Held until the DNS manager answers; a cancelled one until the next sweep, so that a notice
    // racing with the cancellation never finds it gone.
    std::set<std::shared_ptr<CDNSResolver>> m_pending;  // guarded by m_mutex
    CCmTimerWrapperID m_timer;                          // network thread
};
