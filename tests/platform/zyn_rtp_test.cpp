// RTP and RTCP reading and writing, receive statistics, and SRTP, as the simulated engine uses them.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtcp.h"
#include "zyn/ZynRtp.h"
#include "zyn/ZynSrtp.h"
#include "zyn/ZynStreams.h"

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

// Writes, then reads back with the engine's reader, a compound packet as the engine sends it.
TEST(RtcpTest, ReportsAndCnameRoundTripThroughACompoundPacket)
{
    for (bool sender : {true, false}) {
        SCOPED_TRACE(sender ? "sender report" : "receiver report");
        Report r;
        r.isSender = sender;
        r.ssrc = 1;
        if (sender) {
            r.ntp = (0x12345678ull << 32) | 0x9ABCDEF0u;
            r.rtpTimestamp = 4242;
            r.packets = 10;
            r.octets = 1000;
        }
        r.blockCount = 2;
        r.blocks[0] = ReportBlock{2, 25, -3, 70000, 80, 0x56789ABC, 65536 / 2};
        r.blocks[1] = ReportBlock{3, 255, 0x7FFFFF, 1, 0, 0, 0};
        uint8_t buf[256];
        const size_t n = WriteReport(r, buf, sizeof(buf));
        ASSERT_EQ((sender ? 28u : 8u) + 2 * 24, n);
        const size_t sdes = WriteSdesCname(1, "abc", buf + n, sizeof(buf) - n);
        ASSERT_EQ(16u, sdes);  // header, SSRC, type, length, 3 bytes, end, padding to 16

        RtcpCompound compound(buf, n + sdes);
        RtcpPacket p;
        ASSERT_TRUE(compound.Next(p));
        Report back;
        ASSERT_TRUE(ReadReport(p, back));
        EXPECT_EQ(sender, back.isSender);
        EXPECT_EQ(r.ntp, back.ntp);
        EXPECT_EQ(r.octets, back.octets);
        ASSERT_EQ(2, back.blockCount);
        EXPECT_EQ(r.blocks[0], back.blocks[0]);
        EXPECT_EQ(r.blocks[1], back.blocks[1]);
        ASSERT_TRUE(compound.Next(p));
        auto cname = ReadSdesCname(p);
        ASSERT_TRUE(cname);
        EXPECT_EQ(1u, cname->first);
        EXPECT_EQ("abc", cname->second);
        EXPECT_FALSE(compound.Next(p));
        EXPECT_FALSE(compound.Malformed());
        EXPECT_EQ(0u, WriteReport(r, buf, n - 1));
    }
    Report tooMany;
    tooMany.blockCount = 32;
    uint8_t big[1024];
    EXPECT_EQ(0u, WriteReport(tooMany, big, sizeof(big)));
    EXPECT_EQ(0u, WriteSdesCname(1, std::string(256, 'x'), big, sizeof(big)));
}

