// Tracks through the public interface in a whole loopback call: the application's handle arrives
// with OnMediaReady, and what it does with it is read at the far end's counters (B's line, which
// counts every RTP packet and RTCP report it takes) or in the file B's renderer wrote.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <thread>

#include "../common/file_bytes.h"
#include "call_harness.h"
#include "track/MediaTrack.h"
#include "track/TrackDelete.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;
using namespace std::chrono_literals;

constexpr unsigned long kAudio = 0, kVideo = 1;

std::string TempPath(const std::string& name)
{
    return testing::TempDir() + "track_call_" + std::to_string(::getpid()) + "_" + name;
}

std::vector<uint8_t> Pattern(size_t n, uint8_t seed)
{
    std::vector<uint8_t> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(seed + i * 13 + i / 253);
    return out;
}

void Write(const std::string& path, const std::vector<uint8_t>& bytes) { mstest::WriteFileBytes(path, bytes); }
std::vector<uint8_t> Read(const std::string& path) { return mstest::ReadFileBytes(path); }

// A 44-byte header of 8 kHz mono 16-bit PCM and `bytes` of samples.
std::vector<uint8_t> Wav(size_t bytes)
{
    std::vector<uint8_t> out = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',
                                16,  0,   0,   0,   1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0,
                                2,   0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0};
    const auto data = Pattern(bytes, 5);
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

// Until pred holds or the bound passes, looking again every 20 ms (the sink's own wake-ups too).
bool Eventually(mstest::CallSink& sink, const std::function<bool()>& pred, std::chrono::milliseconds bound = 15s)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end) return false;
        sink.Wait([] { return false; }, 20ms);
    }
    return true;
}

class TrackCallTest : public ::testing::Test {
protected:
    explicit TrackCallTest(std::vector<mstest::CallLine> lines = {{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}})
    {
        call.emplace(std::move(lines), [](zyn::CMediaConnection&) {}, false);
    }
    // The tracks the sinks released wait out their second; the next test starts clean.
    ~TrackCallTest() override
    {
        call.reset();
        OnMain();
        zyn::CTimerDeleteRegistry::Instance().Flush();
    }
    void Connect()
    {
        ASSERT_TRUE(call->Exchange());
        ASSERT_TRUE(call->WaitAll(2)) << "a line never connected";
    }
    uint64_t FarRtp(unsigned long mid) { return call->Line(1, mid)->GetReceivedPackets(); }
    // What B receives on the line over the next 1.5 s: 75 audio frames, 45 video frames of three
    // packets each, while A sends.
    uint64_t FarRtpOverAWhile(unsigned long mid)
    {
        const uint64_t before = FarRtp(mid);
        const auto end = std::chrono::steady_clock::now() + 1500ms;
        Eventually(call->sink[1], [&] { return std::chrono::steady_clock::now() >= end; });
        return FarRtp(mid) - before;
    }
    IZynMediaTrackBase* Local(unsigned long mid) { return call->sink[0].Track(mid, ZynDirection_Send); }
    ZynResult OnMainResult(const std::function<ZynResult()>& op)
    {
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = op(); });
        return r;
    }

    // The track whose destructor traces `destroyed` is gone one to three seconds after `released`,
    // on the main thread; after the next main-thread turn the trace holds no `notYet` yet.
    void ExpectDestroyedASecondLater(mstest::TraceCapture& trace, const std::string& destroyed,
                                     const std::string& notYet, int side,
                                     std::chrono::steady_clock::time_point released)
    {
        OnMain();
        EXPECT_FALSE(trace.Contains(notYet)) << "destroyed at once";
        ASSERT_TRUE(Eventually(call->sink[side], [&] { return trace.Contains(destroyed); }, 5s)) << destroyed;
        const auto waited = std::chrono::steady_clock::now() - released;
        EXPECT_GE(waited, 1000ms);
        EXPECT_LT(waited, 3000ms);
    }

    mstest::EngineScope engine;
    std::optional<CallPair> call;
};

