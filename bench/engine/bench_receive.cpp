// Packets per second on the receive path, one thread pinned to one core, in one run:
//   floor:  recvfrom + srtp_unprotect on a plain socket, nothing else;
//   path/H: the UDP acceptor's epoll loop and read, then hop H hands each datagram to an engine
//           session keyed with AES_CM_128_HMAC_SHA1_80: SRTP unprotect, per-stream statistics.
// Both take the same packets: 12-byte header, 160 bytes of payload, an 80-bit tag, protected
// beforehand (timing paused) and queued on loopback in batches the socket buffer holds.
//
// Hops plug in through kHops: each makes the ICmTransportSink that the acceptor's transport
// delivers to, in front of its keyed session. The engine's own is the thinnest; "line" is the
// media line's road: the connector's first-byte demultiplexing, the line's OnReceive and
// ReceiveRTP, then the line's engine session.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sched.h>
#include <srtp2/srtp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <memory>

#include "../../tests/common/line_receive_rig.h"
#include "tp/CmThread.h"
#include "tp/CmUdpAcceptor.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtp.h"
#include "zyn/ZynSrtp.h"

namespace {

constexpr int kBatch = 32;
constexpr size_t kPayload = 160;
const uint8_t kKey[30] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30};

// What a hop puts in front of the acceptor: the sink its transport delivers to, and the keyed
// engine session whose statistics count what came through.
class Receiver {
public:
    virtual ~Receiver() = default;
    virtual ICmTransportSink* Sink() = 0;
    virtual IZynMediaSession* Session() = 0;
};

struct ReceiveHop {
    const char* name;
    std::function<std::unique_ptr<Receiver>()> make;
};

// The engine's own hop: a datagram is an RTP packet for the session.
class EngineReceiver final : public Receiver, public ICmTransportSink {
public:
    EngineReceiver()
    {
        ZynInit(0);
        // The system's clocks, on an engine that starts no media thread.
        ZynCreateMediaEngineWithClock(&m_engine, 1, ZynSystemClock());
        m_engine->CreateMediaSession(ZynSessionType_Audio, &m_session);
        ZynSrtpCryptoRecord record{2, ZynSrtpSuite_AesCm128HmacSha1_80, kKey, sizeof(kKey), 3, 3, 0, 0, 0, 0, 0};
        m_session->SetOption(ZynSessionOption_SrtpCrypto, &record, sizeof(record));
    }
    ~EngineReceiver() override
    {
        m_session->Release();
        m_engine->Stop();
        m_engine->Release();
        ZynUninit();
    }
    ICmTransportSink* Sink() override { return this; }
    IZynMediaSession* Session() override { return m_session; }
    void OnReceive(CCmMessageBlock& data, ICmTransport*, CCmTransportParameter*) override
    {
        m_session->ReceiveRTPPacket(reinterpret_cast<const uint8_t*>(data.GetTopLevelReadPtr()),
                                    static_cast<uint32_t>(data.GetTopLevelLength()));
    }
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult, ICmTransport*) override {}

private:
    IZynMediaEngineInternal* m_engine = nullptr;
    IZynMediaSession* m_session = nullptr;
};

// The media line's road, on a line of a real connection keyed as SDES keys it.
class LineReceiver final : public Receiver {
public:
    LineReceiver() : m_rig(kKey, sizeof(kKey)) {}
    ICmTransportSink* Sink() override { return m_rig.Sink(); }
    IZynMediaSession* Session() override { return m_rig.Session(); }

private:
    rig::LineReceiveRig m_rig;
};

const ReceiveHop kHops[] = {
    {"engine", [] { return std::make_unique<EngineReceiver>(); }},
    {"line", [] { return std::make_unique<LineReceiver>(); }},
};

