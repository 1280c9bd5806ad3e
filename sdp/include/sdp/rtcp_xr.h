// a=rtcp-xr: RTCP extended report formats, kept sorted by name so that they print in name order.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"

namespace sdp {

class rtcp_xr {
public:
    rtcp_xr() = default;
    explicit rtcp_xr(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    static bool is_valid_format(const std::string& name);
    // "sender" or "all" before the first ':'.
    static bool rtt_mode_is_validate(const std::string& value);
    // Keeps the valid flags of "loss,dup,jitt,TTL,HL", sorted in byte order.
    static std::string format_stat_summary_flags(const std::string& flags);

    void init_from_line(const attribute_line& l);
    // Returns false and drops the format when name or value is not acceptable.
    bool add_format(const std::string& name, const std::string& value);
    attribute_line as_attribute_line() const;

    const std::map<std::string, std::string>& get_formats() const { return formats; }
    std::string get_rtt_mode() const;
    std::vector<std::string> get_summary_flags() const;
    // Maximum report size of a loss, duplicate, receipt-time or rcvr-rtt format, if given.
    bool get_max_size(const std::string& format, uint32_t& value) const;
    bool operator==(const rtcp_xr&) const = default;

    std::map<std::string, std::string> formats;
};

}  // namespace sdp
