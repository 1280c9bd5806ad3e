// Settings the connection hands to its media engine or to the performance control.
#include <cmath>

#include "config/GlobalConfig.h"
#include "util/CmTrace.h"

namespace zyn {

ZynResult CGlobalConfig::SetEngineOption(const char* tag, int32_t option, uint32_t& field, uint32_t value)
{
    if (RefusedAfterStart(tag)) return ZYN_E_FAIL;
    return Store(tag, field, value, [&] { return m_pMediaConnection->SetMediaEngineOption(option, &value, 4); });
}

ZynResult CGlobalConfig::SetQoSMaxLossRatio(float ratio)
{
    MS_INFO_TRACE("CGlobalConfig::SetQoSMaxLossRatio, value=" << static_cast<double>(ratio));
    if (RefusedAfterStart("SetQoSMaxLR")) return ZYN_E_FAIL;
    // A fraction of the packets, not a percentage.
    if (!(ratio >= 0.0f && ratio <= 1.0f)) {
        Metric("SetQoSMaxLR", ZYN_E_INVALIDARG);
        return ZYN_E_INVALIDARG;
    }
    static_assert(sizeof(float) == 4);
    return Store("SetQoSMaxLR", m_qosMaxLossRatio, ratio, [&] {
        return m_pMediaConnection->SetMediaEngineOption(kEngineOptionQoSMaxLossRatio, &ratio, 4);
    });
}

ZynResult CGlobalConfig::SetQoSMinBandwidth(unsigned int bandwidth)
{
    MS_INFO_TRACE("CGlobalConfig::SetQoSMinBandwidth, value=" << bandwidth);
    return SetEngineOption("SetQoSMinBW", kEngineOptionQoSMinBandwidth, m_qosMinBandwidth, bandwidth);
}

ZynResult CGlobalConfig::SetQoSMaxBandwidth(unsigned int bandwidth)
{
    MS_INFO_TRACE("CGlobalConfig::SetQoSMaxBandwidth, value=" << bandwidth);
    return SetEngineOption("SetQoSMaxBW", kEngineOptionQoSMaxBandwidth, m_qosMaxBandwidth, bandwidth);
}

ZynResult CGlobalConfig::SetQoSInitBandwidth(unsigned int bandwidth)
{
    MS_INFO_TRACE("CGlobalConfig::SetQoSInitBandwidth, value=" << bandwidth);
    return SetEngineOption("SetQoSInitBW", kEngineOptionQoSInitBandwidth, m_qosInitBandwidth, bandwidth);
}

ZynResult CGlobalConfig::EnableFixAudioProcessingArch(bool enable)
{
    const ZynResult result =
        StoreItem(nullptr, m_bFixAudioProcessingArch, enable, EGlobalConfigItem::FixAudioProcessingArch);
    // Traced under the audio configuration: the setting is about the audio engine.
    MS_INFO_TRACE("CAudioConfig::EnableFixAudioProcessingArch value=" << enable << ",result=" << result);
    return result;
}

ZynResult CGlobalConfig::SetAudioCaptureMethod(int method)
{
    const ZynResult result =
        StoreItem(nullptr, m_audioCaptureMethod, static_cast<int32_t>(method), EGlobalConfigItem::AudioCaptureMethod);
    MS_INFO_TRACE("CGlobalConfig::SetAudioCaptureMethod, value=" << method << ", cret = " << result);
    return result;
}

ZynResult CGlobalConfig::GetAudioCaptureMethod(int& method) const
{
    method = m_audioCaptureMethod;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetAudioPlaybackMethod(int method)
{
    const ZynResult result = StoreItem(nullptr, m_audioPlaybackMethod, static_cast<int32_t>(method),
                                       EGlobalConfigItem::AudioPlaybackMethod);
    MS_INFO_TRACE("CGlobalConfig::SetAudioPlaybackMethod, value=" << method << ", cret = " << result);
    return result;
}

ZynResult CGlobalConfig::GetAudioPlaybackMethod(int& method) const
{
    method = m_audioPlaybackMethod;
    return ZYN_S_OK;
}

ZynResult CGlobalConfig::SetCpuHighUsageThreshold(float threshold, float interval)
{
    MS_INFO_TRACE("CGlobalConfig::SetCpuHighUsageThreshold, threshold=" << static_cast<double>(threshold)
                                                                         << ", interval=" << static_cast<double>(interval));
    // A percentage of the whole machine, and a positive period.
    if (!(threshold > 0.0f && threshold <= 100.0f) || !(interval > 0.0f) || !std::isfinite(interval))
        return ZYN_E_INVALIDARG;
    const float oldInterval = m_cpuMonitorInterval;
    m_cpuMonitorInterval = interval;
    const ZynResult result =
        StoreItem(nullptr, m_cpuHighUsageThreshold, threshold, EGlobalConfigItem::CpuHighUsageThreshold);
    if (ZYN_FAILED(result)) m_cpuMonitorInterval = oldInterval;
    return result;
}

bool CGlobalConfig::CheckHWAcceleration()
{
    return m_pMediaConnection &&
           m_pMediaConnection->CheckEngineCapability(EEngineCapabilityCheck::HWAcceleration, false);
}

bool CGlobalConfig::CheckHWAccelerationDefaultOption()
{
    return m_pMediaConnection &&
           m_pMediaConnection->CheckEngineCapability(EEngineCapabilityCheck::HWAccelerationDefaultOption, false);
}

bool CGlobalConfig::CheckPortraitSupported(bool front)
{
    return m_pMediaConnection && m_pMediaConnection->CheckEngineCapability(EEngineCapabilityCheck::Portrait, front);
}

bool CGlobalConfig::CheckGestureSupported()
{
    return m_pMediaConnection && m_pMediaConnection->CheckEngineCapability(EEngineCapabilityCheck::Gesture, false);
}

}  // namespace zyn
