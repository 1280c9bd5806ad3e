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
    m_connections.push_back(line);
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

ZynResult CMediaConnection::ProcessDebugOption(ZynSessionType type, unsigned long mid, const char* option)
{
    MS_INFO_TRACE("CMediaConnection::ProcessDebugOption, type=" << static_cast<int>(type) << ", mid=" << mid
                  << ", option=" << (option ? option : "") << CONN_TAIL);
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
    m_sdpStatus = 0;
    m_bCallStarted = false;
    return ZYN_S_OK;
}

// Every line but application ones starts listening; each reports back through onPortSelected,
// and the local description is assembled once the last one has.
ZynResult CMediaConnection::selectPort()
{
    MS_DETAIL_TRACE("CMediaConnection::selectPort, conn=" << m_connections.size() << CONN_TAIL);
    for (CMediaConnectionInfo* line : m_connections) {
        if (!line) break;
        if (line->GetSessionType() == ZynSessionType_Application) continue;
        ZynResult r = line->StartListen(m_localAddress, false, m_bExternalTransport);
        if (r == ZYN_E_GATHERFAILED || r == ZYN_E_NETQUEUE) return r;
        if (!ZYN_SUCCEEDED(r)) return ZYN_E_FAIL;
    }
    return ZYN_S_OK;
}

void CMediaConnection::onPortSelected(CMediaConnectionInfo* line)
{
    MS_DETAIL_TRACE("CMediaConnection::onPortSelected, mid=" << (line ? line->GetMid() : 0) << CONN_TAIL);
}

ZynResult CMediaConnection::buildUpdateSdp()
{
    MS_INFO_TRACE("CMediaConnection::buildUpdateSdp, version=" << m_sdpVersion << CONN_TAIL);
    ++m_sdpVersion;
    return ZYN_S_OK;
}

// Runs on the main thread. Remote descriptions are applied once the offer/answer engine exists;
// until then a remote offer moves the state as the exchange requires and nothing else.
ZynResult CMediaConnection::SetReceivedSDP_m(ZynSdpType type, const std::string& sdp, _tagSdpParsedInfo*, int* count)
{
    MS_INFO_TRACE("CMediaConnection::SetReceivedSDP_m, type=" << static_cast<int>(type) << ", length="
                  << sdp.size() << ", m_sdpStatus=" << m_sdpStatus << CONN_TAIL);
    m_remoteSdp = sdp;
    if (count) *count = 0;
    if (type == ZynSdpType_Offer) {
        if (m_sdpStatus == 2) return ZYN_E_WRONGSTATE;
        if (m_sdpStatus == 0) m_sdpStatus = 1;
    } else {
        if (m_sdpStatus != 2 && m_sdpStatus != 3) return ZYN_E_WRONGSTATE;
        m_sdpStatus = 3;
        m_sendSdpType = 0;
    }
    m_mediaRunning.store(1);
    return ZYN_S_OK;
}

}  // namespace zyn
