// `mediasession diag dns|trace|reach`: what a user runs to see why a call cannot connect.
// Each prints a JSON document on stdout and exits 0 when it got an answer; otherwise 1 with the
// reason on stderr (2 for wrong use).
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "mediasession/ZynDiagnostics.h"
#include "tp/CmDns.h"

namespace {

using json = nlohmann::ordered_json;

const tool::CommandSpec kDns{
    .name = "diag dns",
    .summary = "one lookup through the platform's resolver, A and AAAA unless --family says; exit 1 when no "
               "address came",
    .operands = {.name = "NAME", .help = "the name to look up", .min = 1, .max = 1},
    .options =
        {
            {.name = "--server", .value = "ADDR:PORT", .help = "ask this server, not the system's"},
            {.name = "--family", .help = "only this family", .choices = {"4", "6"}},
        },
};
const tool::CommandSpec kTrace{
    .name = "diag trace",
    .summary = "the library's route trace towards a STUN server; exit 1 when the server did not answer",
    .operands = {.name = "HOST:PORT", .help = "the server", .min = 1, .max = 1},
    .options =
        {
            {.name = "--max-ttl", .value = "N", .help = "hops tried at most (default 30)"},
            {.name = "--wait-ms", .value = "N", .help = "how long each probe waits (default 1000)"},
            {.name = "--per-sec", .value = "N", .help = "probes sent per second at most (default 10)"},
        },
};
const tool::CommandSpec kReach{
    .name = "diag reach",
    .summary = "which servers of a cluster list answer, by each transport; exit 1 when none did",
    .operands = {.name = "FILE", .help = "the cluster list, JSON", .min = 1, .max = 1},
    .options =
        {
            {.name = "--timeout-ms", .value = "N", .help = "the whole test's budget (default 20000)"},
            {.name = "--probe-timeout-ms", .value = "N", .help = "one probe's (default 3000)"},
            {.name = "--per-sec", .value = "N", .help = "route-trace probes per second at most (default 50)"},
            {.name = "--ca-file", .value = "F", .help = "certificates that TLS servers are checked against"},
            {.name = "--insecure", .help = "no check of TLS servers' certificates"},
        },
};

// The option's value as a positive number, or the fallback when it was not given; false (with the
// reason) for anything else.
bool PositiveNumber(const tool::Args& args, const std::string& option, int& out, std::string& error)
{
    if (!args.Has(option)) return true;
    const std::string value = args.Value(option);
    size_t used = 0;
    int n = -1;
    try {
        n = std::stoi(value, &used);
    } catch (...) {
        used = 0;
    }
    if (used != value.size() || n <= 0) {
        error = option + " takes a positive number";
        return false;
    }
    out = n;
    return true;
}

// "HOST:PORT" or "[V6]:PORT"; false when the port is missing or not a port.
bool SplitHostPort(const std::string& text, std::string& host, unsigned short& port)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return false;
    host = text.substr(0, colon);
    if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    const std::string digits = text.substr(colon + 1);
    if (digits.empty() || digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos) return false;
    const int value = std::stoi(digits);
    if (value <= 0 || value > 65535) return false;
    port = static_cast<unsigned short>(value);
    return !host.empty();
}

// Waits for a sink's one callback.
struct Waiter {
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    std::string text;
    bool ok = false;

    void Set(bool success, const char* document)
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        ok = success;
        text = document ? document : "";
        cv.notify_all();
    }
    bool Wait(int timeoutMs)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return done; });
    }
};

// ---- diag dns --------------------------------------------------------------------------------

