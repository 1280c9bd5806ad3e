#include "sdp/dtls.h"

#include <algorithm>
#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

fingerprint::fingerprint(std::string h, std::string v) : hash(std::move(h)), value(std::move(v)) {}

fingerprint::fingerprint(const attribute_line& l) { init_from_line(l); }

bool fingerprint::is_likely_valid(const attribute_line& l) { return l.get_name() == "fingerprint"; }

void fingerprint::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "fingerprint", "fingerprint");
    const auto& v = l.get_attribute_value();
    auto fields = detail::split(v, ' ');
    if (fields.size() != 2)
        throw std::invalid_argument(cat("invalid attribute value for fingerprint, expected 2 space delimited fields, received ",
                                        fields.size(), " (", v, ")"));
    hash = std::move(fields[0]);
    value = std::move(fields[1]);
}

attribute_line fingerprint::as_attribute_line() const { return attribute_line("fingerprint", cat(hash, " ", value)); }

std::string dtls_setup_role_to_string(dtls_setup_role role)
{
    switch (role) {
    case dtls_setup_active: return "active";
    case dtls_setup_passive: return "passive";
    case dtls_setup_actpass: return "actpass";
    }
    return "actpass";
}

dtls_setup_role string_to_dtls_setup_role(const std::string& text)
{
    if (text == "active") return dtls_setup_active;
    if (text == "passive") return dtls_setup_passive;
    if (text == "actpass") return dtls_setup_actpass;
    throw std::invalid_argument(cat("Invalid DTLS setup role value '", text, "'"));
}

dtls_caps::dtls_caps(dtls_setup_role r, std::vector<fingerprint> f) : role(r), fingerprints(std::move(f)), has_role_(true)
{
}

int dtls_caps::try_setup_attribute(const attribute_line& l)
{
    if (l.get_name() != "setup") return -1;
    const auto& v = l.get_attribute_value();
    if (v == "active") role = dtls_setup_active;
    else if (v == "passive") role = dtls_setup_passive;
    else if (v == "actpass") role = dtls_setup_actpass;
    else return -1;  // a bad value is swallowed here; validate_init reports the absence
    has_role_ = true;
    return 0;
}

int dtls_caps::try_fingerprint_attribute(const attribute_line& l)
{
    if (!fingerprint::is_likely_valid(l)) return -1;
    try {
        fingerprint f(l);
        // The same fingerprint at session and media level is one fingerprint.
        if (std::find(fingerprints.begin(), fingerprints.end(), f) == fingerprints.end())
            fingerprints.push_back(std::move(f));
    } catch (const std::invalid_argument&) {
        return -1;
    }
    return 0;
}

void dtls_caps::validate_init() const
{
    if (!has_role_) throw std::invalid_argument("no valid setup attribute found for DTLS");
    if (fingerprints.empty()) throw std::invalid_argument("no valid fingerprint attribute found for DTLS");
}

std::vector<attribute_line> dtls_caps::as_attribute_line() const
{
    std::vector<attribute_line> out;
    out.reserve(1 + fingerprints.size());
    out.emplace_back("setup", dtls_setup_role_to_string(role));
    for (const auto& f : fingerprints) out.push_back(f.as_attribute_line());
    return out;
}

}  // namespace sdp
