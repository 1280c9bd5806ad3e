// Forming check lists: pairing, priorities and order, pruning, and the first WAITING / FROZEN states.
#include <cstdio>
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace gatewalk::icelib_detail {

namespace {

bool TransportsFit(ICE_TRANSPORT local, ICE_TRANSPORT remote)
{
    switch (local) {
    case ICE_TRANS_UDP: return remote == ICE_TRANS_UDP;
    case ICE_TRANS_TCPACT: return remote == ICE_TRANS_TCPPASS;
    case ICE_TRANS_TCPPASS: return remote == ICE_TRANS_TCPACT;
    default: return false;
    }
}

}  // namespace

template <class P>
void Agent<P>::ComputePairPriority(const Inst* inst, Pair* pair)
{
    const uint32_t l = pair->localCandidate.priority;
    const uint32_t r = pair->remoteCandidate.priority;
    pair->pairPriority = inst->iceControlling ? PairPriority(l, r) : PairPriority(r, l);
}

template <class P>
void Agent<P>::SortPairs(Pair* pairs, uint32_t count)
{
    // Insertion sort, highest priority first: stable (equal pairs keep their table order, so runs
    // are reproducible) and without the temporary buffer of the standard stable sort.
    for (uint32_t i = 1; i < count; ++i) {
        if (pairs[i].pairPriority <= pairs[i - 1].pairPriority) continue;
        Pair moving = pairs[i];
        uint32_t j = i;
        while (j > 0 && pairs[j - 1].pairPriority < moving.pairPriority) {
            pairs[j] = pairs[j - 1];
            --j;
        }
        pairs[j] = moving;
    }
}

template <class P>
void Agent<P>::RecomputeAllPriorities(Inst* inst)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        for (uint32_t p = 0; p < ctrl->checkList.numberOfPairs; ++p) ComputePairPriority(inst, &ctrl->checkList.checkListPairs[p]);
        SortPairs(ctrl->checkList.checkListPairs, ctrl->checkList.numberOfPairs);
        for (uint32_t p = 0; p < ctrl->validList.numberOfElements; ++p) ComputePairPriority(inst, &ctrl->validList.pairs[p]);
        SortPairs(ctrl->validList.pairs, ctrl->validList.numberOfElements);
    }
}

template <class P>
void Agent<P>::PairFoundation(char* dst, uint32_t maxLength, const Pair* pair)
{
    if (dst == nullptr || maxLength == 0) return;
    std::snprintf(dst, maxLength, "%s%s", pair->localCandidate.foundation, pair->remoteCandidate.foundation);
}

template <class P>
bool Agent<P>::SameFoundation(const Pair* a, const Pair* b)
{
    return std::strcmp(a->localCandidate.foundation, b->localCandidate.foundation) == 0 &&
           std::strcmp(a->remoteCandidate.foundation, b->remoteCandidate.foundation) == 0;
}

template <class P>
void Agent<P>::FormPairs(Inst* inst, CheckList* list, const ICE_MEDIA_STREAM* local, const ICE_MEDIA_STREAM* remote,
                         uint32_t maxPairs)
{
    uint32_t n = 0;
    for (uint32_t l = 0; l < Count(local) && n < maxPairs; ++l) {
        const ICE_CANDIDATE& lc = local->candidate[l];
        for (uint32_t r = 0; r < Count(remote) && n < maxPairs; ++r) {
            const ICE_CANDIDATE& rc = remote->candidate[r];
            if (lc.componentid != rc.componentid || !TransportsFit(lc.transport, rc.transport)) continue;
            if (lc.connectionAddr.ss_family != rc.connectionAddr.ss_family) continue;
            Pair* p = &list->checkListPairs[n++];
            std::memset(static_cast<void*>(p), 0, sizeof *p);
            p->pairState = ICELIB_PAIR_PAIRED;
            p->pairId = list->id * 100 + ++list->nextPairId;
            p->localCandidate = lc;
            p->remoteCandidate = rc;
        }
    }
    list->numberOfPairs = n;
    Log(inst, ICELIB_logDebug, "Formed %u pairs from %u local and %u remote candidates", n, Count(local), Count(remote));
}

