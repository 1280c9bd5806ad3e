// Transports: the contexts' transports, what arrives on them and where it goes (STUN, TURN, DTLS,
// RTP and RTCP by the first byte), keep-alive, inactivity and the RTCP seed. Network thread.
#include <cstring>

#include "config/GlobalConfig.h"
#include "ice/IceAllocations.h"
#include "ice/IceStun.h"
#include "ice/IceTrace.h"

namespace zyn {

namespace {

// Trace lines of the packet path are limited: one of so many.
bool EveryNth(uint32_t& counter, uint32_t n) { return counter++ % n == 0; }

// A sender report and an SDES with one CNAME: 56 bytes that open NAT bindings before media flows.
// Always the same bytes.
constexpr uint8_t kRtcpSeed[56] = {
    0x80, 0xC8, 0x00, 0x06, 0x63, 0x99, 0x71, 0x63, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0x81, 0xCA, 0x00, 0x06, 0x63, 0x99, 0x71, 0x63, 0x01, 14, 'c', 'n', 'a', 'm', 'e', '.', '6', '3', '9', '9',
    '7', '1', '6', '3', 0, 0, 0, 0,
};

}  // namespace

template <class P>
CIceConnectionContext* CIceConnectorT<P>::FindConnectionContext(const CCmInetAddr& local, const CCmInetAddr& remote,
                                                                bool create)
{
    for (auto& c : m_contexts)
        if (c->local == local && c->remote == remote) return c.get();
    if (!create) return nullptr;
    auto context = std::make_unique<CIceConnectionContext>();
    context->local = local;
    context->remote = remote;
    if (const CIceCandidate* c = MatchCandidate(local)) context->component = static_cast<uint32_t>(c->component);
    for (const auto& t : m_turnContexts) {
        if (!t->allocated || t->relayAddr != local) continue;
        context->turnAllocation = t;
        context->turnRelay = t.get();
        context->component = static_cast<uint32_t>(t->candidate.component);
    }
    m_contexts.push_back(std::move(context));
    return m_contexts.back().get();
}

template <class P>
CIceConnectionContext* CIceConnectorT<P>::FindContextByTransport(const ICmTransport* transport)
{
    if (!transport) return nullptr;
    for (auto& c : m_contexts)
        if (c->HasTransport(transport)) return c.get();
    return nullptr;
}

template <class P>
CIceConnectionContext* CIceConnectorT<P>::FindContextByConnector(const ICmAcceptorConnectorId* id)
{
    for (auto& c : m_contexts)
        if (c->pConnector && static_cast<const ICmAcceptorConnectorId*>(c->pConnector) == id) return c.get();
    return nullptr;
}

template <class P>
void CIceConnectorT<P>::DeleteContext(CIceConnectionContext* context)
{
    for (auto* list : {&m_checkSent, &m_keepAliveSent})
        for (auto it = list->begin(); it != list->end();)
            it = it->context == context ? list->erase(it) : std::next(it);
    if (context->HasTransport(m_dtlsTransport)) m_dtlsTransport = nullptr;
    // A transport of the path in use stays open under its other holders.
    const bool inUse = context->HasTransport(m_Transports[0]) || context->HasTransport(m_Transports[1]);
    context->Release(!inUse);
    for (auto it = m_contexts.begin(); it != m_contexts.end(); ++it) {
        if (it->get() != context) continue;
        m_contexts.erase(it);
        return;
    }
}

template <class P>
CmResult CIceConnectorT<P>::Connect(CIceConnectionContext* context, unsigned int transportType, const char* reason)
{
    ICE_DETAIL("CIceConnector::Connect, map address " << context->local.ToString() << " -> "
                                                     << context->remote.ToString() << " for " << reason);
    if (context->turnRelay) {
        for (const auto& t : m_turnContexts) {
            if (t.get() != context->turnRelay) continue;
            auto* relay = new CIceRelayTransport(std::weak_ptr<ITurnRelay>(t), context->local, context->remote);
            relay->AddReference();
            relay->OpenWithSink(this);
            context->pTransport = relay;
            return CM_OK;
        }
        return CM_ERROR_NOT_FOUND;
    }
    if (transportType == CM_CONNECTION_TYPE_UDP) {
        const CIceCandidate* candidate = MatchCandidate(context->local);
        ICmAcceptor* acceptor = candidate ? candidate->acceptor : nullptr;
        if (!acceptor) {
            for (ICmAcceptor* a : m_plainAcceptors)
                if (a && a->GetLocalAddr() == context->local) acceptor = a;
        }
        if (!acceptor) return CM_ERROR_NOT_FOUND;
        ICmConnector* connector = nullptr;
        if (acceptor->CreateConnector(connector) != CM_OK) return CM_ERROR_FAILURE;
        context->pConnector = connector;
        return connector->AsycConnect(this, context->remote);
    }
    ICmConnector* connector = nullptr;
    if (CCmConnectionManager::Instance()->CreateConnectionClient(transportType, connector, m_threadType) != CM_OK) {
        ICE_WARN("CIceConnector::Connect, error to create TCP connect");
        return CM_ERROR_FAILURE;
    }
    context->pConnector = connector;
    // From the pair's own address, on a port of the system's choosing: the UDP socket holds ours.
    CCmInetAddr from = context->local;
    from.SetPort(0);
    return connector->AsycConnect(this, context->remote, 10000, &from);
}

template <class P>
CmResult CIceConnectorT<P>::SendOnTransport(ICmTransport* transport, const uint8_t* bytes, size_t length)
{
    CCmMessageBlock block(bytes, length);
    return transport->SendData(block);
}

template <class P>
CmResult CIceConnectorT<P>::SendOnContext(CIceConnectionContext* context, const uint8_t* bytes, size_t length)
{
    ICmTransport* t = context->pTransport ? context->pTransport : context->pTransportTCP;
    return t ? SendOnTransport(t, bytes, length) : CM_ERROR_NOT_INITIALIZED;
}

template <class P>
uint32_t CIceConnectorT<P>::CheckSendUDP(CIceConnectionContext* context, bool& failed)
{
    if (!context->pTransport || !context->stunDataLength) return 0;
    if (SendOnTransport(context->pTransport, context->stunData.data(), context->stunDataLength) != CM_OK) {
        failed = true;
        return 0;
    }
    m_stunSent += context->stunDataLength;
    return context->stunDataLength;
}

template <class P>
uint32_t CIceConnectorT<P>::CheckSendTCP(CIceConnectionContext* context, bool& failed)
{
    if (!context->pTransportTCP || !context->stunDataLength) return 0;
    if (SendOnTransport(context->pTransportTCP, context->stunData.data(), context->stunDataLength) != CM_OK) {
        failed = true;
        context->disconnected = true;
        return 0;
    }
    m_stunSent += context->stunDataLength;
    return context->stunDataLength;
}

template <class P>
bool CIceConnectorT<P>::IsNonIceId(const ICmAcceptorConnectorId* id) const
{
    for (int i = 0; i < 2; ++i)
        if ((m_pNonIceConnector[i] && static_cast<const ICmAcceptorConnectorId*>(m_pNonIceConnector[i]) == id) ||
            (m_plainAcceptors[i] && static_cast<const ICmAcceptorConnectorId*>(m_plainAcceptors[i]) == id))
            return true;
    return false;
}

template <class P>
bool CIceConnectorT<P>::CheckTransportIsReady() const
{
    return m_Transports[0] && (m_bRtcpMux || m_Transports[1]);
}

template <class P>
void CIceConnectorT<P>::ReleaseTransports()
{
    for (ICmTransport** set : {m_Transports, m_TransportsExtra}) {
        for (int i = 0; i < 2; ++i) {
            if (!set[i]) continue;
            set[i]->ReleaseReference();
            set[i] = nullptr;
        }
    }
}

template <class P>
void CIceConnectorT<P>::OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id)
{
    if (reason == CM_ERROR_NETWORK_ACCEPT) {
        ICE_WARN("CIceConnector::OnConnectIndication, CM_ERROR_ACCEPT_FAILURE_BURST");
        for (CIceCandidate& c : m_Candidates)
            if (c.acceptor && static_cast<ICmAcceptorConnectorId*>(c.acceptor) == id) c.acceptor->StopListen(reason);
        return;
    }
    if (reason != CM_OK || !transport) {
        ICE_WARN("CIceConnector::OnConnectIndication, connect failure, aReason=" << reason);
        if (CIceConnectionContext* context = FindContextByConnector(id)) {
            m_checkListInfo.setIceConnectionError(context->checkListIndex, 1, reason);
            context->pConnector->ReleaseReference();
            context->pConnector = nullptr;
        }
        return;
    }
    const bool nonIce = IsNonIceId(id);
    ICE_DETAIL("CIceConnector::OnConnectIndication, cTransType=" << transport->GetType() << ", aTrpt="
                                                                << static_cast<void*>(transport) << ", bIceEnabled="
                                                                << m_bIceEnable << ", isRtcpMux=" << m_bRtcpMux);
    ICE_DETAIL("CIceConnector::OnConnectIndication, isSipCall=" << IsSipCall() << ", bNonIceTransport=" << nonIce);

    if (nonIce && (!m_bIceEnable || !m_iceInst)) {
        // The plain path: the peer's address is known, anybody else is not taken.
        int component = -1;
        for (int i = 0; i < 2; ++i) {
            const bool mine = (m_pNonIceConnector[i] && static_cast<ICmAcceptorConnectorId*>(m_pNonIceConnector[i]) == id) ||
                              (m_plainAcceptors[i] && static_cast<ICmAcceptorConnectorId*>(m_plainAcceptors[i]) == id);
            if (mine) component = i;
        }
        CCmInetAddr expected = m_remotePlain;
        expected.SetPort(static_cast<uint16_t>(m_remotePlain.GetPort() + (m_bRtcpMux ? 0 : component)));
        if (component < 0 || (m_remotePlain.GetPort() != 0 && transport->GetPeerAddr() != expected)) return;
        if (m_Transports[component] == transport) return;
        transport->OpenWithSink(this);
        ICmTransport** slot = !m_Transports[component] ? &m_Transports[component] : &m_TransportsExtra[component];
        if (*slot) {
            ICE_WARN("CIceConnector::OnConnectIndication m_TransportsExtra[i] != NULL memory leak");
            if (ClientType() == 2) return;
            (*slot)->ReleaseReference();
        }
        *slot = transport;
        transport->AddReference();
        // Taken before anybody named the peer: held to the peer's address once it is known.
        if (m_remotePlain.GetPort() == 0) m_bEarlyPlainPath = true;
        if (!CheckTransportIsReady() || m_bIceCompleted) return;
        m_bIceCompleted = true;
        m_timers->Cancel(IceTimer::Fallback);
        if (IsDtlsSRTPEnabled() && m_dtls) {
            ICE_INFO("CIceConnector::OnConnectIndication, start dtls connect - 2");
            CheckDtlsState();
        }
        if (m_sink) m_sink->OnIceComplete(0, m_Transports, m_Transports[1] ? 2 : 1, ZynIceOrigin_Plain, false);
        m_ulLastReceived = Now();
        m_rtcpSeedsLeft = 5;
        m_timers->Schedule(IceTimer::RtcpSeed, 100, 5);
        m_timers->Schedule(IceTimer::KeepAlive, IsSipCall() ? 20000 : 1000, 0);
        return;
    }

    transport->OpenWithSink(this);
    CIceConnectionContext* context = FindContextByConnector(id);
    if (!context) context = FindConnectionContext(transport->GetLocalAddr(), transport->GetPeerAddr(), true);
    if (!context) {
        CM_ASSERT_REPORT("pContext");
        return;
    }
    if (context->pConnector && static_cast<ICmAcceptorConnectorId*>(context->pConnector) == id) {
        context->pConnector->ReleaseReference();
        context->pConnector = nullptr;
    }
    ICmTransport** slot = transport->GetType() == CM_CONNECTION_TYPE_UDP ? &context->pTransport : &context->pTransportTCP;
    if (*slot == transport) return;
    if (*slot) (*slot)->ReleaseReference();
    *slot = transport;
    transport->AddReference();
    bool failed = false;
    CheckSendUDP(context, failed);
    CheckSendTCP(context, failed);
    // Server requests made before the transport was there.
    if (auto* turn = static_cast<TurnAllocContext*>(context->turnAllocation.get()); turn && !turn->pending.empty()) {
        auto bytes = std::move(turn->pending);
        turn->pending.clear();
        if (turn->context == context) SendServerData(context, turn->pending, bytes.data(), bytes.size(), turn->overTcp);
    }
    if (auto* stun = static_cast<StunAllocContext*>(context->stunAllocation.get()); stun && !stun->pending.empty()) {
        auto bytes = std::move(stun->pending);
        stun->pending.clear();
        SendServerData(context, stun->pending, bytes.data(), bytes.size());
    }
}

