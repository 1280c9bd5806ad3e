// Recording a call: what the remote ends send lands in the file or the application's record while
// recording runs, and stops landing the moment it is paused or stopped, although packets keep
// arriving (counted by the line).
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include "call_harness.h"
#include "mediasession/ZynGlobalServices.h"
#include "zyn/ZynEngineApi.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;

constexpr unsigned long kAudio = 0, kVideo = 1, kShare = 2;

long FileSize(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

struct Record : IZynMediaRecord {
    void OnRecordAudio(const unsigned char*, unsigned int length) override { audio += length; }
    void OnRecordVideo(unsigned char vid, const unsigned char*, unsigned int length) override
    {
        video += length;
        lastVid = vid;
    }
    std::atomic<long> audio{0}, video{0};
    std::atomic<int> lastVid{-1};
};

class RecordTest : public ::testing::Test {
protected:
    explicit RecordTest(std::vector<mstest::CallLine> lines = {{ZynSessionType_Audio, kAudio},
                                                                {ZynSessionType_Video, kVideo}})
        : call(std::move(lines), [](zyn::CMediaConnection&) {})
    {
        EXPECT_TRUE(call.Exchange());
        EXPECT_TRUE(call.WaitAll(3)) << "no RTP crossed";
        path = ::testing::TempDir() + "record_" + std::to_string(::getpid()) + ".wav";
    }
    ~RecordTest() override
    {
        ::unlink(path.c_str());
        ::unlink((path + ".video").c_str());
    }
    IZynRecorder* Recorder() { return call.Impl(0)->GetRecordService(); }
    // Packets side 0's line received: media keeps arriving whatever the recorder does.
    uint64_t Frames(unsigned long mid) { return call.Line(0, mid)->GetReceivedPackets(); }
    bool Eventually(const std::function<bool()>& pred)
    {
        for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
             std::chrono::steady_clock::now() < end;) {
            if (pred()) return true;
            call.sink[0].Wait([] { return false; }, std::chrono::milliseconds(20));
        }
        return pred();
    }
    // Whether `amount` grows while the line's track renders a few more frames.
    bool Grows(unsigned long mid, const std::function<long()>& amount)
    {
        const long before = amount();
        const uint64_t frames = Frames(mid);
        EXPECT_TRUE(Eventually([&] { return Frames(mid) >= frames + 5; })) << "packets stopped arriving";
        return Eventually([&] { return amount() > before; }) && amount() > before;
    }
    bool Still(unsigned long mid, const std::function<long()>& amount)
    {
        const long before = amount();
        const uint64_t frames = Frames(mid);
        EXPECT_TRUE(Eventually([&] { return Frames(mid) >= frames + 5; })) << "packets stopped arriving";
        return amount() == before;
    }

    mstest::EngineScope engine;
    CallPair call;
    std::string path;
};

TEST_F(RecordTest, TheFileTakesWhatArrivesOnlyWhileRecording)
{
    const auto audio = [&] { return FileSize(path); };
    const auto video = [&] { return FileSize(path + ".video"); };
    IZynRecorder* r = Recorder();
    EXPECT_EQ(ZYN_S_FALSE, r->StopRecord());
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->PauseRecord());
    ASSERT_EQ(ZYN_S_OK, r->StartRecord(path.c_str()));
    EXPECT_TRUE(Grows(kAudio, audio));
    EXPECT_EQ(-1, video()) << "no video until asked for";
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->StartRecord((path + "2").c_str()));
    EXPECT_EQ(ZYN_S_OK, r->PauseRecord());
    EXPECT_EQ(ZYN_S_FALSE, r->PauseRecord());
    EXPECT_TRUE(Still(kAudio, audio));
    EXPECT_EQ(ZYN_S_OK, r->ResumeRecord());
    EXPECT_TRUE(Grows(kAudio, audio));
    EXPECT_EQ(ZYN_S_OK, r->RecordVideo(true));
    EXPECT_TRUE(Grows(kVideo, video));
    EXPECT_EQ(ZYN_S_OK, r->RecordVideo(false));
    EXPECT_TRUE(Still(kVideo, video));
    EXPECT_EQ(ZYN_S_OK, r->StopRecord());
    EXPECT_TRUE(Still(kAudio, audio));
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->ResumeRecord());
}

TEST_F(RecordTest, TheApplicationsRecordHearsItsStreamsUntilStopped)
{
    Record record, other;
    IZynRecorder* r = Recorder();
    const auto audio = [&] { return record.audio.load(); };
    const auto video = [&] { return record.video.load(); };
    ASSERT_EQ(ZYN_S_OK, r->StartRecord4T(&record));
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->StartRecord4T(&other));
    EXPECT_TRUE(Grows(kAudio, audio));
    EXPECT_EQ(0, video());
    ASSERT_EQ(ZYN_S_OK, r->StartRecordVideo4T(&record, 0, true));
    EXPECT_EQ(ZYN_E_DUPLICATE, r->StartRecordVideo4T(&other, 0, true));
    EXPECT_EQ(ZYN_E_NOTRACK, r->StartRecordVideo4T(&other, 9, false)) << "no stream has vid 9";
    EXPECT_TRUE(Grows(kVideo, video));
    EXPECT_EQ(0, record.lastVid.load());
    EXPECT_EQ(ZYN_S_OK, r->StopRecordVideo4T(0, true));
    EXPECT_EQ(ZYN_E_NOTFOUND, r->StopRecordVideo4T(0, true));
    EXPECT_TRUE(Still(kVideo, video));
    EXPECT_EQ(ZYN_S_OK, r->StopRecord4T());
    EXPECT_EQ(ZYN_S_FALSE, r->StopRecord4T());
    EXPECT_TRUE(Still(kAudio, audio));
    EXPECT_EQ(0, other.audio.load() + other.video.load());
}

