// The allocation's state machine: one handler per state, the retransmission and refresh timers, and
// the results delivered to the owner. Results go out last in every handler, so that a callback may
// start the next request on a consistent instance.
#include <climits>
#include <cstring>
#include <type_traits>

#include "turn_internal.h"

namespace gatewalk::turn_detail {

namespace {

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

constexpr int kErrTryAlternate = 300;
constexpr int kErrUnauthorized = 401;
constexpr int kErrStaleNonce = 438;
constexpr int kErrQuotaReached = 486;

template <class Msg>
int ErrorCode(const Msg* m)
{
    // An error response without ERROR-CODE is malformed; 0 sends it down the "other error" paths.
    return m != nullptr && m->hasErrorCode ? m->errorCode.errorClass * 100 + m->errorCode.number : 0;
}

template <class Msg>
void StopAllTimers(Inst<Msg>* t)
{
    Logf(t->turnAllocateReq, TurnInfoCategory_Trace, "<TURNCLIENT:%d> StopAllTimers", t->id);
    t->TimerRetransmit = t->TimerRefreshAlloc = t->TimerRefreshChannel = t->TimerRefreshPermission =
        t->TimerStunKeepAlive = 0;
}

template <class Msg>
void SetState(Inst<Msg>* t, TURN_STATE next)
{
    if (next < TURN_STATE_Idle || next > TURN_STATE_WaitReleaseResp) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> SetNextState, Illegal State %d", t->id,
             static_cast<int>(next));
        return;
    }
    t->state = next;
    if (next == TURN_STATE_Idle) StopAllTimers(t);
}

template <class Msg>
void Deliver(Inst<Msg>* t, TurnResult_T result)
{
    TurnCallBackData_T& d = t->turnCbData;
    d.turnResult = result;
    d.relAddrIPv4 = t->relAddrIPv4;
    d.relAddrIPv6 = t->relAddrIPv6;
    d.srflxAddr = t->srflxAddr;
    d.activeTurnServerAddr = t->turnAllocateReq.serverAddr;
    if (t->turnAllocateReq.resultCallback) t->turnAllocateReq.resultCallback(t->turnAllocateReq.userCtx, &d);
}

template <class Msg>
void EndIdle(Inst<Msg>* t, TurnResult_T result)
{
    SetState(t, TURN_STATE_Idle);
    Deliver(t, result);
}

template <class Msg>
bool Undefined(Inst<Msg>* t, TURN_SIGNAL signal)
{
    Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> undefined signal %s in state %d", t->id,
         TurnSignalToStr(signal), static_cast<int>(t->state));
    return false;
}

template <class Msg>
int32_t RefreshAllocMs(uint32_t lifetimeSeconds)
{
    // Half the lifetime, in whole seconds; a lifetime of 1 gives 0 and no refresh.
    uint64_t ms = static_cast<uint64_t>(lifetimeSeconds / 2) * 1000u;
    return ms > INT32_MAX ? INT32_MAX : static_cast<int32_t>(ms);
}

// A request sent from Allocated. On an encoding failure the state stays and the owner hears of it.
template <class Msg>
bool StartFromAllocated(Inst<Msg>* t, bool (*send)(Inst<Msg>*), TURN_STATE next)
{
    t->staleNonceRetries = 0;
    if (!send(t)) {
        Deliver(t, TurnResult_InternalError);
        return false;
    }
    SetState(t, next);
    return true;
}

template <class Msg>
bool StartRelease(Inst<Msg>* t)
{
    t->staleNonceRetries = 0;
    if (!SendRefresh(t, 0)) {
        EndIdle(t, TurnResult_RelayReleaseFailed);
        return true;
    }
    SetState(t, TURN_STATE_WaitReleaseResp);
    return true;
}

// A 438: fresh nonce and the same request again, a bounded number of times. False when the answer is
// to be taken as a failure instead.
template <class Msg>
bool RetryStaleNonce(Inst<Msg>* t, const Msg* m, bool (*resend)(Inst<Msg>*), const char* noRealm,
                     const char* noNonce)
{
    if (m == nullptr || t->staleNonceRetries >= kMaxStaleNonceRetries) return false;
    if (!TakeRealmAndNonce(t, *m, noRealm, noNonce)) return false;
    ++t->staleNonceRetries;
    return resend(t);
}

