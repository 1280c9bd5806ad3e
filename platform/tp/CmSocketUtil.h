// Small helpers over BSD sockets shared by the UDP and TCP transports.
#pragma once

#include "tp/CmDefines.h"
#include "tp/CmInetAddr.h"
#include "tp/CmThread.h"

namespace cmnet {

// A non-blocking, close-on-exec socket of the address's family; -1 on failure.
int OpenSocket(const CCmInetAddr& family, int type);
// Binds fd to address and reads back the address it got (for port 0).
CmResult Bind(int fd, const CCmInetAddr& address, CCmInetAddr& bound);
void Close(int& fd);
// Runs call on thread: inline when already there, else sent and waited for.
CmResult OnThread(ACmThread* thread, std::function<CmResult()> call);

}  // namespace cmnet
