// The agent owns no heap: a whole in-memory run of both profiles (set-up, checks, a NAT rewrite
// with peer-reflexive candidates, nomination, conclusion, keep-alive) does no operator new and no
// OpenSSL allocation once OpenSSL's lazy start-up is behind us. The harness itself is built of fixed
// tables, so every count here is the agent's or the codec's.
#include <gtest/gtest.h>

#include "../common/heap_count.h"
#include "ice_sim.h"

namespace {

using namespace icetest;

// Static: the instances and the network are large, and must exist before counting starts.
template <class T>
struct Storage {
    static inline typename T::Inst insts[4];
    static inline SimNet<T> nets[2];
};

// Returns whether both sides concluded on the NAT's outside address.
template <class T>
bool NatRun(int round)
{
    SimNet<T>& n = Storage<T>::nets[round];
    n.Init(&Storage<T>::insts[2 * round], &Storage<T>::insts[2 * round + 1], DefaultConfig<T>());
    for (int e = 0; e < 2; ++e) {
        n.AddStream(e, 0);
        n.AddCandidate(e, 0, e == 0 ? "192.0.2.1" : "198.51.100.1", 5000, 1);
        n.AddCandidate(e, 0, e == 0 ? "192.0.2.1" : "198.51.100.1", 5001, 2);
    }
    n.natOn = true;
    n.natInside = Addr("192.0.2.1", 5000);
    n.natOutside = Addr("203.0.113.5", 6000);
    n.Exchange();
    n.Start(0, true, 11);
    n.Start(1, false, 12);
    if (!n.Run(500)) return false;
    for (int i = 0; i < 250; ++i) n.Step();  // keep-alive time after completion
    const gatewalk::ICE_CANDIDATE* active = T::GetActiveCandidate(n.ep[0].inst, 0, 1);
    return !n.ep[0].iceFailed && !n.ep[1].iceFailed && active != nullptr &&
           gatewalk::sockaddr_alike(Sa(active->connectionAddr), Sa(n.natOutside));
}

template <class T>
class IceNoHeap : public ::testing::Test {};
using Profiles = ::testing::Types<QloxProfile, ZynProfile>;
TYPED_TEST_SUITE(IceNoHeap, Profiles);

TYPED_TEST(IceNoHeap, AWholeRunAllocatesNothing)
{
    ASSERT_TRUE(NatRun<TypeParam>(0));  // warm-up: OpenSSL's random and HMAC start lazily
    const long news = heap_count::news;
    const long crypto = heap_count::cryptoAllocs;
    const bool ok = NatRun<TypeParam>(1);
    const long newsDuring = heap_count::news - news;
    const long cryptoDuring = heap_count::cryptoAllocs - crypto;
    EXPECT_TRUE(ok);
    EXPECT_EQ(newsDuring, 0);
    EXPECT_EQ(cryptoDuring, 0);
}

}  // namespace
