// The connector gives one media line its network path: local addresses, listening sockets and
// candidates, the STUN and TURN allocations, the ICE agent, the transports that survive it and the
// DTLS session that keys SRTP. The line sees it through IIceConnector and hears from it through
// IceConnectorSink; CIceConnectorWrapper hides which profile of the NAT stack is underneath.
//
// Threads: every operation of a connector runs on the network thread named by SetNetworkThreadType
// (called before anything else); its transports, timers and the stack call back on that thread too.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "mediasession/ZynDefines.h"
#include "sdp/dtls.h"
#include "sdp/ice.h"
#include "sdp/optional_value.h"
#include "tp/CmInetAddr.h"
#include "tp/CmString.h"
#include "tp/CmTransport.h"

namespace zyn {

class CGlobalConfig;

// Bit 0: UDP. Bit 1: TCP towards the peer (a share line without retransmission). Bit 8, our own:
// relayed candidates only, for users behind firewalls that let nothing but the relay through and for
// proving the relay path. The other bits are free.
using ZynConnectionPolicy = uint32_t;
constexpr ZynConnectionPolicy ZynConnectionPolicy_UDP = 1;
constexpr ZynConnectionPolicy ZynConnectionPolicy_TCP = 2;
constexpr ZynConnectionPolicy ZynConnectionPolicy_RelayOnly = 0x100;

// Origin of an ICE report to the line.
enum ZynIceOrigin : int {
    ZynIceOrigin_Plain = 0,  // the path without ICE
    ZynIceOrigin_Ice = 2,
};

// What the connector tells its media line, and what it asks of it. Network thread.
class IceConnectorSink : public ICmTransportSink {
public:
    // reason 0: transports[0] (RTP) and transports[1] (RTCP, null with mux) carry the media now.
    // Otherwise ICE or the plain connect failed with that reason. update: the running path only
    // changed its report.
    virtual void OnIceComplete(CmResult reason, ICmTransport* const* transports, int count, int origin,
                               bool update) = 0;
    virtual void OnIceCheckListReady(int origin) = 0;
    virtual void UpdateIceMetricsForSipCall(CmResult reason, ICmTransport* const* transports, int count) = 0;
    // A keep-alive answer says the NAT mapped us to another port: the path must be found again.
    virtual void OnMappedPortChangedInKeepalive(int index) = 0;
    // direction 1 send, 2 receive; key is base64 of the master key and salt.
    virtual ZynResult setupSrtpCrypto(int direction, const char* suite, const char* key, int flag, int value) = 0;
    virtual bool IsDtlsSRTPEnabled() const = 0;
    virtual int GetClientType() const = 0;
    virtual bool IsSipCall() const = 0;
};

// One local port pair of the connector.
struct CIceCandidate {
    CCmInetAddr rtpAddress;
    CCmInetAddr rtcpAddress;  // any-address when RTCP is muxed
    std::string transportName = "UDP";
    int candidateType = 1;  // host
    int component = 1;
    int localPreference = 0;
    int foundationCounter = 0;
    ICmAcceptor* acceptor = nullptr;  // one reference
};

class IIceConnector {
public:
    virtual ~IIceConnector() = default;
    virtual void SetNetworkThreadType(int type) = 0;
    virtual ZynResult StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice) = 0;
    virtual void StopListen() = 0;
    // STUN and TURN candidates from every server of the configuration (isCheck: one candidate, a
    // server check). done(success, text) runs on the network thread once all have answered.
    virtual void allocateTurnRelayedAndReflexiveAddress(bool isCheck, std::function<void(bool, const std::string&)> done) = 0;
    virtual void resetIceForBwcCalling(bool force, bool keep) = 0;
    virtual void resetIceForZarnCalling() = 0;
    virtual void CleanUp(bool cleanup, bool stopListen) = 0;
    virtual void SetConnectionPolicy(ZynConnectionPolicy policy) = 0;
    virtual ZynResult Reconnect() = 0;
    // Credentials and candidates for the description (none without ICE), and the address its m
    // line carries. Port 0: nothing is bound.
    virtual void GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& defaultAddr) = 0;
    virtual ZynResult ConnectRemoteForSipCall(const CCmInetAddr& addr, unsigned int transportFlags, bool rtcpMux) = 0;
    virtual ZynResult StartConnectivityCheckForSipCall(const sdp::optional_value<sdp::ice_caps>& ice, bool controlling,
                                                       unsigned long tieBreaker) = 0;
    virtual ZynResult SetRemoteCandidates(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                          bool controlling, unsigned long tieBreaker, unsigned int cType,
                                          bool rtcpMux) = 0;
    virtual bool GetIceConclusion(std::string& rtpHost, int& rtpPort, std::string& rtcpHost, int& rtcpPort) = 0;
    virtual bool GetConcludedCandidates(std::string& ufrag, std::string& pwd, std::list<std::string>& local,
                                        std::string& remote) = 0;
    virtual bool HasNetwork() = 0;
    virtual bool IsIceRunning() = 0;
    virtual void SetOverrideIP(const char* ip, int port) = 0;
    virtual void SetLocalIP(const std::string& rtpIp, const std::string& rtcpIp) = 0;
    virtual void SetPortRange(uint16_t minPort, uint16_t maxPort) = 0;
    virtual std::string getIceCheckListMetric() = 0;
    virtual void SetGlobalConfig(CGlobalConfig* config) = 0;
    virtual void SetDtlsCertification(const CCmString& cert, const CCmString& key, const CCmInetAddr& addr) = 0;
    virtual void SetSessionType(ZynSessionType type) = 0;
    virtual bool GetIceRejected() = 0;
    virtual void getAndResetStunDtlsStats(bool reset, unsigned int& stunSent, unsigned int& stunReceived,
                                          unsigned int& dtlsSent, unsigned int& dtlsReceived) = 0;
    virtual std::string getPeerReflexiveIp() = 0;
    virtual void setNonListen(bool nonListen) = 0;
    // The negotiated DTLS of the line: the local role (active: we send the ClientHello) and the
    // remote capability whose first fingerprint the peer's certificate must match. Given before
    // SetRemoteCandidates; an empty remote means none was offered.
    virtual void SetDtlsNegotiated(sdp::dtls_setup_role localRole, const sdp::optional_value<sdp::dtls_caps>& remote) = 0;
    // The path in use: its two ends and, with ICE, the type of the local candidate. False before.
    virtual bool GetSelectedPath(CCmInetAddr& local, CCmInetAddr& remote, std::string& candidateType) = 0;
};

