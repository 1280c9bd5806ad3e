// Answers to our checks and their absence: valid pairs, peer-reflexive local candidates, unfreezing.
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"
#include "stunlib_common.h"

namespace gatewalk::icelib_detail {

template <class P>
bool Agent<P>::Correlate(Inst* inst, const StunMsgId& id, Ctrl** ctrl, Pair** pair)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        CheckList* list = &inst->streamControllers[i].checkList;
        for (uint32_t p = 0; p < list->numberOfPairs; ++p) {
            Pair* candidate = &list->checkListPairs[p];
            for (uint32_t t = 0; t < candidate->numberOfTransactionIds && t < ICELIB_MAX_NO_OF_TRANSID; ++t) {
                if (stunlib_transIdIsEqual(&candidate->transactionIdTable[t], &id)) {
                    *ctrl = &inst->streamControllers[i];
                    *pair = candidate;
                    return true;
                }
            }
        }
    }
    return false;
}

template <class P>
typename Agent<P>::Pair* Agent<P>::FindValidPairReferring(Ctrl* ctrl, uint32_t checkListPairId)
{
    for (uint32_t i = 0; i < ctrl->validList.numberOfElements; ++i) {
        if (ctrl->validList.pairs[i].refersToPairId == checkListPairId) return &ctrl->validList.pairs[i];
    }
    return nullptr;
}

template <class P>
void Agent<P>::UnfreezePairsByFoundation(CheckList* list, const char* pairFoundation)
{
    char f[2 * ICE_MAX_FOUNDATION_LENGTH];
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        Pair* p = &list->checkListPairs[i];
        if (p->pairState != ICELIB_PAIR_FROZEN) continue;
        PairFoundation(f, sizeof f, p);
        if (std::strcmp(f, pairFoundation) == 0) p->pairState = ICELIB_PAIR_WAITING;
    }
}

template <class P>
void Agent<P>::UnfreezeFrozenCheckList(CheckList* list)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) list->checkListPairs[i].pairState = ICELIB_PAIR_PAIRED;
    ComputeStatesSetWaitingFrozen(list);
}

template <class P>
void Agent<P>::UpdateCheckListState(Inst* inst, Ctrl* ctrl)
{
    if (!AllPairsDone(&ctrl->checkList)) return;
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* other = &inst->streamControllers[i];
        if (other != ctrl && IsListFrozen(&other->checkList)) UnfreezeFrozenCheckList(&other->checkList);
    }
}

template <class P>
bool Agent<P>::IsPairForEachComponentInValidList(const Ctrl* ctrl)
{
    const ICELIB_COMPONENTLIST& comps = ctrl->checkList.componentList;
    for (uint32_t k = 0; k < comps.numberOfComponents; ++k) {
        bool found = false;
        for (uint32_t i = 0; i < ctrl->validList.numberOfElements && !found; ++i) {
            found = ctrl->validList.pairs[i].localCandidate.componentid == comps.componentIds[k];
        }
        if (!found) return false;
    }
    return comps.numberOfComponents > 0;
}

