// One direction of SRTP for the simulated engine, over libsrtp2: a send context protects
// outgoing RTP and RTCP, a receive context checks and decrypts incoming ones. Not thread-safe: the
// flow that owns a context guards it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zynrtp {

// Master key and salt lengths of a suite (ZynSrtpSuite value); 0 for a value that is no SRTP suite.
size_t SrtpKeyLength(int32_t suite);
// Whether the installed libsrtp2 can key the suite: GCM needs a crypto backend, so it is asked once
// by creating a session with that policy.
bool SrtpSuiteAvailable(int32_t suite);

// Readies libsrtp2 and its crypto backend ahead of the first key. Any thread; once per process.
void SrtpWarmUp();

class SrtpContext {
public:
    enum class Direction { Send, Receive };

    SrtpContext() = default;
    ~SrtpContext();
    SrtpContext(const SrtpContext&) = delete;
    SrtpContext& operator=(const SrtpContext&) = delete;

    // keySalt holds SrtpKeyLength(suite) bytes. Returns false on a suite it cannot key or a wrong
    // length, keeping the key it had.
    bool SetKey(Direction direction, int32_t suite, const uint8_t* keySalt, size_t length);
    // Back to no protection.
    void Clear();
    bool IsKeyed() const { return m_session != nullptr; }

    // In place; capacity must leave room for the trailer. Return the new length, or 0 when refused
    // (a tampered or replayed packet on receive, no room on send).
    size_t ProtectRtp(uint8_t* packet, size_t length, size_t capacity);
    size_t UnprotectRtp(uint8_t* packet, size_t length);
    size_t ProtectRtcp(uint8_t* packet, size_t length, size_t capacity);
    size_t UnprotectRtcp(uint8_t* packet, size_t length);

    // Bytes that protection may add to a packet: the SRTCP index and the longest tag (GCM's 16).
    static constexpr size_t kMaxTrailer = 4 + 16;

private:
    void* m_session = nullptr;  // srtp_t
};

}  // namespace zynrtp
