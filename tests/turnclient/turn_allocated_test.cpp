// Life of an allocation: refresh timing, permissions and the channel with their refreshes, answers
// lost or refused, the busy states, and release.
#include "turn_test_util.h"

namespace {

using namespace turn_test;
using namespace gatewalk;

// Time (ms from now) at which the first request of `type` leaves, or 0 if none within `limit`.
template <class P>
uint32_t NextSendOf(FakeServer<P>& s, uint16_t type, uint32_t limit)
{
    for (uint32_t now = kTickMs; now <= limit; now += kTickMs) {
        size_t before = s.sent.size();
        P::Tick(s.inst);
        for (size_t i = before; i < s.sent.size(); ++i) {
            auto m = FakeServer<P>::NewMsg();
            if (P::Decode(s.sent[i].bytes, m.get()) && m->msgHdr.type == type) return now;
        }
    }
    return 0;
}

template <class P>
class TurnAllocated : public ::testing::Test {
protected:
    FakeServer<P> s;
};
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
        uint32_t at = NextSendOf(s, STUN_MSG_RefreshRequestMsg, 700000);
        EXPECT_EQ(at, row.refreshAt);
        if (at == 0) continue;
        auto refresh = s.Last();
        ASSERT_TRUE(refresh->hasLifetime);
        EXPECT_EQ(refresh->lifetime, row.lifetime);
        EXPECT_TRUE(refresh->hasSoftware);
        EXPECT_STREQ(refresh->nonce.value, kNonce);
        Bytes bytes = s.sent.back().bytes;
        EXPECT_TRUE(TypeParam::CheckIntegrity(bytes, refresh.get(), s.key));
        EXPECT_EQ(s.State(), TURN_STATE_WaitAllocRefreshResp);
        // The answer's lifetime sets the next refresh.
        ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_RefreshResponseMsg, [](auto& m) {
            m.hasLifetime = 1;
            m.lifetime = 100;
        })));
        EXPECT_EQ(s.State(), TURN_STATE_Allocated);
        EXPECT_EQ(NextSendOf(s, STUN_MSG_RefreshRequestMsg, 100000), 50000u);
        EXPECT_TRUE(s.results.empty()) << "a refresh that works is not reported";
    }
}

TYPED_TEST(TurnAllocated, KeepAliveEvery15SecondsWithoutWaiting)
{
    auto& s = this->s;
    s.Allocate();
    EXPECT_EQ(NextSendOf(s, STUN_MSG_BindRequestMsg, 20000), 15000u);
    ASSERT_EQ(s.sent.back().bytes.size(), 20u) << "a bare Binding request";
    EXPECT_EQ(s.State(), TURN_STATE_Allocated);
    auto keepAlive = s.Last();
    // Its answer is recognised, and changes nothing.
    auto answer = FakeServer<TypeParam>::NewMsg();
    answer->msgHdr.type = STUN_MSG_BindResponseMsg;
    answer->msgHdr.id = keepAlive->msgHdr.id;
    EXPECT_TRUE(TypeParam::HandleIncResp(s.inst, answer.get(), nullptr));
    answer->msgHdr.id.octet[0] ^= 1;
    EXPECT_FALSE(TypeParam::HandleIncResp(s.inst, answer.get(), nullptr));
    EXPECT_EQ(NextSendOf(s, STUN_MSG_BindRequestMsg, 20000), 15000u);
}

