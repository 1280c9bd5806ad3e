// Round trips of the security attribute readers: crypto, prime_crypto, fingerprint.
#include "round_trip.h"
#include "sdp/sdp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unsigned selector = 0;
    std::string line;
    if (!fuzz_sdp::split_input(data, size, selector, line)) return 0;
    switch (selector % 3) {
    case 0: fuzz_sdp::round_trip<sdp::crypto>(line); break;
    case 1: fuzz_sdp::round_trip<sdp::prime_crypto>(line); break;
    case 2: fuzz_sdp::round_trip<sdp::fingerprint>(line); break;
    }
    return 0;
}
