// Settings by JSON text: SetParams applies each key it finds through the typed configuration
// setters, GetParams reads them back in the same shape. Caller's thread, like the setters.
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <functional>
#include <string>

#include "config/CodecConversion.h"
#include "config/MediaConfigs.h"
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmJson.h"
#include "util/CmTrace.h"

#define CONN_TAIL MS_TAIL("", m_callId)

namespace zyn {

namespace {

// Applies keys of one object; remembers the last failure. A key of the wrong JSON type is a
// failure of its own (ZYN_E_INVALIDARG) and reaches no setter.
class CParamsApplier {
public:
    explicit CParamsApplier(const json::Value& object) : m_object(object) {}

    template <class T>
    void Key(const char* key, const std::function<ZynResult(T)>& set)
    {
        if (!m_object.contains(key)) return;
        T value{};
        Note(json::Get(m_object, key, value) ? set(value) : ZYN_E_INVALIDARG);
    }
    // Keys that act only together: nothing happens unless all are present.
    template <size_t N, class Set>
    void Keys(const char* const (&keys)[N], Set set)
    {
        int64_t values[N]{};
        for (size_t i = 0; i < N; ++i)
            if (!m_object.contains(keys[i])) return;
        for (size_t i = 0; i < N; ++i)
            if (!json::Get(m_object, keys[i], values[i])) return Note(ZYN_E_INVALIDARG);
        Note(set(values));
    }
    void Note(ZynResult result)
    {
        if (ZYN_FAILED(result)) m_result = result;
    }
    ZynResult Result() const { return m_result; }
    const json::Value& Object() const { return m_object; }

private:
    const json::Value& m_object;
    ZynResult m_result = ZYN_S_OK;
};

using Bool = std::function<ZynResult(bool)>;
using Int = std::function<ZynResult(int64_t)>;
using Text = std::function<ZynResult(std::string)>;
using Real = std::function<ZynResult(double)>;

const char* SectionOf(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio: return "audio";
    case ZynSessionType_Video: return "video";
    case ZynSessionType_ScreenShare: return "screen";
    case ZynSessionType_AudioSlide: return "audio-slide";
    default: return nullptr;
    }
}

template <class T>
ZynResult InRange(int64_t value, T low, T high, const std::function<ZynResult(T)>& set)
{
    if (value < static_cast<int64_t>(low) || value > static_cast<int64_t>(high)) return ZYN_E_INVALIDARG;
    return set(static_cast<T>(value));
}

void ApplyGlobal(CParamsApplier& a, CGlobalConfig& g, CBaseConfig& line, CMediaConnection& connection)
{
    a.Key<int64_t>("icePolicy", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t p) { return line.SetIcePolicy(p); });
    }));
    a.Key<int64_t>("connectionPolicy", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t p) { return line.SetConnectionPolicy(p); });
    }));
    a.Keys({"localPortMin", "localPortMax"}, [&](const int64_t (&v)[2]) {
        if (v[0] < 0 || v[0] > 65535 || v[1] < 0 || v[1] > 65535) return ZYN_E_INVALIDARG;
        return line.SetIceLocalPortRange(static_cast<uint16_t>(v[0]), static_cast<uint16_t>(v[1]));
    });
    a.Key<bool>("enableQos", Bool([&](bool v) { return g.EnableQos(v); }));
    a.Key<bool>("enableDtlsSRTP", Bool([&](bool v) { return g.EnableDtlsSRTP(v); }));
    a.Key<bool>("supportCmulti", Bool([&](bool v) { return g.EnableMultiStream(v); }));
    a.Key<bool>("enableDPC", Bool([&](bool v) { return g.EnableDPC(v); }));
    // The engine defines what it does; the value is passed through by name.
    a.Key<bool>("enableAQERefine", Bool([&](bool v) {
        IZynMediaEngineInternal* engine = connection.GetEngine();
        return engine ? engine->SetNamedOption("enableAQERefine", v ? "1" : "0") : ZYN_E_WRONGSTATE;
    }));
    a.Key<bool>("enableSRTP", Bool([&](bool v) { return g.EnableSRTP(v); }));
    a.Key<bool>("enableFQDNInICE", Bool([&](bool v) { return g.EnableFQDNInICE(v); }));
    a.Key<bool>("enableICE", Bool([&](bool v) { return g.EnableICE(v); }));
    a.Key<bool>("enableFastLane", Bool([&](bool v) { return g.EnableFastLane(v); }));
    a.Key<bool>("enableRTCPMux", Bool([&](bool v) { return g.EnableRTCPMux(v); }));
    a.Key<double>("QoSMaxLossRatio", Real([&](double v) { return g.SetQoSMaxLossRatio(static_cast<float>(v)); }));
    a.Key<int64_t>("QoSMinBandwidth", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t b) { return g.SetQoSMinBandwidth(b); });
    }));
    a.Key<std::string>("deviceCapability", Text([&](const std::string& v) {
        const ZynResult r = g.SetDeviceMediaSettings(v.c_str());
        // Not an object: the setter's "nothing done" is a bad value here.
        return r == ZYN_S_FALSE ? ZYN_E_INVALIDARG : r;
    }));
    a.Keys({"networkStatus", "networkDirection", "waitMilliseconds"}, [&](const int64_t (&v)[3]) {
        if (v[2] < 0 || v[2] > UINT32_MAX) return ZYN_E_INVALIDARG;
        return g.SetNetworkNotificationParam(static_cast<ZynNetworkStatus>(v[0]), static_cast<_tagNetworkDirection>(v[1]),
                                             static_cast<unsigned int>(v[2]));
    });
    a.Key<bool>("enableDSCP", Bool([&](bool v) { return g.EnableDSCP(v); }));
    a.Keys({"DSCPofAudio", "DSCPofVideo", "DSCPofScreen"}, [&](const int64_t (&v)[3]) {
        for (int64_t x : v)
            if (x < 0 || x > UINT32_MAX) return ZYN_E_INVALIDARG;
        return g.SetDSCPMarking(static_cast<unsigned>(v[0]), static_cast<unsigned>(v[1]), static_cast<unsigned>(v[2]));
    });
    a.Key<int64_t>("enablePerformanceStatDump", Int([&](int64_t v) {
        return InRange<int32_t>(v, ZynPerformanceDump_None, ZynPerformanceDump_All, [&](int32_t t) {
            return g.EnablePerformanceTraceDump(static_cast<ZynPerformanceDumpType>(t));
        });
    }));
    a.Key<std::string>("featureToggles", Text([&](const std::string& v) {
        const ZynResult r = g.SetFeatureToggles(v.c_str());
        return r == ZYN_S_FALSE ? ZYN_E_INVALIDARG : r;
    }));
    a.Key<int64_t>("manualAdaptBitrate", Int([&](int64_t v) {
        // Negative means "no manual rate": the engine reads 0.
        const int32_t rate = v < 0 ? 0 : static_cast<int32_t>(std::min<int64_t>(v, INT32_MAX));
        return connection.SetMediaEngineOption(CMediaConnection::kEngineOptionManualAdaptBitrate, &rate, 4);
    }));
    a.Key<bool>("SetShowStunTraceIP", Bool([&](bool v) { return g.SetShowStunTraceIP(v); }));
    a.Keys({"iceInactiveTimeout", "iceTerminateTimeout", "iceConnectTimeout"}, [&](const int64_t (&v)[3]) {
        for (int64_t x : v)
            if (x > INT32_MAX || x < INT32_MIN) return ZYN_E_INVALIDARG;
        return g.SetICETimeoutParams(static_cast<int>(v[0]), static_cast<int>(v[2]), static_cast<int>(v[1]));
    });
    a.Key<int64_t>("sendMQEDataInMinutes", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t m) { return g.setSendMQEInMinutes(m); });
    }));
    a.Key<bool>("EnableMQECallback", Bool([&](bool v) { return g.EnableMQECallback(v); }));
    a.Key<bool>("insecureLogs", Bool([&](bool v) { return g.EnableInsecureLogs(v); }));
    a.Key<int64_t>("AudioCaptureMethod", Int([&](int64_t v) {
        MS_INFO_TRACE("CMediaConnection::SetParams, globalConfig->SetAudioCaptureMethod val = " << v);
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t m) { return g.SetAudioCaptureMethod(m); });
    }));
    a.Key<int64_t>("AudioPlaybackMethod", Int([&](int64_t v) {
        MS_INFO_TRACE("CMediaConnection::SetParams, globalConfig->SetAudioPlaybackMethod val = " << v);
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t m) { return g.SetAudioPlaybackMethod(m); });
    }));
}

