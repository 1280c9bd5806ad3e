// The diagnostics against independent peers on loopback, started here and stopped after: dnsmasq
// (DNS, with its own hosts file and the NAT64 well-known name), coturn (STUN), Python's HTTP server
// with and without TLS, and HTTP servers that misbehave.
#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "diag/DNSResolverManager.h"
#include "diag/StunTrace.h"
#include "diag/TraceServer.h"
#include "diag_test_util.h"
#include "tp/CmDns.h"
#include "tp/CmThreadManager.h"
#include "util/CmJson.h"

namespace {

using diagtest::Process;

std::string Python() { return access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : "python3"; }

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// A STUN Binding request every 100 ms until something answers, or the bound.
bool WaitForStun(uint16_t port)
{
    diagtest::LoopbackSocket client;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const uint8_t request[20] = {0, 1, 0, 0, 0x21, 0x12, 0xA4, 0x42, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    return diagtest::WaitFor([&] {
        sendto(client.fd, request, sizeof(request), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
        pollfd p{client.fd, POLLIN, 0};
        uint8_t reply[512];
        return poll(&p, 1, 100) > 0 && recv(client.fd, reply, sizeof(reply), 0) > 0;
    });
}

// Every peer of this binary, up for all its tests.
class Peers : public ::testing::Environment {
public:
    void SetUp() override
    {
        char dirTemplate[] = "/tmp/diag-peers-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dirTemplate));
        dir = dirTemplate;
        std::ofstream(dir + "/hosts") << "127.0.0.5 alpha.test\n::5 alpha.test\n127.0.0.6 share.test\n"
                                         "127.0.0.1 web.test\n";
        dnsPort = diagtest::FreePort();
        dnsLog = dir + "/dns.log";
        // Answers from the hosts file are kept 60 s by askers (local-ttl), so that one ask that
        // comes a little late is served from what was kept, not by a second query.
        dnsmasq = std::make_unique<Process>(std::vector<std::string>{
            "dnsmasq", "--no-daemon", "--port=" + std::to_string(dnsPort), "--listen-address=127.0.0.1",
            "--bind-interfaces", "--no-resolv", "--no-hosts", "--addn-hosts=" + dir + "/hosts", "--local=/test/",
            "--host-record=ipv4only.arpa,64:ff9b::c000:aa", "--log-queries", "--log-facility=" + dnsLog,
            "--local-ttl=60", "--pid-file=", "--user=root"});
        dns.servers = "127.0.0.1:" + std::to_string(dnsPort);
        dns.timeoutMs = 500;
        dns.tries = 2;
        CCmDnsManager probe(dns);
        ASSERT_TRUE(diagtest::WaitFor([&] {
            CCmDnsRecord* r = nullptr;
            const bool ok = probe.SyncResolve(r, "alpha.test", true) == CM_OK;
            if (r) r->ReleaseReference();
            return ok;
        })) << "dnsmasq did not start";
        // The library's own resolvers (the trace server's names) ask it too.
        CCmDnsManager::Instance()->SetSettings(dns);
        CCmDns6Manager::Instance()->SetSettings(dns);

        stunPort = diagtest::FreePort();
        turnserver = std::make_unique<Process>(std::vector<std::string>{
            "turnserver", "-n", "--listening-ip=127.0.0.1", "--listening-ip=::1",
            "--listening-port=" + std::to_string(stunPort), "--no-tls", "--no-dtls", "--no-cli", "--log-file=stdout",
            "--simple-log", "--userdb=" + dir + "/turn.sqlite", "--pidfile=" + dir + "/turn.pid"},
            dir + "/turn.log");
        ASSERT_TRUE(WaitForStun(stunPort)) << "coturn did not start: " << ReadFile(dir + "/turn.log");

        ASSERT_EQ(0, std::system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                                  "-subj /CN=web.test -addext subjectAltName=DNS:web.test,IP:127.0.0.1 -days 1 -keyout " +
                                  dir + "/key.pem -out " + dir + "/cert.pem 2>/dev/null")
                                     .c_str()));
        const std::string script = std::string(DIAG_PEERS_DIR) + "/http_peers.py";
        for (const char* mode : {"ok", "tls", "garbage", "half", "endless"}) {
            const uint16_t port = diagtest::FreePort(SOCK_STREAM);
            std::vector<std::string> argv{Python(), script, mode, std::to_string(port)};
            if (std::string(mode) == "tls") argv.insert(argv.end(), {dir + "/cert.pem", dir + "/key.pem"});
            http[mode] = {port, std::make_unique<Process>(argv, dir + "/http.log")};
            ASSERT_TRUE(diagtest::WaitForTcp(port)) << mode << ": " << ReadFile(dir + "/http.log");
        }
    }
    void TearDown() override
    {
        http.clear();
        turnserver.reset();
        dnsmasq.reset();
        std::system(("rm -rf " + dir).c_str());
    }
    uint16_t HttpPort(const char* mode) { return http[mode].port; }

    std::string dir;
    uint16_t dnsPort = 0;
    std::string dnsLog;
    CmDnsSettings dns;
    uint16_t stunPort = 0;
    struct Server {
        uint16_t port = 0;
        std::unique_ptr<Process> process;
    };
    std::map<std::string, Server> http;
    std::unique_ptr<Process> dnsmasq;
    std::unique_ptr<Process> turnserver;
};

Peers* g_peers = static_cast<Peers*>(::testing::AddGlobalTestEnvironment(new Peers));

// ---- DNS against dnsmasq ----------------------------------------------------------------------

TEST(DnsPeerTest, ASilentServerTimesOutWithoutHanging)
{
    diagtest::LoopbackSocket silent;
    CmDnsSettings settings;
    settings.servers = "127.0.0.1:" + std::to_string(silent.port);
    settings.timeoutMs = 200;
    settings.tries = 2;
    CCmDnsManager dns(settings);
    CCmDnsRecord* record = nullptr;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(CM_ERROR_NETWORK_CONNECT_TIMEOUT, dns.SyncResolve(record, "alpha.test"));
    // Two rounds of 200 and 400 ms; far less than the caller's own bound of several seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(CCmDnsRecord::RSV_FAILED, record->GetState());
    record->ReleaseReference();
}

TEST(DnsPeerTest, TwentyConcurrentAsksMakeOneQueryOnTheWire)
{
    CCmDnsManager dns4(g_peers->dns);
    CCmDns6Manager dns6(g_peers->dns);
    CCmLoopThread network;
    ASSERT_EQ(CM_OK, network.Create("t-net-peer", TT_USER_DEFINE_BASE));
    CDNSResolverManager manager(&dns4, &dns6, network.GetEventQueue());
    constexpr int kAskers = 20;
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::string> answers;
    std::atomic<int> ready{0};
    std::vector<std::thread> askers;
    for (int i = 0; i < kAskers; ++i) {
        askers.emplace_back([&, i] {
            ++ready;
            while (ready.load() < kAskers) std::this_thread::yield();
            CCmInetAddr name;
            name.SetUnresolved("share.test", static_cast<uint16_t>(5000 + i), AF_INET);
            manager.resolve(name, &askers, [&](const CCmInetAddr& a) {
                std::lock_guard<std::mutex> lock(mutex);
                answers.push_back(a.ToString());
                cv.notify_all();
            }, &network, AF_INET);
        });
    }
    for (auto& t : askers) t.join();
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(10), [&] { return answers.size() == kAskers; }));
    }
    for (const auto& a : answers) EXPECT_EQ(0u, a.find("127.0.0.6:50")) << a;
    // dnsmasq writes one line per query it got.
    const std::string line = "query[A] share.test from 127.0.0.1";
    ASSERT_TRUE(diagtest::WaitFor([&] { return ReadFile(g_peers->dnsLog).find(line) != std::string::npos; }));
    const std::string log = ReadFile(g_peers->dnsLog);
    size_t count = 0;
    for (size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1)) ++count;
    EXPECT_EQ(1u, count) << log;
    network.Stop();
}

