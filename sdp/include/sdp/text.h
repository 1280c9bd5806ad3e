// Lowest layer of the SDP library: line types, line policies, splitting and number reading.
// Every failure is a std::invalid_argument with an English text.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sdp {

// The numbers matter: line classes are templates over them and the policy table is indexed by them.
enum class line_type : unsigned {
    invalid = 0,
    version = 1,
    origin = 2,
    session_name = 3,
    session_information = 4,
    uri = 5,
    email_address = 6,
    phone_number = 7,
    connection = 8,
    bandwidth = 9,
    time_zone = 10,
    encryption_key = 11,
    attribute = 12,
    timing = 13,
    repeat_time = 14,
    media_description = 15,
};
constexpr unsigned line_type_count = 16;

enum line_policy : unsigned {
    policy_not_allowed = 0,
    policy_required_single = 1,
    policy_optional_single = 2,
    policy_required_multiple = 3,
    policy_optional_multiple = 4,
};

char line_type_to_char(line_type type);
line_type char_to_line_type(char c);
line_type string_to_line_type(std::string_view text);
// "VERSION", "ORIGIN"...; empty for a value above 15.
std::string_view line_type_name(line_type type);
std::ostream& operator<<(std::ostream& os, line_type type);

// Each line keeps its line end (any run of CR and LF behind it).
std::vector<std::string> split_sdp_lines(std::string_view text);
std::pair<std::string, std::string> split_sdp_line_type_value(std::string_view line);

std::vector<std::string> tokenize(std::string_view text, char delimiter);
// max 0 means no limit; otherwise the last token keeps the rest of the text, delimiters included.
std::vector<std::string> tokenize_max(std::string_view text, char delimiter, std::size_t max);

uint32_t string_to_numeric(const std::string& text, std::string_view label);
uint16_t string_to_numeric_u16(const std::string& text, std::string_view label);
double string_to_double(const std::string& text, std::string_view label);

}  // namespace sdp
