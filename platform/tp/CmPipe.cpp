#include "tp/CmPipe.h"

#include <fcntl.h>
#include <unistd.h>

CCmPipe::CCmPipe()
{
    int fds[2];
    if (pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0) {
        m_read = fds[0];
        m_write = fds[1];
    }
}

CCmPipe::~CCmPipe()
{
    if (m_read >= 0) close(m_read);
    if (m_write >= 0) close(m_write);
}

int CCmPipe::Notify()
{
    if (m_write < 0) return -1;
    const char one = 1;
    return static_cast<int>(write(m_write, &one, 1));
}

void CCmPipe::Drain()
{
    char buffer[64];
    while (m_read >= 0 && read(m_read, buffer, sizeof(buffer)) > 0) {
    }
}
