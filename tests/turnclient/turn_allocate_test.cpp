// Allocation: the long-term credential exchange, address families, redirection, and the answers a
// client must refuse.
#include "turn_test_util.h"

namespace {

using namespace turn_test;
using gatewalk::STUN_MSG_AllocateErrorResponseMsg;
using gatewalk::STUN_MSG_AllocateRequestMsg;
using gatewalk::STUN_MSG_AllocateResponseMsg;

template <class P>
class TurnAllocate : public ::testing::Test {
protected:
    FakeServer<P> s;
};
TYPED_TEST_SUITE(TurnAllocate, Profiles);

TYPED_TEST(TurnAllocate, FirstRequestWithoutCredentialsThenSignedWithTheLongTermKey)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_EQ(s.sent.size(), 1u);
    auto first = s.Last();
    EXPECT_EQ(first->msgHdr.type, STUN_MSG_AllocateRequestMsg);
    EXPECT_FALSE(first->hasUsername);
    EXPECT_FALSE(first->hasMessageIntegrity);
    EXPECT_TRUE(first->hasSoftware);
    EXPECT_STREQ(first->softwareName.value, "test client 1.0");
    ASSERT_TRUE(first->hasRequestedTransport);
    EXPECT_EQ(first->requestedTransport.protocol, 17);
    EXPECT_TRUE(first->hasFingerPrint);
    EXPECT_EQ(Text(s.sent.back().to), "127.0.0.1:3478");
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_WaitAllocRespNotAut);

    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_EQ(s.sent.size(), 2u);
    auto second = s.Last();
    EXPECT_EQ(second->msgHdr.type, STUN_MSG_AllocateRequestMsg);
    EXPECT_NE(0, std::memcmp(first->msgHdr.id.octet, second->msgHdr.id.octet, 12)) << "a fresh transaction id";
    EXPECT_STREQ(second->username.value, kUser);
    EXPECT_STREQ(second->realm.value, kRealm);
    EXPECT_STREQ(second->nonce.value, kNonce);
    Bytes bytes = s.sent.back().bytes;
    EXPECT_TRUE(TypeParam::CheckIntegrity(bytes, second.get(), s.key)) << "MD5(user:realm:password) signs it";
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_WaitAllocResp);

    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); })));
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_Allocated);
    ASSERT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocOk});
    EXPECT_EQ(Text(s.lastData.relAddrIPv4), "127.0.0.1:50000");
    EXPECT_EQ(Text(s.lastData.srflxAddr), "192.0.2.7:40000");
    EXPECT_EQ(Text(s.lastData.activeTurnServerAddr), "127.0.0.1:3478");
    EXPECT_EQ(s.inst->lifetime, 600u);
}

TYPED_TEST(TurnAllocate, ServerWithoutAuthenticationIsTakenAtTheFirstAnswer)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Response(
        STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); }, false)));
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocOk});
}

TYPED_TEST(TurnAllocate, RequestedFamilyEvenPortAndReservationToken)
{
    constexpr bool zyn = TypeParam::kZyn;
    struct Row {
        const char* name;
        int family;
        bool ipv4, ipv6;  // REQUESTED-ADDRESS-FAMILY groups expected on the wire
        bool notSupportedLogged;
    };
    const Row rows[] = {
        {"IPv4", AF_INET, true, false, false},
        {"IPv6", AF_INET6, false, true, false},
        // Both families at once exist only in qlox_gatewalk's codec; zyn sends none and says so.
        {"both", gatewalk::TURN_FAMILY_BOTH, !zyn, !zyn, zyn},
        {"unspecified", AF_UNSPEC, false, false, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start(row.family, true, 0x1122334455667788ULL));
        auto m = s.Last();
        bool v4, v6;
        if constexpr (zyn) {
            v4 = m->hasRequestedAddrFamily && m->requestedAddrFamily.family == gatewalk::STUN_ADDR_IPv4Family;
            v6 = m->hasRequestedAddrFamily && m->requestedAddrFamily.family == gatewalk::STUN_ADDR_IPv6Family;
        } else {
            v4 = m->hasRequestedAddrFamilyIPv4;
            v6 = m->hasRequestedAddrFamilyIPv6;
        }
        EXPECT_EQ(v4, row.ipv4);
        EXPECT_EQ(v6, row.ipv6);
        bool logged = false;
        for (const auto& l : s.logs) logged |= l.find("not supported in AllocateReq") != std::string::npos;
        EXPECT_EQ(logged, row.notSupportedLogged);
        ASSERT_TRUE(m->hasEvenPort);
        EXPECT_EQ(m->evenPort.value, 0x80);
        ASSERT_TRUE(m->hasReservationToken);
        EXPECT_EQ(m->reservationToken, 0x1122334455667788ULL);
    }
}

