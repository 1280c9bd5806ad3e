// Runs on the shared DNS thread ("t-dns") except where a function says otherwise; the core's
// m_mutex guards what callers on other threads touch (settings, kept answers, pending lookups,
// waiting observers).
#include "tp/CmDns.h"

#include <ares.h>
#include <netdb.h>
#include <sys/time.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "tp/CmReactor.h"
#include "tp/CmThreadManager.h"
#include "tp/CmThreadSingleton.h"
#include "tp/CmTransport.h"
#include "tp/CmTimerWrapperID.h"
#include "util/CmTick.h"
#include "util/CmTrace.h"

#define DNS_MODULE "DNS"
#define DNS_INFO_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, DNS_MODULE, str)
#define DNS_WARNING_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_WARNING, DNS_MODULE, str)
#define DNS_DETAIL_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, DNS_MODULE, str)

namespace {

constexpr const char* kDnsThreadName = "t-dns";
constexpr const char* kServersEnv = "MEDIASESSION_DNS_SERVERS";
// Answers are kept for their TTL, but never longer: a moved server is found again within minutes.
constexpr uint32_t kMaxKeepSeconds = 300;
// A name of more than 253 characters (254 with the root's dot) cannot be carried by DNS
// (RFC 1035 2.3.4).
constexpr size_t kMaxHostName = 254;

bool IsHostName(const std::string& name)
{
    if (name.empty() || name.size() > kMaxHostName) return false;
    // Anything the wire form cannot carry as a label character is refused here, before c-ares.
    for (unsigned char c : name)
        if (c <= ' ' || c >= 0x7F) return false;
    return true;
}

CmResult MapAresStatus(int status)
{
    switch (status) {
    case ARES_SUCCESS: return CM_OK;
    case ARES_ENOTFOUND:
    case ARES_ENODATA:
    case ARES_ENONAME: return CM_ERROR_NOT_FOUND;
    case ARES_ETIMEOUT: return CM_ERROR_NETWORK_CONNECT_TIMEOUT;
    default: return CM_ERROR_FAILURE;
    }
}

void InitAresOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { ares_library_init(ARES_LIB_INIT_ALL); });
}

}  // namespace

// ---- record ---------------------------------------------------------------------------------

CCmDnsRecord::CCmDnsRecord(std::string hostName, int family) : m_hostName(std::move(hostName)), m_family(family) {}

CmResult CCmDnsRecord::GetError() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

std::string CCmDnsRecord::GetErrorText() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_errorText;
}

std::vector<CCmInetAddr> CCmDnsRecord::GetAddresses() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_addresses;
}

bool CCmDnsRecord::GetFirstAddress(CCmInetAddr& out) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_addresses.empty()) return false;
    out = m_addresses.front();
    return true;
}

uint32_t CCmDnsRecord::GetTtlSeconds() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_ttl;
}

void CCmDnsRecord::Complete(CmResult error, std::string errorText, std::vector<CCmInetAddr> addresses, uint32_t ttl)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const State state = m_state.load();
        if (state == RSV_SUCCESS || state == RSV_FAILED) return;
        m_error = error;
        m_errorText = std::move(errorText);
        m_addresses = std::move(addresses);
        m_ttl = ttl;
    }
    m_state.store(error == CM_OK ? RSV_SUCCESS : RSV_FAILED);
}

// ---- core -----------------------------------------------------------------------------------

class CCmDnsResolverCore final : public CCmTimerWrapperIDSink, public ACmEventHandler {
public:
    CCmDnsResolverCore(int family, const CmDnsSettings& settings);
    ~CCmDnsResolverCore() override;

    CmResult AsyncResolve(CCmDnsRecord*& record, const std::string& hostName, ICmObserver* observer,
                          ACmThread* observerThread, bool bypassCache);
    CmResult CancelResolve(ICmObserver* observer);
    CmResult SyncResolve(CCmDnsRecord*& record, const std::string& hostName, bool bypassCache);
    CmResult SetSettings(const CmDnsSettings& settings);
    CmDnsSettings GetSettings() const;
    uint64_t GetQueryCount() const { return m_queries.load(); }