template <class Msg>
bool ResendAllocate(Inst<Msg>* t)
{
    return SendAllocate(t);
}
template <class Msg>
bool ResendRefreshKeep(Inst<Msg>* t)
{
    return SendRefresh(t, t->lifetime);
}
template <class Msg>
bool ResendRefreshZero(Inst<Msg>* t)
{
    return SendRefresh(t, 0);
}

// ---- retransmission ------------------------------------------------------------------------------

template <class Msg>
void RetransmitFailed(Inst<Msg>* t)
{
    ++t->failures;
    Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> Retransmit %s failed after %d retries", t->id,
         stunlib_getMessageName(t->txMsg.msgHdr.type), static_cast<int>(t->retransmits));
    t->TimerRetransmit = 0;
    switch (t->state) {
    case TURN_STATE_WaitAllocRespNotAut:
    case TURN_STATE_WaitAllocResp:
        EndIdle(t, TurnResult_AllocFailNoAnswer);
        break;
    case TURN_STATE_WaitAllocRefreshResp:
        EndIdle(t, TurnResult_RefreshFailNoAnswer);
        break;
    case TURN_STATE_WaitReleaseResp:
        EndIdle(t, TurnResult_RelayReleaseFailed);
        break;
    case TURN_STATE_WaitChanBindResp:
        // The server may have dropped the binding: relay by indications until a new bind succeeds.
        t->channelBound = 0;
        t->TimerRefreshChannel = 0;
        SetState(t, TURN_STATE_Allocated);
        Deliver(t, TurnResult_ChanBindFailNoanswer);
        break;
    case TURN_STATE_WaitCreatePermResp:
        t->permissionsInstalled = 0;
        t->TimerRefreshPermission = 0;
        t->pendingChannelBind = 0;
        SetState(t, TURN_STATE_Allocated);
        Deliver(t, TurnResult_CreatePermissionNoAnswer);
        break;
    default:
        break;
    }
}

template <class Msg>
void OnTimerRetransmit(Inst<Msg>* t)
{
    bool allocating = t->state == TURN_STATE_WaitAllocRespNotAut || t->state == TURN_STATE_WaitAllocResp;
    uint32_t limit = allocating ? kAllocateRetransmitLimit : kOtherRetransmitLimit;
    if (t->retransmits < limit && kRetransmitTableMs[t->retransmits] != 0) {
        Resend(t);
        t->TimerRetransmit = kRetransmitTableMs[t->retransmits];
        ++t->retransmits;
        return;
    }
    RetransmitFailed(t);
}

// A refresh timer that fires while another request is in flight comes back soon after it.
template <class Msg>
bool Postpone(Inst<Msg>* t, TURN_SIGNAL signal)
{
    const TURN_STATE s = t->state;
    switch (signal) {
    case TURN_SIGNAL_TimerRefreshAlloc:
        if (s == TURN_STATE_WaitChanBindResp || s == TURN_STATE_WaitCreatePermResp) {
            t->TimerRefreshAlloc = kBusyRetryLongMs;
            return true;
        }
        return false;
    case TURN_SIGNAL_TimerRefreshChannel:
        if (s == TURN_STATE_WaitAllocRefreshResp || s == TURN_STATE_WaitCreatePermResp) {
            t->TimerRefreshChannel = kBusyRetryShortMs;
            return true;
        }
        return false;
    case TURN_SIGNAL_TimerRefreshPermission:
        if (s == TURN_STATE_WaitAllocRefreshResp) {
            t->TimerRefreshPermission = kBusyRetryLongMs;
            return true;
        }
        if (s == TURN_STATE_WaitChanBindResp) {
            t->TimerRefreshPermission = kBusyRetryShortMs;
            return true;
        }
        return false;
    case TURN_SIGNAL_TimerStunKeepAlive:
        // A request in flight keeps the NAT binding open as well.
        t->TimerStunKeepAlive = kKeepAliveMs;
        return true;
    default:
        return false;
    }
}

