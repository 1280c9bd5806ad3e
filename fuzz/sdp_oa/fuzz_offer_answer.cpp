// One arbitrary description is answered by a fixed local group and also concludes that group's
// offer. A text the reader takes must never make the exchange throw; the answer must have one
// m line per offered one, read back, and conclude the exchange of a peer that made the offer, with
// both ends agreeing on each m line.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "sdp/offer_answer.h"

namespace {

[[noreturn]] void bug(const char* what, const std::string& text)
{
    std::fprintf(stderr, "%s:\n%s\n", what, text.c_str());
    std::abort();
}

// Every kind of m line and most capability sets, so that each matching rule gets exercised.
const char* kLocal =
    "v=0\r\n"
    "o=local 0 0 IN IP4 10.0.0.1\r\n"
    "s=-\r\n"
    "c=IN IP4 10.0.0.1\r\n"
    "t=0 0\r\n"
    "a=vorta-sobe:1.0,1.1\r\n"
    "a=vorta-sobe-rate\r\n"
    "a=vorta-sobe-rtx:1.0\r\n"
    "a=vorta-sobe-hybrid-resilience:1.0 data-flow=7\r\n"
    "m=audio 5000 UDP/TLS/RTP/SAVPF 96 0 8 9 101\r\n"
    "a=rtpmap:96 opus/48000/2\r\n"
    "a=rtpmap:101 telephone-event/8000\r\n"
    "a=fmtp:101 0-15\r\n"
    "a=rtcp-fb:96 transport-cc\r\n"
    "a=rtcp-fb:* ccm vorta-scr\r\n"
    "a=extmap:1 urn:ietf:params:rtp-hdrext:ssrc-audio-level\r\n"
    "a=extmap:2/recvonly http://www.webrtc.org/experiments/rtp-hdrext/abs-send-time\r\n"
    "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:QUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFB\r\n"
    "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:QkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJC\r\n"
    "a=rtcp-mux\r\n"
    "a=mid:0\r\n"
    "a=sprop-total:max-channels=4\r\n"
    "a=ice-ufrag:Loc1\r\n"
    "a=ice-pwd:localPasswordLongEnough123\r\n"
    "a=candidate:1 1 UDP 2130706431 10.0.0.1 5000 typ host\r\n"
    "a=setup:actpass\r\n"
    "a=fingerprint:sha-256 AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99\r\n"
    "m=video 5002 UDP/TLS/RTP/SAVPF 97 98 45 110 111\r\n"
    "a=rtpmap:97 H264/90000\r\n"
    "a=fmtp:97 profile-level-id=42e01f;packetization-mode=1\r\n"
    "a=rtpmap:98 H264/90000\r\n"
    "a=fmtp:98 profile-level-id=640c1f;packetization-mode=1\r\n"
    "a=rtpmap:45 AV1/90000\r\n"
    "a=fmtp:45 profile=0;level_idx=8\r\n"
    "a=rtpmap:110 x-ulpfecuc/8000\r\n"
    "a=fmtp:110 max_esel=1400;max_n=32;m=8;multi_ssrc=1;FEC_ORDER=FEC_SRTP;non_seq=1;feedback=1,2\r\n"
    "a=rtpmap:111 sobe-rtx/90000\r\n"
    "a=fmtp:111 RTX_ORDER=RTX_SRTP;rtx-time=300\r\n"
    "a=rid:hi recv pt=45;max-width=1920;max-height=1080;max-br=4000000\r\n"
    "a=rid:lo recv max-width=640;max-height=360\r\n"
    "a=rtcp-fb:* nack pli\r\n"
    "a=rtcp-fb:* ccm vorta-scr-v2\r\n"
    "a=rtcp-fb:* ccm vorta-scr-v4\r\n"
    "a=extmap:3 urn:ietf:params:rtp-hdrext:toffset\r\n"
    "a=extmap:4/sendonly urn:3gpp:video-orientation\r\n"
    "a=prime-crypto:1 AES_CM_128_HMAC_SHA1_80 1 inline:cHJpbWVrZXlwcmltZWtleXByaW1la2V5 EKT=AES_128|ZWt0a2V5|5\r\n"
    "a=vorta-sobe-hybrid-resilience:1.0 data-flow=3\r\n"
    "a=vorta-sobe-psre:97 ltrf=4;gdr\r\n"
    "a=rtcp-mux\r\n"
    "a=mid:1\r\n"
    "a=sprop-source:0 csi=1157262848;count=4;policies=as:1,rs:2;simul=100,101|102\r\n"
    "a=sprop-simul:0 100 * max-fs=3600\r\n"
    "a=rtcp-xr:rcvr-rtt=all:100 stat-summary=loss,dup voip-metrics\r\n"
    "a=setup:active\r\n"
    "a=fingerprint:sha-256 AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99\r\n"
    "m=video 5004 RTP/AVP 97\r\n"
    "a=rtpmap:97 H264/90000\r\n"
    "a=fmtp:97 profile-level-id=42001f;packetization-mode=0\r\n"
    "a=content:slides\r\n"
    "a=sendonly\r\n"
    "m=application 5006 UDP/BFCP *\r\n"
    "a=floorctrl:c-s\r\n"
    "a=confid:1\r\n"
    "a=userid:2\r\n"
    "a=floorid:1 mstrm:12\r\n"
    "m=application 5008 UDP/DTLS/SCTP 5000\r\n"
    "a=sctpmap:5000 webrtc-datachannel 1024\r\n"
    "a=setup:passive\r\n"
    "a=fingerprint:sha-256 AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF:00:11:22:33:44:55:66:77:88:99\r\n"
    "m=application 5010 UDP/UDT/IX *\r\n"
    "a=ixmap:0 ping\r\n";

const sdp::session_group& local_group()
{
    static const sdp::session_group group(sdp::session_description::create(kLocal));
    return group;
}

std::size_t media_count(const std::string& text)
{
    return sdp::session_description::create(text).get_media_descriptions().size();
}

void check_views(const sdp::offer_answer& oa, std::size_t count, const std::string& text)
{
    if (oa.get_local_negotiated().empty() || oa.get_remote_negotiated().empty()) bug("no negotiated view", text);
    if (oa.get_local_negotiated().get_data().sessions.size() != count ||
        oa.get_remote_negotiated().get_data().sessions.size() != count)
        bug("negotiated views do not have one session per m line", text);
}

// Both ends' pictures of one side: same kinds, ports, directions, codecs and keys.
void check_agreement(const sdp::session_group& x, const sdp::session_group& y, const std::string& text)
{
    for (std::size_t i = 0; i < x.sessions.size(); ++i) {
        const auto& s = x.sessions[i];
        const auto& t = y.sessions[i];
        if (s.get_kind() != t.get_kind() || s.get_port() != t.get_port() || s.get_direction() != t.get_direction())
            bug("the two ends disagree on an m line", text);
        if (s.is_rtp() && (s.rtp.get_data().codecs != t.rtp.get_data().codecs ||
                           s.rtp.get_data().cryptos != t.rtp.get_data().cryptos ||
                           s.rtp.get_data().dtls != t.rtp.get_data().dtls))
            bug("the two ends disagree on codecs or keys", text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // The reader (and an AV1 level without a defaults row) may refuse the text; nothing else may.
    std::size_t count = 0;
    try {
        auto description = sdp::session_description::create(text);
        sdp::session_group parsed(description);
        count = description.get_media_descriptions().size();
    } catch (const std::exception&) {
        return 0;
    }

    // The text as an offer.
    std::string answer;
    {
        sdp::offer_answer oa(local_group());
        try {
            answer = oa.get_answer(text);
        } catch (const std::exception& e) {
            bug(("answering threw: " + std::string(e.what())).c_str(), text);
        }
        check_views(oa, count, text);
        try {
            if (media_count(answer) != count) bug("answer m line count differs from the offer", text + "----\n" + answer);
        } catch (const std::invalid_argument& e) {
            bug(("printed answer refused: " + std::string(e.what())).c_str(), answer);
        }
        // The peer that made this offer concludes with our answer.
        sdp::offer_answer peer(sdp::session_group(sdp::session_description::create(text)));
        try {
            peer.get_offer();
            peer.set_answer(answer);
        } catch (const std::exception& e) {
            bug(("offerer refused the answer: " + std::string(e.what())).c_str(), text + "----\n" + answer);
        }
        check_views(peer, count, answer);
        check_agreement(peer.get_local_negotiated().get_data(), oa.get_remote_negotiated().get_data(), text + "----\n" + answer);
        check_agreement(oa.get_local_negotiated().get_data(), peer.get_remote_negotiated().get_data(), text + "----\n" + answer);
    }

    // The text as the answer to our offer.
    {
        sdp::offer_answer oa(local_group());
        oa.get_offer();
        try {
            oa.set_answer(text);
        } catch (const std::exception& e) {
            bug(("concluding threw: " + std::string(e.what())).c_str(), text);
        }
        check_views(oa, count, text);
        if (oa.get_state() != sdp::offer_answer_state::initial) bug("offer still out after the answer", text);
    }
    return 0;
}
