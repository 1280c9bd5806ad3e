// The handle an application holds on one stream: a local capture (microphone, camera, screen) or
// one remote stream. It comes with OnMediaReady, holding one reference for as long as the sink
// call runs; AddRef it to keep it. Call it from the library's main thread. The last Release may
// come from any thread, even from inside one of the track's own callbacks: the track is then
// destroyed later, on the thread of its line's manager.
#pragma once

#include <cstdint>

#include "mediasession/ZynDefines.h"
// ZynVideoQualityType, of RequestVideo.
#include "mediasession/ZynMediaConfig.h"

// Device kinds: what a device captures or plays.
enum ZynDeviceKind : int32_t {
    ZynDevice_Microphone = 0,
    ZynDevice_Speaker = 1,
    ZynDevice_Camera = 2,
};

// A capture or playout device of the engine, for SetCaptureDevice and SetPlayoutDevice.
class IZynMediaDevice : public IZynUnknown {
public:
    virtual ZynDeviceKind GetDeviceKind() = 0;
    // Unique within the engine; a friendly name for people.
    virtual const char* GetDeviceName() = 0;
    virtual const char* GetFriendlyName() = 0;

protected:
    ~IZynMediaDevice() override = default;
};

// What a remote stream's sender reports about it.
enum ZynMediaStatus : int32_t {
    ZynMediaStatus_Available = 0,
    ZynMediaStatus_Unavailable = 1,
    ZynMediaStatus_NoSource = 2,
};

// Where a track's media comes from: a device, a file, or the far end.
enum ZynSourceType : int32_t {
    ZynSourceType_Device = 2,
    ZynSourceType_File = 5,
    ZynSourceType_Remote = 7,
};

// How a window renderer fits the picture: whole picture, filled (cropped), stretched.
enum ZynRenderMode : int32_t {
    ZynRenderMode_Fit = 0,
    ZynRenderMode_Fill = 1,
    ZynRenderMode_Stretch = 2,
};

// A rectangle in pixels of the shared screen (SelectSharedPortion).
struct _tagRect {
    int32_t left, top, right, bottom;
};

// A picture source: its size, rate and raw format (the file formats' numbering: 2 I420 ... 8 BGR24).
struct _tagVideoSourceInfo {
    uint32_t width;
    uint32_t height;
    uint32_t fps;
    int32_t format;
};
static_assert(sizeof(_tagVideoSourceInfo) == 16, "a source info is 16 bytes on the wire to the engine");

// What a remote video track has shown, or a local one has captured, so far.
struct _tagVideoStatistics {
    uint64_t frames;          // rendered (remote) or captured (local)
    uint64_t bytes;           // of those frames
    uint32_t lastFrameId;     // the count at the last frame, 0 before one
    uint32_t width, height;   // of the last picture; 0 when unknown
    uint32_t renderers;       // windows and external renderers attached
};

// A camera's property as the device reports it (OnCameraProperty).
struct tagCameraProperty {
    int32_t property;
    int32_t value;
};

// A picture the engine hands over (TakePhoto's result); valid for the callback only unless
// referenced.
class IZynMediaPackage : public IZynUnknown {
public:
    virtual const unsigned char* GetData() = 0;
    virtual unsigned int GetLength() = 0;
    virtual void GetSize(unsigned int& width, unsigned int& height) = 0;

protected:
    ~IZynMediaPackage() override = default;
};

// Frames of a remote stream, handed to the application as they are rendered (on the engine's
// receive thread). Owned by the application; keep it alive until RemoveExternalRender returns.
class IZynExternalRenderer {
public:
    virtual void OnRenderFrame(const unsigned char* data, unsigned int length, int format) = 0;

protected:
    virtual ~IZynExternalRenderer() = default;
};

