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

const tool::CommandSpec kSpec{
    .name = "sdp parse",
    .summary = "reads one session description and prints it back through the typed model",
    .operands = {.name = "FILE|-", .help = "the description (default: standard input)", .min = 0, .max = 1},
    .options =
        {
            {.name = "--lines", .help = "print it back through the line layer only"},
            {.name = "--json", .help = "print a JSON summary of the typed model"},
        },
};

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

int run_parse(const tool::Args& args)
{
    const bool lines_only = args.Has("--lines"), as_json = args.Has("--json");
    const std::string path = args.Operands().empty() ? "" : args.Operands()[0];
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

tool::CommandRegistration reg{kSpec, run_parse};

}  // namespace
