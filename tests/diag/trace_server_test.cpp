// The reachability test's schedule and verdicts on a fake clock with fake probes: the pace of
// starts, UDP first, retries, the two passes, the time budget, the result document, usability, and
// what a second start or a stop does to a run.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "diag/TraceServer.h"
#include "diag_test_util.h"
#include "util/CmJson.h"

namespace {

constexpr uint64_t kMs = 1000;

// What a fake probe does once kicked: answers after `afterMs` (reachable with that latency) or
// never (then its own time-out ends it).
struct Script {
    bool answers = true;
    uint64_t afterMs = 5;
};

struct Journal {
    std::vector<std::pair<std::string, uint64_t>> starts;  // uri, when
    std::map<std::string, int> kicks;
    std::map<std::string, bool> closed;
    std::map<std::string, Script> scripts;
};

class FakeProbe final : public ITraceProbe {
public:
    FakeProbe(Journal& journal, std::string cluster, const CCmUri& uri, const TraceProbeSettings& settings)
        : m_journal(journal), m_cluster(std::move(cluster)), m_uri(uri.ToString()), m_settings(settings)
    {
        m_transport = uri.GetScheme() == CCmUri::SCHEME_STUN   ? TRANSPORT_UDP
                      : uri.GetScheme() == CCmUri::SCHEME_HTTP ? TRANSPORT_TCP
                                                               : TRANSPORT_XTLS;
    }
    Transport GetTransport() const override { return m_transport; }
    const std::string& GetClusterName() const override { return m_cluster; }
    void Kick(uint64_t nowUs) override
    {
        ++m_journal.kicks[m_uri];
        if (m_started) return;
        m_started = true;
        m_startUs = nowUs;
        m_journal.starts.emplace_back(m_uri, nowUs);
    }
    bool IsStarted() const override { return m_started; }
    bool IsComplete(uint64_t nowUs) override
    {
        const Script s = m_journal.scripts[m_uri];
        if (s.answers && nowUs >= m_startUs + s.afterMs * kMs) m_reachable = true;
        return m_reachable || nowUs >= m_startUs + static_cast<uint64_t>(m_settings.probeTimeoutMs) * kMs;
    }
    bool IsReachable() const override { return m_reachable; }
    double GetRTT() const override { return m_reachable ? static_cast<double>(m_journal.scripts[m_uri].afterMs) : -1; }
    void closeTransaction() override { m_journal.closed[m_uri] = true; }

private:
    Journal& m_journal;
    std::string m_cluster;
    std::string m_uri;
    TraceProbeSettings m_settings;
    Transport m_transport;
    bool m_started = false;
    bool m_reachable = false;
    uint64_t m_startUs = 0;
};

class FakeFactory final : public ITraceProbeFactory {
public:
    explicit FakeFactory(Journal& journal) : m_journal(journal) {}
    std::unique_ptr<ITraceProbe> Create(const std::string& cluster, const CCmUri& uri,
                                        const TraceProbeSettings& settings) override
    {
        return std::make_unique<FakeProbe>(m_journal, cluster, uri, settings);
    }

private:
    Journal& m_journal;
};

struct RecordingSink final : IZynTraceServerSink {
    void OnTraceServerResult(bool isCompleted, const char* json) override
    {
        ++calls;
        completed = isCompleted;
        document = json::Deserialize(json);
    }
    int calls = 0;
    bool completed = false;
    json::Value document;
};

class TraceServerTest : public ::testing::Test {
protected:
    TraceServerTest() : server(nullptr, std::make_unique<FakeFactory>(journal), [this] { return now; })
    {
        server.SetSink(&sink);
        // 10 a second: one start every 100 ms; probes give up after 1 s; the run after 5 s.
        EXPECT_EQ(ZYN_S_OK, server.SetOption(R"({"numStunTracePerSec": 10, "probeTimeoutMs": 1000,
                                                 "totalTimeoutMs": 5000})"));
    }
    ZynResult Start(const std::string& text) { return server.StartTrace(text.c_str(), static_cast<long>(text.size())); }
    // Ticks every 100 ms until the sink hears or the limit passes.
    void RunUntilReported(uint64_t limitMs = 10000)
    {
        for (uint64_t end = now + limitMs * kMs; sink.calls == 0 && now < end;) {
            now += 100 * kMs;
            server.Tick(now);
        }
    }
    std::string Reachable(const std::string& cluster, const std::string& transport)
    {
        return sink.document[cluster][transport]["reachable"].get<std::string>();
    }

