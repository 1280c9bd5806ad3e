// The codecs the engine can encode and decode, in the engine's order of preference. The session
// layer picks from this list what it offers; payload numbers are the engine's own.
#pragma once

#include <cstddef>
#include <cstdint>

// Media kinds the codec list is asked for.
enum ZynCodecMediaType : int32_t {
    ZynCodecMedia_Audio = 0,
    ZynCodecMedia_Video = 1,
};

struct ZynEngineCodecInfo {
    int32_t codecType;  // the application's codec numbering (ZynCodecType)
    uint8_t payload;
    const char* name;
    uint32_t clockRate;
    uint32_t channels;
    // H.264 is offered in two packetisation modes, each under its own payload: this is the
    // payload of the non-interleaved mode 0; 0 where the codec has one mode.
    uint8_t mode0Payload;
};

// Points *out at the engine's list for the kind and gives its length; 0 for an unknown kind.
size_t ZynGetMediaCodecs(ZynCodecMediaType type, const ZynEngineCodecInfo** out);
