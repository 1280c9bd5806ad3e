#include "connection/MediaRecorder.h"

#include <utility>

#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

CRecordTap::CRecordTap(IZynMediaTrack* track, IZynMediaFileRenderer* file, IZynMediaRecord* record, int vid)
    : m_track(track), m_file(file), m_record(record), m_vid(vid)
{
    if (m_track) m_track->AddRef();
    if (m_file) m_file->AddRef();
    m_attached = m_track && ZYN_SUCCEEDED(m_track->AddFrameRenderer(this, 0));
}

CRecordTap::~CRecordTap()
{
    if (m_attached) m_track->RemoveFrameRenderer(this);
    if (m_file) m_file->Release();
    if (m_track) m_track->Release();
}

void CRecordTap::OnRenderFrame(const unsigned char* data, unsigned int length, int)
{
    if (m_paused.load()) return;
    if (m_file) m_file->RenderPayload(data, length);
    if (!m_record) return;
    if (m_vid < 0)
        m_record->OnRecordAudio(data, length);
    else
        m_record->OnRecordVideo(static_cast<unsigned char>(m_vid), data, length);
}

CRecordSources::~CRecordSources()
{
    for (IZynMediaTrack* t : audio) t->Release();
    if (video) video->Release();
}

ZynResult CMediaRecorder::StartFile(IZynMediaEngineInternal* engine, const char* path, const CRecordSources& sources)
{
    if (!path || !*path) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_recording) return ZYN_E_WRONGSTATE;
    if (!engine) return ZYN_E_WRONGSTATE;
    if (sources.audio.empty()) return ZYN_E_NOTRACK;
    ZynResult r = engine->CreateFileRenderer(path, ZynRawFormat_Wav, &m_audioFile);
    if (r != ZYN_S_OK) return r;
    for (IZynMediaTrack* t : sources.audio) m_audioTaps.push_back(std::make_unique<CRecordTap>(t, m_audioFile, nullptr, -1));
    m_path = path;
    m_recording = true;
    m_paused = false;
    if (m_video && (r = OpenVideoFile(engine, sources.video)) != ZYN_S_OK) MS_WARNING_TRACE("CMediaRecorder::StartFile, no video file, result=" << r);
    MS_INFO_TRACE("CMediaRecorder::StartFile, path=" << path << ", audio streams=" << m_audioTaps.size()
                  << ", video=" << (m_videoFile != nullptr));
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::OpenVideoFile(IZynMediaEngineInternal* engine, IZynMediaTrack* video)
{
    const ZynResult r = engine->CreateFileRenderer((m_path + ".video").c_str(), ZynRawFormat_I420, &m_videoFile);
    if (r != ZYN_S_OK) return r;
    if (video) m_videoTap = std::make_unique<CRecordTap>(video, m_videoFile, nullptr, 0);
    if (m_videoTap) m_videoTap->Pause(m_paused);
    return ZYN_S_OK;
}

void CMediaRecorder::CloseVideoFile()
{
    m_videoTap.reset();
    if (m_videoFile) std::exchange(m_videoFile, nullptr)->Release();
}

ZynResult CMediaRecorder::StopFile()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_recording) return ZYN_S_FALSE;
    m_audioTaps.clear();
    CloseVideoFile();
    std::exchange(m_audioFile, nullptr)->Release();
    m_recording = false;
    MS_INFO_TRACE("CMediaRecorder::StopFile, path=" << m_path);
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::PauseFile(bool pause)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_recording) return ZYN_E_WRONGSTATE;
    if (m_paused == pause) return ZYN_S_FALSE;
    m_paused = pause;
    for (auto& tap : m_audioTaps) tap->Pause(pause);
    if (m_videoTap) m_videoTap->Pause(pause);
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::RecordVideo(IZynMediaEngineInternal* engine, bool enable, const CRecordSources& sources)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_video == enable) return ZYN_S_FALSE;
    m_video = enable;
    if (!m_recording) return ZYN_S_OK;
    if (!enable) {
        CloseVideoFile();
        return ZYN_S_OK;
    }
    if (!engine) return ZYN_E_WRONGSTATE;
    const ZynResult r = OpenVideoFile(engine, sources.video);
    if (r != ZYN_S_OK) m_video = false;
    return r;
}

ZynResult CMediaRecorder::PutVideoSample(const unsigned char* data, unsigned int length)
{
    if (!data || !length) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_videoFile) return ZYN_E_WRONGSTATE;
    return m_paused ? ZYN_S_FALSE : m_videoFile->RenderPayload(data, length);
}

ZynResult CMediaRecorder::StartRecord(IZynMediaRecord* record, const CRecordSources& sources)
{
    if (!record) return ZYN_E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_recordTaps.empty()) return ZYN_E_WRONGSTATE;
    if (sources.audio.empty()) return ZYN_E_NOTRACK;
    for (IZynMediaTrack* t : sources.audio) m_recordTaps.push_back(std::make_unique<CRecordTap>(t, nullptr, record, -1));
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::StopRecord()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_recordTaps.empty()) return ZYN_S_FALSE;
    m_recordTaps.clear();
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::StartVideoRecord(IZynMediaRecord* record, int key, IZynMediaTrack* track)
{
    if (!record) return ZYN_E_POINTER;
    if (!track) return ZYN_E_NOTRACK;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_videoRecordTaps.count(key)) return ZYN_E_DUPLICATE;
    auto tap = std::make_unique<CRecordTap>(track, nullptr, record, key < 0 ? 0 : key);
    if (!tap->Attached()) return ZYN_E_FAIL;
    m_videoRecordTaps[key] = std::move(tap);
    return ZYN_S_OK;
}

ZynResult CMediaRecorder::StopVideoRecord(int key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_videoRecordTaps.erase(key) ? ZYN_S_OK : ZYN_E_NOTFOUND;
}

void CMediaRecorder::StopAll()
{
    StopFile();
    StopRecord();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_videoRecordTaps.clear();
}

}  // namespace zyn
