// One side of an SDP offer/answer exchange over a local group of capabilities.
//
// The media connection builds a session_group from each media line's configuration (codecs with
// this side's payload numbers, crypto, DTLS, ICE, multistream and resilience capabilities), hands
// it to an offer_answer, and then either
//   - offers:  text = get_offer(); ... send it, receive the answer ...; set_answer(answer_text);
//   - answers: text = get_answer(offer_text); ... send text ...
// After either path, get_local_negotiated() and get_remote_negotiated() hold what was agreed, one
// session per m line of the exchange, in its order:
//   - the local view: this side's addresses, ports, keys, DTLS role and fingerprints, payload
//     numbers and direction (what this side receives on and how it decodes);
//   - the remote view: the peer's (where to send, how to encode for it, which fingerprint its
//     certificate must show, its DTLS role).
// An m line that nothing local could answer is a disabled session in both views (port 0).
// An answer echoes each offered mid, and its BUNDLE group keeps the offered members it accepted.
// It also carries the local ICE credentials and candidates, the local sobe-psre entries of the
// answered payloads, and the media-level hybrid resilience both sides support.
//
// Differences from plain RFC 3264 that callers rely on: answers carry this side's payload numbers;
// a local session is never used up, so one local audio session answers every audio m line; an
// unmatched m line is refused, never an error; RTP sessions match only with the same
// rtp_session_type (audio or video, main or slides).
//
// Errors: a call not allowed in the current state throws offer_answer_state_exception; a text that
// the description reader refuses throws std::invalid_argument with that reader's text, and leaves
// the state and every stored group as they were. Nothing else is an error. Not thread-safe: one
// exchange belongs to one thread (the connection's main thread).
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "sdp/offer_answer_sessions.h"
#include "sdp/offer_answer_values.h"
#include "sdp/optional_value.h"
#include "sdp/session_group.h"

namespace sdp {

// "requested illegal offer/answer state transition from '<from>' to '<to>'", where the names are
// "initial", "local offer", "remote offer" and "remote answer".
class offer_answer_state_exception : public std::exception {
public:
    offer_answer_state_exception(std::string from, std::string to);
    const char* what() const noexcept override { return message_.c_str(); }
    const std::string& from() const { return from_; }
    const std::string& to() const { return to_; }

private:
    std::string from_;
    std::string to_;
    std::string message_;
};

class offer_answer_base {
public:
    virtual ~offer_answer_base() = default;
    virtual std::string get_offer() = 0;
    virtual std::string get_answer(const std::string& remote_offer) = 0;
    virtual void set_answer(const std::string& remote_answer) = 0;
    virtual const optional_value<session_group>& get_local_negotiated() const = 0;
    virtual const optional_value<session_group>& get_remote_negotiated() const = 0;
};

enum class offer_answer_state : unsigned {
    initial = 0,      // free to offer or to answer
    local_offer = 1,  // an offer is out; only set_answer() is allowed
};

class offer_answer : public offer_answer_base {
public:
    explicit offer_answer(session_group local);

    // initial -> local offer. Raises the session version by one, writes it into the local group's
    // o= line and prints the local group. Throws from "local offer" to "local offer" when an offer
    // is already out.
    std::string get_offer() override;
    // Stays initial. Answers every offered m line (a disabled one where nothing matches) with the
    // local payload numbers, raises the session version by one, and sets both negotiated views.
    // Throws from "local offer" to "remote offer" while an offer is out (which stays out).
    std::string get_answer(const std::string& remote_offer) override;
    // local offer -> initial. Concludes the outstanding offer with the peer's answer and sets both
    // negotiated views. Throws from "initial" to "remote answer" when no offer is out; a refused
    // text keeps the offer outstanding.
    void set_answer(const std::string& remote_answer) override;

    const optional_value<session_group>& get_local_negotiated() const override { return local_negotiated_; }
    const optional_value<session_group>& get_remote_negotiated() const override { return remote_negotiated_; }

    offer_answer_state get_state() const { return state_; }
    // The o= version of the last description this side printed; the next one prints this plus 1
    // (wrapping at 2^32, so a connection that starts at 0xFFFFFFFF prints 0 first).
    uint32_t get_session_version() const { return session_version_; }
    void set_session_version(uint32_t version) { session_version_ = version; }
    const session_group& get_local() const { return local_; }
    // The last description received from the peer, offer or answer.
    const optional_value<session_group>& get_remote() const { return remote_; }

private:
    void set_negotiated(const session_group& local_side, const session_group& remote_side);

    offer_answer_state state_ = offer_answer_state::initial;
    uint32_t session_version_ = 0;
    session_group local_;
    optional_value<session_group> remote_;
    optional_value<session_group> local_negotiated_;
    optional_value<session_group> remote_negotiated_;
};

}  // namespace sdp