template <class Manager>
json LookUp(const std::string& name, const CmDnsSettings& settings, std::string& failure)
{
    Manager manager(settings);
    CCmDnsRecord* record = nullptr;
    const CmResult rv = manager.SyncResolve(record, name);
    json out;
    out["family"] = manager.GetFamily() == AF_INET6 ? 6 : 4;
    json addresses = json::array();
    if (record && rv == CM_OK) {
        for (const auto& a : record->GetAddresses()) addresses.push_back(a.GetIpDisplayName());
        out["ttl"] = record->GetTtlSeconds();
        CCmInetAddr prefix;
        int length = 0;
        if (CmFindNat64Prefix(record->GetAddresses(), prefix, length))
            out["nat64"] = {{"prefix", prefix.GetIpDisplayName()}, {"length", length}};
    } else {
        const std::string why = rv == CM_ERROR_INVALID_ARG ? "not a host name"
                                : record                   ? record->GetErrorText()
                                                           : "lookup failed";
        out["error"] = why;
        if (!failure.empty()) failure += "; ";
        failure += (manager.GetFamily() == AF_INET6 ? "AAAA: " : "A: ") + why;
    }
    out["addresses"] = addresses;
    if (record) record->ReleaseReference();
    return out;
}

int RunDns(const tool::Args& args)
{
    const std::string server = args.Value("--server");
    const std::string name = args.Operands()[0];
    const int family = std::atoi(args.Value("--family", "0").c_str());
    CmDnsSettings settings;
    settings.servers = server;
    if (!server.empty()) {
        // Let the resolver judge the address before any lookup.
        CCmDnsManager probe;
        if (probe.SetSettings(settings) != CM_OK) return tool::UsageError(kDns, "not a server address: " + server);
    }
    json out;
    out["name"] = name;
    out["server"] = server.empty() ? json("system") : json(server);
    json answers = json::array();
    std::string failure;
    size_t found = 0;
    if (family != 6) answers.push_back(LookUp<CCmDnsManager>(name, settings, failure));
    if (family != 4) answers.push_back(LookUp<CCmDns6Manager>(name, settings, failure));
    for (const auto& a : answers) found += a["addresses"].size();
    out["answers"] = answers;
    std::cout << out.dump(2) << std::endl;
    if (found == 0) {
        std::fprintf(stderr, "diag dns: %s: %s\n", name.c_str(), failure.c_str());
        return 1;
    }
    return 0;
}

// ---- diag trace ------------------------------------------------------------------------------

struct TraceSink final : IZynStunTraceSink, Waiter {
    void OnStunTraceResult(ZynResult result, const char* document) override { Set(result == ZYN_S_OK, document); }
};

// Why a trace that did not reach the server ended, from its last hop.
std::string TraceFailure(const json& doc)
{
    if (!doc.contains("trace") || doc["trace"].empty()) return "no probe could be sent";
    const json& last = doc["trace"].back();
    const std::string result = last.value("result", "");
    const std::string at = " at hop " + std::to_string(last.value("ttl", 0));
    if (result == "server_unreachable") return "the server's host refused the port (ICMP" + at + ")";
    if (result == "path_unreachable") return "unreachable, said " + last.value("dest", std::string("?")) + at;
    if (result == "error") return "local socket error" + at;
    return "no answer from the server within " + std::to_string(last.value("ttl", 0)) + " hops";
}

int RunTrace(const tool::Args& args)
{
    int maxTtl = 30, waitMs = 1000, perSec = 10;
    std::string error;
    if (!PositiveNumber(args, "--max-ttl", maxTtl, error) || !PositiveNumber(args, "--wait-ms", waitMs, error) ||
        !PositiveNumber(args, "--per-sec", perSec, error)) {
        return tool::UsageError(kTrace, error);
    }
    const std::string target = args.Operands()[0];
    std::string host;
    unsigned short port = 0;
    if (!SplitHostPort(target, host, port)) return tool::UsageError(kTrace, "not HOST:PORT: " + target);

    TraceSink sink;
    SetStunTraceSink(&sink);
    _tagZynStunTraceParam param;
    param.serverHost = host.c_str();
    param.serverPort = port;
    param.networkType = "cli";
    param.maxTtl = maxTtl;
    param.probeWaitMs = waitMs;
    param.probesPerSecond = perSec;
    const ZynResult rv = StartStunTrace(&param);
    if (rv != ZYN_S_OK) {
        SetStunTraceSink(nullptr);
        std::fprintf(stderr, "diag trace: the trace did not start (0x%08x)\n", static_cast<unsigned>(rv));
        return 1;
    }
    // Two targets, each at most maxTtl probes of waitMs, plus name lookups.
    const int boundMs = 2 * maxTtl * (waitMs + 1000 / perSec) + 10000;
    const bool done = sink.Wait(boundMs);
    SetStunTraceSink(nullptr);
    if (!done) {
        std::fprintf(stderr, "diag trace: no result within %d ms\n", boundMs);
        return 1;
    }
    const json doc = json::parse(sink.text, nullptr, false);
    std::cout << (doc.is_discarded() ? sink.text : doc.dump(2)) << std::endl;
    if (sink.ok) return 0;
    std::fprintf(stderr, "diag trace: %s: %s\n", target.c_str(),
                 doc.is_discarded() ? "no result" : TraceFailure(doc).c_str());
    return 1;
}

