#include "common/ZynIdentity.h"

const char* ZynSessionTypeTraceTag(int type)
{
    switch (type) {
    case ZynSessionType_Audio: return "[Audio]";
    case ZynSessionType_Video: return "[Video]";
    case ZynSessionType_ScreenShare: return "[ScreenShare]";
    case ZynSessionType_AudioSlide: return "[AudioSlide]";
    case ZynSessionType_Application: return "[Application]";
    default: return "";
    }
}

const char* ZynIdentityTag(int type)
{
    switch (type) {
    case ZynSessionType_Audio: return "[A]";
    case ZynSessionType_Video: return "[V]";
    case ZynSessionType_ScreenShare: return "[VS]";
    case ZynSessionType_AudioSlide: return "[AS]";
    case ZynSessionType_Application: return "[AP]";
    default: return "";
    }
}
