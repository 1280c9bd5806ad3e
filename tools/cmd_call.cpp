// `mediasession version` and `mediasession call`: the main job, a whole call through the library's
// public API only. By default two connections in one process on loopback trade an offer and an
// answer, connect with ICE, key SRTP with DTLS and carry audio and video both ways for a few
// seconds; `--listen` and `--connect` put the two sides in two processes.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "call_exchange.h"
#include "call_side.h"
#include "call_signal.h"
#include "command.h"
#include "mediasession/ZynMediaConfig.h"
#include "mediasession/ZynMediaEngine.h"

namespace {

const tool::CommandSpec kVersionSpec{.name = "version", .summary = "prints the media engine's version"};
const tool::CommandSpec kCallSpec{
    .name = "call",
    .summary = "a whole call through the library's public API: two connections on loopback, or one side in "
               "each of two processes; exit 1 when a step fails or a line carried no media both ways",
    .options =
        {
            {.name = "--media", .value = "LIST",
             .help = "the lines, a comma list of audio, video, share, audio-slide, application (default "
                     "audio,video)"},
            {.name = "--duration", .value = "SEC", .help = "how long media flows once every line has it (default 3)"},
            {.name = "--sdes", .help = "SRTP keyed by SDES in place of DTLS"},
            {.name = "--no-srtp", .help = "media in clear"},
            {.name = "--no-ice", .help = "no ICE: each side sends to the address the other's description gives"},
            {.name = "--no-mux", .help = "RTCP on a port of its own"},
            {.name = "--client-type", .value = "N", .help = "the connector profile the lines use"},
            {.name = "--stun", .value = "HOST:PORT", .help = "a STUN server to gather from", .repeated = true},
            {.name = "--turn", .value = "USER:PASS@HOST:PORT[?transport=tcp]", .help = "a TURN server to relay through",
             .repeated = true},
            {.name = "--relay-only", .help = "only relayed candidates in the descriptions"},
            {.name = "--local", .value = "ADDR", .help = "the local addresses lines may use (default 127.0.0.1)"},
            {.name = "--listen", .value = "ADDR:PORT",
             .help = "answering side of a two-process call: wait for the offer there"},
            {.name = "--connect", .value = "ADDR:PORT", .help = "offering side of a two-process call: send it there"},
            {.name = "--json", .help = "the closing report as a JSON document on stdout, progress on stderr"},
            {.name = "--sdp-only", .help = "stop after the negotiation, printing both descriptions and their records"},
            {.name = "--insecure-logs", .help = "keys and ICE passwords unmasked, in traces and printed descriptions"},
            {.name = "--save", .value = "DIR", .help = "write offer.sdp and answer.sdp there"},
            {.name = "--send-file", .value = "PATH",
             .help = "A sends this file once, in place of its capture: .wav on the audio line, .i420 (and the other "
                     "raw picture formats) on the video line"},
            {.name = "--receive-file", .value = "PATH",
             .help = "B writes what its line of the file's kind receives to this file, payload after payload"},
        },
};

// Bounds of the steps of a call; none is a pacing sleep, each ends as soon as its event came.
constexpr int kGatherMs = 15000;
constexpr int kConnectMs = 30000;
constexpr int kFirstMediaMs = 10000;
constexpr int kSignalMs = 60000;

int RunVersion(const tool::Args&)
{
    unsigned int v[4] = {};
    const char* build = nullptr;
    GetMediaEngineVersion(v, &build);
    std::printf("mediasession %u.%u.%u.%u (%s)\n", v[0], v[1], v[2], v[3], build ? build : "");
    return 0;
}

struct CallOptions {
    bool sdpOnly = false;
    bool json = false;
    bool ice = true;
    bool dtls = true;
    bool sdes = false;
    bool mux = true;
    bool relayOnly = false;
    int clientType = 0;
    int duration = 3;
    std::string local;
    std::string listen;
    std::string connect;
    std::vector<tagICEServer> servers;
    std::vector<ZynSessionType> media{ZynSessionType_Audio, ZynSessionType_Video};
    std::string sendFile;
    std::string receiveFile;
    tool::ExchangeOptions exchange;
};

// The line kind a media file feeds: WAV is audio, the raw picture formats video.
ZynSessionType FileKind(const std::string& path)
{
    const size_t dot = path.rfind('.');
    std::string ext = dot == std::string::npos ? "" : path.substr(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext == "wav") return ZynSessionType_Audio;
    for (const char* picture : {"i420", "yv12", "nv12", "nv21", "yuy2", "rgb24", "bgr24"})
        if (ext == picture) return ZynSessionType_Video;
    return ZynSessionType_Unknown;
}

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

// "HOST:PORT" (or "[HOST]:PORT") into the record.
bool ParseServer(const std::string& text, ZynIceServerKind kind, tagICEServer& out)
{
    std::string host, port;
    if (!tool::SplitHostPort(text, host, port)) return false;
    const int number = std::atoi(port.c_str());
    if (host.empty() || host.size() >= sizeof out.host || number <= 0 || number > 65535) return false;
    std::snprintf(out.host, sizeof out.host, "%s", host.c_str());
    out.port = static_cast<uint16_t>(number);
    out.kind = kind;
    return true;
}

// USER:PASS@HOST:PORT[?transport=tcp]
bool ParseTurn(std::string text, tagICEServer& out)
{
    out = tagICEServer{};
    const std::string tcp = "?transport=tcp";
    if (text.size() > tcp.size() && text.compare(text.size() - tcp.size(), tcp.size(), tcp) == 0) {
        out.transport = 1;
        text.resize(text.size() - tcp.size());
    }
    const size_t at = text.rfind('@');
    const size_t colon = text.find(':');
    if (at == std::string::npos || colon == std::string::npos || colon > at) return false;
    const std::string user = text.substr(0, colon), pass = text.substr(colon + 1, at - colon - 1);
    if (user.size() >= sizeof out.username || pass.size() >= sizeof out.password) return false;
    std::snprintf(out.username, sizeof out.username, "%s", user.c_str());
    std::snprintf(out.password, sizeof out.password, "%s", pass.c_str());
    return ParseServer(text.substr(at + 1), ZynIceServer_TURN, out);
}

// What the table does not check itself; an empty text when all is well.
std::string ReadOptions(const tool::Args& args, CallOptions& o)
{
    o.sdpOnly = args.Has("--sdp-only");
    o.json = args.Has("--json");
    o.exchange.insecure = args.Has("--insecure-logs");
    if (args.Has("--sdes") && args.Has("--no-srtp")) return "--sdes and --no-srtp exclude each other";
    o.sdes = args.Has("--sdes");
    o.dtls = !o.sdes && !args.Has("--no-srtp");
    o.ice = !args.Has("--no-ice");
    o.mux = !args.Has("--no-mux");
    o.relayOnly = args.Has("--relay-only");
    if (args.Has("--media") && !ParseMedia(args.Value("--media"), o.media)) return "--media takes known kinds only";
    o.duration = std::atoi(args.Value("--duration", "3").c_str());
    if (o.duration < 0 || o.duration > 3600) return "--duration is 0 to 3600 seconds";
    o.clientType = std::atoi(args.Value("--client-type", "0").c_str());
    for (const std::string& text : args.Values("--stun")) {
        tagICEServer s{};
        if (!ParseServer(text, ZynIceServer_STUN, s)) return "--stun takes HOST:PORT, not '" + text + "'";
        o.servers.push_back(s);
    }
    for (const std::string& text : args.Values("--turn")) {
        tagICEServer s{};
        if (!ParseTurn(text, s)) return "--turn takes USER:PASS@HOST:PORT[?transport=tcp]";
        o.servers.push_back(s);
    }
    o.local = args.Value("--local");
    o.listen = args.Value("--listen");
    o.connect = args.Value("--connect");
    o.exchange.saveDir = args.Value("--save");
    if (!o.listen.empty() && !o.connect.empty()) return "--listen and --connect exclude each other";
    o.sendFile = args.Value("--send-file");
    o.receiveFile = args.Value("--receive-file");
    for (const std::string* file : {&o.sendFile, &o.receiveFile}) {
        if (file->empty()) continue;
        const ZynSessionType kind = FileKind(*file);
        if (kind == ZynSessionType_Unknown) return "a media file is .wav, .i420, .yv12, .nv12, .nv21, .yuy2, .rgb24 or .bgr24";
        if (std::find(o.media.begin(), o.media.end(), kind) == o.media.end())
            return "'" + *file + "' needs a " + tool::TypeName(kind) + " line in --media";
    }
    o.exchange.printDescriptions = o.sdpOnly;
    return {};
}

class Call {
public:
    explicit Call(const CallOptions& options) : m_o(options), m_out(options.json ? stderr : stdout) {}

