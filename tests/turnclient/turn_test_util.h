// A fake TURN server around one client instance: it records what the client sends (decoded with the
// codec), answers with responses built by the codec, and moves the client's clock by ticks. Both
// profiles run every test as gtest type parameters.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sockaddr_util.h"
#include "turnclient.h"

namespace turn_test {

using Bytes = std::vector<uint8_t>;

#define TURN_TEST_PROFILE(NS)                                                                         \
    struct NS##_profile {                                                                             \
        using Msg = NS::StunMessage;                                                                  \
        using Instance = NS::TURN_INSTANCE_DATA;                                                      \
        static constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;                 \
        static constexpr auto Start = &NS::TurnClient_StartAllocateTransaction;                       \
        static constexpr auto Permission = &NS::TurnClient_StartCreatePermissionReq;                  \
        static constexpr auto Channel = &NS::TurnClient_StartChannelBindReq;                          \
        static constexpr auto Deallocate = &NS::TurnClient_Deallocate;                                \
        static constexpr auto Tick = &NS::TurnClient_HandleTick;                                      \
        static constexpr auto HandleIncResp = &NS::TurnClient_HandleIncResp;                          \
        static constexpr auto Free = &NS::TurnClient_free;                                            \
        static constexpr auto HasBoundChannel = &NS::TurnClient_HasBoundChannel;                      \
        static constexpr auto Stats = &NS::TurnClientGetStats;                                        \
        static constexpr auto Simulate = &NS::TurnClientSimulateSig;                                  \
        static constexpr auto SendPacket = &NS::TurnClient_SendPacket;                                \
        static constexpr auto ReceivePacket = &NS::TurnClient_ReceivePacket;                          \
    };
TURN_TEST_PROFILE(qlox_gatewalk)
TURN_TEST_PROFILE(zyn_gatewalk)
#undef TURN_TEST_PROFILE

using Profiles = ::testing::Types<qlox_gatewalk_profile, zyn_gatewalk_profile>;

// The profile's codec, found by argument-dependent lookup on the record's namespace.
template <class Msg>
bool Decode(const Bytes& b, Msg* m)
{
    return stunlib_DecodeMessage(b.data(), b.size(), m, nullptr, nullptr);
}

constexpr unsigned int kTickMs = 10;
constexpr const char* kUser = "alice";
constexpr const char* kPassword = "secret";
constexpr const char* kRealm = "example.org";
constexpr const char* kNonce = "nonce-1";

inline sockaddr_storage Addr(const char* text)
{
    sockaddr_storage s{};
    EXPECT_TRUE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&s), text)) << text;
    return s;
}

inline const sockaddr* Sa(const sockaddr_storage& s) { return reinterpret_cast<const sockaddr*>(&s); }

inline std::string Text(const sockaddr_storage& s)
{
    char text[64];
    const char* t = gatewalk::sockaddr_toString(Sa(s), text, sizeof text, true);
    return t ? t : "-";
}

inline gatewalk::StunIPAddress StunAddr(const char* text)
{
    sockaddr_storage s = Addr(text);
    gatewalk::StunIPAddress a{};
    if (s.ss_family == AF_INET) {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&s);
        gatewalk::stunlib_setIP4Address(&a, ntohl(v4->sin_addr.s_addr), ntohs(v4->sin_port));
    } else {
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&s);
        gatewalk::stunlib_setIP6Address(&a, v6->sin6_addr.s6_addr, ntohs(v6->sin6_port));
    }
    return a;
}

template <class P>
class FakeServer {
public:
    using Msg = typename P::Msg;

    struct Sent {
        Bytes bytes;
        sockaddr_storage to;
    };

    ~FakeServer()
    {
        if (inst) P::Free(inst);
    }

    bool Start(int family = AF_INET, bool evenPort = false, uint64_t token = 0)
    {
        sockaddr_storage server = Addr("127.0.0.1:3478");
        return P::Start(&inst, kTickMs, &Log, "test client 1.0", this, Sa(server), kUser, kPassword, family, &Send,
                        &Result, evenPort, token);
    }

    // The last packet the client sent, decoded.
    std::unique_ptr<Msg> Last()
    {
        auto m = NewMsg();
        EXPECT_FALSE(sent.empty());
        if (!sent.empty()) {
            EXPECT_TRUE(Decode(sent.back().bytes, m.get()));
        }
        return m;
    }

    static std::unique_ptr<Msg> NewMsg()
    {
        auto m = std::make_unique<Msg>();
        std::memset(m.get(), 0, sizeof(Msg));
        return m;
    }

    // A response to the last request, of `type`, filled by `fill`, with MESSAGE-INTEGRITY when `signed`.
    Bytes Response(uint16_t type, const std::function<void(Msg&)>& fill = {}, bool withKey = true)
    {
        auto request = Last();
        auto m = NewMsg();
        m->msgHdr.type = type;
        m->msgHdr.id = request->msgHdr.id;
        if (fill) fill(*m);
        uint8_t out[gatewalk::STUN_MAX_PACKET_SIZE];
        uint32_t n = stunlib_encodeMessage(m.get(), out, sizeof out, withKey ? key : nullptr, 16, nullptr);
        EXPECT_GT(n, 0u);
        return Bytes(out, out + n);
    }

