#include "tp/CmTimerWrapperID.h"

#include "tp/CmThread.h"
#include "tp/CmTimerQueue.h"

CCmTimerWrapperID::~CCmTimerWrapperID() { Cancel(); }

CmResult CCmTimerWrapperID::Schedule(CCmTimerWrapperIDSink* sink, const CCmTimeValue& interval, uint32_t count)
{
    ACmThread* current = ACmThread::GetCurrentThread();
    CCmTimerQueue* queue = current ? current->GetTimerQueue() : nullptr;
    if (!queue) return CM_ERROR_FAILURE;
    CCmTimerQueue* old = m_queue.load();
    if (old && old != queue) old->Cancel(this);
    CmResult r = queue->Schedule(this, sink, interval, count);
    if (r == CM_OK) m_queue.store(queue);
    return r;
}

CmResult CCmTimerWrapperID::Cancel()
{
    CCmTimerQueue* queue = m_queue.exchange(nullptr);
    if (!queue) return CM_ERROR_NOT_FOUND;
    return queue->Cancel(this);
}
