// Lifecycle of the ICE agent: construction, start, stop, restart, the tick and logging.
#include <cstdio>
#include <cstring>

#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace gatewalk::icelib_detail {

template <class P>
void Agent<P>::Log(const Inst* inst, ICELIB_logLevel level, const char* format, ...)
{
    if (inst == nullptr || inst->callbacks.log == nullptr) return;
    if (static_cast<int>(level) < static_cast<int>(inst->callbacks.logLevel)) return;
    char line[kLogLineSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    inst->callbacks.log(inst->callbacks.logUserData, level, line);
}

template <class P>
void Agent<P>::SetState(Inst* inst, ICELIB_STATE state)
{
    if (inst->iceState == state) return;
    Log(inst, ICELIB_logDebug, "ICE state %s -> %s", StateName(inst->iceState), StateName(state));
    inst->iceState = state;
}

template <class P>
void Agent<P>::NotifyCheckListUpdate(Inst* inst, bool changed)
{
    if (inst->callbacks.updateIceCheckList != nullptr) {
        inst->callbacks.updateIceCheckList(inst->callbacks.updateIceCheckListUserData, changed);
    }
}

template <class P>
void Agent<P>::Constructor(Inst* inst, const Config* config)
{
    std::memset(static_cast<void*>(inst), 0, sizeof *inst);
    if (config != nullptr) inst->iceConfiguration = *config;
    Config& c = inst->iceConfiguration;
    if (c.maxCheckListPairs == 0 || c.maxCheckListPairs > ICELIB_MAX_PAIRS) c.maxCheckListPairs = ICELIB_MAX_PAIRS;
    if (c.tickIntervalMS == 0) c.tickIntervalMS = kDefaultTickMs;
    if constexpr (kZyn<P>) {
        if (c.iceTimeoutMS == 0) c.iceTimeoutMS = kZynDefaultTimeLimitMs;
    }
    inst->callbacks.logLevel = c.logLevel;
    inst->iceState = ICELIB_IDLE;
}

template <class P>
bool Agent<P>::UnsupportedByRemote(const Inst* inst)
{
    return inst->iceState == ICELIB_MANGLED && !VerifyIceSupport(inst, inst->remoteIceMedia, false, true);
}

template <class P>
bool Agent<P>::Start(Inst* inst, bool controlling, uint64_t tieBreaker)
{
    if (!VerifyIceSupport(inst, inst->remoteIceMedia, false, false)) {
        SetState(inst, ICELIB_MANGLED);
        Log(inst, ICELIB_logError, "Remote Media mangling detected");
        return false;
    }
    if (!VerifyIceSupport(inst, inst->localIceMedia, true, false)) {
        SetState(inst, ICELIB_MANGLED);
        Log(inst, ICELIB_logError, "Local Media mangling detected");
        return false;
    }
    inst->iceSupportVerified = true;
    EliminateAllRedundant(inst);
    inst->iceControlling = controlling;
    inst->iceControlled = !controlling;
    MakeAllCheckLists(inst);
    PasswordUpdate(inst);
    inst->tieBreaker = tieBreaker;
    inst->tickCount = 0;
    inst->keepAliveTickCount = 0;
    SetState(inst, ICELIB_RUNNING);
    return true;
}

template <class P>
void Agent<P>::Stop(Inst* inst)
{
    for (uint32_t i = 0; i < inst->numberOfMediaStreams; ++i) {
        Ctrl* ctrl = &inst->streamControllers[i];
        StopChecks(inst, ctrl);
        ctrl->checkList.checkListStopped = 1;
        FifoClear(&ctrl->triggeredChecksFifo);
    }
}

template <class P>
void Agent<P>::ReStart(Inst* inst, uint64_t tieBreaker)
{
    inst->tieBreaker = tieBreaker;
    inst->tickCount = 0;
    inst->keepAliveTickCount = 0;
    inst->roleHasSwapped = false;
    inst->iceControlling = false;
    inst->iceControlled = false;
    inst->iceSupportVerified = false;
    std::memset(static_cast<void*>(inst->streamControllers), 0, sizeof inst->streamControllers);
    inst->numberOfMediaStreams = 0;
    inst->roundRobinCheckListIndex = 0;
    std::memset(static_cast<void*>(&inst->localIceMedia), 0, sizeof inst->localIceMedia);
    std::memset(static_cast<void*>(&inst->remoteIceMedia), 0, sizeof inst->remoteIceMedia);
    inst->iceState = ICELIB_IDLE;
}

template <class P>
void Agent<P>::PasswordUpdate(Inst* inst)
{
    if (inst->callbacks.passwordUpdate == nullptr) return;
    for (uint32_t i = 0; i < Lines(inst->localIceMedia); ++i) {
        const ICE_MEDIA_STREAM& s = inst->localIceMedia.mediaStream[i];
        inst->callbacks.passwordUpdate(inst->callbacks.passwordUpdateUserData, s.userValue1, s.userValue2, s.passwd);
    }
}

template <class P>
bool Agent<P>::IsRestart(Inst* inst, uint32_t mediaIdx, const char* ufrag, const char* passwd)
{
    if (mediaIdx >= Lines(inst->remoteIceMedia) ||
        inst->remoteIceMedia.mediaStream[mediaIdx].ufrag[0] == '\0') {
        Log(inst, ICELIB_logDebug, "<ICELIB> Checking invalid medialine\n");
        return false;
    }
    const ICE_MEDIA_STREAM& s = inst->remoteIceMedia.mediaStream[mediaIdx];
    return std::strcmp(s.ufrag, ufrag != nullptr ? ufrag : "") != 0 ||
           std::strcmp(s.passwd, passwd != nullptr ? passwd : "") != 0;
}

template <class P>
void Agent<P>::Tick(Inst* inst)
{
    if (!inst->iceSupportVerified) return;
    if constexpr (kZyn<P>) UpdateReadyToNominateWeighting(inst);
    ++inst->tickCount;
    if (!inst->iceConfiguration.iceLite) TickStreamController(inst);  // a lite agent never checks
    if (inst->iceState == ICELIB_RUNNING) {
        ConcludeIfComplete(inst);
        UpdatingStates(inst);
    } else if (inst->iceState == ICELIB_COMPLETED) {
        if constexpr (!kZyn<P>) DoKeepAlive(inst);
    }
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
