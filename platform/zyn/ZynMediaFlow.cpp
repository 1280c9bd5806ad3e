// The send side of a flow: settings, ticks, frames and reports.
#include "zyn/ZynMediaFlow.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "mediasession/ZynMediaConfig.h"
#include "tp/CmThreadManager.h"
#include "zyn/ZynCodecs.h"
#include "zyn/ZynRtcp.h"

namespace zynsim {

namespace {

// The room a sent packet needs: header, the largest payload, and the SRTP trailer.
constexpr size_t kPacketBuffer = 1500;
// A tick that finds more frames than this due (a stalled thread, a clock jump) starts afresh
// rather than sending a burst.
constexpr uint64_t kMaxFramesBehind = 5;
// One compound report a second: the far end learns its loss and round trip within about that.
constexpr uint64_t kReportIntervalMs = 1000;
// The first byte of an Opus packet (RFC 6716, 3.1): configuration 31 (CELT only, fullband, 20 ms),
// mono, one frame. The frame bytes that follow are the engine's simulated content.
constexpr uint8_t kOpusCeltFullband20ms = 31 << 3;
// The largest frame a profile makes (sharing's 6000 bytes).
constexpr uint32_t kMaxFrame = 6000;
// Muted audio keeps the stream alive with one silence frame in twenty: every 400 ms at 20 ms
// frames, as discontinuous transmission does.
constexpr uint32_t kMutedFrameInterval = 20;

uint32_t Random32()
{
    static thread_local std::mt19937 generator{std::random_device("default")()};
    return generator();
}

// Codec types a session of the kind may be told of: its media kind's list, and the ones that ride
// beside any media.
bool CodecFitsSession(int32_t codecType, ZynSessionType type)
{
    if (codecType == ZynCodecType_FEC || codecType == ZynCodecType_RTX) return true;
    const bool audio = type == ZynSessionType_Audio || type == ZynSessionType_AudioSlide;
    const bool video = type == ZynSessionType_Video || type == ZynSessionType_ScreenShare;
    if (!audio && !video) return false;
    if (audio && (codecType == ZynCodecType_DTMF || codecType == ZynCodecType_CN)) return true;
    const ZynEngineCodecInfo* list = nullptr;
    const size_t n = ZynGetMediaCodecs(audio ? ZynCodecMedia_Audio : ZynCodecMedia_Video, &list);
    for (size_t i = 0; i < n; ++i)
        if (list[i].codecType == codecType) return true;
    return false;
}

// What carries media: not DTMF, comfort noise, FEC or RTX.
bool IsMediaCodec(int32_t codecType)
{
    return codecType != ZynCodecType_DTMF && codecType != ZynCodecType_CN && codecType != ZynCodecType_FEC &&
           codecType != ZynCodecType_RTX;
}

}  // namespace

FlowProfile ProfileOf(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return {111, 48000, 20, 80, 1200};
    case ZynSessionType_Video: return {102, 90000, 33, 2500, 1200};
    case ZynSessionType_ScreenShare: return {102, 90000, 200, 6000, 1200};
    default: return {0, 0, 0, 0, 0};
    }
}

MediaFlow::MediaFlow(ZynSessionType type, IZynClock* clock, std::shared_ptr<ACmThread> mediaThread,
                     std::function<SendSource()> sendSource, std::function<void(const uint8_t*, uint32_t)> render,
                     std::string cname)
    : m_type(type),
      m_profile(ProfileOf(type)),
      m_clock(clock),
      m_cname(std::move(cname)),
      m_thread(std::move(mediaThread)),
      m_sendSource(std::move(sendSource)),
      m_render(std::move(render)),
      m_ssrc(Random32()),
      m_sequence(static_cast<uint16_t>(Random32())),
      m_timestamp(Random32()),
      m_sendPayloadType(m_profile.payloadType),
      m_sendClockRate(m_profile.clockRate)
{
    m_streams.SetLocal(m_ssrc, m_sequence, m_sendClockRate);
    if (!m_thread || m_profile.frameMs == 0) return;
    CmInvokeInThread(m_thread.get(), false, [this] {
        return m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(m_profile.frameMs));
    });
}

