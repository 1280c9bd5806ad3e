// A connector that reconnects by itself after its NAT gave it a new mapping, both profiles, on
// loopback sockets with time driven by the test: the new sockets' path reaches its own line as a
// new path, its keep-alive does not take the new sockets' port for another rebinding, and the far
// end, complete, moves to the pair its controlling peer nominates, unless its own path still hears
// the peer.
#include "ice_connector_harness.h"

namespace {

using icetest::OnNetwork;
using icetest::Settle;
using icetest::Side;
using zyn::IceTimer;

template <class C>
class IceReconnectTest : public ::testing::Test {
protected:
    void SetUp() override { set_local_addr_allow_list({"127.0.0.1"}); }
    void TearDown() override { clear_local_addr_allow_list(); }
    mstest::EngineScope engine;
};

using Profiles = ::testing::Types<zyn::CIceConnector, zyn::CIceConnectorQLOX>;
TYPED_TEST_SUITE(IceReconnectTest, Profiles);

template <class C>
size_t Completions(Side<C>& s)
{
    std::lock_guard<std::mutex> lock(s.line.mutex);
    return s.line.completions.size();
}

// `a` steps, and `b` with it when `stepFar`, until `a` told its line `n` times, or the time is up. A far
// end whose clock stands still never finds its path quiet, however many steps a loaded machine takes.
template <class C>
bool StepUntil(Side<C>& a, Side<C>& b, size_t n, bool stepFar, int maxMs = 5000)
{
    for (int t = 0; t < maxMs && Completions(a) < n; t += 10) {
        OnNetwork([&] {
            a.Step();
            if (stepFar) b.Step();
        });
        Settle();
    }
    return Completions(a) >= n;
}

// One keep-alive round from `s`, until the peer's answer came back (loopback delivery is not always
// immediate under load): so the peer has heard it, and `s` has read the port it is seen from.
template <class C>
void KeepAlive(Side<C>& s)
{
    OnNetwork([&] { s.connector->OnIceTimer(IceTimer::KeepAlive); });
    size_t unanswered = 1;
    for (int i = 0; i < 500 && unanswered > 0; ++i) {
        Settle();
        OnNetwork([&] { unanswered = s.connector->GetKeepAliveSentCount(); });
    }
    EXPECT_EQ(0u, unanswered) << "a keep-alive went unanswered";
}

TYPED_TEST(IceReconnectTest, TheNewPathReachesBothLinesUnlessTheFarPathStillHearsThePeer)
{
    struct Case {
        const char* name;
        uint64_t farQuietMs;  // how long the far end's path heard nothing when the nomination comes
        bool farFollows;
    };
    const Case cases[] = {
        {"the far path went quiet", 2000, true},
        {"the far path still hears the peer", 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Side<TypeParam> a, b;
        a.Gather(true);
        b.Gather(true);
        OnNetwork([&] {
            ASSERT_EQ(ZYN_S_OK, a.connector->SetRemoteCandidates(b.caps, b.defaultAddr, true, 11, 0, true));
            ASSERT_EQ(ZYN_S_OK, b.connector->SetRemoteCandidates(a.caps, a.defaultAddr, false, 22, 0, true));
        });
        ASSERT_TRUE(icetest::RunUntilConcluded(a, b));
        const std::string oldA = a.line.completions.front().local;
        // The far end hears a keep-alive on its path, and the near end learns the port it is seen from.
        KeepAlive(a);
        b.timers.now += c.farQuietMs;

        OnNetwork([&] {
            // Ports of their own for the new sockets: a port chosen again would make the old pair.
            a.connector->SetPortRange(52100, 52149);
            ASSERT_EQ(ZYN_S_OK, a.connector->Reconnect());
        });
        ASSERT_TRUE(StepUntil(a, b, 2, c.farFollows));
        const auto renewed = a.line.completions.back();
        EXPECT_EQ(0, renewed.reason);
        EXPECT_NE(oldA, renewed.local) << "new sockets";
        EXPECT_EQ(b.line.completions.front().local, renewed.remote);

        // The nominating check may still be on its way to the far end under load.
        const size_t farExpected = c.farFollows ? 2u : 1u;
        for (int i = 0; i < 500 && Completions(b) < farExpected; ++i) Settle();
        ASSERT_EQ(farExpected, Completions(b));
        if (c.farFollows) {
            EXPECT_EQ(0, b.line.completions.back().reason);
            EXPECT_EQ(renewed.local, b.line.completions.back().remote);
        }
        // The new sockets' first keep-alive answers are no rebinding of their own.
        KeepAlive(a);
        KeepAlive(a);
        EXPECT_EQ(0, a.line.mappedPortChanges);
    }
}

}  // namespace
