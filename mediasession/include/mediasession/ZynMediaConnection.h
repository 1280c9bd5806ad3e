// The connection interface an application holds, and the sink through which it hears back.
#pragma once

#include "mediasession/ZynDefines.h"
#include "mediasession/ZynRecorder.h"
#include "mediasession/ZynStatistics.h"
#include "mediasession/ZynTransport.h"

class IZynMediaTrackBase;
class IAudioConfig;
class IVideoConfig;
class IShareConfig;
class IBaseConfig;
class IGlobalConfig;
class IZynMediaPackage;
class IZynScreenShareObserver;
struct _tagVideoSizeInfo;
struct _tagIndicationResult;
struct tagCameraProperty;
struct _tagRtpFilter;
class IZynMediaContentCipher;
enum ZynSubscribePolicy : int32_t;
enum ZynVideoQualityType : int32_t;
enum eStreamDirection : int32_t;

// Link state of a direction; values come from the media engine.
enum ZynNetworkStatus : int32_t {
    ZynNetwork_Recovered = 0,
    ZynNetwork_Bad = 1,
    ZynNetwork_VeryBad = 2,
    ZynNetwork_Video_Off = 3,
};
enum _tagNetworkDirection : int32_t {
    ZynNetworkDirection_Uplink = 1,
    ZynNetworkDirection_Downlink = 2,
    ZynNetworkDirection_Both = 3,
};
enum ZynEventMetricsType : int32_t {
    ZynEventMetrics_MQE = 0,
    ZynEventMetrics_ICE = 1,
};
enum ZynPerformanceStatus : int32_t {
    ZynPerformance_Normal = 0,
    ZynPerformance_Downgrade = 1,
    ZynPerformance_Upgrade = 2,
};
enum ZynPerformanceReason : int32_t {
    ZynPerformanceReason_None = 0,
    ZynPerformanceReason_CPU = 1,
    ZynPerformanceReason_Memory = 2,
};
enum ZynGestureType : int32_t {
    ZynGesture_None = 0,
};
// RTP header extensions a line can carry (TurnOnRTPHeaderExtensions); each has its URI in a=extmap.
enum ZynRTPHeaderExtType : int32_t {
    ZynRTPHeaderExt_AudioLevel = 0,          // urn:ietf:params:rtp-hdrext:ssrc-audio-level (RFC 6464)
    ZynRTPHeaderExt_CsrcAudioLevel = 1,      // urn:ietf:params:rtp-hdrext:csrc-audio-level (RFC 6465)
    ZynRTPHeaderExt_TransmissionOffset = 2,  // urn:ietf:params:rtp-hdrext:toffset (RFC 5450)
    ZynRTPHeaderExt_VideoOrientation = 3,    // urn:3gpp:video-orientation
    ZynRTPHeaderExt_FrameMarking = 4,        // urn:ietf:params:rtp-hdrext:framemarking
    ZynRTPHeaderExt_Mid = 5,                 // urn:ietf:params:rtp-hdrext:sdes:mid (RFC 8843)
};

// One media line of a remote description, filled for the application by SetReceivedSDP.
struct _tagSdpParsedInfo {
    int32_t sessionType;
    int32_t direction;
    uint64_t mid;
    bool flag;
};

// The network path of a line and what crossed it, as the statistics calls give them. Addresses
// are "ip:port" ("[ip]:port" for IPv6); texts are empty while there is no path.
struct _tagMediaPathStatistics {
    char localAddress[64];
    char remoteAddress[64];
    char candidateType[8];  // of the local end of the selected pair: "host", "srflx", "prflx", "relay"
    char srtpSuite[32];     // the suite that protects the line, empty when it runs in clear
    uint32_t connectMs;     // from the connect to the path being up, 0 before
    uint64_t packetsSent;
    uint64_t packetsReceived;
    uint64_t bytesSent;
    uint64_t bytesReceived;
    int64_t packetsLost;  // expected less received, over the remote sources
    float lossPercent;
    float jitterMs;
    float rttMs;  // 0 until the far end reported on us
    float kbpsIn;
    float kbpsOut;
    uint64_t srtpFailures;  // packets that failed authentication or replay checks
};
struct _tagAudioConnectionStatistics {
    _tagMediaPathStatistics path;
};
struct _tagVideoConnectionStatistics {
    _tagMediaPathStatistics path;
};
struct _tagScreenConnectionStatistics {
    _tagMediaPathStatistics path;
};

