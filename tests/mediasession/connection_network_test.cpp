// The connection's network operations read where they land: RTP counted by the far connection's
// line and engine after a plain connect between chosen ports, a socket that the kernel refuses once
// listening stopped, packets an application transport receives and decodes, and the codes of every
// bad call.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "call_harness.h"
#include "mediasession/ZynTransport.h"

namespace {

using mstest::CallPair;
using mstest::OnMain;

constexpr unsigned long kAudio = 0, kVideo = 1, kUnknown = 77;
constexpr int kConnected = 2;

sockaddr_in Loopback(uint16_t port)
{
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return at;
}

// ECONNREFUSED when the kernel answers a datagram to the port with "nobody is bound there", else 0.
int ProbeUdp(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(port);
    timeval wait{0, 300000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    char buffer[2048] = "probe";
    const bool refused = connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 &&
                         send(fd, buffer, 5, 0) == 5 && recv(fd, buffer, sizeof buffer, 0) < 0 && errno == ECONNREFUSED;
    close(fd);
    return refused ? ECONNREFUSED : 0;
}

// A test socket can take the UDP port on loopback: nobody holds it.
bool UdpPortFree(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in at = Loopback(port);
    const bool free = bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
    close(fd);
    return free;
}

// An application transport: decodes the RTP header of what the engine hands it, refuses a packet
// as would-block when asked to, and can hand each packet on to another connection's line.
struct AppTransport : IZynMediaTransport {
    int32_t GetTransportType() override { return 0; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override
    {
        ++calls;
        if (blockNext.exchange(false)) return ZynTransport_WouldBlock;
        if (length >= 12 && (data[0] >> 6) == 2) ++rtp;
        if (forward) forward(data, length);
        return ZYN_S_OK;
    }
    ZynResult SendRTCPPacket(const uint8_t*, uint32_t) override { return ZYN_S_OK; }
    std::atomic<int> calls{0};
    std::atomic<int> rtp{0};  // well-formed version 2 headers
    std::atomic<bool> blockNext{false};
    std::function<void(const uint8_t*, uint32_t)> forward;
};

// The call's result, made on the main thread as the API asks.
ZynResult OnMainResult(const std::function<ZynResult()>& call)
{
    ZynResult r = ZYN_E_FAIL;
    OnMain([&] { r = call(); });
    return r;
}

// Polls a counter that other threads move; false when it did not reach the bound in time.
bool Reaches(const std::function<uint64_t()>& counter, uint64_t atLeast,
             std::chrono::milliseconds bound = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (counter() < atLeast) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class ConnectionNetworkTest : public ::testing::Test {
protected:
    mstest::EngineScope m_engine;
};

// Two connections that never negotiate: each binds a port, learns the other's as its send
// destination, and connects; RTP crosses both ways, counted at the far end. Disconnecting both ends
// the flow while the ports stay bound; stopping the listening frees the port, so the kernel refuses
// a datagram sent there.
TEST_F(ConnectionNetworkTest, PlainPathCarriesRtpUntilDisconnectedAndStopListeningFreesThePort)
{
    CallPair call({{ZynSessionType_Audio, kAudio}}, [](zyn::CMediaConnection&) {});
    unsigned int port[2] = {0, 0};
    for (int side = 0; side < 2; ++side) {
        ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(side)->SetLocalPort(kAudio, "127.0.0.1", 0, true, &port[side]); }));
        EXPECT_GE(port[side], 52000u);
        EXPECT_LE(port[side], 52049u);
        EXPECT_FALSE(UdpPortFree(static_cast<uint16_t>(port[side])));
    }
    for (int side = 0; side < 2; ++side) {
        IBaseConfig* config = call.Impl(side)->GetAudioConfig(kAudio);
        ASSERT_EQ(ZYN_S_OK, config->SetSendDestination("127.0.0.1", static_cast<uint16_t>(port[1 - side])));
        ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(side)->ConnectRemote(kAudio, true); }));
    }
    ASSERT_TRUE(call.WaitAll(kConnected));
    for (int side = 0; side < 2; ++side) {
        zyn::CMediaConnectionInfo* far = call.Line(1 - side, kAudio);
        EXPECT_TRUE(Reaches([&] { return far->GetReceivedPackets(); }, 20)) << "towards side " << 1 - side;
        EXPECT_TRUE(Reaches(
            [&] {
                _tagMediaPathStatistics path{};
                far->GetPathStatistics(path);
                return path.packetsReceived;
            },
            20));
    }

    for (int side = 0; side < 2; ++side) {
        EXPECT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(side)->DisconnectRemote(kAudio); }));
    }
    const uint64_t before = call.Line(1, kAudio)->GetReceivedPackets();
    // Audio frames come every 20 ms: half a second of a live path would bring about 25.
    EXPECT_FALSE(Reaches([&] { return call.Line(1, kAudio)->GetReceivedPackets(); }, before + 5,
                         std::chrono::milliseconds(500)));
    EXPECT_FALSE(UdpPortFree(static_cast<uint16_t>(port[1]))) << "a disconnect keeps the port";

    EXPECT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(1)->StopListening(kAudio); }));
    EXPECT_EQ(ECONNREFUSED, ProbeUdp(static_cast<uint16_t>(port[1])));
    EXPECT_TRUE(UdpPortFree(static_cast<uint16_t>(port[1])));
}

