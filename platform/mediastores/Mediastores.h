// The call configuration store: one entity per call and media kind, which the store keeps while a
// media line uses it and which hears when the call ends.
//
// Threads: any; the store's table is guarded by its own mutex.
#pragma once

#include <cstdint>

class IMediastoresEntity {
public:
    virtual uint32_t GetCallId() = 0;
    virtual int32_t GetEntityType() = 0;
    // The call of this entity ended; identity: the line's 64-bit identity.
    virtual void OnCallEnded(uint64_t identity) = 0;

protected:
    virtual ~IMediastoresEntity() = default;
};

// 0 and an entity; -1 when the store refuses (out null, or refusing, below).
int32_t createMediastoresEntity(int32_t entityType, uint32_t callId, IMediastoresEntity** out);
// Gives back an entity of createMediastoresEntity; a null or unknown one is ignored.
void releaseMediastoresEntity(int32_t entityType, uint32_t callId, IMediastoresEntity* entity);

// For tests and tools: entities alive now; whether an entity of (type, call) was told its call
// ended (false when none is alive); the store refusing new entities.
int MediastoresLiveEntityCount();
bool MediastoresCallEnded(int32_t entityType, uint32_t callId);
void MediastoresRefuseNewEntities(bool refuse);