// ---- allocation ----------------------------------------------------------------------------------

template <class Msg>
bool Malformed(Inst<Msg>* t, const char* text)
{
    Logf(t->turnAllocateReq, TurnInfoCategory_Error, text, t->id);
    EndIdle(t, TurnResult_MalformedRespWaitAlloc);
    return true;
}

template <class Msg>
bool TakeRelay(Inst<Msg>* t, const Msg& m)
{
    const int family = t->turnAllocateReq.addressFamily;
    StunIPAddress relays[2];
    int count = 0;
    if constexpr (kZyn<Msg>) {
        if (m.hasXorRelayAddress) relays[count++] = m.xorRelayAddress;
    } else {
        if (m.hasXorRelayAddressIPv4) relays[count++] = m.xorRelayAddressIPv4;
        if (m.hasXorRelayAddressIPv6) relays[count++] = m.xorRelayAddressIPv6;
    }
    if (count == 0) {
        Malformed(t, "<TURNCLIENT:%d> Missing Xor RelayAddress AllocResp");
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const StunIPAddress& r = relays[i];
        bool wanted = (family == AF_INET && r.familyType == STUN_ADDR_IPv4Family) ||
                      (family == AF_INET6 && r.familyType == STUN_ADDR_IPv6Family) ||
                      (family != AF_INET && family != AF_INET6);
        if (!wanted) {
            char text[64];
            Logf(t->turnAllocateReq, TurnInfoCategory_Error,
                 "<TURNCLIENT:%d> Alocated relay has incorrect address family %s (%d:%d)", t->id,
                 stunlib_formatIPAddress(&r, text, sizeof text), family, r.familyType);
            EndIdle(t, TurnResult_MalformedRespWaitAlloc);
            return false;
        }
        ToSockaddr(r, r.familyType == STUN_ADDR_IPv4Family ? &t->relAddrIPv4 : &t->relAddrIPv6);
    }
    return true;
}

template <class Msg>
bool OnAllocateSuccess(Inst<Msg>* t, Msg* m, const uint8_t* buffer)
{
    if (t->authenticated &&
        (buffer == nullptr || !stunlib_checkIntegrity(buffer, m->msgHdr.length + STUN_HEADER_SIZE, m, t->key,
                                                      sizeof t->key))) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error,
             "<TURNCLIENT:%d>  HandleStunAllocate(), failed message integrity", t->id);
        EndIdle(t, TurnResult_AllocFail);
        return true;
    }
    std::memset(&t->relAddrIPv4, 0, sizeof t->relAddrIPv4);
    std::memset(&t->relAddrIPv6, 0, sizeof t->relAddrIPv6);
    if (!TakeRelay(t, *m)) return true;
    if (!m->hasXorMappedAddress) return Malformed(t, "<TURNCLIENT:%d> Missing XorMappedAddress AllocResp");
    if (!m->hasLifetime) return Malformed(t, "<TURNCLIENT:%d> Missing Lifetime in AllocResp");
    ToSockaddr(m->xorMappedAddress, &t->srflxAddr);
    t->lifetime = m->lifetime;
    if (m->hasReservationToken) t->reservationToken = m->reservationToken;
    t->TimerRetransmit = 0;
    t->TimerRefreshAlloc = RefreshAllocMs<Msg>(t->lifetime);
    t->TimerStunKeepAlive = kKeepAliveMs;
    SetState(t, TURN_STATE_Allocated);
    char relay[64], relay6[64], srflx[64], server[64];
    Logf(t->turnAllocateReq, TurnInfoCategory_Info,
         "<TURNCLIENT:%d> AllocResp Relay: %s  (%s) Srflx: %s lifetime %d sec from Server %s", t->id,
         AddrText(t->relAddrIPv4, relay), AddrText(t->relAddrIPv6, relay6), AddrText(t->srflxAddr, srflx),
         static_cast<int>(t->lifetime), AddrText(t->turnAllocateReq.serverAddr, server));
    Deliver(t, TurnResult_AllocOk);
    return true;
}

