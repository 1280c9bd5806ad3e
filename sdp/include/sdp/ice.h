// ICE attributes: candidates, remote candidates, options, and the credentials gathered in ice_caps.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"

namespace sdp {

// a=candidate:<foundation> <component> <transport> <priority> <address> <port> typ <type> [<name> <value>]...
class ice_candidate {
public:
    ice_candidate(std::string foundation, uint32_t component, std::string transport, uint32_t priority,
                  std::string address, uint16_t port, std::string type,
                  std::vector<std::pair<std::string, std::string>> extensions = {});
    explicit ice_candidate(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const ice_candidate&) const = default;

    std::string foundation;
    uint32_t component = 0;
    std::string transport;
    uint32_t priority = 0;
    std::string address;
    uint16_t port = 0;
    std::string type;
    std::vector<std::pair<std::string, std::string>> extensions;
};

// a=ice-options:<tag>...
class ice_options {
public:
    explicit ice_options(std::vector<std::string> tags);
    explicit ice_options(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const ice_options&) const = default;

    std::vector<std::string> tags;
};

struct ice_remote_candidate_component {
    uint32_t component = 0;
    std::string address;
    uint16_t port = 0;
    bool operator==(const ice_remote_candidate_component&) const = default;
};

// a=remote-candidates:<component> <address> <port> ...
class ice_remote_candidates {
public:
    explicit ice_remote_candidates(std::vector<ice_remote_candidate_component> components);
    explicit ice_remote_candidates(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const ice_remote_candidates&) const = default;

    std::vector<ice_remote_candidate_component> components;
};

class ice_caps {
public:
    ice_caps() = default;
    ice_caps(std::string username, std::string password, std::vector<ice_candidate> candidates,
             std::vector<ice_remote_candidates> remote_candidates = {});

    // Each takes a line of its kind (returning true) and ignores others; a bad value throws.
    bool try_username_attribute(const attribute_line& l);
    bool try_password_attribute(const attribute_line& l);
    bool try_ice_candidate_attribute(const attribute_line& l);
    bool try_ice_remote_candidates_attribute(const attribute_line& l);
    // Username of 4 bytes or more, password of 22 or more, at least one candidate.
    void validate_init() const;
    // What validate_init() checks, without the exception.
    bool is_valid() const;

    // ice-ufrag, ice-pwd, each candidate, each remote-candidates line.
    std::vector<attribute_line> as_attribute_line() const;
    bool operator==(const ice_caps&) const = default;

    std::string username;
    std::string password;
    std::vector<ice_candidate> candidates;
    std::vector<ice_remote_candidates> remote_candidates;
};

}  // namespace sdp
