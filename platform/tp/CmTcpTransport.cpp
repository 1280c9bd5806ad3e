#include "tp/CmTcpTransport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "tp/CmSocketUtil.h"

namespace {

constexpr size_t kReadChunk = 64 * 1024;

CCmInetAddr PeerOf(int fd, bool local)
{
    sockaddr_storage ss{};
    socklen_t len = sizeof(ss);
    int r = local ? getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len)
                  : getpeername(fd, reinterpret_cast<sockaddr*>(&ss), &len);
    return r == 0 ? CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), len) : CCmInetAddr();
}

}  // namespace

// ---- transport ----------------------------------------------------------------------------

CCmTcpTransport::CCmTcpTransport(ACmThread* thread, int fd, uint32_t framing, const CCmInetAddr& local,
                                 const CCmInetAddr& peer)
    : m_thread(thread), m_fd(fd), m_framing(framing), m_local(local), m_peer(peer)
{
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
}

CCmTcpTransport::~CCmTcpTransport()
{
    int fd = m_fd.exchange(-1);
    cmnet::Close(fd);
}

CmResult CCmTcpTransport::Register()
{
    CCmReactor* reactor = m_thread->GetReactor();
    if (!reactor || reactor->RegisterHandler(m_fd.load(), this, READ_MASK) != CM_OK) return CM_ERROR_FAILURE;
    AddReference();  // held while registered
    return CM_OK;
}

CmResult CCmTcpTransport::OpenWithSink(ICmTransportSink* sink)
{
    bool first = m_sink.exchange(sink) == nullptr;
    if (!first || !sink) return CM_OK;
    return cmnet::OnThread(m_thread, [this] { return m_fd.load() >= 0 ? Register() : CM_ERROR_NOT_INITIALIZED; });
}

CmResult CCmTcpTransport::SendData(CCmMessageBlock& data, CCmTransportParameter* parameter)
{
    if (m_fd.load() < 0) return CM_ERROR_NOT_INITIALIZED;
    size_t length = data.GetChainedLength();
    const bool lengthFramed = m_framing == CM_CONNECTION_OPTION_LENGTH;
    if (lengthFramed && length > kMaxFrame) return CM_ERROR_INVALID_ARG;
    {
        CCmMutexGuardT<CCmMutexThread> guard(m_sendMutex);
        if (m_pending.size() + length + 2 > kMaxPending) {
            m_blocked = true;
            return CM_ERROR_WOULD_BLOCK;
        }
        if (lengthFramed) {
            m_pending.push_back(static_cast<char>(length >> 8));
            m_pending.push_back(static_cast<char>(length & 0xFF));
        }
        for (const CCmMessageBlock* b = &data; b; b = b->GetNext())
            m_pending.append(b->GetTopLevelReadPtr(), b->GetTopLevelLength());
    }
    if (parameter) parameter->m_dwHaveSent = static_cast<uint32_t>(length);
    AddReference();
    cmnet::OnThread(m_thread, [this] {
        FlushPending();
        ReleaseReference();
        return CM_OK;
    });
    return CM_OK;
}

// Owner thread.
void CCmTcpTransport::FlushPending()
{
    int fd = m_fd.load();
    if (fd < 0) return;
    bool owed = false;
    bool more = false;
    {
        CCmMutexGuardT<CCmMutexThread> guard(m_sendMutex);
        while (!m_pending.empty()) {
            ssize_t n = send(fd, m_pending.data(), m_pending.size(), MSG_NOSIGNAL);
            if (n > 0) {
                m_pending.erase(0, static_cast<size_t>(n));
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) more = true;
            break;
        }
        if (m_pending.empty() && m_blocked) {
            m_blocked = false;
            owed = true;
        }
    }
    if (CCmReactor* reactor = m_thread->GetReactor())
        reactor->ModifyHandler(fd, more ? (READ_MASK | WRITE_MASK) : READ_MASK);
    if (owed)
        if (ICmTransportSink* sink = m_sink.load()) sink->OnSend(this, nullptr);
}

void CCmTcpTransport::OnOutput(int) { FlushPending(); }

