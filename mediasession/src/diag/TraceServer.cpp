// Runs on the caller's thread (StartTrace, StopTrace, setters) and the network thread "t-trace"
// (Tick, the probes); see the header for the lock.
#include "diag/TraceServer.h"

#include <algorithm>
#include <string_view>

#include "tp/CmThreadManager.h"
#include "tp/CmDns.h"
#include "tp/CmThreadSingleton.h"
#include "tp/CmTimeValue.h"
#include "util/CmJson.h"
#include "util/CmLocalAddr.h"
#include "util/CmTrace.h"

namespace {

uint64_t MonotonicUs() { return static_cast<uint64_t>(CCmTimeValue::GetMonotonic().GetTotalInUsec()); }

// Round trips in the document: milliseconds to the microsecond.
double RoundMs(double ms) { return static_cast<double>(static_cast<int64_t>(ms * 1000 + 0.5)) / 1000.0; }

}  // namespace

CTraceServer* CTraceServer::Instance()
{
    // Never destroyed, and its thread is held for the life of the process: probes may still be
    // winding down on it while the process exits.
    static CTraceServer* server = [] {
        ACmThread* thread = ACmThreadSingletonFactory::GetSingletonThread("t-trace");
        return new CTraceServer(thread, std::make_unique<CTraceContextFactory>(thread, MonotonicUs), MonotonicUs);
    }();
    return server;
}

CTraceServer::CTraceServer(ACmThread* thread, std::unique_ptr<ITraceProbeFactory> factory, Clock clock)
    : m_thread(thread), m_factory(std::move(factory)), m_clock(std::move(clock))
{
}

CTraceServer::~CTraceServer()
{
    StopTrace();
    if (m_thread) {
        // The stopped run's probes are released on the network thread; wait for that.
        CmInvokeInThread(m_thread, false, [this] {
            m_timer.Cancel();
            return CM_OK;
        });
    }
    m_timer.Cancel();
}

ZynResult CTraceServer::StartTrace(const char* traceInfoList, long len)
{
    if (traceInfoList == nullptr || len <= 0) {
        CM_ASSERT_REPORT("traceInfoList != NULL && len > 0");
        return ZYN_E_INVALIDARG;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_running) {
        MS_WARNING_TRACE("CTraceServer::StartTrace, another TraceServer instance is still running.");
        return ZYN_E_WRONGSTATE;
    }
    SetIdentity(static_cast<uint32_t>(m_generation + 1), ZynSessionType_Unknown);
    GetLocalAddress();
    TraceClusterList list;
    if (!ParseClusterList(std::string_view(traceInfoList, static_cast<size_t>(len)), list)) return ZYN_E_INVALIDARG;

    m_runOptions = m_options;
    m_outcomes.clear();
    m_clusterOrder.clear();
    m_meshNodes = list.meshNodes;
    // Every cluster and transport of both passes stands in the result from the start: what the run
    // never reaches reads as not reachable.
    for (const auto* pass : {&list.first, &list.second}) {
        for (const auto& cluster : *pass) {
            m_clusterOrder.push_back(cluster.name);
            auto& byTransport = m_outcomes[cluster.name];
            for (const auto& uri : cluster.uris)
                byTransport[uri.GetScheme() == CCmUri::SCHEME_STUN    ? ITraceProbe::TRANSPORT_UDP
                            : uri.GetScheme() == CCmUri::SCHEME_HTTP ? ITraceProbe::TRANSPORT_TCP
                                                                     : ITraceProbe::TRANSPORT_XTLS];
        }
    }
    m_secondPass = std::move(list.second);
    createContextList(list.first, m_runOptions.probe);
    if (m_probes.empty()) {
        // The first pass has clusters but no usable URI: start with the second right away.
        createContextList(m_secondPass, m_runOptions.probe);
        m_secondPass.clear();
    }
    m_running = true;
    ++m_generation;
    m_runStartUs = m_clock();
    const int perSec = std::max(1, m_runOptions.numStunTracePerSec);
    MS_INFO_TRACE("CTraceServer::StartTrace, idx=" << m_nextKick << ", wait count=" << m_probes.size()
                                                   << ", numStunTracePerSec=" << perSec
                                                   << ", kickInterva=" << std::max(1, 1000 / perSec));
    if (!m_thread) {
        StartInOrder(m_runStartUs);
        return ZYN_S_OK;
    }
    const uint64_t generation = m_generation;
    CmInvokeInThread(m_thread, true, [this, generation] {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_running || generation != m_generation) return CM_OK;
        StartInOrder(m_clock());
        ScheduleTimer();
        return CM_OK;
    });
    return ZYN_S_OK;
}

