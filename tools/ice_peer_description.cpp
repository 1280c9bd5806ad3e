#include "ice_peer_description.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include "sockaddr_util.h"

namespace tool::ice_peer {
namespace {

// The agent's records hold 256 characters of ufrag and password and 32 of foundation.
constexpr size_t kMaxCredential = 256;
constexpr size_t kMaxFoundation = 32;

const sockaddr* Sa(const sockaddr_storage& a) { return reinterpret_cast<const sockaddr*>(&a); }
sockaddr* Sa(sockaddr_storage& a) { return reinterpret_cast<sockaddr*>(&a); }

bool ReadNumber(const std::string& word, uint64_t max, uint64_t& value)
{
    if (word.empty() || word.size() > 10) return false;
    value = 0;
    for (char c : word) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    return value <= max;
}

bool SetAddress(sockaddr_storage& out, const std::string& ip, uint64_t port)
{
    gatewalk::sockaddr_reset(&out);
    // A bracketed or port-carrying form is not an address word of a candidate line.
    if (ip.find_first_of("[]") != std::string::npos || port == 0 || port > 65535) return false;
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    if (ip.find(':') == std::string::npos) {
        if (!gatewalk::sockaddr_initFromIPv4String(&v4, ip.c_str())) return false;
        gatewalk::sockaddr_copy(Sa(out), reinterpret_cast<sockaddr*>(&v4));
    } else {
        if (!gatewalk::sockaddr_initFromIPv6String(&v6, ip.c_str())) return false;
        gatewalk::sockaddr_copy(Sa(out), reinterpret_cast<sockaddr*>(&v6));
    }
    gatewalk::sockaddr_setPort(Sa(out), static_cast<uint16_t>(port));
    return true;
}

// "<foundation> <component> <transport> <priority> <ip> <port> typ <type> [more...]". Candidates
// of any transport but UDP are skipped (kept stays false) without failing the read.
bool ReadCandidate(const std::string& value, Candidate& c, bool& kept, std::string& error)
{
    std::istringstream in(value);
    std::string transport, component, priority, ip, port, typ;
    in >> c.foundation >> component >> transport >> priority >> ip >> port >> typ >> c.type;
    if (c.type.empty() || typ != "typ") return error = "a candidate needs eight fields", false;
    if (c.foundation.size() > kMaxFoundation) return error = "foundation longer than 32 characters", false;
    uint64_t n = 0;
    if (!ReadNumber(component, 256, n) || n == 0) return error = "bad component id " + component, false;
    c.component = static_cast<uint32_t>(n);
    if (!ReadNumber(priority, UINT32_MAX, n)) return error = "bad priority " + priority, false;
    c.priority = static_cast<uint32_t>(n);
    if (!ReadNumber(port, 65535, n) || !SetAddress(c.address, ip, n)) {
        return error = "bad address " + ip + " port " + port, false;
    }
    if (c.type != "host" && c.type != "srflx" && c.type != "prflx" && c.type != "relay") {
        return error = "unknown candidate type " + c.type, false;
    }
    kept = transport == "UDP" || transport == "udp";
    return true;
}

}  // namespace

std::string AddressText(const sockaddr_storage& address)
{
    char buffer[64];
    const char* text = gatewalk::sockaddr_toString(Sa(address), buffer, sizeof buffer, true);
    return text ? text : "";
}

std::string Format(const Description& d)
{
    std::ostringstream out;
    const Candidate* first = nullptr;
    for (const auto& c : d.candidates) {
        if (c.component == 1) {
            first = &c;
            break;
        }
    }
    char ip[64] = "0.0.0.0";
    unsigned port = 0;
    bool v6 = false;
    if (first) {
        gatewalk::sockaddr_toString(Sa(first->address), ip, sizeof ip, false);
        port = gatewalk::sockaddr_ipPort(Sa(first->address));
        v6 = first->address.ss_family == AF_INET6;
    }
    out << "m=- " << port << " ICE/SDP\n";
    out << "c=IN " << (v6 ? "IP6 " : "IP4 ") << ip << "\n";
    out << "a=ice-ufrag:" << d.ufrag << "\n";
    out << "a=ice-pwd:" << d.pwd << "\n";
    for (const auto& c : d.candidates) {
        char cip[64] = "";
        gatewalk::sockaddr_toString(Sa(c.address), cip, sizeof cip, false);
        out << "a=candidate:" << c.foundation << " " << c.component << " UDP " << c.priority << " " << cip << " "
            << gatewalk::sockaddr_ipPort(Sa(c.address)) << " typ " << c.type << "\n";
    }
    return out.str();
}

bool Parse(const std::string& text, Description& d, std::string& error)
{
    d = Description{};
    std::string defaultIp;
    uint64_t defaultPort = 0;
    std::istringstream in(text);
    int number = 0;
    auto fail = [&](const std::string& why) {
        error = "line " + std::to_string(number) + ": " + why;
        return false;
    };
    for (std::string line; std::getline(in, line);) {
        ++number;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        auto value = [&](const char* prefix) { return line.substr(std::char_traits<char>::length(prefix)); };
        if (line.rfind("m=", 0) == 0) {
            std::istringstream m(value("m="));
            std::string name, port;
            m >> name >> port;
            if (!ReadNumber(port, 65535, defaultPort)) return fail("bad port in the m= line");
        } else if (line.rfind("c=", 0) == 0) {
            std::istringstream c(value("c="));
            std::string in_, family;
            c >> in_ >> family >> defaultIp;
            if (in_ != "IN" || (family != "IP4" && family != "IP6")) return fail("bad c= line");
        } else if (line.rfind("a=ice-ufrag:", 0) == 0) {
            d.ufrag = value("a=ice-ufrag:");
            if (d.ufrag.empty() || d.ufrag.size() > kMaxCredential) return fail("ufrag empty or too long");
        } else if (line.rfind("a=ice-pwd:", 0) == 0) {
            d.pwd = value("a=ice-pwd:");
            if (d.pwd.empty() || d.pwd.size() > kMaxCredential) return fail("password empty or too long");
        } else if (line.rfind("a=candidate:", 0) == 0) {
            Candidate c;
            bool kept = false;
            std::string why;
            if (!ReadCandidate(value("a=candidate:"), c, kept, why)) return fail(why);
            if (kept) d.candidates.push_back(c);
        }
    }
    if (d.ufrag.empty() || d.pwd.empty()) return error = "no ice-ufrag or ice-pwd line", false;
    if (d.candidates.empty()) return error = "no UDP candidate", false;
    sockaddr_storage named{};
    const bool haveNamed = SetAddress(named, defaultIp, defaultPort);
    const Candidate* firstRtp = nullptr;
    for (const auto& c : d.candidates) {
        if (c.component != 1) continue;
        if (!firstRtp) firstRtp = &c;
        if (haveNamed && gatewalk::sockaddr_alike(Sa(c.address), Sa(named))) d.defaultAddress = named;
    }
    if (!firstRtp) return error = "no candidate of component 1", false;
    if (d.defaultAddress.ss_family == 0) d.defaultAddress = firstRtp->address;
    return true;
}

bool WriteAtomically(const std::string& path, const std::string& text)
{
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!(out << text) || !out.flush()) return false;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0;
}

}  // namespace tool::ice_peer
