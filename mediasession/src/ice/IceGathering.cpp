// Gathering: local addresses, ports and host candidates, server-reflexive candidates from STUN
// servers, relayed and server-reflexive candidates from TURN servers, and the candidates of the
// description. Network thread.
#include <openssl/rand.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>

#include "config/GlobalConfig.h"
#include "diag/DNSResolverManager.h"
#include "ice/IceAllocations.h"
#include "ice/IceTrace.h"
#include "sockaddr_util.h"
#include "tp/CmThreadManager.h"
#include "util/CmLocalAddr.h"
#include "util/CmTick.h"

namespace zyn {

namespace {

const sockaddr* Sa(const sockaddr_storage& a) { return reinterpret_cast<const sockaddr*>(&a); }

// Ports a connector of this process let go of lately. A TURN server keeps a released allocation a
// little while, and a new Allocate from the same address and port meets 437 (Allocation Mismatch);
// a NAT keeps its mapping too. So a new candidate takes another port while the range has one.
class CRecentPorts {
public:
    static CRecentPorts& Instance()
    {
        static CRecentPorts recent;
        return recent;
    }
    void Released(uint16_t port)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ports.size() == kKept) m_ports.pop_front();
        m_ports.push_back({port, get_tick_count()});
    }
    bool IsRecent(uint16_t port)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t now = get_tick_count();
        for (const auto& [p, when] : m_ports)
            if (p == port && now - when < kQuarantineMs) return true;
        return false;
    }

private:
    static constexpr size_t kKept = 64;
    static constexpr uint64_t kQuarantineMs = 60000;
    std::mutex m_mutex;
    std::deque<std::pair<uint16_t, uint64_t>> m_ports;  // guarded by m_mutex
};

}  // namespace

template <class P>
std::vector<CCmInetAddr> CIceConnectorT<P>::LocalAddresses(ZynResult& result)
{
    result = ZYN_S_OK;
    if (m_addressSource) return m_addressSource();
    std::vector<CCmInetAddr> addresses;
    if (!m_localIp.empty() && m_localIp != "0.0.0.0") {
        CCmInetAddr fixed(m_localIp.c_str(), 0);
        if (fixed.IsValid()) addresses.push_back(fixed);
        return addresses;
    }
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    if (CmResult r = get_local_addr(&list, &count); r != CM_OK) {
        result = r;
        return addresses;
    }
    prune_local_addr(list, &count);
    for (unsigned int i = 0; i < count; ++i) {
        CCmInetAddr a(reinterpret_cast<const sockaddr*>(&list[i].addr), sizeof(list[i].addr));
        if (a.IsValid()) addresses.push_back(a);
    }
    free_local_addr(list);
    if (m_localIp == "0.0.0.0" && addresses.size() > 1) addresses.resize(1);
    return addresses;
}

