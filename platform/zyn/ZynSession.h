// An engine session: its tracks, options and CSIs, and the media flow that carries its packets.
// Any thread; the members say which lock guards them.
#pragma once

#include <map>
#include <vector>

#include "zyn/ZynMediaFlow.h"
#include "zyn/ZynMediaIo.h"
#include "zyn/ZynObject.h"

namespace zynsim {

class Session final : public RefCounted<IZynMediaSession> {
public:
    // Without a media thread the session moves only when the engine's owner runs Tick.
    // capture: the engine's capture level, which mutes local audio.
    Session(ZynSessionType type, IZynClock* clock, std::shared_ptr<ACmThread> mediaThread, std::string cname,
            std::shared_ptr<VolumeState> capture);
    ~Session() override;

    ZynSessionType GetSessionType() override { return m_type; }
    ZynResult AddTrack(IZynMediaTrack* track) override;
    ZynResult RemoveTrack(IZynMediaTrack* track) override;
    uint32_t GetTrackCount() override;
    ZynResult SetTransport(IZynMediaTransport* transport) override;
    ZynResult OnSendReady() override;
    IZynMediaTransport* GetTransport() override;
    ZynResult StopSession(int32_t* out) override;
    ZynResult GetCSI(uint32_t label, uint32_t& csi) override;
    ZynResult UpdateCSI(uint32_t label, uint32_t csi) override;
    ZynResult Failover() override;
    ZynResult SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume) override
    {
        return m_flow->SendTelephoneEvent(event, durationMs, volume);
    }
    ZynResult SendPictureLoss() override { return m_flow->SendPictureLoss(); }
    ZynResult ReceiveRTPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult ReceiveRTCPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult GetFlowStatistics(ZynFlowStatistics& stats) override;
    ZynResult GetStreamStatistics(ZynStreamStatistics* streams, uint32_t& count) override
    {
        return m_flow->GetStreamStatistics(streams, count);
    }
    ZynResult SetCodecPt(int direction, uint8_t payloadType, int32_t codecType, uint32_t clockRate) override
    {
        return m_flow->SetCodecPt(direction, payloadType, codecType, clockRate);
    }
    void Tick() { m_flow->Tick(); }
    ZynResult SetOption(int32_t id, const void* value, uint32_t size) override;
    ZynResult GetOption(int32_t id, void* value, uint32_t& size) override { return m_options.Get(id, value, size); }
    ZynResult SetNamedOption(const char* name, const char* value) override { return m_options.SetNamed(name, value); }
    ZynResult GetNamedOption(const char* name, char* value, uint32_t& size) override
    {
        return m_options.GetNamed(name, value, size);
    }

    bool IsStopped();

private:
    const ZynSessionType m_type;
    std::mutex m_mutex;
    std::vector<IZynMediaTrack*> m_tracks;  // one reference each; guarded by m_mutex
    std::map<uint32_t, uint32_t> m_csiByLabel;  // guarded by m_mutex
    IZynMediaTransport* m_transport = nullptr;  // not owned; guarded by m_mutex
    bool m_stopped = false;                     // guarded by m_mutex
    OptionStore m_options;
    SendSource GetSendSource();
    void RenderPayload(const uint8_t* data, uint32_t length);
    // The far end lost a picture: each running local video or share track makes a key frame.
    void OnPictureLoss();
    const std::shared_ptr<VolumeState> m_capture;
    ZynResult SetSrtpCrypto(const void* value, uint32_t size);

    // Copies of the last accepted keys, send and receive, that option 6 reads back through; wiped
    // when replaced and at the end. Guarded by m_keyMutex, which also orders the option's store.
    std::mutex m_keyMutex;
    uint8_t m_keys[2][64] = {};
    std::unique_ptr<MediaFlow> m_flow;  // made last, destroyed first: its timer reads the tracks
};

}  // namespace zynsim
