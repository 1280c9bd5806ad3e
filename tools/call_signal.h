// The signalling of the two-process `mediasession call`: one TCP connection per call, each
// description sent as a 4-byte big-endian length and the SDP text, the offer first and the answer
// back on the same connection. The waits pump the library's main thread.
#pragma once

#include <string>

namespace tool {

// "HOST:PORT" or "[HOST]:PORT" into its two parts; false when neither form.
bool SplitHostPort(const std::string& text, std::string& host, std::string& port);

// A descriptions channel. Closed on destruction.
class SignalChannel {
public:
    SignalChannel() = default;
    ~SignalChannel();
    SignalChannel(const SignalChannel&) = delete;
    SignalChannel& operator=(const SignalChannel&) = delete;

    // "ADDR:PORT" or "[ADDR]:PORT", numeric. Listen accepts one connection; Connect tries until the
    // peer listens or the time is up.
    bool Listen(const std::string& hostPort, int timeoutMs, std::string& error);
    bool Connect(const std::string& hostPort, int timeoutMs, std::string& error);
    bool Send(const std::string& text, std::string& error);
    bool Receive(std::string& text, int timeoutMs, std::string& error);

    // The largest description taken: far more than any real one, little enough to refuse garbage.
    static constexpr size_t kMaxDescription = 1 << 20;

private:
    bool WaitReadable(int fd, int timeoutMs);
    int m_fd = -1;
};

}  // namespace tool
