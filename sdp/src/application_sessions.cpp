#include "sdp/application_sessions.h"

#include <stdexcept>

#include "sdp/rtp_session.h"
#include "string_util.h"

namespace sdp {

using detail::cat;

namespace {

bool one_of(const std::string& value, std::initializer_list<const char*> list)
{
    for (const char* item : list)
        if (value == item) return true;
    return false;
}

}  // namespace

// ---- common

application_session::application_session(const session_lines& session, const media_description& media)
{
    const auto& m = media.get_media_line();
    port = detail::read_media_port(media);
    if (port == 0) throw std::invalid_argument("port number of 0 not allowed for application session");
    if (m.get_media_type() != "application")
        throw std::invalid_argument(cat("invalid media type ", m.get_media_type(), " for application session"));
    transport_protocol = m.get_transport();
    ip_address = detail::find_connection_address(session, media);
}

application_session::application_session(std::string transport, std::string address, uint16_t p)
    : transport_protocol(std::move(transport)), ip_address(std::move(address)), port(p)
{
}

media_description application_session::as_media_description() const
{
    media_description m(media_description_line(get_media_type(), std::to_string(port), transport_protocol, {}));
    m.add_line(connection_line("IN", detail::address_type_of(ip_address), ip_address), false);
    return m;
}

// ---- BFCP

bool bfcp_session::is_valid_transport_protocol(const std::string& t)
{
    return one_of(t, {"UDP/BFCP", "UDP/DTLS/BFCP", "TCP/BFCP"});
}

bfcp_session::bfcp_session(std::string transport, std::string address, uint16_t p)
    : application_session(std::move(transport), std::move(address), p)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for bfcp session"));
}

bfcp_session::bfcp_session(const session_lines& session, const media_description& media)
    : application_session(session, media)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for bfcp session"));
    bool have_roles = false;
    for (const auto& a : media.attribute_lines) {
        const auto& name = a.get_name();
        if (name == "floorctrl" && !have_roles) {
            for (auto role : detail::split(a.get_attribute_value(), ' '))
                floor_control_roles.push_back(string_to_bfcp_floor_control_role(role));
            have_roles = true;
        } else if (name == "confid" && !conf_id.is_set()) {
            conf_id = string_to_numeric(a.get_attribute_value(), "bfcp conference id");
        } else if (name == "userid" && !user_id.is_set()) {
            user_id = string_to_numeric(a.get_attribute_value(), "bfcp user id");
        } else if (name == "floorid") {
            floor_ids.emplace_back(a);
        } else if (name == "mid" && !mid.is_set()) {
            mid = a.get_attribute_value();
        }
    }
    detail::read_ice(session, media, ice);
    detail::read_dtls(session, media, dtls);
}

media_description bfcp_session::as_media_description() const
{
    auto m = application_session::as_media_description();
    if (!floor_control_roles.empty()) {
        std::vector<std::string> roles;
        for (auto r : floor_control_roles) roles.push_back(bfcp_floor_control_role_to_string(r));
        m.add_line(attribute_line("floorctrl", detail::join(roles, " ")), false);
    }
    if (conf_id.is_set()) m.add_line(attribute_line("confid", std::to_string(conf_id.get_data())), false);
    if (user_id.is_set()) m.add_line(attribute_line("userid", std::to_string(user_id.get_data())), false);
    for (const auto& f : floor_ids) m.add_line(f.as_attribute_line(), false);
    if (mid.is_set()) m.add_line(attribute_line("mid", mid.get_data()), false);
    if (ice.is_set()) detail::add_attribute_lines(m, ice.get_data().as_attribute_line());
    if (dtls.is_set()) detail::add_attribute_lines(m, dtls.get_data().as_attribute_line());
    return m;
}

// ---- SCTP

bool sctp_session::is_valid_transport_protocol(const std::string& t) { return one_of(t, {"DTLS/SCTP", "UDP/DTLS/SCTP"}); }

sctp_session::sctp_session(std::string transport, std::string address, uint16_t p)
    : application_session(std::move(transport), std::move(address), p)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for sctp session"));
}

sctp_session::sctp_session(const session_lines& session, const media_description& media)
    : application_session(session, media)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for sctp session"));
    for (const auto& a : media.attribute_lines) {
        if (sctp_map::is_likely_valid(a)) sctp_maps.emplace_back(a);
        else if (a.get_name() == "mid" && !mid.is_set()) mid = a.get_attribute_value();
    }
    detail::read_ice(session, media, ice);
    detail::read_dtls(session, media, dtls);
}

media_description sctp_session::as_media_description() const
{
    auto m = application_session::as_media_description();
    for (const auto& s : sctp_maps) s.populate_media_description(m);
    if (ice.is_set()) detail::add_attribute_lines(m, ice.get_data().as_attribute_line());
    if (dtls.is_set()) detail::add_attribute_lines(m, dtls.get_data().as_attribute_line());
    if (mid.is_set()) m.add_line(attribute_line("mid", mid.get_data()), false);
    return m;
}

// ---- IX

bool ix_session::is_valid_transport_protocol(const std::string& t) { return one_of(t, {"UDP/UDT/IX", "UDP/DTLS/UDT/IX"}); }

ix_session::ix_session(std::string transport, std::string address, uint16_t p)
    : application_session(std::move(transport), std::move(address), p)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for ix session"));
}

ix_session::ix_session(const session_lines& session, const media_description& media)
    : application_session(session, media)
{
    if (!is_valid_transport_protocol(transport_protocol))
        throw std::invalid_argument(cat("invalid transport protocol ", transport_protocol, " for ix session"));
    for (const auto& a : media.attribute_lines)
        if (ix_map::is_likely_valid(a)) ix_maps.emplace_back(a);
    detail::read_dtls(session, media, dtls);
}

media_description ix_session::as_media_description() const
{
    auto m = application_session::as_media_description();
    for (const auto& x : ix_maps) m.add_line(x.as_attribute_line(), false);
    if (dtls.is_set()) detail::add_attribute_lines(m, dtls.get_data().as_attribute_line());
    return m;
}

// ---- disabled

disabled_session::disabled_session(const media_description_line& m)
    : media_type(m.get_media_type()), transport_protocol(m.get_transport()), formats(m.get_formats())
{
}

disabled_session::disabled_session(std::string type, std::string transport)
    : media_type(std::move(type)), transport_protocol(std::move(transport)), formats{"*"}
{
}

media_description disabled_session::as_media_description() const
{
    return media_description(media_description_line(media_type, "0", transport_protocol, formats));
}

}  // namespace sdp
