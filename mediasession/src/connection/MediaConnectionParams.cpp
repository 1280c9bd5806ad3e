// Settings by JSON text: SetParams applies each key it finds through the typed configuration
// setters, GetParams reads them back in the same shape. Caller's thread, like the setters.
#include <cstring>
#include <functional>
#include <string>

#include "config/CodecConversion.h"
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
            if (line->GetSessionType() == ZynSessionType_Audio || line->GetSessionType() == ZynSessionType_AudioSlide)
                ApplyAudio(a, line->GetAudioConfig());
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
        }
        out[name] = section;
    }
    m_paramsText = json::Serialize(out);
    return m_paramsText.c_str();
}

}  // namespace zyn
