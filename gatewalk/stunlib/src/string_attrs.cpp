// Text attributes (USERNAME, SOFTWARE, REALM, NONCE, the TTL text) and ERROR-CODE, with the helpers
// that fill them into a record.
#include <algorithm>

#include "codec_internal.h"
#include "stunlib.h"

namespace gatewalk::detail {

namespace {

// ERROR-CODE value: reserved u16, class (low 3 bits), number, then the reason.
constexpr unsigned int kErrorHeadSize = 4;
constexpr unsigned int kMaxReasonKept = STUN_MSG_MAX_REASON - 1;  // one byte stays for the NUL

}  // namespace

bool FillString(StunAtrString* group, const char* text, size_t truncateTo, char padChar)
{
    size_t length = strnlen(text, truncateTo);
    std::memcpy(group->value, text, length);
    group->value[length] = '\0';
    group->sizeValue = static_cast<uint16_t>(length);
    group->padChar = padChar;
    return true;
}

bool EncodeAtrString(Writer& w, uint16_t type, const StunAtrString& text)
{
    unsigned int length = text.sizeValue;
    if (length > sizeof text.value) return false;
    unsigned int padded = Padded(length);
    if (w.Room() < STUN_ATTR_HEADER_SIZE + padded) return false;
    PutAtrHeader(w, type, static_cast<uint16_t>(length));
    std::memcpy(w.pos, text.value, length);
    std::memset(w.pos + length, static_cast<unsigned char>(text.padChar), padded - length);
    w.pos += padded;
    return true;
}

bool EncodeAtrError(Writer& w, const StunAtrError& error)
{
    unsigned int reasonLength = std::min<unsigned int>(error.sizeReason, kMaxReasonKept);
    unsigned int padded = Padded(reasonLength);
    if (w.Room() < STUN_ATTR_HEADER_SIZE + kErrorHeadSize + padded) return false;
    // Unlike every other attribute, the length counts the padding of the reason. Peers of ours read
    // the reason length back from it, so this stays.
    PutAtrHeader(w, STUN_ATTR_ErrorCode, static_cast<uint16_t>(kErrorHeadSize + padded));
    Store16(w.pos, error.reserved);
    w.pos[2] = error.errorClass & 0x07;
    w.pos[3] = error.number;
    std::memcpy(w.pos + kErrorHeadSize, error.reason, reasonLength);
    std::memset(w.pos + kErrorHeadSize + reasonLength, static_cast<unsigned char>(error.padChar),
                padded - reasonLength);
    w.pos += kErrorHeadSize + padded;
    return true;
}

bool DecodeAtrString(Reader& r, uint16_t atrLength, StunAtrString* text)
{
    if (!r.Has(atrLength)) {
        std::fprintf(stderr, "stunDecodeStringAtr: failed nBufLen %ld atrLen %d\n", r.rest, atrLength);
        return false;
    }
    unsigned int kept = std::min<unsigned int>(atrLength, STUN_MAX_STRING);
    std::memcpy(text->value, r.At(), kept);
    text->value[kept] = '\0';
    text->sizeValue = static_cast<uint16_t>(kept);
    // Deliberately kept from the deployed decoder: `rest` drops by the true padded length while the
    // read position moves by the kept length plus the true padding. Past a text over 256 bytes the
    // two disagree; the message is then refused unless that text was the last attribute.
    r.Skip(kept + (Padded(atrLength) - atrLength), static_cast<long>(Padded(atrLength)));
    return true;
}

bool DecodeAtrError(Reader& r, uint16_t atrLength, StunAtrError* error)
{
    if (atrLength < kErrorHeadSize || !r.Has(atrLength)) {
        std::fprintf(stderr, "stunDecodeErrorAtr: failed nBufLen %ld atrLen %d\n", r.rest, atrLength);
        return false;
    }
    const uint8_t* p = r.At();
    error->reserved = Load16(p);
    error->errorClass = p[2] & 0x07;
    error->number = p[3];
    unsigned int reasonLength = std::min<unsigned int>(atrLength - kErrorHeadSize, kMaxReasonKept);
    std::memcpy(error->reason, p + kErrorHeadSize, reasonLength);
    error->reason[reasonLength] = '\0';
    error->sizeReason = static_cast<uint16_t>(reasonLength);
    r.Skip(Padded(atrLength), static_cast<long>(Padded(atrLength)));
    return true;
}

// ---- filling a record (same rules for both profiles) ---------------------------------------------

template <class Msg>
bool AddUserName(Msg* m, const char* text, char pad)
{
    if (text == nullptr || strnlen(text, STUN_MAX_USERNAME + 1) > STUN_MAX_USERNAME) return false;
    m->hasUsername = 1;
    return FillString(&m->username, text, STUN_MAX_USERNAME, pad);
}

template <class Msg>
bool AddRealm(Msg* m, const char* text, char pad)
{
    if (text == nullptr || strnlen(text, STUN_MAX_REALM + 1) > STUN_MAX_REALM) return false;
    m->hasRealm = 1;
    return FillString(&m->realm, text, STUN_MAX_REALM, pad);
}

// A null text only sets the flag (an empty attribute); longer texts are cut to 256 bytes.
inline bool AddCutString(uint8_t* flag, StunAtrString* group, const char* text, char pad)
{
    *flag = 1;
    if (text == nullptr) return true;
    return FillString(group, text, STUN_MAX_STRING, pad);
}

template <class Msg>
bool AddError(Msg* m, const char* reason, uint16_t code, char pad)
{
    if (reason == nullptr) reason = "";
    m->hasErrorCode = 1;
    m->errorCode.errorClass = static_cast<uint8_t>(code / 100);
    m->errorCode.number = static_cast<uint8_t>(code % 100);
    size_t length = strnlen(reason, 0xFFFF);
    m->errorCode.sizeReason = static_cast<uint16_t>(length);  // the encoder writes at most 255 of them
    size_t kept = std::min<size_t>(length, kMaxReasonKept);
    std::memcpy(m->errorCode.reason, reason, kept);
    m->errorCode.reason[kept] = '\0';
    m->errorCode.padChar = pad;
    return true;
}

}  // namespace gatewalk::detail

