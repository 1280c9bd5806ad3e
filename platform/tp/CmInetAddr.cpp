#include "tp/CmInetAddr.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>

#include <array>
#include <cstring>
#include <string_view>

namespace {

// Longest text worth parsing: a full IPv6 address, brackets, '%' and an interface name.
constexpr size_t kMaxIpText = INET6_ADDRSTRLEN + 2 + 1 + IF_NAMESIZE;

// Parses numeric text into a zero-port sockaddr; false on anything malformed.
bool ParseNumeric(const char* text, sockaddr_in& v4, sockaddr_in6& v6, int& family)
{
    if (text == nullptr) return false;
    std::string_view in(text, strnlen(text, kMaxIpText + 1));
    if (in.empty() || in.size() > kMaxIpText) return false;
    const bool bracketed = in.front() == '[';
    if (bracketed) {
        if (in.size() < 3 || in.back() != ']') return false;
        in = in.substr(1, in.size() - 2);
    }
    if (in.find(':') == std::string_view::npos) {
        if (bracketed) return false;
        char buf[INET_ADDRSTRLEN];
        if (in.size() >= sizeof(buf)) return false;
        memcpy(buf, in.data(), in.size());
        buf[in.size()] = '\0';
        sockaddr_in out{};
        out.sin_family = AF_INET;
        if (inet_pton(AF_INET, buf, &out.sin_addr) != 1) return false;
        v4 = out;
        family = AF_INET;
        return true;
    }
    const size_t percent = in.find('%');
    std::string_view addressPart = in.substr(0, percent);
    char buf[INET6_ADDRSTRLEN];
    if (addressPart.size() >= sizeof(buf)) return false;
    memcpy(buf, addressPart.data(), addressPart.size());
    buf[addressPart.size()] = '\0';
    sockaddr_in6 out{};
    out.sin6_family = AF_INET6;
    if (inet_pton(AF_INET6, buf, &out.sin6_addr) != 1) return false;
    if (percent != std::string_view::npos) {
        std::string_view scope = in.substr(percent + 1);
        if (scope.empty() || scope.size() >= IF_NAMESIZE) return false;
        uint32_t id = 0;
        bool numeric = true;
        for (char c : scope) {
            if (c < '0' || c > '9') {
                numeric = false;
                break;
            }
            id = id * 10 + static_cast<uint32_t>(c - '0');
            if (id > 0xFFFFFFu) return false;  // no real interface index is that large; stops overflow
        }
        if (!numeric) {
            char name[IF_NAMESIZE];
            memcpy(name, scope.data(), scope.size());
            name[scope.size()] = '\0';
            id = if_nametoindex(name);
            if (id == 0) return false;
        }
        out.sin6_scope_id = id;
    }
    v6 = out;
    family = AF_INET6;
    return true;
}

// Byte positions of the four IPv4 bytes inside a NAT64 address, by prefix length (RFC 6052 2.2);
// byte 8 (bits 64-71) always stays zero.
struct Nat64Layout {
    int prefixLength;
    std::array<int, 4> positions;
};
constexpr std::array<Nat64Layout, 6> kNat64Layouts{{
    {96, {12, 13, 14, 15}},
    {64, {9, 10, 11, 12}},
    {56, {7, 9, 10, 11}},
    {48, {6, 7, 9, 10}},
    {40, {5, 6, 7, 9}},
    {32, {4, 5, 6, 7}},
}};

const Nat64Layout* FindLayout(int prefixLength)
{
    for (const auto& layout : kNat64Layouts)
        if (layout.prefixLength == prefixLength) return &layout;
    return nullptr;
}

}  // namespace

CCmInetAddr::CCmInetAddr() { Reset(); }

CCmInetAddr::CCmInetAddr(const char* ip, uint16_t port)
{
    Reset();
    m_valid = Set(ip, port) == CM_OK;
}

CCmInetAddr::CCmInetAddr(const sockaddr* addr, socklen_t length)
{
    Reset();
    m_valid = SetIpAddrBySock(addr, length) == CM_OK;
}

void CCmInetAddr::Reset()
{
    memset(&m_storage, 0, sizeof(m_storage));
    m_storage.v4.sin_family = AF_INET;
    m_family = AF_INET;
    m_valid = true;
    m_resolved = true;
    m_hostName.clear();
}

