// Checks and conclusion: the remote candidates enter the agent, each check becomes a connection
// context and a packet, answers go back, and the conclusion keeps the winning transports. Also the
// two special shapes: the peer without ICE and the SIP call. Network thread.
#include <algorithm>
#include <cstring>
#include <utility>

#include "config/GlobalConfig.h"
#include "diag/DNSResolverManager.h"
#include "diag/StunTrace.h"
#include "tp/CmThreadManager.h"
#include "ice/IceAllocations.h"
#include "ice/IceStun.h"
#include "ice/IceTrace.h"
#include "util/CmLocalAddr.h"

namespace zyn {

namespace {

const sockaddr* Sa(const sockaddr_storage& a) { return reinterpret_cast<const sockaddr*>(&a); }

// Where the packets of a pair with this local candidate leave from. A reflexive candidate, server
// or peer, is only how a NAT shows its base: the socket, and so the connection context, is the
// base's. A relayed candidate keeps its own address: its contexts are keyed on the relay.
const sockaddr* SendingBase(const gatewalk::ICE_CANDIDATE& c)
{
    const bool reflexive = c.type == gatewalk::ICE_CAND_TYPE_PRFLX || c.type == gatewalk::ICE_CAND_TYPE_SRFLX;
    return reflexive && gatewalk::sockaddr_isSet(Sa(c.relAddr)) ? Sa(c.relAddr) : Sa(c.connectionAddr);
}

gatewalk::ICE_CANDIDATE_TYPE GetCandTypeFromString(const std::string& type)
{
    if (type == "host") return gatewalk::ICE_CAND_TYPE_HOST;
    if (type == "srflx") return gatewalk::ICE_CAND_TYPE_SRFLX;
    if (type == "relay") return gatewalk::ICE_CAND_TYPE_RELAY;
    if (type == "prflx") return gatewalk::ICE_CAND_TYPE_PRFLX;
    return gatewalk::ICE_CAND_TYPE_NONE;
}

gatewalk::ICE_TRANSPORT GetTransportFromCandidate(const sdp::ice_candidate& c)
{
    std::string t = c.transport;
    std::transform(t.begin(), t.end(), t.begin(), [](unsigned char ch) { return static_cast<char>(std::toupper(ch)); });
    if (t == "UDP") return gatewalk::ICE_TRANS_UDP;
    if (t != "TCP") return gatewalk::ICE_TRANS_NONE;
    for (const auto& [name, value] : c.extensions)
        if (name == "tcptype") return value == "active" ? gatewalk::ICE_TRANS_TCPACT : gatewalk::ICE_TRANS_TCPPASS;
    return gatewalk::ICE_TRANS_TCPPASS;
}

bool IsNumericAddress(const std::string& text)
{
    sockaddr_storage s{};
    return gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&s), text.c_str());
}

// A name worth asking a resolver about: letters, digits, '-' and '.', labels of 1 to 63, at most
// 253 in all, and not only digits and dots (that is a broken address, not a name).
bool IsHostName(const std::string& text)
{
    if (text.empty() || text.size() > 253) return false;
    bool letter = false;
    size_t label = 0;
    for (char ch : text) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == '.') {
            if (label == 0) return false;
            label = 0;
            continue;
        }
        if (!std::isalnum(c) && c != '-') return false;
        letter = letter || std::isalpha(c) || c == '-';
        if (++label > 63) return false;
    }
    return letter;
}

}  // namespace

template <class P>
ZynResult CIceConnectorT<P>::SetRemoteCandidates(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                                 bool controlling, unsigned long tieBreaker, unsigned int cType,
                                                 bool rtcpMux)
{
    ICE_INFO("[ICE] CIceConnector::SetRemoteCandidates, bControlling=" << controlling << ", tieBreaker=" << tieBreaker
                                                                       << ", bRtcpMux=" << rtcpMux << ", cType="
                                                                       << cType);
    m_remoteIce = ice;
    m_tieBreaker = tieBreaker;
    m_connectionType = cType;
    m_bControlling = controlling;
    m_checkStartMs = Now();
    if (rtcpMux) m_bRtcpMux = true;
    if (m_bIceEnable) m_remoteDefault = remote;

    // A reconnect to the same peer keeps a keyed session: the keys do not depend on the path, and
    // the peer, which did not reconnect, would never start a handshake again.
    const bool keepKeys = std::exchange(m_keepDtlsKeys, false) && m_dtls &&
                          CmDtls_GetState(m_dtls) == CM_DTLS_STATE_CONNECTED;
    if (IsDtlsSRTPEnabled() && !keepKeys) {
        if (!m_dtls) {
            RecreateDtls();
        } else {
            CmDtls_Restart(m_dtls);
            m_bDtlsFailureReported = false;
        }
        if (m_bHasRemoteDtls && m_dtls)
            CmDtls_SetRemoteFingerPrint(m_dtls, m_remoteHash.c_str(), m_remoteFingerprint);
        else if (!m_bHasRemoteDtls)
            ICE_ERROR("CIceConnector::SetRemoteCandidates, dtls has no data");
        ReplayEarlyDtls();
    }

    if (ice.empty() || !m_bIceEnable) {
        if (m_bIceEnable && ice.empty()) m_bIceRejected = true;
        m_timers->Cancel(IceTimer::Fallback);
        // With RTCP on the same port, a stranger's first packet has already made the path: the
        // peer's own connect below makes it again, and the line swaps to it.
        if (DropStrangePlainTransports(remote, m_bRtcpMux)) m_bIceCompleted = false;
        if (m_Transports[0]) {
            m_remotePlain = remote;
            ICE_INFO("CIceConnector::SetRemoteCandidates, need callback if rtp channel is already there.");
            // The peer's packets opened the path before its description came: that is the path.
            m_bIceCompleted = true;
            m_timers->Schedule(IceTimer::KeepAlive, IsSipCall() ? 20000 : 1000, 0);
            if (m_dtls) {
                ICE_INFO("CIceConnector::OnConnectIndication, start dtls connect - 3");
                CheckDtlsState();
            }
            if (m_sink) m_sink->OnIceComplete(0, m_Transports, m_Transports[1] ? 2 : 1, ZynIceOrigin_Plain, false);
            m_rtcpSeedsLeft = 5;
            m_timers->Schedule(IceTimer::RtcpSeed, 100, 5);
            return ZYN_S_OK;
        }
        return ConnectRemote(remote, m_policy & ZynConnectionPolicy_TCP ? 1u : 0u, m_bRtcpMux);
    }
    if (!m_iceInst) {
        CM_ASSERT_REPORT("m_iceInst != NULL");
        return CM_ERROR_NULL_POINTER;
    }
    pruneLocalCandidates();
    return ResolveHostnames(false);
}

