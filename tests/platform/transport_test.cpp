// UDP and TCP transports on a real loop thread, against plain sockets on loopback.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "tp/CmThreadManager.h"
#include "tp/CmTransport.h"

namespace {

constexpr int kThreadType = 71;
constexpr auto kBound = std::chrono::seconds(10);

// Records what the library tells it, for the test thread to wait on.
class Recorder : public ICmAcceptorConnectorSink, public ICmTransportSink {
public:
    ~Recorder() override
    {
        for (ICmTransport* t : transports) t->ReleaseReference();
    }
    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        indications.push_back(reason);
        if (transport) {
            transport->AddReference();
            transport->OpenWithSink(this);
            transports.push_back(transport);
        }
        changed.notify_all();
    }
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        received.emplace_back(transport->GetPeerAddr().ToString(),
                              std::string(data.GetTopLevelReadPtr(), data.GetTopLevelLength()));
        changed.notify_all();
    }
    void OnSend(ICmTransport*, CCmTransportParameter*) override {}
    void OnDisconnect(CmResult, ICmTransport*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++disconnects;
        changed.notify_all();
    }
    template <class Pred>
    bool WaitFor(Pred pred)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kBound, [&] { return pred(*this); });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<CmResult> indications;
    std::vector<ICmTransport*> transports;
    std::vector<std::pair<std::string, std::string>> received;
    int disconnects = 0;
};

struct PlainUdp {
    explicit PlainUdp(const char* ip)
    {
        CCmInetAddr any(ip, 0);
        fd = socket(any.GetType(), SOCK_DGRAM, 0);
        bind(fd, any.GetPtr(), any.GetSize());
        sockaddr_storage ss{};
        socklen_t len = sizeof(ss);
        getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len);
        addr.SetIpAddrBySock(reinterpret_cast<sockaddr*>(&ss), len);
        timeval tv{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    }
    ~PlainUdp() { close(fd); }
    void SendTo(const CCmInetAddr& to, const std::string& text)
    {
        sendto(fd, text.data(), text.size(), 0, to.GetPtr(), to.GetSize());
    }
    std::string Receive()
    {
        char buf[2048];
        ssize_t n = recv(fd, buf, sizeof(buf), 0);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
    }
    int fd;
    CCmInetAddr addr;
};

class TransportTest : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite()
    {
        ACmThread* t = nullptr;
        CCmThreadManager::Instance()->SpawnNetworkThread_i(kThreadType, "t-nettest", t);
    }
};

