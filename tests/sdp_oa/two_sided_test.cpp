// Two ends of one call: A offers, B answers, A concludes. Both ends must come out with the same
// picture of the call: what A sees of itself is what B sees of its peer, and the other way round.
#include <set>

#include "oa_test_util.h"

namespace {

using namespace sdp;
using oa_test::make_group;
using oa_test::payloads;

const char* kFpA = "a=fingerprint:sha-256 AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA:AA";
const char* kFpB = "a=fingerprint:sha-256 BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB:BB";

std::vector<std::string> head(const char* user, const char* address)
{
    return {"v=0", std::string("o=") + user + " 0 0 IN IP4 " + address, "s=-", std::string("c=IN IP4 ") + address, "t=0 0"};
}

std::vector<std::string> join(std::vector<std::string> a, const std::vector<std::string>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct call {
    std::string offer, answer;
    session_group a_local_view, a_remote_view, b_local_view, b_remote_view;
};

call run_call(const session_group& a, const session_group& b)
{
    offer_answer side_a(a), side_b(b);
    std::string offer = side_a.get_offer();
    std::string answer = side_b.get_answer(offer);
    side_a.set_answer(answer);
    return {offer, answer, side_a.get_local_negotiated().get_data(), side_a.get_remote_negotiated().get_data(),
            side_b.get_local_negotiated().get_data(), side_b.get_remote_negotiated().get_data()};
}

// The DTLS capability of an m line, when its kind has one.
const optional_value<dtls_caps>* dtls_of(const session& s)
{
    return s.is_rtp() ? &s.rtp.get_data().dtls : s.is_bfcp() ? &s.bfcp.get_data().dtls : s.is_sctp() ? &s.sctp.get_data().dtls : nullptr;
}

// What one end believes of one side (x) equals what the other end believes of that side (y), and
// it fits what that other end believes of itself (own): mirrored directions, the other DTLS role,
// the other floor control role.
void expect_agreement(const session_group& x, const session_group& y, const session_group& own)
{
    ASSERT_EQ(x.sessions.size(), y.sessions.size());
    ASSERT_EQ(x.sessions.size(), own.sessions.size());
    EXPECT_EQ(x.sobe, y.sobe);
    for (std::size_t i = 0; i < x.sessions.size(); ++i) {
        SCOPED_TRACE("m line " + std::to_string(i));
        const session &s = x.sessions[i], &t = y.sessions[i], &o = own.sessions[i];
        ASSERT_EQ(s.get_kind(), t.get_kind());
        EXPECT_EQ(s.get_port(), t.get_port());
        EXPECT_EQ(s.get_direction(), t.get_direction());
        auto d = unsigned(s.get_direction());
        EXPECT_EQ(d == 1 || d == 2 ? 3 - d : d, unsigned(o.get_direction()));  // recvonly mirrors sendonly
        if (dtls_of(s)) {
            EXPECT_EQ(*dtls_of(s), *dtls_of(t));
            if (dtls_of(s)->is_set()) {
                EXPECT_NE(dtls_of(s)->get_data().role, dtls_setup_actpass);
                EXPECT_NE(dtls_of(s)->get_data().role, dtls_of(o)->get_data().role);
            }
        }
        if (s.is_bfcp()) {
            EXPECT_EQ(s.bfcp.get_data().floor_control_roles, t.bfcp.get_data().floor_control_roles);
            EXPECT_NE(s.bfcp.get_data().floor_control_roles, o.bfcp.get_data().floor_control_roles);
        }
        if (!s.is_rtp()) continue;
        const auto &r = s.rtp.get_data(), &q = t.rtp.get_data();
        EXPECT_EQ(r.codecs, q.codecs);
        EXPECT_EQ(r.cryptos, q.cryptos);
        EXPECT_EQ(r.prime_cryptos, q.prime_cryptos);
        EXPECT_EQ(r.ext_maps, q.ext_maps);
        EXPECT_EQ(r.rtcp_feedback, q.rtcp_feedback);
        EXPECT_EQ(r.rtcp_mux, q.rtcp_mux);
        EXPECT_EQ(r.cmulti, q.cmulti);
        EXPECT_EQ(r.sobe_hybrid_resilience, q.sobe_hybrid_resilience);
        auto printed = [](const std::vector<rid>& v) {
            std::set<std::string> out;
            for (const auto& x : v) out.insert(x.as_parameter_string());
            return out;
        };
        EXPECT_EQ(printed(r.rids), printed(q.rids));
    }
}

void expect_agreement(const call& c)
{
    {
        SCOPED_TRACE("A's side");
        expect_agreement(c.a_local_view, c.b_remote_view, c.b_local_view);
    }
    SCOPED_TRACE("B's side");
    expect_agreement(c.b_local_view, c.a_remote_view, c.a_local_view);
}

TEST(TwoSided, BrowserLikeDtlsBundle)
{
    auto a = make_group(join(head("alice", "10.0.0.1"),
                             {"a=group:BUNDLE au vi", "m=audio 4000 UDP/TLS/RTP/SAVPF 111 0", "a=rtpmap:111 opus/48000/2",
                              "a=extmap:4100 urn:ietf:params:rtp-hdrext:ssrc-audio-level", "a=extmap:3 urn:x:unknown-to-b",
                              "a=rtcp-fb:111 transport-cc", "a=rtcp-mux", "a=mid:au", "a=setup:actpass", kFpA,
                              "m=video 4002 UDP/TLS/RTP/SAVPF 96 102", "a=rtpmap:96 VP8/90000", "a=rtpmap:102 H264/90000",
                              "a=fmtp:102 profile-level-id=42e01f;packetization-mode=1", "a=rtcp-fb:102 nack pli",
                              "a=sendonly", "a=rtcp-mux", "a=mid:vi", "a=setup:actpass", kFpA}));
    auto b = make_group(join(head("bob", "10.0.0.2"),
                             {"m=audio 5000 UDP/TLS/RTP/SAVPF 96 0", "a=rtpmap:96 opus/48000/2",
                              "a=extmap:7 urn:ietf:params:rtp-hdrext:ssrc-audio-level", "a=rtcp-fb:111 transport-cc",
                              "a=rtcp-mux", "a=setup:actpass", kFpB,
                              "m=video 5002 UDP/TLS/RTP/SAVPF 100", "a=rtpmap:100 H264/90000",
                              "a=fmtp:100 profile-level-id=42001f;packetization-mode=1", "a=rtcp-fb:102 nack pli",
                              "a=recvonly", "a=rtcp-mux", "a=setup:actpass", kFpB}));
    auto c = run_call(a, b);
    expect_agreement(c);
    // A sends video, B receives it; each end decodes its own payload numbers.
    EXPECT_EQ(c.a_local_view.sessions[1].get_direction(), session_direction::sendonly);
    EXPECT_EQ(payloads(c.a_local_view.sessions[0].rtp.get_data().codecs), (std::vector<uint32_t>{111, 0}));
    EXPECT_EQ(payloads(c.b_local_view.sessions[0].rtp.get_data().codecs), (std::vector<uint32_t>{96, 0}));
    EXPECT_EQ(payloads(c.b_local_view.sessions[1].rtp.get_data().codecs), (std::vector<uint32_t>{100}));
    // The dynamic id became id 1 for both ends; the extension B lacks is gone.
    const auto& ext = c.a_local_view.sessions[0].rtp.get_data().ext_maps;
    ASSERT_EQ(ext.size(), 1u);
    EXPECT_EQ(ext[0].id, 1u);
    EXPECT_EQ(c.b_local_view.sessions[0].rtp.get_data().ext_maps[0].id, 1u);
    // actpass against actpass: the answerer is active.
    EXPECT_EQ(c.b_local_view.sessions[0].rtp.get_data().dtls.get_data().role, dtls_setup_active);
    EXPECT_EQ(c.a_local_view.sessions[0].rtp.get_data().dtls.get_data().role, dtls_setup_passive);
    EXPECT_NE(c.answer.find("a=mid:au"), std::string::npos);
    EXPECT_NE(c.answer.find("a=group:BUNDLE au vi"), std::string::npos);
}

TEST(TwoSided, SipSdesAudio)
{
    auto a = make_group(join(head("alice", "192.0.2.1"),
                             {"m=audio 4000 RTP/SAVP 9 0 101", "a=rtpmap:101 telephone-event/8000", "a=fmtp:101 0-15",
                              "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:QUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFB",
                              "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:QkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJC"}));
    auto b = make_group(join(head("bob", "192.0.2.2"),
                             {"m=audio 5000 RTP/SAVP 0 96", "a=rtpmap:96 telephone-event/8000", "a=fmtp:96 0-15", "a=sendonly",
                              "a=crypto:9 AES_CM_128_HMAC_SHA1_32 inline:Q0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0ND"}));
    auto c = run_call(a, b);
    expect_agreement(c);
    const auto& mine = c.a_local_view.sessions[0].rtp.get_data();
    const auto& theirs = c.a_remote_view.sessions[0].rtp.get_data();
    // G722 is not common; telephone events answer with B's number.
    EXPECT_EQ(payloads(mine.codecs), (std::vector<uint32_t>{0, 101}));
    EXPECT_EQ(payloads(theirs.codecs), (std::vector<uint32_t>{0, 96}));
    ASSERT_EQ(mine.cryptos.size(), 1u);
    ASSERT_EQ(theirs.cryptos.size(), 1u);
    EXPECT_EQ(mine.cryptos[0].tag, 2u);
    EXPECT_EQ(mine.cryptos[0].keys[0].key, "QkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJC");
    EXPECT_EQ(theirs.cryptos[0].keys[0].key, "Q0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0NDQ0ND");
    EXPECT_EQ(mine.direction, session_direction::recvonly);
    EXPECT_EQ(theirs.port, 5000);
}

TEST(TwoSided, SlidesAndFloorControl)
{
    auto video = [](const char* port, const char* content, const char* profile) {
        return std::vector<std::string>{std::string("m=video ") + port + " RTP/AVP 97", "a=rtpmap:97 H264/90000",
                                        std::string("a=fmtp:97 profile-level-id=") + profile + ";packetization-mode=1",
                                        std::string("a=content:") + content};
    };
    auto a = make_group(join(join(join(head("alice", "192.0.2.1"), video("4000", "main", "640c1f")),
                                  video("4002", "slides", "42e01f")),
                             {"m=application 4004 UDP/BFCP *", "a=floorctrl:c-s", "a=confid:1", "a=userid:2",
                              "a=floorid:1 mstrm:12"}));
    // B lists slides first: sessions match by type, not by place.
    auto b = make_group(join(join(join(head("bob", "192.0.2.2"), video("5002", "slides", "42001f")),
                                  video("5000", "main", "640c1f")),
                             {"m=application 5004 TCP/BFCP *", "a=floorctrl:c-only", "a=confid:7", "a=userid:8"}));
    auto c = run_call(a, b);
    expect_agreement(c);
    EXPECT_EQ(c.b_local_view.sessions[0].get_port(), 5000);
    EXPECT_EQ(c.b_local_view.sessions[1].get_port(), 5002);
    const auto& bfcp_a = c.a_local_view.sessions[2].bfcp.get_data();
    const auto& bfcp_b = c.b_local_view.sessions[2].bfcp.get_data();
    EXPECT_EQ(bfcp_a.floor_control_roles, std::vector<bfcp_floor_control_role>{bfcp_role_s_only});
    EXPECT_EQ(bfcp_b.floor_control_roles, std::vector<bfcp_floor_control_role>{bfcp_role_c_only});
    EXPECT_EQ(bfcp_b.transport_protocol, "TCP/BFCP");
    EXPECT_EQ(bfcp_b.conf_id.get_data(), 7u);
}

TEST(TwoSided, MultistreamAndResilience)
{
    auto side = [](const char* user, const char* port, const char* rtx_versions, const char* hybrid,
                   std::vector<std::string> scr) {
        std::vector<std::string> lines = head(user, "10.1.1.1");
        lines.insert(lines.end(), {"a=vorta-sobe:1.0,1.1", "a=vorta-sobe-rate", std::string("a=vorta-sobe-rtx:") + rtx_versions,
                                   std::string("a=vorta-sobe-hybrid-resilience:") + hybrid,
                                   std::string("m=video ") + port + " RTP/AVPF 97 111", "a=rtpmap:97 H264/90000",
                                   "a=fmtp:97 profile-level-id=4d0028;packetization-mode=1", "a=rtpmap:111 sobe-rtx/90000",
                                   "a=fmtp:111 RTX_ORDER=RTX_SRTP;rtx-time=300",
                                   std::string("a=vorta-sobe-hybrid-resilience:") + hybrid, "a=rtcp-fb:* nack",
                                   std::string("a=sprop-source:0 csi=") + port, "a=sprop-total:max-channels=4"});
        for (const auto& v : scr) lines.push_back("a=rtcp-fb:* ccm " + v);
        return make_group(lines);
    };
    auto a = side("alice", "4000", "1.0", "1.0 data-flow=7", {"vorta-scr", "vorta-scr-v2", "vorta-scr-v3"});
    auto b = side("bob", "5000", "1.0,2.0", "1.0 data-flow=5", {"vorta-scr-v3", "vorta-scr-v4", "vorta-scr-v2"});
    auto c = run_call(a, b);
    expect_agreement(c);
    ASSERT_TRUE(c.a_local_view.sobe.is_set());
    const auto& sobe = c.a_local_view.sobe.get_data();
    EXPECT_TRUE(sobe.rate_adaptation);
    EXPECT_EQ(sobe.rtx_versions, std::vector<std::string>{"1.0"});
    EXPECT_EQ(sobe.hybrid_data_flow, 5u);
    const auto& mine = c.a_local_view.sessions[0].rtp.get_data();
    const auto& theirs = c.a_remote_view.sessions[0].rtp.get_data();
    EXPECT_EQ(mine.cmulti.get_data().scr_versions, cmulti_scr_v2 | cmulti_scr_v3);
    EXPECT_EQ(mine.cmulti.get_data().sources.front().csi.get_data(), 4000u);
    EXPECT_EQ(theirs.cmulti.get_data().sources.front().csi.get_data(), 5000u);
    EXPECT_EQ(mine.sobe_hybrid_resilience.get_data().data_flow, 5u);
    EXPECT_EQ(payloads(mine.codecs), (std::vector<uint32_t>{97, 111}));
}

TEST(TwoSided, SimulcastRestrictionsOnAv1)
{
    auto a = make_group(join(head("alice", "10.0.0.1"),
                             {"m=video 4000 RTP/AVPF 45", "a=rtpmap:45 AV1/90000", "a=fmtp:45 profile=0;level_idx=8",
                              "a=sendonly", "a=rid:hi send pt=45;max-width=1280;max-height=720",
                              "a=rid:lo send max-width=320;max-height=180"}));
    auto b = make_group(join(head("bob", "10.0.0.2"),
                             {"m=video 5000 RTP/AVPF 35", "a=rtpmap:35 AV1/90000", "a=fmtp:35 profile=0;level_idx=8",
                              "a=recvonly", "a=rid:hi recv max-width=960;max-height=540", "a=rid:lo recv max-width=640;max-height=360"}));
    auto c = run_call(a, b);
    expect_agreement(c);
    EXPECT_NE(c.answer.find("a=rid:hi recv pt=35;max-height=540;max-width=960"), std::string::npos) << c.answer;
    EXPECT_NE(c.answer.find("a=rid:lo recv max-height=180;max-width=320"), std::string::npos);
    const auto& rids = c.a_local_view.sessions[0].rtp.get_data().rids;
    ASSERT_EQ(rids.size(), 2u);
    EXPECT_EQ(rids[0].as_parameter_string(), "a=rid:hi send pt=45;max-height=540;max-width=960");
    EXPECT_EQ(rids[1].as_parameter_string(), "a=rid:lo send max-height=180;max-width=320");
}

}  // namespace
