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

    // Payload placed at `offset` of a buffer of `size`; returns the framed length.
    uint32_t Frame(Bytes& buffer, const std::string& payload, uint32_t offset, const sockaddr_storage* peer, bool pad)
    {
        std::copy(payload.begin(), payload.end(), buffer.begin() + offset);
        return P::SendPacket(s.inst, buffer.data(), static_cast<uint32_t>(buffer.size()),
                             static_cast<uint32_t>(payload.size()), offset, peer ? Sa(*peer) : nullptr, pad);
    }

    FakeServer<P> s;
    sockaddr_storage peer = Addr("198.51.100.9:7000");
};
TYPED_TEST_SUITE(TurnFraming, Profiles);

TYPED_TEST(TurnFraming, SendIndicationWithoutAChannel)
{
    const char* peers[] = {"198.51.100.9:7000", "[2001:db8::9]:7001"};
    for (const char* text : peers) {
        SCOPED_TRACE(text);
        sockaddr_storage to = Addr(text);
        for (uint32_t offset : {0u, 36u, 48u, 100u}) {
            Bytes buffer(300, 0xEE);
            uint32_t n = this->Frame(buffer, "hello", offset, &to, false);
            ASSERT_GT(n, 0u) << offset;
            buffer.resize(n);
            auto m = FakeServer<TypeParam>::NewMsg();
            ASSERT_TRUE(TypeParam::Decode(buffer, m.get()));
            EXPECT_EQ(m->msgHdr.type, STUN_MSG_SendIndicationMsg);
            ASSERT_EQ(m->xorPeerAddrEntries, 1u);
            EXPECT_EQ(m->xorPeerAddress[0].port, to.ss_family == AF_INET ? 7000 : 7001);
            ASSERT_TRUE(m->hasData);
            EXPECT_EQ(std::string(m->data.pData, m->data.pData + m->data.dataLen), "hello");
            EXPECT_FALSE(m->hasFingerPrint);
        }
    }
}

TYPED_TEST(TurnFraming, ChannelDataTowardsTheBoundPeer)
{
    this->s.Permit();
    this->s.Bind(0x4abc, "198.51.100.9:7000");
    struct Row {
        const char* name;
        uint32_t offset;
        bool pad;
        uint32_t length;  // on the wire
    };
    const Row rows[] = {
        {"header room in front", 4, false, 9},
        {"payload at the start", 0, false, 9},
        {"far offset", 64, false, 9},
        {"tcp padding", 4, true, 12},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes buffer(128, 0xEE);
        uint32_t n = this->Frame(buffer, "hello", row.offset, &this->peer, row.pad);
        ASSERT_EQ(n, row.length);
        EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 9), (Bytes{0x4a, 0xbc, 0x00, 0x05, 'h', 'e', 'l', 'l', 'o'}));
        if (row.pad) {
            EXPECT_EQ(Bytes(buffer.begin() + 9, buffer.begin() + 12), (Bytes{0, 0, 0}));
        }
    }
    // Another peer still goes by indication; a null peer means the channel's.
    Bytes buffer(128, 0);
    sockaddr_storage other = Addr("198.51.100.10:7000");
    ASSERT_GT(this->Frame(buffer, "x", 64, &other, false), 20u);
    EXPECT_TRUE(stunlib_isStunMsg(buffer.data(), 20));
    EXPECT_EQ(this->Frame(buffer, "x", 64, nullptr, false), 5u);
}

TYPED_TEST(TurnFraming, BuffersThatCannotTakeTheFrameAreRefused)
{
    Bytes buffer(40, 0);
    EXPECT_EQ(this->Frame(buffer, "hello", 0, &this->peer, false), 0u) << "36 + 8 do not fit in 40";
    EXPECT_EQ(TypeParam::SendPacket(this->s.inst, buffer.data(), 40, 10, 35, Sa(this->peer), false), 0u)
        << "the payload reaches past the buffer";
    EXPECT_EQ(TypeParam::SendPacket(this->s.inst, buffer.data(), 40, 1, 0, nullptr, false), 0u)
        << "no peer and no channel";
    this->s.Permit();
    this->s.Bind();
    Bytes exact(8, 0);
    EXPECT_EQ(this->Frame(exact, "abcd", 4, &this->peer, false), 8u);
    Bytes tight(8, 0);
    EXPECT_EQ(this->Frame(tight, "abcde", 0, &this->peer, false), 0u);
    Bytes noPadRoom(10, 0);
    EXPECT_EQ(this->Frame(noPadRoom, "abcde", 0, &this->peer, true), 0u) << "12 bytes once padded";
}

