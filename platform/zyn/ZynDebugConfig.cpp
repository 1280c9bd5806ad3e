#include "zyn/ZynDebugConfig.h"

#include <cstdlib>
#include <sstream>

namespace {

std::string Trim(const std::string& s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return {};
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

}  // namespace

CZynDebugConfig* CZynDebugConfig::instance()
{
    static CZynDebugConfig config;
    return &config;
}

std::map<std::string, std::string> CZynDebugConfig::Parse(const std::string& text)
{
    std::map<std::string, std::string> values;
    std::istringstream in(text);
    for (std::string pair; std::getline(in, pair, ';');) {
        size_t eq = pair.find('=');
        if (eq == std::string::npos) continue;
        std::string key = Trim(pair.substr(0, eq));
        if (!key.empty()) values[key] = Trim(pair.substr(eq + 1));
    }
    return values;
}

void CZynDebugConfig::UpdateDebugConfigs()
{
    const char* env = std::getenv("ZYN_DEBUG_CONFIG");
    auto values = Parse(env ? env : "");
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values.swap(values);
}

std::string CZynDebugConfig::Get(const std::string& key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(key);
    return it == m_values.end() ? std::string() : it->second;
}

int CZynDebugConfig::GetInt(const std::string& key, int fallback)
{
    std::string v = Get(key);
    if (v.empty()) return fallback;
    char* end = nullptr;
    long n = std::strtol(v.c_str(), &end, 10);
    return (end && *end == '\0') ? static_cast<int>(n) : fallback;
}

CZynPerfsStats* CZynPerfsStats::instance()
{
    static CZynPerfsStats stats;
    return &stats;
}

void CZynPerfsStats::start(int debugFlag)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_users;
    m_debugFlag = debugFlag;
}

void CZynPerfsStats::stop()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_users > 0) --m_users;
}

void CZynPerfsStats::uninit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_users = 0;
    m_debugFlag = 0;
}

int CZynPerfsStats::users()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_users;
}
