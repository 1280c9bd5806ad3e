// STUN codec speed: ours (qlox_gatewalk), libnice's STUN codec doing the same work, and the floor:
// the bare HMAC-SHA1 and CRC-32 of the same bytes, which no codec can go below.
//   decode: RFC 5769 sample request, with MESSAGE-INTEGRITY and FINGERPRINT checked;
//   encode: ICE Binding request with USERNAME, PRIORITY, ICE-CONTROLLING, USE-CANDIDATE,
//           MESSAGE-INTEGRITY and FINGERPRINT.
// items_per_second is messages per second.
#define OPENSSL_SUPPRESS_DEPRECATED  // SHA-1 block functions: the allocation-free SHA-1 of OpenSSL 3
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>
#include <zlib.h>

#include <cstring>
#include <memory>

#include "../../tests/gatewalk/stun_vectors.h"
#include "stunlib.h"

// libnice's headers define macros with STUN_ names: after ours.
extern "C" {
#include <stun/stunagent.h>
}

namespace {

using stun_vectors::kRequest;
uint8_t g_password[] = "VOkJxbRl1RmTxUk/WvJxBt";
constexpr size_t kPasswordLength = sizeof g_password - 1;
const char kUsername[] = "evtj:h6vY";
constexpr uint32_t kPriority = 0x6e0001ff;
constexpr uint64_t kTieBreaker = 0x932ff9b151263b36ULL;
constexpr size_t kRequestIntegrityOffset = 84;  // HMAC input of the sample request

// ---- ours ----------------------------------------------------------------------------------------

void Ours_DecodeCheck(benchmark::State& state)
{
    static qlox_gatewalk::StunMessage m;
    for (auto _ : state) {
        bool ok = qlox_gatewalk::stunlib_DecodeMessage(kRequest, sizeof kRequest, &m, nullptr, nullptr) &&
                  qlox_gatewalk::stunlib_checkIntegrity(kRequest, sizeof kRequest, &m, g_password, kPasswordLength);
        if (!ok || !m.hasFingerPrint) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(m.priority);
    }
    state.SetItemsProcessed(state.iterations());
}

void Ours_EncodeIceRequest(benchmark::State& state)
{
    static qlox_gatewalk::StunMessage m;
    uint8_t buf[gatewalk::STUN_MAX_PACKET_SIZE];
    for (auto _ : state) {
        std::memset(&m, 0, offsetof(qlox_gatewalk::StunMessage, username));  // header part only
        m.msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
        std::memcpy(m.msgHdr.id.octet, kRequest + 8, 12);
        qlox_gatewalk::stunlib_addUserName(&m, kUsername, ' ');
        m.hasPriority = 1, m.priority = kPriority;
        m.hasControlling = 1, m.controlling = kTieBreaker;
        m.hasUseCandidate = 1;
        uint32_t n = qlox_gatewalk::stunlib_encodeMessage(&m, buf, sizeof buf, g_password, kPasswordLength, nullptr);
        if (n == 0) state.SkipWithError("encode failed");
        benchmark::DoNotOptimize(buf[n - 1]);
        m.hasUsername = m.hasPriority = m.hasControlling = m.hasUseCandidate = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

// ---- libnice -------------------------------------------------------------------------------------

const uint16_t kKnownAttributes[] = {STUN_ATTRIBUTE_USERNAME, STUN_ATTRIBUTE_MESSAGE_INTEGRITY,
                                     STUN_ATTRIBUTE_PRIORITY, STUN_ATTRIBUTE_USE_CANDIDATE,
                                     STUN_ATTRIBUTE_ICE_CONTROLLED, STUN_ATTRIBUTE_ICE_CONTROLLING,
                                     STUN_ATTRIBUTE_FINGERPRINT, 0};

bool NicePassword(StunAgent*, StunMessage*, uint8_t*, uint16_t, uint8_t** password, size_t* length, void*)
{
    *password = g_password;
    *length = kPasswordLength;
    return true;
}

void InitNiceAgent(StunAgent* agent)
{
    stun_agent_init(agent, kKnownAttributes, STUN_COMPATIBILITY_RFC5389,
                    static_cast<StunAgentUsageFlags>(STUN_AGENT_USAGE_SHORT_TERM_CREDENTIALS |
                                                     STUN_AGENT_USAGE_USE_FINGERPRINT));
}

void Libnice_DecodeCheck(benchmark::State& state)
{
    StunAgent agent;
    InitNiceAgent(&agent);
    StunMessage msg;
    for (auto _ : state) {
        StunValidationStatus s = stun_agent_validate(&agent, &msg, kRequest, sizeof kRequest, NicePassword, nullptr);
        uint32_t priority = 0;
        if (s != STUN_VALIDATION_SUCCESS || stun_message_find32(&msg, STUN_ATTRIBUTE_PRIORITY, &priority) != STUN_MESSAGE_RETURN_SUCCESS)
            state.SkipWithError("libnice refused the request");
        benchmark::DoNotOptimize(priority);
    }
    state.SetItemsProcessed(state.iterations());
}

void Libnice_EncodeIceRequest(benchmark::State& state)
{
    StunAgent agent;
    InitNiceAgent(&agent);
    StunMessage msg;
    uint8_t buf[gatewalk::STUN_MAX_PACKET_SIZE];
    StunTransactionId id;
    std::memcpy(id, kRequest + 8, 12);
    for (auto _ : state) {
        // What stun_agent_init_request does, with a fixed id instead of a fresh random one.
        msg = StunMessage{};
        msg.agent = &agent;
        msg.buffer = buf;
        msg.buffer_len = sizeof buf;
        stun_message_init(&msg, STUN_REQUEST, STUN_BINDING, id);
        stun_message_append_string(&msg, STUN_ATTRIBUTE_USERNAME, kUsername);
        stun_message_append32(&msg, STUN_ATTRIBUTE_PRIORITY, kPriority);
        stun_message_append64(&msg, STUN_ATTRIBUTE_ICE_CONTROLLING, kTieBreaker);
        stun_message_append_flag(&msg, STUN_ATTRIBUTE_USE_CANDIDATE);
        size_t n = stun_agent_finish_message(&agent, &msg, g_password, kPasswordLength);
        if (n == 0) state.SkipWithError("libnice encode failed");
        benchmark::DoNotOptimize(buf[n - 1]);
        stun_agent_forget_transaction(&agent, id);
    }
    state.SetItemsProcessed(state.iterations());
}

// ---- floor: the cryptographic work alone --------------------------------------------------------

// HMAC-SHA1 (RFC 2104, key within one block) on OpenSSL's SHA-1, and zlib's CRC-32.
void HmacAndCrc(const uint8_t* bytes, size_t hmacLength, size_t crcLength)
{
    uint8_t ipad[SHA_CBLOCK] = {}, opad[SHA_CBLOCK] = {}, inner[20], mac[20];
    std::memcpy(ipad, g_password, kPasswordLength);
    std::memcpy(opad, g_password, kPasswordLength);
    for (int i = 0; i < SHA_CBLOCK; ++i) ipad[i] ^= 0x36, opad[i] ^= 0x5c;
    SHA_CTX c;
    SHA1_Init(&c);
    SHA1_Update(&c, ipad, sizeof ipad);
    SHA1_Update(&c, bytes, hmacLength);
    SHA1_Final(inner, &c);
    SHA1_Init(&c);
    SHA1_Update(&c, opad, sizeof opad);
    SHA1_Update(&c, inner, sizeof inner);
    SHA1_Final(mac, &c);
    uLong crc = crc32(0L, bytes, static_cast<uInt>(crcLength));
    benchmark::DoNotOptimize(mac[0]);
    benchmark::DoNotOptimize(crc);
}

// For reference: the same work through OpenSSL 3's one-shot HMAC(), which allocates per call.
void OpenSslHmacOneShot(benchmark::State& state)
{
    uint8_t mac[20];
    unsigned int macLength = 0;
    for (auto _ : state) {
        HMAC(EVP_sha1(), g_password, kPasswordLength, kRequest, kRequestIntegrityOffset, mac, &macLength);
        benchmark::DoNotOptimize(mac[0]);
    }
    state.SetItemsProcessed(state.iterations());
}

void Floor_DecodeCheck(benchmark::State& state)
{
    for (auto _ : state) HmacAndCrc(kRequest, kRequestIntegrityOffset, sizeof kRequest - 8);
    state.SetItemsProcessed(state.iterations());
}

void Floor_EncodeIceRequest(benchmark::State& state)
{
    // The same message ours builds: header, USERNAME 16, PRIORITY 8, ICE-CONTROLLING 12,
    // USE-CANDIDATE 4, then MESSAGE-INTEGRITY 24 and FINGERPRINT 8.
    static uint8_t message[20 + 16 + 8 + 12 + 4 + 24 + 8];
    constexpr size_t integrityOffset = 20 + 16 + 8 + 12 + 4;
    for (auto _ : state) HmacAndCrc(message, integrityOffset, sizeof message - 8);
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(Ours_DecodeCheck);
BENCHMARK(Libnice_DecodeCheck);
BENCHMARK(Floor_DecodeCheck);
BENCHMARK(Ours_EncodeIceRequest);
BENCHMARK(Libnice_EncodeIceRequest);
BENCHMARK(Floor_EncodeIceRequest);
BENCHMARK(OpenSslHmacOneShot);
