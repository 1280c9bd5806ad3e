// Port choice, listening and host candidates of the connector.
#include "ice/IceConnector.h"

#include <openssl/rand.h>

#include <random>

#include "util/CmLocalAddr.h"
#include "util/CmTrace.h"

namespace zyn {

#define ICE_TAIL " cid__" << m_callId << " this=" << static_cast<const void*>(this)

namespace {

// ICE credentials use the ice-char alphabet of RFC 5245: letters, digits, '+' and '/'.
std::string RandomIceText(size_t length)
{
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text(length, 'A');
    unsigned char bytes[64] = {};
    if (length > sizeof(bytes) || RAND_bytes(bytes, static_cast<int>(length)) != 1) return text;
    for (size_t i = 0; i < length; ++i) text[i] = kAlphabet[bytes[i] & 63];
    return text;
}

}  // namespace

CIceConnector::CIceConnector(IceConnectorSink* sink, uint32_t callId) : m_sink(sink), m_callId(callId)
{
    // Start positions only need to spread the ports of concurrent calls.
    std::random_device device("default");
    std::mt19937 generator(device());
    for (uint32_t& start : m_portStarts) start = generator();
}

CIceConnector::~CIceConnector() { CleanUp(false, false); }

void CIceConnector::SetLocalIP(const std::string& rtpIp, const std::string&) { m_localIp = rtpIp; }

void CIceConnector::SetPortRange(uint16_t minPort, uint16_t maxPort)
{
    m_portMin = minPort;
    m_portMax = maxPort < minPort ? minPort : maxPort;
}

std::vector<CCmInetAddr> CIceConnector::LocalAddresses(ZynResult& result)
{
    result = ZYN_S_OK;
    std::vector<CCmInetAddr> addresses;
    if (!m_localIp.empty() && m_localIp != "0.0.0.0") {
        CCmInetAddr fixed(m_localIp.c_str(), 0);
        if (fixed.IsValid()) addresses.push_back(fixed);
        return addresses;
    }
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    CmResult r = get_local_addr(&list, &count);
    if (r != CM_OK) {
        result = r;
        return addresses;
    }
    prune_local_addr(list, &count);
    for (unsigned int i = 0; i < count; ++i) {
        CCmInetAddr a(reinterpret_cast<const sockaddr*>(&list[i].addr), sizeof(list[i].addr));
        if (a.IsValid()) addresses.push_back(a);
    }
    free_local_addr(list);
    if (m_localIp == "0.0.0.0" && addresses.size() > 1) addresses.resize(1);
    return addresses;
}

ZynResult CIceConnector::StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice)
{
    StopListen();
    m_policy = policy;
    m_bIceEnable = ice;
    if (rtcpMux) m_bRtcpMux = true;
    ZynResult result = ZYN_S_OK;
    std::vector<CCmInetAddr> addresses = LocalAddresses(result);
    if (!ZYN_SUCCEEDED(result)) return result;

    if (!ice) {
        if (addresses.empty()) return ZYN_S_OK;
        CCmInetAddr addr = addresses.front();
        const bool udp = (policy & ZynConnectionPolicy_UDP) != 0;
        result = CreateAcceptor(&addr, udp ? CM_CONNECTION_TYPE_UDP : CM_CONNECTION_TYPE_TCP_FRAMED, m_bRtcpMux,
                                m_plainAcceptors);
        m_listenKind = udp ? 2 : 1;
        if (ZYN_SUCCEEDED(result)) {
            m_localRtp = addr;
            m_localRtcp = addr;
            if (!m_bRtcpMux) m_localRtcp.SetPort(static_cast<uint16_t>(addr.GetPort() + 1));
        }
        return result;
    }

    if (m_ufrag.empty()) {
        m_ufrag = RandomIceText(8);
        m_password = RandomIceText(24);
    }
    int step = 24;
    int counter = 1;
    int used = 0;
    for (CCmInetAddr addr : addresses) {
        if (!(m_policy & ZynConnectionPolicy_UDP)) break;
        if (used == kMaxAddresses) {
            MS_ERROR_TRACE("CIceConnector::StartCollectCandidates, we only support at most 8 IP addresses as candidate."
                           << ICE_TAIL);
            break;
        }
        ICmAcceptor* pair[2] = {nullptr, nullptr};
        if (ZYN_SUCCEEDED(CreateAcceptor(&addr, CM_CONNECTION_TYPE_UDP, m_bRtcpMux, pair))) {
            for (int component = 1; component <= 2; ++component) {
                if (!pair[component - 1]) continue;
                CIceCandidate c;
                c.rtpAddress = addr;
                c.rtpAddress.SetPort(static_cast<uint16_t>(addr.GetPort() + component - 1));
                c.component = component;
                c.localPreference = m_preferenceBase + step;
                c.foundationCounter = counter;
                c.acceptor = pair[component - 1];
                m_Candidates.push_back(c);
            }
        }
        ++used;
        step -= 3;
        counter += 4;
    }
    return ZYN_S_OK;
}