template <class Msg>
bool OnRedirect(Inst<Msg>* t, const Msg* m)
{
    if (!m->hasAlternateServer) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> Missing Alternative Server in AllocRespErr",
             t->id);
        EndIdle(t, TurnResult_AllocFail);
        return true;
    }
    sockaddr_storage alternate;
    // The owner's socket has the server's family; a server of the other family cannot be reached.
    if (!ToSockaddr(m->alternateServer, &alternate) ||
        alternate.ss_family != t->turnAllocateReq.serverAddr.ss_family || t->redirects >= kMaxRedirects) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error,
             "<TURNCLIENT:%d> Alternative Server %d not supported in AllocRespErr", t->id,
             static_cast<int>(m->alternateServer.familyType));
        EndIdle(t, TurnResult_AllocFail);
        return true;
    }
    ++t->redirects;
    t->turnAllocateReq.serverAddr = alternate;
    if constexpr (!kZyn<Msg>) {
        t->redirected = 1;
        t->redirectedServerAddr = alternate;
    }
    // Another server has its own realm and nonce: start over without credentials.
    t->authenticated = 0;
    t->staleNonceRetries = 0;
    if (!SendAllocate(t)) {
        EndIdle(t, TurnResult_InternalError);
        return true;
    }
    SetState(t, TURN_STATE_WaitAllocRespNotAut);
    return true;
}

template <class Msg>
bool OnAllocateError(Inst<Msg>* t, const Msg* m)
{
    const int code = ErrorCode(m);
    const bool firstStep = t->state == TURN_STATE_WaitAllocRespNotAut;
    if (code == kErrUnauthorized && firstStep) {
        if (!TakeRealmAndNonce(t, *m, "<TURNCLIENT:%d> No REALM in message!", "<TURNCLIENT:%d> No NONCE in message!")) {
            EndIdle(t, TurnResult_AllocFail);
            return true;
        }
        t->staleNonceRetries = 0;
        if (!SendAllocate(t)) {
            EndIdle(t, TurnResult_InternalError);
            return true;
        }
        SetState(t, TURN_STATE_WaitAllocResp);
        return true;
    }
    if (code == kErrStaleNonce && !firstStep) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Info, "<TURNCLIENT:%d> Stale Nonce %d", t->id, code);
        if (RetryStaleNonce(t, m, &ResendAllocate<Msg>, "<TURNCLIENT:%d> No REALM in message!",
                            "<TURNCLIENT:%d> No NONCE in message!")) {
            return true;
        }
        EndIdle(t, TurnResult_AllocFail);
        return true;
    }
    if (code == kErrTryAlternate) return OnRedirect(t, m);
    if (code == kErrQuotaReached) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> Allocation quota reached code %d", t->id,
             code);
        EndIdle(t, TurnResult_AllocFail);
        return true;
    }
    Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> Authorisation failed code %d", t->id, code);
    EndIdle(t, code == kErrUnauthorized ? TurnResult_AllocUnauthorised : TurnResult_AllocFail);
    return true;
}

// ---- states --------------------------------------------------------------------------------------

template <class Msg>
bool InIdle(Inst<Msg>* t, TURN_SIGNAL signal)
{
    if (signal != TURN_SIGNAL_AllocateReq) return Undefined(t, signal);
    t->authenticated = 0;
    t->staleNonceRetries = 0;
    if (!SendAllocate(t)) return false;
    SetState(t, TURN_STATE_WaitAllocRespNotAut);
    return true;
}

template <class Msg>
bool InWaitAlloc(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_AllocateResp: return OnAllocateSuccess(t, d.msg, d.buffer);
    case TURN_SIGNAL_AllocateRespError: return OnAllocateError(t, d.msg);
    case TURN_SIGNAL_TimerRetransmit: OnTimerRetransmit(t); return true;
    case TURN_SIGNAL_DeAllocate:
        // Nothing is allocated yet; a late answer finds the instance Idle and is ignored.
        SetState(t, TURN_STATE_Idle);
        return true;
    default: return Undefined(t, signal);
    }
}

