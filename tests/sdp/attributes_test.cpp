// The attribute catalogue: what each reader accepts, how it prints back, and its failure texts.
#include <functional>
#include <sstream>

#include "sdp/sdp.h"
#include "test_util.h"

using namespace sdp;
using sdp_test::attr;
using sdp_test::invalid_argument_text;

namespace {

// Parses "a=..." with the reader of type T and prints it back.
template <class T>
std::string reprint(const std::string& line)
{
    return T(attr(line)).as_attribute_line().as_sdp();
}

using Reprint = std::function<std::string(const std::string&)>;

struct RoundTrip {
    Reprint reader;
    const char* in;
    const char* out;  // without CR LF
};

TEST(Attributes, RoundTrips)
{
    const RoundTrip cases[] = {
        {reprint<rtp_map>, "a=rtpmap:111 opus/48000/2", "a=rtpmap:111 opus/48000/2"},
        {reprint<rtp_map>, "a=rtpmap:0  PCMU/8000", "a=rtpmap:0 PCMU/8000"},
        {reprint<format_parameters>, "a=fmtp:96 profile-level-id=42e01f; packetization-mode=1",
         "a=fmtp:96 profile-level-id=42e01f; packetization-mode=1"},
        {reprint<rtcp_feedback>, "a=rtcp-fb:* ccm fir", "a=rtcp-fb:* ccm fir"},
        {reprint<rtcp_port>, "a=rtcp:9", "a=rtcp:9"},
        {reprint<rtcp_port>, "a=rtcp:9 IN IP6 ::1", "a=rtcp:9 IN IP6 ::1"},
        {reprint<ext_map>, "a=extmap:5 urn:x", "a=extmap:5/sendrecv urn:x"},
        {reprint<ext_map>, "a=extmap:15/recvonly urn:x", "a=extmap:15/recvonly urn:x"},
        {reprint<ext_map>, "a=extmap:4351/inactive urn:x a b", "a=extmap:4351/inactive urn:x a b"},
        {reprint<crypto>, "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:abc|2^20|1:4 UNENCRYPTED_SRTCP",
         "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:abc|2^20|1:4 UNENCRYPTED_SRTCP"},
        {reprint<crypto>, "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:k1;inline:k2|2^31 WSH=64",
         "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:k1;inline:k2|2^31 WSH=64"},
        {reprint<prime_crypto>, "a=prime-crypto:1 AES_CM_128_HMAC_SHA1_80 p1 inline:key EKT=AES|ektkey|7",
         "a=prime-crypto:1 AES_CM_128_HMAC_SHA1_80 p1 inline:key EKT=AES|ektkey|7"},
        {reprint<fingerprint>, "a=fingerprint:sha-256 AB:CD", "a=fingerprint:sha-256 AB:CD"},
        {reprint<ice_candidate>, "a=candidate:1 1 udp 2122260223 10.0.0.1 5000 typ host",
         "a=candidate:1 1 udp 2122260223 10.0.0.1 5000 typ host"},
        {reprint<ice_candidate>, "a=candidate:2 2 UDP 1 ::1 9 typ srflx raddr 10.0.0.1 rport 5000",
         "a=candidate:2 2 UDP 1 ::1 9 typ srflx raddr 10.0.0.1 rport 5000"},
        {reprint<ice_options>, "a=ice-options:trickle  renomination", "a=ice-options:trickle renomination"},
        {reprint<ice_remote_candidates>, "a=remote-candidates:1 10.0.0.1 5000 2 10.0.0.1 5001",
         "a=remote-candidates:1 10.0.0.1 5000 2 10.0.0.1 5001"},
        {reprint<mline_group>, "a=group:BUNDLE 0 1 2", "a=group:BUNDLE 0 1 2"},
        {reprint<mline_group>, "a=group:LS", "a=group:LS"},
        {reprint<tcap>, "a=tcap:1 RTP/SAVPF RTP/AVPF", "a=tcap:1 RTP/SAVPF RTP/AVPF"},
        {reprint<bfcp_floor_id>, "a=floorid:1 mstrm:10 11", "a=floorid:1 mstrm:10 11"},
        {reprint<bfcp_floor_id>, "a=floorid:2 other:3", "a=floorid:2"},
        {reprint<bfcp_floor_id>, "a=floorid:3 mstrm:: ::x 12", "a=floorid:3 mstrm:x 12"},
        {reprint<sctp_map>, "a=sctpmap:5000 webrtc-datachannel", "a=sctpmap:5000 webrtc-datachannel 16"},
        {reprint<sctp_map>, "a=sctpmap:5000 webrtc-datachannel 1024", "a=sctpmap:5000 webrtc-datachannel 1024"},
        {reprint<ix_map>, "a=ixmap:1 ix extra", "a=ixmap:1 ix"},
        {reprint<rtcp_xr>, "a=rtcp-xr:foo rcvr-rtt=all:100 voip-metrics=1", "a=rtcp-xr:rcvr-rtt=all:100"},
        {reprint<rtcp_xr>, "a=rtcp-xr:voip-metrics stat-summary=TTL,loss,bad,HL pkt-loss-rle=10",
         "a=rtcp-xr:pkt-loss-rle=10 stat-summary=HL,TTL,loss voip-metrics"},
        {reprint<rid>, "a=rid:1 send pt=96,97;max-fs=3600", "a=rid:1 send pt=96,97;max-fs=3600"},
        {reprint<rid>, "a=rid:hi recv max-width=1280;max-height=720", "a=rid:hi recv max-height=720;max-width=1280"},
        {reprint<sobe_version>, "a=vorta-sobe:1.0,2.0", "a=vorta-sobe:1.0,2.0"},
        {reprint<sobe_rtp_rexmit>, "a=vorta-sobe-rtx:1.0", "a=vorta-sobe-rtx:1.0"},
        {reprint<sobe_rate_adaptation>, "a=vorta-sobe-rate", "a=vorta-sobe-rate"},
        {reprint<sobe_hybrid_resilience>, "a=vorta-sobe-hybrid-resilience:1.0 data-flow=7",
         "a=vorta-sobe-hybrid-resilience:1.0 data-flow=7"},
        {reprint<sobe_hybrid_resilience>, "a=vorta-sobe-hybrid-resilience:1.0,1.1 data-flow=0",
         "a=vorta-sobe-hybrid-resilience:1.0,1.1"},
        {reprint<sobe_psre>, "a=vorta-sobe-psre:96 ltrf=2;gdr", "a=vorta-sobe-psre:96 ltrf=2;gdr"},
        {reprint<sobe_psre>, "a=vorta-sobe-psre:97", "a=vorta-sobe-psre:97"},
        {reprint<sprop_source>, "a=sprop-source:0 csi=123;count=3;policies=as:1,rs:2;simul=100,101|102",
         "a=sprop-source:0 csi=123;count=3;policies=as:1,rs:2;simul=100,101|102"},
        {reprint<sprop_simul>, "a=sprop-simul:0 100 * max-fs=3600;max-fps=30",
         "a=sprop-simul:0 100 * max-fs=3600;max-fps=30"},
        {reprint<sprop_total>, "a=sprop-total:max-channels=4;max-pps=10", "a=sprop-total:max-channels=4;max-pps=10"},
        {reprint<sprop_simul>, "a=sprop-simul:0 1 * ;   ;x", "a=sprop-simul:0 1 * x"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.reader(c.in), std::string(c.out) + "\r\n") << c.in;
}

struct Refusal {
    Reprint reader;
    const char* in;
    const char* error;
};

TEST(Attributes, RefusedValues)
{
    const Refusal cases[] = {
        {reprint<rtp_map>, "a=fmtp:96 VP8/90000", "invalid attribute name for rtp map expected 'rtpmap' received 'fmtp'"},
        {reprint<format_parameters>, "a=rtpmap:96 x", "invalid attribute name for rtp map expected 'fmtp' received 'rtpmap'"},
        {reprint<rtcp_xr>, "a=rtcp-fb:x", "invalid attribute name for rtcp feedback expected 'rtcp-xr' received 'rtcp-fb'"},
        {reprint<rtp_map>, "a=rtpmap:96 VP8", "invalid attribute value for rtp map, expected >= 2 '/' delimited fields, received 1 (96 VP8)"},
        {reprint<rtp_map>, "a=rtpmap:96 VP8/x", "invalid non-numeric value found in rtp map attribute clock rate (x)"},
        {reprint<rtcp_port>, "a=rtcp:9 IN", "invalid attribute value for rtcp port, expected 1 or 4 space delimited fields, received 2 (9 IN)"},
        {reprint<rtcp_port>, "a=rtcp:9 IN IP4", "invalid attribute value for rtcp port, expected 1 or 4 space delimited fields, received 3 (9 IN IP4)"},
        {reprint<rtcp_port>, "a=rtcp:70000", "out of range numeric value found in rtcp port number (70000)"},
        {reprint<ext_map>, "a=extmap:5", "invalid attribute value for rtp extmap, expected >= 2 space delimited fields, received 1 (5)"},
        {reprint<ext_map>, "a=extmap:16 urn:x", "invalid rtp extmap identifier value 16 (16 urn:x)"},
        {reprint<ext_map>, "a=extmap:4352 urn:x", "invalid rtp extmap identifier value 4352 (4352 urn:x)"},
        {reprint<ext_map>, "a=extmap:0 urn:x", "invalid rtp extmap identifier value 0 (0 urn:x)"},
        {reprint<ext_map>, "a=extmap:1/send/x urn:x", "invalid attribute value for extmap, expected 1 or 2 '/' delimited fields, received 3 (1/send/x urn:x)"},
        {reprint<ext_map>, "a=extmap:1/both urn:x", "invalid direction value for extmap 'both'"},
        {reprint<crypto>, "a=crypto:1 AES", "invalid attribute value for crypto, expected >= 3 space delimited fields, received 2 (1 AES)"},
        {reprint<crypto>, "a=crypto:1 S inline", "invalid value for crypto attribute key, expected 2 ':' delimited fields, received 1 (inline)"},
        {reprint<crypto>, "a=crypto:1 S inline:a|b|c|d", "invalid value for crypto attribute key, expected max 3 '|' delimited fields, received 4 (inline:a|b|c|d)"},
        {reprint<crypto>, "a=crypto:2 S ne:|:|:1", "invalid value for crypto attribute key, empty field (ne:|:|:1)"},
        {reprint<crypto>, "a=crypto:2 S ne::k", "invalid value for crypto attribute key, empty field (ne::k)"},
        {reprint<crypto>, "a=crypto:2 S m:k;:m:k", "invalid value for crypto attribute key, empty field (:m:k)"},
        {reprint<crypto>, "a=crypto:2 S ne:k||1:4", "invalid value for crypto attribute key, empty field (ne:k||1:4)"},
        {reprint<crypto>, "a=crypto:1 S inline:a WSH=abc", "stoi"},
        {reprint<prime_crypto>, "a=prime-crypto:1 S p", "invalid attribute value for crypto, expected >= 4 space delimited fields, received 3 (1 S p)"},
        {reprint<prime_crypto>, "a=crypto:1 S p inline:k", "invalid attribute name for crypto expected 'prime-crypto' received 'crypto'"},
        {reprint<prime_crypto>, "a=prime-crypto:1 S p inline:k EKT", "invalid value for PRIME crypto attribute EKT, expected 2 '=' delimited fields, received 1 (EKT)"},
        {reprint<prime_crypto>, "a=prime-crypto:1 S p inline:k XKT=a|b|c", "invalid value found in PRIME crypto attribute EKT, expected 'EKT' found 'XKT'"},
        {reprint<prime_crypto>, "a=prime-crypto:1 S p inline:k EKT=a|b", "invalid value for PRIME crypto attribute EKT, expected 3 '|' delimited fields, received 2 (EKT=a|b)"},
        {reprint<ice_candidate>, "a=candidate:1 1 udp 1 10.0.0.1 5000 typ", "invalid attribute value for ice candidate, expected >= 8 space delimited fields, received 7 (1 1 udp 1 10.0.0.1 5000 typ)"},
        {reprint<ice_candidate>, "a=candidate:1 1 udp 1 10.0.0.1 5000 type host", "invalid attribute value for ice candidate, expected to see typ but found 'type' instead (1 1 udp 1 10.0.0.1 5000 type host)"},
        {reprint<ice_candidate>, "a=candidate:1 1 udp 1 10.0.0.1 5000 typ host generation", "invalid attribute value for ice candidate, expected an even number of extra attributes, received 1 (1 1 udp 1 10.0.0.1 5000 typ host generation)"},
        {reprint<ice_candidate>, "a=cand:1", "invalid attribute name for ice_candidate expected 'candidate' received 'cand'"},
        {reprint<ice_candidate>, "a=candidate:1 x udp 1 10.0.0.1 5000 typ host", "invalid non-numeric value found in ice candidate component id (x)"},
        {reprint<ice_options>, "a=ice-options:", "invalid attribute value for ice options, expected >= 1 space delimited fields, received 0 ()"},
        {reprint<ice_remote_candidates>, "a=remote-candidates:1 10.0.0.1", "invalid attribute value for ice candidate, expected a multiple of 3 space delimited fields, received 2 (1 10.0.0.1)"},
        {reprint<mline_group>, "a=group", "invalid attribute value for group, expected >= 1 space delimited fields, received 0 ()"},
        {reprint<tcap>, "a=tcap:1", "invalid attribute value for tcap, expected at least two fields, received 1 (1)"},
        {reprint<sctp_map>, "a=sctpmap:5000", "invalid attribute value for sctp_map, expected >= 2 space delimited fields, received 1 (5000)"},
        {reprint<ix_map>, "a=ixmap:1", "invalid attribute value for ix_map, expected 2 space delimited fields, received 1 (1)"},
        {reprint<bfcp_floor_id>, "a=floorid:x", "invalid non-numeric value found in bfcp_floor_id id value (x)"},
        {reprint<rid>, "a=rid:1 send max-fs", "invalid rid attribute '1 send max-fs'"},
        {reprint<rid>, "a=rid:1 sideways", "invalid rid attribute '1 sideways'"},
        {reprint<rid>, "a=rid:1", "invalid rid attribute '1'"},
        {reprint<sobe_version>, "a=vorta-sobe", "invalid attribute value for vorta sobe version, expected non-zero length"},
        {reprint<sobe_version>, "a=vorta-sobe-rtx:1", "invalid attribute name for vorta sobe version expected 'vorta-sobe' received 'vorta-sobe-rtx'"},
        {reprint<sobe_rtp_rexmit>, "a=vorta-sobe-rtx", "invalid attribute value for sobe rtp retransmission, expected non-zero length"},
        {reprint<sobe_rate_adaptation>, "a=vorta-sobe:1", "invalid attribute name for vorta sobe rate_adaptation expected 'vorta-sobe-rate' received 'vorta-sobe'"},
        {reprint<sobe_hybrid_resilience>, "a=vorta-sobe-hybrid-resilience:1.0 data-flow=8", "invalid attribute value for sobe hybrid resilience, data-flow larger than 7 (1.0 data-flow=8)"},
        // Only commas: no version survives, and the value would print back empty.
        {reprint<sobe_version>, "a=vorta-sobe:,,", "invalid attribute value for vorta sobe version, expected at least one version (,,)"},
        {reprint<sobe_rtp_rexmit>, "a=vorta-sobe-rtx:,", "invalid attribute value for sobe rtp retransmission, expected at least one version (,)"},
        {reprint<sobe_hybrid_resilience>, "a=vorta-sobe-hybrid-resilience:, data-flow=1", "invalid attribute value for sobe hybrid resilience, expected at least one version (,)"},
        {reprint<sobe_psre>, "a=vorta-sobe-psre:", "invalid attribute value for vorta sobe psre, expected >=1 space delimited fields, received 0 ()"},
        {reprint<sprop_source>, "a=sprop-source", "invalid attribute value for vorta multistream sprop source, expected non-zero length"},
        {reprint<sprop_source>, "a=sprop-source:1 policies=as:0", "invalid value for vorta multistream sprop source attribute policy id, must be non-zero"},
        {reprint<sprop_source>, "a=sprop-source:1 policies=as", "invalid format for vorta multistream sprop source attribute policy field, expected 2 ':' delimited fields, found 1 (as)"},
        {reprint<sprop_source>, "a=sprop-source:1 simul=1,x", "invalid non-numeric value found in vorta multistream sprop soruce attribute simul id (x)"},
        {reprint<sprop_simul>, "a=sprop-simul:1 2", "invalid attribute value for vorta multistream sprop simul, expected >= 3 space delimited fields, received 2 (1 2)"},
        {reprint<sprop_total>, "a=sprop-simul:1", "invalid attribute name for vorta multistream sprop total expected 'sprop-total' received 'sprop-simul'"},
        // Found by fuzzing: each of these used to read out of bounds or print what it could not read.
        {reprint<ext_map>, "a=extmap:/ urn:x", "invalid attribute value for extmap, expected 1 or 2 '/' delimited fields, received 0 (/ urn:x)"},
        {reprint<crypto>, "a=crypto:1 S ;", "empty key parameter vector, must have at least one key"},
        {reprint<crypto>, "a=crypto:1 S inline:||", "invalid value for crypto attribute key, expected 2 ':' delimited fields, received 1 (inline:||)"},
        {reprint<sprop_source>, "a=sprop-source: ", "invalid attribute value for vorta multistream sprop source, expected non-zero length"},
    };
    for (const auto& c : cases) EXPECT_EQ(invalid_argument_text([&] { c.reader(c.in); }), c.error) << c.in;
}

TEST(Attributes, TypedConstructorsCheckTheirFields)
{
    EXPECT_EQ(invalid_argument_text([] { ext_map(16, ext_map_sendrecv, "urn:x"); }), "invalid rtp extmap identifier value 16");
    EXPECT_EQ(invalid_argument_text([] { crypto(1, "S", {}); }), "empty key parameter vector, must have at least one key");
    EXPECT_EQ(invalid_argument_text([] { ice_options(std::vector<std::string>{}); }),
              "zero tags passed to ice options, expected minimum 1");
    EXPECT_EQ(invalid_argument_text([] { sobe_version(std::vector<std::string>{}); }),
              "zero versions passed to sobe version attribute, expected minimum 1");
    EXPECT_EQ(invalid_argument_text([] { sobe_hybrid_resilience({"1.0"}, 8); }),
              "invalid attribute value for sobe hybrid resilience, data-flow larger than 7 (8)");
    EXPECT_EQ(invalid_argument_text([] { sprop_source_simul(std::vector<uint32_t>{}); }), "invalid number of simul id, must be non-empty");
    EXPECT_EQ(invalid_argument_text([] { sprop_source_simul(std::string()); }),
              "invalid value for vorta multistream sprop source attribute simul field, must be non empty");
    EXPECT_EQ(invalid_argument_text([] { sprop_source_policy("as", 0); }),
              "invalid value for vorta multistream sprop source attribute policy id, must be non-zero");
    EXPECT_EQ(invalid_argument_text([] { cmulti_caps({}, {}, 0); }), "no vorta multistream RTCP SCR version");
    EXPECT_EQ(invalid_argument_text([] { rid().as_parameter_string(); }), "rid: rid-id is not set");
    EXPECT_EQ(invalid_argument_text([] { string_to_dtls_setup_role("both"); }), "Invalid DTLS setup role value 'both'");
    EXPECT_TRUE(ext_map::is_ext_map_id_dynamic(4096));
    EXPECT_FALSE(ext_map::is_ext_map_id_dynamic(15));
}

TEST(Crypto, KeysSessionParametersAndMasking)
{
    crypto c(attr("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:abc|2^20|1:4 UNENCRYPTED_SRTCP"));
    ASSERT_EQ(c.keys.size(), 1u);
    EXPECT_EQ(c.keys[0].lifetime, "2^20");
    EXPECT_EQ(c.keys[0].mki, "1:4");
    EXPECT_TRUE(c.is_unencrypted_srtcp());
    EXPECT_FALSE(c.is_unencrypted_srtp());
    EXPECT_FALSE(c.is_unauthenticated_srtp());

    crypto_key mki_only("inline:abc|1:4"), lifetime_only("inline:abc|2^20");
    EXPECT_EQ(mki_only.mki, "1:4");
    EXPECT_TRUE(mki_only.lifetime.empty());
    EXPECT_EQ(lifetime_only.lifetime, "2^20");
    EXPECT_EQ(crypto_key("inline:abc").as_string(true), "inline:***");

    crypto plain(attr("a=crypto:2 AES_CM_128_HMAC_SHA1_80 inline:x"));
    crypto other_suite(attr("a=crypto:3 AES_CM_128_HMAC_SHA1_32 inline:x UNENCRYPTED_SRTCP"));
    crypto same(attr("a=crypto:4 AES_CM_128_HMAC_SHA1_80 inline:y UNENCRYPTED_SRTCP"));
    EXPECT_FALSE(c.is_compatible_with(plain));
    EXPECT_FALSE(c.is_compatible_with(other_suite));
    EXPECT_TRUE(c.is_compatible_with(same));

    crypto wsh(attr("a=crypto:1 S inline:x KDR=1 WSH=128"));
    EXPECT_EQ(wsh.window_size_hint.get_data(), 128);
    EXPECT_THROW(crypto(attr("a=crypto:1 S inline:x WSH=99999999999")), std::out_of_range);

    prime_crypto p(attr("a=prime-crypto:1 S p inline:key EKT=AES|secret|7"));
    EXPECT_EQ(p.as_string(true), "1 S p inline:*** EKT=AES|******|7");
    EXPECT_EQ(p.ekt.front().spi, "7");
}

TEST(RtcpXr, RulesOfEachFormat)
{
    rtcp_xr xr;
    struct Case {
        const char* name;
        const char* value;
        bool taken;
    } cases[] = {
        {"bogus", "", false},         {"voip-metrics", "1", false}, {"voip-metrics", "", true},
        {"format-ext", "", false},    {"format-ext", "x", true},    {"stat-summary", "", false},
        {"stat-summary", "bad", false}, {"stat-summary", "dup", true}, {"rcvr-rtt", "none:1", false},
        {"rcvr-rtt", "sender:200", true}, {"pkt-dup-rle", "", true},
    };
    for (const auto& c : cases) EXPECT_EQ(xr.add_format(c.name, c.value), c.taken) << c.name << "=" << c.value;
    EXPECT_EQ(xr.get_rtt_mode(), "sender");
    uint32_t size = 0;
    EXPECT_TRUE(xr.get_max_size("rcvr-rtt", size));
    EXPECT_EQ(size, 200u);
    EXPECT_FALSE(xr.get_max_size("pkt-dup-rle", size));
    EXPECT_FALSE(xr.get_max_size("stat-summary", size));
    EXPECT_EQ(xr.get_summary_flags(), std::vector<std::string>{"dup"});
    EXPECT_EQ(rtcp_xr::format_stat_summary_flags("loss,jitt,HL,x,TTL,dup"), "HL,TTL,dup,jitt,loss");
}

TEST(Dtls, TryOperationsSwallowBadValues)
{
    dtls_caps d;
    EXPECT_EQ(d.try_setup_attribute(attr("a=mid:0")), -1);
    EXPECT_EQ(d.try_setup_attribute(attr("a=setup:sideways")), -1);
    EXPECT_EQ(invalid_argument_text([&] { d.validate_init(); }), "no valid setup attribute found for DTLS");
    EXPECT_EQ(d.try_setup_attribute(attr("a=setup:passive")), 0);
    EXPECT_EQ(d.try_fingerprint_attribute(attr("a=fingerprint:sha-1")), -1);
    EXPECT_EQ(invalid_argument_text([&] { d.validate_init(); }), "no valid fingerprint attribute found for DTLS");
    EXPECT_EQ(d.try_fingerprint_attribute(attr("a=fingerprint:sha-1 AA:BB")), 0);
    d.validate_init();
    auto lines = d.as_attribute_line();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].as_sdp(), "a=setup:passive\r\n");
    EXPECT_EQ(lines[1].as_sdp(), "a=fingerprint:sha-1 AA:BB\r\n");
}

