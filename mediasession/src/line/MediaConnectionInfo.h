// One media line: one m-line bound to one engine session, its local track and, later, its
// connector and remote tracks. The connection owns it by plain pointer.
//
// Threads: made and driven on the caller's thread of the connection; its network work runs on
// the network thread of its type (audio "t-neta", video "t-netv", share and application "t-nets").
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/ZynIdentity.h"
#include "config/MediaConfigs.h"
#include "ice/IceConnector.h"
#include "line/ScreenShareObserver.h"
#include "mediastores/Mediastores.h"
#include "sdp/codec.h"
#include "sdp/crypto.h"
#include "sdp/ice.h"
#include "sdp/multistream.h"
#include "sdp/rtp_session.h"
#include "sdp/rtp_attributes.h"
#include "mediasession/ZynDefines.h"
#include "mediasession/ZynMediaConnection.h"
#include "tp/CmEvent.h"
#include "tp/CmString.h"
#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"
#include "track/MediaTrackMgr.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynSubscribe.h"

// The tail of every trace line a line writes: its kind, call id and address.
#define LINE_TAIL MS_TAIL(ZynSessionTypeTraceTag(m_type), GetIdentityCallId())

namespace zyn {

class CMediaConnection;

class CMediaConnectionInfo final : public IZynMediaTransport,
                                   public IceConnectorSink,
                                   public IZynRemoteVideoTrackObserver,
                                   public IZynLocalVideoTrackObserver,
                                   public IZynMediaEngineEventObserver,
                                   public IZynMediaDeviceObserver,
                                   public CCmTimerWrapperIDSink,
                                   public ZYNIdentityT<CMediaConnectionInfo>,
                                   public IMediaConfigOwner {
public:
    explicit CMediaConnectionInfo(uint32_t callId);
    ~CMediaConnectionInfo() override;

    ZynResult Init(CMediaConnection* connection, ZynSessionType type, unsigned long mid);
    // Makes the local track (or, with notify, announces the existing one to the application).
    ZynResult CreateLocalZynSession(bool notify);
    void Stop();
    void Cleanup();
    // Makes the remote tracks once (six on audio, one on audio slide, one per subscribed source
    // on video and share) and announces them; a renegotiation makes none, a failover re-arms.
    ZynResult CreateRemoteZynSession(IZynMediaEngineInternal* engine, bool failover);
    size_t GetRemoteTrackCount() const { return m_pRemoteTrack ? m_pRemoteTrack->GetCount() : 0; }
    // Tracks, each with one reference (empty when there is none). The local one: the first
    // started in vid order, else the last visited.
    CZynAutoPtr<CMediaTrack> GetLocalTrack();
    CZynAutoPtr<CMediaTrack> GetAudioRemoteTrack();
    CZynAutoPtr<CMediaTrack> GetVideoRemoteTrack(int vid);
    CZynAutoPtr<CMediaTrack> GetMainVideoRemoteTrack();
    // Makes the engine track of a new local track, attaches it, and the file capturer where a
    // file path is set.
    ZynResult InitLocalTrack(CMediaTrack* track);
    // Runs option on the local engine track, or keeps it until there is one.
    using LocalTrackOption = std::function<ZynResult(IZynMediaTrack*)>;
    ZynResult ApplyLocalTrackOption(LocalTrackOption option);
    ZynResult ApplyAllLocalTrackOptions();
    // The muted state of the local media, for the engine session.
    void SetMutedStatus(bool muted);

    // Engine events (MediaConnectionInfoEvents.cpp), on engine threads: each reaches the
    // application's sink with the line's mid, nothing where the sink is gone.
    void OnKeyFrameLost(uint32_t label, uint32_t a, uint32_t b, bool flag, void* out) override;
    void OnRenderBlocked(uint32_t vid, bool blocked, int32_t frameId) override;
    void OnRenderIndication(uint32_t vid) override;
    void OnDecodeSizeChanged(uint32_t vid, uint32_t width, uint32_t height) override;
    void OnRemoteVideoTrackError(uint32_t label, int32_t code) override;
    void OnEncodedResolutionUpdate(uint32_t width, uint32_t height) override;
    void OnLocalVideoTrackError(int32_t code) override;
    void OnGestureDetectionResult(int32_t type) override;
    void OnRequiredFrameRateUpdate(uint32_t) override {}
    void OnEncodedFrameRateUpdate(uint32_t) override {}
    void OnAudioEngineError(int32_t status, void* data) override;
    void OnNotifyGLRenderError(void* notifier) override;
    void OnReceiverBandwidthUpdate(uint32_t value) override;
    void OnIndicationResult(const struct _tagIndicationResult* result) override;
    // A device appeared or went (kind 2): with the default-device switch on, the local audio
    // track follows a new microphone, on the main thread.
    void OnDeviceChanged(IZynMediaDevice* device, int32_t kind) override;
    void SetAudioDefaultDeviceSwitchState(bool on) { m_bDefaultDeviceSwitch.store(on); }
    bool GetAudioDefaultDeviceSwitchState() const { return m_bDefaultDeviceSwitch.load(); }
    void SetAudioDefaultMicrophoneDeviceSwitchState(bool on) { m_bMicrophoneSwitch.store(on); }
    bool GetAudioDefaultMicrophoneDeviceSwitchState() const { return m_bMicrophoneSwitch.load(); }
    // The last decoded size of a remote stream.
    void GetDecodeSize(uint32_t vid, uint32_t& width, uint32_t& height);

    // Chooses ports and collects candidates on the network thread, waiting for it; then, once the
    // certificate exists where DTLS needs one, reports onPortSelected to the connection.
    ZynResult StartListen(const CCmInetAddr& address, bool gather, bool nonListen);
    ZynResult StopListen();
    // Drops transports on the network thread (waiting); cleanup also closes the listeners.
    ZynResult Disconnect_i(bool cleanup, bool stopListen);
    bool IsPortSelected() const { return m_bPortSelected.load(); }
    CIceConnectorWrapper& GetIceConnector() { return m_iceConnector; }
    // Port range of the line's kind.
    static void PortRangeOf(ZynSessionType type, uint16_t& minPort, uint16_t& maxPort);

    // IceConnectorSink (network thread): the path, its keys and what arrives on it.
    void OnIceComplete(CmResult reason, ICmTransport* const* transports, int count, int origin, bool update) override;
    void OnIceCheckListReady(int origin) override;
    void UpdateIceMetricsForSipCall(CmResult reason, ICmTransport* const* transports, int count) override;
    void OnMappedPortChangedInKeepalive(int index) override;
    ZynResult setupSrtpCrypto(int direction, const char* suite, const char* key, int flag, int value) override;
    bool IsDtlsSRTPEnabled() const override;
    int GetClientType() const override;
    bool IsSipCall() const override;
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnSend(ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnDisconnect(CmResult reason, ICmTransport* transport) override;
    uint64_t GetReceivedPackets() const { return m_uRTPReceived.load(); }
    uint64_t GetSentPackets() const { return m_uRTPSent.load(); }
    uint64_t GetReceivedRtcpPackets()
    {
        std::lock_guard<std::mutex> lock(m_rtcpMutex);
        return m_rtcpPackets[0];
    }
    uint64_t GetReceivedPacketsAtVid(uint8_t vid) const { return m_vidReceived[vid].load(); }
    // The process certificate exists: take it and its fingerprint, then report the ports.
    void OnCertificateReady();
    const std::string& GetLocalFingerPrint() const { return m_chLocalFingerPrint; }

    // Connecting (main thread): the remote ICE capabilities, the address of the m line, the role
    // (the offerer controls), the connection type, mux, and the negotiated DTLS. The work runs on
    // the network thread.
    ZynResult Connect(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote, bool controlling,
                      unsigned int connectionType, bool rtcpMux, sdp::dtls_setup_role localDtlsRole,
                      const sdp::optional_value<sdp::dtls_caps>& remoteDtls);
    // The SDES keys the negotiation agreed, to the engine.
    void setupSdesKeys();
    // A transport carries the line (or an external transport was given).
    bool IsConnected() const { return m_pTransports[0].load() != nullptr; }
    bool HasRtcpTransport() const { return m_pTransports[1].load() != nullptr; }
    // Concluded path: "local -> remote" of the RTP transport, empty before.
    std::string GetSelectedPair() const;
    // The path and the engine's counters of what crossed it (any thread).
    ZynResult GetPathStatistics(_tagMediaPathStatistics& stats);
    const std::string& GetSrtpSuite() const { return m_srtpCryptoSuite; }

    // IZynMediaTransport (engine threads): packets cross to the network thread.
    int32_t GetTransportType() override { return m_transportType; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult SendApplicationData(const uint8_t* data, uint32_t length);
    // Packets the application took off a transport of its own (MediaConnectionInfoExternal.cpp);
    // they walk the same receive path as ours. ZYN_E_INVALIDARG for what no decoder could read.
    ZynResult ReceiveExternalRTP(const uint8_t* data, uint32_t size);
    ZynResult ReceiveExternalRTCP(const uint8_t* data, uint32_t size);
    // Network thread: sends the block or queues it behind earlier ones on a stream transport; a null
    // block drains the queue.
    CmResult Send_i(std::unique_ptr<CCmMessageBlock> block, int index);
    // Network thread: drops the path and has the connector clean up.
    void Disconnect(bool cleanup);

    void OnTimer(CCmTimerWrapperID* id) override;

    // IMediaConfigOwner
    bool IsCallStarted() const override;
    void SetZynErrorMetrics(const char* tag, ZynResult code) override;
    ZynSessionType GetSessionType() const override { return m_type; }
    uint32_t GetCallId() const override { return GetIdentityCallId(); }
    // A setting of the line's configuration changed: carried to the engine session or the connector
    // (MediaConnectionInfoConfig.cpp); what the descriptions read is read there when they are built.
    ZynResult OnMediaConfigChanged(EMediaConfigItem item) override;
    ZynResult SetLocalTrackOption(const char* name, const char* value) override;
    ZynResult GetLocalTrackOption(const char* name, std::string& value) override;
    ZynResult KeepLocalTrackOption(const char* name, const char* value) override;
    bool HasLocalTrack() override;
    bool IsLocalTrackStarted() override;
    // Numbered options of the engine session that settings reach.
    static constexpr int32_t kSessionOptionMaxBandwidth = 10;
    static constexpr int32_t kSessionOptionFecOverhead = 16;
    static constexpr int32_t kSessionOptionFecProbing = 17;
    static constexpr int32_t kSessionOptionDynamicFecScheme = 18;
    static constexpr int32_t kSessionOptionFeatureToggles = 22;
    static constexpr int32_t kSessionOptionRecordLossData = 23;
    static constexpr int32_t kSessionOptionRtx = 2002;
    static constexpr int32_t kSessionOptionTmmbr = 2004;
    static constexpr int32_t kSessionOptionSendCsrc = 2005;
    static constexpr int32_t kSessionOptionFec = 2006;
    static constexpr int32_t kSessionOptionBandwidthRollback = 2009;
    static constexpr int32_t kSessionOptionHybridDataFlow = 2010;
    // A file path given after the tracks exist takes effect on them at once.
    ZynResult OnFileConfigChanged(EMediaConfigItem item);

    // The configuration of the line's kind; the other three exist and stay unused.
    CBaseConfig& GetConfig();
    CAudioConfig& GetAudioConfig() { return m_audioConfig; }
    CVideoConfig& GetVideoConfig() { return m_videoConfig; }
    CShareConfig& GetShareConfig() { return m_shareConfig; }
    // The video or share configuration by the line's type; null on other lines.
    CBaseVideoConfig* GetBaseVideoConfig();
    CBaseConfig& GetBaseConfig() { return m_baseConfig; }

    // Description building (main thread). Ready: ports and candidates are known.
    bool IsSdpReady() const { return m_bSdpReady; }
    void SetSdpReady(bool ready) { m_bSdpReady = ready; }
    bool IsNegotiated() const { return m_bNegotiated; }
    void SetNegotiated(bool negotiated) { m_bNegotiated = negotiated; }
    ZynCodecType GetDefaultCodecType() const { return m_codecType; }
    bool IsAudioSlideMix() const { return false; }
    bool IsMultistream() const { return m_bMultistream; }
    // What the last negotiation agreed for this line (the requested direction stays as it was).
    ZynDirection GetNegotiatedDirection() const { return m_negotiatedDirection; }
    void SetNegotiatedDirection(ZynDirection direction) { m_negotiatedDirection = direction; }
    // DTLS keys this line's SRTP (and no crypto attribute is offered).
    bool IsDtlsInUse() const;
    bool IsSRTPEnabled() const;
    bool IsMultiStreamEnabled() const;
    // Five SDES offers, made once per line and offered again unchanged.
    void buildSrtpCryptos(std::vector<sdp::crypto>& out);
    void buildDtmfCodecs(std::vector<sdp::codec>& out);
    void buildFecCodecs(std::vector<sdp::codec>& out);
    void buildRtxCodecs(std::vector<sdp::codec>& out);
    void buildMuliCaps(sdp::optional_value<sdp::cmulti_caps>& out);
    // The line's ICE credentials and candidates (empty without ICE) and the address the m line
    // carries; the address's port is 0 while the line has no port.
    void GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& address);
    const CCmInetAddr& GetSdpAddress() const { return m_sdpAddress; }
    // What the negotiation agreed, kept for the engine set-up of the connect.
    // The engine sends on the first agreed media codec and takes every agreed one on receipt.
    void setupDecodeCodecs(const std::vector<sdp::codec>& codecs);
    void setupEncodeCodecs(const std::vector<sdp::codec>& codecs);
    void setupExtMap(const std::vector<sdp::ext_map>& maps, bool local);
    void setupBandwidth(const sdp::optional_value<unsigned>& bitsPerSecond);
    void setupMultiCaps(const sdp::optional_value<sdp::cmulti_caps>& remote);
    void setupSrtp(const std::vector<sdp::crypto>& remote, const std::vector<sdp::crypto>& local);
    // Resilience the remote end agreed; each check reads the negotiated remote section.
    bool checkSobeFec(const sdp::rtp_session& remote);
    void setupSobeFec(bool negotiated);
    bool checkSobeRtx(const sdp::rtp_session& remote);
    void setupSobeRtx();
    void setupSobeHybridResilience();
    void setupResilience(const sdp::rtp_session& remote);
    bool IsFecSetup() const { return m_bFecSetup; }
    bool IsRtxSetup() const { return m_bRtxSetup; }
    bool IsHybridSetup() const { return m_bHybridSetup; }
    const std::vector<sdp::codec>& GetEncodeCodecs() const { return m_encodeCodecs; }
    // Sends on a negotiated codec from now on (MediaConnectionInfoCodec.cpp). ZYN_E_WRONGSTATE
    // before the negotiation, ZYN_E_NOTFOUND for a codec it did not agree.
    ZynResult SetCodec(ZynCodecType type);
    // The media codec sent on; ZynCodecType_Unknown before the negotiation.
    ZynCodecType GetSendCodec() const { return m_sendCodec; }
    // The encoder's limits, as one stream of the local track's subscription.
    ZynResult SetLocalEncodeCapability(const _tagVideoEncodeCapability& capability);
    // What the local engine track was last told; ZYN_E_NOTFOUND when nothing yet.
    ZynResult GetLocalEncodeCapability(_tagVideoEncodeCapability& capability);
    const std::vector<sdp::codec>& GetDecodeCodecs() const { return m_decodeCodecs; }
    uint32_t GetSendBandwidth() const { return m_sendBandwidth; }

    unsigned long GetMid() const { return m_mid; }
    int32_t GetDirection() const { return m_nDirection; }
    void SetDirection(int32_t direction) { m_nDirection = direction; }
    IZynMediaSession* GetZynSession() const { return m_pZynSession; }
    // The engine track under the local track, without a reference (null when none).
    IZynMediaTrack* GetLocalEngineTrack();
    int GetThreadType() const { return m_nThreadType; }
    int GetMaxSources() const { return m_maxSources; }
    bool GetCVOSend() const { return m_bCVOSend; }
    bool GetCVORecv() const { return m_bCVORecv; }
    uint32_t GetLocalCSI() const { return m_localCsi; }
    CMediaConnection* GetMediaConnection() const { return m_sink; }

    // Network thread type of a session type.
    static int ThreadTypeOf(ZynSessionType type);

    // Subscriptions and lip sync (MediaConnectionInfoSync.cpp).
    // The far end's SCR version from its multistream capability (0 without one).
    uint32_t GetScrVersion() const;
    bool SharingOverVideoPipeline() const { return m_bSharingOverVideoPipeline.load(); }
    void SetSharingOverVideoPipeline(bool on) { m_bSharingOverVideoPipeline.store(on); }
    // Mode 1 with a non-zero rate: no layer a local encoder makes exceeds that frame rate.
    void SetMaxFrameLimit(int32_t mode, uint32_t fps);
    int32_t GetMaxFrameLimitMode() const { return m_nMaxFrameLimitMode.load(); }
    uint32_t GetMaxFrameRateBound() const { return m_uMaxFrameRateBound.load(); }
    // The sync table: which remote video stream shows a CSI, so that its audio can be played in
    // step with it. A track enters with its single source and leaves when the source changes or
    // at UnInit; the table holds no reference.
    void checkSyncBox(CMediaTrack* track, uint32_t csi);
    void removeSyncBoxTrack(uint32_t csi, CMediaTrack* track);
    void removeSyncBoxTrack(CMediaTrack* track);
    // The vid of the stream synced to a CSI, or -1.
    int GetSyncVid(uint32_t csi);

    // Track and engine events, second half (MediaConnectionInfoTrackEvents.cpp). Engine threads
    // (OnAnnounce: the subscription thread); nothing where the sink is gone.
    void OnStreamBandwidthUpdate(const ZynStreamBandwidth* record);
    void OnSelfviewSizeUpdate(_tagVideoSizeInfo* size);
    // Every started local track makes a key frame.
    void OnPictureLossIndication(void* notifier, uint32_t a, uint32_t b, const ZynKeyFrameRequest* request, void* out);
    // The far end names the active speakers: the remote audio stream's sources, told at its next poll.
    void OnActiveSpeakerIndication(const uint32_t* csis, uint32_t count);
    void OnAnnounce(const ZynSimulcastAnnounce* announce);
    uint32_t GetLiveSourceCount() const { return m_liveSourceCount.load(); }
    void SetAudioDefaultSpeakerDeviceSwitchState(bool on) { m_bSpeakerSwitch.store(on); }
    // The application's observers of the share capturer; the engine's capture events go to them.
    ZynResult AddScreenShareObserver(IZynScreenShareObserver* observer) { return m_shareObservers.AddObserver(observer); }
    ZynResult RemoveScreenShareObserver(IZynScreenShareObserver* observer)
    {
        return m_shareObservers.RemoveObserver(observer);
    }
    void OnCaptureStatusChanged(void* notifier, ZynScreenCaptureStatus status);
    void OnCaptureEvent(void* notifier, int32_t event, int32_t value);
    void OnCapturePositionChanged(void* notifier, int32_t left, int32_t top, int32_t right, int32_t bottom);
    // The smallest send performance any of the line's tracks was given so far, after taking `level`
    // into account: a replaced or restarted track never goes back above what the machine once could not do.
    int32_t KeepLowestSendPerformance(int32_t level)
    {
        if (m_lowestSendPerformance < 0 || level < m_lowestSendPerformance) m_lowestSendPerformance = level;
        return m_lowestSendPerformance;
    }

    // Paths made without a negotiation (MediaConnectionInfoDirect.cpp); main thread.
    // The configured range of the line, or the range of its kind.
    void GetLocalPortRange(uint16_t& minPort, uint16_t& maxPort);
    // Listens on the address and port (0: one of the line's range; otherwise the port, and the next
    // one for RTCP without mux), then makes the remote tracks. boundPort: the port taken.
    ZynResult SetLocalPort(const CCmInetAddr& address, uint16_t port, bool rtcpMux, uint16_t& boundPort);
    // Connects without ICE to the address (port 0: the one connected before); the result comes as
    // a session status.
    ZynResult ConnectRemote(const CCmInetAddr& remote, unsigned int connectionType, bool rtcpMux);
    // The engine session sends through the application's transport (null: through the line again).
    ZynResult SetTransport(IZynMediaTransport* transport, bool transportChanged);
    ZynResult OnSendReady();
    // Asks the configured servers again; done(success, text) runs on the main thread.
    ZynResult AllocateRelayedAndReflexive(std::function<void(bool, const std::string&)> done);
    // Starts ICE over on the network thread, waiting: keepListeners keeps the sockets and drops the
    // checks' contexts; otherwise force and keepListening go to the connector's reset.
    ZynResult ResetIce(bool keepListeners, bool force, bool keepListening);

    // The application's stream operations (MediaConnectionInfoStreams.cpp), main thread.
    // A subscription into the first remote stream without one: its request joins the next SCR,
    // its layer goes to the stream's engine track (option 19). ZYN_E_WRONGSTATE before the remote
    // streams exist, ZYN_E_NOTFOUND when every one is subscribed.
    ZynResult Subscribe(ZynSimulcastRequest request, const _tagVideoEncodeCapability& layer, int& vid);
    ZynResult Unsubscribe(int vid);
    // The requests of every remote stream that has one to send, to the engine session.
    ZynResult SendSCR();
    // Receiver-selected requests of oldCsi select newCsi; ZYN_E_NOTFOUND when none did.
    ZynResult UpdateRemoteCSI(uint32_t oldCsi, uint32_t newCsi);
    ZynResult SetQoSState(bool running);
    ZynResult SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume);
    ZynResult IndicatePictureLoss(int vid);
    ZynResult TurnOnRTPHeaderExtensions(const ZynRTPHeaderExtType* types, unsigned count);
    ZynResult QueryRTPExtensionID(const char* uri, eStreamDirection direction, uint8_t& id);
    // The extensions turned on, as the line's next description offers them.
    void buildExtMaps(std::vector<sdp::ext_map>& out) const;
    ZynResult CreateAudioSIRemoteZynSession(IZynMediaEngineInternal* engine, uint32_t csi, int32_t policy);
    ZynResult DestroyAudioSIRemoteZynSession(uint32_t csi);
    ZynResult AddLocalTrack(uint32_t sourceId, uint8_t& vid);
    ZynResult RemoveLocalTrack(uint32_t sourceId);
    ZynResult SetActiveLocalTrack(uint32_t sourceId);
    ZynResult SetActiveRemoteTrack(int vid);
    ZynResult SetMediaContentCipher(IZynMediaTrackBase* track, IZynMediaContentCipher* cipher);
    ZynResult SetNegotiatedRemoteDirection(ZynDirection direction);

private:
    // The shared start of Connect and ConnectRemote: false (asserted) without a network thread;
    // address: the remote, or the one connected before when its port is 0.
    bool beginConnect(const CCmInetAddr& remote, bool keysRequired, CCmInetAddr& address);
    // Runs connect on the network thread; a success clears the count of failed attempts.
    ZynResult postConnect(std::function<ZynResult()> connect);

    // Stream operations (MediaConnectionInfoStreams.cpp), main thread.
    // The vid of the local track labelled sourceId, or -1.
    int FindLocalVid(uint32_t sourceId);
    // Local sending follows what the far end takes and which source is active.
    void ApplyLocalSending();
    std::vector<std::pair<std::string, uint8_t>> m_headerExtensions;  // uri and id, in turn-on order
    int m_siVids[2] = {-1, -1};   // the interpreter's two remote streams, -1 when none
    uint32_t m_siCsi = 0;
    int32_t m_remoteDirection = ZynDirection_SendRecv;  // as the application told it
    uint32_t m_activeSourceId = 0;
    bool m_bActiveSourceSet = false;

    int32_t m_lowestSendPerformance = -1;  // main thread; -1 none yet
    // A question the connection answers; after Cleanup every feature reads as off.
    template <class Query>
    bool FromSink(Query query) const
    {
        if (!m_sink) {
            CM_ASSERT_REPORT("m_sink");
            return false;
        }
        return query(*m_sink);
    }
    ZynResult CreateSession();
    ZynResult CreateRemoteTracks(IZynMediaEngineInternal* engine, int count);
    void PostMediaReady(ZynDirection direction, CMediaTrack* track);
    void ReleaseTracks(std::unique_ptr<CMediaTrackMgr>& tracks);
    ZynResult CreateConnector();
    // Listening ends when the certificate (with DTLS) and the servers' candidates are there.
    void OnListenStepDone();
    // Data plane (MediaConnectionInfoRtp.cpp), network thread.
    void ReceiveRTP(const uint8_t* data, uint32_t size);
    void ReceiveRTCP(const uint8_t* data, uint32_t size);
    ZynResult PostSend(const uint8_t* data, uint32_t length, bool rtcp);
    // Connected state (MediaConnectionInfoNetwork.cpp).
    void SessionConnected(bool transportChanged);
    void StartSendEvent();
    void ReleaseTransports();
    void ReportStatus(int status);

    CMediaConnection* m_sink = nullptr;  // the connection; cleared by Cleanup
    unsigned long m_mid = 0;
    ZynSessionType m_type = ZynSessionType_Unknown;
    int32_t m_nDirection = 0;
    int32_t m_transportType = 0;
    int m_nThreadType = 1;
    int m_maxSources = 1;
    bool m_bCVOSend = false;
    bool m_bCVORecv = false;
    bool m_bInited = false;
    bool m_bCleaning = false;
    uint32_t m_localCsi = 0;
    IZynMediaSession* m_pZynSession = nullptr;  // one reference
    std::unique_ptr<CMediaTrackMgr> m_pLocalTrack;   // the local track at vid 0
    std::unique_ptr<CMediaTrackMgr> m_pRemoteTrack;  // remote tracks by vid
    // Vids with a remote track, read per packet on the network thread without the manager's lock.
    std::array<std::atomic<bool>, CMediaTrackMgr::kSlots> m_vidHasTrack{};
    std::vector<LocalTrackOption> m_pendingLocalOptions;  // main thread
    bool m_bDeviceObserver = false;  // registered with the engine's device list
    std::atomic<bool> m_bDefaultDeviceSwitch{false};
    std::atomic<bool> m_bMicrophoneSwitch{false};
    std::mutex m_decodeSizeMutex;
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> m_decodeSizes;  // guarded by m_decodeSizeMutex
    ICmEventQueue* m_eqNetwork = nullptr;
    ACmThread* m_networkThread = nullptr;
    CIceConnectorWrapper m_iceConnector;
    std::atomic<bool> m_bPortSelected{false};
    std::atomic<int> m_pendingListenSteps{0};  // main thread, and the network thread's completion
    bool m_bStopListen = true;
    ICmEvent* m_certificateObserver = nullptr;  // registered with the generator, not yet fired
    // The path: index 0 RTP, 1 RTCP (null with mux). Written on the network thread, which owns the
    // references; engine threads only test them.
    std::atomic<ICmTransport*> m_pTransports[2] = {nullptr, nullptr};
    std::atomic<bool> m_bSendBlocked[2] = {false, false};  // written on the network thread, read by senders
    std::deque<std::unique_ptr<CCmMessageBlock>> m_sendQueue[2];      // network thread
    uint32_t m_transportFlags[2] = {0, 0};                            // network thread
    std::atomic<uint32_t> m_uRTPReceived{0};
    std::atomic<uint32_t> m_uRTPSent{0};
    std::array<std::atomic<uint32_t>, 256> m_vidReceived{};
    std::mutex m_rtcpMutex;
    uint64_t m_rtcpPackets[2] = {0, 0};  // guarded by m_rtcpMutex: received, sent
    uint64_t m_rtcpBytes[2] = {0, 0};    // guarded by m_rtcpMutex
    std::unique_ptr<uint8_t[]> m_pReceiveBuffer;  // network thread: a chained packet made flat
    std::string m_srtpCryptoSuite;
    uint32_t m_uConnectFailures = 0;     // network thread
    bool m_bReconnecting = false;        // network thread
    std::atomic<bool> m_bFirstRtpSend{true};
    std::atomic<bool> m_bFirstRtpRecv{true};
    std::atomic<bool> m_bSendStarted{false};
    std::atomic<bool> m_bSendKeyed{false};     // the engine has its send key
    std::atomic<bool> m_bReceiveKeyed{false};  // ... and its receive key
    std::atomic<bool> m_bKeysRequired{false};  // DTLS-SRTP agreed: nothing goes in or out in clear
    bool m_bStartedSending = false;
    // Written where the connect starts (main thread) and where it concludes (network thread), read
    // on either.
    std::atomic<uint64_t> m_connectStartTick{0};
    std::atomic<uint64_t> m_connectedTick{0};
    CCmInetAddr m_connectAddr;
    CCmTimerWrapperID m_reconnectTimer;  // network thread
    std::string m_chLocalFingerPrint;
    // The process certificate and key, copied on first use by any line.
    CAudioConfig m_audioConfig{this};
    CVideoConfig m_videoConfig{this};
    CShareConfig m_shareConfig{this};
    CBaseConfig m_baseConfig{this};
    ZynCodecType m_codecType = ZynCodecType_Unknown;
    bool m_bSdpReady = false;
    bool m_bNegotiated = false;
    bool m_bMultistream = false;
    ZynDirection m_negotiatedDirection = ZynDirection_None;
    CCmInetAddr m_sdpAddress;
    std::vector<sdp::crypto> m_cryptos;  // made once, offered on every description
    std::vector<sdp::crypto> m_negotiatedCryptos[2];  // [0] what we send with, [1] what we receive with
    std::vector<sdp::codec> m_encodeCodecs;
    ZynCodecType m_sendCodec = ZynCodecType_Unknown;
    std::vector<sdp::codec> m_decodeCodecs;
    std::vector<sdp::ext_map> m_extMaps[2];  // [0] remote, [1] local
    sdp::optional_value<sdp::cmulti_caps> m_remoteMultiCaps;
    uint32_t m_sendBandwidth = 0;
    uint8_t m_remoteFecPayload = 0;
    ZynSobeRtxInfo m_rtxInfo{};
    bool m_bFecSetup = false;
    bool m_bRtxSetup = false;
    bool m_bHybridSetup = false;
    // The call store's entity of this line (null when the store refused one); released with the line.
    IMediastoresEntity* m_pMediastoresEntity = nullptr;
    // Subscriptions, sync and announces.
    std::atomic<int32_t> m_nMaxFrameLimitMode{0};
    std::atomic<uint32_t> m_uMaxFrameRateBound{0};
    std::atomic<bool> m_bSharingOverVideoPipeline{false};
    std::mutex m_syncMutex;
    std::map<uint32_t, CMediaTrack*> m_syncTable;  // guarded by m_syncMutex; no references
    std::atomic<uint32_t> m_liveSourceCount{0};
    std::atomic<bool> m_bSpeakerSwitch{false};
    CScreenShareObserver m_shareObservers;
    static std::mutex s_dtlsMutex;
    static CCmString m_pDtlsCert;
    static CCmString m_pDtlsPriKey;
};

}  // namespace zyn
