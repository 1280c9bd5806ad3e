// Internal pieces of the TURN client shared by its source files. Everything is a template over the
// profile's StunMessage and instantiated for both profiles at the end of each source file.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "turnclient.h"

namespace gatewalk::turn_detail {

template <class Msg>
using Inst = TurnInstanceData<Msg>;

// What a signal comes with: a response (and its bytes, for MESSAGE-INTEGRITY), or the arguments of a
// permission or channel request.
template <class Msg>
struct SignalData {
    Msg* msg = nullptr;
    const uint8_t* buffer = nullptr;
    const TurnCreatePermissionInfo_T* permissions = nullptr;
    const TurnChannelBindInfo_T* channel = nullptr;
};

// ---- timers (ms) ---------------------------------------------------------------------------------
// First retransmission 100 ms after the send, then the table (a 0 ends it). Allocate gives up after
// 5 retransmissions (6 sends over 1600 ms) so that a dead server is noticed within the ICE gathering
// budget; other requests after 9 (10 sends over 3600 ms), as the allocation is known to be alive.
constexpr int32_t kRetransmitFirstMs = 100;
constexpr int32_t kRetransmitTableMs[] = {100, 200, 300, 400, 500, 500, 500, 500, 500, 0};
constexpr uint32_t kAllocateRetransmitLimit = 5;
constexpr uint32_t kOtherRetransmitLimit = 9;
// Refreshed well before RFC 5766's 5-minute permission and 10-minute channel lifetimes, so that one
// lost refresh and its retransmissions still fit.
constexpr int32_t kPermissionRefreshMs = 240000;
constexpr int32_t kChannelRefreshMs = 180000;
// A Binding request to the server keeps the NAT binding towards it open between refreshes.
constexpr int32_t kKeepAliveMs = 15000;
// A refresh timer that fires while another request is in flight is set anew to come soon after.
constexpr int32_t kBusyRetryShortMs = 2000;
constexpr int32_t kBusyRetryLongMs = 3000;
// A server that keeps answering 438 would otherwise hold the client in a loop of fresh nonces.
constexpr uint32_t kMaxStaleNonceRetries = 3;
// One 300 Try Alternate is followed; a second one would be a redirection loop.
constexpr uint32_t kMaxRedirects = 1;

constexpr uint8_t kRequestedTransportUdp = 17;
constexpr uint8_t kEvenPortReserveNext = 0x80;
constexpr char kPadChar = ' ';

// ---- logging -------------------------------------------------------------------------------------
void Logf(const TurnAllocateReqStruct& req, TurnInfoCategory_T category, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
// "127.0.0.1:3478" or "[::1]:3478"; "-" for an unset address. `out` holds 64 bytes.
const char* AddrText(const struct sockaddr_storage& address, char (&out)[64]);
const char* AddrText(const struct sockaddr* address, char (&out)[64]);

// ---- address conversions -------------------------------------------------------------------------
bool ToStunAddress(const struct sockaddr* address, StunIPAddress* out);
bool ToSockaddr(const StunIPAddress& address, struct sockaddr_storage* out);
// Copies an IPv4 or IPv6 address into the storage; false for another family.
bool CopyAddress(struct sockaddr_storage* destination, const struct sockaddr* source);
inline const struct sockaddr* Sa(const struct sockaddr_storage& s) { return reinterpret_cast<const struct sockaddr*>(&s); }

// ---- requests (turn_requests.cpp) ----------------------------------------------------------------
// Each builds the request with a fresh transaction id, keeps its bytes for retransmission, sends it
// and starts the retransmission timer. False (logged) if it could not be encoded.
template <class Msg>
bool SendAllocate(Inst<Msg>* t);
template <class Msg>
bool SendRefresh(Inst<Msg>* t, uint32_t lifetime);
template <class Msg>
bool SendCreatePermission(Inst<Msg>* t);
template <class Msg>
bool SendChannelBind(Inst<Msg>* t);
template <class Msg>
void SendKeepAlive(Inst<Msg>* t);
// The kept request, as it is.
template <class Msg>
void Resend(Inst<Msg>* t);
// Realm and nonce of a 401 or 438 answer; a new key. False if either is missing or unusable (logged
// with the texts given).
template <class Msg>
bool TakeRealmAndNonce(Inst<Msg>* t, const Msg& msg, const char* noRealmText, const char* noNonceText);

// ---- state machine (turn_fsm.cpp) ----------------------------------------------------------------
// Gives a signal in the current state; true if the state took it.
template <class Msg>
bool Signal(Inst<Msg>* t, TURN_SIGNAL signal, const SignalData<Msg>& data = {});
template <class Msg>
void Tick(Inst<Msg>* t);

// A decoded response: the signal of its type, if it answers the request in flight (turn_api.cpp).
template <class Msg>
bool HandleIncResp(Inst<Msg>* t, Msg* msg, const uint8_t* buffer);

// ---- relayed data (turn_framing.cpp) -------------------------------------------------------------
template <class Msg>
uint32_t SendPacket(Inst<Msg>* t, uint8_t* buffer, uint32_t bufferSize, uint32_t dataLength, uint32_t offset,
                    const struct sockaddr* peer, bool addPadding);
template <class Msg>
bool ReceivePacket(Inst<Msg>* t, uint8_t* buffer, uint32_t* length, struct sockaddr* peerAddr, socklen_t addrSize,
                   uint64_t* reservationToken);

template <class Msg>
bool Valid(const Inst<Msg>* t)
{
    return t != nullptr && t->magic == TURN_INSTANCE_MAGIC;
}

}  // namespace gatewalk::turn_detail
