// JSON summary of a typed session description.
#include "sdp_json.h"

#include <string>

namespace tool {

namespace {

using json = sdp_json;

template <class T>
json optional_json(const sdp::optional_value<T>& v)
{
    return v.is_set() ? json(v.get_data()) : json(nullptr);
}

json ice_json(const sdp::optional_value<sdp::ice_caps>& ice)
{
    if (!ice.is_set()) return nullptr;
    const auto& i = ice.get_data();
    return {{"ufrag", i.username}, {"pwd", i.password}, {"candidates", i.candidates.size()}};
}

json dtls_json(const sdp::optional_value<sdp::dtls_caps>& dtls)
{
    if (!dtls.is_set()) return nullptr;
    const auto& d = dtls.get_data();
    json fingerprints = json::array();
    for (const auto& f : d.fingerprints) fingerprints.push_back(f.hash + " " + f.value);
    return {{"role", sdp::dtls_setup_role_to_string(d.role)}, {"fingerprints", fingerprints}};
}

const char* kind_name(sdp::session_kind kind)
{
    switch (kind) {
    case sdp::session_kind::rtp: return "rtp";
    case sdp::session_kind::bfcp: return "bfcp";
    case sdp::session_kind::sctp: return "sctp";
    case sdp::session_kind::ix: return "ix";
    case sdp::session_kind::disabled: return "disabled";
    }
    return "disabled";
}

}  // namespace

json sdp_session_json(const sdp::session& s)
{
    json j = {
        {"kind", kind_name(s.get_kind())},
        {"media", s.get_media_type()},
        {"port", s.get_port()},
        {"transport", s.get_transport_protocol()},
        {"direction", sdp::session_direction_to_string(s.get_direction())},
        {"mid", optional_json(s.get_mid())},
        {"formats", json::array()},
        {"codecs", json::array()},
        {"rtcp_fb", json::array()},
        {"extmaps", json::array()},
        {"crypto", json::array()},
        {"ice", nullptr},
        {"dtls", nullptr},
        {"rids", json::array()},
        {"multistream", false},
    };
    if (s.is_rtp()) {
        const auto& r = s.rtp.get_data();
        for (const auto& c : r.codecs) {
            auto fmtp = c.get_parameter_string();
            j["formats"].push_back(std::to_string(c.payload_type));
            j["codecs"].push_back({{"pt", c.payload_type},
                                   {"name", c.get_name()},
                                   {"clock", c.get_clock_rate()},
                                   {"fmtp", fmtp.empty() ? json(nullptr) : json(fmtp)}});
        }
        for (const auto& f : r.rtcp_feedback) j["rtcp_fb"].push_back(f.payload_type + " " + f.feedback);
        for (const auto& e : r.ext_maps)
            j["extmaps"].push_back({{"id", e.id}, {"direction", sdp::ext_map_direction_to_string(e.direction)}, {"uri", e.uri}});
        for (const auto& c : r.cryptos) j["crypto"].push_back(c.suite);
        for (const auto& x : r.rids) j["rids"].push_back(x.as_parameter_string());
        j["ice"] = ice_json(r.ice);
        j["dtls"] = dtls_json(r.dtls);
        j["multistream"] = r.cmulti.is_set();
    } else if (s.is_bfcp()) {
        j["ice"] = ice_json(s.bfcp.get_data().ice);
        j["dtls"] = dtls_json(s.bfcp.get_data().dtls);
    } else if (s.is_sctp()) {
        for (const auto& m : s.sctp.get_data().sctp_maps) j["formats"].push_back(std::to_string(m.number));
        j["ice"] = ice_json(s.sctp.get_data().ice);
        j["dtls"] = dtls_json(s.sctp.get_data().dtls);
    } else if (s.is_ix()) {
        j["dtls"] = dtls_json(s.ix.get_data().dtls);
    } else {
        j["formats"] = s.disabled.get_data().formats;
    }
    return j;
}

json sdp_group_json(const sdp::session_group& g)
{
    json sessions = json::array();
    for (const auto& s : g.sessions) sessions.push_back(sdp_session_json(s));
    return {{"user_name", g.user_name},
            {"session_version", g.session_version},
            {"ice_lite", g.ice_lite},
            {"bundle", g.bundle},
            {"sessions", sessions}};
}

}  // namespace tool