// Makes protected packets of one stream and sends them to a loopback port.
class Sender {
public:
    explicit Sender(uint32_t ssrc) : m_ssrc(ssrc)
    {
        m_srtp.SetKey(zynrtp::SrtpContext::Direction::Send, ZynSrtpSuite_AesCm128HmacSha1_80, kKey, sizeof(kKey));
        m_socket = socket(AF_INET, SOCK_DGRAM, 0);
    }
    ~Sender() { close(m_socket); }
    void SendBatch(const sockaddr* to, socklen_t length)
    {
        for (int i = 0; i < kBatch; ++i) {
            uint8_t packet[zynrtp::kRtpHeaderSize + kPayload + zynrtp::SrtpContext::kMaxTrailer];
            zynrtp::RtpHeader h;
            h.payloadType = 111;
            h.sequence = m_sequence++;
            h.timestamp = m_timestamp += 960;
            h.ssrc = m_ssrc;
            size_t n = zynrtp::WriteRtpHeader(h, packet, sizeof(packet));
            std::memset(packet + n, 0x5A, kPayload);
            n = m_srtp.ProtectRtp(packet, n + kPayload, sizeof(packet));
            sendto(m_socket, packet, n, 0, to, length);
        }
    }

private:
    const uint32_t m_ssrc;
    zynrtp::SrtpContext m_srtp;
    int m_socket = -1;
    uint16_t m_sequence = 1;
    uint32_t m_timestamp = 0;
};

void PinToOneCore()
{
    static bool pinned = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(sched_getcpu(), &set);
        return sched_setaffinity(0, sizeof(set), &set) == 0;
    }();
    (void)pinned;
}

void Floor(benchmark::State& state)
{
    PinToOneCore();
    Sender sender(0x1111);  // its key also starts libsrtp2
    srtp_policy_t policy;
    std::memset(&policy, 0, sizeof(policy));
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
    policy.ssrc.type = ssrc_any_inbound;
    policy.key = const_cast<uint8_t*>(kKey);
    policy.window_size = 1024;
    srtp_t session = nullptr;
    if (srtp_create(&session, &policy) != srtp_err_status_ok) {
        state.SkipWithError("srtp_create");
        return;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    uint64_t opened = 0;
    for (auto _ : state) {
        state.PauseTiming();
        sender.SendBatch(reinterpret_cast<sockaddr*>(&address), sizeof(address));
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i) {
            uint8_t buffer[2048];
            sockaddr_storage from;
            socklen_t fromLength = sizeof(from);
            ssize_t n = recvfrom(fd, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
            int len = static_cast<int>(n);
            if (n > 0 && srtp_unprotect(session, buffer, &len) == srtp_err_status_ok) ++opened;
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    if (opened != static_cast<uint64_t>(state.iterations()) * kBatch) state.SkipWithError("packets lost or refused");
    close(fd);
    srtp_dealloc(session);
}

void Path(benchmark::State& state, const ReceiveHop* hop)
{
    PinToOneCore();
    std::unique_ptr<Receiver> receiver = hop->make();
    IZynMediaSession* session = receiver->Session();
    if (!receiver->Sink() || !session) {
        state.SkipWithError("the hop could not be set up");
        return;
    }
    rig::Attach attach(receiver->Sink());
    CCmLoopThread loop;
    loop.Attach("bench-receive", 100);
    auto* acceptor = new CCmUdpAcceptor(&loop);
    acceptor->AddReference();
    acceptor->StartListen(&attach, CCmInetAddr("127.0.0.1", 0));
    const CCmInetAddr to = acceptor->GetLocalAddr();
    Sender sender(0x2222);
    ZynFlowStatistics stats{};
    session->GetFlowStatistics(stats);
    uint64_t expected = stats.packetsReceived;
    for (auto _ : state) {
        state.PauseTiming();
        sender.SendBatch(to.GetPtr(), to.GetSize());
        expected += kBatch;
        state.ResumeTiming();
        // One readiness reads up to 64 datagrams: the batch, then a round that finds nothing.
        while (loop.GetReactor()->RunOnce(0) > 0) {
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    session->GetFlowStatistics(stats);
    if (stats.packetsReceived != expected || stats.srtpFailures) state.SkipWithError("packets lost or refused");
    acceptor->StopListen(CM_OK);
    acceptor->ReleaseReference();
}

const bool registered = [] {
    benchmark::RegisterBenchmark("receive/floor", Floor)->Repetitions(9)->ReportAggregatesOnly(true);
    for (const ReceiveHop& hop : kHops) {
        benchmark::RegisterBenchmark((std::string("receive/path/") + hop.name).c_str(), Path, &hop)
            ->Repetitions(9)
            ->ReportAggregatesOnly(true);
    }
    return true;
}();

}  // namespace
