// The offer/answer exchange between two connections of one process, as an application's
// signalling would carry it: shared by `mediasession call` and `mediasession call --sdp-only`.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "mediasession/ZynMediaEngine.h"

namespace tool {

// One side of the call: remembers what its connection hands out.
class CallSide final : public IZynMediaConnectionSink {
public:
    explicit CallSide(const char* name) : m_name(name) {}

    void OnMediaReady(unsigned long mid, ZynDirection direction, ZynSessionType type, IZynMediaTrackBase*) override;
    void OnSDPReady(ZynSdpType type, const char* sdp) override;
    void OnError(int code, void*) override;

    bool WaitMediaReady(int count);
    const char* Name() const { return m_name; }
    // The last description of that type, empty when none came.
    std::string LastSdp(ZynSdpType type);

private:
    const char* m_name;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_ready = 0;
    std::string m_offer;
    std::string m_answer;
};

struct ExchangeOptions {
    bool printDescriptions = false;  // the texts themselves, masked unless insecure
    bool insecure = false;
    std::string saveDir;  // when set: offer.sdp and answer.sdp are written there
};

// A offers, B answers, A applies the answer. Prints each step and the records both sides get.
bool ExchangeDescriptions(IZynMediaConnection* a, CallSide& sideA, IZynMediaConnection* b, CallSide& sideB,
                          const ExchangeOptions& options);

bool Check(const char* what, ZynResult r);

}  // namespace tool
