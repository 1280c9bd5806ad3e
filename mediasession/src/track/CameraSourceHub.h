// One camera, opened once: a preview and a sending track of the same camera share it. The sending
// engine track is the one open on its device while it exists; the preview's engine track runs only
// while nothing sends from that camera, and the tracks that render the camera follow whichever is
// open.
//
// Threads: main thread; m_mutex guards the contexts all the same, since a track's release (and so
// its unregistering) may come from another thread.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "zyn/ZynEngineApi.h"

namespace zyn {

class CMediaTrack;

class CCameraSourceHub {
public:
    // Everything of one camera.
    class DeviceContext {
    public:
        explicit DeviceContext(IZynMediaDevice* device);
        ~DeviceContext();
        DeviceContext(const DeviceContext&) = delete;
        DeviceContext& operator=(const DeviceContext&) = delete;

        IZynMediaDevice* GetDevice() const { return m_pDevice; }
        // The engine track open on the camera now: the sending one, else the preview, else null.
        IZynMediaTrack* GetOpenTrack() const { return m_pOpen; }
        const std::vector<CMediaTrack*>& GetRenders() const { return m_renders; }
        bool IsEmpty() const { return !m_pTrack && !m_pPreview; }

        void RemoveRenders(CMediaTrack* owner);
        // The renders move to `track`, which must be the sending or the preview track.
        void ReArrangeRenders(IZynMediaTrack* track);
        // The preview stops and lets go; the renders are dropped.
        void Stop();

    private:
        friend class CCameraSourceHub;
        void SetTrack(IZynMediaTrack*& slot, IZynMediaTrack* track);

        IZynMediaDevice* m_pDevice = nullptr;   // one reference
        IZynMediaTrack* m_pTrack = nullptr;     // the sending engine track, one reference
        IZynMediaTrack* m_pPreview = nullptr;   // the preview's engine track, one reference
        IZynMediaTrack* m_pOpen = nullptr;      // one of the two above, or null
        std::vector<CMediaTrack*> m_renders;    // no references: each owner unregisters itself
    };

    CCameraSourceHub() = default;
    CCameraSourceHub(const CCameraSourceHub&) = delete;
    CCameraSourceHub& operator=(const CCameraSourceHub&) = delete;

    // The context of a camera, or of the camera a track uses; null when the hub has none. Valid
    // until the next registration change.
    DeviceContext* FindDevice(IZynMediaTrack* track);
    DeviceContext* FindDevice(IZynMediaDevice* device);
    // The sending track opened its camera (again, after a switch): it leaves the context of any
    // other camera, and a preview of the same camera stops in its favour.
    ZynResult RegisterLocalTrack(IZynMediaTrack* track);
    // The sending track closed its camera: a preview there takes it over.
    ZynResult UnregisterLocalTrack(IZynMediaTrack* track);
    // owner renders `preview`'s camera; the preview runs where nothing sends from that camera.
    ZynResult RegisterPreview(IZynMediaTrack* preview, CMediaTrack* owner);
    ZynResult UnregisterPreview(CMediaTrack* owner);
    size_t GetDeviceCount();

private:
    DeviceContext* Find(IZynMediaDevice* device);  // under m_mutex
    DeviceContext* FindOrAdd(IZynMediaDevice* device);  // under m_mutex
    void DropEmpty();  // under m_mutex

    std::mutex m_mutex;
    std::vector<std::unique_ptr<DeviceContext>> m_contexts;  // guarded by m_mutex
};

}  // namespace zyn
