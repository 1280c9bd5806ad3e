// The connection's stream operations: subscriptions, QoS, telephone events, header extensions,
// the interpreter's channel, local and remote track choices, ciphers, observed sources, the adhoc
// audio path, and the epoch key operations this library has no frame encryption for.
//
// Thread: the caller's (the application's main thread). The line list changes only on the main
// thread; the lines do the work and the miss codes are answered here.
#include <cstring>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "track/CsiDB.h"
#include "util/CmTrace.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

// What each quality asks of the far end: one row per quality, 90p to 1080p.
struct QualityCapability {
    uint32_t profileLevel, mbps, fs, fpsField, dpb, bitrate;
};
constexpr QualityCapability kQualityCapabilities[] = {
    {0x42000A, 1800, 60, 3000, 180, 177000},
    {0x42000C, 7200, 240, 3000, 720, 384000},
    {0x42000D, 27600, 920, 3000, 2760, 768000},
    {0x420016, 108000, 3600, 3000, 11520, 2500000},
    {0x420016, 244800, 8160, 3000, 24300, 12000000},
};

// The application's policies 1 to 4 as the request carries them; 3 (static) asks for no policy.
int32_t convPolicyType(ZynSubscribePolicy policy)
{
    switch (policy) {
    case ZynSubscribePolicy_ReceiverSelected: return ZynSCRRequestPolicyType_ReceiverSelected;
    case ZynSubscribePolicy_ActiveSpeaker: return ZynSCRRequestPolicyType_ActiveSpeaker;
    case ZynSubscribePolicy_NonMediaSource: return ZynSCRRequestPolicyType_SourceIndexed;
    default: return ZynSCRRequestPolicyType_NonePolicy;
    }
}

// The decoded picture buffer a decoder needs for a rate and frame size (macroblocks).
uint32_t GetDpbFromScr(uint32_t mbps, uint32_t fs)
{
    if ((mbps >= 244800 && fs >= 8160) || (mbps >= 108000 && fs >= 3600)) return 24300;
    if (mbps > 27599 && fs > 919) return 11520;
    if (mbps > 7199 && fs > 239) return 2760;
    if (mbps < 1800) return 180;
    return fs > 59 ? 720 : 180;
}

bool IsVideoLine(const CMediaConnectionInfo* line)
{
    return line && (line->GetSessionType() == ZynSessionType_Video || line->GetSessionType() == ZynSessionType_ScreenShare);
}

// The one-byte flags of a request are 0 or 1.
uint8_t Flag(bool on) { return on ? 1 : 0; }

}  // namespace

ZynResult CMediaConnection::SubscribeLine(unsigned long mid, ZynSubscribePolicy policy,
                                          const _tagVideoEncodeCapability& layer, int& vid, unsigned char priority,
                                          unsigned char grouping, bool duplicate, unsigned int csi, bool avatar)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!IsVideoLine(line)) {
        MS_WARNING_TRACE("CMediaConnection::Subscribe, no video or share line, mid=" << mid << CONN_TAIL);
        return Kick("Subscribe", ZYN_E_FAIL);
    }
    ZynSimulcastRequest request{};
    request.eRequestPolicyType = convPolicyType(policy);
    request.uBitrate = layer.uMaxBitRate;
    request.uMaxMBPS = layer.uMaxMBPS;
    request.uMaxFS = static_cast<uint16_t>(std::min<uint32_t>(layer.uMaxFS, 0xFFFF));
    request.uMaxFPS = static_cast<uint16_t>(std::min<uint32_t>(layer.uMaxFPS * 100, 0xFFFF));
    switch (request.eRequestPolicyType) {
    case ZynSCRRequestPolicyType_ReceiverSelected:
    case ZynSCRRequestPolicyType_SourceIndexed:
        std::memcpy(request.policyData, &csi, sizeof csi);
        request.policyData[4] = Flag(duplicate);
        break;
    case ZynSCRRequestPolicyType_ActiveSpeaker:
        request.policyData[0] = priority;
        request.policyData[1] = grouping;
        request.policyData[3] = Flag(duplicate);
        request.policyData[4] = Flag(avatar);
        break;
    default: break;
    }
    if (request.eRequestPolicyType == ZynSCRRequestPolicyType_ActiveSpeaker ||
        request.eRequestPolicyType == ZynSCRRequestPolicyType_SourceIndexed)
        request.uBitrate2 = request.uBitrate;
    request.codecKind = 1;
    request.videoPayload[0] = ZynPayloadType_Any;
    request.videoPayload[2] = Flag(line->GetCVOSend());
    request.one = 1;
    const ZynResult r = line->Subscribe(request, layer, vid);
    MS_INFO_TRACE("CMediaConnection::Subscribe, mid=" << mid << ", policy=" << policy << ", vid=" << vid
                  << ", result=" << r << CONN_TAIL);
    return ZYN_SUCCEEDED(r) ? r : Kick("Subscribe", r);
}

