// Nomination (regular, aggressive, weighted), the concluding step of each list and the end of ICE.
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace gatewalk::icelib_detail {

template <class P>
bool Agent<P>::HasNominatedValidPair(const Ctrl* ctrl, uint32_t componentId)
{
    return NominatedValidPair(ctrl, componentId) != nullptr;
}

template <class P>
const typename Agent<P>::Pair* Agent<P>::NominatedValidPair(const Ctrl* ctrl, uint32_t componentId)
{
    // The valid list is sorted: the first nominated pair of a component is its best.
    for (uint32_t i = 0; i < ctrl->validList.numberOfElements; ++i) {
        const Pair* v = &ctrl->validList.pairs[i];
        if (v->nominatedPair && v->localCandidate.componentid == componentId) return v;
    }
    return nullptr;
}

template <class P>
bool Agent<P>::NominatingCriteriaMet(const Ctrl* ctrl)
{
    const ICELIB_COMPONENTLIST& comps = ctrl->checkList.componentList;
    if (comps.numberOfComponents == 0) return true;
    if constexpr (kZyn<P>) {
        return ctrl->checkList.readyToNominateWeight > kReadyWeightThreshold;
    } else {
        auto hasValid = [ctrl](uint32_t componentId) {
            for (uint32_t i = 0; i < ctrl->validList.numberOfElements; ++i) {
                if (ctrl->validList.pairs[i].localCandidate.componentid == componentId) return true;
            }
            return false;
        };
        if (!hasValid(comps.componentIds[0])) return AllPairsDone(&ctrl->checkList);
        if (comps.numberOfComponents == 1 || hasValid(comps.componentIds[1])) return true;
        return AllPairsDone(&ctrl->checkList);
    }
}

template <class P>
void Agent<P>::StopChecks(Inst* inst, Ctrl* ctrl)
{
    CheckList* list = &ctrl->checkList;
    if (list->stopChecks) return;
    list->stopChecks = 1;
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        Pair* p = &list->checkListPairs[i];
        if (p->pairState != ICELIB_PAIR_INPROGRESS) continue;
        if (!p->useCandidate) FifoRemove(&ctrl->triggeredChecksFifo, p->pairId);
        CancelTransactions(inst, p, true);
    }
}

template <class P>
typename Agent<P>::Pair* Agent<P>::PickValidPairForNomination(Ctrl* ctrl, uint32_t componentIndex)
{
    const uint32_t componentId = ctrl->checkList.componentList.componentIds[componentIndex];
    Pair* best = nullptr;
    for (uint32_t i = 0; i < ctrl->validList.numberOfElements; ++i) {
        Pair* v = &ctrl->validList.pairs[i];
        if (v->localCandidate.componentid != componentId) continue;
        if constexpr (kZyn<P>) {
            const uint32_t base = BasePriorityWeight(&ctrl->checkList, componentId, v->pairPriority);
            if (base != ctrl->checkList.bestBaseWeight[componentIndex]) continue;
        }
        best = v;  // sorted list: the first match has the highest priority
        break;
    }
    if (best == nullptr || best->sentUseCandidateAlready) return nullptr;
    return best;
}

template <class P>
void Agent<P>::EnqueueValidPair(Inst* inst, Ctrl* ctrl, Pair* valid)
{
    Pair* pair = FindPairById(&ctrl->checkList, valid->refersToPairId);
    if (pair == nullptr) return;
    pair->useCandidate = true;
    std::memset(pair->transactionIdTable, 0, sizeof pair->transactionIdTable);
    pair->numberOfTransactionIds = 0;
    ctrl->checkList.nominatedPairSent = 1;
    Trigger(inst, ctrl, pair);
}

template <class P>
void Agent<P>::NominateRegularIfComplete(Inst* inst)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        if (!NominatingCriteriaMet(&inst->streamControllers[i])) return;
    }
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        if (ctrl->checkList.stopChecks) continue;
        StopChecks(inst, ctrl);
        for (uint32_t k = 0; k < ctrl->checkList.componentList.numberOfComponents; ++k) {
            Pair* valid = PickValidPairForNomination(ctrl, k);
            if (valid == nullptr) continue;
            EnqueueValidPair(inst, ctrl, valid);
            // The weighted profile sends the nomination within this tick rather than the next.
            if constexpr (kZyn<P>) TickStreamController(inst);
        }
    }
}

template <class P>
void Agent<P>::NominateAggressive(Inst* inst)
{
    if constexpr (kZyn<P>) {
        Log(inst, ICELIB_logDebug, "Aggressive nomination");
    } else {
        for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
            Ctrl* ctrl = &inst->streamControllers[i];
            for (uint32_t k = 0; k < ctrl->checkList.componentList.numberOfComponents; ++k) {
                Pair* valid = PickValidPairForNomination(ctrl, k);
                if (valid == nullptr) {
                    Log(inst, ICELIB_logDebug, "Could not pick valid pair for nomination (CompId: %i)",
                        static_cast<int>(ctrl->checkList.componentList.componentIds[k]));
                    continue;
                }
                Log(inst, ICELIB_logDebug, "Enqueueing valid pair (Aggressive)");
                valid->sentUseCandidateAlready = true;
                EnqueueValidPair(inst, ctrl, valid);
            }
        }
    }
}

