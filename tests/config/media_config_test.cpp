// The media line configuration through its public faces: defaults, the rule of what is legal once
// the call started, argument checks, and what the owner line is told.
#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "config/MediaConfigs.h"
#include "config_test_support.h"
#include "util/CmBase64.h"

using namespace zyn;
using cfgtest::FakeLine;
using cfgtest::TraceCapture;

namespace {

template <class... T>
std::string S(const T&... parts)
{
    std::ostringstream os;
    ((os << parts << '|'), ...);
    return os.str();
}

std::string FecOf(CBaseConfig& c, eStreamDirection d)
{
    ZynSobeFecInfo info{};
    c.GetFecInfo(info, d);
    return S(+info.uPayloadType, info.uClockRate, info.fecFmtInfo.uM);
}

std::string RtxOf(CBaseConfig& c, eStreamDirection d)
{
    ZynSobeRtxInfo info{};
    c.GetRtxInfo(info, d);
    return S(+info.uPayloadType, info.uBufferTime);
}

_tagCodecParam OpusByName()
{
    _tagCodecParam record{};
    std::snprintf(record.name, sizeof(record.name), "%s", "opus");
    record.payload = 101;
    record.clock_rate = 48000;
    record.channels = 2;
    return record;
}

struct SetterRow {
    const char* name;
    bool guarded;
    EMediaConfigItem item;
    std::function<ZynResult(IBaseConfig&)> set;
    std::function<std::string(CBaseConfig&)> read;
    // What the setter answers when the line refuses; 0: the line's own code.
    ZynResult refusedAs = 0;
};

const std::vector<SetterRow>& SetterRows()
{
    using I = EMediaConfigItem;
    static const std::vector<SetterRow> rows = {
        {"SetMaxBandwidth", true, I::MaxBandwidth, [](IBaseConfig& c) { return c.SetMaxBandwidth(2000); },
         [](CBaseConfig& c) { return S(c.GetMaxBandwidth()); }},
        {"SetPreferedCodec", true, I::PreferedCodec, [](IBaseConfig& c) { return c.SetPreferedCodec(ZynCodecType_OPUS); },
         [](CBaseConfig& c) { return S(c.GetPreferedCodec()); }},
        {"SetSelectedCodec", true, I::SelectedCodec, [](IBaseConfig& c) { return c.SetSelectedCodec(ZynCodecType_G722); },
         [](CBaseConfig& c) { return S(c.GetSelectedCodec()); }},
        {"OverrideMediaIPAddress", true, I::OverrideIP,
         [](IBaseConfig& c) { return c.OverrideMediaIPAddress("10.1.2.3", 5004); },
         [](CBaseConfig& c) { return S(c.GetOverrideAddress().ip, c.GetOverrideAddress().port); }},
        {"EnableFileCapture", true, I::FileCapture,
         [](IBaseConfig& c) { return c.EnableFileCapture("/tmp/in.wav", true, true); },
         [](CBaseConfig& c) { return S(c.GetFileCapture().path, c.GetFileCapture().loop, c.GetFileCapture().enabled); }},
        {"SetIceLocalPortRange", true, I::IceLocalPortRange,
         [](IBaseConfig& c) { return c.SetIceLocalPortRange(20000, 20099); },
         [](CBaseConfig& c) { return S(c.GetIceLocalPortRange().minPort, c.GetIceLocalPortRange().maxPort); }},
        {"SetInitBandwidth", false, I::InitBandwidth, [](IBaseConfig& c) { return c.SetInitBandwidth(300); },
         [](CBaseConfig& c) { return S(c.GetInitBandwidth()); }},
        {"EnableFileRender", false, I::FileRender, [](IBaseConfig& c) { return c.EnableFileRender("/tmp/o.wav", true); },
         [](CBaseConfig& c) { return S(c.GetFileRender().path, c.GetFileRender().enabled); }},
        {"SetIcePolicy", false, I::IcePolicy, [](IBaseConfig& c) { return c.SetIcePolicy(1); },
         [](CBaseConfig& c) { return S(c.GetIcePolicy()); }},
        {"SetConnectionPolicy", false, I::ConnectionPolicy, [](IBaseConfig& c) { return c.SetConnectionPolicy(2); },
         [](CBaseConfig& c) { return S(c.GetConnectionPolicy()); }, ZYN_E_FAIL},
        {"EnableFec", false, I::Fec, [](IBaseConfig& c) { return c.EnableFec(true); },
         [](CBaseConfig& c) { return S(c.IsFecEnabled()); }},
        {"EnableRtx", false, I::Rtx, [](IBaseConfig& c) { return c.EnableRtx(true); },
         [](CBaseConfig& c) { return S(c.IsRtxEnabled()); }},
        {"EnableTmmbr", false, I::Tmmbr, [](IBaseConfig& c) { return c.EnableTmmbr(true); },
         [](CBaseConfig& c) { return S(c.IsTmmbrEnabled()); }},
        {"ReceiverBasedQosSupported", false, I::ReceiverBasedQos,
         [](IBaseConfig& c) { return c.ReceiverBasedQosSupported(true); },
         [](CBaseConfig& c) { return S(c.IsReceiverBasedQosSupported()); }},
        {"EnableRecordLossData", false, I::RecordLossData, [](IBaseConfig& c) { return c.EnableRecordLossData(true); },
         [](CBaseConfig& c) { return S(c.IsRecordLossDataEnabled()); }},
        {"SetDataTerminatedAtRTP", false, I::DataTerminatedAtRTP,
         [](IBaseConfig& c) { return c.SetDataTerminatedAtRTP(true); },
         [](CBaseConfig& c) { return S(c.IsDataTerminatedAtRTP()); }},
        {"SetMaxFecOverhead", false, I::MaxFecOverhead, [](IBaseConfig& c) { return c.SetMaxFecOverhead(40); },
         [](CBaseConfig& c) { return S(c.GetMaxFecOverhead()); }},
        {"SetFecProbing", false, I::FecProbing, [](IBaseConfig& c) { return c.SetFecProbing(false); },
         [](CBaseConfig& c) { return S(c.IsFecProbingEnabled()); }},
        {"SetDynamicFecScheme", false, I::DynamicFecScheme,
         [](IBaseConfig& c) { return c.SetDynamicFecScheme(DynamicFECLevelScheme_LossRatioWithPriority); },
         [](CBaseConfig& c) { return S(c.GetDynamicFecScheme()); }},
        {"SetSrtpFecOrder", false, I::SrtpFecOrder,
         [](IBaseConfig& c) { return c.SetSrtpFecOrder(ZynSecurityFECOrder_SRTP_FEC); },
         [](CBaseConfig& c) { return S(c.GetSrtpFecOrder()); }},
        {"SetMaxStreamsCount", false, I::MaxStreamsCount, [](IBaseConfig& c) { return c.SetMaxStreamsCount(4); },
         [](CBaseConfig& c) { return S(c.GetMaxStreamsCount()); }},
        {"SetMaxBitrate", false, I::MaxBitrate, [](IBaseConfig& c) { return c.SetMaxBitrate(1500000); },
         [](CBaseConfig& c) { return S(c.GetMaxBitrate()); }},
        {"SetFecInfo", false, I::FecInfo,
         [](IBaseConfig& c) {
             ZynSobeFecInfo info{1, 8000, 100, {true, 4, 100, 1200}};
             return c.SetFecInfo(info, eStreamDirection_Out);
         },
         [](CBaseConfig& c) { return FecOf(c, eStreamDirection_Out); }},
        {"SetRtxInfo", false, I::RtxInfo,
         [](IBaseConfig& c) {
             ZynSobeRtxInfo info{1, 97, 96, 3000, 90000};
             return c.SetRtxInfo(info, eStreamDirection_In);
         },
         [](CBaseConfig& c) { return RtxOf(c, eStreamDirection_In); }},
        {"SetSendDestination", false, I::SendDestination,
         [](IBaseConfig& c) { return c.SetSendDestination("2001:db8::7", 6000); },
         [](CBaseConfig& c) { return S(c.GetSendDestination().ip, c.GetSendDestination().port); }},
        {"SetupSrtpCrypto", false, I::SrtpCrypto,
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_Send, "AES_CM_128_HMAC_SHA1_80", "a2V5", true); },
         [](CBaseConfig& c) {
             const auto& s = c.GetSrtpCrypto(ZynDirection_Send);
             return S(s.suite, s.key, s.onlyCryptRtp);
         }},
        {"SetRtpExtension", false, I::RtpExtension,
         [](IBaseConfig& c) { return c.SetRtpExtension(3, "urn:ietf:params:rtp-hdrext:toffset", eStreamDirection_Out); },
         [](CBaseConfig& c) { return S(c.GetRtpExtensions().size()); }, ZYN_E_FAIL},
        {"SetupEncodeCodec", false, I::EncodeCodecs,
         [](IBaseConfig& c) {
             _tagCodecParam record = OpusByName();
             return c.SetupEncodeCodec(&record, 1);
         },
         [](CBaseConfig& c) { return S(c.GetEncodeCodecs().set, c.GetEncodeCodecs().codecs.size()); }},
        {"SetupDecodeCodec", false, I::DecodeCodecs,
         [](IBaseConfig& c) {
             _tagCodecParam record = OpusByName();
             return c.SetupDecodeCodec(&record, 1);
         },
         [](CBaseConfig& c) { return S(c.GetDecodeCodecs().set, c.GetDecodeCodecs().codecs.size()); }},
    };
    return rows;
}

