// The connection's statistics read where they come from: the machine's own counters moving under
// a load the test makes, the lines' path counters of a loopback call, the "SQ" lines in the trace
// at the ticks the test drives, and the metrics documents read back by a JSON parser.
#include <gtest/gtest.h>

#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "call_harness.h"
#include "connection/MediaConnection.h"
#include "test_support.h"
#include "util/CmJson.h"
#include "util/CmSysInfo.h"

namespace zyn {
// Ticks the statistic timer from the test, with the real one parked an hour away.
struct CMediaConnectionStatsProbe {
    static void ParkTimer(CMediaConnection& c) { c.m_tickPeriodMs = 3600 * 1000; }
    static void Tick(CMediaConnection& c) { c.OnTimer(&c.m_statTimer); }
    static bool Scheduled(CMediaConnection& c) { return c.m_statTimer.IsScheduled() || c.m_minuteTimer.IsScheduled(); }
};
}  // namespace zyn

namespace {

using namespace std::chrono_literals;
using zyn::CMediaConnection;
using Probe = zyn::CMediaConnectionStatsProbe;

constexpr unsigned long kAudio = 0, kVideo = 1, kShare = 2, kUnknown = 77;

uint64_t ProcessCpuNs()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

// Spins until this process has used `ms` more CPU time: a load measured in work done, not in time
// waited.
void BurnCpu(uint64_t ms)
{
    const uint64_t end = ProcessCpuNs() + ms * 1000000ull;
    volatile uint64_t sink = 0;
    while (ProcessCpuNs() < end)
        for (int i = 0; i < 10000; ++i) sink = sink + static_cast<uint64_t>(i) * 2654435761u;
}

class ConnectionStatisticsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 7));
        m_impl = static_cast<CMediaConnection*>(m_conn);
        m_api = m_impl;
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudio, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, kVideo, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_ScreenShare, ZynDirection_SendRecv, kShare, nullptr));
        Probe::ParkTimer(*m_impl);
    }
    void TearDown() override
    {
        if (m_conn) {
            m_conn->Stop();
            m_conn->Release();
        }
        mstest::OnMain();
    }
    bool Kicked(const std::string& tag, ZynResult code) { return mstest::Kicked(m_impl->GetSessionMetrics(), tag, code); }

    mstest::EngineScope m_engine;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnection* m_impl = nullptr;
    IZynMediaConnection4T* m_api = nullptr;
};

TEST_F(ConnectionStatisticsTest, CpuAndMemoryFiguresAreSaneAndFollowTheLoad)
{
    _tagZynCPUUsage cpuBefore{}, cpuAfter{};
    ASSERT_EQ(ZYN_S_OK, m_api->GetCPUStatistics(cpuBefore));
    BurnCpu(300);
    ASSERT_EQ(ZYN_S_OK, m_api->GetCPUStatistics(cpuAfter));
    for (const _tagZynCPUUsage* cpu : {&cpuBefore, &cpuAfter}) {
        EXPECT_GE(cpu->nCoreCount, 1u);
        EXPECT_GE(cpu->fTotalUsage, 0.0f);
        EXPECT_LE(cpu->fTotalUsage, 100.0f);
        EXPECT_GE(cpu->fProcessUsage, 0.0f);
        EXPECT_LE(cpu->fProcessUsage, cpu->fTotalUsage);
    }
    // /proc counts in ticks of 10 ms: 300 ms of work show as at least 200 ms.
    EXPECT_GE(cpuAfter.uProcessCpuMs - cpuBefore.uProcessCpuMs, 200u);
    EXPECT_GT(cpuAfter.fProcessUsage, 0.0f) << "the burn happened inside the interval";

    _tagZynMemoryUsage memBefore{}, memAfter{};
    ASSERT_EQ(ZYN_S_OK, m_api->GetMemoryStatistics(memBefore));
    constexpr size_t kBlock = 64u << 20;
    std::vector<char> block(kBlock);
    std::memset(block.data(), 0x5a, block.size());  // touched, so resident
    ASSERT_EQ(ZYN_S_OK, m_api->GetMemoryStatistics(memAfter));
    for (const _tagZynMemoryUsage* mem : {&memBefore, &memAfter}) {
        EXPECT_GT(mem->uTotalMemoryBytes, 0u);
        EXPECT_LE(mem->uUsedMemoryBytes, mem->uTotalMemoryBytes);
        EXPECT_LE(mem->uMemoryUsage, 100u);
        EXPECT_GT(mem->uProcessMemoryBytes, 0u);
        EXPECT_LE(mem->uProcessMemoryBytes, mem->uTotalMemoryBytes);
    }
    EXPECT_GE(memAfter.uProcessMemoryBytes, memBefore.uProcessMemoryBytes + kBlock * 3 / 4);
    EXPECT_GT(memAfter.fProcessMemoryUsage, memBefore.fProcessMemoryUsage);
    EXPECT_EQ(0x5a, block[kBlock / 2]);
}

