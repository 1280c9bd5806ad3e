#include "zyn/ZynMediaFlow.h"

#include <chrono>
#include <cstring>
#include <random>

#include "tp/CmThreadManager.h"

namespace zynsim {

namespace {

// The room a packet needs: header, the largest payload, and the SRTP trailer.
constexpr size_t kPacketBuffer = 1500;
// Offset of the NTP era from the Unix epoch, in seconds.
constexpr uint64_t kNtpUnixOffset = 2208988800ull;

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

MediaFlow::MediaFlow(ZynSessionType type, std::shared_ptr<ACmThread> mediaThread, std::function<bool()> hasLocalTrack)
    : m_type(type),
      m_profile(ProfileOf(type)),
      m_thread(std::move(mediaThread)),
      m_hasLocalTrack(std::move(hasLocalTrack)),
      m_ssrc(Random32()),
      m_sequence(static_cast<uint16_t>(Random32())),
      m_timestamp(Random32())
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

uint64_t MediaFlow::NowMs()
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

uint64_t MediaFlow::NtpNow()
{
    auto us = std::chrono::duration_cast<std::chrono::microseconds>(
                  std::chrono::system_clock::now().time_since_epoch())
                  .count();
    uint64_t seconds = static_cast<uint64_t>(us) / 1000000 + kNtpUnixOffset;
    uint64_t fraction = (static_cast<uint64_t>(us) % 1000000) * (1ull << 32) / 1000000;
    return (seconds << 32) | fraction;
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

void MediaFlow::OnTimer(CCmTimerWrapperID*)
{
    uint64_t now = NowMs();
    if (m_hasLocalTrack && m_hasLocalTrack()) SendFrame(now);
    if (now - m_lastReportMs >= 1000) SendReport(now);
}

void MediaFlow::SendFrame(uint64_t)
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    uint32_t left = m_profile.bytesPerFrame;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_timestamp += m_profile.clockRate / 1000 * m_profile.frameMs;
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
            h.payloadType = m_profile.payloadType;
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
        sr.ntp = NtpNow();
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
    uint64_t now = NowMs();
    auto it = m_sources.try_emplace(h->ssrc, m_profile.clockRate ? m_profile.clockRate : 90000).first;
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
    uint64_t arrival = NtpNow();
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
