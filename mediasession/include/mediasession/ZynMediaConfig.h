// Typed configuration: IBaseConfig and its media kinds configure one media line, IGlobalConfig the
// connection as a whole. The connection owns every configuration object and hands out plain
// pointers that stay valid while the connection lives; the application never deletes them.
//
// Most media settings are legal only before the call started (the first CreateOffer or
// CreateAnswer, again after StartSDPRenegotiation): a refused one returns ZYN_E_FAIL and changes
// nothing. Calls are not locked: make them from the thread that drives the connection.
#pragma once

#include <cstdint>

#include "mediasession/ZynDefines.h"
#include "mediasession/ZynMediaConnection.h"

// Codecs as the application names them. ZynCodecType_Unknown in a _tagCodecParam means "look the
// record's name up".
enum ZynCodecType : int32_t {
    ZynCodecType_Unknown = 0,
    ZynCodecType_PCMU = 1,
    ZynCodecType_PCMA = 2,
    ZynCodecType_ILBC = 3,
    ZynCodecType_OPUS = 4,
    ZynCodecType_G722 = 5,
    ZynCodecType_CN = 6,
    ZynCodecType_G729 = 7,
    ZynCodecType_G7221_24K = 8,
    ZynCodecType_G7221_32K = 9,
    ZynCodecType_DTMF = 50,
    ZynCodecType_AVC = 100,
    ZynCodecType_SVC = 101,
    ZynCodecType_AV1 = 104,
    ZynCodecType_FEC = 125,
    ZynCodecType_RTX = 126,
};

// Bit mask: bit 0 UDP, the other bits the transport library's. Lines start with 19 (18 for
// screen share).
using ZynConnectionPolicy = uint32_t;

// Direction of a resilience or extension record: 1 what is sent, 2 what is received (the local one).
enum eStreamDirection : int32_t {
    eStreamDirection_Out = 1,
    eStreamDirection_In = 2,
};

enum DynamicFECLevelScheme : int32_t {
    DynamicFECLevelScheme_OnlyLossRatio = 0,
    DynamicFECLevelScheme_LossRatioWithPriority = 1,
};

// Which protection is applied first to an outgoing packet.
enum ZynSecurityFECOrder : int32_t {
    ZynSecurityFECOrder_SRTP_FEC = 0,
    ZynSecurityFECOrder_FEC_SRTP = 1,
};

enum ZynSubscribePolicy : int32_t {
    ZynSubscribePolicy_None = 0,
    ZynSubscribePolicy_ReceiverSelected = 1,
    ZynSubscribePolicy_ActiveSpeaker = 2,
    ZynSubscribePolicy_Static = 3,
    ZynSubscribePolicy_NonMediaSource = 4,
};

// Bit mask of what the performance dump writes.
enum ZynPerformanceDumpType : int32_t {
    ZynPerformanceDump_None = 0,
    ZynPerformanceDump_CPU = 1,
    ZynPerformanceDump_Memory = 2,
    ZynPerformanceDump_All = 3,
};

// Chooses the connector profile of the line (see the ICE connector); the values have no names.
using ZynClientType = int32_t;

// Retransmission record of one direction.
struct ZynSobeRtxInfo {
    uint8_t uVersion;
    uint8_t uPayloadType;
    uint8_t uAssociatedPayloadType;
    uint32_t uBufferTime;  // milliseconds
    uint32_t uClockRate;
};

struct ZynSobeFecFmtInfo {
    bool bMultiSsrc;
    uint32_t uM;
    uint32_t uMaxN;
    uint32_t uMaxEsel;
};

// Forward error correction record of one direction.
struct ZynSobeFecInfo {
    uint8_t uVersion;
    uint32_t uClockRate;
    uint8_t uPayloadType;
    ZynSobeFecFmtInfo fecFmtInfo;
};

struct _tagCodecCapability {
    uint32_t profile_id;  // H.264 profile-level-id, 24 bits
    uint32_t mbps;
    uint32_t fs;
    uint32_t fps;
    uint32_t br;
    uint32_t dpb;
    uint32_t tier;
    uint32_t profile;
    uint32_t level;
};

// One codec as the application names it.
struct _tagCodecParam {
    ZynCodecType type;
    char name[256];  // terminated
    uint8_t payload;
    uint32_t clock_rate;
    uint32_t channels;
    bool vad;
    _tagCodecCapability cap;
    uint32_t packetization;  // H.264: 1 for packetization-mode 1, anything else mode 0
};