TEST(DnsPeerTest, LearnsTheNat64PrefixFromTheWellKnownName)
{
    CCmDns6Manager dns6(g_peers->dns);
    CCmDnsRecord* record = nullptr;
    ASSERT_EQ(CM_OK, dns6.SyncResolve(record, CM_NAT64_DISCOVERY_NAME));
    CCmInetAddr prefix;
    int length = 0;
    ASSERT_TRUE(CmFindNat64Prefix(record->GetAddresses(), prefix, length));
    record->ReleaseReference();
    EXPECT_EQ("64:ff9b::", prefix.GetIpDisplayName());
    EXPECT_EQ(96, length);
    CCmInetAddr server("192.0.2.33", 3478);
    ASSERT_EQ(CM_OK, server.XLAT46(prefix, length));
    EXPECT_EQ("[64:ff9b::c000:221]:3478", server.ToString());
}

// ---- the reachability test against coturn and HTTP servers -------------------------------------

struct ReachSink final : IZynTraceServerSink {
    void OnTraceServerResult(bool isCompleted, const char* text) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        completed = isCompleted;
        document = json::Deserialize(text);
        ++calls;
        cv.notify_all();
    }
    bool Wait(int calls_, int ms)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, std::chrono::milliseconds(ms), [&] { return calls >= calls_; });
    }
    std::mutex mutex;
    std::condition_variable cv;
    int calls = 0;
    bool completed = false;
    json::Value document;
};

class TraceServerPeerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(CM_OK, network.Create("t-trace-peer", TT_USER_DEFINE_BASE));
        auto clock = [] { return static_cast<uint64_t>(CCmTimeValue::GetMonotonic().GetTotalInUsec()); };
        server = std::make_unique<CTraceServer>(&network, std::make_unique<CTraceContextFactory>(&network, clock), clock);
        server->SetSink(&sink);
        const std::string options = R"({"numStunTracePerSec": 100, "probeTimeoutMs": 1500, "totalTimeoutMs": 10000,
                                        "tlsCaFile": ")" + g_peers->dir + "/cert.pem\"}";
        ASSERT_EQ(ZYN_S_OK, server->SetOption(options.c_str()));
    }
    void TearDown() override
    {
        server.reset();
        network.Stop();
    }
    json::Value Run(const std::string& list)
    {
        const int before = sink.calls;
        EXPECT_EQ(ZYN_S_OK, server->StartTrace(list.c_str(), static_cast<long>(list.size())));
        EXPECT_TRUE(sink.Wait(before + 1, 15000));
        return sink.document;
    }
    static std::string Port(const char* mode) { return std::to_string(g_peers->HttpPort(mode)); }
    static std::string Stun() { return std::to_string(g_peers->stunPort); }

    CCmLoopThread network;
    ReachSink sink;
    std::unique_ptr<CTraceServer> server;
};

TEST_F(TraceServerPeerTest, RealServersAreReachableWithALatencyEach)
{
    const json::Value doc = Run(R"({"clusters": {"dc": ["stun:127.0.0.1:)" + Stun() + R"(", "stun:[::1]:)" + Stun() +
                                R"(", "http://127.0.0.1:)" + Port("ok") + R"(/", "https://web.test:)" + Port("tls") +
                                R"(/"]}, "clusterClasses": {"hybridMedia": ["dc"]}})");
    EXPECT_TRUE(sink.completed);
    for (const char* transport : {"udp", "tcp", "xtls"}) {
        EXPECT_EQ("true", doc["dc"][transport]["reachable"].get<std::string>()) << transport << " " << doc.dump();
        ASSERT_TRUE(doc["dc"][transport].contains("latencyInMilliseconds")) << transport;
        EXPECT_GE(doc["dc"][transport]["latencyInMilliseconds"].get<double>(), 0.0);
    }
    EXPECT_EQ("true", doc["clusterUsability"]["usable"].get<std::string>());
    EXPECT_TRUE(server->IsLastTraceServerUsable());
}

TEST_F(TraceServerPeerTest, StoppedUntrustedAndBrokenServersAreNotReachable)
{
    diagtest::TraceCapture traces;
    // A server that was there and stopped: its port is closed now.
    const uint16_t gone = diagtest::FreePort(SOCK_STREAM);
    {
        Process stopped({Python(), std::string(DIAG_PEERS_DIR) + "/http_peers.py", "ok", std::to_string(gone)});
        ASSERT_TRUE(diagtest::WaitForTcp(gone));
    }
    ASSERT_EQ(ZYN_S_OK, server->SetOption(R"({"tlsCaFile": ""})"));  // back to the system's store
    const json::Value doc = Run(R"({"clusters": {"mesh": ["http://127.0.0.1:)" + std::to_string(gone) +
                                R"(/", "stun:127.0.0.1:)" + std::to_string(diagtest::FreePort()) +
                                R"("], "untrusted": ["https://127.0.0.1:)" + Port("tls") +
                                R"(/"], "garbage": ["http://127.0.0.1:)" + Port("garbage") +
                                R"(/"], "half": ["http://127.0.0.1:)" + Port("half") + R"(/"], "endless": ["http://127.0.0.1:)" +
                                Port("endless") + R"(/"]}, "clusterClasses": {"hybridMedia": ["mesh"],
                                "rest": ["untrusted", "garbage", "half", "endless"]}})");
    EXPECT_TRUE(sink.completed);
    const std::pair<std::string, std::string> unreachable[] = {
        {"mesh", "tcp"}, {"mesh", "udp"}, {"untrusted", "xtls"}, {"garbage", "tcp"}, {"half", "tcp"}, {"endless", "tcp"}};
    for (const auto& [cluster, transport] : unreachable) {
        EXPECT_EQ("false", doc[cluster][transport]["reachable"].get<std::string>()) << cluster << " " << doc.dump();
        EXPECT_FALSE(doc[cluster][transport].contains("latencyInMilliseconds")) << cluster;
    }
    EXPECT_EQ("false", doc["clusterUsability"]["usable"].get<std::string>());
    EXPECT_FALSE(server->IsLastTraceServerUsable());
    EXPECT_TRUE(traces.Contains("certificate: "));
    EXPECT_EQ(3u, traces.Count("bad http response from http://127.0.0.1:"));
}

