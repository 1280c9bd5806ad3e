// Result codes and the basic types shared by the library's public interfaces.
#pragma once

#include <cstdint>

#if defined(ZYN_BUILDING_LIBRARY) || defined(__GNUC__)
#define ZYN_API __attribute__((visibility("default")))
#else
#define ZYN_API
#endif

using ZynResult = int32_t;

// A code is a success when its bits under 0x0000F000 are clear.
#define ZYN_SUCCEEDED(cret) ((int32_t)((cret) & 0x0000F000) == 0)
#define ZYN_FAILED(cret) (!ZYN_SUCCEEDED(cret))

constexpr ZynResult ZYN_S_OK = 0;
constexpr ZynResult ZYN_S_FALSE = 0x46000001;         // success, nothing done
constexpr ZynResult ZYN_E_FAIL = 0x46004001;          // also: illegal after the call started
constexpr ZynResult ZYN_E_INVALIDARG = 0x46004003;
constexpr ZynResult ZYN_E_NOTIMPL = 0x46004004;
constexpr ZynResult ZYN_E_NOINTERFACE = 0x46004005;
constexpr ZynResult ZYN_E_POINTER = 0x46004006;
constexpr ZynResult ZYN_E_NOTAVAILABLE = 0x46004007;
constexpr ZynResult ZYN_E_NOTRACK = 0x46004008;
constexpr ZynResult ZYN_E_DUPLICATE = 0x46004009;
constexpr ZynResult ZYN_E_WRONGSTATE = 0x46004102;    // also: no queue or engine
constexpr ZynResult ZYN_E_NOTFOUND = 0x46004103;
constexpr ZynResult ZYN_E_ICEFAILED = 0x46004104;
constexpr ZynResult ZYN_E_GATHERFAILED = 0x46004105;
constexpr ZynResult ZYN_E_NETQUEUE = 0x46004106;

enum ZynSessionType : int32_t {
    ZynSessionType_Audio = 0,
    ZynSessionType_Video = 1,
    ZynSessionType_ScreenShare = 2,
    ZynSessionType_AudioSlide = 3,
    ZynSessionType_Application = 4,
    ZynSessionType_Unknown = 15,
};

// A bit mask.
enum ZynDirection : int32_t {
    ZynDirection_None = 0,
    ZynDirection_Send = 1,
    ZynDirection_Recv = 2,
    ZynDirection_SendRecv = 3,
};

enum ZynSdpType : int32_t {
    ZynSdpType_Offer = 1,
    ZynSdpType_Answer = 2,
};

// 16-byte interface identifier.
struct _tagUUID {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};
inline bool operator==(const _tagUUID& a, const _tagUUID& b)
{
    if (a.data1 != b.data1 || a.data2 != b.data2 || a.data3 != b.data3) return false;
    for (int i = 0; i < 8; ++i)
        if (a.data4[i] != b.data4[i]) return false;
    return true;
}

class IZynUnknown {
public:
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;
    virtual ZynResult QueryInterface(const _tagUUID& iid, void** out) = 0;
    virtual uint32_t GetReference() = 0;

protected:
    virtual ~IZynUnknown() = default;
};