TEST(MediaConfigSetters, BeforeTheCallEachSetterChangesItsValueAndTellsTheLine)
{
    for (const auto& row : SetterRows()) {
        SCOPED_TRACE(row.name);
        FakeLine line;
        CAudioConfig config(&line);
        const std::string before = row.read(config);
        EXPECT_EQ(ZYN_S_OK, row.set(config));
        EXPECT_NE(before, row.read(config));
        EXPECT_EQ(std::vector<EMediaConfigItem>{row.item}, line.changes);
    }
}

TEST(MediaConfigSetters, AfterTheCallStartedGuardedSettersRefuseAndChangeNothing)
{
    for (const auto& row : SetterRows()) {
        SCOPED_TRACE(row.name);
        TraceCapture traces;
        FakeLine line;
        CAudioConfig config(&line);
        line.started = true;
        const std::string before = row.read(config);
        const ZynResult result = row.set(config);
        EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_INFO, std::string("CAudioConfig::") + row.name));
        if (row.guarded) {
            EXPECT_EQ(ZYN_E_FAIL, result);
            EXPECT_EQ(before, row.read(config));
            EXPECT_TRUE(line.changes.empty());
            EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_ERROR, "Assert failed: !m_pInfo->IsCallStarted()"));
            // A renegotiation makes the setting legal again.
            line.started = false;
            EXPECT_EQ(ZYN_S_OK, row.set(config));
            EXPECT_NE(before, row.read(config));
        } else {
            EXPECT_EQ(ZYN_S_OK, result);
            EXPECT_NE(before, row.read(config));
            EXPECT_FALSE(traces.Has(CM_TRACE_LEVEL_ERROR, "Assert failed"));
        }
        EXPECT_TRUE(line.metrics.empty());
    }
}

