// The simulated media engine: engine, session and track objects with numbered options. Sessions
// send synthetic media as SRTP through the transport the media line gives them, and measure what
// comes back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mediasession/ZynDefines.h"
#include "mediasession/ZynMediaTrack.h"
#include "mediasession/ZynTransport.h"

class IZynMediaTrack;
class IZynMediaFileCapturer;
class IZynMediaFileRenderer;


enum ZynTrackKind : int32_t {
    ZynTrack_AudioLocal = 0,
    ZynTrack_AudioSlideLocal = 1,
    ZynTrack_ExternalAudioLocal = 2,
    ZynTrack_VideoLocal = 3,
    ZynTrack_ExternalVideoLocal = 4,
    ZynTrack_ScreenShareLocal = 5,
    ZynTrack_RemoteAudio = 6,
    ZynTrack_RemoteVideo = 7,
    ZynTrack_RemoteScreenShare = 8,
};

// Option storage shared by sessions and tracks: any id, any size, read back as set.
class IZynOptionHolder {
public:
    virtual ZynResult SetOption(int32_t id, const void* value, uint32_t size) = 0;
    // size in: capacity of value; out: bytes stored. ZYN_E_NOTFOUND for an option never set,
    // ZYN_E_INVALIDARG when the capacity is too small.
    virtual ZynResult GetOption(int32_t id, void* value, uint32_t& size) = 0;
    // Options the engine knows by name ("AEC_aec_enabled"), each value a text. A null or empty
    // name, or a null value: ZYN_E_INVALIDARG.
    virtual ZynResult SetNamedOption(const char* name, const char* value) = 0;
    // size in: capacity of value, terminator included; out: length of the text. ZYN_E_NOTFOUND for
    // a name never set, ZYN_E_INVALIDARG when the text does not fit.
    virtual ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) = 0;

protected:
    virtual ~IZynOptionHolder() = default;
};

// Track option 68: a local track's media goes out (1, the default) or is held back (0).
constexpr int32_t ZynTrackOption_SendingData = 68;
// Track option 157: an external audio source is muted (1) or not (0).
constexpr int32_t ZynTrackOption_ExternalAudioMute = 157;
// Capturer option 100: the file starts again at its end (1) or the stream ends there (0).
constexpr int32_t ZynCapturerOption_Loop = 100;

// Track option 21: hardware encoding of a local video or share track (1) or software (0).
constexpr int32_t ZynTrackOption_HardwareEncode = 21;
// Track option 67: the start of a local camera track ends later, told by OnStartedCapture (1).
constexpr int32_t ZynTrackOption_AsyncStart = 67;
// Track command 7: a render window to draw again; the track counts them under this name
// (GetNamedOption).
constexpr int32_t ZynTrackCommand_UpdateRenderWindow = 7;
constexpr const char* ZynTrackCount_WindowUpdates = "count.window_updates";

// What a local video track tells its owner about its capture (engine threads). A track calls it
// under its observer lock: SetCaptureObserver(nullptr) returns only once no call runs.
class IZynMediaCaptureObserver {
public:
    // The end of a start that went on after Start returned (option 67).
    virtual void OnStartedCapture(IZynMediaTrack* notifier, ZynResult result) = 0;
    virtual void OnUpdateCaptureResolution(uint32_t width, uint32_t height) = 0;
    virtual void OnUpdateCaptureFPS(uint32_t fps) = 0;
    virtual void OnUpdateCapturedVideoType(int32_t type) = 0;
    virtual void OnCameraRuntimeDie() = 0;
    virtual void OnCameraErrorEvicted() = 0;
    virtual void OnUpdateCaptureStartTime(uint64_t ms) = 0;
    virtual void OnCameraNoAuth() = 0;
    virtual void OnCameraProperty(tagCameraProperty* property) = 0;
    virtual void OnCapturePhotoOutput(IZynMediaPackage* photo) = 0;

protected:
    virtual ~IZynMediaCaptureObserver() = default;
};

// What a remote audio track tells its owner (engine threads).
class IZynRemoteAudioTrackObserver {
public:
    virtual void OnPlaybackTimestampUpdated(uint32_t rtpTimestamp, uint32_t playoutMs) = 0;

protected:
    virtual ~IZynRemoteAudioTrackObserver() = default;
};

