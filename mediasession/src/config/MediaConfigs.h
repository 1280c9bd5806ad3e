// The configuration of each media kind. Every media line embeds one of each; its session type
// picks the one in use (an application line uses CBaseConfig itself). Each sits on one shared
// CBaseConfig through virtual inheritance, so a line's settings are the same whichever face the
// application holds.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "config/BaseConfig.h"

namespace zyn {

// Audio and audio-slide lines.
class CAudioConfig : public virtual CBaseConfig, public virtual IAudioConfig {
public:
    explicit CAudioConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner) {}

    // Follow the system's default device when it changes.
    ZynResult SetAutoSwitchDefaultDeviceFlag(bool enable) override;
    bool GetAutoSwitchDefaultDeviceFlag() const { return m_bAutoSwitchDefaultDevice; }

    // IAudioConfig: engine options, by name, on the local track.
    ZynResult EnableAGC(bool enable) override { return SetSwitch("EnableAGC", "AAGC_aagc_enabled", enable); }
    ZynResult EnableEC(bool enable) override { return SetSwitch("EnableEC", "AEC_aec_enabled", enable); }
    ZynResult EnableLAECex(bool enable) override { return SetSwitch("EnableLAECex", "AEC_laecex_enabled", enable); }
    ZynResult EnhaceFarEndVAD(bool enable) override
    {
        return SetSwitch("EnhaceFarEndVAD", "AEC_enhance_far_end_vad", enable);
    }
    ZynResult MusicDetection(bool enable) override { return SetSwitch("MusicDetection", "AEC_music_detection", enable); }
    ZynResult EnableNS(bool enable, bool mic) override;
    ZynResult EnableDAGC(bool enable, bool mic) override;
    ZynResult EnableImprovedAagc(bool enable) override
    {
        return SetSwitch("EnableImprovedAagc", "AAGC_improved_aagc", enable);
    }
    ZynResult EnableNewAgc(bool enable) override { return SetSwitch("EnableNewAgc", "DAGC_new_agc", enable); }
    ZynResult EnableBNR(bool enable) override { return SetSwitch("EnableBNR", "BNR_bnr_enabled", enable); }
    ZynResult EnableNewBNR(bool enable) override { return SetSwitch("EnableNewBNR", "BNR_new_ULP_mode", enable); }
    ZynResult SetLessEchoMode(bool enable) override { return SetSwitch("SetLessEchoMode", "AEC_less_echo_mode", enable); }
    ZynResult SetDelayEstEx(bool enable) override { return SetSwitch("SetDelayEstEx", "AEC_delay_est_ex_enabled", enable); }
    ZynResult SetFullBandAudio(bool enable) override
    {
        return SetSwitch("SetFullBandAudio", "AEC_enhance_fullband_enabled", enable);
    }
    ZynResult SetClipCtl(bool enable) override { return SetSwitch("SetClipCtl", "AAGC_clip_control", enable); }
    ZynResult SetECType(ZynAecType type) override;
    ZynResult GetECType(ZynAecType& type) override;
    ZynResult SetBNRProfileMode(int mode) override;
    ZynResult GetBNRProfileMode(int& mode) override;
    // The switch as the engine holds it; false when never set or without a track.
    bool IsEngineSwitchOn(const char* option);

private:
    // Hands "1" or "0" under the engine's option name to the local track.
    ZynResult SetSwitch(const char* setter, const char* option, bool enable);
    bool m_bAutoSwitchDefaultDevice = false;
};

