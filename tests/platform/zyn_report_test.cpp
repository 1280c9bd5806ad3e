// Reports between engine sessions: what a receiver tells a sender about its stream (loss, jitter,
// the answer to its last SR), what each end then knows per stream, and what the compound packets
// on the wire hold, read here byte by byte.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "mediasession/ZynMediaConfig.h"
#include "zyn_call.h"

namespace {

using namespace zyntest;

uint32_t Be32(const uint8_t* p) { return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3]; }

// One compound packet as the wire has it: the type of each packet, the SSRCs its report blocks
// are about, and the CNAME of an SDES.
struct WireCompound {
    std::vector<uint8_t> types;
    std::vector<uint32_t> blockSsrcs;
    std::string cname;
};

WireCompound ReadCompound(const Packet& bytes)
{
    WireCompound c;
    size_t at = 0;
    while (at + 4 <= bytes.size()) {
        const uint8_t* p = bytes.data() + at;
        const size_t length = (size_t{p[2]} << 8 | p[3]) * 4 + 4;
        if (at + length > bytes.size()) break;
        const uint8_t count = p[0] & 0x1F;
        c.types.push_back(p[1]);
        const size_t blocks = p[1] == 200 ? 28 : 8;  // past the sender info of an SR
        if (p[1] == 200 || p[1] == 201)
            for (uint8_t i = 0; i < count && blocks + 24 * (i + 1) <= length; ++i) c.blockSsrcs.push_back(Be32(p + blocks + 24 * i));
        if (p[1] == 202 && length >= 10 && p[8] == 1 && size_t{p[9]} + 10 <= length)
            c.cname.assign(reinterpret_cast<const char*>(p + 10), p[9]);
        at += length;
    }
    return c;
}

std::vector<ZynStreamStatistics> StreamsOf(IZynMediaSession* s)
{
    uint32_t count = 0;
    EXPECT_EQ(ZYN_E_INVALIDARG, s->GetStreamStatistics(nullptr, count));
    std::vector<ZynStreamStatistics> streams(count);
    EXPECT_EQ(ZYN_S_OK, s->GetStreamStatistics(streams.data(), count));
    streams.resize(count);
    return streams;
}

const ZynStreamStatistics* Find(const std::vector<ZynStreamStatistics>& streams, uint32_t ssrc)
{
    for (const auto& s : streams)
        if (s.ssrc == ssrc) return &s;
    return nullptr;
}

// A sends, B only listens: B's receiver reports tell A what every twentieth packet dropped on the
// way cost, and answer A's sender reports so A learns the round trip.
TEST(ReportTest, TheSenderLearnsTheLossTheReceiverSaw)
{
    Call call;
    IZynMediaSession* a = call.Add();
    IZynMediaSession* b = call.Add();
    Link& ab = call.Connect(a, b);
    Link& ba = call.Connect(b, a);
    ab.dropRtp = [](size_t i) { return i % 20 == 19; };
    ab.delayMs = 30;
    ba.delayMs = 30;
    call.Start(a);
    call.Run(10000);

    ASSERT_FALSE(ab.rtp.empty());
    const uint32_t aSsrc = ReadWire(ab.rtp.front()).ssrc;
    const size_t dropped = ab.rtp.size() / 20;
    // Receiver side, as measured.
    const auto bStreams = StreamsOf(b);
    const ZynStreamStatistics* heard = Find(bStreams, aSsrc);
    ASSERT_NE(nullptr, heard);
    EXPECT_EQ(2, heard->direction);
    EXPECT_EQ(ab.rtpDelivered, heard->packets);
    EXPECT_NEAR(static_cast<double>(dropped), static_cast<double>(heard->lost), 1.0);
    EXPECT_NEAR(0.05, heard->lossRatio, 0.002);
    EXPECT_EQ(ReadWire(ab.lastDelivered).sequence, heard->lastSequence);
    // Sender side, as reported.
    const auto aStreams = StreamsOf(a);
    ASSERT_FALSE(aStreams.empty());
    const ZynStreamStatistics& sent = aStreams.front();
    EXPECT_EQ(1, sent.direction);
    EXPECT_EQ(aSsrc, sent.ssrc);
    EXPECT_EQ(ab.rtp.size(), sent.packets);
    EXPECT_GE(sent.reports, 8u);
    EXPECT_NEAR(0.05, sent.lossRatio, 0.005);
    EXPECT_NEAR(0.05, sent.fractionLost, 0.03);
    EXPECT_NEAR(static_cast<double>(dropped), static_cast<double>(sent.lost), 3.0);
    EXPECT_NEAR(60.0, sent.rttMs, 1.0);
    EXPECT_NEAR(60.0, FlowOf(a).rttMs, 1.0);
    // On the wire: B, which sends no media, sends receiver reports about A, and its CNAME.
    ASSERT_FALSE(ba.rtcp.empty());
    for (const Packet& p : ba.rtcp) {
        const WireCompound c = ReadCompound(p);
        ASSERT_EQ((std::vector<uint8_t>{201, 202}), c.types);
        EXPECT_EQ(std::vector<uint32_t>{aSsrc}, c.blockSsrcs);
        EXPECT_FALSE(c.cname.empty());
    }
}

