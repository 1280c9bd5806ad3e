// One m line as exactly one of five kinds.
#pragma once

#include <cstdint>
#include <string>

#include "sdp/application_sessions.h"
#include "sdp/optional_value.h"
#include "sdp/rtp_session.h"

namespace sdp {

enum class session_kind : unsigned { rtp, bfcp, sctp, ix, disabled };

class session {
public:
    // Tries RTP, BFCP, SCTP and IX in turn; a section none of them reads becomes disabled.
    session(const session_lines& lines, const media_description& media);
    explicit session(rtp_session s);
    explicit session(bfcp_session s);
    explicit session(sctp_session s);
    explicit session(ix_session s);
    explicit session(disabled_session s);

    session_kind get_kind() const;
    bool is_rtp() const { return rtp.is_set(); }
    bool is_bfcp() const { return bfcp.is_set(); }
    bool is_sctp() const { return sctp.is_set(); }
    bool is_ix() const { return ix.is_set(); }
    bool is_disabled() const { return disabled.is_set(); }

    // sendrecv for the application kinds, inactive for a disabled session.
    session_direction get_direction() const;
    std::string get_media_type() const;
    std::string get_transport_protocol() const;
    // 0 for a disabled session.
    uint16_t get_port() const;
    // Empty for IX and disabled sessions, or when none was given.
    optional_value<std::string> get_mid() const;
    void set_mid(const std::string& mid);
    media_description as_media_description() const;

    // Place of the session among those of its kind in its group, when it came without a mid.
    optional_value<unsigned> get_ordinal() const { return ordinal_; }
    void set_ordinal(unsigned ordinal) { ordinal_ = ordinal; }

    bool operator==(const session& o) const
    {
        return rtp == o.rtp && bfcp == o.bfcp && sctp == o.sctp && ix == o.ix && disabled == o.disabled;
    }

    optional_value<rtp_session> rtp;
    optional_value<bfcp_session> bfcp;
    optional_value<sctp_session> sctp;
    optional_value<ix_session> ix;
    optional_value<disabled_session> disabled;

private:
    optional_value<unsigned> ordinal_;
};

}  // namespace sdp
