// The engine object and the library's entry points. Any thread; the members say which lock
// guards them.
#include <openssl/rand.h>

#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "zyn/ZynSrtp.h"
#include "zyn/ZynSession.h"
#include "zyn/ZynMediaIo.h"
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

// Offset of the NTP era from the Unix epoch, in seconds.
constexpr uint64_t kNtpUnixOffset = 2208988800ull;

class SystemClock final : public IZynClock {
public:
    uint64_t NowMs() override
    {
        using namespace std::chrono;
        return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }
    uint64_t NowNtp() override
    {
        using namespace std::chrono;
        const auto us = static_cast<uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
        const uint64_t seconds = us / 1000000 + kNtpUnixOffset;
        const uint64_t fraction = (us % 1000000) * (1ull << 32) / 1000000;
        return (seconds << 32) | fraction;
    }
};

SystemClock g_systemClock;

// RFC 7022: a random CNAME per engine instance, the same for all its sessions so the far end can
// tie its streams together, and telling nothing about the machine.
std::string RandomCname()
{
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    uint8_t bytes[16];
    if (RAND_bytes(bytes, sizeof(bytes)) != 1) {
        std::random_device device;
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(device());
    }
    std::string cname;
    for (uint8_t b : bytes) cname += kAlphabet[b % 64];
    return cname;
}

// Until received packets exist to judge by, every link counts as good.
class NetworkIndicator final : public RefCounted<IZynNetworkIndicator> {
public:
    int32_t GetNetworkIndex(int32_t direction) override { return (direction == 1 || direction == 2) ? 100 : -1; }
};

class Engine final : public RefCounted<IZynMediaEngineInternal> {
public:
    // A null clock: the system's, with one media thread per engine instance that makes and sends
    // the frames of all its sessions. Another clock: no thread; the owner runs the sessions.
    Engine(uint32_t id, bool externalTransport, IZynClock* clock)
        : m_id(id),
          m_external(externalTransport),
          m_clock(clock ? clock : &g_systemClock),
          m_manual(clock != nullptr),
          m_cname(RandomCname())
    {
        if (m_manual) {
            m_starts = std::make_shared<StartReports>(nullptr);
            return;
        }
        auto thread = std::make_shared<CCmLoopThread>();
        if (thread->Create("zyn-media", TT_USER_DEFINE_BASE) != CM_OK) return;
        m_mediaThread = thread;
        m_starts = std::make_shared<StartReports>(thread);
        // SRTP's first keying loads its crypto backend; done here, off the call's path, the first
        // keyed line of the process does not carry that cost between the handshake and its media.
        if (ICmEventQueue* queue = thread->GetEventQueue())
            queue->PostEvent(new CCmInvokeEvent([] {
                zynrtp::SrtpWarmUp();
                return CM_OK;
            }));
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
        auto* session = new Session(type, m_clock, m_mediaThread, m_cname, m_capture);
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
        *out = new Track(kind, m_starts);
        return ZYN_S_OK;
    }

    ZynResult CreateFileCapturer(const char* path, ZynRawFormat format, IZynMediaFileCapturer** out) override
    {
        if (!out) return ZYN_E_POINTER;
        ZynResult r = ZYN_S_OK;
        *out = FileCapturer::Open(path, format, r);
        return r;
    }
    ZynResult CreateFileRenderer(const char* path, ZynRawFormat format, IZynMediaFileRenderer** out) override
    {
        if (!out) return ZYN_E_POINTER;
        ZynResult r = ZYN_S_OK;
        *out = FileRenderer::Create(path, format, r);
        return r;
    }
    ZynResult GetVolumeControl(int32_t direction, IZynVolumeControl** out) override
    {
        if (!out) return ZYN_E_POINTER;
        if (direction != 0 && direction != 1) return ZYN_E_INVALIDARG;
        *out = new VolumeControl(direction == 0 ? m_capture : m_playout);
        return ZYN_S_OK;
    }
    ZynResult GetDevices(ZynDeviceKind kind, IZynMediaDevice** out, uint32_t& count) override
    {
        return m_devices.Get(kind, out, count);
    }
    ZynResult FindDevice(ZynDeviceKind kind, const char* name, IZynMediaDevice** out) override
    {
        return m_devices.Find(kind, name, out);
    }
    ZynResult AddDeviceObserver(IZynMediaDeviceObserver* observer) override { return m_devices.AddObserver(observer); }
    ZynResult RemoveDeviceObserver(IZynMediaDeviceObserver* observer) override
    {
        return m_devices.RemoveObserver(observer);
    }
    ZynResult SimulateDeviceChange(ZynDeviceKind kind, const char* name, bool added) override
    {
        return m_devices.Change(kind, name, added);
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

    ZYN_FORWARD_OPTIONS(m_options)

    ZynResult RunClock()
    {
        if (!m_manual) return ZYN_E_INVALIDARG;
        std::vector<Session*> sessions;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            sessions = m_sessions;
        }
        m_starts->RunPending();
        // The engine's references keep them alive: sessions leave the list only when it dies.
        for (Session* s : sessions)
            if (!s->IsStopped()) s->Tick();
        return ZYN_S_OK;
    }

private:
    const uint32_t m_id;
    const bool m_external;
    IZynClock* const m_clock;
    const bool m_manual;
    const std::string m_cname;
    std::mutex m_mutex;
    std::vector<Session*> m_sessions;  // guarded by m_mutex
    bool m_stopped = false;            // guarded by m_mutex
    OptionStore m_options;
    DeviceList m_devices;
    // The engine's capture and playout levels; sessions read the capture one as they send.
    const std::shared_ptr<VolumeState> m_capture = std::make_shared<VolumeState>();
    const std::shared_ptr<VolumeState> m_playout = std::make_shared<VolumeState>();
    std::shared_ptr<ACmThread> m_mediaThread;  // shared with the sessions, which may outlive the engine
    std::shared_ptr<StartReports> m_starts;     // shared with the tracks, which may outlive the engine
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

IZynClock* ZynSystemClock() { return &zynsim::g_systemClock; }

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
    *out = new zynsim::Engine(id, externalTransport, nullptr);
    return ZYN_S_OK;
}

ZynResult ZynCreateMediaEngineWithClock(IZynMediaEngineInternal** out, uint32_t id, IZynClock* clock)
{
    if (!out || !clock) return ZYN_E_POINTER;
    if (ZynInitCount() == 0) return ZYN_E_WRONGSTATE;
    *out = new zynsim::Engine(id, false, clock);
    return ZYN_S_OK;
}

ZynResult ZynRunEngineClock(IZynMediaEngineInternal* engine)
{
    auto* e = dynamic_cast<zynsim::Engine*>(engine);
    return e ? e->RunClock() : ZYN_E_INVALIDARG;
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