TYPED_TEST(TurnAllocate, Ipv6RelayIsTakenWhenAskedAndRefusedWhenNot)
{
    {
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start(AF_INET6));
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg,
                                        [](auto& m) { FakeServer<TypeParam>::FillAllocation(m, "[2001:db8::5]:50002"); })));
        EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocOk});
        EXPECT_EQ(Text(s.lastData.relAddrIPv6), "[2001:db8::5]:50002");
        EXPECT_EQ(s.lastData.relAddrIPv4.ss_family, 0);
    }
    {
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start(AF_INET6));
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg,
                                        [](auto& m) { FakeServer<TypeParam>::FillAllocation(m, "127.0.0.1:50000"); })));
        EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_MalformedRespWaitAlloc});
        EXPECT_EQ(s.State(), gatewalk::TURN_STATE_Idle);
    }
}

// Error answers to the Allocate, in the state where each comes.
TYPED_TEST(TurnAllocate, ErrorAnswers)
{
    struct Row {
        const char* name;
        bool afterChallenge;  // answered to the signed request
        uint16_t code;
        const char* nonce;
        const char* realm;
        gatewalk::TurnResult_T result;
    };
    const Row rows[] = {
        {"wrong password", true, 401, kNonce, kRealm, gatewalk::TurnResult_AllocUnauthorised},
        {"401 without realm", false, 401, kNonce, nullptr, gatewalk::TurnResult_AllocFail},
        {"401 without nonce", false, 401, nullptr, kRealm, gatewalk::TurnResult_AllocFail},
        {"allocation mismatch", true, 437, nullptr, nullptr, gatewalk::TurnResult_AllocFail},
        {"quota", true, 486, nullptr, nullptr, gatewalk::TurnResult_AllocFail},
        {"bad request first", false, 400, nullptr, nullptr, gatewalk::TurnResult_AllocFail},
        {"unsupported transport", true, 442, nullptr, nullptr, gatewalk::TurnResult_AllocFail},
        {"stale nonce without nonce", true, 438, nullptr, nullptr, gatewalk::TurnResult_AllocFail},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start());
        if (row.afterChallenge) {
            ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        }
        size_t sends = s.sent.size();
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, row.code, row.nonce, row.realm)));
        EXPECT_EQ(s.results, std::vector{row.result});
        EXPECT_EQ(s.State(), gatewalk::TURN_STATE_Idle);
        EXPECT_EQ(s.sent.size(), sends) << "nothing more is sent";
        s.Advance(5000);
        EXPECT_EQ(s.sent.size(), sends) << "and no timer is left running";
        EXPECT_EQ(s.results.size(), 1u) << "the failure is reported once";
    }
}

TYPED_TEST(TurnAllocate, StaleNonceRetriesWithTheNewNonceAFewTimes)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 438, "nonce-2", kRealm)));
    auto retry = s.Last();
    EXPECT_STREQ(retry->nonce.value, "nonce-2");
    Bytes bytes = s.sent.back().bytes;
    EXPECT_TRUE(TypeParam::CheckIntegrity(bytes, retry.get(), s.key));
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_WaitAllocResp);
    EXPECT_TRUE(s.results.empty());
    // A server that answers 438 to every fresh nonce does not keep the client forever.
    for (int i = 0; i < 5 && s.results.empty(); ++i) {
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 438, "nonce-n", kRealm)));
    }
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFail});
    EXPECT_EQ(s.SentOfType(STUN_MSG_AllocateRequestMsg), 5u);  // first, signed, 3 retries
}

