#include "track/CameraSourceHub.h"

#include <algorithm>

#include "util/CmTrace.h"

namespace zyn {

namespace {

// The camera a track has open, with one reference, or null.
IZynMediaDevice* DeviceOf(IZynMediaTrack* track)
{
    IZynMediaDevice* device = track ? track->GetDevice() : nullptr;
    if (!device) CM_ASSERT_REPORT("pDevice != NULL && ZYN_SUCCEEDED(hr)");
    return device;
}

}  // namespace

CCameraSourceHub::DeviceContext::DeviceContext(IZynMediaDevice* device) : m_pDevice(device)
{
    if (m_pDevice) m_pDevice->AddRef();
}

CCameraSourceHub::DeviceContext::~DeviceContext()
{
    SetTrack(m_pTrack, nullptr);
    SetTrack(m_pPreview, nullptr);
    if (m_pDevice) m_pDevice->Release();
}

void CCameraSourceHub::DeviceContext::SetTrack(IZynMediaTrack*& slot, IZynMediaTrack* track)
{
    if (track) track->AddRef();
    if (slot == m_pOpen) m_pOpen = nullptr;
    if (slot) slot->Release();
    slot = track;
}

void CCameraSourceHub::DeviceContext::RemoveRenders(CMediaTrack* owner)
{
    m_renders.erase(std::remove(m_renders.begin(), m_renders.end(), owner), m_renders.end());
}

void CCameraSourceHub::DeviceContext::ReArrangeRenders(IZynMediaTrack* track)
{
    if (!track || (track != m_pTrack && track != m_pPreview)) {
        CM_ASSERT_REPORT("pTrack == m_pTrack || pTrack == m_pPreview");
        return;
    }
    m_pOpen = track;
    // A camera opens once: the preview runs only while it is the open track.
    if (m_pPreview && m_pPreview != track) m_pPreview->Stop();
    if (m_pPreview && m_pPreview == track && !m_pPreview->IsStarted()) m_pPreview->Start();
}

void CCameraSourceHub::DeviceContext::Stop()
{
    if (m_pPreview) m_pPreview->Stop();
    SetTrack(m_pPreview, nullptr);
    m_renders.clear();
    if (m_pTrack) m_pOpen = m_pTrack;
}

CCameraSourceHub::DeviceContext* CCameraSourceHub::Find(IZynMediaDevice* device)
{
    for (auto& c : m_contexts)
        if (c->m_pDevice == device) return c.get();
    return nullptr;
}

CCameraSourceHub::DeviceContext* CCameraSourceHub::FindOrAdd(IZynMediaDevice* device)
{
    if (DeviceContext* c = Find(device)) return c;
    m_contexts.push_back(std::make_unique<DeviceContext>(device));
    return m_contexts.back().get();
}

void CCameraSourceHub::DropEmpty()
{
    m_contexts.erase(std::remove_if(m_contexts.begin(), m_contexts.end(),
                                    [](const std::unique_ptr<DeviceContext>& c) { return c->IsEmpty(); }),
                     m_contexts.end());
}

CCameraSourceHub::DeviceContext* CCameraSourceHub::FindDevice(IZynMediaDevice* device)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return Find(device);
}

CCameraSourceHub::DeviceContext* CCameraSourceHub::FindDevice(IZynMediaTrack* track)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& c : m_contexts)
        if (track && (c->m_pTrack == track || c->m_pPreview == track)) return c.get();
    return nullptr;
}

ZynResult CCameraSourceHub::RegisterLocalTrack(IZynMediaTrack* track)
{
    IZynMediaDevice* device = DeviceOf(track);
    if (!device) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    // A camera switch: the old camera's preview, if any, takes its camera back.
    for (auto& c : m_contexts) {
        if (c->m_pTrack != track || c->m_pDevice == device) continue;
        c->SetTrack(c->m_pTrack, nullptr);
        if (c->m_pPreview) c->ReArrangeRenders(c->m_pPreview);
    }
    DeviceContext* context = FindOrAdd(device);
    device->Release();
    context->SetTrack(context->m_pTrack, track);
    context->ReArrangeRenders(track);
    DropEmpty();
    return ZYN_S_OK;
}

ZynResult CCameraSourceHub::UnregisterLocalTrack(IZynMediaTrack* track)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& c : m_contexts) {
        if (!track || c->m_pTrack != track) continue;
        c->SetTrack(c->m_pTrack, nullptr);
        if (c->m_pPreview) c->ReArrangeRenders(c->m_pPreview);
        DropEmpty();
        return ZYN_S_OK;
    }
    return ZYN_E_NOTFOUND;
}

ZynResult CCameraSourceHub::RegisterPreview(IZynMediaTrack* preview, CMediaTrack* owner)
{
    if (!owner) {
        CM_ASSERT_REPORT("pOwner != NULL");
        return ZYN_E_POINTER;
    }
    IZynMediaDevice* device = DeviceOf(preview);
    if (!device) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    DeviceContext* context = FindOrAdd(device);
    device->Release();
    if (context->m_pPreview != preview) {
        if (context->m_pPreview) context->m_pPreview->Stop();
        context->SetTrack(context->m_pPreview, preview);
    }
    if (std::find(context->m_renders.begin(), context->m_renders.end(), owner) == context->m_renders.end())
        context->m_renders.push_back(owner);
    context->ReArrangeRenders(context->m_pTrack ? context->m_pTrack : preview);
    return ZYN_S_OK;
}

ZynResult CCameraSourceHub::UnregisterPreview(CMediaTrack* owner)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    bool found = false;
    for (auto& c : m_contexts) {
        const size_t before = c->m_renders.size();
        c->RemoveRenders(owner);
        if (c->m_renders.size() == before) continue;
        found = true;
        if (c->m_renders.empty()) c->Stop();
    }
    DropEmpty();
    return found ? ZYN_S_OK : ZYN_E_NOTFOUND;
}

size_t CCameraSourceHub::GetDeviceCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_contexts.size();
}

}  // namespace zyn
