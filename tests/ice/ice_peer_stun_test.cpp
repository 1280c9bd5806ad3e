// STUN glue of `mediasession ice-peer`: checks and answers read back with every field the agent
// needs, integrity holds only with the right key, non-STUN bytes are data, and checks are repeated
// on their schedule and given up exactly once.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ice_peer_stun.h"
#include "sockaddr_util.h"

namespace {

using namespace tool::ice_peer;
namespace q = qlox_gatewalk;

StunMsgId Id(uint8_t seed)
{
    StunMsgId id{};
    for (size_t i = 0; i < sizeof id.octet; ++i) id.octet[i] = static_cast<uint8_t>(seed + i);
    return id;
}

sockaddr_storage Address(const char* text)
{
    sockaddr_storage a{};
    EXPECT_TRUE(gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&a), text));
    return a;
}

struct Decoded {
    std::unique_ptr<q::StunMessage> message = std::make_unique<q::StunMessage>();
    Inbound in;
    explicit Decoded(const Bytes& b) { Classify(b.data(), b.size(), *message, in); }
};

struct CheckCase {
    const char* name;
    bool useCandidate;
    bool controlling;
};
void PrintTo(const CheckCase& c, std::ostream* os) { *os << c.name; }

class Checks : public testing::TestWithParam<CheckCase> {};

TEST_P(Checks, ReadBackWithTheirRoleAndIntegrity)
{
    const auto& c = GetParam();
    const CheckRequest request{Id(1), "remote:local", "remotepassword", 0x6EFFFFFF, c.useCandidate, c.controlling,
                               0x0123456789ABCDEFull};
    const Bytes bytes = EncodeCheck(request);
    ASSERT_FALSE(bytes.empty());
    Decoded d(bytes);
    ASSERT_EQ(d.in.kind, Inbound::Request);
    EXPECT_EQ(d.in.ufragPair, "remote:local");
    EXPECT_EQ(d.in.priority, 0x6EFFFFFFu);
    EXPECT_EQ(d.in.useCandidate, c.useCandidate);
    EXPECT_EQ(d.in.controlling, c.controlling);
    EXPECT_EQ(d.in.controlled, !c.controlling);
    EXPECT_EQ(d.in.tieBreaker, 0x0123456789ABCDEFull);
    EXPECT_TRUE(gatewalk::stunlib_transIdIsEqual(&d.in.id, &request.id));
    EXPECT_TRUE(d.message->hasFingerPrint);
    EXPECT_TRUE(IntegrityHolds(bytes.data(), bytes.size(), *d.message, "remotepassword"));
    EXPECT_FALSE(IntegrityHolds(bytes.data(), bytes.size(), *d.message, "localpassword"));
}

INSTANTIATE_TEST_SUITE_P(IcePeerStun, Checks,
                         testing::Values(CheckCase{"controlling", false, true},
                                         CheckCase{"controlling_nominating", true, true},
                                         CheckCase{"controlled", false, false}),
                         [](const testing::TestParamInfo<CheckCase>& info) { return info.param.name; });

struct AnswerCase {
    const char* name;
    uint16_t code;
    const char* mapped;  // null: none given
    bool encodes;
};
void PrintTo(const AnswerCase& c, std::ostream* os) { *os << c.name; }

class Answers : public testing::TestWithParam<AnswerCase> {};

TEST_P(Answers, CarryTheirCodeAndMappedAddress)
{
    const auto& c = GetParam();
    const sockaddr_storage mapped = c.mapped ? Address(c.mapped) : sockaddr_storage{};
    const Bytes bytes = EncodeAnswer(Id(2), c.code, c.mapped ? reinterpret_cast<const sockaddr*>(&mapped) : nullptr,
                                     "localpassword");
    ASSERT_EQ(!bytes.empty(), c.encodes);
    if (!c.encodes) return;
    Decoded d(bytes);
    ASSERT_EQ(d.in.kind, Inbound::Response);
    EXPECT_EQ(d.in.code, c.code);
    EXPECT_TRUE(IntegrityHolds(bytes.data(), bytes.size(), *d.message, "localpassword"));
    if (c.code == 200) {
        EXPECT_TRUE(gatewalk::sockaddr_alike(reinterpret_cast<const sockaddr*>(&d.in.mapped),
                                             reinterpret_cast<const sockaddr*>(&mapped)));
    }
}

