// From the application's codec records (_tagCodecParam) to the SDP library's codecs, which the
// local description offers in place of the engine's own list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mediasession/ZynMediaConfig.h"
#include "sdp/codec.h"

namespace zyn {

// Case-insensitive. ZynCodecType_Unknown for a null or unknown name.
ZynCodecType ConvCodecType(const char* name);
// The name ConvCodecType reads back; "unknown" for anything else.
const char* ConvCodecTypeToString(ZynCodecType type);

// A payload type the line sets up without a codec of its own (telephone events, FEC, RTX).
struct CCodecPt {
    ZynCodecType type;
    uint8_t payload;
    uint32_t clockRate;
    bool operator==(const CCodecPt&) const = default;
};

// Converts params[0..count) in order, appending to codecs or pts. A record of type
// ZynCodecType_Unknown is resolved by its name and the type found is written back into it.
// Records of a type above 126, of no known type, or whose parameters the SDP library refuses are
// dropped without a result code (a level 1 trace names the last kind).
void ConvertCodecs(_tagCodecParam* params, unsigned int count, std::vector<sdp::codec>& codecs,
                   std::vector<CCodecPt>& pts);

// The engine's codec type of a negotiated codec; ZynCodecType_Unknown for one the engine lacks.
ZynCodecType CodecSdp2Zyn(const sdp::codec& codec);

// {"codecs":[{...},...]} with the record fields in declaration order, for the trace only.
std::string CodecParamsToJson(const _tagCodecParam* params, unsigned int count);

}  // namespace zyn
