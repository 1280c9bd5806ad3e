#include "zyn/ZynObject.h"

namespace zynsim {

namespace {
std::atomic<int> g_live{0};
}

void CountObject(int delta) { g_live.fetch_add(delta); }

ZynResult OptionStore::Set(int32_t id, const void* value, uint32_t size)
{
    if (size && !value) return ZYN_E_POINTER;
    const auto* bytes = static_cast<const uint8_t*>(value);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options[id].assign(bytes, bytes + size);
    return ZYN_S_OK;
}

ZynResult OptionStore::Get(int32_t id, void* value, uint32_t& size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_options.find(id);
    if (it == m_options.end()) return ZYN_E_NOTFOUND;
    if (size < it->second.size() || (!value && !it->second.empty())) {
        size = static_cast<uint32_t>(it->second.size());
        return ZYN_E_INVALIDARG;
    }
    if (!it->second.empty()) std::memcpy(value, it->second.data(), it->second.size());
    size = static_cast<uint32_t>(it->second.size());
    return ZYN_S_OK;
}

ZynResult OptionStore::SetNamed(const char* name, const char* value)
{
    if (!name || !*name || !value) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_named[name] = value;
    return ZYN_S_OK;
}

ZynResult OptionStore::GetNamed(const char* name, char* value, uint32_t& size)
{
    if (!name || !*name) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_named.find(name);
    if (it == m_named.end()) return ZYN_E_NOTFOUND;
    const auto length = static_cast<uint32_t>(it->second.size());
    if (!value || size <= length) {
        size = length;
        return ZYN_E_INVALIDARG;
    }
    std::memcpy(value, it->second.c_str(), length + 1);
    size = length;
    return ZYN_S_OK;
}

}  // namespace zynsim

int ZynLiveObjectCount() { return zynsim::g_live.load(); }
