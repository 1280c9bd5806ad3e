// Codecs: name and clock tables, format parameter classes, compatibility and defaults.
#include <sstream>

#include "sdp/sdp.h"
#include "test_util.h"

using namespace sdp;
using sdp_test::attr;
using sdp_test::invalid_argument_text;

namespace {

codec make(const std::string& rtpmap, const std::string& fmtp = "")
{
    rtp_map map(attr(rtpmap));
    return fmtp.empty() ? codec(map) : codec(map, format_parameters(attr(fmtp)));
}

TEST(CodecType, Tables)
{
    struct Row {
        codec_type type;
        const char* name;
        uint32_t clock;
    } rows[] = {
        {codec_mp4a_latm, "MP4A-LATM", 90000}, {codec_g722, "G722", 8000},    {codec_g729, "G729", 8000},
        {codec_pcma, "PCMA", 8000},            {codec_pcmu, "PCMU", 8000},    {codec_opus, "opus", 48000},
        {codec_ilbc, "iLBC", 8000},            {codec_vp8, "VP8", 90000},     {codec_h264, "H264", 90000},
        {codec_h264_svc, "H264-SVC", 90000},   {codec_x_ulpfecuc, "x-ulpfecuc", 8000},
        {codec_sobe_rtx, "sobe-rtx", 90000},   {codec_telephone_event, "telephone-event", 8000},
        {codec_cn, "CN", 8000},                {codec_av1, "AV1", 90000},     {codec_g7221, "G7221", 16000},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(codec_type_to_rtp_map_string(r.type), r.name);
        EXPECT_EQ(rtp_map_string_to_codec_type(r.name), r.type);
        EXPECT_EQ(get_rtp_clock_rate_for_codec_type(r.type), r.clock);
    }
    EXPECT_EQ(codec_type_to_rtp_map_string(codec_invalid), "invalid-codec");
    EXPECT_EQ(codec_type_to_rtp_map_string(static_cast<codec_type>(17)), "unknown-codec");
    EXPECT_EQ(rtp_map_string_to_codec_type("h264"), codec_invalid);  // case-sensitive
    EXPECT_EQ(get_rtp_clock_rate_for_codec_type(static_cast<codec_type>(17)), 0u);
    EXPECT_EQ(standard_rtp_payload_type_to_codec_type(0), codec_pcmu);
    EXPECT_EQ(standard_rtp_payload_type_to_codec_type(8), codec_pcma);
    EXPECT_EQ(standard_rtp_payload_type_to_codec_type(9), codec_g722);
    EXPECT_EQ(standard_rtp_payload_type_to_codec_type(18), codec_g729);
    EXPECT_EQ(standard_rtp_payload_type_to_codec_type(3), codec_invalid);
}

TEST(Codec, ConstructionFailures)
{
    struct Case {
        std::function<void()> fn;
        const char* error;
    } cases[] = {
        {[] { codec(96, codec_h264); }, "attempt to construct a codec (H264) that requires codec specific parameters"},
        {[] { codec(96, codec_invalid); }, "attempt to construct a codec with invalid codec type"},
        {[] { codec(96, static_cast<codec_type>(17)); }, "attempt to construct a codec with invalid codec type"},
        {[] { make("a=rtpmap:96 VP9/90000"); }, "invalid codec name found in rtp-map attribute a=rtpmap:96 VP9/90000\r\n"},
        {[] { make("a=rtpmap:96 VP8/8000"); }, "invalid RTP clock rate found for codec VP8 expecting 90000 found 8000"},
        {[] { make("a=rtpmap:98 sobe-rtx/90000", "a=fmtp:98 rtx-time=100"); }, "'RTX_ORDER' not found in 'rtx-time=100'"},
        {[] { make("a=rtpmap:98 sobe-rtx/90000"); }, "'RTX_ORDER' not found in ''"},
        {[] { make("a=rtpmap:x PCMU/8000"); }, "invalid non-numeric value found in rtp map payload type (x)"},
        {[] { make("a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=58001e"); }, "invalid h264 profile level id '58001e'"},
        {[] { make("a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=42001b"); }, "invalid h264 profile level id '42001b'"},
        {[] { make("a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=zz"); }, "invalid h264 profile level id 'zz'"},
        {[] { make("a=rtpmap:96 H264/90000", "a=fmtp:96 packetization-mode=3"); }, "invalid h264 packetization mode '3'"},
        {[] { make("a=rtpmap:96 H264/90000", "a=fmtp:96 max-mbps=x"); }, "invalid non-numeric value found in h264 max mbps (x)"},
        {[] { make("a=rtpmap:96 H264-SVC/90000", "a=fmtp:96 mst-mode=X"); }, "invalid h264-svc mst mode 'X'"},
        {[] { make("a=rtpmap:96 H264-SVC/90000", "a=fmtp:96 uc-mode=9"); }, "invalid h264-svc uc config mode '9'"},
        {[] { make("a=rtpmap:96 AV1/90000", "a=fmtp:96 profile=3"); }, "invalid av1 profile '3'"},
        {[] { make("a=rtpmap:96 AV1/90000", "a=fmtp:96 level_idx=24"); }, "invalid av1 level '24'"},
        {[] { make("a=rtpmap:96 AV1/90000", "a=fmtp:96 tier=x"); }, "invalid av1 tier 'x'"},
        {[] { make("a=rtpmap:96 MP4A-LATM/90000", "a=fmtp:96 profile-level-id=48"); }, "invalid mpeg4 audio profile level id '48'"},
        {[] { make("a=rtpmap:96 MP4A-LATM/90000", "a=fmtp:96 object=3"); }, "invalid mpeg4 audio object type '3'"},
    };
    for (const auto& c : cases) EXPECT_EQ(invalid_argument_text(c.fn), c.error);
    // The FEC payload is announced with the clock of its stream, so any rate is accepted.
    EXPECT_EQ(make("a=rtpmap:97 x-ulpfecuc/90000").type, codec_x_ulpfecuc);
}

TEST(H264, ProfileLevelIdTable)
{
    struct Case {
        const char* id;
        h264_profile profile;
        h264_level level;
        const char* printed;
    } cases[] = {
        {"42E01E", h264_profile_constrained_baseline, h264_level_3, "42401e"},
        {"42001E", h264_profile_baseline, h264_level_3, "42001e"},
        {"4d001f", h264_profile_main, h264_level_3_1, "4d001f"},
        {"640C1F", h264_profile_constrained_high, h264_level_3_1, "640c1f"},
        {"64081F", h264_profile_high, h264_level_3_1, "64001f"},
        {"42100B", h264_profile_baseline, h264_level_1b, "42100b"},
        {"42000B", h264_profile_baseline, h264_level_1_1, "42000b"},
        {"420034", h264_profile_baseline, h264_level_5_2, "420034"},
    };
    for (const auto& c : cases) {
        h264_codec_param p(std::string("profile-level-id=") + c.id);
        EXPECT_EQ(p.profile, c.profile) << c.id;
        EXPECT_EQ(p.level, c.level) << c.id;
        EXPECT_EQ(get_h264_profile_level_id_string(p.profile, p.level), c.printed) << c.id;
    }
    EXPECT_EQ(get_h264_profile_level_id_string(h264_profile_baseline, h264_level_3), "42001e");
}

TEST(H264, LevelLimitsFillWhatWasNotGiven)
{
    struct Case {
        h264_level level;
        h264_level_limits limits;
    } cases[] = {
        {h264_level_1, {1485, 99, 3000, 64, 148}},          {h264_level_1b, {1485, 99, 3000, 128, 148}},
        {h264_level_2_2, {20250, 1620, 3000, 4000, 3037}},  {h264_level_3_1, {108000, 3600, 3000, 14000, 6750}},
        {h264_level_4, {245760, 8192, 3000, 20000, 12288}}, {h264_level_4_2, {522240, 8704, 3000, 50000, 13056}},
        {h264_level_5_2, {2073600, 36864, 3000, 240000, 69120}},
    };
    for (const auto& c : cases) {
        h264_codec_param p(h264_profile_main, c.level, h264_packetization_mode_1);
        EXPECT_EQ(p.max_mbps, c.limits.max_mbps) << c.level;
        EXPECT_EQ(p.max_fs, c.limits.max_fs) << c.level;
        EXPECT_EQ(p.max_fps, c.limits.max_fps) << c.level;
        EXPECT_EQ(p.max_br, c.limits.max_br) << c.level;
        EXPECT_EQ(p.max_dpb, c.limits.max_dpb) << c.level;
    }
    // Given values win over the table.
    h264_codec_param given("profile-level-id=42e01f;max-fs=8160;max-mbps=244800");
    EXPECT_EQ(given.max_fs, 8160u);
    EXPECT_EQ(given.max_mbps, 244800u);
    EXPECT_EQ(given.max_br, 14000u);
}

TEST(H264, DefaultsPrintFormAndLostAsymmetryFlag)
{
    auto c = make("a=rtpmap:96 H264/90000");
    const auto& p = c.h264_param.get_data();
    EXPECT_EQ(p.profile, h264_profile_baseline);
    EXPECT_EQ(p.level, h264_level_1);
    EXPECT_EQ(p.packetization_mode, h264_packetization_mode_0);
    EXPECT_EQ(p.as_parameter_string(),
              "profile-level-id=42000a;packetization-mode=0;max-mbps=1485;max-fs=99;max-fps=3000;max-br=64;max-dpb=148");

    h264_codec_param typed(h264_profile_high, h264_level_4, h264_packetization_mode_1, 0, 0, 0, 0, 0, true);
    auto text = typed.as_parameter_string();
    EXPECT_NE(text.find(";level-asymmetry-allowed=1"), std::string::npos);
    EXPECT_FALSE(h264_codec_param(text).level_asymmetry_allowed);
    EXPECT_EQ(h264_codec_param(text).as_parameter_string() + ";level-asymmetry-allowed=1", text);
}

TEST(Codec, Compatibility)
{
    struct Case {
        const char* map_a;
        const char* fmtp_a;
        const char* map_b;
        const char* fmtp_b;
        bool compatible;
    } cases[] = {
        {"a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=42E01E", "a=rtpmap:97 H264/90000", "a=fmtp:97 profile-level-id=42001E", true},
        {"a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=42E01E", "a=rtpmap:97 H264/90000", "a=fmtp:97 profile-level-id=640C1F", false},
        {"a=rtpmap:96 H264/90000", "a=fmtp:96 profile-level-id=640C1F", "a=rtpmap:97 H264/90000", "a=fmtp:97 profile-level-id=640C34", true},
        {"a=rtpmap:96 H264/90000", "a=fmtp:96 packetization-mode=1", "a=rtpmap:97 H264/90000", "a=fmtp:97 packetization-mode=0", false},
        {"a=rtpmap:96 H264-SVC/90000", "a=fmtp:96 mst-mode=NI-TC", "a=rtpmap:97 H264-SVC/90000", "a=fmtp:97 mst-mode=NI-T", true},
        {"a=rtpmap:96 H264-SVC/90000", "a=fmtp:96 mst-mode=NI-T", "a=rtpmap:97 H264-SVC/90000", "a=fmtp:97 mst-mode=NI-C", false},
        {"a=rtpmap:96 AV1/90000", "a=fmtp:96 profile=0", "a=rtpmap:97 AV1/90000", "a=fmtp:97 profile=1", true},
        {"a=rtpmap:96 AV1/90000", "a=fmtp:96 profile=2", "a=rtpmap:97 AV1/90000", "a=fmtp:97 profile=1", false},
        {"a=rtpmap:96 G7221/16000", "a=fmtp:96 bitrate=32000", "a=rtpmap:97 G7221/16000", "a=fmtp:97 bitrate=24000", false},
        {"a=rtpmap:96 opus/48000/2", "a=fmtp:96 stereo=1", "a=rtpmap:97 opus/48000/2", "", true},
        {"a=rtpmap:96 x-ulpfecuc/8000", "a=fmtp:96 m=8;non_seq=2", "a=rtpmap:97 x-ulpfecuc/8000", "a=fmtp:97 m=8;non_seq=1", true},
        {"a=rtpmap:96 x-ulpfecuc/8000", "a=fmtp:96 m=8;non_seq=1", "a=rtpmap:97 x-ulpfecuc/8000", "a=fmtp:97 m=8;non_seq=2", false},
        {"a=rtpmap:96 sobe-rtx/90000", "a=fmtp:96 RTX_ORDER=A", "a=rtpmap:97 sobe-rtx/90000", "a=fmtp:97 RTX_ORDER=B", false},
        {"a=rtpmap:96 VP8/90000", "", "a=rtpmap:97 VP8/90000", "", true},
        {"a=rtpmap:96 VP8/90000", "", "a=rtpmap:97 H264/90000", "", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(make(c.map_a, c.fmtp_a).is_compatible_with(make(c.map_b, c.fmtp_b)), c.compatible)
            << c.fmtp_a << " vs " << c.fmtp_b;
    }
    codec svc_offer = make("a=rtpmap:96 H264-SVC/90000", "a=fmtp:96 mst-mode=NI-T");
    codec missing_param = svc_offer;
    missing_param.h264_svc_param.clear();
    EXPECT_FALSE(svc_offer.is_compatible_with(missing_param));
    EXPECT_TRUE(is_h264_svc_uc_config_mode_compatible(h264_svc_uc_2s, h264_svc_uc_1));
    EXPECT_FALSE(is_h264_svc_uc_config_mode_compatible(h264_svc_uc_2s, h264_svc_uc_2q));
}

TEST(Av1, LevelDefaultsAndGaps)
{
    struct Case {
        const char* fmtp;
        uint32_t h, v, bitrate, decode_rate, pic_size;
        const char* printed;
    } cases[] = {
        {"", 2048, 1152, 1500000, 5529600, 147456, "profile=0;level_idx=0"},
        {"level_idx=8;tier=1", 6144, 3456, 30000000, 77856768, 2359296, "profile=0;level_idx=8;tier=1"},
        {"profile=1;level_idx=12;tier=0", 8192, 4352, 30000000, 273715200, 8912896, "profile=1;level_idx=12"},
        {"level_idx=19", 16384, 8704, 160000000, 4294967295u, 35651584, "profile=0;level_idx=19"},
    };
    for (const auto& c : cases) {
        av1_codec_param p{std::string(c.fmtp)};
        EXPECT_EQ(p.max_h_size, c.h) << c.fmtp;
        EXPECT_EQ(p.max_v_size, c.v) << c.fmtp;
        EXPECT_EQ(p.max_bitrate, c.bitrate) << c.fmtp;
        EXPECT_EQ(p.max_decode_rate, c.decode_rate) << c.fmtp;
        EXPECT_EQ(p.max_pic_size, c.pic_size) << c.fmtp;
        EXPECT_EQ(p.as_parameter_string(), c.printed);
    }
    // Valid by the map of levels but missing from the defaults table: the map's own error.
    for (const char* gap : {"level_idx=2", "level_idx=7", "level_idx=23"}) {
        try {
            av1_codec_param p{std::string(gap)};
            ADD_FAILURE() << gap;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "map::at");
        }
    }
    av1_codec_param p("level_idx=9");
    EXPECT_EQ(p.get_MaxKbps(), 20000u);
    EXPECT_EQ(p.get_MaxDecodeRate(), 155713536u);
}

TEST(Av1, ApplyRid)
{
    codec c(45, av1_codec_param("level_idx=8"));
    rid r(attr("a=rid:1 send pt=45;max-width=1280;max-height=720;max-br=900000;max-fs=3600;max-pps=1000;x=1"));
    EXPECT_TRUE(c.apply(r));
    const auto& p = c.av1_param.get_data();
    EXPECT_EQ(p.max_h_size, 1280u);
    EXPECT_EQ(p.max_v_size, 720u);
    EXPECT_EQ(p.max_bitrate, 900000u);
    EXPECT_EQ(p.max_pic_size, 3600u);
    EXPECT_EQ(p.max_decode_rate, 1000u);

    codec other_pt(46, av1_codec_param());
    EXPECT_FALSE(other_pt.apply(r));
    EXPECT_EQ(other_pt.av1_param.get_data(), av1_codec_param());
    codec vp8(96, codec_vp8);
    EXPECT_FALSE(vp8.apply(r));
}

TEST(CodecParams, ParameterStrings)
{
    struct Case {
        const char* rtpmap;
        const char* fmtp;
        const char* printed;
    } cases[] = {
        {"a=rtpmap:111 opus/48000/2", "a=fmtp:111 minptime=10;stereo=1", "maxplaybackrate=48000;maxaveragebitrate=64000;stereo=1"},
        {"a=rtpmap:111 opus/48000/2", "a=fmtp:111 maxplaybackrate=16000;maxaveragebitrate=20000", "maxplaybackrate=16000;maxaveragebitrate=20000;stereo=0"},
        {"a=rtpmap:18 G729/8000", "a=fmtp:18 annexb=no", "annexb=no"},
        {"a=rtpmap:18 G729/8000", "", "annexb=yes"},
        {"a=rtpmap:18 G729/8000", "a=fmtp:18 annexb=maybe", "annexb=yes"},
        {"a=rtpmap:102 G7221/16000", "", "bitrate=24000"},
        {"a=rtpmap:101 telephone-event/8000", "a=fmtp:101 0-15,66", "0-15,66"},
        {"a=rtpmap:97 x-ulpfecuc/8000", "a=fmtp:97 m=4;feedback=1,2", "max_esel=1400;max_n=16;m=4;multi_ssrc=0;FEC_ORDER=SRTP_FEC;non_seq=0;feedback=1,2"},
        {"a=rtpmap:98 sobe-rtx/90000", "a=fmtp:98 rtx-time=200;RTX_ORDER=RTX_SRTP", "RTX_ORDER=RTX_SRTP;rtx-time=200"},
        {"a=rtpmap:99 MP4A-LATM/90000", "a=fmtp:99 bitrate=64000;profile-level-id=24;object=2", "bitrate=64000;profile-level-id=24;object=2"},
        {"a=rtpmap:100 H264-SVC/90000", "a=fmtp:100 profile-level-id=42e01f;mst-mode=NI-TC;uc-mode=2q",
         "profile-level-id=42401f;packetization-mode=0;max-mbps=108000;max-fs=3600;max-fps=3000;max-br=14000;max-dpb=6750;mst-mode=NI-TC;uc-mode=2q"},
    };
    for (const auto& c : cases) EXPECT_EQ(make(c.rtpmap, c.fmtp).get_parameter_string(), c.printed) << c.fmtp;

    EXPECT_EQ(mpeg4_audio_profile_level_index(0, 0), 0);
    EXPECT_EQ(mpeg4_audio_profile_level_index(2, 4), 8);
    EXPECT_EQ(mpeg4_audio_profile_level_index(9, 3), -1);
    EXPECT_EQ(mpeg4_audio_profile_level_index(10, 5), 47);
    EXPECT_EQ(mpeg4_audio_codec_param(0, 9, 3).as_parameter_string(), "");
    unsigned last = 15;
    EXPECT_EQ(telephone_event_codec_param::create_telephone_event_range(0, &last), "0-15");
    EXPECT_EQ(telephone_event_codec_param::create_telephone_event_range(16, nullptr), "16");
}

TEST(Codec, PopulateMediaDescription)
{
    media_description m(media_description_line("audio", "5000", "RTP/AVP", {}));
    codec(111, opus_codec_param()).populate_media_description(m);
    codec(0, codec_pcmu).populate_media_description(m);
    EXPECT_EQ(m.as_sdp(), sdp_test::crlf({"m=audio 5000 RTP/AVP 111 0", "a=rtpmap:111 opus/48000/2",
                                          "a=fmtp:111 maxplaybackrate=48000;maxaveragebitrate=64000;stereo=0",
                                          "a=rtpmap:0 PCMU/8000"}));
    std::ostringstream os;
    os << codec(96, h264_codec_param()) << "|" << codec(8, codec_pcma);
    EXPECT_EQ(os.str(),
              "payload type = 96 codec = H264 h264 param = profile-level-id=42000a;packetization-mode=0;max-mbps=1485;"
              "max-fs=99;max-fps=3000;max-br=64;max-dpb=148|payload type = 8 codec = PCMA");
}

}  // namespace
