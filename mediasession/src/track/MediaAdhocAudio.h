// A connection's audio path outside every line: a remote audio stream the application feeds with
// packets it got by other means, played by an engine session of its own.
//
// Threads: main thread (the application's calls and the connection's Stop); ReceiveAdhocRTP may
// come from the application's receive thread, so m_mutex guards the session and tracks.
#pragma once

#include <map>
#include <mutex>

#include "common/ZynIdentity.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

class CMediaAdhocAudio : public ZYNIdentityT<CMediaAdhocAudio> {
public:
    explicit CMediaAdhocAudio(uint32_t callId) : ZYNIdentityT<CMediaAdhocAudio>(callId, ZynSessionType_Audio) {}
    ~CMediaAdhocAudio() { Stop(); }
    CMediaAdhocAudio(const CMediaAdhocAudio&) = delete;
    CMediaAdhocAudio& operator=(const CMediaAdhocAudio&) = delete;

    // The session is made at the first track. ZYN_E_FAIL without an engine or after Stop,
    // ZYN_E_INVALIDARG for a vid above 255, ZYN_E_DUPLICATE for one already made.
    ZynResult CreateAdhocAudioTrack(unsigned int vid, IZynMediaEngineInternal* engine);
    // ZYN_E_POINTER without a session, ZYN_E_INVALIDARG for an unknown vid or no bytes.
    ZynResult ReceiveAdhocRTP(unsigned int vid, const unsigned char* data, unsigned int length);
    // Stops and releases the tracks and the session; later creations are refused.
    void Stop();
    // The session, without a reference (tests and statistics); null before the first track.
    IZynMediaSession* GetSession();

private:
    std::mutex m_mutex;
    IZynMediaSession* m_pSession = nullptr;         // one reference; guarded by m_mutex
    std::map<unsigned int, IZynMediaTrack*> m_tracks;  // one reference each, by vid; guarded by m_mutex
    bool m_bStopped = false;                        // guarded by m_mutex
};

}  // namespace zyn