TYPED_TEST(TurnAllocated, PermissionAndChannelAreRefreshedBeforeTheyLapse)
{
    auto& s = this->s;
    s.Allocate(3600);
    s.Permit("198.51.100.9:7000");
    EXPECT_EQ(s.results, std::vector{TurnResult_CreatePermissionOk});
    s.Bind(0x4abc, "198.51.100.9:7000");
    EXPECT_EQ(s.results, (std::vector{TurnResult_CreatePermissionOk, TurnResult_ChanBindOk}));
    EXPECT_TRUE(TypeParam::HasBoundChannel(s.inst));
    s.sent.clear();

    // The channel was bound 0 ms after the permission: its refresh (180 s) comes first.
    EXPECT_EQ(NextSendOf(s, STUN_MSG_ChannelBindRequestMsg, 300000), 180000u);
    auto bind = s.Last();
    ASSERT_TRUE(bind->hasChannelNumber);
    EXPECT_EQ(bind->channelNumber.channel, 0x4abc);
    ASSERT_EQ(bind->xorPeerAddrEntries, 1u);
    EXPECT_EQ(bind->xorPeerAddress[0].port, 7000);
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_ChannelBindResponseMsg)));
    EXPECT_EQ(NextSendOf(s, STUN_MSG_CreatePermissionRequestMsg, 300000), 60000u);  // 240 s after its install
    auto permission = s.Last();
    ASSERT_EQ(permission->xorPeerAddrEntries, 1u);
    EXPECT_EQ(permission->xorPeerAddress[0].port, 7000);
    Bytes bytes = s.sent.back().bytes;
    EXPECT_TRUE(TypeParam::CheckIntegrity(bytes, permission.get(), s.key));
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_CreatePermissionResponseMsg)));
    EXPECT_EQ(s.State(), TURN_STATE_Allocated);
}

TYPED_TEST(TurnAllocated, ChannelBindAskedDuringAPermissionGoesRightAfterIt)
{
    auto& s = this->s;
    s.Allocate();
    sockaddr_storage peer = Addr("[2001:db8::9]:7001");
    const sockaddr* peers[] = {Sa(peer)};
    ASSERT_TRUE(TypeParam::Permission(s.inst, 1, peers));
    ASSERT_TRUE(TypeParam::Channel(s.inst, 0x4002, Sa(peer)));
    EXPECT_EQ(s.sent.size(), 1u) << "buffered, not sent";
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_CreatePermissionResponseMsg)));
    ASSERT_EQ(s.sent.size(), 2u);
    auto bind = s.Last();
    EXPECT_EQ(bind->msgHdr.type, STUN_MSG_ChannelBindRequestMsg);
    EXPECT_EQ(bind->channelNumber.channel, 0x4002);
    EXPECT_EQ(bind->xorPeerAddress[0].familyType, STUN_ADDR_IPv6Family);
    EXPECT_EQ(s.State(), TURN_STATE_WaitChanBindResp);
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_ChannelBindResponseMsg)));
    EXPECT_EQ(s.results, (std::vector{TurnResult_CreatePermissionOk, TurnResult_ChanBindOk}));
}

TYPED_TEST(TurnAllocated, RequestsRefusedWhereTheyDoNotBelong)
{
    auto& s = this->s;
    sockaddr_storage peer = Addr("198.51.100.9:7000");
    const sockaddr* peers[] = {Sa(peer)};
    ASSERT_TRUE(s.Start());
    EXPECT_FALSE(TypeParam::Permission(s.inst, 1, peers)) << "not allocated yet";
    FakeServer<TypeParam> t;
    t.Allocate();
    EXPECT_FALSE(TypeParam::Channel(t.inst, 0x3FFF, Sa(peer))) << "below the channel range";
    EXPECT_FALSE(TypeParam::Permission(t.inst, 0, peers));
    std::vector<const sockaddr*> many(STUN_MAX_PEER_ADDR + 1, Sa(peer));
    EXPECT_FALSE(TypeParam::Permission(t.inst, static_cast<uint32_t>(many.size()), many.data()));
    EXPECT_TRUE(t.sent.empty());
    ASSERT_TRUE(TypeParam::Channel(t.inst, 0x4000, Sa(peer)));
    EXPECT_FALSE(TypeParam::Permission(t.inst, 1, peers)) << "one request at a time";
}

