// The cluster list reader fed fuzzed text: what it accepts stays within its bounds, every URI it
// kept prints back to text that reads as the same URI, and the mesh nodes are clusters it probes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>

#include "diag/ClusterList.h"
#include "util/CmTrace.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    set_external_trace_mask(-1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    TraceClusterList list;
    if (!ParseClusterList(std::string_view(reinterpret_cast<const char*>(data), size), list)) return 0;
    if (list.UriCount() == 0 || list.UriCount() > kMaxTraceUris) abort();
    if (!list.newFormat && (!list.second.empty() || !list.meshNodes.empty())) abort();
    std::set<std::string> first;
    for (const auto& cluster : list.first) first.insert(cluster.name);
    for (const auto& mesh : list.meshNodes)
        if (!first.count(mesh)) abort();
    for (const auto* pass : {&list.first, &list.second})
        for (const auto& cluster : *pass)
            for (const auto& uri : cluster.uris) {
                CCmUri again;
                if (again.Parse(uri.ToString()) != CM_OK || again.ToString() != uri.ToString() ||
                    again.GetPort() != uri.GetPort() || again.GetHost() != uri.GetHost())
                    abort();
            }
    return 0;
}
