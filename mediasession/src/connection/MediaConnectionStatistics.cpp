// What a line's path carried, and what the machine and the call as a whole look like, for the
// application: the statistics calls of the connection and its metrics documents.
// Any thread: the line reads its path on its network thread and the engine's counters under their
// own lock; the CPU baseline is shared with the statistic tick under m_cpuMutex.
#include <unistd.h>

#include <algorithm>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmSysInfo.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

namespace {

template <class Stats>
ZynResult LineStatistics(CMediaConnection& connection, unsigned long mid, bool (*kind)(ZynSessionType), Stats& stats,
                         CSessionMetrics& metrics, const char* tag)
{
    stats = Stats{};
    CMediaConnectionInfo* line = connection.FindConnection(mid);
    if (!line || !kind(line->GetSessionType())) {
        metrics.KickZynError(tag, ZYN_E_FAIL);
        return ZYN_E_FAIL;
    }
    return line->GetPathStatistics(stats.path);
}

bool IsAudioLine(ZynSessionType t) { return t == ZynSessionType_Audio || t == ZynSessionType_AudioSlide; }
bool IsVideoLine(ZynSessionType t) { return t == ZynSessionType_Video; }
bool IsShareLine(ZynSessionType t) { return t == ZynSessionType_ScreenShare; }

}  // namespace

ZynResult CMediaConnection::GetAudioStatistics(unsigned long mid, _tagAudioConnectionStatistics& stats)
{
    return LineStatistics(*this, mid, IsAudioLine, stats, m_sessionMetrics, "GetAudSta");
}

ZynResult CMediaConnection::GetVideoStatistics(unsigned long mid, _tagVideoConnectionStatistics& stats)
{
    return LineStatistics(*this, mid, IsVideoLine, stats, m_sessionMetrics, "GetVidSta");
}

ZynResult CMediaConnection::GetScreenStatistics(unsigned long mid, _tagScreenConnectionStatistics& stats)
{
    return LineStatistics(*this, mid, IsShareLine, stats, m_sessionMetrics, "GetScrSta");
}

#define CONN_TAIL MS_TAIL("", m_callId)

ZynResult CMediaConnection::ReadCpuUsage(_tagZynCPUUsage& usage)
{
    CmCpuTimes system;
    uint64_t process = 0;
    if (get_system_cpu_times(system) != CM_OK || get_process_cpu_times(process) != CM_OK) return ZYN_E_FAIL;
    usage = _tagZynCPUUsage{};
    uint32_t physical = 0, logical = 0;
    if (get_cpu_core(physical, logical) == CM_OK) usage.nCoreCount = logical;
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (ticksPerSecond > 0) usage.uProcessCpuMs = process * 1000 / static_cast<uint64_t>(ticksPerSecond);

    std::lock_guard<std::mutex> lock(m_cpuMutex);
    // Without a previous reading the machine's counters since boot still give a fair average; the
    // process has none to compare with.
    const uint64_t total = m_cpuSampled ? system.total - std::min(system.total, m_lastCpuTotal) : system.total;
    const uint64_t idleNow = m_cpuSampled ? system.idle - std::min(system.idle, m_lastCpuIdle) : system.idle;
    const uint64_t own = m_cpuSampled ? process - std::min(process, m_lastProcessTicks) : 0;
    if (total > 0) {
        const uint64_t busy = total > idleNow ? total - idleNow : 0;
        usage.fTotalUsage = static_cast<float>(busy) * 100.0f / static_cast<float>(total);
        // The process's time is exact while the machine's is counted per tick: over a short
        // interval the process can look busier than the machine it is part of.
        usage.fProcessUsage = std::min(static_cast<float>(own) * 100.0f / static_cast<float>(total), usage.fTotalUsage);
    }
    m_cpuSampled = true;
    m_lastCpuTotal = system.total;
    m_lastCpuIdle = system.idle;
    m_lastProcessTicks = process;
    return ZYN_S_OK;
}

ZynResult CMediaConnection::GetCPUStatistics(_tagZynCPUUsage& usage)
{
    const ZynResult r = ReadCpuUsage(usage);
    if (!ZYN_SUCCEEDED(r)) {
        MS_ERROR_TRACE("CMediaConnection::GetCPUStatistics: get cpu usage failed !" << CONN_TAIL);
        Kick("GetCPUSta", r);
    }
    return r;
}