// A renderer the engine makes for a window (CreateVideoRender): hand it to a remote video track
// with AddExternalRender and it draws what the track receives there. Counted: the track does not
// hold it, so keep a reference until RemoveExternalRender returns.
class IZynVideoRender : public IZynUnknown, public IZynExternalRenderer {
public:
    virtual void* GetWindow() = 0;
    // Frames drawn so far, and the bytes of the last one (0 before one).
    virtual uint64_t GetDrawnFrames() = 0;
    virtual unsigned int GetLastFrameLength() = 0;

protected:
    ~IZynVideoRender() override = default;
};

// Sees each frame of a stream before it is rendered (on the engine's receive thread). Owned by
// the application, like a renderer.
class IZynMediaExternalProcessing {
public:
    virtual void OnProcessFrame(const unsigned char* data, unsigned int length) = 0;

protected:
    virtual ~IZynMediaExternalProcessing() = default;
};

// A picture effect of a camera track (background, immersive cut-out). Owned by the application.
class IZynVideoEffect {
public:
    virtual const char* GetEffectName() = 0;

protected:
    virtual ~IZynVideoEffect() = default;
};

// Seals and opens the media payloads of one track end to end. Owned by the application.
class IZynMediaContentCipher {
public:
    virtual int GetCipherId() = 0;

protected:
    virtual ~IZynMediaContentCipher() = default;
};

// Where an external-source track takes its pictures or samples from the application: each call
// is one frame, sent as it is.
class IZynExternalInputter : public IZynUnknown {
public:
    virtual ZynResult InputVideoData(const unsigned char* data, unsigned int length, const _tagVideoSourceInfo* info) = 0;

protected:
    ~IZynExternalInputter() override = default;
};

class IZynScreenSource;
class IZynMediaEngineInternal;

