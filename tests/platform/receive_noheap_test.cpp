// The receive path allocates nothing per packet: datagrams on a loopback socket, read by the UDP
// acceptor into its one block, handed by a sink to an engine session, decrypted, counted per
// stream; and the session's RTCP. The packets are made before counting starts (the harness may
// allocate); from then on every operator new and OpenSSL allocation is counted. Runs on the test's
// thread, which pumps the acceptor's loop itself.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../common/heap_count.h"
#include "tp/CmThread.h"
#include "tp/CmUdpAcceptor.h"
#include "zyn_call.h"

namespace {

using namespace zyntest;

// Takes the acceptor's transports and hands what they receive to the session as RTP.
class SessionSink : public ICmAcceptorConnectorSink, public ICmTransportSink {
public:
    explicit SessionSink(IZynMediaSession* session) : m_session(session) {}
    ~SessionSink() override
    {
        if (m_transport) m_transport->ReleaseReference();
    }
    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId*) override
    {
        if (reason != CM_OK || !transport || m_transport) return;
        transport->AddReference();
        transport->OpenWithSink(this);
        m_transport = transport;
    }
    void OnReceive(CCmMessageBlock& data, ICmTransport*, CCmTransportParameter*) override
    {
        const auto* bytes = reinterpret_cast<const uint8_t*>(data.GetTopLevelReadPtr());
        if (ZYN_SUCCEEDED(m_session->ReceiveRTPPacket(bytes, static_cast<uint32_t>(data.GetTopLevelLength()))))
            ++received;
    }
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult, ICmTransport*) override {}
    size_t received = 0;

private:
    IZynMediaSession* const m_session;
    ICmTransport* m_transport = nullptr;
};

void KeyBothWays(IZynMediaSession* from, IZynMediaSession* to)
{
    static const uint8_t key[30] = {9, 8, 7, 6, 5, 4, 3, 2, 1};
    for (auto [session, direction] : {std::pair{from, 1}, std::pair{to, 2}}) {
        ZynSrtpCryptoRecord r{direction, ZynSrtpSuite_AesCm128HmacSha1_80, key, 30, 3, 3, 0, 0, 0, 0, 0};
        ASSERT_EQ(ZYN_S_OK, session->SetOption(ZynSessionOption_SrtpCrypto, &r, sizeof(r)));
    }
}

class ReceiveNoHeap : public ::testing::TestWithParam<bool> {};

TEST_P(ReceiveNoHeap, DatagramsThroughTheAcceptorIntoASessionAllocateNothing)
{
    const bool keyed = GetParam();
    Call call;
    IZynMediaSession* from = call.Add();
    IZynMediaSession* to = call.Add();
    Capture capture;
    from->SetTransport(&capture);
    if (keyed) KeyBothWays(from, to);
    call.Start(from);
    call.Run(3000);
    ASSERT_GE(capture.rtp.size(), 140u);
    ASSERT_GE(capture.rtcp.size(), 2u);

    CCmLoopThread loop;
    loop.Attach("noheap", 100);
    auto* acceptor = new CCmUdpAcceptor(&loop);
    acceptor->AddReference();
    SessionSink sink(to);
    ASSERT_EQ(CM_OK, acceptor->StartListen(&sink, CCmInetAddr("127.0.0.1", 0)));
    const int client = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(client, 0);
    auto sendAndPump = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i)
            sendto(client, capture.rtp[i].data(), capture.rtp[i].size(), 0, acceptor->GetLocalAddr().GetPtr(),
                   acceptor->GetLocalAddr().GetSize());
        for (int round = 0; round < 100 && sink.received < to; ++round) loop.RunOnce(100);
    };
    sendAndPump(0, 1);  // the first datagram makes the peer's transport
    ASSERT_EQ(1u, sink.received);

    const long news = heap_count::news, crypto = heap_count::cryptoAllocs;
    // Batches the socket's receive buffer holds.
    for (size_t at = 1; at < capture.rtp.size(); at += 40) sendAndPump(at, std::min(at + 40, capture.rtp.size()));
    for (const Packet& p : capture.rtcp) EXPECT_EQ(ZYN_S_OK, to->ReceiveRTCPPacket(p.data(), static_cast<uint32_t>(p.size())));
    ZynFlowStatistics flow{};
    to->GetFlowStatistics(flow);
    ZynStreamStatistics streams[4];
    uint32_t count = 4;
    const ZynResult streamsResult = to->GetStreamStatistics(streams, count);
    const long newsDuring = heap_count::news - news, cryptoDuring = heap_count::cryptoAllocs - crypto;

    EXPECT_EQ(0, newsDuring);
    EXPECT_EQ(0, cryptoDuring);
    EXPECT_EQ(capture.rtp.size(), sink.received);
    EXPECT_EQ(capture.rtp.size(), flow.packetsReceived);
    EXPECT_EQ(0u, flow.srtpFailures);
    ASSERT_EQ(ZYN_S_OK, streamsResult);
    ASSERT_EQ(2u, count);
    EXPECT_EQ(capture.rtp.size(), streams[1].packets);
    EXPECT_EQ(capture.rtcp.size(), streams[1].reports);
    close(client);
    acceptor->StopListen(CM_OK);
    acceptor->ReleaseReference();
}

INSTANTIATE_TEST_SUITE_P(KeyedAndClear, ReceiveNoHeap, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Srtp" : "Clear"; });

}  // namespace
