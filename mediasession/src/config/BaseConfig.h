// What every media configuration shares. One body serves every media kind: the owner line's
// session type picks the class name its traces carry.
//
// Threads: the application's calling thread; the owner line reads the values back on the same
// thread (description assembly) and is told of a change synchronously, inside the setter.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/CodecConversion.h"
#include "config/ConfigOwner.h"
#include "config/IceConfig.h"
#include "mediasession/ZynMediaConfig.h"
#include "sdp/codec.h"

namespace zyn {

class CBaseConfig : public virtual IBaseConfig {
public:
    // A value a setter has not been given yet reads as 0 or empty unless noted.
    struct COverrideAddress {
        std::string ip;
        uint16_t port = 0;
        bool operator==(const COverrideAddress&) const = default;
    };
    struct CFileCapture {
        std::string path;
        bool loop = false;
        bool enabled = false;
        bool operator==(const CFileCapture&) const = default;
    };
    struct CFileRender {
        std::string path;
        bool enabled = false;
        bool operator==(const CFileRender&) const = default;
    };
    struct CPortRange {
        uint16_t minPort = 0;  // both 0: the range of the line's kind
        uint16_t maxPort = 0;
        bool operator==(const CPortRange&) const = default;
    };
    struct CSrtpCrypto {
        std::string suite;
        std::string key;
        bool onlyCryptRtp = false;
        bool operator==(const CSrtpCrypto&) const = default;
    };
    struct CRtpExtension {
        uint8_t id = 0;
        std::string uri;
        eStreamDirection direction = eStreamDirection_Out;
        bool operator==(const CRtpExtension&) const = default;
    };
    // Replaces what the engine offers; `set` false means the engine's own list is used.
    struct CCodecList {
        bool set = false;
        std::vector<sdp::codec> codecs;
        std::vector<CCodecPt> pts;
        bool operator==(const CCodecList&) const = default;
    };

    explicit CBaseConfig(IMediaConfigOwner* owner = nullptr);
    ~CBaseConfig() override = default;
    CBaseConfig(const CBaseConfig&) = delete;
    CBaseConfig& operator=(const CBaseConfig&) = delete;

    // IBaseConfig: bandwidth and codecs.
    unsigned int GetMaxBandwidth() const override { return m_maxBandwidth; }
    ZynResult SetMaxBandwidth(unsigned int bandwidth) override;
    unsigned int GetInitBandwidth() const override { return m_initBandwidth; }
    ZynResult SetInitBandwidth(unsigned int bandwidth) override;
    ZynCodecType GetPreferedCodec() const override { return m_preferedCodec; }
    ZynResult SetPreferedCodec(ZynCodecType codec) override;
    ZynCodecType GetSelectedCodec() const override { return m_selectedCodec; }
    ZynResult SetSelectedCodec(ZynCodecType codec) override;
    ZynResult SetMaxBitrate(unsigned int bitrate) override;
    ZynResult SetMaxStreamsCount(unsigned int count) override;
    ZynResult GetCodecParam(ZynCodecType type, _tagVideoConfig* videoConfig, _tagCodecParam* out) override;
    ZynResult SetupEncodeCodec(_tagCodecParam* params, unsigned int count) override;
    ZynResult SetupDecodeCodec(_tagCodecParam* params, unsigned int count) override;

    // IBaseConfig: files and the line's address.
    ZynResult OverrideMediaIPAddress(const char* ip, unsigned int port) override;
    ZynResult EnableFileRender(const char* path, bool enable) override;
    ZynResult EnableFileCapture(const char* path, bool isLoop, bool enable) override;
    ZynResult SetIcePolicy(ZynConnectionPolicy policy) override;
    ZynConnectionPolicy GetIcePolicy() const override;
    ZynResult SetConnectionPolicy(ZynConnectionPolicy policy) override;
    ZynResult SetIceLocalPortRange(unsigned short minPort, unsigned short maxPort) override;
    ZynResult SetSendDestination(const char* ip, unsigned short rtpPort) override;
    IIceConfig* GetLocalIceConfig() override { return &m_localIce; }
    IIceConfig* GetRemoteIceConfig() override { return &m_remoteIce; }
    IIceConcludedConfig* GetIceConcludedConfig() override { return &m_concluded; }

