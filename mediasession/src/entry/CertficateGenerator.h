// The process-wide generator of the DTLS key and certificate. RSA key generation is slow on small
// devices, so it starts at engine init on its own thread ("cert-c") and runs once per process;
// lines that need the fingerprint register an event to be posted to their thread when it is done.
#pragma once

#include <utility>
#include <vector>

#include "tp/CmEvent.h"
#include "tp/CmMutex.h"
#include "tp/CmString.h"
#include "tp/CmThread.h"

namespace zyn {

class CCertficateGenerator : public ACmThread {
public:
    // The one object, kicked into generation on first use.
    static CCertficateGenerator* Instance();

    CmResult Stop(CCmTimeValue* timeout = nullptr) override;
    void OnThreadRun() override;
    virtual CmResult CreateCertificate(CCmString& certificate, CCmString& privateKey);

    // 0, or 31000025 while the worker runs (a success by the library's test, on purpose: no caller
    // looks at it).
    CmResult GenerateKey(int bits, int days);
    // 0: stored, it is posted to the thread of threadType when generation ends. 1: generation has
    // ended already; the event is not taken and the caller reads the certificate at once.
    int RegisterObserver(ICmEvent* event, int threadType);
    // 0 when the first entry with that event was removed, 1 when there was none.
    int UnRegisterObserver(ICmEvent* event);

    // Gives the one-time kick when it has not been given yet; generation started is never cleared.
    void EnsureKicked();

    bool IsReady();
    bool IsGenerationStarted();
    // The results, empty until ready.
    void GetCertificate(CCmString& certificate, CCmString& privateKey);
    size_t ObserverCount();

    CCertficateGenerator();
    ~CCertficateGenerator() override;

private:
    CCmMutexThreadRecursive m_mutex;
    bool m_bGenerationStarted = false;  // guarded by m_mutex
    bool m_bReady = false;              // guarded by m_mutex
    int32_t m_keyBits = 1024;
    int32_t m_validityDays = 365;
    CCmString m_certificate;  // guarded by m_mutex
    CCmString m_privateKey;   // guarded by m_mutex
    std::vector<std::pair<ICmEvent*, int32_t>> m_observers;  // guarded by m_mutex; events owned until posted
};

}  // namespace zyn