// What else a track holds of its owner's: looked up by kind and pointer, never called back
// except processing (each received frame before it is rendered).
enum ZynTrackAttachment : int32_t {
    ZynTrackAttach_Processing = 0,
    ZynTrackAttach_Effect = 1,
    ZynTrackAttach_Cipher = 2,
};

class IZynMediaTrack : public IZynUnknown, public IZynOptionHolder {
public:
    virtual ZynTrackKind GetKind() = 0;
    virtual ZynResult SetLabel(uint32_t label) = 0;
    virtual ZynResult GetLabel(uint32_t& label) = 0;
    virtual ZynResult Start() = 0;
    virtual ZynResult Stop() = 0;
    virtual ZynResult Uninit() = 0;
    virtual bool IsStarted() = 0;
    // Local tracks: what the track sends instead of its device (null detaches). The track holds a
    // reference. ZYN_E_INVALIDARG on a remote track.
    virtual ZynResult SetFileCapturer(IZynMediaFileCapturer* capturer) = 0;
    // Remote tracks: where what arrives goes, in arrival order. One renderer a track; it holds a
    // reference. ZYN_E_INVALIDARG on a local track, ZYN_E_DUPLICATE while one is attached.
    virtual ZynResult AddExternalRenderer(IZynMediaFileRenderer* renderer) = 0;
    virtual ZynResult RemoveExternalRenderer(IZynMediaFileRenderer* renderer) = 0;
    // Local device tracks: the capture device (null: the engine's default); remote audio tracks:
    // the speaker they play on. ZYN_E_INVALIDARG for a device of another kind than the track's media.
    virtual ZynResult SetDevice(IZynMediaDevice* device) = 0;
    // The device in use with one reference, or null.
    virtual IZynMediaDevice* GetDevice() = 0;
    // One-shot commands. Command 4 (ZynSubscribe.h) with its 16-byte request: a running local video
    // or share track makes a key frame. Command 7 with the window: a remote video or share track
    // draws that window again. ZYN_E_INVALIDARG for a null value or another size,
    // ZYN_E_WRONGSTATE on a stopped track, ZYN_E_NOTIMPL for other commands or kinds.
    virtual ZynResult SendCommand(int32_t id, const void* value, uint32_t size) = 0;
    // Key frames the track's encoder has made on request.
    virtual uint32_t GetKeyFrameCount() = 0;
    // Remote video and share tracks: windows that show the picture, counted frame by frame.
    virtual ZynResult AddRenderer(void* window, int32_t flags) = 0;
    virtual ZynResult RemoveRenderer(void* window) = 0;
    // Remote tracks: the application's frame renderer, in the given raw format.
    virtual ZynResult AddFrameRenderer(IZynExternalRenderer* renderer, int32_t format) = 0;
    virtual ZynResult RemoveFrameRenderer(IZynExternalRenderer* renderer) = 0;
    // Frames a window or frame renderer was handed; 0 for one not attached.
    virtual uint64_t GetRenderedFrames(const void* renderer) = 0;
    virtual ZynResult GetVideoStatistics(_tagVideoStatistics& stats) = 0;
    virtual ZynResult Attach(ZynTrackAttachment kind, void* item) = 0;
    virtual ZynResult Detach(ZynTrackAttachment kind, void* item) = 0;
    virtual bool IsAttached(ZynTrackAttachment kind, const void* item) = 0;
    // Local video tracks: capture events go to the observer (null: none).
    virtual ZynResult SetCaptureObserver(IZynMediaCaptureObserver* observer) = 0;
    virtual ZynResult SetRemoteAudioObserver(IZynRemoteAudioTrackObserver* observer) = 0;
    // Local camera tracks: a picture of the capture, told by OnCapturePhotoOutput.
    virtual ZynResult TakePhoto() = 0;
    // External video tracks: where the owner feeds frames, with one reference.
    virtual ZynResult GetExternalInputter(IZynExternalInputter** out) = 0;
    // A running local camera track's device failed (code 1 died, 2 evicted, 3 no permission), as a
    // camera would report it: tests and tools.
    virtual ZynResult SimulateCameraEvent(int32_t code) = 0;
};

