#include "sdp/ice.h"

#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

// ---- candidate

ice_candidate::ice_candidate(std::string f, uint32_t c, std::string t, uint32_t p, std::string a, uint16_t po,
                             std::string ty, std::vector<std::pair<std::string, std::string>> e)
    : foundation(std::move(f)), component(c), transport(std::move(t)), priority(p), address(std::move(a)), port(po),
      type(std::move(ty)), extensions(std::move(e))
{
}

ice_candidate::ice_candidate(const attribute_line& l) { init_from_line(l); }

bool ice_candidate::is_likely_valid(const attribute_line& l) { return l.get_name() == "candidate"; }

void ice_candidate::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "candidate", "ice_candidate");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ');
    if (f.size() < 8)
        throw std::invalid_argument(cat("invalid attribute value for ice candidate, expected >= 8 space delimited fields, received ",
                                        f.size(), " (", value, ")"));
    if (f[6] != "typ")
        throw std::invalid_argument(cat("invalid attribute value for ice candidate, expected to see typ but found '", f[6],
                                        "' instead (", value, ")"));
    if ((f.size() - 8) % 2 != 0)
        throw std::invalid_argument(cat(
            "invalid attribute value for ice candidate, expected an even number of extra attributes, received ",
            f.size() - 8, " (", value, ")"));
    component = string_to_numeric(f[1], "ice candidate component id");
    priority = string_to_numeric(f[3], "ice candidate priority");
    port = string_to_numeric_u16(f[5], "ice candidate port");
    foundation = std::move(f[0]);
    transport = std::move(f[2]);
    address = std::move(f[4]);
    type = std::move(f[7]);
    extensions.clear();
    for (std::size_t i = 8; i + 1 < f.size(); i += 2) extensions.emplace_back(std::move(f[i]), std::move(f[i + 1]));
}

attribute_line ice_candidate::as_attribute_line() const
{
    std::string value = cat(foundation, " ", component, " ", transport, " ", priority, " ", address, " ", port, " typ ", type);
    for (const auto& [name, v] : extensions) value += cat(" ", name, " ", v);
    return attribute_line("candidate", std::move(value));
}

// ---- options

ice_options::ice_options(std::vector<std::string> t) : tags(std::move(t))
{
    if (tags.empty()) throw std::invalid_argument("zero tags passed to ice options, expected minimum 1");
}

ice_options::ice_options(const attribute_line& l) { init_from_line(l); }

bool ice_options::is_likely_valid(const attribute_line& l) { return l.get_name() == "ice-options"; }

void ice_options::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "ice-options", "ice options");
    const auto& value = l.get_attribute_value();
    tags = detail::split(value, ' ');
    if (tags.empty())
        throw std::invalid_argument(cat(
            "invalid attribute value for ice options, expected >= 1 space delimited fields, received 0 (", value, ")"));
}

attribute_line ice_options::as_attribute_line() const { return attribute_line("ice-options", detail::join(tags, " ")); }

// ---- remote candidates

ice_remote_candidates::ice_remote_candidates(std::vector<ice_remote_candidate_component> c) : components(std::move(c)) {}

ice_remote_candidates::ice_remote_candidates(const attribute_line& l) { init_from_line(l); }

bool ice_remote_candidates::is_likely_valid(const attribute_line& l) { return l.get_name() == "remote-candidates"; }

void ice_remote_candidates::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "remote-candidates", "ice remote candidates");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ');
    if (f.size() % 3 != 0)
        throw std::invalid_argument(cat(
            "invalid attribute value for ice candidate, expected a multiple of 3 space delimited fields, received ",
            f.size(), " (", value, ")"));
    components.clear();
    for (std::size_t i = 0; i < f.size(); i += 3) {
        ice_remote_candidate_component c;
        c.component = string_to_numeric(f[i], "ice remote candidate component id");
        c.address = std::move(f[i + 1]);
        c.port = string_to_numeric_u16(f[i + 2], "ice remote candidate port");
        components.push_back(std::move(c));
    }
}

attribute_line ice_remote_candidates::as_attribute_line() const
{
    std::string value;
    for (const auto& c : components) {
        if (!value.empty()) value += ' ';
        value += cat(c.component, " ", c.address, " ", c.port);
    }
    return attribute_line("remote-candidates", std::move(value));
}

// ---- caps

ice_caps::ice_caps(std::string u, std::string p, std::vector<ice_candidate> c, std::vector<ice_remote_candidates> r)
    : username(std::move(u)), password(std::move(p)), candidates(std::move(c)), remote_candidates(std::move(r))
{
}

bool ice_caps::try_username_attribute(const attribute_line& l)
{
    if (l.get_name() != "ice-ufrag") return false;
    username = l.get_attribute_value();
    return true;
}

bool ice_caps::try_password_attribute(const attribute_line& l)
{
    if (l.get_name() != "ice-pwd") return false;
    password = l.get_attribute_value();
    return true;
}

bool ice_caps::try_ice_candidate_attribute(const attribute_line& l)
{
    if (!ice_candidate::is_likely_valid(l)) return false;
    candidates.emplace_back(l);
    return true;
}

bool ice_caps::try_ice_remote_candidates_attribute(const attribute_line& l)
{
    if (!ice_remote_candidates::is_likely_valid(l)) return false;
    remote_candidates.emplace_back(l);
    return true;
}

void ice_caps::validate_init() const
{
    if (username.size() < 4)
        throw std::invalid_argument(cat("invalid ICE username, expected at least 4 bytes, found ", username.size()));
    if (password.size() < 22)
        throw std::invalid_argument(cat("invalid ICE password, expected at least 22 bytes, found ", password.size()));
    if (candidates.empty()) throw std::invalid_argument("no ICE candidate attribute found");
}

bool ice_caps::is_valid() const { return username.size() >= 4 && password.size() >= 22 && !candidates.empty(); }

std::vector<attribute_line> ice_caps::as_attribute_line() const
{
    std::vector<attribute_line> out;
    out.reserve(2 + candidates.size() + remote_candidates.size());
    out.emplace_back("ice-ufrag", username);
    out.emplace_back("ice-pwd", password);
    for (const auto& c : candidates) out.push_back(c.as_attribute_line());
    for (const auto& r : remote_candidates) out.push_back(r.as_attribute_line());
    return out;
}

}  // namespace sdp
