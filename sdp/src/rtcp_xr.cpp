#include "sdp/rtcp_xr.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "attribute_util.h"

namespace sdp {

namespace {
constexpr std::array<std::string_view, 7> kFormats = {"pkt-loss-rle", "pkt-dup-rle", "pkt-rcpt-times", "rcvr-rtt",
                                                      "stat-summary", "voip-metrics", "format-ext"};
constexpr std::array<std::string_view, 5> kSummaryFlags = {"loss", "dup", "jitt", "TTL", "HL"};
}  // namespace

rtcp_xr::rtcp_xr(const attribute_line& l) { init_from_line(l); }

bool rtcp_xr::is_likely_valid(const attribute_line& l) { return l.get_name() == "rtcp-xr"; }

bool rtcp_xr::is_valid_format(const std::string& name)
{
    return std::find(kFormats.begin(), kFormats.end(), name) != kFormats.end();
}

bool rtcp_xr::rtt_mode_is_validate(const std::string& value)
{
    auto mode = std::string_view(value).substr(0, value.find(':'));
    return mode == "sender" || mode == "all";
}

std::string rtcp_xr::format_stat_summary_flags(const std::string& flags)
{
    std::vector<std::string> kept;
    for (auto f : detail::split_view(flags, ',')) {
        if (std::find(kSummaryFlags.begin(), kSummaryFlags.end(), f) != kSummaryFlags.end()) kept.emplace_back(f);
    }
    std::sort(kept.begin(), kept.end());
    return detail::join(kept, ",");
}

void rtcp_xr::init_from_line(const attribute_line& l)
{
    // The wrong-name text is shared with rtcp-fb on purpose.
    detail::check_attribute_name(l, "rtcp-xr", "rtcp feedback");
    formats.clear();
    for (auto token : detail::split_view(l.get_attribute_value(), ' ')) {
        auto eq = token.find('=');
        std::string name(token.substr(0, eq));
        std::string value(eq == std::string_view::npos ? std::string_view{} : token.substr(eq + 1));
        if (!is_valid_format(name)) continue;  // unknown formats are ignored, not refused
        add_format(name, value);
    }
}

bool rtcp_xr::add_format(const std::string& name, const std::string& value)
{
    if (!is_valid_format(name)) return false;
    if (name == "voip-metrics" && !value.empty()) return false;
    if (name == "format-ext" && value.empty()) return false;
    if (name == "rcvr-rtt" && !rtt_mode_is_validate(value)) return false;
    if (name == "stat-summary") {
        if (value.empty()) return false;
        auto flags = format_stat_summary_flags(value);
        if (flags.empty()) return false;
        formats[name] = flags;
        return true;
    }
    formats[name] = value;
    return true;
}

attribute_line rtcp_xr::as_attribute_line() const
{
    std::string value;
    for (const auto& [name, v] : formats) {
        if (!value.empty()) value += ' ';
        value += name;
        if (!v.empty()) value += detail::cat("=", v);
    }
    return attribute_line("rtcp-xr", std::move(value));
}

std::string rtcp_xr::get_rtt_mode() const
{
    auto it = formats.find("rcvr-rtt");
    if (it == formats.end()) return {};
    return it->second.substr(0, it->second.find(':'));
}

std::vector<std::string> rtcp_xr::get_summary_flags() const
{
    auto it = formats.find("stat-summary");
    return it == formats.end() ? std::vector<std::string>{} : detail::split(it->second, ',');
}

bool rtcp_xr::get_max_size(const std::string& format, uint32_t& value) const
{
    auto it = formats.find(format);
    if (it == formats.end()) return false;
    std::string_view v = it->second;
    if (format == "rcvr-rtt") {
        auto colon = v.find(':');
        if (colon == std::string_view::npos) return false;
        return detail::try_read_u32(v.substr(colon + 1), value);
    }
    if (format == "pkt-loss-rle" || format == "pkt-dup-rle" || format == "pkt-rcpt-times")
        return detail::try_read_u32(v, value);
    return false;
}

}  // namespace sdp
