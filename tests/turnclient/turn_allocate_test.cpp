// Allocation: the long-term credential exchange, address families, redirection, and the answers a
// client must refuse.
#include "turn_test_util.h"

namespace {

using namespace turn_test;
using namespace gatewalk;

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
    auto first = s.Last();
    EXPECT_EQ(first->msgHdr.type, STUN_MSG_AllocateRequestMsg);
    EXPECT_FALSE(first->hasUsername || first->hasMessageIntegrity);
    EXPECT_STREQ(first->softwareName.value, "test client 1.0");
    EXPECT_EQ(first->requestedTransport.protocol, 17);
    EXPECT_EQ(Text(s.sent.back().to), "127.0.0.1:3478");

    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    auto second = s.Last();
    EXPECT_NE(0, std::memcmp(first->msgHdr.id.octet, second->msgHdr.id.octet, 12)) << "a fresh transaction id";
    EXPECT_STREQ(second->username.value, kUser);
    EXPECT_STREQ(second->realm.value, kRealm);
    EXPECT_STREQ(second->nonce.value, kNonce);
    EXPECT_TRUE(s.LastIsSigned()) << "MD5(user:realm:password) signs it";
    EXPECT_EQ(s.State(), TURN_STATE_WaitAllocResp);

    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); })));
    EXPECT_EQ(s.State(), TURN_STATE_Allocated);
    ASSERT_EQ(s.results, std::vector{TurnResult_AllocOk});
    EXPECT_EQ(Text(s.lastData.relAddrIPv4), "127.0.0.1:50000");
    EXPECT_EQ(Text(s.lastData.srflxAddr), "192.0.2.7:40000");
    EXPECT_EQ(s.inst->lifetime, 600u);

    // A server without authentication is taken at the first answer.
    FakeServer<TypeParam> open;
    ASSERT_TRUE(open.Start());
    ASSERT_TRUE(open.Answer(open.Response(
        STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); }, false)));
    EXPECT_EQ(open.results, std::vector{TurnResult_AllocOk});
}

TYPED_TEST(TurnAllocate, RequestedFamilyEvenPortAndReservationToken)
{
    constexpr bool zyn = TypeParam::kZyn;
    struct Row {
        int family;
        bool ipv4, ipv6;  // REQUESTED-ADDRESS-FAMILY groups expected on the wire
    };
    // Both families at once exist only in qlox_gatewalk's codec; zyn sends none (and logs it).
    const Row rows[] = {{AF_INET, true, false}, {AF_INET6, false, true}, {TURN_FAMILY_BOTH, !zyn, !zyn},
                        {AF_UNSPEC, false, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.family);
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start(row.family, true, 0x1122334455667788ULL));
        auto m = s.Last();
        if constexpr (zyn) {
            EXPECT_EQ(m->hasRequestedAddrFamily && m->requestedAddrFamily.family == STUN_ADDR_IPv4Family, row.ipv4);
            EXPECT_EQ(m->hasRequestedAddrFamily && m->requestedAddrFamily.family == STUN_ADDR_IPv6Family, row.ipv6);
        } else {
            EXPECT_EQ(m->hasRequestedAddrFamilyIPv4, row.ipv4);
            EXPECT_EQ(m->hasRequestedAddrFamilyIPv6, row.ipv6);
        }
        EXPECT_TRUE(m->hasEvenPort && m->evenPort.value == 0x80);
        EXPECT_EQ(m->reservationToken, 0x1122334455667788ULL);
    }
    FakeServer<TypeParam> s;
    ASSERT_TRUE(s.Start(AF_INET6));
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg,
                                    [](auto& m) { FakeServer<TypeParam>::FillAllocation(m, "[2001:db8::5]:50002"); })));
    EXPECT_EQ(Text(s.lastData.relAddrIPv6), "[2001:db8::5]:50002");
}

