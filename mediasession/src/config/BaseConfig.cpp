#include "config/BaseConfig.h"

#include "config/ConfigTrace.h"

namespace zyn {

CBaseConfig::CBaseConfig(IMediaConfigOwner* owner) : m_pInfo(owner), m_concluded(owner)
{
    m_fecInfo.fill(DefaultFecInfo());
    m_rtxInfo.fill(DefaultRtxInfo());
}

ZynSobeFecInfo CBaseConfig::DefaultFecInfo()
{
    // Payload 111 at 8000 Hz: what the line offers for its RS-FEC stream unless told otherwise.
    return ZynSobeFecInfo{1, 8000, 111, ZynSobeFecFmtInfo{true, 8, 255, 1400}};
}

ZynSobeRtxInfo CBaseConfig::DefaultRtxInfo()
{
    // Payload 112, 500 ms of sent packets kept for retransmission, video clock.
    return ZynSobeRtxInfo{1, 112, 0, 500, 90000};
}

const char* CBaseConfig::GetTraceClassName() const
{
    switch (m_pInfo ? m_pInfo->GetSessionType() : ZynSessionType_Unknown) {
    case ZynSessionType_Audio: return "CAudioConfig";
    case ZynSessionType_Video: return "CVideoConfig";
    case ZynSessionType_ScreenShare: return "CShareConfig";
    case ZynSessionType_AudioSlide: return "CAudioSlideConfig";
    default: return "CBaseConfig";
    }
}

uint32_t CBaseConfig::TraceCallId() const { return m_pInfo ? m_pInfo->GetCallId() : 0; }

bool CBaseConfig::RefusedAfterStart() const
{
    if (!m_pInfo || !m_pInfo->IsCallStarted()) return false;
    CM_ASSERT_REPORT("!m_pInfo->IsCallStarted()");
    return true;
}

ZynResult CBaseConfig::SetMaxBandwidth(unsigned int bandwidth)
{
    CFG_INFO_TRACE("SetMaxBandwidth, value=" << bandwidth);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    return Commit(m_maxBandwidth, bandwidth, EMediaConfigItem::MaxBandwidth);
}

ZynResult CBaseConfig::SetInitBandwidth(unsigned int bandwidth)
{
    CFG_INFO_TRACE("SetInitBandwidth, value=" << bandwidth);
    return Commit(m_initBandwidth, bandwidth, EMediaConfigItem::InitBandwidth);
}

ZynResult CBaseConfig::SetPreferedCodec(ZynCodecType codec)
{
    CFG_INFO_TRACE("SetPreferedCodec, value=" << static_cast<int>(codec));
    // The preference is the line's: without one there is nowhere to keep it.
    CM_ASSERTE_RETURN(m_pInfo, ZYN_E_FAIL);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    return Commit(m_preferedCodec, codec, EMediaConfigItem::PreferedCodec);
}

ZynResult CBaseConfig::SetSelectedCodec(ZynCodecType codec)
{
    CFG_INFO_TRACE("SetSelectedCodec, value=" << static_cast<int>(codec));
    CM_ASSERTE_RETURN(m_pInfo, ZYN_E_FAIL);
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    return Commit(m_selectedCodec, codec, EMediaConfigItem::SelectedCodec);
}

ZynResult CBaseConfig::SetMaxBitrate(unsigned int bitrate)
{
    CFG_INFO_TRACE("SetMaxBitrate, value=" << bitrate);
    return Commit(m_maxBitrate, bitrate, EMediaConfigItem::MaxBitrate);
}

ZynResult CBaseConfig::SetMaxStreamsCount(unsigned int count)
{
    CFG_INFO_TRACE("SetMaxStreamsCount, value=" << count);
    return Commit(m_maxStreamsCount, count, EMediaConfigItem::MaxStreamsCount);
}

unsigned int CBaseConfig::GetMaxAvailableSources(ZynSubscribePolicy policy)
{
    return m_pInfo ? m_pInfo->GetMaxAvailableSources(policy) : 0;
}

ZynSubscribePolicy CBaseConfig::GetSubscribePolicy()
{
    return m_pInfo ? m_pInfo->GetSubscribePolicy() : ZynSubscribePolicy_None;
}

ZynResult CBaseConfig::SetAutoSwitchDefaultDeviceFlag(bool enable)
{
    CFG_INFO_TRACE("SetAutoSwitchDefaultDeviceFlag, value=" << enable);
    return ZYN_E_NOTAVAILABLE;
}

void CBaseConfig::DumpMediaConfig()
{
    CFG_INFO_TRACE("DumpMediaConfig, maxBandwidth=" << m_maxBandwidth << ", initBandwidth=" << m_initBandwidth
                   << ", maxBitrate=" << m_maxBitrate << ", preferedCodec=" << static_cast<int>(m_preferedCodec)
                   << ", selectedCodec=" << static_cast<int>(m_selectedCodec) << ", icePolicy=" << GetIcePolicy()
                   << ", connectionPolicy=" << m_connectionPolicy << ", overrideIP=" << m_override.ip << ":"
                   << m_override.port << ", portRange=" << m_portRange.minPort << "-" << m_portRange.maxPort
                   << ", fec=" << m_bFec << ", rtx=" << m_bRtx << ", tmmbr=" << m_bTmmbr
                   << ", maxFecOverhead=" << m_maxFecOverhead << ", fecProbing=" << m_bFecProbing
                   << ", recordLossData=" << m_bRecordLossData << ", maxStreams=" << m_maxStreamsCount
                   << ", fileCapture=" << m_fileCapture.path << ", fileRender=" << m_fileRender.path
                   << ", srtpSuite=" << m_srtp[0].suite << ", extensions=" << m_rtpExtensions.size()
                   << ", encodeCodecs=" << m_encodeCodecs.codecs.size()
                   << ", decodeCodecs=" << m_decodeCodecs.codecs.size());
}

}  // namespace zyn
