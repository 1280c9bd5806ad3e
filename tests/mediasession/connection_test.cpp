// The connection through its public interface: factories, lines, the negotiation state table,
// QueryInterface, Stop and the error callback.
#include <gtest/gtest.h>

#include <future>
#include <set>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "test_support.h"
#include "tp/CmThreadManager.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;

class ConnectionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_liveBase = ZynLiveObjectCount();
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 0));
        m_impl = static_cast<CMediaConnection*>(m_conn);
    }
    void TearDown() override
    {
        if (m_conn) {
            m_conn->Stop();
            m_conn->Release();
        }
        // Let the clean-up posted by Stop run, then everything the engine made must be gone.
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }

    std::vector<std::string> ErrorTags()
    {
        std::vector<std::string> tags;
        for (auto& [tag, code] : m_impl->GetSessionMetrics().GetZynErrors()) tags.push_back(tag);
        return tags;
    }

    mstest::EngineScope m_engine;
    int m_liveBase = 0;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnection* m_impl = nullptr;
};

TEST(FactoryTest, CallIdsAndOutPointers)
{
    mstest::EngineScope engine;
    struct Row {
        const char* name;
        std::function<ZynResult(IZynMediaConnection**)> make;
        bool keepsZero;
    };
    const Row rows[] = {
        {"CreateMediaConnection", [](IZynMediaConnection** o) { return CreateMediaConnection(o, 0); }, false},
        {"CreateMediaConnectionWithCsi", [](IZynMediaConnection** o) { return CreateMediaConnectionWithCsi(o, 0); }, true},
        {"CreateMediaConnection4T", [](IZynMediaConnection** o) { return CreateMediaConnection4T(0, o, false, true); }, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IZynMediaConnection* c = nullptr;
        ASSERT_EQ(ZYN_S_OK, row.make(&c));
        ASSERT_NE(nullptr, c);
        EXPECT_EQ(row.keepsZero, c->GetMediaConnectionCallID() == 0);
        EXPECT_EQ(1u, c->GetReference());  // the caller's reference only
        auto found = CMediaConnection::FindMediaConnectionByCallID(c->GetMediaConnectionCallID());
        EXPECT_EQ(static_cast<CMediaConnection*>(c), found.get());
        found = {};
        c->Stop();
        c->Release();
        // The clean-up event holds the last reference; once it ran the id is free again.
        mstest::OnMain();
        EXPECT_FALSE(CMediaConnection::FindMediaConnectionByCallID(0));
    }
    uint64_t asserts = cm_assertion_count();
    EXPECT_EQ(ZYN_E_INVALIDARG, CreateMediaConnection(nullptr, 5));
    EXPECT_EQ(asserts + 1, cm_assertion_count());
}

TEST(FactoryTest, GivenIdsAreKeptAndGeneratedOnesAvoidLiveConnections)
{
    mstest::EngineScope engine;
    IZynMediaConnection* given = nullptr;
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&given, 4242));
    EXPECT_EQ(4242u, given->GetMediaConnectionCallID());
    IZynMediaConnection* twin = nullptr;  // the svs twin of the same call
    EXPECT_EQ(ZYN_S_OK, CreateMediaConnection4T(4242, &twin, true, false));
    std::set<unsigned int> seen;
    for (int i = 0; i < 200; ++i) {
        unsigned int id = zyn::CreateNonDuplicateCallID();
        EXPECT_NE(0u, id);
        EXPECT_NE(4242u, id);
        seen.insert(id);
    }
    EXPECT_GT(seen.size(), 190u);  // draws are fresh each call, not a fixed sequence
    for (IZynMediaConnection* c : {given, twin}) {
        c->Stop();
        c->Release();
    }
}

TEST_F(ConnectionTest, AddMediaResults)
{
    struct Row {
        const char* name;
        ZynSessionType type;
        ZynDirection direction;
        unsigned long mid;
        ZynResult result;
        int lineDirection;
        bool localTrack;
    };
    // Applied in order on one connection.
    const Row rows[] = {
        {"audio receive only: no local session", ZynSessionType_Audio, ZynDirection_Recv, 0, ZYN_S_OK, 2, false},
        {"the same again changes nothing", ZynSessionType_Audio, ZynDirection_Recv, 0, ZYN_S_FALSE, 2, false},
        {"adding send makes it bidirectional", ZynSessionType_Audio, ZynDirection_Send, 0, ZYN_S_OK, 3, true},
        {"both again is a no-op", ZynSessionType_Audio, ZynDirection_SendRecv, 0, ZYN_S_FALSE, 3, true},
        {"video receive only still gets one", ZynSessionType_Video, ZynDirection_Recv, 1, ZYN_S_OK, 2, true},
        {"share receive only: none", ZynSessionType_ScreenShare, ZynDirection_Recv, 2, ZYN_S_OK, 2, false},
        {"application lines never do", ZynSessionType_Application, ZynDirection_SendRecv, 3, ZYN_S_OK, 3, false},
        {"audio slides send", ZynSessionType_AudioSlide, ZynDirection_Send, 4, ZYN_S_OK, 1, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.result, m_conn->AddMedia(row.type, row.direction, row.mid, nullptr));
        zyn::CMediaConnectionInfo* line = m_impl->FindConnection(row.mid);
        ASSERT_NE(nullptr, line);
        EXPECT_EQ(row.type, line->GetSessionType());
        EXPECT_EQ(row.lineDirection, line->GetDirection());
        EXPECT_EQ(row.localTrack, line->GetLocalEngineTrack() != nullptr);
    }
    EXPECT_EQ(5u, m_impl->GetConnectionCount());
    // Counted per AddMedia that changed a non-application line: audio twice (receive, then send).
    EXPECT_EQ(5, m_impl->GetIceLineCount());
    // Lines run on the network thread of their kind.
    EXPECT_EQ(TT_AUDIO_NETWORK, m_impl->FindConnection(0ul)->GetThreadType());
    EXPECT_EQ(TT_VIDEO_NETWORK, m_impl->FindConnection(1ul)->GetThreadType());
    EXPECT_EQ(TT_SHARE_NETWORK, m_impl->FindConnection(2ul)->GetThreadType());
    EXPECT_EQ(3, m_impl->FindConnection(0ul)->GetMaxSources());
}

