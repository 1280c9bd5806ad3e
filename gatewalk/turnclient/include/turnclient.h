// TURN client (RFC 5766 with the RFC 6156 address families), one allocation per instance, in both
// profiles of the stack: qlox_gatewalk::TurnClient_... and zyn_gatewalk::TurnClient_....
//
// The client owns no socket, no timer and no thread. Requests leave through the caller's send
// function, responses come back through TurnClient_HandleIncResp (or TurnClient_ReceivePacket, which
// also strips relayed data of its framing), and time moves only through TurnClient_HandleTick, which
// the owner calls every `timerResolutionMs`. Results arrive once each through the result callback.
//
// Callbacks run inside the call that caused them (a tick, a response, a start). They may start the
// next request (a permission from TurnResult_AllocOk, say), but must not free the instance: free it
// after the call returns.
#pragma once

#include <sys/socket.h>

#include <cstdint>

#include "stunlib.h"

namespace gatewalk {

constexpr uint32_t TURN_INSTANCE_MAGIC = 0xDEADBEEF;
constexpr unsigned int TURN_SOFTWARE_MAX = 100;    // 99 characters and the NUL
constexpr unsigned int TURN_CREDENTIAL_MAX = 512;  // user name and password: 511 characters
// A permission record has room for 12 peers; one request carries at most as many XOR-PEER-ADDRESS
// attributes as the codec's record holds (STUN_MAX_PEER_ADDR), so that is the real limit per call.
constexpr unsigned int TURN_MAX_PERMISSION_PEERS = 12;
// REQUESTED-ADDRESS-FAMILY values of the allocate call: AF_INET, AF_INET6, or both at once.
constexpr int TURN_FAMILY_BOTH = 12;

enum TurnResult_T {
    TurnResult_Empty = 0,
    TurnResult_AllocOk = 1,
    TurnResult_AllocFail = 2,
    TurnResult_AllocFailNoAnswer = 3,
    TurnResult_AllocUnauthorised = 4,
    TurnResult_CreatePermissionOk = 5,
    TurnResult_CreatePermissionFail = 6,
    TurnResult_CreatePermissionNoAnswer = 7,
    TurnResult_CreatePermissionQuotaReached = 8,
    TurnResult_PermissionRefreshFail = 9,
    TurnResult_ChanBindOk = 10,
    TurnResult_ChanBindFail = 11,
    TurnResult_ChanBindFailNoanswer = 12,
    TurnResult_RefreshFail = 13,
    TurnResult_RefreshFailNoAnswer = 14,
    TurnResult_RelayReleaseComplete = 15,
    TurnResult_RelayReleaseFailed = 16,
    TurnResult_InternalError = 17,
    TurnResult_MalformedRespWaitAlloc = 18,
};

enum TURN_SIGNAL {
    TURN_SIGNAL_AllocateReq = 0,
    TURN_SIGNAL_AllocateResp,
    TURN_SIGNAL_AllocateRespError,
    TURN_SIGNAL_CreatePermissionReq,
    TURN_SIGNAL_CreatePermissionResp,
    TURN_SIGNAL_CreatePermissionRespError,
    TURN_SIGNAL_ChannelBindReq,
    TURN_SIGNAL_ChannelBindResp,
    TURN_SIGNAL_ChannelBindRespError,
    TURN_SIGNAL_RefreshResp,
    TURN_SIGNAL_RefreshRespError,
    TURN_SIGNAL_TimerTick,
    TURN_SIGNAL_TimerRetransmit,
    TURN_SIGNAL_TimerRefreshAlloc,
    TURN_SIGNAL_TimerRefreshChannel,
    TURN_SIGNAL_TimerRefreshPermission,
    TURN_SIGNAL_TimerStunKeepAlive,
    TURN_SIGNAL_DeAllocate,
};

enum TURN_STATE {
    TURN_STATE_Idle = 0,
    TURN_STATE_WaitAllocRespNotAut,
    TURN_STATE_WaitAllocResp,
    TURN_STATE_Allocated,
    TURN_STATE_WaitAllocRefreshResp,
    TURN_STATE_WaitChanBindResp,
    TURN_STATE_WaitCreatePermResp,
    TURN_STATE_WaitReleaseResp,
};

enum TurnInfoCategory_T {
    TurnInfoCategory_Info = 0,
    TurnInfoCategory_Error,
    TurnInfoCategory_Trace,
};

// What a result callback is given. Addresses of no value have family 0.
struct TurnCallBackData_T {
    TurnResult_T turnResult;
    struct sockaddr_storage relAddrIPv4;
    struct sockaddr_storage relAddrIPv6;
    struct sockaddr_storage srflxAddr;
    struct sockaddr_storage activeTurnServerAddr;
};

// The same user context is passed to all three functions.
using TURN_SEND_FUNC = void (*)(const unsigned char* bytes, unsigned long length, const struct sockaddr* destination,
                                void* userCtx);
using TURNCB_FUNC = void (*)(void* userCtx, TurnCallBackData_T* data);
using TURN_INFO_FUNC = void (*)(void* userCtx, TurnInfoCategory_T category, const char* text);

struct TurnAllocateReqStruct {
    struct sockaddr_storage serverAddr;  // the active server (changed by a redirection)
    char userName[TURN_CREDENTIAL_MAX];
    char password[TURN_CREDENTIAL_MAX];
    int addressFamily;  // AF_INET, AF_INET6, TURN_FAMILY_BOTH, or anything else for the server's choice
    TURN_SEND_FUNC sendFunc;
    void* userCtx;
    TURNCB_FUNC resultCallback;
    TURN_INFO_FUNC logFunc;
    uint8_t evenPortAndReserve;
    uint64_t reservationToken;
};

struct TurnCreatePermissionInfo_T {
    uint32_t numberOfPeers;
    struct sockaddr_storage peerIp[TURN_MAX_PERMISSION_PEERS];
};

struct TurnChannelBindInfo_T {
    uint16_t channelNumber;
    struct sockaddr_storage peerTrnspAddr;
};

struct TurnStats_T {
    TURN_STATE state;
    struct sockaddr_storage relAddrIPv4;
    struct sockaddr_storage relAddrIPv6;
    struct sockaddr_storage srflxAddr;
    struct sockaddr_storage activeTurnServerAddr;
    uint32_t lifetime;
    uint32_t retransmits;
    uint32_t failures;
    uint8_t permissionsInstalled;
    uint8_t channelBound;
    uint16_t channelNumber;  // 0 without a bound channel
};

// One allocation. Allocated zeroed by TurnClient_StartAllocateTransaction, released by TurnClient_free.
// Msg is the profile's StunMessage; the two records below are scratch space for building requests and
// decoding received packets, so that no large record lives on the caller's stack.
template <class Msg>
struct TurnInstanceData {
    uint32_t magic;
    char softwareVersionStr[TURN_SOFTWARE_MAX];
    int id;
    TURN_STATE state;
    uint8_t inUse;
    TurnAllocateReqStruct turnAllocateReq;

