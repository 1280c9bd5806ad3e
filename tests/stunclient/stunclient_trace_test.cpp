// The hop-by-hop path trace on a fake network: which TTL goes out next after an ICMP report, an
// answer of the server or silence, and what is reported for each hop. Addresses are documentation
// addresses that only appear inside records; nothing leaves the process.
#include "stunclient_harness.h"

namespace {

using namespace stunclient_test;
namespace q = qlox_gatewalk;

struct Hop {
    int hop;
    std::string address;
    bool done;
    bool allDone;
    uint32_t traceNumber;
    bool operator==(const Hop&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Hop& h)
{
    return os << "{" << h.hop << " " << h.address << (h.done ? " done" : "") << (h.allDone ? " allDone" : "") << " #"
              << h.traceNumber << "}";
}

class StunTrace : public ::testing::Test {
protected:
    Harness<PQ> h;
    const sockaddr_storage server = Addr("192.0.2.10:3478");
    std::vector<Hop> hops;

    void Start(uint32_t traces)
    {
        ASSERT_TRUE(q::StunTrace_startTrace(h.client, this, Sa(server), Sa(h.base), 7, "", "", traces,
                                            &StunTrace::OnHop, &StunTrace::OnSend));
    }
    std::vector<int> Ttls() const
    {
        std::vector<int> t;
        for (const auto& s : h.sent) t.push_back(s.ttl);
        return t;
    }
    gatewalk::StunMsgId LastId() { return h.Decode(h.sent.back().bytes)->msgHdr.id; }
    void ServerAnswers() { h.Deliver(*h.Response(LastId(), "198.51.100.1:5000"), server); }
    void Icmp(const char* from, uint32_t type) { q::StunClient_HandleICMP(h.client, Sa(Addr(from)), type); }
    void Silence() { h.Tick(1800); }

private:
    static void OnSend(void* ctx, bool, unsigned int, const unsigned char* b, int n, const sockaddr* to, int, bool,
                       unsigned char ttl)
    {
        // The transaction's user context is the trace record inside the client, not ours.
        auto* self = static_cast<StunTrace*>(static_cast<q::hiutResult*>(ctx)->userCtx);
        Sent s{self->h.nowMs, Bytes(b, b + n), {}, ttl};
        gatewalk::sockaddr_copy(reinterpret_cast<sockaddr*>(&s.destination), to);
        self->h.sent.push_back(std::move(s));
    }
    static void OnHop(void* ctx, q::StunTraceCallBackData_T* d)
    {
        static_cast<StunTrace*>(ctx)->hops.push_back({d->hop, Text(d->address), d->done, d->allDone, d->traceNumber});
    }
};

TEST_F(StunTrace, WalksUpToTheServerAndSkipsSilentHopsNextTime)
{
    Start(2);
    ServerAnswers();  // the probe at TTL 40: the far end answers
    Icmp("192.0.2.1:0", 11);
    Silence();        // hop 2 drops expired packets quietly
    ServerAnswers();  // hop 3 is the server
    // Second trace: straight from hop 1 to hop 3.
    Icmp("192.0.2.1:0", 11);
    ServerAnswers();
    EXPECT_EQ(Ttls(), (std::vector<int>{40, 1, 2, 3, 1, 3}));
    const std::vector<Hop> expected = {
        {1, "192.0.2.1:0", false, false, 1},     {2, "(unset)", false, false, 1},
        {3, "192.0.2.10:3478", true, false, 1},  {1, "192.0.2.1:0", false, false, 2},
        {3, "192.0.2.10:3478", true, true, 2},
    };
    EXPECT_EQ(hops, expected);
    for (const auto& s : h.sent) EXPECT_EQ(Text(s.destination), "192.0.2.10:3478");
    // Every hop got a fresh id, but the second trace starts with the id of the last one.
    EXPECT_FALSE(gatewalk::stunlib_transIdIsEqual(&h.Decode(h.sent[1].bytes)->msgHdr.id,
                                                  &h.Decode(h.sent[2].bytes)->msgHdr.id));
    EXPECT_TRUE(gatewalk::stunlib_transIdIsEqual(&h.Decode(h.sent[3].bytes)->msgHdr.id,
                                                 &h.Decode(h.sent[4].bytes)->msgHdr.id));
}

TEST_F(StunTrace, UnreachableProbeThenUnreachableHopEndsThePath)
{
    Start(1);
    Icmp("192.0.2.10:0", 0);   // echo reply: not for the trace
    EXPECT_TRUE(h.Logged("Ignoring ICMP Type"));
    Icmp("192.0.2.10:0", 3);   // the probe at TTL 40: destination unreachable
    Icmp("192.0.2.1:0", 11);
    Icmp("192.0.2.10:0", 3);   // hop 2 is where it ends
    EXPECT_EQ(Ttls(), (std::vector<int>{40, 1, 2}));
    const std::vector<Hop> expected = {{1, "192.0.2.1:0", false, false, 1}, {2, "192.0.2.10:0", true, true, 1}};
    EXPECT_EQ(hops, expected);
    h.RunTo(10000, 100);
    EXPECT_EQ(h.sent.size(), 3u) << "nothing after the last trace";
}

TEST_F(StunTrace, SilentFarEndGivesUpAfterFourSilentHops)
{
    Start(1);
    for (int i = 0; i < 5; ++i) Silence();  // TTL 40, then 1..4
    EXPECT_EQ(Ttls(), (std::vector<int>{40, 1, 2, 3, 4}));
    const std::vector<Hop> expected = {{1, "(unset)", false, false, 1},
                                       {2, "(unset)", false, false, 1},
                                       {3, "(unset)", false, false, 1},
                                       {4, "(unset)", true, true, 1}};
    EXPECT_EQ(hops, expected);
}

TEST_F(StunTrace, RefusesWithoutServerOrSendFunction)
{
    EXPECT_FALSE(q::StunTrace_startTrace(h.client, this, nullptr, Sa(h.base), 0, "", "", 1, nullptr, nullptr));
    EXPECT_FALSE(q::StunTrace_startTrace(h.client, this, Sa(server), Sa(h.base), 0, "", "", 1, nullptr, nullptr));
    EXPECT_TRUE(h.sent.empty());
}

}  // namespace
