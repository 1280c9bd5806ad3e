// STUN Binding transactions, profile zyn_gatewalk.
//
// Same design as qlox_gatewalk (see stunclient_qlox.h) with these differences: 60 slots; the request
// is encoded once, into 1056 bytes kept in the slot, and the same bytes go out on every copy (10 of
// them, at 0, 100, 200, 400, 700, 1100, 1600, 2100, 2600, 3100 ms; failure at 3600 ms); SOFTWARE is
// always there and there is no TransCount, TTL or path trace; no round-trip time or counters in the
// callback; a 487 is a plain failure; error responses carry no ERROR-CODE.
#pragma once

#include <sys/socket.h>

#include <cstdint>

#include "stunclient_common.h"
#include "stunlib_zyn.h"

namespace zyn_gatewalk {

using gatewalk::STUN_INCOMING_REQ_DATA;
using gatewalk::STUN_INFO_FUNC_PTR;
using gatewalk::StunClientStats;
using gatewalk::StunInfoCategory_T;
using gatewalk::StunPrint;

constexpr int STUNCLIENT_MAX_INSTANCES = 60;
// Every buffer this profile encodes into: a request must fit a small path MTU whole.
constexpr unsigned int STUN_MIN_PACKET_SIZE = 1056;
constexpr unsigned int STUN_MAX_PASSWORD = 512;

enum StunResult_T {
    StunResult_Empty = 0,
    StunResult_BindOk = 1,
    StunResult_BindFail = 2,
    StunResult_BindFailNoAnswer = 3,
    StunResult_BindFailUnauthorised = 4,
    StunResult_CancelComplete = 5,
    StunResult_InternalError = 6,
    StunResult_MalformedResp = 7,
};

// "StunResult_BindOk", ...; "StunResult_UnKnown" for any other value.
const char* StunClient_resultToStr(int result);

struct StunCallBackData_T {
    StunMsgId msgId;
    StunResult_T stunResult;
    struct sockaddr_storage rflxAddr;
    struct sockaddr_storage srcAddr;
    struct sockaddr_storage dstBaseAddr;
};

using STUN_SENDFUNC = void (*)(void* userCtx, int sock, const unsigned char* bytes, int length,
                               const struct sockaddr* destination, bool useRelay);
using STUNCB = void (*)(void* userCtx, StunCallBackData_T* data);

struct StunBindReqStruct {
    void* userCtx;
    struct sockaddr_storage serverAddr;
    struct sockaddr_storage baseAddr;
    bool useRelay;
    char username[STUN_MAX_USERNAME + 1];
    char password[STUN_MAX_PASSWORD + 1];
    uint32_t peerPriority;
    bool useCandidate;
    bool iceControlling;
    uint64_t tieBreaker;
    StunMsgId transactionId;
    int sock;
    STUN_SENDFUNC sendFunc;
    STUNCB callback;
    uint8_t hasMaliceMetadata;
    MaliceMetadata maliceMetadata;
};

struct STUN_CLIENT_DATA;

struct STUN_TRANSACTION_DATA {
    int state;  // gatewalk::STUN_STATE
    uint8_t inUse;
    uint32_t inst;
    StunBindReqStruct request;
    struct sockaddr_storage rflxAddr;
    int timerRemainingMs;
    uint32_t retransmits;
    uint8_t stunReqMsgBuf[STUN_MIN_PACKET_SIZE];  // the encoded request, resent as it is
    int stunReqMsgBufLen;                         // 0 if it could not be encoded
    StunClientStats stats;
    STUN_CLIENT_DATA* client;
};

struct STUN_CLIENT_DATA {
    STUN_TRANSACTION_DATA instances[STUNCLIENT_MAX_INSTANCES];
    STUN_INFO_FUNC_PTR logFunc;
    void* logUserData;
    StunClientStats stats;
};

// ---- client --------------------------------------------------------------------------------------
bool StunClient_Alloc(STUN_CLIENT_DATA** client);
void StunClient_free(STUN_CLIENT_DATA* client);
void StunClient_RegisterLogger(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData);
void StunClient_clearStats(STUN_CLIENT_DATA* client);
void StunClient_dumpStats(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData);

// username and password may be null or empty. maliceMetadata (may be null) is encoded into the
// request. Returns 0; with no free slot the request is dropped and a line is logged.
int StunClient_startBindTransaction(STUN_CLIENT_DATA* client, void* userCtx, const struct sockaddr* serverAddr,
                                    const struct sockaddr* baseAddr, bool useRelay, const char* username,
                                    const char* password, uint32_t peerPriority, bool useCandidate,
                                    bool iceControlling, uint64_t tieBreaker, StunMsgId transactionId, int sock,
                                    STUN_SENDFUNC sendFunc, STUNCB callback, const MaliceMetadata* maliceMetadata);
void StunClient_HandleTick(STUN_CLIENT_DATA* client, int elapsedMs);
void StunClient_HandleIncResp(STUN_CLIENT_DATA* client, const StunMessage* message,
                              const struct sockaddr* sourceAddr);
int StunClient_cancelBindingTransaction(STUN_CLIENT_DATA* client, StunMsgId transactionId);

// ---- server half ---------------------------------------------------------------------------------
bool StunServer_HandleStunIncomingBindReqMsg(STUN_CLIENT_DATA* client, STUN_INCOMING_REQ_DATA* requestData,
                                             const StunMessage* message, bool fromRelay);
// Sends on `sock`; `sock2` is the transport slot of the other profile's signature and is not used.
// 200 gives a 0x0101, anything else a bare 0x0111; both carry XOR-MAPPED-ADDRESS.
bool StunServer_SendConnectivityBindingResp(STUN_CLIENT_DATA* client, int sock, StunMsgId transactionId,
                                            const char* password, const struct sockaddr* mappedAddr,
                                            const struct sockaddr* destination, void* userCtx,
                                            STUN_SENDFUNC sendFunc, int sock2, bool useRelay,
                                            uint16_t responseCode, const MaliceMetadata* maliceMetadata);
// The building step alone; responseCode is kept for symmetry and sets nothing.
bool CreateConnectivityBindingResp(StunMessage* message, StunMsgId transactionId, const struct sockaddr* mappedAddr,
                                   uint16_t messageType, uint16_t responseCode);

}  // namespace zyn_gatewalk
