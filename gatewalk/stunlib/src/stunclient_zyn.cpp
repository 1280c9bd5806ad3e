// STUN Binding transactions, profile zyn_gatewalk: the request is encoded once into the slot and
// the same bytes go out on every copy.
#include <cstdlib>
#include <cstring>

#include "stunclient_fsm.h"
#include "stunclient_zyn.h"

namespace zyn_gatewalk {

namespace {

using gatewalk::stunclient::CopyAddr;
using gatewalk::stunclient::kSoftwareName;
using gatewalk::stunclient::kSoftwarePad;

uint32_t BuildRequest(const StunBindReqStruct& req, unsigned char* buffer, unsigned int length)
{
    StunMessage msg;  // about 17 KB of stack, once per transaction
    std::memset(&msg, 0, sizeof msg);
    msg.msgHdr.type = STUN_MSG_BindRequestMsg;
    msg.msgHdr.id = req.transactionId;
    if (req.username[0] != '\0' && !stunlib_addUserName(&msg, req.username, ' ')) return 0;
    if (req.peerPriority != 0) {
        msg.hasPriority = 1;
        msg.priority = req.peerPriority;
    }
    msg.hasUseCandidate = req.useCandidate ? 1 : 0;
    if (req.tieBreaker != 0) {
        if (req.iceControlling) {
            msg.hasControlling = 1;
            msg.controlling = req.tieBreaker;
        } else {
            msg.hasControlled = 1;
            msg.controlled = req.tieBreaker;
        }
    }
    stunlib_addSoftware(&msg, kSoftwareName, kSoftwarePad);
    if (req.hasMaliceMetadata) {
        msg.hasMaliceMetadata = 1;
        msg.maliceMetadata = req.maliceMetadata;
    }
    const size_t keyLength = strnlen(req.password, sizeof req.password);
    unsigned char* key = keyLength != 0 ? reinterpret_cast<unsigned char*>(const_cast<char*>(req.password)) : nullptr;
    return stunlib_encodeMessage(&msg, buffer, length, key, static_cast<unsigned int>(keyLength), nullptr);
}

struct ZynProfile {
    using Client = STUN_CLIENT_DATA;
    using Inst = STUN_TRANSACTION_DATA;
    using Msg = StunMessage;
    using Req = StunBindReqStruct;
    using CbData = StunCallBackData_T;
    using Result = StunResult_T;

    static constexpr bool kTimed = false;
    static constexpr int kSlots = STUNCLIENT_MAX_INSTANCES;

    static constexpr Result kBindOk = StunResult_BindOk;
    static constexpr Result kBindFail = StunResult_BindFail;
    static constexpr Result kBindFailNoAnswer = StunResult_BindFailNoAnswer;
    // This profile has no role-conflict result: the agent above it learns of a 487 as a failure.
    static constexpr Result kRoleConflict = StunResult_BindFail;
    static constexpr Result kCancelComplete = StunResult_CancelComplete;
    static constexpr Result kMalformedResp = StunResult_MalformedResp;

    static const StunMsgId& Id(const Inst& in) { return in.request.transactionId; }
    static bool FixedTimer(const Inst&) { return false; }

    static void SendFirst(Inst& in)
    {
        in.stunReqMsgBufLen = static_cast<int>(BuildRequest(in.request, in.stunReqMsgBuf, sizeof in.stunReqMsgBuf));
        if (in.stunReqMsgBufLen == 0) {
            gatewalk::stunclient::Fsm<ZynProfile>::Log(in, StunInfoCategory_Error,
                                                       "<STUNCLIENT:%02d>  SendStunReq(BindReq), failed encode",
                                                       in.inst);
        }
        Resend(in);
    }

    static void Resend(Inst& in)
    {
        const StunBindReqStruct& req = in.request;
        if (req.sendFunc == nullptr) return;
        req.sendFunc(req.userCtx, req.sock, in.stunReqMsgBuf, in.stunReqMsgBufLen,
                     reinterpret_cast<const sockaddr*>(&req.serverAddr), req.useRelay);
    }
};

using Fsm = gatewalk::stunclient::Fsm<ZynProfile>;

void CopyText(char* destination, size_t size, const char* source)
{
    destination[0] = '\0';
    if (source == nullptr) return;
    const size_t n = strnlen(source, size - 1);
    std::memcpy(destination, source, n);
    destination[n] = '\0';
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
    case StunResult_CancelComplete: return "StunResult_CancelComplete";
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
                                    const sockaddr* baseAddr, bool useRelay, const char* username,
                                    const char* password, uint32_t peerPriority, bool useCandidate,
                                    bool iceControlling, uint64_t tieBreaker, StunMsgId transactionId, int sock,
                                    STUN_SENDFUNC sendFunc, STUNCB callback, const MaliceMetadata* maliceMetadata)
{
    if (client == nullptr) return 0;
    StunBindReqStruct req;
    std::memset(static_cast<void*>(&req), 0, sizeof req);
    req.userCtx = userCtx;
    CopyAddr(&req.serverAddr, serverAddr);
    CopyAddr(&req.baseAddr, baseAddr);
    req.useRelay = useRelay;
    CopyText(req.username, sizeof req.username, username);
    CopyText(req.password, sizeof req.password, password);
    req.peerPriority = peerPriority;
    req.useCandidate = useCandidate;
    req.iceControlling = iceControlling;
    req.tieBreaker = tieBreaker;
    req.transactionId = transactionId;
    req.sock = sock;
    req.sendFunc = sendFunc;
    req.callback = callback;
    if (maliceMetadata != nullptr) {
        req.hasMaliceMetadata = 1;
        req.maliceMetadata = *maliceMetadata;
    }
    Fsm::Start(client, req);
    return 0;
}

void StunClient_HandleTick(STUN_CLIENT_DATA* client, int elapsedMs) { Fsm::Tick(client, elapsedMs); }

void StunClient_HandleIncResp(STUN_CLIENT_DATA* client, const StunMessage* message, const sockaddr* sourceAddr)
{
    Fsm::HandleResponse(client, message, sourceAddr);
}

int StunClient_cancelBindingTransaction(STUN_CLIENT_DATA* client, StunMsgId transactionId)
{
    return Fsm::Cancel(client, transactionId);
}

}  // namespace zyn_gatewalk
