// Gathering and relaying with coturn, the independent STUN/TURN server, on loopback (the binary runs
// under tests/peers/coturn/with_coturn.sh, which gives the server's port and credentials).
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "call_harness.h"

namespace {

struct Server {
    int port = 0;
    std::string user, password;
};

Server Coturn()
{
    Server s;
    if (const char* p = std::getenv("TURN_PORT")) s.port = std::atoi(p);
    if (const char* u = std::getenv("TURN_USER")) s.user = u;
    if (const char* w = std::getenv("TURN_PASSWORD")) s.password = w;
    return s;
}

tagICEServer Record(ZynIceServerKind kind, const Server& s, const std::string& password)
{
    tagICEServer r{};
    std::snprintf(r.host, sizeof r.host, "127.0.0.1");
    r.port = static_cast<uint16_t>(s.port);
    r.kind = kind;
    std::snprintf(r.username, sizeof r.username, "%s", s.user.c_str());
    std::snprintf(r.password, sizeof r.password, "%s", password.c_str());
    return r;
}

int CountType(const std::string& sdp, const char* type)
{
    int n = 0;
    for (size_t at = sdp.find(std::string("typ ") + type); at != std::string::npos;
         at = sdp.find(std::string("typ ") + type, at + 1))
        ++n;
    return n;
}

class CoturnCallTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server = Coturn();
        if (server.port == 0) GTEST_SKIP() << "run under with_coturn.sh";
        set_local_addr_allow_list({"127.0.0.1"});
    }
    void TearDown() override { clear_local_addr_allow_list(); }
    Server server;
    mstest::EngineScope engine;
};

TEST_F(CoturnCallTest, TheOfferCarriesReflexiveAndRelayedCandidatesAndTheRelayStaysAfterTheConclusion)
{
    mstest::CallPair call({{ZynSessionType_Audio, 0}}, [&](zyn::CMediaConnection& c) {
        c.EnableICE(true);
        c.GetGlobalConfig()->AddICEServer(Record(ZynIceServer_STUN, server, ""));
        c.GetGlobalConfig()->AddICEServer(Record(ZynIceServer_TURN, server, server.password));
    });
    ASSERT_TRUE(call.Exchange());
    EXPECT_GE(CountType(call.sink[0].offer, "host"), 1);
    EXPECT_GE(CountType(call.sink[0].offer, "srflx"), 1);
    EXPECT_GE(CountType(call.sink[0].offer, "relay"), 1);
    EXPECT_GE(CountType(call.sink[1].answer, "relay"), 1);
    ASSERT_TRUE(call.WaitAll(3));
    // On loopback the host pair wins; the allocation stays, so its refreshes go on during the call.
    _tagAudioConnectionStatistics stats{};
    ASSERT_EQ(ZYN_S_OK, static_cast<IZynMediaConnection4T*>(call.Conn(0))->GetAudioStatistics(0, stats));
    EXPECT_STREQ("host", stats.path.candidateType);
    auto* connector = dynamic_cast<zyn::CIceConnector*>(call.Line(0, 0)->GetIceConnector().Get());
    ASSERT_NE(nullptr, connector);
    size_t allocations = 0;
    CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_AUDIO_NETWORK), false, [&] {
        allocations = connector->GetLiveTurnAllocations();
        return CM_OK;
    });
    EXPECT_GE(allocations, 1u);
}

TEST_F(CoturnCallTest, RelayOnlyConcludesOnRelayedPairsAndMediaCrossesThem)
{
    struct Row {
        int clientType;
        int transport;  // to the server: 0 UDP, 1 TCP
    };
    for (const Row row : {Row{0, 0}, Row{2, 0}, Row{0, 1}, Row{2, 1}}) {
        SCOPED_TRACE("client type " + std::to_string(row.clientType) + (row.transport ? ", TCP" : ", UDP"));
        mstest::CallPair call({{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}}, [&](zyn::CMediaConnection& c) {
            c.EnableICE(true);
            c.GetGlobalConfig()->SetClientType(row.clientType);
            c.GetGlobalConfig()->EnableRelayOnly(true);
            tagICEServer turn = Record(ZynIceServer_TURN, server, server.password);
            turn.transport = row.transport;
            c.GetGlobalConfig()->AddICEServer(turn);
        });
        ASSERT_TRUE(call.Exchange());
        EXPECT_EQ(0, CountType(call.sink[0].offer, "host"));
        EXPECT_EQ(0, CountType(call.sink[0].offer, "srflx"));
        EXPECT_GE(CountType(call.sink[0].offer, "relay"), 2);
        ASSERT_TRUE(call.WaitAll(3)) << "no media crossed the relays";
        for (int side = 0; side < 2; ++side) {
            for (unsigned long mid : {0ul, 1ul}) {
                _tagMediaPathStatistics path{};
                ASSERT_EQ(ZYN_S_OK, call.Line(side, mid)->GetPathStatistics(path));
                EXPECT_STREQ("relay", path.candidateType) << side << " " << mid;
                EXPECT_GT(path.packetsReceived, 0u);
            }
        }
    }
}

TEST_F(CoturnCallTest, AServerGivenByNameIsLookedUpAndGathersLikeAnyOther)
{
    mstest::CallPair call({{ZynSessionType_Audio, 0}}, [&](zyn::CMediaConnection& c) {
        c.EnableICE(true);
        tagICEServer stun = Record(ZynIceServer_STUN, server, "");
        tagICEServer turn = Record(ZynIceServer_TURN, server, server.password);
        std::snprintf(stun.host, sizeof stun.host, "localhost");
        std::snprintf(turn.host, sizeof turn.host, "localhost");
        c.GetGlobalConfig()->AddICEServer(stun);
        c.GetGlobalConfig()->AddICEServer(turn);
    });
    ASSERT_TRUE(call.Exchange());
    EXPECT_GE(CountType(call.sink[0].offer, "srflx"), 1);
    EXPECT_GE(CountType(call.sink[0].offer, "relay"), 1);
    ASSERT_TRUE(call.WaitAll(3));
}

TEST_F(CoturnCallTest, AWrongTurnPasswordLeavesHostCandidatesAndATracedFailure)
{
    mstest::TraceCapture traces;
    mstest::CallPair call({{ZynSessionType_Audio, 0}}, [&](zyn::CMediaConnection& c) {
        c.EnableICE(true);
        c.GetGlobalConfig()->AddICEServer(Record(ZynIceServer_TURN, server, "not-the-password"));
    });
    ASSERT_TRUE(call.Exchange());
    EXPECT_GE(CountType(call.sink[0].offer, "host"), 1);
    EXPECT_EQ(0, CountType(call.sink[0].offer, "relay"));
    EXPECT_TRUE(traces.Contains("turn alloc is rejected"));
    ASSERT_TRUE(call.WaitAll(3)) << "the host candidates still carry the call";
}

}  // namespace
