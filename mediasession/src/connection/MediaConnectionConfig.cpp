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
    // Flags every line's session carries; a line made later reads them at its creation.
    int32_t option = 0;
    uint8_t value = 0;
    switch (item) {
    case EGlobalConfigItem::FeatureToggles: SetFeatureToggles(m_globalConfig.GetFeatureToggles()); return ZYN_S_OK;
    case EGlobalConfigItem::SendingCSRC:
        option = CMediaConnectionInfo::kSessionOptionSendCsrc;
        value = m_globalConfig.IsSendingCSRCEnabled();
        break;
    case EGlobalConfigItem::BandwidthRollback:
        option = CMediaConnectionInfo::kSessionOptionBandwidthRollback;
        value = m_globalConfig.IsBandwidthRollbackEnabled();
        break;
    default: return ZYN_S_OK;
    }
    ZynResult result = ZYN_S_OK;
    for (CMediaConnectionInfo* line : m_connections) {
        IZynMediaSession* session = line->GetZynSession();
        if (!session) continue;
        const ZynResult r = session->SetOption(option, &value, 1);
        if (ZYN_FAILED(r)) result = r;
    }
    return result;
}

ZynResult CMediaConnection::SetMediaEngineOption(int32_t option, const void* value, uint32_t size)
{
    if (!m_pZynEngine) return ZYN_E_WRONGSTATE;
    return m_pZynEngine->SetOption(option, value, size);
}

std::vector<CMediaConnectionPtr> CMediaConnection::FindAllMediaConnectionsByCallID(unsigned int callId)
{
    std::vector<CMediaConnectionPtr> found;
    CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
    for (CMediaConnection* c : m_vecMediaConnection)
        if (c->m_callId == callId && c->TryAddReference()) found.emplace_back(c, false);
    return found;
}

void CMediaConnection::SetCallInfo(const _tagZynCallInfo& info)
{
    std::lock_guard<std::mutex> lock(m_callInfoMutex);
    m_callInfo = info;
}

_tagZynCallInfo CMediaConnection::GetCallInfo()
{
    std::lock_guard<std::mutex> lock(m_callInfoMutex);
    return m_callInfo;
}

}  // namespace zyn
