#include "zyn/ZynRtp.h"

#include "zyn/ZynBytes.h"

namespace zynrtp {

namespace {

// RFC 3550 A.1: a jump larger than this is a restart, not loss.
constexpr uint16_t kMaxDropout = 3000;
constexpr uint32_t kMaxMisorder = 100;

}  // namespace

size_t WriteRtpHeader(const RtpHeader& header, uint8_t* out, size_t capacity)
{
    if (!out || capacity < kRtpHeaderSize) return 0;
    out[0] = 0x80;
    out[1] = static_cast<uint8_t>((header.marker ? 0x80 : 0) | (header.payloadType & 0x7F));
    Write16(out + 2, header.sequence);
    Write32(out + 4, header.timestamp);
    Write32(out + 8, header.ssrc);
    return kRtpHeaderSize;
}

std::optional<RtpHeader> ReadRtpHeader(const uint8_t* data, size_t length)
{
    if (!data || length < kRtpHeaderSize || (data[0] >> 6) != 2) return std::nullopt;
    RtpHeader h;
    h.marker = (data[1] & 0x80) != 0;
    h.payloadType = data[1] & 0x7F;
    h.sequence = Read16(data + 2);
    h.timestamp = Read32(data + 4);
    h.ssrc = Read32(data + 8);
    size_t offset = kRtpHeaderSize + 4u * (data[0] & 0x0F);
    if (offset > length) return std::nullopt;
    if (data[0] & 0x10) {
        if (offset + 4 > length) return std::nullopt;
        offset += 4 + 4u * Read16(data + offset + 2);
        if (offset > length) return std::nullopt;
    }
    h.headerLength = offset;
    return h;
}

void ReceiveStatistics::OnPacket(const RtpHeader& header, size_t bytes, uint64_t arrivalMs)
{
    if (!m_started) {
        m_started = true;
        m_baseSeq = m_maxSeq = header.sequence;
    } else {
        uint16_t delta = static_cast<uint16_t>(header.sequence - m_maxSeq);
        if (delta != 0 && delta < kMaxDropout) {
            if (header.sequence < m_maxSeq) ++m_cycles;  // wrapped
            m_maxSeq = header.sequence;
        } else if (delta >= kMaxDropout && delta <= 0x10000 - kMaxMisorder) {
            // A very large jump: a source that restarted sends two in a row; a stray is ignored.
            if (header.sequence != m_badSeq) {
                m_badSeq = static_cast<uint16_t>(header.sequence + 1);
                return;
            }
            m_baseSeq = m_maxSeq = header.sequence;
            m_cycles = 0;
            m_received = 0;
        }
        // Older or duplicate packets still count as received, as the RFC does.
    }
    ++m_received;
    m_bytes += bytes;
    m_lastSeq = header.sequence;
    // Jitter, RFC 3550 6.4.1: transit = arrival (media clock) - timestamp; J += (|D| - J) / 16.
    int64_t arrival = static_cast<int64_t>(arrivalMs * m_clockRate / 1000);
    int64_t transit = arrival - static_cast<int64_t>(header.timestamp);
    if (m_received > 1) {
        int64_t d = transit - m_lastTransit;
        if (d < 0) d = -d;
        m_jitter += (static_cast<double>(d) - m_jitter) / 16.0;
    }
    m_lastTransit = transit;
}

uint32_t ReceiveStatistics::Expected() const
{
    if (!m_started) return 0;
    return ExtendedHighest() - m_baseSeq + 1;
}

}  // namespace zynrtp