TEST_F(TraceServerPeerTest, TwoHundredUrisFinishWithinTheBudget)
{
    std::string clusters, names;
    for (int i = 0; i < 50; ++i) {
        const std::string name = "c" + std::to_string(i);
        clusters += (i ? ", \"" : "\"") + name + R"(": ["stun:127.0.0.1:)" + Stun() + R"(", "http://127.0.0.1:)" +
                    Port("ok") + R"(/", "https://127.0.0.1:)" + Port("tls") + R"(/", "http://127.0.0.1:)" +
                    Port("half") + "/\"]";
        names += (i ? ", \"" : "\"") + name + "\"";
    }
    const auto begin = std::chrono::steady_clock::now();
    const json::Value doc = Run("{\"clusters\": {" + clusters + "}, \"clusterClasses\": {\"all\": [" + names + "]}}");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(10000));
    EXPECT_TRUE(sink.completed) << "every probe ended on its own, none was cut by the budget";
    for (int i = 0; i < 50; ++i) {
        const std::string name = "c" + std::to_string(i);
        EXPECT_EQ("true", doc[name]["udp"]["reachable"].get<std::string>()) << name;
        EXPECT_EQ("true", doc[name]["tcp"]["reachable"].get<std::string>()) << name;
        EXPECT_EQ("true", doc[name]["xtls"]["reachable"].get<std::string>()) << name;
    }
}

// ---- the route trace against coturn ----------------------------------------------------------

struct TraceCase {
    const char* name;
    bool silent;     // a bound socket that never answers, else coturn or a closed port
    bool closed;
    int ret;
    const char* lastResult;
    size_t hops;
};

TEST(StunTracePeerTest, EndsByAnswerRefusalOrLimits)
{
    const uint16_t closedPort = diagtest::FreePort();
    diagtest::LoopbackSocket silent;
    const TraceCase cases[] = {
        {"coturn", false, false, 0, "success", 1},
        {"closed port", false, true, 1, "server_unreachable", 1},
        {"silent socket", true, false, 1, "UNSPEC", 4},
    };
    for (const auto& c : cases) {
        diagtest::TraceCapture traces;
        CStunTrace trace;
        StunTraceRequest request;
        request.serverHost = "127.0.0.1";
        request.serverPort = c.silent ? silent.port : c.closed ? closedPort : g_peers->stunPort;
        request.callId = 77;
        request.settings.probeWaitMs = 100;
        ASSERT_EQ(ZYN_S_OK, trace.Start(request)) << c.name;
        ASSERT_TRUE(trace.WaitUntilDone(10000)) << c.name;
        const json::Value doc = json::Deserialize(trace.GetLastResult());
        EXPECT_EQ(c.ret, doc["ret"].get<int>()) << c.name << " " << doc.dump();
        ASSERT_EQ(c.hops, doc["trace"].size()) << c.name << " " << doc.dump();
        EXPECT_EQ(c.lastResult, doc["trace"].back()["result"].get<std::string>()) << c.name;
        EXPECT_EQ(77u, doc["callId"].get<unsigned>());
        if (c.ret == 0) {
            EXPECT_GE(doc["server_rtt"].get<double>(), 0.0);
            // No NAT on loopback: the server saw our own address, so the mapped probe is skipped.
            EXPECT_EQ(0u, doc["mapped"].get<std::string>().find("127.0.0.1:"));
            EXPECT_EQ("", doc["mapped_rtt"].get<std::string>());
            EXPECT_TRUE(traces.Contains(" Mapped Address equals to local address."));
        }
    }
}

