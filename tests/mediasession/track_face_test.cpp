// The track's public face on an engine of its own, on a fake clock: a local track's session sends
// through a link to a remote track's session, so what the application attached to the remote
// track (windows, frame renderers, processing) is judged by what the engine really handed them;
// options are read back from the engine track; the end of a camera start comes from the engine.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "../platform/zyn_call.h"
#include "perf/StaticPerformance.h"
#include "test_support.h"
#include "track/AvatarInputter.h"
#include "track/MediaTrack.h"
#include "track/TrackDelete.h"
#include "zyn/ZynTrack.h"

namespace {

using zyn::CMediaTrack;
using zyntest::FakeClock;
using zyntest::Link;

constexpr size_t kRtpHeader = 12;

struct FrameLog : IZynExternalRenderer, IZynMediaExternalProcessing {
    void OnRenderFrame(const unsigned char* data, unsigned int length, int f) override
    {
        rendered.insert(rendered.end(), data, data + length);
        format = f;
        ++frames;
    }
    void OnProcessFrame(const unsigned char*, unsigned int) override { ++processed; }
    std::vector<uint8_t> rendered;
    int format = 0, frames = 0, processed = 0;
};

class TrackFaceTest : public ::testing::Test {
protected:
    TrackFaceTest()
    {
        ZynInit(0);
        EXPECT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&engine, 4, &clock));
        baseline = ZynLiveObjectCount();
    }
    ~TrackFaceTest() override
    {
        // Starts still to be told hold their engine track.
        EndStarts();
        for (size_t i = 0; i < sessions.size(); ++i) {
            sessions[i]->SetTransport(nullptr);
            sessions[i]->RemoveTrack(sessionTracks[i]);
            sessions[i]->Release();
        }
        links.clear();
        zyn::CTimerDeleteRegistry::Instance().Flush();
        // The engine keeps its sessions until it ends.
        EXPECT_EQ(baseline + static_cast<int>(sessions.size()), ZynLiveObjectCount()) << "an engine object outlived its track";
        engine->Stop();
        engine->Release();
        ZynUninit();
    }
    CMediaTrack* Make(ZynSessionType type, ZynDirection direction, bool external = false)
    {
        auto* t = new CMediaTrack(nullptr, 77);
        t->AddRef();
        EXPECT_EQ(ZYN_S_OK, t->Init(engine, type, direction, external, zyn::ZynSourceType_Device, 0));
        return t;
    }
    // A session of the kind holding the track's engine track.
    IZynMediaSession* SessionOf(CMediaTrack* t, ZynSessionType type)
    {
        IZynMediaSession* s = nullptr;
        EXPECT_EQ(ZYN_S_OK, engine->CreateMediaSession(type, &s));
        EXPECT_EQ(ZYN_S_OK, s->AddTrack(t->GetTrack()));
        sessions.push_back(s);
        sessionTracks.push_back(t->GetTrack());
        return s;
    }
    // from's packets go to `to`; the link keeps a copy of the wire.
    Link& Connect(IZynMediaSession* from, IZynMediaSession* to)
    {
        links.push_back(std::make_unique<Link>(clock, to));
        from->SetTransport(links.back().get());
        return *links.back();
    }
    void Run(uint64_t ms)
    {
        for (uint64_t t = 0; t < ms; t += 5) {
            clock.ms += 5;
            ZynRunEngineClock(engine);
            for (auto& l : links) l->Deliver();
        }
    }
    template <class T>
    T Option(CMediaTrack* t, int32_t id, T fallback = T{})
    {
        T value = fallback;
        uint32_t size = sizeof value;
        if (!ZYN_SUCCEEDED(t->GetTrack()->GetOption(id, &value, size)) || size != sizeof value) return fallback;
        return value;
    }
    std::string Named(CMediaTrack* t, const char* name)
    {
        char text[64] = {};
        uint32_t size = sizeof text;
        return ZYN_SUCCEEDED(t->GetTrack()->GetNamedOption(name, text, size)) ? std::string(text) : "";
    }
    // The end of a camera start: the engine tells it at its next run, the main thread ends it.
    void EndStarts()
    {
        ZynRunEngineClock(engine);
        mstest::OnMain();
    }

    FakeClock clock;
    IZynMediaEngineInternal* engine = nullptr;
    int baseline = 0;
    std::vector<IZynMediaSession*> sessions;
    std::vector<IZynMediaTrack*> sessionTracks;  // the one each session holds
    std::vector<std::unique_ptr<Link>> links;
};

