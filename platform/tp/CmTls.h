// A TLS client (OpenSSL) over whatever byte stream the owner has: ciphertext to send comes out
// through the sink, ciphertext received goes in with ReadData, plaintext goes out with Write and
// comes back through OnTlsData. It owns no socket and no timer. The peer's certificate is checked
// against the system's trust store (or a given CA file) and the server name, unless told not to.
//
// One client belongs to one thread. The sink must not destroy the client from inside a callback.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tp/CmDefines.h"

class ICmTlsSink {
public:
    virtual ~ICmTlsSink() = default;
    // Bytes to put on the stream, in order.
    virtual void OnTlsSend(const uint8_t* data, size_t length) = 0;
    virtual void OnTlsConnected() = 0;
    // Plaintext from the peer.
    virtual void OnTlsData(const uint8_t* data, size_t length) = 0;
    // The peer ended the session cleanly (close_notify).
    virtual void OnTlsClosed() = 0;
    // The handshake or the session failed; reason is OpenSSL's or the certificate check's words.
    virtual void OnTlsFailed(const char* reason) = 0;
};

struct CmTlsOptions {
    // Sent as SNI (for a name) and matched against the certificate (name or IP address).
    std::string serverName;
    bool verifyPeer = true;
    // PEM file of trusted certificates; empty: the system's default store.
    std::string caFile;
};

struct CmTlsContext;

class CCmTlsClient {
public:
    // Null when OpenSSL refuses the set-up (an unreadable CA file, for one).
    static std::unique_ptr<CCmTlsClient> Create(const CmTlsOptions& options, ICmTlsSink* sink);
    ~CCmTlsClient();
    CCmTlsClient(const CCmTlsClient&) = delete;
    CCmTlsClient& operator=(const CCmTlsClient&) = delete;

    // Sends the ClientHello.
    CmResult Connect();
    // Ciphertext from the stream; drives the handshake and delivers plaintext.
    CmResult ReadData(const uint8_t* data, size_t length);
    // Plaintext to the peer; refused with CM_ERROR_NOT_INITIALIZED before OnTlsConnected.
    CmResult Write(const uint8_t* data, size_t length);
    bool IsConnected() const { return m_connected; }
    bool IsFailed() const { return m_failed; }

private:
    CCmTlsClient(CmTlsContext* context, ICmTlsSink* sink);
    void Flush();
    void Fail(const char* fallback);
    CmResult Advance();

    CmTlsContext* m_context;
    ICmTlsSink* const m_sink;
    bool m_connected = false;
    bool m_failed = false;
};