TEST(MediaConfigSetters, ALineThatRefusesKeepsTheOldValue)
{
    for (const auto& row : SetterRows()) {
        SCOPED_TRACE(row.name);
        FakeLine line;
        CAudioConfig config(&line);
        line.refuse[row.item] = ZYN_E_WRONGSTATE;
        const std::string before = row.read(config);
        EXPECT_EQ(row.refusedAs ? row.refusedAs : ZYN_E_WRONGSTATE, row.set(config));
        EXPECT_EQ(before, row.read(config));
    }
}

TEST(MediaConfigSetters, BadArgumentsAreRefusedWithoutTellingTheLine)
{
    struct Row {
        const char* name;
        std::function<ZynResult(IBaseConfig&)> call;
        ZynResult expected;
    };
    const eStreamDirection badDirection = static_cast<eStreamDirection>(3);
    const Row rows[] = {
        {"override null ip", [](IBaseConfig& c) { return c.OverrideMediaIPAddress(nullptr, 1); }, ZYN_E_INVALIDARG},
        {"override host name", [](IBaseConfig& c) { return c.OverrideMediaIPAddress("media.example", 1); },
         ZYN_E_INVALIDARG},
        {"override port above 16 bits", [](IBaseConfig& c) { return c.OverrideMediaIPAddress("10.0.0.1", 70000); },
         ZYN_E_INVALIDARG},
        {"capture without path", [](IBaseConfig& c) { return c.EnableFileCapture(nullptr, false, true); },
         ZYN_E_INVALIDARG},
        {"render with empty path", [](IBaseConfig& c) { return c.EnableFileRender("", true); }, ZYN_E_INVALIDARG},
        {"port range reversed", [](IBaseConfig& c) { return c.SetIceLocalPortRange(2000, 1000); }, ZYN_E_INVALIDARG},
        {"port range from 0", [](IBaseConfig& c) { return c.SetIceLocalPortRange(0, 1000); }, ZYN_E_INVALIDARG},
        {"destination null", [](IBaseConfig& c) { return c.SetSendDestination(nullptr, 5); }, ZYN_E_INVALIDARG},
        {"destination garbage", [](IBaseConfig& c) { return c.SetSendDestination("1.2.3", 5); }, ZYN_E_INVALIDARG},
        {"srtp null suite",
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_Send, nullptr, "a2V5", false); },
         ZYN_E_INVALIDARG},
        {"srtp null key",
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_Send, "AEAD_AES_128_GCM", nullptr, false); },
         ZYN_E_INVALIDARG},
        {"srtp empty key",
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_Send, "AEAD_AES_128_GCM", "", false); },
         ZYN_E_INVALIDARG},
        {"srtp unknown suite",
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_Send, "ROT13", "a2V5", false); },
         ZYN_E_INVALIDARG},
        {"srtp no direction",
         [](IBaseConfig& c) { return c.SetupSrtpCrypto(ZynDirection_None, "AEAD_AES_128_GCM", "a2V5", false); },
         ZYN_E_INVALIDARG},
        {"fec scheme", [](IBaseConfig& c) { return c.SetDynamicFecScheme(static_cast<DynamicFECLevelScheme>(7)); },
         ZYN_E_INVALIDARG},
        {"fec order", [](IBaseConfig& c) { return c.SetSrtpFecOrder(static_cast<ZynSecurityFECOrder>(-1)); },
         ZYN_E_INVALIDARG},
        {"fec info direction",
         [=](IBaseConfig& c) {
             ZynSobeFecInfo info = CBaseConfig::DefaultFecInfo();
             return c.SetFecInfo(info, badDirection);
         },
         ZYN_E_INVALIDARG},
        {"fec info payload type",
         [](IBaseConfig& c) {
             ZynSobeFecInfo info = CBaseConfig::DefaultFecInfo();
             info.uPayloadType = 128;
             return c.SetFecInfo(info, eStreamDirection_In);
         },
         ZYN_E_INVALIDARG},
        {"rtx info associated payload type",
         [](IBaseConfig& c) {
             ZynSobeRtxInfo info = CBaseConfig::DefaultRtxInfo();
             info.uAssociatedPayloadType = 200;
             return c.SetRtxInfo(info, eStreamDirection_Out);
         },
         ZYN_E_INVALIDARG},
        {"rtx read direction",
         [=](IBaseConfig& c) {
             ZynSobeRtxInfo info{};
             return c.GetRtxInfo(info, badDirection);
         },
         ZYN_E_INVALIDARG},
        {"extension id 0", [](IBaseConfig& c) { return c.SetRtpExtension(0, "urn:x", eStreamDirection_Out); },
         ZYN_E_FAIL},
        {"extension null uri", [](IBaseConfig& c) { return c.SetRtpExtension(1, nullptr, eStreamDirection_Out); },
         ZYN_E_FAIL},
        {"extension direction", [=](IBaseConfig& c) { return c.SetRtpExtension(1, "urn:x", badDirection); },
         ZYN_E_FAIL},
        {"codec param without output", [](IBaseConfig& c) { return c.GetCodecParam(ZynCodecType_AVC, nullptr, nullptr); },
         ZYN_E_INVALIDARG},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeLine line;
        CVideoConfig config(&line);
        EXPECT_EQ(row.expected, row.call(config));
        EXPECT_TRUE(line.changes.empty());
    }
}