TEST_F(TrackCallTest, EveryLineHandsTheApplicationARealTrackEachWay)
{
    Connect();
    for (int side = 0; side < 2; ++side) {
        mstest::CallSink& sink = call->sink[side];
        ASSERT_TRUE(Eventually(sink, [&] {
            std::lock_guard<std::mutex> lock(sink.mutex);
            return sink.ready.size() >= 4;
        }));
        for (unsigned long mid : {kAudio, kVideo}) {
            for (ZynDirection direction : {ZynDirection_Send, ZynDirection_Recv}) {
                SCOPED_TRACE(testing::Message() << "side " << side << " mid " << mid << " direction " << direction);
                IZynMediaTrackBase* track = sink.Track(mid, direction);
                ASSERT_NE(nullptr, track);
                EXPECT_EQ(mid == kAudio ? ZynSessionType_Audio : ZynSessionType_Video, track->GetMediaType());
                void* same = nullptr;
                EXPECT_EQ(ZYN_S_OK, track->QueryInterface(ZYNIID_IZynMediaTrackBase, &same));
                EXPECT_EQ(static_cast<void*>(track), same);
                static_cast<IZynMediaTrackBase*>(same)->Release();
                void* other = &same;
                EXPECT_EQ(ZYN_E_NOINTERFACE, track->QueryInterface(ZYNIID_IZynMediaConnection, &other));
                EXPECT_EQ(nullptr, other);
                EXPECT_EQ(ZYN_E_POINTER, track->QueryInterface(ZYNIID_IZynMediaTrackBase, nullptr));
                ZynMediaStatus status;
                EXPECT_EQ(direction == ZynDirection_Send ? ZYN_E_FAIL : ZYN_S_OK, track->GetMediaStatus(status));
            }
        }
    }
}

TEST_F(TrackCallTest, StartStopMuteAndUnmuteAreSeenAtTheFarEnd)
{
    Connect();
    IZynMediaTrackBase* audio = Local(kAudio);
    IZynMediaTrackBase* video = Local(kVideo);
    ASSERT_TRUE(audio && video);
    // Connected but not started: reports cross, media does not.
    EXPECT_EQ(0u, FarRtpOverAWhile(kVideo));
    EXPECT_EQ(0u, FarRtp(kAudio));
    EXPECT_EQ(ZYN_S_FALSE, OnMainResult([&] { return video->Stop(); }));

    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return audio->Start(false); }));
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return video->Start(false); }));
    EXPECT_EQ(ZYN_S_OK, OnMainResult([&] { return video->Start(false); }));  // a second start does nothing
    EXPECT_GT(FarRtpOverAWhile(kVideo), 60u);
    EXPECT_GT(FarRtpOverAWhile(kAudio), 50u);

    struct Step {
        const char* name;
        unsigned long mid;
        std::function<ZynResult()> op;
        ZynResult result;
        uint64_t min, max;  // packets B receives over the next two reports
    };
    const Step steps[] = {
        {"video mute", kVideo, [&] { return video->Mute(); }, ZYN_S_OK, 0, 0},
        {"video mute again", kVideo, [&] { return video->Mute(); }, ZYN_E_FAIL, 0, 0},
        {"video unmute", kVideo, [&] { return video->Unmute(); }, ZYN_S_OK, 60, 1000},
        // One 3-byte silence frame every 400 ms.
        {"audio mute", kAudio, [&] { return audio->Mute(); }, ZYN_S_OK, 2, 6},
        {"audio unmute", kAudio, [&] { return audio->Unmute(); }, ZYN_S_OK, 50, 1000},
        {"video stop", kVideo, [&] { return video->Stop(); }, ZYN_S_OK, 0, 0},
        {"video start again", kVideo, [&] { return video->Start(false); }, ZYN_S_OK, 60, 1000},
        {"audio stop", kAudio, [&] { return audio->Stop(); }, ZYN_S_OK, 0, 0},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        EXPECT_EQ(step.result, OnMainResult(step.op));
        // Packets on their way when the change came still arrive.
        FarRtpOverAWhile(step.mid);
        const uint64_t n = FarRtpOverAWhile(step.mid);
        EXPECT_GE(n, step.min);
        EXPECT_LE(n, step.max);
    }
}

