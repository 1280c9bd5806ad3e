#include "util/CmLocalAddr.h"

#include <ifaddrs.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>

#include "tp/CmInetAddr.h"

namespace {

constexpr const char* kAllowListEnv = "MEDIASESSION_ALLOWED_ADDRS";

std::mutex g_allowMutex;
std::optional<std::vector<std::string>> g_explicitAllowList;  // guarded by g_allowMutex

struct AllowList {
    bool active = false;
    std::vector<CCmInetAddr> addresses;  // port 0, scope 0
};

std::vector<std::string> SplitList(const char* text)
{
    std::vector<std::string> items;
    std::string current;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == ',') {
            items.push_back(current);
            current.clear();
        } else if (*p != ' ' && *p != '\t') {
            current += *p;
        }
    }
    items.push_back(current);
    return items;
}

AllowList CurrentAllowList()
{
    std::vector<std::string> texts;
    {
        std::lock_guard<std::mutex> lock(g_allowMutex);
        if (g_explicitAllowList) {
            texts = *g_explicitAllowList;
        } else {
            const char* env = std::getenv(kAllowListEnv);
            if (env != nullptr && env[0] != '\0') texts = SplitList(env);
        }
    }
    AllowList allow;
    allow.active = !texts.empty();
    for (const auto& text : texts) {
        CCmInetAddr addr;
        if (!text.empty() && addr.Set(text.c_str(), 0) == CM_OK) allow.addresses.push_back(addr);
    }
    return allow;
}

// The address alone (port and scope cleared), for comparing entries.
CCmInetAddr AddressOnly(const sockaddr_storage& storage)
{
    sockaddr_storage copy = storage;
    if (copy.ss_family == AF_INET6) {
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&copy);
        v6->sin6_port = 0;
        v6->sin6_scope_id = 0;
    } else if (copy.ss_family == AF_INET) {
        reinterpret_cast<sockaddr_in*>(&copy)->sin_port = 0;
    }
    return CCmInetAddr(reinterpret_cast<const sockaddr*>(&copy), sizeof(copy));
}

bool IsAllowed(const AllowList& allow, const sockaddr_storage& storage)
{
    if (!allow.active) return true;
    const CCmInetAddr bare = AddressOnly(storage);
    for (const auto& a : allow.addresses)
        if (a == bare) return true;
    return false;
}

}  // namespace

CmResult get_local_addr(CmLocalAddr** list, unsigned int* count)
{
    if (list == nullptr || count == nullptr) return CM_ERROR_NULL_POINTER;
    *list = nullptr;
    *count = 0;
    ifaddrs* interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) return CM_ERROR_FAILURE;
    const AllowList allow = CurrentAllowList();

    std::vector<CmLocalAddr> found;
    for (ifaddrs* ifa = interfaces; ifa != nullptr; ifa = ifa->ifa_next) {
        if (ifa->ifa_addr == nullptr || (ifa->ifa_flags & IFF_UP) == 0) continue;
        const int family = ifa->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) continue;
        CmLocalAddr entry{};
        memcpy(&entry.addr, ifa->ifa_addr, family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
        entry.loopback = (ifa->ifa_flags & IFF_LOOPBACK) != 0;
        if (!IsAllowed(allow, entry.addr)) continue;
        // A loopback address is useless to a peer; only an explicit allow-list brings it in.
        if (entry.loopback && !allow.active) continue;
        if (ifa->ifa_name != nullptr) {
            strncpy(entry.ifname, ifa->ifa_name, sizeof(entry.ifname) - 1);
            entry.ifindex = if_nametoindex(ifa->ifa_name);
        }
        found.push_back(entry);
    }
    freeifaddrs(interfaces);
    if (found.empty()) return CM_OK;

    auto* out = new CmLocalAddr[found.size()];
    memcpy(out, found.data(), found.size() * sizeof(CmLocalAddr));
    *list = out;
    *count = static_cast<unsigned int>(found.size());
    return CM_OK;
}

void free_local_addr(CmLocalAddr* list) { delete[] list; }

void prune_local_addr(CmLocalAddr* list, unsigned int* count)
{
    if (list == nullptr || count == nullptr) return;
    const AllowList allow = CurrentAllowList();
    std::vector<CCmInetAddr> kept;
    unsigned int out = 0;
    for (unsigned int i = 0; i < *count; ++i) {
        const CCmInetAddr bare = AddressOnly(list[i].addr);
        if (bare.IsIpv6() && bare.IsLinkLocal()) continue;
        if (!IsAllowed(allow, list[i].addr)) continue;
        bool repeated = false;
        for (const auto& k : kept) repeated = repeated || k == bare;
        if (repeated) continue;
        kept.push_back(bare);
        if (out != i) list[out] = list[i];
        ++out;
    }
    *count = out;
}

bool isPureIp6()
{
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    if (get_local_addr(&list, &count) != CM_OK) return false;
    prune_local_addr(list, &count);
    bool globalV6 = false;
    bool usableV4 = false;
    for (unsigned int i = 0; i < count; ++i) {
        const CCmInetAddr addr(reinterpret_cast<const sockaddr*>(&list[i].addr), sizeof(list[i].addr));
        if (addr.IsLoopback()) continue;
        if (addr.IsIpv6()) globalV6 = globalV6 || !addr.IsLinkLocal();
        else usableV4 = true;
    }
    free_local_addr(list);
    return globalV6 && !usableV4;
}

void set_local_addr_allow_list(const std::vector<std::string>& addresses)
{
    std::lock_guard<std::mutex> lock(g_allowMutex);
    g_explicitAllowList = addresses;
}

void clear_local_addr_allow_list()
{
    std::lock_guard<std::mutex> lock(g_allowMutex);
    g_explicitAllowList.reset();
}
