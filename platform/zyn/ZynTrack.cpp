#include "zyn/ZynTrack.h"

#include "zyn/ZynCamera.h"

#include "zyn/ZynSubscribe.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zynsim {

namespace {

// Swaps the held object under the lock and releases the old one outside it.
template <class T>
void Replace(std::mutex& mutex, T*& slot, T* next)
{
    if (next) next->AddRef();
    T* old = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex);
        old = std::exchange(slot, next);
    }
    if (old) old->Release();
}

template <class T>
T* Take(std::mutex& mutex, T*& slot)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (slot) slot->AddRef();
    return slot;
}

bool DeviceFits(ZynTrackKind kind, ZynDeviceKind device)
{
    switch (kind) {
    case ZynTrack_AudioLocal:
    case ZynTrack_AudioSlideLocal: return device == ZynDevice_Microphone;
    case ZynTrack_VideoLocal: return device == ZynDevice_Camera;
    case ZynTrack_RemoteAudio: return device == ZynDevice_Speaker;
    default: return false;
    }
}

}  // namespace

Track::~Track()
{
    Replace<IZynMediaFileCapturer>(m_mutex, m_capturer, nullptr);
    Replace<IZynMediaFileRenderer>(m_mutex, m_renderer, nullptr);
    Replace<IZynMediaDevice>(m_mutex, m_device, nullptr);
    Replace<IZynExternalInputter>(m_mutex, m_pin, nullptr);
}

ZynResult Track::Start()
{
    if (m_uninited.load()) return ZYN_E_WRONGSTATE;
    m_started.store(true);
    // A camera opens on its own thread: the start ends there, a little later.
    uint8_t async = 0;
    uint32_t size = sizeof async;
    if (m_kind == ZynTrack_VideoLocal && m_starts && ZYN_SUCCEEDED(m_options.Get(ZynTrackOption_AsyncStart, &async, size)) &&
        async != 0)
        m_starts->Post(this);
    return ZYN_S_OK;
}

ZynResult Track::Stop()
{
    m_started.store(false);
    return ZYN_S_OK;
}

ZynResult Track::SendCommand(int32_t id, const void* value, uint32_t size)
{
    if (id == ZynTrackCommand_UpdateRenderWindow) return UpdateWindow(value, size);
    if (id != ZynTrackCommand_KeyFrameRequest) return ZYN_E_NOTIMPL;
    if (m_kind != ZynTrack_VideoLocal && m_kind != ZynTrack_ExternalVideoLocal && m_kind != ZynTrack_ScreenShareLocal)
        return ZYN_E_NOTIMPL;
    if (!value || size != sizeof(ZynKeyFrameRequest)) return ZYN_E_INVALIDARG;
    if (!m_started.load()) return ZYN_E_WRONGSTATE;
    m_keyFrames.fetch_add(1);
    return ZYN_S_OK;
}

ZynResult Track::Uninit()
{
    m_started.store(false);
    m_uninited.store(true);
    SetCaptureObserver(nullptr);
    SetRemoteAudioObserver(nullptr);
    return ZYN_S_OK;
}

namespace {

// Option 154's record: command, at 8 a value, at 16 a length or count.
struct ShareCommand {
    int32_t command;
    int32_t reserved;
    uint64_t value;
    uint64_t length;
};
constexpr size_t kMaxClassName = 1024;
constexpr uint64_t kMaxClassNames = 256;

}  // namespace

void Track::PublishShareList(int32_t id)
{
    if (auto it = m_shareNames.find(id); it != m_shareNames.end()) {
        std::vector<uint8_t> bytes;
        for (const std::string& name : it->second) bytes.insert(bytes.end(), name.c_str(), name.c_str() + name.size() + 1);
        m_options.Set(id, bytes.data(), static_cast<uint32_t>(bytes.size()));
        return;
    }
    const std::vector<uint64_t>& list = m_shareLists[id];
    m_options.Set(id, list.data(), static_cast<uint32_t>(list.size() * sizeof(uint64_t)));
}