TEST(BatteryStatusTest, ReadsTheFirstBatteryOfAPowerSupplyTree)
{
    struct Supply {
        const char* name;
        const char* type;
        const char* capacity;  // null: no such file
        const char* status;
    };
    struct Row {
        const char* name;
        std::vector<Supply> supplies;
        CmResult result;
        bool charging;
        uint32_t level;
    };
    const std::vector<Row> rows = {
        {"no supply at all", {}, CM_ERROR_NOT_FOUND, false, 0},
        {"mains only", {{"AC", "Mains", nullptr, nullptr}}, CM_ERROR_NOT_FOUND, false, 0},
        {"charging", {{"AC", "Mains", nullptr, nullptr}, {"BAT0", "Battery", "57\n", "Charging\n"}}, CM_OK, true, 57},
        {"discharging", {{"BAT0", "Battery", "12", "Discharging"}}, CM_OK, false, 12},
        {"full on mains", {{"BAT0", "Battery", "100", "Full"}}, CM_OK, true, 100},
        {"capacity past 100 is cut", {{"BAT0", "Battery", "120", "Discharging"}}, CM_OK, false, 100},
        {"garbage capacity is no battery", {{"BAT0", "Battery", "lots", "Charging"}}, CM_ERROR_NOT_FOUND, false, 0},
        {"first readable battery wins", {{"BAT0", "Battery", nullptr, "Charging"}, {"BAT1", "Battery", "33", "Discharging"}},
         CM_OK, false, 33},
    };
    const auto root = std::filesystem::temp_directory_path() / ("ms_battery_" + std::to_string(getpid()));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        for (const Supply& s : row.supplies) {
            std::filesystem::create_directories(root / s.name);
            std::ofstream(root / s.name / "type") << s.type << "\n";
            if (s.capacity) std::ofstream(root / s.name / "capacity") << s.capacity;
            if (s.status) std::ofstream(root / s.name / "status") << s.status;
        }
        CmBatteryStatus status;
        ASSERT_EQ(row.result, get_battery_status(status, root.c_str()));
        if (row.result != CM_OK) continue;
        EXPECT_EQ(row.charging, status.charging);
        EXPECT_EQ(row.level, status.levelPercent);
    }
    std::filesystem::remove_all(root);
    CmBatteryStatus missing;
    EXPECT_EQ(CM_ERROR_NOT_FOUND, get_battery_status(missing, (root / "absent").c_str()));
}

TEST_F(ConnectionStatisticsTest, BatteryAnswerIsTheMachines)
{
    CmBatteryStatus machine;
    const bool hasBattery = get_battery_status(machine) == CM_OK;
    bool charging = false;
    int level = -1;
    const ZynResult r = m_api->GetBatteryStatistics(charging, level);
    if (!hasBattery) {
        EXPECT_EQ(ZYN_E_NOTFOUND, r);
        return;
    }
    ASSERT_EQ(ZYN_S_OK, r);
    EXPECT_GE(level, 0);
    EXPECT_LE(level, 100);
}

