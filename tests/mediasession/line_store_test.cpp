// The call store sees each media line of a call: an entity while the line lives, told when the
// call ends, given back with the line; a store that refuses costs the line nothing.
#include <gtest/gtest.h>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediastores/Mediastores.h"
#include "test_support.h"

namespace {

TEST(LineStoreTest, EachLineHoldsAnEntityUntilItGoes)
{
    mstest::EngineScope engine;
    const struct {
        const char* name;
        bool refuse;
        int entities;  // held while the lines live
    } rows[] = {
        {"the store takes each line", false, 2},
        {"a refusing store: the lines work without", true, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const int before = MediastoresLiveEntityCount();
        const unsigned callId = row.refuse ? 7702 : 7701;
        MediastoresRefuseNewEntities(row.refuse);
        IZynMediaConnection* conn = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, callId));
        ZynResult audio = ZYN_E_FAIL, video = ZYN_E_FAIL;
        mstest::OnMain([&] {
            audio = conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr);
            video = conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 1, nullptr);
        });
        MediastoresRefuseNewEntities(false);
        EXPECT_EQ(ZYN_S_OK, audio);
        EXPECT_EQ(ZYN_S_OK, video);
        EXPECT_EQ(before + row.entities, MediastoresLiveEntityCount());
        EXPECT_FALSE(MediastoresCallEnded(ZynSessionType_Video, callId));
        // The clean-up of the lines tells the store; the entities go with the lines.
        auto* impl = static_cast<zyn::CMediaConnection*>(conn);
        bool endedAtCleanup = false;
        mstest::OnMain([&] {
            if (zyn::CMediaConnectionInfo* line = impl->FindConnection(1)) {
                line->Cleanup();
                endedAtCleanup = MediastoresCallEnded(ZynSessionType_Video, callId);
            }
        });
        EXPECT_EQ(!row.refuse, endedAtCleanup);
        mstest::OnMain([&] { conn->Stop(); });
        conn->Release();
        mstest::OnMain();
        EXPECT_EQ(before, MediastoresLiveEntityCount());
    }
}

}  // namespace
