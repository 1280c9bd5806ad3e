// Asynchronous host name lookups on c-ares. CCmDnsManager asks for A records and CCmDns6Manager for
// AAAA records, apart, each on a channel of its own; both run on one shared thread, "t-dns".
// Concurrent lookups of one name in one family share a single query; answers are kept for their
// TTL (at most five minutes); failures are not kept.
//
// Which server is asked: CmDnsSettings::servers when set (SetSettings), else the environment variable
// MEDIASESSION_DNS_SERVERS ("127.0.0.1:5353" or "[::1]:53,10.0.0.1", comma separated), else the
// system's resolver configuration. With servers given explicitly the hosts file is not read.
//
// Threads: every public operation may be called from any thread. The c-ares channel, its sockets
// and its timer live on the DNS thread; observers hear OnObserve on the thread they named.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tp/CmDefines.h"
#include "tp/CmInetAddr.h"
#include "tp/CmReferenceControl.h"
#include "tp/CmThread.h"
#include "tp/CmTransport.h"  // CM_ERROR_NETWORK_CONNECT_TIMEOUT

// Topic of OnObserve for a finished lookup; its data is the CCmDnsRecord*.
constexpr const char* CM_DNS_OBSERVE_TOPIC = "DnsManager";
// The name whose AAAA answer on a NAT64 network carries the network's prefix (RFC 7050).
constexpr const char* CM_NAT64_DISCOVERY_NAME = "ipv4only.arpa.";

class ICmObserver {
public:
    virtual ~ICmObserver() = default;
    // topic says what happened (CM_DNS_OBSERVE_TOPIC); data is what it happened to. The observer
    // must not keep data beyond the call unless it takes its own reference.
    virtual void OnObserve(const char* topic, void* data) = 0;
};

// The outcome of one lookup of one name in one family. Filled once on the DNS thread, then only
// read; readers on any thread see either the old state or the whole answer (m_mutex).
class CCmDnsRecord final : public CCmReferenceControlT<CCmMutexThread> {
public:
    enum State { RSV_IDLE = 0, RSV_PROCESSING = 1, RSV_SUCCESS = 2, RSV_FAILED = 3 };

    CCmDnsRecord(std::string hostName, int family);

    const std::string& GetHostName() const { return m_hostName; }
    int GetFamily() const { return m_family; }
    State GetState() const { return m_state.load(); }
    // CM_OK; CM_ERROR_NOT_FOUND: no such name, or no address of the family; CM_ERROR_NETWORK_CONNECT_TIMEOUT:
    // no server answered in time; CM_ERROR_FAILURE: a malformed, truncated or refused answer.
    CmResult GetError() const;
    // The resolver's words for a failure ("Domain name not found"); empty on success.
    std::string GetErrorText() const;
    // The addresses of the answer in the server's order, port 0.
    std::vector<CCmInetAddr> GetAddresses() const;
    bool GetFirstAddress(CCmInetAddr& out) const;
    uint32_t GetTtlSeconds() const;

    // DNS thread (and tests): fills the record once; later calls are ignored.
    void Complete(CmResult error, std::string errorText, std::vector<CCmInetAddr> addresses, uint32_t ttl);
    void SetProcessing() { m_state.store(RSV_PROCESSING); }

private:
    ~CCmDnsRecord() override = default;

    const std::string m_hostName;
    const int m_family;
    std::atomic<State> m_state{RSV_IDLE};
    mutable std::mutex m_mutex;
    CmResult m_error = CM_OK;              // guarded by m_mutex
    std::string m_errorText;               // guarded by m_mutex
    std::vector<CCmInetAddr> m_addresses;  // guarded by m_mutex
    uint32_t m_ttl = 0;                    // guarded by m_mutex
};