    uint64_t now = 1000000 * kMs;
    Journal journal;
    RecordingSink sink;
    CTraceServer server;
};

TEST_F(TraceServerTest, StartsUdpFirstAtThePaceAndReportsEachClusterAndTransport)
{
    journal.scripts["stun:10.0.0.1:3478"] = {true, 30};
    journal.scripts["stun:10.0.0.2:3478"] = {true, 10};
    journal.scripts["http://10.0.0.1:80/"] = {true, 50};
    journal.scripts["https://10.0.0.1:443/"] = {false, 0};
    ASSERT_EQ(ZYN_S_OK, Start(R"({"a": ["http://10.0.0.1:80/", "stun:10.0.0.1:3478", "https://10.0.0.1:443/",
                                        "stun:10.0.0.2:3478"]})"));
    // At once: the first of the high queue (UDP) and the first of the normal queue.
    ASSERT_EQ(2u, journal.starts.size());
    EXPECT_EQ("stun:10.0.0.1:3478", journal.starts[0].first);
    EXPECT_EQ("http://10.0.0.1:80/", journal.starts[1].first);
    RunUntilReported();
    ASSERT_EQ(1, sink.calls);
    EXPECT_TRUE(sink.completed);
    // Then one a tick, the rest of the UDP queue before the rest of the other.
    ASSERT_EQ(4u, journal.starts.size());
    EXPECT_EQ("stun:10.0.0.2:3478", journal.starts[2].first);
    EXPECT_EQ(100 * kMs, journal.starts[2].second - journal.starts[0].second);
    EXPECT_EQ("https://10.0.0.1:443/", journal.starts[3].first);
    EXPECT_EQ("true", Reachable("a", "udp"));
    EXPECT_DOUBLE_EQ(10.0, sink.document["a"]["udp"]["latencyInMilliseconds"].get<double>()) << "the best of two";
    EXPECT_EQ("true", Reachable("a", "tcp"));
    EXPECT_EQ("false", Reachable("a", "xtls"));
    EXPECT_FALSE(sink.document["a"]["xtls"].contains("latencyInMilliseconds"));
    EXPECT_EQ("true", sink.document["clusterUsability"]["usable"].get<std::string>());
    for (const auto& [uri, closed] : journal.closed) EXPECT_TRUE(closed) << uri;
    EXPECT_EQ(4u, journal.closed.size());
    EXPECT_GT(journal.kicks["https://10.0.0.1:443/"], 1) << "a probe without an answer is kicked again until it ends";
    EXPECT_FALSE(server.IsRunning());
}

TEST_F(TraceServerTest, UsabilityFollowsTheMeshNodesAndTheLastRun)
{
    const char* list = R"({"clusters": {"mesh": ["stun:10.0.0.1:3478"], "cloud": ["stun:10.0.0.2:3478"]},
                           "clusterClasses": {"hybridMedia": ["mesh"], "all": ["cloud"]}})";
    struct Run {
        bool meshAnswers, cloudAnswers, usable;
    };
    const Run runs[] = {{true, false, true}, {false, true, false}, {true, true, true}, {false, false, false}};
    for (const auto& r : runs) {
        journal.scripts["stun:10.0.0.1:3478"] = {r.meshAnswers, 20};
        journal.scripts["stun:10.0.0.2:3478"] = {r.cloudAnswers, 20};
        sink.calls = 0;
        ASSERT_EQ(ZYN_S_OK, Start(list));
        RunUntilReported();
        ASSERT_EQ(1, sink.calls);
        EXPECT_EQ(r.usable, server.IsLastTraceServerUsable()) << r.meshAnswers << r.cloudAnswers;
        EXPECT_EQ(r.usable ? "true" : "false", sink.document["clusterUsability"]["usable"].get<std::string>());
    }
    // Without mesh nodes, any answering cluster makes it usable.
    journal.scripts["stun:10.0.0.2:3478"] = {true, 20};
    sink.calls = 0;
    ASSERT_EQ(ZYN_S_OK, Start(R"({"cloud": ["stun:10.0.0.2:3478"]})"));
    RunUntilReported();
    EXPECT_TRUE(server.IsLastTraceServerUsable());
}