template <class P>
ZynResult CIceConnectorT<P>::StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice)
{
    const bool sip = IsSipCall();
    if (!sip) StopListen();
    m_policy = policy;
    m_bIceEnable = ice;
    if (rtcpMux) m_bRtcpMux = true;
    m_stunSent = m_stunReceived = m_dtlsSent = m_dtlsReceived = 0;
    if (!m_bNonListenSet && m_globalConfig) m_bNonListen = m_globalConfig->IsICENoListen();
    ZynResult result = ZYN_S_OK;
    std::vector<CCmInetAddr> addresses = LocalAddresses(result);
    if (!ZYN_SUCCEEDED(result)) return result;

    if (ice && !m_iceInst) {
        CreateIceInstance();
    } else if (ice) {
        if (!m_bIceCompleted && m_bCheckStarted)
            ICE_WARN("CIceConnector::StartCollectCandidates, re-create offer while last ice was still in-progress, "
                     "unexpected behavior.");
        // A new gathering starts the agent afresh; only the credentials survive (below).
        P::ICELIB_Stop(m_iceInst.get());
        P::ICELIB_ReStart(m_iceInst.get(), m_tieBreaker);
        m_mediaIdx = P::ICELIB_addLocalMediaStream(m_iceInst.get(), 0, 0, 0, gatewalk::ICE_CAND_TYPE_HOST);
        m_bCheckStarted = false;
        m_bIceCompleted = false;
        m_checkListInfo.Clear();
    }
    if (ice && m_iceInst) {
        auto* stream = const_cast<gatewalk::ICE_MEDIA_STREAM*>(
            P::ICELIB_getLocalMediaStream(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx)));
        if (stream) {
            if (!m_ufrag.empty()) {
                // One ice-ufrag and ice-pwd for the life of the connector: a re-offer is no ICE restart.
                std::snprintf(stream->ufrag, sizeof stream->ufrag, "%s", m_ufrag.c_str());
                std::snprintf(stream->passwd, sizeof stream->passwd, "%s", m_password.c_str());
            } else {
                m_ufrag = stream->ufrag;
                m_password = stream->passwd;
            }
            // Relayed candidates only: the relay is the default address once it arrives.
            if (policy & ZynConnectionPolicy_RelayOnly) stream->defaultCandType = gatewalk::ICE_CAND_TYPE_RELAY;
        }
    }

    if (sip && !m_Candidates.empty()) {
        ICE_INFO("CIceConnector::StartCollectCandidates reusing existing m_Candidates:" << m_Candidates.size());
        for (const CIceCandidate& c : m_Candidates) {
            if (!m_iceInst || c.component != 1) continue;
            P::ICELIB_addLocalCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx), 1, c.rtpAddress.GetPtr(),
                                        nullptr, gatewalk::ICE_TRANS_UDP, gatewalk::ICE_CAND_TYPE_HOST,
                                        static_cast<uint16_t>(c.localPreference));
            if (ClientType() == 2 && !c.rtcpAddress.IsAny())
                P::ICELIB_addLocalCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx), 2,
                                            c.rtcpAddress.GetPtr(), nullptr, gatewalk::ICE_TRANS_UDP,
                                            gatewalk::ICE_CAND_TYPE_HOST, static_cast<uint16_t>(c.localPreference));
        }
        return ZYN_S_OK;
    }

    if (!ice) {
        if (addresses.empty()) return ZYN_S_OK;
        CCmInetAddr addr = addresses.front();
        const bool udp = (policy & ZynConnectionPolicy_UDP) != 0;
        result = CreateAcceptor(&addr, udp ? CM_CONNECTION_TYPE_UDP : CM_CONNECTION_TYPE_TCP_FRAMED, m_bRtcpMux,
                                m_plainAcceptors);
        m_listenKind = udp ? 2 : 1;
        if (ZYN_SUCCEEDED(result)) {
            m_localRtp = addr;
            m_localRtcp = addr;
            if (!m_bRtcpMux) m_localRtcp.SetPort(static_cast<uint16_t>(addr.GetPort() + 1));
        }
        return result;
    }

    int step = 24;
    int counter = 1;
    int used = 0;
    for (CCmInetAddr addr : addresses) {
        if (!(m_policy & ZynConnectionPolicy_UDP)) break;
        if (used == kMaxAddresses) {
            ICE_ERROR("CIceConnector::StartCollectCandidates, we only support at most 8 IP addresses as candidate.");
            break;
        }
        ICmAcceptor* pair[2] = {nullptr, nullptr};
        if (ZYN_SUCCEEDED(CreateAcceptor(&addr, CM_CONNECTION_TYPE_UDP, m_bRtcpMux, pair))) {
            for (int component = 1; component <= 2; ++component) {
                if (!pair[component - 1]) continue;
                CIceCandidate c;
                c.rtpAddress = addr;
                c.rtpAddress.SetPort(static_cast<uint16_t>(addr.GetPort() + component - 1));
                c.rtcpAddress = CCmInetAddr(addr.IsIpv6() ? "::" : "0.0.0.0", 0);
                c.component = component;
                c.localPreference = m_preferenceBase + step;
                c.foundationCounter = counter;
                c.acceptor = pair[component - 1];
                m_Candidates.push_back(c);
                // The agent bases its reflexive candidates on host ones, so they are there even
                // when only relayed candidates may be used; such a connector leaves them out of
                // the description and sends no check from them.
                P::ICELIB_addLocalCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx),
                                                static_cast<uint32_t>(component), c.rtpAddress.GetPtr(), nullptr,
                                                gatewalk::ICE_TRANS_UDP, gatewalk::ICE_CAND_TYPE_HOST,
                                                static_cast<uint16_t>(c.localPreference));
            }
        }
        ++used;
        step -= 3;
        counter += 4;
    }
    return ZYN_S_OK;
}