ZynResult CMediaConnection::Subscribe(unsigned long mid, ZynSubscribePolicy policy, ZynVideoQualityType quality,
                                      int& vid, unsigned char priority, unsigned char grouping, bool duplicate,
                                      unsigned int csi, bool avatar, bool)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    // Sharing has no 4K layer of its own: it asks for the 1080p one.
    if (quality == ZynVideoQuality_4K && line && line->GetSessionType() == ZynSessionType_ScreenShare)
        quality = ZynVideoQuality_1080P;
    if (quality < ZynVideoQuality_90P || quality > ZynVideoQuality_1080P) return Kick("Subscribe", ZYN_E_INVALIDARG);
    const QualityCapability& q = kQualityCapabilities[quality];
    _tagVideoEncodeCapability layer{};
    layer.uProfileLevelID = q.profileLevel;
    layer.uMaxMBPS = q.mbps;
    layer.uMaxFS = q.fs;
    layer.uMaxFPS = q.fpsField / 100;
    layer.uMaxDPB = q.dpb;
    layer.uMaxBitRate = q.bitrate;
    layer.bAvatar = avatar;
    return SubscribeLine(mid, policy, layer, vid, priority, grouping, duplicate, csi, avatar);
}

ZynResult CMediaConnection::Subscribe(unsigned long mid, ZynSubscribePolicy policy, unsigned short width,
                                      unsigned short height, unsigned int fps, unsigned int bitrate, unsigned int mbps,
                                      int& vid, unsigned char priority, unsigned char grouping, bool duplicate,
                                      unsigned int csi, bool avatar, bool)
{
    if (width == 0 || height == 0 || fps == 0 || bitrate == 0) return Kick("Subscribe", ZYN_E_INVALIDARG);
    _tagVideoEncodeCapability layer{};
    layer.uMaxFS = ((width + 15u) / 16u) * ((height + 15u) / 16u);
    layer.uMaxMBPS = mbps ? mbps : layer.uMaxFS * fps;
    layer.uMaxFPS = fps;
    layer.uMaxBitRate = bitrate;
    layer.uMaxDPB = GetDpbFromScr(layer.uMaxMBPS, layer.uMaxFS);
    // The lowest profile level whose rate covers the request; above them all, the highest.
    layer.uProfileLevelID = kQualityCapabilities[std::size(kQualityCapabilities) - 1].profileLevel;
    for (const QualityCapability& q : kQualityCapabilities) {
        if (q.mbps < layer.uMaxMBPS) continue;
        layer.uProfileLevelID = q.profileLevel;
        break;
    }
    layer.uWidth = width;
    layer.uHeight = height;
    layer.bAvatar = avatar;
    return SubscribeLine(mid, policy, layer, vid, priority, grouping, duplicate, csi, avatar);
}

ZynResult CMediaConnection::Unsubscribe(unsigned long mid, unsigned char vid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("Unsubscribe", ZYN_E_FAIL);
    const ZynResult r = line->Unsubscribe(vid);
    return ZYN_SUCCEEDED(r) ? r : Kick("Unsubscribe", r);
}

ZynResult CMediaConnection::PauseQoS(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || !line->GetZynSession()) {
        CM_ASSERT_REPORT("info && info->m_pZynSession");
        return Kick("PauseQoS", ZYN_E_POINTER);
    }
    const ZynResult r = line->SetQoSState(false);
    return ZYN_SUCCEEDED(r) ? r : Kick("PauseQoS", r);
}

