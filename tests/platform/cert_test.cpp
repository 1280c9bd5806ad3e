// Certificates are checked by the openssl command-line tool, an implementation we did not write:
// it must read ours as X.509 and compute the same fingerprints.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "tp/CmCert.h"

namespace {

struct TempFile {
    explicit TempFile(const std::string& content)
    {
        char name[] = "/tmp/cmcert_test_XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0) return;
        path = name;
        const bool ok = write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
        close(fd);
        if (!ok) path.clear();
    }
    ~TempFile()
    {
        if (!path.empty()) unlink(path.c_str());
    }
    std::string path;
};

// Output of a command (stderr dropped), and its exit status.
std::string RunCommand(const std::string& command, int& status)
{
    std::string out;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) {
        status = -1;
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) out.append(buf, n);
    status = pclose(pipe);
    return out;
}

// "SHA1 Fingerprint=AB:CD:...\n" -> "AB:CD:..."
std::string OpensslFingerprint(const std::string& path, const char* digest)
{
    int status = 0;
    std::string out = RunCommand("openssl x509 -noout -fingerprint -" + std::string(digest) + " -in " + path, status);
    EXPECT_EQ(0, status) << out;
    const size_t eq = out.find('=');
    if (eq == std::string::npos) return {};
    out = out.substr(eq + 1);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

class CertTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(CM_OK, CreateCert(cert, key, 1024, 0, 30)); }
    static inline CCmString cert;
    static inline CCmString key;
};

TEST_F(CertTest, OpensslReadsTheCertificate)
{
    TempFile file(cert);
    ASSERT_FALSE(file.path.empty());
    int status = 0;
    const std::string text = RunCommand("openssl x509 -noout -text -in " + file.path, status);
    ASSERT_EQ(0, status) << text;
    EXPECT_NE(std::string::npos, text.find("Version: 3")) << text;
    EXPECT_NE(std::string::npos, text.find("sha256WithRSAEncryption")) << text;
    EXPECT_NE(std::string::npos, text.find("Public-Key: (1024 bit)")) << text;
    EXPECT_NE(std::string::npos, text.find("Issuer: CN = MediaSession")) << text;
    EXPECT_NE(std::string::npos, text.find("Subject: CN = MediaSession")) << text;
    // Self-signed: the certificate verifies against itself.
    const std::string verify = RunCommand("openssl verify -CAfile " + file.path + " " + file.path, status);
    EXPECT_EQ(0, status) << verify;
}

TEST_F(CertTest, KeyBelongsToCertificate)
{
    TempFile certFile(cert), keyFile(key);
    int status = 0;
    const std::string fromCert = RunCommand("openssl x509 -noout -modulus -in " + certFile.path, status);
    ASSERT_EQ(0, status);
    const std::string fromKey = RunCommand("openssl rsa -noout -modulus -in " + keyFile.path, status);
    ASSERT_EQ(0, status);
    EXPECT_EQ(fromCert, fromKey);
}

TEST_F(CertTest, FingerprintsMatchOpenssl)
{
    TempFile file(cert);
    ASSERT_FALSE(file.path.empty());
    const struct {
        const char* ours;
        const char* openssl;
        size_t bytes;
    } kCases[] = {{"sha-1", "sha1", 20}, {"SHA1", "sha1", 20}, {"sha-256", "sha256", 32}, {"sha-512", "sha512", 64}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.ours);
        CCmString fp;
        ASSERT_EQ(CM_OK, GenerateFingerPrint(cert, fp, c.ours));
        EXPECT_EQ(c.bytes * 3 - 1, fp.size());
        EXPECT_EQ(OpensslFingerprint(file.path, c.openssl), fp);
    }
    CCmString fp;
    ASSERT_EQ(CM_OK, GenerateFingerPrint(cert, fp));  // sha-1 by default
    EXPECT_EQ(OpensslFingerprint(file.path, "sha1"), fp);
}

TEST_F(CertTest, SerialsDiffer)
{
    CCmString other, otherKey, fp1, fp2;
    ASSERT_EQ(CM_OK, CreateCert(other, otherKey, 0, 0, 0));  // defaults: 1024 bits, 365 days
    ASSERT_EQ(CM_OK, GenerateFingerPrint(cert, fp1));
    ASSERT_EQ(CM_OK, GenerateFingerPrint(other, fp2));
    EXPECT_NE(fp1, fp2);
    EXPECT_NE(key, otherKey);
}

TEST(CertRefusal, BadArgumentsGiveCodesAndEmptyOutput)
{
    CCmString cert = "stale", key = "stale";
    EXPECT_EQ(CM_ERROR_INVALID_ARG, CreateCert(cert, key, 512, 0, 1));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, CreateCert(cert, key, 100000, 0, 1));
    EXPECT_TRUE(cert.empty());
    EXPECT_TRUE(key.empty());

    const struct {
        const char* name;
        std::string pem;
        const char* hash;
    } kBad[] = {
        {"empty", "", "sha-1"},
        {"not pem", "hello", "sha-1"},
        {"truncated", "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n", "sha-1"},
        {"unknown hash", "irrelevant", "md4"},
        {"null hash", "irrelevant", nullptr},
    };
    for (const auto& c : kBad) {
        SCOPED_TRACE(c.name);
        CCmString fp = "stale";
        EXPECT_EQ(CM_ERROR_INVALID_ARG, GenerateFingerPrint(c.pem, fp, c.hash));
        EXPECT_TRUE(fp.empty());
    }
}

}  // namespace
