// Edge cases of check list forming and of check processing, as tables where they share a shape.
#include <gtest/gtest.h>

#include <algorithm>

#include "ice_fixture.h"

namespace {

using namespace icetest;
using gatewalk::ICE_CAND_TYPE_HOST;
using gatewalk::ICE_CAND_TYPE_PRFLX;
using gatewalk::ICE_CAND_TYPE_RELAY;
using gatewalk::ICE_CAND_TYPE_SRFLX;
using gatewalk::ICELIB_PAIR_FROZEN;
using gatewalk::ICELIB_PAIR_SUCCEEDED;
using gatewalk::ICELIB_PAIR_WAITING;

template <class T>
class IceEdge : public IceFixture<T> {
protected:
    // A (index 0) checks against a bare responder B that answers every check with success.
    void AgainstEcho(int streams)
    {
        SimNet<T>& n = *this->net_;
        n.ep[1].echoOnly = true;
        std::snprintf(n.ep[1].echoPassword, sizeof n.ep[1].echoPassword, "echopassword");
        for (int s = 0; s < streams; ++s) {
            n.AddStream(0, s);
            char ip[32];
            std::snprintf(ip, sizeof ip, "192.0.2.%d", 10 + s);
            n.AddCandidate(0, s, ip, 5000, 1);
            n.AddCandidate(0, s, ip, 5002, 1, 40000, ICE_CAND_TYPE_RELAY);
            const sockaddr_storage peer = Addr("198.51.100.1", static_cast<uint16_t>(6000 + s));
            n.addrs[1][n.nAddrs[1]++] = peer;
            const int m = T::AddRemoteMediaStream(this->a_, s, "echo", "echopassword", Sa(peer));
            ASSERT_EQ(m, s);
            ASSERT_EQ(T::AddRemoteCandidate(this->a_, static_cast<uint32_t>(m), "1", 1, T::Priority(ICE_CAND_TYPE_HOST, 1, 65535),
                                            "198.51.100.1", static_cast<uint16_t>(6000 + s), gatewalk::ICE_TRANS_UDP,
                                            ICE_CAND_TYPE_HOST),
                      0);
        }
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
    for (int i = 0; i < 12; ++i) {
        ASSERT_EQ(T::AddRemoteCandidate(a, 0, "1", 1, 1, "198.51.100.1", static_cast<uint16_t>(6000 + i),
                                        gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
                  i);
    }
    struct Case {
        const char* what;
        int result;
        const char* log;
    };
    const Case cases[] = {
        {"13th local", n.AddCandidate(0, 0, "192.0.2.1", 5100, 1), "Failed to add candidate. MAX number of candidates reached"},
        {"13th remote",
         T::AddRemoteCandidate(a, 0, "1", 1, 1, "198.51.100.1", 7000, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
         "Failed to add REMOTE candidate. MAX number of candidates reached:12"},
        {"remote bad media", T::AddRemoteCandidate(a, 5, "1", 1, 1, "198.51.100.1", 1, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
         "Failed to add remote candidate. Wrong media idx (5),medialines number:1"},
        {"local bad media", T::AddLocalCandidate(a, 4, 1, Sa(def), nullptr, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST, 1),
         "Failed to add local candidate. mediaIdx(4) >= numberOfICEMediaLines(1)"},
        {"no ufrag", T::AddRemoteMediaStream(a, 1, "", "pw", Sa(def)), "Failed to add remote medialine 1. No UFRAG or PASSWD\n"},
        {"no default", T::AddRemoteMediaStream(a, 1, "uf", "pw", nullptr), "Failed to add remote medialine. No default address\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.result, -1) << c.what;
        EXPECT_TRUE(n.ep[0].Logged(c.log)) << c.what;
    }
    // A fresh stream for the candidate texts that are wrong in themselves.
    ASSERT_EQ(T::AddRemoteMediaStream(a, 1, "uf", "pw", Sa(def)), 1);
    const Case texts[] = {
        {"not an address", T::AddRemoteCandidate(a, 1, "1", 1, 1, "nowhere", 1, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
         "Failed to add candidate. Something wrong with IP address\n"},
        {"any address", T::AddRemoteCandidate(a, 1, "1", 1, 1, "0.0.0.0", 1, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
         "add an enpty or invalid remote candidate"},
        {"empty foundation", T::AddRemoteCandidate(a, 1, "", 1, 1, "198.51.100.9", 1, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST),
         "add an enpty or invalid remote candidate"},
    };
    for (const Case& c : texts) {
        EXPECT_EQ(c.result, -1) << c.what;
        EXPECT_TRUE(n.ep[0].Logged(c.log)) << c.what;
    }
    // The same address, transport and component twice is one candidate; on another component it is not.
    EXPECT_EQ(T::AddRemoteCandidate(a, 1, "1", 1, 1, "198.51.100.1", 6003, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST), 0);
    EXPECT_EQ(T::AddRemoteCandidate(a, 1, "2", 1, 9, "198.51.100.1", 6003, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST), -1);
    EXPECT_TRUE(n.ep[0].Logged("add redundant remote candidates"));
    EXPECT_EQ(T::AddRemoteCandidate(a, 1, "1", 2, 1, "198.51.100.1", 6003, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST), 1);
    for (unsigned int i = 1; i < T::kMaxMediaLines; ++i) ASSERT_GE(n.AddStream(0, static_cast<int>(i)), 0);
    EXPECT_EQ(n.AddStream(0, 99), -1);
    EXPECT_TRUE(n.ep[0].Logged("Failed to add local media stream. Index larger than MAX number of medialines\n"));
}

TYPED_TEST(IceEdge, MangledMediaRefusesToStart)
{
    using T = TypeParam;
    struct Case {
        const char* what;
        const char* defaultIp;  // the remote m line's address
        bool remoteCandidates;
        const char* log;
    };
    const Case cases[] = {
        {"default not among candidates", "198.51.100.77", true, "Remote Media mangling detected"},
        {"no enabled line", "198.51.100.1", false, "Remote Media mangling detected"},
        {"good", "198.51.100.1", true, nullptr},
    };
    for (const Case& c : cases) {
        this->TearDown();
        this->SetUp();
        SimNet<T>& n = *this->net_;
        n.AddStream(0, 0);
        n.AddCandidate(0, 0, "192.0.2.1", 5000, 1);
        const sockaddr_storage def = Addr(c.defaultIp, 6000);
        T::AddRemoteMediaStream(this->a_, 0, "uf", "pw", Sa(def));
        if (c.remoteCandidates) {
            T::AddRemoteCandidate(this->a_, 0, "1", 1, 1, "198.51.100.1", 6000, gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST);
        }
        const bool started = T::Start(this->a_, true, 1);
        EXPECT_EQ(started, c.log == nullptr) << c.what;
        if (c.log != nullptr) {
            EXPECT_EQ(T::GetState(this->a_), gatewalk::ICELIB_MANGLED) << c.what;
            EXPECT_TRUE(n.ep[0].Logged(c.log)) << c.what;
            n.Step();  // ticks are ignored
            EXPECT_EQ(n.nChecks, 0);
        }
    }
}

TYPED_TEST(IceEdge, PrioritiesAndFoundations)
{
    using T = TypeParam;
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_HOST, 1, 65535), 0x7EFFFFFFu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_SRFLX, 2, 0), 0x640000FEu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_RELAY, 1, 0x1234), 0x001234FFu);
    EXPECT_EQ(T::Priority(ICE_CAND_TYPE_PRFLX, 1, 65535), 0x6EFFFFFFu);
    // RFC 5245 5.7.2, with G the controlling side's candidate.
    EXPECT_EQ(qlox_gatewalk::ICELIB_pairPriority(10, 20), (10ull << 32) + 40 + 0);
    EXPECT_EQ(zyn_gatewalk::ICELIB_pairPriority(20, 10), (10ull << 32) + 40 + 1);
    if constexpr (!T::kZyn) {
        using namespace qlox_gatewalk;
        EXPECT_EQ(ICELIB_calculatePriority(ICE_CAND_TYPE_HOST, gatewalk::ICE_TRANS_TCPACT, 1, 65535), 0x63FFFFFFu);
        EXPECT_EQ(ICELIB_calculatePriority(ICE_CAND_TYPE_RELAY, gatewalk::ICE_TRANS_TCPPASS, 1, 0), 0x000000FFu);
        struct F {
            gatewalk::ICE_CANDIDATE_TYPE type;
            gatewalk::ICE_TRANSPORT transport;
            const char* text;
        };
        for (const F& f : {F{ICE_CAND_TYPE_HOST, gatewalk::ICE_TRANS_UDP, "1"}, F{ICE_CAND_TYPE_PRFLX, gatewalk::ICE_TRANS_UDP, "2"},
                           F{ICE_CAND_TYPE_SRFLX, gatewalk::ICE_TRANS_UDP, "3"}, F{ICE_CAND_TYPE_RELAY, gatewalk::ICE_TRANS_UDP, "4"},
                           F{ICE_CAND_TYPE_HOST, gatewalk::ICE_TRANS_TCPACT, "5"},
                           F{ICE_CAND_TYPE_RELAY, gatewalk::ICE_TRANS_TCPPASS, "12"},
                           F{gatewalk::ICE_CAND_TYPE_NONE, gatewalk::ICE_TRANS_UDP, "unknowntype"}}) {
            char text[33];
            ICELIB_createFoundation(text, f.type, f.transport, sizeof text);
            EXPECT_STREQ(text, f.text);
        }
        EXPECT_EQ(ICE_TRANSPORT_proto(gatewalk::ICE_TRANS_UDP), 17);
        EXPECT_EQ(ICE_TRANSPORT_proto(gatewalk::ICE_TRANS_TCPPASS), 6);
        EXPECT_EQ(ICE_TRANSPORT_proto(gatewalk::ICE_TRANS_NONE), -1);
    } else {
        using namespace zyn_gatewalk;
        char text[33];
        ICELIB_createFoundation(text, ICE_CAND_TYPE_SRFLX, sizeof text);
        EXPECT_STREQ(text, "3");
        EXPECT_EQ(ICELIB_getCandidateTypeWeight(ICE_CAND_TYPE_HOST), 50u);
        EXPECT_EQ(ICELIB_getCandidateTypeWeight(ICE_CAND_TYPE_PRFLX), 20u);
        EXPECT_EQ(ICELIB_calculateReadyWeight(ICE_CAND_TYPE_RELAY, ICE_CAND_TYPE_SRFLX, 100), (10u + 2 * 25u) * 100);
    }
    char ufrag[gatewalk::ICELIB_UFRAG_LENGTH];
    qlox_gatewalk::ICELIB_createUfrag(ufrag, sizeof ufrag);
    EXPECT_EQ(std::strlen(ufrag), sizeof ufrag - 1);
    EXPECT_EQ(std::strspn(ufrag, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"), sizeof ufrag - 1);
    char digits[4];
    qlox_gatewalk::ICELIB_longToIcechar(0x3F | (1u << 6) | (26u << 12), digits, sizeof digits);
    EXPECT_STREQ(digits, "/Ba");
}

TYPED_TEST(IceEdge, CheckListForming)
{
    using T = TypeParam;
    struct Case {
        const char* what;
        int local, remote;      // host candidates on one component, distinct addresses
        bool srflxOnHost;       // plus a srflx candidate based on the first host
        uint32_t pairs;
        uint32_t highestLocalUsed;  // last octet of the last local host address that pairs
    };
    const Case cases[] = {
        {"12 x 12 stops at 40 before the sort", 12, 12, false, 40, 4},
        {"srflx equal to its base after replacement", 1, 1, true, 1, 1},
        {"2 x 3", 2, 3, false, 6, 2},
    };
    for (const Case& c : cases) {
        this->TearDown();
        this->SetUp();
        SimNet<T>& n = *this->net_;
        n.AddStream(0, 0);
        n.AddStream(1, 0);
        for (int i = 0; i < c.local; ++i) {
            char ip[32];
            std::snprintf(ip, sizeof ip, "192.0.2.%d", i + 1);
            n.AddCandidate(0, 0, ip, 5000, 1, static_cast<uint16_t>(65535 - i));
        }
        if (c.srflxOnHost) n.AddCandidate(0, 0, "203.0.113.9", 7000, 1, 65535, ICE_CAND_TYPE_SRFLX, "192.0.2.1");
        for (int i = 0; i < c.remote; ++i) {
            char ip[32];
            std::snprintf(ip, sizeof ip, "198.51.100.%d", i + 1);
            n.AddCandidate(1, 0, ip, 6000, 1);
        }
        n.Exchange();
        n.Start(0, true, 1);
        const auto* cl = T::GetCheckList(this->a_, 0);
        ASSERT_NE(cl, nullptr);
        EXPECT_EQ(cl->numberOfPairs, c.pairs) << c.what;
        uint32_t highest = 0;
        for (uint32_t i = 0; i < cl->numberOfPairs; ++i) {
            const auto* sin = reinterpret_cast<const sockaddr_in*>(&cl->checkListPairs[i].localCandidate.connectionAddr);
            highest = std::max<uint32_t>(highest, ntohl(sin->sin_addr.s_addr) & 0xFF);
            EXPECT_EQ(cl->checkListPairs[i].localCandidate.type, ICE_CAND_TYPE_HOST) << c.what;
            if (i > 0) {
                EXPECT_GE(cl->checkListPairs[i - 1].pairPriority, cl->checkListPairs[i].pairPriority);
            }
        }
        EXPECT_EQ(highest, c.highestLocalUsed) << c.what;
        // One pair per foundation starts WAITING: all hosts share one, so only the best does.
        EXPECT_EQ(cl->checkListPairs[0].pairState, ICELIB_PAIR_WAITING) << c.what;
        for (uint32_t i = 1; i < cl->numberOfPairs; ++i) EXPECT_EQ(cl->checkListPairs[i].pairState, ICELIB_PAIR_FROZEN);
    }
}

TYPED_TEST(IceEdge, TcpCandidatesPairActiveWithPassiveOnly)
{
    using T = TypeParam;
    auto* a = this->a_;
    SimNet<T>& n = *this->net_;
    n.AddStream(0, 0);
    const sockaddr_storage l[3] = {Addr("192.0.2.1", 5000), Addr("192.0.2.1", 9), Addr("192.0.2.1", 5001)};
    const gatewalk::ICE_TRANSPORT tr[3] = {gatewalk::ICE_TRANS_UDP, gatewalk::ICE_TRANS_TCPACT, gatewalk::ICE_TRANS_TCPPASS};
    const sockaddr_storage def = Addr("198.51.100.1", 6000);
    T::AddRemoteMediaStream(a, 0, "uf", "pw", Sa(def));
    for (int i = 0; i < 3; ++i) {
        const int local = T::AddLocalCandidate(a, 0, 1, Sa(l[i]), nullptr, tr[i], ICE_CAND_TYPE_HOST, 65535);
        const int remote = T::AddRemoteCandidate(a, 0, "1", 1, 100u - static_cast<uint32_t>(i), "198.51.100.1",
                                                 static_cast<uint16_t>(6000 + i), tr[i], ICE_CAND_TYPE_HOST);
        // zyn_gatewalk runs over UDP only.
        EXPECT_EQ(local, T::kZyn && i > 0 ? -1 : i);
        EXPECT_EQ(remote, T::kZyn && i > 0 ? -1 : i);
    }
    ASSERT_TRUE(T::Start(a, true, 1));
    const auto* cl = T::GetCheckList(a, 0);
    if constexpr (T::kZyn) {
        EXPECT_EQ(cl->numberOfPairs, 1u);
    } else {
        // udp-udp and tcpact-tcppass; tcppass-tcpact is formed, then pruned: a passive end sends nothing.
        ASSERT_EQ(cl->numberOfPairs, 2u);
        for (uint32_t i = 0; i < 2; ++i) {
            const auto& p = cl->checkListPairs[i];
            if (p.localCandidate.transport == gatewalk::ICE_TRANS_UDP) {
                EXPECT_EQ(p.remoteCandidate.transport, gatewalk::ICE_TRANS_UDP);
            } else {
                EXPECT_EQ(p.localCandidate.transport, gatewalk::ICE_TRANS_TCPACT);
                EXPECT_EQ(p.remoteCandidate.transport, gatewalk::ICE_TRANS_TCPPASS);
            }
        }
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
    EXPECT_FALSE(n.ep[0].iceFailed);
    EXPECT_FALSE(n.ep[1].iceFailed);
}

TYPED_TEST(IceEdge, TwoStreamsAlternateAndTheSecondWaitsFrozen)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->AgainstEcho(2);
    ASSERT_TRUE(T::Start(this->a_, true, 1));
    n.ep[0].started = true;
    const auto* second = T::GetCheckList(this->a_, 1);
    for (uint32_t i = 0; i < second->numberOfPairs; ++i) EXPECT_EQ(second->checkListPairs[i].pairState, ICELIB_PAIR_FROZEN);
    n.hold = true;  // no answers yet: the first stream has no valid pair, so the second stays frozen
    for (int i = 0; i < 5; ++i) n.Step();
    for (uint32_t i = 0; i < second->numberOfPairs; ++i) EXPECT_EQ(second->checkListPairs[i].pairState, ICELIB_PAIR_FROZEN);
    this->TearDown();
    this->SetUp();
    SimNet<T>& m = *this->net_;
    this->AgainstEcho(2);
    ASSERT_TRUE(T::Start(this->a_, true, 1));
    m.ep[0].started = true;
    for (int i = 0; i < 4; ++i) m.Step();
    // Round robin over the streams: host of stream 0, host of stream 1 (unfrozen by the first
    // answer), relay of stream 0.
    ASSERT_GE(m.nChecks, 3);
    const char* order[] = {"192.0.2.10:5000", "192.0.2.11:5000", "192.0.2.10:5002"};
    for (int i = 0; i < 3; ++i) {
        char text[64];
        gatewalk::sockaddr_toString(Sa(m.checks[i].source), text, sizeof text, true);
        EXPECT_STREQ(text, order[i]) << i;
    }
}

TYPED_TEST(IceEdge, UseCandidateOnAWaitingPairIsAnsweredOnlyOnceThePairRan)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(1, false, 2);  // B is the agent under test; A's checks are made by hand
    auto* b = this->b_;
    const gatewalk::ICE_MEDIA_STREAM* lb = T::GetLocalMediaStream(b, 0);
    const gatewalk::ICE_MEDIA_STREAM* la = T::GetLocalMediaStream(this->a_, 0);
    char user[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(user, sizeof user, "%s:%s", lb->ufrag, la->ufrag);
    const sockaddr_storage from = Addr("192.0.2.1", 5000), to = Addr("198.51.100.1", 6000);
    const StunMsgId id = qlox_gatewalk::ICELIB_generateTransactionId();
    auto useCandidate = [&] {
        T::IncomingRequest(b, 0, 0, user, 0x6EFFFFFF, true, true, false, 1, id, 0, Sa(from), Sa(to), false, nullptr, 1);
    };
    ASSERT_EQ(T::GetCheckList(b, 0)->checkListPairs[0].pairState, ICELIB_PAIR_WAITING);
    useCandidate();
    EXPECT_EQ(n.ep[1].responsesSent, 0);
    EXPECT_TRUE(n.ep[1].Logged("Not ready to send response at this time. Hoping the remote side will retransmit"));
    // B's own check runs and is answered by hand; then the peer's retransmission is answered.
    n.hold = true;
    n.Step();
    ASSERT_EQ(n.count, 1);
    const StunMsgId bCheck = n.ep[1].tx[0].id;
    T::IncomingResponse(b, 200, bCheck, Sa(from), Sa(to), Sa(to));
    EXPECT_EQ(T::GetCheckList(b, 0)->checkListPairs[0].pairState, ICELIB_PAIR_SUCCEEDED);
    useCandidate();
    EXPECT_EQ(n.ep[1].responsesSent, 1);
    EXPECT_EQ(n.ep[1].lastResponseCode, 200);
    EXPECT_TRUE(T::GetValidList(b, 0)->pairs[0].nominatedPair);
    n.count = 0;
    n.hold = false;
    n.Step();
    EXPECT_TRUE(T::IsIceComplete(b));
}

TYPED_TEST(IceEdge, RoleConflictAnswerAfterASwapReRunsWithoutSwappingBack)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 5);
    auto* a = this->a_;
    const sockaddr_storage local = Addr("192.0.2.1", 5000), remote = Addr("198.51.100.1", 6000);
    n.hold = true;
    for (int round = 0; round < 3; ++round) {
        n.count = 0;
        n.Step();
        ASSERT_EQ(n.count, 1) << round;
        const Tx* sent = nullptr;
        for (const Tx& t : n.ep[0].tx) {
            if (t.used && t.lastTick == n.tick) sent = &t;
        }
        ASSERT_NE(sent, nullptr);
        T::IncomingResponse(a, 487, sent->id, Sa(remote), Sa(local), nullptr);
        // The first 487 swaps; later ones leave the role and only run the pair again.
        EXPECT_FALSE(T::IsControlling(a)) << round;
        EXPECT_EQ(T::GetCheckList(a, 0)->checkListPairs[0].pairState, ICELIB_PAIR_WAITING) << round;
    }
    EXPECT_TRUE(n.ep[0].Logged("Receive response 487 Role Conflict, and role has swapped, trandactionID:"));
}

TYPED_TEST(IceEdge, AfterCompletionChecksAreStillAnsweredButNotWithAWrongUfrag)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 1);
    n.Start(1, false, 2);
    ASSERT_TRUE(n.Run(300));
    const gatewalk::ICE_MEDIA_STREAM* lb = T::GetLocalMediaStream(this->b_, 0);
    const gatewalk::ICE_MEDIA_STREAM* la = T::GetLocalMediaStream(this->a_, 0);
    char good[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH], bad[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(good, sizeof good, "%s:%s", lb->ufrag, la->ufrag);
    std::snprintf(bad, sizeof bad, "%s:%s", lb->ufrag, "someoneelse");
    const sockaddr_storage from = Addr("192.0.2.1", 5000), to = Addr("198.51.100.1", 6000);
    struct Case {
        const char* user;
        uint16_t code;
    };
    for (const Case& c : {Case{good, 200}, Case{bad, 400}}) {
        const int before = n.ep[1].responsesSent;
        T::IncomingRequest(this->b_, 0, 0, c.user, 1, false, true, false, 1, qlox_gatewalk::ICELIB_generateTransactionId(), 0,
                           Sa(from), Sa(to), false, nullptr, 1);
        EXPECT_EQ(n.ep[1].responsesSent, before + 1) << c.user;
        EXPECT_EQ(n.ep[1].lastResponseCode, c.code) << c.user;
    }
    // Keep-alives follow completion in qlox_gatewalk only.
    for (int i = 0; i < 250; ++i) n.Step();  // past keepAliveIntervalS (1 s) of ticks
    if (T::kZyn) {
        EXPECT_EQ(n.ep[0].keepAlives, 0);
    } else {
        EXPECT_GE(n.ep[0].keepAlives, 1);
    }
}

TYPED_TEST(IceEdge, RestartIsAChangedRemoteUfragOrPassword)
{
    using T = TypeParam;
    auto* a = this->a_;
    const sockaddr_storage def = Addr("198.51.100.1", 6000);
    if constexpr (T::kZyn) {
        EXPECT_FALSE(zyn_gatewalk::ICELIB_isRestart(a, 0, "uf", "pw"));
    } else {
        EXPECT_FALSE(qlox_gatewalk::ICELIB_isRestart(a, 0, "uf", "pw"));
    }
    EXPECT_TRUE(this->net_->ep[0].Logged("<ICELIB> Checking invalid medialine\n"));
    T::AddRemoteMediaStream(a, 0, "uf", "pw", Sa(def));
    auto restart = [a](const char* u, const char* p) {
        if constexpr (T::kZyn) return zyn_gatewalk::ICELIB_isRestart(a, 0, u, p);
        else return qlox_gatewalk::ICELIB_isRestart(a, 0, u, p);
    };
    EXPECT_FALSE(restart("uf", "pw"));
    EXPECT_TRUE(restart("uf2", "pw"));
    EXPECT_TRUE(restart("uf", "pw2"));
}

}  // namespace
