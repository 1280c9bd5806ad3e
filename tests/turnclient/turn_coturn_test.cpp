// Against coturn on loopback (run under tests/peers/coturn/with_coturn.sh, which exports TURN_PORT,
// TURN_USER, TURN_PASSWORD): the `turn allocate` command over UDP and TCP, with IPv4 and IPv6 relays,
// relaying to a UDP echo that this test runs; a wrong password; and a release that the server acts on.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "turn_test_util.h"

namespace {

using namespace turn_test;
using json = nlohmann::json;

std::string Env(const char* name)
{
    const char* v = std::getenv(name);
    return v ? v : "";
}

// Sends every datagram back to its sender, on a free port of a loopback address, until destroyed.
class EchoPeer {
public:
    explicit EchoPeer(const char* loopback)
    {
        sockaddr_storage a = Addr(loopback);
        fd_ = socket(a.ss_family, SOCK_DGRAM, 0);
        socklen_t len = a.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        if (fd_ < 0 || bind(fd_, Sa(a), len) != 0 || getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
            ADD_FAILURE() << "echo peer could not bind " << loopback;
            return;
        }
        address_ = Text(a);
        thread_ = std::thread([this] { Serve(); });
    }
    ~EchoPeer()
    {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (fd_ >= 0) close(fd_);
    }
    const std::string& Address() const { return address_; }
    int Echoed() const { return echoed_; }

private:
    void Serve()
    {
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;  // the timeout only lets the loop see stop_
            uint8_t buffer[2048];
            sockaddr_storage from{};
            socklen_t len = sizeof from;
            ssize_t n = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &len);
            if (n > 0 && sendto(fd_, buffer, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&from), len) == n) {
                ++echoed_;
            }
        }
    }

    int fd_ = -1;
    std::string address_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<int> echoed_{0};
};

struct ToolRun {
    int status = -1;
    json out;
};

ToolRun Tool(const std::string& args)
{
    std::string command = "ASAN_OPTIONS=detect_leaks=0 " + std::string(MS_TOOL_PATH) + " turn allocate " + args;
    FILE* p = popen(command.c_str(), "r");
    ToolRun r;
    if (!p) return r;
    std::string text;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) text.append(buf, n);
    int status = pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = json::parse(text, nullptr, false);
    return r;
}

class TurnCoturn : public ::testing::Test {
protected:
    void SetUp() override
    {
        port = Env("TURN_PORT");
        if (port.empty()) GTEST_SKIP() << "run under tests/peers/coturn/with_coturn.sh";
        credentials = " --user " + Env("TURN_USER") + " --password " + Env("TURN_PASSWORD");
    }
    std::string port;
    std::string credentials;
};

TEST_F(TurnCoturn, AllocateAndRelayBothWaysThroughIndicationAndChannel)
{
    EchoPeer echo4("127.0.0.1:0");
    EchoPeer echo6("[::1]:0");
    struct Row {
        const char* name;
        std::string server;
        std::string options;
        const EchoPeer& peer;
        const char* relayPrefix;
    };
    const std::string v4 = "127.0.0.1:" + port, v6 = "[::1]:" + port;
    const Row rows[] = {
        {"udp", v4, "", echo4, "127.0.0.1:"},
        {"tcp", v4, " --tcp", echo4, "127.0.0.1:"},
        {"ipv6 relay over an ipv4 server", v4, " --family 6", echo6, "[::1]:"},
        {"ipv6 server and relay over tcp", v6, " --family 6 --tcp", echo6, "[::1]:"},
        {"zyn udp", v4, " --profile zyn", echo4, "127.0.0.1:"},
        {"zyn tcp ipv6", v4, " --profile zyn --tcp --family 6", echo6, "[::1]:"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        int echoedBefore = row.peer.Echoed();
        ToolRun r = Tool(row.server + credentials + row.options + " --peer " + row.peer.Address());
        ASSERT_EQ(r.status, 0) << r.out.dump(2);
        EXPECT_EQ(r.out["result"], "TurnResult_AllocOk");
        EXPECT_EQ(r.out["relayed"].get<std::string>().rfind(row.relayPrefix, 0), 0u) << r.out["relayed"];
        EXPECT_FALSE(r.out["reflexive"].get<std::string>().empty());
        EXPECT_EQ(r.out["peer"]["indication"], true);
        EXPECT_EQ(r.out["peer"]["channel"], true);
        EXPECT_EQ(r.out["released"], true);
        EXPECT_EQ(row.peer.Echoed() - echoedBefore, 2) << "one datagram each way by each path";
    }
}

TEST_F(TurnCoturn, WrongPasswordIsRefusedAsUnauthorised)
{
    ToolRun r = Tool("127.0.0.1:" + port + " --user " + Env("TURN_USER") + " --password not-" + Env("TURN_PASSWORD"));
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out["result"], "TurnResult_AllocUnauthorised");
    EXPECT_FALSE(r.out.contains("relayed"));
}

