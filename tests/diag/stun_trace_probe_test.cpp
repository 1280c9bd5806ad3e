// The route trace's hop logic on a fake socket and a fake clock: what each kind of answer makes of
// a hop, when the trace ends, its pace, and the Binding requests it sends (read back byte by byte).
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "diag/StunTraceProbe.h"

namespace {

// Per TTL, what comes back and after how many milliseconds; a TTL without an entry stays silent.
struct Reply {
    StunTraceEvent::Kind kind;
    const char* from;
    int icmpType;
    int icmpCode;
    uint64_t afterMs;
    bool quotesId = true;
};

class FakeSocket final : public IStunTraceSocket {
public:
    explicit FakeSocket(std::map<int, Reply> replies) : m_replies(std::move(replies)) {}

    uint64_t NowUs() override { return m_now; }
    CCmInetAddr GetLocalAddr() override { return CCmInetAddr("10.1.0.2", 40000); }
    CmResult SetTtl(int ttl) override
    {
        m_ttl = ttl;
        return CM_OK;
    }
    int Send(const uint8_t* data, size_t length) override
    {
        if (sendError) return sendError;
        sent.push_back({m_ttl, m_now, std::vector<uint8_t>(data, data + length)});
        auto it = m_replies.find(m_ttl);
        if (it != m_replies.end()) {
            StunTraceEvent ev;
            ev.kind = it->second.kind;
            ev.from = CCmInetAddr(it->second.from, 3478);
            ev.icmpType = it->second.icmpType;
            ev.icmpCode = it->second.icmpCode;
            ev.idKnown = it->second.quotesId;
            memcpy(ev.id.octet, data + 8, sizeof(ev.id.octet));
            ev.atUs = m_now + it->second.afterMs * 1000;
            if (ev.kind == StunTraceEvent::STUN_RESPONSE) {
                ev.hasMapped = true;
                ev.mapped = CCmInetAddr("203.0.113.10", 40000);
            }
            m_pending.push_back(ev);
        }
        if (onSend) onSend();
        return 0;
    }
    StunTraceEvent Wait(uint64_t deadlineUs) override
    {
        auto first = m_pending.end();
        for (auto it = m_pending.begin(); it != m_pending.end(); ++it)
            if (it->atUs <= deadlineUs && (first == m_pending.end() || it->atUs < first->atUs)) first = it;
        if (first != m_pending.end()) {
            StunTraceEvent ev = *first;
            m_pending.erase(first);
            m_now = std::max(m_now, ev.atUs);
            return ev;
        }
        m_now = std::max(m_now, deadlineUs);
        StunTraceEvent timeout;
        timeout.atUs = m_now;
        return timeout;
    }

