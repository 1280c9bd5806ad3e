// Reference counting of the library's public objects, and a holder of one counted reference.
#pragma once

#include <utility>

#include "mediasession/ZynDefines.h"
#include "tp/CmReferenceControl.h"

class CZynUnknownImpl : public CCmReferenceControlT<CCmMutexThread> {
protected:
    ~CZynUnknownImpl() override = default;
};

// Forwards IZynUnknown's counting to CZynUnknownImpl; QueryInterface stays the class's own.
#define ZYN_IMPLEMENT_REFCOUNT                                                        \
    uint32_t AddRef() override { return CZynUnknownImpl::AddReference(); }           \
    uint32_t Release() override { return CZynUnknownImpl::ReleaseReference(); }      \
    uint32_t GetReference() override { return CZynUnknownImpl::GetReference(); }

// Holds one reference on an object with AddRef/Release; null is allowed.
template <class T>
class CZynAutoPtr {
public:
    CZynAutoPtr() = default;
    explicit CZynAutoPtr(T* p, bool addRef = true) : m_p(p)
    {
        if (m_p && addRef) m_p->AddRef();
    }
    CZynAutoPtr(const CZynAutoPtr& o) : CZynAutoPtr(o.m_p) {}
    CZynAutoPtr(CZynAutoPtr&& o) noexcept : m_p(std::exchange(o.m_p, nullptr)) {}
    CZynAutoPtr& operator=(CZynAutoPtr o) noexcept
    {
        std::swap(m_p, o.m_p);
        return *this;
    }
    ~CZynAutoPtr()
    {
        if (m_p) m_p->Release();
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    // Gives up the reference without releasing it.
    T* detach() { return std::exchange(m_p, nullptr); }

private:
    T* m_p = nullptr;
};
