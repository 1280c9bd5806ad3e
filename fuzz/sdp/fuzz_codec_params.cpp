// Format parameter strings through every codec parameter class: print, read again, same value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "sdp/sdp.h"

namespace {

template <class P>
void round_trip(const std::string& parameters)
{
    std::optional<P> value;
    try {
        value.emplace(parameters);
    } catch (const std::invalid_argument&) {
        return;
    } catch (const std::out_of_range&) {
        return;  // AV1 level without a row of defaults
    }
    std::string printed = value->as_parameter_string();
    try {
        P again(printed);
        if (again.as_parameter_string() != printed) {
            std::fprintf(stderr, "print changed: %s\n", printed.c_str());
            std::abort();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "printed form refused: %s -> %s\n", printed.c_str(), e.what());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    std::string parameters(reinterpret_cast<const char*>(data + 1), size - 1);
    switch (data[0] % 10) {
    case 0: round_trip<sdp::h264_codec_param>(parameters); break;
    case 1: round_trip<sdp::h264_svc_codec_param>(parameters); break;
    case 2: round_trip<sdp::av1_codec_param>(parameters); break;
    case 3: round_trip<sdp::opus_codec_param>(parameters); break;
    case 4: round_trip<sdp::g729_codec_param>(parameters); break;
    case 5: round_trip<sdp::g7221_codec_param>(parameters); break;
    case 6: round_trip<sdp::mpeg4_audio_codec_param>(parameters); break;
    case 7: round_trip<sdp::telephone_event_codec_param>(parameters); break;
    case 8: round_trip<sdp::sobe_rs_fec_codec_param>(parameters); break;
    case 9: round_trip<sdp::sobe_rtx_codec_param>(parameters); break;
    }
    return 0;
}
