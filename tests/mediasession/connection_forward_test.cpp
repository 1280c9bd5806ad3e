// The connection's operations that carry a mid, each read where its effect lands: the line's
// observer list firing, the engine session's CSI table, the line's receive counters, and the
// session metrics for the failures.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynScreenShare.h"
#include "test_support.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;

constexpr unsigned long kAudio = 0, kShare = 2, kApp = 3, kUnknown = 77;

struct ShareObserver : IZynScreenShareObserver {
    void OnCaptureStatusChanged(unsigned long mid, ZynScreenCaptureStatus status) override
    {
        seen.push_back("status " + std::to_string(mid) + " " + std::to_string(status));
    }
    void OnCaptureEvent(unsigned long mid, int32_t event, int32_t value) override
    {
        seen.push_back("event " + std::to_string(mid) + " " + std::to_string(event) + " " + std::to_string(value));
    }
    void OnCapturePositionChanged(unsigned long, int32_t, int32_t, int32_t, int32_t) override {}
    std::vector<std::string> seen;
};

// A version 2 header of `size` bytes; `first` replaces the first byte when given.
std::vector<unsigned char> Packet(size_t size, unsigned char first = 0x80)
{
    std::vector<unsigned char> p(size, 0);
    if (!p.empty()) p[0] = first;
    if (p.size() > 1) p[1] = 0x60;
    return p;
}

class ConnectionForwardTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 0));
        m_impl = static_cast<CMediaConnection*>(m_conn);
        m_api = m_impl;
        m_conn->SetSink(&m_sink);
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudio, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_ScreenShare, ZynDirection_SendRecv, kShare, nullptr));
        ASSERT_EQ(ZYN_S_OK, m_conn->AddMedia(ZynSessionType_Application, ZynDirection_SendRecv, kApp, nullptr));
    }
    void TearDown() override
    {
        if (m_conn) {
            m_conn->Stop();
            m_conn->Release();
        }
        mstest::OnMain();
    }
    void StopAndSettle()
    {
        m_conn->Stop();
        mstest::OnMain();  // the clean-up that empties the line list runs there
    }
    bool Kicked(const std::string& tag, ZynResult code) { return mstest::Kicked(m_impl->GetSessionMetrics(), tag, code); }

    mstest::EngineScope m_engine;
    IZynMediaConnectionSink m_sink;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnection* m_impl = nullptr;
    IZynMediaConnection4T* m_api = nullptr;
};

// Every forwarder with a mid that has no line, bad bytes, or a line of the wrong kind; run both on
// a live connection and after Stop, when every mid has become unknown.
TEST_F(ConnectionForwardTest, MissesAndBadInputGiveTheirCodesAndReachTheMetrics)
{
    ShareObserver observer;
    auto rtp = Packet(12), rtcp = Packet(8), shortRtp = Packet(11), shortRtcp = Packet(7), v1 = Packet(12, 0x40);
    struct Row {
        const char* name;
        std::function<ZynResult()> call;
        ZynResult live;
        ZynResult stopped;
        const char* kick;  // tag the metrics hold after the live miss, when the live call is one
    };
    const std::vector<Row> rows = {
        {"observer on an unknown mid", [&] { return m_api->AddScreenShareObserver(kUnknown, &observer); },
         ZYN_E_NOTFOUND, ZYN_E_NOTFOUND, nullptr},
        {"null observer", [&] { return m_api->AddScreenShareObserver(kShare, nullptr); }, ZYN_E_POINTER,
         ZYN_E_NOTFOUND, nullptr},
        {"removing one never added", [&] { return m_api->RemoveScreenShareObserver(kShare, &observer); },
         ZYN_E_NOTFOUND, ZYN_E_NOTFOUND, nullptr},
        {"data to an unknown mid", [&] { return m_api->SendApplicationData(kUnknown, rtp.data(), 12); }, ZYN_E_FAIL,
         ZYN_E_FAIL, nullptr},
        {"data to an audio line", [&] { return m_api->SendApplicationData(kAudio, rtp.data(), 12); }, ZYN_E_FAIL,
         ZYN_E_FAIL, nullptr},
        {"no data", [&] { return m_api->SendApplicationData(kApp, nullptr, 12); }, ZYN_E_INVALIDARG, ZYN_E_FAIL,
         nullptr},
        {"empty data", [&] { return m_api->SendApplicationData(kApp, rtp.data(), 0); }, ZYN_E_INVALIDARG,
         ZYN_E_FAIL, nullptr},
        {"rtp to an unknown mid", [&] { return m_api->ReceiveRTP(kUnknown, rtp.data(), 12, nullptr, nullptr); },
         ZYN_E_FAIL, ZYN_E_FAIL, "RecRTP"},
        {"null rtp", [&] { return m_api->ReceiveRTP(kAudio, nullptr, 12, nullptr, nullptr); }, ZYN_E_INVALIDARG,
         ZYN_E_FAIL, nullptr},
        {"rtp shorter than its header", [&] { return m_api->ReceiveRTP(kAudio, shortRtp.data(), 11, nullptr, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_FAIL, nullptr},
        {"rtp of another version", [&] { return m_api->ReceiveRTP(kAudio, v1.data(), 12, nullptr, nullptr); },
         ZYN_E_INVALIDARG, ZYN_E_FAIL, nullptr},
        {"rtcp to an unknown mid", [&] { return m_api->ReceiveRTCP(kUnknown, rtcp.data(), 8); }, ZYN_E_FAIL,
         ZYN_E_FAIL, "RecRTCP"},
        {"rtcp shorter than its header", [&] { return m_api->ReceiveRTCP(kAudio, shortRtcp.data(), 7); },
         ZYN_E_INVALIDARG, ZYN_E_FAIL, nullptr},
        {"failover of an unknown mid", [&] { return m_api->Failover(kUnknown); }, ZYN_E_FAIL, ZYN_E_FAIL, "Failover"},
        {"csi of an unknown mid", [&] { return m_api->UpdateCSI(kUnknown, 0, 5); }, ZYN_E_POINTER, ZYN_E_POINTER,
         "UpdateCSI"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.live, row.call());
        if (row.kick) {
            EXPECT_TRUE(Kicked(row.kick, row.live));
        }
    }
    StopAndSettle();
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", after Stop");
        EXPECT_EQ(row.stopped, row.call());
    }
}