// Every operation has an empty default: an application overrides what it needs. The library holds
// a plain pointer; it is the application's to keep alive until the connection is stopped.
class IZynMediaConnectionSink {
public:
    virtual ~IZynMediaConnectionSink() = default;
    virtual void OnReserved0() {}
    virtual void OnReserved1() {}
    virtual void OnMediaReady(unsigned long, ZynDirection, ZynSessionType, IZynMediaTrackBase*) {}
    virtual void OnSDPReady(ZynSdpType, const char*) {}
    virtual void OnMediaBlocked(unsigned long, unsigned int, bool, int) {}
    virtual void OnReserved2() {}
    virtual void OnEncodeSizeChanged(unsigned long, unsigned int, unsigned int) {}
    virtual void OnRenderSizeChanged(unsigned long, unsigned int, ZynDirection, _tagVideoSizeInfo*) {}
    virtual void OnSessionStatus(unsigned long, ZynSessionType, int) {}
    virtual void OnMediaStatus(unsigned long, unsigned int, int, int, int) {}
    virtual void OnAvailableMediaChanged(unsigned long, int) {}
    virtual void OnMediaError(unsigned long, unsigned int, int) {}
    virtual void OnNetworkStatus(ZynNetworkStatus, _tagNetworkDirection) {}
    virtual void OnError(int, void*) {}
    virtual void OnCSIsChanged(unsigned long, unsigned int, const unsigned int*, unsigned int, const unsigned int*,
                               unsigned int) {}
    virtual void OnAudioTimeStampChanged(unsigned int, unsigned int) {}
    virtual void OnPictureLossIndication() {}
    virtual void OnRequestAvatarForMute(bool) {}
    virtual void OnReserved3() {}
    virtual void OnReserved4() {}
    virtual void OnEventReportReady(ZynEventMetricsType, const char*) {}
    virtual void OnPerformanceStatus(ZynPerformanceStatus, ZynPerformanceReason) {}
    virtual void OnKeyFrameLost(unsigned long, unsigned int, unsigned int, unsigned int) {}
    virtual void OnIndicationResult(unsigned long, const _tagIndicationResult*) {}
    virtual void OnReceiveApplicationData(unsigned long, const unsigned char*, unsigned int) {}
    virtual void OnReceiverBandwidthUpdate(unsigned long, unsigned int) {}
    virtual void OnAllocateTurnRelayedAndReflexiveAddressComplete(unsigned long, bool, const char*) {}
    virtual void OnCheckIceServerComplete(bool, const char*, const char*, const char*) {}
    virtual void OnMuteNotified(bool) {}
    virtual void OnGestureDetectionResult(unsigned long, ZynGestureType) {}
    virtual void OnImmersiveSharingVideoOverlapPos(unsigned int, unsigned int, unsigned int, unsigned int, int) {}
    virtual void OnReserved5() {}
    virtual void OnCameraProperty(tagCameraProperty*) {}
    virtual void OnUpdateCaptureResolution(unsigned int, unsigned int) {}
    virtual void OnCapturePhotoOutput(IZynMediaPackage*) {}
    virtual void OnLiveSourcesAvailableMediaChanged(unsigned long, int) {}
};

