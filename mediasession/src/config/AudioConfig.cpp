#include "config/ConfigTrace.h"
#include "config/MediaConfigs.h"

namespace zyn {

ZynResult CAudioConfig::SetAutoSwitchDefaultDeviceFlag(bool enable)
{
    CFG_INFO_TRACE("SetAutoSwitchDefaultDeviceFlag, value=" << enable);
    return Commit(m_bAutoSwitchDefaultDevice, enable, EMediaConfigItem::AutoSwitchDefaultDevice);
}

namespace {

constexpr const char* kAecTypeNames[] = {"ZynAecTypeNone", "ZynAecTypeBuildin", "ZynAecTypeTc", "ZynAecTypeAlpha",
                                         "ZynAecTypeEngine"};
constexpr const char* kAecTypeOption = "AEC_aec_type";

}  // namespace

ZynResult CAudioConfig::SetSwitch(const char* setter, const char* option, bool enable)
{
    const ZynResult result = GetOwner() ? GetOwner()->SetLocalTrackOption(option, enable ? "1" : "0") : ZYN_E_NOTRACK;
    CFG_INFO_TRACE(setter << ", value=" << enable << ",result=" << result);
    return result;
}

ZynResult CAudioConfig::EnableNS(bool enable, bool mic)
{
    CFG_INFO_TRACE("EnableNS, value=" << enable << ",bMic=" << mic);
    return SetSwitch("EnableNS", mic ? "AEC_record_nr_enabled" : "AEC_playback_nr_enabled", enable);
}

ZynResult CAudioConfig::EnableDAGC(bool enable, bool mic)
{
    return SetSwitch("EnableDAGC", mic ? "DAGC_dagc_record_enabled" : "DAGC_dagc_playback_enabled", enable);
}

ZynResult CAudioConfig::SetECType(ZynAecType type)
{
    if (type < ZynAecTypeNone || type > ZynAecTypeEngine) return ZYN_E_INVALIDARG;
    const ZynResult result = GetOwner() ? GetOwner()->SetLocalTrackOption(kAecTypeOption, kAecTypeNames[type])
                                        : ZYN_E_NOTRACK;
    CFG_INFO_TRACE("SetECType, value=" << kAecTypeNames[type] << ",result=" << result);
    return result;
}

ZynResult CAudioConfig::GetECType(ZynAecType& type)
{
    std::string name;
    const ZynResult result = GetOwner() ? GetOwner()->GetLocalTrackOption(kAecTypeOption, name) : ZYN_E_NOTRACK;
    if (result != ZYN_S_OK) return result;
    for (int i = 0; i <= ZynAecTypeEngine; ++i)
        if (name == kAecTypeNames[i]) type = static_cast<ZynAecType>(i);
    CFG_INFO_TRACE("GetECType, ecType:" << name);
    return ZYN_S_OK;
}

ZynResult CAudioConfig::SetBNRProfileMode(int mode)
{
    CFG_INFO_TRACE("SetBNRProfileMode, value=" << mode << ", ret =" << ZYN_E_NOTIMPL);
    return ZYN_E_NOTIMPL;
}

ZynResult CAudioConfig::GetBNRProfileMode(int& mode)
{
    (void)mode;
    return ZYN_E_NOTIMPL;
}

bool CAudioConfig::IsEngineSwitchOn(const char* option)
{
    std::string value;
    return GetOwner() && GetOwner()->GetLocalTrackOption(option, value) == ZYN_S_OK && value == "1";
}

}  // namespace zyn
