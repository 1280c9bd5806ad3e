// Readings of this machine: only plausibility can be checked, against bounds no real machine
// leaves and against a second source where one exists.
#include <gtest/gtest.h>

#include <unistd.h>

#include <vector>

#include "util/CmSysInfo.h"

namespace {

TEST(SysInfo, CpuDescription)
{
    uint32_t physical = 0, logical = 0;
    ASSERT_EQ(CM_OK, get_cpu_core(physical, logical));
    EXPECT_EQ(static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)), logical);
    EXPECT_GE(physical, 1u);
    EXPECT_LE(physical, logical);

    std::string brand;
    if (get_cpu_brand(brand) == CM_OK) {
        EXPECT_FALSE(brand.empty());
        EXPECT_LT(brand.size(), 256u);
    }
    uint32_t mhz = 0;
    if (get_cpu_frequency(mhz) == CM_OK) {
        EXPECT_GE(mhz, 100u);
        EXPECT_LE(mhz, 10000u);
    }
    std::vector<std::string> names{"stale"};
    std::vector<uint64_t> memories;
    ASSERT_EQ(CM_OK, getGpuInfo(names, memories));
    EXPECT_EQ(names.size(), memories.size());
}

TEST(SysInfo, MemoryReadings)
{
    CmMemoryUsage usage;
    ASSERT_EQ(CM_OK, get_memory_usage(usage));
    const uint64_t pages = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES));
    const uint64_t pageKB = static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
    EXPECT_EQ(pages * pageKB, usage.totalKB);  // the kernel's own total, by another door
    EXPECT_LE(usage.availableKB, usage.totalKB);
    EXPECT_LE(usage.usedPercent, 100u);

    uint64_t megabytes = 0;
    ASSERT_EQ(CM_OK, get_memory_size(megabytes));
    EXPECT_EQ(usage.totalKB / 1024, megabytes);

    // Touching 32 MiB must show in the resident size.
    uint64_t before = 0, after = 0;
    ASSERT_EQ(CM_OK, get_process_memory(before));
    std::vector<char> block(32u << 20, 1);
    ASSERT_EQ(CM_OK, get_process_memory(after));
    EXPECT_GE(after + 1024, before + (32u << 10)) << block[block.size() - 1];
    EXPECT_LT(after, usage.totalKB);
}

TEST(SysInfo, CpuUsageOverBusyInterval)
{
    CCmCpuUsageSampler sampler;
    uint32_t system = 99, process = 99;
    ASSERT_EQ(CM_OK, sampler.Sample(system, process));
    EXPECT_EQ(0u, system);  // the first sample only sets the starting point
    EXPECT_EQ(0u, process);

    uint64_t ownBefore = 0, ownAfter = 0;
    ASSERT_EQ(CM_OK, get_process_cpu_times(ownBefore));
    // Burn at least five ticks of CPU, so the interval holds real work whatever the tick length.
    volatile uint64_t sink = 0;
    do {
        for (int i = 0; i < 1000000; ++i) sink = sink + static_cast<uint64_t>(i);
        ASSERT_EQ(CM_OK, get_process_cpu_times(ownAfter));
    } while (ownAfter < ownBefore + 5);
    ASSERT_EQ(CM_OK, sampler.Sample(system, process));
    EXPECT_GE(process, 1u);
    EXPECT_LE(process, system);  // this process is part of the machine
    EXPECT_LE(system, 100u);

    CmCpuTimes times;
    ASSERT_EQ(CM_OK, get_system_cpu_times(times));
    EXPECT_GT(times.total, times.idle);
}

}  // namespace
