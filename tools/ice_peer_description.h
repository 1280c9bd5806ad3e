// The description that two ICE peers trade through files: one media stream, its ufrag and password
// and its candidates, in the line shape libnice prints and reads:
//
//   m=- 40000 ICE/SDP
//   c=IN IP4 127.0.0.1
//   a=ice-ufrag:abcd
//   a=ice-pwd:0123456789abcdefghijkl
//   a=candidate:1 1 UDP 2130706431 127.0.0.1 40000 typ host
//
// aioice's candidate lines (lower-case "udp", "generation 0" at the end) read the same.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tool::ice_peer {

struct Candidate {
    std::string foundation;
    uint32_t component = 1;
    uint32_t priority = 0;
    sockaddr_storage address{};  // with its port
    std::string type;            // "host", "srflx", "prflx" or "relay"
};

struct Description {
    std::string ufrag;
    std::string pwd;
    sockaddr_storage defaultAddress{};  // unset when the text names none
    std::vector<Candidate> candidates;  // UDP only: other transports are left out when read
};

// One line each, LF ends, in the order of the example above. The m= and c= lines carry the first
// component-1 candidate.
std::string Format(const Description& description);

// Reads the shape above; CR LF or LF, unknown lines ignored. False with a reason (and the line
// number) for a line it cannot read, a missing ufrag or password, or no UDP candidate at all. When
// the m=/c= pair names no candidate that was kept, the default is the first component-1 candidate.
bool Parse(const std::string& text, Description& description, std::string& error);

// Writes FILE.tmp and renames it to FILE, so that a reader never sees half a description.
bool WriteAtomically(const std::string& path, const std::string& text);

// "IP:PORT", with the address in brackets for IPv6.
std::string AddressText(const sockaddr_storage& address);

}  // namespace tool::ice_peer
