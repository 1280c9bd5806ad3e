// Address attributes (MAPPED-ADDRESS, XOR-MAPPED-ADDRESS, XOR-PEER-ADDRESS, XOR-RELAYED-ADDRESS,
// ALTERNATE-SERVER), address values, and the encoders built from one address: the keep-alive
// response and the Send and Data indications.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdlib>

#include "codec_internal.h"
#include "sockaddr_util.h"
#include "stunlib.h"

namespace gatewalk {

using namespace detail;

namespace {

// Value sizes: reserved byte, family, port, then 4 or 16 bytes of address.
constexpr unsigned int kIPv4ValueSize = 8;
constexpr unsigned int kIPv6ValueSize = 20;

// RFC 5389, 15.2: the port is XORed with the top 16 bits of the cookie, an IPv4 address with the
// cookie, an IPv6 address with the cookie followed by the transaction id.
void XorAddress(StunIPAddress* a, const StunMsgId& id)
{
    a->port ^= static_cast<uint16_t>(STUNLIB_MAGIC_COOKIE >> 16);
    if (a->familyType == STUN_ADDR_IPv4Family) {
        a->addr.v4 ^= STUNLIB_MAGIC_COOKIE;
    } else {
        uint8_t pad[16];
        Store32(pad, STUNLIB_MAGIC_COOKIE);
        std::memcpy(pad + 4, id.octet, STUN_MSG_ID_SIZE);
        for (int i = 0; i < 16; ++i) a->addr.v6[i] ^= pad[i];
    }
}

uint32_t EncodeIndication(uint16_t type, uint8_t* buffer, const uint8_t* data, unsigned int bufferLength,
                          unsigned int dataLength, const struct sockaddr* peer)
{
    if (buffer == nullptr || peer == nullptr || dataLength > 0xFFFF || bufferLength < STUN_HEADER_SIZE) return 0;
    StunIPAddress address{};
    if (!stunlib_sockaddrToStunAddress(peer, &address)) return 0;
    StunMsgId id;
    stunlib_createId(&id, stunlib_randomDraw(), 0);
    Writer w{buffer, buffer + STUN_HEADER_SIZE, buffer + bufferLength};
    StunData payload{dataLength, 0, data};
    if (!EncodeAtrAddress(w, STUN_ATTR_XorPeerAddress, address, &id) || !EncodeAtrData(w, payload)) return 0;
    auto total = static_cast<uint32_t>(w.Offset());
    PutHeader(buffer, type, static_cast<uint16_t>(total - STUN_HEADER_SIZE), id);
    return total;
}

}  // namespace

void stunlib_setIP4Address(StunIPAddress* address, uint32_t hostOrderAddress, uint16_t port)
{
    std::memset(address, 0, sizeof *address);
    address->familyType = STUN_ADDR_IPv4Family;
    address->port = port;
    address->addr.v4 = hostOrderAddress;
}

bool stunlib_sockaddrToStunAddress(const struct sockaddr* address, StunIPAddress* out)
{
    std::memset(out, 0, sizeof *out);
    if (address == nullptr) return false;
    if (address->sa_family == AF_INET) {
        sockaddr_in v4;
        std::memcpy(&v4, address, sizeof v4);
        stunlib_setIP4Address(out, ntohl(v4.sin_addr.s_addr), ntohs(v4.sin_port));
        return true;
    }
    if (address->sa_family == AF_INET6) {
        sockaddr_in6 v6;
        std::memcpy(&v6, address, sizeof v6);
        stunlib_setIP6Address(out, v6.sin6_addr.s6_addr, ntohs(v6.sin6_port));
        return true;
    }
    return false;
}

bool stunlib_stunAddressToSockaddr(const StunIPAddress* address, struct sockaddr_storage* out)
{
    sockaddr_reset(out);
    if (address->familyType == STUN_ADDR_IPv4Family) {
        sockaddr_initFromIPv4Int(reinterpret_cast<sockaddr_in*>(out), htonl(address->addr.v4), htons(address->port));
        return true;
    }
    if (address->familyType == STUN_ADDR_IPv6Family) {
        sockaddr_initFromIPv6Int(reinterpret_cast<sockaddr_in6*>(out), address->addr.v6, htons(address->port));
        return true;
    }
    return false;
}

void stunlib_setIP6Address(StunIPAddress* address, const uint8_t networkOrderAddress[16], uint16_t port)
{
    std::memset(address, 0, sizeof *address);
    address->familyType = STUN_ADDR_IPv6Family;
    address->port = port;
    std::memcpy(address->addr.v6, networkOrderAddress, 16);
}

int stunlib_compareIPAddresses(const StunIPAddress* a, const StunIPAddress* b)
{
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    if (a->familyType != b->familyType) return a->familyType - b->familyType;
    if (a->port != b->port) return a->port - b->port;
    if (a->familyType == STUN_ADDR_IPv4Family) return static_cast<int>(a->addr.v4 - b->addr.v4);
    return std::memcmp(a->addr.v6, b->addr.v6, 4);  // first four bytes only, see the header
}

const char* stunlib_formatIPAddress(const StunIPAddress* address, char* out, unsigned int outLength)
{
    char text[INET6_ADDRSTRLEN] = "?";
    if (address->familyType == STUN_ADDR_IPv4Family) {
        uint8_t bytes[4];
        Store32(bytes, address->addr.v4);
        inet_ntop(AF_INET, bytes, text, sizeof text);
        std::snprintf(out, outLength, "%s:%u", text, address->port);
    } else if (address->familyType == STUN_ADDR_IPv6Family) {
        inet_ntop(AF_INET6, address->addr.v6, text, sizeof text);
        std::snprintf(out, outLength, "[%s]:%u", text, address->port);
    } else {
        std::snprintf(out, outLength, "family %u?:%u", address->familyType, address->port);
    }
    return out;
}

uint32_t stunlib_encodeStunKeepAliveResp(const StunMsgId* id, const StunIPAddress* address, uint8_t* buffer,
                                         unsigned int length)
{
    if (id == nullptr || address == nullptr || buffer == nullptr) return 0;
    if (address->familyType != STUN_ADDR_IPv4Family && address->familyType != STUN_ADDR_IPv6Family) {
        std::fprintf(stderr, "unknown IP family type (%x) to encode!\n", address->familyType);
        return 0;
    }
    if (length < STUN_HEADER_SIZE) return 0;
    Writer w{buffer, buffer + STUN_HEADER_SIZE, buffer + length};
    if (!EncodeAtrAddress(w, STUN_ATTR_XorMappedAddress, *address, id)) return 0;
    auto total = static_cast<uint32_t>(w.Offset());
    PutHeader(buffer, STUN_MSG_BindResponseMsg, static_cast<uint16_t>(total - STUN_HEADER_SIZE), *id);
    return total;
}

uint32_t stunlib_EncodeSendIndication(uint8_t* buffer, const uint8_t* data, unsigned int bufferLength,
                                      unsigned int dataLength, const struct sockaddr* peerAddress)
{
    return EncodeIndication(STUN_MSG_SendIndicationMsg, buffer, data, bufferLength, dataLength, peerAddress);
}

uint32_t stunlib_EncodeDataIndication(uint8_t* buffer, const uint8_t* data, unsigned int bufferLength,
                                      unsigned int dataLength, const struct sockaddr* peerAddress)
{
    return EncodeIndication(STUN_MSG_DataIndicationMsg, buffer, data, bufferLength, dataLength, peerAddress);
}

namespace detail {

bool EncodeAtrAddress(Writer& w, uint16_t type, const StunIPAddress& address, const StunMsgId* xorId)
{
    unsigned int valueSize;
    if (address.familyType == STUN_ADDR_IPv4Family)
        valueSize = kIPv4ValueSize;
    else if (address.familyType == STUN_ADDR_IPv6Family)
        valueSize = kIPv6ValueSize;
    else
        return false;
    if (w.Room() < STUN_ATTR_HEADER_SIZE + valueSize) return false;
    StunIPAddress a = address;
    if (xorId) XorAddress(&a, *xorId);
    PutAtrHeader(w, type, static_cast<uint16_t>(valueSize));
    w.pos[0] = 0;
    w.pos[1] = a.familyType;
    Store16(w.pos + 2, a.port);
    if (a.familyType == STUN_ADDR_IPv4Family)
        Store32(w.pos + 4, a.addr.v4);
    else
        std::memcpy(w.pos + 4, a.addr.v6, 16);
    w.pos += valueSize;
    return true;
}

bool DecodeAtrAddress(Reader& r, StunIPAddress* address, const StunMsgId* xorId)
{
    // The length field is not trusted: the family byte decides how much is read and consumed.
    if (!r.Has(2)) return false;
    StunIPAddress a;
    std::memset(&a, 0, sizeof a);  // padding too: callers compare records as bytes
    a.familyType = r.At()[1];
    if (a.familyType == STUN_ADDR_IPv4Family) {
        if (!r.Has(kIPv4ValueSize)) return false;
        a.port = Load16(r.At() + 2);
        a.addr.v4 = Load32(r.At() + 4);
        r.Skip(kIPv4ValueSize, kIPv4ValueSize);
    } else if (a.familyType == STUN_ADDR_IPv6Family) {
        if (!r.Has(kIPv6ValueSize)) return false;
        a.port = Load16(r.At() + 2);
        std::memcpy(a.addr.v6, r.At() + 4, 16);
        r.Skip(kIPv6ValueSize, kIPv6ValueSize);
    } else {
        // Unknown families fail the decode quietly: a peer may send them as often as it likes.
        return false;
    }
    if (xorId) XorAddress(&a, *xorId);
    *address = a;
    return true;
}

}  // namespace detail
}  // namespace gatewalk