struct _tagVideoConfig;
class IZynMediaDevice;

enum ZynIceServerKind : int32_t {
    ZynIceServer_TURN = 0,
    ZynIceServer_STUN = 1,
};

// One STUN or TURN server the connection was configured with.
struct tagICEServer {
    char username[128];
    char password[128];
    char host[256];
    uint16_t port;
    ZynIceServerKind kind;
    int32_t transport;
};

// ICE credentials and candidates of one side of a line.
class IIceConfig {
public:
    virtual const char* GetUserName() const = 0;
    virtual const char* GetPassword() const = 0;
    virtual unsigned int GetCandidateCount() const = 0;
    // The candidate attribute value at index; null past the end.
    virtual const char* GetCandidate(unsigned int index) const = 0;

protected:
    ~IIceConfig() = default;
};

// What ICE settled on for a line.
class IIceConcludedConfig {
public:
    virtual const char* GetConcludedDescription() const = 0;

protected:
    ~IIceConcludedConfig() = default;
};

// What every media line's configuration offers. Guarded setters (legal only before the call
// started) are marked; a setter that is not marked may be called at any time.
class IBaseConfig {
public:
    virtual unsigned int GetMaxBandwidth() const = 0;
    virtual ZynResult SetMaxBandwidth(unsigned int bandwidth) = 0;  // guarded
    virtual unsigned int GetInitBandwidth() const = 0;
    virtual ZynResult SetInitBandwidth(unsigned int bandwidth) = 0;
    virtual ZynCodecType GetPreferedCodec() const = 0;
    virtual ZynResult SetPreferedCodec(ZynCodecType codec) = 0;  // guarded
    virtual ZynCodecType GetSelectedCodec() const = 0;
    virtual ZynResult SetSelectedCodec(ZynCodecType codec) = 0;  // guarded
    // Forces the transport address: ICE, SRTP, fast lane and DSCP then read as off.
    virtual ZynResult OverrideMediaIPAddress(const char* ip, unsigned int port) = 0;  // guarded
    virtual ZynResult EnableFileRender(const char* path, bool enable) = 0;
    virtual ZynResult EnableFileCapture(const char* path, bool isLoop, bool enable) = 0;  // guarded
    virtual ZynResult SetIcePolicy(ZynConnectionPolicy policy) = 0;
    virtual ZynConnectionPolicy GetIcePolicy() const = 0;
    virtual ZynResult SetConnectionPolicy(ZynConnectionPolicy policy) = 0;
    virtual ZynResult EnableFec(bool enable) = 0;
    virtual bool IsFecEnabled() const = 0;
    virtual ZynResult SetMaxFecOverhead(unsigned int percent) = 0;
    virtual ZynResult SetFecProbing(bool enable) = 0;
    virtual ZynResult SetDynamicFecScheme(DynamicFECLevelScheme scheme) = 0;
    virtual ZynResult SetSrtpFecOrder(ZynSecurityFECOrder order) = 0;
    virtual ZynResult EnableRtx(bool enable) = 0;
    virtual bool IsRtxEnabled() const = 0;
    virtual bool IsHybridResilienceEnabled() const = 0;
    virtual ZynResult SetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction) = 0;
    virtual ZynResult GetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction) = 0;
    virtual unsigned int GetMaxAvailableSources(ZynSubscribePolicy policy) = 0;
    virtual ZynSubscribePolicy GetSubscribePolicy() = 0;
    virtual ZynResult SetMaxStreamsCount(unsigned int count) = 0;
    // Only audio lines implement it; others answer ZYN_E_NOTAVAILABLE.
    virtual ZynResult SetAutoSwitchDefaultDeviceFlag(bool enable) = 0;
    virtual ZynResult EnableRecordLossData(bool enable) = 0;
    virtual bool IsRecordLossDataEnabled() const = 0;
    virtual ZynResult SetDataTerminatedAtRTP(bool enable) = 0;
    virtual ZynResult SetIceLocalPortRange(unsigned short minPort, unsigned short maxPort) = 0;  // guarded
    virtual ZynResult GetCodecParam(ZynCodecType type, _tagVideoConfig* videoConfig, _tagCodecParam* out) = 0;
    // Replace what the engine would offer. A record of type ZynCodecType_Unknown is resolved by its
    // name and the type found is written back into the caller's record.
    virtual ZynResult SetupEncodeCodec(_tagCodecParam* params, unsigned int count) = 0;
    virtual ZynResult SetupDecodeCodec(_tagCodecParam* params, unsigned int count) = 0;
    virtual ZynResult SetupSrtpCrypto(ZynDirection direction, const char* suite, const char* key,
                                      bool onlyCryptRtp) = 0;
    virtual ZynResult SetSendDestination(const char* ip, unsigned short rtpPort) = 0;
    virtual IIceConfig* GetLocalIceConfig() = 0;
    virtual IIceConfig* GetRemoteIceConfig() = 0;
    virtual IIceConcludedConfig* GetIceConcludedConfig() = 0;
    // A fresh random key for the suite, in base64; empty for an unknown suite. Valid until the next
    // call on this object.
    virtual const char* CreateSrtpCryptoKey(const char* suite) = 0;
    virtual ZynResult SetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction) = 0;
    virtual ZynResult GetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction) = 0;
    virtual ZynResult EnableTmmbr(bool enable) = 0;
    virtual bool IsTmmbrEnabled() const = 0;
    virtual ZynResult ReceiverBasedQosSupported(bool enable) = 0;
    // The URI registered under the id (sending side first); null when there is none.
    virtual const char* GetRtpExtension(unsigned int id) = 0;
    virtual ZynResult SetRtpExtension(unsigned char id, const char* uri, eStreamDirection direction) = 0;
    virtual ZynResult SetMaxBitrate(unsigned int bitrate) = 0;
    // The suite given for sending; empty when none was.
    virtual const char* GetSrtpCryptoSuite() const = 0;
    // Writes every setting to the trace.
    virtual void DumpMediaConfig() = 0;

