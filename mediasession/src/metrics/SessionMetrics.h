// What happened in one media connection, for the document the application uploads at the end.
// Fed from any thread; read on the main thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "mediasession/ZynDefines.h"
#include "metrics/BucketMetric.h"

struct _tagZynCPUUsage;
struct _tagZynMemoryUsage;
struct _tagMediaPathStatistics;

class CSessionMetrics {
public:
    explicit CSessionMetrics(long connectionId) : m_connectionId(connectionId) {}

    // A failed public or engine call: the short tag of the failing step and its code.
    void KickZynError(const std::string& tag, ZynResult code);
    // An error the application was told about through its sink, kept once by name.
    void KickNotificationError(const std::string& name);

    std::vector<std::pair<std::string, ZynResult>> GetZynErrors() const;
    std::vector<std::string> GetNotificationErrors() const;
    long GetConnectionId() const { return m_connectionId; }

    // Figures of the connection's statistic tick, and the documents made of everything kicked
    // (SessionMetricsDocument.cpp).
    void Kick(const _tagZynCPUUsage& usage);
    void KickMemory(const _tagZynMemoryUsage& usage);
    // The path of a line as it stands now; the last one of each session type is kept.
    void KickLineStatistics(ZynSessionType type, const _tagMediaPathStatistics& path);
    // The whole document; reading clears nothing.
    std::string GetMetrics();
    // A cancelled call: its DNS part and the version only.
    std::string GetMetricsForCancel();
    // The document cut into one message per figure, as a JSON array.
    std::string GetMetricsForNimboMeeting();
    // The interval report: figures of the ticks since the previous report, which it starts anew.
    std::string GetMqeIntervalReport();

private:
    const long m_connectionId;
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, ZynResult>> m_zynErrors;  // guarded by m_mutex
    std::vector<std::string> m_notified;                         // guarded by m_mutex

    struct LineFigures {
        ZynSessionType type;
        uint64_t packetsSent, packetsReceived;
        int64_t packetsLost;
        float lossPercent, jitterMs, rttMs;
    };
    // One sample a tick of the whole interval; max is kept beside the sum for the report.
    struct IntervalFigure {
        double sum = 0, max = 0;
        uint32_t count = 0;
        void Add(double value);
        json::Value Average() const;
    };
    json::Object BuildDocument();
    // Guarded by m_mutex, as everything below.
    CBucketMetric m_cpuSystem{-1, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    CBucketMetric m_cpuSq{-1, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    std::vector<LineFigures> m_lines;  // one per session type, the last kicked
    IntervalFigure m_intervalCpuTotal, m_intervalCpuProcess, m_intervalMemSystem, m_intervalMemProcess;
    uint64_t m_maxProcessMemoryBytes = 0;
    std::vector<LineFigures> m_intervalLines;  // every kick since the last report, in order
    std::string m_sMetrics;
};
