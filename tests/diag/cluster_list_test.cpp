// The cluster list reader and the URIs in it: both forms, the split into two passes, the mesh
// nodes, and every kind of malformed list refused with its trace.
#include <gtest/gtest.h>

#include <string>

#include "diag/ClusterList.h"
#include "diag_test_util.h"
#include "tp/CmUri.h"

namespace {

struct UriCase {
    const char* text;
    bool ok;
    CCmUri::Scheme scheme;
    const char* host;
    uint16_t port;
    const char* path;
};

TEST(TraceUriTest, ParsesTheThreeFormsAndRefusesTheRest)
{
    const UriCase cases[] = {
        {"stun:10.0.0.1:5004", true, CCmUri::SCHEME_STUN, "10.0.0.1", 5004, ""},
        {"STUN:media.example.com", true, CCmUri::SCHEME_STUN, "media.example.com", 3478, ""},
        {"stun:[2001:db8::1]:3479", true, CCmUri::SCHEME_STUN, "2001:db8::1", 3479, ""},
        {"http://h.example:8080/probe?x=1", true, CCmUri::SCHEME_HTTP, "h.example", 8080, "/probe?x=1"},
        {"http://h.example", true, CCmUri::SCHEME_HTTP, "h.example", 80, "/"},
        {"https://[::1]/", true, CCmUri::SCHEME_HTTPS, "::1", 443, "/"},
        {"https://h:443/a/b", true, CCmUri::SCHEME_HTTPS, "h", 443, "/a/b"},
        // Refused: unknown scheme, no host, bad ports, bad characters, broken brackets.
        {"turn:10.0.0.1:3478", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:10.0.0.1:0", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:10.0.0.1:65536", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:10.0.0.1:12a", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:10.0.0.1:", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:bad host:1", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:a..b:1", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:[2001:db8::1:3478", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"stun:[1.2.3.4]:3478", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"http://h/pa th", false, CCmUri::SCHEME_NONE, "", 0, ""},
        {"http:///x", false, CCmUri::SCHEME_NONE, "", 0, ""},
    };
    for (const auto& c : cases) {
        CCmUri uri;
        EXPECT_EQ(c.ok, uri.Parse(c.text) == CM_OK) << c.text;
        if (!c.ok) {
            EXPECT_EQ(CCmUri::SCHEME_NONE, uri.GetScheme()) << c.text << ": a refused text changes nothing";
            continue;
        }
        EXPECT_EQ(c.scheme, uri.GetScheme()) << c.text;
        EXPECT_EQ(c.host, uri.GetHost()) << c.text;
        EXPECT_EQ(c.port, uri.GetPort()) << c.text;
        EXPECT_EQ(c.path, uri.GetPath()) << c.text;
        CCmUri again;
        ASSERT_EQ(CM_OK, again.Parse(uri.ToString())) << uri.ToString();
        EXPECT_EQ(uri.ToString(), again.ToString());
    }
    EXPECT_NE(CM_OK, CCmUri().Parse(std::string(CCmUri::kMaxLength + 1, 'a')));
}

TEST(ClusterListTest, NewFormatSplitsNamedClustersFromTheRestAndKeepsMeshNodes)
{
    const char* text = R"({"clusters": {"mesh1": ["stun:10.0.0.1:3478", "https://10.0.0.1/x"],
                                         "dc1": ["http://10.0.0.2:80/"],
                                         "spare": ["stun:10.0.0.3:3478"]},
                           "clusterClasses": {"hybridMedia": ["mesh1"], "cloud": ["dc1", "mesh1"]}})";
    TraceClusterList list;
    ASSERT_TRUE(ParseClusterList(text, list));
    EXPECT_TRUE(list.newFormat);
    ASSERT_EQ(2u, list.first.size());
    // Classes in name order ("cloud" before "hybridMedia"); a cluster named twice is probed once.
    EXPECT_EQ("dc1", list.first[0].name);
    EXPECT_EQ("mesh1", list.first[1].name);
    EXPECT_EQ(2u, list.first[1].uris.size());
    ASSERT_EQ(1u, list.second.size());
    EXPECT_EQ("spare", list.second[0].name);
    EXPECT_EQ(std::vector<std::string>{"mesh1"}, list.meshNodes);
    EXPECT_EQ(4u, list.UriCount());
}

