// One direction of SRTP for the simulated engine, over libsrtp2: a send context protects
// outgoing RTP and RTCP, a receive context checks and decrypts incoming ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zynrtp {

class SrtpContext {
public:
    enum class Direction { Send, Receive };

    SrtpContext() = default;
    ~SrtpContext();
    SrtpContext(const SrtpContext&) = delete;
    SrtpContext& operator=(const SrtpContext&) = delete;

    // suite "AES_CM_128_HMAC_SHA1_80" or "AES_CM_128_HMAC_SHA1_32"; keySalt is the 30 bytes of
    // master key and salt. Returns false on anything else, keeping the key it had.
    bool SetKey(Direction direction, const std::string& suite, const uint8_t* keySalt, size_t length);
    bool IsKeyed() const { return m_session != nullptr; }

    // In place; capacity must leave room for the tag. Return the new length, or 0 when refused
    // (a tampered or replayed packet on receive, no room on send).
    size_t ProtectRtp(uint8_t* packet, size_t length, size_t capacity);
    size_t UnprotectRtp(uint8_t* packet, size_t length);
    size_t ProtectRtcp(uint8_t* packet, size_t length, size_t capacity);
    size_t UnprotectRtcp(uint8_t* packet, size_t length);

    // Bytes that protection may add to a packet.
    static constexpr size_t kMaxTrailer = 4 + 10 + 16;

private:
    void Reset();
    void* m_session = nullptr;  // srtp_t
};

}  // namespace zynrtp
