#include "sdp/codec_type.h"

#include <string_view>

namespace sdp {

namespace {

struct codec_row {
    std::string_view name;
    uint32_t clock;
    bool needs_parameters;
};

constexpr codec_row kCodecs[codec_type_max + 1] = {
    {"invalid-codec", 0, false}, {"MP4A-LATM", 90000, true},  {"G722", 8000, false},
    {"G729", 8000, true},        {"PCMA", 8000, false},       {"PCMU", 8000, false},
    {"opus", 48000, true},       {"iLBC", 8000, false},       {"VP8", 90000, false},
    {"H264", 90000, true},       {"H264-SVC", 90000, true},   {"x-ulpfecuc", 8000, true},
    {"sobe-rtx", 90000, true},   {"telephone-event", 8000, true}, {"CN", 8000, false},
    {"AV1", 90000, true},        {"G7221", 16000, true},
};

}  // namespace

std::string codec_type_to_rtp_map_string(codec_type type)
{
    return type <= codec_type_max ? std::string(kCodecs[type].name) : "unknown-codec";
}

codec_type rtp_map_string_to_codec_type(const std::string& name)
{
    for (unsigned i = 1; i <= codec_type_max; ++i)
        if (kCodecs[i].name == name) return static_cast<codec_type>(i);
    return codec_invalid;
}

uint32_t get_rtp_clock_rate_for_codec_type(codec_type type)
{
    return (type >= 1 && type <= codec_type_max) ? kCodecs[type].clock : 0;
}

codec_type standard_rtp_payload_type_to_codec_type(uint32_t payload_type)
{
    switch (payload_type) {
    case 0: return codec_pcmu;
    case 8: return codec_pcma;
    case 9: return codec_g722;
    case 18: return codec_g729;
    default: return codec_invalid;
    }
}

bool codec_type_requires_parameters(codec_type type)
{
    return type >= 1 && type <= codec_type_max && kCodecs[type].needs_parameters;
}

}  // namespace sdp
