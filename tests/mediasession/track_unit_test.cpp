// The track table and the track on an engine of its own, without a line: what the engine's tracks
// and objects show afterwards (run state, options, live objects) is what the tests read.
#include <gtest/gtest.h>

#include "test_support.h"
#include "track/MediaTrackMgr.h"
#include "track/TrackDelete.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaTrack;
using zyn::CMediaTrackMgr;

class FixedClock : public IZynClock {
public:
    uint64_t NowMs() override { return 1000; }
    uint64_t NowNtp() override { return uint64_t{3900000000} << 32; }
};

class TrackUnitTest : public ::testing::Test {
protected:
    TrackUnitTest()
    {
        ZynInit(0);
        EXPECT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&engine, 3, &clock));
        baseline = ZynLiveObjectCount();
    }
    ~TrackUnitTest() override
    {
        // Tracks released here wait out their second on the main thread; a test ends without it.
        mstest::OnMain();
        zyn::CTimerDeleteRegistry::Instance().Flush();
        EXPECT_EQ(baseline, ZynLiveObjectCount()) << "an engine object outlived its track";
        engine->Stop();
        engine->Release();
        ZynUninit();
    }
    // A track with one reference, initialised on the engine.
    CMediaTrack* Make(ZynSessionType type, ZynDirection direction, bool external = false)
    {
        auto* t = new CMediaTrack(nullptr, 42);
        t->AddRef();
        EXPECT_EQ(ZYN_S_OK, t->Init(engine, type, direction, external, zyn::ZynSourceType_Device, 0));
        return t;
    }
    bool Sending(CMediaTrack* t)
    {
        uint8_t v = 1;
        uint32_t size = 1;
        return !ZYN_SUCCEEDED(t->GetTrack()->GetOption(ZynTrackOption_SendingData, &v, size)) || v != 0;
    }

    FixedClock clock;
    IZynMediaEngineInternal* engine = nullptr;
    int baseline = 0;
};

TEST(FileCaptureFormat, TheExtensionNamesTheFormat)
{
    const struct {
        const char* path;
        ZynRawFormat format;
    } rows[] = {
        {"/tmp/a.wav", ZynRawFormat_Wav},     {"clip.WAV", ZynRawFormat_Wav},       {"x.i420", ZynRawFormat_I420},
        {"x.yv12", ZynRawFormat_YV12},        {"x.nv12", ZynRawFormat_NV12},        {"x.nv21", ZynRawFormat_NV21},
        {"x.yuy2", ZynRawFormat_YUY2},        {"x.rgb24", ZynRawFormat_RGB24},      {"x.bgr24", ZynRawFormat_BGR24},
        {"x.mp3", ZynRawFormat_Unknown},      {"wav", ZynRawFormat_Unknown},        {"dir.wav/file", ZynRawFormat_Unknown},
        {"trailing.", ZynRawFormat_Unknown},  {"", ZynRawFormat_Unknown},           {nullptr, ZynRawFormat_Unknown},
        {"a.tar.i420", ZynRawFormat_I420},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.format, zyn::GetFileCaptureFormat(row.path)) << (row.path ? row.path : "(null)");
}