TEST_F(TrackCallTest, ATrackOutlivesItsCallAndDiesOnTheMainThreadASecondAfterItsLastRelease)
{
    Connect();
    IZynMediaTrackBase* remote = call->sink[1].Track(kVideo, ZynDirection_Recv);
    ASSERT_NE(nullptr, remote);
    remote->AddRef();
    OnMain([&] { call->Conn(1)->Stop(); });
    OnMain();
    // Detached from its line: answers with failures, never touching the engine.
    IZynMediaTrackBase* local = call->sink[1].Track(kAudio, ZynDirection_Send);
    ASSERT_NE(nullptr, local);
    unsigned int value = 0, csis[4] = {}, count = 4;
    int vid = 7;
    ZynMediaStatus status;
    const struct {
        const char* name;
        std::function<ZynResult()> op;
        ZynResult result;
    } after[] = {
        {"start", [&] { return remote->Start(false); }, ZYN_E_POINTER},
        {"stop", [&] { return remote->Stop(); }, ZYN_S_FALSE},
        {"mute", [&] { return local->Mute(); }, ZYN_E_POINTER},
        {"unmute", [&] { return local->Unmute(); }, ZYN_E_POINTER},
        {"volume", [&] { return local->SetVolume(10); }, ZYN_E_NOTIMPL},
        {"read volume", [&] { return local->GetVolume(value); }, ZYN_E_NOTIMPL},
        {"voice level", [&] { return local->GetVoiceLevel(value); }, ZYN_E_NOTIMPL},
        {"vid", [&] { return remote->GetVid(vid); }, ZYN_E_POINTER},
        {"csi", [&] { return local->GetCSI(csis, count); }, ZYN_E_POINTER},
        {"status", [&] { return remote->GetMediaStatus(status); }, ZYN_S_OK},
        {"capture device", [&] { return local->SetCaptureDevice(nullptr); }, ZYN_E_POINTER},
    };
    for (const auto& row : after) EXPECT_EQ(row.result, OnMainResult(row.op)) << row.name;
    mstest::TraceCapture trace;
    std::ostringstream address;
    address << "thread=0[Video] cid__101 this=" << static_cast<const void*>(static_cast<zyn::CMediaTrack*>(remote));
    const std::string destroyed = "CMediaTrack::~CMediaTrack, " + address.str();
    const auto released = std::chrono::steady_clock::now();
    std::thread([remote] { remote->Release(); }).join();
    IZynMediaTrackBase* last = nullptr;
    {
        std::lock_guard<std::mutex> lock(call->sink[1].mutex);
        for (auto& r : call->sink[1].ready)
            if (r.track == remote) std::swap(last, r.track);
    }
    ASSERT_EQ(remote, last);
    std::thread([last] { last->Release(); }).join();
    // On the main thread (type 0), a second later.
    ExpectDestroyedASecondLater(trace, destroyed, "CMediaTrack::~CMediaTrack, ", 1, released);
}