template <class P>
ZynResult CIceConnectorT<P>::CreateAcceptor(CCmInetAddr* addr, uint32_t connType, bool rtcpMux, ICmAcceptor** acceptors)
{
    if (!addr || !acceptors) return ZYN_E_INVALIDARG;
    acceptors[0] = acceptors[1] = nullptr;
    const uint32_t width = static_cast<uint32_t>(m_portMax - m_portMin) + 1;
    const uint32_t start = m_portStarts[m_portIndex++];
    // Two rounds: the first passes over ports let go of lately, the second takes any.
    for (uint32_t attempt = 0; attempt < 2 * width; ++attempt) {
        const bool fresh = attempt < width;
        const uint32_t position = start + 2 * attempt;
        const uint16_t port = static_cast<uint16_t>(m_portMin + ((position % width) & ~1u));
        if (!rtcpMux && port + 1 > m_portMax) continue;
        if (fresh && (CRecentPorts::Instance().IsRecent(port) ||
                      (!rtcpMux && CRecentPorts::Instance().IsRecent(static_cast<uint16_t>(port + 1)))))
            continue;
        CmResult r = CM_OK;
        int opened = 0;
        for (int i = 0; i < (rtcpMux ? 1 : 2) && r == CM_OK; ++i) {
            r = CCmConnectionManager::Instance()->CreateConnectionServer(connType, acceptors[i], m_threadType);
            if (r != CM_OK) break;
            ++opened;
            CCmInetAddr at = *addr;
            at.SetPort(static_cast<uint16_t>(port + i));
            if (!m_bNonListen) r = acceptors[i]->StartListen(this, at);
        }
        if (r == CM_OK) {
            addr->SetPort(port);
            ICE_DETAIL("CIceConnector::CreateAcceptor, port=" << port << ", rtcpMux=" << rtcpMux);
            return ZYN_S_OK;
        }
        for (int i = 0; i < opened; ++i) {
            acceptors[i]->StopListen(CM_OK);
            acceptors[i]->ReleaseReference();
            acceptors[i] = nullptr;
        }
        if (r == 99) break;
    }
    ICE_ERROR("CIceConnector::CreateAcceptor, no free port in " << m_portMin << "-" << m_portMax);
    return ZYN_E_FAIL;
}

template <class P>
void CIceConnectorT<P>::CloseCandidates()
{
    for (CIceCandidate& c : m_Candidates) {
        if (!c.acceptor) continue;
        CRecentPorts::Instance().Released(c.rtpAddress.GetPort());
        c.acceptor->StopListen(CM_OK);
        c.acceptor->ReleaseReference();
        c.acceptor = nullptr;
    }
    for (ICmAcceptor*& a : m_plainAcceptors) {
        if (!a) continue;
        CRecentPorts::Instance().Released(a->GetLocalAddr().GetPort());
        a->StopListen(CM_OK);
        a->ReleaseReference();
        a = nullptr;
    }
}

template <class P>
void CIceConnectorT<P>::StopListen()
{
    // Allocations and pairs ride on the candidates' sockets: they go first, and so do the lookups of
    // their servers' names.
    CDNSResolverManager::Instance()->cancelResolve(this);
    StopStun();
    StopTurn();
    CleanUpContexts(true);
    CloseCandidates();
    m_Candidates.clear();
    m_localRtp = CCmInetAddr();
    m_localRtcp = CCmInetAddr();
    m_listenKind = 0;
}

template <class P>
const CIceCandidate* CIceConnectorT<P>::MatchCandidate(const CCmInetAddr& local) const
{
    for (const CIceCandidate& c : m_Candidates)
        if (c.rtpAddress == local) return &c;
    return nullptr;
}

