// The engine events that act on a line's tracks or its engine session, in a connected loopback
// call: what the engine shows afterwards (session options, a local track's key frames, the
// subscribe record of the encoder) and what the application hears, at once or at the next poll.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "call_harness.h"
#include "mediasession/ZynScreenShare.h"
#include "perf/DynPerformanceControl.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;
using namespace std::chrono_literals;

constexpr unsigned long kAudio = 0, kVideo = 1, kShare = 2;

class LineTrackEventsTest : public ::testing::Test {
protected:
    LineTrackEventsTest()
        : call({{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}, {ZynSessionType_ScreenShare, kShare}},
               [](zyn::CMediaConnection&) {})
    {
        EXPECT_TRUE(call.Exchange());
        EXPECT_TRUE(call.WaitAll(2));
        OnMain();
        call.sink[0].TakeEvents();
    }
    static void FromEngine(const std::function<void()>& event) { std::thread(event).join(); }
    // What the sink heard within `settle` (two polls of 300 ms fit in 700 ms).
    std::vector<std::string> EventsWithin(std::chrono::milliseconds settle)
    {
        call.sink[0].Wait([] { return false; }, settle);
        OnMain();
        return call.sink[0].TakeEvents();
    }
    zyn::CMediaConnectionInfo* Line(unsigned long mid) { return call.Line(0, mid); }
    uint32_t KeyFrames(unsigned long mid)
    {
        IZynMediaTrack* t = Line(mid)->GetLocalEngineTrack();
        return t ? t->GetKeyFrameCount() : 0;
    }
    bool StreamBandwidth(ZynStreamBandwidth& out)
    {
        uint32_t size = sizeof out;
        return ZYN_SUCCEEDED(Line(kVideo)->GetZynSession()->GetOption(ZynSessionOption_StreamBandwidth, &out, size)) &&
               size == sizeof out;
    }
    // Option 19 of a line's local engine track, as the encoder got it.
    bool Subscribed(unsigned long mid, _tagVideoSubscribeMultiStream& out)
    {
        uint32_t size = sizeof out;
        IZynMediaTrack* t = Line(mid)->GetLocalEngineTrack();
        return t && ZYN_SUCCEEDED(t->GetOption(ZynTrackOption_SubscribeMultiStream, &out, size)) && size == sizeof out;
    }

    mstest::EngineScope engine;
    CallPair call;
};

