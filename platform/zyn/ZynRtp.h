// RTP and RTCP as the simulated engine sends and receives them: header writing and reading with
// every length checked, receive statistics after RFC 3550 (loss, interarrival jitter, bitrate),
// and sender reports with the round trip taken from report blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace zynrtp {

constexpr size_t kRtpHeaderSize = 12;

struct RtpHeader {
    uint8_t payloadType = 0;
    bool marker = false;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    size_t headerLength = kRtpHeaderSize;  // with CSRCs and extension, when read
};

// Writes a version-2 header without CSRC or extension; returns its size, 0 when it does not fit.
size_t WriteRtpHeader(const RtpHeader& header, uint8_t* out, size_t capacity);
// Reads and checks a header (version 2, CSRC list and extension inside the packet).
std::optional<RtpHeader> ReadRtpHeader(const uint8_t* data, size_t length);

// The RFC 3550 receiver state of one source. Arrival times are in the media clock's units.
class ReceiveStatistics {
public:
    explicit ReceiveStatistics(uint32_t clockRate) : m_clockRate(clockRate) {}

    // One packet, arriving at arrivalMs (milliseconds of any monotonic clock).
    void OnPacket(const RtpHeader& header, size_t bytes, uint64_t arrivalMs);

    uint32_t Received() const { return m_received; }
    // Packets expected from the first to the highest sequence seen, wraps counted.
    uint32_t Expected() const;
    // Expected less received; duplicates can make it negative.
    int64_t Lost() const { return static_cast<int64_t>(Expected()) - m_received; }
    // Interarrival jitter in media clock units, and in milliseconds.
    uint32_t Jitter() const { return static_cast<uint32_t>(m_jitter); }
    double JitterMs() const { return m_clockRate ? m_jitter * 1000.0 / m_clockRate : 0; }
    uint64_t Bytes() const { return m_bytes; }
    // Extended highest sequence number.
    uint32_t ExtendedHighest() const { return (m_cycles << 16) | m_maxSeq; }

private:
    const uint32_t m_clockRate;
    bool m_started = false;
    uint16_t m_baseSeq = 0;
    uint16_t m_maxSeq = 0;
    uint32_t m_cycles = 0;
    uint16_t m_badSeq = 0;  // after a large jump: the sequence that would confirm a restart
    uint32_t m_received = 0;
    uint64_t m_bytes = 0;
    double m_jitter = 0;
    int64_t m_lastTransit = 0;
};

// RTCP sender report with at most one report block: what the engine sends each interval.
struct SenderReport {
    uint32_t ssrc = 0;
    uint64_t ntp = 0;  // 32.32 fixed point
    uint32_t rtpTimestamp = 0;
    uint32_t packets = 0;
    uint32_t octets = 0;
    bool hasBlock = false;
    uint32_t sourceSsrc = 0;
    uint8_t fractionLost = 0;
    int32_t cumulativeLost = 0;  // 24-bit signed on the wire
    uint32_t highestSeq = 0;
    uint32_t jitter = 0;
    uint32_t lastSr = 0;       // middle 32 bits of the NTP time of the last SR received
    uint32_t delaySinceLastSr = 0;  // 1/65536 s
};

size_t WriteSenderReport(const SenderReport& report, uint8_t* out, size_t capacity);
std::optional<SenderReport> ReadSenderReport(const uint8_t* data, size_t length);
// Round trip from a report block received at arrivalNtp (32.32), in milliseconds; nullopt when
// the block carries no last-SR time.
std::optional<double> RoundTripMs(const SenderReport& received, uint64_t arrivalNtp);

}  // namespace zynrtp
