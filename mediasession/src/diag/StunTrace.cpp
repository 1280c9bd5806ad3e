// Runs on the "StunTrace" thread, except Start, NotifyStop, SetSink and the accessors (any thread).
#include "diag/StunTrace.h"

#include <linux/errqueue.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "stunlib.h"
#include "tp/CmDns.h"
#include "util/CmJson.h"
#include "util/CmTrace.h"

namespace {

namespace z = zyn_gatewalk;

// Longest name DNS carries (RFC 1035 2.3.4).
constexpr size_t kMaxHostName = 253;

uint64_t MonotonicUs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

CCmInetAddr FromStun(const gatewalk::StunIPAddress& a)
{
    sockaddr_storage ss{};
    if (a.familyType == gatewalk::STUN_ADDR_IPv6Family) {
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&ss);
        v6->sin6_family = AF_INET6;
        memcpy(v6->sin6_addr.s6_addr, a.addr.v6, 16);
        v6->sin6_port = htons(a.port);
    } else {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&ss);
        v4->sin_family = AF_INET;
        v4->sin_addr.s_addr = htonl(a.addr.v4);
        v4->sin_port = htons(a.port);
    }
    return CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), sizeof(ss));
}

// The address the kernel would send from towards target: a connect() on a scratch UDP socket
// routes without sending anything.
bool RouteSource(const CCmInetAddr& target, CCmInetAddr& source)
{
    const int fd = socket(target.GetType(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_storage ss{};
    socklen_t len = sizeof(ss);
    const bool ok = connect(fd, target.GetPtr(), target.GetSize()) == 0 &&
                    getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0;
    close(fd);
    if (!ok) return false;
    source = CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), len);
    source.SetPort(0);
    return true;
}

// A UDP socket with the error queue on: ICMP errors about our datagrams come back as messages we
// can read, quoting the datagram (and so its transaction id) and naming the router that sent them.
class CStunTraceUdpSocket final : public IStunTraceSocket {
public:
    CStunTraceUdpSocket(const CCmInetAddr& target, int stopFd) : m_target(target), m_stopFd(stopFd) {}
    ~CStunTraceUdpSocket() override
    {
        if (m_fd >= 0) close(m_fd);
    }

    // Opens and binds to local (port 0: any); the errno on failure.
    int Open(const CCmInetAddr& local)
    {
        m_fd = socket(m_target.GetType(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_fd < 0) {
            const int error = errno;
            MS_ERROR_TRACE("StunTrace - Could not create send socket. errno=" << error);
            return error;
        }
        const int one = 1;
        const bool v6 = m_target.IsIpv6();
        if (setsockopt(m_fd, v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? IPV6_RECVERR : IP_RECVERR, &one, sizeof(one)) != 0)
            return errno;
        if (bind(m_fd, local.GetPtr(), local.GetSize()) != 0) return errno;
        sockaddr_storage ss{};
        socklen_t len = sizeof(ss);
        if (getsockname(m_fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0)
            m_local = CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), len);
        return 0;
    }

    uint64_t NowUs() override { return MonotonicUs(); }
    CCmInetAddr GetLocalAddr() override { return m_local; }

    CmResult SetTtl(int ttl) override
    {
        const bool v6 = m_target.IsIpv6();
        return setsockopt(m_fd, v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? IPV6_UNICAST_HOPS : IP_TTL, &ttl, sizeof(ttl)) == 0
                   ? CM_OK
                   : CM_ERROR_FAILURE;
    }

    int Send(const uint8_t* data, size_t length) override
    {
        return sendto(m_fd, data, length, 0, m_target.GetPtr(), m_target.GetSize()) < 0 ? errno : 0;
    }

