// Recording of a call: the service a connection gives through GetRecordService, and the sink an
// application hands it to receive the recorded media.
#pragma once

#include "mediasession/ZynDefines.h"

class IZynMediaRecord;
struct _tagAudioRawFormat;
struct _tagVideoRawFormat;
enum ZynVideoSampleType : int32_t;

class IZynRecorder {
public:
    virtual ZynResult StartRecord(const char* path) = 0;
    virtual ZynResult StopRecord() = 0;
    virtual ZynResult PauseRecord() = 0;
    virtual ZynResult ResumeRecord() = 0;
    virtual ZynResult RecordVideo(bool enable) = 0;
    virtual ZynResult PutRawVideoSample(unsigned int vid, _tagVideoRawFormat* format, unsigned char* data,
                                        unsigned int length, ZynVideoSampleType type) = 0;
    virtual ZynResult StartRecord4T(IZynMediaRecord* record) = 0;
    virtual ZynResult StopRecord4T() = 0;
    virtual ZynResult StartRecordVideo4T(IZynMediaRecord* record, unsigned char vid, bool mixed) = 0;
    virtual ZynResult StopRecordVideo4T(unsigned char vid, bool mixed) = 0;

protected:
    virtual ~IZynRecorder() = default;
};
