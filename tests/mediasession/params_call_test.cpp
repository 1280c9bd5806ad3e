// JSON keys that act on a running call: the audio codec switched among those negotiated, seen in
// the payload type the far end receives; the encoder's limits read back from the engine track.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "call_harness.h"
#include "util/CmJson.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynSubscribe.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;

constexpr unsigned long kAudio = 0, kVideo = 1;

// The payload type of the stream the line last received, -1 before one.
int ReceivedPayloadType(zyn::CMediaConnectionInfo* line)
{
    ZynStreamStatistics streams[4];
    uint32_t count = 4;
    if (line->GetZynSession()->GetStreamStatistics(streams, count) != ZYN_S_OK) return -1;
    for (uint32_t i = 0; i < count; ++i)
        if (streams[i].direction == 2) return streams[i].payloadType;
    return -1;
}

class ParamsCallTest : public ::testing::Test {
protected:
    ParamsCallTest() : call({{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}}, [](zyn::CMediaConnection&) {})
    {
        EXPECT_TRUE(call.Exchange());
        EXPECT_TRUE(call.WaitAll(3)) << "no RTP crossed";
    }
    ZynResult Set(unsigned long mid, const std::string& text)
    {
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = call.Impl(0)->SetParams(mid, text.c_str(), static_cast<unsigned>(text.size())); });
        return r;
    }
    json::Value Section(unsigned long mid, const char* name)
    {
        json::Value out;
        OnMain([&] { out = json::Deserialize(call.Impl(0)->GetParams(mid)); });
        return out.contains(name) ? out[name] : json::Value();
    }
    bool Eventually(const std::function<bool()>& pred)
    {
        for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
             std::chrono::steady_clock::now() < end;) {
            if (pred()) return true;
            call.sink[0].Wait([] { return false; }, std::chrono::milliseconds(50));
        }
        return pred();
    }

    mstest::EngineScope engine;
    CallPair call;
};

TEST_F(ParamsCallTest, AudioCodecSwitchesWhatTheFarEndReceives)
{
    zyn::CMediaConnectionInfo* far = call.Line(1, kAudio);
    ASSERT_TRUE(Eventually([&] { return ReceivedPayloadType(far) == 100; })) << "opus leads the negotiation";
    EXPECT_EQ("opus", Section(kAudio, "audio").value("audioCodec", ""));
    const struct {
        const char* value;  // the JSON text of "audioCodec"
        ZynResult result;
        int payloadType;  // what the far end then receives
        const char* readBack;
    } rows[] = {
        {"\"PCMA\"", ZYN_S_OK, 8, "PCMA"},
        {"\"nope\"", ZYN_E_INVALIDARG, 8, "PCMA"},
        {"\"PCMU\"", ZYN_E_NOTFOUND, 8, "PCMA"},  // not offered: the codec in use stays
        {"true", ZYN_E_INVALIDARG, 8, "PCMA"},
        {"50", ZYN_E_INVALIDARG, 8, "PCMA"},  // telephone events are no media codec
        {"7", ZYN_S_OK, 18, "G729"},
        {"\"opus\"", ZYN_S_OK, 100, "opus"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, Set(kAudio, std::string("{\"audio\":{\"audioCodec\":") + row.value + "}}")) << row.value;
        EXPECT_TRUE(Eventually([&] { return ReceivedPayloadType(far) == row.payloadType; }))
            << row.value << ": far end receives " << ReceivedPayloadType(far);
        EXPECT_EQ(row.readBack, Section(kAudio, "audio").value("audioCodec", "")) << row.value;
    }
}

TEST_F(ParamsCallTest, EncoderLimitsReachTheLocalEngineTrack)
{
    const struct {
        const char* object;
        ZynResult result;
        uint32_t mbps, fs, fps, bitrate, nal;  // read back from the engine track's first stream
    } rows[] = {
        {"{\"uProfileLevelID\":4366366,\"uMaxMBPS\":108000,\"uMaxFS\":3600,\"uMaxFPS\":30,\"uMaxBitRate\":1500000,"
         "\"uMaxNalUnitSize\":1200}",
         ZYN_S_OK, 108000, 3600, 30, 1500000, 1200},
        {"{\"uMaxFS\":396}", ZYN_S_OK, 0, 396, 0, 0, 0},  // absent fields are no limit
        {"{\"uMaxFS\":-1}", ZYN_E_INVALIDARG, 0, 396, 0, 0, 0},
        {"{\"uMaxFPS\":\"30\"}", ZYN_E_INVALIDARG, 0, 396, 0, 0, 0},
        {"[1,2]", ZYN_E_INVALIDARG, 0, 396, 0, 0, 0},
    };
    IZynMediaTrack* track = call.Line(0, kVideo)->GetLocalEngineTrack();
    ASSERT_NE(nullptr, track);
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, Set(kVideo, std::string("{\"video\":{\"maxEncCapability\":") + row.object + "}}"))
            << row.object;
        _tagVideoSubscribeMultiStream record{};
        uint32_t size = sizeof record;
        ASSERT_EQ(ZYN_S_OK, track->GetOption(ZynTrackOption_SubscribeMultiStream, &record, size)) << row.object;
        EXPECT_EQ(1u, record.uNumStreams);
        const _tagVideoEncodeCapability& s = record.stStreams[0];
        EXPECT_EQ(row.mbps, s.uMaxMBPS) << row.object;
        EXPECT_EQ(row.fs, s.uMaxFS) << row.object;
        EXPECT_EQ(row.fps, s.uMaxFPS) << row.object;
        EXPECT_EQ(row.bitrate, s.uMaxBitRate) << row.object;
        EXPECT_EQ(row.nal, s.uMaxNalUnitSize) << row.object;
        EXPECT_EQ(row.fs, Section(kVideo, "video")["maxEncCapability"].value("uMaxFS", 0u)) << row.object;
    }
}

TEST(ParamsBeforeCallTest, TheAudioCodecWaitsForANegotiation)
{
    mstest::EngineScope engine;
    IZynMediaConnection* conn = nullptr;
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
    ASSERT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudio, nullptr));
    auto* api = static_cast<zyn::CMediaConnection*>(conn);
    const std::string text = R"({"audio":{"audioCodec":"PCMU"}})";
    EXPECT_EQ(ZYN_E_WRONGSTATE, api->SetParams(kAudio, text.c_str(), static_cast<unsigned>(text.size())));
    EXPECT_FALSE(json::Deserialize(api->GetParams(kAudio))["audio"].contains("audioCodec"));
    conn->Stop();
    conn->Release();
    OnMain();
}

}  // namespace
