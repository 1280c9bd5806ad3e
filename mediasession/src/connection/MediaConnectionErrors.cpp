// Device errors reach the application through OnError; the names of the audio ones are also kept
// for the session metrics ("notified"). Session statuses of the lines go out from here too.
#include <algorithm>
#include <array>

#include "connection/MediaConnection.h"
#include "tp/CmThreadManager.h"

namespace zyn {

namespace {

struct NamedError {
    int code;
    const char* name;
};

constexpr std::array<NamedError, 13> kRecordedErrors = {{
    {0x46014106, "AudioServiceRunOut"},
    {0x46014107, "AudioCaptureCannotCaptureFromDevice"},
    {0x46014108, "AudioPlaybackCannotPlayToDevice"},
    {0x4601411b, "AudioSessionDisconnectedForCaptureExclusiveModeOverride"},
    {0x4601411c, "AudioSessionDisconnectedForPlaybackExclusiveModeOverride"},
    {0x4601411d, "AudioDeviceNotAuthorized"},
    {0x4601411f, "AudioCaptureNoCaptureData"},
    {0x46014120, "AudioPlaybackUnknownIssue"},
    {0x46014121, "AudioSessionDisconnectedForCaptureFormatChanged"},
    {0x46014122, "AudioSessionDisconnectedForPlaybackFormatChanged"},
    {0x46014123, "AudioSessionDisconnectedForDeviceRemoval"},
    {0x46014124, "AudioSessionDisconnectedForServiceShutdown"},
    {0x46014126, "AudioCaptureFewCaptureData"},
}};

// Bounds the list in the metrics document.
constexpr size_t kMaxNotifiedErrors = 21;

}  // namespace

void CMediaConnection::callBackOnError(int code, void* data)
{
    CCmMutexGuardT<CCmMutexThread> guard(m_errorMutex);
    auto named = std::find_if(kRecordedErrors.begin(), kRecordedErrors.end(),
                              [code](const NamedError& e) { return e.code == code; });
    if (named != kRecordedErrors.end() && m_notifiedErrors.size() < kMaxNotifiedErrors &&
        std::find(m_notifiedErrors.begin(), m_notifiedErrors.end(), named->name) == m_notifiedErrors.end())
        m_notifiedErrors.emplace_back(named->name);
    if (IZynMediaConnectionSink* sink = m_pSink.load()) sink->OnError(code, data);
}

void CMediaConnection::callBackOnSessionStatus(unsigned long mid, ZynSessionType type, int status)
{
    // The application hears its connection on the main thread; the event keeps the connection, and
    // a sink cleared by Stop in the meantime hears nothing.
    ACmThread* main = CCmThreadManager::Instance()->GetThread(TT_MAIN);
    if (!main) return;
    CMediaConnectionPtr self(this);
    CmInvokeInThread(main, true, [self, mid, type, status] {
        if (IZynMediaConnectionSink* sink = self->m_pSink.load()) sink->OnSessionStatus(mid, type, status);
        return CM_OK;
    });
}

std::vector<std::string> CMediaConnection::GetNotifiedErrors()
{
    CCmMutexGuardT<CCmMutexThread> guard(m_errorMutex);
    return m_notifiedErrors;
}

}  // namespace zyn
