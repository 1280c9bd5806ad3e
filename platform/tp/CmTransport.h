// Transports, acceptors and connectors of the network threads.
//
// Everything here belongs to one loop thread (the network thread given at creation): sinks are
// called there, and the operations are meant to be called there. Operations called from another
// thread are carried over with SendEvent, so they are safe but block the caller for one round.
#pragma once

#include <cstdint>

#include "tp/CmDefines.h"
#include "tp/CmInetAddr.h"
#include "tp/CmMessageBlock.h"
#include "tp/CmReferenceControl.h"

// Connection types.
constexpr uint32_t CM_CONNECTION_TYPE_TCP = 1;
constexpr uint32_t CM_CONNECTION_TYPE_UDP = 2;
// Option bit: a 2-byte big-endian length in front of each message on a stream (RFC 4571 framing).
constexpr uint32_t CM_CONNECTION_OPTION_LENGTH = 0x8000000;
constexpr uint32_t CM_CONNECTION_TYPE_TCP_FRAMED = CM_CONNECTION_TYPE_TCP | CM_CONNECTION_OPTION_LENGTH;
// Option bit: STUN messages and TURN channel data on a stream, each delimited by its own length
// field (channel data padded to four bytes, RFC 5766 11.5): the framing of TURN over TCP.
constexpr uint32_t CM_CONNECTION_OPTION_STUN = 0x4000000;
constexpr uint32_t CM_CONNECTION_TYPE_TCP_STUN = CM_CONNECTION_TYPE_TCP | CM_CONNECTION_OPTION_STUN;

// Refused with this result, a port search stops at once instead of trying the next port.
constexpr CmResult CM_ERROR_NETWORK_SOCKET_ERROR = 30000020;
constexpr CmResult CM_ERROR_NETWORK_CONNECT_TIMEOUT = 30000021;

class ICmTransport;

// Per-call extras of a send or receive; reserved for options such as DSCP.
class CCmTransportParameter {
public:
    uint32_t m_dwHaveSent = 0;
};

class ICmTransportSink {
public:
    virtual ~ICmTransportSink() = default;
    // One datagram, or one framed message of a stream; for an unframed stream, what arrived. The
    // block is lent for the call and reused after it: duplicate what must outlive it.
    virtual void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter) = 0;
    // The transport takes data again after a send was refused with CM_ERROR_WOULD_BLOCK.
    virtual void OnSend(ICmTransport* transport, CCmTransportParameter* parameter) = 0;
    // The peer or the network ended it; the transport may be released from here.
    virtual void OnDisconnect(CmResult reason, ICmTransport* transport) = 0;
};

class ICmTransport {
public:
    virtual uint32_t AddReference() = 0;
    virtual uint32_t ReleaseReference() = 0;

    virtual CmResult OpenWithSink(ICmTransportSink* sink) = 0;
    virtual ICmTransportSink* GetSink() = 0;
    // Sends the readable bytes of the block (the whole chain). A datagram transport sends or
    // drops whole; a stream transport refuses with CM_ERROR_WOULD_BLOCK when its buffer is full,
    // having taken nothing, and calls OnSend when it can take more.
    virtual CmResult SendData(CCmMessageBlock& data, CCmTransportParameter* parameter = nullptr) = 0;
    // Closes it locally; the sink is not called.
    virtual CmResult Disconnect(CmResult reason) = 0;
    virtual uint32_t GetType() = 0;
    virtual const CCmInetAddr& GetLocalAddr() = 0;
    virtual const CCmInetAddr& GetPeerAddr() = 0;

protected:
    virtual ~ICmTransport() = default;
};

// What an indication came from: the acceptor or connector that made the transport.
class ICmAcceptorConnectorId {
public:
    virtual ~ICmAcceptorConnectorId() = default;
    virtual bool IsConnector() = 0;
};

class ICmAcceptorConnectorSink {
public:
    virtual ~ICmAcceptorConnectorSink() = default;
    // A new transport (reason CM_OK; the sink takes a reference if it keeps it), or a failure of a
    // connector (transport null).
    virtual void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id) = 0;
};

class ICmConnector : public ICmAcceptorConnectorId {
public:
    virtual uint32_t AddReference() = 0;
    virtual uint32_t ReleaseReference() = 0;
    // Connects to peer (from local when given); the sink hears OnConnectIndication once.
    virtual CmResult AsycConnect(ICmAcceptorConnectorSink* sink, const CCmInetAddr& peer, int timeoutMs = 10000,
                                 const CCmInetAddr* local = nullptr) = 0;
    virtual CmResult CancelConnect() = 0;
    bool IsConnector() override { return true; }
};

class ICmAcceptor : public ICmAcceptorConnectorId {
public:
    virtual uint32_t AddReference() = 0;
    virtual uint32_t ReleaseReference() = 0;
    // Binds and listens on address (port 0: any free port; GetLocalAddr tells which).
    virtual CmResult StartListen(ICmAcceptorConnectorSink* sink, const CCmInetAddr& address) = 0;
    virtual CmResult StopListen(CmResult reason) = 0;
    virtual const CCmInetAddr& GetLocalAddr() = 0;
    // A connector that reaches a peer from this acceptor's own socket (UDP: the transport for
    // that peer, made at once; the connector's sink hears it).
    virtual CmResult CreateConnector(ICmConnector*& connector) = 0;
    bool IsConnector() override { return false; }
};

class CCmConnectionManager {
public:
    static CCmConnectionManager* Instance();
    // type: CM_CONNECTION_TYPE_UDP, CM_CONNECTION_TYPE_TCP, optionally | CM_CONNECTION_OPTION_LENGTH.
    // The object runs on the thread of networkThreadType (TT_*); one reference for the caller.
    CmResult CreateConnectionServer(uint32_t type, ICmAcceptor*& acceptor, int networkThreadType);
    CmResult CreateConnectionClient(uint32_t type, ICmConnector*& connector, int networkThreadType);
};