template <class P>
void CIceConnectorT<P>::OnDisconnect(CmResult reason, ICmTransport* transport)
{
    ICE_INFO("CIceConnector::OnDisconnect, aReason=" << reason << ", aTrptId=" << static_cast<void*>(transport));
    if (CIceConnectionContext* context = FindContextByTransport(transport)) {
        ICmTransport** slot = context->pTransportTCP == transport ? &context->pTransportTCP : &context->pTransport;
        ICE_DETAIL(((slot == &context->pTransportTCP) ? "CIceConnector::OnDisconnect, pTransportTCP."
                                                      : "CIceConnector::OnDisconnect, pTransport."));
        ICE_DETAIL("CIceConnector::OnDisconnect, CheckListInfo sets TIMEOUT.");
        m_checkListInfo.setIceConnectionError(context->checkListIndex, 4, reason);
        (*slot)->ReleaseReference();
        *slot = nullptr;
    }
    if (!m_bIceCompleted) {
        ICE_INFO("CIceConnector::OnDisconnect, ice not completed but m_bIceAggressiveNotified=" << m_bIceAggressiveNotified);
        return;
    }
    if (transport && (transport == m_Transports[0] || transport == m_Transports[1])) {
        m_bDisconnected = true;
        m_timers->Cancel(IceTimer::KeepAlive);
        if (m_sink) m_sink->OnDisconnect(reason, transport);
    }
}

