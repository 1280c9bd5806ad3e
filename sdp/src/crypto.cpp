#include "sdp/crypto.h"

#include <algorithm>
#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

// ---- key

crypto_key::crypto_key(std::string m, std::string k, std::string l, std::string i)
    : method(std::move(m)), key(std::move(k)), lifetime(std::move(l)), mki(std::move(i))
{
}

void crypto_key::init_from_string(const std::string& text)
{
    auto parts = detail::split_view(text, ':', 2);
    if (parts.size() != 2)
        throw std::invalid_argument(cat(
            "invalid value for crypto attribute key, expected 2 ':' delimited fields, received ", parts.size(), " (",
            text, ")"));
    auto fields = detail::split(parts[1], '|');
    // Nothing but '|' behind the method is no key at all.
    if (fields.empty())
        throw std::invalid_argument(cat(
            "invalid value for crypto attribute key, expected 2 ':' delimited fields, received 1 (", text, ")"));
    // Runs of delimiters read as one, so an empty method or field, or a key that begins with ':',
    // would print back as a different key: such a text is no key.
    const std::string_view info = std::string_view(text).substr(text.find(':') + 1);
    if (text.front() == ':' || info.empty() || info.front() == ':' || info.front() == '|' || info.back() == '|' ||
        info.find("||") != std::string_view::npos)
        throw std::invalid_argument(cat("invalid value for crypto attribute key, empty field (", text, ")"));
    if (fields.size() > 3)
        throw std::invalid_argument(cat(
            "invalid value for crypto attribute key, expected max 3 '|' delimited fields, received ", fields.size(),
            " (", text, ")"));
    method.assign(parts[0]);
    key = fields.empty() ? std::string() : std::move(fields[0]);
    lifetime.clear();
    mki.clear();
    if (fields.size() == 3) {
        lifetime = std::move(fields[1]);
        mki = std::move(fields[2]);
    } else if (fields.size() == 2) {
        // A lone second field is an MKI when it has the <value>:<length> form.
        if (fields[1].find(':') != std::string::npos) mki = std::move(fields[1]);
        else lifetime = std::move(fields[1]);
    }
}

std::string crypto_key::as_string(bool mask) const
{
    std::string out = cat(method, ":", mask ? std::string(key.size(), '*') : key);
    if (!lifetime.empty()) out += cat("|", lifetime);
    if (!mki.empty()) out += cat("|", mki);
    return out;
}

// ---- crypto

crypto::crypto(uint32_t t, std::string s, std::vector<crypto_key> k, std::vector<std::string> p)
    : tag(t), suite(std::move(s)), keys(std::move(k)), session_params(std::move(p))
{
    if (keys.empty()) throw std::invalid_argument("empty key parameter vector, must have at least one key");
    read_window_size_hint();
}

crypto::crypto(const attribute_line& l) { init_from_line(l); }

bool crypto::is_likely_valid(const attribute_line& l) { return l.get_name() == "crypto"; }

void crypto::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "crypto", "crypto");
    const auto& value = l.get_attribute_value();
    auto fields = detail::split(value, ' ');
    if (fields.size() < 3)
        throw std::invalid_argument(cat("invalid attribute value for crypto, expected >= 3 space delimited fields, received ",
                                        fields.size(), " (", value, ")"));
    tag = string_to_numeric(fields[0], "crypto attribute tag");
    suite = std::move(fields[1]);
    keys.clear();
    for (auto k : detail::split_view(fields[2], ';')) keys.emplace_back(std::string(k));
    if (keys.empty()) throw std::invalid_argument("empty key parameter vector, must have at least one key");
    session_params.assign(std::make_move_iterator(fields.begin() + 3), std::make_move_iterator(fields.end()));
    read_window_size_hint();
}

void crypto::read_window_size_hint()
{
    window_size_hint.clear();
    for (const auto& p : session_params) {
        if (p.find("WSH") == std::string::npos) continue;
        auto parts = detail::split(p, '=');
        // std::stoi throws invalid_argument("stoi") or out_of_range("stoi") on a bad number.
        if (!parts.empty() && parts[0] == "WSH") window_size_hint.set_data(std::stoi(parts.size() > 1 ? parts[1] : ""));
        break;
    }
}