ZynResult SetFecParams(CBaseConfig& line, const json::Value& fec)
{
    CParamsApplier a(fec);
    a.Key<bool>("bEnableFec", Bool([&](bool v) { return line.EnableFec(v); }));
    if (fec.contains("uVersion") || fec.contains("uClockRate") || fec.contains("uPayloadType") ||
        fec.contains("fecFmtInfo")) {
        ZynSobeFecInfo info{};
        line.GetFecInfo(info, eStreamDirection_In);
        uint32_t version = info.uVersion, payload = info.uPayloadType;
        json::Object format;
        const bool typed = (!fec.contains("uVersion") || json::Get(fec, "uVersion", version)) &&
                           (!fec.contains("uClockRate") || json::Get(fec, "uClockRate", info.uClockRate)) &&
                           (!fec.contains("uPayloadType") || json::Get(fec, "uPayloadType", payload)) &&
                           (!fec.contains("fecFmtInfo") || json::Get(fec, "fecFmtInfo", format));
        json::Get(format, "bMultiSsrc", info.fecFmtInfo.bMultiSsrc);
        json::Get(format, "uM", info.fecFmtInfo.uM);
        json::Get(format, "uMaxN", info.fecFmtInfo.uMaxN);
        json::Get(format, "uMaxEsel", info.fecFmtInfo.uMaxEsel);
        if (!typed || version > 255 || payload > 127) {
            a.Note(ZYN_E_INVALIDARG);
        } else {
            info.uVersion = static_cast<uint8_t>(version);
            info.uPayloadType = static_cast<uint8_t>(payload);
            // One record describes the stream both ways.
            a.Note(line.SetFecInfo(info, eStreamDirection_In));
            a.Note(line.SetFecInfo(info, eStreamDirection_Out));
        }
    }
    a.Key<std::string>("srtpFecOrder", Text([&](const std::string& v) {
        return line.SetSrtpFecOrder(v == "ORDER_FEC_SRTP" ? ZynSecurityFECOrder_FEC_SRTP : ZynSecurityFECOrder_SRTP_FEC);
    }));
    a.Key<int64_t>("uMaxFecOverhead", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t p) { return line.SetMaxFecOverhead(p); });
    }));
    a.Key<bool>("bFecProbing", Bool([&](bool v) { return line.SetFecProbing(v); }));
    a.Key<std::string>("dynamicFecScheme", Text([&](const std::string& v) {
        return line.SetDynamicFecScheme(v == "LOSS_RATIO_WITH_PRIORITY" ? DynamicFECLevelScheme_LossRatioWithPriority
                                                                         : DynamicFECLevelScheme_OnlyLossRatio);
    }));
    return a.Result();
}

ZynResult SetCodecKey(const std::string& name, const std::function<ZynResult(ZynCodecType)>& set)
{
    const ZynCodecType type = ConvCodecType(name.c_str());
    return type == ZynCodecType_Unknown ? ZYN_E_INVALIDARG : set(type);
}

