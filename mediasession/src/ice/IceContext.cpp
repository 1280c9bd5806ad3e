// The connector's pieces that need no profile. Network thread.
#include "ice/IceContext.h"

#include <nlohmann/json.hpp>

#include "util/CmTick.h"

namespace zyn {

const char* IceTimerName(IceTimer timer)
{
    switch (timer) {
    case IceTimer::IceTick: return "ice tick";
    case IceTimer::CheckSend: return "check-send update";
    case IceTimer::MainStun: return "main STUN tick";
    case IceTimer::StunContexts: return "STUN contexts tick";
    case IceTimer::Turn: return "TURN tick";
    case IceTimer::Fallback: return "connection fallback";
    case IceTimer::Inactivity: return "inactivity";
    case IceTimer::RtcpSeed: return "RTCP seed";
    case IceTimer::KeepAlive: return "keep-alive";
    case IceTimer::RttSummary: return "round-trip summary";
    case IceTimer::DtlsRetransmit: return "DTLS retransmission";
    case IceTimer::DtlsGiveUp: return "DTLS give-up";
    case IceTimer::Count: break;
    }
    return "unknown";
}

CIceLoopTimers::CIceLoopTimers(IIceTimerTarget* target) : m_target(target)
{
    for (size_t i = 0; i < m_slots.size(); ++i) {
        m_slots[i].owner = this;
        m_slots[i].timer = static_cast<IceTimer>(i);
    }
}

uint64_t CIceLoopTimers::NowMs() { return get_tick_count(); }

void CIceLoopTimers::Schedule(IceTimer timer, uint32_t periodMs, uint32_t count)
{
    Slot& slot = m_slots[static_cast<size_t>(timer)];
    slot.id.Cancel();
    slot.left = count;
    slot.id.Schedule(&slot, CCmTimeValue::FromMilliseconds(periodMs), count);
}

void CIceLoopTimers::Cancel(IceTimer timer)
{
    Slot& slot = m_slots[static_cast<size_t>(timer)];
    slot.id.Cancel();
    slot.left = 0;
}

bool CIceLoopTimers::IsScheduled(IceTimer timer) const { return m_slots[static_cast<size_t>(timer)].id.IsScheduled(); }

void CIceLoopTimers::Slot::OnTimer(CCmTimerWrapperID*)
{
    // A counted timer that fired its last time is no longer scheduled when its work runs, so the
    // work may schedule it again.
    if (left > 0 && --left == 0) id.Cancel();
    owner->m_target->OnIceTimer(timer);
}

CIceRelayTransport::CIceRelayTransport(std::weak_ptr<ITurnRelay> relay, const CCmInetAddr& relayAddress,
                                       const CCmInetAddr& peer)
    : m_relay(std::move(relay)), m_local(relayAddress), m_peer(peer)
{
}

CmResult CIceRelayTransport::OpenWithSink(ICmTransportSink* sink)
{
    m_sink = sink;
    return CM_OK;
}

CmResult CIceRelayTransport::SendData(CCmMessageBlock& data, CCmTransportParameter* parameter)
{
    std::shared_ptr<ITurnRelay> relay = m_relay.lock();
    if (!relay) return CM_ERROR_NOT_INITIALIZED;
    CmResult r = relay->Relay(m_peer, data);
    if (r == CM_OK && parameter) parameter->m_dwHaveSent = static_cast<uint32_t>(data.GetChainedLength());
    return r;
}

CmResult CIceRelayTransport::Disconnect(CmResult)
{
    m_sink = nullptr;
    m_relay.reset();
    return CM_OK;
}

void CIceConnectionContext::Release(bool disconnect)
{
    for (ICmTransport** t : {&pTransport, &pTransportTCP}) {
        if (!*t) continue;
        if (disconnect) (*t)->Disconnect(CM_OK);
        (*t)->ReleaseReference();
        *t = nullptr;
    }
    if (pConnector) {
        pConnector->CancelConnect();
        pConnector->ReleaseReference();
        pConnector = nullptr;
    }
}

int CIceConnectionCheckListInfo::createCheckListPair(const CCmInetAddr& local, const CCmInetAddr& remote,
                                                     const std::string& transport)
{
    if (int found = Find(local, remote); found >= 0) return found;
    Pair p;
    p.local = local;
    p.remote = remote;
    p.transport = transport;
    m_pairs.push_back(p);
    return static_cast<int>(m_pairs.size()) - 1;
}

void CIceConnectionCheckListInfo::updateCheckListPair(int index, const std::string& state)
{
    if (index < 0 || static_cast<size_t>(index) >= m_pairs.size()) return;
    Pair& p = m_pairs[static_cast<size_t>(index)];
    // A pair that once succeeded stays so: later failures of other checks of it don't undo that.
    if (p.state != "succeeded") p.state = state;
}

void CIceConnectionCheckListInfo::setIceConnectionError(int index, int errorType, int errorCode)
{
    if (index < 0 || static_cast<size_t>(index) >= m_pairs.size()) return;
    Pair& p = m_pairs[static_cast<size_t>(index)];
    p.errorType = errorType;
    p.errorCode = errorCode;
    if (p.state != "succeeded") p.state = "failed";
}

int CIceConnectionCheckListInfo::Find(const CCmInetAddr& local, const CCmInetAddr& remote) const
{
    for (size_t i = 0; i < m_pairs.size(); ++i)
        if (m_pairs[i].local == local && m_pairs[i].remote == remote) return static_cast<int>(i);
    return -1;
}

std::string CIceConnectionCheckListInfo::ToJson(bool failed) const
{
    nlohmann::json list = nlohmann::json::array();
    for (const Pair& p : m_pairs) {
        list.push_back({{"protocol", p.transport},
                        {"localIp", p.local.GetIpDisplayName()},
                        {"localPort", p.local.GetPort()},
                        {"remoteIp", p.remote.GetIpDisplayName()},
                        {"remotePort", p.remote.GetPort()},
                        {"status", p.state == "succeeded" ? "succeeded" : "failed"},
                        {"errorType", p.errorType},
                        {"errorCode", p.errorCode}});
    }
    return nlohmann::json{{"checkList", list}, {"iceFailed", failed}}.dump();
}

}  // namespace zyn
