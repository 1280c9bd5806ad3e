// Names of results, signals and states; log formatting; conversions between socket addresses and the
// codec's address values.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "sockaddr_util.h"
#include "turn_internal.h"

namespace gatewalk {

const char* TurnResultToStr(TurnResult_T result)
{
    switch (result) {
    case TurnResult_AllocOk: return "TurnResult_AllocOk";
    case TurnResult_AllocFail: return "TurnResult_AllocFail";
    case TurnResult_AllocFailNoAnswer: return "TurnResult_AllocFailNoAnswer";
    case TurnResult_AllocUnauthorised: return "TurnResult_AllocUnauthorised";
    case TurnResult_CreatePermissionOk: return "TurnResult_CreatePermissionOk";
    case TurnResult_CreatePermissionFail: return "TurnResult_CreatePermissionFail";
    case TurnResult_CreatePermissionNoAnswer: return "TurnResult_CreatePermissionNoAnswer";
    case TurnResult_CreatePermissionQuotaReached: return "TurnResult_CreatePermissionQuotaReached";
    case TurnResult_PermissionRefreshFail: return "TurnResult_PermissionRefreshFail";
    case TurnResult_ChanBindOk: return "TurnResult_ChanBindOk";
    case TurnResult_ChanBindFail: return "TurnResult_ChanBindFail";
    case TurnResult_ChanBindFailNoanswer: return "TurnResult_ChanBindFailNoanswer";
    case TurnResult_RefreshFail: return "TurnResult_RefreshFail";
    case TurnResult_RefreshFailNoAnswer: return "TurnResult_RefreshFailNoAnswer";
    case TurnResult_RelayReleaseComplete: return "TurnResult_RelayReleaseComplete";
    case TurnResult_RelayReleaseFailed: return "TurnResult_RelayReleaseFailed";
    case TurnResult_InternalError: return "TurnResult_InternalError";
    case TurnResult_MalformedRespWaitAlloc: return "TurnResult_MalformedRespWaitAlloc";
    default: return "unknown turnresult ??";
    }
}

const char* TurnSignalToStr(TURN_SIGNAL signal)
{
    static constexpr const char* kNames[] = {
        "AllocateReq",     "AllocateResp",         "AllocateRespError",   "CreatePermissionReq",
        "CreatePermissionResp", "CreatePermissionRespError", "ChannelBindReq", "ChannelBindResp",
        "ChannelBindRespError", "RefreshResp",     "RefreshRespError",    "TimerTick",
        "TimerRetransmit", "TimerRefreshAlloc",    "TimerRefreshChannel", "TimerRefreshPermission",
        "TimerStunKeepAlive", "DeAllocate"};
    auto i = static_cast<unsigned>(signal);
    return i < sizeof kNames / sizeof kNames[0] ? kNames[i] : "???";
}

const char* TurnStateToStr(TURN_STATE state)
{
    static constexpr const char* kNames[] = {"Idle",         "WaitAllocRespNotAut",  "WaitAllocResp",
                                             "Allocated",    "WaitAllocRefreshResp", "WaitChanBindResp",
                                             "WaitCreatePermResp", "WaitReleaseResp"};
    auto i = static_cast<unsigned>(state);
    return i < sizeof kNames / sizeof kNames[0] ? kNames[i] : "???";
}

namespace turn_detail {

void Logf(const TurnAllocateReqStruct& req, TurnInfoCategory_T category, const char* format, ...)
{
    if (req.logFunc == nullptr) return;
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    req.logFunc(req.userCtx, category, text);
}

const char* AddrText(const struct sockaddr* address, char (&out)[64])
{
    if (address == nullptr || sockaddr_toString(address, out, sizeof out, true) == nullptr) {
        std::snprintf(out, sizeof out, "-");
    }
    return out;
}

const char* AddrText(const struct sockaddr_storage& address, char (&out)[64]) { return AddrText(Sa(address), out); }

bool ToStunAddress(const struct sockaddr* address, StunIPAddress* out)
{
    return stunlib_sockaddrToStunAddress(address, out);
}

bool ToSockaddr(const StunIPAddress& address, struct sockaddr_storage* out)
{
    return stunlib_stunAddressToSockaddr(&address, out);
}

bool CopyAddress(struct sockaddr_storage* destination, const struct sockaddr* source)
{
    std::memset(destination, 0, sizeof *destination);
    if (source == nullptr || (source->sa_family != AF_INET && source->sa_family != AF_INET6)) return false;
    return sockaddr_copy(reinterpret_cast<struct sockaddr*>(destination), source);
}

}  // namespace turn_detail
}  // namespace gatewalk