TYPED_TEST(TurnFraming, ReceiveChannelDataAndDataIndications)
{
    this->s.Permit();
    this->s.Bind(0x4001, "198.51.100.9:7000");
    sockaddr_storage from{};
    uint64_t token = 0;

    // Channel data, padded as over TCP: the payload moves to the front.
    Bytes channel = {0x40, 0x01, 0x00, 0x03, 'a', 'b', 'c', 0x00};
    auto length = static_cast<uint32_t>(channel.size());
    ASSERT_TRUE(TypeParam::ReceivePacket(this->s.inst, channel.data(), &length, reinterpret_cast<sockaddr*>(&from),
                                         sizeof from, &token));
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(std::string(channel.begin(), channel.begin() + 3), "abc");
    EXPECT_EQ(Text(from), "198.51.100.9:7000");

    // A Data indication from an IPv6 peer.
    Bytes indication(200, 0);
    sockaddr_storage v6 = Addr("[2001:db8::7]:9000");
    const std::string payload = "relayed payload";
    std::copy(payload.begin(), payload.end(), indication.begin() + 48);
    uint32_t n = stunlib_EncodeDataIndication(indication.data(), nullptr, static_cast<unsigned>(indication.size()),
                                              static_cast<unsigned>(payload.size()), Sa(v6));
    ASSERT_GT(n, 0u);
    length = n;
    ASSERT_TRUE(TypeParam::ReceivePacket(this->s.inst, indication.data(), &length, reinterpret_cast<sockaddr*>(&from),
                                         sizeof from, &token));
    EXPECT_EQ(std::string(indication.begin(), indication.begin() + length), payload);
    EXPECT_EQ(Text(from), "[2001:db8::7]:9000");
    // No room for an IPv6 sender: refused rather than cut.
    length = n;
    indication.assign(200, 0);
    stunlib_EncodeDataIndication(indication.data(), reinterpret_cast<const uint8_t*>(payload.data()), 200,
                                 static_cast<unsigned>(payload.size()), Sa(v6));
    sockaddr_in small{};
    EXPECT_FALSE(TypeParam::ReceivePacket(this->s.inst, indication.data(), &length, reinterpret_cast<sockaddr*>(&small),
                                          sizeof small, &token));
}

TYPED_TEST(TurnFraming, PacketsThatAreNotRelayedData)
{
    this->s.Permit();
    this->s.Bind(0x4001, "198.51.100.9:7000");
    struct Row {
        const char* name;
        Bytes bytes;
    };
    const Row rows[] = {
        {"other channel", {0x40, 0x02, 0x00, 0x01, 'a'}},
        {"length past the end", {0x40, 0x01, 0x00, 0x09, 'a', 'b'}},
        {"short channel header", {0x40, 0x01, 0x00}},
        {"rtp", {0x80, 0x60, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"stun without cookie", Bytes(20, 0x00)},
        {"truncated stun", {0x00, 0x17, 0x00, 0x10, 0x21, 0x12, 0xA4, 0x42, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes copy = row.bytes;
        auto length = static_cast<uint32_t>(copy.size());
        sockaddr_storage from{};
        EXPECT_FALSE(TypeParam::ReceivePacket(this->s.inst, copy.data(), &length, reinterpret_cast<sockaddr*>(&from),
                                              sizeof from, nullptr));
        EXPECT_EQ(length, row.bytes.size()) << "left as it came";
    }
    // A response goes to the state machine, and is not data.
    sockaddr_storage peer = Addr("198.51.100.9:7000");
    const sockaddr* peers[] = {Sa(peer)};
    ASSERT_TRUE(TypeParam::Permission(this->s.inst, 1, peers));
    Bytes answer = this->s.Response(STUN_MSG_CreatePermissionResponseMsg);
    auto length = static_cast<uint32_t>(answer.size());
    this->s.results.clear();
    EXPECT_FALSE(TypeParam::ReceivePacket(this->s.inst, answer.data(), &length, nullptr, 0, nullptr));
    EXPECT_EQ(this->s.results, std::vector{TurnResult_CreatePermissionOk});
}

TYPED_TEST(TurnFraming, ChannelDataBeforeAnyBindIsRefused)
{
    FakeServer<TypeParam> fresh;
    fresh.Allocate();
    Bytes channel = {0x40, 0x01, 0x00, 0x01, 'a'};
    uint32_t length = 5;
    EXPECT_FALSE(TypeParam::ReceivePacket(fresh.inst, channel.data(), &length, nullptr, 0, nullptr));
}

TYPED_TEST(TurnFraming, AllocateResponseGivesItsReservationToken)
{
    FakeServer<TypeParam> s;
    ASSERT_TRUE(s.Start(AF_INET, true));
    Bytes answer = s.Response(
        STUN_MSG_AllocateResponseMsg,
        [](auto& m) {
            FakeServer<TypeParam>::FillAllocation(m);
            m.hasReservationToken = 1;
            m.reservationToken = 0x0102030405060708ULL;
        },
        false);
    auto length = static_cast<uint32_t>(answer.size());
    uint64_t token = 0;
    EXPECT_FALSE(TypeParam::ReceivePacket(s.inst, answer.data(), &length, nullptr, 0, &token));
    EXPECT_EQ(token, 0x0102030405060708ULL);
    EXPECT_EQ(s.results, std::vector{TurnResult_AllocOk});
}

}  // namespace
