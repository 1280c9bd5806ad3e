#include "sdp/h264_param.h"

#include <cstdio>
#include <stdexcept>

#include "param_util.h"

namespace sdp {

using detail::cat;

namespace {

// Profile bits of profile-level-id (profile_idc and constraint flags), by h264_profile value.
constexpr uint32_t kProfileBits[] = {0, 0x424000, 0x420000, 0x4D0000, 0x640000, 0x640C00};

struct level_row {
    uint32_t bits;  // level_idc, with constraint_set3 (0x1000) marking level 1b
    h264_level_limits limits;
};

// Limits from the H.264 level table (Table A-1): macroblocks/s, frame size in macroblocks,
// frames/s times 100, bit rate in kbit/s, decoded picture buffer in 1024-byte units.
constexpr level_row kLevels[] = {
    {0, {0, 0, 0, 0, 0}},
    {10, {1485, 99, 3000, 64, 148}},
    {0x1000 | 11, {1485, 99, 3000, 128, 148}},
    {11, {3000, 396, 3000, 192, 337}},
    {12, {6000, 396, 3000, 384, 891}},
    {13, {11880, 396, 3000, 768, 891}},
    {20, {11880, 396, 3000, 2000, 891}},
    {21, {19800, 792, 3000, 4000, 1782}},
    {22, {20250, 1620, 3000, 4000, 3037}},
    {30, {40500, 1620, 3000, 10000, 3037}},
    {31, {108000, 3600, 3000, 14000, 6750}},
    {32, {216000, 5120, 3000, 20000, 7680}},
    {40, {245760, 8192, 3000, 20000, 12288}},
    {41, {245760, 8192, 3000, 50000, 12288}},
    {42, {522240, 8704, 3000, 50000, 13056}},
    {50, {589824, 22080, 3000, 135000, 41400}},
    {51, {983040, 36864, 3000, 240000, 69120}},
    {52, {2073600, 36864, 3000, 240000, 69120}},
};

bool parse_hex24(std::string_view text, uint32_t& out)
{
    if (text.empty() || text.size() > 6) return false;
    out = 0;
    for (char c : text) {
        int d = (c >= '0' && c <= '9') ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : (c >= 'A' && c <= 'F') ? c - 'A' + 10 : -1;
        if (d < 0) return false;
        out = out * 16 + static_cast<uint32_t>(d);
    }
    return true;
}

}  // namespace

h264_profile get_h264_profile_from_string(uint32_t v)
{
    switch ((v >> 16) & 0xFF) {
    case 0x42: return (v & 0x4000) ? h264_profile_constrained_baseline : h264_profile_baseline;
    case 0x4D: return h264_profile_main;
    case 0x64: return ((v & 0xC00) == 0xC00) ? h264_profile_constrained_high : h264_profile_high;
    default: return h264_profile_invalid;
    }
}

h264_level get_h264_level_from_string(uint32_t v)
{
    uint32_t idc = v & 0xFF;
    if (idc == 11 && (v & 0x1000)) return h264_level_1b;
    for (unsigned i = 1; i < std::size(kLevels); ++i)
        if (kLevels[i].bits == idc) return static_cast<h264_level>(i);
    return h264_level_invalid;
}

std::string get_h264_profile_level_id_string(h264_profile profile, h264_level level)
{
    uint32_t bits = (profile < std::size(kProfileBits) ? kProfileBits[profile] : 0) |
                    (level < std::size(kLevels) ? kLevels[level].bits : 0);
    char buf[16];
    std::snprintf(buf, sizeof buf, "%06x", bits);
    return buf;
}

h264_level_limits get_h264_level_limits(h264_level level)
{
    return level < std::size(kLevels) ? kLevels[level].limits : kLevels[0].limits;
}

h264_codec_param::h264_codec_param() { default_optional_param(); }

h264_codec_param::h264_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) { read_param(n, v); });
    default_optional_param();
}