void CTraceServer::ScheduleTimer()
{
    const int perSec = std::max(1, m_runOptions.numStunTracePerSec);
    m_timer.Cancel();
    m_timer.Schedule(this, CCmTimeValue::FromMilliseconds(std::max(1, 1000 / perSec)));
}

void CTraceServer::createContextList(const std::vector<TraceClusterEntry>& clusters, const TraceProbeSettings& settings)
{
    m_probes.clear();
    m_closed.clear();
    m_nextKick = 0;
    for (const auto& cluster : clusters)
        for (const auto& uri : cluster.uris)
            if (auto probe = m_factory->Create(cluster.name, uri, settings)) {
                MS_DETAIL_TRACE((probe->GetTransport() == ITraceProbe::TRANSPORT_UDP
                                     ? "CTraceServer::SetTraceNodeList, put HighQ "
                                     : "CTraceServer::SetTraceNodeList, put Queue ")
                                << uri.ToString() << ", cluster=" << cluster.name);
                m_probes.push_back(std::move(probe));
            }
    SortTraceContext();
    m_closed.assign(m_probes.size(), false);
}

void CTraceServer::SortTraceContext()
{
    // The high queue (STUN over UDP, what media needs first) starts before the normal queue; within
    // each, list order stands.
    std::stable_sort(m_probes.begin(), m_probes.end(), [](const auto& a, const auto& b) {
        return (a->GetTransport() == ITraceProbe::TRANSPORT_UDP) > (b->GetTransport() == ITraceProbe::TRANSPORT_UDP);
    });
}

void CTraceServer::StartInOrder(uint64_t nowUs)
{
    // The first of each queue at once; the others one a tick.
    auto firstOther = std::find_if(m_probes.begin(), m_probes.end(),
                                   [](const auto& p) { return p->GetTransport() != ITraceProbe::TRANSPORT_UDP; });
    if (m_nextKick < m_probes.size()) m_probes[m_nextKick++]->Kick(nowUs);
    if (firstOther != m_probes.end() && firstOther != m_probes.begin()) (*firstOther)->Kick(nowUs);
}

void CTraceServer::startSecondTrace(uint64_t nowUs)
{
    MS_INFO_TRACE("CTraceServer::startSecondTrace, clusters=" << m_secondPass.size());
    CleanUp();
    createContextList(m_secondPass, m_runOptions.probe);
    m_secondPass.clear();
    StartInOrder(nowUs);
}

void CTraceServer::OnTimer(CCmTimerWrapperID*) { Tick(m_clock()); }