template <class P>
ZynResult CIceConnectorT<P>::ResolveHostnames(bool)
{
    // Names among the remote candidates are looked up first; the checks start when no name is
    // pending. A name that cannot be looked up stays, and StartConnectivityCheck skips it. On an
    // IPv6-only network IPv4 addresses are reached through the NAT64 prefix that the AAAA answer
    // for ipv4only.arpa. shows.
    sdp::ice_caps* caps = m_remoteIce.get_if();
    const uint32_t generation = ++m_resolveGeneration;
    const bool pureIp6 = isPureIp6();
    std::vector<std::string> names;
    for (const sdp::ice_candidate& c : caps ? caps->candidates : std::vector<sdp::ice_candidate>{})
        if (!IsNumericAddress(c.address) && IsHostName(c.address) &&
            std::find(names.begin(), names.end(), c.address) == names.end())
            names.push_back(c.address);
    const bool needPrefix = pureIp6 && m_nat64PrefixLength < 0;
    m_namesPending = names.size() + (needPrefix ? 1 : 0);
    if (m_namesPending == 0) {
        if (pureIp6) TranslateIpv4Candidates();
        return StartConnectivityCheck(m_remoteIce, m_remoteDefault, m_bControlling);
    }
    ACmThread* thread = CCmThreadManager::Instance()->GetThread(m_threadType);
    auto landed = [this, generation]() {
        if (generation != m_resolveGeneration || m_namesPending == 0 || --m_namesPending > 0) return;
        if (isPureIp6()) TranslateIpv4Candidates();
        StartConnectivityCheck(m_remoteIce, m_remoteDefault, m_bControlling);
    };
    if (needPrefix) {
        CCmInetAddr probe;
        probe.SetUnresolved(CM_NAT64_DISCOVERY_NAME, 0, AF_INET6);
        CDNSResolverManager::Instance()->resolve(
            probe, this,
            [this, generation, landed](const CCmInetAddr& answer) {
                if (generation != m_resolveGeneration) return;
                if (answer.IsResolved() && CmFindNat64Prefix({answer}, m_nat64Prefix, m_nat64PrefixLength))
                    ICE_INFO("CIceConnector::ResolveHostnames, NAT64 prefix " << m_nat64Prefix.GetIpDisplayName() << "/"
                                                                              << m_nat64PrefixLength);
                else
                    ICE_WARN("CIceConnector::ResolveHostnames, dnsv6 resolve failure. name=" << CM_NAT64_DISCOVERY_NAME);
                landed();
            },
            thread, AF_INET6);
    }
    for (const std::string& name : names) {
        CCmInetAddr unresolved;
        const int family = pureIp6 ? AF_INET6 : AF_INET;
        unresolved.SetUnresolved(name.c_str(), 0, family);
        CDNSResolverManager::Instance()->resolve(
            unresolved, this,
            [this, generation, landed, name, family](const CCmInetAddr& answer) {
                if (generation != m_resolveGeneration) return;
                if (answer.IsResolved()) {
                    for (sdp::ice_candidate& c : m_remoteIce.get_data().candidates)
                        if (c.address == name) c.address = answer.GetIpDisplayName();
                } else if (family == AF_INET) {
                    ICE_WARN("[ICE] CIceConnector::ResolveHostnames, dnsv4 resolve failure. name=" << name);
                } else {
                    ICE_WARN("CIceConnector::ResolveHostnames, dnsv6 resolve failure. name=" << name);
                }
                landed();
            },
            thread, family);
    }
    return ZYN_S_OK;
}

template <class P>
void CIceConnectorT<P>::TranslateIpv4Candidates()
{
    if (m_nat64PrefixLength < 0 || !m_remoteIce.is_set()) return;
    for (sdp::ice_candidate& c : m_remoteIce.get_data().candidates) {
        CCmInetAddr v4;
        if (v4.SetWithoutResolve(c.address.c_str(), c.port) != CM_OK || v4.IsIpv6()) continue;
        if (v4.XLAT46(m_nat64Prefix, m_nat64PrefixLength) == CM_OK) c.address = v4.GetIpDisplayName();
    }
}

