// H.264 and H.264-SVC format parameters, with the level limits table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sdp {

// Values carry no bit pattern; h264_profile_bits() gives the profile-level-id bits.
enum h264_profile : unsigned {
    h264_profile_invalid = 0,
    h264_profile_constrained_baseline = 1,
    h264_profile_baseline = 2,
    h264_profile_main = 3,
    h264_profile_high = 4,
    h264_profile_constrained_high = 5,
};

enum h264_level : unsigned {
    h264_level_invalid = 0,
    h264_level_1 = 1,
    h264_level_1b = 2,
    h264_level_1_1 = 3,
    h264_level_1_2 = 4,
    h264_level_1_3 = 5,
    h264_level_2 = 6,
    h264_level_2_1 = 7,
    h264_level_2_2 = 8,
    h264_level_3 = 9,
    h264_level_3_1 = 10,
    h264_level_3_2 = 11,
    h264_level_4 = 12,
    h264_level_4_1 = 13,
    h264_level_4_2 = 14,
    h264_level_5 = 15,
    h264_level_5_1 = 16,
    h264_level_5_2 = 17,
};

enum h264_packetization_mode : unsigned {
    h264_packetization_mode_unset = 0,
    h264_packetization_mode_0 = 1,
    h264_packetization_mode_1 = 2,
    h264_packetization_mode_2 = 3,
};

struct h264_level_limits {
    uint32_t max_mbps, max_fs, max_fps, max_br, max_dpb;
};

// From the 24-bit profile-level-id value.
h264_profile get_h264_profile_from_string(uint32_t profile_level_id);
h264_level get_h264_level_from_string(uint32_t profile_level_id);
// Six lower-case hexadecimal digits, e.g. baseline level 3 is "42001e".
std::string get_h264_profile_level_id_string(h264_profile profile, h264_level level);
// Limits of a level; all zero for an invalid one.
h264_level_limits get_h264_level_limits(h264_level level);

class h264_codec_param {
public:
    h264_codec_param();
    explicit h264_codec_param(const std::string& parameters);
    h264_codec_param(h264_profile profile, h264_level level, h264_packetization_mode packetization_mode,
                     uint32_t max_mbps = 0, uint32_t max_fs = 0, uint32_t max_fps = 0, uint32_t max_br = 0,
                     uint32_t max_dpb = 0, bool level_asymmetry_allowed = false);
    virtual ~h264_codec_param() = default;

    // Baseline, level 1, mode 0 and the level's limits for whatever was not given.
    void default_optional_param();
    virtual std::string as_parameter_string() const;
    // Profiles must match (constrained and plain baseline interoperate) and so must the mode;
    // levels are not compared.
    bool is_compatible_with(const h264_codec_param& other) const;
    bool operator==(const h264_codec_param&) const = default;

    h264_profile profile = h264_profile_invalid;
    h264_level level = h264_level_invalid;
    h264_packetization_mode packetization_mode = h264_packetization_mode_unset;
    uint32_t max_mbps = 0;
    uint32_t max_fs = 0;
    uint32_t max_fps = 0;
    uint32_t max_br = 0;
    uint32_t max_dpb = 0;
    // Only the typed constructor sets it: the reader does not know the key, so a parse loses it.
    bool level_asymmetry_allowed = false;

protected:
    // Returns false for a key that is not an H.264 one.
    bool read_param(std::string_view name, std::string_view value);
};

enum h264_svc_transmission_mode : unsigned {
    h264_svc_mst_unset = 0,
    h264_svc_mst_i_c = 1,
    h264_svc_mst_ni_t = 2,
    h264_svc_mst_ni_c = 3,
    h264_svc_mst_ni_tc = 4,
    h264_svc_mst_sst = 5,
};

enum h264_svc_uc_config_mode : unsigned {
    h264_svc_uc_unset = 0,
    h264_svc_uc_0 = 1,
    h264_svc_uc_1 = 2,
    h264_svc_uc_2q = 3,
    h264_svc_uc_2s = 4,
    h264_svc_uc_3 = 5,
};

// Whether an answer's mode fits an offer's; 0 fits only 0.
bool is_h264_svc_transmission_mode_compatible(h264_svc_transmission_mode offer, h264_svc_transmission_mode answer);
bool is_h264_svc_uc_config_mode_compatible(h264_svc_uc_config_mode offer, h264_svc_uc_config_mode answer);

class h264_svc_codec_param : public h264_codec_param {
public:
    h264_svc_codec_param();
    explicit h264_svc_codec_param(const std::string& parameters);
    h264_svc_codec_param(const h264_codec_param& base, h264_svc_transmission_mode transmission_mode,
                         h264_svc_uc_config_mode uc_config_mode);

    std::string as_parameter_string() const override;
    bool is_compatible_with(const h264_svc_codec_param& other) const;
    bool operator==(const h264_svc_codec_param&) const = default;

    h264_svc_transmission_mode transmission_mode = h264_svc_mst_i_c;
    h264_svc_uc_config_mode uc_config_mode = h264_svc_uc_0;
};

}  // namespace sdp
