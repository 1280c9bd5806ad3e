// Runs on the caller's threads (resolve, cancelResolve), the manager's network thread (Start, the
// sweep) and the DNS manager's thread (notices); see the header for the lock.
#include "diag/DNSResolverManager.h"

#include "tp/CmThreadManager.h"
#include "tp/CmThreadSingleton.h"
#include "util/CmTrace.h"

#define DNS_MODULE "DNS"

// The manager as the resolvers see it: cleared when the manager goes, so a late notice finds no one.
struct CDNSResolver::Owner {
    std::mutex mutex;
    CDNSResolverManager* manager;  // guarded by mutex
};

CDNSResolver::CDNSResolver(const CCmInetAddr& addr, int family, Callback callback, ACmThread* thread,
                           ICmDnsManager* dns, std::shared_ptr<Owner> owner)
    : m_addrUnResolved(addr), m_family(family), m_callback(std::move(callback)), m_thread(thread), m_dns(dns),
      m_owner(std::move(owner))
{
}

void CDNSResolver::resolve()
{
    if (m_cancelled.load()) return;
    if (m_addrUnResolved.IsResolved()) {
        _ResolveCallback(m_addrUnResolved);
        return;
    }
    if (m_addrUnResolved.GetType() != m_family) CM_ASSERT_REPORT("m_addrUnResolved.GetType() == m_family");
    CCmDnsRecord* record = nullptr;
    const CmResult rv = m_dns->AsyncResolve(record, m_addrUnResolved.GetHostName(), this, nullptr);
    if (rv == CM_ERROR_WOULD_BLOCK) {
        record->ReleaseReference();
        return;
    }
    OnResolveComplete(rv == CM_OK ? record : nullptr);
    if (record) record->ReleaseReference();
}

void CDNSResolver::OnObserve(const char*, void* data)
{
    OnResolveComplete(static_cast<CCmDnsRecord*>(data));
}

void CDNSResolver::OnResolveComplete(CCmDnsRecord* record)
{
    auto self = shared_from_this();
    CCmInetAddr answer;
    CCmInetAddr result = m_addrUnResolved;
    if (record && record->GetState() == CCmDnsRecord::RSV_SUCCESS && record->GetFirstAddress(answer)) {
        if (answer.IsAny()) {
            CM_TRACE_MODULE(CM_TRACE_LEVEL_WARNING, DNS_MODULE,
                            "CCmAcceptorUdpConnector::AsycConnect, wrong ip addr from DNS, host="
                                << m_addrUnResolved.GetHostName() << ", addr=" << answer.GetIpDisplayName());
        } else {
            result.SetResolvedAddress(answer);
        }
    }
    {
        std::lock_guard<std::mutex> lock(m_owner->mutex);
        if (m_owner->manager) m_owner->manager->OnResolverDone(self);
    }
    _ResolveCallback(result);
}

void CDNSResolver::_ResolveCallback(const CCmInetAddr& addr)
{
    if (m_cancelled.load()) return;
    if (!m_callback) {
        CM_TRACE_MODULE(CM_TRACE_LEVEL_WARNING, DNS_MODULE, "_ResolveCallback no call back");
        return;
    }
    if (m_thread && m_thread->IsCurrentThread()) {
        CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, DNS_MODULE, "_ResolveCallback in same thread");
        m_callback(addr);
        return;
    }
    if (m_thread && m_thread->GetEventQueue()) {
        CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, DNS_MODULE, "_ResolveCallback callback in previous thread");
        auto self = shared_from_this();
        CmInvokeInThread(m_thread, true, [self, addr] {
            // Checked again on the caller's thread: a cancellation made there before this event ran wins.
            if (!self->m_cancelled.load()) self->m_callback(addr);
            return CM_OK;
        });
        return;
    }
    // Better late on the DNS thread than never: a caller on a thread we do not know still hears back.
    CM_TRACE_MODULE(CM_TRACE_LEVEL_WARNING, DNS_MODULE, "_ResolveCallback has no thread listener");
    m_callback(addr);
}

void CDNSResolver::Cancel()
{
    m_cancelled.store(true);
    m_dns->CancelResolve(this);
}

// ---- manager --------------------------------------------------------------------------------

namespace {

ICmEventQueue* DnsThreadQueue()
{
    // Held for the life of the process, like the manager itself.
    ACmThread* thread = ACmThreadSingletonFactory::GetSingletonThread("t-dns");
    return thread ? thread->GetEventQueue() : nullptr;
}

}  // namespace

