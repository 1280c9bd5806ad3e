// Lines of a description grouped by type, with the rules of which types may or must occur at
// session and media level, and the one fixed print order.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "sdp/lines.h"

namespace sdp {

// Plain storage. The order of the lists deliberately differs from the numbering of line_type.
struct description_lines_data {
    std::vector<version_line> version_lines;
    std::vector<origin_line> origin_lines;
    std::vector<session_name_line> session_name_lines;
    std::vector<session_information_line> session_information_lines;
    std::vector<uri_line> uri_lines;
    std::vector<email_address_line> email_address_lines;
    std::vector<phone_number_line> phone_number_lines;
    std::vector<connection_line> connection_lines;
    std::vector<bandwidth_line> bandwidth_lines;
    std::vector<timing_line> timing_lines;
    std::vector<time_zone_line> time_zone_lines;
    std::vector<repeat_time_line> repeat_time_lines;
    std::vector<encryption_key_line> encryption_key_lines;
    std::vector<attribute_line> attribute_lines;
    std::vector<media_description_line> media_description_lines;

    bool operator==(const description_lines_data& other) const = default;
};

class description_lines : public description_lines_data {
public:
    description_lines();

    // Parses one line and adds it; never replaces.
    void add_line(std::string_view raw);
    // replace = true drops every line of the type first.
    void add_line(const version_line& l, bool replace);
    void add_line(const origin_line& l, bool replace);
    void add_line(const session_name_line& l, bool replace);
    void add_line(const session_information_line& l, bool replace);
    void add_line(const uri_line& l, bool replace);
    void add_line(const email_address_line& l, bool replace);
    void add_line(const phone_number_line& l, bool replace);
    void add_line(const connection_line& l, bool replace);
    void add_line(const bandwidth_line& l, bool replace);
    void add_line(const timing_line& l, bool replace);
    void add_line(const time_zone_line& l, bool replace);
    void add_line(const repeat_time_line& l, bool replace);
    void add_line(const encryption_key_line& l, bool replace);
    void add_line(const attribute_line& l, bool replace);
    void add_line(const media_description_line& l, bool replace);
    void add_line(attribute_line&& l, bool replace);

    void clear_lines(line_type type);
    void set_line_policy(line_type type, line_policy policy);
    line_policy get_line_policy(line_type type) const;

    // Appends "missing required line type <TYPE>\n" for each required type without a line.
    bool is_valid(std::string& errors) const;
    std::string as_sdp() const;
    void as_sdp_helper(std::string& out) const;

    // Policies are not compared.
    bool operator==(const description_lines& other) const
    {
        return static_cast<const description_lines_data&>(*this) == other;
    }

protected:
    friend class session_description;
    // add_line(raw) for a line whose type letter is already known.
    void add_line_of_type(line_type type, std::string_view raw);
    template <class L>
    void add_typed(std::vector<L>& list, L l, bool replace);
    void check_policy(line_type type, bool replace, bool list_empty) const;

    line_policy policies_[line_type_count];
};

class session_lines : public description_lines {
    friend class session_description;

public:
    session_lines();
    explicit session_lines(std::string_view text);
    void set_default_line_policy();
};

class media_lines : public description_lines {
    friend class session_description;

public:
    media_lines();
    explicit media_lines(std::string_view text);
    void set_default_line_policy();
    // Replaces the m line without any policy test.
    void update_line(const media_description_line& l);
};

class media_description : public media_lines {
public:
    // Throws the collected is_valid() text when a required line is missing.
    explicit media_description(const media_lines& lines);
    explicit media_description(media_lines&& lines);
    explicit media_description(const media_description_line& m);
    static media_description create(std::string_view text);

    const media_description_line& get_media_line() const { return media_description_lines.front(); }
    const session_information_line* get_information() const;
    const encryption_key_line* get_encryption_key() const;
};

class session_description : public session_lines {
public:
    session_description(const session_lines& lines, std::vector<media_description> media);
    session_description(session_lines&& lines, std::vector<media_description> media);
    static session_description create(std::string_view text);

    const std::vector<media_description>& get_media_descriptions() const { return media_; }
    std::vector<media_description>& get_media_descriptions() { return media_; }
    const session_information_line* get_information() const;
    const uri_line* get_uri() const;
    const connection_line* get_connection() const;
    const encryption_key_line* get_encryption_key() const;

    std::string as_sdp() const;
    // Only the session lines count; the media list is ignored.
    bool operator==(const session_description& other) const
    {
        return static_cast<const description_lines&>(*this) == other;
    }

private:
    std::vector<media_description> media_;
};

std::ostream& operator<<(std::ostream& os, const description_lines& d);
std::ostream& operator<<(std::ostream& os, const session_description& d);

}  // namespace sdp
