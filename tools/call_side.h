// One side of `mediasession call`: a connection, the sink that hears it, and the progress it
// prints. Everything runs on the program's thread, which is the library's main thread: the program
// pumps it while it waits, so every callback arrives there too.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "mediasession/ZynMediaConfig.h"
#include "mediasession/ZynMediaEngine.h"

namespace tool {

const char* TypeName(int type);

struct CallLine {
    ZynSessionType type;
    unsigned long mid;
};

class CallSide final : public IZynMediaConnectionSink {
public:
    // progress: where the steps are printed (stdout, or stderr when stdout carries a document).
    CallSide(const char* name, FILE* progress) : m_name(name), m_progress(progress) {}
    ~CallSide() override;

    void OnMediaReady(unsigned long mid, ZynDirection direction, ZynSessionType type, IZynMediaTrackBase*) override;
    void OnSDPReady(ZynSdpType type, const char* sdp) override;
    void OnSessionStatus(unsigned long mid, ZynSessionType type, int status) override;
    void OnError(int code, void*) override;

    const char* Name() const { return m_name; }
    const std::string& Sdp(ZynSdpType type) const { return type == ZynSdpType_Offer ? m_offer : m_answer; }
    int MediaReady() const { return m_ready; }
    bool Saw(unsigned long mid, int status) const;
    // The first time the status came for the line, in ms since `origin`; -1 when it never came.
    int64_t When(unsigned long mid, int status, std::chrono::steady_clock::time_point origin) const;

    // The connection this side drives, and its lines; those the answer refused (port 0) carry
    // nothing and are not waited for.
    IZynMediaConnection* conn = nullptr;
    std::vector<CallLine> lines;
    std::set<unsigned long> refused;
    // Statuses are printed with the line's path once it is up; this asks for it.
    std::function<void(unsigned long mid)> onConnected;
    void Start() { m_start = std::chrono::steady_clock::now(); }
    int64_t Elapsed() const;

private:
    const char* m_name;
    FILE* m_progress;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    int m_ready = 0;
    std::vector<IZynMediaTrackBase*> m_tracks;  // one reference each, started when ready
    std::string m_offer;
    std::string m_answer;
    std::map<unsigned long, std::map<int, std::chrono::steady_clock::time_point>> m_statuses;
};

// Pumps the library's main thread until pred holds or ms passed; false on time-out.
bool PumpUntil(const std::function<bool()>& pred, int ms);

// A description's m lines in order: the port, and the value of a=mid (empty when none).
struct MediaSection {
    int port = -1;
    std::string mid;
};
std::vector<MediaSection> MediaSections(const std::string& sdp);

// Candidates of a description by type: "4 candidates (host 2, srflx 1, relay 1)".
std::string DescribeCandidates(const std::string& sdp);

bool Check(FILE* out, const char* what, ZynResult r);

}  // namespace tool
