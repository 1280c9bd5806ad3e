// Connectors under test on real loopback sockets, with time in the test's hands: each connector
// reads a fake clock and its timers fire only when the test fires them, on the network thread.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config/GlobalConfig.h"
#include "ice/IceConnectorImpl.h"
#include "test_support.h"
#include "tp/CmThreadManager.h"

namespace icetest {

using zyn::IceTimer;

class FakeTimers final : public zyn::IIceTimerService {
public:
    struct Entry {
        uint32_t periodMs = 0;
        uint32_t count = 0;
        bool scheduled = false;
    };
    uint64_t NowMs() override { return now; }
    void Schedule(IceTimer t, uint32_t periodMs, uint32_t count) override { entries[Index(t)] = {periodMs, count, true}; }
    void Cancel(IceTimer t) override { entries[Index(t)].scheduled = false; }
    bool IsScheduled(IceTimer t) const override { return entries[Index(t)].scheduled; }
    const Entry& Get(IceTimer t) const { return entries[Index(t)]; }
    static size_t Index(IceTimer t) { return static_cast<size_t>(t); }

    uint64_t now = 100000;
    std::array<Entry, static_cast<size_t>(IceTimer::Count)> entries{};
};

// What a media line hears from its connector.
class FakeLine final : public zyn::IceConnectorSink {
public:
    struct Completion {
        CmResult reason;
        int count;
        int origin;
        std::string local, remote;  // of the RTP transport
    };
    void OnIceComplete(CmResult reason, ICmTransport* const* transports, int count, int origin, bool) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        Completion c{reason, count, origin, "", ""};
        if (transports && transports[0] && count > 0) {
            c.local = transports[0]->GetLocalAddr().ToString();
            c.remote = transports[0]->GetPeerAddr().ToString();
        }
        completions.push_back(c);
    }
    void OnIceCheckListReady(int) override {}
    void UpdateIceMetricsForSipCall(CmResult, ICmTransport* const*, int) override {}
    void OnMappedPortChangedInKeepalive(int) override { ++mappedPortChanges; }
    ZynResult setupSrtpCrypto(int direction, const char* suite, const char* key, int, int) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        keys.push_back(std::to_string(direction) + " " + suite + " " + key);
        return ZYN_S_OK;
    }
    bool IsDtlsSRTPEnabled() const override { return dtls; }
    int GetClientType() const override { return 0; }
    bool IsSipCall() const override { return false; }
    void OnReceive(CCmMessageBlock& data, ICmTransport*, CCmTransportParameter*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        received.emplace_back(data.GetTopLevelReadPtr(), data.GetTopLevelLength());
    }
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult reason, ICmTransport*) override { disconnects.push_back(reason); }

    std::mutex mutex;
    bool dtls = false;
    std::vector<Completion> completions;
    std::vector<std::string> keys;
    std::vector<std::string> received;
    std::vector<CmResult> disconnects;
    int mappedPortChanges = 0;
};

inline ACmThread* Network() { return CCmThreadManager::Instance()->GetThread(TT_AUDIO_NETWORK); }

// Runs f on the connectors' network thread and waits for it.
template <class F>
void OnNetwork(F f)
{
    CmInvokeInThread(Network(), false, [&] {
        f();
        return CM_OK;
    });
}

// Two round trips to the network thread: what was sent before has been read and handled.
inline void Settle()
{
    OnNetwork([] {});
    OnNetwork([] {});
}

// One connector of profile C with its line and its clock.
template <class C>
struct Side {
    Side()
    {
        connector = std::make_unique<C>(&line, 7);
        connector->SetTimerService(&timers);
        connector->SetNetworkThreadType(TT_AUDIO_NETWORK);
        connector->SetPortRange(52000, 52049);
        connector->SetSessionType(ZynSessionType_Audio);
        connector->SetGlobalConfig(&config);
    }
    ~Side()
    {
        OnNetwork([this] { connector.reset(); });
    }
    FakeLine line;
    FakeTimers timers;
    zyn::CGlobalConfig config;  // no owner: every setting is taken
    std::unique_ptr<C> connector;
    sdp::optional_value<sdp::ice_caps> caps;
    CCmInetAddr defaultAddr;

    // Host candidates on the given addresses (127.0.0.1 by default); without ice, plain ports only.
    void Gather(bool mux, std::vector<std::string> addresses = {"127.0.0.1"}, bool ice = true)
    {
        connector->SetAddressSource([addresses] {
            std::vector<CCmInetAddr> out;
            for (const std::string& a : addresses) out.emplace_back(a.c_str(), 0);
            return out;
        });
        OnNetwork([&] {
            ASSERT_EQ(ZYN_S_OK, connector->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, mux, ice));
            connector->GetIceCandidates(caps, defaultAddr);
        });
    }
    // Moves the clock by ms in 10 ms steps, firing the timers that would fire, and lets the network
    // thread read what the step sent.
    void Step()
    {
        timers.now += 10;
        if (timers.IsScheduled(IceTimer::IceTick)) connector->OnIceTimer(IceTimer::IceTick);
        if (timers.now % 50 == 0 && timers.IsScheduled(IceTimer::CheckSend)) connector->OnIceTimer(IceTimer::CheckSend);
    }
    bool Concluded()
    {
        std::lock_guard<std::mutex> lock(line.mutex);
        return !line.completions.empty();
    }
};

// Both sides step together until both told their lines, or the time is up.
template <class C>
bool RunUntilConcluded(Side<C>& a, Side<C>& b, int maxMs = 5000)
{
    for (int t = 0; t < maxMs; t += 10) {
        OnNetwork([&] {
            a.Step();
            b.Step();
        });
        Settle();
        if (a.Concluded() && b.Concluded()) return true;
    }
    return false;
}

// A plain UDP socket of the test on 127.0.0.1: the independent end of the wire.
class RawSocket {
public:
    RawSocket()
    {
        m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        CCmInetAddr any("127.0.0.1", 0);
        bind(m_fd, any.GetPtr(), any.GetSize());
        timeval tv{5, 0};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    }
    ~RawSocket() { close(m_fd); }
    void SendTo(const CCmInetAddr& to, const std::vector<uint8_t>& bytes)
    {
        sendto(m_fd, bytes.data(), bytes.size(), 0, to.GetPtr(), to.GetSize());
    }
    // One datagram, or empty when none came within the bound (a failure bound, not a pace: the
    // callers send something that is answered last and read until it came).
    std::vector<uint8_t> Receive()
    {
        std::vector<uint8_t> out(2048);
        const ssize_t n = recv(m_fd, out.data(), out.size(), 0);
        out.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return out;
    }
    // What has come, without waiting.
    std::vector<uint8_t> TryReceive(sockaddr_storage* from = nullptr)
    {
        std::vector<uint8_t> out(2048);
        socklen_t length = sizeof(sockaddr_storage);
        const ssize_t n = recvfrom(m_fd, out.data(), out.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(from),
                                   from ? &length : nullptr);
        out.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return out;
    }
    CCmInetAddr Local() const
    {
        sockaddr_storage s{};
        socklen_t len = sizeof s;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&s), &len);
        return CCmInetAddr(reinterpret_cast<sockaddr*>(&s), len);
    }

private:
    int m_fd = -1;
};

}  // namespace icetest
