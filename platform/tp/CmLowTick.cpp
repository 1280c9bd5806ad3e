#include "tp/CmLowTick.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr auto kPeriod = std::chrono::milliseconds(10);

uint64_t NowMs()
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

struct LowTick {
    std::mutex mutex;
    std::condition_variable wake;
    int users = 0;            // guarded by mutex
    uint64_t generation = 0;  // guarded by mutex; a worker runs only for the generation it began in
    std::thread worker;
    std::atomic<bool> running{false};
    std::atomic<uint64_t> cached{0};

    void Run(uint64_t mine)
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (users > 0 && generation == mine) {
            cached.store(NowMs(), std::memory_order_relaxed);
            wake.wait_for(lock, kPeriod);
        }
    }

    ~LowTick()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            users = 0;
            ++generation;
        }
        wake.notify_all();
        if (worker.joinable()) worker.join();
    }
};

LowTick& Tick()
{
    static LowTick tick;
    return tick;
}

}  // namespace

void startLowTick()
{
    LowTick& t = Tick();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (t.users++ > 0) return;
    if (t.worker.joinable()) t.worker.join();  // a previous run that has already ended
    t.cached.store(NowMs());
    t.running.store(true);
    uint64_t mine = ++t.generation;
    t.worker = std::thread([&t, mine] { t.Run(mine); });
}

void stopLowTick()
{
    LowTick& t = Tick();
    std::thread ending;
    {
        std::lock_guard<std::mutex> lock(t.mutex);
        if (t.users == 0) return;
        if (--t.users > 0) return;
        t.running.store(false);
        ++t.generation;
        ending = std::move(t.worker);
    }
    t.wake.notify_all();
    if (ending.joinable()) ending.join();
}

int lowTickUsers()
{
    LowTick& t = Tick();
    std::lock_guard<std::mutex> lock(t.mutex);
    return t.users;
}

uint64_t get_low_tick_count()
{
    LowTick& t = Tick();
    return t.running.load(std::memory_order_relaxed) ? t.cached.load(std::memory_order_relaxed) : NowMs();
}
