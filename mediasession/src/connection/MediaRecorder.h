// The connection's recordings: what remote tracks receive, tapped as their frames are rendered and
// written to a file or handed to the application's record.
//
// Threads: the operations run on the application's thread under the recorder's own lock; the taps
// run on the engine's receive thread, and a tap's removal from its track waits for a frame in
// progress, so nothing is written once a stop returned.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mediasession/ZynMediaTrack.h"
#include "mediasession/ZynRecorder.h"

class IZynMediaTrack;
class IZynMediaFileRenderer;
class IZynMediaEngineInternal;

namespace zyn {

// One remote track's frames to a file, to a record, or both.
class CRecordTap final : public IZynExternalRenderer {
public:
    // Holds a reference on the track and the file; attaches at once (Attached() tells).
    CRecordTap(IZynMediaTrack* track, IZynMediaFileRenderer* file, IZynMediaRecord* record, int vid);
    ~CRecordTap();
    CRecordTap(const CRecordTap&) = delete;
    CRecordTap& operator=(const CRecordTap&) = delete;

    bool Attached() const { return m_attached; }
    void Pause(bool pause) { m_paused.store(pause); }
    void OnRenderFrame(const unsigned char* data, unsigned int length, int format) override;

private:
    IZynMediaTrack* const m_track;
    IZynMediaFileRenderer* const m_file;
    IZynMediaRecord* const m_record;
    const int m_vid;  // -1 for audio
    bool m_attached = false;
    std::atomic<bool> m_paused{false};
};

// The remote tracks a recording starts from, each with one reference (released by the holder).
struct CRecordSources {
    std::vector<IZynMediaTrack*> audio;
    IZynMediaTrack* video = nullptr;  // the main video stream, when the call has one
    ~CRecordSources();
};

class CMediaRecorder {
public:
    CMediaRecorder() = default;
    ~CMediaRecorder() { StopAll(); }
    CMediaRecorder(const CMediaRecorder&) = delete;
    CMediaRecorder& operator=(const CMediaRecorder&) = delete;

    ZynResult StartFile(IZynMediaEngineInternal* engine, const char* path, const CRecordSources& sources);
    ZynResult StopFile();
    ZynResult PauseFile(bool pause);
    ZynResult RecordVideo(IZynMediaEngineInternal* engine, bool enable, const CRecordSources& sources);
    ZynResult PutVideoSample(const unsigned char* data, unsigned int length);
    ZynResult StartRecord(IZynMediaRecord* record, const CRecordSources& sources);
    ZynResult StopRecord();
    ZynResult StartVideoRecord(IZynMediaRecord* record, int key, IZynMediaTrack* track);
    ZynResult StopVideoRecord(int key);
    void StopAll();

private:
    ZynResult OpenVideoFile(IZynMediaEngineInternal* engine, IZynMediaTrack* video);
    void CloseVideoFile();

    std::mutex m_mutex;
    // The file recording (all guarded by m_mutex).
    bool m_recording = false;
    bool m_paused = false;
    bool m_video = false;
    std::string m_path;
    IZynMediaFileRenderer* m_audioFile = nullptr;
    IZynMediaFileRenderer* m_videoFile = nullptr;
    std::vector<std::unique_ptr<CRecordTap>> m_audioTaps;
    std::unique_ptr<CRecordTap> m_videoTap;
    // The application's records.
    std::vector<std::unique_ptr<CRecordTap>> m_recordTaps;
    std::map<int, std::unique_ptr<CRecordTap>> m_videoRecordTaps;  // by vid; -1 the main stream
};

}  // namespace zyn
