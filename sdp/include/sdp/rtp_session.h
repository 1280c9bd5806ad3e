// An RTP media section read into typed values, and printed back in the library's one order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdp/codec.h"
#include "sdp/crypto.h"
#include "sdp/description.h"
#include "sdp/dtls.h"
#include "sdp/group_attributes.h"
#include "sdp/ice.h"
#include "sdp/multistream.h"
#include "sdp/optional_value.h"
#include "sdp/rid.h"
#include "sdp/rtcp_xr.h"
#include "sdp/rtp_attributes.h"
#include "sdp/sobe.h"

namespace sdp {

enum class session_direction : unsigned { inactive = 0, recvonly = 1, sendonly = 2, sendrecv = 3 };
const char* session_direction_to_string(session_direction d);

enum class rtp_session_type : unsigned { audio_main = 0, audio_slides = 1, video_main = 2, video_slides = 3 };

class rtp_session {
public:
    // Throws std::invalid_argument when the section is not a readable RTP section.
    rtp_session(const session_lines& session, const media_description& media);
    rtp_session(rtp_session_type type, std::string ip_address, uint16_t port,
                const std::string& transport_protocol = "RTP/AVP");

    media_description as_media_description() const;

    // "audio", "video" or "unknown"; "main", "slides" or "unknown".
    std::string get_media_type() const;
    std::string get_content_type() const;
    const std::string& get_rtcp_ip_address() const;
    uint16_t get_rtcp_port() const;
    // Bits per second: AS times 1000, or TIAS, from the first b line.
    optional_value<unsigned> get_bandwidth() const;
    // Replaces the b lines by one TIAS line, or none.
    void set_bandwidth(const optional_value<unsigned>& value);
    void set_transport_protocol(const std::string& transport);
    static bool is_valid_transport_protocol(const std::string& transport);

    rtp_session_type type = rtp_session_type::audio_main;
    std::string transport_protocol = "RTP/AVP";
    std::string ip_address;
    optional_value<std::string> rtcp_address;
    uint16_t port = 0;
    optional_value<uint16_t> rtcp_port;
    std::vector<bandwidth_line> bandwidth;
    std::vector<codec> codecs;
    std::vector<sdp::rtcp_feedback> rtcp_feedback;
    std::vector<ext_map> ext_maps;
    std::vector<crypto> cryptos;
    std::vector<prime_crypto> prime_cryptos;
    std::vector<sdp::sobe_psre> sobe_psre;
    std::vector<rid> rids;
    bool rtcp_mux = false;
    session_direction direction = session_direction::sendrecv;
    optional_value<std::string> label;
    optional_value<std::string> mid;
    optional_value<cmulti_caps> cmulti;
    optional_value<ice_caps> ice;
    optional_value<dtls_caps> dtls;
    std::vector<tcap> tcaps;
    optional_value<sdp::rtcp_xr> rtcp_xr;
    optional_value<sdp::sobe_hybrid_resilience> sobe_hybrid_resilience;
    bool http_upgrade = false;

    bool operator==(const rtp_session&) const = default;

private:
    void init_session_type(const media_description& media);
    void init_bandwidth(const media_description& media);
    // fmtp lines are read once, on first need, in line order: a malformed one fails the section
    // exactly when a search by line order would reach it.
    struct fmtp_cache {
        std::vector<const attribute_line*> lines;
        std::vector<optional_value<format_parameters>> parsed;
    };
    void init_format(const std::string& format, const std::vector<rtp_map>& maps, fmtp_cache& fmtps);
    void init_attributes(const session_lines& session, const media_description& media);
    void init_cmulti(const media_description& media);
};

namespace detail {
// First c line of the media section, then of the session, with "IN" and "IP4" or "IP6".
std::string find_connection_address(const session_lines& session, const media_description& media);
// "IP6" when the address has a ':'.
const char* address_type_of(const std::string& address);
uint16_t read_media_port(const media_description& media);
void read_ice(const session_lines& session, const media_description& media, optional_value<ice_caps>& out);
void read_dtls(const session_lines& session, const media_description& media, optional_value<dtls_caps>& out);
inline void add_attribute_lines(media_description& m, std::vector<attribute_line> lines)
{
    for (auto& l : lines) m.add_line(std::move(l), false);
}
}  // namespace detail

}  // namespace sdp
