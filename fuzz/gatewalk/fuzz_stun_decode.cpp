// Fuzzes the STUN decoder of both profiles, round-trip style: decode, check integrity, encode the
// record again with a key, decode that, and require the same record back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "stunlib.h"

namespace {

uint8_t g_key[] = "fuzz-key";
constexpr unsigned int kKeyLength = sizeof g_key - 1;

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "round trip broken: %s\n", what);
    std::abort();
}

// A repeated attribute leaves bytes of the longer earlier value behind the later one's end; only the
// value itself goes back on the wire.
void ClearTail(gatewalk::StunAtrString* s)
{
    std::memset(s->value + s->sizeValue, 0, sizeof s->value - s->sizeValue);
}

// Fields that the wire does not carry back as they were.
template <class Msg>
void Normalize(Msg* m)
{
    ClearTail(&m->username);
    ClearTail(&m->softwareName);
    ClearTail(&m->nonce);
    ClearTail(&m->realm);
    auto& unknown = m->unknownAttributes;
    for (unsigned int i = unknown.numAttributes; i < gatewalk::STUN_MAX_UNKNOWN_ATTRIBUTES; ++i) unknown.attrType[i] = 0;
    m->msgHdr.length = 0;
    m->magicCookie = 0;
    m->hasFingerPrint = 0;
    m->hasMessageIntegrity = 0;
    std::memset(&m->integrity, 0, sizeof m->integrity);
    m->data.pData = nullptr;
    m->data.offset = 0;
    if constexpr (!kZyn<Msg>) {
        std::memset(&m->xorRelayAddressTmp, 0, sizeof m->xorRelayAddressTmp);
        std::memset(&m->requestedAddrFamilyTmp, 0, sizeof m->requestedAddrFamilyTmp);
    }
}

template <class Msg>
void RoundTrip(const uint8_t* data, size_t size)
{
    static Msg first, second;
    static uint8_t buffer[70000];
    gatewalk::StunAtrUnknown unknown;
    if (!stunlib_DecodeMessage(data, size, &first, &unknown, nullptr)) return;
    if (unknown.numAttributes > gatewalk::STUN_MAX_UNKNOWN_ATTRIBUTES) Fail("unknown count");
    if (first.hasMessageIntegrity) stunlib_checkIntegrity(data, size, &first, g_key, kKeyLength);

    uint32_t n = stunlib_encodeMessage(&first, buffer, sizeof buffer, g_key, kKeyLength, nullptr);
    if (n == 0) Fail("a decoded record does not encode");
    if (!kZyn<Msg> && n > gatewalk::STUN_MAX_PACKET_SIZE) return;  // grew past what qlox decodes
    if (!stunlib_DecodeMessage(buffer, n, &second, nullptr, nullptr)) Fail("our own message does not decode");
    bool trailingMetadata = false;
    if constexpr (kZyn<Msg>) trailingMetadata = first.hasMaliceMetadata;
    if (!trailingMetadata && !stunlib_checkIntegrity(buffer, n, &second, g_key, kKeyLength)) Fail("integrity");
    if (first.hasData &&
        (first.data.dataLen != second.data.dataLen || std::memcmp(first.data.pData, second.data.pData, first.data.dataLen)))
        Fail("data");
    // ERROR-CODE comes back with its padding counted into the reason; compare what was there.
    if (first.hasErrorCode) {
        if (std::memcmp(first.errorCode.reason, second.errorCode.reason, first.errorCode.sizeReason)) Fail("reason");
        second.errorCode = first.errorCode;
    }
    Normalize(&first);
    Normalize(&second);
    if (std::memcmp(&first, &second, sizeof first) != 0) Fail("record differs after a round trip");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // The decoder writes a few notes on malformed input to stderr on purpose; keep them out of the
    // fuzzer's log (libFuzzer still reports through its own duplicate of stderr).
    static std::vector<char*> args;
    static std::string quiet = "-close_fd_mask=2";
    for (int i = 0; i < *argc; ++i) {
        if (std::strncmp((*argv)[i], "-close_fd_mask", 14) == 0) return 0;
        args.push_back((*argv)[i]);
    }
    args.insert(args.begin() + 1, quiet.data());
    args.push_back(nullptr);
    *argc = static_cast<int>(args.size() - 1);
    *argv = args.data();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    RoundTrip<qlox_gatewalk::StunMessage>(data, size);
    RoundTrip<zyn_gatewalk::StunMessage>(data, size);
    return 0;
}
