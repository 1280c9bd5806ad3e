// STUN Binding transactions in both profiles: qlox_gatewalk::... and zyn_gatewalk::....
#pragma once

#include "stunclient_qlox.h"
#include "stunclient_zyn.h"
