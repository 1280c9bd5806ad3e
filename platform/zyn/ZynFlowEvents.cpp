// What a flow sends besides media and reports: named telephone events and picture loss
// indications, on the application's thread, and the count of events received.
#include <cstring>

#include "zyn/ZynBytes.h"
#include "zyn/ZynMediaFlow.h"
#include "zyn/ZynRtcp.h"

namespace zynsim {

namespace {

constexpr size_t kEventPacket = 64;
constexpr uint8_t kEventEndBit = 0x80;
constexpr uint8_t kMaxEventVolume = 63;
// RFC 4733 2.5.1.4: the final packet goes three times, so a single loss does not lose the end.
constexpr int kEndRepeats = 3;

}  // namespace

void MediaFlow::SendOwnPacket(uint8_t* packet, size_t length, bool rtcp)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        zynrtp::SrtpContext& srtp = m_sendSrtp;
        if (srtp.IsKeyed())
            length = rtcp ? srtp.ProtectRtcp(packet, length, kEventPacket) : srtp.ProtectRtp(packet, length, kEventPacket);
    }
    if (length == 0) return;
    if (rtcp) {
        m_transport->SendRTCPPacket(packet, static_cast<uint32_t>(length));
        return;
    }
    if (ZYN_SUCCEEDED(m_transport->SendRTPPacket(packet, static_cast<uint32_t>(length)))) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_stats.packetsSent;
        m_stats.bytesSent += length;
    }
}

ZynResult MediaFlow::SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume)
{
    if (volume > kMaxEventVolume || durationMs == 0) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> sending(m_sendMutex);
    if (!m_transport) return ZYN_E_WRONGSTATE;
    zynrtp::RtpHeader h;
    uint32_t duration = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_sendEventPayloadType < 0) return ZYN_E_WRONGSTATE;
        h.payloadType = static_cast<uint8_t>(m_sendEventPayloadType);
        h.ssrc = m_ssrc;
        // The duration field is 16 bits of the event clock; a longer event is cut at its limit.
        duration = std::min<uint32_t>(uint32_t{durationMs} * m_sendEventClockRate / 1000, 0xFFFF);
        // The timestamp names the event (RFC 4733 2.3.3): one sent before the last one ended
        // starts where it ends, so that the receiver tells the two apart.
        const bool overlaps = m_eventSent && static_cast<int32_t>(m_nextEventTimestamp - m_timestamp) > 0;
        h.timestamp = overlaps ? m_nextEventTimestamp : m_timestamp;
        m_nextEventTimestamp = h.timestamp + duration;
        m_eventSent = true;
    }
    for (int i = 0; i < 1 + kEndRepeats; ++i) {
        uint8_t packet[kEventPacket];
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            h.sequence = m_sequence++;
        }
        h.marker = i == 0;  // the first packet of an event
        size_t n = zynrtp::WriteRtpHeader(h, packet, sizeof packet);
        packet[n] = event;
        packet[n + 1] = static_cast<uint8_t>((i == 0 ? 0 : kEventEndBit) | volume);
        zynrtp::Write16(packet + n + 2, static_cast<uint16_t>(i == 0 ? 0 : duration));
        SendOwnPacket(packet, n + 4, false);
    }
    return ZYN_S_OK;
}

ZynResult MediaFlow::SendPictureLoss()
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    if (!m_transport) return ZYN_E_WRONGSTATE;
    uint8_t packet[kEventPacket];
    size_t n = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        n = zynrtp::WritePictureLoss(m_ssrc, m_lastRemoteSsrc, packet, sizeof packet);
    }
    if (n == 0) return ZYN_E_FAIL;
    SendOwnPacket(packet, n, true);
    return ZYN_S_OK;
}

void MediaFlow::OnTelephoneEvent(const zynrtp::RtpHeader& header, const uint8_t* payload, uint32_t length)
{
    if (length < 4 || !(payload[1] & kEventEndBit)) return;
    // The end goes more than once, each with the event's timestamp: count the first only.
    if (m_eventEnded && header.timestamp == m_lastEventTimestamp) return;
    m_eventEnded = true;
    m_lastEventTimestamp = header.timestamp;
    ++m_stats.telephoneEventsReceived;
}

}  // namespace zynsim
