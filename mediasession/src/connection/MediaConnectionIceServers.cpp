// The STUN and TURN servers an application gives as text: parsed whole before anything changes, so
// a bad alternate leaves the servers as they were, then put in the connection's configuration for
// the next gathering.
// Thread: the caller's (the application's main thread); a cancel runs on the network thread (type
// 1) while the caller waits, behind any configuration work queued there.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "connection/MediaConnection.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

// The port of both services when the text names none (RFC 5389, RFC 5766).
constexpr uint16_t kDefaultServerPort = 3478;
// More alternates than this means a list without its null end.
constexpr size_t kMaxAlternates = 16;

bool ParsePort(std::string_view text, uint16_t& port)
{
    if (text.empty() || text.size() > 5) return false;
    unsigned value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value == 0 || value > 0xFFFF) return false;
    port = static_cast<uint16_t>(value);
    return true;
}

// "[scheme:]host[:port]", the host an IPv6 literal in brackets when it has colons itself.
bool ParseServer(const char* text, ZynIceServerKind kind, tagICEServer& out)
{
    if (!text) return false;
    constexpr size_t kLongest = 512;
    std::string_view s(text, strnlen(text, kLongest));
    if (s.size() == kLongest) return false;
    const std::string_view scheme = kind == ZynIceServer_TURN ? "turn:" : "stun:";
    if (s.substr(0, scheme.size()) == scheme) s.remove_prefix(scheme.size());
    std::string_view host = s, port;
    if (!s.empty() && s.front() == '[') {
        const size_t close = s.find(']');
        if (close == std::string_view::npos) return false;
        host = s.substr(1, close - 1);
        std::string_view rest = s.substr(close + 1);
        if (!rest.empty()) {
            if (rest.front() != ':') return false;
            port = rest.substr(1);
            if (port.empty()) return false;
        }
    } else if (const size_t colon = s.find(':'); colon != std::string_view::npos) {
        if (s.find(':', colon + 1) != std::string_view::npos) return false;  // IPv6 needs brackets
        host = s.substr(0, colon);
        port = s.substr(colon + 1);
        if (port.empty()) return false;
    }
    if (host.empty() || host.size() >= sizeof out.host) return false;
    for (char c : host)
        if (c == ' ' || c == '/' || c == '@' || static_cast<unsigned char>(c) < 0x21) return false;
    uint16_t number = kDefaultServerPort;
    if (!port.empty() && !ParsePort(port, number)) return false;
    std::memcpy(out.host, host.data(), host.size());
    out.host[host.size()] = '\0';
    out.port = number;
    out.kind = kind;
    return true;
}

// "user:password", or a user alone; each part fits its field.
bool ParseCredential(const char* text, tagICEServer& out)
{
    std::string_view s(text, strnlen(text, sizeof out.username + sizeof out.password));
    const size_t colon = s.find(':');
    const std::string_view user = s.substr(0, colon);
    const std::string_view password = colon == std::string_view::npos ? std::string_view() : s.substr(colon + 1);
    if (user.size() >= sizeof out.username || password.size() >= sizeof out.password) return false;
    std::memcpy(out.username, user.data(), user.size());
    out.username[user.size()] = '\0';
    std::memcpy(out.password, password.data(), password.size());
    out.password[password.size()] = '\0';
    return true;
}

const char* KindName(ZynIceServerKind kind) { return kind == ZynIceServer_TURN ? "TURN" : "STUN"; }

}  // namespace

ZynResult CMediaConnection::ConfigureTURN(const char* server, const char* credential, ZynTURNTransportType transport,
                                          const char** alternates)
{
    return _configureICE(server, credential, transport, alternates, true);
}

ZynResult CMediaConnection::ConfigureSTUN(const char* server, const char* credential, const char** alternates)
{
    return _configureICE(server, credential, ZynTURNTransport_UDP, alternates, false);
}

