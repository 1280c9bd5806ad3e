#include "zyn/ZynSession.h"

#include "zyn/ZynSubscribe.h"
#include "zyn/ZynTrack.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

namespace zynsim {

Session::Session(ZynSessionType type, IZynClock* clock, std::shared_ptr<ACmThread> mediaThread, std::string cname,
                 std::shared_ptr<VolumeState> capture)
    : m_type(type), m_capture(std::move(capture))
{
    m_flow = std::make_unique<MediaFlow>(
        type, clock, std::move(mediaThread), [this] { return GetSendSource(); },
        [this](const uint8_t* data, uint32_t length) { RenderPayload(data, length); }, std::move(cname));
    m_flow->SetPictureLossHandler([this] { OnPictureLoss(); });
}

void Session::OnPictureLoss()
{
    std::vector<IZynMediaTrack*> local;  // one reference each
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (IZynMediaTrack* t : m_tracks) {
            if (!static_cast<Track*>(t)->IsLocal()) continue;
            t->AddRef();
            local.push_back(t);
        }
    }
    const ZynKeyFrameRequest request{};
    for (IZynMediaTrack* t : local) {
        // Audio tracks and stopped tracks refuse: only a running encoder has a picture to renew.
        t->SendCommand(ZynTrackCommand_KeyFrameRequest, &request, sizeof request);
        t->Release();
    }
}

Session::~Session()
{
    m_flow.reset();
    OPENSSL_cleanse(m_keys, sizeof(m_keys));
    for (IZynMediaTrack* t : m_tracks) t->Release();
}

SendSource Session::GetSendSource()
{
    SendSource source;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopped) return source;
    for (IZynMediaTrack* t : m_tracks) {
        auto* track = static_cast<Track*>(t);
        if (!track->IsLocal() || !track->IsStarted()) continue;
        source.running = true;
        // Held back data sends nothing; a muted microphone sends the muted mode's silence.
        source.sending = track->IsSendingData();
        const bool audio = m_type == ZynSessionType_Audio || m_type == ZynSessionType_AudioSlide;
        source.muted = audio && ((m_capture && m_capture->muted.load()) || track->IsExternalMuted());
        source.capturer = track->TakeCapturer();
        break;
    }
    return source;
}

void Session::RenderPayload(const uint8_t* data, uint32_t length)
{
    IZynMediaFileRenderer* renderer = nullptr;
    Track* shown = nullptr;  // with one reference: the first running remote track, which renders
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (IZynMediaTrack* t : m_tracks) {
            auto* track = static_cast<Track*>(t);
            if (track->IsLocal() || !track->IsStarted()) continue;
            renderer = track->TakeRenderer();
            track->AddRef();
            shown = track;
            break;
        }
    }
    if (!shown) return;
    shown->Render(data, length);
    shown->Release();
    if (!renderer) return;
    renderer->RenderPayload(data, length);
    renderer->Release();
}

ZynResult Session::ReceiveRTPPacket(const uint8_t* data, uint32_t length) { return m_flow->ReceiveRtp(data, length); }

ZynResult Session::ReceiveRTCPPacket(const uint8_t* data, uint32_t length) { return m_flow->ReceiveRtcp(data, length); }

ZynResult Session::SetOption(int32_t id, const void* value, uint32_t size)
{
    if (id == ZynSessionOption_SrtpCrypto) return SetSrtpCrypto(value, size);
    return m_options.Set(id, value, size);
}

ZynResult Session::SetSrtpCrypto(const void* value, uint32_t size)
{
    if (!value || size != sizeof(ZynSrtpCryptoRecord)) return ZYN_E_INVALIDARG;
    ZynSrtpCryptoRecord record;
    std::memcpy(&record, value, sizeof(record));
    const bool clear = record.suite == ZynSrtpSuite_NonSrtp;
    if (!clear) {
        const size_t keyLength = zynrtp::SrtpKeyLength(record.suite);
        const int32_t algorithm = record.suite == ZynSrtpSuite_NullCipherHmacSha1_80 ? 2 : 3;
        if (keyLength == 0 || record.keyLength != keyLength || !record.key) return ZYN_E_INVALIDARG;
        if (record.cipherAlgorithm != algorithm || record.authAlgorithm != algorithm) return ZYN_E_INVALIDARG;
        if (!zynrtp::SrtpSuiteAvailable(record.suite)) return ZYN_E_NOTIMPL;
    }
    std::lock_guard<std::mutex> lock(m_keyMutex);
    if (!m_flow->SetKey(record.direction, record.suite, record.key, record.keyLength)) return ZYN_E_INVALIDARG;
    uint8_t* copy = m_keys[record.direction == 2 ? 1 : 0];
    OPENSSL_cleanse(copy, sizeof(m_keys[0]));
    if (clear) {
        record.key = nullptr;
        record.keyLength = 0;
    } else {
        std::memcpy(copy, record.key, record.keyLength);
        record.key = copy;
    }
    return m_options.Set(ZynSessionOption_SrtpCrypto, &record, sizeof(record));
}

ZynResult Session::GetFlowStatistics(ZynFlowStatistics& stats)
{
    stats = m_flow->GetStatistics();
    return ZYN_S_OK;
}

ZynResult Session::AddTrack(IZynMediaTrack* track)
{
    if (!track) return ZYN_E_POINTER;
    // Only this engine's tracks: the flow reads their send state.
    if (!dynamic_cast<Track*>(track)) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_tracks.begin(), m_tracks.end(), track) != m_tracks.end()) return ZYN_E_DUPLICATE;
    track->AddRef();
    m_tracks.push_back(track);
    return ZYN_S_OK;
}

ZynResult Session::RemoveTrack(IZynMediaTrack* track)
{
    IZynMediaTrack* removed = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = std::find(m_tracks.begin(), m_tracks.end(), track);
        if (it == m_tracks.end()) return ZYN_E_NOTFOUND;
        removed = *it;
        m_tracks.erase(it);
    }
    removed->Release();
    return ZYN_S_OK;
}

uint32_t Session::GetTrackCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<uint32_t>(m_tracks.size());
}

ZynResult Session::SetTransport(IZynMediaTransport* transport)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_transport = transport;
    }
    // Once this returns, no frame goes to the old transport.
    m_flow->SetTransport(transport);
    return ZYN_S_OK;
}

ZynResult Session::OnSendReady()
{
    m_flow->OnSendReady();
    return ZYN_S_OK;
}

IZynMediaTransport* Session::GetTransport()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_transport;
}

ZynResult Session::StopSession(int32_t* out)
{
    std::vector<IZynMediaTrack*> tracks;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
        m_transport = nullptr;
        tracks = m_tracks;
    }
    m_flow->SetTransport(nullptr);
    for (IZynMediaTrack* t : tracks) t->Stop();
    if (out) *out = 0;
    return ZYN_S_OK;
}

bool Session::IsStopped()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopped;
}

ZynResult Session::GetCSI(uint32_t label, uint32_t& csi)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_csiByLabel.find(label);
    if (it == m_csiByLabel.end()) return ZYN_E_NOTFOUND;
    csi = it->second;
    return ZYN_S_OK;
}

ZynResult Session::UpdateCSI(uint32_t label, uint32_t csi)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_csiByLabel[label] = csi;
    return ZYN_S_OK;
}

ZynResult Session::Failover()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopped) return ZYN_E_WRONGSTATE;
    return ZYN_S_OK;
}

}  // namespace zynsim
