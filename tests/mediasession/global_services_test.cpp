// The process-wide services through their exported doors: call information reaching connections,
// the proxy answer copied into a bounded buffer, the heartbeat after the engine ended, the machine.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <string>

#include "connection/MediaConnection.h"
#include "mediasession/ZynMediaEngine.h"
#include "test_support.h"
#include "tp/CmProxy.h"

namespace zyn {
extern std::atomic<uint64_t> g_heartbeatsRun;
}

namespace {

_tagZynCallInfo Info(uint32_t size, const char* meeting)
{
    _tagZynCallInfo info{};
    info.size = size;
    std::strncpy(info.meetingId, meeting, sizeof(info.meetingId) - 1);
    return info;
}

TEST(GlobalServicesTest, CallInfoReachesEveryConnectionOfTheCallAndNoOther)
{
    mstest::EngineScope engine;
    IZynMediaConnection *a = nullptr, *b = nullptr, *other = nullptr;
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&a, 4242));
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection4T(4242, &b, true, false));
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&other, 4343));
    auto meetingOf = [](IZynMediaConnection* c) {
        return std::string(static_cast<zyn::CMediaConnection*>(c)->GetCallInfo().meetingId);
    };
    const _tagZynCallInfo good = Info(sizeof(_tagZynCallInfo), "m-1"), small = Info(131, "m-2");
    struct Row {
        const char* name;
        const char* id;
        const _tagZynCallInfo* info;
        ZynResult expect;
        const char* meeting;  // what the call's connections then hold
    } rows[] = {
        {"null id", nullptr, &good, ZYN_E_FAIL, ""},
        {"null record", "4242", nullptr, ZYN_E_FAIL, ""},
        {"record of 131 bytes", "4242", &small, ZYN_E_FAIL, ""},
        {"id not a number", "42x", &good, ZYN_E_FAIL, ""},
        {"a call without connections", "1", &good, ZYN_S_OK, ""},
        {"the call", "4242", &good, ZYN_S_OK, "m-1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expect, SetMediaCallInfo(row.id, row.info));
        EXPECT_EQ(row.meeting, meetingOf(a));
        EXPECT_EQ(row.meeting, meetingOf(b));
        EXPECT_EQ("", meetingOf(other));
    }
    for (IZynMediaConnection* c : {a, b, other}) {
        c->Stop();
        c->Release();
    }
    mstest::OnMain();
}

TEST(GlobalServicesTest, ProxyAnswerIsCopiedIntoABoundedBuffer)
{
    InitProxy(0);
    ASSERT_EQ(CM_OK, SetProxyConfigList("proxy.test:3128", 15, "", 0));
    struct Row {
        const char* name;
        const char* url;
        unsigned int capacity;
        const char* text;  // the buffer afterwards
        unsigned int length;
    } rows[] = {
        {"fits", "http://media.test/", 64, "proxy.test:3128", 15},
        {"cut to the capacity", "http://media.test/", 6, "proxy", 5},
        {"a capacity over 1024 copies nothing", "http://media.test/", 1025, "untouched", 1025},
        {"loopback goes direct", "http://127.0.0.1/", 64, "untouched", 64},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        char buffer[2048] = "untouched";
        unsigned int length = row.capacity;
        EXPECT_EQ(ZYN_S_OK, GetProxyConfigure(row.url, buffer, &length));
        EXPECT_STREQ(row.text, buffer);
        EXPECT_EQ(row.length, length);
    }
    unsigned int length = 8;
    EXPECT_EQ(ZYN_E_INVALIDARG, GetProxyConfigure(nullptr, nullptr, &length));
    SetProxyConfigList("", 0, "", 0);
    UnInitProxy();
}

TEST(GlobalServicesTest, HeartbeatAfterTheEngineEndedOnlyTracesEachHundredth)
{
    { mstest::EngineScope engine; }
    mstest::TraceCapture trace;
    for (int i = 0; i < 200; ++i) DoThreadHeartBeat();
    EXPECT_EQ(2, trace.Count("DoThreadHeartBeat when there is no thread manager instances."));
}

// Each beat runs on the main thread; a main thread held up leaves its beats waiting, and the next
// beat says so.
TEST(GlobalServicesTest, HeartbeatRunsOnTheMainThreadAndAStalledOneIsTraced)
{
    mstest::EngineScope engine;
    mstest::OnMain();
    const uint64_t ranBefore = zyn::g_heartbeatsRun.load();
    DoThreadHeartBeat();
    mstest::OnMain();
    EXPECT_EQ(ranBefore + 1, zyn::g_heartbeatsRun.load());

    mstest::TraceCapture trace;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_MAIN), true, [released] {
        released.wait();
        return CM_OK;
    });
    DoThreadHeartBeat();
    EXPECT_EQ(0, trace.Count("DoThreadHeartBeat, the main thread has not run"));
    DoThreadHeartBeat();
    EXPECT_EQ(1, trace.Count("DoThreadHeartBeat, the main thread has not run 1 of"));
    release.set_value();
    mstest::OnMain();
    EXPECT_EQ(ranBefore + 3, zyn::g_heartbeatsRun.load());
    DoThreadHeartBeat();
    EXPECT_EQ(1, trace.Count("DoThreadHeartBeat, the main thread has not run")) << "caught up: no new warning";
    mstest::OnMain();
}

TEST(GlobalServicesTest, MachineDescriptionsAndKeptDoors)
{
    _tagZynCpuDescription cpu;
    std::memset(&cpu, 0x7f, sizeof(cpu));
    ASSERT_EQ(ZYN_S_OK, GetCpuDescription(&cpu));
    EXPECT_GE(cpu.cores, 1u);
    EXPECT_LT(std::strlen(cpu.brand), sizeof(cpu.brand)) << "terminated";
    EXPECT_STRNE("", cpu.architecture);
    EXPECT_EQ(ZYN_E_INVALIDARG, GetCpuDescription(nullptr));
    std::vector<_tagZynGpuDescription> gpus;
    const ZynResult r = GetGpuDescription(gpus);
    EXPECT_TRUE(r == ZYN_S_OK || gpus.empty());
    for (const auto& g : gpus) EXPECT_LT(std::strlen(g.name), sizeof(g.name));

    for (auto door : {StartProximity, StopProximity, StartProximityRZSS, StopProximityRZSS, StartProximityBoth,
                      StopProximityBoth, GetExclusiveModeAPPName, ZynSetFIPSMode})
        EXPECT_EQ(ZYN_E_FAIL, door());
    EXPECT_EQ(ZYN_E_FAIL, SetProximityCallId("7"));
    EXPECT_EQ(ZYN_S_OK, SetAudioMode(3));
}

}  // namespace
