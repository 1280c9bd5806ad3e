// The connector on its own, both profiles: two connectors on loopback sockets with time driven by
// the test. Gathering rules, the remote candidates the agent takes, early requests, restarts, what
// survives the conclusion, keep-alive, the plain path's fallback, and what the wire may bring.
#include <atomic>
#include <map>
#include <set>

#include "ice_connector_harness.h"

#include "ice/IceStun.h"
#include "stunlib.h"

namespace {

using icetest::FakeTimers;
using icetest::OnNetwork;
using icetest::RawSocket;
using icetest::Settle;
using icetest::Side;
using zyn::IceTimer;

template <class C>
class IceConnectorTest : public ::testing::Test {
protected:
    void SetUp() override { set_local_addr_allow_list({"127.0.0.1"}); }
    void TearDown() override { clear_local_addr_allow_list(); }
    // A controls; both gather on 127.0.0.1 and take each other's candidates.
    void Connect(Side<C>& a, Side<C>& b, bool mux)
    {
        a.Gather(mux);
        b.Gather(mux);
        OnNetwork([&] {
            ASSERT_EQ(ZYN_S_OK, a.connector->SetRemoteCandidates(b.caps, b.defaultAddr, true, 11, 0, mux));
            ASSERT_EQ(ZYN_S_OK, b.connector->SetRemoteCandidates(a.caps, a.defaultAddr, false, 22, 0, mux));
        });
    }
    mstest::EngineScope engine;
};

using Profiles = ::testing::Types<zyn::CIceConnector, zyn::CIceConnectorQLOX>;
TYPED_TEST_SUITE(IceConnectorTest, Profiles);

TYPED_TEST(IceConnectorTest, BothConcludeOnOnePairAndOnlyItsTransportStays)
{
    for (bool mux : {true, false}) {
        SCOPED_TRACE(mux ? "mux" : "RTCP apart");
        Side<TypeParam> a, b;
        this->Connect(a, b, mux);
        ASSERT_TRUE(icetest::RunUntilConcluded(a, b));
        const auto& ca = a.line.completions.front();
        const auto& cb = b.line.completions.front();
        EXPECT_EQ(0, ca.reason);
        EXPECT_EQ(0, cb.reason);
        EXPECT_EQ(mux ? 1 : 2, ca.count);
        EXPECT_EQ(ca.local, cb.remote);
        EXPECT_EQ(ca.remote, cb.local);
        OnNetwork([&] {
            // The winners stay (one pair per component), everything the checks made is gone.
            EXPECT_EQ(mux ? 1u : 2u, a.connector->GetContextCount());
            EXPECT_TRUE(a.connector->IsIceCompleted());
            EXPECT_FALSE(a.connector->IsIceRunning());
        });
        EXPECT_EQ(1000u, a.timers.Get(IceTimer::KeepAlive).periodMs);
        EXPECT_TRUE(a.timers.IsScheduled(IceTimer::KeepAlive));
        EXPECT_EQ(8000u, a.timers.Get(IceTimer::RttSummary).periodMs);
        EXPECT_FALSE(a.timers.IsScheduled(IceTimer::IceTick));
    }
}

TYPED_TEST(IceConnectorTest, EightAddressesStandAndANinthIsRefused)
{
    mstest::TraceCapture traces;
    Side<TypeParam> a;
    std::vector<std::string> nine;
    for (int i = 1; i <= 9; ++i) nine.push_back("127.0.0." + std::to_string(i));
    a.Gather(true, nine);
    EXPECT_TRUE(traces.Contains("0 CIceConnector::StartCollectCandidates, we only support at most 8 IP addresses as "
                                "candidate."));
    OnNetwork([&] {
        const auto& cands = a.connector->GetCandidates();
        ASSERT_EQ(8u, cands.size());
        for (size_t i = 0; i < cands.size(); ++i) {
            EXPECT_EQ(nine[i], cands[i].rtpAddress.GetIpDisplayName());
            EXPECT_EQ(0x7E00 + 24 - 3 * static_cast<int>(i), cands[i].localPreference);
            EXPECT_EQ(1 + 4 * static_cast<int>(i), cands[i].foundationCounter);
            EXPECT_EQ(0, (cands[i].rtpAddress.GetPort() - 52000) % 2) << "ports are even from the range's minimum";
        }
    });
}

TYPED_TEST(IceConnectorTest, AReOfferKeepsTheCredentialsAndMuxStaysOn)
{
    Side<TypeParam> a, other;
    a.Gather(true);
    const sdp::ice_caps first = a.caps.get_data();
    a.Gather(false);  // a re-offer that no longer asks for mux
    const sdp::ice_caps second = a.caps.get_data();
    EXPECT_EQ(first.username, second.username);
    EXPECT_EQ(first.password, second.password);
    OnNetwork([&] { EXPECT_TRUE(a.connector->IsRtcpMux()); });
    for (const auto& c : second.candidates) EXPECT_EQ(1u, c.component) << "mux stayed: one component";
    // Another connector draws credentials of its own.
    other.Gather(true);
    EXPECT_NE(first.username, other.caps.get_data().username);
    EXPECT_NE(first.password, other.caps.get_data().password);
}

// Which remote candidates reach the agent.
TYPED_TEST(IceConnectorTest, RemoteCandidatesTheAgentTakes)
{
    struct Row {
        const char* name;
        std::vector<sdp::ice_candidate> candidates;
        bool mux;
        uint32_t taken;
        const char* trace;
    };
    auto host = [](uint32_t component, const char* address, uint16_t port, const char* foundation = "1") {
        return sdp::ice_candidate(foundation, component, "UDP", 2130706431u - component, address, port, "host");
    };
    std::vector<sdp::ice_candidate> many;
    for (int i = 0; i < 500; ++i) many.push_back(host(1, "127.0.0.1", static_cast<uint16_t>(20000 + i)));
    const Row rows[] = {
        {"port 9 is an active TCP mark", {host(1, "127.0.0.1", 9), host(1, "127.0.0.1", 40000)}, true, 1,
         "CIceConnector::StartConnectivityCheck, invalid port:9"},
        {"component 2 under mux", {host(1, "127.0.0.1", 40000), host(2, "127.0.0.1", 40001)}, true, 1, nullptr},
        {"component 2 without mux", {host(1, "127.0.0.1", 40000), host(2, "127.0.0.1", 40001)}, false, 2, nullptr},
        {"garbage addresses", {host(1, "", 40000), host(1, "1.2.3.4.5", 40001), host(1, "256.1.1.1", 40002),
                               host(1, "a b", 40003), host(1, "127.0.0.1", 40004)},
         true, 1, "one hostname is not resolved"},
        {"duplicate foundations", {host(1, "127.0.0.1", 40000, "7"), host(1, "127.0.0.1", 40002, "7")}, true, 2, nullptr},
        {"500 candidates fill the table", many, true, gatewalk::ICE_MAX_CANDIDATES, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        mstest::TraceCapture traces;
        Side<TypeParam> a;
        a.Gather(row.mux);
        sdp::ice_caps remote("abcd", "0123456789012345678901", row.candidates);
        OnNetwork([&] {
            a.connector->SetRemoteCandidates(remote, CCmInetAddr("127.0.0.1", 40000), true, 1, 0, row.mux);
            const auto* stream = TypeParam::Profile::ICELIB_getRemoteMediaStream(a.connector->GetIceInstance(), 0);
            ASSERT_NE(nullptr, stream);
            EXPECT_EQ(row.taken, stream->numberOfCandidates);
        });
        if (row.trace) {
            EXPECT_TRUE(traces.Contains(row.trace));
        }
    }
}

// A remote candidate given by name is looked up before the checks start (the resolver answers
// on the connector's thread, here from the hosts file).
TYPED_TEST(IceConnectorTest, RemoteCandidatesGivenByNameAreLookedUpFirst)
{
    Side<TypeParam> a;
    a.Gather(true);
    const sdp::ice_caps remote(
        "abcd", "0123456789012345678901",
        {sdp::ice_candidate("1", 1, "UDP", 2130706431u, "localhost", 40000, "host")});
    OnNetwork([&] { a.connector->SetRemoteCandidates(remote, CCmInetAddr("127.0.0.1", 40000), true, 1, 0, true); });
    uint32_t taken = 0;
    for (int round = 0; round < 2000 && taken == 0; ++round) {
        Settle();
        OnNetwork([&] {
            const auto* stream = TypeParam::Profile::ICELIB_getRemoteMediaStream(a.connector->GetIceInstance(), 0);
            taken = stream ? stream->numberOfCandidates : 0;
            if (taken == 1) {
                EXPECT_EQ("127.0.0.1", CCmInetAddr(reinterpret_cast<const sockaddr*>(&stream->candidate[0].connectionAddr))
                                           .GetIpDisplayName());
            }
        });
    }
    EXPECT_EQ(1u, taken);
}

TYPED_TEST(IceConnectorTest, ARequestBeforeTheRemoteDescriptionIsAnsweredOnceItCame)
{
    Side<TypeParam> a, b;
    a.Gather(true);
    b.Gather(true);
    // B knows A and checks; A does not know B yet and keeps what comes.
    OnNetwork([&] { b.connector->SetRemoteCandidates(a.caps, a.defaultAddr, false, 22, 0, true); });
    // B's checks take a moment to cross (loopback delivery is not always immediate): step until
    // one waits at A, within a bound.
    size_t waiting = 0;
    for (int i = 0; i < 500 && waiting == 0; ++i) {
        OnNetwork([&] { b.Step(); });
        Settle();
        OnNetwork([&] { waiting = a.connector->GetPendingRequestCount(); });
    }
    EXPECT_GT(waiting, 0u);
    EXPECT_FALSE(b.Concluded());
    OnNetwork([&] {
        a.connector->SetRemoteCandidates(b.caps, b.defaultAddr, true, 11, 0, true);
        EXPECT_EQ(0u, a.connector->GetPendingRequestCount());
    });
    ASSERT_TRUE(icetest::RunUntilConcluded(a, b));
}

TYPED_TEST(IceConnectorTest, RemoteCandidatesAgainRestartTheChecksWithTheStoredTieBreaker)
{
    mstest::TraceCapture traces;
    Side<TypeParam> a, b;
    this->Connect(a, b, true);
    OnNetwork([&] { a.Step(); });
    OnNetwork([&] {
        a.connector->SetRemoteCandidates(b.caps, b.defaultAddr, true, 4242, 0, true);
        EXPECT_EQ(4242u, a.connector->GetIceInstance()->tieBreaker);
        EXPECT_TRUE(TypeParam::Profile::ICELIB_isRunning(a.connector->GetIceInstance()));
    });
    EXPECT_TRUE(traces.Contains("CIceConnector::StartConnectivityCheck, stop on-going connectivity check."));
    ASSERT_TRUE(icetest::RunUntilConcluded(a, b));
}

TYPED_TEST(IceConnectorTest, KeepAliveRemembersTenRequestsAndSilenceEndsThePath)
{
    Side<TypeParam> a;
    auto b = std::make_unique<Side<TypeParam>>();
    this->Connect(a, *b, true);
    ASSERT_TRUE(icetest::RunUntilConcluded(a, *b));
    b.reset();  // the peer vanishes
    for (int i = 0; i < 15; ++i) {
        OnNetwork([&] {
            a.timers.now += 1000;
            if (a.timers.now > 100000 + 14000) return;  // stay under the inactive limit here
            a.connector->OnIceTimer(IceTimer::KeepAlive);
        });
    }
    OnNetwork([&] { EXPECT_EQ(10u, a.connector->GetKeepAliveSentCount()); });
    // Past the inactive limit (15 s by default) the next round ends the path.
    OnNetwork([&] {
        a.timers.now += 20000;
        a.connector->OnIceTimer(IceTimer::KeepAlive);
    });
    EXPECT_TRUE(a.timers.IsScheduled(IceTimer::Inactivity));
    EXPECT_EQ(1u, a.timers.Get(IceTimer::Inactivity).periodMs);
    EXPECT_FALSE(a.timers.IsScheduled(IceTimer::KeepAlive));
    OnNetwork([&] { a.connector->OnIceTimer(IceTimer::Inactivity); });
    ASSERT_EQ(1u, a.line.disconnects.size());
    EXPECT_EQ(CM_ERROR_NOT_FOUND, a.line.disconnects.front());
}

TYPED_TEST(IceConnectorTest, WithoutIceANeverConnectingPeerFailsAfterTheFallback)
{
    Side<TypeParam> a;
    OnNetwork([&] {
        a.connector->SetAddressSource([] { return std::vector<CCmInetAddr>{CCmInetAddr("127.0.0.1", 0)}; });
        ASSERT_EQ(ZYN_S_OK, a.connector->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, true, false));
        // A peer that never answers: the plain path needs a transport from the peer's side too.
        a.connector->SetOverrideIP(nullptr, 0);
        ASSERT_EQ(ZYN_S_OK, a.connector->ConnectRemote(CCmInetAddr("127.0.0.1", 9), 1, true));
    });
    EXPECT_TRUE(a.timers.IsScheduled(IceTimer::Fallback));
    EXPECT_EQ(10000u, a.timers.Get(IceTimer::Fallback).periodMs);
    EXPECT_EQ(1u, a.timers.Get(IceTimer::Fallback).count);
    OnNetwork([&] { a.connector->OnIceTimer(IceTimer::Fallback); });
    ASSERT_EQ(1u, a.line.completions.size());
    EXPECT_EQ(30000014, a.line.completions.front().reason);
    OnNetwork([&] { EXPECT_TRUE(a.connector->IsIceCompleted()); });
}

// Without ICE the ports take whoever sends before the description names the peer. A stranger
// (here: a socket of the test, as a sender left from an earlier call on the same ports would be)
// must not become the path once the description says who the peer is.
TYPED_TEST(IceConnectorTest, WithoutIceAnEarlyStrangerIsNotThePath)
{
    for (int row = 0; row < 4; ++row) {
        const bool mux = row % 2 == 0;
        // The peer's address comes with its description, or straight from the application.
        const bool described = row < 2;
        SCOPED_TRACE(std::string(mux ? "mux" : "RTCP apart") + (described ? ", described" : ", connected"));
        Side<TypeParam> a, b;
        a.Gather(mux, {"127.0.0.1"}, false);
        b.Gather(mux, {"127.0.0.1"}, false);
        RawSocket stranger;
        const std::vector<uint8_t> rtp = {0x80, 0x60, 0, 1, 0, 0, 0, 1, 0, 0, 0, 9};
        for (int component = 0; component < (mux ? 1 : 2); ++component) {
            CCmInetAddr port = a.defaultAddr;
            port.SetPort(static_cast<uint16_t>(port.GetPort() + component));
            stranger.SendTo(port, rtp);
        }
        // The stranger's packets make a path before any description: wait for it.
        for (int i = 0; i < 1000 && !a.Concluded(); ++i) Settle();
        ASSERT_TRUE(a.Concluded());
        OnNetwork([&] {
            if (described) {
                ASSERT_EQ(ZYN_S_OK, a.connector->SetRemoteCandidates({}, b.defaultAddr, true, 11, 0, mux));
                ASSERT_EQ(ZYN_S_OK, b.connector->SetRemoteCandidates({}, a.defaultAddr, false, 22, 0, mux));
            } else {
                ASSERT_EQ(ZYN_S_OK, a.connector->ConnectRemote(b.defaultAddr, 0, mux));
                ASSERT_EQ(ZYN_S_OK, b.connector->ConnectRemote(a.defaultAddr, 0, mux));
            }
        });
        ASSERT_TRUE(icetest::RunUntilConcluded(a, b));
        Settle();
        {
            // The stranger's packets made a path at once; the line is moved off it as soon as the
            // description names the peer.
            std::lock_guard<std::mutex> lock(a.line.mutex);
            ASSERT_EQ(2u, a.line.completions.size());
            EXPECT_NE(b.defaultAddr.ToString(), a.line.completions.front().remote);
            EXPECT_EQ(0, a.line.completions.back().reason);
            EXPECT_EQ(mux ? 1 : 2, a.line.completions.back().count);
            EXPECT_EQ(b.defaultAddr.ToString(), a.line.completions.back().remote);
        }
        // A later packet of the stranger finds no way in either.
        const size_t heard = [&] {
            std::lock_guard<std::mutex> lock(a.line.mutex);
            return a.line.received.size();
        }();
        stranger.SendTo(a.defaultAddr, rtp);
        Settle();
        std::lock_guard<std::mutex> lock(a.line.mutex);
        EXPECT_EQ(heard, a.line.received.size());
    }
}

// A Binding request the test builds itself: what an attacker or a confused peer sends. Its
// transaction id carries `tag` in its first byte.
std::vector<uint8_t> Request(uint8_t tag, const char* ufragPair, const char* password, bool breakFingerprint)
{
    auto m = std::make_unique<zyn_gatewalk::StunMessage>();
    std::vector<uint8_t> bytes(1500);
    gatewalk::StunMsgId id{};
    for (int i = 0; i < 12; ++i) id.octet[i] = static_cast<uint8_t>(i + 1);
    id.octet[0] = tag;
    bytes.resize(zyn::ice::EncodeCheck<zyn::ice::ZynProfile>(*m, id, ufragPair, password, 1000, false, true, 7,
                                                               bytes.data(), static_cast<uint32_t>(bytes.size())));
    if (breakFingerprint && bytes.size() > 4) bytes.back() ^= 0x01;
    return bytes;
}

TYPED_TEST(IceConnectorTest, ABindingRequestIsAnsweredOnlyWithTheRightCredentialsAndFingerprint)
{
    Side<TypeParam> a;
    a.Gather(true);
    const sdp::ice_caps remote("abcd", "0123456789012345678901",
                               {sdp::ice_candidate("1", 1, "UDP", 2130706431u, "127.0.0.1", 40000, "host")});
    OnNetwork([&] { a.connector->SetRemoteCandidates(remote, CCmInetAddr("127.0.0.1", 40000), false, 1, 0, true); });
    const std::string pair = a.caps.get_data().username + ":abcd";
    const std::string password = a.caps.get_data().password;
    mstest::TraceCapture traces;
    RawSocket peer;
    // Refused first, then one that is answered: answers keep their order on this path, so whatever
    // the refused ones would have got comes before the good one's.
    peer.SendTo(a.defaultAddr, Request(1, pair.c_str(), "not-the-password-at-all", false));
    peer.SendTo(a.defaultAddr, Request(2, pair.c_str(), password.c_str(), true));
    peer.SendTo(a.defaultAddr, Request(3, "someone:else", password.c_str(), false));
    peer.SendTo(a.defaultAddr, Request(4, pair.c_str(), password.c_str(), false));
    std::vector<uint8_t> answer;
    for (int i = 0; i < 4; ++i) {
        answer = peer.Receive();
        if (answer.size() < 20 || answer[8] == 4) break;
        ADD_FAILURE() << "answered a refused request, tag " << static_cast<int>(answer[8]);
    }
    ASSERT_GE(answer.size(), 20u);
    EXPECT_EQ(4, answer[8]);
    EXPECT_EQ(0x01, answer[0]);  // a Binding success response
    EXPECT_TRUE(traces.Contains("CIceConnector::OnReceive, invalid ICE credential for stun bind request."));
    EXPECT_TRUE(traces.Contains("bad FINGERPRINT"));
}

// The first byte tells a packet's kind; DTLS from a pair nobody proved is dropped. After each
// packet a known RTP packet follows on the same path: once the line has it, the one before was
// handled.
TYPED_TEST(IceConnectorTest, TheFirstByteTellsWhereAPacketGoes)
{
    Side<TypeParam> a;
    a.line.dtls = true;
    a.Gather(true);
    const sdp::ice_caps remote("abcd", "0123456789012345678901",
                               {sdp::ice_candidate("1", 1, "UDP", 2130706431u, "127.0.0.1", 40000, "host")});
    OnNetwork([&] { a.connector->SetRemoteCandidates(remote, CCmInetAddr("127.0.0.1", 40000), false, 1, 0, true); });
    struct Row {
        uint8_t first;
        bool toLine;  // RTP or RTCP for the line
        bool dtls;    // counted as DTLS (and dropped: the sender proved nothing)
    };
    const Row rows[] = {{19, false, false},  {20, false, true},   {63, false, true},  {64, false, false},
                        {127, false, false}, {128, true, false},  {191, true, false}, {192, false, false}};
    RawSocket peer;
    unsigned int stunSent = 0, stunReceived = 0, dtlsSent = 0, dtlsReceived = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.first));
        std::vector<uint8_t> packet(40, 0);
        packet[0] = row.first;
        packet[1] = 96;
        const std::vector<uint8_t> sentinel = {0x80, 96, 0, 1, 'e', 'n', 'd', ' ', 'o', 'f', ' ', 'r', 'o', 'w', 0, 0};
        OnNetwork([&] { a.connector->getAndResetStunDtlsStats(true, stunSent, stunReceived, dtlsSent, dtlsReceived); });
        {
            std::lock_guard<std::mutex> lock(a.line.mutex);
            a.line.received.clear();
        }
        peer.SendTo(a.defaultAddr, packet);
        peer.SendTo(a.defaultAddr, sentinel);
        bool ended = false;
        for (int round = 0; round < 1000 && !ended; ++round) {
            Settle();
            std::lock_guard<std::mutex> lock(a.line.mutex);
            ended = !a.line.received.empty() && a.line.received.back().size() == sentinel.size();
        }
        ASSERT_TRUE(ended);
        OnNetwork([&] { a.connector->getAndResetStunDtlsStats(true, stunSent, stunReceived, dtlsSent, dtlsReceived); });
        std::lock_guard<std::mutex> lock(a.line.mutex);
        EXPECT_EQ(row.toLine ? 2u : 1u, a.line.received.size());
        EXPECT_EQ(row.dtls ? packet.size() : 0u, dtlsReceived);
        EXPECT_EQ(0u, dtlsSent) << "no handshake answers an unproven sender";
    }
}

}  // namespace

