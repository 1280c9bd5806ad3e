// Settings of camera video and screen share lines. Caller's thread, like every configuration
// setter; the engine track is reached through the owner line.
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "config/ConfigTrace.h"
#include "config/MediaConfigs.h"
#include "mediasession/ZynMediaTrack.h"
#include "util/CmJson.h"

namespace zyn {

namespace {

// The engine keeps this many slots of video strategy; ids are slot numbers.
constexpr unsigned int kMaxVideoStrategy = 16;

bool IsVideoCodec(ZynCodecType codec)
{
    return codec == ZynCodecType_AVC || codec == ZynCodecType_SVC || codec == ZynCodecType_AV1;
}

std::string CodecParamsText(const ZynVideoCodecParams& p, bool decode)
{
    // The capability as the engine reads it, one JSON object under "codec".
    json::Object codec;
    codec["uProfileLevelID"] = p.uProfileLevelID;
    codec["max-mbps"] = p.uMaxMBPS;
    codec["max-fs"] = p.uMaxFS;
    codec["max-fps"] = p.uMaxFPS;
    codec["max-br"] = p.uMaxBR;
    if (decode) codec["max_br_mode1"] = p.uMaxBRMode1;
    json::Object out;
    out["codec"] = codec;
    return json::Serialize(out);
}

}  // namespace

ZynResult CBaseVideoConfig::SetValue(const char* setter, const char* option, const std::string& value)
{
    const ZynResult result =
        GetOwner() ? GetOwner()->KeepLocalTrackOption(option, value.c_str()) : ZYN_E_NOTRACK;
    CFG_INFO_TRACE(setter << ", value=" << value << ",result=" << result);
    if (ZYN_SUCCEEDED(result)) m_trackValues[option] = value;
    return result;
}

ZynResult CBaseVideoConfig::SetCount(const char* setter, const char* option, int value, const char* tag)
{
    if (value >= 0) return SetNumber(setter, option, value);
    CFG_WARNING_TRACE(setter << ", value=" << value << " refused");
    if (tag && GetOwner()) GetOwner()->SetZynErrorMetrics(tag, ZYN_E_INVALIDARG);
    return ZYN_E_INVALIDARG;
}

const std::string* CBaseVideoConfig::GetTrackValue(const char* option) const
{
    const auto it = m_trackValues.find(option);
    return it == m_trackValues.end() ? nullptr : &it->second;
}

bool CBaseVideoConfig::IsTrackSwitchOn(const char* option) const
{
    const std::string* value = GetTrackValue(option);
    return value && *value == "1";
}

long long CBaseVideoConfig::GetNumber(const char* option, long long fallback) const
{
    const std::string* value = GetTrackValue(option);
    return value ? std::strtoll(value->c_str(), nullptr, 10) : fallback;
}

ZynResult CBaseVideoConfig::SetCodecParams(bool decode, ZynCodecType codec, const ZynVideoCodecParams& params)
{
    const char* setter = decode ? "SetDecodeParams" : "SetEncodeParams";
    const std::string text = CodecParamsText(params, decode);
    CFG_INFO_TRACE(setter << ", codec=" << static_cast<int>(codec) << ", " << text);
    if (!IsVideoCodec(codec)) return ZYN_E_INVALIDARG;
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    const ZynResult result = SetValue(setter, decode ? "VIDEO_decode_capability" : "VIDEO_encode_capability", text);
    if (ZYN_SUCCEEDED(result)) (decode ? m_decodeParams : m_encodeParams)[codec] = params;
    return result;
}

ZynResult CBaseVideoConfig::SetDecodeParams(ZynCodecType codec, const ZynVideoCodecParams& params)
{
    return SetCodecParams(true, codec, params);
}

ZynResult CBaseVideoConfig::SetEncodeParams(ZynCodecType codec, const ZynVideoCodecParams& params)
{
    return SetCodecParams(false, codec, params);
}

ZynResult CBaseVideoConfig::SetCodecParam(ZynCodecType codec, const ZynVideoCodecParams& params)
{
    const ZynResult result = SetCodecParams(true, codec, params);
    return ZYN_SUCCEEDED(result) ? SetCodecParams(false, codec, params) : result;
}

ZynResult CBaseVideoConfig::GetCodecParam(ZynCodecType codec, ZynVideoCodecParams& params) const
{
    return GetDecodeParams(codec, params);
}

ZynResult CBaseVideoConfig::EnableMCDevice(bool enable, IZynMediaDevice* capturer)
{
    CFG_INFO_TRACE("EnableMCDevice, enable=" << enable << ",pMCCapturer=" << capturer);
    if (enable && (!capturer || capturer->GetDeviceKind() != ZynDevice_Camera)) return ZYN_E_INVALIDARG;
    return SetValue("EnableMCDevice", "VIDEO_mc_device", enable ? capturer->GetDeviceName() : "");
}

ZynResult CBaseVideoConfig::SetMultiCamParam(const char* params, unsigned int length)
{
    if (!params) return ZYN_E_INVALIDARG;
    const std::string text(params, strnlen(params, length));
    if (!json::Deserialize(text).is_object()) return ZYN_E_INVALIDARG;
    return SetValue("SetMultiCamParam", "VIDEO_multicam_param", text);
}

ZynResult CBaseVideoConfig::GetDecodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const
{
    const ZynVideoCodecParams* found = GetDecodeLimits(codec);
    if (!found) return ZYN_E_NOTFOUND;
    params = *found;
    return ZYN_S_OK;
}

ZynResult CBaseVideoConfig::GetEncodeParams(ZynCodecType codec, ZynVideoCodecParams& params) const
{
    const auto it = m_encodeParams.find(codec);
    if (it == m_encodeParams.end()) return ZYN_E_NOTFOUND;
    params = it->second;
    return ZYN_S_OK;
}

const ZynVideoCodecParams* CBaseVideoConfig::GetDecodeLimits(ZynCodecType codec) const
{
    const auto it = m_decodeParams.find(codec);
    return it == m_decodeParams.end() ? nullptr : &it->second;
}

ZynResult CBaseVideoConfig::EnableHWAcceleration(bool enable, ZynHWAccelerationConfig config)
{
    CFG_INFO_TRACE("EnableHWAcceleration, value=" << enable << ",config=" << static_cast<int>(config));
    if (config < ZynHWAcceleration_Encoder || config > ZynHWAcceleration_Both) return ZYN_E_INVALIDARG;
    ZynResult result = ZYN_S_OK;
    if (config & ZynHWAcceleration_Encoder) result = SetSwitch("EnableHWAcceleration", "VIDEO_hw_encoder", enable);
    if (ZYN_SUCCEEDED(result) && (config & ZynHWAcceleration_Decoder))
        result = SetSwitch("EnableHWAcceleration", "VIDEO_hw_decoder", enable);
    return result;
}

bool CBaseVideoConfig::IsHWAccelerationEnabled(ZynHWAccelerationConfig config) const
{
    const bool encoder = IsTrackSwitchOn("VIDEO_hw_encoder"), decoder = IsTrackSwitchOn("VIDEO_hw_decoder");
    switch (config) {
    case ZynHWAcceleration_Encoder: return encoder;
    case ZynHWAcceleration_Decoder: return decoder;
    case ZynHWAcceleration_Both: return encoder && decoder;
    default: return false;
    }
}

ZynResult CBaseVideoConfig::EnableAVCSimulcast(bool enable)
{
    CFG_INFO_TRACE("EnableAVCSimulcast, value:" << enable);
    // The layers are fixed when the encoder starts.
    if (GetOwner() && GetOwner()->IsLocalTrackStarted()) {
        CM_ASSERT_REPORT("!m_pInfo->GetLocalTrack()->isStarted()");
        return ZYN_E_FAIL;
    }
    return SetSwitch("EnableAVCSimulcast", "VIDEO_avc_simulcast", enable);
}

ZynResult CBaseVideoConfig::SetMaxPacketSize(unsigned int bytes)
{
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    return SetNumber("SetMaxPacketSize", "VIDEO_max_packet_size", bytes);
}

unsigned int CBaseVideoConfig::GetMaxPacketSize() const
{
    // What fits one packet on a 1500-byte path once IP, UDP, RTP and SRTP took theirs.
    const unsigned int size = static_cast<unsigned int>(GetNumber("VIDEO_max_packet_size", 1200));
    MS_INFO_TRACE("CBaseVideoConfig::GetMaxPacketSize, uMaxPacketSize=" << size);
    return size;
}

ZynResult CBaseVideoConfig::SetPacketizationMode(ZynPacketizationMode mode)
{
    if (RefusedAfterStart()) return ZYN_E_FAIL;
    if (mode != ZynPacketizationMode_0 && mode != ZynPacketizationMode_1) return ZYN_E_INVALIDARG;
    const ZynResult result = SetNumber("SetPacketizationMode", "VIDEO_packetization_mode", mode);
    if (ZYN_SUCCEEDED(result)) m_packetizationMode = mode;
    return result;
}

ZynPacketizationMode CBaseVideoConfig::GetPacketizationMode() const
{
    MS_INFO_TRACE("CBaseVideoConfig::GetPacketizationMode, ePacketizationMode=" << static_cast<int>(m_packetizationMode));
    return m_packetizationMode;
}

ZynResult CBaseVideoConfig::SetDataDumpPath(const char* path, unsigned int length)
{
    if (!path) return ZYN_E_INVALIDARG;
    return SetValue("SetDataDumpPath", "VIDEO_data_dump_path", std::string(path, strnlen(path, length)));
}

bool CBaseVideoConfig::IsSupportCHP(ZynCodecType codec) const
{
    const bool supported = m_bCHP && (codec == ZynCodecType_AVC || codec == ZynCodecType_SVC);
    CFG_INFO_TRACE("IsSupportCHP, codec=" << static_cast<int>(codec) << ", supported=" << supported);
    return supported;
}

ZynResult CBaseVideoConfig::EnableCHP(bool enable)
{
    if (enable != m_bCHP) CFG_INFO_TRACE("EnableCHP, reconfigure for CHP");
    const ZynResult result = SetSwitch("EnableCHP", "VIDEO_chp", enable);
    if (ZYN_SUCCEEDED(result)) m_bCHP = enable;
    return result;
}

ZynResult CBaseVideoConfig::SetVideoRotate(ZynVideoRotation rotation)
{
    if (rotation != ZynVideoRotation_0 && rotation != ZynVideoRotation_90 && rotation != ZynVideoRotation_180 &&
        rotation != ZynVideoRotation_270) {
        MS_ERROR_TRACE(
                        "CBaseVideoConfig::SetVideoRotate unsupported rotation = " << static_cast<int>(rotation));
        return ZYN_E_WRONGSTATE;
    }
    return SetNumber("SetVideoRotate", "VIDEO_rotation", rotation);
}

ZynResult CBaseVideoConfig::EnableAV1(bool enable)
{
    const ZynResult result = SetSwitch("EnableAV1", "VIDEO_av1", enable);
    if (ZYN_SUCCEEDED(result)) m_bAV1 = enable;
    return result;
}

bool CBaseVideoConfig::IsAV1Enabled() const
{
    MS_DETAIL_TRACE("CBaseVideoConfig::IsAV1Enabled, value=" << m_bAV1);
    return m_bAV1;
}

bool CBaseVideoConfig::IsAV1EnableSend() const
{
    // A share line may keep AV1 for decoding and still encode normal sharing with H.264.
    const bool send = m_bAV1 && !IsTrackSwitchOn("SHARE_disable_av1_normal_share");
    MS_DETAIL_TRACE("CBaseVideoConfig::IsAV1EnableSend, value=" << send);
    return send;
}

ZynResult CBaseVideoConfig::SetAV1CodecParam(unsigned int level, unsigned int tier)
{
    if (!GetOwner()) {
        CM_ASSERT_REPORT("nullptr != m_pInfo");
        return ZYN_E_POINTER;
    }
    // seq_level_idx 0 to 23 and a tier bit.
    if (level > 23 || tier > 1) return ZYN_E_INVALIDARG;
    return SetValue("SetAV1CodecParam", "VIDEO_av1_level_tier", std::to_string(level) + "," + std::to_string(tier));
}

ZynResult CBaseVideoConfig::SetMaxEncodeResolution(unsigned int width, unsigned int height)
{
    CFG_INFO_TRACE("SetMaxEncodeResolution, uMaxWidth=" << width << ",uMaxHeight= " << height);
    return SetValue("SetMaxEncodeResolution", "VIDEO_max_encode_resolution",
                    std::to_string(width) + "x" + std::to_string(height));
}

ZynResult CBaseVideoConfig::EnablePLIFIR(bool pli, bool fir)
{
    CFG_INFO_TRACE("EnablePLIFIR, enablePLI=" << pli << ",enableFIR=" << fir);
    const ZynResult result = SetSwitch("EnablePLIFIR", "VIDEO_pli", pli);
    return ZYN_SUCCEEDED(result) ? SetSwitch("EnablePLIFIR", "VIDEO_fir", fir) : result;
}

ZynResult CBaseVideoConfig::SetVideoStrategy(unsigned int id, int value)
{
    if (id >= kMaxVideoStrategy) {
        MS_ERROR_TRACE(
                        "CVideoConfig::SetVideoStrategy, Exceeded MAX_VIDEO_STRATEGY setting, id=" << id);
        return ZYN_E_INVALIDARG;
    }
    return SetNumber("SetVideoStrategy", ("VIDEO_strategy_" + std::to_string(id)).c_str(), value);
}

ZynResult CBaseVideoConfig::SetVideoProcessingStrategy(unsigned int id, int value)
{
    // Processing runs on frames the track captures: there is nothing to keep it for without one.
    if (!GetOwner() || !GetOwner()->HasLocalTrack()) {
        MS_ERROR_TRACE(
                        "CVideoConfig::SetVideoProcessingStrategy, no LocalTrack, no new Video processing strategy");
        return ZYN_E_WRONGSTATE;
    }
    return SetNumber("SetVideoProcessingStrategy", ("VIDEO_processing_strategy_" + std::to_string(id)).c_str(), value);
}

ZynResult CBaseVideoConfig::SetMaxCaptureQuality(ZynVideoQualityType quality)
{
    if (quality < ZynVideoQuality_90P || quality > ZynVideoQuality_4K) return ZYN_E_INVALIDARG;
    return SetNumber("SetMaxCaptureQuality", "VIDEO_max_capture_quality", quality);
}

ZynResult CVideoConfig::Enable4KVideo(bool enable)
{
    if (enable) {
        MS_WARNING_TRACE("CVideoConfig::Enable4KVideo, Camera video DON'T support 4K");
        return ZYN_E_NOTAVAILABLE;
    }
    return SetSwitch("Enable4KVideo", "VIDEO_enable_4k", false);
}

}  // namespace zyn

