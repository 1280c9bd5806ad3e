// `mediasession version` and `mediasession call`: the main job, a call between two connections in
// one process, through the library's public API only.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

#include "command.h"
#include "mediasession/ZynMediaEngine.h"

namespace {

int RunVersion(const std::vector<std::string>&)
{
    unsigned int v[4] = {};
    const char* build = nullptr;
    GetMediaEngineVersion(v, &build);
    std::printf("mediasession %u.%u.%u.%u (%s)\n", v[0], v[1], v[2], v[3], build ? build : "");
    return 0;
}

// Prints what the library tells one side, and counts the ready tracks.
class PrintingSink final : public IZynMediaConnectionSink {
public:
    explicit PrintingSink(const char* name) : m_name(name) {}

    void OnMediaReady(unsigned long mid, ZynDirection direction, ZynSessionType type, IZynMediaTrackBase*) override
    {
        std::printf("[%s] media ready: mid=%lu type=%d direction=%d\n", m_name, mid, type, direction);
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_ready;
        m_changed.notify_all();
    }
    void OnSDPReady(ZynSdpType type, const char* sdp) override
    {
        std::printf("[%s] %s ready (%zu bytes)\n", m_name, type == ZynSdpType_Offer ? "offer" : "answer",
                    sdp ? std::string(sdp).size() : 0);
    }
    void OnError(int code, void*) override { std::printf("[%s] error 0x%08x\n", m_name, code); }

    bool WaitReady(int count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_ready >= count; });
    }

private:
    const char* m_name;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_ready = 0;
};

bool Check(const char* what, ZynResult r)
{
    std::printf("  %-32s 0x%08x %s\n", what, static_cast<unsigned int>(r), ZYN_SUCCEEDED(r) ? "ok" : "FAILED");
    return ZYN_SUCCEEDED(r);
}

int RunCall(const std::vector<std::string>& args)
{
    for (const auto& a : args) {
        if (a == "-h" || a == "--help") {
            std::printf("usage: mediasession call\n");
            return 0;
        }
    }
    std::printf("initialising the engine\n");
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);

    bool ok = true;
    PrintingSink sinkA("A"), sinkB("B");
    IZynMediaConnection* a = nullptr;
    IZynMediaConnection* b = nullptr;
    ok &= Check("create connection A", CreateMediaConnection(&a, 0));
    ok &= Check("create connection B", CreateMediaConnection(&b, 0));
    if (a && b) {
        std::printf("  call ids: A=%u B=%u\n", a->GetMediaConnectionCallID(), b->GetMediaConnectionCallID());
        a->SetSink(&sinkA);
        b->SetSink(&sinkB);
        for (auto [side, conn] : {std::pair{"A", a}, std::pair{"B", b}}) {
            std::string tag = std::string(side) + ": ";
            ok &= Check((tag + "add audio (mid 0)").c_str(), conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr));
            ok &= Check((tag + "add video (mid 1)").c_str(), conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 1, nullptr));
        }
        ok &= sinkA.WaitReady(2) && sinkB.WaitReady(2);
        ok &= Check("A: create offer", a->CreateOffer());
        std::printf("  negotiation state: A=%d B=%d\n", a->GetSDPStatus(), b->GetSDPStatus());
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
tool::CommandRegistration g_call{"call", "call                       a call between two connections in one process", RunCall};

}  // namespace