// Both send: each answers the other's sender report inside its own, so both know the round trip.
TEST(ReportTest, BothEndsLearnTheRoundTrip)
{
    Call call;
    IZynMediaSession* a = call.Add(ZynSessionType_Video);
    IZynMediaSession* b = call.Add(ZynSessionType_Video);
    Link& ab = call.Connect(a, b);
    Link& ba = call.Connect(b, a);
    ab.delayMs = 15;
    ba.delayMs = 45;
    call.Start(a);
    call.Start(b);
    call.Run(4000);
    EXPECT_NEAR(60.0, FlowOf(a).rttMs, 1.0);
    EXPECT_NEAR(60.0, FlowOf(b).rttMs, 1.0);
    const WireCompound c = ReadCompound(ab.rtcp.back());
    EXPECT_EQ((std::vector<uint8_t>{200, 202}), c.types);
    EXPECT_EQ(std::vector<uint32_t>{ReadWire(ba.rtp.front()).ssrc}, c.blockSsrcs);
    // What B heard from A's SDES is the CNAME on A's wire.
    const auto bStreams = StreamsOf(b);
    const ZynStreamStatistics* fromA = Find(bStreams, ReadWire(ab.rtp.front()).ssrc);
    ASSERT_NE(nullptr, fromA);
    EXPECT_EQ(c.cname, std::string(fromA->cname));
    EXPECT_GE(fromA->reports, 3u);
}

// B hears A (one packet in ten lost, PCMU) and C (none lost, Opus): two streams, kept apart, and
// one block about each in B's reports.
TEST(ReportTest, TwoRemoteSourcesAreMeasuredApart)
{
    Call call;
    IZynMediaSession* a = call.Add();
    IZynMediaSession* b = call.Add();
    IZynMediaSession* c = call.Add();
    Link& ab = call.Connect(a, b);
    Link& cb = call.Connect(c, b);
    Link& ba = call.Connect(b, a);
    ab.dropRtp = [](size_t i) { return i % 10 == 9; };
    ASSERT_EQ(ZYN_S_OK, a->SetCodecPt(1, 0, ZynCodecType_PCMU, 8000));
    ASSERT_EQ(ZYN_S_OK, c->SetCodecPt(1, 100, ZynCodecType_OPUS, 48000));
    call.Start(a);
    call.Start(c);
    call.Run(5000);

    const uint32_t aSsrc = ReadWire(ab.rtp.front()).ssrc, cSsrc = ReadWire(cb.rtp.front()).ssrc;
    ASSERT_NE(aSsrc, cSsrc);
    const auto streams = StreamsOf(b);
    ASSERT_EQ(3u, streams.size());  // B's own, then the two it hears
    EXPECT_EQ(1, streams[0].direction);
    struct Row {
        const char* name;
        uint32_t ssrc;
        const Link& link;
        uint8_t payloadType;
        double lossRatio;
    };
    const Row rows[] = {{"from A", aSsrc, ab, 0, 0.1}, {"from C", cSsrc, cb, 100, 0.0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ZynStreamStatistics* s = Find(streams, row.ssrc);
        ASSERT_NE(nullptr, s);
        EXPECT_EQ(2, s->direction);
        EXPECT_EQ(row.link.rtpDelivered, s->packets);
        EXPECT_EQ(row.payloadType, s->payloadType);
        EXPECT_NEAR(row.lossRatio, s->lossRatio, 0.005);
        EXPECT_EQ(ReadWire(row.link.lastDelivered).sequence, s->lastSequence);
    }
    const ZynFlowStatistics flow = FlowOf(b);
    EXPECT_EQ(ab.rtpDelivered + cb.rtpDelivered, flow.packetsReceived);
    const WireCompound report = ReadCompound(ba.rtcp.back());
    EXPECT_EQ((std::multiset<uint32_t>{aSsrc, cSsrc}), std::multiset<uint32_t>(report.blockSsrcs.begin(), report.blockSsrcs.end()));
    // A reads the block about itself, not the one about C.
    EXPECT_NEAR(0.1, StreamsOf(a).front().lossRatio, 0.01);
}

TEST(ReportTest, TooLittleRoomForTheStreamsIsRefusedWithTheCountNeeded)
{
    Call call;
    IZynMediaSession* a = call.Add();
    IZynMediaSession* b = call.Add();
    call.Connect(a, b);
    call.Start(a);
    call.Run(100);
    ZynStreamStatistics one[1];
    uint32_t count = 1;
    EXPECT_EQ(ZYN_E_INVALIDARG, b->GetStreamStatistics(one, count));
    EXPECT_EQ(2u, count);
    ZynStreamStatistics two[2];
    count = 2;
    EXPECT_EQ(ZYN_S_OK, b->GetStreamStatistics(two, count));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(5u, two[1].packets);
}

// Whatever arrives as RTCP, a session reads it within its bounds and says what it could not.
TEST(ReportTest, BrokenCompoundPacketsAreRefusedAndChangeNoStream)
{
    Call call;
    IZynMediaSession* a = call.Add();
    struct Row {
        const char* name;
        std::vector<uint8_t> bytes;
        ZynResult result;
    };
    const Row rows[] = {
        {"seven bytes", {0x80, 201, 0, 1, 0, 0, 0}, ZYN_E_INVALIDARG},
        {"length past the end", {0x80, 201, 0, 9, 0, 0, 0, 1}, ZYN_E_INVALIDARG},
        {"an empty RR, then garbage", {0x80, 201, 0, 1, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF}, ZYN_E_INVALIDARG},
        {"an RR announcing a block it lacks", {0x81, 201, 0, 1, 0, 0, 0, 1}, ZYN_S_OK},
        {"an unknown type", {0x80, 210, 0, 1, 0, 0, 0, 1}, ZYN_S_OK},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.result, a->ReceiveRTCPPacket(row.bytes.data(), static_cast<uint32_t>(row.bytes.size())));
    }
    const auto streams = StreamsOf(a);
    ASSERT_EQ(1u, streams.size());
    EXPECT_EQ(0u, streams[0].reports);
}

}  // namespace
