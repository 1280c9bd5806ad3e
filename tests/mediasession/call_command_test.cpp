// The main job as a user runs it: `mediasession call` in its forms, read back from the JSON
// document it prints. Every line must carry media both ways on the path and with the keying asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include <unistd.h>

namespace {

std::string RunCall(const std::string& arguments, int* status)
{
    std::string out;
    const std::string command =
        "MEDIASESSION_ALLOWED_ADDRS=127.0.0.1 " + std::string(MEDIASESSION_TOOL) + " call " + arguments + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    std::array<char, 4096> buf{};
    while (size_t n = fread(buf.data(), 1, buf.size(), pipe)) out.append(buf.data(), n);
    *status = pclose(pipe);
    return out;
}

struct Row {
    const char* name;
    const char* arguments;
    size_t lines;
    const char* srtp;       // on every line; "none" in clear
    const char* pairType;   // of the selected pair; "" without ICE
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.arguments; }

const Row kRows[] = {
    {"ice_dtls_audio_video", "--duration 3", 2, "AES_CM_128_HMAC_SHA1_80", "host"},
    {"ice_dtls_three_lines_qlox", "--duration 3 --client-type 2 --media audio,video,share", 3,
     "AES_CM_128_HMAC_SHA1_80", "host"},
    {"ice_sdes", "--duration 3 --sdes", 2, nullptr, "host"},
    {"no_ice_dtls", "--duration 3 --no-ice", 2, "AES_CM_128_HMAC_SHA1_80", ""},
    {"ice_clear_rtcp_apart", "--duration 3 --no-srtp --no-mux", 2, "none", "host"},
};

class CallCommandTest : public ::testing::TestWithParam<Row> {};

TEST_P(CallCommandTest, EveryLineCarriesMediaBothWays)
{
    const Row& row = GetParam();
    int status = -1;
    const std::string out = RunCall("--json " + std::string(row.arguments), &status);
    ASSERT_EQ(0, status) << out;
    const nlohmann::json doc = nlohmann::json::parse(out, nullptr, false);
    ASSERT_FALSE(doc.is_discarded()) << out;
    EXPECT_GT(doc["setup_ms"].get<int>(), 0);
    // Steps are timed on the call's one clock, from the offer's creation: the offerer takes the
    // answer after it, its lines connect after that, and the set-up ends with the last line up.
    const int answered = doc["answer_applied_ms"].get<int>();
    EXPECT_GT(answered, 0);
    int lastConnected = -1;
    ASSERT_EQ(2u, doc["sides"].size());
    for (const auto& side : doc["sides"]) {
        ASSERT_EQ(row.lines, side["lines"].size()) << side.dump();
        for (const auto& line : side["lines"]) {
            SCOPED_TRACE(side["name"].get<std::string>() + " " + line["type"].get<std::string>());
            EXPECT_GT(line["packets_sent"].get<uint64_t>(), 0u);
            EXPECT_GT(line["packets_received"].get<uint64_t>(), 0u);
            EXPECT_EQ(0.0, line["loss_percent"].get<double>());
            EXPECT_GT(line["rtt_ms"].get<double>(), 0.0) << "no report came back";
            if (row.srtp) EXPECT_EQ(row.srtp, line["srtp"].get<std::string>());
            else EXPECT_NE("none", line["srtp"].get<std::string>());
            EXPECT_EQ(row.pairType, line["selected_pair"]["type"].get<std::string>());
            EXPECT_EQ(0u, line["selected_pair"]["local"].get<std::string>().find("127.0.0.1:"));
            const int connected = line["connected_ms"].get<int>();
            if (side["name"] == "A") {
                EXPECT_GE(connected, answered);
            }
            EXPECT_GE(line["first_rtp_received_ms"].get<int>(), 0);
            lastConnected = std::max(lastConnected, connected);
        }
    }
    EXPECT_EQ(lastConnected, doc["setup_ms"].get<int>());
}

INSTANTIATE_TEST_SUITE_P(Forms, CallCommandTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

TEST(CallCommandTest, BadOptionsAreRefusedWithUsage)
{
    for (const char* bad : {"--media radio", "--turn nobody", "--listen 127.0.0.1:1 --connect 127.0.0.1:2",
                            "--duration -1", "--frobnicate", "--send-file clip.mp3", "--receive-file out",
                            "--media audio --send-file clip.i420"}) {
        SCOPED_TRACE(bad);
        int status = -1;
        RunCall(bad, &status);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2);
    }
}

// A file sent by A over the DTLS-SRTP call is the file B writes, byte for byte, on each kind.
TEST(CallCommandTest, AFileSentIsTheFileReceived)
{
    const std::string dir = testing::TempDir() + "call_file_" + std::to_string(::getpid());
    const struct {
        const char* name;
        const char* media;
        std::string header;
        size_t bytes;
    } rows[] = {
        {"wav", "audio", std::string("RIFF\0\0\0\0WAVEfmt ", 16), 3000},
        {"i420", "video", "", 2 * 64 * 48 * 3 / 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string in = dir + "_in." + row.name, out = dir + "_out." + row.name;
        std::string content = row.header;
        for (size_t i = 0; i < row.bytes; ++i) content += static_cast<char>(i * 31 + i / 97);
        FILE* f = std::fopen(in.c_str(), "wb");
        ASSERT_NE(nullptr, f);
        std::fwrite(content.data(), 1, content.size(), f);
        std::fclose(f);
        int status = -1;
        RunCall(std::string("--duration 2 --media ") + row.media + " --send-file " + in + " --receive-file " + out,
                &status);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        std::string received;
        if (FILE* r = std::fopen(out.c_str(), "rb")) {
            std::array<char, 4096> buf{};
            while (size_t n = std::fread(buf.data(), 1, buf.size(), r)) received.append(buf.data(), n);
            std::fclose(r);
        }
        EXPECT_EQ(content.size(), received.size());
        EXPECT_TRUE(content == received);
        std::remove(in.c_str());
        std::remove(out.c_str());
    }
}

}  // namespace
