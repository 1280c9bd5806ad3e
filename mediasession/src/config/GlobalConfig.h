// The configuration of one connection as a whole. The connection embeds one and is its owner:
// it reads the values back through the getters below and is told of each change that acts
// outside this object (engine options, lines, dynamic performance control).
//
// Threads: set on the application's thread, mostly before the call started; read by the
// connection and its lines.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "config/ConfigOwner.h"
#include "mediasession/ZynMediaConfig.h"
#include "util/CmJson.h"

namespace zyn {

class CGlobalConfig : public virtual IGlobalConfig {
public:
    // Engine options of the QoS settings; each takes four bytes.
    static constexpr int32_t kEngineOptionQoSMaxLossRatio = 500;
    static constexpr int32_t kEngineOptionQoSMinBandwidth = 501;
    static constexpr int32_t kEngineOptionQoSInitBandwidth = 504;
    static constexpr int32_t kEngineOptionQoSMaxBandwidth = 507;

    explicit CGlobalConfig(IGlobalConfigOwner* owner = nullptr);
    ~CGlobalConfig() override = default;
    CGlobalConfig(const CGlobalConfig&) = delete;
    CGlobalConfig& operator=(const CGlobalConfig&) = delete;

    // IGlobalConfig: connection switches.
    bool IsQosEnabled() const override { return m_bQos; }
    ZynResult EnableQos(bool enable) override;
    ZynResult EnableDPC(bool enable) override;
    bool IsMultiStreamEnabled() const override { return m_bMultiStream; }
    ZynResult EnableMultiStream(bool enable) override;
    bool IsICEEnabled() const override { return m_bICE; }
    ZynResult EnableICE(bool enable) override;
    bool IsSRTPEnabled() const override { return m_bSRTP; }
    ZynResult EnableSRTP(bool enable) override;
    bool IsDtlsSRTPEnabled() const override { return m_bDtlsSRTP; }
    ZynResult EnableDtlsSRTP(bool enable) override;
    ZynResult EnableRTCPMux(bool enable) override;
    bool IsRTCPMuxEnabled() const override { return m_bRTCPMux; }
    ZynResult EnableBGRA(bool enable) override;
    bool IsBGRAEnabled() const override { return m_bBGRA; }
    ZynResult EnableDSCP(bool enable) override;
    bool IsDSCPEnable() const override { return m_bDSCP; }
    ZynResult SetDSCPMarking(unsigned int audio, unsigned int video, unsigned int screen) override;
    ZynResult EnableFastLane(bool enable) override;
    ZynResult UseHttpUpgrade(bool use) override;
    ZynResult SobeSupported(bool supported) override;
    ZynResult EnableSendingCSRC(bool enable) override;
    ZynResult SetClientType(ZynClientType type) override;
    ZynClientType GetClientType() const override { return m_clientType; }

    // IGlobalConfig: QoS engine options.
    float GetQoSMaxLossRatio() const override { return m_qosMaxLossRatio; }
    ZynResult SetQoSMaxLossRatio(float ratio) override;
    unsigned int GetQoSMinBandwidth() const override { return m_qosMinBandwidth; }
    ZynResult SetQoSMinBandwidth(unsigned int bandwidth) override;
    ZynResult SetQoSMaxBandwidth(unsigned int bandwidth) override;
    unsigned int GetQoSInitBandwidth() const override { return m_qosInitBandwidth; }
    ZynResult SetQoSInitBandwidth(unsigned int bandwidth) override;

    // IGlobalConfig: ICE.
    int getICEServerNum() const override { return static_cast<int>(m_iceServers.size()); }
    ZynResult getICEServerAtIndex(int index, tagICEServer& server) const override;
    ZynResult EnableFQDNInICE(bool enable) override;
    bool IsFQDNInICEEnabled() const override { return m_bFQDNInICE; }
    ZynResult SetShowStunTraceIP(bool show) override;
    ZynResult SetICETimeoutParams(int inactive, int connect, int terminate) override;
    ZynResult SetICENoListen(bool noListen) override;
    ZynResult EnableAppPackAsSTUN(bool enable) override;
    bool IsEnableAppPackAsSTUN() const override { return m_bAppPackAsSTUN; }
    ZynResult AddICEServer(const tagICEServer& server) override;
    ZynResult ClearICEServers() override;
    ZynResult EnableRelayOnly(bool enable) override;
    bool IsRelayOnly() const override { return m_bRelayOnly; }

