// What a line offers beyond plain codecs (SDES keys, telephone events, FEC, RTX, multistream,
// candidates) and what it keeps of the negotiation until it connects.
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "config/CodecConversion.h"
#include "tp/CmThreadManager.h"
#include "util/CmBase64.h"
#include "util/CmTrace.h"
#include "zyn/ZynCodecs.h"

namespace zyn {

namespace {

constexpr uint8_t DEFAULT_RTX_PAYLOADTYPE = 112;
constexpr uint32_t DEFAULT_RTX_BUFFERTIME = 500;

struct SdesSuite {
    int32_t engineSuite;  // ZynSrtpSuite: the engine must be able to key it
    uint32_t tag;
    const char* suite;
    size_t keyBytes;
};
// Strongest first: an answerer takes the first suite it supports.
constexpr SdesSuite kSdesSuites[] = {
    {ZynSrtpSuite_AeadAes256Gcm, 1, "AEAD_AES_256_GCM", 44},
    {ZynSrtpSuite_AeadAes128Gcm, 2, "AEAD_AES_128_GCM", 28},
    {ZynSrtpSuite_AesCm256HmacSha1_80, 3, "AES_CM_256_HMAC_SHA1_80", 46},
    {ZynSrtpSuite_AesCm128HmacSha1_80, 4, "AES_CM_128_HMAC_SHA1_80", 30},
    {ZynSrtpSuite_AesCm128HmacSha1_32, 5, "AES_CM_128_HMAC_SHA1_32", 30},
};
// Window size hint: the replay window the receiver keeps, in packets (RFC 4568's minimum).
constexpr int kWindowSizeHint = 64;

}  // namespace

bool CMediaConnectionInfo::IsCallStarted() const { return m_sink && m_sink->IsCallStarted(); }

void CMediaConnectionInfo::SetZynErrorMetrics(const char* tag, ZynResult code)
{
    if (m_sink) m_sink->GetSessionMetrics().KickZynError(tag ? tag : "", code);
}

CBaseConfig& CMediaConnectionInfo::GetConfig()
{
    switch (m_type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return m_audioConfig;
    case ZynSessionType_Video: return m_videoConfig;
    case ZynSessionType_ScreenShare: return m_shareConfig;
    default: return m_baseConfig;
    }
}

bool CMediaConnectionInfo::IsDtlsInUse() const
{
    return FromSink([](CMediaConnection& c) { return c.IsDtlsSRTPEnabled(); });
}

bool CMediaConnectionInfo::IsSRTPEnabled() const
{
    return FromSink([](CMediaConnection& c) { return c.GetGlobalConfigImpl().IsSRTPEnabled(); });
}

bool CMediaConnectionInfo::IsMultiStreamEnabled() const
{
    return FromSink([](CMediaConnection& c) { return c.GetGlobalConfigImpl().IsMultiStreamEnabled(); });
}

void CMediaConnectionInfo::buildSrtpCryptos(std::vector<sdp::crypto>& out)
{
    if (IsDtlsInUse() || !IsSRTPEnabled()) return;
    if (m_cryptos.empty()) {
        // Only what the engine can key is offered: an agreed suite it refused would leave the line
        // without media.
        const uint32_t keyable = ZynGetSrtpSuiteMask();
        for (const SdesSuite& s : kSdesSuites) {
            if (!(keyable & (1u << s.engineSuite))) continue;
            unsigned char key[64] = {};
            if (RAND_bytes(key, static_cast<int>(s.keyBytes)) != 1)
                MS_ERROR_TRACE("CMediaConnectionInfo::buildSrtpCryptos, failed to generate random bytes" << LINE_TAIL);
            std::string text;
            CM_Base64Encode(key, s.keyBytes, text);
            OPENSSL_cleanse(key, sizeof(key));
            m_cryptos.emplace_back(s.tag, s.suite, std::vector<sdp::crypto_key>{sdp::crypto_key("inline", text, "2^31")},
                                   std::vector<std::string>{"WSH=" + std::to_string(kWindowSizeHint)});
        }
    }
    out.insert(out.end(), m_cryptos.begin(), m_cryptos.end());
}

void CMediaConnectionInfo::buildDtmfCodecs(std::vector<sdp::codec>& out)
{
    if (m_type != ZynSessionType_Audio) return;
    const ZynEngineCodecInfo* table = nullptr;
    const size_t n = ZynGetMediaCodecs(ZynCodecMedia_Audio, &table);
    for (size_t i = 0; i < n; ++i) {
        if (table[i].codecType != ZynCodecType_DTMF) continue;
        out.emplace_back(table[i].payload, sdp::telephone_event_codec_param(std::vector<std::string>{"0-15"}));
        return;
    }
}

void CMediaConnectionInfo::buildFecCodecs(std::vector<sdp::codec>& out)
{
    ZynSobeFecInfo info{};
    if (!ZYN_SUCCEEDED(GetConfig().GetFecInfo(info, eStreamDirection_In))) {
        MS_WARNING_TRACE("CMediaConnectionInfo::buildFecCodecs failed. " << LINE_TAIL);
        return;
    }
    sdp::sobe_rs_fec_codec_param param;
    param.fec_order = GetConfig().GetSrtpFecOrder() == ZynSecurityFECOrder_FEC_SRTP ? "FEC_SRTP" : "SRTP_FEC";
    out.emplace_back(info.uPayloadType, param);
    MS_INFO_TRACE("CMediaConnectionInfo::buildFecCodecs: localFecPayloadType=" << static_cast<int>(info.uPayloadType)
                                                                               << LINE_TAIL);
}

void CMediaConnectionInfo::buildRtxCodecs(std::vector<sdp::codec>& out)
{
    if (!GetConfig().IsRtxEnabled()) return;
    ZynSobeRtxInfo info{};
    uint8_t payload = DEFAULT_RTX_PAYLOADTYPE;
    uint32_t bufferTime = DEFAULT_RTX_BUFFERTIME;
    if (ZYN_SUCCEEDED(GetConfig().GetRtxInfo(info, eStreamDirection_In)) && info.uPayloadType != 0) {
        payload = info.uPayloadType;
        bufferTime = info.uBufferTime;
    }
    const char* order = "SRTP_RTX";
    out.emplace_back(payload, sdp::sobe_rtx_codec_param(order, bufferTime));
    MS_INFO_TRACE("CMediaConnectionInfo::buildRtxCodecs: rtxPayloadType=" << static_cast<int>(payload)
                  << ", maxRtxBufferTime=" << bufferTime << ", rtx_srtp_order=" << order << LINE_TAIL);
}

void CMediaConnectionInfo::buildMuliCaps(sdp::optional_value<sdp::cmulti_caps>& out)
{
    if (!IsMultiStreamEnabled()) return;
    // Audio mixes every source into one stream, whatever the codec: one simulcast of any payload.
    // Video layers depend on the machine's performance class, which the static tables give.
    if (m_type != ZynSessionType_Audio && m_type != ZynSessionType_AudioSlide) return;
    sdp::sprop_source source(0);
    source.simuls.emplace_back(std::vector<uint32_t>{0});
    out = sdp::cmulti_caps({source}, {sdp::sprop_simul(0, 0, "100", {"*"})}, 9);
}

void CMediaConnectionInfo::GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& address)
{
    // The connector belongs to the network thread: the description asks it there.
    if (!m_networkThread) return;
    CmInvokeInThread(m_networkThread, false, [&] {
        m_iceConnector.GetIceCandidates(caps, address);
        return CM_OK;
    });
    m_sdpAddress = address;
}

