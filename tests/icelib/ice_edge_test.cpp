// Edge cases of check list forming and of check processing, as tables where they share a shape.
#include <gtest/gtest.h>

#include "ice_fixture.h"

namespace {

using namespace icetest;
using gatewalk::ICE_CAND_TYPE_HOST;
using gatewalk::ICE_CAND_TYPE_PRFLX;
using gatewalk::ICE_CAND_TYPE_RELAY;
using gatewalk::ICE_CAND_TYPE_SRFLX;
using gatewalk::ICELIB_PAIR_FROZEN;
using gatewalk::ICELIB_PAIR_WAITING;

template <class T>
class IceEdge : public IceFixture<T> {
protected:
    struct Refusal {
        const char* what;
        int result;
        const char* log;
    };
    void ExpectRefused(std::initializer_list<Refusal> cases)
    {
        for (const Refusal& c : cases) {
            EXPECT_EQ(c.result, -1) << c.what;
            EXPECT_TRUE(this->net_->ep[0].Logged(c.log)) << c.what;
        }
    }

    // A checks against a bare responder B that answers every check with success: per stream a host
    // and a relay candidate on 192.0.2.(10 + stream).
    void AgainstEcho(int streams)
    {
        SimNet<T>& n = *this->net_;
        n.ep[1].echoOnly = true;
        std::snprintf(n.ep[1].echoPassword, sizeof n.ep[1].echoPassword, "echopassword");
        for (int s = 0; s < streams; ++s) {
            char ip[32];
            std::snprintf(ip, sizeof ip, "192.0.2.%d", 10 + s);
            n.AddStream(0, s);
            n.AddCandidate(0, s, ip, 5000, 1);
            n.AddCandidate(0, s, ip, 5002, 1, 40000, ICE_CAND_TYPE_RELAY);
            const uint16_t port = static_cast<uint16_t>(6000 + s);
            n.addrs[1][n.nAddrs[1]++] = Addr("198.51.100.1", port);
            ASSERT_EQ(T::AddRemoteMediaStream(this->a_, s, "echo", "echopassword", Sa(n.addrs[1][s])), s);
            ASSERT_EQ(this->Remote(static_cast<uint32_t>(s), "198.51.100.1", port), 0);
        }
        ASSERT_TRUE(T::Start(this->a_, true, 1));
        n.ep[0].started = true;
    }

    // A hand-made check from A's host to B's, answered by B (the agent under test).
    void CheckToB(const char* user, bool useCandidate, const StunMsgId& id)
    {
        const sockaddr_storage from = Addr("192.0.2.1", 5000), to = Addr("198.51.100.1", 6000);
        T::IncomingRequest(this->b_, 0, 0, user, 0x6EFFFFFF, useCandidate, true, false, 1, id, 0, Sa(from), Sa(to), false,
                           nullptr, 1);
    }
};
TYPED_TEST_SUITE(IceEdge, Profiles);

TYPED_TEST(IceEdge, RefusedInputsAreLoggedAndAnsweredWithMinusOne)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    auto* a = this->a_;
    n.AddStream(0, 0);
    for (int i = 0; i < 12; ++i) ASSERT_EQ(n.AddCandidate(0, 0, "192.0.2.1", static_cast<uint16_t>(5000 + i), 1), i);
    const sockaddr_storage def = Addr("198.51.100.1", 6000);
    ASSERT_EQ(T::AddRemoteMediaStream(a, 0, "uf", "pw", Sa(def)), 0);
    for (int i = 0; i < 12; ++i) ASSERT_EQ(this->Remote(0, "198.51.100.1", static_cast<uint16_t>(6000 + i)), i);
    this->ExpectRefused({
        {"13th local", n.AddCandidate(0, 0, "192.0.2.1", 5100, 1), "Failed to add candidate. MAX number of candidates reached"},
        {"13th remote", this->Remote(0, "198.51.100.1", 7000), "Failed to add REMOTE candidate. MAX number of candidates reached:12"},
        {"remote media", this->Remote(5, "198.51.100.1", 1), "Failed to add remote candidate. Wrong media idx (5),medialines number:1"},
        {"local media", T::AddLocalCandidate(a, 4, 1, Sa(def), nullptr, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST, 1),
         "Failed to add local candidate. mediaIdx(4) >= numberOfICEMediaLines(1)"},
        {"no ufrag", T::AddRemoteMediaStream(a, 1, "", "pw", Sa(def)), "Failed to add remote medialine 1. No UFRAG or PASSWD\n"},
        {"no default", T::AddRemoteMediaStream(a, 1, "uf", "pw", nullptr), "Failed to add remote medialine. No default address\n"},
    });
    ASSERT_EQ(T::AddRemoteMediaStream(a, 1, "uf", "pw", Sa(def)), 1);
    EXPECT_EQ(this->Remote(1, "198.51.100.1", 6003), 0);
    this->ExpectRefused({
        {"not an address", this->Remote(1, "nowhere", 1), "Failed to add candidate. Something wrong with IP address\n"},
        {"any address", this->Remote(1, "0.0.0.0", 1), "add an enpty or invalid remote candidate"},
        {"no foundation", this->Remote(1, "198.51.100.9", 1, 1, ""), "add an enpty or invalid remote candidate"},
        {"same address, transport, component", this->Remote(1, "198.51.100.1", 6003, 1, "2"), "add redundant remote candidates"},
    });
    EXPECT_EQ(this->Remote(1, "198.51.100.1", 6003, 2), 1);  // another component: another candidate
    for (unsigned int i = 1; i < T::kMaxMediaLines; ++i) ASSERT_GE(n.AddStream(0, static_cast<int>(i)), 0);
    this->ExpectRefused({{"one line too many", n.AddStream(0, 99),
                          "Failed to add local media stream. Index larger than MAX number of medialines\n"}});
}

