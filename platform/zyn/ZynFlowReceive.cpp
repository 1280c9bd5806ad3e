// The receive side of a flow: RTP and RTCP from the network, on the line's network thread. One
// lock, no allocation: keyed packets are decrypted in the flow's scratch buffer, unkeyed ones are
// read where they are, and every stream lives in a fixed table.
#include <cstring>

#include "zyn/ZynMediaFlow.h"
#include "zyn/ZynRtcp.h"

namespace zynsim {

uint32_t MediaFlow::ReceiveClockRate(uint8_t payloadType) const
{
    for (size_t i = 0; i < m_receiveCodecCount; ++i)
        if (m_receiveCodecs[i].payloadType == payloadType) return m_receiveCodecs[i].clockRate;
    return m_profile.clockRate ? m_profile.clockRate : 90000;
}

const uint8_t* MediaFlow::Open(const uint8_t* data, uint32_t& length, bool rtcp)
{
    if (!m_receiveSrtp.IsKeyed()) return data;
    // The caller's bytes are const, and SRTP decrypts in place.
    std::memcpy(m_scratch, data, length);
    const size_t n = rtcp ? m_receiveSrtp.UnprotectRtcp(m_scratch, length) : m_receiveSrtp.UnprotectRtp(m_scratch, length);
    if (n == 0) {
        ++m_stats.srtpFailures;
        return nullptr;
    }
    length = static_cast<uint32_t>(n);
    return m_scratch;
}

void MediaFlow::CountReceiveRate(uint64_t nowMs)
{
    if (!m_rateStarted) {
        m_rateStarted = true;
        m_lastRateMs = nowMs;
    }
    if (nowMs - m_lastRateMs < 1000) return;
    m_stats.receiveKbps = (m_stats.bytesReceived - m_receiveBytesAtLastRate) * 8.0 / static_cast<double>(nowMs - m_lastRateMs);
    m_receiveBytesAtLastRate = m_stats.bytesReceived;
    m_lastRateMs = nowMs;
}

ZynResult MediaFlow::ReceiveRtp(const uint8_t* data, uint32_t length)
{
    if (!data || length < zynrtp::kRtpHeaderSize || length > kMaxReceive) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    const uint8_t* packet = Open(data, length, false);
    if (!packet) return ZYN_E_FAIL;
    const auto h = zynrtp::ReadRtpHeader(packet, length);
    if (!h) return ZYN_E_INVALIDARG;
    const uint64_t now = m_clock->NowMs();
    m_streams.OnRtp(*h, length, now, ReceiveClockRate(h->payloadType));
    ++m_stats.packetsReceived;
    m_stats.bytesReceived += length;
    CountReceiveRate(now);
    m_lastRemoteSsrc = h->ssrc;
    if (h->payloadType == m_receiveEventPayloadType) {
        // Events are signalling, not media: the renderer never sees them.
        OnTelephoneEvent(*h, packet + h->headerLength, static_cast<uint32_t>(length - h->headerLength));
        return ZYN_S_OK;
    }
    if (m_render && length > h->headerLength) m_render(packet + h->headerLength, static_cast<uint32_t>(length - h->headerLength));
    return ZYN_S_OK;
}

ZynResult MediaFlow::ReceiveRtcp(const uint8_t* data, uint32_t length)
{
    if (!data || length < 8 || length > kMaxReceive) return ZYN_E_INVALIDARG;
    uint32_t losses = 0;
    ZynResult result = ZYN_S_OK;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        result = ReadRtcp(data, length, losses);
    }
    // Outside the lock: the handler makes key frames, and a key frame may be sent at once.
    if (losses && m_onPictureLoss) m_onPictureLoss();
    return result;
}

ZynResult MediaFlow::ReadRtcp(const uint8_t* data, uint32_t length, uint32_t& losses)
{
    const uint8_t* packet = Open(data, length, true);
    if (!packet) return ZYN_E_FAIL;
    const uint64_t arrival = m_clock->NowNtp();
    zynrtp::RtcpCompound compound(packet, length);
    zynrtp::RtcpPacket p;
    zynrtp::Report report;
    while (compound.Next(p)) {
        if (zynrtp::ReadReport(p, report)) {
            if (report.isSender) m_streams.OnSenderReport(report.ssrc, report.ntp, arrival);
            for (uint8_t i = 0; i < report.blockCount; ++i) m_streams.OnBlockAboutUs(report.blocks[i], arrival);
        } else if (auto cname = zynrtp::ReadSdesCname(p)) {
            m_streams.OnCname(cname->first, cname->second);
        } else if (zynrtp::IsPictureLoss(p)) {
            ++losses;
            ++m_stats.pictureLossReceived;
        }
    }
    return compound.Malformed() ? ZYN_E_INVALIDARG : ZYN_S_OK;
}

ZynFlowStatistics MediaFlow::GetStatistics()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ZynFlowStatistics s = m_stats;
    m_streams.Aggregate(s);
    return s;
}

ZynResult MediaFlow::GetStreamStatistics(ZynStreamStatistics* streams, uint32_t& count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const size_t n = m_streams.Fill(streams, streams ? count : 0);
    const bool fits = n <= count && streams;
    count = static_cast<uint32_t>(n);
    return fits ? ZYN_S_OK : ZYN_E_INVALIDARG;
}

}  // namespace zynsim