protected:
    virtual ~IBaseConfig() = default;
};

// How the audio engine cancels echo.
enum ZynAecType : int32_t {
    ZynAecTypeNone = 0,
    ZynAecTypeBuildin = 1,
    ZynAecTypeTc = 2,
    ZynAecTypeAlpha = 3,
    ZynAecTypeEngine = 4,  // the engine's own
};

// Audio processing switches. Each reaches the engine through the line's local track: a line
// without one answers ZYN_E_NOTRACK and nothing changes. Legal at any time.
class IAudioConfig : public virtual IBaseConfig {
public:
    virtual ZynResult EnableAGC(bool enable) = 0;
    virtual ZynResult EnableEC(bool enable) = 0;
    virtual ZynResult EnableLAECex(bool enable) = 0;
    virtual ZynResult EnhaceFarEndVAD(bool enable) = 0;
    virtual ZynResult MusicDetection(bool enable) = 0;
    // mic: the capture side, else the playback side.
    virtual ZynResult EnableNS(bool enable, bool mic) = 0;
    virtual ZynResult EnableDAGC(bool enable, bool mic) = 0;
    virtual ZynResult EnableImprovedAagc(bool enable) = 0;
    virtual ZynResult EnableNewAgc(bool enable) = 0;
    virtual ZynResult EnableBNR(bool enable) = 0;
    virtual ZynResult EnableNewBNR(bool enable) = 0;
    virtual ZynResult SetLessEchoMode(bool enable) = 0;
    virtual ZynResult SetDelayEstEx(bool enable) = 0;
    virtual ZynResult SetFullBandAudio(bool enable) = 0;
    virtual ZynResult SetClipCtl(bool enable) = 0;
    virtual ZynResult SetECType(ZynAecType type) = 0;
    virtual ZynResult GetECType(ZynAecType& type) = 0;
    // This build has no such modes: ZYN_E_NOTIMPL.
    virtual ZynResult SetBNRProfileMode(int mode) = 0;
    virtual ZynResult GetBNRProfileMode(int& mode) = 0;

protected:
    ~IAudioConfig() override = default;
};

// Which side of the video pipeline runs on the hardware codec.
enum ZynHWAccelerationConfig : int32_t {
    ZynHWAcceleration_Encoder = 1,
    ZynHWAcceleration_Decoder = 2,
    ZynHWAcceleration_Both = 3,
};

