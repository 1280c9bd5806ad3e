#include "sdp/rtp_attributes.h"

#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

// ---- rtpmap

rtp_map::rtp_map(std::string pt, std::string name, uint32_t clock, std::vector<std::string> params)
    : payload_type(std::move(pt)), encoding_name(std::move(name)), clock_rate(clock),
      encoding_parameters(std::move(params))
{
}

rtp_map::rtp_map(const attribute_line& l) { init_from_line(l); }

bool rtp_map::is_likely_valid(const attribute_line& l) { return l.get_name() == "rtpmap"; }

void rtp_map::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "rtpmap", "rtp map");
    const auto& value = l.get_attribute_value();
    auto parts = detail::split_view(value, ' ', 2);
    if (parts.size() != 2)
        throw std::invalid_argument(cat("invalid attribute value for rtp map, expected 2 space delimited fields, received ",
                                        parts.size(), " (", value, ")"));
    auto fields = detail::split(parts[1], '/');
    if (fields.size() < 2)
        throw std::invalid_argument(cat("invalid attribute value for rtp map, expected >= 2 '/' delimited fields, received ",
                                        fields.size(), " (", value, ")"));
    payload_type.assign(parts[0]);
    clock_rate = string_to_numeric(fields[1], "rtp map attribute clock rate");
    encoding_name = std::move(fields[0]);
    encoding_parameters.assign(std::make_move_iterator(fields.begin() + 2), std::make_move_iterator(fields.end()));
}

attribute_line rtp_map::as_attribute_line() const
{
    std::string value = cat(payload_type, " ", encoding_name, "/", clock_rate);
    for (const auto& p : encoding_parameters) value += cat("/", p);
    return attribute_line("rtpmap", std::move(value));
}

uint32_t rtp_map::get_payload_type_numeric() const { return string_to_numeric(payload_type, "rtp map payload type"); }

// ---- fmtp

format_parameters::format_parameters(std::string f, std::string p) : format(std::move(f)), parameters(std::move(p)) {}

format_parameters::format_parameters(const attribute_line& l) { init_from_line(l); }

bool format_parameters::is_likely_valid(const attribute_line& l) { return l.get_name() == "fmtp"; }

void format_parameters::init_from_line(const attribute_line& l)
{
    // The wrong-name text is shared with rtpmap on purpose.
    detail::check_attribute_name(l, "fmtp", "rtp map");
    const auto& value = l.get_attribute_value();
    auto parts = detail::split_view(value, ' ', 2);
    if (parts.size() != 2)
        throw std::invalid_argument(cat("invalid attribute value for fmtp, expected 2 space delimited fields, received ",
                                        parts.size(), " (", value, ")"));
    format.assign(parts[0]);
    parameters.assign(parts[1]);
}

attribute_line format_parameters::as_attribute_line() const
{
    return attribute_line("fmtp", cat(format, " ", parameters));
}

// ---- rtcp-fb

rtcp_feedback::rtcp_feedback(std::string pt, std::string fb) : payload_type(std::move(pt)), feedback(std::move(fb)) {}

rtcp_feedback::rtcp_feedback(const attribute_line& l) { init_from_line(l); }

bool rtcp_feedback::is_likely_valid(const attribute_line& l) { return l.get_name() == "rtcp-fb"; }

void rtcp_feedback::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "rtcp-fb", "rtcp feedback");
    const auto& value = l.get_attribute_value();
    auto parts = detail::split_view(value, ' ', 2);
    if (parts.size() != 2)
        throw std::invalid_argument(cat(
            "invalid attribute value for rtcp feedback, expected 2 space delimited fields, received ", parts.size(),
            " (", value, ")"));
    payload_type.assign(parts[0]);
    feedback.assign(parts[1]);
}

attribute_line rtcp_feedback::as_attribute_line() const
{
    return attribute_line("rtcp-fb", cat(payload_type, " ", feedback));
}

uint32_t rtcp_feedback::get_payload_type_numeric() const
{
    return string_to_numeric(payload_type, "rtcp feedback payload type");
}

// ---- rtcp

rtcp_port::rtcp_port(uint16_t p) : port(p) {}

rtcp_port::rtcp_port(uint16_t p, std::string net, std::string addr_type, std::string addr)
    : port(p), net_type(std::move(net)), address_type(std::move(addr_type)), address(std::move(addr))
{
}

