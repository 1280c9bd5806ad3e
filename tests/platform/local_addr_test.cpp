// The machine has other interfaces; every case here runs under an allow-list so that only loopback
// addresses can come back.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <stdlib.h>

#include <cstring>
#include <set>
#include <string>

#include "tp/CmInetAddr.h"
#include "util/CmLocalAddr.h"

namespace {

CmLocalAddr Entry(const char* ip)
{
    CmLocalAddr e{};
    const CCmInetAddr addr(ip, 0);
    memcpy(&e.addr, addr.GetPtr(), addr.GetSize());
    return e;
}

std::string Text(const CmLocalAddr& e)
{
    return CCmInetAddr(reinterpret_cast<const sockaddr*>(&e.addr), sizeof(e.addr)).GetIpDisplayName();
}

std::set<std::string> Enumerate()
{
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    EXPECT_EQ(CM_OK, get_local_addr(&list, &count));
    prune_local_addr(list, &count);
    std::set<std::string> out;
    for (unsigned int i = 0; i < count; ++i) out.insert(Text(list[i]));
    free_local_addr(list);
    return out;
}

class LocalAddrTest : public ::testing::Test {
protected:
    void TearDown() override { clear_local_addr_allow_list(); }
};

TEST_F(LocalAddrTest, AllowListGivesOnlyLoopback)
{
    set_local_addr_allow_list({"127.0.0.1", "::1"});
    EXPECT_EQ((std::set<std::string>{"127.0.0.1", "::1"}), Enumerate());
    EXPECT_FALSE(isPureIp6());

    // The raw enumeration obeys the list too: callers that skip prune_local_addr see the same.
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    ASSERT_EQ(CM_OK, get_local_addr(&list, &count));
    for (unsigned int i = 0; i < count; ++i) {
        SCOPED_TRACE(Text(list[i]));
        EXPECT_TRUE(list[i].loopback);
        EXPECT_STRNE("", list[i].ifname);
        EXPECT_NE(0u, list[i].ifindex);
        const CCmInetAddr addr(reinterpret_cast<const sockaddr*>(&list[i].addr), sizeof(list[i].addr));
        EXPECT_EQ(0, addr.GetPort());
    }
    free_local_addr(list);
}

TEST_F(LocalAddrTest, EnvironmentListAppliesUntilOverridden)
{
    ASSERT_EQ(0, setenv("MEDIASESSION_ALLOWED_ADDRS", " 127.0.0.1 ", 1));
    EXPECT_EQ((std::set<std::string>{"127.0.0.1"}), Enumerate());
    set_local_addr_allow_list({"::1"});
    EXPECT_EQ((std::set<std::string>{"::1"}), Enumerate());
    // An unreadable list admits nothing rather than everything.
    clear_local_addr_allow_list();
    ASSERT_EQ(0, setenv("MEDIASESSION_ALLOWED_ADDRS", "not-an-address", 1));
    EXPECT_TRUE(Enumerate().empty());
    ASSERT_EQ(0, unsetenv("MEDIASESSION_ALLOWED_ADDRS"));
}

TEST_F(LocalAddrTest, PruneDropsLinkLocalRepeatsAndUnlisted)
{
    CmLocalAddr list[] = {Entry("192.0.2.1"), Entry("fe80::1"), Entry("2001:db8::5"), Entry("192.0.2.1"),
                          Entry("10.1.1.1"), Entry("169.254.3.3")};
    unsigned int count = 6;
    set_local_addr_allow_list({});  // no restriction
    prune_local_addr(list, &count);
    ASSERT_EQ(4u, count);
    EXPECT_EQ("192.0.2.1", Text(list[0]));
    EXPECT_EQ("2001:db8::5", Text(list[1]));
    EXPECT_EQ("10.1.1.1", Text(list[2]));
    EXPECT_EQ("169.254.3.3", Text(list[3]));

    set_local_addr_allow_list({"10.1.1.1", "2001:db8::5"});
    prune_local_addr(list, &count);
    ASSERT_EQ(2u, count);
    EXPECT_EQ("2001:db8::5", Text(list[0]));
    EXPECT_EQ("10.1.1.1", Text(list[1]));

    prune_local_addr(nullptr, &count);  // tolerated
    EXPECT_EQ(CM_ERROR_NULL_POINTER, get_local_addr(nullptr, &count));
}

}  // namespace
