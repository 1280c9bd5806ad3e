// Internal helpers shared by the readers: zero-copy splitting and message building.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace sdp::detail {

// Calls fn(token) for every token; runs of the delimiter count as one, and with max != 0 the
// max-th token takes the whole rest of the text.
template <class Fn>
void for_each_token(std::string_view text, char delimiter, std::size_t max, Fn&& fn)
{
    std::size_t pos = 0, count = 0;
    while (true) {
        while (pos < text.size() && text[pos] == delimiter) ++pos;
        if (pos >= text.size()) return;
        if (max != 0 && count == max - 1) {
            fn(text.substr(pos));
            return;
        }
        auto next = text.find(delimiter, pos);
        if (next == std::string_view::npos) {
            fn(text.substr(pos));
            return;
        }
        fn(text.substr(pos, next - pos));
        ++count;
        pos = next;
    }
}

inline std::vector<std::string_view> split_view(std::string_view text, char delimiter, std::size_t max = 0)
{
    std::vector<std::string_view> out;
    for_each_token(text, delimiter, max, [&](std::string_view t) { out.push_back(t); });
    return out;
}

inline std::vector<std::string> split(std::string_view text, char delimiter, std::size_t max = 0)
{
    std::vector<std::string> out;
    out.reserve(max != 0 ? max : 4);  // most values have a handful of fields
    for_each_token(text, delimiter, max, [&](std::string_view t) { out.emplace_back(t); });
    return out;
}

std::vector<std::string_view> split_lines_view(std::string_view text);
std::pair<std::string_view, std::string_view> split_type_value_view(std::string_view line);

inline void append_all(std::string&) {}
template <class First, class... Rest>
void append_all(std::string& out, const First& first, const Rest&... rest)
{
    if constexpr (std::is_arithmetic_v<First> && !std::is_same_v<First, char>)
        out += std::to_string(first);
    else
        out += first;
    append_all(out, rest...);
}

// Concatenates strings, views, characters and numbers.
template <class... Parts>
std::string cat(const Parts&... parts)
{
    std::string out;
    append_all(out, parts...);
    return out;
}

template <class Range>
std::string join(const Range& items, std::string_view delimiter)
{
    std::string out;
    bool first = true;
    for (const auto& item : items) {
        if (!first) out += delimiter;
        out += item;
        first = false;
    }
    return out;
}

}  // namespace sdp::detail
