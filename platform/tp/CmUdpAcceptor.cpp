#include "tp/CmUdpAcceptor.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

#include "tp/CmSocketUtil.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace {

// The largest UDP payload; larger datagrams are impossible on IPv4 and IPv6 alike.
constexpr size_t kMaxDatagram = 65535;
// Datagrams read per readiness before the loop looks at its events and timers again.
constexpr int kReadBurst = 64;

// Makes the transport for a peer from the acceptor's own socket and indicates it asynchronously.
class CCmUdpConnector final : public ICmConnector, public CCmReferenceControlT<CCmMutexThread> {
public:
    explicit CCmUdpConnector(CCmUdpAcceptor* acceptor) : m_acceptor(acceptor) { m_acceptor->AddReference(); }

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }

    CmResult AsycConnect(ICmAcceptorConnectorSink* sink, const CCmInetAddr& peer, int, const CCmInetAddr*) override
    {
        if (!sink) return CM_ERROR_NULL_POINTER;
        m_cancelled.store(false);
        AddReference();  // held by the posted indication
        return CmInvokeInThread(m_acceptor->GetThread(), true, [this, sink, peer] {
            if (!m_cancelled.load()) {
                bool created = false;
                CCmUdpTransport* t = m_acceptor->GetOrCreateTransport(peer, created);
                sink->OnConnectIndication(t ? CM_OK : CM_ERROR_FAILURE, t, this);
            }
            ReleaseReference();
            return CM_OK;
        });
    }
    CmResult CancelConnect() override
    {
        m_cancelled.store(true);
        return CM_OK;
    }

private:
    ~CCmUdpConnector() override { m_acceptor->ReleaseReference(); }
    CCmUdpAcceptor* const m_acceptor;
    std::atomic<bool> m_cancelled{false};
};

}  // namespace

CCmUdpTransport::CCmUdpTransport(CCmUdpAcceptor* acceptor, const CCmInetAddr& local, const CCmInetAddr& peer)
    : m_acceptor(acceptor), m_local(local), m_peer(peer)
{
    acceptor->AddReference();
}

CCmUdpTransport::~CCmUdpTransport()
{
    if (CCmUdpAcceptor* a = m_acceptor.exchange(nullptr)) a->ReleaseReference();
}

CmResult CCmUdpTransport::OpenWithSink(ICmTransportSink* sink)
{
    m_sink.store(sink);
    return CM_OK;
}

CmResult CCmUdpTransport::SendData(CCmMessageBlock& data, CCmTransportParameter* parameter)
{
    CCmUdpAcceptor* a = m_acceptor.load();
    if (!a) return CM_ERROR_NOT_INITIALIZED;
    CmResult r = a->SendTo(m_peer, data);
    if (r == CM_OK && parameter) parameter->m_dwHaveSent = static_cast<uint32_t>(data.GetChainedLength());
    return r;
}

CmResult CCmUdpTransport::Disconnect(CmResult)
{
    m_sink.store(nullptr);
    CCmUdpAcceptor* a = m_acceptor.load();
    if (!a) return CM_OK;
    a->AddReference();
    CmResult r = cmnet::OnThread(a->GetThread(), [this, a] {
        a->Forget(this);
        return CM_OK;
    });
    a->ReleaseReference();
    return r;
}

void CCmUdpTransport::Detach()
{
    m_sink.store(nullptr);
    if (CCmUdpAcceptor* a = m_acceptor.exchange(nullptr)) a->ReleaseReference();
}

CCmUdpAcceptor::CCmUdpAcceptor(ACmThread* thread) : m_thread(thread), m_receiveBlock(kMaxDatagram) {}

CCmUdpAcceptor::~CCmUdpAcceptor()
{
    int fd = m_fd.exchange(-1);
    cmnet::Close(fd);
}

CmResult CCmUdpAcceptor::StartListen(ICmAcceptorConnectorSink* sink, const CCmInetAddr& address)
{
    if (!sink) return CM_ERROR_NULL_POINTER;
    return cmnet::OnThread(m_thread, [this, sink, address] {
        if (m_fd.load() >= 0) return CM_ERROR_ALREADY_INITIALIZED;
        int fd = cmnet::OpenSocket(address, SOCK_DGRAM);
        if (fd < 0) return CM_ERROR_NETWORK_SOCKET_ERROR;
        CCmInetAddr bound;
        if (cmnet::Bind(fd, address, bound) != CM_OK) {
            cmnet::Close(fd);
            return CM_ERROR_FAILURE;
        }
        CCmReactor* reactor = m_thread->GetReactor();
        if (!reactor || reactor->RegisterHandler(fd, this, ACmEventHandler::READ_MASK) != CM_OK) {
            cmnet::Close(fd);
            return CM_ERROR_FAILURE;
        }
        m_local = bound;
        m_sink = sink;
        m_fd.store(fd);
        AddReference();  // held while registered with the reactor
        return CM_OK;
    });
}

