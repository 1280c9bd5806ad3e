// The server half of the STUN client in both profiles: reading an incoming ICE Binding request and
// answering it.
#include <cstring>

#include "stunclient_internal.h"
#include "stunclient_qlox.h"
#include "stunclient_zyn.h"

namespace gatewalk::stunclient {
namespace {

template <class Client, class Msg>
bool ReadIncomingRequest(Client* client, STUN_INCOMING_REQ_DATA* out, const Msg* message, bool fromRelay)
{
    if (client == nullptr || out == nullptr || message == nullptr) return false;
    std::memset(out, 0, sizeof *out);
    out->transactionId = message->msgHdr.id;
    out->fromRelay = fromRelay;
    if (!message->hasUsername) {
        StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Error,
                  "<STUNCLIENT> Missing Username in Binding Request\n");
        return false;
    }
    const size_t n = strnlen(message->username.value, sizeof out->ufragPair - 1);
    std::memcpy(out->ufragPair, message->username.value, n);
    out->ufragPair[n] = '\0';
    if (!message->hasPriority) {
        StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Error,
                  "<STUNCLIENT> Missing Priority in Binding Request\n");
        return false;
    }
    out->peerPriority = message->priority;
    out->useCandidate = message->hasUseCandidate != 0;
    // A request should carry one of the two; with both, the controlled value is what is kept.
    if (message->hasControlling) {
        out->tieBreaker = message->controlling;
        out->iceControlling = true;
    }
    if (message->hasControlled) {
        out->tieBreaker = message->controlled;
        out->iceControlled = true;
    }
    ++client->stats.BindReqReceived;
    if (fromRelay) ++client->stats.BindReqReceived_ViaRelay;
    return true;
}

// Zeroes the record and sets type, id and XOR-MAPPED-ADDRESS; false for an unusable address.
template <class Msg>
bool StartResponse(Msg* message, const StunMsgId& transactionId, const sockaddr* mappedAddr, uint16_t messageType)
{
    if (message == nullptr || mappedAddr == nullptr) return false;
    StunIPAddress mapped;
    if (!FromSockaddr(mappedAddr, &mapped)) return false;
    std::memset(message, 0, sizeof *message);
    message->msgHdr.type = messageType;
    message->msgHdr.id = transactionId;
    message->hasXorMappedAddress = 1;
    message->xorMappedAddress = mapped;
    return true;
}

unsigned char* KeyOf(const char* password, unsigned int* length)
{
    *length = password != nullptr ? static_cast<unsigned int>(strnlen(password, 512)) : 0;
    return *length != 0 ? reinterpret_cast<unsigned char*>(const_cast<char*>(password)) : nullptr;
}

}  // namespace
}  // namespace gatewalk::stunclient

