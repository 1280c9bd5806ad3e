// Application codec records to SDP codecs, and the trace text of the records.
#include <cstdio>
#include <cstring>
#include <functional>

#include <gtest/gtest.h>

#include "config/CodecConversion.h"
#include "util/CmJson.h"

using namespace zyn;

namespace {

_tagCodecParam Record(ZynCodecType type, uint8_t payload, const char* name = "")
{
    _tagCodecParam r{};
    r.type = type;
    r.payload = payload;
    std::snprintf(r.name, sizeof(r.name), "%s", name);
    return r;
}

TEST(ConvertCodecs, EachKnownTypeGivesItsSdpCodec)
{
    struct Row {
        ZynCodecType type;
        sdp::codec_type expected;
        std::function<bool(const sdp::codec&)> check;
    };
    auto any = [](const sdp::codec&) { return true; };
    const Row rows[] = {
        {ZynCodecType_PCMU, sdp::codec_pcmu, any},
        {ZynCodecType_PCMA, sdp::codec_pcma, any},
        {ZynCodecType_ILBC, sdp::codec_ilbc, any},
        {ZynCodecType_G722, sdp::codec_g722, any},
        {ZynCodecType_CN, sdp::codec_cn, any},
        {ZynCodecType_OPUS, sdp::codec_opus,
         [](const sdp::codec& c) { return c.opus_param.get_data() == sdp::opus_codec_param(0, 0, false); }},
        {ZynCodecType_G729, sdp::codec_g729, [](const sdp::codec& c) { return c.g729_param.get_data().annexb; }},
        {ZynCodecType_G7221_24K, sdp::codec_g7221, [](const sdp::codec& c) { return c.g7221_param.get_data().bitrate == 24000; }},
        {ZynCodecType_G7221_32K, sdp::codec_g7221, [](const sdp::codec& c) { return c.g7221_param.get_data().bitrate == 32000; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.type));
        _tagCodecParam r = Record(row.type, 96);
        std::vector<sdp::codec> codecs;
        std::vector<CCodecPt> pts;
        ConvertCodecs(&r, 1, codecs, pts);
        ASSERT_EQ(1u, codecs.size());
        EXPECT_EQ(row.expected, codecs[0].type);
        EXPECT_EQ(96u, codecs[0].payload_type);
        EXPECT_TRUE(row.check(codecs[0]));
        EXPECT_TRUE(pts.empty());
    }
}

TEST(ConvertCodecs, VideoTakesItsCapabilityFromTheRecord)
{
    _tagCodecParam records[3] = {Record(ZynCodecType_AVC, 97), Record(ZynCodecType_SVC, 98), Record(ZynCodecType_AV1, 99)};
    for (auto& r : records) r.cap = _tagCodecCapability{0x42e01f, 108000, 3600, 3000, 1500000, 0, 1, 0, 8};
    records[0].packetization = 1;
    std::vector<sdp::codec> codecs;
    std::vector<CCodecPt> pts;
    ConvertCodecs(records, 3, codecs, pts);
    ASSERT_EQ(3u, codecs.size());

    const sdp::h264_codec_param& avc = codecs[0].h264_param.get_data();
    EXPECT_EQ(sdp::h264_profile_constrained_baseline, avc.profile);
    EXPECT_EQ(sdp::h264_level_3_1, avc.level);
    EXPECT_EQ(sdp::h264_packetization_mode_1, avc.packetization_mode);
    EXPECT_EQ(108000u, avc.max_mbps);
    EXPECT_EQ(3600u, avc.max_fs);
    EXPECT_EQ(1500000u, avc.max_br);

    const sdp::h264_svc_codec_param& svc = codecs[1].h264_svc_param.get_data();
    EXPECT_EQ(sdp::h264_packetization_mode_0, svc.packetization_mode);
    EXPECT_EQ(sdp::h264_svc_mst_i_c, svc.transmission_mode);
    EXPECT_EQ(sdp::h264_svc_uc_1, svc.uc_config_mode);

    const sdp::av1_codec_param& av1 = codecs[2].av1_param.get_data();
    EXPECT_EQ(0, av1.profile);
    EXPECT_EQ(8, av1.level_idx);
    EXPECT_EQ(1, av1.tier);
}

TEST(ConvertCodecs, PayloadOnlyTypesGoToTheLineWithTheirClock)
{
    _tagCodecParam records[3] = {Record(ZynCodecType_DTMF, 101), Record(ZynCodecType_FEC, 111), Record(ZynCodecType_RTX, 112)};
    records[0].clock_rate = 8000;
    records[1].clock_rate = 8000;
    records[2].clock_rate = 90000;
    std::vector<sdp::codec> codecs;
    std::vector<CCodecPt> pts;
    ConvertCodecs(records, 3, codecs, pts);
    EXPECT_TRUE(codecs.empty());
    const std::vector<CCodecPt> expected = {
        {ZynCodecType_DTMF, 101, 8000}, {ZynCodecType_FEC, 111, 8000}, {ZynCodecType_RTX, 112, 90000}};
    EXPECT_EQ(expected, pts);
}

TEST(ConvertCodecs, UnknownOrUnusableRecordsAreDroppedAndTheRestKeepTheirOrder)
{
    _tagCodecParam bad = Record(ZynCodecType_AV1, 99);
    bad.cap.level = 30;  // AV1 has no such level
    _tagCodecParam records[] = {
        Record(ZynCodecType_G722, 9),
        Record(static_cast<ZynCodecType>(127), 10),
        Record(static_cast<ZynCodecType>(200), 11),
        Record(static_cast<ZynCodecType>(11), 12),
        Record(static_cast<ZynCodecType>(-1), 13),
        Record(ZynCodecType_Unknown, 14, "speex"),
        bad,
        Record(ZynCodecType_PCMA, 8),
    };
    std::vector<sdp::codec> codecs;
    std::vector<CCodecPt> pts;
    ConvertCodecs(records, std::size(records), codecs, pts);
    ASSERT_EQ(2u, codecs.size());
    EXPECT_EQ(9u, codecs[0].payload_type);
    EXPECT_EQ(8u, codecs[1].payload_type);
    EXPECT_TRUE(pts.empty());
    EXPECT_EQ(ZynCodecType_Unknown, records[5].type);
    ConvertCodecs(nullptr, 4, codecs, pts);
    EXPECT_EQ(2u, codecs.size());
}

TEST(ConvertCodecs, NamesResolveWithoutRegardToCase)
{
    const std::pair<const char*, ZynCodecType> rows[] = {
        {"OPUS", ZynCodecType_OPUS},         {"h264", ZynCodecType_AVC},       {"H264-SVC", ZynCodecType_SVC},
        {"g7221-32", ZynCodecType_G7221_32K}, {"telephone-event", ZynCodecType_DTMF}, {"nothing", ZynCodecType_Unknown},
    };
    for (const auto& [name, type] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(type, ConvCodecType(name));
        _tagCodecParam r = Record(ZynCodecType_Unknown, 100, name);
        std::vector<sdp::codec> codecs;
        std::vector<CCodecPt> pts;
        ConvertCodecs(&r, 1, codecs, pts);
        EXPECT_EQ(type, r.type);
        if (type != ZynCodecType_Unknown) {
            EXPECT_EQ(type, ConvCodecType(ConvCodecTypeToString(type)));
        }
    }
    EXPECT_EQ(ZynCodecType_Unknown, ConvCodecType(nullptr));
}

TEST(CodecParamsToJson, FieldsInRecordOrderAndNamesEscapedAndBounded)
{
    _tagCodecParam records[2] = {Record(ZynCodecType_AVC, 97, "H\"264"), Record(ZynCodecType_PCMU, 0)};
    records[0].cap.profile_id = 0x42e01f;
    std::memset(records[1].name, 'a', sizeof(records[1].name));  // no terminator at all
    const std::string text = CodecParamsToJson(records, 2);
    EXPECT_EQ(0u, text.find("{\"codecs\":[{\"type\":100,\"name\":\"H\\\"264\",\"payload\":97,\"clock_rate\":0,"
                            "\"channels\":0,\"vad\":false,\"cap.profile_id\":4382751,\"cap.mbps\":0,"));
    const json::Value parsed = json::Deserialize(text);
    ASSERT_TRUE(parsed.is_object());
    ASSERT_EQ(2u, parsed["codecs"].size());
    EXPECT_EQ(256u, parsed["codecs"][1]["name"].get<std::string>().size());
    EXPECT_EQ(0u, parsed["codecs"][1]["cap.level"].get<unsigned>());
    EXPECT_EQ("{\"codecs\":[]}", CodecParamsToJson(nullptr, 3));
}

}  // namespace