TEST_F(TrackCallTest, ATrackReleasedInsideItsOwnCallbackDiesOnTheMainThreadASecondLater)
{
    Connect();
    // A camera track that only the application holds, on A's video line.
    zyn::CMediaConnectionInfo* line = call->Line(0, kVideo);
    auto* camera = new zyn::CMediaTrack(line, 4242);
    camera->AddRef();
    ASSERT_EQ(ZYN_S_OK, camera->Init(line->GetMediaConnection()->GetEngine(), ZynSessionType_Video, ZynDirection_Send,
                                     false, zyn::ZynSourceType_Device, 0));
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return camera->Start(false); }));
    // The camera opens on the engine's thread; the start ends on the main thread.
    ASSERT_TRUE(Eventually(call->sink[0], [&] { return camera->isStarted(); }, 5s));
    mstest::TraceCapture trace;
    const std::string destroyed = "CMediaTrack::~CMediaTrack, thread=0[Video] cid__4242 ";
    std::atomic<bool> aliveAfterRelease{false};
    std::atomic<unsigned int> photoBytes{0};
    std::chrono::steady_clock::time_point released;
    call->sink[0].onPhoto = [&](IZynMediaPackage* photo) {
        photoBytes = photo ? photo->GetLength() : 0;
        released = std::chrono::steady_clock::now();
        camera->Release();
        aliveAfterRelease = !trace.Contains(destroyed);
    };
    // The photo comes back through the sink from inside the track's own call.
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return camera->TakePhoto(); }));
    call->sink[0].onPhoto = nullptr;
    EXPECT_EQ(160u * 90 * 3 / 2, photoBytes.load()) << "the engine's picture reached the sink";
    EXPECT_TRUE(aliveAfterRelease.load());
    ExpectDestroyedASecondLater(trace, destroyed, destroyed, 0, released);
}

TEST_F(TrackCallTest, TheCamerasStartAndFailuresReachTheApplication)
{
    Connect();
    zyn::CMediaConnectionInfo* line = call->Line(0, kVideo);
    auto Has = [&](auto&& pred) {
        return Eventually(call->sink[0], [&] {
            std::lock_guard<std::mutex> lock(call->sink[0].mutex);
            return pred();
        }, 5s);
    };
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return Local(kVideo)->Start(false); }));
    // The camera starts late, on its own thread: the application hears it as status 9.
    EXPECT_TRUE(Has([&] {
        const auto& s = call->sink[0].statuses[kVideo];
        return std::find(s.begin(), s.end(), 9) != s.end();
    }));
    const struct {
        int event;  // as the engine's camera reports it
        int error;  // what the application hears
    } rows[] = {{1, 0x46024105}, {2, 0x46024104}, {3, 0x46024102}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.event);
        std::thread([&] { EXPECT_EQ(ZYN_S_OK, line->GetLocalTrack()->GetTrack()->SimulateCameraEvent(row.event)); }).join();
        EXPECT_TRUE(Has([&] {
            const auto& e = call->sink[0].errors;
            return std::find(e.begin(), e.end(), row.error) != e.end();
        }));
    }
}

