#include "connection/SdpConversions.h"

namespace zyn {

ZynSessionType ConvSessionType(const sdp::session& session)
{
    const sdp::rtp_session* rtp = session.rtp.get_if();
    if (!rtp) return ZynSessionType_Application;
    switch (rtp->type) {
    case sdp::rtp_session_type::audio_main: return ZynSessionType_Audio;
    case sdp::rtp_session_type::audio_slides: return ZynSessionType_AudioSlide;
    case sdp::rtp_session_type::video_main: return ZynSessionType_Video;
    case sdp::rtp_session_type::video_slides: return ZynSessionType_ScreenShare;
    }
    return ZynSessionType_Application;
}

sdp::rtp_session_type ConvRtpSessionType(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_AudioSlide: return sdp::rtp_session_type::audio_slides;
    case ZynSessionType_Video: return sdp::rtp_session_type::video_main;
    case ZynSessionType_ScreenShare: return sdp::rtp_session_type::video_slides;
    default: return sdp::rtp_session_type::audio_main;
    }
}

sdp::session_direction ConvZynDirection(int32_t direction)
{
    switch (direction & ZynDirection_SendRecv) {
    case ZynDirection_Send: return sdp::session_direction::sendonly;
    case ZynDirection_Recv: return sdp::session_direction::recvonly;
    case ZynDirection_SendRecv: return sdp::session_direction::sendrecv;
    default: return sdp::session_direction::inactive;
    }
}

ZynDirection ConvDirection(sdp::session_direction direction)
{
    switch (direction) {
    case sdp::session_direction::sendonly: return ZynDirection_Send;
    case sdp::session_direction::recvonly: return ZynDirection_Recv;
    case sdp::session_direction::sendrecv: return ZynDirection_SendRecv;
    case sdp::session_direction::inactive: break;
    }
    return ZynDirection_None;
}

}  // namespace zyn
