// Secrets never reach a trace unless insecure logs are asked for.
#include <gtest/gtest.h>

#include "common/TraceFilter.h"
#include "test_support.h"

namespace {

const char* kDescription =
    "v=0\r\n"
    "a=ice-ufrag:F7gI\r\n"
    "a=ice-pwd:x9cml/YzichV2+XlhiMu8g\r\n"
    "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:PS1uQCVeeCFCanVmcjkpPywjNWhcYD0mXXtxaVBR|2^20|1:32\r\n"
    "a=rtcp-mux\r\n";

TEST(TraceFilterTest, MasksKeysAndPasswordsLineByLine)
{
    struct Row {
        const char* name;
        std::string pattern;
        const char* mustContain;
        const char* mustNotContain;
    };
    const Row rows[] = {
        {"masked", kSecretPattern, "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline: ******", "PS1uQ"},
        {"masked password", kSecretPattern, "a=ice-pwd: ******", "x9cml"},
        {"the user fragment is no secret", kSecretPattern, "a=ice-ufrag:F7gI", nullptr},
        {"insecure logs", "", "inline:PS1uQCVeeCFCanVmcjkpPywjNWhcYD0mXXtxaVBR|2^20|1:32", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        mstest::TraceCapture trace;
        OutputInfoTraceWithFilter(kDescription, row.pattern, kSecretReplacement, 2);
        EXPECT_TRUE(trace.Contains(row.mustContain));
        if (row.mustNotContain) {
            EXPECT_FALSE(trace.Contains(row.mustNotContain));
        }
        EXPECT_TRUE(trace.Contains("a=rtcp-mux"));
        EXPECT_EQ(1, trace.Count("a=rtcp-mux"));  // one trace line per description line
    }
}

TEST(TraceFilterTest, LongLinesArriveWholeInPieces)
{
    mstest::TraceCapture trace;
    std::string longLine(2500, 'z');
    OutputInfoTraceWithFilter("a=" + longLine + "\r\n", kSecretPattern, kSecretReplacement, 2);
    EXPECT_EQ(3, trace.Count("zzzz"));
}

}  // namespace
