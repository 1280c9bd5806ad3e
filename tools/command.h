// Sub-command registry of the `mediasession` program. Each cmd_*.cpp registers its commands with a
// static CommandRegistration; main() dispatches on the first word(s) of the command line.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tool {

// args excludes the program name and the command words themselves. Returns the exit status.
using CommandFn = std::function<int(const std::vector<std::string>& args)>;

struct Command {
    std::string name;   // one or more words, e.g. "sdp parse"
    std::string usage;  // one line shown by `mediasession help`
    CommandFn run;
};

std::vector<Command>& Commands();

struct CommandRegistration {
    CommandRegistration(std::string name, std::string usage, CommandFn run)
    {
        Commands().push_back({std::move(name), std::move(usage), std::move(run)});
    }
};

}  // namespace tool