template <class P>
void Agent<P>::ConcludeIfComplete(Inst* inst)
{
    if (inst->iceConfiguration.iceLite) {
        ConcludeLite(inst);
    } else if (inst->iceConfiguration.aggressiveNomination) {
        NominateAggressive(inst);
    } else if (inst->iceControlling) {
        NominateRegularIfComplete(inst);
    }
}

template <class P>
void Agent<P>::ConcludeLite(Inst* inst)
{
    // A lite agent never checks: each list is complete once the peer nominated a pair per component.
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        if (ctrl->checkList.checkListState != ICELIB_CHECKLIST_RUNNING) continue;
        bool all = ctrl->checkList.componentList.numberOfComponents > 0;
        for (uint32_t k = 0; k < ctrl->checkList.componentList.numberOfComponents; ++k) {
            all = all && HasNominatedValidPair(ctrl, ctrl->checkList.componentList.componentIds[k]);
        }
        if (all) ctrl->checkList.checkListState = ICELIB_CHECKLIST_COMPLETED;
    }
}

template <class P>
void Agent<P>::UpdateCheckListStateConcluding(Inst* inst, Ctrl* ctrl)
{
    CheckList* list = &ctrl->checkList;
    if (list->checkListState != ICELIB_CHECKLIST_RUNNING) return;
    bool anyNominated = false;
    for (uint32_t i = 0; i < ctrl->validList.numberOfElements; ++i) anyNominated |= ctrl->validList.pairs[i].nominatedPair;
    if (!anyNominated) return;

    if (inst->iceConfiguration.aggressiveNomination) {
        const Pair* best = nullptr;
        for (uint32_t i = 0; i < list->numberOfPairs && best == nullptr; ++i) {
            if (list->checkListPairs[i].localCandidate.componentid == ICELIB_RTP_COMPONENT_ID) best = &list->checkListPairs[i];
        }
        const Pair* first = ctrl->validList.numberOfElements > 0 ? &ctrl->validList.pairs[0] : nullptr;
        if (best == nullptr || first == nullptr || first->refersToPairId != best->pairId || !first->nominatedPair) return;
    } else {
        // Nominated components need no more ordinary checks (RFC 5245 8.1.2).
        for (uint32_t k = 0; k < list->componentList.numberOfComponents; ++k) {
            const uint32_t componentId = list->componentList.componentIds[k];
            if (!HasNominatedValidPair(ctrl, componentId)) continue;
            for (uint32_t i = list->numberOfPairs; i-- > 0;) {
                const Pair& p = list->checkListPairs[i];
                if (p.localCandidate.componentid == componentId &&
                    (p.pairState == ICELIB_PAIR_WAITING || p.pairState == ICELIB_PAIR_FROZEN)) {
                    RemovePairAt(ctrl, i);
                }
            }
        }
    }
    for (uint32_t k = 0; k < list->componentList.numberOfComponents; ++k) {
        if (!HasNominatedValidPair(ctrl, list->componentList.componentIds[k])) return;
    }
    list->checkListState = ICELIB_CHECKLIST_COMPLETED;
    Log(inst, ICELIB_logInfo, "Checklist %u completed", list->id);
}

template <class P>
void Agent<P>::StoreRemoteCandidates(Inst* inst)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        ICE_REMOTE_CANDIDATES* out = &ctrl->remoteCandidates;
        std::memset(static_cast<void*>(out), 0, sizeof *out);
        for (uint32_t k = 0; k < ctrl->checkList.componentList.numberOfComponents; ++k) {
            const Pair* v = NominatedValidPair(ctrl, ctrl->checkList.componentList.componentIds[k]);
            if (v != nullptr) out->remoteCandidate[out->numberOfComponents++] = v->remoteCandidate;
        }
    }
}

