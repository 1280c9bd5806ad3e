// The route trace: Binding requests with a rising TTL towards a STUN server and towards our own
// mapped address, hop replies read from the socket's error queue (IP_RECVERR / IPV6_RECVERR: no raw
// socket, no privilege), and a JSON document to the sink. One trace at a time, on a thread of its
// own named "StunTrace".
//
// Threads: Start, NotifyStop, SetSink, IsRunning from any thread; Trace() on the trace's thread.
// m_mutex guards the request, the sink and the last document.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "diag/StunTraceProbe.h"
#include "mediasession/ZynDiagnostics.h"
#include "tp/CmInetAddr.h"
#include "tp/CmPipe.h"
#include "tp/CmThread.h"

struct StunTraceRequest {
    std::string serverHost;
    uint16_t serverPort = 3478;
    bool hasLocal = false;   // else the route's own source address
    CCmInetAddr localAddr;
    bool hasMapped = false;  // else learnt from the server's answer
    CCmInetAddr mappedAddr;
    uint32_t callId = 0;
    bool iceSucceeded = false;
    std::string networkType = "unknown";
    uint16_t portMin = 0;
    uint16_t portMax = 0;
    StunTraceSettings settings;
};

// One target of a trace.
struct TraceNode {
    std::string type;  // "server" or "mapped"
    std::string host;  // as given (name or numeric)
    uint16_t port = 0;
    int family = AF_INET;
    StunTraceNodeResult result;
};

class CStunTrace final : public ACmThread {
public:
    static CStunTrace* GetInstance();
    CStunTrace();
    ~CStunTrace() override;

    // Starts a trace unless one runs: ZYN_E_WRONGSTATE then, with the trace "StartStunTrace another
    // StunTrace is still running."; ZYN_E_INVALIDARG for a request without a server.
    ZynResult Start(const StunTraceRequest& request);
    bool IsRunning() const { return !m_stopping.load(); }
    // Ends a running trace at its next wait; any thread.
    void NotifyStop();
    void SetSink(IZynStunTraceSink* sink);
    // Waits for the running trace to end (true) or the time to pass (false).
    bool WaitUntilDone(int timeoutMs);
    // The last trace's document and ret (tests, and the tool through the sink).
    std::string GetLastResult() const;

    void OnThreadInit() override;
    void OnThreadRun() override;
    void SetStop() override;
    virtual void Trace();

    // Probes one list of nodes, each on a UDP socket of its own bound in the port range.
    int StunTraceNode(const std::vector<TraceNode*>& nodes);

private:
    bool ResolveNode(TraceNode& node, CCmInetAddr& target);

    mutable std::mutex m_mutex;
    std::condition_variable m_done;
    StunTraceRequest m_request;  // guarded by m_mutex; the trace's thread reads its copy
    IZynStunTraceSink* m_sink = nullptr;  // guarded by m_mutex
    std::string m_lastResult;             // guarded by m_mutex
    CCmPipe m_pipe;
    // True while no trace runs (so from construction on).
    std::atomic<bool> m_stopping{true};
    // Set by NotifyStop from any thread, read by the probing loop before each probe.
    std::atomic<bool> m_stopRequested{false};
    StunTraceRequest m_running;  // the trace's thread: its copy of the request
};