TEST(Ice, ValidationOrder)
{
    ice_caps i;
    EXPECT_FALSE(i.try_username_attribute(attr("a=ice-pwd:x")));
    EXPECT_TRUE(i.try_username_attribute(attr("a=ice-ufrag:abc")));
    EXPECT_EQ(invalid_argument_text([&] { i.validate_init(); }), "invalid ICE username, expected at least 4 bytes, found 3");
    i.try_username_attribute(attr("a=ice-ufrag:abcd"));
    i.try_password_attribute(attr("a=ice-pwd:012345678901234567890"));
    EXPECT_EQ(invalid_argument_text([&] { i.validate_init(); }), "invalid ICE password, expected at least 22 bytes, found 21");
    i.try_password_attribute(attr("a=ice-pwd:0123456789012345678901"));
    EXPECT_EQ(invalid_argument_text([&] { i.validate_init(); }), "no ICE candidate attribute found");
    EXPECT_TRUE(i.try_ice_candidate_attribute(attr("a=candidate:1 1 udp 1 10.0.0.1 5000 typ host")));
    i.validate_init();
    ice_candidate eight(attr("a=candidate:1 1 udp 1 10.0.0.1 5000 typ host"));
    EXPECT_TRUE(eight.extensions.empty());
}

TEST(Rid, RestrictionsMergeAndCompare)
{
    rid small(attr("a=rid:a send max-width=640;max-br=500"));
    rid large(attr("a=rid:b send max-width=1280;max-height=720;max-br=1000"));
    EXPECT_TRUE(small.more_restrictive_than(large));
    EXPECT_FALSE(large.more_restrictive_than(small));
    EXPECT_TRUE(large.more_restrictive_than(rid(attr("a=rid:c send"))));

    // small lacks max-height, which large holds with a value: nothing changes
    rid s = small;
    EXPECT_FALSE(s.merge(large));
    EXPECT_EQ(s, small);

    rid l = large;
    EXPECT_TRUE(l.merge(small));
    EXPECT_EQ(l.restrictions["max-width"].get_data(), 640u);
    EXPECT_EQ(l.restrictions["max-br"].get_data(), 500u);
    EXPECT_EQ(l.restrictions["max-height"].get_data(), 720u);

    rid u("u", rid_recv, {}, {{"max-fs", {}}, {"max-br", 300u}});
    EXPECT_TRUE(u.merge(rid("v", rid_send, {}, {{"max-fs", 100u}})));
    EXPECT_EQ(u.restrictions["max-fs"].get_data(), 100u);
    u.restrictions["max-pps"] = {};
    EXPECT_EQ(u.as_parameter_string(), "a=rid:u recv max-br=300;max-fs=100");
    u.remove_undefined();
    EXPECT_EQ(u.restrictions.count("max-pps"), 0u);
}

