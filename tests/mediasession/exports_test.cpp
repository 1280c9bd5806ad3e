// What leaves the shared library.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string RunCommand(const std::string& command, int* status)
{
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    std::array<char, 4096> buf{};
    while (size_t n = fread(buf.data(), 1, buf.size(), pipe)) out.append(buf.data(), n);
    *status = pclose(pipe);
    return out;
}

TEST(ExportsTest, OnlyThePublicApiIsExported)
{
    int status = -1;
    std::string table = RunCommand(std::string("nm -D --defined-only ") + MEDIASESSION_SO, &status);
    ASSERT_EQ(0, status) << table;
    const std::regex allowed(
        "(InitMediaEngine|UninitMediaEngine|CreateMediaConnection|CreateMediaConnectionWithCsi|"
        "CreateMediaConnection4T|GetMediaEngineVersion|ZynRegisterMainThread|ZynPumpMainThread|"
        "ZynSetTraceSink|ZynSetTraceLevel|StartStunTrace|SetStunTraceSink|StartTraceServer|StopTraceServer|"
        "SetTraceServerOption|SetTraceServerPortRange|SetTraceServerSink|IsLastTraceServerUsable|"
        "vorta_[a-z0-9_]+_s|safe_lib_set_constraint_handler|mem_prim_[a-z0-9]+|"
        "_ZN3zyn22_createMediaConnectionEPP19IZynMediaConnectionjbbb|_ZN3zyn24CreateNonDuplicateCallIDEv)");
    std::set<std::string> exported;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::string name = line.substr(line.find_last_of(' ') + 1);
        char kind = line.size() > 17 ? line[17] : '?';
        if (kind == 'A') continue;  // version node
        exported.insert(name);
        EXPECT_TRUE(std::regex_match(name, allowed)) << "leaks: " << line;
    }
    for (const char* must : {"InitMediaEngine", "UninitMediaEngine", "CreateMediaConnection", "vorta_strcpy_s",
                             "safe_lib_set_constraint_handler", "mem_prim_move32", "StartStunTrace", "StartTraceServer",
                             "IsLastTraceServerUsable"})
        EXPECT_EQ(1u, exported.count(must)) << must;
}

}  // namespace
