#include "string_util.h"

namespace sdp::detail {

namespace {

// Hand loops: string_view::find_first_of with a two-character set costs a memchr per character.
bool is_line_end(char c) { return c == '\r' || c == '\n'; }

std::size_t find_line_end(std::string_view text, std::size_t pos)
{
    for (; pos < text.size(); ++pos)
        if (is_line_end(text[pos])) return pos;
    return std::string_view::npos;
}

std::size_t skip_line_end(std::string_view text, std::size_t pos)
{
    while (pos < text.size() && is_line_end(text[pos])) ++pos;
    return pos;
}

}  // namespace

std::vector<std::string_view> split_lines_view(std::string_view text)
{
    std::vector<std::string_view> lines;
    std::size_t pos = 0;
    while (pos < text.size()) {
        auto end = find_line_end(text, pos);
        if (end == std::string_view::npos) {
            lines.push_back(text.substr(pos));
            break;
        }
        // The whole run of line-end characters, however mixed, belongs to this line.
        auto next = skip_line_end(text, end);
        lines.push_back(text.substr(pos, next - pos));
        pos = next;
    }
    return lines;
}

std::pair<std::string_view, std::string_view> split_type_value_view(std::string_view line)
{
    auto eq = line.find('=');
    if (eq == std::string_view::npos || eq == 0) return {};
    // Only the character before '=' is the type; anything in front of it is tolerated.
    auto type = line.substr(eq - 1, 1);
    auto end = find_line_end(line, eq);
    auto value = line.substr(eq + 1, end == std::string_view::npos ? std::string_view::npos : end - eq - 1);
    return {type, value};
}

}  // namespace sdp::detail
