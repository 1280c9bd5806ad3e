// What a connector does around the agent, for the in-memory network and the UDP test alike: checks
// become real STUN Binding requests (stunlib, MESSAGE-INTEGRITY with the peer's password,
// FINGERPRINT), received bytes are decoded and checked, and retransmission ends in
// ICELIB_incomingTimeout. Fixed tables only: the no-heap test runs through this.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ice_profiles.h"
#include "sockaddr_util.h"

namespace icetest {

using gatewalk::StunMsgId;

inline const sockaddr* Sa(const sockaddr_storage& s) { return reinterpret_cast<const sockaddr*>(&s); }
inline sockaddr* Sa(sockaddr_storage& s) { return reinterpret_cast<sockaddr*>(&s); }
inline unsigned char* Key(const char* password) { return reinterpret_cast<unsigned char*>(const_cast<char*>(password)); }

inline sockaddr_storage Addr(const char* ip, uint16_t port)
{
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    if (!gatewalk::sockaddr_initFromString(Sa(a), ip)) std::abort();
    gatewalk::sockaddr_setPort(Sa(a), port);
    return a;
}

// What the connector passes: 10 ms ticks, 1 s keep-alive, 80 pairs (capped by the agent).
template <class T>
typename T::Config DefaultConfig(uint32_t timeoutMs = 0)
{
    typename T::Config c{};
    c.tickIntervalMS = 10;
    c.keepAliveIntervalS = 1;
    c.maxCheckListPairs = 80;
    c.logLevel = gatewalk::ICELIB_logAll;
    if constexpr (T::kZyn) c.iceTimeoutMS = timeoutMs;
    return c;
}

// A check as its receiver decoded it.
struct WireCheck {
    int from;  // endpoint index of the sender
    sockaddr_storage source, destination;
    char username[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    uint32_t priority;
    bool useCandidate, controlling, controlled, integrityOk, fingerprint;
    uint64_t tieBreaker;
};

// The connector's own schedule: a copy every kRtoTicks, kMaxSends copies, then a timeout.
constexpr int kRtoTicks = 10;
constexpr int kMaxSends = 4;
constexpr int kMaxTx = 64;
constexpr int kMaxLog = 256;

// A check in flight. A cancelled one is not sent again nor timed out, but its answer still counts.
struct Tx {
    bool used, cancelled;
    StunMsgId id;
    uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
    uint32_t length;
    sockaddr_storage source, destination;
    char password[gatewalk::ICE_MAX_PASSWD_LENGTH];
    int sends, lastTick;
};

using SendFn = void (*)(void* ctx, int from, const uint8_t* bytes, uint32_t length, const sockaddr* source,
                        const sockaddr* destination);

template <class T>
struct Endpoint {
    int index = 0;
    typename T::Inst* inst = nullptr;
    bool started = false;
    bool echoOnly = false;  // no agent: answers every check with success, keyed with echoPassword
    char echoPassword[64] = {};
    SendFn send = nullptr;
    void* sendCtx = nullptr;
    const int* now = nullptr;  // the tick of whoever drives time
    Tx tx[kMaxTx] = {};
    typename T::Msg msg;  // scratch, too large for a callback's stack
    int completeCalls = 0, completeTick = -1, timeouts = 0, cancels = 0, keepAlives = 0, responsesSent = 0;
    bool iceFailed = false;
    uint16_t lastResponseCode = 0;
    char logs[kMaxLog][160] = {};
    int logCount = 0;

    bool Logged(const char* text) const
    {
        for (int i = 0; i < logCount && i < kMaxLog; ++i) {
            if (std::strstr(logs[i], text) != nullptr) return true;
        }
        return false;
    }

    void Init(typename T::Inst* instance, int idx, const typename T::Config* config)
    {
        inst = instance;
        index = idx;
        T::Constructor(inst, config);
        T::SetRequestCb(inst, &OnRequest, this);
        T::SetResponseCb(inst, &OnResponse, this);
        T::SetCancelCb(inst, &OnCancel, this);
        T::SetCompleteCb(inst, &OnComplete, this);
        T::SetKeepAliveCb(inst, [](void* u, uint32_t, uint32_t, uint32_t) { ++static_cast<Endpoint*>(u)->keepAlives; },
                          this);
        T::SetLogCb(inst, &OnLog, this, gatewalk::ICELIB_logAll);
    }

