// Helpers shared by the STUN codec tests: both profiles as gtest type parameters, and hex.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "stunlib.h"

namespace stun_test {

using Bytes = std::vector<uint8_t>;
using Profiles = ::testing::Types<qlox_gatewalk::StunMessage, zyn_gatewalk::StunMessage>;

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

// The record is large (four 4000-byte texts): keep it off the test's stack.
template <class Msg>
std::unique_ptr<Msg> NewMessage()
{
    auto m = std::make_unique<Msg>();
    std::memset(m.get(), 0, sizeof(Msg));
    return m;
}

inline Bytes Key(const char* password)
{
    return Bytes(password, password + std::strlen(password));
}

inline std::string Hex(const uint8_t* p, size_t n)
{
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

inline gatewalk::StunMsgId Id(uint8_t seed)
{
    gatewalk::StunMsgId id;
    for (int i = 0; i < 12; ++i) id.octet[i] = static_cast<uint8_t>(seed + i);
    return id;
}

}  // namespace stun_test
