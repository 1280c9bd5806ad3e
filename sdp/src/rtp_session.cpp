#include "sdp/rtp_session.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include "string_util.h"

namespace sdp {

using detail::cat;

const char* session_direction_to_string(session_direction d)
{
    switch (d) {
    case session_direction::inactive: return "inactive";
    case session_direction::recvonly: return "recvonly";
    case session_direction::sendonly: return "sendonly";
    case session_direction::sendrecv: return "sendrecv";
    }
    return "sendrecv";
}

namespace detail {

std::string find_connection_address(const session_lines& session, const media_description& media)
{
    auto usable = [](const connection_line& c) {
        return c.get_network_type() == "IN" && (c.get_address_type() == "IP4" || c.get_address_type() == "IP6");
    };
    for (const auto& c : media.connection_lines)
        if (usable(c)) return c.get_address();
    for (const auto& c : session.connection_lines)
        if (usable(c)) return c.get_address();
    throw std::invalid_argument("valid connection line not found at session or media level");
}

const char* address_type_of(const std::string& address)
{
    return address.find(':') != std::string::npos ? "IP6" : "IP4";
}

uint16_t read_media_port(const media_description& media)
{
    return string_to_numeric_u16(media.get_media_line().get_port(), "media description port number");
}

// A failure of any kind leaves the capability set unset; the section itself stands.
void read_ice(const session_lines& session, const media_description& media, optional_value<ice_caps>& out)
{
    try {
        ice_caps caps;
        for (const auto& a : session.attribute_lines) {
            caps.try_username_attribute(a);
            caps.try_password_attribute(a);
        }
        for (const auto& a : media.attribute_lines) {
            if (caps.try_username_attribute(a) || caps.try_password_attribute(a) || caps.try_ice_candidate_attribute(a))
                continue;
            caps.try_ice_remote_candidates_attribute(a);
        }
        // Same conditions as validate_init(), tested without an exception: most sections fail one.
        if (caps.is_valid()) out = std::move(caps);
    } catch (const std::invalid_argument&) {
    }
}

void read_dtls(const session_lines& session, const media_description& media, optional_value<dtls_caps>& out)
{
    try {
        dtls_caps caps;
        for (const auto* list : {&session.attribute_lines, &media.attribute_lines}) {
            for (const auto& a : *list) {
                if (caps.try_setup_attribute(a) == 0) continue;
                caps.try_fingerprint_attribute(a);
            }
        }
        if (caps.is_valid()) out = std::move(caps);
    } catch (const std::invalid_argument&) {
    }
}

}  // namespace detail

namespace {

constexpr std::array<std::string_view, 14> kTransports = {
    "RTP/AVP",          "RTP/AVPF",          "RTP/SAVP",          "RTP/SAVPF",          "TCP/RTP/AVP",
    "TCP/RTP/AVPF",     "TCP/RTP/SAVP",      "TCP/RTP/SAVPF",     "TCP/TLS/RTP/AVP",    "TCP/TLS/RTP/AVPF",
    "UDP/TLS/RTP/SAVP", "UDP/TLS/RTP/SAVPF", "TCP/DTLS/RTP/SAVP", "TCP/DTLS/RTP/SAVPF",
};

}  // namespace

bool rtp_session::is_valid_transport_protocol(const std::string& transport)
{
    for (auto t : kTransports)
        if (t == transport) return true;
    return false;
}

void rtp_session::set_transport_protocol(const std::string& transport)
{
    if (!is_valid_transport_protocol(transport))
        throw std::invalid_argument(cat("invalid transport protocol ", transport, " for rtp session"));
    transport_protocol = transport;
}

rtp_session::rtp_session(rtp_session_type t, std::string address, uint16_t p, const std::string& transport)
    : type(t), ip_address(std::move(address)), port(p)
{
    if (port == 0) throw std::invalid_argument("port number of 0 not allowed for rtp session");
    set_transport_protocol(transport);
}

rtp_session::rtp_session(const session_lines& session, const media_description& media)
{
    const auto& m = media.get_media_line();
    port = detail::read_media_port(media);
    if (port == 0) throw std::invalid_argument("port number of 0 not allowed for rtp session");
    set_transport_protocol(m.get_transport());
    init_session_type(media);
    init_bandwidth(media);
    ip_address = detail::find_connection_address(session, media);

    std::vector<rtp_map> maps;
    fmtp_cache fmtps;
    for (const auto& a : media.attribute_lines) {
        if (rtp_map::is_likely_valid(a)) maps.emplace_back(a);
        else if (format_parameters::is_likely_valid(a)) fmtps.lines.push_back(&a);
    }
    fmtps.parsed.resize(fmtps.lines.size());
    codecs.reserve(m.get_formats().size());
    for (const auto& f : m.get_formats()) init_format(f, maps, fmtps);

    init_attributes(session, media);
    init_cmulti(media);
    detail::read_ice(session, media, ice);
    detail::read_dtls(session, media, dtls);
}

void rtp_session::init_session_type(const media_description& media)
{
    const auto& media_type = media.get_media_line().get_media_type();
    if (media_type == "audio") type = rtp_session_type::audio_main;
    else if (media_type == "video") type = rtp_session_type::video_main;
    else throw std::invalid_argument(cat("invalid media type ", media_type, " for rtp session"));
    for (const auto& a : media.attribute_lines) {
        if (a.get_name() != "content") continue;
        const auto& v = a.get_attribute_value();
        if (v == "slides")
            type = type == rtp_session_type::audio_main ? rtp_session_type::audio_slides : rtp_session_type::video_slides;
        else if (v != "main")
            throw std::invalid_argument(cat("invalid content type ", v, " for rtp session"));
        break;
    }
}

void rtp_session::init_bandwidth(const media_description& media)
{
    for (const auto& b : media.bandwidth_lines)
        if (b.get_bandwidth_type() == "AS" || b.get_bandwidth_type() == "TIAS") bandwidth.push_back(b);
}

void rtp_session::init_format(const std::string& format, const std::vector<rtp_map>& maps, fmtp_cache& fmtps)
{
    const rtp_map* map = nullptr;
    for (const auto& r : maps)
        if (r.payload_type == format) {
            map = &r;
            break;
        }
    if (map) {
        for (std::size_t k = 0; k < fmtps.lines.size(); ++k) {
            if (!fmtps.parsed[k].is_set()) fmtps.parsed[k] = format_parameters(*fmtps.lines[k]);
            const auto& fp = fmtps.parsed[k].get_data();
            if (fp.format == format) {
                codecs.emplace_back(*map, fp);
                return;
            }
        }
        codecs.emplace_back(*map);
        return;
    }
    uint32_t pt = string_to_numeric(format, "rtp session media description format");
    codec_type t = standard_rtp_payload_type_to_codec_type(pt);
    if (t != codec_invalid) codecs.emplace_back(pt, t);
}

void rtp_session::init_attributes(const session_lines& session, const media_description& media)
{
    for (const auto& a : session.attribute_lines)
        if (tcap::is_likely_valid(a)) tcaps.emplace_back(a);
    for (const auto& a : media.attribute_lines) {
        const auto& name = a.get_name();
        if (name == "rtcp") {
            if (rtcp_port.is_set()) continue;
            sdp::rtcp_port r(a);
            rtcp_port = r.port;
            if (r.address.is_set()) rtcp_address = r.address.get_data();
        } else if (name == "rtcp-fb") {
            rtcp_feedback.emplace_back(a);
        } else if (name == "rtcp-xr") {
            if (!rtcp_xr.is_set()) rtcp_xr = sdp::rtcp_xr(a);
        } else if (name == "extmap") {
            ext_maps.emplace_back(a);
        } else if (name == "crypto") {
            cryptos.emplace_back(a);
        } else if (name == "prime-crypto") {
            prime_cryptos.emplace_back(a);
        } else if (name == "vorta-sobe-psre") {
            sobe_psre.emplace_back(a);
        } else if (name == "vorta-sobe-hybrid-resilience") {
            if (!sobe_hybrid_resilience.is_set()) sobe_hybrid_resilience = sdp::sobe_hybrid_resilience(a);
        } else if (name == "rtcp-mux") {
            rtcp_mux = true;
        } else if (name == "x-vorta-http-upgrade-rtp") {
            http_upgrade = true;
        } else if (name == "sendrecv") {
            direction = session_direction::sendrecv;
        } else if (name == "sendonly") {
            direction = session_direction::sendonly;
        } else if (name == "recvonly") {
            direction = session_direction::recvonly;
        } else if (name == "inactive") {
            direction = session_direction::inactive;
        } else if (name == "label") {
            if (!label.is_set()) label = a.get_attribute_value();
        } else if (name == "mid") {
            if (!mid.is_set()) mid = a.get_attribute_value();
        } else if (name == "rid") {
            rids.emplace_back(a);
        } else if (name == "tcap") {
            tcaps.emplace_back(a);
        }
    }
}

void rtp_session::init_cmulti(const media_description& media)
{
    try {
        cmulti_caps caps;
        for (const auto& a : media.attribute_lines) {
            caps.track_cmulti_rtcp_feedback(a);
            caps.add_attribute(a);
        }
        // An ordinary section has no SCR feedback; this is how it is told apart. Most sections are
        // ordinary, so this is a plain test rather than the "no vorta multistream RTCP feedback
        // attribute found" exception, with the same outcome: cmulti stays unset.
        if (caps.scr_versions == 0) return;
        cmulti = std::move(caps);
        // The SCR feedback lines now belong to the capability set, which prints them itself.
        std::erase_if(rtcp_feedback, [](const sdp::rtcp_feedback& f) {
            return cmulti_caps::scr_version_bit(f.payload_type, f.feedback) != 0;
        });
    } catch (const std::invalid_argument&) {
    }
}

std::string rtp_session::get_media_type() const
{
    switch (type) {
    case rtp_session_type::audio_main:
    case rtp_session_type::audio_slides: return "audio";
    case rtp_session_type::video_main:
    case rtp_session_type::video_slides: return "video";
    }
    return "unknown";
}

std::string rtp_session::get_content_type() const
{
    switch (type) {
    case rtp_session_type::audio_main:
    case rtp_session_type::video_main: return "main";
    case rtp_session_type::audio_slides:
    case rtp_session_type::video_slides: return "slides";
    }
    return "unknown";
}

const std::string& rtp_session::get_rtcp_ip_address() const
{
    return rtcp_address.is_set() ? rtcp_address.get_data() : ip_address;
}

uint16_t rtp_session::get_rtcp_port() const
{
    return rtcp_port.is_set() ? rtcp_port.get_data() : static_cast<uint16_t>(port + 1);
}

optional_value<unsigned> rtp_session::get_bandwidth() const
{
    if (bandwidth.empty()) return {};
    const auto& b = bandwidth.front();
    if (b.get_bandwidth_type() == "AS") return b.get_bandwidth_value() * 1000u;
    if (b.get_bandwidth_type() == "TIAS") return b.get_bandwidth_value();
    return {};
}

void rtp_session::set_bandwidth(const optional_value<unsigned>& value)
{
    bandwidth.clear();
    if (value.is_set()) bandwidth.emplace_back("TIAS", value.get_data());
}

media_description rtp_session::as_media_description() const
{
    media_description m(media_description_line(get_media_type(), std::to_string(port), transport_protocol, {}));
    for (const auto& b : bandwidth) m.add_line(b, false);
    m.add_line(connection_line("IN", detail::address_type_of(ip_address), ip_address), false);
    m.add_line(attribute_line("content", get_content_type()), false);
    m.add_line(attribute_line(session_direction_to_string(direction)), false);
    if (codecs.empty()) {
        auto line = m.get_media_line();
        line.set_formats({"*"});
        m.update_line(line);
    } else {
        for (const auto& c : codecs) c.populate_media_description(m);
        for (const auto& r : rids) m.add_line(r.as_parameter_string());
    }
    if (rtcp_port.is_set() || rtcp_address.is_set()) {
        if (rtcp_address.is_set()) {
            const auto& address = rtcp_address.get_data();
            m.add_line(sdp::rtcp_port(get_rtcp_port(), "IN", detail::address_type_of(address), address).as_attribute_line(),
                       false);
        } else {
            m.add_line(sdp::rtcp_port(get_rtcp_port()).as_attribute_line(), false);
        }
    }
    for (const auto& f : rtcp_feedback) m.add_line(f.as_attribute_line(), false);
    for (const auto& e : ext_maps) m.add_line(e.as_attribute_line(), false);
    for (const auto& c : cryptos) m.add_line(c.as_attribute_line(), false);
    for (const auto& c : prime_cryptos) m.add_line(c.as_attribute_line(), false);
    for (const auto& p : sobe_psre) m.add_line(p.as_attribute_line(), false);
    if (sobe_hybrid_resilience.is_set()) m.add_line(sobe_hybrid_resilience.get_data().as_attribute_line(), false);
    if (rtcp_mux) m.add_line(attribute_line("rtcp-mux"), false);
    if (http_upgrade) m.add_line(attribute_line("x-vorta-http-upgrade-rtp"), false);
    if (label.is_set()) m.add_line(attribute_line("label", label.get_data()), false);
    if (mid.is_set()) m.add_line(attribute_line("mid", mid.get_data()), false);
    for (const auto& t : tcaps) m.add_line(t.as_attribute_line(), false);
    if (cmulti.is_set()) detail::add_attribute_lines(m, cmulti.get_data().as_attribute_line());
    if (ice.is_set()) detail::add_attribute_lines(m, ice.get_data().as_attribute_line());
    if (dtls.is_set()) detail::add_attribute_lines(m, dtls.get_data().as_attribute_line());
    if (rtcp_xr.is_set()) m.add_line(rtcp_xr.get_data().as_attribute_line(), false);
    return m;
}

}  // namespace sdp
