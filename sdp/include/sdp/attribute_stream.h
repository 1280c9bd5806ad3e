// Every attribute class prints as its attribute line.
#pragma once

#include <concepts>
#include <ostream>

#include "sdp/lines.h"

namespace sdp {

template <class T>
concept printable_attribute = requires(const T& t) {
    { t.as_attribute_line() } -> std::same_as<attribute_line>;
};

template <printable_attribute T>
std::ostream& operator<<(std::ostream& os, const T& attribute)
{
    return os << attribute.as_attribute_line();
}

}  // namespace sdp