TEST(MediaConfigDefaults, FreshConfigurationReadsAsTheLineStarts)
{
    FakeLine line(ZynSessionType_Video);
    CVideoConfig config(&line);
    IBaseConfig& c = config;
    EXPECT_EQ(0u, c.GetMaxBandwidth());
    EXPECT_EQ(0u, c.GetInitBandwidth());
    EXPECT_EQ(ZynCodecType_Unknown, c.GetPreferedCodec());
    EXPECT_EQ(ZynCodecType_Unknown, c.GetSelectedCodec());
    EXPECT_EQ(19u, c.GetIcePolicy());
    EXPECT_FALSE(c.IsFecEnabled() || c.IsRtxEnabled() || c.IsHybridResilienceEnabled() || c.IsTmmbrEnabled() ||
                 c.IsRecordLossDataEnabled());
    EXPECT_EQ(100u, config.GetMaxFecOverhead());
    EXPECT_TRUE(config.IsFecProbingEnabled());
    EXPECT_EQ(ZynSecurityFECOrder_FEC_SRTP, config.GetSrtpFecOrder());
    EXPECT_EQ(DynamicFECLevelScheme_OnlyLossRatio, config.GetDynamicFecScheme());
    EXPECT_EQ(S(111, 8000u, 8u), FecOf(config, eStreamDirection_Out));
    EXPECT_EQ(S(111, 8000u, 8u), FecOf(config, eStreamDirection_In));
    EXPECT_EQ(S(112, 500u), RtxOf(config, eStreamDirection_Out));
    EXPECT_STREQ("", c.GetSrtpCryptoSuite());
    EXPECT_EQ(nullptr, c.GetRtpExtension(1));
    EXPECT_FALSE(config.GetEncodeCodecs().set || config.GetDecodeCodecs().set);
    EXPECT_EQ(0u, c.GetLocalIceConfig()->GetCandidateCount());
    EXPECT_STREQ("", c.GetIceConcludedConfig()->GetConcludedDescription());
    // Negotiated figures come from the line.
    EXPECT_EQ(12u, c.GetMaxAvailableSources(ZynSubscribePolicy_ActiveSpeaker));
    EXPECT_EQ(ZynSubscribePolicy_ActiveSpeaker, c.GetSubscribePolicy());

    FakeLine shareLine(ZynSessionType_ScreenShare);
    CShareConfig share(&shareLine);
    EXPECT_EQ(18u, share.GetIcePolicy());
}

