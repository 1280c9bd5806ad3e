// Internal helpers of the STUN transaction client that do not depend on the profile: signal and
// state names, the retransmission schedule, address conversions, printing and counter sums.
#pragma once

#include <sys/socket.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "stunclient_common.h"

namespace gatewalk::stunclient {

// Every signal a slot can be handed. The zyn profile never raises ICMPResp; a response of a type that
// is neither a Binding response nor a Binding request maps to Unknown.
enum class Sig : int {
    BindReq = 0,
    BindResp,
    BindRespError,
    TimerTick,
    TimerRetransmit,
    ICMPResp,
    DeAllocate,
    Cancel,
    Unknown,
};

const char* SignalName(Sig sig);
const char* StateName(int state);

// Time a copy of a request waits before the next one (RFC 5389 7.2.1 starts at RTO 500 ms and doubles;
// ICE checks on a LAN need answers faster than that, so the first gaps are short and the total stays
// near 3.5 s, the point where a candidate pair is given up). Index i is the wait after copy i; the
// trailing 0 ends the list.
inline constexpr int kTimeoutListMs[] = {100, 200, 300, 400, 500, 500, 500, 500, 500, 0};
inline constexpr int kTimeoutListLength = static_cast<int>(sizeof kTimeoutListMs / sizeof kTimeoutListMs[0]);
// The path trace sends one copy per TTL and waits this long for an answer or an ICMP report.
inline constexpr int kFixedTimerMs = 1800;

// The software name every request of this client announces, padded with blanks on the wire.
inline constexpr const char* kSoftwareName = "Vorta";
inline constexpr char kSoftwarePad = ' ';

void StunVPrint(void* userData, STUN_INFO_FUNC_PTR logPtr, StunInfoCategory_T category, const char* fmt,
                va_list args);

// Address value of an attribute -> socket address (reset when the family is unknown).
void ToSockaddr(const StunIPAddress& address, sockaddr_storage* out);
// Socket address -> address value; false for an unset or foreign family.
bool FromSockaddr(const sockaddr* address, StunIPAddress* out);
// Copies a socket address, or resets the destination for a null or unset source.
void CopyAddr(sockaddr_storage* destination, const sockaddr* source);
// "ip:port", or "(unset)".
const char* AddrText(const sockaddr_storage& address, char* buffer, size_t length);

// ICMP types that the path trace acts on; the numbers differ between ICMP and ICMPv6.
bool isTimeExceeded(uint32_t icmpType, int family);
bool isDstUnreachable(uint32_t icmpType, int family);

void AddStats(StunClientStats& sum, const StunClientStats& part);
// One line per counter (spares left out).
void PrintStats(const StunClientStats& sum, STUN_INFO_FUNC_PTR logPtr, void* userData);
void ClearCounters(StunClientStats& stats);  // all but InProgress

}  // namespace gatewalk::stunclient
