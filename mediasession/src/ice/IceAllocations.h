// The connector's allocations at STUN and TURN servers. Private to the connector's sources.
// Network thread.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "ice/IceConnectorImpl.h"

namespace zyn {

// What both kinds of server request share: a completion that fires once, whatever ends it.
struct CServerRequest {
    std::function<void()> done;
    bool finished = false;  // done was called
    void Finish()
    {
        if (finished) return;
        finished = true;
        if (done) {
            auto f = std::move(done);
            done = nullptr;
            f();
        }
    }
};

// One TURN allocation from one host candidate at one server; the relayed pairs send through it.
template <class P>
struct CIceConnectorT<P>::TurnAllocContext final : ITurnRelay, CServerRequest {
    CIceConnectorT* connector = nullptr;  // cleared when the connector lets go of it
    CIceCandidate candidate;
    typename P::TurnInstance* inst = nullptr;
    std::string serverText;
    tagICEServer server{};
    bool isCheck = false;
    int outstanding = 0;
    CCmInetAddr serverAddr;
    bool overTcp = false;                      // the server is reached over TCP
    CIceConnectionContext* context = nullptr;  // the pair (host candidate, server)
    CCmInetAddr relayAddr;
    CCmInetAddr srflxAddr;
    bool allocated = false;
    std::vector<uint8_t> pending;         // a request made before the transport was up
    // Peers the relayed checks go to, one per address. The client keeps one permission record and
    // refreshes only that, so every request names them all; a request it cannot take now (another
    // is in flight) stays due and goes with the next tick.
    std::vector<CCmInetAddr> permissions;
    bool permissionsDue = false;
    bool channelAsked = false;
    // Room for a media packet and the largest TURN framing around it.
    std::array<uint8_t, 2048> frame{};

    ~TurnAllocContext() override
    {
        if (inst) P::TurnClient_free(inst);
    }
    CmResult Relay(const CCmInetAddr& peer, CCmMessageBlock& data) override
    {
        return connector ? connector->RelayData(this, peer, data) : CM_ERROR_NOT_INITIALIZED;
    }
};

// One Binding transaction from one host candidate to one STUN server.
template <class P>
struct CIceConnectorT<P>::StunAllocContext final : ice::IStunSender, CServerRequest {
    CIceConnectorT* connector = nullptr;
    CIceCandidate candidate;
    gatewalk::StunMsgId id{};
    typename P::StunClient* client = nullptr;
    std::string serverText;
    tagICEServer server{};
    bool isCheck = false;
    CCmInetAddr serverAddr;
    CIceConnectionContext* context = nullptr;
    std::vector<uint8_t> pending;

    ~StunAllocContext()
    {
        if (client) P::StunClient_free(client);
    }
    void SendRawStunData(const unsigned char* bytes, int length, const struct sockaddr*) override
    {
        if (connector) connector->SendServerData(context, pending, bytes, static_cast<size_t>(length));
    }
};

}  // namespace zyn
