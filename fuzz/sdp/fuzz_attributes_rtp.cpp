// Round trips of the rtp attribute readers: rtp_map, format_parameters, rtcp_feedback, rtcp_xr, rtcp_port, ext_map.
#include "round_trip.h"
#include "sdp/sdp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unsigned selector = 0;
    std::string line;
    if (!fuzz_sdp::split_input(data, size, selector, line)) return 0;
    switch (selector % 6) {
    case 0: fuzz_sdp::round_trip<sdp::rtp_map>(line); break;
    case 1: fuzz_sdp::round_trip<sdp::format_parameters>(line); break;
    case 2: fuzz_sdp::round_trip<sdp::rtcp_feedback>(line); break;
    case 3: fuzz_sdp::round_trip<sdp::rtcp_xr>(line); break;
    case 4: fuzz_sdp::round_trip<sdp::rtcp_port>(line); break;
    case 5: fuzz_sdp::round_trip<sdp::ext_map>(line); break;
    }
    return 0;
}
