// Where a remote stream is shown: the application's windows and frame renderers, and processing
// that sees each frame first. The engine track feeds them; the track keeps the list of what the
// application attached, under its own lock, and never holds that lock across an engine call (a
// renderer called on the engine's receive thread may come back into the track).
//
// Threads: the application's calls on the main thread; GetRenderers from any thread.
#include <algorithm>
#include <cstdio>

#include "track/MediaTrack.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {
enum : int { kWindow = 0, kExternalRenderer = 1, kProcessing = 2 };
std::pair<const void*, int> Entry(const void* key, int kind) { return {key, kind}; }
}  // namespace

ZynResult CMediaTrack::TrackCall(const char* tag, const std::function<ZynResult(IZynMediaTrack*)>& call)
{
    // After UnInit nothing reaches the engine.
    if (!m_pTrack) return tag ? WriteMetricsError(tag, ZYN_E_NOTRACK) : ZYN_E_NOTRACK;
    const ZynResult r = call(m_pTrack);
    return ZYN_SUCCEEDED(r) || !tag ? r : WriteMetricsError(tag, r);
}

std::vector<std::pair<const void*, int>> CMediaTrack::GetRenderers()
{
    std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
    return m_renderers;
}

ZynResult CMediaTrack::AddRendererEntry(const char* tag, const void* key, int kind, int format)
{
    if (!key) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    // Windows show video; frames and processing also exist for remote audio.
    if (kind == kWindow ? !IsRemoteVideo() : m_eDirection != ZynDirection_Recv) return WriteMetricsError(tag, ZYN_E_FAIL);
    const ZynResult r = TrackCall(tag, [&](IZynMediaTrack* t) {
        switch (kind) {
        case kWindow: return t->AddRenderer(const_cast<void*>(key), 0);
        case kExternalRenderer:
            return t->AddFrameRenderer(static_cast<IZynExternalRenderer*>(const_cast<void*>(key)), format);
        default: return t->Attach(ZynTrackAttach_Processing, const_cast<void*>(key));
        }
    });
    if (!ZYN_SUCCEEDED(r)) return r;
    std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
    m_renderers.emplace_back(key, kind);
    MS_INFO_TRACE("CMediaTrack::AddRendererEntry, kind=" << kind << ", renderer=" << key << TRACK_TAIL);
    return r;
}

ZynResult CMediaTrack::AddRenderWindow(void* window)
{
    return AddRendererEntry("MedTrck_AddRenderWin", window, kWindow, 0);
}

ZynResult CMediaTrack::AddExternalRender(IZynExternalRenderer* renderer)
{
    return AddExternalRender(renderer, IsAudio() ? ZynRawFormat_Wav : ZynRawFormat_I420);
}

ZynResult CMediaTrack::AddExternalRender(IZynExternalRenderer* renderer, int format)
{
    if (format <= ZynRawFormat_Unknown || format > ZynRawFormat_BGR24 || IsAudio() != (format == ZynRawFormat_Wav))
        return WriteMetricsError("MedTrck_AddExtRender", ZYN_E_INVALIDARG);
    return AddRendererEntry("MedTrck_AddExtRender", renderer, kExternalRenderer, format);
}

ZynResult CMediaTrack::AddMediaExternalProcessing(IZynMediaExternalProcessing* processing)
{
    return AddRendererEntry("MedTrck_AddMedExtProc", processing, kProcessing, 0);
}

ZynResult CMediaTrack::RemoveRenderWindow(void* window)
{
    const ZynResult r = TrackCall("MedTrck_RmvRenderWin", [&](IZynMediaTrack* t) { return t->RemoveRenderer(window); });
    std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
    if (ZYN_SUCCEEDED(r)) std::erase(m_renderers, Entry(window, kWindow));
    return r;
}

ZynResult CMediaTrack::RemoveExternalRender(IZynExternalRenderer* renderer)
{
    const ZynResult r =
        TrackCall("MedTrck_RmvExtRender", [&](IZynMediaTrack* t) { return t->RemoveFrameRenderer(renderer); });
    std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
    if (ZYN_SUCCEEDED(r))
        std::erase(m_renderers, Entry(renderer, kExternalRenderer));
    return r;
}

ZynResult CMediaTrack::RemoveMediaExternalProcessing(IZynMediaExternalProcessing* processing)
{
    const ZynResult r = TrackCall("MedTrck_RmvMedExtProc",
                                  [&](IZynMediaTrack* t) { return t->Detach(ZynTrackAttach_Processing, processing); });
    std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
    if (ZYN_SUCCEEDED(r))
        std::erase(m_renderers, Entry(processing, kProcessing));
    return r;
}

