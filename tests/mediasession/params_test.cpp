// Settings by JSON text on a real connection: every key set, then read back by GetParams and,
// where the setting acts outside the configuration, from the engine; bad texts answer their code
// and leave everything else as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "test_support.h"
#include "util/CmJson.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;

constexpr unsigned long kAudio = 0;
constexpr unsigned long kVideo = 1;
constexpr unsigned long kShare = 2;

struct NullSink : IZynMediaConnectionSink {};

class ParamsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_liveBase = ZynLiveObjectCount();
        IZynMediaConnection* conn = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
        m_conn = static_cast<IZynMediaConnection4T*>(conn);
        m_conn->SetSink(&m_sink);
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudio, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, kVideo, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_ScreenShare, ZynDirection_SendRecv, kShare, nullptr));
    }
    void TearDown() override
    {
        if (m_conn) {
            m_conn->Stop();
            m_conn->Release();
        }
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }
    ZynResult Set(unsigned long mid, const std::string& text)
    {
        return m_conn->SetParams(mid, text.c_str(), static_cast<unsigned>(text.size()));
    }
    json::Value Get(unsigned long mid) { return json::Deserialize(m_conn->GetParams(mid)); }
    CMediaConnection& Impl() { return *static_cast<CMediaConnection*>(m_conn); }
    uint32_t EngineU32(int32_t id)
    {
        uint32_t v = 0, n = 4;
        return Impl().GetEngine()->GetOption(id, &v, n) == ZYN_S_OK ? v : 0xFFFFFFFF;
    }
    // A named option of the line's capture track as the engine holds it.
    std::string TrackOption(unsigned long mid, const char* name)
    {
        IZynMediaTrack* track = Impl().FindConnection(mid)->GetLocalEngineTrack();
        char text[256] = {};
        uint32_t n = sizeof(text);
        return track && track->GetNamedOption(name, text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
    }

    mstest::EngineScope m_engine;
    int m_liveBase = 0;
    IZynMediaConnection4T* m_conn = nullptr;
    NullSink m_sink;
};

// Every key of the global table and of the audio section, with values none of which is a default.
const char* const kEveryKey = R"({
  "icePolicy": 3, "connectionPolicy": 1, "localPortMin": 54700, "localPortMax": 54709,
  "enableQos": true, "enableDtlsSRTP": true, "supportCmulti": true, "enableDPC": false,
  "enableAQERefine": true, "enableSRTP": true, "enableFQDNInICE": false, "enableICE": true,
  "enableFastLane": true, "enableRTCPMux": true, "QoSMaxLossRatio": 0.5, "QoSMinBandwidth": 96000,
  "deviceCapability": "{\"audio\":{}}",
  "networkStatus": 1, "networkDirection": 2, "waitMilliseconds": 2500,
  "enableDSCP": true, "DSCPofAudio": 46, "DSCPofVideo": 34, "DSCPofScreen": 26,
  "enablePerformanceStatDump": 3, "featureToggles": "{\"EnableNewBNR\":true}",
  "manualAdaptBitrate": 640000, "SetShowStunTraceIP": true,
  "iceInactiveTimeout": 1500, "iceTerminateTimeout": 700, "iceConnectTimeout": 1000,
  "sendMQEDataInMinutes": 5, "EnableMQECallback": true, "insecureLogs": true,
  "AudioCaptureMethod": 2, "AudioPlaybackMethod": 1,
  "audio": {
    "fecParams": {"bEnableFec": true, "uVersion": 2, "uClockRate": 8000, "uPayloadType": 111,
                  "fecFmtInfo": {"bMultiSsrc": true, "uM": 8, "uMaxN": 40, "uMaxEsel": 1400},
                  "srtpFecOrder": "ORDER_SRTP_FEC", "uMaxFecOverhead": 35, "bFecProbing": false,
                  "dynamicFecScheme": "LOSS_RATIO_WITH_PRIORITY"},
    "rtxParams": {"bEnableRtx": true},
    "recordLossData": true, "uMaxBandwidth": 128000, "uInitBandWidth": 64000,
    "preferedCodec": "PCMA", "selectedCodec": "PCMU", "uMaxStreamsCount": 4,
    "enableAGC": true, "enableEC": true, "enableNS": true, "enableBNR": true, "setAecType": 2,
    "disableResponseMSync": true, "bEnableMsync": true, "bEnablePLI": false, "bEnableRTCPXR": true,
    "enableHDAudio": true, "enableVAD": true, "enableDropSeconds": true, "enableKeyDumpFile": true,
    "ignoreRemoteDevice": true, "enablePlaybackCNG": false, "enableASNO": true, "AudioMode": 3,
    "setPlaybackStreamMode": 2, "enableMultiTrackDumpFile": true, "enableAllDumpFile": false,
    "enableAECDumpFile": true, "enableCaptureDAGCDumpFile": false, "enableEncoderDumpFile": true,
    "enablePlaybackMixDumpFile": false, "enablePlaybackDAGCDumpFile": true,
    "enableKeyDumpFilesPath": "/tmp/keys", "srtpKey": ["AES_CM_128_HMAC_SHA1_32"]
  }
})";