template <class P>
void CIceConnectorT<P>::GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& defaultAddr)
{
    caps.clear();
    if (!m_bIceEnable || !m_iceInst) {
        defaultAddr = m_localRtp;
        if (!m_overrideIp.empty()) defaultAddr.SetIpAddrByString(m_overrideIp.c_str());
        return;
    }
    const gatewalk::ICE_MEDIA_STREAM* stream =
        P::ICELIB_getLocalMediaStream(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx));
    defaultAddr = CCmInetAddr();
    if (!stream) return;
    std::vector<sdp::ice_candidate> cands;
    const bool relayOnly = (m_policy & ZynConnectionPolicy_RelayOnly) != 0;
    for (uint32_t i = 0; i < stream->numberOfCandidates && i < gatewalk::ICE_MAX_CANDIDATES; ++i) {
        const gatewalk::ICE_CANDIDATE& c = stream->candidate[i];
        if (relayOnly && c.type != gatewalk::ICE_CAND_TYPE_RELAY) continue;
        char ip[64] = {};
        gatewalk::sockaddr_toString(Sa(c.connectionAddr), ip, sizeof ip, false);
        std::string address = ip;
        if (!m_overrideIp.empty() && c.type == gatewalk::ICE_CAND_TYPE_HOST) address = m_overrideIp;
        std::vector<std::pair<std::string, std::string>> extensions;
        if (gatewalk::sockaddr_isSet(Sa(c.relAddr))) {
            char rel[64] = {};
            gatewalk::sockaddr_toString(Sa(c.relAddr), rel, sizeof rel, false);
            extensions.emplace_back("raddr", rel);
            extensions.emplace_back("rport", std::to_string(gatewalk::sockaddr_ipPort(Sa(c.relAddr))));
        }
        cands.emplace_back(c.foundation, c.componentid, "UDP", c.priority, address,
                           static_cast<uint16_t>(gatewalk::sockaddr_ipPort(Sa(c.connectionAddr))),
                           P::ICE_candidateTypeToString(c.type), extensions);
        if (c.componentid == 1 && defaultAddr.GetPort() == 0) defaultAddr = CCmInetAddr(Sa(c.connectionAddr));
    }
    // The agent's default (the relay when only relayed candidates may be used) wins over the first.
    if (gatewalk::sockaddr_isSet(Sa(stream->defaultAddr))) defaultAddr = CCmInetAddr(Sa(stream->defaultAddr));
    if (cands.empty()) {
        CM_ASSERT_REPORT("!cands.empty()");
        return;
    }
    caps = sdp::ice_caps(stream->ufrag, stream->passwd, std::move(cands));
}

// ---- STUN and TURN servers -----------------------------------------------------------------------

template <class P>
void CIceConnectorT<P>::allocateTurnRelayedAndReflexiveAddress(bool isCheck,
                                                               std::function<void(bool, const std::string&)> done)
{
    std::vector<CIceCandidate> chosen;
    for (const CIceCandidate& c : m_Candidates) {
        if (chosen.size() == (isCheck ? 1u : 2u)) break;
        // RTCP rides with RTP on the relay: one allocation per address is enough under mux, and
        // the agent pairs component 2 only where it has candidates of it.
        if (c.component != 1 && m_bRtcpMux) continue;
        chosen.push_back(c);
    }
    auto left = std::make_shared<size_t>(chosen.size());
    auto finish = [this, done, left]() {
        if (*left > 0 && --*left > 0) return;
        bool any = false;
        for (const auto& t : m_turnContexts) any = any || t->allocated;
        if (done) done(any || m_turnContexts.empty(), any ? "relay" : "");
    };
    if (chosen.empty()) {
        *left = 0;
        finish();
        return;
    }
    for (const CIceCandidate& c : chosen) allocateICERelayedAndReflexiveAddressForCandidate(c, isCheck, finish);
    m_timers->Schedule(IceTimer::MainStun, 50, 0);
    m_timers->Schedule(IceTimer::StunContexts, 50, 0);
    m_timers->Schedule(IceTimer::Turn, 50, 0);
}

