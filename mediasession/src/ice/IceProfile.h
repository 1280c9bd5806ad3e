// The two profiles of the NAT stack as the connector calls them. Both have the same functions with
// the same names, each in its own namespace; where their call shapes differ (priorities, the STUN
// client's send function and start call, its result codes) the profile evens them out here, so the
// connector is written once.
#pragma once

#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "icelib.h"
#include "stunclient.h"
#include "stunlib.h"
#include "turnclient.h"

namespace zyn::ice {

// Forwards a stack function of the profile's namespace under its own name.
#define ZYN_ICE_FORWARD(ns, name)                                           \
    template <class... A>                                                   \
    static decltype(auto) name(A&&... a)                                    \
    {                                                                       \
        return ns::name(std::forward<A>(a)...);                             \
    }

#define ZYN_ICE_PROFILE_COMMON(ns)                                          \
    using Instance = ns::ICELIB_INSTANCE;                                   \
    using Configuration = ns::ICELIB_CONFIGURATION;                         \
    using StunMessage = ns::StunMessage;                                    \
    using StunClient = ns::STUN_CLIENT_DATA;                                \
    using StunCallBackData = ns::StunCallBackData_T;                        \
    using TurnInstance = ns::TURN_INSTANCE_DATA;                            \
    static constexpr unsigned kMaxMediaLines = ns::ICE_MAX_MEDIALINES;      \
    ZYN_ICE_FORWARD(ns, ICELIB_Constructor)                                 \
    ZYN_ICE_FORWARD(ns, ICELIB_Destructor)                                  \
    ZYN_ICE_FORWARD(ns, ICELIB_Start)                                       \
    ZYN_ICE_FORWARD(ns, ICELIB_Stop)                                        \
    ZYN_ICE_FORWARD(ns, ICELIB_ReStart)                                     \
    ZYN_ICE_FORWARD(ns, ICELIB_Tick)                                        \
    ZYN_ICE_FORWARD(ns, ICELIB_isRunning)                                   \
    ZYN_ICE_FORWARD(ns, ICELIB_isIceComplete)                               \
    ZYN_ICE_FORWARD(ns, ICELIB_isControlling)                               \
    ZYN_ICE_FORWARD(ns, ICELIB_getState)                                    \
    ZYN_ICE_FORWARD(ns, ICELIB_isUnsupportedByRemote)                       \
    ZYN_ICE_FORWARD(ns, ICELIB_addLocalMediaStream)                         \
    ZYN_ICE_FORWARD(ns, ICELIB_setLocalMediaStream)                         \
    ZYN_ICE_FORWARD(ns, ICELIB_addRemoteMediaStream)                        \
    ZYN_ICE_FORWARD(ns, ICELIB_addLocalCandidate)                           \
    ZYN_ICE_FORWARD(ns, ICELIB_addRemoteCandidate)                          \
    ZYN_ICE_FORWARD(ns, ICELIB_incomingBindingRequest)                      \
    ZYN_ICE_FORWARD(ns, ICELIB_incomingBindingResponse)                     \
    ZYN_ICE_FORWARD(ns, ICELIB_incomingTimeout)                             \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackOutgoingBindingRequest)           \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackOutgoingBindingResponse)          \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackOutgoingCancelRequest)            \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackConnecitivityChecksComplete)      \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackKeepAlive)                        \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackLog)                              \
    ZYN_ICE_FORWARD(ns, ICELIB_setCallbackUpdateIceCheckList)               \
    ZYN_ICE_FORWARD(ns, ICELIB_getLocalMediaStream)                         \
    ZYN_ICE_FORWARD(ns, ICELIB_getRemoteMediaStream)                        \
    ZYN_ICE_FORWARD(ns, ICELIB_getActiveCandidate)                          \
    ZYN_ICE_FORWARD(ns, ICELIB_getActiveRemoteCandidates)                   \
    ZYN_ICE_FORWARD(ns, ICELIB_getCheckList)                                \
    ZYN_ICE_FORWARD(ns, ICELIB_getNumberOfCheckLists)                       \
    ZYN_ICE_FORWARD(ns, ICELIB_getValidList)                                \
    ZYN_ICE_FORWARD(ns, ICELIB_generateTransactionId)                       \
    ZYN_ICE_FORWARD(ns, ICE_candidateTypeToString)                          \
    ZYN_ICE_FORWARD(ns, ICELIB_toString_CheckListPairState)                 \
    ZYN_ICE_FORWARD(ns, stunlib_DecodeMessage)                              \
    ZYN_ICE_FORWARD(ns, stunlib_encodeMessage)                              \
    ZYN_ICE_FORWARD(ns, stunlib_checkIntegrity)                             \
    ZYN_ICE_FORWARD(ns, stunlib_addUserName)                                \
    ZYN_ICE_FORWARD(ns, stunlib_addSoftware)                                \
    ZYN_ICE_FORWARD(ns, stunlib_addError)                                   \
    ZYN_ICE_FORWARD(ns, StunClient_Alloc)                                   \
    ZYN_ICE_FORWARD(ns, StunClient_free)                                    \
    ZYN_ICE_FORWARD(ns, StunClient_HandleTick)                              \
    ZYN_ICE_FORWARD(ns, StunClient_HandleIncResp)                           \
    ZYN_ICE_FORWARD(ns, StunClient_resultToStr)                             \
    ZYN_ICE_FORWARD(ns, TurnClient_StartAllocateTransaction)                \
    ZYN_ICE_FORWARD(ns, TurnClient_StartCreatePermissionReq)                \
    ZYN_ICE_FORWARD(ns, TurnClient_StartChannelBindReq)                     \
    ZYN_ICE_FORWARD(ns, TurnClient_HasBoundChannel)                         \
    ZYN_ICE_FORWARD(ns, TurnClient_Deallocate)                              \
    ZYN_ICE_FORWARD(ns, TurnClient_HandleTick)                              \
    ZYN_ICE_FORWARD(ns, TurnClient_SendPacket)                              \
    ZYN_ICE_FORWARD(ns, TurnClient_ReceivePacket)                           \
    ZYN_ICE_FORWARD(ns, TurnClient_free)