template <class P>
void Agent<P>::UpdatingStates(Inst* inst)
{
    if (inst->iceState != ICELIB_RUNNING) return;
    bool allComplete = true;
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        const ICE_MEDIA_STREAM* local = LocalStreamOf(inst, ctrl);
        const ICE_MEDIA_STREAM* remote = RemoteStreamOf(inst, ctrl);
        if (local == nullptr || remote == nullptr || local->numberOfCandidates == 0 || remote->numberOfCandidates == 0) {
            continue;
        }
        UpdateCheckListStateConcluding(inst, ctrl);
        if (ctrl->checkList.checkListState != ICELIB_CHECKLIST_COMPLETED) allComplete = false;
    }
    const bool failedToStart = inst->numberOfMediaStreams == 0;
    if (!allComplete) {
        const uint64_t elapsedMs = static_cast<uint64_t>(inst->tickCount) * inst->iceConfiguration.tickIntervalMS;
        uint32_t limitMs = kQloxTimeLimitMs;
        if constexpr (kZyn<P>) limitMs = inst->iceConfiguration.iceTimeoutMS;
        if (elapsedMs <= limitMs) return;
        Ctrl* last = &inst->streamControllers[inst->numberOfMediaStreams - 1];
        if constexpr (!kZyn<P>) {
            if (inst->iceConfiguration.aggressiveNomination) {
                bool nominated = false;
                for (uint32_t v = 0; v < last->validList.numberOfElements; ++v) nominated |= last->validList.pairs[v].nominatedPair;
                if (nominated) {
                    last->checkList.checkListState = ICELIB_CHECKLIST_COMPLETED;
                    return;
                }
                Log(inst, ICELIB_logError, "ICE failed agressive (Timeout)");
            } else {
                Log(inst, ICELIB_logError, "ICE failed (Timeout)");
            }
        } else {
            Log(inst, ICELIB_logError, "ICE failed (Timeout)");
        }
        SetState(inst, ICELIB_FAILED);
        StopChecks(inst, last);
        last->checkList.checkListStopped = 1;
        FifoClear(&last->triggeredChecksFifo);
        if constexpr (kZyn<P>) NotifyCheckListUpdate(inst, false);
        if (inst->callbacks.connectivityChecksComplete != nullptr) {
            inst->callbacks.connectivityChecksComplete(inst->callbacks.connectivityChecksCompleteUserData,
                                                       inst->localIceMedia.mediaStream[0].userValue1,
                                                       inst->iceControlling, true);
        }
        return;
    }
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        StopChecks(inst, ctrl);
        ctrl->checkList.checkListStopped = 1;
        FifoClear(&ctrl->triggeredChecksFifo);
    }
    SetState(inst, ICELIB_COMPLETED);
    StoreRemoteCandidates(inst);
    Log(inst, ICELIB_logInfo, "ICE completed after %u ticks", inst->tickCount);
    if (inst->callbacks.connectivityChecksComplete != nullptr) {
        inst->callbacks.connectivityChecksComplete(inst->callbacks.connectivityChecksCompleteUserData,
                                                   inst->localIceMedia.mediaStream[0].userValue1, inst->iceControlling,
                                                   failedToStart);
    }
}

// ---- weighted readiness (zyn_gatewalk) -------------------------------------------------------------

template <class P>
uint32_t Agent<P>::BasePriorityWeight(const CheckList* list, uint32_t componentId, uint64_t priority)
{
    if (list->numberOfPairs == 0) return kBaseWeightMax;
    uint32_t higher = 0;
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        const Pair& p = list->checkListPairs[i];
        if (p.localCandidate.componentid == componentId && p.pairPriority > priority) ++higher;
    }
    const uint64_t penalty = static_cast<uint64_t>(higher) * kBaseWeightStep;
    return penalty >= kBaseWeightMax ? 0 : kBaseWeightMax - static_cast<uint32_t>(penalty);
}

uint32_t CandidateTypeWeight(ICE_CANDIDATE_TYPE type)
{
    switch (type) {
    case ICE_CAND_TYPE_HOST: return 50;
    case ICE_CAND_TYPE_SRFLX: return 25;
    case ICE_CAND_TYPE_RELAY: return 10;
    case ICE_CAND_TYPE_PRFLX: return 20;
    default: return 0;
    }
}

uint32_t ReadyWeight(ICE_CANDIDATE_TYPE localType, ICE_CANDIDATE_TYPE remoteType, uint32_t ms)
{
    const uint64_t w = static_cast<uint64_t>(CandidateTypeWeight(localType) + 2 * CandidateTypeWeight(remoteType)) * ms;
    return w > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(w);
}

template <class P>
void Agent<P>::UpdateReadyToNominateWeighting(Inst* inst)
{
    if constexpr (kZyn<P>) {
        const uint64_t nowMs = static_cast<uint64_t>(inst->tickCount) * inst->iceConfiguration.tickIntervalMS;
        for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
            Ctrl* ctrl = &inst->streamControllers[i];
            CheckList* list = &ctrl->checkList;
            uint32_t weakest = UINT32_MAX;
            for (uint32_t k = 0; k < list->componentList.numberOfComponents; ++k) {
                const uint32_t componentId = list->componentList.componentIds[k];
                uint32_t best = 0;
                uint32_t bestBase = 0;
                for (uint32_t v = 0; v < ctrl->validList.numberOfElements; ++v) {
                    Pair* vp = &ctrl->validList.pairs[v];
                    if (vp->localCandidate.componentid != componentId) continue;
                    const uint32_t base = BasePriorityWeight(list, componentId, vp->pairPriority);
                    const uint32_t age = nowMs > vp->firstSeenMs ? static_cast<uint32_t>(nowMs - vp->firstSeenMs) : 0;
                    const uint64_t sum = static_cast<uint64_t>(base) +
                                         ReadyWeight(vp->localCandidate.type, vp->remoteCandidate.type, age);
                    vp->readyToNominateWeight = sum > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(sum);
                    if (vp->readyToNominateWeight > best) {
                        best = vp->readyToNominateWeight;
                        bestBase = base;
                    }
                }
                list->bestBaseWeight[k] = bestBase;
                if (best < weakest) weakest = best;
            }
            list->readyToNominateWeight = weakest == UINT32_MAX ? 0 : weakest;
        }
    } else {
        (void)inst;
    }
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
