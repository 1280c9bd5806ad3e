#include "mediastores/Mediastores.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace {

class Entity final : public IMediastoresEntity {
public:
    Entity(int32_t type, uint32_t callId) : m_type(type), m_callId(callId) {}
    uint32_t GetCallId() override { return m_callId; }
    int32_t GetEntityType() override { return m_type; }
    void OnCallEnded(uint64_t) override { m_ended.store(true); }
    bool Ended() const { return m_ended.load(); }

private:
    const int32_t m_type;
    const uint32_t m_callId;
    std::atomic<bool> m_ended{false};
};

struct Store {
    std::mutex mutex;
    std::vector<std::unique_ptr<Entity>> entities;  // guarded by mutex
    std::atomic<bool> refuse{false};
};

Store& TheStore()
{
    static Store store;
    return store;
}

}  // namespace

int32_t createMediastoresEntity(int32_t entityType, uint32_t callId, IMediastoresEntity** out)
{
    Store& store = TheStore();
    if (!out || store.refuse.load()) return -1;
    std::lock_guard<std::mutex> lock(store.mutex);
    store.entities.push_back(std::make_unique<Entity>(entityType, callId));
    *out = store.entities.back().get();
    return 0;
}

void releaseMediastoresEntity(int32_t, uint32_t, IMediastoresEntity* entity)
{
    Store& store = TheStore();
    std::lock_guard<std::mutex> lock(store.mutex);
    auto it = std::find_if(store.entities.begin(), store.entities.end(),
                           [entity](const std::unique_ptr<Entity>& e) { return e.get() == entity; });
    if (it != store.entities.end()) store.entities.erase(it);
}

int MediastoresLiveEntityCount()
{
    Store& store = TheStore();
    std::lock_guard<std::mutex> lock(store.mutex);
    return static_cast<int>(store.entities.size());
}

bool MediastoresCallEnded(int32_t entityType, uint32_t callId)
{
    Store& store = TheStore();
    std::lock_guard<std::mutex> lock(store.mutex);
    for (const auto& e : store.entities)
        if (e->GetEntityType() == entityType && e->GetCallId() == callId) return e->Ended();
    return false;
}

void MediastoresRefuseNewEntities(bool refuse) { TheStore().refuse.store(refuse); }