template <class P>
void CIceConnectorT<P>::allocateICERelayedAndReflexiveAddressForCandidate(const CIceCandidate& candidate, bool isCheck,
                                                                          std::function<void()> done)
{
    if (!m_globalConfig) {
        ICE_INFO("CIceConnector::allocateTurnRelayedAndReflexiveAddressForCandidate, m_globalConfig == nullptr");
        done();
        return;
    }
    const int count = m_globalConfig->getICEServerNum();
    if (count <= 0) {
        ICE_ERROR("CIceConnector::allocateTurnRelayedAndReflexiveAddressForCandidate, turn server list is emtpy");
        done();
        return;
    }
    // The candidate's completion fires once every server answered (or was skipped).
    auto left = std::make_shared<int>(count);
    auto serverDone = [done, left]() {
        if (--*left == 0) done();
    };
    for (int i = 0; i < count; ++i) {
        tagICEServer server{};
        if (!ZYN_SUCCEEDED(m_globalConfig->getICEServerAtIndex(i, server))) {
            ICE_INFO("CIceConnector::turnAllocRequest, get ice server failed");
            serverDone();
            continue;
        }
        server.host[sizeof server.host - 1] = '\0';
        if (isCheck)
            ICE_INFO("CIceConnector::allocateICERelaye while check, resolve dns first");
        else
            ICE_INFO("CIceConnector::allocateICERelaye in call flow");
        CCmInetAddr serverAddr;
        if (serverAddr.SetWithoutResolve(server.host, server.port) == CM_OK) {
            AllocateAtServer(candidate, isCheck, server, serverAddr, serverDone);
            continue;
        }
        // A name: the resolver shares one lookup among every connector that asks, and answers on
        // this thread, so gathering never waits on the network thread for a DNS server.
        CCmInetAddr name;
        const int family = candidate.rtpAddress.IsIpv6() ? AF_INET6 : AF_INET;
        ACmThread* thread = CCmThreadManager::Instance()->GetThread(m_threadType);
        if (name.SetUnresolved(server.host, server.port, family) != CM_OK ||
            CDNSResolverManager::Instance()->resolve(
                name, this,
                [this, candidate, isCheck, server, serverDone](const CCmInetAddr& resolved) {
                    if (!resolved.IsResolved()) {
                        ICE_WARN("CIceConnector::allocateICERelaye, cannot resolve " << server.host);
                        serverDone();
                        return;
                    }
                    AllocateAtServer(candidate, isCheck, server, resolved, serverDone);
                },
                thread, family) != CM_OK) {
            ICE_WARN("CIceConnector::allocateICERelaye, cannot resolve " << server.host);
            serverDone();
        }
    }
}

template <class P>
void CIceConnectorT<P>::AllocateAtServer(const CIceCandidate& candidate, bool isCheck, const tagICEServer& server,
                                         const CCmInetAddr& serverAddr, std::function<void()> done)
{
    if (server.kind == ZynIceServer_TURN)
        allocateTurnRelayedAndReflexive(candidate, isCheck, server, serverAddr, std::move(done));
    else
        allocateStunRelayedAndReflexive(candidate, isCheck, server, serverAddr, std::move(done));
}

template <class P>
void CIceConnectorT<P>::allocateTurnRelayedAndReflexive(const CIceCandidate& candidate, bool isCheck,
                                                        const tagICEServer& server, const CCmInetAddr& serverAddr,
                                                        std::function<void()> done)
{
    if (serverAddr.GetType() != candidate.rtpAddress.GetType()) {
        done();
        return;
    }
    auto turn = std::make_shared<TurnAllocContext>();
    turn->connector = this;
    turn->candidate = candidate;
    turn->done = std::move(done);
    turn->serverAddr = serverAddr;
    turn->serverText = std::string(server.transport == 1 ? "tcp:" : "udp:") + serverAddr.ToString();
    turn->isCheck = isCheck;
    turn->server = server;
    turn->overTcp = server.transport == 1;
    ++turn->outstanding;
    CIceConnectionContext* context = FindConnectionContext(candidate.rtpAddress, serverAddr, true);
    if (!context) {
        ICE_INFO("CIceConnector::allocateTurnRelayedAndReflexiveAddressForCandidate, pContext == nullptr");
        turn->Finish();
        return;
    }
    context->isServer = true;
    context->component = static_cast<uint32_t>(candidate.component);
    if (isCheck) {
        ICE_INFO("it is a check connection");
        context->isCheck = true;
    }
    turn->context = context;
    // The server's own pair carries the allocation; only pairs from the relay address are relayed.
    context->turnAllocation = turn;
    m_turnContexts.insert(turn);
    if (turn->overTcp && !context->pTransportTCP && !context->pConnector)
        Connect(context, CM_CONNECTION_TYPE_TCP_STUN, "turn over tcp");
    else if (!turn->overTcp && !context->pTransport && !context->pConnector)
        Connect(context, CM_CONNECTION_TYPE_UDP, "turn");
    const int family = serverAddr.IsIpv6() ? AF_INET6 : AF_INET;
    if (!P::TurnClient_StartAllocateTransaction(&turn->inst, 50, nullptr, "zyn", turn.get(), serverAddr.GetPtr(),
                                                server.username, server.password, family,
                                                &CIceConnectorT::sendRawTurnData, &CIceConnectorT::turnStatusCallBack,
                                                false, 0)) {
        ICE_WARN("CIceConnector::allocateTurnRelayedAndReflexive, the allocation could not start");
        turn->Finish();
    }
}

