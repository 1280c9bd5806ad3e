// `mediasession stun decode` end to end: the program is run on RFC 5769 vectors and broken inputs,
// and its JSON (or its refusal) is checked.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "stun_test_util.h"
#include "stun_vectors.h"

namespace {

struct ToolRun {
    int status;
    std::string out;
};

ToolRun Tool(const std::string& args)
{
    // The program links the whole session library; leak checking of that belongs to its own tests,
    // and here only the exit status and the output count.
    std::string command =
        "ASAN_OPTIONS=detect_leaks=0 " + std::string(MS_TOOL_PATH) + " stun decode " + args + " 2>/dev/null";
    FILE* p = popen(command.c_str(), "r");
    ToolRun r{-1, {}};
    if (!p) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
    int status = pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

template <size_t N>
std::string HexOf(const uint8_t (&v)[N])
{
    return stun_test::Hex(v, N);
}

TEST(StunDecodeCommand, PrintsVectorsWithTheirChecks)
{
    using namespace stun_vectors;
    const std::string user(kLongTermUser);
    struct Row {
        const char* name;
        std::string args;
        const char* integrity;
        const char* fingerprint;
        const char* attribute;
        nlohmann::json value;
    };
    const Row rows[] = {
        {"no key", HexOf(kRequest), "unchecked", "ok", "priority", 0x6e0001ff},
        {"short-term key", "--password " + std::string(kRequestPassword) + " " + HexOf(kRequest), "ok", "ok",
         "controlled", "932ff9b151263b36"},
        {"wrong key", "--password nope " + HexOf(kResponseIPv4), "bad", "ok", "xorMappedAddress", "192.0.2.1:32853"},
        {"ipv6 in zyn", "--profile zyn " + HexOf(kResponseIPv6), "unchecked", "ok", "xorMappedAddress",
         "[2001:db8:1234:5678:11:2233:4455:6677]:32853"},
        {"long-term key", "--long-term '" + user + ":example.org:TheMatrIX' " + HexOf(kLongTermRequest), "ok",
         "absent", "realm", "example.org"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ToolRun r = Tool(row.args);
        ASSERT_EQ(r.status, 0);
        auto j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["integrity"], row.integrity);
        EXPECT_EQ(j["fingerprint"], row.fingerprint);
        EXPECT_EQ(j["attributes"][row.attribute], row.value);
        EXPECT_EQ(j["transaction_id"].get<std::string>().size(), 24u);
    }
    auto j = nlohmann::json::parse(Tool(HexOf(kResponseIPv4)).out);
    EXPECT_EQ(j["type"], 257);
    EXPECT_EQ(j["name"], "BindResponse");
    EXPECT_EQ(j["length"], 60);
}

TEST(StunDecodeCommand, RefusesWhatTheDecoderRefuses)
{
    std::string bad = HexOf(stun_vectors::kResponseIPv4);
    bad[bad.size() - 1] ^= 1;  // a bad FINGERPRINT still decodes
    EXPECT_EQ(nlohmann::json::parse(Tool(bad).out)["fingerprint"], "bad");
    EXPECT_EQ(Tool(HexOf(stun_vectors::kRequest).substr(0, 100)).status, 2);  // length past the end
    EXPECT_EQ(Tool("0001000021").status, 2);                                 // shorter than a header
    EXPECT_EQ(Tool("000100042112a442000000000000000000000000 00240001").status, 2);  // attribute too short
    EXPECT_EQ(Tool("xyz").status, 2);
    EXPECT_EQ(Tool("--profile other " + HexOf(stun_vectors::kRequest)).status, 2);
}

}  // namespace