// Makes the connector of a profile: zyn_gatewalk for most clients, qlox_gatewalk for client types 2
// and 4.
std::shared_ptr<IIceConnector> createIceConnector(IceConnectorSink* sink, unsigned int callId);
std::shared_ptr<IIceConnector> createIceConnectorWithQLOXGatewalk(IceConnectorSink* sink, unsigned int callId);

// Hides which connector is there; with none, result codes are ZYN_S_FALSE and the rest neutral.
class CIceConnectorWrapper final : public IIceConnector {
public:
    void Set(std::shared_ptr<IIceConnector> connector) { m_connector = std::move(connector); }
    IIceConnector* Get() const { return m_connector.get(); }

    void SetNetworkThreadType(int type) override { Do([&](IIceConnector& c) { c.SetNetworkThreadType(type); }); }
    ZynResult StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice) override
    {
        return m_connector ? m_connector->StartCollectCandidates(policy, rtcpMux, ice) : ZYN_S_FALSE;
    }
    void StopListen() override { Do([](IIceConnector& c) { c.StopListen(); }); }
    void allocateTurnRelayedAndReflexiveAddress(bool isCheck,
                                                std::function<void(bool, const std::string&)> done) override
    {
        if (m_connector) m_connector->allocateTurnRelayedAndReflexiveAddress(isCheck, std::move(done));
    }
    void resetIceForBwcCalling(bool force, bool keep) override
    {
        Do([&](IIceConnector& c) { c.resetIceForBwcCalling(force, keep); });
    }
    void resetIceForZarnCalling() override { Do([](IIceConnector& c) { c.resetIceForZarnCalling(); }); }
    void CleanUp(bool cleanup, bool stopListen) override { Do([&](IIceConnector& c) { c.CleanUp(cleanup, stopListen); }); }
    void SetConnectionPolicy(ZynConnectionPolicy p) override { Do([&](IIceConnector& c) { c.SetConnectionPolicy(p); }); }
    ZynResult Reconnect() override { return m_connector ? m_connector->Reconnect() : ZYN_S_FALSE; }
    void GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& addr) override
    {
        Do([&](IIceConnector& c) { c.GetIceCandidates(caps, addr); });
    }
    ZynResult ConnectRemoteForSipCall(const CCmInetAddr& addr, unsigned int flags, bool mux) override
    {
        return m_connector ? m_connector->ConnectRemoteForSipCall(addr, flags, mux) : ZYN_S_FALSE;
    }
    ZynResult StartConnectivityCheckForSipCall(const sdp::optional_value<sdp::ice_caps>& ice, bool controlling,
                                               unsigned long tieBreaker) override
    {
        return m_connector ? m_connector->StartConnectivityCheckForSipCall(ice, controlling, tieBreaker) : ZYN_S_FALSE;
    }
    ZynResult SetRemoteCandidates(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                  bool controlling, unsigned long tieBreaker, unsigned int cType, bool mux) override
    {
        return m_connector ? m_connector->SetRemoteCandidates(ice, remote, controlling, tieBreaker, cType, mux)
                           : ZYN_S_FALSE;
    }
    bool GetIceConclusion(std::string& a, int& b, std::string& c, int& d) override
    {
        return m_connector && m_connector->GetIceConclusion(a, b, c, d);
    }
    bool GetConcludedCandidates(std::string& u, std::string& p, std::list<std::string>& l, std::string& r) override
    {
        return m_connector && m_connector->GetConcludedCandidates(u, p, l, r);
    }
    bool HasNetwork() override { return m_connector && m_connector->HasNetwork(); }
    bool IsIceRunning() override { return m_connector && m_connector->IsIceRunning(); }
    void SetOverrideIP(const char* ip, int port) override { Do([&](IIceConnector& c) { c.SetOverrideIP(ip, port); }); }
    void SetLocalIP(const std::string& a, const std::string& b) override { Do([&](IIceConnector& c) { c.SetLocalIP(a, b); }); }
    void SetPortRange(uint16_t a, uint16_t b) override { Do([&](IIceConnector& c) { c.SetPortRange(a, b); }); }
    std::string getIceCheckListMetric() override { return m_connector ? m_connector->getIceCheckListMetric() : ""; }
    void SetGlobalConfig(CGlobalConfig* config) override { Do([&](IIceConnector& c) { c.SetGlobalConfig(config); }); }
    void SetDtlsCertification(const CCmString& cert, const CCmString& key, const CCmInetAddr& addr) override
    {
        Do([&](IIceConnector& c) { c.SetDtlsCertification(cert, key, addr); });
    }
    void SetSessionType(ZynSessionType t) override { Do([&](IIceConnector& c) { c.SetSessionType(t); }); }
    bool GetIceRejected() override { return m_connector && m_connector->GetIceRejected(); }
    void getAndResetStunDtlsStats(bool reset, unsigned int& a, unsigned int& b, unsigned int& c, unsigned int& d) override
    {
        a = b = c = d = 0;
        Do([&](IIceConnector& x) { x.getAndResetStunDtlsStats(reset, a, b, c, d); });
    }
    std::string getPeerReflexiveIp() override { return m_connector ? m_connector->getPeerReflexiveIp() : ""; }
    void setNonListen(bool v) override { Do([&](IIceConnector& c) { c.setNonListen(v); }); }
    void SetDtlsNegotiated(sdp::dtls_setup_role role, const sdp::optional_value<sdp::dtls_caps>& remote) override
    {
        Do([&](IIceConnector& c) { c.SetDtlsNegotiated(role, remote); });
    }
    bool GetSelectedPath(CCmInetAddr& local, CCmInetAddr& remote, std::string& type) override
    {
        return m_connector && m_connector->GetSelectedPath(local, remote, type);
    }

private:
    template <class F>
    void Do(F f)
    {
        if (m_connector) f(*m_connector);
    }
    std::shared_ptr<IIceConnector> m_connector;
};

}  // namespace zyn
