#include "line/MediaConnectionInfo.h"

#include <string>

#include "connection/MediaConnection.h"
#include "entry/CertficateGenerator.h"
#include "tp/CmCert.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// Announces a ready track to the application on the main thread. The event holds the connection
// and the track, so that both outlive the hop; a dropped event (engine going down) only releases.
class CMediaReadyEvent final : public ICmEvent {
public:
    CMediaReadyEvent(CMediaConnection* connection, unsigned long mid, ZynDirection direction, ZynSessionType type,
                     CMediaTrack* track)
        : m_connection(connection), m_track(track), m_mid(mid), m_direction(direction), m_type(type)
    {
    }
    CmResult OnEventFire() override
    {
        if (IZynMediaConnectionSink* sink = m_connection->GetSink())
            sink->OnMediaReady(m_mid, m_direction, m_type, m_track.get());
        return CM_OK;
    }

private:
    CMediaConnectionPtr m_connection;
    CZynAutoPtr<CMediaTrack> m_track;
    unsigned long m_mid;
    ZynDirection m_direction;
    ZynSessionType m_type;
};

}  // namespace

CMediaConnectionInfo::CMediaConnectionInfo(uint32_t callId) : ZYNIdentityT(callId, ZynSessionType_Unknown) {}

CMediaConnectionInfo::~CMediaConnectionInfo()
{
    Stop();
    Cleanup();
    if (m_pMediastoresEntity)
        releaseMediastoresEntity(static_cast<int32_t>(m_type), GetIdentityCallId(), m_pMediastoresEntity);
}

int CMediaConnectionInfo::ThreadTypeOf(ZynSessionType type)
{
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: return TT_AUDIO_NETWORK;
    case ZynSessionType_Video: return TT_VIDEO_NETWORK;
    default: return TT_SHARE_NETWORK;
    }
}

bool CMediaConnectionInfo::IsSipCall() const
{
    return FromSink([](CMediaConnection& c) { return c.IsSipCall(); });
}

int CMediaConnectionInfo::GetClientType() const
{
    if (!m_sink) {
        CM_ASSERT_REPORT("m_sink");
        return 0;
    }
    return m_sink->GetClientType();
}

bool CMediaConnectionInfo::IsDtlsSRTPEnabled() const { return IsDtlsInUse(); }