INSTANTIATE_TEST_SUITE_P(IcePeerStun, Answers,
                         testing::Values(AnswerCase{"success_ipv4", 200, "127.0.0.1:40000", true},
                                         AnswerCase{"success_ipv6", 200, "[::1]:40001", true},
                                         AnswerCase{"role_conflict", 487, "127.0.0.1:40000", true},
                                         AnswerCase{"bad_request_without_address", 400, nullptr, true},
                                         AnswerCase{"success_without_address", 200, nullptr, false}),
                         [](const testing::TestParamInfo<AnswerCase>& info) { return info.param.name; });

TEST(IcePeerStun, ClassifiesWhatIsNotACheckOrAnswer)
{
    const Bytes check = EncodeCheck({Id(3), "a:b", "pw", 1, false, true, 1});
    Bytes truncated(check.begin(), check.begin() + 24);
    Bytes bodyless(check.begin(), check.begin() + 20);
    bodyless[3] = 0;  // a header that claims no attributes: no USERNAME, no PRIORITY
    const std::string text = "ice-peer data got=0";
    struct Case {
        const char* name;
        Bytes bytes;
        Inbound::Kind kind;
    } cases[] = {
        {"application data", Bytes(text.begin(), text.end()), Inbound::Data},
        {"empty", Bytes{}, Inbound::Data},
        {"truncated check", truncated, Inbound::Other},
        {"request without ICE attributes", bodyless, Inbound::Other},
        {"keep-alive indication", EncodeKeepAlive(), Inbound::Other},
    };
    for (const auto& c : cases) {
        Decoded d(c.bytes);
        EXPECT_EQ(d.in.kind, c.kind) << c.name;
    }
}

TEST(IcePeerStun, RepeatsOnScheduleThenGivesUpOnce)
{
    CheckSchedule schedule;
    std::vector<int64_t> sentAt;
    std::vector<int64_t> gaveUpAt;
    int64_t now = 0;
    auto send = [&](const CheckSchedule::Check&) { sentAt.push_back(now); };
    auto giveUp = [&](const StunMsgId&) { gaveUpAt.push_back(now); };
    CheckSchedule::Check check{Id(4), 0, Address("127.0.0.1:40000"), Bytes{1}, "pw"};
    schedule.Start(check, now, send);
    for (now = 1; now <= 3000; ++now) schedule.Run(now, send, giveUp);
    EXPECT_EQ(sentAt, (std::vector<int64_t>{0, 100, 300, 700, 1500}));
    EXPECT_EQ(gaveUpAt, (std::vector<int64_t>{2300}));
    EXPECT_EQ(schedule.InFlight(), 0u);
}

TEST(IcePeerStun, AnsweredOrCancelledChecksStop)
{
    CheckSchedule schedule;
    int sends = 0;
    std::vector<int> givenUp;
    auto send = [&](const CheckSchedule::Check&) { ++sends; };
    auto giveUp = [&](const StunMsgId& id) { givenUp.push_back(id.octet[0]); };
    schedule.Start({Id(5), 0, Address("127.0.0.1:40000"), Bytes{1}, "pw"}, 0, send);
    schedule.Start({Id(6), 0, Address("127.0.0.1:40001"), Bytes{1}, "pw"}, 0, send);
    schedule.Start({Id(7), 0, Address("127.0.0.1:40002"), Bytes{1}, "pw"}, 0, send);
    ASSERT_NE(schedule.Find(Id(5)), nullptr);
    EXPECT_EQ(schedule.Find(Id(8)), nullptr);
    EXPECT_TRUE(schedule.Take(Id(5)));  // answered
    EXPECT_FALSE(schedule.Take(Id(5)));
    schedule.Cancel(Id(6));
    schedule.Run(150, send, giveUp);
    EXPECT_EQ(sends, 4);  // three first copies, one repeat of the check left running
    // A cancelled check sends no more but may still be answered until its time is up, and its end
    // is not reported: the agent no longer waits for it.
    for (int64_t now = 151; now < 2300; ++now) schedule.Run(now, send, giveUp);
    EXPECT_NE(schedule.Find(Id(6)), nullptr);
    for (int64_t now = 2300; now <= 3000; ++now) schedule.Run(now, send, giveUp);
    EXPECT_EQ(sends, 7);
    EXPECT_EQ(givenUp, std::vector<int>{7});
    EXPECT_EQ(schedule.InFlight(), 0u);
}

}  // namespace
