// Runs on the trace server's network thread.
#include "diag/TraceContext.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "diag/DNSResolverManager.h"
#include "icelib.h"
#include "stunlib.h"
#include "tp/CmThreadManager.h"
#include "tp/CmTcpTransport.h"
#include "tp/CmUdpAcceptor.h"
#include "util/CmTrace.h"

namespace {

namespace z = zyn_gatewalk;

ITraceProbe::Transport TransportOf(const CCmUri& uri)
{
    switch (uri.GetScheme()) {
    case CCmUri::SCHEME_HTTP: return ITraceProbe::TRANSPORT_TCP;
    case CCmUri::SCHEME_HTTPS: return ITraceProbe::TRANSPORT_XTLS;
    default: return ITraceProbe::TRANSPORT_UDP;
    }
}

// The address the kernel would send from towards peer (a connect() on a scratch socket sends
// nothing); binding there keeps a probe of a loopback server on loopback.
CCmInetAddr SourceFor(const CCmInetAddr& peer)
{
    CCmInetAddr source;
    source.Set(peer.IsIpv6() ? "::" : "0.0.0.0", 0);
    const int fd = socket(peer.GetType(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return source;
    sockaddr_storage ss{};
    socklen_t len = sizeof(ss);
    if (connect(fd, peer.GetPtr(), peer.GetSize()) == 0 && getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0) {
        source = CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), len);
        source.SetPort(0);
    }
    close(fd);
    return source;
}

}  // namespace

const char* TraceTransportName(ITraceProbe::Transport transport)
{
    switch (transport) {
    case ITraceProbe::TRANSPORT_TCP: return "tcp";
    case ITraceProbe::TRANSPORT_XTLS: return "xtls";
    default: return "udp";
    }
}

CTraceContext::CTraceContext(std::string cluster, const CCmUri& uri, const TraceProbeSettings& settings,
                             ACmThread* thread, Clock clock)
    : m_cluster(std::move(cluster)), m_uri(uri), m_settings(settings), m_transport(TransportOf(uri)), m_thread(thread),
      m_clock(std::move(clock))
{
}

CTraceContext::~CTraceContext() { closeTransaction(); }

void CTraceContext::Kick(uint64_t nowUs)
{
    if (m_state == State::Idle) {
        StartDetect(nowUs);
        return;
    }
    if (m_state == State::Waiting && m_transport == TRANSPORT_UDP && nowUs >= m_nextResendUs) SendStunMessage(nowUs);
}

bool CTraceContext::IsComplete(uint64_t nowUs)
{
    if (m_state == State::Done) return true;
    if (m_state != State::Idle && nowUs - m_startUs >= static_cast<uint64_t>(m_settings.probeTimeoutMs) * 1000)
        Complete(false, "timed out");
    return m_state == State::Done;
}

void CTraceContext::StartDetect(uint64_t nowUs)
{
    m_startUs = nowUs;
    MS_DETAIL_TRACE("CTraceContext::StartDetect, uri=" << m_uri.ToString() << ", cluster=" << m_cluster);
    if (m_uri.IsNumericHost()) {
        m_peer.Set(m_uri.GetHost().c_str(), m_uri.GetPort());
        Open();
        return;
    }
    m_state = State::Resolving;
    CCmInetAddr name;
    name.SetUnresolved(m_uri.GetHost().c_str(), m_uri.GetPort(), m_family);
    const CmResult rv = CDNSResolverManager::Instance()->resolve(
        name, this, [this](const CCmInetAddr& addr) { OnResolved(addr); }, m_thread, m_family);
    if (rv != CM_OK) Complete(false, "cannot resolve");
}

void CTraceContext::OnResolved(const CCmInetAddr& addr)
{
    if (m_state != State::Resolving) return;
    if (addr.IsResolved()) {
        m_peer = addr;
        Open();
        return;
    }
    // No A record: the name may have only AAAA.
    if (m_family == AF_INET) {
        m_family = AF_INET6;
        CCmInetAddr name;
        name.SetUnresolved(m_uri.GetHost().c_str(), m_uri.GetPort(), m_family);
        if (CDNSResolverManager::Instance()->resolve(
                name, this, [this](const CCmInetAddr& a) { OnResolved(a); }, m_thread, m_family) == CM_OK)
            return;
    }
    Complete(false, "no address for the host");
}

void CTraceContext::Open()
{
    m_state = State::Connecting;
    if (m_transport == TRANSPORT_UDP) {
        OpenUdp();
        return;
    }
    auto* connector = new CCmTcpConnector(m_thread, false);
    connector->AddReference();
    m_connector = connector;
    if (m_connector->AsycConnect(this, m_peer, m_settings.probeTimeoutMs) != CM_OK) Complete(false, "connect failed");
}

