// A whole description as typed sessions, with the session-wide settings.
#pragma once

#include <string>
#include <vector>

#include "sdp/description.h"
#include "sdp/ice.h"
#include "sdp/optional_value.h"
#include "sdp/session.h"
#include "sdp/sobe.h"

namespace sdp {

class session_group {
public:
    // Never fails for a bad attribute or m line: those fall back to unset or disabled.
    explicit session_group(const session_description& description);
    session_group(std::string user_name, std::string ip_address, std::string session_version = "0");

    // Appends; a session without a mid is given its ordinal among those of its kind.
    void add_session(session s);
    // Rebuilds the BUNDLE list from every session, giving each one without a mid its index.
    void add_bundle();
    // The first b line's value as given.
    optional_value<unsigned> get_bandwidth() const;
    session_description as_session_description() const;

    bool operator==(const session_group&) const = default;

    std::string user_name;
    std::string ip_address;
    std::vector<bandwidth_line> bandwidth;
    std::string session_version;
    std::vector<session> sessions;
    bool ice_lite = false;
    optional_value<sobe_caps> sobe;
    optional_value<sdp::ice_options> ice_options;
    std::vector<std::string> bundle;
};

}  // namespace sdp
