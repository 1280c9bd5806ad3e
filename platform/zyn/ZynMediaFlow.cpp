#include "zyn/ZynMediaFlow.h"

#include <chrono>
#include <cstring>
#include <random>

#include "tp/CmThreadManager.h"
#include "mediasession/ZynMediaConfig.h"
#include "zyn/ZynCodecs.h"

namespace zynsim {

namespace {

// The room a packet needs: header, the largest payload, and the SRTP trailer.
constexpr size_t kPacketBuffer = 1500;
// A tick that finds more frames than this due (a stalled thread, a clock jump) starts afresh
// rather than sending a burst.
constexpr uint64_t kMaxFramesBehind = 5;

uint32_t Random32()
{
    static thread_local std::mt19937 generator{std::random_device("default")()};
    return generator();
}

}  // namespace

FlowProfile ProfileOf(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return {111, 48000, 20, 80, 1200};
    case ZynSessionType_Video: return {102, 90000, 33, 2500, 1200};
    case ZynSessionType_ScreenShare: return {102, 90000, 200, 6000, 1200};
    default: return {0, 0, 0, 0, 0};
    }
}

// Codec types a session of the kind may be told of: its media kind's list, and the ones that ride
// beside any media.
bool CodecFitsSession(int32_t codecType, ZynSessionType type)
{
    if (codecType == ZynCodecType_FEC || codecType == ZynCodecType_RTX) return true;
    const bool audio = type == ZynSessionType_Audio || type == ZynSessionType_AudioSlide;
    const bool video = type == ZynSessionType_Video || type == ZynSessionType_ScreenShare;
    if (!audio && !video) return false;
    if (audio && (codecType == ZynCodecType_DTMF || codecType == ZynCodecType_CN)) return true;
    const ZynEngineCodecInfo* list = nullptr;
    const size_t n = ZynGetMediaCodecs(audio ? ZynCodecMedia_Audio : ZynCodecMedia_Video, &list);
    for (size_t i = 0; i < n; ++i)
        if (list[i].codecType == codecType) return true;
    return false;
}

// What carries media: not DTMF, comfort noise, FEC or RTX.
bool IsMediaCodec(int32_t codecType)
{
    return codecType != ZynCodecType_DTMF && codecType != ZynCodecType_CN && codecType != ZynCodecType_FEC &&
           codecType != ZynCodecType_RTX;
}

MediaFlow::MediaFlow(ZynSessionType type, IZynClock* clock, std::shared_ptr<ACmThread> mediaThread,
                     std::function<bool()> hasLocalTrack)
    : m_type(type),
      m_profile(ProfileOf(type)),
      m_clock(clock),
      m_thread(std::move(mediaThread)),
      m_hasLocalTrack(std::move(hasLocalTrack)),
      m_ssrc(Random32()),
      m_sequence(static_cast<uint16_t>(Random32())),
      m_timestamp(Random32()),
      m_sendPayloadType(m_profile.payloadType),
      m_sendClockRate(m_profile.clockRate)
{
    if (!m_thread || m_profile.frameMs == 0) return;
    CmInvokeInThread(m_thread.get(), false, [this] {
        return m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(m_profile.frameMs));
    });
}

MediaFlow::~MediaFlow()
{
    // Waits out a frame in progress on the media thread.
    m_timer.Cancel();
}

void MediaFlow::SetTransport(IZynMediaTransport* transport)
{
    std::lock_guard<std::mutex> lock(m_sendMutex);
    m_transport = transport;
}

bool MediaFlow::SetKey(int32_t direction, int32_t suite, const uint8_t* keySalt, size_t length)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool receive = direction == 2;
    zynrtp::SrtpContext& context = receive ? m_receiveSrtp : m_sendSrtp;
    if (suite == ZynSrtpSuite_NonSrtp) {
        context.Clear();
        return true;
    }
    using Direction = zynrtp::SrtpContext::Direction;
    return context.SetKey(receive ? Direction::Receive : Direction::Send, suite, keySalt, length);
}

