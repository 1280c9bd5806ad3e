// The session object an application holds: it owns the engine instance of the call, the media
// lines and the negotiation state, and reports through one sink.
//
// Threads: public operations run on the caller's thread (the application is expected to use the
// main thread); remote descriptions and the clean-up after Stop run on the main thread (type 0).
// m_sdpStatus and m_sendSdpType have no lock for that reason.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/ZynIdentity.h"
#include "common/ZynUnknownImpl.h"
#include "config/GlobalConfig.h"
#include "connection/MediaRecorder.h"
#include "mediasession/ZynGlobalServices.h"
#include "mediasession/ZynMediaConnection.h"
#include "metrics/SessionMetrics.h"
#include "sdp/offer_answer.h"
#include "sdp/session_group.h"
#include "track/MediaAdhocAudio.h"
#include "zyn/ZynSubscribe.h"
#include "tp/CmInetAddr.h"
#include "tp/CmMutex.h"
#include "tp/CmTimerWrapperID.h"

class IZynMediaEngineInternal;
class IZynNetworkIndicator;
class ACmThread;

namespace zyn {

class CMediaConnectionInfo;
class CMediaConnection;
using CMediaConnectionPtr = CZynAutoPtr<CMediaConnection>;

class CMediaConnection final : public IZynMediaConnection4T,
                               public CZynUnknownImpl,
                               public CCmTimerWrapperIDSink,
                               public ZYNIdentityT<CMediaConnection>,
                               public IGlobalConfigOwner,
                               public IZynRecorder {
public:
    // Engine option of the "manualAdaptBitrate" setting: a rate the engine keeps to, 0 for none; four bytes.
    static constexpr int32_t kEngineOptionManualAdaptBitrate = 503;
    // Engine option that takes the texts of some feature toggles, with their length.
    static constexpr int32_t kEngineOptionFeatureText = 502;

    CMediaConnection(unsigned int callId, bool externalTransport, bool svs, bool externalCsi);

    ZYN_IMPLEMENT_REFCOUNT
    ZynResult QueryInterface(const _tagUUID& iid, void** out) override;

    // IZynMediaConnection
    ZynResult AddMedia(ZynSessionType type, ZynDirection direction, unsigned long mid, const char* debugOption) override;
    ZynResult UpdateMedia(ZynDirection direction, unsigned long mid) override;
    ZynResult CreateOffer() override;
    ZynResult SetReceivedSDP(ZynSdpType type, const char* sdp, _tagSdpParsedInfo* info, int* count) override;
    ZynResult CreateAnswer() override;
    ZynResult SetSink(IZynMediaConnectionSink* sink) override;
    void Stop() override;
    unsigned int GetMediaConnectionCallID() override { return m_callId; }
    ZynResult StartSDPRenegotiation() override;
    int GetSDPStatus() override { return m_sdpStatus; }
    IAudioConfig* GetAudioConfig(unsigned long mid) override;
    IVideoConfig* GetVideoConfig(unsigned long mid) override;
    IShareConfig* GetShareConfig(unsigned long mid) override;
    IBaseConfig* GetApplicationConfig(unsigned long mid) override;
    IGlobalConfig* GetGlobalConfig() override { return &m_globalConfig; }

    // IZynMediaConnection4T, in its slot order
    ZynResult AddScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer) override;
    ZynResult RemoveScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer) override;
    ZynResult GetAudioStatistics(unsigned long mid, _tagAudioConnectionStatistics& stats) override;
    ZynResult GetVideoStatistics(unsigned long mid, _tagVideoConnectionStatistics& stats) override;
    ZynResult GetScreenStatistics(unsigned long mid, _tagScreenConnectionStatistics& stats) override;
    ZynResult GetCPUStatistics(_tagZynCPUUsage& usage) override;
    ZynResult GetMemoryStatistics(_tagZynMemoryUsage& usage) override;
    ZynResult GetBatteryStatistics(bool& charging, int& level) override;
    ZynResult GetNetworkMetrics(_tagZynAggregateNetworkMetricStats& stats) override;
    const char* GetMediaSessionMetrics() override;
    const char* GetMediaSessionMetricsForSAP() override;
    const char* GetCallCancelMetrics() override;
    ZynResult GetSyncStatistics(unsigned int csi, _tagSyncStatistics& stats) override;
    ZynResult Subscribe(unsigned long mid, ZynSubscribePolicy policy, ZynVideoQualityType quality, int& vid, unsigned char priority, unsigned char grouping, bool duplicate, unsigned int csi, bool avatar, bool mainVideo) override;
    ZynResult Subscribe(unsigned long mid, ZynSubscribePolicy policy, unsigned short width, unsigned short height, unsigned int fps, unsigned int bitrate, unsigned int mbps, int& vid, unsigned char priority, unsigned char grouping, bool duplicate, unsigned int csi, bool avatar, bool mainVideo) override;
    ZynResult Unsubscribe(unsigned long mid, unsigned char vid) override;
    ZynResult SetGlobalNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction, unsigned int waitMs) override;
    int GetNetworkIndex(_tagNetworkDirection direction) override;
    ZynResult SetParams(unsigned long mid, const char* params, unsigned int length) override;
    const char* GetParams(unsigned long mid) override;
    ZynResult StartMediaLogging(long interval, int logType) override;
    ZynResult StopMediaLogging() override;
    ZynResult SyncWithAudioTimestamp(unsigned int rtpTimestamp, unsigned int playoutMs) override;
    ZynResult PauseQoS(unsigned long mid) override;
    ZynResult ResumeQoS(unsigned long mid) override;
    ZynResult AddObservedCSI(unsigned int csi, const char* uniqueId, unsigned long mid, ZynSessionType type) override;
    IZynRecorder* GetRecordService() override;
    ZynResult StartOnpremSharing(const char* info) override;
    ZynResult StopOnpremSharing() override;
    ZynResult SetLocalPort(unsigned long mid, const char* ip, unsigned short port, bool flag, unsigned int* out) override;
    ZynResult ConnectRemote(unsigned long mid, bool flag) override;
    ZynResult DisconnectRemote(unsigned long mid) override;
    ZynResult SendTelephoneEvent(unsigned long mid, unsigned char event, unsigned short durationMs, unsigned char volume, int flag) override;
    ZynResult StartPlayRingTone(_tagAudioRawFormat* format, const unsigned char* data, unsigned int length, unsigned int loops) override;
    ZynResult StopPlayRingTone() override;
    ZynResult SendApplicationData(unsigned long mid, const unsigned char* data, unsigned int length) override;
    ZynResult ConfigureTURN(const char* server, const char* credential, ZynTURNTransportType transport, const char** out) override;
    ZynResult CancelConfigureTurn() override;
    ZynResult ConfigureSTUN(const char* server, const char* credential, const char** out) override;
    ZynResult CancelConfigureStun() override;
    ZynResult CheckIceServerConnectiveWithLocalIp(const char* localIp) override;
    ZynResult allocateTurnRelayedAndReflexiveAddress(unsigned long mid) override;
    ZynResult resetIceForBwcCalling(unsigned long mid, bool flag1, bool flag2) override;
    ZynResult resetIceForZarnCalling(unsigned long mid) override;
    ZynResult UpdateDownLinkIndicationInfo(_tagDownLinkIndicationInfo* info, unsigned long mid) override;
    const char* GetEventReport(ZynEventMetricsType type) override;
    ZynResult StopListening(unsigned long mid) override;
    ZynResult StartIceConnectivityCheckForSipCall() override;
    ZynResult UpdateEpochKey(unsigned long mid, unsigned long epoch, unsigned char* key, unsigned int length, bool sender, unsigned int keyId, unsigned short cipherSuite) override;
    ZynResult SetUseEpoch(unsigned long mid, unsigned long epoch) override;
    ZynResult InitSframe(unsigned long mid, unsigned short cipherSuite, unsigned short counterBits) override;
    ZynResult PurgeKeyBefore(unsigned long mid, unsigned long epoch) override;
    ZynResult SubscribeAudioSI(unsigned long mid, unsigned int csi, ZynSubscribePolicy policy) override;
    ZynResult UnsubscribeAudioSI(unsigned long mid, unsigned int csi) override;
    ZynResult SetNegotiatedRemoteDirection(unsigned long mid, ZynDirection direction) override;
    ZynResult SetTransport(unsigned long mid, IZynMediaTransport* transport, bool flag) override;
    ZynResult SetMediaContentCipher(unsigned long mid, IZynMediaTrackBase* track, IZynMediaContentCipher* cipher) override;
    ZynResult TurnOnRTPHeaderExtensions(unsigned long mid, ZynRTPHeaderExtType* types, unsigned char count) override;
    ZynResult QueryRTPExtensionID(unsigned long mid, const char* uri, eStreamDirection direction, unsigned char& id) override;
    ZynResult ReceiveRTP(unsigned long mid, unsigned char* data, unsigned int length, _tagRtpFilter* filter, unsigned char* filterOut) override;
    ZynResult ReceiveRTCP(unsigned long mid, unsigned char* data, unsigned int length) override;
    ZynResult CreateAdhocAudioTrack(unsigned int vid) override;
    ZynResult ReceiveAdhocRTP(unsigned int vid, unsigned char* data, unsigned int length) override;
    ZynResult Failover(unsigned long mid) override;
    ZynResult IndicatePictureLoss(unsigned long mid, unsigned int vid) override;
    ZynResult AddLocalTrack(unsigned long mid, unsigned int sourceId, unsigned char& vid) override;
    ZynResult RemoveLocalTrack(unsigned long mid, unsigned int sourceId) override;
    ZynResult SetActiveLocalTrack(unsigned long mid, unsigned int sourceId) override;
    ZynResult SetActiveRemoteTrack(unsigned long mid, unsigned char vid) override;
    ZynResult UpdateCSI(unsigned long mid, unsigned int label, unsigned int csi) override;
    ZynResult OnSendReady(unsigned long mid) override;

    // IZynRecorder (MediaConnectionRecord.cpp)
    ZynResult StartRecord(const char* path) override;
    ZynResult StopRecord() override;
    ZynResult PauseRecord() override;
    ZynResult ResumeRecord() override;
    ZynResult RecordVideo(bool enable) override;
    ZynResult PutRawVideoSample(unsigned int vid, _tagVideoRawFormat* format, unsigned char* data, unsigned int length,
                                ZynVideoSampleType type) override;
    ZynResult StartRecord4T(IZynMediaRecord* record) override;
    ZynResult StopRecord4T() override;
    ZynResult StartRecordVideo4T(IZynMediaRecord* record, unsigned char vid, bool mixed) override;
    ZynResult StopRecordVideo4T(unsigned char vid, bool mixed) override;

    // IGlobalConfigOwner
    void SetZynErrorMetrics(const char* tag, ZynResult code) override;
    ZynResult OnGlobalConfigChanged(EGlobalConfigItem item) override;
    ZynResult SetMediaEngineOption(int32_t option, const void* value, uint32_t size) override;

    ZynResult Init();
    ZynResult ProcessDebugOption(ZynSessionType type, unsigned long mid, const char* option);
    // Applies a toggle text that differs from the last one taken (MediaConnectionToggles.cpp).
    void SetFeatureToggles(const char* text);
    // False (and out untouched) while none were taken.
    bool GetFeatureToggles(json::Value& out) const;
    void OnTimer(CCmTimerWrapperID* id) override;

    // Lines.
    CMediaConnectionInfo* FindConnection(ZynSessionType type);
    CMediaConnectionInfo* FindConnection(unsigned long mid);
    size_t GetConnectionCount() const { return m_connections.size(); }
    int GetIceLineCount() const { return m_iceLineCount; }

    // Sink side, used by the lines and by the global services.
    IZynMediaConnectionSink* GetSink() const { return m_pSink.load(); }
    void callBackOnError(int code, void* data);
    // OnSessionStatus of a line, on the main thread (any thread may call).
    void callBackOnSessionStatus(unsigned long mid, ZynSessionType type, int status);
    std::vector<std::string> GetNotifiedErrors();
    IZynMediaEngineInternal* GetEngine() const { return m_pZynEngine; }
    CSessionMetrics& GetSessionMetrics() { return m_sessionMetrics; }
    bool IsCallStarted() const override { return m_bCallStarted; }
    bool IsSipCall() const { return m_bSipCall; }

    // Connection-wide switches live in the global configuration (legal only before the call starts).
    CGlobalConfig& GetGlobalConfigImpl() { return m_globalConfig; }
    void EnableICE(bool enable) { m_globalConfig.EnableICE(enable); }
    bool IsICEEnabled() const { return m_globalConfig.IsICEEnabled(); }
    void EnableDtlsSRTP(bool enable) { m_globalConfig.EnableDtlsSRTP(enable); }
    bool IsDtlsSRTPEnabled() const { return m_globalConfig.IsDtlsSRTPEnabled(); }
    int GetClientType() const { return m_globalConfig.GetClientType(); }

    // A line has chosen its ports (and has its certificate where DTLS needs one).
    void onPortSelected(CMediaConnectionInfo* line);
    bool IsSvs() const { return m_bSvs; }
    bool IsExternalTransport() const { return m_bExternalTransport; }
    int GetSendSdpType() const { return m_sendSdpType; }
    uint64_t GetIceTieBreaker() const { return m_iceTieBreaker; }
    const CCmInetAddr& GetLocalAddress() const { return m_localAddress; }
    bool IsMediaRunning() const { return m_mediaRunning.load() != 0; }

    // The class-wide list of live connections.
    static void AddMediaConnection(CMediaConnection* connection);
    static CMediaConnectionPtr FindMediaConnectionByCallID(unsigned int callId);
    static CMediaConnectionPtr FindMediaConnectionByCallID(unsigned int callId, ZynSessionType type);
    static size_t GetMediaConnectionCount();
    // Every live connection of the call, each with a reference held.
    static std::vector<CMediaConnectionPtr> FindAllMediaConnectionsByCallID(unsigned int callId);

    // What the application told of the call (SetMediaCallInfo).
    void SetCallInfo(const _tagZynCallInfo& info);
    _tagZynCallInfo GetCallInfo();

