// An offer makes every line listen: ports in the line's range, really bound, and with DTLS the
// certificate's fingerprint before the line counts as ready.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "connection/MediaConnection.h"
#include "entry/CertficateGenerator.h"
#include "ice/IceConnectorImpl.h"
#include "line/MediaConnectionInfo.h"
#include "test_support.h"
#include "tp/CmThreadManager.h"
#include "util/CmLocalAddr.h"

namespace {

using zyn::CMediaConnection;
using zyn::CMediaConnectionInfo;

// The kernel's word on whether this process holds a UDP port: a socket of the kernel's tables on
// that port whose inode is one of our descriptors. (A second bind would also fail when another
// test process running beside this one took the port.)
bool IsBound(const CCmInetAddr& a)
{
    std::set<std::string> ours;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(fd.path(), error).string();
        if (!error && target.rfind("socket:[", 0) == 0) ours.insert(target.substr(8, target.size() - 9));
    }
    char port[8];
    std::snprintf(port, sizeof port, ":%04X", a.GetPort());
    std::ifstream table(a.GetType() == AF_INET6 ? "/proc/net/udp6" : "/proc/net/udp");
    std::string line;
    std::getline(table, line);  // the header
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode;
        if (local.size() > 5 && local.compare(local.size() - 5, 5, port) == 0 && ours.count(inode)) return true;
    }
    return false;
}

class ListenTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        set_local_addr_allow_list({"127.0.0.1", "::1"});
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_conn, 0));
        m_impl = static_cast<CMediaConnection*>(m_conn);
        m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr);
        m_conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 1, nullptr);
        m_conn->AddMedia(ZynSessionType_ScreenShare, ZynDirection_Recv, 2, nullptr);
        m_conn->AddMedia(ZynSessionType_Application, ZynDirection_SendRecv, 3, nullptr);
    }
    void TearDown() override
    {
        StopOnMain();
        m_conn->Release();
        clear_local_addr_allow_list();
    }
    // On the main thread, where the clean-up that Stop posts runs too, as an application does.
    void StopOnMain()
    {
        mstest::OnMain([this] { m_conn->Stop(); });
    }
    zyn::CIceConnector* Connector(unsigned long mid)
    {
        return dynamic_cast<zyn::CIceConnector*>(m_impl->FindConnection(mid)->GetIceConnector().Get());
    }

    mstest::EngineScope m_engine;
    IZynMediaConnection* m_conn = nullptr;
    CMediaConnection* m_impl = nullptr;
};

struct Range {
    unsigned long mid;
    uint16_t min, max;
};
const Range kRanges[] = {{0, 52000, 52049}, {1, 52100, 52199}, {2, 52100, 52199}};

TEST_F(ListenTest, WithIceEveryLineHasBoundHostCandidatesInItsRange)
{
    m_impl->EnableICE(true);
    ASSERT_EQ(ZYN_S_OK, m_conn->CreateOffer());
    for (const Range& r : kRanges) {
        SCOPED_TRACE(r.mid);
        CMediaConnectionInfo* line = m_impl->FindConnection(r.mid);
        EXPECT_TRUE(line->IsPortSelected());
        const auto& cands = Connector(r.mid)->GetCandidates();
        ASSERT_EQ(4u, cands.size());  // RTP and RTCP on 127.0.0.1 and ::1
        for (const auto& c : cands) {
            uint16_t port = c.rtpAddress.GetPort();
            EXPECT_GE(port, r.min);
            EXPECT_LE(port, r.max);
            EXPECT_EQ(c.component - 1, (port - r.min) % 2);
            EXPECT_TRUE(IsBound(c.rtpAddress)) << c.rtpAddress.ToString();
        }
    }
    EXPECT_FALSE(m_impl->FindConnection(3ul)->IsPortSelected());  // application lines do not listen
}

TEST_F(ListenTest, WithoutIceAPlainPortPairPerLine)
{
    ASSERT_EQ(ZYN_S_OK, m_conn->CreateOffer());
    std::vector<CCmInetAddr> bound;
    for (const Range& r : kRanges) {
        SCOPED_TRACE(r.mid);
        zyn::CIceConnector* c = Connector(r.mid);
        uint16_t rtp = c->GetLocalRtpAddress().GetPort();
        EXPECT_EQ(0, (rtp - r.min) % 2);
        EXPECT_EQ(rtp + 1, c->GetLocalRtcpAddress().GetPort());
        EXPECT_TRUE(IsBound(c->GetLocalRtpAddress()));
        EXPECT_TRUE(IsBound(c->GetLocalRtcpAddress()));
        bound.push_back(c->GetLocalRtpAddress());
        bound.push_back(c->GetLocalRtcpAddress());
    }
    // Stop closes them all.
    StopOnMain();
    for (const CCmInetAddr& a : bound) EXPECT_FALSE(IsBound(a)) << a.ToString();
}

TEST_F(ListenTest, WithDtlsALineIsReadyOnceTheCertificateIsThere)
{
    m_impl->EnableDtlsSRTP(true);
    // On the main thread, as an application calls it: the lines that wait finish there too.
    ZynResult created = ZYN_E_FAIL;
    mstest::OnMain([&] { created = m_conn->CreateOffer(); });
    ASSERT_EQ(ZYN_S_OK, created);
    // The generator finishes in the background and posts to the main thread.
    zyn::CCertficateGenerator::Instance()->Join();
    mstest::OnMain();
    const std::regex sha1("([0-9A-F]{2}:){19}[0-9A-F]{2}");
    for (const Range& r : kRanges) {
        SCOPED_TRACE(r.mid);
        CMediaConnectionInfo* line = m_impl->FindConnection(r.mid);
        EXPECT_TRUE(line->IsPortSelected());
        EXPECT_TRUE(std::regex_match(line->GetLocalFingerPrint(), sha1)) << line->GetLocalFingerPrint();
    }
}

}  // namespace
