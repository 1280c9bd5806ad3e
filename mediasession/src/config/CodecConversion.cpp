#include "config/CodecConversion.h"

#include <cstring>
#include <exception>
#include <sstream>
#include <strings.h>

#include "sdp/audio_params.h"
#include "sdp/av1_param.h"
#include "sdp/h264_param.h"
#include "util/CmJson.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

struct CodecName {
    ZynCodecType type;
    const char* name;
};

// The rtpmap names where there is one; the two G.722.1 rates need names of their own.
constexpr CodecName kCodecNames[] = {
    {ZynCodecType_PCMU, "PCMU"},         {ZynCodecType_PCMA, "PCMA"},
    {ZynCodecType_ILBC, "iLBC"},         {ZynCodecType_OPUS, "opus"},
    {ZynCodecType_G722, "G722"},         {ZynCodecType_CN, "CN"},
    {ZynCodecType_G729, "G729"},         {ZynCodecType_G7221_24K, "G7221"},
    {ZynCodecType_G7221_32K, "G7221-32"}, {ZynCodecType_DTMF, "telephone-event"},
    {ZynCodecType_AVC, "H264"},          {ZynCodecType_SVC, "H264-SVC"},
    {ZynCodecType_AV1, "AV1"},           {ZynCodecType_FEC, "x-ulpfecuc"},
    {ZynCodecType_RTX, "sobe-rtx"},
};

// Highest application codec type that can name anything.
constexpr int32_t kMaxCodecType = 126;

size_t BoundedNameLength(const char (&name)[256]) { return strnlen(name, sizeof(name)); }

sdp::h264_codec_param MakeH264(const _tagCodecParam& record)
{
    // Packetization mode 1 lets NAL units be fragmented; anything but an explicit 1 keeps mode 0.
    const auto mode = record.packetization == 1 ? sdp::h264_packetization_mode_1 : sdp::h264_packetization_mode_0;
    const _tagCodecCapability& cap = record.cap;
    return sdp::h264_codec_param(sdp::get_h264_profile_from_string(cap.profile_id),
                                 sdp::get_h264_level_from_string(cap.profile_id), mode, cap.mbps, cap.fs, cap.fps,
                                 cap.br, cap.dpb);
}

// False when the record names nothing that can be offered.
bool ConvertOne(const _tagCodecParam& record, std::vector<sdp::codec>& codecs, std::vector<CCodecPt>& pts)
{
    const uint32_t pt = record.payload;
    switch (record.type) {
    case ZynCodecType_PCMU: codecs.emplace_back(pt, sdp::codec_pcmu); return true;
    case ZynCodecType_PCMA: codecs.emplace_back(pt, sdp::codec_pcma); return true;
    case ZynCodecType_ILBC: codecs.emplace_back(pt, sdp::codec_ilbc); return true;
    case ZynCodecType_OPUS: codecs.emplace_back(pt, sdp::opus_codec_param(0, 0, false)); return true;
    case ZynCodecType_G722: codecs.emplace_back(pt, sdp::codec_g722); return true;
    case ZynCodecType_CN: codecs.emplace_back(pt, sdp::codec_cn); return true;
    case ZynCodecType_G729: codecs.emplace_back(pt, sdp::g729_codec_param(true)); return true;
    case ZynCodecType_G7221_24K: codecs.emplace_back(pt, sdp::g7221_codec_param(24000)); return true;
    case ZynCodecType_G7221_32K: codecs.emplace_back(pt, sdp::g7221_codec_param(32000)); return true;
    case ZynCodecType_DTMF:
    case ZynCodecType_FEC:
    case ZynCodecType_RTX:
        pts.push_back(CCodecPt{record.type, record.payload, record.clock_rate});
        return true;
    case ZynCodecType_AVC: codecs.emplace_back(pt, MakeH264(record)); return true;
    case ZynCodecType_SVC:
        // Single-session transmission over one RTP session, and the one uc-mode the engine sends.
        codecs.emplace_back(pt, sdp::h264_svc_codec_param(MakeH264(record), sdp::h264_svc_mst_i_c, sdp::h264_svc_uc_1));
        return true;
    case ZynCodecType_AV1: {
        const _tagCodecCapability& cap = record.cap;
        // AV1 knows profiles 0 to 2, level indexes 0 to 23 and two tiers.
        if (cap.profile > 2 || cap.level > 23 || cap.tier > 1) return false;
        codecs.emplace_back(pt, sdp::av1_codec_param(static_cast<int>(cap.profile), static_cast<int>(cap.level),
                                                     static_cast<int>(cap.tier)));
        return true;
    }
    default: return false;
    }
}

}  // namespace

