// The description file of `mediasession ice-peer`: what libnice and aioice print must read, a file we
// write must read back the same, and every malformed line is refused with its line number.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "ice_peer_description.h"
#include "sockaddr_util.h"

namespace {

using tool::ice_peer::AddressText;
using tool::ice_peer::Candidate;
using tool::ice_peer::Description;
using tool::ice_peer::Format;
using tool::ice_peer::Parse;

// As nice_agent_generate_local_sdp prints it, with a TCP candidate that the reader leaves out.
const char* kLibnice =
    "m=- 55202 ICE/SDP\n"
    "c=IN IP4 127.0.0.1\n"
    "a=ice-ufrag:3Aav\n"
    "a=ice-pwd:FO8SzpqmkaNDfxW2H4CEnS\n"
    "a=candidate:1 1 UDP 2015364095 127.0.0.1 55202 typ host\n"
    "a=candidate:2 1 TCP 1015022079 127.0.0.1 9 typ host tcptype active\n";

struct ReadCase {
    const char* name;
    std::string text;
    size_t candidates;
    const char* firstAddress;
    const char* defaultAddress;
};
void PrintTo(const ReadCase& c, std::ostream* os) { *os << c.name; }

class Reads : public testing::TestWithParam<ReadCase> {};

TEST_P(Reads, KeepsUdpCandidatesAndADefaultAmongThem)
{
    const auto& c = GetParam();
    Description d;
    std::string error;
    ASSERT_TRUE(Parse(c.text, d, error)) << error;
    EXPECT_FALSE(d.ufrag.empty());
    EXPECT_FALSE(d.pwd.empty());
    ASSERT_EQ(d.candidates.size(), c.candidates);
    EXPECT_EQ(AddressText(d.candidates[0].address), c.firstAddress);
    EXPECT_EQ(AddressText(d.defaultAddress), c.defaultAddress);
}

INSTANTIATE_TEST_SUITE_P(
    IcePeerDescription, Reads,
    testing::Values(
        ReadCase{"libnice", kLibnice, 1, "127.0.0.1:55202", "127.0.0.1:55202"},
        ReadCase{"aioice_lower_case_udp_and_generation",
                 "m=- 40001 ICE/SDP\nc=IN IP4 127.0.0.1\na=ice-ufrag:wxyz\na=ice-pwd:pppppppppppppppppppppp\n"
                 "a=candidate:5d4e 1 udp 2130706431 127.0.0.1 40001 typ host generation 0\n",
                 1, "127.0.0.1:40001", "127.0.0.1:40001"},
        ReadCase{"crlf_and_ipv6",
                 "m=- 40002 ICE/SDP\r\nc=IN IP6 ::1\r\na=ice-ufrag:u\r\na=ice-pwd:p\r\n"
                 "a=candidate:1 1 UDP 2130706431 ::1 40002 typ host\r\n",
                 1, "[::1]:40002", "[::1]:40002"},
        // The m=/c= pair names an address that is no candidate: the first component-1 one stands in.
        ReadCase{"default_not_a_candidate",
                 "m=- 9 ICE/SDP\nc=IN IP4 0.0.0.0\na=ice-ufrag:u\na=ice-pwd:p\n"
                 "a=candidate:1 2 UDP 2130706430 127.0.0.1 40004 typ host\n"
                 "a=candidate:1 1 UDP 2130706431 127.0.0.1 40003 typ host\n",
                 2, "127.0.0.1:40004", "127.0.0.1:40003"},
        ReadCase{"no_m_or_c_line_and_related_address",
                 "a=ice-ufrag:u\na=ice-pwd:p\n"
                 "a=candidate:3 1 UDP 1694498815 192.0.2.7 50000 typ srflx raddr 127.0.0.1 rport 40005\n",
                 1, "192.0.2.7:50000", "192.0.2.7:50000"}),
    [](const testing::TestParamInfo<ReadCase>& info) { return info.param.name; });

struct RefusalCase {
    const char* name;
    std::string candidateLine;  // appended to the head; empty: the head alone is bad
    std::string head;
    const char* error;          // a part of the reason
};
void PrintTo(const RefusalCase& c, std::ostream* os) { *os << c.name; }

class Refuses : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refuses, WithTheReason)
{
    const auto& c = GetParam();
    Description d;
    std::string error;
    EXPECT_FALSE(Parse(c.head + c.candidateLine, d, error));
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
}