    int Run()
    {
        // No packet leaves the loopback interface unless asked: the lines see only these addresses.
        if (!m_o.local.empty())
            setenv("MEDIASESSION_ALLOWED_ADDRS", m_o.local.c_str(), 1);
        else
            setenv("MEDIASESSION_ALLOWED_ADDRS", "127.0.0.1", 0);
        ZynRegisterMainThread();
        InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
        const bool twoProcess = !m_o.listen.empty() || !m_o.connect.empty();
        bool ok = twoProcess ? RunOneSide() : RunBothSides();
        if (ok && !m_o.sdpOnly) ok = CarryMedia();
        Stop();
        return ok ? 0 : 1;
    }

private:
    bool Make(tool::CallSide& side)
    {
        IZynMediaConnection* conn = nullptr;
        if (!tool::Check(m_out, "create connection", CreateMediaConnection(&conn, 0)) || !conn) return false;
        side.conn = conn;
        conn->SetSink(&side);
        IGlobalConfig* g = conn->GetGlobalConfig();
        bool ok = tool::Check(m_out, "enable ICE", g->EnableICE(m_o.ice));
        ok &= tool::Check(m_out, "DTLS-SRTP", g->EnableDtlsSRTP(m_o.dtls));
        ok &= tool::Check(m_out, "SRTP", g->EnableSRTP(m_o.dtls || m_o.sdes));
        ok &= tool::Check(m_out, "RTCP mux", g->EnableRTCPMux(m_o.mux));
        ok &= tool::Check(m_out, "client type", g->SetClientType(m_o.clientType));
        ok &= tool::Check(m_out, "relay only", g->EnableRelayOnly(m_o.relayOnly));
        if (m_o.exchange.insecure) g->EnableInsecureLogs(true);
        for (const tagICEServer& s : m_o.servers) ok &= tool::Check(m_out, "ICE server", g->AddICEServer(s));
        unsigned long mid = 0;
        for (ZynSessionType type : m_o.media) {
            ok &= tool::Check(m_out, "add media", conn->AddMedia(type, ZynDirection_SendRecv, mid, nullptr));
            side.lines.push_back({type, mid++});
        }
        side.onConnected = [this, &side](unsigned long m) { PrintPath(side, m); };
        // A sends the file, B renders what arrives; the file is sent once.
        const bool offerer = std::strcmp(side.Name(), "A") == 0;
        const std::string& file = offerer ? m_o.sendFile : m_o.receiveFile;
        if (!file.empty()) {
            const ZynSessionType kind = FileKind(file);
            for (const tool::CallLine& l : side.lines) {
                if (l.type != kind) continue;
                IBaseConfig* config = kind == ZynSessionType_Audio ? static_cast<IBaseConfig*>(conn->GetAudioConfig(l.mid))
                                                                   : static_cast<IBaseConfig*>(conn->GetVideoConfig(l.mid));
                ok &= tool::Check(m_out, offerer ? "send file" : "receive file",
                                  !config ? ZYN_E_FAIL
                                  : offerer ? config->EnableFileCapture(file.c_str(), false, true)
                                            : config->EnableFileRender(file.c_str(), true));
                break;
            }
        }
        return ok;
    }

