#include "tp/CmSocketUtil.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tp/CmThreadManager.h"

namespace cmnet {

int OpenSocket(const CCmInetAddr& family, int type)
{
    int fd = socket(family.GetType(), type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (family.IsIpv6()) {
        int only = 1;  // an IPv6 socket takes IPv6 peers only; IPv4 goes through its own socket
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof(only));
    }
    return fd;
}

CmResult Bind(int fd, const CCmInetAddr& address, CCmInetAddr& bound)
{
    if (bind(fd, address.GetPtr(), address.GetSize()) != 0) return CM_ERROR_FAILURE;
    sockaddr_storage ss{};
    socklen_t len = sizeof(ss);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) != 0) return CM_ERROR_FAILURE;
    return bound.SetIpAddrBySock(reinterpret_cast<sockaddr*>(&ss), len);
}

void Close(int& fd)
{
    if (fd >= 0) close(fd);
    fd = -1;
}

CmResult OnThread(ACmThread* thread, std::function<CmResult()> call)
{
    if (!thread) return CM_ERROR_NULL_POINTER;
    if (thread->IsCurrentThread()) return call();
    return CmInvokeInThread(thread, false, std::move(call));
}

}  // namespace cmnet