TEST_F(TrackUnitTest, TheTableKeepsOneReferencePerSlot)
{
    CMediaTrackMgr table(0);
    CMediaTrack* out = reinterpret_cast<CMediaTrack*>(1);
    EXPECT_EQ(ZYN_S_OK, table.QueryTrack(5, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(ZYN_E_INVALIDARG, table.QueryTrack(5, nullptr));
    EXPECT_EQ(ZYN_E_INVALIDARG, table.QueryTrack(256, &out));
    EXPECT_EQ(ZYN_E_NOTFOUND, table.QueryTrack(&out));
    EXPECT_EQ(30000008, table.Push(nullptr));

    CMediaTrack* t = Make(ZynSessionType_Video, ZynDirection_Recv);
    t->GetTrack()->SetLabel(9);
    for (int i = 0; i < CMediaTrackMgr::kSlots; ++i) ASSERT_EQ(ZYN_S_OK, table.Push(t));
    EXPECT_EQ(30000007, table.Push(t));
    EXPECT_EQ(uint32_t{CMediaTrackMgr::kSlots + 1}, t->GetReference());
    EXPECT_EQ(size_t{CMediaTrackMgr::kSlots}, table.GetCount());
    // Vid 0 never goes by CSI: only the other 255 do.
    t->GetTrack()->SetLabel(0);
    EXPECT_EQ(ZYN_E_NOTFOUND, table.RemoveTrackByCSI(0xABC, nullptr));
    table.Clear();
    EXPECT_EQ(0u, table.GetCount());
    EXPECT_EQ(1u, t->GetReference());
    t->Release();
}

TEST_F(TrackUnitTest, LookupsGoByVidAndPolicy)
{
    CMediaTrackMgr table(0);
    CMediaTrack* a = Make(ZynSessionType_Video, ZynDirection_Recv);
    auto* b = new CMediaTrack(nullptr, 42);
    b->AddRef();
    ASSERT_EQ(ZYN_S_OK, b->Init(engine, ZynSessionType_Video, ZynDirection_Recv, false, zyn::ZynSourceType_Remote, 2));
    table.Push(7, a);
    table.Push(3, b);
    EXPECT_EQ((std::vector<int>{3, 7}), table.GetVids());
    CMediaTrack* found = nullptr;
    ASSERT_EQ(ZYN_S_OK, table.QueryTrackByPolicy(&found, 2));
    EXPECT_EQ(b, found);
    found->Release();
    EXPECT_EQ(ZYN_E_NOTFOUND, table.QueryTrackByPolicy(&found, 9));
    b->GetTrack()->SetLabel(0x500);
    EXPECT_EQ(ZYN_S_OK, table.RemoveTrackByCSI(0x500, nullptr));
    EXPECT_EQ((std::vector<int>{7}), table.GetVids());
    // Removed: stopped and detached from the engine at once, whoever still holds it.
    EXPECT_EQ(nullptr, b->GetTrack());
    EXPECT_EQ(ZYN_E_NOTFOUND, table.RemoveRemoteTrack(3, nullptr));
    EXPECT_EQ(ZYN_S_OK, table.RemoveRemoteTrack(7, nullptr));
    a->Release();
    b->Release();
}

TEST_F(TrackUnitTest, StartAndStopFollowTheirProtocol)
{
    CMediaTrack* t = Make(ZynSessionType_Audio, ZynDirection_Send);
    IZynMediaTrack* engineTrack = t->GetTrack();
    EXPECT_EQ(ZYN_S_FALSE, t->Stop());
    EXPECT_EQ(ZYN_S_OK, t->Start(false));
    EXPECT_TRUE(engineTrack->IsStarted());
    engineTrack->Stop();
    // A second start does not reach the engine.
    EXPECT_EQ(ZYN_S_OK, t->Start(false));
    EXPECT_FALSE(engineTrack->IsStarted());
    EXPECT_EQ(ZYN_S_OK, t->Stop());
    EXPECT_FALSE(t->isStarted());
    EXPECT_EQ(ZYN_S_FALSE, t->Stop());
    t->UnInit();
    EXPECT_EQ(ZYN_E_POINTER, t->Start(false));
    t->Release();

    auto* bare = new CMediaTrack(nullptr, 1);
    bare->AddRef();
    EXPECT_EQ(ZYN_E_POINTER, bare->Start(true));
    EXPECT_EQ(ZYN_E_INVALIDARG, bare->Init(nullptr, ZynSessionType_Audio, ZynDirection_Send, false, zyn::ZynSourceType_Device, 0));
    EXPECT_EQ(ZYN_E_INVALIDARG, bare->Init(engine, ZynSessionType_Application, ZynDirection_Send, false, zyn::ZynSourceType_Device, 0));
    bare->Release();
}

TEST_F(TrackUnitTest, MuteReachesTheEngineByKind)
{
    IZynVolumeControl* capture = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->GetVolumeControl(0, &capture));
    const struct {
        const char* name;
        ZynSessionType type;
        ZynDirection direction;
        bool external;
        bool captureMuted;  // the engine's capture level after Mute
        bool sending;       // option 68 after Mute
        bool externalMuted;  // option 157 after Mute
    } rows[] = {
        {"microphone", ZynSessionType_Audio, ZynDirection_Send, false, true, true, false},
        {"external audio", ZynSessionType_Audio, ZynDirection_Send, true, false, true, true},
        {"camera", ZynSessionType_Video, ZynDirection_Send, false, false, false, false},
        {"share", ZynSessionType_ScreenShare, ZynDirection_Send, false, false, false, false},
        {"remote video", ZynSessionType_Video, ZynDirection_Recv, false, false, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaTrack* t = Make(row.type, row.direction, row.external);
        EXPECT_EQ(ZYN_E_FAIL, t->Unmute());
        ASSERT_EQ(ZYN_S_OK, t->Mute());
        EXPECT_EQ(ZYN_E_FAIL, t->Mute());
        EXPECT_EQ(row.captureMuted, capture->IsMuted());
        EXPECT_EQ(row.sending, Sending(t));
        uint8_t external = 0;
        uint32_t size = 1;
        t->GetTrack()->GetOption(ZynTrackOption_ExternalAudioMute, &external, size);
        EXPECT_EQ(row.externalMuted, external != 0);
        // Sending cannot be turned on under a video mute.
        if (row.type != ZynSessionType_Audio && row.direction == ZynDirection_Send) {
            EXPECT_EQ(ZYN_E_FAIL, t->StartSending(true));
        }
        ASSERT_EQ(ZYN_S_OK, t->Unmute());
        EXPECT_FALSE(capture->IsMuted());
        EXPECT_TRUE(Sending(t));
        t->Release();
    }
    capture->Release();
}

TEST_F(TrackUnitTest, ALeftOverMuteAndVolumeDoNotOutliveTheTrack)
{
    IZynVolumeControl* capture = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->GetVolumeControl(0, &capture));
    CMediaTrack* t = Make(ZynSessionType_Audio, ZynDirection_Send);
    ASSERT_EQ(ZYN_S_OK, t->SetVolume(1000));
    unsigned int volume = 0;
    ASSERT_EQ(ZYN_S_OK, t->GetVolume(volume));
    EXPECT_EQ(1000u, volume);
    EXPECT_EQ(ZYN_E_INVALIDARG, t->SetVolume(70000));
    ASSERT_EQ(ZYN_S_OK, t->Mute());
    t->UnInit();
    EXPECT_FALSE(capture->IsMuted());
    uint32_t level = 0;
    capture->GetVolume(level, 2);
    EXPECT_EQ(65535u, level);
    EXPECT_EQ(ZYN_E_NOTIMPL, t->SetVolume(1));
    t->Release();
    capture->Release();
}

TEST_F(TrackUnitTest, ALocalTrackIsHeldBackUntilItsLineSaysConnected)
{
    CMediaTrack* t = Make(ZynSessionType_Video, ZynDirection_Send);
    ASSERT_EQ(ZYN_S_OK, t->StartSending(false));
    EXPECT_FALSE(Sending(t));
    EXPECT_EQ(ZYN_E_FAIL, t->StartSending(false));
    t->SessionConnected();
    EXPECT_TRUE(Sending(t));
    EXPECT_EQ(ZYN_E_FAIL, t->StartSending(true));
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    EXPECT_EQ(ZYN_E_FAIL, remote->StartSending(true));
    t->Release();
    remote->Release();
}

TEST_F(TrackUnitTest, SwappingTheEngineTrackKeepsTheOldOneASecondLonger)
{
    CMediaTrack* t = Make(ZynSessionType_Video, ZynDirection_Send);
    EXPECT_EQ(ZYN_S_OK, t->ChangeToDeviceTrack());  // already one: nothing happens
    IZynMediaTrack* before = t->GetTrack();
    ASSERT_EQ(ZYN_S_OK, t->StartSending(false));
    const int alive = ZynLiveObjectCount();
    const size_t pending = zyn::CTimerDeleteRegistry::Instance().PendingCount();
    ASSERT_EQ(ZYN_S_OK, t->ChangeToExternalTrack(zyn::ZynSourceType_File, false));
    EXPECT_NE(before, t->GetTrack());
    EXPECT_EQ(ZynTrack_ExternalVideoLocal, t->GetTrack()->GetKind());
    EXPECT_FALSE(Sending(t)) << "options follow to the new track";
    // The old one waits in a holder: both live for now.
    EXPECT_EQ(alive + 1, ZynLiveObjectCount());
    EXPECT_EQ(pending + 1, zyn::CTimerDeleteRegistry::Instance().PendingCount());
    zyn::CTimerDeleteRegistry::Instance().Flush();
    EXPECT_EQ(alive, ZynLiveObjectCount());
    CMediaTrack* remote = Make(ZynSessionType_Video, ZynDirection_Recv);
    EXPECT_EQ(ZYN_E_FAIL, remote->ChangeToExternalTrack(zyn::ZynSourceType_File, false));
    t->Release();
    remote->Release();
}

// What the request list and the lip-sync look-up take from a table of remote tracks in every state.
TEST_F(TrackUnitTest, OnlyStartedUnmutedTracksWithARequestAsk)
{
    CMediaTrackMgr table(0);
    const struct {
        const char* name;
        int vid;
        bool start, mute, request;
        bool asks;
    } rows[] = {
        {"started with a request", 1, true, false, true, true},
        {"never started", 2, false, false, true, false},
        {"muted", 3, true, true, true, false},
        {"no request given", 4, true, false, false, false},
        {"another started with a request", 9, true, false, true, true},
    };
    std::vector<CMediaTrack*> tracks;
    for (const auto& row : rows) {
        CMediaTrack* t = Make(ZynSessionType_Video, ZynDirection_Recv);
        t->GetTrack()->SetLabel(static_cast<uint32_t>(row.vid));
        if (row.start) {
            EXPECT_EQ(ZYN_S_OK, t->Start(false)) << row.name;
        }
        if (row.mute) {
            EXPECT_EQ(ZYN_S_OK, t->Mute()) << row.name;
        }
        ZynSimulcastRequest request{};
        request.vid = static_cast<uint8_t>(row.vid);
        request.uBitrate = 64000;
        if (row.request) t->SetRequest(request);
        table.Push(row.vid, t);
        tracks.push_back(t);
        // Forced, the record is there whatever the state.
        EXPECT_NE(nullptr, t->GetRequest(true)) << row.name;
        EXPECT_EQ(row.asks, t->GetRequest(false) != nullptr) << row.name;
    }
    std::vector<ZynSimulcastRequest> asked;
    table.GetRequsts(asked);
    ASSERT_EQ(2u, asked.size());
    EXPECT_EQ(1, asked[0].vid);
    EXPECT_EQ(9, asked[1].vid);

    // Lip sync pairs a CSI with the stream that shows it alone, once the poll took the list in.
    const uint32_t two[] = {0x100, 0x201};
    tracks[0]->getMediaCSI().SetCSI(&two[1], 1);
    tracks[1]->getMediaCSI().SetCSI(two, 2);
    CMediaTrack* found = nullptr;
    EXPECT_EQ(ZYN_E_NOTFOUND, table.FindSyncTrack(0x201, &found)) << "not yet polled";
    uint32_t oldList[15], newList[15], oldCount = 0, newCount = 0;
    for (CMediaTrack* t : tracks) t->getMediaCSI().CheckCSIChanged(oldList, oldCount, newList, newCount);
    ASSERT_EQ(ZYN_S_OK, table.FindSyncTrack(0x201, &found));
    EXPECT_EQ(tracks[0], found);
    found->Release();
    EXPECT_EQ(ZYN_E_NOTFOUND, table.FindSyncTrack(0x100, &found)) << "a stream of two sources syncs to neither";
    EXPECT_EQ(ZYN_E_INVALIDARG, table.FindSyncTrack(0x201, nullptr));
    table.Clear();
    for (CMediaTrack* t : tracks) t->Release();
}

}  // namespace