template <class P>
void CIceConnectorT<P>::allocateStunRelayedAndReflexive(const CIceCandidate& candidate, bool isCheck,
                                                        const tagICEServer& server, const CCmInetAddr& serverAddr,
                                                        std::function<void()> done)
{
    if (serverAddr.GetType() != candidate.rtpAddress.GetType()) {
        done();
        return;
    }
    auto stun = std::make_shared<StunAllocContext>();
    stun->connector = this;
    stun->candidate = candidate;
    stun->done = std::move(done);
    stun->serverAddr = serverAddr;
    stun->serverText = serverAddr.ToString();
    stun->isCheck = isCheck;
    stun->server = server;
    stun->id = P::ICELIB_generateTransactionId();
    if (!P::StunClient_Alloc(&stun->client)) {
        stun->Finish();
        return;
    }
    CIceConnectionContext* context = FindConnectionContext(candidate.rtpAddress, serverAddr, true);
    if (!context) {
        ICE_INFO("CIceConnector::allocateTurnRelayedAndReflexiveAddressForCandidate, pContext == nullptr");
        stun->Finish();
        return;
    }
    context->isServer = true;
    context->component = static_cast<uint32_t>(candidate.component);
    if (isCheck) {
        ICE_INFO("check is check");
        context->isCheck = true;
    }
    stun->context = context;
    context->stunAllocation = stun;
    m_stunContexts.insert(stun);
    if (!context->pTransport && !context->pConnector) Connect(context, CM_CONNECTION_TYPE_UDP, "stun");
    char user[256] = {}, password[256] = {};
    std::snprintf(user, sizeof user, "%s", server.username);
    std::snprintf(password, sizeof password, "%s", server.password);
    P::StartBind(stun->client, stun.get(), serverAddr.GetPtr(), candidate.rtpAddress.GetPtr(), user, password,
                 stun->id, &CIceConnectorT::stunStatusCallBackForStunServer);
}

template <class P>
void CIceConnectorT<P>::sendRawTurnData(const unsigned char* bytes, unsigned long length, const struct sockaddr*,
                                        void* ctx)
{
    auto* turn = static_cast<TurnAllocContext*>(ctx);
    if (turn->connector) turn->connector->SendServerData(turn->context, turn->pending, bytes, length, turn->overTcp);
}

template <class P>
void CIceConnectorT<P>::SendServerData(CIceConnectionContext* context, std::vector<uint8_t>& pending,
                                       const uint8_t* bytes, size_t length, bool overTcp)
{
    ICmTransport* t = context ? (overTcp ? context->pTransportTCP : context->pTransport) : nullptr;
    if (t && SendOnTransport(t, bytes, length) == CM_OK) {
        m_stunSent += static_cast<unsigned int>(length);
        return;
    }
    // The transport comes up a moment later (or the request is repeated by the stack anyway).
    pending.assign(bytes, bytes + length);
}

template <class P>
void CIceConnectorT<P>::turnStatusCallBack(void* ctx, gatewalk::TurnCallBackData_T* data)
{
    auto* turn = static_cast<TurnAllocContext*>(ctx);
    if (turn->connector && data) turn->connector->OnTurnResult(turn, data);
}

