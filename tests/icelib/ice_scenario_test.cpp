// Two agents against each other over the in-memory network, in both profiles: they must conclude on
// the same pair, with checks that carry what RFC 5245 asks on the wire.
#include <gtest/gtest.h>

#include "ice_fixture.h"

namespace {

using namespace icetest;
using gatewalk::ICE_CAND_TYPE_HOST;
using gatewalk::ICE_CAND_TYPE_PRFLX;

template <class T>
class IceScenario : public IceFixture<T> {};

TYPED_TEST_SUITE(IceScenario, Profiles);

TYPED_TEST(IceScenario, HostPairConcludesAndChecksCarryTheIceAttributes)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 0x1111);
    n.Start(1, false, 0x2222);
    ASSERT_TRUE(n.Run(200));
    this->ExpectSamePair(1, 1);

    const gatewalk::ICE_MEDIA_STREAM* la = T::GetLocalMediaStream(this->a_, 0);
    const gatewalk::ICE_MEDIA_STREAM* lb = T::GetLocalMediaStream(this->b_, 0);
    char aToB[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH], bToA[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(aToB, sizeof aToB, "%s:%s", lb->ufrag, la->ufrag);
    std::snprintf(bToA, sizeof bToA, "%s:%s", la->ufrag, lb->ufrag);
    const uint32_t checkPriority = T::Priority(ICE_CAND_TYPE_PRFLX, 1, 65535);
    EXPECT_EQ(checkPriority, 0x6EFFFFFFu);
    int useCandidates = 0;
    ASSERT_GT(n.nChecks, 1);
    for (int i = 0; i < n.nChecks; ++i) {
        const WireCheck& c = n.checks[i];
        SCOPED_TRACE(i);
        EXPECT_TRUE(c.integrityOk);  // keyed with the receiver's password, checked by the receiver
        EXPECT_TRUE(c.fingerprint);
        EXPECT_EQ(c.priority, checkPriority);
        if (c.from == 0) {
            EXPECT_STREQ(c.username, aToB);
            EXPECT_TRUE(c.controlling);
            EXPECT_FALSE(c.controlled);
            EXPECT_EQ(c.tieBreaker, 0x1111u);
            useCandidates += c.useCandidate ? 1 : 0;
        } else {
            EXPECT_STREQ(c.username, bToA);
            EXPECT_TRUE(c.controlled);
            EXPECT_FALSE(c.controlling);
            EXPECT_EQ(c.tieBreaker, 0x2222u);
            EXPECT_FALSE(c.useCandidate);
        }
    }
    EXPECT_EQ(useCandidates, 1);  // one nomination for the one component
}

TYPED_TEST(IceScenario, SeveralStreamsAndComponentsNominateOncePerComponent)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    const char* ips[2][2] = {{"192.0.2.1", "192.0.2.2"}, {"198.51.100.1", "198.51.100.2"}};
    for (int e = 0; e < 2; ++e) {
        for (int s = 0; s < 2; ++s) {
            n.AddStream(e, s);
            n.AddCandidate(e, s, ips[e][s], static_cast<uint16_t>(5000 + 2 * s), 1);
            n.AddCandidate(e, s, ips[e][s], static_cast<uint16_t>(5001 + 2 * s), 2);
        }
    }
    n.Exchange();
    n.Start(0, true, 7);
    n.Start(1, false, 9);
    ASSERT_TRUE(n.Run(300));
    this->ExpectSamePair(2, 2);
    int nominations[2][3] = {};
    for (int i = 0; i < n.nChecks; ++i) {
        const WireCheck& c = n.checks[i];
        if (!c.useCandidate) continue;
        ASSERT_EQ(c.from, 0);
        const int stream = gatewalk::sockaddr_sameAddr(Sa(c.source), Sa(Addr(ips[0][0], 0))) ? 0 : 1;
        const int comp = (gatewalk::sockaddr_ipPort(Sa(c.source)) % 2 == 0) ? 1 : 2;
        ++nominations[stream][comp];
    }
    for (int s = 0; s < 2; ++s) {
        EXPECT_EQ(nominations[s][1], 1) << "stream " << s;
        EXPECT_EQ(nominations[s][2], 1) << "stream " << s;
    }
}

