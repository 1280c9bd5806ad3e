// Two connections of one process conclude ICE over loopback: both profiles, IPv4 and IPv6, with
// RTCP muxed and on a port of its own. Each side must see the other's end of the same pair.
#include <gtest/gtest.h>

#include "call_harness.h"

namespace {

using mstest::CallLine;
using mstest::CallPair;

struct Row {
    const char* name;
    int clientType;  // 2 runs the qlox profile, 0 the zyn one
    const char* address;
    bool mux;
};

const Row kRows[] = {
    {"zyn, IPv4, mux", 0, "127.0.0.1", true},
    {"zyn, IPv6, mux", 0, "::1", true},
    {"zyn, IPv4, RTCP apart", 0, "127.0.0.1", false},
    {"qlox, IPv4, mux", 2, "127.0.0.1", true},
    {"qlox, IPv6, RTCP apart", 2, "::1", false},
};

// "local -> remote" of one side is "remote -> local" of the other.
std::string Reverse(const std::string& pair)
{
    const size_t arrow = pair.find(" -> ");
    if (arrow == std::string::npos) return pair;
    return pair.substr(arrow + 4) + " -> " + pair.substr(0, arrow);
}

class IceCallTest : public ::testing::TestWithParam<Row> {
protected:
    void SetUp() override { set_local_addr_allow_list({GetParam().address}); }
    void TearDown() override { clear_local_addr_allow_list(); }
    mstest::EngineScope engine;
};

TEST_P(IceCallTest, BothSidesConcludeOnTheSamePair)
{
    const Row& row = GetParam();
    CallPair call({{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}}, [&](zyn::CMediaConnection& c) {
        c.EnableICE(true);
        c.GetGlobalConfig()->SetClientType(row.clientType);
        c.GetGlobalConfig()->EnableRTCPMux(row.mux);
    });
    ASSERT_TRUE(call.Exchange());
    ASSERT_TRUE(call.WaitAll(2)) << "a line never connected";
    for (unsigned long mid : {0ul, 1ul}) {
        SCOPED_TRACE(mid);
        const std::string a = call.Line(0, mid)->GetSelectedPair();
        const std::string b = call.Line(1, mid)->GetSelectedPair();
        ASSERT_FALSE(a.empty());
        EXPECT_EQ(a, Reverse(b));
        EXPECT_NE(std::string::npos, a.find(row.address)) << a;
        EXPECT_EQ(!row.mux, call.Line(0, mid)->HasRtcpTransport());
        EXPECT_EQ(!row.mux, call.Line(1, mid)->HasRtcpTransport());
        // Nobody is checking any more once both concluded.
        EXPECT_FALSE(call.Line(0, mid)->GetIceConnector().IsIceRunning());
    }
    // Media follows on the path: each side's first RTP arrives.
    ASSERT_TRUE(call.WaitAll(3)) << "no RTP crossed";
}

INSTANTIATE_TEST_SUITE_P(Rows, IceCallTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) {
                             std::string name = info.param.name;
                             for (char& ch : name)
                                 if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             return name;
                         });

}  // namespace