TEST_F(TrackFaceTest, WhatArrivesReachesEveryAttachedRendererUntilItIsTakenAway)
{
    CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send, true);
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    Link& wire = Connect(SessionOf(camera, ZynSessionType_Video), SessionOf(remote, ZynSessionType_Video));
    ASSERT_EQ(ZYN_S_OK, camera->Start(false));
    ASSERT_EQ(ZYN_S_OK, remote->Start(false));
    int window = 0, other = 0;
    FrameLog log, second;
    ASSERT_EQ(ZYN_S_OK, remote->AddRenderWindow(&window));
    EXPECT_EQ(ZYN_E_DUPLICATE, remote->AddRenderWindow(&window));
    ASSERT_EQ(ZYN_S_OK, remote->AddExternalRender(&log));
    ASSERT_EQ(ZYN_S_OK, remote->AddExternalRender(&second, ZynRawFormat_NV12));
    ASSERT_EQ(ZYN_S_OK, remote->AddMediaExternalProcessing(&log));
    IZynExternalInputter* pin = nullptr;
    ASSERT_EQ(ZYN_S_OK, camera->GetExternalInputPin(&pin));
    const std::vector<uint8_t> picture = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ZYN_S_OK, pin->InputVideoData(picture.data(), 9, nullptr));
    Run(200);
    // Each pushed frame went once, as it was, and nothing else.
    ASSERT_EQ(3u, wire.rtp.size());
    for (const auto& p : wire.rtp) EXPECT_EQ(picture, std::vector<uint8_t>(p.begin() + kRtpHeader, p.end()));
    EXPECT_EQ(3u, remote->GetTrack()->GetRenderedFrames(&window));
    EXPECT_EQ(3, log.frames);
    EXPECT_EQ(3, log.processed);
    EXPECT_EQ(ZynRawFormat_I420, log.format);
    EXPECT_EQ(ZynRawFormat_NV12, second.format);
    EXPECT_EQ(picture, std::vector<uint8_t>(log.rendered.begin(), log.rendered.begin() + 9));
    _tagVideoStatistics stats{};
    ASSERT_EQ(ZYN_S_OK, remote->GetVideoStatistics(stats));
    EXPECT_EQ(3u, stats.frames);
    EXPECT_EQ(3u, stats.renderers) << "the window and the two renderers";
    unsigned int last = 0;
    ASSERT_EQ(ZYN_S_OK, remote->GetLastDecodedTimestamp(last));
    EXPECT_EQ(3u, last);

    ASSERT_EQ(ZYN_S_OK, remote->RemoveExternalRender(&log));
    EXPECT_EQ(ZYN_E_NOTFOUND, remote->RemoveExternalRender(&log));
    EXPECT_EQ(ZYN_E_NOTFOUND, remote->RemoveRenderWindow(&other));
    pin->InputVideoData(picture.data(), 9, nullptr);
    Run(100);
    EXPECT_EQ(3, log.frames) << "a removed renderer hears nothing more";
    EXPECT_EQ(4, second.frames);
    EXPECT_EQ(4u, remote->GetTrack()->GetRenderedFrames(&window));
    // Gone from the call: the engine forgets the application's objects at once.
    IZynMediaTrack* engineTrack = remote->GetTrack();
    engineTrack->AddRef();
    remote->UnInit();
    EXPECT_EQ(0u, engineTrack->GetRenderedFrames(&window));
    EXPECT_EQ(0u, engineTrack->GetRenderedFrames(&second));
    EXPECT_TRUE(remote->GetRenderers().empty());
    engineTrack->Release();
    pin->Release();
    camera->Release();
    remote->Release();
}

