// What the `mediasession` program says about itself, held against what it does: the overall help
// lists every command with every option, each option a help lists is taken by that command, and a
// wrong command line ends with status 2 and a reason on standard error, the command not run.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "../common/run_command.h"

namespace {

const std::string kTool = MS_TOOL_PATH;

// No command runs here, only the reading of its command line: under the sanitizers that path is
// checked for leaks too.
mstest::CommandResult Tool(const std::string& args) { return mstest::RunCommand(kTool + " " + args + " </dev/null"); }

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The commands of the overall help: the leading lower-case words of each usage line.
std::vector<std::string> ListedCommands(const std::string& help)
{
    static const std::regex usage(R"(^  ([a-z][a-z0-9-]*(?: [a-z][a-z0-9-]*)*)(?: .*)?$)");
    std::vector<std::string> commands;
    std::smatch m;
    for (const auto& line : Lines(help))
        if (std::regex_match(line, m, usage)) commands.push_back(m[1]);
    return commands;
}

// The overall help's usage line of that command.
std::string UsageOf(const std::string& help, const std::string& command)
{
    for (const auto& line : Lines(help))
        if (line == "  " + command || line.rfind("  " + command + " ", 0) == 0) return line;
    return {};
}

struct ListedOption {
    std::string name;
    std::string value;  // empty for a flag
};

// The option rows of a command's help: "  --name [VALUE]  help".
std::vector<ListedOption> ListedOptions(const std::string& help)
{
    static const std::regex row(R"(^  (--[a-z0-9-]+)(?: ([^ ]+))?(?:  .*)?$)");
    std::vector<ListedOption> options;
    std::smatch m;
    for (const auto& line : Lines(help))
        if (std::regex_match(line, m, row) && m[1] != "--help") options.push_back({m[1], m[2]});
    return options;
}

// What each cmd_*.cpp defines today. A command whose registration is lost, or an option dropped
// from a table, goes missing from the help.
struct Known {
    const char* command;
    std::vector<std::string> options;
};
const Known kKnown[] = {
    {"call",
     {"--media", "--duration", "--sdes", "--no-srtp", "--no-ice", "--no-mux", "--client-type", "--stun", "--turn",
      "--relay-only", "--local", "--listen", "--connect", "--json", "--sdp-only", "--insecure-logs", "--save"}},
    {"version", {}},
    {"sdp parse", {"--lines", "--json"}},
    {"sdp offer", {"--local", "--json"}},
    {"sdp answer", {"--local", "--offer", "--json"}},
    {"sdp negotiate", {"--local", "--answer", "--json"}},
    {"stun decode", {"--profile", "--password", "--long-term"}},
    {"stun bind", {"--user", "--password", "--timeout-ms"}},
    {"turn allocate", {"--user", "--password", "--tcp", "--family", "--peer", "--profile", "--verbose"}},
    {"ice-peer", {"--role", "--out", "--in", "--local", "--verbose"}},
    {"diag dns", {"--server", "--family"}},
    {"diag trace", {"--max-ttl", "--wait-ms", "--per-sec"}},
    {"diag reach", {"--timeout-ms", "--probe-timeout-ms", "--per-sec", "--ca-file", "--insecure"}},
};

TEST(ToolHelp, ListsEveryCommandWithEveryOption)
{
    for (const char* ask : {"--help", "-h", "help"}) {
        SCOPED_TRACE(ask);
        const auto r = Tool(ask);
        ASSERT_EQ(0, r.status) << r.err;
        for (const Known& k : kKnown) {
            const std::string usage = UsageOf(r.out, k.command);
            ASSERT_FALSE(usage.empty()) << k.command << " is not listed:\n" << r.out;
            for (const auto& option : k.options)
                EXPECT_NE(std::string::npos, usage.find(option)) << k.command << " lacks " << option << ": " << usage;
        }
    }
}

// Each option of each command's help, given (with a value of its kind) before --help: the command
// reads it and prints its help instead of refusing it.
TEST(ToolHelp, EachCommandTakesTheOptionsItsHelpLists)
{
    const auto commands = ListedCommands(Tool("--help").out);
    ASSERT_GE(commands.size(), std::size(kKnown));
    for (const auto& command : commands) {
        SCOPED_TRACE(command);
        const auto help = Tool(command + " --help");
        ASSERT_EQ(0, help.status) << help.err;
        EXPECT_EQ(0u, help.out.rfind("usage: mediasession " + command, 0)) << help.out;
        EXPECT_EQ(help.out, Tool("help " + command).out);
        for (const auto& o : ListedOptions(help.out)) {
            // A value of the kind the help names: the first of a list of choices.
            const std::string value = o.value.substr(0, o.value.find('|'));
            const auto r = Tool(command + " " + o.name + (value.empty() ? "" : " '" + value + "'") + " --help");
            EXPECT_EQ(0, r.status) << o.name << ": " << r.err;
            EXPECT_EQ(help.out, r.out) << o.name;
        }
    }
}

TEST(ToolHelp, EveryCommandRefusesAnUnknownOptionWithoutRunning)
{
    const auto commands = ListedCommands(Tool("--help").out);
    ASSERT_FALSE(commands.empty());
    for (const auto& command : commands) {
        SCOPED_TRACE(command);
        const auto r = Tool(command + " --no-such-option");
        EXPECT_EQ(2, r.status);
        EXPECT_EQ("", r.out) << "the command ran";
        EXPECT_NE(std::string::npos, r.err.find("unknown option '--no-such-option'")) << r.err;
        EXPECT_NE(std::string::npos, r.err.find("usage: mediasession " + command)) << r.err;
    }
}

TEST(ToolHelp, WrongCommandLinesEndWithStatusTwoAndAReason)
{
    struct Row {
        const char* name;
        const char* args;
        const char* reason;
    };
    const Row rows[] = {
        {"no command at all", "", "usage: mediasession COMMAND"},
        {"an unknown command", "frobnicate", "unknown command 'frobnicate'"},
        {"a family's name alone", "sdp", "unknown command 'sdp'"},
        {"an unknown help topic", "help frobnicate", "unknown command 'frobnicate'"},
        {"an option missing its value", "stun bind 127.0.0.1:1 --timeout-ms", "--timeout-ms needs a value (N)"},
        {"a value not among the choices", "stun decode --profile x 00", "--profile is one of qlox, zyn, not 'x'"},
        {"a required option missing", "sdp answer --local x.sdp", "--offer is required"},
        {"a flag given a value", "sdp parse --json=yes", "--json takes no value"},
        {"one operand too many", "sdp parse a.sdp b.sdp", "unexpected argument 'b.sdp'"},
        {"an operand missing", "turn allocate --user u --password p", "HOST:PORT is missing"},
        {"a value the command refuses", "stun bind 127.0.0.1:1 --timeout-ms -5", "takes a positive number"},
        {"an unknown media kind", "call --media audio,smell", "--media takes known kinds only"},
        {"two ways of one side", "call --listen 127.0.0.1:1 --connect 127.0.0.1:1", "exclude each other"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto r = Tool(row.args);
        EXPECT_EQ(2, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_NE(std::string::npos, r.err.find(row.reason)) << r.err;
    }
}

// A family's name with --help lists its commands and no other.
TEST(ToolHelp, FamilyHelpListsOnlyItsCommands)
{
    const auto r = Tool("sdp --help");
    ASSERT_EQ(0, r.status) << r.err;
    const std::vector<std::string> want{"sdp answer", "sdp negotiate", "sdp offer", "sdp parse"};
    EXPECT_EQ(want, ListedCommands(r.out)) << r.out;
}

}  // namespace
