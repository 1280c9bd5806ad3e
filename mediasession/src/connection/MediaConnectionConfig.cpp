// The configuration doors of a connection: each line's media configuration by mid, and the
// connection-wide one, whose refused settings are counted in the session metrics.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// The line of that mid when it is of one of the kinds; the configuration's face decides the kind.
CMediaConnectionInfo* LineOfKind(CMediaConnection& connection, unsigned long mid,
                                 std::initializer_list<ZynSessionType> kinds)
{
    CMediaConnectionInfo* line = connection.FindConnection(mid);
    if (!line) return nullptr;
    for (ZynSessionType k : kinds)
        if (line->GetSessionType() == k) return line;
    return nullptr;
}

}  // namespace

IAudioConfig* CMediaConnection::GetAudioConfig(unsigned long mid)
{
    CMediaConnectionInfo* line = LineOfKind(*this, mid, {ZynSessionType_Audio, ZynSessionType_AudioSlide});
    return line ? &line->GetAudioConfig() : nullptr;
}

IVideoConfig* CMediaConnection::GetVideoConfig(unsigned long mid)
{
    CMediaConnectionInfo* line = LineOfKind(*this, mid, {ZynSessionType_Video});
    return line ? &line->GetVideoConfig() : nullptr;
}

IShareConfig* CMediaConnection::GetShareConfig(unsigned long mid)
{
    CMediaConnectionInfo* line = LineOfKind(*this, mid, {ZynSessionType_ScreenShare});
    return line ? &line->GetShareConfig() : nullptr;
}

IBaseConfig* CMediaConnection::GetApplicationConfig(unsigned long mid)
{
    CMediaConnectionInfo* line = LineOfKind(*this, mid, {ZynSessionType_Application});
    return line ? &line->GetBaseConfig() : nullptr;
}

void CMediaConnection::SetZynErrorMetrics(const char* tag, ZynResult code)
{
    m_sessionMetrics.KickZynError(tag ? tag : "", code);
}

ZynResult CMediaConnection::OnGlobalConfigChanged(EGlobalConfigItem item)
{
    MS_DETAIL_TRACE("CMediaConnection::OnGlobalConfigChanged, item=" << static_cast<int>(item)
                                                                     << MS_TAIL("", m_callId));
    return ZYN_S_OK;
}

}  // namespace zyn
