// What an application may steer on the engine's camera, with the ranges of its virtual camera.
// Controls travel as named options of the capture track ("CAMERA_..."); out-of-range values are
// refused as a real device would refuse them, and the ranges are read back as read-only options.
#pragma once

#include <string>

#include "mediasession/ZynDefines.h"

namespace zynsim {

// ZYN_S_FALSE: not a camera control name. ZYN_E_INVALIDARG: a value the camera refuses or a
// read-only name. ZYN_S_OK: the camera takes it.
ZynResult CheckCameraControl(const char* name, const char* value);
// The read-only answers (ranges, and the exposure in use, which is the custom one once set:
// `custom` is what "CAMERA_custom_exposure" holds, empty when never set). False for other names.
bool ReadCameraControl(const char* name, const std::string& custom, std::string& out);

}  // namespace zynsim
