// epoll reactor of one loop thread. Handlers are registered and removed on the owner thread only;
// Notify() may be called from any thread to wake a blocked RunOnce().
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "tp/CmDefines.h"

class ACmEventHandler {
public:
    enum Mask : uint32_t { READ_MASK = 1, WRITE_MASK = 2 };
    virtual ~ACmEventHandler() = default;
    virtual void OnInput(int fd) = 0;
    virtual void OnOutput(int) {}
    // Error or hang-up on the descriptor.
    virtual void OnClose(int fd) = 0;
};

class CCmReactor {
public:
    CCmReactor();
    ~CCmReactor();
    CCmReactor(const CCmReactor&) = delete;
    CCmReactor& operator=(const CCmReactor&) = delete;

    bool IsValid() const { return m_epoll >= 0 && m_wake >= 0; }

    CmResult RegisterHandler(int fd, ACmEventHandler* handler, uint32_t mask);
    CmResult ModifyHandler(int fd, uint32_t mask);
    CmResult RemoveHandler(int fd);
    size_t HandlerCount() const { return m_handlers.size(); }

    // Waits up to timeoutMs (-1: forever) and dispatches ready descriptors.
    // Returns the number of handler callbacks made.
    int RunOnce(int timeoutMs);
    void Notify();

private:
    int m_epoll = -1;
    int m_wake = -1;  // eventfd
    std::unordered_map<int, ACmEventHandler*> m_handlers;
};
