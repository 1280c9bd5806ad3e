#include "zyn/ZynSession.h"

#include <algorithm>

namespace zynsim {

Session::Session(ZynSessionType type, std::shared_ptr<ACmThread> mediaThread) : m_type(type)
{
    m_flow = std::make_unique<MediaFlow>(type, std::move(mediaThread), [this] { return HasRunningLocalTrack(); });
}

Session::~Session()
{
    m_flow.reset();
    for (IZynMediaTrack* t : m_tracks) t->Release();
}

bool Session::HasRunningLocalTrack()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopped) return false;
    for (IZynMediaTrack* t : m_tracks)
        if (t->GetKind() < ZynTrack_RemoteAudio && t->IsStarted()) return true;
    return false;
}

ZynResult Session::ReceiveRTPPacket(const uint8_t* data, uint32_t length) { return m_flow->ReceiveRtp(data, length); }

ZynResult Session::ReceiveRTCPPacket(const uint8_t* data, uint32_t length) { return m_flow->ReceiveRtcp(data, length); }

ZynResult Session::SetSrtpKey(int direction, const char* suite, const uint8_t* keySalt, uint32_t length)
{
    if (!suite || !keySalt) return ZYN_E_POINTER;
    return m_flow->SetKey(direction, suite, keySalt, length) ? ZYN_S_OK : ZYN_E_INVALIDARG;
}

ZynResult Session::GetFlowStatistics(ZynFlowStatistics& stats)
{
    stats = m_flow->GetStatistics();
    return ZYN_S_OK;
}

ZynResult Session::AddTrack(IZynMediaTrack* track)
{
    if (!track) return ZYN_E_POINTER;
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