template <class P>
void Agent<P>::PrunePairs(CheckList* list, const ICE_CANDIDATE* base1, const ICE_CANDIDATE* base2)
{
    bool cleared[ICELIB_MAX_PAIRS] = {};
    const uint32_t n = list->numberOfPairs;
    for (uint32_t i = 0; i < n; ++i) {
        Pair& p = list->checkListPairs[i];
        // A server-reflexive candidate sends from its base: check from there.
        if (p.localCandidate.type == ICE_CAND_TYPE_SRFLX) {
            if (p.localCandidate.componentid == ICELIB_RTP_COMPONENT_ID && base1 != nullptr) p.localCandidate = *base1;
            if (p.localCandidate.componentid == ICELIB_RTCP_COMPONENT_ID && base2 != nullptr) p.localCandidate = *base2;
        }
        // A passive TCP end only answers.
        if (p.localCandidate.transport == ICE_TRANS_TCPPASS) cleared[i] = true;
    }
    for (uint32_t i = 0; i < n; ++i) {
        if (cleared[i]) continue;
        const Pair& a = list->checkListPairs[i];
        for (uint32_t j = i + 1; j < n; ++j) {
            const Pair& b = list->checkListPairs[j];
            if (!cleared[j] && std::memcmp(&a.localCandidate, &b.localCandidate, sizeof(ICE_CANDIDATE)) == 0 &&
                std::memcmp(&a.remoteCandidate, &b.remoteCandidate, sizeof(ICE_CANDIDATE)) == 0) {
                cleared[j] = true;
            }
        }
    }
    uint32_t out = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (cleared[i]) continue;
        if (out != i) list->checkListPairs[out] = list->checkListPairs[i];
        ++out;
    }
    for (uint32_t i = out; i < n; ++i) std::memset(static_cast<void*>(&list->checkListPairs[i]), 0, sizeof(Pair));
    list->numberOfPairs = out;
}

template <class P>
void Agent<P>::ComputeStatesSetWaitingFrozen(CheckList* list)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        Pair* p = &list->checkListPairs[i];
        if (p->pairState == ICELIB_PAIR_FROZEN) continue;
        p->pairState = ICELIB_PAIR_WAITING;
        for (uint32_t j = i + 1; j < list->numberOfPairs; ++j) {
            if (SameFoundation(p, &list->checkListPairs[j])) list->checkListPairs[j].pairState = ICELIB_PAIR_FROZEN;
        }
    }
}

template <class P>
void Agent<P>::SetAllFrozen(CheckList* list)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) list->checkListPairs[i].pairState = ICELIB_PAIR_FROZEN;
}

template <class P>
bool Agent<P>::MakeCheckList(Inst* inst, Ctrl* ctrl, const ICE_MEDIA_STREAM* local, const ICE_MEDIA_STREAM* remote)
{
    CheckList* list = &ctrl->checkList;
    if (list->ufragLocal[0] != '\0' && std::strcmp(list->ufragLocal, local->ufrag) == 0) {
        // Same credentials: this stream is unchanged and needs no checks.
        list->numberOfPairs = 0;
        list->checkListState = ICELIB_CHECKLIST_COMPLETED;
        return false;
    }
    const uint32_t id = list->id;
    std::memset(static_cast<void*>(list), 0, sizeof *list);
    list->id = id;
    CopyText(list->ufragLocal, local->ufrag, sizeof list->ufragLocal);
    CopyText(list->ufragRemote, remote->ufrag, sizeof list->ufragRemote);
    CopyText(list->passwdLocal, local->passwd, sizeof list->passwdLocal);
    CopyText(list->passwdRemote, remote->passwd, sizeof list->passwdRemote);
    list->checkListState = ICELIB_CHECKLIST_IDLE;

    if (local->numberOfCandidates == 0) {
        Log(inst, ICELIB_logInfo, "No Candidates. Disabled local medialine. Checklist state set to Complete\n");
        list->checkListState = ICELIB_CHECKLIST_COMPLETED;
        return false;
    }
    if (remote->numberOfCandidates == 0) {
        Log(inst, ICELIB_logInfo, "No Candidates. Disabled remote medialine. Checklist state set to Complete\n");
        list->checkListState = ICELIB_CHECKLIST_COMPLETED;
        return false;
    }
    FormPairs(inst, list, local, remote, inst->iceConfiguration.maxCheckListPairs);
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) ComputePairPriority(inst, &list->checkListPairs[i]);
    SortPairs(list->checkListPairs, list->numberOfPairs);

    const ICE_CANDIDATE* base1 = nullptr;
    const ICE_CANDIDATE* base2 = nullptr;
    for (uint32_t i = 0; i < Count(local); ++i) {
        const ICE_CANDIDATE& c = local->candidate[i];
        if (c.type != ICE_CAND_TYPE_HOST) continue;
        if (c.componentid == ICELIB_RTP_COMPONENT_ID) base1 = &c;
        if (c.componentid == ICELIB_RTCP_COMPONENT_ID) base2 = &c;
    }
    bool anyHost = false;
    for (uint32_t i = 0; i < Count(local); ++i) anyHost |= local->candidate[i].type == ICE_CAND_TYPE_HOST;
    if (!anyHost) {
        Log(inst, ICELIB_logError, "No host candidate to base reflexive candidates on. Checklist failed\n");
        list->checkListState = ICELIB_CHECKLIST_FAILED;
        return false;
    }

    ICELIB_COMPONENTLIST& comps = list->componentList;
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        const uint32_t cid = list->checkListPairs[i].localCandidate.componentid;
        bool known = false;
        for (uint32_t k = 0; k < comps.numberOfComponents; ++k) known |= comps.componentIds[k] == cid;
        if (!known && comps.numberOfComponents < ICE_MAX_COMPONENTS) comps.componentIds[comps.numberOfComponents++] = cid;
    }
    if (comps.numberOfComponents == 0) {
        Log(inst, ICELIB_logError, "No pairs formed. Checklist failed\n");
        list->checkListState = ICELIB_CHECKLIST_FAILED;
        return false;
    }
    PrunePairs(list, base1, base2);
    list->checkListState = ICELIB_CHECKLIST_RUNNING;
    return true;
}

