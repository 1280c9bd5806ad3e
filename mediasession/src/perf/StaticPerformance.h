// What this machine may do with video, decided once from its measurements and a table compiled
// into the library. Process-wide; the queries run on the caller's thread, the lock guards the
// measurements and switches (tests replace them while connections may ask).
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "mediasession/ZynGlobalServices.h"
#include "util/CmJson.h"

namespace zyn {

class CMediaPerformanceStaticControl {
public:
    struct CMachine {
        uint64_t memSize = 2000;     // megabytes
        uint32_t cpuFrequency = 240;  // MHz
        uint32_t physicalCore = 10;
        uint32_t virtualCore = 0;
        uint32_t osVersion = 0;  // major * 100 + minor
        bool operator==(const CMachine&) const = default;
    };

    // Measures this machine.
    static CMediaPerformanceStaticControl& Instance();
    // A machine as given, against a table text (the built-in one when null), for the OS key given.
    CMediaPerformanceStaticControl(const CMachine& machine, const char* os, const char* table = nullptr);

    ZynVideoPerformance QuerySendPerformance(bool flag, ZynSessionType type);
    ZynVideoPerformance QueryRecvPerformance(bool flag, ZynSessionType type);
    // Simulcast layers the machine may encode: 4, 2, or 1 when no rule holds.
    int QuerySimulLayers(bool flag, ZynSessionType type);
    bool QueryPipCapability(bool flag);
    // Hardware video encoding: none on this system.
    bool CheckHWAcceleration();
    void Enable1080pVideo(bool enable);
    void EnableScreen1080pVideo(bool enable);
    // Replaces the measurements (tests and lab machines).
    void overrideSpec(const CMachine& machine);
    CMachine GetMachine() const;

private:
    ZynVideoPerformance queryVideoPerformance(bool isReceive, ZynSessionType type);
    // The first name whose rule holds under object; empty when none does.
    std::string queryChecker(const json::Value& object, const char* const* names, size_t count) const;
    bool holds(const json::Value& conditions) const;
    static bool validateSpec(const json::Value& conditions, const char* key, double value);

    mutable std::mutex m_lock;
    CMachine m_machine;              // m_lock
    bool m_bEnable1080pVideo = false;       // m_lock
    bool m_bEnableScreen1080pVideo = false;  // m_lock
    bool m_bHWCodec = false;
    json::Value m_osTable;  // the "defaults" of this OS; null when the table has none
};

}  // namespace zyn
