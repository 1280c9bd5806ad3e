// Packets that reach a line from the application's own transport instead of ours.
// Thread: the application's receive thread; the receive path below touches only atomic counters,
// the RTCP counters under m_rtcpMutex, and the engine session, which takes its own lock.
#include "line/MediaConnectionInfo.h"

namespace zyn {

namespace {

// A fixed RTP header, and an RTCP common header with the report count word.
constexpr uint32_t kMinRtp = 12;
constexpr uint32_t kMinRtcp = 8;
// Anything longer cannot have come in one datagram.
constexpr uint32_t kMaxPacket = 65535;

bool Readable(const uint8_t* data, uint32_t size, uint32_t minimum)
{
    // Version 2 in the top two bits: anything else is not ours to hand to the engine.
    return data && size >= minimum && size <= kMaxPacket && (data[0] >> 6) == 2;
}

}  // namespace

ZynResult CMediaConnectionInfo::ReceiveExternalRTP(const uint8_t* data, uint32_t size)
{
    if (!Readable(data, size, kMinRtp)) return ZYN_E_INVALIDARG;
    ReceiveRTP(data, size);
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::ReceiveExternalRTCP(const uint8_t* data, uint32_t size)
{
    if (!Readable(data, size, kMinRtcp)) return ZYN_E_INVALIDARG;
    ReceiveRTCP(data, size);
    return ZYN_S_OK;
}

}  // namespace zyn