// Raw formats a file capturer reads and a file renderer writes.
enum ZynRawFormat : int32_t {
    ZynRawFormat_Unknown = 0,
    ZynRawFormat_Wav = 1,
    ZynRawFormat_I420 = 2,
    ZynRawFormat_YV12 = 3,
    ZynRawFormat_NV12 = 4,
    ZynRawFormat_NV21 = 5,
    ZynRawFormat_YUY2 = 6,
    ZynRawFormat_RGB24 = 7,
    ZynRawFormat_BGR24 = 8,
};

class IZynMediaFileCapturerObserver {
public:
    // The file ended and the capturer does not loop. Called on the engine's media thread.
    virtual void OnEndOfStream(IZynMediaFileCapturer* capturer) = 0;

protected:
    virtual ~IZynMediaFileCapturerObserver() = default;
};

// A file read frame by frame as a local track's media: its bytes are the payload, in order.
class IZynMediaFileCapturer : public IZynUnknown, public IZynOptionHolder {
public:
    virtual ZynResult Start() = 0;
    virtual ZynResult Stop() = 0;
    virtual bool IsStarted() = 0;
    virtual ZynResult SetObserver(IZynMediaFileCapturerObserver* observer) = 0;
    // The next bytes of the file, at most capacity; 0 at the end (without loop) or while stopped.
    virtual uint32_t ReadPayload(uint8_t* out, uint32_t capacity) = 0;
    virtual ZynRawFormat GetFormat() = 0;
};

// A file that receives what a remote track gets, payload after payload.
class IZynMediaFileRenderer : public IZynUnknown {
public:
    virtual ZynResult RenderPayload(const uint8_t* data, uint32_t length) = 0;
    virtual uint64_t GetBytesWritten() = 0;
    virtual ZynRawFormat GetFormat() = 0;
};

// What remote video and share tracks tell their line (engine threads).
class IZynRemoteVideoTrackObserver {
public:
    virtual void OnKeyFrameLost(uint32_t label, uint32_t a, uint32_t b, bool flag, void* out) = 0;
    virtual void OnRenderBlocked(uint32_t vid, bool blocked, int32_t frameId) = 0;
    virtual void OnRenderIndication(uint32_t vid) = 0;
    virtual void OnDecodeSizeChanged(uint32_t vid, uint32_t width, uint32_t height) = 0;
    virtual void OnRemoteVideoTrackError(uint32_t label, int32_t code) = 0;

protected:
    virtual ~IZynRemoteVideoTrackObserver() = default;
};

// What a local video or share track tells its line (engine threads).
class IZynLocalVideoTrackObserver {
public:
    virtual void OnEncodedResolutionUpdate(uint32_t width, uint32_t height) = 0;
    virtual void OnLocalVideoTrackError(int32_t code) = 0;
    virtual void OnGestureDetectionResult(int32_t type) = 0;
    virtual void OnRequiredFrameRateUpdate(uint32_t fps) = 0;
    virtual void OnEncodedFrameRateUpdate(uint32_t fps) = 0;

protected:
    virtual ~IZynLocalVideoTrackObserver() = default;
};

// Engine-wide events a line hears (engine threads).
class IZynMediaEngineEventObserver {
public:
    virtual void OnAudioEngineError(int32_t status, void* data) = 0;
    virtual void OnNotifyGLRenderError(void* notifier) = 0;
    virtual void OnReceiverBandwidthUpdate(uint32_t value) = 0;
    virtual void OnIndicationResult(const struct _tagIndicationResult* result) = 0;

protected:
    virtual ~IZynMediaEngineEventObserver() = default;
};

class IZynMediaDeviceObserver {
public:
    // kind 2: the list of devices changed; data is the device concerned.
    virtual void OnDeviceChanged(IZynMediaDevice* device, int32_t kind) = 0;

protected:
    virtual ~IZynMediaDeviceObserver() = default;
};

