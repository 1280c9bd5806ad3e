// What a track asks of its engine track beyond start and stop: the video request of a remote
// stream, orientation and key frames, playout buffer, hardware and AV1 encoding, recording, and
// the configuration written again at each start (RestoreOptions).
//
// Threads: main thread. The options lock guards what the application and the line both set.
#include <algorithm>
#include <cstring>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "perf/StaticPerformance.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// Track option ids of the engine (sizes in the comments).
constexpr int32_t kOptionPerformance = 0;        // 4
constexpr int32_t kOptionFaceDetection = 4;      // 1
constexpr int32_t kOptionSubscribe = 19;         // 328
constexpr int32_t kOptionFrameRateLimit = 20;    // 4
constexpr int32_t kOptionAv1 = 22;               // 1
constexpr int32_t kOptionAv1Mode = 23;           // 1
constexpr int32_t kOptionForceLandscape = 28;    // 1
constexpr int32_t kOptionCvo = 29;               // 1
constexpr int32_t kOption90p = 32;               // 1
constexpr int32_t kOption1080p = 33;             // 1
constexpr int32_t kOptionAdaptiveFps = 34;       // 1
constexpr int32_t kOptionOrientation = 36;       // 4, degrees
constexpr int32_t kOptionAv1Rgb = 53;            // 1
constexpr int32_t kOptionBlockCheck = 59;        // 4, milliseconds
constexpr int32_t kOptionVoiceDb = 13;           // 4, the engine's measure
constexpr int32_t kOptionPlayBuffer = 146;       // 8: minimum and maximum milliseconds
constexpr int32_t kOptionSetVid = 70;            // 16
constexpr int32_t kOptionExternalRender = 151;   // 1
constexpr int32_t kOptionRemote56 = 56, kOptionRemote60 = 60, kOptionRemote62 = 62, kOptionSuperResolution = 64;

// Option 70's record: the slot the far end asked this source into, and the source it names.
struct SetVidRecord {
    uint8_t vid;
    uint8_t reserved[3];
    uint32_t csi;
    uint64_t reserved2;
};
static_assert(sizeof(SetVidRecord) == 16, "option 70 is a 16-byte record");

// What each quality asks for: frame size in macroblocks, frames a second times 100, bits a second.
struct QualityLimits {
    uint16_t maxFs;
    uint16_t maxFps;
    uint32_t bitrate;
};
constexpr QualityLimits kQualityLimits[] = {
    {60, 1500, 150000},     // 90p: 160x90 at 15 fps
    {240, 3000, 300000},    // 180p: 320x180
    {920, 3000, 800000},    // 360p: 640x360
    {3600, 3000, 1500000},  // 720p
    {8160, 3000, 4000000},  // 1080p
};

template <class T>
ZynResult SetValue(IZynMediaTrack* t, int32_t id, T value)
{
    return t->SetOption(id, &value, sizeof value);
}

// Performance levels 0 to 4; anything else counts as the middle one.
int32_t ConvPerformanceLevel(int32_t level) { return level >= 0 && level <= 4 ? level : 2; }

}  // namespace

ZynResult CMediaTrack::StoreVideoRequest(const CVideoRequest& request)
{
    if (!IsRemoteVideo()) return WriteMetricsError("MedTrck_ReqV", ZYN_E_FAIL);
    if (!m_pTrack) return WriteMetricsError("MedTrck_ReqV", ZYN_E_NOTRACK);
    MS_INFO_TRACE("CMediaTrack::RequestVideo, maxFS=" << request.maxFs << ", maxFPS=" << request.maxFps
                  << ", bitrate=" << request.bitrate << ", priority=" << int(request.priority) << TRACK_TAIL);
    // The subscription this track stands for takes the new limits; the policy and the source it was
    // made with stay, and a track that had none asks by the policy it was given at Init.
    ZynSimulcastRequest record = m_request;
    if (m_bNoRequest) {
        record = ZynSimulcastRequest{};
        record.eRequestPolicyType = m_ePolicy;
        record.one = 1;
    }
    int vid = 0;
    if (ZYN_SUCCEEDED(GetVid(vid))) record.vid = static_cast<uint8_t>(vid);
    record.uBitrate = request.bitrate;
    record.uMaxMBPS = request.maxMbps;
    record.uMaxFS = request.maxFs;
    record.uMaxFPS = request.maxFps;
    if (record.codecKind == 0) record.codecKind = 1;  // a video request: H.264 unless AV1 was agreed
    if (record.eRequestPolicyType == ZynSCRRequestPolicyType_ActiveSpeaker) {
        record.policyData[0] = request.priority;
        record.policyData[1] = request.grouping;
    }
    SetRequest(record);
    RequestsChangedOnLine();
    return ZYN_S_OK;
}

