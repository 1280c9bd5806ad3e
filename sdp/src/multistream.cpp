#include "sdp/multistream.h"

#include <stdexcept>

#include "attribute_util.h"

namespace sdp {

using detail::cat;

// ---- policy and simul fields

sprop_source_policy::sprop_source_policy(std::string n, uint32_t i) : name(std::move(n)), id(i)
{
    if (id == 0)
        throw std::invalid_argument("invalid value for vorta multistream sprop source attribute policy id, must be non-zero");
}

sprop_source_policy::sprop_source_policy(const std::string& text)
{
    auto f = detail::split(text, ':');
    if (f.size() != 2)
        throw std::invalid_argument(cat(
            "invalid format for vorta multistream sprop source attribute policy field, expected 2 ':' delimited fields, found ",
            f.size(), " (", text, ")"));
    name = std::move(f[0]);
    id = string_to_numeric(f[1], "vorta multistream sprop source attribute policy id");
    if (id == 0)
        throw std::invalid_argument("invalid value for vorta multistream sprop source attribute policy id, must be non-zero");
}

std::string sprop_source_policy::as_string() const { return cat(name, ":", id); }

sprop_source_simul::sprop_source_simul(std::vector<uint32_t> i) : ids(std::move(i))
{
    if (ids.empty()) throw std::invalid_argument("invalid number of simul id, must be non-empty");
}

sprop_source_simul::sprop_source_simul(const std::string& text)
{
    if (text.empty())
        throw std::invalid_argument("invalid value for vorta multistream sprop source attribute simul field, must be non empty");
    // The misspelt label is kept: traces and tests match it.
    for (const auto& v : detail::split(text, ','))
        ids.push_back(string_to_numeric(v, "vorta multistream sprop soruce attribute simul id"));
    if (ids.empty()) throw std::invalid_argument("invalid number of simul id, must be non-empty");
}

std::string sprop_source_simul::as_string() const
{
    std::string out;
    for (std::size_t i = 0; i < ids.size(); ++i) out += cat(i ? "," : "", ids[i]);
    return out;
}

// ---- sprop-source

sprop_source::sprop_source(uint32_t id) : source_id(id) {}

sprop_source::sprop_source(const attribute_line& l) { init_from_line(l); }

bool sprop_source::is_likely_valid(const attribute_line& l) { return l.get_name() == "sprop-source"; }

void sprop_source::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "sprop-source", "vorta multistream sprop source");
    const auto& value = l.get_attribute_value();
    auto parts = detail::split(value, ' ', 2);
    if (parts.empty())
        throw std::invalid_argument("invalid attribute value for vorta multistream sprop source, expected non-zero length");
    source_id = string_to_numeric(parts[0], "vorta multistream sprop source id");
    *this = sprop_source(source_id);
    if (parts.size() < 2) return;
    for (auto item : detail::split_view(parts[1], ';')) {
        auto kv = detail::split(item, '=', 2);
        if (kv.size() != 2) continue;
        const auto& key = kv[0];
        if (key == "csi") csi = string_to_numeric(kv[1], "vorta multistream sprop source csi");
        else if (key == "count") count = string_to_numeric(kv[1], "vorta multistream sprop source count");
        else if (key == "lrotation") lrotation = string_to_numeric(kv[1], "vorta multistream sprop source lrotation");
        else if (key == "mavatar") mavatar = string_to_numeric(kv[1], "vorta multistream sprop source mavatar");
        else if (key == "policies")
            for (const auto& p : detail::split(kv[1], ',')) policies.emplace_back(p);
        else if (key == "simul")
            for (const auto& s : detail::split(kv[1], '|')) simuls.emplace_back(s);
    }
}

attribute_line sprop_source::as_attribute_line() const
{
    std::vector<std::string> items;
    if (csi.is_set()) items.push_back(cat("csi=", csi.get_data()));
    if (count.is_set()) items.push_back(cat("count=", count.get_data()));
    if (!policies.empty()) {
        std::vector<std::string> p;
        for (const auto& x : policies) p.push_back(x.as_string());
        items.push_back(cat("policies=", detail::join(p, ",")));
    }
    if (!simuls.empty()) {
        std::vector<std::string> s;
        for (const auto& x : simuls) s.push_back(x.as_string());
        items.push_back(cat("simul=", detail::join(s, "|")));
    }
    if (lrotation.is_set()) items.push_back(cat("lrotation=", lrotation.get_data()));
    if (mavatar.is_set()) items.push_back(cat("mavatar=", mavatar.get_data()));
    std::string value = std::to_string(source_id);
    if (!items.empty()) value += cat(" ", detail::join(items, ";"));
    return attribute_line("sprop-source", std::move(value));
}

// ---- sprop-simul

sprop_simul::sprop_simul(uint32_t s, uint32_t sc, std::string pt, std::vector<std::string> p)
    : source_id(s), simulcast_id(sc), payload_type(std::move(pt)), parameters(std::move(p))
{
}

sprop_simul::sprop_simul(const attribute_line& l) { init_from_line(l); }

