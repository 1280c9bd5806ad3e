// Descriptions of the machine and load readings, from /proc and /sys. Every function returns
// CM_ERROR_FAILURE when its source cannot be read or parsed, and leaves its outputs untouched then.
// Files are read with a size bound and parsed field by field; nothing is trusted to be well formed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tp/CmDefines.h"

// Highest nominal clock of any core in MHz: cpufreq's cpuinfo_max_freq, else "cpu MHz" of
// /proc/cpuinfo.
CmResult get_cpu_frequency(uint32_t& megahertz);
// "model name" (x86) or "Hardware"/"Model" (ARM) of /proc/cpuinfo.
CmResult get_cpu_brand(std::string& brand);
// Physical cores (distinct physical id/core id pairs; the logical count when those are absent) and
// logical processors online.
CmResult get_cpu_core(uint32_t& physical, uint32_t& logical);
// One name and one memory size in bytes (0 when unknown) per display adapter under /sys/class/drm;
// the two lists always have the same length. No adapter is no failure.
CmResult getGpuInfo(std::vector<std::string>& names, std::vector<uint64_t>& memories);

struct CmMemoryUsage {
    uint64_t totalKB = 0;
    uint64_t availableKB = 0;
    uint32_t usedPercent = 0;  // (total - available) / total, rounded down
};
// System memory from /proc/meminfo (MemAvailable, or MemFree + Buffers + Cached on old kernels).
CmResult get_memory_usage(CmMemoryUsage& usage);
// Total system memory in megabytes.
CmResult get_memory_size(uint64_t& megabytes);
// Resident set size of this process (VmRSS of /proc/self/status) in kilobytes.
CmResult get_process_memory(uint64_t& residentKB);

// CPU time counters, in clock ticks. Usage is the change between two readings.
struct CmCpuTimes {
    uint64_t total = 0;  // all fields of the "cpu" line of /proc/stat
    uint64_t idle = 0;   // idle + iowait
};
CmResult get_system_cpu_times(CmCpuTimes& times);
// utime + stime of this process from /proc/self/stat.
CmResult get_process_cpu_times(uint64_t& ticks);

// The first battery under `root` (a power_supply class directory): its charge in percent and
// whether it is charging (its status "Charging" or "Full": a full battery sits on mains).
// CM_ERROR_NOT_FOUND when no supply there is a battery that reports its capacity.
struct CmBatteryStatus {
    bool charging = false;
    uint32_t levelPercent = 0;
};
CmResult get_battery_status(CmBatteryStatus& status, const char* root = "/sys/class/power_supply");

// Usage in percent of the whole machine (all cores together make 100) over the interval since the
// previous Sample(). The first Sample() only takes the starting point and reports 0.
class CCmCpuUsageSampler {
public:
    CmResult Sample(uint32_t& systemPercent, uint32_t& processPercent);

private:
    bool m_started = false;
    CmCpuTimes m_lastSystem;
    uint64_t m_lastProcess = 0;
};