void CTraceContext::OpenUdp()
{
    auto* acceptor = new CCmUdpAcceptor(m_thread);
    acceptor->AddReference();
    m_acceptor = acceptor;
    CCmInetAddr local = SourceFor(m_peer);
    CmResult rv = CM_ERROR_FAILURE;
    if (m_settings.portMin != 0 && m_settings.portMax >= m_settings.portMin) {
        for (uint32_t port = m_settings.portMin; rv != CM_OK && port <= m_settings.portMax; ++port) {
            local.SetPort(static_cast<uint16_t>(port));
            rv = m_acceptor->StartListen(this, local);
        }
        if (rv != CM_OK) MS_WARNING_TRACE("CTraceContext::OpenUdp, no free port in the range, any port is used");
    }
    if (rv != CM_OK) {
        local.SetPort(0);
        rv = m_acceptor->StartListen(this, local);
    }
    if (rv != CM_OK || m_acceptor->CreateConnector(m_connector) != CM_OK ||
        m_connector->AsycConnect(this, m_peer) != CM_OK)
        Complete(false, "udp socket failed");
}

void CTraceContext::OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id)
{
    // A datagram from an address we never sent to comes to the acceptor's sink too: not ours.
    if (!id || !id->IsConnector() || m_state != State::Connecting || m_transportObj) return;
    if (reason != CM_OK || !transport) {
        Complete(false, "connect failed");
        return;
    }
    m_transportObj = transport;
    m_transportObj->AddReference();
    m_transportObj->OpenWithSink(this);
    m_state = State::Waiting;
    if (m_transport == TRANSPORT_UDP) {
        m_resendGapUs = static_cast<uint64_t>(m_settings.stunFirstResendMs) * 1000;
        SendStunMessage(m_clock());
        return;
    }
    if (m_transport == TRANSPORT_TCP) {
        SendHTTPGetRequest();
        return;
    }
    CmTlsOptions options;
    options.serverName = m_uri.GetHost();
    options.verifyPeer = m_settings.tlsVerifyPeer;
    options.caFile = m_settings.tlsCaFile;
    m_tls = CCmTlsClient::Create(options, this);
    if (!m_tls) {
        Complete(false, "tls set-up failed");
        return;
    }
    m_tls->Connect();
}

void CTraceContext::SendStunMessage(uint64_t nowUs)
{
    if (!m_transportObj) return;
    // A fresh id for each send, so that an answer tells which send it answers.
    z::StunMessage message;
    memset(&message, 0, sizeof(message));
    message.msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
    message.msgHdr.id = z::ICELIB_generateTransactionId();
    uint8_t buffer[128];
    const uint32_t length = z::stunlib_encodeMessage(&message, buffer, sizeof(buffer), nullptr, 0, nullptr);
    CCmMessageBlock block(buffer, length);
    if (length == 0 || m_transportObj->SendData(block) != CM_OK) MS_WARNING_TRACE("CTraceContext::SendStunMessage, send failed");
    m_stunSends.push_back({message.msgHdr.id, nowUs});
    m_nextResendUs = nowUs + m_resendGapUs;
    m_resendGapUs *= 2;
}

void CTraceContext::SendHTTPGetRequest()
{
    const std::string request = "GET " + m_uri.GetPath() + " HTTP/1.1\r\nHost: " + m_uri.GetHostAndPort() +
                                "\r\nUser-Agent: mediasession-trace\r\nAccept: */*\r\nConnection: close\r\n\r\n";
    m_requestUs = m_clock();
    CmResult rv;
    if (m_tls) {
        rv = m_tls->Write(reinterpret_cast<const uint8_t*>(request.data()), request.size());
    } else {
        CCmMessageBlock block(request.data(), request.size());
        rv = m_transportObj ? m_transportObj->SendData(block) : CM_ERROR_NOT_INITIALIZED;
    }
    if (rv != CM_OK) Complete(false, "request not sent");
}

void CTraceContext::OnReceive(CCmMessageBlock& data, ICmTransport*, CCmTransportParameter*)
{
    if (m_state != State::Waiting) return;
    const auto* bytes = reinterpret_cast<const uint8_t*>(data.GetTopLevelReadPtr());
    const size_t length = data.GetTopLevelLength();
    if (m_transport == TRANSPORT_TCP) {
        ReadHttp(reinterpret_cast<const char*>(bytes), length, false);
        return;
    }
    if (m_transport == TRANSPORT_XTLS) {
        if (m_tls) m_tls->ReadData(bytes, length);
        return;
    }
    z::StunMessage message;
    if (!z::stunlib_isStunMsg(bytes, static_cast<unsigned int>(length)) ||
        !z::stunlib_DecodeMessage(bytes, length, &message, nullptr, nullptr) || !z::stunlib_isResponse(&message))
        return;
    for (const auto& sent : m_stunSends) {
        if (memcmp(sent.id.octet, message.msgHdr.id.octet, sizeof(sent.id.octet)) != 0) continue;
        m_rttMs = static_cast<double>(m_clock() - sent.atUs) / 1000.0;
        Complete(true, "stun response");
        return;
    }
}