private:
    ~CMediaConnection() override;

    // Local description (MediaConnectionSdp.cpp).
    ZynResult selectPort();
    ZynResult buildUpdateSdp();
    void newLocalSessionGroup();
    bool buildLocalSdp(std::string& text);
    void buildSdpSession(CMediaConnectionInfo* line);
    void buildCodecs(CMediaConnectionInfo* line, std::vector<sdp::codec>& out, const std::vector<ZynCodecType>& list);
    std::vector<ZynCodecType> SortOutCodecs(ZynSessionType type, const std::vector<ZynCodecType>& priority,
                                            const std::vector<ZynCodecType>& preferred);
    void sendLocalSdp(const char* what, const std::string& text);
    ZynResult checkLocalNegotiated(const sdp::optional_value<sdp::session_group>& group);
    std::string getUserName() const;
    void traceSdp(const std::string& text);

    // Remote description (MediaConnectionRemote.cpp); main thread.
    ZynResult SetReceivedSDP_m(ZynSdpType type, const std::string& sdp, _tagSdpParsedInfo* info, int* count);
    ZynResult checkRemoteOffer(_tagSdpParsedInfo* info, int* count);
    ZynResult checkRemoteNegotiated(const sdp::optional_value<sdp::session_group>& group, bool isAnswer);
    void checkNegotiatedConnection(const sdp::optional_value<sdp::session_group>& local,
                                   const sdp::optional_value<sdp::session_group>& remote, _tagSdpParsedInfo* info,
                                   int* count);
    void checkNegotiatedOffer(_tagSdpParsedInfo* info, int* count);
    ZynResult applyRemoteAnswer(const std::string& sdp, _tagSdpParsedInfo* info, int* count, bool first);
    unsigned long checkConnectionWithIndex(ZynSessionType type, size_t position);
    // The first RTP section of the type in the local negotiated description, or null.
    const sdp::rtp_session* FindLocalNegotiated(ZynSessionType type) const;

    CMediaConnectionInfo* AddConnection(ZynSessionType type, unsigned long mid);
    ZynResult GetLocalIp(CCmInetAddr& address);
    void initRandomSeed();
    void CheckSessionInactive();
    void StopConnections();
    void ClearConnections();
    // Reports a failure through the metrics with its tag; returns the code for chaining.
    ZynResult Kick(const char* tag, ZynResult code);

    const unsigned int m_callId;
    std::atomic<int32_t> m_mediaRunning{0};
    // Read on any thread that reports; cleared by Stop on the main thread, so that no callback runs
    // once Stop returned.
    std::atomic<IZynMediaConnectionSink*> m_pSink{nullptr};
    std::vector<CMediaConnectionInfo*> m_connections;  // owned, in AddMedia order
    IZynMediaEngineInternal* m_pZynEngine = nullptr;   // one reference
    IZynNetworkIndicator* m_pNetworkIndicator = nullptr;  // one reference
    CCmInetAddr m_localAddress;
    int32_t m_sendSdpType = 0;  // 0 nothing pending, 1 offer pending, 2 answer pending
    int32_t m_sdpStatus = 0;    // see GetSDPStatus
    std::string m_remoteSdp;
    CSessionMetrics m_sessionMetrics;
    bool m_bCallStarted = false;
    // The first description carries version 0: the counter starts one below and wraps.
    uint32_t m_sdpVersion = 0xFFFFFFFF;
    std::unique_ptr<sdp::session_group> m_pLocalSessionGroup;
    sdp::optional_value<sdp::session_group> m_localNegotiated;
    sdp::optional_value<sdp::session_group> m_remoteNegotiated;
    uint64_t m_localSdpSentTick = 0;
    uint64_t m_selectPortTick = 0;
    CGlobalConfig m_globalConfig{this};
    uint64_t m_iceTieBreaker = 0;
    const bool m_bExternalTransport;
    const bool m_bSvs;
    const bool m_bExternalCsi;
    bool m_bSipCall = false;
    int32_t m_iceLineCount = 0;
    bool m_bStoppingConnections = false;
    bool m_bLowTickStarted = false;

    std::string m_paramsText;  // what GetParams last returned
    json::Value m_featureToggles;  // the last toggles taken, an object once any were
    std::mutex m_callInfoMutex;
    _tagZynCallInfo m_callInfo{};  // guarded by m_callInfoMutex: any thread may set it

    CCmMutexThread m_errorMutex;
    std::vector<std::string> m_notifiedErrors;  // guarded by m_errorMutex

    // Network operations (MediaConnectionNetwork.cpp, MediaConnectionIceServers.cpp).