    void OnTimer(CCmTimerWrapperID*) override;
    void OnInput(int fd) override;
    void OnOutput(int fd) override;
    void OnClose(int fd) override;

private:
    struct Waiter {
        ICmObserver* observer;
        ACmThread* thread;
        std::atomic<bool> cancelled{false};
    };
    struct Pending {
        CCmDnsRecord* record;  // one reference
        std::vector<std::shared_ptr<Waiter>> waiters;
    };
    struct Kept {
        CCmDnsRecord* record;  // one reference
        uint64_t expiresMs;
    };
    struct LookupArg {
        CCmDnsResolverCore* core;
        std::string name;
        uint64_t generation;
    };

    // DNS thread.
    void StartLookup(const std::string& name, uint64_t generation);
    bool EnsureChannel();
    void DestroyChannel();
    void RefreshTimer();
    void Finish(const std::string& name, uint64_t generation, int status, const ares_addrinfo* result);
    static void OnAddrInfo(void* arg, int status, int timeouts, ares_addrinfo* result);
    static void OnSocketState(void* data, ares_socket_t fd, int readable, int writable);
    void Deliver(const std::shared_ptr<Waiter>& waiter, CCmDnsRecord* record);
    void FailAllPending(const char* why);

    const int m_family;
    ACmThread* m_thread = nullptr;  // the shared DNS thread, one use counted
    mutable std::mutex m_mutex;
    CmDnsSettings m_settings;                                      // guarded by m_mutex
    uint64_t m_generation = 0;                                     // guarded by m_mutex
    std::map<std::string, Pending> m_pending;                      // guarded by m_mutex
    std::map<std::string, Kept> m_kept;                            // guarded by m_mutex
    std::multimap<ICmObserver*, std::weak_ptr<Waiter>> m_byObserver;  // guarded by m_mutex
    std::atomic<uint64_t> m_queries{0};
    ares_channel m_channel = nullptr;  // DNS thread
    uint64_t m_channelGeneration = 0;  // DNS thread: the settings the channel was made with
    CCmTimerWrapperID m_timer;         // DNS thread
};

CCmDnsResolverCore::CCmDnsResolverCore(int family, const CmDnsSettings& settings) : m_family(family), m_settings(settings)
{
    InitAresOnce();
    m_thread = ACmThreadSingletonFactory::GetSingletonThread(kDnsThreadName);
}

CCmDnsResolverCore::~CCmDnsResolverCore()
{
    if (m_thread) {
        CmInvokeInThread(m_thread, false, [this] {
            m_timer.Cancel();
            DestroyChannel();
            return CM_OK;
        });
    }
    FailAllPending("resolver destroyed");
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& [name, kept] : m_kept) kept.record->ReleaseReference();
    m_kept.clear();
    if (m_thread) ACmThreadSingletonFactory::ResleseSingletonThread(m_thread);
}

