// The connection's network operations on one line: a chosen port, a connect without negotiation,
// the application's own transport, and the connector's gathering and ICE started again.
// Thread: the caller's (the application's main thread); each line hands its connector's part to its
// network thread. The line list is only changed on the main thread.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

// The plain path's transport towards the peer: UDP (bit 0 would ask for TCP).
constexpr unsigned int kPlainUdp = 0;

}  // namespace

ZynResult CMediaConnection::SetLocalPort(unsigned long mid, const char* localIp, unsigned short port, bool rtcpMux,
                                         unsigned int* boundPort)
{
    MS_INFO_TRACE("CMediaConnection::SetLocalPort, mid=" << mid << ", ip=" << (localIp ? localIp : "(null)")
                  << ", port=" << port << ", rtcpMux=" << rtcpMux << CONN_TAIL);
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    CCmInetAddr address = m_localAddress;
    if (localIp && *localIp && address.SetIpAddrByString(localIp) != CM_OK) return ZYN_E_INVALIDARG;
    // RTCP takes the next port without mux.
    if (!rtcpMux && port == 0xFFFF) return ZYN_E_INVALIDARG;
    uint16_t bound = 0;
    const ZynResult r = line->SetLocalPort(address, port, rtcpMux, bound);
    if (boundPort) *boundPort = bound;
    return r;
}

ZynResult CMediaConnection::ConnectRemote(unsigned long mid, bool rtcpMux)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    const CBaseConfig::COverrideAddress& destination = line->GetConfig().GetSendDestination();
    CCmInetAddr remote;
    if (!line->IsPortSelected() || destination.port == 0 || remote.SetIpAddrByString(destination.ip.c_str()) != CM_OK) {
        MS_WARNING_TRACE("CMediaConnection::ConnectRemote, no local port or no send destination, mid=" << mid
                         << CONN_TAIL);
        return ZYN_E_WRONGSTATE;
    }
    remote.SetPort(destination.port);
    return line->ConnectRemote(remote, kPlainUdp, rtcpMux);
}

ZynResult CMediaConnection::DisconnectRemote(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    MS_INFO_TRACE("CMediaConnection::DisconnectRemote, mid=" << mid << CONN_TAIL);
    // The port stays: a later ConnectRemote goes out from it again.
    return line->Disconnect_i(false, false);
}

ZynResult CMediaConnection::StopListening(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    MS_INFO_TRACE("CMediaConnection::StopListening, mid=" << mid << CONN_TAIL);
    return line->StopListen();
}

ZynResult CMediaConnection::allocateTurnRelayedAndReflexiveAddress(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    if (m_globalConfig.getICEServerNum() == 0) return ZYN_S_FALSE;
    // Without ICE there is no agent to give the candidates to.
    if (!IsICEEnabled()) return ZYN_E_WRONGSTATE;
    CMediaConnectionPtr self(this);
    return line->AllocateRelayedAndReflexive([self, mid](bool ok, const std::string& text) {
        MS_INFO_TRACE("CMediaConnection::allocateTurnRelayedAndReflexiveAddress, mid=" << mid << ", success=" << ok
                      << ", result=" << text);
        if (IZynMediaConnectionSink* sink = self->GetSink())
            sink->OnAllocateTurnRelayedAndReflexiveAddressComplete(mid, ok, text.c_str());
    });
}

ZynResult CMediaConnection::resetIceForBwcCalling(unsigned long mid, bool force, bool keepListening)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    return line->ResetIce(false, force, keepListening);
}

ZynResult CMediaConnection::resetIceForZarnCalling(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    return line->ResetIce(true, false, false);
}

ZynResult CMediaConnection::StartIceConnectivityCheckForSipCall()
{
    // Calls of this library are never SIP calls: no line carries a remote ICE configuration of its own.
    MS_WARNING_TRACE("CMediaConnection::StartIceConnectivityCheckForSipCall, not available" << CONN_TAIL);
    return ZYN_E_NOTAVAILABLE;
}

ZynResult CMediaConnection::SetTransport(unsigned long mid, IZynMediaTransport* transport, bool transportChanged)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("SetTransport", ZYN_E_FAIL);
    return line->SetTransport(transport, transportChanged);
}

ZynResult CMediaConnection::OnSendReady(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    return line ? line->OnSendReady() : ZYN_E_FAIL;
}

void CMediaConnection::GetPortRange(uint16_t& lowest, uint16_t& highest)
{
    lowest = highest = 0;
    for (CMediaConnectionInfo* line : m_connections) {
        uint16_t minPort = 0, maxPort = 0;
        line->GetLocalPortRange(minPort, maxPort);
        if (lowest == 0 || minPort < lowest) lowest = minPort;
        if (maxPort > highest) highest = maxPort;
    }
}

uint16_t CMediaConnection::GetPortMin()
{
    uint16_t lowest = 0, highest = 0;
    GetPortRange(lowest, highest);
    return lowest;
}

uint16_t CMediaConnection::GetPortMax()
{
    uint16_t lowest = 0, highest = 0;
    GetPortRange(lowest, highest);
    return highest;
}

}  // namespace zyn
