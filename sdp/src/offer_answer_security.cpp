// Offer/answer of keying: SDES crypto, the system's prime-crypto, and DTLS setup roles.
#include <algorithm>

#include "sdp/offer_answer_values.h"

namespace sdp {

std::vector<crypto> get_answer_crypto(const std::vector<crypto>& offered, const std::vector<crypto>& local)
{
    for (const auto& o : offered)
        for (const auto& l : local)
            if (o.is_compatible_with(l)) return {crypto(o.tag, o.suite, l.keys, l.session_params)};
    return {};
}

std::vector<crypto> negotiate_crypto(const std::vector<crypto>& a, const std::vector<crypto>& b, bool is_local)
{
    std::vector<crypto> out;
    for (const auto& x : a) {
        auto y = std::find_if(b.begin(), b.end(), [&](const crypto& c) { return c.suite == x.suite; });
        if (y == b.end()) continue;
        const crypto& named = is_local ? x : *y;
        out.emplace_back(x.tag, x.suite, named.keys, named.session_params);
    }
    return out;
}

bool prime_crypto_is_compatible(const prime_crypto& x, const prime_crypto& y)
{
    return x.suite == y.suite && x.param == y.param && x.ekt.empty() == y.ekt.empty();
}

std::vector<prime_crypto> get_answer_prime_crypto(const std::vector<prime_crypto>& offered,
                                                  const std::vector<prime_crypto>& local)
{
    for (const auto& o : offered)
        for (const auto& l : local)
            if (prime_crypto_is_compatible(o, l)) return {prime_crypto(o.tag, o.suite, o.param, l.key, l.ekt)};
    return {};
}

std::vector<prime_crypto> negotiate_prime_crypto(const std::vector<prime_crypto>& a,
                                                 const std::vector<prime_crypto>& b, bool is_local)
{
    std::vector<prime_crypto> out;
    for (const auto& x : a) {
        auto y = std::find_if(b.begin(), b.end(), [&](const prime_crypto& p) { return prime_crypto_is_compatible(x, p); });
        if (y == b.end()) continue;
        const prime_crypto& named = is_local ? x : *y;
        out.emplace_back(x.tag, x.suite, x.param, named.key, named.ekt);
    }
    return out;
}

namespace {

// Role of the answerer for an offered role, or false when its own role cannot take it.
bool answer_role(dtls_setup_role offered, dtls_setup_role local, dtls_setup_role& out)
{
    switch (offered) {
    case dtls_setup_passive:
        if (local == dtls_setup_passive) return false;
        out = dtls_setup_active;
        return true;
    case dtls_setup_active:
        if (local == dtls_setup_active) return false;
        out = dtls_setup_passive;
        return true;
    case dtls_setup_actpass:
        // An answerer free to choose takes the active side, so the offerer never waits on it.
        out = local == dtls_setup_passive ? dtls_setup_passive : dtls_setup_active;
        return true;
    }
    return false;
}

}  // namespace

optional_value<dtls_caps> get_answer_dtls(const optional_value<dtls_caps>& offered,
                                          const optional_value<dtls_caps>& local)
{
    if (offered.empty() || local.empty()) return {};
    dtls_setup_role role;
    if (!answer_role(offered.get_data().role, local.get_data().role, role)) return {};
    return dtls_caps(role, local.get_data().fingerprints);
}

optional_value<dtls_caps> negotiate_dtls(const optional_value<dtls_caps>& a, const optional_value<dtls_caps>& b,
                                         bool is_local)
{
    if (a.empty() || b.empty()) return {};
    const dtls_caps& named = is_local ? a.get_data() : b.get_data();
    const dtls_caps& other = is_local ? b.get_data() : a.get_data();
    // The named side's role as if it answered the other's: the answer already fixed one side, and
    // the table gives the complementary role for the side that offered actpass.
    dtls_setup_role role;
    if (!answer_role(other.role, named.role, role)) return {};
    return dtls_caps(role, named.fingerprints);
}

}  // namespace sdp