    Bytes Error(uint16_t type, uint16_t code, const char* nonce = nullptr, const char* realm = nullptr)
    {
        return Response(
            type,
            [&](Msg& m) {
                stunlib_addError(&m, gatewalk::stunlib_getErrorReason(code / 100, code % 100), code, ' ');
                if (nonce) stunlib_addNonce(&m, nonce, ' ');
                if (realm) stunlib_addRealm(&m, realm, ' ');
            },
            false);
    }

    // Hands bytes to the client as its socket would; true if the client took them as its answer.
    bool Answer(const Bytes& bytes)
    {
        Bytes copy = bytes;
        auto m = NewMsg();
        EXPECT_TRUE(Decode(copy, m.get()));
        return P::HandleIncResp(inst, m.get(), copy.data());
    }

    static void FillAllocation(Msg& m, const char* relay = "127.0.0.1:50000", uint32_t lifetime = 600)
    {
        gatewalk::StunIPAddress r = StunAddr(relay);
        if constexpr (P::kZyn) {
            m.hasXorRelayAddress = 1;
            m.xorRelayAddress = r;
        } else if (r.familyType == gatewalk::STUN_ADDR_IPv4Family) {
            m.hasXorRelayAddressIPv4 = 1;
            m.xorRelayAddressIPv4 = r;
        } else {
            m.hasXorRelayAddressIPv6 = 1;
            m.xorRelayAddressIPv6 = r;
        }
        m.hasXorMappedAddress = 1;
        m.xorMappedAddress = StunAddr("192.0.2.7:40000");
        m.hasLifetime = 1;
        m.lifetime = lifetime;
    }

    // Start, 401, authenticated Allocate, success: the instance ends Allocated.
    void Allocate(uint32_t lifetime = 600)
    {
        ASSERT_TRUE(Start());
        ASSERT_TRUE(Answer(Error(gatewalk::STUN_MSG_AllocateErrorResponseMsg, 401, kNonce, kRealm)));
        ASSERT_TRUE(Answer(Response(gatewalk::STUN_MSG_AllocateResponseMsg,
                                    [&](Msg& m) { FillAllocation(m, "127.0.0.1:50000", lifetime); })));
        ASSERT_EQ(State(), gatewalk::TURN_STATE_Allocated);
        results.clear();
        sent.clear();
    }

    // Starts a request of the allocated life: a permission, a channel bind, a refresh or the release.
    bool Ask(gatewalk::TURN_SIGNAL what, uint16_t channel = 0x4001, const char* peer = "198.51.100.9:7000")
    {
        sockaddr_storage p = Addr(peer);
        const sockaddr* peers[] = {Sa(p)};
        if (what == gatewalk::TURN_SIGNAL_CreatePermissionReq) return P::Permission(inst, 1, peers);
        if (what == gatewalk::TURN_SIGNAL_ChannelBindReq) return P::Channel(inst, channel, Sa(p));
        P::Simulate(inst, what);
        return true;
    }
    void Permit()
    {
        ASSERT_TRUE(Ask(gatewalk::TURN_SIGNAL_CreatePermissionReq) &&
                    Answer(Response(gatewalk::STUN_MSG_CreatePermissionResponseMsg)));
    }
    void Bind(uint16_t channel = 0x4001)
    {
        ASSERT_TRUE(Ask(gatewalk::TURN_SIGNAL_ChannelBindReq, channel) &&
                    Answer(Response(gatewalk::STUN_MSG_ChannelBindResponseMsg)));
    }

    void Advance(uint32_t ms)
    {
        for (uint32_t t = 0; t < ms; t += kTickMs) P::Tick(inst);
    }

    gatewalk::TURN_STATE State() const
    {
        gatewalk::TurnStats_T s{};
        P::Stats(inst, &s);
        return s.state;
    }

    // Time (ms from now) at which the first message of `type` leaves, or 0 if none within `limit`.
    uint32_t NextSendOf(uint16_t type, uint32_t limit)
    {
        for (uint32_t now = kTickMs; now <= limit; now += kTickMs) {
            size_t before = sent.size();
            P::Tick(inst);
            for (size_t i = before; i < sent.size(); ++i) {
                auto m = NewMsg();
                if (Decode(sent[i].bytes, m.get()) && m->msgHdr.type == type) return now;
            }
        }
        return 0;
    }

    bool LastIsSigned()
    {
        auto m = Last();
        return stunlib_checkIntegrity(sent.back().bytes.data(), sent.back().bytes.size(), m.get(), key, 16);
    }

    typename P::Instance* inst = nullptr;
    std::vector<Sent> sent;
    std::vector<gatewalk::TurnResult_T> results;
    gatewalk::TurnCallBackData_T lastData{};
    uint8_t key[16] = {};  // what the server signs with

private:
    static void Send(const unsigned char* bytes, unsigned long length, const sockaddr* to, void* ctx)
    {
        auto* self = static_cast<FakeServer*>(ctx);
        Sent s{Bytes(bytes, bytes + length), {}};
        std::memcpy(&s.to, to, to->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
        self->sent.push_back(s);
    }
    static void Result(void* ctx, gatewalk::TurnCallBackData_T* data)
    {
        auto* self = static_cast<FakeServer*>(ctx);
        self->results.push_back(data->turnResult);
        self->lastData = *data;
    }
    // Formats every log line (under the sanitizers that checks the arguments), keeps none.
    static void Log(void*, gatewalk::TurnInfoCategory_T, const char* text) { EXPECT_NE(text[0], '\0'); }

public:
    FakeServer() { gatewalk::stunlib_createMD5Key(key, kUser, kRealm, kPassword); }
};

}  // namespace turn_test
