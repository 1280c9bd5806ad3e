// Exported entry points: engine start and stop, connection factories, call ids.
#include "track/TrackDelete.h"
#include <random>

#include "connection/MediaConnection.h"
#include "entry/CertficateGenerator.h"
#include "mediasession/ZynMediaEngine.h"
#include "tp/CmLowTick.h"
#include "tp/CmProxy.h"  // InitProxy, UnInitProxy
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"
#include "zyn/ZynDebugConfig.h"
#include "zyn/ZynEngineApi.h"

unsigned int g_uMainThreadUninited = 0;

namespace zyn {
bool g_bTimerAllTime = false;
}

namespace {

// Guards InitMediaEngine and UninitMediaEngine from end to end, including the wait for the main
// thread: calling either from the main thread while another thread waits in uninit deadlocks.
CCmMutexThreadRecursive g_engineInitMutex;
uint32_t g_engineRefCount = 0;  // guarded by g_engineInitMutex
ACmThread* g_audioNetworkThread = nullptr;
ACmThread* g_videoNetworkThread = nullptr;
ACmThread* g_shareNetworkThread = nullptr;

// Ends the engine on the main thread, whoever called UninitMediaEngine.
class CUnInitMediaEngineEvent final : public ICmEvent {
public:
    CmResult OnEventFire() override
    {
        MS_INFO_TRACE("UnInitMediaEngineEvent, g_uMainThreadUninited=" << g_uMainThreadUninited);
        g_uMainThreadUninited = 1;
        // Tracks and engine tracks still waiting out their second go now, before the timers do.
        zyn::CTimerDeleteRegistry::Instance().Flush();
        ZynUninit();
        UnInitProxy();
        CCmThreadManager::CleanupOnlyOne();
        CCmThreadManager::TPCleanThreadList();
        return CM_OK;
    }
};

}  // namespace

extern "C" {

ZYN_API void InitMediaEngine(void*, void*, bool timerAllTime, void*, bool heartbeatEnable, unsigned int uInitOption)
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(g_engineInitMutex);
    CZynDebugConfig::instance()->UpdateDebugConfigs();
    CCmTbqTrace::instance()->Init();
    CCmThreadManager::EnableHeartbeat(heartbeatEnable);
    g_uMainThreadUninited = 0;
    MS_FUNC_TRACE("InitMediaEngine::InitMediaEngine=" << g_engineRefCount << ", g_uMainThreadUninited="
                  << g_uMainThreadUninited << ", uInitOption=" << uInitOption << " cid__" << 0);
    if (g_engineRefCount != 0) {
        ++g_engineRefCount;
        MS_INFO_TRACE("InitMediaEngine::RefCount=" << g_engineRefCount);
        return;
    }
    zyn::g_bTimerAllTime = timerAllTime;
    CCmThreadManager* manager = CCmThreadManager::Instance();
    // The network threads exist before the engine starts.
    manager->SpawnNetworkThread_i(TT_AUDIO_NETWORK, "t-neta", g_audioNetworkThread);
    manager->SpawnNetworkThread_i(TT_VIDEO_NETWORK, "t-netv", g_videoNetworkThread);
    manager->SpawnNetworkThread_i(TT_SHARE_NETWORK, "t-nets", g_shareNetworkThread);
    if (zyn::g_bTimerAllTime) startLowTick();
    InitProxy(1);
    ZynInit(uInitOption);
    zyn::CCertficateGenerator::Instance()->EnsureKicked();
    g_engineRefCount = 1;
    MS_INFO_TRACE("InitMediaEngine::RefCount=" << g_engineRefCount);
}

