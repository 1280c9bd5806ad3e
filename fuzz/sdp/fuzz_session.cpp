// Whole descriptions: the line layer must print what it reads back unchanged, and the session
// model must print descriptions that it reads again to a fixed point.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "sdp/sdp.h"

namespace {

[[noreturn]] void bug(const char* what, const std::string& text)
{
    std::fprintf(stderr, "%s:\n%s\n", what, text.c_str());
    std::abort();
}

std::string model_print(const sdp::session_description& d) { return sdp::session_group(d).as_session_description().as_sdp(); }

// Session-level AS is printed divided by 1000, so such a print keeps moving for a few rounds.
bool has_session_as(const sdp::session_description& d)
{
    for (const auto& b : d.bandwidth_lines)
        if (b.get_bandwidth_type() == "AS" && b.get_bandwidth_value() != 0) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    std::optional<sdp::session_description> first;
    try {
        first.emplace(sdp::session_description::create(text));
    } catch (const std::invalid_argument&) {
        return 0;
    }

    // Line layer: one pass normalises, a second changes nothing.
    const std::string lines = first->as_sdp();
    try {
        auto again = sdp::session_description::create(lines);
        if (again.as_sdp() != lines) bug("line layer print changed", lines);
        if (!(again == *first)) bug("line layer value changed", lines);
    } catch (const std::invalid_argument& e) {
        bug("line layer print refused", lines + "\n" + e.what());
    }

    // Session model: reading never fails for a bad section, but an AV1 level without defaults is
    // the map's out-of-range error, which deliberately passes through.
    std::string p1;
    try {
        p1 = model_print(*first);
    } catch (const std::out_of_range&) {
        return 0;
    }
    try {
        auto d2 = sdp::session_description::create(p1);
        std::string p2 = model_print(d2);
        auto d3 = sdp::session_description::create(p2);
        std::string p3 = model_print(d3);
        if (p3 != p2 && !has_session_as(d3)) bug("model print has no fixed point", p1 + "----\n" + p2 + "----\n" + p3);
    } catch (const std::exception& e) {
        bug("model print refused", p1 + "\n" + e.what());
    }
    return 0;
}
