#include "sdp/group_attributes.h"

#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

mline_group::mline_group(std::string s, std::vector<std::string> m) : semantics(std::move(s)), mids(std::move(m)) {}

mline_group::mline_group(const attribute_line& l) { init_from_line(l); }

bool mline_group::is_likely_valid(const attribute_line& l) { return l.get_name() == "group"; }

void mline_group::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "group", "group");
    const auto& value = l.get_attribute_value();
    auto parts = detail::split_view(value, ' ', 2);
    if (parts.empty())
        throw std::invalid_argument(
            cat("invalid attribute value for group, expected >= 1 space delimited fields, received 0 (", value, ")"));
    semantics.assign(parts[0]);
    mids = parts.size() > 1 ? detail::split(parts[1], ' ') : std::vector<std::string>{};
}

attribute_line mline_group::as_attribute_line() const
{
    std::string value = semantics;
    for (const auto& m : mids) value += cat(" ", m);
    return attribute_line("group", std::move(value));
}

tcap::tcap(uint16_t n, std::vector<std::string> p) : number(n), protocols(std::move(p)) {}

tcap::tcap(const attribute_line& l) { init_from_line(l); }

bool tcap::is_likely_valid(const attribute_line& l) { return l.get_name() == "tcap"; }

void tcap::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "tcap", "tcap");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ');
    if (f.size() < 2)
        throw std::invalid_argument(
            cat("invalid attribute value for tcap, expected at least two fields, received ", f.size(), " (", value, ")"));
    number = string_to_numeric_u16(f[0], "transport protocol capability number");
    protocols.assign(std::make_move_iterator(f.begin() + 1), std::make_move_iterator(f.end()));
}

attribute_line tcap::as_attribute_line() const
{
    std::string value = std::to_string(number);
    for (const auto& p : protocols) value += cat(" ", p);
    return attribute_line("tcap", std::move(value));
}

}  // namespace sdp
