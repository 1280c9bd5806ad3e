// AV1 format parameters with the level defaults of the AV1 bitstream standard (Annex A.3).
#pragma once

#include <cstdint>
#include <string>

namespace sdp {

using av1_profile_t = int;
using av1_level_idx_t = int;
using av1_tier_t = int;

class av1_codec_param {
public:
    av1_codec_param();
    explicit av1_codec_param(const std::string& parameters);
    av1_codec_param(av1_profile_t profile, av1_level_idx_t level_idx, av1_tier_t tier);

    // Unset profile, level and tier become 0; limits left at 0 come from the level's row. A
    // level with no row fails with the map's out-of-range error.
    void default_optional_param();
    std::string as_parameter_string() const;
    // This side's profile must not exceed the other's; nothing else is compared.
    bool is_compatible_with(const av1_codec_param& other) const;

    uint32_t get_MaxPicSize() const;
    uint32_t get_MaxDecodeRate() const;
    uint32_t get_MaxHSize() const { return max_h_size; }
    uint32_t get_MaxVSize() const { return max_v_size; }
    uint32_t get_MaxKbps() const { return max_bitrate / 1000; }
    bool operator==(const av1_codec_param&) const = default;

    av1_profile_t profile = -1;
    av1_level_idx_t level_idx = -1;
    av1_tier_t tier = -1;
    uint32_t max_h_size = 0;
    uint32_t max_v_size = 0;
    uint32_t max_bitrate = 0;  // bit/s
    uint32_t max_decode_rate = 0;
    uint32_t max_pic_size = 0;
};

}  // namespace sdp