template <class P>
void CIceConnectorT<P>::pruneLocalCandidates()
{
    if (!m_bRtcpMux || !m_iceInst) return;
    auto* stream = const_cast<gatewalk::ICE_MEDIA_STREAM*>(
        P::ICELIB_getLocalMediaStream(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx)));
    if (!stream) return;
    uint32_t out = 0;
    for (uint32_t i = 0; i < stream->numberOfCandidates && i < gatewalk::ICE_MAX_CANDIDATES; ++i) {
        if (i > 0 && stream->candidate[i].componentid != gatewalk::ICELIB_RTP_COMPONENT_ID) continue;
        if (out != i) stream->candidate[out] = stream->candidate[i];
        ++out;
    }
    for (uint32_t i = out; i < stream->numberOfCandidates && i < gatewalk::ICE_MAX_CANDIDATES; ++i)
        std::memset(static_cast<void*>(&stream->candidate[i]), 0, sizeof stream->candidate[i]);
    stream->numberOfCandidates = out;
}

template <class P>
ZynResult CIceConnectorT<P>::StartConnectivityCheck(const sdp::optional_value<sdp::ice_caps>& ice,
                                                    const CCmInetAddr& remote, bool controlling)
{
    if (!m_iceInst) {
        CM_ASSERT_REPORT("m_iceInst != nullptr");
        return CM_ERROR_INVALID_ARG;
    }
    if (ice.empty()) {
        CM_ASSERT_REPORT("ice.has_data()");
        return CM_ERROR_NULL_POINTER;
    }
    typename P::Instance* inst = m_iceInst.get();
    if (m_bCheckStarted) {
        if (!m_bIceCompleted) {
            ICE_INFO("CIceConnector::StartConnectivityCheck, stop on-going connectivity check.");
            P::ICELIB_Stop(inst);
        }
        // A fresh start keeps the local stream (its candidates and credentials) and the tie-breaker.
        const gatewalk::ICE_MEDIA_STREAM saved = inst->localIceMedia.mediaStream[m_mediaIdx];
        P::ICELIB_ReStart(inst, m_tieBreaker);
        inst->localIceMedia.mediaStream[m_mediaIdx] = saved;
        inst->localIceMedia.numberOfICEMediaLines = static_cast<uint32_t>(m_mediaIdx) + 1;
        m_bIceCompleted = false;
        m_notifyIceComplete = false;
        m_bIceAggressiveNotified = false;
    }
    if (IsSipCall()) ClearPendingRequests();

    const sdp::ice_caps& caps = ice.get_data();
    const int32_t remoteIdx = P::ICELIB_addRemoteMediaStream(inst, 0, caps.username.c_str(), caps.password.c_str(),
                                                             remote.GetPtr());
    if (remoteIdx < 0) ICE_WARN("CIceConnector::StartConnectivityCheck, the agent refused the remote media stream");
    const bool pureIp6 = isPureIp6();
    m_firstRemoteTcpPort = 0;
    for (const sdp::ice_candidate& c : caps.candidates) {
        if (m_bRtcpMux && c.component != gatewalk::ICELIB_RTP_COMPONENT_ID) continue;
        const gatewalk::ICE_TRANSPORT transport = GetTransportFromCandidate(c);
        if (m_sessionType == ZynSessionType_ScreenShare && m_connectionType == 1 && transport == gatewalk::ICE_TRANS_UDP) {
            ICE_WARN("CIceConnector::StartConnectivityCheck, skip udp candidate for normal share without rtx, port="
                     << c.port);
            continue;
        }
        if (!IsNumericAddress(c.address)) {
            ICE_INFO("CIceConnector::StartConnectivityCheck, one hostname is not resolved, addrLocal=" << c.address);
            continue;
        }
        if (pureIp6 && c.address.find(':') == std::string::npos) continue;
        if (c.port <= 9) {
            ICE_INFO("CIceConnector::StartConnectivityCheck, invalid port:" << c.port);
            continue;
        }
        if (!P::TakesTransport(transport)) continue;
        if (transport != gatewalk::ICE_TRANS_UDP && m_firstRemoteTcpPort == 0) m_firstRemoteTcpPort = c.port;
        if (remoteIdx >= 0)
            P::ICELIB_addRemoteCandidate(inst, static_cast<uint32_t>(remoteIdx), c.foundation.c_str(), c.component,
                                         c.priority, c.address.c_str(), c.port, transport,
                                         GetCandTypeFromString(c.type));
    }

    P::ICELIB_setCallbackConnecitivityChecksComplete(inst, &CIceConnectorT::OnConnectivityChecksComplete, this);
    P::ICELIB_setCallbackOutgoingBindingRequest(inst, &CIceConnectorT::OnOutgoingBindingRequest, this);
    P::ICELIB_setCallbackOutgoingBindingResponse(inst, &CIceConnectorT::OutgoingBindingResponse, this);
    P::ICELIB_setCallbackUpdateIceCheckList(inst, &CIceConnectorT::OnUpdateIceCheckList, this);
    P::ICELIB_setCallbackOutgoingCancelRequest(inst, &CIceConnectorT::CancelBindRequest, this);
    P::ICELIB_setCallbackKeepAlive(inst, &CIceConnectorT::OnSendKeepAlive, this);

    m_bCheckStarted = true;
    m_iceTickMs = Now();
    if (!P::ICELIB_Start(inst, controlling, m_tieBreaker)) {
        // A remote table the agent cannot use: no pair will ever be checked.
        m_bIceRejected = P::ICELIB_isUnsupportedByRemote(inst);
        ICE_WARN("CIceConnector::StartConnectivityCheck, the agent did not start, state="
                 << static_cast<int>(P::ICELIB_getState(inst)));
        ChecksComplete(controlling, true);
        return ZYN_S_OK;
    }
    m_timers->Schedule(IceTimer::IceTick, 10, 0);
    m_timers->Schedule(IceTimer::CheckSend, 50, 0);
    ReplayPendingRequests();
    return ZYN_S_OK;
}