template <class P>
void CIceConnectorT<P>::OnSend(ICmTransport* transport, CCmTransportParameter* parameter)
{
    if (m_sink) m_sink->OnSend(transport, parameter);
}

template <class P>
void CIceConnectorT<P>::OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter)
{
    (void)parameter;
    const size_t length = data.GetTopLevelLength();
    if (length == 0) return;
    if (data.GetNext()) {
        // The transports hand over whole datagrams and frames; a chain is an odd case, read flat.
        std::unique_ptr<CCmMessageBlock> flat = data.FlattenChained();
        OnReceive(*flat, transport, parameter);
        return;
    }
    // The path in use needs no lookup of its pair.
    CIceConnectionContext* context = nullptr;
    if (transport != m_Transports[0] && transport != m_Transports[1])
        context = FindContextByTransport(transport);
    else
        m_pathHeardMs = Now();
    if (context && context->isServer && HandleServerTraffic(data, transport, context)) return;
    Demultiplex(data, reinterpret_cast<const uint8_t*>(data.GetTopLevelReadPtr()), length, transport, context);
}

template <class P>
bool CIceConnectorT<P>::HandleServerTraffic(CCmMessageBlock& data, ICmTransport* transport, CIceConnectionContext* context)
{
    auto* bytes = reinterpret_cast<uint8_t*>(data.GetTopLevelReadPtr());
    uint32_t length = static_cast<uint32_t>(data.GetTopLevelLength());
    auto turn = std::static_pointer_cast<TurnAllocContext>(context->turnAllocation);
    if (turn && turn->context == context && turn->inst) {
        sockaddr_storage peer{};
        uint64_t token = 0;
        m_stunReceived += length;
        if (P::TurnClient_ReceivePacket(turn->inst, bytes, &length, reinterpret_cast<sockaddr*>(&peer), sizeof peer,
                                        &token)) {
            // Relayed data from a peer: as if it came on the relayed pair's own transport.
            m_stunReceived -= length;
            CIceConnectionContext* relayed = FindConnectionContext(turn->relayAddr, CCmInetAddr(reinterpret_cast<sockaddr*>(&peer)), true);
            if (!relayed->pTransport) Connect(relayed, CM_CONNECTION_TYPE_UDP, "relayed");
            if (!relayed->pTransport) return true;
            CCmMessageBlock inner(bytes, length);
            Demultiplex(inner, bytes, length, relayed->pTransport, relayed);
            return true;
        }
        // Responses were taken by the allocation; a Binding answer for a server binding from the
        // same pair still goes on below.
        if (!context->stunAllocation) return true;
    }
    auto stun = std::static_pointer_cast<StunAllocContext>(context->stunAllocation);
    if (stun && gatewalk::stunlib_isStunMsg(bytes, length)) {
        StunMessage& m = *m_rxMessage;
        if (P::stunlib_DecodeMessage(bytes, length, &m, nullptr, nullptr) &&
            (m.msgHdr.type == gatewalk::STUN_MSG_BindResponseMsg || m.msgHdr.type == gatewalk::STUN_MSG_BindErrorResponseMsg)) {
            m_stunReceived += length;
            if (!stun->finished) P::StunClient_HandleIncResp(stun->client, &m, transport->GetPeerAddr().GetPtr());
            return true;
        }
    }
    return turn != nullptr;
}