CmResult CCmUdpAcceptor::StopListen(CmResult)
{
    return cmnet::OnThread(m_thread, [this] {
        if (m_fd.load() < 0) return CM_OK;
        CloseAll();
        ReleaseReference();  // the reactor's
        return CM_OK;
    });
}

void CCmUdpAcceptor::CloseAll()
{
    int fd = m_fd.exchange(-1);
    if (CCmReactor* reactor = m_thread->GetReactor()) reactor->RemoveHandler(fd);
    cmnet::Close(fd);
    m_sink = nullptr;
    auto transports = std::move(m_transports);
    m_transports.clear();
    for (auto& [peer, t] : transports) {
        t->Detach();
        t->ReleaseReference();
    }
}

CmResult CCmUdpAcceptor::CreateConnector(ICmConnector*& connector)
{
    connector = new CCmUdpConnector(this);
    connector->AddReference();
    return CM_OK;
}

CCmUdpTransport* CCmUdpAcceptor::GetOrCreateTransport(const CCmInetAddr& peer, bool& created)
{
    created = false;
    if (m_fd.load() < 0) return nullptr;
    auto it = m_transports.find(peer);
    if (it != m_transports.end()) return it->second;
    auto* t = new CCmUdpTransport(this, m_local, peer);
    t->AddReference();
    m_transports.emplace(peer, t);
    created = true;
    return t;
}

void CCmUdpAcceptor::Forget(CCmUdpTransport* transport)
{
    for (auto it = m_transports.begin(); it != m_transports.end(); ++it) {
        if (it->second != transport) continue;
        m_transports.erase(it);
        transport->Detach();
        transport->ReleaseReference();
        return;
    }
}

CmResult CCmUdpAcceptor::SendTo(const CCmInetAddr& peer, const CCmMessageBlock& data)
{
    int fd = m_fd.load();
    if (fd < 0) return CM_ERROR_NOT_INITIALIZED;
    iovec parts[16];
    int count = 0;
    for (const CCmMessageBlock* b = &data; b && count < 16; b = b->GetNext(), ++count) {
        parts[count].iov_base = const_cast<char*>(b->GetTopLevelReadPtr());
        parts[count].iov_len = b->GetTopLevelLength();
    }
    msghdr msg{};
    msg.msg_name = const_cast<sockaddr*>(peer.GetPtr());
    msg.msg_namelen = peer.GetSize();
    msg.msg_iov = parts;
    msg.msg_iovlen = static_cast<size_t>(count);
    ssize_t n = sendmsg(fd, &msg, MSG_NOSIGNAL);
    if (n >= 0) return CM_OK;
    return (errno == EAGAIN || errno == EWOULDBLOCK) ? CM_ERROR_WOULD_BLOCK : CM_ERROR_FAILURE;
}

void CCmUdpAcceptor::OnInput(int fd)
{
    // Keep ourselves alive: a sink may stop listening and drop its reference from a callback.
    AddReference();
    for (int i = 0; i < kReadBurst && m_fd.load() == fd; ++i) {
        m_receiveBlock.Reset();
        sockaddr_storage from{};
        socklen_t fromLen = sizeof(from);
        ssize_t n = recvfrom(fd, m_receiveBlock.GetTopLevelWritePtr(), m_receiveBlock.GetTopLevelSpace(), 0,
                             reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n < 0) break;
        m_receiveBlock.AdvanceTopLevelWritePtr(static_cast<size_t>(n));
        CCmInetAddr peer(reinterpret_cast<sockaddr*>(&from), fromLen);
        bool created = false;
        CCmUdpTransport* t = GetOrCreateTransport(peer, created);
        if (!t) break;
        t->AddReference();
        if (created && m_sink) m_sink->OnConnectIndication(CM_OK, t, this);
        if (ICmTransportSink* sink = t->GetSink()) {
            sink->OnReceive(m_receiveBlock, t, nullptr);
        } else if (created) {
            // Nobody took the new peer: forget it rather than keep an unheard transport.
            Forget(t);
        }
        t->ReleaseReference();
    }
    ReleaseReference();
}

void CCmUdpAcceptor::OnClose(int fd)
{
    // ICMP errors on an unconnected UDP socket surface as readable errors; drain and go on.
    OnInput(fd);
}