    static void OnLog(void* user, gatewalk::ICELIB_logLevel, const char* text)
    {
        auto* self = static_cast<Endpoint*>(user);
        if (self->logCount < kMaxLog) std::snprintf(self->logs[self->logCount++], sizeof self->logs[0], "%s", text);
    }

    static void OnRequest(void* user, int, const sockaddr* source, const sockaddr* destination, uint32_t, uint32_t,
                          uint32_t, bool, const char* ufragPair, const char* password, uint32_t priority,
                          bool useCandidate, bool iceControlling, uint64_t tieBreaker, StunMsgId id)
    {
        auto* self = static_cast<Endpoint*>(user);
        Tx* t = self->tx;
        while (t < self->tx + kMaxTx && t->used) ++t;
        if (t == self->tx + kMaxTx) std::abort();  // sized for every test: never lose a check silently
        *t = Tx{true, false, id, {}, 0, {}, {}, {}, 1, *self->now};
        typename T::Msg& m = self->Fresh(gatewalk::STUN_MSG_BindRequestMsg, id);
        T::AddUserName(&m, ufragPair, ' ');
        m.hasPriority = 1;
        m.priority = priority;
        m.hasUseCandidate = useCandidate;
        (iceControlling ? m.hasControlling : m.hasControlled) = 1;
        (iceControlling ? m.controlling : m.controlled) = tieBreaker;
        t->length = T::Encode(&m, t->bytes, sizeof t->bytes, Key(password), std::strlen(password), nullptr);
        gatewalk::sockaddr_copy(Sa(t->source), source);
        gatewalk::sockaddr_copy(Sa(t->destination), destination);
        std::snprintf(t->password, sizeof t->password, "%s", password);
        self->send(self->sendCtx, self->index, t->bytes, t->length, source, destination);
    }

    static void OnResponse(void* user, uint32_t, uint32_t, uint32_t, const sockaddr* source, const sockaddr* destination,
                           const sockaddr* mapped, uint16_t code, StunMsgId id, bool, const char* password)
    {
        auto* self = static_cast<Endpoint*>(user);
        ++self->responsesSent;
        self->lastResponseCode = code;
        self->SendResponse(source, destination, mapped, code, id, password);
    }

    typename T::Msg& Fresh(uint16_t type, const StunMsgId& id)
    {
        std::memset(static_cast<void*>(&msg), 0, sizeof msg);
        msg.msgHdr.type = type;
        msg.msgHdr.id = id;
        return msg;
    }

    void SendResponse(const sockaddr* source, const sockaddr* destination, const sockaddr* mapped, uint16_t code,
                      StunMsgId id, const char* password)
    {
        typename T::Msg& m = Fresh(code == 200 ? gatewalk::STUN_MSG_BindResponseMsg : gatewalk::STUN_MSG_BindErrorResponseMsg, id);
        if (code == 200) {
            m.hasXorMappedAddress = 1;
            if (mapped->sa_family == AF_INET) {
                const auto* v4 = reinterpret_cast<const sockaddr_in*>(mapped);
                gatewalk::stunlib_setIP4Address(&m.xorMappedAddress, ntohl(v4->sin_addr.s_addr), ntohs(v4->sin_port));
            } else {
                const auto* v6 = reinterpret_cast<const sockaddr_in6*>(mapped);
                gatewalk::stunlib_setIP6Address(&m.xorMappedAddress, v6->sin6_addr.s6_addr, ntohs(v6->sin6_port));
            }
        } else {
            T::AddError(&m, code == 487 ? "Role Conflict" : "Bad Request", code, ' ');
        }
        uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
        const uint32_t length = T::Encode(&m, bytes, sizeof bytes, Key(password), std::strlen(password), nullptr);
        send(sendCtx, index, bytes, length, source, destination);
    }

    static void OnCancel(void* user, uint32_t, StunMsgId id)
    {
        auto* self = static_cast<Endpoint*>(user);
        for (Tx& t : self->tx) {
            if (t.used && gatewalk::stunlib_transIdIsEqual(&t.id, &id)) t.cancelled = true, ++self->cancels;
        }
    }

    static void OnComplete(void* user, uint32_t, bool, bool failed)
    {
        auto* self = static_cast<Endpoint*>(user);
        ++self->completeCalls;
        self->iceFailed = failed;
        self->completeTick = *self->now;
    }

