// The connection's stream operations, each read where it lands: the engine session's options and
// subscription, the remote and local engine tracks' options, the far end's counters of telephone
// events and key frames, the next offer's text; and a table of bad input with its codes.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "call_harness.h"
#include "track/MediaTrack.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;
using zyn::CMediaConnection;
using zyn::CMediaConnectionInfo;

constexpr unsigned long kAudio = 0, kVideo = 1, kUnknown = 77;

template <class T>
bool ReadOption(IZynOptionHolder* holder, int32_t id, T& out)
{
    uint32_t size = sizeof out;
    return holder && ZYN_SUCCEEDED(holder->GetOption(id, &out, size)) && size == sizeof out;
}

// The subscription the line last handed its engine session.
std::vector<ZynSimulcastRequest> Requests(CMediaConnectionInfo* line)
{
    std::vector<ZynSimulcastRequest> out(255);
    uint32_t size = static_cast<uint32_t>(out.size() * sizeof(ZynSimulcastRequest));
    if (!ZYN_SUCCEEDED(line->GetZynSession()->GetOption(ZynSessionOption_SubscribeRequests, out.data(), size)))
        size = 0;
    out.resize(size / sizeof(ZynSimulcastRequest));
    return out;
}

uint32_t SelectedCsi(const ZynSimulcastRequest& r)
{
    uint32_t csi = 0;
    std::memcpy(&csi, r.policyData, sizeof csi);
    return csi;
}

// Option 68 of an engine track: absent means the default, sending.
int SendingData(IZynMediaTrack* track)
{
    uint8_t on = 1;
    ReadOption(static_cast<IZynOptionHolder*>(track), ZynTrackOption_SendingData, on);
    return on;
}

IZynMediaTrack* EngineTrack(IZynMediaTrackBase* track)
{
    return track ? static_cast<zyn::CMediaTrack*>(track)->GetTrack() : nullptr;
}

struct Cipher : IZynMediaContentCipher {
    int GetCipherId() override { return 7; }
};

// A connected call with an audio and a video line, every track of both sides started.
class StreamsCallTest : public ::testing::Test {
protected:
    StreamsCallTest() : call({{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}}, [](CMediaConnection&) {})
    {
        EXPECT_TRUE(call.Exchange());
        EXPECT_TRUE(call.WaitAll(2));
        // The predicate runs under the sink's lock: it reads the list itself.
        EXPECT_TRUE(call.sink[0].Wait([&] {
            for (const auto& r : call.sink[0].ready)
                if (r.mid == kVideo && r.direction == ZynDirection_Recv) return true;
            return false;
        }));
        OnMain();
    }
    ZynResult OnA(const std::function<ZynResult(IZynMediaConnection4T*)>& op)
    {
        ZynResult r = ZYN_E_FAIL;
        auto* a = static_cast<IZynMediaConnection4T*>(call.Impl(0));
        OnMain([&] { r = op(a); });
        OnMain();  // what the operation announced
        return r;
    }
    CMediaConnectionInfo* Line(int side, unsigned long mid) { return call.Line(side, mid); }
    // Engine counters notify nobody: look again every few milliseconds, for up to ten seconds.
    bool Eventually(const std::function<bool()>& pred)
    {
        for (int i = 0; i < 1000 && !pred(); ++i) call.sink[0].Wait([] { return false; }, std::chrono::milliseconds(10));
        return pred();
    }

    mstest::EngineScope engine;
    CallPair call;
};