TYPED_TEST(TurnAllocate, MalformedSuccessResponses)
{
    using Msg = typename TypeParam::Msg;
    struct Row {
        const char* name;
        std::function<void(Msg&)> spoil;
        bool withKey;
        gatewalk::TurnResult_T result;
    };
    const Row rows[] = {
        {"no relay", [](Msg& m) { if constexpr (TypeParam::kZyn) m.hasXorRelayAddress = 0; else m.hasXorRelayAddressIPv4 = 0; },
         true, gatewalk::TurnResult_MalformedRespWaitAlloc},
        {"no mapped address", [](Msg& m) { m.hasXorMappedAddress = 0; }, true, gatewalk::TurnResult_MalformedRespWaitAlloc},
        {"no lifetime", [](Msg& m) { m.hasLifetime = 0; }, true, gatewalk::TurnResult_MalformedRespWaitAlloc},
        {"unsigned", [](Msg&) {}, false, gatewalk::TurnResult_AllocFail},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start());
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        ASSERT_TRUE(s.Answer(s.Response(
            STUN_MSG_AllocateResponseMsg,
            [&](Msg& m) {
                FakeServer<TypeParam>::FillAllocation(m);
                row.spoil(m);
            },
            row.withKey)));
        EXPECT_EQ(s.results, std::vector{row.result});
        EXPECT_EQ(s.State(), gatewalk::TURN_STATE_Idle);
    }
}

TYPED_TEST(TurnAllocate, ForgedIntegrityFailsTheAllocation)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    gatewalk::stunlib_createMD5Key(s.key, kUser, kRealm, "not the password");
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); })));
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, AnswersThatAreNotForThisRequestAreLeftAlone)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    Bytes other = s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm);
    other[10] ^= 0xFF;  // another transaction id
    EXPECT_FALSE(s.Answer(other));
    // Ours, but of a type that does not belong here: logged, and the state stays.
    EXPECT_TRUE(s.Answer(s.Response(gatewalk::STUN_MSG_ChannelBindResponseMsg)));
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_WaitAllocRespNotAut);
    EXPECT_TRUE(s.results.empty());
    // An error response without ERROR-CODE is a failure, not a hang.
    EXPECT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateErrorResponseMsg, {}, false)));
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, NoAnswerAfterSixSendsOver1600Ms)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    std::vector<uint32_t> sendTimes{0};
    for (uint32_t now = kTickMs; now <= 3000; now += kTickMs) {
        size_t before = s.sent.size();
        TypeParam::Tick(s.inst);
        if (s.sent.size() > before) sendTimes.push_back(now);
        if (!s.results.empty()) {
            EXPECT_EQ(now, 1600u);
            break;
        }
    }
    EXPECT_EQ(sendTimes, (std::vector<uint32_t>{0, 100, 200, 400, 700, 1100}));
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFailNoAnswer});
    for (const auto& sent : s.sent) EXPECT_EQ(sent.bytes, s.sent.front().bytes) << "retransmissions are the same bytes";
    gatewalk::TurnStats_T stats{};
    ASSERT_TRUE(TypeParam::Stats(s.inst, &stats));
    EXPECT_EQ(stats.failures, 1u);
}

TYPED_TEST(TurnAllocate, TryAlternateMovesToTheOtherServer)
{
    using Msg = typename TypeParam::Msg;
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_TRUE(s.Answer(s.Response(
        STUN_MSG_AllocateErrorResponseMsg,
        [](Msg& m) {
            stunlib_addError(&m, "Try Alternate", 300, ' ');
            m.hasAlternateServer = 1;
            m.alternateServer = StunAddr("127.0.0.2:3479");
        },
        false)));
    EXPECT_TRUE(s.results.empty());
    EXPECT_EQ(Text(s.sent.back().to), "127.0.0.2:3479");
    auto m = s.Last();
    EXPECT_FALSE(m->hasUsername) << "the new server has its own realm and nonce";
    EXPECT_EQ(s.State(), gatewalk::TURN_STATE_WaitAllocRespNotAut);
    if constexpr (!TypeParam::kZyn) {
        EXPECT_TRUE(qlox_gatewalk::TurnClient_hasBeenRedirected(s.inst));
        EXPECT_EQ(Text(*reinterpret_cast<const sockaddr_storage*>(qlox_gatewalk::TurnClient_getRedirectedServerAddr(s.inst))),
                  "127.0.0.2:3479");
    }
    // A second redirection would be a loop.
    ASSERT_TRUE(s.Answer(s.Response(
        STUN_MSG_AllocateErrorResponseMsg,
        [](Msg& m) {
            stunlib_addError(&m, "Try Alternate", 300, ' ');
            m.hasAlternateServer = 1;
            m.alternateServer = StunAddr("127.0.0.3:3479");
        },
        false)));
    EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, TryAlternateWithoutAUsableServerFails)
{
    using Msg = typename TypeParam::Msg;
    const std::function<void(Msg&)> spoils[] = {
        [](Msg&) {},  // no ALTERNATE-SERVER at all
        [](Msg& m) {  // a server of the other family than our socket's
            m.hasAlternateServer = 1;
            m.alternateServer = StunAddr("[2001:db8::1]:3478");
        },
    };
    for (const auto& spoil : spoils) {
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start());
        ASSERT_TRUE(s.Answer(s.Response(
            STUN_MSG_AllocateErrorResponseMsg,
            [&](Msg& m) {
                stunlib_addError(&m, "Try Alternate", 300, ' ');
                spoil(m);
            },
            false)));
        EXPECT_EQ(s.results, std::vector{gatewalk::TurnResult_AllocFail});
        EXPECT_EQ(s.sent.size(), 1u);
    }
}