// The answers a request in the allocated life can get, and where each leaves the instance.
TYPED_TEST(TurnAllocated, AnswersToEachRequest)
{
    enum Kind { kPermission, kChannel, kRefresh, kRelease };
    struct Row {
        const char* name;
        Kind kind;
        int code;  // 0: success, -1: no answer at all
        TurnResult_T result;  // TurnResult_Empty: none
        TURN_STATE state;
    };
    const Row rows[] = {
        {"permission ok", kPermission, 0, TurnResult_CreatePermissionOk, TURN_STATE_Allocated},
        {"permission forbidden", kPermission, 403, TurnResult_CreatePermissionFail, TURN_STATE_Allocated},
        {"permission quota", kPermission, 486, TurnResult_CreatePermissionQuotaReached, TURN_STATE_Allocated},
        {"permission mismatch", kPermission, 437, TurnResult_CreatePermissionFail, TURN_STATE_Allocated},
        {"permission lost", kPermission, -1, TurnResult_CreatePermissionNoAnswer, TURN_STATE_Allocated},
        {"channel ok", kChannel, 0, TurnResult_ChanBindOk, TURN_STATE_Allocated},
        {"channel refused", kChannel, 400, TurnResult_ChanBindFail, TURN_STATE_Allocated},
        {"channel lost", kChannel, -1, TurnResult_ChanBindFailNoanswer, TURN_STATE_Allocated},
        {"refresh ok", kRefresh, 0, TurnResult_Empty, TURN_STATE_Allocated},
        {"refresh mismatch", kRefresh, 437, TurnResult_RefreshFail, TURN_STATE_Idle},
        {"refresh lost", kRefresh, -1, TurnResult_RefreshFailNoAnswer, TURN_STATE_Idle},
        {"release ok", kRelease, 0, TurnResult_RelayReleaseComplete, TURN_STATE_Idle},
        {"release mismatch", kRelease, 437, TurnResult_RelayReleaseComplete, TURN_STATE_Idle},
        {"release lost", kRelease, -1, TurnResult_RelayReleaseFailed, TURN_STATE_Idle},
    };
    const uint16_t success[] = {STUN_MSG_CreatePermissionResponseMsg, STUN_MSG_ChannelBindResponseMsg,
                                STUN_MSG_RefreshResponseMsg, STUN_MSG_RefreshResponseMsg};
    const uint16_t error[] = {STUN_MSG_CreatePermissionErrorResponseMsg, STUN_MSG_ChannelBindErrorResponseMsg,
                              STUN_MSG_RefreshErrorResponseMsg, STUN_MSG_RefreshErrorResponseMsg};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        s.Allocate();
        sockaddr_storage peer = Addr("198.51.100.9:7000");
        const sockaddr* peers[] = {Sa(peer)};
        switch (row.kind) {
        case kPermission: ASSERT_TRUE(TypeParam::Permission(s.inst, 1, peers)); break;
        case kChannel: ASSERT_TRUE(TypeParam::Channel(s.inst, 0x4000, Sa(peer))); break;
        case kRefresh: TypeParam::Simulate(s.inst, TURN_SIGNAL_TimerRefreshAlloc); break;
        case kRelease: ASSERT_TRUE(TypeParam::Deallocate(s.inst)); break;
        }
        ASSERT_EQ(s.sent.size(), 1u);
        if (row.kind == kRelease) {
            auto m = s.Last();
            EXPECT_TRUE(m->hasLifetime && m->lifetime == 0) << "released by a Refresh of lifetime 0";
        }
        if (row.code == 0) {
            ASSERT_TRUE(s.Answer(s.Response(success[row.kind])));
        } else if (row.code > 0) {
            ASSERT_TRUE(s.Answer(s.Error(error[row.kind], static_cast<uint16_t>(row.code))));
        } else {
            s.Advance(3600);
            EXPECT_EQ(s.sent.size(), 10u) << "10 sends over 3600 ms";
        }
        if (row.result == TurnResult_Empty) {
            EXPECT_TRUE(s.results.empty());
        } else {
            EXPECT_EQ(s.results, std::vector{row.result});
        }
        EXPECT_EQ(s.State(), row.state);
        if (row.kind == kPermission) {
            EXPECT_EQ(s.inst->permissionsInstalled, row.code == 0);
        }
        if (row.kind == kChannel) {
            EXPECT_EQ(TypeParam::HasBoundChannel(s.inst), row.code == 0);
        }
        if (row.state == TURN_STATE_Idle) {
            EXPECT_EQ(s.inst->TimerRefreshAlloc + s.inst->TimerStunKeepAlive + s.inst->TimerRetransmit, 0)
                << "all timers stop in Idle";
        }
    }
}

