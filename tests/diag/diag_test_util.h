// Helpers of the diagnostics tests: trace capture, free loopback ports, child processes (the peers)
// started and stopped by the test, and bounded waits.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "util/CmTrace.h"

namespace diagtest {

// Collects every trace line while alive (all levels), and puts the default sink back after.
class TraceCapture {
public:
    TraceCapture()
    {
        m_oldMask = get_external_trace_mask();
        set_external_trace_mask(CM_TRACE_LEVEL_DETAIL);
        set_external_trace_sink(&TraceCapture::Sink, this);
    }
    ~TraceCapture()
    {
        set_external_trace_sink(nullptr, nullptr);
        set_external_trace_mask(m_oldMask);
    }
    bool Contains(const std::string& text) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& line : m_lines)
            if (line.find(text) != std::string::npos) return true;
        return false;
    }
    size_t Count(const std::string& text) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        size_t n = 0;
        for (const auto& line : m_lines) n += line.find(text) != std::string::npos;
        return n;
    }

private:
    static void Sink(void* context, int, const char* module, const char* text, unsigned int length)
    {
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_lines.push_back(std::string(module) + ": " + std::string(text, length));
    }
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    int m_oldMask;
};

// A socket bound to 127.0.0.1 on a port the system picked, closed with the object. Bound and never
// read, a UDP one is a server that never answers.
struct LoopbackSocket {
    explicit LoopbackSocket(int type = SOCK_DGRAM)
    {
        fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a));
        socklen_t len = sizeof(a);
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
    }
    ~LoopbackSocket() { close(fd); }
    LoopbackSocket(const LoopbackSocket&) = delete;
    LoopbackSocket& operator=(const LoopbackSocket&) = delete;
    int fd = -1;
    uint16_t port = 0;
};

// A port free on 127.0.0.1 for the socket type a moment ago.
inline uint16_t FreePort(int type = SOCK_DGRAM) { return LoopbackSocket(type).port; }

// Polls `done` until it holds or the bound passes; for what has no callback to wait on.
inline bool WaitFor(const std::function<bool()>& done, std::chrono::milliseconds bound = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A child process, killed (SIGTERM, then SIGKILL) and reaped when the object goes.
class Process {
public:
    explicit Process(std::vector<std::string> argv, const std::string& logFile = "/dev/null")
    {
        m_pid = fork();
        if (m_pid == 0) {
            setpgid(0, 0);
            if (FILE* log = freopen(logFile.c_str(), "a", stdout)) dup2(fileno(log), 2);
            std::vector<char*> args;
            for (auto& a : argv) args.push_back(a.data());
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
    }
    ~Process() { Stop(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool Running() const
    {
        if (m_pid <= 0) return false;
        int status = 0;
        return waitpid(m_pid, &status, WNOHANG) == 0;
    }
    void Stop()
    {
        if (m_pid <= 0) return;
        kill(m_pid, SIGTERM);
        int status = 0;
        for (int i = 0; i < 200 && waitpid(m_pid, &status, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (waitpid(m_pid, &status, WNOHANG) == 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        m_pid = -1;
    }

private:
    pid_t m_pid = -1;
};

// True once something listens on 127.0.0.1:port (TCP) or the bound passes.
inline bool WaitForTcp(uint16_t port, std::chrono::milliseconds bound = std::chrono::seconds(10))
{
    return WaitFor(
        [port] {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_port = htons(port);
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0;
            close(fd);
            return ok;
        },
        bound);
}

// Runs a shell command line; its standard output, and its exit status in *status.
inline std::string Run(const std::string& command, int* status)
{
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    while (size_t n = fread(buffer, 1, sizeof(buffer), pipe)) out.append(buffer, n);
    const int raw = pclose(pipe);
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return out;
}

}  // namespace diagtest
