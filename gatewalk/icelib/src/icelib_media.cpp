// Media streams and candidates of both sides, as the connector feeds them in.
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace gatewalk::icelib_detail {

namespace {

bool IsInvalidAddress(const struct sockaddr* address)
{
    return address == nullptr || !sockaddr_isSet(address) || sockaddr_isAddrAny(address);
}

}  // namespace

template <class P>
int32_t Agent<P>::SetLocalMediaStream(Inst* inst, int32_t streamId, uint32_t mediaIdx, uint32_t uv1, uint32_t uv2,
                                      ICE_CANDIDATE_TYPE defaultType)
{
    if (mediaIdx >= kLines) {
        Log(inst, ICELIB_logError, "Failed to add local media stream. Index larger than MAX number of medialines\n");
        return -1;
    }
    ICE_MEDIA_STREAM* s = &inst->localIceMedia.mediaStream[mediaIdx];
    std::memset(static_cast<void*>(s), 0, sizeof *s);
    s->streamId = streamId;
    RandomString(s->ufrag, ICELIB_UFRAG_LENGTH);
    RandomString(s->passwd, ICELIB_PASSWD_LENGTH);
    s->userValue1 = uv1;
    s->userValue2 = uv2;
    s->defaultCandType = defaultType;
    if (mediaIdx >= inst->localIceMedia.numberOfICEMediaLines) inst->localIceMedia.numberOfICEMediaLines = mediaIdx + 1;
    return static_cast<int32_t>(mediaIdx);
}

template <class P>
int32_t Agent<P>::AddLocalMediaStream(Inst* inst, int32_t streamId, uint32_t uv1, uint32_t uv2,
                                      ICE_CANDIDATE_TYPE defaultType)
{
    return SetLocalMediaStream(inst, streamId, inst->localIceMedia.numberOfICEMediaLines, uv1, uv2, defaultType);
}

template <class P>
int32_t Agent<P>::SetRemoteMediaStream(Inst* inst, int32_t streamId, uint32_t mediaIdx, const char* ufrag,
                                       const char* passwd, const struct sockaddr* defaultAddr)
{
    if (ufrag == nullptr || passwd == nullptr || ufrag[0] == '\0' || passwd[0] == '\0') {
        Log(inst, ICELIB_logError, "Failed to add remote medialine %u. No UFRAG or PASSWD\n", mediaIdx);
        return -1;
    }
    if (defaultAddr == nullptr || !sockaddr_isSet(defaultAddr)) {
        Log(inst, ICELIB_logError, "Failed to add remote medialine. No default address\n");
        return -1;
    }
    if (mediaIdx >= kLines) {
        Log(inst, ICELIB_logError, "Failed to set remote media stream. Index larger than MAX number of medialines\n");
        return -1;
    }
    ICE_MEDIA_STREAM* s = &inst->remoteIceMedia.mediaStream[mediaIdx];
    std::memset(static_cast<void*>(s), 0, sizeof *s);
    s->streamId = streamId;
    CopyText(s->ufrag, ufrag, sizeof s->ufrag);
    CopyText(s->passwd, passwd, sizeof s->passwd);
    sockaddr_copy(Sa(s->defaultAddr), defaultAddr);
    if (mediaIdx >= inst->remoteIceMedia.numberOfICEMediaLines) {
        inst->remoteIceMedia.numberOfICEMediaLines = mediaIdx + 1;
    }
    return static_cast<int32_t>(mediaIdx);
}

template <class P>
int32_t Agent<P>::AddRemoteMediaStream(Inst* inst, int32_t streamId, const char* ufrag, const char* passwd,
                                       const struct sockaddr* defaultAddr)
{
    return SetRemoteMediaStream(inst, streamId, inst->remoteIceMedia.numberOfICEMediaLines, ufrag, passwd,
                                defaultAddr);
}

template <class P>
int32_t Agent<P>::RemoveMediaStream(Inst* inst, IceMedia<kLines>* media, uint32_t mediaIdx)
{
    if (mediaIdx >= Lines(*media)) {
        Log(inst, ICELIB_logError, "Failed to remove media stream %u: no such medialine", mediaIdx);
        return -1;
    }
    for (uint32_t i = mediaIdx; i + 1 < Lines(*media); ++i) {
        media->mediaStream[i] = media->mediaStream[i + 1];
    }
    media->numberOfICEMediaLines = Lines(*media) - 1;
    std::memset(static_cast<void*>(&media->mediaStream[media->numberOfICEMediaLines]), 0, sizeof(ICE_MEDIA_STREAM));
    return 0;
}

template <class P>
int32_t Agent<P>::AddLocalCandidate(Inst* inst, uint32_t mediaIdx, uint32_t componentId,
                                    const struct sockaddr* connectionAddr, const struct sockaddr* relAddr,
                                    ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE type, uint16_t localPref)
{
    if (mediaIdx >= Lines(inst->localIceMedia)) {
        Log(inst, ICELIB_logError, "Failed to add local candidate. mediaIdx(%d) >= numberOfICEMediaLines(%d)",
            static_cast<int>(mediaIdx), static_cast<int>(inst->localIceMedia.numberOfICEMediaLines));
        return -1;
    }
    ICE_MEDIA_STREAM* s = &inst->localIceMedia.mediaStream[mediaIdx];
    if (s->numberOfCandidates >= ICE_MAX_CANDIDATES) {
        Log(inst, ICELIB_logError, "Failed to add candidate. MAX number of candidates reached\n");
        return -1;
    }
    if (IsInvalidAddress(connectionAddr)) {
        Log(inst, ICELIB_logError, "Failed to add candidate. Something wrong with IP address\n");
        return -1;
    }
    if (kZyn<P> && transport != ICE_TRANS_UDP) {
        Log(inst, ICELIB_logError, "Failed to add local candidate. Only UDP is supported\n");
        return -1;
    }
    const uint32_t idx = s->numberOfCandidates;
    ICE_CANDIDATE* c = &s->candidate[idx];
    std::memset(static_cast<void*>(c), 0, sizeof *c);
    Foundation(c->foundation, type, transport, sizeof c->foundation);
    c->componentid = componentId;
    c->priority = Priority(type, transport, componentId, localPref);
    sockaddr_copy(Sa(c->connectionAddr), connectionAddr);
    if (relAddr != nullptr && sockaddr_isSet(relAddr)) sockaddr_copy(Sa(c->relAddr), relAddr);
    c->transport = transport;
    c->type = type;
    c->userValue1 = s->userValue1;
    c->userValue2 = s->userValue2;
    ++s->numberOfCandidates;
    if (componentId == ICELIB_RTP_COMPONENT_ID && type == s->defaultCandType && !sockaddr_isSet(Sa(s->defaultAddr))) {
        sockaddr_copy(Sa(s->defaultAddr), connectionAddr);
    }
    return static_cast<int32_t>(idx);
}

template <class P>
int32_t Agent<P>::AddRemoteCandidate(Inst* inst, uint32_t mediaIdx, const char* foundation, uint32_t componentId,
                                     uint32_t priority, const char* connectionAddr, uint16_t port,
                                     ICE_TRANSPORT transport, ICE_CANDIDATE_TYPE type)
{
    if (mediaIdx >= Lines(inst->remoteIceMedia)) {
        Log(inst, ICELIB_logError, "Failed to add remote candidate. Wrong media idx (%d),medialines number:%d",
            static_cast<int>(mediaIdx), static_cast<int>(inst->remoteIceMedia.numberOfICEMediaLines));
        return -1;
    }
    ICE_MEDIA_STREAM* s = &inst->remoteIceMedia.mediaStream[mediaIdx];
    if (s->numberOfCandidates >= ICE_MAX_CANDIDATES) {
        Log(inst, ICELIB_logError, "Failed to add REMOTE candidate. MAX number of candidates reached:%d",
            static_cast<int>(s->numberOfCandidates));
        return -1;
    }
    struct sockaddr_storage address;
    sockaddr_reset(&address);
    if (connectionAddr == nullptr || !sockaddr_initFromString(Sa(address), connectionAddr)) {
        Log(inst, ICELIB_logError, "Failed to add candidate. Something wrong with IP address\n");
        return -1;
    }
    sockaddr_setPort(Sa(address), port);
    if (foundation == nullptr || foundation[0] == '\0' || IsInvalidAddress(Sa(address)) ||
        (kZyn<P> && transport != ICE_TRANS_UDP)) {
        Log(inst, ICELIB_logWarning, "add an enpty or invalid remote candidate");
        return -1;
    }
    for (uint32_t i = 0; i < Count(s); ++i) {
        const ICE_CANDIDATE& o = s->candidate[i];
        if (o.componentid == componentId && o.transport == transport && sockaddr_alike(Sa(o.connectionAddr), Sa(address))) {
            Log(inst, ICELIB_logWarning, "add redundant remote candidates");
            return -1;
        }
    }
    const uint32_t idx = s->numberOfCandidates;
    ICE_CANDIDATE* c = &s->candidate[idx];
    std::memset(static_cast<void*>(c), 0, sizeof *c);
    CopyText(c->foundation, foundation, sizeof c->foundation);
    c->componentid = componentId;
    c->priority = priority;
    c->connectionAddr = address;
    c->transport = transport;
    c->type = type;
    ++s->numberOfCandidates;
    return static_cast<int32_t>(idx);
}

template <class P>
void Agent<P>::UpdateDefaultCandidate(Inst* inst, uint32_t mediaIdx, ICE_CANDIDATE_TYPE type)
{
    if (mediaIdx >= Lines(inst->localIceMedia)) return;
    ICE_MEDIA_STREAM* s = &inst->localIceMedia.mediaStream[mediaIdx];
    s->defaultCandType = type;
    for (uint32_t i = 0; i < Count(s); ++i) {
        const ICE_CANDIDATE& c = s->candidate[i];
        if (c.componentid == ICELIB_RTP_COMPONENT_ID && c.type == type) {
            s->defaultAddr = c.connectionAddr;
            return;
        }
    }
}

template <class P>
void Agent<P>::EliminateRedundantCandidates(ICE_MEDIA_STREAM* s)
{
    // The connector orders candidates by priority, so keeping the first keeps the best.
    bool cleared[ICE_MAX_CANDIDATES] = {};
    const uint32_t n = s->numberOfCandidates < ICE_MAX_CANDIDATES ? s->numberOfCandidates : ICE_MAX_CANDIDATES;
    for (uint32_t i = 0; i < n; ++i) {
        if (cleared[i]) continue;
        for (uint32_t j = i + 1; j < n; ++j) {
            const ICE_CANDIDATE& a = s->candidate[i];
            const ICE_CANDIDATE& b = s->candidate[j];
            if (!cleared[j] && a.transport == b.transport && a.componentid == b.componentid &&
                sockaddr_alike(Sa(a.connectionAddr), Sa(b.connectionAddr))) {
                cleared[j] = true;
            }
        }
    }
    uint32_t out = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (cleared[i]) continue;
        if (out != i) s->candidate[out] = s->candidate[i];
        ++out;
    }
    for (uint32_t i = out; i < n; ++i) std::memset(static_cast<void*>(&s->candidate[i]), 0, sizeof(ICE_CANDIDATE));
    s->numberOfCandidates = out;
}

