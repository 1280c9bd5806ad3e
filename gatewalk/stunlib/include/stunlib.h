// The STUN message codec in both profiles: qlox_gatewalk::... and zyn_gatewalk::....
#pragma once

#include "stunlib_qlox.h"
#include "stunlib_zyn.h"
