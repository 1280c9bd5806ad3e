// Messages our encoder builds, in both profiles, read back by an independent decoder (libre), which
// checks their MESSAGE-INTEGRITY and FINGERPRINT and the values of their attributes.
#include <arpa/inet.h>

#include "stun_test_util.h"

extern "C" {
#include <re.h>
}

namespace {

using namespace stun_test;

template <class Msg>
class LibrePeer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(libre_init(), 0); }
    static void TearDownTestSuite() { libre_close(); }
};
TYPED_TEST_SUITE(LibrePeer, Profiles);

// libre's view of one datagram; owns what libre allocated.
struct Decoded {
    mbuf* buffer = nullptr;
    stun_msg* msg = nullptr;
    stun_unknown_attr unknown{};
    int error = -1;

    explicit Decoded(const uint8_t* bytes, size_t n)
    {
        buffer = mbuf_alloc(n);
        mbuf_write_mem(buffer, bytes, n);
        buffer->pos = 0;
        error = stun_msg_decode(&msg, buffer, &unknown);
    }
    ~Decoded()
    {
        mem_deref(msg);
        mem_deref(buffer);
    }
    stun_attr* Attr(uint16_t type) const { return stun_msg_attr(msg, type); }
    std::string Address(uint16_t type) const
    {
        stun_attr* a = Attr(type);
        if (!a) return "missing";
        char text[64];
        sa_ntop(&a->v.sa, text, sizeof text);
        return std::string(text) + ":" + std::to_string(sa_port(&a->v.sa));
    }
};

struct Case {
    const char* name;
    std::function<void(void*)> fill;  // the profile's StunMessage
    Bytes key;
    bool fingerprint;
    std::function<void(const Decoded&)> check;
};

Bytes LongTermKey()
{
    Bytes key(16);
    gatewalk::stunlib_createMD5Key(key.data(), "alice", "example.org", "secret");
    return key;
}

// The relayed address group of each profile, marked present.
template <class Msg>
gatewalk::StunIPAddress& Relay(Msg* m)
{
    if constexpr (kZyn<Msg>) {
        m->hasXorRelayAddress = 1;
        return m->xorRelayAddress;
    } else {
        m->hasXorRelayAddressIPv4 = 1;
        return m->xorRelayAddressIPv4;
    }
}

