// Shared by the attribute fuzzers: read a line with one reader, print it, read the print again,
// and require the same value. A refusal of the first reading is fine; of the second it is a bug.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>

#include "sdp/lines.h"

namespace fuzz_sdp {

[[noreturn]] inline void bug(const char* what, const std::string& detail)
{
    std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
    std::abort();
}

template <class T>
std::string print(const T& value)
{
    return value.as_attribute_line().as_sdp();
}

// One pass may normalise (blank runs, a colon run read as one delimiter); from the second reading
// on, value and print must stay fixed, and nothing we print may be refused.
template <class T>
void round_trip(const std::string& line)
{
    std::optional<T> first;
    try {
        first.emplace(sdp::attribute_line::create(line));
    } catch (const std::invalid_argument&) {
        return;
    } catch (const std::out_of_range&) {
        return;  // std::stoi range error of a crypto window size hint
    }
    // A value that begins with ':' cannot be written back at all: the text layer reads a run of
    // colons as one delimiter. That is a property of the format, not of the reader.
    if (first->as_attribute_line().get_attribute_value().starts_with(':')) return;
    std::string p1 = print(*first);
    try {
        T second(sdp::attribute_line::create(p1));
        std::string p2 = print(second);
        T third(sdp::attribute_line::create(p2));
        if (!(third == second)) bug("value changed on a third reading", p2);
        if (print(third) != p2) bug("print changed", p2);
    } catch (const std::exception& e) {
        bug("printed form refused", p1 + " -> " + e.what());
    }
}

// First byte chooses the reader, the rest is the line without its "a=" prefix.
inline bool split_input(const uint8_t* data, size_t size, unsigned& selector, std::string& line)
{
    if (size < 1) return false;
    selector = data[0];
    line = "a=" + std::string(reinterpret_cast<const char*>(data + 1), size - 1);
    return true;
}

}  // namespace fuzz_sdp