CmResult CCmDnsResolverCore::AsyncResolve(CCmDnsRecord*& record, const std::string& hostName, ICmObserver* observer,
                                          ACmThread* observerThread, bool bypassCache)
{
    record = nullptr;
    if (!IsHostName(hostName)) return CM_ERROR_INVALID_ARG;
    // Numeric text needs no server: of this family it is its own answer, of the other none.
    CCmInetAddr numeric;
    if (numeric.Set(hostName.c_str(), 0, false) == CM_OK) {
        record = new CCmDnsRecord(hostName, m_family);
        record->AddReference();
        if (numeric.GetType() == m_family) record->Complete(CM_OK, {}, {numeric}, 0);
        else record->Complete(CM_ERROR_NOT_FOUND, "numeric address of the other family", {}, 0);
        return CM_OK;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const uint64_t now = get_tick_count();
    auto kept = m_kept.find(hostName);
    if (kept != m_kept.end()) {
        if (!bypassCache && kept->second.expiresMs > now) {
            record = kept->second.record;
            record->AddReference();
            DNS_DETAIL_TRACE("CCmDnsManager::AsyncResolve, kept answer, host=" << hostName << ", family=" << m_family);
            return CM_OK;
        }
        kept->second.record->ReleaseReference();
        m_kept.erase(kept);
    }
    auto waiter = std::make_shared<Waiter>();
    waiter->observer = observer;
    waiter->thread = observerThread;
    auto pending = m_pending.find(hostName);
    if (pending == m_pending.end()) {
        auto* fresh = new CCmDnsRecord(hostName, m_family);
        fresh->AddReference();
        fresh->SetProcessing();
        pending = m_pending.emplace(hostName, Pending{fresh, {}}).first;
        const uint64_t generation = m_generation;
        DNS_INFO_TRACE("CCmDnsManager::AsyncResolve, new lookup, host=" << hostName << ", family=" << m_family);
        CmInvokeInThread(m_thread, true, [this, hostName, generation] {
            StartLookup(hostName, generation);
            return CM_OK;
        });
    } else {
        DNS_DETAIL_TRACE("CCmDnsManager::AsyncResolve, joins the lookup under way, host=" << hostName);
    }
    if (observer) {
        pending->second.waiters.push_back(waiter);
        std::erase_if(m_byObserver, [](const auto& entry) { return entry.second.expired(); });
        m_byObserver.emplace(observer, waiter);
    }
    record = pending->second.record;
    record->AddReference();
    return CM_ERROR_WOULD_BLOCK;
}

CmResult CCmDnsResolverCore::CancelResolve(ICmObserver* observer)
{
    if (!observer) return CM_ERROR_NULL_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto range = m_byObserver.equal_range(observer);
    for (auto it = range.first; it != range.second; ++it)
        if (auto waiter = it->second.lock()) waiter->cancelled.store(true);
    m_byObserver.erase(range.first, range.second);
    // The lookups themselves go on: their answers are kept for the next one who asks.
    for (auto& [name, pending] : m_pending)
        std::erase_if(pending.waiters, [observer](const std::shared_ptr<Waiter>& w) { return w->observer == observer; });
    return CM_OK;
}

CmResult CCmDnsResolverCore::SyncResolve(CCmDnsRecord*& record, const std::string& hostName, bool bypassCache)
{
    record = nullptr;
    if (m_thread && m_thread->IsCurrentThread()) return CM_ERROR_FAILURE;  // it would wait for itself
    struct Latch final : ICmObserver {
        void OnObserve(const char*, void*) override
        {
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
            cv.notify_all();
        }
        std::mutex mutex;
        std::condition_variable cv;
        bool done = false;
    } latch;
    CmResult rv = AsyncResolve(record, hostName, &latch, nullptr, bypassCache);
    if (rv != CM_ERROR_WOULD_BLOCK) return rv == CM_OK ? record->GetError() : rv;
    const CmDnsSettings settings = GetSettings();
    // c-ares doubles the time-out on each round; beyond that bound something is wrong with the thread.
    const int64_t boundMs = static_cast<int64_t>(settings.timeoutMs) * ((1 << std::clamp(settings.tries, 1, 8)) + 1) + 1000;
    std::unique_lock<std::mutex> lock(latch.mutex);
    const bool done = latch.cv.wait_for(lock, std::chrono::milliseconds(boundMs), [&] { return latch.done; });
    lock.unlock();
    CancelResolve(&latch);
    if (!done) return CM_ERROR_NETWORK_CONNECT_TIMEOUT;
    return record->GetError();
}

CmResult CCmDnsResolverCore::SetSettings(const CmDnsSettings& settings)
{
    if (settings.timeoutMs <= 0 || settings.tries <= 0) return CM_ERROR_INVALID_ARG;
    if (!settings.servers.empty()) {
        // Let c-ares itself judge the list, on a scratch channel, before anything changes.
        ares_channel probe = nullptr;
        ares_options options{};
        if (ares_init_options(&probe, &options, 0) != ARES_SUCCESS) return CM_ERROR_FAILURE;
        const int status = ares_set_servers_ports_csv(probe, settings.servers.c_str());
        ares_destroy(probe);
        if (status != ARES_SUCCESS) return CM_ERROR_INVALID_ARG;
    }
    std::vector<CCmDnsRecord*> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_settings = settings;
        ++m_generation;
        for (auto& [name, kept] : m_kept) dropped.push_back(kept.record);
        m_kept.clear();
    }
    for (CCmDnsRecord* r : dropped) r->ReleaseReference();
    DNS_INFO_TRACE("CCmDnsManager::SetSettings, servers=" << settings.servers << ", timeoutMs=" << settings.timeoutMs
                   << ", tries=" << settings.tries << ", family=" << m_family);
    return CmInvokeInThread(m_thread, false, [this] {
        DestroyChannel();
        return CM_OK;
    });
}

