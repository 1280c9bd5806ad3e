// Fakes of the two owners and a trace recorder for the configuration tests.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "config/ConfigOwner.h"
#include "util/CmTrace.h"

namespace cfgtest {

// Records every trace line at every level while it lives.
class TraceCapture {
public:
    TraceCapture() : m_oldMask(get_external_trace_mask())
    {
        set_external_trace_mask(CM_TRACE_LEVEL_DETAIL);
        set_external_trace_sink(&Sink, this);
    }
    ~TraceCapture()
    {
        set_external_trace_sink(nullptr, nullptr);
        set_external_trace_mask(m_oldMask);
    }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    bool Has(int level, const std::string& text) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [l, line] : m_lines)
            if (l == level && line.find(text) != std::string::npos) return true;
        return false;
    }
    bool HasAny(const std::string& text) const
    {
        for (int level = 0; level <= CM_TRACE_LEVEL_DETAIL; ++level)
            if (Has(level, text)) return true;
        return false;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.clear();
    }

private:
    static void Sink(void* context, int level, const char*, const char* text, unsigned int length)
    {
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_lines.emplace_back(level, std::string(text, length));
    }

    int m_oldMask;
    mutable std::mutex m_mutex;
    std::vector<std::pair<int, std::string>> m_lines;
};

using Metrics = std::vector<std::pair<std::string, ZynResult>>;

class FakeLine : public zyn::IMediaConfigOwner {
public:
    explicit FakeLine(ZynSessionType type = ZynSessionType_Audio) : type(type) {}

    bool IsCallStarted() const override { return started; }
    void SetZynErrorMetrics(const char* tag, ZynResult code) override { metrics.emplace_back(tag, code); }
    ZynSessionType GetSessionType() const override { return type; }
    uint32_t GetCallId() const override { return 4711; }
    ZynResult OnMediaConfigChanged(zyn::EMediaConfigItem item) override
    {
        changes.push_back(item);
        const auto it = refuse.find(item);
        return it == refuse.end() ? ZYN_S_OK : it->second;
    }
    unsigned int GetMaxAvailableSources(ZynSubscribePolicy policy) override { return 10u + policy; }
    ZynSubscribePolicy GetSubscribePolicy() override { return ZynSubscribePolicy_ActiveSpeaker; }

    ZynSessionType type;
    bool started = false;
    std::vector<zyn::EMediaConfigItem> changes;
    std::map<zyn::EMediaConfigItem, ZynResult> refuse;
    Metrics metrics;
};

struct EngineOption {
    int32_t option;
    std::vector<uint8_t> bytes;
    bool operator==(const EngineOption&) const = default;
};

class FakeConnection : public zyn::IGlobalConfigOwner {
public:
    bool IsCallStarted() const override { return started; }
    void SetZynErrorMetrics(const char* tag, ZynResult code) override { metrics.emplace_back(tag, code); }
    ZynResult OnGlobalConfigChanged(zyn::EGlobalConfigItem item) override
    {
        changes.push_back(item);
        const auto it = refuse.find(item);
        return it == refuse.end() ? ZYN_S_OK : it->second;
    }
    ZynResult SetMediaEngineOption(int32_t option, const void* value, uint32_t size) override
    {
        const auto* p = static_cast<const uint8_t*>(value);
        options.push_back(EngineOption{option, std::vector<uint8_t>(p, p + size)});
        return engineResult;
    }
    ZynResult ApplyStaticPerformanceSetting(zyn::EStaticPerformanceSetting part, const json::Value&) override
    {
        parts.push_back(part);
        return part == failingPart ? ZYN_E_FAIL : ZYN_S_OK;
    }
    bool CheckEngineCapability(zyn::EEngineCapabilityCheck check, bool argument) override
    {
        checks.emplace_back(check, argument);
        return true;
    }

    bool started = false;
    ZynResult engineResult = ZYN_S_OK;
    std::vector<zyn::EGlobalConfigItem> changes;
    std::map<zyn::EGlobalConfigItem, ZynResult> refuse;
    std::vector<EngineOption> options;
    std::vector<zyn::EStaticPerformanceSetting> parts;
    zyn::EStaticPerformanceSetting failingPart = static_cast<zyn::EStaticPerformanceSetting>(-1);
    std::vector<std::pair<zyn::EEngineCapabilityCheck, bool>> checks;
    Metrics metrics;
};

}  // namespace cfgtest
