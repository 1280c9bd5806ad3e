// The exchange object: its states, versions, refusals, and the shape of the answers it prints.
#include <fstream>
#include <functional>
#include <sstream>

#include "oa_test_util.h"

namespace {

using namespace sdp;
using oa_test::make_group;
using oa_test::rtp_at;
using oa_test::sdp_text;

const std::vector<std::string> kHead = {"v=0", "o=peer 0 7 IN IP4 192.0.2.1", "s=-", "c=IN IP4 192.0.2.1", "t=0 0"};

std::vector<std::string> with_head(std::vector<std::string> body)
{
    auto lines = kHead;
    lines.insert(lines.end(), body.begin(), body.end());
    return lines;
}

session_group local_audio(const char* direction = "a=sendrecv")
{
    return make_group({"v=0", "o=me 0 0 IN IP4 10.0.0.1", "s=-", "c=IN IP4 10.0.0.1", "t=0 0",
                       "m=audio 5000 RTP/AVP 0 96", "a=rtpmap:0 PCMU/8000", "a=rtpmap:96 opus/48000/2", direction});
}

const std::string kAudioOffer = sdp_text(with_head({"m=audio 6000 RTP/AVP 0 111", "a=rtpmap:111 opus/48000/2"}));

std::string state_error(const std::function<void()>& fn)
{
    try {
        fn();
    } catch (const offer_answer_state_exception& e) {
        return e.what();
    }
    return "<none>";
}

TEST(OfferAnswerState, Transitions)
{
    enum op { offer, answer, conclude };
    struct row {
        const char* name;
        std::vector<op> before;
        op call;
        const char* error;  // nullptr: allowed
        offer_answer_state after;
    };
    const row rows[] = {
        {"offer from initial", {}, offer, nullptr, offer_answer_state::local_offer},
        {"offer twice", {offer}, offer, "requested illegal offer/answer state transition from 'local offer' to 'local offer'",
         offer_answer_state::local_offer},
        {"answer from initial", {}, answer, nullptr, offer_answer_state::initial},
        {"answer with an offer out", {offer}, answer,
         "requested illegal offer/answer state transition from 'local offer' to 'remote offer'", offer_answer_state::local_offer},
        {"conclude an offer", {offer}, conclude, nullptr, offer_answer_state::initial},
        {"conclude without offer", {}, conclude,
         "requested illegal offer/answer state transition from 'initial' to 'remote answer'", offer_answer_state::initial},
        {"conclude after answering", {answer}, conclude,
         "requested illegal offer/answer state transition from 'initial' to 'remote answer'", offer_answer_state::initial},
        {"answer again after a concluded offer", {offer, conclude}, answer, nullptr, offer_answer_state::initial},
        {"offer again after a concluded offer", {offer, conclude}, offer, nullptr, offer_answer_state::local_offer},
        {"offer after answering", {answer, answer}, offer, nullptr, offer_answer_state::local_offer},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        offer_answer oa(local_audio());
        auto run = [&](op o) {
            switch (o) {
            case offer: oa.get_offer(); break;
            case answer: oa.get_answer(kAudioOffer); break;
            case conclude: oa.set_answer(kAudioOffer); break;
            }
        };
        for (op o : r.before) run(o);
        EXPECT_EQ(state_error([&] { run(r.call); }), r.error ? r.error : "<none>");
        EXPECT_EQ(oa.get_state(), r.after);
    }
}

TEST(OfferAnswerState, RefusedTextsChangeNothing)
{
    offer_answer oa(local_audio());
    EXPECT_THROW(oa.get_answer("garbage"), std::invalid_argument);
    EXPECT_EQ(oa.get_session_version(), 0u);
    EXPECT_TRUE(oa.get_local_negotiated().empty() && oa.get_remote().empty());
    oa.get_answer(kAudioOffer);
    auto local_view = oa.get_local_negotiated();
    std::string offer = oa.get_offer();
    // The refused call changes nothing: the same offer can still be concluded.
    EXPECT_NE(state_error([&] { oa.get_answer(kAudioOffer); }), "<none>");
    EXPECT_THROW(oa.set_answer("v=0\r\nnot a description\r\n"), std::invalid_argument);
    EXPECT_EQ(oa.get_state(), offer_answer_state::local_offer);
    EXPECT_EQ(oa.get_local_negotiated(), local_view);
    oa.set_answer(kAudioOffer);
    EXPECT_EQ(oa.get_state(), offer_answer_state::initial);
}

std::string origin_version(const std::string& text)
{
    return session_description::create(text).origin_lines.front().get_session_version();
}

TEST(OfferAnswerVersion, OneMorePerDescription)
{
    offer_answer oa(local_audio());
    EXPECT_EQ(origin_version(oa.get_offer()), "1");
    oa.set_answer(kAudioOffer);
    EXPECT_EQ(origin_version(oa.get_answer(kAudioOffer)), "2");
    EXPECT_EQ(origin_version(oa.get_answer(kAudioOffer)), "3");
    EXPECT_EQ(origin_version(oa.get_offer()), "4");
    EXPECT_EQ(oa.get_session_version(), 4u);
    EXPECT_EQ(oa.get_local().session_version, "4");

    // A connection starts at the largest value so that its first description says 0.
    offer_answer wrapped(local_audio());
    wrapped.set_session_version(0xFFFFFFFFu);
    EXPECT_EQ(origin_version(wrapped.get_offer()), "0");
}

std::size_t media_count(const std::string& text) { return session_description::create(text).get_media_descriptions().size(); }

TEST(OfferAnswerShape, AsManyMediaLinesAsTheOffer)
{
    const char* files[] = {"01_browser_offer_bundle.sdp", "03_browser_offer_rtx_red.sdp", "04_simulcast_rids.sdp",
                           "05_dtls_sctp_legacy.sdp",     "06_sip_video_bfcp.sdp",        "07_sip_audio_only.sdp",
                           "08_sip_audio_srtp.sdp",       "09_multistream_video.sdp",     "10_resilience.sdp",
                           "11_ipv6_dual.sdp",            "13_av1_h264_video.sdp",        "14_rejected_sections.sdp",
                           "15_content_slides_bandwidth.sdp", "16_rtcp_port_no_mux.sdp",  "17_aac_ix_tcp.sdp"};
    for (const char* local_file : {"07_sip_audio_only.sdp", "01_browser_offer_bundle.sdp", "06_sip_video_bfcp.sdp"}) {
        for (const char* f : files) {
            SCOPED_TRACE(std::string(local_file) + " answers " + f);
            auto read = [](const char* name) {
                std::ifstream in(std::string(SDP_DATA_DIR) + "/" + name, std::ios::binary);
                std::stringstream ss;
                ss << in.rdbuf();
                return ss.str();
            };
            offer_answer oa(session_group(session_description::create(read(local_file))));
            std::string offer = read(f);
            std::string answer = oa.get_answer(offer);
            EXPECT_EQ(media_count(answer), media_count(offer));
            ASSERT_TRUE(oa.get_local_negotiated().is_set());
            EXPECT_EQ(oa.get_local_negotiated().get_data().sessions.size(), media_count(offer));
            EXPECT_EQ(oa.get_remote_negotiated().get_data().sessions.size(), media_count(offer));
        }
    }
}

TEST(OfferAnswerShape, OneLocalSessionAnswersEveryAudioLine)
{
    std::string offer = sdp_text(with_head({"m=audio 6000 RTP/AVP 0", "a=sendonly", "m=audio 6002 RTP/AVP 0", "a=recvonly",
                                            "m=video 6004 RTP/AVP 96", "a=rtpmap:96 VP8/90000"}));
    offer_answer oa(local_audio());
    auto answer = session_group(session_description::create(oa.get_answer(offer)));
    ASSERT_EQ(answer.sessions.size(), 3u);
    EXPECT_EQ(rtp_at(answer, 0).direction, session_direction::recvonly);
    EXPECT_EQ(rtp_at(answer, 1).direction, session_direction::sendonly);
    EXPECT_TRUE(answer.sessions[2].is_disabled());
    EXPECT_EQ(answer.sessions[2].disabled.get_data().media_type, "video");
    // Each line keeps its own direction in the views, though both came from one local session.
    const auto& local = oa.get_local_negotiated().get_data();
    EXPECT_EQ(rtp_at(local, 0).direction, session_direction::recvonly);
    EXPECT_EQ(rtp_at(local, 1).direction, session_direction::sendonly);
    EXPECT_TRUE(local.sessions[2].is_disabled());
    const auto& remote = oa.get_remote_negotiated().get_data();
    EXPECT_EQ(rtp_at(remote, 0).direction, session_direction::sendonly);
    EXPECT_EQ(rtp_at(remote, 0).port, 6000);
    EXPECT_EQ(rtp_at(remote, 1).port, 6002);
}

TEST(OfferAnswerShape, SessionLevelFieldsOfTheAnswer)
{
    auto local = local_audio();
    local.ice_lite = true;
    local.bandwidth.emplace_back("TIAS", 2000000);
    local.sobe = sobe_caps();
    local.sobe.get_data().versions = {"1.0"};
    offer_answer oa(local);
    std::string offer = sdp_text(with_head({"a=vorta-sobe:2.0,1.0", "a=group:BUNDLE a v",
                                            "m=audio 6000 RTP/AVP 0", "a=mid:a", "m=video 6002 RTP/AVP 96",
                                            "a=rtpmap:96 VP8/90000", "a=mid:v"}));
    auto answer = session_group(session_description::create(oa.get_answer(offer)));
    EXPECT_EQ(answer.user_name, "me");
    EXPECT_EQ(answer.ip_address, "10.0.0.1");
    EXPECT_TRUE(answer.ice_lite);
    EXPECT_EQ(answer.get_bandwidth().get_data(), 2000000u);
    ASSERT_TRUE(answer.sobe.is_set());
    EXPECT_EQ(answer.sobe.get_data().versions, std::vector<std::string>{"1.0"});
    // The accepted line keeps the offered mid and stays in the bundle; the refused one leaves it.
    EXPECT_EQ(rtp_at(answer, 0).mid.get_data(), "a");
    EXPECT_EQ(answer.bundle, std::vector<std::string>{"a"});
}

TEST(OfferAnswerShape, NoMatchIsARefusalNotAnError)
{
    offer_answer oa(local_audio());
    std::string offer = sdp_text(with_head({"m=audio 6000 RTP/AVP 8", "m=application 6002 UDP/BFCP *", "a=floorctrl:c-s",
                                            "m=video 6004 RTP/AVP 96", "a=rtpmap:96 VP8/90000", "a=content:slides"}));
    std::string answer = oa.get_answer(offer);
    EXPECT_NE(answer.find("m=audio 0 RTP/AVP *"), std::string::npos) << answer;
    EXPECT_NE(answer.find("m=application 0 UDP/BFCP *"), std::string::npos);
    EXPECT_NE(answer.find("m=video 0 RTP/AVP *"), std::string::npos);
}

}  // namespace