CmDnsSettings CCmDnsResolverCore::GetSettings() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_settings;
}

bool CCmDnsResolverCore::EnsureChannel()
{
    uint64_t generation;
    CmDnsSettings settings;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        generation = m_generation;
        settings = m_settings;
    }
    if (m_channel && m_channelGeneration == generation) return true;
    DestroyChannel();
    if (settings.servers.empty())
        if (const char* env = std::getenv(kServersEnv)) settings.servers = env;
    ares_options options{};
    int mask = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SOCK_STATE_CB;
    options.timeout = settings.timeoutMs;
    options.tries = settings.tries;
    options.sock_state_cb = &CCmDnsResolverCore::OnSocketState;
    options.sock_state_cb_data = this;
    char bindOnly[] = "b";
    if (!settings.servers.empty()) {
        // The given server is the whole truth: no hosts file, no search domains appended.
        options.lookups = bindOnly;
        options.domains = nullptr;
        options.ndomains = 0;
        mask |= ARES_OPT_LOOKUPS | ARES_OPT_DOMAINS;
    }
    if (ares_init_options(&m_channel, &options, mask) != ARES_SUCCESS) {
        m_channel = nullptr;
        return false;
    }
    if (!settings.servers.empty() && ares_set_servers_ports_csv(m_channel, settings.servers.c_str()) != ARES_SUCCESS) {
        DNS_WARNING_TRACE("CCmDnsManager, unusable server list: " << settings.servers);
        DestroyChannel();
        return false;
    }
    m_channelGeneration = generation;
    return true;
}

void CCmDnsResolverCore::DestroyChannel()
{
    if (!m_channel) return;
    ares_channel channel = m_channel;
    m_channel = nullptr;
    // Lookups of the channel end here with ARES_EDESTRUCTION (their callbacks run inside).
    ares_destroy(channel);
    m_timer.Cancel();
}

void CCmDnsResolverCore::StartLookup(const std::string& name, uint64_t generation)
{
    if (!EnsureChannel()) {
        Finish(name, generation, ARES_ENOTINITIALIZED, nullptr);
        return;
    }
    ares_addrinfo_hints hints{};
    hints.ai_family = m_family;
    hints.ai_socktype = SOCK_DGRAM;
    // The server's order stands: sorting would connect() probe sockets to every answer.
    hints.ai_flags = ARES_AI_NOSORT;
    m_queries.fetch_add(1);
    ares_getaddrinfo(m_channel, name.c_str(), nullptr, &hints, &CCmDnsResolverCore::OnAddrInfo,
                     new LookupArg{this, name, generation});
    RefreshTimer();
}

void CCmDnsResolverCore::OnAddrInfo(void* arg, int status, int, ares_addrinfo* result)
{
    std::unique_ptr<LookupArg> lookup(static_cast<LookupArg*>(arg));
    lookup->core->Finish(lookup->name, lookup->generation, status, result);
    if (result) ares_freeaddrinfo(result);
}

