// `mediasession sdp offer|answer|negotiate`: one side of an offer/answer exchange, with the local
// capabilities read from a description file. Prints the SDP this side sends, or with --json the
// negotiated views of both sides in the summary shape of `sdp parse --json`.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "command.h"
#include "sdp/offer_answer.h"
#include "sdp_json.h"

namespace {

const char* kOfferUsage = "sdp offer --local FILE [--json]";
const char* kAnswerUsage = "sdp answer --local FILE --offer FILE [--json]";
const char* kNegotiateUsage = "sdp negotiate --local FILE --answer FILE [--json]";

// --name VALUE options and the --json flag; false on anything else or a missing required option.
bool parse_options(const std::vector<std::string>& args, const std::vector<std::string>& required,
                   std::map<std::string, std::string>& values, bool& as_json)
{
    as_json = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json") {
            as_json = true;
            continue;
        }
        bool known = false;
        for (const auto& name : required)
            if (args[i] == "--" + name && i + 1 < args.size()) {
                values[name] = args[++i];
                known = true;
            }
        if (!known) return false;
    }
    for (const auto& name : required)
        if (!values.count(name)) return false;
    return true;
}

std::string read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("mediasession: cannot read '" + path + "'");
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

sdp::session_group read_group(const std::string& path)
{
    return sdp::session_group(sdp::session_description::create(read_file(path)));
}

tool::sdp_json views_json(const sdp::offer_answer& oa)
{
    auto view = [](const sdp::optional_value<sdp::session_group>& g) {
        return g.is_set() ? tool::sdp_group_json(g.get_data()) : tool::sdp_json(nullptr);
    };
    return {{"local", view(oa.get_local_negotiated())}, {"remote", view(oa.get_remote_negotiated())}};
}

// Runs one exchange; every refusal of the library (state or text) ends with status 2.
template <class Fn>
int run(const std::vector<std::string>& args, const char* usage, const std::vector<std::string>& required, Fn&& fn)
{
    std::map<std::string, std::string> values;
    bool as_json = false;
    if (!parse_options(args, required, values, as_json)) {
        std::fprintf(stderr, "usage: mediasession %s\n", usage);
        return 2;
    }
    try {
        sdp::offer_answer oa(read_group(values["local"]));
        std::string text = fn(oa, values);
        if (as_json) std::cout << views_json(oa).dump() << "\n";
        else std::cout << text;
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}

int run_offer(const std::vector<std::string>& args)
{
    return run(args, kOfferUsage, {"local"}, [](sdp::offer_answer& oa, auto&) { return oa.get_offer(); });
}

int run_answer(const std::vector<std::string>& args)
{
    return run(args, kAnswerUsage, {"local", "offer"},
               [](sdp::offer_answer& oa, auto& values) { return oa.get_answer(read_file(values["offer"])); });
}

int run_negotiate(const std::vector<std::string>& args)
{
    return run(args, kNegotiateUsage, {"local", "answer"}, [](sdp::offer_answer& oa, auto& values) {
        std::string offer = oa.get_offer();
        oa.set_answer(read_file(values["answer"]));
        return offer;
    });
}

tool::CommandRegistration reg_offer{"sdp offer", kOfferUsage, run_offer};
tool::CommandRegistration reg_answer{"sdp answer", kAnswerUsage, run_answer};
tool::CommandRegistration reg_negotiate{"sdp negotiate", kNegotiateUsage, run_negotiate};

}  // namespace
