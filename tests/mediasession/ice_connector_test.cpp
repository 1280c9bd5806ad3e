// The connector's port choice and listening on real sockets, loopback only.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>

#include "ice/IceConnector.h"
#include "test_support.h"
#include "tp/CmThreadManager.h"
#include "util/CmLocalAddr.h"

namespace {

using zyn::CIceConnector;

// Hears what reaches the line: which local port each datagram came in on.
class LineSink : public zyn::IceConnectorSink {
public:
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter*) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ports.insert(transport->GetLocalAddr().GetPort());
        m_texts.emplace_back(data.GetTopLevelReadPtr(), data.GetTopLevelLength());
        m_changed.notify_all();
    }
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult, ICmTransport*) override {}
    bool WaitCount(size_t n)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_texts.size() >= n; });
    }
    std::set<uint16_t> Ports()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_ports;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::set<uint16_t> m_ports;
    std::vector<std::string> m_texts;
};

void SendDatagram(const CCmInetAddr& to)
{
    int fd = socket(to.GetType(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sendto(fd, "probe", 5, 0, to.GetPtr(), to.GetSize());
    close(fd);
}

class IceConnectorTest : public ::testing::Test {
protected:
    void SetUp() override { set_local_addr_allow_list({"127.0.0.1", "::1"}); }
    void TearDown() override { clear_local_addr_allow_list(); }

    // The connector lives and works on the audio network thread, as a line's does.
    template <class F>
    ZynResult OnNetwork(F f)
    {
        return CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_AUDIO_NETWORK), false, f);
    }
    std::unique_ptr<CIceConnector> Make(uint16_t min, uint16_t max)
    {
        auto c = std::make_unique<CIceConnector>(&sink, 77);
        c->SetNetworkThreadType(TT_AUDIO_NETWORK);
        c->SetPortRange(min, max);
        return c;
    }

    mstest::EngineScope engine;
    LineSink sink;
};

TEST_F(IceConnectorTest, HostCandidatesTakeEvenPortsOfTheRangeAndReallyListen)
{
    struct Row {
        const char* name;
        bool mux;
        size_t perAddress;
    };
    for (const Row& row : {Row{"RTP and RTCP on two ports", false, 2}, Row{"RTCP muxed", true, 1}}) {
        SCOPED_TRACE(row.name);
        auto c = Make(52000, 52049);
        ASSERT_EQ(ZYN_S_OK, OnNetwork([&] { return c->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, row.mux, true); }));
        const auto& cands = c->GetCandidates();
        ASSERT_EQ(2 * row.perAddress, cands.size());  // 127.0.0.1 and ::1
        size_t expected = 0;
        for (size_t i = 0; i < cands.size(); ++i) {
            const auto& cand = cands[i];
            uint16_t port = cand.rtpAddress.GetPort();
            EXPECT_GE(port, 52000);
            EXPECT_LE(port, 52049);
            EXPECT_EQ(cand.component == 1 ? 0 : 1, (port - 52000) % 2) << port;
            EXPECT_EQ(0x7E00 + (i < row.perAddress ? 24 : 21), cand.localPreference);
            EXPECT_EQ(i < row.perAddress ? 1 : 5, cand.foundationCounter);
            SendDatagram(cand.rtpAddress);
            ++expected;
        }
        ASSERT_TRUE(sink.WaitCount(expected)) << "a candidate's socket did not receive";
        OnNetwork([&] { c->StopListen(); return ZYN_S_OK; });
    }
}

TEST_F(IceConnectorTest, MuxStaysOnOnceSet)
{
    auto c = Make(52000, 52049);
    OnNetwork([&] { return c->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, true, true); });
    OnNetwork([&] { return c->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, false, true); });
    EXPECT_TRUE(c->IsRtcpMux());
    EXPECT_EQ(2u, c->GetCandidates().size());
    OnNetwork([&] { c->StopListen(); return ZYN_S_OK; });
}

TEST_F(IceConnectorTest, WithoutIceAPlainPortPairListens)
{
    auto c = Make(53000, 53049);
    ASSERT_EQ(ZYN_S_OK, OnNetwork([&] { return c->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, false, false); }));
    EXPECT_TRUE(c->GetCandidates().empty());
    CCmInetAddr rtp = c->GetLocalRtpAddress();
    CCmInetAddr rtcp = c->GetLocalRtcpAddress();
    EXPECT_EQ(0, (rtp.GetPort() - 53000) % 2);
    EXPECT_EQ(rtp.GetPort() + 1, rtcp.GetPort());
    SendDatagram(rtp);
    SendDatagram(rtcp);
    ASSERT_TRUE(sink.WaitCount(2));
    EXPECT_EQ((std::set<uint16_t>{rtp.GetPort(), rtcp.GetPort()}), sink.Ports());
    OnNetwork([&] { c->StopListen(); return ZYN_S_OK; });
}

TEST_F(IceConnectorTest, AFullRangeIsReportedAndNothingStaysOpen)
{
    // A pair of ports (outside the ephemeral and relay ranges other tests use) fits once; the second connector finds the range taken.
    auto first = Make(61100, 61101);
    auto second = Make(61100, 61101);
    first->SetLocalIP("127.0.0.1", "127.0.0.1");
    second->SetLocalIP("127.0.0.1", "127.0.0.1");
    ASSERT_EQ(ZYN_S_OK, OnNetwork([&] { return first->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, false, false); }));
    EXPECT_EQ(ZYN_E_FAIL, OnNetwork([&] { return second->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, false, false); }));
    OnNetwork([&] { first->StopListen(); return ZYN_S_OK; });
    EXPECT_EQ(ZYN_S_OK, OnNetwork([&] { return second->StartCollectCandidates(zyn::ZynConnectionPolicy_UDP, false, false); }));
    OnNetwork([&] { second->StopListen(); return ZYN_S_OK; });
}

}  // namespace
