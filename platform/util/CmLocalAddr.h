// The machine's own addresses, for host candidates and the default local address.
//
// An allow-list restricts every answer to the listed addresses: set_local_addr_allow_list(), or,
// when that was never called, the environment variable MEDIASESSION_ALLOWED_ADDRS
// ("127.0.0.1,::1"). Tests use it so that nothing sees the machine's other interfaces. A set but
// unreadable list lets nothing through rather than everything.
#pragma once

#include <net/if.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "tp/CmDefines.h"

struct CmLocalAddr {
    sockaddr_storage addr;      // AF_INET or AF_INET6, port 0 (CCmInetAddr::SetIpAddrBySock reads it)
    char ifname[IF_NAMESIZE];   // NUL-terminated
    unsigned int ifindex;
    bool loopback;
};

// Addresses of interfaces that are up, IPv4 and IPv6, in the system's order. Loopback interfaces are
// left out unless the allow-list names their address; with an allow-list only listed addresses come
// back. On success *list holds *count entries (null when there are none, which is no failure) and
// must go back through free_local_addr. CM_ERROR_NULL_POINTER for null arguments, CM_ERROR_FAILURE
// when the interfaces cannot be read.
CmResult get_local_addr(CmLocalAddr** list, unsigned int* count);
void free_local_addr(CmLocalAddr* list);

// In place, keeping order: drops IPv6 link-local addresses (fe80::/10), repeats of an address seen
// earlier, and addresses outside the allow-list when one is set. *count becomes the new length.
void prune_local_addr(CmLocalAddr* list, unsigned int* count);

// True when the usable addresses are IPv6 only: at least one IPv6 that is neither loopback nor
// link-local, and no IPv4 other than loopback (a NAT64 network).
bool isPureIp6();

// An explicit allow-list; it replaces the environment's. An empty vector means "no restriction".
void set_local_addr_allow_list(const std::vector<std::string>& addresses);
// Back to the environment variable (or no restriction when it is unset).
void clear_local_addr_allow_list();