void ApplyCommon(CParamsApplier& a, CBaseConfig& line)
{
    const json::Value& section = a.Object();
    if (section.contains("fecParams")) {
        json::Object fec;
        a.Note(json::Get(section, "fecParams", fec) ? SetFecParams(line, fec) : ZYN_E_INVALIDARG);
    }
    if (section.contains("rtxParams")) {
        json::Object rtx;
        if (!json::Get(section, "rtxParams", rtx)) {
            a.Note(ZYN_E_INVALIDARG);
        } else {
            CParamsApplier r(rtx);
            r.Key<bool>("bEnableRtx", Bool([&](bool v) { return line.EnableRtx(v); }));
            a.Note(r.Result());
        }
    }
    a.Key<bool>("recordLossData", Bool([&](bool v) { return line.EnableRecordLossData(v); }));
    a.Key<int64_t>("uMaxBandwidth", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t b) { return line.SetMaxBandwidth(b); });
    }));
    a.Key<int64_t>("uInitBandWidth", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t b) { return line.SetInitBandwidth(b); });
    }));
    a.Key<std::string>("preferedCodec", Text([&](const std::string& v) {
        return SetCodecKey(v, [&](ZynCodecType t) { return line.SetPreferedCodec(t); });
    }));
    a.Key<std::string>("selectedCodec", Text([&](const std::string& v) {
        return SetCodecKey(v, [&](ZynCodecType t) { return line.SetSelectedCodec(t); });
    }));
    a.Key<int64_t>("uMaxStreamsCount", Int([&](int64_t v) {
        return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t n) { return line.SetMaxStreamsCount(n); });
    }));
}

void ApplyAudio(CParamsApplier& a, CAudioConfig& audio)
{
    a.Key<bool>("enableAGC", Bool([&](bool v) { return audio.EnableAGC(v); }));
    a.Key<bool>("enableEC", Bool([&](bool v) { return audio.EnableEC(v); }));
    a.Key<bool>("enableNS", Bool([&](bool v) { return audio.EnableNS(v, true); }));
    a.Key<bool>("enableBNR", Bool([&](bool v) { return audio.EnableBNR(v); }));
    a.Key<int64_t>("BNRProfileMode", Int([&](int64_t v) { return audio.SetBNRProfileMode(static_cast<int>(v)); }));
    a.Key<int64_t>("setAecType", Int([&](int64_t v) {
        return InRange<int32_t>(v, ZynAecTypeNone, ZynAecTypeEngine,
                                [&](int32_t t) { return audio.SetECType(static_cast<ZynAecType>(t)); });
    }));
}

// Settings that only the engine track acts on, by the engine's option name; GetParams reads them
// back from the track.
struct CTrackKey {
    const char* key;
    const char* option;
};
constexpr CTrackKey kCommonTrackSwitches[] = {{"disableResponseMSync", "RTP_disable_response_msync"},
                                              {"bEnableMsync", "RTP_msync"},
                                              {"bEnablePLI", "RTCP_pli"},
                                              {"bEnableRTCPXR", "RTCP_xr"}};
constexpr CTrackKey kAudioTrackSwitches[] = {{"enableHDAudio", "AUDIO_hd_audio"},
                                             {"enableVAD", "AUDIO_vad"},
                                             {"enableDropSeconds", "AUDIO_drop_seconds"},
                                             {"enableKeyDumpFile", "AUDIO_key_dump_files"},
                                             {"ignoreRemoteDevice", "AUDIO_ignore_remote_device"},
                                             {"enablePlaybackCNG", "AUDIO_playback_cng"},
                                             {"enableASNO", "AUDIO_asno"}};
constexpr CTrackKey kAudioTrackNumbers[] = {{"AudioMode", "AUDIO_mode"},
                                            {"setPlaybackStreamMode", "AUDIO_playback_stream_mode"}};
// One bit each of the module dump mask, in bit order.
constexpr const char* kAudioDumpBits[] = {"enableMultiTrackDumpFile",  "enableAllDumpFile",
                                          "enableAECDumpFile",         "enableCaptureDAGCDumpFile",
                                          "enableEncoderDumpFile",     "enablePlaybackMixDumpFile",
                                          "enablePlaybackDAGCDumpFile"};
constexpr const char* kAudioDumpMaskOption = "AUDIO_module_dump_files";
constexpr const char* kAudioDumpPathOption = "AUDIO_key_dump_path";
constexpr const char* kVideoDecoderMosaicOption = "VIDEO_decoder_mosaic";
constexpr const char* kVideoMaxRecordOption = "VIDEO_max_capability";

void ApplyTrackKeys(CParamsApplier& a, CMediaConnectionInfo& line, const CTrackKey* keys, size_t count, bool numbers)
{
    for (size_t i = 0; i < count; ++i) {
        const char* option = keys[i].option;
        if (numbers)
            a.Key<int64_t>(keys[i].key, Int([&](int64_t v) {
                return line.KeepLocalTrackOption(option, std::to_string(v).c_str());
            }));
        else
            a.Key<bool>(keys[i].key, Bool([&](bool v) { return line.KeepLocalTrackOption(option, v ? "1" : "0"); }));
    }
}

void ReadTrackKeys(json::Object& out, CMediaConnectionInfo& line, const CTrackKey* keys, size_t count, bool numbers)
{
    for (size_t i = 0; i < count; ++i) {
        std::string value;
        if (line.GetLocalTrackOption(keys[i].option, value) != ZYN_S_OK) continue;
        if (numbers)
            out[keys[i].key] = std::strtoll(value.c_str(), nullptr, 10);
        else
            out[keys[i].key] = value == "1";
    }
}

