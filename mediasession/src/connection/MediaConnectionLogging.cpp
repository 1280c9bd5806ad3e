// Media logging: while it runs, the connection samples itself on the shared "low-pri-stat" thread.
// Each tick feeds the session metrics; every m_statsInterval the figures also go to the log as
// "SQ" lines, the first thing a support engineer reads of a call.
//
// Threads: StartMediaLogging and StopMediaLogging on the application's thread, which schedules and
// cancels the timers on the statistics thread and waits; OnTimer on the statistics thread. The tick
// walks a copy of the line list taken under m_linesMutex; lines are deleted only after Stop has
// cancelled the timers.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "common/TraceFilter.h"
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "tp/CmThreadSingleton.h"
#include "util/CmSysInfo.h"
#include "util/CmTrace.h"
#include "zyn/ZynDebugConfig.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

constexpr const char* kStatisticThreadName = "low-pri-stat";
constexpr uint32_t kMinuteMs = 60 * 1000;
// The interval report goes out this often unless the configuration asks for another period.
constexpr uint32_t kDefaultMqeMinutes = 5;
// Enough for one engine session's sent stream and the streams of a full gallery.
constexpr uint32_t kMaxStreams = 32;

const char* LineName(ZynSessionType type, bool send)
{
    switch (type) {
    case ZynSessionType_Audio: return send ? "SQAudioTX -" : "SQAudioRX -";
    case ZynSessionType_AudioSlide: return send ? "SQAudioSlideTX -" : "SQAudioSlideRX -";
    case ZynSessionType_Video: return send ? "SQVideoTX -" : "SQVideoRX -";
    case ZynSessionType_ScreenShare: return send ? "SQScreenSender -" : "SQScreenReceiver - ";
    default: return nullptr;
    }
}

const char* StatisticsFailure(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio: return "CMediaConnection::OnTimer, fail to GetAudioStatistics";
    case ZynSessionType_AudioSlide: return "CMediaConnection::OnTimer, fail to GetAudioStatistics for Audio_Slide";
    case ZynSessionType_Video: return "CMediaConnection::OnTimer, fail to GetVideoStatistics";
    default: return "CMediaConnection::OnTimer, fail to GetScreenStatistics";
    }
}

// One " name=value" field of an "SQ" line.
template <class T>
void Field(std::string& line, const char* name, T value)
{
    line += ' ';
    line += name;
    line += '=';
    if constexpr (std::is_floating_point_v<T>) {
        char text[32];
        std::snprintf(text, sizeof text, "%.1f", static_cast<double>(value));
        line += text;
    } else {
        line += std::to_string(value);
    }
}

}  // namespace

std::vector<CMediaConnectionInfo*> CMediaConnection::SnapshotLines()
{
    std::lock_guard<std::mutex> lock(m_linesMutex);
    return m_connections;
}

ZynResult CMediaConnection::StartMediaLogging(long interval, int logType)
{
    MS_INFO_TRACE("CCMediaConnection::StartMediaLogging,interval=" << interval << ", logType=" << logType
                  << CONN_TAIL);
    if (interval < 1000) {
        Kick("StMedLog", ZYN_E_INVALIDARG);
        CM_ASSERT_REPORT("interval >= 1000");
        return ZYN_E_INVALIDARG;
    }
    if (m_bLoggingClosed.load()) return Kick("StMedLog", ZYN_E_WRONGSTATE);
    CZynPerfsStats::instance()->start(static_cast<int>(m_globalConfig.GetDebugFlag() % 2));
    m_perfsStatsStopped = false;
    if (!m_statThread) m_statThread = ACmThreadSingletonFactory::GetSingletonThread(kStatisticThreadName);
    if (!m_statThread) return Kick("StMedLog", ZYN_E_WRONGSTATE);
    const uint32_t tickMs = m_tickPeriodMs;
    const CmResult scheduled = CmInvokeInThread(m_statThread, false, [this, tickMs] {
        CmResult r = m_statTimer.Schedule(this, CCmTimeValue::FromMilliseconds(tickMs));
        if (r == CM_OK) r = m_minuteTimer.Schedule(this, CCmTimeValue::FromMilliseconds(kMinuteMs));
        return r;
    });
    if (scheduled != CM_OK) {
        StopMediaLogging();
        return Kick("StMedLog", ZYN_E_FAIL);
    }
    m_logType = logType;
    // At the most detailed trace level every tick writes its lines.
    uint32_t statsInterval = static_cast<uint32_t>(std::min<long>(interval, UINT32_MAX));
    if (get_external_trace_mask() > 3 && statsInterval > 1000) statsInterval = 1000;
    m_statsInterval = statsInterval;
    m_bLogging = true;
    return ZYN_S_OK;
}

