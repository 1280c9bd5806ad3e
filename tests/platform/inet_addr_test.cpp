#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <map>
#include <unordered_set>

#include "tp/CmInetAddr.h"

namespace {

TEST(InetAddr, ParsesAndPrintsTable)
{
    const struct {
        const char* text;
        uint16_t port;
        int family;
        const char* display;
        const char* full;
    } kGood[] = {
        {"1.2.3.4", 5, AF_INET, "1.2.3.4", "1.2.3.4:5"},
        {"0.0.0.0", 0, AF_INET, "0.0.0.0", "0.0.0.0:0"},
        {"255.255.255.255", 65535, AF_INET, "255.255.255.255", "255.255.255.255:65535"},
        {"::1", 5, AF_INET6, "::1", "[::1]:5"},
        {"[::1]", 5, AF_INET6, "::1", "[::1]:5"},
        {"2001:DB8:0:0:0:0:0:1", 3478, AF_INET6, "2001:db8::1", "[2001:db8::1]:3478"},
        {"::ffff:192.0.2.1", 80, AF_INET6, "::ffff:192.0.2.1", "[::ffff:192.0.2.1]:80"},
        {"fe80::1%3", 9, AF_INET6, "fe80::1%3", "[fe80::1%3]:9"},
        {"fe80::1%lo", 9, AF_INET6, "fe80::1%1", "[fe80::1%1]:9"},
    };
    for (const auto& c : kGood) {
        SCOPED_TRACE(c.text);
        CCmInetAddr addr;
        ASSERT_EQ(CM_OK, addr.Set(c.text, c.port));
        EXPECT_EQ(c.family, addr.GetType());
        EXPECT_EQ(c.family == AF_INET6, addr.IsIpv6());
        EXPECT_EQ(c.port, addr.GetPort());
        EXPECT_EQ(c.display, addr.GetIpDisplayName());
        EXPECT_EQ(c.full, addr.ToString());
        EXPECT_EQ(c.family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in), addr.GetSize());
        // Through the sockaddr and back gives the same address.
        EXPECT_EQ(addr, CCmInetAddr(addr.GetPtr(), addr.GetSize()));
    }
}

TEST(InetAddr, RefusesBadTextAndKeepsPreviousValue)
{
    const char* kBad[] = {
        "",           "1.2.3",       "1.2.3.4.5",     "256.1.1.1",    "01.2.3.4x",  "1.2.3.4 ",
        " 1.2.3.4",   "1.2.3.-4",    "0x7f.0.0.1",    ":::",          "1::2::3",    "[::1",
        "::1]",       "[1.2.3.4]",   "fe80::1%",      "fe80::1%nosuchif0", "12345::", "example.org",
        "1.2.3.4:80", "gggg::1",     "2001:db8::1%99999999999999",
    };
    for (const char* text : kBad) {
        SCOPED_TRACE(text);
        CCmInetAddr addr("10.0.0.1", 7);
        EXPECT_NE(CM_OK, addr.Set(text, 9));
        EXPECT_EQ("10.0.0.1:7", addr.ToString());
        EXPECT_NE(CM_OK, addr.SetIpAddrByString(text));
        EXPECT_EQ("10.0.0.1:7", addr.ToString());
        EXPECT_FALSE(CCmInetAddr(text, 1).IsValid());
    }
    CCmInetAddr addr;
    EXPECT_EQ(CM_ERROR_INVALID_ARG, addr.Set(nullptr, 1));
    EXPECT_EQ(CM_ERROR_NULL_POINTER, addr.SetIpAddrBySock(nullptr, 16));
    sockaddr_in shortV4{};
    shortV4.sin_family = AF_INET;
    EXPECT_EQ(CM_ERROR_INVALID_ARG, addr.SetIpAddrBySock(reinterpret_cast<sockaddr*>(&shortV4), 4));
    sockaddr unknown{};
    unknown.sa_family = AF_UNIX;
    EXPECT_EQ(CM_ERROR_INVALID_ARG, addr.SetIpAddrBySock(&unknown, sizeof(unknown)));
}

TEST(InetAddr, PortAndAddressChangeSeparately)
{
    CCmInetAddr addr("192.0.2.7", 1000);
    ASSERT_EQ(CM_OK, addr.SetIpAddrByString("::1"));
    EXPECT_EQ("[::1]:1000", addr.ToString());
    addr.SetPort(2000);
    EXPECT_EQ(2000, addr.GetPort());
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(addr.GetPtr());
    EXPECT_EQ(htons(2000), v6->sin6_port);
    ASSERT_EQ(CM_OK, addr.Set("localhost", 53, true));  // /etc/hosts, no network
    EXPECT_TRUE(addr.IsLoopback());
    EXPECT_EQ(53, addr.GetPort());
}

