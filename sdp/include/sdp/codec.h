// One payload type of an RTP section: its rtpmap and fmtp read into a typed value.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "sdp/audio_params.h"
#include "sdp/av1_param.h"
#include "sdp/codec_type.h"
#include "sdp/h264_param.h"
#include "sdp/optional_value.h"
#include "sdp/resilience_params.h"
#include "sdp/rtp_attributes.h"

namespace sdp {

class media_description;
class rid;

class codec {
public:
    // Only for the codecs that have no format parameters.
    codec(uint32_t payload_type, codec_type type);
    codec(uint32_t payload_type, const mpeg4_audio_codec_param& param);
    codec(uint32_t payload_type, const g729_codec_param& param);
    codec(uint32_t payload_type, const opus_codec_param& param);
    codec(uint32_t payload_type, const av1_codec_param& param);
    codec(uint32_t payload_type, const h264_codec_param& param);
    codec(uint32_t payload_type, const h264_svc_codec_param& param);
    codec(uint32_t payload_type, const sobe_rs_fec_codec_param& param);
    codec(uint32_t payload_type, const sobe_rtx_codec_param& param);
    codec(uint32_t payload_type, const telephone_event_codec_param& param);
    codec(uint32_t payload_type, const g7221_codec_param& param);
    explicit codec(const rtp_map& map);
    codec(const rtp_map& map, const format_parameters& parameters);

    void init_from_attributes(const rtp_map& map, const std::string& parameters);
    bool is_compatible_with(const codec& other) const;
    // AV1 only: writes the rid's restrictions onto the parameters; false for other codecs or when
    // the rid's payload types leave this codec out.
    bool apply(const rid& r);
    // Adds the payload type to the m line and the rtpmap (and fmtp) lines.
    void populate_media_description(media_description& description) const;

    uint32_t get_payload_type() const { return payload_type; }
    codec_type get_type() const { return type; }
    std::string get_name() const { return codec_type_to_rtp_map_string(type); }
    uint32_t get_clock_rate() const { return get_rtp_clock_rate_for_codec_type(type); }
    // The fmtp text of the codec's parameter class; empty for codecs without one.
    std::string get_parameter_string() const;
    bool operator==(const codec&) const = default;

    uint32_t payload_type = 0;
    codec_type type = codec_invalid;
    optional_value<mpeg4_audio_codec_param> mpeg4_param;
    optional_value<g729_codec_param> g729_param;
    optional_value<opus_codec_param> opus_param;
    optional_value<av1_codec_param> av1_param;
    optional_value<h264_codec_param> h264_param;
    optional_value<h264_svc_codec_param> h264_svc_param;
    optional_value<sobe_rs_fec_codec_param> rs_fec_param;
    optional_value<sobe_rtx_codec_param> rtx_param;
    optional_value<telephone_event_codec_param> telephone_event_param;
    optional_value<g7221_codec_param> g7221_param;
};

std::ostream& operator<<(std::ostream& os, const codec& c);

}  // namespace sdp
