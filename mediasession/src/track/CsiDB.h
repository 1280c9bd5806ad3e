// The capture sources (CSIs) the signalling named for each call, process-wide: when a named source
// comes back with another CSI, what selected the old one must follow it.
//
// Threads: any; one recursive lock guards everything. Callers act on connections outside it.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "mediasession/ZynDefines.h"

namespace zyn {

class CCsiDB {
public:
    static CCsiDB& Instance();

    // Records (csi, type) under the name for the call. True, with old set, where the name had a
    // CSI of the same type before that differs from this one.
    bool addObservedCSI(uint32_t callId, uint32_t csi, const std::string& name, ZynSessionType type, uint32_t& old);
    // Forgets what the call observed (the last connection of the call went).
    void releaseCall(uint32_t callId);

    // Bit 0 clear: an audio source.
    static bool IsAudioCSI(uint32_t csi) { return (csi & 1u) == 0; }
    // The high 24 bits are one client's scene in a call.
    static bool IsSameScene(uint32_t a, uint32_t b) { return ((a ^ b) & 0xFFFFFF00u) == 0; }

private:
    struct CSIItem {
        uint32_t csi;
        ZynSessionType type;
    };
    std::recursive_mutex m_lock;
    std::map<uint32_t, std::map<std::string, std::vector<CSIItem>>> m_observed;  // guarded by m_lock
};

}  // namespace zyn
