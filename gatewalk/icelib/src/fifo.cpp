// The triggered-check queue of a check list: a ring of pair ids, where a removed entry is marked
// rather than taken out so that the ring never moves under a reader.
#include "icelib_internal.h"

namespace gatewalk::icelib_detail {

namespace {

bool FifoEmpty(const ICELIB_TRIGGERED_FIFO* fifo) { return fifo->head == fifo->tail && !fifo->isFull; }

uint32_t Next(uint32_t index) { return (index + 1) % ICELIB_MAX_FIFO_ELEMENTS; }

}  // namespace

template <class P>
bool Agent<P>::FifoPut(ICELIB_TRIGGERED_FIFO* fifo, const Pair* pair)
{
    if (fifo->isFull) return true;
    fifo->elements[fifo->tail] = pair->pairId;
    fifo->tail = Next(fifo->tail);
    fifo->isFull = fifo->tail == fifo->head;
    return false;
}

template <class P>
bool Agent<P>::FifoIsPresent(const ICELIB_TRIGGERED_FIFO* fifo, uint32_t pairId)
{
    if (FifoEmpty(fifo)) return false;
    uint32_t i = fifo->head;
    do {
        if (fifo->elements[i] == pairId) return true;
        i = Next(i);
    } while (i != fifo->tail);
    return false;
}

template <class P>
bool Agent<P>::FifoPutIfNotPresent(ICELIB_TRIGGERED_FIFO* fifo, const Pair* pair)
{
    if (FifoIsPresent(fifo, pair->pairId)) return false;
    return FifoPut(fifo, pair);
}

template <class P>
typename Agent<P>::Pair* Agent<P>::FifoGet(Ctrl* ctrl)
{
    ICELIB_TRIGGERED_FIFO* fifo = &ctrl->triggeredChecksFifo;
    while (!FifoEmpty(fifo)) {
        const uint32_t id = fifo->elements[fifo->head];
        fifo->head = Next(fifo->head);
        fifo->isFull = false;
        if (id == ICELIB_FIFO_ELEMENT_REMOVED) continue;
        Pair* pair = FindPairById(&ctrl->checkList, id);
        if (pair != nullptr) return pair;
    }
    return nullptr;
}

template <class P>
void Agent<P>::FifoRemove(ICELIB_TRIGGERED_FIFO* fifo, uint32_t pairId)
{
    if (FifoEmpty(fifo)) return;
    uint32_t i = fifo->head;
    do {
        if (fifo->elements[i] == pairId) fifo->elements[i] = ICELIB_FIFO_ELEMENT_REMOVED;
        i = Next(i);
    } while (i != fifo->tail);
}

template <class P>
void Agent<P>::FifoClear(ICELIB_TRIGGERED_FIFO* fifo)
{
    fifo->head = 0;
    fifo->tail = 0;
    fifo->isFull = false;
}

template <class P>
void Agent<P>::Trigger(Inst* inst, Ctrl* ctrl, Pair* pair)
{
    if (FifoPutIfNotPresent(&ctrl->triggeredChecksFifo, pair)) {
        Log(inst, ICELIB_logWarning, "Triggered Check queue full");
        return;
    }
    // The scheduler may have gone idle on this list; a queued check wakes it.
    ctrl->checkList.timerRunning = 1;
}

template struct Agent<IcelibQlox>;
template struct Agent<IcelibZyn>;

}  // namespace gatewalk::icelib_detail
