// What leaves the shared library, and how a loader finds it.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "../common/run_command.h"

namespace {

std::string RunCommand(const std::string& command, int* status)
{
    const mstest::CommandResult r = mstest::RunCommand(command + " 2>&1");
    *status = r.status;
    return r.out;
}

TEST(ExportsTest, OnlyThePublicApiIsExported)
{
    int status = -1;
    std::string table = RunCommand(std::string("nm -D --defined-only ") + MEDIASESSION_SO, &status);
    ASSERT_EQ(0, status) << table;
    const std::regex allowed(
        "(InitMediaEngine|UninitMediaEngine|CreateMediaConnection|CreateMediaConnectionWithCsi|"
        "CreateMediaConnection4T|GetMediaEngineVersion|GetMediaDevice|GetMediaDeviceNames|ZynRegisterMainThread|ZynPumpMainThread|"
        "ZynSetTraceSink|ZynSetTraceLevel|StartStunTrace|SetStunTraceSink|StartTraceServer|StopTraceServer|"
        "SetTraceServerOption|SetTraceServerPortRange|SetTraceServerSink|IsLastTraceServerUsable|"
        "ReloadProxy|GetProxyConfigure|SetProxyUsernamePassword|AllowProxyGetSystemCredential|SetProxyConfigSink|"
        "SetProxyCredentialSink|SetProxyConfigList|SetMediaCallInfo|SetAudioMode|CreateVideoRender|GetCpuDescription|DoThreadHeartBeat|"
        "GetStaticPerformance|CheckHWAccelerationForVideoEncode|"
        "(Start|Stop)Proximity(RZSS|Both)?|GetExclusiveModeAPPName|ZynSetFIPSMode|SetProximityCallId|"
        "_Z17GetGpuDescriptionRSt6vectorI21_tagZynGpuDescriptionSaIS0_EE|"
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
                             "IsLastTraceServerUsable", "GetProxyConfigure", "SetMediaCallInfo", "DoThreadHeartBeat",
                             "GetStaticPerformance", "CheckHWAccelerationForVideoEncode", "CreateVideoRender",
                             "SetProximityCallId", "_Z17GetGpuDescriptionRSt6vectorI21_tagZynGpuDescriptionSaIS0_EE"})
        EXPECT_EQ(1u, exported.count(must)) << must;
}

// The dynamic section as a user's linker and loader read it.
TEST(ExportsTest, DynamicSectionCarriesTheSonameAndNoSearchPath)
{
    const std::string version = MEDIASESSION_VERSION;
    const std::string soname = "libmediasession.so." + version.substr(0, version.find('.'));
    const std::string file = MEDIASESSION_SO;
    // The file is the soname plus the rest of the version, so that the soname link names it.
    EXPECT_EQ("/" + soname + version.substr(version.find('.')), file.substr(file.rfind('/'))) << file;

    int status = -1;
    const std::string dynamic = RunCommand("readelf -d " + file, &status);
    ASSERT_EQ(0, status) << dynamic;
    struct Row {
        const char* what;
        std::string text;
        bool present;
    };
    const Row rows[] = {
        {"the soname", "Library soname: [" + soname + "]", true},
        // Every object is position independent: a text relocation would make each process copy the code.
        {"no text relocation", "(TEXTREL)", false},
        // What the library links comes from the system: a search path would point into this build.
        {"no run path", "(RUNPATH)", false},
        {"no old-style run path", "(RPATH)", false},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.present, dynamic.find(row.text) != std::string::npos) << row.what << "\n" << dynamic;
}

}  // namespace
