// Address helpers: parsing, printing, comparing and classifying, in both profiles.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "sockaddr_util.h"

namespace {

sockaddr_storage Parse(const char* text)
{
    sockaddr_storage s;
    gatewalk::sockaddr_reset(&s);
    EXPECT_TRUE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&s), text)) << text;
    return s;
}

const sockaddr* Sa(const sockaddr_storage& s) { return reinterpret_cast<const sockaddr*>(&s); }

TEST(SockaddrUtil, ParsesAndPrintsBothFamilies)
{
    struct Row {
        const char* in;
        const char* out;  // printed with port
        unsigned int port;
    };
    const Row rows[] = {
        {"192.0.2.1", "192.0.2.1:0", 0},
        {"192.0.2.1:3478", "192.0.2.1:3478", 3478},
        {"2001:db8::1", "[2001:db8::1]:0", 0},
        {"[2001:db8::1]:65535", "[2001:db8::1]:65535", 65535},
        {"[::1]", "[::1]:0", 0},
    };
    for (const Row& r : rows) {
        auto s = Parse(r.in);
        char buf[64];
        EXPECT_STREQ(gatewalk::sockaddr_toString(Sa(s), buf, sizeof buf, true), r.out);
        EXPECT_EQ(gatewalk::sockaddr_ipPort(Sa(s)), r.port);
    }
    const char* bad[] = {"", "300.1.1.1", "1.2.3.4:", "1.2.3.4:70000", "1.2.3.4:80x", "[::1]:", "[::1", "zz::1",
                         "2001:db8::1:80:90:1:2:3:4:5"};
    sockaddr_storage s;
    for (const char* text : bad)
        EXPECT_FALSE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&s), text)) << text;
    EXPECT_FALSE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&s), nullptr));
}

TEST(SockaddrUtil, ToStringNeedsRoomForTheFamily)
{
    auto v4 = Parse("255.255.255.255:65535");
    auto v6 = Parse("[ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255]:65535");
    char buf[64];
    EXPECT_EQ(gatewalk::sockaddr_toString(Sa(v4), buf, 23, true), nullptr);
    EXPECT_STREQ(gatewalk::sockaddr_toString(Sa(v4), buf, 24, false), "255.255.255.255");
    EXPECT_EQ(gatewalk::sockaddr_toString(Sa(v6), buf, 53, true), nullptr);
    EXPECT_NE(gatewalk::sockaddr_toString(Sa(v6), buf, 54, true), nullptr);
    sockaddr_storage unset;
    gatewalk::sockaddr_reset(&unset);
    EXPECT_EQ(gatewalk::sockaddr_toString(Sa(unset), buf, sizeof buf, true), nullptr);
}

TEST(SockaddrUtil, ComparesAddressesAndPorts)
{
    auto a = Parse("10.0.0.1:5000"), b = Parse("10.0.0.1:5001"), c = Parse("10.0.0.2:5000");
    auto mapped = Parse("[::ffff:10.0.0.1]:5000");
    EXPECT_TRUE(gatewalk::sockaddr_sameAddr(Sa(a), Sa(b)));
    EXPECT_FALSE(gatewalk::sockaddr_samePort(Sa(a), Sa(b)));
    EXPECT_FALSE(gatewalk::sockaddr_sameAddr(Sa(a), Sa(c)));
    EXPECT_FALSE(gatewalk::sockaddr_sameAddr(Sa(a), Sa(mapped)));  // other family, never the same
    EXPECT_FALSE(gatewalk::sockaddr_alike(Sa(a), nullptr));
    EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(a), Sa(a)));
    sockaddr_storage copy;
    ASSERT_TRUE(gatewalk::sockaddr_copy(reinterpret_cast<sockaddr*>(&copy), Sa(mapped)));
    EXPECT_TRUE(gatewalk::sockaddr_alike(Sa(copy), Sa(mapped)));
    gatewalk::sockaddr_setPort(reinterpret_cast<sockaddr*>(&copy), 7);
    EXPECT_EQ(gatewalk::sockaddr_ipPort(Sa(copy)), 7u);

    sockaddr_in v4;
    gatewalk::sockaddr_initFromIPv4Int(&v4, htonl(0x0A000001), htons(5000));  // stored as given
    EXPECT_TRUE(gatewalk::sockaddr_alike(reinterpret_cast<sockaddr*>(&v4), Sa(a)));
    sockaddr_in6 any;
    gatewalk::sockaddr_initAsIPv6Any(&any);
    EXPECT_TRUE(gatewalk::sockaddr_isAddrAny(reinterpret_cast<sockaddr*>(&any)));
    EXPECT_FALSE(gatewalk::sockaddr_isAddrAny(nullptr));
}

TEST(SockaddrUtil, ClassifiesAddressesPerProfile)
{
    struct Row {
        const char* text;
        bool loopback, priv, linkQlox, linkZyn, siteLocal, ula;
    };
    const Row rows[] = {
        {"127.0.0.1", true, false, false, false, false, false},
        {"127.0.0.2", false, false, false, false, false, false},  // one address, not 127/8
        {"::1", true, false, false, false, false, false},
        {"10.1.2.3", false, true, false, false, false, false},
        {"172.16.0.1", false, true, false, false, false, false},
        {"172.32.0.1", false, false, false, false, false, false},
        {"192.168.9.9", false, true, false, false, false, false},
        {"169.254.1.1", false, false, true, false, false, false},
        {"fe80::1", false, false, true, true, false, false},
        {"fec0::1", false, false, false, false, true, false},
        {"fd00::1", false, false, false, false, false, true},
        {"2001:db8::1", false, false, false, false, false, false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        auto s = Parse(r.text);
        EXPECT_EQ(gatewalk::sockaddr_isAddrLoopBack(Sa(s)), r.loopback);
        EXPECT_EQ(gatewalk::sockaddr_isAddrPrivate(Sa(s)), r.priv);
        EXPECT_EQ(qlox_gatewalk::sockaddr_isAddrLinkLocal(Sa(s)), r.linkQlox);
        EXPECT_EQ(zyn_gatewalk::sockaddr_isAddrLinkLocal(Sa(s)), r.linkZyn);
        EXPECT_EQ(qlox_gatewalk::sockaddr_isAddrSiteLocal(Sa(s)), r.siteLocal);
        EXPECT_EQ(qlox_gatewalk::sockaddr_isAddrULA(Sa(s)), r.ula);
        EXPECT_EQ(qlox_gatewalk::sockaddr_isIpv4Addr(Sa(s)), !gatewalk::sockaddr_isIpv6Addr(Sa(s)));
        EXPECT_FALSE(qlox_gatewalk::sockaddr_isAddrTemporary(Sa(s), "eth0"));
    }
}

}  // namespace