template <class P>
void CIceConnectorT<P>::ReplayPendingRequests()
{
    // Transports that came up before the checks began get what was waiting for them.
    for (auto& context : m_contexts) {
        bool failed = false;
        if (context->stunDataLength) {
            CheckSendUDP(context.get(), failed);
            CheckSendTCP(context.get(), failed);
        }
    }
    auto pending = std::move(m_pendingRequests);
    m_pendingRequests.clear();
    for (PendingRequest& r : pending) {
        if (CIceConnectionContext* context = FindContextByTransport(r.transport))
            HandleStun(r.bytes.data(), r.bytes.size(), r.transport, context);
        r.transport->ReleaseReference();
    }
}

template <class P>
void CIceConnectorT<P>::ClearPendingRequests()
{
    for (auto* list : {&m_pendingRequests, &m_earlyDtls}) {
        for (PendingRequest& r : *list) r.transport->ReleaseReference();
        list->clear();
    }
}

template <class P>
ZynResult CIceConnectorT<P>::StartConnectivityCheckForSipCall(const sdp::optional_value<sdp::ice_caps>& ice,
                                                              bool controlling, unsigned long tieBreaker)
{
    m_tieBreaker = tieBreaker;
    m_remoteIce = ice;
    m_bControlling = controlling;
    pruneLocalCandidates();
    m_timers->Cancel(IceTimer::KeepAlive);
    return StartConnectivityCheck(ice, m_remoteDefault, controlling);
}

template <class P>
void CIceConnectorT<P>::OnOutgoingBindingRequest(void* self, int proto, const sockaddr* source,
                                                 const sockaddr* destination, uint32_t, uint32_t, uint32_t component,
                                                 bool useRelay, const char* ufragPair, const char* password,
                                                 uint32_t priority, bool useCandidate, bool iceControlling,
                                                 uint64_t tieBreaker, gatewalk::StunMsgId id)
{
    auto* c = static_cast<CIceConnectorT*>(self);
    if (!useRelay && (c->m_policy & ZynConnectionPolicy_RelayOnly)) return;  // the check fails by its time-out
    const CCmInetAddr local(source), remote(destination);
    CIceConnectionContext* context = c->FindConnectionContext(local, remote, true);
    if (!context) {
        CM_ASSERT_REPORT("context");
        return;
    }
    context->component = component;
    if (context->stunDataLength)
        MS_DETAIL_TRACE("CIceConnector::OnOutgoingBindingRequest, new bind request for existing connection, this="
                        << self);
    const uint32_t length =
        ice::EncodeCheck<P>(*c->m_txMessage, id, ufragPair, password, priority, useCandidate, iceControlling,
                            tieBreaker, context->stunData.data(), static_cast<uint32_t>(context->stunData.size()));
    if (length == 0) {
        MS_WARNING_TRACE("CIceConnector::OnOutgoingBindingRequest, the check cannot be encoded, this=" << self);
        return;
    }
    context->stunDataLength = length;
    context->sendCount = 0;
    context->lastSend = c->Now();
    if (c->m_checkSent.size() >= 256) c->m_checkSent.pop_front();
    c->m_checkSent.push_back(SentRequest{id, context, password ? password : "", c->Now(), 0, 0});
    if (context->checkListIndex < 0)
        context->checkListIndex =
            c->m_checkListInfo.createCheckListPair(local, remote, proto == 6 ? "tcp" : "udp");
    c->m_checkListInfo.updateCheckListPair(context->checkListIndex, "inprogress");
    if (useRelay) {
        // A relayed check: the peer's address needs a permission at the server first.
        for (const auto& t : c->m_turnContexts) {
            if (t->relayAddr != local) continue;
            context->turnAllocation = t;
            context->turnRelay = t.get();
            c->EnsurePermission(t.get(), remote);
        }
    }
    if (!context->pTransport && !context->pTransportTCP && !context->pConnector)
        c->Connect(context, proto == 6 ? CM_CONNECTION_TYPE_TCP_FRAMED : CM_CONNECTION_TYPE_UDP, "check");
    bool failed = false;
    const uint32_t sent = c->CheckSendUDP(context, failed) + c->CheckSendTCP(context, failed);
    (void)sent;
}

template <class P>
void CIceConnectorT<P>::UpdateCheckSend()
{
    const uint64_t now = Now();
    for (size_t i = 0; i < m_contexts.size(); ++i) {
        CIceConnectionContext* context = m_contexts[i].get();
        if (!context->stunDataLength || context->sendCount >= kRepeatCount) continue;
        if (now < context->lastSend + RepeatDelayMs(context->sendCount)) continue;
        ++context->sendCount;
        context->lastSend = now;
        bool failed = false;
        CheckSendUDP(context, failed);
        CheckSendTCP(context, failed);
        if (failed && context->pTransportTCP) {
            ICE_INFO("CIceConnector::OnTimer, ondisconnect triggered in checksendtcp.");
            return;
        }
    }
}

