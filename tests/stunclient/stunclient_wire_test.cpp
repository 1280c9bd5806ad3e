// What the client puts on the wire, read back with the codec's decoder: the attributes of each copy,
// TransCount and the round trip it allows, the single-copy trace transaction, and the server half's
// responses.
#include "stunclient_harness.h"

namespace {

using namespace stunclient_test;

const Credentials kIce{"remote:local", "pass-word", 0x6e0001ff, true, true, 0x932ff9b151263b36ull};

template <class P>
class StunClientWire : public ::testing::Test {};
using Profiles = ::testing::Types<PQ, PZ>;
TYPED_TEST_SUITE(StunClientWire, Profiles);

TYPED_TEST(StunClientWire, EveryCopyIsTheSameCheckWithItsIntegrity)
{
    Harness<TypeParam> h;
    h.Start(Id(1), kIce);
    h.RunTo(4000, 10);
    ASSERT_GE(h.sent.size(), 9u);
    const gatewalk::StunMsgId id = Id(1);
    for (size_t i = 0; i < h.sent.size(); ++i) {
        SCOPED_TRACE(i);
        const Bytes& b = h.sent[i].bytes;
        auto m = h.Decode(b);
        EXPECT_EQ(m->msgHdr.type, gatewalk::STUN_MSG_BindRequestMsg);
        EXPECT_TRUE(gatewalk::stunlib_transIdIsEqual(&m->msgHdr.id, &id));
        EXPECT_STREQ(m->username.value, "remote:local");
        EXPECT_EQ(m->priority, 0x6e0001ffu);
        EXPECT_TRUE(m->hasUseCandidate);
        EXPECT_TRUE(m->hasControlling);
        EXPECT_FALSE(m->hasControlled);
        EXPECT_EQ(m->controlling, 0x932ff9b151263b36ull);
        EXPECT_STREQ(m->softwareName.value, "Vorta");
        EXPECT_TRUE(m->hasFingerPrint);
        unsigned char key[] = "pass-word";
        EXPECT_TRUE(stunlib_checkIntegrity(b.data(), b.size(), m.get(), key, 9));
        unsigned char wrong[] = "pass-wore";
        EXPECT_FALSE(stunlib_checkIntegrity(b.data(), b.size(), m.get(), wrong, 9));
        if constexpr (TypeParam::kZyn) {
            EXPECT_EQ(b, h.sent[0].bytes) << "one encoding, resent as it is";
        } else {
            ASSERT_TRUE(m->hasTransCount);
            EXPECT_EQ(m->transCount.reqCnt, i + 1) << "each copy says which one it is";
            EXPECT_EQ(m->transCount.respCnt, 0);
        }
    }
}

TYPED_TEST(StunClientWire, PlainRequestCarriesNoIceAttributes)
{
    Harness<TypeParam> h;
    Credentials c;
    c.controlling = false;
    c.tieBreaker = 5;  // controlled side
    h.Start(Id(2), c);
    ASSERT_EQ(h.sent.size(), 1u);
    auto m = h.Decode(h.sent[0].bytes);
    EXPECT_FALSE(m->hasUsername);
    EXPECT_FALSE(m->hasPriority);
    EXPECT_FALSE(m->hasUseCandidate);
    EXPECT_FALSE(m->hasMessageIntegrity);
    EXPECT_FALSE(m->hasControlling);
    EXPECT_TRUE(m->hasControlled);
    EXPECT_EQ(m->controlled, 5u);
}

// The server half answers what the client half asked, and the client takes the answer.
TYPED_TEST(StunClientWire, ServerHalfAnswersTheClientHalf)
{
    struct Row {
        const char* name;
        const char* source;  // where the request came from, echoed as XOR-MAPPED-ADDRESS
        uint16_t code;
        const char* qloxResult;
        const char* zynResult;
    };
    const Row rows[] = {
        {"ipv4", "127.0.0.1:40000", 200, "StunResult_BindOk", "StunResult_BindOk"},
        {"ipv6", "[::1]:40000", 200, "StunResult_BindOk", "StunResult_BindOk"},
        {"role conflict", "127.0.0.1:40000", 487, "StunResult_RoleConflict", "StunResult_BindFail"},
        {"bad request", "127.0.0.1:40000", 400, "StunResult_BindFail", "StunResult_BindFail"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness<TypeParam> client;
        Harness<TypeParam> server;
        client.Start(Id(3), kIce);
        auto request = client.Decode(client.sent.at(0).bytes);

        gatewalk::STUN_INCOMING_REQ_DATA in;
        ASSERT_TRUE(server.ReadRequest(*request, &in, true));
        EXPECT_STREQ(in.ufragPair, "remote:local");
        EXPECT_EQ(in.peerPriority, 0x6e0001ffu);
        EXPECT_TRUE(in.useCandidate);
        EXPECT_TRUE(in.iceControlling);
        EXPECT_FALSE(in.iceControlled);
        EXPECT_EQ(in.tieBreaker, 0x932ff9b151263b36ull);
        EXPECT_TRUE(in.fromRelay);

        const sockaddr_storage src = Addr(row.source);
        ASSERT_TRUE(server.Answer(in.transactionId, "pass-word", src, row.code));
        ASSERT_EQ(server.sent.size(), 1u);
        const Bytes& wire = server.sent[0].bytes;
        auto resp = server.Decode(wire);
        EXPECT_EQ(resp->msgHdr.type, row.code == 200 ? 0x0101 : 0x0111);
        unsigned char key[] = "pass-word";
        EXPECT_TRUE(stunlib_checkIntegrity(wire.data(), wire.size(), resp.get(), key, 9));
        ASSERT_TRUE(resp->hasXorMappedAddress);
        {
            char text[64];
            EXPECT_STREQ(gatewalk::stunlib_formatIPAddress(&resp->xorMappedAddress, text, sizeof text),
                         Text(src).c_str());
        }
        if constexpr (TypeParam::kZyn) {
            EXPECT_FALSE(resp->hasErrorCode) << "this profile's error responses are bare";
        } else {
            EXPECT_EQ(resp->hasErrorCode != 0, row.code != 200);
            if (row.code != 200) {
                EXPECT_EQ(resp->errorCode.errorClass * 100 + resp->errorCode.number, row.code);
                // The codec counts the padding in the reason (blanks here), so compare what is in front.
                std::string reason(resp->errorCode.reason);
                reason.erase(reason.find_last_not_of(' ') + 1);
                EXPECT_EQ(reason, row.code == 487 ? "Role Conflict" : "Bad Request");
            }
            ASSERT_TRUE(resp->hasTransCount);
            EXPECT_EQ(resp->transCount.reqCnt, 1);
        }

        client.Deliver(*resp, Addr("127.0.0.1:3478"));
        ASSERT_EQ(client.results.size(), 1u);
        EXPECT_EQ(client.ResultName(client.results[0].result), TypeParam::kZyn ? row.zynResult : row.qloxResult);
        if (row.code == 200) {
            EXPECT_EQ(Text(client.results[0].rflx), Text(src));
        }
    }
}

TYPED_TEST(StunClientWire, IncomingRequestsWithoutIceAttributesAreRefused)
{
    Harness<TypeParam> server;
    struct Row {
        const char* name;
        bool username;
        bool priority;
        const char* line;
    };
    const Row rows[] = {
        {"no username", false, true, "Missing Username in Binding Request"},
        {"no priority", true, false, "Missing Priority in Binding Request"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto m = NewMessage<typename TypeParam::Msg>();
        m->msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
        if (row.username) stunlib_addUserName(m.get(), "a:b", ' ');
        m->hasPriority = row.priority;
        m->hasControlling = m->hasControlled = 1;
        m->controlling = 1;
        m->controlled = 2;
        gatewalk::STUN_INCOMING_REQ_DATA in;
        EXPECT_FALSE(server.ReadRequest(*m, &in, false));
        EXPECT_TRUE(server.Logged(row.line));
    }
    // Both roles in one request: the controlled value is kept, and both flags say what was seen.
    auto m = NewMessage<typename TypeParam::Msg>();
    stunlib_addUserName(m.get(), "a:b", ' ');
    m->hasPriority = 1;
    m->hasControlling = m->hasControlled = 1;
    m->controlling = 1;
    m->controlled = 2;
    gatewalk::STUN_INCOMING_REQ_DATA in;
    EXPECT_TRUE(server.ReadRequest(*m, &in, false));
    EXPECT_TRUE(in.iceControlling && in.iceControlled);
    EXPECT_EQ(in.tieBreaker, 2u);
}

TEST(StunClientWireQlox, RoundTripIsTheOneOfTheCopyAnswered)
{
    // Copies at 0, 100, 300, 600, 1000, 1500 (five retransmissions), the answer at 1700.
    struct Row {
        const char* name;
        int transCount;  // 0: none in the answer
        uint32_t rtt;
    };
    const Row rows[] = {
        {"answer to the third copy", 3, 1400000},   // sent at 300
        {"answer to the latest copy", 6, 200000},   // sent at 1500
        {"no counter: from the first copy", 0, 1700000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness<PQ> t;
        t.Start(Id(1));
        t.RunTo(1700);
        auto resp = t.Response(Id(1), "192.0.2.1:1");
        if (row.transCount) {
            resp->hasTransCount = 1;
            resp->transCount.reqCnt = static_cast<uint8_t>(row.transCount);
            resp->transCount.respCnt = 1;
        }
        t.Deliver(*resp, Addr("127.0.0.1:3478"));
        ASSERT_EQ(t.results.size(), 1u);
        EXPECT_EQ(t.results[0].rtt, row.rtt);
        EXPECT_EQ(t.results[0].retransmits, 5u);
        EXPECT_EQ(t.results[0].respTransCnt, static_cast<uint32_t>(row.transCount));
    }
}

TEST(StunClientWireQlox, TraceTransactionSendsOneCopyWithItsTtl)
{
    Harness<PQ> h;
    qlox_gatewalk::TransactionAttributes a;
    std::memset(static_cast<void*>(&a), 0, sizeof a);
    a.transactionId = Id(8);
    a.connectionId = 7;
    auto send = [](void* self, bool, unsigned int, const unsigned char* b, int n, const sockaddr*, int, bool,
                   unsigned char ttl) {
        auto& me = *static_cast<Harness<PQ>*>(self);
        me.sent.push_back({me.nowMs, Bytes(b, b + n), {}, ttl});
    };
    auto done = [](void* self, qlox_gatewalk::StunCallBackData_T* d) {
        auto& me = *static_cast<Harness<PQ>*>(self);
        me.results.push_back({me.nowMs, d->stunResult, d->msgId, {}, {}, d->rtt, d->retransmits, 0, d->ttl});
    };
    qlox_gatewalk::StunClient_startSTUNTrace(h.client, &h, Sa(h.server), Sa(h.base), false, 5, &a, send, done);
    h.RunTo(3000, 10);
    ASSERT_EQ(h.sent.size(), 1u);
    EXPECT_EQ(h.sent[0].ttl, 5);
    auto m = h.Decode(h.sent[0].bytes);
    EXPECT_TRUE(m->hasTTL);
    EXPECT_EQ(m->ttl.ttl, 5);
    EXPECT_FALSE(m->hasSoftware);
    EXPECT_FALSE(m->hasTransCount);
    EXPECT_FALSE(m->hasFingerPrint) << "a message with TTL carries none";
    ASSERT_EQ(h.results.size(), 1u);
    EXPECT_EQ(h.results[0].result, qlox_gatewalk::StunResult_BindFailNoAnswer);
    EXPECT_EQ(h.results[0].atMs, 1800);
    EXPECT_EQ(h.results[0].ttl, 5u);
}

TEST(StunClientWireQlox, ResponseBuilderRefusesUnusableAddresses)
{
    auto m = NewMessage<qlox_gatewalk::StunMessage>();
    sockaddr_storage unset;
    gatewalk::sockaddr_reset(&unset);
    using qlox_gatewalk::CreateConnectivityBindingResp;
    EXPECT_FALSE(CreateConnectivityBindingResp(m.get(), Id(1), Sa(unset), 0, 0, 0, 0, 0, 0, 0x0101, 200));
    EXPECT_FALSE(CreateConnectivityBindingResp(m.get(), Id(1), nullptr, 0, 0, 0, 0, 0, 0, 0x0101, 200));
    // NetworkStatus rides behind the integrity attribute when a node count is given.
    const sockaddr_storage a = Addr("127.0.0.1:1");
    ASSERT_TRUE(CreateConnectivityBindingResp(m.get(), Id(1), Sa(a), 0, 0, 3, 2, 100, 200, 0x0101, 200));
    EXPECT_FALSE(m->hasTransCount);
    EXPECT_TRUE(m->hasNetworkStatus && m->hasNetworkStatusResp);
    EXPECT_EQ(m->networkStatus.nodeCount, 2);
    EXPECT_EQ(m->networkStatus.downMaxBandwidth, 200);
    EXPECT_FALSE(m->hasErrorCode);
}

}  // namespace
