// The packets of one engine session. Each tick makes the synthetic frames due at the rate of the
// media kind while a local track runs and sends them, SRTP-protected when keyed, on the agreed
// payload type through the session's transport; each second it sends a compound RTCP packet (a
// sender or receiver report with a block per remote source, and our CNAME). What the network
// delivers is checked, decrypted in a scratch buffer and counted per stream.
//
// Threads: ticks come from a timer on the engine's media thread, or from the engine's owner when
// the engine runs on a clock of its own; packets arrive on the line's network thread; settings
// and statistics come from any thread. The members say which lock guards them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtp.h"
#include "zyn/ZynSrtp.h"
#include "zyn/ZynStreams.h"

namespace zynsim {

struct FlowProfile {
    uint8_t payloadType;
    uint32_t clockRate;
    uint32_t frameMs;
    uint32_t bytesPerFrame;  // payload of one frame
    uint32_t maxPayload;     // per packet; a larger frame is split
};

// Opus-like audio at 32 kbit/s, 30 fps video at about 600 kbit/s, 5 fps sharing.
FlowProfile ProfileOf(ZynSessionType type);

// What the session's local track wants sent at a tick.
struct SendSource {
    bool running = false;  // a local track runs
    bool sending = false;  // ... and its data is not held back
    bool muted = false;    // audio in the muted mode
    IZynMediaFileCapturer* capturer = nullptr;  // one reference, or null: the payload's bytes
};

class MediaFlow : public CCmTimerWrapperIDSink {
public:
    // sendSource is asked on each tick: frames are made only while a local track runs and sends.
    // render takes the payload of every RTP packet received (under the flow's lock). Without a
    // media thread nothing ticks but the owner's calls to Tick. cname goes into every report.
    MediaFlow(ZynSessionType type, IZynClock* clock, std::shared_ptr<ACmThread> mediaThread,
              std::function<SendSource()> sendSource, std::function<void(const uint8_t*, uint32_t)> render,
              std::string cname);
    ~MediaFlow() override;

    // A new transport starts unblocked.
    void SetTransport(IZynMediaTransport* transport);
    // The transport that refused a packet as would-block takes packets again.
    void OnSendReady();
    // direction 2 receive, any other send. suite ZynSrtpSuite_NonSrtp drops the key of that direction.
    bool SetKey(int32_t direction, int32_t suite, const uint8_t* keySalt, size_t length);
    ZynResult SetCodecPt(int direction, uint8_t payloadType, int32_t codecType, uint32_t clockRate);
    // Sends the frames and the report that are due by the clock.
    void Tick();

    // The receive path: no allocation, one lock.
    ZynResult ReceiveRtp(const uint8_t* data, uint32_t length);
    ZynResult ReceiveRtcp(const uint8_t* data, uint32_t length);

    // Telephone events and picture loss (ZynFlowEvents.cpp), any thread.
    ZynResult SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume);
    ZynResult SendPictureLoss();
    // Called after a received RTCP packet carried picture loss indications, outside the flow's locks.
    void SetPictureLossHandler(std::function<void()> handler) { m_onPictureLoss = std::move(handler); }

    ZynFlowStatistics GetStatistics();
    ZynResult GetStreamStatistics(ZynStreamStatistics* streams, uint32_t& count);

    void OnTimer(CCmTimerWrapperID* id) override;

private:
    // One frame: the capturer's next bytes, or the synthetic pattern; muted audio sends the short
    // silence frame of the muted mode.
    void SendFrame(IZynMediaFileCapturer* capturer, bool muted);
    void SendReport(uint64_t nowMs);
    // Under m_mutex.
    uint32_t ReceiveClockRate(uint8_t payloadType) const;
    // Under m_mutex: the unprotected bytes of a received packet, in place when unkeyed; null when
    // SRTP refused it (counted).
    const uint8_t* Open(const uint8_t* data, uint32_t& length, bool rtcp);
    void CountReceiveRate(uint64_t nowMs);
    // Under m_mutex: one compound packet; losses counts its picture loss indications.
    ZynResult ReadRtcp(const uint8_t* data, uint32_t length, uint32_t& losses);
    // Under m_mutex: a received packet on the telephone-event payload type; counts each event once.
    void OnTelephoneEvent(const zynrtp::RtpHeader& header, const uint8_t* payload, uint32_t length);
    // Under m_sendMutex: an RTP or RTCP packet of this flow, protected when keyed, to the transport.
    void SendOwnPacket(uint8_t* packet, size_t length, bool rtcp);

    // Received payload types whose clock is known.
    static constexpr size_t kMaxReceiveCodecs = 16;
    // The largest packet taken from the network: the media line's reassembly buffer.
    static constexpr size_t kMaxReceive = 16384;
    struct ReceiveCodec {
        uint8_t payloadType;
        uint32_t clockRate;
    };

    const ZynSessionType m_type;
    const FlowProfile m_profile;
    IZynClock* const m_clock;
    const std::string m_cname;
    std::shared_ptr<ACmThread> m_thread;
    std::function<SendSource()> m_sendSource;
    std::function<void(const uint8_t*, uint32_t)> m_render;
    CCmTimerWrapperID m_timer;  // media thread

    // Held while a packet goes to the transport, never taken under m_mutex: the transport may hand
    // the packet straight to another session, whose receive path takes that one's m_mutex.
    std::mutex m_sendMutex;
    IZynMediaTransport* m_transport = nullptr;  // guarded by m_sendMutex
    bool m_sendBlocked = false;                 // guarded by m_sendMutex

    std::mutex m_mutex;  // everything below up to the tick state
    zynrtp::SrtpContext m_sendSrtp;
    zynrtp::SrtpContext m_receiveSrtp;
    const uint32_t m_ssrc;
    uint16_t m_sequence;
    uint32_t m_timestamp;
    uint8_t m_sendPayloadType;
    uint32_t m_sendClockRate;
    int32_t m_sendCodecType = 0;
    ReceiveCodec m_receiveCodecs[kMaxReceiveCodecs] = {};
    int16_t m_sendEventPayloadType = -1;     // telephone events: -1 until agreed
    uint32_t m_sendEventClockRate = 8000;
    bool m_eventSent = false;
    uint32_t m_nextEventTimestamp = 0;  // where the last event sent ends
    int16_t m_receiveEventPayloadType = -1;
    bool m_eventEnded = false;       // an end packet arrived for m_lastEventTimestamp
    uint32_t m_lastEventTimestamp = 0;
    uint32_t m_lastRemoteSsrc = 0;   // the stream a picture loss indication is about
    std::function<void()> m_onPictureLoss;  // set before packets flow
    size_t m_receiveCodecCount = 0;
    zynrtp::StreamTable m_streams;
    ZynFlowStatistics m_stats{};
    uint64_t m_payloadOctetsSent = 0;  // for the sender report's octet count
    uint64_t m_sentAtLastReport = 0;
    bool m_sentBeforeLastReport = false;
    uint64_t m_receiveBytesAtLastRate = 0;
    uint64_t m_lastRateMs = 0;
    bool m_rateStarted = false;
    uint8_t m_scratch[kMaxReceive];  // where keyed packets are decrypted

    // Touched only by Tick.
    bool m_sending = false;  // a local track ran at the last tick
    uint32_t m_mutedFrames = 0;  // frames since the last silence frame while muted
    uint64_t m_nextFrameMs = 0;
    bool m_reporting = false;
    uint64_t m_lastReportMs = 0;
};

}  // namespace zynsim
