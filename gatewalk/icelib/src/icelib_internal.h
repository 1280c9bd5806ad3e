// The ICE agent, written once for both profiles: Agent<P> holds every step as a static function over
// the flat instance record. Its members are defined across the source files of this folder, each of
// which instantiates Agent for both profiles at its end. Profile differences are `if constexpr` on
// the traits below.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <type_traits>

#include "icelib.h"

namespace gatewalk::icelib_detail {

template <class P>
inline constexpr bool kZyn = std::is_same_v<P, IcelibZyn>;

// RFC 5245 section 4.1.2.1 recommends 126 / 110 / 100 / 0 for host, prflx, srflx and relay.
constexpr uint32_t kTypePrefHost = 126;
constexpr uint32_t kTypePrefSrflx = 100;
constexpr uint32_t kTypePrefRelay = 0;
constexpr uint32_t kTypePrefPrflx = 110;
// TCP candidates lose this much type preference, so UDP of the same type always wins by a fixed
// margin while relay stays at the floor of 0.
constexpr uint32_t kTcpTypePrefPenalty = 27;
// PRIORITY of our checks: a peer-reflexive candidate with the highest local preference.
constexpr uint16_t kCheckLocalPref = 65535;
// Without weighting (qlox_gatewalk) ICE gives up after this long.
constexpr uint32_t kQloxTimeLimitMs = 5000;
constexpr uint32_t kZynDefaultTimeLimitMs = 10000;
constexpr uint32_t kDefaultTickMs = 10;
// Weighted readiness (zyn_gatewalk): a pair is good enough to nominate above this weight.
constexpr uint32_t kReadyWeightThreshold = 999;
constexpr uint32_t kBaseWeightMax = 1000;
constexpr uint32_t kBaseWeightStep = 200;
constexpr unsigned int kLogLineSize = 1024;

uint32_t TypePreference(ICE_CANDIDATE_TYPE type);
uint32_t Priority(ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t componentId, uint16_t localPref);
void Foundation(char* dst, ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t maxLength);
uint64_t PairPriority(uint32_t controllingPriority, uint32_t controlledPriority);
StunMsgId NewTransactionId();
void RandomString(char* dst, uint32_t maxLength);
// Hex of the 12 bytes; `out` holds 25.
const char* IdText(const StunMsgId& id, char (&out)[25]);
// "1.2.3.4:5" / "[::1]:5" / "-"; `out` holds 64.
const char* AddrText(const struct sockaddr* address, char (&out)[64]);
inline const struct sockaddr* Sa(const struct sockaddr_storage& s) { return reinterpret_cast<const struct sockaddr*>(&s); }
inline struct sockaddr* Sa(struct sockaddr_storage& s) { return reinterpret_cast<struct sockaddr*>(&s); }
// Copies at most size - 1 bytes and terminates; a null source gives an empty text.
void CopyText(char* dst, const char* src, unsigned int size);
bool IsTcp(ICE_TRANSPORT transport);
// The tables are the owner's to write too: every walk is bounded by the table's size as well.
inline uint32_t Count(const ICE_MEDIA_STREAM* s)
{
    return s->numberOfCandidates < ICE_MAX_CANDIDATES ? s->numberOfCandidates : ICE_MAX_CANDIDATES;
}
template <unsigned int N>
inline uint32_t Lines(const IceMedia<N>& media)
{
    return media.numberOfICEMediaLines < N ? media.numberOfICEMediaLines : N;
}
void LongToIcechar(uint64_t data, char* b64, uint32_t maxLength);
uint64_t RandomU64();
const char* PairStateName(ICELIB_PAIR_STATE state);
const char* CheckListStateName(ICELIB_CHECKLIST_STATE state);
const char* StateName(ICELIB_STATE state);
const char* CandidateTypeName(ICE_CANDIDATE_TYPE type);
const char* TransportName(ICE_TRANSPORT transport);
const char* ComponentName(uint32_t componentId);
int TransportProto(ICE_TRANSPORT transport);
// Weighted nomination readiness of zyn_gatewalk.
uint32_t CandidateTypeWeight(ICE_CANDIDATE_TYPE type);
uint32_t ReadyWeight(ICE_CANDIDATE_TYPE localType, ICE_CANDIDATE_TYPE remoteType, uint32_t ms);

template <class P>
struct Agent {
    using Inst = IcelibInstance<P>;
    using Config = IcelibConfiguration<P>;
    using Pair = IcelibListPair<P>;
    using CheckList = IcelibCheckList<P>;
    using ValidList = IcelibValidList<P>;
    using Ctrl = IcelibStreamController<P>;
    static constexpr unsigned int kLines = P::kMaxMediaLines;