template <class Msg>
std::vector<Case> Cases()
{
    auto as = [](void* p) { return static_cast<Msg*>(p); };
    return {
        {"ice binding request",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
             stunlib_addSoftware(m, "gatewalk test", ' ');
             stunlib_addUserName(m, "rfrag:lfrag", ' ');
             m->hasPriority = 1, m->priority = 0x6e7f00ff;
             m->hasControlling = 1, m->controlling = 0x1122334455667788ULL;
             m->hasUseCandidate = 1;
         },
         Key("ice-password-0123456789"), true,
         [](const Decoded& d) {
             EXPECT_EQ(stun_msg_method(d.msg), STUN_METHOD_BINDING);
             EXPECT_EQ(stun_msg_class(d.msg), STUN_CLASS_REQUEST);
             ASSERT_NE(d.Attr(STUN_ATTR_USERNAME), nullptr);
             EXPECT_STREQ(d.Attr(STUN_ATTR_USERNAME)->v.username, "rfrag:lfrag");
             EXPECT_EQ(d.Attr(STUN_ATTR_PRIORITY)->v.priority, 0x6e7f00ffu);
             EXPECT_EQ(d.Attr(STUN_ATTR_CONTROLLING)->v.controlling, 0x1122334455667788ULL);
             EXPECT_NE(d.Attr(STUN_ATTR_USE_CAND), nullptr);
         }},
        {"binding response, IPv6",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_BindResponseMsg;
             uint8_t a[16];
             inet_pton(AF_INET6, "2001:db8::42", a);
             m->hasXorMappedAddress = 1;
             gatewalk::stunlib_setIP6Address(&m->xorMappedAddress, a, 61000);
         },
         Key("pw"), true,
         [](const Decoded& d) {
             EXPECT_EQ(stun_msg_class(d.msg), STUN_CLASS_SUCCESS_RESP);
             EXPECT_EQ(d.Address(STUN_ATTR_XOR_MAPPED_ADDR), "2001:db8::42:61000");
         }},
        {"long-term allocate request",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_AllocateRequestMsg;
             stunlib_addUserName(m, "alice", ' ');
             stunlib_addRealm(m, "example.org", ' ');
             stunlib_addNonce(m, "nonce-1234567", ' ');
             stunlib_addRequestedTransport(m, 17);
             m->hasLifetime = 1, m->lifetime = 600;
         },
         LongTermKey(), true,
         [](const Decoded& d) {
             EXPECT_EQ(stun_msg_method(d.msg), STUN_METHOD_ALLOCATE);
             EXPECT_STREQ(d.Attr(STUN_ATTR_REALM)->v.realm, "example.org");
             EXPECT_STREQ(d.Attr(STUN_ATTR_NONCE)->v.nonce, "nonce-1234567");
             EXPECT_EQ(d.Attr(STUN_ATTR_REQ_TRANSPORT)->v.req_transport, 17);
             EXPECT_EQ(d.Attr(STUN_ATTR_LIFETIME)->v.lifetime, 600u);
         }},
        {"allocate response",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_AllocateResponseMsg;
             m->hasXorMappedAddress = 1;
             gatewalk::stunlib_setIP4Address(&m->xorMappedAddress, 0xCB007101, 50000);
             gatewalk::stunlib_setIP4Address(&Relay(m), 0xC6336401, 49152);
             m->hasLifetime = 1, m->lifetime = 300;
             m->hasReservationToken = 1, m->reservationToken = 0xAABBCCDDEEFF0011ULL;
         },
         LongTermKey(), true,
         [](const Decoded& d) {
             EXPECT_EQ(d.Address(STUN_ATTR_XOR_MAPPED_ADDR), "203.0.113.1:50000");
             EXPECT_EQ(d.Address(STUN_ATTR_XOR_RELAY_ADDR), "198.51.100.1:49152");
             EXPECT_EQ(d.Attr(STUN_ATTR_RSV_TOKEN)->v.rsv_token, 0xAABBCCDDEEFF0011ULL);
         }},
        {"unauthorized error response",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_AllocateErrorResponseMsg;
             stunlib_addError(m, "Unauthorized", 401, ' ');
             stunlib_addRealm(m, "example.org", ' ');
             stunlib_addNonce(m, "n", ' ');
         },
         {}, true,
         [](const Decoded& d) {
             EXPECT_EQ(stun_msg_class(d.msg), STUN_CLASS_ERROR_RESP);
             EXPECT_EQ(d.Attr(STUN_ATTR_ERR_CODE)->v.err_code.code, 401);
         }},
        {"channel bind request",
         [as](void* p) {
             Msg* m = as(p);
             m->msgHdr.type = gatewalk::STUN_MSG_ChannelBindRequestMsg;
             stunlib_addChannelNumber(m, 0x4001);
             m->xorPeerAddrEntries = 1;
             gatewalk::stunlib_setIP4Address(&m->xorPeerAddress[0], 0x7F000001, 7000);
         },
         LongTermKey(), true,
         [](const Decoded& d) {
             EXPECT_EQ(d.Attr(STUN_ATTR_CHANNEL_NUMBER)->v.channel_number, 0x4001);
             EXPECT_EQ(d.Address(STUN_ATTR_XOR_PEER_ADDR), "127.0.0.1:7000");
         }},
        {"send indication",
         [as](void* p) {
             Msg* m = as(p);
             static const uint8_t payload[] = "relayed payload";
             m->msgHdr.type = gatewalk::STUN_MSG_SendIndicationMsg;
             m->xorPeerAddrEntries = 1;
             gatewalk::stunlib_setIP4Address(&m->xorPeerAddress[0], 0x7F000001, 7001);
             m->hasData = 1, m->data.pData = payload, m->data.dataLen = sizeof payload;
         },
         {}, false,
         [](const Decoded& d) {
             EXPECT_EQ(stun_msg_class(d.msg), STUN_CLASS_INDICATION);
             EXPECT_EQ(mbuf_get_left(&d.Attr(STUN_ATTR_DATA)->v.data), 16u);
         }},
    };
}

TYPED_TEST(LibrePeer, DecodesOurMessagesAndAcceptsTheirChecks)
{
    for (const Case& c : Cases<TypeParam>()) {
        SCOPED_TRACE(c.name);
        auto m = NewMessage<TypeParam>();
        m->msgHdr.id = Id(0x30);
        c.fill(m.get());
        uint8_t buf[gatewalk::STUN_MAX_PACKET_SIZE];
        Bytes key = c.key;
        uint32_t n = stunlib_encodeMessage(m.get(), buf, sizeof buf, key.empty() ? nullptr : key.data(),
                                           static_cast<unsigned>(key.size()), nullptr);
        ASSERT_GT(n, 0u);
        Decoded d(buf, n);
        ASSERT_EQ(d.error, 0);
        EXPECT_EQ(d.unknown.typec, 0u);
        if (!key.empty()) {
            EXPECT_EQ(stun_msg_chk_mi(d.msg, key.data(), key.size()), 0);
            Bytes wrong = key;
            wrong[0] ^= 0x55;
            EXPECT_NE(stun_msg_chk_mi(d.msg, wrong.data(), wrong.size()), 0);
        }
        EXPECT_EQ(stun_msg_attr(d.msg, STUN_ATTR_FINGERPRINT) != nullptr, c.fingerprint);
        if (c.fingerprint) {
            EXPECT_EQ(stun_msg_chk_fingerprint(d.msg), 0);
        }
        c.check(d);
    }
}

}  // namespace
