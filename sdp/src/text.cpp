#include "sdp/text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <stdexcept>

#include "string_util.h"

namespace sdp {

namespace {

constexpr std::string_view kLetters = "vosiuepcbzkatrm";

constexpr std::string_view kNames[line_type_count] = {
    "INVALID",    "VERSION",    "ORIGIN",         "SESSION_NAME", "SESSION_INFORMATION", "URI",
    "EMAIL_ADDRESS", "PHONE_NUMBER", "CONNECTION", "BANDWIDTH",  "TIME_ZONE",
    "ENCRYPTION_KEY", "ATTRIBUTE", "TIMING",       "REPEAT_TIME", "MEDIA_DESCRIPTION",
};

}  // namespace

char line_type_to_char(line_type type)
{
    auto v = static_cast<unsigned>(type);
    return (v >= 1 && v <= 15) ? kLetters[v - 1] : '?';
}

line_type char_to_line_type(char c)
{
    if (c < 'a' || c > 'z') return line_type::invalid;
    auto pos = kLetters.find(c);
    return pos == std::string_view::npos ? line_type::invalid : static_cast<line_type>(pos + 1);
}

line_type string_to_line_type(std::string_view text)
{
    return text.empty() ? line_type::invalid : char_to_line_type(text.front());
}

std::string_view line_type_name(line_type type)
{
    auto v = static_cast<unsigned>(type);
    return v < line_type_count ? kNames[v] : std::string_view{};
}

std::ostream& operator<<(std::ostream& os, line_type type) { return os << line_type_name(type); }

std::vector<std::string> split_sdp_lines(std::string_view text)
{
    std::vector<std::string> lines;
    for (auto v : detail::split_lines_view(text)) lines.emplace_back(v);
    return lines;
}

std::pair<std::string, std::string> split_sdp_line_type_value(std::string_view line)
{
    auto [type, value] = detail::split_type_value_view(line);
    return {std::string(type), std::string(value)};
}

std::vector<std::string> tokenize(std::string_view text, char delimiter)
{
    return tokenize_max(text, delimiter, 0);
}

std::vector<std::string> tokenize_max(std::string_view text, char delimiter, std::size_t max)
{
    std::vector<std::string> out;
    detail::for_each_token(text, delimiter, max, [&](std::string_view t) { out.emplace_back(t); });
    return out;
}

uint32_t string_to_numeric(const std::string& text, std::string_view label)
{
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    unsigned long v = std::strtoul(begin, &end, 10);
    // A NUL inside the text is a character left over, not an end.
    if (end == begin || end != begin + text.size())
        throw std::invalid_argument(detail::cat("invalid non-numeric value found in ", label, " (", text, ")"));
    if (errno == ERANGE || v > 0xFFFFFFFFUL)
        throw std::invalid_argument(detail::cat("out of range numeric value found in ", label, " (", text, ")"));
    return static_cast<uint32_t>(v);
}

uint16_t string_to_numeric_u16(const std::string& text, std::string_view label)
{
    uint32_t v = string_to_numeric(text, label);
    if (v >= 0x10000)
        throw std::invalid_argument(detail::cat("out of range numeric value found in ", label, " (", text, ")"));
    return static_cast<uint16_t>(v);
}

double string_to_double(const std::string& text, std::string_view label)
{
    const char* begin = text.c_str();
    char* end = nullptr;
    double v = std::strtod(begin, &end);
    if (end != begin + text.size()) {
        std::printf("[%s] invalid number\n", "string_to_double");
        throw std::invalid_argument(detail::cat("invalid non-numeric value found in ", label, " (", text, ")"));
    }
    return v;
}

}  // namespace sdp
