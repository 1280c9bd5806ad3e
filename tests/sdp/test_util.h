// Helpers shared by the SDP tests.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "sdp/lines.h"

namespace sdp_test {

// The text of the std::invalid_argument thrown by fn, or "<no exception>".
template <class Fn>
std::string invalid_argument_text(Fn&& fn)
{
    try {
        fn();
    } catch (const std::invalid_argument& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("<other exception> ") + e.what();
    }
    return "<no exception>";
}

// The attribute line of "a=..." text.
inline sdp::attribute_line attr(const std::string& text) { return sdp::attribute_line::create(text); }

// Joins lines with CR LF, the form the library prints.
inline std::string crlf(std::initializer_list<const char*> lines)
{
    std::string out;
    for (const char* l : lines) {
        out += l;
        out += "\r\n";
    }
    return out;
}

}  // namespace sdp_test
