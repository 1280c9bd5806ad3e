#include "zyn/ZynStreams.h"

#include <algorithm>
#include <cstring>

namespace zynrtp {

namespace {

// Cumulative loss is a 24-bit signed field.
int32_t ClampLost(int64_t lost) { return static_cast<int32_t>(std::clamp<int64_t>(lost, -0x800000, 0x7FFFFF)); }

}  // namespace

StreamTable::Remote* StreamTable::Find(uint32_t ssrc)
{
    for (Remote& r : m_remote)
        if (r.used && r.ssrc == ssrc) return &r;
    return nullptr;
}

StreamTable::Remote& StreamTable::FindOrTake(uint32_t ssrc, uint64_t nowMs, uint32_t clockRate)
{
    if (Remote* r = Find(ssrc)) return *r;
    Remote* slot = nullptr;
    for (Remote& r : m_remote) {
        if (!r.used) {
            slot = &r;
            break;
        }
        if (!slot || r.lastHeardMs < slot->lastHeardMs) slot = &r;
    }
    *slot = Remote{};
    slot->used = true;
    slot->ssrc = ssrc;
    slot->lastHeardMs = nowMs;
    slot->stats = ReceiveStatistics(clockRate);
    return *slot;
}

void StreamTable::OnRtp(const RtpHeader& header, size_t bytes, uint64_t nowMs, uint32_t clockRate)
{
    Remote& r = FindOrTake(header.ssrc, nowMs, clockRate);
    r.stats.OnPacket(header, bytes, nowMs);
    r.payloadType = header.payloadType;
    r.lastHeardMs = nowMs;
    r.heardSinceReport = true;
}

void StreamTable::OnSenderReport(uint32_t ssrc, uint64_t ntp, uint64_t arrivalNtp)
{
    // A report from a source whose media we have not heard yet takes no slot: there is nothing to
    // report back about it.
    Remote* r = Find(ssrc);
    if (!r) return;
    r->lastSrMiddle = static_cast<uint32_t>(ntp >> 16);
    r->lastSrArrivalNtp = arrivalNtp;
    ++r->senderReports;
}

void StreamTable::OnCname(uint32_t ssrc, std::string_view cname)
{
    Remote* r = Find(ssrc);
    if (!r) return;
    const size_t n = std::min(cname.size(), sizeof(r->cname) - 1);
    std::memcpy(r->cname, cname.data(), n);
    r->cname[n] = '\0';
    r->cnameLength = static_cast<uint8_t>(n);
}

uint8_t StreamTable::MakeReportBlocks(ReportBlock* blocks, size_t max, uint64_t nowNtp)
{
    uint8_t count = 0;
    for (Remote& r : m_remote) {
        if (!r.used || !r.heardSinceReport || count == max) continue;
        r.heardSinceReport = false;
        // RFC 3550 A.3: loss over the interval since the last block about this source.
        const uint32_t expected = r.stats.Expected();
        const uint32_t received = r.stats.Received();
        if (expected < r.expectedPrior || received < r.receivedPrior) {
            r.expectedPrior = r.receivedPrior = 0;  // the source restarted its sequence
        }
        const int64_t expectedInterval = static_cast<int64_t>(expected) - r.expectedPrior;
        const int64_t lostInterval = expectedInterval - (static_cast<int64_t>(received) - r.receivedPrior);
        r.expectedPrior = expected;
        r.receivedPrior = received;
        r.fractionLost = (expectedInterval == 0 || lostInterval <= 0)
                             ? 0
                             : static_cast<uint8_t>(std::min<int64_t>(255, (lostInterval << 8) / expectedInterval));
        ReportBlock& b = blocks[count++];
        b.ssrc = r.ssrc;
        b.fractionLost = r.fractionLost;
        b.cumulativeLost = ClampLost(r.stats.Lost());
        b.highestSequence = r.stats.ExtendedHighest();
        b.jitter = r.stats.Jitter();
        b.lastSr = r.lastSrMiddle;
        // In 1/65536 s: the middle 32 bits of the NTP difference.
        b.delaySinceLastSr = r.lastSrMiddle ? static_cast<uint32_t>((nowNtp - r.lastSrArrivalNtp) >> 16) : 0;
    }
    return count;
}

void StreamTable::SetLocal(uint32_t ssrc, uint16_t firstSequence, uint32_t clockRate)
{
    m_local = Local{};
    m_local.ssrc = ssrc;
    m_local.firstSequence = firstSequence;
    m_local.nextSequence = firstSequence;
    m_local.clockRate = clockRate;
}

void StreamTable::OnSent(uint8_t payloadType, uint32_t clockRate, uint16_t sequence, size_t bytes)
{
    m_local.nextSequence = static_cast<uint16_t>(sequence + 1);
    m_local.payloadType = payloadType;
    m_local.clockRate = clockRate;
    ++m_local.packets;
    m_local.bytes += bytes;
}

std::optional<double> StreamTable::OnBlockAboutUs(const ReportBlock& block, uint64_t arrivalNtp)
{
    if (block.ssrc != m_local.ssrc) return std::nullopt;
    m_local.lastBlock = block;
    ++m_local.reports;
    auto rtt = zynrtp::RoundTripMs(block, arrivalNtp);
    if (rtt) m_local.rttMs = *rtt;
    return rtt;
}

size_t StreamTable::RemoteCount() const
{
    return static_cast<size_t>(std::count_if(std::begin(m_remote), std::end(m_remote), [](const Remote& r) { return r.used; }));
}

void StreamTable::FillLocal(ZynStreamStatistics& out) const
{
    out = ZynStreamStatistics{};
    const Local& l = m_local;
    out.ssrc = l.ssrc;
    out.direction = 1;
    out.payloadType = l.payloadType;
    out.packets = l.packets;
    out.bytes = l.bytes;
    out.lastSequence = l.nextSequence;
    out.reports = l.reports;
    out.rttMs = l.rttMs;
    if (l.reports == 0) return;
    const ReportBlock& b = l.lastBlock;
    out.lost = b.cumulativeLost;
    out.fractionLost = b.fractionLost / 256.0;
    out.highestSequence = b.highestSequence;
    out.jitterMs = l.clockRate ? b.jitter * 1000.0 / l.clockRate : 0;
    // What the far end expected: from our first sequence number to the highest it saw.
    const uint32_t expected = b.highestSequence - l.firstSequence + 1;
    if (b.highestSequence >= l.firstSequence && expected > 0 && b.cumulativeLost > 0)
        out.lossRatio = static_cast<double>(b.cumulativeLost) / expected;
}

void StreamTable::FillRemote(const Remote& r, ZynStreamStatistics& out) const
{
    out = ZynStreamStatistics{};
    out.ssrc = r.ssrc;
    out.direction = 2;
    out.payloadType = r.payloadType;
    out.packets = r.stats.Received();
    out.bytes = r.stats.Bytes();
    out.lost = r.stats.Lost();
    const uint32_t expected = r.stats.Expected();
    out.lossRatio = (expected && out.lost > 0) ? static_cast<double>(out.lost) / expected : 0;
    out.fractionLost = r.fractionLost / 256.0;
    out.jitterMs = r.stats.JitterMs();
    out.highestSequence = r.stats.ExtendedHighest();
    out.lastSequence = r.stats.LastSequence();
    out.reports = r.senderReports;
    std::memcpy(out.cname, r.cname, r.cnameLength);
    out.cname[r.cnameLength] = '\0';
}

size_t StreamTable::Fill(ZynStreamStatistics* out, size_t max) const
{
    size_t n = 0;
    if (out && n < max) FillLocal(out[n]);
    ++n;
    for (const Remote& r : m_remote) {
        if (!r.used) continue;
        if (out && n < max) FillRemote(r, out[n]);
        ++n;
    }
    return n;
}

void StreamTable::Aggregate(ZynFlowStatistics& s) const
{
    int64_t lost = 0;
    uint64_t expected = 0;
    uint32_t most = 0;
    s.jitterMs = 0;
    for (const Remote& r : m_remote) {
        if (!r.used) continue;
        lost += r.stats.Lost();
        expected += r.stats.Expected();
        if (r.stats.Received() >= most) {
            most = r.stats.Received();
            s.jitterMs = r.stats.JitterMs();
        }
    }
    s.packetsLost = lost;
    s.lossRatio = expected ? static_cast<double>(lost > 0 ? lost : 0) / static_cast<double>(expected) : 0;
    s.rttMs = m_local.rttMs;
}

}  // namespace zynrtp