ZynResult CMediaConnection::ReadMemoryUsage(_tagZynMemoryUsage& usage)
{
    CmMemoryUsage system;
    if (get_memory_usage(system) != CM_OK) {
        MS_ERROR_TRACE("CMediaConnection::GetMemoryStatistics: get memory usage failed !" << CONN_TAIL);
        return ZYN_E_FAIL;
    }
    uint64_t residentKB = 0;
    if (get_process_memory(residentKB) != CM_OK) {
        MS_ERROR_TRACE("CMediaConnection::GetMemoryStatistics: get process memory failed !" << CONN_TAIL);
        return ZYN_E_FAIL;
    }
    usage = _tagZynMemoryUsage{};
    usage.uTotalMemoryBytes = system.totalKB * 1024;
    usage.uUsedMemoryBytes = (system.totalKB - std::min(system.totalKB, system.availableKB)) * 1024;
    usage.uMemoryUsage = system.usedPercent;
    usage.uProcessMemoryBytes = residentKB * 1024;
    if (system.totalKB)
        usage.fProcessMemoryUsage = static_cast<float>(residentKB) * 100.0f / static_cast<float>(system.totalKB);
    return ZYN_S_OK;
}

ZynResult CMediaConnection::GetMemoryStatistics(_tagZynMemoryUsage& usage)
{
    const ZynResult r = ReadMemoryUsage(usage);
    if (!ZYN_SUCCEEDED(r)) Kick("GetMemSta", r);
    return r;
}

ZynResult CMediaConnection::GetBatteryStatistics(bool& charging, int& level)
{
    CmBatteryStatus battery;
    if (get_battery_status(battery) != CM_OK) {
        // A desktop or a server: nothing to report, and nothing failed either.
        MS_INFO_TRACE("CMediaConnection::GetBatteryStatistics, no battery" << CONN_TAIL);
        return ZYN_E_NOTFOUND;
    }
    charging = battery.charging;
    level = static_cast<int>(battery.levelPercent);
    return ZYN_S_OK;
}

ZynResult CMediaConnection::GetNetworkMetrics(_tagZynAggregateNetworkMetricStats& stats)
{
    stats = _tagZynAggregateNetworkMetricStats{};
    uint64_t expected = 0;
    for (CMediaConnectionInfo* line : SnapshotLines()) {
        if (!line->GetZynSession()) continue;
        _tagMediaPathStatistics path{};
        if (!ZYN_SUCCEEDED(line->GetPathStatistics(path))) continue;
        ++stats.uLineCount;
        stats.uPacketsSent += path.packetsSent;
        stats.uPacketsReceived += path.packetsReceived;
        stats.uBytesSent += path.bytesSent;
        stats.uBytesReceived += path.bytesReceived;
        stats.iPacketsLost += path.packetsLost;
        stats.fMaxJitterMs = std::max(stats.fMaxJitterMs, path.jitterMs);
        stats.fMaxRttMs = std::max(stats.fMaxRttMs, path.rttMs);
        stats.fKbpsIn += path.kbpsIn;
        stats.uSrtpFailures += path.srtpFailures;
        // Duplicates make the loss of a line negative: they add to what arrived, not to what was sent.
        expected += path.packetsReceived + static_cast<uint64_t>(std::max<int64_t>(path.packetsLost, 0));
    }
    if (expected > 0 && stats.iPacketsLost > 0)
        stats.fLossPercent = static_cast<float>(stats.iPacketsLost) * 100.0f / static_cast<float>(expected);
    return ZYN_S_OK;
}

const char* CMediaConnection::GetMediaSessionMetrics()
{
    // Device errors the application heard about go in under "notified".
    for (const std::string& name : GetNotifiedErrors()) m_sessionMetrics.KickNotificationError(name);
    m_metricsText = m_sessionMetrics.GetMetrics();
    return m_metricsText.c_str();
}

const char* CMediaConnection::GetMediaSessionMetricsForSAP()
{
    for (const std::string& name : GetNotifiedErrors()) m_sessionMetrics.KickNotificationError(name);
    m_sapMetricsText = m_sessionMetrics.GetMetricsForNimboMeeting();
    return m_sapMetricsText.c_str();
}

const char* CMediaConnection::GetCallCancelMetrics()
{
    m_cancelMetricsText = m_sessionMetrics.GetMetricsForCancel();
    return m_cancelMetricsText.c_str();
}

