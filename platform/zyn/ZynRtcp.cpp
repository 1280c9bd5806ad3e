#include "zyn/ZynRtcp.h"

#include <cstring>

#include "zyn/ZynBytes.h"

namespace zynrtp {

namespace {

constexpr size_t kHeaderSize = 8;         // first word and the sender's SSRC
constexpr size_t kSenderInfoSize = 20;    // NTP, RTP timestamp, packet and octet counts
constexpr size_t kReportBlockSize = 24;
constexpr uint8_t kSdesEnd = 0;
constexpr uint8_t kSdesCname = 1;

void WriteHeader(uint8_t* out, uint8_t count, uint8_t type, size_t size)
{
    out[0] = static_cast<uint8_t>(0x80 | count);
    out[1] = type;
    Write16(out + 2, static_cast<uint16_t>(size / 4 - 1));
}

void WriteBlock(const ReportBlock& b, uint8_t* out)
{
    Write32(out, b.ssrc);
    out[4] = b.fractionLost;
    const uint32_t lost = static_cast<uint32_t>(b.cumulativeLost) & 0xFFFFFF;
    out[5] = static_cast<uint8_t>(lost >> 16);
    out[6] = static_cast<uint8_t>(lost >> 8);
    out[7] = static_cast<uint8_t>(lost);
    Write32(out + 8, b.highestSequence);
    Write32(out + 12, b.jitter);
    Write32(out + 16, b.lastSr);
    Write32(out + 20, b.delaySinceLastSr);
}

ReportBlock ReadBlock(const uint8_t* in)
{
    ReportBlock b;
    b.ssrc = Read32(in);
    b.fractionLost = in[4];
    const uint32_t lost = (static_cast<uint32_t>(in[5]) << 16) | (static_cast<uint32_t>(in[6]) << 8) | in[7];
    b.cumulativeLost = (lost & 0x800000) ? static_cast<int32_t>(lost | 0xFF000000u) : static_cast<int32_t>(lost);
    b.highestSequence = Read32(in + 8);
    b.jitter = Read32(in + 12);
    b.lastSr = Read32(in + 16);
    b.delaySinceLastSr = Read32(in + 20);
    return b;
}

}  // namespace

size_t WriteReport(const Report& r, uint8_t* out, size_t capacity)
{
    if (!out || r.blockCount > kMaxReportBlocks) return 0;
    const size_t size = kHeaderSize + (r.isSender ? kSenderInfoSize : 0) + r.blockCount * kReportBlockSize;
    if (capacity < size) return 0;
    WriteHeader(out, r.blockCount, r.isSender ? kRtcpSenderReport : kRtcpReceiverReport, size);
    Write32(out + 4, r.ssrc);
    uint8_t* p = out + kHeaderSize;
    if (r.isSender) {
        Write32(p, static_cast<uint32_t>(r.ntp >> 32));
        Write32(p + 4, static_cast<uint32_t>(r.ntp));
        Write32(p + 8, r.rtpTimestamp);
        Write32(p + 12, r.packets);
        Write32(p + 16, r.octets);
        p += kSenderInfoSize;
    }
    for (uint8_t i = 0; i < r.blockCount; ++i, p += kReportBlockSize) WriteBlock(r.blocks[i], p);
    return size;
}

size_t WriteSdesCname(uint32_t ssrc, std::string_view cname, uint8_t* out, size_t capacity)
{
    if (!out || cname.size() > kMaxCname) return 0;
    // Header, SSRC, CNAME item, then at least one zero byte ending the item list, padded to a word.
    const size_t items = 2 + cname.size();
    const size_t size = 8 + ((items + 4) / 4) * 4;
    if (capacity < size) return 0;
    WriteHeader(out, 1, kRtcpSdes, size);
    Write32(out + 4, ssrc);
    out[8] = kSdesCname;
    out[9] = static_cast<uint8_t>(cname.size());
    if (!cname.empty()) std::memcpy(out + 10, cname.data(), cname.size());
    std::memset(out + 10 + cname.size(), kSdesEnd, size - 10 - cname.size());
    return size;
}

bool RtcpCompound::Next(RtcpPacket& packet)
{
    if (m_malformed || m_left == 0) return false;
    if (m_left < 4 || (m_data[0] >> 6) != 2) {
        m_malformed = true;
        return false;
    }
    const size_t length = (static_cast<size_t>(Read16(m_data + 2)) + 1) * 4;
    if (length > m_left) {
        m_malformed = true;
        return false;
    }
    packet.type = m_data[1];
    packet.count = m_data[0] & 0x1F;
    packet.data = m_data;
    packet.length = length;
    m_data += length;
    m_left -= length;
    return true;
}

bool ReadReport(const RtcpPacket& packet, Report& out)
{
    const bool sender = packet.type == kRtcpSenderReport;
    if (!sender && packet.type != kRtcpReceiverReport) return false;
    const size_t need = kHeaderSize + (sender ? kSenderInfoSize : 0) + packet.count * kReportBlockSize;
    if (!packet.data || packet.length < need) return false;
    out.isSender = sender;
    out.ssrc = Read32(packet.data + 4);
    const uint8_t* p = packet.data + kHeaderSize;
    if (sender) {
        out.ntp = (static_cast<uint64_t>(Read32(p)) << 32) | Read32(p + 4);
        out.rtpTimestamp = Read32(p + 8);
        out.packets = Read32(p + 12);
        out.octets = Read32(p + 16);
        p += kSenderInfoSize;
    } else {
        out.ntp = 0;
        out.rtpTimestamp = out.packets = out.octets = 0;
    }
    out.blockCount = packet.count;
    for (uint8_t i = 0; i < packet.count; ++i, p += kReportBlockSize) out.blocks[i] = ReadBlock(p);
    return true;
}

std::optional<std::pair<uint32_t, std::string_view>> ReadSdesCname(const RtcpPacket& packet)
{
    if (packet.type != kRtcpSdes || !packet.data) return std::nullopt;
    const uint8_t* p = packet.data + 4;
    const uint8_t* const end = packet.data + packet.length;
    for (uint8_t chunk = 0; chunk < packet.count; ++chunk) {
        if (end - p < 4) return std::nullopt;
        const uint32_t ssrc = Read32(p);
        p += 4;
        // Items until the end byte; then the chunk is padded to the next word.
        const uint8_t* const chunkStart = p - 4;
        while (true) {
            if (p >= end) return std::nullopt;
            const uint8_t type = p[0];
            if (type == kSdesEnd) break;
            if (end - p < 2 || static_cast<size_t>(end - p - 2) < p[1]) return std::nullopt;
            const uint8_t length = p[1];
            if (type == kSdesCname)
                return std::make_pair(ssrc, std::string_view(reinterpret_cast<const char*>(p + 2), length));
            p += 2 + length;
        }
        const size_t used = static_cast<size_t>(p - chunkStart) + 1;
        const size_t padded = (used + 3) / 4 * 4;
        if (padded > static_cast<size_t>(end - chunkStart)) return std::nullopt;
        p = chunkStart + padded;
    }
    return std::nullopt;
}

std::optional<double> RoundTripMs(const ReportBlock& block, uint64_t arrivalNtp)
{
    if (block.lastSr == 0) return std::nullopt;
    const uint32_t arrival = static_cast<uint32_t>(arrivalNtp >> 16);
    const uint32_t rtt = arrival - block.lastSr - block.delaySinceLastSr;
    // A clock step or a forged block can put the sum past the arrival: no meaningful round trip.
    if (static_cast<int32_t>(rtt) < 0) return std::nullopt;
    return rtt * 1000.0 / 65536.0;
}

size_t WritePictureLoss(uint32_t senderSsrc, uint32_t mediaSsrc, uint8_t* out, size_t capacity)
{
    constexpr size_t kSize = 12;  // header, sender SSRC, media source SSRC; no feedback information
    if (!out || capacity < kSize) return 0;
    WriteHeader(out, kFeedbackPictureLoss, kRtcpPayloadFeedback, kSize);
    Write32(out + 4, senderSsrc);
    Write32(out + 8, mediaSsrc);
    return kSize;
}

bool IsPictureLoss(const RtcpPacket& packet)
{
    return packet.type == kRtcpPayloadFeedback && packet.count == kFeedbackPictureLoss && packet.length >= 12;
}

}  // namespace zynrtp
