// An IPv4 or IPv6 socket address (address, port, and for IPv6 the scope), kept as the sockaddr the
// socket calls take. A default-constructed address is 0.0.0.0:0.
//
// Text is parsed strictly (inet_pton rules: dotted quad for IPv4, RFC 4291 forms for IPv6, an
// optional "%scope" and optional surrounding brackets for IPv6). Bad text returns
// CM_ERROR_INVALID_ARG and leaves the address as it was.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "tp/CmDefines.h"

class CCmInetAddr {
public:
    CCmInetAddr();
    // Numeric text only; on bad text the address stays 0.0.0.0 and IsValid() tells (no exceptions).
    CCmInetAddr(const char* ip, uint16_t port);
    // From a sockaddr of family AF_INET or AF_INET6 (address and port); anything else leaves 0.0.0.0:0.
    explicit CCmInetAddr(const sockaddr* addr, socklen_t length = sizeof(sockaddr_in6));

    // Sets address and port and forgets any host name. With resolve, a host name is looked up
    // (getaddrinfo, blocking, first result, either family); without it only numeric text is accepted.
    CmResult Set(const char* hostOrIp, uint16_t port, bool resolve = false);
    CmResult SetWithoutResolve(const char* ip, uint16_t port) { return Set(ip, port, false); }
    // Replaces the address only; the port is kept.
    CmResult SetIpAddrByString(const char* ip);
    // Takes address and port from a sockaddr (AF_INET or AF_INET6). length bounds what is read.
    CmResult SetIpAddrBySock(const sockaddr* addr, socklen_t length = sizeof(sockaddr_in6));
    void SetPort(uint16_t port);

    uint16_t GetPort() const;
    // AF_INET or AF_INET6.
    int GetType() const { return m_family; }
    bool IsIpv6() const { return m_family == AF_INET6; }
    // False only after a constructor was given text it could not parse.
    bool IsValid() const { return m_valid; }

    // A host name still to be looked up, for the asynchronous resolvers: the name, the port and the
    // family the caller wants (AF_INET or AF_INET6, which GetType() then reports). The address stays
    // the any address of that family until SetResolvedAddress. Numeric text is taken as the address
    // at once (resolved, no name kept). Refuses an empty or over-long name and other families.
    CmResult SetUnresolved(const char* hostName, uint16_t port, int family);
    // The name given to SetUnresolved (kept after the lookup, for display); empty otherwise.
    const std::string& GetHostName() const { return m_hostName; }
    // False only between SetUnresolved with a name and SetResolvedAddress.
    bool IsResolved() const { return m_resolved; }
    // The looked-up address (its port is ignored): family and address taken, port and name kept.
    CmResult SetResolvedAddress(const CCmInetAddr& answer);

    // The address without port: "1.2.3.4", "::1", "fe80::1%2".
    std::string GetIpDisplayName() const;
    // With port: "1.2.3.4:5", "[::1]:5".
    std::string ToString() const;

    // For bind(), connect(), sendto().
    const sockaddr* GetPtr() const { return reinterpret_cast<const sockaddr*>(&m_storage); }
    socklen_t GetSize() const;

    bool IsLoopback() const;   // 127.0.0.0/8, ::1, ::ffff:127.0.0.0/104
    bool IsAny() const;        // 0.0.0.0, ::
    bool IsLinkLocal() const;  // 169.254.0.0/16, fe80::/10

    // NAT64 (RFC 6052). ParsePrefixLength finds where a synthesized IPv6 address (the answer for
    // "ipv4only.arpa.") carries the well-known address 192.0.0.170 or 192.0.0.171 and returns the
    // prefix length (32, 40, 48, 56, 64 or 96), or -1 when it carries neither.
    static int ParsePrefixLength(const CCmInetAddr& synthesized);
    // Turns this IPv4 address into the IPv6 address synthesized with the prefix of `prefix` and the
    // given length; the port is kept. Refuses an IPv6 *this, a non-IPv6 prefix or a bad length.
    CmResult XLAT46(const CCmInetAddr& prefix, int prefixLength);

    // Same family, address, port and scope.
    bool operator==(const CCmInetAddr& other) const;
    bool operator!=(const CCmInetAddr& other) const { return !(*this == other); }
    // Family, then address bytes, then port, then scope: a strict weak order for maps and sorting.
    bool operator<(const CCmInetAddr& other) const;
    size_t Hash() const;

private:
    void Reset();
    // Address bytes of the current family: 4 or 16 of them.
    const uint8_t* AddressBytes() const;
    size_t AddressLength() const { return m_family == AF_INET6 ? 16 : 4; }

    union Storage {
        sockaddr_in v4;
        sockaddr_in6 v6;
    } m_storage;
    int m_family = AF_INET;
    bool m_valid = true;
    bool m_resolved = true;
    // Not part of the address's identity: equality, order and hash ignore it.
    std::string m_hostName;
};

template <>
struct std::hash<CCmInetAddr> {
    size_t operator()(const CCmInetAddr& addr) const noexcept { return addr.Hash(); }
};
