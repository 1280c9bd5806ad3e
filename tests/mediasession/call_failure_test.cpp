// Calls that go wrong, seen from the application: a peer whose certificate is not the one its
// description promised, and a peer that vanishes mid-call. Each ends in a clear status: the
// connection is lost (0), tried again, and after the second failure the session is over (11).
#include <gtest/gtest.h>

#include <regex>

#include "call_harness.h"

namespace {

using mstest::CallPair;

class CallFailureTest : public ::testing::Test {
protected:
    void SetUp() override { set_local_addr_allow_list({"127.0.0.1"}); }
    void TearDown() override { clear_local_addr_allow_list(); }
    mstest::EngineScope engine;
};

// Short time-outs: a connect gives up after 1.5 s, a silent path after 1.5 s.
void Configure(zyn::CMediaConnection& c, bool dtls)
{
    c.EnableICE(true);
    c.EnableDtlsSRTP(dtls);
    c.GetGlobalConfig()->EnableSRTP(dtls);
    c.GetGlobalConfig()->SetICETimeoutParams(1500, 1500, 1500);
}

TEST_F(CallFailureTest, AWrongRemoteFingerprintNeverKeysAndEndsTheSession)
{
    CallPair call({{ZynSessionType_Audio, 0}}, [](zyn::CMediaConnection& c) { Configure(c, true); });
    // The answer promises another certificate than B presents: the first hex pair changes.
    call.answerFilter = [](const std::string& answer) {
        std::smatch m;
        std::string out = answer;
        if (std::regex_search(out, m, std::regex("a=fingerprint:\\S+ ([0-9A-F]{2})")))
            out.replace(static_cast<size_t>(m.position(1)), 2, m.str(1) == "00" ? "01" : "00");
        return out;
    };
    ASSERT_TRUE(call.Exchange());
    ASSERT_TRUE(call.sink[0].Wait([&] { return call.sink[0].Saw(0, 11); }, std::chrono::seconds(30)))
        << "A never gave up";
    {
        std::lock_guard<std::mutex> lock(call.sink[0].mutex);
        EXPECT_EQ(2, call.sink[0].Count(0, 0));
        EXPECT_FALSE(call.sink[0].Saw(0, 2)) << "connected without keys";
    }
    _tagMediaPathStatistics path{};
    call.Line(0, 0)->GetPathStatistics(path);
    EXPECT_EQ(0u, path.packetsReceived) << "nothing was ever decrypted";
}

TEST_F(CallFailureTest, APeerThatVanishesEndsTheSessionAfterTheSecondFailure)
{
    CallPair call({{ZynSessionType_Audio, 0}}, [](zyn::CMediaConnection& c) { Configure(c, false); });
    ASSERT_TRUE(call.Exchange());
    ASSERT_TRUE(call.WaitAll(3));
    IZynMediaConnection* b = call.Conn(1);
    mstest::OnMain([b] { b->Stop(); });
    auto& a = call.sink[0];
    ASSERT_TRUE(a.Wait([&] { return a.Saw(0, 11); }, std::chrono::seconds(30)));
    std::lock_guard<std::mutex> lock(a.mutex);
    // Lost (silence), then two failed reconnects; the second ends the session.
    const std::vector<int>& s = a.statuses[0];
    ASSERT_GE(s.size(), 4u);
    EXPECT_EQ((std::vector<int>{0, 0, 0, 11}), std::vector<int>(s.end() - 4, s.end()));
}

}  // namespace