// H.264 packetization-mode: 0 one NAL unit a packet, 1 fragmented and aggregated units.
enum ZynPacketizationMode : int32_t {
    ZynPacketizationMode_0 = 0,
    ZynPacketizationMode_1 = 1,
};

// Degrees clockwise; no other value is accepted.
enum ZynVideoRotation : int32_t {
    ZynVideoRotation_0 = 0,
    ZynVideoRotation_90 = 90,
    ZynVideoRotation_180 = 180,
    ZynVideoRotation_270 = 270,
};

enum ZynVideoQualityType : int32_t {
    ZynVideoQuality_90P = 0,
    ZynVideoQuality_180P = 1,
    ZynVideoQuality_360P = 2,
    ZynVideoQuality_720P = 3,
    ZynVideoQuality_1080P = 4,
    ZynVideoQuality_4K = 5,
};

// What a shared screen mostly shows; the encoder favours sharpness or motion by it.
enum ZynShareContentType : int32_t {
    ZynShareContent_Default = 0,
    ZynShareContent_Text = 1,
    ZynShareContent_Video = 2,
};

// Limits of one video codec as the line decodes or encodes it; 0 leaves a limit to the level.
struct ZynVideoCodecParams {
    uint32_t uProfileLevelID;  // H.264 profile-level-id, 24 bits
    uint32_t uMaxMBPS;
    uint32_t uMaxFS;
    uint32_t uMaxFPS;
    uint32_t uMaxBR;       // kbit/s
    uint32_t uMaxBRMode1;  // decoding only: the rate in packetization mode 1
};

// What camera video and screen share have in common. Most settings go to the line's local engine
// track (kept until the line has one); the decoding limits, the packetization mode and AV1 shape
// the line's next description.
class IBaseVideoConfig : public virtual IBaseConfig {
public:
    // H.264 and AV1 only; guarded.
    virtual ZynResult SetDecodeParams(ZynCodecType codec, const ZynVideoCodecParams& params) = 0;
    virtual ZynResult SetEncodeParams(ZynCodecType codec, const ZynVideoCodecParams& params) = 0;
    // ZYN_E_NOTFOUND when none were set for the codec.
    virtual ZynResult GetDecodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const = 0;
    virtual ZynResult GetEncodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const = 0;
    // Both directions at once, when what the line receives and what it sends agree (guarded);
    // GetCodecParam reads the receiving side, ZYN_E_NOTFOUND when none were set.
    virtual ZynResult SetCodecParam(ZynCodecType codec, const ZynVideoCodecParams& params) = 0;
    using IBaseConfig::GetCodecParam;
    virtual ZynResult GetCodecParam(ZynCodecType codec, ZynVideoCodecParams& params) const = 0;
    virtual ZynResult EnableHWAcceleration(bool enable, ZynHWAccelerationConfig config) = 0;
    virtual bool IsHWAccelerationEnabled(ZynHWAccelerationConfig config) const = 0;
    // Refused (ZYN_E_FAIL) while the local track is started.
    virtual ZynResult EnableAVCSimulcast(bool enable) = 0;
    virtual ZynResult SetMaxPacketSize(unsigned int bytes) = 0;                // guarded
    virtual unsigned int GetMaxPacketSize() const = 0;
    virtual ZynResult SetPacketizationMode(ZynPacketizationMode mode) = 0;  // guarded
    virtual ZynPacketizationMode GetPacketizationMode() const = 0;
    virtual ZynResult SetDataDumpFlag(unsigned int flag) = 0;
    virtual ZynResult SetDataDumpPath(const char* path, unsigned int length) = 0;
    virtual ZynResult LimitNalSize(bool limit) = 0;
    virtual ZynResult SetMaxNalSize(unsigned int bytes) = 0;
    virtual ZynResult EnablePeriodIDR(bool enable) = 0;
    virtual ZynResult EnableCVO(bool enable) = 0;
    virtual ZynResult EnableUpdateCapParam(bool enable) = 0;
    virtual ZynResult EnableSelfPreviewHorizontalMirror(bool enable) = 0;
    virtual ZynResult Disable90PVideo(bool disable) = 0;
    virtual ZynResult Enable1080PVideo(bool enable) = 0;
    virtual ZynResult EnableSmoothPlay(bool enable) = 0;
    virtual ZynResult SetMinVideoBuffTime(unsigned int milliseconds) = 0;
    // Constrained high profile: H.264 only, and only once enabled.
    virtual bool IsSupportCHP(ZynCodecType codec) const = 0;
    virtual ZynResult EnableCHP(bool enable) = 0;
    virtual ZynResult SetTemporalLayerNum(unsigned int count) = 0;
    virtual ZynResult SetAV1EncoderSpeed(unsigned int speed) = 0;
    virtual ZynResult SetVideoMaxMBPS(unsigned int mbps) = 0;
    // ZYN_E_WRONGSTATE for a value that is not a ZynVideoRotation.
    virtual ZynResult SetVideoRotate(ZynVideoRotation rotation) = 0;
    // A multi-camera capturer for the line's capture track (a device of the camera kind);
    // ZYN_E_INVALIDARG to enable without one.
    virtual ZynResult EnableMCDevice(bool enable, IZynMediaDevice* capturer) = 0;
    virtual bool IsAV1Enabled() const = 0;
    virtual bool IsAV1EnableSend() const = 0;
    virtual ZynResult SetAV1CodecParam(unsigned int level, unsigned int tier) = 0;
    virtual ZynResult SetMaxEncodeResolution(unsigned int width, unsigned int height) = 0;
    virtual ZynResult EnablePLIFIR(bool pli, bool fir) = 0;
    // The multi-camera arrangement as a JSON object; ZYN_E_INVALIDARG for anything else.
    virtual ZynResult SetMultiCamParam(const char* params, unsigned int length) = 0;
    // id below 16; ZYN_E_INVALIDARG above.
    virtual ZynResult SetVideoStrategy(unsigned int id, int value) = 0;
    // ZYN_E_WRONGSTATE when the line has no local track.
    virtual ZynResult SetVideoProcessingStrategy(unsigned int id, int value) = 0;
    virtual ZynResult SetMaxCaptureQuality(ZynVideoQualityType quality) = 0;

protected:
    ~IBaseVideoConfig() override = default;
};