TEST(MediaConfigHierarchy, EveryFaceReachesTheOneSharedBase)
{
    FakeLine line;
    CAudioConfig audio(&line);
    IAudioConfig* audioFace = &audio;
    IBaseConfig* base = audioFace;
    EXPECT_EQ(ZYN_S_OK, base->SetMaxBandwidth(64000));
    EXPECT_EQ(64000u, static_cast<CBaseConfig&>(audio).GetMaxBandwidth());

    CVideoConfig video(&line);
    IVideoConfig* videoFace = &video;
    IBaseVideoConfig* videoBase = videoFace;
    EXPECT_EQ(ZYN_S_OK, static_cast<IBaseConfig*>(videoBase)->EnableRtx(true));
    EXPECT_TRUE(static_cast<CBaseConfig&>(video).IsRtxEnabled());

    CShareConfig share(&line);
    IShareConfig* shareFace = &share;
    EXPECT_EQ(ZYN_S_OK, static_cast<IBaseConfig*>(shareFace)->EnableFec(true));
    EXPECT_TRUE(share.IsFecEnabled());
}

TEST(MediaConfigHierarchy, OnlyAudioFollowsTheDefaultDevice)
{
    FakeLine line;
    CAudioConfig audio(&line);
    EXPECT_EQ(ZYN_S_OK, audio.SetAutoSwitchDefaultDeviceFlag(true));
    EXPECT_TRUE(audio.GetAutoSwitchDefaultDeviceFlag());
    EXPECT_EQ(std::vector<EMediaConfigItem>{EMediaConfigItem::AutoSwitchDefaultDevice}, line.changes);

    CVideoConfig video(&line);
    CShareConfig share(&line);
    CBaseConfig application(&line);
    for (IBaseConfig* c : std::initializer_list<IBaseConfig*>{&video, &share, &application})
        EXPECT_EQ(ZYN_E_NOTAVAILABLE, c->SetAutoSwitchDefaultDeviceFlag(true));
}