TEST_F(ParamsTest, EveryKeyIsAppliedAndReadBack)
{
    const json::Value in = json::Deserialize(kEveryKey);
    ASSERT_TRUE(in.is_object());
    EXPECT_EQ(ZYN_S_OK, Set(kAudio, kEveryKey));
    const json::Value out = Get(kAudio);
    ASSERT_TRUE(out.is_object());

    // Read back as given; the keys below are checked where they act instead.
    const std::vector<std::string> elsewhere{"enableAQERefine", "deviceCapability", "manualAdaptBitrate", "audio",
                                             "featureToggles", "AudioCaptureMethod", "AudioPlaybackMethod"};
    for (const auto& [key, value] : in.items()) {
        if (std::find(elsewhere.begin(), elsewhere.end(), key) != elsewhere.end()) continue;
        SCOPED_TRACE(key);
        ASSERT_TRUE(out.contains(key));
        EXPECT_EQ(value, out[key]);
    }
    EXPECT_EQ(json::Deserialize(in["featureToggles"].get<std::string>()),
              json::Deserialize(out["featureToggles"].get<std::string>()));
    const json::Value& inAudio = in["audio"];
    const json::Value& outAudio = out["audio"];
    EXPECT_EQ(2, outAudio["getAecType"]);
    for (const auto& [key, value] : inAudio.items()) {
        SCOPED_TRACE(key);
        if (key == "fecParams" || key == "setAecType") continue;
        ASSERT_TRUE(outAudio.contains(key));
        EXPECT_EQ(value, outAudio[key]);
    }
    for (const auto& [key, value] : inAudio["fecParams"].items()) {
        SCOPED_TRACE(key);
        // Read back under its other name.
        const std::string name = key == "bFecProbing" ? "uFecProbing" : key;
        ASSERT_TRUE(outAudio["fecParams"].contains(name));
        EXPECT_EQ(value, outAudio["fecParams"][name]);
    }

    // Where the settings act: the engine, the audio line's session and its capture track.
    EXPECT_EQ(640000u, EngineU32(CMediaConnection::kEngineOptionManualAdaptBitrate));
    EXPECT_EQ(96000u, EngineU32(501));
    char text[16] = {};
    uint32_t n = sizeof(text);
    ASSERT_EQ(ZYN_S_OK, Impl().GetEngine()->GetNamedOption("enableAQERefine", text, n));
    EXPECT_STREQ("1", text);
    IZynMediaSession* session = Impl().FindConnection(kAudio)->GetZynSession();
    uint32_t bandwidth = 0, size = 4;
    ASSERT_EQ(ZYN_S_OK, session->GetOption(10, &bandwidth, size));
    EXPECT_EQ(128000u, bandwidth);
    IZynMediaTrack* track = Impl().FindConnection(kAudio)->GetLocalEngineTrack();
    ASSERT_NE(nullptr, track);
    for (const char* option : {"AAGC_aagc_enabled", "AEC_aec_enabled", "AEC_record_nr_enabled", "BNR_bnr_enabled",
                               "AUDIO_vad", "RTP_msync", "RTCP_xr"}) {
        SCOPED_TRACE(option);
        EXPECT_EQ("1", TrackOption(kAudio, option));
    }
    // Bits 0, 2, 4 and 6 of the module dump mask.
    EXPECT_EQ("85", TrackOption(kAudio, "AUDIO_module_dump_files"));
    EXPECT_STREQ("AES_CM_128_HMAC_SHA1_32", m_conn->GetAudioConfig(kAudio)->GetSrtpCryptoSuite());
}

