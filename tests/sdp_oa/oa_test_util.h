// Builders shared by the offer/answer tests: codecs and whole groups from SDP text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdp/offer_answer.h"

namespace oa_test {

// "<pt> <name>/<clock>[ <fmtp>]", e.g. "96 H264/90000 profile-level-id=42e01f;packetization-mode=1".
inline sdp::codec make_codec(const std::string& text)
{
    auto first = text.find(' ');
    auto second = text.find(' ', first + 1);
    std::string pt = text.substr(0, first);
    std::string map = text.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
    sdp::rtp_map rtpmap(sdp::attribute_line::create("a=rtpmap:" + pt + " " + map));
    if (second == std::string::npos) return sdp::codec(rtpmap);
    return sdp::codec(rtpmap, sdp::format_parameters(pt, text.substr(second + 1)));
}

inline std::vector<sdp::codec> make_codecs(const std::vector<std::string>& texts)
{
    std::vector<sdp::codec> out;
    for (const auto& t : texts) out.push_back(make_codec(t));
    return out;
}

inline std::vector<uint32_t> payloads(const std::vector<sdp::codec>& codecs)
{
    std::vector<uint32_t> out;
    for (const auto& c : codecs) out.push_back(c.payload_type);
    return out;
}

// Lines joined with CR LF.
inline std::string sdp_text(const std::vector<std::string>& lines)
{
    std::string out;
    for (const auto& l : lines) out += l + "\r\n";
    return out;
}

inline sdp::session_group make_group(const std::vector<std::string>& lines)
{
    return sdp::session_group(sdp::session_description::create(sdp_text(lines)));
}

inline const sdp::rtp_session& rtp_at(const sdp::session_group& g, std::size_t i) { return g.sessions.at(i).rtp.get_data(); }

}  // namespace oa_test