void CCmDnsResolverCore::Finish(const std::string& name, uint64_t generation, int status, const ares_addrinfo* result)
{
    std::vector<CCmInetAddr> addresses;
    uint32_t ttl = kMaxKeepSeconds;
    if (status == ARES_SUCCESS && result) {
        for (const ares_addrinfo_node* n = result->nodes; n; n = n->ai_next) {
            if (n->ai_family != m_family || !n->ai_addr) continue;
            CCmInetAddr addr;
            if (addr.SetIpAddrBySock(n->ai_addr, n->ai_addrlen) != CM_OK) continue;
            addr.SetPort(0);
            if (std::find(addresses.begin(), addresses.end(), addr) == addresses.end()) addresses.push_back(addr);
            ttl = std::min(ttl, static_cast<uint32_t>(std::max(n->ai_ttl, 0)));
        }
    }
    CmResult error = MapAresStatus(status);
    std::string text = status == ARES_SUCCESS ? std::string() : ares_strerror(status);
    if (error == CM_OK && addresses.empty()) {
        error = CM_ERROR_NOT_FOUND;
        text = "no address of the family";
    }
    if (error == CM_OK)
        DNS_INFO_TRACE("CCmDnsManager, resolved host=" << name << ", family=" << m_family << ", first="
                       << addresses.front().GetIpDisplayName() << ", count=" << addresses.size() << ", ttl=" << ttl);
    else
        DNS_WARNING_TRACE("CCmDnsManager, lookup failed, host=" << name << ", family=" << m_family << ", reason=" << text);

    Pending done{nullptr, {}};
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_pending.find(name);
        if (it == m_pending.end()) return;
        done = std::move(it->second);
        m_pending.erase(it);
        // An answer to a lookup asked under older settings is given to its waiters but not kept.
        if (error == CM_OK && ttl > 0 && generation == m_generation) {
            done.record->AddReference();
            m_kept[name] = Kept{done.record, get_tick_count() + static_cast<uint64_t>(ttl) * 1000};
        }
    }
    done.record->Complete(error, std::move(text), std::move(addresses), error == CM_OK ? ttl : 0);
    for (const auto& waiter : done.waiters) Deliver(waiter, done.record);
    done.record->ReleaseReference();
}

void CCmDnsResolverCore::Deliver(const std::shared_ptr<Waiter>& waiter, CCmDnsRecord* record)
{
    // The notice holds its own reference, released whether it fires or a closing queue drops it.
    record->AddReference();
    std::shared_ptr<CCmDnsRecord> held(record, [](CCmDnsRecord* r) { r->ReleaseReference(); });
    // It touches nothing of the core, which may be gone by the time it fires on another thread; its
    // entry in m_byObserver expires with the waiter.
    auto notify = [waiter, held] {
        if (!waiter->cancelled.exchange(true)) waiter->observer->OnObserve(CM_DNS_OBSERVE_TOPIC, held.get());
        return CM_OK;
    };
    ACmThread* target = waiter->thread;
    if (target && !target->IsCurrentThread() && target->GetEventQueue()) {
        CmInvokeInThread(target, true, std::move(notify));
        return;
    }
    notify();
}

void CCmDnsResolverCore::FailAllPending(const char* why)
{
    std::map<std::string, Pending> pending;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        pending.swap(m_pending);
    }
    for (auto& [name, p] : pending) {
        p.record->Complete(CM_ERROR_FAILURE, why, {}, 0);
        for (const auto& waiter : p.waiters) Deliver(waiter, p.record);
        p.record->ReleaseReference();
    }
}

void CCmDnsResolverCore::RefreshTimer()
{
    if (!m_channel) {
        m_timer.Cancel();
        return;
    }
    timeval tv{};
    timeval* next = ares_timeout(m_channel, nullptr, &tv);
    if (!next) {
        m_timer.Cancel();
        return;
    }
    const int64_t ms = std::max<int64_t>(1, next->tv_sec * 1000 + (next->tv_usec + 999) / 1000);
    m_timer.Cancel();
    m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(ms), 1);
}

