// What an engine track lets out: the run state, the sending-data option and the capture level gate
// the packets a link reads off the wire; a file capturer's bytes are the payloads, and a file
// renderer on the far end writes them back; a share track keeps the lists its options change; the
// device list tells its observers. All on a fake clock.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "../common/file_bytes.h"
#include "zyn_call.h"

namespace {

using namespace zyntest;

constexpr size_t kRtpHeader = 12;

std::string TempPath(const std::string& name)
{
    return testing::TempDir() + "zyn_track_" + std::to_string(::getpid()) + "_" + name;
}

std::vector<uint8_t> Bytes(size_t n, uint8_t seed)
{
    std::vector<uint8_t> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
    return out;
}

// A canonical 44-byte header of 8 kHz mono 16-bit PCM, then `samples` bytes of data.
std::vector<uint8_t> WavFile(size_t samples)
{
    std::vector<uint8_t> out = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',
                                16,  0,   0,   0,   1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0,
                                2,   0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0};
    const auto data = Bytes(samples, 3);
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

void Write(const std::string& path, const std::vector<uint8_t>& bytes) { mstest::WriteFileBytes(path, bytes); }
std::vector<uint8_t> Read(const std::string& path) { return mstest::ReadFileBytes(path); }

std::vector<uint8_t> Payloads(const std::vector<Packet>& packets)
{
    std::vector<uint8_t> out;
    for (const Packet& p : packets) out.insert(out.end(), p.begin() + kRtpHeader, p.end());
    return out;
}

// One local track of the kind on a session whose packets a capture keeps.
struct Sender {
    explicit Sender(ZynSessionType type, ZynTrackKind kind)
    {
        ZynInit(0);
        EXPECT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&engine, 9, &clock));
        EXPECT_EQ(ZYN_S_OK, engine->CreateMediaSession(type, &session));
        EXPECT_EQ(ZYN_S_OK, engine->CreateTrack(kind, &track));
        EXPECT_EQ(ZYN_S_OK, session->AddTrack(track));
        session->SetTransport(&wire);
    }
    ~Sender()
    {
        session->SetTransport(nullptr);
        track->Release();
        session->Release();
        engine->Stop();
        engine->Release();
        ZynUninit();
    }
    void Run(uint64_t ms)
    {
        for (uint64_t t = 0; t < ms; t += 5) {
            clock.ms += 5;
            ZynRunEngineClock(engine);
        }
    }
    FakeClock clock;
    IZynMediaEngineInternal* engine = nullptr;
    IZynMediaSession* session = nullptr;
    IZynMediaTrack* track = nullptr;
    Capture wire;
};

struct GateRow {
    const char* name;
    ZynSessionType type;
    ZynTrackKind kind;
    bool start;
    int sendingData;     // option 68: -1 never set
    bool captureMuted;   // the engine's capture level
    bool externalMuted;  // option 157
    size_t minPackets, maxPackets;  // over one second
    size_t payload;                 // of every packet, 0: not checked
};

void PrintTo(const GateRow& row, std::ostream* os) { *os << row.name; }

class SendGateTest : public ::testing::TestWithParam<GateRow> {};

TEST_P(SendGateTest, WhatReachesTheWireInOneSecond)
{
    const GateRow& row = GetParam();
    Sender s(row.type, row.kind);
    if (row.sendingData >= 0) {
        const uint8_t v = static_cast<uint8_t>(row.sendingData);
        ASSERT_EQ(ZYN_S_OK, s.track->SetOption(ZynTrackOption_SendingData, &v, 1));
    }
    if (row.externalMuted) {
        const uint8_t v = 1;
        ASSERT_EQ(ZYN_S_OK, s.track->SetOption(ZynTrackOption_ExternalAudioMute, &v, 1));
    }
    IZynVolumeControl* capture = nullptr;
    ASSERT_EQ(ZYN_S_OK, s.engine->GetVolumeControl(0, &capture));
    if (row.captureMuted) capture->Mute(2);
    if (row.start) s.track->Start();
    s.Run(1000);
    EXPECT_GE(s.wire.rtp.size(), row.minPackets);
    EXPECT_LE(s.wire.rtp.size(), row.maxPackets);
    for (const Packet& p : s.wire.rtp) {
        if (row.payload) {
            EXPECT_EQ(row.payload, p.size() - kRtpHeader);
        }
    }
    capture->Unmute(2);
    capture->Release();
}

