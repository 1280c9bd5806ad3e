// What the application asks of one line's streams beyond offer and answer: subscriptions and the
// SCR they make, QoS, telephone events and picture loss, header extensions, the interpreter's
// channel, more local sources, the active streams, ciphers and the far end's direction.
//
// Threads: main thread, as the connection's public calls. The track managers guard their own
// tables; the members here are the main thread's only.
#include <algorithm>
#include <cstring>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

struct HeaderExtension {
    ZynRTPHeaderExtType type;
    const char* uri;
};
constexpr HeaderExtension kHeaderExtensions[] = {
    {ZynRTPHeaderExt_AudioLevel, "urn:ietf:params:rtp-hdrext:ssrc-audio-level"},
    {ZynRTPHeaderExt_CsrcAudioLevel, "urn:ietf:params:rtp-hdrext:csrc-audio-level"},
    {ZynRTPHeaderExt_TransmissionOffset, "urn:ietf:params:rtp-hdrext:toffset"},
    {ZynRTPHeaderExt_VideoOrientation, "urn:3gpp:video-orientation"},
    {ZynRTPHeaderExt_FrameMarking, "urn:ietf:params:rtp-hdrext:framemarking"},
    {ZynRTPHeaderExt_Mid, "urn:ietf:params:rtp-hdrext:sdes:mid"},
};
// Ids of the one-byte header form (RFC 8285); 15 is reserved there.
constexpr uint8_t kFirstExtensionId = 1, kLastExtensionId = 14;

const char* UriOf(ZynRTPHeaderExtType type)
{
    for (const HeaderExtension& e : kHeaderExtensions)
        if (e.type == type) return e.uri;
    return nullptr;
}

// Telephone events this line offers ("0-15"): the DTMF digits and A to D.
constexpr uint8_t kLastTelephoneEvent = 15;
constexpr int kSiStreams = 2;
// An interpreter's channel is audio: what one stream of it may spend.
constexpr uint32_t kSiBitrate = 64000;

}  // namespace

