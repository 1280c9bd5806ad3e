#pragma once

#include "zyn/ZynObject.h"

namespace zynsim {

class Track final : public RefCounted<IZynMediaTrack> {
public:
    explicit Track(ZynTrackKind kind) : m_kind(kind) {}

    ZynTrackKind GetKind() override { return m_kind; }
    ZynResult SetLabel(uint32_t label) override
    {
        m_label.store(label);
        return ZYN_S_OK;
    }
    ZynResult GetLabel(uint32_t& label) override
    {
        label = m_label.load();
        return ZYN_S_OK;
    }
    ZynResult Start() override
    {
        if (m_uninited.load()) return ZYN_E_WRONGSTATE;
        m_started.store(true);
        return ZYN_S_OK;
    }
    ZynResult Stop() override
    {
        m_started.store(false);
        return ZYN_S_OK;
    }
    ZynResult Uninit() override
    {
        m_started.store(false);
        m_uninited.store(true);
        return ZYN_S_OK;
    }
    bool IsStarted() override { return m_started.load(); }
    ZYN_FORWARD_OPTIONS(m_options)

private:
    const ZynTrackKind m_kind;
    std::atomic<uint32_t> m_label{0};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_uninited{false};
    OptionStore m_options;
};

}  // namespace zynsim
