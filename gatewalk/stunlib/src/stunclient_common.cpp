// Profile-independent pieces of the STUN transaction client: printing, names, address conversions
// and counters.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>

#include "sockaddr_util.h"
#include "stunclient_internal.h"
#include "stunlib_common.h"

namespace gatewalk {

void StunPrint(void* userData, STUN_INFO_FUNC_PTR logPtr, StunInfoCategory_T category, const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    stunclient::StunVPrint(userData, logPtr, category, fmt, args);
    va_end(args);
}

}  // namespace gatewalk

namespace gatewalk::stunclient {

void StunVPrint(void* userData, STUN_INFO_FUNC_PTR logPtr, StunInfoCategory_T category, const char* fmt,
                va_list args)
{
    if (logPtr == nullptr || fmt == nullptr) return;
    char text[256];
    std::vsnprintf(text, sizeof text, fmt, args);
    logPtr(userData, category, text);
}

const char* SignalName(Sig sig)
{
    static constexpr const char* kNames[] = {"BindReq",         "BindResp", "BindRespError", "TimerTick",
                                             "TimerRetransmit", "ICMPResp", "DeAllocate",    "Cancel"};
    const int i = static_cast<int>(sig);
    return i >= 0 && i < static_cast<int>(sizeof kNames / sizeof kNames[0]) ? kNames[i] : "UnknownSignal";
}

const char* StateName(int state)
{
    static constexpr const char* kNames[] = {"Idle", "WaitBindResp", "Cancelled"};
    return state >= 0 && state < 3 ? kNames[state] : "UnknownState";
}

void ToSockaddr(const StunIPAddress& address, sockaddr_storage* out) { stunlib_stunAddressToSockaddr(&address, out); }

bool FromSockaddr(const sockaddr* address, StunIPAddress* out) { return stunlib_sockaddrToStunAddress(address, out); }

void CopyAddr(sockaddr_storage* destination, const sockaddr* source)
{
    sockaddr_reset(destination);
    if (source != nullptr && sockaddr_isSet(source)) sockaddr_copy(reinterpret_cast<sockaddr*>(destination), source);
}

const char* AddrText(const sockaddr_storage& address, char* buffer, size_t length)
{
    const char* text = sockaddr_toString(reinterpret_cast<const sockaddr*>(&address), buffer, length, true);
    return text != nullptr ? text : "(unset)";
}

bool isTimeExceeded(uint32_t icmpType, int family)
{
    return (family == AF_INET && icmpType == 11) || (family == AF_INET6 && icmpType == 3);
}

bool isDstUnreachable(uint32_t icmpType, int family)
{
    return (family == AF_INET && icmpType == 3) || (family == AF_INET6 && icmpType == 1);
}

namespace {

struct Counter {
    const char* name;
    uint32_t StunClientStats::*field;
};

constexpr Counter kCounters[] = {
    {"InProgress", &StunClientStats::InProgress},
    {"BindReqSent", &StunClientStats::BindReqSent},
    {"BindRespReceived", &StunClientStats::BindRespReceived},
    {"BindRespReceived_Cancelled", &StunClientStats::BindRespReceived_Cancelled},
    {"BindRespReceived_Idle", &StunClientStats::BindRespReceived_Idle},
    {"BindRespErrReceived", &StunClientStats::BindRespErrReceived},
    {"ICMPReceived", &StunClientStats::ICMPReceived},
    {"BindReqReceived", &StunClientStats::BindReqReceived},
    {"BindReqReceived_ViaRelay", &StunClientStats::BindReqReceived_ViaRelay},
    {"BindRespSent", &StunClientStats::BindRespSent},
    {"Retransmits", &StunClientStats::Retransmits},
    {"Failures", &StunClientStats::Failures},
};

}  // namespace

void AddStats(StunClientStats& sum, const StunClientStats& part)
{
    for (const Counter& c : kCounters) sum.*c.field += part.*c.field;
}

void PrintStats(const StunClientStats& sum, STUN_INFO_FUNC_PTR logPtr, void* userData)
{
    for (const Counter& c : kCounters) {
        StunPrint(userData, logPtr, StunInfoCategory_Info, "<STUNCLIENT> %s: %u", c.name, sum.*c.field);
    }
}

void ClearCounters(StunClientStats& stats)
{
    const uint32_t inProgress = stats.InProgress;
    std::memset(&stats, 0, sizeof stats);
    stats.InProgress = inProgress;
}

}  // namespace gatewalk::stunclient
