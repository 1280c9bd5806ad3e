// ICE agent (RFC 5245, full and lite), in both profiles of the stack: qlox_gatewalk::ICELIB_... and
// zyn_gatewalk::ICELIB_....
//
// No heap, no sockets, no clock, no threads. The owner feeds in local and remote media streams and
// candidates, calls ICELIB_Start, then ICELIB_Tick every tickIntervalMS (10 ms paces one check per
// tick over all streams). Checks leave through the outgoing-request callback; the owner decodes
// what comes back and hands it in through ICELIB_incomingBindingRequest / ...Response / ...Timeout.
// The end of ICE is told once through the complete callback. All calls to one instance come from one
// thread; callbacks run inside the call that caused them and must not re-enter the incoming calls.
//
// Refused inputs are logged through the log callback and answered with -1 or false; the instance
// stays usable. Indexes (mediaIdx, candIdx) are checked against the tables.
//
// zyn_gatewalk differs: 6 media lines instead of 9; UDP only (TCP candidates are refused);
// ICELIB_calculatePriority and ICELIB_createFoundation take no transport; a configurable time limit
// (iceTimeoutMS, default 10000 ms) instead of 5000 ms; no keep-alive, nominated callback, dropRflx,
// stream removal or ICELIB_getRemoteUfragPasswd; nomination readiness is weighted by candidate type,
// the pair's rank and its age in the valid list.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

#include "icelibtypes.h"