TYPED_TEST(TurnAllocate, BadArgumentsAreRefused)
{
    typename TypeParam::Instance* inst = reinterpret_cast<typename TypeParam::Instance*>(1);
    sockaddr_storage server = Addr("127.0.0.1:3478");
    sockaddr_storage unset{};
    auto send = [](const unsigned char*, unsigned long, const sockaddr*, void*) {};
    std::string longName(600, 'u');
    EXPECT_FALSE(TypeParam::Start(&inst, 10, nullptr, "x", nullptr, Sa(unset), kUser, kPassword, AF_INET, send,
                                  nullptr, false, 0));
    EXPECT_EQ(inst, nullptr);
    EXPECT_FALSE(TypeParam::Start(&inst, 0, nullptr, "x", nullptr, Sa(server), kUser, kPassword, AF_INET, send,
                                  nullptr, false, 0));
    EXPECT_FALSE(TypeParam::Start(&inst, 10, nullptr, "x", nullptr, Sa(server), longName.c_str(), kPassword, AF_INET,
                                  send, nullptr, false, 0));
    EXPECT_FALSE(TypeParam::Start(&inst, 10, nullptr, "x", nullptr, Sa(server), kUser, kPassword, AF_INET, nullptr,
                                  nullptr, false, 0));
    EXPECT_FALSE(TypeParam::Start(nullptr, 10, nullptr, "x", nullptr, Sa(server), kUser, kPassword, AF_INET, send,
                                  nullptr, false, 0));
    // Every call on a null instance is refused without a crash.
    sockaddr_storage peer = Addr("198.51.100.1:1");
    const sockaddr* peers[] = {Sa(peer)};
    EXPECT_FALSE(TypeParam::Permission(nullptr, 1, peers));
    EXPECT_FALSE(TypeParam::Channel(nullptr, 0x4000, Sa(peer)));
    EXPECT_FALSE(TypeParam::Deallocate(nullptr));
    EXPECT_FALSE(TypeParam::HasBoundChannel(nullptr));
    TypeParam::Tick(nullptr);
    TypeParam::Simulate(nullptr, gatewalk::TURN_SIGNAL_DeAllocate);
    TypeParam::Free(nullptr);
}

TEST(TurnNames, ResultsSignalsAndStates)
{
    EXPECT_STREQ(gatewalk::TurnResultToStr(gatewalk::TurnResult_AllocOk), "TurnResult_AllocOk");
    EXPECT_STREQ(gatewalk::TurnResultToStr(gatewalk::TurnResult_ChanBindFailNoanswer), "TurnResult_ChanBindFailNoanswer");
    EXPECT_STREQ(gatewalk::TurnResultToStr(gatewalk::TurnResult_MalformedRespWaitAlloc),
                 "TurnResult_MalformedRespWaitAlloc");
    EXPECT_STREQ(gatewalk::TurnResultToStr(static_cast<gatewalk::TurnResult_T>(19)), "unknown turnresult ??");
    EXPECT_STREQ(gatewalk::TurnSignalToStr(gatewalk::TURN_SIGNAL_DeAllocate), "DeAllocate");
    EXPECT_STREQ(gatewalk::TurnStateToStr(gatewalk::TURN_STATE_WaitReleaseResp), "WaitReleaseResp");
}

}  // namespace
