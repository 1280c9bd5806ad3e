// The codecs the library knows, with their rtpmap names and RTP clock rates.
#pragma once

#include <cstdint>
#include <string>

namespace sdp {

enum codec_type : unsigned {
    codec_invalid = 0,
    codec_mp4a_latm = 1,
    codec_g722 = 2,
    codec_g729 = 3,
    codec_pcma = 4,
    codec_pcmu = 5,
    codec_opus = 6,
    codec_ilbc = 7,
    codec_vp8 = 8,
    codec_h264 = 9,
    codec_h264_svc = 10,
    codec_x_ulpfecuc = 11,
    codec_sobe_rtx = 12,
    codec_telephone_event = 13,
    codec_cn = 14,
    codec_av1 = 15,
    codec_g7221 = 16,
};
constexpr unsigned codec_type_max = 16;

// "unknown-codec" above 16; matching of names is case-sensitive.
std::string codec_type_to_rtp_map_string(codec_type type);
codec_type rtp_map_string_to_codec_type(const std::string& name);
// 0 outside 1 to 16. MP4A-LATM deliberately runs at 90000 here.
uint32_t get_rtp_clock_rate_for_codec_type(codec_type type);
// Static payload types: 0 PCMU, 8 PCMA, 9 G722, 18 G729; anything else 0.
codec_type standard_rtp_payload_type_to_codec_type(uint32_t payload_type);
bool codec_type_requires_parameters(codec_type type);

}  // namespace sdp
