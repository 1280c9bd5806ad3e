// Wire constants and the attribute records that both profiles of the STUN codec share.
//
// Records are flat and zeroed before use; every multi-byte field is in host order unless its comment
// says otherwise. Nothing here owns memory.
#pragma once

#include <cstdint>

namespace gatewalk {

// ---- framing -------------------------------------------------------------------------------------
constexpr unsigned int STUN_HEADER_SIZE = 20;
// Not STUN_MAGIC_COOKIE: libnice defines a macro of that name, and tests include both.
constexpr uint32_t STUNLIB_MAGIC_COOKIE = 0x2112A442;
// The largest message the decoder takes and the stack's senders build; every send buffer has this
// size. Picked to stay under a 1600-byte path MTU once IP and UDP headers are added.
constexpr unsigned int STUN_MAX_PACKET_SIZE = 1556;
constexpr unsigned int STUN_ATTR_HEADER_SIZE = 4;
constexpr unsigned int STUN_MSG_ID_SIZE = 12;
constexpr unsigned int STUN_SHA1_SIZE = 20;      // HMAC-SHA1 output of MESSAGE-INTEGRITY
constexpr unsigned int STUN_MD5_KEY_SIZE = 16;   // long-term credential key
constexpr uint32_t STUN_FINGERPRINT_XOR = 0x5354554E;  // "STUN"
constexpr const char* STUN_DUMP_LABEL = "STUN";

// Address family codes inside address attributes (not AF_INET / AF_INET6).
constexpr uint8_t STUN_ADDR_IPv4Family = 1;
constexpr uint8_t STUN_ADDR_IPv6Family = 2;

// Capacity of a text attribute. Only the first 256 bytes are ever used (see STUN_MAX_STRING).
constexpr unsigned int STUN_MSG_MAX_STRING_CAPACITY = 4000;
constexpr unsigned int STUN_MAX_STRING = 256;
constexpr unsigned int STUN_MAX_USERNAME = 255;
// REALM is held to 128 on purpose, lower than the other texts: servers that sent longer ones were
// misbehaving, and the key built from it has to stay short.
constexpr unsigned int STUN_MAX_REALM = 128;
constexpr unsigned int STUN_MSG_MAX_REASON = 256;  // ERROR-CODE reason buffer; 255 bytes + NUL used
constexpr unsigned int STUN_MAX_UNKNOWN_ATTRIBUTES = 8;
constexpr unsigned int STUN_MAX_PEER_ADDR = 10;

// ---- message types -------------------------------------------------------------------------------
enum StunMsgType : uint16_t {
    STUN_MSG_BindRequestMsg = 0x0001,
    STUN_MSG_BindResponseMsg = 0x0101,
    STUN_MSG_BindIndicationMsg = 0x0011,
    STUN_MSG_BindErrorResponseMsg = 0x0111,
    STUN_MSG_AllocateRequestMsg = 0x0003,
    STUN_MSG_AllocateResponseMsg = 0x0103,
    STUN_MSG_AllocateErrorResponseMsg = 0x0113,
    STUN_MSG_RefreshRequestMsg = 0x0004,
    STUN_MSG_RefreshResponseMsg = 0x0104,
    STUN_MSG_RefreshErrorResponseMsg = 0x0114,
    STUN_MSG_CreatePermissionRequestMsg = 0x0008,
    STUN_MSG_CreatePermissionResponseMsg = 0x0108,
    STUN_MSG_CreatePermissionErrorResponseMsg = 0x0118,
    STUN_MSG_ChannelBindRequestMsg = 0x0009,
    STUN_MSG_ChannelBindResponseMsg = 0x0109,
    STUN_MSG_ChannelBindErrorResponseMsg = 0x0119,
    STUN_MSG_PathDiscoveryRequestMsg = 0x000A,
    STUN_MSG_PathDiscoveryResponseMsg = 0x010A,
    STUN_MSG_PathDiscoveryErrorResponseMsg = 0x011A,
    STUN_MSG_SendIndicationMsg = 0x0016,
    STUN_MSG_DataIndicationMsg = 0x0017,
};

// ---- attribute types -----------------------------------------------------------------------------
enum StunAttrType : uint16_t {
    STUN_ATTR_MappedAddress = 0x0001,
    STUN_ATTR_Username = 0x0006,
    STUN_ATTR_MessageIntegrity = 0x0008,
    STUN_ATTR_ErrorCode = 0x0009,
    STUN_ATTR_UnknownAttribute = 0x000A,
    STUN_ATTR_ChannelNumber = 0x000C,
    STUN_ATTR_Lifetime = 0x000D,
    STUN_ATTR_XorPeerAddress = 0x0012,
    STUN_ATTR_Data = 0x0013,
    STUN_ATTR_Realm = 0x0014,
    STUN_ATTR_Nonce = 0x0015,
    STUN_ATTR_XorRelayAddress = 0x0016,
    STUN_ATTR_RequestedAddrFamily = 0x0017,
    STUN_ATTR_EvenPort = 0x0018,
    STUN_ATTR_RequestedTransport = 0x0019,
    STUN_ATTR_DontFragment = 0x001A,
    STUN_ATTR_XorMappedAddress = 0x0020,
    STUN_ATTR_ReservationToken = 0x0022,
    STUN_ATTR_Priority = 0x0024,
    STUN_ATTR_UseCandidate = 0x0025,
    // Zyn metadata block (only the zyn_gatewalk profile knows these).
    STUN_ATTR_MDAgent = 0x0C02,
    STUN_ATTR_MDRespUP = 0x0C03,
    STUN_ATTR_MDRespDN = 0x0C04,
    STUN_ATTR_MDWord = 0x0C05,
    STUN_ATTR_Software = 0x8022,
    STUN_ATTR_AlternateServer = 0x8023,
    STUN_ATTR_TransCount = 0x8025,      // qlox_gatewalk only
    STUN_ATTR_FingerPrint = 0x8028,
    STUN_ATTR_ICEControlled = 0x8029,
    STUN_ATTR_ICEControlling = 0x802A,
    STUN_ATTR_TTL = 0x8055,
    STUN_ATTR_TTLString = 0x8056,       // zyn_gatewalk only
    STUN_ATTR_StreamType = 0xC001,      // qlox_gatewalk only
    STUN_ATTR_NetworkStatus = 0xC002,   // qlox_gatewalk only
};

// ---- records -------------------------------------------------------------------------------------

// Transaction id: opaque; two ids are equal when all 12 bytes are.
struct StunMsgId {
    uint8_t octet[STUN_MSG_ID_SIZE];
};

// Address attribute value, host order, already un-XORed.
struct StunIPAddress {
    uint8_t familyType;  // STUN_ADDR_IPv4Family or STUN_ADDR_IPv6Family
    uint16_t port;
    union {
        uint32_t v4;      // host order
        uint8_t v6[16];   // network order (as on the wire)
    } addr;
};

struct StunAtrUnknown {
    uint16_t attrType[STUN_MAX_UNKNOWN_ATTRIBUTES];
    uint16_t numAttributes;
};

struct StunMsgHdr {
    uint16_t type;    // host order
    uint16_t length;  // length of the attributes
    StunMsgId id;
};

// USERNAME, SOFTWARE, NONCE, REALM (and TTL text in zyn_gatewalk). `value` is NUL-terminated.
struct StunAtrString {
    char value[STUN_MSG_MAX_STRING_CAPACITY];
    char padChar;        // byte used to pad the value on the wire
    uint16_t sizeValue;  // the attribute's length field
};

struct StunAtrError {
    uint16_t reserved;
    uint8_t errorClass;  // 3..6
    uint8_t number;      // 0..99
    char reason[STUN_MSG_MAX_REASON];  // NUL-terminated
    char padChar;
    uint16_t sizeReason;
};

struct StunAtrIntegrity {
    uint16_t offset;  // position of the attribute header from the start of the message
    uint8_t hash[STUN_SHA1_SIZE];
};

struct StunData {
    uint32_t dataLen;
    uint32_t offset;        // of the value from the start of the decoded buffer
    const uint8_t* pData;   // does not own; null on encode means "payload already in place"
};

struct StunAtrRequestedAddrFamily {
    uint8_t family;  // STUN_ADDR_IPv4Family or STUN_ADDR_IPv6Family
    uint8_t reserved[3];
};

struct StunAtrChannelNumber {
    uint16_t channel;
    uint16_t reserved;
};

struct StunAtrRequestedTransport {
    uint8_t protocol;  // 17 for UDP
    uint8_t reserved[3];
};

struct StunAtrEvenPort {
    uint8_t value;  // 0x80: reserve the next port as well
    uint8_t reserved[3];
};

struct StunAtrStreamType {
    uint8_t type;  // 4 bits on the wire
    uint16_t interval;
    uint8_t pad;
};

struct StunAtrTTL {
    uint8_t ttl;
    uint8_t pad8;
    uint16_t pad16;
};

struct StunAtrNetworkStatus {
    uint8_t flags;
    uint8_t nodeCount;
    uint16_t reserved;
    uint16_t upMaxBandwidth;
    uint16_t downMaxBandwidth;
};

struct StunAtrTransCount {
    uint16_t reserved;
    uint8_t reqCnt;
    uint8_t respCnt;
};

// Usage of a keep-alive: a Binding request (0x0001) towards a server, or a Binding indication
// (0x0011) on an ICE pair.
enum StunKeepAliveUsage {
    StunKeepAliveUsage_Outbound = 0,
    StunKeepAliveUsage_Ice = 1,
};

}  // namespace gatewalk
