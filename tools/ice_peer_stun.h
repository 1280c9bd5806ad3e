// STUN glue of `mediasession ice-peer`: the agent's checks and answers as bytes (stunlib, profile
// qlox_gatewalk), and the retransmission of checks, which the agent leaves to its owner.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "stunlib.h"

namespace tool::ice_peer {

using gatewalk::StunMsgId;
using Bytes = std::vector<uint8_t>;

struct CheckRequest {
    StunMsgId id;
    std::string ufragPair;  // USERNAME, "remote:local"
    std::string password;   // the remote one: MESSAGE-INTEGRITY key
    uint32_t priority = 0;
    bool useCandidate = false;
    bool controlling = false;
    uint64_t tieBreaker = 0;
};

// A Binding request with USERNAME, PRIORITY, USE-CANDIDATE, ICE-CONTROLLING or ICE-CONTROLLED,
// MESSAGE-INTEGRITY and FINGERPRINT. Empty when it cannot be encoded.
Bytes EncodeCheck(const CheckRequest& check);

// A Binding success response with XOR-MAPPED-ADDRESS (code 200), or an error response with
// ERROR-CODE ("Role Conflict" for 487, "Bad Request" otherwise); keyed with the local password.
Bytes EncodeAnswer(const StunMsgId& id, uint16_t code, const sockaddr* mapped, const std::string& password);

// A Binding indication: keeps the NAT bindings of the selected pair open, needs no answer.
Bytes EncodeKeepAlive();

// What arrived on a socket. Everything that is not a well-formed STUN Binding message is data.
struct Inbound {
    enum Kind { Data, Request, Response, Other } kind = Data;
    // Request: what the agent needs of it. Response: code (200 for success) and mapped address.
    std::string ufragPair;
    uint32_t priority = 0;
    bool useCandidate = false, controlling = false, controlled = false;
    uint64_t tieBreaker = 0;
    StunMsgId id{};
    uint16_t code = 0;
    sockaddr_storage mapped{};
    bool hasIntegrity = false;
};

// Decodes one datagram into `out`; `message` is scratch (it is large).
void Classify(const uint8_t* bytes, size_t length, qlox_gatewalk::StunMessage& message, Inbound& out);

// True when the message in `bytes` (as decoded into `message` by Classify) carries a
// MESSAGE-INTEGRITY that `password` verifies.
bool IntegrityHolds(const uint8_t* bytes, size_t length, qlox_gatewalk::StunMessage& message,
                    const std::string& password);

// Checks in flight, retransmitted on a fixed schedule until answered, cancelled or given up.
class CheckSchedule {
public:
    struct Check {
        StunMsgId id;
        int socket;  // index of the local socket it leaves from
        sockaddr_storage destination;
        Bytes bytes;
        std::string password;  // the key an answer must carry
        int sends = 0;
        int64_t dueMs = 0;  // next copy, or the end when all copies went out
        bool cancelled = false;
    };
    using SendFn = std::function<void(const Check&)>;
    using GiveUpFn = std::function<void(const StunMsgId&)>;

    // Sends the first copy at once.
    void Start(Check check, int64_t nowMs, const SendFn& send);
    // The check in flight with this id, or null.
    const Check* Find(const StunMsgId& id) const;
    // Removes the check; false if it is not in flight.
    bool Take(const StunMsgId& id);
    // No more copies, and no give-up at the end; an answer that still comes is taken until then.
    void Cancel(const StunMsgId& id);
    // Resends what is due at nowMs, and reports (after removing it) each check whose time is up.
    void Run(int64_t nowMs, const SendFn& send, const GiveUpFn& giveUp);
    size_t InFlight() const { return checks_.size(); }

    // Offsets from the first copy at which the next ones go out, then the end. RFC 5389 doubles the
    // RTO from 500 ms; a loopback or LAN peer answers in well under a millisecond, and the agent gives
    // ICE 5 s in all, so the first RTO is 100 ms and a silent pair is given up after 2.3 s.
    static constexpr int64_t kScheduleMs[] = {100, 300, 700, 1500, 2300};

private:
    std::vector<Check> checks_;
};

}  // namespace tool::ice_peer