void CCmTcpTransport::OnInput(int fd)
{
    AddReference();
    char buffer[kReadChunk];
    for (;;) {
        ssize_t n = recv(fd, buffer, sizeof(buffer), 0);
        if (n > 0) {
            if (m_framing == CM_CONNECTION_OPTION_LENGTH) {
                m_received.append(buffer, static_cast<size_t>(n));
                DeliverFrames();
            } else if (m_framing == CM_CONNECTION_OPTION_STUN) {
                m_received.append(buffer, static_cast<size_t>(n));
                DeliverStunMessages();
            } else if (ICmTransportSink* sink = m_sink.load()) {
                CCmMessageBlock block(buffer, static_cast<size_t>(n));
                sink->OnReceive(block, this, nullptr);
            }
            if (m_fd.load() != fd) break;  // closed from a callback
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        Close(n == 0 ? CM_OK : CM_ERROR_FAILURE, true);
        break;
    }
    ReleaseReference();
}

void CCmTcpTransport::DeliverFrames()
{
    size_t offset = 0;
    while (m_received.size() - offset >= 2) {
        size_t length = (static_cast<uint8_t>(m_received[offset]) << 8) | static_cast<uint8_t>(m_received[offset + 1]);
        if (m_received.size() - offset - 2 < length) break;
        if (ICmTransportSink* sink = m_sink.load()) {
            CCmMessageBlock block(m_received.data() + offset + 2, length);
            sink->OnReceive(block, this, nullptr);
        }
        offset += 2 + length;
        if (m_fd.load() < 0) return;
    }
    m_received.erase(0, offset);
}

void CCmTcpTransport::DeliverStunMessages()
{
    size_t offset = 0;
    while (m_received.size() - offset >= 4) {
        const auto* at = reinterpret_cast<const uint8_t*>(m_received.data() + offset);
        const size_t field = (static_cast<size_t>(at[2]) << 8) | at[3];
        size_t length = 0;
        switch (at[0] >> 6) {
        case 0: length = 20 + field; break;                  // STUN: header and attributes
        case 1: length = (4 + field + 3) & ~size_t{3}; break;  // channel data, padded on a stream
        default:
            // Neither: the stream lost its framing and nothing after it can be read.
            Close(CM_ERROR_FAILURE, true);
            return;
        }
        if (m_received.size() - offset < length) break;
        if (ICmTransportSink* sink = m_sink.load()) {
            // Channel data goes up without its padding.
            const size_t payload = (at[0] >> 6) == 1 ? 4 + field : length;
            CCmMessageBlock block(m_received.data() + offset, payload);
            sink->OnReceive(block, this, nullptr);
        }
        offset += length;
        if (m_fd.load() < 0) return;
    }
    m_received.erase(0, offset);
}

void CCmTcpTransport::OnClose(int) { Close(CM_ERROR_FAILURE, true); }

// Owner thread.
void CCmTcpTransport::Close(CmResult reason, bool notify)
{
    int fd = m_fd.exchange(-1);
    if (fd < 0) return;
    bool registered = false;
    if (CCmReactor* reactor = m_thread->GetReactor()) registered = reactor->RemoveHandler(fd) == CM_OK;
    close(fd);
    ICmTransportSink* sink = m_sink.exchange(nullptr);
    if (notify && sink) sink->OnDisconnect(reason == CM_OK ? CM_ERROR_NOT_FOUND : reason, this);
    if (registered) ReleaseReference();
}

CmResult CCmTcpTransport::Disconnect(CmResult reason)
{
    AddReference();
    CmResult r = cmnet::OnThread(m_thread, [this, reason] {
        Close(reason, false);
        return CM_OK;
    });
    ReleaseReference();
    return r;
}

// ---- acceptor -----------------------------------------------------------------------------

CCmTcpAcceptor::~CCmTcpAcceptor()
{
    int fd = m_fd.exchange(-1);
    cmnet::Close(fd);
}

CmResult CCmTcpAcceptor::StartListen(ICmAcceptorConnectorSink* sink, const CCmInetAddr& address)
{
    if (!sink) return CM_ERROR_NULL_POINTER;
    return cmnet::OnThread(m_thread, [this, sink, address] {
        if (m_fd.load() >= 0) return CM_ERROR_ALREADY_INITIALIZED;
        int fd = cmnet::OpenSocket(address, SOCK_STREAM);
        if (fd < 0) return CM_ERROR_NETWORK_SOCKET_ERROR;
        int one = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
        CCmInetAddr bound;
        if (cmnet::Bind(fd, address, bound) != CM_OK || listen(fd, 64) != 0) {
            cmnet::Close(fd);
            return CM_ERROR_FAILURE;
        }
        CCmReactor* reactor = m_thread->GetReactor();
        if (!reactor || reactor->RegisterHandler(fd, this, READ_MASK) != CM_OK) {
            cmnet::Close(fd);
            return CM_ERROR_FAILURE;
        }
        m_local = bound;
        m_sink = sink;
        m_fd.store(fd);
        AddReference();
        return CM_OK;
    });
}

CmResult CCmTcpAcceptor::StopListen(CmResult)
{
    return cmnet::OnThread(m_thread, [this] {
        int fd = m_fd.exchange(-1);
        if (fd < 0) return CM_OK;
        if (CCmReactor* reactor = m_thread->GetReactor()) reactor->RemoveHandler(fd);
        close(fd);
        m_sink = nullptr;
        ReleaseReference();
        return CM_OK;
    });
}

CmResult CCmTcpAcceptor::CreateConnector(ICmConnector*& connector)
{
    connector = new CCmTcpConnector(m_thread, m_framing);
    connector->AddReference();
    return CM_OK;
}

void CCmTcpAcceptor::OnInput(int fd)
{
    AddReference();
    for (int i = 0; i < 16 && m_fd.load() == fd; ++i) {
        int client = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client < 0) break;
        auto* t = new CCmTcpTransport(m_thread, client, m_framing, PeerOf(client, true), PeerOf(client, false));
        t->AddReference();
        if (m_sink) m_sink->OnConnectIndication(CM_OK, t, this);
        t->ReleaseReference();  // the sink took its own if it kept it
    }
    ReleaseReference();
}