namespace qlox_gatewalk {

using gatewalk::stunclient::KeyOf;
using gatewalk::stunclient::StartResponse;

bool StunServer_HandleStunIncomingBindReqMsg(STUN_CLIENT_DATA* client, STUN_INCOMING_REQ_DATA* requestData,
                                             const StunMessage* message, bool fromRelay)
{
    return gatewalk::stunclient::ReadIncomingRequest(client, requestData, message, fromRelay);
}

bool CreateConnectivityBindingResp(StunMessage* message, StunMsgId transactionId, const sockaddr* mappedAddr,
                                   uint32_t reqTransCnt, uint32_t respTransCnt, uint8_t flags, uint8_t nodeCount,
                                   uint16_t upBandwidth, uint16_t downBandwidth, uint16_t messageType,
                                   uint16_t responseCode)
{
    if (!StartResponse(message, transactionId, mappedAddr, messageType)) return false;
    if (reqTransCnt != 0) {
        message->hasTransCount = 1;
        message->transCount.reqCnt = static_cast<uint8_t>(reqTransCnt);
        message->transCount.respCnt = static_cast<uint8_t>(respTransCnt);
    }
    if (nodeCount != 0) {
        message->hasNetworkStatus = 1;
        message->networkStatus.flags = flags;
        message->networkStatus.nodeCount = nodeCount;
        message->networkStatus.upMaxBandwidth = upBandwidth;
        message->networkStatus.downMaxBandwidth = downBandwidth;
        // An empty group behind MESSAGE-INTEGRITY tells the peer where the path's own status goes.
        message->hasNetworkStatusResp = 1;
    }
    if (responseCode == 200) return true;
    const char* reason = responseCode == 487 ? "Role Conflict" : responseCode == 400 ? "Bad Request" : "";
    return stunlib_addError(message, reason, responseCode, ' ');
}

bool StunServer_SendConnectivityBindingResp(STUN_CLIENT_DATA* client, uint32_t connectionId, StunMsgId transactionId,
                                            const char* password, const sockaddr* mappedAddr,
                                            const sockaddr* destination, uint32_t reqTransCnt,
                                            uint32_t respTransCnt, uint8_t flags, uint8_t nodeCount,
                                            uint16_t upBandwidth, uint16_t downBandwidth, void* userCtx,
                                            STUN_SENDFUNC sendFunc, int transport, bool useRelay,
                                            uint16_t responseCode)
{
    if (client == nullptr) return false;
    StunMessage msg;
    const uint16_t type = responseCode == 200 ? STUN_MSG_BindResponseMsg : STUN_MSG_BindErrorResponseMsg;
    unsigned char buffer[STUN_MAX_PACKET_SIZE];
    unsigned int keyLength = 0;
    unsigned char* key = KeyOf(password, &keyLength);
    uint32_t length = 0;
    if (CreateConnectivityBindingResp(&msg, transactionId, mappedAddr, reqTransCnt, respTransCnt, flags, nodeCount,
                                      upBandwidth, downBandwidth, type, responseCode)) {
        length = stunlib_encodeMessage(&msg, buffer, sizeof buffer, key, keyLength, nullptr);
    }
    if (length == 0) {
        StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Error,
                  "<STUNCLIENT>  Failed to encode Binding request response\n");
        return false;
    }
    if (sendFunc != nullptr) {
        sendFunc(userCtx, false, connectionId, buffer, static_cast<int>(length), destination, transport, useRelay, 0);
    }
    ++client->stats.BindRespSent;
    return true;
}

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

using gatewalk::stunclient::KeyOf;
using gatewalk::stunclient::StartResponse;

bool StunServer_HandleStunIncomingBindReqMsg(STUN_CLIENT_DATA* client, STUN_INCOMING_REQ_DATA* requestData,
                                             const StunMessage* message, bool fromRelay)
{
    return gatewalk::stunclient::ReadIncomingRequest(client, requestData, message, fromRelay);
}

bool CreateConnectivityBindingResp(StunMessage* message, StunMsgId transactionId, const sockaddr* mappedAddr,
                                   uint16_t messageType, uint16_t /*responseCode*/)
{
    return StartResponse(message, transactionId, mappedAddr, messageType);
}

bool StunServer_SendConnectivityBindingResp(STUN_CLIENT_DATA* client, int sock, StunMsgId transactionId,
                                            const char* password, const sockaddr* mappedAddr,
                                            const sockaddr* destination, void* userCtx, STUN_SENDFUNC sendFunc,
                                            int /*sock2*/, bool useRelay, uint16_t responseCode,
                                            const MaliceMetadata* maliceMetadata)
{
    if (client == nullptr) return false;
    StunMessage msg;
    const uint16_t type = responseCode == 200 ? STUN_MSG_BindResponseMsg : STUN_MSG_BindErrorResponseMsg;
    unsigned char buffer[STUN_MIN_PACKET_SIZE];
    unsigned int keyLength = 0;
    unsigned char* key = KeyOf(password, &keyLength);
    uint32_t length = 0;
    if (CreateConnectivityBindingResp(&msg, transactionId, mappedAddr, type, responseCode)) {
        if (maliceMetadata != nullptr) {
            msg.hasMaliceMetadata = 1;
            msg.maliceMetadata = *maliceMetadata;
        }
        length = stunlib_encodeMessage(&msg, buffer, sizeof buffer, key, keyLength, nullptr);
    }
    if (length == 0) {
        StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Error,
                  "<STUNCLIENT>  Failed to encode Binding request response\n");
        return false;
    }
    if (sendFunc != nullptr) sendFunc(userCtx, sock, buffer, static_cast<int>(length), destination, useRelay);
    ++client->stats.BindRespSent;
    return true;
}

}  // namespace zyn_gatewalk
