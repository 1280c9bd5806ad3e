// JSON summary of a typed session description, shared by the sdp commands of the tool.
#pragma once

#include <nlohmann/json.hpp>

#include "sdp/session.h"
#include "sdp/session_group.h"

namespace tool {

// Keys keep the order in which they are written, so the summary reads top-down.
using sdp_json = nlohmann::ordered_json;

// One m line: kind, media, port, transport, direction, mid, codecs, feedback, extmaps, crypto,
// ICE, DTLS, rids, multistream.
sdp_json sdp_session_json(const sdp::session& s);
// user_name, session_version, ice_lite, bundle and each session.
sdp_json sdp_group_json(const sdp::session_group& g);

}  // namespace tool
