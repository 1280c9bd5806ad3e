// Feature toggles and debug options on a real connection, each read back where it acts: the
// engine, a line's session or capture track, the transport layer, the next offer.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "sdp/session_group.h"
#include "test_support.h"
#include "tp/CmTpOption.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;

constexpr unsigned long kAudio = 0, kVideo = 1, kShare = 2;

struct OfferSink : IZynMediaConnectionSink {
    void OnSDPReady(ZynSdpType, const char* sdp) override { texts.emplace_back(sdp ? sdp : ""); }
    std::vector<std::string> texts;
};

class Connection {
public:
    // Lines of the kinds given, mids 0, 1, 2 by kind; each with its debug option (may be null).
    explicit Connection(std::vector<std::pair<ZynSessionType, const char*>> lines)
    {
        m_liveBase = ZynLiveObjectCount();
        EXPECT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
        impl = static_cast<CMediaConnection*>(conn);
        conn->SetSink(&sink);
        for (auto& [type, option] : lines)
            EXPECT_EQ(ZYN_S_OK, conn->AddMedia(type, ZynDirection_SendRecv, static_cast<unsigned long>(type), option));
    }
    ~Connection()
    {
        conn->Stop();
        conn->Release();
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }
    std::string EngineText(int32_t id)
    {
        char text[128] = {};
        uint32_t n = sizeof(text) - 1;
        return impl->GetEngine()->GetOption(id, text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
    }
    std::string TrackOption(unsigned long mid, const char* name)
    {
        IZynMediaTrack* track = impl->FindConnection(mid)->GetLocalEngineTrack();
        char text[128] = {};
        uint32_t n = sizeof(text);
        return track && track->GetNamedOption(name, text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
    }
    std::string SessionText(unsigned long mid, int32_t id)
    {
        char text[512] = {};
        uint32_t n = sizeof(text) - 1;
        IZynMediaSession* s = impl->FindConnection(mid)->GetZynSession();
        return s->GetOption(id, text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
    }
    sdp::session_group Offer()
    {
        EXPECT_EQ(ZYN_S_OK, conn->CreateOffer());
        return sdp::session_group(sdp::session_description::create(sink.texts.empty() ? "" : sink.texts.back()));
    }

    IZynMediaConnection* conn = nullptr;
    CMediaConnection* impl = nullptr;
    OfferSink sink;

private:
    int m_liveBase = 0;
};

int32_t TransportOption()
{
    int32_t v = -1;
    TPGetOption(CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT, &v);
    return v;
}

class TogglesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const int32_t zero = 0;
        TPSetOption(CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT, &zero);
    }
    mstest::EngineScope m_engine;
};

const std::vector<std::pair<ZynSessionType, const char*>> kThreeLines{
    {ZynSessionType_Audio, nullptr}, {ZynSessionType_Video, nullptr}, {ZynSessionType_ScreenShare, nullptr}};

// Switches that land as one named option of a line's capture track: {"<key>": true} gives "1".
TEST_F(TogglesTest, EachSwitchReachesTheCaptureTrack)
{
    const struct {
        const char* key;
        unsigned long mid;
        const char* option;
    } rows[] = {
        {"EnableMusicDetection", kAudio, "AEC_music_detection"},
        {"EnablClipVolumeCtl", kAudio, "AAGC_clip_control"},
        {"EnableNewAgc", kAudio, "DAGC_new_agc"},
        {"EnableCaptureDagc", kAudio, "DAGC_dagc_record_enabled"},
        {"EnablePlaybackDagc", kAudio, "DAGC_dagc_playback_enabled"},
        {"EnableFullbandAudio", kAudio, "AEC_enhance_fullband_enabled"},
        {"LessEchoMode", kAudio, "AEC_less_echo_mode"},
        {"DelayEstEx", kAudio, "AEC_delay_est_ex_enabled"},
        {"EnhanceFarEndVAD", kAudio, "AEC_enhance_far_end_vad"},
        {"EnableNewBNR", kAudio, "BNR_new_ULP_mode"},
        {"EnableCaptureRawData", kAudio, "EnableCaptureRawData"},
        {"EnableAECJointNLP", kAudio, "EnableAECJointNLP"},
        {"EnhanceLinearFilterInAEC", kAudio, "EnhanceLinearFilterInAEC"},
        {"MoreDagcGain", kAudio, "MoreDagcGain"},
        {"EnableMQEAudioProcessDataUpload", kAudio, "EnableMQEAudioProcessDataUpload"},
        {"EnableMuteDetection", kAudio, "EnableMuteDetection"},
        {"VideoStrategyEnableFPSAdjust", kVideo, "VideoStrategyEnableFPSAdjust"},
        {"VideoStrategyEnableMaxQPAdjust", kVideo, "VideoStrategyEnableMaxQPAdjust"},
        {"EnableAV1RGBEncoding", kShare, "SHARE_av1_rgb"},
        {"EnableImmersiveSharing", kShare, "SHARE_immersive"},
        {"EnableHighFidelitySharing", kShare, "SHARE_hifi_text"},
        {"EnableCapturerWindowBaseContent", kShare, "SHARE_window_base_content"},
    };
    Connection c(kThreeLines);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ("(unset)", c.TrackOption(row.mid, row.option));
        const std::string text = std::string(R"({")") + row.key + R"(": true})";
        EXPECT_EQ(ZYN_S_OK, c.conn->GetGlobalConfig()->SetFeatureToggles(text.c_str()));
        EXPECT_EQ("1", c.TrackOption(row.mid, row.option));
        // Every session holds the whole text.
        EXPECT_EQ(json::Deserialize(text), json::Deserialize(c.SessionText(kVideo, 22)));
    }
}

// Toggles with their own value forms or effects, each on a fresh connection.
TEST_F(TogglesTest, EachToggleActsWhereItLands)
{
    using Read = std::function<std::string(Connection&)>;
    auto engine = Read([](Connection& c) { return c.EngineText(CMediaConnection::kEngineOptionFeatureText); });
    auto track = [](unsigned long mid, const char* name) {
        return Read([mid, name](Connection& c) { return c.TrackOption(mid, name); });
    };
    auto rtx = [](unsigned long mid) {
        return Read([mid](Connection& c) { return c.SessionText(mid, 2002).substr(0, 1); });
    };
    // The data-flow bits the next offer declares for hybrid resilience on the video line.
    auto dataFlow = Read([](Connection& c) {
        IBaseConfig* video = c.conn->GetVideoConfig(kVideo);
        video->EnableFec(true);
        video->EnableRtx(true);
        c.Offer();
        const std::string& text = c.sink.texts.back();
        const std::string token = "a=vorta-sobe-hybrid-resilience:1 data-flow=";
        const size_t at = text.find(token, text.find("m=video"));
        if (at == std::string::npos) return std::string("(none)");
        return text.substr(at + token.size(), text.find('\r', at) - at - token.size());
    });
    auto offersAv1 = [](size_t index) {
        return Read([index](Connection& c) {
            const sdp::session_group offer = c.Offer();
            for (const sdp::codec& k : offer.sessions[index].rtp.get_data().codecs)
                if (k.get_name() == "AV1") return std::string("AV1");
            return std::string("no AV1");
        });
    };
    auto transport = Read([](Connection&) { return std::to_string(TransportOption()); });
    struct Row {
        const char* text;
        Read read;
        std::string expect;
    } rows[] = {
        {R"({"ConnectionTimeEnhancement": 3})", transport, "3"},
        {R"({"ConnectionTimeEnhancement": "12"})", transport, "12"},
        {R"({"ConnectionTimeEnhancement": [3]})", transport, "0"},
        {R"({"media-sobe-rate-adaptation": "probe-fast"})", engine, "probe-fast"},
        {R"({"EnableInsensitiveUDPPhase1": true})", engine, "insensitive_udp_1"},
        {R"({"EnableInsensitiveUDPPhase2": "true"})", engine, "defer-downgrade"},
        {R"({"EnableInherentLossProbing": true})", engine, "inherentloss-probing"},
        {R"({"EnableInherentLossProbing": false})", engine, "(unset)"},
        {R"({"EnableRetransmissionForAudio": true})", rtx(kAudio), "\x01"},
        {R"({"EnableRetransmissionForVideo": "true"})", rtx(kVideo), "\x01"},
        {R"({"EnableRetransmissionForHfpsShare": true})", rtx(kShare), "\x01"},
        {R"({"EnableRetransmissionForFEC": true})", dataFlow, "3"},
        {R"({"EnableFECForRetransmission": true})", dataFlow, "5"},
        {R"({"EnableRetransmissionForFEC": true, "EnableFECForRetransmission": "true"})", dataFlow, "7"},
        {R"({"EnableFECForRetransmission": false})", dataFlow, "1"},
        {R"({"DynamicFecModeWithRTX": "BURST_LENGTH_ONLY"})",
         [](Connection& c) {
             char text[64] = {};
             uint32_t n = sizeof(text);
             IZynMediaSession* s = c.impl->FindConnection(kShare)->GetZynSession();
             return s->GetNamedOption("DynamicFecModeWithRTX", text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
         },
         "BURST_LENGTH_ONLY"},
        {R"({"EnableAV1bySessionType": 2})", offersAv1(1), "AV1"},
        {R"({"EnableAV1bySessionType": "4"})", offersAv1(1), "no AV1"},
        {R"({"EnableAV1bySessionType": 4})", offersAv1(2), "AV1"},
        {R"({"ForceSharingStrictRegionCheck": true})", track(kShare, "SHARE_skip_strict_region_check"), "0"},
        {R"({"EnableImprovedAagc": {"EnableImproved": true}})", track(kAudio, "AAGC_improved_aagc"), "1"},
        {R"({"AudioJitterBufferFeatures": "7"})", track(kAudio, "AudioJitterBufferFeatures"), "7"},
        {R"({"CameraImageQualityOverFrameRate": 2})", track(kVideo, "CameraImageQualityOverFrameRate"), "2"},
        {R"({"CameraImageQualityOverFrameSize": "1"})", track(kVideo, "CameraImageQualityOverFrameSize"), "1"},
        {R"({"cpu_high_usage": 80, "cpu_time_counter": "5"})",
         [](Connection& c) {
             auto& g = c.impl->GetGlobalConfigImpl();
             return std::to_string(static_cast<int>(g.GetCpuHighUsageThreshold())) + "/" +
                    std::to_string(static_cast<int>(g.GetCpuMonitorInterval()));
         },
         "80/5"},
        {R"({"cpu_high_usage": 80})",
         [](Connection& c) { return std::to_string(static_cast<int>(c.impl->GetGlobalConfigImpl().GetCpuHighUsageThreshold())); },
         "95"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        SetUp();
        Connection c(kThreeLines);
        EXPECT_EQ(ZYN_S_OK, c.conn->GetGlobalConfig()->SetFeatureToggles(row.text));
        EXPECT_EQ(row.expect, row.read(c));
    }
}

TEST_F(TogglesTest, ARepeatedTextAppliesNothingAndABadOneKeepsTheLast)
{
    Connection c(kThreeLines);
    mstest::TraceCapture trace;
    IGlobalConfig* g = c.conn->GetGlobalConfig();
    ASSERT_EQ(ZYN_S_OK, g->SetFeatureToggles(R"({"ConnectionTimeEnhancement": 4})"));
    EXPECT_EQ(4, TransportOption());
    const int32_t zero = 0;
    TPSetOption(CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT, &zero);
    EXPECT_EQ(ZYN_S_OK, g->SetFeatureToggles(R"({ "ConnectionTimeEnhancement" : 4 })"));
    EXPECT_EQ(0, TransportOption()) << "the same object again is not applied";
    EXPECT_TRUE(trace.Contains("CMediaConnection::SetFeatureToggles, same json object string: "));

    for (const char* bad : {"[1]", "nonsense", "", "{\"a\":"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(ZYN_S_FALSE, g->SetFeatureToggles(bad));
    }
    EXPECT_EQ(ZYN_S_FALSE, g->SetFeatureToggles(nullptr));
    json::Value kept;
    ASSERT_TRUE(c.impl->GetFeatureToggles(kept));
    EXPECT_EQ(json::Deserialize(R"({"ConnectionTimeEnhancement": 4})"), kept);
    EXPECT_FALSE(trace.Contains("ConnectionTimeEnhancement with wrong type"));
    EXPECT_EQ(ZYN_S_OK, g->SetFeatureToggles(R"({"ConnectionTimeEnhancement": {"x": 1}})"));
    EXPECT_TRUE(trace.Contains("CMediaConnection::SetFeatureToggles,ConnectionTimeEnhancement with wrong type: object"));
}

TEST_F(TogglesTest, AToggleForAMissingLineChangesNothing)
{
    Connection c({{ZynSessionType_Audio, nullptr}});
    EXPECT_EQ(ZYN_S_OK, c.conn->GetGlobalConfig()->SetFeatureToggles(
                            R"({"EnableRetransmissionForVideo": true, "EnableImmersiveSharing": true,
                                "CameraImageQualityOverFrameRate": 2})"));
    EXPECT_EQ(1u, c.impl->GetConnectionCount());
    EXPECT_EQ("(unset)", c.SessionText(kAudio, 2002));
}

// Debug options given with AddMedia, read back in the offer the line produces.
TEST_F(TogglesTest, DebugOptionsShapeTheLineAndTheOffer)
{
    mstest::TraceCapture trace;
    Connection c({{ZynSessionType_Audio, R"({"localPortBegin": 54810, "localPortEnd": 54819, "enableSRTP": true,
                                            "enableRTCPMux": true, "icePolicy": 17,
                                            "enablePerformanceStatDump": 2})"},
                  {ZynSessionType_Video, "not json at all"}});
    EXPECT_TRUE(trace.Contains("Overide the ICE policy by debug option."));
    EXPECT_EQ(17u, c.conn->GetAudioConfig(kAudio)->GetIcePolicy());
    EXPECT_EQ(ZynPerformanceDump_Memory, c.impl->GetGlobalConfigImpl().GetPerformanceTraceDump());
    const sdp::session_group offer = c.Offer();
    ASSERT_EQ(2u, offer.sessions.size());
    EXPECT_GE(offer.sessions[0].get_port(), 54810);
    EXPECT_LE(offer.sessions[0].get_port(), 54819);
    const sdp::rtp_session& audio = offer.sessions[0].rtp.get_data();
    EXPECT_FALSE(audio.cryptos.empty()) << "SRTP keys are offered";
    EXPECT_TRUE(audio.rtcp_mux);
    EXPECT_EQ(ZYN_E_INVALIDARG, c.impl->ProcessDebugOption(ZynSessionType_Audio, 9, "{}")) << "no such line";
}

}  // namespace