ZynResult CMediaConnection::ResumeQoS(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || !line->GetZynSession()) {
        CM_ASSERT_REPORT("info && info->m_pZynSession");
        return Kick("ResumeQoS", ZYN_E_POINTER);
    }
    const ZynResult r = line->SetQoSState(true);
    // The engine's refusal is reported under its historical tag, which the metrics keep.
    return ZYN_SUCCEEDED(r) ? r : Kick("REsumeQoS", r);
}

ZynResult CMediaConnection::AddObservedCSI(unsigned int csi, const char* uniqueId, unsigned long mid,
                                           ZynSessionType type)
{
    if (!uniqueId) {
        CM_ASSERT_REPORT("szUniqueID != __null");
        return Kick("AddObsCSI", ZYN_E_WRONGSTATE);
    }
    if (!FindConnection(mid)) return Kick("AddObsCSI", ZYN_E_WRONGSTATE);
    MS_INFO_TRACE("CMediaConnection::AddObservedCSI, csi=" << csi << ", uniqueId=" << uniqueId << ", mid=" << mid
                  << ", type=" << type << CONN_TAIL);
    uint32_t old = 0;
    // A source of unknown type is only looked for, never recorded.
    const bool replaced =
        type != ZynSessionType_Unknown && CCsiDB::Instance().addObservedCSI(m_callId, csi, uniqueId, type, old);
    std::vector<CMediaConnectionPtr> call = FindAllMediaConnectionsByCallID(m_callId);
    if (call.empty()) return ZYN_E_NOTFOUND;
    if (!replaced) return ZYN_S_OK;
    for (CMediaConnectionPtr& c : call)
        for (CMediaConnectionInfo* line : c->m_connections) line->UpdateRemoteCSI(old, csi);
    return ZYN_S_OK;
}

ZynResult CMediaConnection::SendTelephoneEvent(unsigned long mid, unsigned char event, unsigned short durationMs,
                                               unsigned char volume, int)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || line->GetSessionType() != ZynSessionType_Audio) {
        MS_WARNING_TRACE("CMediaConnection::SendTelephoneEvent, cannot find connection info for mid: " << mid << CONN_TAIL);
        return ZYN_E_INVALIDARG;
    }
    return line->SendTelephoneEvent(event, durationMs, volume);
}

CMediaConnectionInfo* CMediaConnection::FindEpochLine(const char* operation, unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line)
        MS_WARNING_TRACE("CMediaConnection::" << operation << ", cannot find connection info for mid: " << mid << CONN_TAIL);
    return line;
}

// Frame encryption by epoch keys needs a frame cipher in the engine that this library does not
// have: the arguments are checked so that a caller learns of its own mistakes first.
#define EPOCH_NOT_AVAILABLE(operation)                                                                       \
    do {                                                                                                     \
        MS_WARNING_TRACE("CMediaConnection::" operation ", frame encryption is not available" << CONN_TAIL); \
        return ZYN_E_NOTAVAILABLE;                                                                           \
    } while (0)

ZynResult CMediaConnection::UpdateEpochKey(unsigned long mid, unsigned long, unsigned char* key, unsigned int length,
                                           bool, unsigned int, unsigned short)
{
    if (!FindEpochLine("UpdateEpochKey", mid) || !key || length == 0) return ZYN_E_INVALIDARG;
    EPOCH_NOT_AVAILABLE("UpdateEpochKey");
}

ZynResult CMediaConnection::SetUseEpoch(unsigned long mid, unsigned long)
{
    if (!FindEpochLine("SetUseEpoch", mid)) return ZYN_E_INVALIDARG;
    EPOCH_NOT_AVAILABLE("SetUseEpoch");
}

ZynResult CMediaConnection::InitSframe(unsigned long mid, unsigned short, unsigned short)
{
    if (!FindEpochLine("InitSframe", mid)) return ZYN_E_INVALIDARG;
    EPOCH_NOT_AVAILABLE("InitSframe");
}

ZynResult CMediaConnection::PurgeKeyBefore(unsigned long mid, unsigned long)
{
    if (!FindEpochLine("PurgeKeyBefore", mid)) return ZYN_E_INVALIDARG;
    EPOCH_NOT_AVAILABLE("PurgeKeyBefore");
}

