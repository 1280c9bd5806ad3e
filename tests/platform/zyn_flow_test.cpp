// Two engine sessions wired back to back: real RTP at the media rate, SRTP, and the figures the
// receiver computes from what arrived.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "zyn/ZynEngineApi.h"

namespace {

// Hands what a session sends to the other session, as the network would.
class Wire : public IZynMediaTransport {
public:
    int32_t GetTransportType() override { return 1; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override
    {
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
    IZynMediaSession* peer = nullptr;
    std::mutex mutex;
    std::condition_variable changed;
};

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

TEST_F(FlowTest, KeyedSessionsExchangeMediaWithoutLossAndMeasureTheRoundTrip)
{
    uint8_t aToB[30], bToA[30];
    for (int i = 0; i < 30; ++i) {
        aToB[i] = static_cast<uint8_t>(i);
        bToA[i] = static_cast<uint8_t>(100 + i);
    }
    const char* suite = "AES_CM_128_HMAC_SHA1_80";
    ASSERT_EQ(ZYN_S_OK, session[0]->SetSrtpKey(1, suite, aToB, 30));
    ASSERT_EQ(ZYN_S_OK, session[1]->SetSrtpKey(2, suite, aToB, 30));
    ASSERT_EQ(ZYN_S_OK, session[1]->SetSrtpKey(1, suite, bToA, 30));
    ASSERT_EQ(ZYN_S_OK, session[0]->SetSrtpKey(2, suite, bToA, 30));
    Connect();
    // 50 packets a second each way; sender reports every second carry the round trip.
    ASSERT_TRUE(wire[0].WaitFor(session[0], [](const ZynFlowStatistics& s) { return s.rttMs > 0 && s.packetsReceived >= 60; }));
    ZynFlowStatistics a{}, b{};
    session[0]->GetFlowStatistics(a);
    session[1]->GetFlowStatistics(b);
    EXPECT_EQ(0, a.packetsLost);
    EXPECT_EQ(0u, a.srtpFailures);
    EXPECT_EQ(0u, b.srtpFailures);
    EXPECT_GE(b.packetsReceived, 60u);
    EXPECT_LT(a.rttMs, 1000.0);  // in process: well under a second even on a loaded machine
    EXPECT_GT(a.bytesSent, 60u * 92);  // header, payload and tag
}

TEST_F(FlowTest, AWrongReceiveKeyRefusesEverything)
{
    uint8_t key[30] = {1}, other[30] = {2};
    session[0]->SetSrtpKey(1, "AES_CM_128_HMAC_SHA1_80", key, 30);
    session[1]->SetSrtpKey(2, "AES_CM_128_HMAC_SHA1_80", other, 30);
    EXPECT_EQ(ZYN_E_INVALIDARG, session[1]->SetSrtpKey(2, "NO_SUCH_SUITE", other, 30));
    Connect();
    ASSERT_TRUE(wire[0].WaitFor(session[1], [](const ZynFlowStatistics& s) { return s.srtpFailures >= 20; }));
    ZynFlowStatistics b{};
    session[1]->GetFlowStatistics(b);
    EXPECT_EQ(0u, b.packetsReceived);
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