    int ExpectedReady() const
    {
        int n = 0;
        for (ZynSessionType t : m_o.media) n += t != ZynSessionType_Application;
        return n;
    }

    bool Offer(tool::CallSide& side)
    {
        side.Start();
        m_origin = std::chrono::steady_clock::now();
        std::fprintf(m_out, "[%s]     0 ms  gathering candidates for the offer\n", side.Name());
        if (!tool::Check(m_out, "create offer", side.conn->CreateOffer())) return false;
        if (!tool::PumpUntil([&] { return !side.Sdp(ZynSdpType_Offer).empty(); }, kGatherMs)) {
            std::fprintf(m_out, "[%s] no offer came\n", side.Name());
            return false;
        }
        tool::PrintDescription(m_out, side.Name(), "offer", side.Sdp(ZynSdpType_Offer), m_o.exchange);
        return tool::SaveDescription(m_o.exchange, "offer.sdp", side.Sdp(ZynSdpType_Offer));
    }

    bool Answer(tool::CallSide& side, const std::string& offer)
    {
        side.Start();
        if (m_sides.size() == 1) m_origin = std::chrono::steady_clock::now();
        constexpr int kCapacity = 16;
        _tagSdpParsedInfo info[kCapacity] = {};
        int count = kCapacity;
        if (!tool::Check(m_out, "set remote offer", side.conn->SetReceivedSDP(ZynSdpType_Offer, offer.c_str(), info, &count)))
            return false;
        if (m_o.sdpOnly) tool::PrintRecords(m_out, side.Name(), "offer", info, count, kCapacity);
        std::fprintf(m_out, "[%s] %5lld ms  gathering candidates for the answer\n", side.Name(),
                     static_cast<long long>(side.Elapsed()));
        if (!tool::Check(m_out, "create answer", side.conn->CreateAnswer())) return false;
        if (!tool::PumpUntil([&] { return !side.Sdp(ZynSdpType_Answer).empty(); }, kGatherMs)) {
            std::fprintf(m_out, "[%s] no answer came\n", side.Name());
            return false;
        }
        // A line of ours is live when an open m line of the answer is its; the offer's records say
        // whose each m line is.
        const std::vector<tool::MediaSection> answer = tool::MediaSections(side.Sdp(ZynSdpType_Answer));
        for (const tool::CallLine& l : side.lines) {
            bool live = false;
            for (size_t i = 0; i < answer.size() && i < static_cast<size_t>(std::min(count, kCapacity)); ++i)
                live |= answer[i].port != 0 && info[i].mid == l.mid;
            if (!live && l.type != ZynSessionType_Application) side.refused.insert(l.mid);
        }
        tool::PrintDescription(m_out, side.Name(), "answer", side.Sdp(ZynSdpType_Answer), m_o.exchange);
        return tool::SaveDescription(m_o.exchange, "answer.sdp", side.Sdp(ZynSdpType_Answer));
    }

