#include "zyn/ZynCodecs.h"

#include <iterator>

namespace {

// Static payloads where RFC 3551 gives one; dynamic ones from 96. Opus leads: it is the codec the
// engine runs best at every bit rate it supports.
constexpr ZynEngineCodecInfo kAudio[] = {
    {4, 100, "opus", 48000, 2, 0},     {5, 9, "G722", 8000, 1, 0},       {3, 97, "iLBC", 8000, 1, 0},
    {2, 8, "PCMA", 8000, 1, 0},        {1, 0, "PCMU", 8000, 1, 0},       {7, 18, "G729", 8000, 1, 0},
    {8, 102, "G7221", 16000, 1, 0},    {9, 103, "G7221", 16000, 1, 0},   {50, 101, "telephone-event", 8000, 1, 0},
};

constexpr ZynEngineCodecInfo kVideo[] = {
    {101, 98, "H264-SVC", 90000, 0, 0},
    {100, 97, "H264", 90000, 0, 96},
    {104, 99, "AV1", 90000, 0, 0},
};

}  // namespace

size_t ZynGetMediaCodecs(ZynCodecMediaType type, const ZynEngineCodecInfo** out)
{
    if (!out) return 0;
    switch (type) {
    case ZynCodecMedia_Audio: *out = kAudio; return std::size(kAudio);
    case ZynCodecMedia_Video: *out = kVideo; return std::size(kVideo);
    }
    *out = nullptr;
    return 0;
}