ZynResult CMediaConnectionInfo::Subscribe(ZynSimulcastRequest request, const _tagVideoEncodeCapability& layer, int& vid)
{
    if (!m_pRemoteTrack || m_pRemoteTrack->GetCount() == 0) return ZYN_E_WRONGSTATE;
    CZynAutoPtr<CMediaTrack> track;
    for (int v : m_pRemoteTrack->GetVids()) {
        CZynAutoPtr<CMediaTrack> t = GetVideoRemoteTrack(v);
        if (!t || t->HasRequest()) continue;
        track = t;
        vid = v;
        break;
    }
    if (!track) {
        MS_WARNING_TRACE("CMediaConnectionInfo::Subscribe, every remote stream is subscribed" << LINE_TAIL);
        return ZYN_E_NOTFOUND;
    }
    request.vid = static_cast<uint8_t>(vid);
    _tagVideoSubscribeMultiStream record{};
    record.uNumStreams = 1;
    record.stStreams[0] = layer;
    record.stStreams[0].uVids[0] = static_cast<uint8_t>(vid);
    record.stStreams[0].uNumVids = 1;
    const ZynResult r = track->SubscribeMutlistream(record);
    if (!ZYN_SUCCEEDED(r)) return r;
    track->SetRequest(request);
    MS_INFO_TRACE("CMediaConnectionInfo::Subscribe, vid=" << vid << ", policy=" << request.eRequestPolicyType
                  << ", maxFS=" << request.uMaxFS << ", bitrate=" << request.uBitrate << LINE_TAIL);
    SendSCR();
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::Unsubscribe(int vid)
{
    CZynAutoPtr<CMediaTrack> track = GetVideoRemoteTrack(vid);
    if (!track || !track->HasRequest()) return ZYN_E_NOTFOUND;
    const _tagVideoSubscribeMultiStream none{};
    const ZynResult r = track->SubscribeMutlistream(none);
    if (!ZYN_SUCCEEDED(r)) return r;
    track->ClearRequest();
    MS_INFO_TRACE("CMediaConnectionInfo::Unsubscribe, vid=" << vid << LINE_TAIL);
    SendSCR();
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::SendSCR()
{
    if (!m_pZynSession || m_bCleaning) return ZYN_S_FALSE;
    std::vector<ZynSimulcastRequest> requests;
    if (m_pRemoteTrack) m_pRemoteTrack->GetRequsts(requests);
    // The interpreter's channel is asked for as soon as the application subscribes to it, before
    // it starts playing: its streams would otherwise wait for a request to start arriving.
    for (int vid : m_siVids) {
        CZynAutoPtr<CMediaTrack> track = vid >= 0 ? GetVideoRemoteTrack(vid) : CZynAutoPtr<CMediaTrack>();
        if (!track || !track->HasRequest() || track->GetRequest(false)) continue;
        requests.push_back(*track->GetRequest(true));
    }
    // The count goes in eight bits.
    if (requests.size() > 255) requests.resize(255);
    const ZynSimulcastRequest* data = requests.empty() ? nullptr : requests.data();
    const ZynSimulcastRequest none{};
    MS_DETAIL_TRACE("CMediaConnectionInfo::SendSCR, count=" << requests.size() << LINE_TAIL);
    return m_pZynSession->SetOption(ZynSessionOption_SubscribeRequests, data ? static_cast<const void*>(data) : &none,
                                    static_cast<uint32_t>(requests.size() * sizeof(ZynSimulcastRequest)));
}

ZynResult CMediaConnectionInfo::UpdateRemoteCSI(uint32_t oldCsi, uint32_t newCsi)
{
    if (!m_pRemoteTrack) return 30000005;
    bool changed = false;
    for (int vid : m_pRemoteTrack->GetVids()) {
        CZynAutoPtr<CMediaTrack> track = GetVideoRemoteTrack(vid);
        if (!track || !track->HasRequest()) continue;
        ZynSimulcastRequest request = *track->GetRequest(true);
        uint32_t selected = 0;
        std::memcpy(&selected, request.policyData, sizeof selected);
        if (request.eRequestPolicyType != ZynSCRRequestPolicyType_ReceiverSelected || selected != oldCsi) continue;
        std::memcpy(request.policyData, &newCsi, sizeof newCsi);
        track->SetRequest(request);
        changed = true;
        MS_INFO_TRACE("CMediaConnectionInfo::UpdateRemoteCSI, csiClash=" << oldCsi << ", newCsi=" << newCsi
                      << ", vid=" << vid << LINE_TAIL);
    }
    if (!changed) return ZYN_E_NOTFOUND;
    SendSCR();
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::SetQoSState(bool running)
{
    if (!m_pZynSession) return ZYN_E_POINTER;
    const ZynQosStateRecord record{ZynDirection_Send, running ? 1 : 0};
    return m_pZynSession->SetOption(ZynSessionOption_QosState, &record, sizeof record);
}

ZynResult CMediaConnectionInfo::SendTelephoneEvent(uint8_t event, uint16_t durationMs, uint8_t volume)
{
    if (event > kLastTelephoneEvent || durationMs == 0 || volume > 63) return ZYN_E_INVALIDARG;
    if (!m_pZynSession || !IsConnected()) return ZYN_E_FAIL;
    const ZynResult r = m_pZynSession->SendTelephoneEvent(event, durationMs, volume);
    MS_INFO_TRACE("CMediaConnectionInfo::SendTelephoneEvent, event=" << int(event) << ", duration=" << durationMs
                  << ", volume=" << int(volume) << ", result=" << r << LINE_TAIL);
    return ZYN_SUCCEEDED(r) ? r : ZYN_E_FAIL;
}

ZynResult CMediaConnectionInfo::IndicatePictureLoss(int vid)
{
    if (!GetVideoRemoteTrack(vid)) return ZYN_E_NOTFOUND;
    if (!m_pZynSession || !IsConnected()) return ZYN_E_WRONGSTATE;
    MS_INFO_TRACE("CMediaConnectionInfo::IndicatePictureLoss, vid=" << vid << LINE_TAIL);
    return m_pZynSession->SendPictureLoss();
}

ZynResult CMediaConnectionInfo::TurnOnRTPHeaderExtensions(const ZynRTPHeaderExtType* types, unsigned count)
{
    if (!types || count == 0) return ZYN_E_INVALIDARG;
    for (unsigned i = 0; i < count; ++i)
        if (!UriOf(types[i])) return ZYN_E_INVALIDARG;
    for (unsigned i = 0; i < count; ++i) {
        const std::string uri = UriOf(types[i]);
        auto known = std::find_if(m_headerExtensions.begin(), m_headerExtensions.end(),
                                  [&](const auto& e) { return e.first == uri; });
        if (known != m_headerExtensions.end()) continue;
        uint8_t id = kFirstExtensionId;
        while (id <= kLastExtensionId && std::any_of(m_headerExtensions.begin(), m_headerExtensions.end(),
                                                     [&](const auto& e) { return e.second == id; }))
            ++id;
        if (id > kLastExtensionId) return ZYN_E_FAIL;
        m_headerExtensions.emplace_back(uri, id);
        MS_INFO_TRACE("CMediaConnectionInfo::TurnOnRTPHeaderExtensions, id=" << int(id) << ", uri=" << uri << LINE_TAIL);
    }
    return ZYN_S_OK;
}

void CMediaConnectionInfo::buildExtMaps(std::vector<sdp::ext_map>& out) const
{
    for (const auto& [uri, id] : m_headerExtensions) out.emplace_back(id, sdp::ext_map_sendrecv, uri);
}

ZynResult CMediaConnectionInfo::QueryRTPExtensionID(const char* uri, eStreamDirection direction, uint8_t& id)
{
    if (!uri) return ZYN_E_INVALIDARG;
    // What the far end sends with is what its description said; what we send with is what the
    // negotiation agreed for our side, or, before one, what we offer.
    const std::vector<sdp::ext_map>& agreed = m_extMaps[direction == eStreamDirection_In ? 0 : 1];
    for (const sdp::ext_map& m : agreed) {
        if (m.get_uri() != uri || m.get_id() > 255) continue;
        id = static_cast<uint8_t>(m.get_id());
        return ZYN_S_OK;
    }
    if (direction == eStreamDirection_Out) {
        for (const auto& [known, value] : m_headerExtensions) {
            if (known != uri) continue;
            id = value;
            return ZYN_S_OK;
        }
    }
    return ZYN_E_NOTFOUND;
}

ZynResult CMediaConnectionInfo::CreateAudioSIRemoteZynSession(IZynMediaEngineInternal* engine, uint32_t csi,
                                                              int32_t policy)
{
    MS_INFO_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, begin... CSI = " << csi << LINE_TAIL);
    if (m_type != ZynSessionType_Audio) {
        MS_ERROR_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, Session Type error!" << LINE_TAIL);
        return ZYN_E_FAIL;
    }
    if (!engine || !m_pZynSession || !m_pRemoteTrack) {
        MS_ERROR_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, Not initialize!" << LINE_TAIL);
        return ZYN_E_WRONGSTATE;
    }
    if (m_siVids[0] >= 0) {
        MS_ERROR_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, Can NOT subcribe another language before "
                       "unsubcribe the previous one" << LINE_TAIL);
        return ZYN_E_WRONGSTATE;
    }
    std::vector<CZynAutoPtr<CMediaTrack>> made;
    ZynResult r = ZYN_S_OK;
    for (int i = 0; i < kSiStreams && ZYN_SUCCEEDED(r); ++i) {
        CZynAutoPtr<CMediaTrack> track(new CMediaTrack(this, GetIdentityCallId()));
        r = track->Init(engine, m_type, ZynDirection_Recv, false, ZynSourceType_Remote, policy);
        int vid = -1;
        if (ZYN_SUCCEEDED(r)) r = m_pRemoteTrack->Push(track.get(), &vid);
        if (!ZYN_SUCCEEDED(r)) {
            track->UnInit();
            break;
        }
        m_siVids[i] = vid;
        track->GetTrack()->SetLabel(static_cast<uint32_t>(vid));
        r = m_pZynSession->AddTrack(track->GetTrack());
        m_vidHasTrack[vid].store(true, std::memory_order_release);
        ZynSimulcastRequest request{};
        request.eRequestPolicyType = policy;
        request.vid = static_cast<uint8_t>(vid);
        request.uBitrate = request.uBitrate2 = kSiBitrate;
        std::memcpy(request.policyData, &csi, sizeof csi);
        request.audioPayload[0] = ZynPayloadType_Any;
        request.one = 1;
        track->SetRequest(request);
        made.push_back(track);
    }
    if (!ZYN_SUCCEEDED(r)) {
        MS_ERROR_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, end! Ret = " << r << LINE_TAIL);
        for (int& vid : m_siVids) {
            if (vid >= 0) {
                m_vidHasTrack[vid].store(false, std::memory_order_release);
                m_pRemoteTrack->RemoveRemoteTrack(vid, m_pZynSession);
            }
            vid = -1;
        }
        return r;
    }
    m_siCsi = csi;
    MS_INFO_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, UpdateRequest==> OnMediaReady" << LINE_TAIL);
    SendSCR();
    for (auto& track : made) PostMediaReady(ZynDirection_Recv, track.get());
    MS_INFO_TRACE("CMediaConnectionInfo::CreateAudioSIRemoteZynSession, end! Ret = " << r << LINE_TAIL);
    return r;
}

ZynResult CMediaConnectionInfo::DestroyAudioSIRemoteZynSession(uint32_t csi)
{
    MS_INFO_TRACE("CMediaConnectionInfo::DestroyAudioSIRemoteZynSession, begin... CSI = " << csi << LINE_TAIL);
    if (m_type != ZynSessionType_Audio) {
        MS_ERROR_TRACE("CMediaConnectionInfo::DestroyAudioSIRemoteZynSession, Session Type error!" << LINE_TAIL);
        return ZYN_E_FAIL;
    }
    if (!m_pZynSession || !m_pRemoteTrack) {
        MS_ERROR_TRACE("CMediaConnectionInfo::DestroyAudioSIRemoteZynSession, Not initialize!" << LINE_TAIL);
        return ZYN_E_WRONGSTATE;
    }
    if (m_siVids[0] < 0 || csi != m_siCsi) {
        MS_WARNING_TRACE("CMediaConnectionInfo::DestroyAudioSIRemoteZynSession, The SI remote session has been destoryed!"
                         << LINE_TAIL);
        return ZYN_E_NOTFOUND;
    }
    for (int& vid : m_siVids) {
        m_vidHasTrack[vid].store(false, std::memory_order_release);
        m_pRemoteTrack->RemoveRemoteTrack(vid, m_pZynSession);
        vid = -1;
    }
    m_siCsi = 0;
    SendSCR();
    MS_INFO_TRACE("CMediaConnectionInfo::DestroyAudioSIRemoteZynSession, end!" << LINE_TAIL);
    return ZYN_S_OK;
}

int CMediaConnectionInfo::FindLocalVid(uint32_t sourceId)
{
    if (!m_pLocalTrack) return -1;
    for (int vid : m_pLocalTrack->GetVids()) {
        CMediaTrack* t = nullptr;
        m_pLocalTrack->QueryTrack(vid, &t);
        CZynAutoPtr<CMediaTrack> track(t, false);
        if (track && track->GetTrack() && track->GetTrackLabel() == sourceId) return vid;
    }
    return -1;
}

ZynResult CMediaConnectionInfo::AddLocalTrack(uint32_t sourceId, uint8_t& vid)
{
    if (!m_pLocalTrack) return ZYN_E_WRONGSTATE;
    if (FindLocalVid(sourceId) >= 0) return ZYN_E_DUPLICATE;
    CZynAutoPtr<CMediaTrack> track(new CMediaTrack(this, GetIdentityCallId()));
    ZynResult r = InitLocalTrack(track.get());
    if (ZYN_SUCCEEDED(r)) r = track->GetTrack()->SetLabel(sourceId);
    int slot = -1;
    if (ZYN_SUCCEEDED(r)) r = m_pLocalTrack->Push(track.get(), &slot);
    if (!ZYN_SUCCEEDED(r)) {
        if (track->GetTrack() && m_pZynSession) m_pZynSession->RemoveTrack(track->GetTrack());
        track->UnInit();
        return r;
    }
    vid = static_cast<uint8_t>(slot);
    MS_INFO_TRACE("CMediaConnectionInfo::AddLocalTrack, sourceId=" << sourceId << ", vid=" << slot << LINE_TAIL);
    ApplyLocalSending();
    PostMediaReady(ZynDirection_Send, track.get());
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::RemoveLocalTrack(uint32_t sourceId)
{
    const int vid = FindLocalVid(sourceId);
    // The line's own source stays as long as the line: only added ones go.
    if (vid <= 0) return ZYN_E_NOTFOUND;
    MS_INFO_TRACE("CMediaConnectionInfo::RemoveLocalTrack, sourceId=" << sourceId << ", vid=" << vid << LINE_TAIL);
    m_pLocalTrack->RemoveRemoteTrack(vid, m_pZynSession);
    if (m_bActiveSourceSet && m_activeSourceId == sourceId) m_bActiveSourceSet = false;
    ApplyLocalSending();
    return ZYN_S_OK;
}

ZynResult CMediaConnectionInfo::SetActiveLocalTrack(uint32_t sourceId)
{
    if (FindLocalVid(sourceId) < 0) return ZYN_E_NOTFOUND;
    m_activeSourceId = sourceId;
    m_bActiveSourceSet = true;
    MS_INFO_TRACE("CMediaConnectionInfo::SetActiveLocalTrack, sourceId=" << sourceId << LINE_TAIL);
    ApplyLocalSending();
    return ZYN_S_OK;
}

void CMediaConnectionInfo::ApplyLocalSending()
{
    if (!m_pLocalTrack) return;
    const bool farEndTakes = (m_remoteDirection & ZynDirection_Recv) != 0;
    for (int vid : m_pLocalTrack->GetVids()) {
        CMediaTrack* t = nullptr;
        m_pLocalTrack->QueryTrack(vid, &t);
        CZynAutoPtr<CMediaTrack> track(t, false);
        if (!track || !track->GetTrack()) continue;
        // Without a choice the line's own source sends, as before any source was added.
        const bool active = m_bActiveSourceSet ? track->GetTrackLabel() == m_activeSourceId : vid == 0;
        const bool send = farEndTakes && active;
        // Nothing starts sending before the path is up; the connect turns the line's source on.
        if (send && !IsConnected()) continue;
        // A track that already does what it should refuses the change; that is no failure.
        if (track->isStartSending() != send) track->StartSending(send);
    }
}

ZynResult CMediaConnectionInfo::SetActiveRemoteTrack(int vid)
{
    CZynAutoPtr<CMediaTrack> track = GetVideoRemoteTrack(vid);
    if (!track || !track->GetTrack() || !m_pZynSession) return ZYN_E_NOTFOUND;
    uint32_t label = 0;
    track->GetTrack()->GetLabel(label);
    MS_INFO_TRACE("CMediaConnectionInfo::SetActiveRemoteTrack, vid=" << vid << LINE_TAIL);
    return m_pZynSession->SetOption(ZynSessionOption_ActiveRemoteLabel, &label, sizeof label);
}

ZynResult CMediaConnectionInfo::SetMediaContentCipher(IZynMediaTrackBase* target, IZynMediaContentCipher* cipher)
{
    if (!cipher) return ZYN_E_INVALIDARG;
    bool found = false;
    ZynResult result = ZYN_S_OK;
    for (CMediaTrackMgr* tracks : {m_pLocalTrack.get(), m_pRemoteTrack.get()}) {
        if (!tracks) continue;
        for (int vid : tracks->GetVids()) {
            CMediaTrack* t = nullptr;
            tracks->QueryTrack(vid, &t);
            CZynAutoPtr<CMediaTrack> track(t, false);
            if (!track || (target && static_cast<IZynMediaTrackBase*>(track.get()) != target)) continue;
            found = true;
            const ZynResult r = track->SetMediaContentCipher(cipher);
            if (!ZYN_SUCCEEDED(r)) result = r;
        }
    }
    return found || !target ? result : ZYN_E_NOTFOUND;
}

ZynResult CMediaConnectionInfo::SetNegotiatedRemoteDirection(ZynDirection direction)
{
    if (direction < ZynDirection_None || direction > ZynDirection_SendRecv) return ZYN_E_INVALIDARG;
    MS_INFO_TRACE("CMediaConnectionInfo::SetNegotiatedRemoteDirection, direction=" << direction << LINE_TAIL);
    m_remoteDirection = direction;
    // Before the path is up nothing is sent anyway; the connect starts what should send.
    if (IsConnected()) ApplyLocalSending();
    return ZYN_S_OK;
}

}  // namespace zyn
