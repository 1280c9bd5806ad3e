// Two engine sessions wired back to back: real RTP at the media rate, SRTP keyed through session
// option 6, and the figures the receiver computes from what arrived. The wire reads every packet
// itself, so what the tests check is what went out, not what the engine says it sent.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

#include "zyn/ZynEngineApi.h"

namespace {

constexpr uint32_t kAudioPayload = 80;  // bytes of one synthetic audio frame
constexpr uint32_t kRtpHeader = 12;

// Hands what a session sends to the other session, as the network would, and keeps what it saw.
class Wire : public IZynMediaTransport {
public:
    int32_t GetTransportType() override { return 1; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            rtp.emplace_back(data, data + length);
        }
        if (peer) peer->ReceiveRTPPacket(data, length);
        Tick();
        return ZYN_S_OK;
    }
    ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) override
    {
        if (peer) peer->ReceiveRTCPPacket(data, length);
        Tick();
        return ZYN_S_OK;
    }
    void Tick()
    {
        std::lock_guard<std::mutex> lock(mutex);
        changed.notify_all();
    }
    // Waits, bounded, until the condition on the statistics of `of` holds.
    template <class Pred>
    bool WaitFor(IZynMediaSession* of, Pred pred)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(15), [&] {
            ZynFlowStatistics s{};
            of->GetFlowStatistics(s);
            return pred(s);
        });
    }
    std::vector<std::vector<uint8_t>> Seen()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return rtp;
    }
    IZynMediaSession* peer = nullptr;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::vector<uint8_t>> rtp;  // guarded by mutex
};

ZynSrtpCryptoRecord Record(int32_t direction, int32_t suite, const uint8_t* key, uint32_t length)
{
    const int32_t algorithm = suite == ZynSrtpSuite_NullCipherHmacSha1_80 ? 2 : 3;
    return ZynSrtpCryptoRecord{direction, suite, key, length, algorithm, algorithm, 0, 0, 0, 0};
}

ZynResult Key(IZynMediaSession* session, int32_t direction, int32_t suite, const uint8_t* key, uint32_t length)
{
    ZynSrtpCryptoRecord r = Record(direction, suite, key, length);
    return session->SetOption(ZynSessionOption_SrtpCrypto, &r, sizeof(r));
}

class FlowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZynInit(0);
        ASSERT_EQ(ZYN_S_OK, ZynCreateMediaEngineEx(&engine, 0, 1, false));
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(ZYN_S_OK, engine->CreateMediaSession(ZynSessionType_Audio, &session[i]));
            ASSERT_EQ(ZYN_S_OK, engine->CreateTrack(ZynTrack_AudioLocal, &track[i]));
            session[i]->AddTrack(track[i]);
        }
        wire[0].peer = session[1];
        wire[1].peer = session[0];
    }
    void Connect()
    {
        for (int i = 0; i < 2; ++i) {
            session[i]->SetTransport(&wire[i]);
            track[i]->Start();
        }
    }
    void TearDown() override
    {
        for (int i = 0; i < 2; ++i) {
            session[i]->SetTransport(nullptr);
            track[i]->Release();
            session[i]->Release();
        }
        engine->Stop();
        engine->Release();
        ZynUninit();
    }
    IZynMediaEngineInternal* engine = nullptr;
    IZynMediaSession* session[2] = {};
    IZynMediaTrack* track[2] = {};
    Wire wire[2];
};

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

class SuiteTest : public FlowTest, public ::testing::WithParamInterface<SuiteRow> {};