TEST_F(RecordTest, StopEndsEveryRecording)
{
    Record record;
    IZynRecorder* r = Recorder();
    ASSERT_EQ(ZYN_S_OK, r->StartRecord(path.c_str()));
    ASSERT_EQ(ZYN_S_OK, r->StartRecord4T(&record));
    ASSERT_EQ(ZYN_S_OK, r->StartRecordVideo4T(&record, 0, true));
    EXPECT_TRUE(Eventually([&] { return record.audio > 0 && record.video > 0; }));
    OnMain([&] { call.Conn(0)->Stop(); });
    const long size = FileSize(path), audio = record.audio, video = record.video;
    call.sink[0].Wait([] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(size, FileSize(path));
    EXPECT_EQ(audio, record.audio.load());
    EXPECT_EQ(video, record.video.load());
    EXPECT_EQ(ZYN_S_FALSE, r->StopRecord());
    EXPECT_EQ(ZYN_S_FALSE, r->StopRecord4T());
    OnMain();
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->StartRecord(path.c_str())) << "a stopped connection records nothing";
}

class AudioOnlyRecordTest : public RecordTest {
protected:
    AudioOnlyRecordTest() : RecordTest({{ZynSessionType_Audio, kAudio}}) {}
};

TEST_F(AudioOnlyRecordTest, BadInputAndTheApplicationsOwnPictures)
{
    IZynRecorder* r = Recorder();
    Record record;
    _tagVideoRawFormat picture{4, 2, 2};
    unsigned char bytes[12] = {1, 2, 3};
    const struct {
        const char* what;
        std::function<ZynResult()> call;
        ZynResult result;
    } rows[] = {
        {"no path", [&] { return r->StartRecord(nullptr); }, ZYN_E_INVALIDARG},
        {"empty path", [&] { return r->StartRecord(""); }, ZYN_E_INVALIDARG},
        {"no such directory", [&] { return r->StartRecord("/nonexistent-dir/x.wav"); }, ZYN_E_NOTFOUND},
        {"no record", [&] { return r->StartRecord4T(nullptr); }, ZYN_E_POINTER},
        {"no video line", [&] { return r->StartRecordVideo4T(&record, 0, true); }, ZYN_E_NOTRACK},
        {"picture while not recording", [&] { return r->PutRawVideoSample(0, &picture, bytes, 12, ZynVideoSample_Raw); },
         ZYN_E_WRONGSTATE},
        {"no format", [&] { return r->PutRawVideoSample(0, nullptr, bytes, 12, ZynVideoSample_Raw); }, ZYN_E_INVALIDARG},
        {"ring tone without samples", [&] { return call.Impl(0)->StartPlayRingTone(nullptr, bytes, 12, 1); },
         ZYN_E_INVALIDARG},
        {"on-prem without a share line", [&] { return call.Impl(0)->StartOnpremSharing("{}"); }, ZYN_E_NOTFOUND},
        {"on-prem without info", [&] { return call.Impl(0)->StartOnpremSharing(nullptr); }, ZYN_E_INVALIDARG},
    };
    for (const auto& row : rows) EXPECT_EQ(row.result, row.call()) << row.what;

    // A call without video: the video file holds exactly the application's pictures.
    ASSERT_EQ(ZYN_S_OK, r->RecordVideo(true));
    ASSERT_EQ(ZYN_S_OK, r->StartRecord(path.c_str()));
    for (unsigned int length : {12u, 5u, 7u})
        EXPECT_EQ(ZYN_S_OK, r->PutRawVideoSample(0, &picture, bytes, length, ZynVideoSample_Raw));
    EXPECT_EQ(ZYN_E_INVALIDARG, r->PutRawVideoSample(0, &picture, nullptr, 4, ZynVideoSample_Raw));
    EXPECT_EQ(24, FileSize(path + ".video"));
    EXPECT_EQ(ZYN_S_OK, r->PauseRecord());
    EXPECT_EQ(ZYN_S_FALSE, r->PutRawVideoSample(0, &picture, bytes, 12, ZynVideoSample_Raw));
    EXPECT_EQ(24, FileSize(path + ".video"));
    EXPECT_EQ(ZYN_S_OK, r->StopRecord());
    EXPECT_EQ(ZYN_E_WRONGSTATE, r->PutRawVideoSample(0, &picture, bytes, 12, ZynVideoSample_Raw));
}

}  // namespace

namespace {

// The engine's renderer for a window draws a remote video track's frames while attached.
TEST_F(RecordTest, TheEnginesWindowRendererDrawsWhatTheTrackReceives)
{
    IZynVideoRender* render = nullptr;
    int window = 0;
    EXPECT_EQ(ZYN_E_POINTER, CreateVideoRender(&window, nullptr));
    EXPECT_EQ(ZYN_E_INVALIDARG, CreateVideoRender(nullptr, &render));
    EXPECT_EQ(nullptr, render);
    ASSERT_EQ(ZYN_S_OK, CreateVideoRender(&window, &render));
    EXPECT_EQ(&window, render->GetWindow());
    IZynMediaTrackBase* remote = call.sink[0].Track(kVideo, ZynDirection_Recv);
    ASSERT_NE(nullptr, remote);
    ASSERT_EQ(ZYN_S_OK, remote->AddExternalRender(render));
    const auto drawn = [&] { return static_cast<long>(render->GetDrawnFrames()); };
    EXPECT_TRUE(Grows(kVideo, drawn));
    EXPECT_GT(render->GetLastFrameLength(), 0u);
    ASSERT_EQ(ZYN_S_OK, remote->RemoveExternalRender(render));
    EXPECT_TRUE(Still(kVideo, drawn));
    render->Release();
}

}  // namespace
