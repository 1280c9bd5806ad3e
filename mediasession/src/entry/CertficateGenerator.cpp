#include "entry/CertficateGenerator.h"

#include "tp/CmCert.h"
#include "tp/CmThreadManager.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {
// Built at library load, destroyed at unload; Instance() hands it out.
CCertficateGenerator theInstance;
}  // namespace

CCertficateGenerator* CCertficateGenerator::Instance()
{
    theInstance.EnsureKicked();
    return &theInstance;
}

CCertficateGenerator::CCertficateGenerator() = default;

CCertficateGenerator::~CCertficateGenerator()
{
    // Unload: let a generation in flight finish, and free the events nobody will receive.
    Stop();
}

void CCertficateGenerator::EnsureKicked()
{
    {
        CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
        if (m_bGenerationStarted) return;
        ACmThread::SetStop();  // counts as stopped, so it may be created
        m_bGenerationStarted = true;
    }
    GenerateKey(1024, 365);
}

CmResult CCertficateGenerator::GenerateKey(int bits, int days)
{
    m_keyBits = bits;
    m_validityDays = days;
    {
        CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
        if (!GetStopFlag()) return CM_ERROR_ALREADY_INITIALIZED;
        ClearStopFlag();
        m_bReady = false;
    }
    SetThreadId(-1);
    return Create("cert-c", TT_CERTIFICATE, TF_JOINABLE, false);
}

CmResult CCertficateGenerator::CreateCertificate(CCmString& certificate, CCmString& privateKey)
{
    return CreateCert(certificate, privateKey, m_keyBits, 0, m_validityDays);
}

void CCertficateGenerator::OnThreadRun()
{
    MS_INFO_TRACE("CCertficateGenerator::OnThreadRun, begin" << " this=" << static_cast<void*>(this));
    CCmString certificate, privateKey;
    CmResult r = CreateCertificate(certificate, privateKey);
    if (r != CM_OK) MS_ERROR_TRACE("CCertficateGenerator::OnThreadRun, CreateCert failed, result=" << r);

    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    m_privateKey = std::move(privateKey);
    m_certificate = std::move(certificate);
    m_bReady = true;
    SetStop();
    for (auto& [event, threadType] : m_observers) {
        ACmThread* thread = CCmThreadManager::Instance()->GetThread(threadType);
        ICmEventQueue* queue = thread ? thread->GetEventQueue() : nullptr;
        // An observer whose thread is gone is skipped; its event is neither posted nor freed.
        if (queue) queue->PostEvent(event, CM_EVENT_PRIORITY_NORMAL);
    }
    m_observers.clear();
    MS_INFO_TRACE("CCertficateGenerator::OnThreadRun, end" << " this=" << static_cast<void*>(this));
}

CmResult CCertficateGenerator::Stop(CCmTimeValue*)
{
    std::vector<std::pair<ICmEvent*, int32_t>> dropped;
    {
        CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
        dropped.swap(m_observers);
        SetStop();
    }
    // Nothing is posted to a line that is going down; the events are still ours to free.
    for (auto& [event, threadType] : dropped) event->OnDestorySelf();
    ACmThread::Join();
    return CM_OK;
}

int CCertficateGenerator::RegisterObserver(ICmEvent* event, int threadType)
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    if (m_bReady) return 1;
    m_observers.emplace_back(event, threadType);
    return 0;
}

int CCertficateGenerator::UnRegisterObserver(ICmEvent* event)
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    for (auto it = m_observers.begin(); it != m_observers.end(); ++it) {
        if (it->first == event) {
            m_observers.erase(it);
            return 0;
        }
    }
    return 1;
}

bool CCertficateGenerator::IsReady()
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    return m_bReady;
}

bool CCertficateGenerator::IsGenerationStarted()
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    return m_bGenerationStarted;
}

void CCertficateGenerator::GetCertificate(CCmString& certificate, CCmString& privateKey)
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    certificate = m_certificate;
    privateKey = m_privateKey;
}

size_t CCertficateGenerator::ObserverCount()
{
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
    return m_observers.size();
}

}  // namespace zyn
