// Two connections of one process in a whole call, as an application drives them: descriptions
// travel between the sinks, statuses are collected, and the lines can be read back underneath.
#pragma once

#include <chrono>
#include <cstdio>
#include <utility>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "connection/MediaConnection.h"
#include "ice/IceConnectorImpl.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaConfig.h"
#include "mediasession/ZynMediaConnection.h"
#include "mediasession/ZynMediaTrack.h"
#include "test_support.h"

namespace mstest {

// One side: its descriptions and every status each line reported.
struct CallSink : IZynMediaConnectionSink {
    struct Ready {
        unsigned long mid;
        ZynDirection direction;
        ZynSessionType type;
        IZynMediaTrackBase* track;  // one reference, released with the sink
    };
    ~CallSink() override
    {
        for (Ready& r : ready)
            if (r.track) r.track->Release();
    }
    // Every track is kept; local ones start at once unless the test starts them itself.
    void OnMediaReady(unsigned long mid, ZynDirection direction, ZynSessionType type, IZynMediaTrackBase* track) override
    {
        if (track) track->AddRef();
        if (track && direction == ZynDirection_Send && startLocalTracks) track->Start(false);
        if (track && direction == ZynDirection_Recv) track->Start(false);
        std::lock_guard<std::mutex> lock(mutex);
        ready.push_back({mid, direction, type, track});
        changed.notify_all();
    }
    // The kept track of a line and direction, or null.
    IZynMediaTrackBase* Track(unsigned long mid, ZynDirection direction)
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (Ready& r : ready)
            if (r.mid == mid && r.direction == direction) return r.track;
        return nullptr;
    }
    void OnSDPReady(ZynSdpType type, const char* sdp) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        (type == ZynSdpType_Offer ? offer : answer) = sdp ? sdp : "";
        changed.notify_all();
    }
    void OnSessionStatus(unsigned long mid, ZynSessionType, int status) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        statuses[mid].push_back(status);
        changed.notify_all();
    }
    // What the application does inside the callback, set before the photo is taken.
    void OnCapturePhotoOutput(IZynMediaPackage* photo) override
    {
        if (onPhoto) onPhoto(photo);
    }
    std::function<void(IZynMediaPackage*)> onPhoto;
    void OnError(int code, void*) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        errors.push_back(code);
        Event("error " + Hex(code));
    }
    // The engine events a line hands on, as text in arrival order.
    void OnMediaBlocked(unsigned long mid, unsigned int vid, bool blocked, int id) override
    {
        Event("blocked " + std::to_string(mid) + " " + std::to_string(vid) + " " + std::to_string(blocked) + " " +
              std::to_string(id));
    }
    void OnMediaError(unsigned long mid, unsigned int label, int code) override
    {
        Event("media error " + std::to_string(mid) + " " + std::to_string(label) + " " + Hex(code));
    }
    void OnEncodeSizeChanged(unsigned long mid, unsigned int w, unsigned int h) override
    {
        Event("encode size " + std::to_string(mid) + " " + std::to_string(w) + "x" + std::to_string(h));
    }
    void OnKeyFrameLost(unsigned long mid, unsigned int label, unsigned int a, unsigned int b) override
    {
        Event("key frame lost " + std::to_string(mid) + " " + std::to_string(label) + " " + std::to_string(a) + " " +
              std::to_string(b));
    }
    void OnGestureDetectionResult(unsigned long mid, ZynGestureType type) override
    {
        Event("gesture " + std::to_string(mid) + " " + std::to_string(type));
    }
    void OnReceiverBandwidthUpdate(unsigned long mid, unsigned int value) override
    {
        Event("bandwidth " + std::to_string(mid) + " " + std::to_string(value));
    }
    void OnIndicationResult(unsigned long mid, const _tagIndicationResult*) override
    {
        Event("indication " + std::to_string(mid));
    }
    void OnCSIsChanged(unsigned long mid, unsigned int vid, const unsigned int* oldCsis, unsigned int oldCount,
                       const unsigned int* newCsis, unsigned int newCount) override
    {
        Event("csis " + std::to_string(mid) + " " + std::to_string(vid) + " " + Csis(oldCsis, oldCount) + "-> " +
              Csis(newCsis, newCount));
    }
    void OnMediaStatus(unsigned long mid, unsigned int vid, int status, int flag, int csi) override
    {
        Event("media status " + std::to_string(mid) + " " + std::to_string(vid) + " " + std::to_string(status) + " " +
              std::to_string(flag) + " " + std::to_string(static_cast<unsigned>(csi)));
    }
    void OnRenderSizeChanged(unsigned long mid, unsigned int label, ZynDirection direction, _tagVideoSizeInfo*) override
    {
        Event("render size " + std::to_string(mid) + " " + std::to_string(label) + " " + std::to_string(direction));
    }
    void OnPictureLossIndication() override { Event("picture loss"); }
    void OnLiveSourcesAvailableMediaChanged(unsigned long mid, int count) override
    {
        Event("live sources " + std::to_string(mid) + " " + std::to_string(count));
    }
    static std::string Csis(const unsigned int* csis, unsigned int count)
    {
        std::string text;
        for (unsigned int i = 0; i < count; ++i) text += std::to_string(csis[i]) + " ";
        return text;
    }
    static std::string Hex(int code)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
        return text;
    }
    void Event(const std::string& text)
    {
        std::lock_guard<std::mutex> lock(eventMutex);
        events.push_back(text);
        changed.notify_all();
    }
    std::vector<std::string> TakeEvents()
    {
        std::lock_guard<std::mutex> lock(eventMutex);
        return std::exchange(events, {});
    }
    // Until pred holds under the lock, or the bound passes (a failure, never a pacing sleep).
    bool Wait(const std::function<bool()>& pred, std::chrono::milliseconds bound = std::chrono::seconds(20))
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, bound, pred);
    }
    bool Saw(unsigned long mid, int status)
    {
        for (int s : statuses[mid])
            if (s == status) return true;
        return false;
    }
    int Count(unsigned long mid, int status)
    {
        int n = 0;
        for (int s : statuses[mid]) n += s == status;
        return n;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::string offer, answer;
    std::map<unsigned long, std::vector<int>> statuses;
    std::vector<int> errors;
    std::vector<Ready> ready;
    bool startLocalTracks = true;
    std::mutex eventMutex;  // taken alone: events come on any thread, some under the sink's mutex
    std::vector<std::string> events;
};

