// DTLS 1.2 with the use_srtp extension over whatever datagram path the owner has: records to send
// come out through the sink, records received go in with CmDtls_ReadData. It owns no socket and
// no timer: the owner calls CmDtls_HandleTimeout when CmDtls_GetTimeout says a retransmission
// is due. One session belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tp/CmDefines.h"
#include "tp/CmString.h"

enum CmDtlsRole : int {
    CM_DTLS_ROLE_CLIENT = 1,  // sends the ClientHello ("active")
    CM_DTLS_ROLE_SERVER = 2,  // waits for it ("passive")
};

enum CmDtlsState : int {
    CM_DTLS_STATE_IDLE = 0,
    CM_DTLS_STATE_CONNECTING = 1,
    CM_DTLS_STATE_FAILED = 2,
    CM_DTLS_STATE_CONNECTED = 3,
};

// SRTP keying material in RFC 5764 order.
struct CmDtlsSrtpKeys {
    uint8_t clientKey[16];
    uint8_t serverKey[16];
    uint8_t clientSalt[14];
    uint8_t serverSalt[14];
};

class ICmDtlsSink {
public:
    virtual ~ICmDtlsSink() = default;
    // One DTLS datagram to put on the wire.
    virtual void OnDtlsSend(const uint8_t* data, size_t length) = 0;
    virtual void OnDtlsConnected() = 0;
    virtual void OnDtlsFailed(const char* reason) = 0;
};

struct CmDtls;

// certificate and privateKey are PEM texts (as CreateCert makes them). Null on bad input.
CmDtls* CmDtls_Create(const CCmString& certificate, const CCmString& privateKey, CmDtlsRole role, ICmDtlsSink* sink);
void CmDtls_Destroy(CmDtls* session);
// The peer's certificate must hash to this ("sha-1", "sha-256"; upper-case hex pairs with ':').
// Without one, any certificate is taken.
CmResult CmDtls_SetRemoteFingerPrint(CmDtls* session, const char* hashName, const CCmString& fingerprint);
// Starts the handshake (a client sends its first flight now; a server waits for it).
CmResult CmDtls_Connect(CmDtls* session);
// One received datagram.
CmResult CmDtls_ReadData(CmDtls* session, const uint8_t* data, size_t length);
// Milliseconds until CmDtls_HandleTimeout is due; -1 when nothing waits.
int CmDtls_GetTimeout(CmDtls* session);
CmResult CmDtls_HandleTimeout(CmDtls* session);
// The 60 bytes of "EXTRACTOR-dtls_srtp" once connected.
CmResult CmDtls_ExportKey(CmDtls* session, CmDtlsSrtpKeys& keys);
// A fresh handshake with the same certificate, role and remote fingerprint.
CmResult CmDtls_Restart(CmDtls* session);
CmDtlsState CmDtls_GetState(CmDtls* session);
