// Engine events of a line in a connected loopback call, played as the engine would play them (on a
// thread of their own): what reaches the application's sink, in what order, and nothing once the
// sink is gone. A device plugged in moves the local microphone only with the default-device switch.
#include <gtest/gtest.h>

#include <thread>

#include "call_harness.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;
using namespace std::chrono_literals;

constexpr unsigned long kAudio = 0, kVideo = 1;

class LineEventsTest : public ::testing::Test {
protected:
    LineEventsTest() : call({{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}}, [](zyn::CMediaConnection&) {})
    {
        EXPECT_TRUE(call.Exchange());
        EXPECT_TRUE(call.WaitAll(2));
        OnMain();
        call.sink[0].TakeEvents();
    }
    // Runs the event on an engine-like thread of its own.
    static void FromEngine(const std::function<void()>& event) { std::thread(event).join(); }
    std::vector<std::string> EventsAfter(std::chrono::milliseconds settle)
    {
        call.sink[0].Wait([] { return false; }, settle);
        OnMain();
        return call.sink[0].TakeEvents();
    }
    std::string MicInUse()
    {
        IZynMediaTrack* track = call.Line(0, kAudio)->GetLocalEngineTrack();
        IZynMediaDevice* device = track ? track->GetDevice() : nullptr;
        const std::string name = device ? device->GetDeviceName() : "";
        if (device) device->Release();
        return name;
    }

    mstest::EngineScope engine;
    CallPair call;
};

TEST_F(LineEventsTest, EachEventReachesTheSinkWithTheLinesMid)
{
    zyn::CMediaConnectionInfo* video = call.Line(0, kVideo);
    zyn::CMediaConnectionInfo* audio = call.Line(0, kAudio);
    const uint32_t label = video->GetLocalTrack()->GetTrackLabel();
    const struct {
        const char* name;
        std::function<void()> event;
        std::vector<std::string> now;    // right after the event
        std::vector<std::string> later;  // within the next 200 ms
    } rows[] = {
        {"key frame lost", [&] { video->OnKeyFrameLost(0, 3, 4, false, nullptr); }, {"key frame lost 1 0 3 4"}, {}},
        {"render blocked", [&] { video->OnRenderBlocked(0, true, 9); }, {"blocked 1 0 1 9"}, {}},
        {"unblocked: reported 50 ms later", [&] { video->OnRenderBlocked(0, false, 9); }, {}, {"blocked 1 0 0 0"}},
        {"render indication: an unblock too", [&] { video->OnRenderIndication(0); }, {}, {"blocked 1 0 0 0"}},
        {"unblock of a vid without a track: at once", [&] { video->OnRenderBlocked(5, false, 2); }, {"blocked 1 5 0 2"}, {}},
        {"remote video error", [&] { video->OnRemoteVideoTrackError(0, 77); }, {"media error 1 0 0x0000004d"}, {}},
        {"encoded resolution", [&] { video->OnEncodedResolutionUpdate(640, 360); }, {"encode size 1 640x360"}, {}},
        {"local video error: twice",
         [&] { video->OnLocalVideoTrackError(0x46024101); },
         {"error 0x46024101", "media error 1 " + std::to_string(label) + " 0x46024106"},
         {}},
        {"gesture", [&] { video->OnGestureDetectionResult(0); }, {"gesture 1 0"}, {}},
        {"audio engine error", [&] { audio->OnAudioEngineError(0x46014107, nullptr); }, {"error 0x46014107"}, {}},
        {"GL render error", [&] { video->OnNotifyGLRenderError(nullptr); }, {"error 0x46024108"}, {}},
        {"receiver bandwidth", [&] { audio->OnReceiverBandwidthUpdate(64000); }, {"bandwidth 0 64000"}, {}},
        {"indication result", [&] { audio->OnIndicationResult(nullptr); }, {"indication 0"}, {}},
        {"frame rates: nothing", [&] { video->OnRequiredFrameRateUpdate(15); video->OnEncodedFrameRateUpdate(15); }, {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FromEngine(row.event);
        EXPECT_EQ(row.now, call.sink[0].TakeEvents());
        EXPECT_EQ(row.later, EventsAfter(200ms));
    }
    video->OnDecodeSizeChanged(0, 1280, 720);
    uint32_t w = 0, h = 0;
    video->GetDecodeSize(0, w, h);
    EXPECT_EQ(1280u, w);
    EXPECT_EQ(720u, h);

    // Without a sink nothing is told.
    OnMain([&] { call.Conn(0)->SetSink(nullptr); });
    for (const auto& row : rows) FromEngine(row.event);
    EXPECT_TRUE(EventsAfter(200ms).empty());
    OnMain([&] { call.Conn(0)->SetSink(&call.sink[0]); });
}

TEST_F(LineEventsTest, APluggedMicrophoneIsTakenOnlyWithTheDefaultDeviceSwitch)
{
    zyn::CMediaConnectionInfo* audio = call.Line(0, kAudio);
    IZynMediaEngineInternal* engine = call.Impl(0)->GetEngine();
    EXPECT_EQ("", MicInUse());
    struct Step {
        const char* name;
        bool defaultSwitch, micSwitch;
        const char* plugged;
        std::string inUse;
    };
    const Step steps[] = {
        {"switches off", false, false, "zyn-mic-usb1", ""},
        {"default switch", true, false, "zyn-mic-usb2", "zyn-mic-usb2"},
        {"microphone switch", false, true, "zyn-mic-usb3", "zyn-mic-usb3"},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        audio->SetAudioDefaultDeviceSwitchState(step.defaultSwitch);
        audio->SetAudioDefaultMicrophoneDeviceSwitchState(step.micSwitch);
        FromEngine([&] { ASSERT_EQ(ZYN_S_OK, engine->SimulateDeviceChange(ZynDevice_Microphone, step.plugged, true)); });
        OnMain();
        EXPECT_EQ(step.inUse, MicInUse());
    }
    // Another kind of event, or a camera, moves nothing.
    IZynMediaDevice* builtin = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->FindDevice(ZynDevice_Microphone, "zyn-mic-builtin", &builtin));
    FromEngine([&] { audio->OnDeviceChanged(builtin, 1); });
    FromEngine([&] { ASSERT_EQ(ZYN_S_OK, engine->SimulateDeviceChange(ZynDevice_Camera, "zyn-cam-usb9", true)); });
    OnMain();
    EXPECT_EQ("zyn-mic-usb3", MicInUse());
    builtin->Release();
}

}  // namespace