// Error answers to the Allocate, in the state where each comes: each ends the instance once.
TYPED_TEST(TurnAllocate, ErrorAnswers)
{
    struct Row {
        const char* name;
        bool afterChallenge;  // answered to the signed request
        uint16_t code;
        const char* nonce;
        const char* realm;
        TurnResult_T result;
    };
    const Row rows[] = {
        {"wrong password", true, 401, kNonce, kRealm, TurnResult_AllocUnauthorised},
        {"401 without realm", false, 401, kNonce, nullptr, TurnResult_AllocFail},
        {"401 without nonce", false, 401, nullptr, kRealm, TurnResult_AllocFail},
        {"allocation mismatch", true, 437, nullptr, nullptr, TurnResult_AllocFail},
        {"quota", true, 486, nullptr, nullptr, TurnResult_AllocFail},
        {"bad request first", false, 400, nullptr, nullptr, TurnResult_AllocFail},
        {"stale nonce without nonce", true, 438, nullptr, nullptr, TurnResult_AllocFail},
        {"try alternate without a server", false, 300, nullptr, nullptr, TurnResult_AllocFail},
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
        EXPECT_EQ(s.State(), TURN_STATE_Idle);
        s.Advance(5000);
        EXPECT_EQ(s.sent.size(), sends) << "nothing more is sent, no timer is left";
        EXPECT_EQ(s.results, std::vector{row.result});
    }
}

TYPED_TEST(TurnAllocate, StaleNonceRetriesWithTheNewNonceAFewTimes)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 438, "nonce-2", kRealm)));
    EXPECT_STREQ(s.Last()->nonce.value, "nonce-2");
    EXPECT_TRUE(s.LastIsSigned());
    EXPECT_EQ(s.State(), TURN_STATE_WaitAllocResp);
    // A server that answers 438 to every fresh nonce does not keep the client forever.
    for (int i = 0; i < 5 && s.results.empty(); ++i) {
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 438, "nonce-n", kRealm)));
    }
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocFail});
    EXPECT_EQ(s.sent.size(), 5u);  // first, signed, 3 retries
}

TYPED_TEST(TurnAllocate, MalformedSuccessResponses)
{
    using Msg = typename TypeParam::Msg;
    struct Row {
        const char* name;
        std::function<void(Msg&)> spoil;
        bool withKey;
        TurnResult_T result;
    };
    const Row rows[] = {
        {"no relay", [](Msg& m) { if constexpr (TypeParam::kZyn) m.hasXorRelayAddress = 0; else m.hasXorRelayAddressIPv4 = 0; },
         true, TurnResult_MalformedRespWaitAlloc},
        {"relay of the other family",
         [](Msg& m) {
             if constexpr (TypeParam::kZyn) {
                 m.xorRelayAddress = StunAddr("[2001:db8::5]:1");
             } else {
                 m.hasXorRelayAddressIPv4 = 0;
                 m.hasXorRelayAddressIPv6 = 1;
                 m.xorRelayAddressIPv6 = StunAddr("[2001:db8::5]:1");
             }
         },
         true, TurnResult_MalformedRespWaitAlloc},
        {"no mapped address", [](Msg& m) { m.hasXorMappedAddress = 0; }, true, TurnResult_MalformedRespWaitAlloc},
        {"no lifetime", [](Msg& m) { m.hasLifetime = 0; }, true, TurnResult_MalformedRespWaitAlloc},
        {"unsigned", [](Msg&) {}, false, TurnResult_AllocFail},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeServer<TypeParam> s;
        ASSERT_TRUE(s.Start());
        ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        auto fill = [&](Msg& m) {
            FakeServer<TypeParam>::FillAllocation(m);
            row.spoil(m);
        };
        ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg, fill, row.withKey)));
        EXPECT_EQ(s.results, std::vector{row.result});
        EXPECT_EQ(s.State(), TURN_STATE_Idle);
    }
    // Signed, but with another key than ours.
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    stunlib_createMD5Key(s.key, kUser, kRealm, "not the password");
    ASSERT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateResponseMsg, [](auto& m) { FakeServer<TypeParam>::FillAllocation(m); })));
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, AnswersThatAreNotForThisRequestAreLeftAlone)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    Bytes other = s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm);
    other[10] ^= 0xFF;  // another transaction id
    EXPECT_FALSE(s.Answer(other));
    // Ours, but of a type that does not belong here: logged, and the state stays.
    EXPECT_TRUE(s.Answer(s.Response(STUN_MSG_ChannelBindResponseMsg)));
    EXPECT_EQ(s.State(), TURN_STATE_WaitAllocRespNotAut);
    EXPECT_TRUE(s.results.empty());
    // An error response without ERROR-CODE is a failure, not a hang.
    EXPECT_TRUE(s.Answer(s.Response(STUN_MSG_AllocateErrorResponseMsg, {}, false)));
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, NoAnswerAfterSixSendsOver1600Ms)
{
    auto& s = this->s;
    ASSERT_TRUE(s.Start());
    std::vector<uint32_t> sendTimes{0};
    for (uint32_t now = kTickMs; now <= 3000 && s.results.empty(); now += kTickMs) {
        size_t before = s.sent.size();
        TypeParam::Tick(s.inst);
        if (s.sent.size() > before) sendTimes.push_back(now);
        if (!s.results.empty()) {
            EXPECT_EQ(now, 1600u);
        }
    }
    EXPECT_EQ(sendTimes, (std::vector<uint32_t>{0, 100, 200, 400, 700, 1100}));
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocFailNoAnswer});
    for (const auto& sent : s.sent) EXPECT_EQ(sent.bytes, s.sent.front().bytes) << "retransmissions are the same bytes";
}

