// An audio media line of a real connection, set up to take packets from the caller's own
// transport: its remote tracks made and, with a key, its receive key given as SDES keys are
// (AES_CM_128_HMAC_SHA1_80 through setupSrtpCrypto); without one it takes RTP in clear. Sink() is the line's connector: a transport
// opened with it walks the whole receive road, the connector's first-byte demultiplexing, the line's
// OnReceive and ReceiveRTP, the engine session's SRTP unprotect and statistics.
//
// Threads: made and destroyed on the caller's thread, with the library's own main and network
// threads running. The connector has gathered nothing and started no timer, so it does no work on
// its network thread: the caller may drive the receive road on a thread of its own (one that pumps
// its own loop, on one core) and it stays the only thread on that road.
#pragma once

#include <string>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "mediasession/ZynMediaEngine.h"
#include "tp/CmThreadManager.h"
#include "tp/CmTransport.h"
#include "util/CmBase64.h"
#include "util/CmLocalAddr.h"

namespace rig {

// Takes an acceptor's first transport and opens it with the given sink, as the connector does with
// its own acceptors' transports.
class Attach : public ICmAcceptorConnectorSink {
public:
    explicit Attach(ICmTransportSink* sink) : m_sink(sink) {}
    ~Attach() override
    {
        if (m_transport) m_transport->ReleaseReference();
    }
    Attach(const Attach&) = delete;
    Attach& operator=(const Attach&) = delete;
    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId*) override
    {
        if (reason != CM_OK || !transport || m_transport) return;
        transport->AddReference();
        transport->OpenWithSink(m_sink);
        m_transport = transport;
    }

private:
    ICmTransportSink* const m_sink;
    ICmTransport* m_transport = nullptr;
};

class LineReceiveRig {
public:
    // key: 30 bytes of master key and salt, or null.
    LineReceiveRig(const uint8_t* key, size_t keyLength)
    {
        set_local_addr_allow_list({"127.0.0.1"});
        InitMediaEngine(nullptr, nullptr, false, nullptr, false, 0);
        if (!ZYN_SUCCEEDED(CreateMediaConnection(&m_conn, 0)) || !m_conn) return;
        m_conn->AddMedia(ZynSessionType_Audio, ZynDirection_SendRecv, 0, nullptr);
        auto* connection = static_cast<zyn::CMediaConnection*>(m_conn);
        m_line = connection->FindConnection(0ul);
        if (!m_line || !ZYN_SUCCEEDED(m_line->CreateRemoteZynSession(connection->GetEngine(), false))) return;
        std::string text;
        if (key && (CM_Base64Encode(key, keyLength, text) != CM_OK ||
                    !ZYN_SUCCEEDED(m_line->setupSrtpCrypto(2, "AES_CM_128_HMAC_SHA1_80", text.c_str(), 0, 0))))
            return;
        m_sink = dynamic_cast<ICmTransportSink*>(m_line->GetIceConnector().Get());
    }
    ~LineReceiveRig()
    {
        if (m_conn) {
            // Stop posts its clean-up to the main thread; the release comes after it ran.
            CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_MAIN), false, [this] {
                m_conn->Stop();
                return CM_OK;
            });
            CmInvokeInThread(CCmThreadManager::Instance()->GetThread(TT_MAIN), false, [] { return CM_OK; });
            m_conn->Release();
        }
        UninitMediaEngine();
        clear_local_addr_allow_list();
    }
    LineReceiveRig(const LineReceiveRig&) = delete;
    LineReceiveRig& operator=(const LineReceiveRig&) = delete;

    // Null when the set-up failed.
    ICmTransportSink* Sink() const { return m_sink; }
    zyn::CMediaConnectionInfo* Line() const { return m_line; }
    IZynMediaSession* Session() const { return m_line ? m_line->GetZynSession() : nullptr; }

private:
    IZynMediaConnection* m_conn = nullptr;
    zyn::CMediaConnectionInfo* m_line = nullptr;
    ICmTransportSink* m_sink = nullptr;
};

}  // namespace rig
