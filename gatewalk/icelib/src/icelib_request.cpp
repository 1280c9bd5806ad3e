// Incoming connectivity checks: role conflicts, credentials, triggered checks and the answer.
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace gatewalk::icelib_detail {

template <class P>
const ICE_CANDIDATE* Agent<P>::FindCandidate(const ICE_CANDIDATE* table, uint32_t count, const struct sockaddr* address)
{
    for (uint32_t i = 0; i < count && i < ICE_MAX_CANDIDATES; ++i) {
        if (sockaddr_alike(Sa(table[i].connectionAddr), address)) return &table[i];
    }
    return nullptr;
}

template <class P>
typename Agent<P>::Ctrl* Agent<P>::FindStreamByAddress(Inst* inst, const struct sockaddr* address)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        const ICE_MEDIA_STREAM* local = LocalStreamOf(inst, ctrl);
        if (local != nullptr && FindCandidate(local->candidate, local->numberOfCandidates, address) != nullptr) return ctrl;
    }
    return nullptr;
}

template <class P>
bool Agent<P>::CompareUfragPair(const char* ufragPair, const CheckList* list)
{
    if (ufragPair == nullptr) return false;
    const char* colon = std::strchr(ufragPair, ':');
    if (colon == nullptr) return false;
    const size_t localLength = static_cast<size_t>(colon - ufragPair);
    return std::strlen(list->ufragLocal) == localLength && std::strncmp(ufragPair, list->ufragLocal, localLength) == 0 &&
           std::strcmp(colon + 1, list->ufragRemote) == 0;
}

template <class P>
void Agent<P>::SendResponse(Inst* inst, Ctrl* ctrl, uint32_t uv1, uint32_t uv2, uint32_t componentId,
                            const struct sockaddr* source, const struct sockaddr* destination,
                            const struct sockaddr* mapped, uint16_t errorCode, StunMsgId id, bool useRelay)
{
    if (inst->callbacks.outgoingBindingResponse == nullptr) return;
    inst->callbacks.outgoingBindingResponse(inst->callbacks.outgoingBindingResponseUserData, uv1, uv2, componentId,
                                            source, destination, mapped, errorCode, id, useRelay,
                                            ctrl->checkList.passwdLocal);
}