attribute_line crypto::as_attribute_line() const
{
    std::string value = cat(tag, " ", suite, " ");
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (i) value += ';';
        value += keys[i].as_string();
    }
    for (const auto& p : session_params) value += cat(" ", p);
    return attribute_line("crypto", std::move(value));
}

bool crypto::has_param(const char* name) const
{
    return std::find(session_params.begin(), session_params.end(), name) != session_params.end();
}

bool crypto::is_unencrypted_srtp() const { return has_param("UNENCRYPTED_SRTP"); }
bool crypto::is_unencrypted_srtcp() const { return has_param("UNENCRYPTED_SRTCP"); }
bool crypto::is_unauthenticated_srtp() const { return has_param("UNAUTHENTICATED_SRTP"); }

bool crypto::is_compatible_with(const crypto& other) const
{
    return suite == other.suite && is_unencrypted_srtp() == other.is_unencrypted_srtp() &&
           is_unencrypted_srtcp() == other.is_unencrypted_srtcp() &&
           is_unauthenticated_srtp() == other.is_unauthenticated_srtp();
}

// ---- EKT

prime_crypto_ekt::prime_crypto_ekt(std::string c, std::string k, std::string s)
    : cipher(std::move(c)), key(std::move(k)), spi(std::move(s))
{
}

void prime_crypto_ekt::init_from_string(const std::string& text)
{
    auto parts = detail::split_view(text, '=', 2);
    if (parts.size() != 2)
        throw std::invalid_argument(cat(
            "invalid value for PRIME crypto attribute EKT, expected 2 '=' delimited fields, received ", parts.size(),
            " (", text, ")"));
    if (parts[0] != "EKT")
        throw std::invalid_argument(
            cat("invalid value found in PRIME crypto attribute EKT, expected 'EKT' found '", parts[0], "'"));
    auto fields = detail::split(parts[1], '|');
    if (fields.size() != 3)
        throw std::invalid_argument(cat(
            "invalid value for PRIME crypto attribute EKT, expected 3 '|' delimited fields, received ", fields.size(),
            " (", text, ")"));
    cipher = std::move(fields[0]);
    key = std::move(fields[1]);
    spi = std::move(fields[2]);
}

std::string prime_crypto_ekt::as_string(bool mask) const
{
    return cat("EKT=", cipher, "|", mask ? std::string(key.size(), '*') : key, "|", spi);
}

// ---- prime-crypto

prime_crypto::prime_crypto(uint32_t t, std::string s, std::string p, crypto_key k, std::vector<prime_crypto_ekt> e)
    : tag(t), suite(std::move(s)), param(std::move(p)), key(std::move(k)), ekt(std::move(e))
{
    if (ekt.size() > 1) ekt.resize(1);
}

prime_crypto::prime_crypto(const attribute_line& l) { init_from_line(l); }

bool prime_crypto::is_likely_valid(const attribute_line& l) { return l.get_name() == "prime-crypto"; }

void prime_crypto::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "prime-crypto", "crypto");
    const auto& value = l.get_attribute_value();
    auto fields = detail::split(value, ' ');
    if (fields.size() < 4)
        throw std::invalid_argument(cat("invalid attribute value for crypto, expected >= 4 space delimited fields, received ",
                                        fields.size(), " (", value, ")"));
    tag = string_to_numeric(fields[0], "prime crypto attribute tag");
    suite = std::move(fields[1]);
    param = std::move(fields[2]);
    key.init_from_string(fields[3]);
    ekt.clear();
    if (fields.size() > 4) ekt.emplace_back(fields[4]);
}

std::string prime_crypto::as_string(bool mask) const
{
    std::string out = cat(tag, " ", suite, " ", param, " ", key.as_string(mask));
    if (!ekt.empty()) out += cat(" ", ekt.front().as_string(mask));
    return out;
}

attribute_line prime_crypto::as_attribute_line() const { return attribute_line("prime-crypto", as_string(false)); }

}  // namespace sdp
