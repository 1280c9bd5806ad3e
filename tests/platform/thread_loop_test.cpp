// Loop threads: cross-thread post and send, priority order, inline send-to-self, timers, and
// shutdown with work still queued. Waits are on futures with a generous bound, never on sleeps.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <vector>

#include "tp/CmThreadManager.h"
#include "tp/CmTimerWrapperID.h"
#include "util/CmTrace.h"

namespace {

constexpr auto kBound = std::chrono::seconds(10);

class LoopThreadTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(CM_OK, thread.Create("t-test", TT_USER_DEFINE_BASE)); }
    void TearDown() override { thread.Stop(); }

    // Blocks the loop inside an event until the returned promise is set.
    std::promise<void> Gate()
    {
        std::promise<void> release;
        std::promise<void> entered;
        auto released = release.get_future().share();
        thread.GetEventQueue()->PostEvent(new CCmInvokeEvent([released, &entered] {
            entered.set_value();
            released.wait();
            return CM_OK;
        }), CM_EVENT_PRIORITY_HIGH + 10);
        entered.get_future().wait();
        return release;
    }

    CCmLoopThread thread;
};

struct CountingEvent : ICmEvent {
    CountingEvent(std::atomic<int>& fired, std::atomic<int>& destroyed) : fired(fired), destroyed(destroyed) {}
    ~CountingEvent() override { ++destroyed; }
    CmResult OnEventFire() override
    {
        ++fired;
        return CM_OK;
    }
    std::atomic<int>& fired;
    std::atomic<int>& destroyed;
};

TEST_F(LoopThreadTest, PostedEventRunsOnTargetThread)
{
    std::promise<bool> onTarget;
    ASSERT_EQ(CM_OK, CmInvokeInThread(&thread, true, [&] {
        onTarget.set_value(thread.IsCurrentThread() && ACmThread::GetCurrentThread() == &thread);
        return CM_OK;
    }));
    auto f = onTarget.get_future();
    ASSERT_EQ(std::future_status::ready, f.wait_for(kBound));
    EXPECT_TRUE(f.get());
}

TEST_F(LoopThreadTest, SendWaitsAndReturnsTheEventsResult)
{
    std::atomic<bool> ran{false};
    CmResult r = CmInvokeInThread(&thread, false, [&] {
        ran = thread.IsCurrentThread();
        return CmResult{4242};
    });
    EXPECT_EQ(4242, r);
    EXPECT_TRUE(ran.load());
}

TEST_F(LoopThreadTest, EventsRunByPriorityThenPostingOrder)
{
    auto release = Gate();
    std::vector<int> order;
    const std::vector<std::pair<int, int>> posts = {  // (priority, tag)
        {CM_EVENT_PRIORITY_LOW, 1}, {CM_EVENT_PRIORITY_NORMAL, 2}, {CM_EVENT_PRIORITY_HIGH, 3},
        {CM_EVENT_PRIORITY_NORMAL, 4}, {CM_EVENT_PRIORITY_LOW, 5}, {CM_EVENT_PRIORITY_HIGH, 6}};
    for (auto [priority, tag] : posts)
        CmInvokeInThread(&thread, true, [&order, tag = tag] { order.push_back(tag); return CM_OK; }, priority);
    // A marker below every priority above runs last: once it ran, all the others have.
    std::promise<void> drained;
    CmInvokeInThread(&thread, true, [&] { drained.set_value(); return CM_OK; }, 0);
    release.set_value();
    ASSERT_EQ(std::future_status::ready, drained.get_future().wait_for(kBound));
    EXPECT_EQ((std::vector<int>{3, 6, 2, 4, 1, 5}), order);
}

TEST_F(LoopThreadTest, SendToSelfRunsInlineBeforeQueuedWork)
{
    std::vector<std::string> order;
    CmInvokeInThread(&thread, false, [&] {
        CmInvokeInThread(&thread, true, [&] { order.push_back("posted"); return CM_OK; });
        CmResult inner = CmInvokeInThread(&thread, false, [&] { order.push_back("sent"); return CmResult{7}; });
        order.push_back("after send " + std::to_string(inner));
        return CM_OK;
    });
    CmInvokeInThread(&thread, false, [] { return CM_OK; });
    EXPECT_EQ((std::vector<std::string>{"sent", "after send 7", "posted"}), order);
}

