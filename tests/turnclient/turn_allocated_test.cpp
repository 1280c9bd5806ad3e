// Life of an allocation: refresh timing, permissions and the channel with their refreshes, answers
// lost or refused, the busy states, and release.
#include "turn_test_util.h"

namespace {

using namespace turn_test;
using namespace gatewalk;

template <class P>
class TurnAllocated : public ::testing::Test {};
TYPED_TEST_SUITE(TurnAllocated, Profiles);

TYPED_TEST(TurnAllocated, RefreshAtHalfTheLifetime)
{
    struct Row {
        uint32_t lifetime;
        uint32_t refreshAt;  // ms, 0: never
    };
    const Row rows[] = {{600, 300000}, {3, 1000}, {1, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.lifetime);
        FakeServer<TypeParam> s;
        s.Allocate(row.lifetime);
        uint32_t at = s.NextSendOf(STUN_MSG_RefreshRequestMsg, 700000);
        EXPECT_EQ(at, row.refreshAt);
        if (at == 0) continue;
        auto refresh = s.Last();
        EXPECT_TRUE(refresh->hasLifetime && refresh->lifetime == row.lifetime);
        EXPECT_STREQ(refresh->nonce.value, kNonce);
        EXPECT_TRUE(s.LastIsSigned());
        // The answer's lifetime sets the next refresh; a refresh that works is not reported.
        ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_RefreshResponseMsg, [](auto& m) {
            m.hasLifetime = 1;
            m.lifetime = 100;
        })));
        EXPECT_EQ(s.NextSendOf(STUN_MSG_RefreshRequestMsg, 100000), 50000u);
        EXPECT_TRUE(s.results.empty());
    }
}

TYPED_TEST(TurnAllocated, KeepAliveEvery15SecondsWithoutWaiting)
{
    FakeServer<TypeParam> s;
    s.Allocate();
    EXPECT_EQ(s.NextSendOf(STUN_MSG_BindRequestMsg, 20000), 15000u);
    ASSERT_EQ(s.sent.back().bytes.size(), 20u) << "a bare Binding request";
    auto answer = FakeServer<TypeParam>::NewMsg();
    answer->msgHdr.type = STUN_MSG_BindResponseMsg;
    answer->msgHdr.id = s.Last()->msgHdr.id;
    EXPECT_TRUE(TypeParam::HandleIncResp(s.inst, answer.get(), nullptr)) << "its answer is recognised";
    EXPECT_EQ(s.State(), TURN_STATE_Allocated);
    EXPECT_EQ(s.NextSendOf(STUN_MSG_BindRequestMsg, 20000), 15000u);
}

TYPED_TEST(TurnAllocated, PermissionAndChannelAreRefreshedBeforeTheyLapse)
{
    FakeServer<TypeParam> s;
    s.Allocate(3600);
    s.Permit();
    s.Bind(0x4abc);
    EXPECT_EQ(s.results, (std::vector{TurnResult_CreatePermissionOk, TurnResult_ChanBindOk}));
    // Both were installed at 0 ms: the channel's refresh (180 s) comes first, the permission's at 240 s.
    EXPECT_EQ(s.NextSendOf(STUN_MSG_ChannelBindRequestMsg, 300000), 180000u);
    auto bind = s.Last();
    EXPECT_EQ(bind->channelNumber.channel, 0x4abc);
    ASSERT_EQ(bind->xorPeerAddrEntries, 1u);
    EXPECT_EQ(bind->xorPeerAddress[0].port, 7000);
    EXPECT_TRUE(s.LastIsSigned());
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_ChannelBindResponseMsg)));
    EXPECT_EQ(s.NextSendOf(STUN_MSG_CreatePermissionRequestMsg, 300000), 60000u);
    auto permission = s.Last();
    ASSERT_EQ(permission->xorPeerAddrEntries, 1u);
    EXPECT_EQ(permission->xorPeerAddress[0].port, 7000);
    EXPECT_TRUE(s.LastIsSigned());
}

