// The local description: from CreateOffer or CreateAnswer, through every line's listening, to the
// sink's OnSDPReady. Lines report back through onPortSelected; the text leaves once the last one
// has, so three lines give one OnSDPReady.
//
// Threads: selectPort and buildUpdateSdp run on the caller's thread; onPortSelected on the thread
// that ends a line's listening (the caller's, or the main thread after a certificate wait). Both
// are serialised by the application's use of the main thread, which is why nothing here locks.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "common/TraceFilter.h"
#include "config/CodecConversion.h"
#include "connection/MediaConnection.h"
#include "connection/SdpConversions.h"
#include "line/MediaConnectionInfo.h"
#include "sdp/h264_param.h"
#include "util/CmTick.h"
#include "util/CmTrace.h"
#include "zyn/ZynCodecs.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

// Audio offers its own codec first, then these, strongest first.
constexpr ZynCodecType kAudioCodecOrder[] = {ZynCodecType_OPUS, ZynCodecType_G722,      ZynCodecType_ILBC,
                                             ZynCodecType_PCMA, ZynCodecType_G729,      ZynCodecType_G7221_24K,
                                             ZynCodecType_G7221_32K};

bool IsAudioKind(ZynSessionType type) { return type == ZynSessionType_Audio || type == ZynSessionType_AudioSlide; }

// What the decoder accepts until the machine's performance class is measured: 720p at 30 frames
// per second, constrained baseline level 3.1, which every device of this class decodes.
_tagCodecCapability DefaultVideoCapability()
{
    _tagCodecCapability cap{};
    cap.profile_id = 0x42e01f;
    const sdp::h264_level_limits limits = sdp::get_h264_level_limits(sdp::h264_level_3_1);
    cap.mbps = limits.max_mbps;
    cap.fs = limits.max_fs;
    cap.br = limits.max_br;
    return cap;
}

_tagCodecParam EngineRecord(const ZynEngineCodecInfo& info, uint8_t payload, uint32_t packetization)
{
    _tagCodecParam r{};
    r.type = static_cast<ZynCodecType>(info.codecType);
    std::snprintf(r.name, sizeof(r.name), "%s", info.name);
    r.payload = payload;
    r.clock_rate = info.clockRate;
    r.channels = info.channels;
    r.packetization = packetization;
    if (r.type == ZynCodecType_AVC || r.type == ZynCodecType_SVC || r.type == ZynCodecType_AV1)
        r.cap = DefaultVideoCapability();
    return r;
}

const ZynEngineCodecInfo* FindEngineCodec(ZynSessionType type, ZynCodecType codec)
{
    const ZynEngineCodecInfo* table = nullptr;
    const size_t n = ZynGetMediaCodecs(IsAudioKind(type) ? ZynCodecMedia_Audio : ZynCodecMedia_Video, &table);
    for (size_t i = 0; i < n; ++i)
        if (table[i].codecType == codec) return &table[i];
    return nullptr;
}

}  // namespace

std::string CMediaConnection::getUserName() const
{
    const ZynEngineVersion v = ZynGetVersion();
    char name[256];
    std::snprintf(name, sizeof(name), "zyn-%s-%d.%d.%d", "linux", static_cast<int>(v.major),
                  static_cast<int>(v.minor), static_cast<int>(v.patch));
    return name;
}

void CMediaConnection::newLocalSessionGroup()
{
    m_pLocalSessionGroup = std::make_unique<sdp::session_group>(getUserName(), "127.0.0.1");
    if (m_globalConfig.IsFQDNInICEEnabled())
        m_pLocalSessionGroup->ice_options = sdp::ice_options(std::vector<std::string>{"vorta+tls+fqdn"});
}