bool sprop_simul::is_likely_valid(const attribute_line& l) { return l.get_name() == "sprop-simul"; }

void sprop_simul::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "sprop-simul", "vorta multistream sprop simul");
    const auto& value = l.get_attribute_value();
    auto f = detail::split(value, ' ', 4);
    if (f.size() < 3)
        throw std::invalid_argument(cat(
            "invalid attribute value for vorta multistream sprop simul, expected >= 3 space delimited fields, received ",
            f.size(), " (", value, ")"));
    source_id = string_to_numeric(f[0], "vorta multistream sprop simul source id");
    simulcast_id = string_to_numeric(f[1], "vorta multistream sprop simul simulcast id");
    payload_type = std::move(f[2]);
    parameters.clear();
    if (f.size() > 3) {
        // A blank-only piece would print as trailing blanks, which no reader keeps.
        for (auto& p : detail::split(f[3], ';'))
            if (p.find_first_not_of(' ') != std::string::npos) parameters.push_back(std::move(p));
    }
}

attribute_line sprop_simul::as_attribute_line() const
{
    std::string value = cat(source_id, " ", simulcast_id, " ", payload_type);
    if (!parameters.empty()) value += cat(" ", detail::join(parameters, ";"));
    return attribute_line("sprop-simul", std::move(value));
}

// ---- sprop-total

sprop_total::sprop_total(const attribute_line& l) { init_from_line(l); }

bool sprop_total::is_likely_valid(const attribute_line& l) { return l.get_name() == "sprop-total"; }

void sprop_total::init_from_line(const attribute_line& l)
{
    detail::check_attribute_name(l, "sprop-total", "vorta multistream sprop total");
    *this = sprop_total();
    for (auto item : detail::split_view(l.get_attribute_value(), ';')) {
        auto kv = detail::split(item, '=', 2);
        if (kv.size() != 2) continue;
        if (kv[0] == "max-channels") max_channels = string_to_numeric(kv[1], "vorta multistream sprop total max channels");
        else if (kv[0] == "max-bitrate") max_bitrate = string_to_numeric(kv[1], "vorta multistream sprop total max bitrate");
        else if (kv[0] == "max-pps") max_pps = string_to_numeric(kv[1], "vorta multistream sprop total max pps");
    }
}

attribute_line sprop_total::as_attribute_line() const
{
    std::vector<std::string> items;
    if (max_channels.is_set()) items.push_back(cat("max-channels=", max_channels.get_data()));
    if (max_bitrate.is_set()) items.push_back(cat("max-bitrate=", max_bitrate.get_data()));
    if (max_pps.is_set()) items.push_back(cat("max-pps=", max_pps.get_data()));
    return attribute_line("sprop-total", detail::join(items, ";"));
}

// ---- caps

namespace {
constexpr const char* kScrFeedback[] = {"ccm vorta-scr", "ccm vorta-scr-v2", "ccm vorta-scr-v3", "ccm vorta-scr-v4"};
}

cmulti_caps::cmulti_caps(std::vector<sprop_source> so, std::vector<sprop_simul> si, unsigned v,
                         optional_value<sprop_total> t)
    : sources(std::move(so)), simuls(std::move(si)), scr_versions(v), total(std::move(t))
{
    if ((scr_versions & 0xF) == 0) throw std::invalid_argument("no vorta multistream RTCP SCR version");
}

bool cmulti_caps::add_attribute(const attribute_line& l)
{
    if (sprop_source::is_likely_valid(l)) sources.emplace_back(l);
    else if (sprop_simul::is_likely_valid(l)) simuls.emplace_back(l);
    else if (sprop_total::is_likely_valid(l)) total = sprop_total(l);
    else return false;
    return true;
}

unsigned cmulti_caps::scr_version_bit(const std::string& payload_type, const std::string& feedback)
{
    if (payload_type != "*") return 0;
    for (unsigned i = 0; i < 4; ++i)
        if (feedback == kScrFeedback[i]) return 1u << i;
    return 0;
}

bool cmulti_caps::track_cmulti_rtcp_feedback(const attribute_line& l)
{
    if (l.get_name() != "rtcp-fb") return false;
    auto parts = detail::split(l.get_attribute_value(), ' ', 2);
    if (parts.size() != 2) return false;
    unsigned bit = scr_version_bit(parts[0], parts[1]);
    scr_versions |= bit;
    return bit != 0;
}

std::vector<attribute_line> cmulti_caps::as_attribute_line() const
{
    if ((scr_versions & 0xF) == 0) throw std::invalid_argument("no vorta multistream RTCP SCR version");
    std::vector<attribute_line> out;
    for (const auto& s : sources) out.push_back(s.as_attribute_line());
    for (const auto& s : simuls) out.push_back(s.as_attribute_line());
    if (total.is_set()) out.push_back(total.get_data().as_attribute_line());
    for (unsigned i = 0; i < 4; ++i)
        if (scr_versions & (1u << i)) out.emplace_back("rtcp-fb", cat("* ", kScrFeedback[i]));
    return out;
}

}  // namespace sdp
