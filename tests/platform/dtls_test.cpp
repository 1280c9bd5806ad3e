// DTLS-SRTP sessions: two of ours through memory, with fingerprint checks and key agreement.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "tp/CmCert.h"
#include "tp/CmDtls.h"

namespace {

struct Endpoint : ICmDtlsSink {
    void OnDtlsSend(const uint8_t* data, size_t length) override { outbox.emplace_back(data, data + length); }
    void OnDtlsConnected() override { connected = true; }
    void OnDtlsFailed(const char* why) override { failure = why; }
    std::deque<std::vector<uint8_t>> outbox;
    bool connected = false;
    std::string failure;
    CmDtls* session = nullptr;
};

struct Credentials {
    CCmString cert, key, fingerprint;
};

const Credentials& Creds(int which)
{
    static Credentials c[2];
    if (c[which].cert.empty()) {
        CreateCert(c[which].cert, c[which].key, 1024, 0, 30);
        GenerateFingerPrint(c[which].cert, c[which].fingerprint, "sha-256");
    }
    return c[which];
}

// Delivers datagrams back and forth until both sides are quiet; returns the datagrams moved.
int Pump(Endpoint& a, Endpoint& b)
{
    int moved = 0;
    for (int round = 0; round < 50 && (!a.outbox.empty() || !b.outbox.empty()); ++round) {
        while (!a.outbox.empty()) {
            auto d = a.outbox.front();
            a.outbox.pop_front();
            CmDtls_ReadData(b.session, d.data(), d.size());
            ++moved;
        }
        while (!b.outbox.empty()) {
            auto d = b.outbox.front();
            b.outbox.pop_front();
            CmDtls_ReadData(a.session, d.data(), d.size());
            ++moved;
        }
    }
    return moved;
}

class DtlsPairTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        client = Endpoint();
        server = Endpoint();
        client.session = CmDtls_Create(Creds(0).cert, Creds(0).key, CM_DTLS_ROLE_CLIENT, &client);
        server.session = CmDtls_Create(Creds(1).cert, Creds(1).key, CM_DTLS_ROLE_SERVER, &server);
        ASSERT_NE(nullptr, client.session);
        ASSERT_NE(nullptr, server.session);
    }
    void TearDown() override
    {
        CmDtls_Destroy(client.session);
        CmDtls_Destroy(server.session);
    }
    Endpoint client, server;
};

TEST_F(DtlsPairTest, HandshakeWithMatchingFingerprintsAgreesOnSrtpKeys)
{
    CmDtls_SetRemoteFingerPrint(client.session, "sha-256", Creds(1).fingerprint);
    CmDtls_SetRemoteFingerPrint(server.session, "sha-256", Creds(0).fingerprint);
    CmDtlsSrtpKeys early{};
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, CmDtls_ExportKey(client.session, early));
    ASSERT_EQ(CM_OK, CmDtls_Connect(server.session));
    EXPECT_TRUE(server.outbox.empty());  // a server speaks only when spoken to
    ASSERT_EQ(CM_OK, CmDtls_Connect(client.session));
    EXPECT_FALSE(client.outbox.empty());
    EXPECT_EQ(CM_DTLS_STATE_CONNECTING, CmDtls_GetState(client.session));
    EXPECT_GE(CmDtls_GetTimeout(client.session), 0);  // the first flight waits for an answer
    Pump(client, server);
    ASSERT_TRUE(client.connected) << client.failure;
    ASSERT_TRUE(server.connected) << server.failure;
    EXPECT_EQ(CM_DTLS_STATE_CONNECTED, CmDtls_GetState(client.session));
    EXPECT_EQ(-1, CmDtls_GetTimeout(client.session));

    CmDtlsSrtpKeys a{}, b{};
    ASSERT_EQ(CM_OK, CmDtls_ExportKey(client.session, a));
    ASSERT_EQ(CM_OK, CmDtls_ExportKey(server.session, b));
    EXPECT_EQ(0, std::memcmp(&a, &b, sizeof(a)));
    EXPECT_NE(0, std::memcmp(a.clientKey, a.serverKey, sizeof(a.clientKey)));
}

TEST_F(DtlsPairTest, AWrongFingerprintFailsTheHandshake)
{
    struct Row {
        const char* name;
        bool clientChecksWrong;
    };
    for (const Row& row : {Row{"client sees the wrong server", true}, Row{"server sees the wrong client", false}}) {
        SCOPED_TRACE(row.name);
        TearDown();
        SetUp();
        // The right hash of the wrong certificate.
        if (row.clientChecksWrong)
            CmDtls_SetRemoteFingerPrint(client.session, "sha-256", Creds(0).fingerprint);
        else
            CmDtls_SetRemoteFingerPrint(server.session, "sha-256", Creds(1).fingerprint);
        CmDtls_Connect(server.session);
        CmDtls_Connect(client.session);
        Pump(client, server);
        Endpoint& checker = row.clientChecksWrong ? client : server;
        EXPECT_FALSE(checker.connected);
        EXPECT_EQ("remote fingerprint mismatch", checker.failure);
        EXPECT_EQ(CM_DTLS_STATE_FAILED, CmDtls_GetState(checker.session));
        CmDtlsSrtpKeys keys{};
        EXPECT_NE(CM_OK, CmDtls_ExportKey(checker.session, keys));
    }
}

TEST_F(DtlsPairTest, GarbageIsRefusedWithoutHarmAndRestartConnectsAgain)
{
    const uint8_t junk[] = {22, 0xFE, 0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    CmDtls_Connect(server.session);
    CmDtls_ReadData(server.session, junk, sizeof(junk));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, CmDtls_ReadData(client.session, junk, 0));
    CmDtls_Connect(client.session);
    Pump(client, server);
    ASSERT_TRUE(client.connected);

    client.connected = server.connected = false;
    ASSERT_EQ(CM_OK, CmDtls_Restart(client.session));
    ASSERT_EQ(CM_OK, CmDtls_Restart(server.session));
    CmDtls_Connect(server.session);
    CmDtls_Connect(client.session);
    Pump(client, server);
    EXPECT_TRUE(client.connected && server.connected);
}

TEST(DtlsCreateTest, BadCredentialsAreRefused)
{
    Endpoint e;
    EXPECT_EQ(nullptr, CmDtls_Create("not a certificate", Creds(0).key, CM_DTLS_ROLE_CLIENT, &e));
    EXPECT_EQ(nullptr, CmDtls_Create(Creds(0).cert, Creds(1).key, CM_DTLS_ROLE_CLIENT, &e));  // key of another
}

}  // namespace
