// The state of one offer/answer exchange and its three transitions.
#include "sdp/offer_answer.h"

#include <algorithm>
#include <cstdio>

namespace sdp {

namespace {

const char* state_name(offer_answer_state s) { return s == offer_answer_state::initial ? "initial" : "local offer"; }

std::string version_text(uint32_t version)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u", version);
    return buf;
}

session_group read_group(const std::string& text) { return session_group(session_description::create(text)); }

// BUNDLE members of the offer that the answer accepted, under the mids it echoed.
std::vector<std::string> answered_bundle(const session_group& answer, const session_group& offer)
{
    std::vector<std::string> out;
    if (offer.bundle.empty()) return out;
    for (const auto& s : answer.sessions) {
        if (s.is_disabled()) continue;
        auto mid = s.get_mid();
        if (mid.is_set() && std::find(offer.bundle.begin(), offer.bundle.end(), mid.get_data()) != offer.bundle.end())
            out.push_back(mid.get_data());
    }
    return out;
}

}  // namespace

offer_answer_state_exception::offer_answer_state_exception(std::string from, std::string to)
    : from_(std::move(from)), to_(std::move(to)),
      message_("requested illegal offer/answer state transition from '" + from_ + "' to '" + to_ + "'")
{
}

offer_answer::offer_answer(session_group local) : local_(std::move(local)) {}

std::string offer_answer::get_offer()
{
    if (state_ != offer_answer_state::initial) throw offer_answer_state_exception(state_name(state_), "local offer");
    state_ = offer_answer_state::local_offer;
    ++session_version_;
    local_.session_version = version_text(session_version_);
    return local_.as_session_description().as_sdp();
}

std::string offer_answer::get_answer(const std::string& remote_offer)
{
    if (state_ != offer_answer_state::initial) throw offer_answer_state_exception(state_name(state_), "remote offer");

    // Everything is built aside and stored only at the end, so a throw leaves this object as it was.
    session_group remote = read_group(remote_offer);
    uint32_t version = session_version_ + 1;
    session_group answer(local_.user_name, local_.ip_address, version_text(version));
    answer.bandwidth = local_.bandwidth;
    answer.ice_lite = local_.ice_lite;
    answer.ice_options = local_.ice_options;
    answer.sobe = get_answer_sobe(remote.sobe, local_.sobe);
    sdp::get_answer(answer, remote, local_);
    answer.bundle = answered_bundle(answer, remote);
    std::string text = answer.as_session_description().as_sdp();

    session_version_ = version;
    set_negotiated(answer, remote);
    remote_ = std::move(remote);
    return text;
}

void offer_answer::set_answer(const std::string& remote_answer)
{
    if (state_ != offer_answer_state::local_offer)
        throw offer_answer_state_exception(state_name(state_), "remote answer");
    session_group remote = read_group(remote_answer);
    set_negotiated(local_, remote);
    remote_ = std::move(remote);
    state_ = offer_answer_state::initial;
}

void offer_answer::set_negotiated(const session_group& local_side, const session_group& remote_side)
{
    session_group local_view = negotiate(local_side, remote_side, true);
    session_group remote_view = negotiate(local_side, remote_side, false);
    local_negotiated_ = std::move(local_view);
    remote_negotiated_ = std::move(remote_view);
}

}  // namespace sdp
