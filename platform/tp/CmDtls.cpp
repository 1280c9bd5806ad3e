#include "tp/CmDtls.h"

#include "tp/CmCert.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstring>
#include <string>

namespace {

// Path MTU assumed for handshake records: small enough for every path we meet, with the IP,
// UDP and TURN channel headers on top.
constexpr long kDtlsMtu = 1200;
constexpr const char* kSrtpProfiles = "SRTP_AES128_CM_SHA1_80";
constexpr const char* kExporterLabel = "EXTRACTOR-dtls_srtp";

// Each BIO_write of the library is one record flight piece: it goes out as one datagram.
BIO_METHOD* SinkMethod()
{
    static BIO_METHOD* method = [] {
        BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "zyn dtls sink");
        BIO_meth_set_write(m, [](BIO* bio, const char* data, int length) -> int {
            auto* sink = static_cast<ICmDtlsSink*>(BIO_get_data(bio));
            if (sink && length > 0) sink->OnDtlsSend(reinterpret_cast<const uint8_t*>(data), static_cast<size_t>(length));
            return length;
        });
        BIO_meth_set_ctrl(m, [](BIO*, int cmd, long, void*) -> long {
            switch (cmd) {
            case BIO_CTRL_FLUSH: return 1;
            case BIO_CTRL_DGRAM_QUERY_MTU: return kDtlsMtu;
            case BIO_CTRL_WPENDING:
            case BIO_CTRL_PENDING: return 0;
            default: return 0;
            }
        });
        BIO_meth_set_create(m, [](BIO* bio) -> int {
            BIO_set_init(bio, 1);
            return 1;
        });
        return m;
    }();
    return method;
}

// The peer certificate's fingerprint in the form the SDP carries.
std::string Fingerprint(X509* cert, const char* hashName)
{
    std::string pem;
    BIO* bio = BIO_new(BIO_s_mem());
    if (bio && PEM_write_bio_X509(bio, cert) == 1) {
        char* data = nullptr;
        long length = BIO_get_mem_data(bio, &data);
        if (length > 0) pem.assign(data, static_cast<size_t>(length));
    }
    BIO_free(bio);
    CCmString out;
    return (!pem.empty() && GenerateFingerPrint(pem, out, hashName) == CM_OK) ? out : std::string();
}

}  // namespace

struct CmDtls {
    SSL_CTX* ctx = nullptr;
    SSL* ssl = nullptr;
    CmDtlsRole role = CM_DTLS_ROLE_CLIENT;
    ICmDtlsSink* sink = nullptr;
    CmDtlsState state = CM_DTLS_STATE_IDLE;
    std::string remoteHash;
    std::string remoteFingerprint;

    ~CmDtls()
    {
        if (ssl) SSL_free(ssl);
        if (ctx) SSL_CTX_free(ctx);
    }

    bool NewSsl()
    {
        if (ssl) SSL_free(ssl);
        ssl = SSL_new(ctx);
        if (!ssl) return false;
        BIO* in = BIO_new(BIO_s_mem());
        BIO* out = BIO_new(SinkMethod());
        if (!in || !out) {
            BIO_free(in);
            BIO_free(out);
            return false;
        }
        BIO_set_data(out, sink);
        BIO_set_mem_eof_return(in, -1);  // an empty input means "wait", not end of stream
        SSL_set_bio(ssl, in, out);
        SSL_set_options(ssl, SSL_OP_NO_QUERY_MTU);
        SSL_set_mtu(ssl, kDtlsMtu);
        if (role == CM_DTLS_ROLE_CLIENT) SSL_set_connect_state(ssl);
        else SSL_set_accept_state(ssl);
        state = CM_DTLS_STATE_IDLE;
        return true;
    }

    void Fail(const char* reason)
    {
        if (state == CM_DTLS_STATE_FAILED) return;
        state = CM_DTLS_STATE_FAILED;
        ERR_clear_error();
        if (sink) sink->OnDtlsFailed(reason);
    }

    // Moves the handshake on after input or a timeout.
    CmResult Drive()
    {
        if (state == CM_DTLS_STATE_CONNECTED) {
            // Application data is not carried over DTLS here; drain whatever came (alerts).
            unsigned char scratch[2048];
            int n = SSL_read(ssl, scratch, sizeof(scratch));
            if (n <= 0 && SSL_get_error(ssl, n) == SSL_ERROR_ZERO_RETURN) Fail("peer closed");
            ERR_clear_error();
            return CM_OK;
        }
        state = CM_DTLS_STATE_CONNECTING;
        int r = SSL_do_handshake(ssl);
        if (r == 1) {
            X509* peer = SSL_get1_peer_certificate(ssl);
            bool matches = remoteFingerprint.empty() ||
                           Fingerprint(peer, remoteHash.c_str()) == remoteFingerprint;
            X509_free(peer);
            if (!peer || !matches) {
                Fail(peer ? "remote fingerprint mismatch" : "no remote certificate");
                return CM_ERROR_FAILURE;
            }
            if (!SSL_get_selected_srtp_profile(ssl)) {
                Fail("no SRTP profile negotiated");
                return CM_ERROR_FAILURE;
            }
            state = CM_DTLS_STATE_CONNECTED;
            if (sink) sink->OnDtlsConnected();
            return CM_OK;
        }
        int error = SSL_get_error(ssl, r);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            ERR_clear_error();
            return CM_OK;
        }
        Fail("handshake failed");
        return CM_ERROR_FAILURE;
    }
};