TEST_F(TrackFaceTest, RenderSettingsAndCommandsLandOnTheEngineTrack)
{
    CMediaTrack* remote = Make(ZynSessionType_ScreenShare, ZynDirection_Recv);
    CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send);
    int window = 0;
    ASSERT_EQ(ZYN_S_OK, remote->AddRenderWindow(&window));
    char prefix[48];
    std::snprintf(prefix, sizeof prefix, "render.%p.", static_cast<void*>(&window));
    const std::string p = prefix;
    ASSERT_EQ(ZYN_S_OK, remote->SetRenderMode(&window, ZynRenderMode_Stretch));
    ASSERT_EQ(ZYN_S_OK, remote->SetWindowRenderMinInterval(&window, 40));
    ASSERT_EQ(ZYN_S_OK, remote->SetRenderType(&window, 3));
    ASSERT_EQ(ZYN_S_OK, remote->SetRenderWindowInfo(&window, 640, 360));
    ASSERT_EQ(ZYN_S_OK, remote->UpdateRenderWindow(&window));
    ASSERT_EQ(ZYN_S_OK, remote->UpdateRenderWindow(&window));
    ASSERT_EQ(ZYN_S_OK, remote->SetMediaBlockCheckingTimerInterval(750));
    ASSERT_EQ(ZYN_S_OK, remote->RenderIndicationRequest(true));
    EXPECT_EQ("2", Named(remote, (p + "mode").c_str()));
    EXPECT_EQ("40", Named(remote, (p + "min_interval").c_str()));
    EXPECT_EQ("3", Named(remote, (p + "type").c_str()));
    EXPECT_EQ("640", Named(remote, (p + "width").c_str()));
    EXPECT_EQ("360", Named(remote, (p + "height").c_str()));
    EXPECT_EQ("2", Named(remote, ZynTrackCount_WindowUpdates));
    EXPECT_EQ("1", Named(remote, "render.indication"));
    EXPECT_EQ(750u, Option<uint32_t>(remote, 59));

    EXPECT_EQ(ZYN_E_WRONGSTATE, camera->ForceKeyframe()) << "a stopped encoder makes no key frame";
    ASSERT_EQ(ZYN_S_OK, camera->Start(false));
    ASSERT_EQ(ZYN_S_OK, camera->ForceKeyframe());
    ASSERT_EQ(ZYN_S_OK, camera->ForceLandscape(true));
    ASSERT_EQ(ZYN_S_OK, camera->SetupCVO(true));
    ASSERT_EQ(ZYN_S_OK, camera->ChangeOrientation(180));
    EXPECT_EQ(ZYN_S_FALSE, camera->ChangeOrientation(90)) << "a forced landscape holds";
    EXPECT_EQ(1u, camera->GetTrack()->GetKeyFrameCount());
    EXPECT_EQ(1, Option<uint8_t>(camera, 28));
    EXPECT_EQ(1, Option<uint8_t>(camera, 29));
    EXPECT_EQ(180, Option<int32_t>(camera, 36));
    remote->Release();
    camera->Release();
}