void CTraceServer::Tick(uint64_t nowUs)
{
    Report report;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_running) return;
        bool allClosed = true;
        for (size_t i = 0; i < m_probes.size(); ++i) {
            ITraceProbe& probe = *m_probes[i];
            if (m_closed[i] || !probe.IsStarted()) {
                allClosed = allClosed && m_closed[i];
                continue;
            }
            if (probe.IsComplete(nowUs)) {
                probe.closeTransaction();
                m_closed[i] = true;
                Record(probe);
                continue;
            }
            allClosed = false;
            probe.Kick(nowUs);
        }
        // The next waiting one: skip those StartInOrder already started out of turn.
        while (m_nextKick < m_probes.size() && m_probes[m_nextKick]->IsStarted()) ++m_nextKick;
        if (m_nextKick < m_probes.size()) m_probes[m_nextKick++]->Kick(nowUs);

        if (nowUs - m_runStartUs >= static_cast<uint64_t>(m_runOptions.totalTimeoutMs) * 1000) {
            MS_WARNING_TRACE("CTraceServer::Tick, the run's time is up, unfinished probes are unreachable");
            for (size_t i = 0; i < m_probes.size(); ++i) {
                if (m_closed[i]) continue;
                m_probes[i]->closeTransaction();
                m_closed[i] = true;
                Record(*m_probes[i]);
            }
            report = Finish(false);
        } else if (allClosed) {
            if (!m_secondPass.empty()) startSecondTrace(nowUs);
            else report = Finish(true);
        }
    }
    Deliver(report);
}

void CTraceServer::Record(ITraceProbe& probe)
{
    Outcome& outcome = m_outcomes[probe.GetClusterName()][probe.GetTransport()];
    outcome.probed = true;
    if (!probe.IsReachable()) return;
    const double rtt = probe.GetRTT();
    if (!outcome.reachable || (rtt >= 0 && (outcome.latencyMs < 0 || rtt < outcome.latencyMs))) outcome.latencyMs = rtt;
    outcome.reachable = true;
}

bool CTraceServer::checkMeshNodeReachable() const
{
    // With mesh nodes named, the service is usable when one of them answers on any transport;
    // without, when any cluster does.
    auto reachable = [this](const std::string& cluster) {
        auto it = m_outcomes.find(cluster);
        if (it == m_outcomes.end()) return false;
        return std::any_of(it->second.begin(), it->second.end(), [](const auto& t) { return t.second.reachable; });
    };
    if (!m_meshNodes.empty()) return std::any_of(m_meshNodes.begin(), m_meshNodes.end(), reachable);
    return std::any_of(m_clusterOrder.begin(), m_clusterOrder.end(), reachable);
}

std::string CTraceServer::MakeHashedResult(bool isCompleted, bool* usable, bool& anyReachable) const
{
    json::Object doc;
    anyReachable = false;
    for (const auto& cluster : m_clusterOrder) {
        json::Object entry;
        auto it = m_outcomes.find(cluster);
        if (it != m_outcomes.end()) {
            for (const auto& [transport, outcome] : it->second) {
                json::Object t;
                t["reachable"] = outcome.reachable ? "true" : "false";
                if (outcome.reachable && outcome.latencyMs >= 0) t["latencyInMilliseconds"] = RoundMs(outcome.latencyMs);
                anyReachable = anyReachable || outcome.reachable;
                entry[TraceTransportName(transport)] = t;
            }
        }
        doc[cluster] = entry;
    }
    const bool ok = checkMeshNodeReachable();
    json::Object usability;
    usability["usable"] = ok ? "true" : "false";
    doc["clusterUsability"] = usability;
    if (usable) *usable = ok;
    MS_DETAIL_TRACE("CTraceServer::MakeHashedResult, isCompleted=" << isCompleted << ", usable=" << ok);
    return json::Serialize(doc);
}

CTraceServer::Report CTraceServer::Finish(bool isCompleted)
{
    Report report;
    bool usable = false;
    bool anyReachable = false;
    report.text = MakeHashedResult(isCompleted, &usable, anyReachable);
    report.isCompleted = isCompleted;
    report.sink = m_sink;
    report.due = true;
    m_lastResult = report.text;
    m_lastUsable = usable;
    m_running = false;
    m_timer.Cancel();
    m_secondPass.clear();
    MS_INFO_TRACE("CTraceServer::Trace, returned isCompleted = " << isCompleted << ", with : " << report.text);
    CleanUp();
    return report;
}