// ---- connector ----------------------------------------------------------------------------

CCmTcpConnector::~CCmTcpConnector() { cmnet::Close(m_fd); }

CmResult CCmTcpConnector::AsycConnect(ICmAcceptorConnectorSink* sink, const CCmInetAddr& peer, int timeoutMs,
                                      const CCmInetAddr* local)
{
    if (!sink) return CM_ERROR_NULL_POINTER;
    CCmInetAddr from = local ? *local : CCmInetAddr();
    return cmnet::OnThread(m_thread, [this, sink, peer, timeoutMs, from, local] {
        if (m_fd >= 0) return CM_ERROR_ALREADY_INITIALIZED;
        m_fd = cmnet::OpenSocket(peer, SOCK_STREAM);
        if (m_fd < 0) return CM_ERROR_NETWORK_SOCKET_ERROR;
        if (local) {
            CCmInetAddr bound;
            if (cmnet::Bind(m_fd, from, bound) != CM_OK) {
                cmnet::Close(m_fd);
                return CM_ERROR_FAILURE;
            }
        }
        if (connect(m_fd, peer.GetPtr(), peer.GetSize()) != 0 && errno != EINPROGRESS) {
            cmnet::Close(m_fd);
            return CM_ERROR_FAILURE;
        }
        CCmReactor* reactor = m_thread->GetReactor();
        if (!reactor || reactor->RegisterHandler(m_fd, this, WRITE_MASK) != CM_OK) {
            cmnet::Close(m_fd);
            return CM_ERROR_FAILURE;
        }
        m_sink = sink;
        m_peer = peer;
        AddReference();  // held until the indication
        m_timeout.Schedule(this, CCmTimeValue::FromMilliseconds(timeoutMs), 1);
        return CM_OK;
    });
}

void CCmTcpConnector::OnOutput(int fd)
{
    int error = 0;
    socklen_t len = sizeof(error);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len);
    if (error != 0) {
        Finish(CM_ERROR_FAILURE, nullptr);
        return;
    }
    if (CCmReactor* reactor = m_thread->GetReactor()) reactor->RemoveHandler(fd);
    int connected = m_fd;
    m_fd = -1;
    auto* t = new CCmTcpTransport(m_thread, connected, m_framing, PeerOf(connected, true), m_peer);
    t->AddReference();
    Finish(CM_OK, t);
    t->ReleaseReference();
}

void CCmTcpConnector::OnTimer(CCmTimerWrapperID*) { Finish(CM_ERROR_NETWORK_CONNECT_TIMEOUT, nullptr); }

void CCmTcpConnector::Finish(CmResult reason, ICmTransport* transport)
{
    m_timeout.Cancel();
    if (m_fd >= 0) {
        if (CCmReactor* reactor = m_thread->GetReactor()) reactor->RemoveHandler(m_fd);
        cmnet::Close(m_fd);
    }
    ICmAcceptorConnectorSink* sink = m_sink;
    m_sink = nullptr;
    if (sink) {
        sink->OnConnectIndication(reason, transport, this);
        ReleaseReference();  // the connect's own
    }
}

CmResult CCmTcpConnector::CancelConnect()
{
    AddReference();
    CmResult r = cmnet::OnThread(m_thread, [this] {
        m_timeout.Cancel();
        if (m_fd >= 0) {
            if (CCmReactor* reactor = m_thread->GetReactor()) reactor->RemoveHandler(m_fd);
            cmnet::Close(m_fd);
        }
        if (m_sink) {
            m_sink = nullptr;
            ReleaseReference();
        }
        return CM_OK;
    });
    ReleaseReference();
    return r;
}
