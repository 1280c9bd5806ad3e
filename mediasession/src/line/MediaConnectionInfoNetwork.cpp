// The line's view of its path: connecting towards the peer, the ICE result turned into transports,
// the connected procedure, losses and reconnects, and the statuses the application hears.
//
// Threads: Connect runs on the caller's (main) thread and posts its work to the line's network
// thread; everything else here runs on the network thread. Statuses cross to the main thread.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "util/CmTick.h"

#include <cstdio>

namespace zyn {

namespace {

// Statuses of OnSessionStatus.
enum : int {
    kStatusLost = 0,
    kStatusConnecting = 1,
    kStatusConnected = 2,
    kStatusReconnected = 6,
    kStatusTransportChanged = 8,
    kStatusTerminated = 11,
};

// Failed connects in a row after which the session is over.
constexpr uint32_t kMaxConnectFailures = 2;

}  // namespace

void CMediaConnectionInfo::ReportStatus(int status)
{
    if (m_sink) m_sink->callBackOnSessionStatus(m_mid, m_type, status);
}

ZynResult CMediaConnectionInfo::Connect(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                        bool controlling, unsigned int connectionType, bool rtcpMux,
                                        sdp::dtls_setup_role localDtlsRole,
                                        const sdp::optional_value<sdp::dtls_caps>& remoteDtls)
{
    CCmInetAddr address;
    if (!beginConnect(remote, IsDtlsInUse(), address)) return ZYN_E_FAIL;
    const unsigned long tieBreaker = m_sink ? static_cast<unsigned long>(m_sink->GetIceTieBreaker()) : 0;
    MS_INFO_TRACE("CMediaConnectionInfo::Connect, remote=" << address.ToString() << ", controlling=" << controlling
                  << ", ice=" << ice.is_set() << ", rtcpMux=" << rtcpMux << LINE_TAIL);
    return postConnect([this, ice, address, controlling, connectionType, rtcpMux, localDtlsRole, remoteDtls,
                        tieBreaker] {
        m_iceConnector.SetDtlsNegotiated(localDtlsRole, remoteDtls);
        return m_iceConnector.SetRemoteCandidates(ice, address, controlling, tieBreaker, connectionType, rtcpMux);
    });
}

bool CMediaConnectionInfo::beginConnect(const CCmInetAddr& remote, bool keysRequired, CCmInetAddr& address)
{
    if (!m_eqNetwork || !m_networkThread) {
        CM_ASSERT_REPORT("CM_SUCCEEDED(cmret)");
        return false;
    }
    m_connectStartTick = get_tick_count();
    m_bKeysRequired.store(keysRequired);
    ReportStatus(kStatusConnecting);
    address = remote;
    if (address.GetPort() == 0 && m_connectAddr.GetPort() != 0) address = m_connectAddr;
    m_connectAddr = address;
    return true;
}

ZynResult CMediaConnectionInfo::postConnect(std::function<ZynResult()> connect)
{
    // Queued behind earlier work of the network thread and before any later stop, which waits for
    // the thread: the line outlives the event.
    const CmResult r = CmInvokeInThread(
        m_networkThread, true,
        [this, connect = std::move(connect)] {
            const ZynResult rv = connect();
            if (ZYN_SUCCEEDED(rv)) m_uConnectFailures = 0;
            return rv;
        },
        CM_EVENT_PRIORITY_NORMAL);
    if (r != CM_OK) {
        CM_ASSERT_REPORT("CM_SUCCEEDED(cmret)");
        return ZYN_E_FAIL;
    }
    return ZYN_S_OK;
}

void CMediaConnectionInfo::OnIceComplete(CmResult reason, ICmTransport* const* transports, int count, int origin,
                                         bool update)
{
    MS_INFO_TRACE("[ICE] CMediaConnectionInfo::OnIceComplete, aReason=" << reason << ", count=" << count
                  << ", origin=" << origin << ", update=" << update << LINE_TAIL);
    const bool failed = reason != 0 || !transports || !transports[0] || count < 1;
    bool rejected = false;
    if (failed) {
        if (!(origin == ZynIceOrigin_Ice && IsSipCall())) {
            ReleaseTransports();
            rejected = m_iceConnector.GetIceRejected();
            ++m_uConnectFailures;
            m_bReconnecting = true;
            m_reconnectTimer.Schedule(this, CCmTimeValue::FromMilliseconds(1000), 1);
        }
    } else if (!update) {
        bool changed = false;
        for (int i = 0; i < 2; ++i) {
            ICmTransport* next = i < count ? transports[i] : nullptr;
            ICmTransport* old = m_pTransports[i].load();
            if (next == old) continue;
            if (next) next->AddReference();
            m_pTransports[i].store(next);
            if (old) {
                MS_INFO_TRACE("CMediaConnectionInfo::OnIceComplete, transport changed, disconnect old one." << LINE_TAIL);
                m_sendQueue[i].clear();
                old->ReleaseReference();
                changed = changed || next;
            }
            if (next) {
                // Bit 1: a datagram transport, which never queues.
                m_transportFlags[i] = next->GetType() == CM_CONNECTION_TYPE_UDP ? 2u : 0u;
                if (m_type == ZynSessionType_Video || m_type == ZynSessionType_ScreenShare)
                    MS_DETAIL_TRACE("CMediaConnectionInfo::OnIceComplete, socket buffer 0x20000" << LINE_TAIL);
            }
        }
        m_bSendBlocked[0] = false;
        m_bSendBlocked[1] = false;
        SessionConnected(changed);
        m_reconnectTimer.Cancel();
    }
    const uint64_t took = std::max<uint64_t>(1, get_tick_count() - m_connectStartTick);
    MS_INFO_TRACE("CMediaConnectionInfo::OnIceComplete,ssl=0, took=" << took << "ms" << LINE_TAIL);
    if (!failed || !m_sink) return;
    if (rejected) m_sink->callBackOnError(static_cast<int>(ZYN_E_ICEFAILED), nullptr);
    ReportStatus(kStatusLost);
    if (m_uConnectFailures == kMaxConnectFailures) {
        MS_ERROR_TRACE("CMediaConnectionInfo::OnIceComplete -- session terminated" << LINE_TAIL);
        ReportStatus(kStatusTerminated);
    }
}

void CMediaConnectionInfo::OnIceCheckListReady(int origin)
{
    MS_DETAIL_TRACE("CMediaConnectionInfo::OnIceCheckListReady, origin=" << origin << ", metric="
                    << m_iceConnector.getIceCheckListMetric() << LINE_TAIL);
}

void CMediaConnectionInfo::UpdateIceMetricsForSipCall(CmResult reason, ICmTransport* const*, int count)
{
    MS_INFO_TRACE("CMediaConnectionInfo::UpdateIceMetricsForSipCall, reason=" << reason << ", count=" << count
                  << LINE_TAIL);
}

void CMediaConnectionInfo::SessionConnected(bool transportChanged)
{
    if (m_pZynSession) {
        const int32_t type = GetTransportType();
        m_pZynSession->SetOption(27, &type, sizeof type);
    }
    m_uConnectFailures = 0;
    if (transportChanged) {
        ReportStatus(kStatusTransportChanged);
    } else if (m_bReconnecting) {
        m_bReconnecting = false;
        ReportStatus(kStatusReconnected);
    } else {
        // A line that agreed on DTLS-SRTP sends nothing in clear: without ICE the path comes up
        // before the handshake, and the local track starts when the keys are there.
        if (!m_bKeysRequired.load() || m_bSendKeyed.load()) StartSendEvent();
        m_connectedTick = get_tick_count();
        ReportStatus(kStatusConnected);
    }
}

void CMediaConnectionInfo::StartSendEvent()
{
    m_bStartedSending = true;
    if (m_bSendStarted.exchange(true)) return;
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    if (!main || !main->GetEventQueue()) {
        CM_ASSERT_REPORT("pMainThread && pMainThread->GetEventQueue()");
        return;
    }
    if (!m_sink || !m_pLocalTrack) return;
    // Each local track sends once the path is there, when the line sends at all; a track the
    // application has not started still sends nothing.
    if ((m_nDirection & ZynDirection_Send) == 0) return;
    CMediaConnectionPtr connection(m_sink);
    for (int vid : m_pLocalTrack->GetVids()) {
        CMediaTrack* raw = nullptr;
        m_pLocalTrack->QueryTrack(vid, &raw);
        if (!raw) continue;
        CZynAutoPtr<CMediaTrack> track(raw, false);
        CmInvokeInThread(main, true, [connection, track] {
            track->SessionConnected();
            return CM_OK;
        });
    }
}

void CMediaConnectionInfo::OnDisconnect(CmResult reason, ICmTransport* transport)
{
    MS_WARNING_TRACE("CMediaConnectionInfo::OnDisconnect, reason=" << reason << ", transport="
                     << static_cast<void*>(transport) << LINE_TAIL);
    ReleaseTransports();
    m_bReconnecting = true;
    ReportStatus(kStatusLost);
    const bool ice = m_sink && m_sink->IsICEEnabled();
    m_reconnectTimer.Schedule(this, CCmTimeValue::FromMilliseconds(ice ? 1000 : 2000), 1);
}

void CMediaConnectionInfo::OnMappedPortChangedInKeepalive(int index)
{
    MS_WARNING_TRACE("CMediaConnectionInfo::OnMappedPortChangedInKeepalive, index=" << index
                     << ", the path is found again" << LINE_TAIL);
    const ZynResult r = m_iceConnector.Reconnect();
    if (!ZYN_SUCCEEDED(r)) m_reconnectTimer.Schedule(this, CCmTimeValue::FromMilliseconds(1000), 1);
}

void CMediaConnectionInfo::OnTimer(CCmTimerWrapperID* id)
{
    if (id != &m_reconnectTimer) return;
    if (m_iceConnector.HasNetwork() && !m_iceConnector.IsIceRunning()) {
        MS_INFO_TRACE("CMediaConnectionInfo::OnTimer, reconnect" << LINE_TAIL);
        if (ZYN_SUCCEEDED(m_iceConnector.Reconnect())) return;
    }
    m_reconnectTimer.Schedule(this, CCmTimeValue::FromMilliseconds(1000), 1);
}

void CMediaConnectionInfo::ReleaseTransports()
{
    for (int i = 0; i < 2; ++i) {
        m_sendQueue[i].clear();
        m_bSendBlocked[i] = false;
        if (ICmTransport* t = m_pTransports[i].exchange(nullptr)) t->ReleaseReference();
    }
}

void CMediaConnectionInfo::Disconnect(bool cleanup)
{
    m_bReconnecting = false;
    m_reconnectTimer.Cancel();
    ReleaseTransports();
    m_iceConnector.CleanUp(cleanup, m_bStopListen);
}

std::string CMediaConnectionInfo::GetSelectedPair() const
{
    std::string pair;
    if (!m_networkThread) return pair;
    CmInvokeInThread(m_networkThread, false, [this, &pair] {
        if (ICmTransport* t = m_pTransports[0].load())
            pair = t->GetLocalAddr().ToString() + " -> " + t->GetPeerAddr().ToString();
        return CM_OK;
    });
    return pair;
}

ZynResult CMediaConnectionInfo::GetPathStatistics(_tagMediaPathStatistics& stats)
{
    stats = _tagMediaPathStatistics{};
    if (m_networkThread) {
        CmInvokeInThread(m_networkThread, false, [this, &stats] {
            CCmInetAddr local, remote;
            std::string type;
            if (!m_pTransports[0].load() || !m_iceConnector.GetSelectedPath(local, remote, type)) return CM_OK;
            std::snprintf(stats.localAddress, sizeof stats.localAddress, "%s", local.ToString().c_str());
            std::snprintf(stats.remoteAddress, sizeof stats.remoteAddress, "%s", remote.ToString().c_str());
            std::snprintf(stats.candidateType, sizeof stats.candidateType, "%s", type.c_str());
            std::snprintf(stats.srtpSuite, sizeof stats.srtpSuite, "%s", m_srtpCryptoSuite.c_str());
            const uint64_t started = m_connectStartTick.load(), connected = m_connectedTick.load();
            if (connected >= started && connected) stats.connectMs = static_cast<uint32_t>(connected - started);
            return CM_OK;
        });
    }
    if (!m_pZynSession) return ZYN_S_OK;
    ZynFlowStatistics flow{};
    if (!ZYN_SUCCEEDED(m_pZynSession->GetFlowStatistics(flow))) return ZYN_S_OK;
    stats.packetsSent = flow.packetsSent;
    stats.packetsReceived = flow.packetsReceived;
    stats.bytesSent = flow.bytesSent;
    stats.bytesReceived = flow.bytesReceived;
    stats.packetsLost = flow.packetsLost;
    stats.lossPercent = static_cast<float>(flow.lossRatio * 100.0);
    stats.jitterMs = static_cast<float>(flow.jitterMs);
    stats.rttMs = static_cast<float>(flow.rttMs);
    stats.kbpsIn = static_cast<float>(flow.receiveKbps);
    stats.srtpFailures = flow.srtpFailures;
    return ZYN_S_OK;
}

}  // namespace zyn
