// Public entry points of both profiles: argument checks, instance life, and the mapping of responses
// onto signals. The work is in turn_fsm.cpp, turn_requests.cpp and turn_framing.cpp.
#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "sockaddr_util.h"
#include "turn_internal.h"

namespace gatewalk::turn_detail {

namespace {

// Running number of instances, for logs only.
std::atomic<int> g_instanceCounter{0};

constexpr uint16_t kMinChannel = 0x4000;
constexpr uint16_t kMaxChannel = 0x7FFF;

bool CopyText(char* destination, size_t capacity, const char* text)
{
    if (text == nullptr) text = "";
    size_t length = strnlen(text, capacity);
    if (length >= capacity) return false;
    std::memcpy(destination, text, length + 1);
    return true;
}

TURN_SIGNAL SignalOf(uint16_t type, bool* known)
{
    *known = true;
    switch (type) {
    case STUN_MSG_AllocateResponseMsg: return TURN_SIGNAL_AllocateResp;
    case STUN_MSG_AllocateErrorResponseMsg: return TURN_SIGNAL_AllocateRespError;
    case STUN_MSG_CreatePermissionResponseMsg: return TURN_SIGNAL_CreatePermissionResp;
    case STUN_MSG_CreatePermissionErrorResponseMsg: return TURN_SIGNAL_CreatePermissionRespError;
    case STUN_MSG_ChannelBindResponseMsg: return TURN_SIGNAL_ChannelBindResp;
    case STUN_MSG_ChannelBindErrorResponseMsg: return TURN_SIGNAL_ChannelBindRespError;
    case STUN_MSG_RefreshResponseMsg: return TURN_SIGNAL_RefreshResp;
    case STUN_MSG_RefreshErrorResponseMsg: return TURN_SIGNAL_RefreshRespError;
    default: *known = false; return TURN_SIGNAL_TimerTick;
    }
}

}  // namespace

template <class Msg>
bool HandleIncResp(Inst<Msg>* t, Msg* msg, const uint8_t* buffer)
{
    if (!Valid(t) || msg == nullptr) return false;
    if (msg->msgHdr.type == STUN_MSG_BindResponseMsg) {
        // The answer to a keep-alive: nothing waits for it.
        return stunlib_transIdIsEqual(&msg->msgHdr.id, &t->keepAliveTransactionId);
    }
    if (!stunlib_transIdIsEqual(&msg->msgHdr.id, &t->transactionId)) return false;
    bool known = false;
    TURN_SIGNAL signal = SignalOf(msg->msgHdr.type, &known);
    if (!known) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d> undefned signal %s in state %d", t->id,
             stunlib_getMessageName(msg->msgHdr.type), static_cast<int>(t->state));
        return false;
    }
    SignalData<Msg> data;
    data.msg = msg;
    data.buffer = buffer;
    Signal(t, signal, data);
    return true;
}

template bool HandleIncResp<qlox_gatewalk::StunMessage>(Inst<qlox_gatewalk::StunMessage>*,
                                                        qlox_gatewalk::StunMessage*, const uint8_t*);
template bool HandleIncResp<zyn_gatewalk::StunMessage>(Inst<zyn_gatewalk::StunMessage>*, zyn_gatewalk::StunMessage*,
                                                       const uint8_t*);

