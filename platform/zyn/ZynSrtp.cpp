#include "zyn/ZynSrtp.h"

#include <srtp2/srtp.h>

#include <cstring>
#include <mutex>

namespace zynrtp {

namespace {

bool LibraryReady()
{
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] { ready = srtp_init() == srtp_err_status_ok; });
    return ready;
}

}  // namespace

SrtpContext::~SrtpContext() { Reset(); }

void SrtpContext::Reset()
{
    if (m_session) srtp_dealloc(static_cast<srtp_t>(m_session));
    m_session = nullptr;
}

bool SrtpContext::SetKey(Direction direction, const std::string& suite, const uint8_t* keySalt, size_t length)
{
    if (!LibraryReady() || !keySalt || length != SRTP_AES_ICM_128_KEY_LEN_WSALT) return false;
    srtp_policy_t policy;
    std::memset(&policy, 0, sizeof(policy));
    if (suite == "AES_CM_128_HMAC_SHA1_80") {
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
    } else if (suite == "AES_CM_128_HMAC_SHA1_32") {
        srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
    } else {
        return false;
    }
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);  // RTCP always carries the 80-bit tag
    policy.ssrc.type = direction == Direction::Send ? ssrc_any_outbound : ssrc_any_inbound;
    uint8_t key[SRTP_AES_ICM_128_KEY_LEN_WSALT];
    std::memcpy(key, keySalt, sizeof(key));
    policy.key = key;
    policy.window_size = 1024;
    policy.allow_repeat_tx = 1;  // retransmissions reuse sequence numbers
    srtp_t session = nullptr;
    bool ok = srtp_create(&session, &policy) == srtp_err_status_ok;
    std::memset(key, 0, sizeof(key));
    if (!ok) return false;
    Reset();
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
