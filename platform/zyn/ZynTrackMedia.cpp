// What an engine track does with its owner's objects: window and frame renderers fed with what
// arrives, processing that sees it first, effects and ciphers it holds, the capture observer told
// of a camera's events, and the input pin of an external source. Any thread: the lists are
// guarded by m_renderMutex, held while a renderer or processor is called, so that removing one
// returns only once no call runs; observers likewise under m_observerMutex.
#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>

#include "tp/CmEvent.h"
#include "zyn/ZynTrack.h"

namespace zynsim {

namespace {

// Frames the owner pushed, waiting for the session's next ticks. Bounded: a feeder faster than the
// frame rate loses its oldest frames instead of growing the queue without end.
struct FrameQueue {
    static constexpr size_t kMaxFrames = 8;
    std::mutex mutex;
    std::deque<std::vector<uint8_t>> frames;  // guarded by mutex
};

class InputPin final : public RefCounted<IZynExternalInputter> {
public:
    explicit InputPin(std::shared_ptr<FrameQueue> queue) : m_queue(std::move(queue)) {}
    ZynResult InputVideoData(const unsigned char* data, unsigned int length, const _tagVideoSourceInfo*) override
    {
        if (!data || length == 0) return ZYN_E_INVALIDARG;
        std::lock_guard<std::mutex> lock(m_queue->mutex);
        if (m_queue->frames.size() == FrameQueue::kMaxFrames) m_queue->frames.pop_front();
        m_queue->frames.emplace_back(data, data + length);
        return ZYN_S_OK;
    }

private:
    const std::shared_ptr<FrameQueue> m_queue;
};

// The pin's other face: what the session's send path reads, one pushed frame per frame slot;
// nothing is sent while the queue is empty.
class PinCapturer final : public RefCounted<IZynMediaFileCapturer> {
public:
    explicit PinCapturer(std::shared_ptr<FrameQueue> queue) : m_queue(std::move(queue)) {}
    ZynResult Start() override { return ZYN_S_OK; }
    ZynResult Stop() override { return ZYN_S_OK; }
    bool IsStarted() override { return true; }
    ZynResult SetObserver(IZynMediaFileCapturerObserver*) override { return ZYN_S_OK; }
    uint32_t ReadPayload(uint8_t* out, uint32_t capacity) override
    {
        std::lock_guard<std::mutex> lock(m_queue->mutex);
        if (m_queue->frames.empty()) return 0;
        const std::vector<uint8_t>& frame = m_queue->frames.front();
        const uint32_t n = std::min<uint32_t>(capacity, static_cast<uint32_t>(frame.size()));
        std::memcpy(out, frame.data(), n);
        m_queue->frames.pop_front();
        return n;
    }
    ZynRawFormat GetFormat() override { return ZynRawFormat_I420; }
    ZYN_FORWARD_OPTIONS(m_options)

private:
    const std::shared_ptr<FrameQueue> m_queue;
    OptionStore m_options;
};

// A still of the capture: a grey 160 by 90 I420 picture.
class Photo final : public RefCounted<IZynMediaPackage> {
public:
    Photo() : m_bytes(kWidth * kHeight * 3 / 2, 0x80) {}
    const unsigned char* GetData() override { return m_bytes.data(); }
    unsigned int GetLength() override { return static_cast<unsigned int>(m_bytes.size()); }
    void GetSize(unsigned int& width, unsigned int& height) override
    {
        width = kWidth;
        height = kHeight;
    }

private:
    static constexpr unsigned int kWidth = 160, kHeight = 90;
    std::vector<unsigned char> m_bytes;
};

bool IsRemoteVideo(ZynTrackKind kind) { return kind == ZynTrack_RemoteVideo || kind == ZynTrack_RemoteScreenShare; }

}  // namespace

StartReports::~StartReports()
{
    for (Track* t : m_pending) t->Release();
}

void StartReports::Post(Track* track)
{
    track->AddRef();
    if (m_thread) {
        if (ICmEventQueue* queue = m_thread->GetEventQueue()) {
            const CmResult r = queue->PostEvent(new CCmInvokeEvent([track] {
                track->ReportStart();
                track->Release();
                return CM_OK;
            }));
            if (r == CM_OK) return;
        }
        track->Release();
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pending.push_back(track);
}

void StartReports::RunPending()
{
    std::vector<Track*> due;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        due.swap(m_pending);
    }
    for (Track* t : due) {
        t->ReportStart();
        t->Release();
    }
}

void Track::ReportStart()
{
    std::lock_guard<std::recursive_mutex> lock(m_observerMutex);
    if (!m_captureObserver) return;
    const bool failed = m_failNextStart.exchange(false) || !m_started.load();
    if (failed) m_started.store(false);
    m_captureObserver->OnStartedCapture(this, failed ? ZYN_E_WRONGSTATE : ZYN_S_OK);
}

ZynResult Track::SetCaptureObserver(IZynMediaCaptureObserver* observer)
{
    if (observer && m_kind != ZynTrack_VideoLocal && m_kind != ZynTrack_ExternalVideoLocal) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_observerMutex);
    m_captureObserver = observer;
    return ZYN_S_OK;
}