// Ticks 1 to 9 with statistic lines every 3 s, logging stopped after tick 6: lines at 3 and 6.
TEST_F(ConnectionStatisticsTest, MediaLoggingWritesItsLinesEveryIntervalUntilStopped)
{
    mstest::TraceCapture trace;
    EXPECT_EQ(ZYN_E_INVALIDARG, m_api->StartMediaLogging(999, 0));
    EXPECT_TRUE(Kicked("StMedLog", ZYN_E_INVALIDARG));
    EXPECT_FALSE(Probe::Scheduled(*m_impl)) << "a refused start scheduled its timers";
    EXPECT_TRUE(trace.Contains("Assert failed: interval >= 1000"));

    ASSERT_EQ(ZYN_S_OK, m_api->StartMediaLogging(3000, 0));
    EXPECT_TRUE(Probe::Scheduled(*m_impl));
    struct Step {
        int tick;
        int lines;  // "SQBattery" lines written so far
    };
    const std::vector<Step> steps = {{1, 0}, {2, 0}, {3, 1}, {4, 1}, {5, 1}, {6, 2}};
    for (const Step& step : steps) {
        SCOPED_TRACE("tick " + std::to_string(step.tick));
        Probe::Tick(*m_impl);
        EXPECT_EQ(step.lines, trace.Count("SQBattery----isCharging:"));
        EXPECT_EQ(step.lines, trace.Count("[SQ] INFO: SQMemory - processMem="));
        // The engine's sent streams of the three lines, each once a statistic line is due.
        EXPECT_EQ(step.lines, trace.Count("[SQ] INFO: SQAudioTX - vid=0"));
        EXPECT_EQ(step.lines, trace.Count("[SQ] INFO: SQVideoTX - vid=0"));
        EXPECT_EQ(step.lines, trace.Count("[SQ] INFO: SQScreenSender - vid=0"));
    }
    EXPECT_TRUE(trace.Contains("SQVideoTX - vid=0 ssrc="));
    EXPECT_TRUE(trace.Contains(" w*h=0x0 fps=0 br=0 encoded=0 sendbufStat=0 idrReq=0 idrSent=0 idrSize=0"));

    ASSERT_EQ(ZYN_S_OK, m_api->StopMediaLogging());
    EXPECT_FALSE(Probe::Scheduled(*m_impl));
    for (int tick = 7; tick <= 9; ++tick) Probe::Tick(*m_impl);
    EXPECT_EQ(2, trace.Count("SQBattery----isCharging:")) << "a tick after stop wrote";

    // Every tick still fed the metrics while logging ran: six CPU samples.
    json::Value doc = json::Deserialize(m_api->GetMediaSessionMetrics());
    uint64_t samples = 0;
    for (const json::Value& bucket : doc["cpuSystem"]) samples += bucket["duration"].get<uint64_t>();
    EXPECT_EQ(6u, samples);

    m_conn->Stop();
    EXPECT_EQ(ZYN_E_WRONGSTATE, m_api->StartMediaLogging(3000, 0)) << "logging restarted on a stopped connection";
    EXPECT_FALSE(Probe::Scheduled(*m_impl));
}

