// Typed SDP lines: one class per line letter, each with a static create() that parses one line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "sdp/text.h"

namespace sdp {

class line {
public:
    virtual ~line() = default;
    virtual line_type get_type() const = 0;
    // The text after the '='.
    virtual std::string get_value() const = 0;
    virtual std::string as_sdp() const;
    virtual void as_sdp_helper(std::string& out) const;
    // Lets the line classes default their own equality; the base has nothing to compare.
    bool operator==(const line&) const = default;

protected:
    line() = default;
    line(const line&) = default;
    line(line&&) = default;
    line& operator=(const line&) = default;
    line& operator=(line&&) = default;
};

std::ostream& operator<<(std::ostream& os, const line& l);

namespace detail {
// Checks the letter of a raw line against the expected type and returns the value part.
std::string_view checked_line_value(std::string_view raw, line_type expected);
std::vector<std::string> parse_multi_values(std::string_view raw, line_type type, std::size_t min,
                                            std::size_t max, char delimiter, bool split_all);
void check_multi_count(std::size_t count, line_type type, std::size_t min, std::size_t max);
std::string join_multi_values(const std::vector<std::string>& values, char delimiter);
void append_multi_values(std::string& out, const std::vector<std::string>& values, char delimiter);
}  // namespace detail

// A line whose value is a list of strings. With split_all the value is cut at every delimiter and
// the count must fit; otherwise it is cut into at most max pieces, the last keeping the rest.
template <line_type T, std::size_t MIN, std::size_t MAX, char D, bool SPLIT_ALL>
class multi_string_value_line : public line {
public:
    explicit multi_string_value_line(std::vector<std::string> values) : values_(std::move(values))
    {
        detail::check_multi_count(values_.size(), T, MIN, MAX);
    }

    static multi_string_value_line create(std::string_view raw)
    {
        return multi_string_value_line(parse(raw), 0);
    }

    line_type get_type() const override { return T; }
    std::string get_value() const override { return detail::join_multi_values(values_, D); }
    void as_sdp_helper(std::string& out) const override
    {
        out += line_type_to_char(T);
        out += '=';
        detail::append_multi_values(out, values_, D);
        out += "\r\n";
    }
    const std::vector<std::string>& get_values() const { return values_; }

    bool operator==(const multi_string_value_line& other) const { return values_ == other.values_; }

protected:
    // Already counted by parse().
    multi_string_value_line(std::vector<std::string> values, int) : values_(std::move(values)) {}
    static std::vector<std::string> parse(std::string_view raw)
    {
        return detail::parse_multi_values(raw, T, MIN, MAX, D, SPLIT_ALL);
    }
    const std::string& at_or_empty(std::size_t i) const
    {
        static const std::string empty;
        return i < values_.size() ? values_[i] : empty;
    }

