// Keep-alive after completion: the connector is told when each media stream is due.
#include "icelib_internal.h"

namespace gatewalk::icelib_detail {

template <class P>
void Agent<P>::DoKeepAlive(Inst* inst)
{
    ++inst->keepAliveTickCount;
    const uint64_t elapsedS =
        static_cast<uint64_t>(inst->keepAliveTickCount) * inst->iceConfiguration.tickIntervalMS / 1000;
    if (elapsedS <= inst->iceConfiguration.keepAliveIntervalS) return;
    inst->keepAliveTickCount = 0;
    if (inst->callbacks.keepAlive == nullptr) {
        Log(inst, ICELIB_logWarning, "Should send keep alive, but no callback is set");
        return;
    }
    for (uint32_t i = 0; i < Lines(inst->localIceMedia); ++i) {
        const ICE_MEDIA_STREAM& s = inst->localIceMedia.mediaStream[i];
        Log(inst, ICELIB_logDebug, "Sending KeepAlive");
        inst->callbacks.keepAlive(inst->callbacks.keepAliveUserData, s.userValue1, s.userValue2, i);
    }
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
