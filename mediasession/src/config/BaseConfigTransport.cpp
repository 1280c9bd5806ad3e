// The line's addresses, files, connection policies, SRTP keys and RTP header extensions.
#include <algorithm>
#include <cstring>

#include <openssl/rand.h>

#include "config/BaseConfig.h"
#include "config/ConfigTrace.h"
#include "tp/CmInetAddr.h"
#include "util/CmBase64.h"

namespace zyn {

namespace {

bool IsNumericAddress(const char* ip)
{
    if (!ip || !*ip) return false;
    CCmInetAddr address;
    return address.SetIpAddrByString(ip) == CM_OK;
}

struct SrtpSuite {
    const char* name;
    size_t keyBytes;  // master key and salt together
};

constexpr SrtpSuite kSrtpSuites[] = {
    {"AEAD_AES_256_GCM", 44},         {"AEAD_AES_128_GCM", 28},         {"AES_CM_256_HMAC_SHA1_80", 46},
    {"AES_CM_128_HMAC_SHA1_80", 30}, {"AES_CM_128_HMAC_SHA1_32", 30}, {"NULL_CIPHER_HMAC_SHA1_80", 30},
    {"NON_SRTP_CRYPTO", 30},
};

const SrtpSuite* FindSrtpSuite(const char* name)
{
    if (!name) return nullptr;
    for (const auto& suite : kSrtpSuites)
        if (std::strcmp(suite.name, name) == 0) return &suite;
    return nullptr;
}

}  // namespace

ZynResult CBaseConfig::OverrideMediaIPAddress(const char* ip, unsigned int port)
{
    CFG_INFO_TRACE("OverrideMediaIPAddress, ip=" << (ip ? ip : "(null)") << ", port=" << port);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    if (!IsNumericAddress(ip) || port > 0xFFFF) return ZYN_E_INVALIDARG;
    return Commit(m_override, COverrideAddress{ip, static_cast<uint16_t>(port)}, EMediaConfigItem::OverrideIP);
}

ZynResult CBaseConfig::EnableFileCapture(const char* path, bool isLoop, bool enable)
{
    CFG_INFO_TRACE("EnableFileCapture, path=" << (path ? path : "(null)") << ", isLoop=" << isLoop
                                              << ", value=" << enable);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    if (enable && (!path || !*path)) return ZYN_E_INVALIDARG;
    return Commit(m_fileCapture, CFileCapture{path ? path : "", isLoop, enable}, EMediaConfigItem::FileCapture);
}

ZynResult CBaseConfig::EnableFileRender(const char* path, bool enable)
{
    CFG_INFO_TRACE("EnableFileRender, path=" << (path ? path : "(null)") << ", value=" << enable);
    if (enable && (!path || !*path)) return ZYN_E_INVALIDARG;
    return Commit(m_fileRender, CFileRender{path ? path : "", enable}, EMediaConfigItem::FileRender);
}

ZynConnectionPolicy CBaseConfig::GetIcePolicy() const
{
    if (m_icePolicy) return *m_icePolicy;
    // A share line starts without UDP: it runs over TCP unless retransmission is on.
    const bool share = m_pInfo && m_pInfo->GetSessionType() == ZynSessionType_ScreenShare;
    return share ? 18 : 19;
}

ZynResult CBaseConfig::SetIcePolicy(ZynConnectionPolicy policy)
{
    CFG_INFO_TRACE("SetIcePolicy, value=" << policy);
    return Commit(m_icePolicy, std::optional<ZynConnectionPolicy>(policy), EMediaConfigItem::IcePolicy);
}

ZynResult CBaseConfig::SetConnectionPolicy(ZynConnectionPolicy policy)
{
    CFG_INFO_TRACE("SetConnectionPolicy, value=" << policy);
    // A share line moves its transport between UDP and TCP; whatever stops it is a plain failure.
    const ZynResult result = Commit(m_connectionPolicy, policy, EMediaConfigItem::ConnectionPolicy);
    if (ZYN_FAILED(result)) {
        CFG_ERROR_TRACE("SetConnectionPolicy, failed, cret=" << result);
        return ZYN_E_FAIL;
    }
    return result;
}

ZynResult CBaseConfig::SetIceLocalPortRange(unsigned short minPort, unsigned short maxPort)
{
    CFG_INFO_TRACE("SetIceLocalPortRange, min=" << minPort << ", max=" << maxPort);
    // The range belongs to the line's ICE connector.
    CM_ASSERTE_RETURN(m_pInfo, ZYN_E_FAIL);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    // Both 0 restores the range of the line's kind; otherwise a real, ordered range.
    const bool reset = minPort == 0 && maxPort == 0;
    if (!reset && (minPort == 0 || minPort > maxPort)) return ZYN_E_INVALIDARG;
    return Commit(m_portRange, CPortRange{minPort, maxPort}, EMediaConfigItem::IceLocalPortRange);
}

ZynResult CBaseConfig::SetSendDestination(const char* ip, unsigned short rtpPort)
{
    CFG_INFO_TRACE("SetSendDestination, ip=" << (ip ? ip : "(null)") << ", rtpPort=" << rtpPort);
    if (!IsNumericAddress(ip)) return ZYN_E_INVALIDARG;
    return Commit(m_sendDestination, COverrideAddress{ip, rtpPort}, EMediaConfigItem::SendDestination);
}

const CBaseConfig::CSrtpCrypto& CBaseConfig::GetSrtpCrypto(ZynDirection direction) const
{
    return m_srtp[direction == ZynDirection_Recv ? 1 : 0];
}

ZynResult CBaseConfig::SetupSrtpCrypto(ZynDirection direction, const char* suite, const char* key, bool onlyCryptRtp)
{
    // The key itself never goes to the trace.
    CFG_INFO_TRACE("SetupSrtpCrypto, direction=" << static_cast<int>(direction) << ", suite="
                                                 << (suite ? suite : "(null)") << ", onlyCryptRtp=" << onlyCryptRtp);
    if (!suite || !key) return ZYN_E_INVALIDARG;
    if (!FindSrtpSuite(suite) || !*key) return ZYN_E_INVALIDARG;
    if (direction != ZynDirection_Send && direction != ZynDirection_Recv && direction != ZynDirection_SendRecv)
        return ZYN_E_INVALIDARG;
    auto srtp = m_srtp;
    const CSrtpCrypto crypto{suite, key, onlyCryptRtp};
    if (direction & ZynDirection_Send) srtp[0] = crypto;
    if (direction & ZynDirection_Recv) srtp[1] = crypto;
    return Commit(m_srtp, std::move(srtp), EMediaConfigItem::SrtpCrypto);
}

const char* CBaseConfig::CreateSrtpCryptoKey(const char* suite)
{
    m_lastCryptoKey.clear();
    const SrtpSuite* found = FindSrtpSuite(suite);
    if (!found) {
        CFG_WARNING_TRACE("CreateSrtpCryptoKey, unknown suite=" << (suite ? suite : "(null)"));
        return m_lastCryptoKey.c_str();
    }
    unsigned char key[64];
    if (RAND_bytes(key, static_cast<int>(found->keyBytes)) != 1) {
        CFG_ERROR_TRACE("CreateSrtpCryptoKey, failed to generate random bytes");
        return m_lastCryptoKey.c_str();
    }
    CM_Base64Encode(key, found->keyBytes, m_lastCryptoKey);
    OPENSSL_cleanse(key, sizeof(key));
    return m_lastCryptoKey.c_str();
}

const char* CBaseConfig::GetRtpExtension(unsigned int id)
{
    const CRtpExtension* found = nullptr;
    for (const auto& ext : m_rtpExtensions) {
        if (ext.id != id) continue;
        if (ext.direction == eStreamDirection_Out) return ext.uri.c_str();
        found = &ext;
    }
    return found ? found->uri.c_str() : nullptr;
}

ZynResult CBaseConfig::SetRtpExtension(unsigned char id, const char* uri, eStreamDirection direction)
{
    CFG_INFO_TRACE("SetRtpExtension, id=" << id << ", uri=" << (uri ? uri : "(null)")
                                          << ", direction=" << static_cast<int>(direction));
    // Id 0 is padding in the one-byte header form: never an extension.
    const bool valid = id != 0 && uri && *uri &&
                       (direction == eStreamDirection_Out || direction == eStreamDirection_In);
    if (!valid) return ZYN_E_FAIL;
    // One id per URI and one URI per id in each direction: a new registration replaces both.
    auto extensions = m_rtpExtensions;
    std::erase_if(extensions, [&](const CRtpExtension& ext) {
        return ext.direction == direction && (ext.id == id || ext.uri == uri);
    });
    extensions.push_back(CRtpExtension{id, uri, direction});
    const ZynResult result = Commit(m_rtpExtensions, std::move(extensions), EMediaConfigItem::RtpExtension);
    return ZYN_FAILED(result) ? ZYN_E_FAIL : result;
}

}  // namespace zyn
