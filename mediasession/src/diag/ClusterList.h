// Reads the cluster list a reachability test is started with, in either of its two forms:
//
//   {"clusters": {"NAME": ["URI", ...], ...}, "clusterClasses": {"CLASS": ["NAME", ...], ...}}
//   {"NAME": ["URI", ...], ...}
//
// In the first form the clusters some class names make the first pass; the clusters no class names
// make a second pass, probed after the first. The class "hybridMedia" names the mesh nodes whose
// reachability decides whether the service is usable. A URI that does not parse is left out with
// a trace; a list that leaves nothing to probe is refused.
//
// No thread of its own, no state: a value built from text.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tp/CmUri.h"

struct TraceClusterEntry {
    std::string name;
    std::vector<CCmUri> uris;
};

struct TraceClusterList {
    bool newFormat = false;
    // The two passes, clusters in the order they are probed.
    std::vector<TraceClusterEntry> first;
    std::vector<TraceClusterEntry> second;
    // Names of the "hybridMedia" class (empty when it is absent).
    std::vector<std::string> meshNodes;

    size_t UriCount() const;
};

// Bounds on what one run takes: beyond them a list is refused rather than probed for minutes.
constexpr size_t kMaxClusterListBytes = 256 * 1024;
constexpr size_t kMaxTraceUris = 1000;
constexpr const char* kMeshClass = "hybridMedia";

// True with `out` filled when `text` is a cluster list with at least one usable URI; false with
// the traces of what was wrong otherwise.
bool ParseClusterList(std::string_view text, TraceClusterList& out);
