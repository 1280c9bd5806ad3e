// Feature toggles (a flat JSON object that switches experimental behaviour of one connection) and
// the debug options given with AddMedia for one line. Caller's thread, like the setters they use.
#include <cstdlib>
#include <functional>
#include <string>

#include "connection/MediaConnection.h"
#include "config/MediaConfigs.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmTpOption.h"
#include "util/CmJson.h"
#include "util/CmTrace.h"

#define CONN_TAIL MS_TAIL("", m_callId)

namespace zyn {

namespace {

const char* TypeName(const json::Value& v)
{
    return v.type_name();
}

// A toggle read as a bool: the bool true or the text "true".
bool AsBool(const json::Value& v)
{
    return (v.is_boolean() && v.get<bool>()) || (v.is_string() && v.get<std::string>() == "true");
}

// A toggle read as a number: a number, or a text in base 10. False (with the trace) for any other type.
bool AsNumber(const char* key, const json::Value& v, long& out)
{
    if (v.is_number()) {
        out = static_cast<long>(v.get<double>());
        return true;
    }
    if (v.is_string()) {
        out = std::strtol(v.get<std::string>().c_str(), nullptr, 10);
        return true;
    }
    MS_ERROR_TRACE("CMediaConnection::SetFeatureToggles," << key << " with wrong type: " << TypeName(v));
    return false;
}

// Experimental switches of the audio engine that have no setter of their own: passed by their key.
constexpr const char* kAudioPassThrough[] = {"EnableCaptureRawData", "EnableAECJointNLP", "EnhanceLinearFilterInAEC",
                                            "MoreDagcGain", "EnableMQEAudioProcessDataUpload", "EnableMuteDetection"};
constexpr const char* kVideoPassThrough[] = {"VideoStrategyEnableFPSAdjust", "VideoStrategyEnableMaxQPAdjust"};

}  // namespace

void CMediaConnection::SetFeatureToggles(const char* text)
{
    const json::Value parsed = text ? json::Deserialize(text) : json::Value();
    if (!parsed.is_object()) {
        MS_ERROR_TRACE("CMediaConnection::SetFeatureToggles, invalid json object string: " << (text ? text : "")
                                                                                          << CONN_TAIL);
        return;
    }
    if (parsed == m_featureToggles) {
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, same json object string: " << text << CONN_TAIL);
        return;
    }
    m_featureToggles = parsed;
    const std::string compact = json::Serialize(parsed);

    // Every session sees the whole text.
    for (CMediaConnectionInfo* line : m_connections)
        if (IZynMediaSession* session = line->GetZynSession())
            session->SetOption(CMediaConnectionInfo::kSessionOptionFeatureToggles, compact.c_str(),
                               static_cast<uint32_t>(compact.size()));

    auto has = [&](const char* key) { return parsed.contains(key); };
    auto flag = [&](const char* key) { return AsBool(parsed[key]); };
    auto engineText = [&](const std::string& value) {
        if (m_pZynEngine)
            m_pZynEngine->SetOption(kEngineOptionFeatureText, value.c_str(), static_cast<uint32_t>(value.size()));
    };
    auto audio = [&](ZynSessionType type) -> CAudioConfig* {
        CMediaConnectionInfo* line = FindConnection(type);
        return line ? &line->GetAudioConfig() : nullptr;
    };
    auto passThrough = [&](ZynSessionType type, const char* key, const std::string& value) {
        if (CMediaConnectionInfo* line = FindConnection(type)) line->SetLocalTrackOption(key, value.c_str());
    };
    long number = 0;

    if (has("ConnectionTimeEnhancement") && AsNumber("ConnectionTimeEnhancement", parsed["ConnectionTimeEnhancement"], number)) {
        const int32_t value = static_cast<int32_t>(number);
        TPSetOption(CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT, &value);
    }
    if (has("media-sobe-rate-adaptation") && parsed["media-sobe-rate-adaptation"].is_string())
        engineText(parsed["media-sobe-rate-adaptation"].get<std::string>());
    if (has("EnableInsensitiveUDPPhase1") && flag("EnableInsensitiveUDPPhase1")) engineText("insensitive_udp_1");
    if (has("EnableInsensitiveUDPPhase2") && flag("EnableInsensitiveUDPPhase2")) engineText("defer-downgrade");
    if (has("EnableInherentLossProbing") && flag("EnableInherentLossProbing")) engineText("inherentloss-probing");
    if (has("VideoStrategyEnableFPSAdjust") && FindConnection(ZynSessionType_Video))
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, enable Fps adaptive strategy successfully" << CONN_TAIL);

    const struct {
        const char* key;
        ZynSessionType type;
    } retransmission[] = {{"EnableRetransmissionForAudio", ZynSessionType_Audio},
                          {"EnableRetransmissionForHfpsAudio", ZynSessionType_AudioSlide},
                          {"EnableRetransmissionForVideo", ZynSessionType_Video},
                          {"EnableRetransmissionForHfpsShare", ZynSessionType_ScreenShare}};
    for (const auto& r : retransmission)
        if (has(r.key) && flag(r.key))
            if (CMediaConnectionInfo* line = FindConnection(r.type)) line->GetConfig().EnableRtx(true);

    // Hybrid resilience: which packets each protection covers, on every line.
    const struct {
        const char* key;
        uint32_t bit;
    } dataFlows[] = {{"EnableRetransmissionForFEC", CBaseConfig::kDataFlowRtxAll},
                     {"EnableFECForRetransmission", CBaseConfig::kDataFlowFecRtx}};
    for (const auto& d : dataFlows) {
        if (!has(d.key)) continue;
        const bool on = flag(d.key);
        if (d.bit == CBaseConfig::kDataFlowFecRtx)
            MS_INFO_TRACE("CMediaConnection::SetFeatureToggles,EnableFECForRetransmission: " << on << CONN_TAIL);
        for (CMediaConnectionInfo* line : m_connections) {
            CBaseConfig& config = line->GetConfig();
            const uint32_t flow = config.GetHybridResilienceDataFlow();
            config.SetHybridResilienceDataFlow(on ? (flow | d.bit) : (flow & ~d.bit));
        }
    }
    if (has("DynamicFecModeWithRTX") && parsed["DynamicFecModeWithRTX"].is_string()) {
        const std::string mode = parsed["DynamicFecModeWithRTX"].get<std::string>();
        if (mode == "TABLE_LOOKUP_ONLY" || mode == "BURST_LENGTH_ONLY")
            for (CMediaConnectionInfo* line : m_connections)
                if (IZynMediaSession* session = line->GetZynSession())
                    session->SetNamedOption("DynamicFecModeWithRTX", mode.c_str());
    }

    if (has("AudioJitterBufferFeatures") && AsNumber("AudioJitterBufferFeatures", parsed["AudioJitterBufferFeatures"], number)) {
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles,AudioJitterBufferFeatures with value:" << number << CONN_TAIL);
        passThrough(ZynSessionType_Audio, "AudioJitterBufferFeatures", std::to_string(number));
    }

    // Switches of the audio configuration, each through its setter.
    const struct {
        const char* key;
        std::function<ZynResult(CAudioConfig&, bool)> set;
    } audioSwitches[] = {
        {"EnableMusicDetection", [](CAudioConfig& a, bool v) { return a.MusicDetection(v); }},
        {"EnablClipVolumeCtl", [](CAudioConfig& a, bool v) { return a.SetClipCtl(v); }},
        {"EnableNewAgc", [](CAudioConfig& a, bool v) { return a.EnableNewAgc(v); }},
        {"EnableCaptureDagc", [](CAudioConfig& a, bool v) { return a.EnableDAGC(v, true); }},
        {"EnablePlaybackDagc", [](CAudioConfig& a, bool v) { return a.EnableDAGC(v, false); }},
        {"EnableFullbandAudio", [](CAudioConfig& a, bool v) { return a.SetFullBandAudio(v); }},
        {"LessEchoMode", [](CAudioConfig& a, bool v) { return a.SetLessEchoMode(v); }},
        {"DelayEstEx", [](CAudioConfig& a, bool v) { return a.SetDelayEstEx(v); }},
        {"EnhanceFarEndVAD", [](CAudioConfig& a, bool v) { return a.EnhaceFarEndVAD(v); }},
        {"EnableNewBNR", [](CAudioConfig& a, bool v) { return a.EnableNewBNR(v); }},
    };
    for (const auto& s : audioSwitches)
        if (has(s.key))
            if (CAudioConfig* a = audio(ZynSessionType_Audio)) s.set(*a, flag(s.key));
    if (has("EnableImprovedAagc")) {
        // Either the switch itself or an object that carries it under "EnableImproved".
        const json::Value& v = parsed["EnableImprovedAagc"];
        const bool on = v.is_object() ? (v.contains("EnableImproved") && AsBool(v["EnableImproved"])) : AsBool(v);
        if (CAudioConfig* a = audio(ZynSessionType_Audio)) a->EnableImprovedAagc(on);
    }
    for (const char* key : kAudioPassThrough)
        if (has(key)) passThrough(ZynSessionType_Audio, key, flag(key) ? "1" : "0");

    for (const char* key : {"CameraImageQualityOverFrameRate", "CameraImageQualityOverFrameSize"}) {
        if (!has(key) || !AsNumber(key, parsed[key], number) || !FindConnection(ZynSessionType_Video)) continue;
        passThrough(ZynSessionType_Video, key, std::to_string(number));
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, enable " << key << " successfully" << CONN_TAIL);
    }
    for (const char* key : kVideoPassThrough)
        if (has(key)) passThrough(ZynSessionType_Video, key, flag(key) ? "1" : "0");
    if (has("VideoStrategyEnableMaxQPAdjust") && FindConnection(ZynSessionType_Video))
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, enable MaxQP successfully" << CONN_TAIL);

    long threshold = 0, interval = 0;
    if (has("cpu_high_usage") && has("cpu_time_counter") && AsNumber("cpu_high_usage", parsed["cpu_high_usage"], threshold) &&
        AsNumber("cpu_time_counter", parsed["cpu_time_counter"], interval))
        m_globalConfig.SetCpuHighUsageThreshold(static_cast<float>(threshold), static_cast<float>(interval));

    if (has("EnableAV1bySessionType") && AsNumber("EnableAV1bySessionType", parsed["EnableAV1bySessionType"], number)) {
        // A mask of session types, bit n for type n.
        for (ZynSessionType type : {ZynSessionType_Video, ZynSessionType_ScreenShare}) {
            if (!(number & (1L << type))) continue;
            CMediaConnectionInfo* line = FindConnection(type);
            CBaseVideoConfig* video = line ? line->GetBaseVideoConfig() : nullptr;
            if (!video) continue;
            const ZynResult result = video->EnableAV1(true);
            MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, EnableAV1 SessionType = "
                          << static_cast<int>(type) << ", isEnableAV1bySessionType(0 means OK)=" << result << CONN_TAIL);
        }
    }
    const struct {
        const char* key;
        std::function<ZynResult(CShareConfig&, bool)> set;
    } shareSwitches[] = {
        {"ForceSharingStrictRegionCheck", [](CShareConfig& s, bool v) { return s.SkipSharingStrictRegionCheck(!v); }},
        {"EnableAV1RGBEncoding", [](CShareConfig& s, bool v) { return s.EnableAV1RGBEncoding(v); }},
        {"EnableImmersiveSharing", [](CShareConfig& s, bool v) { return s.EnableImmersiveSharing(v); }},
        {"EnableHighFidelitySharing", [](CShareConfig& s, bool v) { return s.EnableHighFidelityTextShare(v); }},
        {"EnableCapturerWindowBaseContent", [](CShareConfig& s, bool v) { return s.EnableCapturerWindowBaseContent(v); }},
    };
    if (CMediaConnectionInfo* share = FindConnection(ZynSessionType_ScreenShare))
        for (const auto& s : shareSwitches)
            if (has(s.key)) s.set(share->GetShareConfig(), flag(s.key));
    if (has("EnableAV1RGBEncoding"))
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, EnableAV1RGBEncoding =" << flag("EnableAV1RGBEncoding")
                                                                                   << CONN_TAIL);
    if (has("EnableImmersiveSharing"))
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, EnableImmersiveSharing=" << flag("EnableImmersiveSharing")
                                                                                    << " --ims-- " << CONN_TAIL);
    if (has("EnableCapturerWindowBaseContent"))
        MS_INFO_TRACE("CMediaConnection::SetFeatureToggles, EnableCapturerWindowBaseContent="
                      << flag("EnableCapturerWindowBaseContent") << " --ims-- " << CONN_TAIL);
}