ZynResult CMediaTrack::RequestVideo(ZynVideoQualityType quality)
{
    return RequestVideo(quality, 255, 0, 0);
}

ZynResult CMediaTrack::RequestVideo(ZynVideoQualityType quality, unsigned char priority, unsigned char grouping,
                                    unsigned int flags)
{
    if (quality < ZynVideoQuality_90P || quality > ZynVideoQuality_1080P)
        return WriteMetricsError("MedTrck_ReqV", ZYN_E_INVALIDARG);
    const QualityLimits& q = kQualityLimits[quality];
    CVideoRequest request;
    request.quality = quality;
    request.priority = priority;
    request.grouping = grouping;
    request.flags = flags;
    request.maxFs = q.maxFs;
    request.maxFps = q.maxFps;
    request.maxMbps = static_cast<uint32_t>(uint64_t{q.maxFs} * q.maxFps / 100);
    request.bitrate = q.bitrate;
    return StoreVideoRequest(request);
}

ZynResult CMediaTrack::RequestVideo(unsigned int maxMbps, unsigned short maxFs, unsigned short maxFps,
                                    unsigned int bitrate)
{
    if (maxFs == 0 || maxFps == 0 || bitrate == 0) return WriteMetricsError("MedTrck_ReqV", ZYN_E_INVALIDARG);
    CVideoRequest request;
    request.maxFs = maxFs;
    request.maxFps = maxFps;
    request.maxMbps = maxMbps ? maxMbps : static_cast<uint32_t>(uint64_t{maxFs} * maxFps / 100);
    request.bitrate = bitrate;
    return StoreVideoRequest(request);
}

// The line builds its next subscription from every track's request when it sends one; the track
// only marks that its own changed by holding it.
void CMediaTrack::RequestsChangedOnLine()
{
    if (m_pConnectionInfo)
        MS_DETAIL_TRACE("CMediaTrack::RequestsChangedOnLine, mid=" << m_pConnectionInfo->GetMid() << TRACK_TAIL);
}

// What this track itself takes of the line's subscription: one stream once it asked for one.
unsigned int CMediaTrack::SubscribedCountOfLine() const { return m_bNoRequest ? 0 : 1; }

ZynResult CMediaTrack::GetSuscribedCount(unsigned int& count)
{
    if (!IsRemoteVideo()) return ZYN_E_FAIL;
    std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
    count = SubscribedCountOfLine();
    return ZYN_S_OK;
}

ZynResult CMediaTrack::AudioDeviceNotification(IZynMediaDevice* device, bool added)
{
    const char* tag = "MedTrck_AudDevNotfy";
    if (!IsAudio()) return WriteMetricsError(tag, ZYN_E_FAIL);
    if (!device) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    const ZynDeviceKind wanted = m_eDirection == ZynDirection_Send ? ZynDevice_Microphone : ZynDevice_Speaker;
    if (device->GetDeviceKind() != wanted) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    MS_INFO_TRACE("CMediaTrack::AudioDeviceNotification, device=" << device->GetDeviceName() << ", added=" << added
                  << TRACK_TAIL);
    if (added || m_eDirection != ZynDirection_Send) return m_pTrack ? ZYN_S_OK : WriteMetricsError(tag, ZYN_E_NOTRACK);
    // The device in use went away: the capture falls back to the system's default.
    return TrackCall(tag, [&](IZynMediaTrack* t) {
        IZynMediaDevice* current = t->GetDevice();
        const bool inUse = current == device;
        if (current) current->Release();
        return inUse ? t->SetDevice(nullptr) : ZYN_S_FALSE;
    });
}

ZynResult CMediaTrack::SetAudioPlayBufferTime(int minMs, int maxMs)
{
    const char* tag = "MedTrck_SetAPlyBufTs";
    if (!IsAudio() || m_eDirection != ZynDirection_Recv) return WriteMetricsError(tag, ZYN_E_FAIL);
    if (minMs < 0 || maxMs < minMs) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    const int32_t bounds[2] = {minMs, maxMs};
    const ZynResult r = TrackCall(tag, [&](IZynMediaTrack* t) { return t->SetOption(kOptionPlayBuffer, bounds, sizeof bounds); });
    if (ZYN_SUCCEEDED(r)) {
        std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
        m_playBufferMin = minMs;
        m_playBufferMax = maxMs;
    }
    return r;
}

