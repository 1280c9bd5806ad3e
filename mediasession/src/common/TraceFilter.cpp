#include "common/TraceFilter.h"

#include <optional>
#include <regex>

#include "util/CmTrace.h"

const char* const kSecretPattern = "(inline\\:)\\S*|(ice-pwd\\:)\\S*";
const char* const kSecretReplacement = "$1$2 ******";

namespace {

// Room for the text of one trace line, below the formatter's 1024 bytes with the tail.
constexpr size_t kPiece = 900;

}  // namespace

std::string MaskSecrets(const std::string& text, const std::string& pattern, const std::string& replacement)
{
    if (pattern.empty()) return text;
    // The usual pattern is compiled once; another one per call.
    static const std::regex secrets(kSecretPattern);
    std::optional<std::regex> custom;
    if (pattern != kSecretPattern) custom.emplace(pattern);
    const std::regex& re = custom ? *custom : secrets;
    std::string out;
    size_t start = 0;
    // Line by line, so that a match never runs across a line end.
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        out += std::regex_replace(text.substr(start, end - start), re, replacement);
        if (end == text.size()) break;
        out += '\n';
        start = end + 1;
    }
    return out;
}

void OutputInfoTraceWithFilter(const std::string& text, const std::string& pattern, const std::string& replacement,
                               int level)
{
    if (get_external_trace_mask() < level) return;
    const std::string masked = MaskSecrets(text, pattern, replacement);
    size_t start = 0;
    while (start < masked.size()) {
        size_t end = masked.find('\n', start);
        if (end == std::string::npos) end = masked.size();
        for (size_t piece = start; piece < end; piece += kPiece) {
            std::string line = masked.substr(piece, std::min(kPiece, end - piece));
            if (!line.empty() && line.back() == '\r') line.pop_back();
            CM_TRACE_MODULE(level, MS_MODULE, line);
        }
        start = end + 1;
    }
}
