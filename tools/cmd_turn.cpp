// `mediasession turn allocate`: checks a TURN server the way the connectors use it. Allocates over a
// real socket (UDP, or TCP with the server's messages framed on the stream), prints the relayed and
// reflexive addresses as one JSON object; with --peer also installs a permission, relays a datagram to
// the peer by a Send indication and by a channel and waits for each to come back (the peer is
// expected to echo), then releases the allocation.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "command.h"
#include "sockaddr_util.h"
#include "turnclient.h"

namespace {

using json = nlohmann::ordered_json;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr int kExitFailed = 2;
constexpr unsigned int kTickMs = 20;
constexpr int kStepTimeoutMs = 5000;  // longer than the client's own 3.6 s of retransmissions
constexpr const char* kSoftware = "mediasession turn check";

const tool::CommandSpec kSpec{
    .name = "turn allocate",
    .summary = "allocates a relay on a TURN server and prints its addresses as JSON; with --peer also relays "
               "to an echoing peer both ways; exit 2 when a step fails",
    .operands = {.name = "HOST:PORT", .help = "the server", .min = 1, .max = 1},
    .options =
        {
            {.name = "--user", .value = "U", .help = "long-term credential's user", .required = true},
            {.name = "--password", .value = "P", .help = "its password", .required = true},
            {.name = "--tcp", .help = "talk to the server over TCP instead of UDP"},
            {.name = "--family", .help = "address family of the relay", .choices = {"4", "6"}},
            {.name = "--peer", .value = "HOST:PORT", .help = "an echoing peer to relay a datagram to and from"},
            {.name = "--profile", .help = "which profile of the client runs", .choices = {"qlox", "zyn"}},
            {.name = "--verbose", .help = "the client's log on standard error"},
        },
};

struct Options {
    std::string server;
    std::string user;
    std::string password;
    bool tcp = false;
    int family = 4;
    std::string peer;
    std::string profile = "qlox";
    bool verbose = false;
};

Options ReadOptions(const tool::Args& args)
{
    Options o;
    o.server = args.Operands()[0];
    o.user = args.Value("--user");
    o.password = args.Value("--password");
    o.tcp = args.Has("--tcp");
    o.family = args.Value("--family", "4") == "6" ? 6 : 4;
    o.peer = args.Value("--peer");
    o.profile = args.Value("--profile", o.profile);
    o.verbose = args.Has("--verbose");
    return o;
}

// "host:port" or "[v6]:port", resolved (numeric addresses need no resolver).
std::optional<sockaddr_storage> Resolve(const std::string& text)
{
    std::string host, port;
    if (!text.empty() && text[0] == '[') {
        auto close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') return std::nullopt;
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        auto colon = text.rfind(':');
        if (colon == std::string::npos) return std::nullopt;
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (host.empty() || getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0 || found == nullptr) {
        return std::nullopt;
    }
    sockaddr_storage out{};
    std::memcpy(&out, found->ai_addr, std::min<size_t>(found->ai_addrlen, sizeof out));
    freeaddrinfo(found);
    return out;
}

std::string Text(const sockaddr_storage& a)
{
    char text[64];
    const char* s = gatewalk::sockaddr_toString(reinterpret_cast<const sockaddr*>(&a), text, sizeof text, true);
    return s ? s : "";
}

socklen_t LengthOf(const sockaddr_storage& a)
{
    return a.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

// The socket towards the server. Over TCP, the stream carries STUN messages (20 + length) and channel
// data (4 + length, padded to 4) back to back.
class Link {
public:
    ~Link()
    {
        if (fd_ >= 0) close(fd_);
    }

    bool Open(const sockaddr_storage& server, bool tcp)
    {
        tcp_ = tcp;
        fd_ = socket(server.ss_family, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
        if (fd_ < 0) return false;
        // The check stays on this machine when the server is on it: bind to loopback then.
        if (gatewalk::sockaddr_isAddrLoopBack(reinterpret_cast<const sockaddr*>(&server))) {
            sockaddr_storage local = server;
            gatewalk::sockaddr_setPort(reinterpret_cast<sockaddr*>(&local), 0);
            if (bind(fd_, reinterpret_cast<sockaddr*>(&local), LengthOf(local)) != 0) return false;
        }
        return connect(fd_, reinterpret_cast<const sockaddr*>(&server), LengthOf(server)) == 0;
    }

    void Send(const uint8_t* bytes, size_t length)
    {
        size_t sent = 0;
        while (sent < length) {
            ssize_t n = send(fd_, bytes + sent, length - sent, MSG_NOSIGNAL);
            if (n <= 0) return;
            sent += static_cast<size_t>(n);
            if (!tcp_) return;
        }
    }

    // The next whole packet, waiting at most timeoutMs.
    std::optional<Bytes> Receive(int timeoutMs)
    {
        if (auto framed = TakeFrame()) return framed;
        pollfd p{fd_, POLLIN, 0};
        if (poll(&p, 1, timeoutMs) <= 0) return std::nullopt;
        uint8_t buffer[65536];
        ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
        if (n <= 0) {
            if (tcp_ && n == 0) closed_ = true;
            return std::nullopt;
        }
        if (!tcp_) return Bytes(buffer, buffer + n);
        stream_.insert(stream_.end(), buffer, buffer + n);
        return TakeFrame();
    }

    bool Closed() const { return closed_; }

private:
    std::optional<Bytes> TakeFrame()
    {
        if (!tcp_ || stream_.size() < 4) return std::nullopt;
        size_t length = static_cast<size_t>(stream_[2]) << 8 | stream_[3];
        size_t total = gatewalk::stunlib_isTurnChannelData(stream_.data()) ? 4 + ((length + 3) & ~size_t{3}) : 20 + length;
        if (stream_.size() < total) return std::nullopt;
        Bytes frame(stream_.begin(), stream_.begin() + static_cast<long>(total));
        stream_.erase(stream_.begin(), stream_.begin() + static_cast<long>(total));
        return frame;
    }

    int fd_ = -1;
    bool tcp_ = false;
    bool closed_ = false;
    Bytes stream_;
};

// The functions of one profile, so that the check runs the same with either.
#define GATEWALK_TURN_API(NS)                                                             \
    struct NS##_api {                                                                     \
        using Instance = NS::TURN_INSTANCE_DATA;                                          \
        static constexpr auto Start = &NS::TurnClient_StartAllocateTransaction;           \
        static constexpr auto Permission = &NS::TurnClient_StartCreatePermissionReq;      \
        static constexpr auto Channel = &NS::TurnClient_StartChannelBindReq;              \
        static constexpr auto Deallocate = &NS::TurnClient_Deallocate;                    \
        static constexpr auto Tick = &NS::TurnClient_HandleTick;                          \
        static constexpr auto Free = &NS::TurnClient_free;                                \
        static constexpr auto SendPacket = &NS::TurnClient_SendPacket;                    \
        static constexpr auto ReceivePacket = &NS::TurnClient_ReceivePacket;              \
    };
GATEWALK_TURN_API(qlox_gatewalk)
GATEWALK_TURN_API(zyn_gatewalk)
#undef GATEWALK_TURN_API

struct Relayed {
    Bytes data;
    sockaddr_storage from;
};

template <class Api>
class Check {
public:
    Check(const Options& o, Link& link) : options_(o), link_(link) {}
    ~Check()
    {
        if (instance_) Api::Free(instance_);
    }

    int Run(const sockaddr_storage& server)
    {
        int family = options_.family == 6 ? AF_INET6 : AF_INET;
        out_["server"] = Text(server);
        out_["transport"] = options_.tcp ? "tcp" : "udp";
        out_["profile"] = options_.profile;
        if (!Api::Start(&instance_, kTickMs, options_.verbose ? &Log : nullptr, kSoftware, this,
                        reinterpret_cast<const sockaddr*>(&server), options_.user.c_str(), options_.password.c_str(),
                        family, &SendTo, &OnResult, false, 0)) {
            return Fail("the allocation could not be started");
        }
        auto result = WaitResult();
        out_["result"] = gatewalk::TurnResultToStr(result);
        if (result != gatewalk::TurnResult_AllocOk) return Fail("no allocation");
        const auto& relay = family == AF_INET6 ? data_.relAddrIPv6 : data_.relAddrIPv4;
        out_["relayed"] = Text(relay);
        out_["reflexive"] = Text(data_.srflxAddr);
        out_["lifetime"] = instance_->lifetime;
        if (!options_.peer.empty() && !RelayThroughPeer()) return Fail(error_);
        Api::Deallocate(instance_);
        result = WaitResult();
        out_["released"] = result == gatewalk::TurnResult_RelayReleaseComplete;
        if (result != gatewalk::TurnResult_RelayReleaseComplete) return Fail("the allocation was not released");
        std::printf("%s\n", out_.dump(2).c_str());
        return 0;
    }

private:
    bool RelayThroughPeer()
    {
        auto peer = Resolve(options_.peer);
        if (!peer) return Refuse("bad peer address");
        const sockaddr* peers[] = {reinterpret_cast<const sockaddr*>(&*peer)};
        json& p = out_["peer"];
        p["address"] = Text(*peer);
        if (!Api::Permission(instance_, 1, peers)) return Refuse("permission refused");
        auto result = WaitResult();
        p["permission"] = gatewalk::TurnResultToStr(result);
        if (result != gatewalk::TurnResult_CreatePermissionOk) return Refuse("no permission");
        if (!Echo(*peer, "indication")) return false;
        uint16_t channel = gatewalk::stunlib_createRandomTurnChanNum();
        if (!Api::Channel(instance_, channel, peers[0])) return Refuse("channel bind refused");
        result = WaitResult();
        p["channelBind"] = gatewalk::TurnResultToStr(result);
        p["channelNumber"] = channel;
        if (result != gatewalk::TurnResult_ChanBindOk) return Refuse("no channel");
        return Echo(*peer, "channel");
    }

    // One datagram through the relay to the echoing peer and back.
    bool Echo(const sockaddr_storage& peer, const char* how)
    {
        std::string text = std::string("turn check by ") + how + " " + std::to_string(std::random_device{}());
        uint8_t buffer[2048];
        constexpr uint32_t kRoom = 64;  // room in front of the payload for any header
        std::memcpy(buffer + kRoom, text.data(), text.size());
        uint32_t length = Api::SendPacket(instance_, buffer, sizeof buffer, static_cast<uint32_t>(text.size()), kRoom,
                                          reinterpret_cast<const sockaddr*>(&peer), options_.tcp);
        if (length == 0) return Refuse("could not frame the data");
        link_.Send(buffer, length);
        bool back = RunUntil([&] {
            for (const auto& r : relayed_) {
                if (std::string(r.data.begin(), r.data.end()) == text &&
                    gatewalk::sockaddr_alike(reinterpret_cast<const sockaddr*>(&r.from),
                                             reinterpret_cast<const sockaddr*>(&peer))) {
                    return true;
                }
            }
            return false;
        });
        out_["peer"][how] = back;
        relayed_.clear();
        if (!back) error_ = std::string("nothing came back by ") + how;
        return back;
    }

    bool Refuse(const char* why)
    {
        error_ = why;
        return false;
    }

    gatewalk::TurnResult_T WaitResult()
    {
        results_.clear();
        if (!RunUntil([&] { return !results_.empty(); })) return gatewalk::TurnResult_Empty;
        return results_.front();
    }

    // Serves the socket and the client's tick until `done` or the step's time is up.
    bool RunUntil(const std::function<bool()>& done)
    {
        const auto deadline = Clock::now() + std::chrono::milliseconds(kStepTimeoutMs);
        auto nextTick = Clock::now() + std::chrono::milliseconds(kTickMs);
        while (!done()) {
            auto now = Clock::now();
            if (now >= deadline || link_.Closed()) return false;
            if (now >= nextTick) {
                Api::Tick(instance_);
                nextTick += std::chrono::milliseconds(kTickMs);
                continue;
            }
            auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(nextTick - now).count();
            if (auto packet = link_.Receive(static_cast<int>(wait) + 1)) Incoming(*packet);
        }
        return true;
    }

    void Incoming(Bytes& packet)
    {
        auto length = static_cast<uint32_t>(packet.size());
        sockaddr_storage from{};
        uint64_t token = 0;
        if (Api::ReceivePacket(instance_, packet.data(), &length, reinterpret_cast<sockaddr*>(&from), sizeof from,
                               &token)) {
            relayed_.push_back({Bytes(packet.begin(), packet.begin() + length), from});
        }
    }

    int Fail(const std::string& why)
    {
        out_["error"] = why;
        std::printf("%s\n", out_.dump(2).c_str());
        return kExitFailed;
    }

    static void SendTo(const unsigned char* bytes, unsigned long length, const sockaddr*, void* ctx)
    {
        static_cast<Check*>(ctx)->link_.Send(bytes, length);
    }

    static void OnResult(void* ctx, gatewalk::TurnCallBackData_T* data)
    {
        auto* self = static_cast<Check*>(ctx);
        self->data_ = *data;
        self->results_.push_back(data->turnResult);
    }

    static void Log(void*, gatewalk::TurnInfoCategory_T, const char* text) { std::fprintf(stderr, "%s\n", text); }

    const Options& options_;
    Link& link_;
    typename Api::Instance* instance_ = nullptr;
    gatewalk::TurnCallBackData_T data_{};
    std::vector<gatewalk::TurnResult_T> results_;
    std::vector<Relayed> relayed_;
    std::string error_;
    json out_;
};

int RunAllocate(const tool::Args& args)
{
    // Channel numbers come from rand(): a fresh one per run.
    std::srand(std::random_device{}());
    const Options options = ReadOptions(args);
    if (options.user.empty()) return tool::UsageError(kSpec, "--user is empty");
    auto server = Resolve(options.server);
    if (!server) return tool::UsageError(kSpec, "cannot resolve '" + options.server + "'");
    Link link;
    if (!link.Open(*server, options.tcp)) {
        std::fprintf(stderr, "mediasession: cannot reach %s: %s\n", options.server.c_str(), std::strerror(errno));
        return kExitFailed;
    }
    if (options.profile == "zyn") return Check<zyn_gatewalk_api>(options, link).Run(*server);
    return Check<qlox_gatewalk_api>(options, link).Run(*server);
}

const tool::CommandRegistration reg{kSpec, RunAllocate};

}  // namespace