ZynResult CMediaTrack::GetAudioPlayBufferTime(int& minMs, int& maxMs)
{
    const char* tag = "MedTrck_GetAPlyBufTs";
    if (!IsAudio() || m_eDirection != ZynDirection_Recv) return WriteMetricsError(tag, ZYN_E_FAIL);
    int32_t bounds[2] = {-1, -1};
    uint32_t size = sizeof bounds;
    const ZynResult r = TrackCall(tag, [&](IZynMediaTrack* t) {
        const ZynResult got = t->GetOption(kOptionPlayBuffer, bounds, size);
        // Never set: the engine's own bounds, told as -1.
        return got == ZYN_E_NOTFOUND ? ZYN_S_OK : got;
    });
    if (ZYN_SUCCEEDED(r)) {
        minMs = bounds[0];
        maxMs = bounds[1];
    }
    return r;
}

ZynResult CMediaTrack::ChangeOrientation(int degrees)
{
    const char* tag = "MedTrck_ChgOri";
    if (!IsLocalVideo()) return WriteMetricsError(tag, ZYN_E_FAIL);
    if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    // A landscape the application forced holds against the device's turns.
    if (m_bForceLandscape && (degrees == 90 || degrees == 270)) return ZYN_S_FALSE;
    return TrackCall(tag, [&](IZynMediaTrack* t) { return SetValue<int32_t>(t, kOptionOrientation, degrees); });
}

ZynResult CMediaTrack::ForceKeyframe()
{
    const char* tag = "MedTrck_ForceKeyFrm";
    if (!IsLocalVideo()) return WriteMetricsError(tag, ZYN_E_FAIL);
    // Asked by the application itself: no stream of the far end names a reason.
    const ZynKeyFrameRequest request{};
    return TrackCall(tag, [&](IZynMediaTrack* t) {
        return t->SendCommand(ZynTrackCommand_KeyFrameRequest, &request, sizeof request);
    });
}

ZynResult CMediaTrack::ForceLandscape(bool landscape)
{
    if (m_eZynSessionType != ZynSessionType_Video) return ZYN_E_FAIL;
    const ZynResult r = TrackCall("MedTrck_ForceLandscape",
                                  [&](IZynMediaTrack* t) { return SetValue<uint8_t>(t, kOptionForceLandscape, landscape); });
    if (ZYN_SUCCEEDED(r)) m_bForceLandscape = landscape;
    return r;
}

ZynResult CMediaTrack::SetMediaBlockCheckingTimerInterval(unsigned int intervalMs)
{
    const char* tag = "MedTrck_SetMediaBlkChckT";
    if (!IsRemoteVideo()) return WriteMetricsError(tag, ZYN_E_FAIL);
    if (intervalMs == 0) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    return TrackCall(tag, [&](IZynMediaTrack* t) { return SetValue<uint32_t>(t, kOptionBlockCheck, intervalMs); });
}

ZynResult CMediaTrack::GetAudioEnergy(unsigned int, unsigned int& energy)
{
    if (!IsAudio()) return ZYN_E_FAIL;
    unsigned int level = 0;
    const ZynResult r = GetVoiceLevel(level);
    if (ZYN_SUCCEEDED(r)) energy = level;
    return r;
}

// Only the multistream audio track has per-source options.
ZynResult CMediaTrack::DoAudioSIOption(unsigned char, int, void*, unsigned int) { return ZYN_E_NOTAVAILABLE; }

ZynResult CMediaTrack::GetVoiceDBLevel(int& db)
{
    if (!IsAudio()) return WriteMetricsError("MedTrck_GetVoicLev", ZYN_E_FAIL);
    if (!m_pTrack) return WriteMetricsError("MedTrck_GetVoicLev", ZYN_E_NOTRACK);
    // Silence where nothing is measured: a stopped or muted track, or an engine with no measure yet.
    constexpr int kSilenceDb = -127;
    int32_t value = kSilenceDb;
    uint32_t size = sizeof value;
    if (!m_bStarted.load() || m_bMuted.load() || !ZYN_SUCCEEDED(m_pTrack->GetOption(kOptionVoiceDb, &value, size)))
        value = kSilenceDb;
    db = value;
    return ZYN_S_OK;
}