TEST_F(TrackFaceTest, EachOperationRefusesTheTracksItIsNotForAndSaysWhy)
{
    CMediaTrack* mic = Make(ZynSessionType_Audio, ZynDirection_Send);
    CMediaTrack* speaker = Make(ZynSessionType_Audio, ZynDirection_Recv);
    CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send);
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    CMediaTrack* gone = Make(ZynSessionType_Video, ZynDirection_Recv);
    gone->UnInit();
    FrameLog log;
    int window = 0;
    int a = 0, b = 0;
    unsigned int count = 0;
    const struct {
        const char* name;
        std::function<ZynResult()> op;
        ZynResult result;
        const char* tag;  // reported to the metrics, or null
    } rows[] = {
        {"window on a camera", [&] { return camera->AddRenderWindow(&window); }, ZYN_E_FAIL, "MedTrck_AddRenderWin"},
        {"null window", [&] { return remote->AddRenderWindow(nullptr); }, ZYN_E_INVALIDARG, "MedTrck_AddRenderWin"},
        {"window after UnInit", [&] { return gone->AddRenderWindow(&window); }, ZYN_E_NOTRACK, "MedTrck_AddRenderWin"},
        {"update of an unknown window", [&] { return remote->UpdateRenderWindow(&window); }, ZYN_E_NOTFOUND, "MedTrck_UpdRenderWin"},
        {"interval of an unknown window", [&] { return remote->SetWindowRenderMinInterval(&window, 1); }, ZYN_E_NOTFOUND, "MedTrck_SetRenderWinFps"},
        {"interval of an unknown renderer", [&] { return remote->SetExternalRenderMinInterval(&log, 1); }, ZYN_E_NOTFOUND, "MedTrck_SetExtRenderFps"},
        {"bad render mode", [&] { return remote->SetRenderMode(&window, ZynRenderMode(9)); }, ZYN_E_INVALIDARG, "MedTrck_SetRenderMode"},
        {"renderer on a local track", [&] { return camera->AddExternalRender(&log); }, ZYN_E_FAIL, "MedTrck_AddExtRender"},
        {"picture format for audio", [&] { return speaker->AddExternalRender(&log, ZynRawFormat_I420); }, ZYN_E_INVALIDARG, "MedTrck_AddExtRender"},
        {"removing what was never added", [&] { return remote->RemoveExternalRender(&log); }, ZYN_E_NOTFOUND, "MedTrck_RmvExtRender"},
        {"request of a local track", [&] { return camera->RequestVideo(ZynVideoQuality_720P); }, ZYN_E_FAIL, "MedTrck_ReqV"},
        {"quality out of range", [&] { return remote->RequestVideo(ZynVideoQualityType(5)); }, ZYN_E_INVALIDARG, "MedTrck_ReqV"},
        {"request of no size", [&] { return remote->RequestVideo(0, 0, 3000, 100000); }, ZYN_E_INVALIDARG, "MedTrck_ReqV"},
        {"request after UnInit", [&] { return gone->RequestVideo(ZynVideoQuality_180P); }, ZYN_E_NOTRACK, "MedTrck_ReqV"},
        {"key frame of a remote track", [&] { return remote->ForceKeyframe(); }, ZYN_E_FAIL, "MedTrck_ForceKeyFrm"},
        {"odd orientation", [&] { return camera->ChangeOrientation(45); }, ZYN_E_INVALIDARG, "MedTrck_ChgOri"},
        {"play buffer of a microphone", [&] { return mic->SetAudioPlayBufferTime(20, 200); }, ZYN_E_FAIL, "MedTrck_SetAPlyBufTs"},
        {"play buffer upside down", [&] { return speaker->SetAudioPlayBufferTime(200, 20); }, ZYN_E_INVALIDARG, "MedTrck_SetAPlyBufTs"},
        {"play buffer read on video", [&] { return remote->GetAudioPlayBufferTime(a, b); }, ZYN_E_FAIL, "MedTrck_GetAPlyBufTs"},
        {"block check of no length", [&] { return remote->SetMediaBlockCheckingTimerInterval(0); }, ZYN_E_INVALIDARG, "MedTrck_SetMediaBlkChckT"},
        {"cipher missing", [&] { return remote->SetMediaContentCipher(nullptr); }, ZYN_E_INVALIDARG, "MedTrck_SetMedConCipher"},
        {"device news without a device", [&] { return mic->AudioDeviceNotification(nullptr, true); }, ZYN_E_INVALIDARG, "MedTrck_AudDevNotfy"},
        {"device news on video", [&] { return camera->AudioDeviceNotification(nullptr, true); }, ZYN_E_FAIL, "MedTrck_AudDevNotfy"},
        {"preview of a remote track", [&] { return remote->StartPreview(); }, ZYN_E_FAIL, "MedTrck_StartPrev"},
        {"decoded timestamp of a camera", [&] { unsigned t; return camera->GetLastDecodedTimestamp(t); }, ZYN_E_FAIL, "MedTrck_StartPrev"},
        {"pin of a device camera", [&] { IZynExternalInputter* p; return camera->GetExternalInputPin(&p); }, ZYN_E_FAIL, nullptr},
        {"pin to nowhere", [&] { return camera->GetExternalInputPin(nullptr); }, ZYN_E_POINTER, nullptr},
        {"subscribed count of a camera", [&] { return camera->GetSuscribedCount(count); }, ZYN_E_FAIL, nullptr},
        {"audio source option", [&] { return speaker->DoAudioSIOption(1, 2, nullptr, 0); }, ZYN_E_NOTAVAILABLE, nullptr},
        {"vid of a remote track", [&] { return remote->SetVid(3); }, ZYN_E_FAIL, nullptr},
        {"avatar on audio", [&] { return mic->MuteWithAvatar(true, nullptr, nullptr, 0); }, ZYN_E_FAIL, nullptr},
        {"avatar with no picture", [&] { return camera->MuteWithAvatar(true, nullptr, nullptr, 0); }, ZYN_E_INVALIDARG, nullptr},
        {"photo of a remote track", [&] { return remote->TakePhoto(); }, ZYN_E_FAIL, nullptr},
        {"photo of a stopped camera", [&] { return camera->TakePhoto(); }, ZYN_E_WRONGSTATE, "MedTrck_TakePhoto"},
        {"hardware codec of audio", [&] { return mic->EnableHardwareCodec(1); }, ZYN_E_FAIL, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        mstest::TraceCapture trace;
        EXPECT_EQ(row.result, row.op());
        const bool reported = trace.Contains("CMediaTrack::WriteMetricsError");
        EXPECT_EQ(row.tag != nullptr, reported);
        if (row.tag) {
            EXPECT_TRUE(trace.Contains(std::string("tag=") + row.tag + ",")) << row.tag;
        }
    }
    for (CMediaTrack* t : {mic, speaker, camera, remote, gone}) t->Release();
}

