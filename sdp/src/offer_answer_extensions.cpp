// Offer/answer of the system's extensions and of the other capability sets: resilience (sobe),
// multistream, extended reports and BFCP floor control roles.
#include "sdp/offer_answer_values.h"

namespace sdp {

optional_value<sobe_caps> get_answer_sobe(const optional_value<sobe_caps>& offered,
                                          const optional_value<sobe_caps>& local)
{
    if (offered.empty() || local.empty()) return {};
    const sobe_caps& o = offered.get_data();
    const sobe_caps& l = local.get_data();
    sobe_caps out;
    out.versions = sub_list(o.versions, l.versions);
    if (out.versions.empty()) return {};
    out.rate_adaptation = o.rate_adaptation && l.rate_adaptation;
    out.rtx_versions = sub_list(o.rtx_versions, l.rtx_versions);
    // Hybrid FEC and retransmission repairs through RTX: without RTX it cannot run.
    if (!out.rtx_versions.empty()) {
        out.hybrid_versions = sub_list(o.hybrid_versions, l.hybrid_versions);
        if (!out.hybrid_versions.empty()) out.hybrid_data_flow = o.hybrid_data_flow & l.hybrid_data_flow;
    }
    return out;
}

optional_value<sobe_caps> negotiate_sobe(const optional_value<sobe_caps>& a, const optional_value<sobe_caps>& b,
                                         bool is_local)
{
    return is_local ? get_answer_sobe(a, b) : get_answer_sobe(b, a);
}

optional_value<sobe_hybrid_resilience> get_answer_sobe_hybrid_resilience(
    const optional_value<sobe_hybrid_resilience>& offered, const optional_value<sobe_hybrid_resilience>& local)
{
    if (offered.empty() || local.empty()) return {};
    auto versions = sub_list(offered.get_data().versions, local.get_data().versions);
    if (versions.empty()) return {};
    return sobe_hybrid_resilience(std::move(versions), offered.get_data().data_flow & local.get_data().data_flow);
}

optional_value<sobe_hybrid_resilience> negotiate_sobe_hybrid_resilience(
    const optional_value<sobe_hybrid_resilience>& a, const optional_value<sobe_hybrid_resilience>& b, bool is_local)
{
    return is_local ? get_answer_sobe_hybrid_resilience(a, b) : get_answer_sobe_hybrid_resilience(b, a);
}

optional_value<rtcp_xr> get_answer_rtcp_xr(const optional_value<rtcp_xr>& offered, const optional_value<rtcp_xr>& local)
{
    if (offered.empty() || local.empty()) return {};
    const auto& local_formats = local.get_data().formats;
    rtcp_xr out;
    for (const auto& [name, value] : offered.get_data().formats)
        if (local_formats.count(name)) out.add_format(name, value);
    if (out.formats.empty()) return {};
    return out;
}

optional_value<rtcp_xr> negotiate_rtcp_xr(const optional_value<rtcp_xr>& a, const optional_value<rtcp_xr>& b,
                                          bool is_local)
{
    return is_local ? get_answer_rtcp_xr(a, b) : get_answer_rtcp_xr(b, a);
}

optional_value<cmulti_caps> get_answer_cmulti(const optional_value<cmulti_caps>& offered,
                                              const optional_value<cmulti_caps>& local)
{
    return negotiate_cmulti(offered, local, false);
}

optional_value<cmulti_caps> negotiate_cmulti(const optional_value<cmulti_caps>& a, const optional_value<cmulti_caps>& b,
                                             bool is_local)
{
    if (a.empty() || b.empty()) return {};
    unsigned common = a.get_data().scr_versions & b.get_data().scr_versions;
    if (common == 0) return {};
    const cmulti_caps& named = is_local ? a.get_data() : b.get_data();
    return cmulti_caps(named.sources, named.simuls, common, named.total);
}

std::vector<bfcp_floor_control_role> get_answer_bfcp_floor_control_role(
    const std::vector<bfcp_floor_control_role>& offered, const std::vector<bfcp_floor_control_role>& local)
{
    for (auto o : offered)
        for (auto l : local) {
            if (o == bfcp_role_s_only && (l == bfcp_role_c_only || l == bfcp_role_c_s)) return {bfcp_role_c_only};
            if (o == bfcp_role_c_only && (l == bfcp_role_s_only || l == bfcp_role_c_s)) return {bfcp_role_s_only};
            // An offerer that can be both leaves the choice to us; we then hold the floors.
            if (o == bfcp_role_c_s) return {l == bfcp_role_c_s ? bfcp_role_s_only : l};
        }
    return {};
}

std::vector<bfcp_floor_control_role> negotiate_bfcp_floor_control_role(const std::vector<bfcp_floor_control_role>& a,
                                                                       const std::vector<bfcp_floor_control_role>& b,
                                                                       bool is_local)
{
    return is_local ? get_answer_bfcp_floor_control_role(b, a) : get_answer_bfcp_floor_control_role(a, b);
}

}  // namespace sdp
