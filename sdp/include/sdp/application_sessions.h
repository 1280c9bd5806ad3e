// Non-RTP sections (BFCP, SCTP data channels, IX) and the disabled section.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/application_attributes.h"
#include "sdp/description.h"
#include "sdp/dtls.h"
#include "sdp/ice.h"
#include "sdp/optional_value.h"

namespace sdp {

// Common part of the application kinds: an "application" m line with a port and an address.
class application_session {
public:
    application_session(const session_lines& session, const media_description& media);
    application_session(std::string transport_protocol, std::string ip_address, uint16_t port);

    std::string get_media_type() const { return "application"; }
    // m line (no formats yet) and c line.
    media_description as_media_description() const;

    std::string transport_protocol;
    std::string ip_address;
    uint16_t port = 0;

    bool operator==(const application_session&) const = default;
};

class bfcp_session : public application_session {
public:
    bfcp_session(const session_lines& session, const media_description& media);
    bfcp_session(std::string transport_protocol, std::string ip_address, uint16_t port);
    static bool is_valid_transport_protocol(const std::string& transport);
    media_description as_media_description() const;

    std::vector<bfcp_floor_control_role> floor_control_roles;
    optional_value<uint32_t> conf_id;
    optional_value<uint32_t> user_id;
    std::vector<bfcp_floor_id> floor_ids;
    optional_value<std::string> mid;
    optional_value<ice_caps> ice;
    optional_value<dtls_caps> dtls;

    bool operator==(const bfcp_session&) const = default;
};

class sctp_session : public application_session {
public:
    sctp_session(const session_lines& session, const media_description& media);
    sctp_session(std::string transport_protocol, std::string ip_address, uint16_t port);
    static bool is_valid_transport_protocol(const std::string& transport);
    media_description as_media_description() const;

    std::vector<sctp_map> sctp_maps;
    optional_value<std::string> mid;
    optional_value<ice_caps> ice;
    optional_value<dtls_caps> dtls;

    bool operator==(const sctp_session&) const = default;
};

class ix_session : public application_session {
public:
    ix_session(const session_lines& session, const media_description& media);
    ix_session(std::string transport_protocol, std::string ip_address, uint16_t port);
    static bool is_valid_transport_protocol(const std::string& transport);
    media_description as_media_description() const;

    std::vector<ix_map> ix_maps;
    optional_value<dtls_caps> dtls;

    bool operator==(const ix_session&) const = default;
};

// A refused or unreadable m line: printed with port 0 and nothing else.
class disabled_session {
public:
    explicit disabled_session(const media_description_line& m);
    // Its one format is "*".
    disabled_session(std::string media_type, std::string transport_protocol);
    media_description as_media_description() const;

    std::string media_type;
    std::string transport_protocol;
    std::vector<std::string> formats;

    bool operator==(const disabled_session&) const = default;
};

}  // namespace sdp
