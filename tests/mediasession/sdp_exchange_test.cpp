// Two connections in one process trade an offer and an answer through their sinks, as an
// application would: what the texts carry, what the records say, and the states on both sides.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sstream>
#include <tuple>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "mediasession/ZynMediaConnection.h"
#include "sdp/session_group.h"
#include "test_support.h"
#include "tp/CmThreadManager.h"
#include "zyn/ZynEngineApi.h"

namespace {

struct Line {
    ZynSessionType type;
    unsigned long mid;
};

// Keeps every description the connection hands out, and counts the tracks it announces.
struct SdpSink : IZynMediaConnectionSink {
    void OnSDPReady(ZynSdpType type, const char* sdp) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        types.push_back(type);
        texts.emplace_back(sdp ? sdp : "");
        changed.notify_all();
    }
    // A line waiting for the certificate sends its description from the main thread, later.
    bool WaitSdp(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20), [&] { return texts.size() >= count; });
    }
    void OnMediaReady(unsigned long, ZynDirection direction, ZynSessionType, IZynMediaTrackBase*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++ready[direction & 3];
        changed.notify_all();
    }
    // Waits for that many announcements of the direction, then for the main thread to drain.
    int WaitReady(ZynDirection direction, int count)
    {
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait_for(lock, std::chrono::seconds(10), [&] { return ready[direction] >= count; });
        }
        mstest::OnMain();
        std::lock_guard<std::mutex> lock(mutex);
        return ready[direction];
    }
    std::vector<ZynSdpType> types;
    std::vector<std::string> texts;
    std::mutex mutex;
    std::condition_variable changed;
    int ready[4] = {};
};

// The o= line's version field.
std::string VersionOf(const std::string& sdp)
{
    std::istringstream lines(sdp);
    for (std::string l; std::getline(lines, l);) {
        if (l.rfind("o=", 0) != 0) continue;
        std::istringstream fields(l.substr(2));
        std::string user, id, version;
        fields >> user >> id >> version;
        return version;
    }
    return {};
}

sdp::session_group Parse(const std::string& text)
{
    return sdp::session_group(sdp::session_description::create(text));
}

class SdpExchangeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_liveBase = ZynLiveObjectCount();
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_a, 0));
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&m_b, 0));
        m_a->SetSink(&m_sinkA);
        m_b->SetSink(&m_sinkB);
    }
    void TearDown() override
    {
        for (IZynMediaConnection* c : {m_a, m_b}) {
            c->Stop();
            c->Release();
        }
        mstest::OnMain();
        EXPECT_EQ(m_liveBase, ZynLiveObjectCount());
    }
    static void Add(IZynMediaConnection* c, const std::vector<Line>& lines)
    {
        for (const Line& l : lines) ASSERT_EQ(ZYN_S_OK, c->AddMedia(l.type, ZynDirection_SendRecv, l.mid, nullptr));
    }
    // A offers, B answers; returns B's records of the offer and A's of the answer.
    void Exchange(std::vector<_tagSdpParsedInfo>& offerInfo, std::vector<_tagSdpParsedInfo>& answerInfo)
    {
        ASSERT_EQ(ZYN_S_OK, m_a->CreateOffer());
        ASSERT_EQ(1u, m_sinkA.texts.size());
        int n = static_cast<int>(offerInfo.size());
        ASSERT_EQ(ZYN_S_OK, m_b->SetReceivedSDP(ZynSdpType_Offer, m_sinkA.texts.back().c_str(), offerInfo.data(), &n));
        offerInfo.resize(n);
        EXPECT_EQ(1, m_b->GetSDPStatus());
        ASSERT_EQ(ZYN_S_OK, m_b->CreateAnswer());
        ASSERT_EQ(1u, m_sinkB.texts.size());
        EXPECT_EQ(ZynSdpType_Answer, m_sinkB.types.back());
        EXPECT_EQ(3, m_b->GetSDPStatus());
        n = static_cast<int>(answerInfo.size());
        EXPECT_EQ(ZYN_S_OK,
                  m_a->SetReceivedSDP(ZynSdpType_Answer, m_sinkB.texts.back().c_str(), answerInfo.data(), &n));
        answerInfo.resize(n);
        EXPECT_EQ(3, m_a->GetSDPStatus());
    }

    mstest::EngineScope m_engine;
    int m_liveBase = 0;
    IZynMediaConnection* m_a = nullptr;
    IZynMediaConnection* m_b = nullptr;
    SdpSink m_sinkA, m_sinkB;
};

