#include "sdp/session_group.h"

#include <cstdio>
#include <stdexcept>

#include "sdp/group_attributes.h"
#include "sdp/rtp_session.h"

namespace sdp {

session_group::session_group(std::string user, std::string address, std::string version)
    : user_name(std::move(user)), ip_address(std::move(address)), session_version(std::move(version))
{
}

session_group::session_group(const session_description& description)
{
    const auto& o = description.origin_lines.front();
    user_name = o.get_user_name();
    ip_address = o.get_address();
    session_version = o.get_session_version();

    for (const auto& b : description.bandwidth_lines)
        if (b.get_bandwidth_type() == "AS" || b.get_bandwidth_type() == "TIAS") bandwidth.push_back(b);

    bool have_ice_options = false;
    for (const auto& a : description.attribute_lines) {
        if (a.get_name() == "ice-lite") {
            ice_lite = true;
        } else if (mline_group::is_likely_valid(a)) {
            try {
                mline_group g(a);
                if (g.semantics == "BUNDLE") bundle.insert(bundle.end(), g.mids.begin(), g.mids.end());
            } catch (const std::invalid_argument&) {
            }
        } else if (sdp::ice_options::is_likely_valid(a) && !have_ice_options) {
            have_ice_options = true;
            try {
                ice_options = sdp::ice_options(a);
            } catch (const std::invalid_argument&) {
            }
        }
    }

    try {
        sobe_caps caps;
        for (const auto& a : description.attribute_lines) caps.add_attribute(a);
        // Most descriptions have no resilience attributes: test rather than throw and catch.
        if (caps.is_valid()) sobe = std::move(caps);
    } catch (const std::invalid_argument&) {
    }

    for (const auto& media : description.get_media_descriptions()) {
        try {
            add_session(session(description, media));
        } catch (const std::invalid_argument&) {
            const auto& m = media.get_media_line();
            add_session(session(disabled_session(m.get_media_type(), m.get_transport())));
        }
    }
}

void session_group::add_session(session s)
{
    if (!s.get_mid().is_set() && (s.is_rtp() || s.is_bfcp())) {
        unsigned ordinal = 0;
        for (const auto& other : sessions) {
            if (s.is_rtp() && other.is_rtp() && other.rtp.get_data().type == s.rtp.get_data().type) ++ordinal;
            if (s.is_bfcp() && other.is_bfcp()) ++ordinal;
        }
        s.set_ordinal(ordinal);
    }
    sessions.push_back(std::move(s));
}

void session_group::add_bundle()
{
    bundle.clear();
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        auto mid = sessions[i].get_mid();
        if (!mid.is_set()) {
            char buf[32];
            std::snprintf(buf, sizeof buf, "%lu", static_cast<unsigned long>(i));
            sessions[i].set_mid(buf);
            mid = std::string(buf);
        }
        bundle.push_back(mid.get_data());
    }
}

optional_value<unsigned> session_group::get_bandwidth() const
{
    if (bandwidth.empty()) return {};
    return bandwidth.front().get_bandwidth_value();
}

session_description session_group::as_session_description() const
{
    session_lines lines;
    const char* address_type = detail::address_type_of(ip_address);
    lines.add_line(version_line(0), false);
    lines.add_line(origin_line({user_name, "0", session_version, "IN", address_type, ip_address}), false);
    lines.add_line(session_name_line("-"), false);
    lines.add_line(timing_line({"0", "0"}), false);
    lines.add_line(connection_line("IN", address_type, ip_address), false);
    if (!bandwidth.empty()) {
        bool first_as = true;
        for (const auto& b : bandwidth) {
            if (first_as && b.get_bandwidth_type() == "AS") {
                lines.add_line(bandwidth_line("AS", b.get_bandwidth_value() / 1000), false);
                first_as = false;
            } else {
                lines.add_line(b, false);
            }
        }
    } else {
        unsigned long long sum = 0;
        for (const auto& s : sessions) {
            if (!s.is_rtp()) continue;
            for (const auto& b : s.rtp.get_data().bandwidth)
                if (b.get_bandwidth_type() == "TIAS") {
                    sum += b.get_bandwidth_value();
                    break;
                }
        }
        if (sum != 0) lines.add_line(bandwidth_line("TIAS", static_cast<uint32_t>(sum > 0xFFFFFFFFULL ? 0xFFFFFFFFULL : sum)), false);
    }
    if (ice_lite) lines.add_line(attribute_line("ice-lite"), false);
    if (sobe.is_set())
        for (const auto& a : sobe.get_data().as_attribute_line()) lines.add_line(a, false);
    if (ice_options.is_set()) lines.add_line(ice_options.get_data().as_attribute_line(), false);
    if (!bundle.empty()) lines.add_line(mline_group("BUNDLE", bundle).as_attribute_line(), false);

    std::vector<media_description> media;
    media.reserve(sessions.size());
    for (const auto& s : sessions) media.push_back(s.as_media_description());
    return session_description(std::move(lines), std::move(media));
}

}  // namespace sdp
