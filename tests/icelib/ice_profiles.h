// The two profiles of the ICE agent behind one interface, so that every test runs against both.
#pragma once

#include "icelib.h"
#include "stunlib.h"

#define ICE_TEST_PROFILE_COMMON(NS)                                                              \
    using Inst = NS::ICELIB_INSTANCE;                                                            \
    using Config = NS::ICELIB_CONFIGURATION;                                                     \
    using Pair = NS::ICELIB_LIST_PAIR;                                                           \
    using CheckList = NS::ICELIB_CHECKLIST;                                                      \
    using ValidList = NS::ICELIB_VALIDLIST;                                                      \
    using Msg = NS::StunMessage;                                                                 \
    static constexpr unsigned int kMaxMediaLines = NS::ICE_MAX_MEDIALINES;                       \
    static constexpr auto Constructor = &NS::ICELIB_Constructor;                                 \
    static constexpr auto Start = &NS::ICELIB_Start;                                             \
    static constexpr auto Stop = &NS::ICELIB_Stop;                                               \
    static constexpr auto ReStart = &NS::ICELIB_ReStart;                                         \
    static constexpr auto Tick = &NS::ICELIB_Tick;                                               \
    static constexpr auto AddLocalMediaStream = &NS::ICELIB_addLocalMediaStream;                 \
    static constexpr auto AddRemoteMediaStream = &NS::ICELIB_addRemoteMediaStream;               \
    static constexpr auto AddLocalCandidate = &NS::ICELIB_addLocalCandidate;                     \
    static constexpr auto AddRemoteCandidate = &NS::ICELIB_addRemoteCandidate;                   \
    static constexpr auto IncomingRequest = &NS::ICELIB_incomingBindingRequest;                  \
    static constexpr auto IncomingResponse = &NS::ICELIB_incomingBindingResponse;                \
    static constexpr auto IncomingTimeout = &NS::ICELIB_incomingTimeout;                         \
    static constexpr auto SetRequestCb = &NS::ICELIB_setCallbackOutgoingBindingRequest;          \
    static constexpr auto SetResponseCb = &NS::ICELIB_setCallbackOutgoingBindingResponse;        \
    static constexpr auto SetCancelCb = &NS::ICELIB_setCallbackOutgoingCancelRequest;            \
    static constexpr auto SetCompleteCb = &NS::ICELIB_setCallbackConnecitivityChecksComplete;    \
    static constexpr auto SetKeepAliveCb = &NS::ICELIB_setCallbackKeepAlive;                     \
    static constexpr auto SetLogCb = &NS::ICELIB_setCallbackLog;                                 \
    static constexpr auto GetLocalMediaStream = &NS::ICELIB_getLocalMediaStream;                 \
    static constexpr auto GetActiveCandidate = &NS::ICELIB_getActiveCandidate;                   \
    static constexpr auto GetActiveRemoteCandidates = &NS::ICELIB_getActiveRemoteCandidates;     \
    static constexpr auto GetCheckList = &NS::ICELIB_getCheckList;                               \
    static constexpr auto GetValidList = &NS::ICELIB_getValidList;                               \
    static constexpr auto NumberOfCheckLists = &NS::ICELIB_getNumberOfCheckLists;                \
    static constexpr auto IsIceComplete = &NS::ICELIB_isIceComplete;                             \
    static constexpr auto IsControlling = &NS::ICELIB_isControlling;                             \
    static constexpr auto GetState = &NS::ICELIB_getState;                                       \
    static constexpr auto Encode = &NS::stunlib_encodeMessage;                                   \
    static constexpr auto Decode = &NS::stunlib_DecodeMessage;                                   \
    static constexpr auto CheckIntegrity = &NS::stunlib_checkIntegrity;                          \
    static constexpr auto AddUserName = &NS::stunlib_addUserName;                                \
    static constexpr auto AddError = &NS::stunlib_addError;

struct QloxProfile {
    ICE_TEST_PROFILE_COMMON(qlox_gatewalk)
    static constexpr bool kZyn = false;
    static constexpr uint32_t kTimeLimitMs = 5000;
    static uint32_t Priority(gatewalk::ICE_CANDIDATE_TYPE type, uint32_t componentId, uint16_t localPref)
    {
        return qlox_gatewalk::ICELIB_calculatePriority(type, gatewalk::ICE_TRANS_UDP, componentId, localPref);
    }
};

struct ZynProfile {
    ICE_TEST_PROFILE_COMMON(zyn_gatewalk)
    static constexpr bool kZyn = true;
    static constexpr uint32_t kTimeLimitMs = 10000;
    static uint32_t Priority(gatewalk::ICE_CANDIDATE_TYPE type, uint32_t componentId, uint16_t localPref)
    {
        return zyn_gatewalk::ICELIB_calculatePriority(type, componentId, localPref);
    }
};

#undef ICE_TEST_PROFILE_COMMON