TEST_F(SdpExchangeTest, ThreeLinesGiveOneOfferThenAnAnswerThatBothSidesRecord)
{
    const std::vector<Line> lines{{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}, {ZynSessionType_ScreenShare, 2}};
    Add(m_a, lines);
    Add(m_b, lines);
    std::vector<_tagSdpParsedInfo> offerInfo(4), answerInfo(4);
    Exchange(offerInfo, answerInfo);

    ASSERT_EQ(1u, m_sinkA.types.size());
    EXPECT_EQ(ZynSdpType_Offer, m_sinkA.types[0]);
    const sdp::session_group offer = Parse(m_sinkA.texts[0]);
    ASSERT_EQ(3u, offer.sessions.size());
    EXPECT_EQ("0", VersionOf(m_sinkA.texts[0]));
    EXPECT_EQ("0", VersionOf(m_sinkB.texts[0]));
    ASSERT_TRUE(offer.ice_options.is_set());
    EXPECT_EQ(std::vector<std::string>{"vorta+tls+fqdn"}, offer.ice_options.get_data().tags);

    const ZynSessionType kinds[] = {ZynSessionType_Audio, ZynSessionType_Video, ZynSessionType_ScreenShare};
    ASSERT_EQ(3u, offerInfo.size());
    ASSERT_EQ(3u, answerInfo.size());
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_NE(0, offer.sessions[i].get_port());
        EXPECT_EQ(kinds[i], offerInfo[i].sessionType);
        EXPECT_EQ(ZynDirection_SendRecv, offerInfo[i].direction);
        EXPECT_EQ(i, offerInfo[i].mid);
        EXPECT_EQ(kinds[i], answerInfo[i].sessionType);
        EXPECT_EQ(ZynDirection_SendRecv, answerInfo[i].direction);
    }

    // One remote track announced per line on each side: audio mixes its six into one.
    EXPECT_EQ(3, m_sinkA.WaitReady(ZynDirection_Recv, 3));
    EXPECT_EQ(3, m_sinkB.WaitReady(ZynDirection_Recv, 3));

    // A new exchange of the same call counts the version on and makes no new tracks.
    ASSERT_EQ(ZYN_S_OK, m_a->CreateOffer());
    EXPECT_EQ("1", VersionOf(m_sinkA.texts.back()));
    EXPECT_EQ(3, m_a->GetSDPStatus());
    ASSERT_EQ(ZYN_S_OK, m_b->SetReceivedSDP(ZynSdpType_Offer, m_sinkA.texts.back().c_str(), nullptr, nullptr));
    ASSERT_EQ(ZYN_S_OK, m_b->CreateAnswer());
    EXPECT_EQ("1", VersionOf(m_sinkB.texts.back()));
    EXPECT_EQ(ZYN_S_OK, m_a->SetReceivedSDP(ZynSdpType_Answer, m_sinkB.texts.back().c_str(), nullptr, nullptr));
    EXPECT_EQ(3, m_sinkA.WaitReady(ZynDirection_Recv, 3));
    EXPECT_EQ(3, m_sinkB.WaitReady(ZynDirection_Recv, 3));
}

