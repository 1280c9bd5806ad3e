// Millisecond tick for measuring intervals; never goes backwards (wall-clock changes don't move it).
#pragma once

#include <cstdint>

uint64_t get_tick_count();