#undef EPOCH_NOT_AVAILABLE

ZynResult CMediaConnection::SubscribeAudioSI(unsigned long mid, unsigned int csi, ZynSubscribePolicy policy)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    if (csi == 0) return ZYN_E_INVALIDARG;
    return line->CreateAudioSIRemoteZynSession(m_pZynEngine, csi, convPolicyType(policy));
}

ZynResult CMediaConnection::UnsubscribeAudioSI(unsigned long mid, unsigned int csi)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return ZYN_E_FAIL;
    return line->DestroyAudioSIRemoteZynSession(csi);
}

ZynResult CMediaConnection::SetNegotiatedRemoteDirection(unsigned long mid, ZynDirection direction)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) {
        MS_WARNING_TRACE("CMediaConnection::SetNegotiatedRemoteDirection, cannot find connection info for mid: "
                         << mid << CONN_TAIL);
        return ZYN_E_INVALIDARG;
    }
    return line->SetNegotiatedRemoteDirection(direction);
}

ZynResult CMediaConnection::SetMediaContentCipher(unsigned long mid, IZynMediaTrackBase* track,
                                                  IZynMediaContentCipher* cipher)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("SetMedConCipher", ZYN_E_FAIL);
    return line->SetMediaContentCipher(track, cipher);
}

ZynResult CMediaConnection::TurnOnRTPHeaderExtensions(unsigned long mid, ZynRTPHeaderExtType* types,
                                                      unsigned char count)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("TOnRTPHExt", ZYN_E_FAIL);
    return line->TurnOnRTPHeaderExtensions(types, count);
}

ZynResult CMediaConnection::QueryRTPExtensionID(unsigned long mid, const char* uri, eStreamDirection direction,
                                                unsigned char& id)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("QRTPExtID", ZYN_E_FAIL);
    return line->QueryRTPExtensionID(uri, direction, id);
}

ZynResult CMediaConnection::CreateAdhocAudioTrack(unsigned int vid)
{
    return m_adhocAudio.CreateAdhocAudioTrack(vid, m_pZynEngine);
}

ZynResult CMediaConnection::ReceiveAdhocRTP(unsigned int vid, unsigned char* data, unsigned int length)
{
    return m_adhocAudio.ReceiveAdhocRTP(vid, data, length);
}

ZynResult CMediaConnection::IndicatePictureLoss(unsigned long mid, unsigned int vid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!IsVideoLine(line)) return Kick("IndiPicLs", ZYN_E_FAIL);
    if (vid >= static_cast<unsigned int>(CMediaTrackMgr::kSlots)) return ZYN_E_NOTFOUND;
    return line->IndicatePictureLoss(static_cast<int>(vid));
}

// The local and remote track choices share their miss: no line, no track to choose among.
#define TRACK_LINE_OR_MISS(tag)                       \
    CMediaConnectionInfo* line = FindConnection(mid); \
    if (!line) {                                      \
        CM_ASSERT_REPORT("pInfo != __null");          \
        return Kick(tag, ZYN_E_WRONGSTATE);           \
    }

ZynResult CMediaConnection::AddLocalTrack(unsigned long mid, unsigned int sourceId, unsigned char& vid)
{
    TRACK_LINE_OR_MISS("AddLocTrk");
    return line->AddLocalTrack(sourceId, vid);
}

ZynResult CMediaConnection::RemoveLocalTrack(unsigned long mid, unsigned int sourceId)
{
    TRACK_LINE_OR_MISS("RemvLocTrk");
    return line->RemoveLocalTrack(sourceId);
}

ZynResult CMediaConnection::SetActiveLocalTrack(unsigned long mid, unsigned int sourceId)
{
    TRACK_LINE_OR_MISS("SetActLocTrk");
    return line->SetActiveLocalTrack(sourceId);
}

ZynResult CMediaConnection::SetActiveRemoteTrack(unsigned long mid, unsigned char vid)
{
    TRACK_LINE_OR_MISS("SetActRmtTrk");
    return line->SetActiveRemoteTrack(vid);
}

#undef TRACK_LINE_OR_MISS

}  // namespace zyn
