// Pieces of the connector that do not depend on the stack's profile: the connection context of one
// address pair, the check-list record of the metrics, the transport that carries a relayed pair
// through its TURN allocation, and the timers with the clock they read.
//
// Threads: all of it belongs to the connector's network thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tp/CmInetAddr.h"
#include "tp/CmMutex.h"
#include "tp/CmReferenceControl.h"
#include "tp/CmTimerWrapperID.h"
#include "tp/CmTransport.h"

namespace zyn {

// Largest STUN message the connector encodes (a keep-alive or check with every attribute).
constexpr size_t kIceStunBufferSize = 1556;

// The connector's timers. Their periods and counts are the connector's; see where each starts.
enum class IceTimer : int {
    IceTick,         // ICELIB_Tick
    CheckSend,       // repeats of the checks' last requests
    MainStun,        // the SIP call's STUN client
    StunContexts,    // the server bindings' STUN clients
    Turn,            // the TURN allocations
    Fallback,        // a plain connect that never came up
    Inactivity,      // nothing received for too long
    RtcpSeed,        // opens NAT bindings before media flows
    KeepAlive,
    RttSummary,
    DtlsRetransmit,  // the DTLS session owns no timer of its own
    DtlsGiveUp,      // a handshake that never finishes fails the path
    Count,
};
const char* IceTimerName(IceTimer timer);

class IIceTimerTarget {
public:
    virtual void OnIceTimer(IceTimer timer) = 0;

protected:
    ~IIceTimerTarget() = default;
};

// Where the connector's time comes from. The real one runs loop timers on the network thread; a
// test puts a fake in its place, fires timers itself and moves the clock.
class IIceTimerService {
public:
    virtual ~IIceTimerService() = default;
    virtual uint64_t NowMs() = 0;
    // count 0 repeats until cancelled; scheduling a running timer restarts it.
    virtual void Schedule(IceTimer timer, uint32_t periodMs, uint32_t count) = 0;
    virtual void Cancel(IceTimer timer) = 0;
    virtual bool IsScheduled(IceTimer timer) const = 0;
};

class CIceLoopTimers final : public IIceTimerService {
public:
    explicit CIceLoopTimers(IIceTimerTarget* target);
    uint64_t NowMs() override;
    void Schedule(IceTimer timer, uint32_t periodMs, uint32_t count) override;
    void Cancel(IceTimer timer) override;
    bool IsScheduled(IceTimer timer) const override;

private:
    struct Slot final : CCmTimerWrapperIDSink {
        void OnTimer(CCmTimerWrapperID*) override;
        CIceLoopTimers* owner = nullptr;
        IceTimer timer = IceTimer::Count;
        uint32_t left = 0;  // firings to go for a counted timer; 0 repeats
        CCmTimerWrapperID id;
    };
    IIceTimerTarget* const m_target;
    std::array<Slot, static_cast<size_t>(IceTimer::Count)> m_slots;
};

// What the relayed pairs need of their allocation.
class ITurnRelay {
public:
    virtual ~ITurnRelay() = default;
    // Frames data for the peer (channel data or a Send indication) and sends it to the server.
    virtual CmResult Relay(const CCmInetAddr& peer, CCmMessageBlock& data) = 0;
};

// A relayed pair seen as a transport: the line sends on it like on any other, and the allocation
// wraps each packet for the server. It lives as long as anybody holds it; once the allocation is
// gone it refuses to send.
class CIceRelayTransport final : public ICmTransport, public CCmReferenceControlT<CCmMutexThread> {
public:
    CIceRelayTransport(std::weak_ptr<ITurnRelay> relay, const CCmInetAddr& relayAddress, const CCmInetAddr& peer);
    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult OpenWithSink(ICmTransportSink* sink) override;
    ICmTransportSink* GetSink() override { return m_sink; }
    CmResult SendData(CCmMessageBlock& data, CCmTransportParameter* parameter = nullptr) override;
    CmResult Disconnect(CmResult reason) override;
    uint32_t GetType() override { return CM_CONNECTION_TYPE_UDP; }
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    const CCmInetAddr& GetPeerAddr() override { return m_peer; }

private:
    ~CIceRelayTransport() override = default;
    std::weak_ptr<ITurnRelay> m_relay;
    const CCmInetAddr m_local;
    const CCmInetAddr m_peer;
    ICmTransportSink* m_sink = nullptr;
};

// One local/remote address pair that traffic uses, with its transports. The local address of a
// relayed pair is the relay address; the server pair of an allocation is (host, server).
struct CIceConnectionContext {
    CCmInetAddr local;
    CCmInetAddr remote;
    CCmInetAddr mappedRemote;  // where the peer really is, as its requests showed
    uint32_t component = 1;
    ICmTransport* pTransport = nullptr;     // UDP (or relay) transport, one reference
    ICmTransport* pTransportTCP = nullptr;  // stream transport, one reference
    ICmConnector* pConnector = nullptr;     // while a transport is being made, one reference
    std::array<uint8_t, kIceStunBufferSize> stunData{};  // the pair's last request, kept for repeats
    uint32_t stunDataLength = 0;
    uint32_t sendCount = 0;
    uint64_t lastSend = 0;
    std::shared_ptr<void> turnAllocation;  // the allocation this pair's traffic goes through
    std::shared_ptr<void> stunAllocation;  // a server binding from this pair
    void* turnRelay = nullptr;             // raw view of turnAllocation's relay, for lookups
    bool isCheck = false;                  // made for a server check
    bool isTrusted = false;                // a valid Binding request came over it
    bool isServer = false;                 // a pair towards a STUN or TURN server
    bool disconnected = false;
    int checkListIndex = -1;

    bool HasTransport(const ICmTransport* t) const { return t && (t == pTransport || t == pTransportTCP); }
    // Releases both transports (and a pending connector), the transports' references only.
    void Release(bool disconnect);
};

// The check-list record of a connector for the metrics: one entry per pair that was checked.
class CIceConnectionCheckListInfo {
public:
    struct Pair {
        CCmInetAddr local;
        CCmInetAddr remote;
        std::string transport;  // "udp", "tcp", "xtls"
        std::string state = "waiting";  // "waiting", "inprogress", "succeeded", "failed"
        int errorType = 0;  // 0 none, 1 connect, 2 error response, 3 no answer, 4 time-out
        int errorCode = 0;
    };
    int createCheckListPair(const CCmInetAddr& local, const CCmInetAddr& remote, const std::string& transport);
    void updateCheckListPair(int index, const std::string& state);
    void setIceConnectionError(int index, int errorType, int errorCode);
    int Find(const CCmInetAddr& local, const CCmInetAddr& remote) const;
    void Clear() { m_pairs.clear(); }
    const std::vector<Pair>& Pairs() const { return m_pairs; }
    // {"checkList":[{"protocol","localIp","localPort","remoteIp","remotePort","status",...}],
    //  "iceFailed":bool}
    std::string ToJson(bool failed) const;

private:
    std::vector<Pair> m_pairs;
};

}  // namespace zyn