TEST_F(TrackCallTest, ADeviceSwitchMidCallKeepsMediaFlowingAndTheOldTrackLivesASecond)
{
    Connect();
    IZynMediaTrackBase* audio = Local(kAudio);
    IZynMediaTrackBase* video = Local(kVideo);
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return audio->Start(false); }));
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return video->Start(false); }));
    // A device change while the camera still opens only waits for that start: let it end first.
    ASSERT_TRUE(Eventually(call->sink[0], [&] { return static_cast<zyn::CMediaTrack*>(video)->isStarted(); }, 5s));
    char names[256];
    ASSERT_EQ(ZYN_S_OK, GetMediaDeviceNames(call->Conn(0), ZynDevice_Camera, names, sizeof names));
    EXPECT_STREQ("zyn-cam-front\nzyn-cam-usb\n", names);
    EXPECT_EQ(ZYN_E_INVALIDARG, GetMediaDeviceNames(call->Conn(0), ZynDevice_Camera, names, 8));
    IZynMediaDevice *front = nullptr, *usb = nullptr, *headset = nullptr, *none = nullptr;
    ASSERT_EQ(ZYN_S_OK, GetMediaDevice(call->Conn(0), ZynDevice_Camera, "zyn-cam-front", &front));
    ASSERT_EQ(ZYN_S_OK, GetMediaDevice(call->Conn(0), ZynDevice_Camera, "zyn-cam-usb", &usb));
    ASSERT_EQ(ZYN_S_OK, GetMediaDevice(call->Conn(0), ZynDevice_Microphone, "zyn-mic-headset", &headset));
    const struct {
        const char* name;
        ZynResult result;
        IZynMediaDevice** out;
        IZynMediaConnection* connection;
        const char* device;
    } lookups[] = {
        {"unknown name", ZYN_E_NOTFOUND, &none, call->Conn(0), "zyn-cam-nowhere"},
        {"null name", ZYN_E_INVALIDARG, &none, call->Conn(0), nullptr},
        {"null out", ZYN_E_POINTER, nullptr, call->Conn(0), "zyn-cam-usb"},
        {"null connection", ZYN_E_POINTER, &none, nullptr, "zyn-cam-usb"},
    };
    for (const auto& row : lookups) {
        EXPECT_EQ(row.result, GetMediaDevice(row.connection, ZynDevice_Camera, row.device, row.out)) << row.name;
        EXPECT_EQ(nullptr, none) << row.name;
    }
    EXPECT_EQ(ZYN_E_POINTER, OnMainResult([&] { return video->SetCaptureDevice(nullptr); }));
    EXPECT_EQ(ZYN_E_INVALIDARG, OnMainResult([&] { return video->SetCaptureDevice(headset); }));
    EXPECT_EQ(ZYN_E_FAIL, OnMainResult([&] { return call->sink[0].Track(kVideo, ZynDirection_Recv)->SetCaptureDevice(usb); }));
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return video->SetCaptureDevice(front); }));
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return audio->SetCaptureDevice(headset); }));

    // Another camera: a new engine track takes over, the old one waits out its second.
    const int alive = ZynLiveObjectCount();
    const auto switched = std::chrono::steady_clock::now();
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return video->SetCaptureDevice(usb); }));
    EXPECT_EQ(alive + 1, ZynLiveObjectCount());
    ASSERT_TRUE(Eventually(call->sink[1], [&] { return ZynLiveObjectCount() == alive; }, 5s));
    const auto lived = std::chrono::steady_clock::now() - switched;
    EXPECT_GE(lived, 1000ms);
    EXPECT_LT(lived, 3000ms);
    EXPECT_GT(FarRtpOverAWhile(kVideo), 60u);
    EXPECT_GT(FarRtpOverAWhile(kAudio), 50u);
    // The same camera again changes nothing.
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return video->SetCaptureDevice(usb); }));
    EXPECT_EQ(alive, ZynLiveObjectCount());
    for (IZynMediaDevice* d : {front, usb, headset}) d->Release();
}

class FileCallTest : public TrackCallTest {
protected:
    FileCallTest()
    {
        call.reset();
        call.emplace(std::vector<mstest::CallLine>{{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}},
                     [](zyn::CMediaConnection&) {}, true);
    }
};

TEST_F(FileCallTest, AFileSentOverDtlsSrtpArrivesByteForByte)
{
    struct Row {
        const char* name;
        unsigned long mid;
        std::string file;
        std::vector<uint8_t> bytes;
    };
    const Row rows[] = {
        {"wav", kAudio, "sent.wav", Wav(4000)},
        // Two 64x48 pictures.
        {"i420", kVideo, "sent.i420", Pattern(2 * 64 * 48 * 3 / 2, 11)},
    };
    for (const Row& row : rows) {
        Write(TempPath(row.file), row.bytes);
        const std::string out = TempPath(std::string("received.") + row.name);
        OnMain([&] {
            IBaseConfig* a = row.mid == kAudio ? static_cast<IBaseConfig*>(call->Conn(0)->GetAudioConfig(row.mid))
                                               : static_cast<IBaseConfig*>(call->Conn(0)->GetVideoConfig(row.mid));
            IBaseConfig* b = row.mid == kAudio ? static_cast<IBaseConfig*>(call->Conn(1)->GetAudioConfig(row.mid))
                                               : static_cast<IBaseConfig*>(call->Conn(1)->GetVideoConfig(row.mid));
            EXPECT_EQ(ZYN_S_OK, a->EnableFileCapture(TempPath(row.file).c_str(), false, true));
            EXPECT_EQ(ZYN_S_OK, b->EnableFileRender(out.c_str(), true));
        });
    }
    Connect();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string out = TempPath(std::string("received.") + row.name);
        EXPECT_TRUE(Eventually(call->sink[1], [&] { return Read(out).size() >= row.bytes.size(); }));
        // Nothing more comes once the file ended: it is sent once.
        FarRtpOverAWhile(row.mid);
        EXPECT_EQ(0u, FarRtpOverAWhile(row.mid));
        EXPECT_EQ(row.bytes, Read(out));
        std::remove(out.c_str());
        std::remove(TempPath(row.file).c_str());
    }
    // The end of each file reached A's application as session status 7.
    EXPECT_TRUE(call->sink[0].Wait([&] { return call->sink[0].Saw(kAudio, 7) && call->sink[0].Saw(kVideo, 7); }));
}

