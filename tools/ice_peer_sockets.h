// The UDP sockets of `mediasession ice-peer`: one per local address, bound to a port the system picks,
// waited on together with poll().
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tool::ice_peer {

class UdpSockets {
public:
    UdpSockets() = default;
    UdpSockets(const UdpSockets&) = delete;
    UdpSockets& operator=(const UdpSockets&) = delete;
    ~UdpSockets();

    // Binds one socket on `address` (an IPv4 or IPv6 literal, no port). False with a reason.
    bool Open(const std::string& address, std::string& error);

    size_t Count() const { return sockets_.size(); }
    // The bound address, with its port.
    const sockaddr_storage& Local(size_t index) const { return sockets_[index].local; }
    // The socket bound to exactly this address and port, or -1.
    int Find(const sockaddr* local) const;

    // A lost datagram is what the senders' repeats are for, so a failed send only counts as one.
    void Send(size_t index, const uint8_t* bytes, size_t length, const sockaddr* destination) const;

    struct Datagram {
        size_t socket;
        sockaddr_storage from;
        std::vector<uint8_t> bytes;
    };
    // Waits up to timeoutMs (0: not at all) and reads every datagram that is waiting.
    void Receive(int timeoutMs, std::vector<Datagram>& out) const;

private:
    struct Socket {
        int fd;
        sockaddr_storage local;
    };
    std::vector<Socket> sockets_;
};

}  // namespace tool::ice_peer