bool CMediaConnection::GetFeatureToggles(json::Value& out) const
{
    if (!m_featureToggles.is_object() || m_featureToggles.empty()) {
        MS_INFO_TRACE("CMediaConnection::GetFeatureToggles, the feature toggle is empty." << CONN_TAIL);
        return false;
    }
    out = m_featureToggles;
    return true;
}

ZynResult CMediaConnection::ProcessDebugOption(ZynSessionType type, unsigned long mid, const char* option)
{
    MS_INFO_TRACE("CMediaConnection::ProcessDebugOption, type=" << static_cast<int>(type) << ", mid=" << mid
                                                                << ", option=" << (option ? option : "") << CONN_TAIL);
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || !option) return ZYN_E_INVALIDARG;
    const json::Value o = json::Deserialize(option);
    if (!o.is_object()) return ZYN_E_INVALIDARG;
    CBaseConfig& config = line->GetConfig();
    ZynResult result = ZYN_S_OK;
    auto note = [&](ZynResult r) {
        if (ZYN_FAILED(r)) result = r;
    };

    json::Object file;
    if (json::Get(o, "fileCapture", file)) {
        std::string path;
        bool loop = false;
        json::Get(file, "path", path);
        json::Get(file, "isLoop", loop);
        note(config.EnableFileCapture(path.c_str(), loop, true));
    }
    if (json::Get(o, "fileRender", file)) {
        std::string path;
        json::Get(file, "path", path);
        note(config.EnableFileRender(path.c_str(), true));
    }
    const struct {
        const char* key;
        ZynResult (CGlobalConfig::*set)(bool);
    } switches[] = {{"enableSRTP", &CGlobalConfig::EnableSRTP},       {"enableDtlsSRTP", &CGlobalConfig::EnableDtlsSRTP},
                    {"enableICE", &CGlobalConfig::EnableICE},         {"enableFastLane", &CGlobalConfig::EnableFastLane},
                    {"enableRTCPMux", &CGlobalConfig::EnableRTCPMux}, {"enableBGRA", &CGlobalConfig::EnableBGRA}};
    for (const auto& s : switches) {
        bool value = false;
        if (json::Get(o, s.key, value)) note((m_globalConfig.*s.set)(value));
    }
    uint16_t portBegin = 0, portEnd = 0;
    if (json::Get(o, "localPortBegin", portBegin) && json::Get(o, "localPortEnd", portEnd))
        line->GetIceConnector().SetPortRange(portBegin, portEnd);
    std::string ip, vip;
    const bool hasIp = json::Get(o, "localIP", ip), hasVip = json::Get(o, "localVIP", vip);
    if (hasIp || hasVip) line->GetIceConnector().SetLocalIP(hasIp ? ip : vip, hasVip ? vip : ip);
    std::string overrideIp;
    uint16_t overridePort = 0;
    if (json::Get(o, "overrideMediaIPAddress", overrideIp) && json::Get(o, "overrideMediaPort", overridePort))
        note(config.OverrideMediaIPAddress(overrideIp.c_str(), overridePort));
    uint32_t policy = 0;
    if (json::Get(o, "icePolicy", policy)) {
        MS_INFO_TRACE("Overide the ICE policy by debug option." << CONN_TAIL);
        note(config.SetIcePolicy(policy));
    }
    uint32_t dataDump = 0;
    if (CBaseVideoConfig* video = line->GetBaseVideoConfig(); video && json::Get(o, "enableDataDump", dataDump))
        note(video->SetDataDumpFlag(dataDump));
    int32_t dump = 0;
    if (json::Get(o, "enablePerformanceStatDump", dump))
        note(m_globalConfig.EnablePerformanceTraceDump(static_cast<ZynPerformanceDumpType>(dump)));
    return result;
}

}  // namespace zyn
