// One row per violated constraint: the code, one handler call with that code, and what is left in
// the destination (untouched, an empty string, zeroed, or filled as far as it goes).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "mediasession/safe_lib.h"

namespace {

constexpr rsize_t kSize = 16;
constexpr rsize_t kTooBig = VORTA_RSIZE_MAX + 1;

int g_calls = 0;
errno_t g_lastCode = 0;
std::string g_lastMessage;

void CountingHandler(const char* msg, void* ptr, errno_t error)
{
    ++g_calls;
    g_lastCode = error;
    g_lastMessage = msg != nullptr ? msg : "";
    EXPECT_EQ(nullptr, ptr);
}

class SafeLibTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        previous = safe_lib_set_constraint_handler(&CountingHandler);
        g_calls = 0;
        memset(buf, 'X', sizeof(buf));
        buf[kSize - 1] = '\0';
    }
    void TearDown() override { safe_lib_set_constraint_handler(previous); }

    constraint_handler_t previous = nullptr;
    char buf[kSize];
};

enum class Left { Untouched, EmptyString, Zeroed, FilledZ };

struct Row {
    const char* name;
    std::function<errno_t(char* b)> call;
    errno_t code;
    Left left;
};

TEST_F(SafeLibTest, EachViolatedConstraintIsRefused)
{
    const std::string sixteen(16, 'a');
    int indicator = 5;
    const Row kRows[] = {
        {"strcpy null dest", [](char*) { return vorta_strcpy_s(nullptr, kSize, "a"); }, ESNULLP, Left::Untouched},
        {"strcpy dmax 0", [](char* b) { return vorta_strcpy_s(b, 0, "a"); }, ESZEROL, Left::Untouched},
        {"strcpy dmax too big", [](char* b) { return vorta_strcpy_s(b, kTooBig, "a"); }, ESLEMAX, Left::Untouched},
        {"strcpy null src", [](char* b) { return vorta_strcpy_s(b, kSize, nullptr); }, ESNULLP, Left::EmptyString},
        {"strcpy no room", [&](char* b) { return vorta_strcpy_s(b, kSize, sixteen.c_str()); }, ESNOSPC, Left::EmptyString},
        {"strcpy overlap", [](char* b) { return vorta_strcpy_s(b, kSize, b + 1); }, ESOVRLP, Left::EmptyString},

        {"strncpy null dest", [](char*) { return vorta_strncpy_s(nullptr, kSize, "a", 1); }, ESNULLP, Left::Untouched},
        {"strncpy dmax 0", [](char* b) { return vorta_strncpy_s(b, 0, "a", 1); }, ESZEROL, Left::Untouched},
        {"strncpy dmax too big", [](char* b) { return vorta_strncpy_s(b, kTooBig, "a", 1); }, ESLEMAX, Left::Untouched},
        {"strncpy null src", [](char* b) { return vorta_strncpy_s(b, kSize, nullptr, 1); }, ESNULLP, Left::EmptyString},
        {"strncpy slen too big", [](char* b) { return vorta_strncpy_s(b, kSize, "a", kTooBig); }, ESLEMAX, Left::EmptyString},
        {"strncpy no room", [&](char* b) { return vorta_strncpy_s(b, kSize, sixteen.c_str(), 16); }, ESNOSPC, Left::EmptyString},
        {"strncpy overlap", [](char* b) { return vorta_strncpy_s(b, kSize, b + 2, 5); }, ESOVRLP, Left::EmptyString},

        {"strcat null dest", [](char*) { return vorta_strcat_s(nullptr, kSize, "a"); }, ESNULLP, Left::Untouched},
        {"strcat dmax 0", [](char* b) { return vorta_strcat_s(b, 0, "a"); }, ESZEROL, Left::Untouched},
        {"strcat dmax too big", [](char* b) { return vorta_strcat_s(b, kTooBig, "a"); }, ESLEMAX, Left::Untouched},
        {"strcat null src", [](char* b) { return vorta_strcat_s(b, kSize, nullptr); }, ESNULLP, Left::EmptyString},
        {"strcat unterminated", [](char* b) { b[kSize - 1] = 'X'; return vorta_strcat_s(b, kSize, "a"); }, ESUNTERM, Left::EmptyString},
        {"strcat no room", [](char* b) { return vorta_strcat_s(b, kSize, "a"); }, ESNOSPC, Left::EmptyString},
        {"strcat overlap", [](char* b) { b[3] = '\0'; return vorta_strcat_s(b, kSize, b); }, ESOVRLP, Left::EmptyString},

        {"strcmp null indicator", [](char* b) { return vorta_strcmp_s(b, kSize, "a", nullptr); }, ESNULLP, Left::Untouched},
        {"strcmp null dest", [&](char*) { return vorta_strcmp_s(nullptr, kSize, "a", &indicator); }, ESNULLP, Left::Untouched},
        {"strcmp null src", [&](char* b) { return vorta_strcmp_s(b, kSize, nullptr, &indicator); }, ESNULLP, Left::Untouched},
        {"strcmp dmax 0", [&](char* b) { return vorta_strcmp_s(b, 0, "a", &indicator); }, ESZEROL, Left::Untouched},
        {"strcmp dmax too big", [&](char* b) { return vorta_strcmp_s(b, kTooBig, "a", &indicator); }, ESLEMAX, Left::Untouched},
        {"strcasecmp null src", [&](char* b) { return vorta_strcasecmp_s(b, kSize, nullptr, &indicator); }, ESNULLP, Left::Untouched},
        {"strcasecmp dmax 0", [&](char* b) { return vorta_strcasecmp_s(b, 0, "a", &indicator); }, ESZEROL, Left::Untouched},

        {"memcpy null dest", [](char*) { return vorta_memcpy_s(nullptr, kSize, "a", 1); }, ESNULLP, Left::Untouched},
        {"memcpy dmax 0", [](char* b) { return vorta_memcpy_s(b, 0, "a", 1); }, ESZEROL, Left::Untouched},
        {"memcpy dmax too big", [](char* b) { return vorta_memcpy_s(b, kTooBig, "a", 1); }, ESLEMAX, Left::Untouched},
        {"memcpy null src", [](char* b) { return vorta_memcpy_s(b, kSize, nullptr, 1); }, ESNULLP, Left::Zeroed},
        {"memcpy slen too big", [](char* b) { return vorta_memcpy_s(b, kSize, "a", kTooBig); }, ESLEMAX, Left::Zeroed},
        {"memcpy slen over dmax", [&](char* b) { return vorta_memcpy_s(b, kSize - 1, sixteen.data(), 16); }, ESNOSPC, Left::Zeroed},
        {"memcpy overlap", [](char* b) { return vorta_memcpy_s(b, kSize, b + 4, 8); }, ESOVRLP, Left::Zeroed},
        {"memmove null src", [](char* b) { return vorta_memmove_s(b, kSize, nullptr, 1); }, ESNULLP, Left::Zeroed},
        {"memmove slen over dmax", [&](char* b) { return vorta_memmove_s(b, 4, sixteen.data(), 5); }, ESNOSPC, Left::Zeroed},

        {"memset null dest", [](char*) { return vorta_memset_s(nullptr, kSize, 'Z', 1); }, ESNULLP, Left::Untouched},
        {"memset dmax 0", [](char* b) { return vorta_memset_s(b, 0, 'Z', 1); }, ESZEROL, Left::Untouched},
        {"memset dmax too big", [](char* b) { return vorta_memset_s(b, kTooBig, 'Z', 1); }, ESLEMAX, Left::Untouched},
        {"memset n over dmax", [](char* b) { return vorta_memset_s(b, kSize, 'Z', kSize + 1); }, ESNOSPC, Left::FilledZ},
        {"memset n too big", [](char* b) { return vorta_memset_s(b, kSize, 'Z', kTooBig); }, ESLEMAX, Left::FilledZ},
        {"memset16 null dest", [](char*) { return vorta_memset16_s(nullptr, kSize, 0x5A5A, 1); }, ESNULLP, Left::Untouched},
        {"memset16 dmax 0", [](char* b) { return vorta_memset16_s(reinterpret_cast<uint16_t*>(b), 0, 0x5A5A, 1); }, ESZEROL, Left::Untouched},
        {"memset16 n over dmax", [](char* b) { return vorta_memset16_s(reinterpret_cast<uint16_t*>(b), kSize, 0x5A5A, kSize / 2 + 1); }, ESNOSPC, Left::FilledZ},

        {"memcmp null diff", [](char* b) { return vorta_memcmp_s(b, kSize, "a", 1, nullptr); }, ESNULLP, Left::Untouched},
        {"memcmp null dest", [&](char*) { return vorta_memcmp_s(nullptr, kSize, "a", 1, &indicator); }, ESNULLP, Left::Untouched},
        {"memcmp null src", [&](char* b) { return vorta_memcmp_s(b, kSize, nullptr, 1, &indicator); }, ESNULLP, Left::Untouched},
        {"memcmp dmax 0", [&](char* b) { return vorta_memcmp_s(b, 0, "a", 1, &indicator); }, ESZEROL, Left::Untouched},
        {"memcmp slen over dmax", [&](char* b) { return vorta_memcmp_s(b, 4, "abcde", 5, &indicator); }, ESNOSPC, Left::Untouched},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        alignas(uint16_t) char b[kSize];
        memset(b, 'X', sizeof(b));
        b[kSize - 1] = '\0';
        g_calls = 0;
        EXPECT_EQ(row.code, row.call(b));
        EXPECT_EQ(1, g_calls);
        EXPECT_EQ(row.code, g_lastCode);
        EXPECT_EQ(0u, g_lastMessage.rfind("vorta_", 0)) << g_lastMessage;
        switch (row.left) {
        case Left::Untouched:
            for (rsize_t i = 0; i + 1 < kSize; ++i) EXPECT_EQ('X', b[i]) << i;
            EXPECT_EQ('\0', b[kSize - 1]);
            break;
        case Left::EmptyString:
            EXPECT_EQ('\0', b[0]);
            break;
        case Left::Zeroed:
            for (rsize_t i = 0; i < 4; ++i) EXPECT_EQ('\0', b[i]) << i;  // every row's dmax is at least 4
            break;
        case Left::FilledZ:
            for (rsize_t i = 0; i < kSize; ++i) EXPECT_EQ('Z', b[i]) << i;
            break;
        }
    }
}