    struct Sent {
        int ttl;
        uint64_t atUs;
        std::vector<uint8_t> bytes;
    };
    std::vector<Sent> sent;
    int sendError = 0;
    std::function<void()> onSend;

private:
    std::map<int, Reply> m_replies;
    std::vector<StunTraceEvent> m_pending;
    uint64_t m_now = 5000000;
    int m_ttl = 0;
};

struct HopWant {
    int ttl;
    const char* result;
    int icmpType;
    const char* dest;
    double rttMs;
};

struct TraceCase {
    const char* name;
    const char* target;
    std::map<int, Reply> replies;
    int ret;
    std::vector<HopWant> hops;
};

constexpr auto kIcmp = StunTraceEvent::ICMP_ERROR;
constexpr auto kStun = StunTraceEvent::STUN_RESPONSE;

TEST(StunTraceProbeTest, HopsAndEndingsByWhatComesBack)
{
    StunTraceSettings settings;
    settings.maxTtl = 6;
    settings.silentHopLimit = 3;
    settings.probeWaitMs = 500;
    settings.probesPerSecond = 10;
    const TraceCase cases[] = {
        {"router then server", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 11, 0, 2}}, {2, {kStun, "203.0.113.1", -1, -1, 7}}},
         0,
         {{1, "UNSPEC", 11, "10.1.0.1", 2}, {2, "success", -1, "203.0.113.1", 7}}},
        {"closed port at the server", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 11, 0, 1}}, {2, {kIcmp, "203.0.113.1", 3, 3, 4}}},
         1,
         {{1, "UNSPEC", 11, "10.1.0.1", 1}, {2, "server_unreachable", 3, "203.0.113.1", 4}}},
        {"a router says no route", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 3, 1, 3}}},
         1,
         {{1, "path_unreachable", 3, "10.1.0.1", 3}}},
        {"dark after the first router", "203.0.113.3",
         {{1, {kIcmp, "10.1.0.1", 11, 0, 1}}},
         1,
         {{1, "UNSPEC", 11, "10.1.0.1", 1}, {2, "UNSPEC", -1, "*", -1}, {3, "UNSPEC", -1, "*", -1}, {4, "UNSPEC", -1, "*", -1}}},
        {"every router answers, the server never", "203.0.113.3",
         {{1, {kIcmp, "10.0.0.1", 11, 0, 1}}, {2, {kIcmp, "10.0.0.2", 11, 0, 1}}, {3, {kIcmp, "10.0.0.3", 11, 0, 1}},
          {4, {kIcmp, "10.0.0.4", 11, 0, 1}}, {5, {kIcmp, "10.0.0.5", 11, 0, 1}}, {6, {kIcmp, "10.0.0.6", 11, 0, 1}}},
         1,
         {{1, "UNSPEC", 11, "10.0.0.1", 1}, {6, "UNSPEC", 11, "10.0.0.6", 1}}},
        {"an answer after the wait is a silent hop", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 11, 0, 600}}, {2, {kStun, "203.0.113.1", -1, -1, 5}}},
         0,
         {{1, "UNSPEC", -1, "*", -1}, {2, "success", -1, "203.0.113.1", 5}}},
        {"a quote too short to carry the id", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 11, 0, 2, false}}, {2, {kStun, "203.0.113.1", -1, -1, 3}}},
         0,
         {{1, "UNSPEC", 11, "10.1.0.1", 2}, {2, "success", -1, "203.0.113.1", 3}}},
        {"IPv6 time exceeded and unreachable", "2001:db8::1",
         {{1, {kIcmp, "2001:db8:1::1", 3, 0, 2}}, {2, {kIcmp, "2001:db8::1", 1, 4, 3}}},
         1,
         {{1, "UNSPEC", 3, "2001:db8:1::1", 2}, {2, "server_unreachable", 1, "2001:db8::1", 3}}},
        {"other ICMP types are not about the path", "203.0.113.1",
         {{1, {kIcmp, "10.1.0.1", 5, 0, 1}}, {2, {kStun, "203.0.113.1", -1, -1, 3}}},
         0,
         {{1, "UNSPEC", -1, "*", -1}, {2, "success", -1, "203.0.113.1", 3}}},
    };
    for (const auto& c : cases) {
        FakeSocket socket(c.replies);
        std::atomic<bool> stop{false};
        const StunTraceNodeResult r = ProbeTarget(socket, CCmInetAddr(c.target, 3478), "server", settings, stop);
        EXPECT_EQ(c.ret, r.ret) << c.name;
        // Wanted hops are matched by TTL; the first and last TTL must be the trace's own.
        ASSERT_FALSE(r.hops.empty()) << c.name;
        EXPECT_EQ(c.hops.front().ttl, r.hops.front().ttl) << c.name;
        EXPECT_EQ(c.hops.back().ttl, r.hops.back().ttl) << c.name;
        for (const auto& want : c.hops) {
            const TraceHop* got = nullptr;
            for (const auto& h : r.hops)
                if (h.ttl == want.ttl) got = &h;
            ASSERT_NE(nullptr, got) << c.name << " ttl " << want.ttl;
            EXPECT_STREQ(want.result, TraceHopResultText(got->result)) << c.name << " ttl " << want.ttl;
            EXPECT_EQ(want.icmpType, got->icmpType) << c.name << " ttl " << want.ttl;
            EXPECT_EQ(want.dest, got->dest) << c.name << " ttl " << want.ttl;
            EXPECT_DOUBLE_EQ(want.rttMs, got->rttMs) << c.name << " ttl " << want.ttl;
            EXPECT_EQ("server", got->type);
        }
        if (c.ret == 0) {
            EXPECT_DOUBLE_EQ(c.hops.back().rttMs, r.rttMs) << c.name;
            EXPECT_TRUE(r.hasMapped) << c.name;
        }
        // The pace: never two probes closer than a tenth of a second.
        for (size_t i = 1; i < socket.sent.size(); ++i)
            EXPECT_GE(socket.sent[i].atUs - socket.sent[i - 1].atUs, 100000u) << c.name;
    }
}