ZynResult CMediaConnection::_configureICE(const char* server, const char* credential, ZynTURNTransportType transport,
                                          const char** alternates, bool turn)
{
    const ZynIceServerKind kind = turn ? ZynIceServer_TURN : ZynIceServer_STUN;
    // The credential never reaches the trace.
    MS_INFO_TRACE("CMediaConnection::Configure" << KindName(kind) << ", server=" << (server ? server : "(null)")
                  << ", transport=" << transport << ", credential=" << (credential ? "******" : "(null)")
                  << CONN_TAIL);
    if (transport != ZynTURNTransport_UDP && transport != ZynTURNTransport_TCP) return ZYN_E_INVALIDARG;
    // A relay without credentials answers every allocation with 401.
    if (turn && (!credential || !*credential || *credential == ':')) return ZYN_E_INVALIDARG;
    tagICEServer common{};
    common.transport = transport;
    if (credential && !ParseCredential(credential, common)) return ZYN_E_INVALIDARG;

    std::vector<const char*> texts{server};
    for (size_t i = 0; alternates && alternates[i]; ++i) {
        if (i == kMaxAlternates) return ZYN_E_INVALIDARG;
        texts.push_back(alternates[i]);
    }
    std::vector<tagICEServer> added;
    for (const char* text : texts) {
        tagICEServer record = common;
        if (!ParseServer(text, kind, record)) {
            MS_WARNING_TRACE("CMediaConnection::Configure" << KindName(kind) << ", unreadable server=" << (text ? text : "(null)")
                             << CONN_TAIL);
            return ZYN_E_INVALIDARG;
        }
        added.push_back(record);
    }
    if (IsCallStarted()) return Kick(turn ? "CfgTURN" : "CfgSTUN", ZYN_E_FAIL);
    std::vector<tagICEServer> kept = ServersOtherThan(kind);
    kept.insert(kept.end(), added.begin(), added.end());
    return ReplaceServers(kept);
}

ZynResult CMediaConnection::CancelConfigureTurn() { return CancelConfigure(ZynIceServer_TURN); }

ZynResult CMediaConnection::CancelConfigureStun() { return CancelConfigure(ZynIceServer_STUN); }

ZynResult CMediaConnection::CancelConfigure(ZynIceServerKind kind)
{
    std::vector<tagICEServer> kept = ServersOtherThan(kind);
    if (static_cast<int>(kept.size()) == m_globalConfig.getICEServerNum()) return ZYN_S_FALSE;
    MS_INFO_TRACE("CMediaConnection::CancelConfigure" << KindName(kind) << CONN_TAIL);
    if (IsCallStarted()) return Kick(kind == ZynIceServer_TURN ? "CancelTURN" : "CancelSTUN", ZYN_E_FAIL);
    ACmThread* network = CCmThreadManager::Instance()->GetThread(TT_NETWORK);
    if (!network) return ReplaceServers(kept);
    ZynResult result = ZYN_S_OK;
    const CmResult sent = CmInvokeInThread(network, false, [&] {
        result = ReplaceServers(kept);
        return CM_OK;
    });
    return sent == CM_OK ? result : static_cast<ZynResult>(sent);
}

std::vector<tagICEServer> CMediaConnection::ServersOtherThan(ZynIceServerKind kind) const
{
    std::vector<tagICEServer> servers;
    for (int i = 0; i < m_globalConfig.getICEServerNum(); ++i) {
        tagICEServer s{};
        if (ZYN_SUCCEEDED(m_globalConfig.getICEServerAtIndex(i, s)) && s.kind != kind) servers.push_back(s);
    }
    return servers;
}

ZynResult CMediaConnection::ReplaceServers(const std::vector<tagICEServer>& servers)
{
    ZynResult r = m_globalConfig.ClearICEServers();
    for (const tagICEServer& s : servers) {
        if (ZYN_FAILED(r)) break;
        r = m_globalConfig.AddICEServer(s);
    }
    return r;
}

ZynResult CMediaConnection::CheckIceServerConnectiveWithLocalIp(const char* localIp)
{
    if (!localIp) return ZYN_E_INVALIDARG;
    MS_WARNING_TRACE("CMediaConnection::CheckIceServerConnectiveWithLocalIp, not available" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

}  // namespace zyn
