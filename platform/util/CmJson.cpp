#include "util/CmJson.h"

namespace json {

namespace {

// Nesting depth of the text, counting brackets outside strings; stops early past the limit.
bool NestingWithinLimit(std::string_view text)
{
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
            continue;
        }
        if (c == '"') inString = true;
        else if (c == '[' || c == '{') {
            if (++depth > kMaxDepth) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

}  // namespace

std::string Serialize(const Value& value)
{
    try {
        return value.dump(-1, ' ', false, Value::error_handler_t::replace);
    } catch (const std::exception&) {
        // Only allocation failure is left; report it as an empty text rather than unwinding.
        return {};
    }
}

Value Deserialize(std::string_view text)
{
    if (!NestingWithinLimit(text)) return Value();
    try {
        Value v = Value::parse(text.begin(), text.end(), nullptr, false);
        if (v.is_discarded()) return Value();
        return v;
    } catch (const std::exception&) {
        return Value();
    }
}

}  // namespace json
