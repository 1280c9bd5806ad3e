// Settings of a line's configuration that act outside it: the engine session's numbered options
// and the ICE connector. Runs on the application's thread, inside the setter; the configuration
// has stored the new value and puts the old one back when this fails.
#include <cstring>

#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"

namespace zyn {

namespace {

template <class T>
ZynResult SetSessionOption(IZynMediaSession* session, int32_t id, T value)
{
    // Without a session (no engine) the value waits in the configuration, which the session's
    // creation does not read: nothing to carry, nothing failed.
    return session ? session->SetOption(id, &value, sizeof(value)) : ZYN_S_OK;
}

}  // namespace

ZynResult CMediaConnectionInfo::OnMediaConfigChanged(EMediaConfigItem item)
{
    CBaseConfig& config = GetConfig();
    IZynMediaSession* session = m_pZynSession;
    switch (item) {
    case EMediaConfigItem::MaxBandwidth:
        return SetSessionOption<uint32_t>(session, kSessionOptionMaxBandwidth, config.GetMaxBandwidth());
    case EMediaConfigItem::MaxFecOverhead:
        return SetSessionOption<uint32_t>(session, kSessionOptionFecOverhead, config.GetMaxFecOverhead());
    case EMediaConfigItem::FecProbing:
        return SetSessionOption<uint8_t>(session, kSessionOptionFecProbing, config.IsFecProbingEnabled());
    case EMediaConfigItem::DynamicFecScheme:
        return SetSessionOption<int32_t>(session, kSessionOptionDynamicFecScheme, config.GetDynamicFecScheme());
    case EMediaConfigItem::RecordLossData:
        return SetSessionOption<uint8_t>(session, kSessionOptionRecordLossData, config.IsRecordLossDataEnabled());
    case EMediaConfigItem::Tmmbr:
        return SetSessionOption<uint8_t>(session, kSessionOptionTmmbr, config.IsTmmbrEnabled());
    case EMediaConfigItem::HybridDataFlow:
        return SetSessionOption<uint32_t>(session, kSessionOptionHybridDataFlow, config.GetHybridResilienceDataFlow());
    case EMediaConfigItem::Fec:
        return SetSessionOption<uint8_t>(session, kSessionOptionFec, config.IsFecEnabled());
    case EMediaConfigItem::Rtx: {
        ZynSobeRtxInfo info{};
        config.GetRtxInfo(info, eStreamDirection_Out);
        // The record of the sending direction, with the switch in its version byte's place when off.
        uint8_t record[16] = {};
        record[0] = config.IsRtxEnabled() ? 1 : 0;
        record[1] = info.uPayloadType;
        record[2] = info.uAssociatedPayloadType;
        std::memcpy(record + 4, &info.uBufferTime, 4);
        std::memcpy(record + 8, &info.uClockRate, 4);
        return session ? session->SetOption(kSessionOptionRtx, record, sizeof(record)) : ZYN_S_OK;
    }
    case EMediaConfigItem::IceLocalPortRange: {
        const CBaseConfig::CPortRange& range = config.GetIceLocalPortRange();
        uint16_t minPort = range.minPort, maxPort = range.maxPort;
        if (minPort == 0 && maxPort == 0) PortRangeOf(m_type, minPort, maxPort);
        MS_INFO_TRACE("CMediaConnectionInfo::OnMediaConfigChanged, port range " << minPort << "-" << maxPort
                                                                                 << LINE_TAIL);
        m_iceConnector.SetPortRange(minPort, maxPort);
        return ZYN_S_OK;
    }
    case EMediaConfigItem::FileCapture:
    case EMediaConfigItem::FileRender: return OnFileConfigChanged(item);
    case EMediaConfigItem::OverrideIP: {
        const CBaseConfig::COverrideAddress& address = config.GetOverrideAddress();
        m_iceConnector.SetOverrideIP(address.ip.c_str(), address.port);
        return ZYN_S_OK;
    }
    default:
        // Read where they act: the codecs, bandwidth and resilience of the next description, the
        // keys when the line connects, the files when its tracks start.
        return ZYN_S_OK;
    }
}

ZynResult CMediaConnectionInfo::SetLocalTrackOption(const char* name, const char* value)
{
    IZynMediaTrack* track = GetLocalEngineTrack();
    return track ? track->SetNamedOption(name, value) : ZYN_E_NOTRACK;
}

ZynResult CMediaConnectionInfo::GetLocalTrackOption(const char* name, std::string& value)
{
    IZynMediaTrack* track = GetLocalEngineTrack();
    if (!track) return ZYN_E_NOTRACK;
    char text[256];
    uint32_t size = sizeof(text);
    const ZynResult result = track->GetNamedOption(name, text, size);
    if (result == ZYN_S_OK) value.assign(text, size);
    return result;
}

ZynResult CMediaConnectionInfo::KeepLocalTrackOption(const char* name, const char* value)
{
    if (!name || !value) return ZYN_E_INVALIDARG;
    return ApplyLocalTrackOption([name = std::string(name), value = std::string(value)](IZynMediaTrack* track) {
        return track->SetNamedOption(name.c_str(), value.c_str());
    });
}

bool CMediaConnectionInfo::HasLocalTrack() { return GetLocalEngineTrack() != nullptr; }

bool CMediaConnectionInfo::IsLocalTrackStarted()
{
    CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
    return track && track->isStarted();
}

CBaseVideoConfig* CMediaConnectionInfo::GetBaseVideoConfig()
{
    if (m_type == ZynSessionType_Video) return &m_videoConfig;
    if (m_type == ZynSessionType_ScreenShare) return &m_shareConfig;
    return nullptr;
}

}  // namespace zyn
