// An engine track: its run state, label and options, and what feeds or takes its media (a file
// capturer on a local track, a file renderer on a remote one, a device). Any thread: the run
// state is atomic, the attachments are guarded by m_mutex.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tp/CmThread.h"
#include "zyn/ZynObject.h"

namespace zynsim {

class Track;

// Capture starts that end after Start returned: told on the engine's media thread, or, for an
// engine on a clock of its own, at its owner's next run. The pending list is guarded by m_mutex.
class StartReports {
public:
    explicit StartReports(std::shared_ptr<ACmThread> thread) : m_thread(std::move(thread)) {}
    ~StartReports();
    // Takes a reference on the track until its report is told.
    void Post(Track* track);
    void RunPending();

private:
    std::shared_ptr<ACmThread> m_thread;
    std::mutex m_mutex;
    std::vector<Track*> m_pending;  // one reference each
};

class Track final : public RefCounted<IZynMediaTrack> {
public:
    explicit Track(ZynTrackKind kind, std::shared_ptr<StartReports> starts = nullptr)
        : m_kind(kind), m_starts(std::move(starts))
    {
    }
    ~Track() override;

    ZynTrackKind GetKind() override { return m_kind; }
    bool IsLocal() const { return m_kind < ZynTrack_RemoteAudio; }
    ZynResult SetLabel(uint32_t label) override
    {
        m_label.store(label);
        return ZYN_S_OK;
    }
    ZynResult GetLabel(uint32_t& label) override
    {
        label = m_label.load();
        return ZYN_S_OK;
    }
    ZynResult Start() override;
    ZynResult Stop() override;
    ZynResult Uninit() override;
    bool IsStarted() override { return m_started.load(); }
    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override;
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override { return m_options.Get(id, value, size); }
    // A capture track's camera controls are checked against the camera first (ZynCamera.h).
    ZynResult SetNamedOption(const char* name, const char* value) override;
    ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) override;
    ZynResult SetFileCapturer(IZynMediaFileCapturer* capturer) override;
    ZynResult AddExternalRenderer(IZynMediaFileRenderer* renderer) override;
    ZynResult RemoveExternalRenderer(IZynMediaFileRenderer* renderer) override;
    ZynResult SetDevice(IZynMediaDevice* device) override;
    IZynMediaDevice* GetDevice() override;
    ZynResult SendCommand(int32_t id, const void* value, uint32_t size) override;
    uint32_t GetKeyFrameCount() override { return m_keyFrames.load(); }
    ZynResult AddRenderer(void* window, int32_t flags) override;
    ZynResult RemoveRenderer(void* window) override;
    ZynResult AddFrameRenderer(IZynExternalRenderer* renderer, int32_t format) override;
    ZynResult RemoveFrameRenderer(IZynExternalRenderer* renderer) override;
    uint64_t GetRenderedFrames(const void* renderer) override;
    ZynResult GetVideoStatistics(_tagVideoStatistics& stats) override;
    ZynResult Attach(ZynTrackAttachment kind, void* item) override;
    ZynResult Detach(ZynTrackAttachment kind, void* item) override;
    bool IsAttached(ZynTrackAttachment kind, const void* item) override;
    ZynResult SetCaptureObserver(IZynMediaCaptureObserver* observer) override;
    ZynResult SetRemoteAudioObserver(IZynRemoteAudioTrackObserver* observer) override;
    ZynResult TakePhoto() override;
    ZynResult GetExternalInputter(IZynExternalInputter** out) override;
    ZynResult SimulateCameraEvent(int32_t code) override;

    // The session's receive path: one received payload to the processors and every renderer.
    void Render(const uint8_t* data, uint32_t length);
    bool HasRenderers();
    // The end of an asynchronous start, on the engine's thread.
    void ReportStart();

    // For the session's flow: option 68 and option 157 as last set.
    bool IsSendingData() const { return m_sendingData.load(); }
    bool IsExternalMuted() const { return m_externalMuted.load(); }
    // With one reference, or null.
    IZynMediaFileCapturer* TakeCapturer();
    IZynMediaFileRenderer* TakeRenderer();

private:
    // A local share track keeps what is shared: adds and removes of windows, processes and class
    // names change lists that reading the add option gives back. False: not a share option.
    bool SetShareOption(int32_t id, const void* value, uint32_t size, ZynResult& result);
    void PublishShareList(int32_t id);

    void CountCommand(const char* name);
    // Command 7: the window must be one of the track's.
    ZynResult UpdateWindow(const void* value, uint32_t size);

    struct Renderer {
        const void* key;                 // the window, or the frame renderer
        IZynExternalRenderer* frames;    // null for a window
        int32_t format;
        uint64_t count = 0;
    };

    const ZynTrackKind m_kind;
    const std::shared_ptr<StartReports> m_starts;
    std::atomic<uint32_t> m_label{0};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_uninited{false};
    std::atomic<bool> m_sendingData{true};
    std::atomic<bool> m_externalMuted{false};
    std::atomic<uint32_t> m_keyFrames{0};
    OptionStore m_options;
    std::mutex m_mutex;
    IZynMediaFileCapturer* m_capturer = nullptr;  // one reference; guarded by m_mutex
    IZynMediaFileRenderer* m_renderer = nullptr;  // one reference; guarded by m_mutex
    IZynMediaDevice* m_device = nullptr;          // one reference; guarded by m_mutex
    std::map<int32_t, std::vector<uint64_t>> m_shareLists;  // guarded by m_mutex
    std::map<int32_t, std::set<std::string>> m_shareNames;  // guarded by m_mutex
    static constexpr size_t kMaxRenderers = 16;
    std::recursive_mutex m_renderMutex;
    std::vector<Renderer> m_renderers;                      // guarded by m_renderMutex
    std::set<std::pair<int32_t, const void*>> m_attached;   // guarded by m_renderMutex
    _tagVideoStatistics m_stats{};                          // guarded by m_renderMutex
    std::atomic<bool> m_failNextStart{false};
    IZynExternalInputter* m_pin = nullptr;                  // one reference; guarded by m_mutex
    // Held while an observer is told, so that clearing one waits for a call in flight; recursive,
    // as an observer may call back into the track.
    std::recursive_mutex m_observerMutex;
    IZynMediaCaptureObserver* m_captureObserver = nullptr;      // guarded by m_observerMutex
    IZynRemoteAudioTrackObserver* m_audioObserver = nullptr;  // guarded by m_observerMutex
};

}  // namespace zynsim
