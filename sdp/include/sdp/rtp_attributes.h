// Attributes that describe RTP payloads and RTCP: rtpmap, fmtp, rtcp-fb, rtcp, extmap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"
#include "sdp/optional_value.h"

namespace sdp {

// a=rtpmap:<pt> <name>/<clock>[/<param>]...
class rtp_map {
public:
    rtp_map(std::string payload_type, std::string encoding_name, uint32_t clock_rate,
            std::vector<std::string> encoding_parameters = {});
    explicit rtp_map(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    const std::string& get_payload_type() const { return payload_type; }
    uint32_t get_payload_type_numeric() const;
    const std::string& get_encoding_name() const { return encoding_name; }
    uint32_t get_clock_rate() const { return clock_rate; }
    const std::vector<std::string>& get_encoding_parameters() const { return encoding_parameters; }
    bool operator==(const rtp_map&) const = default;

    std::string payload_type;
    std::string encoding_name;
    uint32_t clock_rate = 0;
    std::vector<std::string> encoding_parameters;
};

// a=fmtp:<format> <parameters>
class format_parameters {
public:
    format_parameters(std::string format, std::string parameters);
    explicit format_parameters(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    const std::string& get_format() const { return format; }
    const std::string& get_parameters() const { return parameters; }
    bool operator==(const format_parameters&) const = default;

    std::string format;
    std::string parameters;
};

// a=rtcp-fb:<pt or *> <feedback...>
class rtcp_feedback {
public:
    rtcp_feedback(std::string payload_type, std::string feedback);
    explicit rtcp_feedback(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    const std::string& get_payload_type() const { return payload_type; }
    uint32_t get_payload_type_numeric() const;
    const std::string& get_feedback() const { return feedback; }
    bool operator==(const rtcp_feedback&) const = default;

    std::string payload_type;
    std::string feedback;
};

// a=rtcp:<port> [<net> <addrtype> <address>]
class rtcp_port {
public:
    explicit rtcp_port(uint16_t port);
    rtcp_port(uint16_t port, std::string net_type, std::string address_type, std::string address);
    explicit rtcp_port(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    uint16_t get_port() const { return port; }
    bool operator==(const rtcp_port&) const = default;

    uint16_t port = 0;
    optional_value<std::string> net_type;
    optional_value<std::string> address_type;
    optional_value<std::string> address;
};

enum ext_map_direction : unsigned {
    ext_map_inactive = 0,
    ext_map_recvonly = 1,
    ext_map_sendonly = 2,
    ext_map_sendrecv = 3,
};
const char* ext_map_direction_to_string(ext_map_direction d);

// a=extmap:<id>[/<direction>] <uri> [<attributes>]
class ext_map {
public:
    ext_map(uint32_t id, ext_map_direction direction, std::string uri, std::string attributes = {});
    explicit ext_map(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    // 1 to 15 (one-byte header) and 4096 to 4351 (two-byte header range of this system).
    static bool is_ext_map_id_valid(uint32_t id);
    static bool is_ext_map_id_dynamic(uint32_t id);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    uint32_t get_id() const { return id; }
    ext_map_direction get_direction() const { return direction; }
    const std::string& get_uri() const { return uri; }
    const std::string& get_attributes() const { return attributes; }
    bool operator==(const ext_map&) const = default;

    uint32_t id = 0;
    ext_map_direction direction = ext_map_sendrecv;
    std::string uri;
    std::string attributes;
};

}  // namespace sdp
