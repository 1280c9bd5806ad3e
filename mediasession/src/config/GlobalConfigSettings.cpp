// ICE parameters, reporting options and the JSON documents the connection takes.
#include <cstring>

#include "config/GlobalConfig.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

const char* ConvPerformanceDumpTypeToString(ZynPerformanceDumpType type)
{
    switch (type) {
    case ZynPerformanceDump_None: return "None";
    case ZynPerformanceDump_CPU: return "CPU";
    case ZynPerformanceDump_Memory: return "Memory";
    case ZynPerformanceDump_All: return "All";
    default: return "Unknown";
    }
}

}  // namespace

ZynResult CGlobalConfig::getICEServerAtIndex(int index, tagICEServer& server) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_iceServers.size()) return ZYN_E_INVALIDARG;
    server = m_iceServers[static_cast<size_t>(index)];
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::AddICEServer(const tagICEServer& server)
{
    MS_INFO_TRACE("CGlobalConfig::AddICEServer, host=" << std::string(server.host, strnlen(server.host, sizeof server.host))
                                                       << ", port=" << server.port << ", kind=" << server.kind);
    if (RefusedAfterStart("AddICESrv")) return ZYN_E_FAIL;
    if (strnlen(server.host, sizeof server.host) == sizeof server.host || server.host[0] == '\0' || server.port == 0 ||
        (server.kind != ZynIceServer_TURN && server.kind != ZynIceServer_STUN))
        return ZYN_E_INVALIDARG;
    m_iceServers.push_back(server);
    // Credentials are text of at most 127 characters: the copy ends them, whatever came in.
    tagICEServer& kept = m_iceServers.back();
    kept.username[sizeof kept.username - 1] = '\0';
    kept.password[sizeof kept.password - 1] = '\0';
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::ClearICEServers()
{
    if (RefusedAfterStart("ClrICESrv")) return ZYN_E_FAIL;
    m_iceServers.clear();
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::EnableRelayOnly(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableRelayOnly, value=" << enable);
    if (RefusedAfterStart("EnRelayOnly")) return ZYN_E_FAIL;
    m_bRelayOnly = enable;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::EnableFQDNInICE(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableFQDNInICE, value=" << enable);
    m_bFQDNInICE = enable;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetShowStunTraceIP(bool show)
{
    MS_INFO_TRACE("CGlobalConfig::SetShowStunTraceIP, value=" << show);
    m_bShowStunTraceIP = show;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetICETimeoutParams(int inactive, int connect, int terminate)
{
    MS_INFO_TRACE("CGlobalConfig::SetICETimeoutParams, inactive=" << inactive << ", connect=" << connect
                                                                  << ", terminate=" << terminate);
    if (inactive < 0 || connect < 0 || terminate < 0) return ZYN_E_INVALIDARG;
    m_iceInactiveTimeout = inactive;
    m_iceConnectTimeout = connect;
    m_iceTerminateTimeout = terminate;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetICENoListen(bool noListen)
{
    MS_INFO_TRACE("CGlobalConfig::SetICENoListen, value=" << noListen);
    m_bICENoListen = noListen;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::EnableAppPackAsSTUN(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableAppPackAsSTUN, value=" << enable);
    m_bAppPackAsSTUN = enable;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::EnableInsecureLogs(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableInsecureLogs, value=" << enable);
    m_bInsecureLogs = enable;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetDebugFlag(unsigned int flag)
{
    MS_INFO_TRACE("CGlobalConfig::SetDebugFlag, debugflag=" << flag);
    m_debugFlag = flag;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetBundleIdentifier(const char* identifier, unsigned int length)
{
    if (!identifier) return ZYN_E_INVALIDARG;
    m_bundleIdentifier.assign(identifier, strnlen(identifier, length));
    MS_INFO_TRACE("CGlobalConfig::SetBundleIdentifier, value=" << m_bundleIdentifier);
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction,
                                                     unsigned int waitMilliseconds)
{
    MS_INFO_TRACE("CGlobalConfig::SetNetworkNotificationParam, status=" << static_cast<int>(status) << ", direction="
                  << static_cast<int>(direction) << ", waitMilliseconds=" << waitMilliseconds);
    const bool validDirection = direction == ZynNetworkDirection_Uplink || direction == ZynNetworkDirection_Downlink ||
                                direction == ZynNetworkDirection_Both;
    if (!validDirection || status < ZynNetwork_Recovered || status > ZynNetwork_Video_Off) {
        Metric("SetNWNotifyParam", ZYN_E_INVALIDARG);
        return ZYN_E_INVALIDARG;
    }
    return StoreItem("SetNWNotifyParam", m_networkNotification,
                     CNetworkNotificationParam{status, direction, waitMilliseconds},
                     EGlobalConfigItem::NetworkNotification);
}

ZynResult CGlobalConfig::EnablePerformanceTraceDump(ZynPerformanceDumpType type)
{
    MS_INFO_TRACE("CGlobalConfig::EnablePerformanceTraceDump, value=" << ConvPerformanceDumpTypeToString(type));
    if (type < ZynPerformanceDump_None || type > ZynPerformanceDump_All) {
        Metric("EnPerfTracDump", ZYN_E_INVALIDARG);
        return ZYN_E_INVALIDARG;
    }
    return StoreItem("EnPerfTracDump", m_performanceDump, type, EGlobalConfigItem::PerformanceTraceDump);
}

ZynResult CGlobalConfig::setSendMQEInMinutes(int minutes)
{
    MS_INFO_TRACE("CGlobalConfig::setSendMQEInMinutes, value=" << minutes);
    // A report interval of no minutes at all would mean a report on every tick.
    if (minutes <= 0) return ZYN_E_FAIL;
    return StoreItem(nullptr, m_sendMQEInMinutes, static_cast<int32_t>(minutes), EGlobalConfigItem::SendMQEInMinutes);
}

ZynResult CGlobalConfig::EnableMQECallback(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableMQECallback, value=" << enable);
    return StoreItem(nullptr, m_bMQECallback, enable, EGlobalConfigItem::MQECallback);
}

ZynResult CGlobalConfig::EnableBandwidthRollback(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableBandwidthRollback, value=" << enable);
    return StoreItem(nullptr, m_bBandwidthRollback, enable, EGlobalConfigItem::BandwidthRollback);
}

ZynResult CGlobalConfig::SetFeatureToggles(const char* toggles)
{
    ZynResult result = ZYN_S_FALSE;
    json::Value parsed = toggles ? json::Deserialize(toggles) : json::Value();
    if (parsed.is_object()) {
        m_featureTogglesText = json::Serialize(parsed);
        m_featureToggles = std::move(parsed);
        m_bFeatureTogglesSet = true;
        // The toggles are taken whatever the connection makes of them; its code goes to the trace.
        const ZynResult applied =
            m_pMediaConnection ? m_pMediaConnection->OnGlobalConfigChanged(EGlobalConfigItem::FeatureToggles) : 0;
        if (ZYN_FAILED(applied)) MS_WARNING_TRACE("CGlobalConfig::SetFeatureToggles, applied=" << applied);
        result = ZYN_S_OK;
    }
    MS_INFO_TRACE("CGlobalConfig::SetFeatureToggles, ret=" << result);
    return result;
}

ZynResult CGlobalConfig::SetDeviceMediaSettings(const char* settings)
{
    MS_INFO_TRACE("CGlobalConfig::SetDeviceMediaSettings, setting=" << (settings ? settings : "(null)"));
    const json::Value parsed = settings ? json::Deserialize(settings) : json::Value();
    if (!parsed.is_object()) return ZYN_S_FALSE;
    if (!m_pMediaConnection) return ZYN_S_OK;
    ZynResult result = ZYN_S_OK;
    auto apply = [&](EStaticPerformanceSetting part) {
        const ZynResult r = m_pMediaConnection->ApplyStaticPerformanceSetting(part, parsed);
        if (ZYN_FAILED(r)) result = r;
    };
    if (parsed.contains("audio")) apply(EStaticPerformanceSetting::Audio);
    if (parsed.contains("hw-whitelist") || parsed.contains("performance")) apply(EStaticPerformanceSetting::Capabilities);
    if (parsed.contains("enable_sw720p")) apply(EStaticPerformanceSetting::Video);
    return result;
}

}  // namespace zyn