    StunTraceEvent Wait(uint64_t deadlineUs) override
    {
        for (;;) {
            StunTraceEvent ev;
            if (ReadErrorQueue(ev) || ReadDatagram(ev)) return ev;
            const uint64_t now = NowUs();
            if (now >= deadlineUs) {
                ev.kind = StunTraceEvent::TIMEOUT;
                ev.atUs = now;
                return ev;
            }
            pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
            const int waitMs = static_cast<int>((deadlineUs - now + 999) / 1000);
            const int n = poll(fds, 2, waitMs);
            if (n < 0 && errno != EINTR) {
                ev.kind = StunTraceEvent::LOCAL_ERROR;
                ev.error = errno;
                return ev;
            }
            if (n > 0 && (fds[1].revents & POLLIN)) {
                ev.kind = StunTraceEvent::STOPPED;
                return ev;
            }
        }
    }

private:
    bool ReadErrorQueue(StunTraceEvent& ev)
    {
        uint8_t quoted[512];
        uint8_t control[512];
        sockaddr_storage from{};
        iovec iov{quoted, sizeof(quoted)};
        msghdr msg{};
        msg.msg_name = &from;
        msg.msg_namelen = sizeof(from);
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        const ssize_t n = recvmsg(m_fd, &msg, MSG_ERRQUEUE | MSG_DONTWAIT);
        if (n < 0) return false;
        ev.atUs = NowUs();
        ev.kind = StunTraceEvent::OTHER;
        for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
            const bool v4 = c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_RECVERR;
            const bool v6 = c->cmsg_level == IPPROTO_IPV6 && c->cmsg_type == IPV6_RECVERR;
            if (!v4 && !v6) continue;
            if (c->cmsg_len < CMSG_LEN(sizeof(sock_extended_err))) continue;
            sock_extended_err err;
            memcpy(&err, CMSG_DATA(c), sizeof(err));
            if (err.ee_origin == SO_EE_ORIGIN_ICMP || err.ee_origin == SO_EE_ORIGIN_ICMP6) {
                ev.kind = StunTraceEvent::ICMP_ERROR;
                ev.icmpType = err.ee_type;
                ev.icmpCode = err.ee_code;
                // The router's address follows the record inside the same control message.
                const size_t room = c->cmsg_len - CMSG_LEN(sizeof(sock_extended_err));
                const auto* offender = reinterpret_cast<const uint8_t*>(CMSG_DATA(c)) + sizeof(sock_extended_err);
                sockaddr_storage ss{};
                memcpy(&ss, offender, std::min(room, sizeof(ss)));
                ev.from = CCmInetAddr(reinterpret_cast<sockaddr*>(&ss), sizeof(ss));
            } else if (err.ee_origin == SO_EE_ORIGIN_LOCAL) {
                ev.kind = StunTraceEvent::LOCAL_ERROR;
                ev.error = static_cast<int>(err.ee_errno);
            }
        }
        // The quoted datagram is our request: its transaction id sits at bytes 8 to 19.
        if (n >= 20) memcpy(ev.id.octet, quoted + 8, sizeof(ev.id.octet));
        else ev.idKnown = false;
        return true;
    }

    bool ReadDatagram(StunTraceEvent& ev)
    {
        uint8_t buffer[1500];
        sockaddr_storage from{};
        socklen_t fromLen = sizeof(from);
        const ssize_t n = recvfrom(m_fd, buffer, sizeof(buffer), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n < 0) return false;
        ev.atUs = NowUs();
        ev.kind = StunTraceEvent::OTHER;
        ev.from = CCmInetAddr(reinterpret_cast<sockaddr*>(&from), fromLen);
        z::StunMessage message;
        if (!z::stunlib_isStunMsg(buffer, static_cast<unsigned int>(n)) ||
            !z::stunlib_DecodeMessage(buffer, static_cast<unsigned long>(n), &message, nullptr, nullptr) ||
            !z::stunlib_isResponse(&message))
            return true;
        ev.kind = StunTraceEvent::STUN_RESPONSE;
        ev.id = message.msgHdr.id;
        if (message.hasXorMappedAddress) {
            ev.mapped = FromStun(message.xorMappedAddress);
            ev.hasMapped = true;
        } else if (message.hasMappedAddress) {
            ev.mapped = FromStun(message.mappedAddress);
            ev.hasMapped = true;
        }
        return true;
    }

    const CCmInetAddr m_target;
    const int m_stopFd;
    int m_fd = -1;
    CCmInetAddr m_local;
};

json::Value RttValue(double rttMs)
{
    if (rttMs < 0) return "";
    return static_cast<double>(static_cast<int64_t>(rttMs * 1000 + 0.5)) / 1000.0;
}

json::Value HopsToJson(const std::vector<TraceHop>& hops)
{
    json::Array list;
    for (const auto& hop : hops) {
        json::Object entry;
        entry["result"] = TraceHopResultText(hop.result);
        entry["icmp_type"] = hop.icmpType;
        entry["icmp_code"] = hop.icmpCode;
        entry["dest"] = hop.dest;
        entry["type"] = hop.type;
        entry["ttl"] = hop.ttl;
        entry["rtt"] = RttValue(hop.rttMs);
        list.push_back(entry);
    }
    return list;
}

}  // namespace

