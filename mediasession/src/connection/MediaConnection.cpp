// Life of a connection: construction, Init, Stop, destruction, the class-wide list, errors.
#include "connection/MediaConnection.h"
#include "track/CsiDB.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <thread>

#include "line/MediaConnectionInfo.h"
#include "tp/CmLowTick.h"
#include "tp/CmThreadManager.h"
#include "util/CmLocalAddr.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

CCmMutexThread CMediaConnection::m_mutexVecMediaConnection;
std::vector<CMediaConnection*> CMediaConnection::m_vecMediaConnection;

CMediaConnection::CMediaConnection(unsigned int callId, bool externalTransport, bool svs, bool externalCsi)
    : ZYNIdentityT(callId, ZynSessionType_Unknown),
      m_callId(callId),
      m_sessionMetrics(static_cast<long>(callId)),
      m_bExternalTransport(externalTransport),
      m_bSvs(svs),
      m_bExternalCsi(externalCsi)
{
    MS_INFO_TRACE("CMediaConnection::CMediaConnection, callId=" << callId << ", externalTransport="
                  << externalTransport << ", svs=" << svs << ", externalCsi=" << externalCsi << CONN_TAIL);
}

CMediaConnection::~CMediaConnection()
{
    {
        CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
        auto it = std::find(m_vecMediaConnection.begin(), m_vecMediaConnection.end(), this);
        if (it != m_vecMediaConnection.end()) m_vecMediaConnection.erase(it);
        // What the call observed goes with its last connection.
        if (std::none_of(m_vecMediaConnection.begin(), m_vecMediaConnection.end(),
                         [this](const CMediaConnection* c) { return c->m_callId == m_callId; }))
            CCsiDB::Instance().releaseCall(m_callId);
    }
    // A connection released without Stop must not leave its timers on the statistics thread, and
    // no tick may walk the lines deleted below.
    if (m_bLogging.load()) StopMediaLogging();
    ReleaseStatisticThread();
    // The clean-up event normally cleared these on the main thread; when it never ran (the engine
    // went down first) they go here instead, so nothing outlives the connection.
    ClearConnections();
    if (m_pZynEngine) {
        CM_ASSERT_REPORT("__null == m_pZynEngine");
        m_pZynEngine->Stop();
        m_pZynEngine->Release();
        m_pZynEngine = nullptr;
    }
    if (m_pNetworkIndicator) m_pNetworkIndicator->Release();
    if (m_bLowTickStarted) stopLowTick();
}

ZynResult CMediaConnection::QueryInterface(const _tagUUID& iid, void** out)
{
    if (!out) return ZYN_E_POINTER;
    if (iid == ZYNIID_IZynMediaConnection) {
        *out = static_cast<IZynMediaConnection*>(this);
        AddRef();
        return ZYN_S_OK;
    }
    *out = nullptr;
    return ZYN_E_NOINTERFACE;
}

ZynResult CMediaConnection::Kick(const char* tag, ZynResult code)
{
    m_sessionMetrics.KickZynError(tag, code);
    return code;
}

ZynResult CMediaConnection::Init()
{
    ZynEngineVersion v = ZynGetVersion();
    MS_INFO_TRACE("CMediaConnection::Init, version=" << v.major << "." << v.minor << "." << v.patch << "."
                  << v.build << ", build=" << ZynGetBuildInfo() << ",[CheckPoint]" << CONN_TAIL);
    MS_INFO_TRACE("CMediaConnection::Init SystemInfo" << ",osinfo=" << "Linux" << ",model=" << "pc" << CONN_TAIL);
    (void)ZynDeviceSupportCVOSend();
    (void)ZynDeviceSupportCVORecv();

    if (!m_bLowTickStarted) {
        startLowTick();
        m_bLowTickStarted = true;
    }

    // The svs twin of a call gets an engine instance of its own.
    uint32_t engineId = m_callId + (m_bSvs ? 1000u : 0u);
    ZynResult r = ZynCreateMediaEngineEx(&m_pZynEngine, 0, engineId, m_bExternalTransport);
    if (!ZYN_SUCCEEDED(r)) {
        Kick("CMCInit_CrEng", r);
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
        return r;
    }
    if (m_pZynEngine) {
        r = m_pZynEngine->GetNetworkIndicator(&m_pNetworkIndicator);
        if (!ZYN_SUCCEEDED(r)) {
            Kick("CMCInit_CrNW", r);
            CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
            return r;
        }
    }
    r = GetLocalIp(m_localAddress);
    if (!ZYN_SUCCEEDED(r)) {
        Kick("CMCInit_GetIp", r);
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
        return r;
    }
    initRandomSeed();
    uint64_t tieBreaker = 0;
    if (RAND_bytes(reinterpret_cast<unsigned char*>(&tieBreaker), sizeof(tieBreaker)) != 1)
        tieBreaker = (static_cast<uint64_t>(std::rand()) << 32) ^ static_cast<uint64_t>(std::rand());
    m_iceTieBreaker = tieBreaker;
    MS_INFO_TRACE("CMediaConnection::Init m_iceTieBreaker=" << m_iceTieBreaker << CONN_TAIL);
    return r;
}

ZynResult CMediaConnection::GetLocalIp(CCmInetAddr& address)
{
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    if (get_local_addr(&list, &count) != CM_OK || !list) return ZYN_S_OK;  // no address is no failure
    prune_local_addr(list, &count);
    ZynResult r = ZYN_S_OK;
    if (count > 0 && address.SetIpAddrBySock(reinterpret_cast<const sockaddr*>(&list[0].addr),
                                             sizeof(list[0].addr)) != CM_OK)
        r = ZYN_E_FAIL;
    free_local_addr(list);
    return r;
}