template <class Msg>
bool InAllocated(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_CreatePermissionReq:
        t->permissions = *d.permissions;
        return StartFromAllocated(t, &SendCreatePermission<Msg>, TURN_STATE_WaitCreatePermResp);
    case TURN_SIGNAL_ChannelBindReq:
        t->channelBindInfo = *d.channel;
        return StartFromAllocated(t, &SendChannelBind<Msg>, TURN_STATE_WaitChanBindResp);
    case TURN_SIGNAL_TimerRefreshAlloc:
        return StartFromAllocated(t, &ResendRefreshKeep<Msg>, TURN_STATE_WaitAllocRefreshResp);
    case TURN_SIGNAL_TimerRefreshChannel:
        return t->channelBound && StartFromAllocated(t, &SendChannelBind<Msg>, TURN_STATE_WaitChanBindResp);
    case TURN_SIGNAL_TimerRefreshPermission:
        return t->permissionsInstalled &&
               StartFromAllocated(t, &SendCreatePermission<Msg>, TURN_STATE_WaitCreatePermResp);
    case TURN_SIGNAL_TimerStunKeepAlive:
        SendKeepAlive(t);
        t->TimerStunKeepAlive = kKeepAliveMs;
        return true;
    case TURN_SIGNAL_DeAllocate: return StartRelease(t);
    default: return Undefined(t, signal);
    }
}

template <class Msg>
void StartBufferedChannelBind(Inst<Msg>* t)
{
    if (!t->pendingChannelBind) return;
    t->pendingChannelBind = 0;
    t->channelBindInfo = t->pendingChannelBindInfo;
    char peer[64];
    Logf(t->turnAllocateReq, TurnInfoCategory_Info, "<TURNCLIENT:%d> ChannelBindReq (buffered) chan: %d Peer %s",
         t->id, t->channelBindInfo.channelNumber, AddrText(t->channelBindInfo.peerTrnspAddr, peer));
    t->staleNonceRetries = 0;
    if (SendChannelBind(t)) {
        SetState(t, TURN_STATE_WaitChanBindResp);
    }
}

template <class Msg>
bool InWaitCreatePerm(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_CreatePermissionResp:
        t->TimerRetransmit = 0;
        t->permissionsInstalled = 1;
        t->TimerRefreshPermission = kPermissionRefreshMs;
        SetState(t, TURN_STATE_Allocated);
        StartBufferedChannelBind(t);
        Deliver(t, TurnResult_CreatePermissionOk);
        return true;
    case TURN_SIGNAL_CreatePermissionRespError: {
        const int code = ErrorCode(d.msg);
        if (code == kErrStaleNonce && RetryStaleNonce(t, d.msg, &SendCreatePermission<Msg>,
                                                      "<TURNCLIENT:%d> No REALM in CreatePermissionRespError",
                                                      "<TURNCLIENT:%d> No NONCE in CreatePermissionRespError")) {
            return true;
        }
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> WaitCreatePermResp got ErrorCode %d", t->id,
             code);
        const bool wasRefresh = t->permissionsInstalled;
        t->TimerRetransmit = 0;
        t->permissionsInstalled = 0;
        t->TimerRefreshPermission = 0;
        SetState(t, TURN_STATE_Allocated);
        // A ChannelBind installs its own permission (RFC 5766, 11.2): the buffered one still goes.
        StartBufferedChannelBind(t);
        Deliver(t, code == kErrQuotaReached ? TurnResult_CreatePermissionQuotaReached
                   : wasRefresh             ? TurnResult_PermissionRefreshFail
                                            : TurnResult_CreatePermissionFail);
        return true;
    }
    case TURN_SIGNAL_ChannelBindReq: {
        t->pendingChannelBind = 1;
        t->pendingChannelBindInfo = *d.channel;
        char peer[64];
        Logf(t->turnAllocateReq, TurnInfoCategory_Info, "<TURNCLIENT:%d> Buffering ChannelBindReq chan: %d Peer %s",
             t->id, d.channel->channelNumber, AddrText(d.channel->peerTrnspAddr, peer));
        return true;
    }
    case TURN_SIGNAL_TimerRetransmit: OnTimerRetransmit(t); return true;
    case TURN_SIGNAL_DeAllocate: return StartRelease(t);
    default: return Postpone(t, signal) || Undefined(t, signal);
    }
}

