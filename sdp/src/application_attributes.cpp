#include "sdp/application_attributes.h"

#include <algorithm>
#include <stdexcept>

#include "attribute_util.h"
#include "sdp/description.h"

namespace sdp {

using detail::cat;

std::string bfcp_floor_control_role_to_string(bfcp_floor_control_role role)
{
    switch (role) {
    case bfcp_role_c_only: return "c-only";
    case bfcp_role_s_only: return "s-only";
    case bfcp_role_c_s: return "c-s";
    }
    return "c-s";
}

bfcp_floor_control_role string_to_bfcp_floor_control_role(const std::string& text)
{
    if (text == "c-only") return bfcp_role_c_only;
    if (text == "s-only") return bfcp_role_s_only;
    if (text == "c-s") return bfcp_role_c_s;
    throw std::invalid_argument(cat("invalid bfcp floor control role '", text, "'"));
}

// ---- floorid

bfcp_floor_id::bfcp_floor_id(uint32_t i, std::vector<std::string> s) : id(i), media_streams(std::move(s)) {}

bfcp_floor_id::bfcp_floor_id(const attribute_line& l) { init_from_line(l); }

bool bfcp_floor_id::is_likely_valid(const attribute_line& l) { return l.get_name() == "floorid"; }

void bfcp_floor_id::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "floorid", "bfcp_floor_id");
    auto parts = detail::split_view(l.get_attribute_value(), ' ', 2);
    id = string_to_numeric(parts.empty() ? std::string() : std::string(parts[0]), "bfcp_floor_id id value");
    media_streams.clear();
    if (parts.size() > 1) {
        auto streams = detail::split_view(parts[1], ':', 2);
        if (streams.size() == 2 && streams[0] == "mstrm") {
            // Colons and blanks right after "mstrm" all belong to the delimiter: a first stream
            // that kept leading colons would print back glued to it and read back shorter.
            auto list = streams[1];
            list.remove_prefix(std::min(list.size(), list.find_first_not_of(": ")));
            media_streams = detail::split(list, ' ');
        }
    }
}

attribute_line bfcp_floor_id::as_attribute_line() const
{
    std::string value = std::to_string(id);
    if (!media_streams.empty()) value += cat(" mstrm:", detail::join(media_streams, " "));
    return attribute_line("floorid", std::move(value));
}

// ---- sctpmap

sctp_map::sctp_map(uint16_t n, std::string p, uint16_t s) : number(n), protocol(std::move(p)), streams(s) {}

sctp_map::sctp_map(const attribute_line& l) { init_from_line(l); }

bool sctp_map::is_likely_valid(const attribute_line& l) { return l.get_name() == "sctpmap"; }

void sctp_map::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "sctpmap", "sctp_map");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ', 3);
    if (f.size() < 2)
        throw std::invalid_argument(cat("invalid attribute value for sctp_map, expected >= 2 space delimited fields, received ",
                                        f.size(), " (", value, ")"));
    number = string_to_numeric_u16(f[0], "sctp map number");
    protocol = std::move(f[1]);
    streams = f.size() > 2 ? string_to_numeric_u16(f[2], "sctp map streams") : 16;
}

attribute_line sctp_map::as_attribute_line() const
{
    return attribute_line("sctpmap", cat(number, " ", protocol, " ", streams));
}

void sctp_map::populate_media_description(media_description& description) const
{
    auto m = description.get_media_line();
    m.set_formats({std::to_string(number)});
    description.update_line(m);
    description.add_line(as_attribute_line(), false);
}

// ---- ixmap

ix_map::ix_map(uint16_t i, std::string p) : id(i), protocol(std::move(p)) {}

ix_map::ix_map(const attribute_line& l) { init_from_line(l); }

bool ix_map::is_likely_valid(const attribute_line& l) { return l.get_name() == "ixmap"; }

void ix_map::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "ixmap", "ix_map");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ');
    if (f.size() < 2)
        throw std::invalid_argument(cat("invalid attribute value for ix_map, expected 2 space delimited fields, received ",
                                        f.size(), " (", value, ")"));
    id = string_to_numeric_u16(f[0], "ix map id");
    protocol = std::move(f[1]);
}

attribute_line ix_map::as_attribute_line() const { return attribute_line("ixmap", cat(id, " ", protocol)); }

}  // namespace sdp
