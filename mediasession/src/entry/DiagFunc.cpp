// Exported doors of the network diagnostics: the route trace and the reachability test. Each runs
// on the caller's thread and hands over to its singleton.
#include <algorithm>
#include <string>

#include "diag/StunTrace.h"
#include "diag/TraceServer.h"
#include "mediasession/ZynDiagnostics.h"
#include "util/CmTrace.h"

namespace {

// Numeric text into an address; "ADDR:PORT" / "[ADDR]:PORT" when withPort.
bool ReadAddress(const char* text, bool withPort, CCmInetAddr& out)
{
    if (!text || !*text) return false;
    std::string value(text);
    uint16_t port = 0;
    if (withPort) {
        const size_t colon = value.rfind(':');
        if (colon == std::string::npos || colon + 1 == value.size() || value.size() - colon > 6) return false;
        unsigned long n = 0;
        for (size_t i = colon + 1; i < value.size(); ++i) {
            if (value[i] < '0' || value[i] > '9') return false;
            n = n * 10 + static_cast<unsigned long>(value[i] - '0');
        }
        if (n > 65535) return false;
        port = static_cast<uint16_t>(n);
        value.resize(colon);
    }
    return out.Set(value.c_str(), port) == CM_OK;
}

}  // namespace

extern "C" {

ZYN_API ZynResult StartStunTrace(const _tagZynStunTraceParam* param)
{
    if (!param || !param->serverHost || !*param->serverHost || param->serverPort == 0) return ZYN_E_INVALIDARG;
    StunTraceRequest request;
    request.serverHost = param->serverHost;
    request.serverPort = param->serverPort;
    if (param->localAddress && !(request.hasLocal = ReadAddress(param->localAddress, false, request.localAddr)))
        return ZYN_E_INVALIDARG;
    if (param->mappedAddress && !(request.hasMapped = ReadAddress(param->mappedAddress, true, request.mappedAddr)))
        return ZYN_E_INVALIDARG;
    request.callId = param->callId;
    request.iceSucceeded = param->iceSucceeded;
    if (param->networkType) request.networkType = param->networkType;
    request.portMin = param->portMin;
    request.portMax = param->portMax;
    if (param->probesPerSecond > 0) request.settings.probesPerSecond = param->probesPerSecond;
    if (param->maxTtl > 0) request.settings.maxTtl = std::min(param->maxTtl, 255);
    if (param->probeWaitMs > 0) request.settings.probeWaitMs = param->probeWaitMs;
    return CStunTrace::GetInstance()->Start(request);
}

ZYN_API void SetStunTraceSink(IZynStunTraceSink* sink) { CStunTrace::GetInstance()->SetSink(sink); }

ZYN_API ZynResult StartTraceServer(const char* text, long length)
{
    return CTraceServer::Instance()->StartTrace(text, length);
}

ZYN_API ZynResult StopTraceServer() { return CTraceServer::Instance()->StopTrace(); }

ZYN_API ZynResult SetTraceServerOption(const char* text)
{
    MS_INFO_TRACE("SetTraceServerOption to " << (text ? text : "(null)"));
    return CTraceServer::Instance()->SetOption(text);
}

ZYN_API ZynResult SetTraceServerPortRange(unsigned short portMin, unsigned short portMax)
{
    return CTraceServer::Instance()->SetPortRange(portMin, portMax);
}

ZYN_API void SetTraceServerSink(IZynTraceServerSink* sink) { CTraceServer::Instance()->SetSink(sink); }

ZYN_API bool IsLastTraceServerUsable() { return CTraceServer::Instance()->IsLastTraceServerUsable(); }

}  // extern "C"