    bool TakeAnswer(tool::CallSide& side, const std::string& answer)
    {
        constexpr int kCapacity = 16;
        _tagSdpParsedInfo info[kCapacity] = {};
        int count = kCapacity;
        m_answerApplied = std::chrono::steady_clock::now();
        const bool ok = tool::Check(m_out, "set remote answer",
                                    side.conn->SetReceivedSDP(ZynSdpType_Answer, answer.c_str(), info, &count));
        if (m_o.sdpOnly) tool::PrintRecords(m_out, side.Name(), "answer", info, count, kCapacity);
        // The answer's m lines follow our offer's, whose order is the order the lines became ready
        // in: each one's a=mid names the line.
        const std::vector<tool::MediaSection> offered = tool::MediaSections(side.Sdp(ZynSdpType_Offer));
        const std::vector<tool::MediaSection> answered = tool::MediaSections(answer);
        for (const tool::CallLine& l : side.lines) {
            if (l.type == ZynSessionType_Application) continue;
            bool live = false;
            for (size_t i = 0; i < offered.size() && i < answered.size(); ++i)
                live |= answered[i].port != 0 && offered[i].mid == std::to_string(l.mid);
            if (!live) side.refused.insert(l.mid);
        }
        return ok;
    }

    bool RunBothSides()
    {
        m_sides.emplace_back(std::make_unique<tool::CallSide>("A", m_out));
        m_sides.emplace_back(std::make_unique<tool::CallSide>("B", m_out));
        tool::CallSide& a = *m_sides[0];
        tool::CallSide& b = *m_sides[1];
        if (!Make(a) || !Make(b)) return false;
        tool::PumpUntil([&] { return a.MediaReady() >= ExpectedReady() && b.MediaReady() >= ExpectedReady(); }, 5000);
        if (!Offer(a)) return false;
        b.Start();
        if (!Answer(b, a.Sdp(ZynSdpType_Offer)) || !TakeAnswer(a, b.Sdp(ZynSdpType_Answer))) return false;
        if (m_o.sdpOnly) {
            std::fprintf(m_out, "  negotiation state: A=%d B=%d\n", a.conn->GetSDPStatus(), b.conn->GetSDPStatus());
            return a.conn->GetSDPStatus() == 3 && b.conn->GetSDPStatus() == 3;
        }
        return true;
    }