namespace qlox_gatewalk {

using namespace gatewalk::detail;

bool stunlib_addUserName(StunMessage* m, const char* t, char pad) { return AddUserName(m, t, pad); }
bool stunlib_addRealm(StunMessage* m, const char* t, char pad) { return AddRealm(m, t, pad); }
bool stunlib_addNonce(StunMessage* m, const char* t, char pad) { return AddCutString(&m->hasNonce, &m->nonce, t, pad); }
bool stunlib_addSoftware(StunMessage* m, const char* t, char pad)
{
    return AddCutString(&m->hasSoftware, &m->softwareName, t, pad);
}
bool stunlib_addError(StunMessage* m, const char* r, uint16_t code, char pad) { return AddError(m, r, code, pad); }

bool stunlib_addTTLString(StunMessage*, const char* text, char)
{
    // The trace feature of this profile sends the hop count in TTL alone; the text form is not used.
    return text != nullptr && strnlen(text, STUN_MAX_STRING) < STUN_MAX_STRING;
}

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

using namespace gatewalk::detail;

bool stunlib_addUserName(StunMessage* m, const char* t, char pad) { return AddUserName(m, t, pad); }
bool stunlib_addRealm(StunMessage* m, const char* t, char pad) { return AddRealm(m, t, pad); }
bool stunlib_addNonce(StunMessage* m, const char* t, char pad) { return AddCutString(&m->hasNonce, &m->nonce, t, pad); }
bool stunlib_addSoftware(StunMessage* m, const char* t, char pad)
{
    return AddCutString(&m->hasSoftware, &m->softwareName, t, pad);
}
bool stunlib_addError(StunMessage* m, const char* r, uint16_t code, char pad) { return AddError(m, r, code, pad); }

bool stunlib_addTTLString(StunMessage* m, const char* text, char pad)
{
    if (text == nullptr || strnlen(text, STUN_MAX_STRING) >= STUN_MAX_STRING) return false;
    m->hasTTLString = 1;
    return FillString(&m->TTLString, text, STUN_MAX_STRING - 1, pad);
}

}  // namespace zyn_gatewalk
