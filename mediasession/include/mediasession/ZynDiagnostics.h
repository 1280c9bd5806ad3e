// Network diagnostics an application can run before or beside a call: a route trace towards a
// STUN server, and a reachability test of media server clusters. Both report a JSON document
// through a sink.
#pragma once

#include "mediasession/ZynDefines.h"

// Hears the result of a route trace, on the trace's own thread, once per trace.
class IZynStunTraceSink {
public:
    virtual ~IZynStunTraceSink() = default;
    // result: ZYN_S_OK when the server answered, ZYN_E_FAIL otherwise. json: the result document
    // ("dest", "mapped", "ice", "networkType", "callId", "ret", "server_rtt", "mapped_rtt", "trace":
    // one entry per hop with "result", "icmp_type", "icmp_code", "dest", "type", "ttl", "rtt").
    virtual void OnStunTraceResult(ZynResult result, const char* json) = 0;
};

// Hears the result of a reachability test, on the test's network thread, once per run.
class IZynTraceServerSink {
public:
    virtual ~IZynTraceServerSink() = default;
    // isCompleted: every probe ended on its own (false when the run's time budget cut it short).
    // json: per cluster and transport ("udp", "tcp", "xtls") {"reachable": "true"|"false",
    // "latencyInMilliseconds": N}, and {"clusterUsability": {"usable": "true"|"false"}}.
    virtual void OnTraceServerResult(bool isCompleted, const char* json) = 0;
};

// What a route trace probes, and how.
struct _tagZynStunTraceParam {
    const char* serverHost = nullptr;    // name or numeric address of the STUN server
    unsigned short serverPort = 3478;
    const char* localAddress = nullptr;  // numeric; null: the route's own source address
    const char* mappedAddress = nullptr; // "ADDR:PORT" as the server saw us; null: learnt from its answer
    unsigned int callId = 0;
    bool iceSucceeded = false;           // how the ICE run that asks for the trace ended
    const char* networkType = nullptr;   // free text for the document ("wifi", "ethernet", ...)
    unsigned short portMin = 0;          // local ports to bind; 0 and 0: any
    unsigned short portMax = 0;
    int probesPerSecond = 0;             // pace; 0: 10 a second
    int maxTtl = 0;                      // 0: 30
    int probeWaitMs = 0;                 // wait for each probe's answer; 0: 1000
};

extern "C" {

// Starts a route trace on a thread of its own: probes with rising TTL towards the server, then
// towards the mapped address unless it is the local one. ZYN_E_WRONGSTATE while another trace runs,
// ZYN_E_INVALIDARG for a missing server or an unreadable address.
ZYN_API ZynResult StartStunTrace(const _tagZynStunTraceParam* param);
ZYN_API void SetStunTraceSink(IZynStunTraceSink* sink);

// Starts a reachability test of the cluster list in `text` (JSON, `length` bytes). Two forms:
//   {"clusters": {"NAME": ["URI", ...], ...}, "clusterClasses": {"CLASS": ["NAME", ...], ...}}
//   {"NAME": ["URI", ...], ...}
// with URIs "stun:HOST:PORT", "http://HOST:PORT/PATH", "https://HOST:PORT/PATH". ZYN_E_WRONGSTATE
// while a run goes on, ZYN_E_INVALIDARG for a text that is no cluster list.
ZYN_API ZynResult StartTraceServer(const char* text, long length);
// Ends a run; no result is reported for it.
ZYN_API ZynResult StopTraceServer();
// JSON object of options: "numStunTracePerSec" (probes started a second), "probeTimeoutMs",
// "totalTimeoutMs", "tlsVerifyPeer" (bool, default true), "tlsCaFile" (PEM path; default: the
// system's store), "dnsServers" ("ADDR:PORT,..."). Unknown keys are ignored.
ZYN_API ZynResult SetTraceServerOption(const char* text);
// Local ports the UDP probes bind within.
ZYN_API ZynResult SetTraceServerPortRange(unsigned short portMin, unsigned short portMax);
ZYN_API void SetTraceServerSink(IZynTraceServerSink* sink);
// The "usable" answer of the last finished run (false before the first).
ZYN_API bool IsLastTraceServerUsable();

}  // extern "C"
