#include "metrics/SessionMetrics.h"

#include <algorithm>

#include "util/CmTrace.h"

void CSessionMetrics::KickZynError(const std::string& tag, ZynResult code)
{
    MS_DETAIL_TRACE("CSessionMetrics::KickZynError, tag=" << tag << ", code=" << code);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_zynErrors.emplace_back(tag, code);
}

void CSessionMetrics::KickNotificationError(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_notified.begin(), m_notified.end(), name) == m_notified.end()) m_notified.push_back(name);
}

std::vector<std::pair<std::string, ZynResult>> CSessionMetrics::GetZynErrors() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_zynErrors;
}

std::vector<std::string> CSessionMetrics::GetNotificationErrors() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_notified;
}
