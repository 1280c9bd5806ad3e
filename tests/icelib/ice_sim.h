// An in-memory network between two endpoints, driven by ICELIB_Tick only: a step ticks both agents,
// runs the connectors' retransmissions, then delivers every queued packet (and what those produce)
// at once. It can rewrite a source like a NAT, make addresses unreachable and drop by a test's rule.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ice_wire.h"

namespace icetest {

struct Packet {
    int from;
    uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
    uint32_t length;
    sockaddr_storage source, destination;
    bool IsRequest() const { return length >= 20 && bytes[0] == 0 && bytes[1] == 1; }
    StunMsgId Id() const
    {
        StunMsgId id;
        std::memcpy(id.octet, bytes + 8, sizeof id.octet);
        return id;
    }
};

constexpr int kMaxQueue = 256;
constexpr int kMaxChecks = 512;
constexpr int kMaxAddrs = 32;

template <class T>
struct SimNet {
    Endpoint<T> ep[2];
    Packet queue[kMaxQueue];
    int head = 0, count = 0, tick = 0;
    bool hold = false;  // nothing is delivered while set
    sockaddr_storage addrs[2][kMaxAddrs];  // what each endpoint receives on
    int nAddrs[2] = {0, 0};
    bool natOn = false;
    sockaddr_storage natInside, natOutside, unreachable[8];
    int nUnreachable = 0;
    bool (*drop)(void* ctx, const Packet& packet) = nullptr;  // true drops it
    void* dropCtx = nullptr;
    int dropped = 0;
    WireCheck checks[kMaxChecks];  // every request delivered, in order
    int nChecks = 0;

    void Init(typename T::Inst* a, typename T::Inst* b, const typename T::Config& config)
    {
        InitOne(0, a, config);
        InitOne(1, b, config);
    }

    void InitOne(int e, typename T::Inst* inst, const typename T::Config& config)
    {
        ep[e].Init(inst, e, &config);
        ep[e].send = &Send;
        ep[e].sendCtx = this;
        ep[e].now = &tick;
    }

    static void Send(void* ctx, int from, const uint8_t* bytes, uint32_t length, const sockaddr* source,
                     const sockaddr* destination)
    {
        auto* self = static_cast<SimNet*>(ctx);
        if (self->count >= kMaxQueue) std::abort();
        Packet& p = self->queue[(self->head + self->count++) % kMaxQueue];
        p.from = from;
        std::memcpy(p.bytes, bytes, length);
        p.length = length;
        gatewalk::sockaddr_copy(Sa(p.source), source);
        gatewalk::sockaddr_copy(Sa(p.destination), destination);
    }

    int AddStream(int e, int streamId)
    {
        return T::AddLocalMediaStream(ep[e].inst, streamId, 0, 0, gatewalk::ICE_CAND_TYPE_HOST);
    }

    int AddCandidate(int e, int media, const char* ip, uint16_t port, uint32_t componentId, uint16_t localPref = 65535,
                     gatewalk::ICE_CANDIDATE_TYPE type = gatewalk::ICE_CAND_TYPE_HOST, const char* baseIp = nullptr)
    {
        const sockaddr_storage a = Addr(ip, port);
        const sockaddr_storage base = baseIp != nullptr ? Addr(baseIp, port) : sockaddr_storage{};
        // Only what the endpoint owns receives; a reflexive address reaches it through its base.
        if (type == gatewalk::ICE_CAND_TYPE_HOST || type == gatewalk::ICE_CAND_TYPE_RELAY) addrs[e][nAddrs[e]++] = a;
        return T::AddLocalCandidate(ep[e].inst, static_cast<uint32_t>(media), componentId, Sa(a), Sa(base),
                                    gatewalk::ICE_TRANS_UDP, type, localPref);
    }

    // Gives each side's local streams and candidates to the other, as signalling would.
    void Exchange()
    {
        for (int e = 0; e < 2; ++e) {
            for (uint32_t m = 0; m < T::kMaxMediaLines; ++m) {
                const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(ep[e].inst, m);
                if (s == nullptr) break;
                // A line without candidates still has an address in its m line.
                const sockaddr_storage def =
                    gatewalk::sockaddr_isSet(Sa(s->defaultAddr)) ? s->defaultAddr : Addr("192.0.2.254", 9);
                const int idx = T::AddRemoteMediaStream(ep[1 - e].inst, s->streamId, s->ufrag, s->passwd, Sa(def));
                for (uint32_t c = 0; c < s->numberOfCandidates; ++c) {
                    const gatewalk::ICE_CANDIDATE& k = s->candidate[c];
                    char text[64];
                    gatewalk::sockaddr_toString(Sa(k.connectionAddr), text, sizeof text, false);
                    T::AddRemoteCandidate(ep[1 - e].inst, static_cast<uint32_t>(idx), k.foundation, k.componentid,
                                          k.priority, text, static_cast<uint16_t>(gatewalk::sockaddr_ipPort(Sa(k.connectionAddr))),
                                          k.transport, k.type);
                }
            }
        }
    }

    void Start(int e, bool controlling, uint64_t tieBreaker) { ep[e].started = T::Start(ep[e].inst, controlling, tieBreaker); }

    void Step()
    {
        ++tick;
        for (Endpoint<T>& e : ep) {
            if (e.echoOnly || !e.started) continue;
            T::Tick(e.inst);
            e.Retransmit();
        }
        for (int guard = 0; !hold && count > 0 && guard < 4 * kMaxQueue; ++guard) {
            Packet& p = queue[head];
            head = (head + 1) % kMaxQueue;
            --count;
            Deliver(p);
        }
    }

    void Deliver(Packet& p)
    {
        // Reachability is judged on the address the sender used, before any translation.
        for (int i = 0; i < nUnreachable; ++i) {
            if (gatewalk::sockaddr_alike(Sa(p.destination), Sa(unreachable[i]))) return void(++dropped);
        }
        if (natOn && gatewalk::sockaddr_alike(Sa(p.source), Sa(natInside))) p.source = natOutside;
        if (natOn && gatewalk::sockaddr_alike(Sa(p.destination), Sa(natOutside))) p.destination = natInside;
        int to = -1;
        for (int e = 0; e < 2; ++e) {
            for (int i = 0; i < nAddrs[e]; ++i) {
                if (gatewalk::sockaddr_alike(Sa(addrs[e][i]), Sa(p.destination))) to = e;
            }
        }
        if (to < 0 || (drop != nullptr && drop(dropCtx, p))) return void(++dropped);
        WireCheck* seen = p.IsRequest() && nChecks < kMaxChecks ? &checks[nChecks++] : nullptr;
        if (seen != nullptr) seen->from = p.from;
        ep[to].Receive(p.bytes, p.length, Sa(p.source), Sa(p.destination), seen);
    }

    // Steps until both ends told their end (a bare responder never does), at most maxSteps.
    bool Run(int maxSteps)
    {
        for (int i = 0; i < maxSteps; ++i) {
            Step();
            if ((ep[0].echoOnly || ep[0].completeCalls > 0) && (ep[1].echoOnly || ep[1].completeCalls > 0)) return true;
        }
        for (int e = 0; std::getenv("ICE_TEST_LOGS") != nullptr && e < 2; ++e) {
            for (int i = 0; i < ep[e].logCount; ++i) std::printf("[%c] %s\n", 'A' + e, ep[e].logs[i]);
        }
        return false;
    }
};

}  // namespace icetest
