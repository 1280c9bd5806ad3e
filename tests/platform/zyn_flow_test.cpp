// Engine sessions wired through the test's own network: SRTP keyed through session option 6, the
// payload types the negotiation agreed, and what the receiver computes from what arrived. The
// links read every packet themselves, so what the tests check is what went out, not what the
// engine says it sent.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <vector>

#include "mediasession/ZynMediaConfig.h"
#include "zyn_call.h"

namespace {

using namespace zyntest;

constexpr uint32_t kAudioPayload = 80;  // bytes of one synthetic audio frame
constexpr uint32_t kRtpHeader = 12;

ZynSrtpCryptoRecord Record(int32_t direction, int32_t suite, const uint8_t* key, uint32_t length)
{
    const int32_t algorithm = suite == ZynSrtpSuite_NullCipherHmacSha1_80 ? 2 : 3;
    return ZynSrtpCryptoRecord{direction, suite, key, length, algorithm, algorithm, 0, 0, 0, 0, 0};
}

ZynResult Key(IZynMediaSession* session, int32_t direction, int32_t suite, const uint8_t* key, uint32_t length)
{
    ZynSrtpCryptoRecord r = Record(direction, suite, key, length);
    return session->SetOption(ZynSessionOption_SrtpCrypto, &r, sizeof(r));
}

struct SuiteRow {
    const char* name;
    int32_t suite;
    uint32_t keyLength;
    uint32_t tag;  // bytes the suite adds to an RTP packet
    bool encrypts;
};

const SuiteRow kSuites[] = {
    {"NULL_CIPHER_HMAC_SHA1_80", ZynSrtpSuite_NullCipherHmacSha1_80, 30, 10, false},
    {"AES_CM_128_HMAC_SHA1_32", ZynSrtpSuite_AesCm128HmacSha1_32, 30, 4, true},
    {"AES_CM_128_HMAC_SHA1_80", ZynSrtpSuite_AesCm128HmacSha1_80, 30, 10, true},
    {"AES_CM_256_HMAC_SHA1_80", ZynSrtpSuite_AesCm256HmacSha1_80, 46, 10, true},
    {"AEAD_AES_128_GCM", ZynSrtpSuite_AeadAes128Gcm, 28, 16, true},
    {"AEAD_AES_256_GCM", ZynSrtpSuite_AeadAes256Gcm, 44, 16, true},
};

void PrintTo(const SuiteRow& row, std::ostream* os) { *os << row.name; }

// The synthetic payload counts up from the sequence number: readable on the wire only in the clear.
bool PayloadInTheClear(const std::vector<uint8_t>& packet)
{
    const uint16_t sequence = static_cast<uint16_t>((packet[2] << 8) | packet[3]);
    for (uint32_t i = 0; i < kAudioPayload; ++i)
        if (packet[kRtpHeader + i] != static_cast<uint8_t>(sequence + i)) return false;
    return true;
}

// Two audio sessions of one engine, each sending to the other.
class PairTest : public ::testing::Test {
protected:
    void StartBoth()
    {
        call.Start(a);
        call.Start(b);
    }
    Call call;
    IZynMediaSession* a = call.Add();
    IZynMediaSession* b = call.Add();
    Link& ab = call.Connect(a, b);
    Link& ba = call.Connect(b, a);
};

class SuiteTest : public PairTest, public ::testing::WithParamInterface<SuiteRow> {};

TEST_P(SuiteTest, KeyedThroughTheOptionMediaFlowsBothWaysUnderThatSuite)
{
    const SuiteRow& row = GetParam();
    if (!(ZynGetSrtpSuiteMask() & (1u << row.suite))) {
        uint8_t key[64] = {};
        EXPECT_EQ(ZYN_E_NOTIMPL, Key(a, 1, row.suite, key, row.keyLength));
        GTEST_SKIP() << row.name << " is not in the installed SRTP library";
    }
    uint8_t aToB[64], bToA[64];
    for (uint32_t i = 0; i < sizeof(aToB); ++i) {
        aToB[i] = static_cast<uint8_t>(i);
        bToA[i] = static_cast<uint8_t>(100 + i);
    }
    ASSERT_EQ(ZYN_S_OK, Key(a, 1, row.suite, aToB, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(b, 2, row.suite, aToB, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(b, 1, row.suite, bToA, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(a, 2, row.suite, bToA, row.keyLength));
    ab.delayMs = ba.delayMs = 20;
    StartBoth();
    call.Run(2500);
    // 50 packets a second each way; the round trip on A means B read A's protected report and A
    // read B's.
    const ZynFlowStatistics fa = FlowOf(a), fb = FlowOf(b);
    EXPECT_EQ(0u, fa.srtpFailures);
    EXPECT_EQ(0u, fb.srtpFailures);
    EXPECT_EQ(ab.rtpDelivered, fb.packetsReceived);
    EXPECT_EQ(ba.rtpDelivered, fa.packetsReceived);
    EXPECT_GE(fb.packetsReceived, 100u);
    EXPECT_NEAR(40.0, fa.rttMs, 1.0);
    for (const Packet& packet : ab.rtp) {
        ASSERT_EQ(kRtpHeader + kAudioPayload + row.tag, packet.size());
        ASSERT_EQ(!row.encrypts, PayloadInTheClear(packet));
    }
}

INSTANTIATE_TEST_SUITE_P(EverySuite, SuiteTest, ::testing::ValuesIn(kSuites),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SrtpSuiteMaskTest, TheCipherSuitesWithoutABackendAreAlwaysThere)
{
    const uint32_t mask = ZynGetSrtpSuiteMask();
    for (int32_t suite : {0, 1, 2, 3}) EXPECT_TRUE(mask & (1u << suite)) << suite;
    EXPECT_EQ(0u, mask & ~0x3Fu);
}

TEST_F(PairTest, AWrongReceiveKeyRefusesEverything)
{
    uint8_t key[30] = {1}, other[30] = {2};
    ASSERT_EQ(ZYN_S_OK, Key(a, 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(b, 2, ZynSrtpSuite_AesCm128HmacSha1_80, other, 30));
    call.Start(a);
    call.Run(1000);
    const ZynFlowStatistics fb = FlowOf(b);
    EXPECT_EQ(0u, fb.packetsReceived);
    EXPECT_EQ(ab.rtp.size() + ab.rtcp.size(), fb.srtpFailures);
    EXPECT_GE(fb.srtpFailures, 40u);
}

TEST_F(PairTest, ABadCryptoRecordIsRefusedAndChangesNothing)
{
    uint8_t key[64];
    for (uint8_t i = 0; i < sizeof(key); ++i) key[i] = static_cast<uint8_t>(i * 3);
    ASSERT_EQ(ZYN_S_OK, Key(a, 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(b, 2, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    uint8_t before[sizeof(ZynSrtpCryptoRecord)];
    uint32_t size = sizeof(before);
    ASSERT_EQ(ZYN_S_OK, b->GetOption(ZynSessionOption_SrtpCrypto, before, size));

    struct Row {
        const char* name;
        ZynSrtpCryptoRecord record;
        uint32_t size;
    };
    const auto good = Record(2, ZynSrtpSuite_AesCm128HmacSha1_80, key + 1, 30);
    auto with = [&](auto change) {
        ZynSrtpCryptoRecord r = good;
        change(r);
        return r;
    };
    const Row rows[] = {
        {"one byte short", good, 47},
        {"one byte long", good, 49},
        {"unknown suite 6", with([](auto& r) { r.suite = 6; }), 48},
        {"negative suite", with([](auto& r) { r.suite = -1; }), 48},
        {"key one byte short", with([](auto& r) { r.keyLength = 29; }), 48},
        {"256-bit key under a 128-bit suite", with([](auto& r) { r.keyLength = 46; }), 48},
        {"128-bit key under a 256-bit suite", with([](auto& r) { r.suite = ZynSrtpSuite_AesCm256HmacSha1_80; }), 48},
        {"GCM key length under AES-CM", with([](auto& r) { r.keyLength = 28; }), 48},
        {"no key", with([](auto& r) { r.key = nullptr; }), 48},
        {"NULL cipher with the AES algorithms", with([](auto& r) { r.suite = ZynSrtpSuite_NullCipherHmacSha1_80; }), 48},
        {"AES with the NULL cipher's algorithms", with([](auto& r) { r.cipherAlgorithm = r.authAlgorithm = 2; }), 48},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        uint8_t bytes[64] = {};
        std::memcpy(bytes, &row.record, sizeof(row.record));
        EXPECT_EQ(ZYN_E_INVALIDARG, b->SetOption(ZynSessionOption_SrtpCrypto, bytes, row.size));
        uint8_t after[sizeof(before)];
        size = sizeof(after);
        ASSERT_EQ(ZYN_S_OK, b->GetOption(ZynSessionOption_SrtpCrypto, after, size));
        EXPECT_EQ(0, std::memcmp(before, after, sizeof(before)));
    }
    // The record reads back with the key it was given, and that key still opens A's packets.
    ZynSrtpCryptoRecord stored;
    std::memcpy(&stored, before, sizeof(stored));
    EXPECT_EQ(2, stored.direction);
    ASSERT_EQ(30u, stored.keyLength);
    EXPECT_EQ(0, std::memcmp(key, stored.key, 30));
    EXPECT_NE(key, stored.key);  // a copy: the caller's bytes may be gone after the call
    call.Start(a);
    call.Run(500);
    const ZynFlowStatistics fb = FlowOf(b);
    EXPECT_EQ(0u, fb.srtpFailures);
    EXPECT_EQ(ab.rtpDelivered, fb.packetsReceived);
    EXPECT_GE(fb.packetsReceived, 20u);
}

TEST_F(PairTest, NonSrtpTakesTheKeyAwayFromOneDirection)
{
    uint8_t key[30] = {7};
    ASSERT_EQ(ZYN_S_OK, Key(a, 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(a, 1, ZynSrtpSuite_NonSrtp, nullptr, 0));
    call.Start(a);
    call.Run(500);
    EXPECT_GE(FlowOf(b).packetsReceived, 20u);
    for (const Packet& packet : ab.rtp) {
        ASSERT_EQ(kRtpHeader + kAudioPayload, packet.size());
        ASSERT_TRUE(PayloadInTheClear(packet));
    }
}

TEST_F(PairTest, NothingIsSentWhileNoLocalTrackRuns)
{
    call.Start(b);  // only B speaks
    call.Run(500);
    EXPECT_TRUE(ab.rtp.empty());
    EXPECT_EQ(0u, FlowOf(a).packetsSent);
    EXPECT_EQ(25u, FlowOf(a).packetsReceived);  // 20 ms frames
}

// The payload types and clocks of what goes out, read from the wire.
TEST(PayloadTypeTest, MediaGoesOutOnTheAgreedPayloadTypeAndClock)
{
    struct Codec {
        int direction;
        uint8_t payloadType;
        int32_t codec;
        uint32_t clock;
    };
    struct Row {
        const char* name;
        ZynSessionType type;
        std::vector<Codec> set;
        uint8_t wirePayloadType;
        uint32_t timestampStep;  // between frames
    };
    const Row rows[] = {
        {"audio before any is set", ZynSessionType_Audio, {}, 111, 960},
        {"opus on 100", ZynSessionType_Audio, {{1, 100, ZynCodecType_OPUS, 48000}}, 100, 960},
        {"PCMU at 8 kHz", ZynSessionType_Audio, {{1, 0, ZynCodecType_PCMU, 8000}}, 0, 160},
        {"G.722 keeps its 8 kHz RTP clock", ZynSessionType_Audio, {{1, 9, ZynCodecType_G722, 8000}}, 9, 160},
        {"the last one set wins", ZynSessionType_Audio,
         {{1, 0, ZynCodecType_PCMU, 8000}, {1, 101, ZynCodecType_OPUS, 48000}}, 101, 960},
        {"FEC, RTX and DTMF ride beside the media", ZynSessionType_Audio,
         {{1, 100, ZynCodecType_OPUS, 48000}, {1, 111, ZynCodecType_FEC, 48000}, {1, 112, ZynCodecType_RTX, 48000},
          {1, 101, ZynCodecType_DTMF, 8000}},
         100, 960},
        {"a receive codec is not a send codec", ZynSessionType_Audio, {{2, 0, ZynCodecType_PCMU, 8000}}, 111, 960},
        {"video before any is set", ZynSessionType_Video, {}, 102, 2970},
        {"H.264 on 97", ZynSessionType_Video, {{1, 97, ZynCodecType_AVC, 90000}}, 97, 2970},
        {"sharing in AV1 on 99", ZynSessionType_ScreenShare, {{1, 99, ZynCodecType_AV1, 90000}}, 99, 18000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OneWay net(row.type);
        for (const Codec& c : row.set)
            ASSERT_EQ(ZYN_S_OK, net.from->SetCodecPt(c.direction, c.payloadType, c.codec, c.clock));
        net.call.Start(net.from);
        net.call.Run(1000);
        ASSERT_GE(net.link.rtp.size(), 5u);
        std::set<uint32_t> steps;
        uint32_t last = ReadWire(net.link.rtp.front()).timestamp;
        for (const Packet& p : net.link.rtp) {
            const WireHeader h = ReadWire(p);
            EXPECT_EQ(row.wirePayloadType, h.payloadType);
            // A video frame spans packets of one timestamp.
            if (h.timestamp != last) steps.insert(h.timestamp - last);
            last = h.timestamp;
        }
        EXPECT_EQ(std::set<uint32_t>{row.timestampStep}, steps);
    }
}

TEST(PayloadTypeTest, ACodecThatDoesNotFitIsRefusedAndChangesNothing)
{
    struct Row {
        const char* name;
        ZynSessionType type;
        int direction;
        int payloadType;
        int32_t codec;
        uint32_t clock;
    };
    const Row rows[] = {
        {"direction 0", ZynSessionType_Audio, 0, 0, ZynCodecType_PCMU, 8000},
        {"direction 3", ZynSessionType_Audio, 3, 0, ZynCodecType_PCMU, 8000},
        {"payload type 128", ZynSessionType_Audio, 1, 128, ZynCodecType_PCMU, 8000},
        {"no clock", ZynSessionType_Audio, 1, 0, ZynCodecType_PCMU, 0},
        {"video codec on audio", ZynSessionType_Audio, 1, 97, ZynCodecType_AVC, 90000},
        {"audio codec on video", ZynSessionType_Video, 1, 100, ZynCodecType_OPUS, 48000},
        {"DTMF on video", ZynSessionType_Video, 1, 101, ZynCodecType_DTMF, 8000},
        {"unknown codec type", ZynSessionType_Audio, 1, 100, 42, 48000},
        {"a codec on an application session", ZynSessionType_Application, 1, 100, ZynCodecType_OPUS, 48000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OneWay net(row.type);
        EXPECT_EQ(ZYN_E_INVALIDARG, net.from->SetCodecPt(row.direction, static_cast<uint8_t>(row.payloadType), row.codec, row.clock));
        net.call.Start(net.from);
        net.call.Run(200);
        for (const Packet& p : net.link.rtp) EXPECT_EQ(row.type == ZynSessionType_Audio ? 111 : 102, ReadWire(p).payloadType);
    }
}

// A receiver counts jitter in the clock of the payload type it was told of: 8 kHz PCMU with every
// other packet 10 ms late shows 10 ms, not the figure a 48 kHz clock would make of it.
TEST(PayloadTypeTest, JitterIsCountedInTheClockOfTheReceivedPayloadType)
{
    OneWay net;
    ASSERT_EQ(ZYN_S_OK, net.from->SetCodecPt(1, 0, ZynCodecType_PCMU, 8000));
    ASSERT_EQ(ZYN_S_OK, net.to->SetCodecPt(2, 0, ZynCodecType_PCMU, 8000));
    net.call.Start(net.from);
    for (int i = 0; i < 200; ++i) {
        net.link.delayMs = i % 2 ? 10 : 0;
        net.call.Run(20);
    }
    EXPECT_NEAR(10.0, FlowOf(net.to).jitterMs, 1.0);
}

// An engine with its own media thread sends on the system clock with no one driving it.
TEST(MediaThreadTest, AnEngineOfItsOwnSendsFromItsMediaThread)
{
    struct Counter : IZynMediaTransport {
        int32_t GetTransportType() override { return 1; }
        ZynResult SendRTPPacket(const uint8_t*, uint32_t) override
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++packets;
            changed.notify_all();
            return ZYN_S_OK;
        }
        ZynResult SendRTCPPacket(const uint8_t*, uint32_t) override { return ZYN_S_OK; }
        std::mutex mutex;
        std::condition_variable changed;
        int packets = 0;
    } counter;
    ZynInit(0);
    IZynMediaEngineInternal* engine = nullptr;
    ASSERT_EQ(ZYN_S_OK, ZynCreateMediaEngineEx(&engine, 0, 1, false));
    EXPECT_EQ(ZYN_E_INVALIDARG, ZynRunEngineClock(engine));
    IZynMediaSession* session = nullptr;
    IZynMediaTrack* track = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->CreateMediaSession(ZynSessionType_Audio, &session));
    ASSERT_EQ(ZYN_S_OK, engine->CreateTrack(ZynTrack_AudioLocal, &track));
    session->AddTrack(track);
    session->SetTransport(&counter);
    track->Start();
    {
        std::unique_lock<std::mutex> lock(counter.mutex);
        EXPECT_TRUE(counter.changed.wait_for(lock, std::chrono::seconds(15), [&] { return counter.packets >= 10; }));
    }
    session->SetTransport(nullptr);
    track->Release();
    session->Release();
    engine->Stop();
    engine->Release();
    ZynUninit();
}

}  // namespace

// The frame duration an Opus table of contents byte announces, in tenths of a millisecond, from
// the configuration table of RFC 6716 (3.1); 0 when the packet is not one single frame.
int OpusFrameTenthsMs(uint8_t toc)
{
    if ((toc & 3) != 0) return 0;  // code 0: one frame
    static constexpr int kSilk[] = {100, 200, 400, 600}, kHybrid[] = {100, 200}, kCelt[] = {25, 50, 100, 200};
    const int config = toc >> 3;
    if (config < 12) return kSilk[config % 4];
    if (config < 16) return kHybrid[config % 2];
    return kCelt[config % 4];
}

// What a real decoder at the far end needs of the first byte of a frame: an Opus packet must open
// with a table of contents for one frame as long as the engine's packets are (20 ms); G.711 takes
// any byte, so the other codecs keep the synthetic content.
TEST(PayloadTypeTest, AnOpusFrameOpensWithATableOfContentsOfItsOwnDuration)
{
    struct Row {
        const char* name;
        ZynSessionType type;
        uint8_t payloadType;
        int32_t codec;
        uint32_t clock;
        bool opus;
    };
    const Row rows[] = {
        {"Opus", ZynSessionType_Audio, 100, ZynCodecType_OPUS, 48000, true},
        {"Opus on another number", ZynSessionType_Audio, 96, ZynCodecType_OPUS, 48000, true},
        {"PCMU", ZynSessionType_Audio, 0, ZynCodecType_PCMU, 8000, false},
        {"H.264", ZynSessionType_Video, 97, ZynCodecType_AVC, 90000, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OneWay net(row.type);
        ASSERT_EQ(ZYN_S_OK, net.from->SetCodecPt(1, row.payloadType, row.codec, row.clock));
        net.call.Start(net.from);
        net.call.Run(200);
        ASSERT_GE(net.link.rtp.size(), 5u);
        for (const Packet& p : net.link.rtp) {
            ASSERT_GT(p.size(), kRtpHeader + 1);
            const uint16_t sequence = static_cast<uint16_t>((p[2] << 8) | p[3]);
            const uint8_t first = p[kRtpHeader];
            if (row.opus) {
                EXPECT_EQ(200, OpusFrameTenthsMs(first)) << "first byte " << int{first};
            } else {
                EXPECT_EQ(static_cast<uint8_t>(sequence), first);
            }
            EXPECT_EQ(static_cast<uint8_t>(sequence + 1), p[kRtpHeader + 1]);
        }
    }
}