TEST_F(TrackFaceTest, RequestsTurnQualityIntoLimits)
{
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    const struct {
        std::function<ZynResult()> op;
        uint16_t maxFs, maxFps;
        uint32_t maxMbps, bitrate;
        uint8_t priority;
    } rows[] = {
        {[&] { return remote->RequestVideo(ZynVideoQuality_90P); }, 60, 1500, 900, 150000, 255},
        {[&] { return remote->RequestVideo(ZynVideoQuality_720P, 7, 1, 0); }, 3600, 3000, 108000, 1500000, 7},
        {[&] { return remote->RequestVideo(ZynVideoQuality_1080P); }, 8160, 3000, 244800, 4000000, 255},
        {[&] { return remote->RequestVideo(0, 920, 1500, 500000); }, 920, 1500, 13800, 500000, 255},
        {[&] { return remote->RequestVideo(5000, 920, 1500, 500000); }, 920, 1500, 5000, 500000, 255},
    };
    unsigned int count = 9;
    ASSERT_EQ(ZYN_S_OK, remote->GetSuscribedCount(count));
    EXPECT_EQ(0u, count);
    for (const auto& row : rows) {
        ASSERT_EQ(ZYN_S_OK, row.op());
        // What the line would subscribe with; a stream not started asks for nothing yet.
        EXPECT_EQ(nullptr, remote->GetRequest(false));
        const ZynSimulcastRequest* r = remote->GetRequest(true);
        ASSERT_NE(nullptr, r);
        EXPECT_EQ(row.maxFs, r->uMaxFS);
        EXPECT_EQ(row.maxFps, r->uMaxFPS);
        EXPECT_EQ(row.maxMbps, r->uMaxMBPS);
        EXPECT_EQ(row.bitrate, r->uBitrate);
        EXPECT_EQ(1, r->one);
        if (r->eRequestPolicyType == ZynSCRRequestPolicyType_ActiveSpeaker) {
            EXPECT_EQ(row.priority, r->policyData[0]);
        }
    }
    ASSERT_EQ(ZYN_S_OK, remote->GetSuscribedCount(count));
    EXPECT_EQ(1u, count);
    remote->Release();
}

TEST_F(TrackFaceTest, ACameraStartEndsWhenTheEngineSaysSo)
{
    const struct {
        const char* name;
        bool fail;           // the camera fails to open
        bool stopFirst;      // the application stops before the camera reports
        bool startedAfter;   // the track after the report
        bool engineRunning;  // the engine track after the report
    } rows[] = {
        {"opens", false, false, true, true},
        {"fails to open", true, false, false, false},
        {"stopped while opening", false, true, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send);
        if (row.fail) camera->GetTrack()->SimulateCameraEvent(4);
        ASSERT_EQ(ZYN_S_OK, camera->Start(false));
        EXPECT_EQ(1, Option<uint8_t>(camera, ZynTrackOption_AsyncStart));
        EXPECT_FALSE(camera->isStarted());
        EXPECT_TRUE(camera->isStarting());
        EXPECT_EQ(ZYN_S_OK, camera->Start(false)) << "a second start while the first runs";
        if (row.stopFirst) {
            EXPECT_EQ(ZYN_S_OK, camera->Stop());
        }
        EndStarts();
        EXPECT_FALSE(camera->isStarting());
        EXPECT_EQ(row.startedAfter, camera->isStarted());
        EXPECT_EQ(row.engineRunning, camera->GetTrack()->IsStarted());
        camera->Release();
    }
    // Other kinds end their start at once.
    CMediaTrack* share = Make(ZynSessionType_ScreenShare, ZynDirection_Send);
    ASSERT_EQ(ZYN_S_OK, share->Start(false));
    EXPECT_TRUE(share->isStarted());
    EXPECT_EQ(0, Option<uint8_t>(share, ZynTrackOption_AsyncStart));
    share->Release();
}

