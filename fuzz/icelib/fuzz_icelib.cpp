// Drives the ICE agent of both profiles with a fuzzed sequence of ticks, incoming checks (known and
// unknown sources, right and wrong credentials, any role attributes and tie-breakers, USE-CANDIDATE),
// answers to the checks it sent (any code, any addresses), timeouts, stops and restarts. Checks that
// the tables never overflow and that ICE ends at most once per start.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "icelib.h"
#include "sockaddr_util.h"

namespace {

constexpr int kIds = 8;

struct Seen {
    gatewalk::StunMsgId ids[kIds];
    int nIds;
    int completes;
};
Seen g_seen;

void OnRequest(void*, int, const sockaddr*, const sockaddr*, uint32_t, uint32_t, uint32_t, bool, const char*,
               const char*, uint32_t, bool, bool, uint64_t, gatewalk::StunMsgId id)
{
    g_seen.ids[g_seen.nIds++ % kIds] = id;
}
void OnComplete(void*, uint32_t, bool, bool) { ++g_seen.completes; }

sockaddr_storage Address(FuzzedDataProvider& in)
{
    // A small address space, so that fuzzed addresses meet the candidates.
    static const char* ips[] = {"192.0.2.1", "192.0.2.2", "198.51.100.1", "198.51.100.2", "2001:db8::1", "0.0.0.0"};
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&a), ips[in.ConsumeIntegralInRange<int>(0, 5)]);
    gatewalk::sockaddr_setPort(reinterpret_cast<sockaddr*>(&a), static_cast<uint16_t>(5000 + in.ConsumeIntegralInRange<int>(0, 2)));
    return a;
}

template <class Inst, class Config, class Api>
void Run(Inst* inst, FuzzedDataProvider& in)
{
    Config config{};
    config.tickIntervalMS = 10;
    config.aggressiveNomination = in.ConsumeBool();
    config.iceLite = in.ConsumeIntegralInRange<int>(0, 7) == 0;
    Api::Constructor(inst, &config);
    Api::SetRequest(inst, &OnRequest, nullptr);
    Api::SetComplete(inst, &OnComplete, nullptr);
    std::memset(&g_seen, 0, sizeof g_seen);
    const auto* local = [&] {
        Api::AddLocalMediaStream(inst, 0, 0, 0, gatewalk::ICE_CAND_TYPE_HOST);
        for (int i = 0, n = in.ConsumeIntegralInRange<int>(0, 14); i < n; ++i) {
            const sockaddr_storage a = Address(in);
            Api::AddLocalCandidate(inst, 0, in.ConsumeIntegralInRange<uint32_t>(1, 3), reinterpret_cast<const sockaddr*>(&a),
                                   nullptr, static_cast<gatewalk::ICE_TRANSPORT>(in.ConsumeIntegralInRange<int>(0, 3)),
                                   static_cast<gatewalk::ICE_CANDIDATE_TYPE>(in.ConsumeIntegralInRange<int>(0, 4)),
                                   in.ConsumeIntegral<uint16_t>());
        }
        return Api::GetLocal(inst, 0);
    }();
    const sockaddr_storage def = Address(in);
    Api::AddRemoteMediaStream(inst, 0, "ruf", "rpw", reinterpret_cast<const sockaddr*>(&def));
    for (int i = 0, n = in.ConsumeIntegralInRange<int>(0, 14); i < n; ++i) {
        char ip[64];
        const sockaddr_storage a = Address(in);
        gatewalk::sockaddr_toString(reinterpret_cast<const sockaddr*>(&a), ip, sizeof ip, false);
        Api::AddRemoteCandidate(inst, 0, in.ConsumeBool() ? "1" : "", in.ConsumeIntegralInRange<uint32_t>(1, 3),
                                in.ConsumeIntegral<uint32_t>(), ip, gatewalk::sockaddr_ipPort(reinterpret_cast<const sockaddr*>(&a)),
                                static_cast<gatewalk::ICE_TRANSPORT>(in.ConsumeIntegralInRange<int>(0, 3)),
                                static_cast<gatewalk::ICE_CANDIDATE_TYPE>(in.ConsumeIntegralInRange<int>(0, 4)));
    }
    Api::Start(inst, in.ConsumeBool(), in.ConsumeIntegral<uint8_t>());
    char user[64];
    std::snprintf(user, sizeof user, "%s:ruf", in.ConsumeBool() && local != nullptr ? local->ufrag : "xx");
    while (in.remaining_bytes() > 0) {
        const sockaddr_storage s = Address(in), d = Address(in);
        const auto* src = reinterpret_cast<const sockaddr*>(&s);
        const auto* dst = reinterpret_cast<const sockaddr*>(&d);
        gatewalk::StunMsgId id = g_seen.ids[in.ConsumeIntegralInRange<int>(0, kIds - 1)];
        switch (in.ConsumeIntegralInRange<int>(0, 6)) {
        case 0:
            Api::IncomingRequest(inst, 0, 0, user, in.ConsumeIntegral<uint32_t>(), in.ConsumeBool(), in.ConsumeBool(),
                                 in.ConsumeBool(), in.ConsumeIntegral<uint8_t>(), id, 0, src, dst, false, nullptr, 1);
            break;
        case 1: {
            static const uint16_t codes[] = {200, 200, 487, 400, 100, 500};
            Api::IncomingResponse(inst, codes[in.ConsumeIntegralInRange<int>(0, 5)], id, src, dst, in.ConsumeBool() ? dst : nullptr);
            break;
        }
        case 2: Api::IncomingTimeout(inst, id); break;
        case 3: if (in.ConsumeIntegralInRange<int>(0, 15) == 0) Api::Stop(inst); break;
        default:
            for (int t = in.ConsumeIntegralInRange<int>(1, 200); t > 0; --t) Api::Tick(inst);
        }
        for (uint32_t l = 0; l < Api::NumberOfCheckLists(inst); ++l) {
            if (Api::GetCheckList(inst, l)->numberOfPairs > gatewalk::ICELIB_MAX_PAIRS) std::abort();
            if (Api::GetValidList(inst, l)->numberOfElements > gatewalk::ICELIB_MAX_PAIRS) std::abort();
        }
        if (g_seen.completes > 1) std::abort();
    }
}

