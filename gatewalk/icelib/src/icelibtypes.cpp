// Pure helpers of the ICE agent: priorities, foundations, random texts and ids, names.
#include <openssl/rand.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"
#include "stunlib.h"

namespace gatewalk::icelib_detail {

uint32_t TypePreference(ICE_CANDIDATE_TYPE type)
{
    switch (type) {
    case ICE_CAND_TYPE_HOST: return kTypePrefHost;
    case ICE_CAND_TYPE_SRFLX: return kTypePrefSrflx;
    case ICE_CAND_TYPE_RELAY: return kTypePrefRelay;
    case ICE_CAND_TYPE_PRFLX: return kTypePrefPrflx;
    default: return 0;
    }
}

bool IsTcp(ICE_TRANSPORT transport) { return transport == ICE_TRANS_TCPACT || transport == ICE_TRANS_TCPPASS; }

uint32_t Priority(ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t componentId, uint16_t localPref)
{
    uint32_t pref = TypePreference(type);
    if (IsTcp(transport)) pref = pref > kTcpTypePrefPenalty ? pref - kTcpTypePrefPenalty : 0;
    return (pref << 24) | (static_cast<uint32_t>(localPref) << 8) | ((256u - componentId) & 0xFFu);
}

void Foundation(char* dst, ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t maxLength)
{
    if (dst == nullptr || maxLength == 0) return;
    int base = 0;
    switch (type) {
    case ICE_CAND_TYPE_HOST: base = 1; break;
    case ICE_CAND_TYPE_PRFLX: base = 2; break;
    case ICE_CAND_TYPE_SRFLX: base = 3; break;
    case ICE_CAND_TYPE_RELAY: base = 4; break;
    default: std::snprintf(dst, maxLength, "%s", "unknowntype"); return;
    }
    if (transport == ICE_TRANS_TCPACT) base += 4;
    if (transport == ICE_TRANS_TCPPASS) base += 8;
    std::snprintf(dst, maxLength, "%d", base);
}

uint64_t PairPriority(uint32_t g, uint32_t d)
{
    const uint64_t lo = g < d ? g : d;
    const uint64_t hi = g < d ? d : g;
    return (lo << 32) + 2 * hi + (g > d ? 1 : 0);
}

namespace {

constexpr char kIceChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// Five 6-bit digits are taken from each 8 random bytes.
constexpr uint32_t kDigitsPerDraw = 5;

uint64_t Random64()
{
    // A draw gives 31 bits: 31 + 31 + 2.
    uint64_t r = static_cast<uint64_t>(stunlib_randomDraw()) & 0x7FFFFFFFu;
    r |= (static_cast<uint64_t>(stunlib_randomDraw()) & 0x7FFFFFFFu) << 31;
    r |= (static_cast<uint64_t>(stunlib_randomDraw()) & 0x3u) << 62;
    return r;
}

}  // namespace

void LongToIcechar(uint64_t data, char* b64, uint32_t maxLength)
{
    if (b64 == nullptr || maxLength == 0) return;
    uint32_t i = 0;
    for (; i + 1 < maxLength; ++i) {
        b64[i] = kIceChars[data & 0x3F];
        data >>= 6;
    }
    b64[i] = '\0';
}

void RandomString(char* dst, uint32_t maxLength)
{
    if (dst == nullptr || maxLength == 0) return;
    const uint32_t n = maxLength - 1;
    uint32_t i = 0;
    while (i < n) {
        uint64_t v = 0;
        if (RAND_bytes(reinterpret_cast<unsigned char*>(&v), sizeof v) != 1) v = Random64();
        const uint32_t take = (n - i) < kDigitsPerDraw ? (n - i) : kDigitsPerDraw;
        char digits[kDigitsPerDraw + 1];
        LongToIcechar(v, digits, take + 1);
        std::memcpy(dst + i, digits, take);
        i += take;
    }
    dst[n] = '\0';
}

uint64_t RandomU64() { return Random64(); }

StunMsgId NewTransactionId()
{
    // 12 bytes of a 128-bit random value.
    const uint64_t a = Random64();
    const uint64_t b = Random64();
    StunMsgId id;
    std::memcpy(id.octet, &a, 8);
    std::memcpy(id.octet + 8, &b, 4);
    return id;
}

const char* IdText(const StunMsgId& id, char (&out)[25])
{
    for (unsigned int i = 0; i < STUN_MSG_ID_SIZE; ++i) std::snprintf(out + 2 * i, 3, "%02x", id.octet[i]);
    return out;
}

const char* AddrText(const struct sockaddr* address, char (&out)[64])
{
    if (address == nullptr || sockaddr_toString(address, out, sizeof out, true) == nullptr) {
        std::snprintf(out, sizeof out, "-");
    }
    return out;
}

void CopyText(char* dst, const char* src, unsigned int size)
{
    if (dst == nullptr || size == 0) return;
    if (src == nullptr) {
        dst[0] = '\0';
        return;
    }
    std::snprintf(dst, size, "%s", src);
}

const char* PairStateName(ICELIB_PAIR_STATE state)
{
    switch (state) {
    case ICELIB_PAIR_IDLE: return "IDLE";
    case ICELIB_PAIR_PAIRED: return "PAIRED";
    case ICELIB_PAIR_FROZEN: return "FROZEN";
    case ICELIB_PAIR_WAITING: return "WAITING";
    case ICELIB_PAIR_INPROGRESS: return "INPROGRESS";
    case ICELIB_PAIR_SUCCEEDED: return "SUCCEEDED";
    case ICELIB_PAIR_FAILED: return "FAILED";
    }
    return "--unknown--";
}

const char* CheckListStateName(ICELIB_CHECKLIST_STATE state)
{
    switch (state) {
    case ICELIB_CHECKLIST_IDLE: return "ICELIB_CHECKLIST_IDLE";
    case ICELIB_CHECKLIST_RUNNING: return "ICELIB_CHECKLIST_RUNNING";
    case ICELIB_CHECKLIST_COMPLETED: return "ICELIB_CHECKLIST_COMPLETED";
    case ICELIB_CHECKLIST_FAILED: return "ICELIB_CHECKLIST_FAILED";
    }
    return "--unknown--";
}

const char* StateName(ICELIB_STATE state)
{
    switch (state) {
    case ICELIB_IDLE: return "ICELIB_IDLE";
    case ICELIB_RUNNING: return "ICELIB_RUNNING";
    case ICELIB_COMPLETED: return "ICELIB_COMPLETED";
    case ICELIB_MANGLED: return "ICELIB_MANGLED";
    case ICELIB_FAILED: return "ICELIB_FAILED";
    }
    return "--unknown--";
}

const char* CandidateTypeName(ICE_CANDIDATE_TYPE type)
{
    switch (type) {
    case ICE_CAND_TYPE_NONE: return "none";
    case ICE_CAND_TYPE_HOST: return "host";
    case ICE_CAND_TYPE_SRFLX: return "srflx";
    case ICE_CAND_TYPE_RELAY: return "relay";
    case ICE_CAND_TYPE_PRFLX: return "prflx";
    }
    return "none";
}

const char* TransportName(ICE_TRANSPORT transport)
{
    switch (transport) {
    case ICE_TRANS_NONE: return "none";
    case ICE_TRANS_UDP: return "udp";
    case ICE_TRANS_TCPACT: return "tcpact";
    case ICE_TRANS_TCPPASS: return "tcppass";
    }
    return "none";
}

const char* ComponentName(uint32_t componentId)
{
    if (componentId == ICELIB_RTP_COMPONENT_ID) return "RTP";
    if (componentId == ICELIB_RTCP_COMPONENT_ID) return "RTCP";
    return "UNKNOWN Component";
}

int TransportProto(ICE_TRANSPORT transport)
{
    switch (transport) {
    case ICE_TRANS_NONE: return -1;
    case ICE_TRANS_UDP: return 17;
    case ICE_TRANS_TCPACT:
    case ICE_TRANS_TCPPASS: return 6;
    }
    // A transport value past the table is memory corruption, not input: stop here.
    std::abort();
}

}  // namespace gatewalk::icelib_detail
