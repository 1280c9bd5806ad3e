// The library's optional: zero or one value, with a checked read.
#pragma once

#include <optional>
#include <stdexcept>
#include <utility>

namespace sdp {

template <class T>
class optional_value {
public:
    optional_value() = default;
    optional_value(T value) : value_(std::move(value)) {}  // NOLINT: implicit like a one-element list

    bool is_set() const { return value_.has_value(); }
    bool empty() const { return !value_.has_value(); }

    // Reading an empty value is an out-of-range error, as with a checked list access.
    const T& get_data() const
    {
        if (!value_) throw std::out_of_range("optional_value: no value");
        return *value_;
    }
    T& get_data()
    {
        if (!value_) throw std::out_of_range("optional_value: no value");
        return *value_;
    }
    void set_data(T value) { value_ = std::move(value); }
    void clear() { value_.reset(); }

    // Pointer access for callers that test and read in one step; null when empty.
    const T* get_if() const { return value_ ? &*value_ : nullptr; }
    T* get_if() { return value_ ? &*value_ : nullptr; }

    bool operator==(const optional_value& other) const { return value_ == other.value_; }

private:
    std::optional<T> value_;
};

}  // namespace sdp
