// Process-wide options of the transport layer, set by number. Any thread.
#pragma once

#include <cstdint>

#include "tp/CmDefines.h"

// Option 1: connection-time enhancement level (int32); 0, the default, changes nothing.
constexpr int CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT = 1;

// value points at an int32. CM_ERROR_INVALID_ARG for an unknown option, CM_ERROR_NULL_POINTER for
// a null value.
CmResult TPSetOption(int option, const void* value);
CmResult TPGetOption(int option, void* value);