// The codec by its name ("opus") or its ZynCodecType number.
ZynCodecType AudioCodecOf(const json::Value& section)
{
    std::string name;
    int64_t number = 0;
    if (json::Get(section, "audioCodec", name)) return ConvCodecType(name.c_str());
    if (json::Get(section, "audioCodec", number) && number > 0 && number < ZynCodecType_DTMF)
        return static_cast<ZynCodecType>(number);
    return ZynCodecType_Unknown;
}

void ApplyAudioExtra(CParamsApplier& a, CMediaConnectionInfo& line)
{
    if (a.Object().contains("audioCodec")) {
        const ZynCodecType type = AudioCodecOf(a.Object());
        a.Note(type == ZynCodecType_Unknown ? ZYN_E_INVALIDARG : line.SetCodec(type));
    }
    ApplyTrackKeys(a, line, kAudioTrackSwitches, std::size(kAudioTrackSwitches), false);
    ApplyTrackKeys(a, line, kAudioTrackNumbers, std::size(kAudioTrackNumbers), true);
    std::string current;
    uint32_t mask = line.GetLocalTrackOption(kAudioDumpMaskOption, current) == ZYN_S_OK
                        ? static_cast<uint32_t>(std::strtoul(current.c_str(), nullptr, 10))
                        : 0;
    const uint32_t before = mask;
    for (size_t bit = 0; bit < std::size(kAudioDumpBits); ++bit)
        a.Key<bool>(kAudioDumpBits[bit], Bool([&](bool v) {
            mask = v ? (mask | (1u << bit)) : (mask & ~(1u << bit));
            return ZYN_S_OK;
        }));
    if (mask != before) a.Note(line.KeepLocalTrackOption(kAudioDumpMaskOption, std::to_string(mask).c_str()));
    a.Key<std::string>("enableKeyDumpFilesPath", Text([&](const std::string& v) {
        return line.KeepLocalTrackOption(kAudioDumpPathOption, v.c_str());
    }));
    // Suites to key the sending side with, each with a fresh key.
    if (a.Object().contains("srtpKey")) {
        json::Array suites;
        if (!json::Get(a.Object(), "srtpKey", suites)) return a.Note(ZYN_E_INVALIDARG);
        CBaseConfig& config = line.GetConfig();
        for (const json::Value& suite : suites) {
            const std::string name = suite.is_string() ? suite.get<std::string>() : std::string();
            const std::string key = config.CreateSrtpCryptoKey(name.c_str());
            a.Note(key.empty() ? ZYN_E_INVALIDARG
                               : config.SetupSrtpCrypto(ZynDirection_Send, name.c_str(), key.c_str(), false));
        }
    }
}

// One entry of "decodeCodec" or "encodeCodec": the codec by name and its limits.
bool ParseCodecParams(const json::Value& entry, ZynCodecType& codec, ZynVideoCodecParams& params)
{
    std::string name;
    if (!entry.is_object() || !json::Get(entry, "codec", name)) return false;
    codec = ConvCodecType(name.c_str());
    params = {};
    const std::pair<const char*, uint32_t*> fields[] = {
        {"uProfileLevelID", &params.uProfileLevelID}, {"max-mbps", &params.uMaxMBPS}, {"max-fs", &params.uMaxFS},
        {"max-fps", &params.uMaxFPS}, {"max-br", &params.uMaxBR}, {"max_br_mode1", &params.uMaxBRMode1}};
    for (const auto& [key, field] : fields)
        if (entry.contains(key) && !json::Get(entry, key, *field)) return false;
    return codec != ZynCodecType_Unknown;
}

using VideoSwitch = ZynResult (IBaseVideoConfig::*)(bool);
struct CVideoSwitchKey {
    const char* key;
    VideoSwitch set;
    const char* option;  // where GetParams reads it back
};
constexpr CVideoSwitchKey kVideoSwitches[] = {
    {"bLimitNalSize", &IBaseVideoConfig::LimitNalSize, "VIDEO_limit_nal_size"},
    {"bEnableCVO", &IBaseVideoConfig::EnableCVO, "VIDEO_cvo"},
    {"enableAVCSimulcast", &IBaseVideoConfig::EnableAVCSimulcast, "VIDEO_avc_simulcast"},
    {"disable90PVideo", &IBaseVideoConfig::Disable90PVideo, "VIDEO_disable_90p"},
    {"enable1080PVideo", &IBaseVideoConfig::Enable1080PVideo, "VIDEO_enable_1080p"},
    {"enablePeriodicIDR", &IBaseVideoConfig::EnablePeriodIDR, "VIDEO_period_idr"},
    {"enableUpdateCapParam", &IBaseVideoConfig::EnableUpdateCapParam, "VIDEO_update_cap_param"},
    {"enableSelfPreviewHorizontalMirror", &IBaseVideoConfig::EnableSelfPreviewHorizontalMirror,
     "VIDEO_self_preview_mirror"},
    {"enableSmoothPlay", &IBaseVideoConfig::EnableSmoothPlay, "VIDEO_smooth_play"},
    {"enableCHP", &IBaseVideoConfig::EnableCHP, "VIDEO_chp"},
};
using VideoNumber = ZynResult (IBaseVideoConfig::*)(unsigned int);
struct CVideoNumberKey {
    const char* key;
    VideoNumber set;
    const char* option;
};
constexpr CVideoNumberKey kVideoNumbers[] = {
    {"uMaxPacketSize", &IBaseVideoConfig::SetMaxPacketSize, "VIDEO_max_packet_size"},
    {"uVideoDataDumpFlag", &IBaseVideoConfig::SetDataDumpFlag, "VIDEO_data_dump_flag"},
    {"maxNalSize", &IBaseVideoConfig::SetMaxNalSize, "VIDEO_max_nal_size"},
    {"enableDataDump", &IBaseVideoConfig::SetDataDumpFlag, "VIDEO_data_dump_flag"},
};