ZynResult MediaFlow::SetCodecPt(int direction, uint8_t payloadType, int32_t codecType, uint32_t clockRate)
{
    if ((direction != 1 && direction != 2) || payloadType > 127 || clockRate == 0) return ZYN_E_INVALIDARG;
    if (!CodecFitsSession(codecType, m_type)) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (direction == 1) {
        // Only a media codec changes what the frames go out as; the others would ride beside it.
        if (IsMediaCodec(codecType)) {
            m_sendPayloadType = payloadType;
            m_sendClockRate = clockRate;
        }
        return ZYN_S_OK;
    }
    for (size_t i = 0; i < m_receiveCodecCount; ++i) {
        if (m_receiveCodecs[i].payloadType == payloadType) {
            m_receiveCodecs[i].clockRate = clockRate;
            return ZYN_S_OK;
        }
    }
    if (m_receiveCodecCount == kMaxReceiveCodecs) return ZYN_E_FAIL;
    m_receiveCodecs[m_receiveCodecCount++] = {payloadType, clockRate};
    return ZYN_S_OK;
}

uint32_t MediaFlow::ReceiveClockRate(uint8_t payloadType) const
{
    for (size_t i = 0; i < m_receiveCodecCount; ++i)
        if (m_receiveCodecs[i].payloadType == payloadType) return m_receiveCodecs[i].clockRate;
    return m_profile.clockRate ? m_profile.clockRate : 90000;
}

void MediaFlow::OnTimer(CCmTimerWrapperID*) { Tick(); }

void MediaFlow::Tick()
{
    if (m_profile.frameMs == 0) return;
    const uint64_t now = m_clock->NowMs();
    const bool sending = m_hasLocalTrack && m_hasLocalTrack();
    if (!sending) {
        m_sending = false;
    } else {
        if (!m_sending || now > m_nextFrameMs + kMaxFramesBehind * m_profile.frameMs) m_nextFrameMs = now;
        m_sending = true;
        while (m_nextFrameMs <= now) {
            SendFrame();
            m_nextFrameMs += m_profile.frameMs;
        }
    }
    if (!m_reporting) {
        m_reporting = true;
        m_lastReportMs = now;
    }
    if (now - m_lastReportMs >= 1000) SendReport(now);
}

void MediaFlow::SendFrame()
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    uint32_t left = m_profile.bytesPerFrame;
    uint8_t payloadType = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_timestamp += static_cast<uint32_t>(uint64_t{m_sendClockRate} * m_profile.frameMs / 1000);
        payloadType = m_sendPayloadType;
    }
    if (!m_transport) return;
    while (left > 0) {
        uint32_t payload = left < m_profile.maxPayload ? left : m_profile.maxPayload;
        left -= payload;
        uint8_t packet[kPacketBuffer];
        size_t n = 0;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            zynrtp::RtpHeader h;
            h.payloadType = payloadType;
            h.marker = left == 0;
            h.sequence = m_sequence++;
            h.timestamp = m_timestamp;
            h.ssrc = m_ssrc;
            n = zynrtp::WriteRtpHeader(h, packet, sizeof(packet));
            for (uint32_t i = 0; i < payload; ++i) packet[n + i] = static_cast<uint8_t>(h.sequence + i);
            n += payload;
            if (m_sendSrtp.IsKeyed()) n = m_sendSrtp.ProtectRtp(packet, n, sizeof(packet));
        }
        if (n == 0) continue;
        if (ZYN_SUCCEEDED(m_transport->SendRTPPacket(packet, static_cast<uint32_t>(n)))) {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_stats.packetsSent;
            m_stats.bytesSent += n;
        }
    }
}