// A setting of one attached window or renderer, kept by the engine under "render.<address>.<what>".
ZynResult CMediaTrack::WriteRenderSetting(const char* tag, const void* key, const char* what, unsigned int value)
{
    bool attached = false;
    {
        std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
        for (const auto& r : m_renderers) attached = attached || (r.first == key && r.second != kProcessing);
    }
    if (!key || !attached) return WriteMetricsError(tag, ZYN_E_NOTFOUND);
    char name[64];
    std::snprintf(name, sizeof name, "render.%p.%s", key, what);
    const std::string text = std::to_string(value);
    return TrackCall(tag, [&](IZynMediaTrack* t) { return t->SetNamedOption(name, text.c_str()); });
}

ZynResult CMediaTrack::UpdateRenderWindow(void* window)
{
    bool attached = false;
    {
        std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
        attached = std::find(m_renderers.begin(), m_renderers.end(), Entry(window, kWindow)) !=
                   m_renderers.end();
    }
    if (!attached) return WriteMetricsError("MedTrck_UpdRenderWin", ZYN_E_NOTFOUND);
    return TrackCall("MedTrck_UpdRenderWin", [&](IZynMediaTrack* t) {
        return t->SendCommand(ZynTrackCommand_UpdateRenderWindow, &window, sizeof window);
    });
}

ZynResult CMediaTrack::SetWindowRenderMinInterval(void* window, unsigned int intervalMs)
{
    return WriteRenderSetting("MedTrck_SetRenderWinFps", window, "min_interval", intervalMs);
}

ZynResult CMediaTrack::SetExternalRenderMinInterval(IZynExternalRenderer* renderer, unsigned int intervalMs)
{
    return WriteRenderSetting("MedTrck_SetExtRenderFps", renderer, "min_interval", intervalMs);
}

ZynResult CMediaTrack::SetRenderType(void* window, int type)
{
    if (type < 0) return WriteMetricsError("MedTrck_SetRenderType", ZYN_E_INVALIDARG);
    return WriteRenderSetting("MedTrck_SetRenderType", window, "type", static_cast<unsigned int>(type));
}

ZynResult CMediaTrack::SetRenderMode(void* window, ZynRenderMode mode)
{
    if (mode < ZynRenderMode_Fit || mode > ZynRenderMode_Stretch) return WriteMetricsError("MedTrck_SetRenderMode", ZYN_E_INVALIDARG);
    return WriteRenderSetting("MedTrck_SetRenderMode", window, "mode", static_cast<unsigned int>(mode));
}

ZynResult CMediaTrack::SetRenderWindowInfo(void* window, unsigned int width, unsigned int height)
{
    if (width == 0 || height == 0) return WriteMetricsError("MedTrck_UpdRenderWin", ZYN_E_INVALIDARG);
    const ZynResult r = WriteRenderSetting("MedTrck_UpdRenderWin", window, "width", width);
    return ZYN_SUCCEEDED(r) ? WriteRenderSetting("MedTrck_UpdRenderWin", window, "height", height) : r;
}

ZynResult CMediaTrack::GetVideoStatistics(_tagVideoStatistics& stats)
{
    if (IsAudio()) return ZYN_E_FAIL;
    return TrackCall(nullptr, [&](IZynMediaTrack* t) { return t->GetVideoStatistics(stats); });
}

// Reported under the preview's tag, as it always was: dashboards count the two together.
ZynResult CMediaTrack::GetLastDecodedTimestamp(unsigned int& timestamp)
{
    if (!IsRemoteVideo()) return WriteMetricsError("MedTrck_StartPrev", ZYN_E_FAIL);
    _tagVideoStatistics stats{};
    const ZynResult r = TrackCall("MedTrck_StartPrev", [&](IZynMediaTrack* t) { return t->GetVideoStatistics(stats); });
    if (ZYN_SUCCEEDED(r)) timestamp = stats.lastFrameId;
    return r;
}

ZynResult CMediaTrack::RenderIndicationRequest(bool on)
{
    if (!IsRemoteVideo()) return ZYN_E_FAIL;
    return TrackCall(nullptr, [&](IZynMediaTrack* t) { return t->SetNamedOption("render.indication", on ? "1" : "0"); });
}

// The engine must not call the application's objects once the track is gone from the call.
void CMediaTrack::ReleaseRenderers()
{
    std::vector<std::pair<const void*, int>> attached;
    {
        std::lock_guard<std::recursive_mutex> lock(m_renderersLock);
        attached.swap(m_renderers);
    }
    if (!m_pTrack) return;
    for (const auto& [key, kind] : attached) {
        void* item = const_cast<void*>(key);
        if (kind == kWindow) m_pTrack->RemoveRenderer(item);
        if (kind == kExternalRenderer) m_pTrack->RemoveFrameRenderer(static_cast<IZynExternalRenderer*>(item));
        if (kind == kProcessing) m_pTrack->Detach(ZynTrackAttach_Processing, item);
    }
}

}  // namespace zyn