    // IGlobalConfig: reporting, performance, engine.
    ZynResult SetNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction,
                                          unsigned int waitMilliseconds) override;
    ZynResult SetDeviceMediaSettings(const char* settings) override;
    ZynResult EnablePerformanceTraceDump(ZynPerformanceDumpType type) override;
    ZynResult SetFeatureToggles(const char* toggles) override;
    const char* GetFeatureToggles() const override { return m_featureTogglesText.c_str(); }
    ZynResult setSendMQEInMinutes(int minutes) override;
    ZynResult EnableMQECallback(bool enable) override;
    ZynResult EnableFixAudioProcessingArch(bool enable) override;
    ZynResult EnableInsecureLogs(bool enable) override;
    bool CheckHWAcceleration() override;
    bool CheckHWAccelerationDefaultOption() override;
    ZynResult SetCpuHighUsageThreshold(float threshold, float interval) override;
    ZynResult EnableBandwidthRollback(bool enable) override;
    ZynResult SetDebugFlag(unsigned int flag) override;
    unsigned int GetDebugFlag() const override { return m_debugFlag; }
    bool CheckPortraitSupported(bool front) override;
    bool CheckGestureSupported() override;
    ZynResult SetAudioCaptureMethod(int method) override;
    ZynResult GetAudioCaptureMethod(int& method) const override;
    ZynResult SetAudioPlaybackMethod(int method) override;
    ZynResult GetAudioPlaybackMethod(int& method) const override;
    ZynResult SetBundleIdentifier(const char* identifier, unsigned int length) override;

    // For the connection.
    struct CNetworkNotificationParam {
        ZynNetworkStatus status = ZynNetwork_Recovered;
        _tagNetworkDirection direction = ZynNetworkDirection_Both;
        unsigned int waitMilliseconds = 0;
        bool operator==(const CNetworkNotificationParam&) const = default;
    };
    bool isDPCEnabled() const { return m_bDPC; }
    bool IsSobeSupported() const { return m_bSobe; }
    bool IsReceiverBasedQosSupported() const { return m_bReceiverBasedQos; }
    void SetReceiverBasedQosSupported(bool supported) { m_bReceiverBasedQos = supported; }
    bool IsFastLaneEnabled() const { return m_bFastLane; }
    bool IsHttpUpgrade() const { return m_bHttpUpgrade; }
    bool IsSendingCSRCEnabled() const { return m_bSendingCSRC; }
    // Traffic class byte of the line kind: audio slide as audio, application as screen share.
    unsigned int GetDSCPMarking(ZynSessionType type) const;
    unsigned int GetQoSMaxBandwidth() const { return m_qosMaxBandwidth; }
    const CNetworkNotificationParam& GetNetworkNotificationParam() const { return m_networkNotification; }
    ZynPerformanceDumpType GetPerformanceTraceDump() const { return m_performanceDump; }
    int GetSendMQEInMinutes() const { return m_sendMQEInMinutes; }
    bool IsMQECallbackEnabled() const { return m_bMQECallback; }
    bool IsFixAudioProcessingArch() const { return m_bFixAudioProcessingArch; }
    bool IsInsecureLogsEnabled() const { return m_bInsecureLogs; }
    bool IsShowStunTraceIP() const { return m_bShowStunTraceIP; }
    bool IsICENoListen() const { return m_bICENoListen; }
    bool IsBandwidthRollbackEnabled() const { return m_bBandwidthRollback; }
    int GetICEInactiveTimeout() const { return m_iceInactiveTimeout; }
    int GetICEConnectTimeout() const { return m_iceConnectTimeout; }
    int GetICETerminateTimeout() const { return m_iceTerminateTimeout; }
    float GetCpuHighUsageThreshold() const { return m_cpuHighUsageThreshold; }
    float GetCpuMonitorInterval() const { return m_cpuMonitorInterval; }
    // The last accepted feature toggles (an object), and whether any were given.
    const json::Value& GetFeatureTogglesJson() const { return m_featureToggles; }
    bool HasFeatureToggles() const { return m_bFeatureTogglesSet; }
    const std::string& GetBundleIdentifier() const { return m_bundleIdentifier; }

private:
    // The call started: records tag (when given) with ZYN_E_FAIL and reports the assertion.
    bool RefusedAfterStart(const char* tag);
    void Metric(const char* tag, ZynResult code);
    // Stores value, has carry() apply it, and puts the old value back when that fails; a failure is
    // recorded under tag.
    template <class T, class Carry>
    ZynResult Store(const char* tag, T& field, T value, Carry carry);
    // Store, with the owner told of item.
    template <class T>
    ZynResult StoreItem(const char* tag, T& field, T value, EGlobalConfigItem item);
    // The guard, then StoreItem.
    ZynResult SetGuarded(const char* tag, bool& field, bool value, EGlobalConfigItem item);
    ZynResult SetEngineOption(const char* tag, int32_t option, uint32_t& field, uint32_t value);

