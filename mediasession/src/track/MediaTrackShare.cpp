// Screen-share operations of a local share track: what is shared, left out or drawn over. The
// engine's share object keeps the lists; the track only checks and forwards.
#include <cstring>

#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "track/MediaTrack.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

// Track option 154 carries one command record: the command, at 8 a value (a handle, a process id,
// a pointer to a class name or to a list of them), at 16 a length or count.
constexpr int32_t kShareCommandOption = 154;
struct ShareCommandRecord {
    int32_t command;
    int32_t reserved;
    uint64_t value;
    uint64_t length;
};
static_assert(sizeof(ShareCommandRecord) == 24, "option 154 is a 24-byte record");

enum : int32_t {
    kAddAnnotationWindow = 1001,
    kAddAnnotationClass = 1002,
    kRemoveAnnotationWindow = 1003,
    kRemoveAnnotationClass = 1004,
    kAddTransparentWindow = 1005,
    kAddTransparentClassList = 1006,
    kRemoveTransparentWindow = 1007,
    kRemoveTransparentClassList = 1008,
    kAddAnnotationProcess = 1009,
    kRemoveAnnotationProcess = 1010,
};

constexpr size_t kMaxClassName = 1024;

}  // namespace

ZynResult CMediaTrack::ShareOption(const char* name, const char* tag, int32_t option, const void* value, uint32_t size)
{
    if (!IsLocalShare()) return ZYN_E_FAIL;
    if (!m_pTrack) return ZYN_E_POINTER;
    MS_DETAIL_TRACE("CMediaTrack::" << name << ", option=" << option << TRACK_TAIL);
    const ZynResult r = m_pTrack->SetOption(option, value, size);
    if (!ZYN_SUCCEEDED(r) && tag) WriteMetricsError(tag, r);
    return r;
}

ZynResult CMediaTrack::ShareCommand(const char* name, const char* tag, int32_t command, uint64_t value, uint64_t length)
{
    ShareCommandRecord record{command, 0, value, length};
    return ShareOption(name, tag, kShareCommandOption, &record, sizeof record);
}

ZynResult CMediaTrack::ShareClassName(const char* name, int32_t command, const char* className)
{
    if (!IsLocalShare()) return ZYN_E_FAIL;
    const size_t length = className ? strnlen(className, kMaxClassName + 1) : 0;
    if (length < 1 || length > kMaxClassName) {
        MS_ERROR_TRACE("CMediaTrack::AddNimboAnnotationWindowByClassName classname is invalid length!!! " << length
                       << TRACK_TAIL);
        return ZYN_E_FAIL;
    }
    return ShareCommand(name, nullptr, command, reinterpret_cast<uintptr_t>(className), length);
}

ZynResult CMediaTrack::ShareClassNameList(const char* name, const char* tag, int32_t command, const char** names,
                                          unsigned int count)
{
    if (!IsLocalShare()) return ZYN_E_FAIL;
    if (!names || count == 0) return ZYN_E_INVALIDARG;
    for (unsigned int i = 0; i < count; ++i) {
        const size_t length = names[i] ? strnlen(names[i], kMaxClassName + 1) : 0;
        if (length < 1 || length > kMaxClassName) return ZYN_E_FAIL;
    }
    return ShareCommand(name, tag, command, reinterpret_cast<uintptr_t>(names), count);
}

