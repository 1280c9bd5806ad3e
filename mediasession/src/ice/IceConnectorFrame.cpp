// The connector's frame: construction, the agent instance, settings, timers, clean-up, reconnect
// and the two resets. Network thread.
#include <random>

#include "common/ZynIdentity.h"
#include "config/GlobalConfig.h"
#include "diag/DNSResolverManager.h"
#include "ice/IceConnectorImpl.h"
#include "ice/IceTrace.h"
#include "util/CmLocalAddr.h"

namespace zyn {

template <class P>
CIceConnectorT<P>::CIceConnectorT(IceConnectorSink* sink, unsigned int callId)
    : m_sink(sink), m_callId(callId), m_rxMessage(std::make_unique<StunMessage>()),
      m_txMessage(std::make_unique<StunMessage>())
{
    // Start positions only need to spread the ports of concurrent calls.
    std::random_device device("default");
    std::mt19937 generator(device());
    for (uint32_t& start : m_portStarts) start = generator();
}

template <class P>
CIceConnectorT<P>::~CIceConnectorT()
{
    // Lookups in flight answer into this connector: none may come after it.
    CDNSResolverManager::Instance()->cancelResolve(this);
    CleanUp(true, true);
    DestroyIceInstance();
    if (m_dtls) CmDtls_Destroy(m_dtls);
}

template <class P>
void CIceConnectorT<P>::CreateIceInstance()
{
    m_iceInst = std::make_unique<typename P::Instance>();
    std::memset(static_cast<void*>(m_iceInst.get()), 0, sizeof(typename P::Instance));
    typename P::Configuration config;
    std::memset(static_cast<void*>(&config), 0, sizeof config);
    config.tickIntervalMS = 10;
    config.keepAliveIntervalS = 1;
    config.maxCheckListPairs = 80;
    config.aggressiveNomination = false;
    config.iceLite = false;
    config.dropRflx = false;
    config.logLevel = gatewalk::ICELIB_logAll;
    P::Configure(config, m_globalConfig ? static_cast<uint32_t>(m_globalConfig->GetICEConnectTimeout()) : 0);
    P::ICELIB_Constructor(m_iceInst.get(), &config);
    P::ICELIB_setCallbackLog(m_iceInst.get(), &CIceConnectorT::OnIceLog, this, gatewalk::ICELIB_logAll);
    m_mediaIdx = P::ICELIB_addLocalMediaStream(m_iceInst.get(), 0, 0, 0, gatewalk::ICE_CAND_TYPE_HOST);
    ICE_INFO("[ICE] CIceConnector::StartCollectCandidates, create m_iceInst");
}

template <class P>
void CIceConnectorT<P>::DestroyIceInstance()
{
    if (!m_iceInst) return;
    P::ICELIB_Destructor(m_iceInst.get());
    m_iceInst.reset();
}

template <class P>
void CIceConnectorT<P>::OnIceLog(void* self, gatewalk::ICELIB_logLevel level, const char* text)
{
    // The agent narrates every check; only a detailed trace wants that. Its errors are about its
    // own bookkeeping (a triggered check it declines to send), never the end of a call: the
    // connector reports what matters itself.
    const int ours = level >= gatewalk::ICELIB_logError ? CM_TRACE_LEVEL_INFO : CM_TRACE_LEVEL_DETAIL;
    auto* c = static_cast<CIceConnectorT*>(self);
    CM_TRACE_MODULE(ours, "ICELIB", text << " cid__" << c->m_callId << " this=" << self);
}

template <class P>
void CIceConnectorT<P>::SetPortRange(uint16_t minPort, uint16_t maxPort)
{
    m_portMin = minPort;
    m_portMax = maxPort < minPort ? minPort : maxPort;
}

template <class P>
void CIceConnectorT<P>::SetOverrideIP(const char* ip, int port)
{
    m_overrideIp = ip ? ip : "";
    m_overridePort = port;
}

template <class P>
void CIceConnectorT<P>::SetDtlsCertification(const CCmString& cert, const CCmString& key, const CCmInetAddr&)
{
    m_dtlsCert = cert;
    m_dtlsKey = key;
}

template <class P>
void CIceConnectorT<P>::SetDtlsNegotiated(sdp::dtls_setup_role localRole, const sdp::optional_value<sdp::dtls_caps>& remote)
{
    // An actpass that was never narrowed (a peer that answered without a=setup) leaves us waiting
    // for the ClientHello, the role RFC 5763 gives the offerer by default.
    const CmDtlsRole role = localRole == sdp::dtls_setup_active ? CM_DTLS_ROLE_CLIENT : CM_DTLS_ROLE_SERVER;
    if (m_bDtlsRoleKnown && role != m_dtlsRole) {
        ICE_INFO("CIceConnector::SetRemoteCandidates, dtls role changed, we need to re-initialize DTLS.");
        if (m_dtls) {
            CmDtls_Destroy(m_dtls);
            m_dtls = nullptr;
        }
    }
    m_dtlsRole = role;
    m_bDtlsRoleKnown = true;
    m_bHasRemoteDtls = false;
    m_remoteHash.clear();
    m_remoteFingerprint.clear();
    const sdp::dtls_caps* caps = remote.get_if();
    if (!caps || caps->fingerprints.empty()) return;
    m_bHasRemoteDtls = true;
    // SDP names the hashes as RFC 4572 does; the DTLS library as OpenSSL does.
    static constexpr std::pair<const char*, const char*> kHashNames[] = {
        {"sha-1", "sha1"}, {"sha-224", "sha224"}, {"sha-256", "sha256"}, {"sha-384", "sha384"}, {"sha-512", "sha512"},
    };
    m_remoteHash = caps->fingerprints.front().hash;
    for (const auto& [token, name] : kHashNames)
        if (m_remoteHash == token) m_remoteHash = name;
    m_remoteFingerprint = caps->fingerprints.front().value;
}

template <class P>
bool CIceConnectorT<P>::HasNetwork()
{
    ZynResult r = ZYN_S_OK;
    return !LocalAddresses(r).empty() && ZYN_SUCCEEDED(r);
}

template <class P>
bool CIceConnectorT<P>::IsIceRunning()
{
    return m_iceInst && P::ICELIB_isRunning(m_iceInst.get()) && !m_bIceCompleted;
}

template <class P>
std::string CIceConnectorT<P>::getIceCheckListMetric()
{
    const bool failed = m_iceInst && P::ICELIB_getState(m_iceInst.get()) == gatewalk::ICELIB_FAILED;
    return m_checkListInfo.ToJson(failed);
}

template <class P>
void CIceConnectorT<P>::getAndResetStunDtlsStats(bool reset, unsigned int& stunSent, unsigned int& stunReceived,
                                                 unsigned int& dtlsSent, unsigned int& dtlsReceived)
{
    if (reset) {
        stunSent = m_stunSent.exchange(0);
        stunReceived = m_stunReceived.exchange(0);
        dtlsSent = m_dtlsSent.exchange(0);
        dtlsReceived = m_dtlsReceived.exchange(0);
        return;
    }
    stunSent = m_stunSent.load();
    stunReceived = m_stunReceived.load();
    dtlsSent = m_dtlsSent.load();
    dtlsReceived = m_dtlsReceived.load();
}

template <class P>
void CIceConnectorT<P>::OnIceTimer(IceTimer timer)
{
    switch (timer) {
    case IceTimer::IceTick: {
        if (!m_iceInst) return;
        // The agent's clock moves in ticks of 10 ms; a late loop catches up, a little at a time,
        // so its time limit still runs on real time.
        const uint64_t now = Now();
        for (int n = 0; m_iceTickMs + 10 <= now && n < 50; ++n) {
            m_iceTickMs += 10;
            P::ICELIB_Tick(m_iceInst.get());
            if (!m_iceInst) return;
        }
        if (m_iceTickMs + 10 <= now) m_iceTickMs = now - 10;
        return;
    }
    case IceTimer::CheckSend: UpdateCheckSend(); return;
    case IceTimer::MainStun: return;
    case IceTimer::StunContexts: TickStunContexts(); return;
    case IceTimer::Turn: TickTurnContexts(); return;
    case IceTimer::Fallback: FailPlainConnect(); return;
    case IceTimer::Inactivity: OnDisconnect(CM_ERROR_NOT_FOUND, m_Transports[0]); return;
    case IceTimer::RtcpSeed: SendRtcpSeed(); return;
    case IceTimer::KeepAlive:
        ++m_keepAliveRounds;
        SendKeepAlive();
        return;
    case IceTimer::RttSummary:
        ICE_INFO("CIceConnector::OnTimer, Matched RTT: " << (m_rttMatched ? m_rttTotalMs / m_rttMatched : 0)
                                                        << "ms over " << m_rttMatched << " Pending:"
                                                        << m_checkSent.size());
        m_checkSent.clear();
        return;
    case IceTimer::DtlsRetransmit:
        if (m_dtls) CmDtls_HandleTimeout(m_dtls);
        ScheduleDtlsRetransmit();
        return;
    case IceTimer::DtlsGiveUp:
        if (m_dtls && CmDtls_GetState(m_dtls) != CM_DTLS_STATE_CONNECTED) OnDtlsFailed("the handshake did not finish in time");
        return;
    case IceTimer::Count: return;
    }
}

template <class P>
void CIceConnectorT<P>::CancelAllTimers()
{
    for (IceTimer t : {IceTimer::RttSummary, IceTimer::KeepAlive, IceTimer::IceTick, IceTimer::CheckSend,
                       IceTimer::Fallback, IceTimer::Inactivity, IceTimer::RtcpSeed, IceTimer::DtlsRetransmit,
                       IceTimer::DtlsGiveUp})
        m_timers->Cancel(t);
}

template <class P>
void CIceConnectorT<P>::CleanUp(bool, bool stopListen)
{
    CancelAllTimers();
    ReleaseTransports();
    StopStun();
    StopTurn();
    CleanUpContexts(stopListen);
    for (ICmConnector*& c : m_pNonIceConnector) {
        if (!c) continue;
        c->CancelConnect();
        c->ReleaseReference();
        c = nullptr;
    }
    ClearPendingRequests();
    m_checkSent.clear();
    m_keepAliveSent.clear();
    // What the line was told of the path ends with it: the next path's conclusion is news to the
    // line, not an update of the old one.
    m_bIceAggressiveNotified = false;
    m_notifyIceComplete = false;
    m_dtlsTransport = nullptr;
    if (m_iceInst && P::ICELIB_isRunning(m_iceInst.get())) P::ICELIB_Stop(m_iceInst.get());
    if (stopListen) StopListen();
}

template <class P>
void CIceConnectorT<P>::CleanUpContexts(bool stopListen)
{
    for (auto& context : m_contexts) {
        ICE_DETAIL("[ICE] release context:" << static_cast<void*>(context.get()) << ", pTransport:"
                                            << static_cast<void*>(context->pTransport) << ", pTransportTCP:"
                                            << static_cast<void*>(context->pTransportTCP) << ", pConnector:"
                                            << static_cast<void*>(context->pConnector)
                                            << ", bStopListen=" << stopListen);
        context->Release(true);
    }
    m_contexts.clear();
}

template <class P>
ZynResult CIceConnectorT<P>::Reconnect()
{
    if (m_bIceEnable && m_remoteIce.empty()) {
        ICE_INFO("[ICE] CIceConnector::Reconnect>>ICE remote candicates is not ready .[CheckPoint]");
        return -1;
    }
    if (IsSipCall()) {
        ICE_INFO("[ICE] CIceConnector::Reconnect. Ignore reconnect. Sip call does not support reconnect");
        return -1;
    }
    if (!m_bIceEnable && m_remotePlain.GetPort() == 0) {
        ICE_INFO("[ICE] CIceConnector::Reconnect, no peer to reconnect to");
        return -1;
    }
    ICE_INFO("[ICE] CIceConnector::Reconnect>>Start to reconnect to server with ICE.[CheckPoint]");
    m_bIceCompleted = false;
    CleanUp(true, true);
    const ZynResult rv = StartCollectCandidates(m_policy, m_bRtcpMux, m_bIceEnable);
    if (!ZYN_SUCCEEDED(rv)) {
        CM_ASSERT_REPORT("CM_SUCCEEDED(rv)");
        return rv;
    }
    m_keepDtlsKeys = true;
    // The stored arguments are copied: SetRemoteCandidates stores them again.
    const sdp::optional_value<sdp::ice_caps> ice = m_remoteIce;
    const CCmInetAddr remote = m_bIceEnable ? m_remoteDefault : m_remotePlain;
    if (!m_bIceEnable || !m_globalConfig || m_globalConfig->getICEServerNum() <= 0)
        return SetRemoteCandidates(ice, remote, m_bControlling, m_tieBreaker, m_connectionType, m_bRtcpMux);
    // New sockets need new server candidates (a relay above all) before the checks begin again.
    const bool controlling = m_bControlling;
    const uint64_t tieBreaker = m_tieBreaker;
    const unsigned int type = m_connectionType;
    allocateTurnRelayedAndReflexiveAddress(false, [this, ice, remote, controlling, tieBreaker, type](bool, const std::string&) {
        SetRemoteCandidates(ice, remote, controlling, static_cast<unsigned long>(tieBreaker), type, m_bRtcpMux);
    });
    return ZYN_S_OK;
}

template <class P>
void CIceConnectorT<P>::resetIceForBwcCalling(bool force, bool keep)
{
    if (!m_bCheckStarted && !force && !keep) return;
    ICE_INFO("CIceConnector::resetIceForBwcCalling m_iceInst:" << static_cast<void*>(m_iceInst.get())
                                                              << " m_bIceCompleted:" << m_bIceCompleted
                                                              << " remote lines:" << (m_remoteIce.is_set() ? 1 : 0));
    m_bIceCompleted = false;
    CleanUp(true, keep);
    const ZynResult rv = StartCollectCandidates(m_policy, m_bRtcpMux, m_bIceEnable);
    if (!ZYN_SUCCEEDED(rv)) ICE_INFO("CIceConnector::resetIceForBwcCalling, StartCollectCandidates failed:" << rv);
}

template <class P>
void CIceConnectorT<P>::resetIceForZarnCalling()
{
    // Drops the pairs and the agent's work but keeps the listening sockets.
    m_timers->Cancel(IceTimer::IceTick);
    CleanUp(true, false);
    m_bIceCompleted = false;
    const ZynResult rv = StartCollectCandidates(m_policy, m_bRtcpMux, m_bIceEnable);
    if (!ZYN_SUCCEEDED(rv)) ICE_INFO("CIceConnector::resetIceForZarnCalling, StartCollectCandidates failed:" << rv);
}

std::shared_ptr<IIceConnector> createIceConnector(IceConnectorSink* sink, unsigned int callId)
{
    return std::make_shared<CIceConnector>(sink, callId);
}

std::shared_ptr<IIceConnector> createIceConnectorWithQLOXGatewalk(IceConnectorSink* sink, unsigned int callId)
{
    return std::make_shared<CIceConnectorQLOX>(sink, callId);
}

template class CIceConnectorT<ice::ZynProfile>;
template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