TEST_F(TrackCallTest, BadFilesAreRefusedAndLeaveTheLineAsItWas)
{
    const std::string text = TempPath("text.wav");
    Write(text, {'n', 'o', 't', ' ', 'a', ' ', 'w', 'a', 'v', 'e', ' ', 'f', 'i', 'l', 'e'});
    const std::string picture = TempPath("picture.i420");
    Write(picture, Pattern(100, 1));
    const struct {
        const char* name;
        unsigned long mid;
        std::string path;
        ZynResult result;
    } rows[] = {
        {"missing", kAudio, TempPath("missing.wav"), ZYN_E_NOTFOUND},
        {"unknown extension", kAudio, TempPath("sound.mp3"), ZYN_E_INVALIDARG},
        {"no extension", kVideo, TempPath("picture"), ZYN_E_INVALIDARG},
        {"not a wav file", kAudio, text, ZYN_E_INVALIDARG},
        {"a picture for audio", kAudio, picture, ZYN_E_INVALIDARG},
        {"a sound for video", kVideo, text, ZYN_E_INVALIDARG},
        {"null path", kAudio, "", ZYN_E_INVALIDARG},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OnMain([&] {
            IBaseConfig* config = row.mid == kAudio ? static_cast<IBaseConfig*>(call->Conn(0)->GetAudioConfig(row.mid))
                                                    : static_cast<IBaseConfig*>(call->Conn(0)->GetVideoConfig(row.mid));
            EXPECT_EQ(row.result, config->EnableFileCapture(row.path.empty() ? nullptr : row.path.c_str(), false, true));
        });
    }
    // The line still sends its own capture once started.
    Connect();
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return Local(kAudio)->Start(false); }));
    EXPECT_GT(FarRtpOverAWhile(kAudio), 50u);
    std::remove(text.c_str());
    std::remove(picture.c_str());
}

TEST_F(TrackCallTest, ScreenShareOperationsBelongToTheLocalShareTrackOnly)
{
    Connect();
    for (unsigned long mid : {kAudio, kVideo}) {
        for (ZynDirection direction : {ZynDirection_Send, ZynDirection_Recv}) {
            IZynMediaTrackBase* t = (direction == ZynDirection_Send ? call->sink[0] : call->sink[1]).Track(mid, direction);
            ASSERT_NE(nullptr, t);
            const char* names[] = {"Progman"};
            const ZynResult results[] = {
                t->AddSharedWindow(reinterpret_cast<void*>(0x10)), t->RemoveSharedWindow(nullptr),
                t->AddUnSharedWindow(nullptr), t->RemoveUnSharedWindow(nullptr), t->AddNimboAnnotationWindow(nullptr),
                t->RemoveNimboAnnotationWindow(nullptr), t->AddNimboAnnotationWindowByClassName("x"),
                t->RemoveNimboAnnotationWindowByClassName("x"), t->AddTransparentWindow(nullptr),
                t->RemoveTransparentWindow(nullptr), t->AddTransparentWindowByClassNameList(names, 1),
                t->RemoveTransparentWindowByClassNameList(names, 1), t->AddSharedProcess(1), t->RemoveSharedProcess(1),
                t->AddUnSharedProcess(1), t->RemoveUnSharedProcess(1), t->SelectSharedDisplay(uint64_t{1}),
                t->SelectSharedDisplay("display"), t->AddNimboAnnotationProcess(1), t->RemoveNimboAnnotationProcess(1),
                t->PauseSharingCapturer(true)};
            for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(ZYN_E_FAIL, results[i]) << "operation " << i;
            EXPECT_FALSE(t->WindowIsShared(reinterpret_cast<void*>(0x10)));
            EXPECT_EQ(0, t->GetSharedAppCount());
        }
    }
}

