// The engine's window renderer. A headless machine has no window system to draw on: the renderer
// takes each frame as a real one would (on the track's receive thread) and keeps what a window
// would show, its count and size.
#include <atomic>

#include "zyn/ZynEngineApi.h"
#include "zyn/ZynObject.h"

namespace zynsim {

namespace {

class VideoRender final : public RefCounted<IZynVideoRender> {
public:
    explicit VideoRender(void* window) : m_window(window) {}
    void* GetWindow() override { return m_window; }
    uint64_t GetDrawnFrames() override { return m_frames.load(); }
    unsigned int GetLastFrameLength() override { return m_lastLength.load(); }
    void OnRenderFrame(const unsigned char* data, unsigned int length, int) override
    {
        if (!data || !length) return;
        m_lastLength.store(length);
        m_frames.fetch_add(1);
    }

private:
    void* const m_window;
    std::atomic<uint64_t> m_frames{0};
    std::atomic<unsigned int> m_lastLength{0};
};

}  // namespace

}  // namespace zynsim

ZynResult ZynCreateVideoRender(void* window, IZynVideoRender** out)
{
    if (!out) return ZYN_E_POINTER;
    *out = nullptr;
    if (!window) return ZYN_E_INVALIDARG;
    *out = new zynsim::VideoRender(window);
    return ZYN_S_OK;
}
