// Relayed data: what TurnClient_SendPacket puts on the wire (read back with the codec) and what
// TurnClient_ReceivePacket takes from it, including packets that must be refused.
#include <string>

#include "turn_test_util.h"

namespace {

using namespace turn_test;
using namespace gatewalk;

template <class P>
class TurnFraming : public ::testing::Test {
protected:
    void SetUp() override { s.Allocate(); }

    // "hello" placed at `offset` of a buffer of `size`; returns the framed length.
    uint32_t Frame(Bytes& buffer, uint32_t offset, const sockaddr_storage* to, bool pad)
    {
        std::memcpy(buffer.data() + offset, "hello", 5);
        return P::SendPacket(s.inst, buffer.data(), static_cast<uint32_t>(buffer.size()), 5, offset,
                             to ? Sa(*to) : nullptr, pad);
    }

    bool Receive(Bytes& packet, uint32_t* length, sockaddr_storage* from)
    {
        *length = static_cast<uint32_t>(packet.size());
        return P::ReceivePacket(s.inst, packet.data(), length, reinterpret_cast<sockaddr*>(from), sizeof *from, nullptr);
    }

    FakeServer<P> s;
    sockaddr_storage peer = Addr("198.51.100.9:7000");
};
TYPED_TEST_SUITE(TurnFraming, Profiles);

TYPED_TEST(TurnFraming, SendIndicationWithoutAChannel)
{
    for (const char* text : {"198.51.100.9:7000", "[2001:db8::9]:7001"}) {
        sockaddr_storage to = Addr(text);
        for (uint32_t offset : {0u, 36u, 48u, 100u}) {
            SCOPED_TRACE(std::string(text) + " at " + std::to_string(offset));
            Bytes buffer(300, 0xEE);
            uint32_t n = this->Frame(buffer, offset, &to, false);
            ASSERT_GT(n, 0u);
            buffer.resize(n);
            auto m = FakeServer<TypeParam>::NewMsg();
            ASSERT_TRUE(Decode(buffer, m.get()));
            EXPECT_EQ(m->msgHdr.type, STUN_MSG_SendIndicationMsg);
            ASSERT_EQ(m->xorPeerAddrEntries, 1u);
            EXPECT_EQ(m->xorPeerAddress[0].port, sockaddr_ipPort(Sa(to)));
            EXPECT_EQ(std::string(m->data.pData, m->data.pData + m->data.dataLen), "hello");
        }
    }
    Bytes small(40, 0);
    EXPECT_EQ(this->Frame(small, 0, &this->peer, false), 0u) << "36 + 8 do not fit in 40";
    EXPECT_EQ(this->Frame(small, 0, nullptr, false), 0u) << "no peer and no channel";
}

TYPED_TEST(TurnFraming, ChannelDataTowardsTheBoundPeer)
{
    this->s.Permit();
    this->s.Bind(0x4abc);
    struct Row {
        uint32_t offset, size;
        bool pad;
        uint32_t length;  // on the wire, 0: refused
    };
    const Row rows[] = {{4, 64, false, 9}, {0, 64, false, 9}, {50, 64, false, 9}, {4, 64, true, 12},
                        {4, 9, false, 9},  {0, 8, false, 0},  {4, 10, true, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.offset << "/" << row.size << (row.pad ? " padded" : ""));
        Bytes buffer(row.size, 0xEE);
        ASSERT_EQ(this->Frame(buffer, row.offset, &this->peer, row.pad), row.length);
        if (row.length == 0) continue;
        Bytes expected{0x4a, 0xbc, 0x00, 0x05, 'h', 'e', 'l', 'l', 'o', 0, 0, 0};
        expected.resize(row.length);
        EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + row.length), expected);
    }
    // Another peer still goes by indication; a null peer means the channel's.
    Bytes buffer(128, 0);
    sockaddr_storage other = Addr("198.51.100.10:7000");
    ASSERT_GT(this->Frame(buffer, 64, &other, false), 20u);
    EXPECT_TRUE(stunlib_isStunMsg(buffer.data(), 20));
    EXPECT_EQ(this->Frame(buffer, 64, nullptr, false), 9u);
}

TYPED_TEST(TurnFraming, ReceiveChannelDataAndDataIndications)
{
    this->s.Permit();
    this->s.Bind(0x4001);
    sockaddr_storage from{};
    uint32_t length = 0;
    Bytes channel = {0x40, 0x01, 0x00, 0x03, 'a', 'b', 'c', 0x00};  // padded, as over TCP
    ASSERT_TRUE(this->Receive(channel, &length, &from));
    EXPECT_EQ(std::string(channel.begin(), channel.begin() + length), "abc");
    EXPECT_EQ(Text(from), "198.51.100.9:7000");

    Bytes indication(200, 0);
    const std::string payload = "relayed payload";
    sockaddr_storage v6 = Addr("[2001:db8::7]:9000");
    indication.resize(stunlib_EncodeDataIndication(indication.data(), reinterpret_cast<const uint8_t*>(payload.data()),
                                                   200, static_cast<unsigned>(payload.size()), Sa(v6)));
    ASSERT_TRUE(this->Receive(indication, &length, &from));
    EXPECT_EQ(std::string(indication.begin(), indication.begin() + length), payload);
    EXPECT_EQ(Text(from), "[2001:db8::7]:9000");
}

TYPED_TEST(TurnFraming, PacketsThatAreNotRelayedData)
{
    FakeServer<TypeParam> unbound;
    unbound.Allocate();
    Bytes early = {0x40, 0x01, 0x00, 0x01, 'a'};
    uint32_t length = 5;
    EXPECT_FALSE(TypeParam::ReceivePacket(unbound.inst, early.data(), &length, nullptr, 0, nullptr)) << "no channel yet";

    this->s.Permit();
    this->s.Bind(0x4001);
    const std::pair<const char*, Bytes> rows[] = {
        {"other channel", {0x40, 0x02, 0x00, 0x01, 'a'}},
        {"length past the end", {0x40, 0x01, 0x00, 0x09, 'a', 'b'}},
        {"short channel header", {0x40, 0x01, 0x00}},
        {"rtp", {0x80, 0x60, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"stun without cookie", Bytes(20, 0x00)},
        {"truncated stun", {0x00, 0x17, 0x00, 0x10, 0x21, 0x12, 0xA4, 0x42, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
    };
    for (const auto& [name, bytes] : rows) {
        SCOPED_TRACE(name);
        Bytes copy = bytes;
        sockaddr_storage from{};
        EXPECT_FALSE(this->Receive(copy, &length, &from));
        EXPECT_EQ(copy, bytes) << "left as it came";
    }
    // A response goes to the state machine, and is not data.
    ASSERT_TRUE(this->s.Ask(TURN_SIGNAL_CreatePermissionReq));
    Bytes answer = this->s.Response(STUN_MSG_CreatePermissionResponseMsg);
    sockaddr_storage from{};
    this->s.results.clear();
    EXPECT_FALSE(this->Receive(answer, &length, &from));
    EXPECT_EQ(this->s.results, std::vector{TurnResult_CreatePermissionOk});
}

}  // namespace