#define ICE_FUZZ_API(NAME, NS)                                                          \
    struct NAME {                                                                       \
        static constexpr auto Constructor = &NS::ICELIB_Constructor;                    \
        static constexpr auto SetRequest = &NS::ICELIB_setCallbackOutgoingBindingRequest; \
        static constexpr auto SetComplete = &NS::ICELIB_setCallbackConnecitivityChecksComplete; \
        static constexpr auto AddLocalMediaStream = &NS::ICELIB_addLocalMediaStream;    \
        static constexpr auto AddRemoteMediaStream = &NS::ICELIB_addRemoteMediaStream;  \
        static constexpr auto AddLocalCandidate = &NS::ICELIB_addLocalCandidate;        \
        static constexpr auto AddRemoteCandidate = &NS::ICELIB_addRemoteCandidate;      \
        static constexpr auto GetLocal = &NS::ICELIB_getLocalMediaStream;               \
        static constexpr auto Start = &NS::ICELIB_Start;                                \
        static constexpr auto Stop = &NS::ICELIB_Stop;                                  \
        static constexpr auto Tick = &NS::ICELIB_Tick;                                  \
        static constexpr auto IncomingRequest = &NS::ICELIB_incomingBindingRequest;     \
        static constexpr auto IncomingResponse = &NS::ICELIB_incomingBindingResponse;   \
        static constexpr auto IncomingTimeout = &NS::ICELIB_incomingTimeout;            \
        static constexpr auto NumberOfCheckLists = &NS::ICELIB_getNumberOfCheckLists;   \
        static constexpr auto GetCheckList = &NS::ICELIB_getCheckList;                  \
        static constexpr auto GetValidList = &NS::ICELIB_getValidList;                  \
    };
ICE_FUZZ_API(QApi, qlox_gatewalk)
ICE_FUZZ_API(ZApi, zyn_gatewalk)

// The instances are large: static, and reset by ICELIB_Constructor on every run.
qlox_gatewalk::ICELIB_INSTANCE g_q;
zyn_gatewalk::ICELIB_INSTANCE g_z;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    if (in.ConsumeBool()) {
        Run<qlox_gatewalk::ICELIB_INSTANCE, qlox_gatewalk::ICELIB_CONFIGURATION, QApi>(&g_q, in);
    } else {
        Run<zyn_gatewalk::ICELIB_INSTANCE, zyn_gatewalk::ICELIB_CONFIGURATION, ZApi>(&g_z, in);
    }
    return 0;
}
