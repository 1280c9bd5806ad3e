// A fake clock and a fake network around one STUN client, with the same face for both profiles, so
// that the schedule and result tests run as typed tests. Time moves only by Tick(); every packet the
// client sends is kept with the time it left; every callback is kept.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "sockaddr_util.h"
#include "stunclient.h"

namespace stunclient_test {

using Bytes = std::vector<uint8_t>;

inline gatewalk::StunMsgId Id(uint32_t n)
{
    gatewalk::StunMsgId id;
    gatewalk::stunlib_createId(&id, static_cast<long>(n), 0);
    return id;
}

inline sockaddr_storage Addr(const char* text)
{
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    EXPECT_TRUE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&a), text)) << text;
    return a;
}

inline const sockaddr* Sa(const sockaddr_storage& a) { return reinterpret_cast<const sockaddr*>(&a); }

inline std::string Text(const sockaddr_storage& a)
{
    char buf[64];
    const char* t = gatewalk::sockaddr_toString(Sa(a), buf, sizeof buf, true);
    return t ? t : "(unset)";
}

// The record is large (four 4000-byte texts): keep it off the test's stack.
template <class Msg>
std::unique_ptr<Msg> NewMessage()
{
    auto m = std::make_unique<Msg>();
    std::memset(static_cast<void*>(m.get()), 0, sizeof(Msg));
    return m;
}

struct Sent {
    int atMs;
    Bytes bytes;
    sockaddr_storage destination;
    unsigned char ttl;
};

struct Result {
    int atMs;
    int result;
    gatewalk::StunMsgId id;
    sockaddr_storage rflx;
    sockaddr_storage src;
    uint32_t rtt;           // qlox only
    uint32_t retransmits;   // qlox only
    uint32_t respTransCnt;  // qlox only
    uint32_t ttl;           // qlox only
};

// Profile-specific parts: PQ for qlox_gatewalk, PZ for zyn_gatewalk.
struct PQ {
    static constexpr bool kZyn = false;
    using Msg = qlox_gatewalk::StunMessage;
    using Client = qlox_gatewalk::STUN_CLIENT_DATA;
    static constexpr int kSlots = qlox_gatewalk::STUNCLIENT_MAX_INSTANCES;
};
struct PZ {
    static constexpr bool kZyn = true;
    using Msg = zyn_gatewalk::StunMessage;
    using Client = zyn_gatewalk::STUN_CLIENT_DATA;
    static constexpr int kSlots = zyn_gatewalk::STUNCLIENT_MAX_INSTANCES;
};

struct Credentials {
    const char* username = "";
    const char* password = "";
    uint32_t priority = 0;
    bool useCandidate = false;
    bool controlling = false;
    uint64_t tieBreaker = 0;
};

template <class P>
class Harness {
public:
    using Msg = typename P::Msg;
    using Client = typename P::Client;

    const sockaddr_storage server = Addr("127.0.0.1:3478");
    const sockaddr_storage base = Addr("127.0.0.1:40000");

    Harness()
    {
        bool ok;
        if constexpr (P::kZyn) ok = zyn_gatewalk::StunClient_Alloc(&client);
        else ok = qlox_gatewalk::StunClient_Alloc(&client);
        EXPECT_TRUE(ok);
        if constexpr (P::kZyn) zyn_gatewalk::StunClient_RegisterLogger(client, &Harness::OnLog, this);
        else qlox_gatewalk::StunClient_RegisterLogger(client, &Harness::OnLog, this);
    }
    ~Harness()
    {
        if constexpr (P::kZyn) zyn_gatewalk::StunClient_free(client);
        else qlox_gatewalk::StunClient_free(client);
    }
    Harness(const Harness&) = delete;
    Harness& operator=(const Harness&) = delete;

    void Start(const gatewalk::StunMsgId& id, const Credentials& c = {})
    {
        if constexpr (P::kZyn) {
            zyn_gatewalk::StunClient_startBindTransaction(client, this, Sa(server), Sa(base), false, c.username,
                                                          c.password, c.priority, c.useCandidate, c.controlling,
                                                          c.tieBreaker, id, 7, &Harness::OnSendZyn,
                                                          &Harness::OnResultZyn, nullptr);
        } else {
            qlox_gatewalk::TransactionAttributes a;
            std::memset(static_cast<void*>(&a), 0, sizeof a);
            a.transactionId = id;
            a.connectionId = 7;
            std::snprintf(a.username, sizeof a.username, "%s", c.username);
            std::snprintf(a.password, sizeof a.password, "%s", c.password);
            a.peerPriority = c.priority;
            a.useCandidate = c.useCandidate;
            a.iceControlling = c.controlling;
            a.tieBreaker = c.tieBreaker;
            qlox_gatewalk::StunClient_startBindTransaction(client, this, Sa(server), Sa(base), 0, false, &a,
                                                           &Harness::OnSendQlox, &Harness::OnResultQlox);
        }
    }

    // Ticks of `step` ms until `untilMs` of fake time.
    void RunTo(int untilMs, int step = 1)
    {
        while (nowMs + step <= untilMs) Tick(step);
    }
    void Tick(int ms)
    {
        nowMs += ms;
        if constexpr (P::kZyn) zyn_gatewalk::StunClient_HandleTick(client, ms);
        else qlox_gatewalk::StunClient_HandleTick(client, ms);
    }

    int Cancel(const gatewalk::StunMsgId& id)
    {
        if constexpr (P::kZyn) return zyn_gatewalk::StunClient_cancelBindingTransaction(client, id);
        else return qlox_gatewalk::StunClient_cancelBindingTransaction(client, id);
    }

