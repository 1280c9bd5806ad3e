// JSON values for settings, toggles and metric documents: nlohmann::json under the names the
// session layer uses, plus typed accessors that never throw.
//
//   json::Value  any JSON value (nlohmann::json; keys of objects are kept sorted).
//   json::Object a Value that starts as {} rather than null, so an empty one prints "{}".
//   json::Array  a Value that starts as [] rather than null.
// Object and Array convert to Value implicitly (assignment, push_back, operator[]) and from a Value
// explicitly: json::Object(value) copies an object and gives {} for anything else.
//
// nlohmann's own accessors (get<T>(), at(), value()) throw on a type mismatch; code that reads
// text from outside uses json::Get, which reports a mismatch as false.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

namespace json {

using Value = nlohmann::json;

class Object : public Value {
public:
    Object() : Value(Value::object()) {}
    explicit Object(const Value& value) : Value(value.is_object() ? value : Value::object()) {}
    explicit Object(Value&& value) : Value(value.is_object() ? std::move(value) : Value::object()) {}
    bool HasKey(const std::string& key) const { return contains(key); }
};

class Array : public Value {
public:
    Array() : Value(Value::array()) {}
    explicit Array(const Value& value) : Value(value.is_array() ? value : Value::array()) {}
    explicit Array(Value&& value) : Value(value.is_array() ? std::move(value) : Value::array()) {}
};

}  // namespace json

// Lets nlohmann store and return Object and Array as the plain values they are (without these it
// would treat the derived classes as foreign types and convert them wrongly).
template <>
struct nlohmann::adl_serializer<::json::Object> {
    static void to_json(::json::Value& j, const ::json::Object& o) { j = static_cast<const ::json::Value&>(o); }
    static void from_json(const ::json::Value& j, ::json::Object& o) { o = ::json::Object(j); }
};
template <>
struct nlohmann::adl_serializer<::json::Array> {
    static void to_json(::json::Value& j, const ::json::Array& a) { j = static_cast<const ::json::Value&>(a); }
    static void from_json(const ::json::Value& j, ::json::Array& a) { a = ::json::Array(j); }
};

namespace json {

// Compact text. Strings that are not valid UTF-8 have the bad bytes replaced by U+FFFD instead of
// throwing.
std::string Serialize(const Value& value);

// Parses a whole text. Anything malformed (including trailing garbage, or nesting deeper than
// kMaxDepth, which would otherwise exhaust the stack of the recursive parser) gives a null Value.
constexpr int kMaxDepth = 256;
Value Deserialize(std::string_view text);

// Reads object[key] into `out` when it exists and has a fitting type: bool from a boolean;
// integers from an integer number within T's range; floating point from any number;
// std::string from a string; Object / Array / Value as they are. Otherwise returns false and
// leaves `out` alone.
template <class T>
bool Get(const Value& object, const std::string& key, T& out) noexcept
{
    if (!object.is_object()) return false;
    const auto it = object.find(key);
    if (it == object.end()) return false;
    const Value& v = *it;
    if constexpr (std::is_same_v<T, bool>) {
        if (!v.is_boolean()) return false;
        out = v.get<bool>();
    } else if constexpr (std::is_integral_v<T>) {
        if (v.is_number_unsigned()) {
            const auto n = v.get<uint64_t>();
            if (n > static_cast<uint64_t>(std::numeric_limits<T>::max())) return false;
            out = static_cast<T>(n);
        } else if (v.is_number_integer()) {
            const auto n = v.get<int64_t>();
            if constexpr (std::is_unsigned_v<T>) {
                if (n < 0 || static_cast<uint64_t>(n) > static_cast<uint64_t>(std::numeric_limits<T>::max()))
                    return false;
            } else {
                if (n < static_cast<int64_t>(std::numeric_limits<T>::min()) ||
                    n > static_cast<int64_t>(std::numeric_limits<T>::max()))
                    return false;
            }
            out = static_cast<T>(n);
        } else {
            return false;
        }
    } else if constexpr (std::is_floating_point_v<T>) {
        if (!v.is_number()) return false;
        out = static_cast<T>(v.get<double>());
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (!v.is_string()) return false;
        out = v.get_ref<const std::string&>();
    } else if constexpr (std::is_same_v<T, Object>) {
        if (!v.is_object()) return false;
        out = Object(v);
    } else if constexpr (std::is_same_v<T, Array>) {
        if (!v.is_array()) return false;
        out = Array(v);
    } else {
        static_assert(std::is_same_v<T, Value>, "json::Get: unsupported type");
        out = v;
    }
    return true;
}

}  // namespace json