template <class P>
void CIceConnectorT<P>::Demultiplex(CCmMessageBlock& data, const uint8_t* bytes, size_t length, ICmTransport* transport,
                                    CIceConnectionContext* context)
{
    static thread_local uint32_t s_earlyDrops = 0, s_otherDrops = 0;
    const uint8_t b = bytes[0];
    if (b < 20 && gatewalk::stunlib_isStunMsg(bytes, static_cast<unsigned>(length))) {
        if (!context) context = FindContextByTransport(transport);
        if (!context) context = FindConnectionContext(transport->GetLocalAddr(), transport->GetPeerAddr(), true);
        HandleStun(bytes, length, transport, context);
        m_ulLastReceived = Now();
        return;
    }
    if (m_sessionType != ZynSessionType_Application) {
        if (b >= 20 && b <= 63) {
            if (!context) context = FindContextByTransport(transport);
            ReadDtls(bytes, length, transport, context);
            return;
        }
        if (b < 128 || b > 191) {
            if (EveryNth(s_otherDrops, 1000))
                ICE_DETAIL("CIceConnector::OnReceive, dropped a packet of first byte " << static_cast<int>(b));
            return;
        }
    }
    if (m_bIceEnable && m_remoteIce.empty() && !IsSipCall()) {
        if (EveryNth(s_earlyDrops, 100))
            ICE_INFO("CIceConnector::OnReceive, received RTP/RTCP packets too early, drop them server or sender should "
                     "resend.");
        return;
    }
    m_ulLastReceived = Now();
    if (m_sink) m_sink->OnReceive(data, transport, nullptr);
}