// The same functions in both profiles.
#define GATEWALK_ICELIB_API                                                                                    \
    using ICELIB_LIST_PAIR = gatewalk::IcelibListPair<IcelibProfile>;                                          \
    using ICELIB_CHECKLIST = gatewalk::IcelibCheckList<IcelibProfile>;                                         \
    using ICELIB_VALIDLIST = gatewalk::IcelibValidList<IcelibProfile>;                                         \
    using ICELIB_STREAM_CONTROLLER = gatewalk::IcelibStreamController<IcelibProfile>;                          \
    using ICELIB_CONFIGURATION = gatewalk::IcelibConfiguration<IcelibProfile>;                                 \
    using ICE_MEDIA = gatewalk::IceMedia<ICE_MAX_MEDIALINES>;                                                  \
    using tag_ICELIB_INSTANCE = gatewalk::IcelibInstance<IcelibProfile>;                                       \
    using ICELIB_INSTANCE = tag_ICELIB_INSTANCE;                                                               \
    using gatewalk::ICE_CANDIDATE;                                                                             \
    using gatewalk::ICE_CANDIDATE_TYPE;                                                                        \
    using gatewalk::ICE_MEDIA_STREAM;                                                                          \
    using gatewalk::ICE_REMOTE_CANDIDATES;                                                                     \
    using gatewalk::ICE_TRANSPORT;                                                                             \
    using gatewalk::ICE_TURN_STATE;                                                                            \
    using gatewalk::ICELIB_CALLBACKS;                                                                          \
    using gatewalk::ICELIB_CHECKLIST_STATE;                                                                    \
    using gatewalk::ICELIB_logLevel;                                                                           \
    using gatewalk::ICELIB_PAIR_STATE;                                                                         \
    using gatewalk::ICELIB_STATE;                                                                              \
    using gatewalk::ICELIB_TRIGGERED_FIFO;                                                                     \
    using gatewalk::StunMsgId;                                                                                 \
                                                                                                               \
    /* ---- set up and control ---- */                                                                         \
    /* Zeroes the instance, keeps the configuration (maxCheckListPairs capped to 40; a 0 tick interval is      \
       taken as 10 ms), state idle. */                                                                         \
    void ICELIB_Constructor(ICELIB_INSTANCE* instance, const ICELIB_CONFIGURATION* configuration);             \
    void ICELIB_Destructor(ICELIB_INSTANCE* instance);                                                         \
    /* Verifies both media tables, forms the check lists, state running. False (state mangled) when a          \
       side has no enabled line or a line whose default address is not among its candidates. */                \
    bool ICELIB_Start(ICELIB_INSTANCE* instance, bool controlling, uint64_t tieBreaker);                       \
    /* Stops every check list: checks in flight are cancelled, nothing new is scheduled. */                    \
    void ICELIB_Stop(ICELIB_INSTANCE* instance);                                                               \
    /* Back to idle with empty media tables and lists, keeping configuration and callbacks. */                 \
    void ICELIB_ReStart(ICELIB_INSTANCE* instance, uint64_t tieBreaker);                                       \
    /* Gives every local password to the password callback again. */                                           \
    void ICELIB_PasswordUpdate(ICELIB_INSTANCE* instance);                                                     \
    /* Advances time by tickIntervalMS: at most one check, conclusion, time limit, keep-alive. */              \
    void ICELIB_Tick(ICELIB_INSTANCE* instance);                                                               \
    bool ICELIB_isRunning(const ICELIB_INSTANCE* instance);                                                    \
    bool ICELIB_isIceComplete(const ICELIB_INSTANCE* instance);                                                \
    bool ICELIB_isControlling(const ICELIB_INSTANCE* instance);                                                \
    bool ICELIB_isMangled(const ICELIB_INSTANCE* instance);                                                    \
    /* Mangled because the remote media failed the ICE support check. */                                       \
    bool ICELIB_isUnsupportedByRemote(const ICELIB_INSTANCE* instance);                                        \
    /* A changed ufrag or password of the remote stream at mediaIdx; false for a line without values. */       \
    bool ICELIB_isRestart(ICELIB_INSTANCE* instance, uint32_t mediaIdx, const char* ufrag, const char* passwd); \
    ICELIB_STATE ICELIB_getState(const ICELIB_INSTANCE* instance);                                             \
                                                                                                               \
    /* ---- media and candidates ---- */                                                                       \
    /* Appends a local stream with a fresh ufrag and password; its index or -1. */                             \
    int32_t ICELIB_addLocalMediaStream(ICELIB_INSTANCE* instance, int32_t streamId, uint32_t userValue1,       \
                                       uint32_t userValue2, ICE_CANDIDATE_TYPE defaultCandType);               \
    int32_t ICELIB_setLocalMediaStream(ICELIB_INSTANCE* instance, int32_t streamId, uint32_t mediaIdx,         \
                                       uint32_t userValue1, uint32_t userValue2,                               \
                                       ICE_CANDIDATE_TYPE defaultCandType);                                    \
    /* Ufrag, password and default address are required; its index or -1. */                                   \
    int32_t ICELIB_addRemoteMediaStream(ICELIB_INSTANCE* instance, int32_t streamId, const char* ufrag,        \
                                        const char* passwd, const struct sockaddr* defaultAddr);               \
    int32_t ICELIB_setRemoteMediaStream(ICELIB_INSTANCE* instance, int32_t streamId, uint32_t mediaIdx,        \
                                        const char* ufrag, const char* passwd,                                 \
                                        const struct sockaddr* defaultAddr);                                   \
    /* Priority and foundation are computed here. The first component-1 candidate of the stream's default      \
       type becomes its default address. The candidate's index, or -1. */                                      \
    int32_t ICELIB_addLocalCandidate(ICELIB_INSTANCE* instance, uint32_t mediaIdx, uint32_t componentId,       \
                                     const struct sockaddr* connectionAddr, const struct sockaddr* relAddr,    \
                                     ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE candType, uint16_t localPref); \
    /* connectionAddr is the address text (IPv4 or IPv6), port in host order. The index, or -1 (also for       \
       an empty, invalid or redundant candidate, which is dropped). */                                         \
    int32_t ICELIB_addRemoteCandidate(ICELIB_INSTANCE* instance, uint32_t mediaIdx, const char* foundation,    \
                                      uint32_t componentId, uint32_t priority, const char* connectionAddr,     \
                                      uint16_t port, ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE candType);    \
    /* The default address becomes that of the stream's first component-1 candidate of candType. */            \
    void ICELIB_updateLocalMediaStreamDefaultCandidate(ICELIB_INSTANCE* instance, uint32_t mediaIdx,           \
                                                       ICE_CANDIDATE_TYPE candType);                           \
    void ICELIB_EliminateRedundantCandidates(ICELIB_INSTANCE* instance);                                       \
                                                                                                               \
    /* ---- incoming ---- */                                                                                   \
    /* A Binding request whose integrity the caller checked with the local password. `source` is where it      \
       came from, `destination` the local address it reached (the relay address when fromRelay, with           \
       relayAddr the same); userValue1/2 come back with the response. */                                       \
    void ICELIB_incomingBindingRequest(ICELIB_INSTANCE* instance, uint32_t userValue1, uint32_t userValue2,    \
                                       const char* ufragPair, uint32_t peerPriority, bool useCandidate,        \
                                       bool iceControlling, bool iceControlled, uint64_t tieBreaker,           \
                                       StunMsgId transactionId, int sockHandle, const struct sockaddr* source, \
                                       const struct sockaddr* destination, bool fromRelay,                     \
                                       const struct sockaddr* relayAddr, uint16_t componentId);                \
    /* A response to a check (integrity checked with the remote password): errorCode 200 for a success,        \
       the error code otherwise; mappedAddr is its XOR-MAPPED-ADDRESS (may be null for an error). */           \
    void ICELIB_incomingBindingResponse(ICELIB_INSTANCE* instance, uint16_t errorCode, StunMsgId transactionId, \
                                        const struct sockaddr* source, const struct sockaddr* destination,     \
                                        const struct sockaddr* mappedAddr);                                    \
    /* The check with this id got no answer. */                                                                \
    void ICELIB_incomingTimeout(ICELIB_INSTANCE* instance, StunMsgId transactionId);                           \
                                                                                                               \
    /* ---- callbacks ---- */                                                                                  \
    void ICELIB_setCallbackOutgoingBindingRequest(ICELIB_INSTANCE* instance,                                   \
                                                  gatewalk::ICELIB_outgoingBindingRequest function,            \
                                                  void* userData);                                             \
    void ICELIB_setCallbackOutgoingBindingResponse(ICELIB_INSTANCE* instance,                                  \
                                                   gatewalk::ICELIB_outgoingBindingResponse function,          \
                                                   void* userData);                                            \
    void ICELIB_setCallbackOutgoingCancelRequest(ICELIB_INSTANCE* instance,                                    \
                                                 gatewalk::ICELIB_outgoingCancelRequest function, void* userData); \
    void ICELIB_setCallbackConnecitivityChecksComplete(ICELIB_INSTANCE* instance,                              \
                                                       gatewalk::ICELIB_connectivityChecksComplete function,   \
                                                       void* userData);                                        \
    void ICELIB_setCallbackKeepAlive(ICELIB_INSTANCE* instance, gatewalk::ICELIB_sendKeepAlive function,       \
                                     void* userData);                                                          \
    void ICELIB_setCallbackPasswordUpdate(ICELIB_INSTANCE* instance, gatewalk::ICELIB_passwordUpdate function, \
                                          void* userData);                                                     \
    /* Lines of a level below `level` are not formatted. */                                                    \
    void ICELIB_setCallbackLog(ICELIB_INSTANCE* instance, gatewalk::ICELIB_logCallback function, void* userData, \
                               ICELIB_logLevel level);                                                         \
    void ICELIB_setCallbackUpdateIceCheckList(ICELIB_INSTANCE* instance,                                       \
                                              gatewalk::ICELIB_updateIceCheckList function, void* userData);   \
                                                                                                               \
    /* ---- read access (null, -1 or the zero value for a bad index) ---- */                                   \
    const ICE_MEDIA_STREAM* ICELIB_getLocalMediaStream(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);    \
    const ICE_MEDIA_STREAM* ICELIB_getRemoteMediaStream(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);   \
    const ICE_MEDIA* ICELIB_getLocalIceMedia(const ICELIB_INSTANCE* instance);                                 \
    const ICE_MEDIA* ICELIB_getRemoteIceMedia(const ICELIB_INSTANCE* instance);                                \
    uint32_t ICELIB_getNumberOfLocalICEMediaLines(const ICELIB_INSTANCE* instance);                            \
    uint32_t ICELIB_getNumberOfRemoteICEMediaLines(const ICELIB_INSTANCE* instance);                           \
    uint32_t ICELIB_getNumberOfLocalCandidates(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);            \
    uint32_t ICELIB_getNumberOfRemoteCandidates(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);           \
    const ICE_CANDIDATE* ICELIB_getLocalCandidate(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,          \
                                                  uint32_t candIdx);                                           \
    const ICE_CANDIDATE* ICELIB_getRemoteCandidate(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,         \
                                                   uint32_t candIdx);                                          \
    ICE_CANDIDATE_TYPE ICELIB_getLocalCandidateType(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,        \
                                                    uint32_t candIdx);                                         \
    ICE_CANDIDATE_TYPE ICELIB_getRemoteCandidateType(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,       \
                                                     uint32_t candIdx);                                        \
    ICE_TRANSPORT ICELIB_getLocalTransport(const ICELIB_INSTANCE* instance, uint32_t mediaIdx, uint32_t candIdx); \
    ICE_TRANSPORT ICELIB_getRemoteTransport(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,                \
                                            uint32_t candIdx);                                                 \
    /* After completion: the local candidate of the nominated pair of that component (null before). A     \
       peer-reflexive one is the address the peer saw; its relAddr is the base the checks went from. */   \
    const ICE_CANDIDATE* ICELIB_getActiveCandidate(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,         \
                                                   uint32_t componentId);                                      \
    const ICE_REMOTE_CANDIDATES* ICELIB_getActiveRemoteCandidates(const ICELIB_INSTANCE* instance,             \
                                                                  uint32_t mediaIdx);                          \
    const struct sockaddr* ICELIB_getLocalRelayAddr(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);       \
    const ICE_CANDIDATE* ICELIB_getLocalRelayCandidate(const ICELIB_INSTANCE* instance, uint32_t mediaIdx,     \
                                                       uint32_t componentId);                                  \
    /* The relay address of the stream and component that own this host (base) address. */                     \
    const struct sockaddr* ICELIB_getLocalRelayAddrFromHostAddr(const ICELIB_INSTANCE* instance,               \
                                                                const struct sockaddr* hostAddr);              \
    ICE_TURN_STATE ICELIB_getTurnState(const ICELIB_INSTANCE* instance, uint32_t mediaIdx);                    \
    void ICELIB_setTurnState(ICELIB_INSTANCE* instance, uint32_t mediaIdx, ICE_TURN_STATE state);              \
    uint32_t ICELIB_getNumberOfCheckLists(const ICELIB_INSTANCE* instance);                                    \
    const ICELIB_CHECKLIST* ICELIB_getCheckList(const ICELIB_INSTANCE* instance, uint32_t listIdx);            \
    const ICELIB_VALIDLIST* ICELIB_getValidList(const ICELIB_INSTANCE* instance, uint32_t listIdx);            \
                                                                                                               \
    /* ---- pure helpers ---- */                                                                               \
    /* 2^32 * min(G, D) + 2 * max(G, D) + (G > D), G the controlling side's candidate priority. */             \
    uint64_t ICELIB_pairPriority(uint32_t controllingPriority, uint32_t controlledPriority);                   \
    /* Random printable text of maxLength - 1 base64 characters and the terminator. */                         \
    void ICELIB_createRandomString(char* dst, uint32_t maxLength);                                             \
    /* The low 6 * (maxLength - 1) bits of `data` as base64 digits, low end first, terminated. */              \
    void ICELIB_longToIcechar(uint64_t data, char* b64, uint32_t maxLength);                                   \
    void ICELIB_createUfrag(char* dst, uint32_t maxLength);                                                    \
    void ICELIB_createPasswd(char* dst, uint32_t maxLength);                                                   \
    uint64_t ICELIB_random64();                                                                                \
    uint64_t ICELIB_makeTieBreaker();                                                                          \
    StunMsgId ICELIB_generateTransactionId();                                                                  \
    /* Local foundation followed by the remote one, cut to maxLength - 1. */                                   \
    void ICELIB_getPairFoundation(char* dst, uint32_t maxLength, const ICELIB_LIST_PAIR* pair);                \
    /* Sort order of check lists: higher pairPriority first. */                                                \
    int ICELIB_comparePairsCL(const void* pair1, const void* pair2);                                           \
    const char* ICELIB_toString_CheckListState(ICELIB_CHECKLIST_STATE state);                                  \
    const char* ICELIB_toString_CheckListPairState(ICELIB_PAIR_STATE state);                                   \
    const char* ICELIB_toString_State(ICELIB_STATE state);                                                     \
    const char* ICE_candidateTypeToString(ICE_CANDIDATE_TYPE type);                                            \
    const char* ICE_transportToString(ICE_TRANSPORT transport);                                                \
    const char* ICELIB_componentIdToString(uint32_t componentId);

