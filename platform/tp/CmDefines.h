// Result codes of the transport and thread layer. Callers above pass them through unchanged.
#pragma once

#include <cstdint>

using CmResult = int32_t;

constexpr CmResult CM_OK = 0;
constexpr CmResult CM_ERROR_FAILURE = 30000001;         // no such thread, or a general failure
constexpr CmResult CM_ERROR_NOT_INITIALIZED = 30000002; // the queue is closing or closed
constexpr CmResult CM_ERROR_INVALID_ARG = 30000006;
constexpr CmResult CM_ERROR_NULL_POINTER = 30000008;
constexpr CmResult CM_ERROR_WOULD_BLOCK = 30000013;     // the socket cannot take more now
constexpr CmResult CM_ERROR_NOT_FOUND = 30000014;       // no connection
constexpr CmResult CM_ERROR_ALREADY_INITIALIZED = 31000025;  // the thread is already running
constexpr CmResult CM_ERROR_NETWORK_ACCEPT = 31000026;

inline bool CM_SUCCEEDED(CmResult r) { return r == CM_OK; }
inline bool CM_FAILED(CmResult r) { return r != CM_OK; }

// Event priorities: a larger value runs sooner; equal priorities run in posting order.
constexpr int CM_EVENT_PRIORITY_NORMAL = 128;
constexpr int CM_EVENT_PRIORITY_HIGH = 192;
constexpr int CM_EVENT_PRIORITY_LOW = 64;

// Thread types of the thread manager.
enum CmThreadType : int {
    TT_MAIN = 0,
    TT_NETWORK = 1,
    TT_AUDIO_NETWORK = 6,
    TT_VIDEO_NETWORK = 7,
    TT_SHARE_NETWORK = 8,
    TT_SUBSCRIPTION = 21,
    TT_CERTIFICATE = 23,
    TT_USER_DEFINE_BASE = 100,
};
