// Round trips of the application attribute readers: mline_group, tcap, bfcp_floor_id, sctp_map, ix_map.
#include "round_trip.h"
#include "sdp/sdp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unsigned selector = 0;
    std::string line;
    if (!fuzz_sdp::split_input(data, size, selector, line)) return 0;
    switch (selector % 5) {
    case 0: fuzz_sdp::round_trip<sdp::mline_group>(line); break;
    case 1: fuzz_sdp::round_trip<sdp::tcap>(line); break;
    case 2: fuzz_sdp::round_trip<sdp::bfcp_floor_id>(line); break;
    case 3: fuzz_sdp::round_trip<sdp::sctp_map>(line); break;
    case 4: fuzz_sdp::round_trip<sdp::ix_map>(line); break;
    }
    return 0;
}