// Every key of the video and screen sections, read back by GetParams and where it acts.
const char* const kEveryVideoKey = R"({
  "enableDecoderMosaic": true, "eVideoQualityLevel": 3,
  "iMaxWidth": 1280, "iMaxHeight": 720, "iMaxFrameRate": 30, "iMaxSpacialLayer": 2,
  "uMaxPacketSize": 1100, "ePacketizationMode": 0, "uVideoDataDumpFlag": 6, "bLimitNalSize": true,
  "maxNalSize": 1000, "bHWEncoder": true, "bHWDecoder": false, "bEnableCVO": true,
  "decodeCodec": [{"codec": "H264", "uProfileLevelID": 4382751, "max-mbps": 108000, "max-fs": 3600,
                   "max-fps": 3000, "max-br": 1500, "max_br_mode1": 1800}],
  "encodeCodec": [{"codec": "H264", "uProfileLevelID": 4382751, "max-mbps": 40500, "max-fs": 1350,
                   "max-fps": 3000, "max-br": 800}],
  "enableCHP": true, "enableAVCSimulcast": true, "disable90PVideo": true, "enable1080PVideo": true,
  "enablePeriodicIDR": true, "enableUpdateCapParam": true, "enableSelfPreviewHorizontalMirror": true,
  "enableSmoothPlay": true
})";
const char* const kEveryScreenKey = R"({"screenMaxCaptureFps": 15, "downSampleMaxHeight": 1080,
  "screenCodecMode": 2, "enableCaptureVideoContent": true, "enableCaptureVideoContentWithAudio": true,
  "sharingOverVideoPipeline": true})";

TEST_F(ParamsTest, EveryVideoAndScreenKeyIsAppliedAndReadBack)
{
    const json::Value video = json::Deserialize(kEveryVideoKey);
    json::Value screen = json::Deserialize(kEveryVideoKey);
    const json::Value screenOnly = json::Deserialize(kEveryScreenKey);
    for (const auto& [key, value] : screenOnly.items()) screen[key] = value;
    const struct {
        unsigned long mid;
        const char* section;
        const json::Value& keys;
    } lines[] = {{kVideo, "video", video}, {kShare, "screen", screen}};
    for (const auto& line : lines) {
        SCOPED_TRACE(line.section);
        json::Value text;
        text[line.section] = line.keys;
        EXPECT_EQ(ZYN_S_OK, Set(line.mid, json::Serialize(text)));
        const json::Value out = Get(line.mid)[line.section];
        for (const auto& [key, value] : line.keys.items()) {
            SCOPED_TRACE(key);
            ASSERT_TRUE(out.contains(key));
            EXPECT_EQ(value, out[key]);
        }
    }
    // Where they act: the capture track of each line, and the video line's next offer.
    const struct {
        unsigned long mid;
        const char* option;
        const char* expect;
    } track[] = {
        {kVideo, "VIDEO_max_packet_size", "1100"},   {kVideo, "VIDEO_max_capture_quality", "3"},
        {kVideo, "VIDEO_hw_encoder", "1"},           {kVideo, "VIDEO_hw_decoder", "0"},
        {kVideo, "VIDEO_max_capability", "1280,720,30,2"}, {kVideo, "VIDEO_decoder_mosaic", "1"},
        {kShare, "SHARE_max_capture_fps", "15"},     {kShare, "SHARE_capture_video_content_audio", "1"},
        {kShare, "SHARE_over_video_pipeline", "1"},  {kShare, "VIDEO_cvo", "1"},
    };
    for (const auto& row : track) {
        SCOPED_TRACE(row.option);
        EXPECT_EQ(row.expect, TrackOption(row.mid, row.option));
    }
}