TEST_F(StreamsCallTest, SubscriptionsReachTheRemoteStreamAndTheEngineAndEndWithUnsubscribe)
{
    struct Row {
        const char* name;
        std::function<ZynResult(IZynMediaConnection4T*, int&)> subscribe;
        uint32_t fs, mbps, bitrate;
    };
    const Row rows[] = {
        {"by quality", [](IZynMediaConnection4T* c, int& vid) {
             return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_720P, vid, 255, 0, false, 0,
                                 false, true);
         }, 3600, 108000, 2500000},
        {"by limits", [](IZynMediaConnection4T* c, int& vid) {
             return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, 640, 360, 30, 800000, 0, vid, 255, 0,
                                 false, 0, false, true);
         }, 920, 27600, 800000},
    };
    CMediaConnectionInfo* line = Line(0, kVideo);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        int vid = -1;
        ASSERT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return row.subscribe(c, vid); }));
        IZynMediaTrack* remote = line->GetVideoRemoteTrack(vid)->GetTrack();
        _tagVideoSubscribeMultiStream layer{};
        ASSERT_TRUE(ReadOption(static_cast<IZynOptionHolder*>(remote), ZynTrackOption_SubscribeMultiStream, layer));
        EXPECT_EQ(1u, layer.uNumStreams);
        EXPECT_EQ(row.fs, layer.stStreams[0].uMaxFS);
        EXPECT_EQ(row.mbps, layer.stStreams[0].uMaxMBPS);
        EXPECT_EQ(row.bitrate, layer.stStreams[0].uMaxBitRate);
        EXPECT_EQ(vid, layer.stStreams[0].uVids[0]);
        std::vector<ZynSimulcastRequest> scr = Requests(line);
        ASSERT_EQ(1u, scr.size());
        EXPECT_EQ(vid, scr[0].vid);
        EXPECT_EQ(ZynSCRRequestPolicyType_ActiveSpeaker, scr[0].eRequestPolicyType);
        EXPECT_EQ(row.fs, scr[0].uMaxFS);
        EXPECT_EQ(3000, scr[0].uMaxFPS);
        EXPECT_EQ(row.bitrate, scr[0].uBitrate2) << "the active-speaker policy carries the rate twice";
        // The line has one remote video stream: a second subscription finds none free.
        int second = -1;
        EXPECT_EQ(ZYN_E_NOTFOUND, OnA([&](IZynMediaConnection4T* c) { return row.subscribe(c, second); }));

        EXPECT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return c->Unsubscribe(kVideo, vid); }));
        ASSERT_TRUE(ReadOption(static_cast<IZynOptionHolder*>(remote), ZynTrackOption_SubscribeMultiStream, layer));
        EXPECT_EQ(0u, layer.uNumStreams);
        EXPECT_TRUE(Requests(line).empty());
        EXPECT_EQ(ZYN_E_NOTFOUND, OnA([&](IZynMediaConnection4T* c) { return c->Unsubscribe(kVideo, vid); }));
    }
}

TEST_F(StreamsCallTest, AnObservedSourceThatChangesItsCsiIsFollowedByTheSubscriptionThatSelectedIt)
{
    int vid = -1;
    ASSERT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) {
                  return c->Subscribe(kVideo, ZynSubscribePolicy_ReceiverSelected, ZynVideoQuality_360P, vid, 0, 0,
                                      false, 0x1101, false, false);
              }));
    const struct {
        uint32_t csi;
        const char* name;
        uint32_t selected;  // what the subscription selects afterwards
    } steps[] = {
        {0x1101, "alice", 0x1101},  // first seen: nothing to follow
        {0x5501, "bob", 0x1101},    // another source
        {0x2201, "alice", 0x2201},  // alice came back with another CSI
        {0x2201, "alice", 0x2201},  // the same again changes nothing
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(std::string(step.name) + " " + std::to_string(step.csi));
        EXPECT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) {
                      return c->AddObservedCSI(step.csi, step.name, kVideo, ZynSessionType_Video);
                  }));
        std::vector<ZynSimulcastRequest> scr = Requests(Line(0, kVideo));
        ASSERT_EQ(1u, scr.size());
        EXPECT_EQ(step.selected, SelectedCsi(scr[0]));
    }
}

TEST_F(StreamsCallTest, TelephoneEventsAndPictureLossArriveAtTheFarEnd)
{
    auto flow = [&](int side, unsigned long mid) {
        ZynFlowStatistics s{};
        Line(side, mid)->GetZynSession()->GetFlowStatistics(s);
        return s;
    };
    for (unsigned char event : {1, 11, 15})
        EXPECT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return c->SendTelephoneEvent(kAudio, event, 120, 10, 0); }));
    EXPECT_TRUE(Eventually([&] { return flow(1, kAudio).telephoneEventsReceived == 3; }))
        << "B counted " << flow(1, kAudio).telephoneEventsReceived << " events";

    // A must have heard B's video to name the stream it lost.
    ASSERT_TRUE(Eventually([&] { return Line(0, kVideo)->GetReceivedPackets() > 0; }));
    IZynMediaTrack* encoder = Line(1, kVideo)->GetLocalEngineTrack();
    ASSERT_NE(nullptr, encoder);
    const uint32_t before = encoder->GetKeyFrameCount();
    EXPECT_EQ(ZYN_S_OK, OnA([](IZynMediaConnection4T* c) { return c->IndicatePictureLoss(kVideo, 0); }));
    EXPECT_TRUE(Eventually([&] { return encoder->GetKeyFrameCount() > before; }));
    EXPECT_EQ(1u, flow(1, kVideo).pictureLossReceived);
}

