// Building address records: reset, any, and from text or integers.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "sockaddr_util.h"

namespace gatewalk {

namespace {

// Longest text form of an address without port: "ffff:ffff:...:255.255.255.255".
constexpr size_t kMaxAddressText = INET6_ADDRSTRLEN;

// Copies text[0, length) into out as a C string; false if it does not fit.
bool CopyPart(char (&out)[kMaxAddressText], const char* text, size_t length)
{
    if (length == 0 || length >= sizeof out) return false;
    std::memcpy(out, text, length);
    out[length] = '\0';
    return true;
}

// ":%u" after the address; ports above 65535 are refused rather than silently truncated.
bool ScanPort(const char* text, const char* pattern, uint16_t* port)
{
    unsigned int value = 0;
    char trailing = 0;
    char format[16];
    std::snprintf(format, sizeof format, "%s%%c", pattern);  // a trailing character is an error
    int matched = std::sscanf(text, format, &value, &trailing);
    if (matched != 1 || value > 0xFFFF) return false;
    *port = static_cast<uint16_t>(value);
    return true;
}

}  // namespace

void sockaddr_reset(struct sockaddr_storage* address)
{
    std::memset(address, 0, sizeof *address);
}

void sockaddr_initAsIPv4Any(struct sockaddr_in* address)
{
    std::memset(address, 0, sizeof *address);
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(INADDR_ANY);
}

void sockaddr_initAsIPv6Any(struct sockaddr_in6* address)
{
    std::memset(address, 0, sizeof *address);
    address->sin6_family = AF_INET6;
    address->sin6_addr = in6addr_any;
}

bool sockaddr_initFromIPv4String(struct sockaddr_in* address, const char* text)
{
    std::memset(address, 0, sizeof *address);
    if (text == nullptr) return false;
    const char* colon = std::strchr(text, ':');
    size_t addressLength = colon ? static_cast<size_t>(colon - text) : std::strlen(text);
    char part[kMaxAddressText];
    uint16_t port = 0;
    in_addr parsed{};
    if (!CopyPart(part, text, addressLength) || inet_pton(AF_INET, part, &parsed) != 1) return false;
    if (colon && !ScanPort(colon, ":%u", &port)) return false;
    address->sin_family = AF_INET;
    address->sin_addr = parsed;
    address->sin_port = htons(port);
    return true;
}

bool sockaddr_initFromIPv6String(struct sockaddr_in6* address, const char* text)
{
    std::memset(address, 0, sizeof *address);
    if (text == nullptr) return false;
    char part[kMaxAddressText];
    uint16_t port = 0;
    in6_addr parsed{};
    if (text[0] == '[') {
        const char* close = std::strchr(text, ']');
        if (!close || !CopyPart(part, text + 1, static_cast<size_t>(close - text - 1))) return false;
        if (close[1] != '\0' && !ScanPort(close, "]:%u", &port)) return false;
    } else if (!CopyPart(part, text, std::strlen(text))) {
        return false;
    }
    if (inet_pton(AF_INET6, part, &parsed) != 1) return false;
    address->sin6_family = AF_INET6;
    address->sin6_addr = parsed;
    address->sin6_port = htons(port);
    return true;
}

bool sockaddr_initFromString(struct sockaddr* address, const char* text)
{
    if (text == nullptr || text[0] == '\0') return false;
    sockaddr_in v4;
    if (sockaddr_initFromIPv4String(&v4, text)) {
        std::memcpy(address, &v4, sizeof v4);
        return true;
    }
    sockaddr_in6 v6;
    if (sockaddr_initFromIPv6String(&v6, text)) {
        std::memcpy(address, &v6, sizeof v6);
        return true;
    }
    return false;
}

void sockaddr_initFromIPv4Int(struct sockaddr_in* address, uint32_t networkAddress, uint16_t networkPort)
{
    std::memset(address, 0, sizeof *address);
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = networkAddress;
    address->sin_port = networkPort;
}

void sockaddr_initFromIPv6Int(struct sockaddr_in6* address, const uint8_t networkAddress[16],
                              uint16_t networkPort)
{
    std::memset(address, 0, sizeof *address);
    address->sin6_family = AF_INET6;
    std::memcpy(address->sin6_addr.s6_addr, networkAddress, 16);
    address->sin6_port = networkPort;
}

}  // namespace gatewalk
