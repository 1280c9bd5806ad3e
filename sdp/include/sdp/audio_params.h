// Format parameters of the audio codecs and of telephone events.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sdp {

class opus_codec_param {
public:
    opus_codec_param() = default;
    explicit opus_codec_param(const std::string& parameters);
    opus_codec_param(uint32_t max_playback_rate, uint32_t max_average_bitrate, bool stereo);
    void default_optional_param();
    std::string as_parameter_string() const;
    bool is_compatible_with(const opus_codec_param&) const { return true; }
    bool operator==(const opus_codec_param&) const = default;

    uint32_t max_playback_rate = 48000;
    uint32_t max_average_bitrate = 64000;
    bool stereo = false;
};

class g729_codec_param {
public:
    g729_codec_param() = default;
    explicit g729_codec_param(const std::string& parameters);
    explicit g729_codec_param(bool annexb) : annexb(annexb) {}
    void default_optional_param() {}
    std::string as_parameter_string() const;
    bool is_compatible_with(const g729_codec_param&) const { return true; }
    bool operator==(const g729_codec_param&) const = default;

    bool annexb = true;
};

class g7221_codec_param {
public:
    g7221_codec_param() = default;
    explicit g7221_codec_param(const std::string& parameters);
    explicit g7221_codec_param(uint32_t bitrate) : bitrate(bitrate) {}
    void default_optional_param();
    std::string as_parameter_string() const;
    bool is_compatible_with(const g7221_codec_param& other) const { return bitrate == other.bitrate; }
    bool operator==(const g7221_codec_param&) const = default;

    uint32_t bitrate = 24000;
};

// MPEG-4 audio profiles and levels as listed by ISO/IEC 14496-3; 0 is "none".
using mpeg4_audio_profile = unsigned;
using mpeg4_audio_level = unsigned;
// Audio object types this library accepts (0 = not given).
enum mpeg4_audio_object_type : unsigned {
    mpeg4_object_unset = 0,
    mpeg4_object_aac_lc = 2,
    mpeg4_object_sbr = 5,
    mpeg4_object_aac_ld = 23,
    mpeg4_object_ps = 29,
    mpeg4_object_aac_eld = 39,
};

// Row index of the 48-row profile and level table, or -1.
int mpeg4_audio_profile_level_index(mpeg4_audio_profile profile, mpeg4_audio_level level);

class mpeg4_audio_codec_param {
public:
    mpeg4_audio_codec_param() = default;
    explicit mpeg4_audio_codec_param(const std::string& parameters);
    mpeg4_audio_codec_param(uint32_t bitrate, mpeg4_audio_profile profile, mpeg4_audio_level level,
                            mpeg4_audio_object_type object = mpeg4_object_unset);
    void default_optional_param() {}
    std::string as_parameter_string() const;
    bool is_compatible_with(const mpeg4_audio_codec_param& other) const;
    bool operator==(const mpeg4_audio_codec_param&) const = default;

    uint32_t bitrate = 0;
    mpeg4_audio_profile profile = 0;
    mpeg4_audio_level level = 0;
    mpeg4_audio_object_type object = mpeg4_object_unset;
};

class telephone_event_codec_param {
public:
    telephone_event_codec_param() = default;
    explicit telephone_event_codec_param(const std::string& parameters);
    explicit telephone_event_codec_param(std::vector<std::string> events) : events(std::move(events)) {}
    // "first-last", or "first" alone when last is null.
    static std::string create_telephone_event_range(unsigned first, const unsigned* last);
    void default_optional_param() {}
    std::string as_parameter_string() const;
    bool is_compatible_with(const telephone_event_codec_param&) const { return true; }
    bool operator==(const telephone_event_codec_param&) const = default;

    std::vector<std::string> events;
};

}  // namespace sdp
