// Our DTLS session against the openssl command line on loopback, in both roles: as client against
// `s_server -dtls -use_srtp`, as server against `s_client -dtls -use_srtp`. A handshake with the
// right fingerprint ends with both sides exporting the same 60 bytes of SRTP keying material; one
// whose certificate does not match the fingerprint we were given never yields keys.
//
// Runs on the test's thread: it owns the UDP socket, drives the session's retransmissions and reads
// what the openssl process prints.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "tp/CmCert.h"
#include "tp/CmDtls.h"

namespace {

using Clock = std::chrono::steady_clock;

struct UdpPeer : ICmDtlsSink {
    void OnDtlsSend(const uint8_t* data, size_t length) override
    {
        if (connected_to_peer) send(fd, data, length, 0);
    }
    void OnDtlsConnected() override { connected = true; }
    void OnDtlsFailed(const char* why) override { failure = why; }
    int fd = -1;
    bool connected_to_peer = false;
    bool connected = false;
    std::string failure;
};

// A loopback UDP socket on a port of the system's choosing.
int BoundUdpSocket(uint16_t& port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    port = ntohs(a.sin_port);
    return fd;
}

std::string Hex(const uint8_t* data, size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 0xF];
    }
    return out;
}

// An openssl command with its input held open (it leaves when the input closes) and its output
// read line by line against a deadline. Killed if it outstays the test.
class OpenSslProcess {
public:
    explicit OpenSslProcess(const std::string& command)
    {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        m_pid = fork();
        if (m_pid == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(out[1], 2);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        m_input = in[1];
        m_output = out[0];
    }
    ~OpenSslProcess()
    {
        if (m_input >= 0) close(m_input);
        if (m_pid > 0) {
            // Its input is closed: it leaves at once, or is made to.
            int status = 0;
            const auto deadline = Clock::now() + std::chrono::seconds(2);
            while (waitpid(m_pid, &status, WNOHANG) == 0) {
                if (Clock::now() > deadline) {
                    kill(m_pid, SIGKILL);
                    waitpid(m_pid, &status, 0);
                    break;
                }
                usleep(10000);
            }
        }
        if (m_output >= 0) close(m_output);
    }
    // The text after `marker` on the first line that has it, or nothing when none came in time.
    std::optional<std::string> WaitFor(const std::string& marker, std::chrono::milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        for (;;) {
            for (size_t end; (end = m_pending.find('\n')) != std::string::npos;) {
                const std::string line = m_pending.substr(0, end);
                m_pending.erase(0, end + 1);
                m_seen += line + "\n";
                if (auto at = line.find(marker); at != std::string::npos) return line.substr(at + marker.size());
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            pollfd p{m_output, POLLIN, 0};
            if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) return std::nullopt;
            char buffer[4096];
            const ssize_t n = read(m_output, buffer, sizeof(buffer));
            if (n <= 0) return std::nullopt;
            m_pending.append(buffer, static_cast<size_t>(n));
        }
    }
    bool Started() const { return m_pid > 0; }
    const std::string& Seen() const { return m_seen; }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_pending;
    std::string m_seen;
};

struct Credentials {
    CCmString cert, key;
    std::string certPath, keyPath;
};

class DtlsOpenSslPeerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(nullptr, mkdtemp(m_dir));
        MakeCredentials("ours", m_ours);
        MakeCredentials("theirs", m_theirs);
        MakeCredentials("stranger", m_stranger);
    }
    void TearDown() override
    {
        for (const Credentials* c : {&m_ours, &m_theirs, &m_stranger}) {
            std::remove(c->certPath.c_str());
            std::remove(c->keyPath.c_str());
        }
        rmdir(m_dir);
    }
    void MakeCredentials(const std::string& name, Credentials& out)
    {
        ASSERT_EQ(CM_OK, CreateCert(out.cert, out.key, 2048, 0, 30));
        out.certPath = std::string(m_dir) + "/" + name + "-cert.pem";
        out.keyPath = std::string(m_dir) + "/" + name + "-key.pem";
        std::ofstream(out.certPath) << out.cert;
        std::ofstream(out.keyPath) << out.key;
    }

    char m_dir[32] = "/tmp/dtls-peer-XXXXXX";
    Credentials m_ours, m_theirs, m_stranger;
};

struct RoleCase {
    const char* name;
    CmDtlsRole ours;
    const char* hash;
    bool theirsMatchesFingerprint;  // false: the peer shows another certificate than the one we expect
};

