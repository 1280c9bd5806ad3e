// Engine start and stop: counting, threads, the main-thread uninit, and the certificate generator.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "entry/CertficateGenerator.h"
#include "test_support.h"
#include "tp/CmCert.h"
#include "tp/CmThreadManager.h"
#include "zyn/ZynEngineApi.h"

extern unsigned int g_uMainThreadUninited;

namespace {

using mstest::TraceCapture;
constexpr auto kBound = std::chrono::seconds(20);

ACmThread* Thread(int type) { return CCmThreadManager::Instance()->GetThread(type); }

TEST(EngineLifecycleTest, NestedInitSpawnsOnceAndOnlyTheLastUninitReachesTheEngine)
{
    TraceCapture trace;
    int engineBase = ZynInitCount();
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 7);
    ACmThread* audio = Thread(TT_AUDIO_NETWORK);
    ASSERT_NE(nullptr, audio);
    EXPECT_EQ("t-neta", audio->GetThreadName());
    EXPECT_EQ("t-netv", Thread(TT_VIDEO_NETWORK)->GetThreadName());
    EXPECT_EQ("t-nets", Thread(TT_SHARE_NETWORK)->GetThreadName());
    EXPECT_EQ(engineBase + 1, ZynInitCount());

    InitMediaEngine(nullptr, nullptr, true, nullptr, false, 7);  // its timer argument is dropped
    EXPECT_EQ(audio, Thread(TT_AUDIO_NETWORK));
    EXPECT_EQ(engineBase + 1, ZynInitCount());
    EXPECT_TRUE(trace.Contains("InitMediaEngine::RefCount=2"));

    UninitMediaEngine();
    EXPECT_TRUE(trace.Contains("UninitMediaEngine::RefCount=1"));
    EXPECT_EQ(audio, Thread(TT_AUDIO_NETWORK));
    EXPECT_EQ(0u, g_uMainThreadUninited);

    UninitMediaEngine();
    EXPECT_EQ(1u, g_uMainThreadUninited);
    EXPECT_EQ(engineBase, ZynInitCount());
    EXPECT_EQ(nullptr, Thread(TT_AUDIO_NETWORK));
    EXPECT_TRUE(trace.Contains("UnInitMediaEngine successfully returned."));

    UninitMediaEngine();  // one too many: a warning, nothing else
    EXPECT_EQ(engineBase, ZynInitCount());
    EXPECT_TRUE(trace.Contains("1 Call UninitMediaEngine when RefCount is 0"));
}

TEST(EngineLifecycleTest, UninitCalledOnTheMainThreadRunsTheUninitEventInline)
{
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
    ACmThread* main = Thread(TT_MAIN);
    ASSERT_NE(nullptr, main);
    bool ranOnMain = false;
    CmInvokeInThread(main, false, [&] {
        UninitMediaEngine();
        ranOnMain = g_uMainThreadUninited == 1;  // set by the event before Uninit returned
        return CM_OK;
    });
    EXPECT_TRUE(ranOnMain);
    EXPECT_EQ(nullptr, Thread(TT_AUDIO_NETWORK));
    // A new engine life gets a fresh main thread.
    InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
    ACmThread* fresh = Thread(TT_MAIN);
    ASSERT_NE(nullptr, fresh);
    EXPECT_EQ(CM_OK, CmInvokeInThread(fresh, false, [] { return CM_OK; }));
    UninitMediaEngine();
}

TEST(EngineLifecycleTest, ReinitKeepsTheCertificateAndObserversAreAnsweredAtOnce)
{
    CCmString firstCert, firstKey;
    {
        mstest::EngineScope engine;
        // Generation runs in the background; Stop waits for it.
        zyn::CCertficateGenerator::Instance()->Join();
        zyn::CCertficateGenerator::Instance()->GetCertificate(firstCert, firstKey);
    }
    ASSERT_NE(std::string::npos, firstCert.find("BEGIN CERTIFICATE"));
    CCmString fingerprint;
    EXPECT_EQ(CM_OK, GenerateFingerPrint(firstCert, fingerprint));

    mstest::EngineScope again;
    auto* generator = zyn::CCertficateGenerator::Instance();
    CCmString cert, key;
    generator->GetCertificate(cert, key);
    EXPECT_EQ(firstCert, cert);
    EXPECT_EQ(firstKey, key);
    CCmInvokeEvent never([] { return CM_OK; });
    EXPECT_EQ(1, generator->RegisterObserver(&never, TT_MAIN));
    EXPECT_EQ(0u, generator->ObserverCount());
}