TEST_P(TransportTest, UdpAcceptorHandsOutOneTransportPerRemoteAddress)
{
    Recorder rec;
    ICmAcceptor* acceptor = nullptr;
    ASSERT_EQ(CM_OK, CCmConnectionManager::Instance()->CreateConnectionServer(CM_CONNECTION_TYPE_UDP, acceptor, kThreadType));
    ASSERT_EQ(CM_OK, acceptor->StartListen(&rec, CCmInetAddr(GetParam(), 0)));
    const CCmInetAddr local = acceptor->GetLocalAddr();
    EXPECT_NE(0, local.GetPort());
    EXPECT_EQ(CM_ERROR_ALREADY_INITIALIZED, acceptor->StartListen(&rec, CCmInetAddr(GetParam(), 0)));

    PlainUdp a(GetParam()), b(GetParam());
    a.SendTo(local, "one");
    a.SendTo(local, "two");
    b.SendTo(local, "three");
    ASSERT_TRUE(rec.WaitFor([](Recorder& r) { return r.received.size() == 3; }));
    EXPECT_EQ(2u, rec.indications.size());  // one per peer, not per datagram
    EXPECT_EQ((std::pair{a.addr.ToString(), std::string("one")}), rec.received[0]);
    EXPECT_EQ((std::pair{a.addr.ToString(), std::string("two")}), rec.received[1]);
    EXPECT_EQ((std::pair{b.addr.ToString(), std::string("three")}), rec.received[2]);

    // The transport answers from the acceptor's own port.
    CCmMessageBlock reply("pong", 4);
    ASSERT_EQ(CM_OK, rec.transports[0]->SendData(reply));
    EXPECT_EQ("pong", a.Receive());

    // A disconnected peer is new again.
    rec.transports[0]->Disconnect(CM_OK);
    a.SendTo(local, "again");
    ASSERT_TRUE(rec.WaitFor([](Recorder& r) { return r.received.size() == 4; }));
    EXPECT_EQ(3u, rec.indications.size());

    // A connector reaches a peer that never sent anything.
    PlainUdp c(GetParam());
    ICmConnector* connector = nullptr;
    ASSERT_EQ(CM_OK, acceptor->CreateConnector(connector));
    ASSERT_EQ(CM_OK, connector->AsycConnect(&rec, c.addr));
    ASSERT_TRUE(rec.WaitFor([](Recorder& r) { return r.transports.size() == 4; }));
    CCmMessageBlock hello("hello", 5);
    EXPECT_EQ(CM_OK, rec.transports[3]->SendData(hello));
    EXPECT_EQ("hello", c.Receive());
    connector->ReleaseReference();

    EXPECT_EQ(CM_OK, acceptor->StopListen(CM_OK));
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, rec.transports[1]->SendData(hello));
    acceptor->ReleaseReference();
    // The port is free again.
    int again = socket(local.GetType(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, bind(again, local.GetPtr(), local.GetSize()));
    close(again);
}

TEST_P(TransportTest, FramedTcpDeliversWholeMessagesBothWays)
{
    Recorder server, client;
    ICmAcceptor* acceptor = nullptr;
    ASSERT_EQ(CM_OK, CCmConnectionManager::Instance()->CreateConnectionServer(CM_CONNECTION_TYPE_TCP_FRAMED, acceptor, kThreadType));
    ASSERT_EQ(CM_OK, acceptor->StartListen(&server, CCmInetAddr(GetParam(), 0)));
    ICmConnector* connector = nullptr;
    ASSERT_EQ(CM_OK, CCmConnectionManager::Instance()->CreateConnectionClient(CM_CONNECTION_TYPE_TCP_FRAMED, connector, kThreadType));
    ASSERT_EQ(CM_OK, connector->AsycConnect(&client, acceptor->GetLocalAddr()));
    ASSERT_TRUE(client.WaitFor([](Recorder& r) { return !r.indications.empty(); }));
    ASSERT_EQ(CM_OK, client.indications[0]);
    ASSERT_TRUE(server.WaitFor([](Recorder& r) { return r.transports.size() == 1; }));

    const std::vector<std::string> messages = {"a", std::string(3000, 'x'), "", "last"};
    for (const auto& m : messages) {
        CCmMessageBlock block(m.data(), m.size());
        ASSERT_EQ(CM_OK, client.transports[0]->SendData(block));
    }
    ASSERT_TRUE(server.WaitFor([&](Recorder& r) { return r.received.size() == messages.size(); }));
    for (size_t i = 0; i < messages.size(); ++i) EXPECT_EQ(messages[i], server.received[i].second);
    CCmMessageBlock tooBig(std::string(70000, 'y').data(), 70000);
    EXPECT_EQ(CM_ERROR_INVALID_ARG, client.transports[0]->SendData(tooBig));

    // The server end closes: the client hears of it.
    server.transports[0]->Disconnect(CM_OK);
    ASSERT_TRUE(client.WaitFor([](Recorder& r) { return r.disconnects == 1; }));
    connector->ReleaseReference();
    acceptor->StopListen(CM_OK);
    acceptor->ReleaseReference();
}

