// DTLS-SRTP parameters: a=setup and a=fingerprint, gathered into dtls_caps.
#pragma once

#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"

namespace sdp {

// a=fingerprint:<hash> <value>
class fingerprint {
public:
    fingerprint(std::string hash, std::string value);
    explicit fingerprint(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const fingerprint&) const = default;

    std::string hash;
    std::string value;
};

enum dtls_setup_role : unsigned {
    dtls_setup_active = 0,
    dtls_setup_passive = 1,
    dtls_setup_actpass = 2,
};
std::string dtls_setup_role_to_string(dtls_setup_role role);
// Throws "Invalid DTLS setup role value '<text>'".
dtls_setup_role string_to_dtls_setup_role(const std::string& text);

class dtls_caps {
public:
    dtls_caps() = default;
    dtls_caps(dtls_setup_role role, std::vector<fingerprint> fingerprints);

    // 0 when the line was taken; all ones when it was not a line of this kind or its value was bad.
    int try_setup_attribute(const attribute_line& l);
    int try_fingerprint_attribute(const attribute_line& l);
    // Throws when no valid setup or no valid fingerprint was seen.
    void validate_init() const;
    // What validate_init() checks, without the exception.
    bool is_valid() const { return has_role_ && !fingerprints.empty(); }

    // a=setup first, then one a=fingerprint each.
    std::vector<attribute_line> as_attribute_line() const;
    bool operator==(const dtls_caps& o) const { return role == o.role && fingerprints == o.fingerprints; }

    dtls_setup_role role = dtls_setup_actpass;
    std::vector<fingerprint> fingerprints;

private:
    bool has_role_ = false;
};

}  // namespace sdp