// The camera's controls land on the capture track, where the camera refuses what it cannot do;
// its exposure ranges come back from the camera itself.
TEST_F(ParamsTest, CameraKeysReachTheCameraWithinItsRanges)
{
    const struct {
        const char* keys;
        ZynResult result;
        const char* option;
        const char* engine;  // the camera's value afterwards
    } rows[] = {
        {R"("videoZoomFactor": 2.5)", ZYN_S_OK, "CAMERA_zoom_factor", "2.5"},
        {R"("videoZoomFactor": 0.5)", ZYN_E_INVALIDARG, "CAMERA_zoom_factor", "2.5"},
        {R"("cameraFocusAtPointX": 0.25, "cameraFocusAtPointY": 0.75)", ZYN_S_OK, "CAMERA_focus_point", "0.25,0.75"},
        {R"("cameraFocusAtPointX": 0.5)", ZYN_S_OK, "CAMERA_focus_point", "0.25,0.75"},  // half a pair
        {R"("cameraFocusAtPointX": 1.5, "cameraFocusAtPointY": 0.5)", ZYN_E_INVALIDARG, "CAMERA_focus_point",
         "0.25,0.75"},
        {R"("exposureState": -3)", ZYN_S_OK, "CAMERA_exposure_state", "-3"},
        {R"("exposureState": 9)", ZYN_E_INVALIDARG, "CAMERA_exposure_state", "-3"},
        {R"("flashMode": 2, "torchMode": "on")", ZYN_E_INVALIDARG, "CAMERA_flash_mode", "2"},
        {R"("torchMode": 1)", ZYN_S_OK, "CAMERA_torch_mode", "1"},
        {R"("exposureCustomeDuration": 10, "exposureCustomeISO": 800)", ZYN_S_OK, "CAMERA_custom_exposure", "10,800"},
        {R"("exposureCustomeDuration": 10, "exposureCustomeISO": 6400)", ZYN_E_INVALIDARG, "CAMERA_custom_exposure",
         "10,800"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.keys);
        EXPECT_EQ(row.result, Set(kVideo, std::string(R"({"video": {)") + row.keys + "}}"));
        EXPECT_EQ(row.engine, TrackOption(kVideo, row.option));
    }
    const json::Value out = Get(kVideo)["video"];
    const struct {
        const char* key;
        double value;
    } back[] = {{"videoZoomFactor", 2.5},   {"exposureState", -3},   {"flashMode", 2},
                {"torchMode", 1},           {"exposureISO", 800},    {"exposureDuration", 10},
                {"exposureMinISO", 50},     {"exposureMaxISO", 3200}, {"exposureMinState", -8},
                {"exposureMaxState", 8},    {"exposureMinDuration", 0.1}, {"exposureMaxDuration", 250}};
    for (const auto& b : back) EXPECT_NEAR(b.value, out.value(b.key, -1000.0), 1e-3) << b.key;
    // A share line has no camera: the keys are not its own, and its track would refuse them.
    EXPECT_EQ(ZYN_S_OK, Set(kShare, R"({"screen": {"videoZoomFactor": 2}})"));
    EXPECT_EQ("(unset)", TrackOption(kShare, "CAMERA_zoom_factor"));
    EXPECT_EQ(ZYN_E_NOTAVAILABLE,
              Impl().FindConnection(kShare)->GetLocalEngineTrack()->SetNamedOption("CAMERA_zoom_factor", "2"));
}

