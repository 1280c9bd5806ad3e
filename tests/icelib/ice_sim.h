// An in-memory network between two endpoints, driven by ICELIB_Tick only: every step ticks both
// agents, runs the connectors' retransmissions, then delivers every queued packet (and whatever
// those produce) at once. It can rewrite a source like a NAT, make addresses unreachable, and drop
// packets through a test's own rule.
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
};

// True drops the packet. `check` is the decoded content if it is a request, else null.
using DropFn = bool (*)(void* ctx, const Packet& packet, const WireCheck* check);

constexpr int kMaxQueue = 256;
constexpr int kMaxChecks = 512;
constexpr int kMaxAddrs = 32;

template <class T>
struct SimNet {
    Endpoint<T> ep[2];
    Packet queue[kMaxQueue];
    int head = 0, count = 0;
    int tick = 0;
    bool hold = false;  // keep packets queued (nothing is delivered while set)

    sockaddr_storage addrs[2][kMaxAddrs];  // what each endpoint receives on
    int nAddrs[2] = {0, 0};

    bool natOn = false;
    sockaddr_storage natInside, natOutside;
    sockaddr_storage unreachable[8];
    int nUnreachable = 0;

    DropFn drop = nullptr;
    void* dropCtx = nullptr;
    int dropped = 0;

    WireCheck checks[kMaxChecks];
    int nChecks = 0;

    // Instances are static in the tests: they are large and must not come from the heap mid-run.
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

    // ---- set-up ----
    int AddStream(int e, int streamId)
    {
        return T::AddLocalMediaStream(ep[e].inst, streamId, static_cast<uint32_t>(e), static_cast<uint32_t>(streamId),
                                      gatewalk::ICE_CAND_TYPE_HOST);
    }

    int AddCandidate(int e, int media, const char* ip, uint16_t port, uint32_t componentId, uint16_t localPref = 65535,
                     gatewalk::ICE_CANDIDATE_TYPE type = gatewalk::ICE_CAND_TYPE_HOST, const char* baseIp = nullptr,
                     uint16_t basePort = 0)
    {
        const sockaddr_storage a = Addr(ip, port);
        sockaddr_storage base;
        gatewalk::sockaddr_reset(&base);
        if (baseIp != nullptr) base = Addr(baseIp, basePort);
        // Only addresses the endpoint owns receive; a reflexive one reaches it through its base.
        if (type == gatewalk::ICE_CAND_TYPE_HOST || type == gatewalk::ICE_CAND_TYPE_RELAY) addrs[e][nAddrs[e]++] = a;
        return T::AddLocalCandidate(ep[e].inst, static_cast<uint32_t>(media), componentId, Sa(a), Sa(base),
                                    gatewalk::ICE_TRANS_UDP, type, localPref);
    }

    // Gives each side's local streams and candidates to the other, as signalling would.
    void Exchange()
    {
        for (int e = 0; e < 2; ++e) {
            Endpoint<T>& from = ep[e];
            Endpoint<T>& to = ep[1 - e];
            if (from.echoOnly || to.echoOnly) continue;
            for (uint32_t m = 0; m < T::kMaxMediaLines; ++m) {
                const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(from.inst, m);
                if (s == nullptr) break;
                // A line without candidates still has a default address in its m line.
                const sockaddr_storage def =
                    gatewalk::sockaddr_isSet(Sa(s->defaultAddr)) ? s->defaultAddr : Addr("192.0.2.254", 9);
                const int idx = T::AddRemoteMediaStream(to.inst, s->streamId, s->ufrag, s->passwd, Sa(def));
                for (uint32_t c = 0; c < s->numberOfCandidates; ++c) AddRemote(1 - e, idx, s->candidate[c]);
            }
        }
    }

    void AddRemote(int e, int media, const gatewalk::ICE_CANDIDATE& c)
    {
        char text[64];
        gatewalk::sockaddr_toString(Sa(c.connectionAddr), text, sizeof text, false);
        T::AddRemoteCandidate(ep[e].inst, static_cast<uint32_t>(media), c.foundation, c.componentid, c.priority, text,
                              static_cast<uint16_t>(gatewalk::sockaddr_ipPort(Sa(c.connectionAddr))), c.transport, c.type);
    }

