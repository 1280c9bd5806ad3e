// What the machine is asked to do now, process-wide: for the time being the encoders' demand in
// macroblocks per second, as the far ends' requests add it up. The control loop that acts on it
// reads it here.
//
// Threads: any (atomics).
#pragma once

#include <atomic>
#include <cstdint>

namespace zyn {

class CDynPerformanceControl {
public:
    static CDynPerformanceControl& Instance();

    void UpdateCurrentEncodeMaxMBPS(uint32_t mbps) { m_encodeMaxMBPS.store(mbps); }
    uint32_t GetCurrentEncodeMaxMBPS() const { return m_encodeMaxMBPS.load(); }

private:
    CDynPerformanceControl() = default;
    std::atomic<uint32_t> m_encodeMaxMBPS{0};
};

}  // namespace zyn
