#include "mediasession/ZynMediaTrack.h"
#include "call_side.h"

#include <sstream>

namespace tool {

const char* TypeName(int type)
{
    switch (type) {
    case ZynSessionType_Audio: return "audio";
    case ZynSessionType_Video: return "video";
    case ZynSessionType_ScreenShare: return "share";
    case ZynSessionType_AudioSlide: return "audio-slide";
    case ZynSessionType_Application: return "application";
    default: return "unknown";
    }
}

namespace {

const char* StatusText(int status)
{
    switch (status) {
    case 0: return "connection lost";
    case 1: return "checking";
    case 2: return "connected";
    case 3: return "first RTP received";
    case 4: return "first RTP sent";
    case 6: return "reconnected";
    case 8: return "transport changed";
    case 11: return "session terminated";
    default: return "status";
    }
}

}  // namespace

int64_t CallSide::Elapsed() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start).count();
}

CallSide::~CallSide()
{
    for (IZynMediaTrackBase* track : m_tracks) track->Release();
}

// Every stream starts as soon as the application has it: the local ones send once connected.
void CallSide::OnMediaReady(unsigned long, ZynDirection, ZynSessionType, IZynMediaTrackBase* track)
{
    ++m_ready;
    if (!track) return;
    track->AddRef();
    m_tracks.push_back(track);
    track->Start(false);
}

void CallSide::OnSDPReady(ZynSdpType type, const char* sdp)
{
    const std::string text = sdp ? sdp : "";
    (type == ZynSdpType_Offer ? m_offer : m_answer) = text;
    std::fprintf(m_progress, "[%s] %5lld ms  %s ready: %s\n", m_name, static_cast<long long>(Elapsed()),
                 type == ZynSdpType_Offer ? "offer" : "answer", DescribeCandidates(text).c_str());
}

void CallSide::OnSessionStatus(unsigned long mid, ZynSessionType type, int status)
{
    auto& seen = m_statuses[mid];
    if (!seen.count(status)) seen[status] = std::chrono::steady_clock::now();
    std::fprintf(m_progress, "[%s] %5lld ms  %s (mid %lu): %s\n", m_name, static_cast<long long>(Elapsed()),
                 TypeName(type), mid, StatusText(status));
    if (status == 2 && onConnected) onConnected(mid);
}

void CallSide::OnError(int code, void*)
{
    std::fprintf(m_progress, "[%s] error 0x%08x\n", m_name, static_cast<unsigned>(code));
}

bool CallSide::Saw(unsigned long mid, int status) const
{
    auto it = m_statuses.find(mid);
    return it != m_statuses.end() && it->second.count(status) != 0;
}

int64_t CallSide::When(unsigned long mid, int status, std::chrono::steady_clock::time_point origin) const
{
    auto it = m_statuses.find(mid);
    if (it == m_statuses.end()) return -1;
    auto s = it->second.find(status);
    return s == it->second.end() ? -1
                                 : std::chrono::duration_cast<std::chrono::milliseconds>(s->second - origin).count();
}

bool PumpUntil(const std::function<bool()>& pred, int ms)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        ZynPumpMainThread(10);
    }
    return true;
}

std::vector<MediaSection> MediaSections(const std::string& sdp)
{
    std::vector<MediaSection> sections;
    std::istringstream in(sdp);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind("m=", 0) == 0) {
            std::istringstream fields(line.substr(2));
            std::string media;
            sections.emplace_back();
            fields >> media >> sections.back().port;
        } else if (line.rfind("a=mid:", 0) == 0 && !sections.empty()) {
            sections.back().mid = line.substr(6);
        }
    }
    return sections;
}

std::string DescribeCandidates(const std::string& sdp)
{
    std::map<std::string, int> byType;
    int total = 0;
    std::istringstream in(sdp);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("a=candidate:", 0) != 0) continue;
        const size_t typ = line.find(" typ ");
        if (typ == std::string::npos) continue;
        std::istringstream rest(line.substr(typ + 5));
        std::string type;
        rest >> type;
        ++byType[type];
        ++total;
    }
    if (total == 0) return "no candidates";
    std::string out = std::to_string(total) + " candidates (";
    bool first = true;
    for (const auto& [type, n] : byType) {
        out += (first ? "" : ", ") + type + " " + std::to_string(n);
        first = false;
    }
    return out + ")";
}

bool Check(FILE* out, const char* what, ZynResult r)
{
    if (!ZYN_SUCCEEDED(r)) std::fprintf(out, "  %-32s 0x%08x FAILED\n", what, static_cast<unsigned int>(r));
    return ZYN_SUCCEEDED(r);
}

}  // namespace tool
