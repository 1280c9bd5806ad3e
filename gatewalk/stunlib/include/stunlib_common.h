// STUN functions that do not depend on the profile's message record: recognition of raw bytes,
// transaction ids, address values, FINGERPRINT and key helpers, the small fixed encoders, names and
// dumps. Both profile namespaces re-export them (see stunlib_qlox.h and stunlib_zyn.h).
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <cstdio>

#include "stunlib_types.h"

namespace gatewalk {

// ---- recognition of raw bytes --------------------------------------------------------------------
// At least 20 bytes, first byte below 64 (the two top bits of a STUN type are zero) and the magic
// cookie at bytes 4..7.
bool stunlib_isStunMsg(const uint8_t* buffer, unsigned int length);
// TURN channel data: the first two bits are 01. Reads one byte.
bool stunlib_isTurnChannelData(const uint8_t* buffer);
// The header's length field. Reads 4 bytes.
uint16_t stunlib_StunMsgLen(const uint8_t* buffer);

// ---- transaction ids -----------------------------------------------------------------------------
// Bytes 0..3: value big-endian; 4: 0; 5: retransmission; 6, 7: 0; 8..11: bytes 0..3 XOR "cafe".
void stunlib_createId(StunMsgId* id, long value, unsigned char retransmission);
// 31 bits from OpenSSL's generator, where the stack once called rand(): ids, tie-breakers and
// credentials must stay unguessable, and two processes started in the same second must not draw
// the same values (an unseeded rand() gives every process one sequence). rand() only if the
// generator fails.
long stunlib_randomDraw();
bool stunlib_transIdIsEqual(const StunMsgId* a, const StunMsgId* b);

// ---- address values ------------------------------------------------------------------------------
void stunlib_setIP4Address(StunIPAddress* address, uint32_t hostOrderAddress, uint16_t port);
void stunlib_setIP6Address(StunIPAddress* address, const uint8_t networkOrderAddress[16], uint16_t port);
// Between socket addresses and the codec's address record (IPv4 and IPv6; false, with `out`
// cleared, for anything else or a null address).
bool stunlib_sockaddrToStunAddress(const struct sockaddr* address, StunIPAddress* out);
bool stunlib_stunAddressToSockaddr(const StunIPAddress* address, struct sockaddr_storage* out);
// Ordering for sorting: null first (two nulls equal), then family, then port, then address. IPv6
// addresses are compared on their first four bytes only; callers rely on that (two addresses in one
// /32 compare equal), so it stays.
int stunlib_compareIPAddresses(const StunIPAddress* a, const StunIPAddress* b);

// ---- FINGERPRINT and keys ------------------------------------------------------------------------
// CRC-32 (zlib, initial value 0) of the bytes, XOR 0x5354554E.
uint32_t stunlib_calculateFingerprint(const uint8_t* buffer, unsigned long length);
// Checks the big-endian FINGERPRINT value at valueOffset against the CRC of the valueOffset - 4
// bytes in front of its attribute header. The caller guarantees valueOffset + 4 readable bytes.
bool stunlib_checkFingerPrint(const uint8_t* buffer, unsigned int valueOffset);
// Long-term credential key: MD5 of "userName:realm:password" into 16 bytes. A text longer than 896
// bytes is a programming error and aborts the process.
void stunlib_createMD5Key(unsigned char* key, const char* userName, const char* realm, const char* password);

// ---- small fixed encoders ------------------------------------------------------------------------
// 20-byte Binding request (usage 0) or Binding indication (other usage), no attributes. 0 if the
// buffer is under 20 bytes.
uint32_t stunlib_encodeStunKeepAliveReq(int usage, const StunMsgId* id, uint8_t* buffer, unsigned int length);
// Binding success response with XOR-MAPPED-ADDRESS only: 32 bytes (IPv4) or 44 (IPv6). 0 if the
// buffer is too small or the family unknown.
uint32_t stunlib_encodeStunKeepAliveResp(const StunMsgId* id, const StunIPAddress* address, uint8_t* buffer,
                                         unsigned int length);
// Send (0x0016) and Data (0x0017) indications: XOR-PEER-ADDRESS and DATA, random id, no integrity, no
// fingerprint. `data` may point into `buffer` at the DATA value (20 + 12 + 4 = 36 for IPv4, 48 for
// IPv6) or be null: the payload is then taken to be in place already. Returns the length or 0.
uint32_t stunlib_EncodeSendIndication(uint8_t* buffer, const uint8_t* data, unsigned int bufferLength,
                                      unsigned int dataLength, const struct sockaddr* peerAddress);
uint32_t stunlib_EncodeDataIndication(uint8_t* buffer, const uint8_t* data, unsigned int bufferLength,
                                      unsigned int dataLength, const struct sockaddr* peerAddress);
// 4-byte channel data header (channel, payload length), both big-endian. Both return 4.
uint32_t stunlib_encodeTurnChannelNumber(uint16_t channel, uint16_t length, uint8_t* buffer);
uint32_t stunlib_decodeTurnChannelNumber(uint16_t* channel, uint16_t* length, const uint8_t* buffer);
// A channel number in 0x4000..0x7FFF from rand().
uint16_t stunlib_createRandomTurnChanNum();

// ---- names and dumps -----------------------------------------------------------------------------
// "BindRequest", "BindResponse", ...; "???" for a type without a name.
const char* stunlib_getMessageName(uint16_t type);
// "Unauthorized" for (4, 1), ...; "???" for an unknown code.
const char* stunlib_getErrorReason(uint16_t errorClass, uint16_t errorNumber);
void stun_printTransId(FILE* stream, const StunMsgId* id);
// Hex dump, 16 bytes a line, after a line with the label.
void stunlib_printBuffer(FILE* stream, const uint8_t* buffer, int length, const char* label);
// "192.0.2.1:32853" or "[2001:db8::1]:32853"; `out` must hold 48 bytes. Returns out.
const char* stunlib_formatIPAddress(const StunIPAddress* address, char* out, unsigned int outLength);

}  // namespace gatewalk