ZynResult CMediaTrack::SetVid(unsigned char vid)
{
    if (!IsAudio() || m_eDirection != ZynDirection_Send) return ZYN_E_FAIL;
    SetVidRecord record{};
    record.vid = vid;
    record.csi = GetTrackLabel();
    return TrackCall(nullptr, [&](IZynMediaTrack* t) { return t->SetOption(kOptionSetVid, &record, sizeof record); });
}

ZynResult CMediaTrack::SetupCVO(bool enable)
{
    if (m_eZynSessionType != ZynSessionType_Video) return ZYN_E_FAIL;
    return TrackCall(nullptr, [&](IZynMediaTrack* t) { return SetValue<uint8_t>(t, kOptionCvo, enable); });
}

ZynResult CMediaTrack::SetMediaContentCipher(IZynMediaContentCipher* cipher)
{
    const char* tag = "MedTrck_SetMedConCipher";
    if (!cipher) return WriteMetricsError(tag, ZYN_E_INVALIDARG);
    return TrackCall(tag, [&](IZynMediaTrack* t) { return t->Attach(ZynTrackAttach_Cipher, cipher); });
}

ZynResult CMediaTrack::EnableHwEncode(bool on)
{
    return TrackCall(nullptr, [&](IZynMediaTrack* t) { return SetValue<uint8_t>(t, ZynTrackOption_HardwareEncode, on); });
}

// The engine keeps the subscription record on the engine track; after a restart it is written
// again so that the encoder, started anew, takes it up.
void CMediaTrack::ReapplySubscription()
{
    uint8_t record[328];
    uint32_t size = sizeof record;
    if (m_pTrack && ZYN_SUCCEEDED(m_pTrack->GetOption(kOptionSubscribe, record, size)))
        m_pTrack->SetOption(kOptionSubscribe, record, size);
}

ZynResult CMediaTrack::EnableHardwareCodec(int mode)
{
    {
        std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
        m_packetizationMode = mode;
    }
    if (!IsLocalVideo()) return ZYN_E_FAIL;
    if (!m_pTrack) return ZYN_E_NOTRACK;
    const bool wanted = mode == 1;
    uint8_t current = 0;
    uint32_t size = sizeof current;
    if (!ZYN_SUCCEEDED(m_pTrack->GetOption(ZynTrackOption_HardwareEncode, &current, size))) current = 0;
    if ((current != 0) == wanted) return ZYN_S_FALSE;
    if (!m_bStarted.load()) return EnableHwEncode(wanted);
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStopping) {
            MS_INFO_TRACE("CMediaTrack::EnableHardwareCodec, it is in stopping so return ok" << TRACK_TAIL);
            return ZYN_S_OK;
        }
        m_bStopping = true;
    }
    // The encoder is chosen when the engine track starts: stop, switch, start again.
    if (!m_mutexVideoCap.try_lock()) {
        CM_ASSERT_REPORT("ZYN_SUCCEEDED(m_mutexVideoCap.TryLock())");
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        m_bStopping = false;
        return ZYN_E_FAIL;
    }
    m_pTrack->Stop();
    m_mutexVideoCap.unlock();
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        m_bStopping = false;
    }
    ZynResult r = EnableHwEncode(wanted);
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        if (m_bStarting) {
            MS_INFO_TRACE("CMediaTrack::EnableHardwareCodec, it is in starting so return ok" << TRACK_TAIL);
            return r;
        }
        m_bStarting = true;
    }
    if (m_mutexVideoCap.try_lock()) {
        const ZynResult started = m_pTrack->Start();
        m_mutexVideoCap.unlock();
        if (!ZYN_SUCCEEDED(started)) r = started;
    } else {
        r = ZYN_E_FAIL;
    }
    {
        std::lock_guard<std::recursive_mutex> lock(m_startLock);
        m_bStarting = false;
    }
    ReapplySubscription();
    return r;
}

ZynResult CMediaTrack::EnableAV1Encode(bool on, bool share)
{
    std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
    m_bAv1 = on;
    m_bAv1Share = share;
    return TrackCall(nullptr, [&](IZynMediaTrack* t) {
        ZynResult r = SetValue<uint8_t>(t, kOptionAv1, on);
        // Screen content is coded in its own mode and in RGB.
        if (ZYN_SUCCEEDED(r) && on && m_eDirection == ZynDirection_Send) {
            SetValue<uint8_t>(t, kOptionAv1Mode, share);
            r = SetValue<uint8_t>(t, kOptionAv1Rgb, share);
        }
        return r;
    });
}

