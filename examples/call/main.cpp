// A call between two connections of one process, through the installed library alone: start the
// engine, make two connections with ICE, DTLS-SRTP and an audio and a video line each, offer from
// one, answer from the other, wait until every line of both has media flowing in, print what each
// line announced and what the library counted of it as one JSON line, stop.
//
//   mediasession_example [--timeout-ms N]
//
// Exit status: 0 when every line reported received media in time, 1 when one did not or a step
// failed, 2 on a wrong command line.
//
// Threads: everything here runs on the process's main thread, which registers itself as the
// library's main thread and pumps it. Sink announcements may also come from the library's network
// threads, so what a sink records sits behind its mutex.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <mediasession/ZynMediaConfig.h>
#include <mediasession/ZynMediaEngine.h>

namespace {

using Clock = std::chrono::steady_clock;

// Value of OnSessionStatus once a line's first RTP packet came in (2 before it: the path is up).
constexpr int kStatusMediaReceived = 3;
// How long one signalling step (a description being produced) may take.
constexpr std::chrono::seconds kStepLimit{5};

struct Line {
    unsigned long mid;
    ZynSessionType type;
    const char* name;
};
constexpr Line kLines[] = {{0, ZynSessionType_Audio, "audio"}, {1, ZynSessionType_Video, "video"}};

std::string Quoted(const char* text)
{
    std::string out = "\"";
    for (const char* c = text; *c; ++c) {
        if (*c == '"' || *c == '\\') out += '\\';
        if (static_cast<unsigned char>(*c) >= 0x20) out += *c;
    }
    return out + "\"";
}

// What the library counts of a line's path and flow, as JSON; null when it has nothing.
std::string PathJson(IZynMediaConnection* connection, const Line& line)
{
    // Connections made by CreateMediaConnection answer the statistics calls of the wider interface.
    auto* stats = static_cast<IZynMediaConnection4T*>(connection);
    _tagMediaPathStatistics p{};
    ZynResult r = ZYN_E_FAIL;
    if (line.type == ZynSessionType_Video) {
        _tagVideoConnectionStatistics v{};
        r = stats->GetVideoStatistics(line.mid, v);
        p = v.path;
    } else {
        _tagAudioConnectionStatistics a{};
        r = stats->GetAudioStatistics(line.mid, a);
        p = a.path;
    }
    if (ZYN_FAILED(r)) return "null";
    char numbers[512];
    std::snprintf(numbers, sizeof numbers,
                  "\"packetsSent\":%llu,\"packetsReceived\":%llu,\"bytesSent\":%llu,\"bytesReceived\":%llu,"
                  "\"packetsLost\":%lld,\"lossPercent\":%.2f,\"jitterMs\":%.2f,\"rttMs\":%.2f,\"connectMs\":%u,"
                  "\"srtpFailures\":%llu",
                  static_cast<unsigned long long>(p.packetsSent), static_cast<unsigned long long>(p.packetsReceived),
                  static_cast<unsigned long long>(p.bytesSent), static_cast<unsigned long long>(p.bytesReceived),
                  static_cast<long long>(p.packetsLost), p.lossPercent, p.jitterMs, p.rttMs, p.connectMs,
                  static_cast<unsigned long long>(p.srtpFailures));
    return "{\"local\":" + Quoted(p.localAddress) + ",\"remote\":" + Quoted(p.remoteAddress) +
           ",\"candidateType\":" + Quoted(p.candidateType) + ",\"srtpSuite\":" + Quoted(p.srtpSuite) + "," +
           numbers + "}";
}

// One side of the call: remembers the descriptions and statuses its connection announces.
class Side final : public IZynMediaConnectionSink {
public:
    explicit Side(const char* name) : name_(name) {}
    ~Side() override
    {
        for (IZynMediaTrackBase* track : tracks_) track->Release();
    }

    // Each stream starts once the application has its handle.
    void OnMediaReady(unsigned long, ZynDirection, ZynSessionType, IZynMediaTrackBase* track) override
    {
        if (!track) return;
        track->AddRef();
        tracks_.push_back(track);
        track->Start(false);
    }

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
        for (const Line& line : kLines)
            if (!Received(line.mid)) return false;
        return true;
    }

    // {"side":"A","callId":N,"negotiation":3,"lines":[{"mid":0,"type":"audio","statuses":[1,2,3],
    //  "mediaReceived":true,"statistics":{...}},...]}
    std::string Report()
    {
        // Asked before the lock is taken: the library may be announcing to this sink meanwhile.
        const unsigned int callId = connection ? connection->GetMediaConnectionCallID() : 0;
        const int negotiation = connection ? connection->GetSDPStatus() : 0;
        std::vector<std::string> statistics;
        for (const Line& line : kLines) statistics.push_back(connection ? PathJson(connection, line) : "null");
        std::lock_guard<std::mutex> lock(mutex_);
        std::string out = "{\"side\":\"" + std::string(name_) + "\"";
        out += ",\"callId\":" + std::to_string(callId) + ",\"negotiation\":" + std::to_string(negotiation);
        out += ",\"lines\":[";
        for (std::size_t i = 0; i < std::size(kLines); ++i) {
            const Line& line = kLines[i];
            std::string list;
            for (int s : statuses_[line.mid]) list += (list.empty() ? "" : ",") + std::to_string(s);
            out += i ? "," : "";
            out += "{\"mid\":" + std::to_string(line.mid) + ",\"type\":\"" + line.name + "\"";
            out += ",\"statuses\":[" + list + "]";
            out += std::string(",\"mediaReceived\":") + (Received(line.mid) ? "true" : "false");
            out += ",\"statistics\":" + statistics[i] + "}";
        }
        return out + "]}";
    }

    IZynMediaConnection* connection = nullptr;

private:
    // mutex_ held.
    bool Received(unsigned long mid)
    {
        const std::vector<int>& seen = statuses_[mid];
        return std::find(seen.begin(), seen.end(), kStatusMediaReceived) != seen.end();
    }

    const char* name_;
    std::mutex mutex_;
    std::vector<IZynMediaTrackBase*> tracks_;  // one reference each
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
        // A connection starts plain; a call on an open network wants ICE and media keyed by DTLS.
        IGlobalConfig* config = side->connection->GetGlobalConfig();
        ok &= Check("enable ICE", config->EnableICE(true)) && Check("enable SRTP", config->EnableSRTP(true)) &&
              Check("key SRTP by DTLS", config->EnableDtlsSRTP(true)) && Check("mux RTCP", config->EnableRTCPMux(true));
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
    // What each line announced, and what the library counted of it.
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
