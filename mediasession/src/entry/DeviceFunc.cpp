// Exported device look-ups: the devices of a connection's engine, by name. Any thread.
#include <cstring>
#include <string>

#include "connection/MediaConnection.h"
#include "mediasession/ZynMediaEngine.h"
#include "zyn/ZynEngineApi.h"

namespace {

IZynMediaEngineInternal* EngineOf(IZynMediaConnection* connection)
{
    return connection ? static_cast<zyn::CMediaConnection*>(connection)->GetEngine() : nullptr;
}

}  // namespace

ZYN_API ZynResult GetMediaDevice(IZynMediaConnection* connection, ZynDeviceKind kind, const char* name,
                                 IZynMediaDevice** out)
{
    if (!out) return ZYN_E_POINTER;
    *out = nullptr;
    IZynMediaEngineInternal* engine = EngineOf(connection);
    if (!engine) return ZYN_E_POINTER;
    return engine->FindDevice(kind, name, out);
}

ZYN_API ZynResult GetMediaDeviceNames(IZynMediaConnection* connection, ZynDeviceKind kind, char* buffer,
                                      unsigned int size)
{
    if (!buffer || size == 0) return ZYN_E_INVALIDARG;
    buffer[0] = '\0';
    IZynMediaEngineInternal* engine = EngineOf(connection);
    if (!engine) return ZYN_E_POINTER;
    uint32_t count = 0;
    engine->GetDevices(kind, nullptr, count);
    std::string names;
    if (count) {
        IZynMediaDevice* devices[64];
        count = count < 64 ? count : 64;
        if (!ZYN_SUCCEEDED(engine->GetDevices(kind, devices, count))) return ZYN_E_FAIL;
        for (uint32_t i = 0; i < count; ++i) {
            names += devices[i]->GetDeviceName();
            names += '\n';
            devices[i]->Release();
        }
    }
    if (names.size() + 1 > size) return ZYN_E_INVALIDARG;
    std::memcpy(buffer, names.c_str(), names.size() + 1);
    return ZYN_S_OK;
}
