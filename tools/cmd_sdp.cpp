// `mediasession sdp parse`: reads one session description and prints it back through the line
// layer, through the typed session model, or as a JSON summary of the typed model.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "command.h"
#include "sdp/sdp.h"
#include "sdp_json.h"

namespace {

const char* kUsage = "sdp parse [--lines] [--json] [FILE|-]";

bool read_input(const std::string& path, std::string& text)
{
    if (path.empty() || path == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

int run_parse(const std::vector<std::string>& args)
{
    bool lines_only = false, as_json = false;
    std::string path;
    for (const auto& a : args) {
        if (a == "--lines") lines_only = true;
        else if (a == "--json") as_json = true;
        else if (!a.empty() && a[0] == '-' && a != "-") {
            std::fprintf(stderr, "usage: mediasession %s\n", kUsage);
            return 2;
        } else if (path.empty()) path = a;
        else {
            std::fprintf(stderr, "usage: mediasession %s\n", kUsage);
            return 2;
        }
    }
    std::string text;
    if (!read_input(path, text)) {
        std::fprintf(stderr, "mediasession: cannot read '%s'\n", path.c_str());
        return 2;
    }
    try {
        auto description = sdp::session_description::create(text);
        if (lines_only && !as_json) {
            std::cout << description.as_sdp();
            return 0;
        }
        sdp::session_group group(description);
        if (as_json) std::cout << tool::sdp_group_json(group).dump() << "\n";
        else std::cout << group.as_session_description().as_sdp();
        return 0;
    } catch (const std::exception& e) {
        // Texts of the library can span lines; print them as they are.
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}

tool::CommandRegistration reg{"sdp parse", kUsage, run_parse};

}  // namespace
