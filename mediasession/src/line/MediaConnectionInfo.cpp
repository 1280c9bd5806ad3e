#include "line/MediaConnectionInfo.h"

#include <string>

#include "connection/MediaConnection.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

#define LINE_TAIL MS_TAIL(ZynSessionTypeTraceTag(m_type), GetIdentityCallId())

namespace {

// Announces a ready track to the application on the main thread. The event holds the connection
// so that it outlives the hop; a dropped event (engine going down) only releases it.
class CMediaReadyEvent final : public ICmEvent {
public:
    CMediaReadyEvent(CMediaConnection* connection, unsigned long mid, ZynDirection direction, ZynSessionType type)
        : m_connection(connection), m_mid(mid), m_direction(direction), m_type(type)
    {
    }
    CmResult OnEventFire() override
    {
        if (IZynMediaConnectionSink* sink = m_connection->GetSink())
            sink->OnMediaReady(m_mid, m_direction, m_type, nullptr);
        return CM_OK;
    }

private:
    CMediaConnectionPtr m_connection;
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
    if (!m_sink) {
        CM_ASSERT_REPORT("m_sink");
        return false;
    }
    return m_sink->IsSipCall();
}

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
    if (type == ZynSessionType_Audio) {
        m_maxSources = 3;
        MS_INFO_TRACE("CMediaConnectionInfo::Init, set audio multistream to " << m_maxSources << LINE_TAIL);
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
    if (ACmThread* net = CCmThreadManager::Instance()->GetThread(m_nThreadType)) m_eqNetwork = net->GetEventQueue();
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
    return ZYN_S_OK;
}

ZynTrackKind CMediaConnectionInfo::LocalTrackKind() const
{
    switch (m_type) {
    case ZynSessionType_Audio: return ZynTrack_AudioLocal;
    case ZynSessionType_AudioSlide: return ZynTrack_AudioSlideLocal;
    case ZynSessionType_ScreenShare: return ZynTrack_ScreenShareLocal;
    default: return ZynTrack_VideoLocal;
    }
}

ZynResult CMediaConnectionInfo::CreateLocalZynSession(bool notify)
{
    if (m_pLocalTrack && !notify) return ZYN_S_FALSE;
    if (!m_pLocalTrack) {
        IZynMediaEngineInternal* engine = m_sink ? m_sink->GetEngine() : nullptr;
        if (!engine || !m_pZynSession) return ZYN_E_WRONGSTATE;
        IZynMediaTrack* track = nullptr;
        ZynResult r = engine->CreateTrack(LocalTrackKind(), &track);
        if (!ZYN_SUCCEEDED(r)) return r;
        track->SetLabel(m_localCsi);
        r = m_pZynSession->AddTrack(track);
        if (!ZYN_SUCCEEDED(r)) {
            track->Release();
            return r;
        }
        m_pLocalTrack = track;
        MS_INFO_TRACE("CMediaConnectionInfo::CreateLocalZynSession, local track=" << static_cast<void*>(track)
                                                                                  << LINE_TAIL);
    }
    if (notify) {
        ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
        ICmEventQueue* queue = main ? main->GetEventQueue() : nullptr;
        if (queue) queue->PostEvent(new CMediaReadyEvent(m_sink, m_mid, ZynDirection_Send, m_type));
    }
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::SendRTPPacket(const uint8_t*, uint32_t) { return ZYN_E_FAIL; }
ZynResult CMediaConnectionInfo::SendRTCPPacket(const uint8_t*, uint32_t) { return ZYN_E_FAIL; }

void CMediaConnectionInfo::Stop()
{
    if (m_pLocalTrack) m_pLocalTrack->Stop();
    if (m_pZynSession) {
        int32_t ignored = 0;
        m_pZynSession->StopSession(&ignored);
    }
}

void CMediaConnectionInfo::Cleanup()
{
    if (m_bCleaning) return;
    m_bCleaning = true;
    if (m_pLocalTrack) {
        if (m_pZynSession) m_pZynSession->RemoveTrack(m_pLocalTrack);
        m_pLocalTrack->Uninit();
        m_pLocalTrack->Release();
        m_pLocalTrack = nullptr;
    }
    if (m_pZynSession) {
        m_pZynSession->SetTransport(nullptr);
        m_pZynSession->Release();
        m_pZynSession = nullptr;
    }
    m_eqNetwork = nullptr;
    m_sink = nullptr;
}

}  // namespace zyn
