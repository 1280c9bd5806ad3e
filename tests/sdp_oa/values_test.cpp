// Answer and conclusion rules of the payload description: codecs, directions, feedback, header
// extensions and simulcast restrictions.
#include <algorithm>

#include "oa_test_util.h"

namespace {

using namespace sdp;
using oa_test::make_codecs;
using oa_test::payloads;

const char* kPcmu = "0 PCMU/8000";
const char* kPcma = "8 PCMA/8000";
const char* kG722 = "9 G722/8000";
const char* kH264Cb = "profile-level-id=42e01f;packetization-mode=1";  // constrained baseline
const char* kH264B = "profile-level-id=42001f;packetization-mode=1";   // baseline
const char* kH264Main = "profile-level-id=4d001f;packetization-mode=1";

std::string h264(unsigned pt, const char* fmtp) { return std::to_string(pt) + " H264/90000 " + fmtp; }

struct codec_case {
    const char* name;
    std::vector<std::string> offered;
    std::vector<std::string> local;
    std::vector<uint32_t> answer;
    payload_map map;
};

TEST(AnswerCodec, LocalPayloadNumbersInOfferOrder)
{
    const std::vector<codec_case> cases = {
        {"local numbers, offer order", {kPcmu, "111 opus/48000/2"}, {"96 opus/48000/2", kPcmu}, {0, 96}, {{0, 0}, {96, 111}}},
        {"offer preference wins", {kG722, kPcmu}, {kPcmu, kPcma, kG722}, {9, 0}, {{9, 9}, {0, 0}}},
        {"nothing common", {kPcma}, {kPcmu, kG722}, {}, {}},
        {"constrained baseline answers baseline", {h264(97, kH264B)}, {h264(100, kH264Cb)}, {100}, {{100, 97}}},
        {"baseline answers constrained baseline", {h264(97, kH264Cb)}, {h264(100, kH264B)}, {100}, {{100, 97}}},
        {"main only with main", {h264(97, kH264Main)}, {h264(100, kH264Cb), h264(101, kH264Main)}, {101}, {{101, 97}}},
        {"levels are not compared",
         {h264(97, "profile-level-id=42e00d;packetization-mode=1")}, {h264(100, "profile-level-id=42e034;packetization-mode=1")},
         {100}, {{100, 97}}},
        {"packetization mode must agree", {h264(97, "profile-level-id=42e01f;packetization-mode=0")}, {h264(100, kH264Cb)}, {}, {}},
        {"several local codecs answer one offered", {h264(97, kH264Cb)}, {h264(100, kH264Cb), h264(101, kH264B)}, {100, 101},
         {{100, 97}, {101, 97}}},
        {"a local codec is answered once, first offered number kept", {h264(97, kH264Cb), h264(98, kH264B)},
         {h264(100, kH264Cb)}, {100}, {{100, 97}}},
        {"AV1 local profile may not exceed the offered", {"45 AV1/90000 profile=0"}, {"35 AV1/90000 profile=1"}, {}, {}},
        {"AV1 lower local profile answers", {"45 AV1/90000 profile=1"}, {"35 AV1/90000 profile=0"}, {35}, {{35, 45}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        payload_map map;
        auto answer = get_answer_codec(make_codecs(c.offered), make_codecs(c.local), map);
        EXPECT_EQ(payloads(answer), c.answer);
        EXPECT_EQ(map, c.map);
    }
}

TEST(AnswerCodec, AnswerKeepsTheLocalParameters)
{
    payload_map map;
    auto answer = get_answer_codec(make_codecs({h264(97, "profile-level-id=42e00d;packetization-mode=1")}),
                                   make_codecs({h264(100, "profile-level-id=42e034;packetization-mode=1")}), map);
    ASSERT_EQ(answer.size(), 1u);
    EXPECT_EQ(answer[0], oa_test::make_codec(h264(100, "profile-level-id=42e034;packetization-mode=1")));
}

TEST(NegotiateCodec, NamedSideAndOrder)
{
    auto offer = make_codecs({h264(97, kH264Cb), kPcmu, "45 AV1/90000 profile=1"});
    auto answer = make_codecs({"35 AV1/90000 profile=0", h264(100, kH264B)});
    // Each side's view lists its own codecs in its own order.
    EXPECT_EQ(payloads(negotiate_codec(offer, answer, true)), (std::vector<uint32_t>{97, 45}));
    EXPECT_EQ(payloads(negotiate_codec(offer, answer, false)), (std::vector<uint32_t>{35, 100}));
    // The answerer's views mirror the offerer's: compatibility counts in either direction.
    EXPECT_EQ(negotiate_codec(answer, offer, false), negotiate_codec(offer, answer, true));
    EXPECT_EQ(negotiate_codec(answer, offer, true), negotiate_codec(offer, answer, false));
}

TEST(Direction, AnswerTable)
{
    using d = session_direction;
    struct row {
        d offered, local, answer;
    };
    const row rows[] = {
        {d::inactive, d::inactive, d::inactive}, {d::inactive, d::recvonly, d::inactive},
        {d::inactive, d::sendonly, d::inactive}, {d::inactive, d::sendrecv, d::inactive},
        {d::recvonly, d::inactive, d::inactive}, {d::recvonly, d::recvonly, d::inactive},
        {d::recvonly, d::sendonly, d::sendonly}, {d::recvonly, d::sendrecv, d::sendonly},
        {d::sendonly, d::inactive, d::inactive}, {d::sendonly, d::recvonly, d::recvonly},
        {d::sendonly, d::sendonly, d::inactive}, {d::sendonly, d::sendrecv, d::recvonly},
        {d::sendrecv, d::inactive, d::inactive}, {d::sendrecv, d::recvonly, d::recvonly},
        {d::sendrecv, d::sendonly, d::sendonly}, {d::sendrecv, d::sendrecv, d::sendrecv},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(session_direction_to_string(r.offered)) + " / " + session_direction_to_string(r.local));
        EXPECT_EQ(get_answer_direction(r.offered, r.local), r.answer);
        EXPECT_EQ(static_cast<unsigned>(get_answer_direction(static_cast<ext_map_direction>(r.offered),
                                                             static_cast<ext_map_direction>(r.local))),
                  static_cast<unsigned>(r.answer));
        // Offerer's view of the conclusion: its own direction as the answer to the peer's answer.
        EXPECT_EQ(negotiate_direction(r.offered, r.answer, true), get_answer_direction(r.answer, r.offered));
        EXPECT_EQ(negotiate_direction(r.offered, r.answer, false), get_answer_direction(r.offered, r.answer));
    }
    // A sendonly offer answered recvonly: the offerer sends, the answerer receives.
    EXPECT_EQ(negotiate_direction(d::sendonly, d::recvonly, true), d::sendonly);
    EXPECT_EQ(negotiate_direction(d::recvonly, d::sendonly, true), d::recvonly);
}

TEST(RtcpFeedback, EqualByValueInOfferedOrder)
{
    std::vector<rtcp_feedback> offered = {{"96", "nack"}, {"96", "nack pli"}, {"*", "ccm vorta-scr"}, {"97", "nack"}};
    std::vector<rtcp_feedback> local = {{"*", "ccm vorta-scr"}, {"96", "nack"}, {"98", "nack"}};
    std::vector<rtcp_feedback> expected = {{"96", "nack"}, {"*", "ccm vorta-scr"}};
    EXPECT_EQ(get_answer_rtcp_feedback(offered, local), expected);
    EXPECT_EQ(negotiate_rtcp_feedback(offered, local, true), expected);
    EXPECT_EQ(negotiate_rtcp_feedback(offered, local, false), (std::vector<rtcp_feedback>{{"*", "ccm vorta-scr"}, {"96", "nack"}}));
}

struct ext_case {
    const char* name;
    std::vector<ext_map> offered;
    std::vector<ext_map> local;
    std::vector<ext_map> answer;
};

TEST(ExtMap, AnswerIdsAndDirections)
{
    const std::string a = "urn:a", b = "urn:b", c = "urn:c";
    std::vector<ext_map> fifteen_static;
    for (uint32_t id = 1; id <= 15; ++id) fifteen_static.emplace_back(id, ext_map_sendrecv, "urn:s" + std::to_string(id));
    auto fifteen_local = fifteen_static;
    fifteen_local.emplace_back(1, ext_map_sendrecv, a);
    auto fifteen_offered = fifteen_static;
    fifteen_offered.emplace_back(4200, ext_map_sendrecv, a);

    const std::vector<ext_case> cases = {
        {"static id kept, offered uri and attributes", {{5, ext_map_sendrecv, a, "x=1"}}, {{9, ext_map_sendrecv, a, "y"}},
         {{5, ext_map_sendrecv, a, "x=1"}}},
        {"unknown uri dropped", {{5, ext_map_sendrecv, b}}, {{5, ext_map_sendrecv, a}}, {}},
        {"direction from the table", {{5, ext_map_sendonly, a}}, {{2, ext_map_sendrecv, a}}, {{5, ext_map_recvonly, a}}},
        {"inactive result dropped", {{5, ext_map_recvonly, a}}, {{2, ext_map_recvonly, a}}, {}},
        {"dynamic id gets lowest free", {{4100, ext_map_sendrecv, a}}, {{3, ext_map_sendrecv, a}}, {{1, ext_map_sendrecv, a}}},
        {"dynamic id avoids ids the offer uses",
         {{4100, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}, {2, ext_map_sendrecv, c}},
         {{3, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}},
         {{3, ext_map_sendrecv, a}, {1, ext_map_sendrecv, b}}},
        {"two dynamic ids take 1 and 2", {{4096, ext_map_sendrecv, a}, {4351, ext_map_sendrecv, b}},
         {{7, ext_map_sendrecv, b}, {8, ext_map_sendrecv, a}}, {{1, ext_map_sendrecv, a}, {2, ext_map_sendrecv, b}}},
        {"no free id drops the entry", fifteen_offered, fifteen_local, fifteen_static},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(get_answer_ext_map(c.offered, c.local), c.answer);
    }
}

TEST(ExtMap, ConclusionKeepsTheAnsweredId)
{
    std::vector<ext_map> offer = {{4100, ext_map_sendrecv, "urn:a"}, {6, ext_map_sendonly, "urn:b"}};
    std::vector<ext_map> local = {{9, ext_map_sendrecv, "urn:a"}, {9, ext_map_sendrecv, "urn:b"}};
    auto answer = get_answer_ext_map(offer, local);
    ASSERT_EQ(answer, (std::vector<ext_map>{{1, ext_map_sendrecv, "urn:a"}, {6, ext_map_recvonly, "urn:b"}}));
    // Offerer: its own view sends urn:b, the peer's receives it; both use id 1 for urn:a.
    EXPECT_EQ(negotiate_ext_map(offer, answer, true),
              (std::vector<ext_map>{{1, ext_map_sendrecv, "urn:a"}, {6, ext_map_sendonly, "urn:b"}}));
    EXPECT_EQ(negotiate_ext_map(offer, answer, false), answer);
    EXPECT_EQ(negotiate_ext_map(answer, offer, true), negotiate_ext_map(offer, answer, false));
    EXPECT_EQ(negotiate_ext_map(answer, offer, false), negotiate_ext_map(offer, answer, true));
}

rid make_rid(const std::string& text) { return rid(attribute_line::create("a=rid:" + text)); }

struct rid_case {
    const char* name;
    std::vector<std::string> codecs;  // answered codecs, local numbers
    payload_map map;
    std::vector<std::string> offered;
    std::vector<std::string> local;
    std::vector<std::string> answer;  // as_parameter_string
};

TEST(Restrictions, MergeAndAv1)
{
    const std::string av1 = "35 AV1/90000 profile=0;level_idx=8";
    const std::string vp8 = "96 VP8/90000";
    const std::vector<rid_case> cases = {
        {"tighter value of each key", {av1}, {{35, 45}}, {"hi send max-width=640;max-height=720"},
         {"hi recv max-width=1280;max-height=360"}, {"a=rid:hi recv max-height=360;max-width=640"}},
        {"offered payloads through the map", {av1}, {{35, 45}}, {"hi send pt=45;max-width=640"},
         {"hi recv max-width=1280"}, {"a=rid:hi recv pt=35;max-width=640"}},
        {"local payloads kept when answered", {av1, vp8}, {{35, 45}, {96, 96}}, {"hi send pt=45"},
         {"hi recv pt=35,99;max-fs=3600"}, {"a=rid:hi recv pt=35;max-fs=3600"}},
        {"offered key unknown locally refuses", {av1}, {{35, 45}}, {"hi send max-br=100"}, {"hi recv max-width=1280"}, {}},
        {"same direction does not pair", {av1}, {{35, 45}}, {"hi recv max-width=640"}, {"hi recv max-width=1280"}, {}},
        {"different id does not pair", {av1}, {{35, 45}}, {"lo send max-width=640"}, {"hi recv max-width=1280"}, {}},
        {"a codec that cannot take restrictions skips the rid", {av1, vp8}, {{35, 45}, {96, 96}},
         {"hi send max-width=640"}, {"hi recv max-width=1280"}, {}},
        {"only VP8 allowed skips the rid", {av1, vp8}, {{35, 45}, {96, 96}}, {"hi send pt=96"}, {"hi recv max-width=1280"}, {}},
        {"named payloads none answered", {av1}, {{35, 45}}, {"hi send pt=46"}, {"hi recv max-width=1280"}, {}},
        {"each local rid meets its own", {av1}, {{35, 45}}, {"hi send max-width=1280", "lo send max-width=320"},
         {"lo recv max-width=640", "hi recv max-width=1920"},
         {"a=rid:lo recv max-width=320", "a=rid:hi recv max-width=1280"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<rid> offered, local, result;
        for (const auto& t : c.offered) offered.push_back(make_rid(t));
        for (const auto& t : c.local) local.push_back(make_rid(t));
        get_answer_restrictions(result, make_codecs(c.codecs), c.map, offered, local);
        std::vector<std::string> printed;
        for (const auto& r : result) printed.push_back(r.as_parameter_string());
        EXPECT_EQ(printed, c.answer);
    }
}

TEST(Restrictions, UndefinedKeysDropped)
{
    rid local("hi", rid_recv, {}, {{"max-width", 1280u}, {"max-fs", {}}});
    std::vector<rid> result;
    get_answer_restrictions(result, make_codecs({"35 AV1/90000 profile=0;level_idx=8"}), {{35, 45}},
                            {make_rid("hi send max-width=640")}, {local});
    ASSERT_EQ(result.size(), 1u);
    EXPECT_EQ(result[0].restrictions.size(), 1u);
    EXPECT_EQ(result[0].restrictions.at("max-width").get_data(), 640u);
}

TEST(Restrictions, ConclusionSeenFromEachSide)
{
    std::vector<rid> offer = {make_rid("hi send max-width=1280;max-height=720"), make_rid("lo recv max-width=320")};
    std::vector<rid> answer = {make_rid("hi recv max-width=640;max-fs=900"), make_rid("lo send max-width=160")};
    auto views = [](const std::vector<rid>& a, const std::vector<rid>& b, bool is_local) {
        auto out = negotiate_restrictions(a, b, is_local);
        auto peer = negotiate_restrictions(b, a, !is_local);
        std::vector<std::string> printed;
        for (const auto& r : out) printed.push_back(r.as_parameter_string());
        for (const auto& r : peer) printed.push_back(r.as_parameter_string());
        return printed;
    };
    // The sender honours every key the receiver restricted, at the tighter value.
    EXPECT_EQ(views(offer, answer, true),
              (std::vector<std::string>{"a=rid:hi send max-fs=900;max-height=720;max-width=640", "a=rid:lo recv max-width=160"}));
    EXPECT_EQ(views(offer, answer, false),
              (std::vector<std::string>{"a=rid:hi recv max-fs=900;max-height=720;max-width=640", "a=rid:lo send max-width=160"}));
    auto sorted = [](std::vector<std::string> v) {
        std::sort(v.begin(), v.end());
        return v;
    };
    EXPECT_EQ(sorted(views(answer, offer, false)), sorted(views(offer, answer, true)));
    EXPECT_EQ(sorted(views(answer, offer, true)), sorted(views(offer, answer, false)));
}

}  // namespace