    void Deliver(const Msg& m, const sockaddr_storage& from)
    {
        if constexpr (P::kZyn) zyn_gatewalk::StunClient_HandleIncResp(client, &m, Sa(from));
        else qlox_gatewalk::StunClient_HandleIncResp(client, &m, Sa(from));
    }

    // A response record as a server would send it. errorCode 0 means success.
    std::unique_ptr<Msg> Response(const gatewalk::StunMsgId& id, const char* mapped, uint16_t errorCode = 0)
    {
        auto m = NewMessage<Msg>();
        m->msgHdr.type = errorCode ? gatewalk::STUN_MSG_BindErrorResponseMsg : gatewalk::STUN_MSG_BindResponseMsg;
        m->msgHdr.id = id;
        if (mapped) {
            sockaddr_storage a = Addr(mapped);
            m->hasXorMappedAddress = 1;
            if (a.ss_family == AF_INET) {
                const auto* v4 = reinterpret_cast<const sockaddr_in*>(&a);
                gatewalk::stunlib_setIP4Address(&m->xorMappedAddress, ntohl(v4->sin_addr.s_addr), ntohs(v4->sin_port));
            } else {
                const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&a);
                gatewalk::stunlib_setIP6Address(&m->xorMappedAddress, v6->sin6_addr.s6_addr, ntohs(v6->sin6_port));
            }
        }
        if (errorCode) {
            EXPECT_TRUE(stunlib_addError(m.get(), "", errorCode, ' '));
        }
        return m;
    }

    // The server half: reads an incoming request, and answers one into `sent`.
    bool ReadRequest(const Msg& m, gatewalk::STUN_INCOMING_REQ_DATA* in, bool fromRelay)
    {
        if constexpr (P::kZyn) return zyn_gatewalk::StunServer_HandleStunIncomingBindReqMsg(client, in, &m, fromRelay);
        else return qlox_gatewalk::StunServer_HandleStunIncomingBindReqMsg(client, in, &m, fromRelay);
    }
    bool Answer(const gatewalk::StunMsgId& id, const char* password, const sockaddr_storage& mapped, uint16_t code)
    {
        if constexpr (P::kZyn) {
            return zyn_gatewalk::StunServer_SendConnectivityBindingResp(client, 7, id, password, Sa(mapped), Sa(mapped),
                                                                        this, &Harness::OnSendZyn, 0, false, code,
                                                                        nullptr);
        } else {
            return qlox_gatewalk::StunServer_SendConnectivityBindingResp(client, 7, id, password, Sa(mapped),
                                                                         Sa(mapped), 1, 0, 0, 0, 0, 0, this,
                                                                         &Harness::OnSendQlox, 0, false, code);
        }
    }

    std::string ResultName(int result) const
    {
        return P::kZyn ? zyn_gatewalk::StunClient_resultToStr(result) : qlox_gatewalk::StunClient_resultToStr(result);
    }

    std::unique_ptr<Msg> Decode(const Bytes& bytes)
    {
        auto m = NewMessage<Msg>();
        EXPECT_TRUE(stunlib_DecodeMessage(bytes.data(), bytes.size(), m.get(), nullptr, nullptr));
        return m;
    }

    bool Logged(const std::string& piece) const
    {
        for (const auto& l : log)
            if (l.find(piece) != std::string::npos) return true;
        return false;
    }

    std::vector<int> SendTimes() const
    {
        std::vector<int> t;
        for (const auto& s : sent) t.push_back(s.atMs);
        return t;
    }

    Client* client = nullptr;
    int nowMs = 0;
    std::vector<Sent> sent;
    std::vector<Result> results;
    std::vector<std::string> log;
    // Called from inside the result callback, when set (e.g. to start another transaction).
    std::function<void(const Result&)> onResult;

private:
    static void OnLog(void* self, gatewalk::StunInfoCategory_T, char* text)
    {
        static_cast<Harness*>(self)->log.emplace_back(text);
    }
    void Keep(const unsigned char* bytes, int length, const sockaddr* destination, unsigned char ttl)
    {
        Sent s{nowMs, Bytes(bytes, bytes + (length > 0 ? length : 0)), {}, ttl};
        gatewalk::sockaddr_copy(reinterpret_cast<sockaddr*>(&s.destination), destination);
        sent.push_back(std::move(s));
    }
    static void OnSendQlox(void* self, bool keepAlive, unsigned int connectionId, const unsigned char* bytes,
                           int length, const sockaddr* destination, int, bool, unsigned char ttl)
    {
        EXPECT_FALSE(keepAlive);
        EXPECT_EQ(connectionId, 7u);
        static_cast<Harness*>(self)->Keep(bytes, length, destination, ttl);
    }
    static void OnSendZyn(void* self, int sock, const unsigned char* bytes, int length, const sockaddr* destination,
                          bool)
    {
        EXPECT_EQ(sock, 7);
        static_cast<Harness*>(self)->Keep(bytes, length, destination, 0);
    }
    template <class Data>
    void KeepResult(const Data& d)
    {
        Result r{};
        r.atMs = nowMs;
        r.result = d.stunResult;
        r.id = d.msgId;
        r.rflx = d.rflxAddr;
        r.src = d.srcAddr;
        if constexpr (!P::kZyn) {
            r.rtt = d.rtt;
            r.retransmits = d.retransmits;
            r.respTransCnt = d.respTransCnt;
            r.ttl = d.ttl;
        }
        results.push_back(r);
        if (onResult) onResult(r);
    }
    static void OnResultQlox(void* self, qlox_gatewalk::StunCallBackData_T* d)
    {
        static_cast<Harness*>(self)->KeepResult(*d);
    }
    static void OnResultZyn(void* self, zyn_gatewalk::StunCallBackData_T* d)
    {
        static_cast<Harness*>(self)->KeepResult(*d);
    }
};

}  // namespace stunclient_test
