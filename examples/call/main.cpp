// A call between two connections of one process, through the installed library alone: start the
// engine, make two connections with an audio and a video line each, offer from one, answer from the
// other, wait until every line of both has media flowing in, print a report, stop.
//
//   mediasession_example [--timeout-ms N]
//
// Exit status: 0 when every line reported received media in time, 1 when one did not or a step
// failed, 2 on a wrong command line.
//
// Threads: everything here runs on the process's main thread, which registers itself as the
// library's main thread and pumps it. Sink announcements may also come from the library's network
// threads, so what a sink records sits behind its mutex.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <mediasession/ZynMediaEngine.h>

namespace {

using Clock = std::chrono::steady_clock;

// Values of OnSessionStatus: the line's transport is up, then its first RTP packet came in.
constexpr int kStatusConnected = 2;
constexpr int kStatusMediaReceived = 3;
// How long one signalling step (a description being produced) may take.
constexpr std::chrono::seconds kStepLimit{5};

struct Line {
    unsigned long mid;
    ZynSessionType type;
    const char* name;
};
constexpr Line kLines[] = {{0, ZynSessionType_Audio, "audio"}, {1, ZynSessionType_Video, "video"}};

// One side of the call: remembers the descriptions and statuses its connection announces.
class Side final : public IZynMediaConnectionSink {
public:
    explicit Side(const char* name) : name_(name) {}

    void OnSDPReady(ZynSdpType type, const char* sdp) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        (type == ZynSdpType_Offer ? offer_ : answer_) = sdp ? sdp : "";
    }

    void OnSessionStatus(unsigned long mid, ZynSessionType, int status) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        statuses_[mid].push_back(status);
    }

    void OnError(int code, void*) override { std::fprintf(stderr, "[%s] error 0x%08x\n", name_, unsigned(code)); }

    std::string Sdp(ZynSdpType type)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return type == ZynSdpType_Offer ? offer_ : answer_;
    }

    bool EveryLineReceives()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const Line& line : kLines) {
            const std::vector<int>& seen = statuses_[line.mid];
            bool received = false;
            for (int s : seen) received |= s == kStatusMediaReceived;
            if (!received) return false;
        }
        return true;
    }

    // {"side":"A","callId":N,"negotiation":3,"lines":[{"mid":0,"type":"audio","connected":true,
    //  "mediaReceived":true,"statuses":[2,3]},...]}
    std::string Report()
    {
        // Asked before the lock is taken: the library may be announcing to this sink meanwhile.
        const unsigned int callId = connection ? connection->GetMediaConnectionCallID() : 0;
        const int negotiation = connection ? connection->GetSDPStatus() : 0;
        std::lock_guard<std::mutex> lock(mutex_);
        std::string out = "{\"side\":\"" + std::string(name_) + "\"";
        out += ",\"callId\":" + std::to_string(callId) + ",\"negotiation\":" + std::to_string(negotiation);
        out += ",\"lines\":[";
        for (const Line& line : kLines) {
            const std::vector<int>& seen = statuses_[line.mid];
            bool connected = false, received = false;
            std::string list;
            for (int s : seen) {
                connected |= s == kStatusConnected;
                received |= s == kStatusMediaReceived;
                list += (list.empty() ? "" : ",") + std::to_string(s);
            }
            if (&line != kLines) out += ",";
            out += "{\"mid\":" + std::to_string(line.mid) + ",\"type\":\"" + line.name + "\"";
            out += std::string(",\"connected\":") + (connected ? "true" : "false");
            out += std::string(",\"mediaReceived\":") + (received ? "true" : "false");
            out += ",\"statuses\":[" + list + "]}";
        }
        return out + "]}";
    }

    IZynMediaConnection* connection = nullptr;

private:
    const char* name_;
    std::mutex mutex_;
    std::string offer_, answer_;
    std::map<unsigned long, std::vector<int>> statuses_;
};