// Call these from the library's main thread (the application's registered one). They take no
// connection-wide lock: with DTLS-SRTP a line that waited for the certificate finishes on the main
// thread, and a CreateOffer or CreateAnswer made on another thread would race it.
class IZynMediaConnection : public IZynUnknown {
public:
    // Adds the line with that mid, or extends its direction. ZYN_S_FALSE: it already had it.
    virtual ZynResult AddMedia(ZynSessionType type, ZynDirection direction, unsigned long mid,
                               const char* debugOption) = 0;
    virtual ZynResult UpdateMedia(ZynDirection direction, unsigned long mid) = 0;
    virtual ZynResult CreateOffer() = 0;
    // The remote description; info (capacity *count) receives one record per media line.
    virtual ZynResult SetReceivedSDP(ZynSdpType type, const char* sdp, _tagSdpParsedInfo* info, int* count) = 0;
    virtual ZynResult CreateAnswer() = 0;
    virtual ZynResult SetSink(IZynMediaConnectionSink* sink) = 0;
    // A line's configuration by its mid; null for an unknown mid or a line of another kind.
    virtual IAudioConfig* GetAudioConfig(unsigned long mid) = 0;
    virtual IVideoConfig* GetVideoConfig(unsigned long mid) = 0;
    virtual IShareConfig* GetShareConfig(unsigned long mid) = 0;
    virtual IBaseConfig* GetApplicationConfig(unsigned long mid) = 0;
    virtual IGlobalConfig* GetGlobalConfig() = 0;
    // Ends the call. The application's reference stays valid until it releases it.
    virtual void Stop() = 0;
    virtual unsigned int GetMediaConnectionCallID() = 0;
    virtual ZynResult StartSDPRenegotiation() = 0;
    // 0 nothing negotiated, 1 remote offer held, 2 local offer out, 3 negotiated.
    virtual int GetSDPStatus() = 0;

protected:
    ~IZynMediaConnection() override = default;
};

