#include "sdp/rid.h"

#include <algorithm>
#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

rid::rid(std::string i, rid_direction d, std::vector<uint32_t> pts, std::map<std::string, optional_value<uint32_t>> r)
    : direction(d), id(std::move(i)), payload_types(std::move(pts)), restrictions(std::move(r))
{
}

rid::rid(const attribute_line& l) { init_from_line(l); }

bool rid::is_likely_valid(const attribute_line& l) { return l.get_name() == "rid"; }

void rid::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "rid", "rid");
    init_from_string(l.get_attribute_value());
}

void rid::init_from_string(const std::string& text)
{
    auto refuse = [&]() { return std::invalid_argument(cat("invalid rid attribute '", text, "'")); };
    auto fields = detail::split_view(text, ' ');
    if (fields.size() < 2 || fields.size() > 3) throw refuse();
    if (fields[1] == "recv") direction = rid_recv;
    else if (fields[1] == "send") direction = rid_send;
    else throw refuse();
    id.assign(fields[0]);
    payload_types.clear();
    restrictions.clear();
    if (fields.size() < 3) return;
    for (auto item : detail::split_view(fields[2], ';')) {
        auto kv = detail::split(item, '=');
        if (kv.size() != 2) throw refuse();
        if (kv[0] == "pt") {
            for (const auto& pt : detail::split(kv[1], ',')) payload_types.push_back(string_to_numeric(pt, "rid payload type"));
        } else {
            restrictions[kv[0]] = string_to_numeric(kv[1], "rid restriction value");
        }
    }
}

std::string rid::as_parameter_string() const
{
    if (id.empty()) throw std::invalid_argument("rid: rid-id is not set");
    std::string out = cat("a=rid:", id, direction == rid_send ? " send" : " recv");
    char separator = ' ';
    if (!payload_types.empty()) {
        out += " pt=";
        for (std::size_t i = 0; i < payload_types.size(); ++i) out += cat(i ? "," : "", payload_types[i]);
        separator = ';';
    }
    for (const auto& [key, value] : restrictions) {
        if (!value.is_set()) continue;
        out += cat(separator, key, "=", value.get_data());
        separator = ';';
    }
    return out;
}

attribute_line rid::as_attribute_line() const
{
    // "a=rid:" is 6 bytes in front of the value.
    return attribute_line("rid", as_parameter_string().substr(6));
}

bool rid::more_restrictive_than(const rid& other) const
{
    for (const auto& [key, value] : other.restrictions) {
        if (!value.is_set()) continue;
        auto it = restrictions.find(key);
        if (it == restrictions.end() || !it->second.is_set()) continue;
        if (it->second.get_data() > value.get_data()) return false;
    }
    return true;
}

bool rid::merge(const rid& other)
{
    for (const auto& [key, value] : other.restrictions)
        if (value.is_set() && restrictions.find(key) == restrictions.end()) return false;
    for (auto& [key, value] : restrictions) {
        auto it = other.restrictions.find(key);
        if (it == other.restrictions.end() || !it->second.is_set()) continue;
        if (!value.is_set()) value = it->second;
        else value.set_data(std::min(value.get_data(), it->second.get_data()));
    }
    return true;
}

void rid::remove_undefined()
{
    std::erase_if(restrictions, [](const auto& kv) { return !kv.second.is_set(); });
}

}  // namespace sdp