h264_codec_param::h264_codec_param(h264_profile p, h264_level l, h264_packetization_mode m, uint32_t mbps, uint32_t fs,
                                   uint32_t fps, uint32_t br, uint32_t dpb, bool asym)
    : profile(p), level(l), packetization_mode(m), max_mbps(mbps), max_fs(fs), max_fps(fps), max_br(br), max_dpb(dpb),
      level_asymmetry_allowed(asym)
{
    default_optional_param();
}

bool h264_codec_param::read_param(std::string_view name, std::string_view value)
{
    if (name == "profile-level-id") {
        uint32_t v = 0;
        bool ok = parse_hex24(value, v);
        profile = ok ? get_h264_profile_from_string(v) : h264_profile_invalid;
        level = ok ? get_h264_level_from_string(v) : h264_level_invalid;
        if (profile == h264_profile_invalid || level == h264_level_invalid)
            throw std::invalid_argument(cat("invalid h264 profile level id '", value, "'"));
    } else if (name == "packetization-mode") {
        if (value == "0") packetization_mode = h264_packetization_mode_0;
        else if (value == "1") packetization_mode = h264_packetization_mode_1;
        else if (value == "2") packetization_mode = h264_packetization_mode_2;
        else throw std::invalid_argument(cat("invalid h264 packetization mode '", value, "'"));
    } else if (name == "max-mbps") {
        max_mbps = string_to_numeric(std::string(value), "h264 max mbps");
    } else if (name == "max-fs") {
        max_fs = string_to_numeric(std::string(value), "h264 max fs");
    } else if (name == "max-fps") {
        max_fps = string_to_numeric(std::string(value), "h264 max fps");
    } else if (name == "max-br") {
        max_br = string_to_numeric(std::string(value), "h264 max br");
    } else if (name == "max-dpb") {
        max_dpb = string_to_numeric(std::string(value), "h264 max dpb");
    } else {
        return false;
    }
    return true;
}

void h264_codec_param::default_optional_param()
{
    if (profile == h264_profile_invalid) profile = h264_profile_baseline;
    if (level == h264_level_invalid) level = h264_level_1;
    if (packetization_mode == h264_packetization_mode_unset) packetization_mode = h264_packetization_mode_0;
    auto limits = get_h264_level_limits(level);
    if (max_mbps == 0) max_mbps = limits.max_mbps;
    if (max_fs == 0) max_fs = limits.max_fs;
    if (max_fps == 0) max_fps = limits.max_fps;
    if (max_br == 0) max_br = limits.max_br;
    if (max_dpb == 0) max_dpb = limits.max_dpb;
}

std::string h264_codec_param::as_parameter_string() const
{
    std::string out = cat("profile-level-id=", get_h264_profile_level_id_string(profile, level),
                          ";packetization-mode=", packetization_mode == 0 ? 0u : packetization_mode - 1,
                          ";max-mbps=", max_mbps, ";max-fs=", max_fs, ";max-fps=", max_fps, ";max-br=", max_br,
                          ";max-dpb=", max_dpb);
    if (level_asymmetry_allowed) out += ";level-asymmetry-allowed=1";
    return out;
}

bool h264_codec_param::is_compatible_with(const h264_codec_param& other) const
{
    auto is_baseline = [](h264_profile p) {
        return p == h264_profile_constrained_baseline || p == h264_profile_baseline;
    };
    bool profiles = is_baseline(profile) ? is_baseline(other.profile) : profile == other.profile;
    return profiles && packetization_mode == other.packetization_mode;
}

// ---- SVC

namespace {

constexpr const char* kMstNames[] = {"", "I-C", "NI-T", "NI-C", "NI-TC", "SST"};
constexpr const char* kUcNames[] = {"", "0", "1", "2q", "2s", "3"};

}  // namespace

