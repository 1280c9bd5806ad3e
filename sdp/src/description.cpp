#include "sdp/description.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "string_util.h"

namespace sdp {

description_lines::description_lines()
{
    for (auto& p : policies_) p = policy_optional_multiple;
}

void description_lines::check_policy(line_type type, bool replace, bool list_empty) const
{
    auto policy = policies_[static_cast<unsigned>(type)];
    if (policy == policy_not_allowed)
        throw std::invalid_argument(detail::cat("attempted to add a ", line_type_name(type), " line, not allowed"));
    bool single = policy == policy_required_single || policy == policy_optional_single;
    if (single && !list_empty && !replace)
        throw std::invalid_argument(
            detail::cat("attempted to add a second ", line_type_name(type), " line, maximum 1 allowed"));
}

template <class L>
void description_lines::add_typed(std::vector<L>& list, L l, bool replace)
{
    check_policy(l.get_type(), replace, list.empty());
    // Reaching here with a non-empty single-line list means replace was asked for.
    if (replace) list.clear();
    list.push_back(std::move(l));
}

void description_lines::add_line(const version_line& l, bool r) { add_typed(version_lines, l, r); }
void description_lines::add_line(const origin_line& l, bool r) { add_typed(origin_lines, l, r); }
void description_lines::add_line(const session_name_line& l, bool r) { add_typed(session_name_lines, l, r); }
void description_lines::add_line(const session_information_line& l, bool r)
{
    add_typed(session_information_lines, l, r);
}
void description_lines::add_line(const uri_line& l, bool r) { add_typed(uri_lines, l, r); }
void description_lines::add_line(const email_address_line& l, bool r) { add_typed(email_address_lines, l, r); }
void description_lines::add_line(const phone_number_line& l, bool r) { add_typed(phone_number_lines, l, r); }
void description_lines::add_line(const connection_line& l, bool r) { add_typed(connection_lines, l, r); }
void description_lines::add_line(const bandwidth_line& l, bool r) { add_typed(bandwidth_lines, l, r); }
void description_lines::add_line(const timing_line& l, bool r) { add_typed(timing_lines, l, r); }
void description_lines::add_line(const time_zone_line& l, bool r) { add_typed(time_zone_lines, l, r); }
void description_lines::add_line(const repeat_time_line& l, bool r) { add_typed(repeat_time_lines, l, r); }
void description_lines::add_line(const encryption_key_line& l, bool r) { add_typed(encryption_key_lines, l, r); }
void description_lines::add_line(const attribute_line& l, bool r) { add_typed(attribute_lines, l, r); }
void description_lines::add_line(attribute_line&& l, bool r) { add_typed(attribute_lines, std::move(l), r); }
void description_lines::add_line(const media_description_line& l, bool r)
{
    add_typed(media_description_lines, l, r);
}

void description_lines::add_line(std::string_view raw)
{
    add_line_of_type(string_to_line_type(detail::split_type_value_view(raw).first), raw);
}

void description_lines::add_line_of_type(line_type type, std::string_view raw)
{
    switch (type) {
    case line_type::invalid:
        throw std::invalid_argument(detail::cat("invalid sdp line '", raw, "'"));
    case line_type::version: return add_typed(version_lines, version_line::create(raw), false);
    case line_type::origin: return add_typed(origin_lines, origin_line::create(raw), false);
    case line_type::session_name: return add_typed(session_name_lines, session_name_line::create(raw), false);
    case line_type::session_information:
        return add_typed(session_information_lines, session_information_line::create(raw), false);
    case line_type::uri: return add_typed(uri_lines, uri_line::create(raw), false);
    case line_type::email_address:
        return add_typed(email_address_lines, email_address_line::create(raw), false);
    case line_type::phone_number: return add_typed(phone_number_lines, phone_number_line::create(raw), false);
    case line_type::connection: return add_typed(connection_lines, connection_line::create(raw), false);
    case line_type::bandwidth: return add_typed(bandwidth_lines, bandwidth_line::create(raw), false);
    case line_type::time_zone: return add_typed(time_zone_lines, time_zone_line::create(raw), false);
    case line_type::encryption_key:
        return add_typed(encryption_key_lines, encryption_key_line::create(raw), false);
    case line_type::attribute: return add_typed(attribute_lines, attribute_line::create(raw), false);
    case line_type::timing: return add_typed(timing_lines, timing_line::create(raw), false);
    case line_type::repeat_time: return add_typed(repeat_time_lines, repeat_time_line::create(raw), false);
    case line_type::media_description:
        return add_typed(media_description_lines, media_description_line::create(raw), false);
    }
}

void description_lines::clear_lines(line_type type)
{
    auto index = static_cast<unsigned>(type);
    if (index == 0 || index >= line_type_count) return;
    auto policy = policies_[index];
    if (policy == policy_required_single || policy == policy_required_multiple)
        throw std::invalid_argument(
            detail::cat("attempted to clear required lines of type ", line_type_name(type)));
    switch (type) {
    case line_type::invalid: break;
    case line_type::version: version_lines.clear(); break;
    case line_type::origin: origin_lines.clear(); break;
    case line_type::session_name: session_name_lines.clear(); break;
    case line_type::session_information: session_information_lines.clear(); break;
    case line_type::uri: uri_lines.clear(); break;
    case line_type::email_address: email_address_lines.clear(); break;
    case line_type::phone_number: phone_number_lines.clear(); break;
    case line_type::connection: connection_lines.clear(); break;
    case line_type::bandwidth: bandwidth_lines.clear(); break;
    case line_type::time_zone: time_zone_lines.clear(); break;
    case line_type::encryption_key: encryption_key_lines.clear(); break;
    case line_type::attribute: attribute_lines.clear(); break;
    case line_type::timing: timing_lines.clear(); break;
    case line_type::repeat_time: repeat_time_lines.clear(); break;
    case line_type::media_description: media_description_lines.clear(); break;
    }
}

void description_lines::set_line_policy(line_type type, line_policy policy)
{
    auto index = static_cast<unsigned>(type);
    if (index < line_type_count) policies_[index] = policy;
}

line_policy description_lines::get_line_policy(line_type type) const
{
    auto index = static_cast<unsigned>(type);
    return index < line_type_count ? policies_[index] : policy_not_allowed;
}

bool description_lines::is_valid(std::string& errors) const
{
    bool valid = true;
    auto check = [&](line_type type, bool empty) {
        auto policy = policies_[static_cast<unsigned>(type)];
        if ((policy == policy_required_single || policy == policy_required_multiple) && empty) {
            errors += detail::cat("missing required line type ", line_type_name(type), "\n");
            valid = false;
        }
    };
    check(line_type::version, version_lines.empty());
    check(line_type::origin, origin_lines.empty());
    check(line_type::session_name, session_name_lines.empty());
    check(line_type::session_information, session_information_lines.empty());
    check(line_type::uri, uri_lines.empty());
    check(line_type::email_address, email_address_lines.empty());
    check(line_type::phone_number, phone_number_lines.empty());
    check(line_type::connection, connection_lines.empty());
    check(line_type::bandwidth, bandwidth_lines.empty());
    check(line_type::timing, timing_lines.empty());
    check(line_type::time_zone, time_zone_lines.empty());
    check(line_type::repeat_time, repeat_time_lines.empty());
    check(line_type::encryption_key, encryption_key_lines.empty());
    check(line_type::attribute, attribute_lines.empty());
    check(line_type::media_description, media_description_lines.empty());
    return valid;
}

namespace {
template <class L>
void print_all(std::string& out, const std::vector<L>& lines)
{
    for (const auto& l : lines) l.as_sdp_helper(out);
}
}  // namespace

void description_lines::as_sdp_helper(std::string& out) const
{
    // m first so that a media section starts with its m line; z deliberately before r.
    print_all(out, media_description_lines);
    print_all(out, version_lines);
    print_all(out, origin_lines);
    print_all(out, session_name_lines);
    print_all(out, session_information_lines);
    print_all(out, uri_lines);
    print_all(out, email_address_lines);
    print_all(out, phone_number_lines);
    print_all(out, connection_lines);
    print_all(out, bandwidth_lines);
    print_all(out, timing_lines);
    print_all(out, time_zone_lines);
    print_all(out, repeat_time_lines);
    print_all(out, encryption_key_lines);
    print_all(out, attribute_lines);
}

std::string description_lines::as_sdp() const
{
    std::string out;
    as_sdp_helper(out);
    return out;
}

std::ostream& operator<<(std::ostream& os, const description_lines& d) { return os << d.as_sdp(); }

session_lines::session_lines() { set_default_line_policy(); }

session_lines::session_lines(std::string_view text) : session_lines()
{
    for (auto l : detail::split_lines_view(text)) add_line(l);
}

void session_lines::set_default_line_policy()
{
    using lt = line_type;
    set_line_policy(lt::version, policy_required_single);
    set_line_policy(lt::origin, policy_required_single);
    set_line_policy(lt::session_name, policy_required_single);
    set_line_policy(lt::session_information, policy_optional_single);
    set_line_policy(lt::uri, policy_optional_single);
    set_line_policy(lt::email_address, policy_optional_multiple);
    set_line_policy(lt::phone_number, policy_optional_multiple);
    set_line_policy(lt::connection, policy_optional_single);
    set_line_policy(lt::bandwidth, policy_optional_multiple);
    set_line_policy(lt::timing, policy_required_multiple);
    set_line_policy(lt::time_zone, policy_optional_multiple);
    set_line_policy(lt::repeat_time, policy_optional_multiple);
    set_line_policy(lt::encryption_key, policy_optional_single);
    set_line_policy(lt::attribute, policy_optional_multiple);
    set_line_policy(lt::media_description, policy_not_allowed);
}

media_lines::media_lines() { set_default_line_policy(); }

media_lines::media_lines(std::string_view text) : media_lines()
{
    for (auto l : detail::split_lines_view(text)) add_line(l);
}

void media_lines::set_default_line_policy()
{
    using lt = line_type;
    set_line_policy(lt::version, policy_not_allowed);
    set_line_policy(lt::origin, policy_not_allowed);
    set_line_policy(lt::session_name, policy_not_allowed);
    set_line_policy(lt::session_information, policy_optional_single);
    set_line_policy(lt::uri, policy_not_allowed);
    set_line_policy(lt::email_address, policy_not_allowed);
    set_line_policy(lt::phone_number, policy_not_allowed);
    set_line_policy(lt::connection, policy_optional_multiple);
    set_line_policy(lt::bandwidth, policy_optional_multiple);
    set_line_policy(lt::timing, policy_not_allowed);
    set_line_policy(lt::time_zone, policy_not_allowed);
    set_line_policy(lt::repeat_time, policy_not_allowed);
    set_line_policy(lt::encryption_key, policy_optional_single);
    set_line_policy(lt::attribute, policy_optional_multiple);
    set_line_policy(lt::media_description, policy_required_single);
}

void media_lines::update_line(const media_description_line& l)
{
    media_description_lines.clear();
    media_description_lines.push_back(l);
}

namespace {
void throw_if_invalid(const description_lines& d)
{
    std::string errors;
    if (!d.is_valid(errors)) throw std::invalid_argument(errors);
}
}  // namespace

media_description::media_description(const media_lines& lines) : media_lines(lines) { throw_if_invalid(*this); }

media_description::media_description(media_lines&& lines) : media_lines(std::move(lines))
{
    throw_if_invalid(*this);
}

media_description::media_description(const media_description_line& m)
{
    media_description_lines.push_back(m);
}

media_description media_description::create(std::string_view text) { return media_description(media_lines(text)); }

const session_information_line* media_description::get_information() const
{
    return session_information_lines.empty() ? nullptr : &session_information_lines.front();
}

const encryption_key_line* media_description::get_encryption_key() const
{
    return encryption_key_lines.empty() ? nullptr : &encryption_key_lines.front();
}

session_description::session_description(const session_lines& lines, std::vector<media_description> media)
    : session_lines(lines), media_(std::move(media))
{
    throw_if_invalid(*this);
}

session_description::session_description(session_lines&& lines, std::vector<media_description> media)
    : session_lines(std::move(lines)), media_(std::move(media))
{
    throw_if_invalid(*this);
}

session_description session_description::create(std::string_view text)
{
    auto lines = detail::split_lines_view(text);
    // The letter of each line is found once; the line classes still check it themselves.
    std::vector<line_type> types(lines.size());
    std::size_t first_m = lines.size(), sections = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        types[i] = string_to_line_type(detail::split_type_value_view(lines[i]).first);
        if (types[i] == line_type::media_description) {
            first_m = std::min(first_m, i);
            ++sections;
        }
    }
    session_lines session;
    for (std::size_t i = 0; i < first_m; ++i) session.add_line_of_type(types[i], lines[i]);

