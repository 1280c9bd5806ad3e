// Settings made through the configuration interfaces of a real connection, read back where they
// act: the engine's options, the line's engine session, the next offer's text. Guarded settings are
// refused once the call started and leave what acts untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "sdp/session_group.h"
#include "test_support.h"
#include "zyn/ZynEngineApi.h"

namespace {

using zyn::CMediaConnection;
using zyn::CMediaConnectionInfo;

constexpr unsigned long kAudioMid = 0;
constexpr unsigned long kVideoMid = 1;

struct OfferSink : IZynMediaConnectionSink {
    void OnSDPReady(ZynSdpType, const char* sdp) override { texts.emplace_back(sdp ? sdp : ""); }
    std::vector<std::string> texts;
};

// One connection with an audio and a video line, both ways.
class RealConnection {
public:
    RealConnection()
    {
        m_liveBase = ZynLiveObjectCount();
        EXPECT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
        impl = static_cast<CMediaConnection*>(conn);
        conn->SetSink(&sink);
        EXPECT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, kAudioMid, nullptr));
        EXPECT_EQ(ZYN_S_OK, conn->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, kVideoMid, nullptr));
    }
    ~RealConnection()
    {
        conn->Stop();
        conn->Release();
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }
    IGlobalConfig& Global() { return *conn->GetGlobalConfig(); }
    IBaseConfig& Audio() { return *conn->GetAudioConfig(kAudioMid); }
    IBaseConfig& Video() { return *conn->GetVideoConfig(kVideoMid); }

    // An option as the engine holds it, as the bytes' text ("" when never set).
    std::string EngineOption(int32_t id)
    {
        return Bytes([&](void* v, uint32_t& n) { return impl->GetEngine()->GetOption(id, v, n); });
    }
    std::string SessionOption(unsigned long mid, int32_t id)
    {
        IZynMediaSession* session = impl->FindConnection(mid)->GetZynSession();
        return Bytes([&](void* v, uint32_t& n) { return session->GetOption(id, v, n); });
    }
    sdp::session_group Offer()
    {
        EXPECT_EQ(ZYN_S_OK, conn->CreateOffer());
        EXPECT_FALSE(sink.texts.empty());
        return sdp::session_group(sdp::session_description::create(sink.texts.empty() ? "" : sink.texts.back()));
    }

    IZynMediaConnection* conn = nullptr;
    CMediaConnection* impl = nullptr;
    OfferSink sink;

private:
    static std::string Bytes(const std::function<ZynResult(void*, uint32_t&)>& get)
    {
        uint8_t buffer[64] = {};
        uint32_t size = sizeof(buffer);
        if (get(buffer, size) != ZYN_S_OK) return "";
        std::string text;
        for (uint32_t i = 0; i < size; ++i) text += std::to_string(buffer[i]) + (i + 1 < size ? "," : "");
        return text;
    }
    int m_liveBase = 0;
};

template <class T>
std::string BytesOf(T value)
{
    uint8_t b[sizeof(T)];
    std::memcpy(b, &value, sizeof(T));
    std::string text;
    for (size_t i = 0; i < sizeof(T); ++i) text += std::to_string(b[i]) + (i + 1 < sizeof(T) ? "," : "");
    return text;
}

class ConfigEffectTest : public ::testing::Test {
protected:
    mstest::EngineScope m_engine;
};

