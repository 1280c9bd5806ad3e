// Records, limits and callback types of the ICE agent (ICELIB), shared by both profiles of the stack.
//
// Everything is a flat record with fixed tables: the whole agent is one zeroed block that its owner
// allocates once. The records that differ between the profiles are templates over a small traits
// type (IcelibQlox, IcelibZyn below); icelib.h gives each profile namespace its own names for them.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

#include "stunlib_types.h"

namespace gatewalk {

// ---- limits --------------------------------------------------------------------------------------
constexpr unsigned int ICE_MAX_CANDIDATES = 12;          // per media stream
constexpr unsigned int ICELIB_MAX_PAIRS = 40;            // per check list, and per valid list
constexpr unsigned int ICELIB_MAX_FIFO_ELEMENTS = 40;    // triggered checks queued per check list
constexpr unsigned int ICELIB_MAX_NO_OF_TRANSID = 5;     // checks in flight remembered per pair
constexpr unsigned int ICE_MAX_COMPONENTS = 5;           // component ids collected per check list
constexpr unsigned int ICE_MAX_UFRAG_LENGTH = 257;       // with the terminator
constexpr unsigned int ICE_MAX_PASSWD_LENGTH = 257;      // with the terminator
constexpr unsigned int ICE_MAX_FOUNDATION_LENGTH = 33;   // with the terminator
constexpr unsigned int ICE_MAX_UFRAG_PAIR_LENGTH = 515;  // "remote:local", with the terminator
// What ICELIB_addLocalMediaStream generates (with the terminator): RFC 5245 wants at least 24 bits
// of randomness in the ufrag and 128 in the password; 8 and 24 base64 characters give 48 and 144.
constexpr unsigned int ICELIB_UFRAG_LENGTH = 9;
constexpr unsigned int ICELIB_PASSWD_LENGTH = 25;

constexpr uint32_t ICELIB_RTP_COMPONENT_ID = 1;
constexpr uint32_t ICELIB_RTCP_COMPONENT_ID = 2;
// A fifo entry whose pair was taken out again.
constexpr uint32_t ICELIB_FIFO_ELEMENT_REMOVED = 0xFFFFFFFF;

// ---- enumerations --------------------------------------------------------------------------------
enum ICE_CANDIDATE_TYPE {
    ICE_CAND_TYPE_NONE = 0,
    ICE_CAND_TYPE_HOST = 1,
    ICE_CAND_TYPE_SRFLX = 2,
    ICE_CAND_TYPE_RELAY = 3,
    ICE_CAND_TYPE_PRFLX = 4,
};

// zyn_gatewalk refuses the two TCP values: it runs over UDP only.
enum ICE_TRANSPORT {
    ICE_TRANS_NONE = 0,
    ICE_TRANS_UDP = 1,
    ICE_TRANS_TCPACT = 2,
    ICE_TRANS_TCPPASS = 3,
};

// Kept for the connector, which tracks its TURN allocation per media stream here.
enum ICE_TURN_STATE {
    ICE_TURN_IDLE = 0,
    ICE_TURN_ALLOCATING = 1,
    ICE_TURN_ALLOCATED = 2,
    ICE_TURN_SETTING_PERMISSION = 3,
    ICE_TURN_PERMISSION_SET = 4,
    ICE_TURN_SETTING_CHANNEL = 5,
    ICE_TURN_CHANNEL_SET = 6,
};

// Value 2 is not used.
enum ICELIB_PAIR_STATE {
    ICELIB_PAIR_IDLE = 0,
    ICELIB_PAIR_PAIRED = 1,
    ICELIB_PAIR_FROZEN = 3,
    ICELIB_PAIR_WAITING = 4,
    ICELIB_PAIR_INPROGRESS = 5,
    ICELIB_PAIR_SUCCEEDED = 6,
    ICELIB_PAIR_FAILED = 7,
};

enum ICELIB_CHECKLIST_STATE {
    ICELIB_CHECKLIST_IDLE = 0,
    ICELIB_CHECKLIST_RUNNING = 1,
    ICELIB_CHECKLIST_COMPLETED = 2,
    ICELIB_CHECKLIST_FAILED = 3,
};

enum ICELIB_STATE {
    ICELIB_IDLE = 0,
    ICELIB_RUNNING = 1,
    ICELIB_COMPLETED = 2,
    ICELIB_MANGLED = 3,  // a media table failed the ICE support check; only ICELIB_ReStart leaves it
    ICELIB_FAILED = 4,
};

// A line goes out when its level is at least the configured one; -1 lets everything through.
enum ICELIB_logLevel {
    ICELIB_logAll = -1,
    ICELIB_logDebug = 0,
    ICELIB_logInfo = 1,
    ICELIB_logWarning = 2,
    ICELIB_logError = 3,
};

// ---- candidates and media ------------------------------------------------------------------------
// Empty when foundation[0] is 0. Records are always built zeroed (pairs compare them bytewise).
struct ICE_CANDIDATE {
    char foundation[ICE_MAX_FOUNDATION_LENGTH];
    uint32_t componentid;
    uint32_t priority;
    struct sockaddr_storage connectionAddr;
    ICE_TRANSPORT transport;
    ICE_CANDIDATE_TYPE type;
    struct sockaddr_storage relAddr;  // base (local) or related (remote) address; may be unset
    uint32_t userValue1;
    uint32_t userValue2;
};

// A media stream of one side. Disabled when it has no candidates.
struct ICE_MEDIA_STREAM {
    int32_t streamId;  // ties a local stream to the remote stream of the same id; -1 is none
    char ufrag[ICE_MAX_UFRAG_LENGTH];
    char passwd[ICE_MAX_PASSWD_LENGTH];
    ICE_CANDIDATE candidate[ICE_MAX_CANDIDATES];
    uint32_t numberOfCandidates;
    uint32_t userValue1;
    uint32_t userValue2;
    struct sockaddr_storage defaultAddr;
    ICE_CANDIDATE_TYPE defaultCandType;
    ICE_TURN_STATE turnState;
};

template <unsigned int MaxMediaLines>
struct IceMedia {
    ICE_MEDIA_STREAM mediaStream[MaxMediaLines];
    uint32_t numberOfICEMediaLines;
};

// The remote candidates of the nominated pairs of one stream, one per component, in the order of
// the check list's component ids.
struct ICE_REMOTE_CANDIDATES {
    ICE_CANDIDATE remoteCandidate[ICE_MAX_COMPONENTS];
    uint32_t numberOfComponents;
};

// ---- pairs and lists -----------------------------------------------------------------------------
// The profile's extra per-pair fields come first, as a base (empty in qlox_gatewalk).
template <class P>
struct IcelibListPair : P::PairExtra {
    ICELIB_PAIR_STATE pairState;
    uint32_t pairId;          // check list id * 100 + a running number from 1
    uint32_t refersToPairId;  // in a valid pair: the check-list pair that produced it
    bool defaultPair;
    bool useCandidate;           // checks of this pair carry USE-CANDIDATE
    bool triggeredUseCandidate;  // an incoming check carried USE-CANDIDATE
    bool nominatedPair;
    bool sentUseCandidateAlready;
    uint64_t pairPriority;
    ICE_CANDIDATE localCandidate;  // copies: the media tables may change while checks run
    ICE_CANDIDATE remoteCandidate;
    StunMsgId transactionIdTable[ICELIB_MAX_NO_OF_TRANSID];
    uint32_t numberOfTransactionIds;
};

struct ICELIB_COMPONENTLIST {
    uint32_t numberOfComponents;
    uint32_t componentIds[ICE_MAX_COMPONENTS];
};

template <class P>
struct IcelibCheckList : P::CheckListExtra {
    uint32_t id;
    char ufragLocal[ICE_MAX_UFRAG_LENGTH];
    char ufragRemote[ICE_MAX_UFRAG_LENGTH];
    char passwdLocal[ICE_MAX_PASSWD_LENGTH];
    char passwdRemote[ICE_MAX_PASSWD_LENGTH];
    ICELIB_CHECKLIST_STATE checkListState;
    uint8_t nominatedPairSent;
    uint8_t stopChecks;
    uint32_t numberOfPairs;
    uint8_t timerRunning;
    uint8_t checkListStopped;
    IcelibListPair<P> checkListPairs[ICELIB_MAX_PAIRS];
    ICELIB_COMPONENTLIST componentList;
    uint32_t nextPairId;
};

// Kept sorted by pair priority, highest first.
template <class P>
struct IcelibValidList {
    IcelibListPair<P> pairs[ICELIB_MAX_PAIRS];
    uint32_t numberOfElements;
    uint32_t nextPairId;
};

// Ring of pair ids; ICELIB_FIFO_ELEMENT_REMOVED marks an entry taken out.
struct ICELIB_TRIGGERED_FIFO {
    uint32_t elements[ICELIB_MAX_FIFO_ELEMENTS];
    uint32_t head;
    uint32_t tail;
    bool isFull;
};

template <class P>
struct IcelibStreamController {
    uint32_t mediaId;  // index of the local (and remote) media stream
    IcelibCheckList<P> checkList;
    IcelibValidList<P> validList;
    ICELIB_TRIGGERED_FIFO triggeredChecksFifo;
    // Peer-reflexive candidates learnt while checking: ours from responses, the peer's from requests.
    ICE_CANDIDATE discoveredLocalCandidates[ICE_MAX_CANDIDATES];
    uint32_t numberOfDiscoveredLocalCandidates;
    ICE_CANDIDATE discoveredRemoteCandidates[ICE_MAX_CANDIDATES];
    uint32_t numberOfDiscoveredRemoteCandidates;
    ICE_REMOTE_CANDIDATES remoteCandidates;  // filled at completion
};

// ---- callbacks -----------------------------------------------------------------------------------
// All run synchronously inside ICELIB_Tick or an incoming call, on the caller's thread. They may
// send, but must not call the instance's incoming functions.

// Send a connectivity check: a Binding request from `source` to `destination` with USERNAME
// `ufragPair`, PRIORITY `priority`, USE-CANDIDATE if `useCandidate`, ICE-CONTROLLING (if
// `iceControlling`) or ICE-CONTROLLED with `tieBreaker`, MESSAGE-INTEGRITY keyed with `password`.
// `proto` is 17 (UDP) or 6 (TCP). Retransmission is the sender's work; it reports the end of a
// check without an answer through ICELIB_incomingTimeout.
using ICELIB_outgoingBindingRequest = void (*)(void* userData, int proto, const struct sockaddr* source,
                                               const struct sockaddr* destination, uint32_t userValue1,
                                               uint32_t userValue2, uint32_t componentId, bool useRelay,
                                               const char* ufragPair, const char* password, uint32_t priority,
                                               bool useCandidate, bool iceControlling, uint64_t tieBreaker,
                                               StunMsgId transactionId);
// Answer a check: errorCode 200 is a success carrying XOR-MAPPED-ADDRESS `mappedAddress`; 400 and
// 487 are error responses. Integrity is keyed with `password`, the local one. The user values are
// those given with the request.
using ICELIB_outgoingBindingResponse = void (*)(void* userData, uint32_t userValue1, uint32_t userValue2,
                                                uint32_t componentId, const struct sockaddr* source,
                                                const struct sockaddr* destination,
                                                const struct sockaddr* mappedAddress, uint16_t errorCode,
                                                StunMsgId transactionId, bool useRelay, const char* password);
// Stop retransmitting a check; no timeout needs to be reported for it any more.
using ICELIB_outgoingCancelRequest = void (*)(void* userData, uint32_t userValue1, StunMsgId transactionId);
// ICE ended. userValue1 is that of the first local media stream.
using ICELIB_connectivityChecksComplete = void (*)(void* userData, uint32_t userValue1, bool isControlling,
                                                   bool iceFailed);
// A pair was nominated (qlox_gatewalk only). `priority` is the pair priority.
using ICELIB_nominated = void (*)(void* userData, uint32_t userValue1, uint32_t userValue2, uint32_t componentId,
                                  uint64_t priority, int32_t proto, const struct sockaddr* local,
                                  const struct sockaddr* remote);
// Keep-alive due for a local media stream.
using ICELIB_sendKeepAlive = void (*)(void* userData, uint32_t userValue1, uint32_t userValue2, uint32_t mediaIdx);
// The local password of a media stream, for the server half that checks incoming integrity.
using ICELIB_passwordUpdate = void (*)(void* userData, uint32_t userValue1, uint32_t userValue2,
                                       const char* password);
using ICELIB_logCallback = void (*)(void* userData, ICELIB_logLevel level, const char* text);
// The valid list or the check lists changed (true); false when ICE ended without completing.
using ICELIB_updateIceCheckList = void (*)(void* userData, bool changed);

struct ICELIB_CALLBACKS {
    ICELIB_outgoingBindingRequest outgoingBindingRequest;
    void* outgoingBindingRequestUserData;
    ICELIB_outgoingBindingResponse outgoingBindingResponse;
    void* outgoingBindingResponseUserData;
    ICELIB_outgoingCancelRequest outgoingCancelRequest;
    void* outgoingCancelRequestUserData;
    ICELIB_connectivityChecksComplete connectivityChecksComplete;
    void* connectivityChecksCompleteUserData;
    ICELIB_nominated nominated;
    void* nominatedUserData;
    ICELIB_sendKeepAlive keepAlive;
    void* keepAliveUserData;
    ICELIB_passwordUpdate passwordUpdate;
    void* passwordUpdateUserData;
    ICELIB_logCallback log;
    void* logUserData;
    ICELIB_logLevel logLevel;
    ICELIB_updateIceCheckList updateIceCheckList;
    void* updateIceCheckListUserData;
};

// ---- configuration and instance ------------------------------------------------------------------
template <class P>
struct IcelibConfiguration : P::ConfigExtra {
    uint32_t tickIntervalMS;      // how often the owner calls ICELIB_Tick; 10 paces checks at RFC 5245's Ta
    uint32_t keepAliveIntervalS;
    uint32_t maxCheckListPairs;   // capped to ICELIB_MAX_PAIRS by ICELIB_Constructor
    bool aggressiveNomination;
    bool iceLite;
    bool dropRflx;
    ICELIB_logLevel logLevel;
};

// One flat block, zeroed by its owner before ICELIB_Constructor.
template <class P>
struct IcelibInstance {
    ICELIB_STATE iceState;
    IcelibConfiguration<P> iceConfiguration;
    ICELIB_CALLBACKS callbacks;
    IceMedia<P::kMaxMediaLines> localIceMedia;
    IceMedia<P::kMaxMediaLines> remoteIceMedia;
    bool roleHasSwapped;
    bool iceControlling;
    bool iceControlled;
    bool iceSupportVerified;
    uint64_t tieBreaker;
    IcelibStreamController<P> streamControllers[P::kMaxMediaLines];
    uint32_t numberOfMediaStreams;  // stream controllers in use
    uint32_t roundRobinCheckListIndex;
    uint32_t tickCount;
    uint32_t keepAliveTickCount;
};

// ---- profiles ------------------------------------------------------------------------------------
struct IcelibQlox {
    static constexpr unsigned int kMaxMediaLines = 9;
    struct PairExtra {};
    struct CheckListExtra {};
    struct ConfigExtra {};
};

struct IcelibZyn {
    static constexpr unsigned int kMaxMediaLines = 6;
    struct PairExtra {
        // How ready a valid pair is to be nominated: see ICELIB_isNominatingCriteriaMet in icelib.h.
        uint32_t readyToNominateWeight;
        uint32_t firstSeenMs;  // tickCount * tickIntervalMS when it entered the valid list
    };
    struct CheckListExtra {
        uint32_t readyToNominateWeight;                 // the weakest component's best weight
        uint32_t bestBaseWeight[ICE_MAX_COMPONENTS];    // base weight of each component's best pair
    };
    struct ConfigExtra {
        // ICE fails on the first tick past this many milliseconds; 0 means 10000.
        uint32_t iceTimeoutMS;
        uint32_t flag;  // carried for the connector, which passes 0
    };
};

}  // namespace gatewalk
