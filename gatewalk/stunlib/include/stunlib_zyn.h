// STUN message codec, profile zyn_gatewalk (used by every connector but those of client types 2, 4).
//
// Same shape as qlox_gatewalk (see stunlib_qlox.h) with these differences: no upper bound on the
// decoded length (the integrity check takes at most 1056 bytes); the integrity check ends the length
// at the MESSAGE-INTEGRITY attribute whatever follows; no TransCount, StreamType or NetworkStatus;
// TTL is encoded but not decoded and does not suppress FINGERPRINT; one XOR-RELAYED-ADDRESS and one
// REQUESTED-ADDRESS-FAMILY group; a real TTL text attribute (0x8056); the MaliceMetadata block.
//
// One flat record, StunMessage, that the caller zeroes, fills with the stunlib_add* helpers or by
// hand (set the has... byte of every group it fills) and encodes; or that the decoder fills from a
// received buffer. No function allocates, keeps state or throws. A non-null FILE* stream receives
// diagnostics; a few malformed-input notes always go to standard error.
#pragma once

#include "stunlib_common.h"

namespace zyn_gatewalk {

using namespace gatewalk;  // shared constants and attribute records

// Three 3-bit values packed into the top 9 bits of a 16-bit flow field (low 7 bits zero).
struct MaliceFlowData {
    uint8_t first;
    uint8_t second;
    uint8_t third;
};

// MD-AGENT: an information element 0x0100 of 32 bytes (12 zero bytes, two flow fields, four u32).
struct MaliceAgentData {
    MaliceFlowData flowUp;
    MaliceFlowData flowDn;
    uint32_t value[4];
};

// MD-RESP-UP / MD-RESP-DN: an information element 0x0200 of 24 bytes (12 zero bytes, one flow field,
// 2 zero bytes, two u32).
struct MaliceRespData {
    MaliceFlowData flow;
    uint32_t value[2];
};

// Metadata block of attributes 0x0C02..0x0C05. Decoding problems in it never fail a message.
struct MaliceMetadata {
    uint8_t hasMDAgent;
    MaliceAgentData mdAgent;
    uint8_t hasMDRespUP;
    MaliceRespData mdRespUP;
    uint8_t hasMDRespDN;
    MaliceRespData mdRespDN;
    uint8_t hasMDWord;
    uint16_t mdWord;
};

struct StunMessage {
    StunMsgHdr msgHdr;
    uint32_t magicCookie;  // as received, in network order

    uint8_t hasMappedAddress;
    StunIPAddress mappedAddress;

    uint8_t hasUsername;
    StunAtrString username;

    uint8_t hasMessageIntegrity;
    StunAtrIntegrity integrity;

    uint8_t hasFingerPrint;  // an attribute was seen; its CRC is not kept

    uint8_t hasErrorCode;
    StunAtrError errorCode;

    uint8_t hasUnknownAttributes;
    StunAtrUnknown unknownAttributes;

    uint8_t hasXorMappedAddress;
    StunIPAddress xorMappedAddress;

    uint8_t hasSoftware;
    StunAtrString softwareName;

    uint8_t hasLifetime;
    uint32_t lifetime;  // seconds

    uint8_t hasAlternateServer;
    StunIPAddress alternateServer;

    uint32_t xorPeerAddrEntries;
    StunIPAddress xorPeerAddress[STUN_MAX_PEER_ADDR];

    uint8_t hasData;
    StunData data;

    uint8_t hasNonce;
    StunAtrString nonce;

    uint8_t hasRealm;
    StunAtrString realm;

    uint8_t hasXorRelayAddress;
    StunIPAddress xorRelayAddress;

    uint8_t hasRequestedAddrFamily;
    StunAtrRequestedAddrFamily requestedAddrFamily;

    uint8_t hasChannelNumber;
    StunAtrChannelNumber channelNumber;

    uint8_t hasPriority;
    uint32_t priority;

    uint8_t hasControlling;
    uint64_t controlling;

    uint8_t hasControlled;
    uint64_t controlled;

    uint8_t hasRequestedTransport;
    StunAtrRequestedTransport requestedTransport;

    uint8_t hasEvenPort;
    StunAtrEvenPort evenPort;

    uint8_t hasReservationToken;
    uint64_t reservationToken;

    uint8_t hasTTL;
    StunAtrTTL ttl;

    uint8_t hasTTLString;  // written as attribute 0x8056 right after TTL
    StunAtrString TTLString;

    uint8_t hasUseCandidate;
    uint8_t hasDontFragment;