template <class Msg>
bool InWaitChanBind(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_ChannelBindResp:
        t->TimerRetransmit = 0;
        t->channelBound = 1;
        t->TimerRefreshChannel = kChannelRefreshMs;
        SetState(t, TURN_STATE_Allocated);
        Deliver(t, TurnResult_ChanBindOk);
        return true;
    case TURN_SIGNAL_ChannelBindRespError: {
        const int code = ErrorCode(d.msg);
        if (code == kErrStaleNonce) {
            Logf(t->turnAllocateReq, TurnInfoCategory_Info, "<TURNCLIENT:%d> ChannelBind Refresh Stale Nonce %d",
                 t->id, code);
            if (RetryStaleNonce(t, d.msg, &SendChannelBind<Msg>, "<TURNCLIENT:%d> No REALM in ChannelBindRespError",
                                "<TURNCLIENT:%d> No NONCE in ChannelBindRespError")) {
                return true;
            }
        }
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d>  ChannelBind Refresh got ErrorCode %d",
             t->id, code);
        t->TimerRetransmit = 0;
        t->channelBound = 0;
        t->TimerRefreshChannel = 0;
        SetState(t, TURN_STATE_Allocated);
        Deliver(t, TurnResult_ChanBindFail);
        return true;
    }
    case TURN_SIGNAL_TimerRetransmit: OnTimerRetransmit(t); return true;
    case TURN_SIGNAL_DeAllocate: return StartRelease(t);
    default: return Postpone(t, signal) || Undefined(t, signal);
    }
}

template <class Msg>
bool InWaitRefresh(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_RefreshResp:
        t->TimerRetransmit = 0;
        if (d.msg->hasLifetime) t->lifetime = d.msg->lifetime;
        t->TimerRefreshAlloc = RefreshAllocMs<Msg>(t->lifetime);
        t->TimerStunKeepAlive = kKeepAliveMs;
        SetState(t, TURN_STATE_Allocated);
        return true;
    case TURN_SIGNAL_RefreshRespError: {
        const int code = ErrorCode(d.msg);
        if (code == kErrStaleNonce && RetryStaleNonce(t, d.msg, &ResendRefreshKeep<Msg>,
                                                      "<TURNCLIENT:%d> No REALM in RefreshRespError",
                                                      "<TURNCLIENT:%d> No NONCE in RefreshRespError")) {
            return true;
        }
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> Refresh failed code %d", t->id, code);
        EndIdle(t, TurnResult_RefreshFail);
        return true;
    }
    case TURN_SIGNAL_TimerRetransmit: OnTimerRetransmit(t); return true;
    case TURN_SIGNAL_DeAllocate: return StartRelease(t);
    default: return Postpone(t, signal) || Undefined(t, signal);
    }
}

template <class Msg>
bool InWaitRelease(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    switch (signal) {
    case TURN_SIGNAL_RefreshResp:
        EndIdle(t, TurnResult_RelayReleaseComplete);
        return true;
    case TURN_SIGNAL_RefreshRespError:
        if (ErrorCode(d.msg) == kErrStaleNonce) {
            Logf(t->turnAllocateReq, TurnInfoCategory_Info, "<TURNCLIENT:%d> %s Retransmit Refresh(0) Retry: %d",
                 t->id, TurnStateToStr(t->state), static_cast<int>(t->staleNonceRetries + 1));
            if (RetryStaleNonce(t, d.msg, &ResendRefreshZero<Msg>, "<TURNCLIENT:%d> No REALM in RefreshRespError",
                                "<TURNCLIENT:%d> No NONCE in RefreshRespError")) {
                return true;
            }
        }
        // Any other answer (437 Allocation Mismatch included) means nothing is left on the server.
        EndIdle(t, TurnResult_RelayReleaseComplete);
        return true;
    case TURN_SIGNAL_TimerRetransmit: OnTimerRetransmit(t); return true;
    case TURN_SIGNAL_TimerRefreshAlloc:
    case TURN_SIGNAL_TimerRefreshChannel:
    case TURN_SIGNAL_TimerRefreshPermission:
    case TURN_SIGNAL_TimerStunKeepAlive:
        return true;  // the allocation is going away
    default: return Undefined(t, signal);
    }
}

