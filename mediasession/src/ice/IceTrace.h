// Trace lines of the connector: the text, then the line's kind, the call id and the object.
#pragma once

#include "common/ZynIdentity.h"
#include "util/CmTrace.h"

#define ICE_TAIL MS_TAIL(ZynSessionTypeTraceTag(m_sessionType), m_callId)
#define ICE_ERROR(str) MS_ERROR_TRACE(str << ICE_TAIL)
#define ICE_WARN(str) MS_WARNING_TRACE(str << ICE_TAIL)
#define ICE_INFO(str) MS_INFO_TRACE(str << ICE_TAIL)
#define ICE_DETAIL(str) MS_DETAIL_TRACE(str << ICE_TAIL)