    IGlobalConfigOwner* const m_pMediaConnection;  // not owned; may be null
    std::string m_bundleIdentifier;
    bool m_bFQDNInICE = true;
    bool m_bShowStunTraceIP = false;
    bool m_bInsecureLogs = false;
    bool m_bICENoListen = false;
    // ICE time-outs in milliseconds.
    int32_t m_iceInactiveTimeout = 15000;
    int32_t m_iceConnectTimeout = 10000;
    int32_t m_iceTerminateTimeout = 7000;
    bool m_bAppPackAsSTUN = false;
    float m_cpuHighUsageThreshold = 95.0f;  // percent
    float m_cpuMonitorInterval = 10.0f;     // seconds
    uint32_t m_debugFlag = 0;

    bool m_bQos = false;
    bool m_bReceiverBasedQos = false;
    bool m_bSobe = false;
    bool m_bDPC = true;
    bool m_bMultiStream = false;
    bool m_bICE = false;
    bool m_bRelayOnly = false;
    bool m_bSRTP = false;
    bool m_bDtlsSRTP = false;
    bool m_bRTCPMux = false;
    bool m_bHttpUpgrade = false;
    bool m_bSendingCSRC = false;
    bool m_bDSCP = false;
    bool m_bFastLane = false;
    bool m_bBGRA = false;
    // Traffic class bytes: DSCP 46 (expedited forwarding) for audio, 34 (AF41) for video and screen.
    std::array<uint32_t, 3> m_dscpMarking{184, 136, 136};
    ZynClientType m_clientType = 0;

    float m_qosMaxLossRatio = 0.0f;
    uint32_t m_qosMinBandwidth = 0;
    uint32_t m_qosMaxBandwidth = 0;
    uint32_t m_qosInitBandwidth = 0;
    CNetworkNotificationParam m_networkNotification;
    ZynPerformanceDumpType m_performanceDump = ZynPerformanceDump_None;
    int32_t m_sendMQEInMinutes = 0;  // 0: the connection's own schedule
    bool m_bMQECallback = false;
    bool m_bFixAudioProcessingArch = false;
    bool m_bBandwidthRollback = false;
    int32_t m_audioCaptureMethod = 0;
    int32_t m_audioPlaybackMethod = 0;
    json::Value m_featureToggles;
    std::string m_featureTogglesText;
    bool m_bFeatureTogglesSet = false;
    std::vector<tagICEServer> m_iceServers;
};

template <class T, class Carry>
ZynResult CGlobalConfig::Store(const char* tag, T& field, T value, Carry carry)
{
    T old = std::move(field);
    field = std::move(value);
    const ZynResult result = m_pMediaConnection ? carry() : ZYN_S_OK;
    if (ZYN_FAILED(result)) {
        field = std::move(old);
        Metric(tag, result);
    }
    return result;
}

template <class T>
ZynResult CGlobalConfig::StoreItem(const char* tag, T& field, T value, EGlobalConfigItem item)
{
    return Store(tag, field, std::move(value), [&] { return m_pMediaConnection->OnGlobalConfigChanged(item); });
}

}  // namespace zyn
