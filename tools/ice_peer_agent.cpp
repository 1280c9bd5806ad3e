#include "ice_peer_agent.h"

#include <openssl/rand.h>

#include <cstdio>
#include <cstring>

#include "sockaddr_util.h"

namespace tool::ice_peer {
namespace {

namespace q = qlox_gatewalk;
using gatewalk::ICE_CAND_TYPE_HOST;

// The one stream of this tool: the id ties the local stream to the remote one.
constexpr int32_t kStreamId = 1;
constexpr uint32_t kComponent = gatewalk::ICELIB_RTP_COMPONENT_ID;
// Checks of a peer that started before we read its description: kept until Start, then handled.
// A peer retransmits anyway, so a full queue only drops copies.
constexpr size_t kMaxEarly = 64;
// After a stall (a slow machine, a debugger), the agent's clock catches up at most this many ticks at
// once; its time limit then still runs on real time, only a little later.
constexpr int kMaxCatchUpTicks = 50;

const sockaddr* Sa(const sockaddr_storage& a) { return reinterpret_cast<const sockaddr*>(&a); }

Agent* Self(void* p) { return static_cast<Agent*>(p); }

gatewalk::ICE_CANDIDATE_TYPE TypeOf(const std::string& type)
{
    if (type == "host") return ICE_CAND_TYPE_HOST;
    if (type == "srflx") return gatewalk::ICE_CAND_TYPE_SRFLX;
    if (type == "relay") return gatewalk::ICE_CAND_TYPE_RELAY;
    if (type == "prflx") return gatewalk::ICE_CAND_TYPE_PRFLX;
    return gatewalk::ICE_CAND_TYPE_NONE;
}

uint64_t RandomTieBreaker()
{
    uint64_t value = 0;
    if (RAND_bytes(reinterpret_cast<unsigned char*>(&value), sizeof value) != 1) value = q::ICELIB_makeTieBreaker();
    return value;
}

}  // namespace

Agent::Agent(UdpSockets& sockets, bool controlling, gatewalk::ICELIB_logLevel logLevel)
    : sockets_(sockets), controlling_(controlling), instance_(std::make_unique<Instance>()),
      scratch_(std::make_unique<q::StunMessage>())
{
    std::memset(static_cast<void*>(instance_.get()), 0, sizeof *instance_);
    q::ICELIB_CONFIGURATION config{};
    config.tickIntervalMS = kTickMs;
    config.keepAliveIntervalS = kKeepAliveS;
    config.maxCheckListPairs = 80;  // what the connector asks for; the agent caps it to its table
    config.aggressiveNomination = false;
    config.iceLite = false;
    config.dropRflx = false;
    config.logLevel = logLevel;
    q::ICELIB_Constructor(instance_.get(), &config);
    Instance* i = instance_.get();
    q::ICELIB_setCallbackOutgoingBindingRequest(i, OnRequest, this);
    q::ICELIB_setCallbackOutgoingBindingResponse(i, OnResponse, this);
    q::ICELIB_setCallbackOutgoingCancelRequest(i, OnCancel, this);
    q::ICELIB_setCallbackConnecitivityChecksComplete(i, OnComplete, this);
    q::ICELIB_setCallbackKeepAlive(i, OnKeepAlive, this);
    q::ICELIB_setCallbackLog(i, OnLog, this, logLevel);
}

Agent::~Agent() { q::ICELIB_Destructor(instance_.get()); }

bool Agent::Init(std::string& error)
{
    media_ = q::ICELIB_addLocalMediaStream(instance_.get(), kStreamId, 0, 0, ICE_CAND_TYPE_HOST);
    if (media_ < 0) return error = "the agent refused the local media stream", false;
    for (size_t s = 0; s < sockets_.Count(); ++s) {
        // Local preference falls with the order of --local, so the first address is preferred.
        const auto pref = static_cast<uint16_t>(65535 - s);
        const sockaddr* a = Sa(sockets_.Local(s));
        if (q::ICELIB_addLocalCandidate(instance_.get(), static_cast<uint32_t>(media_), kComponent, a, a,
                                        gatewalk::ICE_TRANS_UDP, ICE_CAND_TYPE_HOST, pref) < 0) {
            return error = "the agent refused the candidate " + AddressText(sockets_.Local(s)), false;
        }
    }
    const auto* stream = q::ICELIB_getLocalMediaStream(instance_.get(), static_cast<uint32_t>(media_));
    if (!stream) return error = "no local media stream", false;
    localPassword_ = stream->passwd;
    return true;
}

Description Agent::LocalDescription() const
{
    Description d;
    const auto* stream = q::ICELIB_getLocalMediaStream(instance_.get(), static_cast<uint32_t>(media_));
    if (!stream) return d;
    d.ufrag = stream->ufrag;
    d.pwd = stream->passwd;
    for (uint32_t c = 0; c < stream->numberOfCandidates && c < gatewalk::ICE_MAX_CANDIDATES; ++c) {
        const auto& cand = stream->candidate[c];
        Candidate out;
        out.foundation = cand.foundation;
        out.component = cand.componentid;
        out.priority = cand.priority;
        out.address = cand.connectionAddr;
        out.type = q::ICE_candidateTypeToString(cand.type);
        d.candidates.push_back(out);
    }
    d.defaultAddress = stream->defaultAddr;
    return d;
}

bool Agent::Start(const Description& remote, int64_t nowMs, std::string& error)
{
    nowMs_ = nowMs;
    Instance* i = instance_.get();
    const int32_t idx = q::ICELIB_addRemoteMediaStream(i, kStreamId, remote.ufrag.c_str(), remote.pwd.c_str(),
                                                       Sa(remote.defaultAddress));
    if (idx < 0) return error = "the agent refused the remote media stream", false;
    for (const auto& c : remote.candidates) {
        char ip[64];
        if (!gatewalk::sockaddr_toString(Sa(c.address), ip, sizeof ip, false)) continue;
        // A refusal (a duplicate, a full table) is logged by the agent; the rest still stands.
        q::ICELIB_addRemoteCandidate(i, static_cast<uint32_t>(idx), c.foundation.c_str(), c.component, c.priority,
                                     ip, static_cast<uint16_t>(gatewalk::sockaddr_ipPort(Sa(c.address))),
                                     gatewalk::ICE_TRANS_UDP, TypeOf(c.type));
    }
    if (!q::ICELIB_Start(i, controlling_, RandomTieBreaker())) {
        return error = "the agent did not start (its log says why)", false;
    }
    started_ = true;
    nextTickMs_ = nowMs;
    auto early = std::move(early_);
    early_.clear();
    for (const auto& d : early) HandleStun(d, nowMs);
    return true;
}

int Agent::MsToNextTick(int64_t nowMs) const
{
    if (!started_) return static_cast<int>(kTickMs);
    const int64_t left = nextTickMs_ - nowMs;
    return left <= 0 ? 0 : static_cast<int>(left);
}

void Agent::Advance(int64_t nowMs)
{
    if (!started_) return;
    nowMs_ = nowMs;
    for (int n = 0; nowMs >= nextTickMs_ && n < kMaxCatchUpTicks; ++n) {
        nextTickMs_ += kTickMs;
        q::ICELIB_Tick(instance_.get());
    }
    if (nowMs >= nextTickMs_) nextTickMs_ = nowMs + kTickMs;
    checks_.Run(
        nowMs, [this](const CheckSchedule::Check& c) { SendCheck(c); },
        [this](const StunMsgId& id) { q::ICELIB_incomingTimeout(instance_.get(), id); });
}

bool Agent::Handle(const UdpSockets::Datagram& d, int64_t nowMs)
{
    if (!gatewalk::stunlib_isStunMsg(d.bytes.data(), static_cast<unsigned>(d.bytes.size()))) return true;
    if (!started_) {
        if (early_.size() < kMaxEarly) early_.push_back(d);
        return false;
    }
    HandleStun(d, nowMs);
    return false;
}

void Agent::HandleStun(const UdpSockets::Datagram& d, int64_t nowMs)
{
    nowMs_ = nowMs;
    Inbound in;
    Classify(d.bytes.data(), d.bytes.size(), *scratch_, in);
    const sockaddr* local = Sa(sockets_.Local(d.socket));
    if (in.kind == Inbound::Request) {
        // A check that the local password does not verify is not from our peer: no answer at all.
        if (!IntegrityHolds(d.bytes.data(), d.bytes.size(), *scratch_, localPassword_)) {
            std::fprintf(stderr, "ice-peer: check from %s without valid integrity dropped\n",
                         AddressText(d.from).c_str());
            return;
        }
        q::ICELIB_incomingBindingRequest(instance_.get(), static_cast<uint32_t>(d.socket), 0, in.ufragPair.c_str(),
                                         in.priority, in.useCandidate, in.controlling, in.controlled, in.tieBreaker,
                                         in.id, static_cast<int>(d.socket), Sa(d.from), local, false, nullptr,
                                         static_cast<uint16_t>(kComponent));
    } else if (in.kind == Inbound::Response) {
        const CheckSchedule::Check* check = checks_.Find(in.id);
        if (!check) return;  // a late copy, or not ours
        // An error answer may come without integrity; a success must carry it. One that fails it is
        // not from the peer, and the check keeps running.
        const bool verified = IntegrityHolds(d.bytes.data(), d.bytes.size(), *scratch_, check->password);
        if (!verified && (in.code == 200 || in.hasIntegrity)) {
            std::fprintf(stderr, "ice-peer: answer from %s failed integrity\n", AddressText(d.from).c_str());
            return;
        }
        checks_.Take(in.id);
        q::ICELIB_incomingBindingResponse(instance_.get(), in.code, in.id, Sa(d.from), local,
                                          in.code == 200 ? Sa(in.mapped) : nullptr);
    }
}

bool Agent::Selected(Pair& pair) const
{
    if (!concluded_ || failed_) return false;
    const auto* local = q::ICELIB_getActiveCandidate(instance_.get(), static_cast<uint32_t>(media_), kComponent);
    const auto* remotes = q::ICELIB_getActiveRemoteCandidates(instance_.get(), static_cast<uint32_t>(media_));
    if (!local || !remotes || remotes->numberOfComponents == 0) return false;
    const auto& remote = remotes->remoteCandidate[0];
    const int socket = sockets_.Find(Sa(local->connectionAddr));
    if (socket < 0) return false;
    pair.socket = static_cast<size_t>(socket);
    pair.local = local->connectionAddr;
    pair.remote = remote.connectionAddr;
    pair.localType = q::ICE_candidateTypeToString(local->type);
    pair.remoteType = q::ICE_candidateTypeToString(remote.type);
    return true;
}

void Agent::SendCheck(const CheckSchedule::Check& c) const
{
    sockets_.Send(static_cast<size_t>(c.socket), c.bytes.data(), c.bytes.size(), Sa(c.destination));
}

void Agent::OnRequest(void* self, int, const sockaddr* source, const sockaddr* destination, uint32_t, uint32_t,
                      uint32_t, bool, const char* ufragPair, const char* password, uint32_t priority,
                      bool useCandidate, bool controlling, uint64_t tieBreaker, StunMsgId id)
{
    Agent* a = Self(self);
    const int socket = a->sockets_.Find(source);
    CheckRequest request{id, ufragPair ? ufragPair : "", password ? password : "", priority, useCandidate,
                         controlling, tieBreaker};
    Bytes bytes = EncodeCheck(request);
    if (socket < 0 || bytes.empty() || !destination) {
        std::fprintf(stderr, "ice-peer: cannot send a check from %s\n", source ? "an unknown address" : "nowhere");
        q::ICELIB_incomingTimeout(a->instance_.get(), id);  // no copy can ever be answered
        return;
    }
    CheckSchedule::Check check{id, socket, {}, std::move(bytes), request.password};
    gatewalk::sockaddr_copy(reinterpret_cast<sockaddr*>(&check.destination), destination);
    a->checks_.Start(std::move(check), a->nowMs_, [a](const CheckSchedule::Check& c) { a->SendCheck(c); });
}

void Agent::OnResponse(void* self, uint32_t uv1, uint32_t, uint32_t, const sockaddr* source,
                       const sockaddr* destination, const sockaddr* mapped, uint16_t code, StunMsgId id, bool,
                       const char* password)
{
    Agent* a = Self(self);
    int socket = source ? a->sockets_.Find(source) : -1;
    if (socket < 0) socket = static_cast<int>(uv1);  // the socket the request came in on
    const Bytes bytes = EncodeAnswer(id, code, mapped, password ? password : a->localPassword_);
    if (destination) a->sockets_.Send(static_cast<size_t>(socket), bytes.data(), bytes.size(), destination);
}

void Agent::OnCancel(void* self, uint32_t, StunMsgId id) { Self(self)->checks_.Cancel(id); }

void Agent::OnComplete(void* self, uint32_t, bool, bool failed)
{
    Agent* a = Self(self);
    a->concluded_ = true;
    a->failed_ = failed;
}

void Agent::OnKeepAlive(void* self, uint32_t, uint32_t, uint32_t)
{
    const Agent* a = Self(self);
    Pair pair;
    if (!a->Selected(pair)) return;
    const Bytes bytes = EncodeKeepAlive();
    a->sockets_.Send(pair.socket, bytes.data(), bytes.size(), Sa(pair.remote));
}

void Agent::OnLog(void*, gatewalk::ICELIB_logLevel level, const char* text)
{
    if (!text) return;
    const size_t n = std::strlen(text);
    std::fprintf(stderr, "icelib[%d]: %s%s", static_cast<int>(level), text, n && text[n - 1] == '\n' ? "" : "\n");
}

}  // namespace tool::ice_peer
