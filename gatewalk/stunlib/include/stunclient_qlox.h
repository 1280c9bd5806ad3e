// STUN Binding transactions, profile qlox_gatewalk: the client half (request, retransmission on a
// fixed schedule, matching by transaction id, one result through a callback), the server half that
// answers ICE connectivity checks, and a hop-by-hop path trace riding on the same transactions.
//
// No sockets, no threads, no clock: bytes leave through the caller's send function, responses come
// in decoded through StunClient_HandleIncResp, and time moves only by StunClient_HandleTick. All
// calls on one client must come from one thread at a time; callbacks and the send function run
// synchronously inside the call that caused them. A finished transaction's slot is freed after its
// callback returns, so a callback may start a new transaction (it gets another slot).
#pragma once

#include <sys/socket.h>

#include <cstdint>

#include "stunclient_common.h"
#include "stunlib_qlox.h"

namespace qlox_gatewalk {

using gatewalk::STUN_INCOMING_REQ_DATA;
using gatewalk::STUN_INFO_FUNC_PTR;
using gatewalk::StunClientStats;
using gatewalk::StunInfoCategory_T;
using gatewalk::StunPrint;

constexpr int STUNCLIENT_MAX_INSTANCES = 200;
// Copies of one request that get a time stamp (the first and eight retransmissions).
constexpr int STUNCLIENT_MAX_COPIES = 9;
constexpr unsigned int STUN_MAX_PASSWORD = 512;
// Binding transactions of the path trace use TTLs 1..40; 40 is also the probe that asks whether
// the far end answers at all.
constexpr int STUNTRACE_MAX_TTL = 40;

enum StunResult_T {
    StunResult_Empty = 0,                   // never delivered
    StunResult_BindOk = 1,                  // success with XOR-MAPPED-ADDRESS
    StunResult_BindFail = 2,                // error response
    StunResult_BindFailNoAnswer = 3,        // schedule exhausted
    StunResult_BindFailUnauthorised = 4,    // never delivered by this client
    StunResult_RoleConflict = 5,            // error 487
    StunResult_CancelComplete = 6,          // a cancelled transaction ran out its schedule
    StunResult_ICMPResp = 7,                // ICMP for the trace's transaction
    StunResult_InternalError = 8,           // never delivered by this client
    StunResult_MalformedResp = 9,           // success without XOR-MAPPED-ADDRESS
};

// "StunResult_BindOk", ...; "StunResult_UnKnown" for any other value.
const char* StunClient_resultToStr(int result);

// Zeroed before each delivery.
struct StunCallBackData_T {
    StunMsgId msgId;
    StunResult_T stunResult;
    struct sockaddr_storage rflxAddr;     // the mapped address of a success
    struct sockaddr_storage srcAddr;      // where the response (or ICMP) came from
    struct sockaddr_storage dstBaseAddr;  // the request's baseAddr
    uint32_t rtt;                         // microseconds of the client's tick clock
    uint32_t respTransCnt;                // TransCount echoed by the response: the copy it answers
    uint32_t reqTransCnt;
    uint32_t retransmits;                 // copies resent
    uint32_t ICMPtype;
    uint32_t ttl;                         // the transaction's own TTL, 0 outside the path trace
};

// keepAlive is always false from this client. `length` is 0 when a request could not be encoded.
using STUN_SENDFUNC = void (*)(void* userCtx, bool keepAlive, unsigned int connectionId, const unsigned char* bytes,
                               int length, const struct sockaddr* destination, int transport, bool useRelay,
                               unsigned char ttl);
using STUNCB = void (*)(void* userCtx, StunCallBackData_T* data);

// Filled by the caller of StunClient_startBindTransaction.
struct TransactionAttributes {
    StunMsgId transactionId;
    uint32_t connectionId;                  // passed through to the send function
    char username[STUN_MAX_USERNAME + 1];   // USERNAME if not empty
    char password[STUN_MAX_PASSWORD + 1];   // MESSAGE-INTEGRITY key (as text) if not empty
    uint32_t peerPriority;                  // PRIORITY if not 0
    bool useCandidate;
    bool iceControlling;                    // ICE-CONTROLLING, else ICE-CONTROLLED...
    uint64_t tieBreaker;                    // ...with this value; 0 leaves both out
    bool addStreamType;                     // StreamType and an empty NetworkStatus after integrity
    uint8_t streamType;
    uint16_t streamInterval;
    uint8_t streamPad;
};

// A copy of everything the transaction was started with.
struct StunBindReqStruct {
    void* userCtx;
    struct sockaddr_storage serverAddr;
    struct sockaddr_storage baseAddr;
    bool useRelay;
    int transport;
    uint8_t ttl;  // 0 unless the path trace sets it
    TransactionAttributes attributes;
    STUN_SENDFUNC sendFunc;
    STUNCB callback;
    uint8_t addSoftware;    // SOFTWARE "Vorta"
    uint8_t fixedTimer;     // one copy, given up after 1800 ms (the path trace)
    uint8_t addTransCount;  // TransCount telling which copy this is
};

struct STUN_CLIENT_DATA;

// One slot of the client.
struct STUN_TRANSACTION_DATA {
    int state;                          // gatewalk::STUN_STATE
    uint8_t inUse;
    uint32_t inst;                      // index of the slot, stable for the logs
    StunBindReqStruct request;
    struct sockaddr_storage rflxAddr;
    int timerRemainingMs;               // 0 when stopped
    uint32_t retransmits;
    uint32_t respTransCnt, reqTransCnt;
    uint32_t start[STUNCLIENT_MAX_COPIES];  // tick-clock microseconds each copy went out
    uint32_t stop[STUNCLIENT_MAX_COPIES];   // ...and its answer came in
    uint32_t ICMPtype;
    StunClientStats stats;
    STUN_CLIENT_DATA* client;
};

// ---- path trace ----------------------------------------------------------------------------------
struct StunTraceCallBackData_T {
    struct sockaddr_storage address;  // the hop that answered; unset for a silent hop
    int hop;
    uint32_t rtt;
    uint32_t retransmits;
    uint32_t traceNumber;
    bool done;     // this trace is complete
    bool allDone;  // and it was the last one asked for
};
using STUN_TRACECB = void (*)(void* userCtx, StunTraceCallBackData_T* data);

struct hiutPathElement {
    bool gotAnswer;
    bool noAnswer;
};

struct hiutResult {
    STUN_CLIENT_DATA* client;
    void* userCtx;
    TransactionAttributes attributes;  // transactionId is the id in flight
    STUN_SENDFUNC sendFunc;
    int currentTTL;
    int maxTTL;
    int pathLength;
    struct sockaddr_storage baseAddr;
    struct sockaddr_storage serverAddr;
    hiutPathElement pathElement[STUNTRACE_MAX_TTL + 1];
    bool pathDiscovered;
    uint32_t numberOfTraces;
    uint32_t traceNumber;
    STUN_TRACECB traceCallback;
};

struct STUN_CLIENT_DATA {
    STUN_TRANSACTION_DATA instances[STUNCLIENT_MAX_INSTANCES];
    STUN_INFO_FUNC_PTR logFunc;
    void* logUserData;
    StunClientStats stats;  // work that belongs to no slot
    hiutResult traceResult;
    // Microseconds of elapsed ticks; the only time the client knows. It wraps, and so do the
    // differences taken from it.
    uint32_t clockUs;
};

// ---- client --------------------------------------------------------------------------------------
// One zeroed allocation (calloc) with every slot numbered. False on a null pointer or no memory.
bool StunClient_Alloc(STUN_CLIENT_DATA** client);
void StunClient_free(STUN_CLIENT_DATA* client);
void StunClient_RegisterLogger(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData);
// Clears the client's and every slot's counters (InProgress stays: it is a state, not a count).
void StunClient_clearStats(STUN_CLIENT_DATA* client);
// One line per counter, summed over the client and its slots.
void StunClient_dumpStats(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData);

// Starts a Binding transaction in the first free slot; the request goes out before this returns.
// Returns 0. With no free slot the request is dropped, a line is logged and no callback will come.
int StunClient_startBindTransaction(STUN_CLIENT_DATA* client, void* userCtx, const struct sockaddr* serverAddr,
                                    const struct sockaddr* baseAddr, int transport, bool useRelay,
                                    const TransactionAttributes* attributes, STUN_SENDFUNC sendFunc,
                                    STUNCB callback);
// As above, one copy with the given TTL, no SOFTWARE, no TransCount, given up after 1800 ms.
int StunClient_startSTUNTrace(STUN_CLIENT_DATA* client, void* userCtx, const struct sockaddr* serverAddr,
                              const struct sockaddr* baseAddr, bool useRelay, unsigned char ttl,
                              const TransactionAttributes* attributes, STUN_SENDFUNC sendFunc, STUNCB callback);
// Advances every running timer (and the client clock) by elapsedMs; expired ones retransmit or fail.
void StunClient_HandleTick(STUN_CLIENT_DATA* client, int elapsedMs);
// A decoded response (success or error). Dropped, with a line, when no running slot has its id.
void StunClient_HandleIncResp(STUN_CLIENT_DATA* client, const StunMessage* message,
                              const struct sockaddr* sourceAddr);
// An ICMP report for the path trace's transaction in flight.
void StunClient_HandleICMP(STUN_CLIENT_DATA* client, const struct sockaddr* sourceAddr, uint32_t icmpType);
// Cancels the transaction with this id: no further copies go out and it ends with
// StunResult_CancelComplete when its schedule runs out, unless a late response ends it first.
// Returns the slot index, or -1 when no running transaction has the id.
int StunClient_cancelBindingTransaction(STUN_CLIENT_DATA* client, StunMsgId transactionId);

// ---- server half ---------------------------------------------------------------------------------
// Extracts what ICE needs from a decoded Binding request (integrity is the caller's check). False
// without USERNAME or PRIORITY.
bool StunServer_HandleStunIncomingBindReqMsg(STUN_CLIENT_DATA* client, STUN_INCOMING_REQ_DATA* requestData,
                                             const StunMessage* message, bool fromRelay);
// Builds and sends a success (responseCode 200) or error response with XOR-MAPPED-ADDRESS of
// mappedAddr, integrity with `password` if not empty, TransCount if reqTransCnt is not 0, and
// NetworkStatus behind the integrity attribute if nodeCount is not 0. False if it cannot be encoded.
bool StunServer_SendConnectivityBindingResp(STUN_CLIENT_DATA* client, uint32_t connectionId, StunMsgId transactionId,
                                            const char* password, const struct sockaddr* mappedAddr,
                                            const struct sockaddr* destination, uint32_t reqTransCnt,
                                            uint32_t respTransCnt, uint8_t flags, uint8_t nodeCount,
                                            uint16_t upBandwidth, uint16_t downBandwidth, void* userCtx,
                                            STUN_SENDFUNC sendFunc, int transport, bool useRelay,
                                            uint16_t responseCode);
// The building step alone. False for an unset mappedAddr or a family other than IPv4 / IPv6.
bool CreateConnectivityBindingResp(StunMessage* message, StunMsgId transactionId, const struct sockaddr* mappedAddr,
                                   uint32_t reqTransCnt, uint32_t respTransCnt, uint8_t flags, uint8_t nodeCount,
                                   uint16_t upBandwidth, uint16_t downBandwidth, uint16_t messageType,
                                   uint16_t responseCode);

// ---- path trace ----------------------------------------------------------------------------------
// Traces the path to serverAddr with Binding requests of rising TTL, numberOfTraces times, reporting
// every hop through traceCallback. The caller feeds ICMP reports through StunClient_HandleICMP.
// False if client, sendFunc or serverAddr is null.
bool StunTrace_startTrace(STUN_CLIENT_DATA* client, void* userCtx, const struct sockaddr* serverAddr,
                          const struct sockaddr* baseAddr, uint32_t connectionId, const char* username,
                          const char* password, uint32_t numberOfTraces, STUN_TRACECB traceCallback,
                          STUN_SENDFUNC sendFunc);
// The result callback of every trace transaction (userCtx is the client's traceResult).
void StunStatusCallBack(void* userCtx, StunCallBackData_T* data);

}  // namespace qlox_gatewalk