TEST_P(SuiteTest, KeyedThroughTheOptionMediaFlowsBothWaysUnderThatSuite)
{
    const SuiteRow& row = GetParam();
    if (!(ZynGetSrtpSuiteMask() & (1u << row.suite))) {
        uint8_t key[64] = {};
        EXPECT_EQ(ZYN_E_NOTIMPL, Key(session[0], 1, row.suite, key, row.keyLength));
        GTEST_SKIP() << row.name << " is not in the installed SRTP library";
    }
    uint8_t aToB[64], bToA[64];
    for (uint32_t i = 0; i < sizeof(aToB); ++i) {
        aToB[i] = static_cast<uint8_t>(i);
        bToA[i] = static_cast<uint8_t>(100 + i);
    }
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 1, row.suite, aToB, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(session[1], 2, row.suite, aToB, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(session[1], 1, row.suite, bToA, row.keyLength));
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 2, row.suite, bToA, row.keyLength));
    Connect();
    // 50 packets a second each way; sender reports every second carry the round trip, so SRTCP
    // works once A has one.
    ASSERT_TRUE(wire[0].WaitFor(session[0], [](const ZynFlowStatistics& s) { return s.rttMs > 0 && s.packetsReceived >= 20; }));
    ZynFlowStatistics a{}, b{};
    session[0]->GetFlowStatistics(a);
    session[1]->GetFlowStatistics(b);
    EXPECT_EQ(0u, a.srtpFailures);
    EXPECT_EQ(0u, b.srtpFailures);
    EXPECT_GE(b.packetsReceived, 20u);
    for (const auto& packet : wire[0].Seen()) {
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

TEST_F(FlowTest, AWrongReceiveKeyRefusesEverything)
{
    uint8_t key[30] = {1}, other[30] = {2};
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(session[1], 2, ZynSrtpSuite_AesCm128HmacSha1_80, other, 30));
    Connect();
    ASSERT_TRUE(wire[0].WaitFor(session[1], [](const ZynFlowStatistics& s) { return s.srtpFailures >= 20; }));
    ZynFlowStatistics b{};
    session[1]->GetFlowStatistics(b);
    EXPECT_EQ(0u, b.packetsReceived);
}

TEST_F(FlowTest, ABadCryptoRecordIsRefusedAndChangesNothing)
{
    uint8_t key[64];
    for (uint8_t i = 0; i < sizeof(key); ++i) key[i] = static_cast<uint8_t>(i * 3);
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(session[1], 2, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    uint8_t before[sizeof(ZynSrtpCryptoRecord)];
    uint32_t size = sizeof(before);
    ASSERT_EQ(ZYN_S_OK, session[1]->GetOption(ZynSessionOption_SrtpCrypto, before, size));

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
        {"AES with the NULL cipher's algorithms",
         with([](auto& r) { r.cipherAlgorithm = r.authAlgorithm = 2; }), 48},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        uint8_t bytes[64] = {};
        std::memcpy(bytes, &row.record, sizeof(row.record));
        EXPECT_EQ(ZYN_E_INVALIDARG, session[1]->SetOption(ZynSessionOption_SrtpCrypto, bytes, row.size));
        uint8_t after[sizeof(before)];
        size = sizeof(after);
        ASSERT_EQ(ZYN_S_OK, session[1]->GetOption(ZynSessionOption_SrtpCrypto, after, size));
        EXPECT_EQ(0, std::memcmp(before, after, sizeof(before)));
    }
    // The record reads back with the key it was given, and that key still opens A's packets.
    ZynSrtpCryptoRecord stored;
    std::memcpy(&stored, before, sizeof(stored));
    EXPECT_EQ(2, stored.direction);
    ASSERT_EQ(30u, stored.keyLength);
    EXPECT_EQ(0, std::memcmp(key, stored.key, 30));
    EXPECT_NE(key, stored.key);  // a copy: the caller's bytes may be gone after the call
    Connect();
    ASSERT_TRUE(wire[0].WaitFor(session[1], [](const ZynFlowStatistics& s) { return s.packetsReceived >= 10; }));
    ZynFlowStatistics b{};
    session[1]->GetFlowStatistics(b);
    EXPECT_EQ(0u, b.srtpFailures);
}

TEST_F(FlowTest, NonSrtpTakesTheKeyAwayFromOneDirection)
{
    uint8_t key[30] = {7};
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 1, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30));
    ASSERT_EQ(ZYN_S_OK, Key(session[0], 1, ZynSrtpSuite_NonSrtp, nullptr, 0));
    Connect();
    ASSERT_TRUE(wire[0].WaitFor(session[1], [](const ZynFlowStatistics& s) { return s.packetsReceived >= 10; }));
    for (const auto& packet : wire[0].Seen()) {
        ASSERT_EQ(kRtpHeader + kAudioPayload, packet.size());
        ASSERT_TRUE(PayloadInTheClear(packet));
    }
}

TEST_F(FlowTest, NothingIsSentWhileNoLocalTrackRuns)
{
    session[0]->SetTransport(&wire[0]);
    session[1]->SetTransport(&wire[1]);
    track[1]->Start();  // only B speaks
    ASSERT_TRUE(wire[1].WaitFor(session[0], [](const ZynFlowStatistics& s) { return s.packetsReceived >= 10; }));
    ZynFlowStatistics a{};
    session[0]->GetFlowStatistics(a);
    EXPECT_EQ(0u, a.packetsSent);
}

}  // namespace
