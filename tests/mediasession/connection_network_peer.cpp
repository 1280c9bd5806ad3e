// Servers given to the connection as text, proven against coturn on loopback (the binary runs under
// tests/peers/coturn/with_coturn.sh, which gives the server's port and credentials): the next offer
// carries what the server answered, and a line asked again hears the relay's answer on its sink.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "call_harness.h"

namespace {

using mstest::OnMain;

int CountType(const std::string& sdp, const char* type)
{
    int n = 0;
    const std::string needle = std::string("typ ") + type;
    for (size_t at = sdp.find(needle); at != std::string::npos; at = sdp.find(needle, at + 1)) ++n;
    return n;
}

class NetworkPeerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* port = std::getenv("TURN_PORT");
        if (!port) GTEST_SKIP() << "run under with_coturn.sh";
        m_server = std::string("127.0.0.1:") + port;
        m_credential = std::string(std::getenv("TURN_USER")) + ":" + std::getenv("TURN_PASSWORD");
        set_local_addr_allow_list({"127.0.0.1"});
    }
    void TearDown() override { clear_local_addr_allow_list(); }
    std::string m_server, m_credential;
    mstest::EngineScope m_engine;
};

// What each configuration puts in the offer; the call then connects over it.
TEST_F(NetworkPeerTest, ConfiguredServersReachTheNextOffer)
{
    struct Row {
        const char* name;
        bool stun, turn, cancelTurn;
        ZynTURNTransportType transport;
        bool srflx, relay;
        bool alternate = false;
    };
    const Row rows[] = {
        {"STUN only", true, false, false, ZynTURNTransport_UDP, true, false},
        {"STUN and TURN over UDP", true, true, false, ZynTURNTransport_UDP, true, true},
        // The allocation's mapped address is a reflexive candidate too.
        {"TURN over TCP", false, true, false, ZynTURNTransport_TCP, true, true},
        {"TURN cancelled", true, true, true, ZynTURNTransport_UDP, true, false},
        // Nobody answers on port 1: the relay comes from the alternate.
        {"TURN through an alternate", false, true, false, ZynTURNTransport_UDP, true, true, true},
        {"nothing", false, false, false, ZynTURNTransport_UDP, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        mstest::CallPair call({{ZynSessionType_Audio, 0}}, [&](zyn::CMediaConnection& c) {
            c.EnableICE(true);
            if (row.stun) {
                EXPECT_EQ(ZYN_S_OK, c.ConfigureSTUN(("stun:" + m_server).c_str(), nullptr, nullptr));
            }
            if (row.turn) {
                const std::string server = "turn:" + m_server;
                const char* alternates[] = {server.c_str(), nullptr};
                EXPECT_EQ(ZYN_S_OK, c.ConfigureTURN(row.alternate ? "127.0.0.1:1" : server.c_str(), m_credential.c_str(),
                                                    row.transport, row.alternate ? alternates : nullptr));
            }
            if (row.cancelTurn) {
                EXPECT_EQ(ZYN_S_OK, c.CancelConfigureTurn());
            }
        });
        ASSERT_TRUE(call.Exchange());
        EXPECT_GE(CountType(call.sink[0].offer, "host"), 1);
        EXPECT_EQ(row.srflx, CountType(call.sink[0].offer, "srflx") > 0);
        EXPECT_EQ(row.relay, CountType(call.sink[0].offer, "relay") > 0);
        EXPECT_TRUE(call.WaitAll(3));
    }
}

struct AllocateSink : mstest::CallSink {
    void OnAllocateTurnRelayedAndReflexiveAddressComplete(unsigned long mid, bool ok, const char* text) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        results.push_back(std::to_string(mid) + " " + (ok ? "ok" : "failed") + " " + (text ? text : "(null)"));
        changed.notify_all();
    }
    std::vector<std::string> results;
};

// Asked again after its offer, a line's connector allocates anew and the sink hears how it went.
TEST_F(NetworkPeerTest, AllocatingAgainEndsOnTheSink)
{
    struct Row {
        const char* password;
        const char* expected;
    };
    const std::string good = m_credential;
    const std::string bad = std::string(std::getenv("TURN_USER")) + ":wrong";
    for (const Row& row : {Row{good.c_str(), "5 ok relay"}, Row{bad.c_str(), "5 failed "}}) {
        SCOPED_TRACE(row.expected);
        AllocateSink sink;
        IZynMediaConnection* conn = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 300));
        auto* c = static_cast<zyn::CMediaConnection*>(conn);
        conn->SetSink(&sink);
        c->EnableICE(true);
        ASSERT_EQ(ZYN_S_OK, c->ConfigureTURN(m_server.c_str(), row.password, ZynTURNTransport_UDP, nullptr));
        ASSERT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 5, nullptr));
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = conn->CreateOffer(); });
        ASSERT_EQ(ZYN_S_OK, r);
        ASSERT_TRUE(sink.Wait([&] { return !sink.offer.empty(); }));
        OnMain([&] { r = c->allocateTurnRelayedAndReflexiveAddress(5); });
        EXPECT_EQ(ZYN_S_OK, r);
        EXPECT_TRUE(sink.Wait([&] { return !sink.results.empty(); }));
        {
            std::lock_guard<std::mutex> lock(sink.mutex);
            EXPECT_EQ(std::vector<std::string>{row.expected}, sink.results);
        }
        OnMain([&] { conn->Stop(); });
        conn->Release();
        OnMain();
    }
}

}  // namespace
