// What a connector does around the agent, written once for the in-memory network and the UDP test:
// checks become real STUN Binding requests (stunlib encoder, MESSAGE-INTEGRITY with the peer's
// password, FINGERPRINT), received bytes are decoded and checked, and retransmission ends in
// ICELIB_incomingTimeout. Everything lives in fixed tables: the no-heap test runs through it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ice_profiles.h"
#include "sockaddr_util.h"

namespace icetest {

using gatewalk::StunMsgId;

inline const sockaddr* Sa(const sockaddr_storage& s) { return reinterpret_cast<const sockaddr*>(&s); }
inline sockaddr* Sa(sockaddr_storage& s) { return reinterpret_cast<sockaddr*>(&s); }

inline sockaddr_storage Addr(const char* ip, uint16_t port)
{
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    if (!gatewalk::sockaddr_initFromString(Sa(a), ip)) std::abort();
    gatewalk::sockaddr_setPort(Sa(a), port);
    return a;
}

inline bool ToSockaddr(const gatewalk::StunIPAddress& in, sockaddr_storage* out)
{
    gatewalk::sockaddr_reset(out);
    if (in.familyType == gatewalk::STUN_ADDR_IPv4Family) {
        gatewalk::sockaddr_initFromIPv4Int(reinterpret_cast<sockaddr_in*>(out), htonl(in.addr.v4), htons(in.port));
        return true;
    }
    if (in.familyType == gatewalk::STUN_ADDR_IPv6Family) {
        gatewalk::sockaddr_initFromIPv6Int(reinterpret_cast<sockaddr_in6*>(out), in.addr.v6, htons(in.port));
        return true;
    }
    return false;
}

inline void ToStunAddress(const sockaddr* in, gatewalk::StunIPAddress* out)
{
    std::memset(out, 0, sizeof *out);
    if (in->sa_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(in);
        gatewalk::stunlib_setIP4Address(out, ntohl(v4->sin_addr.s_addr), ntohs(v4->sin_port));
    } else {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(in);
        gatewalk::stunlib_setIP6Address(out, v6->sin6_addr.s6_addr, ntohs(v6->sin6_port));
    }
}

// One decoded check as it was seen on the wire by its receiver.
struct WireCheck {
    int from;  // endpoint index of the sender
    sockaddr_storage source, destination;
    StunMsgId id;
    char username[gatewalk::ICE_MAX_UFRAG_PAIR_LENGTH];
    uint32_t priority;
    bool useCandidate, controlling, controlled, integrityOk, fingerprint;
    uint64_t tieBreaker;
    int tick;
};

constexpr int kMaxTx = 64;
constexpr int kMaxLog = 256;
constexpr int kLogLength = 160;
// The connector's own schedule: a copy every kRtoTicks, kMaxSends copies, then a timeout.
constexpr int kRtoTicks = 10;
constexpr int kMaxSends = 4;

// A check in flight, kept for retransmission and to check the answer's integrity.
struct Tx {
    bool used;
    bool cancelled;  // no more copies and no timeout, but an answer still goes to the agent
    StunMsgId id;
    uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
    uint32_t length;
    sockaddr_storage source, destination;
    char password[gatewalk::ICE_MAX_PASSWD_LENGTH];
    int sends;
    int lastTick;
};

// Sends bytes somewhere: the in-memory network or a socket.
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
    const int* now = nullptr;  // the current tick of whoever drives time

    Tx tx[kMaxTx] = {};
    typename T::Msg msg;  // scratch, too large for a callback's stack

    int completeCalls = 0;
    bool iceFailed = false;
    int completeTick = -1;
    int timeouts = 0;
    int cancels = 0;
    int keepAlives = 0;
    int responsesSent = 0;
    uint16_t lastResponseCode = 0;

