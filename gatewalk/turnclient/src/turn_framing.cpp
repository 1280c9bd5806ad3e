// Relayed data: channel data and Send indications out, channel data and Data indications in.
#include <cstring>

#include "sockaddr_util.h"
#include "turn_internal.h"

namespace gatewalk::turn_detail {

namespace {

constexpr uint32_t kChannelHeaderSize = 4;
// Send indication header in front of the payload: STUN header, XOR-PEER-ADDRESS, DATA header.
constexpr uint32_t kIndicationHeaderIPv4 = STUN_HEADER_SIZE + 12 + STUN_ATTR_HEADER_SIZE;
constexpr uint32_t kIndicationHeaderIPv6 = STUN_HEADER_SIZE + 24 + STUN_ATTR_HEADER_SIZE;
constexpr uint32_t kMaxPayload = 0xFFFF;

constexpr uint32_t Padded4(uint32_t n) { return (n + 3u) & ~3u; }

bool GivePeer(const sockaddr_storage& from, struct sockaddr* peerAddr, socklen_t addrSize)
{
    if (peerAddr == nullptr) return true;
    size_t need = from.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (addrSize < need) return false;
    std::memcpy(peerAddr, &from, need);
    return true;
}

}  // namespace

template <class Msg>
uint32_t SendPacket(Inst<Msg>* t, uint8_t* buffer, uint32_t bufferSize, uint32_t dataLength, uint32_t offset,
                    const struct sockaddr* peer, bool addPadding)
{
    if (buffer == nullptr || offset > bufferSize || dataLength > bufferSize - offset || dataLength > kMaxPayload) {
        return 0;
    }
    if (t->channelBound && (peer == nullptr || sockaddr_alike(peer, Sa(t->channelBindInfo.peerTrnspAddr)))) {
        const uint32_t framed = kChannelHeaderSize + dataLength;
        // Over TCP channel data must end on a 4-byte boundary (RFC 5766, 11.5); over UDP it need not.
        const uint32_t total = addPadding ? Padded4(framed) : framed;
        if (total > bufferSize) return 0;
        if (offset != kChannelHeaderSize) std::memmove(buffer + kChannelHeaderSize, buffer + offset, dataLength);
        stunlib_encodeTurnChannelNumber(t->channelBindInfo.channelNumber, static_cast<uint16_t>(dataLength), buffer);
        std::memset(buffer + framed, 0, total - framed);
        return total;
    }
    if (peer == nullptr || (peer->sa_family != AF_INET && peer->sa_family != AF_INET6)) return 0;
    const uint32_t header = peer->sa_family == AF_INET6 ? kIndicationHeaderIPv6 : kIndicationHeaderIPv4;
    if (header + Padded4(dataLength) > bufferSize) return 0;
    // The payload goes to its place first; the encoder then writes the header around it.
    if (offset != header) std::memmove(buffer + header, buffer + offset, dataLength);
    return stunlib_EncodeSendIndication(buffer, nullptr, bufferSize, dataLength, peer);
}

template <class Msg>
bool ReceivePacket(Inst<Msg>* t, uint8_t* buffer, uint32_t* length, struct sockaddr* peerAddr, socklen_t addrSize,
                   uint64_t* reservationToken)
{
    if (buffer == nullptr || length == nullptr || *length == 0) return false;
    const uint32_t size = *length;
    if (stunlib_isTurnChannelData(buffer)) {
        if (size < kChannelHeaderSize || !t->channelBound) return false;
        uint16_t channel = 0, payload = 0;
        stunlib_decodeTurnChannelNumber(&channel, &payload, buffer);
        if (channel != t->channelBindInfo.channelNumber || payload > size - kChannelHeaderSize) return false;
        if (!GivePeer(t->channelBindInfo.peerTrnspAddr, peerAddr, addrSize)) return false;
        std::memmove(buffer, buffer + kChannelHeaderSize, payload);
        *length = payload;
        return true;
    }
    if (!stunlib_isStunMsg(buffer, size)) return false;
    Msg* m = &t->rxMsg;
    if (!stunlib_DecodeMessage(buffer, size, m, nullptr, nullptr)) return false;
    if (m->msgHdr.type == STUN_MSG_DataIndicationMsg) {
        if (!m->hasData || m->xorPeerAddrEntries == 0) return false;
        sockaddr_storage from;
        if (!ToSockaddr(m->xorPeerAddress[0], &from) || !GivePeer(from, peerAddr, addrSize)) return false;
        // DATA points into `buffer` behind the header, so moving it to the front is safe.
        const uint32_t payload = m->data.dataLen;
        std::memmove(buffer, m->data.pData, payload);
        *length = payload;
        return true;
    }
    if (stunlib_isResponse(m)) {
        if (m->msgHdr.type == STUN_MSG_AllocateResponseMsg && m->hasReservationToken && reservationToken) {
            *reservationToken = m->reservationToken;
        }
        HandleIncResp(t, m, buffer);
    }
    return false;
}

template uint32_t SendPacket<qlox_gatewalk::StunMessage>(Inst<qlox_gatewalk::StunMessage>*, uint8_t*, uint32_t,
                                                         uint32_t, uint32_t, const struct sockaddr*, bool);
template uint32_t SendPacket<zyn_gatewalk::StunMessage>(Inst<zyn_gatewalk::StunMessage>*, uint8_t*, uint32_t,
                                                        uint32_t, uint32_t, const struct sockaddr*, bool);
template bool ReceivePacket<qlox_gatewalk::StunMessage>(Inst<qlox_gatewalk::StunMessage>*, uint8_t*, uint32_t*,
                                                        struct sockaddr*, socklen_t, uint64_t*);
template bool ReceivePacket<zyn_gatewalk::StunMessage>(Inst<zyn_gatewalk::StunMessage>*, uint8_t*, uint32_t*,
                                                       struct sockaddr*, socklen_t, uint64_t*);

}  // namespace gatewalk::turn_detail
