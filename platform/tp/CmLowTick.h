// The low-rate tick: a coarse millisecond clock refreshed by a background thread while at least
// one user has started it, so hot paths can read time without a system call.
#pragma once

#include <cstdint>

void startLowTick();
void stopLowTick();
int lowTickUsers();
// Milliseconds on the monotonic clock; refreshed every 10 ms while running, exact otherwise.
uint64_t get_low_tick_count();