TEST(Multistream, ScrFeedbackBitsAndPrintOrder)
{
    cmulti_caps caps;
    EXPECT_FALSE(caps.track_cmulti_rtcp_feedback(attr("a=rtcp-fb:96 ccm vorta-scr")));
    EXPECT_EQ(caps.scr_versions, 0u);
    for (const char* l : {"a=rtcp-fb:* ccm vorta-scr-v4", "a=rtcp-fb:* ccm vorta-scr-v2", "a=rtcp-fb:* ccm vorta-scr",
                          "a=rtcp-fb:* ccm vorta-scr-v3"})
        EXPECT_TRUE(caps.track_cmulti_rtcp_feedback(attr(l)));
    EXPECT_EQ(caps.scr_versions, 15u);
    EXPECT_TRUE(caps.add_attribute(attr("a=sprop-total:max-channels=2")));
    EXPECT_TRUE(caps.add_attribute(attr("a=sprop-source:0 count=2")));
    EXPECT_FALSE(caps.add_attribute(attr("a=mid:1")));
    std::string printed;
    for (const auto& l : caps.as_attribute_line()) printed += l.as_sdp();
    EXPECT_EQ(printed, sdp_test::crlf({"a=sprop-source:0 count=2", "a=sprop-total:max-channels=2",
                                       "a=rtcp-fb:* ccm vorta-scr", "a=rtcp-fb:* ccm vorta-scr-v2",
                                       "a=rtcp-fb:* ccm vorta-scr-v3", "a=rtcp-fb:* ccm vorta-scr-v4"}));
}