template <class P>
void CIceConnectorT<P>::HandleStun(const uint8_t* bytes, size_t length, ICmTransport* transport,
                                   CIceConnectionContext* context)
{
    m_stunReceived += static_cast<unsigned int>(length);
    StunMessage& m = *m_rxMessage;
    if (!P::stunlib_DecodeMessage(bytes, length, &m, nullptr, nullptr)) {
        ICE_DETAIL("CIceConnector::OnReceive, a STUN message that does not decode was dropped, from "
                   << transport->GetPeerAddr().ToString());
        return;
    }
    if (ice::FingerprintFails(bytes, length, m.hasFingerPrint != 0)) {
        ICE_WARN("CIceConnector::OnReceive, bad FINGERPRINT, dropped a STUN message from "
                 << transport->GetPeerAddr().ToString());
        return;
    }
    switch (m.msgHdr.type) {
    case gatewalk::STUN_MSG_BindRequestMsg: {
        std::string key = m_password;
        // The credential is the pair of the USERNAME (ours first: "local:remote") and the key.
        const size_t ufragLength = m_ufrag.size();
        const bool ours = m.hasUsername && strnlen(m.username.value, sizeof m.username.value) > ufragLength &&
                          std::memcmp(m.username.value, m_ufrag.data(), ufragLength) == 0 &&
                          m.username.value[ufragLength] == ':';
        if (!ours || !m.hasMessageIntegrity ||
            !P::stunlib_checkIntegrity(bytes, length, &m, reinterpret_cast<unsigned char*>(key.data()),
                                       static_cast<int>(key.size()))) {
            ICE_WARN("CIceConnector::OnReceive, invalid ICE credential for stun bind request. from "
                     << transport->GetPeerAddr().ToString());
            return;
        }
        if (!m_bCheckStarted || m_remoteIce.empty()) {
            if (m_pendingRequests.size() < kMaxPendingRequests) {
                transport->AddReference();
                m_pendingRequests.push_back(PendingRequest{std::vector<uint8_t>(bytes, bytes + length), transport});
            }
            return;
        }
        HandleStunRequest(bytes, length, m, transport, context);
        return;
    }
    case gatewalk::STUN_MSG_BindResponseMsg:
    case gatewalk::STUN_MSG_BindErrorResponseMsg: HandleBindResponse(bytes, length, m, transport, context); return;
    case gatewalk::STUN_MSG_BindIndicationMsg: return;  // a peer's keep-alive: it only had to arrive
    default:
        ICE_DETAIL("CIceConnector::OnReceive, STUN message of type " << m.msgHdr.type << " ignored");
        return;
    }
}