template <class P>
void CIceConnectorT<P>::CancelBindRequest(void* self, uint32_t, gatewalk::StunMsgId id)
{
    // The agent no longer waits for this check: its repeats stop.
    auto* c = static_cast<CIceConnectorT*>(self);
    for (auto& context : c->m_contexts) {
        if (context->stunDataLength < gatewalk::STUN_HEADER_SIZE) continue;
        if (std::memcmp(context->stunData.data() + 8, id.octet, sizeof id.octet) == 0) context->sendCount = kRepeatCount;
    }
}

template <class P>
void CIceConnectorT<P>::OutgoingBindingResponse(void* self, uint32_t, uint32_t, uint32_t component,
                                                const sockaddr* source, const sockaddr* destination,
                                                const sockaddr* mapped, uint16_t errorCode, gatewalk::StunMsgId id,
                                                bool, const char* password)
{
    auto* c = static_cast<CIceConnectorT*>(self);
    if (errorCode == 200 && (!mapped || !gatewalk::sockaddr_isSet(mapped))) {
        CM_ASSERT_REPORT("sockaddr_isSet(MappedAddress)");
        return;
    }
    CIceConnectionContext* context = c->FindConnectionContext(CCmInetAddr(source), CCmInetAddr(destination), true);
    if (!context) return;
    context->component = component;
    uint8_t bytes[kIceStunBufferSize];
    const uint32_t length = ice::EncodeAnswer<P>(*c->m_txMessage, id, errorCode, mapped, password, bytes, sizeof bytes);
    if (length == 0) return;
    if (!context->pTransport && !context->pTransportTCP && !context->pConnector) {
        c->Connect(context, CM_CONNECTION_TYPE_UDP, "answer");
        return;  // the peer repeats its check; the next answer finds the transport
    }
    if (c->SendOnContext(context, bytes, length) == CM_OK) c->m_stunSent += length;
}

template <class P>
void CIceConnectorT<P>::OnUpdateIceCheckList(void* self, bool)
{
    auto* c = static_cast<CIceConnectorT*>(self);
    const auto* list = P::ICELIB_getValidList(c->m_iceInst.get(), 0);
    if (!list) return;
    for (uint32_t i = 0; i < list->numberOfElements && i < gatewalk::ICELIB_MAX_PAIRS; ++i) {
        const auto& pair = list->pairs[i];
        const CCmInetAddr local(SendingBase(pair.localCandidate));
        const int index = c->m_checkListInfo.Find(local, CCmInetAddr(Sa(pair.remoteCandidate.connectionAddr)));
        c->m_checkListInfo.updateCheckListPair(index, "succeeded");
    }
}

template <class P>
void CIceConnectorT<P>::OnSendKeepAlive(void*, uint32_t, uint32_t, uint32_t)
{
    // The connector's own keep-alive (1 s after the conclusion) keeps the paths; the agent's is not
    // needed on top of it.
}

template <class P>
void CIceConnectorT<P>::OnConnectivityChecksComplete(void* self, uint32_t, bool isControlling, bool isFailed)
{
    static_cast<CIceConnectorT*>(self)->ChecksComplete(isControlling, isFailed);
}

