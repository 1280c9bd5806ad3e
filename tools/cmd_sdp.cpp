// `mediasession sdp parse`: reads one session description and prints it back through the line
// layer, through the typed session model, or as a JSON summary of the typed model.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "command.h"
#include "sdp/sdp.h"

namespace {

// Keys keep the order in which they are written, so the summary reads top-down.
using json = nlohmann::ordered_json;

const char* kUsage = "sdp parse [--lines] [--json] [FILE|-]";

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

json session_json(const sdp::session& s)
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

json group_json(const sdp::session_group& g)
{
    json sessions = json::array();
    for (const auto& s : g.sessions) sessions.push_back(session_json(s));
    return {{"user_name", g.user_name},
            {"session_version", g.session_version},
            {"ice_lite", g.ice_lite},
            {"bundle", g.bundle},
            {"sessions", sessions}};
}

bool read_input(const std::string& path, std::string& text)
{
    if (path.empty() || path == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

int run_parse(const std::vector<std::string>& args)
{
    bool lines_only = false, as_json = false;
    std::string path;
    for (const auto& a : args) {
        if (a == "--lines") lines_only = true;
        else if (a == "--json") as_json = true;
        else if (!a.empty() && a[0] == '-' && a != "-") {
            std::fprintf(stderr, "usage: mediasession %s\n", kUsage);
            return 2;
        } else if (path.empty()) path = a;
        else {
            std::fprintf(stderr, "usage: mediasession %s\n", kUsage);
            return 2;
        }
    }
    std::string text;
    if (!read_input(path, text)) {
        std::fprintf(stderr, "mediasession: cannot read '%s'\n", path.c_str());
        return 2;
    }
    try {
        auto description = sdp::session_description::create(text);
        if (lines_only && !as_json) {
            std::cout << description.as_sdp();
            return 0;
        }
        sdp::session_group group(description);
        if (as_json) std::cout << group_json(group).dump() << "\n";
        else std::cout << group.as_session_description().as_sdp();
        return 0;
    } catch (const std::exception& e) {
        // Texts of the library can span lines; print them as they are.
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}

tool::CommandRegistration reg{"sdp parse", kUsage, run_parse};

}  // namespace