TYPED_TEST(IceEdge, MangledMediaRefusesToStart)
{
    using T = TypeParam;
    struct Case {
        const char* defaultIp;  // of the remote m line
        bool remoteCandidate;
        bool starts;
    };
    for (const Case& c : {Case{"198.51.100.77", true, false}, Case{"198.51.100.1", false, false},
                          Case{"198.51.100.1", true, true}}) {
        this->TearDown();
        this->SetUp();
        this->net_->AddStream(0, 0);
        this->net_->AddCandidate(0, 0, "192.0.2.1", 5000, 1);
        const sockaddr_storage def = Addr(c.defaultIp, 6000);
        T::AddRemoteMediaStream(this->a_, 0, "uf", "pw", Sa(def));
        if (c.remoteCandidate) this->Remote(0, "198.51.100.1", 6000);
        EXPECT_EQ(T::Start(this->a_, true, 1), c.starts) << c.defaultIp;
        EXPECT_EQ(T::GetState(this->a_) == gatewalk::ICELIB_MANGLED, !c.starts);
        EXPECT_EQ(this->net_->ep[0].Logged("Remote Media mangling detected"), !c.starts);
    }
}

TYPED_TEST(IceEdge, PrioritiesAndFoundations)
{
    using T = TypeParam;
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_HOST, 1, 65535), 0x7EFFFFFFu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_SRFLX, 2, 0), 0x640000FEu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_RELAY, 1, 0x1234), 0x001234FFu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_PRFLX, 1, 65535), 0x6EFFFFFFu);
    EXPECT_EQ(qlox_gatewalk::ICELIB_pairPriority(10, 20), (10ull << 32) + 40 + 0);  // G the controlling side's
    EXPECT_EQ(zyn_gatewalk::ICELIB_pairPriority(20, 10), (10ull << 32) + 40 + 1);
    char text[33];
    if constexpr (!T::kZyn) {
        using namespace qlox_gatewalk;
        using gatewalk::ICE_TRANS_TCPACT, gatewalk::ICE_TRANS_TCPPASS, gatewalk::ICE_TRANS_UDP;
        EXPECT_EQ(ICELIB_calculatePriority(ICE_CAND_TYPE_HOST, ICE_TRANS_TCPACT, 1, 65535), 0x63FFFFFFu);
        EXPECT_EQ(ICELIB_calculatePriority(ICE_CAND_TYPE_RELAY, ICE_TRANS_TCPPASS, 1, 0), 0x000000FFu);
        struct F {
            gatewalk::ICE_CANDIDATE_TYPE type;
            gatewalk::ICE_TRANSPORT transport;
            const char* text;
        };
        for (const F& f : {F{ICE_CAND_TYPE_HOST, ICE_TRANS_UDP, "1"}, F{ICE_CAND_TYPE_PRFLX, ICE_TRANS_UDP, "2"},
                           F{ICE_CAND_TYPE_SRFLX, ICE_TRANS_UDP, "3"}, F{ICE_CAND_TYPE_RELAY, ICE_TRANS_UDP, "4"},
                           F{ICE_CAND_TYPE_HOST, ICE_TRANS_TCPACT, "5"}, F{ICE_CAND_TYPE_RELAY, ICE_TRANS_TCPPASS, "12"},
                           F{gatewalk::ICE_CAND_TYPE_NONE, ICE_TRANS_UDP, "unknowntype"}}) {
            ICELIB_createFoundation(text, f.type, f.transport, sizeof text);
            EXPECT_STREQ(text, f.text);
        }
        EXPECT_EQ(ICE_TRANSPORT_proto(ICE_TRANS_UDP), 17);
        EXPECT_EQ(ICE_TRANSPORT_proto(ICE_TRANS_TCPPASS), 6);
        EXPECT_EQ(ICE_TRANSPORT_proto(gatewalk::ICE_TRANS_NONE), -1);
    } else {
        using namespace zyn_gatewalk;
        ICELIB_createFoundation(text, ICE_CAND_TYPE_SRFLX, sizeof text);
        EXPECT_STREQ(text, "3");
        EXPECT_EQ(ICELIB_getCandidateTypeWeight(ICE_CAND_TYPE_PRFLX), 20u);
        EXPECT_EQ(ICELIB_calculateReadyWeight(ICE_CAND_TYPE_RELAY, ICE_CAND_TYPE_SRFLX, 100), (10u + 2 * 25u) * 100);
    }
    char ufrag[gatewalk::ICELIB_UFRAG_LENGTH];
    qlox_gatewalk::ICELIB_createUfrag(ufrag, sizeof ufrag);
    EXPECT_EQ(std::strspn(ufrag, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"), sizeof ufrag - 1);
    qlox_gatewalk::ICELIB_longToIcechar(0x3F | (1u << 6) | (26u << 12), text, 4);
    EXPECT_STREQ(text, "/Ba");  // base64 digits from the low end
}

TYPED_TEST(IceEdge, CheckListForming)
{
    using T = TypeParam;
    struct Case {
        const char* what;
        int local, remote;  // host candidates on 192.0.2.(1..local), best first, and 198.51.100.(1..remote)
        bool srflx;         // plus a srflx candidate based on the first host
        uint32_t pairs, lastLocalPaired;
    };
    for (const Case& c : {Case{"12 x 12 stops at 40, before the sort", 12, 12, false, 40, 4},
                          Case{"srflx equal to its base after replacement", 1, 1, true, 1, 1},
                          Case{"2 x 3", 2, 3, false, 6, 2}}) {
        this->TearDown();
        this->SetUp();
        SimNet<T>& n = *this->net_;
        n.AddStream(0, 0);
        n.AddStream(1, 0);
        char ip[32];
        for (int i = 1; i <= c.local; ++i) {
            std::snprintf(ip, sizeof ip, "192.0.2.%d", i);
            n.AddCandidate(0, 0, ip, 5000, 1, static_cast<uint16_t>(65536 - i));
        }
        if (c.srflx) n.AddCandidate(0, 0, "203.0.113.9", 7000, 1, 65535, ICE_CAND_TYPE_SRFLX, "192.0.2.1");
        for (int i = 1; i <= c.remote; ++i) {
            std::snprintf(ip, sizeof ip, "198.51.100.%d", i);
            n.AddCandidate(1, 0, ip, 6000, 1);
        }
        n.Exchange();
        n.Start(0, true, 1);
        const auto* cl = T::GetCheckList(this->a_, 0);
        ASSERT_EQ(cl->numberOfPairs, c.pairs) << c.what;
        uint32_t last = 0;
        for (uint32_t i = 0; i < cl->numberOfPairs; ++i) {
            const auto& p = cl->checkListPairs[i];
            last = std::max<uint32_t>(last, ntohl(reinterpret_cast<const sockaddr_in*>(&p.localCandidate.connectionAddr)->sin_addr.s_addr) & 0xFF);
            EXPECT_TRUE(i == 0 || cl->checkListPairs[i - 1].pairPriority >= p.pairPriority) << c.what;
            // All hosts share one foundation: only the best pair starts WAITING.
            EXPECT_EQ(p.pairState, i == 0 ? ICELIB_PAIR_WAITING : ICELIB_PAIR_FROZEN) << c.what;
        }
        EXPECT_EQ(last, c.lastLocalPaired) << c.what;
    }
}

TYPED_TEST(IceEdge, TcpActivePairsWithPassiveOnly)
{
    using T = TypeParam;
    auto* a = this->a_;
    this->net_->AddStream(0, 0);
    const sockaddr_storage def = Addr("198.51.100.1", 6000);
    T::AddRemoteMediaStream(a, 0, "uf", "pw", Sa(def));
    const gatewalk::ICE_TRANSPORT tr[3] = {gatewalk::ICE_TRANS_UDP, gatewalk::ICE_TRANS_TCPACT, gatewalk::ICE_TRANS_TCPPASS};
    for (int i = 0; i < 3; ++i) {
        const sockaddr_storage l = Addr("192.0.2.1", static_cast<uint16_t>(5000 + i));
        // zyn_gatewalk runs over UDP only.
        EXPECT_EQ(T::AddLocalCandidate(a, 0, 1, Sa(l), nullptr, tr[i], ICE_CAND_TYPE_HOST, 65535), T::kZyn && i ? -1 : i);
        EXPECT_EQ(this->Remote(0, "198.51.100.1", static_cast<uint16_t>(6000 + i), 1, "1", tr[i]), T::kZyn && i ? -1 : i);
    }
    ASSERT_TRUE(T::Start(a, true, 1));
    const auto* cl = T::GetCheckList(a, 0);
    // udp-udp and tcpact-tcppass; tcppass-tcpact is formed and pruned: a passive end sends nothing.
    ASSERT_EQ(cl->numberOfPairs, T::kZyn ? 1u : 2u);
    for (uint32_t i = 0; i < cl->numberOfPairs; ++i) {
        const auto& p = cl->checkListPairs[i];
        EXPECT_EQ(p.remoteCandidate.transport, p.localCandidate.transport == gatewalk::ICE_TRANS_UDP
                                                   ? gatewalk::ICE_TRANS_UDP : gatewalk::ICE_TRANS_TCPPASS);
        EXPECT_NE(p.localCandidate.transport, gatewalk::ICE_TRANS_TCPPASS);
    }
}

TYPED_TEST(IceEdge, RemoteLineWithoutCandidatesLeavesItsListCompleted)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    for (int e = 0; e < 2; ++e) {
        n.AddStream(e, 0);
        n.AddStream(e, 1);
        n.AddCandidate(e, 0, e == 0 ? "192.0.2.1" : "198.51.100.1", 5000, 1);
    }
    n.AddCandidate(0, 1, "192.0.2.1", 5002, 1);  // B's second line has nothing
    n.Exchange();
    n.Start(0, true, 1);
    n.Start(1, false, 2);
    EXPECT_EQ(T::GetCheckList(this->a_, 1)->checkListState, gatewalk::ICELIB_CHECKLIST_COMPLETED);
    EXPECT_TRUE(n.ep[0].Logged("No Candidates. Disabled remote medialine. Checklist state set to Complete\n"));
    ASSERT_TRUE(n.Run(300));
    EXPECT_FALSE(n.ep[0].iceFailed || n.ep[1].iceFailed);
}