ZYN_API void UninitMediaEngine()
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(g_engineInitMutex);
    if (g_engineRefCount == 0) {
        MS_WARNING_TRACE("Call UninitMediaEngine when RefCount is 0");
        return;
    }
    if (--g_engineRefCount > 0) {
        MS_INFO_TRACE("UninitMediaEngine::RefCount=" << g_engineRefCount);
        return;
    }
    CZynPerfsStats::instance()->uninit();
    if (zyn::g_bTimerAllTime) stopLowTick();
    zyn::g_bTimerAllTime = false;

    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    const bool onMain = main && main->IsCurrentThread();
    MS_WARNING_TRACE("UnInitMediaEngine always post a message to main thread to exit.");
    ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr;
    if (!queue) {
        CM_ASSERT_REPORT("pMain->GetEventQueue()");
        return;
    }
    if (onMain) {
        queue->SendEvent(new CUnInitMediaEngineEvent());
    } else {
        queue->PostEvent(new CUnInitMediaEngineEvent(), CM_EVENT_PRIORITY_NORMAL);
        CCmThreadManager::EnsureThreadManagerExited();
    }
    g_audioNetworkThread = nullptr;
    g_videoNetworkThread = nullptr;
    g_shareNetworkThread = nullptr;
    zyn::CCertficateGenerator::Instance()->EnsureKicked();
    zyn::CCertficateGenerator::Instance()->Stop();
    MS_INFO_TRACE("UnInitMediaEngine successfully returned.");
}

ZYN_API ZynResult CreateMediaConnection(IZynMediaConnection** out, unsigned int callId)
{
    MS_FUNC_TRACE("CreateMediaConnection" << " cid__" << callId);
    if (callId == 0) callId = zyn::CreateNonDuplicateCallID();
    MS_INFO_TRACE("CreateMediaConnection real cid" << " cid__" << callId);
    return zyn::_createMediaConnection(out, callId, false, false, false);
}

ZYN_API ZynResult CreateMediaConnectionWithCsi(IZynMediaConnection** out, unsigned int callId)
{
    MS_FUNC_TRACE("CreateMediaConnectionWithCsi" << " cid__" << callId);
    return zyn::_createMediaConnection(out, callId, false, false, true);
}

ZYN_API ZynResult CreateMediaConnection4T(unsigned int callId, IZynMediaConnection** out, bool svs,
                                          bool externalTransport)
{
    MS_FUNC_TRACE("CreateMediaConnection4T" << " cid__" << callId);
    return zyn::_createMediaConnection(out, callId, externalTransport, svs, false);
}

ZYN_API void GetMediaEngineVersion(unsigned int version[4], const char** build)
{
    ZynEngineVersion v = ZynGetVersion();
    if (version) {
        version[0] = v.major;
        version[1] = v.minor;
        version[2] = v.patch;
        version[3] = v.build;
    }
    if (build) *build = ZynGetBuildInfo();
}

ZYN_API ZynResult ZynRegisterMainThread() { return CCmThreadManager::RegisterMainThread(); }

ZYN_API bool ZynPumpMainThread(int timeoutMs) { return CCmThreadManager::PumpMainThread(timeoutMs); }

ZYN_API void ZynSetTraceSink(ZynTraceSink sink, void* context) { set_external_trace_sink(sink, context); }

ZYN_API void ZynSetTraceLevel(int level) { set_external_trace_mask(level); }

}  // extern "C"

namespace zyn {

ZYN_API ZynResult _createMediaConnection(IZynMediaConnection** out, unsigned int callId, bool externalTransport,
                                         bool svs, bool externalCsi)
{
    CCmThreadManager::Instance();
    if (!out) {
        CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE, "GlobalFunc:235 Assert failed: ppMediaConnection");
        cm_assertion_report();
        return ZYN_E_INVALIDARG;
    }
    auto* connection = new CMediaConnection(callId, externalTransport, svs, externalCsi);
    ZynResult r = connection->Init();
    if (!ZYN_SUCCEEDED(r)) {
        // Deliberately not released: a failed creation leaves the object alive with no owner.
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
        return r;
    }
    connection->AddRef();
    *out = connection;
    CMediaConnection::AddMediaConnection(connection);
    return ZYN_S_OK;
}

ZYN_API unsigned int CreateNonDuplicateCallID()
{
    std::random_device device("default");
    std::mt19937 generator(device());
    std::uniform_int_distribution<unsigned int> distribution(1u, 0xFFFFFFFFu);
    for (;;) {
        unsigned int id = distribution(generator);
        if (!CMediaConnection::FindMediaConnectionByCallID(id)) return id;
    }
}

}  // namespace zyn