TEST_F(StreamsCallTest, LocalSourcesAreAddedChosenAndRemovedInTheEngine)
{
    IZynMediaSession* session = Line(0, kVideo)->GetZynSession();
    const uint32_t tracks = session->GetTrackCount();
    unsigned char vid = 0;
    ASSERT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return c->AddLocalTrack(kVideo, 0x77, vid); }));
    EXPECT_EQ(1, vid);
    EXPECT_EQ(tracks + 1, session->GetTrackCount());
    EXPECT_EQ(ZYN_E_DUPLICATE, OnA([&](IZynMediaConnection4T* c) { return c->AddLocalTrack(kVideo, 0x77, vid); }));
    std::vector<IZynMediaTrack*> local;  // in announce order: the line's own, then the added one
    std::unique_lock<std::mutex> lock(call.sink[0].mutex);
    for (const auto& r : call.sink[0].ready)
        if (r.mid == kVideo && r.direction == ZynDirection_Send) local.push_back(EngineTrack(r.track));
    lock.unlock();
    ASSERT_EQ(2u, local.size());

    const struct {
        const char* name;
        std::function<ZynResult(IZynMediaConnection4T*)> op;
        int own, added;  // option 68 of each afterwards
    } rows[] = {
        {"added source active", [](IZynMediaConnection4T* c) { return c->SetActiveLocalTrack(kVideo, 0x77); }, 0, 1},
        {"own source active", [](IZynMediaConnection4T* c) { return c->SetActiveLocalTrack(kVideo, 0); }, 1, 0},
        {"far end only sends", [](IZynMediaConnection4T* c) { return c->SetNegotiatedRemoteDirection(kVideo, ZynDirection_Send); }, 0, 0},
        {"far end receives again", [](IZynMediaConnection4T* c) { return c->SetNegotiatedRemoteDirection(kVideo, ZynDirection_SendRecv); }, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ZYN_S_OK, OnA(row.op));
        EXPECT_EQ(row.own, SendingData(local[0]));
        EXPECT_EQ(row.added, SendingData(local[1]));
    }

    EXPECT_EQ(ZYN_S_OK, OnA([](IZynMediaConnection4T* c) { return c->RemoveLocalTrack(kVideo, 0x77); }));
    EXPECT_EQ(tracks, session->GetTrackCount());
    EXPECT_EQ(ZYN_E_NOTFOUND, OnA([](IZynMediaConnection4T* c) { return c->RemoveLocalTrack(kVideo, 0x77); }));
    EXPECT_EQ(ZYN_E_NOTFOUND, OnA([](IZynMediaConnection4T* c) { return c->RemoveLocalTrack(kVideo, 0); }))
        << "the line's own source stays";

    EXPECT_EQ(ZYN_S_OK, OnA([](IZynMediaConnection4T* c) { return c->SetActiveRemoteTrack(kVideo, 0); }));
    uint32_t label = 0xFFFF;
    EXPECT_TRUE(ReadOption(static_cast<IZynOptionHolder*>(session), ZynSessionOption_ActiveRemoteLabel, label));
    EXPECT_EQ(0u, label);
}

TEST_F(StreamsCallTest, CiphersAttachToTheLinesEngineTracks)
{
    Cipher cipher;
    IZynMediaTrackBase* remote = call.sink[0].Track(kVideo, ZynDirection_Recv);
    IZynMediaTrackBase* local = call.sink[0].Track(kVideo, ZynDirection_Send);
    IZynMediaTrackBase* foreign = call.sink[1].Track(kVideo, ZynDirection_Send);
    EXPECT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return c->SetMediaContentCipher(kVideo, remote, &cipher); }));
    EXPECT_TRUE(EngineTrack(remote)->IsAttached(ZynTrackAttach_Cipher, &cipher));
    EXPECT_FALSE(EngineTrack(local)->IsAttached(ZynTrackAttach_Cipher, &cipher));
    EXPECT_EQ(ZYN_S_OK, OnA([&](IZynMediaConnection4T* c) { return c->SetMediaContentCipher(kVideo, nullptr, &cipher); }));
    EXPECT_TRUE(EngineTrack(local)->IsAttached(ZynTrackAttach_Cipher, &cipher));
    EXPECT_EQ(ZYN_E_NOTFOUND,
              OnA([&](IZynMediaConnection4T* c) { return c->SetMediaContentCipher(kVideo, foreign, &cipher); }));
    EXPECT_FALSE(EngineTrack(foreign)->IsAttached(ZynTrackAttach_Cipher, &cipher));
}