bool NeedsMessage(TURN_SIGNAL signal)
{
    switch (signal) {
    case TURN_SIGNAL_AllocateResp:
    case TURN_SIGNAL_AllocateRespError:
    case TURN_SIGNAL_CreatePermissionResp:
    case TURN_SIGNAL_CreatePermissionRespError:
    case TURN_SIGNAL_ChannelBindResp:
    case TURN_SIGNAL_ChannelBindRespError:
    case TURN_SIGNAL_RefreshResp:
    case TURN_SIGNAL_RefreshRespError:
        return true;
    default:
        return false;
    }
}

}  // namespace

template <class Msg>
bool Signal(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& d)
{
    // Responses come with their message, requests with their arguments; a signal given from outside
    // without them is out of place.
    if ((NeedsMessage(signal) && d.msg == nullptr) ||
        (signal == TURN_SIGNAL_CreatePermissionReq && d.permissions == nullptr) ||
        (signal == TURN_SIGNAL_ChannelBindReq && d.channel == nullptr)) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> undefned signal %s in state %d", t->id,
             TurnSignalToStr(signal), static_cast<int>(t->state));
        return false;
    }
    switch (t->state) {
    case TURN_STATE_Idle: return InIdle(t, signal);
    case TURN_STATE_WaitAllocRespNotAut:
    case TURN_STATE_WaitAllocResp: return InWaitAlloc(t, signal, d);
    case TURN_STATE_Allocated: return InAllocated(t, signal, d);
    case TURN_STATE_WaitAllocRefreshResp: return InWaitRefresh(t, signal, d);
    case TURN_STATE_WaitChanBindResp: return InWaitChanBind(t, signal, d);
    case TURN_STATE_WaitCreatePermResp: return InWaitCreatePerm(t, signal, d);
    case TURN_STATE_WaitReleaseResp: return InWaitRelease(t, signal, d);
    }
    return Undefined(t, signal);
}

template <class Msg>
void Tick(Inst<Msg>* t)
{
    struct Timer {
        int32_t Inst<Msg>::*timer;
        TURN_SIGNAL signal;
    };
    static constexpr Timer kOrder[] = {
        {&Inst<Msg>::TimerRetransmit, TURN_SIGNAL_TimerRetransmit},
        {&Inst<Msg>::TimerRefreshAlloc, TURN_SIGNAL_TimerRefreshAlloc},
        {&Inst<Msg>::TimerRefreshChannel, TURN_SIGNAL_TimerRefreshChannel},
        {&Inst<Msg>::TimerRefreshPermission, TURN_SIGNAL_TimerRefreshPermission},
        {&Inst<Msg>::TimerStunKeepAlive, TURN_SIGNAL_TimerStunKeepAlive},
    };
    const auto step = static_cast<int64_t>(t->timerResolutionMs);
    for (const Timer& entry : kOrder) {
        int32_t& timer = t->*entry.timer;
        if (timer <= 0) continue;
        int64_t left = timer - step;
        if (left >= 1) {
            timer = static_cast<int32_t>(left);
            continue;
        }
        timer = 0;
        Signal(t, entry.signal);
    }
}

template bool Signal<qlox_gatewalk::StunMessage>(Inst<qlox_gatewalk::StunMessage>*, TURN_SIGNAL,
                                                 const SignalData<qlox_gatewalk::StunMessage>&);
template bool Signal<zyn_gatewalk::StunMessage>(Inst<zyn_gatewalk::StunMessage>*, TURN_SIGNAL,
                                                const SignalData<zyn_gatewalk::StunMessage>&);
template void Tick<qlox_gatewalk::StunMessage>(Inst<qlox_gatewalk::StunMessage>*);
template void Tick<zyn_gatewalk::StunMessage>(Inst<zyn_gatewalk::StunMessage>*);

}  // namespace gatewalk::turn_detail
