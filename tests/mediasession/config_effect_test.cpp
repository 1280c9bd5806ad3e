// Settings made through the configuration interfaces of a real connection, read back where they
// act: the engine's options, the line's engine session, the next offer's text. Guarded settings are
// refused once the call started and leave what acts untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "sdp/session_group.h"
#include "test_support.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;
using zyn::CMediaConnectionInfo;

constexpr unsigned long kAudioMid = 0;
constexpr unsigned long kVideoMid = 1;
constexpr unsigned long kShareMid = 2;

struct OfferSink : IZynMediaConnectionSink {
    void OnSDPReady(ZynSdpType, const char* sdp) override { texts.emplace_back(sdp ? sdp : ""); }
    std::vector<std::string> texts;
};

// One connection with an audio and a video line, both ways.
class RealConnection {
public:
    RealConnection()
    {
        m_liveBase = ZynLiveObjectCount();
        EXPECT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
        impl = static_cast<CMediaConnection*>(conn);
        conn->SetSink(&sink);
        EXPECT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudioMid, nullptr));
        EXPECT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, kVideoMid, nullptr));
        EXPECT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_ScreenShare, ZynDirection_SendRecv, kShareMid, nullptr));
    }
    ~RealConnection()
    {
        conn->Stop();
        conn->Release();
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }
    IGlobalConfig& Global() { return *conn->GetGlobalConfig(); }
    IBaseConfig& Audio() { return *conn->GetAudioConfig(kAudioMid); }
    IBaseConfig& Video() { return *conn->GetVideoConfig(kVideoMid); }
    IVideoConfig& Camera() { return *conn->GetVideoConfig(kVideoMid); }
    IShareConfig& Share() { return *conn->GetShareConfig(kShareMid); }
    // A named option of the line's capture track as the engine holds it.
    std::string TrackOption(unsigned long mid, const char* name)
    {
        IZynMediaTrack* track = impl->FindConnection(mid)->GetLocalEngineTrack();
        char text[256] = {};
        uint32_t n = sizeof(text);
        return track && track->GetNamedOption(name, text, n) == ZYN_S_OK ? std::string(text, n) : "(unset)";
    }

    // An option as the engine holds it, as the bytes' text ("" when never set).
    std::string EngineOption(int32_t id)
    {
        return Bytes([&](void* v, uint32_t& n) { return impl->GetEngine()->GetOption(id, v, n); });
    }
    std::string SessionOption(unsigned long mid, int32_t id)
    {
        IZynMediaSession* session = impl->FindConnection(mid)->GetZynSession();
        return Bytes([&](void* v, uint32_t& n) { return session->GetOption(id, v, n); });
    }
    sdp::session_group Offer()
    {
        EXPECT_EQ(ZYN_S_OK, conn->CreateOffer());
        EXPECT_FALSE(sink.texts.empty());
        return sdp::session_group(sdp::session_description::create(sink.texts.empty() ? "" : sink.texts.back()));
    }

    IZynMediaConnection* conn = nullptr;
    CMediaConnection* impl = nullptr;
    OfferSink sink;

private:
    static std::string Bytes(const std::function<ZynResult(void*, uint32_t&)>& get)
    {
        uint8_t buffer[64] = {};
        uint32_t size = sizeof(buffer);
        if (get(buffer, size) != ZYN_S_OK) return "";
        std::string text;
        for (uint32_t i = 0; i < size; ++i) text += std::to_string(buffer[i]) + (i + 1 < size ? "," : "");
        return text;
    }
    int m_liveBase = 0;
};

template <class T>
std::string BytesOf(T value)
{
    uint8_t b[sizeof(T)];
    std::memcpy(b, &value, sizeof(T));
    std::string text;
    for (size_t i = 0; i < sizeof(T); ++i) text += std::to_string(b[i]) + (i + 1 < sizeof(T) ? "," : "");
    return text;
}

class ConfigEffectTest : public ::testing::Test {
protected:
    mstest::EngineScope m_engine;
};