    // Copies again, and a timeout once the schedule ran out. Once per tick.
    void Retransmit()
    {
        for (Tx& t : tx) {
            if (!t.used || *now - t.lastTick < kRtoTicks) continue;
            if (t.cancelled) {
                t.used = *now - t.lastTick < kRtoTicks * kMaxSends;
            } else if (t.sends < kMaxSends) {
                ++t.sends;
                t.lastTick = *now;
                send(sendCtx, index, t.bytes, t.length, Sa(t.source), Sa(t.destination));
            } else {
                t.used = false;
                ++timeouts;
                T::IncomingTimeout(inst, t.id);
            }
        }
    }

    // The local candidate at `address` and its stream's password.
    const gatewalk::ICE_CANDIDATE* Owned(const sockaddr* address, const char** password) const
    {
        for (uint32_t m = 0; m < T::kMaxMediaLines; ++m) {
            const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(inst, m);
            for (uint32_t c = 0; s != nullptr && c < s->numberOfCandidates; ++c) {
                *password = s->passwd;
                if (gatewalk::sockaddr_alike(Sa(s->candidate[c].connectionAddr), address)) return &s->candidate[c];
            }
        }
        return nullptr;
    }

    // Bytes that arrived at `destination`. A request is checked with the local password and given to
    // the agent (what it carried goes to `seen`, if not null); an answer must match a check in flight
    // and carry integrity with the peer's password.
    void Receive(const uint8_t* bytes, uint32_t length, const sockaddr* source, const sockaddr* destination,
                 WireCheck* seen)
    {
        typename T::Msg& m = msg;
        if (!T::Decode(bytes, length, &m, nullptr, nullptr)) return;
        if (m.msgHdr.type == gatewalk::STUN_MSG_BindRequestMsg) {
            const char* password = echoPassword;
            const gatewalk::ICE_CANDIDATE* local = echoOnly ? nullptr : Owned(destination, &password);
            const bool ok = (echoOnly || local != nullptr) &&
                            T::CheckIntegrity(bytes, length, &m, Key(password), static_cast<int>(std::strlen(password)));
            const uint64_t tieBreaker = m.hasControlling ? m.controlling : m.controlled;
            if (seen != nullptr) {
                gatewalk::sockaddr_copy(Sa(seen->source), source);
                gatewalk::sockaddr_copy(Sa(seen->destination), destination);
                std::snprintf(seen->username, sizeof seen->username, "%.514s", m.username.value);
                seen->priority = m.priority;
                seen->useCandidate = m.hasUseCandidate;
                seen->controlling = m.hasControlling;
                seen->controlled = m.hasControlled;
                seen->tieBreaker = tieBreaker;
                seen->integrityOk = ok;
                seen->fingerprint = m.hasFingerPrint;
            }
            if (!ok) return;  // a connector drops a check it cannot authenticate
            if (echoOnly) return SendResponse(destination, source, source, 200, m.msgHdr.id, echoPassword);
            if (!started) return;
            T::IncomingRequest(inst, 0, 0, m.username.value, m.priority, m.hasUseCandidate, m.hasControlling,
                               m.hasControlled, tieBreaker, m.msgHdr.id, 0, source, destination, false, nullptr,
                               static_cast<uint16_t>(local->componentid));
            return;
        }
        Tx* t = nullptr;
        for (Tx& candidate : tx) {
            if (candidate.used && gatewalk::stunlib_transIdIsEqual(&candidate.id, &m.msgHdr.id)) t = &candidate;
        }
        if (t == nullptr || echoOnly ||
            !T::CheckIntegrity(bytes, length, &m, Key(t->password), static_cast<int>(std::strlen(t->password)))) {
            return;
        }
        t->used = false;
        const bool error = m.msgHdr.type == gatewalk::STUN_MSG_BindErrorResponseMsg;
        sockaddr_storage mapped;
        gatewalk::sockaddr_reset(&mapped);
        const gatewalk::StunIPAddress& x = m.xorMappedAddress;
        if (m.hasXorMappedAddress && x.familyType == gatewalk::STUN_ADDR_IPv4Family) {
            gatewalk::sockaddr_initFromIPv4Int(reinterpret_cast<sockaddr_in*>(&mapped), htonl(x.addr.v4), htons(x.port));
        } else if (m.hasXorMappedAddress) {
            gatewalk::sockaddr_initFromIPv6Int(reinterpret_cast<sockaddr_in6*>(&mapped), x.addr.v6, htons(x.port));
        }
        const uint16_t code = error ? static_cast<uint16_t>(m.errorCode.errorClass * 100 + m.errorCode.number) : 200;
        T::IncomingResponse(inst, code, m.msgHdr.id, source, destination, Sa(mapped));
    }
};

}  // namespace icetest