TYPED_TEST(IceScenario, SideWithMoreCandidatesConcludesOnItsBestOne)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    n.AddStream(0, 0);
    n.AddStream(1, 0);
    n.AddCandidate(0, 0, "192.0.2.3", 5000, 1, 60000);
    n.AddCandidate(0, 0, "192.0.2.1", 5000, 1, 65535);
    n.AddCandidate(0, 0, "192.0.2.2", 5000, 1, 50000);
    n.AddCandidate(1, 0, "198.51.100.1", 6000, 1);
    n.Exchange();
    n.Start(0, false, 3);
    n.Start(1, true, 4);
    ASSERT_TRUE(n.Run(300));
    this->ExpectSamePair(1, 1);
    const gatewalk::ICE_CANDIDATE* la = T::GetActiveCandidate(this->a_, 0, 1);
    ASSERT_NE(la, nullptr);
    EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(la->connectionAddr), Sa(Addr("192.0.2.1", 5000))));
    EXPECT_EQ(T::GetCheckList(this->b_, 0)->componentList.numberOfComponents, 1u);
}

// The first check of A is lost with all its copies, and B starts just as A gives up on it: A must
// see the timeout and fail the pair, and the check B's first request triggers must then succeed.
// (Had B come a tick later, every pair of A would have been done and A would have nominated with
// nothing valid: the list is stopped then, and ICE fails at the time limit.)
struct LossState {
    bool haveFirst = false;
    StunMsgId first{};
};

bool DropFirstCheck(void* ctx, const Packet& p)
{
    auto* s = static_cast<LossState*>(ctx);
    if (!p.IsRequest() || p.from != 0) return false;
    if (!s->haveFirst) {
        s->haveFirst = true;
        s->first = p.Id();
    }
    const StunMsgId id = p.Id();
    return gatewalk::stunlib_transIdIsEqual(&s->first, &id);
}

TYPED_TEST(IceScenario, LostFirstCheckTimesOutThenALaterCheckSucceeds)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    LossState loss;
    n.drop = &DropFirstCheck;
    n.dropCtx = &loss;
    n.Start(0, true, 100);
    const int timeoutTick = 1 + kRtoTicks * kMaxSends;  // first copy at tick 1
    while (n.tick < timeoutTick - 1) n.Step();
    ASSERT_EQ(n.ep[0].timeouts, 0);
    n.Start(1, false, 200);
    n.Step();
    ASSERT_EQ(n.ep[0].timeouts, 1);
    EXPECT_EQ(n.dropped, kMaxSends);
    EXPECT_TRUE(n.ep[0].Logged("7.2.1.4 Failed"));  // B's check found the failed pair and re-ran it
    ASSERT_TRUE(n.Run(400));
    this->ExpectSamePair(1, 1);
}

// Every answer is lost for a while, so each side keeps repeating its check while the other's check
// of the same pair is in flight: each repeat cancels and re-triggers that check. However many times
// that happens, the pair must still be checked once answers get through again.
struct AnswerLoss {
    const int* tick;
    int untilTick;
};

bool DropAnswersForAWhile(void* ctx, const Packet& p)
{
    const auto* s = static_cast<const AnswerLoss*>(ctx);
    return !p.IsRequest() && *s->tick < s->untilTick;
}

TYPED_TEST(IceScenario, RepeatedPeerChecksDuringOurOwnNeverStallThePair)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.Exchange();
    AnswerLoss loss{&n.tick, 3 * kRtoTicks * kMaxSends};
    n.drop = &DropAnswersForAWhile;
    n.dropCtx = &loss;
    n.Start(0, true, 0x77);
    n.Start(1, false, 0x88);
    ASSERT_TRUE(n.Run(400));
    EXPECT_FALSE(n.ep[0].iceFailed);
    EXPECT_FALSE(n.ep[1].iceFailed);
    this->ExpectSamePair(1, 1);
    // More cancelled checks than a pair remembers: the scenario really overflowed the table.
    EXPECT_GT(n.ep[0].cancels, static_cast<int>(gatewalk::ICELIB_MAX_NO_OF_TRANSID));
}