template <class P>
void CIceConnectorT<P>::OnTurnResult(TurnAllocContext* turn, gatewalk::TurnCallBackData_T* data)
{
    using gatewalk::TurnResult_T;
    switch (data->turnResult) {
    case gatewalk::TurnResult_RelayReleaseComplete:
    case gatewalk::TurnResult_RelayReleaseFailed:
        ICE_INFO((data->turnResult == gatewalk::TurnResult_RelayReleaseComplete ? "relay release succeed"
                                                                                : "relay release failed"));
        if (--turn->outstanding <= 0) ICE_DETAIL("[ICE] CIceConnector::turnStatusCallBack delete turnContext");
        return;
    case gatewalk::TurnResult_AllocOk: {
        ICE_INFO("turn alloc request succeed");
        const sockaddr* relay = Sa(turn->candidate.rtpAddress.IsIpv6() ? data->relAddrIPv6 : data->relAddrIPv4);
        if (!gatewalk::sockaddr_isSet(relay)) relay = Sa(data->relAddrIPv4.ss_family ? data->relAddrIPv4 : data->relAddrIPv6);
        turn->relayAddr = CCmInetAddr(relay);
        turn->srflxAddr = CCmInetAddr(Sa(data->srflxAddr));
        turn->allocated = true;
        ICE_INFO("serverReflexiveAddr: " << turn->srflxAddr.ToString() << ", relayAddr: " << turn->relayAddr.ToString());
        if (m_iceInst && !turn->isCheck) {
            AddServerCandidate(gatewalk::ICE_CAND_TYPE_RELAY, turn->candidate, relay);
            if (!(m_policy & ZynConnectionPolicy_RelayOnly) && gatewalk::sockaddr_isSet(Sa(data->srflxAddr)))
                AddServerCandidate(gatewalk::ICE_CAND_TYPE_SRFLX, turn->candidate, Sa(data->srflxAddr));
        }
        if (turn->isCheck) ICE_INFO("turn server check with cache=" << turn->serverText);
        turn->Finish();
        return;
    }
    case gatewalk::TurnResult_AllocFail:
    case gatewalk::TurnResult_AllocFailNoAnswer:
    case gatewalk::TurnResult_AllocUnauthorised:
    case gatewalk::TurnResult_MalformedRespWaitAlloc:
    case gatewalk::TurnResult_InternalError:
        ICE_WARN("turn alloc is rejected, result=" << gatewalk::TurnResultToStr(data->turnResult) << ", server="
                                                   << turn->serverText);
        if (turn->isCheck) ICE_INFO("turn server check with cache=" << turn->serverText);
        turn->Finish();
        return;
    case gatewalk::TurnResult_CreatePermissionOk: ICE_DETAIL("turn create permission succeed"); return;
    case gatewalk::TurnResult_CreatePermissionFail:
    case gatewalk::TurnResult_CreatePermissionNoAnswer:
    case gatewalk::TurnResult_CreatePermissionQuotaReached:
    case gatewalk::TurnResult_PermissionRefreshFail: ICE_WARN("turn create permission failed"); return;
    case gatewalk::TurnResult_ChanBindOk: ICE_DETAIL("channel bind succeed"); return;
    case gatewalk::TurnResult_ChanBindFail:
    case gatewalk::TurnResult_ChanBindFailNoanswer: ICE_WARN("channel bind failed"); return;
    default:
        ICE_WARN("CIceConnector::turnStatusCallBack, " << gatewalk::TurnResultToStr(data->turnResult));
        return;
    }
}

template <class P>
void CIceConnectorT<P>::AddServerCandidate(gatewalk::ICE_CANDIDATE_TYPE type, const CIceCandidate& base,
                                           const sockaddr* address)
{
    const int32_t idx = P::ICELIB_addLocalCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx),
                                                    static_cast<uint32_t>(base.component), address,
                                                    base.rtpAddress.GetPtr(), gatewalk::ICE_TRANS_UDP, type,
                                                    static_cast<uint16_t>(base.localPreference));
    if (idx < 0) ICE_WARN("CIceConnector::AddServerCandidate, the agent refused " << CCmInetAddr(address).ToString());
}

template <class P>
void CIceConnectorT<P>::stunStatusCallBackForStunServer(void* ctx, typename P::StunCallBackData* data)
{
    auto* stun = static_cast<StunAllocContext*>(ctx);
    if (stun->connector && data) stun->connector->OnStunResult(stun, data);
}

template <class P>
void CIceConnectorT<P>::OnStunResult(StunAllocContext* stun, typename P::StunCallBackData* data)
{
    const int result = static_cast<int>(data->stunResult);
    if (result == P::kBindOk) {
        ICE_INFO("stun bind succeed");
        ICE_INFO("bind success server reflexive address:" << CCmInetAddr(Sa(data->rflxAddr)).ToString());
        if (m_iceInst && !stun->isCheck && !(m_policy & ZynConnectionPolicy_RelayOnly))
            AddServerCandidate(gatewalk::ICE_CAND_TYPE_SRFLX, stun->candidate, Sa(data->rflxAddr));
    } else if (result == P::kMalformedResp) {
        ICE_WARN("Mal formed Resp");
    } else {
        ICE_WARN("stun bind failed" << " errcode = " << P::StunClient_resultToStr(result));
    }
    if (stun->isCheck) ICE_INFO("stun server check with cache=" << stun->serverText);
    stun->Finish();
}

template <class P>
size_t CIceConnectorT<P>::GetLiveTurnAllocations() const
{
    size_t n = 0;
    for (const auto& t : m_turnContexts) n += t->allocated ? 1 : 0;
    return n;
}