// What camera video and screen share have in common. Settings without an effect of their own in
// this library go to the local engine track by the engine's option name; the value handed over is
// also what the getters answer.
class CBaseVideoConfig : public virtual CBaseConfig, public virtual IBaseVideoConfig {
public:
    explicit CBaseVideoConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner) {}

    ZynResult SetDecodeParams(ZynCodecType codec, const ZynVideoCodecParams& params) override;
    ZynResult SetEncodeParams(ZynCodecType codec, const ZynVideoCodecParams& params) override;
    ZynResult GetDecodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const override;
    ZynResult GetEncodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const override;
    ZynResult SetCodecParam(ZynCodecType codec, const ZynVideoCodecParams& params) override;
    using CBaseConfig::GetCodecParam;
    ZynResult GetCodecParam(ZynCodecType codec, ZynVideoCodecParams& params) const override;
    ZynResult EnableHWAcceleration(bool enable, ZynHWAccelerationConfig config) override;
    bool IsHWAccelerationEnabled(ZynHWAccelerationConfig config) const override;
    ZynResult EnableAVCSimulcast(bool enable) override;
    ZynResult SetMaxPacketSize(unsigned int bytes) override;
    unsigned int GetMaxPacketSize() const override;
    ZynResult SetPacketizationMode(ZynPacketizationMode mode) override;
    ZynPacketizationMode GetPacketizationMode() const override;
    ZynResult SetDataDumpFlag(unsigned int flag) override { return SetNumber("SetDataDumpFlag", "VIDEO_data_dump_flag", flag); }
    ZynResult SetDataDumpPath(const char* path, unsigned int length) override;
    ZynResult LimitNalSize(bool limit) override { return SetSwitch("LimitNalSize", "VIDEO_limit_nal_size", limit); }
    ZynResult SetMaxNalSize(unsigned int bytes) override { return SetNumber("SetMaxNalSize", "VIDEO_max_nal_size", bytes); }
    ZynResult EnablePeriodIDR(bool enable) override { return SetSwitch("EnablePeriodIDR", "VIDEO_period_idr", enable); }
    ZynResult EnableCVO(bool enable) override { return SetSwitch("EnableCVO", "VIDEO_cvo", enable); }
    ZynResult EnableUpdateCapParam(bool enable) override
    {
        return SetSwitch("EnableUpdateCapParam", "VIDEO_update_cap_param", enable);
    }
    ZynResult EnableSelfPreviewHorizontalMirror(bool enable) override
    {
        return SetSwitch("EnableSelfPreviewHorizontalMirror", "VIDEO_self_preview_mirror", enable);
    }
    ZynResult Disable90PVideo(bool disable) override { return SetSwitch("Disable90PVideo", "VIDEO_disable_90p", disable); }
    ZynResult Enable1080PVideo(bool enable) override { return SetSwitch("Enable1080PVideo", "VIDEO_enable_1080p", enable); }
    ZynResult EnableSmoothPlay(bool enable) override { return SetSwitch("EnableSmoothPlay", "VIDEO_smooth_play", enable); }
    ZynResult SetMinVideoBuffTime(unsigned int milliseconds) override
    {
        return SetNumber("SetMinVideoBuffTime", "VIDEO_min_buffer_time", milliseconds);
    }
    bool IsSupportCHP(ZynCodecType codec) const override;
    ZynResult EnableCHP(bool enable) override;
    ZynResult SetTemporalLayerNum(unsigned int count) override
    {
        return SetNumber("SetTemporalLayerNum", "VIDEO_temporal_layers", count);
    }
    ZynResult SetAV1EncoderSpeed(unsigned int speed) override
    {
        return SetNumber("SetAV1EncoderSpeed", "VIDEO_av1_encoder_speed", speed);
    }
    ZynResult SetVideoMaxMBPS(unsigned int mbps) override { return SetNumber("SetVideoMaxMBPS", "VIDEO_max_mbps", mbps); }
    ZynResult SetVideoRotate(ZynVideoRotation rotation) override;
    ZynResult EnableMCDevice(bool enable, IZynMediaDevice* capturer) override;
    bool IsAV1Enabled() const override;
    bool IsAV1EnableSend() const override;
    ZynResult SetAV1CodecParam(unsigned int level, unsigned int tier) override;
    ZynResult SetMaxEncodeResolution(unsigned int width, unsigned int height) override;
    ZynResult EnablePLIFIR(bool pli, bool fir) override;
    ZynResult SetMultiCamParam(const char* params, unsigned int length) override;
    ZynResult SetVideoStrategy(unsigned int id, int value) override;
    ZynResult SetVideoProcessingStrategy(unsigned int id, int value) override;
    ZynResult SetMaxCaptureQuality(ZynVideoQualityType quality) override;

    // AV1 is offered and sent on this line (a feature toggle turns it on).
    ZynResult EnableAV1(bool enable);
    // What the engine track was handed under the option name; null when nothing was.
    const std::string* GetTrackValue(const char* option) const;
    bool IsTrackSwitchOn(const char* option) const;
    bool IsCHPEnabled() const { return m_bCHP; }
    // The decoding limits the line offers for the codec; null when the engine's own apply.
    const ZynVideoCodecParams* GetDecodeLimits(ZynCodecType codec) const;

