// The public functions of both profiles: the shared set, then what only one profile has.
#include <cstring>

#include "icelib_internal.h"

namespace qlox_gatewalk {
#include "icelib_api.inc"

uint32_t ICELIB_calculatePriority(ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t componentId,
                                  uint16_t localPref)
{
    return gatewalk::icelib_detail::Priority(type, transport, componentId, localPref);
}

void ICELIB_createFoundation(char* dst, ICE_CANDIDATE_TYPE type, ICE_TRANSPORT transport, uint32_t maxLength)
{
    gatewalk::icelib_detail::Foundation(dst, type, transport, maxLength);
}

int ICE_TRANSPORT_proto(ICE_TRANSPORT transport) { return gatewalk::icelib_detail::TransportProto(transport); }

int32_t ICELIB_removeLocalMediaStream(ICELIB_INSTANCE* instance, uint32_t mediaIdx)
{
    return instance != nullptr ? A::RemoveMediaStream(instance, &instance->localIceMedia, mediaIdx) : -1;
}

int32_t ICELIB_removeRemoteMediaStream(ICELIB_INSTANCE* instance, uint32_t mediaIdx)
{
    return instance != nullptr ? A::RemoveMediaStream(instance, &instance->remoteIceMedia, mediaIdx) : -1;
}

void ICELIB_dropRflx(ICELIB_INSTANCE* instance)
{
    if (instance != nullptr) instance->iceConfiguration.dropRflx = true;
}

void ICELIB_setCallbackNominated(ICELIB_INSTANCE* instance, gatewalk::ICELIB_nominated function, void* userData)
{
    if (instance == nullptr) return;
    instance->callbacks.nominated = function;
    instance->callbacks.nominatedUserData = userData;
}

bool ICELIB_getRemoteUfragPasswd(const ICELIB_INSTANCE* instance, uint32_t mediaIdx, const char** ufrag,
                                 const char** passwd)
{
    if (instance == nullptr || mediaIdx >= instance->remoteIceMedia.numberOfICEMediaLines ||
        mediaIdx >= ICE_MAX_MEDIALINES) {
        return false;
    }
    const ICE_MEDIA_STREAM& s = instance->remoteIceMedia.mediaStream[mediaIdx];
    if (ufrag != nullptr) *ufrag = s.ufrag;
    if (passwd != nullptr) *passwd = s.passwd;
    return true;
}
}  // namespace qlox_gatewalk

namespace zyn_gatewalk {
#include "icelib_api.inc"

uint32_t ICELIB_calculatePriority(ICE_CANDIDATE_TYPE type, uint32_t componentId, uint16_t localPref)
{
    return gatewalk::icelib_detail::Priority(type, gatewalk::ICE_TRANS_UDP, componentId, localPref);
}

void ICELIB_createFoundation(char* dst, ICE_CANDIDATE_TYPE type, uint32_t maxLength)
{
    gatewalk::icelib_detail::Foundation(dst, type, gatewalk::ICE_TRANS_UDP, maxLength);
}

uint32_t ICELIB_getCandidateTypeWeight(ICE_CANDIDATE_TYPE type)
{
    return gatewalk::icelib_detail::CandidateTypeWeight(type);
}

uint32_t ICELIB_calculateReadyWeight(ICE_CANDIDATE_TYPE localType, ICE_CANDIDATE_TYPE remoteType, uint32_t ms)
{
    return gatewalk::icelib_detail::ReadyWeight(localType, remoteType, ms);
}
}  // namespace zyn_gatewalk
