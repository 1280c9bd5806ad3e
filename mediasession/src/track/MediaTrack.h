// CMediaTrack: the application's handle on one stream, around one engine track. Counted across
// threads; the start and stop protocol with its starting state; mute that tells the far end; the
// polls that turn engine state into sink calls; the file capture and render paths; device and
// source switching; the screen-share operations.
//
// Threads: application calls, the 300 ms and 1 s polls and the 50 ms unblock run on the main
// thread (type 0). The line's network thread only sets the media status (atomics). The last
// Release may come from any thread: destruction waits one second on the main thread. The start
// lock guards the start/stop flags; m_mutexVideoCap is a try-lock around engine starts and stops.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/ZynIdentity.h"
#include "common/ZynUnknownImpl.h"
#include "mediasession/ZynMediaTrack.h"
#include "tp/CmTimerWrapperID.h"
#include "track/MediaCSI.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynSubscribe.h"

class IZynMediaConnectionSink;

// The end of every trace line a track's own operations write: its kind and its call.
#define TRACK_TAIL MS_TAIL(ZynSessionTypeTraceTag(m_eZynSessionType), GetIdentityCallId())

namespace zyn {

class CAvatarInputter;
class CMediaConnectionInfo;
class CMediaConnection;

using ::ZynSourceType;
using ::ZynSourceType_Device;
using ::ZynSourceType_File;
using ::ZynSourceType_Remote;

// Marks a callback of a track for its whole run: a release inside it cannot destroy the track.
class CCallbackScope {
public:
    explicit CCallbackScope(std::atomic<int>& count) : m_count(count) { m_count.fetch_add(1); }
    ~CCallbackScope() { m_count.fetch_sub(1); }
    CCallbackScope(const CCallbackScope&) = delete;
    CCallbackScope& operator=(const CCallbackScope&) = delete;

private:
    std::atomic<int>& m_count;
};

// The raw format a file's extension names ("wav", "i420", ...), or Unknown.
ZynRawFormat GetFileCaptureFormat(const char* path);

class CMediaTrack final : public IZynMediaTrackBase,
                          public CZynUnknownImpl,
                          public CCmTimerWrapperIDSink,
                          public ZYNIdentityT<CMediaTrack>,
                          public IZynRemoteAudioTrackObserver,
                          public IZynMediaCaptureObserver,
                          public IZynMediaFileCapturerObserver {
public:
    CMediaTrack(CMediaConnectionInfo* line, uint32_t callId);

    ZYN_IMPLEMENT_REFCOUNT
    ZynResult QueryInterface(const _tagUUID& iid, void** out) override;

    // IZynMediaTrackBase
    ZynSessionType GetMediaType() override { return m_eZynSessionType; }
    ZynResult Mute() override;
    ZynResult Unmute() override;
    ZynResult Stop() override;
    ZynResult PauseSharingCapturer(bool pause) override;
    ZynResult SetVolume(unsigned int volume) override;
    ZynResult GetVolume(unsigned int& volume) override;
    ZynResult GetVoiceLevel(unsigned int& level) override;
    ZynResult SetCaptureDevice(IZynMediaDevice* device) override;
    ZynResult SetPlayoutDevice(IZynMediaDevice* device) override;
    ZynResult AddSharedWindow(void* handle) override;
    ZynResult RemoveSharedWindow(void* handle) override;
    ZynResult AddUnSharedWindow(void* handle) override;
    ZynResult RemoveUnSharedWindow(void* handle) override;
    ZynResult AddNimboAnnotationWindow(void* handle) override;
    ZynResult RemoveNimboAnnotationWindow(void* handle) override;
    ZynResult AddNimboAnnotationWindowByClassName(const char* className) override;
    ZynResult RemoveNimboAnnotationWindowByClassName(const char* className) override;
    ZynResult AddTransparentWindow(void* handle) override;
    ZynResult RemoveTransparentWindow(void* handle) override;
    ZynResult AddTransparentWindowByClassNameList(const char** classNames, unsigned int count) override;
    ZynResult RemoveTransparentWindowByClassNameList(const char** classNames, unsigned int count) override;
    ZynResult AddSharedProcess(unsigned int processId) override;
    ZynResult RemoveSharedProcess(unsigned int processId) override;
    ZynResult AddUnSharedProcess(unsigned int processId) override;
    ZynResult RemoveUnSharedProcess(unsigned int processId) override;
    ZynResult SelectSharedDisplay(uint64_t displayId) override;
    ZynResult SelectSharedDisplay(const char* displayName) override;
    bool ApplicationIsShared(unsigned int processId) override;
    bool WindowIsShared(void* handle) override;
    bool DisplayIsShared(uint64_t displayId) override;
    int GetSharedAppCount() override;
    ZynResult SetScreenSharingID(const char* id) override;
    ZynResult Start(bool muted) override;
    ZynResult GetCSI(unsigned int* csis, unsigned int& count) override;
    ZynResult GetVid(int& vid) override;
    ZynResult GetMediaStatus(ZynMediaStatus& status) override;
    ZynResult AddNimboAnnotationProcess(unsigned int processId) override;
    ZynResult RemoveNimboAnnotationProcess(unsigned int processId) override;
    ZynResult Init(IZynMediaEngineInternal* engine, ZynSessionType type, ZynDirection direction, bool external,
                   ZynSourceType source, int32_t policy) override;

    // Share operations without an engine of their own here (MediaTrackShare.cpp).
    ZynResult AddScreenSource(IZynScreenSource* source) override;
    ZynResult RemoveScreenSource(IZynScreenSource* source) override;
    ZynResult SetScreenSharerInfo(const char* info) override;
    ZynResult SetImmersiveSharingPos(unsigned int left, unsigned int top, unsigned int right,
                                     unsigned int bottom) override;
    ZynResult CopySharedRegionForRemoteControl(const _tagRect* region) override;
    ZynResult SelectSharedPortion(const _tagRect* portion) override;

    // Renderers (MediaTrackRender.cpp).
    ZynResult SetRenderMode(void* window, ZynRenderMode mode) override;
    ZynResult AddRenderWindow(void* window) override;
    ZynResult RemoveRenderWindow(void* window) override;
    ZynResult UpdateRenderWindow(void* window) override;
    ZynResult SetWindowRenderMinInterval(void* window, unsigned int intervalMs) override;
    ZynResult SetRenderType(void* window, int type) override;
    ZynResult AddExternalRender(IZynExternalRenderer* renderer) override;
    ZynResult AddExternalRender(IZynExternalRenderer* renderer, int format) override;
    ZynResult RemoveExternalRender(IZynExternalRenderer* renderer) override;
    ZynResult SetRenderWindowInfo(void* window, unsigned int width, unsigned int height) override;
    ZynResult AddMediaExternalProcessing(IZynMediaExternalProcessing* processing) override;
    ZynResult RemoveMediaExternalProcessing(IZynMediaExternalProcessing* processing) override;
    ZynResult SetExternalRenderMinInterval(IZynExternalRenderer* renderer, unsigned int intervalMs) override;
    ZynResult GetVideoStatistics(_tagVideoStatistics& stats) override;
    ZynResult GetLastDecodedTimestamp(unsigned int& timestamp) override;
    ZynResult RenderIndicationRequest(bool on) override;
    // What the application attached, in order: kind 0 a window, 1 an external renderer.
    std::vector<std::pair<const void*, int>> GetRenderers();

    // Requests and stream options (MediaTrackOptions.cpp).
    ZynResult RequestVideo(ZynVideoQualityType quality) override;
    ZynResult RequestVideo(ZynVideoQualityType quality, unsigned char priority, unsigned char grouping,
                           unsigned int flags) override;
    ZynResult RequestVideo(unsigned int maxMbps, unsigned short maxFs, unsigned short maxFps,
                           unsigned int bitrate) override;
    ZynResult GetSuscribedCount(unsigned int& count) override;
    ZynResult AudioDeviceNotification(IZynMediaDevice* device, bool added) override;
    ZynResult SetAudioPlayBufferTime(int minMs, int maxMs) override;
    ZynResult GetAudioPlayBufferTime(int& minMs, int& maxMs) override;
    ZynResult ChangeOrientation(int degrees) override;
    ZynResult ForceKeyframe() override;
    ZynResult ForceLandscape(bool landscape) override;
    ZynResult SetMediaBlockCheckingTimerInterval(unsigned int intervalMs) override;
    ZynResult GetAudioEnergy(unsigned int csi, unsigned int& energy) override;
    ZynResult DoAudioSIOption(unsigned char vid, int option, void* value, unsigned int size) override;
    ZynResult GetVoiceDBLevel(int& db) override;
    ZynResult SetVid(unsigned char vid) override;
    ZynResult SetupCVO(bool enable) override;
    ZynResult SetMediaContentCipher(IZynMediaContentCipher* cipher) override;
    // Hardware encoding: 1 on, anything else off; restarts a started track.
    ZynResult EnableHardwareCodec(int mode);
    ZynResult EnableHwEncode(bool on);
    // AV1 encoding of a send track; its mode and RGB form go with it.
    ZynResult EnableAV1Encode(bool on, bool share = false);
    ZynResult StartRecording(bool on);
    // The configuration written again to the engine at each start.
    void RestoreOptions();
    // A request of RequestVideo, before it becomes the subscription record this track stands for.
    struct CVideoRequest {
        ZynVideoQualityType quality = ZynVideoQuality_360P;
        uint8_t priority = 255;
        uint8_t grouping = 0;
        uint32_t flags = 0;
        uint32_t maxMbps = 0;
        uint16_t maxFs = 0;
        uint16_t maxFps = 0;  // hundredths of a frame a second
        uint32_t bitrate = 0;
    };

    // Capture (MediaTrackCapture.cpp).
    ZynResult StartPreview() override;
    ZynResult TakePhoto() override;
    ZynResult AddVideoEffect(IZynVideoEffect* effect) override;
    ZynResult RemoveVideoEffect(IZynVideoEffect* effect) override;
    ZynResult GetExternalInputPin(IZynExternalInputter** pin) override;
    ZynResult GetExternalInputPin(IZynExternalInputter** pin, const _tagVideoSourceInfo* info) override;
    ZynResult MuteWithAvatar(bool mute, const _tagVideoSourceInfo* info, const unsigned char* picture,
                             unsigned int length) override;
    ZynResult SetSourceInfo(const _tagVideoSourceInfo* info) override;
    bool isAvatarMuted() const { return m_avatarMuted; }
    // The avatar's frame source, or null before the first MuteWithAvatar.
    CAvatarInputter* GetAvatar();

    // IZynRemoteAudioTrackObserver, IZynMediaCaptureObserver (engine threads).
    void OnPlaybackTimestampUpdated(uint32_t rtpTimestamp, uint32_t playoutMs) override;
    // Crosses to the main thread; the start ends there.
    void OnStartedCapture(IZynMediaTrack* notifier, ZynResult result) override;
    void OnUpdateCaptureResolution(uint32_t width, uint32_t height) override;
    void OnUpdateCaptureFPS(uint32_t fps) override;
    void OnUpdateCapturedVideoType(int32_t type) override;
    void OnCameraRuntimeDie() override;
    void OnCameraErrorEvicted() override;
    void OnUpdateCaptureStartTime(uint64_t ms) override;
    void OnCameraNoAuth() override;
    void OnCameraProperty(tagCameraProperty* property) override;
    void OnCapturePhotoOutput(IZynMediaPackage* photo) override;
    // Main thread: the end of an asynchronous start. Takes over the reference the crossing held;
    // the sink may drop the application's last one inside.
    void StartedCaptureOnMain(IZynMediaTrack* notifier, ZynResult result);
    bool isStarting();

    // The line's side.
    IZynMediaTrack* GetTrack() const { return m_pTrack; }
    uint32_t GetTrackLabel() const;
    int32_t GetPolicy() const { return m_ePolicy; }
    ZynDirection GetDirection() const { return m_eDirection; }
    bool isStarted() const { return m_bStarted.load(); }
    bool isPreviewing() const { return m_bPreviewing; }
    bool isMuted() const { return m_bMuted.load(); }
    bool isStartSending() const { return m_startSending; }
    bool hasFileCapture() const { return m_pFileCapturer != nullptr; }
    bool hasFileRender() const { return m_pFileRenderer != nullptr; }
    // Attaches a capturer (local) or renderer (remote) of the file; the format from its extension.
    ZynResult createFileCapturer(const char* path, bool loop);
    ZynResult createFileRenderer(const char* path);
    // Detaches and drops the file capturer or renderer, if any.
    void releaseFileCapturer();
    void releaseFileRenderer();
    void SessionConnected();
    ZynResult StartSending(bool on);
    void SetMediaStatus(ZynMediaStatus status, int flag, uint32_t csi);
    // An unblock that waits 50 ms (true), or none pending to defer (false).
    bool DelayMediaUnblocked();
    // Swaps the engine track for a device track or an external one; the old one lives 1 s more.
    ZynResult ChangeToDeviceTrack();
    ZynResult ChangeToExternalTrack(ZynSourceType source, bool keepDevice);
    bool IsExternal() const { return m_bExternal; }
    // Detaches from the engine and the line; idempotent.
    void UnInit();
    void _stop();

    // Subscriptions and sources (MediaTrackSubscribe.cpp), main thread unless said.
    // What this track asks of the far end. Without force: null for a track that is not started,
    // is muted, or was never given a request, so that it stays out of the next request list.
    const ZynSimulcastRequest* GetRequest(bool force) const;
    void SetRequest(const ZynSimulcastRequest& request);
    // The subscription ends: the track is left out of every request list from now on.
    void ClearRequest();
    bool HasRequest() const { return !m_bNoRequest; }
    // Hands the far end's layers to the local video or share encoder (track option 19).
    ZynResult SubscribeMutlistream(const _tagVideoSubscribeMultiStream& record);
    // Screen share before SCR version 3: the first layer's size follows its frame size.
    static void _UpdateHardcodeMaxSizeByMaxFS(_tagVideoSubscribeMultiStream& record);
    // The CSIs this stream carried (written on the line's network thread).
    CMediaCSI& getMediaCSI() { return m_mediaCSI; }
    // A remote video or share track showing exactly this CSI: the one to sync the CSI's audio to.
    bool findSyncTrack(uint32_t csi) const;
    // The 300 ms poll's source step: a changed CSI list, then a status, then the list again after
    // a status back to available.
    void PollSources(IZynMediaConnectionSink* sink, unsigned long mid, unsigned vid);

    // IZynMediaFileCapturerObserver (engine's media thread).
    void OnEndOfStream(IZynMediaFileCapturer* capturer) override;
    void OnTimer(CCmTimerWrapperID* id) override;

protected:
    friend class CMediaTrackDeleter;
    friend class CTrackCallback;
    ~CMediaTrack() override;
    // The last release on the main thread, outside the track's own callbacks, destroys at once;
    // any other waits one second on the main thread, off every stack of the track.
    void OnReferenceDestory() override;

private:
    IZynMediaEngineInternal* GetEngine() const;
    CMediaConnection* GetConnection() const;
    ZynResult WriteMetricsError(const char* tag, ZynResult result);
    ZynResult _start();
    ZynResult _mute();
    ZynResult _unmute();
    ZynResult _SetSendingDataOption(bool on);
    ZynResult CreateEngineTrack(IZynMediaEngineInternal* engine, bool external, IZynMediaTrack** out);
    ZynResult SwapEngineTrack(bool external, const char* name);
    void UpdateIdentityToInstances(IZynMediaTrack* track);
    void TransferOptions(IZynMediaTrack* from, IZynMediaTrack* to);
    void ReportStatus(int status);
    // Attaches (true) or detaches this track as the engine track's observer of its kind.
    void ObserveEngineTrack(IZynMediaTrack* track, bool on);
    // An engine call that needs the engine track; reports the tag on failure.
    ZynResult TrackCall(const char* tag, const std::function<ZynResult(IZynMediaTrack*)>& call);
    bool IsRemoteVideo() const
    {
        return m_eDirection == ZynDirection_Recv &&
               (m_eZynSessionType == ZynSessionType_Video || m_eZynSessionType == ZynSessionType_ScreenShare);
    }
    bool IsLocalVideo() const
    {
        return m_eDirection == ZynDirection_Send &&
               (m_eZynSessionType == ZynSessionType_Video || m_eZynSessionType == ZynSessionType_ScreenShare);
    }
    void ReleaseRenderers();
    ZynResult AddRendererEntry(const char* tag, const void* key, int kind, int format);
    ZynResult WriteRenderSetting(const char* tag, const void* key, const char* what, unsigned int value);
    ZynResult StoreVideoRequest(const CVideoRequest& request);
    // The video configuration RestoreOptions writes, as the line's configuration holds it.
    struct CTrackRestoreSettings {
        uint8_t remote56 = 0, remote62 = 0, superResolution = 0;
        int32_t remote60 = 0;
        uint8_t externalRender = 0, enable1080p = 1, enable90p = 1, adaptiveFps = 1, faceDetection = 0;
        bool hardwareAcceleration = true;
        int32_t shareFrameRate = 5;
    };
    CTrackRestoreSettings RestoreSettingsOfLine() const;
    void ReapplySubscription();
    // Where the line learns that a request changed: it sends its next subscription.
    void RequestsChangedOnLine();
    // How many streams the line may receive at once, as its subscription allows.
    unsigned int SubscribedCountOfLine() const;
    // Connection-wide callbacks of the capture, where the line and connection still exist.
    void CallBackError(int code);
    bool IsLocalShare() const { return m_eZynSessionType == ZynSessionType_ScreenShare && m_eDirection == ZynDirection_Send; }
    bool IsAudio() const { return m_eZynSessionType == ZynSessionType_Audio || m_eZynSessionType == ZynSessionType_AudioSlide; }
    // The option-154 record and the plain share options.
    ZynResult ShareOption(const char* name, const char* tag, int32_t option, const void* value, uint32_t size);
    ZynResult ShareCommand(const char* name, const char* tag, int32_t command, uint64_t value, uint64_t length);
    ZynResult ShareClassName(const char* name, int32_t command, const char* className);
    ZynResult ShareClassNameList(const char* name, const char* tag, int32_t command, const char** names, unsigned int count);
    bool ShareListHas(int32_t option, uint64_t value);

    CMediaConnectionInfo* m_pConnectionInfo;  // owner line; null after UnInit
    IZynMediaEngineInternal* m_pEngine = nullptr;  // the engine of Init; one reference until UnInit
    IZynMediaTrack* m_pTrack = nullptr;       // one reference; null: uninitialised
    IZynVolumeControl* m_pPlayMix = nullptr;  // audio tracks; one reference
    IZynMediaFileCapturer* m_pFileCapturer = nullptr;  // one reference
    IZynMediaFileRenderer* m_pFileRenderer = nullptr;  // one reference
    ZynSessionType m_eZynSessionType = ZynSessionType_Unknown;
    ZynDirection m_eDirection = ZynDirection_None;
    int32_t m_ePolicy = 0;
    std::recursive_mutex m_startLock;  // the three flags below, against a second start or stop
    bool m_bStarting = false;
    std::atomic<bool> m_bStarted{false};
    bool m_bStopping = false;
    bool m_bPreviewing = false;
    std::atomic<bool> m_bMuted{false};
    std::atomic<bool> m_bMuteNotify{false};
    bool m_bFileLoop = true;
    bool m_bExternal = false;
    bool m_startSending = true;
    bool m_bMuteNotifyEnabled = true;
    std::atomic<bool> m_bUninited{false};
    std::atomic<bool> m_bDying{false};  // the count reached zero: destruction is under way
    std::atomic<int> m_callbacks{0};  // the track's own callbacks running now, on any thread
    std::timed_mutex m_mutexVideoCap;  // try-locked only: a re-entrant start or stop fails
    CCmTimerWrapperID m_blockTimer;       // 300 ms poll of remote video and share
    CCmTimerWrapperID m_statusTimer;      // 1 s mute-notify poll of audio
    CCmTimerWrapperID m_mediaBlockTimer;  // 50 ms one-shot: a deferred OnMediaBlocked
    std::atomic<int32_t> m_status{ZynMediaStatus_Available};
    std::atomic<bool> m_bStatusNotify{false};
    std::atomic<int32_t> m_mediaStatusAux{0};
    std::atomic<uint32_t> m_csiFromSCA{0};
    std::string m_screenSharingId;
    std::string m_deviceName;  // of the last SetCaptureDevice

    // Subscriptions and sources.
    CMediaCSI m_mediaCSI;
    ZynSimulcastRequest m_request{};  // main thread
    bool m_bNoRequest = true;         // main thread; SetRequest clears it
    std::atomic<bool> m_bStatusChanged{false};  // set by SetMediaStatus, cleared by the poll

    // Renderers, in the order attached: (window or renderer, kind 0 window, 1 external renderer).
    std::recursive_mutex m_renderersLock;
    std::vector<std::pair<const void*, int>> m_renderers;  // guarded by m_renderersLock
    std::recursive_mutex m_optionsLock;  // the options below, set by the application and the line
    int m_playBufferMin = -1;            // guarded by m_optionsLock; -1: the engine's own
    int m_playBufferMax = -1;            // guarded by m_optionsLock
    int m_packetizationMode = 1;         // guarded by m_optionsLock: the last EnableHardwareCodec, 1 hardware
    bool m_bAv1 = false;                 // guarded by m_optionsLock
    bool m_bAv1Share = false;            // guarded by m_optionsLock
    bool m_bForceLandscape = false;
    bool m_bAsyncStart = false;          // main thread; the engine ends a start later
    bool m_bRecording = false;
    int32_t m_info = 0;                  // last error of MuteWithAvatar
    bool m_avatarMuted = false;
    int32_t m_lowestPerformance = -1;    // the smallest send performance seen; -1 none yet
    std::unique_ptr<CAvatarInputter> m_avatar;
};

// One of the track's callbacks for its whole run, with a reference of its own: the application
// may drop its last reference inside, and the track then dies later, elsewhere.
class CTrackCallback {
public:
    explicit CTrackCallback(CMediaTrack* track) : m_scope(track->m_callbacks), m_self(track) {}

private:
    CCallbackScope m_scope;  // outlives m_self: the release below still finds the callback running
    CZynAutoPtr<CMediaTrack> m_self;
};

}  // namespace zyn
