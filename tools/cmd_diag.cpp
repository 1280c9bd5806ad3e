// `mediasession diag ...`: what a user runs to see why a call cannot connect.
//   diag dns NAME [--server ADDR:PORT] [--family 4|6]     one lookup through the platform's resolver
//   diag trace HOST:PORT [--max-ttl N] [--wait-ms N] [--per-sec N]   the route trace of the library
//   diag reach FILE [--timeout-ms N] [--probe-timeout-ms N] [--per-sec N] [--ca-file F] [--insecure]
// Each prints a JSON document on stdout and exits 0 when it got an answer; otherwise 1 with the
// reason on stderr (2 for wrong use).
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "mediasession/ZynDiagnostics.h"
#include "tp/CmDns.h"

namespace {

using json = nlohmann::ordered_json;

constexpr const char* kDnsUsage = "diag dns NAME [--server ADDR:PORT] [--family 4|6]";
constexpr const char* kTraceUsage = "diag trace HOST:PORT [--max-ttl N] [--wait-ms N] [--per-sec N]";
constexpr const char* kReachUsage =
    "diag reach FILE [--timeout-ms N] [--probe-timeout-ms N] [--per-sec N] [--ca-file F] [--insecure]";

// Reads "--name value" pairs and flags into a table; one positional argument.
struct ArgTable {
    std::map<std::string, int*> numbers;
    std::map<std::string, std::string*> texts;
    std::map<std::string, bool*> flags;
    std::string positional;

    bool Parse(const std::vector<std::string>& args, std::string& error)
    {
        for (size_t i = 0; i < args.size(); ++i) {
            const std::string& a = args[i];
            if (auto f = flags.find(a); f != flags.end()) {
                *f->second = true;
                continue;
            }
            const bool isNumber = numbers.count(a) != 0, isText = texts.count(a) != 0;
            if (isNumber || isText) {
                if (i + 1 >= args.size()) {
                    error = a + " needs a value";
                    return false;
                }
                const std::string& value = args[++i];
                if (isText) {
                    *texts[a] = value;
                    continue;
                }
                size_t used = 0;
                int n = -1;
                try {
                    n = std::stoi(value, &used);
                } catch (...) {
                    used = 0;
                }
                if (used != value.size() || n <= 0) {
                    error = a + " takes a positive number";
                    return false;
                }
                *numbers[a] = n;
                continue;
            }
            if (positional.empty() && !a.empty() && a[0] != '-') {
                positional = a;
                continue;
            }
            error = "unexpected argument: " + a;
            return false;
        }
        return true;
    }
};

int Usage(const char* command, const std::string& why, const char* usage)
{
    std::fprintf(stderr, "%s: %s\nusage: mediasession %s\n", command, why.c_str(), usage);
    return 2;
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

int RunDns(const std::vector<std::string>& args)
{
    std::string server;
    int family = 0;
    ArgTable table;
    table.texts["--server"] = &server;
    table.numbers["--family"] = &family;
    std::string error;
    if (!table.Parse(args, error)) return Usage("diag dns", error, kDnsUsage);
    if (table.positional.empty()) return Usage("diag dns", "no name given", kDnsUsage);
    if (family != 0 && family != 4 && family != 6) return Usage("diag dns", "--family is 4 or 6", kDnsUsage);
    CmDnsSettings settings;
    settings.servers = server;
    if (!server.empty()) {
        // Let the resolver judge the address before any lookup.
        CCmDnsManager probe;
        if (probe.SetSettings(settings) != CM_OK) return Usage("diag dns", "not a server address: " + server, kDnsUsage);
    }
    json out;
    out["name"] = table.positional;
    out["server"] = server.empty() ? json("system") : json(server);
    json answers = json::array();
    std::string failure;
    size_t found = 0;
    if (family != 6) answers.push_back(LookUp<CCmDnsManager>(table.positional, settings, failure));
    if (family != 4) answers.push_back(LookUp<CCmDns6Manager>(table.positional, settings, failure));
    for (const auto& a : answers) found += a["addresses"].size();
    out["answers"] = answers;
    std::cout << out.dump(2) << std::endl;
    if (found == 0) {
        std::fprintf(stderr, "diag dns: %s: %s\n", table.positional.c_str(), failure.c_str());
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

int RunTrace(const std::vector<std::string>& args)
{
    int maxTtl = 30, waitMs = 1000, perSec = 10;
    ArgTable table;
    table.numbers["--max-ttl"] = &maxTtl;
    table.numbers["--wait-ms"] = &waitMs;
    table.numbers["--per-sec"] = &perSec;
    std::string error;
    if (!table.Parse(args, error)) return Usage("diag trace", error, kTraceUsage);
    std::string host;
    unsigned short port = 0;
    if (!SplitHostPort(table.positional, host, port))
        return Usage("diag trace", "not HOST:PORT: " + table.positional, kTraceUsage);

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
    std::fprintf(stderr, "diag trace: %s: %s\n", table.positional.c_str(),
                 doc.is_discarded() ? "no result" : TraceFailure(doc).c_str());
    return 1;
}

// ---- diag reach ------------------------------------------------------------------------------

struct ReachSink final : IZynTraceServerSink, Waiter {
    void OnTraceServerResult(bool isCompleted, const char* document) override { Set(isCompleted, document); }
};

int RunReach(const std::vector<std::string>& args)
{
    int timeoutMs = 20000, probeTimeoutMs = 3000, perSec = 50;
    std::string caFile;
    bool insecure = false;
    ArgTable table;
    table.numbers["--timeout-ms"] = &timeoutMs;
    table.numbers["--probe-timeout-ms"] = &probeTimeoutMs;
    table.numbers["--per-sec"] = &perSec;
    table.texts["--ca-file"] = &caFile;
    table.flags["--insecure"] = &insecure;
    std::string error;
    if (!table.Parse(args, error)) return Usage("diag reach", error, kReachUsage);
    if (table.positional.empty()) return Usage("diag reach", "no file given", kReachUsage);
    std::ifstream file(table.positional, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "diag reach: cannot read %s\n", table.positional.c_str());
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
        std::fprintf(stderr, "diag reach: %s: %s\n", table.positional.c_str(),
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
    std::fprintf(stderr, "diag reach: no server of %s answered%s\n", table.positional.c_str(),
                 sink.ok ? "" : " within the time budget");
    return 1;
}

const tool::CommandRegistration regDns{"diag dns", kDnsUsage, RunDns};
const tool::CommandRegistration regTrace{"diag trace", kTraceUsage, RunTrace};
const tool::CommandRegistration regReach{"diag reach", kReachUsage, RunReach};

}  // namespace