    bool RunOneSide()
    {
        const bool offerer = !m_o.connect.empty();
        m_sides.emplace_back(std::make_unique<tool::CallSide>(offerer ? "A" : "B", m_out));
        tool::CallSide& side = *m_sides[0];
        if (!Make(side)) return false;
        tool::PumpUntil([&] { return side.MediaReady() >= ExpectedReady(); }, 5000);
        tool::SignalChannel channel;
        std::string error, text;
        if (offerer) {
            if (!Offer(side)) return false;
            if (!channel.Connect(m_o.connect, kSignalMs, error) || !channel.Send(side.Sdp(ZynSdpType_Offer), error) ||
                !channel.Receive(text, kSignalMs, error))
                return Fail(error);
            return TakeAnswer(side, text);
        }
        std::fprintf(m_out, "[B] waiting for an offer on %s\n", m_o.listen.c_str());
        if (!channel.Listen(m_o.listen, kSignalMs, error) || !channel.Receive(text, kSignalMs, error)) return Fail(error);
        if (!Answer(side, text)) return false;
        return channel.Send(side.Sdp(ZynSdpType_Answer), error) || Fail(error);
    }

    bool Fail(const std::string& why)
    {
        std::fprintf(stderr, "mediasession call: %s\n", why.c_str());
        return false;
    }

    bool EveryLine(int status)
    {
        for (const auto& side : m_sides)
            for (const tool::CallLine& l : side->lines)
                if (l.type != ZynSessionType_Application && !side->refused.count(l.mid) && !side->Saw(l.mid, status))
                    return false;
        return true;
    }

    bool Path(tool::CallSide& side, const tool::CallLine& line, _tagMediaPathStatistics& path)
    {
        auto* conn = static_cast<IZynMediaConnection4T*>(side.conn);
        switch (line.type) {
        case ZynSessionType_Video: {
            _tagVideoConnectionStatistics s{};
            const bool ok = ZYN_SUCCEEDED(conn->GetVideoStatistics(line.mid, s));
            path = s.path;
            return ok;
        }
        case ZynSessionType_ScreenShare: {
            _tagScreenConnectionStatistics s{};
            const bool ok = ZYN_SUCCEEDED(conn->GetScreenStatistics(line.mid, s));
            path = s.path;
            return ok;
        }
        default: {
            _tagAudioConnectionStatistics s{};
            const bool ok = ZYN_SUCCEEDED(conn->GetAudioStatistics(line.mid, s));
            path = s.path;
            return ok;
        }
        }
    }

