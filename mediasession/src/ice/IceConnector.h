// The connector gives one media line its network path: local addresses, listening sockets and
// candidates, later the agent, transports and DTLS. All of its work runs on the network thread
// named by SetNetworkThreadType, which is called before anything else.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mediasession/ZynDefines.h"
#include "sdp/ice.h"
#include "tp/CmInetAddr.h"
#include "tp/CmTransport.h"

namespace zyn {

// Bit 0: UDP. The other bits are the transport library's.
using ZynConnectionPolicy = uint32_t;
constexpr ZynConnectionPolicy ZynConnectionPolicy_UDP = 1;

// What the connector tells its media line.
class IceConnectorSink : public ICmTransportSink {
};

// One local port pair.
struct CIceCandidate {
    CCmInetAddr rtpAddress;
    CCmInetAddr rtcpAddress;  // any-address when RTCP is muxed
    std::string transportName = "UDP";
    int candidateType = 0;     // host
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
    virtual void CleanUp(bool keepCandidates, bool keepIce) = 0;
    virtual void SetConnectionPolicy(ZynConnectionPolicy policy) = 0;
    virtual bool HasNetwork() = 0;
    virtual bool IsIceRunning() = 0;
    virtual void SetLocalIP(const std::string& rtpIp, const std::string& rtcpIp) = 0;
    virtual void SetPortRange(uint16_t minPort, uint16_t maxPort) = 0;
    virtual void SetSessionType(ZynSessionType type) = 0;
    virtual void setNonListen(bool nonListen) = 0;
    // Credentials and candidates for the description (none without ICE), and the address its m
    // line carries: the first RTP candidate, or the plain RTP port. Port 0: nothing is bound.
    virtual void GetIceCandidates(sdp::ice_caps& caps, CCmInetAddr& address) = 0;
};

class CIceConnector : public IIceConnector, public ICmAcceptorConnectorSink {
public:
    CIceConnector(IceConnectorSink* sink, uint32_t callId);
    ~CIceConnector() override;

    void SetNetworkThreadType(int type) override { m_threadType = type; }
    ZynResult StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice) override;
    void StopListen() override;
    void CleanUp(bool keepCandidates, bool keepIce) override;
    void SetConnectionPolicy(ZynConnectionPolicy policy) override { m_policy = policy; }
    bool HasNetwork() override { return !m_Candidates.empty() || m_localRtp.GetPort() != 0; }
    bool IsIceRunning() override { return false; }
    void SetLocalIP(const std::string& rtpIp, const std::string& rtcpIp) override;
    void SetPortRange(uint16_t minPort, uint16_t maxPort) override;
    void SetSessionType(ZynSessionType type) override { m_sessionType = type; }
    void setNonListen(bool nonListen) override { m_bNonListen = nonListen; m_bNonListenSet = true; }
    void GetIceCandidates(sdp::ice_caps& caps, CCmInetAddr& address) override;
    const std::string& GetLocalUfrag() const { return m_ufrag; }
    const std::string& GetLocalPassword() const { return m_password; }

    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id) override;

    // Picks a port in the range (the minimum plus an even number) and opens one acceptor, or two
    // on port and port + 1 without RTCP mux. addr's port is set to the one chosen.
    ZynResult CreateAcceptor(CCmInetAddr* addr, uint32_t connType, bool rtcpMux, ICmAcceptor** acceptors);

    const std::vector<CIceCandidate>& GetCandidates() const { return m_Candidates; }
    const CCmInetAddr& GetLocalRtpAddress() const { return m_localRtp; }
    const CCmInetAddr& GetLocalRtcpAddress() const { return m_localRtcp; }
    bool IsRtcpMux() const { return m_bRtcpMux; }
    uint16_t GetPortMin() const { return m_portMin; }
    uint16_t GetPortMax() const { return m_portMax; }

    // At most this many local addresses become candidates.
    static constexpr int kMaxAddresses = 8;

private:
    std::vector<CCmInetAddr> LocalAddresses(ZynResult& result);
    void CloseCandidates();

    IceConnectorSink* const m_sink;
    const uint32_t m_callId;
    int m_threadType = 1;
    ZynSessionType m_sessionType = ZynSessionType_Unknown;
    ZynConnectionPolicy m_policy = ZynConnectionPolicy_UDP;
    bool m_bIceEnable = false;
    bool m_bRtcpMux = false;  // once set, stays set for the life of the connector
    bool m_bNonListen = false;
    bool m_bNonListenSet = false;
    std::string m_localIp;
    uint16_t m_portMin = 0;
    uint16_t m_portMax = 0;
    uint8_t m_portIndex = 0;
    std::array<uint32_t, 256> m_portStarts{};
    int m_preferenceBase = 0x7E00;
    std::vector<CIceCandidate> m_Candidates;
    // Without ICE: the plain port pair.
    CCmInetAddr m_localRtp;
    CCmInetAddr m_localRtcp;
    ICmAcceptor* m_plainAcceptors[2] = {nullptr, nullptr};
    int m_listenKind = 0;  // 2 UDP, 1 TCP
    // Made with the first candidates and kept: a new description of the same line is no restart.
    std::string m_ufrag;
    std::string m_password;
};

// Hides which connector is there; with none, result codes are ZYN_S_FALSE and the rest neutral.
class CIceConnectorWrapper : public IIceConnector {
public:
    void Set(std::shared_ptr<IIceConnector> connector) { m_connector = std::move(connector); }
    IIceConnector* Get() const { return m_connector.get(); }

    void SetNetworkThreadType(int type) override { if (m_connector) m_connector->SetNetworkThreadType(type); }
    ZynResult StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice) override
    {
        return m_connector ? m_connector->StartCollectCandidates(policy, rtcpMux, ice) : ZYN_S_FALSE;
    }
    void StopListen() override { if (m_connector) m_connector->StopListen(); }
    void CleanUp(bool a, bool b) override { if (m_connector) m_connector->CleanUp(a, b); }
    void SetConnectionPolicy(ZynConnectionPolicy p) override { if (m_connector) m_connector->SetConnectionPolicy(p); }
    bool HasNetwork() override { return m_connector && m_connector->HasNetwork(); }
    bool IsIceRunning() override { return m_connector && m_connector->IsIceRunning(); }
    void SetLocalIP(const std::string& a, const std::string& b) override { if (m_connector) m_connector->SetLocalIP(a, b); }
    void SetPortRange(uint16_t a, uint16_t b) override { if (m_connector) m_connector->SetPortRange(a, b); }
    void SetSessionType(ZynSessionType t) override { if (m_connector) m_connector->SetSessionType(t); }
    void setNonListen(bool v) override { if (m_connector) m_connector->setNonListen(v); }
    void GetIceCandidates(sdp::ice_caps& caps, CCmInetAddr& address) override
    {
        if (m_connector) m_connector->GetIceCandidates(caps, address);
    }

private:
    std::shared_ptr<IIceConnector> m_connector;
};

}  // namespace zyn