TEST_F(ConnectionTest, UpdateMediaMakesTheLocalSessionWhenSendIsNew)
{
    EXPECT_EQ(ZYN_E_POINTER, m_conn->UpdateMedia(ZynDirection_Send, 9));
    m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_Recv, 0, nullptr);
    EXPECT_EQ(nullptr, m_impl->FindConnection(0ul)->GetLocalEngineTrack());
    EXPECT_EQ(ZYN_S_OK, m_conn->UpdateMedia(ZynDirection_SendRecv, 0));
    EXPECT_NE(nullptr, m_impl->FindConnection(0ul)->GetLocalEngineTrack());
    EXPECT_EQ(3, m_impl->FindConnection(0ul)->GetDirection());
}

// The negotiation table: each row reaches a state on a connection with one audio line, then
// makes one call. Remote texts are fixed descriptions of one audio line.
TEST_F(ConnectionTest, NegotiationStateTable)
{
    enum Op { Offer, Answer, RemoteOffer, RemoteAnswer };
    struct Row {
        const char* name;
        std::vector<Op> setup;
        Op op;
        ZynResult result;
        int stateAfter;
        const char* kickTag;  // null: no failure recorded
    };
    const Row rows[] = {
        {"offer in state 0", {}, Offer, ZYN_S_OK, 2, nullptr},
        {"answer in state 0", {}, Answer, ZYN_E_WRONGSTATE, 0, "CreateAns"},
        {"new offer in state 2", {Offer}, Offer, ZYN_S_OK, 2, nullptr},
        {"answer in state 2", {Offer}, Answer, ZYN_E_WRONGSTATE, 2, "CreateAns"},
        {"remote offer in state 2 (no glare resolution)", {Offer}, RemoteOffer, ZYN_E_WRONGSTATE, 2, nullptr},
        {"remote answer in state 2", {Offer}, RemoteAnswer, ZYN_S_OK, 3, nullptr},
        {"remote answer in state 0", {}, RemoteAnswer, ZYN_E_WRONGSTATE, 0, nullptr},
        {"offer in state 1", {RemoteOffer}, Offer, ZYN_E_WRONGSTATE, 1, "CreateOffer"},
        {"answer in state 1 concludes", {RemoteOffer}, Answer, ZYN_S_OK, 3, nullptr},
        {"remote offer in state 1", {RemoteOffer}, RemoteOffer, ZYN_E_WRONGSTATE, 1, nullptr},
        {"answer again in state 3", {RemoteOffer, Answer}, Answer, ZYN_S_OK, 3, nullptr},
        {"new offer in state 3 stays there", {Offer, RemoteAnswer}, Offer, ZYN_S_OK, 3, nullptr},
        {"remote offer in state 3 waits for the answer", {Offer, RemoteAnswer}, RemoteOffer, ZYN_S_OK, 3, nullptr},
        {"answer in state 3 with no remote offer", {Offer, RemoteAnswer}, Answer, ZYN_E_FAIL, 3, "CreateAns"},
    };
    const char* text =
        "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nt=0 0\r\nm=audio 50000 RTP/AVPF 100\r\n"
        "c=IN IP4 127.0.0.1\r\na=rtpmap:100 opus/48000/2\r\na=sendrecv\r\n";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IZynMediaConnection* c = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&c, 0));
        auto* impl = static_cast<CMediaConnection*>(c);
        ASSERT_EQ(ZYN_S_OK, c->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr));
        auto run = [&](Op op) {
            switch (op) {
            case Offer: return c->CreateOffer();
            case Answer: return c->CreateAnswer();
            case RemoteOffer: return c->SetReceivedSDP(ZynSdpType_Offer, text, nullptr, nullptr);
            case RemoteAnswer: return c->SetReceivedSDP(ZynSdpType_Answer, text, nullptr, nullptr);
            }
            return ZYN_E_FAIL;
        };
        bool setupOk = true;
        for (Op op : row.setup) setupOk = setupOk && ZYN_SUCCEEDED(run(op));
        EXPECT_TRUE(setupOk);
        if (setupOk) {
            EXPECT_EQ(row.result, run(row.op));
            EXPECT_EQ(row.stateAfter, c->GetSDPStatus());
            if (row.op == Offer || row.op == Answer) {
                EXPECT_TRUE(impl->IsCallStarted());  // even when refused
            }
            auto errors = impl->GetSessionMetrics().GetZynErrors();
            if (row.kickTag) {
                ASSERT_EQ(1u, errors.size());
                EXPECT_EQ(row.kickTag, errors[0].first);
                EXPECT_EQ(row.result, errors[0].second);
            } else {
                EXPECT_TRUE(errors.empty());
            }
            EXPECT_EQ(ZYN_S_OK, c->StartSDPRenegotiation());
            EXPECT_EQ(0, c->GetSDPStatus());
            EXPECT_FALSE(impl->IsCallStarted());
        }
        c->Stop();
        c->Release();
    }
}