// An engine's capture (direction 0) or playout (direction 1) level: mute gates what local audio
// tracks send (the muted mode sends a silence frame now and then), the volume is kept.
class IZynVolumeControl : public IZynUnknown {
public:
    virtual ZynResult Mute(int32_t type) = 0;
    virtual ZynResult Unmute(int32_t type) = 0;
    virtual bool IsMuted() = 0;
    virtual ZynResult SetVolume(uint32_t value, int32_t type) = 0;
    virtual ZynResult GetVolume(uint32_t& value, int32_t type) = 0;
};

// Session option 6: the SRTP keys of one direction. The key bytes are copied during SetOption;
// reading the option back gives the last accepted record, its key pointing at the session's copy.
constexpr int32_t ZynSessionOption_SrtpCrypto = 6;

enum ZynSrtpSuite : int32_t {
    ZynSrtpSuite_NullCipherHmacSha1_80 = 0,
    ZynSrtpSuite_AesCm128HmacSha1_32 = 1,
    ZynSrtpSuite_AesCm128HmacSha1_80 = 2,
    ZynSrtpSuite_AesCm256HmacSha1_80 = 3,
    ZynSrtpSuite_AeadAes128Gcm = 4,
    ZynSrtpSuite_AeadAes256Gcm = 5,
    // Media in the clear in that direction.
    ZynSrtpSuite_NonSrtp = 100,
};

struct ZynSrtpCryptoRecord {
    int32_t direction;        // 2 receive; any other value send
    int32_t suite;            // ZynSrtpSuite
    const uint8_t* key;       // master key then master salt
    uint32_t keyLength;       // 30 AES-CM 128 and NULL, 46 AES-CM 256, 28 GCM 128, 44 GCM 256
    int32_t cipherAlgorithm;  // 3, or 2 with the NULL cipher
    int32_t authAlgorithm;    // 3, or 2 with the NULL cipher
    int32_t fecOrder;         // ZynSecurityFECOrder
    int32_t reserved;         // 0
    int32_t flag;             // kept as given
    int32_t value;            // kept as given
    uint32_t unused;          // 0: the record's size is a multiple of the key pointer's alignment
};
static_assert(sizeof(ZynSrtpCryptoRecord) == 48, "session option 6 is a 48-byte record");

// Bit n set: the engine can key suite value n (NULL, AES-CM 128 and 256 always; GCM where the
// installed SRTP library has it). Media lines offer only these.
uint32_t ZynGetSrtpSuiteMask();

// What one session has sent and received so far.
struct ZynFlowStatistics {
    uint64_t packetsSent;
    uint64_t bytesSent;
    uint64_t packetsReceived;
    uint64_t bytesReceived;
    int64_t packetsLost;       // expected less received, over all remote sources
    double lossRatio;          // lost / expected
    double jitterMs;           // interarrival jitter of the busiest source
    double rttMs;              // from the last report block about us; 0 until one came
    double receiveKbps;        // over the last second or so
    uint64_t srtpFailures;     // packets refused by SRTP (tampered, replayed, wrong key)
    uint64_t telephoneEventsReceived;  // named events whose end arrived, each counted once
    uint64_t pictureLossReceived;      // picture loss indications from the far end
};

// One RTP stream of a session. A received stream holds what this end measured of it, which is also
// what its report blocks tell the sender; a sent stream holds what the far end last reported about it.
struct ZynStreamStatistics {
    uint32_t ssrc;
    int32_t direction;         // 1 sent by this session, 2 received
    uint8_t payloadType;       // of the last packet sent or received
    uint64_t packets;          // sent or received
    uint64_t bytes;            // RTP bytes, without the SRTP trailer
    int64_t lost;              // expected less received since the stream began (reported, when sent)
    double lossRatio;          // lost / expected since the stream began
    double fractionLost;       // over the last report interval, 0 to 1
    double jitterMs;           // interarrival jitter (reported, when sent)
    uint32_t highestSequence;  // extended highest sequence number (reported, when sent)
    uint16_t lastSequence;     // received: of the last packet; sent: of the next one to go
    double rttMs;              // sent: from the last block that gave a round trip; 0 until then
    uint32_t reports;          // sent: blocks received about it; received: sender reports from it
    char cname[64];            // received: the CNAME its sender gave, cut to fit; empty until one came
};

