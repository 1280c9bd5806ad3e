// UDP: one bound socket per acceptor, one transport per remote address. A datagram from a new
// address is announced with OnConnectIndication before it is delivered to the new transport.
#pragma once

#include <atomic>
#include <unordered_map>

#include "tp/CmMutex.h"
#include "tp/CmReactor.h"
#include "tp/CmThread.h"
#include "tp/CmTransport.h"

class CCmUdpAcceptor;

class CCmUdpTransport final : public ICmTransport, public CCmReferenceControlT<CCmMutexThread> {
public:
    CCmUdpTransport(CCmUdpAcceptor* acceptor, const CCmInetAddr& local, const CCmInetAddr& peer);

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult OpenWithSink(ICmTransportSink* sink) override;
    ICmTransportSink* GetSink() override { return m_sink.load(); }
    CmResult SendData(CCmMessageBlock& data, CCmTransportParameter* parameter = nullptr) override;
    CmResult Disconnect(CmResult reason) override;
    uint32_t GetType() override { return CM_CONNECTION_TYPE_UDP; }
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    const CCmInetAddr& GetPeerAddr() override { return m_peer; }

    // Acceptor side (owner thread): the socket closed under it.
    void Detach();

private:
    ~CCmUdpTransport() override;

    std::atomic<CCmUdpAcceptor*> m_acceptor;  // one reference while attached
    std::atomic<ICmTransportSink*> m_sink{nullptr};
    const CCmInetAddr m_local;
    const CCmInetAddr m_peer;
};

class CCmUdpAcceptor final : public ICmAcceptor,
                             public ACmEventHandler,
                             public CCmReferenceControlT<CCmMutexThread> {
public:
    explicit CCmUdpAcceptor(ACmThread* thread);

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult StartListen(ICmAcceptorConnectorSink* sink, const CCmInetAddr& address) override;
    CmResult StopListen(CmResult reason) override;
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    CmResult CreateConnector(ICmConnector*& connector) override;

    void OnInput(int fd) override;
    void OnClose(int fd) override;

    // Transport side. SendTo may be called from any thread.
    CmResult SendTo(const CCmInetAddr& peer, const CCmMessageBlock& data);
    void Forget(CCmUdpTransport* transport);
    // Owner thread: the transport for peer, made (and indicated to no one) when new.
    CCmUdpTransport* GetOrCreateTransport(const CCmInetAddr& peer, bool& created);
    ACmThread* GetThread() const { return m_thread; }
    size_t TransportCount() const { return m_transports.size(); }

private:
    ~CCmUdpAcceptor() override;
    void CloseAll();

    ACmThread* const m_thread;
    std::atomic<int> m_fd{-1};
    ICmAcceptorConnectorSink* m_sink = nullptr;  // owner thread
    CCmInetAddr m_local;
    std::unordered_map<CCmInetAddr, CCmUdpTransport*> m_transports;  // owner thread; one reference each
    // Every datagram is read into this one block and lent to the sink for the length of its
    // OnReceive, so reading allocates nothing. Owner thread.
    CCmMessageBlock m_receiveBlock;
};
