// The handle an application holds on one stream: a local capture (microphone, camera, screen) or
// one remote stream. It comes with OnMediaReady, holding one reference for as long as the sink
// call runs; AddRef it to keep it. Call it from the library's main thread. The last Release may
// come from any thread, even from inside one of the track's own callbacks: the track is then
// destroyed later, on the thread of its line's manager.
#pragma once

#include <cstdint>

#include "mediasession/ZynDefines.h"

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
    // Starts the stream; with muted true a local track starts muted. 0 when already started.
    virtual ZynResult Start(bool muted) = 0;
    // Local: the track's CSI; remote: the CSIs last seen on the stream (count in: room, out: CSIs).
    virtual ZynResult GetCSI(unsigned int* csis, unsigned int& count) = 0;
    virtual ZynResult GetVid(int& vid) = 0;
    // Remote tracks only: the sender's last status (ZYN_E_FAIL on a local track).
    virtual ZynResult GetMediaStatus(ZynMediaStatus& status) = 0;
    virtual ZynResult AddNimboAnnotationProcess(unsigned int processId) = 0;
    virtual ZynResult RemoveNimboAnnotationProcess(unsigned int processId) = 0;

protected:
    ~IZynMediaTrackBase() override = default;
};

// The identifier that tracks answer to in QueryInterface.
constexpr _tagUUID ZYNIID_IZynMediaTrackBase = {
    0x2f8a41c7, 0x9d03, 0x4e6b, {0x8c, 0x52, 0x17, 0xa9, 0x3e, 0x60, 0xd4, 0x8b}};