TEST_F(ParamsTest, BadVideoValuesFailAloneAndGuardedOnesAreRefusedAfterTheOffer)
{
    const std::string before = m_conn->GetParams(kVideo);
    struct Row {
        const char* name;
        const char* text;
        ZynResult expect;
    } rows[] = {
        {"packetization mode 2", R"({"video": {"ePacketizationMode": 2}})", ZYN_E_INVALIDARG},
        {"quality past 4K", R"({"video": {"eVideoQualityLevel": 9}})", ZYN_E_INVALIDARG},
        {"codec entry not an object", R"({"video": {"decodeCodec": [1]}})", ZYN_E_INVALIDARG},
        {"codec not video", R"({"video": {"encodeCodec": [{"codec": "PCMU"}]}})", ZYN_E_INVALIDARG},
        {"codecs not an array", R"({"video": {"encodeCodec": {"codec": "H264"}}})", ZYN_E_INVALIDARG},
        {"negative record", R"({"video": {"iMaxWidth": -1, "iMaxHeight": 2, "iMaxFrameRate": 3,
                                          "iMaxSpacialLayer": 1}})", ZYN_E_INVALIDARG},
        {"one of four record keys", R"({"video": {"iMaxWidth": 640}})", ZYN_S_OK},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expect, Set(kVideo, row.text));
        EXPECT_EQ(before, m_conn->GetParams(kVideo));
    }
    EXPECT_EQ(ZYN_E_INVALIDARG, Set(kShare, R"({"screen": {"screenMaxCaptureFps": -5, "screenCodecMode": 1}})"));
    EXPECT_EQ("(unset)", TrackOption(kShare, "SHARE_max_capture_fps"));
    EXPECT_EQ("1", TrackOption(kShare, "SHARE_codec_mode"));

    ASSERT_EQ(ZYN_S_OK, m_conn->CreateOffer());
    EXPECT_EQ(ZYN_E_FAIL, Set(kVideo, R"({"video": {"uMaxPacketSize": 900, "bEnableCVO": true}})"));
    EXPECT_EQ("(unset)", TrackOption(kVideo, "VIDEO_max_packet_size"));
    EXPECT_EQ("1", TrackOption(kVideo, "VIDEO_cvo"));
}

// What GetParams gives, given back, is taken whole and changes nothing: on each kind of line, fresh
// and after every key was set.
TEST_F(ParamsTest, WhatIsReadBackIsTakenBackUnchanged)
{
    for (int round = 0; round < 2; ++round) {
        if (round == 1) {
            ASSERT_EQ(ZYN_S_OK, Set(kAudio, kEveryKey));
        }
        for (unsigned long mid : {kAudio, kVideo}) {
            SCOPED_TRACE(std::to_string(round) + "/" + std::to_string(mid));
            const std::string before = m_conn->GetParams(mid);
            EXPECT_EQ(ZYN_S_OK, Set(mid, before));
            EXPECT_EQ(before, m_conn->GetParams(mid));
        }
    }
}

TEST_F(ParamsTest, OneBadValueFailsAloneAndTheRestApplies)
{
    const std::string text = R"({"enableQos": "yes", "QoSMinBandwidth": 5000,
        "audio": {"uMaxBandwidth": -1, "recordLossData": true, "preferedCodec": "no-such-codec"}})";
    EXPECT_EQ(ZYN_E_INVALIDARG, Set(kAudio, text));
    const json::Value out = Get(kAudio);
    EXPECT_EQ(false, out["enableQos"]);
    EXPECT_EQ(5000, out["QoSMinBandwidth"]);
    EXPECT_EQ(0, out["audio"]["uMaxBandwidth"]);
    EXPECT_EQ(true, out["audio"]["recordLossData"]);
    EXPECT_EQ(Get(kVideo)["video"]["uMaxBandwidth"], 0) << "another line is not touched";
}