CmDtls* CmDtls_Create(const CCmString& certificate, const CCmString& privateKey, CmDtlsRole role, ICmDtlsSink* sink)
{
    auto* session = new CmDtls();
    session->role = role;
    session->sink = sink;
    session->ctx = SSL_CTX_new(DTLS_method());
    bool ok = session->ctx != nullptr;
    if (ok) {
        SSL_CTX_set_min_proto_version(session->ctx, DTLS1_2_VERSION);
        // The process certificate is RSA 1024 by design; the distribution default level (2)
        // would refuse it.
        SSL_CTX_set_security_level(session->ctx, 1);
        // Peers present self-signed certificates; trust comes from the fingerprint in the SDP.
        SSL_CTX_set_verify(session->ctx, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                           [](int, X509_STORE_CTX*) { return 1; });
        ok = SSL_CTX_set_tlsext_use_srtp(session->ctx, kSrtpProfiles) == 0;
    }
    if (ok) {
        BIO* certBio = BIO_new_mem_buf(certificate.data(), static_cast<int>(certificate.size()));
        BIO* keyBio = BIO_new_mem_buf(privateKey.data(), static_cast<int>(privateKey.size()));
        X509* cert = certBio ? PEM_read_bio_X509(certBio, nullptr, nullptr, nullptr) : nullptr;
        EVP_PKEY* key = keyBio ? PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr) : nullptr;
        ok = cert && key && SSL_CTX_use_certificate(session->ctx, cert) == 1 &&
             SSL_CTX_use_PrivateKey(session->ctx, key) == 1 && SSL_CTX_check_private_key(session->ctx) == 1;
        X509_free(cert);
        EVP_PKEY_free(key);
        BIO_free(certBio);
        BIO_free(keyBio);
    }
    if (ok) ok = session->NewSsl();
    if (!ok) {
        ERR_clear_error();
        delete session;
        return nullptr;
    }
    return session;
}

void CmDtls_Destroy(CmDtls* session) { delete session; }

CmResult CmDtls_SetRemoteFingerPrint(CmDtls* session, const char* hashName, const CCmString& fingerprint)
{
    if (!session || !hashName) return CM_ERROR_NULL_POINTER;
    session->remoteHash = hashName;
    session->remoteFingerprint.clear();
    for (char c : fingerprint) session->remoteFingerprint += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return CM_OK;
}

CmResult CmDtls_Connect(CmDtls* session)
{
    if (!session) return CM_ERROR_NULL_POINTER;
    if (session->state != CM_DTLS_STATE_IDLE) return CM_OK;
    if (session->role == CM_DTLS_ROLE_SERVER) {
        session->state = CM_DTLS_STATE_CONNECTING;
        return CM_OK;
    }
    return session->Drive();
}

CmResult CmDtls_ReadData(CmDtls* session, const uint8_t* data, size_t length)
{
    if (!session || !data) return CM_ERROR_NULL_POINTER;
    if (session->state == CM_DTLS_STATE_FAILED) return CM_ERROR_FAILURE;
    if (length == 0 || length > 65535) return CM_ERROR_INVALID_ARG;
    BIO_write(SSL_get_rbio(session->ssl), data, static_cast<int>(length));
    return session->Drive();
}

int CmDtls_GetTimeout(CmDtls* session)
{
    if (!session || session->state != CM_DTLS_STATE_CONNECTING) return -1;
    timeval tv{};
    if (DTLSv1_get_timeout(session->ssl, &tv) != 1) return -1;
    return static_cast<int>(tv.tv_sec * 1000 + tv.tv_usec / 1000);
}

CmResult CmDtls_HandleTimeout(CmDtls* session)
{
    if (!session) return CM_ERROR_NULL_POINTER;
    if (session->state != CM_DTLS_STATE_CONNECTING) return CM_OK;
    // Negative: the retransmission limit was reached.
    if (DTLSv1_handle_timeout(session->ssl) < 0) {
        session->Fail("handshake timed out");
        return CM_ERROR_FAILURE;
    }
    return CM_OK;
}

CmResult CmDtls_ExportKey(CmDtls* session, CmDtlsSrtpKeys& keys)
{
    if (!session) return CM_ERROR_NULL_POINTER;
    if (session->state != CM_DTLS_STATE_CONNECTED) return CM_ERROR_NOT_INITIALIZED;
    static_assert(sizeof(CmDtlsSrtpKeys) == 60, "RFC 5764 keying material for AES_CM_128_HMAC_SHA1_80");
    unsigned char material[60];
    if (SSL_export_keying_material(session->ssl, material, sizeof(material), kExporterLabel,
                                   std::strlen(kExporterLabel), nullptr, 0, 0) != 1) {
        ERR_clear_error();
        return CM_ERROR_FAILURE;
    }
    std::memcpy(keys.clientKey, material, 16);
    std::memcpy(keys.serverKey, material + 16, 16);
    std::memcpy(keys.clientSalt, material + 32, 14);
    std::memcpy(keys.serverSalt, material + 46, 14);
    return CM_OK;
}

CmResult CmDtls_Restart(CmDtls* session)
{
    if (!session) return CM_ERROR_NULL_POINTER;
    return session->NewSsl() ? CM_OK : CM_ERROR_FAILURE;
}

CmDtlsState CmDtls_GetState(CmDtls* session) { return session ? session->state : CM_DTLS_STATE_FAILED; }