// The encoder's limits as "maxEncCapability" names them; an absent field is no limit (0).
struct CEncodeField {
    const char* key;
    uint32_t _tagVideoEncodeCapability::*field;
};
constexpr CEncodeField kEncodeFields[] = {{"uProfileLevelID", &_tagVideoEncodeCapability::uProfileLevelID},
                                          {"uMaxMBPS", &_tagVideoEncodeCapability::uMaxMBPS},
                                          {"uMaxFS", &_tagVideoEncodeCapability::uMaxFS},
                                          {"uMaxFPS", &_tagVideoEncodeCapability::uMaxFPS},
                                          {"uMaxBitRate", &_tagVideoEncodeCapability::uMaxBitRate},
                                          {"uMaxNalUnitSize", &_tagVideoEncodeCapability::uMaxNalUnitSize}};

ZynResult SetEncodeCapability(CMediaConnectionInfo& line, const json::Value& object)
{
    _tagVideoEncodeCapability capability{};
    for (const CEncodeField& f : kEncodeFields)
        if (object.contains(f.key) && !json::Get(object, f.key, capability.*f.field)) return ZYN_E_INVALIDARG;
    return line.SetLocalEncodeCapability(capability);
}

void ApplyVideo(CParamsApplier& a, CMediaConnectionInfo& line, CBaseVideoConfig& video)
{
    if (a.Object().contains("maxEncCapability")) {
        json::Object capability;
        a.Note(json::Get(a.Object(), "maxEncCapability", capability) ? SetEncodeCapability(line, capability)
                                                                     : ZYN_E_INVALIDARG);
    }
    a.Key<bool>("enableDecoderMosaic", Bool([&](bool v) {
        return line.KeepLocalTrackOption(kVideoDecoderMosaicOption, v ? "1" : "0");
    }));
    a.Key<int64_t>("eVideoQualityLevel", Int([&](int64_t v) {
        return InRange<int32_t>(v, ZynVideoQuality_90P, ZynVideoQuality_4K, [&](int32_t q) {
            return video.SetMaxCaptureQuality(static_cast<ZynVideoQualityType>(q));
        });
    }));
    a.Keys({"iMaxWidth", "iMaxHeight", "iMaxFrameRate", "iMaxSpacialLayer"}, [&](const int64_t (&v)[4]) {
        std::string record;
        for (int64_t x : v) {
            if (x < 0 || x > INT32_MAX) return ZYN_E_INVALIDARG;
            record += (record.empty() ? "" : ",") + std::to_string(x);
        }
        return line.KeepLocalTrackOption(kVideoMaxRecordOption, record.c_str());
    });
    for (const CVideoNumberKey& k : kVideoNumbers)
        a.Key<int64_t>(k.key, Int([&](int64_t v) {
            return InRange<uint32_t>(v, 0, UINT32_MAX, [&](uint32_t n) { return (video.*k.set)(n); });
        }));
    a.Key<int64_t>("ePacketizationMode", Int([&](int64_t v) {
        return InRange<int32_t>(v, ZynPacketizationMode_0, ZynPacketizationMode_1, [&](int32_t m) {
            return video.SetPacketizationMode(static_cast<ZynPacketizationMode>(m));
        });
    }));
    a.Key<bool>("bHWAcceleration", Bool([&](bool v) { return video.EnableHWAcceleration(v, ZynHWAcceleration_Both); }));
    a.Key<bool>("bHWEncoder", Bool([&](bool v) { return video.EnableHWAcceleration(v, ZynHWAcceleration_Encoder); }));
    a.Key<bool>("bHWDecoder", Bool([&](bool v) { return video.EnableHWAcceleration(v, ZynHWAcceleration_Decoder); }));
    for (const CVideoSwitchKey& k : kVideoSwitches) a.Key<bool>(k.key, Bool([&](bool v) { return (video.*k.set)(v); }));
    for (const char* key : {"decodeCodec", "encodeCodec"}) {
        if (!a.Object().contains(key)) continue;
        json::Array entries;
        if (!json::Get(a.Object(), key, entries)) {
            a.Note(ZYN_E_INVALIDARG);
            continue;
        }
        const bool decode = key[0] == 'd';
        for (const json::Value& entry : entries) {
            ZynCodecType codec = ZynCodecType_Unknown;
            ZynVideoCodecParams params{};
            if (!ParseCodecParams(entry, codec, params))
                a.Note(ZYN_E_INVALIDARG);
            else
                a.Note(decode ? video.SetDecodeParams(codec, params) : video.SetEncodeParams(codec, params));
        }
    }
}

void ApplyScreen(CParamsApplier& a, CShareConfig& share)
{
    a.Key<int64_t>("screenMaxCaptureFps", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t n) { return share.SetScreenMaxCaptureFps(n); });
    }));
    a.Key<int64_t>("downSampleMaxHeight", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX,
                                [&](int32_t n) { return share.SetScreenCaptureDownSampleMaxHeight(n); });
    }));
    a.Key<int64_t>("screenCodecMode", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t n) { return share.SetScreenCodecMode(n); });
    }));
    if (a.Object().contains("enableCaptureVideoContent")) {
        bool enable = false, withAudio = false;
        const bool typed = json::Get(a.Object(), "enableCaptureVideoContent", enable) &&
                           (!a.Object().contains("enableCaptureVideoContentWithAudio") ||
                            json::Get(a.Object(), "enableCaptureVideoContentWithAudio", withAudio));
        a.Note(typed ? share.EnableCaptureVideoContent(enable, withAudio) : ZYN_E_INVALIDARG);
    }
    a.Key<bool>("sharingOverVideoPipeline", Bool([&](bool v) { return share.SharingOverVideoPipeline(v); }));
}