// A file given to a camera track runs whenever the track runs, also when it came while the camera
// was still opening (the track's own start had passed the capturer's by then).
TEST_F(TrackFaceTest, AFileCaptureRunsWhenGivenBeforeDuringOrAfterTheCameraOpens)
{
    enum When { Before, WhileOpening, After, NeverStarted };
    const struct {
        const char* name;
        When when;
        bool running;
    } rows[] = {
        {"before the start", Before, true},
        {"while the camera opens", WhileOpening, true},
        {"after it opened", After, true},
        {"to a track never started", NeverStarted, false},
    };
    const std::string path = ::testing::TempDir() + "face_capture_" + std::to_string(::getpid()) + ".i420";
    {
        FILE* f = std::fopen(path.c_str(), "wb");
        ASSERT_NE(nullptr, f);
        const std::vector<uint8_t> picture(64 * 48 * 3 / 2, 0x42);
        std::fwrite(picture.data(), 1, picture.size(), f);
        std::fclose(f);
    }
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send);
        if (row.when == Before) {
            ASSERT_EQ(ZYN_S_OK, camera->createFileCapturer(path.c_str(), false));
        }
        if (row.when != NeverStarted) {
            ASSERT_EQ(ZYN_S_OK, camera->Start(false));
            ASSERT_TRUE(camera->isStarting());
        }
        if (row.when == WhileOpening || row.when == NeverStarted) {
            ASSERT_EQ(ZYN_S_OK, camera->createFileCapturer(path.c_str(), false));
        }
        EndStarts();
        if (row.when == After) {
            ASSERT_EQ(ZYN_S_OK, camera->createFileCapturer(path.c_str(), false));
        }
        // The engine track's capturer, as the engine reads it.
        IZynMediaFileCapturer* capturer = static_cast<zynsim::Track*>(camera->GetTrack())->TakeCapturer();
        ASSERT_NE(nullptr, capturer);
        EXPECT_EQ(row.running, capturer->IsStarted());
        capturer->Release();
        camera->Release();
    }
    std::remove(path.c_str());
}