CDNSResolverManager* CDNSResolverManager::Instance()
{
    // Never destroyed: notices may still arrive on the DNS thread while the process exits.
    static CDNSResolverManager* manager =
        new CDNSResolverManager(CCmDnsManager::Instance(), CCmDns6Manager::Instance(), DnsThreadQueue());
    return manager;
}

CDNSResolverManager::CDNSResolverManager(ICmDnsManager* dns4, ICmDns6Manager* dns6, ICmEventQueue* queue)
    : m_dns4(dns4), m_dns6(dns6), m_queue(queue), m_owner(std::make_shared<CDNSResolver::Owner>())
{
    m_owner->manager = this;
}

CDNSResolverManager::~CDNSResolverManager()
{
    CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, DNS_MODULE, "CDNSResolverManager::~CDNSResolverManager!");
    {
        std::lock_guard<std::mutex> lock(m_owner->mutex);
        m_owner->manager = nullptr;
    }
    std::set<std::shared_ptr<CDNSResolver>> pending;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        pending.swap(m_pending);
        m_resolvers.clear();
    }
    for (const auto& resolver : pending) resolver->Cancel();
    m_timer.Cancel();
}

CmResult CDNSResolverManager::resolve(const CCmInetAddr& addr, void* key, CDNSResolver::Callback callback,
                                      ACmThread* thread, int family)
{
    CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, DNS_MODULE,
                    "CDNSResolverManager::resolve! host=" << addr.GetHostName() << ", family=" << family
                                                          << ", key=" << key);
    if (!callback || (family != AF_INET && family != AF_INET6)) return CM_ERROR_INVALID_ARG;
    ICmDnsManager* dns = family == AF_INET6 ? static_cast<ICmDnsManager*>(m_dns6) : m_dns4;
    if (!dns || !m_queue) return CM_ERROR_NULL_POINTER;
    if (!thread) thread = ACmThread::GetCurrentThread();
    auto resolver = std::make_shared<CDNSResolver>(addr, family, std::move(callback), thread, dns, m_owner);
    {
        // Registered before the hop, so that a cancelResolve right after this call finds it.
        std::lock_guard<std::mutex> lock(m_mutex);
        auto& list = m_resolvers[key];
        if (!list) list = std::make_shared<std::list<std::weak_ptr<CDNSResolver>>>();
        list->push_back(resolver);
    }
    return m_queue->PostEvent(new CCmInvokeEvent([this, resolver] {
        CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, DNS_MODULE, "resolve DNS in pNetworkThread!");
        Start(resolver);
        return CM_OK;
    }));
}

void CDNSResolverManager::Start(const std::shared_ptr<CDNSResolver>& resolver)
{
    if (!m_timer.IsScheduled()) m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(kSweepPeriodMs));
    if (resolver->IsCancelled()) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pending.insert(resolver);
    }
    resolver->resolve();
}

void CDNSResolverManager::OnResolverDone(const std::shared_ptr<CDNSResolver>& resolver)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pending.erase(resolver);
}

void CDNSResolverManager::cancelResolve(void* key)
{
    std::shared_ptr<std::list<std::weak_ptr<CDNSResolver>>> list;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_resolvers.find(key);
        if (it == m_resolvers.end()) return;
        list = it->second;
        m_resolvers.erase(it);
    }
    CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, DNS_MODULE, "CDNSResolverManager::cancelResolve, key=" << key
                                                         << ", count=" << list->size());
    for (const auto& weak : *list)
        if (auto resolver = weak.lock()) resolver->Cancel();
}

void CDNSResolverManager::OnTimer(CCmTimerWrapperID*)
{
    std::vector<std::shared_ptr<CDNSResolver>> forgotten;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_resolvers.begin(); it != m_resolvers.end();) {
        it->second->remove_if([](const std::weak_ptr<CDNSResolver>& w) { return w.expired(); });
        it = it->second->empty() ? m_resolvers.erase(it) : std::next(it);
    }
    // A cancelled lookup's notice, if one was on its way, has long been delivered by now.
    std::erase_if(m_pending, [](const std::shared_ptr<CDNSResolver>& r) { return r->IsCancelled(); });
    if (m_resolvers.empty() && m_pending.empty()) m_timer.Cancel();
}

size_t CDNSResolverManager::GetKeyCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_resolvers.size();
}

size_t CDNSResolverManager::GetPendingCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending.size();
}
