// RTCP as the simulated engine sends and reads it (RFC 3550 6.4, 6.5): sender and receiver reports
// with their report blocks, and SDES CNAME, in compound packets. Reading walks a compound packet
// one packet at a time and bounds every read by the packet's own length; nothing is allocated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zynrtp {

constexpr uint8_t kRtcpSenderReport = 200;
constexpr uint8_t kRtcpReceiverReport = 201;
constexpr uint8_t kRtcpSdes = 202;
// The five-bit count field limits one report to 31 blocks.
constexpr size_t kMaxReportBlocks = 31;
// SDES item lengths are one byte.
constexpr size_t kMaxCname = 255;

struct ReportBlock {
    uint32_t ssrc = 0;           // the source this block is about
    uint8_t fractionLost = 0;    // since the previous report, in 1/256
    int32_t cumulativeLost = 0;  // 24-bit signed on the wire
    uint32_t highestSequence = 0;  // extended
    uint32_t jitter = 0;         // media clock units
    uint32_t lastSr = 0;         // middle 32 bits of the NTP time of the last SR from that source
    uint32_t delaySinceLastSr = 0;  // 1/65536 s

    bool operator==(const ReportBlock&) const = default;
};

// A sender report (isSender) or a receiver report, which has no sender section.
struct Report {
    bool isSender = false;
    uint32_t ssrc = 0;
    uint64_t ntp = 0;  // 32.32 fixed point
    uint32_t rtpTimestamp = 0;
    uint32_t packets = 0;
    uint32_t octets = 0;
    uint8_t blockCount = 0;
    ReportBlock blocks[kMaxReportBlocks];
};

// Each writer returns the bytes written, or 0 when they do not fit (or the input cannot be sent:
// more than 31 blocks, a CNAME over 255 bytes).
size_t WriteReport(const Report& report, uint8_t* out, size_t capacity);
// RFC 4585 6.3.1: payload-specific feedback (206) of format 1, about the media source `mediaSsrc`.
constexpr uint8_t kRtcpPayloadFeedback = 206;
constexpr uint8_t kFeedbackPictureLoss = 1;
size_t WritePictureLoss(uint32_t senderSsrc, uint32_t mediaSsrc, uint8_t* out, size_t capacity);
size_t WriteSdesCname(uint32_t ssrc, std::string_view cname, uint8_t* out, size_t capacity);

// One packet inside a compound packet; data includes the four-byte header.
struct RtcpPacket {
    uint8_t type = 0;
    uint8_t count = 0;  // the five low bits of the first byte
    const uint8_t* data = nullptr;
    size_t length = 0;
};

// Walks a compound packet. Next gives each packet in turn; it stops, and Malformed tells, at a
// header that is cut short, not version 2, or declares more bytes than are left.
class RtcpCompound {
public:
    RtcpCompound(const uint8_t* data, size_t length) : m_data(data), m_left(data ? length : 0) {}
    bool Next(RtcpPacket& packet);
    bool Malformed() const { return m_malformed; }

private:
    const uint8_t* m_data;
    size_t m_left;
    bool m_malformed = false;
};

// A sender or receiver report with every block its count announces; false when the packet is of
// another type or too short for them.
bool ReadReport(const RtcpPacket& packet, Report& out);
// The CNAME of the first chunk that has one; nullopt when none is there or a chunk runs past the
// packet. The view points into the packet.
std::optional<std::pair<uint32_t, std::string_view>> ReadSdesCname(const RtcpPacket& packet);
// A picture loss indication with its two SSRCs present.
bool IsPictureLoss(const RtcpPacket& packet);

// Round trip from a report block received at arrivalNtp (32.32), in milliseconds (RFC 3550 6.4.1:
// A - LSR - DLSR); nullopt when the block carries no last-SR time.
std::optional<double> RoundTripMs(const ReportBlock& block, uint64_t arrivalNtp);

}  // namespace zynrtp
