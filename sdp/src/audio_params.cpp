#include "sdp/audio_params.h"

#include <stdexcept>

#include "param_util.h"

namespace sdp {

using detail::cat;

namespace {
uint32_t number(std::string_view value, const char* label) { return string_to_numeric(std::string(value), label); }
}  // namespace

// ---- opus

opus_codec_param::opus_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "maxplaybackrate") max_playback_rate = number(v, "opus max playback rate");
        else if (n == "maxaveragebitrate") max_average_bitrate = number(v, "opus max average bitrate");
        else if (n == "stereo") stereo = number(v, "opus stereo") != 0;
    });
    default_optional_param();
}

opus_codec_param::opus_codec_param(uint32_t rate, uint32_t bitrate, bool s)
    : max_playback_rate(rate), max_average_bitrate(bitrate), stereo(s)
{
    default_optional_param();
}

void opus_codec_param::default_optional_param()
{
    if (max_playback_rate == 0) max_playback_rate = 48000;
    if (max_average_bitrate == 0) max_average_bitrate = 64000;
}

std::string opus_codec_param::as_parameter_string() const
{
    return cat("maxplaybackrate=", max_playback_rate, ";maxaveragebitrate=", max_average_bitrate,
               ";stereo=", stereo ? 1 : 0);
}

// ---- G.729

g729_codec_param::g729_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "annexb") annexb = v != "no";
    });
}

std::string g729_codec_param::as_parameter_string() const { return annexb ? "annexb=yes" : "annexb=no"; }

// ---- G.722.1

g7221_codec_param::g7221_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "bitrate") bitrate = number(v, "g7221 bitrate");
    });
    default_optional_param();
}

void g7221_codec_param::default_optional_param()
{
    if (bitrate == 0) bitrate = 24000;
}

std::string g7221_codec_param::as_parameter_string() const { return cat("bitrate=", bitrate); }

// ---- MPEG-4 audio

namespace {

struct profile_levels {
    mpeg4_audio_profile profile;
    std::initializer_list<mpeg4_audio_level> levels;
};

// Rows of the profile-level-id table, in index order (48 rows).
const std::vector<std::pair<mpeg4_audio_profile, mpeg4_audio_level>>& mpeg4_rows()
{
    static const auto rows = [] {
        const profile_levels groups[] = {
            {0, {0}}, {1, {1, 2, 3, 4}}, {2, {1, 2, 3, 4}}, {3, {1, 2}}, {4, {1, 2, 3}},
            {5, {1, 2, 3, 4, 5, 6, 7, 8}}, {6, {1, 2, 3, 4, 5, 6, 7, 8}}, {7, {1, 2, 3, 4}},
            {8, {1, 2, 3, 4, 5, 6}}, {9, {1, 2, 4, 5}}, {10, {2, 3, 4, 5}},
        };
        std::vector<std::pair<mpeg4_audio_profile, mpeg4_audio_level>> out;
        for (const auto& g : groups)
            for (auto l : g.levels) out.emplace_back(g.profile, l);
        return out;
    }();
    return rows;
}

bool is_known_object(uint32_t v)
{
    return v == mpeg4_object_aac_lc || v == mpeg4_object_sbr || v == mpeg4_object_aac_ld || v == mpeg4_object_ps ||
           v == mpeg4_object_aac_eld;
}

}  // namespace

int mpeg4_audio_profile_level_index(mpeg4_audio_profile profile, mpeg4_audio_level level)
{
    const auto& rows = mpeg4_rows();
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rows[i].first == profile && rows[i].second == level) return static_cast<int>(i);
    return -1;
}

mpeg4_audio_codec_param::mpeg4_audio_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "bitrate") {
            bitrate = number(v, "mpeg4 audio codec bitrate");
        } else if (n == "profile-level-id") {
            uint32_t index = 0;
            if (!detail::try_read_u32(v, index) || index >= mpeg4_rows().size())
                throw std::invalid_argument(cat("invalid mpeg4 audio profile level id '", v, "'"));
            profile = mpeg4_rows()[index].first;
            level = mpeg4_rows()[index].second;
        } else if (n == "object") {
            uint32_t o = 0;
            if (!detail::try_read_u32(v, o) || !is_known_object(o))
                throw std::invalid_argument(cat("invalid mpeg4 audio object type '", v, "'"));
            object = static_cast<mpeg4_audio_object_type>(o);
        }
    });
}

mpeg4_audio_codec_param::mpeg4_audio_codec_param(uint32_t b, mpeg4_audio_profile p, mpeg4_audio_level l,
                                                 mpeg4_audio_object_type o)
    : bitrate(b), profile(p), level(l), object(o)
{
}

std::string mpeg4_audio_codec_param::as_parameter_string() const
{
    std::vector<std::string> items;
    if (bitrate != 0) items.push_back(cat("bitrate=", bitrate));
    int index = mpeg4_audio_profile_level_index(profile, level);
    // A pair outside the table has no identifier to print.
    if (index >= 0) items.push_back(cat("profile-level-id=", index));
    if (object != mpeg4_object_unset) items.push_back(cat("object=", static_cast<unsigned>(object)));
    return detail::join(items, ";");
}

bool mpeg4_audio_codec_param::is_compatible_with(const mpeg4_audio_codec_param& other) const
{
    return bitrate == other.bitrate && profile == other.profile && level == other.level &&
           (object == mpeg4_object_unset || object == other.object);
}

// ---- telephone-event

telephone_event_codec_param::telephone_event_codec_param(const std::string& parameters)
    : events(detail::split(parameters, ','))
{
}

std::string telephone_event_codec_param::create_telephone_event_range(unsigned first, const unsigned* last)
{
    return last ? cat(first, "-", *last) : std::to_string(first);
}

std::string telephone_event_codec_param::as_parameter_string() const { return detail::join(events, ","); }

}  // namespace sdp