struct CallLine {
    ZynSessionType type;
    unsigned long mid;
};

// Both connections with the same settings; `configure` runs on each before the offer.
class CallPair {
public:
    // startOffererTracks false: A's local tracks wait for the test to start them.
    CallPair(std::vector<CallLine> lines, const std::function<void(zyn::CMediaConnection&)>& configure,
             bool startOffererTracks = true)
        : m_lines(std::move(lines))
    {
        sink[0].startLocalTracks = startOffererTracks;
        for (int i = 0; i < 2; ++i) {
            CreateMediaConnection(&m_conn[i], static_cast<unsigned int>(100 + i));
            m_impl[i] = static_cast<zyn::CMediaConnection*>(m_conn[i]);
            m_conn[i]->SetSink(&sink[i]);
            configure(*m_impl[i]);
            for (const CallLine& l : m_lines) m_conn[i]->AddMedia(l.type, ZynDirection_SendRecv, l.mid, nullptr);
        }
    }
    ~CallPair()
    {
        for (int i = 0; i < 2; ++i) {
            IZynMediaConnection* c = m_conn[i];
            OnMain([c] { c->Stop(); });
            c->Release();
        }
        OnMain();
    }
    // A offers, B answers, A takes the answer (through `answerFilter`, when a test wants to spoil
    // it): each call on the main thread, as the API asks.
    std::function<std::string(const std::string&)> answerFilter;
    bool Exchange()
    {
        ZynResult r = ZYN_E_FAIL;
        OnMain([&] { r = m_conn[0]->CreateOffer(); });
        if (r != ZYN_S_OK || !sink[0].Wait([&] { return !sink[0].offer.empty(); })) return false;
        OnMain([&] { r = m_conn[1]->SetReceivedSDP(ZynSdpType_Offer, sink[0].offer.c_str(), nullptr, nullptr); });
        if (r != ZYN_S_OK) return false;
        OnMain([&] { r = m_conn[1]->CreateAnswer(); });
        if (r != ZYN_S_OK || !sink[1].Wait([&] { return !sink[1].answer.empty(); })) return false;
        const std::string answer = answerFilter ? answerFilter(sink[1].answer) : sink[1].answer;
        OnMain([&] { r = m_conn[0]->SetReceivedSDP(ZynSdpType_Answer, answer.c_str(), nullptr, nullptr); });
        return r == ZYN_S_OK;
    }
    // Every line of both sides reported this status.
    bool WaitAll(int status, std::chrono::milliseconds bound = std::chrono::seconds(20))
    {
        for (int i = 0; i < 2; ++i)
            for (const CallLine& l : m_lines)
                if (!sink[i].Wait([&] { return sink[i].Saw(l.mid, status); }, bound)) return false;
        return true;
    }
    zyn::CMediaConnectionInfo* Line(int side, unsigned long mid) { return m_impl[side]->FindConnection(mid); }
    IZynMediaConnection* Conn(int side) { return m_conn[side]; }
    zyn::CMediaConnection* Impl(int side) { return m_impl[side]; }

    CallSink sink[2];

private:
    std::vector<CallLine> m_lines;
    IZynMediaConnection* m_conn[2] = {nullptr, nullptr};
    zyn::CMediaConnection* m_impl[2] = {nullptr, nullptr};
};

}  // namespace mstest