CStunTrace* CStunTrace::GetInstance()
{
    // Never destroyed: a trace may be running while the process exits.
    static CStunTrace* instance = new CStunTrace();
    return instance;
}

CStunTrace::CStunTrace() = default;

CStunTrace::~CStunTrace()
{
    NotifyStop();
    Join();
}

ZynResult CStunTrace::Start(const StunTraceRequest& request)
{
    if (request.serverHost.empty() || request.serverPort == 0) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_stopping.load()) {
        MS_WARNING_TRACE("StartStunTrace another StunTrace is still running.");
        return ZYN_E_WRONGSTATE;
    }
    // The last trace has left Trace(); let its thread finish so that the next can start.
    Join();
    m_request = request;
    m_stopRequested.store(false);
    m_pipe.Drain();
    m_stopping.store(false);
    if (Create("StunTrace", TT_USER_DEFINE_BASE) != CM_OK) {
        m_stopping.store(true);
        MS_ERROR_TRACE("StartStunTrace, the thread did not start");
        return ZYN_E_FAIL;
    }
    MS_INFO_TRACE("StartStunTrace, started, uID=" << request.callId);
    return ZYN_S_OK;
}

void CStunTrace::NotifyStop()
{
    m_stopRequested.store(true);
    const int sent = m_pipe.Notify();
    MS_INFO_TRACE("StunTrace notified thread to stop. send() returned " << sent);
}

void CStunTrace::SetStop() { NotifyStop(); }

void CStunTrace::SetSink(IZynStunTraceSink* sink)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sink = sink;
}

bool CStunTrace::WaitUntilDone(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_done.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_stopping.load(); });
}

std::string CStunTrace::GetLastResult() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastResult;
}

void CStunTrace::OnThreadInit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_running = m_request;
}

void CStunTrace::OnThreadRun()
{
    Trace();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping.store(true);
    }
    m_done.notify_all();
}

bool CStunTrace::ResolveNode(TraceNode& node, CCmInetAddr& target)
{
    if (node.host.size() > kMaxHostName) {
        MS_ERROR_TRACE("StunTrace - hostname is too long.");
        return false;
    }
    if (target.Set(node.host.c_str(), node.port) == CM_OK) {
        node.family = target.GetType();
        return true;
    }
    // A name: A first, then AAAA, each through the platform's resolver (this thread may block).
    CCmDnsRecord* record = nullptr;
    ICmDnsManager* managers[] = {CCmDnsManager::Instance(), CCmDns6Manager::Instance()};
    for (ICmDnsManager* dns : managers) {
        const CmResult rv = dns->SyncResolve(record, node.host);
        CCmInetAddr answer;
        const bool found = rv == CM_OK && record && record->GetFirstAddress(answer);
        if (record) record->ReleaseReference();
        record = nullptr;
        if (found) {
            target = answer;
            target.SetPort(node.port);
            node.family = target.GetType();
            return true;
        }
    }
    MS_ERROR_TRACE("StunTrace - Parsing hostname error. hostname is " << node.host);
    return false;
}

int CStunTrace::StunTraceNode(const std::vector<TraceNode*>& nodes)
{
    if (nodes.empty()) {
        MS_ERROR_TRACE(" - " << " StunTrace ERROR. The trace list is empty.");
        return -1;
    }
    if (m_stopRequested.load()) return kStunTraceStopped;
    const uint32_t portMin = m_running.portMin, portMax = m_running.portMax;
    const bool useRange = portMin != 0 && portMax >= portMin;
    bool anyPort = !useRange;
    if (useRange && portMax - portMin + 1 < nodes.size()) {
        MS_WARNING_TRACE("StunTrace - port range is not enough, size=" << nodes.size() << ", min=" << portMin
                                                                        << ", max=" << portMax);
        anyPort = true;
    }
    int ret = 0;
    for (TraceNode* node : nodes) {
        CCmInetAddr target;
        if (!ResolveNode(*node, target)) {
            node->result.ret = -1;
            return -1;
        }
        CCmInetAddr local;
        if (m_running.hasLocal && m_running.localAddr.GetType() == target.GetType()) local = m_running.localAddr;
        else if (!RouteSource(target, local)) local.Set(target.IsIpv6() ? "::" : "0.0.0.0", 0);
        // Each port of the range in turn; with no range, any port.
        std::unique_ptr<CStunTraceUdpSocket> socket;
        int error = EADDRINUSE;
        for (uint32_t port = anyPort ? 0 : portMin; error == EADDRINUSE && port <= (anyPort ? 0 : portMax); ++port) {
            socket = std::make_unique<CStunTraceUdpSocket>(target, m_pipe.GetReadHandle());
            local.SetPort(static_cast<uint16_t>(port));
            error = socket->Open(local);
        }
        if (error != 0) {
            MS_ERROR_TRACE("StunTrace - SendSocket Bind failed with error: " << strerror(error));
            node->result.ret = -1;
            return -1;
        }
        node->result = ProbeTarget(*socket, target, node->type, m_running.settings, m_stopRequested);
        if (node->result.ret == kStunTraceStopped) return kStunTraceStopped;
        if (node->result.ret != 0) ret = node->result.ret;
    }
    return ret;
}

