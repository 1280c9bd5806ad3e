#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tp/CmMessageBlock.h"

namespace {

std::string Readable(const CCmMessageBlock& mb)
{
    return std::string(mb.GetTopLevelReadPtr(), mb.GetTopLevelLength());
}

TEST(MessageBlock, PositionsMoveOnlyWithinBounds)
{
    CCmMessageBlock mb(8);
    EXPECT_EQ(8u, mb.GetCapacity());
    EXPECT_EQ(CM_OK, mb.Write("abcde", 5));
    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.Write("wxyz", 4));  // 3 left: all or nothing
    EXPECT_EQ(5u, mb.GetTopLevelLength());
    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.AdvanceTopLevelWritePtr(4));
    memcpy(mb.GetTopLevelWritePtr(), "fgh", 3);
    EXPECT_EQ(CM_OK, mb.AdvanceTopLevelWritePtr(3));
    EXPECT_EQ(0u, mb.GetTopLevelSpace());
    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.AdvanceTopLevelWritePtr(1));

    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.AdvanceTopLevelReadPtr(9));
    EXPECT_EQ(CM_OK, mb.AdvanceTopLevelReadPtr(2));
    EXPECT_EQ("cdefgh", Readable(mb));
    char out[8] = {};
    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.Read(out, 7));
    EXPECT_EQ(6u, mb.GetTopLevelLength());  // refused read consumed nothing
    EXPECT_EQ(CM_OK, mb.Read(out, 6));
    EXPECT_STREQ("cdefgh", out);
    EXPECT_EQ(CM_ERROR_INVALID_ARG, mb.AdvanceTopLevelReadPtr(1));
    EXPECT_EQ(CM_ERROR_NULL_POINTER, mb.Write(nullptr, 1));
}

TEST(MessageBlock, ChainReadsDuplicatesAndFlattens)
{
    CCmMessageBlock head("head-", 5);
    EXPECT_EQ(CM_OK, head.Append(std::make_unique<CCmMessageBlock>("middle-", 7)));
    EXPECT_EQ(CM_OK, head.Append(std::make_unique<CCmMessageBlock>("tail", 4)));
    EXPECT_EQ(CM_ERROR_NULL_POINTER, head.Append(nullptr));
    EXPECT_EQ(16u, head.GetChainedLength());

    auto copy = head.DuplicateChained();
    auto flat = head.FlattenChained();
    EXPECT_EQ(nullptr, flat->GetNext());
    EXPECT_EQ("head-middle-tail", Readable(*flat));

    // A read across block borders consumes each block in turn.
    char out[10] = {};
    ASSERT_EQ(CM_OK, head.Read(out, 9));
    EXPECT_EQ("head-midd", std::string(out, 9));
    EXPECT_EQ(7u, head.GetChainedLength());
    EXPECT_EQ(0u, head.GetTopLevelLength());
    EXPECT_EQ(CM_ERROR_INVALID_ARG, head.Read(out, 8));

    // The copies are deep: consuming the original left them whole, with the chain's shape.
    EXPECT_EQ(16u, copy->GetChainedLength());
    ASSERT_NE(nullptr, copy->GetNext());
    EXPECT_EQ("middle-", Readable(*copy->GetNext()));
    EXPECT_NE(head.GetNext()->GetTopLevelReadPtr(), copy->GetNext()->GetTopLevelReadPtr());
}

TEST(MessageBlock, LongChainIsDestroyedWithoutRecursion)
{
    auto head = std::make_unique<CCmMessageBlock>(1);
    CCmMessageBlock* tail = head.get();
    for (int i = 0; i < 200000; ++i) {
        auto next = std::make_unique<CCmMessageBlock>("x", 1);
        CCmMessageBlock* raw = next.get();
        ASSERT_EQ(CM_OK, tail->Append(std::move(next)));
        tail = raw;
    }
    EXPECT_EQ(200000u, head->GetNext()->GetChainedLength());
    head.reset();
}

}  // namespace
