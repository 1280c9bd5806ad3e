// Round trips of the multistream attribute readers: sprop_source, sprop_simul, sprop_total, rid, sobe_version, sobe_rtp_rexmit, sobe_rate_adaptation, sobe_hybrid_resilience, sobe_psre.
#include "round_trip.h"
#include "sdp/sdp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unsigned selector = 0;
    std::string line;
    if (!fuzz_sdp::split_input(data, size, selector, line)) return 0;
    switch (selector % 9) {
    case 0: fuzz_sdp::round_trip<sdp::sprop_source>(line); break;
    case 1: fuzz_sdp::round_trip<sdp::sprop_simul>(line); break;
    case 2: fuzz_sdp::round_trip<sdp::sprop_total>(line); break;
    case 3: fuzz_sdp::round_trip<sdp::rid>(line); break;
    case 4: fuzz_sdp::round_trip<sdp::sobe_version>(line); break;
    case 5: fuzz_sdp::round_trip<sdp::sobe_rtp_rexmit>(line); break;
    case 6: fuzz_sdp::round_trip<sdp::sobe_rate_adaptation>(line); break;
    case 7: fuzz_sdp::round_trip<sdp::sobe_hybrid_resilience>(line); break;
    case 8: fuzz_sdp::round_trip<sdp::sobe_psre>(line); break;
    }
    return 0;
}