namespace qlox_gatewalk {
using IcelibProfile = gatewalk::IcelibQlox;
constexpr unsigned int ICE_MAX_MEDIALINES = IcelibProfile::kMaxMediaLines;  // 9
GATEWALK_ICELIB_API
// Type preference (host 126, srflx 100, relay 0, prflx 110; TCP 27 less, floor 0) << 24, localPref
// << 8, 256 - componentId.
uint32_t ICELIB_calculatePriority(ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t componentId,
                                  uint16_t localPref);
// "1" host, "2" prflx, "3" srflx, "4" relay; 4 more for tcpact, 8 more for tcppass; "unknowntype".
void ICELIB_createFoundation(char* dst, ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t maxLength);
// 17 for udp, 6 for tcpact and tcppass, -1 for none; a higher value stops the process.
int ICE_TRANSPORT_proto(ICE_TRANSPORT transport);
// Removes a media stream and closes the gap; 0 or -1.
int32_t ICELIB_removeLocalMediaStream(ICELIB_INSTANCE* instance, uint32_t mediaIdx);
int32_t ICELIB_removeRemoteMediaStream(ICELIB_INSTANCE* instance, uint32_t mediaIdx);
// No peer-reflexive candidates are made from now on.
void ICELIB_dropRflx(ICELIB_INSTANCE* instance);
void ICELIB_setCallbackNominated(ICELIB_INSTANCE* instance, gatewalk::ICELIB_nominated function, void* userData);
// Pointers into the instance; false for a bad index.
bool ICELIB_getRemoteUfragPasswd(const ICELIB_INSTANCE* instance, uint32_t mediaIdx, const char** ufrag,
                                 const char** passwd);
}  // namespace qlox_gatewalk

namespace zyn_gatewalk {
using IcelibProfile = gatewalk::IcelibZyn;
constexpr unsigned int ICE_MAX_MEDIALINES = IcelibProfile::kMaxMediaLines;  // 6
GATEWALK_ICELIB_API
uint32_t ICELIB_calculatePriority(ICE_CANDIDATE_TYPE type, uint32_t componentId, uint16_t localPref);
void ICELIB_createFoundation(char* dst, ICE_CANDIDATE_TYPE type, uint32_t maxLength);
// Nomination readiness: host 50, srflx 25, relay 10, prflx 20, others 0.
uint32_t ICELIB_getCandidateTypeWeight(ICE_CANDIDATE_TYPE type);
// (local weight + 2 * remote weight) * ms, ms being the time the valid pair has been known.
uint32_t ICELIB_calculateReadyWeight(ICE_CANDIDATE_TYPE localType, ICE_CANDIDATE_TYPE remoteType, uint32_t ms);
}  // namespace zyn_gatewalk

#undef GATEWALK_ICELIB_API
