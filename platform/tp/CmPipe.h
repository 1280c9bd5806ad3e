// A self-pipe: one thread waits on the read end (poll/select) beside its sockets, another wakes it
// by writing a byte. Both ends are non-blocking and close on exec. Any thread may Notify.
#pragma once

#include "tp/CmDefines.h"

class CCmPipe {
public:
    CCmPipe();
    ~CCmPipe();
    CCmPipe(const CCmPipe&) = delete;
    CCmPipe& operator=(const CCmPipe&) = delete;

    bool IsValid() const { return m_read >= 0 && m_write >= 0; }
    int GetReadHandle() const { return m_read; }
    // Writes one byte; the count send() returned (1, or -1 when the pipe is full or broken: a full
    // pipe is still readable, which is all a wake-up needs).
    int Notify();
    // Empties the pipe after a wake-up was seen.
    void Drain();

private:
    int m_read = -1;
    int m_write = -1;
};
