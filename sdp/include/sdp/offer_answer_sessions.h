// Offer/answer of whole m lines and whole descriptions. offer_answer drives these; they are
// public so that a caller can answer or conclude one session on its own.
//
// Matching: each offered (or, when concluding, each peer) session is tried against this side's
// sessions in list order, and the first that matches answers it. A session of this side is never
// used up, so one local audio session can answer several audio m lines. A session that matches
// nothing is answered by a disabled_session with its media type and transport, so an answer has
// exactly as many m lines as its offer.
#pragma once

#include "sdp/application_sessions.h"
#include "sdp/rtp_session.h"
#include "sdp/session.h"
#include "sdp/session_group.h"

namespace sdp {

// Results of the per-session functions: the session was answered (possibly by a disabled one),
// or the pair does not match and the next local session should be tried.
constexpr int session_matched = 0;
constexpr int session_unmatched = -1;

// Appends one answer for every offered session to answer.sessions.
void get_answer(session_group& answer, const session_group& offered, const session_group& local);
// Both of one kind (RTP, BFCP, SCTP or IX), then the function of that kind.
int get_answer(session_group& answer, const session& offered, const session& local);
// Same rtp_session_type, else unmatched. No common codec answers with a disabled session.
int get_answer_rtp(session_group& answer, const rtp_session& offered, const rtp_session& local);
// No common floor control role, or DTLS offered and no role agreed, answers disabled.
int get_answer_bfcp(session_group& answer, const bfcp_session& offered, const bfcp_session& local);
// DTLS offered and no role agreed answers disabled.
int get_answer_sctp(session_group& answer, const sctp_session& offered, const sctp_session& local);
int get_answer_ix(session_group& answer, const ix_session& offered, const ix_session& local);

// The negotiated view of a group: `a` is this side's description and `b` the peer's; is_local
// true gives this side's view (its addresses, keys, roles, payload numbers), false the peer's.
// The sessions follow b's order, one per m line of b. When both groups have as many sessions (an
// offer and its answer), each m line of b is first paired with the one at the same place in a, and
// a refused one there stays refused; otherwise, and when that pair does not match, the list-order
// matching above runs.
session_group negotiate(const session_group& a, const session_group& b, bool is_local);
// Appends the negotiated session for b, or a disabled one when no session of `a` matches it.
void negotiate(session_group& group, const session_group& a, const session& b, bool is_local);
int negotiate(session_group& group, const session& a, const session& b, bool is_local);
int negotiate_rtp(session_group& group, const rtp_session& a, const rtp_session& b, bool is_local);
int negotiate_bfcp(session_group& group, const bfcp_session& a, const bfcp_session& b, bool is_local);
int negotiate_sctp(session_group& group, const sctp_session& a, const sctp_session& b, bool is_local);
int negotiate_ix(session_group& group, const ix_session& a, const ix_session& b, bool is_local);

}  // namespace sdp
