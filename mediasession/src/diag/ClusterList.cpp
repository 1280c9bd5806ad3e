// Runs on the caller's thread of StartTraceServer.
#include "diag/ClusterList.h"

#include <set>

#include "util/CmJson.h"
#include "util/CmTrace.h"

namespace {

// A cluster's URIs; bad ones are traced and left out. False when the value is not a list at all.
bool ReadCluster(const std::string& name, const json::Value& value, size_t& budget, TraceClusterEntry& out)
{
    out.name = name;
    if (!value.is_array()) {
        MS_WARNING_TRACE("CTraceServer::SetTraceNodeList, invalid uri: " << json::Serialize(value).substr(0, 256)
                                                                          << " of cluster " << name);
        return false;
    }
    for (const auto& item : value) {
        CCmUri uri;
        if (!item.is_string() || uri.Parse(item.get_ref<const std::string&>()) != CM_OK) {
            MS_WARNING_TRACE("CTraceServer::SetTraceNodeList, invalid uri: " << json::Serialize(item).substr(0, 256));
            continue;
        }
        if (budget == 0) {
            MS_WARNING_TRACE("CTraceServer::SetTraceNodeList, too many uris, left out: " << uri.ToString());
            continue;
        }
        --budget;
        out.uris.push_back(uri);
    }
    return true;
}

bool ReadNewFormat(const json::Value& root, TraceClusterList& out, size_t& budget)
{
    MS_INFO_TRACE("CTraceServer::StartTrace, this is new cluster list format !!");
    out.newFormat = true;
    const auto clusters = root.find("clusters");
    const auto classes = root.find("clusterClasses");
    if (clusters == root.end() || classes == root.end() || !clusters->is_object() || !classes->is_object()) {
        MS_ERROR_TRACE("CTraceServer::StartTrace, either clusters or clusterClasses is not JSON format. Error !!");
        return false;
    }
    // splitClustersLists: what a class names goes first, in class order; the rest second.
    std::vector<std::string> firstNames;
    std::set<std::string> named;
    for (const auto& [cls, names] : classes->items()) {
        MS_INFO_TRACE("CTraceServer::StartTrace, class: " << cls << "; array = " << json::Serialize(names).substr(0, 512));
        if (!names.is_array()) continue;
        const bool mesh = cls == kMeshClass;
        if (mesh) MS_INFO_TRACE("CTraceServer::StartTrace, store the hybridMedia cluster nodes");
        for (const auto& n : names) {
            if (!n.is_string()) continue;
            const std::string& name = n.get_ref<const std::string&>();
            if (!clusters->contains(name)) {
                MS_WARNING_TRACE("CTraceServer::StartTrace, cluster name is not found in clusters list, name=" << name);
                continue;
            }
            if (mesh) out.meshNodes.push_back(name);
            if (named.insert(name).second) firstNames.push_back(name);
        }
    }
    if (firstNames.empty()) {
        MS_ERROR_TRACE("CTraceServer::StartTrace, empty firstClusterListSet. Split error !! ");
        return false;
    }
    // createContextList
    for (const auto& name : firstNames) {
        TraceClusterEntry entry;
        ReadCluster(name, clusters->at(name), budget, entry);
        out.first.push_back(std::move(entry));
    }
    for (const auto& [name, uris] : clusters->items()) {
        if (named.count(name)) continue;
        TraceClusterEntry entry;
        if (ReadCluster(name, uris, budget, entry)) out.second.push_back(std::move(entry));
    }
    return true;
}

bool ReadOldFormat(const json::Value& root, TraceClusterList& out, size_t& budget)
{
    for (const auto& [name, uris] : root.items()) {
        TraceClusterEntry entry;
        if (ReadCluster(name, uris, budget, entry)) out.first.push_back(std::move(entry));
    }
    return true;
}

}  // namespace

size_t TraceClusterList::UriCount() const
{
    size_t n = 0;
    for (const auto* pass : {&first, &second})
        for (const auto& c : *pass) n += c.uris.size();
    return n;
}

bool ParseClusterList(std::string_view text, TraceClusterList& out)
{
    out = TraceClusterList();
    if (text.size() > kMaxClusterListBytes) {
        MS_ERROR_TRACE("CTraceServer::StartTrace, the cluster list is too long, length=" << text.size()
                                                                                       << ", limit=" << kMaxClusterListBytes);
        return false;
    }
    const json::Value root = json::Deserialize(text);
    if (!root.is_object()) {
        MS_ERROR_TRACE("CTraceServer::StartTrace, wrong json input, ZYN takes JSON object as root. ret="
                       << (root.is_null() ? "parse error" : root.type_name()));
        return false;
    }
    size_t budget = kMaxTraceUris;
    const bool isNew = root.contains("clusters") || root.contains("clusterClasses");
    if (!(isNew ? ReadNewFormat(root, out, budget) : ReadOldFormat(root, out, budget))) return false;
    if (out.UriCount() == 0) {
        MS_ERROR_TRACE("CTraceServer::StartTrace, no usable uri in the cluster list");
        return false;
    }
    return true;
}
