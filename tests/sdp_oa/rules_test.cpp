// Answer rules of each kind of value, as tables. Agreement of the two ends is in two_sided_test.
#include "oa_test_util.h"

namespace {

using namespace sdp;
using oa_test::make_codecs;
using oa_test::payloads;

std::string h264(unsigned pt, const char* profile, int mode = 1)
{
    return std::to_string(pt) + " H264/90000 profile-level-id=" + profile + ";packetization-mode=" + std::to_string(mode);
}

TEST(Rules, Codecs)
{
    struct row {
        const char* name;
        std::vector<std::string> offered, local;
        std::vector<uint32_t> answer;
        payload_map map;
    };
    const row rows[] = {
        {"local numbers, offer order", {"0 PCMU/8000", "111 opus/48000/2"}, {"96 opus/48000/2", "0 PCMU/8000"}, {0, 96}, {{0, 0}, {96, 111}}},
        {"offer preference wins", {"9 G722/8000", "0 PCMU/8000"}, {"0 PCMU/8000", "9 G722/8000"}, {9, 0}, {{9, 9}, {0, 0}}},
        {"nothing common", {"8 PCMA/8000"}, {"0 PCMU/8000"}, {}, {}},
        {"constrained baseline answers baseline", {h264(97, "42001f")}, {h264(100, "42e01f")}, {100}, {{100, 97}}},
        {"baseline answers constrained baseline", {h264(97, "42e01f")}, {h264(100, "42001f")}, {100}, {{100, 97}}},
        {"other profiles must be equal", {h264(97, "4d001f")}, {h264(100, "42e01f"), h264(101, "4d001f")}, {101}, {{101, 97}}},
        {"levels are not compared", {h264(97, "42e00d")}, {h264(100, "42e034")}, {100}, {{100, 97}}},
        {"packetization mode must agree", {h264(97, "42e01f", 0)}, {h264(100, "42e01f")}, {}, {}},
        {"several local codecs answer one", {h264(97, "42e01f")}, {h264(100, "42e01f"), h264(101, "42001f")}, {100, 101},
         {{100, 97}, {101, 97}}},
        {"a local codec once, first number kept", {h264(97, "42e01f"), h264(98, "42001f")}, {h264(100, "42e01f")}, {100}, {{100, 97}}},
        {"AV1 local profile above the offered", {"45 AV1/90000 profile=0"}, {"35 AV1/90000 profile=1"}, {}, {}},
        {"AV1 local profile below the offered", {"45 AV1/90000 profile=1"}, {"35 AV1/90000 profile=0"}, {35}, {{35, 45}}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        payload_map map;
        auto local = make_codecs(r.local);
        auto answer = get_answer_codec(make_codecs(r.offered), local, map);
        EXPECT_EQ(payloads(answer), r.answer);
        EXPECT_EQ(map, r.map);
        for (const auto& c : answer)  // local codecs unchanged, parameters included
            EXPECT_NE(std::find(local.begin(), local.end(), c), local.end());
    }
}

TEST(Rules, Directions)
{
    // Rows: offered; columns: local inactive, recvonly, sendonly, sendrecv.
    using d = session_direction;
    const d table[4][4] = {{d::inactive, d::inactive, d::inactive, d::inactive},
                           {d::inactive, d::inactive, d::sendonly, d::sendonly},
                           {d::inactive, d::recvonly, d::inactive, d::recvonly},
                           {d::inactive, d::recvonly, d::sendonly, d::sendrecv}};
    for (unsigned o = 0; o < 4; ++o)
        for (unsigned l = 0; l < 4; ++l) {
            SCOPED_TRACE(std::to_string(o) + "/" + std::to_string(l));
            EXPECT_EQ(get_answer_direction(d(o), d(l)), table[o][l]);
            EXPECT_EQ(unsigned(get_answer_direction(ext_map_direction(o), ext_map_direction(l))), unsigned(table[o][l]));
        }
    EXPECT_EQ(negotiate_direction(d::sendonly, d::recvonly, true), d::sendonly);
    EXPECT_EQ(negotiate_direction(d::sendonly, d::recvonly, false), d::recvonly);
}

TEST(Rules, ExtMapIds)
{
    const std::string a = "urn:a", b = "urn:b", c = "urn:c";
    std::vector<ext_map> full, full_local;
    for (uint32_t id = 1; id <= 15; ++id) full.emplace_back(id, ext_map_sendrecv, "urn:s" + std::to_string(id));
    full_local = full;
    full_local.emplace_back(1, ext_map_sendrecv, a);
    auto full_offer = full;
    full_offer.emplace_back(4200, ext_map_sendrecv, a);
    struct row {
        const char* name;
        std::vector<ext_map> offered, local, answer;
    };
    const row rows[] = {
        {"static id and offered attributes kept", {{5, ext_map_sendrecv, a, "x"}}, {{9, ext_map_sendrecv, a, "y"}}, {{5, ext_map_sendrecv, a, "x"}}},
        {"unknown uri dropped", {{5, ext_map_sendrecv, b}}, {{5, ext_map_sendrecv, a}}, {}},
        {"direction from the table", {{5, ext_map_sendonly, a}}, {{2, ext_map_sendrecv, a}}, {{5, ext_map_recvonly, a}}},
        {"inactive dropped", {{5, ext_map_recvonly, a}}, {{2, ext_map_recvonly, a}}, {}},
        {"dynamic id: lowest free", {{4100, ext_map_sendrecv, a}}, {{3, ext_map_sendrecv, a}}, {{1, ext_map_sendrecv, a}}},
        {"dynamic id avoids ids of the offer",
         {{4100, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}, {2, ext_map_sendrecv, c}},
         {{3, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}}, {{3, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}}},
        {"two dynamic ids", {{4096, ext_map_sendrecv, a}, {4351, ext_map_sendrecv, b}},
         {{7, ext_map_sendrecv, b}, {8, ext_map_sendrecv, a}}, {{1, ext_map_sendrecv, a}, {2, ext_map_sendrecv, b}}},
        {"no free id drops the entry", full_offer, full_local, full},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        auto answer = get_answer_ext_map(r.offered, r.local);
        EXPECT_EQ(answer, r.answer);
        // Both views use the answered id, whichever side is named.
        for (bool is_local : {true, false})
            for (const auto& e : negotiate_ext_map(r.offered, answer, is_local)) EXPECT_FALSE(ext_map::is_ext_map_id_dynamic(e.id));
    }
}

TEST(Rules, Crypto)
{
    auto line = [](int tag, const char* suite, const char* key, const char* params = "") {
        return crypto(attribute_line::create("a=crypto:" + std::to_string(tag) + " " + suite + " inline:" + key +
                                             (*params ? " " : "") + params));
    };
    const char *k80 = "AES_CM_128_HMAC_SHA1_80", *k32 = "AES_CM_128_HMAC_SHA1_32";
    struct row {
        const char* name;
        std::vector<crypto> offered, local, answer;
    };
    const row rows[] = {
        {"offered tag and suite, local key", {line(1, k80, "O")}, {line(7, k80, "L")}, {line(1, k80, "L")}},
        {"first offered entry that fits", {line(1, "AES_256_CM_HMAC_SHA1_80", "O1"), line(2, k32, "O2"), line(3, k80, "O3")},
         {line(1, k80, "L80"), line(2, k32, "L32")}, {line(2, k32, "L32")}},
        {"no common suite", {line(1, k80, "O")}, {line(1, k32, "L")}, {}},
        {"session flags must agree", {line(1, k80, "O", "UNENCRYPTED_SRTCP")}, {line(1, k80, "L")}, {}},
        {"local session parameters", {line(1, k80, "O", "UNENCRYPTED_SRTP")}, {line(5, k80, "L", "UNENCRYPTED_SRTP")},
         {line(1, k80, "L", "UNENCRYPTED_SRTP")}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(get_answer_crypto(r.offered, r.local), r.answer);
    }
    // Two offered entries of one suite: the echoed tag tells which one the answer took.
    std::vector<crypto> offer = {line(1, k80, "O1"), line(2, k80, "O2")}, answer = {line(2, k80, "A")};
    EXPECT_EQ(negotiate_crypto(offer, answer, true), std::vector<crypto>{offer[1]});
    EXPECT_EQ(negotiate_crypto(offer, answer, false), answer);

    auto prime = [](const std::string& v) { return prime_crypto(attribute_line::create("a=prime-crypto:" + v)); };
    auto base = prime("1 S p1 inline:O");
    EXPECT_TRUE(prime_crypto_is_compatible(base, prime("4 S p1 inline:L")));
    EXPECT_FALSE(prime_crypto_is_compatible(base, prime("4 T p1 inline:L")));
    EXPECT_FALSE(prime_crypto_is_compatible(base, prime("4 S p2 inline:L")));
    EXPECT_FALSE(prime_crypto_is_compatible(base, prime("4 S p1 inline:L EKT=AES|k|1")));
    auto with_ekt = prime("1 S p inline:O EKT=AES|o|1"), local_ekt = prime("9 S p inline:L EKT=AES|l|2");
    EXPECT_EQ(get_answer_prime_crypto({with_ekt}, {local_ekt}), std::vector<prime_crypto>{prime("1 S p inline:L EKT=AES|l|2")});
}

TEST(Rules, DtlsRoles)
{
    const auto act = dtls_setup_active, pas = dtls_setup_passive, ap = dtls_setup_actpass;
    struct row {
        dtls_setup_role offered, local;
        int answer;  // -1: refused
    };
    const row rows[] = {{pas, act, act}, {pas, ap, act}, {pas, pas, -1}, {act, pas, pas}, {act, ap, pas},
                        {act, act, -1},  {ap, pas, pas}, {ap, act, act}, {ap, ap, act}};
    for (const auto& r : rows) {
        SCOPED_TRACE(dtls_setup_role_to_string(r.offered) + "/" + dtls_setup_role_to_string(r.local));
        optional_value<dtls_caps> offered = dtls_caps(r.offered, {fingerprint("sha-256", "O")});
        auto answer = get_answer_dtls(offered, dtls_caps(r.local, {fingerprint("sha-256", "L")}));
        ASSERT_EQ(answer.is_set(), r.answer >= 0);
        if (r.answer < 0) continue;
        EXPECT_EQ(answer.get_data(), dtls_caps(dtls_setup_role(r.answer), {fingerprint("sha-256", "L")}));
        // The offerer takes the other role and keeps its own fingerprint.
        auto mine = negotiate_dtls(offered, answer, true);
        EXPECT_EQ(mine.get_data().role, r.answer == act ? pas : act);
        EXPECT_EQ(mine.get_data().fingerprints.front().value, "O");
        EXPECT_EQ(negotiate_dtls(offered, answer, false), answer);
    }
    EXPECT_TRUE(get_answer_dtls({}, dtls_caps(ap, {fingerprint("sha-256", "L")})).empty());
}

TEST(Rules, BfcpRoles)
{
    using roles = std::vector<bfcp_floor_control_role>;
    const auto c = bfcp_role_c_only, s = bfcp_role_s_only, cs = bfcp_role_c_s;
    struct row {
        roles offered, local, answer;
    };
    const row rows[] = {{{s}, {c}, {c}},  {{s}, {cs}, {c}}, {{s}, {s}, {}},       {{c}, {s}, {s}},
                        {{c}, {cs}, {s}}, {{c}, {c}, {}},   {{cs}, {c}, {c}},     {{cs}, {s}, {s}},
                        {{cs}, {cs}, {s}}, {{c, s}, {c}, {c}}, {{s, c}, {s}, {s}}, {{}, {cs}, {}}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::PrintToString(r.offered) + "/" + testing::PrintToString(r.local));
        auto answer = get_answer_bfcp_floor_control_role(r.offered, r.local);
        EXPECT_EQ(answer, r.answer);
        if (answer.empty()) continue;
        // One client and one server after the conclusion.
        auto mine = negotiate_bfcp_floor_control_role(r.offered, answer, true);
        ASSERT_EQ(mine.size(), 1u);
        EXPECT_NE(mine[0], answer[0]);
    }
}

TEST(Rules, ResilienceAndMultistream)
{
    auto sobe = [](std::vector<std::string> v, bool rate, std::vector<std::string> rtx, std::vector<std::string> hybrid = {},
                   uint32_t flow = 0) {
        sobe_caps s;
        s.versions = v, s.rate_adaptation = rate, s.rtx_versions = rtx, s.hybrid_versions = hybrid, s.hybrid_data_flow = flow;
        return optional_value<sobe_caps>(s);
    };
    struct row {
        const char* name;
        optional_value<sobe_caps> offered, local, answer;
    };
    const row rows[] = {
        {"versions in offered order", sobe({"2.0", "1.0", "1.5"}, true, {"1.0"}), sobe({"1.0", "1.5", "2.0"}, true, {"1.0"}),
         sobe({"2.0", "1.0", "1.5"}, true, {"1.0"})},
        {"no common version", sobe({"2.0"}, true, {}), sobe({"1.0"}, true, {}), {}},
        {"one side without", {}, sobe({"1.0"}, false, {}), {}},
        {"rate adaptation needs both", sobe({"1.0"}, true, {}), sobe({"1.0"}, false, {}), sobe({"1.0"}, false, {})},
        {"hybrid: data flow ANDed", sobe({"1.0"}, false, {"1.0", "2.0"}, {"1.0"}, 7), sobe({"1.0"}, false, {"2.0"}, {"1.0", "3.0"}, 5),
         sobe({"1.0"}, false, {"2.0"}, {"1.0"}, 5)},
        {"hybrid needs common RTX", sobe({"1.0"}, false, {"1.0"}, {"1.0"}, 7), sobe({"1.0"}, false, {"2.0"}, {"1.0"}, 7),
         sobe({"1.0"}, false, {})},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(get_answer_sobe(r.offered, r.local), r.answer);
    }
    auto hybrid = get_answer_sobe_hybrid_resilience(sobe_hybrid_resilience({"1.0", "2.0"}, 3), sobe_hybrid_resilience({"2.0"}, 6));
    EXPECT_EQ(hybrid, optional_value<sobe_hybrid_resilience>(sobe_hybrid_resilience({"2.0"}, 2)));

    // SCR versions: the AND of both bit sets, none in common means no multistream.
    auto cm = [](unsigned bits, uint32_t source) { return optional_value<cmulti_caps>(cmulti_caps({sprop_source(source)}, {}, bits)); };
    const unsigned scr[][3] = {{15, 15, 15}, {1, 15, 1}, {15, 6, 6}, {8, 4, 0}, {9, 12, 8}};
    for (const auto& r : scr) {
        auto answer = get_answer_cmulti(cm(r[0], 1), cm(r[1], 2));
        ASSERT_EQ(answer.is_set(), r[2] != 0);
        if (!answer.is_set()) continue;
        EXPECT_EQ(answer.get_data().scr_versions, r[2]);
        EXPECT_EQ(answer.get_data().sources.front().source_id, 2u);  // the answer announces local sources
    }

    optional_value<rtcp_xr> xr = rtcp_xr(attribute_line::create("a=rtcp-xr:rcvr-rtt=all:10 voip-metrics"));
    EXPECT_EQ(get_answer_rtcp_xr(xr, rtcp_xr(attribute_line::create("a=rtcp-xr:rcvr-rtt=sender"))).get_data().formats,
              (std::map<std::string, std::string>{{"rcvr-rtt", "all:10"}}));
}

TEST(Rules, RidRestrictions)
{
    const std::string av1 = "35 AV1/90000 profile=0;level_idx=8", vp8 = "96 VP8/90000";
    struct row {
        const char* name;
        std::vector<std::string> codecs, offered, local, answer;
    };
    const row rows[] = {
        {"tighter value of each key", {av1}, {"hi send max-width=640;max-height=720"}, {"hi recv max-width=1280;max-height=360"},
         {"a=rid:hi recv max-height=360;max-width=640"}},
        {"offered payloads through the map", {av1}, {"hi send pt=45;max-width=640"}, {"hi recv max-width=1280"},
         {"a=rid:hi recv pt=35;max-width=640"}},
        {"local payloads that were answered", {av1, vp8}, {"hi send pt=45"}, {"hi recv pt=35,99;max-fs=3600"},
         {"a=rid:hi recv pt=35;max-fs=3600"}},
        {"offered key unknown locally", {av1}, {"hi send max-br=100"}, {"hi recv max-width=1280"}, {}},
        {"same direction", {av1}, {"hi recv max-width=640"}, {"hi recv max-width=1280"}, {}},
        {"a codec that cannot take it", {av1, vp8}, {"hi send max-width=640"}, {"hi recv max-width=1280"}, {}},
        {"named payloads none answered", {av1}, {"hi send pt=46"}, {"hi recv max-width=1280"}, {}},
        {"each local rid meets its own", {av1}, {"hi send max-width=1280", "lo send max-width=320"},
         {"lo recv max-width=640", "hi recv max-width=1920"}, {"a=rid:lo recv max-width=320", "a=rid:hi recv max-width=1280"}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        std::vector<rid> offered, local, result;
        for (const auto& t : r.offered) offered.emplace_back(attribute_line::create("a=rid:" + t));
        for (const auto& t : r.local) local.emplace_back(attribute_line::create("a=rid:" + t));
        get_answer_restrictions(result, make_codecs(r.codecs), {{35, 45}, {96, 96}}, offered, local);
        std::vector<std::string> printed;
        for (const auto& x : result) printed.push_back(x.as_parameter_string());
        EXPECT_EQ(printed, r.answer);
    }
    // A local key without a value takes the offered one or disappears.
    std::vector<rid> result;
    get_answer_restrictions(result, make_codecs({av1}), {{35, 45}}, {rid(attribute_line::create("a=rid:hi send max-width=640"))},
                            {rid("hi", rid_recv, {}, {{"max-width", {}}, {"max-fs", {}}})});
    ASSERT_EQ(result.size(), 1u);
    EXPECT_EQ(result[0].as_parameter_string(), "a=rid:hi recv max-width=640");
    EXPECT_EQ(result[0].restrictions.size(), 1u);
}

}  // namespace
