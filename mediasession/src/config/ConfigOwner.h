// What a configuration object needs of whoever owns it: the connection owns the global
// configuration, each media line owns its media configurations.
//
// The configuration keeps the values the application set; its owner reads them back through the
// configuration's getters. When a setting that acts somewhere else changes (engine, lines, ICE
// connector), the configuration stores the new value first and then tells the owner, which
// carries it where it acts. An owner that fails returns its code: the configuration puts the old
// value back and the setter returns that code, so a getter always shows what is in effect.
#pragma once

#include <cstdint>
#include <string>

#include "mediasession/ZynDefines.h"
#include "mediasession/ZynMediaConfig.h"
#include "util/CmJson.h"

namespace zyn {

class IConfigOwner {
public:
    // From the first CreateOffer or CreateAnswer until StartSDPRenegotiation.
    virtual bool IsCallStarted() const = 0;
    // A refused or failed setting, for the session metrics (CSessionMetrics::KickZynError).
    virtual void SetZynErrorMetrics(const char* tag, ZynResult code) = 0;

protected:
    ~IConfigOwner() = default;
};

// Settings of a media configuration that act outside it. Each names the getters to read.
enum class EMediaConfigItem : int {
    MaxBandwidth,          // GetMaxBandwidth
    InitBandwidth,         // GetInitBandwidth
    PreferedCodec,         // GetPreferedCodec
    SelectedCodec,         // GetSelectedCodec
    OverrideIP,            // GetOverrideIP, GetOverridePort
    FileCapture,           // GetFileCapturePath, IsFileCaptureLoop, IsFileCaptureEnabled
    FileRender,            // GetFileRenderPath, IsFileRenderEnabled
    IcePolicy,             // GetIcePolicy
    ConnectionPolicy,      // GetConnectionPolicy; a share line switches between UDP and TCP
    Fec,                   // IsFecEnabled
    MaxFecOverhead,        // GetMaxFecOverhead
    FecProbing,            // IsFecProbingEnabled
    DynamicFecScheme,      // GetDynamicFecScheme
    SrtpFecOrder,          // GetSrtpFecOrder
    FecInfo,               // GetFecInfo; with FEC enabled the line sets up FEC again
    Rtx,                   // IsRtxEnabled
    RtxInfo,               // GetRtxInfo
    Tmmbr,                 // IsTmmbrEnabled
    ReceiverBasedQos,      // IsReceiverBasedQosSupported
    RecordLossData,        // IsRecordLossDataEnabled
    DataTerminatedAtRTP,   // IsDataTerminatedAtRTP
    MaxStreamsCount,       // GetMaxStreamsCount
    MaxBitrate,            // GetMaxBitrate
    AutoSwitchDefaultDevice,  // GetAutoSwitchDefaultDeviceFlag (audio)
    IceLocalPortRange,     // GetIceLocalPortRange: the ICE connector's SetPortRange
    SendDestination,       // GetSendDestination: the line's connect address
    SrtpCrypto,            // GetSrtpCrypto
    RtpExtension,          // GetRtpExtensions
    EncodeCodecs,          // GetEncodeCodecs, GetEncodeCodecPts
    DecodeCodecs,          // GetDecodeCodecs, GetDecodeCodecPts
    HybridDataFlow,        // GetHybridResilienceDataFlow
};

class IMediaConfigOwner : public IConfigOwner {
public:
    virtual ZynSessionType GetSessionType() const = 0;
    virtual uint32_t GetCallId() const = 0;
    virtual ZynResult OnMediaConfigChanged(EMediaConfigItem item)
    {
        (void)item;
        return ZYN_S_OK;
    }
    // A named option of the engine track that captures for the line; ZYN_E_NOTRACK without one.
    virtual ZynResult SetLocalTrackOption(const char* name, const char* value)
    {
        (void)name, (void)value;
        return ZYN_E_NOTRACK;
    }
    virtual ZynResult GetLocalTrackOption(const char* name, std::string& value)
    {
        (void)name, (void)value;
        return ZYN_E_NOTRACK;
    }
    // The same, kept until the line has a local track; the track's code once it has one.
    virtual ZynResult KeepLocalTrackOption(const char* name, const char* value)
    {
        (void)name, (void)value;
        return ZYN_E_NOTRACK;
    }
    virtual bool HasLocalTrack() { return false; }
    virtual bool IsLocalTrackStarted() { return false; }
    // Figures only the negotiated line knows.
    virtual unsigned int GetMaxAvailableSources(ZynSubscribePolicy policy)
    {
        (void)policy;
        return 0;
    }
    virtual ZynSubscribePolicy GetSubscribePolicy() { return ZynSubscribePolicy_None; }
    // The connection's capability of that codec.
    virtual ZynResult GetCodecParam(ZynCodecType type, _tagVideoConfig* videoConfig, _tagCodecParam* out)
    {
        (void)type, (void)videoConfig, (void)out;
        return ZYN_E_NOTAVAILABLE;
    }

protected:
    ~IMediaConfigOwner() = default;
};

// Settings of the global configuration that act outside it.
enum class EGlobalConfigItem : int {
    Qos,                  // IsQosEnabled
    DPC,                  // isDPCEnabled
    MultiStream,          // IsMultiStreamEnabled
    ICE,                  // IsICEEnabled
    SRTP,                 // IsSRTPEnabled
    DtlsSRTP,             // IsDtlsSRTPEnabled; also for the session metrics
    RTCPMux,              // IsRTCPMuxEnabled; to each line
    HttpUpgrade,          // IsHttpUpgrade; to each line
    SendingCSRC,          // IsSendingCSRCEnabled; to each line
    Sobe,                 // IsSobeSupported
    DSCP,                 // IsDSCPEnable
    DSCPMarking,          // GetDSCPMarking
    FastLane,             // IsFastLaneEnabled
    ClientType,           // GetClientType
    BGRA,                 // IsBGRAEnabled
    NetworkNotification,  // GetNetworkNotificationParam: SetGlobalNetworkNotificationParam
    PerformanceTraceDump, // GetPerformanceTraceDump: EnablePerformanceStatusDump
    SendMQEInMinutes,     // GetSendMQEInMinutes
    MQECallback,          // IsMQECallbackEnabled
    FixAudioProcessingArch,  // IsFixAudioProcessingArch: to the engine; fails without one
    BandwidthRollback,    // IsBandwidthRollbackEnabled; to each line
    CpuHighUsageThreshold,   // GetCpuHighUsageThreshold, GetCpuMonitorInterval: dynamic performance control
    AudioCaptureMethod,   // GetAudioCaptureMethod: to the engine; fails without one
    AudioPlaybackMethod,  // GetAudioPlaybackMethod: to the engine; fails without one
    FeatureToggles,       // GetFeatureTogglesJson
};

// The parts of a device media settings document, each for the static performance tables.
enum class EStaticPerformanceSetting : int {
    Audio,         // "audio" is present: SetAudioSetting
    Capabilities,  // "hw-whitelist" or "performance" is present: SetCapabilities
    Video,         // "enable_sw720p" is present: SetVideoSetting
};

enum class EEngineCapabilityCheck : int {
    HWAcceleration,
    HWAccelerationDefaultOption,
    Portrait,  // argument: front camera
    Gesture,
};

class IGlobalConfigOwner : public IConfigOwner {
public:
    virtual ZynResult OnGlobalConfigChanged(EGlobalConfigItem item)
    {
        (void)item;
        return ZYN_S_OK;
    }
    // ZynSetMediaEngineOption of the connection's engine; ZYN_E_WRONGSTATE without one.
    virtual ZynResult SetMediaEngineOption(int32_t option, const void* value, uint32_t size)
    {
        (void)option, (void)value, (void)size;
        return ZYN_E_WRONGSTATE;
    }
    // The whole parsed document goes with each part.
    virtual ZynResult ApplyStaticPerformanceSetting(EStaticPerformanceSetting part, const json::Value& settings)
    {
        (void)part, (void)settings;
        return ZYN_S_OK;
    }
    virtual bool CheckEngineCapability(EEngineCapabilityCheck check, bool argument)
    {
        (void)check, (void)argument;
        return false;
    }

protected:
    ~IGlobalConfigOwner() = default;
};

}  // namespace zyn