TYPED_TEST(TurnAllocate, TryAlternateMovesToTheOtherServerOnce)
{
    using Msg = typename TypeParam::Msg;
    auto& s = this->s;
    auto redirect = [&](const char* to) {
        return s.Response(
            STUN_MSG_AllocateErrorResponseMsg,
            [&](Msg& m) {
                stunlib_addError(&m, "Try Alternate", 300, ' ');
                m.hasAlternateServer = 1;
                m.alternateServer = StunAddr(to);
            },
            false);
    };
    ASSERT_TRUE(s.Start());
    ASSERT_TRUE(s.Answer(s.Error(STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
    ASSERT_TRUE(s.Answer(redirect("127.0.0.2:3479")));
    EXPECT_EQ(Text(s.sent.back().to), "127.0.0.2:3479");
    EXPECT_FALSE(s.Last()->hasUsername) << "the new server has its own realm and nonce";
    EXPECT_EQ(s.State(), TURN_STATE_WaitAllocRespNotAut);
    if constexpr (!TypeParam::kZyn) {
        EXPECT_TRUE(qlox_gatewalk::TurnClient_hasBeenRedirected(s.inst));
        auto* at = qlox_gatewalk::TurnClient_getRedirectedServerAddr(s.inst);
        EXPECT_EQ(Text(*reinterpret_cast<const sockaddr_storage*>(at)), "127.0.0.2:3479");
    }
    ASSERT_TRUE(s.Answer(redirect("127.0.0.3:3479"))) << "a second redirection would be a loop";
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocFail});
}

TYPED_TEST(TurnAllocate, BadArgumentsAreRefused)
{
    typename TypeParam::Instance* inst = nullptr;
    sockaddr_storage server = Addr("127.0.0.1:3478"), unset{};
    auto send = [](const unsigned char*, unsigned long, const sockaddr*, void*) {};
    std::string longName(600, 'u');
    EXPECT_FALSE(TypeParam::Start(&inst, 10, nullptr, "", nullptr, Sa(unset), kUser, "", AF_INET, send, nullptr, false, 0));
    EXPECT_FALSE(TypeParam::Start(&inst, 0, nullptr, "", nullptr, Sa(server), kUser, "", AF_INET, send, nullptr, false, 0));
    EXPECT_FALSE(TypeParam::Start(&inst, 10, nullptr, "", nullptr, Sa(server), longName.c_str(), "", AF_INET, send,
                                  nullptr, false, 0));
    EXPECT_EQ(inst, nullptr);
    EXPECT_FALSE(TypeParam::Deallocate(nullptr));
    EXPECT_FALSE(TypeParam::Channel(nullptr, 0x4000, Sa(server)));
    TypeParam::Tick(nullptr);
    TypeParam::Free(nullptr);
    EXPECT_STREQ(TurnResultToStr(TurnResult_MalformedRespWaitAlloc), "TurnResult_MalformedRespWaitAlloc");
    EXPECT_STREQ(TurnResultToStr(static_cast<TurnResult_T>(19)), "unknown turnresult ??");
}

}  // namespace
