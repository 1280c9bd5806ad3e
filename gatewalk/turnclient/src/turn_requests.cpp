// Building and sending the client's requests: Allocate, Refresh, CreatePermission, ChannelBind and
// the bare Binding keep-alive; retransmission of the kept bytes; credentials from 401 and 438 answers.
#include <openssl/rand.h>

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "turn_internal.h"

namespace gatewalk::turn_detail {

namespace {

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

void NewTransactionId(StunMsgId* id)
{
    if (RAND_bytes(id->octet, sizeof id->octet) != 1) {
        // Without the CSPRNG the id only has to be unlikely to repeat, not unguessable.
        for (auto& b : id->octet) b = static_cast<uint8_t>(stunlib_randomDraw());
    }
}

template <class Msg>
Msg* NewRequest(Inst<Msg>* t, uint16_t type)
{
    Msg* m = &t->txMsg;
    std::memset(m, 0, sizeof *m);
    m->msgHdr.type = type;
    NewTransactionId(&m->msgHdr.id);
    return m;
}

template <class Msg>
bool AddCredentials(Inst<Msg>* t, Msg* m)
{
    return stunlib_addUserName(m, t->userName, kPadChar) && stunlib_addRealm(m, t->realm, kPadChar) &&
           stunlib_addNonce(m, t->nonce, kPadChar);
}

// Encodes into the kept buffer (with MESSAGE-INTEGRITY once credentials are known), sends, and starts
// the retransmission timer.
template <class Msg>
bool SendRequest(Inst<Msg>* t, Msg* m)
{
    if (t->authenticated && !AddCredentials(t, m)) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d>  SendTurnReq(), failed encode", t->id);
        return false;
    }
    uint32_t length = stunlib_encodeMessage(m, t->stunReqMsgBuf, sizeof t->stunReqMsgBuf,
                                            t->authenticated ? t->key : nullptr, sizeof t->key, nullptr);
    if (length == 0) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, "<TURNCLIENT:%d>  SendTurnReq(), failed encode", t->id);
        return false;
    }
    t->stunReqMsgBufLen = length;
    t->transactionId = m->msgHdr.id;
    t->retransmits = 0;
    t->TimerRetransmit = kRetransmitFirstMs;
    char to[64];
    Logf(t->turnAllocateReq, TurnInfoCategory_Trace, "<TURNCLIENT:%d> %s OUT-->STUN: %s Len=%i to %s", t->id,
         TurnStateToStr(t->state), stunlib_getMessageName(m->msgHdr.type), static_cast<int>(length),
         AddrText(t->turnAllocateReq.serverAddr, to));
    t->turnAllocateReq.sendFunc(t->stunReqMsgBuf, length, Sa(t->turnAllocateReq.serverAddr),
                                t->turnAllocateReq.userCtx);
    return true;
}

template <class Msg>
void AddRequestedFamily(Inst<Msg>* t, Msg* m)
{
    int family = t->turnAllocateReq.addressFamily;
    bool known = family == AF_INET || family == AF_INET6 || family == TURN_FAMILY_BOTH;
    if (!known || !stunlib_addRequestedAddrFamily(m, family)) {
        // The request goes without it and the server picks its default family (IPv4).
        Logf(t->turnAllocateReq, TurnInfoCategory_Error,
             "<TURNCLIENT:%d> Requested Address Family  %i not supported in AllocateReq", t->id, family);
        if constexpr (kZyn<Msg>) {
            m->hasRequestedAddrFamily = 0;
        } else {
            m->hasRequestedAddrFamilyIPv4 = m->hasRequestedAddrFamilyIPv6 = m->hasRequestedAddrFamilyBoth = 0;
        }
    }
}

}  // namespace

template <class Msg>
bool SendAllocate(Inst<Msg>* t)
{
    Msg* m = NewRequest(t, STUN_MSG_AllocateRequestMsg);
    stunlib_addSoftware(m, t->softwareVersionStr, kPadChar);
    stunlib_addRequestedTransport(m, kRequestedTransportUdp);
    if (t->turnAllocateReq.evenPortAndReserve) {
        m->hasEvenPort = 1;
        m->evenPort.value = kEvenPortReserveNext;
    }
    if (t->turnAllocateReq.reservationToken != 0) {
        m->hasReservationToken = 1;
        m->reservationToken = t->turnAllocateReq.reservationToken;
    }
    AddRequestedFamily(t, m);
    return SendRequest(t, m);
}

