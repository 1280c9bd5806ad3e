// Fuzzes what the simulated engine reads from the network. The first byte picks the way in:
//   bit 0: RTCP rather than RTP;
//   bit 1: the session is SRTP-keyed, and the rest is protected with the sender's key first, so
//          the fuzzed bytes are what the receiver decrypts and reads (when SRTP refuses to protect
//          them, they go in as they are and must be refused).
// RTCP is also read packet by packet with the codec alone: every report and picture loss
// indication that reads is written back and read again, and must come back the same. Both
// sessions take payload type 101 as telephone events, so that RTP reaches the event reader too.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zyn/ZynBytes.h"
#include "zyn/ZynEngineApi.h"
#include "zyn/ZynRtcp.h"
#include "zyn/ZynSrtp.h"

namespace {

const uint8_t kKey[30] = {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9, 3, 2, 3, 8, 4, 6, 2, 6, 4, 3, 3, 8, 3, 2, 7};

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

struct Clock : IZynClock {
    uint64_t NowMs() override { return ms; }
    uint64_t NowNtp() override { return (3900000000ull + ms / 1000) << 32; }
    uint64_t ms = 1000;
};

struct World {
    World()
    {
        ZynInit(0);
        ZynCreateMediaEngineWithClock(&engine, 1, &clock);
        engine->CreateMediaSession(ZynSessionType_Video, &clear);
        engine->CreateMediaSession(ZynSessionType_Video, &keyed);
        ZynSrtpCryptoRecord r{2, ZynSrtpSuite_AesCm128HmacSha1_80, kKey, sizeof(kKey), 3, 3, 0, 0, 0, 0, 0};
        keyed->SetOption(ZynSessionOption_SrtpCrypto, &r, sizeof(r));
        for (IZynMediaSession* s : {clear, keyed}) s->SetCodecPt(2, 101, ZynCodecType_DTMF, 8000);
        sender.SetKey(zynrtp::SrtpContext::Direction::Send, ZynSrtpSuite_AesCm128HmacSha1_80, kKey, sizeof(kKey));
    }
    Clock clock;
    IZynMediaEngineInternal* engine = nullptr;
    IZynMediaSession* clear = nullptr;
    IZynMediaSession* keyed = nullptr;
    zynrtp::SrtpContext sender;
};

void RoundTripReports(const uint8_t* data, size_t size)
{
    zynrtp::RtcpCompound compound(data, size);
    zynrtp::RtcpPacket p;
    while (compound.Next(p)) {
        if (p.data < data || p.data + p.length > data + size) Fail("packet outside the compound");
        zynrtp::Report first, second;
        if (zynrtp::ReadReport(p, first)) {
            uint8_t out[8 + 20 + 31 * 24];
            const size_t n = zynrtp::WriteReport(first, out, sizeof(out));
            zynrtp::RtcpPacket again{};
            zynrtp::RtcpCompound back(out, n);
            if (!n || !back.Next(again) || !zynrtp::ReadReport(again, second)) Fail("a report read does not write back");
            if (first.isSender != second.isSender || first.ssrc != second.ssrc || first.ntp != second.ntp ||
                first.blockCount != second.blockCount || first.packets != second.packets || first.octets != second.octets)
                Fail("report changed");
            for (uint8_t i = 0; i < first.blockCount; ++i)
                if (!(first.blocks[i] == second.blocks[i])) Fail("block changed");
        }
        if (zynrtp::IsPictureLoss(p)) {
            uint8_t out[12];
            const uint32_t sender = zynrtp::Read32(p.data + 4), media = zynrtp::Read32(p.data + 8);
            if (zynrtp::WritePictureLoss(sender, media, out, sizeof(out)) != sizeof(out) ||
                std::memcmp(out + 4, p.data + 4, 8) != 0 || out[1] != p.data[1])
                Fail("a picture loss indication does not write back");
        }
        if (auto cname = zynrtp::ReadSdesCname(p)) {
            const auto* c = reinterpret_cast<const uint8_t*>(cname->second.data());
            if (c < p.data || c + cname->second.size() > p.data + p.length) Fail("CNAME outside its packet");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static World world;
    if (size < 1) return 0;
    const bool rtcp = data[0] & 1;
    const bool keyed = data[0] & 2;
    ++data;
    --size;
    if (size > 4096) return 0;
    world.clock.ms += 20;
    if (rtcp) RoundTripReports(data, size);

    uint8_t packet[4096 + zynrtp::SrtpContext::kMaxTrailer];
    std::memcpy(packet, data, size);
    size_t length = size;
    if (keyed) {
        const size_t n = rtcp ? world.sender.ProtectRtcp(packet, length, sizeof(packet))
                              : world.sender.ProtectRtp(packet, length, sizeof(packet));
        if (n) length = n;
    }
    IZynMediaSession* session = keyed ? world.keyed : world.clear;
    const auto n32 = static_cast<uint32_t>(length);
    if (rtcp) session->ReceiveRTCPPacket(packet, n32);
    else session->ReceiveRTPPacket(packet, n32);

    ZynStreamStatistics streams[20];
    uint32_t count = 20;
    if (session->GetStreamStatistics(streams, count) != ZYN_S_OK || count > 17) Fail("more streams than the table holds");
    for (uint32_t i = 0; i < count; ++i)
        if (std::memchr(streams[i].cname, 0, sizeof(streams[i].cname)) == nullptr) Fail("CNAME not terminated");
    return 0;
}
