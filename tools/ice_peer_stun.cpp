#include "ice_peer_stun.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "sockaddr_util.h"

namespace tool::ice_peer {
namespace {

namespace q = qlox_gatewalk;
using gatewalk::StunIPAddress;

constexpr const char* kSoftware = "mediasession ice-peer";

std::unique_ptr<q::StunMessage> NewMessage(uint16_t type, const StunMsgId& id)
{
    auto m = std::make_unique<q::StunMessage>();
    std::memset(static_cast<void*>(m.get()), 0, sizeof *m);
    m->msgHdr.type = type;
    m->msgHdr.id = id;
    return m;
}

Bytes Encode(q::StunMessage& m, const std::string& password)
{
    Bytes out(gatewalk::STUN_MAX_PACKET_SIZE);
    std::string key = password;  // the encoder takes a writable key
    const uint32_t n = q::stunlib_encodeMessage(&m, out.data(), static_cast<unsigned>(out.size()),
                                                reinterpret_cast<unsigned char*>(key.data()),
                                                static_cast<unsigned>(key.size()), nullptr);
    out.resize(n);
    return out;
}

bool ToStunAddress(const sockaddr* a, StunIPAddress& out) { return gatewalk::stunlib_sockaddrToStunAddress(a, &out); }

void FromStunAddress(const StunIPAddress& a, sockaddr_storage& out) { gatewalk::stunlib_stunAddressToSockaddr(&a, &out); }

}  // namespace

Bytes EncodeCheck(const CheckRequest& c)
{
    auto m = NewMessage(gatewalk::STUN_MSG_BindRequestMsg, c.id);
    if (!q::stunlib_addUserName(m.get(), c.ufragPair.c_str(), '\0')) return {};
    q::stunlib_addSoftware(m.get(), kSoftware, '\0');
    m->hasPriority = 1;
    m->priority = c.priority;
    m->hasUseCandidate = c.useCandidate ? 1 : 0;
    if (c.controlling) {
        m->hasControlling = 1;
        m->controlling = c.tieBreaker;
    } else {
        m->hasControlled = 1;
        m->controlled = c.tieBreaker;
    }
    return Encode(*m, c.password);
}

Bytes EncodeAnswer(const StunMsgId& id, uint16_t code, const sockaddr* mapped, const std::string& password)
{
    const bool ok = code == 200;
    auto m = NewMessage(ok ? gatewalk::STUN_MSG_BindResponseMsg : gatewalk::STUN_MSG_BindErrorResponseMsg, id);
    if (mapped && gatewalk::sockaddr_isSet(mapped)) {
        if (!ToStunAddress(mapped, m->xorMappedAddress)) return {};
        m->hasXorMappedAddress = 1;
    } else if (ok) {
        return {};  // a success tells the peer where it was seen from, or it is no answer at all
    }
    if (!ok && !q::stunlib_addError(m.get(), code == 487 ? "Role Conflict" : "Bad Request", code, ' ')) return {};
    q::stunlib_addSoftware(m.get(), kSoftware, '\0');
    return Encode(*m, password);
}

Bytes EncodeKeepAlive()
{
    StunMsgId id{};
    q::stunlib_createId(&id, gatewalk::stunlib_randomDraw(), 0);
    Bytes out(gatewalk::STUN_HEADER_SIZE);
    out.resize(gatewalk::stunlib_encodeStunKeepAliveReq(gatewalk::StunKeepAliveUsage_Ice, &id, out.data(),
                                                        static_cast<unsigned>(out.size())));
    return out;
}

void Classify(const uint8_t* bytes, size_t length, q::StunMessage& m, Inbound& out)
{
    out = Inbound{};
    if (length > gatewalk::STUN_MAX_PACKET_SIZE || !gatewalk::stunlib_isStunMsg(bytes, static_cast<unsigned>(length)))
        return;
    out.kind = Inbound::Other;
    if (!q::stunlib_DecodeMessage(bytes, length, &m, nullptr, nullptr)) return;
    out.id = m.msgHdr.id;
    out.hasIntegrity = m.hasMessageIntegrity != 0;
    switch (m.msgHdr.type) {
    case gatewalk::STUN_MSG_BindRequestMsg:
        // An ICE check names both ufrags and the priority a peer-reflexive candidate would get.
        if (!m.hasUsername || !m.hasPriority) return;
        out.kind = Inbound::Request;
        out.ufragPair.assign(m.username.value, strnlen(m.username.value, gatewalk::STUN_MAX_STRING));
        out.priority = m.priority;
        out.useCandidate = m.hasUseCandidate != 0;
        out.controlling = m.hasControlling != 0;
        out.controlled = m.hasControlled != 0;
        out.tieBreaker = m.hasControlling ? m.controlling : m.controlled;
        return;
    case gatewalk::STUN_MSG_BindResponseMsg:
        if (!m.hasXorMappedAddress) return;
        out.kind = Inbound::Response;
        out.code = 200;
        FromStunAddress(m.xorMappedAddress, out.mapped);
        return;
    case gatewalk::STUN_MSG_BindErrorResponseMsg:
        if (!m.hasErrorCode) return;
        out.kind = Inbound::Response;
        out.code = static_cast<uint16_t>(m.errorCode.errorClass * 100 + m.errorCode.number);
        return;
    default:
        return;
    }
}

bool IntegrityHolds(const uint8_t* bytes, size_t length, q::StunMessage& m, const std::string& password)
{
    if (!m.hasMessageIntegrity) return false;
    std::string key = password;
    return q::stunlib_checkIntegrity(bytes, length, &m, reinterpret_cast<unsigned char*>(key.data()),
                                     static_cast<int>(key.size()));
}

void CheckSchedule::Start(Check check, int64_t nowMs, const SendFn& send)
{
    check.sends = 1;
    check.dueMs = nowMs + kScheduleMs[0];
    send(check);
    checks_.push_back(std::move(check));
}

const CheckSchedule::Check* CheckSchedule::Find(const StunMsgId& id) const
{
    for (const auto& c : checks_) {
        if (gatewalk::stunlib_transIdIsEqual(&c.id, &id)) return &c;
    }
    return nullptr;
}

bool CheckSchedule::Take(const StunMsgId& id)
{
    auto it = std::find_if(checks_.begin(), checks_.end(),
                           [&](const Check& c) { return gatewalk::stunlib_transIdIsEqual(&c.id, &id); });
    if (it == checks_.end()) return false;
    checks_.erase(it);
    return true;
}

void CheckSchedule::Cancel(const StunMsgId& id)
{
    for (auto& c : checks_) {
        if (gatewalk::stunlib_transIdIsEqual(&c.id, &id)) c.cancelled = true;
    }
}

void CheckSchedule::Run(int64_t nowMs, const SendFn& send, const GiveUpFn& giveUp)
{
    constexpr int kCopies = static_cast<int>(std::size(kScheduleMs));  // the last entry is the end
    std::vector<StunMsgId> ended;
    for (auto& c : checks_) {
        if (nowMs < c.dueMs) continue;
        if (c.sends >= kCopies) {
            ended.push_back(c.id);
            continue;
        }
        const int64_t start = c.dueMs - kScheduleMs[c.sends - 1];
        c.dueMs = start + kScheduleMs[c.sends];
        ++c.sends;
        if (!c.cancelled) send(c);
    }
    // Reported after the walk: the agent may start or cancel checks from inside giveUp. The agent
    // stopped waiting for a cancelled check, so its end is not news to it.
    for (const auto& id : ended) {
        const Check* c = Find(id);
        const bool tell = c && !c->cancelled;
        if (Take(id) && tell) giveUp(id);
    }
}

}  // namespace tool::ice_peer
