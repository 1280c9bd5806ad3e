// The static performance table evaluated for machines of known measurements, and its exported doors.
#include <gtest/gtest.h>

#include "mediasession/ZynGlobalServices.h"
#include "perf/StaticPerformance.h"

namespace {

using zyn::CMediaPerformanceStaticControl;
using Machine = CMediaPerformanceStaticControl::CMachine;

Machine Make(uint64_t memSize, uint32_t physCore, uint32_t cpuFreq)
{
    Machine m;
    m.memSize = memSize;
    m.physicalCore = physCore;
    m.virtualCore = physCore * 2;
    m.cpuFrequency = cpuFreq;
    return m;
}

TEST(StaticPerformanceTest, TheBuiltInTableRanksMachines)
{
    struct Row {
        const char* name;
        Machine machine;
        bool allow1080;
        ZynVideoPerformance send, receive;
        int layers;
    } rows[] = {
        {"strong, 1080p not allowed", Make(16000, 8, 3000), false, ZynVideoPerformance_720p,
         ZynVideoPerformance_720p, 4},
        {"strong, 1080p allowed", Make(16000, 8, 3000), true, ZynVideoPerformance_1080p, ZynVideoPerformance_1080p,
         4},
        {"four slow cores", Make(8000, 4, 1500), true, ZynVideoPerformance_720p, ZynVideoPerformance_720p, 4},
        {"two cores", Make(4000, 2, 3000), true, ZynVideoPerformance_360p, ZynVideoPerformance_360p, 2},
        {"one fast core, 1000 MB", Make(1000, 1, 2400), true, ZynVideoPerformance_180p, ZynVideoPerformance_180p, 1},
        {"meets no rule", Make(512, 1, 800), true, ZynVideoPerformance_180p, ZynVideoPerformance_180p, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaPerformanceStaticControl control(row.machine, "linux");
        control.Enable1080pVideo(row.allow1080);
        EXPECT_EQ(row.send, control.QuerySendPerformance(false, ZynSessionType_Video));
        EXPECT_EQ(row.receive, control.QueryRecvPerformance(false, ZynSessionType_Video));
        EXPECT_EQ(row.layers, control.QuerySimulLayers(false, ZynSessionType_Video));
        EXPECT_TRUE(control.QueryPipCapability(false)) << "an empty general holds everywhere";
        EXPECT_FALSE(control.CheckHWAcceleration());
    }
    // The share line has its own 1080p switch.
    CMediaPerformanceStaticControl control(Make(16000, 8, 3000), "linux");
    control.Enable1080pVideo(true);
    EXPECT_EQ(ZynVideoPerformance_720p, control.QuerySendPerformance(false, ZynSessionType_ScreenShare));
    control.EnableScreen1080pVideo(true);
    EXPECT_EQ(ZynVideoPerformance_1080p, control.QuerySendPerformance(false, ZynSessionType_ScreenShare));
    control.overrideSpec(Make(4000, 2, 3000));
    EXPECT_EQ(ZynVideoPerformance_360p, control.QuerySendPerformance(false, ZynSessionType_ScreenShare));
}

TEST(StaticPerformanceTest, RuleFormsAndBrokenTables)
{
    const char* table = R"({"linux": {"defaults": {"send": {
        "720p": {"general": {"physCore": ["between", 2, 4]}},
        "360p": {"specials": [{"memSize": ["~", 1]}, {"cpuFreq": ["<", 1000], "overrideQuality": "180p"},
                              {"physCore": ["==", 6]}]}}}}})";
    struct Row {
        const char* name;
        Machine machine;
        const char* os;
        const char* table;
        ZynVideoPerformance send;
    } rows[] = {
        {"between includes its upper end", Make(1, 4, 1), "linux", table, ZynVideoPerformance_720p},
        {"between includes its lower end", Make(1, 2, 1), "linux", table, ZynVideoPerformance_720p},
        {"a special overrides the quality", Make(1, 5, 500), "linux", table, ZynVideoPerformance_180p},
        {"an unknown test form never holds", Make(5, 6, 5000), "linux", table, ZynVideoPerformance_360p},
        {"no rule holds", Make(1, 5, 5000), "linux", table, ZynVideoPerformance_180p},
        {"no table for the OS", Make(16000, 8, 3000), "beos", nullptr, ZynVideoPerformance_180p},
        {"not JSON", Make(16000, 8, 3000), "linux", "{", ZynVideoPerformance_180p},
        {"a test of the wrong type", Make(16000, 8, 3000), "linux",
         R"({"linux": {"defaults": {"send": {"720p": {"general": {"physCore": 4}}}}}})", ZynVideoPerformance_180p},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CMediaPerformanceStaticControl control(row.machine, row.os, row.table);
        EXPECT_EQ(row.send, control.QuerySendPerformance(false, ZynSessionType_Video));
        EXPECT_EQ(1, control.QuerySimulLayers(false, ZynSessionType_Video));
    }
}

TEST(StaticPerformanceTest, ExportedDoorsAskTheMeasuredMachine)
{
    CMediaPerformanceStaticControl& control = CMediaPerformanceStaticControl::Instance();
    EXPECT_GE(control.GetMachine().physicalCore, 1u);
    EXPECT_EQ(control.QuerySendPerformance(false, ZynSessionType_Video), GetStaticPerformance(false, ZynSessionType_Video));
    EXPECT_EQ(control.QueryRecvPerformance(false, ZynSessionType_Video), GetStaticPerformance(true, ZynSessionType_Video));
    EXPECT_FALSE(CheckHWAccelerationForVideoEncode());
}

}  // namespace