class IZynMediaConnection4T : public IZynMediaConnection {
public:
    // Capture events of the share line with that mid. ZYN_E_NOTFOUND for a mid without a line,
    // ZYN_E_POINTER for a null observer, ZYN_E_DUPLICATE when it is already registered.
    virtual ZynResult AddScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer) = 0;
    virtual ZynResult RemoveScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer) = 0;
    // The line's path and flow. ZYN_E_FAIL for a mid without a line of that kind.
    virtual ZynResult GetAudioStatistics(unsigned long mid, _tagAudioConnectionStatistics& stats) = 0;
    virtual ZynResult GetVideoStatistics(unsigned long mid, _tagVideoConnectionStatistics& stats) = 0;
    virtual ZynResult GetScreenStatistics(unsigned long mid, _tagScreenConnectionStatistics& stats) = 0;
    // The machine's and this process's CPU load since the previous reading. ZYN_E_FAIL when the
    // system's counters cannot be read.
    virtual ZynResult GetCPUStatistics(_tagZynCPUUsage& usage) = 0;
    // The machine's and this process's memory. ZYN_E_FAIL when the system's figures cannot be read.
    virtual ZynResult GetMemoryStatistics(_tagZynMemoryUsage& usage) = 0;
    // The first battery's charge (0 to 100) and whether it charges. ZYN_E_NOTFOUND on a machine
    // without a battery, outputs untouched.
    virtual ZynResult GetBatteryStatistics(bool& charging, int& level) = 0;
    // What all lines carried together. Always ZYN_S_OK; no line counted once the call stopped.
    virtual ZynResult GetNetworkMetrics(_tagZynAggregateNetworkMetricStats& stats) = 0;
    // The session metrics as one JSON object; valid until the next call of the same operation.
    virtual const char* GetMediaSessionMetrics() = 0;
    // The same figures as a JSON array of one message per figure.
    virtual const char* GetMediaSessionMetricsForSAP() = 0;
    // The reduced JSON object of a call cancelled before it ran.
    virtual const char* GetCallCancelMetrics() = 0;
    // Lip sync of the remote video with that CSI. ZYN_E_NOTFOUND for a CSI no remote video
    // carries, ZYN_E_NOTAVAILABLE for one it does (the engine keeps no lip-sync figures).
    virtual ZynResult GetSyncStatistics(unsigned int csi, _tagSyncStatistics& stats) = 0;
    // Asks the far end for one more stream of a video or share line, at a quality, into the next
    // remote stream without a subscription; vid receives its slot. csi names the source for the
    // receiver-selected and source-indexed policies; avatar accepts a sender's avatar in place of its
    // video; mainVideo is reserved. ZYN_E_FAIL for a mid without a video or share
    // line, ZYN_E_INVALIDARG for a quality above 1080p (sharing takes 4K as 1080p),
    // ZYN_E_WRONGSTATE before the negotiation made the remote streams, ZYN_E_NOTFOUND when every
    // one is subscribed.
    virtual ZynResult Subscribe(unsigned long mid, ZynSubscribePolicy policy, ZynVideoQualityType quality, int& vid,
                                unsigned char priority, unsigned char grouping, bool duplicate, unsigned int csi,
                                bool avatar, bool mainVideo) = 0;
    // The same by explicit limits: size in pixels, frames per second, bits per second and
    // macroblocks per second (0: from size and rate). ZYN_E_INVALIDARG for a zero size, rate or bitrate.
    virtual ZynResult Subscribe(unsigned long mid, ZynSubscribePolicy policy, unsigned short width,
                                unsigned short height, unsigned int fps, unsigned int bitrate, unsigned int mbps,
                                int& vid, unsigned char priority, unsigned char grouping, bool duplicate,
                                unsigned int csi, bool avatar, bool mainVideo) = 0;
    // Ends the subscription of that slot. ZYN_E_FAIL for a mid without a line, ZYN_E_NOTFOUND for a
    // slot without one.
    virtual ZynResult Unsubscribe(unsigned long mid, unsigned char vid) = 0;
    // How long a link state must last before OnNetworkStatus tells it. ZYN_E_INVALIDARG for an
    // unknown status or direction, ZYN_E_WRONGSTATE after Stop, ZYN_E_NOTAVAILABLE otherwise: no
    // link watch is built yet.
    virtual ZynResult SetGlobalNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction,
                                                        unsigned int waitMs) = 0;
    // The engine's network index of the direction, 1 (worst) to 100; the lower of the two for
    // both; 0 (unknown) for another direction or after Stop.
    virtual int GetNetworkIndex(_tagNetworkDirection direction) = 0;
    // Settings as one JSON object: connection-wide keys at the top, the line's under "audio",
    // "video", "screen" or "audio-slide". Absent keys change nothing; a key that fails (wrong type,
    // refused value, guarded after the call started) leaves its setting alone, the others still
    // apply, and the last failure is the result. ZYN_E_INVALIDARG for a null text or one that is no
    // object, ZYN_E_POINTER for a mid without a line.
    virtual ZynResult SetParams(unsigned long mid, const char* params, unsigned int length) = 0;
    // The same shape, read back; valid until the next call. "{}" for a mid without a line.
    virtual const char* GetParams(unsigned long mid) = 0;
    // Samples the call every second and writes statistic lines every `interval` ms (at least 1000,
    // else ZYN_E_INVALIDARG). ZYN_E_WRONGSTATE after Stop.
    virtual ZynResult StartMediaLogging(long interval, int logType) = 0;
    // Ends the sampling and the lines; always ZYN_S_OK.
    virtual ZynResult StopMediaLogging() = 0;
    // The playout time of an audio RTP time stamp, for video to follow. ZYN_E_WRONGSTATE after
    // Stop, ZYN_E_NOTAVAILABLE otherwise (the engine's video follows no outside audio clock).
    virtual ZynResult SyncWithAudioTimestamp(unsigned int rtpTimestamp, unsigned int playoutMs) = 0;
    // Holds the rate control of the line's sending still, or lets it adapt again. ZYN_E_POINTER for
    // a mid without a line or engine session.
    virtual ZynResult PauseQoS(unsigned long mid) = 0;
    virtual ZynResult ResumeQoS(unsigned long mid) = 0;
    // A source the signalling names (uniqueId, e.g. a participant); when a source of that name and
    // type comes with a new CSI, subscriptions of the call that selected the old one follow it.
    // ZYN_E_WRONGSTATE for a mid without a line or a null uniqueId.
    virtual ZynResult AddObservedCSI(unsigned int csi, const char* uniqueId, unsigned long mid,
                                     ZynSessionType type) = 0;
    virtual IZynRecorder* GetRecordService() = 0;
    virtual ZynResult StartOnpremSharing(const char* info) = 0;
    virtual ZynResult StopOnpremSharing() = 0;
    // Binds a line without negotiation: listens on localIp (null or empty: the machine's address)
    // and port (0: a free one of the line's range), RTP and RTCP on one port with rtcpMux, makes the
    // remote tracks, and writes the port taken to boundPort when given. ZYN_E_FAIL for an unknown
    // mid, ZYN_E_INVALIDARG for an address that is no numeric IP or a port that leaves no room for
    // RTCP, ZYN_E_GATHERFAILED when the port cannot be bound.
    virtual ZynResult SetLocalPort(unsigned long mid, const char* localIp, unsigned short port, bool rtcpMux,
                                   unsigned int* boundPort) = 0;
    // Sends and receives from the line's send destination (its configuration's SetSendDestination)
    // without ICE; statuses reach OnSessionStatus. ZYN_E_FAIL for an unknown mid, ZYN_E_WRONGSTATE
    // for a line with no port or no destination.
    virtual ZynResult ConnectRemote(unsigned long mid, bool rtcpMux) = 0;
    // Drops the line's path and keeps its port; ZYN_E_FAIL for an unknown mid.
    virtual ZynResult DisconnectRemote(unsigned long mid) = 0;
    // A telephone event (0-9, *, #, A-D as 0 to 15) of durationMs on an audio line, at volume 0 to
    // 63 (-dBm0). flag is reserved. ZYN_E_INVALIDARG for a mid without an audio line or a bad
    // argument, ZYN_E_FAIL when the line cannot send one (not connected, no telephone-event agreed).
    virtual ZynResult SendTelephoneEvent(unsigned long mid, unsigned char event, unsigned short durationMs,
                                         unsigned char volume, int flag) = 0;
    virtual ZynResult StartPlayRingTone(_tagAudioRawFormat* format, const unsigned char* data, unsigned int length,
                                        unsigned int loops) = 0;
    virtual ZynResult StopPlayRingTone() = 0;
    // Bytes to the far end of an application line, as one datagram (or one record on a stream).
    // ZYN_E_FAIL for a mid without a connected application line, ZYN_E_INVALIDARG for no bytes.
    virtual ZynResult SendApplicationData(unsigned long mid, const unsigned char* data, unsigned int length) = 0;
    // The TURN servers of the next gathering: server is "[turn:]host[:port]" (port 3478 when
    // absent), credential "user:password", alternates a null-ended list of more servers with the
    // same credential, or null. Replaces the TURN servers given before. ZYN_E_INVALIDARG for a
    // text that does not parse (nothing is changed then), ZYN_E_FAIL after the call started.
    virtual ZynResult ConfigureTURN(const char* server, const char* credential, ZynTURNTransportType transport,
                                    const char** alternates) = 0;
    // Forgets the TURN servers; ZYN_S_FALSE when there were none.
    virtual ZynResult CancelConfigureTurn() = 0;
    // As ConfigureTURN for STUN servers ("[stun:]host[:port]"); the credential may be null.
    virtual ZynResult ConfigureSTUN(const char* server, const char* credential, const char** alternates) = 0;
    virtual ZynResult CancelConfigureStun() = 0;
    // Not available in this library: ZYN_E_NOTAVAILABLE (ZYN_E_INVALIDARG for a null address).
    virtual ZynResult CheckIceServerConnectiveWithLocalIp(const char* localIp) = 0;
    // Asks every configured server again for the line's reflexive and relayed addresses; the answer
    // reaches OnAllocateTurnRelayedAndReflexiveAddressComplete on the main thread. ZYN_E_FAIL for an
    // unknown mid, ZYN_E_WRONGSTATE before the line listens, ZYN_S_FALSE with no server configured.
    virtual ZynResult allocateTurnRelayedAndReflexiveAddress(unsigned long mid) = 0;
    // Starts the line's ICE over: gathers again with the same credentials and drops the checks; with
    // keepListening the sockets stay. Nothing when no check ran and both flags are false.
    // ZYN_E_FAIL for an unknown mid.
    virtual ZynResult resetIceForBwcCalling(unsigned long mid, bool force, bool keepListening) = 0;
    // The same, keeping the listening sockets and dropping the checks' contexts; ZYN_E_FAIL for an
    // unknown mid.
    virtual ZynResult resetIceForZarnCalling(unsigned long mid) = 0;
    // Sizes of a received video stream, to colour its quality. ZYN_E_NOTIMPL for a null record,
    // ZYN_E_INVALIDARG for a mid without a video line, ZYN_E_NOTAVAILABLE otherwise (no quality
    // indicator is built yet).
    virtual ZynResult UpdateDownLinkIndicationInfo(_tagDownLinkIndicationInfo* info, unsigned long mid) = 0;
    // The MQE interval report as JSON (it starts the next interval); "{}" for ICE, whose records
    // are not kept yet; null for an unknown type. Valid until the next call.
    virtual const char* GetEventReport(ZynEventMetricsType type) = 0;
    // Closes the line's listening sockets; ZYN_E_FAIL for an unknown mid.
    virtual ZynResult StopListening(unsigned long mid) = 0;
    // Checks of a SIP call's lines: this library makes no SIP calls, so ZYN_E_NOTAVAILABLE.
    virtual ZynResult StartIceConnectivityCheckForSipCall() = 0;
    // End-to-end media keys by epoch. This library has no frame encryption: after the argument
    // checks each answers ZYN_E_NOTAVAILABLE. ZYN_E_INVALIDARG for a mid without a line, a null or
    // empty key, or a zero size.
    virtual ZynResult UpdateEpochKey(unsigned long mid, unsigned long epoch, unsigned char* key, unsigned int length,
                                     bool sender, unsigned int keyId, unsigned short cipherSuite) = 0;
    virtual ZynResult SetUseEpoch(unsigned long mid, unsigned long epoch) = 0;
    virtual ZynResult InitSframe(unsigned long mid, unsigned short cipherSuite, unsigned short counterBits) = 0;
    virtual ZynResult PurgeKeyBefore(unsigned long mid, unsigned long epoch) = 0;
    // Adds the interpreter's channel of source csi to an audio line, as two more remote streams
    // (announced by OnMediaReady); one language at a time. ZYN_E_FAIL for a mid without an audio
    // line, ZYN_E_WRONGSTATE before the remote streams exist or while a language is subscribed.
    virtual ZynResult SubscribeAudioSI(unsigned long mid, unsigned int csi, ZynSubscribePolicy policy) = 0;
    // Removes them again. ZYN_E_NOTFOUND when that source is not subscribed.
    virtual ZynResult UnsubscribeAudioSI(unsigned long mid, unsigned int csi) = 0;
    // What the far end does with the line, when the application learnt it outside the description:
    // a far end that receives nothing is sent nothing. ZYN_E_INVALIDARG for a mid without a line or
    // a direction above send-and-receive.
    virtual ZynResult SetNegotiatedRemoteDirection(unsigned long mid, ZynDirection direction) = 0;
    // The application carries the line's packets: the engine sends through transport (kept, not
    // owned, until replaced, detached with null, or Stop), and the line counts as connected
    // (transportChanged: reported as a change of path). ZYN_E_FAIL for an unknown mid or a line
    // without an engine session.
    virtual ZynResult SetTransport(unsigned long mid, IZynMediaTransport* transport, bool transportChanged) = 0;
    // The cipher a track's frames pass through; a null track: every track of the line. ZYN_E_FAIL
    // for a mid without a line, ZYN_E_INVALIDARG for a null cipher, ZYN_E_NOTFOUND for a track of
    // another line.
    virtual ZynResult SetMediaContentCipher(unsigned long mid, IZynMediaTrackBase* track,
                                            IZynMediaContentCipher* cipher) = 0;
    // The line offers these extensions from its next description on, each with an id of its own.
    // ZYN_E_FAIL for a mid without a line, ZYN_E_INVALIDARG for no types or an unknown one.
    virtual ZynResult TurnOnRTPHeaderExtensions(unsigned long mid, ZynRTPHeaderExtType* types,
                                                unsigned char count) = 0;
    // The id of an extension: out, the one this end sends with; in, the one the far end's
    // description gave. ZYN_E_FAIL for a mid without a line, ZYN_E_INVALIDARG for a null uri,
    // ZYN_E_NOTFOUND for an extension not in use.
    virtual ZynResult QueryRTPExtensionID(unsigned long mid, const char* uri, eStreamDirection direction,
                                          unsigned char& id) = 0;
    // Packets the application received on a transport of its own, handed to the line's engine
    // session. The filter and its output are reserved; pass null. ZYN_E_FAIL for an unknown mid.
    virtual ZynResult ReceiveRTP(unsigned long mid, unsigned char* data, unsigned int length, _tagRtpFilter* filter,
                                 unsigned char* filterOut) = 0;
    virtual ZynResult ReceiveRTCP(unsigned long mid, unsigned char* data, unsigned int length) = 0;
    // An audio stream outside any line, played from packets the application hands in with
    // ReceiveAdhocRTP; vid 0 to 255 names it. ZYN_E_FAIL without an engine (after Stop),
    // ZYN_E_DUPLICATE for a vid already made.
    virtual ZynResult CreateAdhocAudioTrack(unsigned int vid) = 0;
    // ZYN_E_POINTER before any adhoc track, ZYN_E_INVALIDARG for an unknown vid or no bytes.
    virtual ZynResult ReceiveAdhocRTP(unsigned int vid, unsigned char* data, unsigned int length) = 0;
    // The line's engine session drops what it received so far and starts its streams anew.
    virtual ZynResult Failover(unsigned long mid) = 0;
    // The remote stream of that slot lost its picture: the far end is asked for a key frame.
    // ZYN_E_FAIL for a mid without a video or share line, ZYN_E_NOTFOUND for a slot without a
    // stream, ZYN_E_WRONGSTATE before the line is connected.
    virtual ZynResult IndicatePictureLoss(unsigned long mid, unsigned int vid) = 0;
    // One more local source on the line, labelled sourceId (its CSI); vid receives its slot and
    // OnMediaReady announces it. ZYN_E_WRONGSTATE for a mid without a line or a line without a
    // local track yet, ZYN_E_DUPLICATE for a sourceId already there.
    virtual ZynResult AddLocalTrack(unsigned long mid, unsigned int sourceId, unsigned char& vid) = 0;
    // Removes a source that AddLocalTrack made. ZYN_E_NOTFOUND for another sourceId.
    virtual ZynResult RemoveLocalTrack(unsigned long mid, unsigned int sourceId) = 0;
    // That local source sends, the line's others hold their media back. ZYN_E_NOTFOUND for an
    // unknown sourceId.
    virtual ZynResult SetActiveLocalTrack(unsigned long mid, unsigned int sourceId) = 0;
    // The remote stream of that slot is the one the line plays in front. ZYN_E_NOTFOUND for a slot
    // without a stream.
    virtual ZynResult SetActiveRemoteTrack(unsigned long mid, unsigned char vid) = 0;
    // The capture source identifier that the line's stream with this label announces.
    // ZYN_E_POINTER for a mid without a line or a line without an engine session yet.
    virtual ZynResult UpdateCSI(unsigned long mid, unsigned int label, unsigned int csi) = 0;
    // An application transport that refused a packet (30000013, would block) takes packets again;
    // the engine sends nothing to it in between. ZYN_E_FAIL for an unknown mid.
    virtual ZynResult OnSendReady(unsigned long mid) = 0;

protected:
    ~IZynMediaConnection4T() override = default;
};

// The identifier that connections answer to in QueryInterface.
constexpr _tagUUID ZYNIID_IZynMediaConnection = {
    0x6d1c2a50, 0x3b7e, 0x4c1f, {0x9a, 0x11, 0x5e, 0x27, 0x80, 0x4d, 0xc3, 0x19}};
