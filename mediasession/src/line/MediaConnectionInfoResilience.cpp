// Resilience agreed with the remote end (RS-FEC, retransmission, and both together), written to
// the engine session as its numbered options.
#include <cstring>

#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

constexpr int32_t kOptionFecSetup = 3;
constexpr int32_t kOptionRtx = 2002;
constexpr int32_t kOptionFecEnable = 2006;
constexpr int32_t kOptionHybridSend = 2014;
constexpr int32_t kOptionHybridRecv = 2015;

const sdp::codec* FindCodec(const sdp::rtp_session& session, sdp::codec_type type)
{
    for (const sdp::codec& c : session.codecs)
        if (c.get_type() == type) return &c;
    return nullptr;
}

// The engine's RTX record: version, payload, associated payload, buffer time, clock.
void PackRtx(const ZynSobeRtxInfo& info, uint8_t (&out)[16])
{
    std::memset(out, 0, sizeof(out));
    out[0] = info.uVersion;
    out[1] = info.uPayloadType;
    out[2] = info.uAssociatedPayloadType;
    std::memcpy(out + 4, &info.uBufferTime, 4);
    std::memcpy(out + 8, &info.uClockRate, 4);
}

}  // namespace

bool CMediaConnectionInfo::checkSobeFec(const sdp::rtp_session& remote)
{
    const sdp::codec* fec = FindCodec(remote, sdp::codec_x_ulpfecuc);
    if (!fec) {
        MS_INFO_TRACE("CMediaConnectionInfo::checkSobeFec, negotiate SOBE FEC failed,  cannot find Rsfec codec info"
                      << LINE_TAIL);
        return false;
    }
    m_remoteFecPayload = static_cast<uint8_t>(fec->payload_type);
    return true;
}

void CMediaConnectionInfo::setupSobeFec(bool negotiated)
{
    if (!GetConfig().IsFecEnabled()) {
        MS_INFO_TRACE("CMediaConnectionInfo::setupSobeFec: Fec is disabled." << LINE_TAIL);
        return;
    }
    if (!negotiated) {
        MS_INFO_TRACE("CMediaConnectionInfo::setupSobeFec: Fec negotiated failed." << LINE_TAIL);
        return;
    }
    ZynSobeFecInfo local{};
    if (!ZYN_SUCCEEDED(GetConfig().GetFecInfo(local, eStreamDirection_In))) {
        MS_WARNING_TRACE("CMediaConnectionInfo::setupSobeFec: Get local fec info failed" << LINE_TAIL);
        return;
    }
    if (!m_pZynSession) return;
    // Local record, then the remote's payload, as the engine reads them: two records of 56 bytes.
    uint8_t record[112] = {};
    std::memcpy(record, &local, sizeof(local) < 56 ? sizeof(local) : 56);
    ZynSobeFecInfo remote = local;
    remote.uPayloadType = m_remoteFecPayload;
    std::memcpy(record + 56, &remote, sizeof(remote) < 56 ? sizeof(remote) : 56);
    m_pZynSession->SetOption(kOptionFecSetup, record, sizeof(record));
    const uint8_t on = 1;
    m_pZynSession->SetOption(kOptionFecEnable, &on, 1);
    m_bFecSetup = true;
}

bool CMediaConnectionInfo::checkSobeRtx(const sdp::rtp_session& remote)
{
    m_bRtxSetup = false;
    if (!GetConfig().IsRtxEnabled()) return false;
    bool nack = false;
    for (const sdp::rtcp_feedback& f : remote.rtcp_feedback) nack = nack || f.get_feedback() == "nack";
    if (!nack) return false;
    MS_INFO_TRACE("CMediaConnectionInfo::setupSobeRtx: generic nack feedback is supported in remote negotiated "
                  "session sdp" << LINE_TAIL);
    const sdp::codec* rtx = FindCodec(remote, sdp::codec_sobe_rtx);
    if (!rtx) return false;
    MS_INFO_TRACE("CMediaConnectionInfo::setupSobeRtx: Has Rtx Codec in remote negotiated session sdp" << LINE_TAIL);
    ZynSobeRtxInfo info{};
    GetConfig().GetRtxInfo(info, eStreamDirection_In);
    info.uPayloadType = static_cast<uint8_t>(rtx->payload_type);
    info.uClockRate = sdp::get_rtp_clock_rate_for_codec_type(sdp::codec_sobe_rtx);
    m_rtxInfo = info;
    return true;
}

void CMediaConnectionInfo::setupSobeRtx()
{
    if (!m_pZynSession) return;
    uint8_t record[16];
    PackRtx(m_rtxInfo, record);
    // Both directions use the agreed payload: one record each.
    m_pZynSession->SetOption(kOptionRtx, record, sizeof(record));
    m_pZynSession->SetOption(kOptionRtx, record, sizeof(record));
    m_bRtxSetup = true;
}

void CMediaConnectionInfo::setupSobeHybridResilience()
{
    if (!m_pZynSession) return;
    const uint8_t on = 1;
    m_pZynSession->SetOption(kOptionHybridSend, &on, 1);
    m_pZynSession->SetOption(kOptionHybridRecv, &on, 1);
    m_bHybridSetup = true;
}

void CMediaConnectionInfo::setupResilience(const sdp::rtp_session& remote)
{
    const bool fec = checkSobeFec(remote);
    setupSobeFec(fec);
    const bool rtx = checkSobeRtx(remote);
    if (!remote.sobe_hybrid_resilience.is_set()) {
        if (rtx) setupSobeRtx();
    } else if (fec && rtx) {
        setupSobeRtx();
        setupSobeHybridResilience();
    } else {
        MS_ERROR_TRACE("Not expect hybrid resilience declared but not support RTX and FEC" << LINE_TAIL);
    }
}

}  // namespace zyn