namespace zyn {

namespace {

std::string Pair(double a, double b)
{
    std::ostringstream os;
    os << a << "," << b;
    return os.str();
}

}  // namespace

ZynResult CVideoConfig::SetCameraZoomFactor(float factor)
{
    std::ostringstream os;
    os << factor;
    return SetValue("SetCameraZoomFactor", "CAMERA_zoom_factor", os.str());
}

ZynResult CVideoConfig::SetCameraFocusAtPoint(float x, float y)
{
    return SetValue("SetCameraFocusAtPoint", "CAMERA_focus_point", Pair(x, y));
}

ZynResult CVideoConfig::SetCameraExposureState(int state)
{
    return SetNumber("SetCameraExposureState", "CAMERA_exposure_state", state);
}

ZynResult CVideoConfig::SetCameraFlashMode(int mode) { return SetNumber("SetCameraFlashMode", "CAMERA_flash_mode", mode); }

ZynResult CVideoConfig::SetCameraTorchMode(int mode) { return SetNumber("SetCameraTorchMode", "CAMERA_torch_mode", mode); }

ZynResult CVideoConfig::SetCameraCustomExposure(float durationMs, float iso)
{
    return SetValue("SetCameraCustomExposure", "CAMERA_custom_exposure", Pair(durationMs, iso));
}

ZynResult CVideoConfig::GetCameraExposureInfo(_tagCameraExposureInfo& info)
{
    if (!GetOwner()) return ZYN_E_NOTRACK;
    const struct {
        const char* option;
        float _tagCameraExposureInfo::*field;
    } fields[] = {{"CAMERA_exposure_iso", &_tagCameraExposureInfo::isoNow},
                  {"CAMERA_exposure_min_iso", &_tagCameraExposureInfo::minIso},
                  {"CAMERA_exposure_max_iso", &_tagCameraExposureInfo::maxIso},
                  {"CAMERA_exposure_duration", &_tagCameraExposureInfo::durationNowMs},
                  {"CAMERA_exposure_min_duration", &_tagCameraExposureInfo::minDurationMs},
                  {"CAMERA_exposure_max_duration", &_tagCameraExposureInfo::maxDurationMs}};
    _tagCameraExposureInfo read{};
    std::string value;
    for (const auto& f : fields) {
        const ZynResult r = GetOwner()->GetLocalTrackOption(f.option, value);
        if (r != ZYN_S_OK) return r;
        read.*f.field = std::strtof(value.c_str(), nullptr);
    }
    for (auto [option, out] : {std::pair{"CAMERA_exposure_min_state", &read.minState},
                               std::pair{"CAMERA_exposure_max_state", &read.maxState}}) {
        const ZynResult r = GetOwner()->GetLocalTrackOption(option, value);
        if (r != ZYN_S_OK) return r;
        *out = static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10));
    }
    info = read;
    return ZYN_S_OK;
}

}  // namespace zyn