TEST_F(SafeLibTest, StringFunctionsWithinBounds)
{
    EXPECT_EQ(EOK, vorta_strcpy_s(buf, kSize, "hello"));
    EXPECT_STREQ("hello", buf);
    EXPECT_EQ(EOK, vorta_strcat_s(buf, kSize, ", world!!"));  // 14 characters + NUL fit
    EXPECT_STREQ("hello, world!!", buf);
    EXPECT_EQ(EOK, vorta_strncpy_s(buf, kSize, "abcdefghijklmnopqrstuvwxyz", 3));
    EXPECT_STREQ("abc", buf);
    EXPECT_EQ(EOK, vorta_strncpy_s(buf, kSize, "xy", 10));  // shorter source: stops at its end
    EXPECT_STREQ("xy", buf);
    EXPECT_EQ(EOK, vorta_strncpy_s(buf, kSize, "xy", 0));
    EXPECT_STREQ("", buf);
    EXPECT_EQ(EOK, vorta_strcpy_s(buf, kSize, std::string(15, 'q').c_str()));  // exactly full

    int indicator = 0;
    const struct {
        const char* a;
        const char* b;
        rsize_t dmax;
        int sign, caseSign;
    } kCompare[] = {
        {"abc", "abc", kSize, 0, 0},  {"abc", "abd", kSize, -1, -1}, {"abd", "abc", kSize, 1, 1},
        {"ABC", "abc", kSize, -1, 0}, {"abc", "ab", kSize, 1, 1},    {"abcX", "abcY", 3, 0, 0},
    };
    for (const auto& c : kCompare) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        ASSERT_EQ(EOK, vorta_strcmp_s(c.a, c.dmax, c.b, &indicator));
        EXPECT_EQ(c.sign, (indicator > 0) - (indicator < 0));
        ASSERT_EQ(EOK, vorta_strcasecmp_s(c.a, c.dmax, c.b, &indicator));
        EXPECT_EQ(c.caseSign, (indicator > 0) - (indicator < 0));
    }
    EXPECT_EQ(5u, vorta_strnlen_s("hello", kSize));
    EXPECT_EQ(3u, vorta_strnlen_s("hello", 3));
    EXPECT_EQ(0u, vorta_strnlen_s(nullptr, kSize));
    EXPECT_EQ(0u, vorta_strnlen_s("hello", 0));
    EXPECT_EQ(0u, vorta_strnlen_s("hello", kTooBig));
    EXPECT_EQ(0, g_calls);
}

