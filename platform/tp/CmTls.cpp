// Runs on the owner's thread (one client, one thread).
#include "tp/CmTls.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <string>

#include "tp/CmInetAddr.h"

struct CmTlsContext {
    SSL_CTX* ctx = nullptr;
    SSL* ssl = nullptr;
    BIO* in = nullptr;   // ciphertext received, read by OpenSSL (owned by ssl)
    BIO* out = nullptr;  // ciphertext OpenSSL wrote, to send (owned by ssl)

    ~CmTlsContext()
    {
        if (ssl) SSL_free(ssl);
        if (ctx) SSL_CTX_free(ctx);
    }
};

namespace {

// One read of plaintext or ciphertext at a time: a TLS record holds at most 16 KB.
constexpr size_t kChunk = 16 * 1024;

std::string LastOpenSslError()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return {};
    char text[256];
    ERR_error_string_n(code, text, sizeof(text));
    return text;
}

}  // namespace

std::unique_ptr<CCmTlsClient> CCmTlsClient::Create(const CmTlsOptions& options, ICmTlsSink* sink)
{
    if (!sink) return nullptr;
    auto context = std::make_unique<CmTlsContext>();
    context->ctx = SSL_CTX_new(TLS_client_method());
    if (!context->ctx) return nullptr;
    SSL_CTX_set_min_proto_version(context->ctx, TLS1_2_VERSION);
    if (options.verifyPeer) {
        const bool loaded = options.caFile.empty()
                                ? SSL_CTX_set_default_verify_paths(context->ctx) == 1
                                : SSL_CTX_load_verify_locations(context->ctx, options.caFile.c_str(), nullptr) == 1;
        if (!loaded) {
            ERR_clear_error();
            return nullptr;
        }
        SSL_CTX_set_verify(context->ctx, SSL_VERIFY_PEER, nullptr);
    } else {
        SSL_CTX_set_verify(context->ctx, SSL_VERIFY_NONE, nullptr);
    }
    context->ssl = SSL_new(context->ctx);
    context->in = BIO_new(BIO_s_mem());
    context->out = BIO_new(BIO_s_mem());
    if (!context->ssl || !context->in || !context->out) {
        if (context->in) BIO_free(context->in);
        if (context->out) BIO_free(context->out);
        return nullptr;
    }
    SSL_set_bio(context->ssl, context->in, context->out);
    SSL_set_connect_state(context->ssl);
    if (!options.serverName.empty()) {
        CCmInetAddr numeric;
        const bool isIp = numeric.Set(options.serverName.c_str(), 0) == CM_OK;
        // SNI carries names only (RFC 6066 3); an address is matched against the certificate's IPs.
        if (!isIp) SSL_set_tlsext_host_name(context->ssl, options.serverName.c_str());
        if (options.verifyPeer) {
            X509_VERIFY_PARAM* param = SSL_get0_param(context->ssl);
            const int ok = isIp ? X509_VERIFY_PARAM_set1_ip_asc(param, numeric.GetIpDisplayName().c_str())
                                : X509_VERIFY_PARAM_set1_host(param, options.serverName.c_str(), 0);
            if (ok != 1) return nullptr;
        }
    }
    return std::unique_ptr<CCmTlsClient>(new CCmTlsClient(context.release(), sink));
}

CCmTlsClient::CCmTlsClient(CmTlsContext* context, ICmTlsSink* sink) : m_context(context), m_sink(sink) {}

CCmTlsClient::~CCmTlsClient() { delete m_context; }

void CCmTlsClient::Flush()
{
    uint8_t buffer[kChunk];
    for (;;) {
        const int n = BIO_read(m_context->out, buffer, sizeof(buffer));
        if (n <= 0) break;
        m_sink->OnTlsSend(buffer, static_cast<size_t>(n));
    }
}

void CCmTlsClient::Fail(const char* fallback)
{
    if (m_failed) return;
    m_failed = true;
    std::string reason;
    const long verify = SSL_get_verify_result(m_context->ssl);
    if (verify != X509_V_OK) reason = std::string("certificate: ") + X509_verify_cert_error_string(verify);
    if (reason.empty()) reason = LastOpenSslError();
    if (reason.empty()) reason = fallback;
    ERR_clear_error();
    Flush();  // an alert, if OpenSSL wrote one
    m_sink->OnTlsFailed(reason.c_str());
}

CmResult CCmTlsClient::Connect()
{
    if (m_failed) return CM_ERROR_FAILURE;
    return Advance();
}

CmResult CCmTlsClient::Advance()
{
    if (!m_connected) {
        const int r = SSL_do_handshake(m_context->ssl);
        if (r == 1) {
            m_connected = true;
            Flush();
            m_sink->OnTlsConnected();
        } else {
            const int error = SSL_get_error(m_context->ssl, r);
            Flush();
            if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return CM_OK;
            Fail("handshake failed");
            return CM_ERROR_FAILURE;
        }
    }
    uint8_t buffer[kChunk];
    for (;;) {
        const int n = SSL_read(m_context->ssl, buffer, sizeof(buffer));
        if (n > 0) {
            m_sink->OnTlsData(buffer, static_cast<size_t>(n));
            if (m_failed) return CM_ERROR_FAILURE;
            continue;
        }
        const int error = SSL_get_error(m_context->ssl, n);
        Flush();
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return CM_OK;
        if (error == SSL_ERROR_ZERO_RETURN) {
            m_sink->OnTlsClosed();
            return CM_OK;
        }
        Fail("read failed");
        return CM_ERROR_FAILURE;
    }
}

CmResult CCmTlsClient::ReadData(const uint8_t* data, size_t length)
{
    if (m_failed) return CM_ERROR_FAILURE;
    if (!data || length == 0) return CM_OK;
    if (length > kChunk * 64) return CM_ERROR_INVALID_ARG;  // no stream read is this large
    if (BIO_write(m_context->in, data, static_cast<int>(length)) != static_cast<int>(length)) {
        Fail("cannot buffer received data");
        return CM_ERROR_FAILURE;
    }
    return Advance();
}

CmResult CCmTlsClient::Write(const uint8_t* data, size_t length)
{
    if (m_failed) return CM_ERROR_FAILURE;
    if (!m_connected) return CM_ERROR_NOT_INITIALIZED;
    if (length == 0) return CM_OK;
    if (length > kChunk * 64) return CM_ERROR_INVALID_ARG;
    const int n = SSL_write(m_context->ssl, data, static_cast<int>(length));
    Flush();
    if (n != static_cast<int>(length)) {
        Fail("write failed");
        return CM_ERROR_FAILURE;
    }
    return CM_OK;
}
