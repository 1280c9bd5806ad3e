// The avatar's frames. Main thread.
#include "track/AvatarInputter.h"

#include <algorithm>

namespace zyn {

ZynResult CAvatarInputter::Init(const _tagVideoSourceInfo* info, IZynExternalInputter* pin,
                                const unsigned char* picture, unsigned int length)
{
    if (!info || !pin || !picture || length == 0 || info->width == 0 || info->height == 0) return ZYN_E_INVALIDARG;
    Uninit();
    m_info = *info;
    pin->AddRef();
    m_pin = pin;
    m_picture.assign(picture, picture + length);
    return ZYN_S_OK;
}

void CAvatarInputter::Uninit()
{
    Stop();
    if (m_pin) m_pin->Release();
    m_pin = nullptr;
    m_picture.clear();
}

uint32_t CAvatarInputter::PeriodMs() const
{
    const uint32_t fps = std::clamp<uint32_t>(m_info.fps, 1, kMaxFps);
    return 1000 / fps;
}

bool CAvatarInputter::Start()
{
    if (!m_pin) return false;
    if (m_timer.IsScheduled()) return true;
    return m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(PeriodMs())) == CM_OK;
}

void CAvatarInputter::Stop() { m_timer.Cancel(); }

ZynResult CAvatarInputter::Feed()
{
    if (!m_pin) return ZYN_E_WRONGSTATE;
    return m_pin->InputVideoData(m_picture.data(), static_cast<unsigned int>(m_picture.size()), &m_info);
}

}  // namespace zyn