TEST_F(TraceServerTest, SecondPassStartsWhenTheFirstIsDone)
{
    journal.scripts["stun:10.0.0.1:3478"] = {false, 0};
    journal.scripts["stun:10.0.0.9:3478"] = {true, 7};
    ASSERT_EQ(ZYN_S_OK, Start(R"({"clusters": {"named": ["stun:10.0.0.1:3478"], "extra": ["stun:10.0.0.9:3478"]},
                                  "clusterClasses": {"c": ["named"]}})"));
    RunUntilReported();
    ASSERT_EQ(2u, journal.starts.size());
    // The first pass's probe gave up after its 1 s; only then did the second start.
    EXPECT_GE(journal.starts[1].second - journal.starts[0].second, 1000 * kMs);
    EXPECT_EQ("false", Reachable("named", "udp"));
    EXPECT_EQ("true", Reachable("extra", "udp"));
    EXPECT_TRUE(sink.completed);
}

TEST_F(TraceServerTest, TimeBudgetEndsTheRunAndWhatWasNotReachedIsUnreachable)
{
    ASSERT_EQ(ZYN_S_OK, server.SetOption(R"({"totalTimeoutMs": 1500, "probeTimeoutMs": 10000})"));
    std::string list = R"({"clusters": {"slow": ["stun:10.0.0.1:3478"], "late": ["stun:10.0.0.2:3478"]},
                           "clusterClasses": {"c": ["slow"]}})";
    journal.scripts["stun:10.0.0.1:3478"] = {false, 0};
    ASSERT_EQ(ZYN_S_OK, Start(list));
    RunUntilReported();
    ASSERT_EQ(1, sink.calls);
    EXPECT_FALSE(sink.completed);
    EXPECT_EQ("false", Reachable("slow", "udp"));
    EXPECT_EQ("false", Reachable("late", "udp")) << "the second pass never ran";
    EXPECT_TRUE(journal.closed["stun:10.0.0.1:3478"]);
}

TEST_F(TraceServerTest, SecondStartIsRefusedAndTheRunGoesOn)
{
    diagtest::TraceCapture traces;
    journal.scripts["stun:10.0.0.1:3478"] = {true, 300};
    ASSERT_EQ(ZYN_S_OK, Start(R"({"a": ["stun:10.0.0.1:3478"]})"));
    EXPECT_EQ(ZYN_E_WRONGSTATE, Start(R"({"b": ["stun:10.0.0.2:3478"]})"));
    EXPECT_TRUE(traces.Contains("CTraceServer::StartTrace, another TraceServer instance is still running."));
    RunUntilReported();
    ASSERT_EQ(1, sink.calls);
    EXPECT_EQ("true", Reachable("a", "udp"));
    EXPECT_FALSE(sink.document.contains("b"));
}

TEST_F(TraceServerTest, StopEndsTheRunWithoutAReport)
{
    journal.scripts["stun:10.0.0.1:3478"] = {true, 3000};
    ASSERT_EQ(ZYN_S_OK, Start(R"({"a": ["stun:10.0.0.1:3478"], "b": ["stun:10.0.0.2:3478"]})"));
    EXPECT_EQ(ZYN_S_OK, server.StopTrace());
    EXPECT_TRUE(journal.closed["stun:10.0.0.1:3478"]);
    RunUntilReported(2000);
    EXPECT_EQ(0, sink.calls);
    EXPECT_EQ(ZYN_S_FALSE, server.StopTrace());
    EXPECT_EQ(ZYN_S_OK, Start(R"({"a": ["stun:10.0.0.1:3478"]})")) << "a new run may start";
}

TEST_F(TraceServerTest, RefusedInputsAndOptions)
{
    diagtest::TraceCapture traces;
    EXPECT_EQ(ZYN_E_INVALIDARG, server.StartTrace(nullptr, 10));
    EXPECT_TRUE(traces.Contains("Assert failed: traceInfoList != NULL && len > 0"));
    EXPECT_EQ(ZYN_E_INVALIDARG, server.StartTrace("{}", 0));
    EXPECT_EQ(ZYN_E_INVALIDARG, Start(R"([1, 2])"));
    EXPECT_FALSE(server.IsRunning());
    for (const char* text : {"", "[]", R"({"numStunTracePerSec": 5)"}) EXPECT_EQ(ZYN_E_INVALIDARG, server.SetOption(text));
    EXPECT_EQ(10, server.GetOptions().numStunTracePerSec) << "refused options change nothing";
    EXPECT_EQ(ZYN_E_INVALIDARG, server.SetPortRange(5000, 4000));
    EXPECT_EQ(ZYN_S_OK, server.SetPortRange(40000, 40010));
    EXPECT_EQ(40010, server.GetOptions().probe.portMax);
}

}  // namespace
