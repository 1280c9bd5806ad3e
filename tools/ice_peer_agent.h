// One ICE agent (ICELIB, profile qlox_gatewalk) on real UDP sockets, driven as a connector drives it:
// a 10 ms tick, checks encoded and retransmitted here, every STUN message that arrives decoded and
// handed in. One media stream with one component; host candidates only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ice_peer_description.h"
#include "ice_peer_sockets.h"
#include "ice_peer_stun.h"
#include "icelib.h"

namespace tool::ice_peer {

class Agent {
public:
    // `logLevel` filters the agent's own lines, which go to standard error.
    Agent(UdpSockets& sockets, bool controlling, gatewalk::ICELIB_logLevel logLevel);
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    ~Agent();

    // The local stream with one host candidate per socket, the first socket preferred.
    bool Init(std::string& error);
    Description LocalDescription() const;
    // Takes the peer's stream and starts checking; requests that came before are handled now.
    bool Start(const Description& remote, int64_t nowMs, std::string& error);

    // Moves the agent's clock to nowMs (one tick per 10 ms) and retransmits what is due.
    void Advance(int64_t nowMs);
    // A datagram from a socket. True when it is not STUN: application data, the caller's to read.
    bool Handle(const UdpSockets::Datagram& datagram, int64_t nowMs);
    // Until then, how long the caller may wait for a datagram.
    int MsToNextTick(int64_t nowMs) const;

    bool Concluded() const { return concluded_; }
    bool Failed() const { return failed_; }

    struct Pair {
        size_t socket = 0;
        sockaddr_storage local{}, remote{};
        std::string localType, remoteType;
    };
    // After a successful conclusion: the nominated pair of component 1.
    bool Selected(Pair& pair) const;

    // Constants of the connector's configuration: the tick paces one check per 10 ms (RFC 5245's Ta),
    // keep-alives every second once concluded, regular nomination.
    static constexpr uint32_t kTickMs = 10;
    static constexpr uint32_t kKeepAliveS = 1;

private:
    using Instance = qlox_gatewalk::ICELIB_INSTANCE;
    static void OnRequest(void* self, int proto, const sockaddr* source, const sockaddr* destination, uint32_t uv1,
                          uint32_t uv2, uint32_t component, bool useRelay, const char* ufragPair, const char* password,
                          uint32_t priority, bool useCandidate, bool controlling, uint64_t tieBreaker, StunMsgId id);
    static void OnResponse(void* self, uint32_t uv1, uint32_t uv2, uint32_t component, const sockaddr* source,
                           const sockaddr* destination, const sockaddr* mapped, uint16_t code, StunMsgId id,
                           bool useRelay, const char* password);
    static void OnCancel(void* self, uint32_t uv1, StunMsgId id);
    static void OnComplete(void* self, uint32_t uv1, bool controlling, bool failed);
    static void OnKeepAlive(void* self, uint32_t uv1, uint32_t uv2, uint32_t mediaIdx);
    static void OnLog(void* self, gatewalk::ICELIB_logLevel level, const char* text);

    void HandleStun(const UdpSockets::Datagram& d, int64_t nowMs);
    void SendCheck(const CheckSchedule::Check& check) const;

    UdpSockets& sockets_;
    bool controlling_;
    std::unique_ptr<Instance> instance_;
    std::unique_ptr<qlox_gatewalk::StunMessage> scratch_;
    CheckSchedule checks_;
    std::vector<UdpSockets::Datagram> early_;  // requests that came before Start
    std::string localPassword_;
    int32_t media_ = -1;
    bool started_ = false, concluded_ = false, failed_ = false;
    int64_t nowMs_ = 0;       // of the call in progress, for checks the agent starts inside it
    int64_t nextTickMs_ = 0;
};

}  // namespace tool::ice_peer