    // IBaseConfig: resilience.
    ZynResult EnableFec(bool enable) override;
    bool IsFecEnabled() const override { return m_bFec; }
    ZynResult SetMaxFecOverhead(unsigned int percent) override;
    ZynResult SetFecProbing(bool enable) override;
    ZynResult SetDynamicFecScheme(DynamicFECLevelScheme scheme) override;
    ZynResult SetSrtpFecOrder(ZynSecurityFECOrder order) override;
    ZynResult SetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction) override;
    ZynResult GetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction) override;
    ZynResult EnableRtx(bool enable) override;
    bool IsRtxEnabled() const override { return m_bRtx; }
    // Retransmission and FEC together.
    bool IsHybridResilienceEnabled() const override { return m_bRtx && m_bFec; }
    // What hybrid resilience protects, the data-flow bits of its description attribute.
    static constexpr uint32_t kDataFlowRtxMedia = 1, kDataFlowRtxAll = 2, kDataFlowFecRtx = 4;
    uint32_t GetHybridResilienceDataFlow() const { return m_hybridDataFlow; }
    ZynResult SetHybridResilienceDataFlow(uint32_t flow);
    ZynResult SetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction) override;
    ZynResult GetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction) override;
    ZynResult EnableTmmbr(bool enable) override;
    bool IsTmmbrEnabled() const override { return m_bTmmbr; }
    ZynResult ReceiverBasedQosSupported(bool enable) override;
    ZynResult EnableRecordLossData(bool enable) override;
    bool IsRecordLossDataEnabled() const override { return m_bRecordLossData; }
    ZynResult SetDataTerminatedAtRTP(bool enable) override;

    // IBaseConfig: security and RTP header extensions.
    ZynResult SetupSrtpCrypto(ZynDirection direction, const char* suite, const char* key, bool onlyCryptRtp) override;
    const char* CreateSrtpCryptoKey(const char* suite) override;
    const char* GetSrtpCryptoSuite() const override { return m_srtp[0].suite.c_str(); }
    const char* GetRtpExtension(unsigned int id) override;
    ZynResult SetRtpExtension(unsigned char id, const char* uri, eStreamDirection direction) override;

    // IBaseConfig: the rest.
    unsigned int GetMaxAvailableSources(ZynSubscribePolicy policy) override;
    ZynSubscribePolicy GetSubscribePolicy() override;
    ZynResult SetAutoSwitchDefaultDeviceFlag(bool enable) override;
    void DumpMediaConfig() override;

    // For the owner line.
    IMediaConfigOwner* GetOwner() const { return m_pInfo; }
    // "CAudioConfig", "CVideoConfig", "CShareConfig", "CAudioSlideConfig" by the line's session
    // type; "CBaseConfig" for any other type and without a line.
    const char* GetTraceClassName() const;
    const COverrideAddress& GetOverrideAddress() const { return m_override; }
    const CFileCapture& GetFileCapture() const { return m_fileCapture; }
    const CFileRender& GetFileRender() const { return m_fileRender; }
    ZynConnectionPolicy GetConnectionPolicy() const { return m_connectionPolicy; }
    const CPortRange& GetIceLocalPortRange() const { return m_portRange; }
    const COverrideAddress& GetSendDestination() const { return m_sendDestination; }
    unsigned int GetMaxFecOverhead() const { return m_maxFecOverhead; }
    bool IsFecProbingEnabled() const { return m_bFecProbing; }
    DynamicFECLevelScheme GetDynamicFecScheme() const { return m_dynamicFecScheme; }
    ZynSecurityFECOrder GetSrtpFecOrder() const { return m_srtpFecOrder; }
    bool IsReceiverBasedQosSupported() const { return m_bReceiverBasedQos; }
    bool IsDataTerminatedAtRTP() const { return m_bDataTerminatedAtRTP; }
    unsigned int GetMaxStreamsCount() const { return m_maxStreamsCount; }
    unsigned int GetMaxBitrate() const { return m_maxBitrate; }
    // direction: ZynDirection_Send or ZynDirection_Recv.
    const CSrtpCrypto& GetSrtpCrypto(ZynDirection direction) const;
    const std::vector<CRtpExtension>& GetRtpExtensions() const { return m_rtpExtensions; }
    const CCodecList& GetEncodeCodecs() const { return m_encodeCodecs; }
    const CCodecList& GetDecodeCodecs() const { return m_decodeCodecs; }
    CIceConfig& GetLocalIce() { return m_localIce; }
    CIceConfig& GetRemoteIce() { return m_remoteIce; }
    CIceConcludedConfig& GetConcluded() { return m_concluded; }

    // Defaults of the resilience records, one per direction.
    static ZynSobeFecInfo DefaultFecInfo();
    static ZynSobeRtxInfo DefaultRtxInfo();