// Each row sets one value before the call and another after it started; where the setting is
// guarded the second is refused and the first stays in effect.
TEST_F(ConfigEffectTest, EverySettingReachesTheEngineOrItsSession)
{
    using Set = std::function<ZynResult(RealConnection&, int)>;
    using Read = std::function<std::string(RealConnection&)>;
    using Expect = std::function<std::string(int)>;
    auto u32 = [](uint32_t scale) { return Expect([scale](int v) { return BytesOf<uint32_t>(v * scale); }); };
    auto flag = Expect([](int v) { return BytesOf<uint8_t>(v == 1); });
    auto engine = [](int32_t id) { return Read([id](RealConnection& c) { return c.EngineOption(id); }); };
    auto session = [](unsigned long mid, int32_t id) {
        return Read([mid, id](RealConnection& c) { return c.SessionOption(mid, id); });
    };
    struct Row {
        const char* name;
        Set set;
        Read read;
        Expect expect;
        bool guarded;
    };
    const Row rows[] = {
        {"QoSMaxLossRatio", [](RealConnection& c, int v) { return c.Global().SetQoSMaxLossRatio(0.25f * v); },
         engine(500), [](int v) { return BytesOf<float>(0.25f * v); }, true},
        {"QoSMinBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSMinBandwidth(64000u * v); },
         engine(501), u32(64000), true},
        {"QoSInitBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSInitBandwidth(300000u * v); },
         engine(504), u32(300000), true},
        {"QoSMaxBandwidth", [](RealConnection& c, int v) { return c.Global().SetQoSMaxBandwidth(2000000u * v); },
         engine(507), u32(2000000), true},
        {"SendingCSRC", [](RealConnection& c, int v) { return c.Global().EnableSendingCSRC(v == 1); },
         session(kVideoMid, 2005), flag, true},
        {"BandwidthRollback", [](RealConnection& c, int v) { return c.Global().EnableBandwidthRollback(v == 1); },
         session(kAudioMid, 2009), flag, false},
        {"MaxBandwidth audio", [](RealConnection& c, int v) { return c.Audio().SetMaxBandwidth(100000u * v); },
         session(kAudioMid, 10), u32(100000), true},
        {"MaxBandwidth video", [](RealConnection& c, int v) { return c.Video().SetMaxBandwidth(1500000u * v); },
         session(kVideoMid, 10), u32(1500000), true},
        {"MaxFecOverhead", [](RealConnection& c, int v) { return c.Video().SetMaxFecOverhead(20u * v); },
         session(kVideoMid, 16), u32(20), false},
        {"FecProbing", [](RealConnection& c, int v) { return c.Audio().SetFecProbing(v == 1); },
         session(kAudioMid, 17), flag, false},
        {"DynamicFecScheme",
         [](RealConnection& c, int v) {
             return c.Video().SetDynamicFecScheme(v == 1 ? DynamicFECLevelScheme_LossRatioWithPriority
                                                         : DynamicFECLevelScheme_OnlyLossRatio);
         },
         session(kVideoMid, 18), [](int v) { return BytesOf<int32_t>(v == 1 ? 1 : 0); }, false},
        {"RecordLossData", [](RealConnection& c, int v) { return c.Audio().EnableRecordLossData(v == 1); },
         session(kAudioMid, 23), flag, false},
        {"Tmmbr", [](RealConnection& c, int v) { return c.Video().EnableTmmbr(v == 1); }, session(kVideoMid, 2004),
         flag, false},
        {"Fec", [](RealConnection& c, int v) { return c.Audio().EnableFec(v == 1); }, session(kAudioMid, 2006), flag,
         false},
        {"Rtx",
         [](RealConnection& c, int v) { return c.Video().EnableRtx(v == 1); },
         [](RealConnection& c) { return c.SessionOption(kVideoMid, 2002).substr(0, 1); },
         [](int v) { return std::string(v == 1 ? "1" : "0"); }, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RealConnection c;
        EXPECT_EQ(ZYN_S_OK, row.set(c, 1));
        EXPECT_EQ(row.expect(1), row.read(c));
        c.Offer();
        if (row.guarded) {
            EXPECT_EQ(ZYN_E_FAIL, row.set(c, 2));
            EXPECT_EQ(row.expect(1), row.read(c));
        } else {
            EXPECT_EQ(ZYN_S_OK, row.set(c, 2));
            EXPECT_EQ(row.expect(2), row.read(c));
        }
    }
}

_tagCodecParam Codec(ZynCodecType type, const char* name, uint8_t payload, uint32_t clock)
{
    _tagCodecParam p{};
    p.type = type;
    std::strncpy(p.name, name, sizeof(p.name) - 1);
    p.payload = payload;
    p.clock_rate = clock;
    p.channels = 1;
    p.cap.profile_id = 0x42e01f;
    p.packetization = 1;
    return p;
}

// The encodings of an m-line, "name/clock" each.
std::vector<std::string> Encodings(const sdp::session& s)
{
    std::vector<std::string> out;
    for (const sdp::codec& c : s.rtp.get_data().codecs)
        out.push_back(c.get_name() + "/" + std::to_string(c.get_clock_rate()));
    return out;
}

bool Has(const std::vector<std::string>& list, const std::string& prefix)
{
    for (const auto& s : list)
        if (s.rfind(prefix, 0) == 0) return true;
    return false;
}

// What lands in the next offer: the connector's ports and the codecs the application named.
TEST_F(ConfigEffectTest, PortRangesAndCodecListsShapeTheNextOffer)
{
    RealConnection c;
    ASSERT_EQ(ZYN_S_OK, c.Audio().SetIceLocalPortRange(54310, 54319));
    ASSERT_EQ(ZYN_S_OK, c.Video().SetIceLocalPortRange(54420, 54429));
    _tagCodecParam audio[] = {Codec(ZynCodecType_PCMU, "PCMU", 0, 8000)};
    ASSERT_EQ(ZYN_S_OK, c.Audio().SetupEncodeCodec(audio, 1));
    _tagCodecParam video[] = {Codec(ZynCodecType_Unknown, "H264", 109, 90000)};
    ASSERT_EQ(ZYN_S_OK, c.Video().SetupDecodeCodec(video, 1));
    EXPECT_EQ(ZynCodecType_AVC, video[0].type) << "a record named, not typed, is resolved in place";

    const sdp::session_group offer = c.Offer();
    ASSERT_EQ(2u, offer.sessions.size());
    const int audioPort = offer.sessions[0].get_port(), videoPort = offer.sessions[1].get_port();
    EXPECT_GE(audioPort, 54310);
    EXPECT_LE(audioPort, 54319);
    EXPECT_GE(videoPort, 54420);
    EXPECT_LE(videoPort, 54429);

    const auto audioCodecs = Encodings(offer.sessions[0]);
    EXPECT_TRUE(Has(audioCodecs, "PCMU/8000"));
    EXPECT_FALSE(Has(audioCodecs, "opus")) << "the engine's own list is replaced";
    const auto videoCodecs = Encodings(offer.sessions[1]);
    ASSERT_FALSE(videoCodecs.empty());
    EXPECT_EQ("H264/90000", videoCodecs[0]);
    bool pt109 = false;
    for (const sdp::codec& k : offer.sessions[1].rtp.get_data().codecs) pt109 |= k.get_payload_type() == 109;
    EXPECT_TRUE(pt109);

    // Started: the port range and the max bandwidth are guarded, the codec lists are not.
    EXPECT_EQ(ZYN_E_FAIL, c.Audio().SetIceLocalPortRange(54500, 54509));
    EXPECT_EQ(ZYN_E_FAIL, c.Audio().SetMaxBandwidth(64000));
    EXPECT_EQ("", c.SessionOption(kAudioMid, 10)) << "a refused setting reaches nothing";
}

// Without an engine (after Stop) the connection-wide engine options fail and keep their value.
TEST_F(ConfigEffectTest, EngineOptionsFailOnAStoppedConnection)
{
    IZynMediaConnection* conn = nullptr;
    ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&conn, 0));
    IGlobalConfig* global = conn->GetGlobalConfig();
    ASSERT_EQ(ZYN_S_OK, global->SetQoSMinBandwidth(128000));
    conn->Stop();
    mstest::OnMain();
    EXPECT_EQ(ZYN_E_WRONGSTATE, global->SetQoSMinBandwidth(256000));
    EXPECT_EQ(128000u, global->GetQoSMinBandwidth());
    conn->Release();
}

}  // namespace
