// Answer and conclusion rules of the capability sets: resilience, multistream SCR versions,
// extended reports and BFCP floor control roles.
#include "oa_test_util.h"

namespace {

using namespace sdp;

sobe_caps make_sobe(std::vector<std::string> versions, bool rate, std::vector<std::string> rtx,
                    std::vector<std::string> hybrid = {}, uint32_t flow = 0)
{
    sobe_caps s;
    s.versions = std::move(versions);
    s.rate_adaptation = rate;
    s.rtx_versions = std::move(rtx);
    s.hybrid_versions = std::move(hybrid);
    s.hybrid_data_flow = flow;
    return s;
}

struct sobe_case {
    const char* name;
    optional_value<sobe_caps> offered, local, answer;
};

TEST(Sobe, AnswerTable)
{
    const std::vector<sobe_case> cases = {
        {"versions in offered order", make_sobe({"2.0", "1.0", "1.5"}, true, {"1.0"}),
         make_sobe({"1.0", "1.5", "2.0"}, true, {"1.0"}), make_sobe({"2.0", "1.0", "1.5"}, true, {"1.0"})},
        {"no common version", make_sobe({"2.0"}, true, {"1.0"}), make_sobe({"1.0"}, true, {"1.0"}), {}},
        {"offer without resilience", {}, make_sobe({"1.0"}, false, {}), {}},
        {"local without resilience", make_sobe({"1.0"}, false, {}), {}, {}},
        {"rate adaptation needs both", make_sobe({"1.0"}, true, {}), make_sobe({"1.0"}, false, {}),
         make_sobe({"1.0"}, false, {})},
        {"hybrid with RTX, data flow ANDed", make_sobe({"1.0"}, false, {"1.0", "2.0"}, {"1.0"}, 7),
         make_sobe({"1.0"}, false, {"2.0"}, {"1.0", "3.0"}, 5), make_sobe({"1.0"}, false, {"2.0"}, {"1.0"}, 5)},
        {"hybrid dropped without common RTX", make_sobe({"1.0"}, false, {"1.0"}, {"1.0"}, 7),
         make_sobe({"1.0"}, false, {"2.0"}, {"1.0"}, 7), make_sobe({"1.0"}, false, {})},
        {"hybrid dropped without common version", make_sobe({"1.0"}, false, {"1.0"}, {"1.0"}, 7),
         make_sobe({"1.0"}, false, {"1.0"}, {"2.0"}, 7), make_sobe({"1.0"}, false, {"1.0"})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto answer = get_answer_sobe(c.offered, c.local);
        EXPECT_EQ(answer, c.answer);
        if (answer.is_set()) {
            EXPECT_TRUE(answer.get_data().is_valid());
        }
        EXPECT_EQ(negotiate_sobe(c.local, c.offered, false), c.answer);
    }
}

TEST(Sobe, MediaHybridResilience)
{
    optional_value<sobe_hybrid_resilience> offered = sobe_hybrid_resilience({"1.0", "2.0"}, 3);
    optional_value<sobe_hybrid_resilience> local = sobe_hybrid_resilience({"2.0", "1.0"}, 6);
    auto answer = get_answer_sobe_hybrid_resilience(offered, local);
    ASSERT_TRUE(answer.is_set());
    EXPECT_EQ(answer.get_data().versions, (std::vector<std::string>{"1.0", "2.0"}));
    EXPECT_EQ(answer.get_data().data_flow, 2u);
    EXPECT_TRUE(answer.get_data().is_dataflow_rtx_all_supported());
    EXPECT_FALSE(answer.get_data().is_dataflow_rtx_media_supported());
    EXPECT_EQ(negotiate_sobe_hybrid_resilience(local, offered, true).get_data().versions,
              (std::vector<std::string>{"2.0", "1.0"}));
    EXPECT_TRUE(get_answer_sobe_hybrid_resilience(offered, sobe_hybrid_resilience({"3.0"}, 7)).empty());
    EXPECT_TRUE(get_answer_sobe_hybrid_resilience(offered, {}).empty());
}

cmulti_caps make_cmulti(unsigned bits, uint32_t source)
{
    sprop_total total;
    total.max_channels = source + 1;
    return cmulti_caps({sprop_source(source)}, {sprop_simul(source, 100, "*")}, bits, total);
}

TEST(Cmulti, ScrVersionIntersection)
{
    struct row {
        unsigned offered, local;
        unsigned answer;  // 0: no multistream
    };
    const row rows[] = {{15, 15, 15}, {1, 15, 1}, {15, 6, 6}, {8, 4, 0}, {3, 2, 2}, {9, 12, 8}};
    for (const auto& r : rows) {
        SCOPED_TRACE(std::to_string(r.offered) + " & " + std::to_string(r.local));
        auto answer = get_answer_cmulti(make_cmulti(r.offered, 1), make_cmulti(r.local, 2));
        ASSERT_EQ(answer.is_set(), r.answer != 0);
        if (!answer.is_set()) continue;
        EXPECT_EQ(answer.get_data().scr_versions, r.answer);
        // The answer announces the local sources.
        EXPECT_EQ(answer.get_data().sources.front().source_id, 2u);
        EXPECT_EQ(answer.get_data().total.get_data().max_channels.get_data(), 3u);
    }
    EXPECT_EQ(negotiate_cmulti(make_cmulti(3, 1), make_cmulti(2, 2), true).get_data().sources.front().source_id, 1u);
    EXPECT_TRUE(get_answer_cmulti({}, make_cmulti(1, 1)).empty());
    EXPECT_TRUE(get_answer_cmulti(make_cmulti(1, 1), {}).empty());
}

TEST(RtcpXr, FormatsInBoth)
{
    optional_value<rtcp_xr> offered = rtcp_xr(attribute_line::create("a=rtcp-xr:rcvr-rtt=all:10 stat-summary=loss,jitt voip-metrics"));
    optional_value<rtcp_xr> local = rtcp_xr(attribute_line::create("a=rtcp-xr:rcvr-rtt=sender stat-summary=dup"));
    auto answer = get_answer_rtcp_xr(offered, local);
    ASSERT_TRUE(answer.is_set());
    EXPECT_EQ(answer.get_data().as_attribute_line().as_sdp(), "a=rtcp-xr:rcvr-rtt=all:10 stat-summary=jitt,loss\r\n");
    EXPECT_EQ(negotiate_rtcp_xr(local, offered, true).get_data().as_attribute_line().as_sdp(),
              "a=rtcp-xr:rcvr-rtt=sender stat-summary=dup\r\n");
    EXPECT_TRUE(get_answer_rtcp_xr(offered, rtcp_xr(attribute_line::create("a=rtcp-xr:pkt-loss-rle"))).empty());
    EXPECT_TRUE(get_answer_rtcp_xr({}, local).empty());
}

TEST(Bfcp, FloorControlRoleTable)
{
    using roles = std::vector<bfcp_floor_control_role>;
    const auto c = bfcp_role_c_only, s = bfcp_role_s_only, cs = bfcp_role_c_s;
    struct row {
        roles offered, local, answer;
    };
    const row rows[] = {
        {{s}, {c}, {c}},   {{s}, {cs}, {c}}, {{s}, {s}, {}},
        {{c}, {s}, {s}},   {{c}, {cs}, {s}}, {{c}, {c}, {}},
        {{cs}, {c}, {c}},  {{cs}, {s}, {s}}, {{cs}, {cs}, {s}},
        {{c, s}, {c}, {c}}, {{s, c}, {s}, {s}}, {{}, {cs}, {}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::PrintToString(r.offered) + " / " + testing::PrintToString(r.local));
        auto answer = get_answer_bfcp_floor_control_role(r.offered, r.local);
        EXPECT_EQ(answer, r.answer);
        if (answer.empty()) continue;
        // The offerer concludes to the other end of the floor: one client, one server.
        auto offerer = negotiate_bfcp_floor_control_role(r.offered, answer, true);
        ASSERT_EQ(offerer.size(), 1u);
        EXPECT_NE(offerer[0], answer[0]);
        EXPECT_EQ(negotiate_bfcp_floor_control_role(answer, r.offered, true), answer);
        EXPECT_EQ(negotiate_bfcp_floor_control_role(answer, r.offered, false), offerer);
    }
}

}  // namespace
