#include "attribute_util.h"

#include <charconv>
#include <stdexcept>

namespace sdp::detail {

void check_attribute_name(const attribute_line& l, std::string_view token, std::string_view what)
{
    if (l.get_name() != token)
        throw std::invalid_argument(
            cat("invalid attribute name for ", what, " expected '", token, "' received '", l.get_name(), "'"));
}

bool try_read_u32(std::string_view text, uint32_t& out)
{
    auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
    return ec == std::errc() && ptr == text.data() + text.size() && !text.empty();
}

}  // namespace sdp::detail