MediaFlow::~MediaFlow()
{
    // Waits out a frame in progress on the media thread.
    m_timer.Cancel();
}

void MediaFlow::SetTransport(IZynMediaTransport* transport)
{
    std::lock_guard<std::mutex> lock(m_sendMutex);
    m_transport = transport;
    m_sendBlocked = false;
}

void MediaFlow::OnSendReady()
{
    std::lock_guard<std::mutex> lock(m_sendMutex);
    m_sendBlocked = false;
}

namespace {

// What a transport answers for a packet it cannot take now (the transport library's code).
constexpr ZynResult kWouldBlock = 30000013;

}  // namespace

bool MediaFlow::SetKey(int32_t direction, int32_t suite, const uint8_t* keySalt, size_t length)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool receive = direction == 2;
    zynrtp::SrtpContext& context = receive ? m_receiveSrtp : m_sendSrtp;
    if (suite == ZynSrtpSuite_NonSrtp) {
        context.Clear();
        return true;
    }
    using Direction = zynrtp::SrtpContext::Direction;
    return context.SetKey(receive ? Direction::Receive : Direction::Send, suite, keySalt, length);
}

ZynResult MediaFlow::SetCodecPt(int direction, uint8_t payloadType, int32_t codecType, uint32_t clockRate)
{
    if ((direction != 1 && direction != 2) || payloadType > 127 || clockRate == 0) return ZYN_E_INVALIDARG;
    if (!CodecFitsSession(codecType, m_type)) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (direction == 1) {
        // Only a media codec changes what the frames go out as; the others would ride beside it.
        if (IsMediaCodec(codecType)) {
            m_sendPayloadType = payloadType;
            m_sendClockRate = clockRate;
            m_sendCodecType = codecType;
        } else if (codecType == ZynCodecType_DTMF) {
            m_sendEventPayloadType = payloadType;
            m_sendEventClockRate = clockRate;
        }
        return ZYN_S_OK;
    }
    if (codecType == ZynCodecType_DTMF) m_receiveEventPayloadType = payloadType;
    for (size_t i = 0; i < m_receiveCodecCount; ++i) {
        if (m_receiveCodecs[i].payloadType == payloadType) {
            m_receiveCodecs[i].clockRate = clockRate;
            return ZYN_S_OK;
        }
    }
    if (m_receiveCodecCount == kMaxReceiveCodecs) return ZYN_E_FAIL;
    m_receiveCodecs[m_receiveCodecCount++] = {payloadType, clockRate};
    return ZYN_S_OK;
}

void MediaFlow::OnTimer(CCmTimerWrapperID*) { Tick(); }

void MediaFlow::Tick()
{
    if (m_profile.frameMs == 0) return;
    const uint64_t now = m_clock->NowMs();
    SendSource source = m_sendSource ? m_sendSource() : SendSource{};
    if (!source.running || !source.sending) {
        m_sending = false;
    } else {
        if (!m_sending || now > m_nextFrameMs + kMaxFramesBehind * m_profile.frameMs) m_nextFrameMs = now;
        m_sending = true;
        while (m_nextFrameMs <= now) {
            SendFrame(source.capturer, source.muted);
            m_nextFrameMs += m_profile.frameMs;
        }
    }
    if (source.capturer) source.capturer->Release();
    if (!m_reporting) {
        m_reporting = true;
        m_lastReportMs = now;
    }
    if (now - m_lastReportMs >= kReportIntervalMs) {
        m_lastReportMs = now;
        SendReport(now);
    }
}

