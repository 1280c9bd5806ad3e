// Reading a command line against a command's table, and the help printed from the same table.
// Threads: the program's main thread only.
#include "command.h"

#include <algorithm>
#include <cstdio>

namespace tool {

namespace {

// Labels longer than this get their help on a line of their own.
constexpr std::size_t kLabelColumn = 26;

std::string ValueName(const Option& o)
{
    if (o.choices.empty()) return o.value;
    std::string joined;
    for (const auto& c : o.choices) joined += (joined.empty() ? "" : "|") + c;
    return joined;
}

bool IsFlag(const Option& o) { return o.value.empty() && o.choices.empty(); }

std::string Label(const Option& o) { return IsFlag(o) ? o.name : o.name + " " + ValueName(o); }

const Option* Find(const CommandSpec& spec, const std::string& name)
{
    for (const auto& o : spec.options)
        if (o.name == name) return &o;
    return nullptr;
}

void AddRow(std::string& out, const std::string& label, const std::string& help)
{
    out += "  " + label;
    if (label.size() >= kLabelColumn) out += "\n" + std::string(kLabelColumn + 2, ' ');
    else out += std::string(kLabelColumn - label.size(), ' ');
    out += "  " + help + "\n";
}

}  // namespace

bool Args::Has(const std::string& option) const
{
    return std::any_of(given_.begin(), given_.end(), [&](const auto& g) { return g.first == option; });
}

std::string Args::Value(const std::string& option, const std::string& fallback) const
{
    for (auto it = given_.rbegin(); it != given_.rend(); ++it)
        if (it->first == option) return it->second;
    return fallback;
}

std::vector<std::string> Args::Values(const std::string& option) const
{
    std::vector<std::string> values;
    for (const auto& [name, value] : given_)
        if (name == option) values.push_back(value);
    return values;
}

Reading Reading::Of(const CommandSpec& spec, const std::vector<std::string>& words)
{
    Reading r;
    auto wrong = [&r](std::string why) {
        r.outcome = kWrong;
        r.error = std::move(why);
        return r;
    };
    bool optionsOver = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        if (!optionsOver && w == "--") {
            optionsOver = true;
            continue;
        }
        // "-" alone names standard input.
        if (optionsOver || w.size() < 2 || w[0] != '-') {
            r.args.operands_.push_back(w);
            continue;
        }
        if (w == "-h" || w == "--help") {
            r.outcome = kHelp;
            return r;
        }
        const std::size_t equals = w.rfind("--", 0) == 0 ? w.find('=') : std::string::npos;
        const std::string name = w.substr(0, equals);
        const Option* o = Find(spec, name);
        if (!o) return wrong("unknown option '" + name + "'");
        if (IsFlag(*o)) {
            if (equals != std::string::npos) return wrong(name + " takes no value");
            r.args.given_.emplace_back(name, "");
            continue;
        }
        std::string value;
        if (equals != std::string::npos) value = w.substr(equals + 1);
        else if (i + 1 < words.size()) value = words[++i];
        else return wrong(name + " needs a value (" + ValueName(*o) + ")");
        if (!o->choices.empty() && std::find(o->choices.begin(), o->choices.end(), value) == o->choices.end()) {
            std::string list;
            for (const auto& c : o->choices) list += (list.empty() ? "" : ", ") + c;
            return wrong(name + " is one of " + list + ", not '" + value + "'");
        }
        r.args.given_.emplace_back(name, value);
    }
    for (const auto& o : spec.options)
        if (o.required && !r.args.Has(o.name)) return wrong(o.name + " is required");
    const auto& operands = r.args.operands_;
    if (operands.size() > spec.operands.max) return wrong("unexpected argument '" + operands[spec.operands.max] + "'");
    if (operands.size() < spec.operands.min) return wrong(spec.operands.name + " is missing");
    return r;
}

std::string UsageLine(const CommandSpec& spec)
{
    std::string line = spec.name;
    for (const auto& o : spec.options) {
        const std::string label = Label(o);
        line += " " + (o.required ? label : "[" + label + "]") + (o.repeated ? "..." : "");
    }
    const Operands& operands = spec.operands;
    if (operands.max > 0) {
        const std::string many = operands.max > 1 ? "..." : "";
        line += " " + (operands.min > 0 ? operands.name + many : "[" + operands.name + "]" + many);
    }
    return line;
}

std::string Help(const CommandSpec& spec)
{
    std::string out = "usage: mediasession " + UsageLine(spec) + "\n\n" + spec.summary + "\n\n";
    if (spec.operands.max > 0) AddRow(out, spec.operands.name, spec.operands.help);
    for (const auto& o : spec.options) {
        std::string help = o.help;
        if (o.required) help += " (required)";
        if (o.repeated) help += " (may be repeated)";
        AddRow(out, Label(o), help);
    }
    AddRow(out, "-h, --help", "print this help");
    return out;
}

int UsageError(const CommandSpec& spec, const std::string& why)
{
    std::fprintf(stderr, "mediasession %s: %s\nusage: mediasession %s\n(mediasession %s --help says more)\n",
                 spec.name.c_str(), why.c_str(), UsageLine(spec).c_str(), spec.name.c_str());
    return kExitUsage;
}

std::vector<Command>& Commands()
{
    static std::vector<Command> commands;
    return commands;
}

}  // namespace tool
