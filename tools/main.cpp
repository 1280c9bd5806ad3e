// The `mediasession` program: picks the command named by the first words of the command line, reads
// the rest against that command's table and runs it.
// Threads: the program's main thread only.
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "command.h"

namespace {

std::vector<std::string> SplitWords(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

std::vector<const tool::Command*> Sorted()
{
    std::vector<const tool::Command*> commands;
    for (const auto& c : tool::Commands()) commands.push_back(&c);
    std::sort(commands.begin(), commands.end(), [](auto* a, auto* b) { return a->spec.name < b->spec.name; });
    return commands;
}

bool InFamily(const tool::Command& c, const std::vector<std::string>& family)
{
    const auto words = SplitWords(c.spec.name);
    return family.size() <= words.size() && std::equal(family.begin(), family.end(), words.begin());
}

// True when some command's first words are these ("sdp" for every sdp command).
bool IsFamily(const std::vector<std::string>& family)
{
    const auto& all = tool::Commands();
    return std::any_of(all.begin(), all.end(), [&](const auto& c) { return InFamily(c, family); });
}

// Lists the commands of that family; every command when it is none.
void PrintCommands(FILE* out, const std::vector<std::string>& family)
{
    const bool some = IsFamily(family);
    std::fprintf(out,
                 "usage: mediasession COMMAND [OPTIONS] [ARGS]\n"
                 "       mediasession COMMAND --help    (or: mediasession help COMMAND)\n\n"
                 "commands:\n");
    for (const tool::Command* c : Sorted()) {
        if (some && !InFamily(*c, family)) continue;
        std::fprintf(out, "  %s\n      %s\n", tool::UsageLine(c->spec).c_str(), c->spec.summary.c_str());
    }
    std::fprintf(out, "\nexit status: 0 done, %d a wrong command line, any other a failure of the command itself\n",
                 tool::kExitUsage);
}

int UnknownCommand(const std::vector<std::string>& words)
{
    std::string name;
    for (const auto& w : words) name += (name.empty() ? "" : " ") + w;
    std::fprintf(stderr, "mediasession: unknown command '%s'\n\n", name.c_str());
    PrintCommands(stderr, words);
    return tool::kExitUsage;
}

// The command with the longest name that starts the words ("sdp parse" before "sdp"), or null.
const tool::Command* Find(const std::vector<std::string>& words, std::size_t& used)
{
    const tool::Command* best = nullptr;
    used = 0;
    for (const auto& c : tool::Commands()) {
        auto name = SplitWords(c.spec.name);
        if (name.size() > words.size() || name.size() <= used) continue;
        if (std::equal(name.begin(), name.end(), words.begin())) {
            best = &c;
            used = name.size();
        }
    }
    return best;
}

// Words before the first option: what may name a command or a family of them.
std::vector<std::string> LeadingWords(const std::vector<std::string>& args)
{
    std::vector<std::string> words;
    for (const auto& a : args) {
        if (!a.empty() && a[0] == '-') break;
        words.push_back(a);
    }
    return words;
}

bool AsksHelp(const std::vector<std::string>& args)
{
    return std::any_of(args.begin(), args.end(), [](const auto& a) { return a == "--help" || a == "-h"; });
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        PrintCommands(stderr, {});
        return tool::kExitUsage;
    }
    std::size_t used = 0;
    if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        const std::vector<std::string> topic(args.begin() + 1, args.end());
        const tool::Command* c = Find(topic, used);
        if (c && used == topic.size()) std::fputs(tool::Help(c->spec).c_str(), stdout);
        else if (IsFamily(topic)) PrintCommands(stdout, topic);
        else return UnknownCommand(topic);
        return 0;
    }

    const tool::Command* command = Find(args, used);
    if (!command) {
        std::vector<std::string> words = LeadingWords(args);
        if (words.empty()) words.push_back(args[0]);
        // A family's name alone ("sdp --help") lists its commands.
        if (!AsksHelp(args) || !IsFamily(words)) return UnknownCommand(words);
        PrintCommands(stdout, words);
        return 0;
    }
    const tool::Reading reading =
        tool::Reading::Of(command->spec, std::vector<std::string>(args.begin() + static_cast<long>(used), args.end()));
    switch (reading.outcome) {
    case tool::Reading::kHelp: std::fputs(tool::Help(command->spec).c_str(), stdout); return 0;
    case tool::Reading::kWrong: return tool::UsageError(command->spec, reading.error);
    case tool::Reading::kRun: break;
    }
    return command->run(reading.args);
}