template <class P>
void Agent<P>::IncomingRequest(Inst* inst, uint32_t uv1, uint32_t uv2, const char* ufragPair, uint32_t peerPriority,
                               bool useCandidate, bool controlling, bool controlled, uint64_t tieBreaker, StunMsgId id,
                               const struct sockaddr* source, const struct sockaddr* destination, bool fromRelay,
                               const struct sockaddr* relayAddr, uint16_t componentId)
{
    char a[64], b[64];
    if (!inst->iceSupportVerified) {
        Log(inst, ICELIB_logWarning, "Binding request from %s before ICE started, dropped", AddrText(source, a));
        return;
    }
    if (source == nullptr || destination == nullptr) return;
    const struct sockaddr* localAddr = fromRelay && relayAddr != nullptr ? relayAddr : destination;
    if (inst->iceConfiguration.iceLite) {
        IncomingLite(inst, uv1, uv2, ufragPair, peerPriority, useCandidate, id, source, localAddr, fromRelay, componentId);
        return;
    }

    Ctrl* ctrl = FindStreamByAddress(inst, localAddr);
    if (ctrl == nullptr && inst->iceState == ICELIB_COMPLETED) {
        Log(inst, ICELIB_logInfo, "ICELIB_COMPLETED, cannot find destination, search it from local media,streamId:%d",
            -1);
        if constexpr (!kZyn<P>) {
            // An active TCP end's port is the system's choice: match its address only.
            for (uint32_t i = 0; i < inst->numberOfMediaStreams && ctrl == nullptr; ++i) {
                const ICE_MEDIA_STREAM* local = LocalStreamOf(inst, &inst->streamControllers[i]);
                for (uint32_t c = 0; local != nullptr && c < Count(local); ++c) {
                    const ICE_CANDIDATE& cand = local->candidate[c];
                    if (IsTcp(cand.transport) && sockaddr_sameAddr(Sa(cand.connectionAddr), localAddr)) {
                        ctrl = &inst->streamControllers[i];
                        break;
                    }
                }
            }
        }
    }
    if (ctrl == nullptr) {
        Log(inst, ICELIB_logWarning, "media stream not found!:destination:%s", AddrText(localAddr, a));
        return;
    }
    CheckList* list = &ctrl->checkList;

    if (inst->iceState == ICELIB_COMPLETED) {
        if (!CompareUfragPair(ufragPair, list)) {
            Log(inst, ICELIB_logWarning, "UfragPair mismatch! Received UfragPair was: '%s'", ufragPair ? ufragPair : "");
            SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 400, id, fromRelay);
            return;
        }
        Log(inst, ICELIB_logDebug, "ICELIB_COMPLETED, so just sending the response");
        SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 200, id, fromRelay);
        return;
    }

    if (controlling == controlled) {
        Log(inst, ICELIB_logWarning, "Both parties are controlled!");
    } else if ((inst->iceControlled && controlled) || (inst->iceControlling && controlling)) {
        // RFC 5245 7.2.1.1: the larger tie-breaker keeps (or takes) the controlling role.
        Log(inst, ICELIB_logInfo, "Role Conflicts,iceControlling:%d, iceControlled:%d", inst->iceControlling ? 1 : 0,
            inst->iceControlled ? 1 : 0);
        const bool peerWins = tieBreaker > inst->tieBreaker;
        bool answer487 = false;
        if (inst->iceControlled) {
            if (peerWins) {
                answer487 = true;
            } else {
                inst->iceControlling = true;
                inst->iceControlled = false;
                Log(inst, ICELIB_logInfo, "Changing role, iceControlling now: %d!", 1);
                RecomputeAllPriorities(inst);
            }
        } else if (peerWins) {
            if (!inst->roleHasSwapped) {
                inst->iceControlling = false;
                inst->iceControlled = true;
                inst->roleHasSwapped = true;
                Log(inst, ICELIB_logInfo, "Changing role, iceControlling now: %d!", 0);
                RecomputeAllPriorities(inst);
            }
        } else {
            answer487 = true;
        }
        if (answer487) {
            Log(inst, ICELIB_logInfo, "Role conflict. Send 487 role conflict bind error message");
            SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 487, id, fromRelay);
            return;
        }
    }

    if (!CompareUfragPair(ufragPair, list)) {
        Log(inst, ICELIB_logWarning, "UfragPair mismatch! Received UfragPair was: '%s'", ufragPair ? ufragPair : "");
        SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 400, id, fromRelay);
        return;
    }

    // ---- the request is good: learn from it (RFC 5245 7.2.1.3 and 7.2.1.4) ----
    const ICE_MEDIA_STREAM* localStream = LocalStreamOf(inst, ctrl);
    const ICE_MEDIA_STREAM* remoteStream = RemoteStreamOf(inst, ctrl);
    const ICE_CANDIDATE* local = FindCandidate(localStream->candidate, localStream->numberOfCandidates, localAddr);
    if (local == nullptr) {
        local = FindCandidate(ctrl->discoveredLocalCandidates, ctrl->numberOfDiscoveredLocalCandidates, localAddr);
    }
    const ICE_CANDIDATE* remote =
        remoteStream ? FindCandidate(remoteStream->candidate, remoteStream->numberOfCandidates, source) : nullptr;
    if (remote == nullptr) {
        remote = FindCandidate(ctrl->discoveredRemoteCandidates, ctrl->numberOfDiscoveredRemoteCandidates, source);
    }
    if (remote == nullptr) {
        if (!kZyn<P> && inst->iceConfiguration.dropRflx) {
            Log(inst, ICELIB_logInfo, "NOT making peer refelxive remote Candidate, since dropRflx is enabled");
        } else if (ctrl->numberOfDiscoveredRemoteCandidates >= ICE_MAX_CANDIDATES) {
            Log(inst, ICELIB_logWarning, "Discovered remote candidate list full!");
        } else {
            Log(inst, ICELIB_logInfo, "Making peer refelxive remote Candidate");
            ICE_CANDIDATE* c = &ctrl->discoveredRemoteCandidates[ctrl->numberOfDiscoveredRemoteCandidates++];
            std::memset(static_cast<void*>(c), 0, sizeof *c);
            const ICE_TRANSPORT transport = local != nullptr ? local->transport : ICE_TRANS_UDP;
            Foundation(c->foundation, ICE_CAND_TYPE_PRFLX, transport, sizeof c->foundation);
            c->componentid = local != nullptr ? local->componentid : componentId;
            c->priority = peerPriority;
            sockaddr_copy(Sa(c->connectionAddr), source);
            c->transport = transport;
            c->type = ICE_CAND_TYPE_PRFLX;
            remote = c;
        }
    }
    const uint32_t compId = local != nullptr ? local->componentid : componentId;
    if (local == nullptr || remote == nullptr) {
        Log(inst, ICELIB_logWarning, local == nullptr ? "No Local Candidates found for trigered checks"
                                                      : "No Remote Candidates found for trigered checks");
        SendResponse(inst, ctrl, uv1, uv2, compId, localAddr, source, source, 200, id, fromRelay);
        return;
    }

    Pair* pair = FindPair(list, local, remote);
    if (pair != nullptr) {
        if (useCandidate) {
            pair->triggeredUseCandidate = true;
            if (pair->pairState != ICELIB_PAIR_INPROGRESS && pair->pairState != ICELIB_PAIR_SUCCEEDED) {
                Log(inst, ICELIB_logInfo, "Not ready to send response at this time. Hoping the remote side will retransmit");
                return;
            }
            Pair* valid = FindValidPairReferring(ctrl, pair->pairId);
            if (valid == nullptr) {
                // Nominated once its own check succeeds; the peer's retransmission is answered then.
                pair->nominatedPair = true;
                return;
            }
            valid->nominatedPair = true;
            NotifyCheckListUpdate(inst, true);
            if (pair->pairState == ICELIB_PAIR_INPROGRESS) {
                Log(inst, ICELIB_logInfo, "TODO:7.2.1.5 Pair is in-progress, but still accepted!!!!");
            }
        } else {
            switch (pair->pairState) {
            case ICELIB_PAIR_WAITING:
            case ICELIB_PAIR_FROZEN:
                Log(inst, ICELIB_logDebug, "7.2.1.4 Waiting or Frozen");
                pair->pairState = ICELIB_PAIR_WAITING;
                Trigger(inst, ctrl, pair);
                break;
            case ICELIB_PAIR_INPROGRESS:
                Log(inst, ICELIB_logDebug, "7.2.1.4 In Progress");
                CancelTransactions(inst, pair, false);
                pair->pairState = ICELIB_PAIR_WAITING;
                Trigger(inst, ctrl, pair);
                break;
            case ICELIB_PAIR_FAILED:
                Log(inst, ICELIB_logDebug, "7.2.1.4 Failed");
                pair->pairState = ICELIB_PAIR_WAITING;
                Trigger(inst, ctrl, pair);
                break;
            case ICELIB_PAIR_SUCCEEDED:
                Log(inst, ICELIB_logDebug, "7.2.1.4 Found Succeeded pair in checklist");
                break;
            default: break;
            }
        }
    } else {
        Pair* fresh = InsertIntoCheckList(inst, ctrl, local, remote);
        if (fresh == nullptr) {
            Log(inst, ICELIB_logWarning, "Could not insert pair into checklist!");
        } else {
            if (useCandidate) {
                fresh->triggeredUseCandidate = true;
                fresh->nominatedPair = true;
            }
            Trigger(inst, ctrl, fresh);
            NotifyCheckListUpdate(inst, true);
            if (useCandidate) {
                Log(inst, ICELIB_logInfo, "Not ready to send response at this time. Hoping the remote side will retransmit");
                return;
            }
        }
    }
    Log(inst, ICELIB_logDebug, "Answering check from %s at %s", AddrText(source, a), AddrText(localAddr, b));
    SendResponse(inst, ctrl, uv1, uv2, compId, localAddr, source, source, 200, id, fromRelay);
}