ZynResult CMediaConnection::GetSyncStatistics(unsigned int csi, _tagSyncStatistics& stats)
{
    stats = _tagSyncStatistics{};
    CMediaConnectionInfo* video = FindConnection(ZynSessionType_Video);
    if (csi == 0 || !video || video->GetSyncVid(csi) < 0) {
        MS_WARNING_TRACE("CMediaConnection::GetSyncStatistics, no remote video with csi=" << csi << CONN_TAIL);
        return Kick("GetSyncSta", ZYN_E_NOTFOUND);
    }
    // The engine plays video as it comes; it keeps no lip-sync figures to give.
    MS_WARNING_TRACE("CMediaConnection::GetSyncStatistics, not available in this engine, csi=" << csi << CONN_TAIL);
    stats.csi = csi;
    return ZYN_E_NOTAVAILABLE;
}

ZynResult CMediaConnection::SetGlobalNetworkNotificationParam(ZynNetworkStatus status, _tagNetworkDirection direction,
                                                              unsigned int waitMs)
{
    MS_INFO_TRACE("CMediaConnection::SetGlobalNetworkNotificationParam, status=" << static_cast<int>(status)
                  << ", direction=" << static_cast<int>(direction) << ", waitMs=" << waitMs << CONN_TAIL);
    if (status < ZynNetwork_Recovered || status > ZynNetwork_Video_Off || direction < ZynNetworkDirection_Uplink ||
        direction > ZynNetworkDirection_Both)
        return Kick("SetNWNotifyParam", ZYN_E_INVALIDARG);
    if (!m_pNetworkIndicator) return Kick("SetNWNotifyParam", ZYN_E_WRONGSTATE);
    // Nothing watches the network index for link changes yet, so there is no wait to set.
    MS_WARNING_TRACE("CMediaConnection::SetGlobalNetworkNotificationParam, not available" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

int CMediaConnection::GetNetworkIndex(_tagNetworkDirection direction)
{
    // 0 is the engine's "unknown": no indicator (stopped), or a direction it does not know.
    if (!m_pNetworkIndicator) return 0;
    if (direction == ZynNetworkDirection_Both)
        return std::min(m_pNetworkIndicator->GetNetworkIndex(ZynNetworkDirection_Uplink),
                        m_pNetworkIndicator->GetNetworkIndex(ZynNetworkDirection_Downlink));
    if (direction != ZynNetworkDirection_Uplink && direction != ZynNetworkDirection_Downlink) return 0;
    return std::max(0, m_pNetworkIndicator->GetNetworkIndex(direction));
}

ZynResult CMediaConnection::SyncWithAudioTimestamp(unsigned int rtpTimestamp, unsigned int playoutMs)
{
    MS_DETAIL_TRACE("CMediaConnection::SyncWithAudioTimestamp, rtpTimestamp=" << rtpTimestamp << ", playoutMs="
                    << playoutMs << CONN_TAIL);
    if (!m_pZynEngine) return ZYN_E_WRONGSTATE;
    // The engine's video follows no audio clock, neither its own nor one the application plays.
    MS_WARNING_TRACE("CMediaConnection::SyncWithAudioTimestamp, not available" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

ZynResult CMediaConnection::UpdateDownLinkIndicationInfo(_tagDownLinkIndicationInfo* info, unsigned long mid)
{
    if (!info) return ZYN_E_NOTIMPL;
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || line->GetSessionType() != ZynSessionType_Video) {
        MS_WARNING_TRACE("CMediaConnection::UpdateDownLinkIndicationInfo, wrong mid " << mid << CONN_TAIL);
        return ZYN_E_INVALIDARG;
    }
    // No quality indicator colours the received video from these sizes yet.
    MS_WARNING_TRACE("CMediaConnection::UpdateDownLinkIndicationInfo, not available, mid=" << mid << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

const char* CMediaConnection::GetEventReport(ZynEventMetricsType type)
{
    switch (type) {
    case ZynEventMetrics_MQE:
        m_eventReportText = m_sessionMetrics.GetMqeIntervalReport();
        return m_eventReportText.c_str();
    case ZynEventMetrics_ICE:
        // Reachability and ICE records are not kept per call yet: an empty report, said so.
        MS_WARNING_TRACE("CMediaConnection::GetEventReport, ICE report not available" << CONN_TAIL);
        return "{}";
    }
    MS_WARNING_TRACE("CMediaConnection::GetEventReport, unknown type=" << static_cast<int>(type) << CONN_TAIL);
    return nullptr;
}

}  // namespace zyn
