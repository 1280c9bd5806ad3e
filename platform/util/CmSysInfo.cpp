#include "util/CmSysInfo.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>
#include <utility>

namespace {

// /proc/cpuinfo grows with the core count (about 1.5 KiB per core on x86); 1 MiB covers hundreds.
constexpr size_t kMaxCpuInfo = 1u << 20;
constexpr size_t kMaxSmallFile = 64u * 1024;

bool ReadBounded(const char* path, size_t maxBytes, std::string& out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::string data(maxBytes, '\0');
    in.read(data.data(), static_cast<std::streamsize>(maxBytes));
    if (in.bad()) return false;
    data.resize(static_cast<size_t>(in.gcount()));
    out = std::move(data);
    return !out.empty();
}

std::string_view Trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

// Calls fn(key, value) for each "key: value" line, both trimmed.
template <class Fn>
void ForEachField(std::string_view text, Fn fn)
{
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        fn(Trim(line.substr(0, colon)), Trim(line.substr(colon + 1)));
    }
}

// Leading decimal digits of `s` (at least one); false on none or overflow.
bool ParseU64(std::string_view s, uint64_t& out)
{
    s = Trim(s);
    uint64_t value = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc() || end == s.data()) return false;
    out = value;
    return true;
}

bool ParseDouble(std::string_view s, double& out)
{
    s = Trim(s);
    double value = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc() || end == s.data()) return false;
    out = value;
    return true;
}

// Value in kB of a "Name:   1234 kB" line of a /proc status-style file.
bool FindKB(std::string_view text, std::string_view key, uint64_t& out)
{
    bool found = false;
    ForEachField(text, [&](std::string_view k, std::string_view v) {
        if (!found && k == key) found = ParseU64(v, out);
    });
    return found;
}

std::string FirstLine(const std::filesystem::path& path)
{
    std::string text;
    if (!ReadBounded(path.c_str(), 4096, text)) return {};
    return std::string(Trim(text.substr(0, text.find('\n'))));
}

}  // namespace

CmResult get_cpu_frequency(uint32_t& megahertz)
{
    std::string text;
    uint64_t khz = 0;
    if (ReadBounded("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", kMaxSmallFile, text) &&
        ParseU64(text, khz) && khz >= 1000 && khz / 1000 <= UINT32_MAX) {
        megahertz = static_cast<uint32_t>(khz / 1000);
        return CM_OK;
    }
    if (!ReadBounded("/proc/cpuinfo", kMaxCpuInfo, text)) return CM_ERROR_FAILURE;
    double best = 0;
    ForEachField(text, [&](std::string_view k, std::string_view v) {
        double mhz = 0;
        if (k == "cpu MHz" && ParseDouble(v, mhz) && mhz > best && mhz < 1e6) best = mhz;
    });
    if (best < 1) return CM_ERROR_FAILURE;
    megahertz = static_cast<uint32_t>(best + 0.5);
    return CM_OK;
}

CmResult get_cpu_brand(std::string& brand)
{
    std::string text;
    if (!ReadBounded("/proc/cpuinfo", kMaxCpuInfo, text)) return CM_ERROR_FAILURE;
    std::string found;
    ForEachField(text, [&](std::string_view k, std::string_view v) {
        if (found.empty() && !v.empty() && (k == "model name" || k == "Hardware" || k == "Model"))
            found.assign(v.substr(0, 255));
    });
    if (found.empty()) return CM_ERROR_FAILURE;
    brand = std::move(found);
    return CM_OK;
}

CmResult get_cpu_core(uint32_t& physical, uint32_t& logical)
{
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    if (online <= 0) return CM_ERROR_FAILURE;
    std::string text;
    std::set<std::pair<uint64_t, uint64_t>> cores;
    if (ReadBounded("/proc/cpuinfo", kMaxCpuInfo, text)) {
        uint64_t package = 0;
        ForEachField(text, [&](std::string_view k, std::string_view v) {
            uint64_t n = 0;
            if (k == "physical id" && ParseU64(v, n)) package = n;
            else if (k == "core id" && ParseU64(v, n)) cores.emplace(package, n);
        });
    }
    logical = static_cast<uint32_t>(online);
    physical = cores.empty() ? logical : static_cast<uint32_t>(std::min<size_t>(cores.size(), logical));
    return CM_OK;
}

