#include "sdp/sobe.h"

#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

namespace {
// A list of only commas reads as no versions, which would print back as an empty value.
std::vector<std::string> split_versions(std::string_view list, const char* what)
{
    auto versions = detail::split(list, ',');
    if (versions.empty())
        throw std::invalid_argument(cat("invalid attribute value for ", what, ", expected at least one version (", list, ")"));
    return versions;
}
}  // namespace

// ---- version

sobe_version::sobe_version(std::vector<std::string> v) : versions(std::move(v))
{
    if (versions.empty()) throw std::invalid_argument("zero versions passed to sobe version attribute, expected minimum 1");
}

sobe_version::sobe_version(const attribute_line& l) { init_from_line(l); }

bool sobe_version::is_likely_valid(const attribute_line& l) { return l.get_name() == "vorta-sobe"; }

void sobe_version::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "vorta-sobe", "vorta sobe version");
    if (l.get_attribute_value().empty())
        throw std::invalid_argument("invalid attribute value for vorta sobe version, expected non-zero length");
    versions = split_versions(l.get_attribute_value(), "vorta sobe version");
}

attribute_line sobe_version::as_attribute_line() const { return attribute_line("vorta-sobe", detail::join(versions, ",")); }

// ---- rtx

sobe_rtp_rexmit::sobe_rtp_rexmit(std::vector<std::string> v) : versions(std::move(v))
{
    if (versions.empty()) throw std::invalid_argument("zero versions passed to sobe rtp retransmission attribute, expected minimum 1");
}

sobe_rtp_rexmit::sobe_rtp_rexmit(const attribute_line& l) { init_from_line(l); }

bool sobe_rtp_rexmit::is_likely_valid(const attribute_line& l) { return l.get_name() == "vorta-sobe-rtx"; }

void sobe_rtp_rexmit::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "vorta-sobe-rtx", "vorta sobe rtp retransmission");
    if (l.get_attribute_value().empty())
        throw std::invalid_argument("invalid attribute value for sobe rtp retransmission, expected non-zero length");
    versions = split_versions(l.get_attribute_value(), "sobe rtp retransmission");
}

attribute_line sobe_rtp_rexmit::as_attribute_line() const
{
    return attribute_line("vorta-sobe-rtx", detail::join(versions, ","));
}

// ---- rate adaptation

sobe_rate_adaptation::sobe_rate_adaptation(const attribute_line& l) { init_from_line(l); }

bool sobe_rate_adaptation::is_likely_valid(const attribute_line& l) { return l.get_name() == "vorta-sobe-rate"; }

void sobe_rate_adaptation::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "vorta-sobe-rate", "vorta sobe rate_adaptation");
}

attribute_line sobe_rate_adaptation::as_attribute_line() const { return attribute_line("vorta-sobe-rate"); }

// ---- hybrid resilience

namespace {
void check_data_flow(uint32_t data_flow, const std::string& value)
{
    if (data_flow >= 8)
        throw std::invalid_argument(
            cat("invalid attribute value for sobe hybrid resilience, data-flow larger than 7 (", value, ")"));
}
}  // namespace

sobe_hybrid_resilience::sobe_hybrid_resilience(std::vector<std::string> v, uint32_t d) : versions(std::move(v)), data_flow(d)
{
    check_data_flow(data_flow, std::to_string(data_flow));
}

sobe_hybrid_resilience::sobe_hybrid_resilience(const attribute_line& l) { init_from_line(l); }

bool sobe_hybrid_resilience::is_likely_valid(const attribute_line& l)
{
    return l.get_name() == "vorta-sobe-hybrid-resilience";
}