TEST_F(SdpExchangeTest, ALineTheAnswererLacksIsRefusedWithPortZeroAndStopped)
{
    Add(m_a, {{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}});
    Add(m_b, {{ZynSessionType_Audio, 0}});
    std::vector<_tagSdpParsedInfo> offerInfo(4), answerInfo(4);
    Exchange(offerInfo, answerInfo);
    const sdp::session_group answer = Parse(m_sinkB.texts[0]);
    ASSERT_EQ(2u, answer.sessions.size());
    EXPECT_EQ(0, answer.sessions[1].get_port());
    ASSERT_EQ(2u, answerInfo.size());
    EXPECT_EQ(ZynDirection_SendRecv, answerInfo[0].direction);
    EXPECT_EQ(ZynSessionType_Video, answerInfo[1].sessionType);
    EXPECT_EQ(ZynDirection_None, answerInfo[1].direction);
}

TEST_F(SdpExchangeTest, RecordsBeyondTheCapacityAreCountedNotWritten)
{
    const std::vector<Line> lines{{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}, {ZynSessionType_ScreenShare, 2}};
    Add(m_a, lines);
    Add(m_b, lines);
    ASSERT_EQ(ZYN_S_OK, m_a->CreateOffer());
    _tagSdpParsedInfo info[3] = {};
    info[1].sessionType = info[2].sessionType = 77;  // guards: must stay untouched
    int n = 1;
    ASSERT_EQ(ZYN_S_OK, m_b->SetReceivedSDP(ZynSdpType_Offer, m_sinkA.texts[0].c_str(), info, &n));
    EXPECT_EQ(3, n);
    EXPECT_EQ(ZynSessionType_Audio, info[0].sessionType);
    EXPECT_EQ(77, info[1].sessionType);
    EXPECT_EQ(77, info[2].sessionType);
}

TEST_F(SdpExchangeTest, ARemoteOfferWithoutMediaFailsWithNoRecords)
{
    Add(m_b, {{ZynSessionType_Audio, 0}});
    const char* empty = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nt=0 0\r\n";
    _tagSdpParsedInfo info[2] = {};
    int n = 2;
    EXPECT_EQ(ZYN_E_FAIL, m_b->SetReceivedSDP(ZynSdpType_Offer, empty, info, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(1, m_b->GetSDPStatus());
}

// SDES keys and the ICE password reach the trace only when the application asked for it.
TEST_F(SdpExchangeTest, SecretsAreMaskedInTracesUnlessInsecureLogsAreOn)
{
    for (bool insecure : {false, true}) {
        SCOPED_TRACE(insecure);
        IZynMediaConnection* c = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&c, 0));
        SdpSink sink;
        c->SetSink(&sink);
        ASSERT_EQ(ZYN_S_OK, c->GetGlobalConfig()->EnableSRTP(true));
        ASSERT_EQ(ZYN_S_OK, c->GetGlobalConfig()->EnableICE(true));
        ASSERT_EQ(ZYN_S_OK, c->GetGlobalConfig()->EnableInsecureLogs(insecure));
        ASSERT_EQ(ZYN_S_OK, c->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr));
        {
            mstest::TraceCapture traces;
            ASSERT_EQ(ZYN_S_OK, c->CreateOffer());
            ASSERT_EQ(1u, sink.texts.size());
            const sdp::session_group offer = Parse(sink.texts[0]);
            const sdp::rtp_session& rtp = offer.sessions.at(0).rtp.get_data();
            ASSERT_EQ(5u, rtp.cryptos.size());
            ASSERT_TRUE(rtp.ice.is_set());
            const std::string key = rtp.cryptos[0].keys.at(0).key;
            const std::string pwd = rtp.ice.get_data().password;
            EXPECT_EQ(insecure, traces.Contains(key));
            EXPECT_EQ(insecure, traces.Contains(pwd));
            EXPECT_EQ(!insecure, traces.Contains("inline: ******"));
            EXPECT_EQ(!insecure, traces.Contains("ice-pwd: ******"));
        }
        c->Stop();
        c->Release();
    }
}

