#include "sdp/session.h"

#include <stdexcept>

namespace sdp {

session::session(const session_lines& lines, const media_description& media)
{
    // Each kind throws invalid_argument when the section is not of its shape; an unreadable
    // section is required to end as a disabled one rather than as an error. A kind whose media
    // type or transport does not match would throw at once, so it is not tried at all: same
    // outcome, without an exception for every section that is not of the first kind.
    const auto& m = media.get_media_line();
    const auto& type = m.get_media_type();
    const auto& transport = m.get_transport();
    bool application = type == "application";
    try {
        if ((type == "audio" || type == "video") && rtp_session::is_valid_transport_protocol(transport)) {
            rtp = rtp_session(lines, media);
            return;
        }
    } catch (const std::invalid_argument&) {
    }
    try {
        if (application && bfcp_session::is_valid_transport_protocol(transport)) {
            bfcp = bfcp_session(lines, media);
            return;
        }
    } catch (const std::invalid_argument&) {
    }
    try {
        if (application && sctp_session::is_valid_transport_protocol(transport)) {
            sctp = sctp_session(lines, media);
            return;
        }
    } catch (const std::invalid_argument&) {
    }
    try {
        if (application && ix_session::is_valid_transport_protocol(transport)) {
            ix = ix_session(lines, media);
            return;
        }
    } catch (const std::invalid_argument&) {
    }
    disabled = disabled_session(m);
}

session::session(rtp_session s) : rtp(std::move(s)) {}
session::session(bfcp_session s) : bfcp(std::move(s)) {}
session::session(sctp_session s) : sctp(std::move(s)) {}
session::session(ix_session s) : ix(std::move(s)) {}
session::session(disabled_session s) : disabled(std::move(s)) {}

session_kind session::get_kind() const
{
    if (rtp.is_set()) return session_kind::rtp;
    if (bfcp.is_set()) return session_kind::bfcp;
    if (sctp.is_set()) return session_kind::sctp;
    if (ix.is_set()) return session_kind::ix;
    return session_kind::disabled;
}

session_direction session::get_direction() const
{
    if (rtp.is_set()) return rtp.get_data().direction;
    if (disabled.is_set()) return session_direction::inactive;
    return session_direction::sendrecv;
}

std::string session::get_media_type() const
{
    if (rtp.is_set()) return rtp.get_data().get_media_type();
    if (disabled.is_set()) return disabled.get_data().media_type;
    return "application";
}

std::string session::get_transport_protocol() const
{
    if (rtp.is_set()) return rtp.get_data().transport_protocol;
    if (bfcp.is_set()) return bfcp.get_data().transport_protocol;
    if (sctp.is_set()) return sctp.get_data().transport_protocol;
    if (ix.is_set()) return ix.get_data().transport_protocol;
    return disabled.get_data().transport_protocol;
}

uint16_t session::get_port() const
{
    if (rtp.is_set()) return rtp.get_data().port;
    if (bfcp.is_set()) return bfcp.get_data().port;
    if (sctp.is_set()) return sctp.get_data().port;
    if (ix.is_set()) return ix.get_data().port;
    return 0;
}

optional_value<std::string> session::get_mid() const
{
    if (rtp.is_set()) return rtp.get_data().mid;
    if (bfcp.is_set()) return bfcp.get_data().mid;
    if (sctp.is_set()) return sctp.get_data().mid;
    return {};
}

void session::set_mid(const std::string& mid)
{
    if (rtp.is_set()) rtp.get_data().mid = mid;
    else if (bfcp.is_set()) bfcp.get_data().mid = mid;
    else if (sctp.is_set()) sctp.get_data().mid = mid;
}

media_description session::as_media_description() const
{
    if (rtp.is_set()) return rtp.get_data().as_media_description();
    if (bfcp.is_set()) return bfcp.get_data().as_media_description();
    if (sctp.is_set()) return sctp.get_data().as_media_description();
    if (ix.is_set()) return ix.get_data().as_media_description();
    return disabled.get_data().as_media_description();
}

}  // namespace sdp
