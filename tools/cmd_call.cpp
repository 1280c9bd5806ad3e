// `mediasession version` and `mediasession call`: the main job, a call between two connections in
// one process, through the library's public API only.
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "call_exchange.h"
#include "command.h"
#include "mediasession/ZynMediaConfig.h"
#include "mediasession/ZynMediaEngine.h"

namespace {

constexpr const char* kCallUsage =
    "call [--sdp-only] [--media audio,video,share,audio-slide,application] [--insecure-logs] [--save DIR]";

int RunVersion(const std::vector<std::string>&)
{
    unsigned int v[4] = {};
    const char* build = nullptr;
    GetMediaEngineVersion(v, &build);
    std::printf("mediasession %u.%u.%u.%u (%s)\n", v[0], v[1], v[2], v[3], build ? build : "");
    return 0;
}

struct CallOptions {
    bool sdpOnly = false;
    std::vector<ZynSessionType> media{ZynSessionType_Audio, ZynSessionType_Video};
    tool::ExchangeOptions exchange;
};

bool ParseMedia(const std::string& list, std::vector<ZynSessionType>& out)
{
    out.clear();
    std::istringstream in(list);
    for (std::string item; std::getline(in, item, ',');) {
        if (item == "audio") out.push_back(ZynSessionType_Audio);
        else if (item == "video") out.push_back(ZynSessionType_Video);
        else if (item == "share") out.push_back(ZynSessionType_ScreenShare);
        else if (item == "audio-slide") out.push_back(ZynSessionType_AudioSlide);
        else if (item == "application") out.push_back(ZynSessionType_Application);
        else return false;
    }
    return !out.empty();
}

// 0: run; 1: bad usage; 2: help printed.
int ParseOptions(const std::vector<std::string>& args, CallOptions& options)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            std::printf("usage: mediasession %s\n", kCallUsage);
            return 2;
        }
        if (a == "--sdp-only") {
            options.sdpOnly = true;
        } else if (a == "--insecure-logs") {
            options.exchange.insecure = true;
        } else if (a == "--media" && i + 1 < args.size()) {
            if (!ParseMedia(args[++i], options.media)) return 1;
        } else if (a == "--save" && i + 1 < args.size()) {
            options.exchange.saveDir = args[++i];
        } else {
            return 1;
        }
    }
    options.exchange.printDescriptions = options.sdpOnly;
    return 0;
}

// Lines that send get a local track at once, announced through OnMediaReady.
int ExpectedMediaReady(const std::vector<ZynSessionType>& media)
{
    int n = 0;
    for (ZynSessionType t : media) n += t != ZynSessionType_Application;
    return n;
}

bool RunSides(IZynMediaConnection* a, tool::CallSide& sideA, IZynMediaConnection* b, tool::CallSide& sideB,
              const CallOptions& options)
{
    bool ok = true;
    for (auto [side, conn] : {std::pair{"A", a}, std::pair{"B", b}}) {
        const std::string tag = std::string(side) + ": ";
        if (options.exchange.insecure) conn->GetGlobalConfig()->EnableInsecureLogs(true);
        unsigned long mid = 0;
        for (ZynSessionType type : options.media) {
            const std::string what = tag + "add media type " + std::to_string(type) + " (mid " + std::to_string(mid) + ")";
            ok &= tool::Check(what.c_str(), conn->AddMedia(type, ZynDirection_SendRecv, mid++, nullptr));
        }
    }
    const int ready = ExpectedMediaReady(options.media);
    ok &= sideA.WaitMediaReady(ready) && sideB.WaitMediaReady(ready);
    return ok && tool::ExchangeDescriptions(a, sideA, b, sideB, options.exchange);
}

int RunCall(const std::vector<std::string>& args)
{
    CallOptions options;
    if (int parsed = ParseOptions(args, options); parsed != 0) {
        if (parsed == 1) std::fprintf(stderr, "usage: mediasession %s\n", kCallUsage);
        return parsed == 2 ? 0 : 2;
    }
    std::printf("initialising the engine\n");
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);

    bool ok = true;
    tool::CallSide sideA("A"), sideB("B");
    IZynMediaConnection* a = nullptr;
    IZynMediaConnection* b = nullptr;
    ok &= tool::Check("create connection A", CreateMediaConnection(&a, 0));
    ok &= tool::Check("create connection B", CreateMediaConnection(&b, 0));
    if (a && b) {
        std::printf("  call ids: A=%u B=%u\n", a->GetMediaConnectionCallID(), b->GetMediaConnectionCallID());
        a->SetSink(&sideA);
        b->SetSink(&sideB);
        ok &= RunSides(a, sideA, b, sideB, options);
    }
    std::printf("stopping\n");
    for (IZynMediaConnection* c : {a, b}) {
        if (!c) continue;
        c->Stop();
        c->Release();
    }
    UninitMediaEngine();
    std::printf("engine down: %s\n", ok ? "call completed" : "call FAILED");
    return ok ? 0 : 1;
}

tool::CommandRegistration g_version{"version", "version", RunVersion};
tool::CommandRegistration g_call{"call", kCallUsage, RunCall};

}  // namespace
