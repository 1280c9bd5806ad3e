// The thread manager's registry and the counted helpers built on it.
#include <gtest/gtest.h>

#include "tp/CmLowTick.h"
#include "tp/CmThreadManager.h"
#include "tp/CmThreadSingleton.h"

namespace {

TEST(ThreadManagerTest, SpawnedThreadsAreFoundByTypeAndRunTheirLoop)
{
    CCmThreadManager* manager = CCmThreadManager::Instance();
    ACmThread* main = manager->GetThread(TT_MAIN);
    ASSERT_NE(nullptr, main);
    EXPECT_NE(nullptr, main->GetEventQueue());

    ACmThread* net = nullptr;
    ASSERT_EQ(CM_OK, manager->SpawnNetworkThread_i(57, "t-probe", net));
    EXPECT_EQ(net, manager->GetThread(57));
    EXPECT_EQ("t-probe", net->GetThreadName());
    int64_t seenId = -1;
    CmInvokeInThread(net, false, [&] { seenId = ACmThread::GetCurrentThread()->GetThreadId(); return CM_OK; });
    EXPECT_EQ(net->GetThreadId(), seenId);
    EXPECT_EQ(nullptr, manager->GetThread(58));
}

TEST(ThreadSingletonTest, LastReleaseStopsTheSharedThread)
{
    ACmThread* a = ACmThreadSingletonFactory::GetSingletonThread("low-pri-stat");
    ACmThread* b = ACmThreadSingletonFactory::GetSingletonThread("low-pri-stat");
    ASSERT_NE(nullptr, a);
    EXPECT_EQ(a, b);
    EXPECT_EQ(2, ACmThreadSingletonFactory::UserCount("low-pri-stat"));
    ACmThreadSingletonFactory::ResleseSingletonThread(a);
    EXPECT_EQ(1, ACmThreadSingletonFactory::UserCount("low-pri-stat"));
    EXPECT_EQ(CM_OK, CmInvokeInThread(b, false, [] { return CM_OK; }));
    ACmThreadSingletonFactory::ResleseSingletonThread(b);
    EXPECT_EQ(0, ACmThreadSingletonFactory::UserCount("low-pri-stat"));
}

TEST(LowTickTest, StartsAndStopsAreCounted)
{
    int base = lowTickUsers();
    startLowTick();
    startLowTick();
    EXPECT_EQ(base + 2, lowTickUsers());
    uint64_t a = get_low_tick_count();
    stopLowTick();
    EXPECT_EQ(base + 1, lowTickUsers());
    stopLowTick();
    stopLowTick();  // one too many is ignored
    EXPECT_EQ(base, lowTickUsers());
    EXPECT_GE(get_low_tick_count(), a);
}

}  // namespace
