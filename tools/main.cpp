#include <algorithm>
#include <cstdio>
#include <sstream>

#include "command.h"

namespace tool {

std::vector<Command>& Commands()
{
    static std::vector<Command> commands;
    return commands;
}

}  // namespace tool

namespace {

std::vector<std::string> SplitWords(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

int PrintUsage(FILE* out)
{
    auto commands = tool::Commands();
    std::sort(commands.begin(), commands.end(), [](auto& a, auto& b) { return a.name < b.name; });
    std::fprintf(out, "usage: mediasession COMMAND [ARGS]\n");
    for (const auto& c : commands) std::fprintf(out, "  %s\n", c.usage.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h")
        return args.empty() ? PrintUsage(stderr) : (PrintUsage(stdout), 0);

    // The longest registered name that prefixes the arguments wins ("sdp parse" before "sdp").
    const tool::Command* best = nullptr;
    size_t bestWords = 0;
    for (const auto& c : tool::Commands()) {
        auto words = SplitWords(c.name);
        if (words.size() > args.size() || words.size() <= bestWords) continue;
        if (std::equal(words.begin(), words.end(), args.begin())) {
            best = &c;
            bestWords = words.size();
        }
    }
    if (!best) {
        std::fprintf(stderr, "mediasession: unknown command '%s'\n", args[0].c_str());
        return PrintUsage(stderr);
    }
    return best->run(std::vector<std::string>(args.begin() + static_cast<long>(bestWords), args.end()));
}