ZynResult CMediaConnection::StopMediaLogging()
{
    MS_INFO_TRACE("CCMediaConnection::StopMediaLogging,m_statsInterval=" << m_statsInterval.load() << CONN_TAIL);
    m_bLogging = false;
    if (m_statThread) {
        // Cancelled where they run: once this returns no tick is under way or to come.
        CmInvokeInThread(m_statThread, false, [this] {
            m_statTimer.Cancel();
            m_minuteTimer.Cancel();
            return CM_OK;
        });
    }
    if (!m_perfsStatsStopped) {
        CZynPerfsStats::instance()->stop();
        m_perfsStatsStopped = true;
    }
    m_statsInterval = 1000;
    return ZYN_S_OK;
}

void CMediaConnection::CloseMediaLogging()
{
    m_bLoggingClosed = true;
    StopMediaLogging();
}

void CMediaConnection::ReleaseStatisticThread()
{
    if (!m_statThread) return;
    ACmThreadSingletonFactory::ResleseSingletonThread(m_statThread);
    m_statThread = nullptr;
}

void CMediaConnection::OnTimer(CCmTimerWrapperID* timer)
{
    // A tick that raced with StopMediaLogging finds logging over and does nothing.
    if (!m_bLogging.load()) return;
    if (timer == &m_statTimer)
        OnStatisticTick();
    else if (timer == &m_minuteTimer)
        OnMinuteTick();
}

void CMediaConnection::OnStatisticTick()
{
    ++m_tickCount;
    const uint32_t every = std::max<uint32_t>(1, m_statsInterval.load() / 1000);
    const bool due = m_tickCount % every == 0;

    _tagZynCPUUsage cpu{};
    const bool haveCpu = ZYN_SUCCEEDED(ReadCpuUsage(cpu));
    if (haveCpu) m_sessionMetrics.Kick(cpu);

    for (CMediaConnectionInfo* line : SnapshotLines()) {
        const ZynSessionType type = line->GetSessionType();
        if (type == ZynSessionType_Application || !line->GetZynSession()) continue;
        _tagMediaPathStatistics path{};
        if (!ZYN_SUCCEEDED(line->GetPathStatistics(path))) {
            // One bad reading costs this line its tick, not the others theirs.
            MS_WARNING_TRACE(StatisticsFailure(type) << CONN_TAIL);
            continue;
        }
        m_sessionMetrics.KickLineStatistics(type, path);
        if (due) DumpLineStatistics(line, path);
    }

    _tagZynMemoryUsage memory{};
    const bool haveMemory = ZYN_SUCCEEDED(ReadMemoryUsage(memory));
    if (haveMemory) m_sessionMetrics.KickMemory(memory);

    if (++m_mqeTickCount * static_cast<uint64_t>(m_tickPeriodMs) >=
        static_cast<uint64_t>(m_globalConfig.GetSendMQEInMinutes() > 0 ? m_globalConfig.GetSendMQEInMinutes()
                                                                         : kDefaultMqeMinutes) * kMinuteMs) {
        m_mqeTickCount = 0;
        SendMediaQualityIntervalEvent();
    }

    if (!due) return;
    if (haveMemory) {
        std::string text = "[SQ] INFO: SQMemory - processMem=" + std::to_string(memory.uProcessMemoryBytes >> 20) +
                           "M usedMem:" + std::to_string(memory.uUsedMemoryBytes >> 20) +
                           " totalMem:" + std::to_string(memory.uTotalMemoryBytes >> 20) +
                           " memUsage:" + std::to_string(memory.uMemoryUsage) + " cid__" + std::to_string(m_callId);
        OutputInfoTraceWithFilter(text, "", "", CM_TRACE_LEVEL_INFO);
    }
    CmBatteryStatus battery;
    const bool haveBattery = get_battery_status(battery) == CM_OK;
    // The engine reports no frame rates, and the machine no temperature or fan speed: their places
    // stay, at 0, where log readers look for them.
    char text[512];
    std::snprintf(text, sizeof text,
                  "SQBattery----isCharging:%d, batteryLevel:%d; SQCpu----SQCpu:%.1f, iTotalCpu:%.1f; "
                  "SQFPS----LocalFps:%d, RemoteFps:%d, CpuTemperature:%d, FanSpeed:%d cid__%u",
                  haveBattery && battery.charging ? 1 : 0, haveBattery ? static_cast<int>(battery.levelPercent) : -1,
                  static_cast<double>(cpu.fProcessUsage), static_cast<double>(cpu.fTotalUsage), 0, 0, 0, 0,
                  m_callId);
    CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, "SQ", text);
}

