// A preview and a sending track on the engine's cameras: which engine track runs on which camera
// after each registration, read from the engine tracks themselves.
#include <gtest/gtest.h>

#include "test_support.h"
#include "track/CameraSourceHub.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CCameraSourceHub;

class CameraHubTest : public ::testing::Test {
protected:
    CameraHubTest()
    {
        ZynInit(0);
        EXPECT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&engine, 5, &clock));
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(ZYN_S_OK, engine->FindDevice(ZynDevice_Camera, i ? "zyn-cam-usb" : "zyn-cam-front", &camera[i]));
            EXPECT_EQ(ZYN_S_OK, engine->CreateTrack(ZynTrack_VideoLocal, &track[i]));
        }
        send = track[0];
        preview = track[1];
    }
    ~CameraHubTest() override
    {
        for (int i = 0; i < 2; ++i) {
            track[i]->Release();
            camera[i]->Release();
        }
        engine->Stop();
        engine->Release();
        ZynUninit();
    }
    // The sending track opens a camera and runs, as a started local video track does.
    void Send(int cam)
    {
        send->SetDevice(camera[cam]);
        send->Start();
        ASSERT_EQ(ZYN_S_OK, hub.RegisterLocalTrack(send));
    }

    struct FixedClock : IZynClock {
        uint64_t NowMs() override { return 0; }
        uint64_t NowNtp() override { return 0; }
    } clock;
    IZynMediaEngineInternal* engine = nullptr;
    IZynMediaDevice* camera[2] = {};
    IZynMediaTrack* track[2] = {};
    IZynMediaTrack* send = nullptr;
    IZynMediaTrack* preview = nullptr;
    // Owners of renders: only compared, never called.
    zyn::CMediaTrack* const owner = reinterpret_cast<zyn::CMediaTrack*>(0x10);
    CCameraSourceHub hub;
};

TEST_F(CameraHubTest, OneCameraOpensOnceAndItsRendersFollowTheOpenTrack)
{
    preview->SetDevice(camera[0]);
    // A track without a camera, or a render without an owner, registers nothing.
    EXPECT_EQ(ZYN_E_POINTER, hub.RegisterLocalTrack(send));
    EXPECT_EQ(ZYN_E_POINTER, hub.RegisterPreview(preview, nullptr));
    const struct {
        const char* name;
        std::function<void()> step;
        bool previewRuns;
        IZynMediaTrack* open;  // on camera 0
        size_t cameras;
    } rows[] = {
        {"a preview alone runs", [&] { ASSERT_EQ(ZYN_S_OK, hub.RegisterPreview(preview, owner)); }, true, preview, 1},
        {"sending from its camera stops it", [&] { Send(0); }, false, send, 1},
        {"the sender closing hands the camera back", [&] { ASSERT_EQ(ZYN_S_OK, hub.UnregisterLocalTrack(send)); },
         true, preview, 1},
        {"sending again", [&] { Send(0); }, false, send, 1},
        {"the sender switches camera: the preview has its own back", [&] { Send(1); }, true, preview, 2},
        {"the last render goes: the preview stops", [&] { ASSERT_EQ(ZYN_S_OK, hub.UnregisterPreview(owner)); }, false,
         nullptr, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.step();
        EXPECT_EQ(row.previewRuns, preview->IsStarted());
        CCameraSourceHub::DeviceContext* c = hub.FindDevice(camera[0]);
        EXPECT_EQ(row.open, c ? c->GetOpenTrack() : nullptr);
        EXPECT_EQ(row.cameras, hub.GetDeviceCount());
    }
    EXPECT_EQ(send, hub.FindDevice(camera[1])->GetOpenTrack());
    EXPECT_EQ(hub.FindDevice(camera[1]), hub.FindDevice(send));
}

}  // namespace