    std::vector<media_description> media;
    media.reserve(sections);
    std::size_t i = first_m;
    while (i < lines.size()) {
        media_lines section;
        section.add_line_of_type(types[i], lines[i]);
        ++i;
        while (i < lines.size() && types[i] != line_type::media_description) {
            section.add_line_of_type(types[i], lines[i]);
            ++i;
        }
        media.emplace_back(std::move(section));
    }
    return session_description(std::move(session), std::move(media));
}

const session_information_line* session_description::get_information() const
{
    return session_information_lines.empty() ? nullptr : &session_information_lines.front();
}

const uri_line* session_description::get_uri() const { return uri_lines.empty() ? nullptr : &uri_lines.front(); }

const connection_line* session_description::get_connection() const
{
    return connection_lines.empty() ? nullptr : &connection_lines.front();
}

const encryption_key_line* session_description::get_encryption_key() const
{
    return encryption_key_lines.empty() ? nullptr : &encryption_key_lines.front();
}

std::string session_description::as_sdp() const
{
    std::string out;
    out.reserve(1024);
    description_lines::as_sdp_helper(out);
    for (const auto& m : media_) m.as_sdp_helper(out);
    return out;
}

std::ostream& operator<<(std::ostream& os, const session_description& d) { return os << d.as_sdp(); }

}  // namespace sdp