    uint8_t hasMaliceMetadata;
    MaliceMetadata maliceMetadata;
};

// ---- encoding and decoding -----------------------------------------------------------------------

// Encodes `message` into `buffer`; returns the total length, 0 on failure. A null key means no
// MESSAGE-INTEGRITY (keyLength at most 513). FINGERPRINT is added unless the type is a Send or Data
// indication or a path discovery message. The metadata block goes around MESSAGE-INTEGRITY: in a
// Binding or Refresh response MD-RESP-UP goes before it and MD-RESP-DN after it, outside the
// HMAC's length. In the matching requests MD-RESP-DN goes before and MD-RESP-UP after, inside the
// HMAC's length, so this profile's own check (which ends the length at MESSAGE-INTEGRITY) refuses
// such a request; connectors never send metadata. Writes back msgHdr.length, hasMessageIntegrity
// and integrity. The same record and key always give the same bytes.
uint32_t stunlib_encodeMessage(StunMessage* message, unsigned char* buffer, unsigned int bufferLength,
                               unsigned char* key, unsigned int keyLength, FILE* stream);
// Decodes a message of 20 bytes or more into `message` (zeroed first). `unknown` (may be null)
// collects up to 8 comprehension-required types that the codec does not know. A bad FINGERPRINT does not fail the
// message; check integrity separately with stunlib_checkIntegrity.
bool stunlib_DecodeMessage(const unsigned char* buffer, unsigned long length, StunMessage* message,
                           StunAtrUnknown* unknown, FILE* stream);
// HMAC-SHA1 of the decoded message with `key`, the header length ending at the MESSAGE-INTEGRITY
// attribute, compared with the received hash. A MESSAGE-INTEGRITY that starts past byte 1056 fails.
bool stunlib_checkIntegrity(const unsigned char* buffer, unsigned long length, StunMessage* message,
                            unsigned char* key, int keyLength);

// ---- message class -------------------------------------------------------------------------------
bool stunlib_isRequest(const StunMessage* message);
bool stunlib_isIndication(const StunMessage* message);
bool stunlib_isSuccessResponse(const StunMessage* message);
bool stunlib_isErrorResponse(const StunMessage* message);
bool stunlib_isResponse(const StunMessage* message);

// ---- filling the record; each sets the has... byte -----------------------------------------------
bool stunlib_addUserName(StunMessage* message, const char* userName, char padChar);  // <= 255 bytes
bool stunlib_addRealm(StunMessage* message, const char* realm, char padChar);        // <= 128 bytes
// A null text sets only the flag; at most 256 bytes are kept.
bool stunlib_addNonce(StunMessage* message, const char* nonce, char padChar);
bool stunlib_addSoftware(StunMessage* message, const char* software, char padChar);
// code = class * 100 + number; sizeReason is the whole length of reason, at most 255 bytes stored.
bool stunlib_addError(StunMessage* message, const char* reason, uint16_t errorCode, char padChar);
bool stunlib_addRequestedTransport(StunMessage* message, uint8_t protocol);
// AF_INET (2) or AF_INET6 (10); any other family fails.
bool stunlib_addRequestedAddrFamily(StunMessage* message, int family);
bool stunlib_addChannelNumber(StunMessage* message, uint16_t channel);
// Text of the TTL attribute, at most 255 bytes.
bool stunlib_addTTLString(StunMessage* message, const char* text, char padChar);

// ---- diagnostics ---------------------------------------------------------------------------------
// One line per present field, labelled as in the attribute table; "NULL\n" for a null message.
void stun_printMessage(FILE* stream, const StunMessage* message);

using gatewalk::stun_printTransId;
using gatewalk::stunlib_calculateFingerprint;
using gatewalk::stunlib_checkFingerPrint;
using gatewalk::stunlib_compareIPAddresses;
using gatewalk::stunlib_createId;
using gatewalk::stunlib_createMD5Key;
using gatewalk::stunlib_createRandomTurnChanNum;
using gatewalk::stunlib_decodeTurnChannelNumber;
using gatewalk::stunlib_EncodeDataIndication;
using gatewalk::stunlib_EncodeSendIndication;
using gatewalk::stunlib_encodeStunKeepAliveReq;
using gatewalk::stunlib_encodeStunKeepAliveResp;
using gatewalk::stunlib_encodeTurnChannelNumber;
using gatewalk::stunlib_formatIPAddress;
using gatewalk::stunlib_getErrorReason;
using gatewalk::stunlib_getMessageName;
using gatewalk::stunlib_isStunMsg;
using gatewalk::stunlib_isTurnChannelData;
using gatewalk::stunlib_printBuffer;
using gatewalk::stunlib_setIP4Address;
using gatewalk::stunlib_setIP6Address;
using gatewalk::stunlib_StunMsgLen;
using gatewalk::stunlib_transIdIsEqual;

}  // namespace zyn_gatewalk