    void PrintPath(tool::CallSide& side, unsigned long mid)
    {
        for (const tool::CallLine& l : side.lines) {
            if (l.mid != mid) continue;
            _tagMediaPathStatistics path{};
            if (!Path(side, l, path)) return;
            std::fprintf(m_out, "[%s]          %s concluded on %s -> %s%s%s after %u ms, %s\n", side.Name(),
                         tool::TypeName(l.type), path.localAddress, path.remoteAddress, path.candidateType[0] ? " " : "",
                         path.candidateType, path.connectMs,
                         path.srtpSuite[0] ? (std::string(m_o.dtls ? "DTLS keyed " : "SDES keyed ") + path.srtpSuite).c_str()
                                           : "no SRTP");
        }
    }

    bool CarryMedia()
    {
        if (NothingLive()) {
            std::fprintf(m_out, "every line was refused\n");
            Report(false, 0);
            return false;
        }
        if (!tool::PumpUntil([&] { return EveryLine(2); }, kConnectMs)) {
            std::fprintf(m_out, "not every line connected\n");
            Report(false, 0);
            return false;
        }
        int64_t setup = 0;
        for (const auto& side : m_sides)
            for (const tool::CallLine& l : side->lines) setup = std::max<int64_t>(setup, side->When(l.mid, 2, m_origin));
        const bool flowing = tool::PumpUntil([&] { return EveryLine(3) && EveryLine(4); }, kFirstMediaMs);
        Snapshot(m_before);
        tool::PumpUntil([] { return false; }, m_o.duration * 1000);
        return Report(flowing, setup);
    }

    bool NothingLive() const
    {
        for (const auto& side : m_sides)
            for (const tool::CallLine& l : side->lines)
                if (l.type != ZynSessionType_Application && !side->refused.count(l.mid)) return false;
        return true;
    }

    using Snap = std::vector<std::vector<_tagMediaPathStatistics>>;
    void Snapshot(Snap& out)
    {
        out.clear();
        for (const auto& side : m_sides) {
            out.emplace_back();
            for (const tool::CallLine& l : side->lines) {
                _tagMediaPathStatistics p{};
                Path(*side, l, p);
                out.back().push_back(p);
            }
        }
    }

