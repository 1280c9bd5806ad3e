#include "ice_peer_sockets.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sockaddr_util.h"

namespace tool::ice_peer {
namespace {

// The largest UDP payload; anything a peer sends fits, so nothing is cut.
constexpr size_t kMaxDatagram = 65535;

socklen_t LengthOf(const sockaddr* a) { return a->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in); }

}  // namespace

UdpSockets::~UdpSockets()
{
    for (const auto& s : sockets_) close(s.fd);
}

bool UdpSockets::Open(const std::string& address, std::string& error)
{
    sockaddr_storage local{};
    auto* sa = reinterpret_cast<sockaddr*>(&local);
    // A port is the system's choice: a text with one is refused.
    if (address.find_first_of("[]") != std::string::npos || !gatewalk::sockaddr_initFromString(sa, address.c_str()) ||
        gatewalk::sockaddr_ipPort(sa) != 0) {
        error = "not an IP address: " + address;
        return false;
    }
    const int fd = socket(local.ss_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        error = "socket: " + std::string(std::strerror(errno));
        return false;
    }
    socklen_t length = sizeof local;
    if (bind(fd, sa, LengthOf(sa)) != 0 || getsockname(fd, sa, &length) != 0) {
        error = "bind " + address + ": " + std::strerror(errno);
        close(fd);
        return false;
    }
    sockets_.push_back({fd, local});
    return true;
}

int UdpSockets::Find(const sockaddr* local) const
{
    for (size_t i = 0; i < sockets_.size(); ++i) {
        if (gatewalk::sockaddr_alike(reinterpret_cast<const sockaddr*>(&sockets_[i].local), local)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void UdpSockets::Send(size_t index, const uint8_t* bytes, size_t length, const sockaddr* destination) const
{
    if (index >= sockets_.size() || length == 0) return;
    (void)sendto(sockets_[index].fd, bytes, length, 0, destination, LengthOf(destination));
}

void UdpSockets::Receive(int timeoutMs, std::vector<Datagram>& out) const
{
    std::vector<pollfd> fds;
    for (const auto& s : sockets_) fds.push_back({s.fd, POLLIN, 0});
    if (poll(fds.data(), fds.size(), timeoutMs) <= 0) return;
    for (size_t i = 0; i < fds.size(); ++i) {
        if (!(fds[i].revents & POLLIN)) continue;
        for (;;) {
            Datagram d{i, {}, std::vector<uint8_t>(kMaxDatagram)};
            socklen_t fromLength = sizeof d.from;
            const ssize_t n = recvfrom(fds[i].fd, d.bytes.data(), d.bytes.size(), 0,
                                       reinterpret_cast<sockaddr*>(&d.from), &fromLength);
            if (n < 0) break;  // drained (EAGAIN), or an ICMP error of an earlier send: nothing to read
            d.bytes.resize(static_cast<size_t>(n));
            out.push_back(std::move(d));
        }
    }
}

}  // namespace tool::ice_peer
