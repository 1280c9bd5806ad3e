// Session-wide grouping and capability attributes: a=group and a=tcap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"

namespace sdp {

// a=group:<semantics> [<mid>]...
class mline_group {
public:
    mline_group(std::string semantics, std::vector<std::string> mids);
    explicit mline_group(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const mline_group&) const = default;

    std::string semantics;
    std::vector<std::string> mids;
};

// a=tcap:<number> <proto> [<proto>]...
class tcap {
public:
    tcap(uint16_t number, std::vector<std::string> protocols);
    explicit tcap(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    attribute_line as_attribute_line() const;
    bool operator==(const tcap&) const = default;

    uint16_t number = 0;
    std::vector<std::string> protocols;
};

}  // namespace sdp
