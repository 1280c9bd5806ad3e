// What feeds and takes an engine's media besides the network: file capturers and renderers, the
// named virtual devices, and the capture and playout levels. Any thread; each class says its lock.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "zyn/ZynObject.h"

namespace zynsim {

class FileCapturer final : public RefCounted<IZynMediaFileCapturer> {
public:
    // Opens and checks the file; null with the reason in result.
    static FileCapturer* Open(const char* path, ZynRawFormat format, ZynResult& result);
    ~FileCapturer() override;

    ZynResult Start() override;
    ZynResult Stop() override;
    bool IsStarted() override;
    ZynResult SetObserver(IZynMediaFileCapturerObserver* observer) override;
    uint32_t ReadPayload(uint8_t* out, uint32_t capacity) override;
    ZynRawFormat GetFormat() override { return m_format; }
    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override;
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override { return m_options.Get(id, value, size); }
    ZynResult SetNamedOption(const char* name, const char* value) override { return m_options.SetNamed(name, value); }
    ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) override
    {
        return m_options.GetNamed(name, value, size);
    }

private:
    FileCapturer(std::FILE* file, ZynRawFormat format) : m_file(file), m_format(format) {}

    std::FILE* const m_file;
    const ZynRawFormat m_format;
    OptionStore m_options;
    std::mutex m_mutex;  // everything below
    bool m_started = false;
    bool m_loop = true;
    bool m_ended = false;
    IZynMediaFileCapturerObserver* m_observer = nullptr;
};

class FileRenderer final : public RefCounted<IZynMediaFileRenderer> {
public:
    static FileRenderer* Create(const char* path, ZynRawFormat format, ZynResult& result);
    ~FileRenderer() override;

    ZynResult RenderPayload(const uint8_t* data, uint32_t length) override;
    uint64_t GetBytesWritten() override;
    ZynRawFormat GetFormat() override { return m_format; }

private:
    FileRenderer(std::FILE* file, ZynRawFormat format) : m_file(file), m_format(format) {}

    std::FILE* const m_file;  // unbuffered: a reader sees each payload once it was rendered
    const ZynRawFormat m_format;
    std::mutex m_mutex;
    uint64_t m_written = 0;  // guarded by m_mutex
};

class Device final : public RefCounted<IZynMediaDevice> {
public:
    Device(ZynDeviceKind kind, std::string name, std::string friendly)
        : m_kind(kind), m_name(std::move(name)), m_friendly(std::move(friendly))
    {
    }
    ZynDeviceKind GetDeviceKind() override { return m_kind; }
    const char* GetDeviceName() override { return m_name.c_str(); }
    const char* GetFriendlyName() override { return m_friendly.c_str(); }

private:
    const ZynDeviceKind m_kind;
    const std::string m_name;
    const std::string m_friendly;
};

// The devices of one engine and who listens for changes. Guarded by its own lock; observers are
// told outside it.
class DeviceList {
public:
    DeviceList();
    ~DeviceList();
    ZynResult Get(ZynDeviceKind kind, IZynMediaDevice** out, uint32_t& count);
    ZynResult Find(ZynDeviceKind kind, const char* name, IZynMediaDevice** out);
    ZynResult AddObserver(IZynMediaDeviceObserver* observer);
    ZynResult RemoveObserver(IZynMediaDeviceObserver* observer);
    ZynResult Change(ZynDeviceKind kind, const char* name, bool added);

private:
    std::mutex m_mutex;
    std::vector<Device*> m_devices;  // one reference each
    std::vector<IZynMediaDeviceObserver*> m_observers;
};

// A capture or playout level; what the sessions read is the shared state.
struct VolumeState {
    std::atomic<bool> muted{false};
    std::atomic<uint32_t> volume{65535};
};

class VolumeControl final : public RefCounted<IZynVolumeControl> {
public:
    explicit VolumeControl(std::shared_ptr<VolumeState> state) : m_state(std::move(state)) {}
    ZynResult Mute(int32_t) override
    {
        m_state->muted.store(true);
        return ZYN_S_OK;
    }
    ZynResult Unmute(int32_t) override
    {
        m_state->muted.store(false);
        return ZYN_S_OK;
    }
    bool IsMuted() override { return m_state->muted.load(); }
    ZynResult SetVolume(uint32_t value, int32_t) override
    {
        if (value > 65535) return ZYN_E_INVALIDARG;
        m_state->volume.store(value);
        return ZYN_S_OK;
    }
    ZynResult GetVolume(uint32_t& value, int32_t) override
    {
        value = m_state->volume.load();
        return ZYN_S_OK;
    }

private:
    const std::shared_ptr<VolumeState> m_state;
};

}  // namespace zynsim
