// The pace of checks: one check per tick over all streams, triggered checks first.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "icelib_internal.h"

namespace gatewalk::icelib_detail {

template <class P>
void Agent<P>::TickStreamController(Inst* inst)
{
    const uint32_t n = inst->numberOfMediaStreams;
    if (n == 0) return;
    for (uint32_t k = 0; k < n; ++k) {
        Ctrl* ctrl = &inst->streamControllers[(inst->roundRobinCheckListIndex + k) % n];
        if (ScheduleSingle(inst, ctrl)) break;
    }
    inst->roundRobinCheckListIndex = (inst->roundRobinCheckListIndex + 1) % n;
}

template <class P>
typename Agent<P>::Pair* Agent<P>::FindPairToSchedule(Inst* inst, Ctrl* ctrl)
{
    Pair* pair = FifoGet(ctrl);
    if (pair != nullptr) {
        Log(inst, ICELIB_logDebug, "Scheduling Triggered Check, FIFO pair has USE_CANDIDATE:%d",
            pair->useCandidate ? 1 : 0);
        return pair;
    }
    CheckList* list = &ctrl->checkList;
    if (list->checkListStopped) {
        Log(inst, ICELIB_logDebug, "Checklist is stopped. No pair to schedule.");
        return nullptr;
    }
    // The list is sorted: the first WAITING pair has the highest priority, else the first FROZEN.
    for (ICELIB_PAIR_STATE wanted : {ICELIB_PAIR_WAITING, ICELIB_PAIR_FROZEN}) {
        for (uint32_t i = 0; i < list->numberOfPairs && pair == nullptr; ++i) {
            if (list->checkListPairs[i].pairState == wanted) pair = &list->checkListPairs[i];
        }
    }
    if (pair != nullptr) pair->pairState = ICELIB_PAIR_WAITING;
    if (pair != nullptr) Log(inst, ICELIB_logDebug, "Scheduling pair form CHECKLIST.");
    return pair;
}

template <class P>
bool Agent<P>::ScheduleSingle(Inst* inst, Ctrl* ctrl)
{
    CheckList* list = &ctrl->checkList;
    if (HasPairInState(list, ICELIB_PAIR_WAITING)) {
        list->timerRunning = 1;
    } else if (!list->timerRunning) {
        return false;
    }
    Pair* pair = FindPairToSchedule(inst, ctrl);
    if (pair == nullptr) {
        Log(inst, ICELIB_logDebug, "Setting timerRunning to false");
        list->timerRunning = 0;
        return false;
    }
    if (pair->numberOfTransactionIds >= ICELIB_MAX_NO_OF_TRANSID) {
        // A peer that keeps repeating its check while ours is in flight cancels and re-triggers ours
        // each time. Dropping the check here would leave the pair waiting forever; the oldest
        // transaction is the one least likely still to be answered, so it goes instead.
        ForgetOldestTransaction(inst, pair);
    }
    if (pair->pairState == ICELIB_PAIR_SUCCEEDED) {
        // Only a nomination sends on a pair that has already succeeded.
        if (!pair->useCandidate) {
            Log(inst, ICELIB_logError, "Scheduling SUCCEEDED check without USE_CANDIDATE flag set");
            return false;
        }
    } else {
        pair->pairState = ICELIB_PAIR_INPROGRESS;
    }
    if (pair->useCandidate) {
        if (pair->sentUseCandidateAlready) {
            Log(inst, ICELIB_logWarning, "Ignoring attempt to send USE_CANDIDATE check twice");
            return false;
        }
        pair->sentUseCandidateAlready = true;
    }
    ScheduleCheck(inst, ctrl, pair);
    return true;
}

template <class P>
void Agent<P>::ScheduleCheck(Inst* inst, Ctrl* ctrl, Pair* pair)
{
    const StunMsgId id = NewTransactionId();
    const ICE_CANDIDATE& local = pair->localCandidate;
    const ICE_CANDIDATE& remote = pair->remoteCandidate;
    const uint32_t priority = Priority(ICE_CAND_TYPE_PRFLX, local.transport, local.componentid, kCheckLocalPref);
    char ufragPair[ICE_MAX_UFRAG_PAIR_LENGTH];
    std::snprintf(ufragPair, sizeof ufragPair, "%s:%s", ctrl->checkList.ufragRemote, ctrl->checkList.ufragLocal);
    pair->transactionIdTable[pair->numberOfTransactionIds++] = id;
    char a[64], b[64], t[25];
    Log(inst, ICELIB_logDebug, "Sending check of pair %u %s -> %s%s, transaction %s", pair->pairId,
        AddrText(Sa(local.connectionAddr), a), AddrText(Sa(remote.connectionAddr), b),
        pair->useCandidate ? " with USE-CANDIDATE" : "", IdText(id, t));
    if (inst->callbacks.outgoingBindingRequest == nullptr) return;
    const int proto = IsTcp(local.transport) ? 6 : 17;
    inst->callbacks.outgoingBindingRequest(inst->callbacks.outgoingBindingRequestUserData, proto,
                                           Sa(local.connectionAddr), Sa(remote.connectionAddr), local.userValue1,
                                           local.userValue2, local.componentid, local.type == ICE_CAND_TYPE_RELAY,
                                           ufragPair, ctrl->checkList.passwdRemote, priority, pair->useCandidate,
                                           inst->iceControlling, inst->tieBreaker, id);
}

template <class P>
void Agent<P>::ForgetOldestTransaction(Inst* inst, Pair* pair)
{
    Log(inst, ICELIB_logDebug, "Transaction id table of pair %u full, oldest transaction forgotten", pair->pairId);
    if (inst->callbacks.outgoingCancelRequest != nullptr) {
        inst->callbacks.outgoingCancelRequest(inst->callbacks.outgoingCancelRequestUserData,
                                              pair->localCandidate.userValue1, pair->transactionIdTable[0]);
    }
    std::memmove(pair->transactionIdTable, pair->transactionIdTable + 1,
                 (pair->numberOfTransactionIds - 1) * sizeof pair->transactionIdTable[0]);
    --pair->numberOfTransactionIds;
}

template <class P>
void Agent<P>::CancelTransactions(Inst* inst, Pair* pair, bool forget)
{
    Log(inst, ICELIB_logDebug, "Canceling Transaction. Transaction Table Size(%d).",
        static_cast<int>(pair->numberOfTransactionIds));
    for (uint32_t i = 0; i < pair->numberOfTransactionIds; ++i) {
        if (inst->callbacks.outgoingCancelRequest != nullptr) {
            inst->callbacks.outgoingCancelRequest(inst->callbacks.outgoingCancelRequestUserData,
                                                  pair->localCandidate.userValue1, pair->transactionIdTable[i]);
        }
    }
    if (!forget) return;
    std::memset(pair->transactionIdTable, 0, sizeof pair->transactionIdTable);
    pair->numberOfTransactionIds = 0;
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
