// The reachability test: a JSON list of media server clusters in, one probe per URI (STUN over UDP,
// HTTP over TCP and over TLS), and a JSON document of reachability and latency per cluster and
// transport out, through the sink. Probes start at a pace (numStunTracePerSec a second), each ends
// by an answer, a failure or its own time-out, and the whole run by a time budget.
//
// Threads: StartTrace, StopTrace, the setters and the accessors run on the caller's thread; the
// timer and the probes on the network thread ("t-trace"). m_mutex guards everything both sides
// touch; the sink is called without it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/ZynIdentity.h"
#include "diag/ClusterList.h"
#include "diag/TraceContext.h"
#include "mediasession/ZynDiagnostics.h"
#include "tp/CmThread.h"
#include "tp/CmTimerWrapperID.h"

struct TraceServerOptions {
    // Probes started a second; with 50, a list of 200 URIs has all its probes out in four seconds.
    int numStunTracePerSec = 50;
    // The whole run, both passes: what is not done by then is reported unreachable.
    int totalTimeoutMs = 20000;
    TraceProbeSettings probe;
};

class CTraceServer final : public CCmTimerWrapperIDSink, public ZYNIdentityT<CTraceServer> {
public:
    using Clock = std::function<uint64_t()>;  // microseconds, monotonic

    static CTraceServer* Instance();
    // thread: where the timer and the probes run; null leaves Tick to the caller (tests).
    CTraceServer(ACmThread* thread, std::unique_ptr<ITraceProbeFactory> factory, Clock clock);
    ~CTraceServer() override;
    CTraceServer(const CTraceServer&) = delete;
    CTraceServer& operator=(const CTraceServer&) = delete;

    // ZYN_S_OK started; ZYN_E_WRONGSTATE while a run goes on (it goes on); ZYN_E_INVALIDARG for a
    // text that is no cluster list.
    ZynResult StartTrace(const char* traceInfoList, long len);
    // ZYN_S_FALSE when nothing runs. The stopped run reports nothing.
    ZynResult StopTrace();
    // A JSON object of options (see ZynDiagnostics.h); they apply from the next run.
    ZynResult SetOption(const char* text);
    ZynResult SetPortRange(uint16_t portMin, uint16_t portMax);
    void SetSink(IZynTraceServerSink* sink);
    bool IsLastTraceServerUsable() const;
    bool IsRunning() const;
    std::string GetLastResult() const;
    TraceServerOptions GetOptions() const;

    void OnTimer(CCmTimerWrapperID* id) override;
    // One round at nowUs: closes finished probes, resends what is due, starts the next waiting
    // probe, moves to the second pass or reports. Network thread (or the test's, with no thread).
    void Tick(uint64_t nowUs);

    // The result document of the run so far; *usable and anyReachable report its verdicts.
    std::string MakeHashedResult(bool isCompleted, bool* usable, bool& anyReachable) const;

private:
    struct Outcome {
        bool probed = false;
        bool reachable = false;
        double latencyMs = -1;
    };
    // Delivery prepared under the lock, made after it.
    struct Report {
        IZynTraceServerSink* sink = nullptr;
        bool isCompleted = false;
        std::string text;
        bool due = false;
    };

    void createContextList(const std::vector<TraceClusterEntry>& clusters, const TraceProbeSettings& settings);
    void SortTraceContext();
    void StartInOrder(uint64_t nowUs);
    void startSecondTrace(uint64_t nowUs);
    bool checkMeshNodeReachable() const;
    void Record(ITraceProbe& probe);
    Report Finish(bool isCompleted);
    void CleanUp();
    void GetLocalAddress();
    void ScheduleTimer();
    static void Deliver(const Report& report);

    ACmThread* const m_thread;
    std::unique_ptr<ITraceProbeFactory> m_factory;
    Clock m_clock;

    mutable std::mutex m_mutex;
    TraceServerOptions m_options;              // guarded by m_mutex
    IZynTraceServerSink* m_sink = nullptr;     // guarded by m_mutex
    bool m_running = false;                    // guarded by m_mutex
    uint64_t m_generation = 0;                 // guarded by m_mutex: a run's number
    uint64_t m_runStartUs = 0;                 // guarded by m_mutex
    TraceServerOptions m_runOptions;           // guarded by m_mutex: the options of this run
    // The probes of the current pass in the order they start (the high queue, UDP, first), the
    // index of the next to start, and whether each was closed.
    std::vector<std::unique_ptr<ITraceProbe>> m_probes;  // guarded by m_mutex
    std::vector<bool> m_closed;                          // guarded by m_mutex
    size_t m_nextKick = 0;                               // guarded by m_mutex
    std::vector<TraceClusterEntry> m_secondPass;         // guarded by m_mutex
    std::vector<std::string> m_clusterOrder;             // guarded by m_mutex
    std::vector<std::string> m_meshNodes;                // guarded by m_mutex
    std::map<std::string, std::map<ITraceProbe::Transport, Outcome>> m_outcomes;  // guarded by m_mutex
    std::string m_lastResult;                  // guarded by m_mutex
    bool m_lastUsable = false;                 // guarded by m_mutex
    CCmTimerWrapperID m_timer;                 // network thread
};
