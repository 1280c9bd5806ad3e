// Exported services of the process: thin doors to the proxy layer, the live connections, the
// machine's description and the main thread. Any thread; the proxy sinks are guarded by
// g_oProxySinkLock.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "connection/MediaConnection.h"
#include "mediasession/ZynGlobalServices.h"
#include "perf/StaticPerformance.h"
#include "tp/CmProxy.h"
#include "zyn/ZynEngineApi.h"
#include "tp/CmThreadManager.h"
#include "util/CmSysInfo.h"
#include "util/CmTrace.h"

extern unsigned int g_uMainThreadUninited;

namespace zyn {
std::atomic<int> g_iAndroidAudioMode{0};

// Heartbeats posted to the main thread and those it ran; read by the next beat (and by tests).
std::atomic<uint64_t> g_heartbeatsPosted{0};
std::atomic<uint64_t> g_heartbeatsRun{0};
}

namespace {

// A proxy answer longer than this never fits the buffers applications pass.
constexpr unsigned int kMaxProxyText = 1024;

std::mutex g_oProxySinkLock;
IProxyConfigSink* g_pProxyConfigSink = nullptr;          // guarded by g_oProxySinkLock
IProxyCredentialSink* g_pProxyCredentialSink = nullptr;  // guarded by g_oProxySinkLock

std::atomic<unsigned> g_cpuDescriptionCalls{0};
std::atomic<unsigned> g_heartbeatsWithoutThreads{0};

// "scheme://host:port realm" or "host:port" into its parts; false when the port is no number.
bool SplitProxyDescription(const std::string& description, std::string& host, unsigned short& port,
                           std::string& scheme, std::string& realm)
{
    std::string rest = description;
    const size_t space = rest.find(' ');
    if (space != std::string::npos) {
        realm = rest.substr(space + 1);
        rest.resize(space);
    }
    const size_t colonSlash = rest.find("://");
    if (colonSlash != std::string::npos) {
        scheme = rest.substr(0, colonSlash);
        rest = rest.substr(colonSlash + 3);
    }
    const size_t colon = rest.rfind(':');
    if (colon == std::string::npos) return false;
    host = rest.substr(0, colon);
    const std::string digits = rest.substr(colon + 1);
    char* end = nullptr;
    const long value = std::strtol(digits.c_str(), &end, 10);
    if (digits.empty() || *end != '\0' || value < 0 || value > 65535) {
        MS_ERROR_TRACE("SplitProxyDescription, Meet exception when stoi, ep=" << digits);
        return false;
    }
    port = static_cast<unsigned short>(value);
    return true;
}

void OnProxyCredentialNeeded(int type, const char* description)
{
    if (!description) return;
    std::lock_guard<std::mutex> lock(g_oProxySinkLock);
    if (g_pProxyConfigSink) g_pProxyConfigSink->OnProxyCredentialNeeded(type, description);
    if (type != 2 || !g_pProxyCredentialSink) return;
    std::string host, scheme, realm;
    unsigned short port = 0;
    if (SplitProxyDescription(description, host, port, scheme, realm))
        g_pProxyCredentialSink->OnProxyCredentialRequired(host.c_str(), port, scheme.c_str(), realm.c_str());
}

// Cut to fit, always terminated.
void CopyText(char* to, size_t capacity, const std::string& text)
{
    const size_t n = std::min(text.size(), capacity - 1);
    std::memcpy(to, text.data(), n);
    to[n] = '\0';
}

void RegisterIfAnySink()
{
    RegisterProxyNotifaction(g_pProxyConfigSink || g_pProxyCredentialSink ? &OnProxyCredentialNeeded : nullptr);
}

}  // namespace

