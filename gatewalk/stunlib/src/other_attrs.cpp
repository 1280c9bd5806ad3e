// UNKNOWN-ATTRIBUTES, DATA, and the helpers that fill the TURN request attributes of a record.
#include <sys/socket.h>

#include <algorithm>

#include "codec_internal.h"
#include "stunlib.h"

namespace gatewalk::detail {

namespace {

// DATA pads with 0xFF rather than zeros: receivers of ours strip it by the length, and the marker
// makes stray padding easy to spot in captures.
constexpr uint8_t kDataPadByte = 0xFF;
// Family value that asks for both an IPv4 and an IPv6 relay (AF_INET + AF_INET6).
constexpr int kBothFamilies = 12;

}  // namespace

bool EncodeAtrUnknown(Writer& w, const StunAtrUnknown& unknown)
{
    unsigned int count = unknown.numAttributes;
    if (count > STUN_MAX_UNKNOWN_ATTRIBUTES) return false;
    unsigned int need = (count + 2 + count % 2) * 2;
    if (w.Room() < need) return false;
    // The length counts the listed types only; an odd count gets two zero bytes of padding.
    PutAtrHeader(w, STUN_ATTR_UnknownAttribute, static_cast<uint16_t>(count * 2));
    for (unsigned int i = 0; i < count; ++i, w.pos += 2) Store16(w.pos, unknown.attrType[i]);
    if (count % 2) {
        Store16(w.pos, 0);
        w.pos += 2;
    }
    return true;
}

bool DecodeAtrUnknown(Reader& r, uint16_t atrLength, StunAtrUnknown* unknown)
{
    if (!r.Has(atrLength)) return false;
    unsigned int count = std::min<unsigned int>(atrLength / 2, STUN_MAX_UNKNOWN_ATTRIBUTES);
    for (unsigned int i = 0; i < count; ++i) unknown->attrType[i] = Load16(r.At() + 2 * i);
    unknown->numAttributes = static_cast<uint16_t>(count);
    r.Skip(Padded(atrLength), static_cast<long>(Padded(atrLength)));
    return true;
}

bool EncodeAtrData(Writer& w, const StunData& data)
{
    if (data.dataLen > 0xFFFF) return false;
    unsigned int padded = Padded(data.dataLen);
    if (w.Room() < STUN_ATTR_HEADER_SIZE + padded) return false;
    PutAtrHeader(w, STUN_ATTR_Data, static_cast<uint16_t>(data.dataLen));
    // A null payload is already in place (senders of media build around it); it may also overlap.
    if (data.pData) std::memmove(w.pos, data.pData, data.dataLen);
    std::memset(w.pos + data.dataLen, kDataPadByte, padded - data.dataLen);
    w.pos += padded;
    return true;
}

bool DecodeAtrData(Reader& r, uint16_t atrLength, StunData* data)
{
    if (!r.Has(atrLength)) return false;
    data->pData = r.At();
    data->dataLen = atrLength;
    data->offset = static_cast<uint32_t>(r.length - static_cast<unsigned long>(r.rest));
    r.Skip(Padded(atrLength), static_cast<long>(Padded(atrLength)));
    return true;
}

template <class Msg>
bool AddRequestedTransport(Msg* m, uint8_t protocol)
{
    m->hasRequestedTransport = 1;
    m->requestedTransport.protocol = protocol;
    std::memset(m->requestedTransport.reserved, 0, sizeof m->requestedTransport.reserved);
    return true;
}

template <class Msg>
bool AddChannelNumber(Msg* m, uint16_t channel)
{
    m->hasChannelNumber = 1;
    m->channelNumber.channel = channel;
    m->channelNumber.reserved = 0;
    return true;
}

}  // namespace gatewalk::detail

namespace qlox_gatewalk {

using namespace gatewalk::detail;

bool stunlib_addRequestedTransport(StunMessage* m, uint8_t protocol) { return AddRequestedTransport(m, protocol); }
bool stunlib_addChannelNumber(StunMessage* m, uint16_t channel) { return AddChannelNumber(m, channel); }

bool stunlib_addRequestedAddrFamily(StunMessage* m, int family)
{
    std::memset(m->requestedAddrFamilyIPv4.reserved, 0, 3);
    std::memset(m->requestedAddrFamilyIPv6.reserved, 0, 3);
    bool v4 = family == AF_INET || family == kBothFamilies;
    bool v6 = family == AF_INET6 || family == kBothFamilies;
    if (!v4 && !v6) return false;
    if (v4) {
        m->hasRequestedAddrFamilyIPv4 = 1;
        m->requestedAddrFamilyIPv4.family = STUN_ADDR_IPv4Family;
    }
    if (v6) {
        m->hasRequestedAddrFamilyIPv6 = 1;
        m->requestedAddrFamilyIPv6.family = STUN_ADDR_IPv6Family;
    }
    if (v4 && v6) m->hasRequestedAddrFamilyBoth = 1;
    return true;
}

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

using namespace gatewalk::detail;

bool stunlib_addRequestedTransport(StunMessage* m, uint8_t protocol) { return AddRequestedTransport(m, protocol); }
bool stunlib_addChannelNumber(StunMessage* m, uint16_t channel) { return AddChannelNumber(m, channel); }

bool stunlib_addRequestedAddrFamily(StunMessage* m, int family)
{
    std::memset(m->requestedAddrFamily.reserved, 0, 3);
    if (family != AF_INET && family != AF_INET6) return false;
    m->hasRequestedAddrFamily = 1;
    m->requestedAddrFamily.family = family == AF_INET ? STUN_ADDR_IPv4Family : STUN_ADDR_IPv6Family;
    return true;
}

}  // namespace zyn_gatewalk