// Each row sets one value before the call and another after it started; where the setting is
// guarded the second is refused and the first stays in effect.
TEST_F(ConfigEffectTest, EverySettingReachesTheEngineOrItsSession)
{
    using Set = std::function<ZynResult(RealConnection&, int)>;
    using Read = std::function<std::string(RealConnection&)>;
    using Expect = std::function<std::string(int)>;
    auto u32 = [](uint32_t scale) { return Expect([scale](int v) { return BytesOf<uint32_t>(v * scale); }); };
    auto flag = Expect([](int v) { return BytesOf<uint8_t>(v == 1); });
    auto engine = [](int32_t id) { return Read([id](RealConnection& c) { return c.EngineOption(id); }); };
    auto session = [](unsigned long mid, int32_t id) {
        return Read([mid, id](RealConnection& c) { return c.SessionOption(mid, id); });
    };
    struct Row {
        const char* name;
        Set set;
        Read read;
        Expect expect;
        bool guarded;
    };
    const Row rows[] = {
        {"QoSMaxLossRatio", [](RealConnection& c, int v) { return c.Global().SetQoSMaxLossRatio(0.25f * v); },
         engine(500), [](int v) { return BytesOf<float>(0.25f * v); }, true},
        {"QoSMinBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSMinBandwidth(64000u * v); },
         engine(501), u32(64000), true},
        {"QoSInitBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSInitBandwidth(300000u * v); },
         engine(504), u32(300000), true},
        {"QoSMaxBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSMaxBandwidth(2000000u * v); },
         engine(507), u32(2000000), true},
        {"SendingCSRC", [](RealConnection& c, int v) { return c.Global().EnableSendingCSRC(v == 1); },
         session(kVideoMid, 2005), flag, true},
        {"BandwidthRollback", [](RealConnection& c, int v) { return c.Global().EnableBandwidthRollback(v == 1); },
         session(kAudioMid, 2009), flag, false},
        {"MaxBandwidth audio", [](RealConnection& c, int v) { return c.Audio().SetMaxBandwidth(100000u * v); },
         session(kAudioMid, 10), u32(100000), true},
        {"MaxBandwidth video", [](RealConnection& c, int v) { return c.Video().SetMaxBandwidth(1500000u * v); },
         session(kVideoMid, 10), u32(1500000), true},
        {"MaxFecOverhead", [](RealConnection& c, int v) { return c.Video().SetMaxFecOverhead(20u * v); },
         session(kVideoMid, 16), u32(20), false},
        {"FecProbing", [](RealConnection& c, int v) { return c.Audio().SetFecProbing(v == 1); },
         session(kAudioMid, 17), flag, false},
        {"DynamicFecScheme",
         [](RealConnection& c, int v) {
             return c.Video().SetDynamicFecScheme(v == 1 ? DynamicFECLevelScheme_LossRatioWithPriority
                                                         : DynamicFECLevelScheme_OnlyLossRatio);
         },
         session(kVideoMid, 18), [](int v) { return BytesOf<int32_t>(v == 1 ? 1 : 0); }, false},
        {"RecordLossData", [](RealConnection& c, int v) { return c.Audio().EnableRecordLossData(v == 1); },
         session(kAudioMid, 23), flag, false},
        {"Tmmbr", [](RealConnection& c, int v) { return c.Video().EnableTmmbr(v == 1); }, session(kVideoMid, 2004),
         flag, false},
        {"Fec", [](RealConnection& c, int v) { return c.Audio().EnableFec(v == 1); }, session(kAudioMid, 2006), flag,
         false},
        {"Rtx",
         [](RealConnection& c, int v) { return c.Video().EnableRtx(v == 1); },
         [](RealConnection& c) { return c.SessionOption(kVideoMid, 2002).substr(0, 1); },
         [](int v) { return std::string(v == 1 ? "1" : "0"); }, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RealConnection c;
        EXPECT_EQ(ZYN_S_OK, row.set(c, 1));
        EXPECT_EQ(row.expect(1), row.read(c));
        c.Offer();
        if (row.guarded) {
            EXPECT_EQ(ZYN_E_FAIL, row.set(c, 2));
            EXPECT_EQ(row.expect(1), row.read(c));
        } else {
            EXPECT_EQ(ZYN_S_OK, row.set(c, 2));
            EXPECT_EQ(row.expect(2), row.read(c));
        }
    }
}

_tagCodecParam Codec(ZynCodecType type, const char* name, uint8_t payload, uint32_t clock)
{
    _tagCodecParam p{};
    p.type = type;
    std::strncpy(p.name, name, sizeof(p.name) - 1);
    p.payload = payload;
    p.clock_rate = clock;
    p.channels = 1;
    p.cap.profile_id = 0x42e01f;
    p.packetization = 1;
    return p;
}

// The encodings of an m-line, "name/clock" each.
std::vector<std::string> Encodings(const sdp::session& s)
{
    std::vector<std::string> out;
    for (const sdp::codec& c : s.rtp.get_data().codecs)
        out.push_back(c.get_name() + "/" + std::to_string(c.get_clock_rate()));
    return out;
}

bool Has(const std::vector<std::string>& list, const std::string& prefix)
{
    for (const auto& s : list)
        if (s.rfind(prefix, 0) == 0) return true;
    return false;
}

// What lands in the next offer: the connector's ports and the codecs the application named.
TEST_F(ConfigEffectTest, PortRangesAndCodecListsShapeTheNextOffer)
{
    RealConnection c;
    ASSERT_EQ(ZYN_S_OK, c.Audio().SetIceLocalPortRange(54310, 54319));
    ASSERT_EQ(ZYN_S_OK, c.Video().SetIceLocalPortRange(54420, 54429));
    _tagCodecParam audio[] = {Codec(ZynCodecType_PCMU, "PCMU", 0, 8000)};
    ASSERT_EQ(ZYN_S_OK, c.Audio().SetupEncodeCodec(audio, 1));
    _tagCodecParam video[] = {Codec(ZynCodecType_Unknown, "H264", 109, 90000)};
    ASSERT_EQ(ZYN_S_OK, c.Video().SetupDecodeCodec(video, 1));
    EXPECT_EQ(ZynCodecType_AVC, video[0].type) << "a record named, not typed, is resolved in place";

    const sdp::session_group offer = c.Offer();
    ASSERT_EQ(3u, offer.sessions.size());
    const int audioPort = offer.sessions[0].get_port(), videoPort = offer.sessions[1].get_port();
    EXPECT_GE(audioPort, 54310);
    EXPECT_LE(audioPort, 54319);
    EXPECT_GE(videoPort, 54420);
    EXPECT_LE(videoPort, 54429);

    const auto audioCodecs = Encodings(offer.sessions[0]);
    EXPECT_TRUE(Has(audioCodecs, "PCMU/8000"));
    EXPECT_FALSE(Has(audioCodecs, "opus")) << "the engine's own list is replaced";
    const auto videoCodecs = Encodings(offer.sessions[1]);
    ASSERT_FALSE(videoCodecs.empty());
    EXPECT_EQ("H264/90000", videoCodecs[0]);
    bool pt109 = false;
    for (const sdp::codec& k : offer.sessions[1].rtp.get_data().codecs) pt109 |= k.get_payload_type() == 109;
    EXPECT_TRUE(pt109);

    // Started: the port range and the max bandwidth are guarded, the codec lists are not.
    EXPECT_EQ(ZYN_E_FAIL, c.Audio().SetIceLocalPortRange(54500, 54509));
    EXPECT_EQ(ZYN_E_FAIL, c.Audio().SetMaxBandwidth(64000));
    EXPECT_EQ("", c.SessionOption(kAudioMid, 10)) << "a refused setting reaches nothing";
}

// Without an engine (after Stop) the connection-wide engine options fail and keep their value.
TEST_F(ConfigEffectTest, EngineOptionsFailOnAStoppedConnection)
{
    IZynMediaConnection* conn = nullptr;
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
    IGlobalConfig* global = conn->GetGlobalConfig();
    ASSERT_EQ(ZYN_S_OK, global->SetQoSMinBandwidth(128000));
    conn->Stop();
    mstest::OnMain();
    EXPECT_EQ(ZYN_E_WRONGSTATE, global->SetQoSMinBandwidth(256000));
    EXPECT_EQ(128000u, global->GetQoSMinBandwidth());
    conn->Release();
}

// Every setter of the video and share configurations, read back from the line's capture track.
// Each row sets the value for 1 before the call and for 2 after it started; a guarded row is refused
// the second time and the first value stays on the track.
TEST_F(ConfigEffectTest, EveryVideoAndShareSettingReachesTheCaptureTrack)
{
    using Set = std::function<ZynResult(RealConnection&, int)>;
    using Expect = std::function<std::string(int)>;
    auto on = Expect([](int v) { return std::string(v == 1 ? "1" : "0"); });
    auto times = [](int scale) { return Expect([scale](int v) { return std::to_string(v * scale); }); };
    auto video = [](auto set) {
        return Set([set](RealConnection& c, int v) { return set(c.Camera(), v); });
    };
    auto share = [](auto set) {
        return Set([set](RealConnection& c, int v) { return set(c.Share(), v); });
    };
    struct Row {
        const char* name;
        unsigned long mid;
        Set set;
        const char* option;
        Expect expect;
        bool guarded;
    };
    const Row rows[] = {
        {"MaxPacketSize", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetMaxPacketSize(600u * v); }),
         "VIDEO_max_packet_size", times(600), true},
        {"PacketizationMode", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetPacketizationMode(static_cast<ZynPacketizationMode>(v - 1)); }),
         "VIDEO_packetization_mode", [](int v) { return std::to_string(v - 1); }, true},
        {"EncodeParams", kVideoMid,
         video([](IVideoConfig& x, int v) {
             return x.SetEncodeParams(ZynCodecType_AVC, ZynVideoCodecParams{0x42e01f, 1000u * v, 0, 0, 0, 0});
         }),
         "VIDEO_encode_capability",
         [](int v) {
             return R"({"codec":{"max-br":0,"max-fps":0,"max-fs":0,"max-mbps":)" + std::to_string(1000 * v) +
                    R"(,"uProfileLevelID":4382751}})";
         },
         true},
        {"MultiCamParam", kVideoMid,
         video([](IVideoConfig& x, int v) {
             const std::string text = R"({"cameras":)" + std::to_string(v) + "}";
             return x.SetMultiCamParam(text.c_str(), static_cast<unsigned>(text.size()));
         }),
         "VIDEO_multicam_param", [](int v) { return R"({"cameras":)" + std::to_string(v) + "}"; }, false},
        {"HWAcceleration", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.EnableHWAcceleration(v == 1, ZynHWAcceleration_Both); }),
         "VIDEO_hw_decoder", on, false},
        {"DataDumpFlag", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetDataDumpFlag(3u * v); }),
         "VIDEO_data_dump_flag", times(3), false},
        {"DataDumpPath", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetDataDumpPath(v == 1 ? "/tmp/a" : "/tmp/bb", 100); }),
         "VIDEO_data_dump_path", [](int v) { return std::string(v == 1 ? "/tmp/a" : "/tmp/bb"); }, false},
        {"LimitNalSize", kVideoMid, video([](IVideoConfig& x, int v) { return x.LimitNalSize(v == 1); }),
         "VIDEO_limit_nal_size", on, false},
        {"MaxNalSize", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetMaxNalSize(500u * v); }),
         "VIDEO_max_nal_size", times(500), false},
        {"PeriodIDR", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnablePeriodIDR(v == 1); }),
         "VIDEO_period_idr", on, false},
        {"CVO", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnableCVO(v == 1); }), "VIDEO_cvo", on, false},
        {"UpdateCapParam", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnableUpdateCapParam(v == 1); }),
         "VIDEO_update_cap_param", on, false},
        {"SelfPreviewMirror", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.EnableSelfPreviewHorizontalMirror(v == 1); }),
         "VIDEO_self_preview_mirror", on, false},
        {"Disable90P", kVideoMid, video([](IVideoConfig& x, int v) { return x.Disable90PVideo(v == 1); }),
         "VIDEO_disable_90p", on, false},
        {"Enable1080P", kVideoMid, video([](IVideoConfig& x, int v) { return x.Enable1080PVideo(v == 1); }),
         "VIDEO_enable_1080p", on, false},
        {"SmoothPlay", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnableSmoothPlay(v == 1); }),
         "VIDEO_smooth_play", on, false},
        {"MinVideoBuffTime", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetMinVideoBuffTime(40u * v); }),
         "VIDEO_min_buffer_time", times(40), false},
        {"CHP", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnableCHP(v == 1); }), "VIDEO_chp", on, false},
        {"TemporalLayers", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetTemporalLayerNum(v + 1u); }),
         "VIDEO_temporal_layers", [](int v) { return std::to_string(v + 1); }, false},
        {"AV1EncoderSpeed", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetAV1EncoderSpeed(4u * v); }),
         "VIDEO_av1_encoder_speed", times(4), false},
        {"VideoMaxMBPS", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetVideoMaxMBPS(27600u * v); }),
         "VIDEO_max_mbps", times(27600), false},
        {"VideoRotate", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetVideoRotate(static_cast<ZynVideoRotation>(90 * v)); }),
         "VIDEO_rotation", times(90), false},
        {"AV1CodecParam", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetAV1CodecParam(8u * v, v - 1u); }),
         "VIDEO_av1_level_tier", [](int v) { return std::to_string(8 * v) + "," + std::to_string(v - 1); }, false},
        {"MaxEncodeResolution", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetMaxEncodeResolution(640u * v, 360u * v); }),
         "VIDEO_max_encode_resolution", [](int v) { return std::to_string(640 * v) + "x" + std::to_string(360 * v); },
         false},
        {"PLIFIR", kVideoMid, video([](IVideoConfig& x, int v) { return x.EnablePLIFIR(true, v == 1); }), "VIDEO_fir",
         on, false},
        {"VideoStrategy", kVideoMid, video([](IVideoConfig& x, int v) { return x.SetVideoStrategy(15, -v); }),
         "VIDEO_strategy_15", [](int v) { return std::to_string(-v); }, false},
        {"VideoProcessingStrategy", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetVideoProcessingStrategy(2, v); }), "VIDEO_processing_strategy_2",
         times(1), false},
        {"MaxCaptureQuality", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.SetMaxCaptureQuality(static_cast<ZynVideoQualityType>(v)); }),
         "VIDEO_max_capture_quality", times(1), false},
        {"AndroidExternalRender", kVideoMid,
         video([](IVideoConfig& x, int v) { return x.EnableAndroidCameraExternalRender(v == 1); }),
         "VIDEO_android_external_render", on, false},
        {"ScreenMaxCaptureFps", kShareMid, share([](IShareConfig& x, int v) { return x.SetScreenMaxCaptureFps(5 * v); }),
         "SHARE_max_capture_fps", times(5), false},
        {"DownSampleMinHeight", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetScreenCaptureDownSampleMinHeight(360 * v); }),
         "SHARE_downsample_min_height", times(360), false},
        {"DownSampleMaxHeight", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetScreenCaptureDownSampleMaxHeight(540 * v); }),
         "SHARE_downsample_max_height", times(540), false},
        {"CaptureMaxFS", kShareMid, share([](IShareConfig& x, int v) { return x.SetScreenCaptureMaxFS(3600 * v); }),
         "SHARE_capture_max_fs", times(3600), false},
        {"CaptureMode", kShareMid, share([](IShareConfig& x, int v) { return x.SetScreenCaptureMode(v); }),
         "SHARE_capture_mode", times(1), false},
        {"CaptureDownsample", kShareMid, share([](IShareConfig& x, int v) { return x.EnableCaptureDownsample(v == 1); }),
         "SHARE_capture_downsample", on, false},
        {"CodecMode", kShareMid, share([](IShareConfig& x, int v) { return x.SetScreenCodecMode(v); }),
         "SHARE_codec_mode", times(1), false},
        {"CapturerThreads", kShareMid, share([](IShareConfig& x, int v) { return x.SetCapturerThreadCount(2 * v); }),
         "SHARE_capturer_threads", times(2), false},
        {"OverVideoPipeline", kShareMid, share([](IShareConfig& x, int v) { return x.SharingOverVideoPipeline(v == 1); }),
         "SHARE_over_video_pipeline", on, false},
        {"DuplicateFrameCheck", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableCapturerDuplicateFrameCheck(v == 1); }),
         "SHARE_duplicate_frame_check", on, false},
        {"WindowBaseContent", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableCapturerWindowBaseContent(v == 1); }),
         "SHARE_window_base_content", on, false},
        {"ChangeAeroMode", kShareMid, share([](IShareConfig& x, int v) { return x.EnableChangeAeroMode(v == 1); }),
         "SHARE_change_aero_mode", on, false},
        {"ShareConfigOption", kShareMid, share([](IShareConfig& x, int v) { return x.SetShareConfigOption(7, v); }),
         "SHARE_option_7", times(1), false},
        {"HighFidelityTextToggle", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetHighFidelityTextShareToggle(v); }), "SHARE_hifi_text_toggle",
         times(1), false},
        {"HighFidelityText", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableHighFidelityTextShare(v == 1); }), "SHARE_hifi_text", on,
         false},
        {"UplinkResolution", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableChangeSharingResolutionForUplink(v == 1); }),
         "SHARE_uplink_resolution", on, false},
        {"MagExcludeWindows", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetMagCapturerMaxExcludeWindowCount(10 * v); }),
         "SHARE_mag_max_exclude_windows", times(10), false},
        {"SystemAnimation", kShareMid, share([](IShareConfig& x, int v) { return x.DisableSystemAnimation(v == 1); }),
         "SHARE_disable_system_animation", on, false},
        {"ExcludeMenuBar", kShareMid, share([](IShareConfig& x, int v) { return x.EnableExcludeMacMenuBar(v == 1); }),
         "SHARE_exclude_menu_bar", on, false},
        {"CatchMagException", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableCatchMagAPIException(v == 1); }),
         "SHARE_catch_mag_exception", on, false},
        {"IpcCapturer", kShareMid, share([](IShareConfig& x, int v) { return x.EnableIpcScreenCapturer(v == 1); }),
         "SHARE_ipc_capturer", on, false},
        {"VDIScreenLock", kShareMid, share([](IShareConfig& x, int v) { return x.SetVDIScreenLockStatus(v == 1); }),
         "SHARE_vdi_screen_locked", on, false},
        {"ContentType", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetShareContentType(static_cast<ZynShareContentType>(v)); }),
         "SHARE_content_type", times(1), false},
        {"AutoContentType", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableAutoContentTypeDetect(v == 1); }), "SHARE_auto_content_type",
         on, false},
        {"HighFps", kShareMid, share([](IShareConfig& x, int v) { return x.EnableHighFps(v == 1); }), "SHARE_high_fps",
         on, false},
        {"CaptureVideoContent", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableCaptureVideoContent(true, v == 1); }),
         "SHARE_capture_video_content_audio", on, false},
        {"Share4K", kShareMid, share([](IShareConfig& x, int v) { return x.Enable4KVideo(v == 1); }), "SHARE_enable_4k",
         on, false},
        {"RtxLongDelay", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableRTXLongDelayTolerantOptmization(v == 1); }),
         "SHARE_rtx_long_delay_tolerant", on, false},
        {"Retina", kShareMid, share([](IShareConfig& x, int v) { return x.DisableMacShareRetina(v == 1); }),
         "SHARE_disable_retina", on, false},
        {"HostLifecycle", kShareMid,
         share([](IShareConfig& x, int v) { return x.EnableUserControlWASHostLifecycle(v == 1); }),
         "SHARE_user_controls_host", on, false},
        {"StrictRegion", kShareMid, share([](IShareConfig& x, int v) { return x.SkipSharingStrictRegionCheck(v == 1); }),
         "SHARE_skip_strict_region_check", on, false},
        {"AV1NormalShare", kShareMid,
         share([](IShareConfig& x, int v) { return x.DisableAV1EncodeInNormalShare(v == 1); }),
         "SHARE_disable_av1_normal_share", on, false},
        {"Immersive", kShareMid, share([](IShareConfig& x, int v) { return x.EnableImmersiveSharing(v == 1); }),
         "SHARE_immersive", on, false},
        {"OnPremStarted", kShareMid, share([](IShareConfig& x, int v) { return x.SetOnPremStarted(v == 1); }),
         "SHARE_onprem_started", on, false},
        {"OnPremConfig", kShareMid,
         share([](IShareConfig& x, int v) { return x.SetOnPremConfig(v == 1 ? "s1" : "s2", "secret"); }),
         "SHARE_onprem_session", [](int v) { return std::string(v == 1 ? "s1" : "s2"); }, false},
    };
    RealConnection c;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ("(unset)", c.TrackOption(row.mid, row.option));
        EXPECT_EQ(ZYN_S_OK, row.set(c, 1));
        EXPECT_EQ(row.expect(1), c.TrackOption(row.mid, row.option));
    }
    c.Offer();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.guarded ? ZYN_E_FAIL : ZYN_S_OK, row.set(c, 2));
        EXPECT_EQ(row.expect(row.guarded ? 1 : 2), c.TrackOption(row.mid, row.option));
    }
}