TYPED_TEST(TurnAllocated, ChannelBindAskedDuringAPermissionGoesRightAfterIt)
{
    FakeServer<TypeParam> s;
    s.Allocate();
    ASSERT_TRUE(s.Ask(TURN_SIGNAL_CreatePermissionReq));
    ASSERT_TRUE(s.Ask(TURN_SIGNAL_ChannelBindReq, 0x4002, "[2001:db8::9]:7001"));
    EXPECT_EQ(s.sent.size(), 1u) << "buffered, not sent";
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_CreatePermissionResponseMsg)));
    ASSERT_EQ(s.sent.size(), 2u);
    auto bind = s.Last();
    EXPECT_EQ(bind->msgHdr.type, STUN_MSG_ChannelBindRequestMsg);
    EXPECT_EQ(bind->channelNumber.channel, 0x4002);
    EXPECT_EQ(bind->xorPeerAddress[0].familyType, STUN_ADDR_IPv6Family);
    EXPECT_FALSE(s.Ask(TURN_SIGNAL_CreatePermissionReq)) << "one request at a time";
    EXPECT_FALSE(s.Ask(TURN_SIGNAL_ChannelBindReq, 0x3FFF)) << "below the channel range";
}

// The answers each request of the allocated life can get, and where each leaves the instance.
TYPED_TEST(TurnAllocated, AnswersToEachRequest)
{
    struct Row {
        const char* name;
        TURN_SIGNAL ask;
        int code;  // 0: success, -1: no answer at all
        TurnResult_T result;  // TurnResult_Empty: none
        TURN_STATE state;
    };
    const Row rows[] = {
        {"permission ok", TURN_SIGNAL_CreatePermissionReq, 0, TurnResult_CreatePermissionOk, TURN_STATE_Allocated},
        {"permission forbidden", TURN_SIGNAL_CreatePermissionReq, 403, TurnResult_CreatePermissionFail, TURN_STATE_Allocated},
        {"permission quota", TURN_SIGNAL_CreatePermissionReq, 486, TurnResult_CreatePermissionQuotaReached, TURN_STATE_Allocated},
        {"permission mismatch", TURN_SIGNAL_CreatePermissionReq, 437, TurnResult_CreatePermissionFail, TURN_STATE_Allocated},
        {"permission lost", TURN_SIGNAL_CreatePermissionReq, -1, TurnResult_CreatePermissionNoAnswer, TURN_STATE_Allocated},
        {"channel refused", TURN_SIGNAL_ChannelBindReq, 400, TurnResult_ChanBindFail, TURN_STATE_Allocated},
        {"channel lost", TURN_SIGNAL_ChannelBindReq, -1, TurnResult_ChanBindFailNoanswer, TURN_STATE_Allocated},
        {"refresh ok", TURN_SIGNAL_TimerRefreshAlloc, 0, TurnResult_Empty, TURN_STATE_Allocated},
        {"refresh mismatch", TURN_SIGNAL_TimerRefreshAlloc, 437, TurnResult_RefreshFail, TURN_STATE_Idle},
        {"refresh lost", TURN_SIGNAL_TimerRefreshAlloc, -1, TurnResult_RefreshFailNoAnswer, TURN_STATE_Idle},
        {"release ok", TURN_SIGNAL_DeAllocate, 0, TurnResult_RelayReleaseComplete, TURN_STATE_Idle},
        {"release mismatch", TURN_SIGNAL_DeAllocate, 437, TurnResult_RelayReleaseComplete, TURN_STATE_Idle},
        {"release lost", TURN_SIGNAL_DeAllocate, -1, TurnResult_RelayReleaseFailed, TURN_STATE_Idle},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        s.Allocate();
        ASSERT_TRUE(s.Ask(row.ask));
        auto request = s.Last();
        if (row.ask == TURN_SIGNAL_DeAllocate) {
            EXPECT_TRUE(request->hasLifetime && request->lifetime == 0);
        }
        const uint16_t success = request->msgHdr.type | 0x0100;
        if (row.code == 0) {
            ASSERT_TRUE(s.Answer(s.Response(success)));
        } else if (row.code > 0) {
            ASSERT_TRUE(s.Answer(s.Error(success | 0x0010, static_cast<uint16_t>(row.code))));
        } else {
            s.Advance(3600);
            EXPECT_EQ(s.sent.size(), 10u) << "10 sends over 3600 ms";
        }
        EXPECT_EQ(s.results, row.result == TurnResult_Empty ? std::vector<TurnResult_T>{} : std::vector{row.result});
        EXPECT_EQ(s.State(), row.state);
        EXPECT_EQ(s.inst->permissionsInstalled, row.ask == TURN_SIGNAL_CreatePermissionReq && row.code == 0);
        EXPECT_FALSE(TypeParam::HasBoundChannel(s.inst));
        if (row.state == TURN_STATE_Idle) {
            EXPECT_EQ(s.inst->TimerRefreshAlloc + s.inst->TimerStunKeepAlive + s.inst->TimerRetransmit, 0)
                << "all timers stop in Idle";
        }
    }
}