CmResult CCmInetAddr::Set(const char* hostOrIp, uint16_t port, bool resolve)
{
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    int family = 0;
    if (ParseNumeric(hostOrIp, v4, v6, family)) {
        memset(&m_storage, 0, sizeof(m_storage));
        if (family == AF_INET) m_storage.v4 = v4; else m_storage.v6 = v6;
        m_family = family;
        m_valid = true;
        m_resolved = true;
        m_hostName.clear();
        SetPort(port);
        return CM_OK;
    }
    if (!resolve || hostOrIp == nullptr || hostOrIp[0] == '\0' || strnlen(hostOrIp, 256) > 253)
        return CM_ERROR_INVALID_ARG;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* result = nullptr;
    if (getaddrinfo(hostOrIp, nullptr, &hints, &result) != 0 || result == nullptr) return CM_ERROR_NOT_FOUND;
    CmResult rv = CM_ERROR_NOT_FOUND;
    for (addrinfo* ai = result; ai != nullptr; ai = ai->ai_next) {
        if (SetIpAddrBySock(ai->ai_addr, ai->ai_addrlen) == CM_OK) {
            m_resolved = true;
            m_hostName.clear();
            SetPort(port);
            rv = CM_OK;
            break;
        }
    }
    freeaddrinfo(result);
    return rv;
}

CmResult CCmInetAddr::SetUnresolved(const char* hostName, uint16_t port, int family)
{
    if (family != AF_INET && family != AF_INET6) return CM_ERROR_INVALID_ARG;
    // 253 characters is the longest name DNS carries (RFC 1035 2.3.4, without the final dot).
    const size_t length = hostName ? strnlen(hostName, 256) : 0;
    if (length == 0 || length > 254) return CM_ERROR_INVALID_ARG;
    if (Set(hostName, port, false) == CM_OK) return CM_OK;
    Reset();
    m_family = family;
    if (family == AF_INET6) m_storage.v6.sin6_family = AF_INET6;
    SetPort(port);
    m_hostName.assign(hostName, length);
    m_resolved = false;
    return CM_OK;
}

CmResult CCmInetAddr::SetResolvedAddress(const CCmInetAddr& answer)
{
    if (!answer.IsValid()) return CM_ERROR_INVALID_ARG;
    const uint16_t port = GetPort();
    std::string name = m_hostName;
    memset(&m_storage, 0, sizeof(m_storage));
    if (answer.m_family == AF_INET6) m_storage.v6 = answer.m_storage.v6;
    else m_storage.v4 = answer.m_storage.v4;
    m_family = answer.m_family;
    m_valid = true;
    m_resolved = true;
    m_hostName = std::move(name);
    SetPort(port);
    return CM_OK;
}

CmResult CCmInetAddr::SetIpAddrByString(const char* ip)
{
    const uint16_t port = GetPort();
    const bool wasValid = m_valid;
    CmResult rv = Set(ip, port, false);
    if (rv != CM_OK) m_valid = wasValid;
    return rv;
}

CmResult CCmInetAddr::SetIpAddrBySock(const sockaddr* addr, socklen_t length)
{
    if (addr == nullptr || length < static_cast<socklen_t>(sizeof(sa_family_t))) return CM_ERROR_NULL_POINTER;
    sa_family_t family = 0;
    memcpy(&family, reinterpret_cast<const char*>(addr) + offsetof(sockaddr, sa_family), sizeof(family));
    if (family == AF_INET && length >= static_cast<socklen_t>(sizeof(sockaddr_in))) {
        memset(&m_storage, 0, sizeof(m_storage));
        memcpy(&m_storage.v4, addr, sizeof(sockaddr_in));
        memset(m_storage.v4.sin_zero, 0, sizeof(m_storage.v4.sin_zero));
        m_family = AF_INET;
    } else if (family == AF_INET6 && length >= static_cast<socklen_t>(sizeof(sockaddr_in6))) {
        memset(&m_storage, 0, sizeof(m_storage));
        memcpy(&m_storage.v6, addr, sizeof(sockaddr_in6));
        m_storage.v6.sin6_flowinfo = 0;  // not part of the address's identity
        m_family = AF_INET6;
    } else {
        return CM_ERROR_INVALID_ARG;
    }
    m_valid = true;
    m_resolved = true;
    m_hostName.clear();
    return CM_OK;
}

void CCmInetAddr::SetPort(uint16_t port)
{
    if (m_family == AF_INET6) m_storage.v6.sin6_port = htons(port);
    else m_storage.v4.sin_port = htons(port);
}

uint16_t CCmInetAddr::GetPort() const
{
    return ntohs(m_family == AF_INET6 ? m_storage.v6.sin6_port : m_storage.v4.sin_port);
}

