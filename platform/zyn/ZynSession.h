#pragma once

#include <map>
#include <vector>

#include "zyn/ZynMediaFlow.h"
#include "zyn/ZynObject.h"

namespace zynsim {

class Session final : public RefCounted<IZynMediaSession> {
public:
    Session(ZynSessionType type, std::shared_ptr<ACmThread> mediaThread);
    ~Session() override;

    ZynSessionType GetSessionType() override { return m_type; }
    ZynResult AddTrack(IZynMediaTrack* track) override;
    ZynResult RemoveTrack(IZynMediaTrack* track) override;
    uint32_t GetTrackCount() override;
    ZynResult SetTransport(IZynMediaTransport* transport) override;
    IZynMediaTransport* GetTransport() override;
    ZynResult StopSession(int32_t* out) override;
    ZynResult GetCSI(uint32_t label, uint32_t& csi) override;
    ZynResult UpdateCSI(uint32_t label, uint32_t csi) override;
    ZynResult Failover() override;
    ZynResult ReceiveRTPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult ReceiveRTCPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult SetSrtpKey(int direction, const char* suite, const uint8_t* keySalt, uint32_t length) override;
    ZynResult GetFlowStatistics(ZynFlowStatistics& stats) override;
    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override { return m_options.Set(id, value, size); }
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override { return m_options.Get(id, value, size); }

    bool IsStopped();

private:
    const ZynSessionType m_type;
    std::mutex m_mutex;
    std::vector<IZynMediaTrack*> m_tracks;  // one reference each; guarded by m_mutex
    std::map<uint32_t, uint32_t> m_csiByLabel;  // guarded by m_mutex
    IZynMediaTransport* m_transport = nullptr;  // not owned; guarded by m_mutex
    bool m_stopped = false;                     // guarded by m_mutex
    OptionStore m_options;
    bool HasRunningLocalTrack();
    std::unique_ptr<MediaFlow> m_flow;  // made last, destroyed first: its timer reads the tracks
};

}  // namespace zynsim
