// Runs on the STUN trace's thread (or a test's).
#include "diag/StunTraceProbe.h"

#include <cstdio>
#include <cstring>

#include "icelib.h"
#include "stunlib.h"
#include "util/CmTrace.h"

namespace {

namespace z = zyn_gatewalk;

constexpr const char* kSoftware = "vorta zyn STUNTRACE";

struct SentProbe {
    gatewalk::StunMsgId id;
    int ttl;
    uint64_t sentUs;
};

double ElapsedMs(uint64_t fromUs, uint64_t toUs) { return toUs > fromUs ? static_cast<double>(toUs - fromUs) / 1000.0 : 0.0; }

const SentProbe* FindProbe(const std::vector<SentProbe>& sent, const gatewalk::StunMsgId& id)
{
    for (const auto& p : sent)
        if (memcmp(p.id.octet, id.octet, sizeof(id.octet)) == 0) return &p;
    return nullptr;
}

// The target answered one of our probes: the trace towards it is done.
void Reached(StunTraceNodeResult& out, const std::string& type, const SentProbe& probe, const StunTraceEvent& ev)
{
    const double rtt = ElapsedMs(probe.sentUs, ev.atUs);
    CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, MS_MODULE,
                    " - " << " [TTL " << probe.ttl << "] " << rtt << " ms. " << "Stun " << ev.from.ToString()
                          << " response received.");
    out.hops.push_back(TraceHop{type, probe.ttl, TraceHopResult::Success, -1, -1, ev.from.GetIpDisplayName(), rtt});
    out.ret = 0;
    out.rttMs = rtt;
    out.hasMapped = ev.hasMapped;
    out.mapped = ev.mapped;
}

bool SameHost(const CCmInetAddr& a, const CCmInetAddr& b)
{
    CCmInetAddr x = a, y = b;
    x.SetPort(0);
    y.SetPort(0);
    return x == y;
}

}  // namespace

const char* TraceHopResultText(TraceHopResult result)
{
    switch (result) {
    case TraceHopResult::ServerUnreachable: return "server_unreachable";
    case TraceHopResult::PathUnreachable: return "path_unreachable";
    case TraceHopResult::Success: return "success";
    case TraceHopResult::Error: return "error";
    case TraceHopResult::Unspec: break;
    }
    return "UNSPEC";
}

IcmpMeaning ClassifyIcmp(int family, int type)
{
    const bool v6 = family == AF_INET6;
    if (type == (v6 ? 3 : 11)) return IcmpMeaning::Hop;
    if (type == (v6 ? 1 : 3)) return IcmpMeaning::Unreachable;
    return IcmpMeaning::Other;
}

size_t EncodeTraceRequest(const gatewalk::StunMsgId& id, int ttl, uint8_t* buffer, size_t length)
{
    z::StunMessage message;
    memset(&message, 0, sizeof(message));
    message.msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
    message.msgHdr.id = id;
    z::stunlib_addSoftware(&message, kSoftware, ' ');
    char ttlText[16];
    snprintf(ttlText, sizeof(ttlText), "%.4i", ttl);
    z::stunlib_addTTLString(&message, ttlText, ' ');
    return z::stunlib_encodeMessage(&message, buffer, static_cast<unsigned int>(length), nullptr, 0, nullptr);
}

