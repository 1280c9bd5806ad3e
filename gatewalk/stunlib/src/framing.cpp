// Header and framing: recognition of raw bytes, transaction ids, the channel data header, the bare
// keep-alive, the message class tests, and the writers of fixed-size attributes.
#include <openssl/rand.h>

#include <cstdlib>

#include "codec_internal.h"
#include "stunlib.h"

namespace gatewalk {

using namespace detail;

bool stunlib_isStunMsg(const uint8_t* buffer, unsigned int length)
{
    // The two top bits of a STUN type are zero, which also tells STUN from RTP, DTLS and channel data.
    constexpr uint8_t kFirstByteLimit = 64;
    return buffer != nullptr && length >= STUN_HEADER_SIZE && buffer[0] < kFirstByteLimit &&
           Load32(buffer + 4) == STUNLIB_MAGIC_COOKIE;
}

bool stunlib_isTurnChannelData(const uint8_t* buffer) { return (buffer[0] & 0xC0) == 0x40; }

uint16_t stunlib_StunMsgLen(const uint8_t* buffer) { return Load16(buffer + 2); }

void stunlib_createId(StunMsgId* id, long value, unsigned char retransmission)
{
    static constexpr char kTail[4] = {'c', 'a', 'f', 'e'};
    std::memset(id->octet, 0, sizeof id->octet);
    Store32(id->octet, static_cast<uint32_t>(value));
    id->octet[5] = retransmission;
    for (int i = 0; i < 4; ++i) id->octet[8 + i] = static_cast<uint8_t>(id->octet[i] ^ kTail[i]);
}

long stunlib_randomDraw()
{
    uint32_t value = 0;
    if (RAND_bytes(reinterpret_cast<unsigned char*>(&value), sizeof value) != 1) return std::rand();
    return static_cast<long>(value & 0x7FFFFFFFu);
}

bool stunlib_transIdIsEqual(const StunMsgId* a, const StunMsgId* b)
{
    return std::memcmp(a->octet, b->octet, STUN_MSG_ID_SIZE) == 0;
}

uint32_t stunlib_encodeTurnChannelNumber(uint16_t channel, uint16_t length, uint8_t* buffer)
{
    Store16(buffer, channel);
    Store16(buffer + 2, length);
    return 4;
}

uint32_t stunlib_decodeTurnChannelNumber(uint16_t* channel, uint16_t* length, const uint8_t* buffer)
{
    *channel = Load16(buffer);
    *length = Load16(buffer + 2);
    return 4;
}

uint16_t stunlib_createRandomTurnChanNum()
{
    // Channel numbers 0x4000..0x7FFF (RFC 5766, 11).
    return static_cast<uint16_t>((stunlib_randomDraw() & 0x3FFF) + 0x4000);
}

uint32_t stunlib_encodeStunKeepAliveReq(int usage, const StunMsgId* id, uint8_t* buffer, unsigned int length)
{
    if (buffer == nullptr || id == nullptr || length < STUN_HEADER_SIZE) return 0;
    uint16_t type = usage == StunKeepAliveUsage_Outbound ? STUN_MSG_BindRequestMsg : STUN_MSG_BindIndicationMsg;
    PutHeader(buffer, type, 0, *id);
    return STUN_HEADER_SIZE;
}

namespace detail {

void PutHeader(uint8_t* buffer, uint16_t type, uint16_t length, const StunMsgId& id)
{
    Store16(buffer, type);
    Store16(buffer + 2, length);
    Store32(buffer + 4, STUNLIB_MAGIC_COOKIE);
    std::memcpy(buffer + 8, id.octet, STUN_MSG_ID_SIZE);
}

bool EncodeAtrFlag(Writer& w, uint16_t type)
{
    if (w.Room() < STUN_ATTR_HEADER_SIZE) return false;
    PutAtrHeader(w, type, 0);
    return true;
}

bool EncodeAtrU32(Writer& w, uint16_t type, uint32_t value)
{
    if (w.Room() < 8) return false;
    PutAtrHeader(w, type, 4);
    Store32(w.pos, value);
    w.pos += 4;
    return true;
}

bool EncodeAtrU64(Writer& w, uint16_t type, uint64_t value)
{
    if (w.Room() < 12) return false;
    PutAtrHeader(w, type, 8);
    Store64(w.pos, value);
    w.pos += 8;
    return true;
}

bool EncodeAtrBytes(Writer& w, uint16_t type, const uint8_t* value, uint16_t length, size_t need)
{
    size_t padded = Padded(length);
    if (w.Room() < need || w.Room() < STUN_ATTR_HEADER_SIZE + padded) return false;
    PutAtrHeader(w, type, length);
    std::memcpy(w.pos, value, length);
    std::memset(w.pos + length, 0, padded - length);
    w.pos += padded;
    return true;
}

}  // namespace detail
}  // namespace gatewalk

namespace {

// The class bits of a type (RFC 5389, 6): 0x0000 request, 0x0010 indication, 0x0100 success,
// 0x0110 error.
constexpr uint16_t kClassMask = 0x0110;

}  // namespace

#define GATEWALK_CLASS_TESTS(NS)                                                                          \
    namespace NS {                                                                                        \
    bool stunlib_isRequest(const StunMessage* m) { return (m->msgHdr.type & kClassMask) == 0x0000; }      \
    bool stunlib_isIndication(const StunMessage* m) { return (m->msgHdr.type & kClassMask) == 0x0010; }   \
    bool stunlib_isSuccessResponse(const StunMessage* m) { return (m->msgHdr.type & kClassMask) == 0x0100; } \
    bool stunlib_isErrorResponse(const StunMessage* m) { return (m->msgHdr.type & kClassMask) >= 0x0110; } \
    bool stunlib_isResponse(const StunMessage* m)                                                         \
    {                                                                                                     \
        return stunlib_isSuccessResponse(m) || stunlib_isErrorResponse(m);                               \
    }                                                                                                     \
    }

GATEWALK_CLASS_TESTS(qlox_gatewalk)
GATEWALK_CLASS_TESTS(zyn_gatewalk)
#undef GATEWALK_CLASS_TESTS
