// Media resilience attributes: versions, retransmission, rate adaptation, hybrid FEC and
// retransmission, and per-payload picture resilience, gathered into sobe_caps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"
#include "sdp/optional_value.h"

namespace sdp {

// a=vorta-sobe:<version>[,<version>]...
class sobe_version {
public:
    explicit sobe_version(std::vector<std::string> versions);
    explicit sobe_version(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sobe_version&) const = default;

    std::vector<std::string> versions;
};

// a=vorta-sobe-rtx:<version>[,<version>]...
class sobe_rtp_rexmit {
public:
    explicit sobe_rtp_rexmit(std::vector<std::string> versions);
    explicit sobe_rtp_rexmit(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sobe_rtp_rexmit&) const = default;

    std::vector<std::string> versions;
};

// a=vorta-sobe-rate
class sobe_rate_adaptation {
public:
    sobe_rate_adaptation() = default;
    explicit sobe_rate_adaptation(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sobe_rate_adaptation&) const = default;
};

// a=vorta-sobe-hybrid-resilience:<versions> [data-flow=<n>]; data-flow is a 3-bit set.
class sobe_hybrid_resilience {
public:
    explicit sobe_hybrid_resilience(std::vector<std::string> versions, uint32_t data_flow = 0);
    explicit sobe_hybrid_resilience(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    void support_dataflow_rtx_media() { data_flow |= 1; }
    void support_dataflow_rtx_all() { data_flow |= 2; }
    void support_dataflow_fec_rtx() { data_flow |= 4; }
    bool is_dataflow_rtx_media_supported() const { return data_flow & 1; }
    bool is_dataflow_rtx_all_supported() const { return data_flow & 2; }
    bool is_dataflow_fec_rtx_supported() const { return data_flow & 4; }
    bool operator==(const sobe_hybrid_resilience&) const = default;

    std::vector<std::string> versions;
    uint32_t data_flow = 0;
};

// a=vorta-sobe-psre:<payload type> [ltrf=<n>;gdr]
class sobe_psre {
public:
    explicit sobe_psre(uint32_t payload_type, optional_value<uint32_t> ltrf = {}, bool gdr = false);
    explicit sobe_psre(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sobe_psre&) const = default;

    uint32_t payload_type = 0;
    optional_value<uint32_t> ltrf;
    bool gdr = false;
};

class sobe_caps {
public:
    sobe_caps() = default;
    // Takes the four session-level resilience attributes; false for any other line.
    bool add_attribute(const attribute_line& l);
    // Hybrid resilience needs RTX, and a version is required.
    void validate() const;
    // What validate() checks, without the exception.
    bool is_valid() const { return (hybrid_versions.empty() || !rtx_versions.empty()) && !versions.empty(); }
    // Version line, rate line if set, RTX line, hybrid line.
    std::vector<attribute_line> as_attribute_line() const;
    bool operator==(const sobe_caps&) const = default;

    std::vector<std::string> versions;
    bool rate_adaptation = false;
    std::vector<std::string> rtx_versions;
    std::vector<std::string> hybrid_versions;
    uint32_t hybrid_data_flow = 0;
};

}  // namespace sdp
