// One media line: one m-line bound to one engine session, its local track and, later, its
// connector and remote tracks. The connection owns it by plain pointer.
//
// Threads: made and driven on the caller's thread of the connection; its network work runs on
// the network thread of its type (audio "t-neta", video "t-netv", share and application "t-nets").
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/ZynIdentity.h"
#include "ice/IceConnector.h"
#include "mediasession/ZynDefines.h"
#include "tp/CmEvent.h"
#include "tp/CmString.h"
#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

class CMediaConnection;

class CMediaConnectionInfo final : public IZynMediaTransport,
                                   public IceConnectorSink,
                                   public CCmTimerWrapperIDSink,
                                   public ZYNIdentityT<CMediaConnectionInfo> {
public:
    explicit CMediaConnectionInfo(uint32_t callId);
    ~CMediaConnectionInfo() override;

    ZynResult Init(CMediaConnection* connection, ZynSessionType type, unsigned long mid);
    // Makes the local track (or, with notify, announces the existing one to the application).
    ZynResult CreateLocalZynSession(bool notify);
    void Stop();
    void Cleanup();

    // Chooses ports and collects candidates on the network thread, waiting for it; then, once the
    // certificate exists where DTLS needs one, reports onPortSelected to the connection.
    ZynResult StartListen(const CCmInetAddr& address, bool gather, bool nonListen);
    ZynResult StopListen();
    // Drops transports on the network thread (waiting); cleanup also closes the listeners.
    ZynResult Disconnect_i(bool cleanup, bool stopListen);
    bool IsPortSelected() const { return m_bPortSelected.load(); }
    CIceConnectorWrapper& GetIceConnector() { return m_iceConnector; }
    // Port range of the line's kind.
    static void PortRangeOf(ZynSessionType type, uint16_t& minPort, uint16_t& maxPort);

    // IceConnectorSink (network thread).
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnSend(ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnDisconnect(CmResult reason, ICmTransport* transport) override;
    uint64_t GetReceivedPackets() const { return m_receivedPackets.load(); }
    // The process certificate exists: take it and its fingerprint, then report the ports.
    void OnCertificateReady();
    const std::string& GetLocalFingerPrint() const { return m_chLocalFingerPrint; }

    // IZynMediaTransport: nothing is connected yet, so there is nowhere to send.
    int32_t GetTransportType() override { return m_transportType; }
    ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) override;
    ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) override;

    void OnTimer(CCmTimerWrapperID*) override {}

    unsigned long GetMid() const { return m_mid; }
    ZynSessionType GetSessionType() const { return m_type; }
    int32_t GetDirection() const { return m_nDirection; }
    void SetDirection(int32_t direction) { m_nDirection = direction; }
    IZynMediaSession* GetZynSession() const { return m_pZynSession; }
    IZynMediaTrack* GetLocalEngineTrack() const { return m_pLocalTrack; }
    int GetThreadType() const { return m_nThreadType; }
    int GetMaxSources() const { return m_maxSources; }
    bool GetCVOSend() const { return m_bCVOSend; }
    bool GetCVORecv() const { return m_bCVORecv; }
    uint32_t GetLocalCSI() const { return m_localCsi; }
    bool IsSipCall() const;
    CMediaConnection* GetMediaConnection() const { return m_sink; }

    // Network thread type of a session type.
    static int ThreadTypeOf(ZynSessionType type);

private:
    ZynResult CreateSession();
    ZynResult CreateConnector();
    void OnListenDone();
    ZynTrackKind LocalTrackKind() const;

    CMediaConnection* m_sink = nullptr;  // the connection; cleared by Cleanup
    unsigned long m_mid = 0;
    ZynSessionType m_type = ZynSessionType_Unknown;
    int32_t m_nDirection = 0;
    int32_t m_transportType = 0;
    int m_nThreadType = 1;
    int m_maxSources = 1;
    bool m_bCVOSend = false;
    bool m_bCVORecv = false;
    bool m_bInited = false;
    bool m_bCleaning = false;
    uint32_t m_localCsi = 0;
    IZynMediaSession* m_pZynSession = nullptr;  // one reference
    IZynMediaTrack* m_pLocalTrack = nullptr;    // one reference
    ICmEventQueue* m_eqNetwork = nullptr;
    ACmThread* m_networkThread = nullptr;
    CIceConnectorWrapper m_iceConnector;
    std::atomic<bool> m_bPortSelected{false};
    std::atomic<uint64_t> m_receivedPackets{0};
    bool m_bStopListen = true;
    ICmEvent* m_certificateObserver = nullptr;  // registered with the generator, not yet fired
    std::string m_chLocalFingerPrint;
    // The process certificate and key, copied on first use by any line.
    static std::mutex s_dtlsMutex;
    static CCmString m_pDtlsCert;
    static CCmString m_pDtlsPriKey;
};

}  // namespace zyn
