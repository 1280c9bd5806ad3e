// RTP as the simulated engine sends and receives it: header writing and reading with every length
// checked, and the receiver state of one source after RFC 3550 (loss, interarrival jitter).
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
    explicit ReceiveStatistics(uint32_t clockRate = 0) : m_clockRate(clockRate) {}

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
    uint16_t LastSequence() const { return m_lastSeq; }

private:
    uint32_t m_clockRate;
    uint16_t m_lastSeq = 0;
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

}  // namespace zynrtp
