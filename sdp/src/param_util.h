// Internal: walking "name=value;name=value" format parameter strings.
#pragma once

#include <string>
#include <string_view>

#include "sdp/text.h"
#include "attribute_util.h"
#include "string_util.h"

namespace sdp::detail {

// Calls fn(name, value) for every item; an item without '=' gives an empty value.
template <class Fn>
void for_each_param(std::string_view parameters, Fn&& fn)
{
    for_each_token(parameters, ';', 0, [&](std::string_view item) {
        auto kv = split_view(item, '=', 2);
        if (kv.empty()) return;
        fn(kv[0], kv.size() > 1 ? kv[1] : std::string_view{});
    });
}

}  // namespace sdp::detail