template <class P>
void CIceConnectorT<P>::HandleStunRequest(const uint8_t*, size_t, StunMessage& m, ICmTransport* transport,
                                          CIceConnectionContext* context)
{
    if (!context) context = FindContextByTransport(transport);
    if (!context) {
        ICE_WARN(" no context found for aTrptId=" << static_cast<void*>(transport));
        return;
    }
    context->isTrusted = true;
    context->mappedRemote = transport->GetPeerAddr();
    char ufragPair[gatewalk::STUN_MSG_MAX_STRING_CAPACITY + 1] = {};
    std::memcpy(ufragPair, m.username.value, strnlen(m.username.value, sizeof m.username.value));
    const bool relayed = context->turnRelay != nullptr;
    P::ICELIB_incomingBindingRequest(m_iceInst.get(), 0, 0, ufragPair, m.hasPriority ? m.priority : 0,
                                     m.hasUseCandidate != 0, m.hasControlling != 0, m.hasControlled != 0,
                                     m.hasControlling ? m.controlling : m.controlled, m.msgHdr.id, 0,
                                     context->remote.GetPtr(), context->local.GetPtr(), relayed,
                                     relayed ? context->local.GetPtr() : nullptr,
                                     static_cast<uint16_t>(context->component));
    FollowNomination(m, context);
}

