// Our DTLS client against `openssl s_server -dtls -use_srtp` on loopback: the handshake completes
// and both sides export the same 60 bytes of SRTP keying material.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "tp/CmCert.h"
#include "tp/CmDtls.h"

namespace {

struct UdpClient : ICmDtlsSink {
    void OnDtlsSend(const uint8_t* data, size_t length) override { send(fd, data, length, 0); }
    void OnDtlsConnected() override { connected = true; }
    void OnDtlsFailed(const char* why) override { failure = why; }
    int fd = -1;
    bool connected = false;
    std::string failure;
};

uint16_t FreeUdpPort()
{
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    close(fd);
    return ntohs(a.sin_port);
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

TEST(DtlsOpenSslPeerTest, HandshakeAndKeyingMaterialMatchOpenSsl)
{
    CCmString serverCert, serverKey, clientCert, clientKey, serverFingerprint;
    ASSERT_EQ(CM_OK, CreateCert(serverCert, serverKey, 2048, 0, 30));
    ASSERT_EQ(CM_OK, CreateCert(clientCert, clientKey, 1024, 0, 30));
    ASSERT_EQ(CM_OK, GenerateFingerPrint(serverCert, serverFingerprint, "sha-1"));
    char dir[] = "/tmp/dtls-peer-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    const std::string certPath = std::string(dir) + "/c.pem", keyPath = std::string(dir) + "/k.pem";
    std::ofstream(certPath) << serverCert;
    std::ofstream(keyPath) << serverKey;

    const uint16_t port = FreeUdpPort();
    // s_server leaves when its input closes: the sleep bounds its life.
    const std::string command = "sleep 5 | openssl s_server -dtls -accept 127.0.0.1:" + std::to_string(port) +
                                " -cert " + certPath + " -key " + keyPath +
                                " -use_srtp SRTP_AES128_CM_SHA1_80 -keymatexport EXTRACTOR-dtls_srtp"
                                " -keymatexportlen 60 -naccept 1 2>&1";
    FILE* server = popen(command.c_str(), "r");
    ASSERT_NE(nullptr, server);
    char line[4096];
    bool listening = false;
    while (!listening && fgets(line, sizeof(line), server)) listening = std::string(line).find("ACCEPT") != std::string::npos;
    ASSERT_TRUE(listening);

    UdpClient client;
    client.fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, connect(client.fd, reinterpret_cast<sockaddr*>(&to), sizeof(to)));
    CmDtls* session = CmDtls_Create(clientCert, clientKey, CM_DTLS_ROLE_CLIENT, &client);
    ASSERT_NE(nullptr, session);
    CmDtls_SetRemoteFingerPrint(session, "sha-1", serverFingerprint);
    CmDtls_Connect(session);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(6);
    while (!client.connected && client.failure.empty() && std::chrono::steady_clock::now() < deadline) {
        pollfd p{client.fd, POLLIN, 0};
        int wait = CmDtls_GetTimeout(session);
        if (poll(&p, 1, wait < 0 || wait > 100 ? 100 : wait) > 0) {
            uint8_t buf[4096];
            ssize_t n = recv(client.fd, buf, sizeof(buf), 0);
            if (n > 0) CmDtls_ReadData(session, buf, static_cast<size_t>(n));
        } else {
            CmDtls_HandleTimeout(session);
        }
    }
    ASSERT_TRUE(client.connected) << client.failure;
    CmDtlsSrtpKeys keys{};
    ASSERT_EQ(CM_OK, CmDtls_ExportKey(session, keys));
    const std::string ours = Hex(reinterpret_cast<const uint8_t*>(&keys), sizeof(keys));

    std::string theirs;
    while (theirs.empty() && fgets(line, sizeof(line), server)) {
        std::string text(line);
        auto at = text.find("Keying material: ");
        if (at != std::string::npos) theirs = text.substr(at + 17, 120);
    }
    pclose(server);
    CmDtls_Destroy(session);
    close(client.fd);
    std::remove(certPath.c_str());
    std::remove(keyPath.c_str());
    rmdir(dir);
    EXPECT_EQ(theirs, ours);
}

}  // namespace
