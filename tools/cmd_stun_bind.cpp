// `mediasession stun bind`: one STUN Binding transaction against a server, over a UDP socket on the
// loopback address of the server's family, driven through the client's tick and response entry
// points exactly as a connector drives it. Prints one JSON object: the result, the reflexive
// address, the round trip.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/rand.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "sockaddr_util.h"
#include "stunclient.h"

namespace {

using json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;
namespace q = qlox_gatewalk;

// Longer than the client's own schedule (3.5 s), so that normally the client gives up first.
constexpr int kDefaultTimeoutMs = 5000;
// How often the client's timers move while nothing arrives.
constexpr int kTickMs = 10;

const tool::CommandSpec kSpec{
    .name = "stun bind",
    .summary = "one STUN Binding transaction against a server from a loopback UDP socket; prints the result "
               "as JSON, exit 1 when no binding came of it",
    .operands = {.name = "HOST:PORT", .help = "the server, a numeric address", .min = 1, .max = 1},
    .options =
        {
            {.name = "--user", .value = "U", .help = "USERNAME of the request"},
            {.name = "--password", .value = "P", .help = "short-term password: signs the request, checks the response"},
            {.name = "--timeout-ms", .value = "N", .help = "give up after N ms (default 5000)"},
        },
};

struct Options {
    sockaddr_storage server;
    std::string user;
    std::string password;
    int timeoutMs = kDefaultTimeoutMs;
};

struct Socket {
    int fd = -1;
    ~Socket()
    {
        if (fd >= 0) close(fd);
    }
};

struct Run {
    int fd = -1;
    int requestsSent = 0;
    bool done = false;
    q::StunCallBackData_T result{};
};

socklen_t LengthOf(const sockaddr* a) { return a->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in); }

std::string Text(const sockaddr_storage& a)
{
    char buf[64];
    const char* t = gatewalk::sockaddr_toString(reinterpret_cast<const sockaddr*>(&a), buf, sizeof buf, true);
    return t ? t : "";
}

json TextOrNull(const sockaddr_storage& a)
{
    std::string t = Text(a);
    return t.empty() ? json(nullptr) : json(t);
}

void SendRequest(void* ctx, bool, unsigned int, const unsigned char* bytes, int length, const sockaddr* destination,
                 int, bool, unsigned char)
{
    auto* run = static_cast<Run*>(ctx);
    ++run->requestsSent;
    // A lost copy is what retransmission is for; a send error is one more way to lose it.
    if (length > 0) sendto(run->fd, bytes, static_cast<size_t>(length), 0, destination, LengthOf(destination));
}

void OnResult(void* ctx, q::StunCallBackData_T* data)
{
    auto* run = static_cast<Run*>(ctx);
    run->done = true;
    run->result = *data;
}

bool ReadOptions(const tool::Args& args, Options& o, std::string& error)
{
    gatewalk::sockaddr_reset(&o.server);
    o.user = args.Value("--user");
    o.password = args.Value("--password");
    if (args.Has("--timeout-ms")) {
        try {
            o.timeoutMs = std::stoi(args.Value("--timeout-ms"));
        } catch (...) {
            o.timeoutMs = -1;
        }
        if (o.timeoutMs <= 0) {
            error = "--timeout-ms takes a positive number";
            return false;
        }
    }
    const std::string& server = args.Operands()[0];
    if (!gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&o.server), server.c_str()) ||
        gatewalk::sockaddr_ipPort(reinterpret_cast<sockaddr*>(&o.server)) == 0) {
        error = "not an address with a port: " + server;
    } else if (o.user.size() > gatewalk::STUN_MAX_USERNAME) {
        error = "--user is longer than 255 bytes";
    } else if (o.password.size() > q::STUN_MAX_PASSWORD) {
        error = "--password is longer than 512 bytes";
    }
    return error.empty();
}

// A UDP socket on the loopback address of the server's family, on a port the system picks.
bool OpenSocket(const sockaddr_storage& server, Socket& s, sockaddr_storage& local)
{
    const int family = server.ss_family;
    s.fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (s.fd < 0) return false;
    gatewalk::sockaddr_reset(&local);
    const char* loopback = family == AF_INET6 ? "::1" : "127.0.0.1";
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&local), loopback);
    auto* sa = reinterpret_cast<sockaddr*>(&local);
    if (bind(s.fd, sa, LengthOf(sa)) != 0) return false;
    socklen_t len = sizeof local;
    return getsockname(s.fd, sa, &len) == 0;
}

