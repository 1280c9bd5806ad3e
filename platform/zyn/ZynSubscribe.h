// Records the engine takes as they stand: a subscription request of the far end's streams, the
// per-layer encode capability, the multistream subscribe record of a local track (track option 19),
// the stream bandwidth record (session option 20) and an announce of what the far end offers.
// Plain data: every offset is part of the contract with the engine, hence the size checks.
#pragma once

#include <cstddef>
#include <cstdint>

enum ZynSCRRequestPolicyType : int32_t {
    ZynSCRRequestPolicyType_NonePolicy = 0,
    ZynSCRRequestPolicyType_ReceiverSelected = 1,
    ZynSCRRequestPolicyType_ActiveSpeaker = 2,
    ZynSCRRequestPolicyType_SourceIndexed = 4,
};

// Payload type 128 in a request: any, the sender chooses.
constexpr uint8_t ZynPayloadType_Any = 128;

struct ZynSimulcastRequest {
    int32_t eRequestPolicyType;  // ZynSCRRequestPolicyType
    uint8_t vid;
    uint8_t uSourceId;
    uint8_t reserved0[2];
    uint32_t uBitrate;    // bits per second
    uint32_t uBitrate2;   // the same, active-speaker and source-indexed policies only
    // Policies 1 and 4: bytes 0-3 the selected CSI, 4 a flag. Policy 2: 0 priority, 1 grouping,
    // 3 duplicate flag, 4 and 5 two further flags.
    uint8_t policyData[8];
    int32_t codecKind;  // 0 audio, 1 H.264, 2 AV1
    uint8_t reserved1[4];
    uint8_t audioPayload[4];  // payload type, 0, CVO flag, 0
    uint8_t videoPayload[4];
    uint32_t uMaxMBPS;
    uint16_t uMaxFS;   // macroblocks
    uint16_t uMaxFPS;  // frames per second times 100
    uint8_t reserved2[12];
    uint8_t one;  // always 1
    uint8_t reserved3[11];
    uint8_t av1Payload[4];
    uint8_t av1Profile;
    uint8_t av1Level;
    uint8_t reserved4[2];
    uint16_t MaxHSize;
    uint16_t MaxVSize;
    uint32_t MaxPicSize;
    uint64_t MaxDecodeRate;
    uint8_t reserved5[24];
};
static_assert(sizeof(ZynSimulcastRequest) == 120, "a request is 120 bytes");
static_assert(offsetof(ZynSimulcastRequest, uMaxMBPS) == 40 && offsetof(ZynSimulcastRequest, one) == 60 &&
                  offsetof(ZynSimulcastRequest, av1Payload) == 72 && offsetof(ZynSimulcastRequest, MaxHSize) == 80 &&
                  offsetof(ZynSimulcastRequest, MaxDecodeRate) == 88,
              "request offsets");

// One encoding layer the far end asked for.
struct _tagVideoEncodeCapability {
    uint32_t uProfileLevelID;
    uint32_t uMaxMBPS;
    uint32_t uMaxFS;   // macroblocks
    uint32_t uMaxFPS;  // frames per second
    uint32_t uMaxDPB;
    uint32_t uMaxBitRate;
    uint32_t uMaxNalUnitSize;
    uint8_t uVids[8];
    uint32_t uNumVids;
    uint32_t bAvatar;
    uint32_t uWidth;
    uint32_t uHeight;
    uint8_t remoteTail[28];  // the far end's values, carried through
};
static_assert(sizeof(_tagVideoEncodeCapability) == 80, "an encode capability is 80 bytes");
static_assert(offsetof(_tagVideoEncodeCapability, uVids) == 28 && offsetof(_tagVideoEncodeCapability, uNumVids) == 36 &&
                  offsetof(_tagVideoEncodeCapability, uWidth) == 44,
              "encode capability offsets");

constexpr int kZynMaxSubscribeStreams = 4;

struct _tagVideoSubscribeMultiStream {
    uint32_t uNumStreams;
    uint32_t reserved;
    _tagVideoEncodeCapability stStreams[kZynMaxSubscribeStreams];
};
static_assert(sizeof(_tagVideoSubscribeMultiStream) == 328, "the subscribe record is 328 bytes");

// Track option 19: the multistream subscribe record.
constexpr int32_t ZynTrackOption_SubscribeMultiStream = 19;
// Session option 20: what the encoder may spend, per stream.
constexpr int32_t ZynSessionOption_StreamBandwidth = 20;
// Session option 2013: the subscription (SCR) the session sends the far end, an array of 0 to 255
// requests; reading it back gives the last one sent.
constexpr int32_t ZynSessionOption_SubscribeRequests = 2013;
// Track command 4: make a key frame now; its value is a 16-byte request.
constexpr int32_t ZynTrackCommand_KeyFrameRequest = 4;

struct ZynStreamBandwidth {
    uint32_t uMaxMBPS;       // what the far end's requests add up to
    uint32_t uMaxBandwidth;  // bits per second
    uint8_t streams[128];    // the engine's per-stream detail, carried through
};
static_assert(sizeof(ZynStreamBandwidth) == 136, "the stream bandwidth record is 136 bytes");

struct ZynKeyFrameRequest {
    uint32_t uSsrc;
    uint32_t uReason;
    uint64_t uReserved;
};
static_assert(sizeof(ZynKeyFrameRequest) == 16, "a key frame request is 16 bytes");

// What the far end offers now: the count of live sources, and per vid whether the request there
// still finds a source and which CSI it shows.
constexpr int kZynMaxAnnounceEntries = 32;

struct ZynAnnounceEntry {
    uint8_t vid;
    uint8_t bValidRequest;  // 0: the request of this vid finds no source now
    uint8_t reserved[2];
    int32_t eStatus;        // ZynMediaStatus of the stream at that vid
    uint32_t uCSI;
};

struct ZynSimulcastAnnounce {
    uint32_t uLiveSourceCount;
    uint32_t uEntryCount;  // at most kZynMaxAnnounceEntries; more are ignored
    ZynAnnounceEntry entries[kZynMaxAnnounceEntries];
};
