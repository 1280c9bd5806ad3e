// The streams one engine session measures: each remote source it hears (RFC 3550 receiver state,
// the last sender report from it, its CNAME), and its own sent stream with what the far end
// reported about it. Fixed-size tables: counting a packet or a report allocates nothing.
// Not thread-safe: the media flow guards it with its lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtcp.h"
#include "zyn/ZynRtp.h"

namespace zynrtp {

// Remote sources kept at once; a new one beyond this takes the place of the longest silent.
constexpr size_t kMaxRemoteStreams = 16;

class StreamTable {
public:
    // One RTP packet (already decrypted) from header.ssrc, of `bytes`, at nowMs. clockRate is the
    // media clock of its payload type, used when the source is new.
    void OnRtp(const RtpHeader& header, size_t bytes, uint64_t nowMs, uint32_t clockRate);
    // A sender report from a source: its time answers in our next block about it.
    void OnSenderReport(uint32_t ssrc, uint64_t ntp, uint64_t arrivalNtp);
    void OnCname(uint32_t ssrc, std::string_view cname);

    // Fills report blocks about every source heard since the last call (at most `max`), and starts
    // the next interval of each. nowNtp dates the delay since each source's last SR.
    uint8_t MakeReportBlocks(ReportBlock* blocks, size_t max, uint64_t nowNtp);

    // Our own stream: what it sent, and the far end's blocks about it.
    void SetLocal(uint32_t ssrc, uint16_t firstSequence, uint32_t clockRate);
    void OnSent(uint8_t payloadType, uint32_t clockRate, uint16_t sequence, size_t bytes);
    // A block from the far end; counted only when it is about our SSRC. Returns the round trip it
    // gives, when it gives one.
    std::optional<double> OnBlockAboutUs(const ReportBlock& block, uint64_t arrivalNtp);
    uint32_t LocalSsrc() const { return m_local.ssrc; }

    size_t RemoteCount() const;
    // Sent stream first, then each remote one. Writes at most `max`; returns how many there are.
    size_t Fill(ZynStreamStatistics* out, size_t max) const;
    // Sums over the remote streams for the session's aggregate figures.
    void Aggregate(ZynFlowStatistics& stats) const;
    double RoundTripMs() const { return m_local.rttMs; }

private:
    struct Remote {
        bool used = false;
        uint32_t ssrc = 0;
        uint8_t payloadType = 0;
        uint64_t lastHeardMs = 0;
        ReceiveStatistics stats{0};
        uint32_t expectedPrior = 0;  // at the last report block, RFC 3550 A.3
        uint32_t receivedPrior = 0;
        uint8_t fractionLost = 0;    // of the last block sent about it
        bool heardSinceReport = false;
        uint32_t lastSrMiddle = 0;   // of its last SR; 0 before one
        uint64_t lastSrArrivalNtp = 0;
        uint32_t senderReports = 0;
        uint8_t cnameLength = 0;
        char cname[sizeof(ZynStreamStatistics::cname)] = {};
    };
    struct Local {
        uint32_t ssrc = 0;
        uint16_t firstSequence = 0;
        uint16_t nextSequence = 0;
        uint32_t clockRate = 0;
        uint8_t payloadType = 0;
        uint64_t packets = 0;
        uint64_t bytes = 0;
        uint32_t reports = 0;
        ReportBlock lastBlock;
        double rttMs = 0;
    };

    Remote* Find(uint32_t ssrc);
    Remote& FindOrTake(uint32_t ssrc, uint64_t nowMs, uint32_t clockRate);
    void FillRemote(const Remote& r, ZynStreamStatistics& out) const;
    void FillLocal(ZynStreamStatistics& out) const;

    Remote m_remote[kMaxRemoteStreams];
    Local m_local;
};

}  // namespace zynrtp
