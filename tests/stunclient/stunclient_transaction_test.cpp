// The client half of both profiles on a fake clock: when copies leave, when the transaction gives
// up, which result each kind of answer gives, cancellation, late and duplicate answers, and running
// out of slots.
#include <algorithm>

#include "stunclient_harness.h"

namespace {

using namespace stunclient_test;

template <class P>
class StunClientTransaction : public ::testing::Test {
protected:
    Harness<P> h;
    static constexpr bool kZyn = P::kZyn;
    // Result codes differ in number between the profiles; compare them by name.
    static std::string Name(int result)
    {
        return kZyn ? zyn_gatewalk::StunClient_resultToStr(result) : qlox_gatewalk::StunClient_resultToStr(result);
    }
};
using Profiles = ::testing::Types<PQ, PZ>;
TYPED_TEST_SUITE(StunClientTransaction, Profiles);

TYPED_TEST(StunClientTransaction, RetransmitsOnScheduleThenGivesUp)
{
    // Coarse ticks that divide every gap must give the same times as 1 ms ticks.
    for (int step : {1, 50, 100}) {
        Harness<TypeParam> h;
        h.Start(Id(1));
        h.RunTo(5000, step);
        const std::vector<int> expected = this->kZyn
                                              ? std::vector<int>{0, 100, 200, 400, 700, 1100, 1600, 2100, 2600, 3100}
                                              : std::vector<int>{0, 100, 300, 600, 1000, 1500, 2000, 2500, 3000};
        EXPECT_EQ(h.SendTimes(), expected) << "tick " << step;
        ASSERT_EQ(h.results.size(), 1u);
        EXPECT_EQ(this->Name(h.results[0].result), "StunResult_BindFailNoAnswer");
        EXPECT_EQ(h.results[0].atMs, this->kZyn ? 3600 : 3500);
        if constexpr (!TypeParam::kZyn) {
            EXPECT_EQ(h.results[0].retransmits, 8u);
            EXPECT_EQ(h.results[0].rtt, 500000u) << "the last copy waited 500 ms";
        }
        for (const auto& s : h.sent) EXPECT_EQ(Text(s.destination), "127.0.0.1:3478");
    }
}

TYPED_TEST(StunClientTransaction, EachAnswerGivesItsResult)
{
    struct Row {
        const char* name;
        const char* mapped;  // XOR-MAPPED-ADDRESS or none
        uint16_t error;      // 0: success response
        bool cancelFirst;
        const char* qlox;
        const char* zyn;
    };
    const Row rows[] = {
        {"success", "192.0.2.1:32853", 0, false, "StunResult_BindOk", "StunResult_BindOk"},
        {"success over IPv6", "[2001:db8::1]:32853", 0, false, "StunResult_BindOk", "StunResult_BindOk"},
        {"success without address", nullptr, 0, false, "StunResult_MalformedResp", "StunResult_MalformedResp"},
        {"role conflict", nullptr, 487, false, "StunResult_RoleConflict", "StunResult_BindFail"},
        {"unauthorized", nullptr, 401, false, "StunResult_BindFail", "StunResult_BindFail"},
        {"late success after cancel", "192.0.2.1:32853", 0, true, "StunResult_BindOk", "StunResult_BindOk"},
        {"late role conflict after cancel", nullptr, 487, true, "StunResult_BindFail", "StunResult_BindFail"},
        {"late malformed after cancel", nullptr, 0, true, "StunResult_MalformedResp", "StunResult_MalformedResp"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness<TypeParam> h;
        h.Start(Id(9));
        h.RunTo(250);  // two copies out
        if (row.cancelFirst) {
            EXPECT_EQ(h.Cancel(Id(9)), 0);
        }
        const sockaddr_storage from = Addr("127.0.0.1:3478");
        h.Deliver(*h.Response(Id(9), row.mapped, row.error), from);
        ASSERT_EQ(h.results.size(), 1u);
        const Result& r = h.results[0];
        EXPECT_EQ(this->Name(r.result), this->kZyn ? row.zyn : row.qlox);
        const gatewalk::StunMsgId nine = Id(9);
        EXPECT_TRUE(gatewalk::stunlib_transIdIsEqual(&r.id, &nine));
        EXPECT_EQ(Text(r.src), "127.0.0.1:3478");
        EXPECT_EQ(Text(r.rflx), std::string(r.result == 1 ? row.mapped : "(unset)"));
        // The slot is free at once: nothing more is sent and no second result comes.
        const size_t sent = h.sent.size();
        h.RunTo(5000, 10);
        EXPECT_EQ(h.sent.size(), sent);
        EXPECT_EQ(h.results.size(), 1u);
        if (row.error == 487 && !row.cancelFirst) {
            EXPECT_TRUE(h.Logged("errorClass:4,number:87"));
        }
    }
}

TYPED_TEST(StunClientTransaction, DuplicateAndStrayAnswersAreDropped)
{
    auto& h = this->h;
    const sockaddr_storage from = Addr("127.0.0.1:3478");
    h.Start(Id(1));
    h.RunTo(150);
    auto answer = h.Response(Id(1), "192.0.2.1:1000");
    h.Deliver(*answer, from);
    h.Deliver(*answer, from);  // the answer to the second copy
    h.Deliver(*h.Response(Id(2), "192.0.2.1:1000"), from);
    EXPECT_EQ(h.results.size(), 1u);
    EXPECT_TRUE(h.Logged("no instance with transId, discarding, msgType 257"));

    // An answer after the client gave up finds nobody either.
    h.Start(Id(3));
    h.RunTo(4000, 10);
    ASSERT_EQ(h.results.size(), 2u);
    h.Deliver(*h.Response(Id(3), "192.0.2.1:1000"), from);
    EXPECT_EQ(h.results.size(), 2u);
}

TYPED_TEST(StunClientTransaction, CancelledTransactionRunsOutSilently)
{
    auto& h = this->h;
    h.Start(Id(4));
    h.Start(Id(5));
    EXPECT_EQ(h.Cancel(Id(5)), 1) << "the slot index";
    EXPECT_EQ(h.Cancel(Id(6)), -1);
    EXPECT_EQ(h.Cancel(Id(5)), 1) << "cancelling twice changes nothing";
    h.RunTo(5000, 10);
    ASSERT_EQ(h.results.size(), 2u);
    // The running one fails as usual; the cancelled one sent nothing after its first copy and ends
    // with its own result once the whole schedule has passed.
    EXPECT_EQ(this->Name(h.results[0].result), "StunResult_BindFailNoAnswer");
    EXPECT_EQ(this->Name(h.results[1].result), "StunResult_CancelComplete");
    const gatewalk::StunMsgId five = Id(5);
    EXPECT_TRUE(gatewalk::stunlib_transIdIsEqual(&h.results[1].id, &five));
    EXPECT_EQ(h.results[1].atMs, 3600);
    size_t copiesOf5 = 0;
    for (const auto& s : h.sent) {
        auto m = h.Decode(s.bytes);
        if (gatewalk::stunlib_transIdIsEqual(&m->msgHdr.id, &five)) ++copiesOf5;
    }
    EXPECT_EQ(copiesOf5, 1u);
    EXPECT_TRUE(h.Logged("Cancel complete"));
}

TYPED_TEST(StunClientTransaction, OneMoreThanTheSlotsIsDropped)
{
    auto& h = this->h;
    const int slots = TypeParam::kSlots;
    for (int i = 0; i <= slots; ++i) h.Start(Id(100 + i));
    EXPECT_EQ(h.sent.size(), static_cast<size_t>(slots));
    EXPECT_TRUE(h.Logged("<STUNCLIENT> No free instances, sig: BindReq"));
    h.RunTo(4000, 50);
    EXPECT_EQ(h.results.size(), static_cast<size_t>(slots));
    const gatewalk::StunMsgId dropped = Id(100 + slots);
    for (const auto& r : h.results) EXPECT_FALSE(gatewalk::stunlib_transIdIsEqual(&r.id, &dropped));
    // The slots are free again.
    const size_t before = h.sent.size();
    h.log.clear();
    h.Start(Id(1));
    EXPECT_EQ(h.sent.size(), before + 1);
    EXPECT_FALSE(h.Logged("No free instances"));
}

TYPED_TEST(StunClientTransaction, CallbackThatStartsATransactionGetsAnotherSlot)
{
    auto& h = this->h;
    h.onResult = [&](const Result&) {
        h.onResult = nullptr;
        h.Start(Id(2));
    };
    h.Start(Id(1));
    h.Deliver(*h.Response(Id(1), "192.0.2.1:1000"), Addr("127.0.0.1:3478"));
    ASSERT_EQ(h.sent.size(), 2u);
    EXPECT_TRUE(h.Logged("<STUNCLIENT:01> IN <-- BindReq (state Idle)"));
    // The new transaction starts its schedule from the time it began.
    h.RunTo(99);
    EXPECT_EQ(h.sent.size(), 2u);
    h.RunTo(100);
    EXPECT_EQ(h.sent.size(), 3u);
}

TYPED_TEST(StunClientTransaction, CountersFollowTheWork)
{
    auto& h = this->h;
    h.Start(Id(1));
    h.Start(Id(2));
    h.RunTo(150);
    h.Deliver(*h.Response(Id(1), "192.0.2.1:1"), Addr("127.0.0.1:3478"));
    h.RunTo(5000, 10);
    std::vector<std::string> lines;
    auto keep = [](void* out, gatewalk::StunInfoCategory_T, char* text) {
        static_cast<std::vector<std::string>*>(out)->emplace_back(text);
    };
    if constexpr (TypeParam::kZyn) zyn_gatewalk::StunClient_dumpStats(h.client, keep, &lines);
    else qlox_gatewalk::StunClient_dumpStats(h.client, keep, &lines);
    const int retransmits = this->kZyn ? 1 + 9 : 1 + 8;
    auto has = [&](const std::string& l) { return std::find(lines.begin(), lines.end(), l) != lines.end(); };
    EXPECT_TRUE(has("<STUNCLIENT> BindReqSent: 2"));
    EXPECT_TRUE(has("<STUNCLIENT> BindRespReceived: 1"));
    EXPECT_TRUE(has("<STUNCLIENT> Retransmits: " + std::to_string(retransmits)));
    EXPECT_TRUE(has("<STUNCLIENT> Failures: 1"));
    EXPECT_TRUE(has("<STUNCLIENT> InProgress: 0"));
    lines.clear();
    if constexpr (TypeParam::kZyn) {
        zyn_gatewalk::StunClient_clearStats(h.client);
        zyn_gatewalk::StunClient_dumpStats(h.client, keep, &lines);
    } else {
        qlox_gatewalk::StunClient_clearStats(h.client);
        qlox_gatewalk::StunClient_dumpStats(h.client, keep, &lines);
    }
    EXPECT_TRUE(has("<STUNCLIENT> BindReqSent: 0"));
}

}  // namespace
