// Loss recovery of the line: FEC, retransmission, TMMBR and the loss record.
#include "config/BaseConfig.h"
#include "config/ConfigTrace.h"

namespace zyn {

namespace {

// Index of the per-direction records; -1 for a direction that is neither.
int DirectionIndex(eStreamDirection direction)
{
    switch (direction) {
    case eStreamDirection_Out: return 0;
    case eStreamDirection_In: return 1;
    default: return -1;
    }
}

// RTP payload types are seven bits.
constexpr unsigned kMaxPayloadType = 127;

}  // namespace

ZynResult CBaseConfig::EnableFec(bool enable)
{
    CFG_INFO_TRACE("EnableFec, value=" << enable);
    return Commit(m_bFec, enable, EMediaConfigItem::Fec);
}

ZynResult CBaseConfig::SetMaxFecOverhead(unsigned int percent)
{
    CFG_INFO_TRACE("SetMaxFecOverhead, value=" << percent);
    return Commit(m_maxFecOverhead, percent, EMediaConfigItem::MaxFecOverhead);
}

ZynResult CBaseConfig::SetFecProbing(bool enable)
{
    CFG_INFO_TRACE("SetFecProbing, value=" << enable);
    return Commit(m_bFecProbing, enable, EMediaConfigItem::FecProbing);
}

ZynResult CBaseConfig::SetDynamicFecScheme(DynamicFECLevelScheme scheme)
{
    CFG_INFO_TRACE("SetDynamicFecScheme, value=" << static_cast<int>(scheme));
    if (scheme != DynamicFECLevelScheme_OnlyLossRatio && scheme != DynamicFECLevelScheme_LossRatioWithPriority)
        return ZYN_E_INVALIDARG;
    return Commit(m_dynamicFecScheme, scheme, EMediaConfigItem::DynamicFecScheme);
}

ZynResult CBaseConfig::SetSrtpFecOrder(ZynSecurityFECOrder order)
{
    CFG_INFO_TRACE("SetSrtpFecOrder, value=" << static_cast<int>(order));
    if (order != ZynSecurityFECOrder_SRTP_FEC && order != ZynSecurityFECOrder_FEC_SRTP) return ZYN_E_INVALIDARG;
    return Commit(m_srtpFecOrder, order, EMediaConfigItem::SrtpFecOrder);
}

ZynResult CBaseConfig::SetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction)
{
    CFG_INFO_TRACE("SetFecInfo: fecInfo: fecInfo.uPayloadType=" << info.uPayloadType
                   << ", fecInfo.uClockRate=" << info.uClockRate << ", fecInfo.uVersion=" << info.uVersion
                   << ", fecInfo.fecFmtInfo.bMultiSsrc=" << info.fecFmtInfo.bMultiSsrc
                   << ", fecInfo.fecFmtInfo.uM=" << info.fecFmtInfo.uM
                   << ", fecInfo.fecFmtInfo.uMaxN=" << info.fecFmtInfo.uMaxN
                   << ", fecInfo.fecFmtInfo.uMaxEsel=" << info.fecFmtInfo.uMaxEsel
                   << ", direction=" << static_cast<int>(direction));
    const int index = DirectionIndex(direction);
    if (index < 0 || info.uPayloadType > kMaxPayloadType) return ZYN_E_INVALIDARG;
    return Commit(m_fecInfo[index], info, EMediaConfigItem::FecInfo);
}

ZynResult CBaseConfig::GetFecInfo(ZynSobeFecInfo& info, eStreamDirection direction)
{
    const int index = DirectionIndex(direction);
    if (index < 0) return ZYN_E_INVALIDARG;
    info = m_fecInfo[index];
    return ZYN_S_OK;
}

ZynResult CBaseConfig::SetHybridResilienceDataFlow(uint32_t flow)
{
    CFG_INFO_TRACE("SetHybridResilienceDataFlow, value=" << flow);
    // Bits the description cannot carry would be refused by the far end's parser.
    if (flow & ~(kDataFlowRtxMedia | kDataFlowRtxAll | kDataFlowFecRtx)) return ZYN_E_INVALIDARG;
    return Commit(m_hybridDataFlow, flow, EMediaConfigItem::HybridDataFlow);
}

ZynResult CBaseConfig::EnableRtx(bool enable)
{
    CFG_INFO_TRACE("EnableRtx, value=" << enable);
    return Commit(m_bRtx, enable, EMediaConfigItem::Rtx);
}

ZynResult CBaseConfig::SetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction)
{
    CFG_INFO_TRACE("SetRtxInfo, uPayloadType=" << info.uPayloadType << ", uAssociatedPayloadType="
                   << info.uAssociatedPayloadType << ", uBufferTime=" << info.uBufferTime
                   << ", uClockRate=" << info.uClockRate << ", direction=" << static_cast<int>(direction));
    const int index = DirectionIndex(direction);
    if (index < 0 || info.uPayloadType > kMaxPayloadType || info.uAssociatedPayloadType > kMaxPayloadType)
        return ZYN_E_INVALIDARG;
    return Commit(m_rtxInfo[index], info, EMediaConfigItem::RtxInfo);
}

ZynResult CBaseConfig::GetRtxInfo(ZynSobeRtxInfo& info, eStreamDirection direction)
{
    const int index = DirectionIndex(direction);
    if (index < 0) return ZYN_E_INVALIDARG;
    info = m_rtxInfo[index];
    return ZYN_S_OK;
}

ZynResult CBaseConfig::EnableTmmbr(bool enable)
{
    CFG_INFO_TRACE("EnableTmmbr, value=" << enable);
    return Commit(m_bTmmbr, enable, EMediaConfigItem::Tmmbr);
}

ZynResult CBaseConfig::ReceiverBasedQosSupported(bool enable)
{
    CFG_INFO_TRACE("ReceiverBasedQosSupported, value=" << enable);
    return Commit(m_bReceiverBasedQos, enable, EMediaConfigItem::ReceiverBasedQos);
}

ZynResult CBaseConfig::EnableRecordLossData(bool enable)
{
    CFG_INFO_TRACE("EnableRecordLossData, value=" << enable);
    return Commit(m_bRecordLossData, enable, EMediaConfigItem::RecordLossData);
}

ZynResult CBaseConfig::SetDataTerminatedAtRTP(bool enable)
{
    CFG_INFO_TRACE("SetDataTerminatedAtRTP, value=" << enable);
    return Commit(m_bDataTerminatedAtRTP, enable, EMediaConfigItem::DataTerminatedAtRTP);
}

}  // namespace zyn
