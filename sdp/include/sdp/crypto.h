// SDES keying: a=crypto and the system's own a=prime-crypto with its EKT field.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"
#include "sdp/optional_value.h"

namespace sdp {

// <method>:<key>[|<lifetime>][|<mki>]
class crypto_key {
public:
    crypto_key() = default;
    crypto_key(std::string method, std::string key, std::string lifetime = {}, std::string mki = {});
    explicit crypto_key(const std::string& text) { init_from_string(text); }
    void init_from_string(const std::string& text);
    // mask replaces the key by as many '*' as it has bytes: the form for traces, never for SDP.
    std::string as_string(bool mask = false) const;
    bool operator==(const crypto_key&) const = default;

    std::string method;
    std::string key;
    std::string lifetime;
    std::string mki;
};

// a=crypto:<tag> <suite> <key>[;<key>]... [<session param>]...
class crypto {
public:
    crypto(uint32_t tag, std::string suite, std::vector<crypto_key> keys, std::vector<std::string> session_params = {});
    explicit crypto(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;

    bool is_unencrypted_srtp() const;
    bool is_unencrypted_srtcp() const;
    bool is_unauthenticated_srtp() const;
    // Same suite and the same three session flags.
    bool is_compatible_with(const crypto& other) const;
    bool operator==(const crypto&) const = default;

    uint32_t tag = 0;
    std::string suite;
    std::vector<crypto_key> keys;
    std::vector<std::string> session_params;
    optional_value<int> window_size_hint;

private:
    bool has_param(const char* name) const;
    void read_window_size_hint();
};

// EKT=<cipher>|<key>|<spi>
class prime_crypto_ekt {
public:
    prime_crypto_ekt() = default;
    prime_crypto_ekt(std::string cipher, std::string key, std::string spi);
    explicit prime_crypto_ekt(const std::string& text) { init_from_string(text); }
    void init_from_string(const std::string& text);
    std::string as_string(bool mask = false) const;
    bool operator==(const prime_crypto_ekt&) const = default;

    std::string cipher;
    std::string key;
    std::string spi;
};

// a=prime-crypto:<tag> <suite> <param> <key> [EKT=...]
class prime_crypto {
public:
    prime_crypto(uint32_t tag, std::string suite, std::string param, crypto_key key,
                 std::vector<prime_crypto_ekt> ekt = {});
    explicit prime_crypto(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    std::string as_string(bool mask = false) const;
    bool operator==(const prime_crypto&) const = default;

    uint32_t tag = 0;
    std::string suite;
    std::string param;
    crypto_key key;
    std::vector<prime_crypto_ekt> ekt;  // zero or one
};

}  // namespace sdp