ZynResult CIceConnector::CreateAcceptor(CCmInetAddr* addr, uint32_t connType, bool rtcpMux, ICmAcceptor** acceptors)
{
    if (!addr || !acceptors) return ZYN_E_INVALIDARG;
    acceptors[0] = acceptors[1] = nullptr;
    const uint32_t width = static_cast<uint32_t>(m_portMax - m_portMin) + 1;
    const uint32_t start = m_portStarts[m_portIndex++];
    for (uint32_t attempt = 0; attempt < width; ++attempt) {
        uint32_t position = start + 2 * attempt;
        uint16_t port = static_cast<uint16_t>(m_portMin + ((position % width) & ~1u));
        if (!rtcpMux && port + 1 > m_portMax) continue;
        CmResult r = CM_OK;
        int opened = 0;
        for (int i = 0; i < (rtcpMux ? 1 : 2) && r == CM_OK; ++i) {
            r = CCmConnectionManager::Instance()->CreateConnectionServer(connType, acceptors[i], m_threadType);
            if (r != CM_OK) break;
            ++opened;
            CCmInetAddr at = *addr;
            at.SetPort(static_cast<uint16_t>(port + i));
            if (!m_bNonListen) r = acceptors[i]->StartListen(this, at);
        }
        if (r == CM_OK) {
            addr->SetPort(port);
            MS_INFO_TRACE("CIceConnector::CreateAcceptor, port=" << port << ", rtcpMux=" << rtcpMux << ICE_TAIL);
            return ZYN_S_OK;
        }
        for (int i = 0; i < opened; ++i) {
            acceptors[i]->StopListen(CM_OK);
            acceptors[i]->ReleaseReference();
            acceptors[i] = nullptr;
        }
        if (r == 99) break;
    }
    MS_ERROR_TRACE("CIceConnector::CreateAcceptor, no free port in " << m_portMin << "-" << m_portMax << ICE_TAIL);
    return ZYN_E_FAIL;
}

void CIceConnector::OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId*)
{
    if (reason != CM_OK || !transport) return;
    // Until the agent owns the paths, a peer's packets go straight to the media line.
    transport->OpenWithSink(m_sink);
}

void CIceConnector::CloseCandidates()
{
    for (CIceCandidate& c : m_Candidates) {
        if (!c.acceptor) continue;
        c.acceptor->StopListen(CM_OK);
        c.acceptor->ReleaseReference();
        c.acceptor = nullptr;
    }
    for (ICmAcceptor*& a : m_plainAcceptors) {
        if (!a) continue;
        a->StopListen(CM_OK);
        a->ReleaseReference();
        a = nullptr;
    }
}

void CIceConnector::StopListen()
{
    CloseCandidates();
    m_Candidates.clear();
    m_localRtp = CCmInetAddr();
    m_localRtcp = CCmInetAddr();
    m_listenKind = 0;
}

void CIceConnector::CleanUp(bool, bool) { StopListen(); }

void CIceConnector::GetIceCandidates(sdp::ice_caps& caps, CCmInetAddr& address)
{
    caps = sdp::ice_caps();
    if (!m_bIceEnable) {
        address = m_localRtp;
        return;
    }
    caps.username = m_ufrag;
    caps.password = m_password;
    address = CCmInetAddr();
    for (const CIceCandidate& c : m_Candidates) {
        if (c.component == 1 && address.GetPort() == 0) address = c.rtpAddress;
        // Host type preference 126, then the address's preference, then the component.
        const uint32_t priority = (126u << 24) | (static_cast<uint32_t>(c.localPreference & 0xFFFF) << 8) |
                                  static_cast<uint32_t>(256 - c.component);
        caps.candidates.emplace_back(std::to_string(c.foundationCounter), static_cast<uint32_t>(c.component), "UDP",
                                     priority, c.rtpAddress.GetIpDisplayName(), c.rtpAddress.GetPort(), "host");
    }
}

}  // namespace zyn
