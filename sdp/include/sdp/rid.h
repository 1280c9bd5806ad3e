// a=rid: a restriction identifier with its payload types and numeric restrictions.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sdp/attribute_stream.h"
#include "sdp/lines.h"
#include "sdp/optional_value.h"

namespace sdp {

enum rid_direction : unsigned {
    rid_send = 0,
    rid_recv = 1,
};

class rid {
public:
    rid() = default;
    rid(std::string id, rid_direction direction, std::vector<uint32_t> payload_types = {},
        std::map<std::string, optional_value<uint32_t>> restrictions = {});
    explicit rid(const attribute_line& l);
    static bool is_likely_valid(const attribute_line& l);
    void init_from_line(const attribute_line& l);
    // Reads the text behind "a=rid:".
    void init_from_string(const std::string& text);
    attribute_line as_attribute_line() const;
    // The whole line text, "a=rid:<id> <send|recv>[ pt=..;<key>=<value>..]".
    std::string as_parameter_string() const;

    // Every key both hold with a value is no larger here than in other.
    bool more_restrictive_than(const rid& other) const;
    // Takes the tighter of each value; false and unchanged when other has a key unknown here.
    bool merge(const rid& other);
    void remove_undefined();
    bool operator==(const rid&) const = default;

    rid_direction direction = rid_recv;
    std::string id;
    std::vector<uint32_t> payload_types;
    std::map<std::string, optional_value<uint32_t>> restrictions;
};

}  // namespace sdp
