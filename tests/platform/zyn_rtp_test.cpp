// RTP/RTCP reading and statistics, and SRTP, as the simulated engine uses them.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtp.h"
#include "zyn/ZynSrtp.h"

namespace {

using namespace zynrtp;

std::vector<uint8_t> Packet(uint16_t seq, uint32_t ts, size_t payload = 20)
{
    std::vector<uint8_t> p(kRtpHeaderSize + payload, 0xAB);
    RtpHeader h;
    h.payloadType = 111;
    h.sequence = seq;
    h.timestamp = ts;
    h.ssrc = 0x11223344;
    WriteRtpHeader(h, p.data(), p.size());
    return p;
}

TEST(RtpHeaderTest, ReadsWhatFitsAndRefusesWhatDoesNot)
{
    auto good = Packet(7, 960);
    auto h = ReadRtpHeader(good.data(), good.size());
    ASSERT_TRUE(h);
    EXPECT_EQ(111, h->payloadType);
    EXPECT_EQ(7, h->sequence);
    EXPECT_EQ(960u, h->timestamp);
    EXPECT_EQ(0x11223344u, h->ssrc);

    struct Row {
        const char* name;
        std::vector<uint8_t> bytes;
        bool ok;
        size_t headerLength;
    };
    std::vector<uint8_t> base = Packet(1, 1, 0);
    auto with = [&](std::initializer_list<std::pair<size_t, uint8_t>> edits, size_t extra) {
        std::vector<uint8_t> b = base;
        b.resize(b.size() + extra, 0);
        for (auto [at, v] : edits) b[at] = v;
        return b;
    };
    const Row rows[] = {
        {"eleven bytes", std::vector<uint8_t>(base.begin(), base.begin() + 11), false, 0},
        {"version 1", with({{0, 0x40}}, 0), false, 0},
        {"two CSRCs present", with({{0, 0x82}}, 8), true, 20},
        {"two CSRCs announced, one present", with({{0, 0x82}}, 4), false, 0},
        {"extension header missing", with({{0, 0x90}}, 2), false, 0},
        {"extension of one word", with({{0, 0x90}, {15, 1}}, 8), true, 20},
        {"extension longer than the packet", with({{0, 0x90}, {15, 2}}, 8), false, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto r = ReadRtpHeader(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(row.ok, r.has_value());
        if (r) {
            EXPECT_EQ(row.headerLength, r->headerLength);
        }
    }
    uint8_t small[11];
    EXPECT_EQ(0u, WriteRtpHeader(RtpHeader{}, small, sizeof(small)));
}

TEST(ReceiveStatisticsTest, LossWrapAndDuplicates)
{
    struct Row {
        const char* name;
        std::vector<uint16_t> sequence;
        uint32_t expected;
        int64_t lost;
    };
    const Row rows[] = {
        {"in order", {10, 11, 12, 13}, 4, 0},
        {"two lost", {10, 11, 14, 15}, 6, 2},
        {"reordered", {10, 12, 11, 13}, 4, 0},
        {"across the wrap", {65534, 65535, 0, 1}, 4, 0},
        {"loss across the wrap", {65534, 1}, 4, 2},
        {"a duplicate counts as received", {10, 11, 11, 12}, 3, -1},
        {"a stray far jump is ignored", {10, 11, 20000, 12}, 3, 0},
        {"two in a row after a jump restart the count", {10, 11, 20000, 20001, 20002}, 2, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ReceiveStatistics stats(48000);
        uint64_t t = 0;
        for (uint16_t s : row.sequence) {
            RtpHeader h;
            h.sequence = s;
            stats.OnPacket(h, 100, t += 20);
        }
        EXPECT_EQ(row.expected, stats.Expected());
        EXPECT_EQ(row.lost, stats.Lost());
    }
}

TEST(ReceiveStatisticsTest, JitterFollowsTheTransitVariation)
{
    // Packets every 20 ms of media time at 8 kHz (160 ticks).
    ReceiveStatistics steady(8000), shaky(8000);
    for (int i = 0; i < 200; ++i) {
        RtpHeader h;
        h.sequence = static_cast<uint16_t>(i);
        h.timestamp = 160u * i;
        steady.OnPacket(h, 172, 1000 + 20ull * i);
        // Every other packet 10 ms late: |D| alternates 80 ticks, so J tends to 80.
        shaky.OnPacket(h, 172, 1000 + 20ull * i + (i % 2 ? 10 : 0));
    }
    EXPECT_EQ(0u, steady.Jitter());
    EXPECT_NEAR(80.0, shaky.Jitter(), 1.0);
    EXPECT_NEAR(10.0, shaky.JitterMs(), 0.2);
    EXPECT_EQ(200u * 172, shaky.Bytes());
}

TEST(SenderReportTest, RoundTripsAndGivesTheRoundTripTime)
{
    SenderReport r;
    r.ssrc = 1;
    r.ntp = (0x12345678ull << 32) | 0x9ABCDEF0u;
    r.rtpTimestamp = 4242;
    r.packets = 10;
    r.octets = 1000;
    r.hasBlock = true;
    r.sourceSsrc = 2;
    r.fractionLost = 25;
    r.cumulativeLost = -3;
    r.highestSeq = 70000;
    r.jitter = 80;
    r.lastSr = 0x56789ABC;
    r.delaySinceLastSr = 65536 / 2;  // 500 ms
    uint8_t buf[64];
    size_t n = WriteSenderReport(r, buf, sizeof(buf));
    ASSERT_EQ(52u, n);
    auto back = ReadSenderReport(buf, n);
    ASSERT_TRUE(back);
    EXPECT_EQ(r.ntp, back->ntp);
    EXPECT_EQ(-3, back->cumulativeLost);
    EXPECT_EQ(70000u, back->highestSeq);
    EXPECT_EQ(r.delaySinceLastSr, back->delaySinceLastSr);
    // Arrives 750 ms after the reported SR was sent: 750 - 500 = 250 ms round trip.
    uint64_t arrival = (static_cast<uint64_t>(r.lastSr) + 65536 * 3 / 4) << 16;
    auto rtt = RoundTripMs(*back, arrival);
    ASSERT_TRUE(rtt);
    EXPECT_NEAR(250.0, *rtt, 0.1);
    EXPECT_FALSE(ReadSenderReport(buf, n - 4));  // length field past the data
    EXPECT_EQ(0u, WriteSenderReport(r, buf, 51));
}

TEST(SrtpTest, ProtectedPacketsOpenOnlyWithTheKeyAndOnlyOnce)
{
    uint8_t key[30];
    for (int i = 0; i < 30; ++i) key[i] = static_cast<uint8_t>(i * 7);
    SrtpContext send, receive, stranger;
    const int32_t suite = ZynSrtpSuite_AesCm128HmacSha1_80;
    ASSERT_TRUE(send.SetKey(SrtpContext::Direction::Send, suite, key, sizeof(key)));
    ASSERT_TRUE(receive.SetKey(SrtpContext::Direction::Receive, suite, key, sizeof(key)));
    key[0] ^= 1;
    ASSERT_TRUE(stranger.SetKey(SrtpContext::Direction::Receive, suite, key, sizeof(key)));
    EXPECT_FALSE(SrtpContext().SetKey(SrtpContext::Direction::Send, 7, key, sizeof(key)));
    EXPECT_FALSE(SrtpContext().SetKey(SrtpContext::Direction::Send, suite, key, 16));

    auto clear = Packet(100, 3000, 40);
    std::vector<uint8_t> wire(clear.size() + SrtpContext::kMaxTrailer);
    std::memcpy(wire.data(), clear.data(), clear.size());
    size_t n = send.ProtectRtp(wire.data(), clear.size(), wire.size());
    ASSERT_EQ(clear.size() + 10, n);  // the 80-bit tag
    EXPECT_NE(0, std::memcmp(wire.data() + kRtpHeaderSize, clear.data() + kRtpHeaderSize, 40));

    std::vector<uint8_t> copy(wire.begin(), wire.begin() + static_cast<long>(n));
    EXPECT_EQ(0u, stranger.UnprotectRtp(copy.data(), copy.size()));
    copy.assign(wire.begin(), wire.begin() + static_cast<long>(n));
    copy[20] ^= 0x01;  // tampered payload
    EXPECT_EQ(0u, receive.UnprotectRtp(copy.data(), copy.size()));
    copy.assign(wire.begin(), wire.begin() + static_cast<long>(n));
    ASSERT_EQ(clear.size(), receive.UnprotectRtp(copy.data(), copy.size()));
    EXPECT_EQ(clear, std::vector<uint8_t>(copy.begin(), copy.begin() + static_cast<long>(clear.size())));
    copy.assign(wire.begin(), wire.begin() + static_cast<long>(n));
    EXPECT_EQ(0u, receive.UnprotectRtp(copy.data(), copy.size()));  // replay
    EXPECT_EQ(0u, send.ProtectRtp(wire.data(), clear.size(), clear.size() + 5));  // no room for the tag
}

}  // namespace
