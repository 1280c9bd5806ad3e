// What `mediasession call --sdp-only` shows of an exchange: the descriptions (masked unless asked)
// and the records each side gets for them.
#pragma once

#include <cstdio>
#include <string>

#include "mediasession/ZynMediaEngine.h"

namespace tool {

struct ExchangeOptions {
    bool printDescriptions = false;  // the texts themselves, masked unless insecure
    bool insecure = false;
    std::string saveDir;  // when set: offer.sdp and answer.sdp are written there
};

void PrintDescription(FILE* out, const char* side, const char* kind, const std::string& text,
                      const ExchangeOptions& options);
void PrintRecords(FILE* out, const char* side, const char* what, const _tagSdpParsedInfo* info, int count,
                  int capacity);
bool SaveDescription(const ExchangeOptions& options, const char* name, const std::string& text);

}  // namespace tool