void CTraceContext::ReadHttp(const char* data, size_t length, bool end)
{
    const bool hadHead = m_http.IsHeadComplete();
    const CTraceHttpObj::State state = end ? m_http.FeedEnd() : m_http.Feed(data, length);
    if (!hadHead && m_http.IsHeadComplete()) m_rttMs = static_cast<double>(m_clock() - m_requestUs) / 1000.0;
    if (state == CTraceHttpObj::COMPLETE) {
        MS_DETAIL_TRACE("CTraceContext, http " << m_http.GetHead().statusCode << " from " << m_uri.ToString()
                                               << ", body=" << m_http.GetBodyLength());
        Complete(true, "http response");
    } else if (state == CTraceHttpObj::FAILED) {
        MS_WARNING_TRACE("CTraceContext, bad http response from " << m_uri.ToString() << ": " << m_http.GetError());
        Complete(false, "bad http response");
    }
}

void CTraceContext::OnDisconnect(CmResult, ICmTransport*)
{
    if (m_state != State::Waiting) return;
    if (m_transport == TRANSPORT_UDP) return;
    ReadHttp(nullptr, 0, true);
}

void CTraceContext::OnTlsSend(const uint8_t* data, size_t length)
{
    if (!m_transportObj) return;
    CCmMessageBlock block(data, length);
    if (m_transportObj->SendData(block) != CM_OK) Complete(false, "tls send failed");
}

void CTraceContext::OnTlsConnected() { SendHTTPGetRequest(); }

void CTraceContext::OnTlsData(const uint8_t* data, size_t length)
{
    ReadHttp(reinterpret_cast<const char*>(data), length, false);
}

void CTraceContext::OnTlsClosed() { ReadHttp(nullptr, 0, true); }

void CTraceContext::OnTlsFailed(const char* reason)
{
    MS_WARNING_TRACE("CTraceContext, tls failed with " << m_uri.ToString() << ": " << reason);
    Complete(false, "tls failed");
}

void CTraceContext::Complete(bool reachable, const char* why)
{
    if (m_state == State::Done) return;
    m_state = State::Done;
    m_reachable = reachable;
    if (!reachable) m_rttMs = -1;
    MS_INFO_TRACE("CTraceContext::Complete, uri=" << m_uri.ToString() << ", cluster=" << m_cluster << ", reachable="
                                                  << reachable << ", rtt=" << m_rttMs << ", private=" << IsPrivateAddress()
                                                  << ", " << why);
}

void CTraceContext::closeTransaction()
{
    if (m_state == State::Resolving) CDNSResolverManager::Instance()->cancelResolve(this);
    if (m_state != State::Done) Complete(false, "closed");
    m_tls.reset();
    if (m_transportObj) {
        m_transportObj->Disconnect(CM_OK);
        m_transportObj->ReleaseReference();
        m_transportObj = nullptr;
    }
    if (m_connector) {
        m_connector->CancelConnect();
        m_connector->ReleaseReference();
        m_connector = nullptr;
    }
    if (m_acceptor) {
        m_acceptor->StopListen(CM_OK);
        m_acceptor->ReleaseReference();
        m_acceptor = nullptr;
    }
}

bool CTraceContext::IsPrivateAddress() const
{
    if (m_peer.IsLoopback() || m_peer.IsLinkLocal()) return true;
    const auto* b = reinterpret_cast<const uint8_t*>(m_peer.GetPtr());
    if (m_peer.IsIpv6()) {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(b);
        return (v6->sin6_addr.s6_addr[0] & 0xFE) == 0xFC;  // fc00::/7
    }
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(b);
    const uint32_t a = ntohl(v4->sin_addr.s_addr);
    return (a >> 24) == 10 || (a >> 20) == 0xAC1 || (a >> 16) == 0xC0A8;
}

std::unique_ptr<ITraceProbe> CTraceContextFactory::Create(const std::string& cluster, const CCmUri& uri,
                                                          const TraceProbeSettings& settings)
{
    return std::make_unique<CTraceContext>(cluster, uri, settings, m_thread, m_clock);
}
