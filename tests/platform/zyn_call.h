// A small network for engine sessions in tests: an engine on a fake clock, and links that carry
// one session's packets to another after a delay, drop the ones a rule picks, and keep a copy of
// everything sent so a test can read the wire itself. One thread: the test's.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "zyn/ZynEngineApi.h"

namespace zyntest {

class FakeClock : public IZynClock {
public:
    uint64_t NowMs() override { return ms; }
    uint64_t NowNtp() override
    {
        // An NTP era second well past zero, so the middle 32 bits never read as "no SR yet".
        const uint64_t seconds = 3900000000ull + ms / 1000;
        return (seconds << 32) | (((ms % 1000) << 32) / 1000);
    }
    uint64_t ms = 5000;
};

using Packet = std::vector<uint8_t>;

// One direction of the network, from the session that sends through it to `to`.
class Link : public IZynMediaTransport {
public:
    Link(FakeClock& clock, IZynMediaSession* to) : m_clock(clock), m_to(to) {}

    int32_t GetTransportType() override { return 1; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override
    {
        rtp.emplace_back(data, data + length);
        if (dropRtp && dropRtp(rtp.size() - 1)) return ZYN_S_OK;
        m_queue.push_back({m_clock.ms + delayMs, false, rtp.back()});
        return ZYN_S_OK;
    }
    ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) override
    {
        rtcp.emplace_back(data, data + length);
        m_queue.push_back({m_clock.ms + delayMs, true, rtcp.back()});
        return ZYN_S_OK;
    }
    // Hands over what is due by now.
    void Deliver()
    {
        while (!m_queue.empty() && m_queue.front().due <= m_clock.ms) {
            Pending p = std::move(m_queue.front());
            m_queue.pop_front();
            const auto size = static_cast<uint32_t>(p.bytes.size());
            if (p.rtcp) {
                m_to->ReceiveRTCPPacket(p.bytes.data(), size);
            } else {
                m_to->ReceiveRTPPacket(p.bytes.data(), size);
                ++rtpDelivered;
                lastDelivered = std::move(p.bytes);
            }
        }
    }

    uint64_t delayMs = 0;
    // Index of an RTP packet among all sent through here: true drops it.
    std::function<bool(size_t)> dropRtp;
    std::vector<Packet> rtp, rtcp;  // everything sent, dropped or not
    size_t rtpDelivered = 0;
    Packet lastDelivered;

private:
    struct Pending {
        uint64_t due;
        bool rtcp;
        Packet bytes;
    };
    FakeClock& m_clock;
    IZynMediaSession* const m_to;
    std::deque<Pending> m_queue;
};

// Everything one session sends, kept and delivered nowhere.
struct Capture : IZynMediaTransport {
    int32_t GetTransportType() override { return 1; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override
    {
        rtp.emplace_back(data, data + length);
        return ZYN_S_OK;
    }
    ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) override
    {
        rtcp.emplace_back(data, data + length);
        return ZYN_S_OK;
    }
    std::vector<Packet> rtp, rtcp;
};

// Sessions of one engine on a fake clock, each with a local track of its kind (started by Start).
class Call {
public:
    Call()
    {
        ZynInit(0);
        EXPECT_EQ(ZYN_S_OK, ZynCreateMediaEngineWithClock(&m_engine, 7, &clock));
    }
    ~Call()
    {
        for (auto& s : m_sessions) {
            s.session->SetTransport(nullptr);
            s.track->Release();
            s.session->Release();
        }
        m_engine->Stop();
        m_engine->Release();
        ZynUninit();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    IZynMediaSession* Add(ZynSessionType type = ZynSessionType_Audio)
    {
        Member m;
        EXPECT_EQ(ZYN_S_OK, m_engine->CreateMediaSession(type, &m.session));
        const ZynTrackKind kind = type == ZynSessionType_Video         ? ZynTrack_VideoLocal
                                  : type == ZynSessionType_ScreenShare ? ZynTrack_ScreenShareLocal
                                                                       : ZynTrack_AudioLocal;
        EXPECT_EQ(ZYN_S_OK, m_engine->CreateTrack(kind, &m.track));
        m.session->AddTrack(m.track);
        m_sessions.push_back(m);
        return m.session;
    }
    // The link `from` sends through, to `to`. A session sends through one link.
    Link& Connect(IZynMediaSession* from, IZynMediaSession* to)
    {
        m_links.push_back(std::make_unique<Link>(clock, to));
        from->SetTransport(m_links.back().get());
        return *m_links.back();
    }
    void Start(IZynMediaSession* session)
    {
        for (auto& m : m_sessions)
            if (m.session == session) m.track->Start();
    }
    // Moves the clock in steps of 5 ms, running the engine and the links at each.
    void Run(uint64_t ms)
    {
        for (uint64_t t = 0; t < ms; t += 5) {
            clock.ms += 5;
            ZynRunEngineClock(m_engine);
            for (auto& l : m_links) l->Deliver();
        }
    }
    IZynMediaEngineInternal* Engine() { return m_engine; }

    FakeClock clock;

private:
    struct Member {
        IZynMediaSession* session = nullptr;
        IZynMediaTrack* track = nullptr;
    };
    IZynMediaEngineInternal* m_engine = nullptr;
    std::vector<Member> m_sessions;
    std::vector<std::unique_ptr<Link>> m_links;
};

// One session sending to another of the same kind.
struct OneWay {
    explicit OneWay(ZynSessionType type = ZynSessionType_Audio)
        : from(call.Add(type)), to(call.Add(type)), link(call.Connect(from, to))
    {
    }
    Call call;
    IZynMediaSession* from;
    IZynMediaSession* to;
    Link& link;
};

inline ZynFlowStatistics FlowOf(IZynMediaSession* s)
{
    ZynFlowStatistics f{};
    s->GetFlowStatistics(f);
    return f;
}

// The RTP header as the wire has it, read here and not by the engine.
struct WireHeader {
    uint8_t payloadType;
    uint16_t sequence;
    uint32_t timestamp;
    uint32_t ssrc;
};
inline WireHeader ReadWire(const Packet& p)
{
    return WireHeader{static_cast<uint8_t>(p[1] & 0x7F), static_cast<uint16_t>((p[2] << 8) | p[3]),
                      (uint32_t{p[4]} << 24) | (uint32_t{p[5]} << 16) | (uint32_t{p[6]} << 8) | p[7],
                      (uint32_t{p[8]} << 24) | (uint32_t{p[9]} << 16) | (uint32_t{p[10]} << 8) | p[11]};
}

}  // namespace zyntest