// Runs the library's main-thread work until done() or the deadline.
template <class Done>
bool PumpUntil(Clock::time_point deadline, Done done)
{
    while (!done()) {
        if (Clock::now() >= deadline) return false;
        ZynPumpMainThread(10);
    }
    return true;
}

bool Check(const char* what, ZynResult r)
{
    if (ZYN_FAILED(r)) std::fprintf(stderr, "%s failed: 0x%08x\n", what, unsigned(r));
    return ZYN_SUCCEEDED(r);
}

// A offers, B answers, A applies the answer.
bool Negotiate(Side& a, Side& b)
{
    _tagSdpParsedInfo info[8] = {};
    int count = 8;
    if (!Check("A: create offer", a.connection->CreateOffer())) return false;
    if (!PumpUntil(Clock::now() + kStepLimit, [&] { return !a.Sdp(ZynSdpType_Offer).empty(); })) {
        std::fprintf(stderr, "A: no offer within %lld s\n", static_cast<long long>(kStepLimit.count()));
        return false;
    }
    const std::string offer = a.Sdp(ZynSdpType_Offer);
    if (!Check("B: set offer", b.connection->SetReceivedSDP(ZynSdpType_Offer, offer.c_str(), info, &count)) ||
        !Check("B: create answer", b.connection->CreateAnswer())) {
        return false;
    }
    if (!PumpUntil(Clock::now() + kStepLimit, [&] { return !b.Sdp(ZynSdpType_Answer).empty(); })) {
        std::fprintf(stderr, "B: no answer within %lld s\n", static_cast<long long>(kStepLimit.count()));
        return false;
    }
    const std::string answer = b.Sdp(ZynSdpType_Answer);
    count = 8;
    return Check("A: set answer", a.connection->SetReceivedSDP(ZynSdpType_Answer, answer.c_str(), info, &count));
}

bool ReadTimeout(int argc, char** argv, long& timeoutMs)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--timeout-ms") != 0 || i + 1 >= argc) return false;
        char* end = nullptr;
        timeoutMs = std::strtol(argv[++i], &end, 10);
        if (*end != '\0' || timeoutMs <= 0) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    long timeoutMs = 10000;
    if (!ReadTimeout(argc, argv, timeoutMs)) {
        std::fprintf(stderr, "usage: %s [--timeout-ms N]\n", argv[0]);
        return 2;
    }

    // Before anything else of the library: its main-thread work then runs inside our pumps.
    if (!Check("register the main thread", ZynRegisterMainThread())) return 1;
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);

    Side a("A"), b("B");
    bool ok = Check("create connection A", CreateMediaConnection(&a.connection, 0)) &&
              Check("create connection B", CreateMediaConnection(&b.connection, 0));
    for (Side* side : {&a, &b}) {
        if (!ok) break;
        side->connection->SetSink(side);
        for (const Line& line : kLines)
            ok &= Check("add a line", side->connection->AddMedia(line.type, ZynDirection_SendRecv, line.mid, nullptr));
    }
    ok = ok && Negotiate(a, b);

    bool media = false;
    if (ok) {
        media = PumpUntil(Clock::now() + std::chrono::milliseconds(timeoutMs),
                          [&] { return a.EveryLineReceives() && b.EveryLineReceives(); });
        if (!media) std::fprintf(stderr, "not every line received media within %ld ms\n", timeoutMs);
    }
    // The public interface offers no metrics document; what each line announced is the report.
    std::printf("{\"media\":%s,\"connections\":[%s,%s]}\n", media ? "true" : "false", a.Report().c_str(),
                b.Report().c_str());

    for (Side* side : {&a, &b}) {
        if (!side->connection) continue;
        side->connection->Stop();
        side->connection->Release();
        side->connection = nullptr;
    }
    ZynPumpMainThread(0);  // the clean-up that Stop posted
    UninitMediaEngine();   // on the main thread itself: the engine ends inline
    const bool ended = !ZynPumpMainThread(0);
    if (!ended) std::fprintf(stderr, "the library's main thread did not end\n");
    return ok && media && ended ? 0 : 1;
}
