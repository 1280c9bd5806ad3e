// The transaction state machine of the STUN client, written once for both profiles.
//
// A profile P supplies its record types and the steps that differ (how a request is built and resent,
// which result codes exist, whether copies are time-stamped): see stunclient_qlox.cpp and
// stunclient_zyn.cpp. Everything here runs on the caller's thread, synchronously.
#pragma once

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "sockaddr_util.h"
#include "stunclient_internal.h"
#include "stunlib_common.h"

namespace gatewalk::stunclient {

// What comes with a signal. Only the fields of the signal at hand are set.
template <class P>
struct Event {
    const typename P::Msg* message = nullptr;  // BindResp, BindRespError
    const sockaddr* source = nullptr;          // BindResp, BindRespError, ICMPResp
    uint32_t icmpType = 0;                     // ICMPResp
    uint32_t ttl = 0;                          // ICMPResp
    const typename P::Req* request = nullptr;  // BindReq
};

template <class P>
class Fsm {
public:
    using Client = typename P::Client;
    using Inst = typename P::Inst;
    using Msg = typename P::Msg;
    using Req = typename P::Req;
    using Result = typename P::Result;

    static bool Alloc(Client** client)
    {
        if (client == nullptr) return false;
        // One flat, zeroed allocation: no transaction allocates afterwards.
        auto* c = static_cast<Client*>(std::calloc(1, sizeof(Client)));
        *client = c;
        if (c == nullptr) return false;
        for (int i = 0; i < P::kSlots; ++i) {
            c->instances[i].inst = static_cast<uint32_t>(i);
            c->instances[i].client = c;
        }
        return true;
    }

    static void ClearStats(Client* c)
    {
        if (c == nullptr) return;
        ClearCounters(c->stats);
        for (Inst& in : c->instances) ClearCounters(in.stats);
    }

    static void DumpStats(Client* c, STUN_INFO_FUNC_PTR logPtr, void* userData)
    {
        if (c == nullptr) return;
        StunClientStats sum{};
        AddStats(sum, c->stats);
        for (const Inst& in : c->instances) AddStats(sum, in.stats);
        PrintStats(sum, logPtr, userData);
    }

    // Takes the first free slot and hands it the request. Without one the request is dropped.
    static void Start(Client* c, const Req& request)
    {
        Inst* in = nullptr;
        for (Inst& candidate : c->instances) {
            if (!candidate.inUse) {
                in = &candidate;
                break;
            }
        }
        if (in == nullptr) {
            StunPrint(c->logUserData, c->logFunc, StunInfoCategory_Error, "<STUNCLIENT> No free instances, sig: %s",
                      SignalName(Sig::BindReq));
            return;
        }
        in->inUse = 1;
        in->stats.InProgress = 1;
        Event<P> ev;
        ev.request = &request;
        Dispatch(*in, Sig::BindReq, ev);
    }

    static Inst* FindRunning(Client* c, const StunMsgId& id)
    {
        for (Inst& in : c->instances) {
            if (in.inUse && stunlib_transIdIsEqual(&P::Id(in), &id)) return &in;
        }
        return nullptr;
    }

    static void Tick(Client* c, int elapsedMs)
    {
        if (c == nullptr) return;
        if (elapsedMs < 0) elapsedMs = 0;
        if constexpr (P::kTimed) c->clockUs += static_cast<uint32_t>(elapsedMs) * 1000u;
        // Two passes: every running timer moves by the same amount first, so a transaction that a
        // callback starts during this tick is not charged for time that passed before it began.
        bool expired[P::kSlots] = {};
        for (int i = 0; i < P::kSlots; ++i) {
            Inst& in = c->instances[i];
            if (!in.inUse || in.timerRemainingMs == 0) continue;
            int rest = in.timerRemainingMs - elapsedMs;
            if (rest < 1) {
                in.timerRemainingMs = 0;
                expired[i] = true;
            } else {
                in.timerRemainingMs = rest;
            }
        }
        for (int i = 0; i < P::kSlots; ++i) {
            Inst& in = c->instances[i];
            // A callback of an earlier slot may have ended this one, or ended and restarted it.
            if (!expired[i] || !in.inUse || in.timerRemainingMs != 0 || in.state == STUN_STATE_Idle) continue;
            Dispatch(in, Sig::TimerRetransmit, Event<P>{});
        }
    }