TEST_F(SdpExchangeTest, WithDtlsTheOfferCarriesTheFingerprintAndNoKeys)
{
    for (IZynMediaConnection* c : {m_a, m_b}) {
        ASSERT_EQ(ZYN_S_OK, c->GetGlobalConfig()->EnableSRTP(true));
        ASSERT_EQ(ZYN_S_OK, c->GetGlobalConfig()->EnableDtlsSRTP(true));
    }
    Add(m_a, {{ZynSessionType_Audio, 0}, {ZynSessionType_Video, 1}});
    // On the main thread, where a line that waited for the certificate finishes: from this
    // thread, a line finding the certificate already there would build the offer concurrently.
    ZynResult created = ZYN_E_FAIL;
    mstest::OnMain([&] { created = m_a->CreateOffer(); });
    ASSERT_EQ(ZYN_S_OK, created);
    ASSERT_TRUE(m_sinkA.WaitSdp(1));
    EXPECT_EQ(1u, m_sinkA.texts.size());
    const sdp::session_group offer = Parse(m_sinkA.texts[0]);
    ASSERT_EQ(2u, offer.sessions.size());
    for (const sdp::session& s : offer.sessions) {
        const sdp::rtp_session& rtp = s.rtp.get_data();
        EXPECT_EQ("RTP/SAVPF", rtp.transport_protocol);
        EXPECT_TRUE(rtp.cryptos.empty());
        ASSERT_TRUE(rtp.dtls.is_set());
        EXPECT_EQ(sdp::dtls_setup_actpass, rtp.dtls.get_data().role);
        ASSERT_EQ(1u, rtp.dtls.get_data().fingerprints.size());
        EXPECT_EQ("sha-1", rtp.dtls.get_data().fingerprints[0].hash);
        EXPECT_EQ(59u, rtp.dtls.get_data().fingerprints[0].value.size());  // 20 bytes as XX:XX:...
    }
}

// Guarded settings are refused from the first offer until the renegotiation starts, and each
// refusal is counted for the session metrics.
TEST_F(SdpExchangeTest, GuardedSettingsWaitForTheRenegotiation)
{
    Add(m_a, {{ZynSessionType_Audio, 0}});
    IGlobalConfig* global = m_a->GetGlobalConfig();
    IAudioConfig* audio = m_a->GetAudioConfig(0);
    ASSERT_NE(nullptr, audio);
    EXPECT_EQ(nullptr, m_a->GetVideoConfig(0));
    EXPECT_EQ(nullptr, m_a->GetAudioConfig(9));
    ASSERT_EQ(ZYN_S_OK, m_a->CreateOffer());
    EXPECT_EQ(ZYN_E_FAIL, global->EnableICE(true));
    EXPECT_FALSE(global->IsICEEnabled());
    EXPECT_EQ(ZYN_E_FAIL, audio->SetMaxBandwidth(64000));
    EXPECT_EQ(ZYN_S_OK, m_a->StartSDPRenegotiation());
    EXPECT_EQ(0, m_a->GetSDPStatus());
    EXPECT_EQ(ZYN_S_OK, global->EnableICE(true));
    EXPECT_TRUE(global->IsICEEnabled());
    EXPECT_EQ(ZYN_S_OK, audio->SetMaxBandwidth(64000));
    // The renegotiated offer carries the new settings and the next version.
    ASSERT_EQ(ZYN_S_OK, m_a->CreateOffer());
    ASSERT_EQ(2u, m_sinkA.texts.size());
    EXPECT_EQ("1", VersionOf(m_sinkA.texts[1]));
    const sdp::session_group renewed = Parse(m_sinkA.texts[1]);
    const sdp::rtp_session& rtp = renewed.sessions.at(0).rtp.get_data();
    EXPECT_TRUE(rtp.ice.is_set());
    EXPECT_EQ(64000u, rtp.get_bandwidth().get_data());
}

