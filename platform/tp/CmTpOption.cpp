#include "tp/CmTpOption.h"

#include <atomic>
#include <cstring>

namespace {
std::atomic<int32_t> g_connectionTimeEnhancement{0};
}

CmResult TPSetOption(int option, const void* value)
{
    if (!value) return CM_ERROR_NULL_POINTER;
    if (option != CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT) return CM_ERROR_INVALID_ARG;
    int32_t v = 0;
    std::memcpy(&v, value, sizeof(v));
    g_connectionTimeEnhancement.store(v);
    return CM_OK;
}

CmResult TPGetOption(int option, void* value)
{
    if (!value) return CM_ERROR_NULL_POINTER;
    if (option != CM_TP_OPTION_CONNECTION_TIME_ENHANCEMENT) return CM_ERROR_INVALID_ARG;
    const int32_t v = g_connectionTimeEnhancement.load();
    std::memcpy(value, &v, sizeof(v));
    return CM_OK;
}