socklen_t CCmInetAddr::GetSize() const
{
    return m_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

const uint8_t* CCmInetAddr::AddressBytes() const
{
    if (m_family == AF_INET6) return m_storage.v6.sin6_addr.s6_addr;
    return reinterpret_cast<const uint8_t*>(&m_storage.v4.sin_addr.s_addr);
}

std::string CCmInetAddr::GetIpDisplayName() const
{
    char buf[INET6_ADDRSTRLEN] = {};
    if (m_family == AF_INET6) {
        if (inet_ntop(AF_INET6, &m_storage.v6.sin6_addr, buf, sizeof(buf)) == nullptr) return {};
        std::string text(buf);
        if (m_storage.v6.sin6_scope_id != 0) text += "%" + std::to_string(m_storage.v6.sin6_scope_id);
        return text;
    }
    if (inet_ntop(AF_INET, &m_storage.v4.sin_addr, buf, sizeof(buf)) == nullptr) return {};
    return buf;
}

std::string CCmInetAddr::ToString() const
{
    if (m_family == AF_INET6) return "[" + GetIpDisplayName() + "]:" + std::to_string(GetPort());
    return GetIpDisplayName() + ":" + std::to_string(GetPort());
}

bool CCmInetAddr::IsLoopback() const
{
    const uint8_t* b = AddressBytes();
    if (m_family == AF_INET) return b[0] == 127;
    if (IN6_IS_ADDR_LOOPBACK(&m_storage.v6.sin6_addr)) return true;
    return IN6_IS_ADDR_V4MAPPED(&m_storage.v6.sin6_addr) && b[12] == 127;
}

bool CCmInetAddr::IsAny() const
{
    const uint8_t* b = AddressBytes();
    for (size_t i = 0; i < AddressLength(); ++i)
        if (b[i] != 0) return false;
    return true;
}

bool CCmInetAddr::IsLinkLocal() const
{
    const uint8_t* b = AddressBytes();
    if (m_family == AF_INET) return b[0] == 169 && b[1] == 254;
    return b[0] == 0xfe && (b[1] & 0xc0) == 0x80;
}

int CCmInetAddr::ParsePrefixLength(const CCmInetAddr& synthesized)
{
    if (!synthesized.IsIpv6()) return -1;
    const uint8_t* b = synthesized.AddressBytes();
    for (const auto& layout : kNat64Layouts) {
        // The u-octet is zero except where the /96 form puts address bytes over it.
        if (layout.prefixLength != 96 && b[8] != 0) continue;
        const uint8_t v4[4] = {b[layout.positions[0]], b[layout.positions[1]], b[layout.positions[2]],
                               b[layout.positions[3]]};
        if (v4[0] == 192 && v4[1] == 0 && v4[2] == 0 && (v4[3] == 170 || v4[3] == 171))
            return layout.prefixLength;
    }
    return -1;
}

CmResult CCmInetAddr::XLAT46(const CCmInetAddr& prefix, int prefixLength)
{
    const Nat64Layout* layout = FindLayout(prefixLength);
    if (m_family != AF_INET || !prefix.IsIpv6() || layout == nullptr) return CM_ERROR_INVALID_ARG;
    uint8_t v4[4];
    memcpy(v4, AddressBytes(), sizeof(v4));
    const uint16_t port = GetPort();
    sockaddr_in6 out{};
    out.sin6_family = AF_INET6;
    // Prefix bytes, then zeros (u-octet and suffix), then the IPv4 bytes at their places.
    memcpy(out.sin6_addr.s6_addr, prefix.AddressBytes(), static_cast<size_t>(prefixLength / 8));
    for (size_t i = 0; i < 4; ++i) out.sin6_addr.s6_addr[layout->positions[i]] = v4[i];
    memset(&m_storage, 0, sizeof(m_storage));
    m_storage.v6 = out;
    m_family = AF_INET6;
    SetPort(port);
    return CM_OK;
}

bool CCmInetAddr::operator==(const CCmInetAddr& other) const
{
    if (m_family != other.m_family || GetPort() != other.GetPort()) return false;
    if (memcmp(AddressBytes(), other.AddressBytes(), AddressLength()) != 0) return false;
    return m_family != AF_INET6 || m_storage.v6.sin6_scope_id == other.m_storage.v6.sin6_scope_id;
}

bool CCmInetAddr::operator<(const CCmInetAddr& other) const
{
    if (m_family != other.m_family) return m_family < other.m_family;
    const int cmp = memcmp(AddressBytes(), other.AddressBytes(), AddressLength());
    if (cmp != 0) return cmp < 0;
    if (GetPort() != other.GetPort()) return GetPort() < other.GetPort();
    if (m_family == AF_INET6) return m_storage.v6.sin6_scope_id < other.m_storage.v6.sin6_scope_id;
    return false;
}

size_t CCmInetAddr::Hash() const
{
    // FNV-1a over family, address, port and scope: the same fields equality looks at.
    uint64_t h = 1469598103934665603ull;
    auto mix = [&h](uint8_t byte) {
        h ^= byte;
        h *= 1099511628211ull;
    };
    mix(static_cast<uint8_t>(m_family));
    const uint8_t* b = AddressBytes();
    for (size_t i = 0; i < AddressLength(); ++i) mix(b[i]);
    const uint16_t port = GetPort();
    mix(static_cast<uint8_t>(port >> 8));
    mix(static_cast<uint8_t>(port));
    if (m_family == AF_INET6) {
        const uint32_t scope = m_storage.v6.sin6_scope_id;
        for (int shift = 24; shift >= 0; shift -= 8) mix(static_cast<uint8_t>(scope >> shift));
    }
    return static_cast<size_t>(h);
}
