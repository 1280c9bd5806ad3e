// Comparing, classifying, printing and copying address records.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "sockaddr_util.h"

namespace gatewalk {

namespace {

const sockaddr_in* V4(const sockaddr* a) { return reinterpret_cast<const sockaddr_in*>(a); }
const sockaddr_in6* V6(const sockaddr* a) { return reinterpret_cast<const sockaddr_in6*>(a); }

// Host-order IPv4 address, for prefix tests.
uint32_t HostV4(const sockaddr* a) { return ntohl(V4(a)->sin_addr.s_addr); }

}  // namespace

bool sockaddr_sameAddr(const struct sockaddr* a, const struct sockaddr* b)
{
    if (a == nullptr || b == nullptr || a->sa_family != b->sa_family) return false;
    if (a->sa_family == AF_INET) return V4(a)->sin_addr.s_addr == V4(b)->sin_addr.s_addr;
    if (a->sa_family == AF_INET6)
        return std::memcmp(V6(a)->sin6_addr.s6_addr, V6(b)->sin6_addr.s6_addr, 16) == 0;
    return false;
}

bool sockaddr_samePort(const struct sockaddr* a, const struct sockaddr* b)
{
    if (!sockaddr_isSet(a) || !sockaddr_isSet(b)) return false;
    return sockaddr_ipPort(a) == sockaddr_ipPort(b);
}

bool sockaddr_alike(const struct sockaddr* a, const struct sockaddr* b)
{
    return a != nullptr && b != nullptr && sockaddr_sameAddr(a, b) && sockaddr_samePort(a, b);
}

unsigned int sockaddr_ipPort(const struct sockaddr* address)
{
    if (address == nullptr) return 0;
    if (address->sa_family == AF_INET) return ntohs(V4(address)->sin_port);
    if (address->sa_family == AF_INET6) return ntohs(V6(address)->sin6_port);
    return 0;
}

bool sockaddr_isSet(const struct sockaddr* address)
{
    return address != nullptr && (address->sa_family == AF_INET || address->sa_family == AF_INET6);
}

bool sockaddr_isIpv6Addr(const struct sockaddr* address)
{
    return address != nullptr && address->sa_family == AF_INET6;
}

bool sockaddr_isAddrAny(const struct sockaddr* address)
{
    if (address == nullptr) return false;
    if (address->sa_family == AF_INET) return V4(address)->sin_addr.s_addr == 0;
    if (address->sa_family == AF_INET6) return IN6_IS_ADDR_UNSPECIFIED(&V6(address)->sin6_addr);
    return false;
}

bool sockaddr_isAddrLoopBack(const struct sockaddr* address)
{
    if (address == nullptr) return false;
    if (address->sa_family == AF_INET) return HostV4(address) == INADDR_LOOPBACK;
    if (address->sa_family == AF_INET6) return IN6_IS_ADDR_LOOPBACK(&V6(address)->sin6_addr);
    return false;
}

bool sockaddr_isAddrPrivate(const struct sockaddr* address)
{
    if (address == nullptr || address->sa_family != AF_INET) return false;
    uint32_t a = HostV4(address);
    return (a & 0xFFFF0000u) == 0xC0A80000u      // 192.168/16
           || (a & 0xFFF00000u) == 0xAC100000u   // 172.16/12
           || (a & 0xFF000000u) == 0x0A000000u;  // 10/8
}

const char* sockaddr_toString(const struct sockaddr* address, char* buffer, size_t length, bool addPort)
{
    // Room for the longest form of each family with brackets, port and terminator, and then some.
    constexpr size_t kNeedV4 = 24;
    constexpr size_t kNeedV6 = 54;
    if (address == nullptr || buffer == nullptr) return nullptr;
    char text[INET6_ADDRSTRLEN];
    if (address->sa_family == AF_INET) {
        if (length < kNeedV4 || !inet_ntop(AF_INET, &V4(address)->sin_addr, text, sizeof text)) return nullptr;
        if (addPort)
            std::snprintf(buffer, length, "%s:%d", text, static_cast<int>(sockaddr_ipPort(address)));
        else
            std::snprintf(buffer, length, "%s", text);
        return buffer;
    }
    if (address->sa_family == AF_INET6) {
        if (length < kNeedV6 || !inet_ntop(AF_INET6, &V6(address)->sin6_addr, text, sizeof text)) return nullptr;
        if (addPort)
            std::snprintf(buffer, length, "[%s]:%d", text, static_cast<int>(sockaddr_ipPort(address)));
        else
            std::snprintf(buffer, length, "%s", text);
        return buffer;
    }
    return nullptr;
}

bool sockaddr_copy(struct sockaddr* destination, const struct sockaddr* source)
{
    if (destination == nullptr || source == nullptr) return false;
    if (source->sa_family == AF_INET) {
        std::memcpy(destination, source, sizeof(sockaddr_in));
        return true;
    }
    if (source->sa_family == AF_INET6) {
        std::memcpy(destination, source, sizeof(sockaddr_in6));
        return true;
    }
    return false;
}

void sockaddr_setPort(struct sockaddr* address, uint16_t port)
{
    if (address == nullptr) return;
    if (address->sa_family == AF_INET) reinterpret_cast<sockaddr_in*>(address)->sin_port = htons(port);
    if (address->sa_family == AF_INET6) reinterpret_cast<sockaddr_in6*>(address)->sin6_port = htons(port);
}

}  // namespace gatewalk

namespace {

bool IsV6LinkLocal(const sockaddr* a)
{
    return a != nullptr && a->sa_family == AF_INET6 &&
           IN6_IS_ADDR_LINKLOCAL(&reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr);
}

// First byte(s) of an IPv6 address, for prefix tests.
const uint8_t* V6Bytes(const sockaddr* a)
{
    return reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr.s6_addr;
}

}  // namespace

namespace qlox_gatewalk {

bool sockaddr_isIpv4Addr(const struct sockaddr* address)
{
    return address != nullptr && address->sa_family == AF_INET;
}

bool sockaddr_isAddrLinkLocal(const struct sockaddr* address)
{
    if (address != nullptr && address->sa_family == AF_INET)
        return (ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) & 0xFFFF0000u) ==
               0xA9FE0000u;  // 169.254/16
    return IsV6LinkLocal(address);
}

bool sockaddr_isAddrSiteLocal(const struct sockaddr* address)
{
    if (address == nullptr || address->sa_family != AF_INET6) return false;
    const uint8_t* b = V6Bytes(address);
    return b[0] == 0xFE && (b[1] & 0xC0) == 0xC0;  // fec0::/10
}

bool sockaddr_isAddrULA(const struct sockaddr* address)
{
    if (address == nullptr || address->sa_family != AF_INET6) return false;
    return (V6Bytes(address)[0] & 0xFE) == 0xFC;  // fc00::/7
}

int sockaddr_getIPv6Flags(const struct sockaddr*, const char*) { return 0; }
bool sockaddr_isAddrTemporary(const struct sockaddr*, const char*) { return false; }
bool sockaddr_isAddrDeprecated(const struct sockaddr*, const char*) { return false; }

}  // namespace qlox_gatewalk

namespace zyn_gatewalk {

bool sockaddr_isAddrLinkLocal(const struct sockaddr* address) { return IsV6LinkLocal(address); }

int inetPtoN(int family, const char* text, void* destination)
{
    return inet_pton(family, text, destination);
}

const char* inetNtoP(int family, const void* source, char* destination, socklen_t size)
{
    return inet_ntop(family, source, destination, size);
}

}  // namespace zyn_gatewalk