TEST_F(TrackFaceTest, EachStartWritesTheConfigurationAgain)
{
    const struct {
        const char* name;
        ZynSessionType type;
        ZynDirection direction;
        std::vector<std::pair<int32_t, int32_t>> options;  // id, value (-1: absent)
    } rows[] = {
        {"camera", ZynSessionType_Video, ZynDirection_Send, {{33, 1}, {32, 1}, {34, 1}, {4, 0}, {151, 0}, {21, 1}, {67, 1}, {22, 0}, {20, -1}}},
        {"share", ZynSessionType_ScreenShare, ZynDirection_Send, {{33, 1}, {151, -1}, {21, 1}, {67, -1}, {20, 5}}},
        {"remote video", ZynSessionType_Video, ZynDirection_Recv, {{56, 0}, {60, -1}, {62, 0}, {64, 0}, {22, 0}, {21, -1}, {0, -1}}},
        {"microphone", ZynSessionType_Audio, ZynDirection_Send, {{21, -1}, {22, -1}, {67, -1}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaTrack* t = Make(row.type, row.direction);
        ASSERT_EQ(ZYN_S_OK, t->Start(false));
        for (const auto& [id, value] : row.options) {
            uint8_t bytes[4] = {};
            uint32_t size = sizeof bytes;
            const bool set = ZYN_SUCCEEDED(t->GetTrack()->GetOption(id, bytes, size));
            EXPECT_EQ(value != -1, set) << "option " << id;
            if (set && value != -1) {
                EXPECT_EQ(value, int32_t{bytes[0]}) << "option " << id;
            }
        }
        if (row.direction == ZynDirection_Send && row.type != ZynSessionType_Audio) {
            // The machine's own row of the static table, not a level the track made up.
            EXPECT_EQ(static_cast<int32_t>(zyn::CMediaPerformanceStaticControl::Instance().QuerySendPerformance(false, row.type)),
                      Option<int32_t>(t, 0, -1));
        }
        t->Release();
    }
}

TEST_F(TrackFaceTest, HardwareCodecRestartsARunningEncoderAndSurvivesTheNextStart)
{
    CMediaTrack* share = Make(ZynSessionType_ScreenShare, ZynDirection_Send);
    // Not started: only the option.
    ASSERT_EQ(ZYN_S_OK, share->EnableHardwareCodec(1));
    EXPECT_EQ(1, Option<uint8_t>(share, 21));
    EXPECT_EQ(ZYN_S_FALSE, share->EnableHardwareCodec(1));
    ASSERT_EQ(ZYN_S_OK, share->Start(false));
    ASSERT_EQ(ZYN_S_OK, share->EnableHardwareCodec(0));
    EXPECT_EQ(0, Option<uint8_t>(share, 21));
    EXPECT_TRUE(share->GetTrack()->IsStarted()) << "started again after the switch";
    EXPECT_TRUE(share->isStarted());
    // The application's choice holds over the configuration at the next start.
    ASSERT_EQ(ZYN_S_OK, share->Stop());
    ASSERT_EQ(ZYN_S_OK, share->Start(false));
    EXPECT_EQ(0, Option<uint8_t>(share, 21));

    ASSERT_EQ(ZYN_S_OK, share->EnableAV1Encode(true, true));
    EXPECT_EQ(1, Option<uint8_t>(share, 22));
    EXPECT_EQ(1, Option<uint8_t>(share, 23));
    EXPECT_EQ(1, Option<uint8_t>(share, 53));
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    ASSERT_EQ(ZYN_S_OK, remote->EnableAV1Encode(true));
    EXPECT_EQ(1, Option<uint8_t>(remote, 22));
    EXPECT_EQ(-1, Option<int8_t>(remote, 23, -1)) << "a receiver takes the flag only";
    share->Release();
    remote->Release();
}

TEST_F(TrackFaceTest, AudioPlayoutBufferAndVidGoToTheEngine)
{
    CMediaTrack* speaker = Make(ZynSessionType_Audio, ZynDirection_Recv);
    int lo = 0, hi = 0;
    ASSERT_EQ(ZYN_S_OK, speaker->GetAudioPlayBufferTime(lo, hi));
    EXPECT_EQ(-1, lo);
    EXPECT_EQ(-1, hi);
    ASSERT_EQ(ZYN_S_OK, speaker->SetAudioPlayBufferTime(40, 400));
    ASSERT_EQ(ZYN_S_OK, speaker->GetAudioPlayBufferTime(lo, hi));
    EXPECT_EQ(40, lo);
    EXPECT_EQ(400, hi);
    CMediaTrack* mic = Make(ZynSessionType_Audio, ZynDirection_Send);
    mic->GetTrack()->SetLabel(0xABCD);
    ASSERT_EQ(ZYN_S_OK, mic->SetVid(6));
    uint8_t record[16] = {};
    uint32_t size = sizeof record;
    ASSERT_EQ(ZYN_S_OK, mic->GetTrack()->GetOption(70, record, size));
    EXPECT_EQ(16u, size);
    EXPECT_EQ(6, record[0]);
    uint32_t csi = 0;
    std::memcpy(&csi, record + 4, 4);
    EXPECT_EQ(0xABCDu, csi);
    int db = 0;
    ASSERT_EQ(ZYN_S_OK, mic->GetVoiceDBLevel(db));
    EXPECT_EQ(-127, db) << "a stopped microphone hears nothing";
    speaker->Release();
    mic->Release();
}

TEST_F(TrackFaceTest, TheAvatarsPictureGoesOutFrameByFrame)
{
    CMediaTrack* source = Make(ZynSessionType_Video, ZynDirection_Send, true);
    CMediaTrack* far = Make(ZynSessionType_Video, ZynDirection_Recv);
    Link& wire = Connect(SessionOf(source, ZynSessionType_Video), SessionOf(far, ZynSessionType_Video));
    ASSERT_EQ(ZYN_S_OK, source->Start(false));
    ASSERT_EQ(ZYN_S_OK, far->Start(false));
    FrameLog log;
    ASSERT_EQ(ZYN_S_OK, far->AddExternalRender(&log));
    IZynExternalInputter* pin = nullptr;
    const _tagVideoSourceInfo info{160, 90, 0, ZynRawFormat_I420};
    ASSERT_EQ(ZYN_S_OK, source->GetExternalInputPin(&pin, &info));
    EXPECT_EQ(160u, Option<_tagVideoSourceInfo>(source, 141).width);
    zyn::CAvatarInputter avatar;
    const std::vector<uint8_t> face(100, 0x5A);
    EXPECT_EQ(ZYN_E_INVALIDARG, avatar.Init(&info, pin, face.data(), 0));
    ASSERT_EQ(ZYN_S_OK, avatar.Init(&info, pin, face.data(), 100));
    pin->Release();
    EXPECT_EQ(1000u, avatar.PeriodMs()) << "a zero rate still sends one a second";
    for (int i = 0; i < 4; ++i) {
        avatar.OnTimer(nullptr);
        Run(40);
    }
    ASSERT_EQ(4u, wire.rtp.size());
    EXPECT_EQ(4, log.frames);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(face, std::vector<uint8_t>(log.rendered.begin() + i * 100, log.rendered.begin() + (i + 1) * 100));
    avatar.Uninit();
    EXPECT_EQ(ZYN_E_WRONGSTATE, avatar.Feed());
    source->Release();
    far->Release();
}

TEST_F(TrackFaceTest, MutingWithAnAvatarSwapsInAnExternalSourceAndBack)
{
    CMediaTrack* camera = Make(ZynSessionType_Video, ZynDirection_Send);
    ASSERT_EQ(ZYN_S_OK, camera->Start(false));
    EndStarts();
    ASSERT_TRUE(camera->isStarted());
    const _tagVideoSourceInfo info{64, 64, 30, ZynRawFormat_I420};
    const std::vector<uint8_t> face(64, 1);
    EXPECT_EQ(ZYN_S_FALSE, camera->MuteWithAvatar(false, nullptr, nullptr, 0));
    ASSERT_EQ(ZYN_S_OK, camera->MuteWithAvatar(true, &info, face.data(), 64));
    EXPECT_EQ(ZynTrack_ExternalVideoLocal, camera->GetTrack()->GetKind());
    EXPECT_TRUE(camera->GetTrack()->IsStarted());
    EXPECT_TRUE(camera->isAvatarMuted());
    ASSERT_NE(nullptr, camera->GetAvatar());
    EXPECT_EQ(200u, camera->GetAvatar()->PeriodMs());
    EXPECT_EQ(ZYN_S_OK, camera->GetAvatar()->Feed());
    ASSERT_EQ(ZYN_S_OK, camera->MuteWithAvatar(false, nullptr, nullptr, 0));
    EXPECT_EQ(ZynTrack_VideoLocal, camera->GetTrack()->GetKind());
    EXPECT_FALSE(camera->isAvatarMuted());
    EXPECT_EQ(ZYN_E_WRONGSTATE, camera->GetAvatar()->Feed());
    camera->Release();
}

TEST_F(TrackFaceTest, AfterUnInitEveryOperationFailsWithoutTheEngine)
{
    CMediaTrack* t = Make(ZynSessionType_Video, ZynDirection_Send);
    t->UnInit();
    IZynExternalInputter* pin = reinterpret_cast<IZynExternalInputter*>(1);
    _tagVideoStatistics stats{};
    int window = 0;
    EXPECT_EQ(ZYN_E_NOTRACK, t->ForceKeyframe());
    EXPECT_EQ(ZYN_E_NOTRACK, t->ForceLandscape(true));
    EXPECT_EQ(ZYN_E_NOTRACK, t->SetupCVO(true));
    EXPECT_EQ(ZYN_E_NOTRACK, t->StartPreview());
    EXPECT_EQ(ZYN_E_NOTRACK, t->TakePhoto());
    EXPECT_EQ(ZYN_E_NOTRACK, t->GetVideoStatistics(stats));
    EXPECT_EQ(ZYN_E_NOTRACK, t->EnableHardwareCodec(0));
    EXPECT_EQ(ZYN_E_NOTRACK, t->MuteWithAvatar(true, nullptr, nullptr, 0));
    EXPECT_EQ(ZYN_E_FAIL, t->GetExternalInputPin(&pin));
    EXPECT_EQ(nullptr, pin);
    EXPECT_EQ(ZYN_E_FAIL, t->AddRenderWindow(&window));
    t->Release();
}

}  // namespace