class IZynMediaTrackBase : public IZynUnknown {
public:
    virtual ZynSessionType GetMediaType() = 0;
    // Local: what goes out is muted (audio sends its silence frames, video and sharing nothing);
    // remote: what arrives is not played. ZYN_E_FAIL when already muted (or not muted).
    virtual ZynResult Mute() = 0;
    virtual ZynResult Unmute() = 0;
    // ZYN_S_FALSE for a track that was not started.
    virtual ZynResult Stop() = 0;
    virtual ZynResult PauseSharingCapturer(bool pause) = 0;
    // 0 to 65535, of the line's capture (local) or playout (remote) level.
    virtual ZynResult SetVolume(unsigned int volume) = 0;
    virtual ZynResult GetVolume(unsigned int& volume) = 0;
    virtual ZynResult GetVoiceLevel(unsigned int& level) = 0;
    virtual ZynResult SetCaptureDevice(IZynMediaDevice* device) = 0;
    virtual ZynResult SetPlayoutDevice(IZynMediaDevice* device) = 0;
    // Screen sharing, on a local share track only (ZYN_E_FAIL on any other track).
    virtual ZynResult AddScreenSource(IZynScreenSource* source) = 0;
    virtual ZynResult RemoveScreenSource(IZynScreenSource* source) = 0;
    virtual ZynResult AddSharedWindow(void* handle) = 0;
    virtual ZynResult RemoveSharedWindow(void* handle) = 0;
    virtual ZynResult AddUnSharedWindow(void* handle) = 0;
    virtual ZynResult RemoveUnSharedWindow(void* handle) = 0;
    virtual ZynResult AddNimboAnnotationWindow(void* handle) = 0;
    virtual ZynResult RemoveNimboAnnotationWindow(void* handle) = 0;
    // Class names of 1 to 1024 characters.
    virtual ZynResult AddNimboAnnotationWindowByClassName(const char* className) = 0;
    virtual ZynResult RemoveNimboAnnotationWindowByClassName(const char* className) = 0;
    virtual ZynResult AddTransparentWindow(void* handle) = 0;
    virtual ZynResult RemoveTransparentWindow(void* handle) = 0;
    virtual ZynResult AddTransparentWindowByClassNameList(const char** classNames, unsigned int count) = 0;
    virtual ZynResult RemoveTransparentWindowByClassNameList(const char** classNames, unsigned int count) = 0;
    virtual ZynResult AddSharedProcess(unsigned int processId) = 0;
    virtual ZynResult RemoveSharedProcess(unsigned int processId) = 0;
    virtual ZynResult AddUnSharedProcess(unsigned int processId) = 0;
    virtual ZynResult RemoveUnSharedProcess(unsigned int processId) = 0;
    virtual ZynResult SelectSharedDisplay(uint64_t displayId) = 0;
    virtual ZynResult SelectSharedDisplay(const char* displayName) = 0;
    virtual bool ApplicationIsShared(unsigned int processId) = 0;
    virtual bool WindowIsShared(void* handle) = 0;
    virtual bool DisplayIsShared(uint64_t displayId) = 0;
    virtual int GetSharedAppCount() = 0;
    // The share this track carries; an empty id ends it.
    virtual ZynResult SetScreenSharingID(const char* id) = 0;
    virtual ZynResult SetScreenSharerInfo(const char* info) = 0;
    // In hundredths of the camera frame; always ZYN_S_FALSE, whatever was done.
    virtual ZynResult SetImmersiveSharingPos(unsigned int left, unsigned int top, unsigned int right,
                                             unsigned int bottom) = 0;
    // Renderers of a remote video or share track: the window's fit.
    virtual ZynResult SetRenderMode(void* window, ZynRenderMode mode) = 0;
    // Starts the stream; with muted true a local track starts muted. 0 when already started.
    virtual ZynResult Start(bool muted) = 0;
    // Windows that show the stream, each once (ZYN_E_DUPLICATE, ZYN_E_NOTFOUND).
    virtual ZynResult AddRenderWindow(void* window) = 0;
    virtual ZynResult RemoveRenderWindow(void* window) = 0;
    // The window moved or changed size: the engine draws it again.
    virtual ZynResult UpdateRenderWindow(void* window) = 0;
    // At most one frame a window per interval (milliseconds, 0: every frame).
    virtual ZynResult SetWindowRenderMinInterval(void* window, unsigned int intervalMs) = 0;
    virtual ZynResult SetRenderType(void* window, int type) = 0;
    virtual ZynResult AddExternalRender(IZynExternalRenderer* renderer) = 0;
    virtual ZynResult RemoveExternalRender(IZynExternalRenderer* renderer) = 0;
    virtual ZynResult SetRenderWindowInfo(void* window, unsigned int width, unsigned int height) = 0;
    virtual ZynResult AddMediaExternalProcessing(IZynMediaExternalProcessing* processing) = 0;
    virtual ZynResult RemoveMediaExternalProcessing(IZynMediaExternalProcessing* processing) = 0;
    virtual ZynResult SetExternalRenderMinInterval(IZynExternalRenderer* renderer, unsigned int intervalMs) = 0;
    // Local: the track's CSI; remote: the CSIs last seen on the stream (count in: room, out: CSIs).
    virtual ZynResult GetCSI(unsigned int* csis, unsigned int& count) = 0;
    virtual ZynResult GetVid(int& vid) = 0;
    // Remote video and share tracks: what to ask the sender for.
    virtual ZynResult RequestVideo(ZynVideoQualityType quality) = 0;
    virtual ZynResult RequestVideo(ZynVideoQualityType quality, unsigned char priority, unsigned char grouping,
                                   unsigned int flags) = 0;
    // maxFps in hundredths of a frame a second, bitrate in bits a second.
    virtual ZynResult RequestVideo(unsigned int maxMbps, unsigned short maxFs, unsigned short maxFps,
                                   unsigned int bitrate) = 0;
    // Remote tracks only: the sender's last status (ZYN_E_FAIL on a local track).
    virtual ZynResult GetMediaStatus(ZynMediaStatus& status) = 0;
    // A device of the track's kind came (added) or went.
    virtual ZynResult AudioDeviceNotification(IZynMediaDevice* device, bool added) = 0;
    virtual ZynResult GetVideoStatistics(_tagVideoStatistics& stats) = 0;
    // A local camera shows its picture without sending it.
    virtual ZynResult StartPreview() = 0;
    // The picture comes back through the sink's OnCapturePhotoOutput.
    virtual ZynResult TakePhoto() = 0;
    virtual ZynResult GetSuscribedCount(unsigned int& count) = 0;
    // Audio playout buffer bounds in milliseconds.
    virtual ZynResult SetAudioPlayBufferTime(int minMs, int maxMs) = 0;
    virtual ZynResult GetAudioPlayBufferTime(int& minMs, int& maxMs) = 0;
    // 0, 90, 180 or 270 degrees.
    virtual ZynResult ChangeOrientation(int degrees) = 0;
    virtual ZynResult AddVideoEffect(IZynVideoEffect* effect) = 0;
    virtual ZynResult RemoveVideoEffect(IZynVideoEffect* effect) = 0;
    virtual ZynResult ForceKeyframe() = 0;
    virtual ZynResult GetLastDecodedTimestamp(unsigned int& timestamp) = 0;
    // External-source tracks: where the application feeds its frames (one reference).
    virtual ZynResult GetExternalInputPin(IZynExternalInputter** pin) = 0;
    virtual ZynResult GetExternalInputPin(IZynExternalInputter** pin, const _tagVideoSourceInfo* info) = 0;
    // A muted camera that sends a still picture (the avatar) instead of nothing.
    virtual ZynResult MuteWithAvatar(bool mute, const _tagVideoSourceInfo* info, const unsigned char* picture,
                                     unsigned int length) = 0;
    virtual ZynResult SetSourceInfo(const _tagVideoSourceInfo* info) = 0;
    virtual ZynResult ForceLandscape(bool landscape) = 0;
    // How often a remote video is checked for a stalled picture, in milliseconds.
    virtual ZynResult SetMediaBlockCheckingTimerInterval(unsigned int intervalMs) = 0;
    virtual ZynResult RenderIndicationRequest(bool on) = 0;
    virtual ZynResult GetAudioEnergy(unsigned int csi, unsigned int& energy) = 0;
    virtual ZynResult CopySharedRegionForRemoteControl(const _tagRect* region) = 0;
    virtual ZynResult DoAudioSIOption(unsigned char vid, int option, void* value, unsigned int size) = 0;
    virtual ZynResult AddNimboAnnotationProcess(unsigned int processId) = 0;
    virtual ZynResult RemoveNimboAnnotationProcess(unsigned int processId) = 0;
    virtual ZynResult SelectSharedPortion(const _tagRect* portion) = 0;
    // The library's own: makes the engine object of the track.
    virtual ZynResult Init(IZynMediaEngineInternal* engine, ZynSessionType type, ZynDirection direction,
                           bool external, ZynSourceType source, int32_t policy) = 0;
    virtual ZynResult GetVoiceDBLevel(int& db) = 0;
    // format: the raw format frames are handed in (the file formats' numbering).
    virtual ZynResult AddExternalRender(IZynExternalRenderer* renderer, int format) = 0;
    // Local audio: the stream slot the far end asked this source into.
    virtual ZynResult SetVid(unsigned char vid) = 0;
    // Coordination of video orientation: rotate at the far end (true) or before sending.
    virtual ZynResult SetupCVO(bool enable) = 0;
    virtual ZynResult SetMediaContentCipher(IZynMediaContentCipher* cipher) = 0;

protected:
    ~IZynMediaTrackBase() override = default;
};

// The identifier that tracks answer to in QueryInterface.
constexpr _tagUUID ZYNIID_IZynMediaTrackBase = {
    0x2f8a41c7, 0x9d03, 0x4e6b, {0x8c, 0x52, 0x17, 0xa9, 0x3e, 0x60, 0xd4, 0x8b}};
