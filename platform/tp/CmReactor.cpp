#include "tp/CmReactor.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace {

uint32_t ToEpoll(uint32_t mask)
{
    uint32_t events = 0;
    if (mask & ACmEventHandler::READ_MASK) events |= EPOLLIN;
    if (mask & ACmEventHandler::WRITE_MASK) events |= EPOLLOUT;
    return events;
}

}  // namespace

CCmReactor::CCmReactor()
{
    m_epoll = epoll_create1(EPOLL_CLOEXEC);
    m_wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_epoll >= 0 && m_wake >= 0) {
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.fd = m_wake;
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_wake, &ev);
    }
}

CCmReactor::~CCmReactor()
{
    if (m_wake >= 0) close(m_wake);
    if (m_epoll >= 0) close(m_epoll);
}

CmResult CCmReactor::RegisterHandler(int fd, ACmEventHandler* handler, uint32_t mask)
{
    if (fd < 0 || !handler) return CM_ERROR_INVALID_ARG;
    if (m_handlers.count(fd)) return CM_ERROR_ALREADY_INITIALIZED;
    epoll_event ev{};
    ev.events = ToEpoll(mask);
    ev.data.fd = fd;
    if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &ev) != 0) return CM_ERROR_FAILURE;
    m_handlers[fd] = handler;
    return CM_OK;
}

CmResult CCmReactor::ModifyHandler(int fd, uint32_t mask)
{
    if (!m_handlers.count(fd)) return CM_ERROR_NOT_FOUND;
    epoll_event ev{};
    ev.events = ToEpoll(mask);
    ev.data.fd = fd;
    return epoll_ctl(m_epoll, EPOLL_CTL_MOD, fd, &ev) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

CmResult CCmReactor::RemoveHandler(int fd)
{
    if (!m_handlers.erase(fd)) return CM_ERROR_NOT_FOUND;
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, fd, nullptr);
    return CM_OK;
}

void CCmReactor::Notify()
{
    uint64_t one = 1;
    // A full counter still leaves the descriptor readable, which is all a wake-up needs.
    [[maybe_unused]] ssize_t n = write(m_wake, &one, sizeof(one));
}

int CCmReactor::RunOnce(int timeoutMs)
{
    epoll_event events[64];
    int n = epoll_wait(m_epoll, events, 64, timeoutMs);
    if (n <= 0) return 0;
    int calls = 0;
    for (int i = 0; i < n; ++i) {
        int fd = events[i].data.fd;
        if (fd == m_wake) {
            uint64_t count;
            [[maybe_unused]] ssize_t r = read(m_wake, &count, sizeof(count));
            continue;
        }
        // A handler may remove itself or another one from inside a callback: look it up each time.
        auto it = m_handlers.find(fd);
        if (it == m_handlers.end()) continue;
        uint32_t e = events[i].events;
        if (e & (EPOLLIN | EPOLLERR | EPOLLHUP)) {
            if ((e & (EPOLLERR | EPOLLHUP)) && !(e & EPOLLIN)) {
                it->second->OnClose(fd);
            } else {
                it->second->OnInput(fd);
            }
            ++calls;
        }
        if (e & EPOLLOUT) {
            it = m_handlers.find(fd);
            if (it != m_handlers.end()) {
                it->second->OnOutput(fd);
                ++calls;
            }
        }
    }
    return calls;
}
