// Trace lines of a media configuration: "<class>::<text> cid__<call id>", the class chosen by
// the owner line's session type. Used inside CBaseConfig and the classes built on it.
#pragma once

#include "util/CmTrace.h"

#define CFG_TRACE(level, str)                                                                       \
    CM_TRACE_MODULE(level, MS_MODULE, GetTraceClassName() << "::" << str << " cid__" << TraceCallId())
#define CFG_INFO_TRACE(str) CFG_TRACE(CM_TRACE_LEVEL_INFO, str)
#define CFG_WARNING_TRACE(str) CFG_TRACE(CM_TRACE_LEVEL_WARNING, str)
#define CFG_ERROR_TRACE(str) CFG_TRACE(CM_TRACE_LEVEL_ERROR, str)