template <class P>
void CIceConnectorT<P>::ChecksComplete(bool, bool isFailed)
{
    m_timers->Cancel(IceTimer::CheckSend);
    const uint64_t took = Now() - m_checkStartMs;
    ICE_INFO("[ICE] CIceConnector::OnConnectivityChecksComplete>>ICE connectivity check completes with "
             << (isFailed ? "failure" : "success") << " in " << took << "ms");
    typename P::Instance* inst = m_iceInst.get();
    if (isFailed) {
        ICE_INFO("[ICE] CIceConnector::OnConnectivityChecksComplete with failed, going to start StunTrace thread if no "
                 "instance is running.");
        if (m_bIceAggressiveNotified)
            ICE_INFO("[ICE] CIceConnector::OnConnectivityChecksComplete, aggressive success but normal normination "
                     "failed, we still need to increase the priority because server has received our packets.");
        m_timers->Cancel(IceTimer::IceTick);
        for (auto& context : m_contexts) context->sendCount = kRepeatCount;
        for (const auto& pair : m_checkListInfo.Pairs()) (void)pair;
        StartStunTrace(false);
        if (m_sink) {
            m_sink->OnIceComplete(CM_ERROR_NOT_FOUND, m_Transports, 0, ZynIceOrigin_Ice, false);
            m_sink->OnIceCheckListReady(ZynIceOrigin_Ice);
        }
        return;
    }

    const gatewalk::ICE_REMOTE_CANDIDATES* remotes =
        P::ICELIB_getActiveRemoteCandidates(inst, static_cast<uint32_t>(m_mediaIdx));
    bool changed = false;
    int count = 0;
    for (uint32_t i = 0; remotes && i < remotes->numberOfComponents && i < 2; ++i) {
        const gatewalk::ICE_CANDIDATE& remote = remotes->remoteCandidate[i];
        const gatewalk::ICE_CANDIDATE* local =
            P::ICELIB_getActiveCandidate(inst, static_cast<uint32_t>(m_mediaIdx), remote.componentid);
        if (!local) continue;
        CIceConnectionContext* context =
            FindConnectionContext(CCmInetAddr(SendingBase(*local)), CCmInetAddr(Sa(remote.connectionAddr)), false);
        if (!context) {
            CM_ASSERT_REPORT("context && i < ice::maxComponents");
            continue;
        }
        const int slot = remote.componentid == gatewalk::ICELIB_RTCP_COMPONENT_ID ? 1 : 0;
        ICmTransport* chosen = context->pTransport;
        if (chosen) {
            if (context->pTransportTCP && m_TransportsExtra[slot] != context->pTransportTCP) {
                if (m_TransportsExtra[slot]) m_TransportsExtra[slot]->ReleaseReference();
                m_TransportsExtra[slot] = context->pTransportTCP;
                m_TransportsExtra[slot]->AddReference();
            }
        } else if (context->pTransportTCP) {
            ICE_INFO("[ICE] CIceConnector::OnConnectivityChecksComplete, incoming connection only");
            chosen = context->pTransportTCP;
        }
        if (chosen && chosen != m_Transports[slot]) {
            if (m_Transports[slot]) {
                changed = true;
                m_Transports[slot]->ReleaseReference();
            }
            m_Transports[slot] = chosen;
            chosen->AddReference();
        }
        if (chosen) ++count;
        // The winning check is the model of the keep-alive requests.
        if (context->stunDataLength) {
            if (!m_keepAliveSlot[slot]) m_keepAliveSlot[slot] = std::make_unique<StunMessage>();
            if (!P::stunlib_DecodeMessage(context->stunData.data(), context->stunDataLength, m_keepAliveSlot[slot].get(),
                                          nullptr, nullptr))
                m_keepAliveSlot[slot].reset();
        }
        context->sendCount = kRepeatCount;
        if (local->type == gatewalk::ICE_CAND_TYPE_PRFLX) m_peerReflexiveIp = CCmInetAddr(Sa(local->connectionAddr)).GetIpDisplayName();
        m_checkListInfo.updateCheckListPair(context->checkListIndex, "succeeded");
        // A relayed pair gets a channel: four bytes of framing instead of thirty-six.
        if (context->turnRelay) {
            for (const auto& t : m_turnContexts) {
                if (t.get() != context->turnRelay || t->channelAsked || !t->inst) continue;
                t->channelAsked = true;
                P::TurnClient_StartChannelBindReq(t->inst, gatewalk::stunlib_createRandomTurnChanNum(),
                                                  context->remote.GetPtr());
            }
        }
    }
    (void)changed;
    m_bIceCompleted = true;
    m_timers->Cancel(IceTimer::IceTick);
    // A new path: the keep-alive answers learn its mapped ports afresh.
    m_keepAliveMappedPort[0] = m_keepAliveMappedPort[1] = 0;
    m_keepAliveSent.clear();
    const int dtlsState = CheckDtlsState();

    if (m_sink) {
        if (!IsDtlsSRTPEnabled()) {
            if (IsSipCall())
                m_sink->UpdateIceMetricsForSipCall(0, m_Transports, 2);
            else
                m_sink->OnIceComplete(0, m_Transports, count, ZynIceOrigin_Ice, m_bIceAggressiveNotified);
            m_sink->OnIceCheckListReady(ZynIceOrigin_Ice);
        } else if (m_bIceAggressiveNotified) {
            m_sink->OnIceComplete(0, m_Transports, count, ZynIceOrigin_Ice, true);
        } else if (dtlsState == CM_DTLS_STATE_CONNECTED) {
            m_sink->OnIceComplete(0, m_Transports, count, ZynIceOrigin_Ice, false);
        } else {
            m_notifyIceComplete = true;  // told when DTLS has keyed SRTP
        }
    }
    m_ulLastReceived = Now();
    m_timers->Schedule(IceTimer::KeepAlive, IsSipCall() ? 20000 : 1000, 0);
    m_timers->Schedule(IceTimer::RttSummary, 8000, 1);

    // Only the winners and the relays' own pairs stay: TURN keeps refreshing its allocation.
    for (size_t i = 0; i < m_contexts.size();) {
        CIceConnectionContext* context = m_contexts[i].get();
        const bool kept = (context->pTransport && (context->pTransport == m_Transports[0] || context->pTransport == m_Transports[1] ||
                                                   context->pTransport == m_TransportsExtra[0] ||
                                                   context->pTransport == m_TransportsExtra[1])) ||
                          (context->pTransportTCP && (context->pTransportTCP == m_Transports[0] ||
                                                      context->pTransportTCP == m_Transports[1] ||
                                                      context->pTransportTCP == m_TransportsExtra[0] ||
                                                      context->pTransportTCP == m_TransportsExtra[1]));
        if (kept) {
            ++i;
            continue;
        }
        if (context->isServer && context->turnAllocation) {
            ICE_DETAIL("CIceConnector::OnConnectivityChecksComplete, This is a TURN transport, Don't disconnect TURN "
                       "transports. We need send TURN refresh request in the middle of a call.");
            ++i;
            continue;
        }
        ICE_DETAIL("Release pTransport:" << static_cast<void*>(context->pTransport)
                                         << ", pTransportTCP:" << static_cast<void*>(context->pTransportTCP));
        DeleteContext(context);
    }
    ICE_INFO("CIceConnector::OnConnectivityChecksComplete with succeeded, going to start StunTrace thread if no "
             "instance is running.");
    StartStunTrace(true);
}