ZynResult CMediaConnection::selectPort()
{
    MS_DETAIL_TRACE("CMediaConnection::selectPort, conn=" << m_connections.size() << CONN_TAIL);
    if (m_pLocalSessionGroup) {
        for (CMediaConnectionInfo* line : m_connections)
            if (line) line->SetSdpReady(false);
    }
    newLocalSessionGroup();
    m_selectPortTick = get_tick_count();
    for (CMediaConnectionInfo* line : m_connections) {
        if (!line) break;
        if (line->GetSessionType() == ZynSessionType_Application) continue;
        ZynResult r = line->StartListen(m_localAddress, false, m_bExternalTransport);
        if (r == ZYN_E_GATHERFAILED || r == ZYN_E_NETQUEUE) return r;
        if (!ZYN_SUCCEEDED(r)) return ZYN_E_FAIL;
    }
    return ZYN_S_OK;
}

void CMediaConnection::onPortSelected(CMediaConnectionInfo* line)
{
    MS_DETAIL_TRACE("CMediaConnection::onPortSelected" << CONN_TAIL);
    if (line) line->SetSdpReady(true);
    buildSdpSession(line);
    std::string text;
    if (!buildLocalSdp(text)) return;
    sendLocalSdp("Local SDP is ready, type=", text);
}

ZynResult CMediaConnection::buildUpdateSdp()
{
    if (!m_pLocalSessionGroup) return ZYN_E_FAIL;
    newLocalSessionGroup();
    for (CMediaConnectionInfo* line : m_connections)
        if (line && line->IsSdpReady()) buildSdpSession(line);
    std::string text;
    if (!buildLocalSdp(text)) return ZYN_E_FAIL;
    sendLocalSdp("Local SDP is updated, type=", text);
    return ZYN_S_OK;
}

void CMediaConnection::traceSdp(const std::string& text)
{
    if (m_globalConfig.IsInsecureLogsEnabled())
        OutputInfoTraceWithFilter(text, "", "", 2);
    else
        OutputInfoTraceWithFilter(text, kSecretPattern, kSecretReplacement, 2);
}

void CMediaConnection::sendLocalSdp(const char* what, const std::string& text)
{
    MS_INFO_TRACE(what << m_sendSdpType << ", sdp=" << CONN_TAIL);
    traceSdp(text);
    const int type = m_sendSdpType;
    // Cleared before the sink runs: an application may answer or offer again from inside it.
    m_sendSdpType = 0;
    m_localSdpSentTick = get_tick_count();
    if (IZynMediaConnectionSink* sink = m_pSink.load()) sink->OnSDPReady(static_cast<ZynSdpType>(type), text.c_str());
}

bool CMediaConnection::buildLocalSdp(std::string& text)
{
    MS_DETAIL_TRACE("CMediaConnection::buildLocalSdp" << CONN_TAIL);
    for (CMediaConnectionInfo* line : m_connections) {
        if (!line) return false;
        if (!line->IsSdpReady() && !line->IsAudioSlideMix() && line->GetSessionType() != ZynSessionType_Application)
            return false;
    }
    if (!m_pLocalSessionGroup) return false;
    if (m_pLocalSessionGroup->sessions.empty()) {
        MS_WARNING_TRACE("CMediaConnection::buildLocalSdp -- sdp session is empty!" << CONN_TAIL);
        text.clear();
        return true;
    }
    if (m_sdpStatus < 1 || m_sdpStatus > 3 || (m_sendSdpType != 1 && m_sendSdpType != 2)) return false;
    sdp::offer_answer oa(*m_pLocalSessionGroup);
    oa.set_session_version(m_sdpVersion);
    try {
        if (m_sendSdpType == 1) {
            text = oa.get_offer();
            m_sdpVersion = oa.get_session_version();
            return true;
        }
        text = oa.get_answer(m_remoteSdp);
        m_sdpVersion = oa.get_session_version();
    } catch (const std::exception& e) {
        MS_ERROR_TRACE("CMediaConnection::buildLocalSdp, failed: " << e.what() << CONN_TAIL);
        return false;
    }
    m_localNegotiated = oa.get_local_negotiated();
    m_remoteNegotiated = oa.get_remote_negotiated();
    if (m_sdpStatus != 3) {
        checkLocalNegotiated(m_localNegotiated);
        checkRemoteNegotiated(m_remoteNegotiated, false);
        checkNegotiatedConnection(m_localNegotiated, m_remoteNegotiated, nullptr, nullptr);
        m_sdpStatus = 3;
        MS_DETAIL_TRACE("Finish Negotiating ...... ,[CheckPoint]" << CONN_TAIL);
    }
    return true;
}

