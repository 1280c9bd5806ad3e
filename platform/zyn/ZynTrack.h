// An engine track: its run state, label and options, and what feeds or takes its media (a file
// capturer on a local track, a file renderer on a remote one, a device). Any thread: the run
// state is atomic, the attachments are guarded by m_mutex.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "zyn/ZynObject.h"

namespace zynsim {

class Track final : public RefCounted<IZynMediaTrack> {
public:
    explicit Track(ZynTrackKind kind) : m_kind(kind) {}
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
    ZynResult SetNamedOption(const char* name, const char* value) override { return m_options.SetNamed(name, value); }
    ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) override
    {
        return m_options.GetNamed(name, value, size);
    }
    ZynResult SetFileCapturer(IZynMediaFileCapturer* capturer) override;
    ZynResult AddExternalRenderer(IZynMediaFileRenderer* renderer) override;
    ZynResult RemoveExternalRenderer(IZynMediaFileRenderer* renderer) override;
    ZynResult SetDevice(IZynMediaDevice* device) override;
    IZynMediaDevice* GetDevice() override;
    ZynResult SendCommand(int32_t id, const void* value, uint32_t size) override;
    uint32_t GetKeyFrameCount() override { return m_keyFrames.load(); }

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

    const ZynTrackKind m_kind;
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
};

}  // namespace zynsim
