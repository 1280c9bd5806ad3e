// The statistic tick's figures in the session metrics, and the documents made of them.
// Fed on the statistics thread, read on the application's; m_mutex guards both.
#include <algorithm>
#include <cstdio>
#include <ctime>

#include "mediasession/ZynMediaConnection.h"
#include "metrics/SessionMetrics.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace {

// A report nobody asks for must not grow for the whole call: an hour of ticks of four lines.
constexpr size_t kMaxIntervalSamples = 4 * 3600;

// Keys of the per-line figures as the document's readers know them.
const char* MediaType(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return "audio";
    case ZynSessionType_Video: return "video";
    case ZynSessionType_ScreenShare: return "share";
    default: return "application";
    }
}

const char* MediaContent(ZynSessionType type)
{
    return type == ZynSessionType_AudioSlide ? "slides" : "main";
}

// The MQE report's name of a line.
const char* MqeLineName(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio: return "audio";
    case ZynSessionType_Video: return "video";
    case ZynSessionType_ScreenShare: return "share";
    case ZynSessionType_AudioSlide: return "shareAudio";
    default: return nullptr;
    }
}

std::string MakeVersion()
{
    const ZynEngineVersion v = ZynGetVersion();
    return std::to_string(v.major) + "." + std::to_string(v.minor) + "." + std::to_string(v.patch) + "." +
           std::to_string(v.build);
}

// Rounded to a tenth: the document is read by people and by dashboards, not for exactness.
double Tenths(double value)
{
    return static_cast<double>(static_cast<int64_t>(value * 10.0 + (value < 0 ? -0.5 : 0.5))) / 10.0;
}

}  // namespace

void CSessionMetrics::IntervalFigure::Add(double value)
{
    sum += value;
    max = count == 0 ? value : std::max(max, value);
    ++count;
}

json::Value CSessionMetrics::IntervalFigure::Average() const
{
    return count ? json::Value(Tenths(sum / count)) : json::Value(-1);
}

void CSessionMetrics::Kick(const _tagZynCPUUsage& usage)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cpuSystem.Kick(static_cast<int>(usage.fTotalUsage + 0.5f));
    m_cpuSq.Kick(static_cast<int>(usage.fProcessUsage + 0.5f));
    m_intervalCpuTotal.Add(usage.fTotalUsage);
    m_intervalCpuProcess.Add(usage.fProcessUsage);
}

void CSessionMetrics::KickMemory(const _tagZynMemoryUsage& usage)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_intervalMemSystem.Add(usage.uMemoryUsage);
    m_intervalMemProcess.Add(usage.fProcessMemoryUsage);
    m_maxProcessMemoryBytes = std::max(m_maxProcessMemoryBytes, usage.uProcessMemoryBytes);
}

void CSessionMetrics::KickLineStatistics(ZynSessionType type, const _tagMediaPathStatistics& path)
{
    const LineFigures figures{type,           path.packetsSent, path.packetsReceived, path.packetsLost,
                              path.lossPercent, path.jitterMs,  path.rttMs};
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find_if(m_lines.begin(), m_lines.end(), [type](const LineFigures& l) { return l.type == type; });
    if (it == m_lines.end())
        m_lines.push_back(figures);
    else
        *it = figures;
    if (m_intervalLines.size() >= kMaxIntervalSamples) m_intervalLines.erase(m_intervalLines.begin());
    m_intervalLines.push_back(figures);
}

json::Object CSessionMetrics::BuildDocument()
{
    json::Object doc;
    json::Value errors = json::Value::array();
    for (const auto& [tag, code] : m_zynErrors) errors.push_back(json::Value{{"tag", tag}, {"code", code}});
    doc["zyn"] = json::Value{{"errors", errors}, {"zynver", MakeVersion()}, {"os_info", "Linux"}};
    if (!m_notified.empty()) doc["notified"] = m_notified;
    if (m_cpuSystem.GetTotalCount()) doc["cpuSystem"] = m_cpuSystem.GetBucketsAsJsonArray();
    if (m_cpuSq.GetTotalCount()) doc["cpuSq"] = m_cpuSq.GetBucketsAsJsonArray();
    json::Value stats = json::Value::array();
    for (const LineFigures& l : m_lines) {
        json::Value entry{{"mediaType", MediaType(l.type)}, {"mediaContent", MediaContent(l.type)},
                          {"lossCnt", l.packetsLost},      {"recvCnt", l.packetsReceived},
                          {"sendCnt", l.packetsSent},      {"lossRatio", Tenths(l.lossPercent)},
                          {"rtt", Tenths(l.rttMs)},        {"jitter", Tenths(l.jitterMs)}};
        if (l.type == ZynSessionType_Audio) doc["aMetric"] = entry;
        if (l.type == ZynSessionType_AudioSlide) doc["audioSlideMetrics"] = entry;
        stats.push_back(std::move(entry));
    }
    if (!stats.empty()) doc["stats"] = std::move(stats);
    return doc;
}