// The camera of a video line. Pairs act only together, like the other grouped keys.
void ApplyCamera(CParamsApplier& a, CVideoConfig& camera)
{
    const json::Value& o = a.Object();
    const auto number = [&](const char* key, double& out) { return json::Get(o, key, out); };
    const auto pair = [&](const char* first, const char* second, const std::function<ZynResult(double, double)>& set) {
        if (!o.contains(first) || !o.contains(second)) return;
        double x = 0, y = 0;
        a.Note(number(first, x) && number(second, y) ? set(x, y) : ZYN_E_INVALIDARG);
    };
    if (o.contains("videoZoomFactor")) {
        double zoom = 0;
        a.Note(number("videoZoomFactor", zoom) ? camera.SetCameraZoomFactor(static_cast<float>(zoom)) : ZYN_E_INVALIDARG);
    }
    pair("cameraFocusAtPointX", "cameraFocusAtPointY",
         [&](double x, double y) { return camera.SetCameraFocusAtPoint(static_cast<float>(x), static_cast<float>(y)); });
    a.Key<int64_t>("exposureState", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t n) { return camera.SetCameraExposureState(n); });
    }));
    a.Key<int64_t>("flashMode", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t n) { return camera.SetCameraFlashMode(n); });
    }));
    a.Key<int64_t>("torchMode", Int([&](int64_t v) {
        return InRange<int32_t>(v, INT32_MIN, INT32_MAX, [&](int32_t n) { return camera.SetCameraTorchMode(n); });
    }));
    pair("exposureCustomeDuration", "exposureCustomeISO", [&](double duration, double iso) {
        return camera.SetCameraCustomExposure(static_cast<float>(duration), static_cast<float>(iso));
    });
}

void ReadCamera(json::Object& section, CMediaConnectionInfo& line)
{
    std::string value;
    for (auto [key, option] : {std::pair{"videoZoomFactor", "CAMERA_zoom_factor"},
                               std::pair{"exposureState", "CAMERA_exposure_state"},
                               std::pair{"flashMode", "CAMERA_flash_mode"},
                               std::pair{"torchMode", "CAMERA_torch_mode"}})
        if (line.GetLocalTrackOption(option, value) == ZYN_S_OK) section[key] = std::strtod(value.c_str(), nullptr);
    _tagCameraExposureInfo info{};
    if (line.GetVideoConfig().GetCameraExposureInfo(info) != ZYN_S_OK) return;
    section["exposureMaxState"] = info.maxState;
    section["exposureMinState"] = info.minState;
    section["exposureISO"] = info.isoNow;
    section["exposureMaxISO"] = info.maxIso;
    section["exposureMinISO"] = info.minIso;
    section["exposureDuration"] = info.durationNowMs;
    section["exposureMaxDuration"] = info.maxDurationMs;
    section["exposureMinDuration"] = info.minDurationMs;
}

void ReadVideo(json::Object& section, CMediaConnectionInfo& line, CBaseVideoConfig& video)
{
    if (line.GetSessionType() == ZynSessionType_Video) ReadCamera(section, line);
    _tagVideoEncodeCapability capability{};
    if (line.GetLocalEncodeCapability(capability) == ZYN_S_OK) {
        json::Object out;
        for (const CEncodeField& f : kEncodeFields) out[f.key] = capability.*f.field;
        section["maxEncCapability"] = out;
    }
    for (const CVideoSwitchKey& k : kVideoSwitches)
        if (video.GetTrackValue(k.option)) section[k.key] = video.IsTrackSwitchOn(k.option);
    for (const CVideoNumberKey& k : kVideoNumbers)
        if (const std::string* v = video.GetTrackValue(k.option)) section[k.key] = std::strtoll(v->c_str(), nullptr, 10);
    section["uMaxPacketSize"] = video.GetMaxPacketSize();
    section["ePacketizationMode"] = video.GetPacketizationMode();
    if (const std::string* q = video.GetTrackValue("VIDEO_max_capture_quality"))
        section["eVideoQualityLevel"] = std::strtoll(q->c_str(), nullptr, 10);
    section["isHardwareAccelerationEnabled"] = video.IsHWAccelerationEnabled(ZynHWAcceleration_Both);
    section["bHWEncoder"] = video.IsHWAccelerationEnabled(ZynHWAcceleration_Encoder);
    section["bHWDecoder"] = video.IsHWAccelerationEnabled(ZynHWAcceleration_Decoder);
    std::string value;
    if (line.GetLocalTrackOption(kVideoDecoderMosaicOption, value) == ZYN_S_OK)
        section["enableDecoderMosaic"] = value == "1";
    if (line.GetLocalTrackOption(kVideoMaxRecordOption, value) == ZYN_S_OK) {
        const char* keys[] = {"iMaxWidth", "iMaxHeight", "iMaxFrameRate", "iMaxSpacialLayer"};
        const char* p = value.c_str();
        for (const char* key : keys) {
            char* end = nullptr;
            section[key] = std::strtoll(p, &end, 10);
            p = *end == ',' ? end + 1 : end;
        }
    }
    for (bool decode : {true, false}) {
        json::Array entries;
        for (ZynCodecType codec : {ZynCodecType_AVC, ZynCodecType_SVC, ZynCodecType_AV1}) {
            ZynVideoCodecParams p{};
            if ((decode ? video.GetDecodeParams(codec, p) : video.GetEncodeParams(codec, p)) != ZYN_S_OK) continue;
            json::Object e;
            e["codec"] = ConvCodecTypeToString(codec);
            e["uProfileLevelID"] = p.uProfileLevelID;
            e["max-mbps"] = p.uMaxMBPS;
            e["max-fs"] = p.uMaxFS;
            e["max-fps"] = p.uMaxFPS;
            e["max-br"] = p.uMaxBR;
            if (decode) e["max_br_mode1"] = p.uMaxBRMode1;
            entries.push_back(e);
        }
        if (!entries.empty()) section[decode ? "decodeCodec" : "encodeCodec"] = entries;
    }
}

