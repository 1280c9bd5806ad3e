// A line's path made without a negotiation: a port the application chose, a plain connect to a
// known address, a transport of the application's own, and the calls that start the connector's
// gathering or its ICE over.
//
// Threads: every operation here is called on the application's (main) thread; the connector's part
// runs on the line's network thread, the callers waiting for it except in ConnectRemote and
// AllocateRelayedAndReflexive, which post. The application's transport is held by the engine
// session alone, under the session's lock: the line keeps no copy that could outlive it.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "tp/CmThreadManager.h"
#include "util/CmTick.h"

namespace zyn {

namespace {

// OnSessionStatus: a connect started.
constexpr int kStatusConnecting = 1;

}  // namespace

void CMediaConnectionInfo::GetLocalPortRange(uint16_t& minPort, uint16_t& maxPort)
{
    const CBaseConfig::CPortRange& range = GetConfig().GetIceLocalPortRange();
    minPort = range.minPort;
    maxPort = range.maxPort;
    if (minPort == 0 && maxPort == 0) PortRangeOf(m_type, minPort, maxPort);
}

ZynResult CMediaConnectionInfo::SetLocalPort(const CCmInetAddr& address, uint16_t port, bool rtcpMux,
                                             uint16_t& boundPort)
{
    boundPort = 0;
    if (!m_networkThread || !m_eqNetwork || !m_sink) return ZYN_E_WRONGSTATE;
    uint16_t minPort = port, maxPort = static_cast<uint16_t>(rtcpMux ? port : port + 1);
    // Port 0 gives the choice back to the line's range, which an earlier fixed port replaced.
    if (port == 0) GetLocalPortRange(minPort, maxPort);
    const std::string ip = address.GetIpDisplayName();
    MS_INFO_TRACE("CMediaConnectionInfo::SetLocalPort, ip=" << ip << ", port=" << port << ", rtcpMux=" << rtcpMux
                  << LINE_TAIL);
    CmInvokeInThread(m_networkThread, false, [&] {
        m_iceConnector.SetLocalIP(ip, ip);
        m_iceConnector.SetPortRange(minPort, maxPort);
        return CM_OK;
    });
    const ZynResult listened = StartListen(address, rtcpMux, false);
    if (ZYN_FAILED(listened)) return listened;
    sdp::optional_value<sdp::ice_caps> caps;
    CCmInetAddr bound;
    GetIceCandidates(caps, bound);
    boundPort = bound.GetPort();
    if (boundPort == 0) return ZYN_E_GATHERFAILED;
    return CreateRemoteZynSession(m_sink->GetEngine(), false);
}

ZynResult CMediaConnectionInfo::ConnectRemote(const CCmInetAddr& remote, unsigned int connectionType, bool rtcpMux)
{
    // No handshake on this path: keys, where there are any, came from the configuration.
    CCmInetAddr address;
    if (!beginConnect(remote, false, address)) return ZYN_E_FAIL;
    MS_INFO_TRACE("CMediaConnectionInfo::ConnectRemote, remote=" << address.ToString() << ", rtcpMux=" << rtcpMux
                  << LINE_TAIL);
    return postConnect([this, address, connectionType, rtcpMux] {
        return m_iceConnector.ConnectRemoteForSipCall(address, connectionType, rtcpMux);
    });
}

ZynResult CMediaConnectionInfo::SetTransport(IZynMediaTransport* transport, bool transportChanged)
{
    if (!m_pZynSession) return ZYN_E_FAIL;
    MS_INFO_TRACE("CMediaConnectionInfo::SetTransport, transport=" << static_cast<void*>(transport)
                  << ", transportChanged=" << transportChanged << LINE_TAIL);
    // Without one the session goes back to the line's own path (which may have none yet).
    m_pZynSession->SetTransport(transport ? transport : static_cast<IZynMediaTransport*>(this));
    if (transport) SessionConnected(transportChanged);
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::OnSendReady()
{
    if (!m_pZynSession) return ZYN_E_FAIL;
    return m_pZynSession->OnSendReady();
}

ZynResult CMediaConnectionInfo::AllocateRelayedAndReflexive(std::function<void(bool, const std::string&)> done)
{
    if (!m_networkThread || !m_bPortSelected.load() || !m_sink) return ZYN_E_WRONGSTATE;
    CMediaConnectionPtr connection(m_sink);
    const CmResult r = CmInvokeInThread(
        m_networkThread, true,
        [this, connection, done] {
            m_iceConnector.allocateTurnRelayedAndReflexiveAddress(
                false, [connection, done](bool ok, const std::string& text) {
                    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
                    if (!main) return;
                    CmInvokeInThread(main, true, [connection, done, ok, text] {
                        done(ok, text);
                        return CM_OK;
                    });
                });
            return CM_OK;
        },
        CM_EVENT_PRIORITY_NORMAL);
    return r == CM_OK ? ZYN_S_OK : ZYN_E_FAIL;
}

ZynResult CMediaConnectionInfo::ResetIce(bool keepListeners, bool force, bool keepListening)
{
    if (!m_networkThread) return ZYN_E_WRONGSTATE;
    MS_INFO_TRACE("CMediaConnectionInfo::ResetIce, keepListeners=" << keepListeners << ", force=" << force
                  << ", keepListening=" << keepListening << LINE_TAIL);
    return CmInvokeInThread(m_networkThread, false, [&] {
        if (keepListeners)
            m_iceConnector.resetIceForZarnCalling();
        else
            m_iceConnector.resetIceForBwcCalling(force, keepListening);
        return CM_OK;
    });
}

}  // namespace zyn