template <class P>
void CIceConnectorT<P>::FollowNomination(const StunMessage& m, CIceConnectionContext* context)
{
    // The agent holds on to its first conclusion. A controlling peer that nominates another pair
    // later has reconnected after its NAT gave it a new mapping, and the old pair goes nowhere now.
    // Only a quiet path is left: checks of the first round that arrive late must not move a live one.
    constexpr uint64_t kQuietPathMs = 500;  // media comes every 20 to 40 ms, a keep-alive every second
    if (!m_bIceCompleted || m_bControlling || !m.hasUseCandidate || !m.hasControlling || !context->pTransport) return;
    const int slot = context->component == gatewalk::ICELIB_RTCP_COMPONENT_ID ? 1 : 0;
    if (!m_Transports[slot] || context->pTransport == m_Transports[slot] || Now() < m_pathHeardMs + kQuietPathMs) return;
    ICE_INFO("CIceConnector::FollowNomination, the peer nominated " << context->local.ToString() << " -> "
                                                                     << context->remote.ToString()
                                                                     << " after the conclusion: the path moves there");
    m_Transports[slot]->ReleaseReference();
    m_Transports[slot] = context->pTransport;
    m_Transports[slot]->AddReference();
    m_keepAliveMappedPort[slot] = 0;
    m_pathHeardMs = Now();
    if (m_sink) m_sink->OnIceComplete(0, m_Transports, m_Transports[1] ? 2 : 1, ZynIceOrigin_Ice, false);
}

template <class P>
void CIceConnectorT<P>::HandleBindResponse(const uint8_t* bytes, size_t length, StunMessage& m, ICmTransport* transport,
                                           CIceConnectionContext* context)
{
    const auto same = [&m](const SentRequest& r) { return gatewalk::stunlib_transIdIsEqual(&r.id, &m.msgHdr.id); };
    const uint64_t now = Now();
    const bool success = m.msgHdr.type == gatewalk::STUN_MSG_BindResponseMsg;
    auto verified = [&](const std::string& password) {
        std::string key = password;
        return m.hasMessageIntegrity && P::stunlib_checkIntegrity(bytes, length, &m, reinterpret_cast<unsigned char*>(key.data()),
                                                                  static_cast<int>(key.size()));
    };
    if (auto it = std::find_if(m_keepAliveSent.begin(), m_keepAliveSent.end(), same); it != m_keepAliveSent.end()) {
        const SentRequest sent = *it;
        m_keepAliveSent.erase(it);
        if (!verified(sent.password)) {
            ICE_WARN("CIceConnector::OnReceive, integrity check failed for incoming response. (may be renegotiation)");
            return;
        }
        ++m_rttMatched;
        m_rttTotalMs += now - sent.sentMs;
        if (!success || !m.hasXorMappedAddress) return;
        const uint16_t port = m.xorMappedAddress.port;
        uint16_t& known = m_keepAliveMappedPort[sent.component];
        if (known != 0 && port != known) {
            ICE_WARN("CIceConnector::OnReceive, STUN_MSG_BindResponseMsg, the heartbeat mapped port is changed. index is "
                     << sent.component << ", old port is " << known << ", new port is " << port
                     << ", trigger ICE reconnect");
            known = port;
            if (m_sink) m_sink->OnMappedPortChangedInKeepalive(0);
            return;
        }
        known = port;
        return;
    }
    auto it = std::find_if(m_checkSent.begin(), m_checkSent.end(), same);
    if (it == m_checkSent.end()) {
        ICE_DETAIL("CIceConnector::OnReceive, msgType == STUN_MSG_BindResponseMsg, received a bind response cannot find "
                   "in the request list.");
        return;
    }
    const SentRequest sent = *it;
    // An error answer may come without integrity; a success must carry it, and one that fails it is
    // not from our peer: the check goes on.
    const bool proven = verified(sent.password);
    if (!proven && (success || m.hasMessageIntegrity)) {
        ICE_WARN("CIceConnector::OnReceive, integrity check failed for incoming response. (may be renegotiation)");
        return;
    }
    m_checkSent.erase(it);
    ++m_rttMatched;
    m_rttTotalMs += now - sent.sentMs;
    if (!context) context = sent.context;
    // An answer keyed with the peer's password proves the pair as well as its requests do.
    if (context && proven) context->isTrusted = true;
    if (!m_iceInst || !context) return;
    if (success) {
        if (!m.hasXorMappedAddress) return;
        sockaddr_storage mapped{};
        ice::FromStunAddress(m.xorMappedAddress, mapped);
        P::ICELIB_incomingBindingResponse(m_iceInst.get(), 200, m.msgHdr.id, context->remote.GetPtr(),
                                          context->local.GetPtr(), reinterpret_cast<const sockaddr*>(&mapped));
        return;
    }
    const uint16_t code = m.hasErrorCode ? static_cast<uint16_t>(m.errorCode.errorClass * 100 + m.errorCode.number) : 400;
    ICE_INFO("ICE/STUN, error bind message has been received, content=" << transport->GetPeerAddr().ToString());
    ICE_INFO("[ICE] receive bind error message, errorCode=" << code);
    m_checkListInfo.setIceConnectionError(context->checkListIndex, 2, code);
    P::ICELIB_incomingBindingResponse(m_iceInst.get(), code, m.msgHdr.id, context->remote.GetPtr(),
                                      context->local.GetPtr(), nullptr);
}

