// Read access to the agent's tables, for both profiles.
#include "icelib_internal.h"
#include "sockaddr_util.h"

namespace qlox_gatewalk {
#include "icelib_accessors.inc"
}  // namespace qlox_gatewalk

namespace zyn_gatewalk {
#include "icelib_accessors.inc"
}  // namespace zyn_gatewalk
