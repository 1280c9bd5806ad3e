// The configuration of each media kind. Every media line embeds one of each; its session type
// picks the one in use (an application line uses CBaseConfig itself). Each sits on one shared
// CBaseConfig through virtual inheritance, so a line's settings are the same whichever face the
// application holds.
#pragma once

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

// What camera video and screen share have in common.
class CBaseVideoConfig : public virtual CBaseConfig, public virtual IBaseVideoConfig {
public:
    explicit CBaseVideoConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner) {}
};

class CVideoConfig : public virtual CBaseVideoConfig, public virtual IVideoConfig {
public:
    explicit CVideoConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner), CBaseVideoConfig(owner) {}
};

class CShareConfig : public virtual CBaseVideoConfig, public virtual IShareConfig {
public:
    explicit CShareConfig(IMediaConfigOwner* owner = nullptr) : CBaseConfig(owner), CBaseVideoConfig(owner) {}
};

}  // namespace zyn
