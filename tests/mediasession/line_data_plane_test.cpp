// The line's data plane on its own: what it takes from the connector (RTP or RTCP by the payload
// type, short packets dropped), what it does with an ICE result (statuses, transport changes, the
// second failure ending the session) and how it sends (in order on a stream transport that pushes
// back, nothing queued on a datagram transport).
#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "call_harness.h"
#include "tp/CmThreadManager.h"

namespace {

using zyn::CMediaConnectionInfo;

// A transport of the test: records what it was given, refuses while `full`.
class FakeTransport final : public ICmTransport {
public:
    explicit FakeTransport(uint32_t type) : m_type(type) {}
    uint32_t AddReference() override { return ++m_refs; }
    uint32_t ReleaseReference() override { return --m_refs; }
    CmResult OpenWithSink(ICmTransportSink*) override { return CM_OK; }
    ICmTransportSink* GetSink() override { return nullptr; }
    CmResult SendData(CCmMessageBlock& data, CCmTransportParameter* = nullptr) override
    {
        if (full) return CM_ERROR_WOULD_BLOCK;
        sent.emplace_back(data.GetTopLevelReadPtr(), data.GetTopLevelLength());
        return CM_OK;
    }
    CmResult Disconnect(CmResult) override { return CM_OK; }
    uint32_t GetType() override { return m_type; }
    const CCmInetAddr& GetLocalAddr() override { return m_local; }
    const CCmInetAddr& GetPeerAddr() override { return m_peer; }

    bool full = false;
    std::vector<std::string> sent;

private:
    uint32_t m_type;
    uint32_t m_refs = 1;
    CCmInetAddr m_local{"127.0.0.1", 1000};
    CCmInetAddr m_peer{"127.0.0.1", 2000};
};

class LineDataPlaneTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 0));
        // An idle local track: the statuses read here are the path's alone.
        m_sink.startLocalTracks = false;
        m_conn->SetSink(&m_sink);
        m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr);
        m_line = static_cast<zyn::CMediaConnection*>(m_conn)->FindConnection(0ul);
    }
    void TearDown() override
    {
        mstest::OnMain([this] { m_conn->Stop(); });
        m_conn->Release();
        mstest::OnMain();
    }
    template <class F>
    void OnNetwork(F f)
    {
        CmInvokeInThread(CCmThreadManager::Instance()->GetThread(m_line->GetThreadType()), false, [&] {
            f();
            return CM_OK;
        });
    }
    // Statuses reach the sink through the main thread.
    std::vector<int> Statuses()
    {
        mstest::OnMain();
        std::lock_guard<std::mutex> lock(m_sink.mutex);
        return m_sink.statuses[0];
    }
    void Deliver(const std::vector<uint8_t>& packet)
    {
        OnNetwork([&] {
            CCmMessageBlock block(packet.data(), packet.size());
            m_line->OnReceive(block, nullptr, nullptr);
        });
    }

    mstest::EngineScope m_engine;
    mstest::CallSink m_sink;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnectionInfo* m_line = nullptr;
};

TEST_F(LineDataPlaneTest, ThePayloadTypeTellsRtpFromRtcpAndShortPacketsAreDropped)
{
    struct Row {
        size_t size;
        uint8_t second;  // the marker bit and payload type, or an RTCP packet type
        bool rtp;
        bool taken;
    };
    const Row rows[] = {
        {11, 96, true, false},   {12, 96, true, true},    {40, 127, true, true},   {40, 0xFF, true, true},
        {40, 0, true, true},     {40, 8, true, true},     {40, 9, true, true},     {40, 18, true, true},
        {40, 34, true, true},    {40, 200, false, true},  {40, 204, false, true},  {40, 72, false, true},
        {40, 35, false, true},   {40, 95, false, true},   {40, 1, false, true},    {40, 0x80 | 31, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " bytes, second byte " + std::to_string(row.second));
        const uint64_t rtpBefore = m_line->GetReceivedPackets();
        const uint64_t rtcpBefore = m_line->GetReceivedRtcpPackets();
        std::vector<uint8_t> packet(row.size, 0);
        packet[0] = 0x80;
        packet[1] = row.second;
        Deliver(packet);
        EXPECT_EQ(rtpBefore + (row.taken && row.rtp ? 1 : 0), m_line->GetReceivedPackets());
        EXPECT_EQ(rtcpBefore + (row.taken && !row.rtp ? 1 : 0), m_line->GetReceivedRtcpPackets());
    }
    // Until subscriptions exist every stream is vid 0.
    EXPECT_EQ(m_line->GetReceivedPackets(), m_line->GetReceivedPacketsAtVid(0));
}

TEST_F(LineDataPlaneTest, IceResultsBecomeStatusesAndTheSecondFailureEndsTheSession)
{
    FakeTransport first(CM_CONNECTION_TYPE_UDP), second(CM_CONNECTION_TYPE_UDP);
    ICmTransport* const one[2] = {&first, nullptr};
    ICmTransport* const other[2] = {&second, nullptr};
    struct Step {
        const char* name;
        CmResult reason;
        ICmTransport* const* transports;
        std::vector<int> statuses;  // all reported so far
    };
    const Step steps[] = {
        {"connected", 0, one, {2}},
        {"the same transports again: connected, no change", 0, one, {2, 2}},
        {"another transport: a change", 0, other, {2, 2, 8}},
        {"a first failure keeps the session", 30000014, other, {2, 2, 8, 0}},
        {"a second one ends it", 30000014, other, {2, 2, 8, 0, 0, 11}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        OnNetwork([&] { m_line->OnIceComplete(step.reason, step.transports, 1, zyn::ZynIceOrigin_Ice, false); });
        EXPECT_EQ(step.statuses, Statuses());
    }
    OnNetwork([&] { m_line->Disconnect(true); });
}

TEST_F(LineDataPlaneTest, AStreamTransportKeepsRefusedPacketsInOrderADatagramOneDropsThem)
{
    for (const uint32_t type : {CM_CONNECTION_TYPE_TCP_FRAMED, CM_CONNECTION_TYPE_UDP}) {
        const bool stream = type != CM_CONNECTION_TYPE_UDP;
        SCOPED_TRACE(stream ? "stream" : "datagram");
        FakeTransport transport(type);
        ICmTransport* const path[2] = {&transport, nullptr};
        OnNetwork([&] { m_line->OnIceComplete(0, path, 1, zyn::ZynIceOrigin_Ice, false); });
        auto block = [](char c) { return std::make_unique<CCmMessageBlock>(std::string(12, c).data(), 12); };
        OnNetwork([&] {
            transport.full = true;
            EXPECT_EQ(CM_ERROR_WOULD_BLOCK, m_line->Send_i(block('a'), 0));
        });
        // While the path pushes back the engine hears so at once, and nothing more is queued.
        const uint8_t rtp[12] = {0x80, 96};
        EXPECT_EQ(stream ? CM_ERROR_WOULD_BLOCK : ZYN_S_OK, m_line->SendRTPPacket(rtp, sizeof rtp));
        OnNetwork([&] {
            transport.full = false;
            m_line->OnSend(&transport, nullptr);  // the stream takes data again
            m_line->Send_i(block('b'), 0);
            m_line->Send_i(block('c'), 0);
        });
        std::string order;
        for (const std::string& s : transport.sent) order += s[0] == '\x80' ? '.' : s[0];
        // The RTP packet went to the network thread while the datagram path still refused: lost.
        EXPECT_EQ(stream ? "abc" : "bc", order);
        OnNetwork([&] { m_line->Disconnect(true); });
    }
}

}  // namespace
