// Named options of the engine's objects: what is set reads back on the object it was set on, and
// bad calls are refused without touching what is there.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "zyn/ZynEngineApi.h"

namespace {

class NamedOptionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZynInit(0);
        ASSERT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&m_engine, 1, ZynSystemClock()));
        ASSERT_EQ(ZYN_S_OK, m_engine->CreateMediaSession(ZynSessionType_Audio, &m_session));
        ASSERT_EQ(ZYN_S_OK, m_engine->CreateTrack(ZynTrack_AudioLocal, &m_track));
    }
    void TearDown() override
    {
        m_track->Release();
        m_session->Release();
        m_engine->Stop();
        m_engine->Release();
        ZynUninit();
    }
    IZynMediaEngineInternal* m_engine = nullptr;
    IZynMediaSession* m_session = nullptr;
    IZynMediaTrack* m_track = nullptr;
};

TEST_F(NamedOptionTest, EachObjectKeepsItsOwnAndRefusesBadCalls)
{
    IZynOptionHolder* holders[] = {m_engine, m_session, m_track};
    for (IZynOptionHolder* h : holders) {
        ASSERT_EQ(ZYN_S_OK, h->SetNamedOption("AEC_aec_enabled", "1"));
        ASSERT_EQ(ZYN_S_OK, h->SetNamedOption("AEC_aec_enabled", "0"));  // the last one counts
        char text[8] = {};
        uint32_t size = sizeof(text);
        ASSERT_EQ(ZYN_S_OK, h->GetNamedOption("AEC_aec_enabled", text, size));
        EXPECT_STREQ("0", text);
        EXPECT_EQ(1u, size);

        struct Row {
            const char* name;
            std::function<ZynResult()> call;
            ZynResult expect;
        } rows[] = {
            {"never set", [&] { uint32_t n = 8; return h->GetNamedOption("BNR_bnr_enabled", text, n); }, ZYN_E_NOTFOUND},
            {"null name", [&] { return h->SetNamedOption(nullptr, "1"); }, ZYN_E_INVALIDARG},
            {"empty name", [&] { return h->SetNamedOption("", "1"); }, ZYN_E_INVALIDARG},
            {"null value", [&] { return h->SetNamedOption("AEC_aec_enabled", nullptr); }, ZYN_E_INVALIDARG},
            {"no room for the terminator",
             [&] { uint32_t n = 1; return h->GetNamedOption("AEC_aec_enabled", text, n); }, ZYN_E_INVALIDARG},
            {"null buffer", [&] { uint32_t n = 8; return h->GetNamedOption("AEC_aec_enabled", nullptr, n); },
             ZYN_E_INVALIDARG},
        };
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            EXPECT_EQ(row.expect, row.call());
        }
        size = sizeof(text);
        ASSERT_EQ(ZYN_S_OK, h->GetNamedOption("AEC_aec_enabled", text, size));
        EXPECT_STREQ("0", text) << "refused calls leave the value";
    }
    // One object's options are not another's.
    ASSERT_EQ(ZYN_S_OK, m_track->SetNamedOption("DAGC_new_agc", "1"));
    char text[8] = {};
    uint32_t size = sizeof(text);
    EXPECT_EQ(ZYN_E_NOTFOUND, m_session->GetNamedOption("DAGC_new_agc", text, size));
}

}  // namespace