// A fixed port is taken as it is, with the next one for RTCP without mux; port 0 chooses in the
// line's configured range, which is also what the connection reports as its port range.
TEST_F(ConnectionNetworkTest, FixedPortsAndConfiguredRangesAreWhereTheLineListens)
{
    CallPair call({{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}}, [](zyn::CMediaConnection&) {});
    zyn::CMediaConnection* c = call.Impl(0);
    EXPECT_EQ(52000, c->GetPortMin());
    EXPECT_EQ(52199, c->GetPortMax());
    ASSERT_EQ(ZYN_S_OK, c->GetVideoConfig(kVideo)->SetIceLocalPortRange(41000, 41009));
    EXPECT_EQ(41000, c->GetPortMin());
    EXPECT_EQ(52049, c->GetPortMax());

    struct Row {
        const char* name;
        unsigned long mid;
        unsigned short port;
        bool mux;
        unsigned int low, high;  // where the bound port must lie
        bool rtcpNext;           // the next port is bound too
    };
    const Row rows[] = {
        {"fixed, RTCP apart", kAudio, 43020, false, 43020, 43020, true},
        // Once a line muxed RTCP it keeps doing so: the video line's rows both mux.
        {"fixed, muxed", kVideo, 43010, true, 43010, 43010, false},
        {"back to the configured range", kVideo, 0, true, 41000, 41009, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        unsigned int bound = 0;
        ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return c->SetLocalPort(row.mid, "127.0.0.1", row.port, row.mux, &bound); }));
        EXPECT_GE(bound, row.low);
        EXPECT_LE(bound, row.high);
        EXPECT_FALSE(UdpPortFree(static_cast<uint16_t>(bound)));
        EXPECT_EQ(!row.rtcpNext, UdpPortFree(static_cast<uint16_t>(bound + 1)));
    }
}

// The engine sends through the application's transport; its packets, handed to the far connection
// as received RTP, are counted there. A would-block answer stops the engine until OnSendReady.
TEST_F(ConnectionNetworkTest, ApplicationTransportCarriesTheEnginesPacketsAndPausesWhileBlocked)
{
    CallPair call({{ZynSessionType_Audio, kAudio}}, [](zyn::CMediaConnection&) {});
    // The far line needs its remote tracks to take packets: a bound port makes them.
    unsigned int ignored = 0;
    OnMain([&] { call.Impl(1)->SetLocalPort(kAudio, "127.0.0.1", 0, true, &ignored); });
    AppTransport transport;
    zyn::CMediaConnection* far = call.Impl(1);
    transport.forward = [far](const uint8_t* data, uint32_t length) {
        far->ReceiveRTP(kAudio, const_cast<uint8_t*>(data), length, nullptr, nullptr);
    };
    ASSERT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(0)->SetTransport(kAudio, &transport, false); }));
    ASSERT_TRUE(call.sink[0].Wait([&] { return call.sink[0].Saw(kAudio, kConnected); }));
    EXPECT_TRUE(Reaches([&] { return static_cast<uint64_t>(transport.rtp.load()); }, 10));
    EXPECT_TRUE(Reaches([&] { return call.Line(1, kAudio)->GetReceivedPackets(); }, 10));

    transport.blockNext = true;
    ASSERT_TRUE(Reaches([&] { return static_cast<uint64_t>(!transport.blockNext.load()); }, 1));
    const int blockedAt = transport.calls.load();
    EXPECT_FALSE(Reaches([&] { return static_cast<uint64_t>(transport.calls.load()); },
                         static_cast<uint64_t>(blockedAt) + 2, std::chrono::milliseconds(400)))
        << "the engine kept sending to a blocked transport";
    EXPECT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(0)->OnSendReady(kAudio); }));
    EXPECT_TRUE(Reaches([&] { return static_cast<uint64_t>(transport.calls.load()); },
                        static_cast<uint64_t>(blockedAt) + 10));

    // Detached, the transport hears nothing more.
    EXPECT_EQ(ZYN_S_OK, OnMainResult([&] { return call.Impl(0)->SetTransport(kAudio, nullptr, false); }));
    const int detachedAt = transport.calls.load();
    EXPECT_FALSE(Reaches([&] { return static_cast<uint64_t>(transport.calls.load()); },
                         static_cast<uint64_t>(detachedAt) + 2, std::chrono::milliseconds(300)));
}