template <class P>
void CIceConnectorT<P>::SendKeepAlive()
{
    if (ClientType() == 4 && m_bIceEnable && !m_iceInst) return;
    if (IsSipCall()) return;  // the SIP call's keep-alive belongs to its STUN client
    const int inactive = m_globalConfig ? m_globalConfig->GetICEInactiveTimeout() : 0;
    const uint64_t now = Now();
    if (inactive > 0 && m_sessionType != ZynSessionType_Application && now > m_ulLastReceived + static_cast<uint64_t>(inactive)) {
        ICE_WARN("ICE timer, the data channel did not receive data for " << (now - m_ulLastReceived)
                                                                         << "ms, m_ulLastReceived=" << m_ulLastReceived
                                                                         << "us, nowTime=" << now);
        m_timers->Schedule(IceTimer::Inactivity, 1, 1);
        m_timers->Cancel(IceTimer::KeepAlive);
        return;
    }
    const std::string password = m_remoteIce.is_set() ? m_remoteIce.get_data().password : std::string();
    for (int i = 0; i < 2; ++i) {
        if (!m_Transports[i] || !m_keepAliveSlot[i]) continue;
        StunMessage& m = *m_txMessage;
        m = *m_keepAliveSlot[i];
        m.msgHdr.id = P::ICELIB_generateTransactionId();
        m.hasMessageIntegrity = 0;
        m.hasFingerPrint = 0;
        uint8_t bytes[kIceStunBufferSize];
        std::string key = password;
        const uint32_t length = P::stunlib_encodeMessage(&m, bytes, sizeof bytes, reinterpret_cast<unsigned char*>(key.data()),
                                                         static_cast<unsigned>(key.size()), nullptr);
        if (length == 0) continue;
        if (m_keepAliveSent.size() >= kMaxKeepAliveSent) m_keepAliveSent.pop_front();
        m_keepAliveSent.push_back(SentRequest{m.msgHdr.id, FindContextByTransport(m_Transports[i]), password, now, i, 0});
        if (SendOnTransport(m_Transports[i], bytes, length) == CM_OK) m_stunSent += length;
    }
}

template <class P>
void CIceConnectorT<P>::SendRtcpSeed()
{
    for (ICmTransport* t : m_Transports)
        if (t) SendOnTransport(t, kRtcpSeed, sizeof kRtcpSeed);
}

template class CIceConnectorT<ice::ZynProfile>;
template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
