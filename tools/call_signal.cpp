#include "call_signal.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "mediasession/ZynMediaEngine.h"

namespace tool {

bool SplitHostPort(const std::string& text, std::string& host, std::string& port)
{
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') return false;
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
        return true;
    }
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    return true;
}

namespace {

bool ParseHostPort(const std::string& text, sockaddr_storage& out, socklen_t& length)
{
    std::string host, port;
    if (!SplitHostPort(text, host, port)) return false;
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0 || !found) return false;
    std::memcpy(&out, found->ai_addr, found->ai_addrlen);
    length = found->ai_addrlen;
    freeaddrinfo(found);
    return true;
}

using Clock = std::chrono::steady_clock;

int LeftMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

SignalChannel::~SignalChannel()
{
    if (m_fd >= 0) close(m_fd);
}

bool SignalChannel::WaitReadable(int fd, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 10) > 0) return true;
        // The library's main thread runs here while the program waits.
        ZynPumpMainThread(0);
        if (LeftMs(deadline) == 0) return false;
    }
}

bool SignalChannel::Listen(const std::string& hostPort, int timeoutMs, std::string& error)
{
    sockaddr_storage address{};
    socklen_t length = 0;
    if (!ParseHostPort(hostPort, address, length)) return error = "not an ADDR:PORT: " + hostPort, false;
    const int server = socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (server < 0 || bind(server, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(server, 1) != 0) {
        error = "cannot listen on " + hostPort + ": " + std::strerror(errno);
        if (server >= 0) close(server);
        return false;
    }
    const bool ready = WaitReadable(server, timeoutMs);
    m_fd = ready ? accept4(server, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    close(server);
    if (m_fd < 0) return error = "no peer connected to " + hostPort, false;
    return true;
}

bool SignalChannel::Connect(const std::string& hostPort, int timeoutMs, std::string& error)
{
    sockaddr_storage address{};
    socklen_t length = 0;
    if (!ParseHostPort(hostPort, address, length)) return error = "not an ADDR:PORT: " + hostPort, false;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        m_fd = socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (m_fd >= 0 && connect(m_fd, reinterpret_cast<sockaddr*>(&address), length) == 0) return true;
        const int why = errno;
        if (m_fd >= 0) close(m_fd);
        m_fd = -1;
        if (LeftMs(deadline) == 0) return error = "cannot connect to " + hostPort + ": " + std::strerror(why), false;
        // The peer may not listen yet: try again shortly, keeping the main thread going.
        for (int i = 0; i < 10; ++i) ZynPumpMainThread(10);
    }
}

bool SignalChannel::Send(const std::string& text, std::string& error)
{
    if (m_fd < 0) return error = "no signalling connection", false;
    const uint32_t length = htonl(static_cast<uint32_t>(text.size()));
    std::string frame(reinterpret_cast<const char*>(&length), 4);
    frame += text;
    for (size_t sent = 0; sent < frame.size();) {
        const ssize_t n = send(m_fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return error = std::string("signalling send failed: ") + std::strerror(errno), false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

bool SignalChannel::Receive(std::string& text, int timeoutMs, std::string& error)
{
    if (m_fd < 0) return error = "no signalling connection", false;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    auto readExactly = [&](char* out, size_t want) {
        for (size_t got = 0; got < want;) {
            if (!WaitReadable(m_fd, LeftMs(deadline))) return error = "the peer sent no description in time", false;
            const ssize_t n = recv(m_fd, out + got, want - got, 0);
            if (n <= 0) return error = "the peer closed the signalling connection", false;
            got += static_cast<size_t>(n);
        }
        return true;
    };
    uint32_t length = 0;
    if (!readExactly(reinterpret_cast<char*>(&length), 4)) return false;
    length = ntohl(length);
    if (length == 0 || length > kMaxDescription) return error = "the peer sent a description of bad length", false;
    text.assign(length, '\0');
    return readExactly(text.data(), length);
}

}  // namespace tool