template <class Msg>
bool StartAllocate(Inst<Msg>** instance, unsigned int timerResolutionMs, TURN_INFO_FUNC logFunc,
                   const char* softwareVersion, void* userCtx, const struct sockaddr* serverAddr, const char* userName,
                   const char* password, int addressFamily, TURN_SEND_FUNC sendFunc, TURNCB_FUNC callback,
                   bool evenPortAndReserve, uint64_t reservationToken)
{
    if (instance == nullptr) return false;
    *instance = nullptr;
    if (timerResolutionMs == 0 || serverAddr == nullptr || sendFunc == nullptr) return false;
    if (serverAddr->sa_family != AF_INET && serverAddr->sa_family != AF_INET6) return false;
    auto* t = static_cast<Inst<Msg>*>(std::calloc(1, sizeof(Inst<Msg>)));
    if (t == nullptr) return false;
    TurnAllocateReqStruct& req = t->turnAllocateReq;
    if (!CopyText(req.userName, sizeof req.userName, userName) ||
        !CopyText(req.password, sizeof req.password, password)) {
        std::free(t);
        return false;
    }
    // A longer software text is cut rather than refused: it only names the client.
    std::strncpy(t->softwareVersionStr, softwareVersion ? softwareVersion : "", sizeof t->softwareVersionStr - 1);
    CopyAddress(&req.serverAddr, serverAddr);
    req.addressFamily = addressFamily;
    req.sendFunc = sendFunc;
    req.userCtx = userCtx;
    req.resultCallback = callback;
    req.logFunc = logFunc;
    req.evenPortAndReserve = evenPortAndReserve;
    req.reservationToken = reservationToken;
    std::memcpy(t->userName, req.userName, sizeof t->userName);
    std::memcpy(t->password, req.password, sizeof t->password);
    t->magic = TURN_INSTANCE_MAGIC;
    t->id = g_instanceCounter.fetch_add(1, std::memory_order_relaxed);
    t->inUse = 1;
    t->timerResolutionMs = timerResolutionMs;
    t->state = TURN_STATE_Idle;
    if (!Signal(t, TURN_SIGNAL_AllocateReq)) {
        t->magic = 0;
        std::free(t);
        return false;
    }
    *instance = t;
    return true;
}

template <class Msg>
bool StartCreatePermission(Inst<Msg>* t, uint32_t numberOfPeers, const struct sockaddr* peers[])
{
    if (!Valid(t) || peers == nullptr || numberOfPeers == 0 || numberOfPeers > STUN_MAX_PEER_ADDR) return false;
    TurnCreatePermissionInfo_T info{};
    for (uint32_t i = 0; i < numberOfPeers; ++i) {
        if (!CopyAddress(&info.peerIp[i], peers[i])) return false;
    }
    info.numberOfPeers = numberOfPeers;
    SignalData<Msg> data;
    data.permissions = &info;
    return Signal(t, TURN_SIGNAL_CreatePermissionReq, data);
}

template <class Msg>
bool StartChannelBind(Inst<Msg>* t, uint16_t channelNumber, const struct sockaddr* peer)
{
    if (!Valid(t) || channelNumber < kMinChannel || channelNumber > kMaxChannel) return false;
    TurnChannelBindInfo_T info{};
    info.channelNumber = channelNumber;
    if (!CopyAddress(&info.peerTrnspAddr, peer)) return false;
    SignalData<Msg> data;
    data.channel = &info;
    return Signal(t, TURN_SIGNAL_ChannelBindReq, data);
}

template <class Msg>
bool GetStats(const Inst<Msg>* t, TurnStats_T* stats)
{
    if (!Valid(t) || stats == nullptr) return false;
    std::memset(stats, 0, sizeof *stats);
    stats->state = t->state;
    stats->relAddrIPv4 = t->relAddrIPv4;
    stats->relAddrIPv6 = t->relAddrIPv6;
    stats->srflxAddr = t->srflxAddr;
    stats->activeTurnServerAddr = t->turnAllocateReq.serverAddr;
    stats->lifetime = t->lifetime;
    stats->retransmits = t->retransmits;
    stats->failures = t->failures;
    stats->permissionsInstalled = t->permissionsInstalled;
    stats->channelBound = t->channelBound;
    stats->channelNumber = t->channelBound ? t->channelBindInfo.channelNumber : 0;
    return true;
}

template <class Msg>
void Free(Inst<Msg>* t)
{
    if (!Valid(t)) return;
    t->inUse = 0;
    t->magic = 0;
    // The key and the password leave no trace in freed memory.
    OPENSSL_cleanse(t->key, sizeof t->key);
    OPENSSL_cleanse(t->password, sizeof t->password);
    OPENSSL_cleanse(t->turnAllocateReq.password, sizeof t->turnAllocateReq.password);
    std::free(t);
}

}  // namespace gatewalk::turn_detail

