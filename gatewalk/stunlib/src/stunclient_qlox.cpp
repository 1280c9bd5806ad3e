// STUN Binding transactions, profile qlox_gatewalk: request building, the profile's steps of the
// state machine, and the client entry points.
#include <cstdlib>
#include <cstring>

#include "stunclient_fsm.h"
#include "stunclient_qlox.h"

namespace qlox_gatewalk {

namespace {

using gatewalk::stunclient::CopyAddr;
using gatewalk::stunclient::kSoftwareName;
using gatewalk::stunclient::kSoftwarePad;

// Encodes the request of a slot. The request is rebuilt for every copy so that its TransCount says
// which copy this is, and an answer can be matched to the copy it answers.
uint32_t BuildRequest(const STUN_TRANSACTION_DATA& in, unsigned char* buffer, unsigned int length)
{
    StunMessage msg;  // about 17 KB of stack, once per copy sent
    std::memset(&msg, 0, sizeof msg);
    const StunBindReqStruct& req = in.request;
    const TransactionAttributes& a = req.attributes;
    msg.msgHdr.type = STUN_MSG_BindRequestMsg;
    msg.msgHdr.id = a.transactionId;
    if (a.username[0] != '\0' && !stunlib_addUserName(&msg, a.username, ' ')) return 0;
    if (a.peerPriority != 0) {
        msg.hasPriority = 1;
        msg.priority = a.peerPriority;
    }
    msg.hasUseCandidate = a.useCandidate ? 1 : 0;
    if (a.tieBreaker != 0) {
        if (a.iceControlling) {
            msg.hasControlling = 1;
            msg.controlling = a.tieBreaker;
        } else {
            msg.hasControlled = 1;
            msg.controlled = a.tieBreaker;
        }
    }
    if (req.ttl != 0) {
        msg.hasTTL = 1;
        msg.ttl.ttl = req.ttl;
    }
    if (req.addSoftware) stunlib_addSoftware(&msg, kSoftwareName, kSoftwarePad);
    if (req.addTransCount) {
        msg.hasTransCount = 1;
        msg.transCount.reserved = 0;
        msg.transCount.reqCnt = static_cast<uint8_t>(in.retransmits + 1);
        msg.transCount.respCnt = 0;
    }
    if (a.addStreamType) {
        msg.hasStreamType = 1;
        msg.streamType.type = a.streamType;
        msg.streamType.interval = a.streamInterval;
        msg.streamType.pad = a.streamPad;
        msg.hasNetworkStatusResp = 1;
    }
    const size_t keyLength = strnlen(a.password, sizeof a.password);
    unsigned char* key = keyLength != 0 ? reinterpret_cast<unsigned char*>(const_cast<char*>(a.password)) : nullptr;
    return stunlib_encodeMessage(&msg, buffer, length, key, static_cast<unsigned int>(keyLength), nullptr);
}

struct QloxProfile {
    using Client = STUN_CLIENT_DATA;
    using Inst = STUN_TRANSACTION_DATA;
    using Msg = StunMessage;
    using Req = StunBindReqStruct;
    using CbData = StunCallBackData_T;
    using Result = StunResult_T;

    static constexpr bool kTimed = true;
    static constexpr int kSlots = STUNCLIENT_MAX_INSTANCES;
    static constexpr int kCopies = STUNCLIENT_MAX_COPIES;

    static constexpr Result kBindOk = StunResult_BindOk;
    static constexpr Result kBindFail = StunResult_BindFail;
    static constexpr Result kBindFailNoAnswer = StunResult_BindFailNoAnswer;
    static constexpr Result kRoleConflict = StunResult_RoleConflict;
    static constexpr Result kCancelComplete = StunResult_CancelComplete;
    static constexpr Result kICMPResp = StunResult_ICMPResp;
    static constexpr Result kMalformedResp = StunResult_MalformedResp;

    static const StunMsgId& Id(const Inst& in) { return in.request.attributes.transactionId; }
    static bool FixedTimer(const Inst& in) { return in.request.fixedTimer != 0; }

    static void SendFirst(Inst& in) { Send(in, "<STUNCLIENT:%02d>  SendStunReq(BindReq), failed encode"); }
    static void Resend(Inst& in) { Send(in, "<STUNCLIENT:%02d>  SendStunReq(Retrans), failed encode"); }

    // A copy that cannot be encoded still goes to the send function, with length 0, and the
    // schedule goes on: the owner sees the attempt and the transaction ends the usual way.
    static void Send(Inst& in, const char* failure)
    {
        unsigned char buffer[STUN_MAX_PACKET_SIZE];
        const uint32_t length = BuildRequest(in, buffer, sizeof buffer);
        if (length == 0) Fsm::Log(in, StunInfoCategory_Error, failure, in.inst);
        const StunBindReqStruct& req = in.request;
        if (req.sendFunc == nullptr) return;
        req.sendFunc(req.userCtx, false, req.attributes.connectionId, buffer, static_cast<int>(length),
                     reinterpret_cast<const sockaddr*>(&req.serverAddr), req.transport, req.useRelay, req.ttl);
    }