TEST_F(ConnectionForwardTest, ShareObserversHearTheLineUntilRemoved)
{
    ShareObserver observer;
    ASSERT_EQ(ZYN_S_OK, m_api->AddScreenShareObserver(kShare, &observer));
    EXPECT_EQ(ZYN_E_DUPLICATE, m_api->AddScreenShareObserver(kShare, &observer));
    zyn::CMediaConnectionInfo* line = m_impl->FindConnection(kShare);
    ASSERT_NE(nullptr, line);
    line->OnCaptureEvent(nullptr, 7, 9);
    line->OnCaptureStatusChanged(nullptr, ZynScreenCaptureStatus_Running);
    ASSERT_EQ(ZYN_S_OK, m_api->RemoveScreenShareObserver(kShare, &observer));
    line->OnCaptureEvent(nullptr, 8, 1);
    EXPECT_EQ((std::vector<std::string>{"event 2 7 9", "status 2 1"}), observer.seen);
}

// The CSI reaches the engine session's table; failover reaches a session that is running.
TEST_F(ConnectionForwardTest, CsiAndFailoverReachTheEngineSession)
{
    IZynMediaSession* session = m_impl->FindConnection(kAudio)->GetZynSession();
    ASSERT_NE(nullptr, session);
    ASSERT_EQ(ZYN_S_OK, m_api->UpdateCSI(kAudio, 3, 0xA1B2C3D4));
    uint32_t csi = 0;
    ASSERT_EQ(ZYN_S_OK, session->GetCSI(3, csi));
    EXPECT_EQ(0xA1B2C3D4u, csi);
    EXPECT_EQ(ZYN_S_OK, m_api->Failover(kAudio));
}

// Packets from the application's own transport walk the line's receive path and its counters.
TEST_F(ConnectionForwardTest, ExternalPacketsWalkTheLinesReceivePath)
{
    zyn::CMediaConnectionInfo* line = m_impl->FindConnection(kAudio);
    auto rtp = Packet(172), rtcp = Packet(28, 0x81);
    const uint64_t rtpBefore = line->GetReceivedPackets(), rtcpBefore = line->GetReceivedRtcpPackets();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ZYN_S_OK, m_api->ReceiveRTP(kAudio, rtp.data(), 172, nullptr, nullptr));
    EXPECT_EQ(ZYN_S_OK, m_api->ReceiveRTCP(kAudio, rtcp.data(), 28));
    EXPECT_EQ(rtpBefore + 3, line->GetReceivedPackets());
    EXPECT_EQ(rtcpBefore + 1, line->GetReceivedRtcpPackets());
}

}  // namespace