class ShareCallTest : public TrackCallTest {
protected:
    ShareCallTest() : TrackCallTest({{ZynSessionType_ScreenShare, 2}}) {}
};

TEST_F(ShareCallTest, TheShareTrackReportsBackWhatItShares)
{
    IZynMediaTrackBase* share = nullptr;
    ASSERT_TRUE(Eventually(call->sink[0], [&] { return (share = Local(2)) != nullptr; }));
    void* window = reinterpret_cast<void*>(0x1234);
    EXPECT_EQ(ZYN_S_OK, share->AddSharedWindow(window));
    EXPECT_EQ(ZYN_S_OK, share->AddSharedProcess(4242));
    EXPECT_EQ(ZYN_S_OK, share->AddSharedProcess(4243));
    EXPECT_EQ(ZYN_S_OK, share->SelectSharedDisplay(uint64_t{2}));
    EXPECT_TRUE(share->WindowIsShared(window));
    EXPECT_TRUE(share->ApplicationIsShared(4242));
    EXPECT_TRUE(share->DisplayIsShared(2));
    EXPECT_FALSE(share->DisplayIsShared(1));
    EXPECT_EQ(2, share->GetSharedAppCount());
    EXPECT_EQ(ZYN_S_OK, share->RemoveSharedWindow(window));
    EXPECT_EQ(ZYN_S_OK, share->RemoveSharedProcess(4242));
    EXPECT_FALSE(share->WindowIsShared(window));
    EXPECT_FALSE(share->ApplicationIsShared(4242));
    EXPECT_EQ(1, share->GetSharedAppCount());
    // Class names of 1 to 1024 characters.
    const std::string longest(1024, 'c'), tooLong(1025, 'c');
    const struct {
        const char* name;
        const char* className;
        ZynResult result;
    } names[] = {{"empty", "", ZYN_E_FAIL}, {"null", nullptr, ZYN_E_FAIL}, {"one", "c", ZYN_S_OK},
                 {"1024", longest.c_str(), ZYN_S_OK}, {"1025", tooLong.c_str(), ZYN_E_FAIL}};
    for (const auto& row : names) {
        EXPECT_EQ(row.result, share->AddNimboAnnotationWindowByClassName(row.className)) << row.name;
        EXPECT_EQ(row.result, share->RemoveNimboAnnotationWindowByClassName(row.className)) << row.name;
    }
    const char* list[] = {"Shell_TrayWnd", ""};
    EXPECT_EQ(ZYN_E_FAIL, share->AddTransparentWindowByClassNameList(list, 2));
    EXPECT_EQ(ZYN_S_OK, share->AddTransparentWindowByClassNameList(list, 1));
    EXPECT_EQ(ZYN_E_INVALIDARG, share->AddTransparentWindowByClassNameList(nullptr, 1));
    EXPECT_EQ(ZYN_S_OK, share->SetScreenSharingID("share-1"));
    EXPECT_EQ(ZYN_S_OK, share->SetScreenSharingID("share-1"));
}

}  // namespace
