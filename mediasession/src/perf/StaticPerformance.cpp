#include "perf/StaticPerformance.h"

#include "util/CmSysInfo.h"
#include "util/CmTrace.h"

namespace zyn {

namespace {

const char* const kMachineTable =
#include "perf/MachineTable.json.inc"
    ;

const char* const kQualityNames[] = {"1080p", "720p", "360p", "180p"};
constexpr ZynVideoPerformance kQualities[] = {ZynVideoPerformance_1080p, ZynVideoPerformance_720p,
                                              ZynVideoPerformance_360p, ZynVideoPerformance_180p};

ZynVideoPerformance convertVideoPerfName(const std::string& name)
{
    for (size_t i = 0; i < std::size(kQualityNames); ++i)
        if (name == kQualityNames[i]) return kQualities[i];
    return ZynVideoPerformance_180p;
}

CMediaPerformanceStaticControl::CMachine Measure()
{
    CMediaPerformanceStaticControl::CMachine m;
    // Each measurement keeps its default when its source cannot be read.
    get_memory_size(m.memSize);
    get_cpu_frequency(m.cpuFrequency);
    get_cpu_core(m.physicalCore, m.virtualCore);
    return m;
}

}  // namespace

CMediaPerformanceStaticControl& CMediaPerformanceStaticControl::Instance()
{
    static CMediaPerformanceStaticControl instance(Measure(), "linux");
    return instance;
}

CMediaPerformanceStaticControl::CMediaPerformanceStaticControl(const CMachine& machine, const char* os,
                                                               const char* table)
    : m_machine(machine)
{
    const json::Value all = json::Deserialize(table ? table : kMachineTable);
    if (all.is_object() && os && all.contains(os) && all[os].is_object() && all[os].contains("defaults"))
        m_osTable = all[os]["defaults"];
    else
        MS_WARNING_TRACE("CMediaPerformanceStaticControl::CMediaPerformanceStaticControl, key of m_currOS is not "
                         "found in local Json.");
    m_bHWCodec = CheckHWAcceleration();
}

bool CMediaPerformanceStaticControl::validateSpec(const json::Value& conditions, const char* key, double value)
{
    if (!conditions.contains(key)) return true;
    const json::Value& test = conditions[key];
    auto number = [&](size_t i, double& out) {
        if (!test.is_array() || test.size() <= i || !test[i].is_number()) return false;
        out = test[i].get<double>();
        return true;
    };
    const std::string form = test.is_array() && !test.empty() && test[0].is_string() ? test[0].get<std::string>() : "";
    double a = 0, b = 0;
    bool ok = false, known = number(1, a);
    if (form == ">") ok = value > a;
    else if (form == ">=") ok = value >= a;
    else if (form == "<") ok = value < a;
    else if (form == "<=") ok = value <= a;
    else if (form == "==") ok = value == a;
    else if (form == "between" && number(2, b)) ok = value >= a && value <= b;
    else known = false;
    if (!known)
        MS_ERROR_TRACE("CMediaPerformanceStaticControl::validateSpec, Invalid spec input! check queryVideoPerformance");
    return known && ok;
}

bool CMediaPerformanceStaticControl::holds(const json::Value& conditions) const
{
    if (!conditions.is_object()) return false;
    if (conditions.contains("HWEnabled")) {
        const json::Value& hw = conditions["HWEnabled"];
        if (!hw.is_boolean() || hw.get<bool>() != m_bHWCodec) return false;
    }
    const CMachine& m = m_machine;
    return validateSpec(conditions, "physCore", m.physicalCore) && validateSpec(conditions, "memSize", double(m.memSize)) &&
           validateSpec(conditions, "virtCore", m.virtualCore) && validateSpec(conditions, "cpuFreq", m.cpuFrequency) &&
           validateSpec(conditions, "OSver", m.osVersion);
}

std::string CMediaPerformanceStaticControl::queryChecker(const json::Value& object, const char* const* names,
                                                         size_t count) const
{
    for (size_t i = 0; i < count; ++i) {
        if (!object.contains(names[i])) continue;
        const json::Value& rule = object[names[i]];
        if (rule.contains("specials") && rule["specials"].is_array())
            for (const json::Value& special : rule["specials"])
                if (holds(special))
                    return special.contains("overrideQuality") && special["overrideQuality"].is_string()
                               ? special["overrideQuality"].get<std::string>()
                               : names[i];
        if (rule.contains("general") && holds(rule["general"])) return names[i];
    }
    return {};
}

ZynVideoPerformance CMediaPerformanceStaticControl::queryVideoPerformance(bool isReceive, ZynSessionType type)
{
    std::lock_guard<std::mutex> lock(m_lock);
    const CMachine& m = m_machine;
    MS_INFO_TRACE("CMediaPerformanceStaticControl::queryVideoPerformance, m_memSize= "
                  << m.memSize << ", m_cpuFrequency=" << m.cpuFrequency << ", m_physicalCore=" << m.physicalCore
                  << ", m_virtualCore=" << m.virtualCore << ", session type = " << static_cast<int>(type));
    const char* key = isReceive ? "receive" : "send";
    if (!m_osTable.is_object() || !m_osTable.contains(key)) {
        MS_WARNING_TRACE("CMediaPerformanceStaticControl::queryVideoPerformance, '" << key << "' JSON key not found!");
        return ZynVideoPerformance_180p;
    }
    // 1080p is tried only where the application allowed it for this kind of line.
    const bool allow1080 = type == ZynSessionType_ScreenShare ? m_bEnableScreen1080pVideo : m_bEnable1080pVideo;
    const size_t first = allow1080 ? 0 : 1;
    const std::string name = queryChecker(m_osTable[key], kQualityNames + first, std::size(kQualityNames) - first);
    return convertVideoPerfName(name);
}

ZynVideoPerformance CMediaPerformanceStaticControl::QuerySendPerformance(bool flag, ZynSessionType type)
{
    (void)flag;
    const ZynVideoPerformance result = queryVideoPerformance(false, type);
    MS_INFO_TRACE("CMediaPerformanceStaticControl::QuerySendPerformance, Queried result = "
                  << static_cast<int>(result) << ", session type = " << static_cast<int>(type));
    return result;
}

ZynVideoPerformance CMediaPerformanceStaticControl::QueryRecvPerformance(bool flag, ZynSessionType type)
{
    (void)flag;
    const ZynVideoPerformance result = queryVideoPerformance(true, type);
    MS_INFO_TRACE("CMediaPerformanceStaticControl::QueryRecvPerformance, Queried result = "
                  << static_cast<int>(result) << ", session type = " << static_cast<int>(type));
    return result;
}

int CMediaPerformanceStaticControl::QuerySimulLayers(bool flag, ZynSessionType type)
{
    (void)flag, (void)type;
    std::lock_guard<std::mutex> lock(m_lock);
    const char* const names[] = {"5l", "4l", "2l"};
    const std::string name = m_osTable.is_object() && m_osTable.contains("simul")
                                 ? queryChecker(m_osTable["simul"], names, std::size(names))
                                 : std::string();
    const int layers = name.empty() ? 1 : name[0] - '0';
    MS_INFO_TRACE("CMediaPerformanceStaticControl::QuerySimulLayers, Queried result = " << layers);
    return layers;
}

bool CMediaPerformanceStaticControl::QueryPipCapability(bool flag)
{
    (void)flag;
    std::lock_guard<std::mutex> lock(m_lock);
    const char* const names[] = {"4"};
    return m_osTable.is_object() && m_osTable.contains("pip") && !queryChecker(m_osTable["pip"], names, 1).empty();
}

bool CMediaPerformanceStaticControl::CheckHWAcceleration()
{
    MS_INFO_TRACE("CMediaPerformanceStaticControl::CheckHWAcceleration");
    return false;
}

void CMediaPerformanceStaticControl::Enable1080pVideo(bool enable)
{
    std::lock_guard<std::mutex> lock(m_lock);
    m_bEnable1080pVideo = enable;
}

void CMediaPerformanceStaticControl::EnableScreen1080pVideo(bool enable)
{
    std::lock_guard<std::mutex> lock(m_lock);
    m_bEnableScreen1080pVideo = enable;
}

void CMediaPerformanceStaticControl::overrideSpec(const CMachine& machine)
{
    MS_INFO_TRACE("CMediaPerformanceStaticControl::overrideSpec, TA, Overriding specs");
    std::lock_guard<std::mutex> lock(m_lock);
    m_machine = machine;
}

CMediaPerformanceStaticControl::CMachine CMediaPerformanceStaticControl::GetMachine() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    return m_machine;
}

}  // namespace zyn