TYPED_TEST(TurnAllocated, StaleNonceRenewsTheNonceForEveryKindOfRequest)
{
    for (TURN_SIGNAL ask : {TURN_SIGNAL_CreatePermissionReq, TURN_SIGNAL_ChannelBindReq, TURN_SIGNAL_TimerRefreshAlloc,
                            TURN_SIGNAL_DeAllocate}) {
        SCOPED_TRACE(TurnSignalToStr(ask));
        FakeServer<TypeParam> s;
        s.Allocate();
        ASSERT_TRUE(s.Ask(ask));
        auto first = s.Last();
        TURN_STATE waiting = s.State();
        ASSERT_TRUE(s.Answer(s.Error(first->msgHdr.type | 0x0110, 438, "nonce-2")));
        ASSERT_EQ(s.sent.size(), 2u);
        auto again = s.Last();
        EXPECT_EQ(again->msgHdr.type, first->msgHdr.type);
        EXPECT_NE(0, std::memcmp(again->msgHdr.id.octet, first->msgHdr.id.octet, 12));
        EXPECT_STREQ(again->nonce.value, "nonce-2");
        EXPECT_STREQ(again->realm.value, kRealm) << "a 438 without REALM keeps the realm";
        EXPECT_TRUE(s.LastIsSigned());
        EXPECT_EQ(s.State(), waiting);
        EXPECT_TRUE(s.results.empty());
        ASSERT_TRUE(s.Answer(s.Response(first->msgHdr.type | 0x0100)));
        if (s.State() == TURN_STATE_Allocated) {
            s.Ask(TURN_SIGNAL_TimerRefreshAlloc);
            EXPECT_STREQ(s.Last()->nonce.value, "nonce-2") << "later requests carry it too";
        }
    }
}

TYPED_TEST(TurnAllocated, RefreshTimersThatFireWhileBusyComeBackSoonAfter)
{
    using I = TurnInstanceData<typename TypeParam::Msg>;
    struct Row {
        TURN_SIGNAL busyWith;
        int32_t I::*timer;
        int32_t setTo;
    };
    const Row rows[] = {
        {TURN_SIGNAL_TimerRefreshAlloc, &I::TimerRefreshChannel, 2000},
        {TURN_SIGNAL_TimerRefreshAlloc, &I::TimerRefreshPermission, 3000},
        {TURN_SIGNAL_ChannelBindReq, &I::TimerRefreshAlloc, 3000},
        {TURN_SIGNAL_ChannelBindReq, &I::TimerRefreshPermission, 2000},
        {TURN_SIGNAL_CreatePermissionReq, &I::TimerRefreshAlloc, 3000},
        {TURN_SIGNAL_CreatePermissionReq, &I::TimerRefreshChannel, 2000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(TurnSignalToStr(row.busyWith));
        FakeServer<TypeParam> s;
        s.Allocate();
        s.Permit();
        s.Bind();
        ASSERT_TRUE(s.Ask(row.busyWith));
        size_t sends = s.sent.size();
        s.inst->*row.timer = static_cast<int32_t>(kTickMs);  // fires at the next tick
        TypeParam::Tick(s.inst);
        EXPECT_EQ(s.inst->*row.timer, row.setTo);
        EXPECT_EQ(s.sent.size(), sends) << "nothing sent while busy";
    }
}

TYPED_TEST(TurnAllocated, ReleaseFromABusyState)
{
    FakeServer<TypeParam> s;
    s.Allocate();
    s.Permit();
    s.results.clear();
    ASSERT_TRUE(s.Ask(TURN_SIGNAL_ChannelBindReq));
    Bytes lateBind = s.Response(STUN_MSG_ChannelBindResponseMsg);
    ASSERT_TRUE(TypeParam::Deallocate(s.inst));
    EXPECT_EQ(s.State(), TURN_STATE_WaitReleaseResp);
    EXPECT_FALSE(s.Answer(lateBind)) << "the abandoned bind's answer is not the release's";
    EXPECT_TRUE(s.Answer(s.Response(STUN_MSG_RefreshResponseMsg)));
    EXPECT_EQ(s.results, std::vector{TurnResult_RelayReleaseComplete});
    TypeParam::Simulate(s.inst, TURN_SIGNAL_AllocateResp);  // without its message: refused
    EXPECT_EQ(s.State(), TURN_STATE_Idle);
    EXPECT_FALSE(TypeParam::Deallocate(s.inst));
}

}  // namespace