TEST_F(ConnectionTest, EmptyRemoteTextIsRefusedBeforeAnyThreadHop)
{
    EXPECT_EQ(ZYN_E_INVALIDARG, m_conn->SetReceivedSDP(ZynSdpType_Offer, nullptr, nullptr, nullptr));
    EXPECT_EQ(ZYN_E_INVALIDARG, m_conn->SetReceivedSDP(ZynSdpType_Offer, "", nullptr, nullptr));
    EXPECT_EQ(0, m_conn->GetSDPStatus());
}

TEST_F(ConnectionTest, QueryInterface)
{
    EXPECT_EQ(ZYN_E_POINTER, m_conn->QueryInterface(ZYNIID_IZynMediaConnection, nullptr));
    void* out = reinterpret_cast<void*>(1);
    const _tagUUID other = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    EXPECT_EQ(ZYN_E_NOINTERFACE, m_conn->QueryInterface(other, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(ZYN_S_OK, m_conn->QueryInterface(ZYNIID_IZynMediaConnection, &out));
    EXPECT_EQ(static_cast<IZynMediaConnection*>(m_conn), out);
    EXPECT_EQ(2u, m_conn->GetReference());
    static_cast<IZynMediaConnection*>(out)->Release();
}

TEST_F(ConnectionTest, StopTwiceLeavesTheObjectValidUntilTheLastRelease)
{
    m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr);
    m_conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 1, nullptr);
    mstest::TraceCapture trace;
    // On the main thread, as an application does: the clean-up events run there too.
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    CmInvokeInThread(main, false, [this] {
        m_conn->Stop();
        m_conn->Stop();
        return CM_OK;
    });
    EXPECT_EQ(2, trace.Count("CMediaConnection::Stop successfully."));
    // The clean-up events ran on the main thread; the application's reference still works.
    mstest::OnMain();
    EXPECT_EQ(nullptr, m_impl->GetEngine());
    EXPECT_EQ(0u, m_impl->GetConnectionCount());
    EXPECT_EQ(m_conn->GetMediaConnectionCallID(), m_impl->GetIdentityCallId());
    EXPECT_EQ(ZYN_E_POINTER, m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_Send, 0, nullptr));
}

TEST_F(ConnectionTest, DeviceErrorsAreRecordedOnceByNameAndAllReachTheSink)
{
    struct Sink : IZynMediaConnectionSink {
        void OnError(int code, void*) override { codes.push_back(code); }
        std::vector<int> codes;
    } sink;
    m_conn->SetSink(&sink);
    const int codes[] = {0x46014106, 0x46014106, 0x46014999, 0x4601411d, 0x46014126};
    for (int code : codes) m_impl->callBackOnError(code, nullptr);
    EXPECT_EQ(std::vector<int>(std::begin(codes), std::end(codes)), sink.codes);
    EXPECT_EQ((std::vector<std::string>{"AudioServiceRunOut", "AudioDeviceNotAuthorized", "AudioCaptureFewCaptureData"}),
              m_impl->GetNotifiedErrors());
}

TEST_F(ConnectionTest, MediaReadyIsAnnouncedOnTheMainThread)
{
    struct Sink : IZynMediaConnectionSink {
        void OnMediaReady(unsigned long mid, ZynDirection d, ZynSessionType type, IZynMediaTrackBase*) override
        {
            bool onMain = CCmThreadManager::Instance()->GetThread(TT_MAIN)->IsCurrentThread();
            done.set_value(onMain && mid == 7 && d == ZynDirection_Send && type == ZynSessionType_Video);
        }
        std::promise<bool> done;
    } sink;
    m_conn->SetSink(&sink);
    m_conn->AddMedia(ZynSessionType_Video, ZynDirection_Send, 7, nullptr);
    auto f = sink.done.get_future();
    ASSERT_EQ(std::future_status::ready, f.wait_for(std::chrono::seconds(10)));
    EXPECT_TRUE(f.get());
}

}  // namespace
