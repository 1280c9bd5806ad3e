// Multistream video attributes: source announcements, simulcast, totals, and the SCR feedback
// versions, gathered into cmulti_caps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"
#include "sdp/optional_value.h"

namespace sdp {

// <name>:<id>, id non-zero
class sprop_source_policy {
public:
    sprop_source_policy(std::string name, uint32_t id);
    explicit sprop_source_policy(const std::string& text);
    std::string as_string() const;
    bool operator==(const sprop_source_policy&) const = default;

    std::string name;
    uint32_t id = 0;
};

// <id>[,<id>]...
class sprop_source_simul {
public:
    explicit sprop_source_simul(std::vector<uint32_t> ids);
    explicit sprop_source_simul(const std::string& text);
    std::string as_string() const;
    bool operator==(const sprop_source_simul&) const = default;

    std::vector<uint32_t> ids;
};

// a=sprop-source:<source id> [csi=<n>;count=<n>;policies=<list>;simul=<list>;lrotation=<n>;mavatar=<n>]
class sprop_source {
public:
    explicit sprop_source(uint32_t source_id);
    explicit sprop_source(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sprop_source&) const = default;

    uint32_t source_id = 0;
    optional_value<uint32_t> csi;
    optional_value<uint32_t> count;
    std::vector<sprop_source_policy> policies;
    std::vector<sprop_source_simul> simuls;
    optional_value<uint32_t> lrotation;
    optional_value<uint32_t> mavatar;
};

// a=sprop-simul:<source id> <simulcast id> <payload or *> [<param>;...]
class sprop_simul {
public:
    sprop_simul(uint32_t source_id, uint32_t simulcast_id, std::string payload_type,
                std::vector<std::string> parameters = {});
    explicit sprop_simul(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sprop_simul&) const = default;

    uint32_t source_id = 0;
    uint32_t simulcast_id = 0;
    std::string payload_type;
    std::vector<std::string> parameters;
};

// a=sprop-total:max-channels=<n>;max-bitrate=<n>;max-pps=<n>
class sprop_total {
public:
    sprop_total() = default;
    explicit sprop_total(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const sprop_total&) const = default;

    optional_value<uint32_t> max_channels;
    optional_value<uint32_t> max_bitrate;
    optional_value<uint32_t> max_pps;
};

// Bits of cmulti_caps::scr_versions, one per "ccm vorta-scr..." feedback value.
enum cmulti_scr_version : unsigned {
    cmulti_scr_v1 = 1,
    cmulti_scr_v2 = 2,
    cmulti_scr_v3 = 4,
    cmulti_scr_v4 = 8,
};

class cmulti_caps {
public:
    cmulti_caps() = default;
    // Throws "no vorta multistream RTCP SCR version" when no bit is set.
    cmulti_caps(std::vector<sprop_source> sources, std::vector<sprop_simul> simuls, unsigned scr_versions,
                optional_value<sprop_total> total = {});

    // Takes sprop-source, sprop-simul and sprop-total; false for any other line.
    bool add_attribute(const attribute_line& l);
    // Takes a=rtcp-fb:* ccm vorta-scr[-vN]; other payloads and other feedback are not ours.
    bool track_cmulti_rtcp_feedback(const attribute_line& l);
    static unsigned scr_version_bit(const std::string& payload_type, const std::string& feedback);

    // Sources, simuls, total, then one rtcp-fb line per bit, lowest first.
    std::vector<attribute_line> as_attribute_line() const;
    bool operator==(const cmulti_caps&) const = default;

    std::vector<sprop_source> sources;
    std::vector<sprop_simul> simuls;
    unsigned scr_versions = 0;
    optional_value<sprop_total> total;
};

}  // namespace sdp