extern "C" {

ZYN_API ZynResult ReloadProxy() { return InitProxy(1); }

ZYN_API ZynResult GetProxyConfigure(const char* url, char* buffer, unsigned int* length)
{
    if (!url || !buffer || !length) return ZYN_E_INVALIDARG;
    if (*length > kMaxProxyText) return ZYN_S_OK;
    CCmString text;
    const CmResult result = GetProxyConfig(url, text);
    if (text.empty()) return ZYN_S_OK;
    if (*length == 0) return ZYN_E_INVALIDARG;
    // Room for the terminator: the copy is cut, never overrun.
    const auto copy = static_cast<unsigned int>(std::min<size_t>(text.size(), *length - 1));
    std::memcpy(buffer, text.c_str(), copy);
    buffer[copy] = '\0';
    if (*length > copy) *length = copy;
    return result;
}

ZYN_API ZynResult SetProxyUsernamePassword(const char* host, unsigned short port, const char* user,
                                           const char* password)
{
    SetProxyUsernameAndPassword(host ? host : "", port, user ? user : "", password ? password : "");
    return ZYN_S_OK;
}

// The proxy layer's switch says the opposite: whether it must get the credentials from above.
ZYN_API void AllowProxyGetSystemCredential(bool allow) { SetGetAuthFromUpper(!allow); }

ZYN_API void SetProxyConfigSink(IProxyConfigSink* sink)
{
    std::lock_guard<std::mutex> lock(g_oProxySinkLock);
    g_pProxyConfigSink = sink;
    RegisterIfAnySink();
}

ZYN_API void SetProxyCredentialSink(IProxyCredentialSink* sink)
{
    MS_INFO_TRACE("Global SetProxyCredentialSink, IProxyCredentialSink=" << static_cast<void*>(sink));
    std::lock_guard<std::mutex> lock(g_oProxySinkLock);
    g_pProxyCredentialSink = sink;
    RegisterIfAnySink();
}

ZYN_API ZynResult SetProxyConfigList(const char* proxies, unsigned int proxiesLength, const char* bypass,
                                     unsigned int bypassLength)
{
    const std::string first = proxies ? std::string(proxies, strnlen(proxies, proxiesLength)) : std::string();
    const std::string second = bypass ? std::string(bypass, strnlen(bypass, bypassLength)) : std::string();
    return SetProxyList(first, second);
}

ZYN_API ZynResult SetMediaCallInfo(const char* callId, const _tagZynCallInfo* info)
{
    if (!callId || !info || info->size != sizeof(_tagZynCallInfo)) return ZYN_E_FAIL;
    char* end = nullptr;
    const unsigned long id = std::strtoul(callId, &end, 10);
    if (*callId == '\0' || *end != '\0') return ZYN_E_FAIL;
    for (const zyn::CMediaConnectionPtr& c :
         zyn::CMediaConnection::FindAllMediaConnectionsByCallID(static_cast<unsigned int>(id)))
        c->SetCallInfo(*info);
    return ZYN_S_OK;
}

ZYN_API ZynResult SetAudioMode(int mode)
{
    zyn::g_iAndroidAudioMode.store(mode);
    return ZYN_S_OK;
}

ZYN_API ZynResult CreateVideoRender(void* window, IZynVideoRender** out) { return ZynCreateVideoRender(window, out); }

ZYN_API ZynResult GetCpuDescription(_tagZynCpuDescription* description)
{
    if (!description) return ZYN_E_INVALIDARG;
    std::memset(description, 0, sizeof(*description));
    std::string brand;
    get_cpu_brand(brand);
    CopyText(description->brand, sizeof(description->brand), brand);
    get_cpu_frequency(description->frequencyMHz);
    uint32_t physical = 0;
    get_cpu_core(physical, description->cores);
#if defined(__x86_64__)
    const char* arch = "x86_64";
#elif defined(__aarch64__)
    const char* arch = "arm64";
#else
    const char* arch = "unknown";
#endif
    CopyText(description->architecture, sizeof(description->architecture), arch);
    if (g_cpuDescriptionCalls.fetch_add(1) % 100 == 0)
        MS_INFO_TRACE("GetCpuDescription: branchName = " << description->brand << ", frequency = "
                                                         << description->frequencyMHz << ", total core = "
                                                         << description->cores << ", Arch is " << arch);
    return ZYN_S_OK;
}

ZYN_API void DoThreadHeartBeat()
{
    if (g_uMainThreadUninited == 1) {
        if (g_heartbeatsWithoutThreads.fetch_add(1) % 100 == 0)
            MS_WARNING_TRACE("DoThreadHeartBeat when there is no thread manager instances.");
        return;
    }
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr;
    if (!queue) return;
    // The beat before this one should have run by now: a main thread that stopped turning leaves it
    // queued, and says so once per missed beat.
    const uint64_t posted = zyn::g_heartbeatsPosted.load(), run = zyn::g_heartbeatsRun.load();
    if (posted > run)
        MS_WARNING_TRACE("DoThreadHeartBeat, the main thread has not run " << (posted - run) << " of "
                                                                          << posted << " heartbeats.");
    zyn::g_heartbeatsPosted.fetch_add(1);
    if (CM_FAILED(queue->PostEvent(new CCmInvokeEvent([] {
            zyn::g_heartbeatsRun.fetch_add(1);
            return CM_OK;
        }))))
        zyn::g_heartbeatsPosted.fetch_sub(1);
}

ZYN_API ZynVideoPerformance GetStaticPerformance(bool isReceive, ZynSessionType type)
{
    zyn::CMediaPerformanceStaticControl& control = zyn::CMediaPerformanceStaticControl::Instance();
    return isReceive ? control.QueryRecvPerformance(false, type) : control.QuerySendPerformance(false, type);
}

ZYN_API bool CheckHWAccelerationForVideoEncode()
{
    return zyn::CMediaPerformanceStaticControl::Instance().CheckHWAcceleration();
}

ZYN_API ZynResult StartProximity() { return ZYN_E_FAIL; }
ZYN_API ZynResult StopProximity() { return ZYN_E_FAIL; }
ZYN_API ZynResult StartProximityRZSS() { return ZYN_E_FAIL; }
ZYN_API ZynResult StopProximityRZSS() { return ZYN_E_FAIL; }
ZYN_API ZynResult StartProximityBoth() { return ZYN_E_FAIL; }
ZYN_API ZynResult StopProximityBoth() { return ZYN_E_FAIL; }
ZYN_API ZynResult GetExclusiveModeAPPName() { return ZYN_E_FAIL; }
ZYN_API ZynResult ZynSetFIPSMode() { return ZYN_E_FAIL; }

ZYN_API ZynResult SetProximityCallId(const char* callId)
{
    MS_INFO_TRACE("[PROXIMITY][CHECKPOINT]SetProximityCallId, call_id = " << (callId ? callId : ""));
    return ZYN_E_FAIL;
}

}  // extern "C"

ZYN_API ZynResult GetGpuDescription(std::vector<_tagZynGpuDescription>& out)
{
    std::vector<std::string> names;
    std::vector<uint64_t> memories;
    const CmResult result = getGpuInfo(names, memories);
    if (names.size() != memories.size()) {
        MS_ERROR_TRACE("GetGpuDescription, failed ");
        return ZYN_E_FAIL;
    }
    for (size_t i = 0; i < names.size(); ++i) {
        _tagZynGpuDescription d{};
        CopyText(d.name, sizeof(d.name), names[i]);
        d.memoryBytes = memories[i];
        MS_INFO_TRACE("GetGpuDescription Name: " << d.name << ", memory " << d.memoryBytes);
        out.push_back(d);
    }
    return result;
}