TEST(RtcpTest, EveryReadStaysInsideThePacket)
{
    // A receiver report with one block, then an SDES with a CNAME "ab".
    const std::vector<uint8_t> good = {
        0x81, 201, 0, 7, 0, 0, 0, 1,                     // RR, one block, 32 bytes
        0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // block: SSRC, loss, highest, jitter
        0, 0, 0, 0, 0, 0, 0, 0,                          // LSR, DLSR
        0x81, 202, 0, 2, 0, 0, 0, 1, 1, 2, 'a', 'b',     // SDES chunk, CNAME "ab"
    };
    auto with = [&](std::initializer_list<std::pair<size_t, uint8_t>> edits, size_t cut = 0) {
        std::vector<uint8_t> b = good;
        for (auto [at, v] : edits) b[at] = v;
        b.resize(b.size() - cut);
        return b;
    };
    struct Row {
        const char* name;
        std::vector<uint8_t> bytes;
        int packets;      // read before the walk stops
        bool malformed;
        bool report;      // the first packet reads as a report
        bool cname;       // the second packet gives a CNAME
    };
    const Row rows[] = {
        {"as sent", good, 2, false, true, true},
        {"three bytes", std::vector<uint8_t>(good.begin(), good.begin() + 3), 0, true, false, false},
        {"version 1", with({{0, 0x41}}), 0, true, false, false},
        {"length past the end", with({{2, 1}}), 0, true, false, false},
        {"second packet cut short", with({}, 1), 1, true, true, false},
        {"two blocks announced, one there", with({{0, 0x82}}), 2, false, false, true},
        {"a report too short for its header", with({{0, 0x80}, {3, 0}}), 1, true, false, false},
        {"CNAME longer than its chunk", with({{41, 5}}), 2, false, true, false},
        {"a chunk with no items", with({{35, 1}}, 4), 2, false, true, false},
        {"CNAME item without its length byte", with({{40, 2}, {41, 1}, {42, 'x'}, {43, 1}}), 2, false, true, false},
        {"SDES announcing two chunks", with({{32, 0x82}}), 2, false, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RtcpCompound compound(row.bytes.data(), row.bytes.size());
        RtcpPacket p;
        int packets = 0;
        bool report = false, cname = false;
        while (compound.Next(p)) {
            Report r;
            if (packets == 0) report = ReadReport(p, r);
            if (packets == 1) cname = ReadSdesCname(p).has_value();
            ++packets;
        }
        EXPECT_EQ(row.packets, packets);
        EXPECT_EQ(row.malformed, compound.Malformed());
        EXPECT_EQ(row.report, report);
        EXPECT_EQ(row.cname, cname);
    }
}

TEST(RtcpTest, RoundTripIsArrivalLessLastSrLessItsDelay)
{
    struct Row {
        const char* name;
        uint32_t lastSr;
        uint32_t delay;          // 1/65536 s
        uint32_t arrivalAfter;   // 1/65536 s after lastSr
        std::optional<double> ms;
    };
    const Row rows[] = {
        {"750 ms later, held 500 ms", 0x56789ABC, 65536 / 2, 65536 * 3 / 4, 250.0},
        {"across the wrap of the middle bits", 0xFFFFF000, 0, 65536 / 10, 100.0},
        {"no SR answered yet", 0, 0, 1000, std::nullopt},
        {"a delay longer than the time since", 0x1000, 65536, 100, std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ReportBlock b;
        b.lastSr = row.lastSr;
        b.delaySinceLastSr = row.delay;
        const uint64_t arrival = static_cast<uint64_t>(static_cast<uint32_t>(row.lastSr + row.arrivalAfter)) << 16;
        auto rtt = RoundTripMs(b, arrival);
        ASSERT_EQ(row.ms.has_value(), rtt.has_value());
        if (rtt) {
            EXPECT_NEAR(*row.ms, *rtt, 0.1);
        }
    }
}

TEST(StreamTableTest, FractionLostCoversOnlyTheIntervalSinceTheLastBlock)
{
    StreamTable table;
    uint16_t seq = 100;
    auto send = [&](int packets, int dropEvery) {
        for (int i = 0; i < packets; ++i, ++seq) {
            if (dropEvery && i % dropEvery == 1) continue;
            RtpHeader h;
            h.ssrc = 9;
            h.sequence = seq;
            table.OnRtp(h, 100, seq, 48000);
        }
    };
    ReportBlock blocks[4];
    send(100, 4);  // a quarter lost
    ASSERT_EQ(1, table.MakeReportBlocks(blocks, 4, 0));
    EXPECT_EQ(64, blocks[0].fractionLost);
    EXPECT_EQ(25, blocks[0].cumulativeLost);
    send(100, 0);  // none lost
    ASSERT_EQ(1, table.MakeReportBlocks(blocks, 4, 0));
    EXPECT_EQ(0, blocks[0].fractionLost);
    EXPECT_EQ(25, blocks[0].cumulativeLost);
    EXPECT_EQ(0, table.MakeReportBlocks(blocks, 4, 0));  // nothing heard since
}

TEST(StreamTableTest, ANewSourceBeyondTheTableTakesTheLongestSilentPlace)
{
    StreamTable table;
    for (uint32_t ssrc = 1; ssrc <= kMaxRemoteStreams + 1; ++ssrc) {
        RtpHeader h;
        h.ssrc = ssrc;
        // Source 2 is the one heard longest ago; 1 speaks again at the end.
        table.OnRtp(h, 100, ssrc == 2 ? 0 : 10 + ssrc, 48000);
        if (ssrc == kMaxRemoteStreams) table.OnRtp(RtpHeader{0, false, 1, 0, 1}, 100, 100, 48000);
    }
    ZynStreamStatistics out[kMaxRemoteStreams + 2];
    ASSERT_EQ(kMaxRemoteStreams + 1, table.Fill(out, std::size(out)));
    std::set<uint32_t> remote;
    for (size_t i = 1; i <= kMaxRemoteStreams; ++i) remote.insert(out[i].ssrc);
    EXPECT_FALSE(remote.count(2));
    EXPECT_TRUE(remote.count(1));
    EXPECT_TRUE(remote.count(kMaxRemoteStreams + 1));
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
