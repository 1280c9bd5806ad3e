// Process-wide services beside the connections: proxy settings, call information, descriptions of
// the machine, the main thread's heartbeat. Any thread unless noted.
#pragma once

#include <stdint.h>

#include <vector>

#include "mediasession/ZynDefines.h"

class IZynVideoRender;

// Asked when a proxy wants credentials the library does not have.
class IProxyCredentialSink {
public:
    virtual ~IProxyCredentialSink() = default;
    // description split into its parts: the proxy's host and port, its scheme and realm.
    virtual void OnProxyCredentialRequired(const char* host, unsigned short port, const char* scheme,
                                           const char* realm) = 0;
};

// The same question for an application that only wants to hear that one was asked.
class IProxyConfigSink {
public:
    virtual ~IProxyConfigSink() = default;
    virtual void OnProxyCredentialNeeded(int type, const char* description) = 0;
};

// What an application tells the library about the call; size must be sizeof (132).
struct _tagZynCallInfo {
    uint32_t size;
    char meetingId[64];
    char siteName[64];
};

struct _tagZynCpuDescription {
    char brand[256];
    uint32_t frequencyMHz;
    uint32_t cores;  // logical
    char architecture[32];
};

struct _tagZynGpuDescription {
    char name[256];
    uint64_t memoryBytes;  // 0 when unknown
};

// Highest video quality the machine may handle, from its static performance table.
enum ZynVideoPerformance : int32_t {
    ZynVideoPerformance_180p = 0,
    ZynVideoPerformance_360p = 1,
    ZynVideoPerformance_720p = 2,
    ZynVideoPerformance_1080p = 3,
};

extern "C" {

// The proxy for a URL as "host:port". *length in: the buffer's capacity, at most 1024 (a larger one
// answers 0 and copies nothing); out: the length copied. An empty answer (direct) gives 0 with
// the buffer untouched.
ZYN_API ZynResult GetProxyConfigure(const char* url, char* buffer, unsigned int* length);
ZYN_API ZynResult ReloadProxy();
ZYN_API ZynResult SetProxyUsernamePassword(const char* host, unsigned short port, const char* user,
                                           const char* password);
// true lets the proxy layer ask the system for credentials before asking the application.
ZYN_API void AllowProxyGetSystemCredential(bool allow);
ZYN_API void SetProxyConfigSink(IProxyConfigSink* sink);
ZYN_API void SetProxyCredentialSink(IProxyCredentialSink* sink);
// Both lists as SetProxyList reads them: "scheme=host:port" or "host:port" entries, and hosts to bypass.
ZYN_API ZynResult SetProxyConfigList(const char* proxies, unsigned int proxiesLength, const char* bypass,
                                     unsigned int bypassLength);

// Hands the record to every connection of the call (callId in decimal). ZYN_E_FAIL for a null
// argument or a record of another size.
ZYN_API ZynResult SetMediaCallInfo(const char* callId, const _tagZynCallInfo* info);
ZYN_API ZynResult SetAudioMode(int mode);
// A renderer of the engine for the window (one reference for the caller). ZYN_E_INVALIDARG for no
// window, ZYN_E_POINTER for no out.
ZYN_API ZynResult CreateVideoRender(void* window, IZynVideoRender** out);

ZYN_API ZynResult GetCpuDescription(_tagZynCpuDescription* description);

// Proves the main thread still turns: each call posts a beat that the main thread runs, and a beat
// still waiting at the next call is traced as a stalled main thread. After the engine ended it only
// counts and traces.
ZYN_API void DoThreadHeartBeat();

// What this machine may send (isReceive false) or receive on a line of the type.
ZYN_API ZynVideoPerformance GetStaticPerformance(bool isReceive, ZynSessionType type);
ZYN_API bool CheckHWAccelerationForVideoEncode();

// Kept for applications built against the full export list: each answers ZYN_E_FAIL.
ZYN_API ZynResult StartProximity();
ZYN_API ZynResult StopProximity();
ZYN_API ZynResult StartProximityRZSS();
ZYN_API ZynResult StopProximityRZSS();
ZYN_API ZynResult StartProximityBoth();
ZYN_API ZynResult StopProximityBoth();
ZYN_API ZynResult GetExclusiveModeAPPName();
ZYN_API ZynResult ZynSetFIPSMode();
ZYN_API ZynResult SetProximityCallId(const char* callId);

}  // extern "C"

// One record per display adapter, appended. ZYN_E_FAIL when the names and sizes disagree.
ZYN_API ZynResult GetGpuDescription(std::vector<_tagZynGpuDescription>& out);