ZynCodecType ConvCodecType(const char* name)
{
    if (!name) return ZynCodecType_Unknown;
    for (const auto& entry : kCodecNames)
        if (strcasecmp(entry.name, name) == 0) return entry.type;
    return ZynCodecType_Unknown;
}

const char* ConvCodecTypeToString(ZynCodecType type)
{
    for (const auto& entry : kCodecNames)
        if (entry.type == type) return entry.name;
    return "unknown";
}

void ConvertCodecs(_tagCodecParam* params, unsigned int count, std::vector<sdp::codec>& codecs,
                   std::vector<CCodecPt>& pts)
{
    if (!params) return;
    for (unsigned int i = 0; i < count; ++i) {
        _tagCodecParam& record = params[i];
        if (record.type == ZynCodecType_Unknown) {
            const std::string name(record.name, BoundedNameLength(record.name));
            record.type = ConvCodecType(name.c_str());
        }
        if (record.type > kMaxCodecType) continue;
        try {
            if (!ConvertOne(record, codecs, pts))
                MS_WARNING_TRACE("ConvertCodecs, dropped codec type=" << static_cast<int>(record.type)
                                                                      << ", payload=" << record.payload);
        } catch (const std::exception& e) {
            MS_WARNING_TRACE("ConvertCodecs, dropped codec type=" << static_cast<int>(record.type)
                                                                  << ", error=" << e.what());
        }
    }
}

std::string CodecParamsToJson(const _tagCodecParam* params, unsigned int count)
{
    std::ostringstream os;
    os << "{\"codecs\":[";
    for (unsigned int i = 0; params && i < count; ++i) {
        const _tagCodecParam& r = params[i];
        const std::string name(r.name, BoundedNameLength(r.name));
        if (i) os << ',';
        os << "{\"type\":" << static_cast<int>(r.type) << ",\"name\":" << json::Serialize(json::Value(name))
           << ",\"payload\":" << static_cast<unsigned>(r.payload) << ",\"clock_rate\":" << r.clock_rate
           << ",\"channels\":" << r.channels << ",\"vad\":" << (r.vad ? "true" : "false")
           << ",\"cap.profile_id\":" << r.cap.profile_id << ",\"cap.mbps\":" << r.cap.mbps
           << ",\"cap.fs\":" << r.cap.fs << ",\"cap.fps\":" << r.cap.fps << ",\"cap.br\":" << r.cap.br
           << ",\"cap.dpb\":" << r.cap.dpb << ",\"cap.tier\":" << r.cap.tier << ",\"cap.profile\":" << r.cap.profile
           << ",\"cap.level\":" << r.cap.level << '}';
    }
    os << "]}";
    return os.str();
}

ZynCodecType CodecSdp2Zyn(const sdp::codec& codec)
{
    switch (codec.type) {
    case sdp::codec_pcmu: return ZynCodecType_PCMU;
    case sdp::codec_pcma: return ZynCodecType_PCMA;
    case sdp::codec_ilbc: return ZynCodecType_ILBC;
    case sdp::codec_opus: return ZynCodecType_OPUS;
    case sdp::codec_g722: return ZynCodecType_G722;
    case sdp::codec_cn: return ZynCodecType_CN;
    case sdp::codec_g729: return ZynCodecType_G729;
    case sdp::codec_g7221:
        return codec.g7221_param.is_set() && codec.g7221_param.get_data().bitrate == 32000 ? ZynCodecType_G7221_32K
                                                                                            : ZynCodecType_G7221_24K;
    case sdp::codec_telephone_event: return ZynCodecType_DTMF;
    case sdp::codec_h264: return ZynCodecType_AVC;
    case sdp::codec_h264_svc: return ZynCodecType_SVC;
    case sdp::codec_av1: return ZynCodecType_AV1;
    case sdp::codec_x_ulpfecuc: return ZynCodecType_FEC;
    case sdp::codec_sobe_rtx: return ZynCodecType_RTX;
    default: return ZynCodecType_Unknown;
    }
}

}  // namespace zyn