TEST(StunTracePeerTest, OneAtATimeAndAStopEndsAWait)
{
    diagtest::TraceCapture traces;
    diagtest::LoopbackSocket silent;
    CStunTrace trace;
    StunTraceRequest request;
    request.serverHost = "127.0.0.1";
    request.serverPort = silent.port;
    request.settings.probeWaitMs = 60000;
    ASSERT_EQ(ZYN_S_OK, trace.Start(request));
    EXPECT_EQ(ZYN_E_WRONGSTATE, trace.Start(request));
    EXPECT_TRUE(traces.Contains("StartStunTrace another StunTrace is still running."));
    ASSERT_TRUE(diagtest::WaitFor([&] { return traces.Contains("[TTL 1]"); })) << "the first probe went out";
    const auto begin = std::chrono::steady_clock::now();
    trace.NotifyStop();
    ASSERT_TRUE(trace.WaitUntilDone(5000));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "not the minute of the wait";
    EXPECT_EQ(kStunTraceStopped, json::Deserialize(trace.GetLastResult())["ret"].get<int>());
    EXPECT_TRUE(traces.Contains(" StunTrace STOPPPED."));
    EXPECT_TRUE(traces.Contains("StunTrace notified thread to stop. send() returned 1"));
    request.serverPort = g_peers->stunPort;
    request.settings.probeWaitMs = 100;
    EXPECT_EQ(ZYN_S_OK, trace.Start(request)) << "the next trace may start once one ended";
    EXPECT_TRUE(trace.WaitUntilDone(10000));
}

// ---- the command-line program ----------------------------------------------------------------

struct ToolCase {
    const char* name;
    std::string args;
    int status;
    const char* stdoutHas;
    const char* stderrHas;
};

TEST(DiagToolPeerTest, ExitsZeroOnAnAnswerAndSaysWhyOtherwise)
{
    const std::string dns = "--server 127.0.0.1:" + std::to_string(g_peers->dnsPort);
    const std::string stun = std::to_string(g_peers->stunPort);
    std::ofstream(g_peers->dir + "/good.json") << R"({"a": ["stun:127.0.0.1:)" + stun + R"("]})";
    std::ofstream(g_peers->dir + "/bad.json") << R"([{"a": ["stun:127.0.0.1:1"]}])";
    const ToolCase cases[] = {
        {"dns A", "dns alpha.test --family 4 " + dns, 0, "\"127.0.0.5\"", ""},
        {"dns AAAA", "dns alpha.test --family 6 " + dns, 0, "\"::5\"", ""},
        {"dns no AAAA", "dns share.test --family 6 " + dns, 1, "\"addresses\": []", "AAAA: "},
        {"dns nat64", "dns ipv4only.arpa. --family 6 " + dns, 0, "\"64:ff9b::\"", ""},
        {"dns missing", "dns nothere.test " + dns, 1, "\"addresses\"", "Domain name not found"},
        {"dns usage", "dns alpha.test --family 5", 2, "", "--family is one of 4, 6"},
        {"trace coturn", "trace 127.0.0.1:" + stun + " --wait-ms 200", 0, "\"success\"", ""},
        {"trace closed", "trace 127.0.0.1:" + std::to_string(diagtest::FreePort()) + " --wait-ms 200", 1,
         "server_unreachable", "refused the port"},
        {"trace usage", "trace 127.0.0.1", 2, "", "not HOST:PORT"},
        {"reach good", "reach " + g_peers->dir + "/good.json", 0, "\"reachable\": \"true\"", ""},
        {"reach not a list", "reach " + g_peers->dir + "/bad.json", 1, "", "not a cluster list"},
        {"reach no file", "reach " + g_peers->dir + "/none.json", 1, "", "cannot read"},
    };
    for (const auto& c : cases) {
        int status = -1;
        const std::string err = g_peers->dir + "/stderr.txt";
        const std::string out =
            diagtest::Run(std::string(MS_TOOL_PATH) + " diag " + c.args + " 2>" + err, &status);
        EXPECT_EQ(c.status, status) << c.name << "\n" << out << ReadFile(err);
        EXPECT_NE(std::string::npos, out.find(c.stdoutHas)) << c.name << "\n" << out;
        EXPECT_NE(std::string::npos, ReadFile(err).find(c.stderrHas)) << c.name << "\n" << ReadFile(err);
    }
}

}  // namespace