bool is_h264_svc_transmission_mode_compatible(h264_svc_transmission_mode offer, h264_svc_transmission_mode answer)
{
    switch (offer) {
    case h264_svc_mst_unset: return answer == h264_svc_mst_unset;
    case h264_svc_mst_i_c: return answer == h264_svc_mst_i_c;
    case h264_svc_mst_ni_t: return answer == h264_svc_mst_ni_t || answer == h264_svc_mst_ni_tc;
    case h264_svc_mst_ni_c: return answer == h264_svc_mst_ni_c || answer == h264_svc_mst_ni_tc;
    case h264_svc_mst_ni_tc:
        return answer == h264_svc_mst_ni_t || answer == h264_svc_mst_ni_c || answer == h264_svc_mst_ni_tc;
    case h264_svc_mst_sst: return answer == h264_svc_mst_sst;
    }
    return false;
}

bool is_h264_svc_uc_config_mode_compatible(h264_svc_uc_config_mode offer, h264_svc_uc_config_mode answer)
{
    switch (offer) {
    case h264_svc_uc_unset: return answer == h264_svc_uc_unset;
    case h264_svc_uc_0: return answer == h264_svc_uc_0;
    case h264_svc_uc_1: return answer == h264_svc_uc_0 || answer == h264_svc_uc_1;
    case h264_svc_uc_2q: return answer >= h264_svc_uc_0 && answer <= h264_svc_uc_2q;
    case h264_svc_uc_2s:
        return answer == h264_svc_uc_0 || answer == h264_svc_uc_1 || answer == h264_svc_uc_2s;
    case h264_svc_uc_3: return answer >= h264_svc_uc_0 && answer <= h264_svc_uc_3;
    }
    return false;
}

h264_svc_codec_param::h264_svc_codec_param() = default;

h264_svc_codec_param::h264_svc_codec_param(const std::string& parameters)
{
    profile = h264_profile_invalid;
    level = h264_level_invalid;
    packetization_mode = h264_packetization_mode_unset;
    max_mbps = max_fs = max_fps = max_br = max_dpb = 0;
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (read_param(n, v)) return;
        if (n == "mst-mode") {
            transmission_mode = h264_svc_mst_unset;
            for (unsigned i = 1; i < std::size(kMstNames); ++i)
                if (v == kMstNames[i]) transmission_mode = static_cast<h264_svc_transmission_mode>(i);
            if (transmission_mode == h264_svc_mst_unset)
                throw std::invalid_argument(cat("invalid h264-svc mst mode '", v, "'"));
        } else if (n == "uc-mode") {
            uc_config_mode = h264_svc_uc_unset;
            for (unsigned i = 1; i < std::size(kUcNames); ++i)
                if (v == kUcNames[i]) uc_config_mode = static_cast<h264_svc_uc_config_mode>(i);
            if (uc_config_mode == h264_svc_uc_unset)
                throw std::invalid_argument(cat("invalid h264-svc uc config mode '", v, "'"));
        }
    });
    default_optional_param();
}

h264_svc_codec_param::h264_svc_codec_param(const h264_codec_param& base, h264_svc_transmission_mode t,
                                           h264_svc_uc_config_mode u)
    : h264_codec_param(base), transmission_mode(t), uc_config_mode(u)
{
}

std::string h264_svc_codec_param::as_parameter_string() const
{
    std::string out = h264_codec_param::as_parameter_string();
    if (transmission_mode != h264_svc_mst_unset && transmission_mode < std::size(kMstNames))
        out += cat(";mst-mode=", kMstNames[transmission_mode]);
    if (uc_config_mode != h264_svc_uc_unset && uc_config_mode < std::size(kUcNames))
        out += cat(";uc-mode=", kUcNames[uc_config_mode]);
    return out;
}

bool h264_svc_codec_param::is_compatible_with(const h264_svc_codec_param& other) const
{
    return h264_codec_param::is_compatible_with(other) &&
           is_h264_svc_transmission_mode_compatible(transmission_mode, other.transmission_mode);
}

}  // namespace sdp