ZynResult CMediaConnection::checkLocalNegotiated(const sdp::optional_value<sdp::session_group>& group)
{
    const sdp::session_group* g = group.get_if();
    if (!g || g->sessions.empty()) return ZYN_E_FAIL;
    ZynResult result = ZYN_E_FAIL;
    for (const sdp::session& s : g->sessions) {
        const ZynSessionType type = ConvSessionType(s);
        MS_DETAIL_TRACE("CMediaConnection::checkLocalNegotiated -- Negotiated, type:" << static_cast<int>(type)
                                                                                      << CONN_TAIL);
        const sdp::rtp_session* rtp = s.rtp.get_if();
        CMediaConnectionInfo* line = rtp && rtp->port != 0 ? FindConnection(type) : nullptr;
        if (!line) continue;
        line->SetNegotiated(true);
        line->setupDecodeCodecs(rtp->codecs);
        line->setupExtMap(rtp->ext_maps, true);
        result = ZYN_S_OK;
    }
    return result;
}

std::vector<ZynCodecType> CMediaConnection::SortOutCodecs(ZynSessionType type,
                                                          const std::vector<ZynCodecType>& priority,
                                                          const std::vector<ZynCodecType>& preferred)
{
    std::vector<ZynCodecType> out;
    auto keep = [&](ZynCodecType codec) {
        if (FindEngineCodec(type, codec) && std::find(out.begin(), out.end(), codec) == out.end())
            out.push_back(codec);
    };
    for (ZynCodecType c : priority) keep(c);
    for (ZynCodecType c : preferred) keep(c);
    return out;
}

void CMediaConnection::buildCodecs(CMediaConnectionInfo* line, std::vector<sdp::codec>& out,
                                   const std::vector<ZynCodecType>& list)
{
    const ZynSessionType type = line ? line->GetSessionType() : ZynSessionType_Video;
    const CBaseVideoConfig* video = line ? line->GetBaseVideoConfig() : nullptr;
    // The application's decoding limits replace the default capability of that codec.
    auto record = [&](const ZynEngineCodecInfo& info, uint8_t payload, uint32_t packetization) {
        _tagCodecParam r = EngineRecord(info, payload, packetization);
        const ZynVideoCodecParams* limits = video ? video->GetDecodeLimits(r.type) : nullptr;
        if (limits) {
            if (limits->uProfileLevelID) r.cap.profile_id = limits->uProfileLevelID;
            r.cap.mbps = limits->uMaxMBPS;
            r.cap.fs = limits->uMaxFS;
            r.cap.fps = limits->uMaxFPS;
            r.cap.br = limits->uMaxBR;
        }
        return r;
    };
    std::vector<_tagCodecParam> records;
    for (ZynCodecType codec : list) {
        const ZynEngineCodecInfo* info = FindEngineCodec(IsAudioKind(type) ? ZynSessionType_Audio : type, codec);
        if (!info) continue;
        if (codec == ZynCodecType_AV1) continue;  // offered only where the hardware decodes it
        if (codec == ZynCodecType_AVC) {
            // Fragmenting mode first: it is the one that carries large key frames efficiently,
            // unless the application packetizes one unit a packet.
            const bool mode0First = video && video->GetPacketizationMode() == ZynPacketizationMode_0;
            if (mode0First && info->mode0Payload) records.push_back(record(*info, info->mode0Payload, 0));
            records.push_back(record(*info, info->payload, 1));
            if (!mode0First && info->mode0Payload) records.push_back(record(*info, info->mode0Payload, 0));
            continue;
        }
        records.push_back(record(*info, info->payload, 1));
    }
    // Turned on for the line: after the H.264 modes, which every peer decodes.
    if (video && video->IsAV1Enabled())
        if (const ZynEngineCodecInfo* info = FindEngineCodec(type, ZynCodecType_AV1))
            records.push_back(record(*info, info->payload, 1));
    std::vector<CCodecPt> pts;
    ConvertCodecs(records.data(), static_cast<unsigned int>(records.size()), out, pts);
}

