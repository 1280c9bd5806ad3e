// Pieces of the STUN transaction client that both profiles share: the logger, the counters, the
// states and what the server half extracts from an incoming Binding request.
#pragma once

#include <cstdint>

#include "stunlib_types.h"

namespace gatewalk {

// ---- logging -------------------------------------------------------------------------------------
enum StunInfoCategory_T {
    StunInfoCategory_Info = 0,
    StunInfoCategory_Error = 1,
    StunInfoCategory_Trace = 2,
};

// Receives one formatted line (at most 255 characters and a NUL). Runs on the caller's thread,
// inside whatever client call produced the line.
using STUN_INFO_FUNC_PTR = void (*)(void* userData, StunInfoCategory_T category, char* infoStr);

// Formats into 256 bytes (longer lines are cut) and hands the text to `logPtr` if it is not null.
void StunPrint(void* userData, STUN_INFO_FUNC_PTR logPtr, StunInfoCategory_T category, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

// ---- transaction states --------------------------------------------------------------------------
enum STUN_STATE {
    STUN_STATE_Idle = 0,
    STUN_STATE_WaitBindResp = 1,
    // The owner lost interest, but the slot stays taken until the schedule runs out so that a late
    // response is swallowed here instead of being reported as belonging to nobody.
    STUN_STATE_Cancelled = 2,
};

// ---- counters ------------------------------------------------------------------------------------
// Kept per slot (across transactions) and once per client for work that belongs to no slot. The
// spares keep the layout of the dumps that tools read. InProgress is 1 while a slot runs a
// transaction; summed over the slots it is the number of transactions under way.
struct StunClientStats {
    uint32_t InProgress;
    uint32_t BindReqSent;
    uint32_t spare1;
    uint32_t BindRespReceived;
    uint32_t BindRespReceived_Cancelled;
    uint32_t BindRespReceived_Idle;
    uint32_t spare2;
    uint32_t BindRespErrReceived;
    uint32_t ICMPReceived;
    uint32_t BindReqReceived;
    uint32_t BindReqReceived_ViaRelay;
    uint32_t BindRespSent;
    uint32_t spare3;
    uint32_t Retransmits;
    uint32_t Failures;
};

// ---- server half ---------------------------------------------------------------------------------
constexpr unsigned int STUN_MAX_UFRAG_PAIR = 256;

// What an incoming ICE Binding request carries that the agent needs.
struct STUN_INCOMING_REQ_DATA {
    char ufragPair[STUN_MAX_UFRAG_PAIR];  // USERNAME, always NUL-terminated
    uint32_t peerPriority;
    bool useCandidate;
    bool iceControlling;
    bool iceControlled;
    uint64_t tieBreaker;  // of ICE-CONTROLLING or ICE-CONTROLLED, the last one in the record
    StunMsgId transactionId;
    bool fromRelay;
};

}  // namespace gatewalk