// What the connector gives a STUN client as its send function and callback context.
class IStunSender {
public:
    virtual void SendRawStunData(const unsigned char* bytes, int length, const struct sockaddr* destination) = 0;

protected:
    ~IStunSender() = default;
};

struct ZynProfile {
    ZYN_ICE_PROFILE_COMMON(zyn_gatewalk)
    static constexpr bool kQlox = false;
    static constexpr const char* kName = "CIceConnector";
    static constexpr int kBindOk = zyn_gatewalk::StunResult_BindOk;
    static constexpr int kMalformedResp = zyn_gatewalk::StunResult_MalformedResp;

    static uint32_t Priority(gatewalk::ICE_CANDIDATE_TYPE type, gatewalk::ICE_TRANSPORT, uint32_t component,
                             uint16_t localPref)
    {
        return zyn_gatewalk::ICELIB_calculatePriority(type, component, localPref);
    }
    // zyn_gatewalk runs over UDP only.
    static bool TakesTransport(gatewalk::ICE_TRANSPORT transport) { return transport == gatewalk::ICE_TRANS_UDP; }
    static void Configure(Configuration& config, uint32_t timeoutMs)
    {
        config.iceTimeoutMS = timeoutMs;
        config.flag = 0;
    }
    static int StartBind(StunClient* client, IStunSender* sender, const sockaddr* server, const sockaddr* base,
                         const char* user, const char* password, gatewalk::StunMsgId id,
                         zyn_gatewalk::STUNCB callback)
    {
        auto send = [](void* ctx, int, const unsigned char* bytes, int length, const sockaddr* to, bool) {
            static_cast<IStunSender*>(ctx)->SendRawStunData(bytes, length, to);
        };
        return zyn_gatewalk::StunClient_startBindTransaction(client, sender, server, base, false, user, password, 0,
                                                             false, false, 0, id, 0, send, callback, nullptr);
    }
};

struct QloxProfile {
    ZYN_ICE_PROFILE_COMMON(qlox_gatewalk)
    static constexpr bool kQlox = true;
    static constexpr const char* kName = "CIceConnectorQLOX";
    static constexpr int kBindOk = qlox_gatewalk::StunResult_BindOk;
    static constexpr int kMalformedResp = qlox_gatewalk::StunResult_MalformedResp;

    static uint32_t Priority(gatewalk::ICE_CANDIDATE_TYPE type, gatewalk::ICE_TRANSPORT transport, uint32_t component,
                             uint16_t localPref)
    {
        return qlox_gatewalk::ICELIB_calculatePriority(type, transport, component, localPref);
    }
    static bool TakesTransport(gatewalk::ICE_TRANSPORT transport) { return transport != gatewalk::ICE_TRANS_NONE; }
    static void Configure(Configuration&, uint32_t) {}
    static int StartBind(StunClient* client, IStunSender* sender, const sockaddr* server, const sockaddr* base,
                         const char* user, const char* password, gatewalk::StunMsgId id,
                         qlox_gatewalk::STUNCB callback)
    {
        auto send = [](void* ctx, bool, unsigned int, const unsigned char* bytes, int length, const sockaddr* to, int,
                       bool, unsigned char) { static_cast<IStunSender*>(ctx)->SendRawStunData(bytes, length, to); };
        qlox_gatewalk::TransactionAttributes attributes;
        std::memset(&attributes, 0, sizeof attributes);
        attributes.transactionId = id;
        std::snprintf(attributes.username, sizeof attributes.username, "%s", user ? user : "");
        std::snprintf(attributes.password, sizeof attributes.password, "%s", password ? password : "");
        return qlox_gatewalk::StunClient_startBindTransaction(client, sender, server, base, 17, false, &attributes,
                                                              send, callback);
    }
};

#undef ZYN_ICE_PROFILE_COMMON
#undef ZYN_ICE_FORWARD

}  // namespace zyn::ice