TEST_F(SafeLibTest, MemoryFunctionsWithinBounds)
{
    EXPECT_EQ(EOK, vorta_memcpy_s(buf, kSize, "0123456789", 10));
    EXPECT_EQ(0, memcmp(buf, "0123456789", 10));
    EXPECT_EQ(EOK, vorta_memmove_s(buf + 2, kSize - 2, buf, 8));  // overlap allowed
    EXPECT_EQ(0, memcmp(buf, "0101234567", 10));
    EXPECT_EQ(EOK, vorta_memcpy_s(buf, kSize, "zz", 0));  // nothing to copy
    EXPECT_EQ('0', buf[0]);
    int diff = 0;
    EXPECT_EQ(EOK, vorta_memcmp_s("abcd", 4, "abzd", 4, &diff));
    EXPECT_EQ('c' - 'z', diff);
    EXPECT_EQ(EOK, vorta_memcmp_s("ab\xff", 3, "ab\x01", 3, &diff));
    EXPECT_EQ(0xfe, diff);  // unsigned bytes
    EXPECT_EQ(EOK, vorta_memset_s(buf, kSize, 0, kSize));
    for (char c : buf) EXPECT_EQ('\0', c);

    uint16_t words[4] = {};
    EXPECT_EQ(EOK, vorta_memset16_s(words, sizeof(words), 0xBEEF, 3));
    EXPECT_EQ(0xBEEF, words[2]);
    EXPECT_EQ(0, words[3]);
    EXPECT_EQ(0, g_calls);

    uint32_t dwords[4] = {};
    mem_prim_set32(dwords, 3, 0xA5A5A5A5u);
    EXPECT_EQ(0xA5A5A5A5u, dwords[2]);
    EXPECT_EQ(0u, dwords[3]);
    mem_prim_move32(dwords + 1, dwords, 3);
    EXPECT_EQ(0xA5A5A5A5u, dwords[3]);
    mem_prim_set16(words, 4, 7);
    mem_prim_move16(words, words + 1, 3);
    EXPECT_EQ(7, words[0]);
    uint8_t bytes[5] = {1, 2, 3, 4, 5};
    mem_prim_move8(bytes + 1, bytes, 4);
    EXPECT_EQ(0, memcmp(bytes, "\x01\x01\x02\x03\x04", 5));
    mem_prim_set8(bytes, 5, 9);
    mem_prim_move(bytes, "\x00\x00", 2);
    mem_prim_set(bytes + 4, 1, 3);
    EXPECT_EQ(0, memcmp(bytes, "\x00\x00\x09\x09\x03", 5));
    mem_prim_set(nullptr, 5, 1);  // tolerated, as is a null move
    mem_prim_move(nullptr, bytes, 5);
}

TEST_F(SafeLibTest, HandlerInstallAndRestore)
{
    EXPECT_EQ(&CountingHandler, safe_lib_set_constraint_handler(nullptr));
    EXPECT_EQ(ESNULLP, vorta_strcpy_s(nullptr, 1, "a"));  // default handler: ignored
    EXPECT_EQ(0, g_calls);
    EXPECT_EQ(nullptr, safe_lib_set_constraint_handler(&CountingHandler));
}

}  // namespace
