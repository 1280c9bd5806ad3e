// The session model: which kind a section becomes, what is kept, and the one print order.
#include "sdp/sdp.h"
#include "test_util.h"

using namespace sdp;
using sdp_test::crlf;
using sdp_test::invalid_argument_text;

namespace {

const std::string kHead = crlf({"v=0", "o=bob 7 3 IN IP4 192.0.2.1", "s=call", "c=IN IP4 192.0.2.1", "t=0 0"});

session_group group_of(const std::string& media, const std::string& session_attributes = "")
{
    return session_group(session_description::create(kHead + session_attributes + media));
}

session only_session(const std::string& media)
{
    auto g = group_of(media);
    EXPECT_EQ(g.sessions.size(), 1u);
    return g.sessions.at(0);
}

std::string printed_media(const std::string& media) { return only_session(media).as_media_description().as_sdp(); }

TEST(SessionKinds, EachSectionFallsToTheFirstKindThatReadsIt)
{
    struct Case {
        const char* name;
        std::string media;
        session_kind kind;
    } cases[] = {
        {"plain audio", crlf({"m=audio 5000 RTP/AVP 0"}), session_kind::rtp},
        {"port zero", crlf({"m=video 0 RTP/AVP 96"}), session_kind::disabled},
        {"unknown media type", crlf({"m=text 5000 RTP/AVP 96"}), session_kind::disabled},
        {"unknown transport", crlf({"m=audio 5000 RTP/XYZ 0"}), session_kind::disabled},
        {"unknown codec name", crlf({"m=video 5000 RTP/AVP 96", "a=rtpmap:96 VP9/90000"}), session_kind::disabled},
        {"bad clock", crlf({"m=video 5000 RTP/AVP 96", "a=rtpmap:96 VP8/8000"}), session_kind::disabled},
        {"bad content", crlf({"m=video 5000 RTP/AVP 96", "a=content:alt"}), session_kind::disabled},
        {"bad rtcp-fb", crlf({"m=audio 5000 RTP/AVP 0", "a=rtcp-fb:0"}), session_kind::disabled},
        {"bad extmap", crlf({"m=audio 5000 RTP/AVP 0", "a=extmap:99 urn:x"}), session_kind::disabled},
        {"bad crypto", crlf({"m=audio 5000 RTP/SAVP 0", "a=crypto:1 S"}), session_kind::disabled},
        {"bad rid", crlf({"m=video 5000 RTP/AVP 96", "a=rtpmap:96 VP8/90000", "a=rid:1 send max-fs"}), session_kind::disabled},
        {"bad format", crlf({"m=audio 5000 RTP/AVP x"}), session_kind::disabled},
        {"av1 level gap is not an invalid argument", crlf({"m=video 5000 RTP/AVP 96", "a=rtpmap:96 VP8/90000"}), session_kind::rtp},
        {"bad candidate leaves ICE unset only", crlf({"m=audio 5000 RTP/AVP 0", "a=candidate:1"}), session_kind::rtp},
        {"bfcp", crlf({"m=application 5070 UDP/BFCP *", "a=floorctrl:c-s"}), session_kind::bfcp},
        {"bfcp bad role", crlf({"m=application 5070 TCP/BFCP *", "a=floorctrl:boss"}), session_kind::disabled},
        {"sctp", crlf({"m=application 5000 DTLS/SCTP 5000", "a=sctpmap:5000 webrtc-datachannel 1024"}), session_kind::sctp},
        {"ix", crlf({"m=application 5000 UDP/UDT/IX *", "a=ixmap:1 ix"}), session_kind::ix},
        {"application with RTP transport", crlf({"m=application 5000 RTP/AVP 0"}), session_kind::disabled},
        {"application port zero", crlf({"m=application 0 UDP/BFCP *"}), session_kind::disabled},
    };
    for (const auto& c : cases) EXPECT_EQ(only_session(c.media).get_kind(), c.kind) << c.name;
}

TEST(SessionKinds, NoConnectionLineAnywhereDisablesTheSection)
{
    auto d = session_description::create(crlf({"v=0", "o=- 1 1 IN IP4 x", "s=-", "t=0 0", "m=audio 5000 RTP/AVP 0"}));
    session_group g(d);
    ASSERT_EQ(g.sessions.size(), 1u);
    EXPECT_TRUE(g.sessions[0].is_disabled());
    EXPECT_EQ(invalid_argument_text([&] { rtp_session(d, d.get_media_descriptions()[0]); }),
              "valid connection line not found at session or media level");
}

TEST(RtpSession, ReaderFailureTexts)
{
    auto d = session_description::create(kHead + crlf({"m=audio 0 RTP/AVP 0", "m=audio 1 RTP/X 0", "m=image 1 RTP/AVP 0",
                                                       "m=video 1 RTP/AVP 96", "a=content:alt", "m=audio 99999 RTP/AVP 0"}));
    const auto& m = d.get_media_descriptions();
    const char* expected[] = {
        "port number of 0 not allowed for rtp session",
        "invalid transport protocol RTP/X for rtp session",
        "invalid media type image for rtp session",
        "invalid content type alt for rtp session",
        "out of range numeric value found in media description port number (99999)",
    };
    for (std::size_t i = 0; i < m.size(); ++i)
        EXPECT_EQ(invalid_argument_text([&] { rtp_session(d, m[i]); }), expected[i]) << i;
    EXPECT_EQ(invalid_argument_text([] { rtp_session(rtp_session_type::audio_main, "10.0.0.1", 0); }),
              "port number of 0 not allowed for rtp session");
}

TEST(RtpSession, EdgeCasesOfFormatsAndPrinting)
{
    EXPECT_EQ(printed_media(crlf({"m=video 0 RTP/AVP 96"})), "m=video 0 RTP/AVP 96\r\n");
    EXPECT_EQ(printed_media(crlf({"m=audio 5000 RTP/AVP 0"})),
              crlf({"m=audio 5000 RTP/AVP 0", "c=IN IP4 192.0.2.1", "a=content:main", "a=sendrecv", "a=rtpmap:0 PCMU/8000"}));
    EXPECT_EQ(printed_media(crlf({"m=audio 5000 RTP/AVP 100"})),
              crlf({"m=audio 5000 RTP/AVP *", "c=IN IP4 192.0.2.1", "a=content:main", "a=sendrecv"}));
    // The av1 level gap throws the map's own error, which is not caught on the way.
    EXPECT_THROW(group_of(crlf({"m=video 5000 RTP/AVP 96", "a=rtpmap:96 AV1/90000", "a=fmtp:96 level_idx=2"})),
                 std::out_of_range);
}

TEST(RtpSession, FullPrintOrder)
{
    const std::string media = crlf({
        "m=video 5002 UDP/TLS/RTP/SAVPF 96 97 98",
        "c=IN IP6 2001:db8::2",
        "b=TIAS:2000000",
        "b=CT:5",
        "b=AS:2000",
        "a=tcap:2 RTP/AVPF",
        "a=rtcp-xr:rcvr-rtt=all:10",
        "a=ice-ufrag:UFRAG",
        "a=ice-pwd:0123456789012345678901",
        "a=candidate:1 1 udp 100 2001:db8::2 5002 typ host",
        "a=fingerprint:sha-256 AA:BB",
        "a=setup:active",
        "a=label:11",
        "a=mid:v1",
        "a=mid:ignored",
        "a=rid:hi send pt=96;max-width=1280",
        "a=x-vorta-http-upgrade-rtp",
        "a=rtcp-mux",
        "a=vorta-sobe-hybrid-resilience:1.0 data-flow=3",
        "a=vorta-sobe-psre:96 gdr",
        "a=prime-crypto:1 S p inline:k",
        "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:key",
        "a=extmap:2 urn:x",
        "a=rtcp-fb:* nack",
        "a=rtcp-fb:* ccm vorta-scr-v2",
        "a=sprop-source:0 count=2",
        "a=rtcp:5003",
        "a=recvonly",
        "a=sendonly",
        "a=content:slides",
        "a=rtpmap:98 sobe-rtx/90000",
        "a=fmtp:98 RTX_ORDER=X",
        "a=rtpmap:97 x-ulpfecuc/90000",
        "a=rtpmap:96 H264/90000",
        "a=fmtp:96 profile-level-id=42e01f;packetization-mode=1;level-asymmetry-allowed=1",
        "a=unknown-attribute:dropped",
    });
    auto s = only_session(media);
    ASSERT_TRUE(s.is_rtp());
    const auto& r = s.rtp.get_data();
    EXPECT_EQ(r.type, rtp_session_type::video_slides);
    EXPECT_EQ(r.direction, session_direction::sendonly);  // the last direction wins
    EXPECT_EQ(r.mid.get_data(), "v1");                    // the first mid counts
    EXPECT_EQ(r.get_bandwidth().get_data(), 2000000u);
    EXPECT_EQ(r.get_rtcp_port(), 5003);
    EXPECT_EQ(r.get_rtcp_ip_address(), "2001:db8::2");
    EXPECT_TRUE(r.cmulti.is_set());
    EXPECT_TRUE(r.ice.is_set());
    EXPECT_TRUE(r.dtls.is_set());
    EXPECT_EQ(r.rtcp_feedback.size(), 1u);  // the SCR line moved into the multistream set

    const std::string expected = crlf({
        "m=video 5002 UDP/TLS/RTP/SAVPF 96 97 98",
        "c=IN IP6 2001:db8::2",
        "b=TIAS:2000000",
        "b=AS:2000",
        "a=content:slides",
        "a=sendonly",
        "a=rtpmap:96 H264/90000",
        "a=fmtp:96 profile-level-id=42401f;packetization-mode=1;max-mbps=108000;max-fs=3600;max-fps=3000;max-br=14000;max-dpb=6750",
        "a=rtpmap:97 x-ulpfecuc/8000",
        "a=fmtp:97 max_esel=1400;max_n=16;m=8;multi_ssrc=0;FEC_ORDER=SRTP_FEC;non_seq=0",
        "a=rtpmap:98 sobe-rtx/90000",
        "a=fmtp:98 RTX_ORDER=X",
        "a=rid:hi send pt=96;max-width=1280",
        "a=rtcp:5003",
        "a=rtcp-fb:* nack",
        "a=extmap:2/sendrecv urn:x",
        "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:key",
        "a=prime-crypto:1 S p inline:k",
        "a=vorta-sobe-psre:96 gdr",
        "a=vorta-sobe-hybrid-resilience:1.0 data-flow=3",
        "a=rtcp-mux",
        "a=x-vorta-http-upgrade-rtp",
        "a=label:11",
        "a=mid:v1",
        "a=tcap:2 RTP/AVPF",
        "a=sprop-source:0 count=2",
        "a=rtcp-fb:* ccm vorta-scr-v2",
        "a=ice-ufrag:UFRAG",
        "a=ice-pwd:0123456789012345678901",
        "a=candidate:1 1 udp 100 2001:db8::2 5002 typ host",
        "a=setup:active",
        "a=fingerprint:sha-256 AA:BB",
        "a=rtcp-xr:rcvr-rtt=all:10",
    });
    auto printed = s.as_media_description().as_sdp();
    EXPECT_EQ(printed, expected);
    // A second trip through the model changes nothing.
    EXPECT_EQ(printed_media(printed), expected);
}

TEST(RtpSession, CapabilitySetsFallBackToUnset)
{
    struct Case {
        const char* name;
        std::string media;
        std::string session_attrs;
        bool ice, dtls, cmulti;
    } cases[] = {
        {"short ufrag", crlf({"m=audio 1 RTP/AVP 0", "a=ice-ufrag:abc", "a=ice-pwd:0123456789012345678901", "a=candidate:1 1 udp 1 h 1 typ host"}), "", false, false, false},
        {"no candidate", crlf({"m=audio 1 RTP/AVP 0", "a=ice-ufrag:abcd", "a=ice-pwd:0123456789012345678901"}), "", false, false, false},
        {"session credentials", crlf({"m=audio 1 RTP/AVP 0", "a=candidate:1 1 udp 1 h 1 typ host"}), crlf({"a=ice-ufrag:abcd", "a=ice-pwd:0123456789012345678901"}), true, false, false},
        {"setup without fingerprint", crlf({"m=audio 1 RTP/AVP 0", "a=setup:actpass"}), "", false, false, false},
        {"session fingerprint", crlf({"m=audio 1 RTP/AVP 0", "a=setup:actpass"}), crlf({"a=fingerprint:sha-1 AA"}), false, true, false},
        {"scr on a payload", crlf({"m=audio 1 RTP/AVP 0", "a=rtcp-fb:0 ccm vorta-scr"}), "", false, false, false},
        {"bad sprop", crlf({"m=audio 1 RTP/AVP 0", "a=rtcp-fb:* ccm vorta-scr", "a=sprop-source"}), "", false, false, false},
        {"multistream", crlf({"m=audio 1 RTP/AVP 0", "a=rtcp-fb:* ccm vorta-scr"}), "", false, false, true},
    };
    for (const auto& c : cases) {
        auto g = group_of(c.media, c.session_attrs);
        ASSERT_TRUE(g.sessions.at(0).is_rtp()) << c.name;
        const auto& r = g.sessions[0].rtp.get_data();
        EXPECT_EQ(r.ice.is_set(), c.ice) << c.name;
        EXPECT_EQ(r.dtls.is_set(), c.dtls) << c.name;
        EXPECT_EQ(r.cmulti.is_set(), c.cmulti) << c.name;
    }
    // Media credentials override session ones.
    auto g = group_of(crlf({"m=audio 1 RTP/AVP 0", "a=ice-ufrag:media", "a=candidate:1 1 udp 1 h 1 typ host"}),
                      crlf({"a=ice-ufrag:sess", "a=ice-pwd:0123456789012345678901"}));
    EXPECT_EQ(g.sessions[0].rtp.get_data().ice.get_data().username, "media");
}

TEST(RtpSession, BandwidthAndRtcpDefaults)
{
    auto r = only_session(crlf({"m=audio 5000 RTP/AVP 0", "b=AS:64"})).rtp.get_data();
    EXPECT_EQ(r.get_bandwidth().get_data(), 64000u);
    EXPECT_EQ(r.get_rtcp_port(), 5001);
    EXPECT_EQ(r.get_rtcp_ip_address(), "192.0.2.1");
    r.set_bandwidth(optional_value<unsigned>(32000u));
    ASSERT_EQ(r.bandwidth.size(), 1u);
    EXPECT_EQ(r.bandwidth[0].as_sdp(), "b=TIAS:32000\r\n");
    r.set_bandwidth({});
    EXPECT_TRUE(r.bandwidth.empty());
    EXPECT_FALSE(r.get_bandwidth().is_set());
    auto ct = only_session(crlf({"m=audio 5000 RTP/AVP 0", "b=CT:64"})).rtp.get_data();
    EXPECT_TRUE(ct.bandwidth.empty());

    auto media_c = only_session(crlf({"m=audio 5000 RTP/AVP 0", "c=IN IP4 0.0.0.0/127", "c=IN IP6 ::1"}));
    EXPECT_EQ(media_c.rtp.get_data().ip_address, "0.0.0.0/127");
    auto skipped = only_session(crlf({"m=audio 5000 RTP/AVP 0", "c=TN RFC2543 x"}));
    EXPECT_EQ(skipped.rtp.get_data().ip_address, "192.0.2.1");
}

TEST(ApplicationSessions, PrintOrders)
{
    EXPECT_EQ(printed_media(crlf({"m=application 5070 UDP/BFCP *", "a=mid:3", "a=floorid:2 mstrm:10", "a=userid:5",
                                  "a=confid:4", "a=floorctrl:c-only s-only", "a=setup:passive",
                                  "a=fingerprint:sha-1 AA"})),
              crlf({"m=application 5070 UDP/BFCP", "c=IN IP4 192.0.2.1", "a=floorctrl:c-only s-only", "a=confid:4",
                    "a=userid:5", "a=floorid:2 mstrm:10", "a=mid:3", "a=setup:passive", "a=fingerprint:sha-1 AA"}));
    EXPECT_EQ(printed_media(crlf({"m=application 5000 UDP/DTLS/SCTP webrtc-datachannel", "a=mid:2",
                                  "a=sctpmap:5000 webrtc-datachannel", "a=setup:actpass", "a=fingerprint:sha-1 AA"})),
              crlf({"m=application 5000 UDP/DTLS/SCTP 5000", "c=IN IP4 192.0.2.1",
                    "a=sctpmap:5000 webrtc-datachannel 16", "a=setup:actpass", "a=fingerprint:sha-1 AA", "a=mid:2"}));
    EXPECT_EQ(printed_media(crlf({"m=application 6000 UDP/DTLS/UDT/IX *", "a=ixmap:7 ix", "a=mid:9"})),
              crlf({"m=application 6000 UDP/DTLS/UDT/IX", "c=IN IP4 192.0.2.1", "a=ixmap:7 ix"}));
    EXPECT_EQ(disabled_session("audio", "RTP/AVP").as_media_description().as_sdp(), "m=audio 0 RTP/AVP *\r\n");
}

TEST(Session, DispatchingGetters)
{
    auto g = group_of(crlf({"m=audio 5000 RTP/AVP 0", "a=recvonly", "m=application 5070 UDP/BFCP *", "a=mid:b",
                            "m=video 0 RTP/AVP 96", "m=application 6000 UDP/UDT/IX *"}));
    ASSERT_EQ(g.sessions.size(), 4u);
    EXPECT_EQ(g.sessions[0].get_direction(), session_direction::recvonly);
    EXPECT_EQ(g.sessions[1].get_direction(), session_direction::sendrecv);
    EXPECT_EQ(g.sessions[2].get_direction(), session_direction::inactive);
    EXPECT_EQ(g.sessions[3].get_direction(), session_direction::sendrecv);
    EXPECT_EQ(g.sessions[1].get_media_type(), "application");
    EXPECT_EQ(g.sessions[2].get_port(), 0);
    EXPECT_EQ(g.sessions[1].get_mid().get_data(), "b");
    EXPECT_FALSE(g.sessions[3].get_mid().is_set());
    EXPECT_EQ(g.sessions[0].get_ordinal().get_data(), 0u);
    EXPECT_FALSE(g.sessions[1].get_ordinal().is_set());
}

TEST(SessionGroup, SessionLevelReading)
{
    auto g = group_of(crlf({"m=audio 5000 RTP/AVP 0", "a=mid:a", "m=audio 5002 RTP/AVP 0"}),
                      crlf({"b=AS:2000", "b=X-YZ:1", "a=ice-lite", "a=group:BUNDLE a 1", "a=group:LS a",
                            "a=group", "a=ice-options:", "a=ice-options:trickle", "a=vorta-sobe:1.0",
                            "a=vorta-sobe-rate"}));
    EXPECT_EQ(g.user_name, "bob");
    EXPECT_EQ(g.session_version, "3");
    EXPECT_EQ(g.ip_address, "192.0.2.1");
    EXPECT_TRUE(g.ice_lite);
    EXPECT_EQ(g.bundle, (std::vector<std::string>{"a", "1"}));
    EXPECT_FALSE(g.ice_options.is_set());  // only the first line counts, and it was malformed
    ASSERT_TRUE(g.sobe.is_set());
    EXPECT_TRUE(g.sobe.get_data().rate_adaptation);
    EXPECT_EQ(g.get_bandwidth().get_data(), 2000u);
    EXPECT_EQ(g.sessions[1].get_ordinal().get_data(), 1u);

    auto no_sobe = group_of(crlf({"m=audio 5000 RTP/AVP 0"}), crlf({"a=vorta-sobe-hybrid-resilience:1.0", "a=vorta-sobe:1.0"}));
    EXPECT_FALSE(no_sobe.sobe.is_set());
}

TEST(SessionGroup, PrintedHeaderIsFixed)
{
    auto g = group_of(crlf({"m=audio 5000 RTP/AVP 0", "b=TIAS:64000", "m=video 5002 RTP/AVP 96", "a=rtpmap:96 VP8/90000",
                            "b=TIAS:500000", "b=AS:9"}),
                      crlf({"i=ignored", "a=ice-options:trickle", "a=vorta-sobe:1.0", "a=tool:dropped"}));
    EXPECT_EQ(g.as_session_description().as_sdp(),
              crlf({"v=0", "o=bob 0 3 IN IP4 192.0.2.1", "s=-", "c=IN IP4 192.0.2.1", "b=TIAS:564000", "t=0 0",
                    "a=vorta-sobe:1.0", "a=ice-options:trickle", "m=audio 5000 RTP/AVP 0", "c=IN IP4 192.0.2.1",
                    "b=TIAS:64000", "a=content:main", "a=sendrecv", "a=rtpmap:0 PCMU/8000", "m=video 5002 RTP/AVP 96",
                    "c=IN IP4 192.0.2.1", "b=TIAS:500000", "b=AS:9", "a=content:main", "a=sendrecv",
                    "a=rtpmap:96 VP8/90000"}));
    // Session-level AS is printed divided by 1000; other types as they stand.
    auto as = group_of("", crlf({"b=AS:64000", "b=TIAS:5"}));
    EXPECT_EQ(as.as_session_description().as_sdp(),
              crlf({"v=0", "o=bob 0 3 IN IP4 192.0.2.1", "s=-", "c=IN IP4 192.0.2.1", "b=AS:64", "b=TIAS:5", "t=0 0"}));
    session_group v6("me", "2001:db8::1", "9");
    v6.ice_lite = true;
    EXPECT_EQ(v6.as_session_description().as_sdp(),
              crlf({"v=0", "o=me 0 9 IN IP6 2001:db8::1", "s=-", "c=IN IP6 2001:db8::1", "t=0 0", "a=ice-lite"}));
}

TEST(SessionGroup, AddBundleNamesEverySession)
{
    session_group g("me", "10.0.0.1");
    auto audio = [](uint16_t port) {
        rtp_session a(rtp_session_type::audio_main, "10.0.0.1", port);
        a.codecs.emplace_back(0, codec_pcmu);
        return a;
    };
    g.add_session(session(audio(5000)));
    rtp_session video(rtp_session_type::video_main, "10.0.0.1", 5002);
    video.codecs.emplace_back(96, codec_vp8);
    video.mid = std::string("v");
    g.add_session(session(video));
    g.add_session(session(audio(5004)));
    g.add_session(session(disabled_session("video", "RTP/AVP")));
    EXPECT_EQ(g.sessions[2].get_ordinal().get_data(), 1u);
    g.bundle = {"stale"};
    g.add_bundle();
    EXPECT_EQ(g.bundle, (std::vector<std::string>{"0", "v", "2", "3"}));
    EXPECT_EQ(g.sessions[0].get_mid().get_data(), "0");
    auto text = g.as_session_description().as_sdp();
    EXPECT_NE(text.find("a=group:BUNDLE 0 v 2 3\r\n"), std::string::npos);
    // The printed group reads back to the same sessions.
    session_group again(session_description::create(text));
    EXPECT_EQ(again.as_session_description().as_sdp(), text);

    // Without a codec the m line carries "*", which is no payload type: read back, it is disabled.
    session_group bare("me", "10.0.0.1");
    bare.add_session(session(rtp_session(rtp_session_type::audio_main, "10.0.0.1", 5000)));
    session_group reread(session_description::create(bare.as_session_description().as_sdp()));
    EXPECT_TRUE(reread.sessions.at(0).is_disabled());
}

}  // namespace
