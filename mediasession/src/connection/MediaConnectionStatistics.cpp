// What a line's path carried, for the application: the statistics calls of the connection.
// Any thread: the line reads its path on its network thread and the engine's counters under their
// own lock.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"

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

// Not yet built: each operation below answers that it is not implemented.
ZynResult CMediaConnection::GetCPUStatistics(_tagZynCPUUsage&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::GetMemoryStatistics(_tagZynMemoryUsage&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::GetBatteryStatistics(bool&, int&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::GetNetworkMetrics(_tagZynAggregateNetworkMetricStats&)
{
    return ZYN_E_NOTIMPL;
}

const char* CMediaConnection::GetMediaSessionMetrics()
{
    return "{}";
}

const char* CMediaConnection::GetMediaSessionMetricsForSAP()
{
    return "{}";
}

const char* CMediaConnection::GetCallCancelMetrics()
{
    return "{}";
}

ZynResult CMediaConnection::GetSyncStatistics(unsigned int, _tagSyncStatistics&)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetGlobalNetworkNotificationParam(ZynNetworkStatus, _tagNetworkDirection, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

int CMediaConnection::GetNetworkIndex(_tagNetworkDirection)
{
    return 0;
}

ZynResult CMediaConnection::StartMediaLogging(long, int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopMediaLogging()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SyncWithAudioTimestamp(unsigned int, unsigned int)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::UpdateDownLinkIndicationInfo(_tagDownLinkIndicationInfo*, unsigned long)
{
    return ZYN_E_NOTIMPL;
}

const char* CMediaConnection::GetEventReport(ZynEventMetricsType)
{
    return "{}";
}

}  // namespace zyn