    // Endpoint e becomes a bare responder with these credentials; the other side gets them as its
    // remote stream with the given candidates.
    void MakeEcho(int e, const char* ufrag, const char* password)
    {
        ep[e].echoOnly = true;
        std::snprintf(ep[e].echoPassword, sizeof ep[e].echoPassword, "%s", password);
        (void)ufrag;
    }

    void Start(int e, bool controlling, uint64_t tieBreaker)
    {
        ep[e].started = T::Start(ep[e].inst, controlling, tieBreaker);
    }

    // ---- running ----
    void Step()
    {
        ++tick;
        for (Endpoint<T>& e : ep) {
            if (e.echoOnly || !e.started) continue;
            T::Tick(e.inst);
            e.Retransmit();
        }
        if (!hold) Pump();
    }

    void Pump()
    {
        for (int guard = 0; count > 0 && guard < 4 * kMaxQueue; ++guard) {
            Packet& p = queue[head];
            head = (head + 1) % kMaxQueue;
            --count;
            Deliver(p);
        }
    }

    int Owner(const sockaddr* address) const
    {
        for (int e = 0; e < 2; ++e) {
            for (int i = 0; i < nAddrs[e]; ++i) {
                if (gatewalk::sockaddr_alike(Sa(addrs[e][i]), address)) return e;
            }
        }
        return -1;
    }

    void Deliver(Packet& p)
    {
        // Unreachable is judged on the address the sender used, before any translation.
        for (int i = 0; i < nUnreachable; ++i) {
            if (gatewalk::sockaddr_alike(Sa(p.destination), Sa(unreachable[i]))) {
                ++dropped;
                return;
            }
        }
        if (natOn) {
            if (gatewalk::sockaddr_alike(Sa(p.source), Sa(natInside))) p.source = natOutside;
            if (gatewalk::sockaddr_alike(Sa(p.destination), Sa(natOutside))) p.destination = natInside;
        }
        const int to = Owner(Sa(p.destination));
        if (to < 0) {
            ++dropped;
            return;
        }
        const bool isRequest = p.length >= 2 && p.bytes[0] == 0 && p.bytes[1] == 1;
        if (drop != nullptr) {
            WireCheck probe{};
            if (isRequest) Peek(to, p, &probe);
            if (drop(dropCtx, p, isRequest ? &probe : nullptr)) {
                ++dropped;
                return;
            }
        }
        WireCheck* record = isRequest && nChecks < kMaxChecks ? &checks[nChecks++] : nullptr;
        if (record != nullptr) {
            std::memset(static_cast<void*>(record), 0, sizeof *record);
            record->from = p.from;
        }
        ep[to].Receive(p.bytes, p.length, Sa(p.source), Sa(p.destination), record);
    }

    void Peek(int to, const Packet& p, WireCheck* out)
    {
        typename T::Msg& m = ep[to].msg;
        if (!T::Decode(p.bytes, p.length, &m, nullptr, nullptr)) return;
        out->from = p.from;
        out->id = m.msgHdr.id;
        out->useCandidate = m.hasUseCandidate;
        out->priority = m.priority;
        out->tick = tick;
    }

    // For a failing test: what both agents said.
    void PrintLogs() const
    {
        for (int e = 0; e < 2; ++e) {
            for (int i = 0; i < ep[e].logCount && i < kMaxLog; ++i) std::printf("[%c] %s\n", 'A' + e, ep[e].logs[i]);
        }
    }

    bool BothComplete() const { return ep[0].completeCalls > 0 && ep[1].completeCalls > 0; }

    // Steps until both sides told their end (or one side, with a bare responder), at most maxSteps.
    bool Run(int maxSteps)
    {
        for (int i = 0; i < maxSteps; ++i) {
            Step();
            const bool a = ep[0].echoOnly || ep[0].completeCalls > 0;
            const bool b = ep[1].echoOnly || ep[1].completeCalls > 0;
            if (a && b) return true;
        }
        if (std::getenv("ICE_TEST_LOGS") != nullptr) PrintLogs();
        return false;
    }
};

}  // namespace icetest