template <class P>
void Agent<P>::EliminateAllRedundant(Inst* inst)
{
    for (uint32_t i = 0; i < Lines(inst->localIceMedia); ++i) {
        EliminateRedundantCandidates(&inst->localIceMedia.mediaStream[i]);
    }
}

template <class P>
bool Agent<P>::VerifyIceSupport(const Inst* inst, const IceMedia<kLines>& media, bool local, bool quiet)
{
    uint32_t enabled = 0;
    for (uint32_t i = 0; i < Lines(media); ++i) {
        const ICE_MEDIA_STREAM& s = media.mediaStream[i];
        if (s.numberOfCandidates == 0) {
            if (!quiet) {
                Log(inst, ICELIB_logInfo, "Verify ICE Support detected disbled medialine, ignoring. Medialine: %i/%i\n",
                    static_cast<int>(i), static_cast<int>(media.numberOfICEMediaLines));
            }
            continue;
        }
        ++enabled;
        // A local line whose default was never set takes its first RTP candidate (see
        // ICELIB_addLocalCandidate); only a default that was set and lost is mangling.
        if (local && !sockaddr_isSet(Sa(s.defaultAddr))) continue;
        bool found = false;
        for (uint32_t c = 0; c < Count(&s) && !found; ++c) {
            found = sockaddr_alike(Sa(s.candidate[c].connectionAddr), Sa(s.defaultAddr));
        }
        if (!found) return false;
    }
    return enabled > 0;
}

template <class P>
const ICE_MEDIA_STREAM* Agent<P>::RemoteStreamOf(const Inst* inst, const Ctrl* ctrl)
{
    const ICE_MEDIA_STREAM* local = LocalStreamOf(inst, ctrl);
    if (local == nullptr) return nullptr;
    for (uint32_t i = 0; i < Lines(inst->remoteIceMedia); ++i) {
        if (inst->remoteIceMedia.mediaStream[i].streamId == local->streamId) return &inst->remoteIceMedia.mediaStream[i];
    }
    return nullptr;
}

template <class P>
const ICE_MEDIA_STREAM* Agent<P>::LocalStreamOf(const Inst* inst, const Ctrl* ctrl)
{
    if (ctrl->mediaId >= Lines(inst->localIceMedia)) return nullptr;
    return &inst->localIceMedia.mediaStream[ctrl->mediaId];
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
