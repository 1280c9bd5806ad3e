// What happened in one media connection, for the document the application uploads at the end.
// Fed from any thread; read on the main thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "mediasession/ZynDefines.h"

class CSessionMetrics {
public:
    explicit CSessionMetrics(long connectionId) : m_connectionId(connectionId) {}

    // A failed public or engine call: the short tag of the failing step and its code.
    void KickZynError(const std::string& tag, ZynResult code);
    // An error the application was told about through its sink, kept once by name.
    void KickNotificationError(const std::string& name);

    std::vector<std::pair<std::string, ZynResult>> GetZynErrors() const;
    std::vector<std::string> GetNotificationErrors() const;
    long GetConnectionId() const { return m_connectionId; }

private:
    const long m_connectionId;
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, ZynResult>> m_zynErrors;  // guarded by m_mutex
    std::vector<std::string> m_notified;                         // guarded by m_mutex
};
