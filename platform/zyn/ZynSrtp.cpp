#include "zyn/ZynSrtp.h"

#include <srtp2/srtp.h>
#ifdef MS_HAVE_NSS
#include <nss.h>
#endif

#include <cstring>
#include <mutex>

#include "zyn/ZynEngineApi.h"

namespace zynrtp {

namespace {

bool LibraryReady()
{
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] {
#ifdef MS_HAVE_NSS
        // A libsrtp2 built on NSS opens an NSS context for every cipher it makes and closes it with
        // the cipher; when no other context is open, each of those loads and unloads the crypto token
        // (several ms each, a dozen per keyed line, on the network thread while the call is
        // starting). One context held for the process turns them into a reference count.
        static NSSInitContext* held =
            NSS_InitContext("", "", "", "", nullptr,
                            NSS_INIT_READONLY | NSS_INIT_NOCERTDB | NSS_INIT_NOMODDB | NSS_INIT_FORCEOPEN |
                                NSS_INIT_NOROOTINIT | NSS_INIT_OPTIMIZESPACE);
        (void)held;
#endif
        ready = srtp_init() == srtp_err_status_ok;
    });
    return ready;
}

}  // namespace

void SrtpWarmUp() { (void)LibraryReady(); }

namespace {

// The RTP and RTCP policies of a suite. SRTCP keeps the 80-bit tag even under the 32-bit RTP suite
// (RFC 4568 6.2.1); the AEAD suites carry RFC 7714's 16-byte tag on both.
bool SetPolicies(int32_t suite, srtp_policy_t& policy)
{
    switch (suite) {
    case ZynSrtpSuite_NullCipherHmacSha1_80:
        srtp_crypto_policy_set_null_cipher_hmac_sha1_80(&policy.rtp);
        srtp_crypto_policy_set_null_cipher_hmac_sha1_80(&policy.rtcp);
        return true;
    case ZynSrtpSuite_AesCm128HmacSha1_32:
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
        return true;
    case ZynSrtpSuite_AesCm128HmacSha1_80:
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
        return true;
    case ZynSrtpSuite_AesCm256HmacSha1_80:
        srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80(&policy.rtp);
        srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80(&policy.rtcp);
        return true;
    case ZynSrtpSuite_AeadAes128Gcm:
        srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtp);
        srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtcp);
        return true;
    case ZynSrtpSuite_AeadAes256Gcm:
        srtp_crypto_policy_set_aes_gcm_256_16_auth(&policy.rtp);
        srtp_crypto_policy_set_aes_gcm_256_16_auth(&policy.rtcp);
        return true;
    default: return false;
    }
}

// A session for the suite, or null when libsrtp2 refuses it.
srtp_t CreateSession(SrtpContext::Direction direction, int32_t suite, const uint8_t* keySalt)
{
    if (!LibraryReady()) return nullptr;
    srtp_policy_t policy;
    std::memset(&policy, 0, sizeof(policy));
    if (!SetPolicies(suite, policy)) return nullptr;
    policy.ssrc.type = direction == SrtpContext::Direction::Send ? ssrc_any_outbound : ssrc_any_inbound;
    // libsrtp2 takes a non-const key; it only reads it.
    policy.key = const_cast<uint8_t*>(keySalt);
    policy.window_size = 1024;
    policy.allow_repeat_tx = 1;  // retransmissions reuse sequence numbers
    srtp_t session = nullptr;
    if (srtp_create(&session, &policy) != srtp_err_status_ok) return nullptr;
    return session;
}

}  // namespace

size_t SrtpKeyLength(int32_t suite)
{
    switch (suite) {
    case ZynSrtpSuite_NullCipherHmacSha1_80:
    case ZynSrtpSuite_AesCm128HmacSha1_32:
    case ZynSrtpSuite_AesCm128HmacSha1_80: return SRTP_AES_ICM_128_KEY_LEN_WSALT;
    case ZynSrtpSuite_AesCm256HmacSha1_80: return SRTP_AES_ICM_256_KEY_LEN_WSALT;
    case ZynSrtpSuite_AeadAes128Gcm: return SRTP_AES_GCM_128_KEY_LEN_WSALT;
    case ZynSrtpSuite_AeadAes256Gcm: return SRTP_AES_GCM_256_KEY_LEN_WSALT;
    default: return 0;
    }
}

bool SrtpSuiteAvailable(int32_t suite)
{
    static const uint32_t mask = [] {
        uint32_t m = 0;
        const uint8_t probeKey[SRTP_MAX_KEY_LEN] = {};
        for (int32_t s = ZynSrtpSuite_NullCipherHmacSha1_80; s <= ZynSrtpSuite_AeadAes256Gcm; ++s) {
            if (srtp_t session = CreateSession(SrtpContext::Direction::Send, s, probeKey)) {
                srtp_dealloc(session);
                m |= 1u << s;
            }
        }
        return m;
    }();
    return suite >= 0 && suite < 32 && (mask & (1u << suite)) != 0;
}

SrtpContext::~SrtpContext() { Clear(); }

void SrtpContext::Clear()
{
    if (m_session) srtp_dealloc(static_cast<srtp_t>(m_session));
    m_session = nullptr;
}

bool SrtpContext::SetKey(Direction direction, int32_t suite, const uint8_t* keySalt, size_t length)
{
    if (!keySalt || length == 0 || length != SrtpKeyLength(suite)) return false;
    srtp_t session = CreateSession(direction, suite, keySalt);
    if (!session) return false;
    Clear();
    m_session = session;
    return true;
}

size_t SrtpContext::ProtectRtp(uint8_t* packet, size_t length, size_t capacity)
{
    if (!m_session || !packet || length + kMaxTrailer > capacity || length > INT32_MAX) return 0;
    int len = static_cast<int>(length);
    return srtp_protect(static_cast<srtp_t>(m_session), packet, &len) == srtp_err_status_ok ? static_cast<size_t>(len) : 0;
}

size_t SrtpContext::UnprotectRtp(uint8_t* packet, size_t length)
{
    if (!m_session || !packet || length > INT32_MAX) return 0;
    int len = static_cast<int>(length);
    return srtp_unprotect(static_cast<srtp_t>(m_session), packet, &len) == srtp_err_status_ok ? static_cast<size_t>(len) : 0;
}

size_t SrtpContext::ProtectRtcp(uint8_t* packet, size_t length, size_t capacity)
{
    if (!m_session || !packet || length + kMaxTrailer > capacity || length > INT32_MAX) return 0;
    int len = static_cast<int>(length);
    return srtp_protect_rtcp(static_cast<srtp_t>(m_session), packet, &len) == srtp_err_status_ok ? static_cast<size_t>(len) : 0;
}

size_t SrtpContext::UnprotectRtcp(uint8_t* packet, size_t length)
{
    if (!m_session || !packet || length > INT32_MAX) return 0;
    int len = static_cast<int>(length);
    return srtp_unprotect_rtcp(static_cast<srtp_t>(m_session), packet, &len) == srtp_err_status_ok ? static_cast<size_t>(len) : 0;
}

}  // namespace zynrtp

uint32_t ZynGetSrtpSuiteMask()
{
    uint32_t mask = 0;
    for (int32_t s = ZynSrtpSuite_NullCipherHmacSha1_80; s <= ZynSrtpSuite_AeadAes256Gcm; ++s)
        if (zynrtp::SrtpSuiteAvailable(s)) mask |= 1u << s;
    return mask;
}
