// What a screen-share line tells the application about its capturer, on an engine thread.
#pragma once

#include <cstdint>

#include "mediasession/ZynDefines.h"

enum ZynScreenCaptureStatus : int32_t {
    ZynScreenCaptureStatus_Stopped = 0,
    ZynScreenCaptureStatus_Running = 1,
};

class IZynScreenShareObserver {
public:
    virtual void OnCaptureStatusChanged(unsigned long mid, ZynScreenCaptureStatus status) = 0;
    // An event of the shared source (a window closed, a display changed): its code and a value.
    virtual void OnCaptureEvent(unsigned long mid, int32_t event, int32_t value) = 0;
    // Where the shared region lies now, in screen pixels.
    virtual void OnCapturePositionChanged(unsigned long mid, int32_t left, int32_t top, int32_t right, int32_t bottom) = 0;

protected:
    virtual ~IZynScreenShareObserver() = default;
};
