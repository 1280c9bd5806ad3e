// The line's data plane: what the connector delivers is told apart (RTP or RTCP by the payload
// type) and handed to the engine session; what the engine sends crosses to the network thread and
// goes out on the path, in order on stream transports; the SRTP keys reach the engine as a session
// option.
//
// Threads: OnReceive, ReceiveRTP, ReceiveRTCP, Send_i and OnSend run on the line's network thread;
// SendRTPPacket, SendRTCPPacket and SendApplicationData on engine threads, touching only counters
// and posting the packet.
#include <openssl/crypto.h>

#include <cstring>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmBase64.h"
#include "util/CmTick.h"

namespace zyn {

namespace {

// A chained packet is copied flat into a buffer of this size, made on first need.
constexpr size_t kReceiveBufferSize = 16384;
// The CSI of a packet that carries none.
constexpr uint32_t kNoCsi = 257;
// Static payload types that are RTP: 0, 4, 8, 9, 15, 18, 31 and 34 (PCMU, G723, PCMA, G722, G728,
// G729, H261, H263). Every other type below 96 is RTCP: 72 to 76 are the RTCP packet types less
// their marker bit.
constexpr uint64_t kStaticRtpTypes = 0x480048311ull;

bool IsRtp(const uint8_t* packet)
{
    const uint8_t type = packet[1] & 0x7F;
    if (type >= 96) return true;
    return type < 64 && ((kStaticRtpTypes >> type) & 1u) != 0;
}

bool EveryNth(std::atomic<uint32_t>& counter, uint32_t n) { return counter.fetch_add(1) % n == 0; }

// The SRTP suites and their engine values; any other name leaves the value unset.
struct SuiteValue {
    const char* name;
    int32_t value;
};
constexpr SuiteValue kSuites[] = {
    {"NULL_CIPHER_HMAC_SHA1_80", 0}, {"AES_CM_128_HMAC_SHA1_32", 1}, {"AES_CM_128_HMAC_SHA1_80", 2},
    {"AES_CM_256_HMAC_SHA1_80", 3},  {"AEAD_AES_128_GCM", 4},        {"AEAD_AES_256_GCM", 5},
    {"NON_SRTP_CRYPTO", 100},
};

// Posts one packet to the network thread; the line outlives it (a stop waits for that thread).
class CSendEvent final : public ICmEvent {
public:
    CSendEvent(CMediaConnectionInfo* line, const uint8_t* data, uint32_t length, bool rtcp)
        : m_line(line), m_block(std::make_unique<CCmMessageBlock>(data, length)), m_rtcp(rtcp)
    {
    }
    CmResult OnEventFire() override
    {
        const int index = m_rtcp && m_line->HasRtcpTransport() ? 1 : 0;
        return m_line->Send_i(std::move(m_block), index);
    }

private:
    CMediaConnectionInfo* m_line;
    std::unique_ptr<CCmMessageBlock> m_block;
    bool m_rtcp;
};

std::atomic<uint32_t> s_unkeyedDrops{0}, s_shortDrops{0}, s_noVid{0}, s_noCsi{0}, s_sendRefused{0}, s_multistreamDrops{0};

}  // namespace

void CMediaConnectionInfo::OnReceive(CCmMessageBlock& data, ICmTransport*, CCmTransportParameter*)
{
    size_t size = data.GetChainedLength();
    if (size == 0) {
        CM_ASSERT_REPORT("nRead > 0");
        return;
    }
    const uint8_t* packet = reinterpret_cast<const uint8_t*>(data.GetTopLevelReadPtr());
    if (m_type == ZynSessionType_Application) {
        if (IZynMediaConnectionSink* sink = m_sink ? m_sink->GetSink() : nullptr)
            sink->OnReceiveApplicationData(m_mid, packet, static_cast<unsigned int>(data.GetTopLevelLength()));
        return;
    }
    if (data.GetNext()) {
        if (size > kReceiveBufferSize) return;
        if (!m_pReceiveBuffer) m_pReceiveBuffer = std::make_unique<uint8_t[]>(kReceiveBufferSize);
        size_t at = 0;
        for (const CCmMessageBlock* b = &data; b; b = b->GetNext()) {
            std::memcpy(m_pReceiveBuffer.get() + at, b->GetTopLevelReadPtr(), b->GetTopLevelLength());
            at += b->GetTopLevelLength();
        }
        packet = m_pReceiveBuffer.get();
    }
    if (m_bMultistream && !IsConnected()) {
        if (EveryNth(s_multistreamDrops, 10))
            MS_DETAIL_TRACE("CMediaConnectionInfo::OnReceive, ice is not completed so we will drop data if multistream"
                            << LINE_TAIL);
        return;
    }
    if (size < 12) {
        if (EveryNth(s_shortDrops, 100)) CM_ASSERT_REPORT("nRead >= 12");
        return;
    }
    // DTLS agreed and no keys yet (or never, when the handshake failed): nothing is taken in clear.
    if (m_bKeysRequired.load(std::memory_order_relaxed) && !m_bReceiveKeyed.load(std::memory_order_relaxed)) {
        if (EveryNth(s_unkeyedDrops, 1000))
            MS_INFO_TRACE("CMediaConnectionInfo::OnReceive, no SRTP keys yet, media dropped" << LINE_TAIL);
        return;
    }
    if (IsRtp(packet))
        ReceiveRTP(packet, static_cast<uint32_t>(size));
    else
        ReceiveRTCP(packet, static_cast<uint32_t>(size));
}

void CMediaConnectionInfo::ReceiveRTP(const uint8_t* data, uint32_t size)
{
    if (m_bFirstRtpRecv.exchange(false)) {
        MS_INFO_TRACE("CMediaConnectionInfo::ReceiveRTP, first RTP packet received" << LINE_TAIL);
        ReportStatus(3);
    }
    m_uRTPReceived.fetch_add(1, std::memory_order_relaxed);
    if (!m_pZynSession) return;
    // Until subscriptions exist every stream of a line is vid 0, and a packet without a CSI counts
    // under the CSI that means none.
    const uint8_t vid = 0;
    m_vidReceived[vid].fetch_add(1, std::memory_order_relaxed);
    if (!m_vidHasTrack[vid].load(std::memory_order_acquire)) {
        if (EveryNth(s_noVid, 1000))
            MS_DETAIL_TRACE("CMediaConnectionInfo::ReceiveRTP, invalidate vid=" << static_cast<int>(vid) << LINE_TAIL);
        return;
    }
    const uint32_t csrcCount = data[0] & 0x0F;
    if (csrcCount == 0 && EveryNth(s_noCsi, 10240))
        MS_DETAIL_TRACE("CMediaConnectionInfo::ReceiveRTP, no csi in rtp, csi=" << kNoCsi << LINE_TAIL);
    m_pZynSession->ReceiveRTPPacket(data, size);
}

void CMediaConnectionInfo::ReceiveRTCP(const uint8_t* data, uint32_t size)
{
    {
        std::lock_guard<std::mutex> lock(m_rtcpMutex);
        ++m_rtcpPackets[0];
        m_rtcpBytes[0] += size;
    }
    if (m_pZynSession) m_pZynSession->ReceiveRTCPPacket(data, size);
}

ZynResult CMediaConnectionInfo::PostSend(const uint8_t* data, uint32_t length, bool rtcp)
{
    ICmEventQueue* queue = m_eqNetwork;
    if (!queue || !m_pTransports[0].load()) return ZYN_E_FAIL;
    return queue->PostEvent(new CSendEvent(this, data, length, rtcp), CM_EVENT_PRIORITY_NORMAL) == CM_OK ? ZYN_S_OK
                                                                                                    : ZYN_E_FAIL;
}

ZynResult CMediaConnectionInfo::SendRTPPacket(const uint8_t* data, uint32_t length)
{
    if (!data || length == 0) return ZYN_E_INVALIDARG;
    if (!m_pTransports[0].load() || !m_eqNetwork) return ZYN_E_FAIL;
    if (m_bSendBlocked[0]) return CM_ERROR_WOULD_BLOCK;
    if (m_bFirstRtpSend.exchange(false)) {
        MS_INFO_TRACE("CMediaConnectionInfo::SendRTPPacket, first RTP packet sent" << LINE_TAIL);
        ReportStatus(4);
    }
    m_uRTPSent.fetch_add(1, std::memory_order_relaxed);
    return PostSend(data, length, false);
}

ZynResult CMediaConnectionInfo::SendRTCPPacket(const uint8_t* data, uint32_t length)
{
    if (!data || length == 0) return ZYN_E_INVALIDARG;
    if (!m_pTransports[0].load() || !m_eqNetwork) return ZYN_E_FAIL;
    if (m_bSendBlocked[HasRtcpTransport() ? 1 : 0]) return CM_ERROR_WOULD_BLOCK;
    {
        std::lock_guard<std::mutex> lock(m_rtcpMutex);
        ++m_rtcpPackets[1];
        m_rtcpBytes[1] += length;
    }
    return PostSend(data, length, true);
}

ZynResult CMediaConnectionInfo::SendApplicationData(const uint8_t* data, uint32_t length)
{
    if (!data || length == 0) return ZYN_E_INVALIDARG;
    if (!m_pTransports[0].load() || !m_eqNetwork) return ZYN_E_FAIL;
    if (m_bSendBlocked[0]) return CM_ERROR_WOULD_BLOCK;
    return PostSend(data, length, false);
}

CmResult CMediaConnectionInfo::Send_i(std::unique_ptr<CCmMessageBlock> block, int index)
{
    if (index != 0 && index != 1) return CM_ERROR_NULL_POINTER;
    ICmTransport* transport = m_pTransports[index].load();
    if (!transport) return CM_ERROR_FAILURE;
    const bool datagram = (m_transportFlags[index] & 2u) != 0;
    auto& queue = m_sendQueue[index];
    if (queue.empty() && block) {
        const CmResult r = transport->SendData(*block);
        if (r == CM_OK) return CM_OK;
        if (EveryNth(s_sendRefused, 300))
            MS_WARNING_TRACE("CMediaConnectionInfo::Send_i, SendData() failed. rvSend=" << r << LINE_TAIL);
        // A stream keeps what it refused, in order, for OnSend; a datagram is simply lost.
        if (!datagram && r == CM_ERROR_WOULD_BLOCK) {
            queue.push_back(std::move(block));
            m_bSendBlocked[index] = true;
        }
        return r;
    }
    if (block) queue.push_back(std::move(block));
    while (!queue.empty()) {
        const CmResult r = transport->SendData(*queue.front());
        if (r == CM_ERROR_WOULD_BLOCK) {
            m_bSendBlocked[index] = true;
            return r;
        }
        queue.pop_front();
    }
    m_bSendBlocked[index] = false;
    return CM_OK;
}

void CMediaConnectionInfo::OnSend(ICmTransport* transport, CCmTransportParameter*)
{
    for (int i = 0; i < 2; ++i) {
        if (m_pTransports[i].load() != transport) continue;
        if (!(m_transportFlags[i] & 2u) && Send_i(nullptr, i) == CM_OK && m_pZynSession) m_pZynSession->OnSendReady();
    }
}

ZynResult CMediaConnectionInfo::setupSrtpCrypto(int direction, const char* suite, const char* key, int flag, int value)
{
    if (!m_pZynSession) return ZYN_E_POINTER;
    if (!suite || !key) return ZYN_E_INVALIDARG;
    m_srtpCryptoSuite = suite;
    ZynSrtpCryptoRecord record{};
    record.suite = -1;
    for (const SuiteValue& s : kSuites)
        if (m_srtpCryptoSuite == s.name) record.suite = s.value;
    uint8_t keySalt[64];
    size_t length = 0;
    if (CM_Base64Decode(key, keySalt, sizeof keySalt, &length) != CM_OK || length == 0) {
        MS_ERROR_TRACE("CMediaConnectionInfo::setupSrtpCrypto, the key does not decode, suite=" << suite << LINE_TAIL);
        return ZYN_E_INVALIDARG;
    }
    record.direction = direction == 2 ? 2 : 1;
    record.key = keySalt;
    record.keyLength = static_cast<uint32_t>(length);
    const bool nullCipher = m_srtpCryptoSuite == "NULL_CIPHER_HMAC_SHA1_80";
    record.cipherAlgorithm = nullCipher ? 2 : 3;
    record.authAlgorithm = nullCipher ? 2 : 3;
    record.flag = flag;
    record.value = value;
    MS_INFO_TRACE("CMediaConnectionInfo::setupSrtpCrypto, direction=" << record.direction << ", suite=" << suite
                  << LINE_TAIL);
    const ZynResult r = m_pZynSession->SetOption(ZynSessionOption_SrtpCrypto, &record, sizeof record);
    if (!ZYN_SUCCEEDED(r))
        MS_ERROR_TRACE("CMediaConnectionInfo::setupSrtpCrypto, the engine refused the keys, result=" << r << LINE_TAIL);
    if (ZYN_SUCCEEDED(r) && record.direction == 2) m_bReceiveKeyed.store(true);
    if (ZYN_SUCCEEDED(r) && record.direction == 1 && !m_bSendKeyed.exchange(true) && IsConnected()) StartSendEvent();
    OPENSSL_cleanse(keySalt, sizeof keySalt);
    return r;
}

}  // namespace zyn
