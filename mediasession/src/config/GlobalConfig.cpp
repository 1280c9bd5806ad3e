// The connection-wide switches, most legal only before the call started.
#include "config/GlobalConfig.h"

#include "util/CmTrace.h"

namespace zyn {

CGlobalConfig::CGlobalConfig(IGlobalConfigOwner* owner) : m_pMediaConnection(owner) {}

void CGlobalConfig::Metric(const char* tag, ZynResult code)
{
    if (tag && m_pMediaConnection) m_pMediaConnection->SetZynErrorMetrics(tag, code);
}

bool CGlobalConfig::RefusedAfterStart(const char* tag)
{
    if (!m_pMediaConnection || !m_pMediaConnection->IsCallStarted()) return false;
    Metric(tag, ZYN_E_FAIL);
    CM_ASSERT_REPORT("!m_pMediaConnection->IsCallStarted()");
    return true;
}

ZynResult CGlobalConfig::SetGuarded(const char* tag, bool& field, bool value, EGlobalConfigItem item)
{
    if (RefusedAfterStart(tag)) return ZYN_E_FAIL;
    return StoreItem(tag, field, value, item);
}

ZynResult CGlobalConfig::EnableQos(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableQos, value=" << enable);
    return SetGuarded("EnQos", m_bQos, enable, EGlobalConfigItem::Qos);
}

ZynResult CGlobalConfig::EnableDPC(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableDPC, value=" << enable);
    return SetGuarded("EnDPC", m_bDPC, enable, EGlobalConfigItem::DPC);
}

ZynResult CGlobalConfig::EnableMultiStream(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableMultiStream, value=" << enable);
    return SetGuarded("EnMultStream", m_bMultiStream, enable, EGlobalConfigItem::MultiStream);
}

ZynResult CGlobalConfig::EnableICE(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableICE, value=" << enable);
    return SetGuarded("EnICE", m_bICE, enable, EGlobalConfigItem::ICE);
}

ZynResult CGlobalConfig::EnableSRTP(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableSRTP, value=" << enable);
    return SetGuarded("EnSRTP", m_bSRTP, enable, EGlobalConfigItem::SRTP);
}

ZynResult CGlobalConfig::EnableDtlsSRTP(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableDtlsSRTP, value=" << enable);
    return SetGuarded("EnDtlsSRTP", m_bDtlsSRTP, enable, EGlobalConfigItem::DtlsSRTP);
}

ZynResult CGlobalConfig::EnableRTCPMux(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableRTCPMux, value=" << enable);
    return SetGuarded("EnRTCPMux", m_bRTCPMux, enable, EGlobalConfigItem::RTCPMux);
}

ZynResult CGlobalConfig::UseHttpUpgrade(bool use)
{
    MS_INFO_TRACE("CGlobalConfig::UseHttpUpgrade, value=" << use);
    return SetGuarded("UseHttpUpgrade", m_bHttpUpgrade, use, EGlobalConfigItem::HttpUpgrade);
}

ZynResult CGlobalConfig::EnableSendingCSRC(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableSendingCSRC, value=" << enable);
    return SetGuarded("EnableSendingCSRC", m_bSendingCSRC, enable, EGlobalConfigItem::SendingCSRC);
}

ZynResult CGlobalConfig::SobeSupported(bool supported)
{
    MS_INFO_TRACE("CGlobalConfig::SobeSupported, value=" << supported);
    return SetGuarded("SobeSupported", m_bSobe, supported, EGlobalConfigItem::Sobe);
}

ZynResult CGlobalConfig::EnableDSCP(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableDSCP, value=" << enable);
    return SetGuarded("EnDSCP", m_bDSCP, enable, EGlobalConfigItem::DSCP);
}

ZynResult CGlobalConfig::EnableFastLane(bool enable)
{
    MS_INFO_TRACE("CGlobalConfig::EnableFastLane, value=" << enable);
    return SetGuarded("EnFastLane", m_bFastLane, enable, EGlobalConfigItem::FastLane);
}

ZynResult CGlobalConfig::EnableBGRA(bool enable)
{
    // The class name is the video configuration's on purpose: log readers search for it so.
    MS_INFO_TRACE("CVideoConfig::EnableBGRA, value=" << enable);
    // Refused like the others once the call started, but not counted in the metrics.
    return SetGuarded(nullptr, m_bBGRA, enable, EGlobalConfigItem::BGRA);
}

ZynResult CGlobalConfig::SetClientType(ZynClientType type)
{
    MS_INFO_TRACE("CGlobalConfig::SetClientType, value=" << type);
    if (RefusedAfterStart("SetClientType")) return ZYN_E_FAIL;
    return StoreItem("SetClientType", m_clientType, type, EGlobalConfigItem::ClientType);
}

unsigned int CGlobalConfig::GetDSCPMarking(ZynSessionType type) const
{
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return m_dscpMarking[0];
    case ZynSessionType_Video: return m_dscpMarking[1];
    case ZynSessionType_ScreenShare:
    case ZynSessionType_Application: return m_dscpMarking[2];
    default: return 0;
    }
}

ZynResult CGlobalConfig::SetDSCPMarking(unsigned int audio, unsigned int video, unsigned int screen)
{
    MS_INFO_TRACE("CGlobalConfig::SetDSCPMarking, audio=" << audio << ", video=" << video << ", screen=" << screen);
    // Each is the whole traffic class byte of the IP header.
    if (audio > 0xFF || video > 0xFF || screen > 0xFF) {
        Metric("SetDSCPMark", ZYN_E_INVALIDARG);
        return ZYN_E_INVALIDARG;
    }
    return StoreItem("SetDSCPMark", m_dscpMarking, std::array<uint32_t, 3>{audio, video, screen},
                     EGlobalConfigItem::DSCPMarking);
}

}  // namespace zyn