    // ---- icelib.cpp: lifecycle, tick, logging ---------------------------------------------------
    static void Constructor(Inst* inst, const Config* config);
    static bool Start(Inst* inst, bool controlling, uint64_t tieBreaker);
    static void Stop(Inst* inst);
    static void ReStart(Inst* inst, uint64_t tieBreaker);
    static void PasswordUpdate(Inst* inst);
    static void Tick(Inst* inst);
    static bool IsRestart(Inst* inst, uint32_t mediaIdx, const char* ufrag, const char* passwd);
    static bool UnsupportedByRemote(const Inst* inst);
    static void Log(const Inst* inst, ICELIB_logLevel level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
    static void SetState(Inst* inst, ICELIB_STATE state);
    static void NotifyCheckListUpdate(Inst* inst, bool changed);

    // ---- icelib_media.cpp: media streams and candidates -----------------------------------------
    static int32_t AddLocalMediaStream(Inst* inst, int32_t streamId, uint32_t uv1, uint32_t uv2,
                                       ICE_CANDIDATE_TYPE defaultType);
    static int32_t SetLocalMediaStream(Inst* inst, int32_t streamId, uint32_t mediaIdx, uint32_t uv1, uint32_t uv2,
                                       ICE_CANDIDATE_TYPE defaultType);
    static int32_t AddRemoteMediaStream(Inst* inst, int32_t streamId, const char* ufrag, const char* passwd,
                                        const struct sockaddr* defaultAddr);
    static int32_t SetRemoteMediaStream(Inst* inst, int32_t streamId, uint32_t mediaIdx, const char* ufrag,
                                        const char* passwd, const struct sockaddr* defaultAddr);
    static int32_t RemoveMediaStream(Inst* inst, IceMedia<kLines>* media, uint32_t mediaIdx);
    static int32_t AddLocalCandidate(Inst* inst, uint32_t mediaIdx, uint32_t componentId,
                                     const struct sockaddr* connectionAddr, const struct sockaddr* relAddr,
                                     ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE type, uint16_t localPref);
    static int32_t AddRemoteCandidate(Inst* inst, uint32_t mediaIdx, const char* foundation, uint32_t componentId,
                                      uint32_t priority, const char* connectionAddr, uint16_t port,
                                      ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE type);
    static void UpdateDefaultCandidate(Inst* inst, uint32_t mediaIdx, ICE_CANDIDATE_TYPE type);
    static void EliminateRedundantCandidates(ICE_MEDIA_STREAM* stream);
    static void EliminateAllRedundant(Inst* inst);
    // Remote (or, with local, local) media: every enabled line's default address is one of its
    // candidates, and at least one line is enabled. Quiet for a null instance log.
    static bool VerifyIceSupport(const Inst* inst, const IceMedia<kLines>& media, bool local, bool quiet);
    static const ICE_MEDIA_STREAM* RemoteStreamOf(const Inst* inst, const Ctrl* ctrl);
    static const ICE_MEDIA_STREAM* LocalStreamOf(const Inst* inst, const Ctrl* ctrl);

    // ---- icelib_checklist.cpp: forming check lists ----------------------------------------------
    static void MakeAllCheckLists(Inst* inst);
    static bool MakeCheckList(Inst* inst, Ctrl* ctrl, const ICE_MEDIA_STREAM* local, const ICE_MEDIA_STREAM* remote);
    static void FormPairs(Inst* inst, CheckList* list, const ICE_MEDIA_STREAM* local,
                          const ICE_MEDIA_STREAM* remote, uint32_t maxPairs);
    static void PrunePairs(CheckList* list, const ICE_CANDIDATE* base1, const ICE_CANDIDATE* base2);
    static void ComputeStatesSetWaitingFrozen(CheckList* list);
    static void SetAllFrozen(CheckList* list);
    static void SortPairs(Pair* pairs, uint32_t count);
    static void ComputePairPriority(const Inst* inst, Pair* pair);
    static void RecomputeAllPriorities(Inst* inst);
    static void PairFoundation(char* dst, uint32_t maxLength, const Pair* pair);
    static bool SameFoundation(const Pair* a, const Pair* b);
    static Pair* FindPairById(CheckList* list, uint32_t pairId);
    static Pair* FindPair(CheckList* list, const ICE_CANDIDATE* local, const ICE_CANDIDATE* remote);
    // Sorted insert of a new pair; null when the list is full.
    static Pair* InsertIntoCheckList(Inst* inst, Ctrl* ctrl, const ICE_CANDIDATE* local, const ICE_CANDIDATE* remote);
    static void RemovePairAt(Ctrl* ctrl, uint32_t index);
    static bool AllPairsDone(const CheckList* list);  // every pair SUCCEEDED or FAILED
    static bool HasPairInState(const CheckList* list, ICELIB_PAIR_STATE state);
    static bool IsListFrozen(const CheckList* list);   // has pairs, all FROZEN

    // ---- fifo.cpp: the triggered-check queue ----------------------------------------------------
    // Each returns true when the fifo is full and refused the pair.
    static bool FifoPut(ICELIB_TRIGGERED_FIFO* fifo, const Pair* pair);
    static bool FifoPutIfNotPresent(ICELIB_TRIGGERED_FIFO* fifo, const Pair* pair);
    static bool FifoIsPresent(const ICELIB_TRIGGERED_FIFO* fifo, uint32_t pairId);
    static Pair* FifoGet(Ctrl* ctrl);
    static void FifoRemove(ICELIB_TRIGGERED_FIFO* fifo, uint32_t pairId);
    static void FifoClear(ICELIB_TRIGGERED_FIFO* fifo);
    // Queues a triggered check and wakes the list's scheduler; logs a full queue.
    static void Trigger(Inst* inst, Ctrl* ctrl, Pair* pair);

    // ---- icelib_schedule.cpp: the pace of checks ------------------------------------------------
    static void TickStreamController(Inst* inst);
    static bool ScheduleSingle(Inst* inst, Ctrl* ctrl);
    static Pair* FindPairToSchedule(Inst* inst, Ctrl* ctrl);
    static void ScheduleCheck(Inst* inst, Ctrl* ctrl, Pair* pair);
    // No more copies of the pair's checks. An answer to a cancelled check still counts (RFC 5245
    // 7.2.1.4) unless `forget` drops the ids as well.
    static void CancelTransactions(Inst* inst, Pair* pair, bool forget);
    static void ForgetOldestTransaction(Inst* inst, Pair* pair);

    // ---- icelib_request.cpp: incoming checks ----------------------------------------------------
    static void IncomingRequest(Inst* inst, uint32_t uv1, uint32_t uv2, const char* ufragPair, uint32_t peerPriority,
                                bool useCandidate, bool controlling, bool controlled, uint64_t tieBreaker,
                                StunMsgId id, const struct sockaddr* source, const struct sockaddr* destination,
                                bool fromRelay, const struct sockaddr* relayAddr, uint16_t componentId);
    static void IncomingLite(Inst* inst, uint32_t uv1, uint32_t uv2, const char* ufragPair, uint32_t peerPriority,
                             bool useCandidate, StunMsgId id, const struct sockaddr* source,
                             const struct sockaddr* localAddr, bool fromRelay, uint16_t componentId);
    static Ctrl* FindStreamByAddress(Inst* inst, const struct sockaddr* address);
    static bool CompareUfragPair(const char* ufragPair, const CheckList* list);
    static void SendResponse(Inst* inst, Ctrl* ctrl, uint32_t uv1, uint32_t uv2, uint32_t componentId,
                             const struct sockaddr* source, const struct sockaddr* destination,
                             const struct sockaddr* mapped, uint16_t errorCode, StunMsgId id, bool useRelay);
    static const ICE_CANDIDATE* FindCandidate(const ICE_CANDIDATE* table, uint32_t count,
                                              const struct sockaddr* address);

    // ---- icelib_response.cpp: answers to our checks ---------------------------------------------
    static void IncomingResponse(Inst* inst, uint16_t errorCode, StunMsgId id, const struct sockaddr* source,
                                 const struct sockaddr* destination, const struct sockaddr* mappedAddr);
    static void IncomingTimeout(Inst* inst, StunMsgId id);
    static bool Correlate(Inst* inst, const StunMsgId& id, Ctrl** ctrl, Pair** pair);
    static void ProcessSuccessResponse(Inst* inst, Ctrl* ctrl, Pair* pair, const struct sockaddr* mappedAddr);
    static void UpdateCheckListState(Inst* inst, Ctrl* ctrl);
    static void UnfreezePairsByFoundation(CheckList* list, const char* pairFoundation);
    static void UnfreezeFrozenCheckList(CheckList* list);
    static bool IsPairForEachComponentInValidList(const Ctrl* ctrl);
    static Pair* FindValidPairReferring(Ctrl* ctrl, uint32_t checkListPairId);

    // ---- icelib_conclude.cpp: nomination and the end of ICE --------------------------------------
    static void ConcludeIfComplete(Inst* inst);
    static bool NominatingCriteriaMet(const Ctrl* ctrl);
    static void NominateRegularIfComplete(Inst* inst);
    static void NominateAggressive(Inst* inst);
    static void StopChecks(Inst* inst, Ctrl* ctrl);
    static Pair* PickValidPairForNomination(Ctrl* ctrl, uint32_t componentIndex);
    static void EnqueueValidPair(Inst* inst, Ctrl* ctrl, Pair* valid);
    static void UpdatingStates(Inst* inst);
    static void UpdateCheckListStateConcluding(Inst* inst, Ctrl* ctrl);
    static bool HasNominatedValidPair(const Ctrl* ctrl, uint32_t componentId);
    static const Pair* NominatedValidPair(const Ctrl* ctrl, uint32_t componentId);
    static void StoreRemoteCandidates(Inst* inst);
    static void ConcludeLite(Inst* inst);
    static void UpdateReadyToNominateWeighting(Inst* inst);
    static uint32_t BasePriorityWeight(const CheckList* list, uint32_t componentId, uint64_t priority);

    // ---- icelib_keepalive.cpp -------------------------------------------------------------------
    static void DoKeepAlive(Inst* inst);

    // ---- icelib_accessors.cpp -------------------------------------------------------------------
    static const Ctrl* ControllerOfMedia(const Inst* inst, uint32_t mediaIdx);
};

}  // namespace gatewalk::icelib_detail