TEST_F(StreamsCallTest, TheInterpretersChannelAddsTwoSubscribedStreamsOneLanguageAtATime)
{
    CMediaConnectionInfo* line = Line(0, kAudio);
    const uint32_t tracks = line->GetZynSession()->GetTrackCount();
    auto subscribe = [](uint32_t csi) {
        return [csi](IZynMediaConnection4T* c) { return c->SubscribeAudioSI(kAudio, csi, ZynSubscribePolicy_NonMediaSource); };
    };
    ASSERT_EQ(ZYN_S_OK, OnA(subscribe(0x3000)));
    EXPECT_EQ(tracks + 2, line->GetZynSession()->GetTrackCount());
    std::vector<ZynSimulcastRequest> scr = Requests(line);
    ASSERT_EQ(2u, scr.size());
    for (const ZynSimulcastRequest& r : scr) {
        EXPECT_EQ(ZynSCRRequestPolicyType_SourceIndexed, r.eRequestPolicyType);
        EXPECT_EQ(0x3000u, SelectedCsi(r));
        EXPECT_EQ(64000u, r.uBitrate);
    }
    EXPECT_NE(scr[0].vid, scr[1].vid);
    EXPECT_EQ(ZYN_E_WRONGSTATE, OnA(subscribe(0x4000))) << "a second language before the first went";
    EXPECT_EQ(ZYN_E_NOTFOUND, OnA([](IZynMediaConnection4T* c) { return c->UnsubscribeAudioSI(kAudio, 0x4000); }));
    EXPECT_EQ(ZYN_S_OK, OnA([](IZynMediaConnection4T* c) { return c->UnsubscribeAudioSI(kAudio, 0x3000); }));
    EXPECT_EQ(tracks, line->GetZynSession()->GetTrackCount());
    EXPECT_TRUE(Requests(line).empty());
    EXPECT_EQ(ZYN_S_OK, OnA(subscribe(0x4000))) << "the next language once the first went";
}

TEST(StreamsHeaderExtensionTest, TurnedOnExtensionsAreOfferedAndAnsweredById)
{
    mstest::EngineScope engine;
    CallPair call({{ZynSessionType_Audio, kAudio}}, [](CMediaConnection&) {});
    ZynRTPHeaderExtType types[] = {ZynRTPHeaderExt_AudioLevel, ZynRTPHeaderExt_Mid, ZynRTPHeaderExt_AudioLevel};
    for (int side = 0; side < 2; ++side)
        OnMain([&] { EXPECT_EQ(ZYN_S_OK, call.Impl(side)->TurnOnRTPHeaderExtensions(kAudio, types, 3)); });
    ASSERT_TRUE(call.Exchange());
    const std::string level = "urn:ietf:params:rtp-hdrext:ssrc-audio-level", mid = "urn:ietf:params:rtp-hdrext:sdes:mid";
    EXPECT_TRUE(std::regex_search(call.sink[0].offer, std::regex("a=extmap:1(/sendrecv)? " + level + "\r\n")))
        << call.sink[0].offer;
    EXPECT_TRUE(std::regex_search(call.sink[0].offer, std::regex("a=extmap:2(/sendrecv)? " + mid + "\r\n")));
    const struct {
        int side;
        std::string uri;
        eStreamDirection direction;
        ZynResult code;
        unsigned char id;
    } rows[] = {
        {0, level, eStreamDirection_Out, ZYN_S_OK, 1},
        {0, mid, eStreamDirection_Out, ZYN_S_OK, 2},
        {1, level, eStreamDirection_In, ZYN_S_OK, 1},
        {1, mid, eStreamDirection_In, ZYN_S_OK, 2},
        {0, "urn:3gpp:video-orientation", eStreamDirection_Out, ZYN_E_NOTFOUND, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.uri + " side " + std::to_string(row.side));
        unsigned char id = 0;
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = call.Impl(row.side)->QueryRTPExtensionID(kAudio, row.uri.c_str(), row.direction, id); });
        EXPECT_EQ(row.code, r);
        EXPECT_EQ(row.id, id);
    }
}

