// Shared helpers of the session-layer tests: trace capture and engine scope.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "mediasession/ZynMediaEngine.h"
#include "metrics/SessionMetrics.h"
#include "tp/CmThreadManager.h"
#include "util/CmLocalAddr.h"
#include "util/CmTrace.h"

namespace mstest {

// Runs the call on the main thread and waits for it, as an application makes its calls; with no
// call, waits until what was posted there before has run.
inline void OnMain(std::function<void()> call = [] {})
{
    CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_MAIN), false, [&call] {
        call();
        return CM_OK;
    });
}

// Collects trace lines while alive (level 3), restoring the default sink afterwards.
class TraceCapture {
public:
    TraceCapture()
    {
        m_oldMask = get_external_trace_mask();
        set_external_trace_mask(3);
        set_external_trace_sink(&TraceCapture::Sink, this);
    }
    ~TraceCapture()
    {
        set_external_trace_sink(nullptr, nullptr);
        set_external_trace_mask(m_oldMask);
    }
    bool Contains(const std::string& text)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& l : m_lines)
            if (l.find(text) != std::string::npos) return true;
        return false;
    }
    int Count(const std::string& text)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const auto& l : m_lines) n += l.find(text) != std::string::npos;
        return n;
    }

private:
    static void Sink(void* context, int level, const char*, const char* text, unsigned int length)
    {
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_lines.push_back(std::to_string(level) + " " + std::string(text, length));
    }
    int m_oldMask;
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

// One engine life for the scope of a test; lines listen on loopback only while it lasts.
struct EngineScope {
    EngineScope()
    {
        set_local_addr_allow_list({"127.0.0.1", "::1"});
        InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
    }
    ~EngineScope()
    {
        UninitMediaEngine();
        clear_local_addr_allow_list();
    }
};

// Whether the session metrics recorded the failure under its tag.
inline bool Kicked(const CSessionMetrics& metrics, const std::string& tag, ZynResult code)
{
    for (const auto& [t, c] : metrics.GetZynErrors())
        if (t == tag && c == code) return true;
    return false;
}

}  // namespace mstest
