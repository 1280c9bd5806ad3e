// The platform's DNS managers against a DNS server of the test's own on loopback, which answers
// well, badly or not yet as each name asks: broken answers fail the lookup without a crash,
// concurrent askers share one query, answers are kept for their TTL.
#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "diag_test_util.h"
#include "tp/CmDns.h"
#include "tp/CmPipe.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Answers by the first label of the name asked for:
//   ok       A 192.0.2.1 / AAAA 2001:db8::1, TTL 60       nx        NXDOMAIN
//   servfail SERVFAIL                                     trunc     TC set, nothing in it (no TCP server)
//   short    an answer cut in the middle                  loop      an answer name pointing at itself
//   badlen   an A record of five bytes                    hold      ok, but only once Release() is called
class FakeDnsServer {
public:
    FakeDnsServer() : m_thread([this] { Loop(); }) {}
    ~FakeDnsServer()
    {
        m_stop.Notify();
        m_thread.join();
    }
    std::string Address() const { return "127.0.0.1:" + std::to_string(m_socket.port); }
    int Queries(const std::string& name)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_queries[name];
    }
    void Release()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [to, reply] : m_held) sendto(m_fd, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
        m_held.clear();
    }

private:
    void Loop()
    {
        for (;;) {
            pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_stop.GetReadHandle(), POLLIN, 0}};
            if (poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN)) return;
            uint8_t q[512];
            sockaddr_in from{};
            socklen_t fromLen = sizeof(from);
            const ssize_t n = recvfrom(m_fd, q, sizeof(q), 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
            if (n < 17) continue;
            Answer(Bytes(q, q + n), from);
        }
    }

    void Answer(const Bytes& query, const sockaddr_in& to)
    {
        // The question: labels from byte 12, then type and class.
        std::string name, first;
        size_t at = 12;
        while (at < query.size() && query[at] != 0) {
            const size_t len = query[at];
            const std::string label(query.begin() + static_cast<long>(at) + 1, query.begin() + static_cast<long>(at + 1 + len));
            if (first.empty()) first = label;
            name += (name.empty() ? "" : ".") + label;
            at += 1 + len;
        }
        const size_t questionEnd = at + 5;
        if (questionEnd > query.size()) return;
        const uint16_t qtype = static_cast<uint16_t>(query[at + 1] << 8 | query[at + 2]);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_queries[name];
        }
        Bytes r(query.begin(), query.begin() + static_cast<long>(questionEnd));
        r[2] = 0x81;  // response, recursion desired
        r[3] = 0x80;  // recursion available, no error
        auto setCounts = [&r](int answers) {
            r[6] = 0;
            r[7] = static_cast<uint8_t>(answers);
            r[8] = r[9] = r[10] = r[11] = 0;
        };
        setCounts(0);
        // One answer record for the question's name (a pointer to byte 12), TTL 60.
        auto addAnswer = [&](const Bytes& rdata, const Bytes& owner = {0xC0, 12}) {
            setCounts(1);
            r.insert(r.end(), owner.begin(), owner.end());
            r.insert(r.end(), {static_cast<uint8_t>(qtype >> 8), static_cast<uint8_t>(qtype), 0, 1, 0, 0, 0, 60,
                               static_cast<uint8_t>(rdata.size() >> 8), static_cast<uint8_t>(rdata.size())});
            r.insert(r.end(), rdata.begin(), rdata.end());
        };
        const Bytes address = qtype == 28 ? Bytes{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}
                                          : Bytes{192, 0, 2, 1};
        if (first == "ok" || first == "hold") {
            addAnswer(address);
        } else if (first == "nx") {
            r[3] |= 3;
        } else if (first == "servfail") {
            r[3] |= 2;
        } else if (first == "trunc") {
            r[2] |= 0x02;
        } else if (first == "short") {
            addAnswer(address);
            r.resize(r.size() - 6);
        } else if (first == "loop") {
            const uint8_t self = static_cast<uint8_t>(r.size());
            addAnswer(address, {0xC0, self});
        } else if (first == "badlen") {
            addAnswer({192, 0, 2, 1, 9});
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        if (first == "hold") {
            m_held.emplace_back(to, r);
            return;
        }
        sendto(m_fd, r.data(), r.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    }

    diagtest::LoopbackSocket m_socket;
    const int m_fd = m_socket.fd;
    CCmPipe m_stop;
    std::mutex m_mutex;
    std::map<std::string, int> m_queries;                       // guarded by m_mutex
    std::vector<std::pair<sockaddr_in, Bytes>> m_held;          // guarded by m_mutex
    std::thread m_thread;  // last: it starts with every other member ready
};