TEST(MediaConfigTrace, ClassNameFollowsTheLineSessionType)
{
    const std::pair<ZynSessionType, const char*> rows[] = {
        {ZynSessionType_Audio, "CAudioConfig"},          {ZynSessionType_Video, "CVideoConfig"},
        {ZynSessionType_ScreenShare, "CShareConfig"},    {ZynSessionType_AudioSlide, "CAudioSlideConfig"},
        {ZynSessionType_Application, "CBaseConfig"},    {ZynSessionType_Unknown, "CBaseConfig"},
    };
    for (const auto& [type, name] : rows) {
        SCOPED_TRACE(name);
        TraceCapture traces;
        FakeLine line(type);
        CBaseConfig config(&line);
        config.SetMaxBandwidth(500);
        EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_INFO, std::string(name) + "::SetMaxBandwidth, value=500 cid__4711"));
    }
}

TEST(MediaConfigWithoutLine, TracesAsBaseAndRefusesWhatOnlyALineCanHold)
{
    TraceCapture traces;
    CAudioConfig config;
    EXPECT_EQ(ZYN_S_OK, config.SetMaxBandwidth(900));
    EXPECT_EQ(900u, config.GetMaxBandwidth());
    EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_INFO, "CBaseConfig::SetMaxBandwidth, value=900"));
    EXPECT_EQ(ZYN_E_FAIL, config.SetPreferedCodec(ZynCodecType_OPUS));
    EXPECT_EQ(ZYN_E_FAIL, config.SetSelectedCodec(ZynCodecType_OPUS));
    EXPECT_EQ(ZYN_E_FAIL, config.SetIceLocalPortRange(1000, 2000));
    EXPECT_EQ(ZynCodecType_Unknown, config.GetPreferedCodec());
    EXPECT_EQ(0u, config.GetMaxAvailableSources(ZynSubscribePolicy_ActiveSpeaker));
    _tagCodecParam out{};
    EXPECT_EQ(ZYN_E_NOTAVAILABLE, config.GetCodecParam(ZynCodecType_AVC, nullptr, &out));
}

TEST(MediaConfigResilience, HybridNeedsBothAndRecordsKeepTheirDirection)
{
    FakeLine line;
    CVideoConfig config(&line);
    config.EnableRtx(true);
    EXPECT_FALSE(config.IsHybridResilienceEnabled());
    config.EnableFec(true);
    EXPECT_TRUE(config.IsHybridResilienceEnabled());

    ZynSobeFecInfo fec{1, 16000, 120, {false, 2, 50, 800}};
    ASSERT_EQ(ZYN_S_OK, config.SetFecInfo(fec, eStreamDirection_In));
    EXPECT_EQ(S(120, 16000u, 2u), FecOf(config, eStreamDirection_In));
    EXPECT_EQ(S(111, 8000u, 8u), FecOf(config, eStreamDirection_Out));
}

TEST(MediaConfigSrtp, BothDirectionsAndTheKeyStaysOutOfTheTrace)
{
    TraceCapture traces;
    FakeLine line;
    CAudioConfig config(&line);
    ASSERT_EQ(ZYN_S_OK, config.SetupSrtpCrypto(ZynDirection_SendRecv, "AEAD_AES_256_GCM", "c2VjcmV0LWtleQ==", false));
    EXPECT_STREQ("AEAD_AES_256_GCM", config.GetSrtpCryptoSuite());
    EXPECT_EQ(config.GetSrtpCrypto(ZynDirection_Send), config.GetSrtpCrypto(ZynDirection_Recv));
    EXPECT_FALSE(traces.HasAny("c2VjcmV0LWtleQ"));
}

TEST(MediaConfigSrtp, CreatedKeysHaveTheLengthOfTheirSuite)
{
    const std::pair<const char*, size_t> rows[] = {
        {"AEAD_AES_256_GCM", 44},        {"AEAD_AES_128_GCM", 28},         {"AES_CM_256_HMAC_SHA1_80", 46},
        {"AES_CM_128_HMAC_SHA1_80", 30}, {"AES_CM_128_HMAC_SHA1_32", 30}, {"NULL_CIPHER_HMAC_SHA1_80", 30},
        {"NON_SRTP_CRYPTO", 30},
    };
    CBaseConfig config;
    for (const auto& [suite, bytes] : rows) {
        SCOPED_TRACE(suite);
        const std::string first = config.CreateSrtpCryptoKey(suite);
        std::string decoded;
        ASSERT_EQ(0, CM_Base64Decode(first, decoded));
        EXPECT_EQ(bytes, decoded.size());
        EXPECT_NE(first, std::string(config.CreateSrtpCryptoKey(suite)));
    }
    EXPECT_STREQ("", config.CreateSrtpCryptoKey("AES_CM_999"));
    EXPECT_STREQ("", config.CreateSrtpCryptoKey(nullptr));
}