void CMediaConnection::buildSdpSession(CMediaConnectionInfo* line)
{
    if (!line || !m_pLocalSessionGroup) return;
    const ZynSessionType type = line->GetSessionType();
    if (type == ZynSessionType_Application) return;
    CBaseConfig& config = line->GetConfig();

    std::vector<ZynCodecType> priority{line->GetDefaultCodecType()};
    if (IsAudioKind(type)) priority.insert(priority.end(), std::begin(kAudioCodecOrder), std::end(kAudioCodecOrder));
    std::vector<ZynCodecType> preferred;
    if (config.GetPreferedCodec() != ZynCodecType_Unknown) preferred.push_back(config.GetPreferedCodec());
    std::vector<sdp::codec> codecs;
    // Codecs the application set up replace the engine's: those it can decode, else those it
    // encodes (one list serves both directions of a sendrecv line).
    const CBaseConfig::CCodecList& own = config.GetDecodeCodecs().set ? config.GetDecodeCodecs() : config.GetEncodeCodecs();
    if (own.set)
        codecs = own.codecs;
    else
        buildCodecs(line, codecs, SortOutCodecs(type, priority, preferred));
    line->buildDtmfCodecs(codecs);
    if (config.IsFecEnabled()) line->buildFecCodecs(codecs);

    std::vector<sdp::rtcp_feedback> feedback;
    if (type == ZynSessionType_Video || type == ZynSessionType_ScreenShare) {
        feedback.emplace_back("*", "nack pli");
        feedback.emplace_back("*", "ccm tmmbr");
        feedback.emplace_back("*", "ccm fir");
    }
    if (config.IsRtxEnabled()) {
        line->buildRtxCodecs(codecs);
        feedback.emplace_back("*", "nack");
    }

    std::vector<sdp::crypto> cryptos;
    if (!line->IsDtlsInUse()) line->buildSrtpCryptos(cryptos);

    sdp::optional_value<sdp::ice_caps> ice;
    CCmInetAddr address;
    line->GetIceCandidates(ice, address);
    if (address.GetPort() == 0) {
        MS_WARNING_TRACE("CMediaConnection::buildSdpSession -- local port is 0, type:" << static_cast<int>(type)
                                                                                       << CONN_TAIL);
        return;
    }
    const bool secure = line->IsDtlsInUse() || !cryptos.empty();
    sdp::rtp_session rtp(ConvRtpSessionType(type), address.GetIpDisplayName(), address.GetPort(),
                         secure ? "RTP/SAVPF" : "RTP/AVPF");
    rtp.codecs = std::move(codecs);
    rtp.rtcp_feedback = std::move(feedback);
    rtp.cryptos = std::move(cryptos);
    if (ice.is_set() && !ice.get_data().candidates.empty()) rtp.ice = ice;
    if (line->IsDtlsInUse() && !line->GetLocalFingerPrint().empty())
        rtp.dtls = sdp::dtls_caps(sdp::dtls_setup_actpass, {sdp::fingerprint("sha-1", line->GetLocalFingerPrint())});
    line->buildMuliCaps(rtp.cmulti);
    line->buildExtMaps(rtp.ext_maps);
    rtp.direction = ConvZynDirection(line->GetDirection());
    rtp.rtcp_mux = m_globalConfig.IsRTCPMuxEnabled();
    if (config.GetMaxBandwidth() != 0) rtp.set_bandwidth(config.GetMaxBandwidth());
    if (config.IsHybridResilienceEnabled())
        rtp.sobe_hybrid_resilience = sdp::sobe_hybrid_resilience(std::vector<std::string>{"1"},
                                                                config.GetHybridResilienceDataFlow());
    rtp.mid = std::to_string(line->GetMid());
    m_pLocalSessionGroup->add_session(sdp::session(std::move(rtp)));
}

}  // namespace zyn