template <class P>
void Agent<P>::ProcessSuccessResponse(Inst* inst, Ctrl* ctrl, Pair* pair, const struct sockaddr* mappedAddr)
{
    if (pair->useCandidate) {
        Pair* valid = FindValidPairReferring(ctrl, pair->pairId);
        if (inst->iceControlling) {
            if (valid != nullptr) valid->nominatedPair = true;
            if constexpr (!kZyn<P>) {
                if (inst->iceConfiguration.aggressiveNomination && inst->callbacks.nominated != nullptr && valid) {
                    inst->callbacks.nominated(inst->callbacks.nominatedUserData, pair->localCandidate.userValue1,
                                              pair->localCandidate.userValue2, pair->localCandidate.componentid,
                                              valid->pairPriority, IsTcp(pair->localCandidate.transport) ? 6 : 17,
                                              Sa(valid->localCandidate.connectionAddr),
                                              Sa(valid->remoteCandidate.connectionAddr));
                }
            }
        } else if (pair->pairState == ICELIB_PAIR_SUCCEEDED) {
            Log(inst, ICELIB_logInfo, "Controlled Nominating!");
            if (valid != nullptr) valid->nominatedPair = true;
        }
        NotifyCheckListUpdate(inst, true);
        return;
    }

    // The mapped address names the local candidate the peer saw; a new one is peer reflexive.
    const ICE_MEDIA_STREAM* localStream = LocalStreamOf(inst, ctrl);
    const ICE_CANDIDATE* local = nullptr;
    if (localStream != nullptr && mappedAddr != nullptr && sockaddr_isSet(mappedAddr)) {
        local = FindCandidate(localStream->candidate, localStream->numberOfCandidates, mappedAddr);
        if (local == nullptr) {
            local = FindCandidate(ctrl->discoveredLocalCandidates, ctrl->numberOfDiscoveredLocalCandidates, mappedAddr);
        }
        if (local == nullptr) {
            if (!kZyn<P> && inst->iceConfiguration.dropRflx) {
                Log(inst, ICELIB_logInfo, "Discovered local rflx candidate dropped, due to dropRflx config ");
            } else if (ctrl->numberOfDiscoveredLocalCandidates >= ICE_MAX_CANDIDATES) {
                Log(inst, ICELIB_logWarning, "Discovered local candidate list full!");
            } else {
                ICE_CANDIDATE* c = &ctrl->discoveredLocalCandidates[ctrl->numberOfDiscoveredLocalCandidates++];
                std::memset(static_cast<void*>(c), 0, sizeof *c);
                const ICE_CANDIDATE& base = pair->localCandidate;
                Foundation(c->foundation, ICE_CAND_TYPE_PRFLX, base.transport, sizeof c->foundation);
                c->componentid = base.componentid;
                c->priority = Priority(ICE_CAND_TYPE_PRFLX, base.transport, base.componentid, kCheckLocalPref);
                sockaddr_copy(Sa(c->connectionAddr), mappedAddr);
                c->relAddr = base.connectionAddr;
                c->transport = base.transport;
                c->type = ICE_CAND_TYPE_PRFLX;
                c->userValue1 = base.userValue1;
                c->userValue2 = base.userValue2;
                local = c;
            }
        }
    }
    if (local == nullptr) local = &pair->localCandidate;

    if (local->componentid != pair->remoteCandidate.componentid) {
        Log(inst, ICELIB_logError, "Candidates in constructed pair from different component id!");
        pair->pairState = ICELIB_PAIR_FAILED;
        return;
    }
    ValidList* vl = &ctrl->validList;
    Pair* valid = nullptr;
    for (uint32_t i = 0; i < vl->numberOfElements; ++i) {
        Pair* v = &vl->pairs[i];
        if (v->localCandidate.componentid == local->componentid &&
            sockaddr_alike(Sa(v->localCandidate.connectionAddr), Sa(local->connectionAddr)) &&
            sockaddr_alike(Sa(v->remoteCandidate.connectionAddr), Sa(pair->remoteCandidate.connectionAddr))) {
            valid = v;
        }
    }
    if (valid != nullptr) {
        valid->nominatedPair |= pair->nominatedPair;
        pair->refersToPairId = valid->pairId;
    } else if (vl->numberOfElements >= ICELIB_MAX_PAIRS) {
        Log(inst, ICELIB_logWarning, "Valid list full!");
    } else {
        Pair fresh = *pair;
        fresh.localCandidate = *local;
        fresh.refersToPairId = pair->pairId;
        fresh.pairId = ctrl->checkList.id * 100 + ++vl->nextPairId;
        fresh.pairState = ICELIB_PAIR_SUCCEEDED;
        fresh.useCandidate = false;
        fresh.sentUseCandidateAlready = false;
        fresh.numberOfTransactionIds = 0;
        std::memset(fresh.transactionIdTable, 0, sizeof fresh.transactionIdTable);
        ComputePairPriority(inst, &fresh);
        if constexpr (kZyn<P>) {
            fresh.firstSeenMs = inst->tickCount * inst->iceConfiguration.tickIntervalMS;
            fresh.readyToNominateWeight = 0;
        }
        uint32_t at = vl->numberOfElements;
        while (at > 0 && vl->pairs[at - 1].pairPriority < fresh.pairPriority) {
            vl->pairs[at] = vl->pairs[at - 1];
            --at;
        }
        vl->pairs[at] = fresh;
        ++vl->numberOfElements;
        pair->refersToPairId = fresh.pairId;
    }
    pair->pairState = ICELIB_PAIR_SUCCEEDED;

    char foundation[2 * ICE_MAX_FOUNDATION_LENGTH];
    PairFoundation(foundation, sizeof foundation, pair);
    UnfreezePairsByFoundation(&ctrl->checkList, foundation);

    // RFC 5245 7.1.3.2.3: once this stream has a valid pair per component, other streams may start
    // on the foundations that worked here.
    if (IsPairForEachComponentInValidList(ctrl)) {
        for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
            Ctrl* other = &inst->streamControllers[i];
            if (other == ctrl || other->checkList.checkListState != ICELIB_CHECKLIST_RUNNING) continue;
            const bool frozen = IsListFrozen(&other->checkList);
            bool any = false;
            for (uint32_t v = 0; v < vl->numberOfElements; ++v) {
                const Pair* vp = &vl->pairs[v];
                const Pair* src = FindPairById(&ctrl->checkList, vp->refersToPairId);
                PairFoundation(foundation, sizeof foundation, src != nullptr ? src : vp);
                for (uint32_t k = 0; k < other->checkList.numberOfPairs; ++k) {
                    char f[2 * ICE_MAX_FOUNDATION_LENGTH];
                    Pair* op = &other->checkList.checkListPairs[k];
                    PairFoundation(f, sizeof f, op);
                    if (op->pairState == ICELIB_PAIR_FROZEN && std::strcmp(f, foundation) == 0) {
                        op->pairState = ICELIB_PAIR_WAITING;
                        any = true;
                    }
                }
            }
            if (frozen && !any) UnfreezeFrozenCheckList(&other->checkList);
        }
    }
    NotifyCheckListUpdate(inst, true);
}

