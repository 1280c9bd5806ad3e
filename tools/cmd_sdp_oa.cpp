// `mediasession sdp offer|answer|negotiate`: one side of an offer/answer exchange, with the local
// capabilities read from a description file. Prints the SDP this side sends, or with --json the
// negotiated views of both sides in the summary shape of `sdp parse --json`.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "command.h"
#include "sdp/offer_answer.h"
#include "sdp_json.h"

namespace {

const tool::Option kJson{.name = "--json", .help = "print the negotiated views of both sides as JSON"};
const tool::Option kLocal{.name = "--local", .value = "FILE", .help = "this side's capabilities, as a description",
                          .required = true};

const tool::CommandSpec kOffer{
    .name = "sdp offer",
    .summary = "prints the offer this side sends",
    .options = {kLocal, kJson},
};
const tool::CommandSpec kAnswer{
    .name = "sdp answer",
    .summary = "prints this side's answer to the other side's offer",
    .options = {kLocal, {.name = "--offer", .value = "FILE", .help = "the offer received", .required = true}, kJson},
};
const tool::CommandSpec kNegotiate{
    .name = "sdp negotiate",
    .summary = "offers, applies the other side's answer and prints the offer",
    .options = {kLocal, {.name = "--answer", .value = "FILE", .help = "the answer received", .required = true}, kJson},
};

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
int run(const tool::Args& args, Fn&& fn)
{
    try {
        sdp::offer_answer oa(read_group(args.Value("--local")));
        std::string text = fn(oa);
        if (args.Has("--json")) std::cout << views_json(oa).dump() << "\n";
        else std::cout << text;
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}

int run_offer(const tool::Args& args)
{
    return run(args, [](sdp::offer_answer& oa) { return oa.get_offer(); });
}

int run_answer(const tool::Args& args)
{
    return run(args, [&](sdp::offer_answer& oa) { return oa.get_answer(read_file(args.Value("--offer"))); });
}

int run_negotiate(const tool::Args& args)
{
    return run(args, [&](sdp::offer_answer& oa) {
        std::string offer = oa.get_offer();
        oa.set_answer(read_file(args.Value("--answer")));
        return offer;
    });
}

tool::CommandRegistration reg_offer{kOffer, run_offer};
tool::CommandRegistration reg_answer{kAnswer, run_answer};
tool::CommandRegistration reg_negotiate{kNegotiate, run_negotiate};

}  // namespace
