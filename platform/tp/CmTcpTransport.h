// TCP: an acceptor that hands out one transport per accepted connection, a connector for the
// active side, and the stream transport with optional 2-byte length framing.
#pragma once

#include <atomic>
#include <string>

#include "tp/CmMutex.h"
#include "tp/CmReactor.h"
#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"
#include "tp/CmTransport.h"

class CCmTcpTransport final : public ICmTransport,
                              public ACmEventHandler,
                              public CCmReferenceControlT<CCmMutexThread> {
public:
    // Takes a connected, non-blocking socket and registers it on thread's reactor.
    // framing: 0 (what arrives, as it arrives), CM_CONNECTION_OPTION_LENGTH or CM_CONNECTION_OPTION_STUN.
    CCmTcpTransport(ACmThread* thread, int fd, uint32_t framing, const CCmInetAddr& local, const CCmInetAddr& peer);

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult OpenWithSink(ICmTransportSink* sink) override;
    ICmTransportSink* GetSink() override { return m_sink.load(); }
    CmResult SendData(CCmMessageBlock& data, CCmTransportParameter* parameter = nullptr) override;
    CmResult Disconnect(CmResult reason) override;
    uint32_t GetType() override { return CM_CONNECTION_TYPE_TCP | m_framing; }
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    const CCmInetAddr& GetPeerAddr() override { return m_peer; }

    void OnInput(int fd) override;
    void OnOutput(int fd) override;
    void OnClose(int fd) override;

    // Bytes waiting to go out; above this a send is refused until OnSend.
    static constexpr size_t kMaxPending = 256 * 1024;
    // A framed message carries at most this many bytes (the length field is 16 bits).
    static constexpr size_t kMaxFrame = 65535;

private:
    ~CCmTcpTransport() override;
    CmResult Register();
    void Close(CmResult reason, bool notify);
    void FlushPending();
    void DeliverFrames();
    void DeliverStunMessages();

    ACmThread* const m_thread;
    std::atomic<int> m_fd;
    const uint32_t m_framing;
    const CCmInetAddr m_local;
    const CCmInetAddr m_peer;
    std::atomic<ICmTransportSink*> m_sink{nullptr};
    CCmMutexThread m_sendMutex;
    std::string m_pending;  // guarded by m_sendMutex
    bool m_blocked = false; // guarded by m_sendMutex: a send was refused, OnSend is owed
    std::string m_received; // owner thread: bytes of an incomplete frame
};

class CCmTcpAcceptor final : public ICmAcceptor,
                             public ACmEventHandler,
                             public CCmReferenceControlT<CCmMutexThread> {
public:
    CCmTcpAcceptor(ACmThread* thread, uint32_t framing) : m_thread(thread), m_framing(framing) {}

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult StartListen(ICmAcceptorConnectorSink* sink, const CCmInetAddr& address) override;
    CmResult StopListen(CmResult reason) override;
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    CmResult CreateConnector(ICmConnector*& connector) override;

    void OnInput(int fd) override;
    void OnClose(int) override {}

private:
    ~CCmTcpAcceptor() override;
    ACmThread* const m_thread;
    const uint32_t m_framing;
    std::atomic<int> m_fd{-1};
    ICmAcceptorConnectorSink* m_sink = nullptr;
    CCmInetAddr m_local;
};

class CCmTcpConnector final : public ICmConnector,
                              public ACmEventHandler,
                              public CCmTimerWrapperIDSink,
                              public CCmReferenceControlT<CCmMutexThread> {
public:
    CCmTcpConnector(ACmThread* thread, uint32_t framing) : m_thread(thread), m_framing(framing) {}

    uint32_t AddReference() override { return CCmReferenceControlT::AddReference(); }
    uint32_t ReleaseReference() override { return CCmReferenceControlT::ReleaseReference(); }
    CmResult AsycConnect(ICmAcceptorConnectorSink* sink, const CCmInetAddr& peer, int timeoutMs = 10000,
                         const CCmInetAddr* local = nullptr) override;
    CmResult CancelConnect() override;

    void OnInput(int fd) override { OnOutput(fd); }
    void OnOutput(int fd) override;
    void OnClose(int fd) override { OnOutput(fd); }
    void OnTimer(CCmTimerWrapperID*) override;

private:
    ~CCmTcpConnector() override;
    void Finish(CmResult reason, ICmTransport* transport);

    ACmThread* const m_thread;
    const uint32_t m_framing;
    int m_fd = -1;  // owner thread
    ICmAcceptorConnectorSink* m_sink = nullptr;
    CCmInetAddr m_peer;
    CCmInetAddr m_local;
    CCmTimerWrapperID m_timeout;
};
