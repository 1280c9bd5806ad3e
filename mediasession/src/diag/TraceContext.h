// One probe of a reachability test: one URI, one transport. "stun:" sends STUN Binding requests over
// UDP (resent on a doubling schedule); "http:" and "https:" connect over TCP (and TLS), send a GET
// and read the response. The answer's arrival fixes the round trip; an answer that is not a whole
// response, a refused connection, a failed certificate check or the probe's time-out mark the
// server unreachable.
//
// Threads: a context lives on the trace server's network thread: it is kicked there and its
// transports, connectors, TLS session and DNS answers call it there. It owns them all and releases
// them in closeTransaction.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/ZynIdentity.h"
#include "diag/TraceHttpObj.h"
#include "stunlib_types.h"
#include "tp/CmInetAddr.h"
#include "tp/CmThread.h"
#include "tp/CmTls.h"
#include "tp/CmTransport.h"
#include "tp/CmUri.h"

struct TraceProbeSettings {
    // A probe that has no answer this long after its start is unreachable.
    int probeTimeoutMs = 3000;
    // STUN over UDP: the first resend after this long, each next one after twice the last
    // (RFC 5389 7.2.1's schedule, started at 250 ms as a client on a known-good network may).
    int stunFirstResendMs = 250;
    bool tlsVerifyPeer = true;
    std::string tlsCaFile;
    uint16_t portMin = 0;
    uint16_t portMax = 0;
};

// What the trace server needs of a probe; tests give it fakes.
class ITraceProbe {
public:
    enum Transport { TRANSPORT_UDP = 0, TRANSPORT_TCP = 1, TRANSPORT_XTLS = 2 };
    virtual ~ITraceProbe() = default;
    virtual Transport GetTransport() const = 0;
    virtual const std::string& GetClusterName() const = 0;
    // Starts the probe the first time; afterwards resends whatever is due.
    virtual void Kick(uint64_t nowUs) = 0;
    virtual bool IsStarted() const = 0;
    // Finished by an answer, a failure, or (judged at nowUs) its time-out.
    virtual bool IsComplete(uint64_t nowUs) = 0;
    virtual bool IsReachable() const = 0;
    // Milliseconds from request to answer; -1 without one.
    virtual double GetRTT() const = 0;
    // Releases transports and lookups; no callback reaches the probe afterwards.
    virtual void closeTransaction() = 0;
};

const char* TraceTransportName(ITraceProbe::Transport transport);  // "udp", "tcp", "xtls"

class ITraceProbeFactory {
public:
    virtual ~ITraceProbeFactory() = default;
    virtual std::unique_ptr<ITraceProbe> Create(const std::string& cluster, const CCmUri& uri,
                                                const TraceProbeSettings& settings) = 0;
};

class CTraceContext final : public ITraceProbe,
                            public ICmTransportSink,
                            public ICmAcceptorConnectorSink,
                            public ICmTlsSink,
                            public ZYNIdentityT<CTraceContext> {
public:
    using Clock = std::function<uint64_t()>;  // microseconds, monotonic

    CTraceContext(std::string cluster, const CCmUri& uri, const TraceProbeSettings& settings, ACmThread* thread,
                  Clock clock);
    ~CTraceContext() override;

    Transport GetTransport() const override { return m_transport; }
    const std::string& GetClusterName() const override { return m_cluster; }
    void Kick(uint64_t nowUs) override;
    bool IsStarted() const override { return m_state != State::Idle; }
    bool IsComplete(uint64_t nowUs) override;
    bool IsReachable() const override { return m_reachable; }
    double GetRTT() const override { return m_rttMs; }
    void closeTransaction() override;
    // Loopback, RFC 1918, link-local or unique-local: a server only this site can reach.
    bool IsPrivateAddress() const;

    void StartDetect(uint64_t nowUs);
    void SendStunMessage(uint64_t nowUs);
    void SendHTTPGetRequest();

    // ICmAcceptorConnectorSink
    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id) override;
    // ICmTransportSink
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult reason, ICmTransport* transport) override;
    // ICmTlsSink
    void OnTlsSend(const uint8_t* data, size_t length) override;
    void OnTlsConnected() override;
    void OnTlsData(const uint8_t* data, size_t length) override;
    void OnTlsClosed() override;
    void OnTlsFailed(const char* reason) override;

private:
    enum class State { Idle, Resolving, Connecting, Waiting, Done };

    void OnResolved(const CCmInetAddr& addr);
    void Open();
    void OpenUdp();
    void ReadHttp(const char* data, size_t length, bool end);
    void Complete(bool reachable, const char* why);

    const std::string m_cluster;
    const CCmUri m_uri;
    const TraceProbeSettings m_settings;
    const Transport m_transport;
    ACmThread* const m_thread;
    Clock m_clock;

    State m_state = State::Idle;
    bool m_reachable = false;
    double m_rttMs = -1;
    uint64_t m_startUs = 0;
    int m_family = AF_INET;
    CCmInetAddr m_peer;

    ICmAcceptor* m_acceptor = nullptr;    // one reference (UDP)
    ICmConnector* m_connector = nullptr;  // one reference
    ICmTransport* m_transportObj = nullptr;  // one reference
    std::unique_ptr<CCmTlsClient> m_tls;
    CTraceHttpObj m_http;
    uint64_t m_requestUs = 0;  // when the GET went out

    struct StunSend {
        gatewalk::StunMsgId id;
        uint64_t atUs;
    };
    std::vector<StunSend> m_stunSends;
    uint64_t m_nextResendUs = 0;
    uint64_t m_resendGapUs = 0;
};

// Makes CTraceContext probes on a network thread with the monotonic clock.
class CTraceContextFactory final : public ITraceProbeFactory {
public:
    CTraceContextFactory(ACmThread* thread, CTraceContext::Clock clock) : m_thread(thread), m_clock(std::move(clock)) {}
    std::unique_ptr<ITraceProbe> Create(const std::string& cluster, const CCmUri& uri,
                                        const TraceProbeSettings& settings) override;

private:
    ACmThread* const m_thread;
    CTraceContext::Clock m_clock;
};