template <class P>
void Agent<P>::IncomingLite(Inst* inst, uint32_t uv1, uint32_t uv2, const char* ufragPair, uint32_t peerPriority,
                            bool useCandidate, StunMsgId id, const struct sockaddr* source,
                            const struct sockaddr* localAddr, bool fromRelay, uint16_t componentId)
{
    // A lite agent only answers (RFC 5245 2.7): the peer's nomination makes the valid pair.
    char a[64];
    Ctrl* ctrl = FindStreamByAddress(inst, localAddr);
    if (ctrl == nullptr) {
        Log(inst, ICELIB_logWarning, "media stream not found!:destination:%s", AddrText(localAddr, a));
        return;
    }
    if (!CompareUfragPair(ufragPair, &ctrl->checkList)) {
        Log(inst, ICELIB_logWarning, "UfragPair mismatch! Received UfragPair was: '%s'", ufragPair ? ufragPair : "");
        SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 400, id, fromRelay);
        return;
    }
    const ICE_MEDIA_STREAM* localStream = LocalStreamOf(inst, ctrl);
    const ICE_CANDIDATE* local = FindCandidate(localStream->candidate, localStream->numberOfCandidates, localAddr);
    ValidList* vl = &ctrl->validList;
    if (useCandidate && local != nullptr && inst->iceState == ICELIB_RUNNING) {
        Pair* valid = nullptr;
        for (uint32_t i = 0; i < vl->numberOfElements && valid == nullptr; ++i) {
            Pair* v = &vl->pairs[i];
            if (sockaddr_alike(Sa(v->localCandidate.connectionAddr), localAddr) &&
                sockaddr_alike(Sa(v->remoteCandidate.connectionAddr), source)) {
                valid = v;
            }
        }
        if (valid == nullptr && vl->numberOfElements < ICELIB_MAX_PAIRS) {
            valid = &vl->pairs[vl->numberOfElements++];
            std::memset(static_cast<void*>(valid), 0, sizeof *valid);
            valid->pairState = ICELIB_PAIR_SUCCEEDED;
            valid->pairId = ctrl->checkList.id * 100 + ++vl->nextPairId;
            valid->localCandidate = *local;
            ICE_CANDIDATE& r = valid->remoteCandidate;
            Foundation(r.foundation, ICE_CAND_TYPE_PRFLX, local->transport, sizeof r.foundation);
            r.componentid = local->componentid;
            r.priority = peerPriority;
            sockaddr_copy(Sa(r.connectionAddr), source);
            r.transport = local->transport;
            r.type = ICE_CAND_TYPE_PRFLX;
            ComputePairPriority(inst, valid);
        }
        if (valid != nullptr) {
            valid->nominatedPair = true;
            NotifyCheckListUpdate(inst, true);
        }
    }
    SendResponse(inst, ctrl, uv1, uv2, componentId, localAddr, source, source, 200, id, fromRelay);
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