void ReadScreen(json::Object& section, CShareConfig& share)
{
    const CTrackKey numbers[] = {{"screenMaxCaptureFps", "SHARE_max_capture_fps"},
                                 {"downSampleMaxHeight", "SHARE_downsample_max_height"},
                                 {"screenCodecMode", "SHARE_codec_mode"}};
    for (const CTrackKey& k : numbers)
        if (const std::string* v = share.GetTrackValue(k.option)) section[k.key] = std::strtoll(v->c_str(), nullptr, 10);
    const CTrackKey switches[] = {{"enableCaptureVideoContent", "SHARE_capture_video_content"},
                                  {"enableCaptureVideoContentWithAudio", "SHARE_capture_video_content_audio"},
                                  {"sharingOverVideoPipeline", "SHARE_over_video_pipeline"}};
    for (const CTrackKey& k : switches)
        if (share.GetTrackValue(k.option)) section[k.key] = share.IsTrackSwitchOn(k.option);
}

}  // namespace

ZynResult CMediaConnection::SetParams(unsigned long mid, const char* params, unsigned int length)
{
    const std::string text = params ? std::string(params, strnlen(params, length)) : std::string();
    MS_INFO_TRACE("CMediaConnection::SetParams, begin, szParams=" << text << CONN_TAIL);
    if (!params) {
        CM_ASSERT_REPORT("szParams != __null");
        return Kick("SetParams", ZYN_E_INVALIDARG);
    }
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || !line->GetZynSession()) {
        CM_ASSERT_REPORT("info && info->m_pZynSession");
        return Kick("SetParams", ZYN_E_POINTER);
    }
    const json::Value object = json::Deserialize(text);
    if (!object.is_object()) {
        MS_ERROR_TRACE("CMediaConnection::SetParams, invalid input." << CONN_TAIL);
        return ZYN_E_INVALIDARG;
    }
    CParamsApplier global(object);
    ApplyGlobal(global, m_globalConfig, line->GetConfig(), *this);
    ZynResult result = global.Result();

    const char* name = SectionOf(line->GetSessionType());
    if (name && object.contains(name)) {
        json::Object section;
        if (!json::Get(object, name, section)) {
            result = ZYN_E_INVALIDARG;
        } else {
            CParamsApplier a(section);
            ApplyCommon(a, line->GetConfig());
            ApplyTrackKeys(a, *line, kCommonTrackSwitches, std::size(kCommonTrackSwitches), false);
            if (line->GetSessionType() == ZynSessionType_Audio || line->GetSessionType() == ZynSessionType_AudioSlide) {
                ApplyAudio(a, line->GetAudioConfig());
                ApplyAudioExtra(a, *line);
            }
            if (CBaseVideoConfig* video = line->GetBaseVideoConfig()) ApplyVideo(a, *line, *video);
            if (line->GetSessionType() == ZynSessionType_Video) ApplyCamera(a, line->GetVideoConfig());
            if (line->GetSessionType() == ZynSessionType_ScreenShare) ApplyScreen(a, line->GetShareConfig());
            if (ZYN_FAILED(a.Result())) result = a.Result();
        }
    }
    MS_INFO_TRACE("CMediaConnection::SetParams, end, cret=" << result << CONN_TAIL);
    return result;
}