ZynResult Track::SetRemoteAudioObserver(IZynRemoteAudioTrackObserver* observer)
{
    if (observer && m_kind != ZynTrack_RemoteAudio) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_observerMutex);
    m_audioObserver = observer;
    return ZYN_S_OK;
}

ZynResult Track::SimulateCameraEvent(int32_t code)
{
    if (m_kind != ZynTrack_VideoLocal) return ZYN_E_INVALIDARG;
    if (code == 4) {
        m_failNextStart.store(true);
        return ZYN_S_OK;
    }
    std::lock_guard<std::recursive_mutex> lock(m_observerMutex);
    if (!m_captureObserver) return ZYN_E_WRONGSTATE;
    switch (code) {
    case 1: m_captureObserver->OnCameraRuntimeDie(); break;
    case 2: m_captureObserver->OnCameraErrorEvicted(); break;
    case 3: m_captureObserver->OnCameraNoAuth(); break;
    case 5: m_captureObserver->OnUpdateCaptureResolution(1280, 720); break;
    default: return ZYN_E_INVALIDARG;
    }
    return ZYN_S_OK;
}

ZynResult Track::TakePhoto()
{
    if (m_kind != ZynTrack_VideoLocal) return ZYN_E_INVALIDARG;
    if (!m_started.load()) return ZYN_E_WRONGSTATE;
    auto* photo = new Photo();
    {
        std::lock_guard<std::recursive_mutex> lock(m_observerMutex);
        if (m_captureObserver) m_captureObserver->OnCapturePhotoOutput(photo);
    }
    photo->Release();
    return ZYN_S_OK;
}

ZynResult Track::GetExternalInputter(IZynExternalInputter** out)
{
    if (!out) return ZYN_E_POINTER;
    *out = nullptr;
    if (m_kind != ZynTrack_ExternalVideoLocal) return ZYN_E_INVALIDARG;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pin) {
            m_pin->AddRef();
            *out = m_pin;
            return ZYN_S_OK;
        }
    }
    auto queue = std::make_shared<FrameQueue>();
    auto* capturer = new PinCapturer(queue);
    SetFileCapturer(capturer);
    capturer->Release();
    auto* pin = new InputPin(queue);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pin = pin;  // the track's reference
    }
    pin->AddRef();
    *out = pin;
    return ZYN_S_OK;
}

void Track::CountCommand(const char* name)
{
    char text[24] = "0";
    uint32_t size = sizeof text;
    m_options.GetNamed(name, text, size);
    m_options.SetNamed(name, std::to_string(std::strtoull(text, nullptr, 10) + 1).c_str());
}

ZynResult Track::UpdateWindow(const void* value, uint32_t size)
{
    if (!IsRemoteVideo(m_kind)) return ZYN_E_NOTIMPL;
    if (!value || size != sizeof(void*)) return ZYN_E_INVALIDARG;
    void* window = nullptr;
    std::memcpy(&window, value, sizeof window);
    {
        std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
        if (std::none_of(m_renderers.begin(), m_renderers.end(), [window](const Renderer& r) { return r.key == window; }))
            return ZYN_E_NOTFOUND;
    }
    CountCommand(ZynTrackCount_WindowUpdates);
    return ZYN_S_OK;
}