TEST_F(ConnectionStatisticsTest, MetricsDocumentsCarryWhatTheSessionRecorded)
{
    ASSERT_EQ(ZYN_E_INVALIDARG, m_api->StartMediaLogging(10, 0));
    ASSERT_EQ(ZYN_S_OK, m_api->StartMediaLogging(1000, 0));
    Probe::Tick(*m_impl);
    Probe::Tick(*m_impl);

    json::Value doc = json::Deserialize(m_api->GetMediaSessionMetrics());
    ASSERT_TRUE(doc.is_object()) << m_api->GetMediaSessionMetrics();
    bool kicked = false;
    for (const json::Value& e : doc["zyn"]["errors"])
        kicked |= e["tag"] == "StMedLog" && e["code"] == static_cast<int32_t>(ZYN_E_INVALIDARG);
    EXPECT_TRUE(kicked) << doc.dump();
    EXPECT_FALSE(doc["zyn"]["zynver"].get<std::string>().empty());
    ASSERT_TRUE(doc.contains("aMetric")) << doc.dump();
    EXPECT_EQ("audio", doc["aMetric"]["mediaType"]);
    EXPECT_EQ("main", doc["aMetric"]["mediaContent"]);
    EXPECT_EQ(3u, doc["stats"].size()) << "audio, video and share, each once";
    EXPECT_EQ(doc, json::Deserialize(m_api->GetMediaSessionMetrics())) << "reading cleared something";

    json::Value sap = json::Deserialize(m_api->GetMediaSessionMetricsForSAP());
    ASSERT_TRUE(sap.is_array());
    std::vector<std::string> types;
    for (const json::Value& m : sap) {
        EXPECT_TRUE(m.contains("time") && m.contains("content") && m.contains("mediaType"));
        types.push_back(m["type"].get<std::string>());
    }
    // Three figures of three lines, then the two CPU distributions; "info" has nothing yet.
    ASSERT_EQ(11u, types.size());
    EXPECT_EQ("rtt", types[0]);
    EXPECT_EQ("cpuSq", types[9]);
    EXPECT_EQ("cpuSystem", types[10]);

    json::Value cancel = json::Deserialize(m_api->GetCallCancelMetrics());
    ASSERT_TRUE(cancel.is_object());
    EXPECT_EQ(2u, cancel.size());
    EXPECT_TRUE(cancel["dns"].is_array());

    json::Value mqe = json::Deserialize(m_api->GetEventReport(ZynEventMetrics_MQE));
    ASSERT_TRUE(mqe.is_object());
    const json::Value& data = mqe["mqeDataReport"];
    EXPECT_GE(data["cpu_info"]["totalCpuUsage"].get<double>(), 0.0);
    EXPECT_EQ("0.0, 0.0", data["rx_media_e2e_lost_percent"]["audio"]) << "two ticks, no loss";
    // A report starts the next interval: nothing sampled since.
    json::Value next = json::Deserialize(m_api->GetEventReport(ZynEventMetrics_MQE));
    EXPECT_EQ(-1, next["mqeDataReport"]["cpu_info"]["totalCpuUsage"]);
    EXPECT_TRUE(next["mqeDataReport"]["rx_media_e2e_lost_percent"].empty());
}

