#include "sdp/av1_param.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>

#include "param_util.h"

namespace sdp {

using detail::cat;

namespace {

struct av1_level_row {
    uint32_t max_pic_size, max_h_size, max_v_size;
    uint64_t max_decode_rate;
    uint32_t main_kbps, high_kbps;
};

// Levels 2.0 to 6.3 as seq_level_idx; the gaps are levels the AV1 bitstream standard leaves undefined.
const std::map<av1_level_idx_t, av1_level_row>& level_table()
{
    static const std::map<av1_level_idx_t, av1_level_row> table = {
        {0, {147456, 2048, 1152, 5529600, 1500, 0}},
        {1, {278784, 2816, 1584, 10454400, 3000, 0}},
        {4, {665856, 4352, 2448, 24969600, 6000, 0}},
        {5, {1065024, 5504, 3096, 39938400, 10000, 0}},
        {8, {2359296, 6144, 3456, 77856768, 12000, 30000}},
        {9, {2359296, 6144, 3456, 155713536, 20000, 50000}},
        {12, {8912896, 8192, 4352, 273715200, 30000, 100000}},
        {13, {8912896, 8192, 4352, 547430400, 40000, 160000}},
        {14, {8912896, 8192, 4352, 1094860800, 60000, 240000}},
        {15, {8912896, 8192, 4352, 1176502272, 60000, 240000}},
        {16, {35651584, 16384, 8704, 1176502272, 60000, 240000}},
        {17, {35651584, 16384, 8704, 2189721600, 100000, 480000}},
        {18, {35651584, 16384, 8704, 4379443200ULL, 160000, 800000}},
        {19, {35651584, 16384, 8704, 4706009088ULL, 160000, 800000}},
    };
    return table;
}

bool in_range(int v, int lo, int hi) { return v >= lo && v <= hi; }

// Signed decimal; anything else reads as a value outside every valid range.
int read_signed(std::string_view text)
{
    std::string s(text);
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(s.c_str(), &end, 10);
    if (s.empty() || *end != '\0' || errno == ERANGE || v < -1000000 || v > 1000000) return -1000;
    return static_cast<int>(v);
}

uint32_t clamp_u32(uint64_t v) { return v > 0xFFFFFFFFULL ? 0xFFFFFFFFU : static_cast<uint32_t>(v); }

}  // namespace

av1_codec_param::av1_codec_param() { default_optional_param(); }

av1_codec_param::av1_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view name, std::string_view value) {
        if (name == "profile") {
            profile = read_signed(value);
            if (!in_range(profile, 0, 2)) throw std::invalid_argument(cat("invalid av1 profile '", value, "'"));
        } else if (name == "level_idx") {
            level_idx = read_signed(value);
            if (!in_range(level_idx, 0, 23)) throw std::invalid_argument(cat("invalid av1 level '", value, "'"));
        } else if (name == "tier") {
            tier = read_signed(value);
            if (!in_range(tier, 0, 1)) throw std::invalid_argument(cat("invalid av1 tier '", value, "'"));
        }
    });
    default_optional_param();
}

av1_codec_param::av1_codec_param(av1_profile_t p, av1_level_idx_t l, av1_tier_t t) : profile(p), level_idx(l), tier(t)
{
    default_optional_param();
}

void av1_codec_param::default_optional_param()
{
    if (profile < 0) profile = 0;
    if (level_idx < 0) level_idx = 0;
    if (tier < 0) tier = 0;
    const auto& row = level_table().at(level_idx);  // throws std::out_of_range("map::at") on a gap
    if (max_h_size == 0) max_h_size = row.max_h_size;
    if (max_v_size == 0) max_v_size = row.max_v_size;
    if (max_bitrate == 0) max_bitrate = (tier == 1 ? row.high_kbps : row.main_kbps) * 1000;
    if (max_decode_rate == 0) max_decode_rate = clamp_u32(row.max_decode_rate);
    if (max_pic_size == 0) max_pic_size = row.max_pic_size;
}

std::string av1_codec_param::as_parameter_string() const
{
    std::string out = cat("profile=", profile, ";level_idx=", level_idx);
    if (tier == 1) out += ";tier=1";
    return out;
}

bool av1_codec_param::is_compatible_with(const av1_codec_param& other) const { return profile <= other.profile; }

uint32_t av1_codec_param::get_MaxPicSize() const { return level_table().at(level_idx).max_pic_size; }

uint32_t av1_codec_param::get_MaxDecodeRate() const { return clamp_u32(level_table().at(level_idx).max_decode_rate); }

}  // namespace sdp