TEST(MediaConfigExtensions, OneUriPerIdAndDirectionSendingSideFirst)
{
    FakeLine line;
    CVideoConfig config(&line);
    ASSERT_EQ(ZYN_S_OK, config.SetRtpExtension(1, "urn:a", eStreamDirection_In));
    EXPECT_STREQ("urn:a", config.GetRtpExtension(1));
    ASSERT_EQ(ZYN_S_OK, config.SetRtpExtension(1, "urn:b", eStreamDirection_Out));
    EXPECT_STREQ("urn:b", config.GetRtpExtension(1));
    // The same URI under a new id moves; a new URI under a taken id replaces.
    ASSERT_EQ(ZYN_S_OK, config.SetRtpExtension(2, "urn:b", eStreamDirection_Out));
    ASSERT_EQ(ZYN_S_OK, config.SetRtpExtension(2, "urn:c", eStreamDirection_Out));
    EXPECT_STREQ("urn:a", config.GetRtpExtension(1));
    EXPECT_STREQ("urn:c", config.GetRtpExtension(2));
    EXPECT_EQ(2u, config.GetRtpExtensions().size());
    EXPECT_EQ(nullptr, config.GetRtpExtension(3));
}

TEST(MediaConfigCodecs, ARecordNamedOnlyIsResolvedForTheCallerAndTraced)
{
    TraceCapture traces;
    FakeLine line;
    CAudioConfig config(&line);
    _tagCodecParam records[2] = {OpusByName(), OpusByName()};
    records[1].type = ZynCodecType_PCMU;
    records[1].payload = 0;
    ASSERT_EQ(ZYN_S_OK, config.SetupEncodeCodec(records, 2));
    EXPECT_EQ(ZynCodecType_OPUS, records[0].type);
    ASSERT_EQ(2u, config.GetEncodeCodecs().codecs.size());
    EXPECT_EQ(sdp::codec_opus, config.GetEncodeCodecs().codecs[0].type);
    EXPECT_EQ(101u, config.GetEncodeCodecs().codecs[0].payload_type);
    EXPECT_EQ(sdp::codec_pcmu, config.GetEncodeCodecs().codecs[1].type);
    EXPECT_FALSE(config.GetDecodeCodecs().set);
    // The trace shows the records as the application gave them.
    EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_INFO, "CAudioConfig::SetupEncodeCodec, codecs={\"codecs\":[{\"type\":0,"
                                                "\"name\":\"opus\",\"payload\":101,"));
    EXPECT_TRUE(traces.Has(CM_TRACE_LEVEL_INFO, ", num=2"));

    // No records: the engine's own list again.
    ASSERT_EQ(ZYN_S_OK, config.SetupEncodeCodec(nullptr, 5));
    EXPECT_FALSE(config.GetEncodeCodecs().set);
}

TEST(MediaConfigIce, LocalAndRemoteAreSeparateAndClearCompletely)
{
    FakeLine line;
    CBaseConfig config(&line);
    config.GetRemoteIce().SetCredentials("user", "pass");
    config.GetRemoteIce().AddCandidate("1 1 UDP 2130706431 192.0.2.1 5000 typ host");
    IIceConfig* remote = config.GetRemoteIceConfig();
    EXPECT_STREQ("user", remote->GetUserName());
    EXPECT_EQ(1u, remote->GetCandidateCount());
    EXPECT_EQ(nullptr, remote->GetCandidate(1));
    EXPECT_STREQ("", config.GetLocalIceConfig()->GetPassword());
    config.GetRemoteIce().Clear();
    EXPECT_STREQ("", remote->GetPassword());
    EXPECT_EQ(0u, remote->GetCandidateCount());
    EXPECT_EQ(&line, config.GetConcluded().GetLine());
}

}  // namespace
