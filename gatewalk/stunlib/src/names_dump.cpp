// Names of message types and error codes, and the text dumps of ids, buffers and records.
#include <cinttypes>
#include <type_traits>

#include "codec_internal.h"
#include "stunlib.h"

namespace gatewalk {

namespace {

struct Named {
    uint16_t code;
    const char* name;
};

// "STUN_MSG_SendInd" keeps the enum-like spelling that log readers grep for.
constexpr Named kMessageNames[] = {
    {0x0001, "BindRequest"},          {0x0101, "BindResponse"},
    {0x0003, "AllocateRequest"},      {0x0103, "AllocateResponse"},
    {0x0004, "RefreshRequest"},       {0x0104, "RefreshResponse"},
    {0x0008, "CreatePermissionReq"},  {0x0108, "CreatePermissionResp"},
    {0x0009, "ChannelBindRequest"},   {0x0109, "ChannelBindResponse"},
    {0x000A, "PathDiscReq"},          {0x010A, "PathDiscResp"},
    {0x0011, "BindInd"},              {0x0111, "BindErrorResponse"},
    {0x0016, "STUN_MSG_SendInd"},     {0x0113, "AllocateErrorResponse"},
    {0x0017, "DataIndication"},       {0x0114, "RefreshErrorResponse"},
    {0x0118, "CreatePermissionError"}, {0x0119, "ChannelBindErrorResponse"},
    {0x011A, "PathDiscErrorResp"},
};

constexpr Named kErrorReasons[] = {
    {300, "Try Alternate"},      {400, "Bad Request"},
    {401, "Unauthorized"},       {420, "Unknown Attribute"},
    {430, "Stale Credentials"},  {431, "Integrity Check Failure"},
    {432, "Missing Username"},   {437, "No Binding"},
    {438, "Stale Nonce"},        {441, "Wrong Username"},
    {442, "Unsupported Transport Protocol"},
    {486, "Allocation Quota Reached"},
    {487, "Role Conflict"},      {500, "Server Error"},
    {508, "Insufficient Capacity"},
    {600, "Global Failure"},
};

template <size_t N>
const char* Lookup(const Named (&table)[N], unsigned int code)
{
    for (const Named& n : table)
        if (n.code == code) return n.name;
    return "???";
}

void PrintAddress(FILE* s, const char* label, const StunIPAddress& a)
{
    char text[64];
    std::fprintf(s, "  %s = %s\n", label, stunlib_formatIPAddress(&a, text, sizeof text));
}

void PrintString(FILE* s, const char* label, const StunAtrString& t)
{
    std::fprintf(s, "  %s = \"%.*s\" (%u)\n", label, static_cast<int>(t.sizeValue < STUN_MAX_STRING ? t.sizeValue : STUN_MAX_STRING),
                 t.value, t.sizeValue);
}

void PrintNetworkStatus(FILE* s, const char* label, const StunAtrNetworkStatus& n)
{
    std::fprintf(s, "  %s = flags %u, nodes %u, up %u, down %u\n", label, n.flags, n.nodeCount, n.upMaxBandwidth,
                 n.downMaxBandwidth);
}

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

template <class Msg>
void PrintMessage(FILE* s, const Msg* m)
{
    if (s == nullptr) return;
    if (m == nullptr) {
        std::fputs("NULL\n", s);
        return;
    }
    std::fprintf(s, "  msgHdr.type = %s (0x%04x)\n", stunlib_getMessageName(m->msgHdr.type), m->msgHdr.type);
    std::fprintf(s, "  msgHdr.length = %u\n  msgHdr.id[] = ", m->msgHdr.length);
    stun_printTransId(s, &m->msgHdr.id);
    std::fputs("\n", s);
    if (m->hasMappedAddress) PrintAddress(s, "mappedAddress", m->mappedAddress);
    if (m->hasUsername) PrintString(s, "username", m->username);
    if (m->hasMessageIntegrity) {
        std::fprintf(s, "  integrity.offset = %02u\n", m->integrity.offset);
        std::fputs("  integrity.hash[] = ", s);
        for (uint8_t b : m->integrity.hash) std::fprintf(s, "%02x", b);
        std::fputs("\n", s);
    }
    if (m->hasFingerPrint) std::fputs("  fingerprint\n", s);
    if (m->hasErrorCode)
        std::fprintf(s, "  ErrorCode = %u \"%s\"\n", m->errorCode.errorClass * 100u + m->errorCode.number,
                     m->errorCode.reason);
    if (m->hasUnknownAttributes) {
        std::fprintf(s, "  unknownAttribute = [%d]{", m->unknownAttributes.numAttributes);
        for (unsigned int i = 0; i < m->unknownAttributes.numAttributes && i < STUN_MAX_UNKNOWN_ATTRIBUTES; ++i) {
            uint16_t t = m->unknownAttributes.attrType[i];
            std::fprintf(s, "%c%04x ", t < 0x8000 ? '!' : ' ', t);  // '!': comprehension-required
        }
        std::fputs("}\n", s);
    }
    if (m->hasXorMappedAddress) PrintAddress(s, "xorMappedAddress", m->xorMappedAddress);
    if (m->hasSoftware) PrintString(s, "softwareName", m->softwareName);
    if (m->hasLifetime) std::fprintf(s, "  lifetime = %u\n", m->lifetime);
    if (m->hasAlternateServer) PrintAddress(s, "alternateServer", m->alternateServer);
    for (uint32_t i = 0; i < m->xorPeerAddrEntries && i < STUN_MAX_PEER_ADDR; ++i)
        PrintAddress(s, "xorPeerAddress", m->xorPeerAddress[i]);
    if (m->hasData) std::fprintf(s, "  data = %u bytes at %u\n", m->data.dataLen, m->data.offset);
    if (m->hasNonce) PrintString(s, "nonce", m->nonce);
    if (m->hasRealm) PrintString(s, "realm", m->realm);
    if constexpr (kZyn<Msg>) {
        if (m->hasXorRelayAddress) PrintAddress(s, "xorRelayAddress", m->xorRelayAddress);
        if (m->hasRequestedAddrFamily)
            std::fprintf(s, "  RequestedAddressFamily = %u\n", m->requestedAddrFamily.family);
    } else {
        if (m->hasXorRelayAddressIPv4) PrintAddress(s, "xorRelayAddressIPv4", m->xorRelayAddressIPv4);
        if (m->hasXorRelayAddressIPv6) PrintAddress(s, "xorRelayAddressIPv6", m->xorRelayAddressIPv6);
        if (m->hasRequestedAddrFamilyIPv4)
            std::fprintf(s, "  RequestedAddressFamily = %u\n", m->requestedAddrFamilyIPv4.family);
        if (m->hasRequestedAddrFamilyIPv6)
            std::fprintf(s, "  RequestedAddressFamily = %u\n", m->requestedAddrFamilyIPv6.family);
    }
    if (m->hasChannelNumber) std::fprintf(s, "  ChannelNumber = 0x%04x\n", m->channelNumber.channel);
    if (m->hasPriority) std::fprintf(s, "  priority = %u\n", m->priority);
    if (m->hasControlling) std::fprintf(s, "  controlling = %016" PRIx64 "\n", m->controlling);
    if (m->hasControlled) std::fprintf(s, "  controlled = %016" PRIx64 "\n", m->controlled);
    if (m->hasRequestedTransport) std::fprintf(s, "  RequestedTransport = %u\n", m->requestedTransport.protocol);
    if (m->hasEvenPort) std::fprintf(s, "  evenPort = 0x%02x\n", m->evenPort.value);
    if (m->hasReservationToken) std::fprintf(s, "  reservationToken = %016" PRIx64 "\n", m->reservationToken);
    if (m->hasTTL) std::fprintf(s, "  TTL = %u\n", m->ttl.ttl);
    if constexpr (kZyn<Msg>) {
        if (m->hasTTLString) PrintString(s, "TTLString", m->TTLString);
        if (m->hasMaliceMetadata)
            std::fprintf(s, "  MaliceMetadata = agent %u, up %u, down %u, word %u\n", m->maliceMetadata.hasMDAgent,
                         m->maliceMetadata.hasMDRespUP, m->maliceMetadata.hasMDRespDN, m->maliceMetadata.hasMDWord);
    } else {
        if (m->hasStreamType)
            std::fprintf(s, "  StreamType = type %u, interval %u\n", m->streamType.type, m->streamType.interval);
        if (m->hasNetworkStatus) PrintNetworkStatus(s, "NetworkStatus", m->networkStatus);
        if (m->hasNetworkStatusResp) PrintNetworkStatus(s, "NetworkStatusResp", m->networkStatusResp);
        if (m->hasTransCount)
            std::fprintf(s, "  TransCount = req %u, resp %u\n", m->transCount.reqCnt, m->transCount.respCnt);
    }
    if (m->hasUseCandidate) std::fputs("  useCandidate\n", s);
    if (m->hasDontFragment) std::fputs("  Dontfragment\n", s);
}

}  // namespace

const char* stunlib_getMessageName(uint16_t type) { return Lookup(kMessageNames, type); }

const char* stunlib_getErrorReason(uint16_t errorClass, uint16_t errorNumber)
{
    return Lookup(kErrorReasons, errorClass * 100u + errorNumber);
}

void stun_printTransId(FILE* stream, const StunMsgId* id)
{
    if (stream == nullptr || id == nullptr) return;
    for (uint8_t b : id->octet) std::fprintf(stream, "%02x", b);
}

void stunlib_printBuffer(FILE* stream, const uint8_t* buffer, int length, const char* label)
{
    if (stream == nullptr || buffer == nullptr || length < 0) return;
    std::fprintf(stream, "%s Buffer (%i bytes)\n", label ? label : "", length);
    for (int i = 0; i < length; ++i) {
        std::fprintf(stream, "%s%02x", i % 16 == 0 ? "  " : (i % 4 == 0 ? "  " : " "), buffer[i]);
        if (i % 16 == 15 || i == length - 1) std::fputs("\n", stream);
    }
}

}  // namespace gatewalk

void qlox_gatewalk::stun_printMessage(FILE* stream, const StunMessage* message)
{
    gatewalk::PrintMessage(stream, message);
}

void zyn_gatewalk::stun_printMessage(FILE* stream, const StunMessage* message)
{
    gatewalk::PrintMessage(stream, message);
}
