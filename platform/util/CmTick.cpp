#include "util/CmTick.h"

#include <time.h>

uint64_t get_tick_count()
{
    timespec now{};
    // CLOCK_MONOTONIC cannot fail with a valid pointer on Linux; the zero start covers the impossible.
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
}
