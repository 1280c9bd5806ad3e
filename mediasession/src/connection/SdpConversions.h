// Conversions between the connection's media vocabulary and the SDP library's.
#pragma once

#include "mediasession/ZynDefines.h"
#include "sdp/rtp_session.h"
#include "sdp/session.h"

namespace zyn {

// The line kind an m line stands for; application kinds (BFCP, SCTP, IX) and disabled sections
// are ZynSessionType_Application, which no RTP line answers.
ZynSessionType ConvSessionType(const sdp::session& session);
sdp::rtp_session_type ConvRtpSessionType(ZynSessionType type);
// ZynDirection and sdp::session_direction name the same four states from the same side.
sdp::session_direction ConvZynDirection(int32_t direction);
ZynDirection ConvDirection(sdp::session_direction direction);

}  // namespace zyn
