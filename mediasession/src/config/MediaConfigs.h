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

private:
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