// What each side enables decides what the offerer sets up from the answer; a hybrid declaration
// the answer cannot back with both RTX and FEC sets up neither and is reported.
TEST(SdpResilienceTest, WhatTheAnswerAgreesIsSetUp)
{
    struct Row {
        const char* name;
        bool rtxA, fecA, rtxB, fecB;
        bool dropFecFromAnswer;  // the answer declares hybrid resilience without its FEC payload
        bool rtx, fec, hybrid, complaint;
    };
    const Row rows[] = {
        {"nothing", false, false, false, false, false, false, false, false, false},
        {"retransmission", true, false, true, false, false, true, false, false, false},
        {"forward error correction", false, true, false, true, false, false, true, false, false},
        {"both: hybrid", true, true, true, true, false, true, true, true, false},
        {"answerer without FEC", true, true, true, false, false, true, false, false, false},
        {"hybrid declared without FEC", true, true, true, true, true, false, false, false, true},
    };
    mstest::EngineScope engine;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IZynMediaConnection* a = nullptr;
        IZynMediaConnection* b = nullptr;
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&a, 0));
        ASSERT_EQ(ZYN_S_OK, CreateMediaConnection(&b, 0));
        SdpSink sinkA, sinkB;
        a->SetSink(&sinkA);
        b->SetSink(&sinkB);
        for (auto [c, rtx, fec] : {std::tuple{a, row.rtxA, row.fecA}, std::tuple{b, row.rtxB, row.fecB}}) {
            ASSERT_EQ(ZYN_S_OK, c->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 0, nullptr));
            ASSERT_EQ(ZYN_S_OK, c->GetVideoConfig(0)->EnableRtx(rtx));
            ASSERT_EQ(ZYN_S_OK, c->GetVideoConfig(0)->EnableFec(fec));
        }
        ASSERT_EQ(ZYN_S_OK, a->CreateOffer());
        ASSERT_EQ(ZYN_S_OK, b->SetReceivedSDP(ZynSdpType_Offer, sinkA.texts.at(0).c_str(), nullptr, nullptr));
        ASSERT_EQ(ZYN_S_OK, b->CreateAnswer());
        std::string answer = sinkB.texts.at(0);
        if (row.dropFecFromAnswer) {
            const sdp::session_group g = Parse(answer);
            for (const sdp::codec& c : g.sessions.at(0).rtp.get_data().codecs) {
                if (c.get_type() != sdp::codec_x_ulpfecuc) continue;
                const std::string pt = std::to_string(c.payload_type);
                for (const std::string& prefix : {"a=rtpmap:" + pt + " ", "a=fmtp:" + pt + " "}) {
                    const size_t at = answer.find(prefix);
                    if (at != std::string::npos) answer.erase(at, answer.find("\r\n", at) + 2 - at);
                }
                const size_t m = answer.find("m=video");
                const size_t end = answer.find("\r\n", m);
                const size_t inM = answer.find(" " + pt, m);
                if (inM < end) answer.erase(inM, pt.size() + 1);
            }
        }
        mstest::TraceCapture traces;
        EXPECT_EQ(ZYN_S_OK, a->SetReceivedSDP(ZynSdpType_Answer, answer.c_str(), nullptr, nullptr));
        zyn::CMediaConnectionInfo* line = static_cast<zyn::CMediaConnection*>(a)->FindConnection(0ul);
        ASSERT_NE(nullptr, line);
        EXPECT_EQ(row.rtx, line->IsRtxSetup());
        EXPECT_EQ(row.fec, line->IsFecSetup());
        EXPECT_EQ(row.hybrid, line->IsHybridSetup());
        EXPECT_EQ(row.complaint, traces.Contains("Not expect hybrid resilience declared but not support RTX and FEC"));
        for (IZynMediaConnection* c : {a, b}) {
            c->Stop();
            c->Release();
        }
    }
}

}  // namespace
