#include "tp/CmUri.h"

#include <algorithm>
#include <cctype>

#include "tp/CmInetAddr.h"

namespace {

bool StartsWithNoCase(std::string_view text, std::string_view prefix)
{
    if (text.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
    return true;
}

// Letters, digits, '-', '_' and '.' (names), with no empty label and at most 253 characters.
bool IsHostName(std::string_view host)
{
    if (host.empty() || host.size() > 253 || host.front() == '.' || host.find("..") != std::string_view::npos)
        return false;
    return std::all_of(host.begin(), host.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.';
    });
}

bool ParsePort(std::string_view digits, uint16_t& port)
{
    if (digits.empty() || digits.size() > 5) return false;
    uint32_t value = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (value == 0 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
    return true;
}

// Printable ASCII without blanks: what an HTTP request line can carry as it stands.
bool IsPath(std::string_view path)
{
    return !path.empty() && path.front() == '/' &&
           std::all_of(path.begin(), path.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

}  // namespace

CmResult CCmUri::Parse(std::string_view text)
{
    if (text.empty() || text.size() > kMaxLength) return CM_ERROR_INVALID_ARG;
    Scheme scheme;
    uint16_t port;
    if (StartsWithNoCase(text, "stun:")) {
        scheme = SCHEME_STUN;
        port = 3478;
        text.remove_prefix(5);
    } else if (StartsWithNoCase(text, "http://")) {
        scheme = SCHEME_HTTP;
        port = 80;
        text.remove_prefix(7);
    } else if (StartsWithNoCase(text, "https://")) {
        scheme = SCHEME_HTTPS;
        port = 443;
        text.remove_prefix(8);
    } else {
        return CM_ERROR_INVALID_ARG;
    }
    std::string_view authority = text;
    std::string path;
    if (scheme != SCHEME_STUN) {
        const size_t slash = text.find('/');
        authority = text.substr(0, slash);
        path = slash == std::string_view::npos ? "/" : std::string(text.substr(slash));
        if (!IsPath(path)) return CM_ERROR_INVALID_ARG;
    }
    std::string_view host = authority;
    std::string_view portText;
    bool hasPort = false;
    if (!authority.empty() && authority.front() == '[') {
        const size_t close = authority.find(']');
        if (close == std::string_view::npos) return CM_ERROR_INVALID_ARG;
        host = authority.substr(1, close - 1);
        std::string_view rest = authority.substr(close + 1);
        if (!rest.empty()) {
            if (rest.front() != ':') return CM_ERROR_INVALID_ARG;
            portText = rest.substr(1);
            hasPort = true;
        }
        CCmInetAddr v6;
        if (host.find(':') == std::string_view::npos || v6.Set(std::string(host).c_str(), 0) != CM_OK || !v6.IsIpv6())
            return CM_ERROR_INVALID_ARG;
    } else {
        const size_t colon = authority.rfind(':');
        if (colon != std::string_view::npos) {
            host = authority.substr(0, colon);
            portText = authority.substr(colon + 1);
            hasPort = true;
        }
        if (!IsHostName(host)) return CM_ERROR_INVALID_ARG;
    }
    if (hasPort && !ParsePort(portText, port)) return CM_ERROR_INVALID_ARG;
    CCmInetAddr numeric;
    m_numericHost = numeric.Set(std::string(host).c_str(), 0) == CM_OK;
    m_scheme = scheme;
    m_host.assign(host);
    m_port = port;
    m_path = std::move(path);
    return CM_OK;
}

std::string CCmUri::GetHostAndPort() const
{
    const bool v6 = m_host.find(':') != std::string::npos;
    return (v6 ? "[" + m_host + "]" : m_host) + ":" + std::to_string(m_port);
}

std::string CCmUri::ToString() const
{
    switch (m_scheme) {
    case SCHEME_STUN: return "stun:" + GetHostAndPort();
    case SCHEME_HTTP: return "http://" + GetHostAndPort() + m_path;
    case SCHEME_HTTPS: return "https://" + GetHostAndPort() + m_path;
    default: return {};
    }
}