rtcp_port::rtcp_port(const attribute_line& l) { init_from_line(l); }

bool rtcp_port::is_likely_valid(const attribute_line& l) { return l.get_name() == "rtcp"; }

void rtcp_port::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "rtcp", "rtcp port");
    const auto& value = l.get_attribute_value();
    auto fields = detail::split(value, ' ');
    if (fields.size() != 1 && fields.size() != 4)
        throw std::invalid_argument(cat(
            "invalid attribute value for rtcp port, expected 1 or 4 space delimited fields, received ", fields.size(),
            " (", value, ")"));
    port = string_to_numeric_u16(fields[0], "rtcp port number");
    net_type.clear();
    address_type.clear();
    address.clear();
    if (fields.size() == 4) {
        net_type.set_data(std::move(fields[1]));
        address_type.set_data(std::move(fields[2]));
        address.set_data(std::move(fields[3]));
    }
}

attribute_line rtcp_port::as_attribute_line() const
{
    if (net_type.is_set() && address_type.is_set() && address.is_set())
        return attribute_line("rtcp", cat(port, " ", net_type.get_data(), " ", address_type.get_data(), " ",
                                          address.get_data()));
    return attribute_line("rtcp", std::to_string(port));
}

// ---- extmap

const char* ext_map_direction_to_string(ext_map_direction d)
{
    switch (d) {
    case ext_map_inactive: return "inactive";
    case ext_map_recvonly: return "recvonly";
    case ext_map_sendonly: return "sendonly";
    case ext_map_sendrecv: return "sendrecv";
    }
    return "sendrecv";
}

ext_map::ext_map(uint32_t i, ext_map_direction d, std::string u, std::string a)
    : id(i), direction(d), uri(std::move(u)), attributes(std::move(a))
{
    if (!is_ext_map_id_valid(id)) throw std::invalid_argument(cat("invalid rtp extmap identifier value ", id));
}

ext_map::ext_map(const attribute_line& l) { init_from_line(l); }

bool ext_map::is_likely_valid(const attribute_line& l) { return l.get_name() == "extmap"; }

bool ext_map::is_ext_map_id_valid(uint32_t v) { return (v >= 1 && v <= 15) || (v >= 4096 && v <= 4351); }

bool ext_map::is_ext_map_id_dynamic(uint32_t v) { return v >= 4096 && v <= 4351; }

void ext_map::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "extmap", "rtp extmap");
    const auto& value = l.get_attribute_value();
    auto fields = detail::split_view(value, ' ', 3);
    if (fields.size() < 2)
        throw std::invalid_argument(cat(
            "invalid attribute value for rtp extmap, expected >= 2 space delimited fields, received ", fields.size(),
            " (", value, ")"));
    auto id_dir = detail::split(fields[0], '/');
    if (id_dir.empty() || id_dir.size() > 2)
        throw std::invalid_argument(cat(
            "invalid attribute value for extmap, expected 1 or 2 '/' delimited fields, received ", id_dir.size(),
            " (", value, ")"));
    id = string_to_numeric(id_dir[0], "rtp extmap id");
    if (!is_ext_map_id_valid(id))
        throw std::invalid_argument(cat("invalid rtp extmap identifier value ", id, " (", value, ")"));
    direction = ext_map_sendrecv;
    if (id_dir.size() == 2) {
        const auto& d = id_dir[1];
        if (d == "inactive") direction = ext_map_inactive;
        else if (d == "recvonly") direction = ext_map_recvonly;
        else if (d == "sendonly") direction = ext_map_sendonly;
        else if (d == "sendrecv") direction = ext_map_sendrecv;
        else throw std::invalid_argument(cat("invalid direction value for extmap '", d, "'"));
    }
    uri.assign(fields[1]);
    attributes.assign(fields.size() > 2 ? fields[2] : std::string_view{});
}

attribute_line ext_map::as_attribute_line() const
{
    // The direction is always spelled out, even when the line read had none.
    std::string value = cat(id, "/", ext_map_direction_to_string(direction), " ", uri);
    if (!attributes.empty()) value += cat(" ", attributes);
    return attribute_line("extmap", std::move(value));
}

}  // namespace sdp
