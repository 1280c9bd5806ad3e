// The connector's STUN messages: checks, answers and keep-alives encoded with the profile's codec,
// and the address conversions between the codec's records and socket addresses.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <cstring>

#include "sockaddr_util.h"
#include "stunlib.h"

namespace zyn::ice {

inline bool ToStunAddress(const sockaddr* a, gatewalk::StunIPAddress& out)
{
    return gatewalk::stunlib_sockaddrToStunAddress(a, &out);
}

inline void FromStunAddress(const gatewalk::StunIPAddress& a, sockaddr_storage& out)
{
    gatewalk::stunlib_stunAddressToSockaddr(&a, &out);
}

// The connector's checks name the stack they come from.
constexpr const char* kCheckSoftware = "Vorta-Ombra";

// A connectivity check; 0 when it cannot be encoded. `message` is scratch (it is large).
template <class P>
uint32_t EncodeCheck(typename P::StunMessage& message, const gatewalk::StunMsgId& id, const char* ufragPair,
                     const char* password, uint32_t priority, bool useCandidate, bool controlling, uint64_t tieBreaker,
                     uint8_t* out, uint32_t capacity)
{
    std::memset(static_cast<void*>(&message), 0, sizeof message);
    message.msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
    message.msgHdr.id = id;
    if (!P::stunlib_addUserName(&message, ufragPair, '\0')) return 0;
    P::stunlib_addSoftware(&message, kCheckSoftware, '\0');
    message.hasPriority = 1;
    message.priority = priority;
    message.hasUseCandidate = useCandidate ? 1 : 0;
    if (controlling) {
        message.hasControlling = 1;
        message.controlling = tieBreaker;
    } else {
        message.hasControlled = 1;
        message.controlled = tieBreaker;
    }
    char key[514] = {};  // the codec takes at most 513 bytes of key
    std::snprintf(key, sizeof key, "%s", password ? password : "");
    return P::stunlib_encodeMessage(&message, out, capacity, reinterpret_cast<unsigned char*>(key),
                                    static_cast<unsigned>(std::strlen(key)), nullptr);
}

// An answer to a check: a success with XOR-MAPPED-ADDRESS, or an error response ("Role Conflict"
// for 487, "Bad Request" otherwise); keyed with the local password.
template <class P>
uint32_t EncodeAnswer(typename P::StunMessage& message, const gatewalk::StunMsgId& id, uint16_t code,
                      const sockaddr* mapped, const char* password, uint8_t* out, uint32_t capacity)
{
    const bool ok = code == 200;
    std::memset(static_cast<void*>(&message), 0, sizeof message);
    message.msgHdr.type = ok ? gatewalk::STUN_MSG_BindResponseMsg : gatewalk::STUN_MSG_BindErrorResponseMsg;
    message.msgHdr.id = id;
    if (mapped && gatewalk::sockaddr_isSet(mapped)) {
        if (!ToStunAddress(mapped, message.xorMappedAddress)) return 0;
        message.hasXorMappedAddress = 1;
    } else if (ok) {
        return 0;
    }
    if (!ok && !P::stunlib_addError(&message, code == 487 ? "Role Conflict" : "Bad Request", code, ' ')) return 0;
    P::stunlib_addSoftware(&message, kCheckSoftware, '\0');
    char key[514] = {};  // the codec takes at most 513 bytes of key
    std::snprintf(key, sizeof key, "%s", password ? password : "");
    return P::stunlib_encodeMessage(&message, out, capacity, reinterpret_cast<unsigned char*>(key),
                                    static_cast<unsigned>(std::strlen(key)), nullptr);
}

// True when the message carries a FINGERPRINT that does not match its bytes.
inline bool FingerprintFails(const uint8_t* bytes, size_t length, bool hasFingerprint)
{
    // FINGERPRINT is the last attribute: 4 bytes of header and its 4-byte value at the end.
    if (!hasFingerprint) return false;
    if (length < gatewalk::STUN_HEADER_SIZE + 8) return true;
    return !gatewalk::stunlib_checkFingerPrint(bytes, static_cast<unsigned>(length - 4));
}

}  // namespace zyn::ice
