// Intrusive reference counting: AddReference is atomic; the release that reaches zero calls
// OnReferenceDestory(), which deletes the object unless a subclass defers that elsewhere.
#pragma once

#include <atomic>
#include <cstdint>

#include "tp/CmMutex.h"

template <class MutexType>
class CCmReferenceControlT {
public:
    CCmReferenceControlT() = default;
    CCmReferenceControlT(const CCmReferenceControlT&) = delete;
    CCmReferenceControlT& operator=(const CCmReferenceControlT&) = delete;

    uint32_t AddReference() { return m_count.fetch_add(1, std::memory_order_relaxed) + 1; }

    // Adds a reference only while the object is alive (count above zero): for lookups in a
    // registry that may race with the last release. Returns false when it was already dying.
    bool TryAddReference()
    {
        uint32_t n = m_count.load(std::memory_order_acquire);
        while (n != 0)
            if (m_count.compare_exchange_weak(n, n + 1, std::memory_order_acq_rel)) return true;
        return false;
    }

    uint32_t ReleaseReference()
    {
        uint32_t left = m_count.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) OnReferenceDestory();
        return left;
    }

    uint32_t GetReference() const { return m_count.load(std::memory_order_acquire); }

protected:
    virtual ~CCmReferenceControlT() = default;
    // May destroy the object: nothing of it may be touched after this call returns.
    virtual void OnReferenceDestory() { delete this; }

private:
    std::atomic<uint32_t> m_count{0};
};