void CCmDnsResolverCore::OnTimer(CCmTimerWrapperID*)
{
    if (m_channel) ares_process_fd(m_channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    RefreshTimer();
}

void CCmDnsResolverCore::OnInput(int fd)
{
    if (m_channel) ares_process_fd(m_channel, fd, ARES_SOCKET_BAD);
    RefreshTimer();
}

void CCmDnsResolverCore::OnOutput(int fd)
{
    if (m_channel) ares_process_fd(m_channel, ARES_SOCKET_BAD, fd);
    RefreshTimer();
}

void CCmDnsResolverCore::OnClose(int fd) { OnInput(fd); }

void CCmDnsResolverCore::OnSocketState(void* data, ares_socket_t fd, int readable, int writable)
{
    auto* self = static_cast<CCmDnsResolverCore*>(data);
    CCmReactor* reactor = self->m_thread ? self->m_thread->GetReactor() : nullptr;
    if (!reactor) return;
    const uint32_t mask = (readable ? ACmEventHandler::READ_MASK : 0u) | (writable ? ACmEventHandler::WRITE_MASK : 0u);
    if (mask == 0) {
        reactor->RemoveHandler(fd);
        return;
    }
    if (reactor->ModifyHandler(fd, mask) != CM_OK) reactor->RegisterHandler(fd, self, mask);
}

// ---- managers -------------------------------------------------------------------------------

template <int Family, class Interface>
CCmDnsManagerT<Family, Interface>::CCmDnsManagerT(const CmDnsSettings& settings)
    : m_core(std::make_unique<CCmDnsResolverCore>(Family, settings))
{
}

template <int Family, class Interface>
CCmDnsManagerT<Family, Interface>::~CCmDnsManagerT() = default;

template <int Family, class Interface>
CmResult CCmDnsManagerT<Family, Interface>::AsyncResolve(CCmDnsRecord*& record, const std::string& hostName,
                                                         ICmObserver* observer, ACmThread* observerThread,
                                                         bool bypassCache)
{
    return m_core->AsyncResolve(record, hostName, observer, observerThread, bypassCache);
}

template <int Family, class Interface>
CmResult CCmDnsManagerT<Family, Interface>::CancelResolve(ICmObserver* observer)
{
    return m_core->CancelResolve(observer);
}

template <int Family, class Interface>
CmResult CCmDnsManagerT<Family, Interface>::SyncResolve(CCmDnsRecord*& record, const std::string& hostName,
                                                        bool bypassCache)
{
    return m_core->SyncResolve(record, hostName, bypassCache);
}

template <int Family, class Interface>
CmResult CCmDnsManagerT<Family, Interface>::SetSettings(const CmDnsSettings& settings)
{
    return m_core->SetSettings(settings);
}

template <int Family, class Interface>
CmDnsSettings CCmDnsManagerT<Family, Interface>::GetSettings() const
{
    return m_core->GetSettings();
}

template <int Family, class Interface>
uint64_t CCmDnsManagerT<Family, Interface>::GetQueryCount() const
{
    return m_core->GetQueryCount();
}

template class CCmDnsManagerT<AF_INET, ICmDnsManager>;
template class CCmDnsManagerT<AF_INET6, ICmDns6Manager>;

CCmDnsManager* CCmDnsManager::Instance()
{
    // Never destroyed: lookups may still complete on the DNS thread while the process exits.
    static CCmDnsManager* manager = new CCmDnsManager();
    return manager;
}

CCmDns6Manager* CCmDns6Manager::Instance()
{
    static CCmDns6Manager* manager = new CCmDns6Manager();
    return manager;
}

bool CmFindNat64Prefix(const std::vector<CCmInetAddr>& answers, CCmInetAddr& prefix, int& prefixLength)
{
    for (const CCmInetAddr& a : answers) {
        const int length = CCmInetAddr::ParsePrefixLength(a);
        if (length <= 0) continue;
        // Only the prefix's own bytes: the rest of the answer is the well-known address.
        sockaddr_in6 v6{};
        memcpy(&v6, a.GetPtr(), sizeof(v6));
        memset(v6.sin6_addr.s6_addr + length / 8, 0, 16 - static_cast<size_t>(length / 8));
        v6.sin6_port = 0;
        prefix = CCmInetAddr(reinterpret_cast<const sockaddr*>(&v6), sizeof(v6));
        prefixLength = length;
        return true;
    }
    return false;
}