TYPED_TEST(IceEdge, TwoStreamsTakeTurnsAndTheSecondWaitsFrozen)
{
    using T = TypeParam;
    this->AgainstEcho(2);
    SimNet<T>& n = *this->net_;
    const auto* second = T::GetCheckList(this->a_, 1);
    n.hold = true;  // no answers: the first stream finds no valid pair, so the second stays frozen
    for (int i = 0; i < 5; ++i) n.Step();
    for (uint32_t i = 0; i < second->numberOfPairs; ++i) EXPECT_EQ(second->checkListPairs[i].pairState, ICELIB_PAIR_FROZEN);
    this->TearDown();
    this->SetUp();
    this->AgainstEcho(2);
    for (int i = 0; i < 3; ++i) this->net_->Step();
    // Host of stream 0; host of stream 1, unfrozen by the first answer; relay of stream 0.
    const char* order[] = {"192.0.2.10:5000", "192.0.2.11:5000", "192.0.2.10:5002"};
    ASSERT_GE(this->net_->nChecks, 3);
    for (int i = 0; i < 3; ++i) {
        char text[64];
        EXPECT_STREQ(gatewalk::sockaddr_toString(Sa(this->net_->checks[i].source), text, sizeof text, true), order[i]);
    }
}

TYPED_TEST(IceEdge, UseCandidateOnAWaitingPairIsAnsweredOnlyOnceThePairRan)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(1, false, 2);  // B is the agent under test; A's checks are made by hand
    char user[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(user, sizeof user, "%s:%s", T::GetLocalMediaStream(this->b_, 0)->ufrag,
                  T::GetLocalMediaStream(this->a_, 0)->ufrag);
    const StunMsgId id = qlox_gatewalk::ICELIB_generateTransactionId();
    ASSERT_EQ(T::GetCheckList(this->b_, 0)->checkListPairs[0].pairState, ICELIB_PAIR_WAITING);
    this->CheckToB(user, true, id);
    EXPECT_EQ(n.ep[1].responsesSent, 0);
    EXPECT_TRUE(n.ep[1].Logged("Not ready to send response at this time. Hoping the remote side will retransmit"));
    n.hold = true;
    n.Step();  // B's own check goes out; it is answered by hand
    const sockaddr_storage aAddr = Addr("192.0.2.1", 5000), bAddr = Addr("198.51.100.1", 6000);
    T::IncomingResponse(this->b_, 200, n.ep[1].tx[0].id, Sa(aAddr), Sa(bAddr), Sa(bAddr));
    this->CheckToB(user, true, id);  // the peer's retransmission
    EXPECT_EQ(n.ep[1].responsesSent, 1);
    EXPECT_EQ(n.ep[1].lastResponseCode, 200);
    n.count = 0;
    n.hold = false;
    n.Step();
    EXPECT_TRUE(T::IsIceComplete(this->b_));
}