TEST_F(ConnectionStatisticsTest, BadInputGivesItsCode)
{
    _tagSyncStatistics sync{};
    _tagDownLinkIndicationInfo info{};
    struct Row {
        const char* name;
        std::function<ZynResult()> call;
        ZynResult live;
        ZynResult stopped;
        const char* kick;  // tag the metrics hold after the live call, when it is one
    };
    const std::vector<Row> rows = {
        {"sync of csi 0", [&] { return m_api->GetSyncStatistics(0, sync); }, ZYN_E_NOTFOUND, ZYN_E_NOTFOUND,
         "GetSyncSta"},
        {"sync of an unknown csi", [&] { return m_api->GetSyncStatistics(4242, sync); }, ZYN_E_NOTFOUND,
         ZYN_E_NOTFOUND, "GetSyncSta"},
        {"downlink info null", [&] { return m_api->UpdateDownLinkIndicationInfo(nullptr, kVideo); }, ZYN_E_NOTIMPL,
         ZYN_E_NOTIMPL, nullptr},
        {"downlink info of an unknown mid", [&] { return m_api->UpdateDownLinkIndicationInfo(&info, kUnknown); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG, nullptr},
        {"downlink info of an audio line", [&] { return m_api->UpdateDownLinkIndicationInfo(&info, kAudio); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG, nullptr},
        {"downlink info of the video line", [&] { return m_api->UpdateDownLinkIndicationInfo(&info, kVideo); },
         ZYN_E_NOTAVAILABLE, ZYN_E_INVALIDARG, nullptr},
        {"notification of an unknown status",
         [&] { return m_api->SetGlobalNetworkNotificationParam(static_cast<ZynNetworkStatus>(9), ZynNetworkDirection_Uplink, 100); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG, "SetNWNotifyParam"},
        {"notification of an unknown direction",
         [&] { return m_api->SetGlobalNetworkNotificationParam(ZynNetwork_Bad, static_cast<_tagNetworkDirection>(0), 100); },
         ZYN_E_INVALIDARG, ZYN_E_INVALIDARG, "SetNWNotifyParam"},
        {"notification wait",
         [&] { return m_api->SetGlobalNetworkNotificationParam(ZynNetwork_Bad, ZynNetworkDirection_Both, 1000); },
         ZYN_E_NOTAVAILABLE, ZYN_E_WRONGSTATE, nullptr},
        {"logging every 999 ms", [&] { return m_api->StartMediaLogging(999, 0); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG, "StMedLog"},
        {"logging at a negative interval", [&] { return m_api->StartMediaLogging(-1000, 0); }, ZYN_E_INVALIDARG,
         ZYN_E_INVALIDARG, "StMedLog"},
        {"audio time stamp", [&] { return m_api->SyncWithAudioTimestamp(1, 2); }, ZYN_E_NOTAVAILABLE,
         ZYN_E_WRONGSTATE, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.live, row.call());
        if (row.kick) {
            EXPECT_TRUE(Kicked(row.kick, row.live));
        }
    }
    EXPECT_EQ(nullptr, m_api->GetEventReport(static_cast<ZynEventMetricsType>(9)));
    EXPECT_EQ(0, m_api->GetNetworkIndex(static_cast<_tagNetworkDirection>(7)));
    const int uplink = m_api->GetNetworkIndex(ZynNetworkDirection_Uplink);
    EXPECT_GT(uplink, 0);
    EXPECT_LE(uplink, 100);

    m_conn->Stop();
    mstest::OnMain();  // the clean-up that empties the line list runs there
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", after Stop");
        EXPECT_EQ(row.stopped, row.call());
    }
    EXPECT_EQ(0, m_api->GetNetworkIndex(ZynNetworkDirection_Uplink)) << "unknown once stopped";
    _tagZynAggregateNetworkMetricStats aggregate{};
    EXPECT_EQ(ZYN_S_OK, m_api->GetNetworkMetrics(aggregate));
    EXPECT_EQ(0u, aggregate.uLineCount);
}

// Two connections in a loopback call: what one reports for all its lines is what its lines report
// one by one, read before and after (the media keeps flowing in between).
TEST(ConnectionNetworkMetricsTest, AggregateIsTheSumOfTheLinesOverALoopbackCall)
{
    mstest::EngineScope engine;
    std::optional<mstest::CallPair> call;
    call.emplace(std::vector<mstest::CallLine>{{ZynSessionType_Audio, kAudio}, {ZynSessionType_Video, kVideo}},
                 [](CMediaConnection&) {});
    ASSERT_TRUE(call->Exchange());
    ASSERT_TRUE(call->WaitAll(2)) << "a line never connected";
    IZynMediaConnection4T* a = call->Impl(0);
    auto lineSum = [&] {
        _tagAudioConnectionStatistics audio{};
        _tagVideoConnectionStatistics video{};
        EXPECT_EQ(ZYN_S_OK, a->GetAudioStatistics(kAudio, audio));
        EXPECT_EQ(ZYN_S_OK, a->GetVideoStatistics(kVideo, video));
        return std::vector<uint64_t>{audio.path.packetsSent + video.path.packetsSent,
                                     audio.path.packetsReceived + video.path.packetsReceived,
                                     audio.path.bytesSent + video.path.bytesSent,
                                     audio.path.bytesReceived + video.path.bytesReceived};
    };
    // Media in both directions on both lines before the comparison means anything.
    const auto end = std::chrono::steady_clock::now() + 20s;
    std::vector<uint64_t> before;
    do {
        call->sink[0].Wait([] { return false; }, 20ms);
        mstest::OnMain([&] { before = lineSum(); });
    } while ((before[0] == 0 || before[1] == 0) && std::chrono::steady_clock::now() < end);
    ASSERT_GT(before[1], 0u) << "no media arrived";

    _tagZynAggregateNetworkMetricStats aggregate{};
    std::vector<uint64_t> after;
    mstest::OnMain([&] {
        before = lineSum();
        EXPECT_EQ(ZYN_S_OK, a->GetNetworkMetrics(aggregate));
        after = lineSum();
    });
    EXPECT_EQ(2u, aggregate.uLineCount);
    const std::vector<uint64_t> got = {aggregate.uPacketsSent, aggregate.uPacketsReceived, aggregate.uBytesSent,
                                       aggregate.uBytesReceived};
    const char* names[] = {"packets sent", "packets received", "bytes sent", "bytes received"};
    for (size_t i = 0; i < got.size(); ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_GE(got[i], before[i]);
        EXPECT_LE(got[i], after[i]);
    }
    EXPECT_GE(aggregate.fLossPercent, 0.0f);
    EXPECT_LE(aggregate.fLossPercent, 100.0f);
}

}  // namespace