TEST_F(LineTrackEventsTest, EventsActOnTheEngineAndReachTheSink)
{
    zyn::CMediaConnectionInfo* video = Line(kVideo);
    const uint32_t label = video->GetLocalTrack()->GetTrackLabel();
    ZynStreamBandwidth bandwidth{};
    bandwidth.uMaxMBPS = 108000;
    bandwidth.uMaxBandwidth = 2500000;
    bandwidth.streams[127] = 0x5a;
    const ZynKeyFrameRequest keyFrame{0x1234, 1, 0};
    ZynSimulcastAnnounce announce{};
    announce.uLiveSourceCount = 3;
    // An engine record that claims more entries than it has room for is read up to its room.
    ZynSimulcastAnnounce overfull{};
    overfull.uLiveSourceCount = 3;
    overfull.uEntryCount = 0xFFFFFFFF;
    for (uint32_t i = 0; i < kZynMaxAnnounceEntries; ++i)  // vids without a track
        overfull.entries[i] = {static_cast<uint8_t>(100 + i), 0, {}, 1, 0};
    const uint32_t keyFramesBefore = KeyFrames(kVideo);

    const struct {
        const char* name;
        std::function<void()> event;
        std::vector<std::string> heard;
        uint32_t keyFrames;  // made by the local video track since the start
    } rows[] = {
        {"stream bandwidth: to the engine only", [&] { video->OnStreamBandwidthUpdate(&bandwidth); }, {}, 0},
        {"bandwidth without a record", [&] { video->OnStreamBandwidthUpdate(nullptr); }, {}, 0},
        {"picture loss: a key frame", [&] { video->OnPictureLossIndication(nullptr, 0, 0, &keyFrame, nullptr); },
         {"picture loss"}, 1},
        {"picture loss without a request: told, no key frame",
         [&] { video->OnPictureLossIndication(nullptr, 0, 0, nullptr, nullptr); }, {"picture loss"}, 1},
        {"self view size", [&] { video->OnSelfviewSizeUpdate(nullptr); },
         {"render size 1 " + std::to_string(label) + " 1"}, 1},
        {"announce: the live sources", [&] { video->OnAnnounce(&announce); }, {"live sources 1 3"}, 1},
        {"announce without a record", [&] { video->OnAnnounce(nullptr); }, {}, 1},
        {"announce claiming too many entries", [&] { video->OnAnnounce(&overfull); }, {"live sources 1 3"}, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FromEngine(row.event);
        EXPECT_EQ(row.heard, call.sink[0].TakeEvents());
        EXPECT_EQ(keyFramesBefore + row.keyFrames, KeyFrames(kVideo));
    }
    ZynStreamBandwidth stored{};
    ASSERT_TRUE(StreamBandwidth(stored));
    EXPECT_EQ(0, std::memcmp(&bandwidth, &stored, sizeof stored));
    EXPECT_EQ(108000u, zyn::CDynPerformanceControl::Instance().GetCurrentEncodeMaxMBPS());
    EXPECT_EQ(3u, video->GetLiveSourceCount());

    // A stopped local track makes no key frame, the application still hears of the loss.
    OnMain([&] { video->GetLocalTrack()->Stop(); });
    FromEngine([&] { video->OnPictureLossIndication(nullptr, 0, 0, &keyFrame, nullptr); });
    EXPECT_EQ(keyFramesBefore + 1, KeyFrames(kVideo));
    EXPECT_EQ(std::vector<std::string>{"picture loss"}, call.sink[0].TakeEvents());

    // Without a sink nothing is told and nothing changes.
    OnMain([&] {
        video->GetLocalTrack()->Start(false);
        call.Conn(0)->SetSink(nullptr);
    });
    ZynStreamBandwidth other = bandwidth;
    other.uMaxMBPS = 7200;
    announce.uLiveSourceCount = 9;
    FromEngine([&] {
        video->OnStreamBandwidthUpdate(&other);
        video->OnPictureLossIndication(nullptr, 0, 0, &keyFrame, nullptr);
        video->OnAnnounce(&announce);
        video->OnSelfviewSizeUpdate(nullptr);
    });
    ASSERT_TRUE(StreamBandwidth(stored));
    EXPECT_EQ(108000u, stored.uMaxMBPS);
    EXPECT_EQ(keyFramesBefore + 1, KeyFrames(kVideo));
    EXPECT_EQ(3u, video->GetLiveSourceCount());
    EXPECT_TRUE(EventsWithin(100ms).empty());
    OnMain([&] { call.Conn(0)->SetSink(&call.sink[0]); });
}

TEST_F(LineTrackEventsTest, SourcesAreToldAtThePollAndOnlyWhenTheyChange)
{
    zyn::CMediaConnectionInfo* audio = Line(kAudio);
    zyn::CMediaConnectionInfo* video = Line(kVideo);
    zyn::CMediaTrack* remoteVideo = video->GetVideoRemoteTrack(0).get();
    ASSERT_NE(nullptr, remoteVideo);
    const uint32_t speakers[] = {256, 512};
    const uint32_t first = 769, second = 1025;
    auto status = [&](int value, uint32_t csi) {
        ZynSimulcastAnnounce a{};
        a.uLiveSourceCount = 1;
        a.uEntryCount = 1;
        a.entries[0] = {0, 1, {}, value, csi};
        return [video, a] { video->OnAnnounce(&a); };
    };
    const struct {
        const char* name;
        std::function<void()> event;
        std::vector<std::string> heard;
        int syncedVid;  // of `first`
    } rows[] = {
        {"active speakers", [&] { audio->OnActiveSpeakerIndication(speakers, 2); }, {"csis 0 0 -> 256 512 "}, -1},
        {"the same speakers again: nothing", [&] { audio->OnActiveSpeakerIndication(speakers, 2); }, {}, -1},
        {"a null list with a count: refused", [&] { audio->OnActiveSpeakerIndication(nullptr, 2); }, {}, -1},
        {"no speaker left", [&] { audio->OnActiveSpeakerIndication(nullptr, 0); }, {"csis 0 0 256 512 -> "}, -1},
        {"a video source: told, and synced", [&] { remoteVideo->getMediaCSI().SetCSI(&first, 1); },
         {"csis 1 0 -> 769 "}, 0},
        {"the stream goes away", status(1, first), {"live sources 1 1", "media status 1 0 1 0 769"}, 0},
        {"it comes back with the same source: told again",
         status(0, first), {"live sources 1 1", "media status 1 0 0 0 769", "csis 1 0 769 -> 769 "}, 0},
        {"another source takes the stream", [&] { remoteVideo->getMediaCSI().SetCSI(&second, 1); },
         {"csis 1 0 769 -> 1025 "}, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FromEngine(row.event);
        EXPECT_EQ(row.heard, EventsWithin(700ms));
        EXPECT_EQ(row.syncedVid, video->GetSyncVid(first));
    }
    EXPECT_EQ(0, video->GetSyncVid(second));
}

TEST_F(LineTrackEventsTest, TheEncoderGetsTheFarEndsLayersWithinTheLinesBounds)
{
    _tagVideoSubscribeMultiStream asked{};
    asked.uNumStreams = 2;
    asked.stStreams[0] = {0x42001f, 108000, 3600, 30, 11520, 2500000, 0, {1}, 1, 0, 1920, 1080, {}};
    asked.stStreams[1] = {0x42000d, 27600, 920, 0, 2760, 768000, 0, {2}, 1, 0, 640, 360, {}};
    const struct {
        const char* name;
        unsigned long mid;
        int32_t limitMode;
        uint32_t bound;
        bool overVideoPipeline;
        uint32_t fps[2];
        uint32_t width, height;  // of the first layer
    } rows[] = {
        {"video, no bound", kVideo, 0, 15, false, {30, 0}, 1920, 1080},
        {"video, bound: the smaller rate, and 0 takes the bound", kVideo, 1, 15, false, {15, 15}, 1920, 1080},
        {"video, bound above the rate", kVideo, 1, 60, false, {30, 60}, 1920, 1080},
        {"video, mode 1 without a rate", kVideo, 1, 0, false, {30, 0}, 1920, 1080},
        {"share to an older receiver: the size of the frame size", kShare, 0, 0, false, {30, 0}, 1280, 720},
        {"share over the video pipeline: as asked", kShare, 0, 0, true, {30, 0}, 1920, 1080},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        zyn::CMediaConnectionInfo* line = Line(row.mid);
        line->SetMaxFrameLimit(row.limitMode, row.bound);
        line->SetSharingOverVideoPipeline(row.overVideoPipeline);
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = line->GetLocalTrack()->SubscribeMutlistream(asked); });
        ASSERT_EQ(ZYN_S_OK, r);
        _tagVideoSubscribeMultiStream got{};
        ASSERT_TRUE(Subscribed(row.mid, got));
        EXPECT_EQ(2u, got.uNumStreams);
        EXPECT_EQ(row.fps[0], got.stStreams[0].uMaxFPS);
        EXPECT_EQ(row.fps[1], got.stStreams[1].uMaxFPS);
        EXPECT_EQ(row.width, got.stStreams[0].uWidth);
        EXPECT_EQ(row.height, got.stStreams[0].uHeight);
        EXPECT_EQ(640u, got.stStreams[1].uWidth) << "the other layers keep their size";
        EXPECT_EQ(3600u, got.stStreams[0].uMaxFS);
    }
    // A record claiming more layers than it holds reaches the encoder with the four it holds.
    asked.uNumStreams = 1000;
    OnMain([&] { Line(kVideo)->GetLocalTrack()->SubscribeMutlistream(asked); });
    _tagVideoSubscribeMultiStream got{};
    ASSERT_TRUE(Subscribed(kVideo, got));
    EXPECT_EQ(4u, got.uNumStreams);
    // Audio has no layers.
    ZynResult r = ZYN_S_OK;
    OnMain([&] { r = Line(kAudio)->GetLocalTrack()->SubscribeMutlistream(asked); });
    EXPECT_EQ(ZYN_E_FAIL, r);
}