TEST_F(DtlsOpenSslPeerTest, BothRolesExportTheSameKeysAndRefuseAnotherCertificate)
{
    const RoleCase cases[] = {
        {"client against s_server", CM_DTLS_ROLE_CLIENT, "sha-1", true},
        {"server against s_client", CM_DTLS_ROLE_SERVER, "sha-256", true},
        {"client, s_server shows another certificate", CM_DTLS_ROLE_CLIENT, "sha-256", false},
        {"server, s_client shows another certificate", CM_DTLS_ROLE_SERVER, "sha-1", false},
    };
    const std::string srtp =
        " -use_srtp SRTP_AES128_CM_SHA1_80 -keymatexport EXTRACTOR-dtls_srtp -keymatexportlen 60";
    for (const RoleCase& c : cases) {
        SCOPED_TRACE(c.name);
        const Credentials& shown = c.theirsMatchesFingerprint ? m_theirs : m_stranger;
        CCmString expected;
        ASSERT_EQ(CM_OK, GenerateFingerPrint(m_theirs.cert, expected, c.hash));

        UdpPeer peer;
        uint16_t port = 0;
        peer.fd = BoundUdpSocket(port);
        std::unique_ptr<OpenSslProcess> openssl;
        if (c.ours == CM_DTLS_ROLE_CLIENT) {
            // The server's port: ours is bound and closed, s_server takes it.
            close(peer.fd);
            openssl = std::make_unique<OpenSslProcess>("openssl s_server -dtls -accept 127.0.0.1:" + std::to_string(port) +
                                                       " -cert " + shown.certPath + " -key " + shown.keyPath + srtp +
                                                       " -naccept 1");
            ASSERT_TRUE(openssl->WaitFor("ACCEPT", std::chrono::seconds(5)).has_value()) << openssl->Seen();
            uint16_t unused = 0;
            peer.fd = BoundUdpSocket(unused);
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(port);
            to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ASSERT_EQ(0, connect(peer.fd, reinterpret_cast<sockaddr*>(&to), sizeof(to)));
            peer.connected_to_peer = true;
        } else {
            openssl = std::make_unique<OpenSslProcess>("openssl s_client -dtls -connect 127.0.0.1:" + std::to_string(port) +
                                                       " -cert " + shown.certPath + " -key " + shown.keyPath + srtp);
        }
        ASSERT_TRUE(openssl->Started());

        CmDtls* session = CmDtls_Create(m_ours.cert, m_ours.key, c.ours, &peer);
        ASSERT_NE(nullptr, session);
        CmDtls_SetRemoteFingerPrint(session, c.hash, expected);
        CmDtls_Connect(session);
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (!peer.connected && peer.failure.empty() && Clock::now() < deadline) {
            pollfd p{peer.fd, POLLIN, 0};
            const int wait = CmDtls_GetTimeout(session);
            if (poll(&p, 1, wait < 0 || wait > 100 ? 100 : wait) > 0) {
                uint8_t buf[4096];
                sockaddr_in from{};
                socklen_t fromLength = sizeof(from);
                const ssize_t n = recvfrom(peer.fd, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
                // A server learns its peer from the ClientHello, and answers there from then on.
                if (n > 0 && !peer.connected_to_peer) {
                    ASSERT_EQ(0, connect(peer.fd, reinterpret_cast<sockaddr*>(&from), fromLength));
                    peer.connected_to_peer = true;
                }
                if (n > 0) CmDtls_ReadData(session, buf, static_cast<size_t>(n));
            } else {
                CmDtls_HandleTimeout(session);
            }
        }
        CmDtlsSrtpKeys keys{};
        const CmResult exported = CmDtls_ExportKey(session, keys);
        if (c.theirsMatchesFingerprint) {
            EXPECT_TRUE(peer.connected) << peer.failure << "\n" << openssl->Seen();
            EXPECT_EQ(CM_OK, exported);
            const std::string theirs =
                openssl->WaitFor("Keying material: ", std::chrono::seconds(3)).value_or("").substr(0, 120);
            EXPECT_EQ(theirs, Hex(reinterpret_cast<const uint8_t*>(&keys), sizeof(keys))) << openssl->Seen();
        } else {
            EXPECT_FALSE(peer.connected);
            EXPECT_EQ("remote fingerprint mismatch", peer.failure);
            EXPECT_NE(CM_OK, exported);
        }
        CmDtls_Destroy(session);
        close(peer.fd);
    }
}

}  // namespace
