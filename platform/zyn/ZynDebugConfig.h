// The engine's debug settings: "key=value" pairs separated by ';' from the environment variable
// ZYN_DEBUG_CONFIG, re-read by UpdateDebugConfigs() (every engine init).
#pragma once

#include <map>
#include <mutex>
#include <string>

class CZynDebugConfig {
public:
    static CZynDebugConfig* instance();
    void UpdateDebugConfigs();
    // Empty when unset.
    std::string Get(const std::string& key);
    int GetInt(const std::string& key, int fallback);
    // Parses "a=1;b=x" (blanks around keys and values are dropped; a pair without '=' is ignored).
    static std::map<std::string, std::string> Parse(const std::string& text);

private:
    std::mutex m_mutex;
    std::map<std::string, std::string> m_values;  // guarded by m_mutex
};

// The engine's performance statistics collector. Connections start it on their statistics thread;
// the last engine uninit drops it.
class CZynPerfsStats {
public:
    static CZynPerfsStats* instance();
    void start(int debugFlag);
    void stop();
    void uninit();
    int users();

private:
    std::mutex m_mutex;
    int m_users = 0;  // guarded by m_mutex
    int m_debugFlag = 0;
};