// Values no setter takes, each refused with its code and nothing handed to the track.
TEST_F(ConfigEffectTest, BadVideoAndShareValuesAreRefused)
{
    RealConnection c;
    mstest::TraceCapture trace;
    IVideoConfig& v = c.Camera();
    IShareConfig& s = c.Share();
    const struct {
        const char* name;
        std::function<ZynResult()> set;
        ZynResult expect;
    } rows[] = {
        {"rotation 45", [&] { return v.SetVideoRotate(static_cast<ZynVideoRotation>(45)); }, ZYN_E_WRONGSTATE},
        {"strategy 16", [&] { return v.SetVideoStrategy(16, 1); }, ZYN_E_INVALIDARG},
        {"packetization 2", [&] { return v.SetPacketizationMode(static_cast<ZynPacketizationMode>(2)); },
         ZYN_E_INVALIDARG},
        {"audio codec limits", [&] { return v.SetDecodeParams(ZynCodecType_OPUS, {}); }, ZYN_E_INVALIDARG},
        {"HW config 0", [&] { return v.EnableHWAcceleration(true, static_cast<ZynHWAccelerationConfig>(0)); },
         ZYN_E_INVALIDARG},
        {"AV1 level 24", [&] { return v.SetAV1CodecParam(24, 0); }, ZYN_E_INVALIDARG},
        {"camera 4K", [&] { return v.Enable4KVideo(true); }, ZYN_E_NOTAVAILABLE},
        {"null dump path", [&] { return v.SetDataDumpPath(nullptr, 4); }, ZYN_E_INVALIDARG},
        {"negative fps", [&] { return s.SetScreenMaxCaptureFps(-1); }, ZYN_E_INVALIDARG},
        {"negative capture mode", [&] { return s.SetScreenCaptureMode(-2); }, ZYN_E_INVALIDARG},
        {"content type 3", [&] { return s.SetShareContentType(static_cast<ZynShareContentType>(3)); }, ZYN_E_INVALIDARG},
        {"null on-prem token", [&] { return s.SetOnPremConfig("id", nullptr); }, ZYN_E_INVALIDARG},
        {"multi-camera without a capturer", [&] { return v.EnableMCDevice(true, nullptr); }, ZYN_E_INVALIDARG},
        {"multi-camera param not an object", [&] { return v.SetMultiCamParam("[1]", 3); }, ZYN_E_INVALIDARG},
        {"multi-camera param missing", [&] { return v.SetMultiCamParam(nullptr, 3); }, ZYN_E_INVALIDARG},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expect, row.set());
    }
    EXPECT_TRUE(trace.Contains("CBaseVideoConfig::SetVideoRotate unsupported rotation = 45"));
    EXPECT_TRUE(trace.Contains("CVideoConfig::Enable4KVideo, Camera video DON'T support 4K"));
    for (const char* option : {"VIDEO_rotation", "VIDEO_strategy_16", "VIDEO_packetization_mode", "VIDEO_enable_4k",
                               "VIDEO_mc_device", "VIDEO_multicam_param"})
        EXPECT_EQ("(unset)", c.TrackOption(kVideoMid, option)) << option;
    EXPECT_EQ("(unset)", c.TrackOption(kShareMid, "SHARE_max_capture_fps"));
    // A multi-camera capturer must be a camera.
    for (ZynDeviceKind kind : {ZynDevice_Microphone, ZynDevice_Camera}) {
        IZynMediaDevice* devices[8] = {};
        uint32_t count = 8;
        ASSERT_EQ(ZYN_S_OK, c.impl->GetEngine()->GetDevices(kind, devices, count));
        ASSERT_GT(count, 0u);
        const bool camera = kind == ZynDevice_Camera;
        EXPECT_EQ(camera ? ZYN_S_OK : ZYN_E_INVALIDARG, v.EnableMCDevice(true, devices[0])) << kind;
        EXPECT_EQ(camera ? devices[0]->GetDeviceName() : "(unset)", c.TrackOption(kVideoMid, "VIDEO_mc_device"));
        for (uint32_t i = 0; i < count && i < 8; ++i) devices[i]->Release();
    }
    EXPECT_FALSE(trace.Contains("secret")) << "the on-prem token stays out of the trace";
    ASSERT_EQ(ZYN_S_OK, s.SetOnPremConfig("id", "secret"));
    EXPECT_EQ("secret", c.TrackOption(kShareMid, "SHARE_onprem_token"));
    EXPECT_FALSE(trace.Contains("secret"));
}

