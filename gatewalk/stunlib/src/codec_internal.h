// Internal pieces of the STUN codec shared by its source files: big-endian access, the bounded
// writer and reader, and the per-attribute encoders and decoders that do not depend on the profile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "stunlib_common.h"

namespace gatewalk::detail {

// ---- big-endian access (byte-wise: no alignment assumptions) -------------------------------------
inline uint16_t Load16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t Load32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline uint64_t Load64(const uint8_t* p) { return static_cast<uint64_t>(Load32(p)) << 32 | Load32(p + 4); }
inline void Store16(uint8_t* p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}
inline void Store32(uint8_t* p, uint32_t v)
{
    Store16(p, static_cast<uint16_t>(v >> 16));
    Store16(p + 2, static_cast<uint16_t>(v));
}
inline void Store64(uint8_t* p, uint64_t v)
{
    Store32(p, static_cast<uint32_t>(v >> 32));
    Store32(p + 4, static_cast<uint32_t>(v));
}

constexpr unsigned int Padded(unsigned int length) { return (length + 3u) & ~3u; }

// ---- encoding ------------------------------------------------------------------------------------

// Cursor over the caller's buffer. Every write checks room first; nothing is written past `end`.
struct Writer {
    uint8_t* base;
    uint8_t* pos;
    uint8_t* end;

    size_t Room() const { return static_cast<size_t>(end - pos); }
    size_t Offset() const { return static_cast<size_t>(pos - base); }
};

// Writes type and length; the caller has checked room for the whole attribute.
inline void PutAtrHeader(Writer& w, uint16_t type, uint16_t length)
{
    Store16(w.pos, type);
    Store16(w.pos + 2, length);
    w.pos += STUN_ATTR_HEADER_SIZE;
}

// Fixed attributes refuse when fewer than `need` bytes are free. `need` is usually header + padded
// value, but some callers pass a larger threshold on purpose (see message_encode.cpp).
bool EncodeAtrFlag(Writer& w, uint16_t type);
bool EncodeAtrU32(Writer& w, uint16_t type, uint32_t value);
bool EncodeAtrU64(Writer& w, uint16_t type, uint64_t value);
// Value of `length` bytes, zero padding, refused with fewer than `need` free bytes.
bool EncodeAtrBytes(Writer& w, uint16_t type, const uint8_t* value, uint16_t length, size_t need);
// Address attribute; XORed with the cookie (and the id for IPv6) when `xorId` is set.
bool EncodeAtrAddress(Writer& w, uint16_t type, const StunIPAddress& address, const StunMsgId* xorId);
bool EncodeAtrString(Writer& w, uint16_t type, const StunAtrString& text);
bool EncodeAtrError(Writer& w, const StunAtrError& error);
bool EncodeAtrUnknown(Writer& w, const StunAtrUnknown& unknown);
bool EncodeAtrData(Writer& w, const StunData& data);
// MESSAGE-INTEGRITY with the given hash (zeros while reserving).
bool EncodeAtrIntegrity(Writer& w, const uint8_t* hash);
void PutHeader(uint8_t* buffer, uint16_t type, uint16_t length, const StunMsgId& id);

// ---- decoding ------------------------------------------------------------------------------------

// Position in the caller's buffer and the bytes the header says are left. Invariant: pos + rest never
// exceeds the buffer length, so any read of up to `rest` bytes at `pos` is in bounds.
struct Reader {
    const uint8_t* buffer;
    unsigned long length;  // of the whole buffer
    unsigned long pos;
    long rest;

    const uint8_t* At() const { return buffer + pos; }
    bool Has(long n) const { return rest >= n; }
    void Skip(unsigned long advance, long consumed)
    {
        pos += advance;
        rest -= consumed;
    }
};

bool DecodeAtrAddress(Reader& r, StunIPAddress* address, const StunMsgId* xorId);
// Keeps up to 256 bytes; see string_attrs.cpp for how the reader moves past longer texts.
bool DecodeAtrString(Reader& r, uint16_t atrLength, StunAtrString* text);
bool DecodeAtrError(Reader& r, uint16_t atrLength, StunAtrError* error);
bool DecodeAtrUnknown(Reader& r, uint16_t atrLength, StunAtrUnknown* unknown);
bool DecodeAtrData(Reader& r, uint16_t atrLength, StunData* data);

// ---- integrity -----------------------------------------------------------------------------------
// HMAC-SHA1 of `length` bytes. False only if the crypto library fails.
bool HmacSha1(const uint8_t* key, unsigned int keyLength, const uint8_t* data, size_t length,
              uint8_t out[STUN_SHA1_SIZE]);
// Constant-time compare of two hashes.
bool SameHash(const uint8_t* a, const uint8_t* b);

// ---- strings -------------------------------------------------------------------------------------
// Copies a C string of at most `limit` bytes into a string group (NUL-terminated), sizeValue = its
// length. False if the text is longer than `refuseOver` (pass the capacity to only truncate).
bool FillString(StunAtrString* group, const char* text, size_t truncateTo, char padChar);

}  // namespace gatewalk::detail