void MediaFlow::SendReport(uint64_t now)
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    uint8_t packet[kPacketBuffer];
    size_t n = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastReportMs = now;
        if (!m_transport) return;
        zynrtp::SenderReport sr;
        sr.ssrc = m_ssrc;
        sr.ntp = m_clock->NowNtp();
        sr.rtpTimestamp = m_timestamp;
        sr.packets = static_cast<uint32_t>(m_stats.packetsSent);
        sr.octets = static_cast<uint32_t>(m_stats.bytesSent);
        // One block about the busiest remote source, answering its last SR for the round trip.
        const zynrtp::ReceiveStatistics* busiest = nullptr;
        uint32_t busiestSsrc = 0;
        for (auto& [ssrc, stats] : m_sources) {
            if (!busiest || stats.Received() > busiest->Received()) {
                busiest = &stats;
                busiestSsrc = ssrc;
            }
        }
        if (busiest) {
            sr.hasBlock = true;
            sr.sourceSsrc = busiestSsrc;
            int64_t lost = busiest->Lost();
            sr.cumulativeLost = static_cast<int32_t>(lost < -0x800000 ? -0x800000 : (lost > 0x7FFFFF ? 0x7FFFFF : lost));
            sr.highestSeq = busiest->ExtendedHighest();
            sr.jitter = busiest->Jitter();
            if (m_lastRemoteSrArrivalNtp) {
                sr.lastSr = m_lastRemoteSrMiddle;
                sr.delaySinceLastSr = static_cast<uint32_t>((sr.ntp - m_lastRemoteSrArrivalNtp) >> 16);
            }
        }
        n = zynrtp::WriteSenderReport(sr, packet, sizeof(packet));
        if (m_sendSrtp.IsKeyed()) n = m_sendSrtp.ProtectRtcp(packet, n, sizeof(packet));
    }
    if (n) m_transport->SendRTCPPacket(packet, static_cast<uint32_t>(n));
}

ZynResult MediaFlow::ReceiveRtp(const uint8_t* data, uint32_t length)
{
    if (!data || length < zynrtp::kRtpHeaderSize || length > kPacketBuffer + 512) return ZYN_E_INVALIDARG;
    uint8_t packet[kPacketBuffer + 512];
    std::memcpy(packet, data, length);
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = length;
    if (m_receiveSrtp.IsKeyed()) {
        n = m_receiveSrtp.UnprotectRtp(packet, n);
        if (n == 0) {
            ++m_stats.srtpFailures;
            return ZYN_E_FAIL;
        }
    }
    auto h = zynrtp::ReadRtpHeader(packet, n);
    if (!h) return ZYN_E_INVALIDARG;
    uint64_t now = m_clock->NowMs();
    auto it = m_sources.try_emplace(h->ssrc, ReceiveClockRate(h->payloadType)).first;
    it->second.OnPacket(*h, n, now);
    ++m_stats.packetsReceived;
    m_stats.bytesReceived += n;
    if (m_lastRateMs == 0) m_lastRateMs = now;
    if (now - m_lastRateMs >= 1000) {
        m_stats.receiveKbps = (m_stats.bytesReceived - m_receiveBytesAtLastRate) * 8.0 / (now - m_lastRateMs);
        m_receiveBytesAtLastRate = m_stats.bytesReceived;
        m_lastRateMs = now;
    }
    return ZYN_S_OK;
}

ZynResult MediaFlow::ReceiveRtcp(const uint8_t* data, uint32_t length)
{
    if (!data || length < 8 || length > kPacketBuffer + 512) return ZYN_E_INVALIDARG;
    uint8_t packet[kPacketBuffer + 512];
    std::memcpy(packet, data, length);
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = length;
    if (m_receiveSrtp.IsKeyed()) {
        n = m_receiveSrtp.UnprotectRtcp(packet, n);
        if (n == 0) {
            ++m_stats.srtpFailures;
            return ZYN_E_FAIL;
        }
    }
    auto sr = zynrtp::ReadSenderReport(packet, n);
    if (!sr) return ZYN_E_INVALIDARG;
    uint64_t arrival = m_clock->NowNtp();
    m_lastRemoteSrMiddle = static_cast<uint32_t>(sr->ntp >> 16);
    m_lastRemoteSrArrivalNtp = arrival;
    if (sr->hasBlock && sr->sourceSsrc == m_ssrc && sr->lastSr != 0)
        if (auto rtt = zynrtp::RoundTripMs(*sr, arrival)) m_stats.rttMs = *rtt;
    return ZYN_S_OK;
}

ZynFlowStatistics MediaFlow::GetStatistics()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ZynFlowStatistics s = m_stats;
    int64_t lost = 0;
    uint64_t expected = 0;
    uint32_t most = 0;
    for (auto& [ssrc, stats] : m_sources) {
        lost += stats.Lost();
        expected += stats.Expected();
        if (stats.Received() >= most) {
            most = stats.Received();
            s.jitterMs = stats.JitterMs();
        }
    }
    s.packetsLost = lost;
    s.lossRatio = expected ? static_cast<double>(lost > 0 ? lost : 0) / static_cast<double>(expected) : 0;
    return s;
}

}  // namespace zynsim