template <class Msg>
bool SendRefresh(Inst<Msg>* t, uint32_t lifetime)
{
    Msg* m = NewRequest(t, STUN_MSG_RefreshRequestMsg);
    stunlib_addSoftware(m, t->softwareVersionStr, kPadChar);
    m->hasLifetime = 1;
    m->lifetime = lifetime;
    return SendRequest(t, m);
}

template <class Msg>
bool SendCreatePermission(Inst<Msg>* t)
{
    Msg* m = NewRequest(t, STUN_MSG_CreatePermissionRequestMsg);
    uint32_t count = t->permissions.numberOfPeers;
    if (count == 0 || count > STUN_MAX_PEER_ADDR) return false;
    for (uint32_t i = 0; i < count; ++i) {
        if (!ToStunAddress(Sa(t->permissions.peerIp[i]), &m->xorPeerAddress[i])) return false;
    }
    m->xorPeerAddrEntries = count;
    return SendRequest(t, m);
}

template <class Msg>
bool SendChannelBind(Inst<Msg>* t)
{
    Msg* m = NewRequest(t, STUN_MSG_ChannelBindRequestMsg);
    stunlib_addChannelNumber(m, t->channelBindInfo.channelNumber);
    if (!ToStunAddress(Sa(t->channelBindInfo.peerTrnspAddr), &m->xorPeerAddress[0])) return false;
    m->xorPeerAddrEntries = 1;
    return SendRequest(t, m);
}

template <class Msg>
void SendKeepAlive(Inst<Msg>* t)
{
    uint8_t bytes[STUN_HEADER_SIZE];
    NewTransactionId(&t->keepAliveTransactionId);
    uint32_t length = stunlib_encodeStunKeepAliveReq(StunKeepAliveUsage_Outbound, &t->keepAliveTransactionId,
                                                     bytes, sizeof bytes);
    char to[64];
    Logf(t->turnAllocateReq, TurnInfoCategory_Trace, "<TURNCLIENT:%d>  OUT-->STUNKEEPALIVE: Len=%i to %s", t->id,
         static_cast<int>(length), AddrText(t->turnAllocateReq.serverAddr, to));
    t->turnAllocateReq.sendFunc(bytes, length, Sa(t->turnAllocateReq.serverAddr), t->turnAllocateReq.userCtx);
}

template <class Msg>
void Resend(Inst<Msg>* t)
{
    t->turnAllocateReq.sendFunc(t->stunReqMsgBuf, t->stunReqMsgBufLen, Sa(t->turnAllocateReq.serverAddr),
                                t->turnAllocateReq.userCtx);
}

template <class Msg>
bool TakeRealmAndNonce(Inst<Msg>* t, const Msg& msg, const char* noRealmText, const char* noNonceText)
{
    // A 438 may leave the realm out (it cannot change within an allocation); a 401 must carry it.
    if (!msg.hasRealm && !t->authenticated) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, noRealmText, t->id);
        return false;
    }
    if (!msg.hasNonce) {
        Logf(t->turnAllocateReq, TurnInfoCategory_Error, noNonceText, t->id);
        return false;
    }
    if (msg.hasRealm) {
        if (std::strlen(msg.realm.value) > STUN_MAX_REALM) {
            Logf(t->turnAllocateReq, TurnInfoCategory_Error, noRealmText, t->id);
            return false;
        }
        std::strcpy(t->realm, msg.realm.value);  // bounded: the decoder keeps at most 256 bytes
    }
    std::memcpy(t->nonce, msg.nonce.value, STUN_MAX_STRING);
    t->nonce[STUN_MAX_STRING] = '\0';
    stunlib_createMD5Key(t->key, t->userName, t->realm, t->password);
    t->authenticated = 1;
    return true;
}

#define GATEWALK_TURN_REQUESTS(MSG)                                                                        \
    template bool SendAllocate<MSG>(Inst<MSG>*);                                                           \
    template bool SendRefresh<MSG>(Inst<MSG>*, uint32_t);                                                  \
    template bool SendCreatePermission<MSG>(Inst<MSG>*);                                                   \
    template bool SendChannelBind<MSG>(Inst<MSG>*);                                                        \
    template void SendKeepAlive<MSG>(Inst<MSG>*);                                                          \
    template void Resend<MSG>(Inst<MSG>*);                                                                 \
    template bool TakeRealmAndNonce<MSG>(Inst<MSG>*, const MSG&, const char*, const char*);
GATEWALK_TURN_REQUESTS(qlox_gatewalk::StunMessage)
GATEWALK_TURN_REQUESTS(zyn_gatewalk::StunMessage)
#undef GATEWALK_TURN_REQUESTS

}  // namespace gatewalk::turn_detail