TEST(StunTraceProbeTest, StopsAndLocalErrors)
{
    StunTraceSettings settings;
    settings.maxTtl = 8;
    std::atomic<bool> stop{false};
    {
        FakeSocket socket({});
        socket.onSend = [&] {
            if (socket.sent.size() == 3) stop.store(true);
        };
        const auto r = ProbeTarget(socket, CCmInetAddr("203.0.113.1", 3478), "server", settings, stop);
        EXPECT_EQ(kStunTraceStopped, r.ret);
        EXPECT_EQ(3u, socket.sent.size()) << "no probe after the stop request";
    }
    stop.store(false);
    FakeSocket socket({});
    socket.sendError = EHOSTUNREACH;
    const auto r = ProbeTarget(socket, CCmInetAddr("203.0.113.1", 3478), "mapped", settings, stop);
    EXPECT_EQ(-1, r.ret);
    ASSERT_EQ(1u, r.hops.size());
    EXPECT_STREQ("error", TraceHopResultText(r.hops[0].result));
    EXPECT_EQ("mapped", r.hops[0].type);
}

// Reads a STUN message by hand: the header, then each attribute's type, length and value.
std::map<uint16_t, std::string> Attributes(const std::vector<uint8_t>& m)
{
    std::map<uint16_t, std::string> out;
    if (m.size() < 20) return out;
    const size_t length = (m[2] << 8) | m[3];
    EXPECT_EQ(m.size(), 20 + length);
    for (size_t at = 20; at + 4 <= m.size();) {
        const uint16_t type = static_cast<uint16_t>((m[at] << 8) | m[at + 1]);
        const size_t len = (m[at + 2] << 8) | m[at + 3];
        if (at + 4 + len > m.size()) break;
        out[type] = std::string(m.begin() + static_cast<long>(at) + 4, m.begin() + static_cast<long>(at + 4 + len));
        at += 4 + ((len + 3) & ~size_t{3});
    }
    return out;
}

TEST(StunTraceProbeTest, RequestsCarryTheirTtlAndSoftwareAndFreshIds)
{
    StunTraceSettings settings;
    settings.maxTtl = 3;
    std::atomic<bool> stop{false};
    FakeSocket socket({});
    ProbeTarget(socket, CCmInetAddr("203.0.113.1", 3478), "server", settings, stop);
    ASSERT_EQ(3u, socket.sent.size());
    for (size_t i = 0; i < socket.sent.size(); ++i) {
        const auto& bytes = socket.sent[i].bytes;
        ASSERT_GE(bytes.size(), 20u);
        EXPECT_EQ(0x0001, (bytes[0] << 8) | bytes[1]) << "Binding request";
        EXPECT_EQ(0x2112A442u, static_cast<uint32_t>(bytes[4] << 24 | bytes[5] << 16 | bytes[6] << 8 | bytes[7]));
        const auto attrs = Attributes(bytes);
        ASSERT_TRUE(attrs.count(0x8022));
        EXPECT_EQ("vorta zyn STUNTRACE", attrs.at(0x8022));
        ASSERT_TRUE(attrs.count(0x8056));
        char ttl[32];
        snprintf(ttl, sizeof(ttl), "%.4zu", i + 1);
        EXPECT_EQ(ttl, attrs.at(0x8056));
        EXPECT_TRUE(attrs.count(0x8028)) << "FINGERPRINT";
        if (i > 0) {
            EXPECT_NE(0, memcmp(bytes.data() + 8, socket.sent[i - 1].bytes.data() + 8, 12)) << "fresh id";
        }
    }
}

}  // namespace