TEST_F(LoopThreadTest, StopDestroysQueuedEventsUnfiredAndReleasesSenders)
{
    std::atomic<int> fired{0}, destroyed{0};
    auto release = Gate();
    for (int i = 0; i < 5; ++i) thread.GetEventQueue()->PostEvent(new CountingEvent(fired, destroyed));
    // A sender from another thread is waiting when the loop ends.
    auto sender = std::async(std::launch::async, [&] {
        return thread.GetEventQueue()->SendEvent(new CountingEvent(fired, destroyed));
    });
    while (thread.GetEventQueue()->GetPendingEventsCount() < 6) std::this_thread::yield();
    thread.SetStop();
    release.set_value();
    thread.Join();
    ASSERT_EQ(std::future_status::ready, sender.wait_for(kBound));
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, sender.get());
    EXPECT_EQ(0, fired.load());
    EXPECT_EQ(6, destroyed.load());
    EXPECT_EQ(nullptr, thread.GetEventQueue());
}

struct TimerProbe : CCmTimerWrapperIDSink {
    void OnTimer(CCmTimerWrapperID* id) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        stamps.push_back(std::chrono::steady_clock::now());
        ids.push_back(id);
        if (stamps.size() == wanted) done.set_value();
    }
    std::mutex mutex;
    std::vector<std::chrono::steady_clock::time_point> stamps;
    std::vector<CCmTimerWrapperID*> ids;
    size_t wanted = 0;
    std::promise<void> done;
};

TEST_F(LoopThreadTest, TimerWithCountFiresThatOftenAtItsPeriod)
{
    TimerProbe probe;
    probe.wanted = 3;
    CCmTimerWrapperID timer;
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(CM_OK, CmInvokeInThread(&thread, false, [&] {
        return timer.Schedule(&probe, CCmTimeValue(0, 20000), 3);
    }));
    ASSERT_EQ(std::future_status::ready, probe.done.get_future().wait_for(kBound));
    // One more round of the loop: a fourth firing would have happened by now if it were due.
    CmInvokeInThread(&thread, false, [] { return CM_OK; });
    EXPECT_FALSE(timer.IsScheduled());
    std::lock_guard<std::mutex> lock(probe.mutex);
    ASSERT_EQ(3u, probe.stamps.size());
    for (size_t i = 0; i < probe.stamps.size(); ++i) {
        EXPECT_EQ(&timer, probe.ids[i]);
        // Never early: the n-th firing comes at least n periods after scheduling.
        EXPECT_GE(probe.stamps[i] - start, std::chrono::milliseconds(20 * static_cast<int>(i + 1)));
    }
}

TEST_F(LoopThreadTest, PeriodicTimerRunsUntilCancelledFromAnotherThread)
{
    TimerProbe probe;
    probe.wanted = 4;
    CCmTimerWrapperID timer;
    CmInvokeInThread(&thread, false, [&] { return timer.Schedule(&probe, CCmTimeValue(0, 5000)); });
    ASSERT_EQ(std::future_status::ready, probe.done.get_future().wait_for(kBound));
    EXPECT_TRUE(timer.IsScheduled());
    EXPECT_EQ(CM_OK, timer.Cancel());  // from the test thread: waits out a firing in progress
    size_t seen;
    {
        std::lock_guard<std::mutex> lock(probe.mutex);
        seen = probe.stamps.size();
    }
    CmInvokeInThread(&thread, false, [] { return CM_OK; });
    std::lock_guard<std::mutex> lock(probe.mutex);
    EXPECT_EQ(seen, probe.stamps.size());
}

TEST(TimerTest, ScheduleOffALoopThreadFails)
{
    TimerProbe probe;
    CCmTimerWrapperID timer;
    EXPECT_EQ(CM_ERROR_FAILURE, timer.Schedule(&probe, CCmTimeValue(1)));
    EXPECT_FALSE(timer.IsScheduled());
}

TEST(InvokeTest, MissingThreadOrQueueIsAnAssertionNotACrash)
{
    uint64_t before = cm_assertion_count();
    EXPECT_EQ(CM_ERROR_NULL_POINTER, CmInvokeInThread(nullptr, true, [] { return CM_OK; }));
    CCmLoopThread stopped;
    stopped.Finish();
    EXPECT_EQ(CM_ERROR_NULL_POINTER, CmInvokeInThread(&stopped, false, [] { return CM_OK; }));
    EXPECT_EQ(before + 2, cm_assertion_count());
}

}  // namespace
