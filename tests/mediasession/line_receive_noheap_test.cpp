// The media line's receive road allocates nothing per packet: datagrams on a loopback socket, read
// by the UDP acceptor, told apart by the connector's first byte, classified by the line's OnReceive,
// handed by ReceiveRTP (or ReceiveRTCP) to the line's engine session, unprotected and counted. The
// packets come from an engine session of the test that sends through a capture. Counting starts
// after the first packet (which makes the transport and reports the first RTP) and covers only the
// test's thread, where the whole road runs: the library's own threads go on with their work.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "../common/heap_count.h"
#include "../common/line_receive_rig.h"
#include "../platform/zyn_call.h"
#include "tp/CmThread.h"
#include "tp/CmUdpAcceptor.h"

namespace {

using namespace zyntest;

const uint8_t kKey[30] = {30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16,
                          15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1};

struct RoadCase {
    const char* name;
    bool keyed;
};

void PrintTo(const RoadCase& c, std::ostream* out) { *out << c.name; }

class LineReceiveNoHeap : public ::testing::TestWithParam<RoadCase> {};

TEST_P(LineReceiveNoHeap, ConnectorLineAndEngineAllocateNothingPerPacket)
{
    const RoadCase& road = GetParam();
    // Three seconds of audio and its reports, from the test's own engine session.
    Capture capture;
    {
        Call call;
        IZynMediaSession* from = call.Add();
        from->SetTransport(&capture);
        if (road.keyed) {
            ZynSrtpCryptoRecord r{1, ZynSrtpSuite_AesCm128HmacSha1_80, kKey, sizeof kKey, 3, 3, 0, 0, 0, 0, 0};
            ASSERT_EQ(ZYN_S_OK, from->SetOption(ZynSessionOption_SrtpCrypto, &r, sizeof r));
        }
        call.Start(from);
        call.Run(3000);
        from->SetTransport(nullptr);
    }
    ASSERT_GE(capture.rtp.size(), 140u);
    ASSERT_GE(capture.rtcp.size(), 2u);

    rig::LineReceiveRig line(road.keyed ? kKey : nullptr, road.keyed ? sizeof kKey : 0);
    ASSERT_NE(nullptr, line.Sink());
    CCmLoopThread loop;
    loop.Attach("noheap", 100);
    rig::Attach attach(line.Sink());
    auto* acceptor = new CCmUdpAcceptor(&loop);
    acceptor->AddReference();
    ASSERT_EQ(CM_OK, acceptor->StartListen(&attach, CCmInetAddr("127.0.0.1", 0)));
    const CCmInetAddr to = acceptor->GetLocalAddr();
    const int client = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(client, 0);
    ZynFlowStatistics flow{};
    auto sendAndPump = [&](const std::vector<Packet>& packets, size_t begin, size_t end, uint64_t expectedRtp) {
        for (size_t i = begin; i < end; ++i) sendto(client, packets[i].data(), packets[i].size(), 0, to.GetPtr(), to.GetSize());
        for (int round = 0; round < 100 && line.Line()->GetReceivedPackets() < expectedRtp; ++round) loop.RunOnce(100);
        // RTCP is not counted as RTP: what was sent is read by now, or never.
        while (loop.GetReactor()->RunOnce(0) > 0) {
        }
    };
    sendAndPump(capture.rtp, 0, 1, 1);  // the first datagram makes the transport
    ASSERT_EQ(1u, line.Line()->GetReceivedPackets());

    const long news = heap_count::threadNews, crypto = heap_count::threadCryptoAllocs;
    // Batches the socket's receive buffer holds, a report after each as they come on a muxed path.
    size_t reportsSent = 0;
    for (size_t at = 1; at < capture.rtp.size(); at += 40) {
        const size_t end = std::min(at + 40, capture.rtp.size());
        sendAndPump(capture.rtp, at, end, end);
        if (reportsSent < capture.rtcp.size()) sendAndPump(capture.rtcp, reportsSent, reportsSent + 1, end), ++reportsSent;
    }
    line.Session()->GetFlowStatistics(flow);
    ZynStreamStatistics streams[4];
    uint32_t count = 4;
    const ZynResult streamsResult = line.Session()->GetStreamStatistics(streams, count);
    const long newsDuring = heap_count::threadNews - news, cryptoDuring = heap_count::threadCryptoAllocs - crypto;

    EXPECT_EQ(0, newsDuring);
    EXPECT_EQ(0, cryptoDuring);
    EXPECT_EQ(capture.rtp.size(), line.Line()->GetReceivedPackets());
    EXPECT_EQ(reportsSent, line.Line()->GetReceivedRtcpPackets());
    // The engine took every packet: a wrong key would show as SRTP failures and no packets.
    EXPECT_EQ(capture.rtp.size(), flow.packetsReceived);
    EXPECT_EQ(0u, flow.srtpFailures);
    ASSERT_EQ(ZYN_S_OK, streamsResult);
    bool sawStream = false;
    for (uint32_t i = 0; i < count; ++i) {
        if (streams[i].packets != capture.rtp.size()) continue;
        sawStream = true;
        EXPECT_EQ(reportsSent, streams[i].reports);
    }
    EXPECT_TRUE(sawStream);
    close(client);
    acceptor->StopListen(CM_OK);
    acceptor->ReleaseReference();
}

INSTANTIATE_TEST_SUITE_P(Roads, LineReceiveNoHeap,
                         ::testing::Values(RoadCase{"Srtp", true}, RoadCase{"Clear", false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