// What the line's camera allows for its exposure, and what it uses now.
struct _tagCameraExposureInfo {
    int32_t minState, maxState;            // exposure compensation steps
    float isoNow, minIso, maxIso;          // the custom ISO once set, else the camera's own
    float durationNowMs, minDurationMs, maxDurationMs;
};

class IVideoConfig : public virtual IBaseVideoConfig {
public:
    // A camera never captures 4K: enabling it is refused with ZYN_E_NOTAVAILABLE.
    virtual ZynResult Enable4KVideo(bool enable) = 0;
    virtual ZynResult EnableAndroidCameraExternalRender(bool enable) = 0;
    // The camera's controls. Each reaches the camera at once, or when the line's camera track is
    // made; a value outside the camera's range is refused (ZYN_E_INVALIDARG) and changes nothing.
    virtual ZynResult SetCameraZoomFactor(float factor) = 0;        // 1 and up
    virtual ZynResult SetCameraFocusAtPoint(float x, float y) = 0;  // fractions of the picture
    virtual ZynResult SetCameraExposureState(int state) = 0;
    virtual ZynResult SetCameraFlashMode(int mode) = 0;  // 0 off, 1 on, 2 automatic
    virtual ZynResult SetCameraTorchMode(int mode) = 0;  // the same
    virtual ZynResult SetCameraCustomExposure(float durationMs, float iso) = 0;
    // ZYN_E_NOTRACK while the line has no camera track.
    virtual ZynResult GetCameraExposureInfo(_tagCameraExposureInfo& info) = 0;

protected:
    ~IVideoConfig() override = default;
};