TYPED_TEST(IceScenario, NatRewriteGivesPeerReflexiveCandidatesOnBothSides)
{
    using T = TypeParam;
    SimNet<T>& n = *this->net_;
    this->HostPair();
    n.natOn = true;
    n.natInside = Addr("192.0.2.1", 5000);
    n.natOutside = Addr("203.0.113.5", 6000);
    n.unreachable[n.nUnreachable++] = Addr("192.0.2.1", 5000);  // a private address, not routed from B
    n.Exchange();
    n.Start(0, true, 5);
    n.Start(1, false, 6);
    ASSERT_TRUE(n.Run(400));
    this->ExpectSamePair(1, 1);
    const gatewalk::ICE_CANDIDATE* la = T::GetActiveCandidate(this->a_, 0, 1);
    ASSERT_NE(la, nullptr);
    EXPECT_EQ(la->type, ICE_CAND_TYPE_PRFLX);
    EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(la->connectionAddr), Sa(n.natOutside)));
    EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(la->relAddr), Sa(n.natInside)));  // its base
    EXPECT_EQ(T::GetActiveRemoteCandidates(this->b_, 0)->remoteCandidate[0].type, ICE_CAND_TYPE_PRFLX);
    EXPECT_TRUE(n.ep[1].Logged("Making peer refelxive remote Candidate"));
}

TYPED_TEST(IceScenario, LiteAgentOnlyAnswersAndTakesThePeersNomination)
{
    SimNet<TypeParam>& n = *this->net_;
    typename TypeParam::Config lite = this->Config();
    lite.iceLite = true;
    n.InitOne(1, this->b_, lite);
    this->HostPair();
    n.Exchange();
    n.Start(0, true, 1);
    n.Start(1, false, 2);
    ASSERT_TRUE(n.Run(300));
    this->ExpectSamePair(1, 1);
    for (int i = 0; i < n.nChecks; ++i) EXPECT_EQ(n.checks[i].from, 0);
}

TYPED_TEST(IceScenario, RoleConflictIsResolvedByTheTieBreaker)
{
    using T = TypeParam;
    struct Case {
        uint64_t tieA, tieB;
    };
    for (const Case& c : {Case{0x9000, 0x10}, Case{0x10, 0x9000}}) {
        this->TearDown();
        this->SetUp();
        SimNet<T>& n = *this->net_;
        this->HostPair();
        n.Exchange();
        n.Start(0, true, c.tieA);
        n.Start(1, true, c.tieB);
        ASSERT_TRUE(n.Run(400));
        this->ExpectSamePair(1, 1);
        EXPECT_EQ(T::IsControlling(this->a_), c.tieA > c.tieB);
        EXPECT_EQ(T::IsControlling(this->b_), c.tieB > c.tieA);
        // The winner's checks keep saying controlling; the loser ends up saying controlled.
        const int winner = c.tieA > c.tieB ? 0 : 1;
        bool loserSaidControlled = false;
        for (int i = 0; i < n.nChecks; ++i) {
            if (n.checks[i].from == winner) {
                EXPECT_TRUE(n.checks[i].controlling);
            } else {
                loserSaidControlled |= n.checks[i].controlled;
            }
        }
        EXPECT_TRUE(loserSaidControlled);
    }
}

TYPED_TEST(IceScenario, NothingAnswersFailsOnTheFirstTickPastTheTimeLimit)
{
    using T = TypeParam;
    struct Case {
        uint32_t configuredMs;
        int failTick;
    };
    // qlox_gatewalk has a fixed 5000 ms; zyn_gatewalk takes the configured limit, 10000 ms by default.
    const Case cases[] = {{0, static_cast<int>(T::kTimeLimitMs / 10) + 1}, {3000, T::kZyn ? 301 : 501}};
    for (const Case& c : cases) {
        this->TearDown();
        this->SetUp();
        SimNet<T>& n = *this->net_;
        n.Init(this->a_, this->b_, this->Config(c.configuredMs));
        this->HostPair();
        n.Exchange();
        n.Start(0, true, 1);  // B never starts and so never answers
        n.Run(c.failTick - 1);
        EXPECT_EQ(n.ep[0].completeCalls, 0) << c.configuredMs;
        n.Step();
        EXPECT_EQ(n.ep[0].completeCalls, 1) << c.configuredMs;
        EXPECT_TRUE(n.ep[0].iceFailed);
        EXPECT_EQ(T::GetState(this->a_), gatewalk::ICELIB_FAILED);
        EXPECT_TRUE(n.ep[0].Logged("ICE failed (Timeout)"));
        const int sent = n.nChecks;  // a failed agent checks no more
        for (int i = 0; i < 50; ++i) n.Step();
        EXPECT_EQ(n.nChecks, sent);
    }
}

}  // namespace