// Decoding limits, the packetization mode and AV1 shape the video line's next offer.
TEST_F(ConfigEffectTest, VideoSettingsShapeTheNextOffer)
{
    RealConnection c;
    IVideoConfig& v = c.Camera();
    ASSERT_EQ(ZYN_S_OK, v.SetDecodeParams(ZynCodecType_AVC, ZynVideoCodecParams{0x42e01f, 108000, 3600, 0, 2500, 0}));
    ASSERT_EQ(ZYN_S_OK, v.SetPacketizationMode(ZynPacketizationMode_0));
    ASSERT_EQ(ZYN_S_OK, v.SetPreferedCodec(ZynCodecType_AVC));
    ZynVideoCodecParams back{};
    ASSERT_EQ(ZYN_S_OK, v.GetDecodeParams(ZynCodecType_AVC, back));
    EXPECT_EQ(108000u, back.uMaxMBPS);
    EXPECT_EQ(ZYN_E_NOTFOUND, v.GetEncodeParams(ZynCodecType_AVC, back));

    const sdp::session_group offer = c.Offer();
    ASSERT_GE(offer.sessions.size(), 2u);
    const std::vector<sdp::codec>& codecs = offer.sessions[1].rtp.get_data().codecs;
    // The first plain H.264 format: the mode the application chose goes before the other.
    auto h264 = std::find_if(codecs.begin(), codecs.end(), [](const sdp::codec& k) { return k.get_name() == "H264"; });
    ASSERT_NE(codecs.end(), h264);
    const std::string fmtp = h264->h264_param.get_data().as_parameter_string();
    EXPECT_NE(std::string::npos, fmtp.find("packetization-mode=0")) << fmtp;
    EXPECT_NE(std::string::npos, fmtp.find("max-mbps=108000")) << fmtp;
    EXPECT_NE(std::string::npos, fmtp.find("max-fs=3600")) << fmtp;
    for (const sdp::codec& k : codecs) EXPECT_NE("AV1", k.get_name()) << "AV1 is off until turned on";

    // Guarded once the call started; the offer keeps what was set.
    EXPECT_EQ(ZYN_E_FAIL, v.SetDecodeParams(ZynCodecType_AVC, ZynVideoCodecParams{0x42e01f, 1, 1, 0, 1, 0}));
    EXPECT_EQ(ZYN_E_FAIL, v.SetPacketizationMode(ZynPacketizationMode_1));
    ASSERT_EQ(ZYN_S_OK, v.GetDecodeParams(ZynCodecType_AVC, back));
    EXPECT_EQ(108000u, back.uMaxMBPS);
    EXPECT_EQ(ZynPacketizationMode_0, v.GetPacketizationMode());
}

}  // namespace