ZynResult CMediaConnectionInfo::Init(CMediaConnection* connection, ZynSessionType type, unsigned long mid)
{
    m_bCleaning = false;
    m_sink = connection;
    m_mid = mid;
    m_type = type;
    SetSessionTypeIdentity(type);
    m_bCVOSend = ZynDeviceSupportCVOSend();
    m_bCVORecv = ZynDeviceSupportCVORecv();
    m_nThreadType = ThreadTypeOf(type);
    if (ZynResult r = CreateConnector(); !ZYN_SUCCEEDED(r)) return r;
    if (type == ZynSessionType_Audio) {
        m_maxSources = 3;
        MS_INFO_TRACE("CMediaConnectionInfo::Init, set audio multistream to " << m_maxSources << LINE_TAIL);
    }
    switch (type) {
    case ZynSessionType_Audio:
    case ZynSessionType_AudioSlide: m_codecType = ZynCodecType_OPUS; break;
    case ZynSessionType_Video:
    case ZynSessionType_ScreenShare: m_codecType = ZynCodecType_SVC; break;
    default: m_codecType = ZynCodecType_Unknown; break;
    }
    if (m_bInited) {
        if (m_sink) m_sink->GetSessionMetrics().KickZynError("CMCIInit", ZYN_E_FAIL);
        CM_ASSERT_REPORT("m_pRemoteTrack == __null");
        return ZYN_E_FAIL;
    }
    m_bInited = true;
    if (type != ZynSessionType_Application) {
        ZynResult r = CreateSession();
        if (!ZYN_SUCCEEDED(r)) return r;
    }
    // Audio lines hear the device list change, for the default-device switch.
    if (type == ZynSessionType_Audio && m_sink && m_sink->GetEngine())
        m_bDeviceObserver = ZYN_SUCCEEDED(m_sink->GetEngine()->AddDeviceObserver(this));
    if (ACmThread* net = CCmThreadManager::Instance()->GetThread(m_nThreadType)) {
        m_networkThread = net;
        m_eqNetwork = net->GetEventQueue();
    }
    // The line works without the store: only its call settings are missing then.
    if (createMediastoresEntity(static_cast<int32_t>(type), GetIdentityCallId(), &m_pMediastoresEntity) != 0) {
        m_pMediastoresEntity = nullptr;
        MS_ERROR_TRACE("CMediaConnectionInfo::Init, create MediastoresEntity failed!" << LINE_TAIL);
    }
    MS_INFO_TRACE("CMediaConnectionInfo::Init, mid=" << m_mid << ", threadType=" << m_nThreadType << LINE_TAIL);
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::CreateSession()
{
    IZynMediaEngineInternal* engine = m_sink ? m_sink->GetEngine() : nullptr;
    if (!engine) return ZYN_E_INVALIDARG;
    auto fail = [this](const char* tag, ZynResult r) {
        m_sink->GetSessionMetrics().KickZynError(tag, r);
        CM_ASSERT_REPORT("((int32_t)((cret) & 0x0000F000) == 0)");
        return r;
    };
    ZynResult r = engine->CreateMediaSession(m_type, &m_pZynSession);
    if (!ZYN_SUCCEEDED(r)) return fail("CMCIInit_CrMSes", r);
    r = m_pZynSession->SetTransport(this);
    if (!ZYN_SUCCEEDED(r)) return fail("CMCIInit_SetTrp", r);
    const std::string& id = GetIdentityTag();
    r = m_pZynSession->SetOption(14, id.c_str(), static_cast<uint32_t>(id.size()));
    if (!ZYN_SUCCEEDED(r)) return fail("CMCIInit_SetOp", r);
    // Connection-wide sending habits; an engine that lacks one still runs the line.
    CGlobalConfig& global = m_sink->GetGlobalConfigImpl();
    const uint8_t sendCsrc = global.IsSendingCSRCEnabled() ? 1 : 0;
    const uint8_t rtxLongDelay = 0;
    const uint8_t rollback = global.IsBandwidthRollbackEnabled() ? 1 : 0;
    (void)m_pZynSession->SetOption(2005, &sendCsrc, 1);
    (void)m_pZynSession->SetOption(2007, &rtxLongDelay, 1);
    (void)m_pZynSession->SetOption(2009, &rollback, 1);
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::CreateLocalZynSession(bool notify)
{
    if (m_pLocalTrack && !notify) return ZYN_S_FALSE;
    CZynAutoPtr<CMediaTrack> track;
    if (m_pLocalTrack) {
        CMediaTrack* first = nullptr;
        m_pLocalTrack->QueryTrack(0, &first);
        track = CZynAutoPtr<CMediaTrack>(first, false);
    } else {
        track = CZynAutoPtr<CMediaTrack>(new CMediaTrack(this, GetIdentityCallId()));
        const ZynResult r = InitLocalTrack(track.get());
        if (!ZYN_SUCCEEDED(r)) {
            track->UnInit();
            return r;
        }
        m_pLocalTrack = std::make_unique<CMediaTrackMgr>(TT_MAIN);
        m_pLocalTrack->Push(0, track.get());
        ApplyAllLocalTrackOptions();
        MS_INFO_TRACE("CMediaConnectionInfo::CreateLocalZynSession, local track=" << static_cast<void*>(track.get())
                                                                                  << LINE_TAIL);
    }
    if (notify && track) PostMediaReady(ZynDirection_Send, track.get());
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::InitLocalTrack(CMediaTrack* track)
{
    IZynMediaEngineInternal* engine = m_sink ? m_sink->GetEngine() : nullptr;
    if (!engine || !m_pZynSession) return ZYN_E_WRONGSTATE;
    const CBaseConfig::CFileCapture& file = GetConfig().GetFileCapture();
    const bool fromFile = file.enabled && !file.path.empty();
    ZynResult r = track->Init(engine, m_type, ZynDirection_Send, fromFile,
                              fromFile ? ZynSourceType_File : ZynSourceType_Device, 0);
    if (!ZYN_SUCCEEDED(r)) return r;
    track->GetTrack()->SetLabel(m_localCsi);
    r = m_pZynSession->AddTrack(track->GetTrack());
    if (!ZYN_SUCCEEDED(r)) return r;
    if (fromFile) {
        r = track->createFileCapturer(file.path.c_str(), file.loop);
        if (!ZYN_SUCCEEDED(r)) {
            MS_ERROR_TRACE("CMediaConnectionInfo::InitLocalTrack, file capture failed, path=" << file.path
                           << ", result=" << r << LINE_TAIL);
            m_pZynSession->RemoveTrack(track->GetTrack());
            return r;
        }
    }
    return ZYN_S_OK;
}

IZynMediaTrack* CMediaConnectionInfo::GetLocalEngineTrack()
{
    CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
    return track ? track->GetTrack() : nullptr;
}

CZynAutoPtr<CMediaTrack> CMediaConnectionInfo::GetLocalTrack()
{
    if (!m_pLocalTrack) return {};
    CZynAutoPtr<CMediaTrack> last;
    for (int vid : m_pLocalTrack->GetVids()) {
        CMediaTrack* t = nullptr;
        m_pLocalTrack->QueryTrack(vid, &t);
        if (!t) continue;
        last = CZynAutoPtr<CMediaTrack>(t, false);
        if (t->isStarted()) break;
    }
    return last;
}

CZynAutoPtr<CMediaTrack> CMediaConnectionInfo::GetVideoRemoteTrack(int vid)
{
    CMediaTrack* t = nullptr;
    if (m_pRemoteTrack) m_pRemoteTrack->QueryTrack(vid, &t);
    return CZynAutoPtr<CMediaTrack>(t, false);
}

CZynAutoPtr<CMediaTrack> CMediaConnectionInfo::GetAudioRemoteTrack() { return GetVideoRemoteTrack(0); }

CZynAutoPtr<CMediaTrack> CMediaConnectionInfo::GetMainVideoRemoteTrack()
{
    if (!m_pRemoteTrack) return {};
    // The active speaker's stream on a multistream line, the single stream otherwise.
    constexpr int32_t kActiveSpeakerPolicy = 2;
    CMediaTrack* t = nullptr;
    if (m_bMultistream && ZYN_SUCCEEDED(m_pRemoteTrack->QueryTrackByPolicy(&t, kActiveSpeakerPolicy)))
        return CZynAutoPtr<CMediaTrack>(t, false);
    return GetVideoRemoteTrack(0);
}

ZynResult CMediaConnectionInfo::ApplyLocalTrackOption(LocalTrackOption option)
{
    if (!option) return ZYN_E_INVALIDARG;
    if (IZynMediaTrack* track = GetLocalEngineTrack()) return option(track);
    m_pendingLocalOptions.push_back(std::move(option));
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::ApplyAllLocalTrackOptions()
{
    IZynMediaTrack* track = GetLocalEngineTrack();
    if (!track) return ZYN_E_NOTRACK;
    std::vector<LocalTrackOption> pending;
    pending.swap(m_pendingLocalOptions);
    MS_INFO_TRACE("CMediaConnectionInfo::ApplyAllLocalTrackOptions count=" << pending.size() << LINE_TAIL);
    for (LocalTrackOption& option : pending) option(track);
    return ZYN_S_OK;
}

void CMediaConnectionInfo::SetMutedStatus(bool muted)
{
    if (!m_pZynSession) return;
    // Session option 24: the engine tells the far end that the local media is muted.
    const uint8_t value = muted ? 1 : 0;
    m_pZynSession->SetOption(24, &value, 1);
}

void CMediaConnectionInfo::PostMediaReady(ZynDirection direction, CMediaTrack* track)
{
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr;
    if (queue && m_sink) queue->PostEvent(new CMediaReadyEvent(m_sink, m_mid, direction, m_type, track));
}

void CMediaConnectionInfo::PortRangeOf(ZynSessionType type, uint16_t& minPort, uint16_t& maxPort)
{
    switch (type) {
    case ZynSessionType_Video:
    case ZynSessionType_ScreenShare: minPort = 52100; maxPort = 52199; break;
    case ZynSessionType_Application: minPort = 53000; maxPort = 53049; break;
    default: minPort = 52000; maxPort = 52049; break;
    }
}

ZynResult CMediaConnectionInfo::CreateConnector()
{
    const int clientType = m_sink ? m_sink->GetClientType() : 0;
    std::shared_ptr<IIceConnector> connector;
    if (clientType == 2 || clientType == 4) {
        MS_INFO_TRACE("CMediaConnectionInfo::Init, create CIceConnectorQLOX object" << LINE_TAIL);
        connector = createIceConnectorWithQLOXGatewalk(this, GetIdentityCallId());
    } else {
        MS_INFO_TRACE("CMediaConnectionInfo::Init, create CIceConnector object" << LINE_TAIL);
        connector = createIceConnector(this, GetIdentityCallId());
    }
    m_iceConnector.Set(connector);
    if (!m_iceConnector.Get()) {
        MS_ERROR_TRACE("CMediaConnectionInfo::Init, m_pIceConnector == nullptr" << LINE_TAIL);
        return ZYN_E_POINTER;
    }
    uint16_t minPort = 0, maxPort = 0;
    PortRangeOf(m_type, minPort, maxPort);
    m_iceConnector.SetSessionType(m_type);
    if (m_sink) m_iceConnector.SetGlobalConfig(&m_sink->GetGlobalConfigImpl());
    m_iceConnector.SetPortRange(minPort, maxPort);
    m_iceConnector.SetNetworkThreadType(m_nThreadType);
    return ZYN_S_OK;
}

namespace {

// Waits on the main thread for the process certificate, then finishes the line's listening.
class CCertificateReadyEvent final : public ICmEvent {
public:
    CCertificateReadyEvent(CMediaConnection* connection, CMediaConnectionInfo* line, unsigned long mid)
        : m_connection(connection), m_line(line), m_mid(mid)
    {
    }
    CmResult OnEventFire() override
    {
        // The line may have gone while the event waited: only a line still in the connection
        // under the same mid is told.
        if (m_connection->FindConnection(m_mid) == m_line) m_line->OnCertificateReady();
        return CM_OK;
    }

private:
    CMediaConnectionPtr m_connection;
    CMediaConnectionInfo* m_line;
    unsigned long m_mid;
};

}  // namespace

ZynResult CMediaConnectionInfo::StartListen(const CCmInetAddr& address, bool gather, bool nonListen)
{
    if (!m_eqNetwork || !m_networkThread) return ZYN_E_POINTER;
    m_bStopListen = false;
    const bool ice = m_sink && m_sink->IsICEEnabled();
    ZynConnectionPolicy policy = ZynConnectionPolicy_UDP;
    if (m_sink && m_sink->GetGlobalConfigImpl().IsRelayOnly()) policy |= ZynConnectionPolicy_RelayOnly;
    const bool servers = ice && m_sink && m_sink->GetGlobalConfigImpl().getICEServerNum() > 0;
    ZynResult collected = ZYN_S_OK;
    CmResult sent = CmInvokeInThread(m_networkThread, false, [&] {
        m_iceConnector.setNonListen(nonListen);
        if (nonListen) m_iceConnector.SetLocalIP("127.0.0.1", "127.0.0.1");
        collected = m_iceConnector.StartCollectCandidates(policy, gather, ice);
        return CM_OK;
    });
    if (sent == CM_ERROR_NOT_INITIALIZED) return ZYN_E_NETQUEUE;
    if (sent != CM_OK) {
        CM_ASSERT_REPORT("CM_SUCCEEDED(cret)");
        return ZYN_E_FAIL;
    }
    if (collected != ZYN_S_OK) return ZYN_E_GATHERFAILED;
    MS_INFO_TRACE("CMediaConnectionInfo::StartListen, address=" << address.GetIpDisplayName() << ", ice=" << ice
                  << LINE_TAIL);
    m_pendingListenSteps.store(servers ? 2 : 1);
    if (servers) {
        // The description waits for the servers' candidates: a relay that is not in the offer is of
        // no use to the peer. Each server answers or gives up within seconds.
        CMediaConnectionPtr connection(m_sink);
        const unsigned long mid = m_mid;
        CmInvokeInThread(m_networkThread, true, [this, connection, mid] {
            m_iceConnector.allocateTurnRelayedAndReflexiveAddress(false, [this, connection, mid](bool ok, const std::string&) {
                MS_INFO_TRACE("CMediaConnectionInfo::StartListen, servers gathered, relay=" << ok << LINE_TAIL);
                ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
                if (!main) return;
                CmInvokeInThread(main, true, [this, connection, mid] {
                    if (connection->FindConnection(mid) == this) OnListenStepDone();
                    return CM_OK;
                });
            });
            return CM_OK;
        });
    }
    if (!m_sink || !m_sink->IsDtlsSRTPEnabled()) {
        OnListenStepDone();
        return ZYN_S_OK;
    }
    auto* event = new CCertificateReadyEvent(m_sink, this, m_mid);
    if (CCertficateGenerator::Instance()->RegisterObserver(event, TT_MAIN) == 1) {
        event->OnEventFire();  // the certificate exists already
        event->OnDestorySelf();
    } else {
        m_certificateObserver = event;
    }
    return ZYN_S_OK;
}

std::mutex CMediaConnectionInfo::s_dtlsMutex;
CCmString CMediaConnectionInfo::m_pDtlsCert;
CCmString CMediaConnectionInfo::m_pDtlsPriKey;

void CMediaConnectionInfo::OnCertificateReady()
{
    {
        std::lock_guard<std::mutex> lock(s_dtlsMutex);
        if (m_pDtlsCert.empty()) CCertficateGenerator::Instance()->GetCertificate(m_pDtlsCert, m_pDtlsPriKey);
        if (m_chLocalFingerPrint.empty() && GenerateFingerPrint(m_pDtlsCert, m_chLocalFingerPrint) != CM_OK)
            MS_ERROR_TRACE("CMediaConnectionInfo::OnCertificateReady, no fingerprint" << LINE_TAIL);
    }
    if (m_networkThread) {
        const CCmString cert = m_pDtlsCert, key = m_pDtlsPriKey;
        CmInvokeInThread(m_networkThread, false, [this, &cert, &key] {
            m_iceConnector.SetDtlsCertification(cert, key, CCmInetAddr());
            return CM_OK;
        });
    }
    OnListenStepDone();
}

void CMediaConnectionInfo::OnListenStepDone()
{
    m_certificateObserver = nullptr;
    if (m_pendingListenSteps.load() > 0 && --m_pendingListenSteps > 0) return;
    m_bPortSelected.store(true);
    if (m_sink) m_sink->onPortSelected(this);
}

ZynResult CMediaConnectionInfo::StopListen()
{
    m_bStopListen = true;
    if (!m_networkThread || !m_eqNetwork) return ZYN_E_WRONGSTATE;
    return CmInvokeInThread(m_networkThread, false, [this] {
        m_iceConnector.StopListen();
        return CM_OK;
    });
}

ZynResult CMediaConnectionInfo::Disconnect_i(bool cleanup, bool stopListen)
{
    m_bStopListen = stopListen;
    m_bSendStarted.store(false);
    if (!m_networkThread || !m_eqNetwork) return ZYN_E_WRONGSTATE;
    CmResult r = CmInvokeInThread(m_networkThread, false, [this, cleanup] {
        Disconnect(cleanup);
        return CM_OK;
    });
    if (r != CM_OK) {
        if (m_sink) m_sink->GetSessionMetrics().KickZynError("CMCIStop", r);
        CM_ASSERT_REPORT("(cmret == 0)");
    }
    return r;
}

void CMediaConnectionInfo::Stop()
{
    if (m_pLocalTrack) m_pLocalTrack->StopTracks(false);
    if (m_pRemoteTrack) m_pRemoteTrack->StopTracks(true);
    if (m_pZynSession) {
        m_pZynSession->SetTransport(nullptr);
        int32_t ignored = 0;
        m_pZynSession->StopSession(&ignored);
    }
    m_bPortSelected.store(false);
    if (m_networkThread) Disconnect_i(true, true);
}

void CMediaConnectionInfo::Cleanup()
{
    if (m_bCleaning) return;
    m_bCleaning = true;
    if (m_certificateObserver && CCertficateGenerator::Instance()->UnRegisterObserver(m_certificateObserver) == 0)
        m_certificateObserver->OnDestorySelf();
    m_certificateObserver = nullptr;
    // The connector's sockets and timers go first: they call into the line and its session.
    if (m_networkThread && m_networkThread->GetEventQueue())
        CmInvokeInThread(m_networkThread, false, [this] {
            m_reconnectTimer.Cancel();
            ReleaseTransports();
            m_iceConnector.Set(nullptr);
            return CM_OK;
        });
    else
        m_iceConnector.Set(nullptr);
    if (m_bDeviceObserver && m_sink && m_sink->GetEngine()) m_sink->GetEngine()->RemoveDeviceObserver(this);
    m_bDeviceObserver = false;
    ReleaseTracks(m_pLocalTrack);
    ReleaseTracks(m_pRemoteTrack);
    m_pendingLocalOptions.clear();
    if (m_pZynSession) {
        m_pZynSession->SetTransport(nullptr);
        m_pZynSession->Release();
        m_pZynSession = nullptr;
    }
    if (m_pMediastoresEntity) m_pMediastoresEntity->OnCallEnded(GetIdentity());
    m_eqNetwork = nullptr;
    m_networkThread = nullptr;
    m_sink = nullptr;
}

void CMediaConnectionInfo::ReleaseTracks(std::unique_ptr<CMediaTrackMgr>& tracks)
{
    if (!tracks) return;
    for (int vid : tracks->GetVids()) {
        m_vidHasTrack[vid].store(false, std::memory_order_release);
        CMediaTrack* t = nullptr;
        tracks->QueryTrack(vid, &t);
        if (!t) continue;
        if (m_pZynSession && t->GetTrack()) m_pZynSession->RemoveTrack(t->GetTrack());
        t->Release();
    }
    // The application may still hold a track: it outlives the line, detached.
    tracks->Clear();
    tracks.reset();
}

}  // namespace zyn