#define SHARE_HANDLE_OP(op, option, tag)                                                      \
    ZynResult CMediaTrack::op(void* handle)                                                   \
    {                                                                                         \
        const uint64_t value = reinterpret_cast<uintptr_t>(handle);                           \
        return ShareOption(#op, tag, option, &value, sizeof value);                           \
    }
#define SHARE_PROCESS_OP(op, option, tag)                                                     \
    ZynResult CMediaTrack::op(unsigned int processId)                                         \
    {                                                                                         \
        const uint32_t value = processId;                                                     \
        return ShareOption(#op, tag, option, &value, sizeof value);                           \
    }

SHARE_HANDLE_OP(AddSharedWindow, 118, "MedTrck_AddShareWind")
SHARE_HANDLE_OP(RemoveSharedWindow, 119, "MedTrck_RmvShareWin")
SHARE_HANDLE_OP(AddUnSharedWindow, 120, "MedTrck_AddUnShareWin")
SHARE_HANDLE_OP(RemoveUnSharedWindow, 121, "MedTrck_RmvUnShareWin")
SHARE_PROCESS_OP(AddSharedProcess, 122, "MedTrck_AddShareAPP")
SHARE_PROCESS_OP(RemoveSharedProcess, 123, "MedTrck_RmvShareAPP")
SHARE_PROCESS_OP(AddUnSharedProcess, 124, "MedTrck_AddUnShareAPP")
SHARE_PROCESS_OP(RemoveUnSharedProcess, 125, "MedTrck_RmvUnShareAPP")

ZynResult CMediaTrack::SelectSharedDisplay(uint64_t displayId)
{
    return ShareOption("SelectSharedDisplay", "MedTrck_SelectSharedDispla", 126, &displayId, sizeof displayId);
}

ZynResult CMediaTrack::SelectSharedDisplay(const char* displayName)
{
    if (IsLocalShare() && !displayName) return ZYN_E_INVALIDARG;
    const uint64_t value = reinterpret_cast<uintptr_t>(displayName);
    return ShareOption("SelectSharedDisplay", "MedTrck_SelectSharedDispla", 127, &value, sizeof value);
}

ZynResult CMediaTrack::AddNimboAnnotationWindow(void* handle)
{
    return ShareCommand("AddNimboAnnotationWindow", nullptr, kAddAnnotationWindow, reinterpret_cast<uintptr_t>(handle), 0);
}
ZynResult CMediaTrack::RemoveNimboAnnotationWindow(void* handle)
{
    return ShareCommand("RemoveNimboAnnotationWindow", nullptr, kRemoveAnnotationWindow,
                        reinterpret_cast<uintptr_t>(handle), 0);
}
ZynResult CMediaTrack::AddNimboAnnotationWindowByClassName(const char* className)
{
    return ShareClassName("AddNimboAnnotationWindowByClassName", kAddAnnotationClass, className);
}
ZynResult CMediaTrack::RemoveNimboAnnotationWindowByClassName(const char* className)
{
    return ShareClassName("RemoveNimboAnnotationWindowByClassName", kRemoveAnnotationClass, className);
}
ZynResult CMediaTrack::AddTransparentWindow(void* handle)
{
    return ShareCommand("AddTransparentWindow", nullptr, kAddTransparentWindow, reinterpret_cast<uintptr_t>(handle), 0);
}
ZynResult CMediaTrack::RemoveTransparentWindow(void* handle)
{
    return ShareCommand("RemoveTransparentWindow", nullptr, kRemoveTransparentWindow,
                        reinterpret_cast<uintptr_t>(handle), 0);
}
ZynResult CMediaTrack::AddTransparentWindowByClassNameList(const char** classNames, unsigned int count)
{
    return ShareClassNameList("AddTransparentWindowByClassNameList", "MedTrck_AddTransparentWindowByCl",
                              kAddTransparentClassList, classNames, count);
}
ZynResult CMediaTrack::RemoveTransparentWindowByClassNameList(const char** classNames, unsigned int count)
{
    return ShareClassNameList("RemoveTransparentWindowByClassNameList", "MedTrck_RemoveTransparentWindowB",
                              kRemoveTransparentClassList, classNames, count);
}
ZynResult CMediaTrack::AddNimboAnnotationProcess(unsigned int processId)
{
    return ShareCommand("AddNimboAnnotationProcess", nullptr, kAddAnnotationProcess, processId, 0);
}
ZynResult CMediaTrack::RemoveNimboAnnotationProcess(unsigned int processId)
{
    return ShareCommand("RemoveNimboAnnotationProcess", nullptr, kRemoveAnnotationProcess, processId, 0);
}

ZynResult CMediaTrack::PauseSharingCapturer(bool pause)
{
    const uint8_t value = pause ? 1 : 0;
    return ShareOption("PauseSharingCapturer", nullptr, 65, &value, sizeof value);
}

// The engine's share object answers an add option with what it now holds under it.
bool CMediaTrack::ShareListHas(int32_t option, uint64_t value)
{
    if (!IsLocalShare() || !m_pTrack) return false;
    uint64_t items[256];
    uint32_t size = sizeof items;
    if (!ZYN_SUCCEEDED(m_pTrack->GetOption(option, items, size))) return false;
    for (uint32_t i = 0; i < size / sizeof(uint64_t); ++i)
        if (items[i] == value) return true;
    return false;
}

bool CMediaTrack::ApplicationIsShared(unsigned int processId) { return ShareListHas(122, processId); }
bool CMediaTrack::WindowIsShared(void* handle) { return ShareListHas(118, reinterpret_cast<uintptr_t>(handle)); }
bool CMediaTrack::DisplayIsShared(uint64_t displayId) { return ShareListHas(126, displayId); }

int CMediaTrack::GetSharedAppCount()
{
    if (!IsLocalShare() || !m_pTrack) return 0;
    uint64_t items[256];
    uint32_t size = sizeof items;
    if (!ZYN_SUCCEEDED(m_pTrack->GetOption(122, items, size))) return 0;
    return static_cast<int>(size / sizeof(uint64_t));
}

ZynResult CMediaTrack::SetScreenSharingID(const char* id)
{
    if (m_eZynSessionType != ZynSessionType_ScreenShare) return ZYN_E_FAIL;
    const std::string next = id ? id : "";
    if (next == m_screenSharingId) return ZYN_S_OK;
    m_screenSharingId = next;
    MS_INFO_TRACE("CMediaTrack::SetScreenSharingID, screenSharingIDNew=" << m_screenSharingId << TRACK_TAIL);
    return ZYN_S_OK;
}

namespace {
// Options of the share object for what the application hands over whole: a screen source
// (pointer), the sharer's description (text), and rectangles of the screen.
constexpr int32_t kAddScreenSourceOption = 152;
constexpr int32_t kRemoveScreenSourceOption = 153;
constexpr int32_t kSharerInfoOption = 142;
constexpr int32_t kSharedPortionOption = 176;
constexpr int32_t kRemoteControlRegionOption = 177;
constexpr size_t kMaxSharerInfo = 4096;

bool ValidRect(const _tagRect* r) { return r && r->left >= 0 && r->top >= 0 && r->left < r->right && r->top < r->bottom; }
}  // namespace

ZynResult CMediaTrack::AddScreenSource(IZynScreenSource* source)
{
    if (!source) return IsLocalShare() ? WriteMetricsError("MedTrck_AddScrSrc", ZYN_E_INVALIDARG) : ZYN_E_FAIL;
    const uint64_t value = reinterpret_cast<uintptr_t>(source);
    return ShareOption("AddScreenSource", "MedTrck_AddScrSrc", kAddScreenSourceOption, &value, sizeof value);
}

ZynResult CMediaTrack::RemoveScreenSource(IZynScreenSource* source)
{
    if (!source) return IsLocalShare() ? WriteMetricsError("MedTrck_RmvScrSrc", ZYN_E_INVALIDARG) : ZYN_E_FAIL;
    const uint64_t value = reinterpret_cast<uintptr_t>(source);
    return ShareOption("RemoveScreenSource", "MedTrck_RmvScrSrc", kRemoveScreenSourceOption, &value, sizeof value);
}

ZynResult CMediaTrack::SetScreenSharerInfo(const char* info)
{
    const size_t length = info ? strnlen(info, kMaxSharerInfo + 1) : 0;
    if (length > kMaxSharerInfo) return IsLocalShare() ? ZYN_E_INVALIDARG : ZYN_E_FAIL;
    return ShareOption("SetScreenSharerInfo", nullptr, kSharerInfoOption, info ? info : "",
                       static_cast<uint32_t>(length + 1));
}

ZynResult CMediaTrack::SelectSharedPortion(const _tagRect* portion)
{
    if (!IsLocalShare()) return ZYN_E_FAIL;
    if (!ValidRect(portion)) {
        MS_WARNING_TRACE("CMediaTrack::SelectSharedPortion input invalidate pos="
                         << (portion ? portion->left : -1) << "," << (portion ? portion->top : -1) << ","
                         << (portion ? portion->right : -1) << "," << (portion ? portion->bottom : -1) << TRACK_TAIL);
        return WriteMetricsError("MedTrck_SelectSharedPortio", ZYN_E_INVALIDARG);
    }
    return ShareOption("SelectSharedPortion", "MedTrck_SelectSharedPortio", kSharedPortionOption, portion,
                       sizeof *portion);
}

ZynResult CMediaTrack::CopySharedRegionForRemoteControl(const _tagRect* region)
{
    if (!IsLocalShare()) return ZYN_E_FAIL;
    if (!ValidRect(region)) return ZYN_E_INVALIDARG;
    return ShareOption("CopySharedRegionForRemoteControl", nullptr, kRemoteControlRegionOption, region, sizeof *region);
}

// The answer is ZYN_S_FALSE on every path, by design: the position takes effect on the immersive
// line later, and a caller must not read a success into it.
ZynResult CMediaTrack::SetImmersiveSharingPos(unsigned int left, unsigned int top, unsigned int right, unsigned int bottom)
{
    if (left >= right || top >= bottom || right > 100 || bottom > 100) {
        MS_WARNING_TRACE("CMediaTrack::SetImmersiveSharingPos input invalidate pos=" << left << "," << top << ","
                         << right << "," << bottom << TRACK_TAIL);
        return ZYN_S_FALSE;
    }
    // No line of this connection carries an immersive share yet.
    MS_WARNING_TRACE("[immersivesharing] m_info is null !" << TRACK_TAIL);
    return ZYN_S_FALSE;
}

}  // namespace zyn
