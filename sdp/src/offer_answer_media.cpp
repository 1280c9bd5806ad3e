// Offer/answer of the RTP payload description: codecs, directions, feedback, header extensions
// and simulcast restrictions.
#include <algorithm>

#include "sdp/offer_answer_values.h"

namespace sdp {

namespace {

template <class T>
bool contains(const std::vector<T>& list, const T& value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

// The one table of answers; ext_map_direction shares the numbering of session_direction.
unsigned answer_direction(unsigned offered, unsigned local)
{
    constexpr unsigned inactive = 0, recvonly = 1, sendonly = 2, sendrecv = 3;
    switch (offered) {
    case recvonly: return (local == sendonly || local == sendrecv) ? sendonly : inactive;
    case sendonly: return (local == recvonly || local == sendrecv) ? recvonly : inactive;
    case sendrecv: return local;
    default: return inactive;
    }
}

}  // namespace

std::vector<std::string> sub_list(const std::vector<std::string>& offered, const std::vector<std::string>& local)
{
    std::vector<std::string> out;
    for (const auto& v : offered)
        if (contains(local, v) && !contains(out, v)) out.push_back(v);
    return out;
}

std::vector<codec> get_answer_codec(const std::vector<codec>& offered, const std::vector<codec>& local,
                                    payload_map& map)
{
    std::vector<codec> out;
    for (const auto& o : offered)
        for (const auto& l : local) {
            if (!l.is_compatible_with(o) || contains(out, l)) continue;
            out.push_back(l);
            map.emplace(l.payload_type, o.payload_type);
        }
    return out;
}

std::vector<codec> negotiate_codec(const std::vector<codec>& a, const std::vector<codec>& b, bool is_local)
{
    // The named side's list leads, so the offerer's local view and the answerer's remote view (both
    // named after the offer) come out in the same order, and likewise the other two views.
    // Compatibility is not symmetric (an AV1 profile, an FEC span) and the answer was built with the
    // answerer on the left, which may be either side here: a pair that passes either way counts.
    const auto& named = is_local ? a : b;
    const auto& other = is_local ? b : a;
    std::vector<codec> out;
    for (const auto& x : named)
        for (const auto& y : other) {
            if (!x.is_compatible_with(y) && !y.is_compatible_with(x)) continue;
            if (!contains(out, x)) out.push_back(x);
            break;
        }
    return out;
}

session_direction get_answer_direction(session_direction offered, session_direction local)
{
    return static_cast<session_direction>(
        answer_direction(static_cast<unsigned>(offered), static_cast<unsigned>(local)));
}

ext_map_direction get_answer_direction(ext_map_direction offered, ext_map_direction local)
{
    return static_cast<ext_map_direction>(answer_direction(offered, local));
}

session_direction negotiate_direction(session_direction a, session_direction b, bool is_local)
{
    return is_local ? get_answer_direction(b, a) : get_answer_direction(a, b);
}

std::vector<rtcp_feedback> get_answer_rtcp_feedback(const std::vector<rtcp_feedback>& offered,
                                                    const std::vector<rtcp_feedback>& local)
{
    std::vector<rtcp_feedback> out;
    for (const auto& o : offered)
        if (contains(local, o)) out.push_back(o);
    return out;
}

std::vector<rtcp_feedback> negotiate_rtcp_feedback(const std::vector<rtcp_feedback>& a,
                                                   const std::vector<rtcp_feedback>& b, bool is_local)
{
    return is_local ? get_answer_rtcp_feedback(a, b) : get_answer_rtcp_feedback(b, a);
}

std::vector<ext_map> get_answer_ext_map(const std::vector<ext_map>& offered, const std::vector<ext_map>& local)
{
    std::vector<ext_map> out;
    auto id_taken = [&](uint32_t id) {
        // An id the offerer already gave another extension would be read as that one.
        for (const auto& e : out)
            if (e.id == id) return true;
        for (const auto& o : offered)
            if (o.id == id) return true;
        return false;
    };
    for (const auto& o : offered) {
        auto l = std::find_if(local.begin(), local.end(), [&](const ext_map& e) { return e.uri == o.uri; });
        if (l == local.end()) continue;
        auto direction = get_answer_direction(o.direction, l->direction);
        if (direction == ext_map_inactive) continue;
        uint32_t id = o.id;
        if (ext_map::is_ext_map_id_dynamic(id)) {
            id = 0;
            for (uint32_t candidate = 1; candidate <= 15 && id == 0; ++candidate)
                if (!id_taken(candidate)) id = candidate;
            if (id == 0) continue;
        }
        out.emplace_back(id, direction, o.uri, o.attributes);
    }
    return out;
}

std::vector<ext_map> negotiate_ext_map(const std::vector<ext_map>& a, const std::vector<ext_map>& b, bool is_local)
{
    const auto& named = is_local ? a : b;
    const auto& other = is_local ? b : a;
    std::vector<ext_map> out;
    for (const auto& x : named) {
        auto y = std::find_if(other.begin(), other.end(), [&](const ext_map& e) { return e.uri == x.uri; });
        if (y == other.end()) continue;
        // The named side's direction as the answer to the other's.
        auto direction = get_answer_direction(y->direction, x.direction);
        if (direction == ext_map_inactive) continue;
        uint32_t id = ext_map::is_ext_map_id_dynamic(x.id) ? y->id : x.id;
        out.emplace_back(id, direction, x.uri, x.attributes);
    }
    return out;
}

void get_answer_restrictions(std::vector<rid>& result, const std::vector<codec>& codecs, const payload_map& map,
                             const std::vector<rid>& offered, const std::vector<rid>& local)
{
    for (const auto& l : local)
        for (const auto& o : offered) {
            if (l.id != o.id || l.direction == o.direction) continue;
            rid r = l;
            if (!r.merge(o)) continue;
            std::vector<uint32_t> payloads;
            if (!r.payload_types.empty()) {
                for (auto pt : r.payload_types)
                    if (std::any_of(codecs.begin(), codecs.end(), [&](const codec& c) { return c.payload_type == pt; }))
                        payloads.push_back(pt);
            } else if (!o.payload_types.empty()) {
                for (const auto& [local_pt, offered_pt] : map)
                    if (contains(o.payload_types, offered_pt)) payloads.push_back(local_pt);
            }
            if (!o.payload_types.empty() || !l.payload_types.empty()) {
                // A rid that named payloads, none of which survived, restricts nothing we send.
                if (payloads.empty()) continue;
            }
            r.payload_types = payloads;
            bool allowed_any = false, refused = false;
            for (const auto& c : codecs) {
                if (!r.payload_types.empty() && !contains(r.payload_types, c.payload_type)) continue;
                allowed_any = true;
                codec copy = c;
                if (!copy.apply(r)) {
                    refused = true;
                    break;
                }
            }
            if (!allowed_any || refused) continue;
            r.remove_undefined();
            result.push_back(std::move(r));
        }
}

std::vector<rid> negotiate_restrictions(const std::vector<rid>& a, const std::vector<rid>& b, bool is_local)
{
    std::vector<rid> out;
    for (const auto& x : a) {
        if (x.direction != rid_send) continue;
        for (const auto& y : b) {
            if (y.id != x.id || y.direction != rid_recv) continue;
            // The receiver may restrict keys the sender did not name: both views take every key
            // with the tighter value, so the sender honours what the receiver asked for.
            rid r = x;
            for (const auto& [key, value] : y.restrictions)
                if (value.is_set()) r.restrictions.try_emplace(key);
            r.merge(y);
            r.remove_undefined();
            if (!is_local) r.direction = rid_recv;
            out.push_back(std::move(r));
            break;
        }
    }
    return out;
}

}  // namespace sdp