    using Fsm = gatewalk::stunclient::Fsm<QloxProfile>;
};

using Fsm = gatewalk::stunclient::Fsm<QloxProfile>;

void FillRequest(StunBindReqStruct& req, void* userCtx, const sockaddr* serverAddr, const sockaddr* baseAddr,
                 bool useRelay, const TransactionAttributes* attributes, STUN_SENDFUNC sendFunc, STUNCB callback)
{
    req.userCtx = userCtx;
    CopyAddr(&req.serverAddr, serverAddr);
    CopyAddr(&req.baseAddr, baseAddr);
    req.useRelay = useRelay;
    if (attributes != nullptr) req.attributes = *attributes;
    // The texts are copied as they stand; make sure they end inside their arrays.
    req.attributes.username[sizeof req.attributes.username - 1] = '\0';
    req.attributes.password[sizeof req.attributes.password - 1] = '\0';
    req.sendFunc = sendFunc;
    req.callback = callback;
}

}  // namespace

const char* StunClient_resultToStr(int result)
{
    switch (result) {
    case StunResult_Empty: return "StunResult_Empty";
    case StunResult_BindOk: return "StunResult_BindOk";
    case StunResult_BindFail: return "StunResult_BindFail";
    case StunResult_BindFailNoAnswer: return "StunResult_BindFailNoAnswer";
    case StunResult_BindFailUnauthorised: return "StunResult_BindFailUnauthorised";
    case StunResult_RoleConflict: return "StunResult_RoleConflict";
    case StunResult_CancelComplete: return "StunResult_CancelComplete";
    case StunResult_ICMPResp: return "StunResult_ICMPResp";
    case StunResult_InternalError: return "StunResult_InternalError";
    case StunResult_MalformedResp: return "StunResult_MalformedResp";
    default: return "StunResult_UnKnown";
    }
}

bool StunClient_Alloc(STUN_CLIENT_DATA** client) { return Fsm::Alloc(client); }

void StunClient_free(STUN_CLIENT_DATA* client) { std::free(client); }

void StunClient_RegisterLogger(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData)
{
    if (client == nullptr) return;
    client->logFunc = logPtr;
    client->logUserData = userData;
}

void StunClient_clearStats(STUN_CLIENT_DATA* client) { Fsm::ClearStats(client); }

void StunClient_dumpStats(STUN_CLIENT_DATA* client, STUN_INFO_FUNC_PTR logPtr, void* userData)
{
    Fsm::DumpStats(client, logPtr, userData);
}

int StunClient_startBindTransaction(STUN_CLIENT_DATA* client, void* userCtx, const sockaddr* serverAddr,
                                    const sockaddr* baseAddr, int transport, bool useRelay,
                                    const TransactionAttributes* attributes, STUN_SENDFUNC sendFunc, STUNCB callback)
{
    if (client == nullptr) return 0;
    StunBindReqStruct request;
    std::memset(static_cast<void*>(&request), 0, sizeof request);
    FillRequest(request, userCtx, serverAddr, baseAddr, useRelay, attributes, sendFunc, callback);
    request.transport = transport;
    request.addSoftware = 1;
    request.fixedTimer = 0;
    request.addTransCount = 1;
    Fsm::Start(client, request);
    return 0;
}

int StunClient_startSTUNTrace(STUN_CLIENT_DATA* client, void* userCtx, const sockaddr* serverAddr,
                              const sockaddr* baseAddr, bool useRelay, unsigned char ttl,
                              const TransactionAttributes* attributes, STUN_SENDFUNC sendFunc, STUNCB callback)
{
    if (client == nullptr) return 0;
    StunBindReqStruct request;
    std::memset(static_cast<void*>(&request), 0, sizeof request);
    FillRequest(request, userCtx, serverAddr, baseAddr, useRelay, attributes, sendFunc, callback);
    request.ttl = ttl;
    request.addSoftware = 0;
    request.fixedTimer = 1;
    request.addTransCount = 0;
    Fsm::Start(client, request);
    return 0;
}

void StunClient_HandleTick(STUN_CLIENT_DATA* client, int elapsedMs) { Fsm::Tick(client, elapsedMs); }

void StunClient_HandleIncResp(STUN_CLIENT_DATA* client, const StunMessage* message, const sockaddr* sourceAddr)
{
    Fsm::HandleResponse(client, message, sourceAddr);
}

void StunClient_HandleICMP(STUN_CLIENT_DATA* client, const sockaddr* sourceAddr, uint32_t icmpType)
{
    if (client == nullptr || sourceAddr == nullptr) return;
    StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Trace,
              "<STUNTRACE> StunClient_HandleICMP: Got ICMP type: %i\n ", static_cast<int>(icmpType));
    const int family = sourceAddr->sa_family;
    if (!gatewalk::stunclient::isTimeExceeded(icmpType, family) &&
        !gatewalk::stunclient::isDstUnreachable(icmpType, family)) {
        StunPrint(client->logUserData, client->logFunc, StunInfoCategory_Trace,
                  "<STUNTRACE> StunClient_HandleICMP: Ignoring ICMP Type, nothing to do\n ");
        return;
    }
    // Only the path trace's transaction in flight can be the cause of an ICMP report.
    STUN_TRANSACTION_DATA* in = Fsm::FindRunning(client, client->traceResult.attributes.transactionId);
    if (in == nullptr) return;
    if (in->retransmits < STUNCLIENT_MAX_COPIES) in->stop[in->retransmits] = client->clockUs;
    gatewalk::stunclient::Event<QloxProfile> ev;
    ev.source = sourceAddr;
    ev.icmpType = icmpType;
    ev.ttl = static_cast<uint32_t>(client->traceResult.currentTTL);
    Fsm::Dispatch(*in, gatewalk::stunclient::Sig::ICMPResp, ev);
}

int StunClient_cancelBindingTransaction(STUN_CLIENT_DATA* client, StunMsgId transactionId)
{
    return Fsm::Cancel(client, transactionId);
}

}  // namespace qlox_gatewalk