    uint8_t stunReqMsgBuf[STUN_MAX_PACKET_SIZE];  // the request in flight, sent again as it is
    uint32_t stunReqMsgBufLen;
    StunMsgId transactionId;
    StunMsgId keepAliveTransactionId;

    char userName[TURN_CREDENTIAL_MAX];
    char password[TURN_CREDENTIAL_MAX];
    char realm[STUN_MAX_STRING + 1];
    char nonce[STUN_MAX_STRING + 1];
    uint8_t key[STUN_MD5_KEY_SIZE];
    uint8_t authenticated;  // realm and nonce known: requests carry credentials

    uint8_t permissionsInstalled;
    uint8_t channelBound;
    uint8_t pendingChannelBind;  // a bind asked for while a permission was in flight
    TurnCreatePermissionInfo_T permissions;
    TurnChannelBindInfo_T channelBindInfo;         // bound, or being bound
    TurnChannelBindInfo_T pendingChannelBindInfo;  // buffered

    uint32_t lifetime;
    struct sockaddr_storage relAddrIPv4;
    struct sockaddr_storage relAddrIPv6;
    struct sockaddr_storage srflxAddr;
    uint64_t reservationToken;

    unsigned int timerResolutionMs;
    int32_t TimerRetransmit;
    int32_t TimerRefreshAlloc;
    int32_t TimerRefreshChannel;
    int32_t TimerRefreshPermission;
    int32_t TimerStunKeepAlive;

    uint32_t retransmits;  // of the request in flight
    uint32_t failures;
    uint32_t staleNonceRetries;  // 438 answers to the request in flight
    uint32_t redirects;

    TurnCallBackData_T turnCbData;
    uint8_t redirected;
    struct sockaddr_storage redirectedServerAddr;

    Msg txMsg;
    Msg rxMsg;
};

const char* TurnResultToStr(TurnResult_T result);  // "TurnResult_AllocOk", ...; "unknown turnresult ??"
const char* TurnSignalToStr(TURN_SIGNAL signal);   // "AllocateReq", ...
const char* TurnStateToStr(TURN_STATE state);      // "Idle", ...

}  // namespace gatewalk