// Keys that act together act only when all are there; a section of another kind is not read.
TEST_F(ParamsTest, PartialGroupsAndForeignSectionsChangeNothing)
{
    const std::string before = m_conn->GetParams(kVideo);
    struct Row {
        const char* name;
        const char* text;
    } rows[] = {
        {"empty object", "{}"},
        {"two of three DSCP", R"({"DSCPofAudio": 1, "DSCPofVideo": 2})"},
        {"one port of two", R"({"localPortMin": 50000})"},
        {"two of three ICE time-outs", R"({"iceInactiveTimeout": 1, "iceConnectTimeout": 2})"},
        {"audio section on a video line", R"({"audio": {"uMaxBandwidth": 5}})"},
        {"unknown keys", R"({"noSuchKey": 1, "video": {"noSuchKeyEither": true}})"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ZYN_S_OK, Set(kVideo, row.text));
        EXPECT_EQ(before, m_conn->GetParams(kVideo));
    }
}

TEST_F(ParamsTest, BadTextsAnswerTheirCodeAndChangeNothing)
{
    const std::string before = m_conn->GetParams(kAudio);
    const std::string deep(1 << 20, '[');
    const std::string huge = R"({"QoSMinBandwidth": 7, "blob": ")" + std::string(1 << 20, 'x') + "\"";  // unterminated
    struct Row {
        const char* name;
        unsigned long mid;
        std::string text;
        ZynResult expect;
    } rows[] = {
        {"not JSON", kAudio, "enableQos=true", ZYN_E_INVALIDARG},
        {"an array", kAudio, "[{\"enableQos\":true}]", ZYN_E_INVALIDARG},
        {"empty", kAudio, "", ZYN_E_INVALIDARG},
        {"1 MB of nesting", kAudio, deep, ZYN_E_INVALIDARG},
        {"1 MB, cut short", kAudio, huge, ZYN_E_INVALIDARG},
        {"trailing garbage", kAudio, "{\"enableQos\":true} x", ZYN_E_INVALIDARG},
        {"unknown mid", 77, "{\"enableQos\":true}", ZYN_E_POINTER},
        {"wrong section type", kAudio, R"({"audio": [1]})", ZYN_E_INVALIDARG},
        {"wrong type in fecParams", kAudio, R"({"audio": {"fecParams": {"uPayloadType": "x"}}})", ZYN_E_INVALIDARG},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expect, Set(row.mid, row.text));
        EXPECT_EQ(before, m_conn->GetParams(kAudio));
    }
    EXPECT_EQ(ZYN_E_INVALIDARG, m_conn->SetParams(kAudio, nullptr, 10));
    // The length given bounds the read: what follows it is not part of the text.
    const char* cut = "{\"insecureLogs\":true}{\"enableQos\":true}";
    EXPECT_EQ(ZYN_S_OK, m_conn->SetParams(kAudio, cut, 21));
    EXPECT_EQ(true, Get(kAudio)["insecureLogs"]);
    EXPECT_EQ(false, Get(kAudio)["enableQos"]);
    EXPECT_STREQ("{}", m_conn->GetParams(77));
}

TEST_F(ParamsTest, GuardedKeysAreRefusedOnceTheCallStartedAndTheOthersStillApply)
{
    ASSERT_EQ(ZYN_S_OK, m_conn->CreateOffer());
    EXPECT_EQ(ZYN_E_FAIL, Set(kAudio, R"({"enableQos": true, "SetShowStunTraceIP": true,
                                          "audio": {"uMaxBandwidth": 9000, "uInitBandWidth": 8000}})"));
    const json::Value out = Get(kAudio);
    EXPECT_EQ(false, out["enableQos"]);
    EXPECT_EQ(true, out["SetShowStunTraceIP"]);
    EXPECT_EQ(0, out["audio"]["uMaxBandwidth"]);
    EXPECT_EQ(8000, out["audio"]["uInitBandWidth"]);
}

TEST_F(ParamsTest, AStoppedConnectionHasNoLineToSet)
{
    m_conn->Stop();
    mstest::OnMain();
    EXPECT_EQ(ZYN_E_POINTER, Set(kAudio, "{\"enableQos\":true}"));
    EXPECT_STREQ("{}", m_conn->GetParams(kAudio));
}

}  // namespace
