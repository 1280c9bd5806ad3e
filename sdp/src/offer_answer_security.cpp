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

namespace {

// Entries of the named side that have a partner on the other side, each suite once. An answer
// echoes the tag of the offered entry it accepted, so a partner with the same tag and suite is
// preferred to one with the same suite only.
template <class T, class Match>
std::vector<T> keyed_pairs(const std::vector<T>& named, const std::vector<T>& other, Match&& match)
{
    std::vector<T> out;
    auto suite_taken = [&](const T& x) {
        return std::any_of(out.begin(), out.end(), [&](const T& o) { return o.suite == x.suite; });
    };
    for (bool same_tag : {true, false})
        for (const auto& x : named) {
            if (suite_taken(x)) continue;
            if (std::any_of(other.begin(), other.end(),
                            [&](const T& y) { return match(x, y) && (!same_tag || x.tag == y.tag); }))
                out.push_back(x);
        }
    return out;
}

}  // namespace

std::vector<crypto> negotiate_crypto(const std::vector<crypto>& a, const std::vector<crypto>& b, bool is_local)
{
    return keyed_pairs(is_local ? a : b, is_local ? b : a,
                       [](const crypto& x, const crypto& y) { return x.suite == y.suite; });
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
    return keyed_pairs(is_local ? a : b, is_local ? b : a, prime_crypto_is_compatible);
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
