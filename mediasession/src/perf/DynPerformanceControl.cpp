#include "perf/DynPerformanceControl.h"

namespace zyn {

CDynPerformanceControl& CDynPerformanceControl::Instance()
{
    static CDynPerformanceControl instance;
    return instance;
}

}  // namespace zyn
