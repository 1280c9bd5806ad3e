// What survives an offer/answer exchange, one pair of functions per kind of value.
//
// get_answer_<x>(offered, local) builds what an answerer puts in its answer from the offered value
// and its own capability. negotiate_<x>(a, b, is_local) concludes once both sides are known: `a` is
// this side's description (the answer it sent, or the offer it made) and `b` the peer's, and
// is_local chooses whose view the result takes: true gives this side's values (its keys, its
// payload numbers, its role), false the peer's. Running a negotiation with true and with false
// gives the two views that the media connection applies to its receive and send paths.
//
// Nothing here throws for a mismatch: an empty list or an empty optional_value means "nothing in
// common", and the caller decides what that means for the m line.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sdp/application_attributes.h"
#include "sdp/codec.h"
#include "sdp/crypto.h"
#include "sdp/dtls.h"
#include "sdp/multistream.h"
#include "sdp/optional_value.h"
#include "sdp/rid.h"
#include "sdp/rtcp_xr.h"
#include "sdp/rtp_attributes.h"
#include "sdp/rtp_session.h"
#include "sdp/sobe.h"

namespace sdp {

// Local payload type -> offered payload type, for every local codec put into an answer.
using payload_map = std::map<uint32_t, uint32_t>;

// Codecs. The answer lists local codecs (local payload numbers) in the offer's order of
// preference; one offered codec can be answered by several local ones, and a local codec appears
// once. `map` receives local -> offered payload numbers.
std::vector<codec> get_answer_codec(const std::vector<codec>& offered, const std::vector<codec>& local,
                                    payload_map& map);
// The codecs of the side that is_local names, in its order, that are compatible (either way) with
// a codec of the other side.
std::vector<codec> negotiate_codec(const std::vector<codec>& a, const std::vector<codec>& b, bool is_local);

// Directions of the answerer, from the offered one and its own.
session_direction get_answer_direction(session_direction offered, session_direction local);
ext_map_direction get_answer_direction(ext_map_direction offered, ext_map_direction local);
// The direction of the side that is_local names, e.g. a sendonly offer answered recvonly gives
// sendonly for the offerer's view.
session_direction negotiate_direction(session_direction a, session_direction b, bool is_local);

// Feedback entries offered that the local side also has, equal by value.
std::vector<rtcp_feedback> get_answer_rtcp_feedback(const std::vector<rtcp_feedback>& offered,
                                                    const std::vector<rtcp_feedback>& local);
std::vector<rtcp_feedback> negotiate_rtcp_feedback(const std::vector<rtcp_feedback>& a,
                                                   const std::vector<rtcp_feedback>& b, bool is_local);

// Header extensions matched by uri. An inactive direction drops the entry. An offered id from the
// two-byte range (4096-4351) is answered by the lowest one-byte id (1-15) not used by the answer
// nor by another offered extension; no free id drops the entry.
std::vector<ext_map> get_answer_ext_map(const std::vector<ext_map>& offered, const std::vector<ext_map>& local);
// The id is the named side's unless it is from the two-byte range, in which case the other side's:
// an answer never carries one, so both views end with the id the answer chose.
std::vector<ext_map> negotiate_ext_map(const std::vector<ext_map>& a, const std::vector<ext_map>& b, bool is_local);

// SDES: at most one entry, the first compatible pair in offered order, with the offered tag and
// suite and the local keys and session parameters. Empty means no SRTP.
std::vector<crypto> get_answer_crypto(const std::vector<crypto>& offered, const std::vector<crypto>& local);
// The named side's entries (tag, suite, keys) that the other side has a suite for, one per suite,
// preferring the entry whose tag the other side echoed.
std::vector<crypto> negotiate_crypto(const std::vector<crypto>& a, const std::vector<crypto>& b, bool is_local);

// Equal suite, equal second field, and EKT on both sides or on neither.
bool prime_crypto_is_compatible(const prime_crypto& x, const prime_crypto& y);
// As crypto: the offered tag and suite with the local key and EKT; concluding keeps the named side's.
std::vector<prime_crypto> get_answer_prime_crypto(const std::vector<prime_crypto>& offered,
                                                  const std::vector<prime_crypto>& local);
std::vector<prime_crypto> negotiate_prime_crypto(const std::vector<prime_crypto>& a,
                                                 const std::vector<prime_crypto>& b, bool is_local);

// DTLS setup role of the answerer (passive -> active, active -> passive, actpass -> passive when
// the local side insists on passive, else active) with the local fingerprints. Empty when either
// side has none or the roles cannot meet.
optional_value<dtls_caps> get_answer_dtls(const optional_value<dtls_caps>& offered,
                                          const optional_value<dtls_caps>& local);
// The role and fingerprints of the side that is_local names: the local view holds the role this
// side plays, the remote view the peer's role and the fingerprints its certificate must match.
optional_value<dtls_caps> negotiate_dtls(const optional_value<dtls_caps>& a, const optional_value<dtls_caps>& b,
                                         bool is_local);

// BFCP floor control: the answerer's single role, or empty when none fits (the m line is refused).
std::vector<bfcp_floor_control_role> get_answer_bfcp_floor_control_role(
    const std::vector<bfcp_floor_control_role>& offered, const std::vector<bfcp_floor_control_role>& local);
std::vector<bfcp_floor_control_role> negotiate_bfcp_floor_control_role(const std::vector<bfcp_floor_control_role>& a,
                                                                       const std::vector<bfcp_floor_control_role>& b,
                                                                       bool is_local);

// Session-level resilience: versions intersected in offered order, rate adaptation when both have
// it, RTX versions intersected, hybrid resilience only when RTX survives, its data flow the AND of
// both sides. Empty when either side has none or no version is common.
optional_value<sobe_caps> get_answer_sobe(const optional_value<sobe_caps>& offered,
                                          const optional_value<sobe_caps>& local);
optional_value<sobe_caps> negotiate_sobe(const optional_value<sobe_caps>& a, const optional_value<sobe_caps>& b,
                                         bool is_local);
// Media-level hybrid resilience: versions intersected, data flow ANDed.
optional_value<sobe_hybrid_resilience> get_answer_sobe_hybrid_resilience(
    const optional_value<sobe_hybrid_resilience>& offered, const optional_value<sobe_hybrid_resilience>& local);
optional_value<sobe_hybrid_resilience> negotiate_sobe_hybrid_resilience(
    const optional_value<sobe_hybrid_resilience>& a, const optional_value<sobe_hybrid_resilience>& b, bool is_local);

// Extended report formats present on both sides, with the offered (or named side's) value.
optional_value<rtcp_xr> get_answer_rtcp_xr(const optional_value<rtcp_xr>& offered, const optional_value<rtcp_xr>& local);
optional_value<rtcp_xr> negotiate_rtcp_xr(const optional_value<rtcp_xr>& a, const optional_value<rtcp_xr>& b,
                                          bool is_local);

// Multistream: the SCR versions both sides speak (AND of the bit sets), with the sources, simuls
// and total of the named side; an answer carries the local announcements. Empty when either side
// has none or no version is common.
optional_value<cmulti_caps> get_answer_cmulti(const optional_value<cmulti_caps>& offered,
                                              const optional_value<cmulti_caps>& local);
optional_value<cmulti_caps> negotiate_cmulti(const optional_value<cmulti_caps>& a, const optional_value<cmulti_caps>& b,
                                             bool is_local);

// Simulcast restrictions. Each local rid meets the offered rid of the same id and opposite
// direction: the local rid takes the tighter of each value (rid::merge; an offered key unknown
// locally refuses the pair). Its payload list keeps the answered codecs it names, or, when the local
// rid names none, the local numbers of the offered ones (through `map`). Every answered codec the
// rid allows must take its restrictions (codec::apply, which only AV1 does), else the rid is
// skipped. Keys left without a value are dropped. Results are appended to `result`.
void get_answer_restrictions(std::vector<rid>& result, const std::vector<codec>& codecs, const payload_map& map,
                             const std::vector<rid>& offered, const std::vector<rid>& local);
// The send rids of a, each with the tighter value of every key that it or b's recv rid of the same
// id restricts (the receiver may name keys the sender did not). The local view keeps their
// direction, the remote view turns it; running this on (a, b, v) and on (b, a, !v) gives every
// restricted stream of the session once, seen from one side.
std::vector<rid> negotiate_restrictions(const std::vector<rid>& a, const std::vector<rid>& b, bool is_local);

// The entries of `offered` that `local` also holds, in offered order.
std::vector<std::string> sub_list(const std::vector<std::string>& offered, const std::vector<std::string>& local);

}  // namespace sdp
