// Attributes of application m lines: BFCP floors and roles, SCTP and IX maps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"

namespace sdp {

class media_description;

// Roles of a=floorctrl.
enum bfcp_floor_control_role : unsigned {
    bfcp_role_c_only = 0,
    bfcp_role_s_only = 1,
    bfcp_role_c_s = 2,
};
std::string bfcp_floor_control_role_to_string(bfcp_floor_control_role role);
// Throws "invalid bfcp floor control role '<text>'".
bfcp_floor_control_role string_to_bfcp_floor_control_role(const std::string& text);

// a=floorid:<id> [mstrm:<stream> ...]
class bfcp_floor_id {
public:
    explicit bfcp_floor_id(uint32_t id, std::vector<std::string> media_streams = {});
    explicit bfcp_floor_id(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const bfcp_floor_id&) const = default;

    uint32_t id = 0;
    std::vector<std::string> media_streams;
};

// a=sctpmap:<number> <protocol> [<streams>]
class sctp_map {
public:
    sctp_map(uint16_t number, std::string protocol, uint16_t streams = 16);
    explicit sctp_map(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    // Makes the number the one format of the m line and adds the attribute line.
    void populate_media_description(media_description& description) const;
    bool operator==(const sctp_map&) const = default;

    uint16_t number = 0;
    std::string protocol;
    uint16_t streams = 16;
};

// a=ixmap:<id> <protocol>
class ix_map {
public:
    ix_map(uint16_t id, std::string protocol);
    explicit ix_map(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const ix_map&) const = default;

    uint16_t id = 0;
    std::string protocol;
};

}  // namespace sdp
