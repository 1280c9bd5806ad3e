// A pair of agents on the in-memory network, set up fresh for each test, and the checks that most
// tests share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "ice_sim.h"

namespace icetest {

template <class T>
class IceFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        a_ = static_cast<typename T::Inst*>(std::calloc(1, sizeof(typename T::Inst)));
        b_ = static_cast<typename T::Inst*>(std::calloc(1, sizeof(typename T::Inst)));
        net_ = std::make_unique<SimNet<T>>();
        net_->Init(a_, b_, Config());
    }
    void TearDown() override
    {
        std::free(a_);
        std::free(b_);
    }
    static typename T::Config Config(uint32_t timeoutMs = 0) { return DefaultConfig<T>(timeoutMs); }

    // A remote candidate for A, UDP host unless said otherwise.
    int Remote(uint32_t media, const char* ip, uint16_t port, uint32_t comp = 1, const char* foundation = "1",
               gatewalk::ICE_TRANSPORT transport = gatewalk::ICE_TRANS_UDP)
    {
        return T::AddRemoteCandidate(a_, media, foundation, comp, 100, ip, port, transport, gatewalk::ICE_CAND_TYPE_HOST);
    }

    // One stream (id 0) with one RTP host candidate each side.
    void HostPair()
    {
        SimNet<T>& n = *net_;
        n.AddStream(0, 0);
        n.AddStream(1, 0);
        n.AddCandidate(0, 0, "192.0.2.1", 5000, 1);
        n.AddCandidate(1, 0, "198.51.100.1", 6000, 1);
    }

    // Both sides completed without failure, on the same pair for every component of every stream.
    void ExpectSamePair(uint32_t streams, uint32_t components)
    {
        SimNet<T>& n = *net_;
        ASSERT_EQ(n.ep[0].completeCalls, 1);
        ASSERT_EQ(n.ep[1].completeCalls, 1);
        EXPECT_FALSE(n.ep[0].iceFailed);
        EXPECT_FALSE(n.ep[1].iceFailed);
        EXPECT_NE(T::IsControlling(a_), T::IsControlling(b_));
        for (uint32_t m = 0; m < streams; ++m) {
            const gatewalk::ICE_REMOTE_CANDIDATES* ra = T::GetActiveRemoteCandidates(a_, m);
            const gatewalk::ICE_REMOTE_CANDIDATES* rb = T::GetActiveRemoteCandidates(b_, m);
            ASSERT_NE(ra, nullptr);
            ASSERT_NE(rb, nullptr);
            ASSERT_EQ(ra->numberOfComponents, components);
            ASSERT_EQ(rb->numberOfComponents, components);
            for (uint32_t k = 0; k < components; ++k) {
                const uint32_t comp = ra->remoteCandidate[k].componentid;
                const gatewalk::ICE_CANDIDATE* la = T::GetActiveCandidate(a_, m, comp);
                const gatewalk::ICE_CANDIDATE* lb = T::GetActiveCandidate(b_, m, comp);
                ASSERT_NE(la, nullptr);
                ASSERT_NE(lb, nullptr);
                EXPECT_EQ(rb->remoteCandidate[k].componentid, comp);
                EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(la->connectionAddr), Sa(rb->remoteCandidate[k].connectionAddr)))
                    << "stream " << m << " component " << comp;
                EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(lb->connectionAddr), Sa(ra->remoteCandidate[k].connectionAddr)))
                    << "stream " << m << " component " << comp;
            }
        }
    }

    typename T::Inst* a_ = nullptr;
    typename T::Inst* b_ = nullptr;
    std::unique_ptr<SimNet<T>> net_;
};

using Profiles = ::testing::Types<QloxProfile, ZynProfile>;

}  // namespace icetest
