#include "sdp/lines.h"

#include <ostream>
#include <stdexcept>

#include "string_util.h"

namespace sdp {

std::string line::as_sdp() const
{
    std::string out;
    as_sdp_helper(out);
    return out;
}

void line::as_sdp_helper(std::string& out) const
{
    out += line_type_to_char(get_type());
    out += '=';
    out += get_value();
    out += "\r\n";
}

std::ostream& operator<<(std::ostream& os, const line& l) { return os << l.as_sdp(); }

namespace detail {

std::string_view checked_line_value(std::string_view raw, line_type expected)
{
    auto [type, value] = split_type_value_view(raw);
    auto found = string_to_line_type(type);
    if (found != expected)
        throw std::invalid_argument(cat("found invalid line type ", line_type_name(found), " expected ",
                                        line_type_name(expected), "\n", raw));
    // SDP is text: a NUL could only be read, never printed back as the same value.
    if (value.find('\0') != std::string_view::npos)
        throw std::invalid_argument(cat("NUL character in ", line_type_name(expected), " line"));
    return value;
}

void check_multi_count(std::size_t count, line_type type, std::size_t min, std::size_t max)
{
    if (count < min || count > max)
        throw std::invalid_argument(
            cat("invalid number of values while constructing line type ", line_type_name(type), " object"));
}

std::vector<std::string> parse_multi_values(std::string_view raw, line_type type, std::size_t min,
                                            std::size_t max, char delimiter, bool split_all)
{
    auto value = checked_line_value(raw, type);
    auto values = split(value, delimiter, split_all ? 0 : max);
    if (values.size() < min || values.size() > max)
        throw std::invalid_argument(cat("invalid number of values found (", values.size(),
                                        ") in parsed line expected minimum of ", min, " and maximum of ", max,
                                        " with delimiter '", delimiter, "'\n", raw));
    return values;
}

void append_multi_values(std::string& out, const std::vector<std::string>& values, char delimiter)
{
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i].empty()) continue;
        if (i != 0) out += delimiter;
        out += values[i];
    }
}

std::string join_multi_values(const std::vector<std::string>& values, char delimiter)
{
    std::string out;
    append_multi_values(out, values, delimiter);
    return out;
}

std::string checked_string_value(std::string_view raw, line_type expected)
{
    auto value = checked_line_value(raw, expected);
    if (value.empty())
        throw std::invalid_argument(cat("invalid line found, expected data after the '='\n", raw));
    return std::string(value);
}

}  // namespace detail

attribute_line::attribute_line(std::string name) : base(std::vector<std::string>{std::move(name)}) {}

attribute_line::attribute_line(std::string name, std::string value)
    : base(value.empty() ? std::vector<std::string>{std::move(name)}
                         : std::vector<std::string>{std::move(name), std::move(value)})
{
}

version_line version_line::create(std::string_view raw)
{
    auto value = detail::checked_line_value(raw, line_type::version);
    return version_line(string_to_numeric(std::string(value), "version number"));
}

std::string version_line::get_value() const { return std::to_string(version_); }

bandwidth_line bandwidth_line::create(std::string_view raw)
{
    auto value = detail::checked_line_value(raw, line_type::bandwidth);
    auto parts = detail::split(value, ':');
    if (parts.size() != 2)
        throw std::invalid_argument(detail::cat(
            "found invalid bandwidth line value, expected 2 ':' delimited values found ", parts.size(), "\n", raw));
    return bandwidth_line(std::move(parts[0]), string_to_numeric(parts[1], "bandwidth value"));
}

std::string bandwidth_line::get_value() const { return detail::cat(type_, ":", value_); }

media_description_line::media_description_line(std::string media_type, std::string port, std::string transport,
                                               std::vector<std::string> formats)
    : media_type_(std::move(media_type)),
      port_(std::move(port)),
      transport_(std::move(transport)),
      formats_(std::move(formats))
{
}

media_description_line media_description_line::create(std::string_view raw)
{
    auto value = detail::checked_line_value(raw, line_type::media_description);
    auto parts = detail::split(value, ' ');
    if (parts.size() < 3)
        throw std::invalid_argument(detail::cat(
            "found invalid media description value, expected >= 3 ' ' delimited values found ", parts.size(), "\n",
            raw));
    std::vector<std::string> formats;
    if (parts.size() == 3)
        formats.emplace_back("*");  // a section without formats still needs one to print
    else
        formats.assign(std::make_move_iterator(parts.begin() + 3), std::make_move_iterator(parts.end()));
    return media_description_line(std::move(parts[0]), std::move(parts[1]), std::move(parts[2]),
                                  std::move(formats));
}

std::string media_description_line::get_value() const
{
    std::string out = detail::cat(media_type_, " ", port_, " ", transport_);
    for (const auto& f : formats_) {
        out += ' ';
        out += f;
    }
    return out;
}

void media_description_line::as_sdp_helper(std::string& out) const
{
    out += "m=";
    for (const auto* part : {&media_type_, &port_}) {
        out += *part;
        out += ' ';
    }
    out += transport_;
    for (const auto& f : formats_) {
        out += ' ';
        out += f;
    }
    out += "\r\n";
}

}  // namespace sdp