template <class P>
void CIceConnectorT<P>::StartStunTrace(bool iceSucceeded)
{
    // The route to the first server, measured once per process at a time: it tells, when a call
    // fails, how far its packets got.
    if (!m_globalConfig || m_globalConfig->getICEServerNum() <= 0) return;
    tagICEServer server{};
    if (!ZYN_SUCCEEDED(m_globalConfig->getICEServerAtIndex(0, server))) return;
    server.host[sizeof server.host - 1] = '\0';
    StunTraceRequest request;
    request.serverHost = server.host;
    request.serverPort = server.port;
    request.callId = m_callId;
    request.iceSucceeded = iceSucceeded;
    request.portMin = m_portMin;
    request.portMax = m_portMax;
    if (!m_Candidates.empty()) {
        request.hasLocal = true;
        request.localAddr = m_Candidates.front().rtpAddress;
        request.localAddr.SetPort(0);
    }
    CStunTrace::GetInstance()->Start(request);
}

template <class P>
bool CIceConnectorT<P>::DropStrangePlainTransports(const CCmInetAddr& remote, bool rtcpMux)
{
    // Before the description named the peer, the ports took whoever sent first. A sender that is
    // not the peer (most often one still sending from an earlier call that had these ports) must
    // not become the path: media would go to it and never reach the peer.
    if (remote.GetPort() == 0 || !m_bEarlyPlainPath) return false;  // nothing to hold to, or nothing came early
    m_bEarlyPlainPath = false;
    const bool pathDropped = m_Transports[0] && m_Transports[0]->GetPeerAddr() != remote;
    for (ICmTransport** set : {m_Transports, m_TransportsExtra}) {
        for (int i = 0; i < 2; ++i) {
            if (!set[i]) continue;
            CCmInetAddr expected = remote;
            expected.SetPort(static_cast<uint16_t>(remote.GetPort() + (rtcpMux ? 0 : i)));
            if (set[i]->GetPeerAddr() == expected) continue;
            ICE_WARN("CIceConnector::SetRemoteCandidates, early packets came from "
                     << set[i]->GetPeerAddr().ToString() << ", not from the peer at " << expected.ToString()
                     << ": that path is dropped");
            set[i]->Disconnect(CM_OK);
            set[i]->ReleaseReference();
            set[i] = nullptr;
        }
    }
    for (int i = 0; i < 2; ++i) {
        // A right transport left only in the spare slot takes the empty main one.
        if (!m_Transports[i] && m_TransportsExtra[i]) std::swap(m_Transports[i], m_TransportsExtra[i]);
    }
    return pathDropped;
}

template <class P>
ZynResult CIceConnectorT<P>::ConnectRemote(const CCmInetAddr& addr, unsigned int transportFlags, bool rtcpMux)
{
    if (DropStrangePlainTransports(addr, rtcpMux || m_bRtcpMux)) m_bIceCompleted = false;
    if (!IsSipCall() && m_bIceCompleted) {
        ICE_INFO("[ICE] CIceConnector::ConnectRemote. This is not a sip call and m_bIceCompleted is true, ignore "
                 "ConnectRemote");
        return ZYN_S_OK;
    }
    if (rtcpMux) m_bRtcpMux = true;
    m_remotePlain = addr;
    m_timers->Schedule(IceTimer::Fallback, 10000, 1);
    if (!(transportFlags & 1)) {
        for (int i = 0; i < (m_bRtcpMux ? 1 : 2); ++i) {
            CCmInetAddr peer = addr;
            peer.SetPort(static_cast<uint16_t>(addr.GetPort() + i));
            ICmAcceptor* acceptor = m_plainAcceptors[i] ? m_plainAcceptors[i] : m_plainAcceptors[0];
            if (!acceptor) {
                ICE_WARN("CIceConnector::ConnectRemote, no candidate for " << peer.GetPort());
                continue;
            }
            if (m_pNonIceConnector[i]) {
                ICE_WARN("CIceConnector::ConnectRemote, m_pNonIceConnector[" << i << "]"
                                                                            << " != NULL and overwritten - memory leak");
                m_pNonIceConnector[i]->CancelConnect();
                m_pNonIceConnector[i]->ReleaseReference();
                m_pNonIceConnector[i] = nullptr;
            }
            if (acceptor->CreateConnector(m_pNonIceConnector[i]) == CM_OK)
                m_pNonIceConnector[i]->AsycConnect(this, peer);
        }
        return ZYN_S_OK;
    }
    if (m_listenKind != 1)
        ICE_WARN("CIceConnector::ConnectRemote, peer doesn't support ice, but local doesn't listen in both way.");
    const CmResult rv = CCmConnectionManager::Instance()->CreateConnectionClient(
        CM_CONNECTION_TYPE_TCP | CM_CONNECTION_OPTION_LENGTH, m_pNonIceConnector[0], m_threadType);
    if (!CM_SUCCEEDED(rv)) {
        CM_ASSERT_REPORT("CM_SUCCEEDED(rv)");
        return rv;
    }
    return m_pNonIceConnector[0]->AsycConnect(this, addr, 10000, m_localRtp.GetPort() ? &m_localRtp : nullptr);
}

template <class P>
ZynResult CIceConnectorT<P>::ConnectRemoteForSipCall(const CCmInetAddr& addr, unsigned int transportFlags, bool rtcpMux)
{
    const bool differs = addr != m_remotePlain;
    m_remotePlain = addr;
    if (m_bIceCompleted && m_Transports[0] && differs) {
        ICE_INFO("[ICE] CIceConnector::ConnectRemote. Switch to ICE media path");
        return ZYN_S_OK;
    }
    return ConnectRemote(addr, transportFlags, rtcpMux);
}

template <class P>
void CIceConnectorT<P>::FailPlainConnect()
{
    m_bIceCompleted = true;
    ICE_WARN("CIceConnector::OnTimer, connection fallback: no transport came up");
    if (m_sink) m_sink->OnIceComplete(CM_ERROR_NOT_FOUND, m_Transports, 0, ZynIceOrigin_Plain, false);
}

