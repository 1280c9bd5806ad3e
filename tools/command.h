// Commands of the `mediasession` program. Each cmd_*.cpp describes each of its commands in one
// CommandSpec (its words, operands and options with a line of help each) and registers it with a
// static CommandRegistration. main() picks the command, reads the command line against that table
// and hands the command what it read; `--help` prints the same table. A new option is one more row.
//
// Threads: the program's main thread only; registrations run during static initialisation.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

// Exit status of every command whose command line is wrong.
constexpr int kExitUsage = 2;

struct Option {
    std::string name{};                  // "--media"
    std::string value{};                 // what its value is ("LIST"); empty for a flag
    std::string help{};                  // one line
    std::vector<std::string> choices{};  // when set, the only values taken (and the value's name)
    bool required = false;
    bool repeated = false;  // may come more than once; otherwise the last one counts
};

// The words that are not options, e.g. "HOST:PORT".
struct Operands {
    std::string name{};  // empty when the command takes none
    std::string help{};
    std::size_t min = 0;
    std::size_t max = 0;
};

struct CommandSpec {
    std::string name{};     // one or more words, e.g. "sdp parse"
    std::string summary{};  // one line
    Operands operands{};
    std::vector<Option> options{};
};

// What a command line gave, as read against a CommandSpec.
class Args {
public:
    bool Has(const std::string& option) const;
    // The last value given, or the fallback.
    std::string Value(const std::string& option, const std::string& fallback = {}) const;
    std::vector<std::string> Values(const std::string& option) const;
    const std::vector<std::string>& Operands() const { return operands_; }

private:
    friend struct Reading;
    std::vector<std::pair<std::string, std::string>> given_;  // option, value ("" for a flag)
    std::vector<std::string> operands_;
};

// How a command line reads against a spec.
struct Reading {
    enum Outcome { kRun, kHelp, kWrong } outcome = kRun;
    Args args;
    std::string error;  // for kWrong

    static Reading Of(const CommandSpec& spec, const std::vector<std::string>& words);
};

// "stun bind HOST:PORT [--user U] ...", every option included.
std::string UsageLine(const CommandSpec& spec);
// The usage line, the summary and one line per operand and option.
std::string Help(const CommandSpec& spec);
// For a command's own checks of what it was given: says why on stderr, with the usage line and
// where the help is, and returns kExitUsage.
int UsageError(const CommandSpec& spec, const std::string& why);

// args: what follows the command's words. Returns the exit status.
using CommandFn = std::function<int(const Args& args)>;

struct Command {
    CommandSpec spec;
    CommandFn run;
};

std::vector<Command>& Commands();

struct CommandRegistration {
    CommandRegistration(CommandSpec spec, CommandFn run) { Commands().push_back({std::move(spec), std::move(run)}); }
};

}  // namespace tool