    char logs[kMaxLog][kLogLength] = {};
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
        T::SetKeepAliveCb(inst, &OnKeepAlive, this);
        T::SetLogCb(inst, &OnLog, this, gatewalk::ICELIB_logAll);
    }

    static void OnLog(void* user, gatewalk::ICELIB_logLevel, const char* text)
    {
        auto* self = static_cast<Endpoint*>(user);
        if (self->logCount < kMaxLog) std::snprintf(self->logs[self->logCount], kLogLength, "%s", text);
        ++self->logCount;
    }

    static void OnRequest(void* user, int, const sockaddr* source, const sockaddr* destination, uint32_t, uint32_t,
                          uint32_t, bool, const char* ufragPair, const char* password, uint32_t priority,
                          bool useCandidate, bool iceControlling, uint64_t tieBreaker, StunMsgId id)
    {
        auto* self = static_cast<Endpoint*>(user);
        Tx* slot = nullptr;
        for (Tx& t : self->tx) {
            if (!t.used) {
                slot = &t;
                break;
            }
        }
        if (slot == nullptr) std::abort();  // the harness is sized for every test; never silently lose
        typename T::Msg& m = self->msg;
        std::memset(static_cast<void*>(&m), 0, sizeof m);
        m.msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
        m.msgHdr.id = id;
        T::AddUserName(&m, ufragPair, ' ');
        m.hasPriority = 1;
        m.priority = priority;
        m.hasUseCandidate = useCandidate ? 1 : 0;
        if (iceControlling) {
            m.hasControlling = 1;
            m.controlling = tieBreaker;
        } else {
            m.hasControlled = 1;
            m.controlled = tieBreaker;
        }
        slot->length = T::Encode(&m, slot->bytes, sizeof slot->bytes,
                                 reinterpret_cast<unsigned char*>(const_cast<char*>(password)),
                                 static_cast<unsigned int>(std::strlen(password)), nullptr);
        slot->used = true;
        slot->cancelled = false;
        slot->id = id;
        gatewalk::sockaddr_copy(Sa(slot->source), source);
        gatewalk::sockaddr_copy(Sa(slot->destination), destination);
        std::snprintf(slot->password, sizeof slot->password, "%s", password);
        slot->sends = 1;
        slot->lastTick = *self->now;
        self->send(self->sendCtx, self->index, slot->bytes, slot->length, source, destination);
    }

    static void OnResponse(void* user, uint32_t, uint32_t, uint32_t, const sockaddr* source, const sockaddr* destination,
                           const sockaddr* mapped, uint16_t errorCode, StunMsgId id, bool, const char* password)
    {
        auto* self = static_cast<Endpoint*>(user);
        ++self->responsesSent;
        self->lastResponseCode = errorCode;
        self->SendResponse(source, destination, mapped, errorCode, id, password);
    }

    void SendResponse(const sockaddr* source, const sockaddr* destination, const sockaddr* mapped, uint16_t code,
                      StunMsgId id, const char* password)
    {
        typename T::Msg& m = msg;
        std::memset(static_cast<void*>(&m), 0, sizeof m);
        m.msgHdr.id = id;
        if (code == 200) {
            m.msgHdr.type = gatewalk::STUN_MSG_BindResponseMsg;
            m.hasXorMappedAddress = 1;
            ToStunAddress(mapped, &m.xorMappedAddress);
        } else {
            m.msgHdr.type = gatewalk::STUN_MSG_BindErrorResponseMsg;
            T::AddError(&m, code == 487 ? "Role Conflict" : "Bad Request", code, ' ');
        }
        uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
        const uint32_t length = T::Encode(&m, bytes, sizeof bytes, reinterpret_cast<unsigned char*>(const_cast<char*>(password)),
                                          static_cast<unsigned int>(std::strlen(password)), nullptr);
        send(sendCtx, index, bytes, length, source, destination);
    }

    static void OnCancel(void* user, uint32_t, StunMsgId id)
    {
        auto* self = static_cast<Endpoint*>(user);
        for (Tx& t : self->tx) {
            if (t.used && gatewalk::stunlib_transIdIsEqual(&t.id, &id)) {
                t.cancelled = true;
                ++self->cancels;
            }
        }
    }

    static void OnComplete(void* user, uint32_t, bool, bool failed)
    {
        auto* self = static_cast<Endpoint*>(user);
        ++self->completeCalls;
        self->iceFailed = failed;
        self->completeTick = *self->now;
    }

    static void OnKeepAlive(void* user, uint32_t, uint32_t, uint32_t) { ++static_cast<Endpoint*>(user)->keepAlives; }

    // Copies again, and a timeout once the schedule ran out. Called once per tick.
    void Retransmit()
    {
        for (Tx& t : tx) {
            if (!t.used || *now - t.lastTick < kRtoTicks) continue;
            if (t.cancelled) {
                if (*now - t.lastTick >= kRtoTicks * kMaxSends) t.used = false;
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

    // The local password of the stream that owns `address`; null if none does.
    const char* PasswordFor(const sockaddr* address) const
    {
        if (echoOnly) return echoPassword;
        for (uint32_t m = 0; m < T::kMaxMediaLines; ++m) {
            const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(inst, m);
            for (uint32_t c = 0; s != nullptr && c < s->numberOfCandidates; ++c) {
                if (gatewalk::sockaddr_alike(Sa(s->candidate[c].connectionAddr), address)) return s->passwd;
            }
        }
        return nullptr;
    }

    uint16_t ComponentFor(const sockaddr* address) const
    {
        for (uint32_t m = 0; m < T::kMaxMediaLines; ++m) {
            const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(inst, m);
            for (uint32_t c = 0; s != nullptr && c < s->numberOfCandidates; ++c) {
                if (gatewalk::sockaddr_alike(Sa(s->candidate[c].connectionAddr), address)) {
                    return static_cast<uint16_t>(s->candidate[c].componentid);
                }
            }
        }
        return 1;
    }

    // Bytes that arrived at `destination`. Requests are checked with the local password and given to
    // the agent; answers are matched to the check in flight and checked with the peer's password.
    // `seen` (may be null) receives what a request carried.
    void Receive(const uint8_t* bytes, uint32_t length, const sockaddr* source, const sockaddr* destination,
                 WireCheck* seen)
    {
        typename T::Msg& m = msg;
        if (!T::Decode(bytes, length, &m, nullptr, nullptr)) return;
        if (m.msgHdr.type == gatewalk::STUN_MSG_BindRequestMsg) {
            const char* password = PasswordFor(destination);
            const bool ok = password != nullptr &&
                            T::CheckIntegrity(bytes, length, &m, reinterpret_cast<unsigned char*>(const_cast<char*>(password)),
                                              static_cast<int>(std::strlen(password)));
            if (seen != nullptr) {
                gatewalk::sockaddr_copy(Sa(seen->source), source);
                gatewalk::sockaddr_copy(Sa(seen->destination), destination);
                seen->id = m.msgHdr.id;
                const char* user = m.hasUsername ? m.username.value : "";
                const size_t userLength = strnlen(user, sizeof seen->username - 1);
                std::memcpy(seen->username, user, userLength);
                seen->username[userLength] = '\0';
                seen->priority = m.priority;
                seen->useCandidate = m.hasUseCandidate;
                seen->controlling = m.hasControlling;
                seen->controlled = m.hasControlled;
                seen->tieBreaker = m.hasControlling ? m.controlling : m.controlled;
                seen->integrityOk = ok;
                seen->fingerprint = m.hasFingerPrint;
                seen->tick = *now;
            }
            if (!ok) return;  // a connector drops a check it cannot authenticate
            if (echoOnly) {
                SendResponse(destination, source, source, 200, m.msgHdr.id, echoPassword);
                return;
            }
            if (!started) return;
            T::IncomingRequest(inst, 0, 0, m.username.value, m.priority, m.hasUseCandidate, m.hasControlling,
                               m.hasControlled, m.hasControlling ? m.controlling : m.controlled, m.msgHdr.id, 0, source,
                               destination, false, nullptr, ComponentFor(destination));
            return;
        }
        if (m.msgHdr.type != gatewalk::STUN_MSG_BindResponseMsg && m.msgHdr.type != gatewalk::STUN_MSG_BindErrorResponseMsg) {
            return;
        }
        Tx* t = nullptr;
        for (Tx& candidate : tx) {
            if (candidate.used && gatewalk::stunlib_transIdIsEqual(&candidate.id, &m.msgHdr.id)) t = &candidate;
        }
        if (t == nullptr || echoOnly) return;
        if (!T::CheckIntegrity(bytes, length, &m, reinterpret_cast<unsigned char*>(t->password),
                               static_cast<int>(std::strlen(t->password)))) {
            return;
        }
        t->used = false;
        uint16_t code = 200;
        sockaddr_storage mapped;
        gatewalk::sockaddr_reset(&mapped);
        if (m.msgHdr.type == gatewalk::STUN_MSG_BindErrorResponseMsg) {
            code = static_cast<uint16_t>(m.errorCode.errorClass * 100 + m.errorCode.number);
        } else if (m.hasXorMappedAddress) {
            ToSockaddr(m.xorMappedAddress, &mapped);
        }
        T::IncomingResponse(inst, code, m.msgHdr.id, source, destination, Sa(mapped));
    }
};

}  // namespace icetest