#define GATEWALK_TURNCLIENT_DEFINE(NS)                                                                           \
    namespace NS {                                                                                               \
    using namespace gatewalk::turn_detail;                                                                       \
    bool TurnClient_StartAllocateTransaction(TURN_INSTANCE_DATA** instance, unsigned int timerResolutionMs,      \
                                             gatewalk::TURN_INFO_FUNC logFunc, const char* softwareVersion,      \
                                             void* userCtx, const struct sockaddr* serverAddr,                   \
                                             const char* userName, const char* password, int addressFamily,      \
                                             gatewalk::TURN_SEND_FUNC sendFunc, gatewalk::TURNCB_FUNC callback,  \
                                             bool evenPortAndReserve, uint64_t reservationToken)                 \
    {                                                                                                            \
        return StartAllocate(instance, timerResolutionMs, logFunc, softwareVersion, userCtx, serverAddr,         \
                             userName, password, addressFamily, sendFunc, callback, evenPortAndReserve,          \
                             reservationToken);                                                                  \
    }                                                                                                            \
    bool TurnClient_StartCreatePermissionReq(TURN_INSTANCE_DATA* instance, uint32_t numberOfPeers,               \
                                             const struct sockaddr* peers[])                                     \
    {                                                                                                            \
        return StartCreatePermission(instance, numberOfPeers, peers);                                            \
    }                                                                                                            \
    bool TurnClient_StartChannelBindReq(TURN_INSTANCE_DATA* instance, uint16_t channelNumber,                    \
                                        const struct sockaddr* peer)                                             \
    {                                                                                                            \
        return StartChannelBind(instance, channelNumber, peer);                                                  \
    }                                                                                                            \
    bool TurnClient_Deallocate(TURN_INSTANCE_DATA* instance)                                                     \
    {                                                                                                            \
        return Valid(instance) && Signal(instance, gatewalk::TURN_SIGNAL_DeAllocate);                            \
    }                                                                                                            \
    void TurnClient_HandleTick(TURN_INSTANCE_DATA* instance)                                                     \
    {                                                                                                            \
        if (Valid(instance)) Tick(instance);                                                                     \
    }                                                                                                            \
    bool TurnClient_HandleIncResp(TURN_INSTANCE_DATA* instance, StunMessage* message, const uint8_t* buffer)    \
    {                                                                                                            \
        return HandleIncResp(instance, message, buffer);                                                         \
    }                                                                                                            \
    void TurnClient_free(TURN_INSTANCE_DATA* instance) { Free(instance); }                                       \
    bool TurnClient_HasBoundChannel(const TURN_INSTANCE_DATA* instance)                                          \
    {                                                                                                            \
        return Valid(instance) && instance->channelBound;                                                        \
    }                                                                                                            \
    bool TurnClientGetStats(const TURN_INSTANCE_DATA* instance, gatewalk::TurnStats_T* stats)                    \
    {                                                                                                            \
        return GetStats(instance, stats);                                                                        \
    }                                                                                                            \
    void TurnClientSimulateSig(TURN_INSTANCE_DATA* instance, gatewalk::TURN_SIGNAL signal)                       \
    {                                                                                                            \
        if (Valid(instance)) Signal(instance, signal);                                                           \
    }                                                                                                            \
    uint32_t TurnClient_SendPacket(TURN_INSTANCE_DATA* instance, uint8_t* buffer, uint32_t bufferSize,           \
                                   uint32_t dataLength, uint32_t offset, const struct sockaddr* peerAddr,        \
                                   bool addPadding)                                                              \
    {                                                                                                            \
        return Valid(instance) ? SendPacket(instance, buffer, bufferSize, dataLength, offset, peerAddr, addPadding) \
                               : 0;                                                                              \
    }                                                                                                            \
    bool TurnClient_ReceivePacket(TURN_INSTANCE_DATA* instance, uint8_t* buffer, uint32_t* length,               \
                                  struct sockaddr* peerAddr, socklen_t addrSize, uint64_t* reservationToken)     \
    {                                                                                                            \
        return Valid(instance) && ReceivePacket(instance, buffer, length, peerAddr, addrSize, reservationToken); \
    }                                                                                                            \
    }

GATEWALK_TURNCLIENT_DEFINE(qlox_gatewalk)
GATEWALK_TURNCLIENT_DEFINE(zyn_gatewalk)
#undef GATEWALK_TURNCLIENT_DEFINE

namespace qlox_gatewalk {

bool TurnClient_hasBeenRedirected(const TURN_INSTANCE_DATA* instance)
{
    return gatewalk::turn_detail::Valid(instance) && instance->redirected;
}

const struct sockaddr* TurnClient_getRedirectedServerAddr(const TURN_INSTANCE_DATA* instance)
{
    if (!gatewalk::turn_detail::Valid(instance) || !instance->redirected) return nullptr;
    return gatewalk::turn_detail::Sa(instance->redirectedServerAddr);
}

}  // namespace qlox_gatewalk
