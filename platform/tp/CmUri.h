// URIs of the servers a reachability test probes: "stun:HOST[:PORT]" (STUN over UDP),
// "http://HOST[:PORT][/PATH]" (HTTP over TCP) and "https://HOST[:PORT][/PATH]" (HTTP over TLS).
// HOST is a DNS name, a dotted quad or a bracketed IPv6 address. Parsing is strict and bounded:
// anything else is refused and leaves the object as it was. No thread of its own; a value type.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tp/CmDefines.h"

class CCmUri {
public:
    enum Scheme { SCHEME_NONE = 0, SCHEME_STUN, SCHEME_HTTP, SCHEME_HTTPS };

    // Longest text taken at all; a URI of a server list has no business being longer.
    static constexpr size_t kMaxLength = 2048;

    // CM_ERROR_INVALID_ARG for text that is not one of the three forms.
    CmResult Parse(std::string_view text);

    Scheme GetScheme() const { return m_scheme; }
    // Without brackets for IPv6.
    const std::string& GetHost() const { return m_host; }
    // The given port, else 3478 (stun), 80 (http), 443 (https).
    uint16_t GetPort() const { return m_port; }
    // Starts with '/'; "/" when the URI has none. Empty for stun.
    const std::string& GetPath() const { return m_path; }
    // True when the host is numeric text (no lookup needed).
    bool IsNumericHost() const { return m_numericHost; }
    // The canonical text: scheme in lower case, default port written out.
    std::string ToString() const;
    // "HOST:PORT" with brackets for IPv6: the Host header of an HTTP request.
    std::string GetHostAndPort() const;

private:
    Scheme m_scheme = SCHEME_NONE;
    std::string m_host;
    uint16_t m_port = 0;
    std::string m_path;
    bool m_numericHost = false;
};