bool Track::SetShareOption(int32_t id, const void* value, uint32_t size, ZynResult& result)
{
    if (m_kind != ZynTrack_ScreenShareLocal) return false;
    result = ZYN_E_INVALIDARG;
    if (!value) return true;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto change = [&](int32_t list, uint64_t item, bool add) {
        std::vector<uint64_t>& items = m_shareLists[list];
        auto it = std::find(items.begin(), items.end(), item);
        if (add && it == items.end()) items.push_back(item);
        if (!add && it != items.end()) items.erase(it);
        PublishShareList(list);
        result = ZYN_S_OK;
    };
    auto changeName = [&](int32_t list, const char* name, uint64_t length, bool add) {
        if (!name || length == 0 || length > kMaxClassName) return false;
        std::string text(name, strnlen(name, length));
        if (add)
            m_shareNames[list].insert(text);
        else
            m_shareNames[list].erase(text);
        PublishShareList(list);
        return true;
    };
    if (id >= 118 && id <= 125) {
        // Windows are 8-byte handles, processes 4-byte ids; odd ids remove from the list before.
        const bool window = id <= 121;
        if (size != (window ? 8u : 4u)) return true;
        uint64_t item = 0;
        if (window) {
            std::memcpy(&item, value, 8);
        } else {
            uint32_t pid = 0;
            std::memcpy(&pid, value, 4);
            item = pid;
        }
        change(id % 2 == 0 ? id : id - 1, item, id % 2 == 0);
        return true;
    }
    if (id == 126) {
        if (size != 8) return true;
        uint64_t display = 0;
        std::memcpy(&display, value, 8);
        m_shareLists[126] = {display};
        PublishShareList(126);
        result = ZYN_S_OK;
        return true;
    }
    if (id == 127) {
        if (size != 8) return true;
        uint64_t pointer = 0;
        std::memcpy(&pointer, value, 8);
        const char* name = reinterpret_cast<const char*>(static_cast<uintptr_t>(pointer));
        if (!name) return true;
        m_shareNames[127] = {std::string(name, strnlen(name, kMaxClassName))};
        PublishShareList(127);
        result = ZYN_S_OK;
        return true;
    }
    if (id != 154) return false;
    if (size != sizeof(ShareCommand)) return true;
    ShareCommand c;
    std::memcpy(&c, value, sizeof c);
    switch (c.command) {
    case 1001: case 1003: change(1001, c.value, c.command == 1001); break;
    case 1005: case 1007: change(1005, c.value, c.command == 1005); break;
    case 1009: case 1010: change(1009, c.value, c.command == 1009); break;
    case 1002: case 1004:
        if (changeName(1002, reinterpret_cast<const char*>(static_cast<uintptr_t>(c.value)), c.length, c.command == 1002))
            result = ZYN_S_OK;
        break;
    case 1006: case 1008: {
        const auto* names = reinterpret_cast<const char* const*>(static_cast<uintptr_t>(c.value));
        if (!names || c.length == 0 || c.length > kMaxClassNames) break;
        bool ok = true;
        for (uint64_t i = 0; i < c.length && ok; ++i)
            ok = changeName(1006, names[i], kMaxClassName, c.command == 1006);
        if (ok) result = ZYN_S_OK;
        break;
    }
    default: break;
    }
    return true;
}

ZynResult Track::SetNamedOption(const char* name, const char* value)
{
    const ZynResult camera = CheckCameraControl(name, value);
    if (camera == ZYN_S_FALSE) return m_options.SetNamed(name, value);
    if (m_kind != ZynTrack_VideoLocal) return ZYN_E_NOTAVAILABLE;
    return ZYN_SUCCEEDED(camera) ? m_options.SetNamed(name, value) : camera;
}

ZynResult Track::GetNamedOption(const char* name, char* value, uint32_t& size)
{
    std::string answer;
    if (m_kind == ZynTrack_VideoLocal) {
        char custom[64];
        uint32_t customSize = sizeof custom;
        const bool set = m_options.GetNamed("CAMERA_custom_exposure", custom, customSize) == ZYN_S_OK;
        if (ReadCameraControl(name, set ? std::string(custom, customSize) : std::string(), answer)) {
            if (!value || size <= answer.size()) {
                size = static_cast<uint32_t>(answer.size());
                return ZYN_E_INVALIDARG;
            }
            std::memcpy(value, answer.c_str(), answer.size() + 1);
            size = static_cast<uint32_t>(answer.size());
            return ZYN_S_OK;
        }
    }
    return m_options.GetNamed(name, value, size);
}

ZynResult Track::SetOption(int32_t id, const void* value, uint32_t size)
{
    ZynResult share = ZYN_S_OK;
    if (SetShareOption(id, value, size, share)) return share;
    const ZynResult r = m_options.Set(id, value, size);
    if (!ZYN_SUCCEEDED(r) || size < 1 || !value) return r;
    const bool on = *static_cast<const uint8_t*>(value) != 0;
    if (id == ZynTrackOption_SendingData) m_sendingData.store(on);
    if (id == ZynTrackOption_ExternalAudioMute) m_externalMuted.store(on);
    return r;
}

ZynResult Track::SetFileCapturer(IZynMediaFileCapturer* capturer)
{
    if (!IsLocal()) return ZYN_E_INVALIDARG;
    Replace(m_mutex, m_capturer, capturer);
    return ZYN_S_OK;
}

ZynResult Track::AddExternalRenderer(IZynMediaFileRenderer* renderer)
{
    if (!renderer) return ZYN_E_POINTER;
    if (IsLocal()) return ZYN_E_INVALIDARG;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_renderer) return ZYN_E_DUPLICATE;
        renderer->AddRef();
        m_renderer = renderer;
    }
    return ZYN_S_OK;
}

ZynResult Track::RemoveExternalRenderer(IZynMediaFileRenderer* renderer)
{
    IZynMediaFileRenderer* old = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!renderer || m_renderer != renderer) return ZYN_E_NOTFOUND;
        old = std::exchange(m_renderer, nullptr);
    }
    old->Release();
    return ZYN_S_OK;
}

ZynResult Track::SetDevice(IZynMediaDevice* device)
{
    if (device && !DeviceFits(m_kind, device->GetDeviceKind())) return ZYN_E_INVALIDARG;
    if (!device && !IsLocal()) return ZYN_E_INVALIDARG;
    Replace(m_mutex, m_device, device);
    return ZYN_S_OK;
}

IZynMediaDevice* Track::GetDevice() { return Take(m_mutex, m_device); }
IZynMediaFileCapturer* Track::TakeCapturer() { return Take(m_mutex, m_capturer); }
IZynMediaFileRenderer* Track::TakeRenderer() { return Take(m_mutex, m_renderer); }

}  // namespace zynsim
