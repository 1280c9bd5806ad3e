// stunlib_encodeMessage: the record to bytes, in a fixed attribute order, with MESSAGE-INTEGRITY and
// FINGERPRINT.
#include <algorithm>
#include <type_traits>

#include "codec_internal.h"
#include "malice.h"
#include "stunlib.h"

namespace gatewalk::detail {

namespace {

// Largest attribute length the 16-bit header field can carry, kept a multiple of 4.
constexpr size_t kMaxAttributesLength = 0xFFFC;
// A caller's key is copied into a local of this size in deployed builds; longer keys are refused.
constexpr unsigned int kMaxKeyLength = 513;
constexpr unsigned int kFingerprintSize = 8;

// Free bytes that these attributes demand. They are larger than the attributes (8 or 12 bytes) on
// purpose: deployed encoders refuse them below these thresholds, and messages must fail the same way.
constexpr size_t kNeedTTL = 32;
constexpr size_t kNeedStreamType = 24;
constexpr size_t kNeedTransCount = 24;
constexpr size_t kNeedNetworkStatus = 32;

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

bool FingerprintDue(uint16_t type, bool hasTTL)
{
    // Indications relayed through TURN and path discovery probes go without FINGERPRINT, and so does
    // a hop-limited (TTL) probe in qlox_gatewalk.
    return type != STUN_MSG_SendIndicationMsg && type != STUN_MSG_DataIndicationMsg &&
           (type & 0xFEFF) != STUN_MSG_PathDiscoveryRequestMsg && !hasTTL;
}

bool EncodeNetworkStatus(Writer& w, const StunAtrNetworkStatus& s)
{
    uint8_t v[8];
    v[0] = s.flags;
    v[1] = s.nodeCount;
    Store16(v + 2, s.reserved);
    Store16(v + 4, s.upMaxBandwidth);
    Store16(v + 6, s.downMaxBandwidth);
    return EncodeAtrBytes(w, STUN_ATTR_NetworkStatus, v, sizeof v, kNeedNetworkStatus);
}

bool EncodeTTL(Writer& w, const StunAtrTTL& ttl)
{
    const uint8_t v[4] = {ttl.ttl, 0, 0, 0};
    return EncodeAtrBytes(w, STUN_ATTR_TTL, v, sizeof v, kNeedTTL);
}

bool EncodeFamily(Writer& w, const StunAtrRequestedAddrFamily& f)
{
    const uint8_t v[4] = {f.family, f.reserved[0], f.reserved[1], f.reserved[2]};
    return EncodeAtrBytes(w, STUN_ATTR_RequestedAddrFamily, v, sizeof v, 8);
}

// Writes every attribute in front of MESSAGE-INTEGRITY. Returns null on success, else the failure
// text for the stream.
template <class Msg>
const char* EncodeAttributes(Writer& w, const Msg* m)
{
    const StunMsgId& id = m->msgHdr.id;
    if (m->hasSoftware && !EncodeAtrString(w, STUN_ATTR_Software, m->softwareName)) return "Invalid Software attribute\n";
    if (m->hasPriority && !EncodeAtrU32(w, STUN_ATTR_Priority, m->priority)) return "Invalid Priority attribute\n";
    if (m->hasControlled && !EncodeAtrU64(w, STUN_ATTR_ICEControlled, m->controlled)) return "Invalid ICEControlled\n";
    if (m->hasUsername && !EncodeAtrString(w, STUN_ATTR_Username, m->username)) return "Invalid Username attribute\n";
    if (m->hasNonce && !EncodeAtrString(w, STUN_ATTR_Nonce, m->nonce)) return "Invalid Nonce attribute\n";
    if (m->hasRealm && !EncodeAtrString(w, STUN_ATTR_Realm, m->realm)) return "Invalid Realm attribute\n";
    if (m->hasLifetime && !EncodeAtrU32(w, STUN_ATTR_Lifetime, m->lifetime)) return "Invalid Lifetime attribute\n";
    if (m->hasRequestedTransport) {
        const auto& t = m->requestedTransport;
        const uint8_t v[4] = {t.protocol, t.reserved[0], t.reserved[1], t.reserved[2]};
        if (!EncodeAtrBytes(w, STUN_ATTR_RequestedTransport, v, sizeof v, 8))
            return "Invalid RequestedTransport attribute\n";
    }
    if constexpr (kZyn<Msg>) {
        if (m->hasRequestedAddrFamily && !EncodeFamily(w, m->requestedAddrFamily))
            return "Invalid RequestedAddressFamily attribute\n";
    } else {
        if (m->hasRequestedAddrFamilyIPv4 && !EncodeFamily(w, m->requestedAddrFamilyIPv4))
            return "Invalid RequestedAddressFamily attribute\n";
        if (m->hasRequestedAddrFamilyIPv6 && !EncodeFamily(w, m->requestedAddrFamilyIPv6))
            return "Invalid RequestedAddressFamily attribute\n";
    }
    if (m->hasControlling && !EncodeAtrU64(w, STUN_ATTR_ICEControlling, m->controlling)) return "Invalid IceControlling\n";
    if (m->hasMappedAddress && !EncodeAtrAddress(w, STUN_ATTR_MappedAddress, m->mappedAddress, nullptr))
        return "mappedAddress failed \n";
    if (m->hasErrorCode && !EncodeAtrError(w, m->errorCode)) return "Invalid ErrorCode attribute\n";
    if (m->hasUnknownAttributes && !EncodeAtrUnknown(w, m->unknownAttributes)) return "Invalid unknown attribute\n";
    if (m->hasXorMappedAddress && !EncodeAtrAddress(w, STUN_ATTR_XorMappedAddress, m->xorMappedAddress, &id))
        return "Invalid xorMappedAddress\n";
    if (m->hasChannelNumber) {
        uint8_t v[4];
        Store16(v, m->channelNumber.channel);
        Store16(v + 2, m->channelNumber.reserved);
        if (!EncodeAtrBytes(w, STUN_ATTR_ChannelNumber, v, sizeof v, 8)) return "Invalid ChannelNumber attribute\n";
    }
    if (m->hasAlternateServer && !EncodeAtrAddress(w, STUN_ATTR_AlternateServer, m->alternateServer, nullptr))
        return "Invalid Alternate Server\n";
    return nullptr;
}

template <class Msg>
const char* EncodeAttributesTail(Writer& w, const Msg* m, FILE* stream)
{
    const StunMsgId& id = m->msgHdr.id;
    for (uint32_t i = 0; i < m->xorPeerAddrEntries; ++i) {
        if (i >= STUN_MAX_PEER_ADDR || !EncodeAtrAddress(w, STUN_ATTR_XorPeerAddress, m->xorPeerAddress[i], &id)) {
            if (stream) std::fprintf(stream, "Invalid Peer Address entry  %d\n", static_cast<int>(i));
            return "";
        }
    }
    if constexpr (kZyn<Msg>) {
        if (m->hasXorRelayAddress && !EncodeAtrAddress(w, STUN_ATTR_XorRelayAddress, m->xorRelayAddress, &id))
            return "xorRelayAddress failed \n";
    } else {
        if (m->hasXorRelayAddressIPv4 && !EncodeAtrAddress(w, STUN_ATTR_XorRelayAddress, m->xorRelayAddressIPv4, &id))
            return "xorRelayAddressIPv4 failed \n";
        if (m->hasXorRelayAddressIPv6 && !EncodeAtrAddress(w, STUN_ATTR_XorRelayAddress, m->xorRelayAddressIPv6, &id))
            return "xorRelayAddressIPv6 failed \n";
    }
    if (m->hasUseCandidate && !EncodeAtrFlag(w, STUN_ATTR_UseCandidate)) return "Invalid UseCandidate\n";
    if (m->hasDontFragment && !EncodeAtrFlag(w, STUN_ATTR_DontFragment)) return "Invalid DontFragment\n";
    if (m->hasEvenPort && !EncodeAtrBytes(w, STUN_ATTR_EvenPort, &m->evenPort.value, 1, 8))
        return "Invalid EvenPort attribute\n";
    if (m->hasReservationToken && !EncodeAtrU64(w, STUN_ATTR_ReservationToken, m->reservationToken))
        return "Invalid Reservation Token attribute\n";
    if constexpr (kZyn<Msg>) {
        if (m->hasTTL && !EncodeTTL(w, m->ttl)) return "Invalid TTL attribute\n";
        if (m->hasTTLString && !EncodeAtrString(w, STUN_ATTR_TTLString, m->TTLString)) return "Invalid TTL attribute\n";
    } else {
        if (m->hasStreamType) {
            uint8_t v[3];
            v[0] = static_cast<uint8_t>(m->streamType.type << 4);
            Store16(v + 1, m->streamType.interval);
            if (!EncodeAtrBytes(w, STUN_ATTR_StreamType, v, sizeof v, kNeedStreamType))
                return "Invalid StreamType attribute\n";
        }
        if (m->hasTTL && !EncodeTTL(w, m->ttl)) return "Invalid TTL attribute\n";
        if (m->hasNetworkStatus && !EncodeNetworkStatus(w, m->networkStatus)) return "Invalid Network Status attribute\n";
        if (m->hasTransCount) {
            uint8_t v[4];
            Store16(v, m->transCount.reserved);
            v[2] = m->transCount.reqCnt;
            v[3] = m->transCount.respCnt;
            if (!EncodeAtrBytes(w, STUN_ATTR_TransCount, v, sizeof v, kNeedTransCount))
                return "Invalid TransCount attribute\n";
        }
    }
    if (m->hasData && !EncodeAtrData(w, m->data)) return "Invalid Data attribute\n";
    return nullptr;
}

template <class Msg>
uint32_t EncodeMessage(Msg* m, unsigned char* buffer, unsigned int bufferLength, const unsigned char* key,
                       unsigned int keyLength, FILE* stream)
{
    if (buffer == nullptr || m == nullptr || bufferLength < STUN_HEADER_SIZE) {
        if (stream)
            std::fprintf(stream, "invalid arguments (%p, %p, %d)\n", static_cast<void*>(m), static_cast<void*>(buffer),
                         static_cast<int>(bufferLength));
        return 0;
    }
    bool hasTTL = false;
    if constexpr (!kZyn<Msg>) hasTTL = m->hasTTL;
    const bool addFingerprint = FingerprintDue(m->msgHdr.type, hasTTL);
    size_t usable = std::min<size_t>(bufferLength, STUN_HEADER_SIZE + kMaxAttributesLength);
    Writer w{buffer, buffer + STUN_HEADER_SIZE, buffer + usable};
    auto fail = [stream](const char* text) {
        if (stream) std::fputs(text, stream);
        return 0u;
    };

    if (const char* error = EncodeAttributes(w, m)) return fail(error);
    if (const char* error = EncodeAttributesTail(w, m, stream)) return fail(error);

    [[maybe_unused]] MalicePlacement placement = MalicePlacement::BothBefore;
    if constexpr (kZyn<Msg>) {
        placement = MalicePlacementFor(m->msgHdr.type);
        if (m->hasMaliceMetadata && !EncodeMaliceBefore(w, m->maliceMetadata, placement))
            return fail("Invalid Malice metadata\n");
    }
    if (key) {
        std::memset(&m->integrity, 0, sizeof m->integrity);
        m->hasMessageIntegrity = 1;
        static constexpr uint8_t kZeroHash[STUN_SHA1_SIZE] = {};
        if (keyLength > kMaxKeyLength || w.Room() < STUN_ATTR_HEADER_SIZE + STUN_SHA1_SIZE)
            return fail("Faild to encode integrity!\n");
        m->integrity.offset = static_cast<uint16_t>(w.Offset());
        EncodeAtrIntegrity(w, kZeroHash);
    }
    // Behind MESSAGE-INTEGRITY but inside the length its HMAC sees.
    if constexpr (kZyn<Msg>) {
        if (m->hasMaliceMetadata && placement == MalicePlacement::DnBeforeUpAfter &&
            !EncodeMaliceAfter(w, m->maliceMetadata, placement))
            return fail("Invalid Malice metadata\n");
    } else {
        if (m->hasNetworkStatusResp && !EncodeNetworkStatus(w, m->networkStatusResp))
            return fail("Invalid Network Status attribute\n");
    }

    m->msgHdr.length = static_cast<uint16_t>(w.Offset() - STUN_HEADER_SIZE);
    PutHeader(buffer, m->msgHdr.type, m->msgHdr.length, m->msgHdr.id);

    if (key) {
        if (HmacSha1(key, keyLength, buffer, m->integrity.offset, m->integrity.hash))
            std::memcpy(buffer + m->integrity.offset + STUN_ATTR_HEADER_SIZE, m->integrity.hash, STUN_SHA1_SIZE);
        else if (stream)
            std::fputs("Failed to write Integrity hash\n", stream);
    }
    // A response's trailing metadata goes outside the HMAC's length: added to the header afterwards.
    if constexpr (kZyn<Msg>) {
        if (m->hasMaliceMetadata && placement == MalicePlacement::UpBeforeDnAfter) {
            if (!EncodeMaliceAfter(w, m->maliceMetadata, placement)) return fail("Invalid Malice metadata\n");
            m->msgHdr.length = static_cast<uint16_t>(w.Offset() - STUN_HEADER_SIZE);
            PutHeader(buffer, m->msgHdr.type, m->msgHdr.length, m->msgHdr.id);
        }
    }

    if (addFingerprint) {
        // Deployed encoders compared the whole buffer length with 8 here and could write past the
        // end; room is checked on what is left, and a message without room goes without FINGERPRINT.
        if (w.Room() < kFingerprintSize) {
            if (stream) std::fputs("Faild to add CRC Fingerprint\n", stream);
        } else {
            m->msgHdr.length = static_cast<uint16_t>(m->msgHdr.length + kFingerprintSize);
            PutHeader(buffer, m->msgHdr.type, m->msgHdr.length, m->msgHdr.id);
            uint32_t crc = stunlib_calculateFingerprint(buffer, w.Offset());
            EncodeAtrU32(w, STUN_ATTR_FingerPrint, crc);
        }
    }

    uint32_t total = m->msgHdr.length + STUN_HEADER_SIZE;
    if (stream) {
        std::fputs("STUN_encode, messages to encode: \n", stream);
        if constexpr (kZyn<Msg>)
            zyn_gatewalk::stun_printMessage(stream, m);
        else
            qlox_gatewalk::stun_printMessage(stream, m);
        std::fputs("STUN_encode, buffer encoded: \n", stream);
        stunlib_printBuffer(stream, buffer, static_cast<int>(total), STUN_DUMP_LABEL);
    }
    return total;
}

}  // namespace

}  // namespace gatewalk::detail

uint32_t qlox_gatewalk::stunlib_encodeMessage(StunMessage* message, unsigned char* buffer, unsigned int bufferLength,
                                              unsigned char* key, unsigned int keyLength, FILE* stream)
{
    return gatewalk::detail::EncodeMessage(message, buffer, bufferLength, key, keyLength, stream);
}

uint32_t zyn_gatewalk::stunlib_encodeMessage(StunMessage* message, unsigned char* buffer, unsigned int bufferLength,
                                             unsigned char* key, unsigned int keyLength, FILE* stream)
{
    return gatewalk::detail::EncodeMessage(message, buffer, bufferLength, key, keyLength, stream);
}