TEST(InetAddr, Classification)
{
    const struct {
        const char* text;
        bool loopback, any, linkLocal;
    } kCases[] = {
        {"127.0.0.1", true, false, false},   {"127.255.0.9", true, false, false},
        {"::1", true, false, false},         {"::ffff:127.0.0.1", true, false, false},
        {"0.0.0.0", false, true, false},     {"::", false, true, false},
        {"169.254.1.1", false, false, true}, {"fe80::1", false, false, true},
        {"febf::1", false, false, true},     {"fec0::1", false, false, false},
        {"192.0.2.1", false, false, false},  {"2001:db8::1", false, false, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        const CCmInetAddr addr(c.text, 0);
        ASSERT_TRUE(addr.IsValid());
        EXPECT_EQ(c.loopback, addr.IsLoopback());
        EXPECT_EQ(c.any, addr.IsAny());
        EXPECT_EQ(c.linkLocal, addr.IsLinkLocal());
    }
}

TEST(InetAddr, EqualityOrderAndHashAgree)
{
    const CCmInetAddr a("10.0.0.1", 5), a2("10.0.0.1", 5), b("10.0.0.1", 6), c("10.0.0.2", 1), d("::1", 5),
        e("fe80::1%1", 5), e2("fe80::1%2", 5);
    EXPECT_EQ(a, a2);
    EXPECT_NE(a, b);
    EXPECT_NE(e, e2);  // scope is part of the identity
    EXPECT_TRUE(a < b && b < c && c < d);  // port, then address, then family order
    EXPECT_FALSE(a < a2 || a2 < a);
    std::unordered_set<CCmInetAddr> set{a, a2, b, c, d, e, e2};
    EXPECT_EQ(6u, set.size());
    std::map<CCmInetAddr, int> map{{a, 1}, {a2, 2}, {b, 3}};
    EXPECT_EQ(2u, map.size());
}

TEST(InetAddr, Nat64Synthesis)
{
    // RFC 6052 section 2.4 table: 192.0.2.33 under each prefix length.
    const struct {
        int length;
        const char* prefix;
        const char* synthesized;
    } kCases[] = {
        {32, "2001:db8::", "2001:db8:c000:221::"},
        {40, "2001:db8:100::", "2001:db8:1c0:2:21::"},
        {48, "2001:db8:122::", "2001:db8:122:c000:2:2100::"},
        {56, "2001:db8:122:300::", "2001:db8:122:3c0:0:221::"},
        {64, "2001:db8:122:344::", "2001:db8:122:344:c0:2:2100:0"},
        {96, "2001:db8:122:344::", "2001:db8:122:344::c000:221"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.length);
        CCmInetAddr addr("192.0.2.33", 3478);
        ASSERT_EQ(CM_OK, addr.XLAT46(CCmInetAddr(c.prefix, 0), c.length));
        EXPECT_EQ(c.synthesized, addr.GetIpDisplayName());
        EXPECT_EQ(3478, addr.GetPort());
        // The same prefix carrying the well-known address is recognised at that length.
        CCmInetAddr wka("192.0.0.170", 0);
        ASSERT_EQ(CM_OK, wka.XLAT46(CCmInetAddr(c.prefix, 0), c.length));
        EXPECT_EQ(c.length, CCmInetAddr::ParsePrefixLength(wka));
    }
    EXPECT_EQ(96, CCmInetAddr::ParsePrefixLength(CCmInetAddr("64:ff9b::192.0.0.171", 0)));
    EXPECT_EQ(-1, CCmInetAddr::ParsePrefixLength(CCmInetAddr("2001:db8::1", 0)));
    EXPECT_EQ(-1, CCmInetAddr::ParsePrefixLength(CCmInetAddr("192.0.0.170", 0)));
    CCmInetAddr v4("192.0.2.1", 0);
    EXPECT_EQ(CM_ERROR_INVALID_ARG, v4.XLAT46(CCmInetAddr("64:ff9b::", 0), 72));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, v4.XLAT46(CCmInetAddr("10.0.0.1", 0), 96));
    CCmInetAddr v6("::1", 0);
    EXPECT_EQ(CM_ERROR_INVALID_ARG, v6.XLAT46(CCmInetAddr("64:ff9b::", 0), 96));
}

}  // namespace