const char* CMediaConnection::GetParams(unsigned long mid)
{
    json::Object out;
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) {
        m_paramsText = json::Serialize(out);
        return m_paramsText.c_str();
    }
    const CGlobalConfig& g = m_globalConfig;
    CBaseConfig& c = line->GetConfig();
    out["icePolicy"] = c.GetIcePolicy();
    out["connectionPolicy"] = c.GetConnectionPolicy();
    out["localPortMin"] = c.GetIceLocalPortRange().minPort;
    out["localPortMax"] = c.GetIceLocalPortRange().maxPort;
    out["enableQos"] = g.IsQosEnabled();
    out["enableDtlsSRTP"] = g.IsDtlsSRTPEnabled();
    out["supportCmulti"] = g.IsMultiStreamEnabled();
    out["enableDPC"] = g.isDPCEnabled();
    out["enableSRTP"] = g.IsSRTPEnabled();
    out["enableFQDNInICE"] = g.IsFQDNInICEEnabled();
    out["enableICE"] = g.IsICEEnabled();
    out["enableFastLane"] = g.IsFastLaneEnabled();
    out["enableRTCPMux"] = g.IsRTCPMuxEnabled();
    out["QoSMaxLossRatio"] = g.GetQoSMaxLossRatio();
    out["QoSMinBandwidth"] = g.GetQoSMinBandwidth();
    const auto& notification = g.GetNetworkNotificationParam();
    out["networkStatus"] = notification.status;
    out["networkDirection"] = notification.direction;
    out["waitMilliseconds"] = notification.waitMilliseconds;
    out["enableDSCP"] = g.IsDSCPEnable();
    out["DSCPofAudio"] = g.GetDSCPMarking(ZynSessionType_Audio);
    out["DSCPofVideo"] = g.GetDSCPMarking(ZynSessionType_Video);
    out["DSCPofScreen"] = g.GetDSCPMarking(ZynSessionType_ScreenShare);
    out["enablePerformanceStatDump"] = g.GetPerformanceTraceDump();
    // Keys whose default no setter takes are left out until set, so the text can be given back.
    if (g.HasFeatureToggles()) out["featureToggles"] = std::string(g.GetFeatureToggles());
    out["SetShowStunTraceIP"] = g.IsShowStunTraceIP();
    out["iceInactiveTimeout"] = g.GetICEInactiveTimeout();
    out["iceConnectTimeout"] = g.GetICEConnectTimeout();
    out["iceTerminateTimeout"] = g.GetICETerminateTimeout();
    if (g.GetSendMQEInMinutes() > 0) out["sendMQEDataInMinutes"] = g.GetSendMQEInMinutes();
    out["EnableMQECallback"] = g.IsMQECallbackEnabled();
    out["insecureLogs"] = g.IsInsecureLogsEnabled();
    int method = 0;
    if (g.GetAudioCaptureMethod(method) == ZYN_S_OK) out["AudioCaptureMethod"] = method;
    if (g.GetAudioPlaybackMethod(method) == ZYN_S_OK) out["AudioPlaybackMethod"] = method;

    if (const char* name = SectionOf(line->GetSessionType())) {
        json::Object section;
        json::Object fec;
        fec["bEnableFec"] = c.IsFecEnabled();
        ZynSobeFecInfo info{};
        c.GetFecInfo(info, eStreamDirection_In);
        fec["uVersion"] = info.uVersion;
        fec["uClockRate"] = info.uClockRate;
        fec["uPayloadType"] = info.uPayloadType;
        json::Object format;
        format["bMultiSsrc"] = info.fecFmtInfo.bMultiSsrc;
        format["uM"] = info.fecFmtInfo.uM;
        format["uMaxN"] = info.fecFmtInfo.uMaxN;
        format["uMaxEsel"] = info.fecFmtInfo.uMaxEsel;
        fec["fecFmtInfo"] = format;
        fec["srtpFecOrder"] = c.GetSrtpFecOrder() == ZynSecurityFECOrder_FEC_SRTP ? "ORDER_FEC_SRTP" : "ORDER_SRTP_FEC";
        fec["uMaxFecOverhead"] = c.GetMaxFecOverhead();
        // Read back under another name than the one SetParams takes, as applications expect.
        fec["uFecProbing"] = c.IsFecProbingEnabled();
        fec["dynamicFecScheme"] = c.GetDynamicFecScheme() == DynamicFECLevelScheme_LossRatioWithPriority
                                      ? "LOSS_RATIO_WITH_PRIORITY"
                                      : "ONLY_LOSS_RATIO";
        section["fecParams"] = fec;
        json::Object rtx;
        rtx["bEnableRtx"] = c.IsRtxEnabled();
        section["rtxParams"] = rtx;
        section["recordLossData"] = c.IsRecordLossDataEnabled();
        section["uMaxBandwidth"] = c.GetMaxBandwidth();
        section["uInitBandWidth"] = c.GetInitBandwidth();
        if (c.GetPreferedCodec() != ZynCodecType_Unknown)
            section["preferedCodec"] = ConvCodecTypeToString(c.GetPreferedCodec());
        if (c.GetSelectedCodec() != ZynCodecType_Unknown)
            section["selectedCodec"] = ConvCodecTypeToString(c.GetSelectedCodec());
        section["uMaxStreamsCount"] = c.GetMaxStreamsCount();
        section["subscribePolicy"] = c.GetSubscribePolicy();
        section["maxAvailableSources"] = c.GetMaxAvailableSources(c.GetSubscribePolicy());
        section["enableBGRA"] = g.IsBGRAEnabled();
        if (line->GetSessionType() == ZynSessionType_Audio || line->GetSessionType() == ZynSessionType_AudioSlide) {
            CAudioConfig& audio = line->GetAudioConfig();
            section["enableAGC"] = audio.IsEngineSwitchOn("AAGC_aagc_enabled");
            section["enableEC"] = audio.IsEngineSwitchOn("AEC_aec_enabled");
            section["enableNS"] = audio.IsEngineSwitchOn("AEC_record_nr_enabled");
            section["enableBNR"] = audio.IsEngineSwitchOn("BNR_bnr_enabled");
            section["enableLAECex"] = audio.IsEngineSwitchOn("AEC_laecex_enabled");
            section["EnhaceFarEndVAD"] = audio.IsEngineSwitchOn("AEC_enhance_far_end_vad");
            ZynAecType aec = ZynAecTypeNone;
            if (audio.GetECType(aec) == ZYN_S_OK) section["getAecType"] = aec;
            ReadTrackKeys(section, *line, kAudioTrackSwitches, std::size(kAudioTrackSwitches), false);
            ReadTrackKeys(section, *line, kAudioTrackNumbers, std::size(kAudioTrackNumbers), true);
            std::string value;
            if (line->GetLocalTrackOption(kAudioDumpMaskOption, value) == ZYN_S_OK) {
                const uint32_t mask = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
                for (size_t bit = 0; bit < std::size(kAudioDumpBits); ++bit)
                    section[kAudioDumpBits[bit]] = (mask >> bit & 1u) != 0;
            }
            if (line->GetLocalTrackOption(kAudioDumpPathOption, value) == ZYN_S_OK)
                section["enableKeyDumpFilesPath"] = value;
            if (line->GetSendCodec() != ZynCodecType_Unknown)
                section["audioCodec"] = ConvCodecTypeToString(line->GetSendCodec());
            if (*c.GetSrtpCryptoSuite()) {
                json::Array suites;
                suites.push_back(c.GetSrtpCryptoSuite());
                section["srtpKey"] = suites;
            }
        }
        ReadTrackKeys(section, *line, kCommonTrackSwitches, std::size(kCommonTrackSwitches), false);
        if (CBaseVideoConfig* video = line->GetBaseVideoConfig()) ReadVideo(section, *line, *video);
        if (line->GetSessionType() == ZynSessionType_ScreenShare) ReadScreen(section, line->GetShareConfig());
        out[name] = section;
    }
    m_paramsText = json::Serialize(out);
    return m_paramsText.c_str();
}

}  // namespace zyn