TEST(ClusterListTest, OldFormatProbesEveryClusterInOnePass)
{
    TraceClusterList list;
    ASSERT_TRUE(ParseClusterList(R"({"a": ["stun:10.0.0.1:3478"], "b": ["http://[::1]:80/"]})", list));
    EXPECT_FALSE(list.newFormat);
    EXPECT_EQ(2u, list.first.size());
    EXPECT_TRUE(list.second.empty());
    EXPECT_TRUE(list.meshNodes.empty());
}

TEST(ClusterListTest, LeavesOutWhatItCannotUseAndSaysSo)
{
    diagtest::TraceCapture traces;
    TraceClusterList list;
    ASSERT_TRUE(ParseClusterList(R"({"clusters": {"a": ["stun:10.0.0.1:3478", "ftp://x", 7], "b": "stun:10.0.0.2"},
                                     "clusterClasses": {"c": ["a", "ghost", 5], "d": "a"}})",
                                 list));
    ASSERT_EQ(1u, list.first.size());
    EXPECT_EQ(1u, list.first[0].uris.size());
    EXPECT_TRUE(list.second.empty()) << "a cluster that is no list is not probed";
    EXPECT_EQ(3u, traces.Count("CTraceServer::SetTraceNodeList, invalid uri: "));
    EXPECT_TRUE(traces.Contains("CTraceServer::StartTrace, cluster name is not found in clusters list"));
    EXPECT_TRUE(traces.Contains("CTraceServer::StartTrace, this is new cluster list format !!"));
}

struct Refusal {
    const char* name;
    std::string text;
    const char* trace;
};

TEST(ClusterListTest, RefusesListsThatAreNoClusterList)
{
    std::string huge = R"({"a": [)";
    while (huge.size() < 1024 * 1024) huge += R"("stun:10.0.0.1:3478",)";
    huge += R"("stun:10.0.0.1:3478"]})";
    const Refusal cases[] = {
        {"array root", R"([{"a": ["stun:10.0.0.1"]}])", "ZYN takes JSON object as root. ret="},
        {"string root", R"("stun:10.0.0.1")", "ZYN takes JSON object as root. ret="},
        {"not JSON", R"({"a": ["stun:10.0.0.1"])", "ZYN takes JSON object as root. ret="},
        {"missing classes", R"({"clusters": {"a": ["stun:10.0.0.1"]}})", "either clusters or clusterClasses is not JSON format"},
        {"classes not an object", R"({"clusters": {"a": ["stun:10.0.0.1"]}, "clusterClasses": ["a"]})",
         "either clusters or clusterClasses is not JSON format"},
        {"classes name nothing known", R"({"clusters": {"a": ["stun:10.0.0.1"]}, "clusterClasses": {"c": ["b"]}})",
         "empty firstClusterListSet. Split error !!"},
        {"no usable uri", R"({"a": ["ftp://x", "stun:"], "b": []})", "no usable uri in the cluster list"},
        {"empty object", "{}", "no usable uri in the cluster list"},
        {"one megabyte", huge, "the cluster list is too long"},
    };
    for (const auto& c : cases) {
        diagtest::TraceCapture traces;
        TraceClusterList list;
        EXPECT_FALSE(ParseClusterList(c.text, list)) << c.name;
        EXPECT_TRUE(traces.Contains(c.trace)) << c.name;
    }
}

TEST(ClusterListTest, StopsTakingUrisAtTheBound)
{
    std::string text = R"({"a": [)";
    for (size_t i = 0; i < kMaxTraceUris + 10; ++i) text += R"("stun:10.0.0.1:)" + std::to_string(1000 + i) + "\",";
    text.back() = ']';
    text += "}";
    TraceClusterList list;
    ASSERT_TRUE(ParseClusterList(text, list));
    EXPECT_EQ(kMaxTraceUris, list.UriCount());
}

}  // namespace
