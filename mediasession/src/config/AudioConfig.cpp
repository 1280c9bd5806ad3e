#include "config/ConfigTrace.h"
#include "config/MediaConfigs.h"

namespace zyn {

ZynResult CAudioConfig::SetAutoSwitchDefaultDeviceFlag(bool enable)
{
    CFG_INFO_TRACE("SetAutoSwitchDefaultDeviceFlag, value=" << enable);
    return Commit(m_bAutoSwitchDefaultDevice, enable, EMediaConfigItem::AutoSwitchDefaultDevice);
}

}  // namespace zyn