void CMediaConnection::DumpLineStatistics(CMediaConnectionInfo* line, const _tagMediaPathStatistics& path)
{
    IZynMediaSession* session = line->GetZynSession();
    ZynStreamStatistics streams[kMaxStreams];
    uint32_t count = kMaxStreams;
    if (!session || !ZYN_SUCCEEDED(session->GetStreamStatistics(streams, count))) return;
    const ZynSessionType type = line->GetSessionType();
    const std::string tail = " cid__" + std::to_string(m_callId);
    for (uint32_t i = 0; i < count && i < kMaxStreams; ++i) {
        const ZynStreamStatistics& s = streams[i];
        const bool send = s.direction == 1;
        const char* name = LineName(type, send);
        if (!name) return;
        std::string text = std::string("[SQ] INFO: ") + name;
        Field(text, "vid", i);
        Field(text, "ssrc", s.ssrc);
        Field(text, "loss", s.fractionLost * 100.0);
        if (!send) Field(text, "lossCnt", s.lost);
        Field(text, "jitter", s.jitterMs);
        Field(text, "bytes", s.bytes);
        Field(text, "rtp", s.packets);
        if (send) Field(text, "rtt", s.rttMs);
        // Readers find the layer fields at a fixed place even when no layer is reported.
        if (type == ZynSessionType_Video && send) text += " w*h=0x0 fps=0 br=0";
        if (type == ZynSessionType_ScreenShare && send)
            text += " w*h=0x0 fps=0 br=0 encoded=0 sendbufStat=0 idrReq=0 idrSent=0 idrSize=0 varianceBr=0 "
                    "fBitrateGap=0 maxFrameLen=0";
        Field(text, "bitrate", send ? path.kbpsOut : path.kbpsIn);
        Field(text, "srtpFailed", path.srtpFailures);
        OutputInfoTraceWithFilter(text + tail, "", "", CM_TRACE_LEVEL_INFO);
    }
}

void CMediaConnection::SendMediaQualityIntervalEvent()
{
    if (!m_globalConfig.IsMQECallbackEnabled()) return;
    IZynMediaConnectionSink* sink = m_pSink.load();
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    if (!sink || !main) return;
    // The application hears its connection on the main thread; Stop clears the sink there first.
    CMediaConnectionPtr self(this);
    std::string report = m_sessionMetrics.GetMqeIntervalReport();
    CmInvokeInThread(main, true, [self, report = std::move(report)] {
        if (IZynMediaConnectionSink* s = self->m_pSink.load()) s->OnEventReportReady(ZynEventMetrics_MQE, report.c_str());
        return CM_OK;
    });
}

void CMediaConnection::OnMinuteTick()
{
    // The minute's figures are those of the WiFi link, which this platform has no reader for.
    if (m_wifiTraced) return;
    m_wifiTraced = true;
    MS_WARNING_TRACE("CMediaConnection::OnTimer, WiFi statistics not available" << CONN_TAIL);
}

}  // namespace zyn
