// A stream's CSI history as the poll reads it, and the size an older share receiver is sent for a
// frame size: pure functions and one-writer state, no engine.
#include <gtest/gtest.h>

#include <vector>

#include "track/MediaCSI.h"
#include "track/MediaTrack.h"

namespace {

using zyn::CMediaCSI;
using List = std::vector<uint32_t>;

List Fifteen(uint32_t last)
{
    List l;
    for (uint32_t i = 1; i < 15; ++i) l.push_back(i);
    l.push_back(last);
    return l;
}

TEST(MediaCSI, AChangeIsToldOnceWithTheListsBeforeAndAfter)
{
    struct Step {
        const char* name;
        List set;        // written before the check
        bool nullList;   // written as a null pointer with set.size() as the count
        int changed;
        List told;       // the list handed out as new (when changed), and kept as told
    };
    const Step steps[] = {
        {"nothing written: equal to nothing told", {}, false, 0, {}},
        {"first source", {0x101}, false, 1, {0x101}},
        {"the same again", {0x101}, false, 0, {0x101}},
        {"another order is another list", {0x201, 0x101}, false, 1, {0x201, 0x101}},
        {"fifteen", Fifteen(15), false, 1, Fifteen(15)},
        {"fifteen differing only in the last", Fifteen(16), false, 1, Fifteen(16)},
        {"a sixteenth is dropped", [] { List l = Fifteen(16); l.push_back(99); return l; }(), false, 0, Fifteen(16)},
        {"a null list counts as empty", {1, 2}, true, 1, {}},
    };
    CMediaCSI csi;
    List told;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        if (!step.set.empty() || step.nullList)
            csi.SetCSI(step.nullList ? nullptr : step.set.data(), static_cast<uint32_t>(step.set.size()));
        uint32_t oldList[15] = {}, newList[15] = {}, oldCount = 77, newCount = 77;
        ASSERT_EQ(step.changed, csi.CheckCSIChanged(oldList, oldCount, newList, newCount));
        if (step.changed) {
            EXPECT_EQ(told, List(oldList, oldList + oldCount));
            EXPECT_EQ(step.told, List(newList, newList + newCount));
        }
        told = step.told;
        uint32_t out[15], count = 15;
        csi.GetCSI(false, out, count);
        EXPECT_EQ(told, List(out, out + count));
    }
}

TEST(MediaCSI, ReadsCopyNoMoreThanTheRoomOrTheList)
{
    CMediaCSI csi;
    const List three = {7, 8, 9};
    csi.SetCSI(three.data(), 3);
    const struct {
        const char* name;
        bool history;
        uint32_t room;
        List expected;
    } rows[] = {
        {"history, room for two", true, 2, {7, 8}},
        {"history, more room than list", true, 15, {7, 8, 9}},
        {"history, no room", true, 0, {}},
        {"told list, still empty", false, 15, {}},
    };
    for (const auto& row : rows) {
        uint32_t out[16] = {}, count = row.room;
        csi.GetCSI(row.history, out, count);
        EXPECT_EQ(row.expected, List(out, out + count)) << row.name;
    }
    uint32_t count = 5;
    csi.GetCSI(true, nullptr, count);
    EXPECT_EQ(0u, count);
    EXPECT_NE(0u, csi.GetLastUpdate());
}

TEST(SubscribeSize, TheFirstLayerTakesTheSizeItsFrameSizeAllows)
{
    const struct {
        uint32_t streams, maxFs;
        uint32_t width, height;
    } rows[] = {
        {1, 9000, 1920, 1200}, {1, 8999, 1920, 1080}, {1, 8160, 1920, 1080}, {1, 8159, 1280, 720},
        {1, 3600, 1280, 720},  {1, 3599, 640, 480},   {1, 0, 640, 480},
        // Above the table's top, or with no layer, the size is left as asked.
        {1, 9001, 111, 222},   {0, 3600, 111, 222},
    };
    for (const auto& row : rows) {
        _tagVideoSubscribeMultiStream record{};
        record.uNumStreams = row.streams;
        for (auto& s : record.stStreams) {
            s.uMaxFS = row.maxFs;
            s.uWidth = 111;
            s.uHeight = 222;
        }
        zyn::CMediaTrack::_UpdateHardcodeMaxSizeByMaxFS(record);
        EXPECT_EQ(row.width, record.stStreams[0].uWidth) << row.maxFs;
        EXPECT_EQ(row.height, record.stStreams[0].uHeight) << row.maxFs;
        EXPECT_EQ(111u, record.stStreams[1].uWidth) << "only the first layer";
    }
}

}  // namespace