    static void HandleResponse(Client* c, const Msg* message, const sockaddr* source)
    {
        if (c == nullptr || message == nullptr) return;
        Inst* in = FindRunning(c, message->msgHdr.id);
        if (in == nullptr) {
            StunPrint(c->logUserData, c->logFunc, StunInfoCategory_Info,
                      "<STUNCLIENT> no instance with transId, discarding, msgType %d\n ", message->msgHdr.type);
            return;
        }
        if constexpr (P::kTimed) {
            // The echoed counter says which copy is answered; its own send time gives the round trip.
            int index = message->hasTransCount ? message->transCount.reqCnt - 1 : static_cast<int>(in->retransmits);
            if (index >= 0 && index < P::kCopies) in->stop[index] = c->clockUs;
        }
        Sig sig = Sig::Unknown;
        if (message->msgHdr.type == STUN_MSG_BindResponseMsg) sig = Sig::BindResp;
        else if (message->msgHdr.type == STUN_MSG_BindErrorResponseMsg) sig = Sig::BindRespError;
        else if (message->msgHdr.type == STUN_MSG_BindRequestMsg) sig = Sig::BindReq;
        Event<P> ev;
        ev.message = message;
        ev.source = source;
        Dispatch(*in, sig, ev);
    }

    static int Cancel(Client* c, const StunMsgId& id)
    {
        if (c == nullptr) return -1;
        Inst* in = FindRunning(c, id);
        if (in == nullptr) return -1;
        Dispatch(*in, Sig::Cancel, Event<P>{});
        return static_cast<int>(in->inst);
    }

    static void Dispatch(Inst& in, Sig sig, const Event<P>& ev)
    {
        Log(in, StunInfoCategory_Trace, "<STUNCLIENT:%02d> IN <-- %s (state %s)", in.inst, SignalName(sig),
            StateName(in.state));
        switch (in.state) {
        case STUN_STATE_Idle: Idle(in, sig, ev); break;
        case STUN_STATE_WaitBindResp: WaitBindResp(in, sig, ev); break;
        case STUN_STATE_Cancelled: Cancelled(in, sig, ev); break;
        default:
            Log(in, StunInfoCategory_Error, "<STUNCLIENT:%02d> undefned state %d, sig %s", in.inst, in.state,
                SignalName(sig));
            break;
        }
    }

    static void Log(const Inst& in, StunInfoCategory_T category, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)))
    {
        va_list args;
        va_start(args, fmt);
        StunVPrint(in.client->logUserData, in.client->logFunc, category, fmt, args);
        va_end(args);
    }

