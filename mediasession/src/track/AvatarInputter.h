// The still picture a muted camera sends instead of nothing: a timer that hands the same frame to
// an external input pin at the picture's own rate, so the far end keeps seeing a face.
//
// Threads: the main thread, where its timer runs; Feed may also be called directly (tests).
#pragma once

#include <cstdint>
#include <vector>

#include "mediasession/ZynMediaTrack.h"
#include "tp/CmTimerWrapperID.h"

namespace zyn {

class CAvatarInputter final : public CCmTimerWrapperIDSink {
public:
    CAvatarInputter() = default;
    ~CAvatarInputter() override { Uninit(); }

    // Keeps a copy of the picture and one reference on the pin. ZYN_E_INVALIDARG for an empty
    // picture or a source of no size.
    ZynResult Init(const _tagVideoSourceInfo* info, IZynExternalInputter* pin, const unsigned char* picture,
                   unsigned int length);
    void Uninit();
    bool IsInited() const { return m_pin != nullptr; }
    // Starts the frames (on the calling loop thread); false off a loop thread or uninitialised.
    bool Start();
    void Stop();
    bool IsRunning() const { return m_timer.IsScheduled(); }
    // One frame into the pin.
    ZynResult Feed();
    // Milliseconds between frames, from the source's rate.
    uint32_t PeriodMs() const;

    void OnTimer(CCmTimerWrapperID*) override { Feed(); }

private:
    // A still picture changes nothing between frames: a few a second keep the stream alive
    // without spending the uplink (and 1 at least, so a zero rate still sends).
    static constexpr uint32_t kMaxFps = 5;

    _tagVideoSourceInfo m_info{};
    IZynExternalInputter* m_pin = nullptr;  // one reference
    std::vector<unsigned char> m_picture;
    CCmTimerWrapperID m_timer;
};

}  // namespace zyn