StunTraceNodeResult ProbeTarget(IStunTraceSocket& socket, const CCmInetAddr& target, const std::string& type,
                                const StunTraceSettings& settings, const std::atomic<bool>& stopRequested)
{
    StunTraceNodeResult out;
    std::vector<SentProbe> sent;
    const uint64_t gapUs = 1000000ull / static_cast<uint64_t>(settings.probesPerSecond > 0 ? settings.probesPerSecond : 1);
    const uint64_t waitUs = static_cast<uint64_t>(settings.probeWaitMs > 0 ? settings.probeWaitMs : 1) * 1000;
    uint64_t nextSendUs = socket.NowUs();
    int silent = 0;

    for (int ttl = 1; ttl <= settings.maxTtl; ++ttl) {
        // Keep the pace, but a late answer to an earlier probe still counts while we wait for the slot.
        StunTraceEvent late;
        while (socket.NowUs() < nextSendUs) {
            late = socket.Wait(nextSendUs);
            if (late.kind == StunTraceEvent::TIMEOUT) break;
            if (late.kind == StunTraceEvent::STOPPED) break;
            if (late.kind == StunTraceEvent::STUN_RESPONSE && FindProbe(sent, late.id)) break;
        }
        if (stopRequested.load() || late.kind == StunTraceEvent::STOPPED) {
            out.ret = kStunTraceStopped;
            return out;
        }
        if (late.kind == StunTraceEvent::STUN_RESPONSE) {
            Reached(out, type, *FindProbe(sent, late.id), late);
            return out;
        }

        SentProbe probe{zyn_gatewalk::ICELIB_generateTransactionId(), ttl, 0};
        uint8_t request[256];
        const size_t length = EncodeTraceRequest(probe.id, ttl, request, sizeof(request));
        if (socket.SetTtl(ttl) != CM_OK) {
            CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE, "StunTrace - error setting socket options - ttl=" << ttl);
            out.hops.push_back(TraceHop{type, ttl, TraceHopResult::Error, -1, -1, "", -1});
            out.ret = -1;
            return out;
        }
        probe.sentUs = socket.NowUs();
        const int sendError = length ? socket.Send(request, length) : EINVAL;
        if (sendError != 0) {
            CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE,
                            "StunTrace - error doing sendto - " << strerror(sendError) << ", ttl=" << ttl);
            out.hops.push_back(TraceHop{type, ttl, TraceHopResult::Error, -1, -1, "", -1});
            out.ret = -1;
            return out;
        }
        sent.push_back(probe);
        nextSendUs = probe.sentUs + gapUs;
        CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, MS_MODULE,
                        " - " << " from:" << socket.GetLocalAddr().ToString() << " to:" << target.ToString() << " [TTL " << ttl << "]");

        const uint64_t deadline = probe.sentUs + waitUs;
        bool answered = false;
        while (!answered) {
            const StunTraceEvent ev = socket.Wait(deadline);
            if (ev.kind == StunTraceEvent::TIMEOUT) break;
            if (ev.kind == StunTraceEvent::STOPPED) {
                out.ret = kStunTraceStopped;
                return out;
            }
            if (ev.kind == StunTraceEvent::LOCAL_ERROR) {
                CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE,
                                "StunTrace - Error flag was set in sendsocket. errno=" << ev.error);
                out.hops.push_back(TraceHop{type, ttl, TraceHopResult::Error, -1, -1, "", -1});
                out.ret = -1;
                return out;
            }
            const SentProbe* p = ev.idKnown ? FindProbe(sent, ev.id) : &sent.back();
            if (!p) continue;  // not ours, or not about a probe of this target
            if (ev.kind == StunTraceEvent::STUN_RESPONSE) {
                Reached(out, type, *p, ev);
                return out;
            }
            if (ev.kind != StunTraceEvent::ICMP_ERROR || p->ttl != ttl) continue;  // a late word on an earlier hop
            const IcmpMeaning meaning = ClassifyIcmp(target.GetType(), ev.icmpType);
            if (meaning == IcmpMeaning::Other) continue;
            const double rtt = ElapsedMs(p->sentUs, ev.atUs);
            TraceHop hop{type, ttl, TraceHopResult::Unspec, ev.icmpType, ev.icmpCode, ev.from.GetIpDisplayName(), rtt};
            CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, MS_MODULE,
                            " - " << " [TTL " << ttl << "] " << rtt << " ms. " << "ICMP " << ev.icmpType << "/"
                                  << ev.icmpCode << " from " << hop.dest);
            if (meaning == IcmpMeaning::Unreachable) {
                hop.result = SameHost(ev.from, target) ? TraceHopResult::ServerUnreachable : TraceHopResult::PathUnreachable;
                out.hops.push_back(hop);
                out.ret = 1;
                return out;
            }
            out.hops.push_back(hop);
            answered = true;
        }
        if (answered) {
            silent = 0;
            continue;
        }
        out.hops.push_back(TraceHop{type, ttl, TraceHopResult::Unspec, -1, -1, "*", -1});
        if (++silent >= settings.silentHopLimit) {
            CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, MS_MODULE,
                            " - " << silent << " hops without an answer, the trace towards " << target.ToString() << " ends");
            break;
        }
    }
    out.ret = 1;
    return out;
}
