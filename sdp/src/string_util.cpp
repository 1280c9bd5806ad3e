#include "string_util.h"

namespace sdp::detail {

std::vector<std::string_view> split_lines_view(std::string_view text)
{
    std::vector<std::string_view> lines;
    std::size_t pos = 0;
    while (pos < text.size()) {
        auto end = text.find_first_of("\r\n", pos);
        if (end == std::string_view::npos) {
            lines.push_back(text.substr(pos));
            break;
        }
        // The whole run of line-end characters, however mixed, belongs to this line.
        auto next = text.find_first_not_of("\r\n", end);
        if (next == std::string_view::npos) next = text.size();
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
    auto end = line.find_first_of("\r\n", eq);
    auto value = line.substr(eq + 1, end == std::string_view::npos ? std::string_view::npos : end - eq - 1);
    return {type, value};
}

}  // namespace sdp::detail