ZynResult CMediaTrack::StartRecording(bool on)
{
    if (!IsLocalVideo()) return ZYN_E_FAIL;
    if (m_bRecording == on) return ZYN_S_FALSE;
    // Recording keeps the data flowing while sending is off.
    const ZynResult r = m_startSending ? ZYN_S_OK : _SetSendingDataOption(on);
    if (ZYN_SUCCEEDED(r)) m_bRecording = on;
    return r;
}

void CMediaTrack::RestoreOptions()
{
    IZynMediaTrack* t = m_pTrack;
    if (!t) return;
    const CTrackRestoreSettings settings = RestoreSettingsOfLine();
    if (IsRemoteVideo()) {
        SetValue<uint8_t>(t, kOptionRemote56, settings.remote56);
        if (settings.remote60 != 0) SetValue<int32_t>(t, kOptionRemote60, settings.remote60);
        SetValue<uint8_t>(t, kOptionRemote62, settings.remote62);
        SetValue<uint8_t>(t, kOptionSuperResolution, settings.superResolution);
    }
    int hardwareMode;
    bool av1, av1Share;
    {
        std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
        hardwareMode = m_packetizationMode;
        av1 = m_bAv1;
        av1Share = m_bAv1Share;
    }
    if (IsLocalVideo()) {
        if (m_eZynSessionType == ZynSessionType_Video) SetValue<uint8_t>(t, kOptionExternalRender, settings.externalRender);
        SetValue<uint8_t>(t, kOption1080p, settings.enable1080p);
        SetValue<uint8_t>(t, kOption90p, settings.enable90p);
        SetValue<uint8_t>(t, kOptionAdaptiveFps, settings.adaptiveFps);
        SetValue<uint8_t>(t, kOptionFaceDetection, settings.faceDetection);
        // The last hardware-codec request of the line wins over the configuration's default.
        EnableHwEncode(settings.hardwareAcceleration && hardwareMode == 1);
    }
    if (IsLocalVideo() || IsRemoteVideo()) {
        SetValue<uint8_t>(t, kOptionAv1, av1);
        if (av1 && m_eDirection == ZynDirection_Send) {
            SetValue<uint8_t>(t, kOptionAv1Mode, av1Share);
            SetValue<uint8_t>(t, kOptionAv1Rgb, av1Share);
        }
    }
    if (IsLocalVideo()) {
        MS_INFO_TRACE("CMediaTrack::RestoreOptions, to QuerySendPerformance." << TRACK_TAIL);
        const int32_t level = ConvPerformanceLevel(
            CMediaPerformanceStaticControl::Instance().QuerySendPerformance(false, m_eZynSessionType));
        // A level once lowered stays low for the call: the machine proved it could not do more. A track
        // outside a line (tests, a line already gone) keeps its own minimum.
        if (m_pConnectionInfo) {
            m_lowestPerformance = m_pConnectionInfo->KeepLowestSendPerformance(level);
        } else if (m_lowestPerformance < 0 || level < m_lowestPerformance) {
            m_lowestPerformance = level;
        }
        SetValue<int32_t>(t, kOptionPerformance, m_lowestPerformance);
    }
    if (IsLocalShare()) SetValue<int32_t>(t, kOptionFrameRateLimit, settings.shareFrameRate);
    // A camera opens on its own thread: its start ends with OnStartedCapture.
    m_bAsyncStart = m_eZynSessionType == ZynSessionType_Video && m_eDirection == ZynDirection_Send && !m_bExternal;
    if (m_bAsyncStart) SetValue<uint8_t>(t, ZynTrackOption_AsyncStart, 1);
    if (IsAudio() && m_eDirection == ZynDirection_Recv) {
        std::lock_guard<std::recursive_mutex> lock(m_optionsLock);
        if (m_playBufferMin != -1 && m_playBufferMax != -1) {
            const int32_t bounds[2] = {m_playBufferMin, m_playBufferMax};
            t->SetOption(kOptionPlayBuffer, bounds, sizeof bounds);
        }
    }
}

CMediaTrack::CTrackRestoreSettings CMediaTrack::RestoreSettingsOfLine() const
{
    // The line's video configuration has no switches of these yet: its defaults hold.
    return CTrackRestoreSettings{};
}

}  // namespace zyn