protected:
    uint32_t TraceCallId() const;
    // The call started: reports the assertion; the setter then returns ZYN_E_FAIL unchanged.
    bool RefusedAfterStart() const;
    // Stores value into field and has the owner carry it out; the owner's failure restores the old
    // value and is the result.
    template <class T>
    ZynResult Commit(T& field, T value, EMediaConfigItem item);

private:
    ZynResult SetupCodecs(_tagCodecParam* params, unsigned int count, bool encode);

    IMediaConfigOwner* const m_pInfo;  // the line; not owned; may be null
    CIceConfig m_localIce;
    CIceConfig m_remoteIce;
    CIceConcludedConfig m_concluded;

    unsigned int m_maxBandwidth = 0;
    unsigned int m_initBandwidth = 0;
    ZynCodecType m_preferedCodec = ZynCodecType_Unknown;
    ZynCodecType m_selectedCodec = ZynCodecType_Unknown;
    unsigned int m_maxBitrate = 0;
    unsigned int m_maxStreamsCount = 0;
    COverrideAddress m_override;
    CFileCapture m_fileCapture;
    CFileRender m_fileRender;
    std::optional<ZynConnectionPolicy> m_icePolicy;  // unset: 19, 18 on a share line
    ZynConnectionPolicy m_connectionPolicy = 0;
    CPortRange m_portRange;
    COverrideAddress m_sendDestination;

    bool m_bFec = false;
    unsigned int m_maxFecOverhead = 100;  // percent of the media rate
    bool m_bFecProbing = true;
    DynamicFECLevelScheme m_dynamicFecScheme = DynamicFECLevelScheme_OnlyLossRatio;
    ZynSecurityFECOrder m_srtpFecOrder = ZynSecurityFECOrder_FEC_SRTP;
    std::array<ZynSobeFecInfo, 2> m_fecInfo;  // [0] out, [1] in
    bool m_bRtx = false;
    std::array<ZynSobeRtxInfo, 2> m_rtxInfo;  // [0] out, [1] in
    uint32_t m_hybridDataFlow = kDataFlowRtxMedia;
    bool m_bTmmbr = false;
    bool m_bReceiverBasedQos = false;
    bool m_bRecordLossData = false;
    bool m_bDataTerminatedAtRTP = false;

    std::array<CSrtpCrypto, 2> m_srtp;  // [0] send, [1] receive
    std::string m_lastCryptoKey;
    std::vector<CRtpExtension> m_rtpExtensions;
    CCodecList m_encodeCodecs;
    CCodecList m_decodeCodecs;
};

template <class T>
ZynResult CBaseConfig::Commit(T& field, T value, EMediaConfigItem item)
{
    T old = std::move(field);
    field = std::move(value);
    if (!m_pInfo) return ZYN_S_OK;
    const ZynResult result = m_pInfo->OnMediaConfigChanged(item);
    if (ZYN_FAILED(result)) field = std::move(old);
    return result;
}

}  // namespace zyn