template <class P>
void Agent<P>::IncomingResponse(Inst* inst, uint16_t errorCode, StunMsgId id, const struct sockaddr* source,
                                const struct sockaddr* destination, const struct sockaddr* mappedAddr)
{
    if (!inst->iceSupportVerified) return;
    char t[25];
    Ctrl* ctrl = nullptr;
    Pair* pair = nullptr;
    if (!Correlate(inst, id, &ctrl, &pair)) {
        Log(inst, ICELIB_logWarning, "Can't correlate incoming Binding Response! pPair:%p,streamId:%d",
            static_cast<void*>(nullptr), -1);
        return;
    }
    if (!pair->useCandidate && pair->pairState != ICELIB_PAIR_WAITING && pair->pairState != ICELIB_PAIR_INPROGRESS) {
        Log(inst, ICELIB_logWarning, "Binding Response to not-in-progress pair!:%d", static_cast<int>(pair->pairId));
        return;
    }
    if (errorCode == 487) {
        Log(inst, ICELIB_logInfo, "Error response 487: Role Conflict,trandactionID:%s", IdText(id, t));
        if (inst->roleHasSwapped) {
            Log(inst, ICELIB_logInfo, "Receive response 487 Role Conflict, and role has swapped, trandactionID:%s",
                IdText(id, t));
        } else {
            inst->iceControlling = !inst->iceControlling;
            inst->iceControlled = !inst->iceControlling;
            inst->roleHasSwapped = true;
            Log(inst, ICELIB_logInfo, "Changing role, iceControlling now: %d!", inst->iceControlling ? 1 : 0);
            RecomputeAllPriorities(inst);
            // The sort moved pairs: find ours again.
            if (!Correlate(inst, id, &ctrl, &pair)) return;
        }
        pair->pairState = ICELIB_PAIR_WAITING;
        Trigger(inst, ctrl, pair);
        return;
    }
    if (errorCode < 200) {
        Log(inst, ICELIB_logWarning, "Unexpected error response: %u!", static_cast<unsigned int>(errorCode));
        return;
    }
    if (source == nullptr || destination == nullptr ||
        !sockaddr_alike(source, Sa(pair->remoteCandidate.connectionAddr)) ||
        !sockaddr_alike(destination, Sa(pair->localCandidate.connectionAddr))) {
        Log(inst, ICELIB_logWarning, "Source and destination addresses don't match, trandactionID:%s", IdText(id, t));
        pair->pairState = ICELIB_PAIR_FAILED;
    } else if (errorCode < 300) {
        ProcessSuccessResponse(inst, ctrl, pair, mappedAddr);
    } else {
        Log(inst, ICELIB_logWarning, "Bad error response: %d!", static_cast<int>(errorCode));
        pair->pairState = ICELIB_PAIR_FAILED;
    }
    UpdateCheckListState(inst, ctrl);
}

template <class P>
void Agent<P>::IncomingTimeout(Inst* inst, StunMsgId id)
{
    if (!inst->iceSupportVerified) return;
    Ctrl* ctrl = nullptr;
    Pair* pair = nullptr;
    if (!Correlate(inst, id, &ctrl, &pair)) {
        char t[25];
        Log(inst, ICELIB_logDebug, "Transaction ID was: %s", IdText(id, t));
        return;
    }
    if (pair->pairState != ICELIB_PAIR_INPROGRESS) return;
    pair->pairState = ICELIB_PAIR_FAILED;
    UpdateCheckListState(inst, ctrl);
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
