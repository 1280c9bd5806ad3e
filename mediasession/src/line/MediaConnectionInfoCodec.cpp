// The codec a line sends on, chosen among those the negotiation agreed, and the encoder's limits
// handed to the local track. Main thread, like the negotiation that fills the codec lists.
#include "config/CodecConversion.h"
#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

namespace {

bool IsMediaCodec(ZynCodecType type)
{
    return type != ZynCodecType_Unknown && type != ZynCodecType_DTMF && type != ZynCodecType_CN &&
           type != ZynCodecType_FEC && type != ZynCodecType_RTX;
}

}  // namespace

ZynResult CMediaConnectionInfo::SetCodec(ZynCodecType type)
{
    if (!IsMediaCodec(type)) return ZYN_E_INVALIDARG;
    if (!m_pZynSession || m_encodeCodecs.empty()) {
        MS_WARNING_TRACE("CMediaConnectionInfo::SetCodec, nothing negotiated yet, codec=" << type << LINE_TAIL);
        return ZYN_E_WRONGSTATE;
    }
    for (const sdp::codec& c : m_encodeCodecs) {
        if (CodecSdp2Zyn(c) != type) continue;
        const ZynResult r = m_pZynSession->SetCodecPt(1, static_cast<uint8_t>(c.payload_type), type, c.get_clock_rate());
        MS_INFO_TRACE("CMediaConnectionInfo::SetCodec, payload=" << c.payload_type << ", codec=" << type
                      << ", result=" << r << LINE_TAIL);
        if (ZYN_SUCCEEDED(r)) m_sendCodec = type;
        return r;
    }
    MS_WARNING_TRACE("CMediaConnectionInfo::SetCodec, codec=" << type << " was not negotiated" << LINE_TAIL);
    return ZYN_E_NOTFOUND;
}

ZynResult CMediaConnectionInfo::SetLocalEncodeCapability(const _tagVideoEncodeCapability& capability)
{
    CZynAutoPtr<CMediaTrack> track = GetLocalTrack();
    if (!track) return ZYN_E_NOTRACK;
    _tagVideoSubscribeMultiStream record{};
    record.uNumStreams = 1;
    record.stStreams[0] = capability;
    return track->SubscribeMutlistream(record);
}

ZynResult CMediaConnectionInfo::GetLocalEncodeCapability(_tagVideoEncodeCapability& capability)
{
    IZynMediaTrack* track = GetLocalEngineTrack();
    if (!track) return ZYN_E_NOTRACK;
    _tagVideoSubscribeMultiStream record{};
    uint32_t size = sizeof record;
    const ZynResult r = track->GetOption(ZynTrackOption_SubscribeMultiStream, &record, size);
    if (r != ZYN_S_OK || size != sizeof record || record.uNumStreams == 0) return ZYN_E_NOTFOUND;
    capability = record.stStreams[0];
    return ZYN_S_OK;
}

}  // namespace zyn