// A generator whose slow step waits for the test, so registration before the end is certain.
class GatedGenerator final : public zyn::CCertficateGenerator {
public:
    CmResult CreateCertificate(CCmString& certificate, CCmString& privateKey) override
    {
        entered.set_value();
        gate.wait();
        certificate = "CERT";
        privateKey = "KEY";
        return CM_OK;
    }
    std::promise<void> entered;
    std::shared_future<void> gate;
};

TEST(CertificateGeneratorTest, ObserversRegisteredBeforeTheEndArePostedToTheirThread)
{
    ACmThread* target = nullptr;
    ASSERT_EQ(CM_OK, CCmThreadManager::Instance()->SpawnNetworkThread_i(61, "t-obs", target));

    std::promise<void> release;
    GatedGenerator generator;
    generator.gate = release.get_future().share();
    generator.EnsureKicked();
    generator.entered.get_future().wait();
    EXPECT_EQ(CM_ERROR_ALREADY_INITIALIZED, generator.GenerateKey(1024, 365));

    std::promise<bool> delivered;
    auto* first = new CCmInvokeEvent([&] { delivered.set_value(target->IsCurrentThread()); return CM_OK; });
    auto* second = new CCmInvokeEvent([] { return CM_OK; });
    CCmInvokeEvent unknown([] { return CM_OK; });
    EXPECT_EQ(0, generator.RegisterObserver(first, 61));
    EXPECT_EQ(0, generator.RegisterObserver(second, 61));
    EXPECT_EQ(1, generator.UnRegisterObserver(&unknown));
    EXPECT_EQ(0, generator.UnRegisterObserver(second));
    delete second;  // given back by the unregistration
    EXPECT_EQ(1u, generator.ObserverCount());

    release.set_value();
    auto f = delivered.get_future();
    ASSERT_EQ(std::future_status::ready, f.wait_for(kBound));
    EXPECT_TRUE(f.get());
    generator.Join();
    EXPECT_TRUE(generator.IsReady());
    EXPECT_EQ(0u, generator.ObserverCount());
    CCmInvokeEvent late([] { return CM_OK; });
    EXPECT_EQ(1, generator.RegisterObserver(&late, 61));
    CCmString cert, key;
    generator.GetCertificate(cert, key);
    EXPECT_EQ("CERT", cert);
    generator.Stop();
}

TEST(CertificateGeneratorTest, StopDropsWaitingObserversWithoutPostingThem)
{
    std::promise<void> release;
    GatedGenerator generator;
    generator.gate = release.get_future().share();
    generator.EnsureKicked();
    generator.entered.get_future().wait();
    bool fired = false;
    generator.RegisterObserver(new CCmInvokeEvent([&] { fired = true; return CM_OK; }), TT_MAIN);
    // Stop empties the observers first, then waits for the worker: let the worker finish only
    // once the list is empty.
    std::thread stopper([&] { generator.Stop(); });
    while (generator.ObserverCount() != 0) std::this_thread::yield();
    release.set_value();
    stopper.join();
    EXPECT_EQ(0u, generator.ObserverCount());
    EXPECT_FALSE(fired);
}

// An application that runs connection logic on its own thread registers it and pumps it.
TEST(EngineLifecycleTest, ApplicationPumpedMainThreadRunsTheLibrarysMainWork)
{
    std::promise<bool> result;
    std::thread app([&] {
        ZynRegisterMainThread();
        InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
        struct Sink : IZynMediaConnectionSink {
            void OnMediaReady(unsigned long, ZynDirection, ZynSessionType, IZynMediaTrackBase*) override
            {
                onAppThread = CCmThreadManager::Instance()->GetThread(TT_MAIN)->IsCurrentThread();
                ++ready;
            }
            int ready = 0;
            bool onAppThread = false;
        } sink;
        IZynMediaConnection* c = nullptr;
        CreateMediaConnection(&c, 0);
        c->SetSink(&sink);
        c->AddMedia(ZynSessionType_Video, ZynDirection_SendRecv, 0, nullptr);
        for (int i = 0; i < 1000 && sink.ready == 0; ++i) ZynPumpMainThread(10);
        c->Stop();
        c->Release();
        ZynPumpMainThread(0);  // the clean-up that Stop posted
        UninitMediaEngine();  // on the main thread itself: the uninit event runs inline
        bool ended = !ZynPumpMainThread(0);
        result.set_value(sink.ready == 1 && sink.onAppThread && ended);
    });
    auto f = result.get_future();
    ASSERT_EQ(std::future_status::ready, f.wait_for(kBound));
    EXPECT_TRUE(f.get());
    app.join();
}

}  // namespace
