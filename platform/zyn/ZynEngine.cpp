#include <mutex>
#include <vector>

#include "zyn/ZynSession.h"
#include "zyn/ZynTrack.h"

namespace zynsim {

namespace {

std::mutex g_initMutex;
int g_initCount = 0;  // guarded by g_initMutex
OptionStore& GlobalOptions()
{
    static OptionStore options;
    return options;
}

// Until received packets exist to judge by, every link counts as good.
class NetworkIndicator final : public RefCounted<IZynNetworkIndicator> {
public:
    int32_t GetNetworkIndex(int32_t direction) override { return (direction == 1 || direction == 2) ? 100 : -1; }
};

class Engine final : public RefCounted<IZynMediaEngineInternal> {
public:
    Engine(uint32_t id, bool externalTransport) : m_id(id), m_external(externalTransport)
    {
        // One media thread per engine instance: it makes and sends the frames of all sessions.
        auto thread = std::make_shared<CCmLoopThread>();
        if (thread->Create("zyn-media", TT_USER_DEFINE_BASE) == CM_OK) m_mediaThread = thread;
    }
    ~Engine() override
    {
        for (Session* s : m_sessions) s->Release();
    }

    uint32_t GetEngineId() override { return m_id; }
    bool IsExternalTransport() override { return m_external; }

    ZynResult CreateMediaSession(ZynSessionType type, IZynMediaSession** out) override
    {
        if (!out) return ZYN_E_POINTER;
        if (type < ZynSessionType_Audio || type > ZynSessionType_Application) return ZYN_E_INVALIDARG;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return ZYN_E_WRONGSTATE;
        auto* session = new Session(type, m_mediaThread);
        session->AddRef();  // the engine keeps one to stop it with the engine
        m_sessions.push_back(session);
        *out = session;
        return ZYN_S_OK;
    }

    ZynResult CreateTrack(ZynTrackKind kind, IZynMediaTrack** out) override
    {
        if (!out) return ZYN_E_POINTER;
        if (kind < ZynTrack_AudioLocal || kind > ZynTrack_RemoteScreenShare) return ZYN_E_INVALIDARG;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) return ZYN_E_WRONGSTATE;
        *out = new Track(kind);
        return ZYN_S_OK;
    }

    ZynResult GetNetworkIndicator(IZynNetworkIndicator** out) override
    {
        if (!out) return ZYN_E_POINTER;
        *out = new NetworkIndicator();
        return ZYN_S_OK;
    }

    ZynResult Stop() override
    {
        std::vector<Session*> sessions;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopped) return ZYN_S_FALSE;
            m_stopped = true;
            sessions = m_sessions;
        }
        for (Session* s : sessions) s->StopSession(nullptr);
        return ZYN_S_OK;
    }

    bool IsStopped() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopped;
    }

    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override { return m_options.Set(id, value, size); }
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override { return m_options.Get(id, value, size); }

private:
    const uint32_t m_id;
    const bool m_external;
    std::mutex m_mutex;
    std::vector<Session*> m_sessions;  // guarded by m_mutex
    bool m_stopped = false;            // guarded by m_mutex
    OptionStore m_options;
    std::shared_ptr<ACmThread> m_mediaThread;  // shared with the sessions, which may outlive the engine
};

}  // namespace
}  // namespace zynsim

ZynResult ZynInit(unsigned int)
{
    std::lock_guard<std::mutex> lock(zynsim::g_initMutex);
    ++zynsim::g_initCount;
    return ZYN_S_OK;
}

ZynResult ZynUninit()
{
    std::lock_guard<std::mutex> lock(zynsim::g_initMutex);
    if (zynsim::g_initCount == 0) return ZYN_E_WRONGSTATE;
    --zynsim::g_initCount;
    return ZYN_S_OK;
}

int ZynInitCount()
{
    std::lock_guard<std::mutex> lock(zynsim::g_initMutex);
    return zynsim::g_initCount;
}

ZynResult ZynCreateMediaEngineEx(IZynMediaEngineInternal** out, int reserved, uint32_t id, bool externalTransport)
{
    if (!out) return ZYN_E_POINTER;
    if (reserved != 0) return ZYN_E_INVALIDARG;
    if (ZynInitCount() == 0) return ZYN_E_WRONGSTATE;
    *out = new zynsim::Engine(id, externalTransport);
    return ZYN_S_OK;
}

ZynResult ZynSetMediaEngineOption(int32_t id, const void* value, uint32_t size)
{
    return zynsim::GlobalOptions().Set(id, value, size);
}

ZynResult ZynGetMediaEngineOption(int32_t id, void* value, uint32_t& size)
{
    return zynsim::GlobalOptions().Get(id, value, size);
}

ZynEngineVersion ZynGetVersion() { return ZynEngineVersion{1, 0, 0, 1}; }

const char* ZynGetBuildInfo() { return "zyn-sim " __DATE__ " " __TIME__; }

// The simulated capture delivers upright frames; no rotation extension is needed either way.
bool ZynDeviceSupportCVOSend() { return false; }
bool ZynDeviceSupportCVORecv() { return true; }
