#include "sdp/resilience_params.h"

#include <stdexcept>

#include "param_util.h"

namespace sdp {

using detail::cat;

namespace {
uint32_t number(std::string_view value, const char* label) { return string_to_numeric(std::string(value), label); }
}  // namespace

sobe_rs_fec_codec_param::sobe_rs_fec_codec_param(const std::string& parameters)
{
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "max_esel") max_esel = number(v, "sobe rs fec max esel");
        else if (n == "max_n") max_n = number(v, "sobe rs fec max n");
        else if (n == "m") m = number(v, "sobe rs fec m");
        else if (n == "multi_ssrc") multi_ssrc = number(v, "sobe rs fec multi ssrc");
        else if (n == "FEC_ORDER") fec_order.assign(v);
        else if (n == "non_seq") non_seq = number(v, "sobe rs fec non seq");
        else if (n == "feedback") {
            feedback.clear();
            for (const auto& f : detail::split(v, ',')) feedback.push_back(number(f, "sobe rs fec feedback"));
        }
    });
}

std::string sobe_rs_fec_codec_param::as_parameter_string() const
{
    std::string out = cat("max_esel=", max_esel, ";max_n=", max_n, ";m=", m, ";multi_ssrc=", multi_ssrc,
                          ";FEC_ORDER=", fec_order, ";non_seq=", non_seq);
    if (!feedback.empty()) {
        out += ";feedback=";
        for (std::size_t i = 0; i < feedback.size(); ++i) out += cat(i ? "," : "", feedback[i]);
    }
    return out;
}

bool sobe_rs_fec_codec_param::is_compatible_with(const sobe_rs_fec_codec_param& other) const
{
    return m == other.m && fec_order == other.fec_order && non_seq >= other.non_seq;
}

sobe_rtx_codec_param::sobe_rtx_codec_param(const std::string& parameters)
{
    bool has_order = false;
    detail::for_each_param(parameters, [&](std::string_view n, std::string_view v) {
        if (n == "RTX_ORDER") {
            rtx_order.assign(v);
            has_order = true;
        } else if (n == "rtx-time") {
            rtx_time = number(v, "sobe rtx time");
        }
    });
    if (!has_order) throw std::invalid_argument(cat("'RTX_ORDER' not found in '", parameters, "'"));
}

sobe_rtx_codec_param::sobe_rtx_codec_param(std::string order, optional_value<uint32_t> time)
    : rtx_time(std::move(time)), rtx_order(std::move(order))
{
}

std::string sobe_rtx_codec_param::as_parameter_string() const
{
    std::string out = cat("RTX_ORDER=", rtx_order);
    if (rtx_time.is_set()) out += cat(";rtx-time=", rtx_time.get_data());
    return out;
}

}  // namespace sdp