namespace {

// A TURN server that answers every Allocate with bytes the test chose: gathering must end, once,
// with the host candidates standing and no relayed one.
TYPED_TEST(IceConnectorTest, AServerAnsweringNonsenseEndsTheAllocationAndHostCandidatesStand)
{
    using Bytes = std::vector<uint8_t>;
    // The answer to a request whose 20-byte header is `req`.
    using Answer = Bytes (*)(const Bytes& req);
    // A header of the given type and length that echoes the request's cookie and transaction id,
    // followed by `tail`.
    static constexpr auto h = [](uint16_t type, uint16_t length, const Bytes& req, std::initializer_list<uint8_t> tail) {
        Bytes b(20 + tail.size());
        b[0] = static_cast<uint8_t>(type >> 8);
        b[1] = static_cast<uint8_t>(type);
        b[2] = static_cast<uint8_t>(length >> 8);
        b[3] = static_cast<uint8_t>(length);
        std::copy(req.begin() + 4, req.begin() + 20, b.begin() + 4);
        std::copy(tail.begin(), tail.end(), b.begin() + 20);
        return b;
    };
    struct Row {
        const char* name;
        Answer answer;
    };
    const Row rows[] = {
        {"a single byte", [](const Bytes&) { return Bytes{0x01}; }},
        {"a length past the datagram", [](const Bytes& r) { return h(0x0103, 200, r, {}); }},
        {"an attribute past the message",
         [](const Bytes& r) { return h(0x0103, 8, r, {0x00, 0x16, 0x00, 0x64, 0x00, 0x01, 0x12, 0x34}); }},
        {"a success without a relayed address", [](const Bytes& r) { return h(0x0103, 0, r, {}); }},
        {"a relayed address of no family",
         [](const Bytes& r) { return h(0x0103, 12, r, {0x00, 0x16, 0x00, 0x08, 0x00, 0x07, 0x12, 0x34, 1, 2, 3, 4}); }},
        {"a 401 with neither realm nor nonce",
         [](const Bytes& r) { return h(0x0113, 8, r, {0x00, 0x09, 0x00, 0x04, 0x00, 0x00, 0x04, 0x01}); }},
        {"an answer to another transaction",
         [](const Bytes& r) {
             Bytes b = h(0x0103, 0, r, {});
             b[19] ^= 0xff;
             return b;
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RawSocket server;
        Side<TypeParam> a;
        tagICEServer record{};
        std::snprintf(record.host, sizeof record.host, "127.0.0.1");
        record.port = server.Local().GetPort();
        record.kind = ZynIceServer_TURN;
        std::snprintf(record.username, sizeof record.username, "user");
        std::snprintf(record.password, sizeof record.password, "secret");
        a.config.AddICEServer(record);
        a.Gather(true);
        // Written by the callback on the network thread, read here between its turns.
        std::atomic<int> calls{0};
        std::atomic<bool> relayed{true};
        OnNetwork([&] {
            a.connector->allocateTurnRelayedAndReflexiveAddress(false, [&](bool, const std::string& kind) {
                ++calls;
                relayed = kind == "relay";
            });
        });
        int answered = 0;
        for (int tick = 0; tick < 2000 && calls == 0; ++tick) {
            OnNetwork([&] {
                a.timers.now += 50;
                for (IceTimer t : {IceTimer::Turn, IceTimer::StunContexts, IceTimer::MainStun})
                    if (a.timers.IsScheduled(t)) a.connector->OnIceTimer(t);
            });
            Settle();
            for (Bytes req = server.TryReceive(); !req.empty(); req = server.TryReceive()) {
                if (req.size() < 20 || req[0] != 0x00 || req[1] != 0x03) continue;  // Allocate requests only
                server.SendTo(a.defaultAddr, row.answer(req));
                ++answered;
            }
            Settle();
        }
        EXPECT_GE(answered, 1) << "the server never heard an Allocate";
        EXPECT_EQ(1, calls);
        EXPECT_FALSE(relayed);
        OnNetwork([&] {
            a.connector->GetIceCandidates(a.caps, a.defaultAddr);
            EXPECT_EQ(0u, a.connector->GetLiveTurnAllocations());
        });
        ASSERT_TRUE(a.caps.is_set());
        ASSERT_FALSE(a.caps.get_data().candidates.empty());
        for (const auto& c : a.caps.get_data().candidates) EXPECT_EQ("host", c.type);
    }
}

// Two connectors draw their own credentials and transaction ids: a peer that sees both can never
// take one's answer for the other's.
TYPED_TEST(IceConnectorTest, TwoConnectorsDrawDifferentCredentialsAndTransactionIds)
{
    RawSocket peer;
    const CCmInetAddr at = peer.Local();
    const sdp::ice_caps remote("abcd", "0123456789012345678901",
                               {sdp::ice_candidate("1", 1, "UDP", 2130706431u, "127.0.0.1", at.GetPort(), "host")});
    Side<TypeParam> a, b;
    a.Gather(true);
    b.Gather(true);
    EXPECT_NE(a.caps.get_data().username, b.caps.get_data().username);
    EXPECT_NE(a.caps.get_data().password, b.caps.get_data().password);
    OnNetwork([&] {
        a.connector->SetRemoteCandidates(remote, at, true, 1, 0, true);
        b.connector->SetRemoteCandidates(remote, at, true, 2, 0, true);
    });
    // Every check that reaches the peer, by the port it came from.
    std::map<uint16_t, std::set<std::string>> ids;
    for (int ms = 0; ms < 1000; ms += 10) {
        OnNetwork([&] {
            a.Step();
            b.Step();
        });
        Settle();
        sockaddr_storage from{};
        for (std::vector<uint8_t> m = peer.TryReceive(&from); !m.empty(); m = peer.TryReceive(&from))
            if (m.size() >= 20 && m[0] == 0x00 && m[1] == 0x01)
                ids[CCmInetAddr(reinterpret_cast<sockaddr*>(&from), sizeof from).GetPort()].insert(
                    std::string(m.begin() + 8, m.begin() + 20));
    }
    ASSERT_EQ(2u, ids.size()) << "both connectors check the peer";
    const auto& first = ids.begin()->second;
    const auto& second = ids.rbegin()->second;
    for (const std::string& id : first) EXPECT_EQ(0u, second.count(id)) << "a transaction id drawn twice";
}

}  // namespace
