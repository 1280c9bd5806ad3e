// Drives one TURN allocation of each profile with a fuzzed sequence of server packets, ticks,
// permission and channel requests and a release. Server packets are fuzzed bytes; most carry the
// transaction id of the client's last request, so that they reach the state machine instead of
// being dropped as strangers. Nothing may crash, read out of bounds or report a result twice.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "sockaddr_util.h"
#include "turnclient.h"

namespace {

struct Context {
    uint8_t lastId[12] = {};
    bool haveId = false;
    int results = 0;
};

void Log(void*, gatewalk::TurnInfoCategory_T, const char*) {}
void Send(const unsigned char* bytes, unsigned long length, const sockaddr*, void* user)
{
    auto* c = static_cast<Context*>(user);
    if (length < 20) return;
    std::memcpy(c->lastId, bytes + 8, 12);
    c->haveId = true;
}
void Result(void* user, gatewalk::TurnCallBackData_T*) { ++static_cast<Context*>(user)->results; }

sockaddr_storage Addr(const char* text)
{
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&a), text);
    return a;
}

// Response types a TURN server sends to this client: Allocate, Refresh, CreatePermission and
// ChannelBind, success and error, and a Data indication.
constexpr uint16_t kTypes[] = {0x0103, 0x0113, 0x0104, 0x0114, 0x0108, 0x0118, 0x0109, 0x0119, 0x0017};

template <class Instance, class Api>
void Run(FuzzedDataProvider& in)
{
    Context ctx;
    const sockaddr_storage server = Addr("127.0.0.1:3478");
    const sockaddr_storage peer = Addr("127.0.0.1:50000");
    Instance* inst = nullptr;
    if (!Api::Start(&inst, 10, Log, "fuzz", &ctx, reinterpret_cast<const sockaddr*>(&server), "user", "pass",
                    AF_INET, Send, Result, false, 0))
        std::abort();
    for (int step = 0; step < 48 && in.remaining_bytes() > 0; ++step) {
        switch (in.ConsumeIntegralInRange<int>(0, 5)) {
        case 0:
        case 1: {
            std::vector<uint8_t> packet = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 700));
            if (packet.size() >= 20 && in.ConsumeBool()) {
                const uint16_t type = kTypes[in.ConsumeIntegralInRange<size_t>(0, std::size(kTypes) - 1)];
                packet[0] = static_cast<uint8_t>(type >> 8);
                packet[1] = static_cast<uint8_t>(type);
                const size_t length = packet.size() - 20;
                packet[2] = static_cast<uint8_t>(length >> 8);
                packet[3] = static_cast<uint8_t>(length);
                if (ctx.haveId) std::memcpy(packet.data() + 8, ctx.lastId, 12);
            }
            packet.resize(packet.size() + 4);  // room the framing may use; never read as packet
            uint32_t length = static_cast<uint32_t>(packet.size() - 4);
            sockaddr_storage from = server;
            uint64_t token = 0;
            Api::Receive(inst, packet.data(), &length, reinterpret_cast<sockaddr*>(&from), sizeof from, &token);
            if (length > packet.size()) std::abort();
            break;
        }
        case 2: {
            const int ticks = in.ConsumeIntegralInRange<int>(1, 400);
            for (int t = 0; t < ticks; ++t) Api::Tick(inst);
            break;
        }
        case 3: {
            const sockaddr* peers[] = {reinterpret_cast<const sockaddr*>(&peer)};
            Api::Permission(inst, 1, peers);
            break;
        }
        case 4: Api::Channel(inst, in.ConsumeIntegralInRange<uint16_t>(0x3FFF, 0x8000),
                             reinterpret_cast<const sockaddr*>(&peer));
            break;
        case 5: Api::Deallocate(inst); break;
        }
    }
    Api::Free(inst);
}

#define FUZZ_TURN_API(NS)                                                                  \
    struct NS##_api {                                                                      \
        static constexpr auto Start = &NS::TurnClient_StartAllocateTransaction;            \
        static constexpr auto Receive = &NS::TurnClient_ReceivePacket;                     \
        static constexpr auto Tick = &NS::TurnClient_HandleTick;                           \
        static constexpr auto Permission = &NS::TurnClient_StartCreatePermissionReq;       \
        static constexpr auto Channel = &NS::TurnClient_StartChannelBindReq;               \
        static constexpr auto Deallocate = &NS::TurnClient_Deallocate;                     \
        static constexpr auto Free = &NS::TurnClient_free;                                 \
    };
FUZZ_TURN_API(qlox_gatewalk)
FUZZ_TURN_API(zyn_gatewalk)
#undef FUZZ_TURN_API

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    if (in.ConsumeBool())
        Run<qlox_gatewalk::TURN_INSTANCE_DATA, qlox_gatewalk_api>(in);
    else
        Run<zyn_gatewalk::TURN_INSTANCE_DATA, zyn_gatewalk_api>(in);
    return 0;
}
