// Format parameters of the system's own Reed-Solomon FEC and retransmission payloads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/optional_value.h"

namespace sdp {

class sobe_rs_fec_codec_param {
public:
    sobe_rs_fec_codec_param() = default;
    explicit sobe_rs_fec_codec_param(const std::string& parameters);
    void default_optional_param() {}
    std::string as_parameter_string() const;
    // Same m and order; this side must allow at least the other's non-sequential span.
    bool is_compatible_with(const sobe_rs_fec_codec_param& other) const;
    bool operator==(const sobe_rs_fec_codec_param&) const = default;

    uint32_t max_esel = 1400;  // bytes per encoding symbol
    uint32_t max_n = 16;       // source plus repair packets per block
    uint32_t m = 8;            // bits per symbol
    uint32_t multi_ssrc = 0;
    std::string fec_order = "SRTP_FEC";
    uint32_t non_seq = 0;
    std::vector<uint32_t> feedback;
};

class sobe_rtx_codec_param {
public:
    // RTX_ORDER is mandatory: "'RTX_ORDER' not found in '<string>'" otherwise.
    explicit sobe_rtx_codec_param(const std::string& parameters);
    sobe_rtx_codec_param(std::string rtx_order, optional_value<uint32_t> rtx_time);
    void default_optional_param() {}
    std::string as_parameter_string() const;
    bool is_compatible_with(const sobe_rtx_codec_param& other) const { return rtx_order == other.rtx_order; }
    bool operator==(const sobe_rtx_codec_param&) const = default;

    optional_value<uint32_t> rtx_time;  // ms
    std::string rtx_order;
};

}  // namespace sdp
