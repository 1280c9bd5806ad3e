// Two of our agents over real UDP sockets on loopback (127.0.0.1 and ::1), in both profiles: a
// poll() loop delivers what arrives and ticks both agents every 10 ms, as the connector's ICE thread
// does. They must conclude on the same pair. Nothing here measures time.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>

#include "ice_wire.h"

namespace {

using namespace icetest;

template <class T>
struct UdpNet {
    Endpoint<T> ep[2];
    int sock[2] = {-1, -1};
    sockaddr_storage local[2];
    int tick = 0;

    ~UdpNet()
    {
        for (int s : sock) {
            if (s >= 0) close(s);
        }
    }

    static void Send(void* ctx, int from, const uint8_t* bytes, uint32_t length, const sockaddr*,
                     const sockaddr* destination)
    {
        auto* self = static_cast<UdpNet*>(ctx);
        const socklen_t size = destination->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        // A lost datagram is what retransmission is for; nothing to do about a failed send here.
        (void)sendto(self->sock[from], bytes, length, 0, destination, size);
    }

    bool Open(int e, const char* ip)
    {
        local[e] = Addr(ip, 0);
        sock[e] = socket(local[e].ss_family, SOCK_DGRAM, 0);
        if (sock[e] < 0) return false;
        socklen_t size = local[e].ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        if (bind(sock[e], Sa(local[e]), size) != 0) return false;
        size = sizeof local[e];
        return getsockname(sock[e], Sa(local[e]), &size) == 0;
    }

    void Receive(int e)
    {
        uint8_t bytes[gatewalk::STUN_MAX_PACKET_SIZE];
        sockaddr_storage from;
        socklen_t size = sizeof from;
        const ssize_t n = recvfrom(sock[e], bytes, sizeof bytes, MSG_DONTWAIT, Sa(from), &size);
        if (n > 0) ep[e].Receive(bytes, static_cast<uint32_t>(n), Sa(from), Sa(local[e]), nullptr);
    }
};

template <class T>
class IceUdp : public ::testing::Test {};
using Profiles = ::testing::Types<QloxProfile, ZynProfile>;
TYPED_TEST_SUITE(IceUdp, Profiles);

TYPED_TEST(IceUdp, TwoAgentsConcludeOnTheSamePairOverLoopback)
{
    using T = TypeParam;
    for (const char* ip : {"127.0.0.1", "::1"}) {
        SCOPED_TRACE(ip);
        // Zeroed blocks, as the connector allocates them.
        const std::unique_ptr<typename T::Inst[]> block(new typename T::Inst[2]());
        typename T::Inst* a = &block[0];
        typename T::Inst* b = &block[1];
        auto net = std::make_unique<UdpNet<T>>();
        const typename T::Config config = DefaultConfig<T>();
        typename T::Inst* insts[2] = {a, b};
        for (int e = 0; e < 2; ++e) {
            ASSERT_TRUE(net->Open(e, ip));
            Endpoint<T>& ep = net->ep[e];
            ep.Init(insts[e], e, &config);
            ep.send = &UdpNet<T>::Send;
            ep.sendCtx = net.get();
            ep.now = &net->tick;
            ASSERT_EQ(T::AddLocalMediaStream(insts[e], 0, 0, 0, gatewalk::ICE_CAND_TYPE_HOST), 0);
            ASSERT_EQ(T::AddLocalCandidate(insts[e], 0, 1, Sa(net->local[e]), nullptr, gatewalk::ICE_TRANS_UDP,
                                           gatewalk::ICE_CAND_TYPE_HOST, 65535),
                      0);
        }
        for (int e = 0; e < 2; ++e) {
            const gatewalk::ICE_MEDIA_STREAM* s = T::GetLocalMediaStream(insts[1 - e], 0);
            ASSERT_EQ(T::AddRemoteMediaStream(insts[e], 0, s->ufrag, s->passwd, Sa(s->defaultAddr)), 0);
            ASSERT_EQ(T::AddRemoteCandidate(insts[e], 0, s->candidate[0].foundation, 1, s->candidate[0].priority, ip,
                                            static_cast<uint16_t>(gatewalk::sockaddr_ipPort(Sa(net->local[1 - e]))),
                                            gatewalk::ICE_TRANS_UDP, gatewalk::ICE_CAND_TYPE_HOST),
                      0);
        }
        net->ep[0].started = T::Start(a, true, 0xA0A0);
        net->ep[1].started = T::Start(b, false, 0x0B0B);
        ASSERT_TRUE(net->ep[0].started && net->ep[1].started);

        using Clock = std::chrono::steady_clock;
        const auto tickPeriod = std::chrono::milliseconds(10);
        const auto giveUp = Clock::now() + std::chrono::seconds(20);  // a hung run, not a measurement
        auto nextTick = Clock::now();
        while ((net->ep[0].completeCalls == 0 || net->ep[1].completeCalls == 0) && Clock::now() < giveUp) {
            const auto now = Clock::now();
            if (now >= nextTick) {
                ++net->tick;
                for (Endpoint<T>& ep : net->ep) {
                    T::Tick(ep.inst);
                    ep.Retransmit();
                }
                nextTick += tickPeriod;
                continue;
            }
            pollfd fds[2] = {{net->sock[0], POLLIN, 0}, {net->sock[1], POLLIN, 0}};
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(nextTick - now).count();
            if (poll(fds, 2, static_cast<int>(wait) + 1) <= 0) continue;
            for (int e = 0; e < 2; ++e) {
                if (fds[e].revents & POLLIN) net->Receive(e);
            }
        }
        ASSERT_EQ(net->ep[0].completeCalls, 1);
        ASSERT_EQ(net->ep[1].completeCalls, 1);
        EXPECT_FALSE(net->ep[0].iceFailed);
        EXPECT_FALSE(net->ep[1].iceFailed);
        for (int e = 0; e < 2; ++e) {
            const gatewalk::ICE_CANDIDATE* mine = T::GetActiveCandidate(insts[e], 0, 1);
            const gatewalk::ICE_REMOTE_CANDIDATES* theirs = T::GetActiveRemoteCandidates(insts[1 - e], 0);
            ASSERT_NE(mine, nullptr);
            ASSERT_NE(theirs, nullptr);
            ASSERT_EQ(theirs->numberOfComponents, 1u);
            EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(mine->connectionAddr), Sa(net->local[e])));
            EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(theirs->remoteCandidate[0].connectionAddr), Sa(net->local[e])));
        }
    }
}

}  // namespace
