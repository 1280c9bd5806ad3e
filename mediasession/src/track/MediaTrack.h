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
#include <string>

#include "common/ZynIdentity.h"
#include "common/ZynUnknownImpl.h"
#include "mediasession/ZynMediaTrack.h"
#include "tp/CmTimerWrapperID.h"
#include "track/MediaCSI.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynSubscribe.h"

class IZynMediaConnectionSink;

namespace zyn {

class CMediaConnectionInfo;
class CMediaConnection;

enum ZynSourceType : int32_t {
    ZynSourceType_Device = 2,
    ZynSourceType_File = 5,
    ZynSourceType_Remote = 7,
};

// The raw format a file's extension names ("wav", "i420", ...), or Unknown.
ZynRawFormat GetFileCaptureFormat(const char* path);

class CMediaTrack final : public IZynMediaTrackBase,
                          public CZynUnknownImpl,
                          public CCmTimerWrapperIDSink,
                          public ZYNIdentityT<CMediaTrack>,
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

    // The line's side.
    ZynResult Init(IZynMediaEngineInternal* engine, ZynSessionType type, ZynDirection direction, bool external,
                   ZynSourceType source, int32_t policy);
    IZynMediaTrack* GetTrack() const { return m_pTrack; }
    uint32_t GetTrackLabel() const;
    int32_t GetPolicy() const { return m_ePolicy; }
    ZynDirection GetDirection() const { return m_eDirection; }
    bool isStarted() const { return m_bStarted.load(); }
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
};

}  // namespace zyn
