// The DNS resolver manager over fake DNS managers: which thread hears the answer, what a failed or
// wrong answer looks like, and that a cancelled lookup never calls back, even when its answer is
// already queued on the caller's thread.
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "diag/DNSResolverManager.h"
#include "diag_test_util.h"
#include "tp/CmThreadManager.h"

namespace {

constexpr auto kBound = std::chrono::seconds(10);

// Answers when the test says so (or at once for names given beforehand), on the test's thread.
class FakeDns final : public ICmDns6Manager {
public:
    explicit FakeDns(int family) : m_family(family) {}
    int GetFamily() const override { return m_family; }
    CmResult AsyncResolve(CCmDnsRecord*& record, const std::string& host, ICmObserver* observer, ACmThread*,
                          bool) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++asks;
        record = new CCmDnsRecord(host, m_family);
        record->AddReference();
        auto known = immediate.find(host);
        if (known != immediate.end()) {
            record->Complete(CM_OK, {}, {CCmInetAddr(known->second.c_str(), 0)}, 60);
            return CM_OK;
        }
        m_waiting[host].push_back(observer);
        return CM_ERROR_WOULD_BLOCK;
    }
    CmResult CancelResolve(ICmObserver* observer) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++cancels;
        for (auto& [host, observers] : m_waiting) std::erase(observers, observer);
        return CM_OK;
    }
    CmResult SyncResolve(CCmDnsRecord*&, const std::string&, bool) override { return CM_ERROR_FAILURE; }

    size_t Waiting(const std::string& host)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_waiting[host].size();
    }
    // address null: the name does not exist.
    void Answer(const std::string& host, const char* address)
    {
        std::vector<ICmObserver*> observers;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            observers.swap(m_waiting[host]);
        }
        auto* record = new CCmDnsRecord(host, m_family);
        record->AddReference();
        if (address) record->Complete(CM_OK, {}, {CCmInetAddr(address, 0)}, 60);
        else record->Complete(CM_ERROR_NOT_FOUND, "Domain name not found", {}, 0);
        for (ICmObserver* o : observers) o->OnObserve(CM_DNS_OBSERVE_TOPIC, record);
        record->ReleaseReference();
    }

    std::map<std::string, std::string> immediate;
    int asks = 0;
    int cancels = 0;

private:
    const int m_family;
    std::mutex m_mutex;
    std::map<std::string, std::vector<ICmObserver*>> m_waiting;
};

struct Heard {
    CCmInetAddr addr;
    bool onCaller = false;
};

class DnsResolverManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(CM_OK, network.Create("t-net-test", TT_USER_DEFINE_BASE));
        ASSERT_EQ(CM_OK, caller.Create("t-caller-test", TT_USER_DEFINE_BASE));
        manager = std::make_unique<CDNSResolverManager>(&dns4, &dns6, network.GetEventQueue());
    }
    void TearDown() override
    {
        manager.reset();
        caller.Stop();
        network.Stop();
    }
    // resolve() called on the caller thread, for the caller thread; the answer lands in the future.
    CmResult ResolveFromCaller(const CCmInetAddr& addr, int family, std::promise<Heard>& heard, void* key = nullptr)
    {
        return CmInvokeInThread(&caller, false, [&, addr, family, key] {
            return manager->resolve(
                addr, key, [&](const CCmInetAddr& a) { heard.set_value({a, caller.IsCurrentThread()}); }, nullptr,
                family);
        });
    }
    static CCmInetAddr Name(const char* host, uint16_t port, int family)
    {
        CCmInetAddr a;
        a.SetUnresolved(host, port, family);
        return a;
    }

    FakeDns dns4{AF_INET};
    FakeDns dns6{AF_INET6};
    CCmLoopThread network;
    CCmLoopThread caller;
    std::unique_ptr<CDNSResolverManager> manager;
};

struct OutcomeCase {
    const char* name;
    const char* host;
    int family;
    const char* answer;  // null: no such name
    bool resolved;
    const char* ip;      // what the callback sees
};

TEST_F(DnsResolverManagerTest, AnswersReachTheCallerThreadWithThePortKept)
{
    const OutcomeCase cases[] = {
        {"A answer", "turn.example", AF_INET, "192.0.2.7", true, "192.0.2.7"},
        {"AAAA answer", "turn6.example", AF_INET6, "2001:db8::7", true, "2001:db8::7"},
        {"no such name", "ghost.example", AF_INET, nullptr, false, "0.0.0.0"},
        {"any address from DNS", "zero.example", AF_INET, "0.0.0.0", false, "0.0.0.0"},
    };
    for (const auto& c : cases) {
        diagtest::TraceCapture traces;
        FakeDns& dns = c.family == AF_INET6 ? dns6 : dns4;
        std::promise<Heard> heard;
        ASSERT_EQ(CM_OK, ResolveFromCaller(Name(c.host, 3478, c.family), c.family, heard)) << c.name;
        ASSERT_TRUE(diagtest::WaitFor([&] { return dns.Waiting(c.host) == 1; })) << c.name;
        dns.Answer(c.host, c.answer);
        auto future = heard.get_future();
        ASSERT_EQ(std::future_status::ready, future.wait_for(kBound)) << c.name;
        const Heard h = future.get();
        EXPECT_TRUE(h.onCaller) << c.name;
        EXPECT_EQ(c.resolved, h.addr.IsResolved()) << c.name;
        EXPECT_EQ(c.ip, h.addr.GetIpDisplayName()) << c.name;
        EXPECT_EQ(3478, h.addr.GetPort()) << c.name;
        EXPECT_EQ(c.host, h.addr.GetHostName()) << c.name;
        EXPECT_TRUE(traces.Contains("CDNSResolverManager::resolve!")) << c.name;
        EXPECT_TRUE(traces.Contains("_ResolveCallback callback in previous thread")) << c.name;
        if (c.answer && std::string(c.answer) == "0.0.0.0") {
            EXPECT_TRUE(traces.Contains("CCmAcceptorUdpConnector::AsycConnect, wrong ip addr from DNS,")) << c.name;
        }
    }
    EXPECT_EQ(3, dns4.asks);
    EXPECT_EQ(1, dns6.asks);
}

