#include "track/CsiDB.h"

namespace zyn {

CCsiDB& CCsiDB::Instance()
{
    static CCsiDB db;
    return db;
}

bool CCsiDB::addObservedCSI(uint32_t callId, uint32_t csi, const std::string& name, ZynSessionType type,
                            uint32_t& old)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::vector<CSIItem>& items = m_observed[callId][name];
    bool replaced = false;
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (it->type != type) continue;
        replaced = it->csi != csi;
        old = it->csi;
        items.erase(it);
        break;
    }
    items.push_back({csi, type});
    return replaced;
}

void CCsiDB::releaseCall(uint32_t callId)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_observed.erase(callId);
}

}  // namespace zyn