class IZynMediaSession : public IZynUnknown, public IZynOptionHolder {
public:
    virtual ZynSessionType GetSessionType() = 0;
    virtual ZynResult AddTrack(IZynMediaTrack* track) = 0;
    virtual ZynResult RemoveTrack(IZynMediaTrack* track) = 0;
    virtual uint32_t GetTrackCount() = 0;
    virtual ZynResult SetTransport(IZynMediaTransport* transport) = 0;
    virtual IZynMediaTransport* GetTransport() = 0;
    virtual ZynResult StopSession(int32_t* out) = 0;
    virtual ZynResult GetCSI(uint32_t label, uint32_t& csi) = 0;
    virtual ZynResult UpdateCSI(uint32_t label, uint32_t csi) = 0;
    virtual ZynResult Failover() = 0;
    // A named telephone event (RFC 4733: 0-9, *, #, A-D are 0 to 15) on the agreed telephone-event
    // payload type: a first packet with the marker bit, then the end packet three times.
    // volume 0 to 63 (-dBm0). ZYN_E_WRONGSTATE before the negotiation agreed telephone events or
    // without a transport, ZYN_E_INVALIDARG for a volume above 63 or no duration.
    virtual ZynResult SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume) = 0;
    // An RTCP picture loss indication (RFC 4585 6.3.1) about the stream the session last received:
    // the far end's running local video and share tracks each make a key frame.
    // ZYN_E_WRONGSTATE without a transport.
    virtual ZynResult SendPictureLoss() = 0;
    // Packets from the network (RTP, RTCP), SRTP-protected when keyed.
    virtual ZynResult ReceiveRTPPacket(const uint8_t* data, uint32_t length) = 0;
    virtual ZynResult ReceiveRTCPPacket(const uint8_t* data, uint32_t length) = 0;
    virtual ZynResult GetFlowStatistics(ZynFlowStatistics& stats) = 0;
    // The sent stream, then each received one. count in: room in `streams`; out: streams there
    // are. ZYN_E_INVALIDARG when the room is too small (or `streams` is null).
    virtual ZynResult GetStreamStatistics(ZynStreamStatistics* streams, uint32_t& count) = 0;
    // What the negotiation agreed for a codec: direction 1 send, 2 receive; codecType a ZynCodecType
    // of the session's media kind (or DTMF, FEC, RTX); payloadType 0 to 127; clockRate in Hz. The
    // media of the session goes out on the last send codec set; until one is, on the engine's own
    // payload type for the kind. A received payload type tells the clock its jitter is counted in.
    virtual ZynResult SetCodecPt(int direction, uint8_t payloadType, int32_t codecType, uint32_t clockRate) = 0;
    // The transport that refused a packet with 30000013 (would block) takes packets again. Until
    // then the session makes no packet for it: real-time media is dropped, not queued.
    virtual ZynResult OnSendReady() = 0;
};

class IZynNetworkIndicator : public IZynUnknown {
public:
    // 0 (worst) to 100 (best) for direction 1 uplink, 2 downlink.
    virtual int32_t GetNetworkIndex(int32_t direction) = 0;
};

class IZynMediaEngineInternal : public IZynUnknown, public IZynOptionHolder {
public:
    virtual uint32_t GetEngineId() = 0;
    virtual bool IsExternalTransport() = 0;
    virtual ZynResult CreateMediaSession(ZynSessionType type, IZynMediaSession** out) = 0;
    virtual ZynResult CreateTrack(ZynTrackKind kind, IZynMediaTrack** out) = 0;
    virtual ZynResult GetNetworkIndicator(IZynNetworkIndicator** out) = 0;
    // ZYN_E_NOTFOUND for a file that cannot be opened, ZYN_E_INVALIDARG for one that is not of the
    // format (a WAV file without its RIFF/WAVE header, an empty file).
    virtual ZynResult CreateFileCapturer(const char* path, ZynRawFormat format, IZynMediaFileCapturer** out) = 0;
    // Creates or truncates the file.
    virtual ZynResult CreateFileRenderer(const char* path, ZynRawFormat format, IZynMediaFileRenderer** out) = 0;
    // direction 0 capture, 1 playout; the same object each time, with one more reference.
    virtual ZynResult GetVolumeControl(int32_t direction, IZynVolumeControl** out) = 0;
    // The devices of a kind with one reference each; count in: room, out: devices there are.
    virtual ZynResult GetDevices(ZynDeviceKind kind, IZynMediaDevice** out, uint32_t& count) = 0;
    // One device by its name, or ZYN_E_NOTFOUND.
    virtual ZynResult FindDevice(ZynDeviceKind kind, const char* name, IZynMediaDevice** out) = 0;
    // Told when a device list changes (kind 2). The observer stays the caller's.
    virtual ZynResult AddDeviceObserver(IZynMediaDeviceObserver* observer) = 0;
    virtual ZynResult RemoveDeviceObserver(IZynMediaDeviceObserver* observer) = 0;
    // A device appears (added true) or goes away, as a person plugs or unplugs one: tests and tools.
    virtual ZynResult SimulateDeviceChange(ZynDeviceKind kind, const char* name, bool added) = 0;
    // Stops every session it made; objects stay valid until released.
    virtual ZynResult Stop() = 0;
    virtual bool IsStopped() = 0;
};