CmDnsSettings SettingsFor(const FakeDnsServer& server)
{
    CmDnsSettings s;
    s.servers = server.Address();
    s.timeoutMs = 500;
    s.tries = 1;
    return s;
}

struct Lookup {
    const char* name;
    int family;
    CmResult want;
    const char* firstAddress;
};

TEST(DnsFakeServerTest, GoodAndBrokenAnswers)
{
    FakeDnsServer server;
    CCmDnsManager dns4(SettingsFor(server));
    CCmDns6Manager dns6(SettingsFor(server));
    const Lookup cases[] = {
        {"ok.test", AF_INET, CM_OK, "192.0.2.1"},
        {"ok.test", AF_INET6, CM_OK, "2001:db8::1"},
        {"nx.test", AF_INET, CM_ERROR_NOT_FOUND, nullptr},
        {"servfail.test", AF_INET, CM_ERROR_FAILURE, nullptr},
        {"trunc.test", AF_INET, CM_ERROR_FAILURE, nullptr},
        {"short.test", AF_INET, CM_ERROR_FAILURE, nullptr},
        {"short.test", AF_INET6, CM_ERROR_FAILURE, nullptr},
        {"loop.test", AF_INET, CM_ERROR_FAILURE, nullptr},
        // c-ares drops an A record of the wrong size: the answer holds no address.
        {"badlen.test", AF_INET, CM_ERROR_NOT_FOUND, nullptr},
    };
    for (const auto& c : cases) {
        diagtest::TraceCapture traces;
        ICmDnsManager& dns = c.family == AF_INET6 ? static_cast<ICmDnsManager&>(dns6) : dns4;
        CCmDnsRecord* record = nullptr;
        EXPECT_EQ(c.want, dns.SyncResolve(record, c.name)) << c.name << " family " << c.family;
        ASSERT_NE(nullptr, record) << c.name;
        EXPECT_EQ(c.want, record->GetError()) << c.name;
        CCmInetAddr first;
        if (c.firstAddress) {
            ASSERT_TRUE(record->GetFirstAddress(first)) << c.name;
            EXPECT_EQ(c.firstAddress, first.GetIpDisplayName());
            EXPECT_EQ(CCmDnsRecord::RSV_SUCCESS, record->GetState());
            EXPECT_EQ(60u, record->GetTtlSeconds());
        } else {
            EXPECT_FALSE(record->GetFirstAddress(first)) << c.name;
            EXPECT_EQ(CCmDnsRecord::RSV_FAILED, record->GetState()) << c.name;
            EXPECT_FALSE(record->GetErrorText().empty()) << c.name;
            EXPECT_TRUE(traces.Contains("CCmDnsManager, lookup failed, host=" + std::string(c.name))) << c.name;
        }
        record->ReleaseReference();
    }
}

struct Latch final : ICmObserver {
    void OnObserve(const char* topic, void* data) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        heard.push_back(static_cast<CCmDnsRecord*>(data)->GetState());
        ok = ok && std::string(topic) == CM_DNS_OBSERVE_TOPIC;
        cv.notify_all();
    }
    bool WaitFor(size_t n)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, std::chrono::seconds(10), [&] { return heard.size() >= n; });
    }
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<CCmDnsRecord::State> heard;
    bool ok = true;
};