TEST_F(DnsResolverManagerTest, AnAnswerOnTheCallersOwnThreadIsCalledBackThere)
{
    diagtest::TraceCapture traces;
    dns4.immediate["kept.example"] = "192.0.2.9";
    std::promise<bool> inline_;
    ASSERT_EQ(CM_OK, CmInvokeInThread(&network, false, [&] {
        return manager->resolve(
            Name("kept.example", 80, AF_INET), this,
            [&](const CCmInetAddr& a) { inline_.set_value(network.IsCurrentThread() && a.GetIpDisplayName() == "192.0.2.9"); },
            &network, AF_INET);
    }));
    auto future = inline_.get_future();
    ASSERT_EQ(std::future_status::ready, future.wait_for(kBound));
    EXPECT_TRUE(future.get());
    EXPECT_TRUE(traces.Contains("_ResolveCallback in same thread"));
    EXPECT_TRUE(traces.Contains("resolve DNS in pNetworkThread!"));
}

TEST_F(DnsResolverManagerTest, CancelledLookupsNeverCallBack)
{
    // Before the answer.
    std::promise<Heard> early;
    int earlyKey = 0, lateKey = 0, otherKey = 0;
    ASSERT_EQ(CM_OK, ResolveFromCaller(Name("slow.example", 1, AF_INET), AF_INET, early, &earlyKey));
    ASSERT_TRUE(diagtest::WaitFor([&] { return dns4.Waiting("slow.example") == 1; }));
    ASSERT_EQ(CM_OK, CmInvokeInThread(&caller, false, [&] {
        manager->cancelResolve(&earlyKey);
        return CM_OK;
    }));
    EXPECT_EQ(0u, dns4.Waiting("slow.example")) << "the DNS manager was told to forget the observer";

    // After the answer was queued on the caller's thread, but before it ran there.
    std::promise<Heard> late, other;
    ASSERT_EQ(CM_OK, ResolveFromCaller(Name("late.example", 1, AF_INET), AF_INET, late, &lateKey));
    ASSERT_EQ(CM_OK, ResolveFromCaller(Name("late.example", 2, AF_INET), AF_INET, other, &otherKey));
    ASSERT_TRUE(diagtest::WaitFor([&] { return dns4.Waiting("late.example") == 2; }));
    std::promise<void> release;
    auto released = release.get_future().share();
    std::promise<void> blocked;
    CmInvokeInThread(&caller, true, [&, released] {
        blocked.set_value();
        released.wait();
        return CM_OK;
    }, CM_EVENT_PRIORITY_HIGH + 10);
    blocked.get_future().wait();
    dns4.Answer("late.example", "192.0.2.1");
    ASSERT_TRUE(diagtest::WaitFor([&] { return caller.GetEventQueue()->GetPendingEventsCount() == 2; }));
    CmInvokeInThread(&caller, true, [&] {
        manager->cancelResolve(&lateKey);
        return CM_OK;
    }, CM_EVENT_PRIORITY_HIGH);
    release.set_value();
    auto otherFuture = other.get_future();
    ASSERT_EQ(std::future_status::ready, otherFuture.wait_for(kBound)) << "the other key still hears back";
    EXPECT_EQ(2, otherFuture.get().addr.GetPort());
    // A marker posted after everything: once it ran, any callback would have run too.
    ASSERT_EQ(CM_OK, CmInvokeInThread(&caller, false, [] { return CM_OK; }));
    EXPECT_EQ(std::future_status::timeout, early.get_future().wait_for(std::chrono::milliseconds(0)));
    EXPECT_EQ(std::future_status::timeout, late.get_future().wait_for(std::chrono::milliseconds(0)));
    // The sweep forgets what is over.
    ASSERT_EQ(CM_OK, CmInvokeInThread(&network, false, [&] {
        manager->OnTimer(nullptr);
        return CM_OK;
    }));
    EXPECT_EQ(0u, manager->GetKeyCount());
    EXPECT_EQ(0u, manager->GetPendingCount());
}

TEST_F(DnsResolverManagerTest, AddressesNeedNoLookupAndBadRequestsAreRefused)
{
    std::promise<Heard> heard;
    ASSERT_EQ(CM_OK, ResolveFromCaller(CCmInetAddr("198.51.100.4", 5000), AF_INET, heard));
    auto future = heard.get_future();
    ASSERT_EQ(std::future_status::ready, future.wait_for(kBound));
    EXPECT_EQ("198.51.100.4:5000", future.get().addr.ToString());
    EXPECT_EQ(0, dns4.asks);
    auto ignore = [](const CCmInetAddr&) {};
    EXPECT_EQ(CM_ERROR_INVALID_ARG, manager->resolve(Name("x.example", 1, AF_INET), this, ignore, &caller, AF_UNIX));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, manager->resolve(Name("x.example", 1, AF_INET), this, nullptr, &caller, AF_INET));
}

}  // namespace