protected:
    // Hands value under the engine's option name to the local track; remembered when it was taken.
    ZynResult SetValue(const char* setter, const char* option, const std::string& value);
    ZynResult SetSwitch(const char* setter, const char* option, bool on) { return SetValue(setter, option, on ? "1" : "0"); }
    ZynResult SetNumber(const char* setter, const char* option, long long value)
    {
        return SetValue(setter, option, std::to_string(value));
    }
    // A count or size that may not be negative; a refused one is kicked under tag when given.
    ZynResult SetCount(const char* setter, const char* option, int value, const char* tag = nullptr);
    long long GetNumber(const char* option, long long fallback) const;

private:
    ZynResult SetCodecParams(bool decode, ZynCodecType codec, const ZynVideoCodecParams& params);

    std::map<std::string, std::string, std::less<>> m_trackValues;
    std::map<ZynCodecType, ZynVideoCodecParams> m_decodeParams;
    std::map<ZynCodecType, ZynVideoCodecParams> m_encodeParams;
    ZynPacketizationMode m_packetizationMode = ZynPacketizationMode_1;
    bool m_bCHP = false;
    bool m_bAV1 = false;
};

class CVideoConfig : public virtual CBaseVideoConfig, public virtual IVideoConfig {
public:
    explicit CVideoConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner), CBaseVideoConfig(owner) {}

    ZynResult Enable4KVideo(bool enable) override;
    ZynResult EnableAndroidCameraExternalRender(bool enable) override
    {
        return SetSwitch("EnableAndroidCameraExternalRender", "VIDEO_android_external_render", enable);
    }
    ZynResult SetCameraZoomFactor(float factor) override;
    ZynResult SetCameraFocusAtPoint(float x, float y) override;
    ZynResult SetCameraExposureState(int state) override;
    ZynResult SetCameraFlashMode(int mode) override;
    ZynResult SetCameraTorchMode(int mode) override;
    ZynResult SetCameraCustomExposure(float durationMs, float iso) override;
    ZynResult GetCameraExposureInfo(_tagCameraExposureInfo& info) override;
};