// Screen capture and sharing. Counts and sizes must not be negative (ZYN_E_INVALIDARG).
class IShareConfig : public virtual IBaseVideoConfig {
public:
    virtual ZynResult SetScreenMaxCaptureFps(int fps) = 0;
    virtual ZynResult SetScreenCaptureDownSampleMinHeight(int height) = 0;
    virtual ZynResult SetScreenCaptureDownSampleMaxHeight(int height) = 0;
    virtual ZynResult SetScreenCaptureMaxFS(int maxFS) = 0;
    virtual ZynResult SetScreenCaptureMode(int mode) = 0;
    virtual ZynResult EnableCaptureDownsample(bool enable) = 0;
    virtual ZynResult SetScreenCodecMode(int mode) = 0;
    virtual ZynResult SetCapturerThreadCount(int count) = 0;
    virtual ZynResult SharingOverVideoPipeline(bool enable) = 0;
    virtual ZynResult EnableCapturerDuplicateFrameCheck(bool enable) = 0;
    virtual ZynResult EnableCapturerWindowBaseContent(bool enable) = 0;
    virtual ZynResult EnableChangeAeroMode(bool enable) = 0;
    virtual ZynResult SetShareConfigOption(int option, int value) = 0;
    virtual ZynResult SetHighFidelityTextShareToggle(int value) = 0;
    virtual int GetHighFidelityTextShareToggle() const = 0;
    virtual ZynResult EnableHighFidelityTextShare(bool enable) = 0;
    virtual bool IsEnabledHighFidelityTextShare() const = 0;
    virtual ZynResult EnableChangeSharingResolutionForUplink(bool enable) = 0;
    virtual ZynResult SetMagCapturerMaxExcludeWindowCount(int count) = 0;
    virtual ZynResult DisableSystemAnimation(bool disable) = 0;
    virtual ZynResult EnableExcludeMacMenuBar(bool enable) = 0;
    virtual ZynResult EnableCatchMagAPIException(bool enable) = 0;
    virtual ZynResult EnableIpcScreenCapturer(bool enable) = 0;
    virtual ZynResult SetVDIScreenLockStatus(bool locked) = 0;
    virtual ZynResult SetShareContentType(ZynShareContentType type) = 0;
    virtual ZynResult EnableAutoContentTypeDetect(bool enable) = 0;
    virtual ZynResult EnableHighFps(bool enable) = 0;
    virtual ZynResult EnableCaptureVideoContent(bool enable, bool withAudio) = 0;
    virtual ZynResult Enable4KVideo(bool enable) = 0;
    virtual ZynResult EnableRTXLongDelayTolerantOptmization(bool enable) = 0;
    virtual ZynResult DisableMacShareRetina(bool disable) = 0;
    virtual ZynResult EnableUserControlWASHostLifecycle(bool enable) = 0;
    virtual ZynResult SkipSharingStrictRegionCheck(bool skip) = 0;
    virtual ZynResult DisableAV1EncodeInNormalShare(bool disable) = 0;
    virtual bool IsAV1RGBEncodingEnabled() const = 0;
    virtual ZynResult EnableImmersiveSharing(bool enable) = 0;
    virtual ZynResult SetOnPremStarted(bool started) = 0;
    // Both texts required (ZYN_E_INVALIDARG for a null one).
    virtual ZynResult SetOnPremConfig(const char* sessionId, const char* token) = 0;

protected:
    ~IShareConfig() override = default;
};

