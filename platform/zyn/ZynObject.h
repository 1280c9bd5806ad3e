// Reference counting and option storage shared by the engine's objects.
#pragma once

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "zyn/ZynEngineApi.h"

namespace zynsim {

void CountObject(int delta);

template <class Interface>
class RefCounted : public Interface {
public:
    RefCounted() { CountObject(1); }
    uint32_t AddRef() override { return m_refs.fetch_add(1) + 1; }
    uint32_t Release() override
    {
        uint32_t left = m_refs.fetch_sub(1) - 1;
        if (left == 0) delete this;
        return left;
    }
    ZynResult QueryInterface(const _tagUUID&, void** out) override
    {
        if (out) *out = nullptr;
        return ZYN_E_NOINTERFACE;
    }
    uint32_t GetReference() override { return m_refs.load(); }

protected:
    ~RefCounted() override { CountObject(-1); }

private:
    std::atomic<uint32_t> m_refs{1};  // the creator's reference
};

class OptionStore {
public:
    ZynResult Set(int32_t id, const void* value, uint32_t size);
    ZynResult Get(int32_t id, void* value, uint32_t& size);
    ZynResult SetNamed(const char* name, const char* value);
    ZynResult GetNamed(const char* name, char* value, uint32_t& size);

private:
    std::mutex m_mutex;
    std::map<int32_t, std::vector<uint8_t>> m_options;  // guarded by m_mutex
    std::map<std::string, std::string> m_named;         // guarded by m_mutex
};

// The option calls of IZynOptionHolder, forwarded to a member store.
#define ZYN_FORWARD_OPTIONS(store)                                                                   \
    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override                      \
    {                                                                                               \
        return (store).Set(id, value, size);                                                        \
    }                                                                                               \
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override                           \
    {                                                                                               \
        return (store).Get(id, value, size);                                                        \
    }                                                                                               \
    ZynResult SetNamedOption(const char* name, const char* value) override                          \
    {                                                                                               \
        return (store).SetNamed(name, value);                                                       \
    }                                                                                               \
    ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) override                \
    {                                                                                               \
        return (store).GetNamed(name, value, size);                                                 \
    }

}  // namespace zynsim