TYPED_TEST(TurnAllocated, StaleNonceRenewsTheNonceForEveryKindOfRequest)
{
    const TURN_SIGNAL starts[] = {TURN_SIGNAL_CreatePermissionReq, TURN_SIGNAL_ChannelBindReq,
                                  TURN_SIGNAL_TimerRefreshAlloc, TURN_SIGNAL_DeAllocate};
    const uint16_t errors[] = {STUN_MSG_CreatePermissionErrorResponseMsg, STUN_MSG_ChannelBindErrorResponseMsg,
                               STUN_MSG_RefreshErrorResponseMsg, STUN_MSG_RefreshErrorResponseMsg};
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(TurnSignalToStr(starts[i]));
        FakeServer<TypeParam> s;
        s.Allocate();
        sockaddr_storage peer = Addr("198.51.100.9:7000");
        const sockaddr* peers[] = {Sa(peer)};
        if (starts[i] == TURN_SIGNAL_CreatePermissionReq) {
            ASSERT_TRUE(TypeParam::Permission(s.inst, 1, peers));
        } else if (starts[i] == TURN_SIGNAL_ChannelBindReq) {
            ASSERT_TRUE(TypeParam::Channel(s.inst, 0x4000, Sa(peer)));
        } else {
            TypeParam::Simulate(s.inst, starts[i]);
        }
        auto first = s.Last();
        TURN_STATE waiting = s.State();
        ASSERT_TRUE(s.Answer(s.Error(errors[i], 438, "nonce-2")));
        ASSERT_EQ(s.sent.size(), 2u);
        auto again = s.Last();
        EXPECT_EQ(again->msgHdr.type, first->msgHdr.type);
        EXPECT_NE(0, std::memcmp(again->msgHdr.id.octet, first->msgHdr.id.octet, 12));
        EXPECT_STREQ(again->nonce.value, "nonce-2");
        EXPECT_STREQ(again->realm.value, kRealm) << "a 438 without REALM keeps the realm";
        Bytes bytes = s.sent.back().bytes;
        EXPECT_TRUE(TypeParam::CheckIntegrity(bytes, again.get(), s.key));
        EXPECT_EQ(s.State(), waiting);
        EXPECT_TRUE(s.results.empty());
        // The later requests carry the new nonce too.
        ASSERT_TRUE(s.Answer(s.Response(starts[i] == TURN_SIGNAL_CreatePermissionReq ? STUN_MSG_CreatePermissionResponseMsg
                                        : starts[i] == TURN_SIGNAL_ChannelBindReq     ? STUN_MSG_ChannelBindResponseMsg
                                                                                      : STUN_MSG_RefreshResponseMsg)));
        if (s.State() == TURN_STATE_Allocated) {
            TypeParam::Simulate(s.inst, TURN_SIGNAL_TimerRefreshAlloc);
            EXPECT_STREQ(s.Last()->nonce.value, "nonce-2");
        }
    }
}

