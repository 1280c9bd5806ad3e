// DTLS over the selected path: the handshake starts with the conclusion (or with the plain path's
// transports), is taken only from pairs the peer proved with its credentials, and ends in SRTP keys
// for the line. The session owns no timer: its retransmissions run on the connector's. Network
// thread.
#include <openssl/crypto.h>

#include <cstring>

#include "config/GlobalConfig.h"
#include "ice/IceConnectorImpl.h"
#include "ice/IceTrace.h"
#include "util/CmBase64.h"

namespace zyn {

namespace {

// The one profile both ends offer in use_srtp.
constexpr const char* kDtlsSrtpSuite = "AES_CM_128_HMAC_SHA1_80";

}  // namespace

template <class P>
void CIceConnectorT<P>::RecreateDtls()
{
    if (m_dtls) {
        CmDtls_Destroy(m_dtls);
        m_dtls = nullptr;
    }
    if (m_dtlsCert.empty() || m_dtlsKey.empty()) {
        ICE_ERROR("CIceConnector::RecreateDtls, no local certificate");
        return;
    }
    m_dtls = CmDtls_Create(m_dtlsCert, m_dtlsKey, m_dtlsRole, this);
    m_bDtlsFailureReported = false;
    if (!m_dtls) ICE_ERROR("CIceConnector::RecreateDtls, the DTLS session could not be made");
}

template <class P>
int CIceConnectorT<P>::CheckDtlsState()
{
    if (!m_dtls) return CM_DTLS_STATE_IDLE;
    if (CmDtls_GetState(m_dtls) == CM_DTLS_STATE_IDLE) {
        ICE_INFO("CIceConnector::CheckDtlsState, start dtls connect, role="
                 << (m_dtlsRole == CM_DTLS_ROLE_CLIENT ? "client" : "server"));
        CmDtls_Connect(m_dtls);
        ScheduleDtlsRetransmit();
    }
    // A handshake that already failed (a peer that concluded first sent its flight early) fails
    // the path now.
    if (CmDtls_GetState(m_dtls) == CM_DTLS_STATE_FAILED) {
        OnDtlsFailed("the handshake failed before the conclusion");
        return CM_DTLS_STATE_FAILED;
    }
    // A peer that never completes the handshake (a server waits for a ClientHello that may never
    // come) must not hold the line forever: the connect time-out bounds it as it bounds ICE.
    if (CmDtls_GetState(m_dtls) != CM_DTLS_STATE_CONNECTED && !m_timers->IsScheduled(IceTimer::DtlsGiveUp)) {
        const int limit = m_globalConfig ? m_globalConfig->GetICEConnectTimeout() : 0;
        m_timers->Schedule(IceTimer::DtlsGiveUp, limit > 0 ? static_cast<uint32_t>(limit) : 10000u, 1);
    }
    return CmDtls_GetState(m_dtls);
}

template <class P>
void CIceConnectorT<P>::ScheduleDtlsRetransmit()
{
    const int due = m_dtls ? CmDtls_GetTimeout(m_dtls) : -1;
    if (due < 0) {
        m_timers->Cancel(IceTimer::DtlsRetransmit);
        return;
    }
    m_timers->Schedule(IceTimer::DtlsRetransmit, due > 0 ? static_cast<uint32_t>(due) : 1u, 1);
}

template <class P>
void CIceConnectorT<P>::ReadDtls(const uint8_t* bytes, size_t length, ICmTransport* transport,
                                 CIceConnectionContext* context)
{
    static thread_local uint32_t s_untrusted = 0;
    m_dtlsReceived += static_cast<unsigned int>(length);
    // With ICE the peer proves a pair with its credentials before DTLS is taken from it; the plain
    // path has only the transports it connected to.
    const bool plain = !m_bIceEnable || m_remoteIce.empty();
    const bool trusted = plain ? (transport == m_Transports[0] || transport == m_Transports[1])
                               : (context && context->isTrusted);
    if (!trusted) {
        if (s_untrusted++ % 100 == 0) ICE_WARN("Dropping DTLS packets from untrusted transport.");
        return;
    }
    if (!m_dtls) {
        // A peer that concluded first sends its ClientHello before our session exists (it comes
        // with the remote description): kept, instead of waiting a second for its repeat.
        if (m_earlyDtls.size() < kMaxEarlyDtls) {
            transport->AddReference();
            m_earlyDtls.push_back(PendingRequest{std::vector<uint8_t>(bytes, bytes + length), transport});
        }
        return;
    }
    m_dtlsTransport = transport;
    if (CmDtls_GetState(m_dtls) == CM_DTLS_STATE_IDLE) CmDtls_Connect(m_dtls);
    CmDtls_ReadData(m_dtls, bytes, length);
    ScheduleDtlsRetransmit();
}

template <class P>
void CIceConnectorT<P>::ReplayEarlyDtls()
{
    auto early = std::move(m_earlyDtls);
    m_earlyDtls.clear();
    for (PendingRequest& r : early) {
        if (m_dtls) {
            m_dtlsTransport = r.transport;
            if (CmDtls_GetState(m_dtls) == CM_DTLS_STATE_IDLE) CmDtls_Connect(m_dtls);
            CmDtls_ReadData(m_dtls, r.bytes.data(), r.bytes.size());
            ScheduleDtlsRetransmit();
        }
        r.transport->ReleaseReference();
    }
}

template <class P>
void CIceConnectorT<P>::OnDtlsSend(const uint8_t* data, size_t length)
{
    ICmTransport* t = m_Transports[0] ? m_Transports[0] : m_dtlsTransport;
    if (!t) return;
    if (SendOnTransport(t, data, length) == CM_OK) m_dtlsSent += static_cast<unsigned int>(length);
}

template <class P>
void CIceConnectorT<P>::OnDtlsConnected()
{
    m_timers->Cancel(IceTimer::DtlsRetransmit);
    m_timers->Cancel(IceTimer::DtlsGiveUp);
    CmDtlsSrtpKeys keys;
    if (CmDtls_ExportKey(m_dtls, keys) != CM_OK) {
        OnDtlsFailed("no keying material");
        return;
    }
    // RFC 5764: the client sends with the client's key and salt and the server with the server's.
    uint8_t local[30], remote[30];
    const bool client = m_dtlsRole == CM_DTLS_ROLE_CLIENT;
    std::memcpy(local, client ? keys.clientKey : keys.serverKey, 16);
    std::memcpy(local + 16, client ? keys.clientSalt : keys.serverSalt, 14);
    std::memcpy(remote, client ? keys.serverKey : keys.clientKey, 16);
    std::memcpy(remote + 16, client ? keys.serverSalt : keys.clientSalt, 14);
    std::string sendKey, receiveKey;
    CM_Base64Encode(local, sizeof local, sendKey);
    CM_Base64Encode(remote, sizeof remote, receiveKey);
    OPENSSL_cleanse(local, sizeof local);
    OPENSSL_cleanse(remote, sizeof remote);
    OPENSSL_cleanse(&keys, sizeof keys);
    if (m_sink) {
        m_sink->setupSrtpCrypto(1, kDtlsSrtpSuite, sendKey.c_str(), 0, 0);
        m_sink->setupSrtpCrypto(2, kDtlsSrtpSuite, receiveKey.c_str(), 0, 0);
    }
    OPENSSL_cleanse(sendKey.data(), sendKey.size());
    OPENSSL_cleanse(receiveKey.data(), receiveKey.size());
    // With ICE the line hears of the path only now, keyed; a handshake that finished before our own
    // conclusion is reported by the conclusion.
    if (m_bIceEnable && m_iceInst && m_bIceCompleted && !m_bIceAggressiveNotified) {
        if (P::ICELIB_isIceComplete(m_iceInst.get())) m_bIceAggressiveNotified = true;
        m_notifyIceComplete = false;
        const int count = (m_Transports[0] ? 1 : 0) + (m_Transports[1] ? 1 : 0);
        if (m_sink) {
            m_sink->OnIceComplete(0, m_Transports, count, ZynIceOrigin_Ice, false);
            m_sink->OnIceCheckListReady(ZynIceOrigin_Ice);
        }
    }
    if (!(IsSipCall() && m_bIceEnable)) {
        m_rtcpSeedsLeft = 5;
        m_timers->Schedule(IceTimer::RtcpSeed, 100, 5);
    }
    m_dtlsConnectedMs = Now() - m_checkStartMs;
    ICE_INFO("CIceConnector::OnDtlsConnected, dtls metric m_uiDtlsConnected=" << m_dtlsConnectedMs);
}

template <class P>
void CIceConnectorT<P>::OnDtlsFailed(const char* reason)
{
    m_timers->Cancel(IceTimer::DtlsRetransmit);
    m_timers->Cancel(IceTimer::DtlsGiveUp);
    ICE_ERROR("CIceConnector::OnDtlsFailed, the DTLS handshake failed: " << (reason ? reason : "unknown"));
    // One failure per attempt, and only once the path was concluded: before that the conclusion
    // reports it (a line hears of a path once).
    if (m_bDtlsFailureReported || (m_bIceEnable && !m_bIceCompleted)) return;
    m_bDtlsFailureReported = true;
    // No keys, no media: the line hears a failed connection and tries again, and ends the session
    // when that fails too.
    if (m_sink) m_sink->OnIceComplete(CM_ERROR_FAILURE, m_Transports, 0, ZynIceOrigin_Ice, false);
}

template class CIceConnectorT<ice::ZynProfile>;
template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
