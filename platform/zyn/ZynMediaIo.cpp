#include "zyn/ZynMediaIo.h"

#include <algorithm>
#include <cstring>

namespace zynsim {

namespace {

// A RIFF file whose form type is WAVE: the least that makes a file a WAV file.
bool LooksLikeWav(std::FILE* file)
{
    uint8_t header[12];
    const bool ok = std::fread(header, 1, sizeof header, file) == sizeof header &&
                    std::memcmp(header, "RIFF", 4) == 0 && std::memcmp(header + 8, "WAVE", 4) == 0;
    std::rewind(file);
    return ok;
}

bool IsEmpty(std::FILE* file)
{
    const int c = std::fgetc(file);
    std::rewind(file);
    return c == EOF;
}

}  // namespace

FileCapturer* FileCapturer::Open(const char* path, ZynRawFormat format, ZynResult& result)
{
    result = ZYN_E_INVALIDARG;
    if (!path || !*path || format == ZynRawFormat_Unknown) return nullptr;
    std::FILE* file = std::fopen(path, "rb");
    if (!file) {
        result = ZYN_E_NOTFOUND;
        return nullptr;
    }
    if (IsEmpty(file) || (format == ZynRawFormat_Wav && !LooksLikeWav(file))) {
        std::fclose(file);
        return nullptr;
    }
    result = ZYN_S_OK;
    return new FileCapturer(file, format);
}

FileCapturer::~FileCapturer() { std::fclose(m_file); }

ZynResult FileCapturer::Start()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_started = true;
    return ZYN_S_OK;
}

ZynResult FileCapturer::Stop()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_started = false;
    return ZYN_S_OK;
}

bool FileCapturer::IsStarted()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_started;
}

ZynResult FileCapturer::SetObserver(IZynMediaFileCapturerObserver* observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_observer = observer;
    return ZYN_S_OK;
}

ZynResult FileCapturer::SetOption(int32_t id, const void* value, uint32_t size)
{
    const ZynResult r = m_options.Set(id, value, size);
    if (ZYN_SUCCEEDED(r) && id == ZynCapturerOption_Loop && value && size >= 1) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_loop = *static_cast<const uint8_t*>(value) != 0;
    }
    return r;
}

uint32_t FileCapturer::ReadPayload(uint8_t* out, uint32_t capacity)
{
    IZynMediaFileCapturerObserver* ended = nullptr;
    size_t n = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_started || m_ended || !out) return 0;
        n = std::fread(out, 1, capacity, m_file);
        if (n == 0 && m_loop) {
            std::rewind(m_file);
            n = std::fread(out, 1, capacity, m_file);
        }
        if (n == 0) {
            m_ended = true;
            ended = m_observer;
        }
    }
    // Told once, outside the lock: the observer may stop the capturer.
    if (ended) ended->OnEndOfStream(this);
    return static_cast<uint32_t>(n);
}

FileRenderer* FileRenderer::Create(const char* path, ZynRawFormat format, ZynResult& result)
{
    result = ZYN_E_INVALIDARG;
    if (!path || !*path || format == ZynRawFormat_Unknown) return nullptr;
    std::FILE* file = std::fopen(path, "wb");
    if (!file) {
        result = ZYN_E_NOTFOUND;
        return nullptr;
    }
    std::setvbuf(file, nullptr, _IONBF, 0);
    result = ZYN_S_OK;
    return new FileRenderer(file, format);
}

FileRenderer::~FileRenderer() { std::fclose(m_file); }

ZynResult FileRenderer::RenderPayload(const uint8_t* data, uint32_t length)
{
    if (!data && length) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::fwrite(data, 1, length, m_file) != length) return ZYN_E_FAIL;
    m_written += length;
    return ZYN_S_OK;
}

uint64_t FileRenderer::GetBytesWritten()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_written;
}

DeviceList::DeviceList()
{
    // A few named virtual devices, as a machine with a headset and a webcam shows them.
    m_devices = {new Device(ZynDevice_Microphone, "zyn-mic-builtin", "Built-in Microphone"),
                 new Device(ZynDevice_Microphone, "zyn-mic-headset", "Headset Microphone"),
                 new Device(ZynDevice_Speaker, "zyn-spk-builtin", "Built-in Speakers"),
                 new Device(ZynDevice_Speaker, "zyn-spk-headset", "Headset Earphones"),
                 new Device(ZynDevice_Camera, "zyn-cam-front", "Front Camera"),
                 new Device(ZynDevice_Camera, "zyn-cam-usb", "USB Camera")};
}

DeviceList::~DeviceList()
{
    for (Device* d : m_devices) d->Release();
}

ZynResult DeviceList::Get(ZynDeviceKind kind, IZynMediaDevice** out, uint32_t& count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    uint32_t n = 0;
    for (Device* d : m_devices) n += d->GetDeviceKind() == kind;
    if (!out || count < n) {
        count = n;
        return out ? ZYN_E_INVALIDARG : ZYN_S_OK;
    }
    count = 0;
    for (Device* d : m_devices) {
        if (d->GetDeviceKind() != kind) continue;
        d->AddRef();
        out[count++] = d;
    }
    return ZYN_S_OK;
}

ZynResult DeviceList::Find(ZynDeviceKind kind, const char* name, IZynMediaDevice** out)
{
    if (!out) return ZYN_E_POINTER;
    *out = nullptr;
    if (!name) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Device* d : m_devices) {
        if (d->GetDeviceKind() == kind && std::strcmp(d->GetDeviceName(), name) == 0) {
            d->AddRef();
            *out = d;
            return ZYN_S_OK;
        }
    }
    return ZYN_E_NOTFOUND;
}

ZynResult DeviceList::AddObserver(IZynMediaDeviceObserver* observer)
{
    if (!observer) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_observers.begin(), m_observers.end(), observer) != m_observers.end()) return ZYN_E_DUPLICATE;
    m_observers.push_back(observer);
    return ZYN_S_OK;
}

ZynResult DeviceList::RemoveObserver(IZynMediaDeviceObserver* observer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find(m_observers.begin(), m_observers.end(), observer);
    if (it == m_observers.end()) return ZYN_E_NOTFOUND;
    m_observers.erase(it);
    return ZYN_S_OK;
}

ZynResult DeviceList::Change(ZynDeviceKind kind, const char* name, bool added)
{
    if (!name || !*name) return ZYN_E_INVALIDARG;
    Device* device = nullptr;
    std::vector<IZynMediaDeviceObserver*> observers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = std::find_if(m_devices.begin(), m_devices.end(), [&](Device* d) {
            return d->GetDeviceKind() == kind && std::strcmp(d->GetDeviceName(), name) == 0;
        });
        if (added) {
            if (it != m_devices.end()) return ZYN_E_DUPLICATE;
            device = new Device(kind, name, name);
            m_devices.push_back(device);
        } else {
            if (it == m_devices.end()) return ZYN_E_NOTFOUND;
            device = *it;
            m_devices.erase(it);
        }
        device->AddRef();
        observers = m_observers;
    }
    for (IZynMediaDeviceObserver* o : observers) o->OnDeviceChanged(device, 2);
    // The reference taken for the observers; on removal also the list's own.
    device->Release();
    if (!added) device->Release();
    return ZYN_S_OK;
}

}  // namespace zynsim