    std::vector<std::string> values_;
};

// o=<user name> <session id> <session version> <net type> <addr type> <address>
class origin_line : public multi_string_value_line<line_type::origin, 6, 6, ' ', true> {
public:
    using base = multi_string_value_line<line_type::origin, 6, 6, ' ', true>;
    using base::base;
    static origin_line create(std::string_view raw) { return origin_line(parse(raw), 0); }
    const std::string& get_user_name() const { return values_[0]; }
    const std::string& get_session_id() const { return values_[1]; }
    const std::string& get_session_version() const { return values_[2]; }
    const std::string& get_network_type() const { return values_[3]; }
    const std::string& get_address_type() const { return values_[4]; }
    const std::string& get_address() const { return values_[5]; }
};

// c=<net type> <addr type> <address>
class connection_line : public multi_string_value_line<line_type::connection, 3, 3, ' ', true> {
public:
    using base = multi_string_value_line<line_type::connection, 3, 3, ' ', true>;
    using base::base;
    connection_line(std::string net, std::string addr_type, std::string address)
        : base({std::move(net), std::move(addr_type), std::move(address)})
    {
    }
    static connection_line create(std::string_view raw) { return connection_line(parse(raw), 0); }
    const std::string& get_network_type() const { return values_[0]; }
    const std::string& get_address_type() const { return values_[1]; }
    const std::string& get_address() const { return values_[2]; }
};

// t=<start> <stop>
class timing_line : public multi_string_value_line<line_type::timing, 2, 2, ' ', true> {
public:
    using base = multi_string_value_line<line_type::timing, 2, 2, ' ', true>;
    using base::base;
    static timing_line create(std::string_view raw) { return timing_line(parse(raw), 0); }
    const std::string& get_start() const { return values_[0]; }
    const std::string& get_stop() const { return values_[1]; }
};

// k=<method>[:<key>]
class encryption_key_line : public multi_string_value_line<line_type::encryption_key, 1, 2, ':', false> {
public:
    using base = multi_string_value_line<line_type::encryption_key, 1, 2, ':', false>;
    using base::base;
    static encryption_key_line create(std::string_view raw) { return encryption_key_line(parse(raw), 0); }
    const std::string& get_method() const { return values_[0]; }
    const std::string& get_key() const { return at_or_empty(1); }
};

// a=<name>[:<value>]; the value keeps every further colon.
class attribute_line : public multi_string_value_line<line_type::attribute, 1, 2, ':', false> {
public:
    using base = multi_string_value_line<line_type::attribute, 1, 2, ':', false>;
    using base::base;
    explicit attribute_line(std::string name);
    attribute_line(std::string name, std::string value);
    static attribute_line create(std::string_view raw) { return attribute_line(parse(raw), 0); }
    const std::string& get_name() const { return values_[0]; }
    const std::string& get_attribute_value() const { return at_or_empty(1); }
};

// Lines whose value is one string that must not be empty.
template <line_type T>
class string_value_line : public line {
public:
    explicit string_value_line(std::string value) : value_(std::move(value)) {}
    static string_value_line create(std::string_view raw);
    line_type get_type() const override { return T; }
    std::string get_value() const override { return value_; }
    bool operator==(const string_value_line& other) const { return value_ == other.value_; }

private:
    std::string value_;
};

namespace detail {
std::string checked_string_value(std::string_view raw, line_type expected);
}

template <line_type T>
string_value_line<T> string_value_line<T>::create(std::string_view raw)
{
    return string_value_line(detail::checked_string_value(raw, T));
}

using session_name_line = string_value_line<line_type::session_name>;
using session_information_line = string_value_line<line_type::session_information>;
using uri_line = string_value_line<line_type::uri>;
using email_address_line = string_value_line<line_type::email_address>;
using phone_number_line = string_value_line<line_type::phone_number>;
using time_zone_line = string_value_line<line_type::time_zone>;
using repeat_time_line = string_value_line<line_type::repeat_time>;

class version_line : public line {
public:
    explicit version_line(uint32_t version = 0) : version_(version) {}
    static version_line create(std::string_view raw);
    line_type get_type() const override { return line_type::version; }
    std::string get_value() const override;
    uint32_t get_version() const { return version_; }
    bool operator==(const version_line& other) const = default;

private:
    uint32_t version_;
};

// b=<type>:<value>
class bandwidth_line : public line {
public:
    bandwidth_line(std::string type, uint32_t value) : type_(std::move(type)), value_(value) {}
    static bandwidth_line create(std::string_view raw);
    line_type get_type() const override { return line_type::bandwidth; }
    std::string get_value() const override;
    const std::string& get_bandwidth_type() const { return type_; }
    uint32_t get_bandwidth_value() const { return value_; }
    bool operator==(const bandwidth_line& other) const = default;

private:
    std::string type_;
    uint32_t value_;
};

// m=<media> <port[/count]> <transport> <format>...; the port stays text here.
class media_description_line : public line {
public:
    media_description_line(std::string media_type, std::string port, std::string transport,
                           std::vector<std::string> formats);
    static media_description_line create(std::string_view raw);
    line_type get_type() const override { return line_type::media_description; }
    std::string get_value() const override;
    void as_sdp_helper(std::string& out) const override;

    const std::string& get_media_type() const { return media_type_; }
    const std::string& get_port() const { return port_; }
    const std::string& get_transport() const { return transport_; }
    const std::vector<std::string>& get_formats() const { return formats_; }
    void add_format(std::string format) { formats_.push_back(std::move(format)); }
    void set_formats(std::vector<std::string> formats) { formats_ = std::move(formats); }
    bool operator==(const media_description_line& other) const = default;

private:
    std::string media_type_;
    std::string port_;
    std::string transport_;
    std::vector<std::string> formats_;
};

}  // namespace sdp
