// Settings of screen share lines that do more than hand one value to the capture track. Caller's
// thread, like every configuration setter.
#include <cstring>

#include "config/ConfigTrace.h"
#include "config/MediaConfigs.h"

namespace zyn {

ZynResult CShareConfig::SetScreenCaptureMaxFS(int maxFS)
{
    CFG_INFO_TRACE("SetScreenCaptureMaxFS, nMaxFS=" << maxFS);
    return SetCount("SetScreenCaptureMaxFS", "SHARE_capture_max_fs", maxFS);
}

ZynResult CShareConfig::SetShareConfigOption(int option, int value)
{
    CFG_INFO_TRACE("SetShareConfigOption, opt=" << option << ", value=" << value);
    if (option < 0) return ZYN_E_INVALIDARG;
    return SetNumber("SetShareConfigOption", ("SHARE_option_" + std::to_string(option)).c_str(), value);
}

ZynResult CShareConfig::SetShareContentType(ZynShareContentType type)
{
    CFG_INFO_TRACE("SetShareContentType, eZynContentType=" << static_cast<int>(type));
    if (type < ZynShareContent_Default || type > ZynShareContent_Video) return ZYN_E_INVALIDARG;
    return SetNumber("SetShareContentType", "SHARE_content_type", type);
}

ZynResult CShareConfig::EnableHighFps(bool enable)
{
    CFG_INFO_TRACE("EnableHighFps, m_bIsHighFpsShareEnabled old=" << IsTrackSwitchOn("SHARE_high_fps")
                                                                  << ", new=" << enable);
    return SetSwitch("EnableHighFps", "SHARE_high_fps", enable);
}

ZynResult CShareConfig::EnableCaptureVideoContent(bool enable, bool withAudio)
{
    CFG_INFO_TRACE("EnableCaptureVideoContent, bEnable=" << enable << ", bWithAudio=" << withAudio);
    // Audio of the shared content only comes with the video content itself.
    const ZynResult result = SetSwitch("EnableCaptureVideoContent", "SHARE_capture_video_content", enable);
    return ZYN_SUCCEEDED(result)
               ? SetSwitch("EnableCaptureVideoContent", "SHARE_capture_video_content_audio", enable && withAudio)
               : result;
}

ZynResult CShareConfig::Enable4KVideo(bool enable)
{
    CFG_INFO_TRACE("Enable4KShare, value=" << enable);
    return SetSwitch("Enable4KVideo", "SHARE_enable_4k", enable);
}

ZynResult CShareConfig::SkipSharingStrictRegionCheck(bool skip)
{
    CFG_INFO_TRACE("SkipSharingStrictRegionCheck, bSkip=" << skip);
    return SetSwitch("SkipSharingStrictRegionCheck", "SHARE_skip_strict_region_check", skip);
}

ZynResult CShareConfig::DisableAV1EncodeInNormalShare(bool disable)
{
    MS_INFO_TRACE("CBaseVideoConfig::DisableAV1EncodeInNormalShare, value=" << disable);
    return SetSwitch("DisableAV1EncodeInNormalShare", "SHARE_disable_av1_normal_share", disable);
}

bool CShareConfig::IsAV1RGBEncodingEnabled() const
{
    const bool enabled = IsTrackSwitchOn("SHARE_av1_rgb");
    MS_DETAIL_TRACE("CBaseVideoConfig::IsAV1RGBEncodingEnabled, value=" << enabled);
    return enabled;
}

ZynResult CShareConfig::EnableImmersiveSharing(bool enable)
{
    CFG_INFO_TRACE("EnableImmersiveSharing, value=" << enable << " --ims-- ");
    return SetSwitch("EnableImmersiveSharing", "SHARE_immersive", enable);
}

ZynResult CShareConfig::SetOnPremConfig(const char* sessionId, const char* token)
{
    if (!sessionId || !token) return ZYN_E_INVALIDARG;
    // The token is a credential: it goes to the track, never to the trace.
    CFG_INFO_TRACE("SetOnPremConfig, sessionId=" << sessionId);
    const ZynResult result = SetValue("SetOnPremConfig", "SHARE_onprem_session", sessionId);
    if (!ZYN_SUCCEEDED(result) || !GetOwner()) return result;
    return GetOwner()->KeepLocalTrackOption("SHARE_onprem_token", token);
}

}  // namespace zyn