template <class P>
void CIceConnectorT<P>::TickStunContexts()
{
    // The argument is kept as it stands: every timer of a server binding runs out on each tick, so
    // a silent server is given up within about half a second instead of several.
    std::vector<std::shared_ptr<StunAllocContext>> live(m_stunContexts.begin(), m_stunContexts.end());
    for (const auto& s : live)
        if (!s->finished) P::StunClient_HandleTick(s->client, 50000);
}

template <class P>
void CIceConnectorT<P>::TickTurnContexts()
{
    std::vector<std::shared_ptr<TurnAllocContext>> live(m_turnContexts.begin(), m_turnContexts.end());
    for (const auto& t : live) {
        if (!t->inst) continue;
        P::TurnClient_HandleTick(t->inst);
        AskPermissions(t.get());
    }
}

template <class P>
void CIceConnectorT<P>::StopStun()
{
    for (const auto& s : m_stunContexts) {
        s->connector = nullptr;
        if (s->context) s->context->stunAllocation.reset();
    }
    m_stunContexts.clear();
    m_timers->Cancel(IceTimer::StunContexts);
    m_timers->Cancel(IceTimer::MainStun);
}

template <class P>
void CIceConnectorT<P>::StopTurn()
{
    for (const auto& t : m_turnContexts) {
        // A polite release: the server frees the relay now instead of at the lifetime's end.
        if (t->allocated && t->inst) P::TurnClient_Deallocate(t->inst);
        t->connector = nullptr;
        if (t->context) {
            t->context->turnAllocation.reset();
            t->context->turnRelay = nullptr;
        }
    }
    m_turnContexts.clear();
    m_timers->Cancel(IceTimer::Turn);
}

template <class P>
void CIceConnectorT<P>::EnsurePermission(TurnAllocContext* turn, const CCmInetAddr& peer)
{
    if (!turn->inst || !turn->allocated) return;
    for (const CCmInetAddr& p : turn->permissions)
        if (p.GetIpDisplayName() == peer.GetIpDisplayName()) return;
    turn->permissions.push_back(peer);
    turn->permissionsDue = true;
    AskPermissions(turn);
}

template <class P>
void CIceConnectorT<P>::AskPermissions(TurnAllocContext* turn)
{
    if (!turn->permissionsDue || !turn->inst || !turn->allocated) return;
    // One request holds at most this many peers: the latest ones, the pairs still being checked.
    const size_t count = std::min<size_t>(turn->permissions.size(), gatewalk::STUN_MAX_PEER_ADDR);
    const sockaddr* peers[gatewalk::STUN_MAX_PEER_ADDR] = {};
    for (size_t i = 0; i < count; ++i) peers[i] = turn->permissions[turn->permissions.size() - count + i].GetPtr();
    if (P::TurnClient_StartCreatePermissionReq(turn->inst, static_cast<uint32_t>(count), peers))
        turn->permissionsDue = false;
    else
        ICE_DETAIL("turn create permission waits, peers=" << count);
}

template <class P>
void CIceConnectorT<P>::FinishAllocation(TurnAllocContext* turn)
{
    turn->Finish();
}

template <class P>
CmResult CIceConnectorT<P>::RelayData(TurnAllocContext* turn, const CCmInetAddr& peer, CCmMessageBlock& data)
{
    if (!turn->inst || !turn->allocated || !turn->context) return CM_ERROR_NOT_INITIALIZED;
    ICmTransport* t = turn->overTcp ? turn->context->pTransportTCP : turn->context->pTransport;
    if (!t) return CM_ERROR_NOT_INITIALIZED;
    const size_t length = data.GetChainedLength();
    constexpr uint32_t kOffset = 64;  // past the largest Send indication header
    if (length + kOffset + 4 > turn->frame.size()) return CM_ERROR_INVALID_ARG;
    size_t at = kOffset;
    for (const CCmMessageBlock* b = &data; b; b = b->GetNext()) {
        std::memcpy(turn->frame.data() + at, b->GetTopLevelReadPtr(), b->GetTopLevelLength());
        at += b->GetTopLevelLength();
    }
    const bool stream = t->GetType() != CM_CONNECTION_TYPE_UDP;
    const uint32_t framed = P::TurnClient_SendPacket(turn->inst, turn->frame.data(),
                                                     static_cast<uint32_t>(turn->frame.size()),
                                                     static_cast<uint32_t>(length), kOffset, peer.GetPtr(), stream);
    if (framed == 0) return CM_ERROR_FAILURE;
    return SendOnTransport(t, turn->frame.data(), framed);
}

template class CIceConnectorT<ice::ZynProfile>;
template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