class ICmDnsManager {
public:
    virtual ~ICmDnsManager() = default;
    virtual int GetFamily() const = 0;
    // Looks the name up. CM_OK: the answer is known already (*record is RSV_SUCCESS or RSV_FAILED:
    // numeric text, or a kept answer). CM_ERROR_WOULD_BLOCK: under way; observer->OnObserve(
    // CM_DNS_OBSERVE_TOPIC, record) follows once, on observerThread (on the DNS thread when it is
    // null or has no queue). CM_ERROR_INVALID_ARG: not a host name (*record null). On CM_OK and
    // CM_ERROR_WOULD_BLOCK *record carries one reference for the caller.
    virtual CmResult AsyncResolve(CCmDnsRecord*& record, const std::string& hostName, ICmObserver* observer,
                                  ACmThread* observerThread = nullptr, bool bypassCache = false) = 0;
    // No OnObserve reaches this observer after the call, for any lookup it waits on, when called on
    // the observer's own thread (from another thread a notice already running may still finish).
    virtual CmResult CancelResolve(ICmObserver* observer) = 0;
    // Blocks until the answer or the time-out of the settings. Not on the DNS thread itself.
    virtual CmResult SyncResolve(CCmDnsRecord*& record, const std::string& hostName, bool bypassCache = false) = 0;
};

// The AAAA manager's interface: the same operations, a type of its own so that the two cannot be
// swapped by mistake where both are passed.
class ICmDns6Manager : public ICmDnsManager {};

struct CmDnsSettings {
    // "ADDR[:PORT],..."; empty: MEDIASESSION_DNS_SERVERS, else the system's configuration.
    std::string servers;
    // Per try (c-ares doubles it on each round), and how many rounds before a lookup times out.
    int timeoutMs = 1500;
    int tries = 2;
};

class CCmDnsResolverCore;

template <int Family, class Interface>
class CCmDnsManagerT : public Interface {
public:
    // A manager with a channel of its own (the singletons are made by Instance()).
    explicit CCmDnsManagerT(const CmDnsSettings& settings = CmDnsSettings());
    ~CCmDnsManagerT() override;
    CCmDnsManagerT(const CCmDnsManagerT&) = delete;
    CCmDnsManagerT& operator=(const CCmDnsManagerT&) = delete;

    int GetFamily() const override { return Family; }
    CmResult AsyncResolve(CCmDnsRecord*& record, const std::string& hostName, ICmObserver* observer,
                          ACmThread* observerThread = nullptr, bool bypassCache = false) override;
    CmResult CancelResolve(ICmObserver* observer) override;
    CmResult SyncResolve(CCmDnsRecord*& record, const std::string& hostName, bool bypassCache = false) override;

    // New servers or time-outs for the next lookups; lookups under way end as failed, kept answers
    // are dropped. CM_ERROR_INVALID_ARG for a server list the resolver cannot read.
    CmResult SetSettings(const CmDnsSettings& settings);
    CmDnsSettings GetSettings() const;
    // Lookups handed to the resolver so far (shared and kept answers do not count).
    uint64_t GetQueryCount() const;

private:
    std::unique_ptr<CCmDnsResolverCore> m_core;
};

class CCmDnsManager final : public CCmDnsManagerT<AF_INET, ICmDnsManager> {
public:
    using CCmDnsManagerT::CCmDnsManagerT;
    static CCmDnsManager* Instance();
};

class CCmDns6Manager final : public CCmDnsManagerT<AF_INET6, ICmDns6Manager> {
public:
    using CCmDnsManagerT::CCmDnsManagerT;
    static CCmDns6Manager* Instance();
};

// The NAT64 prefix carried by an AAAA answer for CM_NAT64_DISCOVERY_NAME: the first address that
// embeds 192.0.0.170 or 192.0.0.171 gives the prefix (its bytes past the length zeroed, port 0) and
// its length, ready for CCmInetAddr::XLAT46. False when none does.
bool CmFindNat64Prefix(const std::vector<CCmInetAddr>& answers, CCmInetAddr& prefix, int& prefixLength);