ZynResult Track::AddRenderer(void* window, int32_t)
{
    if (!window) return ZYN_E_POINTER;
    if (!IsRemoteVideo(m_kind)) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    for (const Renderer& r : m_renderers)
        if (r.key == window) return ZYN_E_DUPLICATE;
    if (m_renderers.size() == kMaxRenderers) return ZYN_E_FAIL;
    m_renderers.push_back({window, nullptr, 0});
    return ZYN_S_OK;
}

ZynResult Track::AddFrameRenderer(IZynExternalRenderer* renderer, int32_t format)
{
    if (!renderer) return ZYN_E_POINTER;
    if (IsLocal()) return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    for (const Renderer& r : m_renderers)
        if (r.key == renderer) return ZYN_E_DUPLICATE;
    if (m_renderers.size() == kMaxRenderers) return ZYN_E_FAIL;
    m_renderers.push_back({renderer, renderer, format});
    return ZYN_S_OK;
}

ZynResult Track::RemoveRenderer(void* window)
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    auto it = std::find_if(m_renderers.begin(), m_renderers.end(),
                           [window](const Renderer& r) { return r.key == window && !r.frames; });
    if (!window || it == m_renderers.end()) return ZYN_E_NOTFOUND;
    m_renderers.erase(it);
    return ZYN_S_OK;
}

ZynResult Track::RemoveFrameRenderer(IZynExternalRenderer* renderer)
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    auto it = std::find_if(m_renderers.begin(), m_renderers.end(),
                           [renderer](const Renderer& r) { return r.frames && r.frames == renderer; });
    if (!renderer || it == m_renderers.end()) return ZYN_E_NOTFOUND;
    m_renderers.erase(it);
    return ZYN_S_OK;
}

uint64_t Track::GetRenderedFrames(const void* renderer)
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    for (const Renderer& r : m_renderers)
        if (r.key == renderer) return r.count;
    return 0;
}

ZynResult Track::GetVideoStatistics(_tagVideoStatistics& stats)
{
    if (m_kind == ZynTrack_AudioLocal || m_kind == ZynTrack_AudioSlideLocal || m_kind == ZynTrack_ExternalAudioLocal ||
        m_kind == ZynTrack_RemoteAudio)
        return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    stats = m_stats;
    stats.renderers = static_cast<uint32_t>(m_renderers.size());
    return ZYN_S_OK;
}

ZynResult Track::Attach(ZynTrackAttachment kind, void* item)
{
    if (!item) return ZYN_E_POINTER;
    if (kind == ZynTrackAttach_Effect && m_kind != ZynTrack_VideoLocal && m_kind != ZynTrack_ExternalVideoLocal)
        return ZYN_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    // One cipher a track: a new one takes the old one's place.
    if (kind == ZynTrackAttach_Cipher)
        for (auto it = m_attached.begin(); it != m_attached.end();)
            it = it->first == kind ? m_attached.erase(it) : std::next(it);
    return m_attached.insert({kind, item}).second ? ZYN_S_OK : ZYN_E_DUPLICATE;
}

ZynResult Track::Detach(ZynTrackAttachment kind, void* item)
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    return m_attached.erase({kind, item}) ? ZYN_S_OK : ZYN_E_NOTFOUND;
}

bool Track::IsAttached(ZynTrackAttachment kind, const void* item)
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    return m_attached.count({kind, item}) != 0;
}

bool Track::HasRenderers()
{
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    return !m_renderers.empty() || !m_attached.empty();
}

void Track::Render(const uint8_t* data, uint32_t length)
{
    // No allocation here: this runs for every received packet.
    std::lock_guard<std::recursive_mutex> lock(m_renderMutex);
    for (const auto& [kind, item] : m_attached)
        if (kind == ZynTrackAttach_Processing)
            static_cast<IZynMediaExternalProcessing*>(const_cast<void*>(item))->OnProcessFrame(data, length);
    ++m_stats.frames;
    m_stats.bytes += length;
    m_stats.lastFrameId = static_cast<uint32_t>(m_stats.frames);
    // By index: a renderer may remove itself from inside its call.
    for (size_t i = 0; i < m_renderers.size(); ++i) {
        Renderer& r = m_renderers[i];
        ++r.count;
        if (r.frames) r.frames->OnRenderFrame(data, length, r.format);
    }
}

}  // namespace zynsim