// Every operation with a mid that has no line, bad arguments, and calls in the wrong state; then the
// same after Stop, when every mid has become unknown.
TEST_F(ConnectionNetworkTest, BadCallsGiveTheirCodes)
{
    CallPair call({{ZynSessionType_Audio, kAudio}}, [](zyn::CMediaConnection&) {});
    zyn::CMediaConnection* c = call.Impl(0);
    IZynMediaConnection4T* api = c;
    AppTransport transport;
    unsigned int port = 0;
    const char* spoiled[] = {"b.test", "bad:host:name", nullptr};
    struct Row {
        const char* name;
        std::function<ZynResult()> call;
        ZynResult live;
        ZynResult stopped;
    };
    const std::vector<Row> rows = {
        {"port of an unknown mid", [&] { return api->SetLocalPort(kUnknown, "127.0.0.1", 0, true, &port); }, ZYN_E_FAIL,
         ZYN_E_FAIL},
        {"port on no address", [&] { return api->SetLocalPort(kAudio, "no.address", 0, true, &port); },
         ZYN_E_INVALIDARG, ZYN_E_FAIL},
        {"last port without room for RTCP", [&] { return api->SetLocalPort(kAudio, "127.0.0.1", 65535, false, &port); },
         ZYN_E_INVALIDARG, ZYN_E_FAIL},
        {"connect of an unknown mid", [&] { return api->ConnectRemote(kUnknown, true); }, ZYN_E_FAIL, ZYN_E_FAIL},
        {"connect before a port", [&] { return api->ConnectRemote(kAudio, true); }, ZYN_E_WRONGSTATE, ZYN_E_FAIL},
        {"disconnect of an unknown mid", [&] { return api->DisconnectRemote(kUnknown); }, ZYN_E_FAIL, ZYN_E_FAIL},
        {"stop listening of an unknown mid", [&] { return api->StopListening(kUnknown); }, ZYN_E_FAIL, ZYN_E_FAIL},
        {"transport of an unknown mid", [&] { return api->SetTransport(kUnknown, &transport, false); }, ZYN_E_FAIL,
         ZYN_E_FAIL},
        {"send ready of an unknown mid", [&] { return api->OnSendReady(kUnknown); }, ZYN_E_FAIL, ZYN_E_FAIL},
        {"allocate of an unknown mid", [&] { return api->allocateTurnRelayedAndReflexiveAddress(kUnknown); },
         ZYN_E_FAIL, ZYN_E_FAIL},
        {"allocate without servers", [&] { return api->allocateTurnRelayedAndReflexiveAddress(kAudio); }, ZYN_S_FALSE,
         ZYN_E_FAIL},
        {"reset of an unknown mid", [&] { return api->resetIceForBwcCalling(kUnknown, true, true); }, ZYN_E_FAIL,
         ZYN_E_FAIL},
        {"zarn reset of an unknown mid", [&] { return api->resetIceForZarnCalling(kUnknown); }, ZYN_E_FAIL,
         ZYN_E_FAIL},
        {"TURN over another transport", [&] { return api->ConfigureTURN("a.test", "u:p", ZynTURNTransportType(7), nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"null TURN server", [&] { return api->ConfigureTURN(nullptr, "u:p", ZynTURNTransport_UDP, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"null STUN server", [&] { return api->ConfigureSTUN(nullptr, nullptr, nullptr); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG},
        {"IPv6 server without brackets", [&] { return api->ConfigureTURN("::1:5000", "u:p", ZynTURNTransport_UDP, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"server port 0", [&] { return api->ConfigureSTUN("a.test:0", nullptr, nullptr); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG},
        {"server port past 65535", [&] { return api->ConfigureSTUN("a.test:65536", nullptr, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"unclosed bracket", [&] { return api->ConfigureSTUN("[::1", nullptr, nullptr); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG},
        {"empty server", [&] { return api->ConfigureSTUN("", nullptr, nullptr); }, ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"TURN without credential", [&] { return api->ConfigureTURN("a.test", nullptr, ZynTURNTransport_UDP, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"TURN without user", [&] { return api->ConfigureTURN("a.test", ":p", ZynTURNTransport_UDP, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"one bad alternate", [&] { return api->ConfigureSTUN("a.test", nullptr, spoiled); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG},
        {"cancel with nothing configured", [&] { return api->CancelConfigureStun(); }, ZYN_S_FALSE, ZYN_S_FALSE},
        {"server check without an address", [&] { return api->CheckIceServerConnectiveWithLocalIp(nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG},
        {"server check", [&] { return api->CheckIceServerConnectiveWithLocalIp("127.0.0.1"); }, ZYN_E_NOTAVAILABLE,
         ZYN_E_NOTAVAILABLE},
        {"SIP checks", [&] { return api->StartIceConnectivityCheckForSipCall(); }, ZYN_E_NOTAVAILABLE,
         ZYN_E_NOTAVAILABLE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.live, OnMainResult(row.call));
    }
    EXPECT_EQ(0, c->GetGlobalConfigImpl().getICEServerNum()) << "a refused server text changed the servers";
    bool kicked = false;
    for (auto& [tag, code] : c->GetSessionMetrics().GetZynErrors()) kicked = kicked || (tag == "SetTransport" && code == ZYN_E_FAIL);
    EXPECT_TRUE(kicked);

    OnMain([&] { c->Stop(); });
    OnMain();
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", after Stop");
        EXPECT_EQ(row.stopped, OnMainResult(row.call));
    }
    EXPECT_EQ(0, c->GetPortMin());
    EXPECT_EQ(0, c->GetPortMax());
}

}  // namespace
