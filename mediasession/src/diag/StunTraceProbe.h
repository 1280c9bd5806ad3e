// The route trace's probing of one target, apart from sockets and clocks: Binding requests with a
// rising TTL go out through an IStunTraceSocket, and what comes back (a STUN response, an ICMP error
// read from the socket's error queue, nothing) decides the hop's entry and when the trace ends.
// Time comes from the socket's events and its clock, so tests drive it with a fake socket.
//
// No thread of its own: it runs on the caller's (the STUN trace's thread).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "stunlib_types.h"
#include "tp/CmDefines.h"
#include "tp/CmInetAddr.h"

// Limits of one trace; a trace ends at whichever it meets first.
struct StunTraceSettings {
    // Hops past this many routers are not looked at; common paths are under twenty.
    int maxTtl = 30;
    // This many hops in a row without an answer end the trace: the path goes dark there.
    int silentHopLimit = 4;
    // How long one probe waits for any answer. Routers answer in milliseconds; a full second
    // covers slow ICMP rate limits without making a dark path take minutes.
    int probeWaitMs = 1000;
    // The pace: at most this many probes a second (getNumOfStunTracePerSec of the connection).
    int probesPerSecond = 10;
};

// The outcome of one hop, with the texts of the result document.
enum class TraceHopResult { ServerUnreachable, PathUnreachable, Unspec, Success, Error };
const char* TraceHopResultText(TraceHopResult result);

struct TraceHop {
    std::string type;  // which target the probe was for: "server" or "mapped"
    int ttl = 0;
    TraceHopResult result = TraceHopResult::Unspec;
    int icmpType = -1;  // -1: no ICMP message
    int icmpCode = -1;
    std::string dest;   // who answered ("*": nobody)
    double rttMs = -1;  // -1: no answer
};

// One thing a wait on the socket brought.
struct StunTraceEvent {
    enum Kind { TIMEOUT, STUN_RESPONSE, ICMP_ERROR, LOCAL_ERROR, STOPPED, OTHER } kind = TIMEOUT;
    gatewalk::StunMsgId id{};        // the probe it concerns (STUN_RESPONSE, ICMP_ERROR)
    // False when an ICMP message quoted too little of our datagram to carry the id (routers may
    // quote only 8 bytes past the IP header): it is then taken to be about the latest probe.
    bool idKnown = true;
    CCmInetAddr from;      // responder, or the router that sent the ICMP message
    int icmpType = -1;
    int icmpCode = -1;
    CCmInetAddr mapped;    // XOR-MAPPED-ADDRESS of a response (port included), when it had one
    bool hasMapped = false;
    int error = 0;         // errno of a LOCAL_ERROR
    uint64_t atUs = 0;     // when it was read, on the socket's clock
};

class IStunTraceSocket {
public:
    virtual ~IStunTraceSocket() = default;
    virtual uint64_t NowUs() = 0;
    virtual CCmInetAddr GetLocalAddr() = 0;
    virtual CmResult SetTtl(int ttl) = 0;
    // errno on failure through the return value's sign: 0 sent, else the error number.
    virtual int Send(const uint8_t* data, size_t length) = 0;
    // The next event, or TIMEOUT once the clock reaches deadlineUs (STOPPED when asked to stop).
    virtual StunTraceEvent Wait(uint64_t deadlineUs) = 0;
};

// What probing one target gave. ret: 0 the target answered, 1 it did not (unreachable, or the
// limits ended the trace), -1 a local error, ~1 a stop request.
struct StunTraceNodeResult {
    int ret = 1;
    double rttMs = -1;
    bool hasMapped = false;
    CCmInetAddr mapped;
    std::vector<TraceHop> hops;
};
constexpr int kStunTraceStopped = ~1;

// Classifies an ICMP message by family: time exceeded (IPv4 type 11, IPv6 type 3) marks a router on
// the way; destination unreachable (IPv4 3, IPv6 1) ends the path, at the target itself when it
// came from the target's address. Other types are not about our probe's path.
enum class IcmpMeaning { Hop, Unreachable, Other };
IcmpMeaning ClassifyIcmp(int family, int type);

// A Binding request of the trace: SOFTWARE "vorta zyn STUNTRACE" and the TTL text ("%.4i"), a
// FINGERPRINT, no credentials. Returns its length, 0 when the buffer is too small.
size_t EncodeTraceRequest(const gatewalk::StunMsgId& id, int ttl, uint8_t* buffer, size_t length);

// Probes `target` ("server" or "mapped" as `type`) hop by hop through `socket` within `settings`.
// `stopRequested` is read before each probe.
StunTraceNodeResult ProbeTarget(IStunTraceSocket& socket, const CCmInetAddr& target, const std::string& type,
                                const StunTraceSettings& settings, const std::atomic<bool>& stopRequested);