// The connection as a whole. Guarded setters are marked; a refused one is also recorded in the
// session metrics under a short tag.
class IGlobalConfig {
public:
    virtual bool IsQosEnabled() const = 0;
    virtual ZynResult EnableQos(bool enable) = 0;  // guarded
    virtual ZynResult EnableDPC(bool enable) = 0;  // guarded
    virtual bool IsMultiStreamEnabled() const = 0;
    virtual ZynResult EnableMultiStream(bool enable) = 0;  // guarded
    virtual float GetQoSMaxLossRatio() const = 0;
    virtual ZynResult SetQoSMaxLossRatio(float ratio) = 0;  // guarded; 0 to 1
    virtual unsigned int GetQoSMinBandwidth() const = 0;
    virtual ZynResult SetQoSMinBandwidth(unsigned int bandwidth) = 0;  // guarded
    virtual ZynResult SetQoSMaxBandwidth(unsigned int bandwidth) = 0;  // guarded
    virtual unsigned int GetQoSInitBandwidth() const = 0;
    virtual ZynResult SetQoSInitBandwidth(unsigned int bandwidth) = 0;  // guarded
    virtual ZynResult SetNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction,
                                                  unsigned int waitMilliseconds) = 0;
    virtual bool IsICEEnabled() const = 0;
    virtual ZynResult EnableICE(bool enable) = 0;  // guarded
    virtual int getICEServerNum() const = 0;
    virtual ZynResult getICEServerAtIndex(int index, tagICEServer& server) const = 0;
    virtual bool IsSRTPEnabled() const = 0;
    virtual ZynResult EnableSRTP(bool enable) = 0;  // guarded
    virtual bool IsDtlsSRTPEnabled() const = 0;
    virtual ZynResult EnableDtlsSRTP(bool enable) = 0;  // guarded
    virtual ZynResult EnableRTCPMux(bool enable) = 0;   // guarded
    virtual bool IsRTCPMuxEnabled() const = 0;
    // A JSON object with the optional keys "audio", "hw-whitelist", "performance", "enable_sw720p".
    virtual ZynResult SetDeviceMediaSettings(const char* settings) = 0;
    virtual ZynResult EnableBGRA(bool enable) = 0;  // guarded
    virtual bool IsBGRAEnabled() const = 0;
    virtual ZynResult EnableDSCP(bool enable) = 0;  // guarded
    virtual bool IsDSCPEnable() const = 0;
    // Traffic class bytes, 0 to 255.
    virtual ZynResult SetDSCPMarking(unsigned int audio, unsigned int video, unsigned int screen) = 0;
    virtual ZynResult EnablePerformanceTraceDump(ZynPerformanceDumpType type) = 0;
    // A JSON object; anything else answers ZYN_S_FALSE and changes nothing.
    virtual ZynResult SetFeatureToggles(const char* toggles) = 0;
    virtual const char* GetFeatureToggles() const = 0;
    virtual ZynResult EnableFastLane(bool enable) = 0;  // guarded
    virtual ZynResult EnableFQDNInICE(bool enable) = 0;
    virtual bool IsFQDNInICEEnabled() const = 0;
    virtual ZynResult SetShowStunTraceIP(bool show) = 0;
    // Milliseconds, none negative; 0 is accepted.
    virtual ZynResult SetICETimeoutParams(int inactive, int connect, int terminate) = 0;
    virtual ZynResult setSendMQEInMinutes(int minutes) = 0;
    virtual ZynResult EnableMQECallback(bool enable) = 0;
    virtual ZynResult EnableFixAudioProcessingArch(bool enable) = 0;
    // Secrets (SDES keys, ICE passwords) appear unmasked in traces.
    virtual ZynResult EnableInsecureLogs(bool enable) = 0;
    virtual ZynResult SetICENoListen(bool noListen) = 0;
    virtual ZynResult UseHttpUpgrade(bool use) = 0;      // guarded
    virtual ZynResult SobeSupported(bool supported) = 0;  // guarded
    virtual bool CheckHWAcceleration() = 0;
    virtual bool CheckHWAccelerationDefaultOption() = 0;
    virtual ZynResult EnableSendingCSRC(bool enable) = 0;  // guarded
    virtual ZynResult EnableAppPackAsSTUN(bool enable) = 0;
    virtual bool IsEnableAppPackAsSTUN() const = 0;
    // Percent of CPU above which the load counts as high, and seconds between two looks.
    virtual ZynResult SetCpuHighUsageThreshold(float threshold, float interval) = 0;
    virtual ZynResult EnableBandwidthRollback(bool enable) = 0;
    virtual ZynResult SetClientType(ZynClientType type) = 0;  // guarded
    virtual ZynClientType GetClientType() const = 0;
    virtual ZynResult SetDebugFlag(unsigned int flag) = 0;
    virtual unsigned int GetDebugFlag() const = 0;
    virtual bool CheckPortraitSupported(bool front) = 0;
    virtual bool CheckGestureSupported() = 0;
    virtual ZynResult SetAudioCaptureMethod(int method) = 0;
    virtual ZynResult GetAudioCaptureMethod(int& method) const = 0;
    virtual ZynResult SetAudioPlaybackMethod(int method) = 0;
    virtual ZynResult GetAudioPlaybackMethod(int& method) const = 0;
    virtual ZynResult SetBundleIdentifier(const char* identifier, unsigned int length) = 0;
    // The STUN and TURN servers that gathering asks for server-reflexive and relayed candidates, in
    // the order given; guarded. A host that is not a numeric address is looked up when gathering.
    virtual ZynResult AddICEServer(const tagICEServer& server) = 0;
    virtual ZynResult ClearICEServers() = 0;
    // Only relayed candidates are offered and checked, for networks where nothing but the relay
    // gets through; guarded.
    virtual ZynResult EnableRelayOnly(bool enable) = 0;
    virtual bool IsRelayOnly() const = 0;

protected:
    virtual ~IGlobalConfig() = default;
};