void CMediaConnection::initRandomSeed()
{
    std::string text = std::to_string(static_cast<long long>(time(nullptr)))
                     + std::to_string(reinterpret_cast<uintptr_t>(this))
                     + std::to_string(reinterpret_cast<uintptr_t>(m_pZynEngine))
                     + std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()))
                     + m_localAddress.GetIpDisplayName();
    size_t hash = std::_Hash_impl::hash(text.data(), text.size(), static_cast<size_t>(0xc70f6907UL));
    std::srand(static_cast<unsigned int>(hash));
    MS_INFO_TRACE("rand seed: " << text << ", hash: " << static_cast<unsigned long long>(hash) << CONN_TAIL);
    if (RAND_status() == 1) {
        MS_INFO_TRACE("RAND_status() == 1, return" << CONN_TAIL);
        return;
    }
    RAND_seed(text.data(), static_cast<int>(text.size()));
}

ZynResult CMediaConnection::SetSink(IZynMediaConnectionSink* sink)
{
    MS_DETAIL_TRACE("CMediaConnection::setSink, sink=" << static_cast<void*>(sink) << CONN_TAIL);
    m_pSink = sink;
    return ZYN_S_OK;
}

void CMediaConnection::Stop()
{
    MS_INFO_TRACE("CMediaConnection::Stop" << CONN_TAIL);
    // Timers and other threads read the flag without a lock: a sequentially consistent store.
    m_mediaRunning.store(0, std::memory_order_seq_cst);
    // Nothing is recorded once Stop returned: the taps leave their tracks before the lines go.
    m_recorder.StopAll();
    StopOnpremSharing();
    CloseMediaLogging();

    if (m_pNetworkIndicator) {
        m_pNetworkIndicator->Release();
        m_pNetworkIndicator = nullptr;
    }
    m_adhocAudio.Stop();
    StopConnections();
    if (m_pZynEngine) m_pZynEngine->Stop();

    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    // Announcements queued on the main thread find no sink from here on, and one running there
    // now has finished when this returns.
    if (main)
        CmInvokeInThread(main, false, [this] {
            m_pSink.store(nullptr);
            return CM_OK;
        });
    m_pSink.store(nullptr);
    if (ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr) {
        // The event's own reference keeps the connection alive until it ran on the main thread.
        CMediaConnectionPtr self(this);
        queue->PostEvent(new CCmInvokeEvent([self] {
            self->ClearConnections();
            if (self->m_pZynEngine) {
                self->m_pZynEngine->Release();
                self->m_pZynEngine = nullptr;
            }
            return CM_OK;
        }));
    }
    ReleaseStatisticThread();
    if (m_bLowTickStarted) {
        stopLowTick();
        m_bLowTickStarted = false;
    }
    MS_INFO_TRACE("CMediaConnection::Stop successfully." << CONN_TAIL);
}

void CMediaConnection::StopConnections()
{
    if (m_bStoppingConnections) return;
    m_bStoppingConnections = true;
    for (CMediaConnectionInfo* line : m_connections) line->Stop();
    for (CMediaConnectionInfo* line : m_connections) line->Cleanup();
    m_iceLineCount = 0;
    MS_DETAIL_TRACE("CMediaConnection::StopConnections" << CONN_TAIL);
    m_bStoppingConnections = false;
}

void CMediaConnection::ClearConnections()
{
    std::vector<CMediaConnectionInfo*> lines;
    {
        std::lock_guard<std::mutex> lock(m_linesMutex);
        lines.swap(m_connections);
    }
    for (CMediaConnectionInfo* line : lines) delete line;
    m_iceLineCount = 0;
}

void CMediaConnection::AddMediaConnection(CMediaConnection* connection)
{
    CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
    m_vecMediaConnection.push_back(connection);
}

CMediaConnectionPtr CMediaConnection::FindMediaConnectionByCallID(unsigned int callId)
{
    CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
    for (CMediaConnection* c : m_vecMediaConnection) {
        // A connection in its last release is still listed until its destructor runs: skip it.
        if (c->m_callId == callId && c->TryAddReference()) return CMediaConnectionPtr(c, false);
    }
    return {};
}

CMediaConnectionPtr CMediaConnection::FindMediaConnectionByCallID(unsigned int callId, ZynSessionType type)
{
    CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
    for (CMediaConnection* c : m_vecMediaConnection) {
        if (c->m_callId != callId || !c->FindConnection(type)) continue;
        if (c->TryAddReference()) return CMediaConnectionPtr(c, false);
    }
    return {};
}

size_t CMediaConnection::GetMediaConnectionCount()
{
    CCmMutexGuardT<CCmMutexThread> guard(m_mutexVecMediaConnection);
    return m_vecMediaConnection.size();
}

CMediaConnectionInfo* CMediaConnection::FindConnection(ZynSessionType type)
{
    for (CMediaConnectionInfo* line : m_connections)
        if (line->GetSessionType() == type) return line;
    return nullptr;
}

CMediaConnectionInfo* CMediaConnection::FindConnection(unsigned long mid)
{
    for (CMediaConnectionInfo* line : m_connections)
        if (line->GetMid() == mid) return line;
    return nullptr;
}

}  // namespace zyn