TYPED_TEST(TurnAllocated, RefreshTimersThatFireWhileBusyComeBackSoonAfter)
{
    struct Row {
        const char* name;
        TURN_SIGNAL busyWith;  // puts the instance in a waiting state
        int32_t TurnInstanceData<typename TypeParam::Msg>::*timer;
        TURN_SIGNAL timerSignal;
        int32_t setTo;
    };
    using I = TurnInstanceData<typename TypeParam::Msg>;
    const Row rows[] = {
        {"channel during refresh", TURN_SIGNAL_TimerRefreshAlloc, &I::TimerRefreshChannel, TURN_SIGNAL_TimerRefreshChannel, 2000},
        {"permission during refresh", TURN_SIGNAL_TimerRefreshAlloc, &I::TimerRefreshPermission, TURN_SIGNAL_TimerRefreshPermission, 3000},
        {"refresh during channel", TURN_SIGNAL_ChannelBindReq, &I::TimerRefreshAlloc, TURN_SIGNAL_TimerRefreshAlloc, 3000},
        {"permission during channel", TURN_SIGNAL_ChannelBindReq, &I::TimerRefreshPermission, TURN_SIGNAL_TimerRefreshPermission, 2000},
        {"refresh during permission", TURN_SIGNAL_CreatePermissionReq, &I::TimerRefreshAlloc, TURN_SIGNAL_TimerRefreshAlloc, 3000},
        {"channel during permission", TURN_SIGNAL_CreatePermissionReq, &I::TimerRefreshChannel, TURN_SIGNAL_TimerRefreshChannel, 2000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        s.Allocate();
        s.Permit();
        s.Bind();
        s.sent.clear();
        sockaddr_storage peer = Addr("198.51.100.9:7000");
        const sockaddr* peers[] = {Sa(peer)};
        if (row.busyWith == TURN_SIGNAL_CreatePermissionReq) {
            ASSERT_TRUE(TypeParam::Permission(s.inst, 1, peers));
        } else if (row.busyWith == TURN_SIGNAL_ChannelBindReq) {
            ASSERT_TRUE(TypeParam::Channel(s.inst, 0x4001, Sa(peer)));
        } else {
            TypeParam::Simulate(s.inst, row.busyWith);
        }
        ASSERT_EQ(s.sent.size(), 1u);
        // Fire the timer through the tick, as it would on its own.
        s.inst->*row.timer = static_cast<int32_t>(kTickMs);
        TypeParam::Tick(s.inst);
        EXPECT_EQ(s.inst->*row.timer, row.setTo);
        EXPECT_EQ(s.sent.size(), 1u) << "nothing sent while busy";
    }
}

TYPED_TEST(TurnAllocated, ReleaseFromABusyStateAndSignalsOutOfPlace)
{
    auto& s = this->s;
    s.Allocate();
    s.Permit();
    s.results.clear();
    sockaddr_storage peer = Addr("198.51.100.9:7000");
    ASSERT_TRUE(TypeParam::Channel(s.inst, 0x4000, Sa(peer)));
    Bytes lateBind = s.Response(STUN_MSG_ChannelBindResponseMsg);
    ASSERT_TRUE(TypeParam::Deallocate(s.inst));
    EXPECT_EQ(s.State(), TURN_STATE_WaitReleaseResp);
    // A late answer to the abandoned bind is not the release's.
    EXPECT_FALSE(s.Answer(lateBind));
    EXPECT_FALSE(TypeParam::HasBoundChannel(s.inst));
    EXPECT_TRUE(s.Answer(s.Response(STUN_MSG_RefreshResponseMsg)));
    EXPECT_EQ(s.results, std::vector{TurnResult_RelayReleaseComplete});
    EXPECT_EQ(s.State(), TURN_STATE_Idle);
    // Signals given from outside without what they need are refused, whatever the state.
    TypeParam::Simulate(s.inst, TURN_SIGNAL_AllocateResp);
    TypeParam::Simulate(s.inst, TURN_SIGNAL_ChannelBindReq);
    EXPECT_EQ(s.State(), TURN_STATE_Idle);
    EXPECT_FALSE(TypeParam::Deallocate(s.inst));
}

}  // namespace
