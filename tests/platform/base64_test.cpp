#include <gtest/gtest.h>

#include <string>

#include "util/CmBase64.h"

namespace {

// RFC 4648 section 10 vectors, plus bytes that exercise '+', '/' and zeros.
TEST(Base64, KnownVectorsBothWays)
{
    const struct {
        std::string bytes;
        std::string text;
    } kVectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {std::string("\xfb\xff\xbf\x00", 4), "+/+/AA=="},
    };
    for (const auto& v : kVectors) {
        SCOPED_TRACE(v.text);
        std::string text, bytes;
        ASSERT_EQ(CM_OK, CM_Base64Encode(v.bytes.data(), v.bytes.size(), text));
        EXPECT_EQ(v.text, text);
        ASSERT_EQ(CM_OK, CM_Base64Decode(v.text, bytes));
        EXPECT_EQ(v.bytes, bytes);
    }
}

TEST(Base64, RoundTripsEveryLengthOfAnSrtpKey)
{
    std::string key;
    for (int i = 0; i < 64; ++i) {
        key.push_back(static_cast<char>(i * 37 + 11));
        std::string text, back;
        ASSERT_EQ(CM_OK, CM_Base64Encode(key.data(), key.size(), text));
        ASSERT_EQ(CM_OK, CM_Base64Decode(text, back));
        ASSERT_EQ(key, back) << i;
    }
}

TEST(Base64, RefusesMalformedText)
{
    const char* kBad[] = {
        "Zg",        // not a multiple of 4
        "Zg=",       // short padding
        "Z===",      // three padding characters
        "====",      // padding only
        "Zg==Zg==",  // padding in the middle
        "Zm 9v",     // whitespace
        "Zm9v\n",    // line break
        "Zm-_",      // URL-safe alphabet
        "Zm9*",      // outside any alphabet
    };
    for (const char* text : kBad) {
        SCOPED_TRACE(text);
        std::string out = "stale";
        EXPECT_EQ(CM_ERROR_INVALID_ARG, CM_Base64Decode(text, out));
        EXPECT_TRUE(out.empty());
    }
}

TEST(Base64, BufferDecodeRespectsCapacity)
{
    unsigned char buf[6];
    size_t length = 99;
    EXPECT_EQ(CM_OK, CM_Base64Decode("Zm9vYmE=", buf, 5, &length));  // exactly the payload
    EXPECT_EQ(5u, length);
    EXPECT_EQ(0, memcmp(buf, "fooba", 5));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, CM_Base64Decode("Zm9vYmFy", buf, 5, &length));
    EXPECT_EQ(0u, length);
    EXPECT_EQ(CM_ERROR_NULL_POINTER, CM_Base64Decode("Zm9v", buf, sizeof(buf), nullptr));
    std::string text;
    EXPECT_EQ(CM_ERROR_NULL_POINTER, CM_Base64Encode(nullptr, 3, text));
}

}  // namespace