int Fail(const char* why)
{
    std::fprintf(stderr, "stun bind: %s\n", why);
    return 1;
}

int RunBind(const tool::Args& args)
{
    Options o;
    std::string error;
    if (!ReadOptions(args, o, error)) return tool::UsageError(kSpec, error);
    Socket sock;
    sockaddr_storage local;
    if (!OpenSocket(o.server, sock, local)) return Fail("cannot open a UDP socket on loopback");

    q::STUN_CLIENT_DATA* client = nullptr;
    if (!q::StunClient_Alloc(&client)) return Fail("no memory");
    std::unique_ptr<q::STUN_CLIENT_DATA, void (*)(q::STUN_CLIENT_DATA*)> owner(client, q::StunClient_free);

    auto attributes = std::make_unique<q::TransactionAttributes>();
    std::memset(static_cast<void*>(attributes.get()), 0, sizeof *attributes);
    if (RAND_bytes(attributes->transactionId.octet, sizeof attributes->transactionId.octet) != 1) {
        return Fail("no random transaction id");
    }
    std::memcpy(attributes->username, o.user.data(), o.user.size());
    std::memcpy(attributes->password, o.password.data(), o.password.size());

    Run run;
    run.fd = sock.fd;
    const auto* server = reinterpret_cast<const sockaddr*>(&o.server);
    const Clock::time_point begin = Clock::now();
    Clock::time_point ticked = begin;
    // The client knows only whole milliseconds; what is left over waits for the next tick.
    auto tick = [&] {
        const auto now = Clock::now();
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - ticked).count();
        if (ms <= 0) return;
        ticked += std::chrono::milliseconds(ms);
        q::StunClient_HandleTick(client, static_cast<int>(ms));
    };
    q::StunClient_startBindTransaction(client, &run, server, reinterpret_cast<const sockaddr*>(&local), 0, false,
                                       attributes.get(), SendRequest, OnResult);

    auto message = std::make_unique<q::StunMessage>();
    std::vector<uint8_t> buffer(gatewalk::STUN_MAX_PACKET_SIZE);
    std::string integrity;
    bool timedOut = false;
    while (!run.done) {
        const auto left =
            o.timeoutMs - std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        pollfd p{sock.fd, POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(left < kTickMs ? left : kTickMs));
        tick();
        if (ready <= 0 || !(p.revents & POLLIN)) continue;
        sockaddr_storage from;
        socklen_t fromLength = sizeof from;
        const ssize_t n = recvfrom(sock.fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from),
                                   &fromLength);
        // Anything that is not a STUN message from somewhere is not ours to answer.
        if (n <= 0 || !gatewalk::stunlib_isStunMsg(buffer.data(), static_cast<unsigned int>(n))) continue;
        if (!q::stunlib_DecodeMessage(buffer.data(), static_cast<unsigned long>(n), message.get(), nullptr, nullptr)) {
            continue;
        }
        if (!o.password.empty()) {
            auto* key = reinterpret_cast<unsigned char*>(o.password.data());
            integrity = !message->hasMessageIntegrity ? "absent"
                        : q::stunlib_checkIntegrity(buffer.data(), static_cast<unsigned long>(n), message.get(), key,
                                                    static_cast<int>(o.password.size()))
                            ? "ok"
                            : "bad";
        }
        q::StunClient_HandleIncResp(client, message.get(), reinterpret_cast<const sockaddr*>(&from));
    }
    if (timedOut) q::StunClient_cancelBindingTransaction(client, attributes->transactionId);

    json out;
    out["result"] = timedOut ? "timeout" : q::StunClient_resultToStr(run.result.stunResult);
    out["server"] = Text(o.server);
    out["local"] = Text(local);
    out["reflexive"] = timedOut ? json(nullptr) : TextOrNull(run.result.rflxAddr);
    out["rtt_us"] = timedOut ? json(nullptr) : json(run.result.rtt);
    out["retransmits"] = timedOut ? json(nullptr) : json(run.result.retransmits);
    out["requests_sent"] = run.requestsSent;
    if (!integrity.empty()) out["integrity"] = integrity;
    std::cout << out.dump(2) << std::endl;
    return !timedOut && run.result.stunResult == q::StunResult_BindOk ? 0 : 1;
}

const tool::CommandRegistration reg{kSpec, RunBind};

}  // namespace
