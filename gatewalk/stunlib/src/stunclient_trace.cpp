// Hop-by-hop path trace over STUN Binding transactions (qlox_gatewalk): requests of rising TTL, each
// answered by an ICMP time-exceeded from a router, by silence, or by the server itself.
//
// A trace first probes at the largest TTL to learn whether the far end answers at all (the answer, or
// a destination-unreachable, marks the path as discovered); then it walks up from TTL 1. Hops that
// stayed silent are skipped on the way up; a run of silent hops on an undiscovered path is taken as
// the end of what can be learnt.
#include <cstdlib>
#include <cstring>

#include "sockaddr_util.h"
#include "stunclient_internal.h"
#include "stunclient_qlox.h"

namespace qlox_gatewalk {

namespace {

using gatewalk::stunclient::CopyAddr;
using gatewalk::stunclient::isDstUnreachable;
using gatewalk::stunclient::isTimeExceeded;

// Silent hops in a row (ended by one that is not) after which an undiscovered path is given up:
// routers that drop TTL-expired packets rarely come four in a row before a filtering firewall.
constexpr int kSilentRunLimit = 4;
constexpr int kInitialPathLength = 255;

void SendAtCurrentTTL(hiutResult& r, bool freshId)
{
    if (freshId) stunlib_createId(&r.attributes.transactionId, stunlib_randomDraw(), 1);
    StunClient_startSTUNTrace(r.client, &r, reinterpret_cast<const sockaddr*>(&r.serverAddr),
                              reinterpret_cast<const sockaddr*>(&r.baseAddr), false,
                              static_cast<unsigned char>(r.currentTTL), &r.attributes, r.sendFunc, StunStatusCallBack);
}

void sendCallback(hiutResult& r, const sockaddr* address, int hop, const StunCallBackData_T& data, bool done)
{
    StunTraceCallBackData_T out;
    std::memset(static_cast<void*>(&out), 0, sizeof out);
    CopyAddr(&out.address, address);
    out.hop = hop;
    out.rtt = data.rtt;
    out.retransmits = data.retransmits;
    out.traceNumber = r.traceNumber;
    out.done = done;
    out.allDone = done && r.traceNumber >= r.numberOfTraces;
    if (r.traceCallback != nullptr) r.traceCallback(r.userCtx, &out);
}

// Longest run of silent hops among 0..39 that a hop with an answer (or never tried) ends.
int numConcecutiveInactiveNodes(const hiutResult& r)
{
    int longest = 0;
    int run = 0;
    for (int i = 0; i < STUNTRACE_MAX_TTL; ++i) {
        if (r.pathElement[i].noAnswer) {
            ++run;
        } else {
            if (run > longest) longest = run;
            run = 0;
        }
    }
    return longest;
}

void resartIfNotDone(hiutResult& r)
{
    if (r.traceNumber >= r.numberOfTraces) return;
    ++r.traceNumber;
    r.currentTTL = 1;
    for (hiutPathElement& e : r.pathElement) e.gotAnswer = false;
    SendAtCurrentTTL(r, false);
}

// Next TTL to try: one up, past hops known to stay silent, not beyond the known path length.
void StepToNextHop(hiutResult& r)
{
    ++r.currentTTL;
    while (r.currentTTL < r.pathLength && r.currentTTL < r.maxTTL && r.pathElement[r.currentTTL].noAnswer) {
        ++r.currentTTL;
    }
}

void handleStunNoAnswer(hiutResult& r, const StunCallBackData_T& data)
{
    const int ttl = r.currentTTL;
    r.pathElement[ttl].noAnswer = true;
    if (ttl == r.maxTTL) {
        // The far end does not answer: the walk up from TTL 1 has to find where the path stops.
        r.pathDiscovered = false;
        r.currentTTL = 1;
        SendAtCurrentTTL(r, true);
        return;
    }
    if (numConcecutiveInactiveNodes(r) >= kSilentRunLimit && !r.pathDiscovered) {
        r.pathLength = ttl - kSilentRunLimit;
        sendCallback(r, nullptr, ttl, data, true);
        resartIfNotDone(r);
        return;
    }
    sendCallback(r, nullptr, ttl, data, false);
    if (ttl >= r.maxTTL) return;
    StepToNextHop(r);
    if (r.currentTTL > r.pathLength) {
        resartIfNotDone(r);
        return;
    }
    SendAtCurrentTTL(r, true);
}

void handleStunRespIcmp(hiutResult& r, const StunCallBackData_T& data)
{
    const int ttl = r.currentTTL;
    const int family = data.srcAddr.ss_family;
    const auto* source = reinterpret_cast<const sockaddr*>(&data.srcAddr);
    if (ttl == r.maxTTL && isDstUnreachable(data.ICMPtype, family)) {
        r.pathDiscovered = true;
        r.currentTTL = 1;
        SendAtCurrentTTL(r, true);
        return;
    }
    if (isTimeExceeded(data.ICMPtype, family)) {
        if (ttl < r.maxTTL - 1) {
            StepToNextHop(r);
            if (r.currentTTL <= r.pathLength) {
                sendCallback(r, source, ttl, data, false);
                SendAtCurrentTTL(r, true);
                return;
            }
        }
        sendCallback(r, source, ttl, data, true);
        resartIfNotDone(r);
        return;
    }
    if (isDstUnreachable(data.ICMPtype, family) && ttl <= r.pathLength) {
        r.pathLength = ttl;
        sendCallback(r, source, ttl, data, true);
        resartIfNotDone(r);
    }
}

void handleStunRespSucsessfull(hiutResult& r, const StunCallBackData_T& data)
{
    const int ttl = r.currentTTL;
    const auto* source = reinterpret_cast<const sockaddr*>(&data.srcAddr);
    if (ttl == r.maxTTL) {
        r.pathDiscovered = true;
        r.currentTTL = 1;
        SendAtCurrentTTL(r, true);
        return;
    }
    if (sockaddr_alike(source, reinterpret_cast<const sockaddr*>(&r.serverAddr)) && ttl <= r.pathLength) {
        r.pathLength = ttl;
        sendCallback(r, source, ttl, data, true);
        resartIfNotDone(r);
    }
}

void CopyText(char* destination, size_t size, const char* source)
{
    destination[0] = '\0';
    if (source == nullptr) return;
    const size_t n = strnlen(source, size - 1);
    std::memcpy(destination, source, n);
    destination[n] = '\0';
}

}  // namespace

void StunStatusCallBack(void* userCtx, StunCallBackData_T* data)
{
    if (userCtx == nullptr || data == nullptr) return;
    hiutResult& r = *static_cast<hiutResult*>(userCtx);
    if (data->ttl <= static_cast<uint32_t>(STUNTRACE_MAX_TTL)) r.pathElement[data->ttl].gotAnswer = true;
    switch (data->stunResult) {
    case StunResult_BindFailNoAnswer: handleStunNoAnswer(r, *data); break;
    case StunResult_ICMPResp: handleStunRespIcmp(r, *data); break;
    case StunResult_BindOk: handleStunRespSucsessfull(r, *data); break;
    default: break;
    }
}

bool StunTrace_startTrace(STUN_CLIENT_DATA* client, void* userCtx, const sockaddr* serverAddr,
                          const sockaddr* baseAddr, uint32_t connectionId, const char* username,
                          const char* password, uint32_t numberOfTraces, STUN_TRACECB traceCallback,
                          STUN_SENDFUNC sendFunc)
{
    if (client == nullptr || sendFunc == nullptr || serverAddr == nullptr) return false;
    hiutResult& r = client->traceResult;
    std::memset(static_cast<void*>(&r), 0, sizeof r);
    r.client = client;
    r.userCtx = userCtx;
    r.sendFunc = sendFunc;
    r.traceCallback = traceCallback;
    r.numberOfTraces = numberOfTraces;
    r.maxTTL = STUNTRACE_MAX_TTL;
    r.pathLength = kInitialPathLength;
    r.traceNumber = 1;
    CopyAddr(&r.serverAddr, serverAddr);
    CopyAddr(&r.baseAddr, baseAddr);
    r.attributes.connectionId = connectionId;
    CopyText(r.attributes.username, sizeof r.attributes.username, username);
    CopyText(r.attributes.password, sizeof r.attributes.password, password);
    // First ask the far end directly, with the largest TTL.
    r.currentTTL = r.maxTTL;
    SendAtCurrentTTL(r, true);
    return true;
}

}  // namespace qlox_gatewalk