public:
    // The lowest and the highest port of the lines' ranges; 0 without lines.
    uint16_t GetPortMin();
    uint16_t GetPortMax();
    // Parses the server texts whole, then replaces the servers of the kind (turn: TURN, else STUN).
    ZynResult _configureICE(const char* server, const char* credential, ZynTURNTransportType transport,
                            const char** alternates, bool turn);

private:
    void GetPortRange(uint16_t& lowest, uint16_t& highest);
    ZynResult CancelConfigure(ZynIceServerKind kind);
    std::vector<tagICEServer> ServersOtherThan(ZynIceServerKind kind) const;
    ZynResult ReplaceServers(const std::vector<tagICEServer>& servers);

    // Statistics, metrics documents and media logging (MediaConnectionStatistics.cpp,
    // MediaConnectionLogging.cpp). The tick runs on the "low-pri-stat" thread.
    friend struct CMediaConnectionStatsProbe;  // tests tick the statistic timer themselves
    ZynResult ReadCpuUsage(_tagZynCPUUsage& usage);
    ZynResult ReadMemoryUsage(_tagZynMemoryUsage& usage);
    // The lines as they stand, for the tick on its own thread.
    std::vector<CMediaConnectionInfo*> SnapshotLines();
    void OnStatisticTick();
    void OnMinuteTick();
    void DumpLineStatistics(CMediaConnectionInfo* line, const _tagMediaPathStatistics& path);
    void SendMediaQualityIntervalEvent();
    void ReleaseStatisticThread();
    // Stop's part: logging ends and cannot start again, so no tick outlives the lines.
    void CloseMediaLogging();
    std::atomic<bool> m_bLoggingClosed{false};
    std::mutex m_cpuMutex;
    bool m_cpuSampled = false;     // guarded by m_cpuMutex, as the two baselines
    uint64_t m_lastCpuTotal = 0, m_lastCpuIdle = 0, m_lastProcessTicks = 0;
    // Guards the shape of m_connections against the tick's copy (lines are deleted only once
    // logging has stopped).
    std::mutex m_linesMutex;
    CCmTimerWrapperID m_statTimer;    // on m_statThread
    CCmTimerWrapperID m_minuteTimer;  // on m_statThread
    ACmThread* m_statThread = nullptr;  // one use of the singleton, released by Stop
    uint32_t m_tickPeriodMs = 1000;
    std::atomic<uint32_t> m_statsInterval{1000};  // ms between statistic lines
    std::atomic<int32_t> m_logType{-1};
    uint32_t m_tickCount = 0;       // statistics thread only
    uint32_t m_mqeTickCount = 0;    // statistics thread only
    bool m_wifiTraced = false;      // statistics thread only
    std::atomic<bool> m_bLogging{false};
    bool m_perfsStatsStopped = true;
    // Texts handed out by the metrics operations; each valid until the same operation runs again.
    std::string m_metricsText, m_sapMetricsText, m_cancelMetricsText, m_eventReportText;

    // Stream operations: subscriptions, QoS, tracks, epochs, adhoc audio (MediaConnectionStreams.cpp).
public:
    // The adhoc audio path (tests read its engine session).
    CMediaAdhocAudio& GetAdhocAudio() { return m_adhocAudio; }

private:
    // Both Subscribe forms once the limits are known: the line, its request and its layer.
    ZynResult SubscribeLine(unsigned long mid, ZynSubscribePolicy policy, const _tagVideoEncodeCapability& layer,
                            int& vid, unsigned char priority, unsigned char grouping, bool duplicate, unsigned int csi,
                            bool avatar);
    // The line of an epoch operation, or null after the miss line of `operation`.
    CMediaConnectionInfo* FindEpochLine(const char* operation, unsigned long mid);
    CMediaAdhocAudio m_adhocAudio{m_callId};

    // Recording, ring tone, on-prem sharing (MediaConnectionRecord.cpp).
    // The remote tracks a recording starts from, each referenced.
    void GatherRecordSources(CRecordSources& sources);
    CMediaRecorder m_recorder;

    static CCmMutexThread m_mutexVecMediaConnection;
    static std::vector<CMediaConnection*> m_vecMediaConnection;  // guarded by the mutex above
};

}  // namespace zyn
