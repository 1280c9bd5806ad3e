// Drives both profiles of the STUN transaction client with a fuzzed sequence of starts, ticks,
// cancellations, ICMP reports, incoming responses (decoded from fuzzed bytes, optionally given the id
// of a running transaction) and server-half requests. Checks that every transaction ends with exactly
// one result once enough time has passed, and never more than one.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "sockaddr_util.h"
#include "stunclient.h"

namespace {

namespace q = qlox_gatewalk;
namespace z = zyn_gatewalk;

constexpr int kIds = 16;  // fewer than the slots of either profile, so no start is dropped

struct Tally {
    int starts[kIds];
    int results[kIds];
};
Tally g_q, g_z;

int IndexOf(const gatewalk::StunMsgId& id) { return id.octet[3] % kIds; }

void QSend(void*, bool, unsigned int, const unsigned char*, int, const sockaddr*, int, bool, unsigned char) {}
void ZSend(void*, int, const unsigned char*, int, const sockaddr*, bool) {}
void QDone(void*, q::StunCallBackData_T* d) { ++g_q.results[IndexOf(d->msgId)]; }
void ZDone(void*, z::StunCallBackData_T* d) { ++g_z.results[IndexOf(d->msgId)]; }

// Big records: static, reused across runs.
q::StunMessage g_qMsg;
z::StunMessage g_zMsg;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    q::STUN_CLIENT_DATA* qc = nullptr;
    z::STUN_CLIENT_DATA* zc = nullptr;
    if (!q::StunClient_Alloc(&qc) || !z::StunClient_Alloc(&zc)) std::abort();
    std::memset(&g_q, 0, sizeof g_q);
    std::memset(&g_z, 0, sizeof g_z);
    sockaddr_storage server, base;
    gatewalk::sockaddr_reset(&server);
    gatewalk::sockaddr_reset(&base);
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&server), "127.0.0.1:3478");
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&base), "[::1]:4000");
    const auto* srv = reinterpret_cast<const sockaddr*>(&server);
    const auto* bas = reinterpret_cast<const sockaddr*>(&base);
    static q::TransactionAttributes attributes;
    std::memset(static_cast<void*>(&attributes), 0, sizeof attributes);
    std::strcpy(attributes.password, "pw");

    for (int steps = 0; steps < 64 && in.remaining_bytes() > 0; ++steps) {
        gatewalk::StunMsgId id;
        const int k = in.ConsumeIntegralInRange(0, kIds - 1);
        gatewalk::stunlib_createId(&id, k, 0);
        switch (in.ConsumeIntegralInRange(0, 5)) {
        case 0:
            // One transaction per id at a time: the id is how answers and results are matched.
            if (g_q.starts[k] == g_q.results[k]) {
                attributes.transactionId = id;
                ++g_q.starts[k];
                q::StunClient_startBindTransaction(qc, nullptr, srv, bas, 0, false, &attributes, QSend, QDone);
            }
            if (g_z.starts[k] == g_z.results[k]) {
                ++g_z.starts[k];
                z::StunClient_startBindTransaction(zc, nullptr, srv, bas, false, "u", "pw", 1, true, true, 9, id, 0,
                                                   ZSend, ZDone, nullptr);
            }
            break;
        case 1: {
            const int ms = in.ConsumeIntegralInRange(-10, 4000);
            q::StunClient_HandleTick(qc, ms);
            z::StunClient_HandleTick(zc, ms);
            break;
        }
        case 2:
            q::StunClient_cancelBindingTransaction(qc, id);
            z::StunClient_cancelBindingTransaction(zc, id);
            break;
        case 3: {
            const bool ownId = in.ConsumeBool();
            const auto bytes = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 200));
            if (q::stunlib_DecodeMessage(bytes.data(), bytes.size(), &g_qMsg, nullptr, nullptr)) {
                if (ownId) g_qMsg.msgHdr.id = id;
                q::StunClient_HandleIncResp(qc, &g_qMsg, srv);
                gatewalk::STUN_INCOMING_REQ_DATA req;
                if (q::StunServer_HandleStunIncomingBindReqMsg(qc, &req, &g_qMsg, ownId)) {
                    q::StunServer_SendConnectivityBindingResp(qc, 0, req.transactionId, "pw", bas, srv, 1, 1, 1, 1, 1,
                                                              1, nullptr, QSend, 0, false,
                                                              ownId ? 200 : 487);
                }
            }
            if (z::stunlib_DecodeMessage(bytes.data(), bytes.size(), &g_zMsg, nullptr, nullptr)) {
                if (ownId) g_zMsg.msgHdr.id = id;
                z::StunClient_HandleIncResp(zc, &g_zMsg, srv);
            }
            break;
        }
        case 4:
            q::StunClient_HandleICMP(qc, srv, in.ConsumeIntegral<uint8_t>());
            break;
        default:
            q::StunTrace_startTrace(qc, nullptr, srv, bas, 0, "u", "pw", 2, nullptr, QSend);
            break;
        }
        for (int i = 0; i < kIds; ++i) {
            if (g_q.results[i] > g_q.starts[i] || g_z.results[i] > g_z.starts[i]) std::abort();
        }
    }
    // Every schedule ends within ten timer steps, and a tick moves each slot by at most one step (a
    // trace may keep starting new copies; those are not counted).
    for (int t = 0; t < 12; ++t) {
        q::StunClient_HandleTick(qc, 1000);
        z::StunClient_HandleTick(zc, 1000);
    }
    for (int i = 0; i < kIds; ++i) {
        if (g_q.results[i] != g_q.starts[i] || g_z.results[i] != g_z.starts[i]) std::abort();
    }
    q::StunClient_free(qc);
    z::StunClient_free(zc);
    return 0;
}