TEST(Sobe, CapabilitySetValidation)
{
    sobe_caps caps;
    caps.add_attribute(attr("a=vorta-sobe-hybrid-resilience:1.0 data-flow=5"));
    EXPECT_EQ(invalid_argument_text([&] { caps.validate(); }), "require RTX enabled for enabling hybrid resilience");
    caps.add_attribute(attr("a=vorta-sobe-rtx:1.0"));
    EXPECT_EQ(invalid_argument_text([&] { caps.validate(); }), "no vorta sobe version attribute found");
    caps.add_attribute(attr("a=vorta-sobe-rate"));
    caps.add_attribute(attr("a=vorta-sobe:2.0"));
    caps.validate();
    std::string printed;
    for (const auto& l : caps.as_attribute_line()) printed += l.as_sdp();
    EXPECT_EQ(printed, sdp_test::crlf({"a=vorta-sobe:2.0", "a=vorta-sobe-rate", "a=vorta-sobe-rtx:1.0",
                                       "a=vorta-sobe-hybrid-resilience:1.0 data-flow=5"}));
    sobe_hybrid_resilience h(std::vector<std::string>{"1"});
    h.support_dataflow_fec_rtx();
    h.support_dataflow_rtx_media();
    EXPECT_TRUE(h.is_dataflow_fec_rtx_supported());
    EXPECT_FALSE(h.is_dataflow_rtx_all_supported());
    EXPECT_EQ(h.data_flow, 5u);
}

TEST(Attributes, StreamOperatorPrintsTheLine)
{
    std::ostringstream os;
    os << ext_map(attr("a=extmap:3 urn:x"));
    EXPECT_EQ(os.str(), "a=extmap:3/sendrecv urn:x\r\n");
}

}  // namespace