    bool Report(bool flowing, int64_t setupMs)
    {
        Snap after;
        Snapshot(after);
        if (m_before.size() != after.size()) m_before = Snap(after.size());
        bool everyWay = flowing;
        nlohmann::json sides = nlohmann::json::array();
        if (!m_o.json)
            std::printf("%-4s %-5s %-6s %-22s %8s %8s %6s %7s %7s %9s %9s  %s\n", "side", "mid", "type", "srtp", "sent",
                        "received", "loss%", "jitter", "rtt", "kbps-out", "kbps-in", "pair");
        const double seconds = m_o.duration > 0 ? m_o.duration : 1;
        for (size_t s = 0; s < m_sides.size(); ++s) {
            nlohmann::json lines = nlohmann::json::array();
            for (size_t i = 0; i < m_sides[s]->lines.size(); ++i) {
                const tool::CallLine& l = m_sides[s]->lines[i];
                const _tagMediaPathStatistics& p = after[s][i];
                const _tagMediaPathStatistics before = i < m_before[s].size() ? m_before[s][i] : _tagMediaPathStatistics{};
                const double out = static_cast<double>(p.bytesSent - before.bytesSent) * 8 / 1000 / seconds;
                const double in = static_cast<double>(p.bytesReceived - before.bytesReceived) * 8 / 1000 / seconds;
                const bool refused = m_sides[s]->refused.count(l.mid) != 0;
                if (l.type != ZynSessionType_Application && !refused)
                    everyWay &= p.packetsSent > 0 && p.packetsReceived > 0;
                const std::string srtp = p.srtpSuite[0] ? p.srtpSuite : "none";
                if (!m_o.json) {
                    std::printf("%-4s %-5lu %-6s %-22s %8llu %8llu %6.2f %7.2f %7.2f %9.1f %9.1f  %s -> %s %s\n",
                                m_sides[s]->Name(), l.mid, tool::TypeName(l.type), srtp.c_str(),
                                static_cast<unsigned long long>(p.packetsSent),
                                static_cast<unsigned long long>(p.packetsReceived), p.lossPercent, p.jitterMs, p.rttMs,
                                out, in, p.localAddress, p.remoteAddress, p.candidateType);
                }
                lines.push_back({{"mid", l.mid},
                                 {"type", tool::TypeName(l.type)},
                                 {"refused", refused},
                                 {"srtp", srtp},
                                 {"selected_pair", {{"local", p.localAddress}, {"remote", p.remoteAddress}, {"type", p.candidateType}}},
                                 {"packets_sent", p.packetsSent},
                                 {"packets_received", p.packetsReceived},
                                 {"loss_percent", p.lossPercent},
                                 {"jitter_ms", p.jitterMs},
                                 {"rtt_ms", p.rttMs},
                                 {"kbps_out", out},
                                 {"kbps_in", in},
                                 {"connected_ms", m_sides[s]->When(l.mid, 2, m_origin)},
                                 {"first_rtp_received_ms", m_sides[s]->When(l.mid, 3, m_origin)}});
            }
            sides.push_back({{"name", m_sides[s]->Name()}, {"lines", lines}});
        }
        // Times in the document count from the offer's creation (or, on an answering side alone,
        // from the offer's arrival); -1 is a step that never came.
        const int64_t answerApplied =
            m_answerApplied ? std::chrono::duration_cast<std::chrono::milliseconds>(*m_answerApplied - m_origin).count()
                            : -1;
        if (m_o.json)
            std::printf("%s\n", nlohmann::json{{"setup_ms", setupMs}, {"answer_applied_ms", answerApplied}, {"sides", sides}}
                                     .dump(2)
                                     .c_str());
        if (!everyWay) std::fprintf(m_out, "not every line carried media both ways\n");
        return everyWay;
    }

    void Stop()
    {
        for (const auto& side : m_sides)
            if (side->conn) side->conn->Stop();
        // Stop posts its clean-up to the main thread, which is this one: it runs before the release.
        tool::PumpUntil([] { return false; }, 50);
        for (const auto& side : m_sides) {
            if (!side->conn) continue;
            side->conn->Release();
            side->conn = nullptr;
        }
        UninitMediaEngine();
        // The main thread ends once the uninit event ran on it.
        tool::PumpUntil([] { return !ZynPumpMainThread(10); }, 10000);
    }

    const CallOptions& m_o;
    FILE* m_out;
    std::vector<std::unique_ptr<tool::CallSide>> m_sides;
    Snap m_before;
    // The call's clock: the offer's creation; and when the answer was given to the offerer.
    std::chrono::steady_clock::time_point m_origin = std::chrono::steady_clock::now();
    std::optional<std::chrono::steady_clock::time_point> m_answerApplied;
};

int RunCall(const tool::Args& args)
{
    CallOptions options;
    if (const std::string wrong = ReadOptions(args, options); !wrong.empty()) return tool::UsageError(kCallSpec, wrong);
    return Call(options).Run();
}

tool::CommandRegistration g_version{kVersionSpec, RunVersion};
tool::CommandRegistration g_call{kCallSpec, RunCall};

}  // namespace
