// Helpers over the system's socket address records (IPv4 and IPv6 only), the base of the NAT stack.
//
// Every helper takes the caller's record and keeps no state. A `sockaddr*` argument must point to a
// record at least as large as its own family needs (a `sockaddr_storage` is always enough).
// Ports and addresses given as integers are stored as given: pass them in network order.
//
// The helpers exist in both profiles of the stack. Most are shared and reach each profile through a
// using-declaration; `qlox_gatewalk` adds the IPv6 scope helpers and the IPv6 flag stubs, and
// `zyn_gatewalk` has a link-local test for IPv6 only plus thin inet_pton / inet_ntop wrappers.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

namespace gatewalk {

// Zeroes the whole storage; the family is left unset.
void sockaddr_reset(struct sockaddr_storage* address);
// The any address (0.0.0.0 or ::), port 0.
void sockaddr_initAsIPv4Any(struct sockaddr_in* address);
void sockaddr_initAsIPv6Any(struct sockaddr_in6* address);

// "a.b.c.d" or "a.b.c.d:port". False on anything else (the record is then left reset).
bool sockaddr_initFromIPv4String(struct sockaddr_in* address, const char* text);
// "2001:db8::1" or "[2001:db8::1]:port" (a bracketed address without a port is port 0).
bool sockaddr_initFromIPv6String(struct sockaddr_in6* address, const char* text);
// Tries IPv4, then IPv6; an empty or null text fails. `address` must have room for a sockaddr_in6.
bool sockaddr_initFromString(struct sockaddr* address, const char* text);
// Values stored as given (network order expected).
void sockaddr_initFromIPv4Int(struct sockaddr_in* address, uint32_t networkAddress, uint16_t networkPort);
void sockaddr_initFromIPv6Int(struct sockaddr_in6* address, const uint8_t networkAddress[16],
                              uint16_t networkPort);

// Same family and same address; records of any other family are never the same.
bool sockaddr_sameAddr(const struct sockaddr* a, const struct sockaddr* b);
bool sockaddr_samePort(const struct sockaddr* a, const struct sockaddr* b);
// Both non-null, same address and same port.
bool sockaddr_alike(const struct sockaddr* a, const struct sockaddr* b);
// The port in host order; 0 for an unset family.
unsigned int sockaddr_ipPort(const struct sockaddr* address);

bool sockaddr_isSet(const struct sockaddr* address);
bool sockaddr_isIpv6Addr(const struct sockaddr* address);
// All-zero address of a known family; null is false.
bool sockaddr_isAddrAny(const struct sockaddr* address);
// 127.0.0.1 exactly (not the whole 127/8) or ::1.
bool sockaddr_isAddrLoopBack(const struct sockaddr* address);
// IPv4 192.168/16, 172.16/12, 10/8.
bool sockaddr_isAddrPrivate(const struct sockaddr* address);

// Text form, with ":port" when addPort (IPv6 then in brackets). The buffer must hold at least 24
// bytes for IPv4 and 54 for IPv6, otherwise (or for an unset family) the answer is null.
const char* sockaddr_toString(const struct sockaddr* address, char* buffer, size_t length, bool addPort);

// Copies as many bytes as the source family needs; false (nothing copied) for an unset family.
bool sockaddr_copy(struct sockaddr* destination, const struct sockaddr* source);
// Port in host order.
void sockaddr_setPort(struct sockaddr* address, uint16_t port);

}  // namespace gatewalk

namespace qlox_gatewalk {

using gatewalk::sockaddr_alike;
using gatewalk::sockaddr_copy;
using gatewalk::sockaddr_initAsIPv4Any;
using gatewalk::sockaddr_initAsIPv6Any;
using gatewalk::sockaddr_initFromIPv4Int;
using gatewalk::sockaddr_initFromIPv4String;
using gatewalk::sockaddr_initFromIPv6Int;
using gatewalk::sockaddr_initFromIPv6String;
using gatewalk::sockaddr_initFromString;
using gatewalk::sockaddr_ipPort;
using gatewalk::sockaddr_isAddrAny;
using gatewalk::sockaddr_isAddrLoopBack;
using gatewalk::sockaddr_isAddrPrivate;
using gatewalk::sockaddr_isIpv6Addr;
using gatewalk::sockaddr_isSet;
using gatewalk::sockaddr_reset;
using gatewalk::sockaddr_sameAddr;
using gatewalk::sockaddr_samePort;
using gatewalk::sockaddr_setPort;
using gatewalk::sockaddr_toString;

bool sockaddr_isIpv4Addr(const struct sockaddr* address);
// IPv4 169.254/16 and IPv6 fe80::/10.
bool sockaddr_isAddrLinkLocal(const struct sockaddr* address);
// IPv6 fec0::/10.
bool sockaddr_isAddrSiteLocal(const struct sockaddr* address);
// IPv6 fc00::/7.
bool sockaddr_isAddrULA(const struct sockaddr* address);
// Interface flags of an IPv6 address are not read on this system: these answer 0.
int sockaddr_getIPv6Flags(const struct sockaddr* address, const char* interfaceName);
bool sockaddr_isAddrTemporary(const struct sockaddr* address, const char* interfaceName);
bool sockaddr_isAddrDeprecated(const struct sockaddr* address, const char* interfaceName);

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

using gatewalk::sockaddr_alike;
using gatewalk::sockaddr_copy;
using gatewalk::sockaddr_initAsIPv4Any;
using gatewalk::sockaddr_initAsIPv6Any;
using gatewalk::sockaddr_initFromIPv4Int;
using gatewalk::sockaddr_initFromIPv4String;
using gatewalk::sockaddr_initFromIPv6Int;
using gatewalk::sockaddr_initFromIPv6String;
using gatewalk::sockaddr_initFromString;
using gatewalk::sockaddr_ipPort;
using gatewalk::sockaddr_isAddrAny;
using gatewalk::sockaddr_isAddrLoopBack;
using gatewalk::sockaddr_isAddrPrivate;
using gatewalk::sockaddr_isIpv6Addr;
using gatewalk::sockaddr_isSet;
using gatewalk::sockaddr_reset;
using gatewalk::sockaddr_sameAddr;
using gatewalk::sockaddr_samePort;
using gatewalk::sockaddr_setPort;
using gatewalk::sockaddr_toString;

// IPv6 fe80::/10 only: 169.254/16 is not link-local in this profile.
bool sockaddr_isAddrLinkLocal(const struct sockaddr* address);
// inet_pton / inet_ntop with the same contracts.
int inetPtoN(int family, const char* text, void* destination);
const char* inetNtoP(int family, const void* source, char* destination, socklen_t size);

}  // namespace zyn_gatewalk