// Audio makes a 20 ms frame of 80 bytes, video a 33 ms frame in three packets; muted audio keeps
// one 3-byte silence frame in twenty.
INSTANTIATE_TEST_SUITE_P(
    Tracks, SendGateTest,
    ::testing::Values(GateRow{"audio_running", ZynSessionType_Audio, ZynTrack_AudioLocal, true, -1, false, false, 49, 51, 80},
                      GateRow{"audio_not_started", ZynSessionType_Audio, ZynTrack_AudioLocal, false, -1, false, false, 0, 0, 0},
                      GateRow{"audio_held_back", ZynSessionType_Audio, ZynTrack_AudioLocal, true, 0, false, false, 0, 0, 0},
                      GateRow{"audio_sending_again", ZynSessionType_Audio, ZynTrack_AudioLocal, true, 1, false, false, 49, 51, 80},
                      GateRow{"audio_capture_muted", ZynSessionType_Audio, ZynTrack_AudioLocal, true, -1, true, false, 2, 3, 3},
                      GateRow{"external_audio_muted", ZynSessionType_Audio, ZynTrack_ExternalAudioLocal, true, -1, false, true, 2, 3, 3},
                      GateRow{"video_running", ZynSessionType_Video, ZynTrack_VideoLocal, true, -1, false, false, 85, 95, 0},
                      GateRow{"video_held_back", ZynSessionType_Video, ZynTrack_VideoLocal, true, 0, false, false, 0, 0, 0},
                      // The capture level is audio's: video under a muted microphone still sends.
                      GateRow{"video_under_muted_capture", ZynSessionType_Video, ZynTrack_VideoLocal, true, -1, true, false, 85, 95, 0},
                      GateRow{"share_held_back", ZynSessionType_ScreenShare, ZynTrack_ScreenShareLocal, true, 0, false, false, 0, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

struct EndCounter : IZynMediaFileCapturerObserver {
    void OnEndOfStream(IZynMediaFileCapturer*) override { ++ends; }
    int ends = 0;
};

TEST(FileCapture, TheFilesBytesAreThePayloadsOnceAndTheEndIsToldOnce)
{
    const std::string path = TempPath("once.wav");
    const auto file = WavFile(1000);
    Write(path, file);
    Sender s(ZynSessionType_Audio, ZynTrack_AudioLocal);
    IZynMediaFileCapturer* capturer = nullptr;
    ASSERT_EQ(ZYN_S_OK, s.engine->CreateFileCapturer(path.c_str(), ZynRawFormat_Wav, &capturer));
    EndCounter end;
    capturer->SetObserver(&end);
    const uint8_t noLoop = 0;
    capturer->SetOption(ZynCapturerOption_Loop, &noLoop, 1);
    ASSERT_EQ(ZYN_S_OK, s.track->SetFileCapturer(capturer));
    capturer->Start();
    s.track->Start();
    s.Run(2000);
    EXPECT_EQ(file, Payloads(s.wire.rtp));
    EXPECT_EQ(1, end.ends);
    s.track->SetFileCapturer(nullptr);
    capturer->Release();
    std::remove(path.c_str());
}

TEST(FileCapture, ALoopingFileStartsAgainAtItsEnd)
{
    const std::string path = TempPath("loop.i420");
    const auto frame = Bytes(1000, 9);
    Write(path, frame);
    Sender s(ZynSessionType_Video, ZynTrack_VideoLocal);
    IZynMediaFileCapturer* capturer = nullptr;
    ASSERT_EQ(ZYN_S_OK, s.engine->CreateFileCapturer(path.c_str(), ZynRawFormat_I420, &capturer));
    ASSERT_EQ(ZYN_S_OK, s.track->SetFileCapturer(capturer));
    capturer->Start();
    s.track->Start();
    s.Run(100);
    const auto sent = Payloads(s.wire.rtp);
    ASSERT_GE(sent.size(), 2 * frame.size());
    for (size_t i = 0; i < sent.size(); ++i) ASSERT_EQ(frame[i % frame.size()], sent[i]) << "at " << i;
    s.track->SetFileCapturer(nullptr);
    capturer->Release();
    std::remove(path.c_str());
}

TEST(FileCapture, BadFilesAreRefused)
{
    const std::string notWav = TempPath("text.wav");
    Write(notWav, {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '!', '!'});
    const std::string empty = TempPath("empty.i420");
    Write(empty, {});
    const struct {
        const char* name;
        std::string path;
        ZynRawFormat format;
        ZynResult result;
    } rows[] = {
        {"missing", TempPath("missing.wav"), ZynRawFormat_Wav, ZYN_E_NOTFOUND},
        {"no RIFF header", notWav, ZynRawFormat_Wav, ZYN_E_INVALIDARG},
        {"empty", empty, ZynRawFormat_I420, ZYN_E_INVALIDARG},
        {"unknown format", notWav, ZynRawFormat_Unknown, ZYN_E_INVALIDARG},
        {"empty path", "", ZynRawFormat_Wav, ZYN_E_INVALIDARG},
    };
    Sender s(ZynSessionType_Audio, ZynTrack_AudioLocal);
    for (const auto& row : rows) {
        IZynMediaFileCapturer* capturer = reinterpret_cast<IZynMediaFileCapturer*>(1);
        EXPECT_EQ(row.result, s.engine->CreateFileCapturer(row.path.c_str(), row.format, &capturer)) << row.name;
        EXPECT_EQ(nullptr, capturer) << row.name;
    }
    EXPECT_EQ(ZYN_E_POINTER, s.engine->CreateFileCapturer(notWav.c_str(), ZynRawFormat_Wav, nullptr));
    IZynMediaFileRenderer* renderer = nullptr;
    EXPECT_EQ(ZYN_E_NOTFOUND, s.engine->CreateFileRenderer("/nonexistent-dir/out.wav", ZynRawFormat_Wav, &renderer));
    EXPECT_EQ(nullptr, renderer);
    std::remove(notWav.c_str());
    std::remove(empty.c_str());
}

TEST(FileRender, WhatTheFarEndsRemoteTrackReceivesIsWrittenInOrder)
{
    const std::string in = TempPath("in.wav"), out = TempPath("out.wav");
    const auto file = WavFile(3000);
    Write(in, file);
    OneWay net(ZynSessionType_Audio);
    IZynMediaEngineInternal* engine = net.call.Engine();
    IZynMediaTrack* remote = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->CreateTrack(ZynTrack_RemoteAudio, &remote));
    ASSERT_EQ(ZYN_S_OK, net.to->AddTrack(remote));
    IZynMediaFileRenderer* renderer = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->CreateFileRenderer(out.c_str(), ZynRawFormat_Wav, &renderer));
    ASSERT_EQ(ZYN_S_OK, remote->AddExternalRenderer(renderer));
    EXPECT_EQ(ZYN_E_DUPLICATE, remote->AddExternalRenderer(renderer));
    remote->Start();
    IZynMediaFileCapturer* capturer = nullptr;
    ASSERT_EQ(ZYN_S_OK, engine->CreateFileCapturer(in.c_str(), ZynRawFormat_Wav, &capturer));
    const uint8_t noLoop = 0;
    capturer->SetOption(ZynCapturerOption_Loop, &noLoop, 1);
    IZynMediaTrack* local = nullptr;
    // The sender's own local track is the one OneWay made; a second local one carries the file.
    ASSERT_EQ(ZYN_S_OK, engine->CreateTrack(ZynTrack_ExternalAudioLocal, &local));
    ASSERT_EQ(ZYN_S_OK, local->SetFileCapturer(capturer));
    EXPECT_EQ(ZYN_E_INVALIDARG, remote->SetFileCapturer(capturer));
    EXPECT_EQ(ZYN_E_INVALIDARG, local->AddExternalRenderer(renderer));
    ASSERT_EQ(ZYN_S_OK, net.from->AddTrack(local));
    capturer->Start();
    local->Start();
    net.call.Run(3000);
    EXPECT_EQ(file.size(), renderer->GetBytesWritten());
    EXPECT_EQ(file, Read(out));
    EXPECT_EQ(ZYN_S_OK, remote->RemoveExternalRenderer(renderer));
    EXPECT_EQ(ZYN_E_NOTFOUND, remote->RemoveExternalRenderer(renderer));
    net.from->RemoveTrack(local);
    net.to->RemoveTrack(remote);
    local->SetFileCapturer(nullptr);
    capturer->Release();
    renderer->Release();
    local->Release();
    remote->Release();
    std::remove(in.c_str());
    std::remove(out.c_str());
}

// The share track's lists, read back through the add option of each.
std::vector<uint64_t> List(IZynMediaTrack* track, int32_t option)
{
    std::vector<uint64_t> items(64);
    uint32_t size = static_cast<uint32_t>(items.size() * sizeof(uint64_t));
    if (!ZYN_SUCCEEDED(track->GetOption(option, items.data(), size))) return {};
    items.resize(size / sizeof(uint64_t));
    return items;
}

TEST(ShareTrack, AddsAndRemovesChangeTheListsItReportsBack)
{
    Sender s(ZynSessionType_ScreenShare, ZynTrack_ScreenShareLocal);
    IZynMediaTrack* t = s.track;
    auto window = [&](int32_t option, uint64_t handle) { return t->SetOption(option, &handle, 8); };
    auto process = [&](int32_t option, uint32_t pid) { return t->SetOption(option, &pid, 4); };
    struct Record {
        int32_t command, reserved;
        uint64_t value, length;
    };
    auto command = [&](int32_t c, uint64_t value, uint64_t length) {
        Record r{c, 0, value, length};
        return t->SetOption(154, &r, sizeof r);
    };
    EXPECT_EQ(ZYN_S_OK, window(118, 0x10));
    EXPECT_EQ(ZYN_S_OK, window(118, 0x20));
    EXPECT_EQ(ZYN_S_OK, window(118, 0x10));  // once only
    EXPECT_EQ(ZYN_S_OK, window(119, 0x10));
    EXPECT_EQ((std::vector<uint64_t>{0x20}), List(t, 118));
    EXPECT_EQ(ZYN_S_OK, process(122, 4242));
    EXPECT_EQ(ZYN_S_OK, process(124, 7));
    EXPECT_EQ((std::vector<uint64_t>{4242}), List(t, 122));
    EXPECT_EQ((std::vector<uint64_t>{7}), List(t, 124));
    EXPECT_EQ(ZYN_E_INVALIDARG, t->SetOption(118, "abc", 3));  // a handle is 8 bytes
    EXPECT_EQ(ZYN_S_OK, command(1001, 0x99, 0));
    EXPECT_EQ(ZYN_S_OK, command(1009, 55, 0));
    EXPECT_EQ(ZYN_S_OK, command(1010, 55, 0));
    EXPECT_EQ((std::vector<uint64_t>{0x99}), List(t, 1001));
    EXPECT_TRUE(List(t, 1009).empty());
    const char* names[] = {"Shell_TrayWnd", "Progman"};
    EXPECT_EQ(ZYN_S_OK, command(1006, reinterpret_cast<uintptr_t>(names), 2));
    char text[64] = {};
    uint32_t size = sizeof text;
    ASSERT_EQ(ZYN_S_OK, t->GetOption(1006, text, size));
    EXPECT_EQ(std::string("Progman\0Shell_TrayWnd\0", 22), std::string(text, size));
    EXPECT_EQ(ZYN_E_INVALIDARG, command(1006, 0, 2));
    EXPECT_EQ(ZYN_E_INVALIDARG, command(4000, 1, 0));
}

struct DeviceObserver : IZynMediaDeviceObserver {
    void OnDeviceChanged(IZynMediaDevice* device, int32_t kind) override
    {
        names.push_back(device->GetDeviceName());
        kinds.push_back(kind);
    }
    std::vector<std::string> names;
    std::vector<int32_t> kinds;
};

TEST(Devices, NamedDevicesAreFoundAndChangesAreTold)
{
    Sender s(ZynSessionType_Video, ZynTrack_VideoLocal);
    uint32_t count = 0;
    ASSERT_EQ(ZYN_S_OK, s.engine->GetDevices(ZynDevice_Camera, nullptr, count));
    EXPECT_EQ(2u, count);
    IZynMediaDevice* usb = nullptr;
    ASSERT_EQ(ZYN_S_OK, s.engine->FindDevice(ZynDevice_Camera, "zyn-cam-usb", &usb));
    IZynMediaDevice* none = nullptr;
    EXPECT_EQ(ZYN_E_NOTFOUND, s.engine->FindDevice(ZynDevice_Camera, "zyn-mic-builtin", &none));
    EXPECT_EQ(ZYN_E_INVALIDARG, s.engine->FindDevice(ZynDevice_Camera, nullptr, &none));
    IZynMediaDevice* mic = nullptr;
    ASSERT_EQ(ZYN_S_OK, s.engine->FindDevice(ZynDevice_Microphone, "zyn-mic-headset", &mic));
    EXPECT_EQ(ZYN_E_INVALIDARG, s.track->SetDevice(mic));  // a camera track takes cameras
    EXPECT_EQ(ZYN_S_OK, s.track->SetDevice(usb));
    IZynMediaDevice* inUse = s.track->GetDevice();
    EXPECT_EQ(usb, inUse);
    inUse->Release();
    DeviceObserver seen;
    ASSERT_EQ(ZYN_S_OK, s.engine->AddDeviceObserver(&seen));
    EXPECT_EQ(ZYN_E_DUPLICATE, s.engine->AddDeviceObserver(&seen));
    EXPECT_EQ(ZYN_S_OK, s.engine->SimulateDeviceChange(ZynDevice_Camera, "zyn-cam-dock", true));
    EXPECT_EQ(ZYN_E_DUPLICATE, s.engine->SimulateDeviceChange(ZynDevice_Camera, "zyn-cam-dock", true));
    EXPECT_EQ(ZYN_S_OK, s.engine->SimulateDeviceChange(ZynDevice_Camera, "zyn-cam-usb", false));
    EXPECT_EQ(ZYN_E_NOTFOUND, s.engine->SimulateDeviceChange(ZynDevice_Camera, "zyn-cam-usb", false));
    EXPECT_EQ((std::vector<std::string>{"zyn-cam-dock", "zyn-cam-usb"}), seen.names);
    EXPECT_EQ((std::vector<int32_t>{2, 2}), seen.kinds);
    // The track keeps the unplugged device alive until it lets go.
    EXPECT_STREQ("zyn-cam-usb", usb->GetDeviceName());
    ASSERT_EQ(ZYN_S_OK, s.engine->RemoveDeviceObserver(&seen));
    usb->Release();
    mic->Release();
}

}  // namespace
