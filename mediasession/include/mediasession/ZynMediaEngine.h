// Exported entry points: start and stop the library, make connections.
#pragma once

#include "mediasession/ZynDiagnostics.h"
#include "mediasession/ZynGlobalServices.h"
#include "mediasession/ZynMediaConnection.h"
#include "mediasession/ZynMediaTrack.h"

extern "C" {

// reserved1, reserved2 and reserved3 are accepted and never read.
ZYN_API void InitMediaEngine(void* reserved1, void* reserved2, bool timerAllTime, void* reserved3,
                             bool heartbeatEnable, unsigned int uInitOption);
ZYN_API void UninitMediaEngine();

// callId 0 asks for a generated id that no live connection has.
ZYN_API ZynResult CreateMediaConnection(IZynMediaConnection** out, unsigned int callId);
ZYN_API ZynResult CreateMediaConnectionWithCsi(IZynMediaConnection** out, unsigned int callId);
ZYN_API ZynResult CreateMediaConnection4T(unsigned int callId, IZynMediaConnection** out, bool svs,
                                          bool externalTransport);

// The engine's version as four numbers and its build text.
ZYN_API void GetMediaEngineVersion(unsigned int version[4], const char** build);

// A device of the connection's engine by its name, with one reference. ZYN_E_POINTER for a null
// connection or out, ZYN_E_INVALIDARG for a null name, ZYN_E_NOTFOUND for a name it has not.
ZYN_API ZynResult GetMediaDevice(IZynMediaConnection* connection, ZynDeviceKind kind, const char* name,
                                 IZynMediaDevice** out);
// The names of the connection's devices of a kind, one per line, into buffer (capacity size,
// always terminated). ZYN_E_INVALIDARG when they do not fit.
ZYN_API ZynResult GetMediaDeviceNames(IZynMediaConnection* connection, ZynDeviceKind kind, char* buffer,
                                      unsigned int size);

// Main thread. By default the library runs its own. An application that wants connection logic on
// a thread of its own calls ZynRegisterMainThread on it before InitMediaEngine and then calls
// ZynPumpMainThread in its loop; the pump returns false once the engine has been uninitialised.
ZYN_API ZynResult ZynRegisterMainThread();
ZYN_API bool ZynPumpMainThread(int timeoutMs);

// Trace lines: level 0 error, 1 warning, 2 information, 3 detail. The default sink writes to
// stderr with the mask of MEDIASESSION_TRACE_LEVEL (default 1). A null sink restores it.
typedef void (*ZynTraceSink)(void* context, int level, const char* module, const char* text, unsigned int length);
ZYN_API void ZynSetTraceSink(ZynTraceSink sink, void* context);
ZYN_API void ZynSetTraceLevel(int level);

}  // extern "C"

namespace zyn {
ZYN_API ZynResult _createMediaConnection(IZynMediaConnection** out, unsigned int callId, bool externalTransport,
                                         bool svs, bool externalCsi);
ZYN_API unsigned int CreateNonDuplicateCallID();
}  // namespace zyn
