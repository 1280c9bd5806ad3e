// Machine, process and call-wide figures that the connection's statistics calls fill.
#pragma once

#include "mediasession/ZynDefines.h"

struct _tagZynCPUUsage;
struct _tagZynMemoryUsage;
struct _tagZynAggregateNetworkMetricStats;
struct _tagSyncStatistics;
struct _tagDownLinkIndicationInfo;
