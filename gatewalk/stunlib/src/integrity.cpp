// MESSAGE-INTEGRITY (HMAC-SHA1), FINGERPRINT (CRC-32) and the long-term key (MD5).

// OpenSSL 3's one-shot HMAC() fetches the algorithm and allocates about a dozen blocks per call
// (1.7 us against 0.3 us here for a binding request), and the codec must not touch the heap. The
// SHA-1 block functions are deprecated in 3.0 but remain the allocation-free entry to its SHA-1.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>

#include "codec_internal.h"
#include "stunlib.h"

namespace gatewalk {

using namespace detail;

namespace {

template <size_t CopySize, class Msg>
bool CheckIntegrity(const unsigned char* buffer, unsigned long length, const Msg* m, const unsigned char* key,
                    int keyLength, uint16_t lengthField)
{
    if (!m->hasMessageIntegrity) {
        std::fprintf(stderr, "<stunmsg> Missing integrity attribute\n");
        return false;
    }
    unsigned int offset = m->integrity.offset;
    if (buffer == nullptr || key == nullptr || keyLength < 0 || offset < STUN_HEADER_SIZE ||
        offset + STUN_ATTR_HEADER_SIZE + STUN_SHA1_SIZE > length || offset > CopySize)
        return false;
    // The length field is patched in a copy, so the received bytes stay as they came.
    uint8_t copy[CopySize];
    std::memcpy(copy, buffer, offset);
    Store16(copy + 2, lengthField);
    uint8_t hash[STUN_SHA1_SIZE];
    if (!HmacSha1(key, static_cast<unsigned int>(keyLength), copy, offset, hash)) return false;
    return SameHash(hash, m->integrity.hash);
}

}  // namespace

uint32_t stunlib_calculateFingerprint(const uint8_t* buffer, unsigned long length)
{
    uLong crc = crc32(0L, Z_NULL, 0);
    // zlib takes 32-bit lengths per call; STUN messages are far below that.
    crc = crc32(crc, buffer, static_cast<uInt>(length));
    return static_cast<uint32_t>(crc) ^ STUN_FINGERPRINT_XOR;
}

bool stunlib_checkFingerPrint(const uint8_t* buffer, unsigned int valueOffset)
{
    if (buffer == nullptr || valueOffset < STUN_ATTR_HEADER_SIZE) return false;
    return stunlib_calculateFingerprint(buffer, valueOffset - STUN_ATTR_HEADER_SIZE) == Load32(buffer + valueOffset);
}

void stunlib_createMD5Key(unsigned char* key, const char* userName, const char* realm, const char* password)
{
    // Fed piece by piece, so credentials of any length make a key and nothing of them is copied.
    const char* parts[] = {userName ? userName : "", ":", realm ? realm : "", ":", password ? password : ""};
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    unsigned int size = 0;
    bool ok = context != nullptr && EVP_DigestInit_ex(context, EVP_md5(), nullptr) == 1;
    for (const char* part : parts) ok = ok && EVP_DigestUpdate(context, part, std::strlen(part)) == 1;
    ok = ok && EVP_DigestFinal_ex(context, key, &size) == 1;
    EVP_MD_CTX_free(context);
    // Without a digest the key is zero: integrity then fails, where a half-made key would too.
    if (!ok) std::memset(key, 0, 16);
}

namespace detail {

bool HmacSha1(const uint8_t* key, unsigned int keyLength, const uint8_t* data, size_t length,
              uint8_t out[STUN_SHA1_SIZE])
{
    // RFC 2104 over SHA-1: H((K ^ opad) || H((K ^ ipad) || data)), keys over one block hashed first.
    constexpr size_t kBlock = SHA_CBLOCK;
    uint8_t block[kBlock] = {};
    if (keyLength > kBlock) {
        if (SHA1(key, keyLength, block) == nullptr) return false;
    } else if (keyLength > 0) {
        std::memcpy(block, key, keyLength);
    }
    uint8_t pad[kBlock];
    uint8_t inner[STUN_SHA1_SIZE];
    SHA_CTX ctx;
    for (size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x36;
    bool ok = SHA1_Init(&ctx) && SHA1_Update(&ctx, pad, kBlock) && SHA1_Update(&ctx, data, length) &&
              SHA1_Final(inner, &ctx);
    for (size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x5c;
    ok = ok && SHA1_Init(&ctx) && SHA1_Update(&ctx, pad, kBlock) && SHA1_Update(&ctx, inner, sizeof inner) &&
         SHA1_Final(out, &ctx);
    OPENSSL_cleanse(block, sizeof block);
    OPENSSL_cleanse(pad, sizeof pad);
    OPENSSL_cleanse(&ctx, sizeof ctx);
    return ok;
}

bool SameHash(const uint8_t* a, const uint8_t* b) { return CRYPTO_memcmp(a, b, STUN_SHA1_SIZE) == 0; }

bool EncodeAtrIntegrity(Writer& w, const uint8_t* hash)
{
    if (w.Room() < STUN_ATTR_HEADER_SIZE + STUN_SHA1_SIZE) return false;
    PutAtrHeader(w, STUN_ATTR_MessageIntegrity, STUN_SHA1_SIZE);
    std::memcpy(w.pos, hash, STUN_SHA1_SIZE);
    w.pos += STUN_SHA1_SIZE;
    return true;
}

}  // namespace detail
}  // namespace gatewalk

namespace qlox_gatewalk {

bool stunlib_checkIntegrity(const unsigned char* buffer, unsigned long length, StunMessage* message,
                            unsigned char* key, int keyLength)
{
    // The sender's HMAC saw a length covering everything up to FINGERPRINT, including attributes
    // behind MESSAGE-INTEGRITY (networkStatusResp); a verifier must patch in the same.
    auto lengthField = static_cast<uint16_t>(message->msgHdr.length - (message->hasFingerPrint ? 8 : 0));
    return CheckIntegrity<STUN_MAX_PACKET_SIZE>(buffer, length, message, key, keyLength, lengthField);
}

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

bool stunlib_checkIntegrity(const unsigned char* buffer, unsigned long length, StunMessage* message,
                            unsigned char* key, int keyLength)
{
    // This profile's messages are at most 1056 bytes, and the length ends at MESSAGE-INTEGRITY
    // (header offset + 24 bytes of attribute - 20 bytes of header), whatever follows it.
    constexpr size_t kCopySize = 1056;
    auto lengthField = static_cast<uint16_t>(message->integrity.offset + 4);
    return CheckIntegrity<kCopySize>(buffer, length, message, key, keyLength, lengthField);
}

}  // namespace zyn_gatewalk