// ---- diag reach ------------------------------------------------------------------------------

struct ReachSink final : IZynTraceServerSink, Waiter {
    void OnTraceServerResult(bool isCompleted, const char* document) override { Set(isCompleted, document); }
};

int RunReach(const tool::Args& args)
{
    int timeoutMs = 20000, probeTimeoutMs = 3000, perSec = 50;
    std::string error;
    if (!PositiveNumber(args, "--timeout-ms", timeoutMs, error) ||
        !PositiveNumber(args, "--probe-timeout-ms", probeTimeoutMs, error) ||
        !PositiveNumber(args, "--per-sec", perSec, error)) {
        return tool::UsageError(kReach, error);
    }
    const std::string caFile = args.Value("--ca-file");
    const bool insecure = args.Has("--insecure");
    const std::string path = args.Operands()[0];
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "diag reach: cannot read %s\n", path.c_str());
        return 1;
    }
    std::ostringstream content;
    content << file.rdbuf();
    const std::string text = content.str();

    json options = {{"numStunTracePerSec", perSec},
                    {"probeTimeoutMs", probeTimeoutMs},
                    {"totalTimeoutMs", timeoutMs},
                    {"tlsVerifyPeer", !insecure},
                    {"tlsCaFile", caFile}};
    if (const char* servers = std::getenv("MEDIASESSION_DNS_SERVERS")) options["dnsServers"] = servers;
    SetTraceServerOption(options.dump().c_str());
    ReachSink sink;
    SetTraceServerSink(&sink);
    const ZynResult rv = StartTraceServer(text.c_str(), static_cast<long>(text.size()));
    if (rv != ZYN_S_OK) {
        SetTraceServerSink(nullptr);
        std::fprintf(stderr, "diag reach: %s: %s\n", path.c_str(),
                     rv == ZYN_E_INVALIDARG ? "not a cluster list (or no usable URI in it)" : "a test is already running");
        return 1;
    }
    const bool done = sink.Wait(timeoutMs + 5000);
    SetTraceServerSink(nullptr);
    if (!done) {
        StopTraceServer();
        std::fprintf(stderr, "diag reach: no result within %d ms\n", timeoutMs + 5000);
        return 1;
    }
    const json doc = json::parse(sink.text, nullptr, false);
    std::cout << (doc.is_discarded() ? sink.text : doc.dump(2)) << std::endl;
    bool reachable = false;
    if (!doc.is_discarded())
        for (const auto& [name, cluster] : doc.items())
            for (const auto& [transport, state] : cluster.items())
                reachable = reachable || (state.is_object() && state.value("reachable", "") == "true");
    if (reachable) return 0;
    std::fprintf(stderr, "diag reach: no server of %s answered%s\n", path.c_str(),
                 sink.ok ? "" : " within the time budget");
    return 1;
}

const tool::CommandRegistration regDns{kDns, RunDns};
const tool::CommandRegistration regTrace{kTrace, RunTrace};
const tool::CommandRegistration regReach{kReach, RunReach};

}  // namespace
