// Offer/answer of m lines: matching sessions of the two sides and building the answered or
// negotiated session of each kind.
#include "sdp/offer_answer_sessions.h"

#include <algorithm>

#include "sdp/offer_answer_values.h"

namespace sdp {

namespace {

void add_disabled(session_group& group, const std::string& media_type, const std::string& transport)
{
    group.add_session(session(disabled_session(media_type, transport)));
}

// Resilience parameters of the payloads that survived, in their own order.
std::vector<sobe_psre> psre_of(const std::vector<sobe_psre>& entries, const std::vector<codec>& codecs)
{
    std::vector<sobe_psre> out;
    for (const auto& p : entries)
        if (std::any_of(codecs.begin(), codecs.end(), [&](const codec& c) { return c.payload_type == p.payload_type; }))
            out.push_back(p);
    return out;
}

// A common DTLS result is needed when either side asked for DTLS; plain on both sides is fine.
bool dtls_refused(const optional_value<dtls_caps>& x, const optional_value<dtls_caps>& y,
                  const optional_value<dtls_caps>& result)
{
    return result.empty() && (x.is_set() || y.is_set());
}

template <class S>
void copy_rtcp(rtp_session& out, const S& from)
{
    if (from.rtcp_address.is_set()) out.rtcp_address = from.rtcp_address;
    if (from.rtcp_port.is_set()) out.rtcp_port = from.rtcp_port;
}

}  // namespace

// ---- answering

void get_answer(session_group& answer, const session_group& offered, const session_group& local)
{
    for (const auto& o : offered.sessions) {
        bool matched = false;
        for (const auto& l : local.sessions)
            if (get_answer(answer, o, l) == session_matched) {
                matched = true;
                break;
            }
        if (!matched) add_disabled(answer, o.get_media_type(), o.get_transport_protocol());
    }
}

int get_answer(session_group& answer, const session& offered, const session& local)
{
    if (offered.is_rtp() && local.is_rtp()) return get_answer_rtp(answer, offered.rtp.get_data(), local.rtp.get_data());
    if (offered.is_bfcp() && local.is_bfcp())
        return get_answer_bfcp(answer, offered.bfcp.get_data(), local.bfcp.get_data());
    if (offered.is_sctp() && local.is_sctp())
        return get_answer_sctp(answer, offered.sctp.get_data(), local.sctp.get_data());
    if (offered.is_ix() && local.is_ix()) return get_answer_ix(answer, offered.ix.get_data(), local.ix.get_data());
    return session_unmatched;
}

int get_answer_rtp(session_group& answer, const rtp_session& offered, const rtp_session& local)
{
    if (offered.type != local.type) return session_unmatched;

    payload_map map;
    auto codecs = get_answer_codec(offered.codecs, local.codecs, map);
    if (codecs.empty()) {
        add_disabled(answer, offered.get_media_type(), offered.transport_protocol);
        return session_matched;
    }

    rtp_session out(local.type, local.ip_address, local.port, local.transport_protocol);
    out.bandwidth = local.bandwidth;
    copy_rtcp(out, local);
    out.rtcp_feedback = get_answer_rtcp_feedback(offered.rtcp_feedback, local.rtcp_feedback);
    out.ext_maps = get_answer_ext_map(offered.ext_maps, local.ext_maps);
    out.cryptos = get_answer_crypto(offered.cryptos, local.cryptos);
    out.prime_cryptos = get_answer_prime_crypto(offered.prime_cryptos, local.prime_cryptos);
    out.rtcp_mux = offered.rtcp_mux && local.rtcp_mux;
    out.http_upgrade = offered.http_upgrade && local.http_upgrade;
    out.direction = get_answer_direction(offered.direction, local.direction);
    out.cmulti = get_answer_cmulti(offered.cmulti, local.cmulti);
    out.rtcp_xr = get_answer_rtcp_xr(offered.rtcp_xr, local.rtcp_xr);
    out.sobe_hybrid_resilience = get_answer_sobe_hybrid_resilience(offered.sobe_hybrid_resilience,
                                                                    local.sobe_hybrid_resilience);
    out.sobe_psre = psre_of(local.sobe_psre, codecs);
    get_answer_restrictions(out.rids, codecs, map, offered.rids, local.rids);
    if (local.ice.is_set()) out.ice = local.ice;
    out.dtls = get_answer_dtls(offered.dtls, local.dtls);
    // The offerer finds its m line (and its BUNDLE member) by the mid it chose.
    out.mid = offered.mid;
    out.codecs = std::move(codecs);
    answer.add_session(session(std::move(out)));
    return session_matched;
}

int get_answer_bfcp(session_group& answer, const bfcp_session& offered, const bfcp_session& local)
{
    auto roles = get_answer_bfcp_floor_control_role(offered.floor_control_roles, local.floor_control_roles);
    auto dtls = get_answer_dtls(offered.dtls, local.dtls);
    if (roles.empty() || (offered.dtls.is_set() && dtls.empty())) {
        add_disabled(answer, offered.get_media_type(), offered.transport_protocol);
        return session_matched;
    }
    bfcp_session out(local.transport_protocol, local.ip_address, local.port);
    out.floor_control_roles = std::move(roles);
    out.conf_id = local.conf_id;
    out.user_id = local.user_id;
    out.floor_ids = local.floor_ids;
    out.mid = offered.mid;
    out.ice = local.ice;
    out.dtls = std::move(dtls);
    answer.add_session(session(std::move(out)));
    return session_matched;
}

int get_answer_sctp(session_group& answer, const sctp_session& offered, const sctp_session& local)
{
    auto dtls = get_answer_dtls(offered.dtls, local.dtls);
    if (offered.dtls.is_set() && dtls.empty()) {
        add_disabled(answer, offered.get_media_type(), offered.transport_protocol);
        return session_matched;
    }
    sctp_session out(local.transport_protocol, local.ip_address, local.port);
    out.sctp_maps = local.sctp_maps;
    out.mid = offered.mid;
    out.ice = local.ice;
    out.dtls = std::move(dtls);
    answer.add_session(session(std::move(out)));
    return session_matched;
}

int get_answer_ix(session_group& answer, const ix_session& offered, const ix_session& local)
{
    auto dtls = get_answer_dtls(offered.dtls, local.dtls);
    if (offered.dtls.is_set() && dtls.empty()) {
        add_disabled(answer, offered.get_media_type(), offered.transport_protocol);
        return session_matched;
    }
    ix_session out(local.transport_protocol, local.ip_address, local.port);
    out.ix_maps = local.ix_maps;
    out.dtls = std::move(dtls);
    answer.add_session(session(std::move(out)));
    return session_matched;
}

// ---- concluding

session_group negotiate(const session_group& a, const session_group& b, bool is_local)
{
    const session_group& named = is_local ? a : b;
    session_group group(named.user_name, named.ip_address, named.session_version);
    group.bandwidth = named.bandwidth;
    group.ice_lite = named.ice_lite;
    group.ice_options = named.ice_options;
    group.bundle = named.bundle;
    group.sobe = negotiate_sobe(a.sobe, b.sobe, is_local);
    // An answer has one m line per offered one, in the same order: when the counts agree, the m
    // line at the same place is the partner, and a refused one stays refused. This keeps two
    // m lines of one type (say a sendonly and a recvonly audio) from both pairing with the first.
    const bool paired = a.sessions.size() == b.sessions.size();
    for (std::size_t i = 0; i < b.sessions.size(); ++i) {
        const session& s = b.sessions[i];
        if (paired) {
            const session& partner = a.sessions[i];
            if (partner.is_disabled()) {
                add_disabled(group, s.get_media_type(), s.get_transport_protocol());
                continue;
            }
            if (negotiate(group, partner, s, is_local) == session_matched) continue;
        }
        negotiate(group, a, s, is_local);
    }
    return group;
}

void negotiate(session_group& group, const session_group& a, const session& b, bool is_local)
{
    for (const auto& s : a.sessions)
        if (negotiate(group, s, b, is_local) == session_matched) return;
    add_disabled(group, b.get_media_type(), b.get_transport_protocol());
}

int negotiate(session_group& group, const session& a, const session& b, bool is_local)
{
    if (a.is_rtp() && b.is_rtp()) return negotiate_rtp(group, a.rtp.get_data(), b.rtp.get_data(), is_local);
    if (a.is_bfcp() && b.is_bfcp()) return negotiate_bfcp(group, a.bfcp.get_data(), b.bfcp.get_data(), is_local);
    if (a.is_sctp() && b.is_sctp()) return negotiate_sctp(group, a.sctp.get_data(), b.sctp.get_data(), is_local);
    if (a.is_ix() && b.is_ix()) return negotiate_ix(group, a.ix.get_data(), b.ix.get_data(), is_local);
    return session_unmatched;
}

int negotiate_rtp(session_group& group, const rtp_session& a, const rtp_session& b, bool is_local)
{
    if (a.type != b.type) return session_unmatched;

    auto codecs = negotiate_codec(a.codecs, b.codecs, is_local);
    if (codecs.empty()) {
        add_disabled(group, a.get_media_type(), a.transport_protocol);
        return session_matched;
    }

    const rtp_session& named = is_local ? a : b;
    rtp_session out(named.type, named.ip_address, named.port, named.transport_protocol);
    out.bandwidth = named.bandwidth;
    copy_rtcp(out, named);
    out.rtcp_feedback = negotiate_rtcp_feedback(a.rtcp_feedback, b.rtcp_feedback, is_local);
    out.ext_maps = negotiate_ext_map(a.ext_maps, b.ext_maps, is_local);
    out.cryptos = negotiate_crypto(a.cryptos, b.cryptos, is_local);
    out.prime_cryptos = negotiate_prime_crypto(a.prime_cryptos, b.prime_cryptos, is_local);
    out.cmulti = negotiate_cmulti(a.cmulti, b.cmulti, is_local);
    out.sobe_hybrid_resilience = negotiate_sobe_hybrid_resilience(a.sobe_hybrid_resilience, b.sobe_hybrid_resilience,
                                                                  is_local);
    out.rids = negotiate_restrictions(a.rids, b.rids, is_local);
    auto peer_rids = negotiate_restrictions(b.rids, a.rids, !is_local);
    out.rids.insert(out.rids.end(), peer_rids.begin(), peer_rids.end());
    out.ice = named.ice;
    out.dtls = negotiate_dtls(a.dtls, b.dtls, is_local);
    out.rtcp_xr = negotiate_rtcp_xr(a.rtcp_xr, b.rtcp_xr, is_local);
    out.rtcp_mux = a.rtcp_mux && b.rtcp_mux;
    out.http_upgrade = a.http_upgrade && b.http_upgrade;
    out.direction = negotiate_direction(a.direction, b.direction, is_local);
    out.sobe_psre = psre_of(named.sobe_psre, codecs);
    out.mid = named.mid;
    out.codecs = std::move(codecs);
    group.add_session(session(std::move(out)));
    return session_matched;
}

int negotiate_bfcp(session_group& group, const bfcp_session& a, const bfcp_session& b, bool is_local)
{
    auto roles = negotiate_bfcp_floor_control_role(a.floor_control_roles, b.floor_control_roles, is_local);
    auto dtls = negotiate_dtls(a.dtls, b.dtls, is_local);
    if (roles.empty() || dtls_refused(a.dtls, b.dtls, dtls)) {
        add_disabled(group, a.get_media_type(), a.transport_protocol);
        return session_matched;
    }
    const bfcp_session& named = is_local ? a : b;
    bfcp_session out(named.transport_protocol, named.ip_address, named.port);
    out.floor_control_roles = std::move(roles);
    out.conf_id = named.conf_id;
    out.user_id = named.user_id;
    out.floor_ids = named.floor_ids;
    out.mid = named.mid;
    out.ice = named.ice;
    out.dtls = std::move(dtls);
    group.add_session(session(std::move(out)));
    return session_matched;
}

int negotiate_sctp(session_group& group, const sctp_session& a, const sctp_session& b, bool is_local)
{
    auto dtls = negotiate_dtls(a.dtls, b.dtls, is_local);
    if (dtls_refused(a.dtls, b.dtls, dtls)) {
        add_disabled(group, a.get_media_type(), a.transport_protocol);
        return session_matched;
    }
    const sctp_session& named = is_local ? a : b;
    sctp_session out(named.transport_protocol, named.ip_address, named.port);
    out.sctp_maps = named.sctp_maps;
    out.mid = named.mid;
    out.ice = named.ice;
    out.dtls = std::move(dtls);
    group.add_session(session(std::move(out)));
    return session_matched;
}

int negotiate_ix(session_group& group, const ix_session& a, const ix_session& b, bool is_local)
{
    auto dtls = negotiate_dtls(a.dtls, b.dtls, is_local);
    if (dtls_refused(a.dtls, b.dtls, dtls)) {
        add_disabled(group, a.get_media_type(), a.transport_protocol);
        return session_matched;
    }
    const ix_session& named = is_local ? a : b;
    ix_session out(named.transport_protocol, named.ip_address, named.port);
    out.ix_maps = named.ix_maps;
    out.dtls = std::move(dtls);
    group.add_session(session(std::move(out)));
    return session_matched;
}

}  // namespace sdp