// Time as an engine's sessions read it.
class IZynClock {
public:
    // Milliseconds of a monotonic clock, any origin.
    virtual uint64_t NowMs() = 0;
    // Wall-clock time in NTP's 32.32 fixed point, for sender reports and round trips.
    virtual uint64_t NowNtp() = 0;

protected:
    ~IZynClock() = default;
};

struct ZynEngineVersion {
    uint32_t major, minor, patch, build;
};

// Library start and end, counted.
ZynResult ZynInit(unsigned int option);
ZynResult ZynUninit();
int ZynInitCount();
// reserved must be 0. The id names the engine instance (a call and its svs twin differ).
ZynResult ZynCreateMediaEngineEx(IZynMediaEngineInternal** out, int reserved, uint32_t id, bool externalTransport);
// A renderer for a window; it draws the frames a track hands it (ZynVideoRender.cpp).
ZynResult ZynCreateVideoRender(void* window, IZynVideoRender** out);
// The system's clocks as an engine of its own reads them.
IZynClock* ZynSystemClock();
// An engine without a media thread, for tests and benchmarks: its sessions read `clock`, which
// must outlive the engine, and make frames and reports only inside ZynRunEngineClock.
ZynResult ZynCreateMediaEngineWithClock(IZynMediaEngineInternal** out, uint32_t id, IZynClock* clock);
// Runs what is due by the clock (frames, reports) for every session of such an engine, on the
// caller's thread. ZYN_E_INVALIDARG for an engine that runs its own media thread.
ZynResult ZynRunEngineClock(IZynMediaEngineInternal* engine);
ZynResult ZynSetMediaEngineOption(int32_t id, const void* value, uint32_t size);
ZynResult ZynGetMediaEngineOption(int32_t id, void* value, uint32_t& size);
ZynEngineVersion ZynGetVersion();
const char* ZynGetBuildInfo();
bool ZynDeviceSupportCVOSend();
bool ZynDeviceSupportCVORecv();
// Engine objects alive now (engines, sessions, tracks, indicators): a leak check for tests.
int ZynLiveObjectCount();

// Session option 2: the QoS state of one direction (8 bytes). The engine's rate control adapts
// the direction while it runs and holds the rate still while it is paused.
constexpr int32_t ZynSessionOption_QosState = 2;
struct ZynQosStateRecord {
    int32_t direction;  // 1 send, 2 receive
    int32_t running;    // 1 adapts, 0 paused
};
static_assert(sizeof(ZynQosStateRecord) == 8, "session option 2 is an 8-byte record");

// Session option 2000: the mode of an adhoc audio session (16 bytes), written 1 (prepare) and then
// 2 (play) once its track is in.
constexpr int32_t ZynSessionOption_AdhocMode = 2000;
struct ZynAdhocModeRecord {
    uint32_t mode;
    uint32_t reserved[3];
};
static_assert(sizeof(ZynAdhocModeRecord) == 16, "session option 2000 is a 16-byte record");

// Session option 2012: the label of the remote stream that the session plays in front (4 bytes).
constexpr int32_t ZynSessionOption_ActiveRemoteLabel = 2012;