template <class P>
void Agent<P>::MakeAllCheckLists(Inst* inst)
{
    inst->numberOfMediaStreams = 0;
    bool first = true;
    for (uint32_t i = 0; i < Lines(inst->localIceMedia); ++i) {
        const ICE_MEDIA_STREAM* local = &inst->localIceMedia.mediaStream[i];
        if (local->streamId < 0) continue;
        const ICE_MEDIA_STREAM* remote = nullptr;
        for (uint32_t r = 0; r < Lines(inst->remoteIceMedia); ++r) {
            if (inst->remoteIceMedia.mediaStream[r].streamId == local->streamId) {
                remote = &inst->remoteIceMedia.mediaStream[r];
                break;
            }
        }
        if (remote == nullptr) continue;
        Ctrl* ctrl = &inst->streamControllers[inst->numberOfMediaStreams];
        ctrl->checkList.id = inst->numberOfMediaStreams + 1;
        ++inst->numberOfMediaStreams;
        ctrl->mediaId = i;
        if (!MakeCheckList(inst, ctrl, local, remote)) continue;
        // RFC 5245 5.7.4: only the first media stream starts with WAITING pairs; later ones wait
        // for it to find their foundations.
        if (first) {
            ComputeStatesSetWaitingFrozen(&ctrl->checkList);
            first = false;
        } else {
            SetAllFrozen(&ctrl->checkList);
        }
    }
}

template <class P>
typename Agent<P>::Pair* Agent<P>::FindPairById(CheckList* list, uint32_t pairId)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        if (list->checkListPairs[i].pairId == pairId) return &list->checkListPairs[i];
    }
    return nullptr;
}

template <class P>
typename Agent<P>::Pair* Agent<P>::FindPair(CheckList* list, const ICE_CANDIDATE* local, const ICE_CANDIDATE* remote)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        Pair* p = &list->checkListPairs[i];
        if (p->localCandidate.componentid == local->componentid &&
            sockaddr_alike(Sa(p->localCandidate.connectionAddr), Sa(local->connectionAddr)) &&
            sockaddr_alike(Sa(p->remoteCandidate.connectionAddr), Sa(remote->connectionAddr))) {
            return p;
        }
    }
    return nullptr;
}

template <class P>
typename Agent<P>::Pair* Agent<P>::InsertIntoCheckList(Inst* inst, Ctrl* ctrl, const ICE_CANDIDATE* local,
                                                       const ICE_CANDIDATE* remote)
{
    CheckList* list = &ctrl->checkList;
    if (list->numberOfPairs >= ICELIB_MAX_PAIRS) return nullptr;
    Pair fresh;
    std::memset(static_cast<void*>(&fresh), 0, sizeof fresh);
    fresh.pairState = ICELIB_PAIR_WAITING;
    fresh.pairId = list->id * 100 + ++list->nextPairId;
    fresh.localCandidate = *local;
    fresh.remoteCandidate = *remote;
    ComputePairPriority(inst, &fresh);
    uint32_t at = list->numberOfPairs;
    while (at > 0 && list->checkListPairs[at - 1].pairPriority < fresh.pairPriority) {
        list->checkListPairs[at] = list->checkListPairs[at - 1];
        --at;
    }
    list->checkListPairs[at] = fresh;
    ++list->numberOfPairs;
    return &list->checkListPairs[at];
}

template <class P>
void Agent<P>::RemovePairAt(Ctrl* ctrl, uint32_t index)
{
    CheckList* list = &ctrl->checkList;
    if (index >= list->numberOfPairs) return;
    FifoRemove(&ctrl->triggeredChecksFifo, list->checkListPairs[index].pairId);
    for (uint32_t i = index; i + 1 < list->numberOfPairs; ++i) list->checkListPairs[i] = list->checkListPairs[i + 1];
    --list->numberOfPairs;
    std::memset(static_cast<void*>(&list->checkListPairs[list->numberOfPairs]), 0, sizeof(Pair));
}

template <class P>
bool Agent<P>::AllPairsDone(const CheckList* list)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        const ICELIB_PAIR_STATE s = list->checkListPairs[i].pairState;
        if (s != ICELIB_PAIR_SUCCEEDED && s != ICELIB_PAIR_FAILED) return false;
    }
    return true;
}

template <class P>
bool Agent<P>::HasPairInState(const CheckList* list, ICELIB_PAIR_STATE state)
{
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        if (list->checkListPairs[i].pairState == state) return true;
    }
    return false;
}

template <class P>
bool Agent<P>::IsListFrozen(const CheckList* list)
{
    if (list->numberOfPairs == 0) return false;
    for (uint32_t i = 0; i < list->numberOfPairs; ++i) {
        if (list->checkListPairs[i].pairState != ICELIB_PAIR_FROZEN) return false;
    }
    return true;
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
