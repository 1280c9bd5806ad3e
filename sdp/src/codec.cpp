#include "sdp/codec.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "sdp/description.h"
#include "sdp/rid.h"
#include "string_util.h"

namespace sdp {

using detail::cat;

codec::codec(uint32_t pt, codec_type t) : payload_type(pt), type(t)
{
    if (t == codec_invalid || t > codec_type_max)
        throw std::invalid_argument("attempt to construct a codec with invalid codec type");
    if (codec_type_requires_parameters(t))
        throw std::invalid_argument(cat("attempt to construct a codec (", codec_type_to_rtp_map_string(t),
                                        ") that requires codec specific parameters"));
}

codec::codec(uint32_t pt, const mpeg4_audio_codec_param& p) : payload_type(pt), type(codec_mp4a_latm), mpeg4_param(p) {}
codec::codec(uint32_t pt, const g729_codec_param& p) : payload_type(pt), type(codec_g729), g729_param(p) {}
codec::codec(uint32_t pt, const opus_codec_param& p) : payload_type(pt), type(codec_opus), opus_param(p) {}
codec::codec(uint32_t pt, const av1_codec_param& p) : payload_type(pt), type(codec_av1), av1_param(p) {}
codec::codec(uint32_t pt, const h264_codec_param& p) : payload_type(pt), type(codec_h264), h264_param(p) {}
codec::codec(uint32_t pt, const h264_svc_codec_param& p) : payload_type(pt), type(codec_h264_svc), h264_svc_param(p) {}
codec::codec(uint32_t pt, const sobe_rs_fec_codec_param& p) : payload_type(pt), type(codec_x_ulpfecuc), rs_fec_param(p) {}
codec::codec(uint32_t pt, const sobe_rtx_codec_param& p) : payload_type(pt), type(codec_sobe_rtx), rtx_param(p) {}
codec::codec(uint32_t pt, const telephone_event_codec_param& p)
    : payload_type(pt), type(codec_telephone_event), telephone_event_param(p)
{
}
codec::codec(uint32_t pt, const g7221_codec_param& p) : payload_type(pt), type(codec_g7221), g7221_param(p) {}

codec::codec(const rtp_map& map) { init_from_attributes(map, std::string()); }

codec::codec(const rtp_map& map, const format_parameters& parameters)
{
    init_from_attributes(map, parameters.get_parameters());
}

void codec::init_from_attributes(const rtp_map& map, const std::string& parameters)
{
    payload_type = map.get_payload_type_numeric();
    type = rtp_map_string_to_codec_type(map.get_encoding_name());
    if (type == codec_invalid)
        throw std::invalid_argument(
            cat("invalid codec name found in rtp-map attribute ", map.as_attribute_line().as_sdp()));
    // x-ulpfecuc is announced with the media clock of its stream, so its rate is not checked.
    uint32_t rate = get_rtp_clock_rate_for_codec_type(type);
    if (type != codec_x_ulpfecuc && map.get_clock_rate() != rate)
        throw std::invalid_argument(cat("invalid RTP clock rate found for codec ", map.get_encoding_name(),
                                        " expecting ", rate, " found ", map.get_clock_rate()));
    switch (type) {
    case codec_mp4a_latm: mpeg4_param = mpeg4_audio_codec_param(parameters); break;
    case codec_g729: g729_param = g729_codec_param(parameters); break;
    case codec_opus: opus_param = opus_codec_param(parameters); break;
    case codec_h264: h264_param = h264_codec_param(parameters); break;
    case codec_h264_svc: h264_svc_param = h264_svc_codec_param(parameters); break;
    case codec_x_ulpfecuc: rs_fec_param = sobe_rs_fec_codec_param(parameters); break;
    case codec_sobe_rtx: rtx_param = sobe_rtx_codec_param(parameters); break;
    case codec_telephone_event: telephone_event_param = telephone_event_codec_param(parameters); break;
    case codec_av1: av1_param = av1_codec_param(parameters); break;
    case codec_g7221: g7221_param = g7221_codec_param(parameters); break;
    default: break;
    }
}

namespace {
template <class P>
bool both_compatible(const optional_value<P>& a, const optional_value<P>& b)
{
    return a.is_set() && b.is_set() && a.get_data().is_compatible_with(b.get_data());
}
}  // namespace

bool codec::is_compatible_with(const codec& other) const
{
    if (type != other.type) return false;
    switch (type) {
    case codec_mp4a_latm: return both_compatible(mpeg4_param, other.mpeg4_param);
    case codec_g729: return both_compatible(g729_param, other.g729_param);
    case codec_opus: return both_compatible(opus_param, other.opus_param);
    case codec_h264: return both_compatible(h264_param, other.h264_param);
    case codec_h264_svc: return both_compatible(h264_svc_param, other.h264_svc_param);
    case codec_x_ulpfecuc: return both_compatible(rs_fec_param, other.rs_fec_param);
    case codec_sobe_rtx: return both_compatible(rtx_param, other.rtx_param);
    case codec_telephone_event: return both_compatible(telephone_event_param, other.telephone_event_param);
    case codec_av1: return both_compatible(av1_param, other.av1_param);
    case codec_g7221: return both_compatible(g7221_param, other.g7221_param);
    default: return true;
    }
}

bool codec::apply(const rid& r)
{
    if (type != codec_av1 || !av1_param.is_set()) return false;
    if (!r.payload_types.empty() &&
        std::find(r.payload_types.begin(), r.payload_types.end(), payload_type) == r.payload_types.end())
        return false;
    auto& p = av1_param.get_data();
    for (const auto& [key, value] : r.restrictions) {
        if (!value.is_set()) continue;
        auto v = value.get_data();
        if (key == "max-width") p.max_h_size = v;
        else if (key == "max-height") p.max_v_size = v;
        else if (key == "max-br") p.max_bitrate = v;
        else if (key == "max-fs") p.max_pic_size = v;
        else if (key == "max-pps") p.max_decode_rate = v;
    }
    return true;
}

std::string codec::get_parameter_string() const
{
    switch (type) {
    case codec_mp4a_latm: return mpeg4_param.is_set() ? mpeg4_param.get_data().as_parameter_string() : "";
    case codec_g729: return g729_param.is_set() ? g729_param.get_data().as_parameter_string() : "";
    case codec_opus: return opus_param.is_set() ? opus_param.get_data().as_parameter_string() : "";
    case codec_h264: return h264_param.is_set() ? h264_param.get_data().as_parameter_string() : "";
    case codec_h264_svc: return h264_svc_param.is_set() ? h264_svc_param.get_data().as_parameter_string() : "";
    case codec_x_ulpfecuc: return rs_fec_param.is_set() ? rs_fec_param.get_data().as_parameter_string() : "";
    case codec_sobe_rtx: return rtx_param.is_set() ? rtx_param.get_data().as_parameter_string() : "";
    case codec_telephone_event:
        return telephone_event_param.is_set() ? telephone_event_param.get_data().as_parameter_string() : "";
    case codec_av1: return av1_param.is_set() ? av1_param.get_data().as_parameter_string() : "";
    case codec_g7221: return g7221_param.is_set() ? g7221_param.get_data().as_parameter_string() : "";
    default: return "";
    }
}

void codec::populate_media_description(media_description& description) const
{
    std::string pt = std::to_string(payload_type);
    auto m = description.get_media_line();
    m.add_format(pt);
    description.update_line(m);
    std::string parameters = get_parameter_string();
    std::vector<std::string> encoding_parameters;
    if (type == codec_opus) encoding_parameters.emplace_back("2");  // opus is always announced with 2 channels
    description.add_line(
        rtp_map(pt, codec_type_to_rtp_map_string(type), get_rtp_clock_rate_for_codec_type(type), encoding_parameters)
            .as_attribute_line(),
        false);
    if (!parameters.empty()) description.add_line(format_parameters(pt, parameters).as_attribute_line(), false);
}

std::ostream& operator<<(std::ostream& os, const codec& c)
{
    os << "payload type = " << c.payload_type << " codec = " << c.get_name();
    static constexpr const char* kLabels[] = {"",
                                              " mpeg4 param = ",
                                              "",
                                              " g729 param = ",
                                              "",
                                              "",
                                              " opus param = ",
                                              "",
                                              "",
                                              " h264 param = ",
                                              " h264 svc param = ",
                                              " rs fec param = ",
                                              " rtx param = ",
                                              " telephone event param = ",
                                              "",
                                              " av1 param = ",
                                              " g7221 param = "};
    if (c.type <= codec_type_max && codec_type_requires_parameters(c.type))
        os << kLabels[c.type] << c.get_parameter_string();
    return os;
}

}  // namespace sdp