class CShareConfig : public virtual CBaseVideoConfig, public virtual IShareConfig {
public:
    explicit CShareConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner), CBaseVideoConfig(owner) {}

    ZynResult SetScreenMaxCaptureFps(int fps) override
    {
        return SetCount("SetScreenMaxCaptureFps", "SHARE_max_capture_fps", fps, "CSH_SetSMaxCapFps");
    }
    ZynResult SetScreenCaptureDownSampleMinHeight(int height) override
    {
        return SetCount("SetScreenCaptureDownSampleMinHeight", "SHARE_downsample_min_height", height, "CSH_SetSCapDMinH");
    }
    ZynResult SetScreenCaptureDownSampleMaxHeight(int height) override
    {
        return SetCount("SetScreenCaptureDownSampleMaxHeight", "SHARE_downsample_max_height", height);
    }
    ZynResult SetScreenCaptureMaxFS(int maxFS) override;
    ZynResult SetScreenCaptureMode(int mode) override
    {
        return SetCount("SetScreenCaptureMode", "SHARE_capture_mode", mode, "CSH_SetSCapMode");
    }
    ZynResult EnableCaptureDownsample(bool enable) override
    {
        return SetSwitch("EnableCaptureDownsample", "SHARE_capture_downsample", enable);
    }
    ZynResult SetScreenCodecMode(int mode) override { return SetCount("SetScreenCodecMode", "SHARE_codec_mode", mode); }
    ZynResult SetCapturerThreadCount(int count) override
    {
        return SetCount("SetCapturerThreadCount", "SHARE_capturer_threads", count);
    }
    ZynResult SharingOverVideoPipeline(bool enable) override
    {
        return SetSwitch("SharingOverVideoPipeline", "SHARE_over_video_pipeline", enable);
    }
    ZynResult EnableCapturerDuplicateFrameCheck(bool enable) override
    {
        return SetSwitch("EnableCapturerDuplicateFrameCheck", "SHARE_duplicate_frame_check", enable);
    }
    ZynResult EnableCapturerWindowBaseContent(bool enable) override
    {
        return SetSwitch("EnableCapturerWindowBaseContent", "SHARE_window_base_content", enable);
    }
    ZynResult EnableChangeAeroMode(bool enable) override
    {
        return SetSwitch("EnableChangeAeroMode", "SHARE_change_aero_mode", enable);
    }
    ZynResult SetShareConfigOption(int option, int value) override;
    ZynResult SetHighFidelityTextShareToggle(int value) override
    {
        return SetNumber("SetHighFidelityTextShareToggle", "SHARE_hifi_text_toggle", value);
    }
    int GetHighFidelityTextShareToggle() const override
    {
        return static_cast<int>(GetNumber("SHARE_hifi_text_toggle", 0));
    }
    ZynResult EnableHighFidelityTextShare(bool enable) override
    {
        return SetSwitch("EnableHighFidelityTextShare", "SHARE_hifi_text", enable);
    }
    bool IsEnabledHighFidelityTextShare() const override { return IsTrackSwitchOn("SHARE_hifi_text"); }
    ZynResult EnableChangeSharingResolutionForUplink(bool enable) override
    {
        return SetSwitch("EnableChangeSharingResolutionForUplink", "SHARE_uplink_resolution", enable);
    }
    ZynResult SetMagCapturerMaxExcludeWindowCount(int count) override
    {
        return SetCount("SetMagCapturerMaxExcludeWindowCount", "SHARE_mag_max_exclude_windows", count);
    }
    ZynResult DisableSystemAnimation(bool disable) override
    {
        return SetSwitch("DisableSystemAnimation", "SHARE_disable_system_animation", disable);
    }
    ZynResult EnableExcludeMacMenuBar(bool enable) override
    {
        return SetSwitch("EnableExcludeMacMenuBar", "SHARE_exclude_menu_bar", enable);
    }
    ZynResult EnableCatchMagAPIException(bool enable) override
    {
        return SetSwitch("EnableCatchMagAPIException", "SHARE_catch_mag_exception", enable);
    }
    ZynResult EnableIpcScreenCapturer(bool enable) override
    {
        return SetSwitch("EnableIpcScreenCapturer", "SHARE_ipc_capturer", enable);
    }
    ZynResult SetVDIScreenLockStatus(bool locked) override
    {
        return SetSwitch("SetVDIScreenLockStatus", "SHARE_vdi_screen_locked", locked);
    }
    ZynResult SetShareContentType(ZynShareContentType type) override;
    ZynResult EnableAutoContentTypeDetect(bool enable) override
    {
        return SetSwitch("EnableAutoContentTypeDetect", "SHARE_auto_content_type", enable);
    }
    ZynResult EnableHighFps(bool enable) override;
    ZynResult EnableCaptureVideoContent(bool enable, bool withAudio) override;
    ZynResult Enable4KVideo(bool enable) override;
    ZynResult EnableRTXLongDelayTolerantOptmization(bool enable) override
    {
        return SetSwitch("EnableRTXLongDelayTolerantOptmization", "SHARE_rtx_long_delay_tolerant", enable);
    }
    ZynResult DisableMacShareRetina(bool disable) override
    {
        return SetSwitch("DisableMacShareRetina", "SHARE_disable_retina", disable);
    }
    ZynResult EnableUserControlWASHostLifecycle(bool enable) override
    {
        return SetSwitch("EnableUserControlWASHostLifecycle", "SHARE_user_controls_host", enable);
    }
    ZynResult SkipSharingStrictRegionCheck(bool skip) override;
    ZynResult DisableAV1EncodeInNormalShare(bool disable) override;
    bool IsAV1RGBEncodingEnabled() const override;
    ZynResult EnableAV1RGBEncoding(bool enable) { return SetSwitch("EnableAV1RGBEncoding", "SHARE_av1_rgb", enable); }
    ZynResult EnableImmersiveSharing(bool enable) override;
    ZynResult SetOnPremStarted(bool started) override { return SetSwitch("SetOnPremStarted", "SHARE_onprem_started", started); }
    ZynResult SetOnPremConfig(const char* sessionId, const char* token) override;
};
}  // namespace zyn