TYPED_TEST(IceEdge, RoleConflictAnswerAfterASwapReRunsWithoutSwappingBack)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 5);
    const sockaddr_storage local = Addr("192.0.2.1", 5000), remote = Addr("198.51.100.1", 6000);
    n.hold = true;
    for (int round = 0; round < 3; ++round) {
        n.count = 0;
        n.Step();
        ASSERT_EQ(n.count, 1) << round;
        T::IncomingResponse(this->a_, 487, n.queue[n.head].Id(), Sa(remote), Sa(local), nullptr);
        // The first 487 swaps; later ones leave the role and only run the pair again.
        EXPECT_FALSE(T::IsControlling(this->a_)) << round;
        EXPECT_EQ(T::GetCheckList(this->a_, 0)->checkListPairs[0].pairState, ICELIB_PAIR_WAITING) << round;
    }
    EXPECT_TRUE(n.ep[0].Logged("Receive response 487 Role Conflict, and role has swapped, trandactionID:"));
}

TYPED_TEST(IceEdge, AfterCompletionChecksAreAnsweredButNotWithAWrongUfrag)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 1);
    n.Start(1, false, 2);
    ASSERT_TRUE(n.Run(300));
    char good[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH], bad[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(good, sizeof good, "%s:%s", T::GetLocalMediaStream(this->b_, 0)->ufrag,
                  T::GetLocalMediaStream(this->a_, 0)->ufrag);
    std::snprintf(bad, sizeof bad, "%s:someoneelse", T::GetLocalMediaStream(this->b_, 0)->ufrag);
    for (const char* user : {good, bad}) {
        const int before = n.ep[1].responsesSent;
        this->CheckToB(user, false, qlox_gatewalk::ICELIB_generateTransactionId());
        EXPECT_EQ(n.ep[1].responsesSent, before + 1);
        EXPECT_EQ(n.ep[1].lastResponseCode, user == good ? 200 : 400);
    }
    for (int i = 0; i < 250; ++i) n.Step();  // past keepAliveIntervalS: keep-alives in qlox_gatewalk only
    EXPECT_EQ(n.ep[0].keepAlives > 0, !T::kZyn);
}

}  // namespace