constexpr const char* kHead = "m=- 40000 ICE/SDP\nc=IN IP4 127.0.0.1\na=ice-ufrag:u\na=ice-pwd:p\n";

INSTANTIATE_TEST_SUITE_P(
    IcePeerDescription, Refuses,
    testing::Values(
        RefusalCase{"too_few_fields", "a=candidate:1 1 UDP 2130706431 127.0.0.1 40000\n", kHead, "line 5: "},
        RefusalCase{"no_typ_word", "a=candidate:1 1 UDP 2130706431 127.0.0.1 40000 type host\n", kHead, "eight"},
        RefusalCase{"component_zero", "a=candidate:1 0 UDP 1 127.0.0.1 40000 typ host\n", kHead, "component"},
        RefusalCase{"priority_over_32_bits", "a=candidate:1 1 UDP 4294967296 127.0.0.1 40000 typ host\n", kHead,
                    "priority"},
        RefusalCase{"negative_priority", "a=candidate:1 1 UDP -1 127.0.0.1 40000 typ host\n", kHead, "priority"},
        RefusalCase{"port_zero", "a=candidate:1 1 UDP 1 127.0.0.1 0 typ host\n", kHead, "port"},
        RefusalCase{"port_over_16_bits", "a=candidate:1 1 UDP 1 127.0.0.1 65536 typ host\n", kHead, "port"},
        RefusalCase{"host_name", "a=candidate:1 1 UDP 1 peer.example 40000 typ host\n", kHead, "address"},
        RefusalCase{"bracketed_ipv6", "a=candidate:1 1 UDP 1 [::1] 40000 typ host\n", kHead, "address"},
        RefusalCase{"unknown_type", "a=candidate:1 1 UDP 1 127.0.0.1 40000 typ relayed\n", kHead, "type"},
        RefusalCase{"long_foundation", "a=candidate:" + std::string(33, 'f') + " 1 UDP 1 127.0.0.1 1 typ host\n",
                    kHead, "foundation"},
        RefusalCase{"only_tcp", "a=candidate:1 1 TCP 1 127.0.0.1 40000 typ host\n", kHead, "no UDP candidate"},
        RefusalCase{"only_component_2", "a=candidate:1 2 UDP 1 127.0.0.1 40000 typ host\n", kHead, "component 1"},
        RefusalCase{"no_password", "a=candidate:1 1 UDP 1 127.0.0.1 40000 typ host\n",
                    "m=- 40000 ICE/SDP\na=ice-ufrag:u\n", "ice-pwd"},
        RefusalCase{"ufrag_too_long", "", "a=ice-ufrag:" + std::string(257, 'x') + "\n", "ufrag"},
        RefusalCase{"bad_m_port", "", "m=- 99999 ICE/SDP\n", "m= line"},
        RefusalCase{"bad_c_line", "", "c=IN IPX 127.0.0.1\n", "c= line"}),
    [](const testing::TestParamInfo<RefusalCase>& info) { return info.param.name; });

TEST(IcePeerDescription, WhatWeWriteReadsBackTheSame)
{
    Description in;
    in.ufrag = "abcdEFGH";
    in.pwd = "0123456789abcdefghijklmn";
    const char* addresses[] = {"[::1]:40010", "127.0.0.1:40011"};
    for (const char* a : addresses) {
        Candidate c;
        c.foundation = "1";
        c.priority = 0x7EFFFFFF;
        c.type = "host";
        ASSERT_TRUE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&c.address), a));
        in.candidates.push_back(c);
    }
    const std::string text = Format(in);
    EXPECT_EQ(text.substr(0, 30), "m=- 40010 ICE/SDP\nc=IN IP6 ::1");
    Description out;
    std::string error;
    ASSERT_TRUE(Parse(text, out, error)) << error;
    EXPECT_EQ(out.ufrag, in.ufrag);
    EXPECT_EQ(out.pwd, in.pwd);
    ASSERT_EQ(out.candidates.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(AddressText(out.candidates[i].address), addresses[i]);
        EXPECT_EQ(out.candidates[i].priority, 0x7EFFFFFFu);
    }
    EXPECT_EQ(AddressText(out.defaultAddress), "[::1]:40010");
}

}  // namespace