// One call sets both directions: the offer carries the limits, and what the line sends keeps to them.
TEST_F(ConfigEffectTest, CodecParamSetsBothDirections)
{
    RealConnection c;
    IVideoConfig& v = c.Camera();
    ZynVideoCodecParams back{};
    EXPECT_EQ(ZYN_E_NOTFOUND, v.GetCodecParam(ZynCodecType_AVC, back));
    ASSERT_EQ(ZYN_S_OK, v.SetCodecParam(ZynCodecType_AVC, ZynVideoCodecParams{0x42e01f, 40500, 1620, 0, 0, 0}));
    for (const char* option : {"VIDEO_decode_capability", "VIDEO_encode_capability"})
        EXPECT_NE(std::string::npos, c.TrackOption(kVideoMid, option).find("\"max-fs\":1620")) << option;
    ASSERT_EQ(ZYN_S_OK, v.GetCodecParam(ZynCodecType_AVC, back));
    EXPECT_EQ(40500u, back.uMaxMBPS);
    ASSERT_EQ(ZYN_S_OK, v.SetPreferedCodec(ZynCodecType_AVC));
    const sdp::session_group offer = c.Offer();
    bool carried = false;
    for (const sdp::codec& k : offer.sessions[1].rtp.get_data().codecs)
        if (k.get_name() == "H264")
            carried |= k.h264_param.get_data().as_parameter_string().find("max-fs=1620") != std::string::npos;
    EXPECT_TRUE(carried);
    EXPECT_EQ(ZYN_E_FAIL, v.SetCodecParam(ZynCodecType_AVC, ZynVideoCodecParams{0x42e01f, 1, 1, 0, 0, 0}));
    EXPECT_EQ(ZYN_E_INVALIDARG, v.SetCodecParam(ZynCodecType_OPUS, {}));
}
