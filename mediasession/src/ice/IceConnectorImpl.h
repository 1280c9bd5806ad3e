// The connector, written once over the two profiles of the NAT stack: CIceConnector runs
// zyn_gatewalk, CIceConnectorQLOX runs qlox_gatewalk. One file per concern:
//   IceConnectorFrame.cpp   construction, settings, timers, clean-up, reconnect and resets
//   IceGathering.cpp        ports, host candidates, STUN and TURN candidates, the offer's candidates
//   IceChecks.cpp           remote candidates, checks and their repeats, answers, the conclusion
//   IceTransports.cpp       transports, what arrives and where it goes, keep-alive, the RTCP seed
//   IceDtls.cpp             the DTLS session that keys SRTP
//
// Threads: everything runs on the network thread of SetNetworkThreadType. The stack, the
// transports, DTLS and the timers all call back there; no member needs a lock, except the byte
// counters that statistics read from other threads (atomics).
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ice/IceConnector.h"
#include "ice/IceContext.h"
#include "ice/IceProfile.h"
#include "mediasession/ZynMediaConfig.h"
#include "tp/CmDtls.h"

namespace zyn {

template <class P>
class CIceConnectorT final : public IIceConnector,
                             public ICmAcceptorConnectorSink,
                             public ICmTransportSink,
                             public IIceTimerTarget,
                             public ICmDtlsSink {
public:
    using Profile = P;
    CIceConnectorT(IceConnectorSink* sink, unsigned int callId);
    ~CIceConnectorT() override;

    // IIceConnector
    void SetNetworkThreadType(int type) override { m_threadType = type; }
    ZynResult StartCollectCandidates(ZynConnectionPolicy policy, bool rtcpMux, bool ice) override;
    void StopListen() override;
    void allocateTurnRelayedAndReflexiveAddress(bool isCheck, std::function<void(bool, const std::string&)> done) override;
    void resetIceForBwcCalling(bool force, bool keep) override;
    void resetIceForZarnCalling() override;
    void CleanUp(bool cleanup, bool stopListen) override;
    void SetConnectionPolicy(ZynConnectionPolicy policy) override { m_policy = policy; }
    ZynResult Reconnect() override;
    void GetIceCandidates(sdp::optional_value<sdp::ice_caps>& caps, CCmInetAddr& defaultAddr) override;
    ZynResult ConnectRemoteForSipCall(const CCmInetAddr& addr, unsigned int transportFlags, bool rtcpMux) override;
    ZynResult StartConnectivityCheckForSipCall(const sdp::optional_value<sdp::ice_caps>& ice, bool controlling,
                                               unsigned long tieBreaker) override;
    ZynResult SetRemoteCandidates(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                  bool controlling, unsigned long tieBreaker, unsigned int cType,
                                  bool rtcpMux) override;
    bool GetIceConclusion(std::string& rtpHost, int& rtpPort, std::string& rtcpHost, int& rtcpPort) override;
    bool GetConcludedCandidates(std::string& ufrag, std::string& pwd, std::list<std::string>& local,
                                std::string& remote) override;
    bool HasNetwork() override;
    bool IsIceRunning() override;
    void SetOverrideIP(const char* ip, int port) override;
    void SetLocalIP(const std::string& rtpIp, const std::string& rtcpIp) override { m_localIp = rtpIp; (void)rtcpIp; }
    void SetPortRange(uint16_t minPort, uint16_t maxPort) override;
    std::string getIceCheckListMetric() override;
    void SetGlobalConfig(CGlobalConfig* config) override { m_globalConfig = config; }
    void SetDtlsCertification(const CCmString& cert, const CCmString& key, const CCmInetAddr& addr) override;
    void SetSessionType(ZynSessionType type) override { m_sessionType = type; }
    bool GetIceRejected() override { return m_bIceRejected; }
    void getAndResetStunDtlsStats(bool reset, unsigned int& stunSent, unsigned int& stunReceived,
                                  unsigned int& dtlsSent, unsigned int& dtlsReceived) override;
    std::string getPeerReflexiveIp() override { return m_peerReflexiveIp; }
    void setNonListen(bool nonListen) override { m_bNonListen = nonListen; m_bNonListenSet = true; }
    void SetDtlsNegotiated(sdp::dtls_setup_role localRole, const sdp::optional_value<sdp::dtls_caps>& remote) override;
    bool GetSelectedPath(CCmInetAddr& local, CCmInetAddr& remote, std::string& candidateType) override;

    // ICmAcceptorConnectorSink, ICmTransportSink
    void OnConnectIndication(CmResult reason, ICmTransport* transport, ICmAcceptorConnectorId* id) override;
    void OnReceive(CCmMessageBlock& data, ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnSend(ICmTransport* transport, CCmTransportParameter* parameter) override;
    void OnDisconnect(CmResult reason, ICmTransport* transport) override;
    // IIceTimerTarget
    void OnIceTimer(IceTimer timer) override;
    // ICmDtlsSink
    void OnDtlsSend(const uint8_t* data, size_t length) override;
    void OnDtlsConnected() override;
    void OnDtlsFailed(const char* reason) override;

    // Picks a port in the range (the minimum plus an even number) and opens one acceptor, or two
    // on port and port + 1 without RTCP mux; addr's port becomes the one chosen.
    ZynResult CreateAcceptor(CCmInetAddr* addr, uint32_t connType, bool rtcpMux, ICmAcceptor** acceptors);
    // The path without ICE.
    ZynResult ConnectRemote(const CCmInetAddr& addr, unsigned int transportFlags, bool rtcpMux);

    // For tests: a fake clock and timers instead of the loop's (not owned; null restores them), and
    // the machine's addresses as a test wants them.
    void SetTimerService(IIceTimerService* service) { m_timers = service ? service : &m_loopTimers; }
    void SetAddressSource(std::function<std::vector<CCmInetAddr>()> source) { m_addressSource = std::move(source); }
    const std::vector<CIceCandidate>& GetCandidates() const { return m_Candidates; }
    const CCmInetAddr& GetLocalRtpAddress() const { return m_localRtp; }
    const CCmInetAddr& GetLocalRtcpAddress() const { return m_localRtcp; }
    bool IsRtcpMux() const { return m_bRtcpMux; }
    bool IsIceCompleted() const { return m_bIceCompleted; }
    const std::string& GetLocalUfrag() const { return m_ufrag; }
    const std::string& GetLocalPassword() const { return m_password; }
    typename P::Instance* GetIceInstance() const { return m_iceInst.get(); }
    size_t GetContextCount() const { return m_contexts.size(); }
    size_t GetLiveTurnAllocations() const;
    size_t GetPendingRequestCount() const { return m_pendingRequests.size(); }
    size_t GetKeepAliveSentCount() const { return m_keepAliveSent.size(); }
    ICmTransport* GetTransport(int index) const { return m_Transports[index]; }
    CmDtlsState GetDtlsState() const { return m_dtls ? CmDtls_GetState(m_dtls) : CM_DTLS_STATE_IDLE; }
    uint16_t GetPortMin() const { return m_portMin; }
    uint16_t GetPortMax() const { return m_portMax; }

    // At most this many local addresses become candidates.
    static constexpr int kMaxAddresses = 8;
    // The repeats of a check's last request: 50, 100, ... 1000 ms after the previous send.
    static constexpr uint32_t kRepeatCount = 20;
    static uint32_t RepeatDelayMs(uint32_t sendCount) { return 50 * (sendCount + 1); }
    // Keep-alive requests remembered for their answers.
    static constexpr size_t kMaxKeepAliveSent = 10;
    // Binding requests kept until the remote description comes: a peer retransmits anyway, so a
    // full list only drops copies.
    static constexpr size_t kMaxPendingRequests = 64;
    // Handshake records kept until the DTLS session exists: a flight is a few datagrams.
    static constexpr size_t kMaxEarlyDtls = 8;

private:
    using StunMessage = typename P::StunMessage;
    struct TurnAllocContext;
    struct StunAllocContext;
    struct PendingRequest {
        std::vector<uint8_t> bytes;
        ICmTransport* transport;  // one reference
    };
    struct SentRequest {
        gatewalk::StunMsgId id;
        CIceConnectionContext* context;
        std::string password;  // the key of the answer's integrity
        uint64_t sentMs;
        int component;         // keep-alive: index of the transport
        uint16_t mappedPort;   // keep-alive: the port the answer before this one showed
    };

    // Frame (IceConnectorFrame.cpp)
    const char* Name() const { return P::kName; }
    uint64_t Now() { return m_timers->NowMs(); }
    bool IsSipCall() const { return m_sink && m_sink->IsSipCall(); }
    int ClientType() const { return m_sink ? m_sink->GetClientType() : 0; }
    bool IsDtlsSRTPEnabled() const { return m_sink && m_sink->IsDtlsSRTPEnabled(); }
    void CreateIceInstance();
    void DestroyIceInstance();
    void CleanUpContexts(bool stopListen);
    void CancelAllTimers();
    static void OnIceLog(void* self, gatewalk::ICELIB_logLevel level, const char* text);

    // Gathering (IceGathering.cpp)
    std::vector<CCmInetAddr> LocalAddresses(ZynResult& result);
    void CloseCandidates();
    void allocateICERelayedAndReflexiveAddressForCandidate(const CIceCandidate& candidate, bool isCheck,
                                                           std::function<void()> done);
    void allocateTurnRelayedAndReflexive(const CIceCandidate& candidate, bool isCheck, const tagICEServer& server,
                                         const CCmInetAddr& serverAddr, std::function<void()> done);
    void allocateStunRelayedAndReflexive(const CIceCandidate& candidate, bool isCheck, const tagICEServer& server,
                                         const CCmInetAddr& serverAddr, std::function<void()> done);
    void AllocateAtServer(const CIceCandidate& candidate, bool isCheck, const tagICEServer& server,
                          const CCmInetAddr& serverAddr, std::function<void()> done);
    static void turnStatusCallBack(void* ctx, gatewalk::TurnCallBackData_T* data);
    static void stunStatusCallBackForStunServer(void* ctx, typename P::StunCallBackData* data);
    static void sendRawTurnData(const unsigned char* bytes, unsigned long length, const struct sockaddr* destination,
                                void* ctx);
    void OnTurnResult(TurnAllocContext* turn, gatewalk::TurnCallBackData_T* data);
    void OnStunResult(StunAllocContext* stun, typename P::StunCallBackData* data);
    const CIceCandidate* MatchCandidate(const CCmInetAddr& local) const;
    void AddServerCandidate(gatewalk::ICE_CANDIDATE_TYPE type, const CIceCandidate& base, const sockaddr* address);
    void TickStunContexts();
    void TickTurnContexts();
    void StopStun();
    void StopTurn();
    void EnsurePermission(TurnAllocContext* turn, const CCmInetAddr& peer);
    void AskPermissions(TurnAllocContext* turn);
    void FinishAllocation(TurnAllocContext* turn);
    // A server request: sent on the pair's transport, or kept in `pending` until it is up.
    void SendServerData(CIceConnectionContext* context, std::vector<uint8_t>& pending, const uint8_t* bytes,
                        size_t length, bool overTcp = false);
    // A packet of a relayed pair, framed for the allocation's server.
    CmResult RelayData(TurnAllocContext* turn, const CCmInetAddr& peer, CCmMessageBlock& data);

    // Checks and conclusion (IceChecks.cpp)
    ZynResult ResolveHostnames(bool restart);
    void StartStunTrace(bool iceSucceeded);
    void TranslateIpv4Candidates();
    ZynResult StartConnectivityCheck(const sdp::optional_value<sdp::ice_caps>& ice, const CCmInetAddr& remote,
                                     bool controlling);
    void pruneLocalCandidates();
    static void OnConnectivityChecksComplete(void* self, uint32_t userValue, bool isControlling, bool isFailed);
    static void OnOutgoingBindingRequest(void* self, int proto, const sockaddr* source, const sockaddr* destination,
                                         uint32_t uv1, uint32_t uv2, uint32_t component, bool useRelay,
                                         const char* ufragPair, const char* password, uint32_t priority,
                                         bool useCandidate, bool iceControlling, uint64_t tieBreaker,
                                         gatewalk::StunMsgId id);
    static void OutgoingBindingResponse(void* self, uint32_t uv1, uint32_t uv2, uint32_t component,
                                        const sockaddr* source, const sockaddr* destination, const sockaddr* mapped,
                                        uint16_t errorCode, gatewalk::StunMsgId id, bool useRelay,
                                        const char* password);
    static void CancelBindRequest(void* self, uint32_t uv1, gatewalk::StunMsgId id);
    static void OnUpdateIceCheckList(void* self, bool changed);
    static void OnSendKeepAlive(void* self, uint32_t uv1, uint32_t uv2, uint32_t mediaIdx);
    void ChecksComplete(bool isControlling, bool isFailed);
    void UpdateCheckSend();
    void HandleStunRequest(const uint8_t* bytes, size_t length, StunMessage& message, ICmTransport* transport,
                           CIceConnectionContext* context);
    void ReplayPendingRequests();
    void ClearPendingRequests();
    void GetFakeSelectedCandidates(std::list<std::string>& local, std::string& remote);
    std::string BuildCandidateAttr(const gatewalk::ICE_CANDIDATE& candidate) const;
    void FailPlainConnect();

    // Transports (IceTransports.cpp)
    CIceConnectionContext* FindConnectionContext(const CCmInetAddr& local, const CCmInetAddr& remote, bool create);
    CIceConnectionContext* FindContextByTransport(const ICmTransport* transport);
    CIceConnectionContext* FindContextByConnector(const ICmAcceptorConnectorId* id);
    void DeleteContext(CIceConnectionContext* context);
    CmResult Connect(CIceConnectionContext* context, unsigned int transportType, const char* reason);
    uint32_t CheckSendUDP(CIceConnectionContext* context, bool& failed);
    uint32_t CheckSendTCP(CIceConnectionContext* context, bool& failed);
    CmResult SendOnContext(CIceConnectionContext* context, const uint8_t* bytes, size_t length);
    CmResult SendOnTransport(ICmTransport* transport, const uint8_t* bytes, size_t length);
    void HandleStun(const uint8_t* bytes, size_t length, ICmTransport* transport, CIceConnectionContext* context);
    void HandleBindResponse(const uint8_t* bytes, size_t length, StunMessage& message, ICmTransport* transport,
                            CIceConnectionContext* context);
    // After the conclusion, a nomination of another pair by the controlling peer moves the path.
    void FollowNomination(const StunMessage& message, CIceConnectionContext* context);
    bool HandleServerTraffic(CCmMessageBlock& data, ICmTransport* transport, CIceConnectionContext* context);
    void Demultiplex(CCmMessageBlock& data, const uint8_t* bytes, size_t length, ICmTransport* transport,
                     CIceConnectionContext* context);
    void SendKeepAlive();
    void SendRtcpSeed();
    bool CheckTransportIsReady() const;
    void ReleaseTransports();
    // Drops what reached the plain ports before the peer was named, from anybody but the peer at
    // `remote`; true when the path's own transport was one of them.
    bool DropStrangePlainTransports(const CCmInetAddr& remote, bool rtcpMux);
    bool IsNonIceId(const ICmAcceptorConnectorId* id) const;

    // DTLS (IceDtls.cpp)
    int CheckDtlsState();
    void RecreateDtls();
    void ScheduleDtlsRetransmit();
    void ReadDtls(const uint8_t* bytes, size_t length, ICmTransport* transport, CIceConnectionContext* context);
    void ReplayEarlyDtls();

    IceConnectorSink* const m_sink;
    const unsigned int m_callId;
    CIceLoopTimers m_loopTimers{this};
    IIceTimerService* m_timers = &m_loopTimers;
    int m_threadType = 1;
    ZynSessionType m_sessionType = ZynSessionType_Unknown;
    CGlobalConfig* m_globalConfig = nullptr;
    ZynConnectionPolicy m_policy = ZynConnectionPolicy_UDP;
    bool m_bIceEnable = false;
    bool m_bRtcpMux = false;  // once set, stays set for the life of the connector
    bool m_bNonListen = false;
    bool m_bNonListenSet = false;
    std::string m_localIp;
    std::function<std::vector<CCmInetAddr>()> m_addressSource;
    std::string m_overrideIp;
    int m_overridePort = 0;
    uint16_t m_portMin = 0;
    uint16_t m_portMax = 0;
    uint8_t m_portIndex = 0;
    std::array<uint32_t, 256> m_portStarts{};
    int m_preferenceBase = 0x7E00;
    std::vector<CIceCandidate> m_Candidates;
    // Without ICE: the plain port pair and the connectors towards the peer.
    CCmInetAddr m_localRtp;
    CCmInetAddr m_localRtcp;
    ICmAcceptor* m_plainAcceptors[2] = {nullptr, nullptr};
    ICmConnector* m_pNonIceConnector[2] = {nullptr, nullptr};
    int m_listenKind = 0;  // 2 UDP, 1 TCP
    CCmInetAddr m_remotePlain;
    bool m_bEarlyPlainPath = false;  // a plain transport came before the peer's address was known

    // The agent; kept across re-offers so the credentials stay.
    std::unique_ptr<typename P::Instance> m_iceInst;
    int32_t m_mediaIdx = 0;
    std::string m_ufrag;
    std::string m_password;
    bool m_bIceCompleted = false;
    bool m_notifyIceComplete = false;
    bool m_bIceAggressiveNotified = false;
    bool m_bIceRejected = false;
    bool m_bCheckStarted = false;
    bool m_bControlling = false;
    uint64_t m_tieBreaker = 0;
    unsigned int m_connectionType = 0;
    sdp::optional_value<sdp::ice_caps> m_remoteIce;
    CCmInetAddr m_remoteDefault;
    uint64_t m_checkStartMs = 0;
    uint64_t m_iceTickMs = 0;  // the agent's clock, in ticks of 10 ms
    int m_firstRemoteTcpPort = 0;
    uint32_t m_resolveGeneration = 0;  // a newer remote description drops the answers for an older one
    size_t m_namesPending = 0;
    CCmInetAddr m_nat64Prefix;         // learnt from ipv4only.arpa. on an IPv6-only network
    int m_nat64PrefixLength = -1;
    std::string m_peerReflexiveIp;

    std::vector<std::unique_ptr<CIceConnectionContext>> m_contexts;
    ICmTransport* m_Transports[2] = {nullptr, nullptr};       // one reference each
    ICmTransport* m_TransportsExtra[2] = {nullptr, nullptr};  // one reference each
    std::unique_ptr<StunMessage> m_keepAliveSlot[2];          // the last check of each component
    std::deque<SentRequest> m_checkSent;
    std::deque<SentRequest> m_keepAliveSent;
    uint16_t m_keepAliveMappedPort[2] = {0, 0};
    std::vector<PendingRequest> m_pendingRequests;
    std::vector<PendingRequest> m_earlyDtls;  // handshake records that came before the session
    std::unique_ptr<StunMessage> m_rxMessage;  // scratch for what arrives
    std::unique_ptr<StunMessage> m_txMessage;  // scratch for what leaves
    uint64_t m_ulLastReceived = 0;
    uint64_t m_pathHeardMs = 0;  // the last packet on a transport of the selected path
    uint32_t m_keepAliveRounds = 0;
    uint32_t m_rttMatched = 0;
    uint64_t m_rttTotalMs = 0;
    uint32_t m_rtcpSeedsLeft = 0;
    bool m_bDisconnected = false;
    CIceConnectionCheckListInfo m_checkListInfo;

    // STUN and TURN towards the configured servers.
    std::set<std::shared_ptr<TurnAllocContext>> m_turnContexts;
    std::set<std::shared_ptr<StunAllocContext>> m_stunContexts;

    // DTLS
    CCmString m_dtlsCert;
    CCmString m_dtlsKey;
    CmDtls* m_dtls = nullptr;
    CmDtlsRole m_dtlsRole = CM_DTLS_ROLE_CLIENT;
    bool m_bDtlsRoleKnown = false;
    std::string m_remoteHash;
    std::string m_remoteFingerprint;
    bool m_bHasRemoteDtls = false;
    bool m_bDtlsFailureReported = false;
    bool m_keepDtlsKeys = false;  // set by a reconnect for the SetRemoteCandidates it leads to
    ICmTransport* m_dtlsTransport = nullptr;  // where the handshake goes before the conclusion; no reference
    uint64_t m_dtlsConnectedMs = 0;

    std::atomic<unsigned int> m_stunSent{0}, m_stunReceived{0}, m_dtlsSent{0}, m_dtlsReceived{0};
};

using CIceConnector = CIceConnectorT<ice::ZynProfile>;
using CIceConnectorQLOX = CIceConnectorT<ice::QloxProfile>;

extern template class CIceConnectorT<ice::ZynProfile>;
extern template class CIceConnectorT<ice::QloxProfile>;

}  // namespace zyn