void sobe_hybrid_resilience::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "vorta-sobe-hybrid-resilience", "vorta sobe hybrid resilience");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ', 2);
    if (f.empty() || f.size() > 2)
        throw std::invalid_argument(cat(
            "invalid attribute value for sobe hybrid resilience, expected at least 1, at most 2 space delimited fields, received ",
            f.size(), " (", value, ")"));
    versions = split_versions(f[0], "sobe hybrid resilience");
    data_flow = 0;
    if (f.size() > 1) {
        for (auto item : detail::split_view(f[1], ';')) {
            auto kv = detail::split(item, '=');
            if (kv.size() == 2 && kv[0] == "data-flow")
                data_flow = string_to_numeric(kv[1], "sobe hybrid resilience data flow");
        }
    }
    check_data_flow(data_flow, value);
}

attribute_line sobe_hybrid_resilience::as_attribute_line() const
{
    std::string value = detail::join(versions, ",");
    if (data_flow != 0) value += cat(" data-flow=", data_flow);
    return attribute_line("vorta-sobe-hybrid-resilience", std::move(value));
}

// ---- psre

sobe_psre::sobe_psre(uint32_t pt, optional_value<uint32_t> l, bool g) : payload_type(pt), ltrf(std::move(l)), gdr(g) {}

sobe_psre::sobe_psre(const attribute_line& l) { init_from_line(l); }

bool sobe_psre::is_likely_valid(const attribute_line& l) { return l.get_name() == "vorta-sobe-psre"; }

void sobe_psre::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "vorta-sobe-psre", "vorta sobe psre");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ', 2);
    if (f.empty())
        throw std::invalid_argument(cat(
            "invalid attribute value for vorta sobe psre, expected >=1 space delimited fields, received ", f.size(),
            " (", value, ")"));
    payload_type = string_to_numeric(f[0], "sobe psre payload type");
    ltrf.clear();
    gdr = false;
    if (f.size() > 1) {
        for (auto item : detail::split_view(f[1], ';')) {
            auto kv = detail::split(item, '=');
            if (kv.size() == 2 && kv[0] == "ltrf") ltrf = string_to_numeric(kv[1], "sobe psre ltrf");
            else if (kv.size() == 1 && kv[0] == "gdr") gdr = true;
        }
    }
}

attribute_line sobe_psre::as_attribute_line() const
{
    std::vector<std::string> items;
    if (ltrf.is_set()) items.push_back(cat("ltrf=", ltrf.get_data()));
    if (gdr) items.emplace_back("gdr");
    std::string value = std::to_string(payload_type);
    if (!items.empty()) value += cat(" ", detail::join(items, ";"));
    return attribute_line("vorta-sobe-psre", std::move(value));
}

// ---- caps

bool sobe_caps::add_attribute(const attribute_line& l)
{
    if (sobe_version::is_likely_valid(l)) versions = sobe_version(l).versions;
    else if (sobe_rate_adaptation::is_likely_valid(l)) rate_adaptation = true;
    else if (sobe_rtp_rexmit::is_likely_valid(l)) rtx_versions = sobe_rtp_rexmit(l).versions;
    else if (sobe_hybrid_resilience::is_likely_valid(l)) {
        sobe_hybrid_resilience h(l);
        hybrid_versions = std::move(h.versions);
        hybrid_data_flow = h.data_flow;
    } else {
        return false;
    }
    return true;
}

void sobe_caps::validate() const
{
    if (!hybrid_versions.empty() && rtx_versions.empty())
        throw std::invalid_argument("require RTX enabled for enabling hybrid resilience");
    if (versions.empty()) throw std::invalid_argument("no vorta sobe version attribute found");
}

std::vector<attribute_line> sobe_caps::as_attribute_line() const
{
    std::vector<attribute_line> out;
    if (!versions.empty()) out.push_back(sobe_version(versions).as_attribute_line());
    if (rate_adaptation) out.push_back(sobe_rate_adaptation().as_attribute_line());
    if (!rtx_versions.empty()) out.push_back(sobe_rtp_rexmit(rtx_versions).as_attribute_line());
    if (!hybrid_versions.empty()) out.push_back(sobe_hybrid_resilience(hybrid_versions, hybrid_data_flow).as_attribute_line());
    return out;
}

}  // namespace sdp
