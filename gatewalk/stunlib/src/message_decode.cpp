// stunlib_DecodeMessage: bytes to the record. The header is framed first (its length against the
// buffer), then each attribute checks what it needs against the bytes the header says are left
// before its first read.
#include <type_traits>

#include "codec_internal.h"
#include "malice.h"
#include "stunlib.h"

namespace gatewalk::detail {

namespace {

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

constexpr unsigned int kFixed4 = 4;
constexpr unsigned int kFixed8 = 8;
constexpr uint16_t kFirstOptionalType = 0x8000;  // comprehension-optional types are never listed

struct DecodeState {
    FILE* stream;
    StunAtrUnknown* unknown;
    bool afterIntegrity;
};

template <class Msg>
bool DecodeRelay(Reader& r, Msg* m)
{
    if constexpr (kZyn<Msg>) {
        if (!DecodeAtrAddress(r, &m->xorRelayAddress, &m->msgHdr.id)) return false;
        m->hasXorRelayAddress = 1;
    } else {
        if (!DecodeAtrAddress(r, &m->xorRelayAddressTmp, &m->msgHdr.id)) return false;
        if (m->xorRelayAddressTmp.familyType == STUN_ADDR_IPv4Family) {
            m->xorRelayAddressIPv4 = m->xorRelayAddressTmp;
            m->hasXorRelayAddressIPv4 = 1;
        } else {
            m->xorRelayAddressIPv6 = m->xorRelayAddressTmp;
            m->hasXorRelayAddressIPv6 = 1;
        }
        if (m->hasXorRelayAddressIPv4 && m->hasXorRelayAddressIPv6) m->hasXorRelayAddressBoth = 1;
    }
    return true;
}

template <class Msg>
void DecodeFamily(const uint8_t* p, Msg* m)
{
    StunAtrRequestedAddrFamily f{p[0], {p[1], p[2], p[3]}};
    if constexpr (kZyn<Msg>) {
        m->requestedAddrFamily = f;
        m->hasRequestedAddrFamily = 1;
    } else {
        // An unknown family stays in the scratch only.
        m->requestedAddrFamilyTmp = f;
        if (f.family == STUN_ADDR_IPv4Family) {
            m->requestedAddrFamilyIPv4 = f;
            m->hasRequestedAddrFamilyIPv4 = 1;
        } else if (f.family == STUN_ADDR_IPv6Family) {
            m->requestedAddrFamilyIPv6 = f;
            m->hasRequestedAddrFamilyIPv6 = 1;
        }
        if (m->hasRequestedAddrFamilyIPv4 && m->hasRequestedAddrFamilyIPv6) m->hasRequestedAddrFamilyBoth = 1;
    }
}

// Attributes that only qlox_gatewalk knows. Returns false when the value is short; sets `handled`.
template <class Msg>
bool DecodeQloxOnly(Reader& r, uint16_t type, Msg* m, DecodeState& s, bool* handled)
{
    *handled = true;
    const uint8_t* p = r.At();
    switch (type) {
    case STUN_ATTR_StreamType:
        if (!r.Has(kFixed4)) return false;
        m->streamType.type = static_cast<uint8_t>(p[0] >> 4);
        m->streamType.interval = Load16(p + 1);
        m->hasStreamType = 1;
        r.Skip(kFixed4, kFixed4);
        return true;
    case STUN_ATTR_TTL:
        if (!r.Has(kFixed4)) return false;
        m->ttl.ttl = p[0];
        m->hasTTL = 1;
        r.Skip(kFixed4, kFixed4);
        return true;
    case STUN_ATTR_TransCount:
        if (!r.Has(kFixed4)) return false;
        m->transCount.reserved = Load16(p);
        m->transCount.reqCnt = p[2];
        m->transCount.respCnt = p[3];
        m->hasTransCount = 1;
        r.Skip(kFixed4, kFixed4);
        return true;
    case STUN_ATTR_NetworkStatus: {
        // Eight bytes are read, so eight must be there (a shorter one fails the message either way).
        if (!r.Has(kFixed8)) return false;
        StunAtrNetworkStatus n{p[0], p[1], Load16(p + 2), Load16(p + 4), Load16(p + 6)};
        if (s.afterIntegrity) {
            m->networkStatusResp = n;
            m->hasNetworkStatusResp = 1;
        } else {
            m->networkStatus = n;
            m->hasNetworkStatus = 1;
        }
        r.Skip(kFixed8, kFixed8);
        return true;
    }
    default:
        *handled = false;
        return true;
    }
}

template <class Msg>
bool DecodeAttribute(Reader& r, uint16_t type, uint16_t atrLength, Msg* m, DecodeState& s)
{
    const StunMsgId* id = &m->msgHdr.id;
    const uint8_t* p = r.At();
    // Fixed-size values ignore the length field and consume their own size.
    auto fixed = [&r](unsigned int size) {
        if (!r.Has(size)) return false;
        r.Skip(size, size);
        return true;
    };
    switch (type) {
    case STUN_ATTR_Username:
        return (m->hasUsername = DecodeAtrString(r, atrLength, &m->username));
    case STUN_ATTR_Software:
        return (m->hasSoftware = DecodeAtrString(r, atrLength, &m->softwareName));
    case STUN_ATTR_Realm:
        return (m->hasRealm = DecodeAtrString(r, atrLength, &m->realm));
    case STUN_ATTR_Nonce:
        return (m->hasNonce = DecodeAtrString(r, atrLength, &m->nonce));
    case STUN_ATTR_ErrorCode:
        return (m->hasErrorCode = DecodeAtrError(r, atrLength, &m->errorCode));
    case STUN_ATTR_UnknownAttribute:
        return (m->hasUnknownAttributes = DecodeAtrUnknown(r, atrLength, &m->unknownAttributes));
    case STUN_ATTR_MessageIntegrity:
        if (!r.Has(STUN_SHA1_SIZE)) return false;
        // Offset of the attribute header, from what the header length says is left.
        m->integrity.offset =
            static_cast<uint16_t>(STUN_HEADER_SIZE + m->msgHdr.length - r.rest - STUN_ATTR_HEADER_SIZE);
        std::memcpy(m->integrity.hash, p, STUN_SHA1_SIZE);
        m->hasMessageIntegrity = 1;
        s.afterIntegrity = true;
        r.Skip(STUN_SHA1_SIZE, STUN_SHA1_SIZE);
        return true;
    case STUN_ATTR_FingerPrint:
        if (!r.Has(kFixed4)) return false;
        // A bad CRC is reported but the message stands; callers that care recheck it.
        if (!stunlib_checkFingerPrint(r.buffer, static_cast<unsigned int>(r.pos)) && s.stream)
            std::fputs("stunlib_DecodeMessage: --Fingerprint CRC error\n", s.stream);
        m->hasFingerPrint = 1;
        r.Skip(kFixed4, kFixed4);
        return true;
    case STUN_ATTR_XorMappedAddress:
        return (m->hasXorMappedAddress = DecodeAtrAddress(r, &m->xorMappedAddress, id));
    case STUN_ATTR_MappedAddress:
        return (m->hasMappedAddress = DecodeAtrAddress(r, &m->mappedAddress, nullptr));
    case STUN_ATTR_AlternateServer:
        return (m->hasAlternateServer = DecodeAtrAddress(r, &m->alternateServer, nullptr));
    case STUN_ATTR_XorPeerAddress: {
        // Room for ten; the design sends one. Further entries are read for framing and dropped.
        StunIPAddress dropped;
        bool room = m->xorPeerAddrEntries < STUN_MAX_PEER_ADDR;
        if (!DecodeAtrAddress(r, room ? &m->xorPeerAddress[m->xorPeerAddrEntries] : &dropped, id)) return false;
        if (room) ++m->xorPeerAddrEntries;
        return true;
    }
    case STUN_ATTR_XorRelayAddress:
        return DecodeRelay(r, m);
    case STUN_ATTR_Data:
        return (m->hasData = DecodeAtrData(r, atrLength, &m->data));
    case STUN_ATTR_RequestedAddrFamily:
        if (!r.Has(kFixed4)) return false;
        DecodeFamily(p, m);
        return fixed(kFixed4);
    case STUN_ATTR_Lifetime:
        if (!r.Has(kFixed4)) return false;
        m->lifetime = Load32(p);
        return (m->hasLifetime = fixed(kFixed4));
    case STUN_ATTR_Priority:
        if (!r.Has(kFixed4)) return false;
        m->priority = Load32(p);
        return (m->hasPriority = fixed(kFixed4));
    case STUN_ATTR_ChannelNumber:
        if (!r.Has(kFixed4)) return false;
        m->channelNumber = {Load16(p), Load16(p + 2)};
        return (m->hasChannelNumber = fixed(kFixed4));
    case STUN_ATTR_EvenPort:
        if (!r.Has(kFixed4)) return false;
        m->evenPort.value = p[0];
        return (m->hasEvenPort = fixed(kFixed4));
    case STUN_ATTR_RequestedTransport:
        if (!r.Has(kFixed4)) return false;
        m->requestedTransport = {p[0], {p[1], p[2], p[3]}};
        return (m->hasRequestedTransport = fixed(kFixed4));
    case STUN_ATTR_ICEControlled:
        if (!r.Has(kFixed8)) return false;
        m->controlled = Load64(p);
        return (m->hasControlled = fixed(kFixed8));
    case STUN_ATTR_ICEControlling:
        if (!r.Has(kFixed8)) return false;
        m->controlling = Load64(p);
        return (m->hasControlling = fixed(kFixed8));
    case STUN_ATTR_ReservationToken:
        if (!r.Has(kFixed8)) return false;
        m->reservationToken = Load64(p);
        return (m->hasReservationToken = fixed(kFixed8));
    case STUN_ATTR_UseCandidate:
        m->hasUseCandidate = 1;  // empty: nothing beyond the header is consumed
        return true;
    case STUN_ATTR_DontFragment:
        m->hasDontFragment = 1;
        return true;
    default:
        break;
    }
    if constexpr (kZyn<Msg>) {
        if (type >= STUN_ATTR_MDAgent && type <= STUN_ATTR_MDWord) {
            DecodeMaliceAttribute(r, type, atrLength, m, s.stream);
            return true;
        }
    } else {
        bool handled = false;
        bool ok = DecodeQloxOnly(r, type, m, s, &handled);
        if (handled) return ok;
    }
    if (type < kFirstOptionalType && s.unknown && s.unknown->numAttributes < STUN_MAX_UNKNOWN_ATTRIBUTES)
        s.unknown->attrType[s.unknown->numAttributes++] = type;
    r.Skip(Padded(atrLength), static_cast<long>(Padded(atrLength)));
    return true;
}

template <class Msg>
bool DecodeMessage(const unsigned char* buffer, unsigned long length, Msg* m, StunAtrUnknown* unknown, FILE* stream)
{
    // Both profiles need a whole header; only qlox_gatewalk bounds the message from above.
    bool tooLong = !kZyn<Msg> && length > STUN_MAX_PACKET_SIZE;
    if (buffer == nullptr || m == nullptr || length < STUN_HEADER_SIZE || tooLong) {
        if (stream) std::fputs("No buffer or no message recieved\n", stderr);
        return false;
    }
    std::memset(m, 0, sizeof *m);
    if (unknown) unknown->numAttributes = 0;
    m->msgHdr.type = Load16(buffer);
    m->msgHdr.length = Load16(buffer + 2);
    std::memcpy(&m->magicCookie, buffer + 4, sizeof m->magicCookie);
    std::memcpy(m->msgHdr.id.octet, buffer + 8, STUN_MSG_ID_SIZE);
    if (m->msgHdr.length > length - STUN_HEADER_SIZE) {
        if (stream)
            std::fprintf(stream, "stunlib_DecodeMessage: The length in msg (%d) is larger than rest of buffer (%d)!\n",
                         m->msgHdr.length, static_cast<int>(length - STUN_HEADER_SIZE));
        return false;
    }
    Reader r{buffer, length, STUN_HEADER_SIZE, m->msgHdr.length};
    DecodeState state{stream, unknown, false};
    while (r.rest > 0) {
        if (!r.Has(STUN_ATTR_HEADER_SIZE)) {
            if (stream) std::fprintf(stream, "stunlib_DecodeMessage: Failed to parse Attribute head (%ld)\n", r.rest);
            return false;
        }
        uint16_t type = Load16(r.At());
        uint16_t atrLength = Load16(r.At() + 2);
        r.Skip(STUN_ATTR_HEADER_SIZE, STUN_ATTR_HEADER_SIZE);
        if (!DecodeAttribute(r, type, atrLength, m, state)) return false;
    }
    if (r.rest < 0) {
        if (stream) std::fputs("<stunmsg> Message length or attribute length error.\n", stream);
        return false;
    }
    if (stream) {
        std::fputs("STUN_parse, message parsed: \n", stream);
        if constexpr (kZyn<Msg>)
            zyn_gatewalk::stun_printMessage(stream, m);
        else
            qlox_gatewalk::stun_printMessage(stream, m);
        if (unknown && unknown->numAttributes) std::fputs("STUN_parse, Unknown attributes encountered\n", stream);
    }
    return true;
}

}  // namespace

}  // namespace gatewalk::detail

bool qlox_gatewalk::stunlib_DecodeMessage(const unsigned char* buffer, unsigned long length, StunMessage* message,
                                          StunAtrUnknown* unknown, FILE* stream)
{
    return gatewalk::detail::DecodeMessage(buffer, length, message, unknown, stream);
}

bool zyn_gatewalk::stunlib_DecodeMessage(const unsigned char* buffer, unsigned long length, StunMessage* message,
                                         StunAtrUnknown* unknown, FILE* stream)
{
    return gatewalk::detail::DecodeMessage(buffer, length, message, unknown, stream);
}