TEST_F(LineTrackEventsTest, APluggedSpeakerPlaysTheFarEndOnlyWithASwitch)
{
    zyn::CMediaConnectionInfo* audio = Line(kAudio);
    IZynMediaEngineInternal* engine = call.Impl(0)->GetEngine();
    auto speakerInUse = [&] {
        IZynMediaTrack* t = audio->GetAudioRemoteTrack()->GetTrack();
        IZynMediaDevice* device = t ? t->GetDevice() : nullptr;
        const std::string name = device ? device->GetDeviceName() : "";
        if (device) device->Release();
        return name;
    };
    const struct {
        const char* name;
        bool defaultSwitch, speakerSwitch;
        ZynDeviceKind kind;
        const char* plugged;
        std::string inUse;
    } steps[] = {
        {"switches off", false, false, ZynDevice_Speaker, "zyn-spk-usb1", ""},
        {"speaker switch", false, true, ZynDevice_Speaker, "zyn-spk-usb2", "zyn-spk-usb2"},
        {"default switch", true, false, ZynDevice_Speaker, "zyn-spk-usb3", "zyn-spk-usb3"},
        {"a microphone moves no speaker", false, true, ZynDevice_Microphone, "zyn-mic-usb4", "zyn-spk-usb3"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        audio->SetAudioDefaultDeviceSwitchState(step.defaultSwitch);
        audio->SetAudioDefaultSpeakerDeviceSwitchState(step.speakerSwitch);
        FromEngine([&] { ASSERT_EQ(ZYN_S_OK, engine->SimulateDeviceChange(step.kind, step.plugged, true)); });
        OnMain();
        EXPECT_EQ(step.inUse, speakerInUse());
    }
}

struct ShareRecorder : IZynScreenShareObserver {
    void OnCaptureStatusChanged(unsigned long mid, ZynScreenCaptureStatus status) override
    {
        heard.push_back("status " + std::to_string(mid) + " " + std::to_string(status));
    }
    void OnCaptureEvent(unsigned long mid, int32_t event, int32_t value) override
    {
        heard.push_back("event " + std::to_string(mid) + " " + std::to_string(event) + " " + std::to_string(value));
    }
    void OnCapturePositionChanged(unsigned long mid, int32_t l, int32_t t, int32_t r, int32_t b) override
    {
        heard.push_back("position " + std::to_string(mid) + " " + std::to_string(l) + "," + std::to_string(t) + "," +
                        std::to_string(r) + "," + std::to_string(b));
    }
    std::vector<std::string> heard;
};

TEST_F(LineTrackEventsTest, CaptureEventsReachEveryRegisteredShareObserverOnce)
{
    zyn::CMediaConnectionInfo* share = Line(kShare);
    ShareRecorder a, b;
    EXPECT_EQ(ZYN_S_OK, share->AddScreenShareObserver(&a));
    EXPECT_EQ(ZYN_S_OK, share->AddScreenShareObserver(&b));
    EXPECT_EQ(ZYN_E_DUPLICATE, share->AddScreenShareObserver(&a));
    EXPECT_EQ(ZYN_E_POINTER, share->AddScreenShareObserver(nullptr));
    FromEngine([&] {
        share->OnCaptureStatusChanged(nullptr, ZynScreenCaptureStatus_Running);
        share->OnCaptureEvent(nullptr, 3, 9);
        share->OnCapturePositionChanged(nullptr, 0, 0, 1280, 720);
    });
    const std::vector<std::string> all = {"status 2 1", "event 2 3 9", "position 2 0,0,1280,720"};
    EXPECT_EQ(all, a.heard);
    EXPECT_EQ(all, b.heard);
    EXPECT_EQ(ZYN_S_OK, share->RemoveScreenShareObserver(&a));
    EXPECT_EQ(ZYN_E_NOTFOUND, share->RemoveScreenShareObserver(&a));
    FromEngine([&] { share->OnCaptureStatusChanged(nullptr, ZynScreenCaptureStatus_Stopped); });
    EXPECT_EQ(3u, a.heard.size());
    EXPECT_EQ("status 2 0", b.heard.back());
    // Without the application's sink the capturer's news go nowhere.
    OnMain([&] { call.Conn(0)->SetSink(nullptr); });
    FromEngine([&] { share->OnCaptureEvent(nullptr, 4, 0); });
    EXPECT_EQ(4u, b.heard.size());
    OnMain([&] { call.Conn(0)->SetSink(&call.sink[0]); });
    share->RemoveScreenShareObserver(&b);
}

}  // namespace
