// `mediasession ice-peer`: one side of an ICE session on loopback or LAN addresses, with the agent of
// the stack on real UDP sockets. The two sides trade their descriptions through files, each written
// whole (FILE.tmp, then a rename) and read once it is there; the same command line and output as the
// libnice and aioice peers of the interop tests, so any two of them can be paired.
//
// Prints the selected pair as one JSON line, {"local","remote","local_type","remote_type",
// "conclusion_ms"}, the time in ms from having both descriptions to the agent's conclusion. Then the
// two sides trade datagrams over that pair: "ice-peer data got=0" every 50 ms, "got=1" once the
// peer's has arrived; a side leaves when it has the other's datagram and hears got=1, or 1 s after
// the other's first datagram (the other side may still be concluding and drop early ones, hence the
// repeats). Exit 0 once a datagram of the peer arrived over the selected pair, 1 on failure or after
// 15 s, 2 on a bad command line.
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "ice_peer_agent.h"
#include "ice_peer_description.h"
#include "ice_peer_sockets.h"
#include "sockaddr_util.h"

namespace {

using namespace tool::ice_peer;
using Clock = std::chrono::steady_clock;

const tool::CommandSpec kSpec{
    .name = "ice-peer",
    .summary = "one side of an ICE session on real UDP sockets, descriptions traded through files; prints the "
               "selected pair as JSON, exit 1 when no datagram of the peer came over it",
    .options =
        {
            {.name = "--role", .help = "this side's ICE role", .choices = {"controlling", "controlled"},
             .required = true},
            {.name = "--out", .value = "FILE", .help = "where this side's description is written", .required = true},
            {.name = "--in", .value = "FILE", .help = "where the peer's description appears", .required = true},
            {.name = "--local", .value = "ADDR", .help = "a local address to gather on (default 127.0.0.1)",
             .repeated = true},
            {.name = "--verbose", .help = "the agent's whole log on standard error"},
        },
};

constexpr int64_t kGiveUpMs = 15000;
constexpr int64_t kResendMs = 50;
constexpr int64_t kLingerMs = 1000;
// How often the --in file is looked for while nothing else happens.
constexpr int kPollInMs = 5;

struct Options {
    bool controlling = false;
    std::string out, in;
    std::vector<std::string> locals;
    bool verbose = false;
};

Options ReadOptions(const tool::Args& args)
{
    Options o;
    o.controlling = args.Value("--role") == "controlling";
    o.out = args.Value("--out");
    o.in = args.Value("--in");
    o.locals = args.Values("--local");
    o.verbose = args.Has("--verbose");
    if (o.locals.empty()) o.locals.push_back("127.0.0.1");
    return o;
}

bool ReadFile(const std::string& path, std::string& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream s;
    s << in.rdbuf();
    text = s.str();
    return true;
}

// The datagram exchange over the selected pair, after the conclusion.
class Exchange {
public:
    explicit Exchange(const Agent::Pair& pair) : pair_(pair) {}

    // A datagram that is not STUN. Only what comes over the selected pair counts.
    void Arrived(const UdpSockets::Datagram& d, int64_t nowMs)
    {
        if (d.socket != pair_.socket ||
            !gatewalk::sockaddr_alike(reinterpret_cast<const sockaddr*>(&d.from),
                                      reinterpret_cast<const sockaddr*>(&pair_.remote))) {
            return;
        }
        if (!gotTheirs_) gotAtMs_ = nowMs;
        gotTheirs_ = true;
        static const std::string kAck = "got=1";
        if (d.bytes.size() >= kAck.size() &&
            std::equal(kAck.begin(), kAck.end(), d.bytes.end() - static_cast<long>(kAck.size()))) {
            theyGot_ = true;
        }
    }

    // Sends what is due; true when the exchange is over.
    bool Run(const UdpSockets& sockets, int64_t nowMs)
    {
        if (gotTheirs_ && (theyGot_ || nowMs - gotAtMs_ >= kLingerMs)) {
            Send(sockets);  // tells the peer that its datagram arrived too
            return true;
        }
        if (nowMs >= nextSendMs_) {
            Send(sockets);
            nextSendMs_ = nowMs + kResendMs;
        }
        return false;
    }
    bool GotTheirs() const { return gotTheirs_; }

private:
    void Send(const UdpSockets& sockets) const
    {
        const std::string text = gotTheirs_ ? "ice-peer data got=1" : "ice-peer data got=0";
        sockets.Send(pair_.socket, reinterpret_cast<const uint8_t*>(text.data()), text.size(),
                     reinterpret_cast<const sockaddr*>(&pair_.remote));
    }

    Agent::Pair pair_;
    bool gotTheirs_ = false, theyGot_ = false;
    int64_t gotAtMs_ = 0, nextSendMs_ = 0;
};

int RunIcePeer(const tool::Args& args)
{
    const Options o = ReadOptions(args);
    std::string error;
    const Clock::time_point begin = Clock::now();
    auto now = [&] { return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count(); };
    auto fail = [](const std::string& why) {
        std::fprintf(stderr, "ice-peer: %s\n", why.c_str());
        return 1;
    };

    UdpSockets sockets;
    for (const auto& local : o.locals) {
        if (!sockets.Open(local, error)) return tool::UsageError(kSpec, error);
    }
    Agent agent(sockets, o.controlling, o.verbose ? gatewalk::ICELIB_logAll : gatewalk::ICELIB_logWarning);
    if (!agent.Init(error)) return fail(error);
    if (!WriteAtomically(o.out, Format(agent.LocalDescription()))) return fail("cannot write " + o.out);

    std::vector<UdpSockets::Datagram> in, early;
    int64_t bothKnownMs = -1, concludedMs = -1;
    while (!agent.Concluded()) {
        if (now() >= kGiveUpMs) return fail("no conclusion within 15 s");
        in.clear();
        sockets.Receive(bothKnownMs < 0 ? kPollInMs : agent.MsToNextTick(now()), in);
        for (const auto& d : in) {
            if (agent.Handle(d, now())) early.push_back(d);  // data before our conclusion
        }
        if (bothKnownMs < 0) {
            std::string text;
            if (!ReadFile(o.in, text)) continue;
            Description remote;
            if (!Parse(text, remote, error)) return fail(o.in + ": " + error);
            bothKnownMs = now();
            if (!agent.Start(remote, bothKnownMs, error)) return fail(error);
        }
        agent.Advance(now());
    }
    concludedMs = now();
    Agent::Pair pair;
    if (agent.Failed() || !agent.Selected(pair)) return fail("ICE failed");

    nlohmann::ordered_json out;
    out["local"] = AddressText(pair.local);
    out["remote"] = AddressText(pair.remote);
    out["local_type"] = pair.localType;
    out["remote_type"] = pair.remoteType;
    out["conclusion_ms"] = concludedMs - bothKnownMs;
    std::cout << out.dump() << std::endl;

    Exchange exchange(pair);
    for (const auto& d : early) exchange.Arrived(d, now());
    while (!exchange.Run(sockets, now())) {
        if (now() >= kGiveUpMs) return fail("no datagram from the peer within 15 s");
        in.clear();
        // The agent keeps answering checks: the peer may not have concluded yet.
        sockets.Receive(agent.MsToNextTick(now()), in);
        for (const auto& d : in) {
            if (agent.Handle(d, now())) exchange.Arrived(d, now());
        }
        agent.Advance(now());
    }
    return exchange.GotTheirs() ? 0 : 1;
}

const tool::CommandRegistration reg{kSpec, RunIcePeer};

}  // namespace
