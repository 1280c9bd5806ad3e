// The connector's TURN permissions against a TURN server the test plays on a loopback socket, with
// time driven by the test: relayed checks to three peers while the first permission request is
// still unanswered (the client takes one at a time) end in a request that names all three, since
// the client keeps and refreshes one record only.
#include <poll.h>

#include <algorithm>
#include <set>

#include "ice_connector_harness.h"
#include "stunlib.h"

namespace {

using icetest::OnNetwork;
using icetest::Settle;
using icetest::Side;
using zyn::IceTimer;
using Msg = zyn_gatewalk::StunMessage;

// The server's socket; reads wait at most a little, so the test can tick between them.
class ServerSocket {
public:
    ServerSocket()
    {
        m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        CCmInetAddr any("127.0.0.1", 0);
        bind(m_fd, any.GetPtr(), any.GetSize());
    }
    ~ServerSocket() { close(m_fd); }
    uint16_t Port() const
    {
        sockaddr_in s{};
        socklen_t len = sizeof s;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&s), &len);
        return ntohs(s.sin_port);
    }
    // One decoded STUN message, or null when none came within 20 ms.
    std::unique_ptr<Msg> Next()
    {
        pollfd p{m_fd, POLLIN, 0};
        if (poll(&p, 1, 20) <= 0) return nullptr;
        uint8_t bytes[2048];
        socklen_t len = sizeof m_from;
        const ssize_t n = recvfrom(m_fd, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&m_from), &len);
        auto m = std::make_unique<Msg>();
        if (n <= 0 || !zyn_gatewalk::stunlib_DecodeMessage(bytes, static_cast<uint32_t>(n), m.get(), nullptr, nullptr))
            return nullptr;
        return m;
    }
    // A success answer to `request`, back to where it came from.
    void Answer(const Msg& request, uint16_t type, const std::function<void(Msg&)>& fill = {})
    {
        auto m = std::make_unique<Msg>();
        m->msgHdr.type = type;
        m->msgHdr.id = request.msgHdr.id;
        if (fill) fill(*m);
        uint8_t out[1024];
        const uint32_t n = zyn_gatewalk::stunlib_encodeMessage(m.get(), out, sizeof out, nullptr, 0, nullptr);
        ASSERT_GT(n, 0u);
        sendto(m_fd, out, n, 0, reinterpret_cast<const sockaddr*>(&m_from), sizeof m_from);
    }
    const sockaddr_in& From() const { return m_from; }

private:
    int m_fd = -1;
    sockaddr_in m_from{};
};

gatewalk::StunIPAddress StunAddr(uint32_t hostOrderIp, uint16_t port)
{
    gatewalk::StunIPAddress a{};
    gatewalk::stunlib_setIP4Address(&a, hostOrderIp, port);
    return a;
}

std::set<std::string> PeerIps(const Msg& m)
{
    std::set<std::string> out;
    for (uint32_t i = 0; i < m.xorPeerAddrEntries && i < gatewalk::STUN_MAX_PEER_ADDR; ++i) {
        const uint32_t ip = m.xorPeerAddress[i].addr.v4;
        out.insert(std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." +
                   std::to_string((ip >> 8) & 0xFF) + "." + std::to_string(ip & 0xFF));
    }
    return out;
}

class IceTurnPermissionTest : public ::testing::Test {
protected:
    void SetUp() override { set_local_addr_allow_list({"127.0.0.1"}); }
    void TearDown() override { clear_local_addr_allow_list(); }
    mstest::EngineScope engine;
};

TEST_F(IceTurnPermissionTest, PeersAskedWhileARequestIsUnansweredGoWithTheNextOneAndEveryRequestNamesThemAll)
{
    ServerSocket server;
    Side<zyn::CIceConnector> a;
    tagICEServer turn{};
    std::snprintf(turn.host, sizeof turn.host, "127.0.0.1");
    turn.port = server.Port();
    turn.kind = ZynIceServer_TURN;
    std::snprintf(turn.username, sizeof turn.username, "user");
    std::snprintf(turn.password, sizeof turn.password, "secret");
    ASSERT_EQ(ZYN_S_OK, a.config.AddICEServer(turn));
    a.Gather(true);
    OnNetwork([&] { a.connector->allocateTurnRelayedAndReflexiveAddress(false, [](bool, const std::string&) {}); });
    // Time passes 50 ms a tick; what the connector sent meanwhile is read after each.
    const auto tick = [&](bool checks) {
        OnNetwork([&] {
            for (int i = 0; i < 5; ++i) checks ? a.Step() : void(a.timers.now += 10);
            a.connector->OnIceTimer(IceTimer::Turn);
        });
        Settle();
    };
    std::unique_ptr<Msg> allocate;
    for (int i = 0; i < 100 && !allocate; ++i) {
        for (auto m = server.Next(); m && !allocate; m = server.Next())
            if (m->msgHdr.type == gatewalk::STUN_MSG_AllocateRequestMsg) allocate = std::move(m);
        if (!allocate) tick(false);
    }
    ASSERT_TRUE(allocate) << "no Allocate came";
    server.Answer(*allocate, gatewalk::STUN_MSG_AllocateResponseMsg, [&](Msg& m) {
        m.hasXorRelayAddress = 1;
        m.xorRelayAddress = StunAddr(0x7F000001, 50000);
        m.hasXorMappedAddress = 1;
        m.xorMappedAddress = StunAddr(ntohl(server.From().sin_addr.s_addr), ntohs(server.From().sin_port));
        m.hasLifetime = 1;
        m.lifetime = 600;
    });
    tick(false);

    // Three peers at three addresses: a relayed check to each needs its own permission.
    const std::set<std::string> peers{"127.0.0.2", "127.0.0.3", "127.0.0.4"};
    std::vector<sdp::ice_candidate> candidates;
    uint32_t priority = 2000;
    for (const std::string& ip : peers) candidates.emplace_back("1", 1, "UDP", priority--, ip, 40000, "host");
    OnNetwork([&] {
        const sdp::optional_value<sdp::ice_caps> far(sdp::ice_caps("peer", "0123456789abcdefghijkl", candidates));
        ASSERT_EQ(ZYN_S_OK, a.connector->SetRemoteCandidates(far, CCmInetAddr("127.0.0.2", 40000), true, 11, 0, true));
    });
    // The first request stays unanswered while the checks to all three go out.
    std::vector<std::unique_ptr<Msg>> asked;
    const auto collect = [&] {
        for (auto m = server.Next(); m; m = server.Next()) {
            if (m->msgHdr.type != gatewalk::STUN_MSG_CreatePermissionRequestMsg) continue;
            const bool repeat = std::any_of(asked.begin(), asked.end(), [&](const auto& r) {
                return gatewalk::stunlib_transIdIsEqual(&r->msgHdr.id, &m->msgHdr.id);
            });
            if (!repeat) asked.push_back(std::move(m));
        }
    };
    for (int i = 0; i < 20; ++i) {
        tick(true);
        collect();
    }
    ASSERT_EQ(1u, asked.size()) << "one request at a time";
    EXPECT_EQ(1u, PeerIps(*asked[0]).size());

    server.Answer(*asked[0], gatewalk::STUN_MSG_CreatePermissionResponseMsg);
    for (int i = 0; i < 20 && asked.size() < 2; ++i) {
        tick(false);
        collect();
    }
    ASSERT_EQ(2u, asked.size()) << "the peers asked meanwhile were lost";
    EXPECT_EQ(peers, PeerIps(*asked[1]));
}

}  // namespace
