#include "call_exchange.h"

#include <fstream>
#include <regex>

#include "call_side.h"

namespace tool {

namespace {

// Keys and ICE passwords never reach a terminal unless asked for: the same rule as the traces.
std::string Masked(const std::string& text)
{
    static const std::regex secrets(R"((inline\:)\S*|(ice-pwd\:)\S*)");
    return std::regex_replace(text, secrets, "$1$2 ******");
}

}  // namespace

void PrintDescription(FILE* out, const char* side, const char* kind, const std::string& text,
                      const ExchangeOptions& options)
{
    if (!options.printDescriptions) return;
    std::fprintf(out, "----- %s of %s -----\n%s----- end -----\n", kind, side,
                 (options.insecure ? text : Masked(text)).c_str());
}

void PrintRecords(FILE* out, const char* side, const char* what, const _tagSdpParsedInfo* info, int count,
                  int capacity)
{
    std::fprintf(out, "[%s] records of the %s: %d\n", side, what, count);
    for (int i = 0; i < count && i < capacity; ++i)
        std::fprintf(out, "  mid=%llu type=%s direction=%d multistream=%s\n",
                     static_cast<unsigned long long>(info[i].mid), TypeName(info[i].sessionType), info[i].direction,
                     info[i].flag ? "yes" : "no");
}

bool SaveDescription(const ExchangeOptions& options, const char* name, const std::string& text)
{
    if (options.saveDir.empty()) return true;
    std::ofstream out(options.saveDir + "/" + name, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

}  // namespace tool