void CTraceServer::Deliver(const Report& report)
{
    if (!report.due) return;
    if (!report.sink) {
        MS_WARNING_TRACE("CTraceServer::Trace, pSink is NULL, callback failed.");
        return;
    }
    report.sink->OnTraceServerResult(report.isCompleted, report.text.c_str());
}

void CTraceServer::CleanUp()
{
    for (auto& probe : m_probes) probe->closeTransaction();
    m_probes.clear();
    m_closed.clear();
    m_nextKick = 0;
}

ZynResult CTraceServer::StopTrace()
{
    std::vector<std::unique_ptr<ITraceProbe>> probes;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_running) return ZYN_S_FALSE;
        m_running = false;
        ++m_generation;
        m_secondPass.clear();
        probes.swap(m_probes);
        m_closed.clear();
        m_nextKick = 0;
        MS_INFO_TRACE("CTraceServer::StopTrace, probes=" << probes.size());
    }
    if (!m_thread) {
        for (auto& probe : probes) probe->closeTransaction();
        return ZYN_S_OK;
    }
    // The probes belong to the network thread: released there, the timer with them.
    auto shared = std::make_shared<std::vector<std::unique_ptr<ITraceProbe>>>(std::move(probes));
    CmInvokeInThread(m_thread, true, [this, shared] {
        for (auto& probe : *shared) probe->closeTransaction();
        shared->clear();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_running) m_timer.Cancel();
        return CM_OK;
    });
    return ZYN_S_OK;
}

ZynResult CTraceServer::SetOption(const char* text)
{
    if (!text) return ZYN_E_INVALIDARG;
    const json::Value root = json::Deserialize(text);
    if (!root.is_object()) return ZYN_E_INVALIDARG;
    TraceServerOptions options = GetOptions();
    int value = 0;
    if (json::Get(root, "numStunTracePerSec", value)) options.numStunTracePerSec = std::clamp(value, 1, 1000);
    if (json::Get(root, "probeTimeoutMs", value)) options.probe.probeTimeoutMs = std::clamp(value, 10, 600000);
    if (json::Get(root, "totalTimeoutMs", value)) options.totalTimeoutMs = std::clamp(value, 10, 3600000);
    json::Get(root, "tlsVerifyPeer", options.probe.tlsVerifyPeer);
    json::Get(root, "tlsCaFile", options.probe.tlsCaFile);
    std::string servers;
    if (json::Get(root, "dnsServers", servers)) {
        CmDnsSettings dns = CCmDnsManager::Instance()->GetSettings();
        dns.servers = servers;
        if (CCmDnsManager::Instance()->SetSettings(dns) != CM_OK || CCmDns6Manager::Instance()->SetSettings(dns) != CM_OK)
            return ZYN_E_INVALIDARG;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options = options;
    return ZYN_S_OK;
}

ZynResult CTraceServer::SetPortRange(uint16_t portMin, uint16_t portMax)
{
    if (portMin > portMax) return ZYN_E_INVALIDARG;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options.probe.portMin = portMin;
    m_options.probe.portMax = portMax;
    return ZYN_S_OK;
}

void CTraceServer::SetSink(IZynTraceServerSink* sink)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sink = sink;
}

bool CTraceServer::IsLastTraceServerUsable() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastUsable;
}

bool CTraceServer::IsRunning() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_running;
}

std::string CTraceServer::GetLastResult() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastResult;
}

TraceServerOptions CTraceServer::GetOptions() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_options;
}

void CTraceServer::GetLocalAddress()
{
    CmLocalAddr* list = nullptr;
    unsigned int count = 0;
    if (get_local_addr(&list, &count) != CM_OK) return;
    prune_local_addr(list, &count);
    for (unsigned int i = 0; i < count; ++i) {
        const CCmInetAddr addr(reinterpret_cast<const sockaddr*>(&list[i].addr), sizeof(list[i].addr));
        MS_DETAIL_TRACE("CTraceServer::GetLocalAddress, " << list[i].ifname << " " << addr.GetIpDisplayName());
    }
    free_local_addr(list);
}