// The library on a socket of our own, so that a second Allocate comes from the same 5-tuple: coturn
// refuses it (437 Allocation Mismatch) while the first allocation lives, and takes it again within a
// second or so of a release.
class Client {
public:
    Client()
    {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_storage local = Addr("127.0.0.1:0");
        EXPECT_EQ(bind(fd_, Sa(local), sizeof(sockaddr_in)), 0);
    }
    ~Client()
    {
        for (auto* inst : insts_) qlox_gatewalk::TurnClient_free(inst);
        close(fd_);
    }

    // A new instance on the same socket; returns its first result.
    gatewalk::TurnResult_T Allocate(const sockaddr_storage& server)
    {
        results_.clear();
        qlox_gatewalk::TURN_INSTANCE_DATA* inst = nullptr;
        EXPECT_TRUE(qlox_gatewalk::TurnClient_StartAllocateTransaction(
            &inst, kTick, nullptr, "turnclient peer test", this, Sa(server), Env("TURN_USER").c_str(),
            Env("TURN_PASSWORD").c_str(), AF_INET, &Send, &Result, false, 0));
        if (inst) insts_.push_back(inst);
        gatewalk::TurnResult_T result = Wait();
        if (inst && result != gatewalk::TurnResult_AllocOk) {
            insts_.pop_back();  // keeps the indices of the live allocations
            qlox_gatewalk::TurnClient_free(inst);
        }
        return result;
    }
    // Serves the socket and the ticks for a while.
    void Run(std::chrono::milliseconds duration)
    {
        auto end = std::chrono::steady_clock::now() + duration;
        while (std::chrono::steady_clock::now() < end) Serve();
    }
    gatewalk::TurnResult_T Release(size_t which)
    {
        results_.clear();
        EXPECT_TRUE(qlox_gatewalk::TurnClient_Deallocate(insts_.at(which)));
        return Wait();
    }
    gatewalk::TURN_STATE Refresh(size_t which)
    {
        auto* inst = insts_.at(which);
        qlox_gatewalk::TurnClientSimulateSig(inst, gatewalk::TURN_SIGNAL_TimerRefreshAlloc);
        for (int i = 0; i < 300 && inst->state != gatewalk::TURN_STATE_Allocated; ++i) Serve();
        return inst->state;
    }

private:
    static constexpr unsigned kTick = 20;

    // Results come within the client's own retransmission budget (a few seconds of ticks).
    gatewalk::TurnResult_T Wait()
    {
        for (int i = 0; i < 300 && results_.empty(); ++i) Serve();
        return results_.empty() ? gatewalk::TurnResult_Empty : results_.front();
    }
    void Serve()
    {
        pollfd p{fd_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(kTick)) > 0) {
            uint8_t packet[2048];
            ssize_t n = recv(fd_, packet, sizeof packet, 0);
            // Each instance takes only the answers to its own transactions.
            for (auto* inst : insts_) {
                uint8_t copy[2048];
                std::memcpy(copy, packet, n > 0 ? static_cast<size_t>(n) : 0);
                auto length = static_cast<uint32_t>(n > 0 ? n : 0);
                qlox_gatewalk::TurnClient_ReceivePacket(inst, copy, &length, nullptr, 0, nullptr);
            }
            return;
        }
        for (auto* inst : insts_) qlox_gatewalk::TurnClient_HandleTick(inst);
    }
    static void Send(const unsigned char* bytes, unsigned long length, const sockaddr* to, void* ctx)
    {
        auto* self = static_cast<Client*>(ctx);
        sendto(self->fd_, bytes, length, 0, to, sizeof(sockaddr_in));
    }
    static void Result(void* ctx, gatewalk::TurnCallBackData_T* data)
    {
        static_cast<Client*>(ctx)->results_.push_back(data->turnResult);
    }

    int fd_ = -1;
    std::vector<qlox_gatewalk::TURN_INSTANCE_DATA*> insts_;
    std::vector<gatewalk::TurnResult_T> results_;
};

TEST_F(TurnCoturn, ReleaseIsSeenByTheServer)
{
    sockaddr_storage server = Addr(("127.0.0.1:" + port).c_str());
    Client c;
    ASSERT_EQ(c.Allocate(server), gatewalk::TurnResult_AllocOk);
    EXPECT_EQ(c.Refresh(0), gatewalk::TURN_STATE_Allocated) << "a refresh is accepted";
    // While the allocation lives, another one from the same address is a mismatch.
    EXPECT_EQ(c.Allocate(server), gatewalk::TurnResult_AllocFail);
    ASSERT_EQ(c.Release(0), gatewalk::TurnResult_RelayReleaseComplete);
    // coturn frees a released allocation on its next one-second sweep, not 600 s (its lifetime) later.
    gatewalk::TurnResult_T again = gatewalk::TurnResult_Empty;
    for (int attempt = 0; attempt < 50 && again != gatewalk::TurnResult_AllocOk; ++attempt) {
        if (attempt > 0) c.Run(std::chrono::milliseconds(100));
        again = c.Allocate(server);
    }
    EXPECT_EQ(again, gatewalk::TurnResult_AllocOk) << "the released 5-tuple is free again";
    EXPECT_EQ(c.Release(1), gatewalk::TurnResult_RelayReleaseComplete);
}

}  // namespace