private:
    static void Idle(Inst& in, Sig sig, const Event<P>& ev)
    {
        switch (sig) {
        case Sig::BindReq:
            if (ev.request != nullptr) Begin(in, *ev.request);
            break;
        case Sig::BindResp: ++in.stats.BindRespReceived_Idle; break;
        case Sig::DeAllocate:
        case Sig::Cancel: break;
        default: Undefined(in, sig); break;
        }
    }

    static void WaitBindResp(Inst& in, Sig sig, const Event<P>& ev)
    {
        switch (sig) {
        case Sig::BindResp:
            StopTimer(in);
            ++in.stats.BindRespReceived;
            Answered(in, ev);
            break;
        case Sig::BindRespError: {
            Result result = P::kBindFail;
            if (ev.message->hasErrorCode) {
                const StunAtrError& e = ev.message->errorCode;
                Log(in, StunInfoCategory_Info,
                    "<STUNCLIENT:%02d> errorCode,reserved:%d,errorClass:%d,number:%d,reason:%s", in.inst, e.reserved,
                    e.errorClass, e.number, e.reason);
                if (e.errorClass == 4 && e.number == 87) result = P::kRoleConflict;
            }
            ++in.stats.BindRespErrReceived;
            Finish(in, result, ev.source);
            break;
        }
        case Sig::TimerRetransmit: Retransmit(in); break;
        case Sig::ICMPResp:
            if constexpr (P::kTimed) {
                in.ICMPtype = ev.icmpType;
                in.request.ttl = static_cast<uint8_t>(ev.ttl);
                char text[64];
                sockaddr_storage src;
                CopyAddr(&src, ev.source);
                Log(in, StunInfoCategory_Info, "<STUNCLIENT:%02d> ICMPResp from src: %s", in.inst,
                    AddrText(src, text, sizeof text));
                ++in.stats.ICMPReceived;
                Finish(in, P::kICMPResp, ev.source);
            } else {
                Undefined(in, sig);
            }
            break;
        case Sig::DeAllocate:
            StopTimer(in);
            End(in);
            break;
        case Sig::Cancel: SetState(in, STUN_STATE_Cancelled); break;
        default: Undefined(in, sig); break;
        }
    }

    static void Cancelled(Inst& in, Sig sig, const Event<P>& ev)
    {
        switch (sig) {
        case Sig::BindResp:
            StopTimer(in);
            ++in.stats.BindRespReceived_Cancelled;
            Answered(in, ev);
            break;
        case Sig::BindRespError:
            // The owner no longer cares why; a role conflict is only acted on while it waits.
            ++in.stats.BindRespErrReceived;
            Finish(in, P::kBindFail, ev.source);
            break;
        case Sig::TimerRetransmit: {
            // Run the rest of the schedule silently: the slot must outlive any copy still in flight.
            const bool fixed = P::FixedTimer(in);
            const uint32_t limit = fixed ? 1u : static_cast<uint32_t>(kTimeoutListLength - 1);
            if (in.retransmits < limit && kTimeoutListMs[in.retransmits] != 0) {
                StartTimer(in, fixed ? kFixedTimerMs : kTimeoutListMs[in.retransmits]);
                ++in.retransmits;
            } else {
                Log(in, StunInfoCategory_Info, "<STUNCLIENT:%02d> Cancel complete", in.inst);
                Finish(in, P::kCancelComplete, nullptr);
            }
            break;
        }
        case Sig::DeAllocate:
            StopTimer(in);
            End(in);
            break;
        case Sig::Cancel: break;
        default: Undefined(in, sig); break;
        }
    }

    static void Begin(Inst& in, const Req& request)
    {
        // Keep what outlives a transaction; everything else starts from zero.
        const int state = in.state;
        const uint8_t inUse = in.inUse;
        const uint32_t index = in.inst;
        const StunClientStats stats = in.stats;
        Client* const client = in.client;
        std::memset(static_cast<void*>(&in), 0, sizeof in);
        in.state = state;
        in.inUse = inUse;
        in.inst = index;
        in.stats = stats;
        in.client = client;

        in.request = request;
        P::SendFirst(in);
        if constexpr (P::kTimed) in.start[0] = client->clockUs;
        ++in.stats.BindReqSent;
        in.retransmits = 0;
        StartTimer(in, P::FixedTimer(in) ? kFixedTimerMs : kTimeoutListMs[0]);
        SetState(in, STUN_STATE_WaitBindResp);
    }

    static void Retransmit(Inst& in)
    {
        char text[64];
        if constexpr (P::kTimed) {
            // Copy n+1 goes out after the wait of copy n; the list's last entry (0) means give up.
            if (!P::FixedTimer(in) && in.retransmits < static_cast<uint32_t>(P::kCopies - 1) &&
                kTimeoutListMs[in.retransmits] != 0) {
                Log(in, StunInfoCategory_Info, "<STUNCLIENT:%02d> Retrans %s Retry: %d to %s", in.inst,
                    stunlib_getMessageName(STUN_MSG_BindRequestMsg), in.retransmits + 1,
                    AddrText(in.request.serverAddr, text, sizeof text));
                ++in.retransmits;
                P::Resend(in);
                in.start[in.retransmits] = in.client->clockUs;
                StartTimer(in, kTimeoutListMs[in.retransmits]);
                ++in.stats.Retransmits;
                return;
            }
        } else {
            // The same bytes once more; the wait after copy n+1 is entry n of the list.
            if (in.retransmits < static_cast<uint32_t>(kTimeoutListLength - 1) && kTimeoutListMs[in.retransmits] != 0) {
                Log(in, StunInfoCategory_Info, "<STUNCLIENT:%02d> Retrans %s Retry: %d to %s", in.inst,
                    stunlib_getMessageName(STUN_MSG_BindRequestMsg), in.retransmits + 1,
                    AddrText(in.request.serverAddr, text, sizeof text));
                P::Resend(in);
                StartTimer(in, kTimeoutListMs[in.retransmits]);
                ++in.retransmits;
                ++in.stats.Retransmits;
                return;
            }
        }
        ++in.stats.Failures;
        Finish(in, P::kBindFailNoAnswer, nullptr, true);
    }

    // A success response, in WaitBindResp or Cancelled alike.
    static void Answered(Inst& in, const Event<P>& ev)
    {
        const Msg& m = *ev.message;
        if (m.hasXorMappedAddress) {
            ToSockaddr(m.xorMappedAddress, &in.rflxAddr);
            if constexpr (P::kTimed) {
                if (m.hasTransCount) {
                    in.respTransCnt = m.transCount.reqCnt;
                    in.reqTransCnt = m.transCount.respCnt;
                }
            }
            Finish(in, P::kBindOk, ev.source);
        } else {
            Log(in, StunInfoCategory_Error, "<STUNCLIENT:%02d> Missing XorMappedAddress BindResp", in.inst);
            Finish(in, P::kMalformedResp, ev.source);
        }
    }

    // Delivers the result, then frees the slot: a callback that starts a transaction gets another one.
    static void Finish(Inst& in, Result result, const sockaddr* source, bool lastCopyOnly = false)
    {
        typename P::CbData data;
        std::memset(static_cast<void*>(&data), 0, sizeof data);
        data.msgId = P::Id(in);
        data.stunResult = result;
        if (result == P::kBindOk) data.rflxAddr = in.rflxAddr;
        CopyAddr(&data.srcAddr, source);
        data.dstBaseAddr = in.request.baseAddr;
        if constexpr (P::kTimed) {
            data.rtt = lastCopyOnly ? in.client->clockUs - in.start[LastCopy(in)] : RoundTrip(in);
            data.respTransCnt = in.respTransCnt;
            data.reqTransCnt = in.reqTransCnt;
            data.retransmits = in.retransmits;
            data.ICMPtype = in.ICMPtype;
            data.ttl = in.request.ttl;
        }
        if (in.request.callback != nullptr) in.request.callback(in.request.userCtx, &data);
        End(in);
    }

    static uint32_t RoundTrip(const Inst& in)
    {
        const uint32_t r = in.respTransCnt;
        if (r >= 1 && r <= 8) return in.stop[r - 1] - in.start[r - 1];  // unsigned: wrap-around cancels
        return in.stop[LastCopy(in)] - in.start[0];
    }

    // A cancelled transaction counts one step past the copies it stamped while it runs out.
    static uint32_t LastCopy(const Inst& in)
    {
        return in.retransmits < static_cast<uint32_t>(P::kCopies) ? in.retransmits : P::kCopies - 1;
    }

    static void End(Inst& in)
    {
        SetState(in, STUN_STATE_Idle);
        in.timerRemainingMs = 0;
        in.inUse = 0;
        in.stats.InProgress = 0;
    }

    static void SetState(Inst& in, int state)
    {
        if (in.state == state) return;
        Log(in, StunInfoCategory_Trace, "<STUNCLIENT:%02d> State (%s -> %s)", in.inst, StateName(in.state),
            StateName(state));
        in.state = state;
    }

    static void StartTimer(Inst& in, int ms)
    {
        Log(in, StunInfoCategory_Trace, "<STUNCLIENT:%02d> StartTimer(%s, %dms)", in.inst,
            SignalName(Sig::TimerRetransmit), ms);
        in.timerRemainingMs = ms;
    }

    static void StopTimer(Inst& in)
    {
        Log(in, StunInfoCategory_Trace, "<STUNCLIENT:%02d> StopTimer(%s)", in.inst, SignalName(Sig::TimerRetransmit));
        in.timerRemainingMs = 0;
    }

    static void Undefined(Inst& in, Sig sig)
    {
        Log(in, StunInfoCategory_Error, "<STUNCLIENT:%02d> undefined signal %s in state %d", in.inst,
            SignalName(sig), in.state);
    }
};

}  // namespace gatewalk::stunclient
