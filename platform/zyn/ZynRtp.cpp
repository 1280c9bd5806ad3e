#include "zyn/ZynRtp.h"

namespace zynrtp {

namespace {

uint16_t Read16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
uint32_t Read32(const uint8_t* p)
{
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}
void Write16(uint8_t* p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}
void Write32(uint8_t* p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

// RFC 3550 A.1: a jump larger than this is a restart, not loss.
constexpr uint16_t kMaxDropout = 3000;
constexpr uint32_t kMaxMisorder = 100;
constexpr uint8_t kRtcpSenderReport = 200;
constexpr size_t kSenderReportSize = 28;
constexpr size_t kReportBlockSize = 24;

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

size_t WriteSenderReport(const SenderReport& r, uint8_t* out, size_t capacity)
{
    size_t size = kSenderReportSize + (r.hasBlock ? kReportBlockSize : 0);
    if (!out || capacity < size) return 0;
    out[0] = static_cast<uint8_t>(0x80 | (r.hasBlock ? 1 : 0));
    out[1] = kRtcpSenderReport;
    Write16(out + 2, static_cast<uint16_t>(size / 4 - 1));
    Write32(out + 4, r.ssrc);
    Write32(out + 8, static_cast<uint32_t>(r.ntp >> 32));
    Write32(out + 12, static_cast<uint32_t>(r.ntp));
    Write32(out + 16, r.rtpTimestamp);
    Write32(out + 20, r.packets);
    Write32(out + 24, r.octets);
    if (r.hasBlock) {
        uint8_t* b = out + kSenderReportSize;
        Write32(b, r.sourceSsrc);
        b[4] = r.fractionLost;
        uint32_t lost = static_cast<uint32_t>(r.cumulativeLost) & 0xFFFFFF;
        b[5] = static_cast<uint8_t>(lost >> 16);
        b[6] = static_cast<uint8_t>(lost >> 8);
        b[7] = static_cast<uint8_t>(lost);
        Write32(b + 8, r.highestSeq);
        Write32(b + 12, r.jitter);
        Write32(b + 16, r.lastSr);
        Write32(b + 20, r.delaySinceLastSr);
    }
    return size;
}

std::optional<SenderReport> ReadSenderReport(const uint8_t* data, size_t length)
{
    if (!data || length < kSenderReportSize || (data[0] >> 6) != 2 || data[1] != kRtcpSenderReport)
        return std::nullopt;
    size_t declared = (static_cast<size_t>(Read16(data + 2)) + 1) * 4;
    unsigned blocks = data[0] & 0x1F;
    if (declared > length || declared < kSenderReportSize + blocks * kReportBlockSize) return std::nullopt;
    SenderReport r;
    r.ssrc = Read32(data + 4);
    r.ntp = (static_cast<uint64_t>(Read32(data + 8)) << 32) | Read32(data + 12);
    r.rtpTimestamp = Read32(data + 16);
    r.packets = Read32(data + 20);
    r.octets = Read32(data + 24);
    if (blocks > 0) {
        const uint8_t* b = data + kSenderReportSize;
        r.hasBlock = true;
        r.sourceSsrc = Read32(b);
        r.fractionLost = b[4];
        uint32_t lost = (static_cast<uint32_t>(b[5]) << 16) | (b[6] << 8) | b[7];
        r.cumulativeLost = (lost & 0x800000) ? static_cast<int32_t>(lost | 0xFF000000u) : static_cast<int32_t>(lost);
        r.highestSeq = Read32(b + 8);
        r.jitter = Read32(b + 12);
        r.lastSr = Read32(b + 16);
        r.delaySinceLastSr = Read32(b + 20);
    }
    return r;
}

std::optional<double> RoundTripMs(const SenderReport& received, uint64_t arrivalNtp)
{
    if (!received.hasBlock || received.lastSr == 0) return std::nullopt;
    // RFC 3550 6.4.1: A - LSR - DLSR, all in the middle 32 bits of NTP (1/65536 s).
    uint32_t arrival = static_cast<uint32_t>(arrivalNtp >> 16);
    uint32_t rtt = arrival - received.lastSr - received.delaySinceLastSr;
    if (static_cast<int32_t>(rtt) < 0) return 0.0;
    return rtt * 1000.0 / 65536.0;
}

}  // namespace zynrtp