// The same functions in both profiles. Each returns false (or 0) for a null or freed instance.
#define GATEWALK_TURNCLIENT_API                                                                                \
    using TURN_INSTANCE_DATA = gatewalk::TurnInstanceData<StunMessage>;                                       \
    using gatewalk::TurnResultToStr;                                                                           \
    /* Creates the instance in *instance and sends the first Allocate (no credentials). userCtx goes to    \
       logFunc, sendFunc and callback. False, with *instance null, on a bad argument. */                   \
    bool TurnClient_StartAllocateTransaction(TURN_INSTANCE_DATA** instance, unsigned int timerResolutionMs,     \
                                             gatewalk::TURN_INFO_FUNC logFunc, const char* softwareVersion,     \
                                             void* userCtx, const struct sockaddr* serverAddr,                  \
                                             const char* userName, const char* password, int addressFamily,     \
                                             gatewalk::TURN_SEND_FUNC sendFunc, gatewalk::TURNCB_FUNC callback, \
                                             bool evenPortAndReserve, uint64_t reservationToken);               \
    /* Permissions for up to STUN_MAX_PEER_ADDR peers; true if the signal was taken in this state. */          \
    bool TurnClient_StartCreatePermissionReq(TURN_INSTANCE_DATA* instance, uint32_t numberOfPeers,              \
                                             const struct sockaddr* peers[]);                                   \
    /* Channel 0x4000..0x7FFF to one peer; buffered while a permission request is in flight. */               \
    bool TurnClient_StartChannelBindReq(TURN_INSTANCE_DATA* instance, uint16_t channelNumber,                   \
                                        const struct sockaddr* peer);                                           \
    /* Refresh with LIFETIME 0; TurnResult_RelayReleaseComplete or ..Failed follows. */                        \
    bool TurnClient_Deallocate(TURN_INSTANCE_DATA* instance);                                                   \
    /* Every running timer loses timerResolutionMs; expired ones fire in a fixed order. */                     \
    void TurnClient_HandleTick(TURN_INSTANCE_DATA* instance);                                                   \
    /* A decoded response and its bytes; true if it answers this instance's request or keep-alive. */        \
    bool TurnClient_HandleIncResp(TURN_INSTANCE_DATA* instance, StunMessage* message, const uint8_t* buffer);   \
    void TurnClient_free(TURN_INSTANCE_DATA* instance);                                                         \
    bool TurnClient_HasBoundChannel(const TURN_INSTANCE_DATA* instance);                                        \
    bool TurnClientGetStats(const TURN_INSTANCE_DATA* instance, gatewalk::TurnStats_T* stats);                  \
    /* Gives a signal from outside, as if a timer or a response had. */                                       \
    void TurnClientSimulateSig(TURN_INSTANCE_DATA* instance, gatewalk::TURN_SIGNAL signal);                     \
    /* Frames dataLength bytes found at buffer + offset for the relay: channel data towards the bound       \
       channel's peer (padded to 4 with addPadding, for TCP), else a Send indication. The framed packet    \
       starts at buffer[0]; returns its length, 0 if bufferSize cannot take it. */                           \
    uint32_t TurnClient_SendPacket(TURN_INSTANCE_DATA* instance, uint8_t* buffer, uint32_t bufferSize,          \
                                   uint32_t dataLength, uint32_t offset, const struct sockaddr* peerAddr,       \
                                   bool addPadding);                                                            \
    /* One packet from the server. Relayed data (channel data of the bound channel, a Data indication)     \
       is moved to buffer[0], *length becomes its size and peerAddr (addrSize bytes) its sender: true.     \
       Responses go to TurnClient_HandleIncResp (an Allocate response's RESERVATION-TOKEN is given in      \
       *reservationToken) and, like anything else, give false. */                                          \
    bool TurnClient_ReceivePacket(TURN_INSTANCE_DATA* instance, uint8_t* buffer, uint32_t* length,              \
                                  struct sockaddr* peerAddr, socklen_t addrSize, uint64_t* reservationToken);

namespace qlox_gatewalk {
GATEWALK_TURNCLIENT_API
// Set once an Allocate was answered with 300 Try Alternate; the server that was then used.
bool TurnClient_hasBeenRedirected(const TURN_INSTANCE_DATA* instance);
const struct sockaddr* TurnClient_getRedirectedServerAddr(const TURN_INSTANCE_DATA* instance);
}  // namespace qlox_gatewalk

namespace zyn_gatewalk {
GATEWALK_TURNCLIENT_API
}  // namespace zyn_gatewalk

#undef GATEWALK_TURNCLIENT_API