// One connection, lines added but never negotiated.
class StreamsUnitTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 0));
        m_impl = static_cast<CMediaConnection*>(m_conn);
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudio, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, kVideo, nullptr));
    }
    void TearDown() override
    {
        m_conn->Stop();
        m_conn->Release();
        OnMain();
    }
    bool Kicked(const std::string& tag, ZynResult code) { return mstest::Kicked(m_impl->GetSessionMetrics(), tag, code); }

    mstest::EngineScope m_engine;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnection* m_impl = nullptr;
};

TEST_F(StreamsUnitTest, QoSStateAndAdhocAudioAreReadBackFromTheEngine)
{
    IZynMediaSession* session = m_impl->FindConnection(kAudio)->GetZynSession();
    for (bool running : {false, true, false}) {
        ASSERT_EQ(ZYN_S_OK, running ? m_impl->ResumeQoS(kAudio) : m_impl->PauseQoS(kAudio));
        ZynQosStateRecord state{};
        ASSERT_TRUE(ReadOption(static_cast<IZynOptionHolder*>(session), ZynSessionOption_QosState, state));
        EXPECT_EQ(ZynDirection_Send, state.direction);
        EXPECT_EQ(running ? 1 : 0, state.running);
    }

    ASSERT_EQ(ZYN_S_OK, m_impl->CreateAdhocAudioTrack(7));
    EXPECT_EQ(ZYN_E_DUPLICATE, m_impl->CreateAdhocAudioTrack(7));
    IZynMediaSession* adhoc = m_impl->GetAdhocAudio().GetSession();
    ZynAdhocModeRecord mode{};
    ASSERT_TRUE(ReadOption(static_cast<IZynOptionHolder*>(adhoc), ZynSessionOption_AdhocMode, mode));
    EXPECT_EQ(2u, mode.mode) << "prepared, then playing";
    unsigned char packet[32] = {0x80, 111, 0, 1, 0, 0, 0, 160, 0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(ZYN_S_OK, m_impl->ReceiveAdhocRTP(7, packet, sizeof packet));
    EXPECT_EQ(ZYN_E_INVALIDARG, m_impl->ReceiveAdhocRTP(8, packet, sizeof packet));
    ZynFlowStatistics flow{};
    adhoc->GetFlowStatistics(flow);
    EXPECT_EQ(1u, flow.packetsReceived);
    EXPECT_EQ(sizeof packet, flow.bytesReceived);
}

TEST_F(StreamsUnitTest, BadInputAnswersItsCodeAndReportsItsTag)
{
    using Op = std::function<ZynResult(IZynMediaConnection4T*)>;
    struct Row {
        const char* name;
        Op op;
        ZynResult code;
        const char* tag;  // the kick tag, or null where none is reported
    };
    Cipher cipher;
    unsigned char key[16] = {1};
    unsigned char packet[16] = {0x80};
    ZynRTPHeaderExtType unknownType = static_cast<ZynRTPHeaderExtType>(99);
    int vid = 0;
    unsigned char localVid = 0, id = 0;
    const Row beforeStop[] = {
        {"subscribe, unknown mid", [&](auto* c) { return c->Subscribe(kUnknown, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_360P, vid, 0, 0, false, 0, false, false); }, ZYN_E_FAIL, "Subscribe"},
        {"subscribe, audio line", [&](auto* c) { return c->Subscribe(kAudio, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_360P, vid, 0, 0, false, 0, false, false); }, ZYN_E_FAIL, "Subscribe"},
        {"subscribe, 4K video", [&](auto* c) { return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_4K, vid, 0, 0, false, 0, false, false); }, ZYN_E_INVALIDARG, "Subscribe"},
        {"subscribe, no width", [&](auto* c) { return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, 0, 360, 30, 800000, 0, vid, 0, 0, false, 0, false, false); }, ZYN_E_INVALIDARG, "Subscribe"},
        {"subscribe, before negotiation", [&](auto* c) { return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_360P, vid, 0, 0, false, 0, false, false); }, ZYN_E_WRONGSTATE, "Subscribe"},
        {"unsubscribe, unknown mid", [](auto* c) { return c->Unsubscribe(kUnknown, 0); }, ZYN_E_FAIL, "Unsubscribe"},
        {"pause QoS, unknown mid", [](auto* c) { return c->PauseQoS(kUnknown); }, ZYN_E_POINTER, "PauseQoS"},
        {"resume QoS, unknown mid", [](auto* c) { return c->ResumeQoS(kUnknown); }, ZYN_E_POINTER, "ResumeQoS"},
        {"observed CSI, no name", [](auto* c) { return c->AddObservedCSI(5, nullptr, kVideo, ZynSessionType_Video); }, ZYN_E_WRONGSTATE, "AddObsCSI"},
        {"observed CSI, unknown mid", [](auto* c) { return c->AddObservedCSI(5, "x", kUnknown, ZynSessionType_Video); }, ZYN_E_WRONGSTATE, "AddObsCSI"},
        {"telephone event, video line", [](auto* c) { return c->SendTelephoneEvent(kVideo, 1, 100, 10, 0); }, ZYN_E_INVALIDARG, nullptr},
        {"telephone event 16", [](auto* c) { return c->SendTelephoneEvent(kAudio, 16, 100, 10, 0); }, ZYN_E_INVALIDARG, nullptr},
        {"telephone event, volume 64", [](auto* c) { return c->SendTelephoneEvent(kAudio, 1, 100, 64, 0); }, ZYN_E_INVALIDARG, nullptr},
        {"telephone event, not connected", [](auto* c) { return c->SendTelephoneEvent(kAudio, 1, 100, 10, 0); }, ZYN_E_FAIL, nullptr},
        {"epoch key, unknown mid", [&](auto* c) { return c->UpdateEpochKey(kUnknown, 1, key, sizeof key, true, 1, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"epoch key, no key", [](auto* c) { return c->UpdateEpochKey(kAudio, 1, nullptr, 16, true, 1, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"epoch key", [&](auto* c) { return c->UpdateEpochKey(kAudio, 1, key, sizeof key, true, 1, 1); }, ZYN_E_NOTAVAILABLE, nullptr},
        {"use epoch", [](auto* c) { return c->SetUseEpoch(kAudio, 1); }, ZYN_E_NOTAVAILABLE, nullptr},
        {"use epoch, unknown mid", [](auto* c) { return c->SetUseEpoch(kUnknown, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"init frame encryption", [](auto* c) { return c->InitSframe(kVideo, 1, 2); }, ZYN_E_NOTAVAILABLE, nullptr},
        {"purge keys, unknown mid", [](auto* c) { return c->PurgeKeyBefore(kUnknown, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"purge keys", [](auto* c) { return c->PurgeKeyBefore(kAudio, 1); }, ZYN_E_NOTAVAILABLE, nullptr},
        {"interpreter, video line", [](auto* c) { return c->SubscribeAudioSI(kVideo, 5, ZynSubscribePolicy_NonMediaSource); }, ZYN_E_FAIL, nullptr},
        {"interpreter, no source", [](auto* c) { return c->SubscribeAudioSI(kAudio, 0, ZynSubscribePolicy_NonMediaSource); }, ZYN_E_INVALIDARG, nullptr},
        {"interpreter, before negotiation", [](auto* c) { return c->SubscribeAudioSI(kAudio, 5, ZynSubscribePolicy_NonMediaSource); }, ZYN_E_WRONGSTATE, nullptr},
        {"interpreter gone, unknown mid", [](auto* c) { return c->UnsubscribeAudioSI(kUnknown, 5); }, ZYN_E_FAIL, nullptr},
        {"remote direction, unknown mid", [](auto* c) { return c->SetNegotiatedRemoteDirection(kUnknown, ZynDirection_Send); }, ZYN_E_INVALIDARG, nullptr},
        {"remote direction 7", [](auto* c) { return c->SetNegotiatedRemoteDirection(kAudio, static_cast<ZynDirection>(7)); }, ZYN_E_INVALIDARG, nullptr},
        {"cipher, unknown mid", [&](auto* c) { return c->SetMediaContentCipher(kUnknown, nullptr, &cipher); }, ZYN_E_FAIL, "SetMedConCipher"},
        {"cipher, none", [](auto* c) { return c->SetMediaContentCipher(kAudio, nullptr, nullptr); }, ZYN_E_INVALIDARG, nullptr},
        {"extensions, unknown mid", [&](auto* c) { return c->TurnOnRTPHeaderExtensions(kUnknown, &unknownType, 1); }, ZYN_E_FAIL, "TOnRTPHExt"},
        {"extensions, none", [](auto* c) { return c->TurnOnRTPHeaderExtensions(kAudio, nullptr, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"extensions, unknown type", [&](auto* c) { return c->TurnOnRTPHeaderExtensions(kAudio, &unknownType, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"extension id, unknown mid", [&](auto* c) { return c->QueryRTPExtensionID(kUnknown, "urn:x", eStreamDirection_Out, id); }, ZYN_E_FAIL, "QRTPExtID"},
        {"extension id, no uri", [&](auto* c) { return c->QueryRTPExtensionID(kAudio, nullptr, eStreamDirection_Out, id); }, ZYN_E_INVALIDARG, nullptr},
        {"extension id, not on", [&](auto* c) { return c->QueryRTPExtensionID(kAudio, "urn:x", eStreamDirection_In, id); }, ZYN_E_NOTFOUND, nullptr},
        {"adhoc packet before a track", [&](auto* c) { return c->ReceiveAdhocRTP(1, packet, sizeof packet); }, ZYN_E_POINTER, nullptr},
        {"adhoc vid 256", [](auto* c) { return c->CreateAdhocAudioTrack(256); }, ZYN_E_INVALIDARG, nullptr},
        {"picture loss, audio line", [](auto* c) { return c->IndicatePictureLoss(kAudio, 0); }, ZYN_E_FAIL, "IndiPicLs"},
        {"picture loss, no stream", [](auto* c) { return c->IndicatePictureLoss(kVideo, 0); }, ZYN_E_NOTFOUND, nullptr},
        {"add local, unknown mid", [&](auto* c) { return c->AddLocalTrack(kUnknown, 9, localVid); }, ZYN_E_WRONGSTATE, "AddLocTrk"},
        {"remove local, unknown mid", [](auto* c) { return c->RemoveLocalTrack(kUnknown, 9); }, ZYN_E_WRONGSTATE, "RemvLocTrk"},
        {"active local, unknown mid", [](auto* c) { return c->SetActiveLocalTrack(kUnknown, 9); }, ZYN_E_WRONGSTATE, "SetActLocTrk"},
        {"active remote, unknown mid", [](auto* c) { return c->SetActiveRemoteTrack(kUnknown, 0); }, ZYN_E_WRONGSTATE, "SetActRmtTrk"},
        {"remove local, unknown source", [](auto* c) { return c->RemoveLocalTrack(kVideo, 9); }, ZYN_E_NOTFOUND, nullptr},
        {"active local, unknown source", [](auto* c) { return c->SetActiveLocalTrack(kVideo, 9); }, ZYN_E_NOTFOUND, nullptr},
        {"active remote, no stream", [](auto* c) { return c->SetActiveRemoteTrack(kVideo, 3); }, ZYN_E_NOTFOUND, nullptr},
    };
    const Row afterStop[] = {
        {"subscribe", [&](auto* c) { return c->Subscribe(kVideo, ZynSubscribePolicy_ActiveSpeaker, ZynVideoQuality_360P, vid, 0, 0, false, 0, false, false); }, ZYN_E_FAIL, "Subscribe"},
        {"pause QoS", [](auto* c) { return c->PauseQoS(kAudio); }, ZYN_E_POINTER, "PauseQoS"},
        {"telephone event", [](auto* c) { return c->SendTelephoneEvent(kAudio, 1, 100, 10, 0); }, ZYN_E_INVALIDARG, nullptr},
        {"epoch key", [&](auto* c) { return c->UpdateEpochKey(kAudio, 1, key, sizeof key, true, 1, 1); }, ZYN_E_INVALIDARG, nullptr},
        {"adhoc track", [](auto* c) { return c->CreateAdhocAudioTrack(1); }, ZYN_E_FAIL, nullptr},
        {"add local", [&](auto* c) { return c->AddLocalTrack(kVideo, 9, localVid); }, ZYN_E_WRONGSTATE, "AddLocTrk"},
    };
    auto run = [&](const Row& row) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.code, row.op(m_impl));
        if (row.tag) {
            EXPECT_TRUE(Kicked(row.tag, row.code));
        }
    };
    for (const Row& row : beforeStop) run(row);
    m_conn->Stop();
    OnMain();  // the clean-up that empties the line list runs there
    for (const Row& row : afterStop) run(row);
}

}  // namespace
