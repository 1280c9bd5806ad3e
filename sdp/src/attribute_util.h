// Internal helpers of the attribute readers.
#pragma once

#include <string_view>

#include "sdp/lines.h"
#include "string_util.h"

namespace sdp::detail {

// "invalid attribute name for <what> expected '<token>' received '<name>'"
void check_attribute_name(const attribute_line& l, std::string_view token, std::string_view what);

// Numbers read without exceptions, for values that are optional by nature.
bool try_read_u32(std::string_view text, uint32_t& out);

}  // namespace sdp::detail