CmResult getGpuInfo(std::vector<std::string>& names, std::vector<uint64_t>& memories)
{
    namespace fs = std::filesystem;
    std::vector<std::pair<std::string, uint64_t>> found;
    std::error_code ec;
    for (fs::directory_iterator it("/sys/class/drm", ec), end; !ec && it != end; it.increment(ec)) {
        const std::string card = it->path().filename().string();
        // "card0" is an adapter; "card0-HDMI-A-1" is one of its connectors.
        if (card.rfind("card", 0) != 0 || card.size() == 4 ||
            !std::all_of(card.begin() + 4, card.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        const fs::path device = it->path() / "device";
        const std::string vendor = FirstLine(device / "vendor");
        const std::string model = FirstLine(device / "device");
        std::string driver;
        std::string uevent;
        if (ReadBounded((device / "uevent").c_str(), kMaxSmallFile, uevent)) {
            const size_t pos = uevent.find("DRIVER=");
            if (pos != std::string::npos) driver = uevent.substr(pos + 7, uevent.find('\n', pos) - pos - 7);
        }
        std::string name = driver.empty() ? "gpu" : driver;
        if (!vendor.empty() || !model.empty()) name += " (" + vendor + ":" + model + ")";
        uint64_t vram = 0;
        const std::string vramText = FirstLine(device / "mem_info_vram_total");
        if (vramText.empty() || !ParseU64(vramText, vram)) vram = 0;
        found.emplace_back(std::move(name), vram);
    }
    std::sort(found.begin(), found.end());
    names.clear();
    memories.clear();
    for (auto& [name, vram] : found) {
        names.push_back(std::move(name));
        memories.push_back(vram);
    }
    return CM_OK;
}

CmResult get_memory_usage(CmMemoryUsage& usage)
{
    std::string text;
    if (!ReadBounded("/proc/meminfo", kMaxSmallFile, text)) return CM_ERROR_FAILURE;
    uint64_t total = 0;
    uint64_t available = 0;
    if (!FindKB(text, "MemTotal", total) || total == 0) return CM_ERROR_FAILURE;
    if (!FindKB(text, "MemAvailable", available)) {
        uint64_t freeKB = 0, buffers = 0, cached = 0;
        if (!FindKB(text, "MemFree", freeKB)) return CM_ERROR_FAILURE;
        FindKB(text, "Buffers", buffers);
        FindKB(text, "Cached", cached);
        available = freeKB + buffers + cached;
    }
    available = std::min(available, total);
    usage.totalKB = total;
    usage.availableKB = available;
    usage.usedPercent = static_cast<uint32_t>((total - available) * 100 / total);
    return CM_OK;
}

CmResult get_memory_size(uint64_t& megabytes)
{
    CmMemoryUsage usage;
    const CmResult rv = get_memory_usage(usage);
    if (rv != CM_OK) return rv;
    megabytes = usage.totalKB / 1024;
    return CM_OK;
}

CmResult get_process_memory(uint64_t& residentKB)
{
    std::string text;
    uint64_t rss = 0;
    if (!ReadBounded("/proc/self/status", kMaxSmallFile, text) || !FindKB(text, "VmRSS", rss)) return CM_ERROR_FAILURE;
    residentKB = rss;
    return CM_OK;
}

CmResult get_system_cpu_times(CmCpuTimes& times)
{
    std::string text;
    if (!ReadBounded("/proc/stat", kMaxSmallFile, text) || text.rfind("cpu ", 0) != 0) return CM_ERROR_FAILURE;
    std::string_view line = std::string_view(text).substr(4, text.find('\n') - 4);
    // user nice system idle iowait irq softirq steal; guest time is already inside user.
    uint64_t fields[8] = {};
    for (int i = 0; i < 8; ++i) {
        line = Trim(line);
        const auto [end, ec] = std::from_chars(line.data(), line.data() + line.size(), fields[i]);
        if (ec != std::errc() || end == line.data()) {
            if (i < 4) return CM_ERROR_FAILURE;  // kernels before 2.6 stop after idle
            break;
        }
        line.remove_prefix(static_cast<size_t>(end - line.data()));
    }
    CmCpuTimes out;
    for (uint64_t f : fields) out.total += f;
    out.idle = fields[3] + fields[4];
    times = out;
    return CM_OK;
}

CmResult get_process_cpu_times(uint64_t& ticks)
{
    std::string text;
    if (!ReadBounded("/proc/self/stat", kMaxSmallFile, text)) return CM_ERROR_FAILURE;
    // The command name may hold spaces and parentheses; the fields resume after the last ')'.
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return CM_ERROR_FAILURE;
    std::string_view rest = std::string_view(text).substr(close + 1);
    // Field 3 (state) is the first after ')'; utime and stime are fields 14 and 15.
    uint64_t utime = 0, stime = 0;
    for (int field = 3; field <= 15; ++field) {
        rest = Trim(rest);
        const size_t space = rest.find(' ');
        const std::string_view token = rest.substr(0, space);
        if (token.empty()) return CM_ERROR_FAILURE;
        if (field == 14 && !ParseU64(token, utime)) return CM_ERROR_FAILURE;
        if (field == 15 && !ParseU64(token, stime)) return CM_ERROR_FAILURE;
        rest = space == std::string_view::npos ? std::string_view() : rest.substr(space);
    }
    ticks = utime + stime;
    return CM_OK;
}

CmResult CCmCpuUsageSampler::Sample(uint32_t& systemPercent, uint32_t& processPercent)
{
    CmCpuTimes system;
    uint64_t process = 0;
    if (get_system_cpu_times(system) != CM_OK || get_process_cpu_times(process) != CM_OK) return CM_ERROR_FAILURE;
    systemPercent = 0;
    processPercent = 0;
    if (m_started && system.total > m_lastSystem.total) {
        const uint64_t total = system.total - m_lastSystem.total;
        // Counters of offline cores may step back; clamp instead of wrapping.
        const uint64_t idle = system.idle > m_lastSystem.idle ? system.idle - m_lastSystem.idle : 0;
        const uint64_t busy = total > idle ? total - idle : 0;
        const uint64_t own = process > m_lastProcess ? process - m_lastProcess : 0;
        systemPercent = static_cast<uint32_t>(busy * 100 / total);
        // The process's time is exact while /proc/stat is counted per tick, so over a short interval
        // the process can appear busier than the machine; it is part of it, so it is capped there.
        processPercent = static_cast<uint32_t>(std::min<uint64_t>(own * 100 / total, systemPercent));
    }
    m_started = true;
    m_lastSystem = system;
    m_lastProcess = process;
    return CM_OK;
}

CmResult get_battery_status(CmBatteryStatus& status, const char* root)
{
    std::error_code ec;
    std::vector<std::filesystem::path> supplies;
    for (const auto& entry : std::filesystem::directory_iterator(root, ec)) supplies.push_back(entry.path());
    if (ec) return CM_ERROR_NOT_FOUND;
    // Directory order is the file system's; sorting keeps "the first battery" the same each time.
    std::sort(supplies.begin(), supplies.end());
    for (const auto& supply : supplies) {
        if (FirstLine(supply / "type") != "Battery") continue;
        uint64_t capacity = 0;
        if (!ParseU64(FirstLine(supply / "capacity"), capacity)) continue;
        const std::string state = FirstLine(supply / "status");
        status.levelPercent = static_cast<uint32_t>(std::min<uint64_t>(capacity, 100));
        status.charging = state == "Charging" || state == "Full";
        return CM_OK;
    }
    return CM_ERROR_NOT_FOUND;
}
