// Recording of a call: the service a connection gives through GetRecordService, and the sink an
// application hands it to receive the recorded media.
#pragma once

#include "mediasession/ZynDefines.h"

// Raw audio as PCM samples.
struct _tagAudioRawFormat {
    uint32_t sampleRate;  // Hz
    uint16_t channels;
    uint16_t bitsPerSample;  // 16
};

// A raw picture; format in the file formats' numbering (2 I420 ... 8 BGR24).
struct _tagVideoRawFormat {
    uint32_t width;
    uint32_t height;
    int32_t format;
};

enum ZynVideoSampleType : int32_t {
    ZynVideoSample_Raw = 0,      // a picture as its format says
    ZynVideoSample_Encoded = 1,  // an encoded frame, as the engine would send it
};

// The application's side of a recording: media as it arrives, on the engine's receive thread.
// Owned by the application; keep it alive until the matching stop returns.
class IZynMediaRecord {
public:
    virtual void OnRecordAudio(const unsigned char* data, unsigned int length) = 0;
    virtual void OnRecordVideo(unsigned char vid, const unsigned char* data, unsigned int length) = 0;

protected:
    virtual ~IZynMediaRecord() = default;
};

// What the remote ends send, recorded: audio of every audio line, and video once asked for. The
// tracks must exist (the call negotiated): ZYN_E_NOTRACK before. Calls of the application's
// thread; a stopped connection records nothing more.
class IZynRecorder {
public:
    // Audio to the file at path, raw payloads as they arrive; video (RecordVideo) to path +
    // ".video". ZYN_E_INVALIDARG for no path, ZYN_E_WRONGSTATE while recording, ZYN_E_NOTFOUND
    // for a file that cannot be made. ZYN_S_FALSE from the stops when nothing was recorded.
    virtual ZynResult StartRecord(const char* path) = 0;
    virtual ZynResult StopRecord() = 0;
    virtual ZynResult PauseRecord() = 0;
    virtual ZynResult ResumeRecord() = 0;
    // Also the main video stream, now (while recording) or from the next StartRecord.
    virtual ZynResult RecordVideo(bool enable) = 0;
    // A picture of the application's own into the video recording (ZYN_E_WRONGSTATE without one).
    virtual ZynResult PutRawVideoSample(unsigned int vid, _tagVideoRawFormat* format, unsigned char* data,
                                        unsigned int length, ZynVideoSampleType type) = 0;
    // The same audio to the application's record instead of a file (ZYN_E_POINTER for none).
    virtual ZynResult StartRecord4T(IZynMediaRecord* record) = 0;
    virtual ZynResult StopRecord4T() = 0;
    // The video of one remote stream (or, mixed, the main one) to the application's record;
    // ZYN_E_DUPLICATE when that stream already goes to a record.
    virtual ZynResult StartRecordVideo4T(IZynMediaRecord* record, unsigned char vid, bool mixed) = 0;
    virtual ZynResult StopRecordVideo4T(unsigned char vid, bool mixed) = 0;

protected:
    virtual ~IZynRecorder() = default;
};