TEST(DnsFakeServerTest, ConcurrentAsksShareOneQueryAndAnswersAreKept)
{
    FakeDnsServer server;
    // The test itself decides when the held answer goes out; a slow machine must not time it out first.
    CmDnsSettings settings = SettingsFor(server);
    settings.timeoutMs = 15000;
    CCmDnsManager dns(settings);
    constexpr int kAskers = 20;
    Latch latch;
    std::atomic<int> ready{0};
    std::atomic<int> blocked{0};
    std::vector<std::thread> askers;
    for (int i = 0; i < kAskers; ++i) {
        askers.emplace_back([&] {
            ++ready;
            while (ready.load() < kAskers) std::this_thread::yield();
            CCmDnsRecord* record = nullptr;
            if (dns.AsyncResolve(record, "hold.test", &latch) == CM_ERROR_WOULD_BLOCK) ++blocked;
            if (record) record->ReleaseReference();
        });
    }
    for (auto& t : askers) t.join();
    EXPECT_EQ(kAskers, blocked.load()) << "the server holds its answer: nobody had it yet";
    ASSERT_TRUE(diagtest::WaitFor([&] { return server.Queries("hold.test") >= 1; }));
    server.Release();
    ASSERT_TRUE(latch.WaitFor(kAskers));
    EXPECT_TRUE(latch.ok);
    for (auto state : latch.heard) EXPECT_EQ(CCmDnsRecord::RSV_SUCCESS, state);
    EXPECT_EQ(1, server.Queries("hold.test"));
    EXPECT_EQ(1u, dns.GetQueryCount());

    // Kept for its TTL: answered at once, no query; unless the caller asks past what is kept.
    CCmDnsRecord* record = nullptr;
    EXPECT_EQ(CM_OK, dns.AsyncResolve(record, "hold.test", &latch));
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(CCmDnsRecord::RSV_SUCCESS, record->GetState());
    record->ReleaseReference();
    EXPECT_EQ(1, server.Queries("hold.test"));
    EXPECT_EQ(CM_ERROR_WOULD_BLOCK, dns.AsyncResolve(record, "hold.test", &latch, nullptr, true));
    record->ReleaseReference();
    ASSERT_TRUE(diagtest::WaitFor([&] { return server.Queries("hold.test") == 2; }));
    // A cancelled observer hears nothing of the answer.
    dns.CancelResolve(&latch);
    server.Release();
    CCmDnsRecord* again = nullptr;
    ASSERT_TRUE(diagtest::WaitFor([&] {
        const bool kept = dns.AsyncResolve(again, "hold.test", nullptr) == CM_OK;
        again->ReleaseReference();
        return kept;
    }));
    EXPECT_EQ(static_cast<size_t>(kAskers), latch.heard.size());
}

TEST(DnsFakeServerTest, RefusesWhatIsNoNameAndAnswersAddressesItself)
{
    FakeDnsServer server;
    CCmDnsManager dns4(SettingsFor(server));
    CCmDns6Manager dns6(SettingsFor(server));
    CCmDnsRecord* record = nullptr;
    for (const std::string& bad : {std::string(), std::string("a b.test"), std::string(300, 'a'), std::string("x\x01y")}) {
        EXPECT_EQ(CM_ERROR_INVALID_ARG, dns4.AsyncResolve(record, bad, nullptr)) << bad;
        EXPECT_EQ(nullptr, record);
    }
    ASSERT_EQ(CM_OK, dns4.AsyncResolve(record, "198.51.100.1", nullptr));
    EXPECT_EQ(CCmDnsRecord::RSV_SUCCESS, record->GetState());
    record->ReleaseReference();
    ASSERT_EQ(CM_OK, dns6.AsyncResolve(record, "198.51.100.1", nullptr));
    EXPECT_EQ(CM_ERROR_NOT_FOUND, record->GetError()) << "an IPv4 address is no AAAA answer";
    record->ReleaseReference();
    EXPECT_EQ(0u, dns4.GetQueryCount() + dns6.GetQueryCount());
    CmDnsSettings bad = SettingsFor(server);
    bad.servers = "not an address";
    EXPECT_EQ(CM_ERROR_INVALID_ARG, dns4.SetSettings(bad));
    EXPECT_EQ(server.Address(), dns4.GetSettings().servers);
}

TEST(DnsFakeServerTest, FindsTheNat64PrefixOfEachLength)
{
    struct Case {
        const char* synthesized;
        const char* prefix;
        int length;
    };
    const Case cases[] = {
        {"64:ff9b::c000:aa", "64:ff9b::", 96},
        {"2001:db8:1:2:c0:0:aa00:0", "2001:db8:1:2::", 64},
        {"2001:db8:c000:aa::", "2001:db8::", 32},
    };
    for (const auto& c : cases) {
        CCmInetAddr prefix;
        int length = 0;
        ASSERT_TRUE(CmFindNat64Prefix({CCmInetAddr("2001:db8::5", 0), CCmInetAddr(c.synthesized, 0)}, prefix, length))
            << c.synthesized;
        EXPECT_EQ(c.prefix, prefix.GetIpDisplayName());
        EXPECT_EQ(c.length, length);
    }
    CCmInetAddr prefix;
    int length = 0;
    EXPECT_FALSE(CmFindNat64Prefix({CCmInetAddr("2001:db8::5", 0), CCmInetAddr("192.0.0.170", 0)}, prefix, length));
}

}  // namespace
