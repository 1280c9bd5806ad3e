// Codec lists the application hands the line in place of the engine's capabilities.
#include "config/BaseConfig.h"
#include "config/ConfigTrace.h"

namespace zyn {

ZynResult CBaseConfig::SetupEncodeCodec(_tagCodecParam* params, unsigned int count)
{
    return SetupCodecs(params, count, true);
}

ZynResult CBaseConfig::SetupDecodeCodec(_tagCodecParam* params, unsigned int count)
{
    return SetupCodecs(params, count, false);
}

ZynResult CBaseConfig::SetupCodecs(_tagCodecParam* params, unsigned int count, bool encode)
{
    const char* name = encode ? "SetupEncodeCodec" : "SetupDecodeCodec";
    if (params && count) {
        // The JSON exists for the trace alone; skip building it when nobody reads it.
        if (get_external_trace_mask() >= CM_TRACE_LEVEL_INFO)
            CFG_INFO_TRACE(name << ", codecs=" << CodecParamsToJson(params, count) << ", num=" << count);
    } else {
        CFG_INFO_TRACE(name << ", codecs=none, num=" << count);
    }
    // No record at all gives the line back the engine's own list.
    CCodecList list;
    list.set = params && count;
    if (list.set) ConvertCodecs(params, count, list.codecs, list.pts);
    return Commit(encode ? m_encodeCodecs : m_decodeCodecs, std::move(list),
                  encode ? EMediaConfigItem::EncodeCodecs : EMediaConfigItem::DecodeCodecs);
}

ZynResult CBaseConfig::GetCodecParam(ZynCodecType type, _tagVideoConfig* videoConfig, _tagCodecParam* out)
{
    if (!out) return ZYN_E_INVALIDARG;
    if (!m_pInfo) return ZYN_E_NOTAVAILABLE;
    return m_pInfo->GetCodecParam(type, videoConfig, out);
}

}  // namespace zyn