void CMediaConnectionInfo::setupExtMap(const std::vector<sdp::ext_map>& maps, bool local)
{
    m_extMaps[local ? 1 : 0] = maps;
}

void CMediaConnectionInfo::setupBandwidth(const sdp::optional_value<unsigned>& bitsPerSecond)
{
    m_sendBandwidth = bitsPerSecond.is_set() ? bitsPerSecond.get_data() : 0;
}

void CMediaConnectionInfo::setupMultiCaps(const sdp::optional_value<sdp::cmulti_caps>& remote)
{
    if (!remote.is_set()) return;
    m_bMultistream = true;
    m_remoteMultiCaps = remote;
    MS_INFO_TRACE("CMediaConnectionInfo::setupMultiCaps, vorta-scr is supported, m_cScrVersion="
                  << remote.get_data().scr_versions << LINE_TAIL);
}

void CMediaConnectionInfo::setupSrtp(const std::vector<sdp::crypto>& remote, const std::vector<sdp::crypto>& local)
{
    m_negotiatedCryptos[0].clear();
    m_negotiatedCryptos[1].clear();
    if (remote.empty()) return;
    m_negotiatedCryptos[1].push_back(remote.front());
    for (const sdp::crypto& c : local) {
        if (c.suite != remote.front().suite) continue;
        m_negotiatedCryptos[0].push_back(c);
        break;
    }
}

void CMediaConnectionInfo::setupSdesKeys()
{
    if (IsDtlsInUse() || m_negotiatedCryptos[0].empty() || m_negotiatedCryptos[1].empty()) return;
    const sdp::crypto& local = m_negotiatedCryptos[0].front();
    const sdp::crypto& remote = m_negotiatedCryptos[1].front();
    if (local.keys.empty() || remote.keys.empty()) return;
    setupSrtpCrypto(1, local.suite.c_str(), local.keys.front().key.c_str(), 0, 0);
    setupSrtpCrypto(2, remote.suite.c_str(), remote.keys.front().key.c_str(), 0, 0);
}

void CMediaConnectionInfo::setupEncodeCodecs(const std::vector<sdp::codec>& codecs)
{
    m_encodeCodecs = codecs;
    if (!m_pZynSession) return;
    // Only the first media codec is sent on; telephone events, FEC and RTX ride beside it, wherever
    // the description lists them.
    bool mediaSet = false;
    for (const sdp::codec& c : codecs) {
        const ZynCodecType type = CodecSdp2Zyn(c);
        if (type == ZynCodecType_Unknown) continue;
        const bool media = type != ZynCodecType_DTMF && type != ZynCodecType_CN && type != ZynCodecType_FEC &&
                           type != ZynCodecType_RTX;
        if (media && mediaSet) continue;
        const ZynResult r = m_pZynSession->SetCodecPt(1, static_cast<uint8_t>(c.payload_type), type, c.get_clock_rate());
        MS_INFO_TRACE("CMediaConnectionInfo::setupEncodeCodecs, payload=" << c.payload_type << ", codec=" << type
                      << ", result=" << r << LINE_TAIL);
        if (ZYN_SUCCEEDED(r) && media) {
            m_sendCodec = type;
            mediaSet = true;
        }
    }
}

void CMediaConnectionInfo::setupDecodeCodecs(const std::vector<sdp::codec>& codecs)
{
    m_decodeCodecs = codecs;
    if (!m_pZynSession) return;
    for (const sdp::codec& c : codecs) {
        const ZynCodecType type = CodecSdp2Zyn(c);
        if (type != ZynCodecType_Unknown)
            m_pZynSession->SetCodecPt(2, static_cast<uint8_t>(c.payload_type), type, c.get_clock_rate());
    }
}

}  // namespace zyn