// TURN over TCP: STUN messages and channel data on one stream, each delimited by its own length.
// A plain socket writes them cut at awkward places; what arrives is the messages, channel data
// without its padding, and a stream that lost its framing is closed.
TEST_P(TransportTest, StunFramedTcpDeliversMessagesByTheirOwnLengths)
{
    Recorder server;
    ICmAcceptor* acceptor = nullptr;
    ASSERT_EQ(CM_OK, CCmConnectionManager::Instance()->CreateConnectionServer(CM_CONNECTION_TYPE_TCP_STUN, acceptor, kThreadType));
    ASSERT_EQ(CM_OK, acceptor->StartListen(&server, CCmInetAddr(GetParam(), 0)));
    const CCmInetAddr to = acceptor->GetLocalAddr();
    const int fd = socket(to.GetType(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, connect(fd, to.GetPtr(), to.GetSize()));
    ASSERT_TRUE(server.WaitFor([](Recorder& r) { return r.transports.size() == 1; }));

    // A STUN header with 8 bytes of attributes, channel data of 5 bytes padded to 8, an empty STUN
    // message, and channel data of 4 bytes that needs no padding.
    const std::string stun = std::string("\x00\x01\x00\x08\x21\x12\xa4\x42", 8) + std::string(12, 'i') + std::string(8, 'a');
    const std::string channel("\x40\x00\x00\x05" "hello\0\0\0", 12);
    const std::string empty = std::string("\x01\x01\x00\x00\x21\x12\xa4\x42", 8) + std::string(12, 'j');
    const std::string fourBytes("\x7f\xff\x00\x04" "abcd", 8);
    const std::string stream = stun + channel + empty + fourBytes;
    for (size_t at = 0; at < stream.size();) {
        const size_t piece = std::min<size_t>(at % 7 + 1, stream.size() - at);  // 1, 2, ... bytes at a time
        ASSERT_EQ(static_cast<ssize_t>(piece), send(fd, stream.data() + at, piece, 0));
        at += piece;
    }
    ASSERT_TRUE(server.WaitFor([](Recorder& r) { return r.received.size() == 4; }));
    EXPECT_EQ(stun, server.received[0].second);
    EXPECT_EQ(channel.substr(0, 9), server.received[1].second);
    EXPECT_EQ(empty, server.received[2].second);
    EXPECT_EQ(fourBytes, server.received[3].second);

    // Two top bits of 10 or 11 start neither: the stream is given up.
    ASSERT_EQ(4, send(fd, "\x80\x00\x00\x00", 4, 0));
    ASSERT_TRUE(server.WaitFor([](Recorder& r) { return r.disconnects == 1; }));
    close(fd);
    acceptor->StopListen(CM_OK);
    acceptor->ReleaseReference();
}

TEST_P(TransportTest, TcpConnectToAClosedPortFails)
{
    // A port just bound and released has nothing listening.
    int fd = socket(CCmInetAddr(GetParam(), 0).GetType(), SOCK_STREAM, 0);
    CCmInetAddr any(GetParam(), 0);
    bind(fd, any.GetPtr(), any.GetSize());
    sockaddr_storage ss{};
    socklen_t len = sizeof(ss);
    getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len);
    CCmInetAddr closed(reinterpret_cast<sockaddr*>(&ss), len);
    close(fd);

    Recorder client;
    ICmConnector* connector = nullptr;
    ASSERT_EQ(CM_OK, CCmConnectionManager::Instance()->CreateConnectionClient(CM_CONNECTION_TYPE_TCP, connector, kThreadType));
    ASSERT_EQ(CM_OK, connector->AsycConnect(&client, closed));
    ASSERT_TRUE(client.WaitFor([](Recorder& r) { return !r.indications.empty(); }));
    EXPECT_NE(CM_OK, client.indications[0]);
    EXPECT_TRUE(client.transports.empty());
    connector->ReleaseReference();
}

INSTANTIATE_TEST_SUITE_P(Loopback, TransportTest, ::testing::Values("127.0.0.1", "::1"),
                         [](const auto& info) { return std::string(info.param[0] == ':' ? "IPv6" : "IPv4"); });

}  // namespace
