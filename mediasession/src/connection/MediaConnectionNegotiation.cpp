// Media lines and the negotiation driver: which exchange may start in which state.
#include <string>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

CMediaConnectionInfo* CMediaConnection::AddConnection(ZynSessionType type, unsigned long mid)
{
    if (CMediaConnectionInfo* line = FindConnection(mid)) return line;
    auto* line = new CMediaConnectionInfo(m_callId);
    ZynResult r = line->Init(this, type, mid);
    if (!ZYN_SUCCEEDED(r)) {
        delete line;
        return nullptr;
    }
    {
        std::lock_guard<std::mutex> lock(m_linesMutex);
        m_connections.push_back(line);
    }
    return line;
}

ZynResult CMediaConnection::AddMedia(ZynSessionType type, ZynDirection direction, unsigned long mid,
                                     const char* debugOption)
{
    MS_INFO_TRACE("CMediaConnection::AddMedia, mediaType=" << static_cast<int>(type) << ", direction="
                  << static_cast<int>(direction) << ", mid=" << mid
                  << ", debugOption=" << (debugOption ? debugOption : "") << CONN_TAIL);
    if (!m_pZynEngine) {
        Kick("AddMedia", ZYN_E_POINTER);
        CM_ASSERT_REPORT("m_pZynEngine");
        return ZYN_E_POINTER;
    }
    CMediaConnectionInfo* line = AddConnection(type, mid);
    if (!line) {
        Kick("AddMedia", ZYN_E_POINTER);
        CM_ASSERT_REPORT("pConnInfo");
        return ZYN_E_POINTER;
    }
    const int32_t old = line->GetDirection();
    const bool sendIsNew = (direction & ZynDirection_Send) && !(old & ZynDirection_Send);
    if (old != 0 && (old & direction) == direction) {
        MS_DETAIL_TRACE("CMediaConnection::AddMedia, add same direction twice, pConnInfo->m_nDirection=" << old
                        << CONN_TAIL);
        return ZYN_S_FALSE;
    }
    line->SetDirection(old | direction);
    if (debugOption) ProcessDebugOption(type, mid, debugOption);

    if (type == ZynSessionType_Application) return ZYN_S_OK;
    if (!IsSipCall()) ++m_iceLineCount;
    // An audio or share line that only receives has no local session yet; video always gets one.
    if (type != ZynSessionType_Video && !(direction & ZynDirection_Send)) return ZYN_S_OK;
    ZynResult r = line->CreateLocalZynSession(sendIsNew);
    if (!ZYN_SUCCEEDED(r)) {
        line->SetDirection(line->GetDirection() & ZynDirection_Recv);
        Kick("AddMediaCrSes", r);
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
        return r;
    }
    return ZYN_S_OK;
}

ZynResult CMediaConnection::UpdateMedia(ZynDirection direction, unsigned long mid)
{
    MS_INFO_TRACE("CMediaConnection::UpdateMedia, direction=" << static_cast<int>(direction) << ", mid=" << mid
                  << CONN_TAIL);
    CMediaConnectionInfo* info = FindConnection(mid);
    if (!info) {
        CM_ASSERT_REPORT("info");
        return ZYN_E_POINTER;
    }
    const bool sendIsNew = (direction & ZynDirection_Send) && !(info->GetDirection() & ZynDirection_Send);
    info->SetDirection(direction);
    if (!sendIsNew) return ZYN_S_OK;
    ZynResult r = info->CreateLocalZynSession(true);
    if (!ZYN_SUCCEEDED(r)) {
        info->SetDirection(direction & ZynDirection_Recv);
        return r;
    }
    return ZYN_S_OK;
}

ZynResult CMediaConnection::CreateOffer()
{
    m_bCallStarted = true;
    MS_INFO_TRACE("CMediaConnection::CreateOffer, m_sdpStatus=" << m_sdpStatus << ", m_sendSdpType="
                  << m_sendSdpType << ",[CheckPoint]" << CONN_TAIL);
    ZynResult r = ZYN_S_OK;
    switch (m_sdpStatus) {
    case 0:
        if (m_sendSdpType != 0) {
            r = ZYN_E_FAIL;
            break;
        }
        MS_DETAIL_TRACE("Start Negotiating ...... ,[CheckPoint]" << CONN_TAIL);
        m_sendSdpType = 1;
        m_sdpStatus = 2;
        r = selectPort();
        break;
    case 1: r = ZYN_E_WRONGSTATE; break;
    case 2:
    case 3:
        if (m_sendSdpType != 0) {
            r = ZYN_E_FAIL;
            break;
        }
        m_sendSdpType = 1;
        r = buildUpdateSdp();
        break;
    default: r = ZYN_E_WRONGSTATE; break;
    }
    if (!ZYN_SUCCEEDED(r)) Kick("CreateOffer", r);
    return r;
}

ZynResult CMediaConnection::CreateAnswer()
{
    m_bCallStarted = true;
    MS_INFO_TRACE("CMediaConnection::CreateAnswer, m_sdpStatus=" << m_sdpStatus << ",[CheckPoint]" << CONN_TAIL);
    ZynResult r = ZYN_S_OK;
    switch (m_sdpStatus) {
    case 1:
        if (m_sendSdpType != 0) {
            r = ZYN_E_FAIL;
            break;
        }
        m_sendSdpType = 2;
        r = selectPort();
        break;
    case 3:
        if (m_sendSdpType != 0) {
            r = ZYN_E_FAIL;
            break;
        }
        m_sendSdpType = 2;
        r = buildUpdateSdp();
        break;
    default: r = ZYN_E_WRONGSTATE; break;
    }
    if (!ZYN_SUCCEEDED(r)) Kick("CreateAns", r);
    return r;
}

ZynResult CMediaConnection::SetReceivedSDP(ZynSdpType type, const char* sdp, _tagSdpParsedInfo* info, int* count)
{
    if (!sdp || !*sdp) return ZYN_E_INVALIDARG;
    CheckSessionInactive();
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    if (!main) {
        CM_ASSERT_REPORT("pMain != NULL");
        return CM_ERROR_FAILURE;
    }
    CMediaConnectionPtr self(this);
    std::string text(sdp);
    return CmInvokeInThread(main, false, [self, type, text, info, count] {
        return self->SetReceivedSDP_m(type, text, info, count);
    });
}

void CMediaConnection::CheckSessionInactive()
{
    for (CMediaConnectionInfo* line : m_connections) {
        if (line->GetDirection() != 0) {
            MS_INFO_TRACE("CMediaConnection::CheckSessionInactive, turn on NetworkWarning." << CONN_TAIL);
            return;
        }
    }
    MS_INFO_TRACE("CMediaConnection::CheckSessionInactive, turn off NetworkWarning." << CONN_TAIL);
}

ZynResult CMediaConnection::StartSDPRenegotiation()
{
    MS_INFO_TRACE("CMediaConnection::StartSDPRenegotiation, m_sdpStatus=" << m_sdpStatus << CONN_TAIL);
    if (m_sdpStatus == 2 || m_sdpStatus == 3) {
        const bool cleanup = m_sdpStatus == 2;
        for (CMediaConnectionInfo* line : m_connections)
            if (line) line->Disconnect_i(cleanup, true);
    }
    m_sdpStatus = 0;
    m_bCallStarted = false;
    return ZYN_S_OK;
}

}  // namespace zyn