template <class P>
bool CIceConnectorT<P>::GetIceConclusion(std::string& rtpHost, int& rtpPort, std::string& rtcpHost, int& rtcpPort)
{
    if (!m_bIceEnable || !m_iceInst) {
        ICE_INFO("[ICE] CIceConnector::GetIceConclusion failed m_bIceEnabled is false");
        return false;
    }
    rtpHost.clear();
    rtcpHost.clear();
    rtpPort = rtcpPort = 0;
    const gatewalk::ICE_REMOTE_CANDIDATES* remotes =
        P::ICELIB_getActiveRemoteCandidates(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx));
    if (!remotes || remotes->numberOfComponents == 0) return false;
    for (uint32_t i = 0; i < remotes->numberOfComponents && i < 2; ++i) {
        const CCmInetAddr a(Sa(remotes->remoteCandidate[i].connectionAddr));
        if (remotes->remoteCandidate[i].componentid == gatewalk::ICELIB_RTCP_COMPONENT_ID) {
            rtcpHost = a.GetIpDisplayName();
            rtcpPort = a.GetPort();
        } else {
            rtpHost = a.GetIpDisplayName();
            rtpPort = a.GetPort();
        }
    }
    return true;
}

template <class P>
bool CIceConnectorT<P>::GetSelectedPath(CCmInetAddr& local, CCmInetAddr& remote, std::string& candidateType)
{
    candidateType.clear();
    if (!m_Transports[0] || !m_bIceCompleted) return false;
    local = m_Transports[0]->GetLocalAddr();
    remote = m_Transports[0]->GetPeerAddr();
    if (!m_bIceEnable || !m_iceInst) return true;
    const gatewalk::ICE_CANDIDATE* active =
        P::ICELIB_getActiveCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx), gatewalk::ICELIB_RTP_COMPONENT_ID);
    if (active) candidateType = P::ICE_candidateTypeToString(active->type);
    return true;
}

template <class P>
std::string CIceConnectorT<P>::BuildCandidateAttr(const gatewalk::ICE_CANDIDATE& c) const
{
    const CCmInetAddr a(Sa(c.connectionAddr));
    std::string text = std::string("candidate:") + c.foundation + " " + std::to_string(c.componentid) + " UDP " +
                       std::to_string(c.priority) + " " + a.GetIpDisplayName() + " " + std::to_string(a.GetPort()) +
                       " typ " + P::ICE_candidateTypeToString(c.type);
    if (gatewalk::sockaddr_isSet(Sa(c.relAddr))) {
        const CCmInetAddr r(Sa(c.relAddr));
        text += " raddr " + r.GetIpDisplayName() + " rport " + std::to_string(r.GetPort());
    }
    return text;
}

template <class P>
bool CIceConnectorT<P>::GetConcludedCandidates(std::string& ufrag, std::string& pwd, std::list<std::string>& local,
                                               std::string& remote)
{
    local.clear();
    remote.clear();
    ufrag = m_ufrag;
    pwd = m_password;
    if (!m_iceInst) return false;
    const gatewalk::ICE_REMOTE_CANDIDATES* remotes =
        P::ICELIB_getActiveRemoteCandidates(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx));
    if (!remotes || remotes->numberOfComponents == 0 || !m_bIceCompleted) {
        ICE_INFO("get active candidate failed, and then fake selected candidates!!!");
        GetFakeSelectedCandidates(local, remote);
        return true;
    }
    remote = "a=remote-candidates:";
    for (uint32_t i = 0; i < remotes->numberOfComponents && i < 2; ++i) {
        const gatewalk::ICE_CANDIDATE& r = remotes->remoteCandidate[i];
        if (const gatewalk::ICE_CANDIDATE* l =
                P::ICELIB_getActiveCandidate(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx), r.componentid))
            local.push_back(BuildCandidateAttr(*l));
        const CCmInetAddr a(Sa(r.connectionAddr));
        remote += (i ? " " : "") + std::to_string(r.componentid) + " " + a.GetIpDisplayName() + " " +
                  std::to_string(a.GetPort());
    }
    return true;
}

template <class P>
void CIceConnectorT<P>::GetFakeSelectedCandidates(std::list<std::string>& local, std::string& remote)
{
    // An answer can always be printed: the first local candidates, and a remote that is nowhere.
    const gatewalk::ICE_MEDIA_STREAM* stream =
        m_iceInst ? P::ICELIB_getLocalMediaStream(m_iceInst.get(), static_cast<uint32_t>(m_mediaIdx)) : nullptr;
    bool v6 = false;
    uint32_t components = 0;
    for (uint32_t i = 0; stream && i < stream->numberOfCandidates && i < gatewalk::ICE_MAX_CANDIDATES; ++i) {
        const gatewalk::ICE_CANDIDATE& c = stream->candidate[i];
        const uint32_t bit = c.componentid == 2 ? 2u : 1u;
        if (components & bit) continue;
        components |= bit;
        v6 = v6 || c.connectionAddr.ss_family == AF_INET6;
        local.push_back(BuildCandidateAttr(c));
    }
    const char* none = v6 ? "::0" : "0.0.0.0";
    remote = std::string("a=remote-candidates:1 ") + none + " 0";
    if (components & 2u) remote += std::string(" 2 ") + none + " 0";
}

template class CIceConnectorT<ice::ZynProfile>;
template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