void CStunTrace::Trace()
{
    const StunTraceRequest& req = m_running;
    const std::string mappedText = req.hasMapped ? req.mappedAddr.ToString() : std::string();
    MS_INFO_TRACE(" - " << " The mapped address is " << mappedText << ", hostname=" << req.serverHost
                        << " port:" << req.serverPort);
    json::Object doc;
    const bool v6Text = req.serverHost.find(':') != std::string::npos;
    doc["dest"] = (v6Text ? "[" + req.serverHost + "]" : req.serverHost) + ":" + std::to_string(req.serverPort);
    doc["mapped"] = mappedText;
    doc["ice"] = req.iceSucceeded ? "succeeded" : "failed";
    doc["networkType"] = req.networkType;
    doc["callId"] = req.callId;
    doc["server_rtt"] = "";
    doc["mapped_rtt"] = "";

    std::vector<TraceHop> hops;
    MS_INFO_TRACE(" - " << " Probing the server address availablity & RTT.");
    TraceNode server{"server", req.serverHost, req.serverPort, AF_INET, {}};
    int ret = StunTraceNode({&server});
    hops = server.result.hops;
    doc["ret"] = ret;
    doc["server_rtt"] = RttValue(server.result.rttMs);
    if (ret == kStunTraceStopped) {
        MS_INFO_TRACE(" - " << " StunTrace STOPPPED.");
    } else {
        bool hasMapped = req.hasMapped;
        CCmInetAddr mapped = req.mappedAddr;
        if (!hasMapped && server.result.hasMapped) {
            hasMapped = true;
            mapped = server.result.mapped;
            doc["mapped"] = mapped.ToString();
        }
        CCmInetAddr local = req.localAddr;
        CCmInetAddr serverAddr;
        if (!req.hasLocal && serverAddr.Set(req.serverHost.c_str(), req.serverPort) == CM_OK) RouteSource(serverAddr, local);
        CCmInetAddr mappedHost = mapped, localHost = local;
        mappedHost.SetPort(0);
        localHost.SetPort(0);
        if (!hasMapped) {
            MS_INFO_TRACE(" - " << " No mapped address to probe.");
        } else if (mappedHost == localHost) {
            MS_INFO_TRACE(" - " << " Mapped Address equals to local address.");
        } else {
            MS_INFO_TRACE(" - " << " Probing the mapped Address RTT.");
            TraceNode node{"mapped", mapped.GetIpDisplayName(), mapped.GetPort(), mapped.GetType(), {}};
            const int mappedRet = StunTraceNode({&node});
            hops.insert(hops.end(), node.result.hops.begin(), node.result.hops.end());
            doc["mapped_rtt"] = RttValue(node.result.rttMs);
            if (mappedRet == kStunTraceStopped) {
                MS_INFO_TRACE(" - " << " StunTrace STOPPED.");
                ret = kStunTraceStopped;
                doc["ret"] = ret;
            }
        }
    }
    if (ret == -1) MS_ERROR_TRACE(" - " << " StunTrace ERROR.");
    doc["trace"] = HopsToJson(hops);
    const std::string text = json::Serialize(doc);
    MS_INFO_TRACE(" - " << ", CallId - " << req.callId << " returned: " << text);
    IZynStunTraceSink* sink = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastResult = text;
        sink = m_sink;
    }
    if (!sink) {
        MS_WARNING_TRACE(" - " << " pSink is NULL, callback failed.");
        return;
    }
    sink->OnStunTraceResult(ret == 0 ? ZYN_S_OK : ZYN_E_FAIL, text.c_str());
}
