#include "zyn/ZynCamera.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zynsim {

namespace {

// A control of one or two numbers, each within its range.
struct Control {
    const char* name;
    int count;
    double min[2];
    double max[2];
};
constexpr Control kControls[] = {
    {"CAMERA_zoom_factor", 1, {1.0, 0}, {10.0, 0}},
    {"CAMERA_focus_point", 2, {0.0, 0.0}, {1.0, 1.0}},  // fractions of the picture, x then y
    {"CAMERA_exposure_state", 1, {-8, 0}, {8, 0}},       // steps of a third of a stop
    {"CAMERA_flash_mode", 1, {0, 0}, {2, 0}},            // off, on, automatic
    {"CAMERA_torch_mode", 1, {0, 0}, {2, 0}},
    {"CAMERA_custom_exposure", 2, {0.1, 50}, {250.0, 3200}},  // milliseconds, then ISO
};
constexpr double kAutoDurationMs = 33.3;
constexpr int kAutoIso = 100;

// Reads exactly `count` comma-separated numbers.
bool Numbers(const char* text, int count, double* out)
{
    const char* p = text;
    for (int i = 0; i < count; ++i) {
        char* end = nullptr;
        out[i] = std::strtod(p, &end);
        if (end == p) return false;
        p = end;
        if (i + 1 < count) {
            if (*p != ',') return false;
            ++p;
        }
    }
    return *p == '\0';
}

}  // namespace

ZynResult CheckCameraControl(const char* name, const char* value)
{
    if (!name || std::strncmp(name, "CAMERA_", 7) != 0) return ZYN_S_FALSE;
    for (const Control& c : kControls) {
        if (std::strcmp(c.name, name) != 0) continue;
        double v[2] = {0, 0};
        if (!value || !Numbers(value, c.count, v)) return ZYN_E_INVALIDARG;
        for (int i = 0; i < c.count; ++i)
            if (!(v[i] >= c.min[i] && v[i] <= c.max[i])) return ZYN_E_INVALIDARG;
        return ZYN_S_OK;
    }
    return ZYN_E_INVALIDARG;  // a read-only answer, or a control this camera does not have
}

bool ReadCameraControl(const char* name, const std::string& custom, std::string& out)
{
    const Control& state = kControls[2];
    const Control& exposure = kControls[5];
    double v[2] = {kAutoDurationMs, kAutoIso};
    if (!custom.empty()) Numbers(custom.c_str(), 2, v);
    const struct {
        const char* name;
        double value;
    } answers[] = {
        {"CAMERA_exposure_min_state", state.min[0]},     {"CAMERA_exposure_max_state", state.max[0]},
        {"CAMERA_exposure_min_duration", exposure.min[0]}, {"CAMERA_exposure_max_duration", exposure.max[0]},
        {"CAMERA_exposure_min_iso", exposure.min[1]},    {"CAMERA_exposure_max_iso", exposure.max[1]},
        {"CAMERA_exposure_duration", v[0]},              {"CAMERA_exposure_iso", v[1]},
    };
    for (const auto& a : answers) {
        if (!name || std::strcmp(a.name, name) != 0) continue;
        char text[32];
        std::snprintf(text, sizeof text, "%g", a.value);
        out = text;
        return true;
    }
    return false;
}

}  // namespace zynsim