std::string CSessionMetrics::GetMetrics()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sMetrics = json::Serialize(BuildDocument());
    MS_INFO_TRACE("CSessionMetrics::GetMetrics, m_sMetrics=" << m_sMetrics);
    return m_sMetrics;
}

std::string CSessionMetrics::GetMetricsForCancel()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    // No resolver records its queries per call yet: the part stands, empty.
    json::Object doc;
    doc["dns"] = json::Value::array();
    doc["zyn"] = json::Value{{"zynver", MakeVersion()}};
    m_sMetrics = json::Serialize(doc);
    MS_INFO_TRACE("CSessionMetrics::GetMetricsForCancel,m_sMetrics=" << m_sMetrics);
    return m_sMetrics;
}

std::string CSessionMetrics::GetMetricsForNimboMeeting()
{
    MS_INFO_TRACE("CSessionMetrics::GetMetricsForNimboMeeting, begin");
    json::Object doc;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        doc = BuildDocument();
    }
    MS_INFO_TRACE("CSessionMetrics::GetMetricsForNimboMeeting, Transform");
    char now[16] = "";
    const time_t t = time(nullptr);
    struct tm local {};
    if (localtime_r(&t, &local)) strftime(now, sizeof now, "%H:%M:%S", &local);
    json::Value out = json::Value::array();
    auto message = [&](const json::Value& content, const char* type, const std::string& mediaType) {
        if (content.is_null() || content.empty()) {
            MS_INFO_TRACE("CSessionMetrics::BuildSAPMessage, ignore because content size is 0, type: " << type);
            return;
        }
        out.push_back(json::Value{{"mediaType", mediaType}, {"type", type}, {"time", now}, {"content", content}});
    };
    if (doc.contains("stats"))
        for (const json::Value& entry : doc["stats"]) {
            if (!entry.contains("mediaType")) continue;
            const std::string mediaType = entry["mediaType"].get<std::string>();
            for (const char* key : {"rtt", "lossRatio", "jitter"})
                message(entry.contains(key) ? entry[key] : json::Value(), key, mediaType);
        }
    for (const char* key : {"cpuSq", "cpuSystem", "info"})
        message(doc.contains(key) ? doc[key] : json::Value(), key, "system");
    MS_INFO_TRACE("CSessionMetrics::GetMetricsForNimboMeeting, Serialize");
    std::string text = json::Serialize(out);
    MS_INFO_TRACE("CSessionMetrics::GetMetricsForNimboMeeting, m_sMetricSAPVersion=" << text);
    return text;
}

std::string CSessionMetrics::GetMqeIntervalReport()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    json::Object data;
    data["cpu_info"] = json::Value{{"zynProcessCpuUsage", m_intervalCpuProcess.Average()},
                                   {"zynProcessMaxCpuUsage", Tenths(m_intervalCpuProcess.max)},
                                   {"totalCpuUsage", m_intervalCpuTotal.Average()},
                                   {"totalCpuMaxUsage", Tenths(m_intervalCpuTotal.max)}};
    data["memory_info"] = json::Value{{"processAverageMemoryUsage", m_intervalMemProcess.Average()},
                                      {"processMaximumMemoryUsage", Tenths(m_intervalMemProcess.max)},
                                      {"systemAverageMemoryUsage", m_intervalMemSystem.Average()},
                                      {"systemMaximumMemoryUsage", Tenths(m_intervalMemSystem.max)},
                                      {"processMaximumMemoryBytes", m_maxProcessMemoryBytes},
                                      {"osBitWidth", sizeof(void*) * 8}};
    // Each line's values of the interval, oldest first, joined by ", ".
    auto joined = [this](float LineFigures::*field) {
        json::Object byLine;
        for (const LineFigures& l : m_intervalLines) {
            const char* name = MqeLineName(l.type);
            if (!name) continue;
            char value[32];
            std::snprintf(value, sizeof value, "%.1f", static_cast<double>(l.*field));
            std::string text = byLine.contains(name) ? byLine[name].get<std::string>() + ", " : std::string();
            byLine[name] = text + value;
        }
        return byLine;
    };
    data["rx_media_e2e_lost_percent"] = joined(&LineFigures::lossPercent);
    data["rx_media_session_jitter"] = joined(&LineFigures::jitterMs);
    data["tx_rtt"] = joined(&LineFigures::rttMs);
    m_intervalCpuTotal = m_intervalCpuProcess = m_intervalMemSystem = m_intervalMemProcess = IntervalFigure{};
    m_maxProcessMemoryBytes = 0;
    m_intervalLines.clear();
    json::Object report;
    report["mqeDataReport"] = std::move(data);
    return json::Serialize(report);
}