void MediaFlow::SendFrame(IZynMediaFileCapturer* capturer, bool muted)
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_timestamp += static_cast<uint32_t>(uint64_t{m_sendClockRate} * m_profile.frameMs / 1000);
    }
    if (!m_transport || m_sendBlocked) return;
    uint8_t frame[kMaxFrame];
    uint32_t left = m_profile.bytesPerFrame;
    const uint8_t* bytes = nullptr;  // null: the synthetic pattern
    if (muted) {
        // Discontinuous transmission: a silence frame every kMutedFrameInterval frames.
        if (m_mutedFrames++ % kMutedFrameInterval != 0) return;
        static const uint8_t kSilence[] = {0xF8, 0xFF, 0xFE};
        bytes = kSilence;
        left = sizeof kSilence;
    } else {
        m_mutedFrames = 0;
        if (capturer) {
            left = capturer->ReadPayload(frame, std::min<uint32_t>(left, sizeof frame));
            bytes = frame;
        }
    }
    while (left > 0) {
        const uint32_t payload = left < m_profile.maxPayload ? left : m_profile.maxPayload;
        left -= payload;
        uint8_t packet[kPacketBuffer];
        size_t n = 0;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            zynrtp::RtpHeader h;
            h.payloadType = m_sendPayloadType;
            h.marker = left == 0;
            h.sequence = m_sequence++;
            h.timestamp = m_timestamp;
            h.ssrc = m_ssrc;
            n = zynrtp::WriteRtpHeader(h, packet, sizeof(packet));
            if (bytes) {
                // A file's bytes (or the muted mode's silence frame) go as they are.
                std::memcpy(packet + n, bytes, payload);
                bytes += payload;
            } else {
                for (uint32_t i = 0; i < payload; ++i) packet[n + i] = static_cast<uint8_t>(h.sequence + i);
                // A far end with a real Opus decoder refuses a packet whose first byte is no valid
                // table of contents; any frame bytes after a good one decode.
                if (m_sendCodecType == ZynCodecType_OPUS && payload > 0 && m_profile.frameMs == 20)
                    packet[n] = kOpusCeltFullband20ms;
            }
            n += payload;
            m_streams.OnSent(h.payloadType, m_sendClockRate, h.sequence, n);
            m_payloadOctetsSent += payload;
            if (m_sendSrtp.IsKeyed()) n = m_sendSrtp.ProtectRtp(packet, n, sizeof(packet));
        }
        if (n == 0) continue;
        const ZynResult sent = m_transport->SendRTPPacket(packet, static_cast<uint32_t>(n));
        if (ZYN_SUCCEEDED(sent)) {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_stats.packetsSent;
            m_stats.bytesSent += n;
        } else if (sent == kWouldBlock) {
            // The rest of the frame would only be refused too.
            m_sendBlocked = true;
            return;
        }
    }
}

void MediaFlow::SendReport(uint64_t)
{
    std::lock_guard<std::mutex> sending(m_sendMutex);
    uint8_t packet[kPacketBuffer];
    size_t n = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_transport || m_sendBlocked) return;
        zynrtp::Report r;
        r.ssrc = m_ssrc;
        const uint64_t nowNtp = m_clock->NowNtp();
        // RFC 3550 6.4: a sender report while we sent in this interval or the one before.
        const bool sentNow = m_stats.packetsSent != m_sentAtLastReport;
        r.isSender = sentNow || m_sentBeforeLastReport;
        m_sentBeforeLastReport = sentNow;
        m_sentAtLastReport = m_stats.packetsSent;
        if (r.isSender) {
            r.ntp = nowNtp;
            r.rtpTimestamp = m_timestamp;
            r.packets = static_cast<uint32_t>(m_stats.packetsSent);
            r.octets = static_cast<uint32_t>(m_payloadOctetsSent);
        }
        r.blockCount = m_streams.MakeReportBlocks(r.blocks, zynrtp::kMaxReportBlocks, nowNtp);
        n = zynrtp::WriteReport(r, packet, sizeof(packet));
        const size_t sdes = zynrtp::WriteSdesCname(m_ssrc, m_cname, packet + n, sizeof(packet) - n);
        n = n && sdes ? n + sdes : 0;
        if (n && m_sendSrtp.IsKeyed()) n = m_sendSrtp.ProtectRtcp(packet, n, sizeof(packet));
    }
    if (n) m_transport->SendRTCPPacket(packet, static_cast<uint32_t>(n));
}

}  // namespace zynsim
